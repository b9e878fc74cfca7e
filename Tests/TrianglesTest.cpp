// Triangles and rings: the spans of every row against the rule of a single pixel, over whole frames
// of many sizes, in both layouts; the point-in-shape tests; what is stored between calls.

#include "Pixels.h"
#include "Progress.h"
#include "Support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <vector>

namespace {

using namespace tp;

/// Whether a pixel shows the second input. Without a rule the frame is left alone.
using Rule = std::function<bool(int x, int y)>;

struct Picture {
    Rule second;
    int whole = 0; ///< the input that is copied with padding and all, or 0
};

Picture FourTriangles(int w, int h, double total, double current, bool) {
    const int half = (w + 1) / 2, even = (w + 1) & ~1;
    const double k = 2.0 * h / w;
    const int q = Convert(w * current / total * 0.5 + 0.5);
    return {[=](int x, int y) {
        const bool g1 = x >= half - q || y < h - Convert((half - x - q) * k + 0.5);
        const bool g2 = x < half || x >= even - q || y < h - Convert((w - x - q) * k + 0.5);
        const bool g3 = x < q || x > half || Convert((x - q) * k + 0.5) <= y;
        const bool g4 = x >= half + q && y < Convert((x - half - q) * k + 0.5);
        return g1 && g2 && g3 && !g4;
    }};
}

Picture SawTooth(int w, int h, double total, double current, bool) {
    const int n = Convert(w * 0.1) + (Convert(w * 0.1) & 1);
    if (!n)
        return {};
    return {
        [=](int x, int y) { return !PtInTriangleCell(x, y, n, (total - current) / total, 0, h); }};
}

Rule InStar(int w, int h, double gap, double total, bool inside) {
    const int a = Convert(w * gap / total * 0.5 + 0.5), b = Convert(h * gap / total * 0.5 + 0.5);
    return [=](int x, int y) { return PtInRegion(x, y, a, b, (w + 1) / 2, (h + 1) / 2) == inside; };
}

Picture Retreat(int w, int h, double total, double current, bool) {
    const double eased = EaseProgress(total, current);
    return {InStar(w, h, eased, total, false), eased / total < 0.001 ? 1 : 0};
}

/// Reads the bounce from where the transition left it; its values have a test of their own.
Picture Advance(int w, int h, double total, double, bool packed) {
    const double bounce = gAdjustParam.dCurrent;
    return {InStar(w, h, total - bounce, total, true), packed && bounce / total < 0.001 ? 1
                                                       : bounce / total > 0.999         ? 2
                                                                                        : 0};
}

Picture Rings(int w, int h, double total, double current, bool) {
    const int cx = (w + 1) / 2, cy = (h + 1) / 2;
    const double p = current / total;
    const int corner = Convert(std::sqrt(double(cx * cx + cy * cy)) + 0.5);
    const int radius = Convert(2 * corner * (p < 0.5 ? p : 1 - p) + 0.5);
    return {[=](int x, int y) {
        const int d = std::max((x - cx) * (x - cx) + (y - cy) * (y - cy), 1);
        int k = 1;
        while (d > (k * k + k + 2) / 2 * ((k * k + k + 2) / 2))
            ++k;
        return p < 0.5 ? k % 2 && d <= radius * radius : k % 2 || d > radius * radius;
    }};
}

struct Case {
    const char *name;
    TransFuncYUV yuv;
    TransFuncRGB rgb;
    Picture (*picture)(int w, int h, double total, double current, bool packed);
};

constexpr Case kCases[] = {
    {"Tr4Triangle", Tr4Triangle, Tr4TriangleRGB, FourTriangles},
    {"TrNTriangle", TrNTriangle, TrNTriangleRGB, SawTooth},
    {"TrTriangle2", TrTriangle2, TrTriangle2RGB, Retreat},
    {"TrTriangle3", TrTriangle3, TrTriangle3RGB, Advance},
    {"TrCirque", TrCirque, TrCirqueRGB, Rings},
};

using Bytes = std::vector<std::uint8_t>;

Bytes Copied(std::span<const std::uint8_t> bytes) {
    return {bytes.begin(), bytes.end()};
}

void CheckPlanar(const Case &c, int w, int h, double total, double current) {
    const int pitches[] = {w + h % 3, (w + h % 3 + 1) / 2 + w % 2};
    PlanarCall call({w, h, pitches[0], pitches[1]}, std::uint64_t(w * 100 + h));
    Bytes expected[3];
    for (int plane = 0; plane < 3; ++plane)
        expected[plane] = Copied(call.Plane(0, plane));
    call.Draw(c.yuv, MakeParam(total, current));
    const Picture picture = c.picture(w, h, total, current, false);
    for (int plane = 0; plane < 3; ++plane) {
        const int step = plane ? 2 : 1;
        for (int y = 0; y < h && picture.second; y += step)
            for (int x = 0; x < w; x += step) {
                const auto i = std::size_t(x / step + y / step * pitches[plane != 0]);
                expected[plane][i] = call.Plane(picture.second(x, y) ? 2 : 1, plane)[i];
            }
        if (picture.whole)
            expected[plane] = Copied(call.Plane(picture.whole, plane));
        ASSERT_EQ(Copied(call.Plane(0, plane)), expected[plane]) << "plane " << plane;
    }
}

void CheckPacked(const Case &c, int w, int h, double total, double current) {
    PackedCall call(w, h, std::uint64_t(w * 100 + h));
    Bytes expected = Copied(call.Pixels(0));
    call.Draw(c.rgb, MakeParam(total, current));
    const Picture picture = c.picture(w, h, total, current, true);
    for (int y = 0; y < h && picture.second; ++y)
        for (int x = 0; x < w; ++x) // columns overlap as byte offsets
            for (int byte = 0; byte < 4; ++byte) {
                const auto i = std::size_t(y * w * 4 + x + byte);
                expected[i] = call.Pixels(byte < 3 && picture.second(x, y) ? 2 : 1)[i];
            }
    if (picture.whole)
        expected = Copied(call.Pixels(picture.whole));
    ASSERT_EQ(Copied(call.Pixels(0)), expected);
}

TEST(Triangles, SpansFollowTheRuleOfEveryPixel) {
    const int widths[] = {1, 2, 3, 4, 5, 8, 9, 10, 11, 15, 20, 29, 33, 50, 64, 97, 127};
    const int heights[] = {1, 2, 3, 4, 6, 7, 10, 13, 21, 32, 45, 71};
    for (const Case &c : kCases)
        for (const int w : widths)
            for (const int h : heights)
                for (const double position : {0.0, 0.07, 0.144, 0.399, 0.5, 0.77, 0.93, 1.0}) {
                    SCOPED_TRACE(std::string(c.name) + " " + std::to_string(w) + " x " +
                                 std::to_string(h) + " at " + std::to_string(position));
                    CheckPlanar(c, w, h, 40, 40 * position);
                    CheckPacked(c, w, h, 40, 40 * position);
                    if (HasFatalFailure())
                        return;
                }
}

/// Lengths and positions at which gaps and shifts are no longer sensible numbers, or wrap around.
TEST(Triangles, AbsurdPositionsFollowTheRuleToo) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    for (const Case &c : kCases)
        for (const double total : {0.0, 1.0})
            for (const double current :
                 {0.0, 0.5, 5.0, -5.0, 3e7, -3e7, 1e9, -1e9, 1e11, -1e300, infinity, std::nan("")})
                for (const int size : {10, 37}) {
                    if (std::string(c.name) == "TrNTriangle" || std::string(c.name) == "TrCirque")
                        continue; // their own limits
                    SCOPED_TRACE(std::string(c.name) + " at " + std::to_string(current) + " of " +
                                 std::to_string(total));
                    CheckPlanar(c, size, size - 3, total, current);
                    CheckPacked(c, size, size - 3, total, current);
                    if (HasFatalFailure())
                        return;
                }
}

