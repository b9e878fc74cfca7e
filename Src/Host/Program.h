/// \file Program.h
/// What the sub-commands of the program share.
#pragma once

#include "Draw.h"
#include "EditList.h"
#include "Failure.h"
#include "Plugin.h"

#include <CLI/CLI.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace host {

/// Options in front of the sub-command.
struct Program {
    std::filesystem::path pluginFile;
};

/// The plug-in that a host finds without being told: beside the program, else in the library folder
/// of the installation that the program belongs to.
std::filesystem::path DefaultPlugin();

/// The transition or plain joint of this name; throws a Failure that offers the nearest names, by
/// their letters or by what other programs call so.
const hostkit::Transition &RequireTransition(const hostkit::Plugin &plugin,
                                             const std::string &name);

/// What names in edit lists mean, those of other programs too; the plug-in outlives the answer.
FindJoint JointFinder(const hostkit::Plugin &plugin);

/// The transitions of these names, or without names all that have a function.
std::vector<const hostkit::Transition *> ChooseTransitions(const hostkit::Plugin &plugin,
                                                           const std::vector<std::string> &names);

using hostkit::Path;
/// Throws a Failure when the transition lacks the path.
void RequirePath(const hostkit::Transition &transition, Path path);

struct Size {
    int width;
    int height;
};
/// "1280x720" to its two numbers; throws a Failure that names the option.
Size ParseSize(const std::string &text, const std::string &option = "--size");

/// The value of a word; throws a Failure that tells all of them.
template<class Value>
Value Choose(const std::string &option, const std::string &word,
             std::initializer_list<std::pair<const char *, Value>> words) {
    std::string all;
    for (const auto &[name, value] : words) {
        if (word == name)
            return value;
        all += (all.empty() ? "" : ", ") + std::string(name);
    }
    throw Failure(option + " " + word + ": there are " + all);
}

/// The paths that "yuv", "rgb" or "both" names; throws a Failure for another word.
std::vector<Path> ChoosePaths(const std::string &word);

/// The easing of this name; throws a Failure that tells all of them.
const hostkit::Easing &RequireEasing(const std::string &name);

/// Refuses what is no number from low to high, in plain words.
CLI::Validator Between(double low, double high);

// Each sub-command adds itself to the program; its callback runs it. The program's record outlives
// the call.
void AddRender(CLI::App &app, Program &program);
void AddJoin(CLI::App &app, Program &program);
void AddList(CLI::App &app, Program &program);
void AddInfo(CLI::App &app, Program &program);
void AddBench(CLI::App &app, Program &program);
void AddSheet(CLI::App &app, Program &program);
void AddPreview(CLI::App &app, Program &program);
void AddGallery(CLI::App &app, Program &program);
void AddPictures(CLI::App &app, Program &program);
void AddMap(CLI::App &app, Program &program);
void AddStinger(CLI::App &app, Program &program);
void AddCompletion(CLI::App &app, Program &program);

} // namespace host
