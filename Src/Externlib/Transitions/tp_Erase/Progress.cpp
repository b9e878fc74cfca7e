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

double StoreProgress(double total, double position) {
    gAdjustParam.dCurrent = position;
    gAdjustParam.dTotal = total;
    return position;
}

double StoreEased(const TransParam &param) {
    return StoreProgress(param.dTotal, EaseProgress(param.dTotal, param.dCurrent));
}

double StoreSmooth(const TransParam &param) {
    return StoreProgress(param.dTotal, SmoothStep(param.dTotal, param.dCurrent));
}

} // namespace tp
