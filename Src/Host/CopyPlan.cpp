#include "CopyPlan.h"

#include "Failure.h"
#include "Messages.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <set>

namespace host {

namespace {

// -------------------------------------------------------------------------------------------------
// What a clip allows
// -------------------------------------------------------------------------------------------------

std::string SizeText(int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

bool IsSameAspect(AVRational a, AVRational b) {
    const AVRational square = {1, 1};
    return av_cmp_q(IsKnown(a) ? a : square, IsKnown(b) ? b : square) == 0;
}

/// Why a clip's pictures are not the result's, as what follows "the clip"; empty when they are.
std::string Objection(const Clip &clip, const Canvas &canvas, AVCodecID codec) {
    AVColorRange range = AVCOL_RANGE_UNSPECIFIED;
    if (clip.isStill)
        return "is a still picture";
    if (clip.isPipe || !clip.index)
        return "can be read only once";
    if (clip.index->codec != codec)
        return std::string("is ") + avcodec_get_name(clip.index->codec) + ", the result " +
               avcodec_get_name(codec);
    if (clip.width != canvas.width || clip.height != canvas.height)
        return "is " + SizeText(clip.width, clip.height) + ", the result " +
               SizeText(canvas.width, canvas.height);
    if (clip.isTurned)
        return "is turned";
    if (!IsSameAspect(clip.aspect, canvas.aspect))
        return "has pixels of another shape";
    if (BitsOf(clip.pixels) != BitsOf(canvas.pixels))
        return "has " + std::to_string(BitsOf(clip.pixels)) + " bits, the result " +
               std::to_string(BitsOf(canvas.pixels)) + " (see --depth)";
    if (PlainPixels(clip.pixels, range) != canvas.pixels)
        return "has another kind of pixels";
    if (!(clip.colours == canvas.colours))
        return "has other colours";
    if (clip.isInterlaced)
        return "is interlaced";
    return clip.index->trouble;
}

/// The frames that the packets show as, counted from the clip's first; empty when they do not
/// stand at the result's rate.
std::vector<std::int64_t> FrameNumbers(const Clip &clip, AVRational rate) {
    constexpr double kLoose = 0.25; // frames; files round their times
    const double perUnit = av_q2d(clip.timeBase) * av_q2d(rate);
    std::vector<std::int64_t> frames;
    for (const PicturePacket &packet : clip.index->pictures) {
        const double at = double(packet.pts - clip.start) * perUnit;
        frames.push_back(std::llround(at));
        if (std::abs(at - double(frames.back())) > kLoose)
            return {};
    }
    std::vector<std::int64_t> sorted = frames;
    std::sort(sorted.begin(), sorted.end());
    for (std::size_t i = 1; i < sorted.size(); ++i)
        if (sorted[i] != sorted[i - 1] + 1)
            return {};
    return frames;
}

/// How much earlier packets are decoded than shown at most, in a piece's own counting.
int DepthOf(const std::vector<std::int64_t> &frames, const Piece &piece, std::int64_t first) {
    std::int64_t depth = 0, number = 0;
    for (std::size_t i = piece.packet; i < piece.packetEnd; ++i)
        if (frames[i] >= first)
            depth = std::max(depth, number++ - (frames[i] - first));
    return int(depth);
}

// -------------------------------------------------------------------------------------------------
// What is told
// -------------------------------------------------------------------------------------------------

std::string LengthText(std::int64_t frames, AVRational rate) {
    const double seconds = double(frames) / av_q2d(rate);
    char text[64];
    if (seconds < 60) {
        std::snprintf(text, sizeof text, "%.3g s", seconds);
        return text;
    }
    const auto whole = std::int64_t(seconds);
    if (seconds < 3600)
        std::snprintf(text, sizeof text, "%d min %02d s", int(whole / 60), int(whole % 60));
    else
        std::snprintf(text, sizeof text, "%d h %02d min", int(whole / 3600), int(whole / 60 % 60));
    return text;
}

std::string Enumerate(const std::vector<std::string> &names) {
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i)
        text += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
    return text;
}

std::string BaseName(const std::string &name) {
    return std::filesystem::path(name).filename().string();
}

std::string Summarise(const CopyPlan &plan, const std::vector<Clip> &clips,
                      const std::vector<std::string> &reasons, AVRational rate) {
    std::int64_t copied = 0, encoded = 0;
    std::vector<std::string> names;
    for (const Piece &piece : plan.pieces) {
        const std::int64_t frames = piece.frames.end - piece.frames.begin;
        (piece.clip < 0 ? encoded : copied) += frames;
        if (piece.clip < 0)
            continue;
        const std::string name = BaseName(clips[piece.clip].name);
        if (std::find(names.begin(), names.end(), name) == names.end())
            names.push_back(name);
    }
    std::string why;
    std::set<std::string> told;
    for (std::size_t i = 0; i < clips.size(); ++i)
        if (!reasons[i].empty() && told.insert(clips[i].name).second)
            why += (why.empty() ? "" : "; ") + BaseName(clips[i].name) + " " + reasons[i];
    if (!plan.copies)
        return "Encodes all: " + why + ".";
    return "Copies " + LengthText(copied, rate) + " of " + Enumerate(names) + ", encodes " +
           (encoded ? LengthText(encoded, rate) : "nothing") +
           (why.empty() ? "." : "; " + why + ".");
}

// -------------------------------------------------------------------------------------------------
// Pieces
// -------------------------------------------------------------------------------------------------

/// Short ends stay with what is before them.
void AddEncoded(std::vector<Piece> &pieces, Range frames) {
    while (frames.begin < frames.end) {
        const std::int64_t left = frames.end - frames.begin;
        Piece piece;
        piece.frames = {frames.begin,
                        left < kPieceFrames * 3 / 2 ? frames.end : frames.begin + kPieceFrames};
        frames.begin = piece.frames.end;
        pieces.push_back(piece);
    }
}

/// Up to the last place before the end where the clip can be cut; returns where that is.
std::int64_t AddCopied(std::vector<Piece> &pieces, int clip, const CopySource &source) {
    const auto isBefore = [](const Cut &cut, std::int64_t frame) { return cut.frame < frame; };
    const std::vector<Cut> &begins = source.cuts->begins, &ends = source.cuts->ends;
    auto begin = std::lower_bound(begins.begin(), begins.end(), source.free.begin, isBefore);
    auto end = std::lower_bound(ends.begin(), ends.end(), source.free.end + 1, isBefore);
    if (begin == begins.end() || end == ends.begin() || (--end)->frame <= begin->frame)
        return -1;
    AddEncoded(pieces,
               {pieces.empty() ? 0 : pieces.back().frames.end, begin->frame + source.shift});
    bool isSplice = true;
    while (begin->frame < end->frame) {
        auto next = begin + 1; // whole, without pictures that belong to the piece before
        const auto isClean = [&](const Cut &cut) {
            const auto place = std::lower_bound(ends.begin(), ends.end(), cut.frame, isBefore);
            return place != ends.end() && place->frame == cut.frame && place->packet == cut.packet;
        };
        while (next != begins.end() && next->frame < end->frame &&
               (next->frame < begin->frame + kPieceFrames || !isClean(*next)))
            ++next;
        const Cut &stop = next != begins.end() && next->frame < end->frame ? *next : *end;
        pieces.push_back({{begin->frame + source.shift, stop.frame + source.shift},
                          clip,
                          begin->packet,
                          stop.packet,
                          isSplice});
        isSplice = false;
        if (&stop == &*end)
            break;
        begin = next;
    }
    return pieces.back().frames.end;
}

} // namespace

Cuts FindCuts(const std::vector<std::int64_t> &frames, const std::vector<Entry> &entries) {
    Cuts cuts;
    std::vector<std::int64_t> leastAfter(frames.size() + 1, INT64_MAX);
    for (std::size_t i = frames.size(); i > 0; --i)
        leastAfter[i - 1] = std::min(leastAfter[i], frames[i - 1]);
    std::int64_t mostBefore = INT64_MIN;
    for (std::size_t i = 0; i <= frames.size(); ++i) {
        if (i > 0 && mostBefore < leastAfter[i])
            cuts.ends.push_back({mostBefore + 1, i});
        if (i == frames.size())
            break;
        const bool isClean = leastAfter[i] == frames[i];
        if (mostBefore < frames[i] &&
            (entries[i] == Entry::OpenKey || (entries[i] == Entry::Restart && isClean)))
            cuts.begins.push_back({frames[i], i});
        mostBefore = std::max(mostBefore, frames[i]);
    }
    return cuts;
}

std::vector<Piece> MakePieces(const std::vector<CopySource> &sources, std::int64_t length) {
    std::vector<Piece> pieces;
    for (std::size_t i = 0; i < sources.size(); ++i)
        if (sources[i].cuts)
            AddCopied(pieces, int(i), sources[i]);
    AddEncoded(pieces, {pieces.empty() ? 0 : pieces.back().frames.end, length});
    return pieces;
}

std::pair<std::size_t, std::size_t> PiecesOfPart(const std::vector<Piece> &pieces, int k, int n) {
    constexpr std::int64_t kEncoding = 64; // times what copying a frame takes
    if (std::size_t(n) > pieces.size())
        throw Failure("--part " + std::to_string(k) + "/" + std::to_string(n) +
                      ": the result can be divided into " +
                      Counted(std::int64_t(pieces.size()), "part") + " at most");
    std::vector<std::int64_t> done = {0};
    for (const Piece &piece : pieces)
        done.push_back(done.back() +
                       (piece.frames.end - piece.frames.begin) * (piece.clip < 0 ? kEncoding : 1));
    std::size_t first = 0, end = 0;
    for (int part = 1; part <= k; ++part) {
        first = end;
        const std::int64_t wanted = done.back() / n * part;
        end = std::size_t(std::lower_bound(done.begin(), done.end(), wanted) - done.begin());
        end = std::clamp(end, first + 1, pieces.size() - std::size_t(n - part));
    }
    return {first, k == n ? pieces.size() : end};
}

CopyPlan PlanCopy(const std::vector<Clip> &clips, const Timeline &timeline, const Canvas &canvas,
                  AVCodecID codec, CopyWish wish, std::pair<int, int> part) {
    CopyPlan plan;
    std::vector<std::vector<std::int64_t>> frames(clips.size());
    std::vector<Cuts> cuts(clips.size());
    std::vector<CopySource> sources(clips.size());
    std::vector<std::string> reasons(clips.size());
    plan.house = SetHouse(codec == AV_CODEC_ID_HEVC ? Syntax::H265 : Syntax::H264);
    plan.numbers.resize(clips.size());
    for (std::size_t i = 0; i < clips.size() && wish != CopyWish::Never; ++i) {
        reasons[i] = Objection(clips[i], canvas, codec);
        if (!reasons[i].empty())
            continue;
        frames[i] = FrameNumbers(clips[i], canvas.rate);
        const auto numbers = plan.house.Add(clips[i].index->sets);
        if (frames[i].empty())
            reasons[i] = "has frames that do not stand evenly at the result's rate";
        else if (!numbers)
            reasons[i] = "has parameter sets that cannot stand beside the others'";
        else {
            plan.numbers[i] = *numbers;
            std::vector<Entry> entries;
            for (const PicturePacket &packet : clips[i].index->pictures)
                entries.push_back(packet.entry);
            cuts[i] = FindCuts(frames[i], entries);
            const Part &own = timeline.Parts()[i];
            const std::int64_t before = i ? timeline.Parts()[i - 1].overlap : 0;
            sources[i] = {&cuts[i],
                          {clips[i].in + before, clips[i].in + *own.frames - own.overlap},
                          own.start - clips[i].in};
        }
    }
    plan.pieces = MakePieces(sources, *timeline.Length());
    std::vector<bool> isCopied(clips.size());
    for (const Piece &piece : plan.pieces)
        if (piece.clip >= 0) {
            isCopied[piece.clip] = plan.copies = true;
            plan.depth =
                std::max(plan.depth, DepthOf(frames[piece.clip], piece,
                                             piece.frames.begin - sources[piece.clip].shift));
            if (!plan.like)
                plan.like = clips[piece.clip].index.get();
        }
    for (std::size_t i = 0; i < clips.size(); ++i)
        if (reasons[i].empty() && !isCopied[i])
            reasons[i] = "has no key frame to copy from between its transitions";
    if (wish != CopyWish::Never)
        plan.summary = Summarise(plan, clips, reasons, canvas.rate);
    if (wish == CopyWish::Always && !plan.copies)
        throw Failure("--copy always: nothing can be copied: " +
                      plan.summary.substr(plan.summary.find(": ") + 2));
    plan.part = PiecesOfPart(plan.pieces, part.first, part.second);
    return plan;
}

} // namespace host
