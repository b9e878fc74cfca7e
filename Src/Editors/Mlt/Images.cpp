#include "Images.h"

#include "Draw.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <utility>

namespace mlt {

using hostkit::Chroma;
using hostkit::Frame;
using hostkit::Path;

namespace {

constexpr int kChannels = 4;

int Pitch(const Shape &shape) {
    return shape.width * (shape.format == mlt_image_rgba ? 4 : 2);
}

// Two pixels of yuv422 are Y, Cb, Y, Cr.
void Unpack(const std::uint8_t *row, int pairs, std::uint8_t *luma, std::uint8_t *cb,
            std::uint8_t *cr) {
    for (int i = 0; i < 2 * pairs; ++i)
        luma[i] = row[2 * i];
    for (int i = 0; i < pairs; ++i) {
        cb[i] = row[4 * i + 1];
        cr[i] = row[4 * i + 3];
    }
}

void Pack(const std::uint8_t *luma, const std::uint8_t *cb, const std::uint8_t *cr, int pairs,
          std::uint8_t *row) {
    for (int i = 0; i < pairs; ++i, row += 4) {
        row[0] = luma[2 * i];
        row[1] = cb[i];
        row[2] = luma[2 * i + 1];
        row[3] = cr[i];
    }
}

/// The same with as much chroma as luma.
void UnpackFull(const std::uint8_t *row, int pairs, std::uint8_t *luma, std::uint8_t *cb,
                std::uint8_t *cr) {
    for (int i = 0; i < 2 * pairs; ++i) {
        luma[i] = row[2 * i];
        cb[i] = row[4 * (i / 2) + 1];
        cr[i] = row[4 * (i / 2) + 3];
    }
}

void PackFull(const std::uint8_t *luma, const std::uint8_t *cb, const std::uint8_t *cr, int pairs,
              std::uint8_t *row) {
    const auto mean = [](const std::uint8_t *two) {
        return std::uint8_t((two[0] + two[1] + 1) / 2);
    };
    for (int i = 0; i < 2 * pairs; i += 2, row += 4) {
        row[0] = luma[i];
        row[1] = mean(cb + i);
        row[2] = luma[i + 1];
        row[3] = mean(cr + i);
    }
}

void UnpackChannel(const std::uint8_t *row, int width, std::uint8_t *channel) {
    for (int x = 0; x < width; ++x)
        channel[x] = row[4 * x];
}

void PackChannels(const Frame *channels, int y, std::uint8_t *row) {
    const std::uint8_t *red = channels[0].Row(0, y), *green = channels[1].Row(0, y);
    const std::uint8_t *blue = channels[2].Row(0, y), *alpha = channels[3].Row(0, y);
    for (int x = 0; x < channels[0].Width(); ++x, row += 4) {
        row[0] = red[x];
        row[1] = green[x];
        row[2] = blue[x];
        row[3] = alpha[x];
    }
}

/// Whether so many bytes, a step apart, are all 255.
template<int step>
bool IsOpaqueRow(const std::uint8_t *alpha, int width) {
    std::uint8_t all = 255;
    for (int x = 0; x < width; ++x)
        all &= alpha[step * x];
    return all == 255;
}

} // namespace

Sheets::Sheets(const Shape &s, std::uint8_t *picture, bool isDrawn) : shape(s) {
    const int width = shape.width, height = shape.height;
    const std::size_t luma = std::size_t(width) * height;
    if (shape.path == Path::Rgb && !shape.isInterlaced && (isDrawn || IsInPlace())) {
        AddPacked(picture);
        return;
    }
    if (IsInPlace()) {
        // What the engine's own mlt_image_format_planes() says is not true in all versions.
        assert(HasYuv(width, height));
        AddPlanar(picture, picture + luma, picture + luma * 5 / 4);
        return;
    }
    // No shape takes more than four bytes a pixel of each field and two chroma planes of each sort.
    const std::size_t chroma = std::size_t((width + 1) / 2) * ((height + 1) / 2);
    const std::size_t size = luma * 4 * Fields() + chroma * 4;
    if (size <= std::numeric_limits<int>::max())
        memory.reset(static_cast<std::uint8_t *>(mlt_pool_alloc(int(size))));
    if (!memory)
        throw std::bad_alloc();
    std::uint8_t *next = memory.get();
    const auto take = [&](std::size_t bytes) { return std::exchange(next, next + bytes); };
    if (shape.path == Path::Rgb)
        for (int field = 0; field < Fields(); ++field)
            AddPacked(take(luma * 4));
    else if (shape.format == mlt_image_rgba) {
        std::uint8_t *const grey = take(chroma);
        std::fill_n(grey, chroma, std::uint8_t(128));
        for (int i = 0; i < kChannels * Fields(); ++i)
            AddPlanar(take(luma), grey, grey);
    } else if (shape.chroma == Chroma::Full) {
        for (int field = 0; field < Fields(); ++field)
            AddPlanar(take(luma), take(luma), take(luma));
    } else {
        std::uint8_t *rows = nullptr;
        for (const bool isFirst : {true, false}) {
            rows = isFirst || shape.isInterlaced ? take(luma) : rows;
            AddPlanar(rows, take(chroma), take(chroma));
        }
    }
}

void Sheets::AddPacked(std::uint8_t *pixels) {
    const int bytes = shape.width * 4, pitch = shape.anyRowOrder ? bytes : -bytes;
    std::uint8_t *const last = pixels + std::ptrdiff_t(shape.height - 1) * bytes;
    std::uint8_t *const top = shape.anyRowOrder ? pixels : last;
    frames.emplace_back(Path::Rgb, shape.width, shape.height, &top, &pitch);
}

/// Whether frames are the picture's own rows.
bool Sheets::IsInPlace() const {
    return shape.format == mlt_image_yuv420p ||
           (shape.path == Path::Rgb && shape.anyRowOrder && !shape.isInterlaced);
}

void Sheets::AddPlanar(std::uint8_t *luma, std::uint8_t *cb, std::uint8_t *cr) {
    std::uint8_t *const planes[] = {luma, cb, cr};
    const bool isFull = shape.format == mlt_image_yuv422 && shape.chroma == Chroma::Full;
    const int half = isFull ? shape.width : (shape.width + 1) / 2;
    const int pitches[] = {shape.width, half, half};
    frames.emplace_back(Path::Yuv, shape.width, shape.height, planes, pitches,
                        isFull ? Chroma::Full : Chroma::Half);
}

/// Interlaced, only the even rows of a frame are filled, and RepeatRows() does the others.
void Sheets::Split(const std::uint8_t *picture) {
    const bool isFull = shape.chroma == Chroma::Full;
    const int pairs = shape.width / 2;
    const int rows = IsInPlace() ? 0 : shape.height;
    for (int y = 0; y < rows; ++y, picture += Pitch(shape)) {
        const int field = shape.isInterlaced ? y % 2 : 0, row = y - field;
        if (shape.path == Path::Rgb)
            std::memcpy(frames[field].Row(0, row), picture, Pitch(shape));
        else if (shape.format == mlt_image_rgba)
            for (int c = 0; c < kChannels; ++c)
                UnpackChannel(picture + c, shape.width, frames[field * kChannels + c].Row(0, row));
        else if (isFull)
            UnpackFull(picture, pairs, frames[field].Row(0, row), frames[field].Row(1, row),
                       frames[field].Row(2, row));
        else
            Unpack(picture, pairs, frames[field].Row(0, row), frames[y % 2].Row(1, y / 2),
                   frames[y % 2].Row(2, y / 2));
    }
    if (shape.isInterlaced)
        RepeatRows();
}

void Sheets::RepeatRows() {
    for (Frame &frame : frames)
        for (int plane = 0; plane < frame.Planes(); ++plane)
            for (int y = 1; y < shape.height && frame.Rows(plane) == shape.height; y += 2)
                std::memcpy(frame.Row(plane, y), frame.Row(plane, y - 1), frame.RowBytes(plane));
}

bool Sheets::IsAlpha(std::size_t i) const {
    return shape.format == mlt_image_rgba && shape.path == Path::Yuv && i % kChannels == 3;
}

bool Sheets::IsOpaque() const {
    for (std::size_t i = 0; i < frames.size(); ++i)
        for (int y = 0; y < shape.height && (shape.path == Path::Rgb || IsAlpha(i)); ++y)
            if (shape.path == Path::Rgb ? !IsOpaqueRow<4>(frames[i].Row(0, y) + 3, shape.width)
                                        : !IsOpaqueRow<1>(frames[i].Row(0, y), shape.width))
                return false;
    return true;
}

/// The alpha of a pixel in a row of rgba that was split.
std::uint8_t Sheets::Alpha(int field, int x, int y) const {
    return shape.path == Path::Rgb ? frames[field].Row(0, y)[4 * x + 3]
                                   : frames[field * kChannels + 3].Row(0, y)[x];
}

void Sheets::RestoreOpacity(std::uint8_t *row, int y, const Sheets &in1, const Sheets &in2) const {
    const int field = shape.isInterlaced ? y % 2 : 0;
    for (int x = 0; x < shape.width; ++x)
        if (row[4 * x + 3] >= hostkit::kNearlyOpaque &&
            (in1.Alpha(field, x, y) & in2.Alpha(field, x, y)) == 255)
            row[4 * x + 3] = 255;
}

/// Puts row y in its place. Packed rows that were drawn within the picture change places where they
/// lie the other way up.
void Sheets::JoinRow(std::uint8_t *row, int y) {
    Frame *const frame = &frames[shape.isInterlaced ? y % 2 * Count() / 2 : 0];
    const int pairs = shape.width / 2;
    if (shape.path == Path::Rgb && shape.isInterlaced)
        std::memcpy(row, frame->Row(0, y), Pitch(shape));
    else if (shape.path == Path::Rgb && row < frame->Row(0, y))
        std::swap_ranges(row, row + Pitch(shape), frame->Row(0, y));
    else if (shape.path == Path::Rgb)
        return;
    else if (shape.format == mlt_image_rgba)
        PackChannels(frame, y, row);
    else if (shape.chroma == Chroma::Full)
        PackFull(frame->Row(0, y), frame->Row(1, y), frame->Row(2, y), pairs, row);
    else
        Pack(frame->Row(0, y), frames[y % 2].Row(1, y / 2), frames[y % 2].Row(2, y / 2), pairs,
             row);
}

void Sheets::Join(std::uint8_t *picture, const Sheets &in1, const Sheets &in2) {
    const int rows = shape.format == mlt_image_yuv420p ? 0 : shape.height;
    std::optional<bool> isOpaque; // asked for at the first row that is not, and most are
    for (int y = 0; y < rows; ++y, picture += Pitch(shape)) {
        JoinRow(picture, y);
        if (shape.format != mlt_image_rgba || IsOpaqueRow<4>(picture + 3, shape.width))
            continue;
        if (!isOpaque)
            isOpaque = in1.IsOpaque() && in2.IsOpaque();
        if (*isOpaque)
            for (int x = 0; x < shape.width; ++x)
                picture[4 * x + 3] = 255;
        else
            RestoreOpacity(picture, y, in1, in2);
    }
}

} // namespace mlt
