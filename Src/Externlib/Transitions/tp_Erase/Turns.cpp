// Turns and rolls: the outgoing frame flips over or rolls away.

#include "OldFrames.h"
#include "Pixels.h"
#include "Progress.h"
#include "TurnRows.h"
#include "tp_Erase.h"

#include <array>
#include <cmath>

using namespace tp;

// ---------------------------------------------------------------------------------------------
// Turn: a card that flips over about the horizontal centre line, on black
// ---------------------------------------------------------------------------------------------

namespace {

/// The card of one frame: the input it shows and the rows [top, bottom) it covers. At its narrow
/// end it is about `narrow` columns wide, at the other `spread` more.
struct Card {
    Input input;
    double cosine; ///< of the angle it has turned by: source rows per row, inverted
    int top;
    int bottom;
    int narrow;
    int spread;
};

/// One row of the card: its left end, which may lie outside the frame, its columns inside the
/// frame, and the row of the input that it shows.
struct CardRow {
    int left;
    int begin;
    int end;
    int source;
};

/// Frames without a row or a column have no card.
Card MakeCard(int width, int height, double progress) {
    constexpr double pi = 3.141592653589793;
    const bool first = progress < 0.5;
    const double cosine = std::cos((first ? progress : 1 - progress) * pi);
    const int halfHeight = height / 2;
    // The two halves of the rounding differ in sign, which makes the card a row shorter than the
    // frame even when it lies flat.
    const int top = Convert((1 - cosine) * halfHeight + 0.5);
    const int bottom = Convert((1 + cosine) * halfHeight - 0.5);
    if (bottom <= top || width < 1)
        return {Input::One, cosine, 0, 0, 0, 0};
    const int halfWidth = width / 2;
    const int depth = first ? bottom - halfHeight : halfHeight - top;
    const int narrow = halfWidth + 2 * (depth * (width - halfWidth) / height);
    return {first ? Input::One : Input::Two, cosine, top, bottom, narrow, 2 * width - 2 * narrow};
}

/// Rows outside the card have no columns.
CardRow MakeCardRow(const Card &card, int width, int y) {
    if (y < card.top || y >= card.bottom)
        return {0, 0, 0, 0};
    // The outgoing frame turns its top row towards the viewer, the incoming one its bottom row.
    const double fromNarrow = card.input == Input::One ? card.bottom - y : y - card.top;
    const double columns = fromNarrow * card.spread / (card.bottom - card.top) + card.narrow;
    const int left = Convert((width - columns) * 0.5);
    const int begin = std::max(left, 0);
    return {left, begin, std::max(begin, std::min(width - left, width)),
            Convert((y - card.top) / card.cosine + 0.5)};
}

/// A row of chroma takes in the samples of one row of pixels, those of the columns [x, x + count),
/// at least one.
void AddChroma(std::uint8_t *out, const std::uint8_t *samples, int x, int count, bool oddRow) {
    const auto before = oddRow ? 2U : 0U;
    std::uint8_t *next = out + (x >> 1);
    // A run that starts at an odd column finds the value that already stands there, be it black's.
    if (x & 1) {
        *next = AddToMean(*next, *samples++, before + 1);
        ++next;
        --count;
    }
    const auto addPairs = oddRow ? TurnRows().meanOfFour : TurnRows().meanOfTwo;
    addPairs(next, samples, count / 2);
    if (count & 1)
        next[count / 2] = AddToMean(next[count / 2], samples[count - 1], before);
}

/// Where a row of both chroma planes is drawn to, and where it shows the planes of the card from.
struct ChromaRow {
    std::uint8_t *outU;
    std::uint8_t *outV;
    const std::uint8_t *inU;
    const std::uint8_t *inV;
};

/// The card's chroma in one row of pixels.
void TurnChroma(const ChromaRow &chroma, const CardRow &row, int width, bool oddRow) {
    if (row.begin >= row.end)
        return;
    constexpr int chunk = 1024; // even, so that only the first run can start at an odd column
    std::array<std::uint8_t, chunk> u, v;
    // Half of column n's luma sample, n * width / columns / 2, is its sample in a stretch to twice
    // the columns.
    Stretch stretch = MakeStretch(width, 2 * (width - 2 * row.left));
    stretch.length = HalfUp(width);
    for (int x = row.begin; x < row.end;) {
        const int count = std::min(chunk - (x & 1), row.end - x);
        TurnRows().stretchTwoPlanes(u.data(), chroma.inU, v.data(), chroma.inV, stretch,
                                    x - row.left, count);
        AddChroma(chroma.outU, u.data(), x, count, oddRow);
        AddChroma(chroma.outV, v.data(), x, count, oddRow);
        x += count;
    }
}

/// Calls draw(where) to have a row of this many bytes drawn: in place, or in a scratch row that
/// then goes past the caches.
template<class Draw>
void DrawRow(const Triple &row, std::ptrdiff_t bytes, const ScratchRow &scratch, Draw draw) {
    if (!row.IsStreamed()) {
        draw(row.out);
        return;
    }
    std::uint8_t *const where = scratch.For(row.out);
    draw(where);
    CopyStreaming(row.out, where, bytes);
}

void TurnLumaRow(std::uint8_t *out, const PlanarFrames &frames, const Card &card, int y) {
    const CardRow row = MakeCardRow(card, frames.width, y);
    FillBytes(out, kBlack, row.begin);
    if (row.begin < row.end)
        TurnRows().stretchBytes(out + row.begin,
                                frames.y.From(card.input) + row.source * frames.pitchY,
                                MakeStretch(frames.width, frames.width - 2 * row.left),
                                row.begin - row.left, row.end - row.begin);
    FillBytes(out + row.end, kBlack, frames.pitchY - row.end);
}

/// One row of chroma, of two rows of pixels.
void TurnChromaRow(std::uint8_t *u, std::uint8_t *v, const PlanarFrames &frames, const Card &card,
                   int line) {
    FillBytes(u, kNeutral, frames.pitchUV);
    FillBytes(v, kNeutral, frames.pitchUV);
    for (int y = 2 * line; y <= 2 * line + 1; ++y) {
        const CardRow row = MakeCardRow(card, frames.width, y);
        const std::ptrdiff_t source = row.source / 2 * frames.pitchUV;
        TurnChroma({u, v, frames.u.From(card.input) + source, frames.v.From(card.input) + source},
                   row, frames.width, y & 1);
    }
}

} // namespace

