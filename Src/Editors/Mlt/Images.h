/// \file Images.h
/// The engine's pictures cut into frames that the transitions draw, and put together again.
#pragma once

#include "Frame.h"

#include <framework/mlt.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace mlt {

/// Whether the engine has sound YUV pictures of this size: its parts disagree about the chroma of
/// an odd last column or row. Fields ask for an even height too.
constexpr bool HasYuv(int width, int height) {
    return width % 2 == 0 && height % 2 == 0;
}

/// Pictures of the engine, which lie in memory without padding, top row first, and how a transition
/// takes them.
struct Shape {
    mlt_image_format format; ///< rgba; or yuv422 or yuv420p, for sizes that HasYuv
    hostkit::Path path;
    hostkit::Chroma chroma; ///< what the planar function works on
    bool anyRowOrder;       ///< the packed one draws pictures that lie top row first, too
    int width;
    int height;
    bool isInterlaced; ///< of an even height, and not in yuv420p
};

/// One picture as frames that the plug-in takes as they lie. For each format and path:
/// - rgba, packed: one frame. Red, green and blue may come in any order. It is the picture itself
///   for functions of any row order; for others a copy from the bottom up, and what they draw is
///   drawn in the picture's memory and turned over there.
/// - rgba, planar: red, green, blue and alpha as the luma of one frame each, so that colours and
///   transparency stay what they are. For transitions that move pixels and never make any.
/// - yuv422: the even rows' chroma in one frame and the odd rows' in another, which share the luma.
///   Each is planar 4:2:0, and no chroma is lost. One frame for functions of full chroma.
/// - yuv420p: the picture itself.
///
/// An interlaced picture gives frames for each of its fields, the even rows' first. Their rows
/// count twice, so that shapes keep their proportions and nothing moves to the other field.
class Sheets {
public:
    /// With undefined contents; throws std::bad_alloc. The `picture` must outlive the sheets, which
    /// may be its rows; `isDrawn` where it is to be drawn, not read.
    Sheets(const Shape &shape, std::uint8_t *picture, bool isDrawn = false);
    /// The picture cut, unless it is in place already.
    void Split(const std::uint8_t *picture);
    /// The picture that was drawn from two others, once. A pixel that is nearly opaque, as both
    /// were, is opaque: blends lose a level or two. Alpha need not be drawn when both pictures were
    /// opaque.
    void Join(std::uint8_t *picture, const Sheets &in1, const Sheets &in2);

    /// Whether an rgba picture that was split had no transparent pixel.
    bool IsOpaque() const;
    bool IsAlpha(std::size_t i) const;
    std::size_t Count() const { return frames.size(); }
    hostkit::Frame &operator[](std::size_t i) { return frames[i]; }
    /// Whether a frame is of the odd rows' field.
    bool IsOddField(std::size_t i) const { return shape.isInterlaced && i >= frames.size() / 2; }

private:
    struct Release {
        void operator()(std::uint8_t *memory) const { mlt_pool_release(memory); }
    };
    bool IsInPlace() const;
    void AddPacked(std::uint8_t *pixels);
    void AddPlanar(std::uint8_t *luma, std::uint8_t *cb, std::uint8_t *cr);
    void RepeatRows();
    std::uint8_t Alpha(int field, int x, int y) const;
    void JoinRow(std::uint8_t *row, int y);
    void RestoreOpacity(std::uint8_t *row, int y, const Sheets &in1, const Sheets &in2) const;
    int Fields() const { return shape.isInterlaced ? 2 : 1; }

    Shape shape;
    std::unique_ptr<std::uint8_t, Release> memory; // the engine's, which are reused
    std::vector<hostkit::Frame> frames;
};

} // namespace mlt
