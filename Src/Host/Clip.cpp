#include "Clip.h"

#include "Failure.h"
#include "HollowFile.h"
#include "Messages.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <vector>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace host {

namespace {

/// What a file's packets tell without being decoded.
struct Scan {
    std::int64_t start = INT64_MAX;
    std::int64_t end = INT64_MIN;
    std::int64_t pictures = 0;
    std::int64_t interval = 0; ///< the usual time from picture to picture
};

Scan ScanPackets(const std::string &name, bool leavesOut,
                 std::shared_ptr<const PacketIndex> *index) {
    std::optional<HollowFile> file;
    if (leavesOut)
        file.emplace(name);
    const Demuxer demuxer = OpenDemuxer(name, 0, file ? &file->Bytes() : nullptr);
    const int video = MainStream(*demuxer, AVMEDIA_TYPE_VIDEO);
    Scan scan;
    if (video < 0)
        return scan;
    const int sound = index ? MainStream(*demuxer, AVMEDIA_TYPE_AUDIO) : -1;
    Packets packets(*demuxer, video, name, sound);
    if (file)
        file->LeaveOut(*demuxer->streams[video], index);
    if (file && sound >= 0)
        file->LeaveOut(*demuxer->streams[sound], false);
    std::optional<PacketIndexer> indexer;
    if (index)
        indexer.emplace(*demuxer->streams[video], sound < 0 ? nullptr : demuxer->streams[sound]);
    std::vector<std::int64_t> times, decodingTimes;
    std::int64_t total = 0; // of the durations, which count where not every packet has its time
    std::int64_t lastDuration = 0;
    const Packet packet(av_packet_alloc());
    while (packets.Next(*packet)) {
        if (indexer)
            indexer->Add(*packet, file && file->IsLeftOut(*packet));
        if (packet->stream_index != video || packet->flags & AV_PKT_FLAG_DISCARD)
            continue;
        ++scan.pictures;
        total += packet->duration;
        if (packet->dts != AV_NOPTS_VALUE)
            decodingTimes.push_back(packet->dts);
        if (packet->pts == AV_NOPTS_VALUE)
            continue;
        times.push_back(packet->pts);
        if (packet->pts + packet->duration >= scan.end) {
            scan.end = packet->pts + packet->duration;
            lastDuration = packet->duration;
        }
    }
    if (indexer)
        *index = std::make_shared<const PacketIndex>(indexer->Finish());
    if (times.empty()) { // as in AVI
        times = std::move(decodingTimes);
        scan.end = times.empty() ? scan.end : times.back();
    }
    if (times.empty())
        return scan;
    std::sort(times.begin(), times.end());
    scan.start = times.front();
    for (std::size_t i = times.size() - 1; i > 0; --i)
        times[i] -= times[i - 1];
    if (times.size() > 1) {
        const auto middle = times.begin() + std::ptrdiff_t(times.size() / 2);
        std::nth_element(times.begin() + 1, middle, times.end());
        scan.interval = *middle;
    }
    if (lastDuration <= 0) // as Matroska leaves it open
        scan.end += scan.interval;
    if (std::int64_t(times.size()) < scan.pictures)
        scan.end = std::max(scan.end, scan.start + total);
    return scan;
}

/// The usual rate that is nearest, or else a whole number.
AVRational UsualRate(double rate) {
    constexpr AVRational kRates[] = {{10, 1}, {12, 1}, {25, 2}, {15, 1}, {20, 1}, {24000, 1001},
                                     {24, 1}, {25, 1}, {30, 1}, {50, 1}, {60, 1}, {120, 1}};
    constexpr double kNear = 0.04;
    const AVRational *best = std::min_element(
        std::begin(kRates), std::end(kRates), [&](const AVRational &a, const AVRational &b) {
            return std::abs(av_q2d(a) - rate) < std::abs(av_q2d(b) - rate);
        });
    if (std::abs(av_q2d(*best) / rate - 1) < kNear)
        return *best;
    return {std::max(1, int(std::lround(rate))), 1};
}

/// What the file says, or where that is its unit of time rather than a rate, what its times say.
AVRational RateOf(const std::string &name, AVFormatContext &demuxer, AVStream &stream,
                  const Scan &scan) {
    constexpr double kMuchFaster = 1.5, kFastest = 240;
    const AVRational said = av_guess_frame_rate(&demuxer, &stream, nullptr);
    double measured = IsKnown(stream.avg_frame_rate) ? av_q2d(stream.avg_frame_rate) : 0;
    if (scan.interval > 0)
        measured = 1 / (double(scan.interval) * av_q2d(stream.time_base));
    if (IsKnown(said) && av_q2d(said) <= kFastest &&
        (measured == 0 || av_q2d(said) < kMuchFaster * measured))
        return said;
    const AVRational rate =
        measured > 0 ? UsualRate(std::min(measured, kFastest)) : AVRational{25, 1};
    if (measured > 0) {
        char text[64];
        std::snprintf(text, sizeof text, "%.4g", av_q2d(rate));
        Tell(name + ": tells no frame rate; by its timestamps it has about " + text +
             " frames a second");
    }
    return rate;
}

/// Whether a file is a still picture rather than a clip. What follows the only picture of a picture
/// file is no second one, whatever it is.
bool HoldsStill(const std::string &name, const AVFormatContext &demuxer, std::int64_t pictures) {
    const std::string kind = demuxer.iformat->name;
    const AVDictionaryEntry *brand = av_dict_get(demuxer.metadata, "major_brand", nullptr, 0);
    if (kind == "image2" || kind.ends_with("_pipe"))
        return pictures == 1 || std::filesystem::is_regular_file(name);
    return pictures == 1 && (kind == "gif" || (brand && std::strcmp(brand->value, "avif") == 0) ||
                             (brand && std::strcmp(brand->value, "mif1") == 0));
}

std::string Tag(const AVFormatContext &demuxer, const char *key) {
    const AVDictionaryEntry *entry = av_dict_get(demuxer.metadata, key, nullptr, 0);
    return entry ? entry->value : "";
}

/// "2 subtitle tracks, 1 sound track", all that is not taken over.
std::string LeftOut(AVFormatContext &demuxer, int video, int sound) {
    int subtitles = 0, sounds = 0, videos = 0, others = 0;
    for (int i = 0; i < int(demuxer.nb_streams); ++i) {
        const AVMediaType kind = demuxer.streams[i]->codecpar->codec_type;
        if (i == video || i == sound)
            continue;
        ++(kind == AVMEDIA_TYPE_SUBTITLE ? subtitles
           : kind == AVMEDIA_TYPE_AUDIO  ? sounds
           : kind == AVMEDIA_TYPE_VIDEO  ? videos
                                         : others);
    }
    std::string text;
    const auto add = [&](int count, const char *what) {
        if (count)
            text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + what +
                    (count > 1 ? "s" : "");
    };
    add(sounds, "further sound track");
    add(videos, "further picture track");
    add(subtitles, "subtitle track");
    add(others, "data track");
    add(int(demuxer.nb_chapters), "chapter");
    return text;
}

void Describe(Clip &clip, AVFormatContext &demuxer, const AVStream &stream, const AVFrame &first) {
    const Orientation orientation = OrientationOf(first, stream);
    clip.pixels = AVPixelFormat(first.format);
    clip.width = orientation.isTransposed ? first.height : first.width;
    clip.height = orientation.isTransposed ? first.width : first.height;
    clip.aspect =
        orientation.isTransposed ? av_inv_q(first.sample_aspect_ratio) : first.sample_aspect_ratio;
    clip.isTurned = orientation.isTransposed || orientation.isMirrored || orientation.isFlipped;
    clip.colours = ColoursOf(first);
    const AVFieldOrder order = stream.codecpar->field_order;
    clip.isInterlaced =
        first.interlaced_frame || (order != AV_FIELD_UNKNOWN && order != AV_FIELD_PROGRESSIVE);
    const bool isBottomFirst = first.interlaced_frame
                                   ? !first.top_field_first
                                   : order == AV_FIELD_BB || order == AV_FIELD_BT;
    if (clip.isInterlaced)
        clip.fields = isBottomFirst ? AV_FIELD_BB : AV_FIELD_TT;
    clip.title = Tag(demuxer, "title");
    clip.date = Tag(demuxer, "date").empty() ? Tag(demuxer, "creation_time") : Tag(demuxer, "date");
    const int sound = MainStream(demuxer, AVMEDIA_TYPE_AUDIO);
    if (sound >= 0) {
        const AVCodecParameters &parameters = *demuxer.streams[sound]->codecpar;
        clip.sound = {parameters.sample_rate, parameters.ch_layout.nb_channels};
    }
    clip.leftOut = LeftOut(demuxer, stream.index, sound);
}

bool IsAlike(const AVFrame &a, const AVFrame &b) {
    return a.width == b.width && a.height == b.height && a.format == b.format &&
           ColoursOf(a) == ColoursOf(b) &&
           av_cmp_q(a.sample_aspect_ratio, b.sample_aspect_ratio) == 0;
}

} // namespace

