/// \file Frames.h
/// The frames of one call: planes, their rows, and the one walk over all of them. A transition
/// works out the geometry of each row of the picture in columns; a row knows pitch, pixel size,
/// chroma subsampling and direction, and cuts what it is told to the picture.
#pragma once

#include "Copies.h"
#include "Pixels.h"
#include "tp_Erase.h"

#include <Ozmu_ImageProc.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tp {

/// Which of the two inputs.
enum class Input { One, Two };

constexpr Input Other(Input input) {
    return input == Input::One ? Input::Two : Input::One;
}

/// The columns [begin, end) of a row; empty when end is not above begin.
struct Span {
    int begin = 0;
    int end = 0;

    int Size() const { return end - begin; }
    bool IsEmpty() const { return end <= begin; }
    /// What of it lies within another.
    Span Within(Span other) const {
        return {std::max(begin, other.begin), std::min(end, other.end)};
    }
};

/// The same place in the output and in both inputs.
struct Place {
    std::uint8_t *out;
    const std::uint8_t *in1;
    const std::uint8_t *in2;

    Place At(std::ptrdiff_t offset) const { return {out + offset, in1 + offset, in2 + offset}; }
    const std::uint8_t *From(Input input) const { return input == Input::One ? in1 : in2; }
    /// Copies the bytes [begin, end) from one input to the same place.
    void Copy(Input input, std::ptrdiff_t begin, std::ptrdiff_t end) const {
        CopyBytes(out + begin, From(input) + begin, end - begin);
    }
};

/// How columns of the picture lie in the rows of a plane.
struct Layout {
    enum Kind { Luma, Cb, Cr, Packed } kind;
    std::ptrdiff_t pitch; ///< bytes from one row to the next
    int columns;          ///< of the picture
    int step;             ///< rows of the picture per row, and columns per sample: 1 or 2
    int sampleBytes;      ///< 4 for whole pixels

    /// The samples that belong to the picture's first n columns, or the rows to its first n rows: a
    /// chroma sample goes with the even one of its two.
    int Samples(int n) const { return step == 1 ? n : HalfUp(n); }
    std::ptrdiff_t Bytes(int n) const { return std::ptrdiff_t(Samples(n)) * sampleBytes; }
    std::ptrdiff_t VisibleBytes() const { return Bytes(columns); }
};

/// One row of a plane, addressed by columns of the picture.
struct Row : Place, Layout {
    int y; ///< the picture's row

    /// Shows the columns [x0, x1) of one input in place, cut to the picture.
    void Show(Input input, int x0, int x1) const {
        Copy(input, Bytes(std::max(x0, 0)), Bytes(std::min(x1, columns)));
    }
    /// Shows the columns of one input from `source` on in the columns [x0, x1); both lie inside the
    /// picture. A chroma sample comes from the half of its source column, rounded down.
    void Show(Input input, int x0, int x1, int source) const {
        const int first = source + (x0 & (step - 1));
        const int sample = step == 1 ? first : first >> 1;
        const std::ptrdiff_t begin = Bytes(x0);
        CopyBytes(out + begin, From(input) + std::ptrdiff_t(sample) * sampleBytes,
                  Bytes(x1) - begin);
    }
};

/// One plane of the output and of both inputs, which share its geometry.
struct Plane : Layout {
    Place start;         ///< of the first row in memory
    std::ptrdiff_t size; ///< bytes of all rows, padding included
    int rows;            ///< of the plane
    bool isBottomUp;     ///< the picture's row 0 is the last in memory

    /// The row with the samples of the picture's row y; in chroma, of the block that it lies in.
    Row RowOf(int y) const {
        const int row = isBottomUp ? rows - 1 - y : step == 1 ? y : y >> 1;
        return {start.At(row * pitch), *this, y};
    }
    /// Shows `count` rows of an input from row `source` on at row `target`, padding included.
    void CopyRows(Input input, int target, int source, int count) const {
        const auto offset = [&](int row) {
            return (isBottomUp ? rows - row - count : row) * pitch;
        };
        CopyBytes(start.out + offset(target), start.From(input) + offset(source), count * pitch);
    }
};

/// How the rows of a packed picture are counted.
enum class RowOrder {
    Memory,   ///< from the first in memory
    BottomUp, ///< from the last in memory
};

