// Laws that hold for every exported transition function at every size, with the exceptions in one
// table: nothing outside the frames, inputs and parameters unchanged, repeatable, whole end
// pictures, padding left alone, and no position that leaves the frames.

#include "Support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
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

bool SameBytes(const void *a, const void *b, std::size_t size) {
    return std::memcmp(a, b, size) == 0;
}

/// Room for one plane of each image that is laid out anew for every size, against the inaccessible
/// page before it or behind it.
class Room {
public:
    explicit Room(std::size_t most) : atEnd(most), atStart(most, true) {}
    std::span<std::uint8_t> Take(std::size_t size, bool start) {
        return start ? atStart.Bytes().first(size) : atEnd.Bytes().last(size);
    }

private:
    GuardedBuffer atEnd;
    GuardedBuffer atStart;
};

/// The three frames of a call in either layout, in rooms that are used again for every size.
class Frames {
public:
    static constexpr std::size_t kMost = 1 << 20;

    Frames() {
        for (int i = 0; i < 9; ++i)
            rooms.push_back(std::make_unique<Room>(kMost));
    }

    void Lay(const Function &function, Size frameSize, int padding, bool atStart) {
        size = frameSize;
        const bool packed = function.rgb != nullptr;
        pitch = packed ? size.width * 4 : size.width + padding;
        chromaWidth = (size.width + 1) / 2;
        pitchUV = chromaWidth + padding / 4; // below half of the luma's
        chromaHeight = (size.height + 1) / 2;
        if (function.fullChroma) {
            pitchUV = pitch;
            chromaWidth = size.width;
            chromaHeight = size.height;
        }
        planeCount = packed ? 1 : 3;
        for (int image = 0; image < 3; ++image)
            for (int p = 0; p < planeCount; ++p) {
                const auto bytes =
                    std::size_t(p ? pitchUV : pitch) * std::size_t(p ? chromaHeight : size.height);
                planes[image][p] = rooms[image * 3 + p]->Take(bytes, atStart);
                FillRandom(planes[image][p], std::uint64_t(image) * 77 + p + size.width);
            }
    }

    void Call(const Function &function, const TransParam &param) {
        std::srand(11);
        const TransParam before = param;
        if (function.yuv) {
            YUVImage records[3];
            for (int i = 0; i < 3; ++i)
                records[i] = {nullptr,
                              planes[i][0].data(),
                              planes[i][1].data(),
                              planes[i][2].data(),
                              nullptr,
                              size.width,
                              size.height,
                              pitch,
                              pitchUV,
                              pitchUV};
            YUVImage kept[3];
            std::memcpy(kept, records, sizeof kept);
            function.yuv(&records[0], &records[1], &records[2], &param);
            EXPECT_TRUE(SameBytes(kept, records, sizeof kept)) << "a record changed";
        } else {
            void *handles[3];
            for (int i = 0; i < 3; ++i)
                handles[i] = DIWrap(planes[i][0].data(), size.width, size.height);
            function.rgb(handles[0], handles[1], handles[2], &param);
            for (void *handle : handles)
                DIDestroy(handle);
        }
        EXPECT_TRUE(SameBytes(&before, &param, sizeof param)) << "the parameters changed";
    }

    std::vector<std::uint8_t> Bytes(int image) const {
        std::vector<std::uint8_t> bytes;
        for (int p = 0; p < planeCount; ++p)
            bytes.insert(bytes.end(), planes[image][p].begin(), planes[image][p].end());
        return bytes;
    }

    void Restore(int image, const std::vector<std::uint8_t> &bytes) {
        const std::uint8_t *from = bytes.data();
        for (int p = 0; p < planeCount; ++p) {
            std::copy_n(from, planes[image][p].size(), planes[image][p].begin());
            from += planes[image][p].size();
        }
    }

    /// Whether the visible part of the output equals an input's.
    bool Shows(int input) const {
        for (int p = 0; p < planeCount; ++p)
            for (int y = 0; y < Rows(p); ++y)
                if (std::memcmp(Row(0, p, y), Row(input, p, y), VisibleBytes(p)) != 0)
                    return false;
        return true;
    }

    /// Whether the output's padding is as it was.
    bool PaddingIs(const std::vector<std::uint8_t> &before) const {
        std::size_t offset = 0;
        for (int p = 0; p < planeCount; ++p)
            for (int y = 0; y < Rows(p); ++y, offset += Pitch(p))
                if (std::memcmp(Row(0, p, y) + VisibleBytes(p),
                                before.data() + offset + VisibleBytes(p),
                                Pitch(p) - VisibleBytes(p)) != 0)
                    return false;
        return true;
    }

private:
    int Rows(int p) const { return p ? chromaHeight : size.height; }
    std::size_t Pitch(int p) const { return p ? pitchUV : pitch; }
    std::size_t VisibleBytes(int p) const {
        return planeCount == 1 ? std::size_t(size.width) * 4 : p ? chromaWidth : size.width;
    }
    const std::uint8_t *Row(int image, int p, int y) const {
        return planes[image][p].data() + std::size_t(y) * Pitch(p);
    }

    std::vector<std::unique_ptr<Room>> rooms;
    std::span<std::uint8_t> planes[3][3];
    Size size{};
    int pitch = 0, pitchUV = 0, chromaWidth = 0, chromaHeight = 0, planeCount = 0;
};

