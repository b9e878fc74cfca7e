// Linear Wipe and Flash: the transitions that are blends over much of the frame.

#include "BlendRows.h"
#include "CopyRows.h"
#include "Frames.h"
#include "Pixels.h"
#include "Progress.h"
#include "tp_Erase.h"

#include <array>
#include <vector>

using namespace tp;

// ---------------------------------------------------------------------------------------------
// Linear Wipe: a soft front at 45 degrees, from the picture's top left corner to the other. A pixel
// lies behind it by a distance counted along rows and columns, so the columns of a row differ from
// those of the row above by one place
// ---------------------------------------------------------------------------------------------

namespace {

constexpr int kFrontDepth = 400;

/// The depth behind the front, perpendicular to it, at a distance along rows and columns.
constexpr int FrontDepthAt(int distance) {
    return Convert(static_cast<float>(distance) * 0.70710677F);
}

/// The distances that are blended in the planar path: at the first the second input's weight is
/// still below full, at the last already above 0. Beyond, the blend gives either input exactly.
constexpr int kFirstDistance = 565;
constexpr int kLastDistance = 2;
static_assert(FrontDepthAt(kFirstDistance) == kFrontDepth - 1 &&
              FrontDepthAt(kFirstDistance + 1) == kFrontDepth);
static_assert(FrontDepthAt(kLastDistance) == 1 && FrontDepthAt(kLastDistance - 1) == 0);

constexpr std::size_t kFrontColumns = kFirstDistance - kLastDistance + 1;

/// Weights of the second input from column to column of a row, at every column and at every second
/// one from an even and from an odd place on.
struct FineWeights {
    std::array<float, kFrontColumns> all{};
    std::array<std::array<float, (kFrontColumns + 1) / 2>, 2> second{};

    constexpr FineWeights() {
        for (std::size_t i = 0; i < kFrontColumns; ++i) {
            const int depth = FrontDepthAt(kFirstDistance - static_cast<int>(i));
            all[i] = static_cast<float>(depth * 255.0 / kFrontDepth);
            second[i & 1][i >> 1] = all[i];
        }
    }
};
constexpr FineWeights kFineWeights;

/// The weights from a place of the blend on, at every `step`th column.
const float *FineWeightsFrom(int place, int step) {
    if (step == 1)
        return kFineWeights.all.data() + place;
    return kFineWeights.second[std::size_t(place & 1)].data() + (place >> 1);
}

/// The packed path's weights, four times each.
struct CoarseWeights {
    std::array<std::uint8_t, kFrontColumns * 4> bytes{};

    constexpr CoarseWeights() {
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<std::uint8_t>(181 * (kFirstDistance - static_cast<int>(i >> 2)) /
                                                 kFrontDepth);
    }
};
constexpr CoarseWeights kCoarseWeights;

/// How far the front of one frame has come along rows and columns.
struct Front {
    int width;
    int reach;

    Front(const Frames &frames, Progress progress) : width(frames.width) {
        const int way = Convert(static_cast<float>(width + frames.height) + 565.6854F);
        // What lies beyond both ends of the way shows one input alone.
        reach = Limit(Convert(static_cast<double>(way) * progress.Fraction()), 0, way);
    }

    /// The column of a row at which the blend would start in an endless frame.
    int FirstColumn(int y) const { return reach - y - kFirstDistance; }
    /// The columns of a row that are blended, cut to the frame.
    Span Blended(int y) const {
        const int begin = Limit(FirstColumn(y), 0, width);
        return {begin, Limit(reach - y - kLastDistance + 1, begin, width)};
    }
};

/// Asks for both inputs' bytes [begin, end) of the next row in memory: the machine foresees how a
/// row goes on, not where the blend in it begins.
void AskForNext(const Row &row, std::ptrdiff_t begin, std::ptrdiff_t end) {
    constexpr std::ptrdiff_t cacheLine = 64;
    for (std::ptrdiff_t i = begin + row.pitch; i < end + row.pitch; i += cacheLine) {
        __builtin_prefetch(row.in1 + i);
        __builtin_prefetch(row.in2 + i);
    }
}

} // namespace

