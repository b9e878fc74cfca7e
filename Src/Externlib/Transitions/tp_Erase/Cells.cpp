#include "Cells.h"

#include "CellRows.h"
#include "Pixels.h"

#include <cmath>
#include <span>
#include <vector>

namespace tp {

CellFrame::CellFrame(const CellGrid &grid, int width, int height, const TransParam &param)
    : width(width), height(height), cellW(width / grid.across), cellH(height / grid.down),
      halfW(width / 2), halfH(height / 2), p(param.dCurrent / param.dTotal), q(1 - p),
      sizeW(q * cellW), sizeH(q * cellH), move(width * p * 0.5) {}

namespace {

// ---------------------------------------------------------------------------------------------
// Patches: what cells leave on a plane, cut to it
// ---------------------------------------------------------------------------------------------

/// The samples of a plane that cells show. Those at the limit and behind it are not read.
struct CellSource {
    const std::uint8_t *samples;
    std::ptrdiff_t pitch;
    std::ptrdiff_t limit;
};

/// A plane that cells are drawn on.
struct CellPlane {
    Triple frames;
    std::ptrdiff_t pitch;
    int width; ///< visible bytes of a row
    int height;
    int room;             ///< bytes of a row that cells may write: width, or with it one of padding
    std::ptrdiff_t limit; ///< cells do not start a sample at this offset or behind it
    CellSource source;

