// What every host builds on: how positions run, how frames lie, what one drawn frame is, and which
// libraries are taken for plug-ins. Expected values are worked out here or by other means.

#include "Draw.h"
#include "Support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <numeric>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using hostkit::Chroma;
using hostkit::Frame;
using hostkit::Moment;
using hostkit::Motion;
using hostkit::Path;
using hostkit::Transition;

// ---------------------------------------------------------------------------------------------
// Time
// ---------------------------------------------------------------------------------------------

// Quarters by hand: powers of 1/4, 1/2 and 3/4; the parabola 7.5625 (u - c)^2 + h of each bounce;
// 2^-2.5, 2^-5 and 2^-7.5 times the sine of 210, 510 and 810 degrees.
TEST(Easing, RunsThroughItsQuarterPoints) {
    const double root = std::sqrt(2.0), overshoot = 1.70158;
    const struct {
        const char *name;
        double at[3]; ///< at 1/4, 1/2 and 3/4
        bool rises;   ///< never goes back
        bool stays;   ///< never leaves 0..1
    } kCurves[] = {
        {"linear", {0.25, 0.5, 0.75}, true, true},
        {"smooth", {0.15625, 0.5, 0.84375}, true, true},
        {"in", {0.0625, 0.25, 0.5625}, true, true},
        {"out", {0.4375, 0.75, 0.9375}, true, true},
        {"in-out", {0.125, 0.5, 0.875}, true, true},
        {"in-cubic", {1 / 64.0, 0.125, 27 / 64.0}, true, true},
        {"out-cubic", {37 / 64.0, 0.875, 63 / 64.0}, true, true},
        {"in-out-cubic", {0.0625, 0.5, 0.9375}, true, true},
        {"back",
         {1 - 27 / 64.0 * (overshoot + 1) + 9 / 16.0 * overshoot, 1 - 0.125 + 0.125 * overshoot,
          1 - (overshoot + 1) / 64 + overshoot / 16},
         false,
         false},
        {"elastic", {1 - root / 16, 1 + 1 / 64.0, 1 + root / 256}, false, false},
        {"bounce",
         {7.5625 / 16, 7.5625 * std::pow(0.5 - 6 / 11.0, 2) + 0.75,
          7.5625 * std::pow(0.75 - 9 / 11.0, 2) + 0.9375},
         false,
         true},
    };
    EXPECT_STREQ(hostkit::Easings().front().name, "linear");
    EXPECT_EQ(hostkit::FindEasing("wobbly"), nullptr);
    std::set<std::string> untested;
    for (const hostkit::Easing &easing : hostkit::Easings())
        untested.insert(easing.name);
    for (const auto &[name, at, rises, stays] : kCurves) {
        SCOPED_TRACE(name);
        const hostkit::Easing *easing = hostkit::FindEasing(name);
        ASSERT_TRUE(easing);
        ASSERT_STREQ(easing->name, name);
        untested.erase(name);
        EXPECT_NEAR(easing->curve(0), 0, 1e-15);
        EXPECT_EQ(easing->curve(1), 1);
        for (int quarter = 1; quarter <= 3; ++quarter)
            EXPECT_NEAR(easing->curve(quarter / 4.0), at[quarter - 1], 1e-12) << quarter;
        double last = 0, highest = 0, steepest = 0;
        bool rose = true;
        for (int i = 1; i <= 4096; ++i) {
            const double value = easing->curve(i / 4096.0);
            ASSERT_TRUE(std::isfinite(value)) << i;
            rose &= value >= last;
            highest = std::max(highest, value);
            steepest = std::max(steepest, std::abs(value - last));
            last = value;
        }
        EXPECT_EQ(rose, rises);
        EXPECT_EQ(highest <= 1, stays);
        EXPECT_LT(steepest, 0.005) << "a jump";
    }
    EXPECT_TRUE(untested.empty()) << *untested.begin() << " has no row here";
}

TEST(Clock, RunsFromTheFirstFrameToTheLast) {
    for (const std::int64_t count : {2, 3, 5, 7, 49, 1000}) {
        EXPECT_EQ(hostkit::MomentOf(0, count).position, 0);
        EXPECT_EQ(hostkit::MomentOf(count - 1, count).position, 1);
        for (std::int64_t frame = 0; frame < count; ++frame) {
            EXPECT_EQ(hostkit::MomentOf(frame, count).frame, frame);
            EXPECT_NEAR(hostkit::MomentOf(frame, count).position * double(count - 1), double(frame),
                        1e-9);
        }
    }
    EXPECT_EQ(hostkit::MomentOf(0, 1).position, 0.5);
    // The same part of the way is the same moment at any length.
    EXPECT_EQ(hostkit::MomentOf(1, 3).position, hostkit::MomentOf(12, 25).position);
}

