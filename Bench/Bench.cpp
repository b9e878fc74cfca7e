// Times every transition function beside the plain copy of a frame of the same layout, in one run,
// and prints the table. Each call works on the next of several sets of frames, so that caches do
// not hide memory, and every function's frames are checked against their known hashes first.

#include "Draw.h"
#include "Plugin.h"

#include <CLI/CLI.hpp>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <vector>

namespace {

constexpr double kPositions[] = {0.15, 0.35, 0.5, 0.65, 0.85};
/// Frames of one layout together take about this much memory.
constexpr std::size_t kWorkingSet = 192U << 20;

struct Size {
    int width;
    int height;
    std::string Text() const { return std::to_string(width) + "x" + std::to_string(height); }
};

/// One set of frames: the output and both inputs.
template<class Frame>
struct FrameSet {
    Frame out, in1, in2;
};

/// What a call needs, in either layout.
std::uint8_t *Bytes(hostkit::PlanarFrame &frame) {
    return frame.Plane(0);
}
std::uint8_t *Bytes(hostkit::PackedFrame &frame) {
    return frame.Bits();
}

void FillNoise(std::uint8_t *bytes, std::size_t count, std::uint64_t state) {
    for (std::size_t i = 0; i < count; ++i) {
        state = state * 6364136223846793005U + 1442695040888963407U;
        bytes[i] = static_cast<std::uint8_t>(state >> 56);
    }
}

std::uint64_t Hash(const std::uint8_t *bytes, std::size_t count) {
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (std::size_t i = 0; i < count; ++i)
        hash = (hash ^ bytes[i]) * 0x100000001b3U;
    return hash;
}

template<class Frame, class Make>
std::vector<FrameSet<Frame>> MakeSets(Make make) {
    std::vector<FrameSet<Frame>> sets;
    const std::size_t bytes = make().Size();
    const std::size_t count = std::clamp<std::size_t>(kWorkingSet / (3 * bytes), 3, 64);
    for (std::size_t i = 0; i < count; ++i) {
        sets.push_back({make(), make(), make()});
        FillNoise(Bytes(sets.back().out), bytes, 1);
        FillNoise(Bytes(sets.back().in1), bytes, 2);
        FillNoise(Bytes(sets.back().in2), bytes, 3);
    }
    return sets;
}

/// The known hashes, by "function size position"; new ones are added when asked to.
class Hashes {
public:
    explicit Hashes(const std::string &path) : file(path) {
        std::ifstream in(file);
        std::string key, value;
        while (std::getline(in, key, ',') && std::getline(in, value))
            known[key] = value;
    }
    /// False when a frame differs from what is known of it, or nothing is known.
    bool Check(const std::string &key, std::uint64_t hash) {
        std::ostringstream text;
        text << std::hex << hash;
        if (record)
            known[key] = text.str();
        return known.contains(key) && known[key] == text.str();
    }
    void Save() const {
        std::ofstream out(file);
        for (const auto &[key, value] : known)
            out << key << ',' << value << '\n';
    }
    bool record = false;

private:
    std::string file;
    std::map<std::string, std::string> known;
};

/// Milliseconds of one benchmark, by its name.
class Collector : public benchmark::ConsoleReporter {
public:
    using ConsoleReporter::ConsoleReporter;
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs)
            if (!run.error_occurred)
                times[run.run_name.function_name].push_back(run.GetAdjustedRealTime());
            else
                failed = true;
        ConsoleReporter::ReportRuns(runs);
    }
    double Median(const std::string &name) const {
        const auto found = times.find(name);
        if (found == times.end())
            return 0;
        std::vector<double> sorted = found->second;
        std::sort(sorted.begin(), sorted.end());
        return sorted[sorted.size() / 2];
    }
    bool failed = false;

private:
    std::map<std::string, std::vector<double>> times;
};

TransParam ParamAt(double position) {
    TransParam param{};
    param.dTotal = 1;
    param.dCurrent = position;
    return param;
}

void Call(TransFuncYUV function, FrameSet<hostkit::PlanarFrame> &set, const TransParam &param) {
    function(set.out.Image(), set.in1.Image(), set.in2.Image(), &param);
}

void Call(TransFuncRGB function, FrameSet<hostkit::PackedFrame> &set, const TransParam &param) {
    function(set.out.Handle(), set.in1.Handle(), set.in2.Handle(), &param);
}

/// One function at one position; the whole name is the table's key plus the position.
template<class Frame, class Function>
void Register(const std::string &name, Function function, std::vector<FrameSet<Frame>> &sets,
              double position, Hashes &hashes, const std::string &size) {
    benchmark::RegisterBenchmark(
        name.c_str(),
        [=, &sets, &hashes](benchmark::State &state) {
            const TransParam param = ParamAt(position);
            FillNoise(Bytes(sets[0].out), sets[0].out.Size(), 1);
            std::srand(1);
            Call(function, sets[0], param);
            std::ostringstream key;
            key << name << ' ' << size << ' ' << position;
            if (!hashes.Check(key.str(), Hash(Bytes(sets[0].out), sets[0].out.Size()))) {
                state.SkipWithError("the frame differs from its known hash");
                return;
            }
            std::size_t next = 0;
            for (auto _ : state) {
                Call(function, sets[next], param);
                next = next + 1 < sets.size() ? next + 1 : 0;
            }
        })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
}

