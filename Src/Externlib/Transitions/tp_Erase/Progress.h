/// \file Progress.h
/// The curves that ease a position, and the record that keeps the last one.
#pragma once

#include "Pixels.h"
#include "tp_Erase.h"

#include <cstdint>

namespace tp {

/// The last eased position and its length: every path that eases writes it before it draws, and
/// none reads it. Shared by the whole library without a lock.
extern TransParam gAdjustParam;

/// The cubic 3t^2 - 2t^3 scaled to 0 .. total (the smoothstep of computer graphics).
double SmoothStep(double total, double current);

/// A position eased twice: warped by a sine, then by SmoothStep. Runs from 0 to total with an
/// almost flat start and end, and passes total / 2 at total / 2.
double EaseProgress(double total, double current);

/// Where a transition stands, as its painters take it.
struct Progress {
    double position; ///< 0 to total
    double total;

    double Fraction() const { return position / total; }
    /// Where it stands on a span of whole pixels, rounded half up.
    std::int32_t On(std::int32_t span) const { return Position(position, span, total); }
};

/// What a host's record says: all there is for the paths that run evenly.
Progress ProgressOf(const TransParam &param);

/// The progress that is passed in, stored in gAdjustParam.
Progress Stored(Progress progress);

/// EaseProgress and SmoothStep of a progress, stored.
Progress Eased(Progress progress);
Progress Smooth(Progress progress);

} // namespace tp
