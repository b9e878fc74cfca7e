#include "BlendRows.h"

#include <cstring>

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

// Two bytes at a time, each in its half of 16 bits. The upper byte of every second pair is a
// pixel's fourth, which passes at weights of 256 and 0.
static void FadePixels(std::uint8_t *__restrict out, const std::uint8_t *__restrict a,
                       const std::uint8_t *__restrict b, std::uint8_t weight,
                       std::ptrdiff_t count) {
    constexpr std::ptrdiff_t block = 64;
    const std::uint16_t weightA = weight, weightB = 255 - weight;
    std::uint16_t upperA[block], upperB[block];
    for (std::ptrdiff_t i = 0; i < block; ++i) {
        upperA[i] = i & 1 ? 256 : weightA;
        upperB[i] = i & 1 ? 0 : weightB;
    }
    for (std::ptrdiff_t begin = 0; begin < count * 2; begin += block) {
        const std::ptrdiff_t rest = count * 2 - begin;
        for (std::ptrdiff_t i = 0; i < (rest < block ? rest : block); ++i) {
            std::uint16_t pairA, pairB;
            std::memcpy(&pairA, a + (begin + i) * 2, 2);
            std::memcpy(&pairB, b + (begin + i) * 2, 2);
            const std::uint16_t lowerA = (pairA & 0xff) * weightA;
            const std::uint16_t lowerB = (pairB & 0xff) * weightB;
            const std::uint16_t highA = (pairA >> 8) * upperA[i];
            const std::uint16_t highB = (pairB >> 8) * upperB[i];
            const std::uint16_t pair =
                ((lowerA >> 8) + (lowerB >> 8)) | ((highA & 0xff00) + (highB & 0xff00));
            std::memcpy(out + (begin + i) * 2, &pair, 2);
        }
    }
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
const BlendKernels tp::KernelsFor<BlendKernels>::TP_ISA = {BlendFine, BlendSum, Darken, FadePixels,
                                                           BrightenRow};
