// The program's bench: what it measures, and what it refuses.

#include "Shell.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <sstream>
#include <vector>

namespace {

Outcome Bench(const std::string &arguments) {
    return Program("bench --memory 1 --seconds 0 ", arguments);
}

Outcome BenchOfTestPlugin(const std::string &arguments) {
    return Program("--plugin " TP_BENCH_PLUGIN " bench --memory 1 --seconds 0 ", arguments);
}

TEST(Bench, ComparesEachFrameWithTheBaselineKernels) {
    const Outcome outcome = BenchOfTestPlugin("-t Copy -t WrongLate --size 33x17");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.output.find("\nCopy "), std::string::npos) << outcome.output;
    EXPECT_NE(outcome.output.find("transitions: WrongLate YUV at 0.85 of 33x17: "),
              std::string::npos)
        << outcome.output;
    EXPECT_EQ(outcome.output.find("\nWrongLate "), std::string::npos) << outcome.output;
    const Outcome table = BenchOfTestPlugin("--markdown -t WrongLate");
    EXPECT_NE(table.output.find("transitions: WrongLate YUV at 0.85 of "), std::string::npos)
        << table.output;
}

TEST(Bench, TellsOfCrashes) {
    const Outcome outcome = BenchOfTestPlugin("-t Crash --size 8x8");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.output.find("\ntransitions: "), std::string::npos) << outcome.output;
}

double Nanoseconds(double value, const std::string &unit) {
    static const std::map<std::string, double> units = {
        {"ns", 1}, {"us", 1e3}, {"ms", 1e6}, {"s", 1e9}};
    return value * units.at(unit);
}

TEST(Bench, PrintsTimesThatShowAndTheirRatio) {
    for (const std::string size : {"1x1", "64x36", "640x360"}) {
        const Outcome outcome = Bench("-t Erase -t TrEraseShift -t Roll_right_top --size " + size);
        EXPECT_EQ(outcome.status, 0) << outcome.output;
        std::istringstream lines(outcome.output.substr(outcome.output.find("Copied")));
        lines.ignore(7);
        std::string rows, name, path, drawnUnit, copiedUnit;
        double ratio, drawnValue, copiedValue;
        while (lines >> name >> path >> ratio >> drawnValue >> drawnUnit >> copiedValue >>
               copiedUnit) {
            rows += name + " " + path + ", ";
            const double drawn = Nanoseconds(drawnValue, drawnUnit);
            const double copied = Nanoseconds(copiedValue, copiedUnit);
            EXPECT_GT(copied, 0) << outcome.output;
            EXPECT_NEAR(ratio, drawn / copied, 0.005 + 0.011 * drawn / copied) << outcome.output;
        }
        EXPECT_EQ(
            rows,
            "Erase yuv, TrEraseShift yuv, Roll_right_top yuv, Erase rgb, Roll_right_top rgb, ")
            << outcome.output;
    }
}

TEST(Bench, CountsRandomNumbersWhereThereAreMany) {
    const std::string random = BenchOfTestPlugin("-t Random --size 40x30").output;
    const std::size_t behind = random.find(" times its 2400 calls of rand()\n");
    ASSERT_NE(behind, std::string::npos) << random;
    // It does little else, so its time is theirs.
    const double times = std::atof(&random[random.rfind("  ", behind)]);
    EXPECT_TRUE(times > 0.7 && times < 4) << random;
    EXPECT_EQ(BenchOfTestPlugin("-t Copy --size 40x30").output.find("rand()"), std::string::npos);
    EXPECT_EQ(Bench("-t Wind --size 40x30").output.find("rand()"), std::string::npos); // few
}

std::vector<double> Numbers(const std::string &table, const std::string &heading) {
    const std::size_t start = table.find("| " + heading + " |");
    if (start == std::string::npos)
        return {};
    std::istringstream row(table.substr(start + heading.size() + 4));
    std::vector<double> numbers;
    for (double number; row >> number; row.ignore(2))
        numbers.push_back(number);
    return numbers;
}

TEST(Bench, MarkdownMeasuresEachColumnWithItsKernels) {
    const Outcome outcome = BenchOfTestPlugin("--markdown -t SlowBaseline");
    const std::vector<double> slow = Numbers(outcome.output, "SlowBaseline YUV");
    ASSERT_EQ(slow.size(), 7U) << outcome.output;
    const auto slowest = std::max_element(slow.begin(), slow.end());
    EXPECT_NE(outcome.output.find("| 1920 x 1080, AVX2 | 1920 x 1080, baseline |"),
              std::string::npos);
    EXPECT_EQ(slowest - slow.begin(), 5) << outcome.output;
    for (auto other = slow.begin(); other != slow.end(); ++other)
        EXPECT_TRUE(other == slowest || *other < *slowest / 2) << outcome.output;
}

TEST(Bench, RefusesWhatItCannotMeasure) {
    const Answer kAnswers[] = {
        {"--size 64x36junk", "--size 64x36junk: give the size as WIDTHxHEIGHT"},
        {"--size 64x36x8", "--size 64x36x8: "},
        {"--size 64", "--size 64: "},
        {"--size 64x", "--size 64x: "},
        {"--size 0x36", "--size 0x36: "},
        {"--size 64x-36", "--size 64x-36: "},
        {"--size 99999999999x36", "--size 99999999999x36: "},
        {"-t TrDropShift --path rgb", "\"TrDropShift\" has no rgb path; use --path yuv"},
        {"--path sideways", "--path sideways: there are yuv, rgb, both"},
        {"--memory 0", "--memory: give a number from 1 to 65536, not 0", 2},
        {"--markdown --size 64x36", "excludes", 2},
    };
    ExpectAnswers(TP_PROGRAM " bench -t Push", kAnswers);
}

} // namespace
