// The plain joints, the shuffled choice and the names from elsewhere.

#include "Joints.h"
#include "Draw.h"
#include "Shell.h"
#include "Support.h"

#include <set>

namespace {

using namespace hostkit;

const Transition &Joint(const char *name) {
    return FindPlainJoint(name)->transition;
}

using Pixel = std::array<std::uint8_t, 4>;

/// A frame whose pixels are all alike: blue, green, red, alpha or luma, Cb, Cr.
Frame Flat(Path path, const Pixel &pixel) {
    Frame frame(path, 5, 3);
    for (int plane = 0; plane < frame.Planes(); ++plane)
        for (int y = 0; y < frame.Rows(plane); ++y)
            for (int x = 0; x < frame.RowBytes(plane); ++x)
                frame.Row(plane, y)[x] = pixel[path == Path::Rgb ? x % 4 : plane];
    return frame;
}

TEST(Joints, FollowTheRules) {
    const Pixel a = {200, 100, 100}, b = {101, 41, 41};
    const struct {
        Path path;
        const char *name;
        double position;
        Pixel in1, in2, expected;
    } kCases[] = {
        {Path::Yuv, "dissolve", 0, a, b, a},
        {Path::Yuv, "dissolve", 1, a, b, b},
        {Path::Yuv, "dissolve", 0.5, a, b, {151, 71, 71}},  // 150.5 and 70.5
        {Path::Yuv, "dissolve", 0.25, a, b, {175, 85, 85}}, // 175.25 and 85.25
        {Path::Yuv, "fade", 0, a, b, a},
        {Path::Yuv, "fade", 1, a, b, b},
        {Path::Yuv, "fade", 0.25, a, b, {108, 114, 114}}, // half of the way to 16 and 128
        {Path::Yuv, "fade", 0.5, a, b, {16, 128, 128}},
        {Path::Yuv, "fade", 0.75, a, b, {59, 85, 85}}, // 58.5 and 84.5
        {Path::Yuv, "cut", 0.4999, a, b, a},
        {Path::Yuv, "cut", 0.5, a, b, b},
        // Weighted by alpha.
        {Path::Rgb, "dissolve", 0.5, {0, 100, 255, 255}, {1, 200, 0, 255}, {1, 150, 128, 255}},
        {Path::Rgb, "dissolve", 0.25, {0, 100, 255, 0}, {1, 200, 0, 0}, {0, 125, 191, 0}},
        {Path::Rgb, "dissolve", 0.5, {9, 9, 9, 0}, {40, 50, 60, 255}, {40, 50, 60, 128}},
        // 90 * 1 / (9 + 1)
        {Path::Rgb, "dissolve", 0.25, {0, 0, 0, 255}, {90, 90, 90, 85}, {9, 9, 9, 213}},
        {Path::Rgb, "fade", 0.5, {200, 9, 9, 0}, {7, 7, 7, 7}, {0, 0, 0, 255}},
        {Path::Rgb, "fade", 0.25, {200, 101, 50, 255}, {7, 7, 7, 255}, {100, 51, 25, 255}},
        {Path::Rgb, "fade", 0.25, {200, 100, 50, 0}, {7, 7, 7, 255}, {0, 0, 0, 128}},
        {Path::Rgb, "cut", 0.3, {1, 2, 3, 4}, {5, 6, 7, 8}, {1, 2, 3, 4}},
    };
    for (const auto &[path, name, position, in1, in2, expected] : kCases) {
        Frame out = Flat(path, {});
        Draw(Joint(name), {}, {position, 0}, out, Flat(path, in1), Flat(path, in2));
        EXPECT_TRUE(std::ranges::equal(out.Bytes(), Flat(path, expected).Bytes()))
            << name << position << testing::PrintToString(expected);
    }
}

TEST(Joints, AnyIsShuffledRepeatableAndNeverEqualsItsNeighbour) {
    const Transition *first = TestedPlugin().Transitions().data();
    const std::vector candidates = {first, first + 1, first + 2, first + 3};
    std::set<std::vector<const Transition *>> orders;
    for (std::uint64_t seed = 0; seed < 200; ++seed) {
        std::vector<const Transition *> asked(41);
        asked[7] = candidates[2];
        asked[9] = candidates[0];
        std::vector<const Transition *> row = asked, again = asked;
        ChooseAny(row, candidates, seed);
        ChooseAny(again, candidates, seed);
        EXPECT_EQ(row, again);
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
    std::vector<const Transition *> alone(3);
    ChooseAny(alone, std::span(candidates).first(1), 1);
    EXPECT_EQ(alone, std::vector(3, candidates[0]));
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
