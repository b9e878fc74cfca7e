/// \file Sink.h
/// Writers of the result.
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
};

struct AudioFormat {
    int rate = 0;                  ///< samples per second
    AVChannelLayout channels = {}; ///< in the layout's usual order
};

/// How a file will be written, decided before the first picture is read.
struct OutputPlan {
    enum class Kind { Y4m, Pictures, Gif, Container } kind;
    AVPixelFormat pixels; ///< that pictures must come in
    const AVOutputFormat *container = nullptr;
    const AVCodec *video = nullptr;
    const AVCodec *audio = nullptr; ///< null where the file cannot hold sound
    bool needsEvenSize = false;
};

/// Throws a Failure for an extension or codec that is not known. hasAlpha asks for pixels that hold
/// transparency where the file can.
OutputPlan PlanOutput(const OutputOptions &options, bool hasAlpha);

/// A file being written. Its final name appears with Finish; without it nothing stays.
class Sink {
public:
    virtual ~Sink() = default;
    /// The next picture; frame is its number in the whole result.
    virtual void Write(const AVFrame &picture, std::int64_t frame) = 0;
    /// Sound that follows what was written before, 32-bit float samples in planes.
    virtual void WriteAudio(const AVFrame &) {}
    virtual void Finish() = 0;
};

/// Creates the file; audio may be null.
std::unique_ptr<Sink> OpenSink(const OutputOptions &options, const OutputPlan &plan,
                               const VideoFormat &format, const AudioFormat *audio);

} // namespace host
