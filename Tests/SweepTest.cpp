// Laws that hold for every exported transition function at every size, with the exceptions in one
// table: nothing outside the frames, inputs and parameters unchanged, repeatable, whole end
// pictures, padding left alone, and no position that leaves the frames.

#include "Support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string_view>
#include <vector>

namespace {

struct Size {
    int width;
    int height;
};

/// What a transition does not do, and why.
struct Exception {
    enum Law { StartIsIn1, EndIsIn2, PaddingStays };
    std::string_view function; ///< exported name of the planar or packed path
    Law law;
    bool (*applies)(Size);
    const char *reason;
};

constexpr bool Always(Size) {
    return true;
}

using enum Exception::Law;

constexpr Exception kExceptions[] = {
    {"TrDrop", StartIsIn1, [](Size s) { return s.height % 32 == 0; },
     "a height of whole bands starts with its last band fallen"},
    {"TrDropShift", StartIsIn1, [](Size s) { return s.height % 32 == 0; }, "as TrDrop"},
    {"TrDropRGB", StartIsIn1,
     [](Size s) { return s.height % std::max(32 * s.height / 360, 1) == 0; }, "as TrDrop"},
    {"TrDrop", PaddingStays, Always, "rows are copied with their padding"},
    {"TrDropShift", PaddingStays, Always, "rows are copied with their padding"},
    {"TrBlind", StartIsIn1, [](Size s) { return s.height == 1; }, "one row is no slat"},
    {"TrBlindRGB", StartIsIn1, [](Size s) { return s.height == 1; }, "one row is no slat"},
    {"TrBlind", PaddingStays, Always, "rows are copied with their padding"},
    {"TrWind", PaddingStays, Always, "rows are shifted into their padding"},
    {"TrWind", EndIsIn2, [](Size s) { return s.width % 2 == 1; }, "splits are even columns"},
    {"TrWindRGB", EndIsIn2, [](Size s) { return s.width % 2 == 1; }, "splits are even columns"},
    {"TrFlash", StartIsIn1, Always, "the ends are 10 levels brighter"},
    {"TrFlash", EndIsIn2, Always, "the ends are 10 levels brighter"},
    {"TrFlashRGB", StartIsIn1, Always, "the ends are 10 levels brighter"},
    {"TrFlashRGB", EndIsIn2, Always, "the ends are 10 levels brighter"},
    {"TrFlash", PaddingStays, Always, "the whole output is filled first"},
    {"TrTurn", StartIsIn1, Always, "the card is a row short and tilted at its ends"},
    {"TrTurn", EndIsIn2, Always, "the card is a row short and tilted at its ends"},
    {"TrTurn", PaddingStays, Always, "the whole output is filled first"},
    {"roll_RT", EndIsIn2, [](Size s) { return s.width < 2; }, "the fold ends inside one column"},
    {"roll_RT_RGB", EndIsIn2, Always, "the last fold pixel may stay"},
    {"TrRect", StartIsIn1, Always, "the grid leaves strips uncovered"},
    {"TrRectRGB", StartIsIn1, Always, "the grid leaves strips uncovered"},
    {"TrRect3", StartIsIn1, Always, "the grid leaves strips uncovered"},
    {"TrRect3RGB", StartIsIn1, Always, "the grid leaves strips uncovered"},
    {"TrRect2", StartIsIn1, Always, "frames below 9 x 7 have no cells"},
    {"TrRect2", EndIsIn2, Always, "a cell in the middle column does not fall"},
    {"TrRect2RGB", StartIsIn1, Always, "columns are byte offsets"},
    {"TrRect2RGB", EndIsIn2, Always, "a cell in the middle column does not fall"},
    {"TrRect4", StartIsIn1, Always, "the grid leaves strips uncovered"},
    {"TrRect4RGB", StartIsIn1, Always, "columns are byte offsets"},
    {"TrRect4", PaddingStays, Always, "column W lies in the padding"},
    {"TrRect5", StartIsIn1, Always, "frames below 20 x 5 have no cells"},
    {"TrRect5RGB", StartIsIn1, Always, "columns are byte offsets"},
    {"TrRect5", PaddingStays, Always, "column W lies in the padding"},
    {"TrDoorWay", StartIsIn1, Always, "an even width's middle column is already open"},
    {"TrDoorWayRGB", StartIsIn1, Always, "an even width's middle column is already open"},
    {"TrDoorWay", PaddingStays, Always, "the whole output is filled first"},
    {"TrCrossZoom", StartIsIn1, Always, "averages are truncated"},
    {"TrCrossZoom", EndIsIn2, Always, "averages are truncated"},
    {"TrCrossZoomRGB", StartIsIn1, Always, "averages are truncated"},
    {"TrCrossZoomRGB", EndIsIn2, Always, "averages are truncated"},
    {"TrCrossZoom", PaddingStays, Always, "the whole output is filled first"},
    {"Tr4Triangle", StartIsIn1, Always, "the diagonals of odd sizes leave gaps"},
    {"TrNTriangle", StartIsIn1, Always, "the teeth of odd sizes leave gaps"},
    {"TrNTriangle", EndIsIn2, [](Size s) { return s.width < 10; }, "not drawn"},
    {"TrTriangle2", EndIsIn2, Always, "the tip of a triangle stays"},
    {"TrTriangle2", PaddingStays, Always, "the early copy takes whole planes"},
    {"TrTriangle3", StartIsIn1, Always, "the tip of a triangle shows"},
    {"TrTriangle3", PaddingStays, Always, "the early copy takes whole planes"},
    {"Tr4TriangleRGB", StartIsIn1, Always, "columns are byte offsets"},
    {"Tr4TriangleRGB", EndIsIn2, Always, "columns are byte offsets"},
    {"TrNTriangleRGB", StartIsIn1, Always, "columns are byte offsets"},
    {"TrNTriangleRGB", EndIsIn2, Always, "columns are byte offsets"},
    {"TrTriangle2RGB", EndIsIn2, Always, "columns are byte offsets"},
    {"TrCirqueRGB", StartIsIn1, Always, "columns are byte offsets"},
    {"TrCirqueRGB", EndIsIn2, Always, "columns are byte offsets"},
};

/// Tells the laws from their exceptions, and exceptions from empty excuses.
class Laws {
public:
    explicit Laws(std::string_view name) : function(name) {}

