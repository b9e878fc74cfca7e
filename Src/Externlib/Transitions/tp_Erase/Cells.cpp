#include "Cells.h"

#include "CopyRows.h"

#include <bit>
#include <cmath>
#include <optional>
#include <utility>
#include <vector>

namespace tp {

CellFrame::CellFrame(const CellGrid &grid, const Frames &frames, Progress progress)
    : width(frames.width), height(frames.height), cellW(width / grid.across),
      cellH(height / grid.down), halfW(width / 2), halfH(height / 2), p(progress.Fraction()),
      q(1 - p), sizeW(q * cellW), sizeH(q * cellH), move(width * p * 0.5) {}

namespace {

// ---------------------------------------------------------------------------------------------
// Patches: what cells leave on a plane, cut to it
// ---------------------------------------------------------------------------------------------

/// A cell in samples.
struct Cell {
    int x, y;             ///< top left corner in the output
    int sourceX, sourceY; ///< and in the source, not negative
    int columns, rows;
    int stepX, stepY;

    /// Its corners on a plane.
    Cell On(const Plane &plane) const {
        const int shift = plane.step - 1;
        return {x >> shift, y >> shift, sourceX >> shift, sourceY >> shift, columns, rows,
                stepX,      stepY};
    }
};

/// The samples that cells show. Those at the limit and behind it are not shown.
struct CellSource {
    const std::uint8_t *samples;
    std::ptrdiff_t pitch;
    std::ptrdiff_t limit;
};

/// A plane that cells are drawn on.
struct Canvas {
    const Plane &plane;
    int bound;            ///< the column at which the picture ends for cells
    int carried;          ///< bytes behind a sample that it carries along
    std::ptrdiff_t limit; ///< the offset in the plane at which it ends for cells
    CellSource source;
    std::vector<std::uint8_t> miniature{}; ///< the source, where it is not the plane of an input
};

/// A rectangle of a plane that shows samples of the source.
struct Patch {
    int x, y;
    int columns, rows;
    std::ptrdiff_t source; ///< offset of the first sample
    std::ptrdiff_t sourcePitch;
    int step;
};

using Patches = std::vector<Patch>;

/// The counters below count whose place, position + counter, is in 0 .. bound - 1.
Span Visible(std::ptrdiff_t position, std::ptrdiff_t count, std::ptrdiff_t bound) {
    const std::ptrdiff_t begin = std::max<std::ptrdiff_t>(0, -position);
    const std::ptrdiff_t end = std::min(count, bound - position);
    return begin < end ? Span{static_cast<int>(begin), static_cast<int>(end)} : Span{};
}

/// The end of those counters whose sample, step apart from offset on, lies below the limit.
int EndBelow(std::ptrdiff_t limit, std::ptrdiff_t offset, std::ptrdiff_t step, int end) {
    if (offset + (end - 1) * step < limit)
        return end;
    return offset < limit ? static_cast<int>((limit - offset + step - 1) / step) : 0;
}

/// The end of those of a cell's columns that are within both limits in row j.
int EndOfRow(const Canvas &canvas, const Cell &cell, int j, int end) {
    const CellSource &source = canvas.source;
    const std::ptrdiff_t to = (cell.y + j) * canvas.plane.pitch + cell.x;
    const std::ptrdiff_t from = (cell.sourceY + j * cell.stepY) * source.pitch + cell.sourceX;
    return EndBelow(source.limit, from, cell.stepX, EndBelow(canvas.limit, to, 1, end));
}

/// Adds a rectangle of a cell's counters. Columns behind the row's bytes are on the row below.
void AddRectangle(Patches &patches, const Canvas &canvas, const Cell &cell, Span columns,
                  Span rows) {
    const int x = cell.x + columns.begin, y = cell.y + rows.begin;
    const std::ptrdiff_t step = cell.stepX, pitch = cell.stepY * canvas.source.pitch;
    // At step 1, the bytes that samples carry along are but the next samples.
    const int carried = step == 1 ? 0 : canvas.carried;
    const int width = columns.Size() + canvas.carried - carried, height = rows.Size();
    const std::ptrdiff_t source = cell.sourceY * canvas.source.pitch + cell.sourceX +
                                  rows.begin * pitch + columns.begin * step;
    const int inside = std::min(width, static_cast<int>(canvas.plane.pitch) - x);
    patches.push_back({x, y, inside, height, source, pitch, cell.stepX});
    if (inside < width)
        patches.push_back(
            {0, y + 1, width - inside, height, source + inside * step, pitch, cell.stepX});
    if (carried > 0)
        patches.push_back(
            {x + width, y, carried, height, source + (width - 1) * step + 1, pitch, 1});
}

/// Adds what a cell leaves on a canvas. On chroma, that is every other column and row of the cell,
/// counted from its corner, as far as it leaves them on the first canvas, luma.
void AddCell(Patches &patches, const Canvas &first, const Canvas &canvas, const Cell &cell) {
    if (cell.y * first.plane.pitch >= first.limit)
        return; // wholly behind the end
    const Plane &plane = canvas.plane;
    const Span visible = Visible(cell.x, cell.columns, canvas.bound);
    const Span visibleRows = Visible(cell.y, cell.rows, first.plane.rows);
    if (visible.IsEmpty() || visibleRows.IsEmpty())
        return;
    const Cell own = cell.On(plane);
    const int begin = plane.Samples(visible.begin);
    Span rows = {plane.Samples(visibleRows.begin), plane.Samples(visibleRows.end)};
    const auto endOf = [&](int j) {
        const int end = EndOfRow(first, cell, j * plane.step, visible.end);
        return plane.step == 1 ? end : EndOfRow(canvas, own, j, HalfUp(end));
    };
    // No row ends behind the one above it; those that end alike are one rectangle.
    while (!rows.IsEmpty()) {
        const int end = endOf(rows.begin);
        if (begin >= end)
            return;
        int last = rows.end;
        if (endOf(last - 1) != end)
            for (last = rows.begin + 1; endOf(last) == end;)
                ++last;
        AddRectangle(patches, canvas, own, {begin, end}, {rows.begin, last});
        rows.begin = last;
    }
}

/// The patches of a plane, and which of them cross each of its rows: a bit for each patch.
class PatchRows {
public:
    PatchRows(Patches patchesInOrder, int rows)
        : patches(std::move(patchesInOrder)), words((patches.size() + 63) / 64),
          crossing(words * static_cast<std::size_t>(std::max(rows, 0))) {
        for (std::size_t k = 0; k < patches.size(); ++k) {
            std::size_t word = static_cast<std::size_t>(patches[k].y) * words + k / 64;
            for (int i = 0; i < patches[k].rows; ++i, word += words)
                crossing[word] |= std::uint64_t(1) << (k % 64);
        }
    }

