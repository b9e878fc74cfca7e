/// \file Audio.h
/// The clips' sound, cross-faded where the pictures change.
#pragma once

#include "Sink.h"

#include <memory>
#include <optional>
#include <string>

namespace host {

/// The sound of a file; nothing when it has none or is a pipe.
std::optional<AudioFormat> ProbeAudio(const std::string &name);

/// The format of a result whose clips have these sounds, as its encoder takes it.
AudioFormat ResultAudio(const AudioFormat &first, const AVCodec &encoder);

class AudioReader;

/// The sound of clip A, then of both as A's fades out and B's fades in, then of B. A clip without
/// sound is silent.
class AudioMix {
public:
    AudioMix(const std::string &a, const std::string &b, const AudioFormat &format,
             AVRational frameRate);
    ~AudioMix();

    /// The sound of one frame. Frames come in order but may be left out. Frame 0 is the first of
    /// clip A; the overlap begins at frame overlapStart, which may be left open (-1) before it, and
    /// is overlapLength frames long.
    Frame Read(std::int64_t frame, std::int64_t overlapStart, std::int64_t overlapLength);

private:
    std::int64_t SampleAt(std::int64_t frame) const;

    AudioFormat format;
    AVRational frameRate;
    std::unique_ptr<AudioReader> a;
    std::unique_ptr<AudioReader> b;
};

} // namespace host
