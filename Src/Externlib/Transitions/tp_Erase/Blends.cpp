// Linear Wipe and Flash: the transitions that are blends over much of the frame.

#include "BlendRows.h"
#include "Frames.h"
#include "Pixels.h"
#include "Progress.h"
#include "Rows.h"
#include "TurnRows.h"
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

/// How far the front has come along rows and columns. What lies beyond both ends of the way shows
/// one input alone.
int FrontReach(int width, int height, const TransParam &param) {
    const int way = Convert(static_cast<float>(width + height) + 565.6854F);
    const double progress = param.dCurrent / param.dTotal;
    return Limit(Convert(static_cast<double>(way) * progress), 0, way);
}

/// The columns of a row that lie in the front's blend, cut to the frame, and the place of the first
/// of them within the blend.
struct FrontSpan {
    int begin;
    int end;
    int place;
};

FrontSpan SpanOfRow(int distance, int width) {
    const int first = distance - kFirstDistance;
    const int begin = Limit(first, 0, width);
    const int end = Limit(distance - kLastDistance + 1, begin, width);
    return {begin, end, begin < end ? begin - first : 0};
}

void BlendChroma(const Triple &row, const FrontSpan &span) {
    const int begin = HalfUp(span.begin);
    const int place = span.place + (span.begin & 1);
    const Triple at = row.At(begin);
    BlendRows().blendFine(at.out, at.in2, at.in1,
                          kFineWeights.second[std::size_t(place & 1)].data() + (place >> 1),
                          HalfUp(span.end) - begin);
}

} // namespace

void TrLinearWipe(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                  const TransParam *param) {
    const PlanarFrames frames(out, in1, in2);
    const int reach = FrontReach(frames.width, frames.height, *param);
    frames.DrawRows([&](const PlanarRow &row, int y) {
        const FrontSpan span = SpanOfRow(reach - y, frames.width);
        row.Copy(Input::Two, 0, span.begin);
        const Triple at = row.luma.At(span.begin);
        BlendRows().blendFine(at.out, at.in2, at.in1, kFineWeights.all.data() + span.place,
                              span.end - span.begin);
        if (row.hasChroma) {
            BlendChroma(row.cb, span);
            BlendChroma(row.cr, span);
        }
        row.Copy(Input::One, span.end, frames.width);
    });
}

void TrLinearWipeRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const int width = DIGetWidth(out);
    const int height = DIGetHeight(out);
    const int pitch = DIGetPitch(out);
    const PackedFrames frames(width, height, pitch, out, in1, in2);
    const int reach = FrontReach(width, height, *param);
    frames.DrawRows([&](const PackedRow &row, int y) {
        const int distance = reach - (height - 1 - y);
        const FrontSpan span = SpanOfRow(distance, width);
        row.Copy(Input::Two, 0, span.begin);
        const Triple band = row.bytes.At(std::ptrdiff_t(span.begin) * 4);
        BlendRows().blendSum(band.out, band.in2, band.in1,
                             kCoarseWeights.bytes.data() + std::ptrdiff_t(span.place) * 4,
                             std::ptrdiff_t(span.end - span.begin) * 4);
        // Rows that the whole band has entered are blended to their end, at weight 0 ahead of it.
        const int untouched = distance >= kFirstDistance ? width : span.end;
        const Triple ahead = row.bytes.At(std::ptrdiff_t(span.end) * 4);
        BlendRows().darken(ahead.out, ahead.in1, std::ptrdiff_t(untouched - span.end) * 4);
        row.bytes.Copy(Input::One, std::ptrdiff_t(untouched) * 4, frames.Pitch());
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

/// The brightened bytes. The packed path's sums reach 265; the planar path's wrap around at 256, so
/// that its brightest samples turn dark.
void FillMap(ByteMap &map, double gain, std::uint16_t mask) {
    for (int i = 0; i < 256; ++i) {
        const int sum = (i + 10) & mask;
        map[std::size_t(i)] = static_cast<std::uint8_t>(Convert(std::min(255.0, sum * gain)));
    }
}

constexpr std::uint16_t kWrap = 0xff;
constexpr std::uint16_t kNoWrap = 0x1ff;

/// Brightens bytes as a map says, with arithmetic in place of the look-ups if that is exact.
///
/// The multipliers that truncate to the same products as `gain` do form an interval around it. Its
/// ends are fractions of two different sums, (product / sum) and (product + 1) / sum, of which only
/// sums up to the first product of 255 count: at most 255 and 256. So it is at least
/// 1 / (255 * 256) wide, more than the 1 / 65536 from one multiplier of the kernel to the next, and
/// the one below the gain or the one above it lies inside. That needs a gain of 1 or more; for
/// others, which positions outside the transition give, the map itself serves.
class Brightener {
public:
    Brightener(const ByteMap &map, double gain, std::uint16_t mask) : map(map) {
        for (const int step : {0, 1}) {
            const int fixed = Convert(gain * 65536) + step;
            kernel = {mask, static_cast<std::uint16_t>(fixed >> 16),
                      static_cast<std::uint16_t>(fixed)};
            isExact = fixed >= 0 && fixed < 4 << 16 && Agrees();
            if (isExact)
                return;
        }
    }

    void Brighten(std::uint8_t *bytes, std::ptrdiff_t count) const {
        if (isExact) {
            BlendRows().brighten(bytes, count, kernel);
            return;
        }
        for (std::ptrdiff_t i = 0; i < count; ++i)
            bytes[i] = map[bytes[i]];
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

/// Video black in the output's bytes beyond the visible columns.
void FillPadding(const PlanarFrames &frames) {
    const std::ptrdiff_t width = std::max(frames.width, 0);
    const std::ptrdiff_t chromaWidth = HalfUp(std::max(frames.width, 0));
    for (int y = 0; y < frames.height; ++y) {
        const PlanarRow row = frames.Row(y);
        FillBytes(row.luma.out + width, kBlack, frames.pitchY - width);
        if (row.hasChroma) {
            FillBytes(row.cb.out + chromaWidth, kNeutral, frames.pitchUV - chromaWidth);
            FillBytes(row.cr.out + chromaWidth, kNeutral, frames.pitchUV - chromaWidth);
        }
    }
}

} // namespace

void TrFlash(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    StoreSmooth(*param);
    const PlanarFrames frames(out, in1, in2);
    const double progress = StoredFraction();
    const FlashBase base = BaseAt(progress);
    const double gain = progress < 0.5 ? RisingGain(progress) : FallingGain(progress);
    ByteMap map;
    FillMap(map, gain, kWrap);
    const Brightener brightener(map, gain, kWrap);
    const std::vector<std::uint8_t> weights(std::size_t(std::max(frames.width, 0)), base.weight1);
    const auto blend = [&](const Triple &at, int count) {
        Rows().blendYuv(at.out, at.in1, at.in2, weights.data(), count);
    };
    const int chromaWidth = HalfUp(frames.width);
    frames.DrawRows([&](const PlanarRow &row, int) {
        if (base.isBlend) {
            blend(row.luma, frames.width);
            if (row.hasChroma) {
                blend(row.cb, chromaWidth);
                blend(row.cr, chromaWidth);
            }
        } else {
            row.Copy(base.input, 0, frames.width);
        }
        brightener.Brighten(row.luma.out, frames.width);
    });
    FillPadding(frames);
}

void TrFlashRGB(void *out, void *in1, void *in2, const TransParam *param) {
    // The brightened bytes of the last call, for the rising and for the falling flash. They stay
    // until the process ends.
    static ByteMap &map1 = *new ByteMap;
    static ByteMap &map2 = *new ByteMap;
    const PackedFrames frames(out, in1, in2);
    StoreSmooth(*param);
    const double progress = StoredFraction();
    const FlashBase base = BaseAt(progress);
    const bool rises = progress < 0.5;
    FillMap(map1, RisingGain(progress), kNoWrap);
    FillMap(map2, FallingGain(progress), kNoWrap);
    const Brightener brightener(rises ? map1 : map2,
                                rises ? RisingGain(progress) : FallingGain(progress), kNoWrap);
    const std::ptrdiff_t bytes = std::max<std::ptrdiff_t>(frames.Pitch(), 0);
    const std::vector<std::uint8_t> weights(std::size_t(bytes), base.weight1);
    frames.DrawRows([&](const PackedRow &row, int) {
        const Triple &at = row.bytes;
        if (base.isBlend) {
            Rows().blendRgb(at.out, at.in1, at.in2, weights.data(), bytes);
            TurnRows().copyFourth(at.out, at.in1, frames.width);
        } else {
            row.Copy(base.input, 0, frames.width);
        }
        brightener.Brighten(at.out, bytes);
    });
}