    /// Calls draw(patch) for every patch that crosses a row, in order.
    template<class Draw>
    void ForEachCrossing(int row, Draw draw) const {
        for (std::size_t i = 0; i < words; ++i)
            for (std::uint64_t bits = crossing[static_cast<std::size_t>(row) * words + i];
                 bits != 0; bits &= bits - 1)
                draw(patches[i * 64 + static_cast<std::size_t>(std::countr_zero(bits))]);
    }

private:
    Patches patches;
    std::size_t words; ///< of each row
    std::vector<std::uint64_t> crossing;
};

/// out[i] = in[i * step].
void Decimate(std::uint8_t *out, const std::uint8_t *in, int step, int count) {
    if (step == 1)
        CopyBytes(out, in, count);
    else
        CopyRows().decimate(out, in, step, count);
}

/// Draws the second input and the patches over it.
void DrawPatches(const Canvas &canvas, const PatchRows &patches) {
    DrawRows(canvas.plane, [&](const Row &row) {
        const int y = row.y >> (row.step - 1); // of the plane
        row.Show(Input::Two, 0, row.columns);
        patches.ForEachCrossing(y, [&](const Patch &patch) {
            const std::ptrdiff_t source = patch.source + (y - patch.y) * patch.sourcePitch;
            Decimate(row.out + patch.x, canvas.source.samples + source, patch.step, patch.columns);
        });
    });
}

// ---------------------------------------------------------------------------------------------
// Cells of one frame
// ---------------------------------------------------------------------------------------------

/// Calls draw(x, y, place) for every cell: its home in pixels, and where it is now.
template<class Draw>
void ForEachCell(const CellTransition &transition, const CellFrame &frame, Draw draw) {
    double previousY = 0.0;
    for (int row = 0; row < transition.grid.rows; ++row)
        for (int column = 0; column < transition.grid.columns; ++column) {
            const int x = column * frame.cellW;
            const int y = row * frame.cellH;
            const CellPlace home = {double(x - frame.halfW), -double(y - frame.halfH)};
            const CellPlace place = transition.motion(frame, home, previousY);
            previousY = place.y;
            draw(x, y, place);
        }
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Scaled cells
// ---------------------------------------------------------------------------------------------

namespace {

/// How many counters lie below a size. An infinite size has none.
int CountersBelow(double size) {
    if (!(size > 0.0) || std::isinf(size))
        return 0;
    return Convert(std::min(std::ceil(size), double(INT32_MAX)));
}

/// Shrunk to almost nothing, a cell shows its first pixels unscaled.
int Step(double span, double size, double p) {
    return p > 0.999 ? 1 : Convert(span / size);
}

/// Every cell's size and steps in one frame, the corners at 0; all 0 when nothing is left of them.
Cell ScaledCell(const CellTransition &transition, const CellFrame &frame) {
    const int columns = CountersBelow(frame.sizeW), rows = CountersBelow(frame.sizeH);
    if (columns < 1 || rows < 1)
        return {};
    const bool whole = transition.showsWholeFrame;
    const int stepX = Step(whole ? frame.width : frame.cellW, frame.sizeW, frame.p);
    const int stepY = Step(whole ? frame.height : frame.cellH, frame.sizeH, frame.p);
    return {0, 0, 0, 0, columns, rows, stepX, stepY};
}

/// The cells of a frame in order, given their size and steps.
std::vector<Cell> ScaledCells(const CellTransition &transition, const CellFrame &frame, Cell cell) {
    std::vector<Cell> cells;
    if (cell.columns < 1)
        return cells;
    cells.reserve(static_cast<std::size_t>(transition.grid.columns * transition.grid.rows));
    ForEachCell(transition, frame, [&](int homeX, int homeY, CellPlace place) {
        cell.x = Convert(place.x + frame.halfW);
        cell.y = Convert(frame.halfH - place.y);
        if (!transition.showsWholeFrame) {
            cell.sourceX = homeX;
            cell.sourceY = homeY;
        }
        cells.push_back(cell);
    });
    return cells;
}

/// Draws, once for all cells, what a cell shows of the whole plane. Samples out of the source's
/// limit would be the last ones and are left out.
void MakeMiniature(Canvas &canvas, const Cell &cell) {
    CellSource &source = canvas.source;
    const int columns = canvas.plane.Samples(cell.columns), rows = canvas.plane.Samples(cell.rows);
    canvas.miniature.resize(std::size_t(columns) * std::size_t(rows));
    std::ptrdiff_t drawn = 0;
    for (int j = 0; j < rows; ++j) {
        const std::ptrdiff_t offset = j * cell.stepY * source.pitch;
        const int count = EndBelow(source.limit, offset, cell.stepX, columns);
        Decimate(canvas.miniature.data() + drawn, source.samples + offset, cell.stepX, count);
        drawn += count;
    }
    source = {canvas.miniature.data(), columns, drawn};
}

PatchRows PatchesOn(const Canvas &canvas, const Canvas &first, const std::vector<Cell> &cells) {
    Patches patches;
    patches.reserve(cells.size());
    for (const Cell &cell : cells)
        AddCell(patches, first, canvas, cell);
    return {std::move(patches), canvas.plane.rows};
}

} // namespace

void DrawScaledCells(const CellTransition &transition, const CellFrame &frame,
                     const Frames &frames) {
    std::vector<Canvas> canvases;
    canvases.reserve(frames.Planes().size());
    for (const Plane &plane : frames.Planes()) {
        const std::ptrdiff_t pixels = std::ptrdiff_t(frames.width) * frames.height;
        const std::ptrdiff_t limit = plane.step == 1 ? pixels : plane.size;
        canvases.push_back({plane,
                            frames.width + transition.drawsPastEnd,
                            plane.sampleBytes - 1,
                            limit,
                            {plane.start.in1, plane.pitch, limit}});
    }
    Cell shape = ScaledCell(transition, frame);
    if (transition.showsWholeFrame && canvases[0].carried == 0) {
        for (Canvas &canvas : canvases)
            MakeMiniature(canvas, shape);
        shape.stepX = shape.stepY = 1;
    }
    const std::vector<Cell> cells = ScaledCells(transition, frame, shape);
    std::optional<PatchRows> patches;
    for (const Canvas &canvas : canvases) {
        if (canvas.plane.kind != Plane::Cr) // whose patches are those of Cb
            patches.emplace(PatchesOn(canvas, canvases[0], cells));
        DrawPatches(canvas, *patches);
    }
}

void DrawScaledCells(const CellTransition &transition, const Frames &frames, Progress progress) {
    DrawScaledCells(transition, {transition.grid, frames, progress}, frames);
}

// ---------------------------------------------------------------------------------------------
// Cropped cells
// ---------------------------------------------------------------------------------------------

namespace {

/// What is left of a cell in one direction: the first pixel, and how many.
struct Crop {
    int first;
    int count;
};

/// Cuts a cell at the frame's edges; nothing is left when it lies wholly beyond one of them.
Crop CropCell(double position, double size, int bound) {
    if (position < Convert(-size) || position > bound)
        return {0, 0};
    const double before = std::min(0.0, position);
    const double behind = std::max(0.0, position + size - bound);
    return {Convert(std::max(0.0, position)), Convert(before + size - behind)};
}

} // namespace

void DrawCroppedCells(const CellTransition &transition, const CellFrame &frame,
                      const Frames &frames) {
    const Plane &plane = frames[Plane::Packed];
    const Canvas canvas = {
        plane, frames.width * 4, 0, plane.size, {plane.start.in1, plane.pitch, plane.size}};
    Patches patches;
    ForEachCell(transition, frame, [&](int homeX, int homeY, CellPlace place) {
        const Crop x = CropCell(place.x + frame.halfW, frame.sizeW, frames.width);
        const Crop y = CropCell(frame.halfH - place.y, frame.sizeH, frames.height);
        AddCell(patches, canvas, canvas,
                {x.first * 4, y.first, homeX * 4, homeY, x.count * 4, y.count, 1, 1});
    });
    DrawPatches(canvas, {std::move(patches), plane.rows});
}

} // namespace tp
