// Every reference frame, byte for byte: each row of Data/frames.csv names a call and the hashes of
// all the bytes that it leaves in the output.

#include "Support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace {

struct Row {
    int line;
    Geometry geometry;
    double total;
    double current;
    unsigned seed;
    std::array<std::string, 3> hashes;
};

using Rows = std::map<std::string, std::vector<Row>>;

const Rows &RowsByFunction() {
    static const Rows rows = [] {
        Rows result;
        std::ifstream file(TP_TEST_DATA "/frames.csv");
        std::string text;
        std::getline(file, text); // column names
        for (int line = 2; std::getline(file, text); ++line) {
            std::istringstream columns(text);
            std::vector<std::string> cells(11);
            for (std::string &cell : cells)
                std::getline(columns, cell, ',');
            const auto number = [&](std::size_t i) { return std::stoi(cells.at(i)); };
            const auto pitchUV = cells[4].empty() ? 0 : number(4);
            const auto pitch = cells[3].empty() ? 0 : number(3);
            result[cells[0]].push_back(
                {line,
                 {number(1), number(2), pitch, pitchUV, cells[0] == "roll_RT"},
                 std::stod(cells[5]),
                 std::stod(cells[6]),
                 static_cast<unsigned>(number(7)),
                 {cells[8], cells[9], cells[10]}});
        }
        if (result.empty())
            throw std::runtime_error("no reference frames in " TP_TEST_DATA "/frames.csv");
        return result;
    }();
    return rows;
}

std::string Hex(std::uint64_t hash) {
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
    return text;
}

/// The hashes that a call of the plug-in gives for a row.
template<class Function>
Function Exported(const std::string &symbol) {
    return reinterpret_cast<Function>(TestedPlugin().Symbol(symbol.c_str()));
}

class Golden : public testing::TestWithParam<std::string> {};

TEST_P(Golden, FramesMatch) {
    const std::string &function = GetParam();
    const bool packed = function.ends_with("RGB");
    const auto yuv = Exported<TransFuncYUV>(hostkit::MangledYUV(function));
    const auto rgb = Exported<TransFuncRGB>(hostkit::MangledRGB(function));
    ASSERT_TRUE(packed ? rgb != nullptr : yuv != nullptr) << function << " is not exported";
    for (const Row &row : RowsByFunction().at(function)) {
        SCOPED_TRACE("frames.csv line " + std::to_string(row.line));
        const TransParam param = MakeParam(row.total, row.current);
        if (packed) {
            PackedCall call(row.geometry.width, row.geometry.height, row.seed);
            std::srand(row.seed);
            call.Draw(rgb, param);
            EXPECT_EQ(Hex(Fnv1a(call.Pixels(0))), row.hashes[0]);
        } else {
            PlanarCall call(row.geometry, row.seed);
            std::srand(row.seed);
            call.Draw(yuv, param);
            for (int plane = 0; plane < 3; ++plane)
                EXPECT_EQ(Hex(Fnv1a(call.Plane(0, plane))), row.hashes[std::size_t(plane)])
                    << "plane " << plane;
        }
    }
}

std::vector<std::string> Functions() {
    std::vector<std::string> names;
    for (const auto &[name, rows] : RowsByFunction())
        names.push_back(name);
    return names;
}

INSTANTIATE_TEST_SUITE_P(Reference, Golden, testing::ValuesIn(Functions()),
                         [](const auto &info) { return info.param; });

} // namespace
