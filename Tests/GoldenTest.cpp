// Every reference frame, byte for byte, and some of every exported function.

#include "Reference.h"

#include <gtest/gtest.h>

#include <fstream>

namespace {

using References = std::map<std::string, std::vector<Reference>>;

const References &AllReferences() {
    static const References references = ReadReferences();
    return references;
}

class Golden : public testing::TestWithParam<std::string> {};

TEST_P(Golden, FramesMatch) {
    for (const Reference &reference : AllReferences().at(GetParam()))
        EXPECT_EQ(DrawnHashes(reference), reference.hashes) << "frames.csv line " << reference.line;
}

std::vector<std::string> Functions() {
    std::vector<std::string> names;
    for (const auto &[name, rows] : AllReferences())
        names.push_back(name);
    return names;
}

INSTANTIATE_TEST_SUITE_P(Reference, Golden, testing::ValuesIn(Functions()),
                         [](const auto &info) { return info.param; });

// The list of exports is known to be whole. Functions with parameters draw.
TEST(ReferenceFrames, AreThereForEveryExportedFunction) {
    constexpr std::size_t kFewest = 5;
    std::ifstream exports(TP_TEST_DATA "/exports.txt");
    int functions = 0;
    for (std::string symbol, text; exports >> symbol && std::getline(exports >> std::ws, text);) {
        if (text.find("TransParam const*") == std::string::npos)
            continue;
        ++functions;
        const std::string name = text.substr(0, text.find('('));
        const auto found = AllReferences().find(name);
        ASSERT_NE(found, AllReferences().end())
            << name << " has no reference frames: RecordFrames " << name << " adds some";
        EXPECT_GE(found->second.size(), kFewest) << name;
    }
    EXPECT_GT(functions, 0);
}

} // namespace