TEST(Clock, PositionsStayWithinTheTransition) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const hostkit::Easing wild = {"", "", [](double u) { return u < 0.5 ? -3.0 : 4.0; }};
    const hostkit::Easing square = {"", "", [](double u) { return u * u; }};
    const struct {
        const hostkit::Easing *easing;
        double at, forwards;
    } kCases[] = {
        {nullptr, 0.25, 0.25},
        {nullptr, -1, 0},
        {nullptr, 1.5, 1},
        {nullptr, infinity, 1},
        {nullptr, std::nan(""), 0},
        {nullptr, -infinity, 0},
        {&square, 0.5, 0.25},
        {&wild, 0.3, 0},
        {&wild, 0.6, 1},
        {&wild, 0, 0},
        {&wild, 1, 1},
        {&wild, 2, 1},
    };
    for (const auto &[easing, at, forwards] : kCases) {
        EXPECT_EQ(hostkit::PluginPosition({easing, false, 0}, {at, 0}), forwards) << at;
        EXPECT_EQ(hostkit::PluginPosition({easing, true, 0}, {at, 0}), 1 - forwards)
            << at << " reversed";
    }
    for (const hostkit::Easing &easing : hostkit::Easings())
        for (const double end : {0.0, 1.0})
            EXPECT_EQ(hostkit::PluginPosition({&easing, false, 0}, {end, 0}), end) << easing.name;
}

// FillRandom draws the top bytes of the same generator, one after the other.
TEST(Seed, IsTheGeneratorsForEachFrameOfAUsersSeed) {
    for (const std::uint64_t user : {0ull, 1ull, 7ull, ~0ull}) {
        std::array<std::uint8_t, 300> tops;
        FillRandom(tops, user);
        std::set<unsigned> seeds;
        unsigned ones = 0, zeros = 0;
        for (std::size_t frame = 0; frame < tops.size(); ++frame) {
            const unsigned seed =
                hostkit::RandomSeed({nullptr, false, user}, {0.5, std::int64_t(frame)});
            EXPECT_EQ(seed >> 24, tops[frame]) << frame;
            EXPECT_EQ(seed, hostkit::RandomSeed({nullptr, true, user}, {0.9, std::int64_t(frame)}));
            seeds.insert(seed);
            ones |= seed;
            zeros |= ~seed;
        }
        EXPECT_EQ(seeds.size(), tops.size()) << "two frames draw the same numbers";
        EXPECT_EQ(ones & zeros, ~0u) << "a bit of the seed never changes";
    }
}

// ---------------------------------------------------------------------------------------------
// Frames
// ---------------------------------------------------------------------------------------------

/// A view of a picture in a buffer with padding, from the top down or from the bottom up, with
/// everything around the picture at 77.
struct Padded {
    Padded(Path path, int width, int height, int padding, bool upsideDown = false) {
        std::uint8_t *rows[3] = {};
        int pitches[3] = {};
        for (int plane = 0; plane < (path == Path::Yuv ? 3 : 1); ++plane) {
            const int h = plane ? (height + 1) / 2 : height;
            const int w = path == Path::Rgb ? width * 4 : plane ? (width + 1) / 2 : width;
            bytes[plane].assign(std::size_t(w + padding) * (h + 2), 77);
            pitches[plane] = w + padding;
            rows[plane] = &bytes[plane][pitches[plane]];
            if (upsideDown) {
                rows[plane] += pitches[plane] * (h - 1);
                pitches[plane] = -pitches[plane];
            }
        }
        frame = Frame(path, width, height, rows, pitches);
    }
    std::ptrdiff_t Outside() const {
        std::ptrdiff_t count = 0;
        for (const auto &plane : bytes)
            count += std::count(plane.begin(), plane.end(), 77);
        return count;
    }
    std::vector<std::uint8_t> bytes[3];
    Frame frame;
};

