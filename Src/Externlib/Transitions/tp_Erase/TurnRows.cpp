#include "TurnRows.h"

#include <cstring>

#ifdef __SSE4_1__
#include <immintrin.h>
#endif

namespace tp::TP_ISA {

using Bytes16 = std::uint8_t __attribute__((vector_size(16)));
using Halves8 = std::uint16_t __attribute__((vector_size(16)));
using Words4 = std::uint32_t __attribute__((vector_size(16)));

template<class Vector>
[[gnu::always_inline]] static inline Vector Load(const void *bytes) {
    Vector value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

template<class Vector>
[[gnu::always_inline]] static inline void Store(std::uint8_t *bytes, Vector value) {
    std::memcpy(bytes, &value, sizeof value);
}

/// Calls block(i) for blocks of `size` that cover 0 .. count - 1, which is at least one block: the
/// last one ends at the end, over what its neighbour has done.
template<std::ptrdiff_t size, class Block>
[[gnu::always_inline]] static inline void ForBlocks(std::ptrdiff_t count, Block block) {
    for (std::ptrdiff_t i = 0; i + size < count; i += size)
        block(i);
    block(count - size);
}

// ---------------------------------------------------------------------------------------------
// Resampling
// ---------------------------------------------------------------------------------------------

/// Calls draw(i, block) for the blocks, i being the first column of each.
template<class Draw>
[[gnu::always_inline]] static inline void ForColumnBlocks(const Resampling &resampling, Draw draw) {
    const std::ptrdiff_t last = resampling.count - ColumnBlock::kColumns;
    ColumnBlock *block = resampling.blocks;
    std::ptrdiff_t i = 0;
    for (; i < last; i += ColumnBlock::kColumns)
        draw(i, *block++);
    draw(last > 0 ? last : 0, *block);
}

/// The upper half of every sample, in order.
[[gnu::always_inline]] static inline Halves8 UpperHalves(Words4 a, Words4 b) {
    return __builtin_shufflevector((Halves8)a, (Halves8)b, 1, 3, 5, 7, 9, 11, 13, 15);
}

[[gnu::always_inline]] static inline Bytes16 UpperHalves(Halves8 a, Halves8 b) {
    return __builtin_shufflevector((Bytes16)a, (Bytes16)b, 1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21,
                                   23, 25, 27, 29, 31);
}

/// Within a block positions are counted from its start in units of 2^-24, the first one and the
/// step rounded up. They are too high by at most a unit for each column of the block and one more,
/// which changes no integer part, as in the proof of Resampling, in rows of less than 900,000
/// columns.
static void FillBlocks(const Resampling &resampling, std::int32_t first) {
    constexpr int kFraction = 24, kDropped = Resampling::kFraction - kFraction;
    const auto roundedUp = [](std::int64_t position) {
        return static_cast<std::uint32_t>((position + (1 << kDropped) - 1) >> kDropped);
    };
    const std::int64_t step = resampling.step;
    const std::int32_t lastStart = resampling.length - resampling.window;
    const Words4 ahead = Words4{0, 1, 2, 3} * roundedUp(step);
    const std::uint32_t fourAhead = 4 * roundedUp(step);
    ForColumnBlocks(resampling, [&](std::ptrdiff_t column, ColumnBlock &block) {
        const std::int64_t position = (first + column) * step;
        const auto sample = static_cast<std::int32_t>(position >> Resampling::kFraction);
        block.start = sample < lastStart ? sample : lastStart;
        const Words4 a =
            ahead + roundedUp(position - (std::int64_t(block.start) << Resampling::kFraction));
        const Words4 b = a + fourAhead, c = b + fourAhead, d = c + fourAhead;
        Store(block.offsets, UpperHalves(UpperHalves(a, b), UpperHalves(c, d)));
    });
}

template<int size>
static inline void ResampleOneByOne(std::uint8_t *out, const std::uint8_t *in,
                                    const Resampling &resampling) {
    const int columns =
        resampling.count < ColumnBlock::kColumns ? resampling.count : ColumnBlock::kColumns;
    ForColumnBlocks(resampling, [&](std::ptrdiff_t column, const ColumnBlock &block) {
        const std::uint8_t *const from = in + std::ptrdiff_t(block.start) * size;
        for (int i = 0; i < columns; ++i)
            std::memcpy(out + (column + i) * size, from + block.offsets[i] * size, size);
    });
}

static void ResampleBytes(std::uint8_t *out, const std::uint8_t *in, const Resampling &resampling) {
#ifdef __SSE4_1__
    if (resampling.window == 16)
        return ForColumnBlocks(resampling, [&](std::ptrdiff_t i, const ColumnBlock &block) {
            Store(out + i,
                  _mm_shuffle_epi8(Load<__m128i>(in + block.start), Load<__m128i>(block.offsets)));
        });
    if (resampling.window == 32)
        return ForColumnBlocks(resampling, [&](std::ptrdiff_t i, const ColumnBlock &block) {
            // An offset with bit 7 set shows a 0: in the lower half one from 16 on, in the upper
            // half one below.
            const auto offsets = Load<Bytes16>(block.offsets);
            const auto low = (__m128i)(offsets + 112), high = (__m128i)(offsets - 16);
            Store(out + i, _mm_shuffle_epi8(Load<__m128i>(in + block.start), low) |
                               _mm_shuffle_epi8(Load<__m128i>(in + block.start + 16), high));
        });
#endif
    ResampleOneByOne<1>(out, in, resampling);
}

static void ResamplePixels(std::uint8_t *out, const std::uint8_t *in,
                           const Resampling &resampling) {
#if defined(__AVX512F__)
    if (resampling.window != 0) {
        const int upperHalf = (resampling.window - 16) * 4; // or once more what is the only one
        return ForColumnBlocks(resampling, [&](std::ptrdiff_t i, const ColumnBlock &block) {
            const __m512i samples =
                _mm512_maskz_cvtepu8_epi32(0xffff, Load<__m128i>(block.offsets));
            const std::uint8_t *window = in + std::ptrdiff_t(block.start) * 4;
            Store(out + i * 4, _mm512_permutex2var_epi32(Load<__m512i>(window), samples,
                                                         Load<__m512i>(window + upperHalf)));
        });
    }
#elif defined(__AVX2__)
    if (resampling.window != 0)
        return ForColumnBlocks(resampling, [&](std::ptrdiff_t column, const ColumnBlock &block) {
            // Eight columns show samples of sixteen beside each other.
            const int lastStart = resampling.window - 16;
            for (int i = 0; i < ColumnBlock::kColumns; i += 8) {
                const int start = block.offsets[i] < lastStart ? block.offsets[i] : lastStart;
                const __m256i samples = _mm256_sub_epi32(
                    _mm256_cvtepu8_epi32(_mm_loadl_epi64((const __m128i *)(block.offsets + i))),
                    _mm256_set1_epi32(start));
                const std::uint8_t *window = in + (std::ptrdiff_t(block.start) + start) * 4;
                const __m256i low = _mm256_permutevar8x32_epi32(Load<__m256i>(window), samples);
                const __m256i high =
                    _mm256_permutevar8x32_epi32(Load<__m256i>(window + 32), samples);
                // Samples from 8 on have bit 3 set; moved to the sign it selects the half.
                const __m256 half = _mm256_castsi256_ps(_mm256_slli_epi32(samples, 28));
                Store(out + (column + i) * 4,
                      _mm256_blendv_ps(_mm256_castsi256_ps(low), _mm256_castsi256_ps(high), half));
            }
        });
#endif
    ResampleOneByOne<4>(out, in, resampling);
}

static void MeanOfTwo(std::uint8_t *__restrict out, const std::uint8_t *__restrict samples,
                      std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i)
        out[i] = AddToMean(samples[2 * i], samples[2 * i + 1], 1);
}

static void MeanOfFour(std::uint8_t *__restrict out, const std::uint8_t *__restrict samples,
                       std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i)
        out[i] = AddToMean(AddToMean(out[i], samples[2 * i], 2), samples[2 * i + 1], 3);
}

