// What every host builds on: how positions run, how frames lie, what one drawn frame is, and which
// libraries are taken for plug-ins. Expected values are worked out here or by other means.

#include "Draw.h"
#include "Shell.h"
#include "Support.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <limits>
#include <numeric>
#include <regex>
#include <thread>

namespace {

using namespace hostkit;

// Quarters by hand: powers of 1/4, 1/2 and 3/4; the parabola 7.5625 (u - c)^2 + h of each bounce;
// 2^-2.5, 2^-5 and 2^-7.5 times the sine of 210, 510 and 810 degrees.
TEST(Easing, RunsThroughItsQuarterPoints) {
    const double root = std::sqrt(2.0), s = 1.70158;
    const struct {
        const char *name;
        double at[3];       ///< at 1/4, 1/2 and 3/4
        bool rises = true;  ///< never goes back
        bool stays = rises; ///< never leaves 0..1
    } kCurves[] = {
        {"linear", {0.25, 0.5, 0.75}},
        {"smooth", {0.15625, 0.5, 0.84375}},
        {"in", {0.0625, 0.25, 0.5625}},
        {"out", {0.4375, 0.75, 0.9375}},
        {"in-out", {0.125, 0.5, 0.875}},
        {"in-cubic", {1 / 64.0, 0.125, 27 / 64.0}},
        {"out-cubic", {37 / 64.0, 0.875, 63 / 64.0}},
        {"in-out-cubic", {0.0625, 0.5, 0.9375}},
        {"back", {(37 + 9 * s) / 64, (7 + s) / 8, (63 + 3 * s) / 64}, false},
        {"elastic", {1 - root / 16, 1 + 1 / 64.0, 1 + root / 256}, false},
        {"bounce", {7.5625 / 16, 7.5625 / 484 + 0.75, 7.5625 * 9 / 1936 + 0.9375}, false, true},
    };
    ASSERT_EQ(Easings().size(), std::size(kCurves));
    EXPECT_EQ(FindEasing("wobbly"), nullptr);
    const Easing *easing = Easings().data();
    for (const auto &[name, at, rises, stays] : kCurves) {
        SCOPED_TRACE(name);
        EXPECT_STREQ(easing->name, name);
        EXPECT_EQ(FindEasing(name), easing);
        double last = 0, highest = 0;
        bool rose = true;
        for (int i = 0; i <= 4096; ++i) {
            const double value = easing->curve(i / 4096.0);
            ASSERT_LT(std::abs(value - last), i ? 0.005 : 1e-15) << i << ": a jump, or no number";
            if (i % 1024 == 0 && i % 4096) {
                EXPECT_NEAR(value, at[i / 1024 - 1], 1e-12) << i;
            }
            rose &= value >= last;
            highest = std::max(highest, value);
            last = value;
        }
        EXPECT_EQ(last, 1);
        EXPECT_EQ(rose, rises);
        EXPECT_EQ(highest <= 1, stays);
        ++easing;
    }
}

TEST(Clock, PositionsStayWithinTheTransition) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const Easing wild = {"", "", [](double u) { return u < 0.5 ? -3.0 : 4.0; }};
    const Easing square = {"", "", [](double u) { return u * u; }};
    const Easing even = {"", "", [](double) { return 0.5; }};
    const struct {
        const Easing *easing;
        double at, forwards;
    } kCases[] = {
        {nullptr, 0.25, 0.25}, {nullptr, -1, 0}, {nullptr, infinity, 1}, {nullptr, std::nan(""), 0},
        {&square, 0.5, 0.25},  {&wild, 0.3, 0},  {&wild, 0.6, 1},        {&even, 0, 0},
        {&even, 1, 1},
    };
    for (const auto &[easing, at, forwards] : kCases) {
        EXPECT_EQ(PluginPosition({easing, false, 0}, {at, 0}), forwards) << at;
        EXPECT_EQ(PluginPosition({easing, true, 0}, {at, 0}), 1 - forwards) << at;
    }
}

// The upper halves of SplitMix64's well-known outputs from this state.
TEST(Seed, IsTheGeneratorsForEachFrameOfAUsersSeed) {
    constexpr std::uint64_t kOutputs[] = {6457827717110365317u, 3203168211198807973u,
                                          9817491932198370423u, 4593380528125082431u,
                                          16408922859458223821u};
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(RandomSeed({nullptr, i >= 5, 1234567}, {i / 10.0, i % 5}), kOutputs[i % 5] >> 32)
            << i;
}