/// Every sample different from its neighbours, none 77, alpha included.
void Fill(Frame &frame, int salt) {
    for (int plane = 0; plane < frame.Planes(); ++plane)
        for (int y = 0; y < frame.Rows(plane); ++y)
            for (int x = 0; x < frame.RowBytes(plane); ++x) {
                const int value = (x * 7 + y * 31 + plane * 50 + salt) % 255;
                frame.Row(plane, y)[x] = std::uint8_t(value == 77 ? 255 : value);
            }
}

bool IsSame(const Frame &a, const Frame &b) {
    bool same = a.Layout() == b.Layout() && a.Width() == b.Width() && a.Height() == b.Height();
    for (int plane = 0; same && plane < a.Planes(); ++plane)
        for (int y = 0; y < a.Rows(plane); ++y)
            same &=
                std::equal(a.Row(plane, y), a.Row(plane, y) + a.RowBytes(plane), b.Row(plane, y));
    return same;
}

TEST(Frame, LiesAsThePluginTakesIt) {
    Frame planar(Path::Yuv, 7, 5);
    std::iota(planar.Bytes().begin(), planar.Bytes().end(), 0);
    ASSERT_EQ(planar.Bytes().size(), 7u * 5 + 2 * 4 * 3);
    EXPECT_EQ(*planar.Row(0, 1), 7);
    EXPECT_EQ(*planar.Row(1, 0), 35);
    EXPECT_EQ(*planar.Row(2, 2), 35 + 12 + 8);
    const YUVImage &image = *planar.Image();
    EXPECT_TRUE(image.pY == planar.Row(0, 0) && image.pU == planar.Row(1, 0) &&
                image.pV == planar.Row(2, 0));
    EXPECT_EQ(
        (std::array{image.nWidth, image.nHeight, image.nPitchY, image.nPitchUV, image.nPitchV}),
        (std::array{7, 5, 7, 4, 4}));
    EXPECT_TRUE(planar.IsPlugins(Chroma::Half));
    EXPECT_FALSE(planar.IsPlugins(Chroma::Full));

    const Frame full(Path::Yuv, 7, 5, Chroma::Full);
    EXPECT_EQ(full.Bytes().size(), 3u * 7 * 5);
    EXPECT_TRUE(full.IsPlugins(Chroma::Full));
    EXPECT_FALSE(full.IsPlugins(Chroma::Half));

    Frame packed(Path::Rgb, 3, 4);
    std::iota(packed.Bytes().begin(), packed.Bytes().end(), 0);
    ASSERT_EQ(packed.Bytes().size(), 48u);
    EXPECT_EQ(*packed.Row(0, 0), 36) << "the top row is the last in memory";
    EXPECT_EQ(*packed.Row(0, 3), 0);
    EXPECT_EQ(DIGetWidth(packed.Handle()), 3);
    EXPECT_EQ(DIGetHeight(packed.Handle()), 4);
    EXPECT_EQ(DIGetBits(packed.Handle()), packed.Bytes().data());
}

TEST(Frame, ViewsShareTheirOwnersMemory) {
    for (const Path path : {Path::Yuv, Path::Rgb})
        for (const bool upsideDown : {false, true}) {
            Padded padded(path, 5, 3, 6, upsideDown);
            Padded tight(path, 5, 3, 0, upsideDown);
            const std::ptrdiff_t before = padded.Outside();
            EXPECT_TRUE(padded.frame.Bytes().empty());
            EXPECT_FALSE(padded.frame.IsPlugins(Chroma::Half));
            EXPECT_EQ(padded.frame.Handle(), nullptr);
            EXPECT_EQ(tight.frame.IsPlugins(Chroma::Half), upsideDown == (path == Path::Rgb));
            EXPECT_EQ(tight.frame.Handle() != nullptr, path == Path::Rgb && upsideDown);
            Frame own(path, 5, 3);
            Fill(own, 3);
            CopyPicture(own, padded.frame);
            CopyPicture(padded.frame, tight.frame);
            EXPECT_TRUE(IsSame(own, padded.frame) && IsSame(own, tight.frame));
            const std::ptrdiff_t picture = path == Path::Yuv ? 15 + 2 * 6 : 60;
            EXPECT_EQ(padded.Outside(), before - picture) << "padding was written";
        }
    for (int padded = 0; padded < 3; ++padded) {
        std::uint8_t bytes[3][100] = {};
        std::uint8_t *const rows[] = {bytes[0], bytes[1], bytes[2]};
        int pitches[] = {6, 3, 3};
        EXPECT_TRUE(Frame(Path::Yuv, 6, 4, rows, pitches).IsPlugins(Chroma::Half));
        ++pitches[padded];
        EXPECT_FALSE(Frame(Path::Yuv, 6, 4, rows, pitches).IsPlugins(Chroma::Half)) << padded;
    }
    Padded oneRow(Path::Rgb, 5, 2, 0, true);
    EXPECT_EQ(DIGetBits(oneRow.frame.Handle()), oneRow.frame.Row(0, 1));
}

