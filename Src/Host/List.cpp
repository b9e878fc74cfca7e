#include "Json.h"
#include "Program.h"

#include <cstdio>
#include <memory>

namespace host {

namespace {

void PrintTable(const hostkit::Plugin &plugin) {
    std::printf("%5s  %-16s %-4s %-4s %s\n", "Index", "Name", "YUV", "RGB", "GUID");
    for (const hostkit::Transition &t : plugin.Transitions())
        std::printf("%5s  %-16s %-4s %-4s %s\n",
                    t.IsRegistered() ? std::to_string(t.index).c_str() : "-", t.name.c_str(),
                    t.yuv ? "yes" : "no", t.rgb ? "yes" : "no",
                    t.IsRegistered() ? t.guid.c_str() : "exported by name only");
}

void PrintJson(const hostkit::Plugin &plugin) {
    std::printf("{\"plugin\": %s, \"type\": %s, \"transitions\": [",
                Json(plugin.File().string()).c_str(), Json(plugin.Category()).c_str());
    const char *comma = "\n";
    for (const hostkit::Transition &t : plugin.Transitions()) {
        std::printf("%s  {\"index\": %s, \"name\": %s, \"guid\": %s, \"yuv\": %s, \"rgb\": %s}",
                    comma, t.IsRegistered() ? std::to_string(t.index).c_str() : "null",
                    Json(t.name).c_str(), t.IsRegistered() ? Json(t.guid).c_str() : "null",
                    Json(t.yuv != nullptr).c_str(), Json(t.rgb != nullptr).c_str());
        comma = ",\n";
    }
    std::printf("\n]}\n");
}

} // namespace

void AddList(CLI::App &app, Program &program) {
    const auto json = std::make_shared<bool>(false);
    CLI::App *command = app.add_subcommand("list", "List the plug-in's transitions");
    command->add_flag("--json", *json, "Print JSON");
    command->callback([&program, json] {
        const hostkit::Plugin plugin(program.pluginFile);
        *json ? PrintJson(plugin) : PrintTable(plugin);
    });
}

} // namespace host
