/// \file Copies.h
/// The plain copies and fills that most of every transition is made of. A count below 1 does
/// nothing; output and input never overlap.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tp {

/// Copies count bytes.
inline void CopyBytes(std::uint8_t *out, const std::uint8_t *in, std::ptrdiff_t count) {
    if (count > 0)
        std::memcpy(out, in, static_cast<std::size_t>(count));
}

/// Sets count bytes.
inline void FillBytes(std::uint8_t *out, std::uint8_t value, std::ptrdiff_t count) {
    if (count > 0)
        std::memset(out, value, static_cast<std::size_t>(count));
}

} // namespace tp
