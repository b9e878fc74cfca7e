#include "TurnRows.h"

#include <cstring>

#ifdef __SSSE3__
#include <immintrin.h>
#endif

namespace tp::TP_ISA {

using Bytes16 = std::uint8_t __attribute__((vector_size(16)));
using Words4 = std::uint32_t __attribute__((vector_size(16)));
using Words16 = std::uint32_t __attribute__((vector_size(64)));

template<class Vector>
[[gnu::always_inline]] static inline Vector Load(const std::uint8_t *bytes) {
    Vector value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

template<class Vector>
[[gnu::always_inline]] static inline void Store(std::uint8_t *bytes, Vector value) {
    std::memcpy(bytes, &value, sizeof value);
}

// ---------------------------------------------------------------------------------------------
// Stretching
// ---------------------------------------------------------------------------------------------

template<int size>
[[gnu::always_inline]] static inline void
StretchOneByOne(std::uint8_t *__restrict out, const std::uint8_t *__restrict in,
                const Stretch &stretch, std::int32_t first, std::ptrdiff_t count) {
    const std::int64_t step = stretch.step;
    std::int64_t position = first * step;
    for (std::ptrdiff_t i = 0; i < count; ++i, position += step)
        std::memcpy(out + i * size, in + (position >> Stretch::kFraction) * size, size);
}

#ifdef __SSSE3__

/// Sixteen columns at a time, out of a window of the samples that they can show. Within a block
/// positions are counted from the window's start in units of 2^-24, start and steps rounded up:
/// together they are too high by less than 17 units, which is below 1 / columns and therefore, as
/// in the proof of Stretch, changes no integer part.
struct Block {
    static constexpr int kColumns = 16;
    static constexpr int kWindow = 32;
    static constexpr int kFraction = 24;
    static constexpr int kDropped = Stretch::kFraction - kFraction;

    Words16 offsets;
    std::int64_t lastWindow;

    [[gnu::always_inline]] explicit Block(const Stretch &stretch)
        : lastWindow(stretch.length - kWindow) {
        const auto step = static_cast<std::uint32_t>(RoundedUp(stretch.step));
        for (std::uint32_t i = 0; i < kColumns; ++i)
            offsets[i] = i * step;
    }
    /// Sixteen columns advance by at most 31 samples, and by at most 15 where rows do not shrink.
    [[gnu::always_inline]] static inline bool Fits(const Stretch &stretch) {
        return stretch.length >= kWindow && stretch.step <= std::int64_t(2) << Stretch::kFraction;
    }
    [[gnu::always_inline]] static inline std::int64_t RoundedUp(std::int64_t position) {
        return (position + (1 << kDropped) - 1) >> kDropped;
    }
    /// Where in the row the window of this position starts; it never leaves the row.
    [[gnu::always_inline]] std::int64_t Window(std::int64_t position) const {
        const std::int64_t sample = position >> Stretch::kFraction;
        return sample < lastWindow ? sample : lastWindow;
    }
    /// Which samples of the window the columns show.
    [[gnu::always_inline]] Bytes16 Samples(std::int64_t position, std::int64_t window) const {
        const auto start =
            static_cast<std::uint32_t>(RoundedUp(position - (window << Stretch::kFraction)));
        return __builtin_convertvector((start + offsets) >> kFraction, Bytes16);
    }
};

[[gnu::always_inline]] static inline Bytes16 Pick(const std::uint8_t *window, Bytes16 index) {
    const auto i = (__m128i)index;
    const __m128i low = _mm_shuffle_epi8(Load<__m128i>(window), i);
    const __m128i high = _mm_shuffle_epi8(Load<__m128i>(window + 16), i);
    // Indices below 16 have bit 4 clear; moved to bit 7 it chooses the half.
    return (Bytes16)_mm_blendv_epi8(low, high, _mm_slli_epi16(i, 3));
}

static void StretchBytes(std::uint8_t *__restrict out, const std::uint8_t *__restrict in,
                         const Stretch &stretch, std::int32_t first, std::ptrdiff_t count) {
    std::ptrdiff_t done = 0;
    if (Block::Fits(stretch)) {
        const Block block(stretch);
        const std::int64_t step = stretch.step;
        std::int64_t position = first * step;
        for (; done + Block::kColumns <= count; done += Block::kColumns) {
            const std::int64_t window = block.Window(position);
            Store(out + done, Pick(in + window, block.Samples(position, window)));
            position += step * Block::kColumns;
        }
    }
    StretchOneByOne<1>(out + done, in, stretch, first + static_cast<std::int32_t>(done),
                       count - done);
}

#else

static void StretchBytes(std::uint8_t *out, const std::uint8_t *in, const Stretch &stretch,
                         std::int32_t first, std::ptrdiff_t count) {
    StretchOneByOne<1>(out, in, stretch, first, count);
}

#endif

static void StretchPixels(std::uint8_t *out, const std::uint8_t *in, const Stretch &stretch,
                          std::int32_t first, std::ptrdiff_t count) {
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

static void LightMirrored(std::uint8_t *__restrict out, const std::uint8_t *__restrict in,
                          const std::int16_t *__restrict light, std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i)
        out[i] = static_cast<std::uint8_t>(Limit(in[-i] + light[i], 0, kWhite));
}

static void LightTable(std::uint8_t *out, std::int32_t light) {
    for (std::int32_t v = 0; v < 256; ++v)
        out[v] = static_cast<std::uint8_t>(Limit(v + light, 0, kWhite));
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
    for (std::ptrdiff_t i = 0; i < pixels * 4; ++i)
        out[i] = (i & 3) == 3 ? in[i] : out[i];
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
[[gnu::always_inline]] static inline void Transpose(std::uint8_t *out, std::ptrdiff_t outPitch,
                                                    const std::uint8_t *in, std::ptrdiff_t inPitch,
                                                    std::ptrdiff_t rows, std::ptrdiff_t columns) {
    constexpr std::ptrdiff_t size = sizeof(Vector) / side;
    const std::ptrdiff_t tiledRows = rows / side * side;
    const std::ptrdiff_t tiledColumns = columns / side * side;
    for (std::ptrdiff_t column = 0; column < tiledColumns; column += side)
        for (std::ptrdiff_t row = 0; row < tiledRows; row += side)
            TransposeTile<Vector, side>(out + row * outPitch + column * size, outPitch,
                                        in + column * inPitch + row * size, inPitch);
    for (std::ptrdiff_t row = 0; row < rows; ++row)
        for (std::ptrdiff_t column = row < tiledRows ? tiledColumns : 0; column < columns; ++column)
            std::memcpy(out + row * outPitch + column * size, in + column * inPitch + row * size,
                        size);
}

static void TransposeBytes(std::uint8_t *out, std::ptrdiff_t outPitch, const std::uint8_t *in,
                           std::ptrdiff_t inPitch, std::ptrdiff_t rows, std::ptrdiff_t columns) {
    Transpose<Bytes16, 16>(out, outPitch, in, inPitch, rows, columns);
}

static void TransposePixels(std::uint8_t *out, std::ptrdiff_t outPitch, const std::uint8_t *in,
                            std::ptrdiff_t inPitch, std::ptrdiff_t rows, std::ptrdiff_t columns) {
    Transpose<Words4, 4>(out, outPitch, in, inPitch, rows, columns);
}

const TurnKernels kTurnRows = {StretchBytes,   StretchPixels,  MeanOfTwo, MeanOfFour,
                               LightMirrored,  LightTable,     Scale,     CopyFourth,
                               TransposeBytes, TransposePixels};

} // namespace tp::TP_ISA
