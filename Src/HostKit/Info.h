/// \file Info.h
/// What a user wants to know about each transition before choosing it, in plain words. A is the
/// outgoing picture, B the incoming one.
#pragma once

#include <span>
#include <string_view>

namespace hostkit {

/// How a path's progress runs over the transition's length.
enum class Curve { Absent, Linear, Smooth, Eased, Steep, Bounce };

/// The curve in one word for users, "-" for Absent.
const char *CurveName(Curve curve);
/// The curve in a few words; empty for Absent.
const char *CurveDescription(Curve curve);

/// One transition in words.
struct Info {
    const char *name;    ///< the plug-in's name
    const char *title;   ///< for menus and headings
    const char *motion;  ///< what moves, one sentence
    Curve yuv;           ///< the planar path's curve
    Curve rgb;           ///< the packed path's curve
    const char *ends;    ///< the pictures at both ends
    bool random;         ///< draws random numbers: repeatable with a seed only
    const char *remarks; ///< what else there is to know, sentences; may be empty
};

/// The texts in the registry's order, then those of the transitions exported by name only.
std::span<const Info> Infos();
/// The text for a name of the plug-in, or null.
const Info *FindInfo(std::string_view name);

} // namespace hostkit
