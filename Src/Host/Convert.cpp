#include "Convert.h"

#include "Program.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <new>
#include <utility>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace host {

namespace {

/// The older names of full-range pixels as plain pixels and a range.
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

bool IsRgb(AVPixelFormat pixels) {
    return av_pix_fmt_desc_get(pixels)->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL);
}

bool HasAlpha(AVPixelFormat pixels) {
    return av_pix_fmt_desc_get(pixels)->flags & (AV_PIX_FMT_FLAG_ALPHA | AV_PIX_FMT_FLAG_PAL);
}

bool IsGray(AVPixelFormat pixels) {
    return av_pix_fmt_desc_get(pixels)->nb_components <= 2;
}

Colours ColoursOf(const AVFrame &picture) {
    Colours colours = {picture.color_range, picture.colorspace, picture.color_primaries,
                       picture.color_trc, picture.chroma_location};
    PlainPixels(AVPixelFormat(picture.format), colours.range);
    if (IsGray(AVPixelFormat(picture.format)) && colours.range == AVCOL_RANGE_UNSPECIFIED)
        colours.range = AVCOL_RANGE_JPEG; // pictures in grey come from full-range files
    return Assumed(colours, picture.height);
}

/// Labels a picture made here with the result's colours and shape.
void Describe(AVFrame &frame, const Target &target) {
    const bool isRgb = IsRgb(AVPixelFormat(frame.format));
    frame.color_range = isRgb ? AVCOL_RANGE_JPEG : target.colours.range;
    frame.colorspace = isRgb ? AVCOL_SPC_RGB : target.colours.matrix;
    frame.color_primaries = target.colours.primaries;
    frame.color_trc = target.colours.transfer;
    frame.chroma_location = isRgb ? AVCHROMA_LOC_UNSPECIFIED : target.colours.location;
    frame.sample_aspect_ratio = target.aspect;
}

AVPixelFormat PixelsOf(const hostkit::Frame &frame) {
    return frame.Layout() == hostkit::Path::Yuv ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_BGRA;
}

/// Lets the media libraries free the owner of the frame's samples.
template<class Owner>
void Own(AVFrame &frame, Owner *owner, std::uint8_t *samples, std::size_t size) {
    frame.buf[0] = av_buffer_create(
        samples, size, [](void *held, std::uint8_t *) { delete static_cast<Owner *>(held); }, owner,
        0);
    if (!frame.buf[0]) {
        delete owner;
        throw std::bad_alloc();
    }
}

double PixelAspect(AVRational aspect) {
    return aspect.num > 0 && aspect.den > 0 ? av_q2d(aspect) : 1.0;
}

} // namespace

Colours Assumed(Colours colours, int height) {
    constexpr int kHighDefinition = 720;
    if (colours.range == AVCOL_RANGE_UNSPECIFIED)
        colours.range = AVCOL_RANGE_MPEG;
    if (colours.matrix == AVCOL_SPC_UNSPECIFIED || colours.matrix == AVCOL_SPC_RESERVED ||
        colours.matrix == AVCOL_SPC_RGB)
        colours.matrix = height >= kHighDefinition ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
    if (colours.matrix == AVCOL_SPC_BT470BG)
        colours.matrix = AVCOL_SPC_SMPTE170M; // two names of one matrix
    return colours;
}

/// The scaler and what it was made for.
struct Converter::Setup {
    int width, height, format;
    Colours from;
    AVRational aspect;
    AVPixelFormat pixels;
    Box source, drawn;
    std::unique_ptr<SwsContext, Release<sws_freeContext>> scaler;

    bool Fits(const AVFrame &picture, AVPixelFormat wanted) const {
        const Colours now = ColoursOf(picture);
        return width == picture.width && height == picture.height && format == picture.format &&
               from.range == now.range && from.matrix == now.matrix &&
               av_cmp_q(aspect, picture.sample_aspect_ratio) == 0 && pixels == wanted;
    }
};

