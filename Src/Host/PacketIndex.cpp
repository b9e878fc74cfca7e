#include "PacketIndex.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace host {

namespace {

/// The two bytes that set up a decoder of AAC, from the header in front of a packet.
std::optional<Bytes> SetupOf(const AVPacket &packet) {
    const std::uint8_t *data = packet.data;
    if (packet.size < 7 || data[0] != 0xff || (data[1] & 0xf6) != 0xf0 || (data[6] & 3) != 0)
        return {};
    const int type = (data[2] >> 6) + 1, rate = data[2] >> 2 & 15;
    const int channels = (data[2] & 1) << 2 | data[3] >> 6;
    const int setup = type << 11 | rate << 7 | channels << 3;
    return Bytes{std::uint8_t(setup >> 8), std::uint8_t(setup)};
}

constexpr unsigned kForbidden = 0x80; // a bit of no unit's first byte

} // namespace

std::string TroubleIn(const AVPacket &packet, const PacketIndex &index) {
    const auto units = SplitUnits({packet.data, std::size_t(packet.size)}, index.lengthSize);
    if (!units || units->empty())
        return "is damaged";
    for (const Unit unit : *units) {
        const auto isThis = [&](const Bytes &set) {
            return std::equal(set.begin(), set.end(), unit.begin(), unit.end());
        };
        if (unit[0] & kForbidden)
            return "is damaged";
        if (IsSet(KindOf(unit, index.syntax)) &&
            std::none_of(index.sets.begin(), index.sets.end(), isThis))
            return "changes its parameter sets";
    }
    return "";
}

PacketIndexer::PacketIndexer(const AVStream &pictures, const AVStream *sounds)
    : video(pictures), sound(sounds) {
    const AVCodecParameters &parameters = *video.codecpar;
    index.codec = parameters.codec_id;
    index.profile = parameters.profile;
    index.level = parameters.level;
    if (index.codec == AV_CODEC_ID_HEVC)
        index.syntax = Syntax::H265;
    else if (index.codec != AV_CODEC_ID_H264)
        index.trouble = std::string("is ") + avcodec_get_name(index.codec);
    if (index.trouble.empty() && parameters.extradata_size > 0)
        AddHeader({parameters.extradata, std::size_t(parameters.extradata_size)});
}

void PacketIndexer::AddHeader(std::span<const std::uint8_t> extradata) {
    const Header header = ReadHeader(extradata, index.syntax);
    if (!index.sets.empty() && header.lengthSize != index.lengthSize)
        index.trouble = "changes its parameter sets";
    index.lengthSize = header.lengthSize;
    for (const Bytes &set : header.sets)
        AddSet(set);
}

void PacketIndexer::AddSet(Unit unit) {
    const UnitKind kind = KindOf(unit, index.syntax);
    const std::size_t least = kind != UnitKind::SequenceSet  ? 3
                              : index.syntax == Syntax::H264 ? 8
                                                             : 24;
    if (unit.size() < least) {
        index.trouble = "is damaged";
        return;
    }
    const SetFacts facts = ReadSet(unit, index.syntax);
    for (const Bytes &set : index.sets)
        if (KindOf(set, index.syntax) == kind && ReadSet(set, index.syntax).id == facts.id) {
            if (!std::equal(set.begin(), set.end(), unit.begin(), unit.end()))
                index.trouble = "changes its parameter sets";
            return;
        }
    index.sets.emplace_back(unit.begin(), unit.end());
    if (kind == UnitKind::SequenceSet)
        index.sequence = facts;
    else if (kind == UnitKind::PictureSet)
        index.picture = facts;
    if (facts.hasFields)
        index.trouble = "may be coded in fields";
}

void PacketIndexer::Add(const AVPacket &packet, bool isLeftOut) {
    if (packet.stream_index == video.index)
        AddPicture(packet, isLeftOut);
    else if (sound && packet.stream_index == sound->index)
        AddSound(packet);
}

void PacketIndexer::AddPicture(const AVPacket &packet, bool isLeftOut) {
    if (!index.trouble.empty())
        return;
    index.pictures.push_back({packet.pts, packet.dts, Entry::None});
    if (packet.pts == AV_NOPTS_VALUE)
        index.trouble = "has pictures without a time";
    else if (packet.flags & AV_PKT_FLAG_CORRUPT)
        index.trouble = "is damaged";
    std::size_t headerSize = 0; // of what follows, in files with several
    if (const std::uint8_t *header =
            av_packet_get_side_data(&packet, AV_PKT_DATA_NEW_EXTRADATA, &headerSize))
        AddHeader({header, headerSize});
    if (!isLeftOut)
        AddUnits(packet);
}

void PacketIndexer::AddUnits(const AVPacket &packet) {
    // Sets stand in front. Looking on for start codes would be reading all of a file twice.
    constexpr int kFront = 1024;
    const bool isKey = packet.flags & AV_PKT_FLAG_KEY;
    const int looked = isKey || index.lengthSize ? packet.size : std::min(packet.size, kFront);
    const auto units = SplitUnits({packet.data, std::size_t(looked)}, index.lengthSize);
    if (!units || units->empty()) {
        index.trouble = "is damaged";
        return;
    }
    for (const Unit unit : *units) {
        const UnitKind kind = KindOf(unit, index.syntax);
        if (unit[0] & kForbidden)
            index.trouble = "is damaged";
        else if (IsSet(kind))
            AddSet(unit);
        else if (isKey && kind == UnitKind::Restart)
            index.pictures.back().entry = Entry::Restart;
        else if (isKey && kind == UnitKind::OpenKey)
            index.pictures.back().entry = Entry::OpenKey;
    }
}

void PacketIndexer::AddSound(const AVPacket &packet) {
    const AVCodecParameters &parameters = *sound->codecpar;
    if (!isEven || parameters.codec_id != AV_CODEC_ID_AAC || packet.pts == AV_NOPTS_VALUE ||
        parameters.profile != FF_PROFILE_AAC_LOW || parameters.sample_rate <= 0) {
        isEven = false;
        return;
    }
    SoundGrid &grid = index.sound;
    if (grid.packets == 0) {
        grid.first = av_rescale_q(packet.pts, sound->time_base, {1, parameters.sample_rate});
        grid.hasHeaders = parameters.extradata_size < 2;
        if (!grid.hasHeaders)
            grid.setup.assign(parameters.extradata, parameters.extradata + 2);
        else if (const auto setup = SetupOf(packet))
            grid.setup = *setup;
        else
            isEven = false;
    }
    // Files round their times, the worst of them to milliseconds.
    const double late = double(packet.pts) * av_q2d(sound->time_base) -
                        double(grid.first + kPacketSamples * grid.packets) / parameters.sample_rate;
    constexpr double kRounding = 0.003;
    isEven = isEven && std::abs(late) < kRounding && !(packet.flags & AV_PKT_FLAG_CORRUPT);
    ++grid.packets;
}

PacketIndex PacketIndexer::Finish() {
    if (!isEven)
        index.sound.packets = 0;
    if (index.trouble.empty() && index.sets.empty())
        index.trouble = "has no parameter sets";
    return std::move(index);
}

} // namespace host
