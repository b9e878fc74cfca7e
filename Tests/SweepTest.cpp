// Laws that hold for every exported transition function at every size, with the exceptions in one
// table: nothing outside the frames, inputs and parameters unchanged, the same picture from every
// instruction set, whole end pictures, padding left alone, and no position that leaves the frames.

#include "Support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <unistd.h>

namespace {

struct Size {
    int width, height;
};

constexpr auto kAlways = [](Size) { return true; };
constexpr auto kWholeBands = [](Size s) { return s.height % 32 == 0; };
constexpr auto kWholePackedBands = [](Size s) {
    return s.height % std::max(32 * s.height / 360, 1) == 0;
};
constexpr auto kOneRow = [](Size s) { return s.height == 1; };
constexpr auto kOneColumn = [](Size s) { return s.width == 1; };
constexpr auto kOddWidth = [](Size s) { return s.width % 2 == 1; };
constexpr auto kBelowTen = [](Size s) { return s.width < 10; };

enum Law { StartIsIn1, EndIsIn2, PaddingStays };

/// What transitions do not do, and why.
const struct Exception {
    Law law;
    std::vector<std::string> functions; ///< exported names
    std::string reason;
    bool (*applies)(Size) = kAlways;
} kExceptions[] = {
    {StartIsIn1, {"TrDrop", "TrDropShift"}, "the last of whole bands has fallen", kWholeBands},
    {StartIsIn1, {"TrDropRGB"}, "the last of whole bands has fallen", kWholePackedBands},
    {StartIsIn1, {"TrBlind", "TrBlindRGB"}, "one row is no slat", kOneRow},
    {StartIsIn1, {"TrFlash", "TrFlashRGB"}, "the ends are 10 levels brighter"},
    {StartIsIn1, {"TrTurn"}, "the card is a row short and tilted at its ends"},
    {StartIsIn1, {"TrRect", "TrRectRGB", "TrRect3", "TrRect3RGB", "TrRect4"}, "strips uncovered"},
    {StartIsIn1, {"TrRect2", "TrRect5"}, "small frames have no cells"},
    {StartIsIn1, {"TrRect2RGB", "TrRect4RGB", "TrRect5RGB"}, "columns are byte offsets"},
    {StartIsIn1, {"TrDoorWay", "TrDoorWayRGB"}, "an even width's middle column is already open"},
    {StartIsIn1, {"TrCrossZoom", "TrCrossZoomRGB"}, "averages are truncated"},
    {StartIsIn1, {"Tr4Triangle", "TrNTriangle"}, "the shapes of odd sizes leave gaps"},
    {StartIsIn1, {"TrTriangle3"}, "the tip of a triangle shows"},
    {StartIsIn1, {"Tr4TriangleRGB", "TrNTriangleRGB", "TrCirqueRGB"}, "columns are byte offsets"},
    {EndIsIn2, {"TrWind", "TrWindRGB"}, "splits are even columns", kOddWidth},
    {EndIsIn2, {"TrFlash", "TrFlashRGB"}, "the ends are 10 levels brighter"},
    {EndIsIn2, {"TrTurn"}, "the card is a row short and tilted at its ends"},
    {EndIsIn2, {"roll_RT"}, "the fold ends inside one column", kOneColumn},
    {EndIsIn2, {"roll_RT_RGB"}, "the last fold pixel may stay"},
    {EndIsIn2, {"TrRect2", "TrRect2RGB"}, "a cell in the middle column does not fall"},
    {EndIsIn2, {"TrCrossZoom", "TrCrossZoomRGB"}, "averages are truncated"},
    {EndIsIn2, {"TrNTriangle"}, "not drawn", kBelowTen},
    {EndIsIn2, {"TrTriangle2"}, "the tip of a triangle stays"},
    {EndIsIn2,
     {"Tr4TriangleRGB", "TrNTriangleRGB", "TrTriangle2RGB", "TrCirqueRGB"},
     "columns are byte offsets"},
    {PaddingStays, {"TrDrop", "TrDropShift", "TrBlind"}, "rows are copied with their padding"},
    {PaddingStays, {"TrWind"}, "rows are shifted into their padding"},
    {PaddingStays, {"TrFlash", "TrTurn", "TrDoorWay", "TrCrossZoom"}, "the whole output is filled"},
    {PaddingStays, {"TrRect4", "TrRect5"}, "the column behind the last lies in the padding"},
    {PaddingStays, {"TrTriangle2", "TrTriangle3"}, "the early copy takes whole planes"},
};

/// What excuses a function from laws, and which of that is still to happen.
struct Excuses {
    std::vector<const Exception *> all, unused;

