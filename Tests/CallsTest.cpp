// What calls do beside the picture, and calls that reference frames cannot tell of: what is stored
// and logged, how many random numbers are drawn, frames that differ from each other, missing ones,
// threads.

#include "Progress.h"
#include "Support.h"

#include <VeskLogger.h>
#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cwchar>
#include <map>

namespace {

std::int32_t claimedPitch = 0; ///< what DIGetPitch answers, or 0 for the truth

} // namespace

// In place of the imaging library's.
std::int32_t DIGetPitch(void *image) {
    return claimedPitch ? claimedPitch : DIGetWidth(image) * 4;
}

namespace {

using namespace tp;
using Bytes = std::vector<std::uint8_t>;

TEST(Calls, StoreTheirProgressBeforeAnythingIsDrawn) {
    using hostkit::Curve;
    const double eased = EaseProgress(40, 10);
    std::map<Curve, double> quarters = {{Curve::Linear, 1}, // what stood there before
                                        {Curve::Smooth, 6.25},
                                        {Curve::Eased, eased},
                                        {Curve::Steep, EaseProgress(40, eased)},
                                        {Curve::Bounce, 15.625}};
    const auto check = [&](const std::string &name, TransFuncYUV yuv, TransFuncRGB rgb) {
        const hostkit::Info facts = hostkit::InfoFor(name);
        const std::pair<TransFunc, Curve> paths[] = {{yuv, facts.yuv}, {rgb, facts.rgb}};
        for (const auto &[function, curve] : paths) {
            if (curve == Curve::Absent)
                continue;
            gAdjustParam = MakeParam(1, 1);
            FrameCall(function, {16, 0}, 1).Draw(MakeParam(40, 10));
            EXPECT_EQ(gAdjustParam.dCurrent, quarters[curve]) << name;
            EXPECT_EQ(gAdjustParam.dTotal, curve == Curve::Linear ? 1 : 40) << name;
        }
    };
    for (int i = 0; i < GetTransCount(); ++i) {
        const TransInfo &info = *GetTransInfo(i);
        const std::wstring name = info.szName;
        check({name.begin(), name.end()}, info.pfnTransYUV, info.pfnTransRGB);
    }
    check("TrTriangle2", TrTriangle2, TrTriangle2RGB);
    check("TrTriangle3", TrTriangle3, TrTriangle3RGB);
    check("TrEraseShift", TrEraseShift, nullptr);
    check("TrBarShift", TrBarShift, nullptr);
    check("TrDropShift", TrDropShift, nullptr);
}

/// The size of the first input alone says whether CrossZoom draws in parallel.
TEST(Calls, TakeTheirRandomNumbers) {
    const struct {
        TransFunc function;
        int width, height, width1, height1, numbers;
    } cases[] = {{TrWind, 16, 9, 16, 9, 5},
                 {TrWindRGB, 16, 10, 16, 10, 5},
                 {TrCrossZoom, 33, 31, 33, 31, 33 * 31},
                 {TrCrossZoomRGB, 40, 25, 40, 25, 1000},
                 {TrCrossZoomRGB, 60, 40, 50, 20, 2400},
                 {TrCrossZoomRGB, 77, 13, 77, 13, 1},
                 {TrCrossZoomRGB, 30, 20, 77, 13, 1}};
    for (const auto &[function, width, height, width1, height1, numbers] : cases) {
        FrameCall call(function, {width, height, width, width}, 1);
        call.Claim(1, call.Plane(1).data(), width1, height1);
        std::srand(7);
        call.Draw(MakeParam(1, 0.5));
        const int next = std::rand();
        std::srand(7);
        for (int i = 0; i < numbers; ++i)
            std::rand();
        EXPECT_EQ(next, std::rand()) << width << " x " << height;
    }
}

TEST(Calls, CrossZoomDrawsTheFirstInputsPixelsAlike) {
    FrameCall call(TrCrossZoomRGB, {60, 90}, 1);
    Bytes drawn[2];
    for (const bool isParallel : {false, true}) {
        cv::setNumThreads(isParallel ? -1 : 1); // as many as there are, or one
        call.Claim(1, call.Plane(1).data(), isParallel ? 59 : 60, isParallel ? 30 : 90);
        std::srand(12);
        call.Draw(MakeParam(1, 0.55));
        drawn[isParallel].assign(call.Plane(0).begin(), call.Plane(0).end());
    }
    std::fill(drawn[0].begin() + 59 * 30 * 4, drawn[0].end(), 0); // what the first input lacks
    EXPECT_EQ(drawn[0], drawn[1]);
}

TEST(Calls, CrossZoomReadsNothingForThePixelsThatTheFirstInputLacks) {
    FrameCall call(TrCrossZoomRGB, {60, 40}, 1), half(TrCrossZoomRGB, {60, 20}, 2);
    for (const int image : {1, 2})
        call.Claim(image, half.Plane(image).data(), 60, 20);
    call.Draw(MakeParam(1, 0.5));
    const auto lacking = call.Plane(0).subspan(half.Plane(1).size());
    EXPECT_TRUE(std::ranges::all_of(lacking, [](int byte) { return byte == 0; }));
}

TEST(Calls, MissingBufferIsOpenCvsError) {
    for (const TransFuncRGB function : {TrDoorWayRGB, TrCrossZoomRGB})
        for (const int missing : {0, 1, 2}) {
            FrameCall call(function, {101, 100}, 1);
            Bytes expected(call.Plane(0).size(), 0);
            if (missing == 0)
                std::ranges::copy(call.Plane(0), expected.begin());
            call.Claim(missing, nullptr, 101, 100);
            try {
                call.Draw(MakeParam(1, 0.5));
                ADD_FAILURE() << "no exception";
            } catch (const cv::Exception &error) {
                EXPECT_EQ(error.err, "total() == 0 || data != NULL");
                EXPECT_EQ(error.func, "Mat");
            }
            EXPECT_TRUE(std::ranges::equal(call.Plane(0), expected));
        }
}

struct CapturingLogger : VeskLogger {
    bool isEnabled = true;
    std::vector<std::wstring> heard; ///< levels that are asked for, and messages with theirs

