// Wipes and slides: every pixel but those of Erase's soft edge is a copy of one input.

#include "Frames.h"
#include "Pixels.h"
#include "Progress.h"
#include "Registry.h"
#include "Rows.h"
#include "tp_Erase.h"

#include <VeskLogger.h>

#include <array>
#include <cstdlib>
#include <cwchar>

using namespace tp;

// ---------------------------------------------------------------------------------------------
// Erase: a soft vertical edge that travels from left to right
// ---------------------------------------------------------------------------------------------

namespace {

/// The soft edge of one frame: columns before begin show the second input, columns from end on the
/// first, and in between the weight of the second falls.
struct SoftEdge {
    int begin;
    int end;
};

/// Weights of the second input over the visible columns of a soft edge, one per sample: samples are
/// stride columns apart, and each weight stands repeat times. The ramp falls to 0 at column zero.
struct EdgeWeights {
    std::array<std::uint8_t, std::size_t(kBandWidth) * 4> weights;

    EdgeWeights(SoftEdge edge, int zero, int stride, int repeat) {
        auto *next = weights.data();
        for (int x = edge.begin; x < edge.end; x += stride)
            for (int i = 0; i < repeat; ++i)
                *next++ = static_cast<std::uint8_t>(RampWeight(zero - x));
    }
};

/// A soft edge cut to the frame. Where begin lies beyond end (a position that wrapped) the columns
/// before begin win.
SoftEdge VisibleEdge(int begin, int end, int width) {
    begin = Limit(begin, 0, width);
    return {begin, Limit(end, begin, width)};
}

void BlendEdge(const Triple &row, SoftEdge edge, const EdgeWeights &weights) {
    const Triple at = row.At(edge.begin);
    Rows().blendYuv(at.out, at.in2, at.in1, weights.weights.data(), edge.end - edge.begin);
}

} // namespace

void TrErase(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PlanarFrames frames(out, in1, in2);
    const int position = Position(eased, frames.width + kBandWidth, total);
    const SoftEdge edge = VisibleEdge(position - kBandWidth, position, frames.width);
    const SoftEdge chromaEdge = {HalfUp(edge.begin), HalfUp(edge.end)};
    const EdgeWeights lumaWeights(edge, position, 1, 1);
    const EdgeWeights chromaWeights({chromaEdge.begin * 2, edge.end}, position, 2, 1);
    frames.DrawRows([&](const PlanarRow &row, int) {
        row.Copy(Input::Two, 0, edge.begin);
        BlendEdge(row.luma, edge, lumaWeights);
        if (row.hasChroma) {
            BlendEdge(row.cb, chromaEdge, chromaWeights);
            BlendEdge(row.cr, chromaEdge, chromaWeights);
        }
        row.Copy(Input::One, edge.end, frames.width);
    });
}

void TrEraseRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const PackedFrames frames(out, in1, in2);
    const int position = Position(param->dCurrent, frames.width + kBandWidth, param->dTotal);
    const int begin = position - kBandWidth;
    // Nothing of the incoming frame shows until the whole band has entered.
    if (begin <= 0) {
        frames.CopyPicture(Input::One);
        return;
    }
    // Past the right border the ramp is measured from the border, so its last column keeps
    // weight 2.
    const SoftEdge edge = VisibleEdge(begin, std::min(position, frames.width), frames.width);
    const EdgeWeights weights(edge, edge.end, 1, 4);
    const auto blendRgb = Rows().blendRgb;
    frames.DrawRows([&](const PackedRow &row, int) {
        row.Copy(Input::Two, 0, edge.begin);
        const Triple band = row.bytes.At(std::ptrdiff_t(edge.begin) * 4);
        blendRgb(band.out, band.in2, band.in1, weights.weights.data(),
                 std::ptrdiff_t(edge.end - edge.begin) * 4);
        row.Copy(Input::One, edge.end, frames.width);
    });
}

// ---------------------------------------------------------------------------------------------
// Erase_slide: a hard vertical edge. The planar path slides the second input in from the left over
// the first; the packed path uncovers it where it lies
// ---------------------------------------------------------------------------------------------

namespace {

/// Shows the second input in the first edgeOf(y) columns of each row y, the first in the others.
template<class Frames, class EdgeOf>
void WipeRows(const Frames &frames, EdgeOf edgeOf) {
    frames.DrawRows([&](const auto &row, int y) {
        const int edge = edgeOf(y);
        row.Copy(Input::Two, 0, edge);
        row.Copy(Input::One, edge, frames.width);
    });
}

} // namespace

