/// \file Upright.h
/// Pictures taken with the camera on its side.
#pragma once

#include "Media.h"

namespace host {

/// How many quarter turns clockwise show the picture upright, by what the file or the camera's own
/// notes in the picture say: 0 to 3.
int QuarterTurns(const AVStream &stream, const AVFrame &picture);

/// The picture turned clockwise.
Frame Turned(const AVFrame &picture, int quarters);

} // namespace host