bool Converter::IsSame(const AVFrame &picture, AVPixelFormat pixels) const {
    Colours from = ColoursOf(picture);
    const Colours to = Assumed(target.colours, target.height);
    if (PlainPixels(AVPixelFormat(picture.format), from.range) != pixels ||
        picture.width != target.width || picture.height != target.height)
        return false;
    if (target.fit != Fit::Stretch &&
        PixelAspect(picture.sample_aspect_ratio) != PixelAspect(target.aspect))
        return false;
    return IsRgb(pixels) || (from.range == to.range && from.matrix == to.matrix);
}

/// The part of the result that the whole picture fills, or (cut) the part of the picture that fills
/// the whole result. Both start and end on even pixels so that chroma stays in step.
Converter::Box Converter::Inner(const AVFrame &picture, bool cut) const {
    const double shape = picture.width * PixelAspect(picture.sample_aspect_ratio) / picture.height;
    const double wanted = target.width * PixelAspect(target.aspect) / target.height;
    const int width = cut ? picture.width : target.width;
    const int height = cut ? picture.height : target.height;
    const double ratio = cut ? wanted / shape : shape / wanted;
    // Sizes that differ by no more than their own rounding do not get a bar of one pixel.
    if (std::abs(ratio - 1) * std::max(width, height) < 2)
        return {0, 0, width, height};
    const auto even = [](double size) { return std::max(2, 2 * int(std::lround(size / 2))); };
    const int innerWidth = ratio < 1 ? std::min(width, even(width * ratio)) : width;
    const int innerHeight = ratio > 1 ? std::min(height, even(height / ratio)) : height;
    return {(width - innerWidth) / 4 * 2, (height - innerHeight) / 4 * 2, innerWidth, innerHeight};
}

void Converter::Prepare(const AVFrame &picture, AVPixelFormat pixels) {
    if (setup && setup->Fits(picture, pixels))
        return;
    const Colours from = ColoursOf(picture);
    const Colours to = Assumed(target.colours, target.height);
    Colours plain = from;
    const AVPixelFormat format = PlainPixels(AVPixelFormat(picture.format), plain.range);
    const Box whole = {0, 0, picture.width, picture.height};
    setup = std::make_shared<Setup>();
    setup->width = picture.width;
    setup->height = picture.height;
    setup->format = picture.format;
    setup->from = from;
    setup->aspect = picture.sample_aspect_ratio;
    setup->pixels = pixels;
    setup->source = target.fit == Fit::Cover ? Inner(picture, true) : whole;
    setup->drawn =
        target.fit == Fit::Contain ? Inner(picture, false) : Box{0, 0, target.width, target.height};
    setup->scaler.reset(sws_alloc_context());
    SwsContext *scaler = setup->scaler.get();
    av_opt_set_int(scaler, "srcw", setup->source.width, 0);
    av_opt_set_int(scaler, "srch", setup->source.height, 0);
    av_opt_set_int(scaler, "src_format", format, 0);
    av_opt_set_int(scaler, "dstw", setup->drawn.width, 0);
    av_opt_set_int(scaler, "dsth", setup->drawn.height, 0);
    av_opt_set_int(scaler, "dst_format", pixels, 0);
    av_opt_set_int(scaler, "sws_flags",
                   SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP, 0);
    const bool fullFrom = IsRgb(format) || from.range == AVCOL_RANGE_JPEG;
    const bool fullTo = IsRgb(pixels) || to.range == AVCOL_RANGE_JPEG;
    av_opt_set_int(scaler, "src_range", fullFrom, 0);
    av_opt_set_int(scaler, "dst_range", fullTo, 0);
    Check(sws_init_context(scaler, nullptr, nullptr),
          std::string("pixels of kind ") + av_get_pix_fmt_name(format) + " cannot be converted");
    sws_setColorspaceDetails(scaler, sws_getCoefficients(from.matrix), fullFrom,
                             sws_getCoefficients(to.matrix), fullTo, 0, 1 << 16, 1 << 16);
}

Converter::Planes Converter::Planes::At(int x, int y) const {
    // Offsets are even, so they shift whole chroma samples in every kind of pixels.
    const AVPixFmtDescriptor *kind = av_pix_fmt_desc_get(pixels);
    Planes moved = *this;
    for (int plane = 0; plane < 4 && (x || y); ++plane) {
        if (!data[plane] || (plane && (kind->flags & AV_PIX_FMT_FLAG_PAL)))
            continue;
        const bool isChroma = plane == 1 || plane == 2;
        const int row = isChroma ? y >> kind->log2_chroma_h : y;
        moved.data[plane] +=
            std::ptrdiff_t(row) * pitch[plane] + av_image_get_linesize(pixels, x, plane);
    }
    return moved;
}

