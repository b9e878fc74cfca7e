/// Anything that FFmpeg's libraries write: H.264 in MP4 and Matroska, ProRes in QuickTime, GIF,
/// YUV4MPEG2 in files and pipes.

#include "Encoder.h"
#include "Failure.h"
#include "Graph.h"
#include "OutputFile.h"
#include "Sink.h"

#include <optional>

extern "C" {
#include <libavutil/channel_layout.h>
}

namespace host {

namespace {

class ContainerSink : public Sink {
public:
    ContainerSink(const OutputOptions &options, const OutputPlan &plan, const Canvas &canvas,
                  const SoundFormat &soundFormat, const Tags &tags)
        : name(options.file == "-" ? "standard output" : options.file), fields(canvas.fields),
          isGif(plan.kind == OutputPlan::Kind::Gif), video(*plan.video, name) {
        std::string url = "pipe:1";
        if (options.file != "-")
            url = "file:" + output.emplace(options.file).Part().string();
        AVFormatContext *context = nullptr;
        Check(avformat_alloc_output_context2(&context, plan.container, nullptr, url.c_str()), name);
        muxer.reset(context);
        muxer->flags |= AVFMT_FLAG_BITEXACT; // the same command gives the same bytes
        muxer->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL; // YUV4MPEG2 of 10 bits
        SetTag("title", tags.title);
        SetTag("date", tags.date);
        SetUpVideo(video.Context(), options, plan, canvas);
        videoStream = AddStream(video);
        videoStream->avg_frame_rate = canvas.rate;
        videoStream->sample_aspect_ratio = canvas.aspect;
        const std::string kind = plan.container->name;
        if (plan.video->id == AV_CODEC_ID_HEVC && (kind == "mp4" || kind == "mov"))
            videoStream->codecpar->codec_tag = MKTAG('h', 'v', 'c', '1'); // what players look for
        if (soundFormat.rate) {
            SetUpSound(sound.emplace(*plan.sound, name).Context(), options, soundFormat);
            soundStream = AddStream(*sound);
        }
        Check(avio_open(&muxer->pb, url.c_str(), AVIO_FLAG_WRITE), name);
        AVDictionary *extras = nullptr; // mp4 and mov play while they load
        av_dict_set(&extras, "movflags", "+faststart", 0);
        const int answer = avformat_write_header(muxer.get(), &extras);
        av_dict_free(&extras);
        CheckWritten(answer);
    }

    void Write(const AVFrame &picture, std::int64_t) override {
        Frame frame = Share(picture);
        frame->pts = pictures++;
        frame->pict_type = AV_PICTURE_TYPE_NONE; // the clip's own key frames mean nothing here
        frame->interlaced_frame = fields != AV_FIELD_PROGRESSIVE;
        frame->top_field_first = fields == AV_FIELD_TT;
        if (!isGif)
            return EncodePicture(frame.get());
        if (!palette)
            palette = Graph(*frame, video.Context().time_base,
                            "split[a][b];[a]palettegen=stats_mode=single[p];"
                            "[b][p]paletteuse=new=1:dither=sierra2_4a",
                            name);
        palette.Push(*frame);
        EncodePaletted();
    }

    void WriteSound(const AVFrame &samples) override {
        Frame frame = Share(samples);
        frame->pts = samplesWritten;
        samplesWritten += frame->nb_samples;
        if (!blocks)
            blocks = Graph(*frame, {1, frame->sample_rate}, BlockFilters(), name);
        blocks.Push(*frame);
        EncodeSound();
    }

    void Finish() override {
        if (palette) {
            palette.End(pictures);
            EncodePaletted();
        }
        if (sound) {
            if (blocks) {
                blocks.End(samplesWritten);
                EncodeSound();
            }
            sound->Encode(nullptr, [&](AVPacket &packet) { Mux(packet, *sound, *soundStream); });
        }
        EncodePicture(nullptr);
        CheckWritten(av_write_trailer(muxer.get()));
        avio_flush(muxer->pb);
        CheckWritten(0);
        Check(avio_closep(&muxer->pb), name);
        if (output)
            output->Keep();
    }

private:
    struct CloseMuxer {
        void operator()(AVFormatContext *context) const {
            avio_closep(&context->pb);
            avformat_free_context(context);
        }
    };

    void SetTag(const char *key, const std::string &value) {
        if (!value.empty())
            av_dict_set(&muxer->metadata, key, value.c_str(), 0);
    }

    AVStream *AddStream(Encoder &encoder) {
        if (muxer->oformat->flags & AVFMT_GLOBALHEADER)
            encoder.Context().flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        encoder.Open();
        AVStream *stream = avformat_new_stream(muxer.get(), nullptr);
        stream->time_base = encoder.Context().time_base;
        Check(avcodec_parameters_from_context(stream->codecpar, &encoder.Context()), name);
        return stream;
    }

    /// Sound in the samples and blocks that the encoder takes.
    std::string BlockFilters() {
        const AVCodecContext &context = sound->Context();
        const bool isFree = context.frame_size == 0 ||
                            (context.codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE);
        return std::string("aformat=sample_fmts=") + av_get_sample_fmt_name(context.sample_fmt) +
               (isFree ? "" : ",asetnsamples=p=0:n=" + std::to_string(context.frame_size));
    }

    void EncodePicture(const AVFrame *frame) {
        video.Encode(frame, [&](AVPacket &packet) {
            packet.duration = 1;
            Mux(packet, video, *videoStream);
        });
    }

    void EncodePaletted() {
        while (const Frame frame = palette.Pull())
            EncodePicture(frame.get());
    }

    void EncodeSound() {
        while (const Frame frame = blocks.Pull())
            sound->Encode(frame.get(),
                          [&](AVPacket &packet) { Mux(packet, *sound, *soundStream); });
    }

    void Mux(AVPacket &packet, Encoder &encoder, AVStream &stream) {
        av_packet_rescale_ts(&packet, encoder.Context().time_base, stream.time_base);
        packet.stream_index = stream.index;
        CheckWritten(av_interleaved_write_frame(muxer.get(), &packet));
    }

    /// What went wrong with the file itself says more than what the muxer makes of it.
    void CheckWritten(int answer) { Check(muxer->pb->error ? muxer->pb->error : answer, name); }

    std::string name;
    std::optional<OutputFile> output;
    AVFieldOrder fields;
    bool isGif;
    std::unique_ptr<AVFormatContext, CloseMuxer> muxer;
    Encoder video;
    AVStream *videoStream = nullptr;
    std::optional<Encoder> sound;
    AVStream *soundStream = nullptr;
    Graph palette, blocks;
    std::int64_t pictures = 0;
    std::int64_t samplesWritten = 0;
};

} // namespace

std::unique_ptr<Sink> OpenContainer(const OutputOptions &options, const OutputPlan &plan,
                                    const Canvas &canvas, const SoundFormat &sound,
                                    const Tags &tags) {
    return std::make_unique<ContainerSink>(options, plan, canvas, sound, tags);
}

} // namespace host
