#include "Map.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace host {

using hostkit::Moment;
using hostkit::Transition;

namespace {

/// Positions at which the transition is drawn, 0 .. kSteps, and every how many of them it is looked
/// at more closely.
constexpr int kSteps = 1024, kLook = 16, kLooks = kSteps / kLook + 1;
/// Levels that a blend may lose by rounding.
constexpr int kRounding = 5;
/// A pixel is B from this weight of 255 on.
constexpr double kHalf = 127.5;
/// Mean distance beyond which a map does not tell the transition.
constexpr double kFarthest = 4;
constexpr std::size_t kProbes = 4096;

NoMap Refusal(const Transition &transition, const std::string &reason) {
    return NoMap("\"" + transition.name + "\" has no luma map: " + reason);
}

std::string Percent(int step) {
    return std::to_string(100 * step / kSteps) + " % of its length";
}

hostkit::Frame Filled(Path path, Size size, std::uint8_t value) {
    hostkit::Frame frame(path, size.width, size.height);
    std::memset(frame.Bytes().data(), value, frame.Bytes().size());
    return frame;
}

/// What is moved shows, for no two neighbours are alike.
hostkit::Frame Noise(Path path, Size size, std::uint64_t seed) {
    hostkit::Frame frame(path, size.width, size.height);
    for (std::uint8_t &byte : frame.Bytes()) {
        seed = seed * 6364136223846793005u + 1442695040888963407u;
        byte = std::uint8_t(seed >> 56);
    }
    return frame;
}

/// The transition between two pairs of pictures: those of Weights, and two of noise, which tell
/// whether a pixel shows its own place in them.
class Subject {
public:
    Subject(const Transition &t, Path path, Size s)
        : transition(t), size(s), weights(t, path, s), noiseA(Noise(path, s, 1)),
          noiseB(Noise(path, s, 2)), shown(path, s.width, s.height) {}

    Plane WeightsAt(int step) { return weights.Draw({}, MomentOf(step)); }
    /// Throws a NoMap where a pixel shows what no mix of both pictures at its place is.
    void CheckPlaces(int step) {
        const Plane wanted = WeightsAt(step), a(noiseA), b(noiseB), mixed(shown);
        Draw(transition, {}, MomentOf(step), shown, noiseA, noiseB);
        for (int y = 0; y < size.height; ++y)
            for (int x = 0; x < size.width; ++x) {
                const int weight = wanted(x, y);
                const int expected = (a(x, y) * (255 - weight) + b(x, y) * weight + 127) / 255;
                if (std::abs(expected - mixed(x, y)) > kRounding)
                    throw Refusal(transition,
                                  "it shows pixels that neither picture has at that place (at " +
                                      Percent(step) + ", column " + std::to_string(x) + ", row " +
                                      std::to_string(y) + ")");
            }
    }

private:
    static Moment MomentOf(int step) { return {double(step) / kSteps, step}; }

