// Turns and rolls: the outgoing frame flips over or rolls away.

#include "CopyRows.h"
#include "Frames.h"
#include "Pixels.h"
#include "Progress.h"
#include "TurnRows.h"
#include "tp_Erase.h"

#include <array>
#include <cmath>
#include <vector>

using namespace tp;

// ---------------------------------------------------------------------------------------------
// Turn: a card that flips over about the horizontal centre line, on black
// ---------------------------------------------------------------------------------------------

namespace {

/// One row of the card: its left end, which may lie outside the frame, its columns inside the
/// frame, and the row of the input that it shows.
struct CardRow {
    int left;
    Span columns;
    int source;
};

/// The card of one frame: the input it shows and the rows [top, bottom) it covers. At its narrow
/// end it is about `narrow` columns wide, at the other `spread` more.
struct Card {
    Input input;
    double cosine; ///< of the angle it has turned by: source rows per row, inverted
    int width;     ///< of the frame
    int top, bottom;
    int narrow = 0, spread = 0;

    /// Frames without a row or a column have no card.
    Card(const Frames &frames, double progress);
    /// Rows outside the card have no columns.
    CardRow Row(int y) const;
};

Card::Card(const Frames &frames, double progress)
    : input(progress < 0.5 ? Input::One : Input::Two), width(frames.width) {
    constexpr double pi = 3.141592653589793;
    const bool first = input == Input::One;
    const int height = frames.height;
    const int halfWidth = width / 2, halfHeight = height / 2;
    cosine = std::cos((first ? progress : 1 - progress) * pi);
    // The two halves of the rounding differ in sign, which makes the card a row shorter than the
    // frame even when it lies flat.
    top = Convert((1 - cosine) * halfHeight + 0.5);
    bottom = width < 1 ? top : Convert((1 + cosine) * halfHeight - 0.5);
    if (bottom <= top)
        return;
    const int depth = first ? bottom - halfHeight : halfHeight - top;
    narrow = halfWidth + 2 * (depth * (width - halfWidth) / height);
    spread = 2 * width - 2 * narrow;
}

CardRow Card::Row(int y) const {
    if (y < top || y >= bottom)
        return {};
    // The outgoing frame turns its top row towards the viewer, the incoming one its bottom row.
    const double fromNarrow = input == Input::One ? bottom - y : y - top;
    const double columns = fromNarrow * spread / (bottom - top) + narrow;
    const int left = Convert((width - columns) * 0.5);
    return {left, Span{left, width - left}.Within({0, width}), Convert((y - top) / cosine + 0.5)};
}

/// The resampling of a plane to the card's rows. Rows next to each other are often equally wide.
class CardRows {
public:
    explicit CardRows(const Plane &plane)
        : step(plane.step), columns(plane.columns), samples(plane.Samples(columns)),
          blocks(static_cast<std::size_t>(std::max(columns, 0)) / ColumnBlock::kColumns + 1) {}

    const Resampling &For(const CardRow &row) {
        if (row.left != left) {
            left = row.left;
            // Half of column n's luma sample, n * width / columns / 2, is its sample in a row
            // resampled to twice the columns.
            resampling = MakeResampling(samples, columns, step * (columns - 2 * left),
                                        row.columns.Size(), blocks.data());
            TurnRows().fillBlocks(resampling, row.columns.begin - left);
        }
        return resampling;
    }

private:
    int step, columns, samples;
    std::vector<ColumnBlock> blocks;
    Resampling resampling{};
    int left = INT32_MIN; ///< of the row that the resampling is for
};

/// Draws a row with a sample for every pixel; `in` is the plane of the card.
void DrawCardRow(const Row &row, const CardRow &card, const std::uint8_t *in, CardRows &rows,
                 std::uint8_t background) {
    const std::ptrdiff_t begin = row.Bytes(card.columns.begin);
    const std::ptrdiff_t end = row.Bytes(card.columns.end);
    const auto resample =
        row.sampleBytes == 4 ? TurnRows().resamplePixels : TurnRows().resampleBytes;
    FillBytes(row.out, background, begin);
    if (!card.columns.IsEmpty())
        resample(row.out + begin, in + card.source * row.pitch, rows.For(card));
    FillBytes(row.out + end, background, row.pitch - end);
}

/// A row of chroma takes in the samples of one row of pixels, those of at least one column.
void AddToChroma(std::uint8_t *out, const std::uint8_t *samples, Span columns, bool isOddRow) {
    const auto before = isOddRow ? 2U : 0U;
    std::uint8_t *next = out + (columns.begin >> 1);
    int count = columns.Size();
    // A row that starts at an odd column finds the value that already stands there, be it black's.
    if (columns.begin & 1) {
        *next = AddToMean(*next, *samples++, before + 1);
        ++next;
        --count;
    }
    const auto addPairs = isOddRow ? TurnRows().meanOfFour : TurnRows().meanOfTwo;
    addPairs(next, samples, count / 2);
    if (count & 1)
        next[count / 2] = AddToMean(next[count / 2], samples[count - 1], before);
}

} // namespace

