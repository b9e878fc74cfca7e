/// \file Encoder.h
/// Pictures and sound into packets.
#pragma once

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
/// And one for sound.
void SetUpSound(AVCodecContext &context, const OutputOptions &options, const SoundFormat &format);

} // namespace host
