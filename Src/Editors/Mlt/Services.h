/// \file Services.h
/// What editors see of the transitions: the names of the services, their parameters and texts.
#pragma once

#include "Plugin.h"

#include <string>
#include <vector>

namespace mlt {

/// "tp_erase." and the transition's stem: "Linear Wipe" is tp_erase.linear_wipe.
std::string ServiceName(const hostkit::Transition &transition);

/// For menus: all of them begin alike, so that an editor's list shows them together.
std::string Title(const hostkit::Transition &transition);
/// What moves, and the pictures at both ends.
std::string Description(const hostkit::Transition &transition);
/// What else there is to know; may be empty.
std::string Notes(const hostkit::Transition &transition);

/// The kinds of parameters, by the engine's words for them.
enum class Kind { Boolean, Integer, Choice };

/// One parameter of a service.
struct Parameter {
    const char *name;
    Kind kind;
    const char *title;
    const char *description;
    const char *preset;                   ///< what counts when the user sets nothing
    std::vector<std::string> values = {}; ///< of a Choice
    std::vector<std::string> labels = {}; ///< the values for menus, without commas
};

/// The parameters of a transition's service: those that change its pictures.
std::vector<Parameter> Parameters(const hostkit::Transition &transition);

// Names of parameters. Kdenlive keeps kReverse to itself in mixes of a track's neighbours, hence
// the other name for the same thing.
constexpr char kReverse[] = "reverse";
constexpr char kBackwards[] = "backwards";
constexpr char kEase[] = "ease";
constexpr char kPath[] = "path";
constexpr char kSeed[] = "seed";

// Values of kPath.
constexpr char kAuto[] = "auto";
constexpr char kYuv[] = "yuv";
constexpr char kRgb[] = "rgb";

} // namespace mlt