Clip ProbeClip(const std::string &name, Indexing indexing) {
    Clip clip;
    clip.name = ShownName(name);
    clip.isPipe = !IsSeekable(name);
    const auto reader = std::make_shared<Reader>(name, AVMEDIA_TYPE_VIDEO);
    Frame first = reader->Read();
    if (!first)
        throw Failure(clip.name + ": no frames in it");
    const AVStream &stream = reader->Stream();
    Describe(clip, reader->File(), stream, *first);
    clip.timeBase = stream.time_base;
    clip.start = first->pts;
    Scan scan;
    if (!clip.isPipe)
        scan = ScanPackets(name, indexing != Indexing::Thorough && HasIndex(name, reader->File()),
                           indexing == Indexing::None ? nullptr : &clip.index);
    clip.rate = RateOf(clip.name, reader->File(), const_cast<AVStream &>(stream), scan);
    clip.isStill = !clip.isPipe && HoldsStill(name, reader->File(), scan.pictures);
    if (clip.isPipe) {
        clip.opened = reader;
        clip.first.reset(first.release(), Release<av_frame_free>());
    } else if (!clip.isStill && scan.end > scan.start) {
        clip.start = std::min(clip.start, scan.start);
        clip.length = scan.end - clip.start;
    } else if (!clip.isStill) { // a stream without times
        clip.length = av_rescale_q(scan.pictures, av_inv_q(clip.rate), clip.timeBase);
    }
    return clip;
}

