// What frames do not show of the arithmetic: exported helpers, conversions.

#include "BlendRows.h"
#include "TurnRows.h"
#include "tp_Erase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace {

using namespace tp;

TEST(Helpers, ConvertTruncatesAndRejects) {
    EXPECT_EQ(Convert(-0.9), 0);
    EXPECT_EQ(Convert(1.999999), 1);
    EXPECT_EQ(Convert(-1.999999), -1);
    EXPECT_EQ(Convert(2147483647.9), INT32_MAX);
    for (const double value : {2147483648.0, -2147483649.0, HUGE_VAL, -HUGE_VAL, double(NAN)})
        EXPECT_EQ(Convert(value), INT32_MIN) << value;
}

TEST(Helpers, BrightenMultipliesInFull) {
    for (int value = 0; value < 256; ++value)
        for (const int low : {0, 1, 199, 255}) {
            const int gain = 2 * 65536 + 77 * 256 + low;
            const auto brighten = [&](std::uint8_t limit) {
                return Brighten(std::uint8_t(value), {limit, 2, 77, std::uint8_t(low)});
            };
            EXPECT_EQ(brighten(245), std::min(std::min(value + 10, 255) * gain >> 16, 255))
                << value;
            EXPECT_EQ(brighten(255), std::min(((value + 10) & 255) * gain >> 16, 255)) << value;
        }
}

TEST(Helpers, ResamplingStepsEqualTheQuotient) {
    for (const std::int64_t width : {1, 2, 3, 100, 101, 641, 1920, 8192})
        for (std::int64_t n = (width + 1) / 2; n <= width + width / 2 + 2; n += 1 + width / 70) {
            const std::int64_t step = MakeResampling(int(width), int(width), int(n), 1, {}).step;
            for (std::int64_t i = 0; i < n; ++i)
                ASSERT_EQ(i * step >> Resampling::kFraction, i * width / n) << n << " of " << width;
        }
}

TEST(Helpers, RectanglesMapBothWaysAndIncludeTheirEdges) {
    EXPECT_EQ(MappedX(7, 5), 2.0);
    EXPECT_EQ(unMappedX(2, 5), 7.0);
    EXPECT_EQ(MappedY(7, 5), -2.0);
    EXPECT_EQ(unMappedY(-2, 5), 7.0);
    EXPECT_TRUE(std::signbit(MappedY(5, 5)));
    EXPECT_FALSE(std::signbit(unMappedY(5, 5)));
    const RectInfo cells[] = {{0, 0, 0, -8, 6, 0, 0}, {0, 0, 0, 1, 2, 0, 0}};
    const struct {
        double x, y;
        int count;
        bool isInside;
    } points[] = {
        {1, 2, 2, true},      {5, -1, 2, true},    {-8, 3, 2, true},   {-4, 6, 1, true},
        {5.01, 0, 2, false},  {0.99, 0, 2, false}, {3, 0, 1, false},   {3, 2.01, 2, false},
        {3, -1.01, 2, false}, {NAN, 0, 2, false},  {3, NAN, 2, false}, {1, 2, 0, false},
    };
    for (const auto &[x, y, count, isInside] : points)
        EXPECT_EQ(PointInRect(x, y, cells, count, 4, 3, 9), isInside) << x << " " << y;
}

TEST(Helpers, PointsInShapes) {
    // Rows of 100 between the hanging triangle and the standing one in a column of cells of 10.
    const struct {
        int x, top, bottom;
    } columns[] = {{0, 0, 50}, {3, 15, 65}, {9, 45, 95}, {-1, -4, 45}, {13, 15, 65}};
    for (const auto &[x, top, bottom] : columns)
        for (int y = -10; y < 100; ++y) {
            EXPECT_EQ(PtInTriangleTop(x, y, 10, 0.5, 0, 100), y < top) << x << " " << y;
            EXPECT_EQ(PtInTriangleBottom(x, y, 10, 0.5, 0, 100), y >= bottom) << x << " " << y;
            EXPECT_EQ(PtInTriangleCell(x, y, 10, 0.5, 0, 100), y < top || y >= bottom) << x;
        }
    // Around a centre at (50, 50): side triangles exclude their edges, the others include them.
    const struct {
        int x, y, a, b;
        bool isInside;
    } points[] = {
        {25, 50, 0, 0, true},    {50, 50, 0, 0, true},    {0, 0, 10, 10, true},
        {10, 50, 25, 25, true},  {40, 40, 25, 25, false}, {10, 79, 25, 50, true},
        {10, 80, 25, 50, false}, {90, 21, 25, 50, true},  {90, 20, 25, 50, false},
        {20, 10, 50, 25, true},  {19, 10, 50, 25, false}, {80, 90, 50, 25, true},
        {81, 90, 50, 25, false},
    };
    for (const auto &[x, y, a, b, isInside] : points)
        EXPECT_EQ(PtInRegion(x, y, a, b, 50, 50), isInside) << x << ", " << y;
}

