// Times as users write them: their frames by hand, and what is refused.

#include "Duration.h"
#include "Failure.h"
#include "Shell.h"

#include <gtest/gtest.h>

namespace {

using namespace host;

constexpr AVRational kFilm = {24, 1}, kPal = {25, 1}, kNtsc = {30000, 1001};

/// The frames that a time is, or what is said of it.
std::string Frames(const std::string &text, AVRational rate = kPal) {
    try {
        return Text(FramesIn(ParseTime(text, "-d"), rate));
    } catch (const Failure &failure) {
        return failure.what();
    }
}

TEST(Duration, CountsFramesToTheNearest) {
    const struct {
        const char *text;
        AVRational rate;
        const char *frames;
    } kCases[] = {
        {"1.5", kFilm, "36"},
        {"1.5s", kPal, "38"}, // 37.5
        {".5", kFilm, "12"},
        {"2.", kFilm, "48"},
        {"500ms", kFilm, "12"},
        {"20.833333ms", kFilm, "0"}, // just below half a frame
        {"20.833334ms", kFilm, "1"},
        {"12f", kNtsc, "12"},
        {"0:01.5", kFilm, "36"},
        {"90:00", kPal, "135000"},
        {"1:02:03.5", kPal, "93088"},       // 3723.5 s are 93087.5 frames
        {"1000:00:00", kNtsc, "107892108"}, // 3,600,000 * 30000 / 1001 = 107892107.9
        {"0.000000001", kFilm, "0"},
        {"1000000001f", kPal, "-d 1000000001f: give at most 1000000000 frames"},
    };
    for (const auto &[text, rate, frames] : kCases)
        EXPECT_EQ(Frames(text, rate), frames) << text;
    EXPECT_DOUBLE_EQ(SecondsIn(ParseTime("12f", "-d"), kPal), 0.48);
    EXPECT_DOUBLE_EQ(SecondsIn(ParseTime("250ms", "-d"), kPal), 0.25);
}

TEST(Duration, RefusesWhatItCannotMean) {
    std::istringstream texts("| |.|abc|-1|+1|1 s|1e3|nan|0x10|1,5|1.5f|f|ms|-2f|1:60|1:2:3:4|"
                             "1:60:00|:30|1:|1:02s|1:02f|1.-5|1.0000000001|1.0000001ms|"
                             "99999999999999999999|99999999999999999999f|9999999999.5|"
                             "999999999:00.000000001|9999999:00:00.000000001");
    for (std::string text; std::getline(texts, text, '|');)
        EXPECT_EQ(Frames(text), "-d " + text +
                                    ": give seconds as in 1.5, 500ms, 0:01.5 or "
                                    "1:02:03.5, or frames as in 12f");
    for (const std::string text : {"3600000.1", "1000:00:01", "1001:00:00", "60000:00.1"})
        EXPECT_EQ(Frames(text), "-d " + text + ": give at most 1000 hours");
}

TEST(Duration, AddsAcrossRates) { // 1001 ms of 24000: 1.001 / 24 and 1.001 / 30 s
    const Time film = {1, kFilm}, ntsc = {1, kNtsc};
    EXPECT_EQ((film + film).rate.num, 24);
    EXPECT_EQ(FramesIn(film + ntsc, {720000, 1}), 30000 + 24024);
    EXPECT_EQ(FramesIn(film - ntsc, {720000, 1}), 30000 - 24024);
    EXPECT_GT(Compare(film, ntsc), 0);
    EXPECT_EQ(Compare({25, kPal}, {24, kFilm}), 0);
}

} // namespace
