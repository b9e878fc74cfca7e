/// \file Pictures.h
/// Two built-in pictures to try transitions with: they differ in every colour, have detail down to
/// a few pixels and show which way is up.
#pragma once

#include "Media.h"

#include <cairo/cairo.h>

#include <memory>

namespace host {

/// A Cairo surface that is released with its owner.
using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;

/// A new opaque surface of 4-byte B, G, R, unused pixels, top row first; throws when memory is
/// short or a side is beyond Cairo's 32,767 pixels.
Surface NewSurface(int width, int height);

/// A surface's pixels as a picture that shares nothing with it.
Frame ToFrame(const Surface &surface);

/// A lake below mountains on a bright day. Any size and any shape; the same bytes every time.
Surface DayPicture(int width, int height);

/// A lit city across the water at dusk.
Surface DuskPicture(int width, int height);

} // namespace host
