/// \file Shelf.h
/// The clips that are read now: opened when their first frame is asked for, closed when they are
/// left behind.
#pragma once

#include "Clip.h"

#include <map>
#include <optional>
#include <vector>

namespace host {

class Shelf {
public:
    /// Both outlive the shelf.
    Shelf(const std::vector<Clip> &all, const Canvas &onto) : clips(all), canvas(onto) {}

    /// A frame of a clip, which is read on or sought. Where a file has a few frames fewer than it
    /// said, its last is shown on; throws a Failure when many are missing.
    Frame Get(int clip, std::int64_t frame);
    /// Reads a clip ahead until this frame is there, and says how many frames the clip has when it
    /// ends before. What lies between is kept in memory, so it is for pipes only.
    std::optional<std::int64_t> EndBefore(int clip, std::int64_t frame);
    /// Closes the clips before this one.
    void Leave(int clip) { open.erase(open.begin(), open.lower_bound(clip)); }

private:
    struct Open {
        Footage footage;
        std::int64_t next;       ///< number of the footage's next frame
        std::deque<Frame> ahead; ///< the frames before it that were not asked for yet
        Frame last;
        std::int64_t missing = 0;
    };
    Open &At(int clip, std::int64_t frame);

    const std::vector<Clip> &clips;
    const Canvas &canvas;
    std::map<int, Open> open;
};

} // namespace host
