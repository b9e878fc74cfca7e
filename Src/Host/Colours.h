/// \file Colours.h
/// How the numbers of a picture stand for colours.
#pragma once

#include "Media.h"

#include <string>

namespace host {

struct Colours {
    AVColorRange range = AVCOL_RANGE_UNSPECIFIED;
    AVColorSpace matrix = AVCOL_SPC_UNSPECIFIED;
    AVColorPrimaries primaries = AVCOL_PRI_UNSPECIFIED;
    AVColorTransferCharacteristic transfer = AVCOL_TRC_UNSPECIFIED;
    AVChromaLocation location = AVCHROMA_LOC_UNSPECIFIED;
    bool operator==(const Colours &) const = default;
};

bool IsRgb(AVPixelFormat pixels); ///< or a palette of such colours
bool HasAlpha(AVPixelFormat pixels);
bool IsGrey(AVPixelFormat pixels);
int BitsOf(AVPixelFormat pixels); ///< of the deepest sample

/// PQ or HLG.
bool IsHdr(const Colours &colours);
/// The wide primaries of BT.2020.
bool IsWide(const Colours &colours);

/// The older names of full-range pixels as plain pixels and a range.
AVPixelFormat PlainPixels(AVPixelFormat pixels, AVColorRange &range);

/// The colours as they are computed with: what a picture leaves unsaid is guessed as players do it,
/// limited range and the matrix that its height suggests. RGB is full range.
Colours Assumed(Colours colours, AVPixelFormat pixels, int height);
/// What a picture says, and Assumed for the rest.
Colours ColoursOf(const AVFrame &picture);
/// Writes colours on a picture.
void Label(AVFrame &picture, const Colours &colours);

} // namespace host
