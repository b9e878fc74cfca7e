/// \file Plugin.h
/// The plug-in library as a host sees it: loaded at run time, listed, called.
#pragma once

#include "Info.h"
#include "tp_Erase.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace hostkit {

/// One transition of a loaded plug-in, registered or exported by name only.
struct Transition {
    int index;        ///< row of the registry, -1 for one exported by name only
    std::string name; ///< the registry's name, or the exported function's
    std::string guid; ///< empty for one exported by name only
    TransFuncYUV yuv; ///< null when the plug-in has no planar path
    TransFuncRGB rgb; ///< null when the plug-in has no packed path
    Info info;        ///< what else is known of it
    bool IsRegistered() const { return index >= 0; }
};

/// The plug-in that a module of another program loads: the file that the environment variable
/// TP_ERASE_PLUGIN names, else the one beside the module, else the one at this place seen from the
/// module's folder. Throws std::runtime_error when the variable is empty.
/// \param module an address within the module
std::filesystem::path PluginOf(const void *module, const std::filesystem::path &installed);

/// The symbol of an exported planar or packed transition function, by the platform's mangling.
std::string MangledYUV(std::string_view function);
std::string MangledRGB(std::string_view function);

/// A loaded plug-in. Transitions point into it and live as long as it does.
class Plugin {
public:
    /// Loads the library and reads its registry; throws std::runtime_error with one line that
    /// names the file and what is wrong with it.
    explicit Plugin(const std::filesystem::path &file);
    ~Plugin();
    Plugin(const Plugin &) = delete;
    Plugin &operator=(const Plugin &) = delete;

    const std::filesystem::path &File() const { return file; }
    /// What GetTransType answers.
    const std::string &Category() const { return category; }
    /// The registered transitions in registry order, then those exported by name only.
    const std::vector<Transition> &Transitions() const { return transitions; }
    /// The transition of this name (letter case is ignored unless two differ by it alone), or null.
    const Transition *Find(std::string_view name) const;
    /// The address of an exported symbol, or null.
    void *Symbol(const char *symbol) const;

private:
    void Close();
    void ReadRegistry();
    void ReadNamed();

    std::filesystem::path file;
    void *library = nullptr;
    std::string category;
    std::vector<Transition> transitions;
};

} // namespace hostkit
