/// \file TurnRows.h
/// Row kernels of the turns and rolls: resampling a row, the chroma of a resampled row, lighting,
/// and pictures mirrored about a diagonal. As everywhere, a count below 1 does nothing and output
/// and input never overlap.
#pragma once

#include "Isa.h"
#include "Pixels.h"

#include <cstddef>
#include <cstdint>

namespace tp {

/// Sixteen columns beside each other: column i shows sample start + offsets[i] of a row.
struct ColumnBlock {
    static constexpr std::int32_t kColumns = 16;
    std::int32_t start;
    std::uint8_t offsets[kColumns];
};

/// Nearest-neighbour resampling of rows of `length` samples, worked out once for all rows that are
/// resampled alike. `count` columns are drawn in blocks; the last one ends at the last column, over
/// what its neighbour has drawn, unless there are less columns than a block has.
///
/// Were the row resampled to n columns, column i would show sample i * length / n, truncated. No
/// column is divided for: with the step s = ceil(length * 2^40 / n) the position i * s / 2^40 lies
/// above the true one by less than i / 2^40, and a true position that is no whole number lies at
/// least 1 / n below the next one. Both have the same integer part as long as i * n is at most
/// 2^40, hence up to rows of a million columns.
struct Resampling {
    static constexpr int kFraction = 40;
    std::int32_t length;
    std::int64_t step;
    std::int32_t count;
    std::int32_t window; ///< samples from a block's start on, all in the row, that it shows; or 0
    ColumnBlock *blocks;
};

/// The resampling of rows of `samples` samples to n columns, at least 1, of which `count` are
/// drawn; `length` is as many samples, or twice as many where a column shows half of what it would,
/// rounded down. Its blocks are to be filled.
[[gnu::always_inline]] constexpr Resampling MakeResampling(std::int32_t samples,
                                                           std::int32_t length, std::int32_t n,
                                                           std::int32_t count,
                                                           ColumnBlock *blocks) {
    const std::int64_t one = std::int64_t(1) << Resampling::kFraction;
    const std::int64_t step = (length * one + n - 1) / n;
    const std::int32_t window = step <= one ? 16 : step <= 2 * one ? 32 : 0;
    const bool hasWindow = count >= ColumnBlock::kColumns && samples >= window;
    return {samples, step, count, hasWindow ? window : 0, blocks};
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
    /// Fills the blocks for the columns from `first` on.
    void (*fillBlocks)(const Resampling &resampling, std::int32_t first);
    /// out[i] = the sample of `in` that the column i shows.
    void (*resampleBytes)(std::uint8_t *out, const std::uint8_t *in, const Resampling &resampling);
    /// The same for samples of 4 bytes.
    void (*resamplePixels)(std::uint8_t *out, const std::uint8_t *in, const Resampling &resampling);
    /// out[i] = the mean of the first two samples of a block, 2i and 2i + 1 here.
    void (*meanOfTwo)(std::uint8_t *out, const std::uint8_t *samples, std::ptrdiff_t count);
    /// out[i], so far the mean of two, takes in the third and fourth, 2i and 2i + 1 here.
    void (*meanOfFour)(std::uint8_t *out, const std::uint8_t *samples, std::ptrdiff_t count);
    /// out[i] = in[i] in the light of sample i.
    void (*shine)(std::uint8_t *out, const std::uint8_t *in, const Light &light,
                  std::ptrdiff_t count);
    /// out[i] = in[-i].
    void (*mirror)(std::uint8_t *out, const std::uint8_t *in, std::ptrdiff_t count);
    /// samples[i] becomes base + (samples[i] - base) * weights[i] / divisor, truncated toward base,
    /// at most limit. No weight is above the divisor, which is at most 32767.
    void (*scale)(std::uint8_t *samples, const std::int16_t *weights, std::ptrdiff_t count,
                  std::int32_t divisor, std::int32_t base, std::int32_t limit);
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
