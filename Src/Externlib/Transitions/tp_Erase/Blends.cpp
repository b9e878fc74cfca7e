// Linear Wipe and Flash: the transitions that are blends over much of the frame.

#include "BlendRows.h"
#include "Frames.h"
#include "Pixels.h"
#include "Progress.h"
#include "Rows.h"
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

/// How far the front has come along rows and columns. What lies beyond both ends of the way shows
/// one input alone.
int FrontReach(int width, int height, const TransParam &param) {
    const int way = Convert(static_cast<float>(width + height) + 565.6854F);
    const double progress = param.dCurrent / param.dTotal;
    return Limit(Convert(static_cast<double>(way) * progress), 0, way);
}

/// Where rows are longer than what is visible of them, the rest shows the first input.
void CopyPadding(const PackedFrames &frames) {
    const std::ptrdiff_t visible = std::ptrdiff_t(std::max(frames.width, 0)) * 4;
    if (visible == frames.Pitch())
        return;
    for (int y = 0; y < frames.height; ++y)
        frames.Row(y).bytes.Copy(Input::One, visible, frames.Pitch());
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

} // namespace

void TrLinearWipe(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                  const TransParam *param) {
    const PlanarFrames frames(out, in1, in2);
    const int reach = FrontReach(frames.width, frames.height, *param);
    frames.DrawPlanes([&](const Plane &plane) {
        const auto frontSpan = [&](int y) {
            return SpanOfRow(reach - y * plane.step, frames.width);
        };
        const auto spanOf = [&](int y) {
            const FrontSpan span = frontSpan(y);
            return ByteSpan{plane.Bytes(span.begin), plane.Bytes(span.end)};
        };
        DrawSpans(plane, spanOf, [&](const Triple &row, int y, ByteSpan bytes) {
            const FrontSpan span = frontSpan(y);
            const Triple at = row.At(bytes.begin);
            BlendRows().blendFine(
                at.out, at.in2, at.in1,
                FineWeightsFrom(span.place + (span.begin & (plane.step - 1)), plane.step),
                bytes.end - bytes.begin);
        });
    });
}

void TrLinearWipeRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const int width = DIGetWidth(out);
    const int height = DIGetHeight(out);
    const int pitch = DIGetPitch(out);
    const PackedFrames frames(width, height, pitch, out, in1, in2);
    const int reach = FrontReach(width, height, *param);
    const auto distanceOf = [&](int y) { return reach - (height - 1 - y); };
    const auto spanOf = [&](int y) {
        const FrontSpan span = SpanOfRow(distanceOf(y), width);
        // Rows that the whole band has entered are blended to their end, at weight 0 ahead of it.
        const int end = distanceOf(y) >= kFirstDistance ? width : span.end;
        return ByteSpan{std::ptrdiff_t(span.begin) * 4, std::ptrdiff_t(end) * 4};
    };
    frames.DrawPlanes([&](const Plane &plane) {
        DrawSpans(plane, spanOf, [&](const Triple &row, int y, ByteSpan bytes) {
            const FrontSpan span = SpanOfRow(distanceOf(y), width);
            const std::ptrdiff_t ahead = std::ptrdiff_t(span.end) * 4;
            const Triple band = row.At(bytes.begin);
            BlendRows().blendSum(band.out, band.in2, band.in1,
                                 kCoarseWeights.bytes.data() + std::ptrdiff_t(span.place) * 4,
                                 ahead - bytes.begin);
            BlendRows().darken(row.out + ahead, row.in1 + ahead, bytes.end - ahead);
        });
    });
    CopyPadding(frames);
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
    const Flash flash = {progress < 0.5 ? RisingGain(progress) : FallingGain(progress), true};
    ByteMap map;
    FillMap(map, flash);
    const Brightener brightener(map, flash);
    const auto room = static_cast<std::size_t>(base.isBlend ? std::max(frames.width, 0) : 0);
    const std::vector<std::uint8_t> weights(room, base.weight1);
    std::vector<std::uint8_t> faded(room);
    const auto blend = [&](std::uint8_t *to, const Triple &from, int count) {
        Rows().blendYuv(to, from.in1, from.in2, weights.data(), count);
    };
    frames.DrawRows([&](const PlanarRow &row, int) {
        if (base.isBlend) {
            blend(faded.data(), row.luma, frames.width);
            if (row.hasChroma) {
                blend(row.cb.out, row.cb, HalfUp(frames.width));
                blend(row.cr.out, row.cr, HalfUp(frames.width));
            }
        } else if (row.hasChroma) {
            row.cb.Copy(base.input, 0, HalfUp(frames.width));
            row.cr.Copy(base.input, 0, HalfUp(frames.width));
        }
        const std::uint8_t *luma = base.isBlend ? faded.data() : row.luma.From(base.input);
        brightener.Brighten(row.luma.out, luma, frames.width);
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
    const Flash rising = {RisingGain(progress), false};
    const Flash falling = {FallingGain(progress), false};
    FillMap(map1, rising);
    FillMap(map2, falling);
    const Brightener brightener =
        progress < 0.5 ? Brightener(map1, rising) : Brightener(map2, falling);
    const int room = base.isBlend ? std::max(frames.pitch, 0) : 0;
    std::vector<std::uint8_t> faded(static_cast<std::size_t>(room));
    frames.DrawRows([&](const PackedRow &row, int) {
        const Triple &at = row.bytes;
        if (base.isBlend)
            BlendRows().fadePixels(faded.data(), at.in1, at.in2, base.weight1, frames.width);
        const std::uint8_t *pixels = base.isBlend ? faded.data() : at.From(base.input);
        brightener.Brighten(at.out, pixels, frames.Pitch());
    });
}
