// The library's dynamic symbols are its interface: hosts look up any of them by name. The test
// reads them from the file itself and compares them with Data/exports.txt, one symbol and what it
// stands for a line.

#include "Support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <cxxabi.h>
#include <dlfcn.h>
#include <elf.h>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>
#include <vector>

namespace {

/// Symbols, each with its readable form.
using Symbols = std::map<std::string, std::string>;

template<class T>
T At(const std::vector<char> &file, std::size_t offset) {
    if (offset + sizeof(T) > file.size())
        throw std::runtime_error("the library file ends early");
    T value;
    std::memcpy(&value, file.data() + offset, sizeof value);
    return value;
}

std::string Readable(const std::string &symbol) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(
        abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status), std::free);
    return status == 0 ? text.get() : symbol;
}

/// The dynamic symbols that a library file defines.
Symbols Defined(const std::filesystem::path &path) {
    std::ifstream stream(path, std::ios::binary);
    const std::vector<char> file(std::istreambuf_iterator<char>(stream), {});
    const auto header = At<Elf64_Ehdr>(file, 0);
    const auto section = [&](std::size_t i) {
        return At<Elf64_Shdr>(file, header.e_shoff + i * header.e_shentsize);
    };
    Symbols symbols;
    for (std::size_t i = 0; i < header.e_shnum; ++i) {
        const Elf64_Shdr table = section(i);
        if (table.sh_type != SHT_DYNSYM)
            continue;
        const Elf64_Shdr names = section(table.sh_link);
        for (std::size_t at = 0; at < table.sh_size; at += table.sh_entsize) {
            const auto symbol = At<Elf64_Sym>(file, table.sh_offset + at);
            // The version itself stands among the symbols as an absolute one, and on some
            // processors sections do, which nobody can look up.
            if (symbol.st_shndx == SHN_UNDEF || symbol.st_shndx == SHN_ABS ||
                ELF64_ST_TYPE(symbol.st_info) == STT_SECTION)
                continue;
            const std::string name = &file.at(names.sh_offset + symbol.st_name);
            symbols[name] = Readable(name);
        }
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

// Programs that link the plug-in ask for this version, so it stays as long as the soname does.
TEST(Exports, HaveTheVersionOfTheSoname) {
    void *library = dlopen(TestedPlugin().File().c_str(), RTLD_NOW);
    ASSERT_NE(library, nullptr) << dlerror();
    for (const auto &[symbol, text] : Listed())
        EXPECT_NE(dlvsym(library, symbol.c_str(), "TP_ERASE_1"), nullptr) << text;
    dlclose(library);
}

} // namespace
