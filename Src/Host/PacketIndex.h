/// \file PacketIndex.h
/// What a clip's packets tell about copying them, without being decoded.
#pragma once

#include "Media.h"
#include "NalUnits.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// Whether copying may begin with a packet.
enum class Entry : std::uint8_t {
    None,
    Restart, ///< nothing from here on refers to what was before
    OpenKey, ///< the same but for the pictures that follow and show before it
};

struct PicturePacket {
    std::int64_t pts, dts;
    Entry entry;
};

struct PacketIndex;

/// Why a packet cannot be copied by an index, which may know no more than its times; empty when it
/// can: its units are whole, and its parameter sets those of the index.
std::string TroubleIn(const AVPacket &packet, const PacketIndex &index);

/// The samples of a packet of AAC.
constexpr std::int64_t kPacketSamples = 1024;

/// A track of sound whose packets hold 1024 samples each without gaps.
struct SoundGrid {
    Bytes setup;              ///< of the decoder, its two bytes
    bool hasHeaders = false;  ///< every packet begins with an ADTS header
    std::int64_t first = 0;   ///< of the first packet, in samples of the file's time
    std::int64_t packets = 0; ///< 0: there is no such grid
};

struct PacketIndex {
    AVCodecID codec = AV_CODEC_ID_NONE;
    Syntax syntax = Syntax::H264;
    int lengthSize = 0;
    int profile = 0, level = 0;          ///< as the file says
    std::vector<PicturePacket> pictures; ///< in the order of decoding
    std::vector<Bytes> sets;
    SetFacts sequence, picture; ///< of the first sets
    SoundGrid sound;
    std::string trouble; ///< why no picture can be copied; empty: nothing was found
};

/// Collects the index of a file while its packets go by.
class PacketIndexer {
public:
    /// sound is null where there is none.
    PacketIndexer(const AVStream &video, const AVStream *sound);
    /// Of a packet that was left out only the times count.
    void Add(const AVPacket &packet, bool isLeftOut = false);
    PacketIndex Finish();

private:
    void AddPicture(const AVPacket &packet, bool isLeftOut);
    void AddUnits(const AVPacket &packet);
    void AddSound(const AVPacket &packet);
    void AddHeader(std::span<const std::uint8_t> extradata);
    void AddSet(Unit unit);

    const AVStream &video;
    const AVStream *sound;
    PacketIndex index;
    bool isEven = true; ///< of the sound
};

} // namespace host