void TrTurn(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const Frames frames(out, in1, in2);
    const Card card(frames, Eased(ProgressOf(*param)).Fraction());
    CardRows luma(frames[Plane::Luma]), chroma(frames[Plane::Cb]);
    std::vector<std::uint8_t> samples(static_cast<std::size_t>(std::max(frames.width, 0)));
    const std::uint8_t *const in = frames[Plane::Luma].start.From(card.input);
    DrawRows(frames[Plane::Luma], [&](const Row &row) {
        const CardRow cardRow = card.Row(row.y);
        DrawCardRow(row, cardRow, in, luma, kBlack);
        for (const Plane::Kind kind : {Plane::Cb, Plane::Cr}) {
            const Plane &plane = frames[kind];
            std::uint8_t *const target = plane.start.out + row.y / 2 * plane.pitch;
            if (row.y % 2 == 0)
                FillBytes(target, kNeutral, plane.pitch);
            if (cardRow.columns.IsEmpty())
                continue;
            TurnRows().resampleBytes(
                samples.data(), plane.start.From(card.input) + cardRow.source / 2 * plane.pitch,
                chroma.For(cardRow));
            AddToChroma(target, samples.data(), cardRow.columns, row.y & 1);
        }
    });
}

void TrTurnRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const double progress = Eased(ProgressOf(*param)).Fraction();
    const Frames frames(out, in1, in2);
    if (progress < 0.01 || progress > 0.99) {
        frames.CopyWhole(progress < 0.01 ? Input::One : Input::Two);
        return;
    }
    const Card card(frames, progress);
    CardRows rows(frames[Plane::Packed]);
    const std::uint8_t *const in = frames[Plane::Packed].start.From(card.input);
    DrawRows(frames, [&](const Row &row) { DrawCardRow(row, card.Row(row.y), in, rows, 0); });
}

// ---------------------------------------------------------------------------------------------
// Roll: the outgoing frame rolls up from the left, lit like a cylinder
// ---------------------------------------------------------------------------------------------

namespace {

constexpr int WidestRoll(int width) {
    return width < 300 ? 32 : width < 400 ? 48 : width < 600 ? 56 : width < 800 ? 64 : 78;
}

/// The roll of one frame, its columns: left of them shows the second input. Its profile is that of
/// `band` columns, some of which may lie beyond the frame.
struct Roll : Span {
    int band;

    Roll(const Frames &frames, Progress progress) {
        begin = std::max(std::min(progress.On(frames.width), frames.width), 0);
        band = std::min(WidestRoll(frames.width), begin);
        end = std::min(begin + band, frames.width);
    }
    /// What is added to the samples of column i of the roll: from -100 up to 100 in its middle and
    /// back.
    int Added(int i) const {
        return 2 * i <= band ? 100 * (4 * i - band) / band : 100 * (3 * band - 4 * i) / band;
    }
};

/// The light of the roll for samples of `size` bytes, at most video white. Of pixels of 4 bytes the
/// fourth is not lit.
Light MakeLight(const Roll &roll, int size) {
    Light light;
    for (int i = 0; i < roll.Size() * size; ++i) {
        const bool isLit = size == 1 || i % 4 != 3;
        const int added = isLit ? roll.Added(i / size) : 0;
        light.low[i] = static_cast<std::uint8_t>(std::max(-added, 0));
        light.high[i] = static_cast<std::uint8_t>(isLit ? std::min(kWhite - added, 255) : 255);
        light.added[i] = static_cast<std::uint8_t>(added);
    }
    return light;
}

/// Draws a row of chroma: the roll is mirrored about its first column as in the luma, but not lit.
/// The flat part starts with the sample that an odd first column halves, and comes from one sample
/// further right there, so that what is read may begin or end one sample past the row. That is the
/// byte that lies there; only where the plane ends before it does the row's last sample stand in.
/// A host may keep the flat part at a pitch of its own.
void DrawRollChroma(const Plane &plane, const Row &row, const Roll &roll,
                    std::ptrdiff_t flatPitch) {
    const int line = row.y / 2, samples = plane.Samples(plane.columns);
    const auto inPlane = [&](int sample, std::ptrdiff_t pitch) {
        const bool isOutside = sample == samples && line * pitch + sample >= pitch * plane.rows;
        return isOutside ? sample - 1 : sample;
    };
    const int begin = roll.begin >> 1, source = HalfUp(roll.begin);
    const int count = (plane.columns - roll.begin + 1) / 2;
    row.Copy(Input::Two, 0, source);
    if (count < 1)
        return;
    const Place flat = plane.start.At(line * flatPitch);
    CopyBytes(flat.out + begin, flat.in1 + source, count - 1);
    flat.out[begin + count - 1] = flat.in1[inPlane(source + count - 1, flatPitch)];
    if (!roll.IsEmpty())
        TurnRows().mirror(row.out + begin, row.in1 + inPlane(source, plane.pitch),
                          HalfUp(roll.end) - begin);
}

} // namespace

