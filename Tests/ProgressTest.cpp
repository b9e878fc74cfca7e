// The progress curves, and the record that keeps the last position.

#include "Progress.h"
#include "Support.h"

#include <gtest/gtest.h>

namespace {

using namespace tp;

TEST(Progress, CurvesPassTheirFixedPoints) {
    for (const double total : {1.0, 25.0, 40.0, 50.0}) {
        EXPECT_EQ(EaseProgress(total, 0), 0.0);
        EXPECT_EQ(EaseProgress(total, total), total);
        EXPECT_EQ(EaseProgress(total, total / 2), total / 2);
        EXPECT_EQ(SmoothStep(total, 0), 0.0);
        EXPECT_EQ(SmoothStep(total, total), total);
    }
    EXPECT_NEAR(EaseProgress(1, 0.25), 0.0232590, 5e-8);
    EXPECT_NEAR(EaseProgress(40, 10), 0.930361, 5e-7);
    EXPECT_NEAR(SmoothStep(1, 0.25), 0.15625, 1e-15);
}

TEST(Progress, EraseStoresItsPositionEvenForAnEmptyFrame) {
    const TransParam param = MakeParam(40, 10);
    YUVImage empty{};
    TrErase(&empty, &empty, &empty, &param);
    EXPECT_EQ(gAdjustParam.dTotal, 40.0);
    EXPECT_EQ(gAdjustParam.dCurrent, EaseProgress(40, 10));
}

} // namespace
