// The library's dynamic symbols are its interface: hosts look up any of them by name. The test
// compares those of the file with Data/exports.txt, one symbol and what it stands for a line.

#include "Shell.h"
#include "Support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cxxabi.h>
#include <map>
#include <memory>

namespace {

/// Symbols, each with its readable form.
using Symbols = std::map<std::string, std::string>;

std::string Readable(const std::string &symbol) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(
        abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status), std::free);
    return status == 0 ? text.get() : symbol;
}

/// The dynamic symbols that a library file defines, all of which have the version of the soname:
/// programs that link the plug-in ask for it.
Symbols Defined(const std::string &file) {
    std::istringstream lines(Shell("readelf --wide --dyn-syms " + file).output);
    Symbols symbols;
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
        name.resize(std::min(name.find('@'), name.size()));
        symbols[name] = Readable(name);
    }
    return symbols;
}

Symbols Listed() {
    std::ifstream stream(TP_TEST_DATA "/exports.txt");
    Symbols symbols;
    for (std::string symbol, text; stream >> symbol && std::getline(stream >> std::ws, text);)
        symbols[symbol] = text;
    return symbols;
}

/// What one list has and the other has not.
std::string Missing(const Symbols &from, const Symbols &wanted) {
    std::string names;
    for (const auto &[symbol, text] : wanted)
        if (!from.contains(symbol))
            names += "\n" + symbol + " " + text;
    return names;
}

TEST(Exports, AreExactlyTheListedOnes) {
    const Symbols defined = Defined(TestedPlugin().File());
    const Symbols listed = Listed();
    const std::string removed = Missing(defined, listed), added = Missing(listed, defined);
    EXPECT_TRUE(removed.empty()) << "no longer exported, so hosts that look it up fail:" << removed;
    EXPECT_TRUE(added.empty()) << "not in exports.txt, an internal that leaked:" << added;
    for (const auto &[symbol, text] : listed)
        EXPECT_EQ(text, Readable(symbol));
}

} // namespace
