#include "VeskLogger.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cwchar>

namespace {

class StderrLogger final : public VeskLogger {
public:
    bool IsEnabled(int messageLevel) override { return messageLevel >= level; }

    void Log(int messageLevel, const wchar_t *format, ...) override {
        if (!IsEnabled(messageLevel))
            return;
        // Formatted to a buffer and written as bytes: a wide write would fix the stream's
        // orientation for the whole process.
        wchar_t text[1024];
        va_list values;
        va_start(values, format);
        const int length = std::vswprintf(text, sizeof text / sizeof *text, format, values);
        va_end(values);
        if (length >= 0)
            std::fprintf(stderr, "%ls\n", text);
    }

    std::atomic<int> level = 64;
};

StderrLogger stderrLogger;
std::atomic<VeskLogger *> defaultLogger = &stderrLogger;

} // namespace

VeskLogger *VeskGetDefaultLogger() {
    return defaultLogger;
}

void VeskSetDefaultLogger(VeskLogger *logger) {
    defaultLogger = logger;
}

VeskLogger *VeskGetStderrLogger() {
    return &stderrLogger;
}

void VeskSetLevel(int level) {
    stderrLogger.level = level;
}
