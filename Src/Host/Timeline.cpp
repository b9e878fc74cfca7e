#include "Timeline.h"

#include "Program.h"

#include <charconv>

namespace host {

namespace {

/// Numbers the steps of the result and lets through those that are wanted.
class Numbering {
public:
    Numbering(const Range &wanted, Channel<Step> &channel) : range(wanted), steps(channel) {}

    /// False when no more are wanted.
    bool Send(Step step) {
        step.number = number++;
        if (step.number >= range.end)
            return false;
        return step.number < range.begin || steps.Send(std::move(step));
    }

private:
    Range range;
    Channel<Step> &steps;
    std::int64_t number = 0;
};

} // namespace

Range ParseRange(const std::string &text) {
    Range range;
    const std::size_t colon = text.find(':');
    const auto read = [&](std::size_t from, std::size_t to, std::int64_t &value) {
        const auto [stop, error] = std::from_chars(text.data() + from, text.data() + to, value);
        return from == to || (error == std::errc() && stop == text.data() + to);
    };
    if (colon == std::string::npos || !read(0, colon, range.begin) ||
        !read(colon + 1, text.size(), range.end) || range.begin < 0 || range.begin >= range.end)
        throw Failure("--frames " + text +
                      ": give FIRST:END, the first frame and the one after the last, from 0");
    return range;
}

void RequireLengths(const Cut &cut, const Lengths &lengths) {
    const auto require = [&](const std::string &name, std::int64_t frames) {
        if (frames < cut.overlap)
            throw Failure(name + ": its " + std::to_string(frames) +
                          " frames are fewer than the transition's " + std::to_string(cut.overlap) +
                          "; give a shorter --duration");
    };
    require(cut.nameA, lengths.a);
    require(cut.nameB, lengths.b);
    const std::int64_t frames = cut.onlyOverlap ? cut.overlap : lengths.a + lengths.b - cut.overlap;
    if (frames <= cut.range.begin)
        throw Failure("--frames: the result ends before frame " + std::to_string(cut.range.begin) +
                      ", it has " + std::to_string(frames));
}

Lengths Join(SteadySource &a, SteadySource &b, const Cut &cut, Channel<Step> &steps) {
    Numbering numbering(cut.range, steps);
    Lengths lengths;
    std::deque<Frame> held;
    while (Frame frame = a.Read()) {
        ++lengths.a;
        held.push_back(std::move(frame));
        if (std::int64_t(held.size()) <= cut.overlap)
            continue;
        Step step = {0, lengths.a - cut.overlap - 1, -1, -1, std::move(held.front()), {}};
        held.pop_front();
        if (!cut.onlyOverlap && !numbering.Send(std::move(step)))
            return lengths;
    }
    if (lengths.a < cut.overlap)
        RequireLengths(cut, lengths);
    const std::int64_t start = lengths.a - cut.overlap;
    while (Frame frame = b.Read()) {
        const std::int64_t at = lengths.b++;
        const bool isBoth = at < cut.overlap;
        if (cut.onlyOverlap && !isBoth)
            return lengths;
        Step step = {0, start + at, start, isBoth ? at : -1, {}, std::move(frame)};
        if (isBoth)
            step.a = std::move(held[at]);
        if (!numbering.Send(std::move(step)))
            return lengths;
    }
    RequireLengths(cut, lengths);
    lengths.areWhole = true;
    return lengths;
}

} // namespace host