void TrEraseSlide(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                  const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PlanarFrames frames(out, in1, in2);
    const int edge = Limit(Position(eased, frames.width, total), 0, frames.width);
    frames.DrawRows([&](const PlanarRow &row, int) {
        row.CopyFrom(Input::Two, frames.width - edge, 0, edge);
        row.Copy(Input::One, edge, frames.width);
    });
}

void TrEraseSlideRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PackedFrames frames(out, in1, in2);
    const int edge = Position(eased, frames.width, total);
    WipeRows(frames, [edge](int) { return edge; });
}

// ---------------------------------------------------------------------------------------------
// Bar: a hard edge in bars, each a bar's height behind the one above
// ---------------------------------------------------------------------------------------------

namespace {

constexpr int kBarHeight = 32;

/// The way of the edge until the last bar is covered.
int BarSpan(int width, int height) {
    return kBarHeight *
           ((height + kBarHeight - 1) / kBarHeight + (width + kBarHeight - 1) / kBarHeight);
}

/// The edge in the row that is `row` rows below the picture's top.
int BarEdge(int position, int row) {
    return position - (row & -kBarHeight);
}

} // namespace

void TrBar(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PlanarFrames frames(out, in1, in2);
    const int position = Position(eased, BarSpan(frames.width, frames.height), total);
    WipeRows(frames, [=](int y) { return BarEdge(position, y); });
}

void TrBarRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const PackedFrames frames(out, in1, in2);
    const int span = BarSpan(frames.width, frames.height);
    const int position = Position(param->dCurrent, span, param->dTotal);
    WipeRows(frames, [&](int y) { return BarEdge(position, frames.height - 1 - y); });
}

// ---------------------------------------------------------------------------------------------
// Planes drawn in blocks of whole rows, padding included: Drop and Blind
// ---------------------------------------------------------------------------------------------

namespace {

struct Plane {
    Triple bytes;
    std::ptrdiff_t pitch;
    int height;
    int rowStep;   ///< rows of the picture per row of the plane
    bool bottomUp; ///< the picture's row 0 is the last in memory

    /// The plane's rows that belong to the picture's first `rows` rows: a chroma row goes with the
    /// even one of its two.
    int RowsFor(int rows) const { return rowStep == 1 ? rows : HalfUp(rows); }

