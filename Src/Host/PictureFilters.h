/// \file PictureFilters.h
/// How a picture of any kind becomes one of the result's kind.
#pragma once

#include "Colours.h"
#include "Media.h"

#include <string>

namespace host {

/// How a picture of another shape fills the result.
enum class Fit {
    Contain, ///< whole picture, black bars beside it
    Cover,   ///< no bars, what sticks out is cut off
    Stretch, ///< no bars, nothing cut off, distorted
    Blur,    ///< whole picture, and itself blurred beside it
};

/// The pictures of the result, or of one of the forms that drawing needs.
struct Canvas {
    int width = 0;
    int height = 0;
    AVRational aspect = {1, 1}; ///< width of a pixel by its height; 0 is unknown
    AVRational rate = {25, 1};  ///< pictures per second
    AVPixelFormat pixels = AV_PIX_FMT_YUV420P;
    Colours colours; ///< with nothing left to assume
    Fit fit = Fit::Contain;
    bool keepsInterlacing = false;
    AVFieldOrder fields = AV_FIELD_PROGRESSIVE; ///< of the pictures that are written
};

/// How a stored picture is turned to be upright: first transposed, then mirrored.
struct Orientation {
    bool isTransposed = false;
    bool isMirrored = false; ///< left and right change places
    bool isFlipped = false;  ///< top and bottom
};
/// What the picture or else its stream says: a display matrix, or Exif's number.
Orientation OrientationOf(const AVFrame &picture, const AVStream &stream);

/// The filters, as Graph takes them, that bring such a picture upright to the size, shape, pixels
/// and colours of the canvas; empty when there is nothing to do. Where the canvas holds no
/// transparency, the picture lies on black. High dynamic range is tone-mapped for a canvas without.
std::string PictureFilters(const AVFrame &picture, const Orientation &orientation,
                           const Canvas &canvas);

/// Gives the pixels their plain name, and writes down what is assumed about their colours.
void MakePlain(AVFrame &picture);

} // namespace host
