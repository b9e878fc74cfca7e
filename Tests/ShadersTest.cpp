// The shader-style transitions: their helpers, what their worker threads may and may not change,
// and the sizes at which those take over.

#include "Kernels.h"
#include "Progress.h"
#include "ShaderRows.h"
#include "Support.h"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <vector>

namespace {

using namespace tp;
using Pixel = std::array<std::uint8_t, 4>;
using Bytes = std::vector<std::uint8_t>;

Bytes Noise(std::size_t count, std::uint64_t state) {
    Bytes bytes(count);
    FillRandom(bytes, state);
    return bytes;
}

Pixel PixelAt(const Bytes &bytes, std::size_t index) {
    Pixel pixel;
    std::copy_n(&bytes.at(index * 4), 4, pixel.begin());
    return pixel;
}

struct Size {
    int width, height;
};

/// A call over three buffers, of which the first input's may claim another size.
Bytes DrawRgb(TransFuncRGB function, Size size, double position, const Bytes &from, const Bytes &to,
              std::optional<Size> fromSize = {}) {
    Bytes out(std::size_t(size.width) * size.height * 4, 77);
    const Size claimed = fromSize.value_or(size);
    void *handles[] = {
        DIWrap(out.data(), size.width, size.height),
        DIWrap(const_cast<std::uint8_t *>(from.data()), claimed.width, claimed.height),
        DIWrap(const_cast<std::uint8_t *>(to.data()), size.width, size.height)};
    const TransParam param = MakeParam(1, position);
    function(handles[0], handles[1], handles[2], &param);
    for (void *handle : handles)
        DIDestroy(handle);
    return out;
}

TEST(ShaderMath, MixWidensTheSecondProductOnly) {
    EXPECT_EQ(mix(3, 7, 0.05F), 3.20000005F); // in float alone 3.19999981
    EXPECT_EQ(mix(3, 7, 0.15F), 3.60000014F); // in double alone 3.5999999
    EXPECT_EQ(mix(3, 7, 0), 3.0F);
    EXPECT_EQ(mix(3, 7, 1), 7.0F);
}

TEST(ShaderMath, FractAndRandom) {
    EXPECT_EQ(fract(-0.25F), 0.75F);
    EXPECT_EQ(fract(3), 0.0F);
    EXPECT_EQ(random(0, 0, 0, 12, 34, 5.25F), 0.25F);
    for (const float seed : {0.0F, 0.5F, 7.125F}) {
        const float wave = std::sin(((34 + seed) * 78.233F + (12 + seed) * 12.9898F) + 1.5F * seed);
        const auto scaled = static_cast<float>(double(seed) + double(wave) * 43758.5453);
        EXPECT_EQ(random(12.9898F, 78.233F, 1.5F, 12, 34, seed), scaled - std::floor(scaled));
    }
}

TEST(ShaderMath, Easings) {
    EXPECT_EQ(Linear_ease(0.25F, 0.5F, 1, 0.5F), 0.5F);
    EXPECT_EQ(Exponential_easeInOut(0.3F, 0.6F, 2, 0), 0.3F);
    EXPECT_EQ(Exponential_easeInOut(0.3F, 0.6F, 2, 2), 0.3F + 0.6F);
    EXPECT_EQ(Exponential_easeInOut(1, 4, 2, 1), 3.0F); // the upper half begins at the middle
    EXPECT_EQ(Exponential_easeInOut(0, 1, 1, 0.25F), 0.015625F);
    EXPECT_EQ(Exponential_easeInOut(0, 1, 1, 0.75F), 0.984375F);
    EXPECT_TRUE(std::isnan(Exponential_easeInOut(0, 1, 1, std::nanf(""))));
    EXPECT_FLOAT_EQ(Sinusoidal_easeInOut(0, 1, 1, 0.5F), 0.5F);
    EXPECT_EQ(Sinusoidal_easeInOut(0, 0.5F, 0.5F, 0.5F), 0.5F);
    EXPECT_EQ(Sinusoidal_easeInOut(2, 1, 1, 0), 2.0F);
}

TEST(ShaderMath, BoundsAreInclusive) {
    const float nan = std::nanf("");
    const struct {
        Point2f point;
        bool unit, frame; // 0..1, and 8 rows of 5 columns
    } cases[] = {
        {{0, 0}, true, true},         {{-0.0F, 1}, true, true},     {{4, 7}, false, true},
        {{7, 4}, false, false},       {{4.0001F, 0}, false, false}, {{-0.0001F, 0}, false, false},
        {{0, 7.0001F}, false, false}, {{1, -1e-30F}, false, false}, {{nan, 0}, false, false},
        {{0, nan}, false, false},
    };
    for (auto [point, unit, frame] : cases) {
        EXPECT_EQ(inBounds(point), unit) << point.x << ' ' << point.y;
        EXPECT_EQ(inBounds(point, 8, 5), frame) << point.x << ' ' << point.y;
    }
}

TEST(ShaderMath, BgColorAddsTheMirroredPixel) {
    const Bytes source = Noise(10 * 20, 1); // 10 rows, 5 pixels each
    const float reflection = 0.4F;
    Pixel pixel = {1, 2, 3, 255};
    Point2f above = {2, -0.1F}; // mirrored to row -0.08
    bgColor(above, reflection, 10, 5, 20, source.data(), pixel.data());
    EXPECT_EQ(above.y, static_cast<float>(double(-0.1F) * -1.2 + 10 * -0.02));
    EXPECT_EQ(pixel, (Pixel{1, 2, 3, 255}));
    Point2f below = {2.9F, -4.5F}; // mirrored to row 5.2
    bgColor(below, reflection, 10, 5, 20, source.data(), pixel.data());
    EXPECT_EQ(below.x, 2.9F);
    EXPECT_EQ(below.y, 5.2F);
    const float share = mix(1, 0, 5.2F / 10) * 0.4F;
    for (std::size_t i = 0; i < 4; ++i) {
        const float before = i < 3 ? float(i + 1) : 255;
        const float sum = before + float(source[5 * 20 + 2 * 4 + i]) * share;
        EXPECT_EQ(pixel[i], static_cast<int>(sum) & 255) << i; // the last one wraps
    }
}

/// The packed path, one pixel after the other.
Bytes PlainDoorWay(int w, int h, double p, const Bytes &from, const Bytes &to, bool parallel) {
    Bytes out(from.size());
    const auto fp = static_cast<float>(p), strength = 0.4F;
    const int hw = w / 2, hh = h / 2;
    const float slit = static_cast<float>(p * w), size = mix(1, 3, static_cast<float>(1.0 - p));
    const auto width = static_cast<float>(w * (double(strength) * p));
    const auto slope = static_cast<float>(double(strength) * p);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const float ms = 2 * std::fabs(float(x) - 0.5F * float(w)) - slit;
            Point2f door = {-1, -1};
            if (ms > 0) {
                const int way = x > hw ? -hw : hw;
                door.x = parallel ? float(way) * fp + float(x) : static_cast<float>(way * p + x);
                const float d = float(w) / ((width + float(w)) - ms * slope), c = d * float(hh);
                door.y = (float(y) - c) * d + c;
            }
            Point2f far = {float(x - hw) * size + float(hw), float(y - hh) * size + float(hh)};
            std::uint8_t *pixel = &out[std::size_t(y * w + x) * 4];
            const auto copy = [&](const Bytes &source, const Point2f &at) {
                std::copy_n(&source[std::size_t(int(at.y) * w + int(at.x)) * 4], 4, pixel);
            };
            if (inBounds(door, h, w))
                copy(from, door);
            else if (inBounds(far, h, w))
                copy(to, far);
            else
                bgColor(far, strength, h, w, w * 4, to.data(), pixel);
        }
    return out;
}

