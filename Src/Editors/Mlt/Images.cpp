#include "Images.h"

#include <algorithm>
#include <cassert>
#include <framework/mlt.h>

namespace mlt {

using hostkit::PackedFrame;
using hostkit::PlanarFrame;

void ReadRgba(const std::uint8_t *rgba, PackedFrame &frame) {
    for (int y = 0; y < frame.Height(); ++y)
        std::copy_n(rgba + std::size_t(y) * frame.Pitch(), frame.Pitch(), frame.Row(y));
}

void WriteRgba(const PackedFrame &frame, std::uint8_t *rgba) {
    for (int y = 0; y < frame.Height(); ++y)
        std::copy_n(frame.Row(y), frame.Pitch(), rgba + std::size_t(y) * frame.Pitch());
}

void ReadYuv420(const std::uint8_t *yuv, PlanarFrame &frame) {
    assert(HasPlanarSize(frame.Width(), frame.Height()));
    std::copy_n(yuv, frame.Size(), frame.Plane(0));
}

void WriteYuv420(const PlanarFrame &frame, std::uint8_t *yuv) {
    assert(HasPlanarSize(frame.Width(), frame.Height()));
    std::copy_n(frame.Plane(0), frame.Size(), yuv);
}

void ConvertRgba(const std::uint8_t *rgba, PlanarFrame &frame) {
    const int width = frame.Width(), height = frame.Height();
    const auto pixel = [&](int x, int y) {
        return rgba + (std::size_t(std::min(y, height - 1)) * width + std::min(x, width - 1)) * 4;
    };
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const std::uint8_t *p = pixel(x, y);
            int luma;
            [[maybe_unused]] int cb, cr;
            RGB2YUV_601_SCALED(p[0], p[1], p[2], luma, cb, cr);
            frame.Plane(0)[std::size_t(y) * frame.Pitch(0) + x] = std::uint8_t(luma);
        }
    for (int y = 0; y < frame.ChromaHeight(); ++y)
        for (int x = 0; x < frame.ChromaWidth(); ++x) {
            int mean[3], cb, cr;
            for (int c = 0; c < 3; ++c)
                mean[c] = (pixel(2 * x, 2 * y)[c] + pixel(2 * x + 1, 2 * y)[c] +
                           pixel(2 * x, 2 * y + 1)[c] + pixel(2 * x + 1, 2 * y + 1)[c] + 2) /
                          4;
            RGB2UV_601_SCALED(mean[0], mean[1], mean[2], cb, cr);
            const std::size_t at = std::size_t(y) * frame.Pitch(1) + x;
            frame.Plane(1)[at] = std::uint8_t(cb);
            frame.Plane(2)[at] = std::uint8_t(cr);
        }
}

void ConvertToRgba(const PlanarFrame &frame, std::uint8_t *rgba) {
    for (int y = 0; y < frame.Height(); ++y)
        for (int x = 0; x < frame.Width(); ++x) {
            const std::size_t chroma = std::size_t(y / 2) * frame.Pitch(1) + x / 2;
            const int luma = frame.Plane(0)[std::size_t(y) * frame.Pitch(0) + x];
            const int cb = frame.Plane(1)[chroma], cr = frame.Plane(2)[chroma];
            int red, green, blue;
            YUV2RGB_601_SCALED(luma, cb, cr, red, green, blue);
            *rgba++ = std::uint8_t(red);
            *rgba++ = std::uint8_t(green);
            *rgba++ = std::uint8_t(blue);
            *rgba++ = 255;
        }
}

} // namespace mlt