    /// Shows `count` rows of an input, from row `source` on, at row `target`.
    void CopyRows(Input input, int target, int source, int count) const {
        if (count < 1)
            return;
        const auto offset = [&](int row) {
            return (bottomUp ? height - row - count : row) * pitch;
        };
        const std::ptrdiff_t begin = offset(target);
        bytes.CopyFrom(input, offset(source), begin, begin + count * pitch);
    }
};

template<class Draw>
void DrawPlanes(const PlanarFrames &frames, Draw draw) {
    const int chromaHeight = HalfUp(frames.height);
    draw(Plane{frames.y, frames.pitchY, frames.height, 1, false});
    draw(Plane{frames.u, frames.pitchUV, chromaHeight, 2, false});
    draw(Plane{frames.v, frames.pitchUV, chromaHeight, 2, false});
}

template<class Draw>
void DrawPlanes(const PackedFrames &frames, Draw draw) {
    draw(Plane{frames.pixels, frames.Pitch(), frames.height, 1, true});
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Drop: bands of the first input fall out of the picture, the lowest one first
// ---------------------------------------------------------------------------------------------

namespace {

/// The bands of one frame.
struct Bands {
    int frameHeight;
    int height; ///< of a band
    int count;
    int position; ///< 0 to twice the frame's height

    /// The row at which band k is drawn: its own until it begins to fall. Where the bands divide
    /// the frame evenly they have a band's height less to wait, so that the lowest is gone at once.
    int RowOf(int k) const {
        const int landing =
            frameHeight - frameHeight % height + position - 2 * height * (count - 1 - k);
        return std::max(landing, k * height);
    }
    /// How many rows of band k at that row are left in the picture; below 1 for none.
    int RowsLeft(int k, int row) const {
        return std::min({height, frameHeight - k * height, frameHeight - row});
    }
};

Bands MakeBands(int frameHeight, int height, int position) {
    return {frameHeight, height, (frameHeight + height - 1) / height, position};
}

/// Bands never meet: the upper ones fall no further than the lower ones. The second input shows in
/// the gaps. A plane of half height rounds the landing rows down.
void DrawBands(const Plane &plane, const Bands &bands) {
    int next = 0;
    for (int k = 0; k < bands.count; ++k) {
        const int row = bands.RowOf(k);
        const int rows = bands.RowsLeft(k, row);
        if (rows < 1)
            continue;
        const int target = row / plane.rowStep;
        const int count = plane.RowsFor(rows);
        plane.CopyRows(Input::Two, next, next, target - next);
        plane.CopyRows(Input::One, target, plane.RowsFor(k * bands.height), count);
        next = target + count;
    }
    plane.CopyRows(Input::Two, next, next, plane.height - next);
}

} // namespace

void TrDrop(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PlanarFrames frames(out, in1, in2);
    constexpr int bandHeight = 32;
    const int position = Position(eased, 2 * frames.height, total);
    const Bands bands = MakeBands(frames.height, bandHeight, position);
    DrawPlanes(frames, [&](const Plane &plane) { DrawBands(plane, bands); });
}

void TrDropRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const PackedFrames frames(out, in1, in2);
    const int bandHeight = std::max(Convert(32 * frames.height / 360.0), 1);
    const int position = Position(param->dCurrent, 2 * frames.height, param->dTotal);
    const Bands bands = MakeBands(frames.height, bandHeight, position);
    DrawPlanes(frames, [&](const Plane &plane) { DrawBands(plane, bands); });
}

// ---------------------------------------------------------------------------------------------
// Blind: slats from the picture's last row upward, ever more and ever thinner, with an ever smaller
// part of the first input
// ---------------------------------------------------------------------------------------------

namespace {

struct Slats {
    bool isOver; ///< only the second input is left
    int height;
    int part; ///< rows of the first input in a slat, its lower ones
};

Slats MakeSlats(double total, double eased, int frameHeight) {
    const double percent = eased / total * 100;
    if (percent > 99.999)
        return {true, 0, 0};
    const int height = Convert(frameHeight * (100 - percent) / 100);
    const int part = Convert((100 - percent) * height / 100);
    return {false, height, Limit(part, 0, std::max(height, 0))};
}

void DrawSlats(const Plane &plane, const Slats &slats, int frameHeight) {
    int base = frameHeight - 1;
    do {
        const int split = base - slats.part + 1;
        const int end = base - slats.height + 1;
        const int first = plane.RowsFor(std::max(end, 1));
        const int middle = plane.RowsFor(std::max(split, 1));
        plane.CopyRows(Input::One, middle, middle, plane.RowsFor(base + 1) - middle);
        plane.CopyRows(Input::Two, first, first, middle - first);
        // Rows above the picture fall on row 0, so it shows what the topmost of them does. A slat
        // that ends at row 1 leaves row 0 as it was.
        if (end <= 0) {
            const int topmost = end + (end & (plane.rowStep - 1));
            plane.CopyRows(topmost >= split ? Input::One : Input::Two, 0, 0, 1);
        }
        base -= slats.height;
    } while (base > 0);
}

/// False when there is no slat to draw.
template<class Frames>
bool DrawBlind(const Frames &frames, const Slats &slats) {
    if (slats.height < 1 || frames.height - 1 < 1)
        return false;
    DrawPlanes(frames, [&](const Plane &plane) { DrawSlats(plane, slats, frames.height); });
    return true;
}

} // namespace

void TrBlind(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PlanarFrames frames(out, in1, in2);
    const Slats slats = MakeSlats(total, eased, frames.height);
    if (slats.isOver)
        frames.CopyPlanes(Input::Two);
    else
        DrawBlind(frames, slats);
}

void TrBlindRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PackedFrames frames(out, in1, in2);
    const Slats slats = MakeSlats(total, eased, frames.height);
    // Unlike the planar path, which leaves the output as it was, slats too thin to draw show the
    // second input.
    if (slats.isOver || (!DrawBlind(frames, slats) && slats.height == 0))
        frames.CopyPicture(Input::Two);
}

// ---------------------------------------------------------------------------------------------
// Wind: the first input is pushed out to the right, each pair of rows by a different random amount
// ---------------------------------------------------------------------------------------------

namespace {

/// The split column of the next pair of rows: even, and at random from the edge to about one and a
/// half times the edge, for rand() covers half of the divisor's range. Cut to the bound.
int WindSplit(int edge, int bound) {
    const double random = static_cast<std::uint32_t>(std::rand()) / 4294967295.0;
    const int gust = Convert(random * edge + 0.5);
    return Limit((gust + edge) / 2 * 2, 0, bound);
}

/// Draws a row of bytes: the second input in place before the split, then the first input's bytes
/// from its start. A streamed row is put together in scratch.
void BlowRow(const Triple &target, std::ptrdiff_t split, std::ptrdiff_t bytes,
             const ScratchRow &scratch) {
    Triple row = target;
    if (target.IsStreamed())
        row.Redirect(scratch.For(target.out));
    row.Copy(Input::Two, 0, split);
    row.CopyFrom(Input::One, 0, split, bytes);
    if (target.IsStreamed())
        CopyStreaming(target.out, row.out, bytes);
}

} // namespace

