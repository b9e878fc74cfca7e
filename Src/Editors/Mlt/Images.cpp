#include "Images.h"

#include <algorithm>
#include <cassert>
#include <framework/mlt.h>

namespace mlt {

using hostkit::Frame;
using hostkit::Path;

Frame View(Path layout, int width, int height, std::uint8_t *picture) {
    if (layout == Path::Rgb) {
        const int pitch = width * 4;
        return {layout, width, height, &picture, &pitch};
    }
    // What the engine's own mlt_image_format_planes() says of these is not true in all versions.
    assert(HasPlanarSize(width, height));
    const std::size_t luma = std::size_t(width) * height;
    std::uint8_t *const planes[] = {picture, picture + luma, picture + luma * 5 / 4};
    const int pitches[] = {width, width / 2, width / 2};
    return {layout, width, height, planes, pitches};
}

Frame ConvertRgba(int width, int height, const std::uint8_t *rgba) {
    Frame frame(Path::Yuv, width, height);
    const auto pixel = [&](int x, int y) {
        return rgba + (std::size_t(std::min(y, height - 1)) * width + std::min(x, width - 1)) * 4;
    };
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const std::uint8_t *p = pixel(x, y);
            int luma;
            [[maybe_unused]] int cb, cr;
            RGB2YUV_601_SCALED(p[0], p[1], p[2], luma, cb, cr);
            frame.Row(0, y)[x] = std::uint8_t(luma);
        }
    for (int y = 0; y < frame.Rows(1); ++y)
        for (int x = 0; x < frame.RowBytes(1); ++x) {
            int mean[3], cb, cr;
            for (int c = 0; c < 3; ++c)
                mean[c] = (pixel(2 * x, 2 * y)[c] + pixel(2 * x + 1, 2 * y)[c] +
                           pixel(2 * x, 2 * y + 1)[c] + pixel(2 * x + 1, 2 * y + 1)[c] + 2) /
                          4;
            RGB2UV_601_SCALED(mean[0], mean[1], mean[2], cb, cr);
            frame.Row(1, y)[x] = std::uint8_t(cb);
            frame.Row(2, y)[x] = std::uint8_t(cr);
        }
    return frame;
}

void ConvertToRgba(const Frame &frame, std::uint8_t *rgba) {
    for (int y = 0; y < frame.Height(); ++y)
        for (int x = 0; x < frame.Width(); ++x) {
            const int luma = frame.Row(0, y)[x];
            const int cb = frame.Row(1, y / 2)[x / 2], cr = frame.Row(2, y / 2)[x / 2];
            int red, green, blue;
            YUV2RGB_601_SCALED(luma, cb, cr, red, green, blue);
            *rgba++ = std::uint8_t(red);
            *rgba++ = std::uint8_t(green);
            *rgba++ = std::uint8_t(blue);
            *rgba++ = 255;
        }
}

} // namespace mlt
