/// \file CellRows.h
/// The row kernel of the moving rectangles.
#pragma once

#include "Isa.h"

#include <cstddef>
#include <cstdint>

namespace tp {

/// The kernels of one instruction set.
struct CellRowKernels {
    /// out[i] = in[i * step] for i below count; reads nothing past in[(count - 1) * step].
    void (*sample)(std::uint8_t *out, const std::uint8_t *in, std::ptrdiff_t step,
                   std::ptrdiff_t count);
};

template<>
const CellRowKernels KernelsFor<CellRowKernels>::baseline;
template<>
const CellRowKernels KernelsFor<CellRowKernels>::avx2;
template<>
const CellRowKernels KernelsFor<CellRowKernels>::avx512;

inline const CellRowKernels &CellRows() {
    return KernelsFor<CellRowKernels>::Chosen();
}

} // namespace tp