    const Transition &transition;
    Size size;
    Weights weights;
    hostkit::Frame noiseA, noiseB, shown;
};

/// When each pixel turns, 0 to 1, and more of a few of them.
struct Turns {
    Turns(const Transition &t, std::size_t count)
        : transition(t), last(count), when(count, 1), probes(std::min(count, kProbes)) {}
    const Transition &transition;
    std::vector<std::uint8_t> last; ///< the weights of the step before
    std::vector<float> when;
    std::vector<std::size_t> probes;          ///< pixels
    std::vector<std::vector<double>> weights; ///< of the probes, at each look
    bool blends = false;                      ///< some pixel shows both pictures
};

/// Takes what has changed in a stretch of pixels since the step before.
void Follow(Turns &turns, std::size_t first, const std::uint8_t *weights, std::size_t count,
            int step) {
    for (std::size_t i = 0; i < count; ++i) {
        const int before = turns.last[first + i], now = weights[i];
        if (now < before - kRounding)
            throw Refusal(turns.transition,
                          "its pixels go back from B to A (at " + Percent(step) + ")");
        turns.blends |= now > kRounding && now < 255 - kRounding;
        if (before < kHalf && now > kHalf)
            turns.when[first + i] =
                step ? float((step - 1 + (kHalf - before) / (now - before)) / kSteps) : 0;
        turns.last[first + i] = std::uint8_t(std::max(before, now));
    }
}

Turns FollowPixels(const Transition &transition, Subject &subject, Size size) {
    constexpr int kStretch = 64;
    Turns turns(transition, std::size_t(size.width) * size.height);
    for (std::size_t i = 0; i < turns.probes.size(); ++i)
        turns.probes[i] = i * turns.last.size() / turns.probes.size();
    std::vector<std::uint8_t> room;
    for (int step = 0; step <= kSteps; ++step) {
        const Plane weights = subject.WeightsAt(step);
        for (int y = 0; y < size.height; ++y) {
            const std::uint8_t *row = weights.Line(y, room);
            for (int x = 0; x < size.width; x += kStretch) {
                const std::size_t first = std::size_t(y) * size.width + x;
                const std::size_t count = std::min(kStretch, size.width - x);
                if (std::memcmp(row + x, &turns.last[first], count) != 0)
                    Follow(turns, first, row + x, count, step);
            }
        }
        if (step % kLook == 0) {
            turns.weights.emplace_back();
            for (const std::size_t i : turns.probes)
                turns.weights.back().push_back(turns.last[i] / 255.0);
        }
    }
    return turns;
}

/// The level at which the middle of a soft edge passes when the pixel turns.
double LevelOf(double when, double softness) {
    return std::clamp(when * (1 + softness) - softness / 2, 0.0, 1.0);
}

double DistanceAt(const Turns &turns, double softness) {
    double sum = 0;
    for (std::size_t i = 0; i < turns.probes.size(); ++i) {
        const double level = LevelOf(turns.when[turns.probes[i]], softness);
        for (int look = 0; look < kLooks; ++look)
            sum += std::abs(MapWeight(level, softness, double(look) / (kLooks - 1)) -
                            turns.weights[look][i]);
    }
    return 255 * sum / double(turns.probes.size() * kLooks);
}

} // namespace

Weights::Weights(const Transition &t, Path path, Size size)
    : transition(t), black(Filled(path, size, 0)), white(Filled(path, size, 255)),
      drawn(path, size.width, size.height) {}

Plane Weights::Draw(const hostkit::Motion &motion, const Moment &moment) {
    hostkit::Draw(transition, motion, moment, drawn, black, white);
    return Plane(drawn);
}

double MapWeight(double level, double softness, double progress) {
    const double at = progress * (1 + softness) - level;
    if (at < 0)
        return 0;
    if (at >= softness)
        return 1;
    const double u = at / softness;
    return u * u * (3 - 2 * u);
}

LumaMap MapOf(const Transition &transition, Path path, Size size) {
    RequirePath(transition, path);
    Subject subject(transition, path, size);
    for (int look = 0; look < kLooks; ++look)
        subject.CheckPlaces(look * kLook);
    const Turns turns = FollowPixels(transition, subject, size);
    // A pixel here and there stays A to the end.
    const auto never = std::count_if(turns.last.begin(), turns.last.end(),
                                     [](std::uint8_t weight) { return weight < kHalf; });
    if (std::size_t(never) > turns.last.size() / 1000)
        throw Refusal(transition, "a part of the picture never becomes B");
    LumaMap map = {path, size.width, size.height, {}, 0, DistanceAt(turns, 0)};
    for (int softness = 1; turns.blends && softness <= 100; ++softness)
        if (const double distance = DistanceAt(turns, softness / 100.0); distance < map.distance) {
            map.softness = softness;
            map.distance = distance;
        }
    if (map.distance > kFarthest)
        throw Refusal(transition, "it blends both pictures otherwise than at a soft edge");
    for (const float when : turns.when)
        map.levels.push_back(
            std::uint16_t(std::lround(65535 * LevelOf(when, map.softness / 100.0))));
    return map;
}

LumaMap MapOf(const Transition &transition, Size size) {
    const bool hasOther = HasPath(transition, Path::Rgb) && !transition.info.countsBytes;
    if (!HasPath(transition, Path::Yuv))
        return MapOf(transition, Path::Rgb, size);
    try {
        return MapOf(transition, Path::Yuv, size);
    } catch (const NoMap &) {
        if (!hasOther)
            throw;
        try {
            return MapOf(transition, Path::Rgb, size);
        } catch (const NoMap &) {
        }
        throw;
    }
}

} // namespace host
