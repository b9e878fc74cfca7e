// Moving rectangles: the helpers of their coordinates, the row kernel, and pictures and single
// pixels that follow from the rules by hand.

#include "CopyRows.h"
#include "Kernels.h"
#include "Progress.h"
#include "Support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace {

TEST(RectHelpers, MapBothWays) {
    EXPECT_EQ(MappedX(7, 5), 2.0);
    EXPECT_EQ(unMappedX(2, 5), 7.0);
    EXPECT_EQ(MappedY(7, 5), -2.0);
    EXPECT_EQ(unMappedY(-2, 5), 7.0);
    EXPECT_TRUE(std::signbit(MappedY(5, 5)));
    EXPECT_FALSE(std::signbit(unMappedY(5, 5)));
}

TEST(RectHelpers, PointInRectIncludesEdges) {
    const RectInfo cells[] = {{0, 0, 0, -8, 6, 0, 0}, {0, 0, 0, 1, 2, 0, 0}};
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    const struct {
        double x, y;
        int count;
        bool inside;
    } cases[] = {
        {1, 2, 2, true},      {5, -1, 2, true},    {-8, 3, 2, true},   {-4, 6, 1, true},
        {5.01, 0, 2, false},  {0.99, 0, 2, false}, {3, 0, 1, false},   {3, 2.01, 2, false},
        {3, -1.01, 2, false}, {nan, 0, 2, false},  {3, nan, 2, false}, {1, 2, 0, false},
    };
    for (const auto &c : cases)
        EXPECT_EQ(PointInRect(c.x, c.y, cells, c.count, 4, 3, 9), c.inside) << c.x << " " << c.y;
    EXPECT_FALSE(PointInRect(1, 2, nullptr, -1, 4, 3, 0));
}

TEST(CopyRows, DecimateReadsEveryStepAndNoMore) {
    for (const tp::CopyKernels *kernels : RunnableKernels<tp::CopyKernels>())
        for (std::size_t step = 0; step < 7; ++step)
            for (std::size_t count = 1; count < 300; count += count < 70 ? 1 : 19) {
                GuardedBuffer in((count - 1) * step + 1), out(count);
                FillRandom(in.Bytes(), count);
                kernels->decimate(out.Data(), in.Data(), std::ptrdiff_t(step),
                                  std::ptrdiff_t(count));
                for (std::size_t i = 0; i < count; ++i)
                    ASSERT_EQ(out.Data()[i], in.Data()[i * step]) << step << " " << count;
            }
}

struct Pair {
    TransFuncYUV yuv;
    TransFuncRGB rgb;
};

constexpr Pair kPairs[] = {{TrRect, TrRectRGB},   {TrRect2, TrRect2RGB}, {TrRect3, TrRect3RGB},
                           {TrRect4, TrRect4RGB}, {TrRect5, TrRect5RGB}, {TrRect6, TrRect6RGB}};

TEST(Rects, TooSmallForACellShowsTheIncomingFrameAndNothingIsStored) {
    tp::Stored({3, 7});
    for (const Pair &pair : kPairs) {
        PlanarCall planar({8, 4, 8, 4}, 5);
        planar.Draw(pair.yuv, MakeParam(1, 0.3));
        for (int plane = 0; plane < 3; ++plane)
            EXPECT_TRUE(std::ranges::equal(planar.Plane(0, plane), planar.Plane(2, plane)));
        PackedCall packed(8, 4, 5);
        packed.Draw(pair.rgb, MakeParam(1, 0.3));
        EXPECT_TRUE(std::ranges::equal(packed.Pixels(0), packed.Pixels(2)));
    }
    EXPECT_EQ(tp::gAdjustParam.dTotal, 7.0);
    EXPECT_EQ(tp::gAdjustParam.dCurrent, 3.0);
}

} // namespace
