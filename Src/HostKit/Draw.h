/// \file Draw.h
/// Frames that own their memory, and one frame of a transition drawn between two of them.
#pragma once

#include "Plugin.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hostkit {

/// Resolution of a planar frame's chroma planes.
enum class Chroma {
    Half, ///< 4:2:0, both directions rounded up: what every planar path but one works on
    Full, ///< as many samples as luma: what roll_RT addresses
};

/// A planar 8-bit frame, top row first. Its rows lie without padding: some of the moving rectangles
/// draw into padding, or leave the bottom rows out, when the pitch is above the width.
class PlanarFrame {
public:
    PlanarFrame() = default;
    /// A frame with undefined contents; both sizes at least 1.
    PlanarFrame(int width, int height, Chroma chroma = Chroma::Half);

    int Width() const { return image.nWidth; }
    int Height() const { return image.nHeight; }
    int ChromaWidth() const { return image.nPitchUV; }
    int ChromaHeight() const;
    /// Plane 0 is luma, 1 Cb, 2 Cr.
    std::uint8_t *Plane(int plane) { return Start(plane); }
    const std::uint8_t *Plane(int plane) const { return Start(plane); }
    int Pitch(int plane) const { return plane ? image.nPitchUV : image.nPitchY; }
    int Rows(int plane) const { return plane ? ChromaHeight() : image.nHeight; }
    /// All samples of the three planes, one plane after the other.
    std::size_t Size() const;
    /// The plug-in's record of this frame.
    YUVImage *Image() { return &image; }
    const YUVImage *Image() const { return &image; }

private:
    std::uint8_t *Start(int plane) const;

    YUVImage image = {};
    Chroma chroma = Chroma::Half;
    std::unique_ptr<std::uint8_t[]> samples;
};

/// A packed frame of 4 bytes per pixel: blue, green, red, alpha. The picture's top row is the last
/// in memory, which all packed paths expect: those that count rows (Bar, Drop, the rolls) count
/// from the end of the buffer.
class PackedFrame {
public:
    PackedFrame() = default;
    /// A frame with undefined contents; both sizes at least 1.
    PackedFrame(int width, int height);

    int Width() const { return width; }
    int Height() const { return height; }
    int Pitch() const { return width * 4; }
    std::size_t Size() const { return std::size_t(Pitch()) * height; }
    /// The pixels in memory order.
    std::uint8_t *Bits() { return bits.get(); }
    const std::uint8_t *Bits() const { return bits.get(); }
    /// Row y of the picture, 0 at its top. Rows follow each other at -Pitch().
    std::uint8_t *Row(int y) { return bits.get() + RowOffset(y); }
    const std::uint8_t *Row(int y) const { return bits.get() + RowOffset(y); }
    /// The imaging library's handle of this frame.
    void *Handle() const { return handle.get(); }

private:
    std::size_t RowOffset(int y) const { return std::size_t(height - 1 - y) * Pitch(); }
    struct Destroy {
        void operator()(void *image) const;
    };

    int width = 0;
    int height = 0;
    std::unique_ptr<std::uint8_t[]> bits;
    std::unique_ptr<void, Destroy> handle;
};

/// A curve from 0 to 1 that replaces the even run of a transition's position.
struct Easing {
    const char *name;
    const char *description; ///< for users, a few words
    double (*curve)(double); ///< 0 at 0 and 1 at 1; may leave 0..1 in between
};

/// Every easing; the first, "linear", leaves the position as it is.
const std::vector<Easing> &Easings();
/// The easing of this name, or null.
const Easing *FindEasing(std::string_view name);

/// How the user wants a transition to move.
struct Motion {
    const Easing *easing = nullptr; ///< null is linear
    bool reverse = false; ///< inputs swapped and the position running back: the way in becomes the
                          ///< way out
    std::uint64_t seed = 0; ///< for the transitions that draw random numbers
};

/// One frame of a transition in time.
struct Moment {
    double total = 1;       ///< length of the transition, above 0
    double current = 0;     ///< position; whatever leaves 0..total counts as the nearer end
    std::int64_t frame = 0; ///< the frame's number within the transition, mixed into the seed
};

/// The position that the plug-in is given for a moment, always within 0..total.
double PluginPosition(const Motion &motion, const Moment &moment);

/// The resolution of chroma that a transition's planar function itself works on. DrawYUV takes care
/// of it; who calls the function directly has to.
Chroma PlanarChroma(const Transition &transition);

/// Draws one frame by the planar path. The transition must have one, and the three frames must be
/// of one size with chroma of half resolution. The same arguments give the same picture: the
/// process's random numbers are seeded before each call. Not to be called from two threads at once.
void DrawYUV(const Transition &transition, const Motion &motion, const Moment &moment,
             PlanarFrame &out, const PlanarFrame &in1, const PlanarFrame &in2);
/// The same by the packed path.
void DrawRGB(const Transition &transition, const Motion &motion, const Moment &moment,
             PackedFrame &out, const PackedFrame &in1, const PackedFrame &in2);

/// Makes pixels opaque again that the packed paths' blends, which treat alpha as a colour and lose
/// a level or two, left a little transparent: all of them when both inputs are opaque throughout,
/// otherwise those at which both inputs are opaque and the output nearly so.
void RestoreOpacity(PackedFrame &out, const PackedFrame &in1, const PackedFrame &in2);

} // namespace hostkit
