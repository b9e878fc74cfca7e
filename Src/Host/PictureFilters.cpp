#include "PictureFilters.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>
#include <vector>

extern "C" {
#include <libavutil/display.h>
#include <libavutil/pixdesc.h>
}

namespace host {

namespace {

struct Box {
    int x, y, width, height;
};

/// A picture's extent on its way through the filters.
struct Extent {
    int width, height;
    AVRational aspect;
    double Shape() const { return width * (IsKnown(aspect) ? av_q2d(aspect) : 1) / height; }
};

/// The part of the result that the whole picture fills, or (cut) the part of the picture that fills
/// the whole result. Both start and end on even pixels so that chroma stays in step.
Box Inner(const Extent &picture, const Extent &canvas, bool cut) {
    const int width = cut ? picture.width : canvas.width;
    const int height = cut ? picture.height : canvas.height;
    const double ratio = cut ? canvas.Shape() / picture.Shape() : picture.Shape() / canvas.Shape();
    // Sizes that differ by no more than their own rounding do not get a bar of one pixel.
    if (std::abs(ratio - 1) * std::max(width, height) < 2)
        return {0, 0, width, height};
    const auto even = [](double size) { return std::max(2, 2 * int(std::lround(size / 2))); };
    const int innerWidth = ratio < 1 ? std::min(width, even(width * ratio)) : width;
    const int innerHeight = ratio > 1 ? std::min(height, even(height / ratio)) : height;
    return {(width - innerWidth) / 4 * 2, (height - innerHeight) / 4 * 2, innerWidth, innerHeight};
}

std::string Text(const Box &box) {
    return std::to_string(box.width) + ":" + std::to_string(box.height) + ":" +
           std::to_string(box.x) + ":" + std::to_string(box.y);
}

std::string PixelsFilter(AVPixelFormat pixels) {
    return std::string("format=") + av_get_pix_fmt_name(pixels);
}

const char *RangeName(const Colours &colours) {
    return colours.range == AVCOL_RANGE_JPEG ? "full" : "limited";
}

/// The scaler's name of a matrix; those it does not know are rare and near to BT.709.
const char *MatrixName(AVColorSpace matrix) {
    switch (matrix) {
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M:
        return "smpte170m";
    case AVCOL_SPC_SMPTE240M:
        return "smpte240m";
    case AVCOL_SPC_FCC:
        return "fcc";
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL:
        return "bt2020";
    default:
        return "bt709";
    }
}

std::string Scale(int width, int height, const Colours &from, const Colours &to) {
    std::string text =
        "scale=" + std::to_string(width) + ":" + std::to_string(height) +
        ":flags=bicubic+accurate_rnd+full_chroma_int+full_chroma_inp:in_range=" + RangeName(from) +
        ":out_range=" + RangeName(to);
    if (from.matrix != AVCOL_SPC_RGB)
        text += std::string(":in_color_matrix=") + MatrixName(from.matrix);
    if (to.matrix != AVCOL_SPC_RGB)
        text += std::string(":out_color_matrix=") + MatrixName(to.matrix);
    return text;
}

/// Curves and primaries as zscale is told them, the usual ones for what is not known.
AVColorTransferCharacteristic KnownTransfer(const Colours &colours) {
    if (colours.transfer != AVCOL_TRC_UNSPECIFIED && colours.transfer != AVCOL_TRC_RESERVED0)
        return colours.transfer;
    return colours.matrix == AVCOL_SPC_RGB ? AVCOL_TRC_IEC61966_2_1 : AVCOL_TRC_BT709;
}
AVColorPrimaries KnownPrimaries(const Colours &colours) {
    return colours.primaries != AVCOL_PRI_UNSPECIFIED && colours.primaries != AVCOL_PRI_RESERVED0
               ? colours.primaries
               : AVCOL_PRI_BT709;
}

bool NeedsLight(const Colours &from, const Colours &to) {
    return IsWide(from) != IsWide(to) ||
           ((IsHdr(from) || IsHdr(to)) && from.transfer != to.transfer);
}

/// Through light itself: what no matrix converts, such as PQ to BT.709. White of 203 nits stands
/// for the white of a picture without high dynamic range.
std::string ThroughLight(const Colours &from, const Colours &to) {
    const auto pixels = [](const Colours &colours) {
        return colours.matrix == AVCOL_SPC_RGB ? "format=gbrp16" : "format=yuv444p16";
    };
    const auto matrix = [](const Colours &colours) {
        return std::string(colours.matrix == AVCOL_SPC_RGB ? "gbr"
                                                           : av_color_space_name(colours.matrix));
    };
    const bool isMapped = IsHdr(from) && !IsHdr(to);
    const std::string white = isMapped ? ":npl=100" : ":npl=203";
    const std::string primaries = av_color_primaries_name(KnownPrimaries(to));
    return std::string(pixels(from)) + ",setparams=range=" + RangeName(from) +
           ":color_primaries=" + av_color_primaries_name(KnownPrimaries(from)) +
           ":color_trc=" + av_color_transfer_name(KnownTransfer(from)) +
           ":colorspace=" + matrix(from) + ",zscale=t=linear" + white +
           ",format=gbrpf32,zscale=p=" + primaries + (isMapped ? ",tonemap=hable:desat=0" : "") +
           ",zscale=t=" + av_color_transfer_name(KnownTransfer(to)) + ":p=" + primaries +
           ":m=" + matrix(to) + ":r=" + RangeName(to) + white + "," + pixels(to);
}

/// To a size and to colours.
std::string ScaleAndColour(const Box &size, const Colours &from, const Colours &to) {
    if (!NeedsLight(from, to))
        return Scale(size.width, size.height, from, to);
    return Scale(size.width, size.height, from, from) + "," + ThroughLight(from, to) + "," +
           Scale(size.width, size.height, to, to);
}

/// Where a picture goes.
struct Fitting {
    Box source;   ///< the part of it that is used
    Box inner;    ///< where that lies on the canvas
    Extent whole; ///< the canvas; with bars, odd sizes have a pixel more
    bool hasBars;
};

Fitting FitInto(const Extent &picture, const Canvas &canvas) {
    const Extent exact = {canvas.width, canvas.height, canvas.aspect};
    Fitting fit = {
        {0, 0, picture.width, picture.height}, {0, 0, exact.width, exact.height}, exact, false};
    if (canvas.fit == Fit::Cover)
        fit.source = Inner(picture, exact, true);
    if (canvas.fit != Fit::Contain && canvas.fit != Fit::Blur)
        return fit;
    fit.inner = Inner(picture, exact, false);
    fit.hasBars = fit.inner.width != exact.width || fit.inner.height != exact.height;
    if (fit.hasBars) { // which end on whole samples of chroma
        fit.whole.width += exact.width & 1;
        fit.whole.height += exact.height & 1;
        fit.inner = Inner(picture, fit.whole, false);
    }
    return fit;
}

/// Around the fitted picture: black, or the picture itself blurred. It is blurred small: that is
/// fast, and nothing sharp is left.
std::string AddBars(const Extent &picture, const Fitting &fit, Fit kind,
                    const std::string &fitted) {
    const auto size = [](int width, int height) {
        return std::to_string(width) + ":" + std::to_string(height);
    };
    const std::string place = std::to_string(fit.inner.x) + ":" + std::to_string(fit.inner.y);
    const std::string all = size(fit.whole.width, fit.whole.height);
    if (kind != Fit::Blur)
        return fitted + ",pad=" + all + ":" + place;
    const int width = std::max(2, fit.whole.width / 16 * 2);
    const int height = std::max(2, fit.whole.height / 16 * 2);
    return "split[front][back];[back]crop=" + Text(Inner(picture, fit.whole, true)) +
           ",scale=" + size(width, height) +
           ":flags=area,gblur=sigma=" + std::to_string(std::max(2, height / 16)) + ",scale=" + all +
           ":flags=bicubic[ground];[front]" + fitted + "[whole];[ground][whole]overlay=" + place +
           ":format=auto";
}

/// Makes the extent that of the upright picture.
std::vector<std::string> TurnUpright(const Orientation &orientation, Extent &extent) {
    std::vector<std::string> filters;
    if (orientation.isTransposed) {
        filters.emplace_back("transpose=cclock_flip");
        std::swap(extent.width, extent.height);
        extent.aspect = av_inv_q(extent.aspect);
    }
    if (orientation.isMirrored)
        filters.emplace_back("hflip");
    if (orientation.isFlipped)
        filters.emplace_back("vflip");
    return filters;
}

std::string Chained(const std::vector<std::string> &filters) {
    std::string text;
    for (const std::string &filter : filters)
        if (!filter.empty())
            text += (text.empty() ? "" : ",") + filter;
    return text;
}

/// From the signs of the matrix; other angles than quarter turns count as the nearest.
Orientation FromMatrix(const std::int32_t *m) {
    Orientation result;
    result.isTransposed = std::abs(double(m[1])) + std::abs(double(m[3])) >
                          std::abs(double(m[0])) + std::abs(double(m[4]));
    result.isMirrored = (result.isTransposed ? m[3] : m[0]) < 0;
    result.isFlipped = (result.isTransposed ? m[1] : m[4]) < 0;
    return result;
}

} // namespace

Orientation OrientationOf(const AVFrame &picture, const AVStream &stream) {
    if (const AVFrameSideData *data = av_frame_get_side_data(&picture, AV_FRAME_DATA_DISPLAYMATRIX))
        return FromMatrix(reinterpret_cast<const std::int32_t *>(data->data));
#if LIBAVFORMAT_VERSION_MAJOR < 61 // later decoders hand it on with each picture
    if (const std::uint8_t *data =
            av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr))
        return FromMatrix(reinterpret_cast<const std::int32_t *>(data));
#endif
    constexpr Orientation kExif[] = {
        {false, false, false}, {false, true, false}, {false, true, true}, {false, false, true},
        {true, false, false},  {true, true, false},  {true, true, true},  {true, false, true}};
    const AVDictionaryEntry *note = av_dict_get(picture.metadata, "Orientation", nullptr, 0);
    const int number = note ? std::atoi(note->value) : 1;
    return kExif[number >= 1 && number <= 8 ? number - 1 : 0];
}