void TrRoll(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const Frames frames(out, in1, in2);
    const Roll roll(frames, Eased(ProgressOf(*param)));
    const Light light = MakeLight(roll, 1);
    DrawRows(frames[Plane::Luma], [&](const Row &row) {
        std::array<std::uint8_t, WidestRoll(INT32_MAX)> mirrored;
        row.Show(Input::Two, 0, roll.begin);
        TurnRows().mirror(mirrored.data(), row.in1 + roll.begin, roll.Size());
        TurnRows().shine(row.out + roll.begin, mirrored.data(), light, roll.Size());
        row.Show(Input::One, roll.end, frames.width);
    });
    for (const Plane &plane : frames.Planes().subspan(1)) {
        const std::ptrdiff_t flatPitch = plane.kind == Plane::Cr ? out->nPitchV : plane.pitch;
        DrawRows(plane, [&](const Row &row) { DrawRollChroma(plane, row, roll, flatPitch); });
    }
}

void TrRollRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const Frames frames(out, in1, in2);
    const Roll roll(frames, Eased(ProgressOf(*param)));
    const Light light = MakeLight(roll, 4);
    DrawRows(frames, [&](const Row &row) {
        // The packed path does not mirror.
        const Place lit = row.At(row.Bytes(roll.begin));
        row.Show(Input::Two, 0, roll.begin);
        TurnRows().shine(lit.out, lit.in1, light, row.Bytes(roll.Size()));
        row.Show(Input::One, roll.end, frames.width);
    });
}

// ---------------------------------------------------------------------------------------------
// Roll_right_top: a corner peels away along a diagonal fold
// ---------------------------------------------------------------------------------------------

namespace {

constexpr int kLongestRamp = 331;
constexpr int kWidestShadow = 28;

/// The fold of one frame. Below row start, the second input shows up to the fold line x = y -
/// start, then the flap up to column leg, which is the first input mirrored about that line: pixel
/// (x, y) shows the pixel in column y - start of the input's row x + start in memory. In a packed
/// frame, whose own rows count from the last one in memory, the flap thus shows it upside down.
struct Peel {
    int leg;
    int start;
    int ramp;   ///< columns of the fold's shading, of which only the first quarter darkens
    int shadow; ///< columns of the shadow beside the flap
};

Peel MakePeel(int width, int height, Progress progress) {
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
    const double distance = Convert(progress.position * travel / progress.total + 0.5);
    // No leg is shorter than 0; one too long for an integer is none.
    const int leg = std::max(Convert(std::sqrt(2.0 * distance * distance) + 0.5), 0);
    return {leg, height - leg, Convert(size->fold * 1.414 + 0.5), size->shadow};
}

/// The peel of one plane.
class PeelPainter {
public:
    PeelPainter(const Peel &peel, const Plane &plane)
        : peel(peel), plane(plane), bytes(plane.sampleBytes),
          right(std::min(peel.leg, plane.columns)), foldLine(plane.kind == Plane::Packed ? 0 : 1),
          isShaded(plane.kind == Plane::Luma || plane.kind == Plane::Packed) {
        auto *next = ramp.data();
        for (int x = 0; isShaded && x <= peel.ramp / 4; ++x)
            next = std::fill_n(next, bytes, static_cast<std::int16_t>(x * 4));
    }

