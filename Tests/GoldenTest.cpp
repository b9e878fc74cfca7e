// Reference frames: calls of the plug-in's functions and the hashes of all the bytes that each
// leaves in the output, one call a line of Data/frames.csv. The contents of all frames follow from
// the seed, which rand() is seeded with too. A new line needs no hashes: the failing test prints it
// with those that the plug-in draws.

#include "Support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <sstream>

namespace {

/// 64-bit FNV-1a.
std::uint64_t Fnv1a(std::span<const std::uint8_t> bytes) {
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (const std::uint8_t byte : bytes)
        hash = (hash ^ byte) * 0x100000001b3U;
    return hash;
}

/// What a line should be, given the call that it begins with.
std::string DrawnLine(const ExportedFunction &function, const std::string &line) {
    std::istringstream columns(line);
    std::ostringstream drawn;
    std::string cells[8];
    for (std::string &cell : cells) {
        std::getline(columns, cell, ',');
        drawn << cell << ',';
    }
    const auto number = [&](int i) { return std::atof(cells[i].c_str()); };
    const Geometry geometry = {int(number(1)), int(number(2)), int(number(3)), int(number(4)),
                               function.fullChroma};
    FrameCall call(function.function, geometry, unsigned(number(7)));
    std::srand(unsigned(number(7)));
    call.Draw(MakeParam(number(5), number(6)));
    for (int plane = 0; plane < 3; ++plane) {
        drawn << (plane ? "," : "");
        if (plane < int(call.Planes().size()))
            drawn << std::hex << std::setw(16) << std::setfill('0') << Fnv1a(call.Plane(0, plane));
    }
    return drawn.str();
}

class Golden : public testing::TestWithParam<ExportedFunction> {};

TEST_P(Golden, FramesMatch) {
    if (TestedIsa().empty())
        GTEST_SKIP() << "this machine has no such kernels";
    std::ifstream file(TP_TEST_DATA "/frames.csv");
    int count = 0;
    for (std::string line; std::getline(file, line);) {
        if (!line.starts_with(GetParam().name + ','))
            continue;
        EXPECT_EQ(line, DrawnLine(GetParam(), line));
        ++count;
    }
    EXPECT_GE(count, 5) << "reference frames are missing";
}

INSTANTIATE_TEST_SUITE_P(Reference, Golden, testing::ValuesIn(ExportedFunctions(TestedPlugin())),
                         testing::PrintToStringParamName());

} // namespace
