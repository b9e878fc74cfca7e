/// \file SoundPackets.h
/// The clips' own packets of sound where one clip is heard alone, and encoded ones between them.
#pragma once

#include "CopyPlan.h"
#include "Encoder.h"
#include "Reader.h"
#include "Sound.h"

namespace host {

/// A run of packets of the result: a clip's from one on, or encoded ones.
struct SoundRun {
    std::int64_t begin, end; ///< in packets of the result
    int clip = -1;
    std::int64_t packet = 0; ///< the clip's first
};

/// Where clips' packets come to lie on one grid of 1024 samples.
struct SoundPlan {
    std::int64_t first =
        0; ///< time of packet 0 in samples; negative, for decoders to come into step
    std::vector<SoundRun> runs;
    std::vector<std::int64_t>
        shifts; ///< by how many samples each clip is heard late, half a packet
    Bytes setup;
};

/// Why the sound cannot be copied, to follow "the sound is encoded: "; else empty, and the plan.
std::string PlanSoundCopy(const std::vector<Clip> &clips, const Timeline &timeline,
                          AVRational frameRate, const SoundFormat &format,
                          const SoundOptions &options, SoundPlan &plan);

class SoundPackets {
public:
    /// All outlive this.
    SoundPackets(const std::vector<Clip> &clips, const Timeline &timeline, AVRational frameRate,
                 SoundTrack &track, const SoundPlan &plan, const OutputOptions &output,
                 const AVCodec &codec, const SoundFormat &format);

    /// What the result's stream says, and the unit of the packets' times.
    void Describe(AVCodecParameters &parameters) const;
    AVRational TimeBase() const { return {1, format.rate}; }
    /// The next packet, or null after the last.
    Packet Next();

private:
    void Encode(const SoundRun &run);
    Frame Mixed(std::int64_t sample);
    Packet Read(int wanted, std::int64_t number);

    const std::vector<Clip> &clips;
    const Timeline &timeline;
    AVRational frameRate;
    SoundTrack &track;
    const SoundPlan &plan;
    OutputOptions output;
    const AVCodec &codec;
    SoundFormat format;
    std::size_t run = 0;
    std::int64_t at = 0; ///< the next packet of the result
    std::deque<Packet> encoded;
    int clip = -1; ///< that is open
    Demuxer demuxer;
    AVStream *stream = nullptr;
    Packets packets;
    Packet packet{av_packet_alloc()};
};

} // namespace host
