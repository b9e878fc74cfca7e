/// \file Joints.h
/// What joins two clips beside the plug-in's transitions: a cut, a dissolve, a fade through black,
/// a shuffled choice, and the way from names that users know from elsewhere to what is nearest.
#pragma once

#include "Plugin.h"

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace hostkit {

/// A joint that every editor has. Its transition is drawn like one of the plug-in's, both paths,
/// any size; it stands in no registry.
struct PlainJoint {
    Transition transition;
    bool overlaps; ///< false: it takes no time, whatever length is asked for
};

/// "cut", "dissolve" and "fade".
///
/// Positions count in 65536ths, w of B and 65536 - w of A, rounded to the nearest; a byte of the
/// dissolve is (a * (65536 - w) + b * w + 32768) / 65536 rounded down. A fade is a dissolve to
/// black over the first half and from black over the second, black at the middle. Black is 16, 128,
/// 128 in planar frames and opaque 0, 0, 0 in packed ones. Of packed frames alpha dissolves as any
/// byte does; a colour is the mean of both weighted by alpha too, rounded to the nearest with
/// halves up, so that what is transparent lends no colour. Where both are opaque that is the rule
/// above. A cut shows A before the middle and B from it on.
const std::vector<PlainJoint> &PlainJoints();
/// The joint of this name, letter case ignored, or null.
const PlainJoint *FindPlainJoint(std::string_view name);
/// Whether clips overlap where it joins them: all do but the cut.
bool Overlaps(const Transition &transition);

/// The name that stands for a choice of its own at each joint.
constexpr std::string_view kAnyJoint = "any";
/// Replaces each null in the row by one of the candidates, in an order that the seed decides and
/// that uses all of them before one comes again, but for what would equal its neighbour: none does,
/// provided there are three candidates. The same arguments give the same row on every machine.
void ChooseAny(std::vector<const Transition *> &row, std::span<const Transition *const> candidates,
               std::uint64_t seed);

/// What comes nearest to a transition of another program.
struct Likeness {
    const char *name; ///< of a transition or plain joint here
    bool reverse;     ///< when it runs reversed
};
/// By the names that FFmpeg's xfade and editors use; letter case, blanks and punctuation do not
/// count, nor a "SMPTE" in front. The name is null where nothing is known.
Likeness FindLikeness(std::string_view foreignName);

} // namespace hostkit
