#include "Audio.h"

#include "Program.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

extern "C" {
#include <libavutil/audio_fifo.h>
#include <libswresample/swresample.h>
}

namespace host {

namespace {

/// A file opened for its sound alone.
struct AudioFile {
    Demuxer demuxer;
    AVStream *stream = nullptr;
    Codec codec;
    double start = 0; ///< seconds from the first picture to the first sound
};

std::optional<AudioFile> OpenAudio(const std::string &name) {
    AVFormatContext *opened = nullptr;
    if (!std::filesystem::is_regular_file(name) ||
        avformat_open_input(&opened, name.c_str(), nullptr, nullptr) < 0)
        return {};
    AudioFile file;
    file.demuxer.reset(opened);
    Check(avformat_find_stream_info(opened, nullptr), name);
    const AVCodec *decoder = nullptr;
    const int index = av_find_best_stream(opened, AVMEDIA_TYPE_AUDIO, -1, -1, &decoder, 0);
    if (index < 0)
        return {};
    file.stream = opened->streams[index];
    const int video = av_find_best_stream(opened, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    const auto seconds = [](const AVStream &stream) {
        return stream.start_time == AV_NOPTS_VALUE ? 0.0
                                                   : stream.start_time * av_q2d(stream.time_base);
    };
    file.start = video < 0 ? 0 : seconds(*file.stream) - seconds(*opened->streams[video]);
    for (unsigned i = 0; i < opened->nb_streams; ++i)
        opened->streams[i]->discard = int(i) == index ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    file.codec.reset(avcodec_alloc_context3(decoder));
    Check(avcodec_parameters_to_context(file.codec.get(), file.stream->codecpar), name);
    file.codec->pkt_timebase = file.stream->time_base;
    Check(avcodec_open2(file.codec.get(), decoder, nullptr), name + ": its sound");
    return file;
}

} // namespace

std::optional<AudioFormat> ProbeAudio(const std::string &name) {
    const std::optional<AudioFile> file = OpenAudio(name);
    if (!file)
        return {};
    AudioFormat format = {file->codec->sample_rate};
    av_channel_layout_default(&format.channels, file->codec->ch_layout.nb_channels);
    return format;
}

AudioFormat ResultAudio(const AudioFormat &first, const AVCodec &encoder) {
    constexpr int kUsualRate = 48000, kMostChannels = 6;
    AudioFormat format = first;
    bool isSupported = !encoder.supported_samplerates;
    for (const int *rate = encoder.supported_samplerates; rate && *rate; ++rate)
        isSupported = isSupported || *rate == first.rate;
    if (!isSupported)
        format.rate = kUsualRate;
    if (first.channels.nb_channels > kMostChannels)
        av_channel_layout_default(&format.channels, 2);
    return format;
}

/// A clip's sound as one long line of samples in the result's format, silence after its end.
class AudioReader {
public:
    AudioReader(const std::string &fileName, const AudioFormat &result)
        : name(fileName), format(result), file(OpenAudio(fileName)),
          ready(av_audio_fifo_alloc(AV_SAMPLE_FMT_FLTP, format.channels.nb_channels, 1)) {
        if (!file)
            return;
        delay = std::llround(file->start * format.rate);
    }

    std::int64_t Position() const { return position; }

    void Skip(std::int64_t samples) {
        constexpr std::int64_t kAtOnce = 65536;
        for (; samples > 0; samples -= std::min(samples, kAtOnce))
            Read(int(std::min(samples, kAtOnce)));
    }

    Frame Read(int samples) {
        Frame sound = NewFrame();
        sound->format = AV_SAMPLE_FMT_FLTP;
        sound->nb_samples = samples;
        sound->sample_rate = format.rate;
        Check(av_channel_layout_copy(&sound->ch_layout, &format.channels), name);
        Check(av_frame_get_buffer(sound.get(), 0), name);
        while (file && !ended && av_audio_fifo_size(ready.get()) < samples)
            Decode();
        const int read = av_audio_fifo_read(ready.get(), (void **)sound->extended_data, samples);
        av_samples_set_silence(sound->extended_data, std::max(read, 0), samples - std::max(read, 0),
                               format.channels.nb_channels, AV_SAMPLE_FMT_FLTP);
        position += samples;
        return sound;
    }

private:
    /// Decodes some more sound into the queue of ready samples.
    void Decode() {
        Frame frame = NewFrame();
        const int answer = avcodec_receive_frame(file->codec.get(), frame.get());
        if (answer == AVERROR(EAGAIN)) {
            Feed();
        } else if (answer == AVERROR_EOF) {
            if (resampler)
                Resample(nullptr);
            ended = true;
        } else {
            Check(answer, name + ": its sound is damaged");
            if (!resampler)
                OpenResampler(*frame);
            Resample(frame.get());
        }
    }

