/// \file Plan.h
/// How a file will be written, decided before any work: container, codecs, pixels.
#pragma once

#include "Media.h"

#include <optional>
#include <string>

namespace host {

/// What the user wants to be written.
struct OutputOptions {
    std::string file;
    std::string codec;          ///< empty: by the file's extension
    std::optional<int> quality; ///< in the codec's own terms
    std::string preset;         ///< empty: the codec's usual one
    int depth = 8;              ///< bits of a sample: 8 or 10
    std::string soundCodec;     ///< empty: by the file's extension
    int soundBitrate = 0;       ///< in kbit/s; 0 is the usual one
};

struct OutputPlan {
    enum class Kind { Container, Gif, Pictures } kind = Kind::Container;
    AVPixelFormat pixels = AV_PIX_FMT_YUV420P; ///< that pictures must come in
    const AVOutputFormat *container = nullptr; ///< null for numbered pictures
    const AVCodec *video = nullptr;
    const AVCodec *sound = nullptr; ///< null where the file cannot hold sound
    std::optional<int> quality;     ///< the user's, or the codec's usual one
    bool needsEvenSize = false;
    bool IsY4m() const;
};

/// Throws a Failure for an extension, a codec or a quality that is not known. hasAlpha asks for
/// pixels that hold transparency where the file can.
OutputPlan PlanOutput(const OutputOptions &options, bool hasAlpha);

/// The sound as the file's encoder takes it.
SoundFormat PlanSound(const OutputPlan &plan, const SoundFormat &wanted);

/// The ending of a file's name from its point on, in small letters.
std::string LowerExtension(const std::string &file);

/// A number's place in a file name, like the printf formats %d and %04d.
bool IsNumbered(const std::string &file);

} // namespace host
