/// \file OutputFile.h
/// Files that appear under their name only when they are whole.
#pragma once

#include <filesystem>

namespace host {

/// A file written beside its final name. Keep renames it; otherwise it is removed again: by the
/// destructor, or when the process is stopped by a signal. A name that stands for a device or a
/// pipe is written to directly. One at a time.
class OutputFile {
public:
    explicit OutputFile(const std::filesystem::path &name);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    /// Where to write.
    const std::filesystem::path &Part() const { return part; }
    /// The contents are whole and closed.
    void Keep();

private:
    std::filesystem::path final;
    std::filesystem::path part;
    bool isDirect = false;
    bool isKept = false;
};

/// Makes SIGINT, SIGTERM and SIGHUP remove the unfinished file and say so before they end the
/// process, and turns writing to a closed pipe or beyond a limit into an ordinary error.
void HandleSignals();

} // namespace host