TEST(Frame, ChromaIsEnlargedAndHalved) {
    Frame half(Path::Yuv, 3, 3), full(Path::Yuv, 3, 3, Chroma::Full);
    Fill(half, 9);
    for (int plane = 1; plane <= 2; ++plane) {
        half.Row(plane, 0)[0] = 10, half.Row(plane, 0)[1] = 20;
        half.Row(plane, 1)[0] = 30, half.Row(plane, 1)[1] = std::uint8_t(40 + plane);
    }
    CopyPicture(half, full);
    const std::vector<std::uint8_t> cr(full.Row(2, 0), full.Row(2, 0) + 9);
    EXPECT_EQ(cr, (std::vector<std::uint8_t>{10, 10, 20, 10, 10, 20, 30, 30, 42}));
    EXPECT_EQ(full.Row(1, 2)[2], 41);
    EXPECT_TRUE(std::equal(half.Row(0, 0), half.Row(0, 0) + 9, full.Row(0, 0)));

    // Means of four, rounded: 17.5 up and 17.25 down; at the edges the last samples count twice.
    const std::uint8_t samples[] = {16, 17, 100, 18, 19, 101, 7, 8, 200};
    for (int plane = 1; plane <= 2; ++plane)
        std::copy_n(samples, 9, full.Row(plane, 0));
    Frame halved(Path::Yuv, 3, 3);
    CopyPicture(full, halved);
    for (int plane = 1; plane <= 2; ++plane) {
        const std::uint8_t *top = halved.Row(plane, 0), *bottom = halved.Row(plane, 1);
        EXPECT_EQ((std::array<int, 4>{top[0], top[1], bottom[0], bottom[1]}),
                  (std::array{18, 101, 8, 200}));
    }
    full.Row(1, 1)[1] = 18;
    CopyPicture(full, halved);
    EXPECT_EQ(halved.Row(1, 0)[0], 17);

    for (const auto &[width, height] : {std::pair(1, 1), {1, 4}, {6, 1}, {8, 6}, {9, 7}}) {
        Frame before(Path::Yuv, width, height), after(Path::Yuv, width, height),
            between(Path::Yuv, width, height, Chroma::Full);
        Fill(before, width);
        CopyPicture(before, between);
        CopyPicture(between, after);
        EXPECT_TRUE(IsSame(before, after)) << width << " x " << height;
    }
}

// ---------------------------------------------------------------------------------------------
// One frame drawn
// ---------------------------------------------------------------------------------------------

/// What a stand-in for a plug-in's function saw of its last call, and what it does to the output.
struct Call {
    TransParam param;
    int random;
    std::vector<std::uint8_t> out, in1, in2; ///< the first row in memory of luma or pixels
    std::size_t chroma;                      ///< bytes of one chroma plane, by the pitch
    const void *address;                     ///< of the output's luma or pixels
};
Call seen;
std::function<void(std::uint8_t *out, const std::uint8_t *in1, const std::uint8_t *in2)> drawing;

void See(std::uint8_t *out, const std::uint8_t *in1, const std::uint8_t *in2, int bytes,
         const TransParam &param) {
    seen.param = param;
    seen.random = std::rand();
    seen.address = out;
    seen.out.assign(out, out + bytes);
    seen.in1.assign(in1, in1 + bytes);
    seen.in2.assign(in2, in2 + bytes);
    if (drawing)
        drawing(out, in1, in2);
}

Transition StandIn(Chroma chroma = Chroma::Half) {
    Transition transition = {};
    transition.info = hostkit::InfoFor("Unknown");
    transition.info.chroma = chroma;
    transition.yuv = [](YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                        const TransParam *param) {
        See(out->pY, in1->pY, in2->pY, out->nWidth, *param);
        seen.chroma = std::size_t(out->pV - out->pU);
    };
    transition.rgb = [](void *out, void *in1, void *in2, const TransParam *param) {
        See(DIGetBits(out), DIGetBits(in1), DIGetBits(in2), DIGetWidth(out) * 4, *param);
    };
    drawing = nullptr;
    return transition;
}

