#include "Measure.h"
#include "Program.h"

#include <cstdio>
#include <memory>

namespace host {

namespace {

struct Options {
    std::vector<std::string> names;
    std::string size = "1920x1080";
    std::string path = "both";
    double seconds = 0.5;
    std::size_t mebibytes = 192;
};

/// The functions of the chosen transitions by the chosen paths. A transition that the user named
/// must have the path.
std::vector<hostkit::Function> ChooseFunctions(const hostkit::Plugin &plugin,
                                               const Options &options) {
    std::vector<hostkit::Function> functions;
    for (const hostkit::Transition *t : ChooseTransitions(plugin, options.names)) {
        if (options.path != "both" && !options.names.empty())
            RequirePath(*t, options.path == "yuv" ? Path::Yuv : Path::Rgb);
        if (options.path != "rgb" && t->yuv)
            functions.push_back({t, true});
        if (options.path != "yuv" && t->rgb)
            functions.push_back({t, false});
    }
    return functions;
}

/// Three digits in the unit that shows them.
std::string TimeText(double nanoseconds) {
    double value = nanoseconds;
    const char *unit = "ns";
    for (const char *larger : {"us", "ms", "s"})
        if (value >= 999.5) {
            value /= 1000;
            unit = larger;
        }
    char text[32];
    std::snprintf(text, sizeof text, "%#.3g", value);
    std::string digits = text;
    if (digits.back() == '.')
        digits.pop_back();
    return digits + " " + unit;
}

void PrintCost(const hostkit::Function &function, const hostkit::Cost &cost) {
    std::printf("%-16s %-4s %7.2f %10s %10s", function.transition->name.c_str(),
                function.planar ? "yuv" : "rgb", cost.InCopies(), TimeText(cost.draw).c_str(),
                TimeText(cost.copy).c_str());
    if (cost.randomNumbers)
        std::printf("   %.2f times its %lld calls of rand()", cost.InRandomNumbers(),
                    static_cast<long long>(cost.randomNumbers));
    std::printf("\n");
    std::fflush(stdout);
}

void Run(const Program &program, const Options &options) {
    const hostkit::Plugin plugin(program.pluginFile);
    const Size size = ParseSize(options.size);
    const std::vector<hostkit::Function> functions = ChooseFunctions(plugin, options);
    std::printf("A frame of %dx%d pixels drawn and read once, beside one copied and read once\n\n"
                "%-16s %-4s %7s %10s %10s\n",
                size.width, size.height, "Transition", "Path", "Ratio", "Drawn", "Copied");
    std::fflush(stdout);
    hostkit::Measure(functions, {size.width, size.height, options.seconds, options.mebibytes << 20},
                     PrintCost);
}

} // namespace

void AddBench(CLI::App &app, Program &program) {
    const auto options = std::make_shared<Options>();
    CLI::App *command = app.add_subcommand("bench", "Measure the transitions on this machine");
    command->add_option("-t,--transition", options->names, "The transitions; all when left out")
        ->type_name("NAME");
    command->add_option("--size", options->size, "Size of the frames")
        ->type_name("WxH")
        ->capture_default_str();
    command->add_option("--path", options->path, "Which functions to measure")
        ->check(CLI::IsMember({"yuv", "rgb", "both"}))
        ->capture_default_str();
    command->add_option("--seconds", options->seconds, "Time to spend on each function")
        ->check(CLI::Range(0.0, 3600.0))
        ->capture_default_str();
    command
        ->add_option("--memory", options->mebibytes,
                     "Memory that the frames rotate through, in MiB; little keeps them in caches")
        ->type_name("MIB")
        ->check(CLI::Range(1, 1 << 16))
        ->capture_default_str();
    command->callback([&program, options] { Run(program, *options); });
}

} // namespace host
