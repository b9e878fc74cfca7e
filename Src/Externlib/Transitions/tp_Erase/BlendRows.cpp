#include "BlendRows.h"

namespace tp::TP_ISA {

static void BlendYuvRow(std::uint8_t *__restrict out, const std::uint8_t *__restrict a,
                        const std::uint8_t *__restrict b, const std::uint8_t *__restrict weights,
                        std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i)
        out[i] = BlendYuv(a[i], b[i], weights[i]);
}

static void BlendRgbRow(std::uint8_t *__restrict out, const std::uint8_t *__restrict a,
                        const std::uint8_t *__restrict b, const std::uint8_t *__restrict weights,
                        std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i)
        out[i] = BlendRgb(a[i], b[i], weights[i]);
}

/// value / 255, rounded as a division rounds it. Where the machine has a fused multiply-add, the
/// quotient that the reciprocal gives is corrected by its exact remainder, which takes half the
/// time (P. Markstein, Computation of elementary functions on the IBM RISC System/6000, 1990).
static float By255(float value) {
#ifdef __FMA__
    constexpr float reciprocal = 1 / 255.0F;
    const float quotient = value * reciprocal;
    return __builtin_fmaf(__builtin_fmaf(-quotient, 255.0F, value), reciprocal, quotient);
#else
    return value / 255.0F;
#endif
}

static void BlendFine(std::uint8_t *__restrict out, const std::uint8_t *__restrict a,
                      const std::uint8_t *__restrict b, const float *__restrict weights,
                      std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        const float sum = By255(static_cast<float>(a[i]) * weights[i]) +
                          By255(static_cast<float>(b[i]) * (255.0F - weights[i]));
        out[i] = static_cast<std::uint8_t>(static_cast<std::int32_t>(sum));
    }
}

static void BlendSum(std::uint8_t *__restrict out, const std::uint8_t *__restrict a,
                     const std::uint8_t *__restrict b, const std::uint8_t *__restrict weights,
                     std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i)
        out[i] = BlendRgbSum(a[i], b[i], weights[i]);
}

static void BrightenRow(std::uint8_t *__restrict out, const std::uint8_t *__restrict in,
                        std::ptrdiff_t count, Gain gain) {
    for (std::ptrdiff_t i = 0; i < count; ++i)
        out[i] = Brighten(in[i], gain);
}

} // namespace tp::TP_ISA

using namespace tp;
using namespace tp::TP_ISA;

template<>
const BlendKernels tp::KernelsFor<BlendKernels>::TP_ISA = {BlendYuvRow, BlendRgbRow, BlendFine,
                                                           BlendSum, BrightenRow};
