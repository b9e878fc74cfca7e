/// \file Progress.h
/// The curves that ease a position, and the record that keeps the last one.
#pragma once

#include "tp_Erase.h"

namespace tp {

/// The last eased position and its length. Many paths write it before they draw; some read their
/// progress back from it, and the eased variants pass it down as a parameter record. Shared by the
/// whole library without a lock.
extern TransParam gAdjustParam;

/// The cubic 3t^2 - 2t^3 scaled to 0 .. total (the smoothstep of computer graphics).
double SmoothStep(double total, double current);

/// A position eased twice: warped by a sine, then by SmoothStep. Runs from 0 to total with an
/// almost flat start and end, and passes total / 2 at total / 2.
double EaseProgress(double total, double current);

/// Stores a position and the length it belongs to in gAdjustParam; returns the position.
double StoreProgress(double total, double position);

/// EaseProgress of a host's record, stored.
double StoreEased(const TransParam &param);

/// SmoothStep of a host's record, stored.
double StoreSmooth(const TransParam &param);

/// The fraction 0 .. 1 that gAdjustParam holds.
inline double StoredFraction() {
    return gAdjustParam.dCurrent / gAdjustParam.dTotal;
}

} // namespace tp