void TrTurn(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    StoreEased(*param);
    const PlanarFrames frames(out, in1, in2);
    const Card card = MakeCard(frames.width, frames.height, StoredFraction());
    const ScratchRow scratchY(frames.pitchY), scratchU(frames.pitchUV), scratchV(frames.pitchUV);
    for (int y = 0; y < frames.height; ++y)
        DrawRow(frames.y.At(y * frames.pitchY), frames.pitchY, scratchY,
                [&](std::uint8_t *to) { TurnLumaRow(to, frames, card, y); });
    for (int line = 0; line < HalfUp(frames.height); ++line) {
        const std::ptrdiff_t offset = line * frames.pitchUV;
        DrawRow(frames.u.At(offset), frames.pitchUV, scratchU, [&](std::uint8_t *u) {
            DrawRow(frames.v.At(offset), frames.pitchUV, scratchV,
                    [&](std::uint8_t *v) { TurnChromaRow(u, v, frames, card, line); });
        });
    }
}

void TrTurnRGB(void *out, void *in1, void *in2, const TransParam *param) {
    StoreEased(*param);
    const PackedFrames frames(out, in1, in2);
    const double progress = StoredFraction();
    if (progress < 0.01 || progress > 0.99) {
        frames.CopyPicture(progress < 0.01 ? Input::One : Input::Two);
        return;
    }
    const int width = frames.width;
    const Card card = MakeCard(width, frames.height, progress);
    const std::uint8_t *const in = frames.pixels.From(card.input);
    frames.DrawRows([&](const PackedRow &pixels, int y) {
        const CardRow row = MakeCardRow(card, width, y);
        std::uint8_t *const to = pixels.bytes.out;
        FillBytes(to, 0, std::ptrdiff_t(row.begin) * 4);
        if (row.begin < row.end)
            TurnRows().stretchPixels(to + std::ptrdiff_t(row.begin) * 4,
                                     in + row.source * frames.Pitch(),
                                     MakeStretch(width, width - 2 * row.left), row.begin - row.left,
                                     row.end - row.begin);
        FillBytes(to + std::ptrdiff_t(row.end) * 4, 0, std::ptrdiff_t(width - row.end) * 4);
    });
}

