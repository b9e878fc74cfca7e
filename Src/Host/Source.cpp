#include "Source.h"

#include "Program.h"
#include "Upright.h"
#include "Y4m.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace host {

namespace {

Demuxer OpenDemuxer(const std::string &name) {
    AVFormatContext *opened = nullptr;
    Check(avformat_open_input(&opened, name.c_str(), nullptr, nullptr), name);
    Demuxer demuxer(opened);
    Check(avformat_find_stream_info(demuxer.get(), nullptr), name);
    return demuxer;
}

/// The index of the file's main video stream; cover pictures of music do not count.
int VideoStream(AVFormatContext &demuxer, const std::string &name) {
    const int stream = av_find_best_stream(&demuxer, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (stream < 0 || (demuxer.streams[stream]->disposition & AV_DISPOSITION_ATTACHED_PIC))
        throw Failure(name + ": no video in it");
    for (unsigned i = 0; i < demuxer.nb_streams; ++i)
        demuxer.streams[i]->discard = int(i) == stream ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    return stream;
}

/// Whether the demuxer reads single pictures, whose "rate" means nothing when there is but one.
bool ReadsPictures(const AVFormatContext &demuxer) {
    const std::string kind = demuxer.iformat->name;
    return kind == "image2" || kind == "gif" || kind.ends_with("_pipe");
}

/// Anything that FFmpeg's libraries decode.
class LibrarySource : public Source {
public:
    explicit LibrarySource(const std::string &file) {
        name = file;
        demuxer = OpenDemuxer(name);
        stream = demuxer->streams[VideoStream(*demuxer, name)];
        OpenDecoder();
        format.rate = av_guess_frame_rate(demuxer.get(), stream, nullptr);
        if (format.rate.num <= 0 || format.rate.den <= 0)
            format.rate = {25, 1};
        format.timeBase = stream->time_base;
        first = Decode();
        if (!first)
            throw Failure(name + ": no frames in it");
        Describe(*first);
        if (ReadsPictures(*demuxer)) {
            second = Decode();
            format.isStill = !second;
        }
    }

    Frame Read() override {
        if (first)
            return std::move(first);
        return second ? std::move(second) : Decode();
    }

    std::optional<std::int64_t> ScanLength() const override {
        if (format.isStill || !std::filesystem::is_regular_file(name))
            return {};
        const Demuxer scanned = OpenDemuxer(name);
        const int video = VideoStream(*scanned, name);
        std::int64_t begin = INT64_MAX, end = INT64_MIN;
        const Packet packet(av_packet_alloc());
        for (; av_read_frame(scanned.get(), packet.get()) >= 0; av_packet_unref(packet.get())) {
            if (packet->stream_index != video || (packet->flags & AV_PKT_FLAG_DISCARD))
                continue;
            if (packet->pts == AV_NOPTS_VALUE)
                return {};
            begin = std::min(begin, packet->pts);
            end = std::max(end, packet->pts +
                                    (packet->duration > 0 ? packet->duration : UsualDuration()));
        }
        return begin < end ? std::optional(end - begin) : std::nullopt;
    }

private:
    std::int64_t UsualDuration() const {
        return av_rescale_q(1, av_inv_q(format.rate), format.timeBase);
    }

    void OpenDecoder() {
        const AVCodec *decoder = avcodec_find_decoder(stream->codecpar->codec_id);
        if (!decoder)
            throw Failure(name + ": there is no decoder for its video");
        codec.reset(avcodec_alloc_context3(decoder));
        Check(avcodec_parameters_to_context(codec.get(), stream->codecpar), name);
        codec->pkt_timebase = stream->time_base;
        codec->thread_count = 0;
        if (ReadsPictures(*demuxer)) // half a picture is none
            codec->err_recognition |= AV_EF_EXPLODE;
        Check(avcodec_open2(codec.get(), decoder, nullptr), name);
    }

    void Describe(const AVFrame &frame) {
        const AVPixFmtDescriptor *pixels = av_pix_fmt_desc_get(AVPixelFormat(frame.format));
        format.width = frame.width;
        format.height = frame.height;
        format.aspect = frame.sample_aspect_ratio;
        format.colours = {frame.color_range, frame.colorspace, frame.color_primaries,
                          frame.color_trc, frame.chroma_location};
        format.isYuv = !(pixels->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL)) &&
                       pixels->nb_components >= 3;
        format.hasAlpha = (pixels->flags & (AV_PIX_FMT_FLAG_ALPHA | AV_PIX_FMT_FLAG_PAL)) != 0;
    }

    /// The next decoded picture, its time made gapless where the file does not tell it.
    Frame Decode() {
        Frame frame = NewFrame();
        for (;;) {
            const int answer = avcodec_receive_frame(codec.get(), frame.get());
            if (answer == AVERROR_EOF)
                return nullptr;
            if (answer != AVERROR(EAGAIN)) {
                Check(answer, name + ": damaged after " + std::to_string(decoded) + " frames");
                break;
            }
            Feed();
        }
        if (frame->decode_error_flags || (frame->flags & AV_FRAME_FLAG_CORRUPT))
            throw Failure(name + ": damaged at frame " + std::to_string(decoded));
        std::int64_t duration = Duration(*frame);
        if (duration <= 0)
            duration = UsualDuration();
        frame->sample_aspect_ratio =
            av_guess_sample_aspect_ratio(demuxer.get(), stream, frame.get());
        frame->pts = frame->best_effort_timestamp;
        if (frame->pts == AV_NOPTS_VALUE || (decoded && frame->pts <= last))
            frame->pts = decoded ? last + std::max<std::int64_t>(lastDuration, 1) : 0;
        SetDuration(*frame, duration);
        last = frame->pts;
        lastDuration = duration;
        ++decoded;
        const int quarters = QuarterTurns(*stream, *frame);
        return quarters ? Turned(*frame, quarters) : std::move(frame);
    }

    /// Gives the decoder the next packet of the video, or tells it that there are no more.
    void Feed() {
        Packet packet(av_packet_alloc());
        for (;;) {
            const int answer = av_read_frame(demuxer.get(), packet.get());
            if (answer == AVERROR_EOF) {
                // Matroska that was cut short ends like any other, but for this complaint.
                if (TakeComplaint().find("ended prematurely") != std::string::npos)
                    throw Failure(name + ": cut short after " + std::to_string(decoded) +
                                  " frames");
                avcodec_send_packet(codec.get(), nullptr);
                return;
            }
            Check(answer, name + ": damaged after " + std::to_string(decoded) + " frames");
            if (packet->stream_index == stream->index)
                break;
            av_packet_unref(packet.get());
        }
        if (packet->flags & AV_PKT_FLAG_CORRUPT)
            throw Failure(name + ": damaged or cut short after " + std::to_string(decoded) +
                          " frames");
        Check(avcodec_send_packet(codec.get(), packet.get()),
              name + ": damaged after " + std::to_string(decoded) + " frames");
    }

    Demuxer demuxer;
    AVStream *stream = nullptr;
    Codec codec;
    Frame first;
    Frame second;
    std::int64_t decoded = 0;
    std::int64_t last = 0;
    std::int64_t lastDuration = 0;
};

} // namespace

