#include "Messages.h"

#include <atomic>
#include <cstdio>
#include <unistd.h>

namespace host {

namespace {

std::atomic<bool> quiet = false;

} // namespace

void Tell(const std::string &line) {
    if (!quiet)
        std::fprintf(stderr, "%s%s\n", isatty(STDERR_FILENO) ? "\r\033[K" : "", line.c_str());
}

void BeQuiet() {
    quiet = true;
}

bool IsQuiet() {
    return quiet;
}

} // namespace host
