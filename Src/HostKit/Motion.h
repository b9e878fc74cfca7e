/// \file Motion.h
/// How the frames of a transition follow each other in time.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace hostkit {

/// A curve from 0 to 1 that replaces the even run of a transition's position.
struct Easing {
    const char *name;
    const char *description; ///< for users, a few words
    double (*curve)(double); ///< 0 at 0 and 1 at 1; may leave 0..1 in between
};

/// Every easing; the first, "linear", leaves the position as it is.
const std::vector<Easing> &Easings();
/// The easing of this name, or null.
const Easing *FindEasing(std::string_view name);

/// How the user wants a transition to move.
struct Motion {
    const Easing *easing = nullptr; ///< null is linear
    bool reverse = false; ///< inputs swapped and the position running back: the way in becomes the
                          ///< way out
    std::uint64_t seed = 0; ///< for the transitions that draw random numbers
};

/// One frame of a transition in time.
struct Moment {
    double position = 0;    ///< 0 to 1; whatever leaves that counts as the nearer end, NaN as 0
    std::int64_t frame = 0; ///< the frame's number within the transition, mixed into the seed
};

/// The moment that frame 0 .. count - 1 of a transition shows: the first is wholly the outgoing
/// picture, the last wholly the incoming one, the others at even steps between. The only frame of
/// one shows the middle.
Moment MomentOf(std::int64_t frame, std::int64_t count);

/// The position that the plug-in is given for a moment, always within 0..1.
double PluginPosition(const Motion &motion, const Moment &moment);

/// What rand() is seeded with for a moment: from the user's seed and the frame's number, well mixed
/// since neighbouring frames must not draw similar sequences.
unsigned RandomSeed(const Motion &motion, const Moment &moment);

} // namespace hostkit
