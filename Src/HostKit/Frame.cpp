#include "Frame.h"

#include "Ozmu_ImageProc.h"

#include <algorithm>
#include <cassert>
#include <new>

namespace hostkit {

namespace {

int Half(int size) {
    return (size + 1) / 2;
}

void EnlargePlane(const Frame &from, Frame &to, int plane) {
    for (int y = 0; y < to.Rows(plane); ++y) {
        const std::uint8_t *source = from.Row(plane, y / 2);
        std::uint8_t *target = to.Row(plane, y);
        for (int x = 0; x < to.RowBytes(plane); ++x)
            target[x] = source[x / 2];
    }
}

/// At an odd last column or row, the pixels that are there count twice.
void HalvePlane(const Frame &from, Frame &to, int plane) {
    const int lastColumn = from.RowBytes(plane) - 1, lastRow = from.Rows(plane) - 1;
    for (int y = 0; y < to.Rows(plane); ++y) {
        const std::uint8_t *a = from.Row(plane, 2 * y);
        const std::uint8_t *b = from.Row(plane, std::min(2 * y + 1, lastRow));
        std::uint8_t *target = to.Row(plane, y);
        for (int x = 0; x < to.RowBytes(plane); ++x) {
            const int left = 2 * x, right = std::min(2 * x + 1, lastColumn);
            target[x] = std::uint8_t((a[left] + a[right] + b[left] + b[right] + 2) / 4);
        }
    }
}

void CopyPlane(const Frame &from, Frame &to, int plane) {
    const std::size_t size = from.RowBytes(plane);
    for (int y = 0; y < from.Rows(plane); ++y)
        std::copy_n(from.Row(plane, y), size, to.Row(plane, y));
}

} // namespace

Frame::Frame(Path l, int w, int h, Chroma c) : layout(l), chroma(c), width(w), height(h) {
    assert(width > 0 && height > 0);
    for (int plane = 0; plane < Planes(); ++plane)
        pitches[plane] = RowBytes(plane);
    bytes = std::make_unique_for_overwrite<std::uint8_t[]>(Size());
    std::uint8_t *next = bytes.get();
    for (int plane = 0; plane < Planes(); ++plane) {
        top[plane] = next;
        next += std::size_t(pitches[plane]) * Rows(plane);
    }
    if (layout == Path::Rgb) {
        top[0] = next - pitches[0];
        pitches[0] = -pitches[0];
    }
    Describe();
}

Frame::Frame(Path l, int w, int h, std::uint8_t *const *rows, const int *p, Chroma c)
    : layout(l), chroma(c), width(w), height(h) {
    assert(width > 0 && height > 0);
    std::copy_n(rows, Planes(), top);
    std::copy_n(p, Planes(), pitches);
    Describe();
}

void Frame::Describe() {
    if (layout == Path::Yuv)
        image = {nullptr, top[0], top[1],     top[2],     nullptr,
                 width,   height, pitches[0], pitches[1], pitches[2]};
    else if (IsPlugins(chroma) || IsTopDown()) {
        handle.reset(DIWrap(std::min(RowAt(0, 0), RowAt(0, height - 1)), width, height));
        if (!handle)
            throw std::bad_alloc();
    }
}

void Frame::Destroy::operator()(void *wrapped) const {
    DIDestroy(wrapped);
}

int Frame::Rows(int plane) const {
    return plane && chroma == Chroma::Half ? Half(height) : height;
}

int Frame::RowBytes(int plane) const {
    if (layout == Path::Rgb)
        return width * 4;
    return plane && chroma == Chroma::Half ? Half(width) : width;
}

std::size_t Frame::Size() const {
    std::size_t size = 0;
    for (int plane = 0; plane < Planes(); ++plane)
        size += std::size_t(RowBytes(plane)) * Rows(plane);
    return size;
}

bool Frame::IsPlugins(Chroma wanted) const {
    if (layout == Path::Rgb)
        return pitches[0] == -RowBytes(0);
    return chroma == wanted && pitches[0] == RowBytes(0) && pitches[1] == RowBytes(1) &&
           pitches[2] == RowBytes(2);
}

void CopyPicture(const Frame &from, Frame &to) {
    assert(from.Layout() == to.Layout());
    assert(from.Width() == to.Width() && from.Height() == to.Height());
    for (int plane = 0; plane < from.Planes(); ++plane)
        if (plane == 0 || from.Resolution() == to.Resolution())
            CopyPlane(from, to, plane);
        else if (from.Resolution() == Chroma::Full)
            HalvePlane(from, to, plane);
        else
            EnlargePlane(from, to, plane);
}

} // namespace hostkit
