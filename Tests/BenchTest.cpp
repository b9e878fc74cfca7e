// The program's bench: what it measures, and what it refuses.

#include "Shell.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <utility>

namespace {

constexpr char kBench[] = "bench --memory 1 --seconds 0 ";

std::string BenchOfTestPlugin(const std::string &arguments, int status = 0) {
    const Outcome outcome = Program("--plugin " TP_BENCH_PLUGIN " ", kBench, arguments);
    EXPECT_EQ(outcome.status, status) << outcome.output;
    return outcome.output;
}

bool Has(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

TEST(Bench, ComparesEachFrameWithTheBaselineKernels) {
    const std::string said = BenchOfTestPlugin("-t Copy -t WrongLate --size 33x17", 1);
    EXPECT_TRUE(Has(said, "\nCopy ") && !Has(said, "\nWrongLate ")) << said;
    EXPECT_TRUE(Has(said, "transitions: WrongLate YUV at 0.85 of 33x17: ")) << said;
    const std::string table = BenchOfTestPlugin("--markdown -t WrongLate", 1);
    EXPECT_TRUE(Has(table, "transitions: WrongLate YUV at 0.85 of ")) << table;
    EXPECT_TRUE(Has(BenchOfTestPlugin("-t Crash --size 8x8", 1), "\ntransitions: "));
}

TEST(Bench, PrintsTimesThatShowAndTheirRatio) {
    const std::map<std::string, double> nanoseconds = {
        {"ns", 1}, {"us", 1e3}, {"ms", 1e6}, {"s", 1e9}};
    for (const std::string size : {"1x1", "64x36", "640x360"}) {
        const std::string said = Output(TP_PROGRAM " ", kBench,
                                        "-t Erase -t TrEraseShift -t Roll_right_top --size ", size);
        std::istringstream lines(said.substr(said.find("Copied") + 7));
        std::string rows, name, path, drawnUnit, copiedUnit;
        double ratio, drawn, copied;
        while (lines >> name >> path >> ratio >> drawn >> drawnUnit >> copied >> copiedUnit) {
            rows += name + " " + path + ", ";
            EXPECT_GT(copied, 0) << said;
            const double times =
                drawn * nanoseconds.at(drawnUnit) / (copied * nanoseconds.at(copiedUnit));
            EXPECT_NEAR(ratio, times, 0.005 + 0.011 * times) << said;
        }
        EXPECT_EQ(rows, "Erase yuv, TrEraseShift yuv, Roll_right_top yuv, Erase rgb, "
                        "Roll_right_top rgb, ")
            << said;
    }
}

TEST(Bench, CountsRandomNumbersWhereThereAreMany) {
    const std::string random = BenchOfTestPlugin("-t Random --size 40x30");
    const std::size_t behind = random.find(" times its 2400 calls of rand()\n");
    ASSERT_NE(behind, std::string::npos) << random;
    // It does little else, so its time is theirs.
    const double times = std::atof(&random[random.rfind("  ", behind)]);
    EXPECT_TRUE(times > 0.7 && times < 4) << random;
    EXPECT_FALSE(Has(BenchOfTestPlugin("-t Copy --size 40x30"), "rand()"));
    EXPECT_FALSE(Has(Program(kBench, "-t Wind --size 40x30").output, "rand()")); // few
}

TEST(Bench, MarkdownMeasuresEachColumnWithItsKernels) {
    const std::string table = BenchOfTestPlugin("--markdown -t SlowBaseline");
    EXPECT_TRUE(Has(table, "| 1920 x 1080, AVX2 | 1920 x 1080, baseline |")) << table;
    std::istringstream row(table.substr(table.find("| SlowBaseline YUV |") + 20));
    std::vector<double> slow;
    for (double number; row >> number; row.ignore(2))
        slow.push_back(number);
    ASSERT_EQ(slow.size(), 7U) << table;
    const double baseline = std::exchange(slow[5], 0);
    EXPECT_LT(*std::ranges::max_element(slow), baseline / 2) << table;
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
