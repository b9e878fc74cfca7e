#include "OutputFile.h"

#include "Failure.h"

#include <atomic>
#include <climits>
#include <csignal>
#include <cstring>
#include <system_error>
#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

namespace {

// Read by the signal handler, which may do no more than look and call the kernel.
char unfinished[PATH_MAX];
std::atomic<bool> hasUnfinished = false;
static_assert(std::atomic<bool>::is_always_lock_free);

void Say(const char *text) {
    [[maybe_unused]] const auto size = write(2, text, std::strlen(text));
}

void StopBySignal(int signal) {
    if (isatty(STDERR_FILENO)) // below the line of progress
        Say("\n");
    Say("transitions: stopped by a signal; nothing was written under the output's name\n");
    if (hasUnfinished)
        unlink(unfinished);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

} // namespace

OutputFile::OutputFile(const fs::path &name) : final(name) {
    std::error_code missing;
    // What a link leads to is written, there or not yet; the link stays.
    constexpr int kMostLinks = 40; // as the kernel follows
    for (int i = 0; i < kMostLinks && fs::is_symlink(final, missing); ++i)
        final = final.parent_path() / fs::read_symlink(final, missing);
    if (fs::is_directory(final, missing))
        throw Failure(final.string() + ": is a folder");
    const fs::path folder = fs::absolute(final).parent_path();
    if (!fs::is_directory(folder, missing))
        throw Failure(final.string() + ": there is no folder " + final.parent_path().string());
    if (fs::exists(final, missing) && access(final.c_str(), W_OK) != 0)
        throw Failure(final.string() + ": is write-protected");
    isDirect = fs::exists(final, missing) && !fs::is_regular_file(final, missing);
    part = final;
    if (isDirect)
        return;
    if (access(folder.c_str(), W_OK) != 0)
        throw Failure(final.string() + ": nothing can be written in its folder");
    part.replace_filename(std::string(".").append(final.filename()) + "." +
                          std::to_string(getpid()) + ".part");
    if (part.native().size() >= sizeof unfinished)
        throw Failure(final.string() + ": the name is too long");
    std::strcpy(unfinished, part.c_str());
    hasUnfinished = true;
}

OutputFile::~OutputFile() {
    if (isDirect)
        return;
    if (!isKept)
        unlink(part.c_str());
    hasUnfinished = false;
}

void OutputFile::Keep() {
    if (isDirect)
        return;
    std::error_code error;
    fs::rename(part, final, error);
    if (error)
        throw Failure(final.string() + ": " + error.message());
    isKept = true;
}

void HandleSignals() {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        std::signal(signal, StopBySignal);
    for (const int signal : {SIGPIPE, SIGXFSZ}) // writing fails instead, with a message
        std::signal(signal, SIG_IGN);
}

} // namespace host
