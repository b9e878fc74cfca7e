/// \file Info.h
/// What there is to know of each transition beside its functions: the one place for such facts. A
/// is the outgoing picture, B the incoming one.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace hostkit {

/// How a path's progress runs over the transition's length.
enum class Curve { Absent, Linear, Smooth, Eased, Steep, Bounce };

/// The curve in one word for users, "-" for Absent.
const char *CurveName(Curve curve);
/// The curve in a few words; empty for Absent.
const char *CurveDescription(Curve curve);

/// What sort of transition it is, for users who look for one.
enum class Kind { Other, Wipe, Push, PageTurn, Shapes, Light, Depth };

/// The kind in a word or two for users, "page turn" for PageTurn.
const char *KindName(Kind kind);
/// The names of all kinds, in the order of Kind.
std::span<const char *const> KindNames();

/// Resolution of the chroma planes that a planar function works on.
enum class Chroma {
    Half, ///< 4:2:0, both directions rounded up
    Full, ///< as many samples as luma
};

/// One transition. A path that is absent has no curve.
struct Info {
    std::string name;                 ///< the plug-in's name for it
    std::string function;             ///< the exported planar function
    std::string packedSuffix = "RGB"; ///< what makes it the exported packed function
    std::string title;                ///< for menus and headings
    Kind kind = Kind::Other;
    std::string motion = {};      ///< what moves, one sentence
    Curve yuv = Curve::Absent;    ///< the planar path's curve
    Curve rgb = Curve::Absent;    ///< the packed path's curve
    Chroma chroma = Chroma::Half; ///< what the planar path works on
    bool countsBytes = false; ///< the packed path takes columns for byte offsets: its picture is
                              ///< squeezed into a part of the frame, and nobody wants it unasked
    bool leavesYuv = false;   ///< the planar path may leave pixels of the output as they were
    bool leavesRgb = false;   ///< so may the packed one
    bool anyRowOrder = false; ///< the packed path draws pictures that lie top row first as it does
                              ///< those from the bottom up
    bool random = false;      ///< draws random numbers: repeatable with a seed only
    std::string ends = {};    ///< the pictures at both ends
    std::string remarks = {}; ///< what else there is to know, sentences; may be empty

    std::string PackedFunction() const;
};

/// Every transition: in the registry's order, then those exported by name only.
std::span<const Info> Infos();
/// The record for a name of the plug-in; for an unknown one, a record of the name and no more.
Info InfoFor(std::string_view name);

/// The name for files and for services of other programs: in lower case, an underscore for whatever
/// is neither letter nor digit: "Linear Wipe" is linear_wipe.
std::string Stem(std::string_view name);

} // namespace hostkit
