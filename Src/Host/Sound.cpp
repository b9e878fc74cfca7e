#include "Sound.h"

#include "Failure.h"

#include <algorithm>
#include <cmath>

extern "C" {
#include <libavutil/channel_layout.h>
}

namespace host {

namespace {

constexpr AVSampleFormat kSampleFormat = AV_SAMPLE_FMT_FLTP;

/// The usual layout of so many channels in FFmpeg's words.
std::string LayoutName(int channels) {
    AVChannelLayout layout = {};
    av_channel_layout_default(&layout, channels);
    char text[64];
    av_channel_layout_describe(&layout, text, sizeof text);
    return text;
}

float *SamplesOf(AVFrame &sound, int channel) {
    return reinterpret_cast<float *>(sound.extended_data[channel]);
}

double StartOf(const AVStream &stream) {
    return stream.start_time == AV_NOPTS_VALUE
               ? 0
               : double(stream.start_time) * av_q2d(stream.time_base);
}

} // namespace

Frame NewSound(const SoundFormat &format, int samples) {
    Frame sound = NewFrame();
    sound->format = kSampleFormat;
    sound->nb_samples = samples;
    sound->sample_rate = format.rate;
    av_channel_layout_default(&sound->ch_layout, format.channels);
    Check(av_frame_get_buffer(sound.get(), 0), "sound");
    av_samples_set_silence(sound->extended_data, 0, samples, format.channels, kSampleFormat);
    return sound;
}

SoundReader::SoundReader(const std::string &fileName, const SoundFormat &result, double from)
    : name(fileName), format(result), origin(from),
      ready(av_audio_fifo_alloc(kSampleFormat, format.channels, 1)) {
    reader.emplace(name, AVMEDIA_TYPE_AUDIO);
    constexpr double kEarly = 0.5; // decoders of sound need a little to come into step
    const AVStream &stream = reader->Stream();
    if (origin - kEarly > StartOf(stream))
        reader->Seek(std::int64_t((origin - kEarly) / av_q2d(stream.time_base)));
}

bool SoundReader::HasEnded() const {
    return hasEnded && av_audio_fifo_size(ready.get()) == 0;
}

Frame SoundReader::Read(int samples) {
    while (!hasEnded && av_audio_fifo_size(ready.get()) < samples)
        Decode();
    Frame sound = NewSound(format, samples);
    av_audio_fifo_read(ready.get(), reinterpret_cast<void **>(sound->extended_data), samples);
    position += samples;
    return sound;
}

void SoundReader::Decode() {
    const Frame sound = reader->Read();
    if (!sound) {
        hasEnded = true;
        if (graph)
            Resample(nullptr);
        reader.reset();
        return;
    }
    if (sound->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
        av_channel_layout_default(&sound->ch_layout, sound->ch_layout.nb_channels);
    const double time = double(sound->pts) * av_q2d(reader->Stream().time_base) - origin;
    sound->pts = std::llround(time * sound->sample_rate);
    if (sound->pts + sound->nb_samples <= 0)
        return; // before what is wanted
    if (like.rate != sound->sample_rate || like.channels != sound->ch_layout.nb_channels) {
        if (graph) // a broadcast may change its kind of sound
            Resample(nullptr);
        const std::int64_t done = position + av_audio_fifo_size(ready.get());
        origin += double(done) / format.rate;
        sound->pts -= av_rescale(done, sound->sample_rate, format.rate);
        like = {sound->sample_rate, sound->ch_layout.nb_channels};
        graph = Graph(*sound, {1, sound->sample_rate},
                      "aresample=" + std::to_string(format.rate) +
                          ":async=1:first_pts=0:min_hard_comp=0.01,aformat=sample_fmts=fltp:"
                          "channel_layouts=" +
                          LayoutName(format.channels),
                      name + ": its sound");
    }
    Resample(sound.get());
}

/// Into the queue; null ends what was given before.
void SoundReader::Resample(const AVFrame *sound) {
    if (sound)
        graph.Push(*sound);
    else
        graph.End(0);
    while (const Frame out = graph.Pull())
        Check(av_audio_fifo_write(ready.get(), reinterpret_cast<void **>(out->extended_data),
                                  out->nb_samples),
              name);
}

SoundFormat RichestSound(const std::vector<Clip> &clips, const SoundOptions &options) {
    constexpr int kMostChannels = 8;
    SoundFormat richest;
    const auto hear = [&](const SoundFormat &sound) {
        richest.rate = std::max(richest.rate, sound.rate);
        richest.channels = std::max(richest.channels, sound.channels);
    };
    for (const Clip &clip : clips)
        if (!options.noClips && clip.sound.rate && !clip.isPipe)
            hear(clip.sound);
    if (!options.music.empty()) {
        const Reader music(options.music, AVMEDIA_TYPE_AUDIO);
        hear(
            {music.Stream().codecpar->sample_rate, music.Stream().codecpar->ch_layout.nb_channels});
    }
    if (richest.channels > kMostChannels)
        richest.channels = 2;
    return richest;
}

// -------------------------------------------------------------------------------------------------

SoundTrack::SoundTrack(const std::vector<Clip> &all, const SoundOptions &wanted,
                       const SoundFormat &result, AVRational rate)
    : clips(all), options(wanted), format(result), frameRate(rate), shifts(all.size()) {
    constexpr double kUnder = 0.3;
    const bool isUnder =
        !options.noClips && std::any_of(clips.begin(), clips.end(), [](const Clip &clip) {
            return clip.sound.rate > 0 && !clip.isPipe;
        });
    musicVolume = options.musicVolume.value_or(isUnder ? kUnder : 1);
}

std::int64_t SoundTrack::SampleAt(std::int64_t frame) const {
    return av_rescale_q(frame, av_inv_q(frameRate), {1, format.rate});
}

/// The clip's sound from a sample of the result on.
Frame SoundTrack::OfClip(const Shown &shown, std::int64_t begin, int samples) {
    const Clip &clip = clips[shown.clip];
    if (options.noClips || !clip.sound.rate || clip.isPipe)
        return NewSound(format, samples);
    const std::int64_t at = begin - SampleAt(shown.start) - shifts[shown.clip];
    auto found = readers.find(shown.clip);
    if (found == readers.end() || found->second.begin + found->second.reader.Position() != at) {
        const double zero = double(clip.start) * av_q2d(clip.timeBase) +
                            double(clip.in) * av_q2d(av_inv_q(frameRate));
        readers.erase(shown.clip);
        found =
            readers
                .emplace(shown.clip, Open{{clip.name, format, zero + double(at) / format.rate}, at})
                .first;
    }
    return found->second.reader.Read(samples);
}

void SoundTrack::AddMusic(AVFrame &sound, std::int64_t begin, std::optional<std::int64_t> end) {
    constexpr double kFadeSeconds = 3;
    if (options.music.empty())
        return;
    const auto fade = std::int64_t(kFadeSeconds * format.rate);
    while (musicAt < begin + sound.nb_samples) {
        if (!music || music->HasEnded()) // over and over
            music = std::make_unique<SoundReader>(options.music, format, 0);
        constexpr std::int64_t kAtOnce = 65536;
        const bool isSkipped = musicAt < begin;
        const int samples = int(isSkipped ? std::min(begin - musicAt, kAtOnce)
                                          : begin + sound.nb_samples - musicAt);
        const Frame part = music->Read(samples);
        musicAt += samples;
        for (int i = 0; !isSkipped && i < samples; ++i) {
            const std::int64_t left = end ? SampleAt(*end) - (begin + i) : fade;
            const double weight = musicVolume * std::clamp(double(left) / double(fade), 0.0, 1.0);
            for (int channel = 0; channel < format.channels; ++channel)
                SamplesOf(sound, channel)[i] += float(weight) * SamplesOf(*part, channel)[i];
        }
    }
}

Frame SoundTrack::Read(const Step &step, std::optional<std::int64_t> end) {
    const std::int64_t begin = SampleAt(step.time);
    const int samples = int(SampleAt(step.time + 1) - begin);
    readers.erase(readers.begin(), readers.lower_bound(step.a.clip));
    Frame sound = OfClip(step.a, begin, samples);
    if (step.b) {
        const Frame incoming = OfClip(*step.b, begin, samples);
        const std::int64_t first = SampleAt(step.b->start);
        const std::int64_t last = SampleAt(step.b->start + step.overlap);
        for (int i = 0; i < samples; ++i) {
            const double at = double(begin + i - first) / double(last - first);
            const bool isLinear = options.curve == FadeCurve::Linear;
            const auto in = float(isLinear ? at : std::sin(at * M_PI / 2));
            const auto out = float(isLinear ? 1 - at : std::cos(at * M_PI / 2));
            for (int channel = 0; channel < format.channels; ++channel)
                SamplesOf(*sound, channel)[i] =
                    out * SamplesOf(*sound, channel)[i] + in * SamplesOf(*incoming, channel)[i];
        }
    }
    AddMusic(*sound, begin, end);
    return sound;
}

} // namespace host
