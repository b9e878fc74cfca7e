// Turns and rolls: the outgoing frame flips over or rolls away.

#include "Frames.h"
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

/// Frames without a row have no card.
Card MakeCard(int width, int height, double progress) {
    constexpr double pi = 3.141592653589793;
    const bool first = progress < 0.5;
    const double cosine = std::cos((first ? progress : 1 - progress) * pi);
    const int halfHeight = height / 2;
    // The two halves of the rounding differ in sign, which makes the card a row shorter than the
    // frame even when it lies flat.
    const int top = Convert((1 - cosine) * halfHeight + 0.5);
    const int bottom = Convert((1 + cosine) * halfHeight - 0.5);
    if (bottom <= top)
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

/// A row of chroma takes in the samples of one row of pixels, those of the columns [x, x + count).
void AddChroma(std::uint8_t *out, const std::uint8_t *samples, int x, int count, bool oddRow) {
    const auto before = oddRow ? 2U : 0U;
    std::uint8_t *next = out + (x >> 1);
    // A run that starts at an odd column finds the value that already stands there, be it black's.
    if ((x & 1) && count > 0) {
        *next = AddToMean(*next, *samples++, before + 1);
        ++next;
        --count;
    }
    const auto addPairs = oddRow ? TurnRows().meanOfFour : TurnRows().meanOfTwo;
    addPairs(next, samples, count / 2);
    if (count > 0 && (count & 1))
        next[count / 2] = AddToMean(next[count / 2], samples[count - 1], before);
}

/// The card's chroma in one row of pixels: `in` is the chroma row of its source.
void TurnChroma(std::uint8_t *out, const std::uint8_t *in, const CardRow &row, int width,
                bool oddRow) {
    constexpr int chunk = 1024; // even, so that only the first run can start at an odd column
    std::array<std::uint8_t, chunk> samples;
    // Chroma column n * width / columns / 2 is that of a stretch to twice the columns.
    const Stretch stretch = MakeStretch(width, 2 * (width - 2 * row.left));
    Stretch chroma = stretch;
    chroma.length = HalfUp(width);
    for (int x = row.begin; x < row.end;) {
        const int count = std::min(chunk - (x & 1), row.end - x);
        TurnRows().stretchBytes(samples.data(), in, chroma, x - row.left, count);
        AddChroma(out, samples.data(), x, count, oddRow);
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

void TurnChromaRow(std::uint8_t *out, const Triple &plane, const PlanarFrames &frames,
                   const Card &card, int line) {
    FillBytes(out, kNeutral, frames.pitchUV);
    for (int y = 2 * line; y <= 2 * line + 1; ++y) {
        const CardRow row = MakeCardRow(card, frames.width, y);
        if (row.begin < row.end)
            TurnChroma(out, plane.From(card.input) + row.source / 2 * frames.pitchUV, row,
                       frames.width, y & 1);
    }
}

} // namespace

void TrTurn(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    StoreEased(*param);
    const PlanarFrames frames(out, in1, in2);
    const Card card = MakeCard(frames.width, frames.height, StoredFraction());
    const ScratchRow scratch(frames.pitchY);
    for (int y = 0; y < frames.height; ++y)
        DrawRow(frames.y.At(y * frames.pitchY), frames.pitchY, scratch,
                [&](std::uint8_t *to) { TurnLumaRow(to, frames, card, y); });
    for (const Triple &plane : {frames.u, frames.v})
        for (int line = 0; line < HalfUp(frames.height); ++line)
            DrawRow(plane.At(line * frames.pitchUV), frames.pitchUV, scratch,
                    [&](std::uint8_t *to) { TurnChromaRow(to, plane, frames, card, line); });
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

/// The chroma of the columns right of the edge. From an odd edge on it comes from one sample
/// further right than where it lands; past the row's last sample that one stands in.
void CopyFlatChroma(std::uint8_t *out, const std::uint8_t *in, int edge, int width) {
    const int last = HalfUp(width) - 1;
    const int count = (width - edge + 1) / 2;
    const int inside = std::min(count, last + 1 - HalfUp(edge));
    CopyBytes(out + (edge >> 1), in + HalfUp(edge), inside);
    if (inside < count)
        out[(edge >> 1) + inside] = in[last];
}

/// The roll's chroma, mirrored about the edge like its luma, but not lit.
void MirrorChroma(std::uint8_t *out, const std::uint8_t *in, const RollGeometry &roll, int width) {
    const int last = HalfUp(width) - 1;
    for (int column = roll.edge >> 1; column < HalfUp(roll.end); ++column)
        out[column] = in[std::min(roll.edge - column, last)];
}

} // namespace

void TrRoll(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    PlanarFrames frames(out, in1, in2);
    const int width = frames.width;
    if (width < 1)
        return;
    const RollGeometry roll = MakeRoll(width, eased, total);
    std::array<std::int16_t, kWidestRoll> light;
    for (int i = 0; i < roll.end - roll.edge; ++i)
        light[std::size_t(i)] = static_cast<std::int16_t>(RollLight(i, roll.band));
    // A host may give the flat part of Cr a pitch of its own. Then it does not belong to the row.
    const std::ptrdiff_t pitchV = out->nPitchV;
    const bool ownPitch = pitchV != frames.pitchUV;
    if (ownPitch)
        frames.y.copy = frames.u.copy = frames.v.copy = CopyBytes;
    frames.DrawRows([&](const PlanarRow &row, int y) {
        const Triple &luma = row.luma;
        luma.Copy(Input::Two, 0, roll.edge);
        TurnRows().lightMirrored(luma.out + roll.edge, luma.in1 + roll.edge, light.data(),
                                 roll.end - roll.edge);
        luma.Copy(Input::One, roll.end, width);
        if (!row.hasChroma)
            return;
        // Between an odd edge and an odd width the last sample keeps what stands in the output.
        if (roll.edge & width & 1) {
            const PlanarRow target = frames.Row(y);
            row.cb.out[width >> 1] = target.cb.out[width >> 1];
            row.cr.out[width >> 1] = target.cr.out[width >> 1];
        }
        row.cb.Copy(Input::Two, 0, HalfUp(roll.edge));
        row.cr.Copy(Input::Two, 0, HalfUp(roll.edge));
        if (roll.edge < width) {
            const Triple flatCr = ownPitch ? frames.v.At((y >> 1) * pitchV) : row.cr;
            CopyFlatChroma(row.cb.out, row.cb.in1, roll.edge, width);
            CopyFlatChroma(flatCr.out, flatCr.in1, roll.edge, width);
        }
        if (roll.edge < roll.end) {
            MirrorChroma(row.cb.out, row.cb.in1, roll, width);
            MirrorChroma(row.cr.out, row.cr.in1, roll, width);
        }
    });
}

void TrRollRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PackedFrames frames(out, in1, in2);
    const RollGeometry roll = MakeRoll(frames.width, eased, total);
    // Every value lit in every column of the roll; the packed path does not mirror.
    std::array<std::array<std::uint8_t, 256>, kWidestRoll> lit;
    for (int i = 0; i < roll.end - roll.edge; ++i)
        TurnRows().lightTable(lit[std::size_t(i)].data(), RollLight(i, roll.band));
    frames.DrawRows([&](const PackedRow &row, int) {
        row.Copy(Input::Two, 0, roll.edge);
        const Triple band = row.bytes.At(std::ptrdiff_t(roll.edge) * 4);
        for (int i = 0; i < roll.end - roll.edge; ++i) {
            const auto &table = lit[std::size_t(i)];
            for (int channel = 0; channel < 3; ++channel)
                band.out[4 * i + channel] = table[band.in1[4 * i + channel]];
            band.out[4 * i + 3] = band.in1[4 * i + 3];
        }
        row.Copy(Input::One, roll.end, frames.width);
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

/// Draws a plane but for its shading. Calls shade(row, y) for every row below the fold's start once
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
    const int start = std::max(peel.start + 1, 0);
    for (int y = 0; y < std::min(start, peel.height); ++y)
        plane.first.At(y * plane.pitch).Copy(Input::One, 0, rowBytes);
    for (int top = start; top < peel.height; top += bandRows) {
        const int rows = std::min(bandRows, peel.height - top);
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
    // The peel's rows count from the last one, those of the flap's picture from the first: the
    // flap shows the picture upside down.
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
