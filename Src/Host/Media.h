/// \file Media.h
/// Pictures as they pass from the reader of a clip to the writer of the result.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

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

/// A new frame without pixels.
Frame NewFrame();
/// Another reference to the same pixels.
Frame Share(const AVFrame &frame);
/// A frame with pixels of its own.
Frame NewPicture(AVPixelFormat pixels, int width, int height);

/// How long a picture shows, in the unit of its pts; 0 is unknown.
std::int64_t Duration(const AVFrame &frame);
void SetDuration(AVFrame &frame, std::int64_t duration);

/// How the numbers of a picture stand for colours.
struct Colours {
    AVColorRange range = AVCOL_RANGE_UNSPECIFIED;
    AVColorSpace matrix = AVCOL_SPC_UNSPECIFIED;
    AVColorPrimaries primaries = AVCOL_PRI_UNSPECIFIED;
    AVColorTransferCharacteristic transfer = AVCOL_TRC_UNSPECIFIED;
    AVChromaLocation location = AVCHROMA_LOC_UNSPECIFIED;
};

/// What is known of a clip or still picture before its first frame is used, and of the result.
struct VideoFormat {
    int width = 0;
    int height = 0;
    AVRational rate = {25, 1};     ///< frames per second
    AVRational aspect = {0, 1};    ///< width of a pixel by its height; 0 is unknown
    AVRational timeBase = {1, 25}; ///< unit of the frames' pts and duration, in seconds
    Colours colours;
    bool isYuv = true;
    bool hasAlpha = false;
    bool isStill = false;       ///< one picture without a length of its own
    std::string y4mInterlacing; ///< value of the I tag of YUV4MPEG2, where the clip had one
    std::string y4mChroma;      ///< value of its C tag
    std::vector<std::string> y4mComments; ///< values of its X tags but for the colour range
};

/// Throws a Failure "what: why" when an FFmpeg call answered with an error; returns the answer.
int Check(int answer, const std::string &what);
/// Keeps FFmpeg's libraries from writing to the terminal; Check tells their last complaint.
void SilenceLibraries();
/// The last complaint that nobody has taken yet.
std::string TakeComplaint();

} // namespace host