std::unique_ptr<Source> OpenSource(const std::string &name) {
    if (auto y4m = OpenY4m(name))
        return y4m;
    return std::make_unique<LibrarySource>(name);
}

SteadySource::SteadySource(std::unique_ptr<Source> opened, AVRational framesPerSecond,
                           std::int64_t frames)
    : source(std::move(opened)), rate(framesPerSecond), stillFrames(frames) {
    next = source->Read();
    if (next)
        start = next->pts;
}

/// The first index at which a picture of this time shows. A quarter of a frame's time early still
/// counts as in time: files round their times, to milliseconds for instance.
std::int64_t SteadySource::Index(std::int64_t pts) const {
    const std::int64_t quarters =
        av_rescale_q(pts - start, source->Format().timeBase, av_inv_q(av_mul_q(rate, {4, 1})));
    return (quarters + 2) / 4;
}

void SteadySource::Advance() {
    shown = std::move(next);
    if (source->Format().isStill) {
        until = stillFrames;
        return;
    }
    next = source->Read();
    until = Index(next ? next->pts : shown->pts + Duration(*shown));
    if (!next) // however short, a clip has a frame
        until = std::max<std::int64_t>(until, 1);
}

Frame SteadySource::Read() {
    while (next && position >= until)
        Advance();
    if (position >= until)
        return nullptr;
    ++position;
    return Share(*shown);
}

std::optional<std::int64_t> SteadySource::ScanFrames() const {
    if (source->Format().isStill)
        return stillFrames;
    const std::optional<std::int64_t> length = source->ScanLength();
    return length ? std::optional(av_rescale_q(*length, source->Format().timeBase, av_inv_q(rate)))
                  : std::nullopt;
}

} // namespace host
