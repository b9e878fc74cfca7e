/// \file Y4m.h
/// YUV4MPEG2: uncompressed video in files and pipes.
#pragma once

#include "Source.h"

#include <cstdio>

namespace host {

/// A reader when the name is "-" or a file or pipe that begins like YUV4MPEG2, null for other
/// files. Throws a Failure for a broken header, for samples other than 8-bit 4:2:0, for a file
/// without frames and for pipes of anything else.
std::unique_ptr<Source> OpenY4m(const std::string &name);

/// The stream header of a result, with its line end.
std::string Y4mHeader(const VideoFormat &format);

/// Writes one frame of pixels YUV420P after a header; throws a Failure that names the file.
void WriteY4mFrame(std::FILE *file, const std::string &name, const AVFrame &frame);

} // namespace host
