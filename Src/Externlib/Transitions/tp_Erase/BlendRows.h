/// \file BlendRows.h
/// Row kernels of the soft edges and of Flash. A count below 1 does nothing; output and inputs
/// never overlap.
#pragma once

#include "Isa.h"
#include "Pixels.h"

#include <cstddef>
#include <cstdint>

namespace tp {

/// How a flash brightens a byte: 10 is added to it or to the limit, whichever is less, and the sum,
/// cut to 8 bits, multiplied by whole + high / 256 + low / 65536, truncated and limited to 255. The
/// limit is 245, or 255 for sums that wrap around.
struct Gain {
    std::uint8_t limit;
    std::uint8_t whole;
    std::uint8_t high;
    std::uint8_t low;
};

/// In 16 bits throughout: the low part's carry goes into the high part's.
TP_PIXEL std::uint8_t Brighten(std::uint8_t value, Gain gain) {
    const std::int16_t limited = value < gain.limit ? value : gain.limit;
    const std::uint16_t sum = (limited + 10) & 0xff;
    const std::uint16_t carry = static_cast<std::uint16_t>(sum * gain.low) >> 8;
    const std::uint16_t part = static_cast<std::uint16_t>(sum * gain.high + carry) >> 8;
    const std::int16_t product = static_cast<std::int16_t>(sum * gain.whole + part);
    return static_cast<std::uint8_t>(product < 255 ? product : 255);
}

/// The kernels of one instruction set.
struct BlendKernels {
    /// out[i] = BlendYuv(a[i], b[i], weights[i]).
    void (*blendYuv)(std::uint8_t *out, const std::uint8_t *a, const std::uint8_t *b,
                     const std::uint8_t *weights, std::ptrdiff_t count);
    /// out[i] = BlendRgb(a[i], b[i], weights[i]).
    void (*blendRgb)(std::uint8_t *out, const std::uint8_t *a, const std::uint8_t *b,
                     const std::uint8_t *weights, std::ptrdiff_t count);
    /// out[i] = a at weight weights[i] and b at 255 - weights[i], in single precision: each product
    /// divided by 255, the quotients added, the sum truncated. Weights are 0 to 255.
    void (*blendFine)(std::uint8_t *out, const std::uint8_t *a, const std::uint8_t *b,
                      const float *weights, std::ptrdiff_t count);
    /// out[i] = BlendRgbSum(a[i], b[i], weights[i]).
    void (*blendSum)(std::uint8_t *out, const std::uint8_t *a, const std::uint8_t *b,
                     const std::uint8_t *weights, std::ptrdiff_t count);
    /// out[i] = Brighten(in[i], gain).
    void (*brighten)(std::uint8_t *out, const std::uint8_t *in, std::ptrdiff_t count, Gain gain);
};

template<>
const BlendKernels KernelsFor<BlendKernels>::baseline;
template<>
const BlendKernels KernelsFor<BlendKernels>::avx2;
template<>
const BlendKernels KernelsFor<BlendKernels>::avx512;

inline const BlendKernels &BlendRows() {
    return KernelsFor<BlendKernels>::Chosen();
}

} // namespace tp
