/// \file Timeline.h
/// Which frames of the two clips make the frames of the result.
#pragma once

#include "Channel.h"
#include "Source.h"

#include <cstdint>
#include <string>

namespace host {

/// Frames of the result: the first, and the one after the last.
struct Range {
    std::int64_t begin = 0;
    std::int64_t end = INT64_MAX;
};

/// "FIRST:END", where either may be missing, to its two numbers; throws a Failure.
Range ParseRange(const std::string &text);

/// One frame of the result: a frame of clip A, of clip B, or of both in the overlap.
struct Step {
    std::int64_t number;       ///< in the result, from 0
    std::int64_t time;         ///< in frames since the start of clip A
    std::int64_t overlapStart; ///< in the same count, -1 while it is not known
    std::int64_t inOverlap;    ///< number within the overlap, -1 outside
    Frame a;
    Frame b;
};

/// What is wanted of the two clips.
struct Cut {
    std::string nameA, nameB; ///< for messages
    std::int64_t overlap;     ///< frames in which both are seen, at least 1
    bool onlyOverlap;
    Range range; ///< of the result's frames
};

/// How many frames the clips have.
struct Lengths {
    std::int64_t a = 0, b = 0;
    bool areWhole = false; ///< both clips were read to their ends
};

/// Throws a Failure when a clip is shorter than the overlap or the result ends before the range.
void RequireLengths(const Cut &cut, const Lengths &lengths);

/// Sends the frames of the result in order and returns the lengths of the clips as far as they were
/// read. Where clip A ends is known only when it has ended, so as many of its frames as the overlap
/// is long are always held back.
Lengths Join(SteadySource &a, SteadySource &b, const Cut &cut, Channel<Step> &steps);

} // namespace host
