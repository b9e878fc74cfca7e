/// \file PictureFile.h
/// Single pictures as files.
#pragma once

#include "Media.h"

#include <string>

namespace host {

/// Throws a Failure unless the name's ending is of a kind of picture that is written: .png, .jpg,
/// .webp, .tif or .bmp, in any case.
void CheckPictureName(const std::string &name);

/// Writes a picture of any pixels, without its transparency, as its name's ending says. It appears
/// under the name when it is whole.
void WritePicture(const AVFrame &picture, const std::string &name);

/// Writes a picture as it is by this encoder of FFmpeg's, with an option of the encoder's.
void EncodePicture(AVFrame &picture, const char *encoderName, const std::string &name,
                   const char *option = nullptr, const char *value = nullptr);

} // namespace host
