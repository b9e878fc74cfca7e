/// \file Frames.h
/// Views of the host's frames, planar and packed: one call's output and two inputs side by side, a
/// row of them at a time. A row takes spans of pixel columns [x0, x1), cuts them to the frame and
/// knows pitch, pixel size and chroma subsampling, so that a transition speaks of columns only.
#pragma once

#include "Pixels.h"
#include "Rows.h"
#include "tp_Erase.h"

#include <Ozmu_ImageProc.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace tp {
inline namespace old {
enum class Input { One, Two };

/// The same place in the output and in both inputs, and how this frame's bytes are copied.
struct Triple {
    std::uint8_t *out;
    const std::uint8_t *in1;
    const std::uint8_t *in2;
    CopyFunction copy = CopyBytes;

    bool IsStreamed() const { return copy == CopyStreaming; }
    Triple At(std::ptrdiff_t offset) const {
        return {out + offset, in1 + offset, in2 + offset, copy};
    }
    /// Draws to another place, within the caches.
    void Redirect(std::uint8_t *scratch) {
        out = scratch;
        copy = CopyBytes;
    }
    const std::uint8_t *From(Input input) const { return input == Input::One ? in1 : in2; }
    /// Copies the samples [begin, end) from one input to the same place.
    void Copy(Input input, std::ptrdiff_t begin, std::ptrdiff_t end) const {
        copy(out + begin, From(input) + begin, end - begin);
    }
    /// Copies an input's samples from source on to [begin, end).
    void CopyFrom(Input input, std::ptrdiff_t source, std::ptrdiff_t begin,
                  std::ptrdiff_t end) const {
        copy(out + begin, From(input) + source, end - begin);
    }
    /// Puts count samples together: the second input's from source2 on before split, the first
    /// input's from source1 on behind.
    void Join(std::ptrdiff_t split, std::ptrdiff_t source2, std::ptrdiff_t source1,
              std::ptrdiff_t count) const {
        if (IsStreamed()) {
            JoinStreaming(out, in2 + source2, split, in1 + source1, count);
            return;
        }
        CopyBytes(out, in2 + source2, split);
        CopyBytes(out + split, in1 + source1, count - split);
    }
};

/// Room for one row on its way to a streamed output.
class ScratchRow {
public:
    explicit ScratchRow(std::ptrdiff_t bytes)
        : room(std::make_unique_for_overwrite<std::uint8_t[]>(
              static_cast<std::size_t>(std::max<std::ptrdiff_t>(bytes, 0)) + 2 * kLine)) {}

    /// Where to put a row that goes to target: at the same place within a cache line, so that what
    /// was just written is read back in the same aligned pieces.
    std::uint8_t *For(const std::uint8_t *target) const {
        return room.get() + ((PlaceInLine(target) - PlaceInLine(room.get())) & (kLine - 1));
    }

private:
    std::unique_ptr<std::uint8_t[]> room;
};

/// A streamed row that is put together from pieces, from its first sample to its last without a
/// gap: whole cache lines of one input leave for the output straight from it, those in which pieces
/// meet are put together in scratch.
class PieceRow {
public:
    PieceRow(const Triple &target, const ScratchRow &room, std::ptrdiff_t count)
        : row(target), scratch(room.For(target.out)), size(count) {}

    /// The next piece, one input's samples [begin, end).
    void Copy(Input input, std::ptrdiff_t begin, std::ptrdiff_t end) {
        if (begin >= end)
            return;
        const std::uint8_t *from = row.From(input);
        std::ptrdiff_t whole = begin; // from here on in whole lines
        if (written < begin) {
            const std::ptrdiff_t lineEnd = begin + (-PlaceInLine(row.out + begin) & (kLine - 1));
            whole = std::min(lineEnd, end);
            CopyBytes(scratch + begin, from + begin, whole - begin);
            if (whole < lineEnd && whole < size)
                return;
            row.copy(row.out + written, scratch + written, whole - written);
        }
        const std::ptrdiff_t lineBegin = end - PlaceInLine(row.out + end);
        written = end == size ? end : std::max(lineBegin, whole);
        row.copy(row.out + whole, from + whole, written - whole);
        CopyBytes(scratch + written, from + written, end - written);
    }

private:
    Triple row;
    std::uint8_t *scratch;
    std::ptrdiff_t size;
    std::ptrdiff_t written = 0; ///< what lies behind, up to the last piece's end, is in scratch
};

/// One plane of a call's frames, for what is drawn plane by plane. Rows are counted in memory
/// order.
struct Plane {
    Triple bytes;
    std::ptrdiff_t pitch;
    std::ptrdiff_t rowBytes; ///< visible ones
    int height;              ///< rows of the plane
    int step;                ///< rows of the picture per row, and columns per sample: 1 or 2
    int sampleBytes;         ///< 4 for whole pixels
    bool bottomUp;           ///< the picture's row 0 is the last in memory

    Triple Row(int row) const { return bytes.At(row * pitch); }
    /// The samples that belong to the picture's first n columns, or the rows to its first n rows: a
    /// chroma sample goes with the even one of its two.
    int Samples(int n) const { return step == 1 ? n : HalfUp(n); }
    std::ptrdiff_t Bytes(int columns) const {
        return std::ptrdiff_t(Samples(columns)) * sampleBytes;
    }
};

/// The bytes [begin, end) of a row.
struct ByteSpan {
    std::ptrdiff_t begin;
    std::ptrdiff_t end;
};

/// Draws a plane whose rows are copies but for one span, spanOf(row): the second input before it,
/// the first behind it, both in place, and within it what draw(triple, row, span) draws at the same
/// places of the triple's output. In a streamed row that is scratch, where the cache lines with
/// something drawn in them are put together; the others are copied straight from the inputs.
template<class SpanOf, class Draw>
void DrawSpans(const Plane &plane, SpanOf spanOf, Draw draw) {
    const bool isStreamed = plane.bytes.IsStreamed();
    const ScratchRow scratch(isStreamed ? plane.rowBytes : 0);
    for (int y = 0; y < plane.height && plane.rowBytes > 0; ++y) {
        const Triple row = plane.Row(y);
        const ByteSpan span = spanOf(y);
        Triple middle = row;
        ByteSpan lines = {0, plane.rowBytes};
        if (isStreamed) {
            middle.Redirect(scratch.For(row.out));
            const std::ptrdiff_t before = PlaceInLine(row.out + span.begin);
            const std::ptrdiff_t behind = -PlaceInLine(row.out + span.end) & (kLine - 1);
            lines.begin = std::max<std::ptrdiff_t>(span.begin - before, 0);
            lines.end = std::min(span.end + behind, plane.rowBytes);
        }
        middle.Copy(Input::Two, lines.begin, span.begin);
        draw(std::as_const(middle), y, span);
        middle.Copy(Input::One, span.end, lines.end);
        if (isStreamed) {
            row.Copy(Input::Two, 0, lines.begin);
            CopyStreaming(row.out + lines.begin, middle.out + lines.begin, lines.end - lines.begin);
            row.Copy(Input::One, lines.end, plane.rowBytes);
        }
    }
}

/// One row of pixels in planar layout. An even row carries the chroma row that belongs to it and to
/// the odd row below: the sample of an even column is written with that column's pixel, those of
/// odd rows and columns never.
struct PlanarRow {
    Triple luma;
    Triple cb; ///< valid in even rows
    Triple cr; ///< valid in even rows
    bool hasChroma;
    int width;

    /// Shows the columns [x0, x1) of one input in place.
    void Copy(Input input, int x0, int x1) const {
        x0 = std::max(x0, 0);
        x1 = std::min(x1, width);
        if (x0 >= x1)
            return;
        luma.Copy(input, x0, x1);
        if (hasChroma) {
            cb.Copy(input, HalfUp(x0), HalfUp(x1));
            cr.Copy(input, HalfUp(x0), HalfUp(x1));
        }
    }
};

/// One call's three frames in planar layout, all with the output's geometry.
struct PlanarFrames {
    int width;
    int height;
    std::ptrdiff_t pitchY;
    std::ptrdiff_t pitchUV;
    Triple y;
    Triple u;
    Triple v;

    PlanarFrames(const YUVImage *out, const YUVImage *in1, const YUVImage *in2)
        : width(out->nWidth), height(out->nHeight), pitchY(out->nPitchY),
          pitchUV(out->nPitchUV), y{out->pY, in1->pY, in2->pY, CopyFor(LumaBytes())},
          u{out->pU, in1->pU, in2->pU, y.copy}, v{out->pV, in1->pV, in2->pV, y.copy} {}
    ~PlanarFrames() { FinishStreaming(); }
    PlanarFrames(const PlanarFrames &) = delete;
    PlanarFrames &operator=(const PlanarFrames &) = delete;

    std::ptrdiff_t LumaBytes() const { return pitchY * height; }
    std::ptrdiff_t ChromaBytes() const { return pitchUV * HalfUp(height); }

    PlanarRow Row(int row) const {
        const Triple luma = y.At(row * pitchY);
        if (row & 1)
            return {luma, {}, {}, false, width};
        const std::ptrdiff_t offset = (row >> 1) * pitchUV;
        return {luma, u.At(offset), v.At(offset), true, width};
    }

    /// Calls draw(row, y) for every row; draw must write all of the row's visible samples. Rows
    /// that are streamed are put together in a scratch row within the caches and leave it in one
    /// piece: past the caches, a part of a cache line costs more than a whole one.
    template<class Draw>
    void DrawRows(Draw draw) const {
        if (!y.IsStreamed()) {
            for (int line = 0; line < height; ++line)
                draw(Row(line), line);
            return;
        }
        const std::ptrdiff_t chromaWidth = HalfUp(width);
        const ScratchRow scratchY(width), scratchU(chromaWidth), scratchV(chromaWidth);
        for (int line = 0; line < height; ++line) {
            const PlanarRow target = Row(line);
            PlanarRow row = target;
            row.luma.Redirect(scratchY.For(target.luma.out));
            row.cb.Redirect(scratchU.For(target.cb.out));
            row.cr.Redirect(scratchV.For(target.cr.out));
            draw(std::as_const(row), line);
            CopyStreaming(target.luma.out, row.luma.out, width);
            if (row.hasChroma) {
                CopyStreaming(target.cb.out, row.cb.out, chromaWidth);
                CopyStreaming(target.cr.out, row.cr.out, chromaWidth);
            }
        }
    }

    /// Calls copyRow(row, y) for every row; it must cover the row with row.Copy from left to right.
    template<class CopyRow>
    void CopyPieces(CopyRow copyRow) const {
        struct Pieces {
            PieceRow luma, cb, cr;
            bool hasChroma;
            int width;
            void Copy(Input input, int x0, int x1) {
                luma.Copy(input, x0, x1);
                if (hasChroma) {
                    cb.Copy(input, HalfUp(x0), HalfUp(x1));
                    cr.Copy(input, HalfUp(x0), HalfUp(x1));
                }
            }
        };
        const int chromaWidth = HalfUp(width);
        const ScratchRow scratchY(width), scratchU(chromaWidth), scratchV(chromaWidth);
        for (int line = 0; line < height; ++line) {
            const PlanarRow row = Row(line);
            if (!y.IsStreamed()) {
                copyRow(row, line);
                continue;
            }
            Pieces pieces = {{row.luma, scratchY, width},
                             {row.cb, scratchU, chromaWidth},
                             {row.cr, scratchV, chromaWidth},
                             row.hasChroma,
                             width};
            copyRow(pieces, line);
        }
    }

    /// Calls draw(plane) for the three planes.
    template<class Draw>
    void DrawPlanes(Draw draw) const {
        const int chromaHeight = HalfUp(height);
        draw(Plane{y, pitchY, width, height, 1, 1, false});
        draw(Plane{u, pitchUV, HalfUp(width), chromaHeight, 2, 1, false});
        draw(Plane{v, pitchUV, HalfUp(width), chromaHeight, 2, 1, false});
    }

    /// Copies the planes of one input whole, padding included.
    void CopyPlanes(Input input) const {
        y.Copy(input, 0, LumaBytes());
        u.Copy(input, 0, ChromaBytes());
        v.Copy(input, 0, ChromaBytes());
    }

    /// Copies the visible part of one input; padding stays.
    void CopyPicture(Input input) const {
        for (int row = 0; row < height; ++row)
            Row(row).Copy(input, 0, width);
    }

    /// Fills the output's planes, padding included, with video black.
    void FillBlack() const {
        FillBytes(y.out, kBlack, LumaBytes());
        FillBytes(u.out, kNeutral, ChromaBytes());
        FillBytes(v.out, kNeutral, ChromaBytes());
    }
};

/// One row of pixels in packed layout, 4 bytes each.
struct PackedRow {
    Triple bytes;
    int width;

    /// Shows the columns [x0, x1) of one input in place.
    void Copy(Input input, int x0, int x1) const {
        x0 = std::max(x0, 0);
        x1 = std::min(x1, width);
        bytes.Copy(input, std::ptrdiff_t(x0) * 4, std::ptrdiff_t(x1) * 4);
    }
};

/// One call's three frames in packed layout, all with the output's geometry.
struct PackedFrames {
    int width;
    int height;
    int pitch; ///< bytes from one row to the next: width * 4, without padding
    Triple pixels;

    /// Asks the imaging library: the output's size, then the pixels of all three.
    PackedFrames(void *out, void *in1, void *in2)
        : width(DIGetWidth(out)), height(DIGetHeight(out)),
          pitch(width * 4), pixels{DIGetBits(out), DIGetBits(in1), DIGetBits(in2),
                                   CopyFor(Bytes())} {}
    /// The same with a geometry that the caller has asked for, as when rows have padding.
    PackedFrames(int width, int height, int pitch, void *out, void *in1, void *in2)
        : width(width), height(height),
          pitch(pitch), pixels{DIGetBits(out), DIGetBits(in1), DIGetBits(in2), CopyFor(Bytes())} {}
    ~PackedFrames() { FinishStreaming(); }
    PackedFrames(const PackedFrames &) = delete;
    PackedFrames &operator=(const PackedFrames &) = delete;

    std::ptrdiff_t Pitch() const { return pitch; }
    /// The bytes of a frame, counted in signed 32-bit arithmetic, which wraps from 2 GiB on.
    std::int32_t Bytes() const { return pitch * height; }

    PackedRow Row(int row) const { return {pixels.At(row * Pitch()), width}; }
    /// The row counted from the last one in memory, which is a bottom-up picture's top row.
    PackedRow RowFromEnd(int row) const { return Row(height - 1 - row); }

    /// Calls draw(row, y) for every row in memory order, as PlanarFrames does; draw must write all
    /// of the row, padding included.
    template<class Draw>
    void DrawRows(Draw draw) const {
        if (!pixels.IsStreamed()) {
            for (int line = 0; line < height; ++line)
                draw(Row(line), line);
            return;
        }
        const ScratchRow scratch(Pitch());
        for (int line = 0; line < height; ++line) {
            const PackedRow target = Row(line);
            PackedRow row = target;
            row.bytes.Redirect(scratch.For(target.bytes.out));
            draw(std::as_const(row), line);
            CopyStreaming(target.bytes.out, row.bytes.out, Pitch());
        }
    }

    /// Calls draw(plane) for the one plane that there is.
    template<class Draw>
    void DrawPlanes(Draw draw) const {
        draw(Plane{pixels, Pitch(), std::ptrdiff_t(width) * 4, height, 1, 4, true});
    }

    /// Copies one input whole.
    void CopyPicture(Input input) const { pixels.Copy(input, 0, Bytes()); }
};

} // namespace old
} // namespace tp
