/// `transitions join`: parts of a render, copied together.

#include "Messages.h"
#include "Muxer.h"
#include "Plan.h"
#include "Program.h"
#include "Reader.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

namespace host {

namespace {

/// A part and what its packets tell.
struct PartFile {
    std::string name;
    Demuxer demuxer;
    AVStream *video = nullptr;
    std::int64_t start = INT64_MAX;   ///< pts of the first picture
    std::vector<std::int64_t> frames; ///< in the order of decoding, from 0
};

AVRational RateOf(const PartFile &part) {
    return av_guess_frame_rate(part.demuxer.get(), part.video, nullptr);
}

void Open(PartFile &part) {
    part.demuxer = OpenDemuxer(part.name);
    const int index = MainStream(*part.demuxer, AVMEDIA_TYPE_VIDEO);
    if (index < 0)
        throw Failure(part.name + ": no video in it");
    part.video = part.demuxer->streams[index];
}

PartFile Scan(const std::string &name, AVRational rate) {
    PartFile part;
    part.name = name;
    Open(part);
    if (!IsKnown(rate))
        rate = RateOf(part);
    Packets packets(*part.demuxer, part.video->index, name);
    const Packet packet(av_packet_alloc());
    std::vector<std::int64_t> times;
    while (packets.Next(*packet))
        times.push_back(packet->pts);
    if (times.empty())
        throw Failure(name + ": no pictures in it");
    part.start = *std::min_element(times.begin(), times.end());
    for (const std::int64_t time : times)
        part.frames.push_back(
            std::llround(double(time - part.start) * av_q2d(part.video->time_base) * av_q2d(rate)));
    std::vector<std::int64_t> sorted = part.frames;
    std::sort(sorted.begin(), sorted.end());
    for (std::size_t i = 0; i < sorted.size(); ++i)
        if (sorted[i] != std::int64_t(i))
            throw Failure(name + ": its frame " + std::to_string(i) +
                          " is missing; it is no part of a render, or damaged");
    return part;
}

/// Parts know their place where files can hold it.
void RequirePlace(const PartFile &part, std::size_t place, std::size_t parts) {
    const AVDictionaryEntry *tag =
        av_dict_get(part.demuxer->metadata, "comment", nullptr, AV_DICT_MATCH_CASE);
    int is = 0, of = 0;
    if (!tag || std::sscanf(tag->value, kPartTag, &is, &of) != 2)
        return;
    if (std::size_t(of) != parts)
        throw Failure(part.name + ": is one of " + Counted(of, "part") + ", not of " +
                      std::to_string(parts));
    if (std::size_t(is) != place)
        throw Failure(part.name + ": is part " + std::to_string(is) + "; give it in that place");
}

void RequireAlike(const PartFile &a, const PartFile &b) {
    const AVCodecParameters &x = *a.video->codecpar, &y = *b.video->codecpar;
    const bool hasHeader = std::strcmp(a.demuxer->iformat->name, "mpegts") != 0;
    if (x.codec_id != y.codec_id || x.width != y.width || x.height != y.height ||
        (hasHeader && (x.extradata_size != y.extradata_size ||
                       std::memcmp(x.extradata, y.extradata, std::size_t(x.extradata_size)) != 0)))
        throw Failure(b.name + ": is no part of the same render as " + a.name);
}

/// The sound that came with the first part, from its start to its end.
class PartSound {
public:
    PartSound(const PartFile &part, Muxer &file) : muxer(file), demuxer(OpenDemuxer(part.name)) {
        const int index = MainStream(*demuxer, AVMEDIA_TYPE_AUDIO);
        if (index < 0)
            return;
        in = demuxer->streams[index];
        start = av_rescale_q(part.start, part.video->time_base, in->time_base);
        packets = Packets(*demuxer, index, part.name);
        out = &muxer.AddStream();
        out->time_base = in->time_base;
        Check(avcodec_parameters_copy(out->codecpar, in->codecpar), part.name);
        out->codecpar->codec_tag = 0;
    }
    /// How many packets there can be.
    std::int64_t Most() const {
        constexpr std::int64_t kShortest = 128; // samples
        return in ? std::int64_t(double(demuxer->duration) / AV_TIME_BASE *
                                 in->codecpar->sample_rate / kShortest)
                  : 0;
    }
    void WriteUntil(double seconds) {
        while (in && at < seconds) {
            if (!packets.Next(*packet)) {
                in = nullptr;
                return;
            }
            packet->pts -= start;
            packet->dts = packet->pts;
            at = double(packet->pts) * av_q2d(in->time_base);
            muxer.Write(*packet, in->time_base, *out);
        }
    }

private:
    Muxer &muxer;
    Demuxer demuxer;
    AVStream *in = nullptr, *out = nullptr;
    Packets packets;
    Packet packet{av_packet_alloc()};
    std::int64_t start = 0;
    double at = -INFINITY;
};

/// Frames by which decoding runs ahead.
std::int64_t DelayOf(const std::vector<PartFile> &parts) {
    std::int64_t delay = 0;
    for (const PartFile &part : parts)
        for (std::size_t i = 0; i < part.frames.size(); ++i)
            delay = std::max(delay, std::int64_t(i) - part.frames[i]);
    return delay;
}

std::vector<PartFile> OpenParts(const std::vector<std::string> &names, const std::string &target) {
    std::vector<PartFile> parts;
    for (const std::string &name : names) {
        if (LowerExtension(name) != LowerExtension(target))
            throw Failure(target + ": parts of the kind " + LowerExtension(name) +
                          " make a file of that kind");
        parts.push_back(Scan(name, parts.empty() ? AVRational{0, 1} : RateOf(parts.front())));
        RequireAlike(parts.front(), parts.back());
        RequirePlace(parts.back(), parts.size(), names.size());
    }
    return parts;
}

void Join(const std::vector<std::string> &names, const std::string &target) {
    SilenceLibraries();
    HandleSignals();
    for (const std::string &name : names)
        if (std::error_code missing; std::filesystem::equivalent(name, target, missing))
            throw Failure(target + ": is one of the parts");
    std::vector<PartFile> parts = OpenParts(names, target);
    const PartFile &first = parts.front();
    const AVRational rate = RateOf(first);
    OutputOptions options;
    options.file = target;
    const auto tag = [&](const char *key) {
        const AVDictionaryEntry *entry = av_dict_get(first.demuxer->metadata, key, nullptr, 0);
        return std::string(entry ? entry->value : "");
    };
    Muxer muxer(target, PlanOutput(options, false).container, {tag("title"), tag("date"), ""});
    AVStream &stream = muxer.AddStream();
    Check(avcodec_parameters_copy(stream.codecpar, first.video->codecpar), target);
    if (stream.codecpar->codec_id != AV_CODEC_ID_HEVC ||
        std::strcmp(first.demuxer->iformat->name, "mpegts") == 0)
        stream.codecpar->codec_tag = 0;
    stream.time_base = av_inv_q(rate);
    stream.avg_frame_rate = rate;
    stream.sample_aspect_ratio = first.video->sample_aspect_ratio;
    PartSound sound(first, muxer);
    std::int64_t frames = 0;
    for (const PartFile &part : parts)
        frames += std::int64_t(part.frames.size());
    muxer.Start(IndexRoom(frames, sound.Most()));
    const std::int64_t delay = DelayOf(parts);
    std::int64_t decoded = 0, before = 0;
    const Packet packet(av_packet_alloc());
    for (PartFile &part : parts) {
        const std::vector<std::int64_t> numbers = std::move(part.frames);
        Open(part); // again, from the start
        Packets packets(*part.demuxer, part.video->index, part.name);
        for (const std::int64_t number : numbers) {
            if (!packets.Next(*packet))
                throw Failure(part.name + ": is not read twice alike");
            packet->pts = before + number;
            packet->dts = decoded++ - delay;
            packet->duration = 1;
            muxer.Write(*packet, av_inv_q(rate), stream);
            sound.WriteUntil(double(decoded) / av_q2d(rate));
        }
        before += std::int64_t(numbers.size());
        part.demuxer.reset();
    }
    sound.WriteUntil(INFINITY);
    muxer.Finish();
    Tell(Counted(frames, "frame") + " of " + Counted(std::int64_t(parts.size()), "part") + ".");
}

} // namespace

void AddJoin(CLI::App &app, Program &) {
    struct Words {
        std::vector<std::string> parts;
        std::string target;
        bool quiet = false;
    };
    const auto words = std::make_shared<Words>();
    CLI::App *command =
        app.add_subcommand("join", "Put parts that render --part made together by copying");
    command->add_option("PART", words->parts, "All parts in their order")->required();
    command->add_option("-o,--output", words->target, "The whole, of the kind that the parts are")
        ->type_name("FILE")
        ->required();
    command->add_flag("-q,--quiet", words->quiet, "Say nothing but errors");
    command->callback([words] {
        if (words->quiet)
            BeQuiet();
        Join(words->parts, words->target);
    });
}

} // namespace host