    void Feed() {
        Packet packet(av_packet_alloc());
        int answer = 0;
        do {
            av_packet_unref(packet.get());
            answer = av_read_frame(file->demuxer.get(), packet.get());
        } while (answer >= 0 && packet->stream_index != file->stream->index);
        avcodec_send_packet(file->codec.get(), answer < 0 ? nullptr : packet.get());
    }

    void OpenResampler(const AVFrame &frame) {
        AVChannelLayout layout = {};
        if (frame.ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
            av_channel_layout_default(&layout, frame.ch_layout.nb_channels);
        else
            Check(av_channel_layout_copy(&layout, &frame.ch_layout), name);
        SwrContext *made = nullptr;
        const int answer =
            swr_alloc_set_opts2(&made, &format.channels, AV_SAMPLE_FMT_FLTP, format.rate, &layout,
                                AVSampleFormat(frame.format), frame.sample_rate, 0, nullptr);
        av_channel_layout_uninit(&layout);
        Check(answer, name + ": its sound");
        resampler.reset(made);
        Check(swr_init(made), name + ": its sound");
        if (delay > 0)
            Check(swr_inject_silence(made, int(delay)), name + ": its sound");
        else
            Check(swr_drop_output(made, int(-delay)), name + ": its sound");
    }

    void Resample(const AVFrame *frame) {
        const int most = swr_get_out_samples(resampler.get(), frame ? frame->nb_samples : 0);
        if (most <= 0)
            return;
        Frame out = NewFrame();
        out->format = AV_SAMPLE_FMT_FLTP;
        out->nb_samples = most;
        Check(av_channel_layout_copy(&out->ch_layout, &format.channels), name);
        Check(av_frame_get_buffer(out.get(), 0), name);
        const int samples = Check(
            swr_convert(resampler.get(), out->extended_data, most,
                        frame ? const_cast<const std::uint8_t **>(frame->extended_data) : nullptr,
                        frame ? frame->nb_samples : 0),
            name + ": its sound");
        Check(av_audio_fifo_write(ready.get(), (void **)out->extended_data, samples), name);
    }

    std::string name;
    AudioFormat format;
    std::optional<AudioFile> file;
    std::unique_ptr<SwrContext, Release<swr_free>> resampler;
    std::unique_ptr<AVAudioFifo, Release<av_audio_fifo_free>> ready;
    std::int64_t delay = 0;
    std::int64_t position = 0;
    bool ended = false;
};

AudioMix::AudioMix(const std::string &nameA, const std::string &nameB, const AudioFormat &result,
                   AVRational rate)
    : format(result), frameRate(rate), a(std::make_unique<AudioReader>(nameA, result)),
      b(std::make_unique<AudioReader>(nameB, result)) {}

AudioMix::~AudioMix() = default;

std::int64_t AudioMix::SampleAt(std::int64_t frame) const {
    return av_rescale_q(frame, av_inv_q(frameRate), {1, format.rate});
}

Frame AudioMix::Read(std::int64_t frame, std::int64_t overlapStart, std::int64_t overlapLength) {
    const std::int64_t begin = SampleAt(frame);
    const int samples = int(SampleAt(frame + 1) - begin);
    if (overlapStart < 0 || frame < overlapStart) {
        a->Skip(begin - a->Position());
        return a->Read(samples);
    }
    const std::int64_t fade = SampleAt(overlapStart);
    const std::int64_t faded = SampleAt(overlapStart + overlapLength);
    b->Skip(begin - fade - b->Position());
    Frame sound = b->Read(samples);
    if (frame >= overlapStart + overlapLength)
        return sound;
    a->Skip(begin - a->Position());
    const Frame outgoing = a->Read(samples);
    for (int channel = 0; channel < format.channels.nb_channels; ++channel) {
        auto *in = reinterpret_cast<float *>(sound->extended_data[channel]);
        const auto *out = reinterpret_cast<const float *>(outgoing->extended_data[channel]);
        for (int i = 0; i < samples; ++i) {
            const float weight = float(begin + i - fade) / float(faded - fade);
            in[i] = in[i] * weight + out[i] * (1 - weight);
        }
    }
    return sound;
}

} // namespace host
