// The plain joints, the shuffled choice and the names from elsewhere.

#include "Joints.h"
#include "Draw.h"
#include "Shell.h"
#include "Support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>

namespace {

using namespace hostkit;

const Transition &Joint(const char *name) {
    return FindPlainJoint(name)->transition;
}

/// A planar frame of one level for luma and one for both chroma planes.
Frame Flat(int luma, int chroma) {
    Frame frame(Path::Yuv, 5, 3);
    std::fill(frame.Bytes().begin(), frame.Bytes().begin() + 15, std::uint8_t(luma));
    std::fill(frame.Bytes().begin() + 15, frame.Bytes().end(), std::uint8_t(chroma));
    return frame;
}

TEST(Joints, PlanarSamplesFollowTheRule) {
    const struct {
        const char *name;
        double position;
        int luma, chroma; ///< between 200, 100 and 101, 41
    } kCases[] = {
        {"dissolve", 0, 200, 100},   {"dissolve", 1, 101, 41},
        {"dissolve", 0.5, 151, 71},  // 150.5 and 70.5
        {"dissolve", 0.25, 175, 85}, // 175.25 and 85.25
        {"fade", 0, 200, 100},       {"fade", 1, 101, 41},
        {"fade", 0.25, 108, 114},                            // half of the way to 16 and 128
        {"fade", 0.5, 16, 128},      {"fade", 0.75, 59, 85}, // 58.5 and 84.5
        {"cut", 0.4999, 200, 100},   {"cut", 0.5, 101, 41},
    };
    const Frame a = Flat(200, 100), b = Flat(101, 41);
    for (const auto &[name, position, luma, chroma] : kCases) {
        Frame out = Flat(0, 0);
        Draw(Joint(name), {}, {position, 0}, out, a, b);
        const Frame expected = Flat(luma, chroma);
        EXPECT_TRUE(std::ranges::equal(out.Bytes(), expected.Bytes()))
            << name << position << ": " << int(*out.Row(0, 0)) << ' ' << int(*out.Row(1, 0));
    }
}

TEST(Joints, PackedPixelsAreWeightedByAlpha) {
    using Pixel = std::array<std::uint8_t, 4>;
    const struct {
        const char *name;
        double position;
        Pixel a, b, expected;
    } kCases[] = {
        {"dissolve", 0.5, {0, 100, 255, 255}, {1, 200, 0, 255}, {1, 150, 128, 255}},
        {"dissolve", 0.25, {0, 100, 255, 0}, {1, 200, 0, 0}, {0, 125, 191, 0}},
        {"dissolve", 0.5, {9, 9, 9, 0}, {40, 50, 60, 255}, {40, 50, 60, 128}},
        {"dissolve", 0.25, {0, 0, 0, 255}, {90, 90, 90, 85}, {9, 9, 9, 213}}, // 90 * 1 / (9 + 1)
        {"fade", 0.5, {200, 9, 9, 0}, {7, 7, 7, 7}, {0, 0, 0, 255}},
        {"fade", 0.25, {200, 101, 50, 255}, {7, 7, 7, 255}, {100, 51, 25, 255}},
        {"fade", 0.25, {200, 100, 50, 0}, {7, 7, 7, 255}, {0, 0, 0, 128}},
        {"cut", 0.3, {1, 2, 3, 4}, {5, 6, 7, 8}, {1, 2, 3, 4}},
    };
    for (const auto &[name, position, a, b, expected] : kCases) {
        Frame in1(Path::Rgb, 1, 1), in2(Path::Rgb, 1, 1), out(Path::Rgb, 1, 1);
        std::copy(a.begin(), a.end(), in1.Row(0, 0));
        std::copy(b.begin(), b.end(), in2.Row(0, 0));
        Draw(Joint(name), {}, {position, 0}, out, in1, in2);
        Pixel drawn;
        std::copy_n(out.Row(0, 0), 4, drawn.begin());
        EXPECT_EQ(drawn, expected) << name << position;
    }
}

TEST(Joints, AnyIsShuffledRepeatableAndNeverEqualsItsNeighbour) {
    const Transition *first = TestedPlugin().Transitions().data();
    const std::vector candidates = {first, first + 1, first + 2, first + 3};
    const auto choose = [&](std::vector<const Transition *> row, std::uint64_t seed) {
        ChooseAny(row, candidates, seed);
        return row;
    };
    std::set<std::vector<const Transition *>> orders;
    for (std::uint64_t seed = 0; seed < 200; ++seed) {
        std::vector<const Transition *> asked(41);
        asked[7] = candidates[2];
        asked[9] = candidates[0];
        const auto row = choose(asked, seed);
        EXPECT_EQ(row, choose(asked, seed));
        EXPECT_EQ(row[7], asked[7]);
        EXPECT_EQ(row[9], asked[9]);
        for (std::size_t i = 0; i < row.size(); ++i) {
            ASSERT_NE(row[i], nullptr);
            ASSERT_TRUE(i == 0 || row[i] != row[i - 1]) << seed << ' ' << i;
        }
        EXPECT_EQ(std::set(row.begin(), row.begin() + 4).size(), 4u) << "all before one again";
        orders.insert({row.begin(), row.begin() + 4});
    }
    EXPECT_EQ(orders.size(), 24u) << "every order of four comes";
    const auto alone = [&] {
        std::vector<const Transition *> row(3);
        ChooseAny(row, std::span(candidates).first(1), 1);
        return row;
    };
    EXPECT_EQ(alone(), std::vector(3, candidates[0]));
}

TEST(Joints, NamesFromElsewhereLeadToOneHere) {
    std::vector<std::string> names = {"Cross Dissolve", "Dip to Black", "Venetian Blinds",
                                      "Page Peel",      "Cross Zoom",   "Push Transition"};
    std::istringstream help(Output("ffmpeg -v error -h filter=xfade"));
    for (std::string line, name, number; std::getline(help, line);)
        if (std::istringstream(line) >> name >> number && std::isdigit(number[0]))
            names.push_back(name);
    ASSERT_GT(names.size(), 40u);
    for (const std::string &name : names) {
        const Likeness like = FindLikeness(name);
        ASSERT_NE(like.name, nullptr) << name;
        EXPECT_TRUE(TestedPlugin().Find(like.name) || FindPlainJoint(like.name)) << name;
    }
    EXPECT_STREQ(FindLikeness("SMPTE_Dissolve").name, "dissolve");
    EXPECT_TRUE(FindLikeness("slideleft").reverse);
    EXPECT_EQ(FindLikeness("Nosuch").name, nullptr);
    EXPECT_EQ(FindLikeness("").name, nullptr);
    EXPECT_NE(FindPlainJoint("Dissolve"), nullptr);
    EXPECT_FALSE(Overlaps(Joint("cut")));
    EXPECT_TRUE(Overlaps(Joint("fade")) && Overlaps(*TestedPlugin().Find("Push")));
}

} // namespace
