/// \file Words.h
/// The program's options as text: what completion and manual are made of.
#pragma once

#include "Program.h"

#include <string>
#include <vector>

namespace host {

/// What stands behind an option, or in its place without one.
enum class Kind { Nothing, Words, Transitions, Files, Other };

struct Value {
    Kind kind;
    std::vector<std::string> words; ///< all there are, or what stands beside transitions
};

/// One option, or what stands without one.
struct Argument {
    std::vector<std::string> names; ///< with their hyphens; none when it stands without
    std::string placeholder;        ///< what the help calls its value
    std::string description, standard;
    Value value;
    bool repeats;
};

struct Command {
    std::string name, description, footer;
    std::vector<Argument> arguments;
};

/// The options of a sub-command, or those of the program itself, which stand in front.
Command Describe(const CLI::App &app);
/// The sub-commands that --help shows.
std::vector<Command> DescribeCommands(const CLI::App &app);

std::string BashCompletion(const CLI::App &app);
std::string ZshCompletion(const CLI::App &app);
/// The manual page: prose, with "@version@" replaced, and the options of each command behind its
/// line '.\" options COMMAND' (those of the program itself behind '.\" options'). Commands that the
/// prose does not have stand where it says '.\" further commands'.
std::string Manual(const CLI::App &app, const std::string &prose);

} // namespace host