TEST(DoorWay, ThreadsTakeOverAboveTenThousandPixels) {
    const struct {
        int width, height;
        double position;
        bool parallel, differ;
    } cases[] = {
        // Where columns computed in float differ from those in double.
        {100, 100, 0.120403576, false, true},
        {73, 137, 0.099587822, true, true},
        // Past the end the progress runs back and below 0, where doors end within columns.
        {90, 60, 1.55, false, false},
        {90, 60, 1.7, false, false},
    };
    for (const auto &c : cases) {
        const Bytes from = Noise(std::size_t(c.width) * c.height * 4, 2);
        const Bytes to = Noise(from.size(), 3);
        const double progress = SmoothStep(1, c.position);
        const auto plain = [&](bool parallel) {
            return PlainDoorWay(c.width, c.height, progress, from, to, parallel);
        };
        EXPECT_EQ(plain(true) != plain(false), c.differ);
        EXPECT_EQ(DrawRgb(TrDoorWayRGB, {c.width, c.height}, c.position, from, to),
                  plain(c.parallel));
        EXPECT_EQ(gAdjustParam.dCurrent, progress);
        EXPECT_EQ(gAdjustParam.dTotal, 1.0);
    }
}

constexpr double kPosition = 0.55;
const auto kZoomProgress = static_cast<float>(SmoothStep(1, kPosition));