/// A frame of noise without what stands around pictures in Padded.
Frame Noise(Path path, int width, int height, std::uint64_t seed, Chroma chroma = Chroma::Half) {
    Frame frame(path, width, height, chroma);
    FillRandom(frame.Bytes(), seed);
    std::ranges::replace(frame.Bytes(), 77, 78);
    return frame;
}

/// A view of this picture in a buffer with padding, from the top down or from the bottom up, with
/// everything around it at 77.
struct Padded {
    Padded(const Frame &picture, int padding, bool upsideDown) {
        std::uint8_t *rows[3] = {};
        int pitches[3] = {};
        for (int plane = 0; plane < picture.Planes(); ++plane) {
            const int height = picture.Rows(plane);
            pitches[plane] = picture.RowBytes(plane) + padding;
            bytes[plane].assign(std::size_t(pitches[plane]) * (height + 2), 77);
            rows[plane] = &bytes[plane][pitches[plane]];
            if (upsideDown) {
                rows[plane] += pitches[plane] * (height - 1);
                pitches[plane] = -pitches[plane];
            }
        }
        frame = Frame(picture.Layout(), picture.Width(), picture.Height(), rows, pitches);
        CopyPicture(picture, frame);
    }
    std::vector<std::uint8_t> bytes[3];
    Frame frame;
};

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
    const std::uint8_t *const first = planar.Bytes().data();
    EXPECT_EQ(planar.Bytes().size(), 7u * 5 + 2 * 4 * 3);
    EXPECT_EQ(planar.Row(0, 1), first + 7);
    EXPECT_EQ(planar.Row(1, 0), first + 35);
    EXPECT_EQ(planar.Row(2, 2), first + 35 + 12 + 8);
    const YUVImage &image = *planar.Image();
    EXPECT_TRUE(image.pY == first && image.pU == first + 35 && image.pV == first + 35 + 12);
    EXPECT_EQ(
        (std::array{image.nWidth, image.nHeight, image.nPitchY, image.nPitchUV, image.nPitchV}),
        (std::array{7, 5, 7, 4, 4}));
    const Frame full(Path::Yuv, 7, 5, Chroma::Full);
    EXPECT_EQ(full.Bytes().size(), 3u * 7 * 5);
    EXPECT_TRUE(planar.IsPlugins(Chroma::Half) && full.IsPlugins(Chroma::Full));
    EXPECT_FALSE(planar.IsPlugins(Chroma::Full) || full.IsPlugins(Chroma::Half));

    const Frame packed(Path::Rgb, 3, 4);
    EXPECT_EQ(packed.Bytes().size(), 48u);
    EXPECT_EQ(packed.Row(0, 0), packed.Bytes().data() + 36) << "the top row is the last in memory";
    EXPECT_EQ(packed.Row(0, 3), packed.Bytes().data());
    EXPECT_EQ(DIGetWidth(packed.Handle()), 3);
    EXPECT_EQ(DIGetHeight(packed.Handle()), 4);
    EXPECT_EQ(DIGetBits(packed.Handle()), packed.Bytes().data());
}

TEST(Frame, ViewsShareTheirOwnersMemory) {
    for (const Path path : {Path::Yuv, Path::Rgb})
        for (const bool upsideDown : {false, true}) {
            const Frame own = Noise(path, 5, 3, 3);
            const Padded padded(own, 6, upsideDown), tight(own, 0, upsideDown);
            EXPECT_TRUE(padded.frame.Bytes().empty());
            EXPECT_FALSE(padded.frame.IsPlugins(Chroma::Half) || padded.frame.Handle());
            EXPECT_EQ(tight.frame.IsPlugins(Chroma::Half), upsideDown == (path == Path::Rgb));
            EXPECT_EQ(tight.frame.Handle() != nullptr, path == Path::Rgb);
            if (tight.frame.Handle()) {
                EXPECT_EQ(DIGetBits(tight.frame.Handle()), tight.frame.Row(0, upsideDown ? 2 : 0));
            }
            Frame again(path, 5, 3);
            CopyPicture(padded.frame, again);
            EXPECT_TRUE(IsSame(own, again) && IsSame(own, padded.frame) &&
                        IsSame(own, tight.frame));
            for (int plane = 0; plane < own.Planes(); ++plane)
                EXPECT_EQ(std::ranges::count_if(padded.bytes[plane], [](int b) { return b != 77; }),
                          own.RowBytes(plane) * own.Rows(plane))
                    << "padding was written";
        }
    for (const int padded : {0, 1, 2, 3}) { // a plane, or none
        std::uint8_t bytes[100] = {};
        std::uint8_t *const rows[] = {bytes, bytes, bytes};
        const int pitches[] = {6 + (padded == 0), 3 + (padded == 1), 3 + (padded == 2)};
        EXPECT_EQ(Frame(Path::Yuv, 6, 4, rows, pitches).IsPlugins(Chroma::Half), padded == 3);
    }
}