// ---------------------------------------------------------------------------------------------
// Roll: the outgoing frame rolls up from the left, lit like a cylinder
// ---------------------------------------------------------------------------------------------

namespace {

constexpr int kWidestRoll = 78;

/// The roll of one frame: the second input shows left of column edge, the roll itself in the
/// columns [edge, end). Its profile is that of `band` columns, some of which may lie beyond the
/// frame.
struct RollGeometry {
    int edge;
    int end;
    int band;
};

int WidestRoll(int width) {
    return width < 300 ? 32 : width < 400 ? 48 : width < 600 ? 56 : width < 800 ? 64 : kWidestRoll;
}

RollGeometry MakeRoll(int width, double eased, double total) {
    const int edge = std::max(std::min(Position(eased, width, total), width), 0);
    const int band = std::min(WidestRoll(width), edge);
    return {edge, std::min(edge + band, width), band};
}

/// What is added to the samples of a column of the roll: from -100 up to 100 in its middle and
/// back.
int RollLight(int column, int band) {
    return 2 * column <= band ? 100 * (4 * column - band) / band
                              : 100 * (3 * band - 4 * column) / band;
}

/// The light of the roll for samples of `size` bytes, at most video white. Of pixels of 4 bytes the
/// fourth is not lit.
Light MakeRollLight(const RollGeometry &roll, int size) {
    Light light;
    for (int i = 0; i < (roll.end - roll.edge) * size; ++i) {
        const bool lit = size == 1 || i % 4 != 3;
        const int added = lit ? RollLight(i / size, roll.band) : 0;
        light.low[i] = static_cast<std::uint8_t>(std::max(-added, 0));
        light.high[i] = static_cast<std::uint8_t>(lit ? std::min(kWhite - added, 255) : 255);
        light.added[i] = static_cast<std::uint8_t>(added);
    }
    return light;
}

/// The samples of a chroma row that a roll divides: the second input's before begin, the roll
/// itself before end, and the first input's flat part before flatEnd.
struct RollChroma {
    int begin;
    int end;
    int flatEnd;
    int last; ///< the row's last sample
    int odd;  ///< 1 when the edge is odd
};

RollChroma MakeRollChroma(const RollGeometry &roll, int width) {
    const int samples = HalfUp(width);
    if (roll.edge >= width)
        return {samples, samples, samples, samples - 1, 0};
    const int begin = roll.edge >> 1;
    // Between an odd edge and an odd width the row's last sample is left out.
    return {begin, roll.edge < roll.end ? HalfUp(roll.end) : begin,
            begin + (width - roll.edge + 1) / 2, samples - 1, roll.edge & 1};
}

/// The roll is mirrored about the edge like its luma, but not lit.
void MirrorChroma(std::uint8_t *out, const std::uint8_t *in, const RollChroma &chroma) {
    // Sample c shows sample edge - c. That can lie past the last one for the first c alone, which
    // then is the only one.
    TurnRows().mirror(out + chroma.begin, in + std::min(chroma.begin + chroma.odd, chroma.last),
                      chroma.end - chroma.begin);
}

/// The flat part from a sample on. Right of an odd edge it comes from one sample further right than
/// where it lands; past the row's last sample that one stands in.
void CopyFlatChroma(std::uint8_t *out, const std::uint8_t *in, const RollChroma &chroma, int from) {
    const int inside = std::min(chroma.flatEnd, chroma.last + 1 - chroma.odd);
    CopyBytes(out + from, in + from + chroma.odd, inside - from);
    if (from <= inside && inside < chroma.flatEnd)
        out[inside] = in[chroma.last];
}

void DrawRollChroma(Plane plane, const RollChroma &chroma) {
    plane.rowBytes = std::max(chroma.flatEnd, chroma.end);
    const ByteSpan drawn = {chroma.begin, chroma.odd ? plane.rowBytes : chroma.end};
    DrawSpans(
        plane, [&](int) { return drawn; },
        [&](const Triple &row, int, ByteSpan) {
            MirrorChroma(row.out, row.in1, chroma);
            if (chroma.odd)
                CopyFlatChroma(row.out, row.in1, chroma, chroma.end);
        });
}

/// The same for a host that keeps the flat part at a pitch of its own.
void DrawRollChroma(const Plane &plane, const RollChroma &chroma, std::ptrdiff_t flatPitch) {
    for (int y = 0; y < plane.height; ++y) {
        const Triple row = plane.Row(y), flat = plane.bytes.At(y * flatPitch);
        CopyBytes(row.out, row.in2, chroma.begin);
        CopyFlatChroma(flat.out, flat.in1, chroma, chroma.begin);
        MirrorChroma(row.out, row.in1, chroma);
    }
}

} // namespace