void Converter::Run(const AVFrame &picture, Planes planes) {
    if (HasAlpha(AVPixelFormat(picture.format)) && !HasAlpha(planes.pixels))
        return Run(*OverBlack(picture), planes);
    Prepare(picture, planes.pixels);
    const Box &source = setup->source, &drawn = setup->drawn;
    Planes from = {{}, {}, AVPixelFormat(picture.format)};
    std::copy_n(picture.data, 4, from.data);
    std::copy_n(picture.linesize, 4, from.pitch);
    from = from.At(source.x, source.y);
    const Planes to = planes.At(drawn.x, drawn.y);
    if (drawn.width != target.width || drawn.height != target.height) {
        const std::ptrdiff_t pitch[4] = {planes.pitch[0], planes.pitch[1], planes.pitch[2],
                                         planes.pitch[3]};
        av_image_fill_black(planes.data, pitch, planes.pixels, target.colours.range, target.width,
                            target.height);
    }
    Check(
        sws_scale(setup->scaler.get(), from.data, from.pitch, 0, source.height, to.data, to.pitch),
        "converting a picture");
}

Frame Converter::OverBlack(const AVFrame &picture) {
    if (!flat)
        flat = std::make_shared<Converter>(
            Target{picture.width, picture.height, picture.sample_aspect_ratio, {}, Fit::Stretch});
    Frame frame = flat->ToFrame(picture, AV_PIX_FMT_BGRA);
    Check(av_frame_make_writable(frame.get()), "a picture");
    for (int y = 0; y < frame->height; ++y) {
        std::uint8_t *pixel = frame->data[0] + std::ptrdiff_t(y) * frame->linesize[0];
        for (int x = 0; x < frame->width; ++x, pixel += 4)
            for (int channel = 0; channel < 3; ++channel)
                pixel[channel] = std::uint8_t((pixel[channel] * pixel[3] + 127) / 255);
    }
    frame->format = AV_PIX_FMT_BGR0;
    return frame;
}

Frame Converter::ToFrame(const AVFrame &picture, AVPixelFormat pixels) {
    if (IsSame(picture, pixels)) {
        Frame shared = Share(picture);
        shared->format = pixels;
        return shared;
    }
    if (lastSource && lastSource->data[0] == picture.data[0] && lastResult->format == pixels)
        return Share(*lastResult);
    Frame frame = NewPicture(pixels, target.width, target.height);
    Planes planes = {{}, {}, pixels};
    std::copy_n(frame->data, 4, planes.data);
    std::copy_n(frame->linesize, 4, planes.pitch);
    Run(picture, planes);
    Describe(*frame, target);
    lastSource = Share(picture);
    lastResult = Share(*frame);
    return frame;
}

void Converter::ToDrawn(const AVFrame &picture, hostkit::Frame &frame) {
    Planes planes = {{}, {}, PixelsOf(frame)};
    for (int plane = 0; plane < frame.Planes(); ++plane) {
        planes.data[plane] = frame.Row(plane, 0);
        planes.pitch[plane] = frame.Pitch(plane);
    }
    if (IsSame(picture, planes.pixels))
        av_image_copy(planes.data, planes.pitch, const_cast<const std::uint8_t **>(picture.data),
                      picture.linesize, planes.pixels, frame.Width(), frame.Height());
    else
        Run(picture, planes);
}

Frame Wrap(hostkit::Frame drawn, const Target &target) {
    Frame frame = NewFrame();
    auto *owner = new hostkit::Frame(std::move(drawn));
    frame->format = PixelsOf(*owner);
    frame->width = owner->Width();
    frame->height = owner->Height();
    for (int plane = 0; plane < owner->Planes(); ++plane) {
        frame->data[plane] = owner->Row(plane, 0);
        frame->linesize[plane] = owner->Pitch(plane);
    }
    Own(*frame, owner, owner->Bytes().data(), owner->Bytes().size());
    Describe(*frame, target);
    return frame;
}

} // namespace host