/// One call's frames: the planes of one layout.
class Frames {
public:
    /// In planar layout, all with the output's geometry. With a chroma step of 1 the chroma planes
    /// are as large as the luma plane and have its pitch.
    Frames(const YUVImage *out, const YUVImage *in1, const YUVImage *in2, int chromaStep = 2)
        : width(out->nWidth), height(out->nHeight), count(3) {
        const auto plane = [&](Plane::Kind kind, std::uint8_t *const YUVImage::*start, int step) {
            const std::ptrdiff_t pitch = step == 1 ? out->nPitchY : out->nPitchUV;
            const int rows = step == 1 ? height : HalfUp(height);
            return Plane{{kind, pitch, width, step, 1},
                         {out->*start, in1->*start, in2->*start},
                         pitch * rows,
                         rows,
                         false};
        };
        planes = {plane(Plane::Luma, &YUVImage::pY, 1), plane(Plane::Cb, &YUVImage::pU, chromaStep),
                  plane(Plane::Cr, &YUVImage::pV, chromaStep)};
    }

    /// In packed layout, rows without padding. Asks the imaging library: the output's size, then
    /// the pixels of all three.
    Frames(void *out, void *in1, void *in2, RowOrder order = RowOrder::Memory)
        : Frames(DIGetWidth(out), DIGetHeight(out), out, in1, in2, order) {}
    Frames(int width, int height, void *out, void *in1, void *in2, RowOrder order)
        : Frames(width, height, width * 4, out, in1, in2, order) {}
    /// The same with a geometry that the caller has asked for, as when rows have padding. Sizes are
    /// counted in signed 32-bit arithmetic, which wraps from 2 GiB on.
    Frames(int width, int height, int pitch, void *out, void *in1, void *in2, RowOrder order)
        : width(width), height(height), count(1) {
        planes[0] = {{Plane::Packed, pitch, width, 1, 4},
                     {DIGetBits(out), DIGetBits(in1), DIGetBits(in2)},
                     pitch * height,
                     height,
                     order == RowOrder::BottomUp};
    }

    std::span<const Plane> Planes() const { return {planes.data(), count}; }
    const Plane &operator[](Plane::Kind kind) const {
        return planes[kind == Plane::Packed ? 0 : kind];
    }

    /// Copies one input whole, padding included.
    void CopyWhole(Input input) const {
        for (const Plane &plane : Planes())
            plane.start.Copy(input, 0, plane.size);
    }
    /// Fills a planar output, padding included, with video black.
    void FillBlack() const {
        for (const Plane &plane : Planes())
            FillBytes(plane.start.out, plane.kind == Plane::Luma ? kBlack : kNeutral, plane.size);
    }

    const int width;
    const int height;

private:
    std::size_t count;
    std::array<Plane, 3> planes;
};

/// The walk over a plane, in the order of memory: draw(row) for each of its rows.
template<class Draw>
inline void DrawRows(const Plane &plane, Draw draw) {
    const Place start = plane.start;
    const int rows = plane.rows;
    const bool isBottomUp = plane.isBottomUp;
    const auto walk = [&](Layout layout, int step) {
        layout.step = step; // a constant below, so that no row asks for it
        for (int i = 0; i < rows; ++i)
            draw(Row{start.At(i * layout.pitch), layout, isBottomUp ? rows - 1 - i : i * step});
    };
    if (plane.step == 1)
        walk(plane, 1);
    else
        walk(plane, 2);
}

/// The same over every plane in turn.
template<class Draw>
void DrawRows(const Frames &frames, Draw draw) {
    for (const Plane &plane : frames.Planes())
        DrawRows(plane, draw);
}

/// The picture's row y in every plane that has samples of it.
template<class Draw>
inline void DrawRow(const Frames &frames, int y, Draw draw) {
    for (const Plane &plane : frames.Planes())
        if ((y & (plane.step - 1)) == 0)
            draw(plane.RowOf(y));
}

/// Copies what is visible of one input.
inline void CopyPicture(const Frames &frames, Input input) {
    DrawRows(frames, [&](const Row &row) { row.Show(input, 0, row.columns); });
}

} // namespace tp
