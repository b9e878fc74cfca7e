#include "TurnRows.h"

#include <cstring>

#ifdef __SSE4_1__
#include <immintrin.h>
#endif

namespace tp::TP_ISA {

using Bytes16 = std::uint8_t __attribute__((vector_size(16)));
using Words4 = std::uint32_t __attribute__((vector_size(16)));
#ifdef __AVX2__
using Words8 = std::uint32_t __attribute__((vector_size(32)));
#endif
#ifdef __AVX512F__
using Words16 = std::uint32_t __attribute__((vector_size(64)));
#endif

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
// Stretching
// ---------------------------------------------------------------------------------------------

template<int size>
static inline void StretchOneByOne(std::uint8_t *out, const std::uint8_t *in,
                                   const Stretch &stretch, std::int32_t first,
                                   std::ptrdiff_t count) {
    const std::int64_t step = stretch.step;
    std::int64_t position = first * step;
    for (std::ptrdiff_t i = 0; i < count; ++i, position += step)
        std::memcpy(out + i * size, in + (position >> Stretch::kFraction) * size, size);
}

#ifdef __SSE4_1__

/// A block of columns beside each other takes its samples out of a window of the row. Positions
/// are counted from the window's start in units of 2^-24, the first one and the step rounded up.
/// They are too high by at most a unit for each column of the block and one more, which changes no
/// integer part, as in the proof of Stretch, in rows of less than 900,000 columns.
template<int columns, int window>
struct StretchBlock {
    static constexpr int kFraction = 24;
    static constexpr int kDropped = Stretch::kFraction - kFraction;

    std::int64_t step;
    std::int64_t first;
    std::int64_t lastStart;
    std::uint32_t offsets[columns];

