/// \file Progress.h
/// The line on the terminal that tells how far a render is.
#pragma once

#include <chrono>
#include <cstdint>

namespace host {

/// Frames done, speed and time left, on standard error when that is a terminal and the user does
/// not want quiet.
class Progress {
public:
    /// total is 0 when it is not known.
    explicit Progress(std::int64_t total);
    ~Progress() { Finish(); }
    /// One more frame is done.
    void Count();
    /// Ends the line; nothing is shown after it.
    void Finish();

private:
    using Clock = std::chrono::steady_clock;
    void Show();

    std::int64_t total;
    bool isShown;
    std::int64_t done = 0;
    Clock::time_point start = Clock::now();
    Clock::time_point lastShown;
};

} // namespace host
