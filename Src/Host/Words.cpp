#include "Words.h"

#include "Motion.h"

#include <algorithm>
#include <sstream>

namespace host {

namespace {

std::vector<std::string> Split(const std::string &text, char mark) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, mark);)
        parts.push_back(part);
    return parts;
}

std::vector<std::string> EasingNames() {
    std::vector<std::string> names;
    for (const hostkit::Easing &easing : hostkit::Easings())
        names.emplace_back(easing.name);
    return names;
}

/// What may stand for a value, by the names that options have in every command and by the types
/// that the help shows: alternatives are written yuv|rgb, and NAME among them is that of a
/// transition.
Value ValueOf(const CLI::Option &option, const std::string &type) {
    if (option.get_items_expected_max() == 0)
        return {Kind::Nothing, {}};
    std::vector<std::string> words;
    if (type.find('|') != std::string::npos)
        words = Split(type, '|');
    if (option.check_lname("transition") || option.get_name() == "NAME") {
        std::erase(words, "NAME");
        return {Kind::Transitions, words};
    }
    if (option.check_lname("ease"))
        return {Kind::Words, EasingNames()};
    if (!words.empty())
        return {Kind::Words, words};
    const bool isFile = type.starts_with("FILE") || type.starts_with("PATH");
    return {isFile ? Kind::Files : Kind::Other, {}};
}

Argument Describe(const CLI::Option &option) {
    Argument argument;
    for (const std::string &name : option.get_snames())
        argument.names.push_back("-" + name);
    for (const std::string &name : option.get_lnames())
        argument.names.push_back("--" + name);
    const std::string type = option.get_type_name();
    argument.value = ValueOf(option, type);
    if (argument.value.kind != Kind::Nothing)
        argument.placeholder = argument.names.empty() ? option.get_name() : type;
    argument.description = option.get_description();
    argument.standard = option.get_default_str();
    argument.repeats = option.get_expected_max() > 1;
    return argument;
}

} // namespace

Command Describe(const CLI::App &app) {
    Command command = {app.get_name(), app.get_description(), app.get_footer(), {}};
    for (const CLI::Option *option : app.get_options())
        if (!option->get_group().empty())
            command.arguments.push_back(Describe(*option));
    return command;
}

std::vector<Command> DescribeCommands(const CLI::App &app) {
    std::vector<Command> commands;
    for (const CLI::App *command : app.get_subcommands({}))
        if (!command->get_group().empty())
            commands.push_back(Describe(*command));
    return commands;
}

} // namespace host