// ---------------------------------------------------------------------------------------------
// Lighting
// ---------------------------------------------------------------------------------------------

[[gnu::always_inline]] static inline std::uint8_t Lit(std::uint8_t value, std::uint8_t low,
                                                      std::uint8_t high, std::uint8_t added) {
    const std::uint8_t raised = value > low ? value : low;
    const std::uint8_t limited = raised < high ? raised : high;
    return static_cast<std::uint8_t>(limited + added);
}

static void Shine(std::uint8_t *__restrict out, const std::uint8_t *__restrict in,
                  const Light &light, std::ptrdiff_t count) {
    const std::uint8_t *__restrict low = light.low, *__restrict high = light.high,
                                   *__restrict added = light.added;
    for (std::ptrdiff_t i = 0; i < count; ++i)
        out[i] = Lit(in[i], low[i], high[i], added[i]);
}

static void Mirror(std::uint8_t *__restrict out, const std::uint8_t *__restrict in,
                   std::ptrdiff_t count) {
    if (count >= 16)
        ForBlocks<16>(count, [&](std::ptrdiff_t i) {
            const auto block = Load<Bytes16>(in - i - 15);
            Store(out + i, __builtin_shufflevector(block, block, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6,
                                                   5, 4, 3, 2, 1, 0));
        });
    else
        for (std::ptrdiff_t i = 0; i < count; ++i)
            out[i] = in[-i];
}