TEST(Frame, ChromaIsEnlargedAndHalved) {
    using Bytes = std::vector<std::uint8_t>;
    Frame half(Path::Yuv, 3, 3), full(Path::Yuv, 3, 3, Chroma::Full);
    std::iota(half.Bytes().begin(), half.Bytes().end(), 1);
    CopyPicture(half, full);
    EXPECT_EQ(Bytes(full.Bytes().begin(), full.Bytes().end()),
              (Bytes{1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 10, 11, 10, 10,
                     11, 12, 12, 13, 14, 14, 15, 14, 14, 15, 16, 16, 17}));

    // Means of four, rounded: 17.25 down and 17.5 up; at the edges the last samples count twice.
    const Bytes samples = {9,   8, 7, 6,   5,  4,  3,   2,  1,  16,  17, 100, 18, 18,
                           101, 7, 8, 200, 16, 17, 100, 18, 19, 101, 7,  8,   200};
    std::ranges::copy(samples, full.Bytes().begin());
    CopyPicture(full, half);
    EXPECT_EQ(Bytes(half.Bytes().begin(), half.Bytes().end()),
              (Bytes{9, 8, 7, 6, 5, 4, 3, 2, 1, 17, 101, 8, 200, 18, 101, 8, 200}));

    for (const auto &[width, height] : {std::pair(1, 1), {1, 4}, {6, 1}, {8, 6}, {9, 7}}) {
        const Frame before = Noise(Path::Yuv, width, height, 1);
        Frame after(Path::Yuv, width, height), between(Path::Yuv, width, height, Chroma::Full);
        CopyPicture(before, between);
        CopyPicture(between, after);
        EXPECT_TRUE(IsSame(before, after)) << width << " x " << height;
    }
}

/// What a stand-in for a plug-in's functions does, given the frames' first bytes in memory.
std::function<void(std::uint8_t *, const std::uint8_t *, const std::uint8_t *, const TransParam &)>
    drawing;

Transition StandIn(Chroma chroma = Chroma::Half) {
    Transition transition = {};
    transition.info = InfoFor("Unknown");
    transition.info.chroma = chroma;
    transition.yuv = [](YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                        const TransParam *param) { drawing(out->pY, in1->pY, in2->pY, *param); };
    transition.rgb = [](void *out, void *in1, void *in2, const TransParam *param) {
        drawing(DIGetBits(out), DIGetBits(in1), DIGetBits(in2), *param);
    };
    return transition;
}

TEST(Draw, HandsThePluginOneMoment) {
    const Transition transition = StandIn();
    for (const Path path : {Path::Yuv, Path::Rgb})
        for (const bool reverse : {false, true}) {
            const Frame a = Noise(path, 6, 4, 2), b = Noise(path, 6, 4, 3);
            const Frame &from = reverse ? b : a, &to = reverse ? a : b;
            Frame out(path, 6, 4);
            int random = -1;
            drawing = [&](auto *drawn, auto *in1, auto *in2, auto &param) {
                EXPECT_EQ(param.dTotal, 1);
                EXPECT_EQ(param.dCurrent, reverse ? 0.75 : 0.25);
                EXPECT_EQ(in1, from.Bytes().data());
                EXPECT_EQ(in2, to.Bytes().data());
                EXPECT_EQ(drawn, out.Bytes().data()) << "drawn elsewhere and copied";
                EXPECT_TRUE(IsSame(out, to)) << "what is left alone shows the incoming picture";
                random = std::rand();
            };
            const Motion motion = {FindEasing("in"), reverse, 5};
            Draw(transition, motion, {0.5, 3}, out, a, b);
            std::srand(RandomSeed(motion, {0.5, 3}));
            EXPECT_EQ(random, std::rand());
            EXPECT_TRUE(IsSame(out, to));
            EXPECT_TRUE(HasPath(transition, path) && !HasPath(Transition{}, path));
        }
}

