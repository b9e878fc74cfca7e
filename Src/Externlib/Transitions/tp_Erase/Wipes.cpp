// Wipes and slides: every pixel but those of Erase's soft edge is a copy of one input.

#include "BlendRows.h"
#include "Frames.h"
#include "Pixels.h"
#include "Progress.h"
#include "Registry.h"
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

/// The soft edge of one frame, cut to it: columns before it show the second input, columns behind
/// it the first, and in between the weight of the second falls to 0 at column `zero`. Where begin
/// lies beyond end (a position that wrapped) the columns before begin win.
struct SoftEdge : Span {
    int zero;

    SoftEdge(int first, int last, int width, int zeroColumn) : zero(zeroColumn) {
        begin = Limit(first, 0, width);
        end = Limit(last, begin, width);
    }
};

void DrawEdge(const Frames &frames, const SoftEdge &edge, decltype(BlendKernels::blendYuv) blend) {
    for (const Plane &plane : frames.Planes()) {
        std::array<std::uint8_t, std::size_t(kBandWidth) * 4> weights;
        const std::ptrdiff_t begin = plane.Bytes(edge.begin);
        const std::ptrdiff_t count = plane.Bytes(edge.end) - begin;
        auto *next = weights.data();
        for (int x = plane.Samples(edge.begin) * plane.step; x < edge.end; x += plane.step)
            for (int i = 0; i < plane.sampleBytes; ++i)
                *next++ = static_cast<std::uint8_t>(RampWeight(edge.zero - x));
        DrawRows(plane, [&](const Row &row) {
            const Place band = row.At(begin);
            row.Show(Input::Two, 0, edge.begin);
            blend(band.out, band.in2, band.in1, weights.data(), count);
            row.Show(Input::One, edge.end, row.columns);
        });
    }
}

void DrawErase(const Frames &frames, Progress progress) {
    const int position = progress.On(frames.width + kBandWidth);
    const SoftEdge edge(position - kBandWidth, position, frames.width, position);
    DrawEdge(frames, edge, BlendRows().blendYuv);
}

} // namespace

void TrErase(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    DrawErase({out, in1, in2}, Eased(ProgressOf(*param)));
}

void TrEraseRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const Frames frames(out, in1, in2);
    const int position = ProgressOf(*param).On(frames.width + kBandWidth);
    const int begin = position - kBandWidth;
    // Nothing of the incoming frame shows until the whole band has entered.
    if (begin <= 0) {
        frames.CopyWhole(Input::One);
        return;
    }
    // Past the right border the ramp is measured from the border, so its last column keeps
    // weight 2.
    const int end = std::min(position, frames.width);
    DrawEdge(frames, {begin, end, frames.width, end}, BlendRows().blendRgb);
}

// ---------------------------------------------------------------------------------------------
// Erase_slide: a hard vertical edge. The planar path slides the second input in from the left over
// the first; the packed path uncovers it where it lies
// ---------------------------------------------------------------------------------------------

namespace {

/// Shows the second input before a column and the first one from there on, both in place.
inline void ShowSeam(const Row &row, int column) {
    const std::ptrdiff_t split = row.Bytes(Limit(column, 0, row.columns));
    row.Copy(Input::Two, 0, split);
    row.Copy(Input::One, split, row.VisibleBytes());
}

} // namespace

void TrEraseSlide(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                  const TransParam *param) {
    const Progress progress = Eased(ProgressOf(*param));
    const Frames frames(out, in1, in2);
    const int edge = Limit(progress.On(frames.width), 0, frames.width);
    DrawRows(frames, [&](const Row &row) {
        row.Show(Input::Two, 0, edge, row.columns - edge);
        row.Show(Input::One, edge, row.columns);
    });
}

void TrEraseSlideRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const Progress progress = Eased(ProgressOf(*param));
    const Frames frames(out, in1, in2);
    const int edge = progress.On(frames.width);
    DrawRows(frames, [&](const Row &row) { ShowSeam(row, edge); });
}

// ---------------------------------------------------------------------------------------------
// Bar: a hard edge in bars, each a bar's height behind the one above
// ---------------------------------------------------------------------------------------------

namespace {

constexpr int kBarHeight = 32;

void DrawBar(const Frames &frames, Progress progress) {
    const int bars = (frames.height + kBarHeight - 1) / kBarHeight;
    const int way = kBarHeight * (bars + (frames.width + kBarHeight - 1) / kBarHeight);
    const int position = progress.On(way);
    DrawRows(frames, [&](const Row &row) { ShowSeam(row, position - (row.y & -kBarHeight)); });
}

} // namespace

void TrBar(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    DrawBar({out, in1, in2}, Eased(ProgressOf(*param)));
}

void TrBarRGB(void *out, void *in1, void *in2, const TransParam *param) {
    DrawBar({out, in1, in2, RowOrder::BottomUp}, ProgressOf(*param));
}

// ---------------------------------------------------------------------------------------------
// Drop: bands of the first input fall out of the picture, the lowest one first. Whole rows are
// copied, padding included
// ---------------------------------------------------------------------------------------------

namespace {

/// The bands of one frame.
struct Bands {
    int frameHeight;
    int height; ///< of a band
    int count;
    int position; ///< 0 to twice the frame's height

    Bands(int frameHeight, int height, Progress progress)
        : frameHeight(frameHeight), height(height), count((frameHeight + height - 1) / height),
          position(progress.On(2 * frameHeight)) {}

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
        plane.CopyRows(Input::Two, next, next, target - next);
        plane.CopyRows(Input::One, target, plane.Samples(k * bands.height), count);
        next = target + count;
    }
    plane.CopyRows(Input::Two, next, next, plane.rows - next);
}

