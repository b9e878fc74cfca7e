#include "Colours.h"

#include <algorithm>
#include <utility>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace host {

bool IsRgb(AVPixelFormat pixels) {
    return av_pix_fmt_desc_get(pixels)->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL);
}

bool HasAlpha(AVPixelFormat pixels) {
    return av_pix_fmt_desc_get(pixels)->flags & (AV_PIX_FMT_FLAG_ALPHA | AV_PIX_FMT_FLAG_PAL);
}

bool IsGrey(AVPixelFormat pixels) {
    return !IsRgb(pixels) && av_pix_fmt_desc_get(pixels)->nb_components <= 2;
}

int BitsOf(AVPixelFormat pixels) {
    const AVPixFmtDescriptor &kind = *av_pix_fmt_desc_get(pixels);
    int bits = 0;
    for (int i = 0; i < kind.nb_components; ++i)
        bits = std::max(bits, kind.comp[i].depth);
    return bits;
}

bool IsHdr(const Colours &colours) {
    return colours.transfer == AVCOL_TRC_SMPTE2084 || colours.transfer == AVCOL_TRC_ARIB_STD_B67;
}

bool IsWide(const Colours &colours) {
    return colours.primaries == AVCOL_PRI_BT2020;
}

AVPixelFormat PlainPixels(AVPixelFormat pixels, AVColorRange &range) {
    constexpr std::pair<AVPixelFormat, AVPixelFormat> kNames[] = {
        {AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_YUV420P},
        {AV_PIX_FMT_YUVJ422P, AV_PIX_FMT_YUV422P},
        {AV_PIX_FMT_YUVJ444P, AV_PIX_FMT_YUV444P},
        {AV_PIX_FMT_YUVJ440P, AV_PIX_FMT_YUV440P},
        {AV_PIX_FMT_YUVJ411P, AV_PIX_FMT_YUV411P}};
    for (const auto &[full, plain] : kNames)
        if (pixels == full) {
            range = AVCOL_RANGE_JPEG;
            return plain;
        }
    return pixels;
}

Colours Assumed(Colours colours, AVPixelFormat pixels, int height) {
    constexpr int kHighDefinition = 720;
    PlainPixels(pixels, colours.range);
    const bool isFull = IsRgb(pixels) || (IsGrey(pixels) && !colours.range); // grey files are full
    if (isFull)
        colours.range = AVCOL_RANGE_JPEG;
    else if (colours.range == AVCOL_RANGE_UNSPECIFIED)
        colours.range = AVCOL_RANGE_MPEG;
    if (IsRgb(pixels))
        colours.matrix = AVCOL_SPC_RGB;
    else if (IsWide(colours) && colours.matrix == AVCOL_SPC_UNSPECIFIED)
        colours.matrix = AVCOL_SPC_BT2020_NCL;
    else if (colours.matrix == AVCOL_SPC_UNSPECIFIED || colours.matrix == AVCOL_SPC_RESERVED ||
             colours.matrix == AVCOL_SPC_RGB)
        colours.matrix = height >= kHighDefinition ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
    if (colours.matrix == AVCOL_SPC_BT470BG)
        colours.matrix = AVCOL_SPC_SMPTE170M; // two names of one matrix
    return colours;
}

Colours ColoursOf(const AVFrame &picture) {
    return Assumed({picture.color_range, picture.colorspace, picture.color_primaries,
                    picture.color_trc, picture.chroma_location},
                   AVPixelFormat(picture.format), picture.height);
}

void Label(AVFrame &picture, const Colours &colours) {
    picture.color_range = colours.range;
    picture.colorspace = colours.matrix;
    picture.color_primaries = colours.primaries;
    picture.color_trc = colours.transfer;
    picture.chroma_location = colours.location;
}

} // namespace host
