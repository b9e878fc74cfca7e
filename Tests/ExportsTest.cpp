// The library's dynamic symbols are its interface: hosts look up any of them by name. The test
// compares those of the file with Data/exports.txt, one symbol and what it stands for a line.

#include "Shell.h"
#include "Support.h"

#include <gtest/gtest.h>

#include <cxxabi.h>
#include <memory>
#include <set>

namespace {

/// A symbol and its readable form.
std::string WithMeaning(const std::string &symbol) {
    const std::unique_ptr<char, decltype(&std::free)> text(
        abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, nullptr), std::free);
    return symbol + ' ' + (text ? text.get() : symbol) + '\n';
}

/// The dynamic symbols that a library file defines, all of which have the version of the soname:
/// programs that link the plug-in ask for it.
std::set<std::string> Defined(const std::string &file) {
    std::istringstream lines(Output("readelf --wide --dyn-syms ", file));
    std::set<std::string> symbols;
    for (std::string line; std::getline(lines, line);) {
        std::string number, value, size, type, binding, visibility, section, name;
        std::istringstream columns(line);
        columns >> number >> value >> size >> type >> binding >> visibility >> section >> name;
        // The version itself stands among the symbols as an absolute one, and on some processors
        // sections do, which nobody can look up.
        if (name.empty() || section == "Ndx" || section == "UND" || section == "ABS" ||
            type == "SECTION")
            continue;
        EXPECT_TRUE(name.ends_with("@@TP_ERASE_1")) << name;
        symbols.insert(WithMeaning(name.substr(0, name.find('@'))));
    }
    return symbols;
}

/// What one list has and the other has not.
std::string Missing(const std::set<std::string> &from, const std::set<std::string> &wanted) {
    std::string lines;
    for (const std::string &line : wanted)
        lines += from.contains(line) ? "" : line;
    return lines;
}

TEST(Exports, AreExactlyTheListedOnes) {
    std::set<std::string> listed;
    std::ifstream stream(TP_TEST_DATA "/exports.txt");
    std::size_t functions = 0;
    for (std::string line; std::getline(stream, line); listed.insert(line + '\n'))
        functions += line.find("TransParam const*") != std::string::npos;
    const std::set<std::string> defined = Defined(TestedPlugin().File());
    EXPECT_EQ(Missing(defined, listed), "") << "no longer exported, so hosts that look it up fail";
    EXPECT_EQ(Missing(listed, defined), "") << "not in exports.txt, an internal that leaked";
    EXPECT_EQ(ExportedFunctions(TestedPlugin()).size(), functions) << "some are drawn by no test";
}

} // namespace
