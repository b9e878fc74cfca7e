#include "SoundPackets.h"

#include "Failure.h"
#include "Graph.h"

#include <algorithm>
#include <cmath>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
}

namespace host {

namespace {

constexpr std::int64_t kReach = 2 * kPacketSamples; // what a packet's window covers

std::int64_t FloorDivide(std::int64_t a, std::int64_t b) {
    return a / b - (a % b < 0);
}

/// Adds what is encoded between the runs, and what shares its kind with the run before to that.
void Append(std::vector<SoundRun> &runs, const SoundRun &run) {
    const std::int64_t done = runs.empty() ? 0 : runs.back().end;
    if (done < run.begin)
        runs.push_back({done, run.begin});
    if (run.begin < run.end)
        runs.push_back(run);
}

} // namespace

std::string PlanSoundCopy(const std::vector<Clip> &clips, const Timeline &timeline,
                          AVRational frameRate, const SoundFormat &format,
                          const SoundOptions &options, SoundPlan &plan) {
    if (!options.music.empty())
        return "there is music";
    for (const Clip &clip : clips) {
        if (!clip.index || clip.index->sound.packets == 0)
            return clip.name + " has none that can be copied";
        if (clip.index->sound.setup != clips.front().index->sound.setup ||
            clip.sound.rate != format.rate || clip.sound.channels != format.channels)
            return clip.name + " has another kind than " + clips.front().name;
    }
    plan.setup = clips.front().index->sound.setup;
    const auto sampleAt = [&](std::int64_t frame) {
        return av_rescale_q(frame, av_inv_q(frameRate), {1, format.rate});
    };
    const std::int64_t length = sampleAt(*timeline.Length());
    for (std::size_t i = 0; i < clips.size(); ++i) {
        const Clip &clip = clips[i];
        const Part &part = timeline.Parts()[i];
        const SoundGrid &grid = clip.index->sound;
        const std::int64_t zero = std::llround(
            (double(clip.start) * av_q2d(clip.timeBase) + double(clip.in) / av_q2d(frameRate)) *
            format.rate);
        const std::int64_t offset = sampleAt(part.start) + grid.first - zero;
        if (i == 0)
            plan.first = offset - kPacketSamples * (1 - FloorDivide(-offset, kPacketSamples));
        const std::int64_t ahead =
            FloorDivide(plan.first - offset + kPacketSamples / 2, kPacketSamples);
        plan.shifts.push_back(plan.first - offset - kPacketSamples * ahead);
        const bool isFirst = i == 0, isLast = i + 1 == clips.size();
        const std::int64_t begin =
            isFirst ? plan.first
                    : sampleAt(part.start + timeline.Parts()[i - 1].overlap) + kPacketSamples / 2;
        const std::int64_t end =
            isLast ? length + kReach
                   : sampleAt(part.start + *part.frames - part.overlap) - kPacketSamples / 2;
        SoundRun run;
        run.clip = int(i);
        run.begin =
            std::max(FloorDivide(begin - plan.first + kPacketSamples - 1, kPacketSamples), -ahead);
        run.end =
            std::min(FloorDivide(end - kReach - plan.first + kPacketSamples - 1, kPacketSamples),
                     grid.packets - ahead);
        run.packet = run.begin + ahead;
        if (run.begin < run.end)
            Append(plan.runs, run);
    }
    const std::int64_t all = FloorDivide(length - plan.first + kPacketSamples - 1, kPacketSamples);
    Append(plan.runs, {all, all});
    return {};
}

SoundPackets::SoundPackets(const std::vector<Clip> &all, const Timeline &times, AVRational rate,
                           SoundTrack &mixed, const SoundPlan &whole, const OutputOptions &options,
                           const AVCodec &encoder, const SoundFormat &sound)
    : clips(all), timeline(times), frameRate(rate), track(mixed), plan(whole), output(options),
      codec(encoder), format(sound) {}

void SoundPackets::Describe(AVCodecParameters &parameters) const {
    parameters.codec_type = AVMEDIA_TYPE_AUDIO;
    parameters.codec_id = AV_CODEC_ID_AAC;
    parameters.profile = FF_PROFILE_AAC_LOW;
    parameters.sample_rate = format.rate;
    parameters.frame_size = int(kPacketSamples);
    parameters.initial_padding = int(-plan.first);
    av_channel_layout_default(&parameters.ch_layout, format.channels);
    parameters.extradata =
        static_cast<std::uint8_t *>(av_mallocz(plan.setup.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    std::copy(plan.setup.begin(), plan.setup.end(), parameters.extradata);
    parameters.extradata_size = int(plan.setup.size());
}

Packet SoundPackets::Next() {
    while (run < plan.runs.size() && at >= plan.runs[run].end)
        ++run;
    if (run == plan.runs.size())
        return nullptr;
    const SoundRun &now = plan.runs[run];
    Packet next;
    if (now.clip >= 0) {
        next = Read(now.clip, now.packet + at - now.begin);
    } else {
        if (encoded.empty())
            Encode(now);
        if (encoded.empty())
            throw Failure("the sound's encoder " + std::string(codec.name) + " gives too little");
        next = std::move(encoded.front());
        encoded.pop_front();
    }
    next->pts = next->dts = plan.first + kPacketSamples * at++;
    next->duration = kPacketSamples;
    next->flags |= AV_PKT_FLAG_KEY;
    return next;
}

/// The sound of the frame in which a sample lies, from that sample on; silence outside the result.
Frame SoundPackets::Mixed(std::int64_t sample) {
    const auto sampleAt = [&](std::int64_t frame) {
        return av_rescale_q(frame, av_inv_q(frameRate), {1, format.rate});
    };
    std::int64_t frame =
        av_rescale_q_rnd(sample, {1, format.rate}, av_inv_q(frameRate), AV_ROUND_DOWN);
    while (sampleAt(frame + 1) <= sample)
        ++frame;
    const bool isInside = frame >= 0 && frame < *timeline.Length();
    Frame sound = isInside ? track.Read(timeline.At(frame), timeline.Length())
                           : NewSound(format, int(sampleAt(frame + 1) - sampleAt(frame)));
    const int skipped = int(sample - sampleAt(frame));
    for (int channel = 0; channel < format.channels; ++channel)
        sound->extended_data[channel] += sizeof(float) * std::size_t(skipped);
    for (int channel = 0; channel < std::min(format.channels, AV_NUM_DATA_POINTERS); ++channel)
        sound->data[channel] = sound->extended_data[channel];
    sound->nb_samples -= skipped;
    return sound;
}

/// The encoder is given what is heard before, so that it is in step at the first packet that is
/// used, and what is heard after, which the last one's window covers.
void SoundPackets::Encode(const SoundRun &now) {
    constexpr std::int64_t kBefore = 3;
    Encoder encoder(codec, output.file);
    SetUpSound(encoder.Context(), output, format);
    encoder.Open();
    const std::int64_t start = plan.first + kPacketSamples * (now.begin - kBefore);
    const std::int64_t end = plan.first + kPacketSamples * (now.end + kBefore);
    const auto keep = [&](AVPacket &fresh) {
        const std::int64_t number = now.begin - kBefore + FloorDivide(fresh.pts, kPacketSamples);
        if (number < now.begin || number >= now.end)
            return;
        encoded.emplace_back(av_packet_alloc());
        av_packet_move_ref(encoded.back().get(), &fresh);
        av_packet_free_side_data(encoded.back().get());
    };
    Graph blocks;
    const auto encode = [&] {
        while (const Frame block = blocks.Pull())
            encoder.Encode(block.get(), keep);
    };
    std::int64_t sample = start;
    while (sample < end) {
        const Frame sound = Mixed(sample);
        sound->pts = sample - start;
        if (!blocks)
            blocks = Graph(*sound, {1, format.rate}, BlockFilters(encoder.Context()), output.file);
        blocks.Push(*sound);
        encode();
        sample += sound->nb_samples;
    }
    blocks.End(sample - start);
    encode();
    encoder.Encode(nullptr, keep);
}

/// A clip's packet by its number, without a header of its own.
Packet SoundPackets::Read(int wanted, std::int64_t number) {
    const Clip &from = clips[wanted];
    const SoundGrid &grid = from.index->sound;
    const auto numberOf = [&](const AVPacket &read) {
        const std::int64_t sample = av_rescale_q(read.pts, stream->time_base, {1, format.rate});
        return FloorDivide(sample - grid.first + kPacketSamples / 2, kPacketSamples);
    };
    for (const bool seeks : {true, false}) {
        if (wanted != clip || !seeks) {
            constexpr int kBlock = 2048; // a few packets, not the pictures between them
            demuxer = OpenDemuxer(from.name, kBlock);
            const int index = MainStream(*demuxer, AVMEDIA_TYPE_AUDIO);
            stream = demuxer->streams[index];
            packets = Packets(*demuxer, index, from.name);
            clip = wanted;
            if (seeks && number > 0)
                av_seek_frame(demuxer.get(), index,
                              av_rescale_q(grid.first + kPacketSamples * number, {1, format.rate},
                                           stream->time_base),
                              AVSEEK_FLAG_BACKWARD);
        }
        while (packets.Next(*packet)) {
            const std::int64_t found = numberOf(*packet);
            if (found > number)
                break; // the index led too far
            if (found < number)
                continue;
            const int header = grid.hasHeaders ? (packet->data[1] & 1 ? 7 : 9) : 0;
            Packet own(av_packet_alloc());
            av_packet_move_ref(own.get(), packet.get());
            av_packet_free_side_data(own.get());
            own->data += header;
            own->size -= header;
            own->flags = 0;
            return own;
        }
    }
    throw Failure(from.name + ": its sound is not read twice alike; give --copy never");
}

} // namespace host