void TrRoll(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PlanarFrames frames(out, in1, in2);
    const RollGeometry roll = MakeRoll(frames.width, eased, total);
    const RollChroma chroma = MakeRollChroma(roll, frames.width);
    const Light light = MakeRollLight(roll, 1);
    frames.DrawPlanes([&](const Plane &plane) {
        if (plane.step == 1)
            DrawSpans(
                plane,
                [&](int) {
                    return ByteSpan{roll.edge, roll.end};
                },
                [&](const Triple &row, int, ByteSpan span) {
                    std::array<std::uint8_t, kWidestRoll> mirrored;
                    TurnRows().mirror(mirrored.data(), row.in1 + span.begin, span.end - span.begin);
                    TurnRows().shine(row.out + span.begin, mirrored.data(), light,
                                     span.end - span.begin);
                });
        else if (plane.bytes.out == frames.v.out && out->nPitchV != plane.pitch)
            DrawRollChroma(plane, chroma, out->nPitchV);
        else
            DrawRollChroma(plane, chroma);
    });
}

void TrRollRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PackedFrames frames(out, in1, in2);
    const RollGeometry roll = MakeRoll(frames.width, eased, total);
    const Light light = MakeRollLight(roll, 4);
    frames.DrawPlanes([&](const Plane &plane) {
        // The packed path does not mirror.
        DrawSpans(
            plane,
            [&](int) {
                return ByteSpan{plane.Bytes(roll.edge), plane.Bytes(roll.end)};
            },
            [&](const Triple &row, int, ByteSpan span) {
                TurnRows().shine(row.out + span.begin, row.in1 + span.begin, light,
                                 span.end - span.begin);
            });
    });
}

// ---------------------------------------------------------------------------------------------
// Roll_right_top: a corner peels away along a diagonal fold
// ---------------------------------------------------------------------------------------------

