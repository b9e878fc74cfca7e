/// The program `transitions`: the plug-in's transitions between clips and pictures.

#include "Program.h"

#include <cstdio>
#include <exception>

namespace {

/// Every sub-command, in the order of --help.
const std::vector<void (*)(CLI::App &, host::Program &)> kCommands = {
    host::AddRender,   host::AddJoin, host::AddPreview, host::AddGallery,
    host::AddSheet,    host::AddList, host::AddInfo,    host::AddBench,
    host::AddPictures, host::AddMap,  host::AddStinger, host::AddCompletion};

/// Refuses a first argument that is neither an option nor a sub-command.
void CheckCommand(const CLI::App &app, const std::string &asked) {
    std::string names;
    for (const CLI::App *command : app.get_subcommands({})) {
        if (asked == command->get_name())
            return;
        if (command->get_group().empty()) // for shells and the build, not for users
            continue;
        names += (names.empty() ? "" : ", ") + command->get_name();
    }
    if (!asked.starts_with('-'))
        throw CLI::Error("", asked.empty()
                                 ? "give a command: " + names
                                 : "there is no command " + asked + "; there are " + names);
}

/// What CLI11 says, in plain words.
std::string Reworded(const std::string &what) {
    const std::string start = "Could not convert: ";
    if (what.starts_with(start))
        return what.substr(start.size()) + ": give a number";
    const std::string option = what.substr(0, what.find(": "));
    if (what.ends_with(" missing"))
        return option + ": its value is missing";
    return what.find(" but received ") != std::string::npos ? option + ": give it once" : what;
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app("Video transitions between clips and pictures, drawn by libtp_Erase.so.");
    try {
        host::Program program{host::DefaultPlugin()};
        app.add_option(
               "--plugin", program.pluginFile,
               "The plug-in library to load, not the one beside the program or installed with it")
            ->type_name("PATH");
        app.set_version_flag("--version", TP_VERSION);
        app.require_subcommand(1);
        for (const auto add : kCommands)
            add(app, program);
        CheckCommand(app, argc > 1 ? argv[1] : "");
        app.parse(argc, argv);
    } catch (const CLI::Success &request) {
        return app.exit(request); // --help, --version
    } catch (const CLI::Error &error) {
        std::fprintf(stderr, "transitions: %s (see --help)\n", Reworded(error.what()).c_str());
        return 2;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "transitions: %s\n", error.what());
        return 1;
    }
}
