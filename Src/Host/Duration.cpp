#include "Duration.h"

#include "Failure.h"

#include <cassert>
#include <charconv>
#include <optional>
#include <string_view>

extern "C" {
#include <libavutil/mathematics.h>
}

namespace host {

namespace {

constexpr AVRational kFine = {705600000, 1};
/// Seconds far beyond what is taken, which any number of decimals keeps within 64 bits.
constexpr std::int64_t kMostSeconds = 3'600'000'000;

/// A whole number of at least one digit and nothing else.
std::optional<std::int64_t> Whole(std::string_view text) {
    std::int64_t number = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || text[0] == '-')
        return {};
    return number;
}

/// A number with or without decimals, such as "2", "0.5", ".5" or "2.".
std::optional<Time> Decimal(std::string_view text, std::size_t mostDecimals = 9) {
    const std::size_t point = std::min(text.find('.'), text.size());
    const std::string_view decimals = text.substr(std::min(point + 1, text.size()));
    if (decimals.size() > mostDecimals || (point == 0 && decimals.empty()))
        return {};
    const auto whole = point ? Whole(text.substr(0, point)) : 0;
    const auto part = decimals.empty() ? 0 : Whole(decimals);
    if (!whole || !part || *whole > kMostSeconds)
        return {};
    Time duration = {*whole, {1, 1}};
    for (std::size_t i = 0; i < decimals.size(); ++i) {
        duration.value *= 10;
        duration.rate.num *= 10;
    }
    duration.value += *part;
    return duration;
}

/// Seconds behind minutes, and hours before them, where the text has colons.
std::optional<Time> Clock(std::string_view text) {
    const std::size_t last = text.rfind(':');
    std::optional<Time> seconds =
        Decimal(text.substr(last == std::string_view::npos ? 0 : last + 1));
    if (last == std::string_view::npos || !seconds)
        return seconds;
    const std::string_view front = text.substr(0, last);
    const std::size_t first = front.find(':');
    const bool hasHours = first != std::string_view::npos;
    const auto hours = hasHours ? Whole(front.substr(0, first)) : 0;
    const auto minutes = Whole(hasHours ? front.substr(first + 1) : front);
    if (!hours || !minutes || *hours > kMostSeconds / 3600 ||
        *minutes > (hasHours ? 59 : kMostSeconds / 60) ||
        seconds->value >= 60 * std::int64_t(seconds->rate.num))
        return {};
    seconds->value += (*hours * 3600 + *minutes * 60) * seconds->rate.num;
    return seconds;
}

std::optional<Time> Read(std::string_view text) {
    const auto endsIn = [&](std::string_view unit) {
        if (!text.ends_with(unit))
            return false;
        text.remove_suffix(unit.size());
        return true;
    };
    if (endsIn("f")) {
        const auto frames = Whole(text);
        return frames ? std::optional(Time{*frames, {0, 1}}) : std::nullopt;
    }
    if (endsIn("ms")) {
        std::optional<Time> duration = Decimal(text, 6);
        if (duration)
            duration->rate.num *= 1000;
        return duration;
    }
    return endsIn("s") ? Decimal(text) : Clock(text);
}

} // namespace

Time ParseTime(const std::string &text, const std::string &what) {
    constexpr std::int64_t kMostHours = 1000, kMostFrames = 1'000'000'000;
    const std::optional<Time> duration = Read(text);
    if (!duration)
        throw Failure(what + " " + text +
                      ": give seconds as in 1.5, 500ms, 0:01.5 or 1:02:03.5, or frames as in 12f");
    if (duration->value >
        (duration->IsInFrames() ? kMostFrames : kMostHours * 3600 * duration->rate.num))
        throw Failure(what + " " + text + ": give at most " +
                      (duration->IsInFrames() ? std::to_string(kMostFrames) + " frames"
                                              : std::to_string(kMostHours) + " hours"));
    return *duration;
}

std::int64_t FramesIn(const Time &duration, AVRational resultRate) {
    return duration.IsInFrames()
               ? duration.value
               : av_rescale_q(duration.value, av_inv_q(duration.rate), av_inv_q(resultRate));
}

double SecondsIn(const Time &duration, AVRational resultRate) {
    return double(duration.value) / av_q2d(duration.IsInFrames() ? resultRate : duration.rate);
}

Time operator+(const Time &a, const Time &b) {
    assert(!a.IsInFrames() && !b.IsInFrames());
    if (a.value == 0 || b.value == 0)
        return a.value ? a : b;
    if (av_cmp_q(a.rate, b.rate) == 0)
        return {a.value + b.value, a.rate};
    return {FramesIn(a, kFine) + FramesIn(b, kFine), kFine};
}

Time operator-(const Time &a, const Time &b) {
    return a + Time{-b.value, b.rate};
}

int Compare(const Time &a, const Time &b) {
    assert(!a.IsInFrames() && !b.IsInFrames());
    return av_compare_ts(a.value, av_inv_q(a.rate), b.value, av_inv_q(b.rate));
}

} // namespace host