Frames &SharedFrames() {
    static Frames frames;
    return frames;
}

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
    Frames &frames = SharedFrames();
    Laws laws(function.name);
    int turn = 0;
    for (const Size size : Sizes())
        for (const double fraction : {0.0, 0.13, 0.38, 0.5, 0.71, 0.9995, 1.0}) {
            const int padding = std::array{0, 1, 13}[turn % 3];
            frames.Lay(function, size, padding, turn++ % 2 == 1);
            SCOPED_TRACE(testing::Message()
                         << function.name << " " << size.width << "x" << size.height << " padding "
                         << padding << " at " << fraction);
            const auto in1 = frames.Bytes(1), in2 = frames.Bytes(2), before = frames.Bytes(0);
            const TransParam param = MakeParam(kTotal, kTotal * fraction);
            frames.Call(function, param);
            const auto first = frames.Bytes(0);
            if (fraction == 0)
                laws.Check(StartIsIn1, size, frames.Shows(1), "the start is not the first input");
            if (fraction == 1)
                laws.Check(EndIsIn2, size, frames.Shows(2), "the end is not the second input");
            laws.Check(PaddingStays, size, frames.PaddingIs(before), "padding was written");
            frames.Restore(0, before);
            frames.Call(function, param);
            EXPECT_TRUE(frames.Bytes(0) == first) << "the second call drew another picture";
            EXPECT_TRUE(frames.Bytes(1) == in1 && frames.Bytes(2) == in2) << "an input changed";
            if (HasFailure())
                return;
        }
    laws.CheckThatExceptionsOccur();
}

TEST_P(Sweep, StaysInsideAtAnyPosition) {
    const Function &function = GetParam();
    Frames &frames = SharedFrames();
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const double nan = std::nan("");
    const std::pair<double, double> positions[] = {{25, -0.3},
                                                   {25, -12},
                                                   {25, -1e9},
                                                   {25, -1e300},
                                                   {25, 25.4},
                                                   {25, 37},
                                                   {25, 1e9},
                                                   {25, 1e300},
                                                   {25, nan},
                                                   {25, infinity},
                                                   {25, -infinity},
                                                   {0, 0},
                                                   {0, 1},
                                                   {0, -1},
                                                   {-25, 10},
                                                   {-25, -10},
                                                   {nan, 1},
                                                   {infinity, 1},
                                                   {infinity, infinity},
                                                   {-infinity, 1},
                                                   {1e-300, 1e-301},
                                                   {1e300, 1e299},
                                                   {5e-324, 0},
                                                   {25, 25.0000001},
                                                   {25, 24.9999999}};
    int turn = 0;
    for (const Size size : {Size{1, 1},
                            {2, 2},
                            {3, 5},
                            {9, 7},
                            {16, 16},
                            {20, 10},
                            {33, 32},
                            {40, 39},
                            {101, 71},
                            {160, 90},
                            {321, 64}})
        for (const auto &[total, current] : positions) {
            frames.Lay(function, size, turn % 2 * 7, turn / 2 % 2 == 1);
            ++turn;
            SCOPED_TRACE(testing::Message() << function.name << " " << size.width << "x"
                                            << size.height << " at " << current << " of " << total);
            const auto in1 = frames.Bytes(1), in2 = frames.Bytes(2);
            frames.Call(function, MakeParam(total, current));
            EXPECT_TRUE(frames.Bytes(1) == in1 && frames.Bytes(2) == in2) << "an input changed";
            if (HasFailure())
                return;
        }
}

INSTANTIATE_TEST_SUITE_P(Every, Sweep, testing::ValuesIn(Functions()),
                         [](const auto &info) { return info.param.name; });

/// Lengths of zero are unsupported, but some pictures at them are promised.
TEST(ZeroLength, DrawsWhatIsPromised) {
    enum class Picture { In1, In2, Black };
    constexpr struct {
        const char *function;
        double current;
        Picture picture;
    } cases[] = {
        {"TrErase", 0, Picture::In2},        {"TrEraseSlideRGB", 0, Picture::In1},
        {"TrTurn", 0, Picture::Black},       {"TrTurnRGB", 0, Picture::Black},
        {"TrDoorWay", 0, Picture::Black},    {"TrDoorWay", 3, Picture::Black},
        {"TrDoorWayRGB", 0, Picture::Black}, {"TrDoorWayRGB", 3, Picture::Black},
        {"TrNTriangle", 0, Picture::In1},    {"TrTriangle3", 3, Picture::In2},
        {"TrTriangle3RGB", 3, Picture::In2},
    };
    Frames &frames = SharedFrames();
    const auto functions = Functions();
    for (const auto &c : cases)
        for (const Size size : {Size{64, 48}, {127, 91}}) {
            SCOPED_TRACE(testing::Message() << c.function << " " << size.width);
            const auto function =
                std::find_if(functions.begin(), functions.end(),
                             [&](const Function &f) { return f.name == c.function; });
            ASSERT_NE(function, functions.end());
            frames.Lay(*function, size, 0, false);
            frames.Call(*function, MakeParam(0, c.current));
            if (c.picture != Picture::Black) {
                EXPECT_TRUE(frames.Shows(c.picture == Picture::In1 ? 1 : 2));
                continue;
            }
            const auto out = frames.Bytes(0);
            const std::size_t luma =
                function->rgb ? out.size() : std::size_t(size.width) * size.height;
            const auto black = std::uint8_t(function->rgb ? 0 : 16);
            EXPECT_TRUE(std::all_of(out.begin(), out.begin() + luma,
                                    [&](std::uint8_t b) { return b == black; }));
            EXPECT_TRUE(std::all_of(out.begin() + luma, out.end(),
                                    [](std::uint8_t b) { return b == 128; }));
        }
}

} // namespace
