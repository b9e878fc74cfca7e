#include "CopyRows.h"

#include <cstring>

namespace tp::TP_ISA {

static void Select(std::uint8_t *__restrict out, const std::uint8_t *__restrict a,
                   const std::uint8_t *__restrict b, const std::uint8_t *__restrict mask,
                   std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i)
        out[i] = static_cast<std::uint8_t>((a[i] & mask[i]) | (b[i] & ~mask[i]));
}

/// With a step known at compile time.
template<std::ptrdiff_t step>
static void DecimateBy(std::uint8_t *__restrict out, const std::uint8_t *__restrict in,
                       std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i)
        out[i] = in[i * step];
}

static void Decimate(std::uint8_t *__restrict out, const std::uint8_t *__restrict in,
                     std::ptrdiff_t step, std::ptrdiff_t count) {
    switch (step) {
    case 2:
        return DecimateBy<2>(out, in, count);
    case 3:
        return DecimateBy<3>(out, in, count);
    case 4:
        return DecimateBy<4>(out, in, count);
    default:
        for (std::ptrdiff_t i = 0; i < count; ++i)
            out[i] = in[i * step];
    }
}

static void CopyFourth(std::uint8_t *__restrict out, const std::uint8_t *__restrict in,
                       std::ptrdiff_t pixels) {
    constexpr std::uint8_t fourth[] = {0, 0, 0, 255};
    std::uint32_t mask;
    std::memcpy(&mask, fourth, sizeof mask);
    for (std::ptrdiff_t i = 0; i < pixels * 4; i += 4) {
        std::uint32_t kept, taken;
        std::memcpy(&kept, out + i, sizeof kept);
        std::memcpy(&taken, in + i, sizeof taken);
        kept = (kept & ~mask) | (taken & mask);
        std::memcpy(out + i, &kept, sizeof kept);
    }
}

} // namespace tp::TP_ISA

using namespace tp;
using namespace tp::TP_ISA;

template<>
const CopyKernels tp::KernelsFor<CopyKernels>::TP_ISA = {Select, Decimate, CopyFourth};
