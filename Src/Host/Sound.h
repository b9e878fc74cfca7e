/// \file Sound.h
/// The clips' sound, cross-faded where the pictures change, and music under it.
#pragma once

#include "Clip.h"
#include "Timeline.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/audio_fifo.h>
}

namespace host {

/// How two clips' sounds pass into each other.
enum class FadeCurve {
    Linear,     ///< the sum of the two weights is 1
    EqualPower, ///< the sum of their squares is 1: unlike sounds keep their loudness
};

/// The sound of a file in the result's format: silence where it has none, also before it starts, in
/// gaps of its timestamps and after its end.
class SoundReader {
public:
    /// From this time of the file on, in seconds.
    SoundReader(const std::string &name, const SoundFormat &format, double from);

    /// As many samples, 32-bit floats in planes.
    Frame Read(int samples);
    /// Samples handed out so far.
    std::int64_t Position() const { return position; }
    /// Everything there was has been handed out.
    bool HasEnded() const;

private:
    void Decode();
    void Resample(const AVFrame *sound);

    std::string name;
    SoundFormat format;
    std::optional<Reader> reader;
    double origin; ///< time in the file of the first sample, in seconds
    Graph graph;
    SoundFormat like;
    std::unique_ptr<AVAudioFifo, Release<av_audio_fifo_free>> ready;
    std::int64_t position = 0;
    bool hasEnded = false;
};

/// What the user wants to hear.
struct SoundOptions {
    bool noClips = false;
    FadeCurve curve = FadeCurve::Linear;
    std::string music;                 ///< empty: none
    std::optional<double> musicVolume; ///< 1 is as recorded
};

/// Silence.
Frame NewSound(const SoundFormat &format, int samples);

/// The richest of the clips' sounds, and of the music; without a rate when there is none.
SoundFormat RichestSound(const std::vector<Clip> &clips, const SoundOptions &options);

/// The sound of the result.
class SoundTrack {
public:
    /// The clips outlive the track.
    SoundTrack(const std::vector<Clip> &clips, const SoundOptions &options,
               const SoundFormat &format, AVRational frameRate);

    /// The sound of one frame of the result. Frames come in order but may be left out. The music
    /// fades out towards the frame `end`, where that is known.
    Frame Read(const Step &step, std::optional<std::int64_t> end);
    /// From now on each clip is heard so many samples late.
    void Shift(std::vector<std::int64_t> samples) { shifts = std::move(samples); }

private:
    std::int64_t SampleAt(std::int64_t frame) const;
    Frame OfClip(const Shown &shown, std::int64_t begin, int samples);
    void AddMusic(AVFrame &sound, std::int64_t begin, std::optional<std::int64_t> end);

    const std::vector<Clip> &clips;
    SoundOptions options;
    SoundFormat format;
    AVRational frameRate;
    std::vector<std::int64_t> shifts; ///< of each clip
    struct Open {
        SoundReader reader;
        std::int64_t begin; ///< its first sample, counted from the clip's first
    };
    std::map<int, Open> readers; ///< of the clips that are heard now
    std::unique_ptr<SoundReader> music;
    std::int64_t musicAt = 0; ///< sample of the result that the music's next one belongs to
    double musicVolume = 1;
};

} // namespace host
