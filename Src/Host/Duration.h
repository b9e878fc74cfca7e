/// \file Duration.h
/// Lengths and points in time as users write them, exact until the frames of a result are counted.
#pragma once

#include <cstdint>
#include <string>

extern "C" {
#include <libavutil/rational.h>
}

namespace host {

/// A length or a point in time: value / rate seconds, or value frames of the result while its rate
/// is not known.
struct Time {
    std::int64_t value = 0;
    AVRational rate = {1, 1}; ///< units per second; {0, 1}: the units are the result's frames
    bool IsInFrames() const { return rate.num == 0; }
};

/// Reads "1.5" or "1.5s" (seconds), "500ms", "12f" (frames of the result), "0:01.5" (minutes and
/// seconds) or "1:02:03.5" (hours too); at most a thousand hours, to the nanosecond. Throws a
/// Failure "what text: ..." that says what would be right; what is the option or file it stands in.
Time ParseTime(const std::string &text, const std::string &what);

/// The frames of the result in it, to the nearest, halves away from 0.
std::int64_t FramesIn(const Time &duration, AVRational resultRate);
/// In seconds.
double SecondsIn(const Time &duration, AVRational resultRate);

// Arithmetic of what is not in frames: exact when both have one rate, else to 1/705,600,000 s, of
// which the frames of all usual rates are multiples.
Time operator+(const Time &a, const Time &b);
Time operator-(const Time &a, const Time &b);
/// Below 0, 0 or above as a is shorter than, as long as or longer than b.
int Compare(const Time &a, const Time &b);

} // namespace host