TEST(Draw, HandsThePluginOneMoment) {
    const Transition transition = StandIn();
    const hostkit::Easing *in = hostkit::FindEasing("in");
    for (const Path path : {Path::Yuv, Path::Rgb}) {
        Frame out(path, 6, 4), a(path, 6, 4), b(path, 6, 4);
        Fill(out, 1), Fill(a, 2), Fill(b, 3);
        const auto firstRow = [&](const Frame &f) {
            return std::vector(f.Bytes().begin(), f.Bytes().begin() + f.RowBytes(0));
        };
        for (const bool reverse : {false, true}) {
            const Motion motion = {in, reverse, 5};
            Draw(transition, motion, {0.5, 3}, out, a, b);
            EXPECT_EQ(seen.param.dTotal, 1);
            EXPECT_EQ(seen.param.dCurrent, reverse ? 0.75 : 0.25);
            EXPECT_EQ(seen.in1, firstRow(reverse ? b : a));
            EXPECT_EQ(seen.in2, firstRow(reverse ? a : b));
            EXPECT_EQ(seen.out, seen.in2) << "what is left alone shows the incoming picture";
            EXPECT_EQ(seen.address, out.Bytes().data()) << "drawn elsewhere and copied";
            std::srand(RandomSeed(motion, {0.5, 3}));
            EXPECT_EQ(seen.random, std::rand());
            EXPECT_TRUE(IsSame(out, reverse ? a : b));
        }
        EXPECT_TRUE(HasPath(transition, path));
        EXPECT_FALSE(HasPath(Transition{}, path));
    }
}

TEST(Draw, LeavesOthersTheirRandomNumbers) {
    std::srand(9);
    const std::array expected = {std::rand(), std::rand(), std::rand()};
    std::srand(9);
    EXPECT_EQ(std::rand(), expected[0]);
    for (const char *name : {"Wind", "Push"}) {
        Frame out(Path::Rgb, 32, 32), a(Path::Rgb, 32, 32), b(Path::Rgb, 32, 32);
        Fill(a, 1), Fill(b, 2);
        Draw(*TestedPlugin().Find(name), {}, {0.5, 3}, out, a, b);
    }
    EXPECT_EQ(std::rand(), expected[1]);
    EXPECT_EQ(std::rand(), expected[2]);
}

// What eases keeps its position in the one plug-in of the process.
TEST(Draw, AsksForOneFrameAtATimeOfWhatEases) {
    static std::atomic<int> inside, most;
    Transition transition = {};
    transition.yuv = [](YUVImage *, const YUVImage *, const YUVImage *, const TransParam *) {
        const int now = ++inside;
        if (now > most)
            most = now;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        --inside;
    };
    for (const auto &[curve, expected] :
         {std::pair(hostkit::Curve::Eased, 1), {hostkit::Curve::Linear, 2}}) {
        transition.info.yuv = curve;
        most = 0;
        const auto draw = [&transition] {
            Frame out(Path::Yuv, 2, 2), in(Path::Yuv, 2, 2);
            for (int i = 0; i < 5; ++i)
                Draw(transition, {}, {0.5, i}, out, in, in);
        };
        {
            const std::jthread other(draw);
            draw();
        }
        EXPECT_EQ(most, expected);
    }
}

TEST(Draw, TakesFramesAsTheyLie) {
    Transition transition = *TestedPlugin().Find("Turn");
    for (const Path path : {Path::Yuv, Path::Rgb})
        for (const bool upsideDown : {false, true})
            for (const int padding : {0, 5}) {
                Frame a(path, 33, 31), b(path, 33, 31), expected(path, 33, 31);
                Fill(a, 1), Fill(b, 2);
                Draw(transition, {}, {0.4, 0}, expected, a, b);
                ASSERT_FALSE(IsSame(expected, a) || IsSame(expected, b));
                for (const int viewed : {1, 2, 4, 7}) {
                    Padded out(path, 33, 31, padding, upsideDown);
                    Padded in1(path, 33, 31, padding, upsideDown);
                    Padded in2(path, 33, 31, padding, upsideDown);
                    Frame own(path, 33, 31);
                    CopyPicture(a, in1.frame);
                    CopyPicture(b, in2.frame);
                    Frame &target = viewed & 1 ? out.frame : own;
                    Draw(transition, {}, {0.4, 0}, target, viewed & 2 ? in1.frame : a,
                         viewed & 4 ? in2.frame : b);
                    EXPECT_TRUE(IsSame(target, expected)) << viewed << ' ' << padding;
                }
            }
}

