/// \file Measure.h
/// What a transition costs its caller, who draws a frame and then reads it, in units of what
/// copying a frame of the same layout and reading the copy costs.
#pragma once

#include "Frame.h"
#include "Plugin.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace hostkit {

/// One of a transition's two functions. The transition must have it.
struct Function {
    const Transition *transition;
    Path path;
    /// The transition's name and the path, as in "Erase YUV".
    std::string Name() const;
};

/// Nanoseconds of one frame.
struct Cost {
    double draw;                ///< drawn and read once: the mean over the positions
    double copy;                ///< copied and read once
    std::int64_t randomNumbers; ///< how many rand() gave, 0 when fewer than one a pixel
    double random;              ///< as many calls of rand() alone

    double InCopies() const { return draw / copy; }
    double InRandomNumbers() const { return draw / random; }
};

struct MeasureSettings {
    int width;
    int height;
    double seconds; ///< for each function; a few rounds are made in any case
    /// The frames of draws and those of copies take at least this many bytes each, small frames
    /// less. The default is more than a core's share of the caches.
    std::size_t workingSet = std::size_t(192) << 20;
};

/// Measures every function on frames of noise, at positions spread over the transition. Draws and
/// copies alternate, so that the machine's drift meets both alike, and each goes to the next of
/// many sets of frames, so that caches do not hide memory. Each function first has to draw what the
/// baseline kernels draw, which a forked process finds out: the plug-in picks its kernels when it
/// first draws, so it must not have drawn in this process before.
///
/// \param done is given each function and its cost as soon as it is known
/// Throws std::runtime_error that names function, position and size when a frame differs.
void Measure(const std::vector<Function> &functions, const MeasureSettings &settings,
             const std::function<void(const Function &, const Cost &)> &done);

/// The costs that Measure finds in a process of its own, in which the environment variable
/// TP_ERASE_ISA tells the plug-in to pick these kernels; null leaves it as it is.
std::vector<Cost> MeasureApart(const char *isa, const std::vector<Function> &functions,
                               const MeasureSettings &settings);

} // namespace hostkit
