/// \file Kernels.h
/// The kernel tables under test.
#pragma once

#include "Isa.h"

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
