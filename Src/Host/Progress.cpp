#include "Progress.h"

#include "Messages.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <unistd.h>

namespace host {

Progress::Progress(std::int64_t frames)
    : total(frames), isShown(!IsQuiet() && isatty(STDERR_FILENO)) {}

void Progress::Count() {
    constexpr std::chrono::milliseconds kPause(200);
    ++done;
    if (isShown && Clock::now() - lastShown >= kPause)
        Show();
}

void Progress::Show() {
    lastShown = Clock::now();
    const double seconds = std::chrono::duration<double>(lastShown - start).count();
    const double speed = seconds > 0 ? double(done) / seconds : 0;
    if (total > 0 && speed > 0) {
        const auto left = std::int64_t(double(std::max<std::int64_t>(total - done, 0)) / speed);
        std::fprintf(stderr,
                     "\r%" PRId64 "/%" PRId64 " frames  %.1f fps  %" PRId64 ":%02d left \033[K",
                     done, total, speed, left / 60, int(left % 60));
    } else {
        std::fprintf(stderr, "\r%" PRId64 " frames  %.1f fps \033[K", done, speed);
    }
}

void Progress::Finish() {
    if (!isShown)
        return;
    Show();
    std::fputc('\n', stderr);
    isShown = false;
}

} // namespace host
