/// \file Encoder.h
/// Pictures and sound into packets.
#pragma once

#include "PacketIndex.h"
#include "PictureFilters.h"
#include "Plan.h"

#include <string>

namespace host {

/// An encoder with the packets that it has ready.
class Encoder {
public:
    Encoder(const AVCodec &encoder, std::string fileName);

    AVCodecContext &Context() { return *context; }
    /// Throws a Failure that says what the encoder objects to.
    void Open();
    /// Encodes a picture or sound, null to end, and hands every packet to the function.
    template<class Use>
    void Encode(const AVFrame *frame, Use use) {
        Check(avcodec_send_frame(context.get(), frame), name + ": encoding");
        for (const Packet packet(av_packet_alloc()); Receive(*packet);)
            use(*packet);
    }

private:
    bool Receive(AVPacket &packet);

    std::string name;
    Codec context;
};

/// Readies an encoder for the canvas's pictures, with the user's quality and preset.
void SetUpVideo(AVCodecContext &context, const OutputOptions &options, const OutputPlan &plan,
                const Canvas &canvas);
/// Makes what it writes like a stream of H.264 or H.265 that it is to stand beside.
void MakeAlike(AVCodecContext &context, const PacketIndex &index, int depth);
/// And one for sound.
void SetUpSound(AVCodecContext &context, const OutputOptions &options, const SoundFormat &format);
/// The filters that bring sound into the samples and blocks that the opened encoder takes.
std::string BlockFilters(const AVCodecContext &context);

} // namespace host
