#include "BlendRows.h"

namespace tp::TP_ISA {

static void BlendFine(std::uint8_t *__restrict out, const std::uint8_t *__restrict a,
                      const std::uint8_t *__restrict b, const float *__restrict weights,
                      std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        const float sum = static_cast<float>(a[i]) * weights[i] / 255.0F +
                          static_cast<float>(b[i]) * (255.0F - weights[i]) / 255.0F;
        out[i] = static_cast<std::uint8_t>(static_cast<std::int32_t>(sum));
    }
}

static void BlendSum(std::uint8_t *__restrict out, const std::uint8_t *__restrict a,
                     const std::uint8_t *__restrict b, const std::uint8_t *__restrict weights,
                     std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        const std::uint16_t sum = a[i] * weights[i] + b[i] * (255 - weights[i]);
        out[i] = static_cast<std::uint8_t>(sum >> 8);
    }
}

static void Darken(std::uint8_t *__restrict out, const std::uint8_t *__restrict in,
                   std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i)
        out[i] = static_cast<std::uint8_t>(in[i] - (in[i] != 0));
}

static void BrightenRow(std::uint8_t *bytes, std::ptrdiff_t count, Gain gain) {
    for (std::ptrdiff_t i = 0; i < count; ++i)
        bytes[i] = Brighten(bytes[i], gain);
}

const BlendKernels kBlendRows = {BlendFine, BlendSum, Darken, BrightenRow};

} // namespace tp::TP_ISA
