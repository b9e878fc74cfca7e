#include "Timeline.h"

#include "Failure.h"
#include "Messages.h"

#include <algorithm>
#include <charconv>
#include <cinttypes>
#include <cmath>
#include <cstdio>

namespace host {

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

Timeline::Timeline(std::vector<Part> clips, AVRational framesPerSecond)
    : parts(std::move(clips)), rate(framesPerSecond) {
    Arrange();
}

void Timeline::SetFrames(int clip, std::int64_t frames) {
    parts[clip].frames = frames;
    Arrange();
}

void Timeline::Arrange() {
    for (std::size_t i = 0; i < parts.size(); ++i) {
        RequireFits(i);
        if (i + 1 == parts.size() || !parts[i].frames)
            break;
        parts[i + 1].start = parts[i].start + *parts[i].frames - parts[i].overlap;
    }
}

std::string Timeline::Seconds(std::int64_t frames) const {
    char text[32];
    // Rounded down to the millisecond, so that it fits when it is given as a duration.
    const double milliseconds = std::floor(double(frames) * 1000 / av_q2d(rate) + 1e-6);
    std::snprintf(text, sizeof text, "%.10g", milliseconds / 1000);
    return text;
}

void Timeline::RequireFits(std::size_t clip) const {
    const Part &part = parts[clip];
    const std::int64_t before = clip ? parts[clip - 1].overlap : 0;
    if (!part.frames || *part.frames >= before + part.overlap)
        return;
    const std::string frames =
        part.name + ": has " + Counted(*part.frames, "frame") + ", fewer than ";
    if (before == 0 || part.overlap == 0)
        throw Failure(frames + "the transition's " + std::to_string(before + part.overlap) +
                      "; the longest --duration that fits is " + Seconds(*part.frames));
    const std::int64_t first = *part.frames * before / (before + part.overlap);
    throw Failure(frames + "its two transitions' " + std::to_string(before) + " + " +
                  std::to_string(part.overlap) + "; the longest durations that fit are " +
                  Seconds(first) + " and " + Seconds(*part.frames - first));
}

std::optional<std::int64_t> Timeline::Length() const {
    std::int64_t length = 0;
    for (const Part &part : parts) {
        if (!part.frames)
            return {};
        length = part.start + *part.frames;
    }
    return length;
}

Step Timeline::At(std::int64_t time) const {
    const auto shown = [&](std::size_t clip) {
        return Shown{int(clip), parts[clip].start, time - parts[clip].start};
    };
    std::size_t clip = 0;
    while (clip + 1 < parts.size() && parts[clip].frames &&
           time >= parts[clip].start + *parts[clip].frames)
        ++clip;
    Step step = {time, time, shown(clip), {}};
    const bool hasNext = clip + 1 < parts.size() && parts[clip].frames;
    if (hasNext && time >= parts[clip + 1].start) {
        step.b = shown(clip + 1);
        step.inOverlap = step.b->frame;
        step.overlap = parts[clip].overlap;
    }
    return step;
}

std::vector<Range> Timeline::Ranges(bool onlyOverlaps) const {
    if (!onlyOverlaps)
        return {{0, Length().value_or(INT64_MAX)}};
    std::vector<Range> ranges;
    for (std::size_t i = 0; i + 1 < parts.size(); ++i)
        if (parts[i].overlap > 0)
            ranges.push_back({parts[i + 1].start, parts[i + 1].start + parts[i].overlap});
    return ranges;
}

std::string Timeline::Arithmetic() const {
    const std::string sum = Counted(*Length(), "frame");
    if (parts.size() == 2)
        return "A " + std::to_string(*parts[0].frames) + " + B " +
               std::to_string(*parts[1].frames) + " - overlap " + std::to_string(parts[0].overlap) +
               " = " + sum;
    std::string text;
    char line[64];
    for (const Part &part : parts) {
        std::snprintf(line, sizeof line, "%8" PRId64 "  ", *part.frames);
        text += line + part.name + "\n";
        if (&part == &parts.back())
            break;
        std::snprintf(line, sizeof line, "%8" PRId64 "  ", -part.overlap);
        text += line + part.joint + "\n";
    }
    std::snprintf(line, sizeof line, "%8" PRId64, *Length());
    return text + line + "  frames, " + Seconds(*Length()) + " s";
}

} // namespace host