template<class Frame>
void RegisterCopy(const std::string &name, std::vector<FrameSet<Frame>> &sets) {
    for (std::size_t i = 0; i < std::size(kPositions); ++i)
        benchmark::RegisterBenchmark(name.c_str(),
                                     [&sets](benchmark::State &state) {
                                         std::size_t next = 0;
                                         for (auto _ : state) {
                                             std::memcpy(Bytes(sets[next].out),
                                                         Bytes(sets[next].in1),
                                                         sets[next].out.Size());
                                             next = next + 1 < sets.size() ? next + 1 : 0;
                                         }
                                     })
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
}

/// What a frame's worth of rand() alone costs.
void RegisterRand(const std::string &name, const Size &size) {
    benchmark::RegisterBenchmark(name.c_str(),
                                 [size](benchmark::State &state) {
                                     for (auto _ : state)
                                         for (int i = 0; i < size.width * size.height; ++i)
                                             benchmark::DoNotOptimize(std::rand());
                                 })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
}

struct Line {
    std::string label;
    std::string name;
    std::string base; ///< the copy that it is measured against
};

void PrintTable(std::ostream &out, const std::vector<Line> &lines, const Collector &times,
                const Size &size) {
    out << "| " << size.Text() << " | ms | times a copy |\n|---|---:|---:|\n";
    for (const Line &line : lines) {
        char row[160];
        std::snprintf(row, sizeof row, "| %s | %.3g | %.2f |\n", line.label.c_str(),
                      times.Median(line.name), times.Median(line.name) / times.Median(line.base));
        out << row;
    }
}

int Run(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    CLI::App app("Times the plug-in's transitions beside the plain copy of a frame");
    std::string pluginFile = TP_PLUGIN_FILE, sizeText = "1920x1080", tableFile, only;
    std::string hashFile = TP_BENCH_HASHES;
    bool recordHashes = false;
    app.add_option("--plugin", pluginFile, "the library to time");
    app.add_option("--size", sizeText, "width x height of the frames")->capture_default_str();
    app.add_option("--only", only, "one transition by its name");
    app.add_option("--table", tableFile, "write the table to this file too");
    app.add_flag("--record-hashes", recordHashes, "take the drawn frames as the known ones");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error);
    }
    Size size{};
    if (std::sscanf(sizeText.c_str(), "%dx%d", &size.width, &size.height) != 2 || size.width < 1 ||
        size.height < 1) {
        std::cerr << "--size wants WIDTHxHEIGHT, as in 1920x1080, not " << sizeText << "\n";
        return 1;
    }

    const hostkit::Plugin plugin(pluginFile);
    Hashes hashes(hashFile);
    hashes.record = recordHashes;
    using hostkit::Chroma, hostkit::PackedFrame, hostkit::PlanarFrame;
    auto planar = MakeSets<PlanarFrame>([&] { return PlanarFrame(size.width, size.height); });
    auto full =
        MakeSets<PlanarFrame>([&] { return PlanarFrame(size.width, size.height, Chroma::Full); });
    auto packed = MakeSets<PackedFrame>([&] { return PackedFrame(size.width, size.height); });

    const std::string copyYuv = "copy YUV 4:2:0", copyFull = "copy YUV 4:4:4", copyRgb = "copy RGB",
                      draws = "rand() per pixel";
    std::vector<Line> lines = {{copyYuv, copyYuv, copyYuv},
                               {copyFull, copyFull, copyYuv},
                               {copyRgb, copyRgb, copyRgb},
                               {draws, draws, copyYuv}};
    RegisterCopy(copyYuv, planar);
    RegisterCopy(copyFull, full);
    RegisterCopy(copyRgb, packed);
    RegisterRand(draws, size);
    for (const hostkit::Transition &t : plugin.Transitions()) {
        if (!only.empty() && t.name != only)
            continue;
        const bool fullChroma = t.name == "Roll_right_top";
        for (const double position : kPositions) {
            if (t.yuv)
                Register<PlanarFrame>(t.name + " YUV", t.yuv, fullChroma ? full : planar, position,
                                      hashes, sizeText);
            if (t.rgb)
                Register<PackedFrame>(t.name + " RGB", t.rgb, packed, position, hashes, sizeText);
        }
        if (t.yuv)
            lines.push_back({t.name + " YUV", t.name + " YUV", fullChroma ? copyFull : copyYuv});
        if (t.rgb)
            lines.push_back({t.name + " RGB", t.name + " RGB", copyRgb});
    }
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    PrintTable(std::cout, lines, collector, size);
    if (!tableFile.empty()) {
        std::ofstream table(tableFile);
        PrintTable(table, lines, collector, size);
    }
    if (recordHashes)
        hashes.Save();
    return collector.failed;
}

} // namespace

int main(int argc, char **argv) {
    try {
        return Run(argc, argv);
    } catch (const std::exception &error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
}
