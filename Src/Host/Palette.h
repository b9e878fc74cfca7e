/// \file Palette.h
/// Pictures of 256 colours, for GIF.
#pragma once

#include "Media.h"

namespace host {

/// A picture of pixels BGRA in the up to 256 colours that suit it best, as pixels PAL8. The mixture
/// of colours keeps still from frame to frame.
Frame ToPalette(const AVFrame &picture);

} // namespace host