/// What a packed pixel becomes at that position with one draw.
Pixel PlainZoom(int w, int h, int x, int y, const Bytes &from, const Bytes &to, int draw,
                int samples) {
    const float p = kZoomProgress;
    const float dissolve = Exponential_easeInOut(0, 1, 1, p);
    const float strength = Sinusoidal_easeInOut(0, 0.5F, 0.5F, p);
    const float right = float(w) * (p * 0.5F + 0.25F) - float(x), down = float(h) * 0.5F - float(y);
    const auto jitter = static_cast<float>(draw * 0.01);
    std::array<float, 4> sums{};
    float weights = 0;
    for (int k = 0; k < samples; ++k) {
        const auto reach = static_cast<float>(double(float(k) + jitter) * 0.1);
        const auto sx = static_cast<int>(right * reach * strength + float(x));
        const auto sy = static_cast<int>(down * reach * strength + float(y));
        const float weight = (reach - reach * reach) * 4;
        for (std::size_t i = 0; i < 4; ++i) {
            const std::size_t at = std::size_t(sy * w + sx) * 4 + i;
            const auto faded = static_cast<float>(double(float(to.at(at)) * dissolve) +
                                                  double(float(from.at(at))) * (1.0 - dissolve));
            sums[i] += faded * weight;
        }
        weights += weight;
    }
    Pixel pixel;
    for (std::size_t i = 0; i < 4; ++i)
        pixel[i] = static_cast<std::uint8_t>(std::clamp(int(sums[i] / weights), 0, 255));
    return pixel;
}

/// Which draws of the parallel route each pixel may come from.
std::vector<std::vector<int>> PossibleDraws(Size size, const Bytes &out, const Bytes &from,
                                            const Bytes &to) {
    const auto [w, h] = size;
    std::vector<std::vector<int>> draws;
    for (int i = 0; i < w * h; ++i) {
        draws.emplace_back();
        for (int draw = 0; draw < 100; ++draw)
            if (PlainZoom(w, h, i % w, i / w, from, to, draw, 5) == PixelAt(out, i))
                draws.back().push_back(draw);
    }
    return draws;
}

TEST(CrossZoom, ThreadsTakeOverAboveAThousandPixelsOfTheFirstInput) {
    const Bytes from = Noise(60 * 40 * 4, 7), to = Noise(60 * 40 * 4, 8);
    const struct {
        Size size, fromSize;
        bool parallel;
    } cases[] = {{{40, 25}, {40, 25}, false},
                 {{60, 40}, {50, 20}, false},
                 {{77, 13}, {77, 13}, true},
                 {{30, 20}, {77, 13}, true}};
    for (const auto &c : cases) {
        const auto [width, height] = c.size;
        std::srand(9);
        const Bytes out = DrawRgb(TrCrossZoomRGB, c.size, kPosition, from, to, c.fromSize);
        const int next = std::rand();
        std::srand(9);
        for (int i = 0; i < width * height && !c.parallel; ++i)
            ASSERT_EQ(PixelAt(out, i), PlainZoom(width, height, i % width, i / width, from, to,
                                                 std::rand() % 100, 6));
        if (c.parallel) {
            std::rand();
            for (const auto &draws : PossibleDraws(c.size, out, from, to))
                ASSERT_FALSE(draws.empty());
        }
        EXPECT_EQ(std::rand(), next) << "another number of draws";
    }
    const Bytes out = DrawRgb(TrCrossZoomRGB, {60, 40}, kPosition, from, to, Size{60, 30});
    EXPECT_NE(PixelAt(out, 60 * 30 - 1), Pixel{});
    EXPECT_TRUE(std::all_of(out.begin() + 60 * 30 * 4, out.end(), [](auto b) { return b == 0; }))
        << "pixels that the first input lacks";
}

