#include "Progress.h"

#include <cmath>

namespace tp {

TransParam gAdjustParam;

double SmoothStep(double total, double current) {
    return ((-2.0 * current * current * current) + (3.0 * total * current * current)) /
           (total * total);
}

double EaseProgress(double total, double current) {
    constexpr double twoPi = 6.283185307179586;
    const double angle = current * twoPi / total;
    return SmoothStep(total, current - std::sin(angle) * total / twoPi);
}

Progress ProgressOf(const TransParam &param) {
    return {param.dCurrent, param.dTotal};
}

Progress Stored(Progress progress) {
    gAdjustParam.dCurrent = progress.position;
    gAdjustParam.dTotal = progress.total;
    return progress;
}

Progress Eased(Progress progress) {
    return Stored({EaseProgress(progress.total, progress.position), progress.total});
}

Progress Smooth(Progress progress) {
    return Stored({SmoothStep(progress.total, progress.position), progress.total});
}

} // namespace tp
