/// \file CopyRows.h
/// Row kernels that copy by a pattern. As everywhere, a count below 1 does nothing and output and
/// inputs never overlap.
#pragma once

#include "Isa.h"

#include <cstddef>
#include <cstdint>

namespace tp {

/// The kernels of one instruction set.
struct CopyKernels {
    /// out[i] = a[i] where mask[i] is 255, b[i] where it is 0.
    void (*select)(std::uint8_t *out, const std::uint8_t *a, const std::uint8_t *b,
                   const std::uint8_t *mask, std::ptrdiff_t count);
    /// out[i] = in[i * step] for i below count; reads nothing past in[(count - 1) * step].
    void (*decimate)(std::uint8_t *out, const std::uint8_t *in, std::ptrdiff_t step,
                     std::ptrdiff_t count);
    /// Every fourth byte, from the fourth on, of a row of pixels.
    void (*copyFourth)(std::uint8_t *out, const std::uint8_t *in, std::ptrdiff_t pixels);
};

template<>
const CopyKernels KernelsFor<CopyKernels>::baseline;
template<>
const CopyKernels KernelsFor<CopyKernels>::avx2;
template<>
const CopyKernels KernelsFor<CopyKernels>::avx512;

inline const CopyKernels &CopyRows() {
    return KernelsFor<CopyKernels>::Chosen();
}

} // namespace tp