void TrWind(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PlanarFrames frames(out, in1, in2);
    const int edge = Position(eased, frames.width, total);
    const ScratchRow scratch(std::max(frames.pitchY, frames.pitchUV));
    for (int y = 0; y < frames.height; y += 2) {
        // Padding takes part: the bound is the pitch, and rows are drawn over all of it.
        const int split = WindSplit(edge, static_cast<int>(frames.pitchY));
        const PlanarRow row = frames.Row(y);
        BlowRow(row.luma, split, frames.pitchY, scratch);
        if (y + 1 < frames.height)
            BlowRow(frames.Row(y + 1).luma, split, frames.pitchY, scratch);
        BlowRow(row.cb, split / 2, frames.pitchUV, scratch);
        BlowRow(row.cr, split / 2, frames.pitchUV, scratch);
    }
}

void TrWindRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PackedFrames frames(out, in1, in2);
    const int edge = Position(eased, frames.width, total);
    const ScratchRow scratch(frames.Pitch());
    for (int y = 0; y < frames.height; y += 2) {
        const std::ptrdiff_t split = std::ptrdiff_t(WindSplit(edge, frames.width)) * 4;
        BlowRow(frames.Row(y).bytes, split, frames.Pitch(), scratch);
        if (y + 1 < frames.height)
            BlowRow(frames.Row(y + 1).bytes, split, frames.Pitch(), scratch);
    }
}

// ---------------------------------------------------------------------------------------------
// Push: the second input slides in from the left and pushes the first out to the right
// ---------------------------------------------------------------------------------------------

namespace {

template<class Frames>
void DrawPush(const Frames &frames, double progress, double total) {
    const int split = Limit(Position(progress, frames.width, total), 0, frames.width);
    frames.DrawRows([&](const auto &row, int) {
        row.CopyFrom(Input::Two, frames.width - split, 0, split);
        row.CopyFrom(Input::One, 0, split, frames.width);
    });
}

struct Size {
    int width;
    int height;
};

Size SizeOf(void *image) {
    return {DIGetWidth(image), DIGetHeight(image)};
}

const wchar_t *FileName(const wchar_t *path) {
    const wchar_t *separator = std::wcsrchr(path, L'\\');
    if (!separator)
        separator = std::wcsrchr(path, L'/');
    return separator ? separator + 1 : path;
}

void LogUnequalSizes(Size size1, Size size2) {
    constexpr int level = 64;
    // Readers of logs know the message by this line, wherever the check stands by now.
    constexpr int line = 4102;
    VeskLogger *logger = VeskGetDefaultLogger();
    if (!logger || !logger->IsEnabled(level))
        return;
    logger->Log(level, L"TrPushRGB input size not equal,input1:[%d, %d],input2:[%d,%d]  [%ls, %d]",
                size1.width, size1.height, size2.width, size2.height, FileName(kRegistrySource),
                line);
}

} // namespace

void TrPush(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    DrawPush(PlanarFrames(out, in1, in2), eased, total);
}

void TrPushRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const Size size = SizeOf(out);
    const Size size1 = SizeOf(in1);
    const Size size2 = SizeOf(in2);
    // Pixel counts alone: a frame and its turned twin pass.
    if (size1.width * size1.height != size2.width * size2.height) {
        LogUnequalSizes(size1, size2);
        return;
    }
    const PackedFrames frames(size.width, size.height, size.width * 4, out, in1, in2);
    DrawPush(frames, param->dCurrent, param->dTotal);
}

// ---------------------------------------------------------------------------------------------
// The eased variants: the wrapped transition eases once more what it is given
// ---------------------------------------------------------------------------------------------

void TrEraseShift(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                  const TransParam *param) {
    StoreEased(*param);
    TrErase(out, in1, in2, &gAdjustParam);
}

void TrBarShift(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    StoreEased(*param);
    TrBar(out, in1, in2, &gAdjustParam);
}

void TrDropShift(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    StoreEased(*param);
    TrDrop(out, in1, in2, &gAdjustParam);
}