// The quotient is below 256 and a fraction of the divisor, at most 32767, away from the next whole
// number unless it is whole: more than half a unit in the last place of a float, so that the
// rounded quotient truncates to the same number.
static void Scale(std::uint8_t *__restrict samples, const std::int16_t *__restrict weights,
                  std::ptrdiff_t count, std::int32_t divisor, std::int32_t base,
                  std::int32_t limit) {
    const auto by = static_cast<float>(divisor);
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        const auto product = static_cast<float>((samples[i] - base) * weights[i]);
        const std::int32_t value = static_cast<std::int32_t>(product / by) + base;
        samples[i] = static_cast<std::uint8_t>(value < limit ? value : limit);
    }
}

// ---------------------------------------------------------------------------------------------
// Mirroring about a diagonal
// ---------------------------------------------------------------------------------------------

[[gnu::always_inline]] static inline Bytes16 MixLow(Bytes16 a, Bytes16 b) {
    return __builtin_shufflevector(a, b, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
}

[[gnu::always_inline]] static inline Bytes16 MixHigh(Bytes16 a, Bytes16 b) {
    return __builtin_shufflevector(a, b, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15,
                                   31);
}

[[gnu::always_inline]] static inline Words4 MixLow(Words4 a, Words4 b) {
    return __builtin_shufflevector(a, b, 0, 4, 1, 5);
}

[[gnu::always_inline]] static inline Words4 MixHigh(Words4 a, Words4 b) {
    return __builtin_shufflevector(a, b, 2, 6, 3, 7);
}

/// A square tile of as many rows as a vector has samples. Mixing row i with row i + side / 2, for
/// all i, moves the uppermost bit of a sample's row number to the lowest of its column number and
/// the uppermost of that to the lowest of the row; after log2(side) rounds they have changed
/// places.
template<class Vector, int side>
[[gnu::always_inline]] static inline void TransposeTile(std::uint8_t *out, std::ptrdiff_t outPitch,
                                                        const std::uint8_t *in,
                                                        std::ptrdiff_t inPitch) {
    Vector rows[side], mixed[side];
    for (int i = 0; i < side; ++i)
        rows[i] = Load<Vector>(in + i * inPitch);
    for (int round = 1; round < side; round *= 2) {
        for (int i = 0; i < side / 2; ++i) {
            mixed[2 * i] = MixLow(rows[i], rows[i + side / 2]);
            mixed[2 * i + 1] = MixHigh(rows[i], rows[i + side / 2]);
        }
        for (int i = 0; i < side; ++i)
            rows[i] = mixed[i];
    }
    for (int i = 0; i < side; ++i)
        Store(out + i * outPitch, rows[i]);
}

template<class Vector, int side>
static inline void Transpose(std::uint8_t *out, std::ptrdiff_t outPitch, const std::uint8_t *in,
                             std::ptrdiff_t inPitch, std::ptrdiff_t rows, std::ptrdiff_t columns) {
    constexpr std::ptrdiff_t size = sizeof(Vector) / side;
    // So many rows of the input are asked for ahead: the machine does not foresee steps this long.
    constexpr std::ptrdiff_t ahead = 32;
    if (rows < side || columns < side) {
        for (std::ptrdiff_t row = 0; row < rows; ++row)
            for (std::ptrdiff_t column = 0; column < columns; ++column)
                std::memcpy(out + row * outPitch + column * size,
                            in + column * inPitch + row * size, size);
        return;
    }
    ForBlocks<side>(columns, [&](std::ptrdiff_t column) {
        for (std::ptrdiff_t i = column + ahead; i < column + ahead + side && i < columns; ++i) {
            __builtin_prefetch(in + i * inPitch);
            __builtin_prefetch(in + i * inPitch + rows * size - 1);
        }
        ForBlocks<side>(rows, [&](std::ptrdiff_t row) {
            TransposeTile<Vector, side>(out + row * outPitch + column * size, outPitch,
                                        in + column * inPitch + row * size, inPitch);
        });
    });
}

static void TransposeBytes(std::uint8_t *out, std::ptrdiff_t outPitch, const std::uint8_t *in,
                           std::ptrdiff_t inPitch, std::ptrdiff_t rows, std::ptrdiff_t columns) {
    Transpose<Bytes16, 16>(out, outPitch, in, inPitch, rows, columns);
}

static void TransposePixels(std::uint8_t *out, std::ptrdiff_t outPitch, const std::uint8_t *in,
                            std::ptrdiff_t inPitch, std::ptrdiff_t rows, std::ptrdiff_t columns) {
    Transpose<Words4, 4>(out, outPitch, in, inPitch, rows, columns);
}

} // namespace tp::TP_ISA

using namespace tp;
using namespace tp::TP_ISA;

template<>
const TurnKernels tp::KernelsFor<TurnKernels>::TP_ISA = {
    FillBlocks, ResampleBytes, ResamplePixels, MeanOfTwo,      MeanOfFour,
    Shine,      Mirror,        Scale,          TransposeBytes, TransposePixels};