    CellPlane(const Triple &frames, std::ptrdiff_t pitch, int width, int height, bool drawsPastEnd,
              std::ptrdiff_t limit)
        : frames(frames), pitch(pitch), width(width), height(height),
          room(width + (drawsPastEnd && pitch > width)),
          limit(limit), source{frames.in1, pitch, limit} {}
};

/// A cell in whole samples of a plane.
struct Cell {
    int x, y;             ///< top left corner on the plane
    int sourceX, sourceY; ///< and in the source, not negative
    int columns, rows;
    int stepX, stepY;
};

/// Part of a cell: a rectangle that lies on the plane, and where its samples come from.
struct Patch {
    int x, y;
    int columns, rows;
    std::ptrdiff_t source; ///< offset of the first sample
    std::ptrdiff_t sourcePitch;
    int step;
};

using Patches = std::vector<Patch>;

/// The counters [begin, end).
struct Counters {
    int begin;
    int end;
    bool IsEmpty() const { return begin >= end; }
};

/// The counters below count whose place, position + counter, is in 0 .. bound - 1.
Counters Visible(std::ptrdiff_t position, std::ptrdiff_t count, std::ptrdiff_t bound) {
    const std::ptrdiff_t begin = std::max<std::ptrdiff_t>(0, -position);
    const std::ptrdiff_t end = std::min(count, bound - position);
    return begin < end ? Counters{static_cast<int>(begin), static_cast<int>(end)} : Counters{0, 0};
}

/// The end of those counters whose sample, step apart from offset on, lies below the limit.
int EndBelow(std::ptrdiff_t limit, std::ptrdiff_t offset, std::ptrdiff_t step, int end) {
    if (offset + (end - 1) * step < limit)
        return end;
    return offset < limit ? static_cast<int>((limit - offset + step - 1) / step) : 0;
}

/// The end of those of a cell's columns that are within both limits in row j.
int EndOfRow(const CellPlane &plane, const Cell &cell, int j, int end) {
    const std::ptrdiff_t to = (cell.y + j) * plane.pitch + cell.x;
    const std::ptrdiff_t from = (cell.sourceY + j * cell.stepY) * plane.source.pitch + cell.sourceX;
    return EndBelow(plane.source.limit, from, cell.stepX, EndBelow(plane.limit, to, 1, end));
}

/// Adds a rectangle of a cell's counters. Columns behind the row's bytes are on the row below; the
/// tail is the number of bytes that the last column's sample carries along.
void AddRectangle(Patches &patches, const CellPlane &plane, const Cell &cell, Counters columns,
                  Counters rows, int tail) {
    const int x = cell.x + columns.begin, y = cell.y + rows.begin;
    const int width = columns.end - columns.begin, height = rows.end - rows.begin;
    const std::ptrdiff_t step = cell.stepX, pitch = cell.stepY * plane.source.pitch;
    const std::ptrdiff_t source = cell.sourceY * plane.source.pitch + cell.sourceX +
                                  rows.begin * pitch + columns.begin * step;
    const int behind = std::max(0, static_cast<int>(x + width - plane.pitch));
    const int inside = width - behind;
    patches.push_back({x, y, inside, height, source, pitch, cell.stepX});
    if (behind > 0)
        patches.push_back({0, y + 1, behind, height, source + inside * step, pitch, cell.stepX});
    if (tail > 0)
        patches.push_back({x + width, y, tail, height, source + (width - 1) * step + 1, pitch, 1});
}

/// Adds a cell's rows from column begin to endOf(row), which does not grow with the row.
template<class EndOf>
void AddRows(Patches &patches, const CellPlane &plane, const Cell &cell, Counters rows, int begin,
             int tail, EndOf endOf) {
    while (!rows.IsEmpty()) {
        const int end = endOf(rows.begin);
        if (begin >= end)
            return;
        int last = rows.end;
        if (endOf(last - 1) != end)
            for (last = rows.begin + 1; endOf(last) == end;)
                ++last;
        AddRectangle(patches, plane, cell, {begin, end}, {rows.begin, last}, tail);
        rows.begin = last;
    }
}

// ---------------------------------------------------------------------------------------------
// Drawing patches over the second input
// ---------------------------------------------------------------------------------------------

/// out[i] = in[i * step].
void Sample(std::uint8_t *out, const std::uint8_t *in, int step, int count) {
    if (step == 1)
        CopyBytes(out, in, count);
    else
        CellRows().sample(out, in, step, count);
}

/// Draws a patch's row y to a row that starts at to.
void DrawPatchRow(const CellPlane &plane, const Patch &patch, int y, std::uint8_t *to) {
    const std::ptrdiff_t source = patch.source + (y - patch.y) * patch.sourcePitch;
    Sample(to + patch.x, plane.source.samples + source, patch.step, patch.columns);
}

/// Draws within the caches: everything of the second input, then one patch after the other.
void DrawInPlace(const CellPlane &plane, const Patches &patches) {
    for (int y = 0; y < plane.height; ++y)
        plane.frames.At(y * plane.pitch).Copy(Input::Two, 0, plane.width);
    for (const Patch &patch : patches)
        for (int y = patch.y; y < patch.y + patch.rows; ++y)
            DrawPatchRow(plane, patch, y, plane.frames.out + y * plane.pitch);
}

/// Draws a row with all its patches and sends it past the caches.
void StreamRow(const CellPlane &plane, int y, std::span<const Patch *const> patches,
               const ScratchRow &scratch) {
    const Triple row = plane.frames.At(y * plane.pitch);
    if (patches.empty()) {
        CopyStreaming(row.out, row.in2, plane.width);
        return;
    }
    std::uint8_t *to = scratch.For(row.out);
    CopyBytes(to, row.in2, plane.width);
    CopyBytes(to + plane.width, row.out + plane.width, plane.room - plane.width);
    for (const Patch *patch : patches)
        DrawPatchRow(plane, *patch, y, to);
    CopyStreaming(row.out, to, plane.room);
}

/// Draws row by row, in bands within which every row has the same patches.
void DrawStreaming(const CellPlane &plane, const Patches &patches) {
    const ScratchRow scratch(plane.room);
    std::vector<const Patch *> band;
    band.reserve(patches.size());
    for (int y = 0, end = 0; y < plane.height; y = end) {
        band.clear();
        end = plane.height;
        for (const Patch &patch : patches) {
            const int below = patch.y + patch.rows;
            if (y < patch.y) {
                end = std::min(end, patch.y);
            } else if (y < below) {
                end = std::min(end, below);
                band.push_back(&patch);
            }
        }
        for (int row = y; row < end; ++row)
            StreamRow(plane, row, band, scratch);
    }
}

/// Draws the second input on a plane and the patches over it.
void DrawPatches(const CellPlane &plane, const Patches &patches) {
    if (plane.frames.IsStreamed())
        DrawStreaming(plane, patches);
    else
        DrawInPlace(plane, patches);
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

/// Calls draw(cell) for every scaled cell of a frame, given its size and steps.
template<class Draw>
void ForEachScaledCell(const CellTransition &transition, const CellFrame &frame, Cell cell,
                       Draw draw) {
    if (cell.columns < 1)
        return;
    ForEachCell(transition, frame, [&](int homeX, int homeY, CellPlace place) {
        cell.x = Convert(place.x + frame.halfW);
        cell.y = Convert(frame.halfH - place.y);
        if (!transition.showsWholeFrame) {
            cell.sourceX = homeX;
            cell.sourceY = homeY;
        }
        draw(cell);
    });
}

/// Adds what a cell leaves on a plane of this many columns.
void AddCell(Patches &patches, const CellPlane &plane, const Cell &cell, int bound, int tail) {
    const Counters columns = Visible(cell.x, cell.columns, bound);
    const Counters rows = Visible(cell.y, cell.rows, plane.height);
    if (!columns.IsEmpty())
        AddRows(patches, plane, cell, rows, columns.begin, tail,
                [&](int j) { return EndOfRow(plane, cell, j, columns.end); });
}

/// Adds what a cell leaves on a chroma plane. The sample of every other column and row of the cell,
/// counted from its corner, comes along when its pixel is drawn.
void AddChroma(Patches &patches, const CellPlane &luma, const CellPlane &chroma, const Cell &cell,
               int bound) {
    const Counters columns = Visible(cell.x, cell.columns, bound);
    const Counters rows = Visible(cell.y, cell.rows, luma.height);
    const Cell half = {cell.x >> 1,  cell.y >> 1, cell.sourceX / 2, cell.sourceY / 2,
                       cell.columns, cell.rows,   cell.stepX,       cell.stepY};
    if (!columns.IsEmpty())
        AddRows(patches, chroma, half, {HalfUp(rows.begin), HalfUp(rows.end)},
                HalfUp(columns.begin), 0, [&](int j) {
                    const int end = EndOfRow(luma, cell, 2 * j, columns.end);
                    return EndOfRow(chroma, half, j, HalfUp(end));
                });
}

/// Draws what a cell shows of a whole plane, row after row. Samples out of the source's limit would
/// be the last ones and are left out.
CellSource Miniature(const CellSource &from, const Cell &cell, int columns, int rows,
                     std::vector<std::uint8_t> &samples) {
    samples.resize(std::size_t(columns) * std::size_t(rows));
    std::ptrdiff_t limit = 0;
    for (int j = 0; j < rows; ++j) {
        const std::ptrdiff_t offset = j * cell.stepY * from.pitch;
        const int count = EndBelow(from.limit, offset, cell.stepX, columns);
        Sample(samples.data() + limit, from.samples + offset, cell.stepX, count);
        limit += count;
    }
    return {samples.data(), columns, limit};
}

} // namespace

void DrawScaledCells(const CellTransition &transition, const CellFrame &frame,
                     const PlanarFrames &frames) {
    const bool past = transition.drawsPastEnd;
    const int halfW = HalfUp(frames.width), halfH = HalfUp(frames.height);
    CellPlane luma(frames.y, frames.pitchY, frames.width, frames.height, past,
                   std::ptrdiff_t(frames.width) * frames.height);
    CellPlane chroma[] = {{frames.u, frames.pitchUV, halfW, halfH, past, frames.ChromaBytes()},
                          {frames.v, frames.pitchUV, halfW, halfH, past, frames.ChromaBytes()}};
    Cell shape = ScaledCell(transition, frame);
    std::vector<std::uint8_t> miniatures[3];
    if (transition.showsWholeFrame) {
        const int halfColumns = HalfUp(shape.columns), halfRows = HalfUp(shape.rows);
        luma.source = Miniature(luma.source, shape, shape.columns, shape.rows, miniatures[0]);
        for (int i = 0; i < 2; ++i)
            chroma[i].source =
                Miniature(chroma[i].source, shape, halfColumns, halfRows, miniatures[1 + i]);
        shape.stepX = shape.stepY = 1;
    }
    Patches lumaPatches, chromaPatches;
    ForEachScaledCell(transition, frame, shape, [&](const Cell &cell) {
        AddCell(lumaPatches, luma, cell, frames.width + past, 0);
        AddChroma(chromaPatches, luma, chroma[0], cell, frames.width + past);
    });
    DrawPatches(luma, lumaPatches);
    DrawPatches(chroma[0], chromaPatches);
    DrawPatches(chroma[1], chromaPatches);
}

void DrawScaledCells(const CellTransition &transition, const CellFrame &frame,
                     const PackedFrames &frames) {
    const bool past = transition.drawsPastEnd;
    const CellPlane plane(frames.pixels, frames.Pitch(), frames.width * 4, frames.height, past,
                          std::ptrdiff_t(frames.width) * frames.height);
    Patches patches;
    ForEachScaledCell(transition, frame, ScaledCell(transition, frame), [&](const Cell &cell) {
        AddCell(patches, plane, cell, frames.width + past, 3);
    });
    DrawPatches(plane, patches);
}

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
                      const PackedFrames &frames) {
    const int width = frames.width * 4;
    const CellPlane plane(frames.pixels, frames.Pitch(), width, frames.height, false,
                          frames.Pitch() * frames.height);
    Patches patches;
    ForEachCell(transition, frame, [&](int homeX, int homeY, CellPlace place) {
        const Crop x = CropCell(place.x + frame.halfW, frame.sizeW, frames.width);
        const Crop y = CropCell(frame.halfH - place.y, frame.sizeH, frames.height);
        const Cell cell = {x.first * 4, y.first, homeX * 4, homeY, x.count * 4, y.count, 1, 1};
        AddCell(patches, plane, cell, width, 0);
    });
    DrawPatches(plane, patches);
}

} // namespace tp