std::optional<std::int64_t> FramesOf(const Clip &clip, AVRational rate) {
    if (!clip.length)
        return {};
    const std::int64_t frames = av_rescale_q(*clip.length, clip.timeBase, av_inv_q(rate));
    return std::max<std::int64_t>(frames, 1); // however short, a clip has a frame
}

// -------------------------------------------------------------------------------------------------

/// Times go into the filters in quarters of a picture: files round them, to milliseconds for
/// instance, and a quarter of a picture early is still in time.
std::int64_t Footage::Quarters(std::int64_t pts) const {
    return av_rescale_q(pts - clip.start, clip.timeBase, {canvas.rate.den, 4 * canvas.rate.num});
}

Footage::Footage(const Clip &from, const Canvas &onto, std::int64_t first)
    : clip(from), canvas(onto), reader(clip.opened), position(clip.in + first) {
    if (!reader)
        reader = std::make_shared<Reader>(clip.name, AVMEDIA_TYPE_VIDEO);
    if (clip.isStill)
        position = 0;
    else
        Start(position);
}

/// Pictures that are over before the first wanted one begins are decoded and no more; deinterlacing
/// looks at one before.
void Footage::Start(std::int64_t first) {
    const std::size_t needed = clip.isInterlaced ? 3 : 1;
    const std::int64_t target = 4 * (first + 1 - std::int64_t(needed)) - 2;
    if (!clip.opened && first > 0)
        reader->Seek(clip.start +
                     av_rescale_q(target, {canvas.rate.den, 4 * canvas.rate.num}, clip.timeBase));
    if (clip.first)
        waiting.emplace_back(av_frame_clone(clip.first.get()));
    while (Frame picture = reader->Read()) {
        const bool isLate = Quarters(picture->pts) + 2 > 4 * first;
        waiting.push_back(std::move(picture));
        if (isLate)
            break;
        if (waiting.size() > needed)
            waiting.pop_front();
    }
}