TEST(Draw, GivesAFunctionOfFullChromaFullPlanes) {
    const Transition transition = StandIn(Chroma::Full);
    Frame out(Path::Yuv, 7, 5), a(Path::Yuv, 7, 5), b(Path::Yuv, 7, 5);
    Fill(a, 1), Fill(b, 2);
    drawing = [](std::uint8_t *o, const std::uint8_t *x, const std::uint8_t *) {
        std::copy_n(x, 3 * 7 * 5, o); // all of the outgoing picture
    };
    Draw(transition, {}, {0.5, 0}, out, a, b);
    EXPECT_EQ(seen.chroma, 7u * 5);
    EXPECT_TRUE(IsSame(out, a));
    drawing = nullptr;
    Draw(transition, {}, {0.5, 0}, out, a, b);
    EXPECT_TRUE(IsSame(out, b));
}

TEST(Draw, RestoresOpacityWhereTheInputsAreOpaque) {
    const Transition transition = StandIn();
    constexpr int kPixels = 6;
    using Alphas = std::array<std::uint8_t, kPixels>;
    static Alphas drawn;
    const struct {
        const char *name;
        Alphas a, b, drawn, expected;
    } kCases[] = {
        {"opaque throughout",
         {255, 255, 255, 255, 255, 255},
         {255, 255, 255, 255, 255, 255},
         {255, 254, 253, 252, 9, 0},
         {255, 255, 255, 255, 255, 255}},
        {"a hole in A",
         {255, 255, 255, 255, 255, 254},
         {255, 255, 255, 255, 255, 255},
         {255, 254, 253, 252, 9, 254},
         {255, 255, 255, 252, 9, 254}},
        {"a hole in B",
         {255, 255, 255, 255, 255, 255},
         {0, 255, 255, 255, 255, 255},
         {253, 253, 252, 254, 9, 1},
         {253, 255, 252, 255, 9, 1}},
    };
    for (const auto &c : kCases)
        for (const bool upsideDown : {false, true}) {
            Padded out(Path::Rgb, 2, 3, 0, upsideDown), a(Path::Rgb, 2, 3, 4),
                b(Path::Rgb, 2, 3, 0, true);
            const auto alpha = [](Frame &frame, int i) -> std::uint8_t & {
                return frame.Row(0, i / 2)[i % 2 * 4 + 3];
            };
            for (int i = 0; i < kPixels; ++i)
                alpha(a.frame, i) = c.a[i], alpha(b.frame, i) = c.b[i];
            drawn = c.drawn;
            drawing = [](std::uint8_t *bytes, const std::uint8_t *, const std::uint8_t *) {
                for (int i = 0; i < kPixels; ++i) // rows from the bottom up
                    bytes[((2 - i / 2) * 2 + i % 2) * 4 + 3] = drawn[i];
            };
            Draw(transition, {}, {0.5, 0}, out.frame, a.frame, b.frame);
            Alphas result;
            for (int i = 0; i < kPixels; ++i)
                result[i] = alpha(out.frame, i);
            EXPECT_EQ(result, c.expected) << c.name;
            EXPECT_EQ(out.frame.Row(0, 0)[0], 77) << "a colour changed";
        }
}

// ---------------------------------------------------------------------------------------------
// Plug-ins
// ---------------------------------------------------------------------------------------------