void TrLinearWipe(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                  const TransParam *param) {
    const Frames frames(out, in1, in2);
    const Front front(frames, ProgressOf(*param));
    DrawRows(frames, [&](const Row &row) {
        const Span span = front.Blended(row.y);
        const int step = row.step;
        const std::ptrdiff_t begin = row.Bytes(span.begin);
        const Place band = row.At(begin);
        row.Show(Input::Two, 0, span.begin);
        AskForNext(row, begin, row.Bytes(span.end));
        if (!span.IsEmpty()) {
            const int place = span.begin + (span.begin & (step - 1)) - front.FirstColumn(row.y);
            BlendRows().blendFine(band.out, band.in2, band.in1, FineWeightsFrom(place, step),
                                  row.Bytes(span.end) - begin);
        }
        row.Show(Input::One, span.end, row.columns);
    });
}

void TrLinearWipeRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const int width = DIGetWidth(out);
    const int height = DIGetHeight(out);
    const int pitch = DIGetPitch(out);
    const Frames frames(width, height, pitch, out, in1, in2, RowOrder::BottomUp);
    const Front front(frames, ProgressOf(*param));
    // At weight 0 a blend still darkens.
    const std::vector<std::uint8_t> ahead(static_cast<std::size_t>(std::max(width, 0)) * 4);
    DrawRows(frames, [&](const Row &row) {
        const Span span = front.Blended(row.y);
        const std::ptrdiff_t begin = row.Bytes(span.begin), end = row.Bytes(span.end);
        const Place band = row.At(begin), rest = row.At(end);
        row.Show(Input::Two, 0, span.begin);
        AskForNext(row, begin, end);
        if (!span.IsEmpty()) {
            const int place = (span.begin - front.FirstColumn(row.y)) * 4;
            BlendRows().blendSum(band.out, band.in2, band.in1, kCoarseWeights.bytes.data() + place,
                                 end - begin);
        }
        // Rows that the whole band has entered are blended to their end, at weight 0 ahead of it.
        // Where rows are longer than what is visible of them, the rest shows the first input.
        std::ptrdiff_t blended = end;
        if (front.FirstColumn(row.y) >= 0) {
            blended = row.VisibleBytes();
            BlendRows().blendSum(rest.out, rest.in2, rest.in1, ahead.data(), blended - end);
        }
        row.Copy(Input::One, blended, row.pitch);
    });
}

// ---------------------------------------------------------------------------------------------
// Flash: a cross-fade in the middle of a flash of light, which brightens up to threefold
// ---------------------------------------------------------------------------------------------

namespace {

/// What one frame shows before it is brightened.
struct FlashBase {
    bool isBlend;
    Input input;          ///< if it is no blend
    std::uint8_t weight1; ///< of the first input if it is
};

FlashBase BaseAt(double progress) {
    if (progress < 0.3)
        return {false, Input::One, 0};
    if (progress < 0.7)
        return {true, Input::One,
                static_cast<std::uint8_t>(Convert((0.7 - progress) / 0.4 * 255.0))};
    return {false, Input::Two, 0};
}

double RisingGain(double progress) {
    return progress * 4.0 + 1.0;
}

double FallingGain(double progress) {
    return (1.0 - progress) * 4.0 + 1.0;
}

/// A byte for every byte.
using ByteMap = std::array<std::uint8_t, 256>;

/// How a flash of light brightens bytes: 10 is added and the sum multiplied. The packed path's sums
/// reach 265; the planar path's wrap around at 256, so that its brightest samples turn dark.
struct Flash {
    double gain;
    bool wraps;
};

/// The brightened bytes.
void FillMap(ByteMap &map, Flash flash) {
    for (int i = 0; i < 256; ++i) {
        const int sum = flash.wraps ? (i + 10) & 0xff : i + 10;
        map[std::size_t(i)] = static_cast<std::uint8_t>(Convert(std::min(255.0, sum * flash.gain)));
    }
}

/// Brightens bytes as a map says, by arithmetic in place of look-ups if that is exact.
///
/// The multipliers that truncate to the same products as the gain form an interval around it. Its
/// ends are fractions of two sums, product / sum and (product + 1) / sum, of which only those up to
/// the first product of 255 count, so that the interval is at least 1 / (255 * 255) wide. That is
/// more than the 1 / 65536 from one multiplier of the kernel to the next, and so the one below the
/// gain or the one above it lies inside. The map itself serves where that does not hold: gains
/// below 1, which come from positions outside the transition and from rounding at its end, and the
/// few in a million whose products are sometimes rounded up to a whole number and sometimes not.
class Brightener {
public:
    Brightener(const ByteMap &map, Flash flash) : map(map) {
        for (const int step : {0, 1}) {
            const int fixed = Convert(flash.gain * 65536) + step;
            kernel = {static_cast<std::uint8_t>(flash.wraps ? 255 : 245),
                      static_cast<std::uint8_t>(fixed >> 16), static_cast<std::uint8_t>(fixed >> 8),
                      static_cast<std::uint8_t>(fixed)};
            isExact = fixed >= 0 && fixed < 4 << 16 && Agrees();
            if (isExact)
                return;
        }
    }