void MakePlain(AVFrame &picture) {
    const Colours colours = ColoursOf(picture);
    AVColorRange range = colours.range;
    picture.format = PlainPixels(AVPixelFormat(picture.format), range);
    Label(picture, colours);
}

std::string PictureFilters(const AVFrame &picture, const Orientation &orientation,
                           const Canvas &canvas) {
    const Colours from = ColoursOf(picture);
    Colours to = canvas.colours;
    AVColorRange ignored = AVCOL_RANGE_UNSPECIFIED;
    const AVPixelFormat pixels = PlainPixels(canvas.pixels, ignored);
    const auto own = AVPixelFormat(picture.format);
    Extent extent = {picture.width, picture.height, picture.sample_aspect_ratio};
    std::vector<std::string> filters = TurnUpright(orientation, extent);
    const Fitting fit = FitInto(extent, canvas);
    const Box &source = fit.source, &inner = fit.inner;
    if (source.width == inner.width && source.height == inner.height && !fit.hasBars &&
        own == pixels && from.range == to.range && from.matrix == to.matrix &&
        !NeedsLight(from, to))
        return Chained(filters);
    if (HasAlpha(own) && !HasAlpha(pixels))
        filters.push_back(std::string("format=") +
                          (IsRgb(own) || IsGrey(own) ? "gbrap" : "yuva444p") +
                          ",premultiply=inplace=1");
    if (source.width != extent.width || source.height != extent.height)
        filters.push_back("crop=" + Text(source) + ":exact=1");
    // Bars are black in limited range, so a full-range canvas gets its range last.
    const bool isLate = fit.hasBars && to.range == AVCOL_RANGE_JPEG && to.matrix != AVCOL_SPC_RGB;
    if (isLate)
        to.range = AVCOL_RANGE_MPEG;
    const std::string fitted = ScaleAndColour(inner, from, to) + "," + PixelsFilter(pixels);
    if (!fit.hasBars)
        filters.push_back(fitted);
    else
        filters.push_back(AddBars(extent, fit, canvas.fit, fitted) + "," + PixelsFilter(pixels));
    if (fit.whole.width != canvas.width || fit.whole.height != canvas.height)
        filters.push_back("crop=" + Text({0, 0, canvas.width, canvas.height}) + ":exact=1");
    if (isLate)
        filters.push_back(Scale(canvas.width, canvas.height, to, canvas.colours) + "," +
                          PixelsFilter(pixels));
    return Chained(filters);
}

} // namespace host