TEST(CrossZoom, NothingIsReadForThePixelsThatTheFirstInputLacks) {
    constexpr int width = 60, height = 40, rows = 20;
    GuardedBuffer in1(width * rows * 4), in2(width * rows * 4);
    FillRandom(in1.Bytes(), 1);
    FillRandom(in2.Bytes(), 2);
    Bytes out(width * height * 4);
    void *handles[] = {DIWrap(out.data(), width, height), DIWrap(in1.Data(), width, rows),
                       DIWrap(in2.Data(), width, rows)};
    const TransParam param = MakeParam(1, kPosition);
    TrCrossZoomRGB(handles[0], handles[1], handles[2], &param);
    std::ranges::for_each(handles, DIDestroy);
    EXPECT_NE(PixelAt(out, width * rows - 1), Pixel{});
}

TEST(CrossZoom, EveryDrawOccursWhateverTheThreads) {
    constexpr Size size = {150, 80};
    const Bytes from = Noise(150 * 80 * 4, 10), to = Noise(150 * 80 * 4, 11);
    const auto draw = [&](unsigned seed, int threads) {
        cv::setNumThreads(threads);
        std::srand(seed);
        return DrawRgb(TrCrossZoomRGB, size, kPosition, from, to);
    };
    const Bytes out = draw(12, 1);
    std::array<int, 100> certain{};
    for (const auto &draws : PossibleDraws(size, out, from, to)) {
        ASSERT_FALSE(draws.empty());
        certain[std::size_t(draws[0])] += draws.size() == 1;
    }
    EXPECT_EQ(std::ranges::count(certain, 0), 0) << "draws that no pixel took";
    for (const int threads : {2, -1})
        EXPECT_EQ(draw(12, threads), out) << threads << " threads";
    EXPECT_NE(draw(13, 2), out);
}

TEST(Shaders, MissingBufferIsOpenCvsError) {
    for (const TransFuncRGB function : {TrDoorWayRGB, TrCrossZoomRGB})
        for (const int missing : {0, 1, 2}) {
            Bytes out(101 * 100 * 4, 77), in(out.size(), 5);
            std::uint8_t *buffers[] = {out.data(), in.data(), in.data()};
            buffers[missing] = nullptr;
            void *handles[3];
            for (int i = 0; i < 3; ++i)
                handles[i] = DIWrap(buffers[i], 101, 100);
            const TransParam param = MakeParam(4, 1);
            try {
                function(handles[0], handles[1], handles[2], &param);
                ADD_FAILURE() << "no exception";
            } catch (const cv::Exception &error) {
                EXPECT_EQ(error.err, "total() == 0 || data != NULL");
                EXPECT_EQ(error.func, "Mat");
            }
            EXPECT_EQ(out, Bytes(out.size(), missing ? 0 : 77));
            for (void *handle : handles)
                DIDestroy(handle);
        }
}

/// The reference frames have no large packed CrossZoom.
TEST(Shaders, ParallelKernelsGiveTheSameBytesOnEveryInstructionSet) {
    constexpr int width = 131, height = 40;
    const Bytes from = Noise(width * height * 4, 13);
    std::vector<float> faded(from.begin(), from.end());
    const ZoomRow row = {60.5F, 7, 13, 0.47F, width - 1, height - 1};
    const auto draw = [&](const ShaderKernels &kernels, int count) {
        std::vector<std::int32_t> draws(count);
        Bytes out(std::size_t(count) * 4);
        kernels.hashDraws(draws.data(), 4294967200U, 15, count);
        kernels.blurPixels5({out.data(), faded.data()}, width, row, width - count, draws.data(),
                            count);
        return std::pair(draws, out);
    };
    const auto tables = RunnableKernels<ShaderKernels>();
    for (int count = 1; count <= width; count += 5)
        for (const ShaderKernels *kernels : tables)
            EXPECT_EQ(draw(*kernels, count), draw(*tables.front(), count)) << count;
}

} // namespace
