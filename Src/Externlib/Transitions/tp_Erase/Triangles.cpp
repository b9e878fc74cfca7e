// Triangles and rings, exported by name only. Every pixel is a copy of one input. A shape with a
// few edges tells the spans of each row; one with many keeps a mask, which changes little from row
// to row.

#include "CopyRows.h"
#include "Frames.h"
#include "Pixels.h"
#include "Progress.h"
#include "tp_Erase.h"

#include <array>
#include <cmath>
#include <span>
#include <vector>

using namespace tp;

// ---------------------------------------------------------------------------------------------
// Rows of spans and rows of masks
// ---------------------------------------------------------------------------------------------

namespace {

/// What the last column leaves behind it in a packed row. There the column counts as a byte offset,
/// not multiplied by a pixel's four bytes: column x writes its choice to the bytes x to x + 2 and
/// the first input to byte x + 3. The columns overlap and the later one wins, so each byte up to
/// the width shows its own column, two more the last column, one more the first input, and the rest
/// of the row stays as it was.
inline void FinishBytes(const Row &row, Input last) {
    const int width = row.columns;
    if (row.kind != Plane::Packed || width < 1)
        return;
    row.Copy(last, width, width + 2);
    row.Copy(Input::One, width + 2, width + 3);
}

/// Shows one input in a row's spans and the other between them. The spans ascend; they may overlap,
/// be empty or reach out of the row.
inline void ShowSpans(const Row &row, Input input, std::span<const Span> spans) {
    const int end = row.Samples(row.columns);
    int shown = 0;
    for (const Span &span : spans) {
        const int first = std::max(row.Samples(span.begin), shown);
        const int last = std::min(row.Samples(span.end), end);
        if (first >= last)
            continue;
        row.Copy(Other(input), shown, first);
        row.Copy(input, first, last);
        shown = last;
    }
    row.Copy(Other(input), shown, end);
    FinishBytes(row, shown < end ? Other(input) : input);
}

/// Positions beyond it come from absurd places in time; edges computed from them wrap around.
constexpr int kFarthest = 1 << 30;

/// The spans of a row that are single pixels: those of a shape whose edges wrap around.
template<class Shape>
std::vector<Span> PixelSpans(const Shape &shape, int width, int y) {
    std::vector<Span> spans;
    for (int x = 0; x < width; ++x)
        if (shape.Contains(x, y))
            spans.push_back({x, x + 1});
    return spans;
}

/// Shows one input inside a shape and the other outside.
template<class Shape>
void ShowShape(const Frames &frames, const Shape &shape, Input inside) {
    for (int y = 0; y < frames.height; ++y) {
        const auto show = [&](const auto &spans) {
            DrawRow(frames, y, [&](const Row &row) { ShowSpans(row, inside, spans); });
        };
        if (shape.HasSpans())
            show(shape.Spans(y));
        else
            show(PixelSpans(shape, frames.width, y));
    }
}

/// Which columns of a row show the second input: 255 where they do, else 0. The first one at first.
struct Masks {
    int width;
    std::vector<std::uint8_t> bytes; ///< of all columns, then for chroma of the even ones
    decltype(CopyKernels::select) select = CopyRows().select;

    explicit Masks(int w) : width(w), bytes(static_cast<std::size_t>(w + HalfUp(w))) {}

