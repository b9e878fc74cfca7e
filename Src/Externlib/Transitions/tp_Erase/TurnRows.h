/// \file TurnRows.h
/// Row kernels of the turns and rolls: stretching a row, the chroma of a stretched row, lighting,
/// and pictures mirrored about a diagonal. As in Rows.h, a count below 1 does nothing and output
/// and input never overlap.
#pragma once

#include "Isa.h"
#include "Pixels.h"

#include <cstddef>
#include <cstdint>

namespace tp {

/// A row of `length` samples stretched to some number of columns without filtering: column n shows
/// sample n * length / columns, truncated. No column is divided for.
///
/// Proof. With the step s = ceil(length * 2^40 / columns) the position n * s / 2^40 lies above the
/// true n * length / columns by less than n / 2^40. A true position that is no whole number lies at
/// least 1 / columns below the next one. Both have the same integer part as long as n * columns is
/// at most 2^40, hence up to rows of a million columns.
struct Stretch {
    static constexpr int kFraction = 40;
    std::int32_t length;
    std::int64_t step;
};

/// The stretch to this many columns, at least 1.
[[gnu::always_inline]] constexpr Stretch MakeStretch(std::int32_t length, std::int32_t columns) {
    const std::int64_t whole = std::int64_t(length) << Stretch::kFraction;
    return {length, (whole + columns - 1) / columns};
}

/// One more sample of a 2 x 2 block comes into the mean of those that came before it.
TP_PIXEL std::uint8_t AddToMean(std::uint32_t mean, std::uint32_t sample, std::uint32_t before) {
    return static_cast<std::uint8_t>((sample + before * mean) / (before + 1));
}

/// The light that falls on up to kWidestBand samples beside each other: sample i becomes its value,
/// limited to low[i] .. high[i], plus added[i] modulo 256.
struct Light {
    static constexpr int kWidestBand = 78 * 4;
    std::uint8_t low[kWidestBand];
    std::uint8_t high[kWidestBand];
    std::uint8_t added[kWidestBand];
};

/// The kernels of one instruction set.
struct TurnKernels {
    /// out[i] = the sample of `in` that column first + i of a stretched row shows.
    void (*stretchBytes)(std::uint8_t *out, const std::uint8_t *in, const Stretch &stretch,
                         std::int32_t first, std::ptrdiff_t count);
    /// The same for two planes that are stretched alike.
    void (*stretchTwoPlanes)(std::uint8_t *outA, const std::uint8_t *inA, std::uint8_t *outB,
                             const std::uint8_t *inB, const Stretch &stretch, std::int32_t first,
                             std::ptrdiff_t count);
    /// The same for samples of 4 bytes.
    void (*stretchPixels)(std::uint8_t *out, const std::uint8_t *in, const Stretch &stretch,
                          std::int32_t first, std::ptrdiff_t count);
    /// out[i] = the mean of the first two samples of a block, 2i and 2i + 1 here.
    void (*meanOfTwo)(std::uint8_t *out, const std::uint8_t *samples, std::ptrdiff_t count);
    /// out[i], so far the mean of two, takes in the third and fourth, 2i and 2i + 1 here.
    void (*meanOfFour)(std::uint8_t *out, const std::uint8_t *samples, std::ptrdiff_t count);
    /// out[i] = in[i] in the light of sample i.
    void (*shine)(std::uint8_t *out, const std::uint8_t *in, const Light &light,
                  std::ptrdiff_t count);
    /// out[i] = in[-i].
    void (*mirror)(std::uint8_t *out, const std::uint8_t *in, std::ptrdiff_t count);
    /// out[i] = base + (in[i] - base) * weights[i] / divisor, truncated toward base, at most limit.
    /// No weight is above the divisor, which is at most 32767.
    void (*scale)(std::uint8_t *out, const std::uint8_t *in, const std::int16_t *weights,
                  std::ptrdiff_t count, std::int32_t divisor, std::int32_t base,
                  std::int32_t limit);
    /// Every fourth byte, from the fourth on, of a row of pixels.
    void (*copyFourth)(std::uint8_t *out, const std::uint8_t *in, std::ptrdiff_t pixels);
    /// out[row * outPitch + column] = in[column * inPitch + row].
    void (*transposeBytes)(std::uint8_t *out, std::ptrdiff_t outPitch, const std::uint8_t *in,
                           std::ptrdiff_t inPitch, std::ptrdiff_t rows, std::ptrdiff_t columns);
    /// The same with samples of 4 bytes; the pitches stay bytes.
    void (*transposePixels)(std::uint8_t *out, std::ptrdiff_t outPitch, const std::uint8_t *in,
                            std::ptrdiff_t inPitch, std::ptrdiff_t rows, std::ptrdiff_t columns);
};

template<>
const TurnKernels KernelsFor<TurnKernels>::baseline;
template<>
const TurnKernels KernelsFor<TurnKernels>::avx2;
template<>
const TurnKernels KernelsFor<TurnKernels>::avx512;

inline const TurnKernels &TurnRows() {
    return KernelsFor<TurnKernels>::Chosen();
}

} // namespace tp