    void Check(Exception::Law law, Size size, bool kept, const char *failure) {
        for (std::size_t i = 0; i < std::size(kExceptions); ++i) {
            const Exception &e = kExceptions[i];
            if (e.law == law && e.function == function && e.applies(size)) {
                used[i] |= !kept;
                return;
            }
        }
        EXPECT_TRUE(kept) << failure;
    }

    void CheckThatExceptionsOccur() const {
        for (std::size_t i = 0; i < std::size(kExceptions); ++i)
            EXPECT_TRUE(used[i] || kExceptions[i].function != function)
                << "never happens: " << kExceptions[i].reason;
    }

private:
    std::string_view function;
    std::array<bool, std::size(kExceptions)> used{};
};

/// One exported function; exactly one of the two is set.
struct Function {
    std::string name;
    TransFuncYUV yuv;
    TransFuncRGB rgb;
    bool fullChroma;
};

void PrintTo(const Function &function, std::ostream *out) {
    *out << function.name;
}

std::vector<Function> Functions() {
    std::vector<Function> functions;
    for (const hostkit::Transition &t : TestedPlugin().Transitions()) {
        if (t.yuv)
            functions.push_back(
                {t.info.function, t.yuv, nullptr, t.info.chroma == hostkit::Chroma::Full});
        if (t.rgb)
            functions.push_back({t.info.PackedFunction(), nullptr, t.rgb, false});
    }
    return functions;
}

using Bytes = std::vector<std::uint8_t>;

/// The three frames of a call in either layout.
class Frames {
public:
    Frames(const Function &called, Size size, int padding, bool atStart) : function(called) {
        const auto [w, h] = size;
        if (function.rgb) {
            packed.emplace(w, h, w, atStart);
            planes = {{w * 4, w * 4, h}};
            return;
        }
        Geometry geometry = {w, h, w + padding, (w + 1) / 2 + padding / 4}; // below half of luma's
        planes = {{w, geometry.pitch, h}};
        if (function.fullChroma) {
            geometry = {w, h, w + padding, w + padding, true};
            planes.insert(planes.end(), 2, planes[0]);
        } else
            planes.insert(planes.end(), 2, {(w + 1) / 2, geometry.pitchUV, (h + 1) / 2});
        planar.emplace(geometry, w, atStart);
    }

    void Call(const TransParam &param) {
        std::srand(11);
        planar ? planar->Draw(function.yuv, param) : packed->Draw(function.rgb, param);
    }

    /// All of an image, and the output with these bytes.
    Bytes Copy(int image) const {
        Bytes bytes;
        for (int p = 0; p < int(planes.size()); ++p) {
            const auto plane = Plane(image, p);
            bytes.insert(bytes.end(), plane.begin(), plane.end());
        }
        return bytes;
    }
    void Restore(const Bytes &bytes) const {
        auto from = bytes.begin();
        for (int p = 0; p < int(planes.size()); ++p)
            for (std::uint8_t &byte : Plane(0, p))
                byte = *from++;
    }

    /// Whether two images are the same, in the picture or in the padding beside it.
    enum Part { Picture, Padding };
    bool AreSame(Part part, const Bytes &one, const Bytes &other) const {
        auto a = one.begin(), b = other.begin();
        for (const auto &[visible, pitch, rows] : planes)
            for (int y = 0; y < rows; ++y, a += pitch, b += pitch)
                if (part == Picture ? !std::equal(a, a + visible, b)
                                    : !std::equal(a + visible, a + pitch, b + visible))
                    return false;
        return true;
    }

private:
    std::span<std::uint8_t> Plane(int image, int plane) const {
        return planar ? planar->Plane(image, plane) : packed->Pixels(image);
    }

