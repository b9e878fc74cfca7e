#include "Upright.h"

#include "Convert.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

extern "C" {
#include <libavutil/display.h>
#include <libavutil/pixdesc.h>
}

namespace host {

namespace {

const std::int32_t *DisplayMatrix(const AVStream &stream, const AVFrame &picture) {
    if (const AVFrameSideData *data = av_frame_get_side_data(&picture, AV_FRAME_DATA_DISPLAYMATRIX))
        return reinterpret_cast<const std::int32_t *>(data->data);
#if LIBAVFORMAT_VERSION_MAJOR < 61 // later decoders hand it on with each picture
    return reinterpret_cast<const std::int32_t *>(
        av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr));
#else
    return nullptr;
#endif
}

/// Width and height of a plane in its own samples.
struct Extent {
    int width, height;
};
Extent PlaneExtent(const AVFrame &picture, const AVPixFmtDescriptor &kind, int plane) {
    const bool isChroma = plane == 1 || plane == 2;
    const auto size = [&](int full, int shift) {
        return isChroma ? AV_CEIL_RSHIFT(full, shift) : full;
    };
    return {size(picture.width, kind.log2_chroma_w), size(picture.height, kind.log2_chroma_h)};
}

void TurnPlane(const AVFrame &from, AVFrame &to, int plane, const Extent &extent, int step,
               int quarters) {
    for (int y = 0; y < extent.height; ++y)
        for (int x = 0; x < extent.width; ++x) {
            const int column = quarters == 1   ? extent.height - 1 - y
                               : quarters == 2 ? extent.width - 1 - x
                                               : y;
            const int row = quarters == 1   ? x
                            : quarters == 2 ? extent.height - 1 - y
                                            : extent.width - 1 - x;
            std::memcpy(to.data[plane] + std::ptrdiff_t(row) * to.linesize[plane] + column * step,
                        from.data[plane] + std::ptrdiff_t(y) * from.linesize[plane] + x * step,
                        step);
        }
}

} // namespace

int QuarterTurns(const AVStream &stream, const AVFrame &picture) {
    if (const std::int32_t *matrix = DisplayMatrix(stream, picture)) {
        const double clockwise = -av_display_rotation_get(matrix);
        return std::isnan(clockwise) ? 0 : int(std::lround(clockwise / 90) + 4) % 4;
    }
    const AVDictionaryEntry *note = av_dict_get(picture.metadata, "Orientation", nullptr, 0);
    switch (note ? std::atoi(note->value) : 1) { // as numbered by Exif
    case 3:
        return 2;
    case 6:
        return 1;
    case 8:
        return 3;
    default:
        return 0;
    }
}

Frame Turned(const AVFrame &picture, int quarters) {
    const auto pixels = AVPixelFormat(picture.format);
    const AVPixFmtDescriptor &kind = *av_pix_fmt_desc_get(pixels);
    const bool isPlanar =
        (kind.flags & AV_PIX_FMT_FLAG_PLANAR) || (kind.flags & AV_PIX_FMT_FLAG_RGB);
    if (!isPlanar ||
        kind.log2_chroma_w != kind.log2_chroma_h) { // samples cannot simply change place
        const Colours colours = {picture.color_range, picture.colorspace, picture.color_primaries,
                                 picture.color_trc, picture.chroma_location};
        Converter convert(
            {picture.width, picture.height, picture.sample_aspect_ratio, colours, Fit::Stretch});
        const bool isRgb = kind.flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL);
        return Turned(*convert.ToFrame(picture, isRgb ? AV_PIX_FMT_BGRA : AV_PIX_FMT_YUV444P),
                      quarters);
    }
    const bool isSideways = quarters % 2 != 0;
    Frame turned = NewPicture(pixels, isSideways ? picture.height : picture.width,
                              isSideways ? picture.width : picture.height);
    Check(av_frame_copy_props(turned.get(), &picture), "turning a picture");
    av_frame_remove_side_data(turned.get(), AV_FRAME_DATA_DISPLAYMATRIX);
    if (isSideways)
        turned->sample_aspect_ratio = {picture.sample_aspect_ratio.den,
                                       picture.sample_aspect_ratio.num};
    for (int plane = 0; plane < av_pix_fmt_count_planes(pixels); ++plane) {
        int step = 0;
        for (int i = 0; i < kind.nb_components; ++i)
            if (kind.comp[i].plane == plane)
                step = kind.comp[i].step;
        TurnPlane(picture, *turned, plane, PlaneExtent(picture, kind, plane), step, quarters);
    }
    return turned;
}

} // namespace host
