#include "Plugin.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fstream>
#include <link.h>
#include <stdexcept>

namespace hostkit {

namespace {

/// Names and GUIDs are plain ASCII in the plug-in; anything else shows as '?'.
std::string Narrow(const wchar_t *text, std::size_t size) {
    std::string result;
    for (std::size_t i = 0; i < size && text[i]; ++i)
        result += text[i] > 0 && text[i] < 128 ? static_cast<char>(text[i]) : '?';
    return result;
}

/// Whether a text ends inside its field and is made of characters.
bool IsText(const wchar_t *text, std::size_t size) {
    const wchar_t *end = std::find(text, text + size, L'\0');
    return end != text + size &&
           std::all_of(text, end, [](wchar_t c) { return c >= 32 && c <= 0x10ffff; });
}

/// Whether a record holds what this interface has at its offsets.
bool HasThisLayout(const TransInfo &row) {
    constexpr std::uint32_t kTransition = 2;
    return row.nType == kTransition && row.szName[0] && IsText(row.szName, std::size(row.szName)) &&
           IsText(row.szGUID, std::size(row.szGUID));
}

bool EqualIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](unsigned char x, unsigned char y) {
        return std::tolower(x) == std::tolower(y);
    });
}

std::string Mangled(std::string_view function, const char *parameters) {
    return "_Z" + std::to_string(function.size()) + std::string(function) + parameters;
}

/// Throws for a library that ends before what it wants to have mapped does: whoever touches the
/// missing part would end the process. What is no library at all the loader tells.
void CheckLength(const std::filesystem::path &file) {
    std::ifstream bytes(file, std::ios::binary);
    ElfW(Ehdr) header;
    const auto read = [&](std::uintmax_t at, auto &record) {
        bytes.seekg(std::streamoff(at));
        return bool(bytes.read(reinterpret_cast<char *>(&record), sizeof record));
    };
    if (!read(0, header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0)
        return;
    const std::uintmax_t size = std::filesystem::file_size(file);
    for (int i = 0; i < header.e_phnum; ++i) {
        ElfW(Phdr) part;
        const bool isThere = read(header.e_phoff + std::uintmax_t(i) * sizeof part, part);
        if (!isThere || (part.p_type == PT_LOAD && part.p_offset + part.p_filesz > size))
            throw std::runtime_error("the plug-in " + file.string() + " is cut short after " +
                                     std::to_string(size) + " bytes: copy or build it again");
    }
}

} // namespace

std::string MangledYUV(std::string_view function) {
    return Mangled(function, "P8YUVImagePKS_S2_PK10TransParam");
}

std::string MangledRGB(std::string_view function) {
    return Mangled(function, "PvS_S_PK10TransParam");
}

std::filesystem::path PluginOf(const void *module, const std::filesystem::path &installed) {
    if (const char *named = std::getenv("TP_ERASE_PLUGIN")) {
        if (!*named)
            throw std::runtime_error("TP_ERASE_PLUGIN is empty: it takes the plug-in's file");
        return named;
    }
    Dl_info info = {};
    dladdr(module, &info);
    const std::filesystem::path folder = std::filesystem::canonical(info.dli_fname).parent_path();
    const std::filesystem::path beside = folder / "libtp_Erase.so";
    return std::filesystem::exists(beside) ? beside : (folder / installed).lexically_normal();
}

Plugin::Plugin(const std::filesystem::path &path) : file(path) {
    CheckLength(file);
    // An absolute path keeps dlopen from searching the system's folders instead. The library stays
    // in memory: it keeps tables and worker threads for the life of the process.
    library =
        dlopen(std::filesystem::absolute(file).c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!library)
        throw std::runtime_error("cannot load the plug-in " + file.string() + ": " + dlerror());
    try {
        ReadRegistry();
        ReadNamed();
    } catch (...) {
        Close();
        throw;
    }
}

Plugin::~Plugin() {
    Close();
}

void Plugin::Close() {
    dlclose(library);
}

void *Plugin::Symbol(const char *symbol) const {
    return dlsym(library, symbol);
}

void Plugin::ReadRegistry() {
    const auto type = reinterpret_cast<decltype(&GetTransType)>(Symbol("GetTransType"));
    const auto count = reinterpret_cast<decltype(&GetTransCount)>(Symbol("GetTransCount"));
    const auto info = reinterpret_cast<decltype(&GetTransInfo)>(Symbol("GetTransInfo"));
    if (!type || !count || !info)
        throw std::runtime_error(file.string() + " is not a transition plug-in: it lacks " +
                                 "GetTransType, GetTransCount or GetTransInfo");
    category = type();
    for (int i = 0; i < count(); ++i) {
        const TransInfo *row = info(i);
        if (!row)
            throw std::runtime_error(file.string() + " has no record for transition " +
                                     std::to_string(i));
        if (!HasThisLayout(*row))
            throw std::runtime_error(file.string() + ": its record of transition " +
                                     std::to_string(i) + " is not laid out as this program reads " +
                                     "them; use a plug-in of the same version");
        const std::string name = Narrow(row->szName, std::size(row->szName));
        transitions.push_back({i, name, Narrow(row->szGUID, std::size(row->szGUID)),
                               row->pfnTransYUV, row->pfnTransRGB, InfoFor(name)});
    }
}

void Plugin::ReadNamed() {
    for (const NamedTrans &named : g_arNamedTrans) {
        const Info info = InfoFor(named.szName);
        const auto yuv = reinterpret_cast<TransFuncYUV>(Symbol(MangledYUV(info.function).c_str()));
        const auto rgb =
            reinterpret_cast<TransFuncRGB>(Symbol(MangledRGB(info.PackedFunction()).c_str()));
        if (yuv || rgb)
            transitions.push_back({-1, named.szName, "", yuv, rgb, info});
    }
}

const Transition *Plugin::Find(std::string_view name) const {
    const auto find = [&](auto equal) -> const Transition * {
        const auto found = std::find_if(transitions.begin(), transitions.end(),
                                        [&](const Transition &t) { return equal(t.name, name); });
        return found == transitions.end() ? nullptr : &*found;
    };
    if (const Transition *exact = find(std::equal_to<std::string_view>()))
        return exact;
    return find(EqualIgnoringCase);
}

} // namespace hostkit
