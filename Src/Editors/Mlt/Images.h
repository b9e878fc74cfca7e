/// \file Images.h
/// The engine's pictures as frames of the transitions. The engine's pictures lie in memory without
/// padding, top row first.
#pragma once

#include "Frame.h"

namespace mlt {

/// Whether the engine has this size in planar 4:2:0: it knows no chroma for an odd last column or
/// row, and its parts disagree about such planes.
constexpr bool HasPlanarSize(int width, int height) {
    return width % 2 == 0 && height % 2 == 0;
}

/// The engine's memory of a picture as a frame: planar 4:2:0, for sizes that HasPlanarSize, or 4
/// bytes per pixel. The transitions take red, green and blue in any order.
hostkit::Frame View(hostkit::Path layout, int width, int height, std::uint8_t *picture);

/// To planar 4:2:0 from 4 bytes per pixel and back, for sizes that the engine has no planar
/// pictures of. Alpha is dropped on the way in and opaque on the way out.
hostkit::Frame ConvertRgba(int width, int height, const std::uint8_t *rgba);
void ConvertToRgba(const hostkit::Frame &frame, std::uint8_t *rgba);

} // namespace mlt