TEST(Plugin, RefusesOtherLibrariesInOneLine) {
    const std::string folder = TP_FAKE_PLUGINS;
    const struct {
        std::string file;
        std::string says; ///< after the file's name
    } kCases[] = {
        {"/nowhere/lib.so", ": /nowhere/lib.so: cannot open shared object file: No such file or "
                            "directory"},
        {"/dev/null", ": /dev/null: file too short"},
        {folder + "/libFakePluginHalf.so", " is not a transition plug-in: it lacks GetTransType, "
                                           "GetTransCount or GetTransInfo"},
        {folder + "/libFakePluginGap.so", " has no record for transition 2"},
        {folder + "/libFakePluginLayout.so", ": its record of transition 0 is not laid out as this "
                                             "program reads them; use a plug-in of the same "
                                             "version"},
        {folder + "/libFakePluginKind.so", ": its record of transition 0 is not laid out as this "
                                           "program reads them; use a plug-in of the same version"},
    };
    for (const auto &[file, says] : kCases)
        try {
            const hostkit::Plugin plugin(file);
            ADD_FAILURE() << file << " was loaded";
        } catch (const std::runtime_error &error) {
            const std::string text = error.what();
            EXPECT_TRUE(text == file + says || text == "cannot load the plug-in " + file + says)
                << text;
        }
}

TEST(Plugin, TakesAnyThatHasTheInterface) {
    const hostkit::Plugin plugin(TP_FAKE_PLUGINS "/libFakePluginGood.so");
    EXPECT_EQ(plugin.Category(), "fake");
    ASSERT_EQ(plugin.Transitions().size(), 3u) << "with the one exported by name";
    const Transition &first = plugin.Transitions()[0], &named = plugin.Transitions()[2];
    EXPECT_EQ(first.name, "Melt?");
    EXPECT_EQ(first.guid, "0F");
    EXPECT_TRUE(first.IsRegistered() && first.index == 0 && !first.yuv && first.rgb);
    EXPECT_EQ(first.info.title, "Melt?") << "nothing more is known";
    EXPECT_EQ(first.info.kind, hostkit::Kind::Other);
    EXPECT_TRUE(!named.IsRegistered() && named.yuv && !named.rgb);
    EXPECT_EQ(named.name, "TrCirque");
    EXPECT_EQ(named.info.title, "Rings");
    // Letter case counts only between names that differ by it alone.
    EXPECT_EQ(plugin.Find("melt?"), plugin.Find("Melt?"));
    EXPECT_EQ(plugin.Find("MELT?"), &plugin.Transitions()[1]);
    EXPECT_EQ(plugin.Find("trCIRQUE"), &named);
    EXPECT_EQ(plugin.Find("Mel"), nullptr);
    EXPECT_EQ(plugin.Find("Melt??"), nullptr);
}

// ---------------------------------------------------------------------------------------------
// Facts
// ---------------------------------------------------------------------------------------------

TEST(Info, IsOfExactlyTheTransitionsOfThePlugin) {
    std::vector<std::string> described, offered;
    for (const hostkit::Info &info : hostkit::Infos())
        described.push_back(info.name);
    for (const Transition &transition : TestedPlugin().Transitions())
        offered.push_back(transition.name);
    EXPECT_EQ(described, offered);
}

/// A frame of noise as the transition's function takes it.
Frame Noise(const Transition &transition, Path path, std::uint64_t seed) {
    Frame frame(path, 320, 200, transition.info.chroma);
    FillRandom(frame.Bytes(), seed);
    return frame;
}

Frame Drawn(const Transition &t, Path path, double position, unsigned seed) {
    Frame out = Noise(t, path, 1);
    std::srand(seed);
    CallPlugin(t, out, Noise(t, path, 2), Noise(t, path, 3), MakeParam(1, position));
    return out;
}

/// Whether the words about the ends promise both whole pictures for this path.
bool SaysWhole(const std::string &ends, Path path) {
    const std::string whole = "A whole, B whole";
    const std::string own = path == Path::Yuv ? "planar path: " : "packed path: ";
    const std::string other = path == Path::Yuv ? "; packed path: " : "; planar path: ";
    return ends == whole || ends == own + whole || ends.starts_with(own + whole + ";") ||
           ends.starts_with(whole + other);
}