TEST(Draw, LeavesOthersTheirRandomNumbers) {
    const Frame a = Noise(Path::Rgb, 32, 32, 1), b = Noise(Path::Rgb, 32, 32, 2);
    Frame out(Path::Rgb, 32, 32);
    std::array<std::array<int, 3>, 2> numbers;
    for (const bool draws : {false, true}) {
        std::srand(9);
        for (int i = 0; i < 3; ++i) {
            numbers[draws][i] = std::rand();
            if (draws)
                Draw(*TestedPlugin().Find(i ? "Push" : "Wind"), {}, {0.5, 3}, out, a, b);
        }
    }
    EXPECT_EQ(numbers[0], numbers[1]);
}

// What eases keeps its position, and what draws takes rand(), of which a process has one.
TEST(Draw, AsksForOneFrameAtATimeOfWhatIsShared) {
    static std::atomic<int> inside, most;
    Transition transition = {};
    transition.yuv = [](YUVImage *, const YUVImage *, const YUVImage *, const TransParam *) {
        const int now = ++inside;
        if (now > most)
            most = now;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        --inside;
    };
    for (const auto &[curve, random, expected] : {std::tuple(Curve::Eased, false, 1),
                                                  {Curve::Linear, true, 1},
                                                  {Curve::Linear, false, 2}}) {
        transition.info.yuv = curve;
        transition.info.random = random;
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

// The packed path of Push does not mind the order of rows; that of Turn does.
TEST(Draw, TakesFramesAsTheyLie) {
    for (const auto &[path, name] : {std::pair(Path::Yuv, "Turn"), std::pair(Path::Rgb, "Turn"),
                                     std::pair(Path::Rgb, "Push")}) {
        const Transition &transition = *TestedPlugin().Find(name);
        const Frame a = Noise(path, 33, 31, 1), b = Noise(path, 33, 31, 2);
        Frame expected(path, 33, 31), own(path, 33, 31);
        Draw(transition, {}, {0.4, 0}, expected, a, b);
        ASSERT_FALSE(IsSame(expected, a) || IsSame(expected, b));
        for (const bool upsideDown : {false, true})
            for (const int padding : {0, 5})
                for (const int viewed : {1, 2, 3, 4, 5, 6, 7}) {
                    Padded out(a, padding, upsideDown);
                    const Padded in1(a, padding, upsideDown), in2(b, padding, upsideDown);
                    Frame &target = viewed & 1 ? out.frame : own;
                    Draw(transition, {}, {0.4, 0}, target, viewed & 2 ? in1.frame : a,
                         viewed & 4 ? in2.frame : b);
                    EXPECT_TRUE(IsSame(target, expected)) << name << viewed << ' ' << padding;
                }
    }
}

TEST(Draw, GivesAFunctionOfFullChromaFullPlanes) {
    const Transition transition = StandIn(Chroma::Full);
    const Frame a = Noise(Path::Yuv, 7, 5, 1), b = Noise(Path::Yuv, 7, 5, 2);
    Frame out(Path::Yuv, 7, 5);
    drawing = [](auto *o, auto *, auto *in2, auto &) {
        EXPECT_TRUE(std::equal(o, o + 3 * 7 * 5, in2));
    };
    Draw(transition, {}, {0.5, 0}, out, a, b);
    EXPECT_TRUE(IsSame(out, b));
    drawing = [](auto *o, auto *in1, auto *, auto &) { std::copy_n(in1, 3 * 7 * 5, o); };
    Draw(transition, {}, {0.5, 0}, out, a, b);
    EXPECT_TRUE(IsSame(out, a));
}

TEST(Draw, RestoresOpacityWhereTheInputsAreOpaque) {
    const Transition transition = StandIn();
    using Alphas = std::array<std::uint8_t, 4>;
    constexpr Alphas kOpaque = {255, 255, 255, 255};
    const struct {
        Alphas a, b, drawn, expected; ///< of two rows of two pixels
    } kCases[] = {
        {kOpaque, kOpaque, {254, 253, 252, 0}, kOpaque},
        {{255, 255, 255, 254}, kOpaque, {254, 253, 252, 254}, {255, 255, 252, 254}},
        {kOpaque, {0, 255, 255, 255}, {254, 253, 252, 255}, {254, 255, 252, 255}},
    };
    const auto alpha = [](Frame &frame, int i) -> std::uint8_t & {
        return frame.Row(0, i / 2)[i % 2 * 4 + 3];
    };
    for (const auto &c : kCases)
        for (const bool upsideDown : {false, true}) {
            const Frame like = Noise(Path::Rgb, 2, 2, 1);
            Padded out(like, 0, upsideDown), a(like, 4, false), b(like, 0, true);
            drawing = [&](auto *drawn, auto *, auto *, auto &) {
                for (int i = 0; i < 4; ++i)
                    drawn[(i ^ 2) * 4 + 3] = c.drawn[i]; // rows from the bottom up
            };
            for (int i = 0; i < 4; ++i)
                alpha(a.frame, i) = c.a[i], alpha(b.frame, i) = c.b[i];
            Draw(transition, {}, {0.5, 0}, out.frame, a.frame, b.frame);
            for (int i = 0; i < 4; ++i)
                EXPECT_EQ(alpha(out.frame, i), c.expected[i]) << &c - kCases << ", pixel " << i;
            EXPECT_EQ(out.frame.Row(0, 0)[0], like.Row(0, 0)[0]) << "a colour changed";
        }
}

TEST(Plugin, RefusesOtherLibrariesInOneLine) {
    const std::string fake = TP_FAKE_PLUGINS "/libFakePlugin",
                      layout = ": its record of transition 0 is not laid out as this program reads "
                               "them; use a plug-in of the same version";
    const struct {
        std::string file, says; ///< the latter after the former
    } kCases[] = {
        {"/nowhere/lib.so", ": /nowhere/lib.so: cannot open shared object file: No such file or "
                            "directory"},
        {"/dev/null", ": /dev/null: file too short"},
        {fake + "Half.so", " is not a transition plug-in: it lacks GetTransType, GetTransCount or "
                           "GetTransInfo"},
        {fake + "Gap.so", " has no record for transition 2"},
        {fake + "Layout.so", layout},
        {fake + "Kind.so", layout},
    };
    for (const auto &[file, says] : kCases)
        try {
            const Plugin plugin(file);
            ADD_FAILURE() << file << " was loaded";
        } catch (const std::runtime_error &error) {
            const std::string text = error.what();
            EXPECT_TRUE(text == file + says || text == "cannot load the plug-in " + file + says)
                << text;
        }
}

TEST(Plugin, TakesAnyThatHasTheInterface) {
    const Plugin plugin(TP_FAKE_PLUGINS "/libFakePluginGood.so");
    EXPECT_EQ(plugin.Category(), "fake");
    ASSERT_EQ(plugin.Transitions().size(), 3u) << "with the one exported by name";
    const Transition &first = plugin.Transitions()[0], &named = plugin.Transitions()[2];
    EXPECT_TRUE(first.name == "Melt?" && first.guid == "0F" && first.IsRegistered() &&
                first.index == 0 && !first.yuv && first.rgb);
    EXPECT_TRUE(first.info.title == "Melt?" && first.info.kind == Kind::Other)
        << "nothing more is known";
    EXPECT_TRUE(named.name == "TrCirque" && named.info.title == "Rings" && !named.IsRegistered() &&
                named.yuv && !named.rgb);
    // Letter case counts only between names that differ by it alone.
    EXPECT_EQ(plugin.Find("melt?"), plugin.Find("Melt?"));
    EXPECT_EQ(plugin.Find("MELT?"), &plugin.Transitions()[1]);
    EXPECT_EQ(plugin.Find("trCIRQUE"), &named);
    EXPECT_EQ(plugin.Find("Mel"), nullptr);
    EXPECT_EQ(plugin.Find("Melt??"), nullptr);
}

/// What the transition's function makes of a frame that may hold something.
Frame Drawn(const Transition &t, Frame out, const Frame &a, const Frame &b, double position,
            unsigned seed = 1) {
    std::srand(seed);
    CallPlugin(t, out, a, b, MakeParam(1, position));
    return out;
}

TEST(Info, SaysWhatTheFunctionsDo) {
    constexpr int kWidth = 320, kHeight = 200;
    ASSERT_EQ(Infos().size(), TestedPlugin().Transitions().size());
    const Info *info = Infos().data();
    for (const Transition &t : TestedPlugin().Transitions()) {
        EXPECT_EQ((info++)->name, t.name);
        const auto symbol = [](const std::string &mangled) {
            return TestedPlugin().Symbol(mangled.c_str());
        };
        SCOPED_TRACE(t.name);
        EXPECT_EQ(symbol(MangledYUV(t.info.function)), reinterpret_cast<void *>(t.yuv));
        EXPECT_EQ(symbol(MangledRGB(t.info.PackedFunction())), reinterpret_cast<void *>(t.rgb));
        EXPECT_EQ(t.info.yuv == Curve::Absent, t.yuv == nullptr);
        EXPECT_EQ(t.info.rgb == Curve::Absent, t.rgb == nullptr);
        EXPECT_NE(t.info.kind, Kind::Other);
        EXPECT_TRUE(t.info.motion.size() > 20 && t.info.motion.ends_with('.'));
        EXPECT_TRUE(!t.info.title.empty() && !t.info.ends.empty());
        for (const Path path : {Path::Yuv, Path::Rgb}) {
            if (!HasPath(t, path))
                continue;
            const std::string name = path == Path::Yuv ? "planar" : "packed";
            SCOPED_TRACE(name);
            const auto noise = [&](int seed) {
                return Noise(path, kWidth, kHeight, seed, t.info.chroma);
            };
            const Frame a = noise(2), b = noise(3);
            const Frame early = Drawn(t, noise(1), a, b, 0.4, 1);
            EXPECT_EQ(!IsSame(early, Drawn(t, noise(1), a, b, 0.4, 2)), t.info.random);
            // Both ends are whole, at least in this path.
            const std::regex whole(
                Text('(', name, " path: )?A whole, B whole(; (?!", name, ").*)?"));
            if (std::regex_match(t.info.ends, whole)) {
                EXPECT_TRUE(IsSame(Drawn(t, noise(1), a, b, 0), a));
                EXPECT_TRUE(IsSame(Drawn(t, noise(1), a, b, 1), b));
            }
            // A packed path that takes columns for byte offsets cannot reach beyond a quarter.
            bool reaches = path == Path::Yuv, isSame = path == Path::Rgb;
            for (const double position : {0.2, 0.35, 0.5, 0.65}) {
                if (path == Path::Rgb) {
                    Padded out(a, 0, false), in1(a, 0, false), in2(b, 0, false);
                    std::srand(1);
                    CallPlugin(t, out.frame, in1.frame, in2.frame, MakeParam(1, position));
                    isSame &= IsSame(out.frame, Drawn(t, noise(1), a, b, position));
                }
                Frame out(path, kWidth, kHeight);
                Draw(t, {}, {position, 0}, out, a, b);
                for (int y = 0; !reaches && y < kHeight; ++y)
                    reaches = !std::equal(out.Row(0, y) + 90 * 4, out.Row(0, y) + kWidth * 4,
                                          b.Row(0, y) + 90 * 4);
            }
            EXPECT_TRUE(path == Path::Yuv || reaches != t.info.countsBytes);
            EXPECT_EQ(isSame, path == Path::Rgb && t.info.anyRowOrder);
        }
    }
}

// Two frames that held different bytes differ where nothing was drawn.
TEST(Info, TellsWhichPathsLeavePixels) {
    std::vector<std::pair<int, int>> sizes = {{320, 200}, {359, 641}, {33, 200}, {200, 33}};
    for (int i = 0; i < 20 * 20; ++i)
        sizes.emplace_back(1 + i % 20, 1 + i / 20);
    for (const Transition &t : TestedPlugin().Transitions())
        for (const Path path : {Path::Yuv, Path::Rgb}) {
            bool leaves = false;
            for (const auto &[width, height] : sizes) {
                if (!HasPath(t, path))
                    break;
                const auto flat = [&, width = width, height = height](int value) {
                    Frame frame(path, width, height, t.info.chroma);
                    std::ranges::fill(frame.Bytes(), std::uint8_t(value));
                    return frame;
                };
                const Frame a = flat(60), b = flat(200);
                for (const double position : {0.0, 0.1, 0.25, 0.37, 0.5, 0.75, 0.999, 1.0})
                    leaves |= !IsSame(Drawn(t, flat(0), a, b, position),
                                      Drawn(t, flat(255), a, b, position));
            }
            EXPECT_EQ(leaves, path == Path::Yuv ? t.info.leavesYuv : t.info.leavesRgb) << t.name;
        }
}

} // namespace
