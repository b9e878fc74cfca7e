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

/// What a curve makes of position 10 of 40.
double Tenth(hostkit::Curve curve) {
    switch (curve) {
    case hostkit::Curve::Smooth:
        return SmoothStep(40, 10);
    case hostkit::Curve::Eased:
        return EaseProgress(40, 10);
    case hostkit::Curve::Steep:
        return EaseProgress(40, EaseProgress(40, 10));
    default:
        return 10;
    }
}

TEST(Progress, IsStoredBeforeAnythingIsDrawn) {
    std::uint8_t bytes[16] = {};
    YUVImage empty = {nullptr, bytes, bytes, bytes, nullptr, 16, 0, 16, 8, 8};
    void *none = DIWrap(bytes, 16, 0);
    const auto check = [&](const char *name, TransFuncYUV yuv, TransFuncRGB rgb) {
        const hostkit::Info facts = hostkit::InfoFor(name);
        gAdjustParam = MakeParam(40, 10); // as the eased variants of other transitions pass it
        yuv(&empty, &empty, &empty, &gAdjustParam);
        EXPECT_EQ(gAdjustParam.dCurrent, Tenth(facts.yuv)) << name;
        gAdjustParam = MakeParam(40, 10);
        if (rgb)
            rgb(none, none, none, &gAdjustParam);
        EXPECT_EQ(gAdjustParam.dCurrent, Tenth(facts.rgb)) << name;
        EXPECT_EQ(gAdjustParam.dTotal, 40) << name;
    };
    for (int i = 0; i < GetTransCount(); ++i) {
        const TransInfo &info = *GetTransInfo(i);
        const std::wstring name = info.szName;
        check(std::string(name.begin(), name.end()).c_str(), info.pfnTransYUV, info.pfnTransRGB);
    }
    check("TrTriangle2", TrTriangle2, TrTriangle2RGB);
    check("TrEraseShift", TrEraseShift, nullptr);
    check("TrBarShift", TrBarShift, nullptr);
    check("TrDropShift", TrDropShift, nullptr);
    DIDestroy(none);
}

} // namespace
