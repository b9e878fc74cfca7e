/// \file Shell.h
/// Commands run as a user would run them, their files, and a folder for those.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <span>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <vector>

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

/// What a command that succeeds says.
template<class... Part>
std::string Output(const Part &...parts) {
    const Outcome run = Shell(Text(parts...));
    EXPECT_EQ(run.status, 0) << Text(parts...) << '\n' << run.output;
    return run.output;
}

/// Runs a command that succeeds and says nothing.
template<class... Part>
void Must(const Part &...parts) {
    EXPECT_EQ(Output(parts...), "") << Text(parts...);
}

#ifdef TP_PROGRAM
/// The program with these arguments.
template<class... Part>
Outcome Program(const Part &...arguments) {
    return Shell(Text(TP_PROGRAM " ", arguments...));
}
#endif

/// What a command says to these arguments, in part, and the status that it ends with.
struct Answer {
    std::string arguments, says;
    int status = 1;
};

/// Runs a command with each row's arguments. What is wrong is said in one line.
inline void ExpectAnswers(const std::string &command, std::span<const Answer> answers) {
    for (const auto &[arguments, says, status] : answers) {
        const Outcome outcome = Shell(Text(command, ' ', arguments));
        EXPECT_EQ(outcome.status, status) << arguments;
        EXPECT_NE(outcome.output.find(says), std::string::npos)
            << arguments << '\n'
            << outcome.output << "lacks: " << says;
        EXPECT_TRUE(status == 0 || (std::ranges::count(outcome.output, '\n') == 1 &&
                                    outcome.output.starts_with("transitions: ")))
            << arguments << '\n'
            << outcome.output;
    }
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

/// A profile file for melt, of 25 frames a second.
inline std::string MeltProfile(int width, int height, bool isInterlaced = false) {
    return Text(
        "description=test\nframe_rate_num=25\nframe_rate_den=1\nprogressive=", int(!isInterlaced),
        "\nsample_aspect_num=1\nsample_aspect_den=1\ncolorspace=601\nwidth=", width,
        "\nheight=", height, "\ndisplay_aspect_num=", width, "\ndisplay_aspect_den=", height, '\n');
}

/// A film as its frames' pixels in red, green, blue and alpha.
struct Film {
    int width = 0, height = 0;
    std::vector<std::string> frames;

    std::array<int, 4> Pixel(std::size_t frame, int x, int y) const {
        std::array<int, 4> pixel = {};
        for (std::size_t i = 0; i < 4; ++i)
            pixel[i] = std::uint8_t(frames[frame][(std::size_t(y) * width + x) * 4 + i]);
        return pixel;
    }
};

/// What ffmpeg decodes of a file; options stand in front of it.
inline Film Decode(const std::string &file, const std::string &options = "") {
    const std::string pam = Shell(Text("ffmpeg -v fatal ", options, " -i ", file,
                                       " -map 0:v:0 -vsync passthrough -sws_flags "
                                       "accurate_rnd+full_chroma_int+bilinear -pix_fmt rgba "
                                       "-c:v pam -f image2pipe -"))
                                .output;
    Film film;
    for (std::size_t at = 0; std::sscanf(pam.c_str() + at, "P7\nWIDTH %d\nHEIGHT %d", &film.width,
                                         &film.height) == 2;) {
        constexpr std::string_view kEnd = "ENDHDR\n";
        at = pam.find(kEnd, at) + kEnd.size();
        film.frames.push_back(pam.substr(at, std::size_t(film.width) * film.height * 4));
        at += film.frames.back().size();
    }
    return film;
}

/// Planar frames, as an uncompressed stream (YUV4MPEG2) holds them.
using Pictures = std::vector<std::string>;

inline std::size_t PlanarSize(int width, int height) {
    return width * height + 2 * ((width + 1) / 2) * ((height + 1) / 2);
}

inline std::string Y4m(const Pictures &pictures, const std::string &header) {
    std::string bytes = Text("YUV4MPEG2 ", header, "\n");
    for (const std::string &picture : pictures)
        bytes += "FRAME\n" + picture;
    return bytes;
}

inline Pictures FramesOf(const std::string &y4m) {
    Pictures pictures;
    int width = 0, height = 0;
    if (std::sscanf(y4m.c_str(), "YUV4MPEG2 W%d H%d", &width, &height) != 2)
        return pictures;
    const std::size_t size = PlanarSize(width, height);
    for (std::size_t at = y4m.find('\n') + 1; at < y4m.size(); at += 6 + size)
        pictures.push_back(y4m.substr(at + 6, size));
    return pictures;
}

/// Mono samples that ffmpeg makes of the sound of its inputs.
inline std::vector<float> Samples(const std::string &inputs, int rate) {
    const std::string bytes =
        Shell(Text("ffmpeg -v fatal ", inputs, " -ac 1 -ar ", rate, " -f f32le -")).output;
    std::vector<float> samples(bytes.size() / sizeof(float));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
    return samples;
}

/// A file's sound, 8000 samples a second.
inline std::vector<float> Sound(const std::string &file) {
    return Samples("-i " + file + " -vn", 8000);
}

/// How strong a tone is within a part of that.
inline double Strength(const std::vector<float> &sound, double hertz, double from, double to) {
    double sine = 0, cosine = 0;
    const auto begin = std::size_t(from * 8000),
               end = std::min(std::size_t(to * 8000), sound.size());
    for (std::size_t i = begin; i < end; ++i) {
        sine += sound[i] * std::sin(2 * M_PI * hertz * double(i) / 8000);
        cosine += sound[i] * std::cos(2 * M_PI * hertz * double(i) / 8000);
    }
    return 2 * std::hypot(sine, cosine) / double(end - begin);
}

struct Beeps {
    std::vector<double> starts; ///< in seconds after the first picture
    double length = 0;          ///< of all the sound
};

/// The places at which a film's sound begins after a tenth of a second of silence.
inline Beeps Listen(const std::string &file) {
    constexpr int kRate = 48000;
    const double picture = std::atof(Probe(file, "start_time").c_str());
    const std::vector<float> samples =
        Samples(Text("-copyts -i ", file, " -map 0:a:0 -af aresample=async=1:first_pts=0"), kRate);
    Beeps beeps;
    beeps.length = double(samples.size()) / kRate;
    double last = -1;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        if (std::abs(samples[i]) < 0.1)
            continue;
        const double now = double(i) / kRate;
        if (now > last + 0.1)
            beeps.starts.push_back(now - picture);
        last = now;
    }
    return beeps;
}

/// Whether things were seen or heard within 20 ms of these times.
inline void ExpectTimes(const std::vector<double> &found, const std::vector<double> &expected) {
    EXPECT_EQ(found.size(), expected.size());
    for (std::size_t i = 0; i < std::min(found.size(), expected.size()); ++i)
        EXPECT_NEAR(found[i], expected[i], 0.02) << i;
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

/// One in which the test and its commands work, so that names need no folder.
struct WorkingFolder : Folder {
    WorkingFolder() { std::filesystem::current_path(path); }
    ~WorkingFolder() { std::filesystem::current_path("/"); }
};