    struct Layout {
        int visible, pitch; ///< bytes
        int rows;
    };
    const Function &function;
    std::optional<PlanarCall> planar;
    std::optional<PackedCall> packed;
    std::vector<Layout> planes;
};

/// Sizes 1..40 x 1..40 and some real ones, odd ones among them.
std::vector<Size> Sizes() {
    std::vector<Size> sizes;
    for (int width = 1; width <= 40; ++width)
        for (int height = 1; height <= 40; ++height)
            sizes.push_back({width, height});
    for (const Size size : {Size{427, 241}, {320, 180}, {101, 71}, {64, 360}, {853, 3}, {3, 853}})
        sizes.push_back(size);
    return sizes;
}

constexpr double kTotal = 25; // the eased curves reach their ends exactly

class Sweep : public testing::TestWithParam<Function> {};

TEST_P(Sweep, KeepsTheLaws) {
    const Function &function = GetParam();
    Laws laws(function.name);
    int turn = 0;
    for (const Size size : Sizes()) {
        const int padding = std::array{0, 1, 13}[turn % 3];
        Frames frames(function, size, padding, turn++ % 2 == 1);
        const Bytes in1 = frames.Copy(1), in2 = frames.Copy(2), before = frames.Copy(0);
        for (const double fraction : {0.0, 0.13, 0.38, 0.5, 0.71, 0.9995, 1.0}) {
            SCOPED_TRACE(testing::Message()
                         << function.name << " " << size.width << "x" << size.height << " padding "
                         << padding << " at " << fraction);
            const auto draw = [&] {
                frames.Restore(before);
                frames.Call(MakeParam(kTotal, kTotal * fraction));
                return frames.Copy(0);
            };
            const Bytes out = draw();
            if (fraction == 0)
                laws.Check(StartIsIn1, size, frames.AreSame(Frames::Picture, out, in1),
                           "the start is not the first input");
            if (fraction == 1)
                laws.Check(EndIsIn2, size, frames.AreSame(Frames::Picture, out, in2),
                           "the end is not the second input");
            laws.Check(PaddingStays, size, frames.AreSame(Frames::Padding, out, before),
                       "padding was written");
            EXPECT_TRUE(draw() == out) << "the second call drew another picture";
            EXPECT_TRUE(frames.Copy(1) == in1 && frames.Copy(2) == in2) << "an input changed";
            if (HasFailure())
                return;
        }
    }
    laws.CheckThatExceptionsOccur();
}

TEST_P(Sweep, StaysInsideAtAnyPosition) {
    const Function &function = GetParam();
    constexpr double inf = std::numeric_limits<double>::infinity();
    const double nan = std::nan("");
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
            Frames frames(function, size, turn % 2 * 7, turn / 2 % 2 == 1);
            ++turn;
            SCOPED_TRACE(testing::Message() << function.name << " " << size.width << "x"
                                            << size.height << " at " << current << " of " << total);
            const Bytes in1 = frames.Copy(1), in2 = frames.Copy(2);
            frames.Call(MakeParam(total, current));
            EXPECT_TRUE(frames.Copy(1) == in1 && frames.Copy(2) == in2) << "an input changed";
            if (HasFailure())
                return;
        }
}

INSTANTIATE_TEST_SUITE_P(Every, Sweep, testing::ValuesIn(Functions()),
                         [](const auto &info) { return info.param.name; });

/// Lengths of zero are unsupported, but some pictures at them are promised.
TEST(ZeroLength, DrawsWhatIsPromised) {
    enum Shown { Black, In1, In2 };
    constexpr struct {
        const char *function;
        double current;
        Shown shown;
    } cases[] = {
        {"TrErase", 0, In2},        {"TrEraseSlideRGB", 0, In1}, {"TrTurn", 0, Black},
        {"TrTurnRGB", 0, Black},    {"TrDoorWay", 0, Black},     {"TrDoorWay", 3, Black},
        {"TrDoorWayRGB", 0, Black}, {"TrDoorWayRGB", 3, Black},  {"TrNTriangle", 0, In1},
        {"TrTriangle3", 3, In2},    {"TrTriangle3RGB", 3, In2},
    };
    const std::vector<Function> functions = Functions();
    for (const auto &[name, current, shown] : cases)
        for (const Size size : {Size{64, 48}, {127, 91}}) {
            SCOPED_TRACE(testing::Message() << name << " " << size.width);
            const auto function = std::ranges::find(functions, name, &Function::name);
            ASSERT_NE(function, functions.end());
            Frames frames(*function, size, 0, false);
            frames.Call(MakeParam(0, current));
            Bytes expected = frames.Copy(shown);
            if (shown == Black) {
                std::ranges::fill(expected, function->rgb ? 0 : 128);
                if (function->yuv)
                    std::fill_n(expected.begin(), size.width * size.height, 16);
            }
            EXPECT_TRUE(frames.Copy(0) == expected);
        }
}

} // namespace
