#include "Info.h"
#include "Json.h"
#include "Program.h"

#include <cstdio>
#include <memory>
#include <sstream>

namespace host {

namespace {

using hostkit::Info;
using hostkit::Transition;

void PrintWrapped(const char *label, const std::string &text) {
    constexpr std::size_t kIndent = 15, kWidth = 80;
    if (text.empty())
        return;
    std::istringstream words(text);
    std::string line, word;
    const auto flush = [&] {
        std::printf("  %-*s%s\n", int(kIndent - 2), label, line.c_str());
        label = "";
        line.clear();
    };
    while (words >> word) {
        if (!line.empty() && kIndent + line.size() + 1 + word.size() > kWidth)
            flush();
        line += (line.empty() ? "" : " ") + word;
    }
    flush();
}

std::string CurveText(hostkit::Curve curve) {
    const std::string description = hostkit::CurveDescription(curve);
    return hostkit::CurveName(curve) + (description.empty() ? "" : " (" + description + ")");
}

void PrintText(const Transition &transition) {
    const Info &info = transition.info;
    std::printf("%s\n", transition.name.c_str());
    PrintWrapped("Title", info.title);
    PrintWrapped("Known by", transition.IsRegistered()
                                 ? "registry index " + std::to_string(transition.index) +
                                       ", GUID " + transition.guid
                             : info.function.empty() ? "its name in this program"
                                                     : "the name of its exported function");
    PrintWrapped("Kind", hostkit::KindName(info.kind));
    PrintWrapped("What moves", info.motion);
    PrintWrapped("Planar path", CurveText(info.yuv));
    PrintWrapped("Packed path", CurveText(info.rgb));
    PrintWrapped("Ends", info.ends);
    PrintWrapped("Random", info.random ? "yes: the same --seed gives the same pictures" : "no");
    PrintWrapped("Remarks", info.remarks);
}

void PrintJson(const Transition &transition) {
    const Info &info = transition.info;
    const auto curve = [](hostkit::Curve c) {
        return c == hostkit::Curve::Absent ? "null" : Json(hostkit::CurveName(c));
    };
    std::printf(
        "{\"name\": %s, \"title\": %s, \"index\": %s, \"guid\": %s, \"kind\": %s, \"motion\": %s, "
        "\"curveYuv\": %s, \"curveRgb\": %s, \"ends\": %s, \"random\": %s, "
        "\"remarks\": %s}",
        Json(transition.name).c_str(), Json(info.title).c_str(),
        transition.IsRegistered() ? std::to_string(transition.index).c_str() : "null",
        transition.IsRegistered() ? Json(transition.guid).c_str() : "null",
        Json(hostkit::KindName(info.kind)).c_str(), Json(info.motion).c_str(),
        curve(info.yuv).c_str(), curve(info.rgb).c_str(), Json(info.ends).c_str(),
        Json(info.random).c_str(), Json(info.remarks).c_str());
}

void PrintMarkdown(const std::vector<const Transition *> &transitions) {
    std::printf("| Transition | What moves | Planar path | Packed path | Ends | Good to know |\n"
                "|---|---|---|---|---|---|\n");
    for (const Transition *transition : transitions) {
        const Info &info = transition->info;
        std::string remarks = info.remarks;
        if (info.random)
            remarks += std::string(remarks.empty() ? "" : " ") +
                       "Draws random numbers: repeatable with `--seed`.";
        std::printf("| `%s`%s | %s | %s | %s | %s | %s |\n", transition->name.c_str(),
                    transition->IsRegistered() ? "" : " \\*", info.motion.c_str(),
                    hostkit::CurveName(info.yuv), hostkit::CurveName(info.rgb), info.ends.c_str(),
                    remarks.c_str());
    }
    std::printf("\nA is the outgoing picture, B the incoming one. \\* exported by name only, not "
                "in the registry.\n");
}

struct InfoOptions {
    std::string name;
    bool json = false;
    bool markdown = false;
};

void Run(const Program &program, const InfoOptions &options) {
    const hostkit::Plugin plugin(program.pluginFile);
    std::vector<const Transition *> chosen;
    if (options.name.empty())
        for (const Transition &transition : plugin.Transitions())
            chosen.push_back(&transition);
    else
        chosen.push_back(&RequireTransition(plugin, options.name));
    if (options.markdown)
        return PrintMarkdown(chosen);
    const bool list = options.json && options.name.empty();
    const char *separator = list ? "[\n" : "";
    for (const Transition *transition : chosen) {
        std::printf("%s", separator);
        options.json ? PrintJson(*transition) : PrintText(*transition);
        separator = options.json ? ",\n" : "\n";
    }
    std::printf("%s", list ? "\n]\n" : options.json ? "\n" : "");
}

} // namespace

void AddInfo(CLI::App &app, Program &program) {
    const auto options = std::make_shared<InfoOptions>();
    CLI::App *command = app.add_subcommand("info", "Describe one or all transitions");
    command->add_option("NAME", options->name, "The transition; all when left out");
    CLI::Option *json = command->add_flag("--json", options->json, "Print JSON");
    command->add_flag("--markdown", options->markdown, "Print a Markdown table")->excludes(json);
    command->callback([&program, options] { Run(program, *options); });
}

} // namespace host
