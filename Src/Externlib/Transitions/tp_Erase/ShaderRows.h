/// \file ShaderRows.h
/// Row kernels of the shader-style transitions. They know nothing of frames; a count
/// below 1 does nothing; output and inputs never overlap.
#pragma once

#include "Isa.h"
#include "Pixels.h"

#include <cstddef>
#include <cstdint>

namespace tp {

/// How many values a pixel's random draw can take: 0 .. 99.
inline constexpr int kDraws = 100;

/// One row of a zoom blur. Its pixels average samples on the way from the pixel to the centre.
struct ZoomRow {
    float centreX;      ///< column that the blur runs towards
    float y;            ///< this row
    float down;         ///< rows from here to the centre
    float strength;     ///< 0 none .. 0.5
    std::int32_t lastX; ///< samples are kept inside columns 0 .. lastX, rows 0 .. lastY; they leave
    std::int32_t lastY; ///< the frame only at positions beyond the transition's ends
};

/// How far sample k of a pixel lies towards the centre; the draws together cover a tenth.
TP_PIXEL float ZoomReach(int k, std::int32_t draw) {
    const auto jitter = static_cast<float>(double(draw) * 0.01);
    return static_cast<float>(double(static_cast<float>(k) + jitter) * 0.1);
}

/// A sample's column or row, from the pixel's and its distance to the centre's. It moves one way
/// as the reach grows.
TP_PIXEL std::int32_t ZoomSample(float at, float distance, float reach, float strength,
                                 std::int32_t last) {
    const float sampled = distance * reach * strength + at;
    const float above = sampled > 0 ? sampled : 0; // what is not a number counts as 0
    const auto limit = static_cast<float>(last);
    return static_cast<std::int32_t>(above < limit ? above : limit);
}

/// A cross-fade: what is left of the first input is the double 1 - dissolve.
struct CrossFade {
    float dissolve; ///< share of the second input
    double remain;  ///< share of the first
};

/// Where blurred samples go, and the cross-faded frame that they come from.
struct BlurPlane {
    std::uint8_t *out;  ///< of this row
    const float *faded; ///< of the whole frame
};

/// The kernels of one instruction set.
struct ShaderKernels {
    /// The source row that each column shows in row y: (y - c) * squeeze + c with c = squeeze *
    /// centre, truncated, and -1 where that lies outside 0 .. last. Whether none lies outside.
    bool (*squeezedRows)(std::int32_t *rows, const float *squeeze, float centre, float y,
                         float last, std::ptrdiff_t count);
    /// out[i] = (rows[i] >> shift) * pitch + (columns[i] >> shift).
    void (*offsets)(std::int32_t *out, const std::int32_t *rows, const std::int32_t *columns,
                    std::int32_t pitch, int shift, std::ptrdiff_t count);
    /// Pixels of 4 bytes: out[i] = in[offsets[i]].
    void (*gatherPixels)(std::uint8_t *out, const std::uint8_t *in, const std::int32_t *offsets,
                         std::ptrdiff_t count);
    /// out[i] = in[offsets[i * step]].
    void (*gatherBytes)(std::uint8_t *out, const std::uint8_t *in, const std::int32_t *offsets,
                        std::ptrdiff_t step, std::ptrdiff_t count);
    /// out[i] += in[i] * share: truncated, the low byte kept.
    void (*addShare)(std::uint8_t *out, const std::uint8_t *in, float share, std::ptrdiff_t count);
    /// out[i] = to[i] * dissolve + from[i] * remain, the second product and the sum in double.
    void (*crossFade)(float *out, const std::uint8_t *from, const std::uint8_t *to, CrossFade fade,
                      std::ptrdiff_t count);
    /// The blur of six samples in planes of cross-faded samples, `pitch` apart, for the columns x0,
    /// x0 + step, ... of which those past the row count as its last one. draws[i] is the draw of
    /// the pixel that gives out[i]. A shift of 1 halves the coordinates, for chroma.
    void (*blurPlanes)(const BlurPlane *planes, int planeCount, std::int32_t pitch, int shift,
                       const ZoomRow &row, std::int32_t x0, std::int32_t step,
                       const std::int32_t *draws, std::ptrdiff_t count);
    /// The blur of six samples in cross-faded pixels of four samples, `pitch` pixels apart.
    void (*blurPixels6)(BlurPlane pixels, std::int32_t pitch, const ZoomRow &row, std::int32_t x0,
                        const std::int32_t *draws, std::ptrdiff_t count);
    /// The same of five samples.
    void (*blurPixels5)(BlurPlane pixels, std::int32_t pitch, const ZoomRow &row, std::int32_t x0,
                        const std::int32_t *draws, std::ptrdiff_t count);
    /// Draws of the pixels from index on: a hash of index and seed, reduced.
    void (*hashDraws)(std::int32_t *draws, std::uint32_t index, std::uint32_t seed,
                      std::ptrdiff_t count);
};

template<>
const ShaderKernels KernelsFor<ShaderKernels>::baseline;
template<>
const ShaderKernels KernelsFor<ShaderKernels>::avx2;
template<>
const ShaderKernels KernelsFor<ShaderKernels>::avx512;

inline const ShaderKernels &Shaders() {
    return KernelsFor<ShaderKernels>::Chosen();
}

} // namespace tp
