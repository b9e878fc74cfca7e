/// \file Frame.h
/// Frames of both layouts, in memory of their own or in somebody else's.
#pragma once

#include "Info.h"
#include "tp_Erase.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace hostkit {

/// The two functions of a transition, and the layouts of the frames that they draw.
enum class Path {
    Yuv, ///< planar: luma, Cb and Cr of 8 bits
    Rgb, ///< packed: 4 bytes a pixel, the fourth alpha; the others in any order
};

/// A frame in one of the two layouts. Rows count from the picture's top in both of them, whatever
/// their order in memory.
class Frame {
public:
    Frame() = default;
    /// A frame of its own memory with undefined contents, as the plug-in takes it: rows without
    /// padding, planes one after the other, packed rows from the bottom up. Both sizes at least 1.
    /// `chroma` is for planar frames.
    Frame(Path layout, int width, int height, Chroma chroma = Chroma::Half);
    /// A view of somebody else's memory, which must outlive it. `rows` are the first pixels of each
    /// plane's top row and `pitches` the bytes from one row to the next below, negative for
    /// pictures that lie upside down: three planes of a planar frame, one of a packed one.
    Frame(Path layout, int width, int height, std::uint8_t *const *rows, const int *pitches,
          Chroma chroma = Chroma::Half);

    Path Layout() const { return layout; }
    int Width() const { return width; }
    int Height() const { return height; }
    /// Of a planar frame's chroma planes.
    Chroma Resolution() const { return chroma; }
    /// 3 (luma, Cb, Cr) or 1.
    int Planes() const { return layout == Path::Yuv ? 3 : 1; }
    int Rows(int plane) const;
    /// Bytes of a row that are picture.
    int RowBytes(int plane) const;
    /// Bytes from a row to the one below it; may be negative.
    int Pitch(int plane) const { return pitches[plane]; }
    /// Row y of a plane, 0 at the picture's top.
    std::uint8_t *Row(int plane, int y) { return RowAt(plane, y); }
    const std::uint8_t *Row(int plane, int y) const { return RowAt(plane, y); }
    /// All of the frame's own memory; empty in a view.
    std::span<std::uint8_t> Bytes() { return {bytes.get(), bytes ? Size() : 0}; }
    std::span<const std::uint8_t> Bytes() const { return {bytes.get(), bytes ? Size() : 0}; }

    /// Whether a function that works on this chroma can be handed the frame as it lies. Padding
    /// would change pictures: some of the moving rectangles draw into it, or leave the bottom rows
    /// out. And the packed functions that count rows (Bar, Drop, the rolls) count from the end of
    /// the buffer.
    bool IsPlugins(Chroma chroma) const;
    /// Whether a packed frame lies top row first and has no padding.
    bool IsTopDown() const { return layout == Path::Rgb && pitches[0] == RowBytes(0); }
    /// The plug-in's record of a planar frame.
    const YUVImage *Image() const { return &image; }
    YUVImage *Image() { return &image; }
    /// The imaging library's handle of a packed frame without padding, whichever way up, else null.
    void *Handle() const { return handle.get(); }

private:
    struct Destroy {
        void operator()(void *image) const;
    };
    std::uint8_t *RowAt(int plane, int y) const {
        return top[plane] + std::ptrdiff_t(y) * pitches[plane];
    }
    std::size_t Size() const;
    void Describe();

    Path layout = Path::Yuv;
    Chroma chroma = Chroma::Half;
    int width = 0;
    int height = 0;
    std::uint8_t *top[3] = {};
    int pitches[3] = {};
    std::unique_ptr<std::uint8_t[]> bytes;
    YUVImage image = {};
    std::unique_ptr<void, Destroy> handle;
};

/// The picture of one frame into another of the same layout and size, whatever the pitches. Chroma
/// of half resolution goes to each of the up to four pixels that it belongs to; chroma of full
/// resolution becomes their rounded mean, so that what was enlarged and halved is unchanged.
void CopyPicture(const Frame &from, Frame &to);

} // namespace hostkit
