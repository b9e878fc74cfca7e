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
#include <vector>

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

/// Weights of the second input over the visible bytes of a soft edge, whose ramp falls to 0 at
/// column zero.
struct EdgeWeights {
    std::array<std::uint8_t, std::size_t(kBandWidth) * 4> weights;

    EdgeWeights(const Plane &plane, SoftEdge edge, int zero) {
        auto *next = weights.data();
        for (int x = (edge.begin + plane.step - 1) & -plane.step; x < edge.end; x += plane.step)
            for (int i = 0; i < plane.sampleBytes; ++i)
                *next++ = static_cast<std::uint8_t>(RampWeight(zero - x));
    }
};

/// A soft edge cut to the frame. Where begin lies beyond end (a position that wrapped) the columns
/// before begin win.
SoftEdge VisibleEdge(int begin, int end, int width) {
    begin = Limit(begin, 0, width);
    return {begin, Limit(end, begin, width)};
}

template<class Frames, class BlendRow>
void DrawEdge(const Frames &frames, SoftEdge edge, int zero, BlendRow blendRow) {
    frames.DrawPlanes([&](const Plane &plane) {
        const EdgeWeights weights(plane, edge, zero);
        const ByteSpan span = {plane.Bytes(edge.begin), plane.Bytes(edge.end)};
        DrawSpans(
            plane, [&](int) { return span; },
            [&](const Triple &row, int, ByteSpan) {
                const Triple at = row.At(span.begin);
                blendRow(at.out, at.in2, at.in1, weights.weights.data(), span.end - span.begin);
            });
    });
}

} // namespace

void TrErase(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PlanarFrames frames(out, in1, in2);
    const int position = Position(eased, frames.width + kBandWidth, total);
    const SoftEdge edge = VisibleEdge(position - kBandWidth, position, frames.width);
    DrawEdge(frames, edge, position, Rows().blendYuv);
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
    DrawEdge(frames, edge, edge.end, Rows().blendRgb);
}

// ---------------------------------------------------------------------------------------------
// Erase_slide: a hard vertical edge. The planar path slides the second input in from the left over
// the first; the packed path uncovers it where it lies
// ---------------------------------------------------------------------------------------------

namespace {

/// A hard edge in one row: the second input's columns from source2 on before split, the first
/// input's from source1 on behind. All lie inside the frame.
struct Seam {
    int split;
    int source2;
    int source1;
};

/// The inputs meet in place, at a column cut to the frame.
Seam SeamInPlace(int column, int width) {
    const int split = Limit(column, 0, width);
    return {split, 0, split};
}

/// Draws every row y of the frame as seamOf(y) tells. The chroma of an even column comes from half
/// its source column, rounded down.
template<class Frames, class SeamOf>
void DrawSeams(const Frames &frames, SeamOf seamOf) {
    frames.DrawPlanes([&](const Plane &plane) {
        const auto source = [&](int column) {
            return std::ptrdiff_t(plane.step == 1 ? column : column >> 1) * plane.sampleBytes;
        };
        for (int y = 0; y < plane.height && plane.rowBytes > 0; ++y) {
            const Seam seam = seamOf(y * plane.step);
            const int source1 = seam.source1 + (seam.split & (plane.step - 1));
            plane.Row(y).Join(plane.Bytes(seam.split), source(seam.source2), source(source1),
                              plane.rowBytes);
        }
    });
}

} // namespace

void TrEraseSlide(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                  const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PlanarFrames frames(out, in1, in2);
    const int edge = Limit(Position(eased, frames.width, total), 0, frames.width);
    DrawSeams(frames, [&](int) { return Seam{edge, frames.width - edge, edge}; });
}

void TrEraseSlideRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PackedFrames frames(out, in1, in2);
    const int edge = Position(eased, frames.width, total);
    DrawSeams(frames, [&](int) { return SeamInPlace(edge, frames.width); });
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
    DrawSeams(frames, [&](int y) { return SeamInPlace(BarEdge(position, y), frames.width); });
}

void TrBarRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const PackedFrames frames(out, in1, in2);
    const int span = BarSpan(frames.width, frames.height);
    const int position = Position(param->dCurrent, span, param->dTotal);
    DrawSeams(frames, [&](int y) {
        return SeamInPlace(BarEdge(position, frames.height - 1 - y), frames.width);
    });
}

// ---------------------------------------------------------------------------------------------
// Planes drawn in blocks of whole rows, padding included: Drop and Blind
// ---------------------------------------------------------------------------------------------

