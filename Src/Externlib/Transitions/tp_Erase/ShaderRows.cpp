#include "ShaderRows.h"

#include "Pixels.h"

// Whatever has AVX-512 fills a vector faster by a gather than lane by lane, which the compiler does
// not assume by itself.
#if defined(__AVX512F__) && !defined(__clang__)
#pragma GCC target("tune=icelake-server")
#endif

namespace tp::TP_ISA {

/// A packed pixel as one number, wherever it lies.
using Pixel [[gnu::may_alias, gnu::aligned(1)]] = std::uint32_t;

// ---------------------------------------------------------------------------------------------
// DoorWay
// ---------------------------------------------------------------------------------------------

static bool SqueezedRows(std::int32_t *__restrict rows, const float *__restrict squeeze,
                         float centre, float y, float last, std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        const float c = squeeze[i] * centre;
        const float at = (y - c) * squeeze[i] + c;
        const float above = at >= 0 ? at : -1.0F;
        rows[i] = static_cast<std::int32_t>(above <= last ? above : -1.0F);
    }
    std::int32_t outside = 0;
    for (std::ptrdiff_t i = 0; i < count; ++i)
        outside |= rows[i];
    return outside >= 0;
}

static void Offsets(std::int32_t *__restrict out, const std::int32_t *__restrict rows,
                    const std::int32_t *__restrict columns, std::int32_t pitch, int shift,
                    std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i)
        out[i] = (rows[i] >> shift) * pitch + (columns[i] >> shift);
}

static void GatherPixels(std::uint8_t *__restrict out, const std::uint8_t *__restrict in,
                         const std::int32_t *__restrict offsets, std::ptrdiff_t count) {
    auto *to = reinterpret_cast<Pixel *>(out);
    const auto *from = reinterpret_cast<const Pixel *>(in);
    for (std::ptrdiff_t i = 0; i < count; ++i)
        to[i] = from[offsets[i]];
}

static void GatherBytes(std::uint8_t *__restrict out, const std::uint8_t *__restrict in,
                        const std::int32_t *__restrict offsets, std::ptrdiff_t step,
                        std::ptrdiff_t count) {
#pragma GCC unroll 8
    for (std::ptrdiff_t i = 0; i < count; ++i)
        out[i] = in[offsets[i * step]];
}

static void AddShare(std::uint8_t *__restrict out, const std::uint8_t *__restrict in, float share,
                     std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i)
        out[i] = static_cast<std::uint8_t>(
            static_cast<std::int32_t>(float(out[i]) + float(in[i]) * share));
}

// ---------------------------------------------------------------------------------------------
// CrossZoom
// ---------------------------------------------------------------------------------------------

TP_PIXEL float Fade(std::uint32_t from, std::uint32_t to, CrossFade fade) {
    return static_cast<float>(
        double(static_cast<float>(static_cast<std::int32_t>(to)) * fade.dissolve) +
        double(static_cast<std::int32_t>(from)) * fade.remain);
}

static void CrossFadeRow(float *__restrict out, const std::uint8_t *__restrict from,
                         const std::uint8_t *__restrict to, CrossFade fade, std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i)
        out[i] = Fade(from[i], to[i], fade);
}

/// A weighted sum of samples as a byte: truncated, and limited.
TP_PIXEL std::uint8_t Average(float sum, float weights) {
    const float average = sum / weights;
    return static_cast<std::uint8_t>(
        Limit(static_cast<std::int32_t>(average > -1 ? average : -1), 0, 255));
}

/// Pixels that are blurred at a time: where their samples are found and what they weigh.
constexpr int kBlock = 64;

template<int samples>
struct Block {
    std::int32_t offsets[samples][kBlock];
    float weights[samples][kBlock];
    float sums[kBlock]; ///< of the weights
};

