#include "Rows.h"

#include "Pixels.h"

namespace tp::TP_ISA {

// Bytes are blended two at a time, each in its half of 16 bits, which saves widening them and
// narrowing them again. divided(product) has the quotient in its upper byte.

static std::uint16_t Pair(const std::uint8_t *bytes) {
    std::uint16_t pair;
    std::memcpy(&pair, bytes, sizeof pair);
    return pair;
}

static std::uint16_t DividedBy255(std::uint16_t product) {
    return static_cast<std::uint16_t>(product + 1 + (product >> 8));
}

static std::uint16_t DividedBy256(std::uint16_t product) {
    return product;
}

template<class Divided>
[[gnu::always_inline]] static inline std::uint16_t
BlendPair(std::uint16_t a, std::uint16_t b, std::uint16_t weights, Divided divided) {
    const std::uint16_t others = static_cast<std::uint16_t>(~weights);
    const std::uint16_t lowA = divided((a & 0xff) * (weights & 0xff));
    const std::uint16_t lowB = divided((b & 0xff) * (others & 0xff));
    const std::uint16_t highA = divided((a >> 8) * (weights >> 8));
    const std::uint16_t highB = divided((b >> 8) * (others >> 8));
    const std::uint16_t low = (lowA >> 8) + (lowB >> 8);
    const std::uint16_t high = (highA & 0xff00) + (highB & 0xff00);
    return low | high;
}

static void BlendYuvRow(std::uint8_t *__restrict out, const std::uint8_t *__restrict a,
                        const std::uint8_t *__restrict b, const std::uint8_t *__restrict weights,
                        std::ptrdiff_t count) {
    std::ptrdiff_t i = 0;
    for (; i + 1 < count; i += 2) {
        const auto pair = BlendPair(Pair(a + i), Pair(b + i), Pair(weights + i), DividedBy255);
        std::memcpy(out + i, &pair, sizeof pair);
    }
    if (i < count)
        out[i] = tp::BlendYuv(a[i], b[i], weights[i]);
}

static void BlendRgbRow(std::uint8_t *__restrict out, const std::uint8_t *__restrict a,
                        const std::uint8_t *__restrict b, const std::uint8_t *__restrict weights,
                        std::ptrdiff_t count) {
    std::ptrdiff_t i = 0;
    for (; i + 1 < count; i += 2) {
        const auto pair = BlendPair(Pair(a + i), Pair(b + i), Pair(weights + i), DividedBy256);
        std::memcpy(out + i, &pair, sizeof pair);
    }
    if (i < count)
        out[i] = BlendRgb(a[i], b[i], weights[i]);
}

} // namespace tp::TP_ISA

using namespace tp;
using namespace tp::TP_ISA;

template<>
const RowKernels tp::KernelsFor<RowKernels>::TP_ISA = {BlendYuvRow, BlendRgbRow};
