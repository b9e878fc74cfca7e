// Helpers of the shader-style transitions. Where a step is single or double precision is part of
// each formula: the results are compared with whole pixels.

#include "tp_Erase.h"

#include <cmath>

float mix(float a, float b, float t) {
    return static_cast<float>(double(b * t) + (1.0 - double(t)) * double(a));
}

float fract(float x) {
    return x - std::floor(x);
}

float random(float sx, float sy, float sz, float fx, float fy, float seed) {
    const float a = (fx + seed) * sx;
    const float b = (fy + seed) * sy;
    const float wave = std::sin((b + a) + sz * seed);
    return fract(static_cast<float>(double(seed) + double(wave) * 43758.5453));
}

float Linear_ease(float b, float c, float d, float t) {
    return b + (c * t) / d;
}

float Exponential_easeInOut(float b, float c, float d, float t) {
    if (t == 0)
        return b;
    if (t == d)
        return b + c;
    const auto s = static_cast<float>(double(t) / (double(d) * 0.5));
    const double half = double(c) * 0.5;
    const double rise =
        s < 1 ? std::exp2((double(s) - 1.0) * 10.0) : 2.0 - std::exp2((double(s) - 1.0) * -10.0);
    return static_cast<float>(double(b) + half * rise);
}

float Sinusoidal_easeInOut(float b, float c, float d, float t) {
    constexpr double pi = 3.141592653589793;
    return static_cast<float>(double(b) +
                              (std::cos(double(t) * pi / double(d)) - 1.0) * (double(c) * -0.5));
}

bool inBounds(Point2f &p) {
    return p.x >= 0 && p.x <= 1 && p.y >= 0 && p.y <= 1;
}

bool inBounds(Point2f &p, int height, int width) {
    return p.x >= 0 && p.x <= static_cast<float>(width - 1) && //
           p.y >= 0 && p.y <= static_cast<float>(height - 1);
}

Point2f project(Point2f &p, int height) {
    return {p.x, static_cast<float>(double(p.y) * -1.2 + double(height) * -0.02)};
}

void bgColor(Point2f &p, const float &reflection, int height, int width, int stride,
             const unsigned char *src, unsigned char *dst) {
    p = project(p, height);
    if (!inBounds(p, height, width))
        return;
    const float share = mix(1, 0, p.y / static_cast<float>(height)) * reflection;
    const int index = static_cast<int>(p.y) * stride + static_cast<int>(p.x) * 4;
    for (int i = 0; i < 4; ++i)
        dst[i] = static_cast<unsigned char>(
            static_cast<int>(float(dst[i]) + float(src[index + i]) * share));
}
