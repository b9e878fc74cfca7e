/// \file Shell.h
/// Commands run as a user would run them, their files, and a folder for those.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>

/// The parts written one behind the other.
template<class... Part>
std::string Text(const Part &...parts) {
    std::ostringstream text;
    (text << ... << parts);
    return text.str();
}

inline std::string Read(const std::string &file) {
    return Text(std::ifstream(file, std::ios::binary).rdbuf());
}

inline void Write(const std::string &file, const std::string &bytes) {
    std::ofstream(file, std::ios::binary) << bytes;
}

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

/// Runs a command that succeeds and says nothing.
template<class... Part>
void Must(const Part &...parts) {
    const Outcome run = Shell(Text(parts...));
    EXPECT_TRUE(run.status == 0 && run.output.empty()) << Text(parts...) << '\n' << run.output;
}

/// What ffprobe says of a stream of a file, each value with a comma behind it.
inline std::string Probe(const std::string &file, const std::string &entries,
                         const std::string &stream = "v:0") {
    std::string text =
        Shell(Text("ffprobe -v error -count_frames -select_streams ", stream,
                   " -of default=nw=1:nk=1 -show_entries stream=", entries, " ", file))
            .output;
    std::ranges::replace(text, '\n', ',');
    return text;
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
