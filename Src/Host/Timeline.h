/// \file Timeline.h
/// Which frames of the clips make the frames of the result.
#pragma once

#include "Media.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// Frames of the result: the first, and the one after the last.
struct Range {
    std::int64_t begin = 0;
    std::int64_t end = INT64_MAX;
};

/// "FIRST:END", where either may be missing, to its two numbers; throws a Failure.
Range ParseRange(const std::string &text);

/// A clip as a part of the result.
struct Part {
    std::string name;                   ///< for messages
    std::optional<std::int64_t> frames; ///< nothing while a pipe's end has not been seen
    std::string joint;                  ///< what joins it to the next one, for messages
    std::int64_t overlap = 0;           ///< frames that it shares with the next one
    std::int64_t start = 0;             ///< its first frame in the result, once it is known
};

/// A clip's frame in a frame of the result.
struct Shown {
    int clip;
    std::int64_t start; ///< where the clip starts in the result
    std::int64_t frame; ///< of the clip
};

/// One frame of the result.
struct Step {
    std::int64_t number;        ///< among those that are written, from 0 without --frames
    std::int64_t time;          ///< in the whole result
    Shown a;                    ///< the only clip or the outgoing one
    std::optional<Shown> b;     ///< the incoming one, in an overlap
    std::int64_t inOverlap = 0; ///< number within the overlap
    std::int64_t overlap = 0;   ///< its length
};

/// The clips one after another, each begun before the one before it ends by their overlap.
class Timeline {
public:
    /// Throws a Failure that names a clip that is shorter than its overlaps and the longest
    /// durations that fit.
    Timeline(std::vector<Part> parts, AVRational rate);

    const std::vector<Part> &Parts() const { return parts; }
    /// Frames of the result; nothing while a clip's length is not known.
    std::optional<std::int64_t> Length() const;
    /// A pipe has come to its end. Throws like the constructor.
    void SetFrames(int clip, std::int64_t frames);
    /// What is seen at a frame of the result, as far as the clips' starts are known.
    Step At(std::int64_t time) const;
    /// The ranges of the overlaps, or all in one range. All lengths are known for overlaps.
    std::vector<Range> Ranges(bool onlyOverlaps) const;
    /// How the length of the result comes about, in one line or (for more than two clips) several.
    std::string Arithmetic() const;

private:
    void Arrange();
    void RequireFits(std::size_t clip) const;
    std::string Seconds(std::int64_t frames) const;

    std::vector<Part> parts;
    AVRational rate;
};

} // namespace host