TEST(Helpers, ShaderMathKeepsToItsPrecision) {
    EXPECT_EQ(mix(3, 7, 0.05F), 3.20000005F); // in float alone 3.19999981
    EXPECT_EQ(mix(3, 7, 0.15F), 3.60000014F); // in double alone 3.5999999
    EXPECT_EQ(fract(-0.25F), 0.75F);
    for (const float seed : {0.0F, 0.5F, 7.125F}) {
        const float wave = std::sin(((34 + seed) * 78.233F + (12 + seed) * 12.9898F) + 1.5F * seed);
        const auto scaled = static_cast<float>(double(seed) + double(wave) * 43758.5453);
        EXPECT_EQ(random(12.9898F, 78.233F, 1.5F, 12, 34, seed), scaled - std::floor(scaled));
    }
    EXPECT_EQ(Linear_ease(0.25F, 0.5F, 2, 0.5F), 0.375F);
    EXPECT_EQ(Exponential_easeInOut(0.3F, 0.6F, 2, 0), 0.3F);
    EXPECT_EQ(Exponential_easeInOut(0.3F, 0.6F, 2, 2), 0.3F + 0.6F);
    EXPECT_EQ(Exponential_easeInOut(1, 4, 2, 1), 3.0F); // the upper half begins at the middle
    EXPECT_EQ(Exponential_easeInOut(0, 1, 1, 0.25F), 0.015625F);
    EXPECT_EQ(Exponential_easeInOut(0, 1, 1, 0.75F), 0.984375F);
    EXPECT_TRUE(std::isnan(Exponential_easeInOut(0, 1, 1, NAN)));
    EXPECT_FLOAT_EQ(Sinusoidal_easeInOut(2, 1, 2, 1), 2.5F);
}

TEST(Helpers, BoundsAreInclusive) {
    const struct {
        Point2f point;
        bool inUnit, inFrame; ///< 0..1, and 8 rows of 5 columns
    } cases[] = {
        {{0, 0}, true, true},          {{-0.0F, 1}, true, true},     {{1, 0}, true, true},
        {{4, 7}, false, true},         {{7, 4}, false, false},       {{4.0001F, 0}, false, false},
        {{-0.0001F, 0}, false, false}, {{0, 7.0001F}, false, false}, {{1, -1e-30F}, false, false},
        {{NAN, 0}, false, false},      {{0, NAN}, false, false},
    };
    for (auto [point, inUnit, inFrame] : cases) {
        EXPECT_EQ(inBounds(point), inUnit) << point.x << ' ' << point.y;
        EXPECT_EQ(inBounds(point, 8, 5), inFrame) << point.x << ' ' << point.y;
    }
}

TEST(Helpers, BgColorAddsTheMirroredPixel) {
    std::array<std::uint8_t, 10 * 20> source; // 10 rows, 5 pixels each
    for (std::size_t i = 0; i < source.size(); ++i)
        source[i] = std::uint8_t(i * 37);
    std::array<std::uint8_t, 4> pixel = {1, 2, 3, 255};
    const auto before = pixel;
    Point2f above = {2, -0.1F}; // mirrored to row -0.08
    bgColor(above, 0.4F, 10, 5, 20, source.data(), pixel.data());
    EXPECT_EQ(above.y, static_cast<float>(double(-0.1F) * -1.2 + 10 * -0.02));
    EXPECT_EQ(pixel, before);
    Point2f below = {2.9F, -4.5F}; // mirrored to row 5.2
    bgColor(below, 0.4F, 10, 5, 20, source.data(), pixel.data());
    EXPECT_EQ(below.x, 2.9F);
    EXPECT_EQ(below.y, 5.2F);
    const float share = mix(1, 0, 5.2F / 10) * 0.4F;
    for (std::size_t i = 0; i < 4; ++i) // the last one wraps
        EXPECT_EQ(pixel[i], int(before[i] + float(source[5 * 20 + 2 * 4 + i]) * share) & 255) << i;
}

} // namespace
