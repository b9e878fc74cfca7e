/// \file Media.h
/// FFmpeg's objects with owners, and its errors as Failures.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libavutil/rational.h>
}

namespace host {

template<auto Free>
struct Release {
    template<class T>
    void operator()(T *object) const {
        if constexpr (requires { Free(&object); })
            Free(&object);
        else
            Free(object);
    }
};

using Frame = std::unique_ptr<AVFrame, Release<av_frame_free>>;
using Packet = std::unique_ptr<AVPacket, Release<av_packet_free>>;
using Codec = std::unique_ptr<AVCodecContext, Release<avcodec_free_context>>;
using Demuxer = std::unique_ptr<AVFormatContext, Release<avformat_close_input>>;

/// A new frame without samples.
Frame NewFrame();
/// Another reference to the same samples.
Frame Share(const AVFrame &frame);
/// A picture with pixels of its own.
Frame NewPicture(AVPixelFormat pixels, int width, int height);

/// How long a picture shows, in the unit of its pts; 0 is unknown.
std::int64_t Duration(const AVFrame &frame);

/// A ratio that is known, and above 0.
bool IsKnown(AVRational ratio);

/// What a sound's samples are.
struct SoundFormat {
    int rate = 0;     ///< samples per second; 0 is no sound
    int channels = 0; ///< in the usual layout of that many
};

/// Throws a Failure "what: why" when an FFmpeg call answered with an error; returns the answer.
int Check(int answer, const std::string &what);
/// Keeps FFmpeg's libraries, and the encoders that write by themselves, from writing to the
/// terminal; Check tells their last complaint.
void SilenceLibraries();
/// The last complaint in this thread that nobody has taken yet.
std::string TakeComplaint();

} // namespace host
