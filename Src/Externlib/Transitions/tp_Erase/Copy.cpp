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

// 16-byte stores serve every instruction set: four of them fill a cache line, which is what leaves
// the core either way.
template<class Load>
void StreamLine(std::uint8_t *out, std::ptrdiff_t i, const Load &load) {
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

// Whole cache lines come from load(offset), 16 bytes at a time, and what is left at either end from
// plain(begin, end).
template<class Plain, class Load>
void Stream(std::uint8_t *out, std::ptrdiff_t count, const Plain &plain, const Load &load) {
    std::ptrdiff_t i = -PlaceInLine(out) & (kLine - 1);
    if (count < i + kLine) {
        plain(0, count);
        return;
    }
    plain(0, i);
    for (; i + kLine <= count; i += kLine)
        StreamLine(out, i, load);
    plain(i, count);
}

__m128i Load(const std::uint8_t *from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(from));
}

} // namespace

void CopyStreaming(std::uint8_t *out, const std::uint8_t *in, std::ptrdiff_t count) {
    const auto plain = [=](std::ptrdiff_t begin, std::ptrdiff_t end) {
        std::ptrdiff_t few = end - begin;
        // Hides how few they are: a compiler that knows copies them in a loop of small pieces,
        // which takes half as long again for a whole frame as calling memcpy does.
        asm("" : "+r"(few));
        CopyBytes(out + begin, in + begin, few);
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

void JoinStreaming(std::uint8_t *out, const std::uint8_t *left, std::ptrdiff_t split,
                   const std::uint8_t *right, std::ptrdiff_t count) {
    const std::ptrdiff_t fromLeft = PlaceInLine(out + split);
    const std::ptrdiff_t begin = split - fromLeft;
    const std::ptrdiff_t end = begin + kLine;
    if (split < kLine || count - split < kLine) {
        CopyStreaming(out, left, split);
        CopyStreaming(out + split, right, count - split);
        return;
    }
    CopyStreaming(out, left, begin);
    // A line's worth on either side of the split, so that no size depends on it.
    std::uint8_t lines[2 * kLine + kLine];
    std::memcpy(lines + fromLeft, left + split - kLine, kLine);
    std::memcpy(lines + fromLeft + kLine, right, kLine);
    StreamLine(out, begin, [&](std::ptrdiff_t i) { return Load(lines + kLine + (i - begin)); });
    CopyStreaming(out + end, right + (end - split), count - end);
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

void JoinStreaming(std::uint8_t *out, const std::uint8_t *left, std::ptrdiff_t split,
                   const std::uint8_t *right, std::ptrdiff_t count) {
    CopyBytes(out, left, split);
    CopyBytes(out + split, right, count - split);
}

void FinishStreaming() {}

#endif

CopyFunction CopyFor(std::ptrdiff_t outputBytes) {
    static const std::ptrdiff_t limit = [] {
        const char *wish = std::getenv("TP_ERASE_STREAM_BYTES");
        return wish ? std::ptrdiff_t(std::atoll(wish)) : std::ptrdiff_t(1) << 19;
    }();
    return outputBytes >= limit ? CopyStreaming : CopyBytes;
}

} // namespace tp