std::string Footage::Filters(const AVFrame &picture) const {
    const std::string rate =
        std::to_string(canvas.rate.num) + "/" + std::to_string(canvas.rate.den);
    char steady[128];
    std::snprintf(steady, sizeof steady, "fps=%s:start_time=%.9f", rate.c_str(),
                  double(position) * canvas.rate.den / canvas.rate.num);
    const Orientation orientation = OrientationOf(picture, reader->Stream());
    const std::string fitted = PictureFilters(picture, orientation, canvas);
    std::string filters = clip.isInterlaced && !canvas.keepsInterlacing
                              ? "bwdif=mode=send_frame:deint=interlaced,"
                              : "";
    // Pictures that are left out need not be fitted, and those that are repeated only once; but
    // where two chains come together, how long the last picture shows is lost behind them.
    const bool isSteadyFirst = av_cmp_q(clip.rate, canvas.rate) > 0 || canvas.fit == Fit::Blur;
    if (fitted.empty())
        return filters + steady;
    return filters + (isSteadyFirst ? steady + ("," + fitted) : fitted + "," + steady);
}

void Footage::OpenGraph(const AVFrame &picture) {
    if (graph) {
        graph.End(Quarters(picture.pts));
        while (Frame frame = graph.Pull()) {
            Label(*frame, canvas.colours);
            ready.push_back(std::move(frame));
        }
        position += std::int64_t(ready.size());
    }
    Frame plain = Share(picture);
    MakePlain(*plain);
    graph = Graph(*plain, {canvas.rate.den, 4 * canvas.rate.num}, Filters(*plain), clip.name);
    like = Share(picture);
}

void Footage::Take(Frame picture) {
    const std::int64_t duration = std::max<std::int64_t>(Duration(*picture), 0);
    end = Quarters(picture->pts + duration);
    if (duration == 0)
        end +=
            std::max<std::int64_t>(1, av_rescale_q(4, av_inv_q(clip.rate), av_inv_q(canvas.rate)));
    if (clip.length)
        end = std::max(end, 4 * *FramesOf(clip, canvas.rate));
    if (!like || !IsAlike(*like, *picture))
        OpenGraph(*picture);
    MakePlain(*picture);
    picture->pts = Quarters(picture->pts);
    graph.Push(*picture);
}

void Footage::Feed() {
    Frame picture;
    if (clip.isStill && like) {
        // One picture is all, whatever bytes follow it.
    } else if (!waiting.empty()) {
        picture = std::move(waiting.front());
        waiting.pop_front();
    } else {
        picture = reader->Read();
    }
    if (picture)
        return Take(std::move(picture));
    hasEnded = true;
    if (graph)
        graph.End(end);
}

Frame Footage::Read() {
    if (still)
        return Share(*still);
    for (;;) {
        Frame frame;
        if (!ready.empty()) {
            frame = std::move(ready.front());
            ready.pop_front();
            return frame; // counted already
        }
        if (graph && (frame = graph.Pull())) {
            ++position;
            Label(*frame, canvas.colours);
            frame->sample_aspect_ratio = canvas.aspect;
            if (clip.isStill) {
                still = Share(*frame);
                reader.reset();
                graph = Graph();
            }
            return frame;
        }
        if (hasEnded)
            return nullptr;
        Feed();
    }
}

Frame PictureAt(const Clip &clip, const Canvas &canvas, double seconds) {
    std::int64_t first = std::int64_t(std::floor(seconds * av_q2d(canvas.rate) + 1e-6));
    if (const auto frames = FramesOf(clip, canvas.rate))
        first = std::min(first, *frames - 1);
    Frame picture = Footage(clip, canvas, first).Read();
    if (!picture)
        throw Failure(clip.name + ": there is no picture in it");
    return picture;
}

Frame Converter::Convert(const AVFrame &picture) {
    if (source && source->data[0] == picture.data[0])
        return Share(*result);
    Frame plain = Share(picture);
    MakePlain(*plain);
    if (!like || !IsAlike(*like, *plain)) {
        const std::string filters = PictureFilters(*plain, {}, canvas);
        like = Share(*plain);
        graph = filters.empty() ? Graph() : Graph(*plain, {1, 25}, filters, "converting a picture");
    }
    source = Share(picture);
    if (graph) {
        plain->pts = 0;
        graph.Push(*plain);
        result = graph.Pull();
    } else {
        result = std::move(plain);
    }
    Label(*result, canvas.colours);
    result->sample_aspect_ratio = canvas.aspect;
    return Share(*result);
}

} // namespace host
