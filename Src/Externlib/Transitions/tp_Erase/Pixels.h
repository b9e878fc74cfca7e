/// \file Pixels.h
/// The integer conventions of every transition: conversion, rounding, blends, ramps. Each formula
/// stands here once.
///
/// Everything is forced inline: this header is also compiled for wider instruction sets (Isa.h),
/// and an out-of-line copy built for one of them must not end up serving the others.
#pragma once

#include <cstdint>

namespace tp {

#define TP_PIXEL [[gnu::always_inline]] constexpr

/// Float to signed 32-bit, truncating toward zero. NaN and values out of range give -2147483648.
TP_PIXEL std::int32_t Convert(double value) {
    return value > -2147483649.0 && value < 2147483648.0 ? static_cast<std::int32_t>(value)
                                                         : INT32_MIN;
}

/// Where a progress stands on a span of whole pixels: progress * span / total, rounded half up.
TP_PIXEL std::int32_t Position(double progress, std::int32_t span, double total) {
    return Convert(progress * span / total + 0.5);
}

/// The blend of the planar paths: a at weight w, b at 255 - w, each product divided by 255 on its
/// own and truncated. Full weight reproduces the input. The products have 16 bits, like those
/// below, which keeps vectors of them narrow.
TP_PIXEL std::uint8_t BlendYuv(std::uint8_t a, std::uint8_t b, std::uint8_t w) {
    const std::uint16_t productA = a * w, productB = b * (255 - w);
    return static_cast<std::uint8_t>(productA / 255 + productB / 255);
}

/// The blend of the packed paths: each product shifted by 8 on its own, so that a blended pixel is
/// slightly darker than its inputs.
TP_PIXEL std::uint8_t BlendRgb(std::uint8_t a, std::uint8_t b, std::uint8_t w) {
    const std::uint16_t productA = a * w, productB = b * (255 - w);
    return static_cast<std::uint8_t>((productA >> 8) + (productB >> 8));
}

/// The same with one shift for both products.
TP_PIXEL std::uint8_t BlendRgbSum(std::uint8_t a, std::uint8_t b, std::uint8_t w) {
    const std::uint16_t sum = a * w + b * (255 - w);
    return static_cast<std::uint8_t>(sum >> 8);
}

/// The width in pixels of a soft edge, whatever the size of the frame.
inline constexpr std::int32_t kBandWidth = 100;

/// The weight at a distance in pixels from the far end of a soft edge: 2 at distance 1, 255 at 100,
/// negative (truncated toward zero) below 0.
TP_PIXEL std::int32_t RampWeight(std::int32_t distance) {
    return distance * 255 / kBandWidth;
}

/// n / 2 rounded up: how many chroma samples cover n pixels, or the first sample whose (even) pixel
/// is at n or beyond.
TP_PIXEL std::int32_t HalfUp(std::int32_t n) {
    return (n >> 1) + (n & 1);
}

/// A value limited to low .. high.
TP_PIXEL std::int32_t Limit(std::int32_t value, std::int32_t low, std::int32_t high) {
    return value < low ? low : value > high ? high : value;
}

/// Video black of a luma sample, video white, and the chroma of grey.
inline constexpr std::uint8_t kBlack = 16;
inline constexpr std::uint8_t kWhite = 235;
inline constexpr std::uint8_t kNeutral = 128;

} // namespace tp