void DrawDrop(const Frames &frames, int bandHeight, Progress progress) {
    const Bands bands(frames.height, bandHeight, progress);
    for (const Plane &plane : frames.Planes())
        DrawBands(plane, bands);
}

constexpr int kBandHeight = 32;

} // namespace

void TrDrop(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    DrawDrop({out, in1, in2}, kBandHeight, Eased(ProgressOf(*param)));
}

void TrDropRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const Frames frames(out, in1, in2, RowOrder::BottomUp);
    const int bandHeight = std::max(Convert(kBandHeight * frames.height / 360.0), 1);
    DrawDrop(frames, bandHeight, ProgressOf(*param));
}

// ---------------------------------------------------------------------------------------------
// Blind: slats from the picture's last row upward, ever more and ever thinner, with an ever smaller
// part of the first input. Whole rows are copied, padding included
// ---------------------------------------------------------------------------------------------

namespace {

struct Slats {
    bool isOver; ///< only the second input is left
    int height;
    int part; ///< rows of the first input in a slat, its lower ones
};

Slats MakeSlats(Progress progress, int frameHeight) {
    const double percent = progress.Fraction() * 100;
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
        plane.CopyRows(Input::One, middle, middle, plane.Samples(base + 1) - middle);
        plane.CopyRows(Input::Two, first, first, middle - first);
        // Rows above the picture fall on row 0, so it shows what the topmost of them does. A slat
        // that ends at row 1 leaves row 0 as it was.
        if (end <= 0) {
            const int topmost = end + (end & (plane.step - 1));
            plane.CopyRows(topmost >= split ? Input::One : Input::Two, 0, 0, 1);
        }
        base -= slats.height;
    } while (base > 0);
}

/// What is drawn where a frame has no slat: nothing in the planar path, which leaves the output as
/// it was, but the second input in the packed one.
void DrawBlind(const Frames &frames, Progress progress, bool showsTooThinSlats) {
    const Slats slats = MakeSlats(progress, frames.height);
    if (slats.isOver || (showsTooThinSlats && slats.height == 0))
        frames.CopyWhole(Input::Two);
    else if (slats.height > 0 && frames.height > 1)
        for (const Plane &plane : frames.Planes())
            DrawSlats(plane, slats, frames.height);
}

} // namespace

void TrBlind(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    DrawBlind({out, in1, in2}, Eased(ProgressOf(*param)), false);
}

void TrBlindRGB(void *out, void *in1, void *in2, const TransParam *param) {
    DrawBlind({out, in1, in2, RowOrder::BottomUp}, Eased(ProgressOf(*param)), true);
}

// ---------------------------------------------------------------------------------------------
// Wind: the first input is pushed out to the right, each pair of rows by a different random amount
// ---------------------------------------------------------------------------------------------

namespace {

/// The split columns of the pairs of rows: even, and at random from the edge to about one and a
/// half times the edge, for rand() covers half of the divisor's range. Cut to the bound.
std::vector<int> WindSplits(int height, int edge, int bound) {
    std::vector<int> splits(static_cast<std::size_t>(std::max(HalfUp(height), 0)));
    for (int &split : splits) {
        const double random = static_cast<std::uint32_t>(std::rand()) / 4294967295.0;
        const int gust = Convert(random * edge + 0.5);
        split = Limit((gust + edge) / 2 * 2, 0, bound);
    }
    return splits;
}

/// Rows are drawn over all of their bytes: in planar ones the split runs on into the padding.
void DrawWind(const Frames &frames, Progress progress) {
    const Plane &first = frames.Planes().front();
    const std::vector<int> splits = WindSplits(frames.height, progress.On(frames.width),
                                               static_cast<int>(first.pitch / first.sampleBytes));
    DrawRows(frames, [&](const Row &row) {
        const int column = splits[static_cast<std::size_t>(row.y >> 1)];
        const std::ptrdiff_t split = std::min(row.Bytes(column & -row.step), row.pitch);
        row.Copy(Input::Two, 0, split);
        CopyBytes(row.out + split, row.in1, row.pitch - split);
    });
}

} // namespace

void TrWind(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    DrawWind({out, in1, in2}, Eased(ProgressOf(*param)));
}

void TrWindRGB(void *out, void *in1, void *in2, const TransParam *param) {
    DrawWind({out, in1, in2}, Eased(ProgressOf(*param)));
}

// ---------------------------------------------------------------------------------------------
// Push: the second input slides in from the left and pushes the first out to the right
// ---------------------------------------------------------------------------------------------

namespace {

void DrawPush(const Frames &frames, Progress progress) {
    const int split = Limit(progress.On(frames.width), 0, frames.width);
    DrawRows(frames, [&](const Row &row) {
        row.Show(Input::Two, 0, split, row.columns - split);
        row.Show(Input::One, split, row.columns, 0);
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
    DrawPush({out, in1, in2}, Eased(ProgressOf(*param)));
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
    DrawPush({size.width, size.height, size.width * 4, out, in1, in2, RowOrder::Memory},
             ProgressOf(*param));
}

// ---------------------------------------------------------------------------------------------
// The eased variants: what the wrapped transition is given is eased once more
// ---------------------------------------------------------------------------------------------

void TrEraseShift(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                  const TransParam *param) {
    DrawErase({out, in1, in2}, Eased(Eased(ProgressOf(*param))));
}

void TrBarShift(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    DrawBar({out, in1, in2}, Eased(Eased(ProgressOf(*param))));
}

void TrDropShift(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    DrawDrop({out, in1, in2}, kBandHeight, Eased(Eased(ProgressOf(*param))));
}
