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

namespace baseline {
extern const CellRowKernels kCellRows;
}

#ifdef TP_WIDE_ISAS
namespace avx2 {
extern const CellRowKernels kCellRows;
}
namespace avx512 {
extern const CellRowKernels kCellRows;
}
inline const CellRowKernels &CellRows() {
    return ChooseKernels(baseline::kCellRows, avx2::kCellRows, avx512::kCellRows);
}
#else
inline const CellRowKernels &CellRows() {
    return baseline::kCellRows;
}
#endif

} // namespace tp