TEST(Triangles, PointsInShapes) {
    // The first row of a column that is outside the hanging triangle, and inside the standing one.
    const auto edges = [](int x, double d, int top, int bottom) {
        EXPECT_TRUE(PtInTriangleTop(x, top - 1, 10, d, 0, 100)) << x;
        EXPECT_FALSE(PtInTriangleTop(x, top, 10, d, 0, 100)) << x;
        EXPECT_FALSE(PtInTriangleBottom(x, bottom - 1, 10, d, 0, 100)) << x;
        EXPECT_TRUE(PtInTriangleBottom(x, bottom, 10, d, 0, 100)) << x;
    };
    edges(0, 1, 0, 0);
    edges(9, 1, 90, 90);
    edges(3, 0.5, 15, 65);
    edges(-1, 1, -9, -9); // a negative column has a negative remainder
    EXPECT_FALSE(PtInTriangleCell(3, 15, 10, 0.5, 0, 100));
    EXPECT_FALSE(PtInTriangleCell(3, 64, 10, 0.5, 0, 100));

    // Around a centre at (50, 50): side triangles exclude their edges, the others include them.
    const struct {
        int x, y, a, b;
        bool inside;
    } points[] = {
        {25, 50, 0, 0, true},    {50, 50, 0, 0, true},    {0, 0, 10, 10, true},
        {10, 50, 25, 25, true},  {40, 40, 25, 25, false}, {10, 79, 25, 50, true},
        {10, 80, 25, 50, false}, {90, 21, 25, 50, true},  {90, 20, 25, 50, false},
        {20, 10, 50, 25, true},  {19, 10, 50, 25, false}, {80, 90, 50, 25, true},
        {81, 90, 50, 25, false},
    };
    for (const auto &[x, y, a, b, inside] : points)
        EXPECT_EQ(PtInRegion(x, y, a, b, 50, 50), inside) << x << ", " << y;
}

TEST(Triangles, BounceInArcs) {
    const double bounces[][3] = {
        {1, 0.2, 0.25},       {1, 0.4, 1},       {1, 0.5, 0.90625}, {1, 0.6, 0.875},
        {1, 0.8, 1},          {1, 0.9, 0.96875}, {1, 0.995, 0.995}, {100, 99.98, 99.9875125},
        {100, 99.995, 99.995}};
    for (const auto &[total, current, bounce] : bounces) {
        const TransParam param = MakeParam(total, current);
        TrTriangle3RGB(nullptr, nullptr, nullptr, &param);
        EXPECT_NEAR(gAdjustParam.dCurrent, bounce, 1e-12 * total) << current;
    }
}

} // namespace