    void Fill(Span span, Input input) {
        span = span.Within({0, width});
        if (span.IsEmpty())
            return;
        const std::uint8_t value = input == Input::Two ? 255 : 0;
        const int begin = HalfUp(span.begin), end = HalfUp(span.end);
        FillBytes(bytes.data() + span.begin, value, span.Size());
        FillBytes(bytes.data() + width + begin, value, end - begin);
    }
    void Turn(int x) {
        if (x < 0 || x >= width)
            return;
        bytes[static_cast<std::size_t>(x)] ^= 255;
        if (!(x & 1))
            bytes[static_cast<std::size_t>(width + x / 2)] ^= 255;
    }
    /// Draws the picture's row y.
    void Show(const Frames &frames, int y) const {
        const std::uint8_t *const luma = bytes.data(), *const chroma = luma + width;
        DrawRow(frames, y, [&](const Row &row) {
            select(row.out, row.in2, row.in1, row.step == 1 ? luma : chroma, row.Samples(width));
            FinishBytes(row, luma[width - 1] ? Input::Two : Input::One);
        });
    }
};

// ---------------------------------------------------------------------------------------------
// Slanted edges
// ---------------------------------------------------------------------------------------------

/// Where a progress stands on half a span, rounded half up.
int HalfOn(Progress progress, int span) {
    return Convert(progress.position * span / progress.total * 0.5 + 0.5);
}

/// The height of an edge after so many steps, rounded half up.
int Rise(int steps, double slope) {
    return Convert(steps * slope + 0.5);
}

/// The top row of a triangle that stands on row foot, where its edge has risen for so many steps.
/// Not foot - Rise(): a half rounds the other way.
int StandingTop(int foot, int steps, double slope) {
    return Convert(foot - steps * slope + 0.5);
}

/// The first number in [first, last) for which holds is true, last if there is none; from there on
/// it stays true. Searched from a guess outwards, so that a good guess takes two tests; a bad one,
/// NaN included, changes nothing but the time.
template<class Holds>
int FirstHolding(double guess, int first, int last, const Holds &holds) {
    int number = guess > first ? guess < last ? static_cast<int>(guess) : last : first;
    while (number > first && holds(number - 1))
        --number;
    while (number < last && !holds(number))
        ++number;
    return number;
}

/// About the step at which an edge reaches a height.
double StepGuess(int height, double slope) {
    return (height - 0.5) / slope + 1.0;
}

/// The first step before last at which an edge has reached a height above 0, last if it never does.
int FirstReaching(int height, double slope, int last) {
    return FirstHolding(StepGuess(height, slope), 0, last,
                        [=](int steps) { return Rise(steps, slope) >= height; });
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Point-in-shape tests
// ---------------------------------------------------------------------------------------------

bool PtInTriangleBottom(int x, int y, int n, double d, int, int f) {
    return StandingTop(f, n - x % n, d * f / n) <= y;
}

bool PtInTriangleTop(int x, int y, int n, double d, int, int f) {
    return Rise(x % n, d * f / n) > y;
}

bool PtInTriangleCell(int x, int y, int n, double d, int ignored, int f) {
    return PtInTriangleTop(x, y, n, d, ignored, f) || PtInTriangleBottom(x, y, n, d, ignored, f);
}

namespace {

/// Four triangles that stand on the frame's edges. Their tips point at the centre and stop short of
/// it: at the columns left and right, at the rows top and bottom.
struct Star {
    int cx, cy;
    int left, right, top, bottom;
    double sideSlope; ///< of the left and right triangles, in rows per column
    double capSlope;  ///< of the top and bottom triangles, in columns per row
    bool isNear;

    Star(int gapX, int gapY, int centreX, int centreY)
        : cx(centreX), cy(centreY), left(cx - gapX), right(cx + gapX), top(cy - gapY),
          bottom(cy + gapY), sideSlope(cy / (left + 1e-6)), capSlope(cx / (top + 1e-6)),
          isNear(std::abs(std::int64_t(gapX)) < kFarthest &&
                 std::abs(std::int64_t(gapY)) < kFarthest) {}

    /// Whether row y lies strictly inside a side triangle, so many columns from its tip.
    bool InSide(int y, int steps) const {
        const int reach = Rise(steps, sideSlope);
        return y > cy - reach && y < cy + reach;
    }
    /// Whether column x lies inside the top or bottom triangle, edges included, so many rows from
    /// its tip.
    bool InCap(int x, int steps) const {
        const int reach = Rise(steps, capSlope);
        return x >= cx - reach && x <= cx + reach;
    }

    bool Contains(int x, int y) const {
        return (x <= left && InSide(y, left - x)) || (x >= right && InSide(y, x - right)) ||
               (y <= top && InCap(x, top - y)) || (y >= bottom && InCap(x, y - bottom));
    }

    bool HasSpans() const { return isNear; }
    /// The side triangles hold a row from the step on at which they reach past its distance from
    /// the centre's row.
    std::array<Span, 3> Spans(int y) const {
        const int steps = FirstReaching(std::abs(y - cy) + 1, sideSlope, std::max(left + 1, 0));
        int reach = -1;
        if (y <= top)
            reach = std::max(reach, Rise(top - y, capSlope));
        if (y >= bottom)
            reach = std::max(reach, Rise(y - bottom, capSlope));
        return {{{0, left - steps + 1}, {cx - reach, cx + reach + 1}, {right + steps, INT32_MAX}}};
    }
};

} // namespace

bool PtInRegion(int x, int y, int a, int b, int cx, int cy) {
    return Star(a, b, cx, cy).Contains(x, y);
}

// ---------------------------------------------------------------------------------------------
// Tr4Triangle: both halves are cut along their falling diagonals and the triangles slide apart
// ---------------------------------------------------------------------------------------------

namespace {

/// The outgoing frame's four triangles: the lower ones have moved left by shift columns, the upper
/// ones right.
struct FourTriangles {
    int width;
    int height;
    int half; ///< first column of the right half
    int shift;
    double slope; ///< of the diagonals

    FourTriangles(int w, int h, Progress progress)
        : width(w), height(h), half(HalfUp(w)), shift(HalfOn(progress, w)), slope(2.0 * h / w) {}

    bool Contains(int x, int y) const {
        const bool lowerLeft = x < half - shift && y >= height - Rise(half - x - shift, slope);
        const bool lowerRight =
            x >= half && x < 2 * half - shift && y >= height - Rise(width - x - shift, slope);
        const bool upperLeft = x >= shift && x <= half && Rise(x - shift, slope) > y;
        const bool upperRight = x >= half + shift && y < Rise(x - half - shift, slope);
        return lowerLeft || lowerRight || upperLeft || upperRight;
    }

    bool HasSpans() const { return std::abs(std::int64_t(shift)) < kFarthest; }
    std::array<Span, 4> Spans(int y) const {
        // From a shift by the whole width on nothing moves any more.
        const int moved = Limit(shift, -width, width);
        const int upper = FirstReaching(y + 1, slope, width);
        const int lower = FirstReaching(height - y, slope, width);
        // The left half's upper triangle ends with column half, not before it.
        return {{{0, half - moved - lower + 1},
                 {moved + upper, half + 1},
                 {half, width - moved - lower + 1},
                 {half + moved + upper, width}}};
    }
};

void DrawFourTriangles(const Frames &frames, Progress progress) {
    ShowShape(frames, FourTriangles(frames.width, frames.height, progress), Input::One);
}

} // namespace

void Tr4Triangle(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    DrawFourTriangles({out, in1, in2}, ProgressOf(*param));
}

void Tr4TriangleRGB(void *out, void *in1, void *in2, const TransParam *param) {
    DrawFourTriangles({out, in1, in2}, ProgressOf(*param));
}

// ---------------------------------------------------------------------------------------------
// TrNTriangle: a saw-tooth of hanging and standing triangles shrinks to the upper and lower edges
// ---------------------------------------------------------------------------------------------

namespace {

struct SawTooth {
    int height;
    int cell; ///< columns of one cell: about a tenth of the width, even
    double slope;

    SawTooth(int w, int h, Progress progress) : height(h), cell(Convert(w * 0.1)) {
        cell += cell & 1;
        slope = (progress.total - progress.position) / progress.total * h / cell;
    }

    /// The columns of a cell between the standing triangle and the hanging one.
    Span Gap(int y) const {
        const int hanging = FirstReaching(y + 1, slope, cell);
        const int standing =
            FirstHolding(StepGuess(height - y, slope), 1, cell + 1,
                         [=, this](int steps) { return StandingTop(height, steps, slope) <= y; });
        return {cell - standing + 1, hanging};
    }
};

void DrawSawTooth(const Frames &frames, Progress progress) {
    const SawTooth teeth(frames.width, frames.height, progress);
    if (teeth.cell < 1)
        return;
    Masks masks(frames.width);
    Span shown;
    for (int y = 0; y < frames.height; ++y) {
        // Both edges of the gap only move to the right, so from row to row few columns change.
        const Span gap = teeth.Gap(y);
        const Span closed{shown.begin, std::min(shown.end, gap.begin)};
        const Span opened{std::max(shown.end, gap.begin), gap.end};
        if (gap.begin != shown.begin || gap.end != shown.end)
            for (int x = 0; x < frames.width; x += teeth.cell) {
                masks.Fill({x + closed.begin, x + closed.end}, Input::One);
                masks.Fill({x + opened.begin, x + opened.end}, Input::Two);
            }
        shown = gap;
        masks.Show(frames, y);
    }
}

} // namespace

void TrNTriangle(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    DrawSawTooth({out, in1, in2}, ProgressOf(*param));
}

void TrNTriangleRGB(void *out, void *in1, void *in2, const TransParam *param) {
    DrawSawTooth({out, in1, in2}, ProgressOf(*param));
}

// ---------------------------------------------------------------------------------------------
// TrTriangle2: the outgoing frame's four triangles retreat from the centre to their edges
// ---------------------------------------------------------------------------------------------

namespace {

/// The star of a frame whose gaps have reached this share of half its size.
Star StarOf(const Frames &frames, Progress gap) {
    return {HalfOn(gap, frames.width), HalfOn(gap, frames.height), HalfUp(frames.width),
            HalfUp(frames.height)};
}

void DrawRetreat(const Frames &frames, Progress progress) {
    if (progress.Fraction() < 0.001)
        frames.CopyWhole(Input::One);
    else
        ShowShape(frames, StarOf(frames, progress), Input::One);
}

} // namespace

void TrTriangle2(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const Progress progress = Eased(ProgressOf(*param));
    DrawRetreat({out, in1, in2}, progress);
}

void TrTriangle2RGB(void *out, void *in1, void *in2, const TransParam *param) {
    const Progress progress = Eased(ProgressOf(*param));
    DrawRetreat({out, in1, in2}, progress);
}

// ---------------------------------------------------------------------------------------------
// TrTriangle3: the incoming frame's four triangles close on the centre and bounce
// ---------------------------------------------------------------------------------------------

namespace {

/// Reaches the end at 2/5 of the time and again at 4/5, with two dips behind. Only within a
/// hundredth of the host's unit before the end, whatever the length, it is the position itself.
double BouncedPosition(double total, double current) {
    if (2 * total / 5 >= current)
        return 6.25 * current * current / total;
    if (4 * total / 5 >= current) {
        const double since = current - 2 * total / 5;
        return since * since / total * 3.125 + (-1.25 * since + total);
    }
    if (current < total - 0.01) {
        const double since = current - 4 * total / 5;
        return since * since / total * 3.125 + (-0.625 * since + total);
    }
    return current;
}

Progress Bounced(Progress progress) {
    return Stored({BouncedPosition(progress.total, progress.position), progress.total});
}

void DrawAdvance(const Frames &frames, Progress progress) {
    if (progress.Fraction() > 0.999)
        frames.CopyWhole(Input::Two);
    else
        ShowShape(frames, StarOf(frames, {progress.total - progress.position, progress.total}),
                  Input::Two);
}

} // namespace

void TrTriangle3(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const Progress progress = Bounced(ProgressOf(*param));
    DrawAdvance({out, in1, in2}, progress);
}

void TrTriangle3RGB(void *out, void *in1, void *in2, const TransParam *param) {
    const Progress progress = Bounced(ProgressOf(*param));
    const Frames frames(out, in1, in2);
    // Only this path has a start of its own: the other one's star leaves a pixel there.
    if (progress.Fraction() < 0.001)
        frames.CopyWhole(Input::One);
    else
        DrawAdvance(frames, progress);
}

// ---------------------------------------------------------------------------------------------
// TrCirque: every other ring inside a growing circle, then the rest outside a shrinking one
// ---------------------------------------------------------------------------------------------

namespace {

/// One of the circles at which the shown input changes.
struct Circle {
    std::int64_t squared; ///< its radius
    int reach;            ///< the last column from the centre that it holds in the current row
};

/// The circles of one frame: the second input inside the innermost, the inputs in turn between
/// them, `outside` beyond the last.
///
/// From the centre's row outwards the circles' reach only shrinks, so the masks are kept up to date
/// by turning over the few columns that leave a circle.
struct Rings {
    int cx, cy;
    Input outside;
    std::vector<Circle> circles; ///< ascending
    std::size_t first = 0;       ///< the first circle that meets the row
    Masks masks;

    Rings(int width, int height, double fraction)
        : cx(HalfUp(width)), cy(HalfUp(height)), masks(width) {
        outside = fraction < 0.5 ? Input::One : Input::Two;
        const double share = fraction < 0.5 ? fraction : 1 - fraction;
        // A negative radius (a position out of range) counts by its square. No pixel lies further
        // than a rounding beyond the corner's distance.
        const int corner = Convert(std::sqrt(static_cast<double>(cy * cy + cx * cx)) + 0.5);
        const int radius = Convert(2 * corner * share + 0.5);
        AddCircles(Limit(std::max(radius, -radius), 0, corner + 1));
        masks.Fill({0, width}, outside);
        for (std::size_t i = circles.size(); i-- > 0;)
            masks.Fill({cx - circles[i].reach, cx + circles[i].reach + 1},
                       i % 2 ? Input::One : Input::Two);
    }

    /// Ring k ends at the radius (k * k + k + 2) / 2: 2, 4, 7, 11 ... and the last one at this. The
    /// centre itself belongs to the first ring, and a radius of 0 does not hold it.
    void AddCircles(std::int64_t last) {
        circles.reserve(static_cast<std::size_t>(std::sqrt(2 * last)) + 1);
        const auto add = [&](std::int64_t radius) {
            circles.push_back({radius * radius, static_cast<int>(radius)});
        };
        for (std::int64_t k = 1; (k * k + k + 2) / 2 < last; ++k)
            add((k * k + k + 2) / 2);
        const Input beyond = circles.size() % 2 ? Input::One : Input::Two;
        if (last > 0 && beyond != outside)
            add(last);
    }

    /// Moves on to the rows at a distance from the centre's, one more than before.
    void MoveTo(std::int64_t dy) {
        for (Circle &circle : std::span(circles).subspan(first)) {
            const std::int64_t limit = circle.squared - dy * dy;
            int reach = circle.reach;
            for (; reach >= 0 && std::int64_t(reach) * reach > limit; --reach) {
                masks.Turn(cx + reach);
                if (reach)
                    masks.Turn(cx - reach);
            }
            circle.reach = reach;
            first += reach < 0; // the smaller a circle, the earlier it ends
        }
    }
};

void DrawRings(const Frames &frames, Progress progress) {
    if (frames.width < 1 || frames.height < 1)
        return;
    Rings rings(frames.width, frames.height, progress.Fraction());
    const Span all[] = {{0, frames.width}};
    const auto show = [&](int y) {
        if (y >= frames.height)
            return;
        if (rings.first < rings.circles.size())
            rings.masks.Show(frames, y);
        else
            DrawRow(frames, y, [&](const Row &row) { ShowSpans(row, rings.outside, all); });
    };
    // Rows at the same distance above and below the centre are alike.
    show(rings.cy);
    for (int dy = 1; dy <= rings.cy; ++dy) {
        rings.MoveTo(dy);
        show(rings.cy - dy);
        show(rings.cy + dy);
    }
}

} // namespace

void TrCirque(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    YUVImage shown = *out;
    shown.nWidth = in1->nWidth;
    shown.nHeight = in1->nHeight;
    DrawRings({&shown, in1, in2}, ProgressOf(*param));
}

void TrCirqueRGB(void *out, void *in1, void *in2, const TransParam *param) {
    DrawRings({out, in1, in2}, ProgressOf(*param));
}