template<int samples>
static void FindSamples(Block<samples> &block, std::int32_t pitch, int shift, const ZoomRow &row,
                        std::int32_t x0, std::int32_t step, const std::int32_t *__restrict draws,
                        std::int32_t count) {
    const ZoomRow zoom = row;
    for (std::int32_t i = 0; i < count; ++i) {
        const std::int32_t x = x0 + i * step;
        const auto column = static_cast<float>(x < zoom.lastX ? x : zoom.lastX);
        const float right = zoom.centreX - column;
        float sum = 0;
#pragma GCC unroll 6
        for (int k = 0; k < samples; ++k) {
            const float reach = ZoomReach(k, draws[i]);
            // A parabola over the reach, 0 at the pixel itself.
            const float weight = (reach - reach * reach) * 4.0F;
            const std::int32_t sampleX =
                ZoomSample(column, right, reach, zoom.strength, zoom.lastX);
            const std::int32_t sampleY =
                ZoomSample(zoom.y, zoom.down, reach, zoom.strength, zoom.lastY);
            block.offsets[k][i] = (sampleY >> shift) * pitch + (sampleX >> shift);
            block.weights[k][i] = weight;
            sum += weight;
        }
        block.sums[i] = sum;
    }
}

template<int samples>
static void AverageSamples(std::uint8_t *__restrict out, const float *__restrict faded,
                           const Block<samples> *__restrict block, std::int32_t count) {
    for (std::int32_t i = 0; i < count; ++i) {
        float sum = 0;
#pragma GCC unroll 6
        for (int k = 0; k < samples; ++k)
            sum += faded[block->offsets[k][i]] * block->weights[k][i];
        out[i] = Average(sum, block->sums[i]);
    }
}

static void BlurPlanes(const BlurPlane *planes, int planeCount, std::int32_t pitch, int shift,
                       const ZoomRow &row, std::int32_t x0, std::int32_t step,
                       const std::int32_t *draws, std::ptrdiff_t count) {
    Block<6> block;
    for (std::ptrdiff_t start = 0; start < count; start += kBlock) {
        const auto size =
            static_cast<std::int32_t>(count - start < kBlock ? count - start : kBlock);
        FindSamples(block, pitch, shift, row, x0 + static_cast<std::int32_t>(start) * step, step,
                    draws + start, size);
        for (int i = 0; i < planeCount; ++i)
            AverageSamples(planes[i].out + start, planes[i].faded, &block, size);
    }
}

template<int samples>
static void BlurPixels(BlurPlane pixels, std::int32_t pitch, const ZoomRow &row, std::int32_t x0,
                       const std::int32_t *draws, std::ptrdiff_t count) {
    /// The four samples of a pixel.
    using Float4 [[gnu::vector_size(16), gnu::aligned(4), gnu::may_alias]] = float;
    Block<samples> block;
    float sums[kBlock * 4];
    for (std::ptrdiff_t start = 0; start < count; start += kBlock) {
        const auto size =
            static_cast<std::int32_t>(count - start < kBlock ? count - start : kBlock);
        FindSamples(block, pitch, 0, row, x0 + static_cast<std::int32_t>(start), 1, draws + start,
                    size);
        for (std::int32_t i = 0; i < size; ++i) {
            Float4 sum = {};
#pragma GCC unroll 6
            for (int k = 0; k < samples; ++k)
                sum += reinterpret_cast<const Float4 *>(pixels.faded)[block.offsets[k][i]] *
                       block.weights[k][i];
            reinterpret_cast<Float4 *>(sums)[i] = sum / block.sums[i];
        }
        std::uint8_t *__restrict out = pixels.out + start * 4;
        for (std::int32_t i = 0; i < size * 4; ++i)
            out[i] = Average(sums[i], 1);
    }
}

static void HashDraws(std::int32_t *draws, std::uint32_t index, std::uint32_t seed,
                      std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        std::uint32_t x = (index + static_cast<std::uint32_t>(i)) * 0x9e3779b9U + seed;
        x = (x ^ x >> 16) * 0x21f0aaadU;
        x = (x ^ x >> 15) * 0x735a2d97U;
        x ^= x >> 15;
        draws[i] = static_cast<std::int32_t>(x % static_cast<std::uint32_t>(kDraws));
    }
}

} // namespace tp::TP_ISA

using namespace tp;
using namespace tp::TP_ISA;

template<>
const ShaderKernels tp::KernelsFor<ShaderKernels>::TP_ISA = {
    SqueezedRows, Offsets,    GatherPixels,  GatherBytes,   AddShare,
    CrossFadeRow, BlurPlanes, BlurPixels<6>, BlurPixels<5>, HashDraws};