    [[gnu::always_inline]] StretchBlock(const Stretch &stretch, std::int32_t firstColumn)
        : step(stretch.step), first(firstColumn * step), lastStart(stretch.length - window) {
        for (std::uint32_t i = 0; i < columns; ++i)
            offsets[i] = i * static_cast<std::uint32_t>(RoundedUp(step));
    }
    /// Whether a window holds all that a block can show.
    [[gnu::always_inline]] static bool Fits(const Stretch &stretch) {
        return stretch.length >= window && stretch.step <= std::int64_t(window / columns)
                                                               << Stretch::kFraction;
    }
    [[gnu::always_inline]] static std::int64_t RoundedUp(std::int64_t position) {
        return (position + (1 << kDropped) - 1) >> kDropped;
    }
    /// The sample at which the window of the block from this column on starts. It never leaves the
    /// row.
    [[gnu::always_inline]] std::int64_t Start(std::ptrdiff_t column) const {
        const std::int64_t sample = (first + column * step) >> Stretch::kFraction;
        return sample < lastStart ? sample : lastStart;
    }
    /// The position of the block's first column in a window.
    [[gnu::always_inline]] std::uint32_t Position(std::ptrdiff_t column, std::int64_t start) const {
        return static_cast<std::uint32_t>(
            RoundedUp(first + column * step - (start << Stretch::kFraction)));
    }
};

/// The samples of the window that sixteen columns show, one byte each.
template<int window>
[[gnu::always_inline]] static inline __m128i Samples(const StretchBlock<16, window> &block,
                                                     std::uint32_t position) {
#ifdef __AVX512F__
    return (__m128i) __builtin_convertvector(
        (Load<Words16>(block.offsets) + position) >> block.kFraction, Bytes16);
#else
    __m128i part[4];
    for (int i = 0; i < 4; ++i) {
        const auto *offsets = reinterpret_cast<const __m128i *>(block.offsets + 4 * i);
        part[i] = _mm_srli_epi32(
            _mm_add_epi32(_mm_set1_epi32(static_cast<int>(position)), _mm_loadu_si128(offsets)),
            block.kFraction);
    }
    return _mm_packus_epi16(_mm_packs_epi32(part[0], part[1]), _mm_packs_epi32(part[2], part[3]));
#endif
}

template<int window>
[[gnu::always_inline]] static inline __m128i Pick(const std::uint8_t *in, __m128i samples) {
    const __m128i low = _mm_shuffle_epi8(Load<__m128i>(in), samples);
    if (window == 16)
        return low;
    const __m128i high = _mm_shuffle_epi8(Load<__m128i>(in + 16), samples);
    // Samples from 16 on have bit 4 set; moved to bit 7 it chooses the half.
    return _mm_blendv_epi8(low, high, _mm_slli_epi16(samples, 3));
}

template<int window, int planes>
static inline void StretchBlocks(std::uint8_t *const *out, const std::uint8_t *const *in,
                                 const Stretch &stretch, std::int32_t first, std::ptrdiff_t count) {
    const StretchBlock<16, window> block(stretch, first);
    ForBlocks<16>(count, [&](std::ptrdiff_t i) {
        const std::int64_t start = block.Start(i);
        const __m128i samples = Samples(block, block.Position(i, start));
        for (int plane = 0; plane < planes; ++plane)
            Store(out[plane] + i, Pick<window>(in[plane] + start, samples));
    });
}

#endif

template<int planes>
static inline void StretchPlanes(std::uint8_t *const *out, const std::uint8_t *const *in,
                                 const Stretch &stretch, std::int32_t first, std::ptrdiff_t count) {
#ifdef __SSE4_1__
    if (count >= 16 && StretchBlock<16, 16>::Fits(stretch))
        return StretchBlocks<16, planes>(out, in, stretch, first, count);
    if (count >= 16 && StretchBlock<16, 32>::Fits(stretch))
        return StretchBlocks<32, planes>(out, in, stretch, first, count);
#endif
    for (int plane = 0; plane < planes; ++plane)
        StretchOneByOne<1>(out[plane], in[plane], stretch, first, count);
}

static void StretchBytes(std::uint8_t *out, const std::uint8_t *in, const Stretch &stretch,
                         std::int32_t first, std::ptrdiff_t count) {
    StretchPlanes<1>(&out, &in, stretch, first, count);
}

static void StretchTwoPlanes(std::uint8_t *outA, const std::uint8_t *inA, std::uint8_t *outB,
                             const std::uint8_t *inB, const Stretch &stretch, std::int32_t first,
                             std::ptrdiff_t count) {
    std::uint8_t *const out[] = {outA, outB};
    const std::uint8_t *const in[] = {inA, inB};
    StretchPlanes<2>(out, in, stretch, first, count);
}

static void StretchPixels(std::uint8_t *out, const std::uint8_t *in, const Stretch &stretch,
                          std::int32_t first, std::ptrdiff_t count) {
#if defined(__AVX512F__)
    if (count >= 16 && StretchBlock<16, 32>::Fits(stretch)) {
        const StretchBlock<16, 32> block(stretch, first);
        const auto offsets = Load<Words16>(block.offsets);
        return ForBlocks<16>(count, [&](std::ptrdiff_t i) {
            const std::int64_t start = block.Start(i);
            const Words16 samples = (offsets + block.Position(i, start)) >> block.kFraction;
            const std::uint8_t *window = in + start * 4;
            Store(out + i * 4, _mm512_permutex2var_epi32(Load<__m512i>(window), (__m512i)samples,
                                                         Load<__m512i>(window + 64)));
        });
    }
#elif defined(__AVX2__)
    if (count >= 8 && StretchBlock<8, 16>::Fits(stretch)) {
        const StretchBlock<8, 16> block(stretch, first);
        const auto offsets = Load<Words8>(block.offsets);
        return ForBlocks<8>(count, [&](std::ptrdiff_t i) {
            const std::int64_t start = block.Start(i);
            const auto samples = (__m256i)((offsets + block.Position(i, start)) >> block.kFraction);
            const std::uint8_t *window = in + start * 4;
            const __m256i low = _mm256_permutevar8x32_epi32(Load<__m256i>(window), samples);
            const __m256i high = _mm256_permutevar8x32_epi32(Load<__m256i>(window + 32), samples);
            // Samples from 8 on have bit 3 set; moved to the sign it chooses the half.
            const __m256 half = _mm256_castsi256_ps(_mm256_slli_epi32(samples, 28));
            Store(out + i * 4,
                  _mm256_blendv_ps(_mm256_castsi256_ps(low), _mm256_castsi256_ps(high), half));
        });
    }
#endif
    StretchOneByOne<4>(out, in, stretch, first, count);
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
static void Scale(std::uint8_t *__restrict out, const std::uint8_t *__restrict in,
                  const std::int16_t *__restrict weights, std::ptrdiff_t count,
                  std::int32_t divisor, std::int32_t base, std::int32_t limit) {
    const auto by = static_cast<float>(divisor);
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        const auto product = static_cast<float>((in[i] - base) * weights[i]);
        const std::int32_t value = static_cast<std::int32_t>(product / by) + base;
        out[i] = static_cast<std::uint8_t>(value < limit ? value : limit);
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
    StretchBytes, StretchTwoPlanes, StretchPixels,  MeanOfTwo,      MeanOfFour, Shine, Mirror,
    Scale,        CopyFourth,       TransposeBytes, TransposePixels};
