#include "Rows.h"

#include <cstdlib>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace tp {

void ChooseBytes(std::uint8_t *__restrict out, const std::uint8_t *__restrict a,
                 const std::uint8_t *__restrict b, const std::uint8_t *__restrict mask,
                 std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i)
        out[i] = static_cast<std::uint8_t>((a[i] & mask[i]) | (b[i] & ~mask[i]));
}

#ifdef __SSE2__

namespace {

// Whole cache lines come from load(offset), 16 bytes at a time, and what is left at either end from
// plain(begin, end). 16-byte stores serve every instruction set: four of them fill a line, which is
// what leaves the core either way.
template<class Plain, class Load>
void Stream(std::uint8_t *out, std::ptrdiff_t count, const Plain &plain, const Load &load) {
    constexpr std::ptrdiff_t line = 64;
    if (count < 4 * line) {
        plain(0, count);
        return;
    }
    auto i = static_cast<std::ptrdiff_t>(-reinterpret_cast<std::uintptr_t>(out) & (line - 1));
    plain(0, i);
    for (; i + line <= count; i += line) {
        auto *to = reinterpret_cast<__m128i *>(out + i);
        const __m128i a = load(i);
        const __m128i b = load(i + 16);
        const __m128i c = load(i + 32);
        const __m128i d = load(i + 48);
        _mm_stream_si128(to, a);
        _mm_stream_si128(to + 1, b);
        _mm_stream_si128(to + 2, c);
        _mm_stream_si128(to + 3, d);
    }
    plain(i, count);
}

__m128i Load(const std::uint8_t *from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(from));
}

} // namespace

void CopyStreaming(std::uint8_t *out, const std::uint8_t *in, std::ptrdiff_t count) {
    const auto plain = [=](std::ptrdiff_t begin, std::ptrdiff_t end) {
        CopyBytes(out + begin, in + begin, end - begin);
    };
    Stream(out, count, plain, [=](std::ptrdiff_t i) { return Load(in + i); });
}

void ChooseStreaming(std::uint8_t *out, const std::uint8_t *a, const std::uint8_t *b,
                     const std::uint8_t *mask, std::ptrdiff_t count) {
    const auto plain = [=](std::ptrdiff_t begin, std::ptrdiff_t end) {
        ChooseBytes(out + begin, a + begin, b + begin, mask + begin, end - begin);
    };
    Stream(out, count, plain, [=](std::ptrdiff_t i) {
        const __m128i m = Load(mask + i);
        return _mm_or_si128(_mm_and_si128(m, Load(a + i)), _mm_andnot_si128(m, Load(b + i)));
    });
}

void FinishStreaming() {
    _mm_sfence();
}

#else

void CopyStreaming(std::uint8_t *out, const std::uint8_t *in, std::ptrdiff_t count) {
    CopyBytes(out, in, count);
}

void ChooseStreaming(std::uint8_t *out, const std::uint8_t *a, const std::uint8_t *b,
                     const std::uint8_t *mask, std::ptrdiff_t count) {
    ChooseBytes(out, a, b, mask, count);
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
