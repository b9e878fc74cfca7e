/// \file VeskLogger.h
/// A stand-in for the host's logging library: the process's default logger with the two operations
/// that the plug-in uses.
#pragma once

#define VESK_API __attribute__((visibility("default")))

#ifdef __cplusplus
/// The logger that the host provides.
class VeskLogger {
public:
    /// Whether messages of this level are to be written.
    virtual bool IsEnabled(int level) = 0;
    /// Writes one message: a printf-style format of 4-byte wide characters and its values.
    virtual void Log(int level, const wchar_t *format, ...) = 0;

protected:
    ~VeskLogger() = default;
};

extern "C" {
#else
typedef struct VeskLogger VeskLogger; ///< opaque in C, which cannot make one of its own
#endif

/// The process's default logger, or null when there is none. At first it is one that writes
/// messages of level VeskSetLevel and above to standard error.
VESK_API VeskLogger *VeskGetDefaultLogger(void);
/// Replaces the default logger; null takes it away. The caller keeps the object alive.
VESK_API void VeskSetDefaultLogger(VeskLogger *logger);
/// The logger that writes to standard error.
VESK_API VeskLogger *VeskGetStderrLogger(void);
/// The lowest level that the standard error logger writes; 64 at first.
VESK_API void VeskSetLevel(int level);
#ifdef __cplusplus
}
#endif