namespace {

constexpr int kLongestRamp = 331;
constexpr int kWidestShadow = 28;

/// The fold of one frame. Rows are counted from the first one in memory in the planar path, from
/// the last one in the packed path. Below row start, the second input shows up to the fold line x =
/// y - start, then the flap up to column leg, which is the first input mirrored about that line:
/// pixel (x, y) shows its pixel (y - start, x + start).
struct Peel {
    int width;
    int height;
    int leg;
    int start;
    int ramp;   ///< columns of the fold's shading, of which only the first quarter darkens
    int shadow; ///< columns of the shadow beside the flap
};

Peel MakePeel(int width, int height, double eased, double total) {
    struct Sizes {
        int below, fold, shadow;
    };
    constexpr Sizes sizes[] = {
        {300, 96, 8}, {400, 144, 8}, {600, 168, 12}, {800, 192, 20}, {INT32_MAX, 234, 28}};
    const Sizes *size = sizes;
    while (width >= size->below)
        ++size;
    const double side = std::min(width, height);
    const double difference = width - height;
    const double travel =
        std::sqrt(2.0 * (side * side)) + 0.5 * std::sqrt(2.0 * (difference * difference));
    const double distance = Convert(eased * travel / total + 0.5);
    // No leg is shorter than 0; one too long for an integer is none.
    const int leg = std::max(Convert(std::sqrt(2.0 * distance * distance) + 0.5), 0);
    return {width, height, leg, height - leg, Convert(size->fold * 1.414 + 0.5), size->shadow};
}

/// One plane of samples of `size` bytes as the peel sees it.
struct PeelPlane {
    Triple first;             ///< row 0 of the peel
    std::ptrdiff_t pitch;     ///< bytes to the peel's next row, in all three frames
    const std::uint8_t *flap; ///< row 0 of the flap's picture
    std::ptrdiff_t flapPitch;
    int size;
    int foldLine; ///< 1 where the fold line's pixel is the second input's, 0 where it is the flap's
};

/// Draws a plane but for its shading. Calls shade(row, y) for every row that the fold crosses once
/// the row's three spans stand in row.out.
template<class Shade>
void DrawPeel(const Peel &peel, const PeelPlane &plane, Shade shade) {
    // The flap's rows are columns of its picture, so that it is drawn in bands of several rows:
    // with 16, a band of pixels takes whole cache lines of the picture.
    constexpr int bandRows = 16;
    const std::ptrdiff_t size = plane.size;
    const std::ptrdiff_t rowBytes = peel.width * size;
    const bool streamed = plane.first.IsStreamed();
    // Scratch rows keep their places within a cache line, but not within a page, where rows at a
    // power of two from each other would compete for the same places of the cache.
    const std::ptrdiff_t scratchPitch = (rowBytes / 64 + 2) * 64;
    const ScratchRow scratch(streamed ? bandRows * scratchPitch : 0);
    const auto transpose = size == 1 ? TurnRows().transposeBytes : TurnRows().transposePixels;
    const int start = Limit(peel.start + 1, 0, peel.height);
    const int end = Limit(peel.start + peel.width, start, peel.height);
    for (int y = 0; y < start; ++y)
        plane.first.At(y * plane.pitch).Copy(Input::One, 0, rowBytes);
    for (int y = end; y < peel.height; ++y)
        plane.first.At(y * plane.pitch).Copy(Input::Two, 0, rowBytes);
    for (int top = start; top < end; top += bandRows) {
        const int rows = std::min(bandRows, end - top);
        const Triple target = plane.first.At(top * plane.pitch);
        std::uint8_t *const band = streamed ? scratch.For(target.out) : target.out;
        const std::ptrdiff_t bandPitch = streamed ? scratchPitch : plane.pitch;
        const int fold = top - peel.start;
        const int right = std::min(peel.leg, peel.width);
        // From the first row's fold line on: what later rows have before theirs is drawn over.
        transpose(band + fold * size, bandPitch, plane.flap + top * plane.flapPitch + fold * size,
                  plane.flapPitch, std::min(rows, right - fold), right - fold);
        for (int i = 0; i < rows; ++i) {
            Triple row = target.At(i * plane.pitch);
            std::uint8_t *const out = row.out;
            row.Redirect(band + i * bandPitch);
            row.Copy(Input::Two, 0, std::min(fold + i + plane.foldLine, peel.width) * size);
            row.Copy(Input::One, peel.leg * size, rowBytes);
            shade(std::as_const(row), top + i);
            if (streamed)
                CopyStreaming(out, row.out, rowBytes);
        }
    }
}

/// The peel's shading of samples of `size` bytes: factors in units of 1 / peel.ramp from the fold
/// line on, and in units of 1 / peel.shadow from the flap's leg on. Of pixels of 4 bytes the fourth
/// is not in the shadow.
struct PeelShade {
    int size;
    int strength; ///< that the shadow's factors are for: 0 (none) to peel.shadow
    std::array<std::int16_t, std::size_t(kLongestRamp / 4 + 1) * 4> ramp;
    std::array<std::int16_t, std::size_t(kWidestShadow) * 4> shadow;
};

void SetShadow(PeelShade &shade, const Peel &peel, int strength) {
    shade.strength = strength;
    for (int i = 0; i < peel.shadow * shade.size; ++i) {
        const int darkening = strength * (peel.shadow - i / shade.size) / peel.shadow;
        shade.shadow[std::size_t(i)] = static_cast<std::int16_t>(
            i % 4 == 3 && shade.size == 4 ? peel.shadow : peel.shadow - darkening);
    }
}

PeelShade MakePeelShade(const Peel &peel, int size) {
    PeelShade shade;
    shade.size = size;
    for (int i = 0; i < (peel.ramp / 4 + 1) * size; ++i)
        shade.ramp[std::size_t(i)] = static_cast<std::int16_t>(i / size * 4);
    SetShadow(shade, peel, 0);
    return shade;
}

/// Shades a row of a plane in which DrawPeel has drawn the spans.
void ShadeRow(PeelShade &shade, const Peel &peel, const PeelPlane &plane, const Triple &row,
              int y) {
    const int size = shade.size;
    const int fold = y - peel.start;
    const int begin = fold + plane.foldLine;
    const int end = std::min(fold + peel.ramp / 4 + 1, std::min(peel.leg, peel.width));
    if (begin < end) {
        std::array<std::uint8_t, std::size_t(kLongestRamp / 4 + 1) * 4> unshaded;
        CopyBytes(unshaded.data(), row.out + std::ptrdiff_t(begin) * size,
                  std::ptrdiff_t(end - begin) * size);
        TurnRows().scale(row.out + std::ptrdiff_t(begin) * size, unshaded.data(),
                         shade.ramp.data() + plane.foldLine * size,
                         std::ptrdiff_t(end - begin) * size, peel.ramp, kBlack, kWhite);
    }
    const int columns = std::min(peel.shadow, peel.width - peel.leg);
    const int strength = Limit(fold - peel.shadow, 0, peel.shadow);
    if (strength != shade.strength)
        SetShadow(shade, peel, strength);
    const Triple shadow = row.At(std::ptrdiff_t(peel.leg) * size);
    TurnRows().scale(shadow.out, shadow.in1, shade.shadow.data(), std::ptrdiff_t(columns) * size,
                     peel.shadow, 0, 255);
}

} // namespace

