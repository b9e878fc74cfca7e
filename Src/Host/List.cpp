#include "Joints.h"
#include "Json.h"
#include "Program.h"

#include <cstdio>
#include <memory>

namespace host {

namespace {

void PrintTable(const hostkit::Plugin &plugin) {
    const auto print = [](const hostkit::Transition &t) {
        std::printf("%-15s %-3s %-3s  %s\n", t.name.c_str(), t.yuv ? "yuv" : "", t.rgb ? "rgb" : "",
                    t.info.motion.c_str());
    };
    std::printf(
        "A is the outgoing clip, B the incoming one; yuv and rgb are the paths that draw.\n\n");
    for (const hostkit::Transition &t : plugin.Transitions())
        if (t.IsRegistered())
            print(t);
    std::printf("\nExported by name only, not in the registry:\n");
    for (const hostkit::Transition &t : plugin.Transitions())
        if (!t.IsRegistered())
            print(t);
    std::printf("\nDrawn by this program:\n");
    for (const hostkit::PlainJoint &joint : hostkit::PlainJoints())
        print(joint.transition);
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
