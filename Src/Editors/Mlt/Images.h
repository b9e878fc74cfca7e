/// \file Images.h
/// The engine's pictures in and out of the frames that the transitions draw. The engine's pictures
/// lie in memory without padding, top row first.
#pragma once

#include "Draw.h"

namespace mlt {

/// Whether the engine has this size in planar 4:2:0: it knows no chroma for an odd last column or
/// row, and its parts disagree about such planes.
constexpr bool HasPlanarSize(int width, int height) {
    return width % 2 == 0 && height % 2 == 0;
}

/// 4 bytes per pixel: red, green, blue, alpha. The transitions take the channels in any order.
void ReadRgba(const std::uint8_t *rgba, hostkit::PackedFrame &frame);
void WriteRgba(const hostkit::PackedFrame &frame, std::uint8_t *rgba);

/// Planar 4:2:0: luma, Cb, Cr. Only for sizes that HasPlanarSize.
void ReadYuv420(const std::uint8_t *yuv, hostkit::PlanarFrame &frame);
void WriteYuv420(const hostkit::PlanarFrame &frame, std::uint8_t *yuv);

/// To planar 4:2:0 from 4 bytes per pixel and back, for sizes that the engine has no planar
/// pictures of. Alpha is dropped on the way in and opaque on the way out.
void ConvertRgba(const std::uint8_t *rgba, hostkit::PlanarFrame &frame);
void ConvertToRgba(const hostkit::PlanarFrame &frame, std::uint8_t *rgba);

} // namespace mlt
