#include "Sink.h"

#include "OutputFile.h"
#include "Palette.h"
#include "Program.h"
#include "Y4m.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

extern "C" {
#include <libavutil/audio_fifo.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

namespace host {

namespace fs = std::filesystem;

namespace {

using Fifo = std::unique_ptr<AVAudioFifo, Release<av_audio_fifo_free>>;

/// Codecs by the names that users know; any other name is looked up among FFmpeg's encoders.
struct NamedCodec {
    const char *name;
    const char *encoder;
    AVPixelFormat opaque;
    AVPixelFormat transparent; ///< NONE when the codec has no transparency
};
constexpr NamedCodec kCodecs[] = {
    {"h264", "libx264", AV_PIX_FMT_YUV420P, AV_PIX_FMT_NONE},
    {"h265", "libx265", AV_PIX_FMT_YUV420P, AV_PIX_FMT_NONE},
    {"vp9", "libvpx-vp9", AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVA420P},
    {"prores", "prores_ks", AV_PIX_FMT_YUV422P10, AV_PIX_FMT_YUVA444P10},
    {"qtrle", "qtrle", AV_PIX_FMT_RGB24, AV_PIX_FMT_ARGB},
    {"ffv1", "ffv1", AV_PIX_FMT_YUV420P, AV_PIX_FMT_BGRA},
    {"png", "png", AV_PIX_FMT_RGB24, AV_PIX_FMT_RGBA},
};

AVPixelFormat BestPixels(const AVCodec &encoder, bool hasAlpha) {
    const AVPixelFormat wanted = hasAlpha ? AV_PIX_FMT_BGRA : AV_PIX_FMT_YUV420P;
    return encoder.pix_fmts
               ? avcodec_find_best_pix_fmt_of_list(encoder.pix_fmts, wanted, hasAlpha, nullptr)
               : wanted;
}

std::string UsualCodec(const std::string &extension, bool hasAlpha) {
    if (extension == ".webm")
        return "vp9";
    return extension == ".mov" && hasAlpha ? "prores" : "h264";
}

void ChooseCodec(OutputPlan &plan, const std::string &codec, bool hasAlpha) {
    const auto named = std::find_if(std::begin(kCodecs), std::end(kCodecs),
                                    [&](const NamedCodec &c) { return codec == c.name; });
    const bool isNamed = named != std::end(kCodecs);
    plan.video = avcodec_find_encoder_by_name(isNamed ? named->encoder : codec.c_str());
    if (!plan.video || plan.video->type != AVMEDIA_TYPE_VIDEO)
        throw Failure("--codec " + codec + ": FFmpeg has no such video encoder here");
    if (!isNamed)
        plan.pixels = BestPixels(*plan.video, hasAlpha);
    else
        plan.pixels =
            hasAlpha && named->transparent != AV_PIX_FMT_NONE ? named->transparent : named->opaque;
    const AVPixFmtDescriptor *kind = av_pix_fmt_desc_get(plan.pixels);
    plan.needsEvenSize = kind->log2_chroma_w || kind->log2_chroma_h;
}

/// A number's place in a file name, like the printf formats %d and %04d.
bool IsNumbered(const std::string &file) {
    char name[1024];
    return av_get_frame_filename(name, sizeof name, file.c_str(), 0) >= 0;
}

/// Uncompressed frames, in a file or on standard output.
class Y4mSink : public Sink {
public:
    Y4mSink(const std::string &name, const VideoFormat &format) : label(name) {
        if (name == "-") {
            label = "standard output";
            file = stdout;
        } else {
            output.emplace(name);
            file = std::fopen(output->Part().c_str(), "wb");
        }
        if (!file || std::fputs(Y4mHeader(format).c_str(), file) < 0)
            throw Failure(label + ": " + std::strerror(errno));
    }
    ~Y4mSink() override {
        if (output && file)
            std::fclose(file);
    }
    void Write(const AVFrame &picture, std::int64_t) override {
        WriteY4mFrame(file, label, picture);
    }
    void Finish() override {
        const bool flushed = std::fflush(file) == 0;
        if (!flushed || (output && std::fclose(std::exchange(file, nullptr)) != 0))
            throw Failure(label + ": " + std::strerror(errno));
        if (output)
            output->Keep();
    }

private:
    std::string label;
    std::optional<OutputFile> output;
    std::FILE *file = nullptr;
};

/// An encoder with the packets that it has ready.
class Encoder {
public:
    Encoder(const AVCodec &encoder, std::string fileName)
        : name(std::move(fileName)), context(avcodec_alloc_context3(&encoder)) {}

    AVCodecContext &Context() { return *context; }
    void Open() {
        Check(avcodec_open2(context.get(), nullptr, nullptr),
              name + ": cannot start the encoder " + context->codec->name);
    }
    /// Encodes a picture or sound, null to end, and hands every packet to the function.
    template<class Use>
    void Encode(const AVFrame *frame, Use use) {
        const std::string what = name + ": encoding";
        Check(avcodec_send_frame(context.get(), frame), what);
        Packet packet(av_packet_alloc());
        for (;;) {
            const int answer = avcodec_receive_packet(context.get(), packet.get());
            if (answer == AVERROR(EAGAIN) || answer == AVERROR_EOF)
                return;
            Check(answer, what);
            use(*packet);
        }
    }

private:
    std::string name;
    Codec context;
};

void SetPreset(AVCodecContext &context, const std::string &preset) {
    // These two encoders complain on the terminal themselves, and only when they are started.
    constexpr const char *kPresets[] = {"ultrafast", "superfast", "veryfast", "faster",
                                        "fast",      "medium",    "slow",     "slower",
                                        "veryslow",  "placebo"};
    const std::string encoder = context.codec->name;
    const bool isKnown =
        std::find(std::begin(kPresets), std::end(kPresets), preset) != std::end(kPresets);
    if ((encoder == "libx264" || encoder == "libx265") && !isKnown)
        throw Failure("--preset " + preset +
                      ": the encoder has ultrafast, superfast, veryfast, "
                      "faster, fast, medium, slow, slower and veryslow");
    Check(av_opt_set(context.priv_data, "preset", preset.c_str(), 0),
          "--preset " + preset + " with the encoder " + encoder);
}

void SetUpVideo(AVCodecContext &context, const OutputOptions &options, const OutputPlan &plan,
                const VideoFormat &format) {
    context.width = format.width;
    context.height = format.height;
    context.pix_fmt = plan.pixels;
    context.time_base = av_inv_q(format.rate);
    context.framerate = format.rate;
    context.sample_aspect_ratio = format.aspect;
    context.thread_count = 0;
    context.bit_rate = 0;
    if (!(av_pix_fmt_desc_get(plan.pixels)->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL))) {
        context.color_range = format.colours.range;
        context.colorspace = format.colours.matrix;
        context.chroma_sample_location = format.colours.location;
    }
    context.color_primaries = format.colours.primaries;
    context.color_trc = format.colours.transfer;
    constexpr int kUsualCrf = 18;
    const bool hasCrf = av_opt_find(context.priv_data, "crf", nullptr, 0, 0) != nullptr;
    if (hasCrf) {
        av_opt_set_int(context.priv_data, "crf", options.quality.value_or(kUsualCrf), 0);
    } else if (options.quality) {
        context.flags |= AV_CODEC_FLAG_QSCALE;
        context.global_quality = *options.quality * FF_QP2LAMBDA;
    }
    if (!options.preset.empty())
        SetPreset(context, options.preset);
}

/// Anything that FFmpeg's libraries write: H.264 in MP4 and Matroska, ProRes in QuickTime, GIF.
class ContainerSink : public Sink {
public:
    ContainerSink(const OutputOptions &options, const OutputPlan &plan, const VideoFormat &format,
                  const AudioFormat *audioFormat)
        : name(options.file), output(options.file), isGif(plan.kind == OutputPlan::Kind::Gif),
          video(*plan.video, name) {
        AVFormatContext *context = nullptr;
        Check(avformat_alloc_output_context2(&context, plan.container, nullptr,
                                             output.Part().c_str()),
              name);
        muxer.reset(context);
        muxer->flags |= AVFMT_FLAG_BITEXACT; // the same command gives the same bytes
        SetUpVideo(video.Context(), options, plan, format);
        if (isGif)
            video.Context().pix_fmt = AV_PIX_FMT_PAL8;
        videoStream = AddStream(video);
        videoStream->avg_frame_rate = format.rate;
        videoStream->sample_aspect_ratio = format.aspect;
        if (audioFormat && plan.audio)
            AddAudio(*plan.audio, *audioFormat);
        Check(avio_open(&muxer->pb, output.Part().c_str(), AVIO_FLAG_WRITE), name);
        AVDictionary *extras = nullptr; // mp4 and mov play while they load
        av_dict_set(&extras, "movflags", "+faststart", 0);
        const int answer = avformat_write_header(muxer.get(), &extras);
        av_dict_free(&extras);
        Check(answer, name);
    }

    void Write(const AVFrame &picture, std::int64_t) override {
        Frame frame = isGif ? ToPalette(picture) : Share(picture);
        frame->pts = pictures++;
        frame->pict_type = AV_PICTURE_TYPE_NONE; // the clip's own key frames mean nothing here
        video.Encode(frame.get(), [&](AVPacket &packet) {
            packet.duration = 1;
            Mux(packet, video, *videoStream);
        });
    }

    void WriteAudio(const AVFrame &sound) override {
        Check(av_audio_fifo_write(waiting.get(), (void **)sound.extended_data, sound.nb_samples),
              name);
        while (av_audio_fifo_size(waiting.get()) >= audio->Context().frame_size)
            EncodeAudio(audio->Context().frame_size);
    }

    void Finish() override {
        const auto mux = [&](Encoder &encoder, AVStream &stream) {
            encoder.Encode(nullptr, [&](AVPacket &packet) {
                if (&encoder == &video)
                    packet.duration = 1;
                Mux(packet, encoder, stream);
            });
        };
        if (audio) {
            if (const int rest = av_audio_fifo_size(waiting.get()))
                EncodeAudio(rest);
            mux(*audio, *audioStream);
        }
        mux(video, *videoStream);
        Check(av_write_trailer(muxer.get()), name);
        avio_flush(muxer->pb);
        Check(muxer->pb->error, name);
        Check(avio_closep(&muxer->pb), name);
        output.Keep();
    }

private:
    struct CloseMuxer {
        void operator()(AVFormatContext *context) const {
            avio_closep(&context->pb);
            avformat_free_context(context);
        }
    };

    AVStream *AddStream(Encoder &encoder) {
        if (muxer->oformat->flags & AVFMT_GLOBALHEADER)
            encoder.Context().flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        encoder.Open();
        AVStream *stream = avformat_new_stream(muxer.get(), nullptr);
        stream->time_base = encoder.Context().time_base;
        Check(avcodec_parameters_from_context(stream->codecpar, &encoder.Context()), name);
        return stream;
    }

    void AddAudio(const AVCodec &encoder, const AudioFormat &format) {
        AVCodecContext &context = audio.emplace(encoder, name).Context();
        context.sample_fmt = AV_SAMPLE_FMT_FLTP;
        context.sample_rate = format.rate;
        context.time_base = {1, format.rate};
        context.bit_rate = 96000 * std::int64_t(format.channels.nb_channels);
        Check(av_channel_layout_copy(&context.ch_layout, &format.channels), name);
        audioStream = AddStream(*audio);
        waiting.reset(av_audio_fifo_alloc(AV_SAMPLE_FMT_FLTP, format.channels.nb_channels, 1));
    }

    void EncodeAudio(int samples) {
        const AVCodecContext &context = audio->Context();
        Frame frame = NewFrame();
        frame->format = AV_SAMPLE_FMT_FLTP;
        frame->nb_samples = samples;
        frame->sample_rate = context.sample_rate;
        Check(av_channel_layout_copy(&frame->ch_layout, &context.ch_layout), name);
        Check(av_frame_get_buffer(frame.get(), 0), name);
        av_audio_fifo_read(waiting.get(), (void **)frame->extended_data, samples);
        frame->pts = samplesWritten;
        samplesWritten += samples;
        audio->Encode(frame.get(), [&](AVPacket &packet) { Mux(packet, *audio, *audioStream); });
    }

    void Mux(AVPacket &packet, Encoder &encoder, AVStream &stream) {
        av_packet_rescale_ts(&packet, encoder.Context().time_base, stream.time_base);
        packet.stream_index = stream.index;
        Check(av_interleaved_write_frame(muxer.get(), &packet), name);
        Check(muxer->pb->error, name);
    }

    std::string name;
    OutputFile output;
    bool isGif;
    std::unique_ptr<AVFormatContext, CloseMuxer> muxer;
    Encoder video;
    AVStream *videoStream = nullptr;
    std::optional<Encoder> audio;
    AVStream *audioStream = nullptr;
    Fifo waiting;
    std::int64_t pictures = 0;
    std::int64_t samplesWritten = 0;
};

/// Numbered PNG pictures, each of which appears when it is whole.
class PictureSink : public Sink {
public:
    PictureSink(const OutputOptions &options, const OutputPlan &plan, const VideoFormat &format)
        : pattern(options.file), encoder(*plan.video, pattern) {
        SetUpVideo(encoder.Context(), options, plan, format);
        encoder.Context().thread_count = 1; // a picture in is a picture out
        encoder.Open();
    }

    void Write(const AVFrame &picture, std::int64_t frame) override {
        char name[1024];
        Check(av_get_frame_filename(name, sizeof name, pattern.c_str(), int(frame)), pattern);
        OutputFile output(name);
        std::FILE *file = std::fopen(output.Part().c_str(), "wb");
        bool good = file != nullptr;
        Frame shown = Share(picture);
        shown->pts = frame;
        encoder.Encode(shown.get(), [&](const AVPacket &packet) {
            good =
                good && std::fwrite(packet.data, 1, packet.size, file) == std::size_t(packet.size);
        });
        const int reason = errno;
        if (file && std::fclose(file) != 0)
            good = false;
        if (!good)
            throw Failure(std::string(name) + ": " + std::strerror(reason ? reason : errno));
        output.Keep();
    }

    void Finish() override {}

private:
    std::string pattern;
    Encoder encoder;
};

} // namespace

OutputPlan PlanOutput(const OutputOptions &options, bool hasAlpha) {
    const std::string extension = fs::path(options.file).extension();
    OutputPlan plan = {OutputPlan::Kind::Container, AV_PIX_FMT_YUV420P};
    if (options.file == "-" || extension == ".y4m") {
        if (!options.codec.empty())
            throw Failure("--codec " + options.codec + ": YUV4MPEG2 is not encoded");
        plan.kind = OutputPlan::Kind::Y4m;
        return plan;
    }
    if (IsNumbered(options.file)) {
        if (extension != ".png")
            throw Failure(options.file + ": numbered pictures are written as .png");
        plan.kind = OutputPlan::Kind::Pictures;
        ChooseCodec(plan, "png", hasAlpha);
        return plan;
    }
    if (extension == ".png")
        throw Failure(options.file + ": give pictures a number, as in " +
                      fs::path(options.file).stem().string() + "-%04d.png");
    plan.container = av_guess_format(nullptr, options.file.c_str(), nullptr);
    if (!plan.container || (plan.container->flags & AVFMT_NOFILE))
        throw Failure(options.file + ": the extension \"" + extension +
                      "\" is of no video file; try .mp4, .mkv, .mov, .y4m, .gif or -%04d.png");
    if (extension == ".gif") {
        plan.kind = OutputPlan::Kind::Gif;
        plan.video = avcodec_find_encoder(AV_CODEC_ID_GIF);
        plan.pixels = AV_PIX_FMT_BGRA;
        return plan;
    }
    ChooseCodec(plan, options.codec.empty() ? UsualCodec(extension, hasAlpha) : options.codec,
                hasAlpha);
    if (avformat_query_codec(plan.container, plan.video->id, FF_COMPLIANCE_NORMAL) == 0)
        throw Failure(options.file + ": " + plan.container->name + " files cannot hold " +
                      plan.video->name + " video");
    for (const char *encoder : {"aac", "libvorbis"}) {
        const AVCodec *audio = avcodec_find_encoder_by_name(encoder);
        if (audio && !plan.audio &&
            avformat_query_codec(plan.container, audio->id, FF_COMPLIANCE_NORMAL) == 1)
            plan.audio = audio;
    }
    return plan;
}

std::unique_ptr<Sink> OpenSink(const OutputOptions &options, const OutputPlan &plan,
                               const VideoFormat &format, const AudioFormat *audio) {
    switch (plan.kind) {
    case OutputPlan::Kind::Y4m:
        return std::make_unique<Y4mSink>(options.file, format);
    case OutputPlan::Kind::Pictures:
        return std::make_unique<PictureSink>(options, plan, format);
    default:
        return std::make_unique<ContainerSink>(options, plan, format, audio);
    }
}

} // namespace host
