/// \file Render.h
/// Clips, joined, as a file.
#pragma once

#include "CopyPlan.h"
#include "Duration.h"
#include "PictureFilters.h"
#include "Plan.h"
#include "Program.h"
#include "Sound.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace host {

struct Clip;

/// A clip as the user names it, and the part of it that is wanted.
struct Wish {
    std::string file;
    std::optional<Time> in, out; ///< from the beginning of the clip
};

/// A joint between two clips as the user names it.
struct JointWish {
    std::string name = "cut"; ///< or "any"
    Time length;
    std::string easing = "linear";
    Path path = Path::Yuv;
    bool reverse = false;
    std::uint64_t seed = 0;
};

struct RenderOptions {
    std::vector<Wish> clips;
    std::vector<JointWish> joints; ///< one fewer than clips
    OutputOptions output;          ///< without a file, only an edit list is written
    Time still = {3, {1, 1}};      ///< how long a still picture shows
    std::string size;              ///< empty: that of the first moving clip
    std::string rate;              ///< empty: that of the first moving clip
    Fit fit = Fit::Contain;
    bool keepInterlacing = false;
    bool only = false;  ///< the overlaps alone
    std::string frames; ///< empty: all
    CopyWish copy = CopyWish::Auto;
    std::pair<int, int> part = {1, 1}; ///< this one of so many
    SoundOptions sound;
    std::string saveEdit;                        ///< empty: no edit list is written
    std::map<std::string, std::string> settings; ///< what an edit list keeps, by options' names
    std::uint64_t seed = 0;                      ///< of a choice of joints
};

void Render(const RenderOptions &options, const hostkit::Plugin &plugin);

// Its steps that a preview takes beforehand.

/// Puts transitions in the places of "any".
void ChooseAny(RenderOptions &options, const hostkit::Plugin &plugin);
/// Throws a Failure when the output is one of the clips.
void RefuseOverwriting(const RenderOptions &options);
/// The clip that the result takes after: the first that moves.
const Clip &Lead(const std::vector<Clip> &clips);

} // namespace host
