#include "Motion.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace hostkit {

namespace {

double Back(double u) {
    return 1 + 2.70158 * std::pow(u - 1, 3) + 1.70158 * (u - 1) * (u - 1);
}

double Elastic(double u) {
    if (u <= 0 || u >= 1)
        return u;
    return 1 + std::exp2(-10 * u) * std::sin((10 * u - 0.75) * 2 * std::numbers::pi / 3);
}

double Bounce(double u) {
    constexpr double kHeight = 7.5625, kStep = 2.75;
    if (u < 1 / kStep)
        return kHeight * u * u;
    if (u < 2 / kStep)
        return kHeight * (u - 1.5 / kStep) * (u - 1.5 / kStep) + 0.75;
    if (u < 2.5 / kStep)
        return kHeight * (u - 2.25 / kStep) * (u - 2.25 / kStep) + 0.9375;
    return kHeight * (u - 2.625 / kStep) * (u - 2.625 / kStep) + 0.984375;
}

} // namespace

const std::vector<Easing> &Easings() {
    static const std::vector<Easing> easings = {
        {"linear", "even speed", [](double u) { return u; }},
        {"smooth", "starts and ends gently", [](double u) { return u * u * (3 - 2 * u); }},
        {"in", "starts slowly", [](double u) { return u * u; }},
        {"out", "ends slowly", [](double u) { return u * (2 - u); }},
        {"in-out", "starts and ends slowly",
         [](double u) { return u < 0.5 ? 2 * u * u : 1 - 2 * (1 - u) * (1 - u); }},
        {"in-cubic", "starts very slowly", [](double u) { return u * u * u; }},
        {"out-cubic", "ends very slowly", [](double u) { return 1 - std::pow(1 - u, 3); }},
        {"in-out-cubic", "starts and ends very slowly",
         [](double u) { return u < 0.5 ? 4 * u * u * u : 1 - 4 * std::pow(1 - u, 3); }},
        {"back", "arrives early and waits", Back},
        {"elastic", "arrives early and swings", Elastic},
        {"bounce", "bounces back before it ends", Bounce},
    };
    return easings;
}

const Easing *FindEasing(std::string_view name) {
    const auto found = std::find_if(Easings().begin(), Easings().end(),
                                    [&](const Easing &easing) { return easing.name == name; });
    return found == Easings().end() ? nullptr : &*found;
}

Moment MomentOf(std::int64_t frame, std::int64_t count) {
    return {count > 1 ? double(frame) / double(count - 1) : 0.5, frame};
}

double PluginPosition(const Motion &motion, const Moment &moment) {
    // Written so that the ends are exact and that NaN counts as the start.
    const double at = moment.position > 0 ? std::min(moment.position, 1.0) : 0;
    double position = at;
    if (motion.easing && at > 0 && at < 1)
        position = std::clamp(motion.easing->curve(at), 0.0, 1.0);
    return motion.reverse ? 1 - position : position;
}

unsigned RandomSeed(const Motion &motion, const Moment &moment) {
    // SplitMix64's finisher.
    std::uint64_t z = motion.seed + (std::uint64_t(moment.frame) + 1) * 0x9e3779b97f4a7c15u;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return unsigned((z ^ (z >> 31)) >> 32);
}

} // namespace hostkit
