/// \file Kernels.h
/// What tests of the library's insides share: the kernel tables, positions of eased transitions.
#pragma once

#include "Isa.h"
#include "Progress.h"

#include <vector>

/// A family's tables that this machine can run, the baseline's first.
template<class Kernels>
std::vector<const Kernels *> RunnableKernels() {
    using Tables = tp::KernelsFor<Kernels>;
    std::vector<const Kernels *> kernels = {&Tables::baseline};
#ifdef TP_WIDE_ISAS
    if (tp::ChosenIsa() >= tp::Isa::Avx2)
        kernels.push_back(&Tables::avx2);
    if (tp::ChosenIsa() >= tp::Isa::Avx512)
        kernels.push_back(&Tables::avx512);
#endif
    return kernels;
}

/// The position, of a length of 1, that eases to this fraction.
inline double PositionThatEasesTo(double fraction) {
    double low = 0, high = 1;
    for (int i = 0; i < 60; ++i)
        (tp::EaseProgress(1, (low + high) / 2) < fraction ? low : high) = (low + high) / 2;
    return high;
}
