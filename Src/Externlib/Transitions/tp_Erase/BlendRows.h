/// \file BlendRows.h
/// Row kernels of Linear Wipe and Flash. As in Rows.h, a count below 1 does nothing and output and
/// inputs never overlap.
#pragma once

#include "Isa.h"
#include "Pixels.h"

#include <cstddef>
#include <cstdint>

namespace tp {

/// How a flash brightens a byte: 10 is added, the sum cut to the mask and multiplied by
/// whole + fraction / 65536, truncated and limited to 255. See MakeGain.
struct Gain {
    std::uint16_t mask; ///< 0xff wraps the sum around
    std::uint16_t whole;
    std::uint16_t fraction;
};

TP_PIXEL std::uint8_t Brighten(std::uint8_t value, Gain gain) {
    const std::uint16_t sum = (value + 10) & gain.mask;
    const std::uint16_t part = (std::uint32_t(sum) * gain.fraction) >> 16;
    const std::uint16_t product = sum * gain.whole + part;
    return product < 255 ? static_cast<std::uint8_t>(product) : 255;
}

/// The kernels of one instruction set.
struct BlendKernels {
    /// out[i] = a at weight weights[i] and b at 255 - weights[i], in single precision: each product
    /// divided by 255, the quotients added, the sum truncated. Weights are 0 to 255.
    void (*blendFine)(std::uint8_t *out, const std::uint8_t *a, const std::uint8_t *b,
                      const float *weights, std::ptrdiff_t count);
    /// out[i] = (a[i] * weights[i] + b[i] * (255 - weights[i])) >> 8: one shift for both products.
    void (*blendSum)(std::uint8_t *out, const std::uint8_t *a, const std::uint8_t *b,
                     const std::uint8_t *weights, std::ptrdiff_t count);
    /// out[i] = (in[i] * 255) >> 8, which is blendSum at weight 0.
    void (*darken)(std::uint8_t *out, const std::uint8_t *in, std::ptrdiff_t count);
    /// bytes[i] = Brighten(bytes[i], gain).
    void (*brighten)(std::uint8_t *bytes, std::ptrdiff_t count, Gain gain);
};

namespace baseline {
extern const BlendKernels kBlendRows;
}

#ifdef TP_WIDE_ISAS
namespace avx2 {
extern const BlendKernels kBlendRows;
}
namespace avx512 {
extern const BlendKernels kBlendRows;
}
inline const BlendKernels &BlendRows() {
    return ChooseKernels(baseline::kBlendRows, avx2::kBlendRows, avx512::kBlendRows);
}
#else
inline const BlendKernels &BlendRows() {
    return baseline::kBlendRows;
}
#endif

} // namespace tp
