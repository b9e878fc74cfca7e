/// \file Shell.h
/// Commands run as a user would run them, and a folder for their files.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/wait.h>

struct Outcome {
    int status;
    std::string output; ///< both streams
};

inline Outcome Shell(const std::string &command) {
    FILE *pipe = popen(("exec 2>&1; " + command).c_str(), "r");
    Outcome outcome = {};
    char buffer[65536];
    for (std::size_t size; (size = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        outcome.output.append(buffer, size);
    outcome.status = WEXITSTATUS(pclose(pipe));
    return outcome;
}

/// A folder that goes with its owner.
struct Folder {
    std::filesystem::path path;
    Folder() {
        std::string name = (std::filesystem::temp_directory_path() / "TestXXXXXX").string();
        path = mkdtemp(name.data());
    }
    ~Folder() { std::filesystem::remove_all(path); }
    std::string operator/(const std::string &name) const { return (path / name).string(); }
};
