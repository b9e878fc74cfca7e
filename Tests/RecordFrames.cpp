// Adds reference frames to Data/frames.csv: those that this build draws, for functions that have
// none yet. Lines that are there are never touched. Arguments: the exported functions.

#include "Reference.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>

namespace {

/// What the references of the other functions look at: a plain size, an odd one and a larger one,
/// with padding in planar frames, at the ends and in between.
constexpr struct {
    int width, height, padding;
    double positions[4];
} kSizes[] = {
    {64, 48, 0, {0, 10, 20, 40}}, {101, 71, 27, {4, 15, 25, 36}}, {334, 200, 2, {2, 18, 32, 39}}};
constexpr double kTotal = 40;

std::string NewLines(const std::string &function, unsigned seed) {
    const bool isPacked = TestedPlugin().Symbol(hostkit::MangledRGB(function).c_str()) != nullptr;
    std::string lines;
    for (const auto &[width, height, padding, positions] : kSizes)
        for (const double position : positions) {
            const int pitch = isPacked ? width * 4 : width + padding;
            const int pitchUV = (pitch + 1) / 2;
            const Geometry geometry = {width, height, pitch, pitchUV, HasFullChroma(function)};
            const Reference call = {function, geometry, kTotal, position, seed, {}, 0};
            const std::array<std::string, 3> hashes = DrawnHashes(call);
            if (DrawnHashes(call) != hashes)
                throw std::runtime_error(function + " draws another frame every time");
            char start[256];
            std::snprintf(start, sizeof start, "%s,%d,%d,%d,%s,%g,%g,%u,", function.c_str(), width,
                          height, pitch, isPacked ? "" : std::to_string(pitchUV).c_str(), kTotal,
                          position, seed++);
            lines += start + hashes[0] + ',' + hashes[1] + ',' + hashes[2] + '\n';
        }
    return lines;
}

void Record(int count, char **functions) {
    const auto known = ReadReferences();
    unsigned seed = 0;
    for (const auto &[name, references] : known)
        for (const Reference &reference : references)
            seed = std::max(seed, reference.seed + 1);
    std::string lines;
    for (int i = 0; i < count; ++i) {
        if (known.contains(functions[i]))
            throw std::runtime_error(std::string(functions[i]) +
                                     " has reference frames, which stay as they are");
        lines += NewLines(functions[i], seed);
        seed += 12;
    }
    std::ofstream file(kReferenceFile, std::ios::app);
    if (!(file << lines << std::flush))
        throw std::runtime_error(std::string("cannot write to ") + kReferenceFile);
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 2)
        return std::fprintf(stderr, "usage: %s FUNCTION...\n", argv[0]), 2;
    try {
        Record(argc - 1, argv + 1);
    } catch (const std::exception &error) {
        return std::fprintf(stderr, "%s: %s\n", argv[0], error.what()), 1;
    }
}
