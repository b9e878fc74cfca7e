#include "CellRows.h"

namespace tp::TP_ISA {

/// With a step known at compile time.
template<std::ptrdiff_t step>
static void SampleSteps(std::uint8_t *__restrict out, const std::uint8_t *__restrict in,
                        std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i)
        out[i] = in[i * step];
}

static void SampleRow(std::uint8_t *__restrict out, const std::uint8_t *__restrict in,
                      std::ptrdiff_t step, std::ptrdiff_t count) {
    switch (step) {
    case 2:
        return SampleSteps<2>(out, in, count);
    case 3:
        return SampleSteps<3>(out, in, count);
    case 4:
        return SampleSteps<4>(out, in, count);
    default:
        for (std::ptrdiff_t i = 0; i < count; ++i)
            out[i] = in[i * step];
    }
}

} // namespace tp::TP_ISA

using namespace tp;
using namespace tp::TP_ISA;

template<>
const CellRowKernels tp::KernelsFor<CellRowKernels>::TP_ISA = {SampleRow};