    void Brighten(std::uint8_t *out, const std::uint8_t *in, std::ptrdiff_t count) const {
        if (isExact) {
            BlendRows().brighten(out, in, count, kernel);
            return;
        }
        for (std::ptrdiff_t i = 0; i < count; ++i)
            out[i] = map[in[i]];
    }

private:
    bool Agrees() const {
        bool agrees = true;
        for (std::size_t i = 0; i < map.size(); ++i)
            agrees &= tp::Brighten(static_cast<std::uint8_t>(i), kernel) == map[i];
        return agrees;
    }

    const ByteMap &map;
    Gain kernel{};
    bool isExact = false;
};

/// One frame of a flash: shows the inputs' base, brightens it.
class FlashPainter {
public:
    FlashPainter(FlashBase flashBase, const Brightener &brightener, std::ptrdiff_t rowBytes)
        : base(flashBase), light(brightener), weights(Room(rowBytes), base.weight1),
          faded(Room(rowBytes)) {}

    /// Draws the base of `count` bytes.
    void Show(const Row &row, std::uint8_t *to, std::ptrdiff_t count) const {
        const bool isPacked = row.kind == Plane::Packed;
        if (!base.isBlend)
            CopyBytes(to, row.From(base.input), count);
        else if (isPacked)
            BlendRows().blendRgb(to, row.in1, row.in2, weights.data(), count);
        else
            BlendRows().blendYuv(to, row.in1, row.in2, weights.data(), count);
        // A blend of pixels takes the fourth byte from the first input.
        if (base.isBlend && isPacked)
            CopyRows().copyFourth(to, row.in1, count / 4);
    }
    void Brighten(const Row &row, std::ptrdiff_t count) {
        if (base.isBlend)
            Show(row, faded.data(), count);
        light.Brighten(row.out, base.isBlend ? faded.data() : row.From(base.input), count);
    }

private:
    std::size_t Room(std::ptrdiff_t rowBytes) const {
        return base.isBlend ? static_cast<std::size_t>(std::max<std::ptrdiff_t>(rowBytes, 0)) : 0;
    }

    const FlashBase base;
    const Brightener &light;
    const std::vector<std::uint8_t> weights;
    std::vector<std::uint8_t> faded;
};

} // namespace

void TrFlash(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const double progress = Smooth(ProgressOf(*param)).Fraction();
    const Frames frames(out, in1, in2);
    const Flash flash = {progress < 0.5 ? RisingGain(progress) : FallingGain(progress), true};
    ByteMap map;
    FillMap(map, flash);
    const Brightener brightener(map, flash);
    FlashPainter painter(BaseAt(progress), brightener, frames.width);
    DrawRows(frames, [&](const Row &row) {
        const std::ptrdiff_t visible = std::max<std::ptrdiff_t>(row.VisibleBytes(), 0);
        const bool isLuma = row.kind == Plane::Luma;
        if (isLuma)
            painter.Brighten(row, visible);
        else
            painter.Show(row, row.out, visible);
        FillBytes(row.out + visible, isLuma ? kBlack : kNeutral, row.pitch - visible);
    });
}

void TrFlashRGB(void *out, void *in1, void *in2, const TransParam *param) {
    // The brightened bytes of the last call, for the rising and for the falling flash. They stay
    // until the process ends.
    static ByteMap &map1 = *new ByteMap;
    static ByteMap &map2 = *new ByteMap;
    const Frames frames(out, in1, in2);
    const double progress = Smooth(ProgressOf(*param)).Fraction();
    const Flash rising = {RisingGain(progress), false};
    const Flash falling = {FallingGain(progress), false};
    FillMap(map1, rising);
    FillMap(map2, falling);
    const Brightener brightener =
        progress < 0.5 ? Brightener(map1, rising) : Brightener(map2, falling);
    FlashPainter painter(BaseAt(progress), brightener, std::ptrdiff_t(frames.width) * 4);
    DrawRows(frames, [&](const Row &row) { painter.Brighten(row, row.pitch); });
}