namespace {

/// Shows `count` of an input's rows of the picture, from row `source` on, at row `target`.
void CopyRows(const Plane &plane, Input input, int target, int source, int count) {
    if (count < 1)
        return;
    const auto offset = [&](int row) {
        return (plane.bottomUp ? plane.height - row - count : row) * plane.pitch;
    };
    const std::ptrdiff_t begin = offset(target);
    plane.bytes.CopyFrom(input, offset(source), begin, begin + count * plane.pitch);
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
        const int target = row / plane.step;
        const int count = plane.Samples(rows);
        CopyRows(plane, Input::Two, next, next, target - next);
        CopyRows(plane, Input::One, target, plane.Samples(k * bands.height), count);
        next = target + count;
    }
    CopyRows(plane, Input::Two, next, next, plane.height - next);
}

} // namespace

void TrDrop(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PlanarFrames frames(out, in1, in2);
    constexpr int bandHeight = 32;
    const int position = Position(eased, 2 * frames.height, total);
    const Bands bands = MakeBands(frames.height, bandHeight, position);
    frames.DrawPlanes([&](const Plane &plane) { DrawBands(plane, bands); });
}

void TrDropRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const PackedFrames frames(out, in1, in2);
    const int bandHeight = std::max(Convert(32 * frames.height / 360.0), 1);
    const int position = Position(param->dCurrent, 2 * frames.height, param->dTotal);
    const Bands bands = MakeBands(frames.height, bandHeight, position);
    frames.DrawPlanes([&](const Plane &plane) { DrawBands(plane, bands); });
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
        const int first = plane.Samples(std::max(end, 1));
        const int middle = plane.Samples(std::max(split, 1));
        CopyRows(plane, Input::One, middle, middle, plane.Samples(base + 1) - middle);
        CopyRows(plane, Input::Two, first, first, middle - first);
        // Rows above the picture fall on row 0, so it shows what the topmost of them does. A slat
        // that ends at row 1 leaves row 0 as it was.
        if (end <= 0) {
            const int topmost = end + (end & (plane.step - 1));
            CopyRows(plane, topmost >= split ? Input::One : Input::Two, 0, 0, 1);
        }
        base -= slats.height;
    } while (base > 0);
}

/// False when there is no slat to draw.
template<class Frames>
bool DrawBlind(const Frames &frames, const Slats &slats) {
    if (slats.height < 1 || frames.height - 1 < 1)
        return false;
    frames.DrawPlanes([&](const Plane &plane) { DrawSlats(plane, slats, frames.height); });
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

/// The split columns of the pairs of rows from the first one on: even, and at random from the edge
/// to about one and a half times the edge, for rand() covers half of the divisor's range. Cut to
/// the bound. All are drawn before the first row: rand() takes a lock, which would wait for rows
/// on their way past the caches.
std::vector<int> WindSplits(int height, int edge, int bound) {
    std::vector<int> splits(static_cast<std::size_t>(std::max(HalfUp(height), 0)));
    for (int &split : splits) {
        const double random = static_cast<std::uint32_t>(std::rand()) / 4294967295.0;
        const int gust = Convert(random * edge + 0.5);
        split = Limit((gust + edge) / 2 * 2, 0, bound);
    }
    return splits;
}

/// Rows are drawn over all of their bytes, padding included.
template<class Frames>
void DrawWind(const Frames &frames, const std::vector<int> &splits) {
    frames.DrawPlanes([&](const Plane &plane) {
        for (int y = 0; y < plane.height; ++y) {
            const int split = splits[static_cast<std::size_t>(y * plane.step / 2)];
            const std::ptrdiff_t bytes = std::ptrdiff_t(split / plane.step) * plane.sampleBytes;
            plane.Row(y).Join(bytes, 0, 0, plane.pitch);
        }
    });
}

} // namespace

void TrWind(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PlanarFrames frames(out, in1, in2);
    const int edge = Position(eased, frames.width, total);
    // The split runs on into the padding.
    DrawWind(frames, WindSplits(frames.height, edge, static_cast<int>(frames.pitchY)));
}

void TrWindRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PackedFrames frames(out, in1, in2);
    const int edge = Position(eased, frames.width, total);
    DrawWind(frames, WindSplits(frames.height, edge, frames.width));
}

// ---------------------------------------------------------------------------------------------
// Push: the second input slides in from the left and pushes the first out to the right
// ---------------------------------------------------------------------------------------------

namespace {

template<class Frames>
void DrawPush(const Frames &frames, double progress, double total) {
    const int split = Limit(Position(progress, frames.width, total), 0, frames.width);
    DrawSeams(frames, [&](int) { return Seam{split, frames.width - split, 0}; });
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
