#include "Reader.h"

#include "Failure.h"
#include "Messages.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <utility>

namespace host {

namespace fs = std::filesystem;

namespace {

/// Their first picture says all about pictures, so they need not be decoded twice.
void FindStreams(AVFormatContext &demuxer, const std::string &name) {
    const std::string kind = demuxer.iformat->name;
    if (kind != "image2" && !kind.ends_with("_pipe"))
        Check(avformat_find_stream_info(&demuxer, nullptr), name);
}

bool BeginsAsMp4(const std::string &name) {
    char head[8] = {};
    std::ifstream(name, std::ios::binary).read(head, sizeof head);
    return std::string_view(head + 4, 4) == "ftyp";
}

/// VP8 and VP9 keep transparency in a second stream that only the decoders of libvpx read.
const AVCodec *FindDecoder(const AVStream &stream) {
    const AVCodecID id = stream.codecpar->codec_id;
    const AVDictionaryEntry *alpha = av_dict_get(stream.metadata, "alpha_mode", nullptr, 0);
    const AVCodec *decoder = nullptr;
    if (alpha && std::strcmp(alpha->value, "1") == 0 && id == AV_CODEC_ID_VP9)
        decoder = avcodec_find_decoder_by_name("libvpx-vp9");
    if (alpha && std::strcmp(alpha->value, "1") == 0 && id == AV_CODEC_ID_VP8)
        decoder = avcodec_find_decoder_by_name("libvpx");
    return decoder ? decoder : avcodec_find_decoder(id);
}

} // namespace

std::string ShownName(const std::string &name) {
    return name == kStandardInput ? "standard input" : name;
}

bool IsSeekable(const std::string &name) {
    std::error_code missing;
    return name != kStandardInput && !fs::is_fifo(name, missing) &&
           !fs::is_character_file(name, missing);
}

Demuxer OpenDemuxer(const std::string &name, int blockBytes, AVIOContext *bytes) {
    const std::string shown = ShownName(name);
    std::error_code missing;
    const bool isThere = fs::exists(name, missing);
    std::string url = isThere ? "file:" + name : name;
    if (name == kStandardInput)
        url = "pipe:0";
    else if (fs::is_directory(name, missing))
        throw Failure(name + ": is a folder");
    else if (fs::is_regular_file(name, missing) && fs::file_size(name, missing) == 0)
        throw Failure(name + ": is empty");
    else if (!isThere && name.find("://") == std::string::npos &&
             name.find('%') == std::string::npos)
        throw Failure(name + ": there is no such file");
    AVDictionary *options = nullptr;
    if (isThere)
        av_dict_set(&options, "pattern_type", "none", 0);
    if (blockBytes)
        av_dict_set_int(&options, "blocksize", blockBytes, 0);
    AVFormatContext *opened = avformat_alloc_context();
    if (opened)
        opened->pb = bytes;
    const int answer = avformat_open_input(&opened, url.c_str(), nullptr, &options);
    av_dict_free(&options);
    if (answer == AVERROR_INVALIDDATA && BeginsAsMp4(name) &&
        TakeComplaint().find("moov atom not found") != std::string::npos)
        throw Failure(shown + ": was cut short before its index, without which it cannot be read");
    if (answer == AVERROR_INVALIDDATA || answer == AVERROR_EOF)
        throw Failure(shown + ": is " + (name == kStandardInput ? "empty or " : "") +
                      "of no kind that FFmpeg reads");
    Check(answer, shown);
    Demuxer demuxer(opened);
    FindStreams(*demuxer, shown);
    return demuxer;
}

bool ReadsPictures(const AVFormatContext &demuxer) {
    const std::string kind = demuxer.iformat->name;
    return kind == "image2" || kind == "gif" || kind.ends_with("_pipe");
}

int MainStream(AVFormatContext &demuxer, AVMediaType kind) {
    const int index = av_find_best_stream(&demuxer, kind, -1, -1, nullptr, 0);
    return index >= 0 && (demuxer.streams[index]->disposition & AV_DISPOSITION_ATTACHED_PIC)
               ? -1
               : index;
}

Packets::Packets(AVFormatContext &file, int index, std::string fileName, int other)
    : demuxer(&file), stream(index), second(other), name(std::move(fileName)) {
    for (int i = 0; i < int(demuxer->nb_streams); ++i)
        demuxer->streams[i]->discard =
            i == stream || i == second ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
}

bool Packets::Next(AVPacket &packet) {
    int answer = 0;
    do {
        av_packet_unref(&packet);
        answer = av_read_frame(demuxer, &packet);
    } while (answer >= 0 && packet.stream_index != stream && packet.stream_index != second);
    const char *kind = demuxer->iformat->name;
    if (answer < 0) {
        // Matroska that was cut short ends like any other file, but for this complaint; YUV4MPEG2
        // but for the bytes behind the last whole frame.
        const bool isShort =
            TakeComplaint().find("ended prematurely") != std::string::npos ||
            (std::strcmp(kind, "yuv4mpegpipe") == 0 && demuxer->pb && avio_tell(demuxer->pb) > end);
        const bool isPipe = demuxer->pb && !(demuxer->pb->seekable & AVIO_SEEKABLE_NORMAL);
        if (answer != AVERROR_EOF && count == 0 && isPipe)
            throw Failure(name + ": cannot be read without seeking; give the file itself");
        if (answer != AVERROR_EOF || isCut || isShort)
            throw Failure(name + ": damaged or cut short after " + Counted(count, "packet"));
        return false;
    }
    ++count;
    end = packet.pos + packet.size;
    // A broadcast begins and ends where it was switched on and off.
    isCut = (packet.flags & AV_PKT_FLAG_CORRUPT) && std::strcmp(kind, "mpegts") != 0;
    return true;
}

Reader::Reader(std::string fileName, AVMediaType wanted) : name(std::move(fileName)), kind(wanted) {
    Open();
}

void Reader::Open() {
    demuxer = OpenDemuxer(name);
    name = ShownName(name) == name ? name : kStandardInput;
    const int index = MainStream(*demuxer, kind);
    if (index < 0)
        throw Failure(ShownName(name) + ": no " + av_get_media_type_string(kind) + " in it");
    stream = demuxer->streams[index];
    packets = Packets(*demuxer, index, ShownName(name));
    const AVCodec *decoder = FindDecoder(*stream);
    if (!decoder)
        throw Failure(ShownName(name) + ": there is no decoder for its " +
                      av_get_media_type_string(kind));
    codec.reset(avcodec_alloc_context3(decoder));
    Check(avcodec_parameters_to_context(codec.get(), stream->codecpar), ShownName(name));
    codec->pkt_timebase = stream->time_base;
    codec->thread_count = ReadsPictures(*demuxer) ? 1 : 0;
    Check(avcodec_open2(codec.get(), decoder, nullptr), ShownName(name));
}

std::string Reader::Place() const {
    return " after " + (kind == AVMEDIA_TYPE_VIDEO ? Counted(decoded, "frame")
                                                   : Counted(decoded, "block") + " of sound");
}

void Reader::Complain(const std::string &trouble) {
    if (!std::exchange(isDamaged, true))
        Tell(ShownName(name) + ": " + trouble + "; what can be read is used");
}

Frame Reader::Read() {
    return pending ? std::move(pending) : Decode();
}

Frame Reader::Decode() {
    Frame frame = NewFrame();
    for (;;) {
        const int answer = avcodec_receive_frame(codec.get(), frame.get());
        if (answer == AVERROR_EOF)
            return nullptr;
        if (answer == 0)
            break;
        if (answer != AVERROR(EAGAIN))
            Complain("damaged" + Place());
        Feed();
    }
    if (frame->decode_error_flags || (frame->flags & AV_FRAME_FLAG_CORRUPT))
        Complain("damaged" + Place());
    frame->pts = frame->best_effort_timestamp;
    if (frame->pts == AV_NOPTS_VALUE || (decoded && frame->pts <= last))
        frame->pts = decoded ? last + std::max<std::int64_t>(lastDuration, 1) : 0;
    last = frame->pts;
    lastDuration = Duration(*frame);
    if (lastDuration <= 0 && kind == AVMEDIA_TYPE_VIDEO) {
        const AVRational rate = av_guess_frame_rate(demuxer.get(), stream, nullptr);
        lastDuration = IsKnown(rate) ? av_rescale_q(1, av_inv_q(rate), stream->time_base) : 1;
    } else if (kind == AVMEDIA_TYPE_AUDIO) {
        lastDuration = av_rescale_q(frame->nb_samples, {1, frame->sample_rate}, stream->time_base);
    }
    if (kind == AVMEDIA_TYPE_VIDEO)
        frame->sample_aspect_ratio =
            av_guess_sample_aspect_ratio(demuxer.get(), stream, frame.get());
    ++decoded;
    return frame;
}

/// Gives the decoder the next packet of the stream, or tells it that there are no more.
void Reader::Feed() {
    const Packet packet(av_packet_alloc());
    const bool isThere = packets.Next(*packet);
    const int sent = avcodec_send_packet(codec.get(), isThere ? packet.get() : nullptr);
    if (sent < 0 && sent != AVERROR_EOF)
        Complain("damaged" + Place());
}

void Reader::Seek(std::int64_t pts) {
    if (!IsSeekable(name) || ReadsPictures(*demuxer))
        return;
    // A file's index knows decoding times, which may lead to a key frame that shows too late.
    for (const int seconds : {0, 3, 15}) {
        const std::int64_t target = pts - av_rescale_q(seconds, {1, 1}, stream->time_base);
        if (stream->start_time != AV_NOPTS_VALUE && target <= stream->start_time)
            break;
        if (av_seek_frame(demuxer.get(), stream->index, target, AVSEEK_FLAG_BACKWARD) < 0)
            break;
        avcodec_flush_buffers(codec.get());
        decoded = 0;
        pending = Decode();
        if (pending && pending->pts <= pts)
            return;
    }
    pending.reset();
    decoded = 0;
    Open();
}

} // namespace host
