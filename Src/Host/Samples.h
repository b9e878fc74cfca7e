/// \file Samples.h
/// Single frames of transitions, drawn to choose by: at the clips' own size, shown small.
#pragma once

#include "Clip.h"
#include "Draw.h"
#include "Program.h"

#include <string>
#include <vector>

namespace host {

/// What samples are drawn between, as the user names it.
struct SampleOptions {
    std::vector<std::string> clips; ///< two, or none for the built-in pictures
    std::string size;               ///< at which transitions draw; empty: that of the first clip
    std::string at = "0";           ///< which picture of the clips
};

/// Adds their options to a sub-command.
void AddSampleOptions(CLI::App &command, SampleOptions &options);

/// The two pictures that transitions run between, as each path takes them.
struct SampleInputs {
    Canvas canvas; ///< without its pixels: those are the path's
    Frame planar[2];
    Frame packed[2];
};

/// Throws a Failure unless there are two clips or none.
SampleInputs LoadInputs(const SampleOptions &options);

/// How high a picture of this width is.
int SampleHeight(const Canvas &drawn, int width);

/// Draws the frames of a path and shows them at another size, as RGB without transparency.
class SamplePainter {
public:
    /// The inputs outlive the painter.
    SamplePainter(const SampleInputs &inputs, Path path, int width, int height);

    Frame Draw(const hostkit::Transition &transition, const hostkit::Motion &motion,
               const hostkit::Moment &moment);
    /// One of the two inputs, 0 or 1.
    Frame Show(int input);

private:
    const Frame &Input(int input) const {
        return path == Path::Yuv ? inputs.planar[input] : inputs.packed[input];
    }

    const SampleInputs &inputs;
    Path path;
    Canvas canvas;
    Converter converter;
};

} // namespace host
