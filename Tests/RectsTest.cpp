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

TEST(Rects, PixelsWhereTheRulesPutThem) {
    const struct {
        TransFuncYUV function;
        Geometry geometry;
        double position;
        int x, y;             ///< in the output
        int sourceX, sourceY; ///< in the first input
    } cases[] = {
        // A cell on the centre line takes its neighbour's y; in TrRect6 it does not move sideways.
        {TrRect, {10, 14, 10, 5}, 0.5, 6, 3, 5, 6},
        {TrRect4, {20, 16, 20, 10}, 0.5, 15, 2, 10, 0},
        {TrRect6, {20, 16, 20, 10}, 0.5, 10, 10, 0, 0},
        // A cell keeps nine tenths of its size: the last of them.
        {TrRect2, {90, 70, 90, 45}, 0.5, 48, 39, 48, 38},
        // Half way the edge cells have moved by width / 24.
        {TrRect3, {240, 80, 240, 120}, 0.5, 1, 41, 22, 42},
        // The column past the end is padding.
        {TrRect4, {20, 16, 24, 12}, 0.3, 20, 8, 19, 8},
        // Near the end a cell still has a pixel; the 21st column's source lies in the row below.
        {TrRect5, {40, 10, 40, 20}, 0.9995, 20, 5, 0, 9},
        // Right after the start there are miniatures, the left ones a column further out.
        {TrRect6, {100, 80, 100, 50}, 2e-9, 11, 12, 20, 16},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(&c - cases);
        PlanarCall call(c.geometry, 9);
        call.Draw(c.function, MakeParam(1, c.position));
        const auto at = [&](int image, int x, int y) {
            return call.Plane(image, 0)[std::size_t(y) * c.geometry.pitch + x];
        };
        EXPECT_EQ(at(0, c.x, c.y), at(1, c.sourceX, c.sourceY));
        EXPECT_NE(at(0, c.x, c.y), at(2, c.x, c.y)) << "the case cannot fail";
    }
}

} // namespace
