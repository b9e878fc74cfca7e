/// \file Rows.h
/// Row kernels: bytes in, bytes out, over contiguous ranges. They know nothing of frames, progress
/// or transitions. A count below 1 does nothing; output and inputs never overlap.
#pragma once

#include "Copies.h"
#include "Isa.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tp {

/// The bytes of a cache line, and the place of a byte within its line.
inline constexpr std::ptrdiff_t kLine = 64;
inline std::ptrdiff_t PlaceInLine(const std::uint8_t *byte) {
    return static_cast<std::ptrdiff_t>(reinterpret_cast<std::uintptr_t>(byte) & (kLine - 1));
}

/// CopyBytes past the caches, for outputs too large to stay in them: the old contents of the
/// output's cache lines are not fetched. Before another thread reads the output, call
/// FinishStreaming.
void CopyStreaming(std::uint8_t *out, const std::uint8_t *in, std::ptrdiff_t count);

/// Takes each byte from a where its mask is 255, from b where it is 0.
void ChooseBytes(std::uint8_t *out, const std::uint8_t *a, const std::uint8_t *b,
                 const std::uint8_t *mask, std::ptrdiff_t count);

/// ChooseBytes past the caches.
void ChooseStreaming(std::uint8_t *out, const std::uint8_t *a, const std::uint8_t *b,
                     const std::uint8_t *mask, std::ptrdiff_t count);

/// Streams count bytes, split of them from left and the others from right, 0 <= split <= count. The
/// cache line in which both meet is written whole too.
void JoinStreaming(std::uint8_t *out, const std::uint8_t *left, std::ptrdiff_t split,
                   const std::uint8_t *right, std::ptrdiff_t count);

/// Makes what was streamed visible to other threads.
void FinishStreaming();

/// Either of the two copies.
using CopyFunction = void (*)(std::uint8_t *out, const std::uint8_t *in, std::ptrdiff_t count);

/// How an output plane of this many bytes is written: past the caches from 512 KiB on, about what a
/// core's own caches hold of a call's three frames. The environment variable TP_ERASE_STREAM_BYTES,
/// read once, sets another limit.
CopyFunction CopyFor(std::ptrdiff_t outputBytes);

/// The kernels of one instruction set.
struct RowKernels {
    /// out[i] = BlendYuv(a[i], b[i], weights[i]).
    void (*blendYuv)(std::uint8_t *out, const std::uint8_t *a, const std::uint8_t *b,
                     const std::uint8_t *weights, std::ptrdiff_t count);
    /// out[i] = BlendRgb(a[i], b[i], weights[i]).
    void (*blendRgb)(std::uint8_t *out, const std::uint8_t *a, const std::uint8_t *b,
                     const std::uint8_t *weights, std::ptrdiff_t count);
};

template<>
const RowKernels KernelsFor<RowKernels>::baseline;
template<>
const RowKernels KernelsFor<RowKernels>::avx2;
template<>
const RowKernels KernelsFor<RowKernels>::avx512;

inline const RowKernels &Rows() {
    return KernelsFor<RowKernels>::Chosen();
}

} // namespace tp