void roll_RT(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PlanarFrames frames(out, in1, in2);
    const Peel peel = MakePeel(frames.width, frames.height, eased, total);
    PeelShade shade = MakePeelShade(peel, 1);
    // The chroma planes are as large as the luma plane here and have its pitch.
    for (const Triple *plane : {&frames.y, &frames.u, &frames.v}) {
        const PeelPlane whole = {*plane, frames.pitchY, plane->in1, frames.pitchY, 1, 1};
        DrawPeel(peel, whole, [&](const Triple &row, int y) {
            if (plane == &frames.y)
                ShadeRow(shade, peel, whole, row, y);
        });
    }
}

void roll_RT_RGB(void *out, void *in1, void *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PackedFrames frames(out, in1, in2);
    const Peel peel = MakePeel(frames.width, frames.height, eased, total);
    PeelShade shade = MakePeelShade(peel, 4);
    // The peel's rows count from the last one in memory, those of the flap's picture from the
    // first: the flap shows the frame upside down.
    const PeelPlane pixels = {
        frames.RowFromEnd(0).bytes, -frames.Pitch(), frames.pixels.in1, frames.Pitch(), 4, 0};
    DrawPeel(peel, pixels, [&](const Triple &row, int y) {
        ShadeRow(shade, peel, pixels, row, y);
        // The fourth byte stays the first input's own over the whole length of the fold's shading.
        const int fold = y - peel.start;
        const int end = std::min(fold + peel.ramp, std::min(peel.leg, peel.width));
        const Triple ramp = row.At(std::ptrdiff_t(fold) * 4);
        TurnRows().copyFourth(ramp.out, ramp.in1, end - fold);
    });
}
