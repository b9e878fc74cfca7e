#include "Muxer.h"

#include <new>

namespace host {

std::int64_t IndexRoom(std::int64_t pictures, std::int64_t sounds) {
    constexpr std::int64_t kPicture = 36, kSound = 24, kRest = 65536;
    return kRest + pictures * kPicture + sounds * kSound;
}

Muxer::Muxer(const std::string &fileName, const AVOutputFormat *container, const Tags &tags)
    : name(fileName == "-" ? "standard output" : fileName) {
    std::string url = "pipe:1";
    if (fileName != "-")
        url = "file:" + output.emplace(fileName).Part().string();
    AVFormatContext *context = nullptr;
    Check(avformat_alloc_output_context2(&context, container, nullptr, url.c_str()), name);
    muxer.reset(context);
    muxer->flags |= AVFMT_FLAG_BITEXACT; // the same command gives the same bytes
    muxer->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL; // YUV4MPEG2 of 10 bits
    for (const auto &[key, value] : {std::pair{"title", tags.title}, std::pair{"date", tags.date},
                                     std::pair{"comment", tags.part}})
        if (!value.empty())
            av_dict_set(&muxer->metadata, key, value.c_str(), 0);
}

AVStream &Muxer::AddStream() {
    AVStream *stream = avformat_new_stream(muxer.get(), nullptr);
    if (!stream)
        throw std::bad_alloc();
    return *stream;
}

void Muxer::Start(std::int64_t indexBytes) {
    Check(avio_open(&muxer->pb, muxer->url, AVIO_FLAG_WRITE), name);
    AVDictionary *extras = nullptr;
    if (indexBytes)
        av_dict_set_int(&extras, "moov_size", indexBytes, 0);
    else
        av_dict_set(&extras, "movflags", "+faststart", 0);
    av_dict_set(&extras, "loop", "0", 0);  // moving pictures play for ever: webp
    av_dict_set(&extras, "plays", "0", 0); // and apng
    const int answer = avformat_write_header(muxer.get(), &extras);
    av_dict_free(&extras);
    CheckWritten(answer);
}

void Muxer::Write(AVPacket &packet, AVRational timeBase, const AVStream &stream) {
    av_packet_rescale_ts(&packet, timeBase, stream.time_base);
    packet.stream_index = stream.index;
    CheckWritten(av_interleaved_write_frame(muxer.get(), &packet));
}

void Muxer::Finish() {
    CheckWritten(av_write_trailer(muxer.get()));
    avio_flush(muxer->pb);
    CheckWritten(0);
    Check(avio_closep(&muxer->pb), name);
    if (output)
        output->Keep();
}

} // namespace host
