/// The program `transitions`: the plug-in's transitions between clips and pictures.

#include "Program.h"

#include <cstdio>
#include <exception>

namespace {

/// Every sub-command, in the order of --help.
const std::vector<void (*)(CLI::App &, host::Program &)> kCommands = {
    host::AddRender, host::AddSheet, host::AddList,
    host::AddInfo,   host::AddBench, host::AddPictures};

} // namespace

int main(int argc, char **argv) {
    CLI::App app("Video transitions between clips and pictures, drawn by libtp_Erase.so.");
    try {
        host::Program program{host::DefaultPlugin()};
        app.add_option("--plugin", program.pluginFile, "The plug-in library to load")
            ->type_name("PATH")
            ->capture_default_str();
        app.set_version_flag("--version", TP_VERSION);
        app.require_subcommand(1);
        for (const auto add : kCommands)
            add(app, program);
        app.parse(argc, argv);
    } catch (const CLI::Success &request) {
        return app.exit(request); // --help, --version
    } catch (const CLI::ConversionError &error) {
        const std::string what = error.what(), start = "Could not convert: ";
        std::fprintf(stderr, "transitions: %s: give a number (see --help)\n",
                     what.substr(what.starts_with(start) ? start.size() : 0).c_str());
        return 2;
    } catch (const CLI::Error &error) {
        std::fprintf(stderr, "transitions: %s (see --help)\n", error.what());
        return 2;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "transitions: %s\n", error.what());
        return 1;
    }
}