    explicit Excuses(const std::string &function) {
        for (const Exception &e : kExceptions)
            if (std::ranges::count(e.functions, function))
                all.push_back(&e);
        unused = all;
    }
    void Check(Law law, Size size, bool isKept) {
        const auto excuse = std::ranges::find_if(
            all, [&](const Exception *e) { return e->law == law && e->applies(size); });
        if (excuse == all.end())
            EXPECT_TRUE(isKept) << "law " << law;
        else if (!isKept)
            std::erase(unused, *excuse);
    }
};

/// The same function with the kernels of an instruction set: that of a copy of the plug-in, which
/// asks the environment for them when it first draws.
TransFunc With(const std::string &isa, const std::string &function) {
    static std::map<std::string, hostkit::Plugin> plugins;
    if (!plugins.contains(isa)) {
        const std::string copy = testing::TempDir() + std::to_string(getpid()) + isa + ".so";
        std::filesystem::copy_file(TP_PLUGIN_FILE, copy);
        const hostkit::Plugin &plugin = plugins.try_emplace(isa, copy).first->second;
        std::filesystem::remove(copy);
        setenv("TP_ERASE_ISA", isa.c_str(), 1);
        FrameCall(plugin.Find("Erase")->yuv, {1, 1, 1, 1}, 0).Draw(MakeParam(1, 0));
        unsetenv("TP_ERASE_ISA");
    }
    const std::vector<ExportedFunction> functions = ExportedFunctions(plugins.at(isa));
    return std::ranges::find(functions, function, &ExportedFunction::name)->function;
}

using Bytes = std::vector<std::uint8_t>;

Bytes Image(const FrameCall &call, int image) {
    Bytes bytes;
    for (int plane = 0; plane < int(call.Planes().size()); ++plane) {
        const auto more = call.Plane(image, plane);
        bytes.insert(bytes.end(), more.begin(), more.end());
    }
    return bytes;
}

/// Whether two images of a call are the same in the picture, or in the padding beside it.
enum Part { Picture, Padding };
bool AreSame(const FrameCall &call, Part part, const Bytes &one, const Bytes &other) {
    auto a = one.begin(), b = other.begin();
    for (const auto &[visible, pitch, rows] : call.Planes())
        for (int y = 0; y < rows; ++y, a += pitch, b += pitch)
            if (part == Picture ? !std::equal(a, a + visible, b)
                                : !std::equal(a + visible, a + pitch, b + visible))
                return false;
    return true;
}

/// Draws with the same random numbers every time.
void Draw(FrameCall &call, double total, double current) {
    std::srand(11);
    call.Draw(MakeParam(total, current));
}

/// Sizes 1..40 x 1..40 and some real ones, odd ones among them.
std::vector<Size> Sizes() {
    std::vector<Size> sizes = {{427, 241}, {320, 180}, {101, 71}, {64, 360}, {853, 3}, {3, 853}};
    for (int i = 0; i < 40 * 40; ++i)
        sizes.push_back({1 + i / 40, 1 + i % 40});
    return sizes;
}

/// With padding, chroma rows may be narrower than half of luma's.
Geometry Padded(const ExportedFunction &function, Size size, int padding) {
    const auto [width, height] = size;
    return {width, height, width + padding, (width + 1) / 2 + padding / 4, function.fullChroma};
}

class Sweep : public testing::TestWithParam<ExportedFunction> {};

TEST_P(Sweep, KeepsTheLaws) {
    constexpr double kTotal = 25; // the eased curves reach their ends exactly
    const ExportedFunction &function = GetParam();
    const TransFunc others[] = {With("baseline", function.name), With("avx2", function.name)};
    Excuses excuses(function.name);
    int turn = 0;
    for (const Size size : Sizes()) {
        const Geometry geometry = Padded(function, size, std::array{0, 1, 13}[turn % 3]);
        const bool atStart = turn % 2 == 1;
        FrameCall call(function.function, geometry, size.width, atStart);
        FrameCall other(others[turn++ / 2 % 2], geometry, size.width, atStart);
        const Bytes in1 = Image(call, 1), in2 = Image(call, 2);
        for (const double fraction : {0.0, 1.0, 0.13, 0.38, 0.5, 0.71, 0.9995}) {
            SCOPED_TRACE(testing::Message() << size.width << "x" << size.height << " pitch "
                                            << geometry.pitch << " at " << fraction);
            const Bytes before = Image(call, 0);
            Draw(call, kTotal, kTotal * fraction);
            Draw(other, kTotal, kTotal * fraction);
            const Bytes out = Image(call, 0);
            if (fraction == 0)
                excuses.Check(StartIsIn1, size, AreSame(call, Picture, out, in1));
            if (fraction == 1)
                excuses.Check(EndIsIn2, size, AreSame(call, Picture, out, in2));
            excuses.Check(PaddingStays, size, AreSame(call, Padding, out, before));
            EXPECT_TRUE(Image(other, 0) == out) << "other kernels drew another picture";
            EXPECT_TRUE(Image(call, 1) == in1 && Image(call, 2) == in2) << "an input changed";
            if (HasFailure())
                return;
        }
    }
    for (const Exception *e : excuses.unused)
        ADD_FAILURE() << "never happens: " << e->reason;
}

TEST_P(Sweep, StaysInsideAtAnyPosition) {
    constexpr double nan = NAN, inf = HUGE_VAL;
    const double positions[][2] = {
        {25, -0.3},       {25, -12},      {25, -1e9},  {25, -1e300},     {25, 25.4},
        {25, 37},         {25, 1e9},      {25, 1e300}, {25, nan},        {25, inf},
        {25, -inf},       {0, 0},         {0, 1},      {0, -1},          {-25, 10},
        {-25, -10},       {nan, 1},       {inf, 1},    {inf, inf},       {-inf, 1},
        {1e-300, 1e-301}, {1e300, 1e299}, {5e-324, 0}, {25, 25.0000001}, {25, 24.9999999}};
    const Size sizes[] = {{1, 1},   {2, 2},   {3, 5},    {9, 7},    {16, 16}, {20, 10},
                          {33, 32}, {40, 39}, {101, 71}, {160, 90}, {321, 64}};
    int turn = 0;
    for (const Size size : sizes)
        for (const auto &[total, current] : positions) {
            SCOPED_TRACE(testing::Message() << size.width << "x" << size.height << " at " << current
                                            << " of " << total);
            const Geometry geometry = Padded(GetParam(), size, turn % 2 * 7);
            FrameCall call(GetParam().function, geometry, size.width, turn++ / 2 % 2 == 1);
            const Bytes in1 = Image(call, 1), in2 = Image(call, 2);
            Draw(call, total, current);
            EXPECT_TRUE(Image(call, 1) == in1 && Image(call, 2) == in2) << "an input changed";
        }
}

INSTANTIATE_TEST_SUITE_P(Every, Sweep, testing::ValuesIn(ExportedFunctions(TestedPlugin())),
                         testing::PrintToStringParamName());

} // namespace
