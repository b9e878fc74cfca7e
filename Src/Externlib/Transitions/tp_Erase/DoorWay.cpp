// DoorWay: the outgoing frame opens like a pair of doors, the incoming one approaches behind, above
// its mirror image. The geometry is per pixel, in floating point

#include "Frames.h"
#include "ParallelRows.h"
#include "Pixels.h"
#include "Progress.h"
#include "ShaderRows.h"
#include "tp_Erase.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

using namespace tp;

namespace {

/// In which precision the doors' columns move.
enum class DoorStep {
    PlanarDouble, ///< double, the column truncated from the double
    Double,       ///< double, rounded to float, the column truncated from the float
    Float,        ///< float throughout
};

/// What lies behind the doors in one row, across the approaching frame's columns.
struct Backdrop {
    enum Kind { Floor, Picture, Reflection } kind;
    int row;     ///< the second input's
    float share; ///< of the second input in its reflection
};

/// One frame of the doors. Everything of a door but the source row depends on the column alone, and
/// what lies behind the doors is a rectangle above its mirror image.
struct DoorWay {
    const ShaderKernels &kernels = Shaders();
    int width;
    int height;
    float size;                             ///< depth of the approaching frame: 3 far, 1 full size
    std::array<Span, 2> doors;              ///< columns that the left and the right door cover
    std::vector<Span> found;                ///< columns whose samples on the doors are looked for
    Span across;                            ///< columns that the approaching frame covers
    bool isWhole;                           ///< the doors cover their columns in every row
    std::vector<float> squeeze;             ///< per column: how much a door's rows shrink
    std::vector<std::int32_t> shown;        ///< per column: the first input's column on a door
    std::vector<std::int32_t> behind;       ///< per column: the second input's column
    std::vector<std::int32_t> behindChroma; ///< the same in samples of chroma
    std::vector<Backdrop> backdrops;        ///< per row

    DoorWay(const Frames &frames, double progress, DoorStep step);
    /// What FindRows needs to know of the doors in all rows.
    void PrepareRows();
    float RowCentre() const { return static_cast<float>(height >> 1); }
    /// Finds the first input's rows that a door shows in row y, -1 where that is none; whether all
    /// are found. `rows` has room for every column.
    bool FindRows(std::vector<std::int32_t> &rows, Span columns, int y) const {
        return kernels.squeezedRows(rows.data() + columns.begin, squeeze.data() + columns.begin,
                                    RowCentre(), static_cast<float>(y),
                                    static_cast<float>(height - 1), columns.Size());
    }
};

/// Where a door's pixel comes from: x decides whether that is inside the frame.
struct DoorColumn {
    float x;
    std::int32_t column;
};

DoorColumn ShownColumn(double progress, int halfWidth, int x, DoorStep step) {
    const int way = x > halfWidth ? -halfWidth : halfWidth;
    if (step == DoorStep::Float) {
        const float at = float(way) * static_cast<float>(progress) + float(x);
        return {at, Convert(at)};
    }
    const double at = way * progress + x;
    const auto rounded = static_cast<float>(at);
    return {rounded, Convert(step == DoorStep::PlanarDouble ? at : rounded)};
}

/// Takes in a column at the right end of a span.
void Add(Span &span, int column) {
    span = {span.IsEmpty() ? column : span.begin, column + 1};
}

Backdrop BackdropAt(const DoorWay &way, int y) {
    Point2f at = {0, float(y - (way.height >> 1)) * way.size + way.RowCentre()};
    if (inBounds(at, way.height, way.width))
        return {Backdrop::Picture, static_cast<int>(at.y), 0};
    at = project(at, way.height);
    if (inBounds(at, way.height, way.width))
        return {Backdrop::Reflection, static_cast<int>(at.y),
                mix(1, 0, at.y / static_cast<float>(way.height)) * 0.4F};
    return {Backdrop::Floor, 0, 0};
}

DoorWay::DoorWay(const Frames &frames, double progress, DoorStep step)
    : width(frames.width), height(frames.height),
      size(mix(1, 3, static_cast<float>(1.0 - progress))) {
    constexpr double perspective = 0.4F;
    const int halfWidth = width >> 1;
    const float middle = 0.5F * float(width);
    const auto slit = static_cast<float>(progress * width);
    const auto widened = static_cast<float>(width * (perspective * progress)) + float(width);
    const auto slope = static_cast<float>(perspective * progress);
    for (auto *columns : {&shown, &behind, &behindChroma})
        columns->resize(std::size_t(width));
    squeeze.resize(std::size_t(width));
    // Along either half of the row each condition changes at most once, so that both together hold
    // in one span; and so does the one for the approaching frame along the whole row.
    for (int x = 0; x < width; ++x) {
        const auto i = std::size_t(x);
        const float fromSlit = 2.0F * std::fabs(float(x) - middle) - slit;
        const DoorColumn door = ShownColumn(progress, halfWidth, x, step);
        squeeze[i] = float(width) / (widened - fromSlit * slope);
        shown[i] = door.column;
        Point2f at = {door.x, 0};
        if (fromSlit > 0 && inBounds(at, height, width))
            Add(doors[x > halfWidth], x);
        at.x = float(x - halfWidth) * size + float(halfWidth);
        behind[i] = Convert(at.x);
        behindChroma[i] = behind[i] >> 1;
        if (inBounds(at, height, width))
            Add(across, x);
    }
    for (int y = 0; y < height; ++y)
        backdrops.push_back(BackdropAt(*this, y));
    PrepareRows();
}

void DoorWay::PrepareRows() {
    // Over a narrow slit it is quicker to go on than to begin anew.
    constexpr int narrowSlit = 128;
    found = {doors[0], doors[1]};
    if (!doors[0].IsEmpty() && doors[1].begin - doors[0].end < narrowSlit)
        found = {{doors[0].begin, std::max(doors[0].end, doors[1].end)}};
    // A column's source rows run in one direction, so its first and its last row tell.
    std::vector<std::int32_t> rows(squeeze.size());
    isWhole = true;
    for (const Span &door : doors)
        for (const int y : {0, height - 1})
            isWhole &= FindRows(rows, door, y);
}

/// Columns of a row that show a door or the approaching frame.
struct Piece {
    Span columns;
    bool isDoor;
};

/// One row of the picture, and room for drawing it.
struct DoorRow {
    int y = 0;
    /// From left to right; the rest is black. Of luma or whole pixels, and those that last in
    /// chroma.
    std::array<std::vector<Piece>, 2> pieces;
    std::vector<std::int32_t> doorRows;  ///< per column of a door: the first input's row
    std::vector<std::int32_t> offsets;   ///< per column of a door: the first input's sample
    std::vector<std::uint8_t> reflected; ///< samples on their way to be added