TEST(Info, SaysWhatTheFunctionsDo) {
    using hostkit::Curve;
    for (const Transition &t : TestedPlugin().Transitions()) {
        SCOPED_TRACE(t.name);
        const auto symbol = [](const std::string &mangled) {
            return TestedPlugin().Symbol(mangled.c_str());
        };
        EXPECT_EQ(symbol(hostkit::MangledYUV(t.info.function)), reinterpret_cast<void *>(t.yuv));
        EXPECT_EQ(symbol(hostkit::MangledRGB(t.info.PackedFunction())),
                  reinterpret_cast<void *>(t.rgb));
        EXPECT_EQ(t.info.yuv == Curve::Absent, t.yuv == nullptr);
        EXPECT_EQ(t.info.rgb == Curve::Absent, t.rgb == nullptr);
        EXPECT_NE(t.info.kind, hostkit::Kind::Other);
        EXPECT_TRUE(t.info.motion.size() > 20 && t.info.motion.ends_with('.'));
        EXPECT_TRUE(!t.info.title.empty() && !t.info.ends.empty());
        for (const Path path : {Path::Yuv, Path::Rgb}) {
            if (!HasPath(t, path))
                continue;
            SCOPED_TRACE(path == Path::Yuv ? "planar" : "packed");
            EXPECT_EQ(!IsSame(Drawn(t, path, 0.4, 1), Drawn(t, path, 0.4, 2)), t.info.random);
            if (!SaysWhole(t.info.ends, path))
                continue;
            EXPECT_TRUE(IsSame(Drawn(t, path, 0, 1), Noise(t, path, 2)));
            EXPECT_TRUE(IsSame(Drawn(t, path, 1, 1), Noise(t, path, 3)));
        }
    }
}

/// A packed path that takes columns for byte offsets cannot reach what is right of a quarter.
TEST(Info, TellsWhichPackedPathsCountBytes) {
    for (const Transition &t : TestedPlugin().Transitions()) {
        if (!t.rgb)
            continue;
        const Frame b = Noise(t, Path::Rgb, 3);
        bool reaches = false;
        for (const double position : {0.2, 0.35, 0.5, 0.65}) {
            Frame out(Path::Rgb, 320, 200);
            Draw(t, {}, {position, 0}, out, Noise(t, Path::Rgb, 2), b);
            for (int y = 0; y < 200; ++y)
                for (int x = 90 * 4; x < 320 * 4; ++x)
                    reaches |= x % 4 != 3 && out.Row(0, y)[x] != b.Row(0, y)[x];
        }
        EXPECT_EQ(!reaches, t.info.countsBytes) << t.name;
    }
}

/// Whether two frames that held different bytes differ where the transition has drawn into them.
bool Leaves(const Transition &t, Path path, int width, int height, double position) {
    Frame a(path, width, height, t.info.chroma), b(path, width, height, t.info.chroma);
    std::fill(a.Bytes().begin(), a.Bytes().end(), std::uint8_t(60));
    std::fill(b.Bytes().begin(), b.Bytes().end(), std::uint8_t(200));
    TransParam param = {};
    param.dTotal = 1;
    param.dCurrent = position;
    Frame drawn[] = {{path, width, height, t.info.chroma}, {path, width, height, t.info.chroma}};
    for (const bool held : {false, true}) {
        std::fill(drawn[held].Bytes().begin(), drawn[held].Bytes().end(), held ? 255 : 0);
        std::srand(1);
        CallPlugin(t, drawn[held], a, b, param);
    }
    return !IsSame(drawn[0], drawn[1]);
}

TEST(Info, TellsWhichPathsLeavePixels) {
    std::vector<std::pair<int, int>> sizes = {{320, 200}, {359, 641}, {33, 200}, {200, 33}};
    for (int i = 0; i < 20 * 20; ++i)
        sizes.emplace_back(1 + i % 20, 1 + i / 20);
    for (const Transition &t : TestedPlugin().Transitions())
        for (const Path path : {Path::Yuv, Path::Rgb}) {
            bool leaves = false;
            for (const auto &[width, height] : sizes)
                for (const double position : {0.0, 0.1, 0.25, 0.37, 0.5, 0.75, 0.999, 1.0})
                    leaves |= HasPath(t, path) && Leaves(t, path, width, height, position);
            EXPECT_EQ(leaves, path == Path::Yuv ? t.info.leavesYuv : t.info.leavesRgb) << t.name;
        }
}

TEST(Info, KindsAndCurvesHaveNames) {
    EXPECT_STREQ(hostkit::KindName(hostkit::Kind::Other), "other");
    EXPECT_STREQ(hostkit::KindName(hostkit::Kind::PageTurn), "page turn");
    EXPECT_STREQ(hostkit::KindNames().back(), "depth");
    EXPECT_STREQ(hostkit::CurveName(hostkit::Curve::Absent), "-");
    EXPECT_STREQ(hostkit::CurveName(hostkit::Curve::Bounce), "bounce");
    EXPECT_STREQ(hostkit::CurveDescription(hostkit::Curve::Linear), "at an even speed");
}

} // namespace
