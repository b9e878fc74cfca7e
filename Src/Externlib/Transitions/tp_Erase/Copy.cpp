#include "Rows.h"

#include <cstdlib>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace tp {

#ifdef __SSE2__

// 16-byte stores serve every instruction set: four of them fill a cache line, which is what leaves
// the core either way.
void CopyStreaming(std::uint8_t *out, const std::uint8_t *in, std::ptrdiff_t count) {
    constexpr std::ptrdiff_t line = 64;
    if (count < 4 * line) {
        CopyBytes(out, in, count);
        return;
    }
    const auto head =
        static_cast<std::ptrdiff_t>(-reinterpret_cast<std::uintptr_t>(out) & (line - 1));
    CopyBytes(out, in, head);
    std::ptrdiff_t i = head;
    for (; i + line <= count; i += line) {
        const auto *from = reinterpret_cast<const __m128i *>(in + i);
        auto *to = reinterpret_cast<__m128i *>(out + i);
        const __m128i a = _mm_loadu_si128(from);
        const __m128i b = _mm_loadu_si128(from + 1);
        const __m128i c = _mm_loadu_si128(from + 2);
        const __m128i d = _mm_loadu_si128(from + 3);
        _mm_stream_si128(to, a);
        _mm_stream_si128(to + 1, b);
        _mm_stream_si128(to + 2, c);
        _mm_stream_si128(to + 3, d);
    }
    CopyBytes(out + i, in + i, count - i);
}

void FinishStreaming() {
    _mm_sfence();
}

#else

void CopyStreaming(std::uint8_t *out, const std::uint8_t *in, std::ptrdiff_t count) {
    CopyBytes(out, in, count);
}

void FinishStreaming() {}

#endif

CopyFunction CopyFor(std::ptrdiff_t outputBytes) {
    static const std::ptrdiff_t limit = [] {
        const char *wish = std::getenv("TP_ERASE_STREAM_BYTES");
        return wish ? std::ptrdiff_t(std::atoll(wish)) : std::ptrdiff_t(1) << 20;
    }();
    return outputBytes >= limit ? CopyStreaming : CopyBytes;
}

} // namespace tp