    /// Draws a row whose fold line lies in the frame.
    void Draw(const Row &row, int fold) {
        if (row.y < bandTop || row.y >= bandTop + kBandRows)
            DrawBand(row);
        row.Copy(Input::Two, 0, std::min(fold + foldLine, plane.columns) * bytes);
        row.Copy(Input::One, peel.leg * bytes, plane.columns * bytes);
        if (isShaded)
            Shade(row, fold);
    }

private:
    /// The flap's rows are columns of its picture, so that it is drawn in bands of several rows
    /// when one of them comes up: with 16, a band of pixels takes whole cache lines of the picture.
    static constexpr int kBandRows = 16;

    void DrawBand(const Row &row) {
        const int first = std::max(peel.start + 1, 0);
        bandTop = first + (row.y - first) / kBandRows * kBandRows;
        const int end = std::min(peel.start + plane.columns, plane.rows);
        // From the first row's fold line on: what later rows have before theirs is drawn over.
        const int fold = bandTop - peel.start;
        const std::ptrdiff_t pitch = plane.isBottomUp ? -plane.pitch : plane.pitch;
        const auto transpose = bytes == 1 ? kernels.transposeBytes : kernels.transposePixels;
        transpose(row.out + (bandTop - row.y) * pitch + fold * bytes, pitch,
                  plane.start.in1 + bandTop * plane.pitch + fold * bytes, plane.pitch,
                  std::min({kBandRows, end - bandTop, right - fold}), right - fold);
    }

    /// Shades a row that is drawn.
    void Shade(const Row &row, int fold) {
        const int begin = fold + foldLine;
        const int end = std::min(fold + peel.ramp / 4 + 1, right);
        kernels.scale(row.out + begin * bytes, ramp.data() + foldLine * bytes,
                      (end - begin) * bytes, peel.ramp, kBlack, kWhite);
        SetShadow(Limit(fold - peel.shadow, 0, peel.shadow));
        const int columns = std::min(peel.shadow, plane.columns - peel.leg);
        kernels.scale(row.out + peel.leg * bytes, shadow.data(), columns * bytes, peel.shadow, 0,
                      255);
        // The fourth byte stays the first input's own over the whole length of the fold's shading.
        const Place folded = row.At(fold * bytes);
        if (plane.kind == Plane::Packed)
            CopyRows().copyFourth(folded.out, folded.in1, std::min(fold + peel.ramp, right) - fold);
    }

    /// The shadow fades in from row to row. Of pixels of 4 bytes the fourth is not in it.
    void SetShadow(int newStrength) {
        if (newStrength == strength)
            return;
        strength = newStrength;
        auto *next = shadow.data();
        for (int x = 0; x < peel.shadow; ++x) {
            const int kept = peel.shadow - strength * (peel.shadow - x) / peel.shadow;
            next = std::fill_n(next, bytes, static_cast<std::int16_t>(kept));
            if (bytes == 4)
                next[-1] = static_cast<std::int16_t>(peel.shadow);
        }
    }

    const Peel &peel;
    const Plane &plane;
    const TurnKernels &kernels = TurnRows();
    const std::ptrdiff_t bytes; ///< of a sample
    const int right;            ///< the flap's end in the frame
    const int foldLine; ///< 1 where the fold line's pixel is the second input's, 0 where the flap's
    const bool isShaded;
    int bandTop = -kBandRows;
    int strength = -1; ///< that the shadow's factors are for: 0 (none) to peel.shadow
    /// Factors in units of 1 / peel.ramp from the fold line on, and of 1 / peel.shadow from the
    /// flap's leg on.
    std::array<std::int16_t, std::size_t(kLongestRamp / 4 + 1) * 4> ramp;
    std::array<std::int16_t, std::size_t(kWidestShadow) * 4> shadow;
};

void DrawPeel(const Frames &frames, Progress progress) {
    const Peel peel = MakePeel(frames.width, frames.height, progress);
    for (const Plane &plane : frames.Planes()) {
        PeelPainter painter(peel, plane);
        DrawRows(plane, [&painter, start = peel.start](const Row &row) {
            const int fold = row.y - start;
            if (fold > 0 && fold < row.columns)
                painter.Draw(row, fold);
            else
                row.Copy(fold <= 0 ? Input::One : Input::Two, 0, row.VisibleBytes());
        });
    }
}

} // namespace

void roll_RT(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    // The chroma planes are as large as the luma plane here.
    DrawPeel({out, in1, in2, 1}, Eased(ProgressOf(*param)));
}

void roll_RT_RGB(void *out, void *in1, void *in2, const TransParam *param) {
    DrawPeel({out, in1, in2, RowOrder::BottomUp}, Eased(ProgressOf(*param)));
}
