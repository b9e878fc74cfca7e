#include "Draw.h"
#include "Measure.h"
#include "Program.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>

namespace host {

namespace {

struct BenchOptions {
    std::vector<std::string> names;
    std::string size = "1920x1080";
    std::string path = "both";
    double seconds = 0.5;
    std::size_t mebibytes = 192;
    bool markdown = false;
};

/// The functions of the chosen transitions by the chosen paths, all planar ones first, so that
/// frames of one layout follow each other. A transition that the user named must have the path.
std::vector<hostkit::Function> ChooseFunctions(const hostkit::Plugin &plugin,
                                               const BenchOptions &options) {
    std::vector<hostkit::Function> functions;
    const std::vector<Path> paths = ChoosePaths(options.path);
    for (const Path path : paths) {
        for (const hostkit::Transition *t : ChooseTransitions(plugin, options.names)) {
            if (paths.size() == 1 && !options.names.empty())
                RequirePath(*t, path);
            if (HasPath(*t, path))
                functions.push_back({t, path});
        }
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
                function.path == Path::Yuv ? "yuv" : "rgb", cost.InCopies(),
                TimeText(cost.draw).c_str(), TimeText(cost.copy).c_str());
    if (cost.randomNumbers)
        std::printf("   %.2f times its %lld calls of rand()", cost.InRandomNumbers(),
                    static_cast<long long>(cost.randomNumbers));
    std::printf("\n");
    std::fflush(stdout);
}

/// A column of the Markdown table.
struct Column {
    const char *heading;
    Size size;
    const char *isa;       ///< the widest that the plug-in may pick
    std::size_t mebibytes; ///< 0 is what the user chose
};

constexpr Column kColumns[] = {
    {"1280 x 720", {1280, 720}, "avx512", 0},
    {"1920 x 1080", {1920, 1080}, "avx512", 0},
    {"3840 x 2160", {3840, 2160}, "avx512", 0},
    {"64 x 36", {64, 36}, "avx512", 0},
    {"1920 x 1080, AVX2", {1920, 1080}, "avx2", 0},
    {"1920 x 1080, baseline", {1920, 1080}, "baseline", 0},
    {"1920 x 1080, in caches", {1920, 1080}, "avx512", 8},
};

const char *LayoutName(const hostkit::Function &function) {
    if (function.path == Path::Rgb)
        return "RGB";
    return function.transition->info.chroma == hostkit::Chroma::Full ? "YUV 4:4:4" : "YUV 4:2:0";
}

/// By column and function.
using CostTable = std::vector<std::vector<hostkit::Cost>>;

CostTable MeasureColumns(const std::vector<hostkit::Function> &functions,
                         const BenchOptions &options) {
    CostTable table;
    for (const Column &column : kColumns) {
        std::fprintf(stderr, "measuring %s\n", column.heading);
        const std::size_t mebibytes = column.mebibytes ? column.mebibytes : options.mebibytes;
        table.push_back(hostkit::MeasureApart(
            column.isa, functions,
            {column.size.width, column.size.height, options.seconds, mebibytes << 20}));
    }
    return table;
}

/// One row; cell gives the text for a column's costs.
template<class Cell>
void PrintRow(const std::string &heading, const CostTable &table, const Cell &cell) {
    std::printf("| %s |", heading.c_str());
    for (const std::vector<hostkit::Cost> &costs : table)
        std::printf(" %s |", cell(costs).c_str());
    std::printf("\n");
}

std::string RatioText(double ratio) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", ratio);
    return text;
}

/// For each layout the median of the copies that were measured beside its functions.
void PrintCopyRows(const std::vector<hostkit::Function> &functions, const CostTable &table) {
    std::map<std::string, std::vector<std::size_t>> layouts;
    for (std::size_t i = 0; i < functions.size(); ++i)
        layouts[LayoutName(functions[i])].push_back(i);
    for (const auto &layout : layouts)
        PrintRow("a copy, " + layout.first, table, [&](const std::vector<hostkit::Cost> &costs) {
            std::vector<double> copies;
            for (const std::size_t i : layout.second)
                copies.push_back(costs[i].copy);
            std::sort(copies.begin(), copies.end());
            return TimeText(copies[copies.size() / 2]);
        });
}

void PrintMarkdown(const std::vector<hostkit::Function> &functions, const BenchOptions &options) {
    const CostTable table = MeasureColumns(functions, options);
    std::string head = "| |", rule = "|---|";
    for (const Column &column : kColumns) {
        head += std::string(" ") + column.heading + " |";
        rule += "---:|";
    }
    std::printf("%s\n%s\n", head.c_str(), rule.c_str());
    PrintCopyRows(functions, table);
    for (std::size_t i = 0; i < functions.size(); ++i) {
        const std::string name = functions[i].Name();
        using Costs = std::vector<hostkit::Cost>;
        PrintRow(name, table, [&](const Costs &c) { return RatioText(c[i].InCopies()); });
        if (table.front()[i].randomNumbers)
            PrintRow(name + ", times its `rand()` calls", table,
                     [&](const Costs &c) { return RatioText(c[i].InRandomNumbers()); });
    }
}

void PrintText(const std::vector<hostkit::Function> &functions, const BenchOptions &options) {
    const Size size = ParseSize(options.size);
    std::printf("A frame of %dx%d pixels drawn and read once, beside one copied and read once\n\n"
                "%-16s %-4s %7s %10s %10s\n",
                size.width, size.height, "Transition", "Path", "Ratio", "Drawn", "Copied");
    std::fflush(stdout);
    hostkit::Measure(functions, {size.width, size.height, options.seconds, options.mebibytes << 20},
                     PrintCost);
}

void Run(const Program &program, const BenchOptions &options) {
    const hostkit::Plugin plugin(program.pluginFile);
    const std::vector<hostkit::Function> functions = ChooseFunctions(plugin, options);
    options.markdown ? PrintMarkdown(functions, options) : PrintText(functions, options);
}

} // namespace

void AddBench(CLI::App &app, Program &program) {
    const auto options = std::make_shared<BenchOptions>();
    CLI::App *command = app.add_subcommand("bench", "Measure the transitions on this machine");
    command->add_option("-t,--transition", options->names, "The transitions; all when left out")
        ->type_name("NAME");
    CLI::Option *size = command->add_option("--size", options->size, "Size of the frames")
                            ->type_name("WxH")
                            ->capture_default_str();
    command->add_option("--path", options->path, "Which functions to measure")
        ->type_name("yuv|rgb|both")
        ->capture_default_str();
    command->add_option("--seconds", options->seconds, "Time to spend on each function")
        ->check(Between(0, 3600))
        ->capture_default_str();
    command
        ->add_option("--memory", options->mebibytes,
                     "Memory that the frames rotate through, in MiB; little keeps them in caches")
        ->type_name("MIB")
        ->check(Between(1, 1 << 16))
        ->capture_default_str();
    command
        ->add_flag("--markdown", options->markdown,
                   "Print a table of several sizes and instruction sets")
        ->excludes(size);
    command->callback([&program, options] { Run(program, *options); });
}

} // namespace host