    bool IsEnabled(int level) override {
        heard.push_back(std::to_wstring(level));
        return isEnabled;
    }
    void Log(int level, const wchar_t *format, ...) override {
        wchar_t text[200];
        va_list values;
        va_start(values, format);
        std::vswprintf(text, std::size(text), format, values);
        va_end(values);
        heard.push_back(std::to_wstring(level) + L": " + text);
    }
};

TEST(Calls, PushLogsUnequalPixelCountsAndDrawsNothing) {
    CapturingLogger on, off;
    off.isEnabled = false;
    FrameCall call(TrPushRGB, {6, 4}, 1);
    const auto out = call.Plane(0), in1 = call.Plane(1), in2 = call.Plane(2);
    const Bytes untouched(out.begin(), out.end());
    call.Claim(1, in1.data(), 6, 3);
    call.Claim(2, in2.data(), 5, 4);
    VeskLogger *const before = VeskGetDefaultLogger();
    EXPECT_TRUE(before->IsEnabled(64) && !before->IsEnabled(63));
    for (VeskLogger *logger : std::initializer_list<VeskLogger *>{nullptr, &off, &on}) {
        VeskSetDefaultLogger(logger);
        call.Draw(MakeParam(1, 0.5));
        EXPECT_TRUE(std::ranges::equal(out, untouched));
    }
    call.Claim(2, in2.data(), 3, 6); // another shape of as many pixels, if not of the output's
    call.Draw(MakeParam(1, 0.5));
    VeskSetDefaultLogger(before);
    EXPECT_TRUE(out[0] == in2[12] && out[11] == in2[23] && out[12] == in1[0] && out[95] == in1[83]);
    EXPECT_EQ(off.heard, std::vector<std::wstring>{L"64"});
    const std::wstring message = L"64: TrPushRGB input size not equal,input1:[6, 3],input2:[5,4]  "
                                 L"[tp_Erase.cpp, 4102]";
    EXPECT_EQ(on.heard, (std::vector<std::wstring>{L"64", message}));
}

TEST(Calls, LinearWipeHeedsThePitchAndShowsTheFirstInputInThePadding) {
    constexpr int width = 600, height = 40, pitch = width + 6;
    FrameCall call(TrLinearWipeRGB, {pitch, height}, 1);
    std::ranges::fill(call.Plane(1), 100);
    std::ranges::fill(call.Plane(2), 200);
    for (const int image : {0, 1, 2}) // the inputs' sizes do not matter
        call.Claim(image, call.Plane(image).data(), image ? 9 : width, image ? 9 : height);
    claimedPitch = pitch * 4;
    call.Draw(MakeParam(1, 0.5));
    claimedPitch = 0;
    // The front has come 602 places, 37 of which show the second input alone in the last row in
    // memory. From the third row on all of the band is there, and what is ahead of it blended, too.
    const auto blend = [](int weight) { return (200 * weight + 100 * (255 - weight)) >> 8; };
    const struct {
        int row, column, value;
    } pixels[] = {{height - 1, 36, 200},  {height - 1, 37, blend(255)},
                  {height - 1, 605, 100}, {2, 599, blend(0)},
                  {2, 600, 100},          {1, 599, 100}};
    for (const auto &[row, column, value] : pixels)
        EXPECT_EQ(call.Plane(0)[(row * pitch + column) * 4], value) << row << " " << column;
}

/// With an odd edge, which is in the middle here, the flat part comes from one sample further right
/// than it goes to, and its last sample from one past the row, unless the plane ends before it.
TEST(Calls, RollKeepsTheFlatPartOfCrAtAPitchOfItsOwn) {
    for (const int edge : {64, 65})
        for (const int pitchV : {65, 66}) {
            FrameCall call(TrRoll, {2 * edge, 4, 2 * edge, 70}, 9);
            call.Record(0).nPitchV = pitchV;
            call.Draw(MakeParam(1, 0.5));
            for (int x = edge - 10; x < edge; ++x) {
                const bool isMoved = edge % 2 == 1 && (x + 1 < edge || pitchV > edge);
                EXPECT_EQ(call.Plane(0, 2)[pitchV + x], call.Plane(1, 2)[pitchV + x + isMoved])
                    << edge << " " << pitchV << " " << x;
            }
        }
}

} // namespace
