// The integer conventions over their whole domain, against the plain divisions they stand for.

#include "Pixels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using namespace tp;

TEST(Pixels, ConvertTruncatesAndRejects) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const std::pair<double, std::int32_t> cases[] = {
        {0.0, 0},
        {-0.9, 0},
        {1.999999, 1},
        {-1.999999, -1},
        {2147483647.9, INT32_MAX},
        {2147483648.0, INT32_MIN},
        {-2147483648.9, INT32_MIN},
        {-2147483649.0, INT32_MIN},
        {1e300, INT32_MIN},
        {infinity, INT32_MIN},
        {-infinity, INT32_MIN},
        {std::nan(""), INT32_MIN},
    };
    for (const auto &[value, expected] : cases)
        EXPECT_EQ(Convert(value), expected) << value;
    EXPECT_EQ(Position(0.5, 1, 1.0), 1);
    EXPECT_EQ(Position(1.0, 100, 0.0), INT32_MIN);
}

TEST(Pixels, BlendsDivideEachProductOnItsOwn) {
    for (unsigned w = 0; w < 256; ++w)
        for (unsigned a = 0; a < 256; ++a)
            for (unsigned b = 0; b < 256; b += 5) {
                ASSERT_EQ(BlendYuv(a, b, w), a * w / 255 + b * (255 - w) / 255);
                ASSERT_EQ(BlendRgb(a, b, w), (a * w >> 8) + (b * (255 - w) >> 8));
                ASSERT_EQ(BlendRgbSum(a, b, w), (a * w + b * (255 - w)) >> 8);
            }
}

TEST(Pixels, RampRunsFromTwoToFullWeight) {
    EXPECT_EQ(RampWeight(-1), -2);
    EXPECT_EQ(RampWeight(0), 0);
    EXPECT_EQ(RampWeight(1), 2);
    EXPECT_EQ(RampWeight(100), 255);
}

} // namespace