    explicit DoorRow(const DoorWay &way)
        : doorRows(way.squeeze.size()), offsets(way.squeeze.size()),
          reflected(way.squeeze.size() * 4) {}
};

void FindPieces(DoorRow &row, const DoorWay &way, int y) {
    row.y = y;
    const Backdrop *backdrop = &way.backdrops[std::size_t(y)];
    // What an even row copies into chroma is lost where the row below copies as well.
    const bool isLast = (y & 1) || y + 1 == way.height;
    const bool doorsLast = isLast || !way.isWhole;
    const bool behindLasts =
        isLast || backdrop[0].kind != Backdrop::Picture || backdrop[1].kind != Backdrop::Picture;
    for (auto &pieces : row.pieces)
        pieces.clear();
    const auto add = [&](const Piece &piece, bool lasts) {
        for (std::size_t i = 0; i < (lasts ? 2 : 1); ++i)
            row.pieces[i].push_back(piece);
    };
    const auto addBehind = [&](Span gap) {
        const Span columns = gap.Within(way.across);
        if (!columns.IsEmpty() && backdrop->kind != Backdrop::Floor)
            add({columns, false}, behindLasts);
    };
    for (const Span &columns : way.found)
        way.FindRows(row.doorRows, columns, y);
    int done = 0;
    for (const Span &door : way.doors) {
        for (int x = door.begin; x < door.end; ++x) {
            int end = way.isWhole ? door.end : x;
            while (end < door.end && row.doorRows[std::size_t(end)] >= 0)
                ++end;
            if (end > x) {
                addBehind({done, x});
                add({{x, end}, true}, doorsLast);
                done = end;
            }
            x = end;
        }
    }
    addBehind({done, way.width});
}

/// Where the doors' samples lie in a plane of this pitch, both coordinates shifted.
void FindOffsets(DoorRow &row, const DoorWay &way, std::int32_t pitch, int shift) {
    for (const Span &columns : way.found)
        way.kernels.offsets(row.offsets.data() + columns.begin, row.doorRows.data() + columns.begin,
                            way.shown.data() + columns.begin, pitch, shift, columns.Size());
}

void Gather(const ShaderKernels &kernels, const Layout &layout, std::uint8_t *out,
            const std::uint8_t *in, const std::int32_t *offsets, std::ptrdiff_t count) {
    if (layout.sampleBytes == 4)
        kernels.gatherPixels(out, in, offsets, count);
    else
        kernels.gatherBytes(out, in, offsets, layout.step, count);
}

/// Copies columns pixel by pixel from the samples at these offsets. Every pixel writes the chroma
/// sample of its block, which keeps the last one's.
void CopyColumns(const ShaderKernels &kernels, const Layout &layout, std::uint8_t *out,
                 const std::uint8_t *in, const std::int32_t *offsets, Span columns) {
    const int shift = layout.step - 1;
    const int first = columns.begin >> shift;
    const int last = columns.end >> shift;
    Gather(kernels, layout, out + std::ptrdiff_t(first) * layout.sampleBytes, in,
           offsets + (first << shift) + shift, last - first);
    if (columns.end & shift)
        out[last] = in[offsets[columns.end - 1]];
}

/// Adds a share of the samples at these offsets pixel by pixel; to chroma the even columns', then
/// the odd ones'.
void AddColumns(const ShaderKernels &kernels, const Layout &layout, std::uint8_t *out,
                const std::uint8_t *in, const std::int32_t *offsets, Span columns, float share,
                std::uint8_t *samples) {
    const int shift = layout.step - 1;
    for (int odd = 0; odd <= shift; ++odd) {
        const int first = (columns.begin + shift - odd) >> shift;
        const int count = ((columns.end + shift - odd) >> shift) - first;
        Gather(kernels, layout, samples, in, offsets + (first << shift) + odd, count);
        kernels.addShare(out + std::ptrdiff_t(first) * layout.sampleBytes, samples, share,
                         std::ptrdiff_t(count) * layout.sampleBytes);
    }
}

/// Draws a piece into a row of a plane.
void DrawPiece(const Plane &plane, const DoorWay &way, DoorRow &doorRow, const Piece &piece) {
    std::uint8_t *out = plane.RowOf(doorRow.y).out;
    const Span columns = piece.columns;
    if (piece.isDoor) {
        CopyColumns(way.kernels, plane, out, plane.start.in1, doorRow.offsets.data(), columns);
        return;
    }
    const Backdrop &backdrop = way.backdrops[std::size_t(doorRow.y)];
    const std::uint8_t *in = plane.RowOf(backdrop.row).in2;
    const auto &offsets = plane.step == 1 ? way.behind : way.behindChroma;
    if (backdrop.kind == Backdrop::Picture)
        CopyColumns(way.kernels, plane, out, in, offsets.data(), columns);
    else
        AddColumns(way.kernels, plane, out, in, offsets.data(), columns, backdrop.share,
                   doorRow.reflected.data());
}

/// Draws rows over black. Those of chroma take part in two rows of the picture, in their order.
void DrawDoorWay(const Frames &frames, const DoorWay &way, const cv::Range &rows) {
    DoorRow row(way);
    for (int y = rows.start; y < rows.end; ++y) {
        FindPieces(row, way, y);
        for (const Plane &plane : frames.Planes()) {
            if (plane.kind == Plane::Packed)
                FillBytes(plane.RowOf(y).out, 0, plane.pitch);
            const auto &pieces = row.pieces[std::size_t(plane.step - 1)];
            const std::ptrdiff_t pitch = plane.kind == Plane::Packed ? plane.columns : plane.pitch;
            if (plane.kind != Plane::Cr && !pieces.empty()) // Cr's samples lie as those of Cb
                FindOffsets(row, way, static_cast<std::int32_t>(pitch), plane.step - 1);
            for (const Piece &piece : pieces)
                DrawPiece(plane, way, row, piece);
        }
    }
}

} // namespace

void TrDoorWay(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const double progress = Smooth(ProgressOf(*param)).Fraction();
    const Frames frames(out, in1, in2);
    frames.FillBlack();
    if (frames.width < 1 || frames.height < 1)
        return;
    const DoorWay way(frames, progress, DoorStep::PlanarDouble);
    DrawDoorWay(frames, way, {0, frames.height});
}

void TrDoorWayRGB(void *out, void *in1, void *in2, const TransParam *param) {
    constexpr int serialPixels = 10000;
    const double progress = Smooth(ProgressOf(*param)).Fraction();
    const Frames frames(out, in1, in2);
    if (frames.width < 1 || frames.height < 1)
        return;
    CheckBuffers(frames);
    const bool isSerial = frames.width * frames.height <= serialPixels;
    const DoorWay way(frames, progress, isSerial ? DoorStep::Double : DoorStep::Float);
    const auto draw = [&](const cv::Range &rows) { DrawDoorWay(frames, way, rows); };
    if (isSerial)
        draw({0, frames.height});
    else
        DrawInParallel(frames.height, draw);
}
