#include "Program.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <limits>
#include <memory>

namespace host {

namespace {

struct Options {
    std::vector<std::string> names;
    std::string size = "1920x1080";
    std::string path = "both";
    double seconds = 0.2;
};

constexpr int kPositions = 20;

/// Milliseconds that one call takes on average over kPositions even positions inside the
/// transition: the best of as many passes as the time allows, at least one after the first, which
/// only warms up.
double Measure(double seconds, const std::function<void(const TransParam &)> &draw) {
    using Clock = std::chrono::steady_clock;
    const auto pass = [&] {
        const Clock::time_point start = Clock::now();
        for (int i = 0; i < kPositions; ++i) {
            TransParam param = {};
            param.dTotal = 1;
            param.dCurrent = (i + 0.5) / kPositions;
            draw(param);
        }
        return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    };
    pass();
    double best = std::numeric_limits<double>::infinity(), spent = 0;
    do {
        const double time = pass();
        best = std::min(best, time);
        spent += time;
    } while (spent < seconds * 1000);
    return best / kPositions;
}

/// Noise of every value: no transition is faster or slower for what a picture shows.
void Fill(std::uint8_t *bytes, std::size_t count) {
    std::uint32_t state = 1;
    for (std::size_t i = 0; i < count; ++i) {
        state = state * 1664525u + 1013904223u;
        bytes[i] = std::uint8_t(state >> 24);
    }
}

void Fill(hostkit::PlanarFrame &frame) {
    Fill(frame.Plane(0), frame.Size());
}

void Fill(hostkit::PackedFrame &frame) {
    Fill(frame.Bits(), frame.Size());
}

double MeasureYUV(const hostkit::Transition &transition, Size size, double seconds) {
    const hostkit::Chroma chroma = hostkit::PlanarChroma(transition);
    hostkit::PlanarFrame frames[3];
    for (hostkit::PlanarFrame &frame : frames)
        Fill(frame = hostkit::PlanarFrame(size.width, size.height, chroma));
    return Measure(seconds, [&](const TransParam &param) {
        transition.yuv(frames[0].Image(), frames[1].Image(), frames[2].Image(), &param);
    });
}

double MeasureRGB(const hostkit::Transition &transition, Size size, double seconds) {
    hostkit::PackedFrame frames[3];
    for (hostkit::PackedFrame &frame : frames)
        Fill(frame = hostkit::PackedFrame(size.width, size.height));
    return Measure(seconds, [&](const TransParam &param) {
        transition.rgb(frames[0].Handle(), frames[1].Handle(), frames[2].Handle(), &param);
    });
}

/// What both paths are compared with: a plain copy of the frame's bytes.
double MeasureCopy(std::size_t bytes, double seconds) {
    std::vector<std::uint8_t> from(bytes, 1), to(bytes, 2);
    return Measure(seconds, [&](const TransParam &) {
        std::copy(from.begin(), from.end(), to.begin());
        // Keeps the compiler from dropping copies that nobody reads.
        asm volatile("" : : "r"(to.data()) : "memory");
    });
}

struct Column {
    bool wanted;
    double copy; ///< milliseconds of a whole-frame copy
};

void PrintCells(const Column &column, double time) {
    if (column.wanted && time > 0)
        std::printf(" %10.3f %6.1f", time, time / column.copy);
    else if (column.wanted)
        std::printf(" %10s %6s", "-", "-");
}

void Run(const Program &program, const Options &options) {
    const hostkit::Plugin plugin(program.pluginFile);
    const Size size = ParseSize(options.size);
    const std::vector<const hostkit::Transition *> chosen =
        ChooseTransitions(plugin, options.names);
    Column yuv{options.path != "rgb", 0}, rgb{options.path != "yuv", 0};
    if (yuv.wanted)
        yuv.copy =
            MeasureCopy(hostkit::PlanarFrame(size.width, size.height).Size(), options.seconds);
    if (rgb.wanted)
        rgb.copy =
            MeasureCopy(hostkit::PackedFrame(size.width, size.height).Size(), options.seconds);
    std::printf("Milliseconds per frame of %dx%d pixels, and as multiples of a plain copy\n\n%-16s",
                size.width, size.height, "");
    for (const char *path : {"yuv", "rgb"})
        if (options.path == "both" || options.path == path)
            std::printf(" %7s ms %6s", path, "copies");
    std::printf("\n%-16s", "(plain copy)");
    PrintCells(yuv, yuv.copy);
    PrintCells(rgb, rgb.copy);
    std::printf("\n");
    for (const hostkit::Transition *t : chosen) {
        std::printf("%-16s", t->name.c_str());
        std::fflush(stdout);
        PrintCells(yuv, yuv.wanted && t->yuv ? MeasureYUV(*t, size, options.seconds) : 0);
        PrintCells(rgb, rgb.wanted && t->rgb ? MeasureRGB(*t, size, options.seconds) : 0);
        std::printf("\n");
    }
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
    command->callback([&program, options] { Run(program, *options); });
}

} // namespace host
