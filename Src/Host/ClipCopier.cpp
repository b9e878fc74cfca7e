#include "ClipCopier.h"

#include "Failure.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace host {

namespace {

constexpr int kSplicedKey = 18; ///< H.265's unit of a key picture that begins anew, nothing leading

/// The message would name a sequence set by its old number.
bool IsBufferingMessage(Unit unit, Syntax syntax) {
    const std::size_t header = syntax == Syntax::H264 ? 1 : 2;
    return unit.size() > header && unit[header] == 0;
}

bool HoldsNoSets(const AVPacket &packet, int lengthSize, Syntax syntax) {
    const auto units = SplitUnits({packet.data, std::size_t(packet.size)}, lengthSize);
    return units && std::none_of(units->begin(), units->end(),
                                 [&](Unit unit) { return IsSet(KindOf(unit, syntax)); });
}

} // namespace

Packet TranslatePicture(const AVPacket &packet, int lengthSize, Syntax syntax,
                        const Numbers &numbers, const Bytes *sets, bool opensKeys) {
    const auto units = SplitUnits({packet.data, std::size_t(packet.size)}, lengthSize);
    if (!units)
        throw Failure("a packet is damaged");
    Bytes stream;
    stream.reserve(std::size_t(packet.size) + (sets ? sets->size() : 0) + 64);
    bool needsSets = sets && packet.flags & AV_PKT_FLAG_KEY;
    for (const Unit unit : *units) {
        const UnitKind kind = KindOf(unit, syntax);
        if (IsSet(kind) ||
            (kind == UnitKind::Message && !numbers.empty() && IsBufferingMessage(unit, syntax)))
            continue;
        if (needsSets && kind != UnitKind::Delimiter) {
            stream.insert(stream.end(), sets->begin(), sets->end());
            needsSets = false;
        }
        const std::size_t start = stream.size() + 4;
        const Bytes own = numbers.empty() ? Bytes() : Renumber(unit, syntax, numbers);
        (sets ? AppendUnit : AppendMeasured)(stream, numbers.empty() ? unit : Unit(own));
        if (opensKeys && kind == UnitKind::OpenKey)
            stream[start] = std::uint8_t((stream[start] & 0x81) | kSplicedKey << 1);
    }
    Packet translated(av_packet_alloc());
    if (!translated || av_new_packet(translated.get(), int(stream.size())) < 0)
        throw std::bad_alloc();
    std::memcpy(translated->data, stream.data(), stream.size());
    translated->flags = packet.flags & AV_PKT_FLAG_KEY;
    translated->pts = packet.pts;
    return translated;
}

PictureCopier::PictureCopier(const std::vector<Clip> &all, const CopyPlan &whole, bool inBand)
    : clips(all), plan(whole), setsInBand(inBand) {}

void PictureCopier::Next(const PicturePacket &wanted) {
    if (!packets.Next(*packet) || packet->pts != wanted.pts)
        throw CopyFailure(clips[clip].name + ": is not read twice alike");
    ++position;
}

/// Reads on from the key picture, wherever the file's index leads.
void PictureCopier::Open(const Piece &piece) {
    if (clip == piece.clip && position == piece.packet)
        return;
    const Clip &from = clips[piece.clip];
    const PicturePacket &wanted = from.index->pictures[piece.packet];
    for (const bool seeks : {true, false}) {
        demuxer = OpenDemuxer(from.name);
        const int stream = MainStream(*demuxer, AVMEDIA_TYPE_VIDEO);
        packets = Packets(*demuxer, stream, from.name);
        if (seeks && av_seek_frame(demuxer.get(), stream,
                                   wanted.dts == AV_NOPTS_VALUE ? wanted.pts : wanted.dts,
                                   AVSEEK_FLAG_BACKWARD) < 0)
            continue;
        while (packets.Next(*packet))
            if (packet->pts == wanted.pts) {
                clip = piece.clip;
                position = piece.packet + 1;
                return;
            } else if (seeks && packet->dts != AV_NOPTS_VALUE && wanted.dts != AV_NOPTS_VALUE &&
                       packet->dts > wanted.dts) {
                break;
            }
    }
    throw CopyFailure(from.name + ": is not read twice alike");
}

Packet PictureCopier::Translate(const Piece &piece, bool isFirst) {
    const PacketIndex &index = *clips[piece.clip].index;
    const Numbers &numbers = plan.numbers[piece.clip];
    if (const std::string trouble = index.lengthSize ? TroubleIn(*packet, index) : "";
        !trouble.empty())
        throw CopyFailure(clips[piece.clip].name + ": " + trouble);
    const bool opensKey = isFirst && piece.isSplice && index.syntax == Syntax::H265;
    if (index.lengthSize == 4 && numbers.empty() && !setsInBand && !opensKey &&
        HoldsNoSets(*packet, index.lengthSize, index.syntax)) {
        Packet same(av_packet_alloc());
        av_packet_move_ref(same.get(), packet.get());
        av_packet_free_side_data(same.get());
        same->flags &= AV_PKT_FLAG_KEY;
        return same;
    }
    Bytes sets;
    if (setsInBand && packet->flags & AV_PKT_FLAG_KEY)
        for (const Bytes &set : index.sets)
            AppendUnit(sets, Renumber(set, index.syntax, numbers));
    return TranslatePicture(*packet, index.lengthSize, index.syntax, numbers,
                            setsInBand ? &sets : nullptr, opensKey);
}

void PictureCopier::Copy(const Piece &piece, AVRational rate,
                         const std::function<bool(Packet)> &use) {
    const Clip &from = clips[piece.clip];
    const std::vector<PicturePacket> &pictures = from.index->pictures;
    const bool goesOn = clip == piece.clip && position == piece.packet;
    Open(piece);
    if (goesOn)
        Next(pictures[piece.packet]);
    const std::int64_t first = pictures[piece.packet].pts;
    for (std::size_t i = piece.packet; i < piece.packetEnd; ++i) {
        if (i > piece.packet)
            Next(pictures[i]);
        if (pictures[i].pts < first) // leads in a key picture that nothing is before any more
            continue;
        Packet copy = Translate(piece, i == piece.packet);
        copy->pts = piece.frames.begin +
                    av_rescale_q(pictures[i].pts - first, from.timeBase, av_inv_q(rate));
        if (!use(std::move(copy)))
            return;
    }
}

} // namespace host
