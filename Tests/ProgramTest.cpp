// The program's render, end to end: what it writes, what it refuses, how it stops.

#include "Draw.h"
#include "Shell.h"
#include "Support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstring>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using hostkit::Frame;
using hostkit::Path;

using Pictures = std::vector<std::string>; ///< the bytes of each frame

constexpr int kWidth = 97, kHeight = 65; // odd, so that chroma is rounded up
const std::string kHeader = "W97 H65 F25:1 Ip A1:1 C420jpeg";

std::size_t FrameSize(int width, int height) {
    return width * height + 2 * ((width + 1) / 2) * ((height + 1) / 2);
}

/// Noise, so that no two frames or pixels are mistaken for each other.
Pictures Noise(int frames, std::uint64_t seed, std::size_t size = FrameSize(kWidth, kHeight)) {
    Pictures pictures(frames, std::string(size, '\0'));
    for (std::string &picture : pictures)
        FillRandom({reinterpret_cast<std::uint8_t *>(picture.data()), size}, seed++ << 32);
    return pictures;
}

std::string Y4m(const Pictures &pictures, const std::string &header = kHeader) {
    std::string bytes = "YUV4MPEG2 " + header + "\n";
    for (const std::string &picture : pictures)
        bytes += "FRAME\n" + picture;
    return bytes;
}

std::string HeaderOf(const std::string &y4m) {
    return y4m.substr(0, y4m.find('\n'));
}

Pictures FramesOf(const std::string &y4m, std::size_t size = FrameSize(kWidth, kHeight)) {
    Pictures pictures;
    for (std::size_t at = HeaderOf(y4m).size() + 1; at < y4m.size(); at += 6 + size)
        pictures.push_back(y4m.substr(at + 6, size));
    return pictures;
}

Outcome Render(const std::string &arguments) {
    return Shell(TP_PROGRAM " render " + arguments);
}

template<class... Part>
void RunRender(const Part &...arguments) {
    Must(TP_PROGRAM " render ", arguments...);
}

/// Numbers of the frames that differ, or the two lengths: what a failed comparison shows.
std::string Difference(const Pictures &a, const Pictures &b) {
    std::string text;
    if (a.size() != b.size())
        text = std::to_string(a.size()) + " and " + std::to_string(b.size()) + " frames;";
    for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i)
        if (a[i] != b[i])
            text += " " + std::to_string(i);
    return text;
}

/// Two clips of noise, A of 12 and B of 10 frames, in a folder of the test's own.
class Program : public testing::Test {
protected:
    void SetUp() override {
        Write(file("a.y4m"), Y4m(a));
        Write(file("b.y4m"), Y4m(b));
    }
    std::string file(const std::string &name) const { return folder / name; }
    std::string clips() const { return file("a.y4m") + " " + file("b.y4m") + " "; }

    Folder folder;
    const Pictures a = Noise(12, 100), b = Noise(10, 200);
};

Frame Planar(const std::string &bytes) {
    Frame frame(Path::Yuv, kWidth, kHeight);
    std::copy(bytes.begin(), bytes.end(), frame.Bytes().begin());
    return frame;
}

/// What A, the transition over the last and first `overlap` frames, and B look like, by direct
/// calls of the plug-in.
Pictures Expected(const Pictures &a, const Pictures &b, int overlap, const std::string &name,
                  const hostkit::Motion &motion) {
    Pictures result(a.begin(), a.end() - overlap);
    for (int i = 0; i < overlap; ++i) {
        Frame out(Path::Yuv, kWidth, kHeight);
        const double position = overlap > 1 ? double(i) / (overlap - 1) : 0.5;
        Draw(*TestedPlugin().Find(name), motion, {position, i}, out,
             Planar(a[a.size() - overlap + i]), Planar(b[i]));
        result.emplace_back(out.Bytes().begin(), out.Bytes().end());
    }
    result.insert(result.end(), b.begin() + overlap, b.end());
    return result;
}

// ---------------------------------------------------------------------------------------------
// Pictures
// ---------------------------------------------------------------------------------------------

TEST_F(Program, PlanarPicturesEqualDirectCalls) {
    struct Case {
        const char *name;
        int overlap;
        const char *easing;
        bool reverse;
        std::uint64_t seed;
    };
    for (const Case &c :
         {Case{"Erase", 5, "linear", false, 0}, Case{"Erase", 1, "linear", false, 0},
          Case{"Erase", 10, "bounce", false, 0}, Case{"Turn", 5, "in", true, 0},
          Case{"Wind", 5, "linear", false, 7}, Case{"Roll_right_top", 5, "linear", false, 0},
          Case{"TrEraseShift", 5, "back", true, 0}}) {
        std::ostringstream command;
        command << "-t " << c.name << " " << clips() << "-o " << file("o.y4m") << " -d "
                << c.overlap / 25.0 << " --ease " << c.easing << " --seed " << c.seed
                << (c.reverse ? " --reverse" : "");
        const Outcome run = Render(command.str());
        ASSERT_EQ(run.output, "A 12 + B 10 - overlap " + std::to_string(c.overlap) + " = " +
                                  std::to_string(22 - c.overlap) + " frames\n");
        const Pictures drawn = FramesOf(Read(file("o.y4m")));
        const hostkit::Motion motion = {hostkit::FindEasing(c.easing), c.reverse, c.seed};
        EXPECT_EQ(Difference(drawn, Expected(a, b, c.overlap, c.name, motion)), "") << c.name;
        // The overlap's ends are whole pictures, so no frame is seen twice or lost at the seams.
        if (c.overlap > 1 && std::strcmp(c.name, "Erase") == 0) {
            EXPECT_EQ(Difference({drawn[12 - c.overlap], drawn[11]},
                                 {a[12 - c.overlap], b[c.overlap - 1]}),
                      "");
        }
    }
}

/// Noise in pictures with transparency, as raw bytes from the top row down.
TEST_F(Program, PackedPicturesEqualDirectCallsAndKeepTransparency) {
    constexpr int kFrames = 4;
    Pictures inputs[2];
    for (int clip = 0; clip < 2; ++clip) {
        inputs[clip] = Noise(kFrames, 300 + 10 * clip, kWidth * kHeight * 4);
        std::string raw;
        for (const std::string &picture : inputs[clip])
            raw += picture;
        const std::string name = file(clip ? "b" : "a");
        Write(name + ".raw", raw);
        Must("ffmpeg -v error -f rawvideo -pix_fmt bgra -s 97x65 -i ", name, ".raw ", name,
             "-%d.png");
    }
    const auto packed = [](const std::string &picture) {
        Frame frame(Path::Rgb, kWidth, kHeight);
        for (int y = 0; y < kHeight; ++y)
            std::copy_n(picture.data() + y * kWidth * 4, kWidth * 4, frame.Row(0, y));
        return frame;
    };
    for (const char *output : {"o-%04d.png", "o.mov --codec qtrle"}) {
        const std::string target = file(output);
        RunRender("-q -t Roll --path rgb --only -d 0.16 " + file("a-%d.png") + " " +
                  file("b-%d.png") + " -o " + target);
        Must("ffmpeg -v error -y -i " + target.substr(0, target.find(' ')) +
             " -f rawvideo -pix_fmt bgra " + file("o.raw"));
        const std::string drawn = Read(file("o.raw"));
        ASSERT_EQ(drawn.size(), std::size_t(kFrames * kWidth * kHeight * 4)) << output;
        for (int i = 0; i < kFrames; ++i) {
            Frame out(Path::Rgb, kWidth, kHeight);
            Draw(*TestedPlugin().Find("Roll"), {}, {i / (kFrames - 1.0), i}, out,
                 packed(inputs[0][i]), packed(inputs[1][i]));
            for (int y = 0; y < kHeight; ++y)
                ASSERT_EQ(std::memcmp(drawn.data() + (i * kHeight + y) * kWidth * 4, out.Row(0, y),
                                      kWidth * 4),
                          0)
                    << output << ", frame " << i << ", row " << y;
        }
    }
}

/// Each clip, each transition, each length its own; in and out points in frames and in seconds.
TEST_F(Program, ChainsEqualDirectCalls) {
    const Outcome run = Render(Text("-t Erase -t cut -t Turn -d 5f -d 80ms -d 0:00.12 ",
                                    file("a.y4m"), " ", file("b.y4m"), "#t=1f,0.36 ", file("a.y4m"),
                                    " ", file("b.y4m"), "#t=160ms -o ", file("o.y4m")));
    EXPECT_EQ(run.output,
              Text("      12  ", file("a.y4m"), "\n      -5  Erase\n       8  ", file("b.y4m"),
                   "\n       0  cut\n      12  ", file("a.y4m"), "\n      -3  Turn\n       6  ",
                   file("b.y4m"), "\n      30  frames, 1.2 s\n"));
    Pictures expected =
        Expected(a, Pictures(b.begin() + 1, b.begin() + 9), 5, "Erase", hostkit::Motion());
    const Pictures second =
        Expected(a, Pictures(b.begin() + 4, b.end()), 3, "Turn", hostkit::Motion());
    expected.insert(expected.end(), second.begin(), second.end());
    EXPECT_EQ(Difference(FramesOf(Read(file("o.y4m"))), expected), "");
}

/// Pictures are sought where the file allows it: between key frames, with frames that are decoded
/// in another order than shown, and with fields that look at the pictures around them.
TEST_F(Program, PartsOfARenderEqualTheWhole) {
    const std::string source = "ffmpeg -v error -f lavfi -i testsrc2=s=96x64:d=4:r=";
    Must(source + "25 -c:v libx264 -bf 3 -g 40 " + file("c.mp4") + " && " + source +
         "50 -vf interlace -flags +ildct+ilme -c:v mpeg2video -q:v 3 -bf 2 " + file("i.ts"));
    for (const auto &[inputs, seconds, cuts] :
         {std::tuple(clips(), "0.2", std::vector{0, 9, 10, 12, 17}),
          std::tuple(file("c.mp4") + " " + file("i.ts") + " ", "0.4",
                     std::vector{0, 33, 60, 91, 95, 96, 117, 190})}) {
        const std::string command = Text("-q -t Wind --seed 3 -d ", seconds, " ", inputs, "-o ");
        RunRender(command + file("whole.y4m"));
        const std::size_t size = inputs == clips() ? FrameSize(kWidth, kHeight) : 96 * 64 * 3 / 2;
        const Pictures whole = FramesOf(Read(file("whole.y4m")), size);
        ASSERT_EQ(int(whole.size()), cuts.back());
        Pictures joined;
        for (std::size_t i = 1; i < cuts.size(); ++i) {
            RunRender(command, file("part.y4m"), " --frames ", cuts[i - 1], ":", cuts[i]);
            const Pictures part = FramesOf(Read(file("part.y4m")), size);
            joined.insert(joined.end(), part.begin(), part.end());
        }
        EXPECT_EQ(Difference(joined, whole), "") << inputs;
    }
    RunRender("-q -t Wind -d 0.2 --seed 3 " + clips() + "-o " + file("whole.y4m"));
    RunRender("-q -t Wind -d 0.2 --seed 3 " + clips() + "-o " + file("only.y4m") +
              " --only --frames 1:4");
    const Pictures whole = FramesOf(Read(file("whole.y4m")));
    EXPECT_EQ(Difference(FramesOf(Read(file("only.y4m"))),
                         Pictures(whole.begin() + 8, whole.begin() + 11)),
              "");
}

TEST_F(Program, EditListsMakeTheSameFilm) {
    const std::string command =
        clips() + file("a.y4m") + "#t=2f,11f -t any --seed 5 -d 3f --ease out --fit cover ";
    RunRender("-q " + command + "--save-edit " + file("e.otio") + " -o " + file("o.y4m"));
    const std::string film = Read(file("o.y4m"));
    RunRender("-q " + file("e.otio") + " -o " + file("again.y4m"));
    EXPECT_TRUE(Read(file("again.y4m")) == film);
    const std::string list = Read(file("e.otio"));
    RunRender("-q " + command + "--save-edit " + file("e.otio"));
    EXPECT_TRUE(Read(file("e.otio")) == list);
}

TEST_F(Program, SameSeedSameBytes) {
    for (const char *path : {"yuv", "rgb"})
        for (const char *name : {"o.y4m", "o.mkv", "o.mp4", "o.mov --codec prores", "o.gif"}) {
            std::string results[3];
            for (int i = 0; i < 3; ++i) {
                const std::string target = file(name);
                RunRender("-q -t Wind -d 0.2 --size 64x48 --path " + std::string(path) +
                          (i == 2 ? " --seed 8 " : " --seed 5 ") + clips() + "-o " + target);
                results[i] = Read(target.substr(0, target.find(' ')));
            }
            EXPECT_TRUE(results[0] == results[1]) << name << " " << path;
            EXPECT_FALSE(results[0] == results[2]) << name << " " << path;
        }
}

/// Flat colours through both paths: what the clip says about its numbers is obeyed, and a clip of
/// full range comes out in video range: 16 + 219 / 255 of luma, 224 / 255 of chroma around 128.
TEST_F(Program, ColoursSurviveBothPaths) {
    struct Case {
        const char *tags;
        int luma, blue, red;
    };
    for (const auto &[tags, luma, blue, red] :
         {Case{"-colorspace bt709 -color_range tv", 90, 100, 160},
          Case{"-colorspace smpte170m -color_range tv", 90, 100, 160},
          Case{"-colorspace bt709 -color_range pc", 93, 103, 156}, Case{"", 90, 100, 160}})
        for (const auto &[size, path] :
             {std::pair("64x48", "rgb"), std::pair("1280x720", "rgb"), std::pair("64x48", "yuv")}) {
            const std::string clip = file("flat.mkv");
            Must("ffmpeg -v error -y -f lavfi -i 'color=s=", size,
                 ":r=25:d=0.2,format=yuv420p,geq=lum=90:cb=100:cr=160' -c:v ffv1 ", tags, " ",
                 clip);
            RunRender("-q -t Erase --path ", path, " --only -d 0.12 ", clip, " ", clip, " -o ",
                      file("o.y4m"));
            int width = 0, height = 0;
            std::sscanf(size, "%dx%d", &width, &height);
            const Pictures frames = FramesOf(Read(file("o.y4m")), FrameSize(width, height));
            ASSERT_EQ(frames.size(), 3u);
            const auto level = [&](std::size_t at) { return int(std::uint8_t(frames[0][at])); };
            EXPECT_NEAR(level(0), luma, 1) << tags << size << path;
            EXPECT_NEAR(level(width * height), blue, 1) << tags << size << path;
            EXPECT_NEAR(level(FrameSize(width, height) - 1), red, 1) << tags << size << path;
        }
}

// ---------------------------------------------------------------------------------------------
// Files and pipes
// ---------------------------------------------------------------------------------------------

TEST_F(Program, PipesInBothDirections) {
    RunRender("-q -t Erase -d 0.2 " + clips() + "-o " + file("file.y4m"));
    const std::string clipA = file("a.y4m"), clipB = file("b.y4m"), video = file("o.mkv");
    const std::string render = " | " TP_PROGRAM " render -q -t Erase -d 0.2 ";
    for (const std::string &command :
         {Text("ffmpeg -v error -i ", clipA, " -f yuv4mpegpipe -", render, "- ", clipB, " -o -"),
          Text("ffmpeg -v error -i ", clipB, " -f yuv4mpegpipe -", render, clipA, " - -o -"),
          Text("cat ", clipA, render, "- ", clipB, " -o -")}) {
        Must(command, " | ffmpeg -v error -y -i - -c:v ffv1 ", video, " && ffmpeg -v error -y -i ",
             video, " -f rawvideo ", file("o.raw"));
        std::string all;
        for (const std::string &frame : FramesOf(Read(file("file.y4m"))))
            all += frame;
        EXPECT_TRUE(Read(file("o.raw")) == all) << command;
    }
    // A pipe between two clips: where it ends is seen when it has ended.
    Must("ffmpeg -v error -i ", clipA,
         " -c:v ffv1 -f matroska - | " TP_PROGRAM " render -q -t Erase -d 0.2 ", clipB, " - ",
         clipB, " -o ", file("middle.y4m"));
    Pictures middle = Expected(b, a, 5, "Erase", hostkit::Motion());
    middle = Expected(middle, b, 5, "Erase", hostkit::Motion());
    EXPECT_EQ(Difference(FramesOf(Read(file("middle.y4m"))), middle), "");
    // A reader that goes away is an error like any other.
    const Outcome closed = Shell("(" TP_PROGRAM " render -q -t Erase -d 0.2 " + clips() +
                                 "-o - ; echo status $? >&2) | head -c 99 >/dev/null");
    EXPECT_EQ(closed.output, "transitions: standard output: Broken pipe\nstatus 1\n");
}

TEST_F(Program, Y4mTagsAreKept) {
    struct Case {
        const char *in, *options, *out;
    };
    for (const Case &c : {Case{"F30000:1001 It A40:33 C420mpeg2", "",
                               "F30000:1001 Ip A40:33 C420mpeg2 XYSCSS=420MPEG2"},
                          Case{"F30000:1001 It A40:33 C420mpeg2", "--interlaced keep",
                               "F30000:1001 It A40:33 C420mpeg2 XYSCSS=420MPEG2"},
                          Case{"F50:1 C420paldv", "", "F50:1 Ip A0:0 C420paldv XYSCSS=420PALDV"}}) {
        Write(file("tags.y4m"), Y4m(a, std::string("W97 H65 ") + c.in));
        RunRender("-q -t Erase -d 0.1 ", file("tags.y4m"), " ", file("tags.y4m"), " -o ",
                  file("o.y4m"), " ", c.options);
        EXPECT_EQ(HeaderOf(Read(file("o.y4m"))),
                  std::string("YUV4MPEG2 W97 H65 ") + c.out + " XCOLORRANGE=LIMITED");
    }
}

TEST_F(Program, ContainersAndCodecs) {
    struct Case {
        const char *output, *expected; ///< codec, width, pixels, frames
    };
    for (const Case &c :
         {Case{"o.mp4", "h264,96,yuv420p,17,"}, Case{"o.mkv", "h264,96,yuv420p,17,"},
          Case{"o.mkv --codec ffv1", "ffv1,96,yuv420p,17,"}, Case{"o.webm", "vp9,96,yuv420p,17,"},
          Case{"o.mov --codec qtrle", "qtrle,97,rgb24,17,"},
          Case{"o.mov --codec prores", "prores,96,yuv422p10le,17,"},
          Case{"o.gif", "gif,97,bgra,17,"}}) {
        const std::string target = file(c.output);
        RunRender("-q -t Erase -d 0.2 " + clips() + "-o " + target);
        EXPECT_EQ(
            Probe(target.substr(0, target.find(' ')), "codec_name,width,pix_fmt,nb_read_frames"),
            c.expected)
            << c.output;
    }
}

/// The encoder writes its settings into the stream.
TEST_F(Program, QualityAndPresetReachTheStream) {
    const std::string target = file("o.mkv");
    for (const auto &[options, crf, search] :
         {std::tuple("", "crf=18.0", "me=hex"), std::tuple("--quality 41", "crf=41.0", "me=hex"),
          std::tuple("--quality 30 --preset ultrafast", "crf=30.0", "me=dia")}) {
        RunRender("-q -t Erase -d 0.2 ", clips(), "-o ", target, " ", options);
        const std::string bytes = Read(target);
        EXPECT_NE(bytes.find(crf), std::string::npos) << options;
        EXPECT_NE(bytes.find(search), std::string::npos) << options;
    }
}

/// Mean distance of two files' first pictures in levels, as ffmpeg decodes them.
double Distance(const std::string &one, const std::string &other, const std::string &raw) {
    Pictures pictures;
    for (const std::string &name : {one, other}) {
        Shell("ffmpeg -v error -y -i " + name + " -frames:v 1 -f rawvideo -pix_fmt rgb24 " + raw);
        pictures.push_back(Read(raw));
    }
    double sum = 0;
    for (std::size_t i = 0; i < pictures[0].size() && i < pictures[1].size(); ++i)
        sum += std::abs(int(std::uint8_t(pictures[0][i])) - int(std::uint8_t(pictures[1][i])));
    return pictures[0].size() == pictures[1].size() ? sum / double(pictures[0].size()) : 255;
}

/// 256 colours for each picture leave a smooth one of many colours within a few levels.
TEST_F(Program, GifIsNearItsSource) {
    Must("ffmpeg -v error -f lavfi -i "
         "gradients=s=160x120:r=25:d=0.4:n=4:c0=red:c1=yellow:c2=blue:c3=green:seed=3 "
         "-c:v ffv1 -pix_fmt bgr0 " +
         file("g.mkv"));
    RunRender("-q -t Push -d 0.2 --path rgb " + file("g.mkv") + " " + file("g.mkv") + " -o " +
              file("o.gif"));
    EXPECT_LT(Distance(file("g.mkv"), file("o.gif"), file("raw")), 6);
}

/// White without high dynamic range is 203 nits in a result that has it: 58.07 % of PQ, 75 % of
/// HLG.
TEST_F(Program, StandardRangeIsConvertedIntoHighOne) {
    Must("ffmpeg -v error -f lavfi -i color=white:s=64x48:r=25:d=0.4 " + file("w.mp4"));
    for (const auto &[transfer, white] :
         {std::pair("smpte2084", 64 + 876 * 0.5807), std::pair("arib-std-b67", 64 + 876 * 0.75)}) {
        Must("ffmpeg -v error -y -f lavfi -i color=gray:s=64x48:r=25:d=0.4 -c:v ffv1 "
             "-pix_fmt yuv420p10le -color_range tv -color_primaries bt2020 "
             "-colorspace bt2020nc -color_trc ",
             transfer, " ", file("h.mkv"));
        RunRender("-q -t cut --depth 10 --codec ffv1 " + file("h.mkv") + " " + file("w.mp4") +
                  " -o " + file("o.mkv"));
        EXPECT_EQ(Probe(file("o.mkv"), "pix_fmt,color_space,color_transfer,color_primaries"),
                  Text("yuv420p10le,bt2020nc,", transfer, ",bt2020,"));
        Shell("ffmpeg -v error -y -ss 0.6 -i " + file("o.mkv") + " -frames:v 1 -f rawvideo " +
              file("raw"));
        const std::string raw = Read(file("raw"));
        ASSERT_EQ(raw.size(), 64u * 48 * 3);
        EXPECT_NEAR(std::uint8_t(raw[0]) + 256 * std::uint8_t(raw[1]), white, 1) << transfer;
    }
}

/// White of alpha 128 on black is grey of level 128: 16 + 219 * 128 / 255.
TEST_F(Program, TransparentClipsLieOnBlack) {
    Must("ffmpeg -v error -f lavfi -i color=white@0.502:s=64x48,format=rgba -frames:v 1 " +
         file("half.png"));
    for (const char *path : {"yuv", "rgb"}) {
        RunRender("-q -t Push -d 2f --still 3f --path ", path, " ", file("half.png"), " ",
                  file("half.png"), " -o ", file("o.y4m"));
        for (const std::string &picture : FramesOf(Read(file("o.y4m")), 64 * 48 * 3 / 2))
            EXPECT_NEAR(std::uint8_t(picture[64 * 24 + 32]), 126, 1) << path;
    }
}

TEST_F(Program, ClipIsFittedToTheFirstOne) {
    // A grey clip of another shape and twice the rate whose frame i has the level 100 + i.
    Pictures grey;
    for (int i = 0; i < 20; ++i)
        grey.push_back(std::string(80 * 20, char(100 + i)) + std::string(40 * 10 * 2, char(128)));
    Write(file("grey.y4m"), Y4m(grey, "W80 H20 F50:1 A1:1"));
    for (const char *fit : {"contain", "cover", "stretch", "blur"}) {
        const Outcome run = Render("-t Erase -d 0.2 " + file("a.y4m") + " " + file("grey.y4m") +
                                   " -o " + file("o.y4m") + " --fit " + fit);
        EXPECT_EQ(run.output, "A 12 + B 10 - overlap 5 = 17 frames\n");
        const Pictures frames = FramesOf(Read(file("o.y4m")));
        ASSERT_EQ(frames.size(), 17u);
        for (int i = 12; i < 17; ++i) { // every second frame of the clip, from its 5 x 2nd on
            const int middle = std::uint8_t(frames[i][(kHeight / 2) * kWidth + kWidth / 2]);
            EXPECT_NEAR(middle, 100 + 2 * (i - 7), 1) << fit;
            const bool bars = std::strcmp(fit, "contain") == 0;
            EXPECT_NEAR(std::uint8_t(frames[i][0]), bars ? 16 : middle, 1) << fit;
        }
    }
    // As fast as the result: its last picture is the last, and a still picture is there at all.
    Write(file("grey.y4m"), Y4m(grey, "W80 H20 F25:1 A1:1"));
    Must("ffmpeg -v error -i " + file("grey.y4m") + " -frames:v 1 " + file("grey.png"));
    for (const char *fit : {"contain", "blur"}) {
        RunRender("-q -t cut " + file("a.y4m") + " " + file("grey.y4m") + " " + file("grey.png") +
                  " --still 2f -o " + file("o.y4m") + " --fit " + fit);
        const Pictures frames = FramesOf(Read(file("o.y4m")));
        ASSERT_EQ(frames.size(), 34u);
        const auto level = [&](int frame) {
            return int(std::uint8_t(frames[frame][(kHeight / 2) * kWidth + kWidth / 2]));
        };
        EXPECT_EQ(level(12), 100) << fit;
        EXPECT_EQ(level(31), 119) << fit;
        EXPECT_NEAR(level(33), 100, 2) << fit; // through RGB
    }
}

/// Seconds of sound as mono samples.
std::vector<float> Sound(const std::string &file, const std::string &raw) {
    Shell("ffmpeg -v error -y -i " + file + " -vn -ac 1 -ar 8000 -f f32le " + raw);
    const std::string bytes = Read(raw);
    std::vector<float> samples(bytes.size() / sizeof(float));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
    return samples;
}

/// How strong a tone is within a part of the sound.
double Strength(const std::vector<float> &sound, double hertz, double from, double to) {
    double sine = 0, cosine = 0;
    const auto begin = std::size_t(from * 8000),
               end = std::min(std::size_t(to * 8000), sound.size());
    for (std::size_t i = begin; i < end; ++i) {
        sine += sound[i] * std::sin(2 * M_PI * hertz * double(i) / 8000);
        cosine += sound[i] * std::cos(2 * M_PI * hertz * double(i) / 8000);
    }
    return 2 * std::hypot(sine, cosine) / double(end - begin);
}

TEST_F(Program, SoundIsFadedOverTheOverlap) {
    for (const auto &[clip, hertz] : {std::pair("a.mp4", 400), std::pair("b.mp4", 1000)})
        Must("ffmpeg -v error -f lavfi -i color=s=64x48:r=25:d=2 -f lavfi -i "
             "'aevalsrc=0.5*sin(2*PI*t*" +
             std::to_string(hertz) + "):s=44100:d=2' -c:a aac " + file(clip));
    const std::string command =
        "-q -t Erase -d 1 " + file("a.mp4") + " " + file("b.mp4") + " -o " + file("o.mp4");
    RunRender(command);
    const std::vector<float> sound = Sound(file("o.mp4"), file("o.raw"));
    EXPECT_NEAR(double(sound.size()) / 8000, 3, 0.05);
    struct Case {
        double from, to, low, high; ///< expected strengths of A's tone and B's
    };
    for (const Case &c : {Case{0.1, 0.9, 0.5, 0}, Case{1.2, 1.3, 0.375, 0.125},
                          Case{1.7, 1.8, 0.125, 0.375}, Case{2.1, 2.9, 0, 0.5}}) {
        EXPECT_NEAR(Strength(sound, 400, c.from, c.to), c.low, 0.04) << c.from;
        EXPECT_NEAR(Strength(sound, 1000, c.from, c.to), c.high, 0.04) << c.from;
    }
    RunRender(command + " --audio-curve equal-power");
    const std::vector<float> even = Sound(file("o.mp4"), file("o.raw")); // at 1/4: of 90 degrees
    EXPECT_NEAR(Strength(even, 400, 1.2, 1.3), 0.5 * std::cos(M_PI / 8), 0.04);
    EXPECT_NEAR(Strength(even, 1000, 1.2, 1.3), 0.5 * std::sin(M_PI / 8), 0.04);
    RunRender(command + " --frames 50:"); // clip B alone
    EXPECT_NEAR(Strength(Sound(file("o.mp4"), file("o.raw")), 1000, 0.1, 0.9), 0.5, 0.04);
    RunRender(command + " --no-audio");
    EXPECT_EQ(Shell("ffprobe -v error -show_entries stream=codec_type -of csv=p=0 " + file("o.mp4"))
                  .output,
              "video\n");
}

/// Music of 1500 Hz under two clips of 400 Hz, and alone: again and again, and away at the end.
TEST_F(Program, MusicPlaysUnderTheClips) {
    Must("ffmpeg -v error -f lavfi -i color=s=64x48:r=25:d=5 -f lavfi -i "
         "'aevalsrc=0.4*sin(2*PI*t*400):s=48000:d=5' -c:a aac " +
         file("c.mp4") +
         " && ffmpeg -v error -f lavfi -i "
         "'aevalsrc=0.5*sin(2*PI*t*1500):s=44100:d=2' " +
         file("m.wav"));
    const std::string command = "-q -t Push -d 1 " + file("c.mp4") + " " + file("c.mp4") +
                                " --music " + file("m.wav") + " -o " + file("o.mkv");
    for (const auto &[options, clip, music] :
         {std::tuple("", 0.4, 0.15), std::tuple(" --music-volume 50", 0.4, 0.25),
          std::tuple(" --no-audio", 0.0, 0.5)}) {
        RunRender(command + options);
        const std::vector<float> sound = Sound(file("o.mkv"), file("o.raw"));
        EXPECT_NEAR(Strength(sound, 400, 1, 1.5), clip, 0.03) << options;
        for (const double from : {0.2, 1.0, 2.3, 5.3}) // 2.3 is in its second turn
            EXPECT_NEAR(Strength(sound, 1500, from, from + 0.5), music, 0.03) << options << from;
        EXPECT_NEAR(Strength(sound, 1500, 7.4, 7.6), music / 2, 0.03) << options; // of 6 to 9
    }
    const Outcome mute =
        Render("-t Push -d 1 " + file("c.mp4") + " " + file("c.mp4") + " -o " + file("o.y4m"));
    EXPECT_EQ(mute.output, file("o.y4m") + ": files of this kind hold no sound, so it is left out\n"
                                           "A 125 + B 125 - overlap 25 = 225 frames\n");
}

TEST_F(Program, ColourTagsAndRateAreCarriedThrough) {
    Must("ffmpeg -v error -f lavfi -i color=red:s=64x48:r=30000/1001:d=1 -c:v libx264 "
         "-pix_fmt yuv420p -colorspace bt709 -color_primaries bt709 -color_trc bt709 "
         "-color_range tv -aspect 2:1 -metadata title=Sea -metadata date=2024 " +
         file("tagged.mp4"));
    for (const char *path : {"yuv", "rgb"}) {
        RunRender("-q -t Erase " + file("tagged.mp4") + " " + file("b.y4m") + " -d 0.2 -o " +
                  file("o.mp4") + " --path " + path);
        const std::string entries =
            "width,height,color_range,color_space,color_transfer,color_primaries,r_frame_rate,"
            "sample_aspect_ratio";
        EXPECT_EQ(Probe(file("o.mp4"), entries), Probe(file("tagged.mp4"), entries));
        EXPECT_EQ(Shell("ffprobe -v error -show_entries format_tags=title,date -of csv=p=0 " +
                        file("o.mp4"))
                      .output,
                  "Sea,2024\n");
    }
}

// ---------------------------------------------------------------------------------------------
// Refusals and stops
// ---------------------------------------------------------------------------------------------

TEST_F(Program, RefusesInOneLine) {
    Write(file("empty.mp4"), "");
    Write(file("text.mp4"), "This is not a video.\n");
    Write(file("none.y4m"), Y4m({}));
    Write(file("cut.y4m"), Y4m(a).substr(0, 30000));
    Write(file("bad.y4m"), "YUV4MPEG2 W97 Hx F25:1\n");
    Write(file("c444.y4m"), Y4m(a, "W97 H65 F25:1 C444"));
    Write(file("p10.y4m"), Y4m(a, "W97 H65 F25:1 C420p10"));
    Write(file("slipped.y4m"), Y4m(a).insert(kHeader.size() + 5000, "x"));
    Must("ffmpeg -v error -f lavfi -i sine=d=0.1 " + file("sound.wav") +
         " && ffmpeg -v error -f lavfi -i testsrc=s=97x65:d=2 -c:v ffv1 " + file("c.mkv") +
         " && ffmpeg -v error -i " + file("c.mkv") + " -pix_fmt yuv444p " + file("c.mp4") +
         " && ffmpeg -v error -f lavfi -i testsrc2=s=640x480:d=3 -c:v mpeg4 -q:v 1 " +
         file("big.mp4") + " && head -c 20000 " + file("c.mkv") + " >" + file("cut.mkv") +
         " && head -c 5000 " + file("c.mp4") + " >" + file("cut.mp4"));
    struct Case {
        std::string arguments, message; ///< a part of the line
    };
    const std::string one = file("a.y4m"), two = file("b.y4m"), to = " -o " + file("o.y4m");
    const std::string erase = "-t Erase ", shortly = erase + "-d 0.2 ";
    const std::vector<Case> cases = {
        // Clips
        {shortly + file("missing.mp4") + " " + two + to, "missing.mp4: there is no such file"},
        {shortly + one + " " + file("missing.mp4") + to, "missing.mp4: there is no such file"},
        {shortly + file("empty.mp4") + " " + two + to, "empty.mp4: is empty"},
        {shortly + file("text.mp4") + " " + two + to, "text.mp4: is of no kind that FFmpeg reads"},
        {shortly + file("sound.wav") + " " + two + to, "sound.wav: no video in it"},
        {shortly + folder.path.string() + " " + two + to, "is a folder"},
        {shortly + file("none.y4m") + " " + two + to, "none.y4m: no frames in it"},
        {shortly + one + " " + file("cut.y4m") + to, "cut.y4m: damaged or cut short after 3"},
        {shortly + file("cut.mkv") + " " + two + to, "cut.mkv: "},
        {shortly + file("cut.mp4") + " " + two + to, "cut.mp4: was cut short before its index"},
        {shortly + file("bad.y4m") + " " + two + to, "bad.y4m: "},
        {shortly + file("c444.y4m") + " " + two + to, "c444.y4m: damaged or cut short"},
        {shortly + file("p10.y4m") + " " + two + to, "p10.y4m: damaged or cut short"},
        {shortly + file("slipped.y4m") + " " + two + to,
         "slipped.y4m: damaged or cut short after 1"},
        {shortly + "- " + two + to + " < /dev/null", "standard input: is empty or of no kind"},
        {shortly + "- " + two + to + " < " + file("cut.y4m"),
         "standard input: damaged or cut short after 3"},
        {shortly + "- - " + to, "only one of the clips"},
        {erase + one + " " + two + to, "a.y4m: has 12 frames, fewer than the transition's 25"},
        {erase + "-d 0.48 " + one + " " + two + to, "b.y4m: has 10 frames, fewer"},
        {erase + "- " + two + to + " < " + one, "has 12 frames, fewer"},
        {"-t Erase -t Turn -d 6f -d 5f " + clips() + one + to,
         "b.y4m: has 10 frames, fewer than its two transitions' 6 + 5; the longest durations "
         "that fit are 0.2 and 0.2"},
        {shortly + one + "#t=1 " + two + to, "a.y4m: ends before its in point, after 12 frames"},
        {shortly + one + "#t=5f,3f " + two + to, "a.y4m: its out point is not behind its in point"},
        {shortly + one + "#t=x " + two + to, "a.y4m: its in point x: give seconds"},
        {erase + "-t Turn -t Roll " + clips() + one + to,
         "-t: give one for all joints or one for each of the 2, not 3"},
        {erase + one + to, "give two clips or more"},
        {shortly + "- " + two + to + " < " + file("big.mp4"), "cannot be read without seeking"},
        {shortly + clips() + to + " --fit wide", "--fit wide: there are contain, cover"},
        {shortly + clips() + "-o " + file("o.mp4") + " --quality 99", "libx264 has 0 to 51"},
        {shortly + clips() + "-o " + file("o.mpg") + " --depth 10", "has 8 bits only"},
        {shortly + clips() + "-o " + file("o.mp4") + " --audio-codec mp5",
         "no such encoder of sound"},
        {shortly + clips() + "-o " + file("o"), "a name without an extension"},
        // Names and numbers
        {"-t Erasr " + clips() + to, "no transition \"Erasr\"; the nearest are \"Erase\", "},
        {"-t TrEraseShift --path rgb " + clips() + to, "has no rgb path; use --path yuv"},
        {shortly + clips() + to + " --ease sideways", "--ease sideways: there are linear, smooth"},
        {shortly + clips() + to + " --path hsv", "--path hsv: there are yuv, rgb"},
        {erase + clips() + to + " -d abc", "--duration abc: give seconds"},
        {erase + clips() + to + " -d 0", "--duration 0: give a time above 0"},
        {erase + clips() + to + " -d nan", "--duration nan: give seconds as in 1.5"},
        {shortly + clips() + to + " --seed x", "x"},
        {shortly + clips() + to + " --size 0x5", "--size 0x5: give the size as WIDTHxHEIGHT"},
        {shortly + clips() + to + " --size 64", "--size 64: give the size"},
        {shortly + clips() + to + " --rate fast", "--rate fast: give frames per second"},
        {shortly + clips() + to + " --frames 5", "--frames 5: give FIRST:END"},
        {shortly + clips() + to + " --frames 5:5", "--frames 5:5: give FIRST:END"},
        {shortly + clips() + to + " --frames 17:", "ends before frame 17, it has 17"},
        {shortly + "- " + two + to + " --frames 17: < " + one, "ends before frame 17, it has 17"},
        {shortly + clips(), "-o: give the output's name"},
        // Outputs
        {shortly + clips() + "-o " + file("o.docx"), "\".docx\" is of no video file"},
        {shortly + clips() + "-o " + file("o.png"), "as in o-%04d.png"},
        {shortly + clips() + "-o " + file("o.mp4") + " --codec mp5", "no such video encoder"},
        {shortly + clips() + "-o " + file("o.gif.y4m") + " --codec h264", "one kind of video only"},
        {shortly + clips() + "-o " + file("o.webm") + " --codec h264", "cannot hold libx264"},
        {shortly + clips() + "-o " + file("o.mkv") + " --preset nosuch", "--preset nosuch"},
        {shortly + clips() + "-o " + file("o.mp4") + " --size 97x65", "give --size 96x64"},
        {shortly + clips() + "-o " + two, "b.y4m: is one of the clips"},
        {shortly + clips() + "-o " + file("nowhere/o.y4m"), "o.y4m: there is no folder"},
        {shortly + clips() + "-o " + file("nowhere/o.mp4"), "o.mp4: there is no folder"},
        {shortly + clips() + "-o /proc/o.y4m", "/proc/o.y4m: "},
    };
    const auto files = [&] {
        return std::distance(fs::directory_iterator(folder.path), fs::directory_iterator());
    };
    const auto before = files();
    for (const Case &c : cases) {
        const Outcome run = Render("-q " + c.arguments);
        EXPECT_GT(run.status, 0) << c.arguments;
        EXPECT_LT(run.status, 3) << c.arguments;
        EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 1) << run.output;
        EXPECT_TRUE(run.output.starts_with("transitions: ")) << run.output;
        EXPECT_NE(run.output.find(c.message), std::string::npos)
            << c.arguments << "\n"
            << run.output << "lacks: " << c.message;
    }
    EXPECT_EQ(files(), before) << "something was left behind";
    EXPECT_TRUE(Read(two) == Y4m(b));
}

/// Devices and limits stand in for a disk without room.
TEST_F(Program, FullDiskLeavesNothing) {
    const std::string big = file("big.y4m");
    Write(big, Y4m(Noise(12, 1, FrameSize(320, 240)), "W320 H240 F25:1"));
    const std::string command = "-q -t Erase -d 0.2 " + big + " " + big + " -o ";
    for (const char *device : {"full.y4m", "full.mkv"}) {
        fs::create_symlink("/dev/full", file(device));
        const Outcome run = Render(command + file(device));
        EXPECT_EQ(run.status, 1);
        EXPECT_NE(run.output.find("No space left on device"), std::string::npos) << run.output;
        EXPECT_TRUE(fs::is_symlink(file(device)));
        fs::remove(file(device));
    }
    for (const char *name : {"o.y4m", "o.mkv", "o.mp4", "o-%d.png"}) {
        const Outcome run = Shell("ulimit -f 100; " TP_PROGRAM " render " + command + file(name));
        EXPECT_EQ(run.status, 1) << name;
        EXPECT_NE(run.output.find("File too large"), std::string::npos) << name << run.output;
    }
    for (const fs::directory_entry &entry : fs::directory_iterator(folder.path))
        EXPECT_TRUE(entry.path().extension() == ".y4m" && entry.path().filename() != "o.y4m")
            << entry.path();
}

TEST_F(Program, SignalLeavesNothing) {
    Write(file("old.mkv"), "what was there before");
    for (const auto &[signal, status] : {std::pair("INT", 130), std::pair("TERM", 143)}) {
        // Standard input stays open, so the render would wait for ever.
        const std::string target = file("old.mkv");
        const Outcome run =
            Shell("mkfifo " + file(signal) + "; exec 7<>" + file(signal) + "; cat " +
                  file("a.y4m") + " >&7 & { " TP_PROGRAM " render -q -t Erase -d 0.2 - " +
                  file("b.y4m") + " -o " + target + " <" + file(signal) +
                  " & }; for i in $(seq 100); do ls -A " + folder.path.string() +
                  " | grep -q '^.old.mkv.*part$' && break; sleep 0.1; done; kill -" + signal +
                  " $!; wait $!; echo status $?");
        EXPECT_EQ(run.output.find("transitions: stopped by a signal; nothing was written under "
                                  "the output's name\n"),
                  0u)
            << run.output;
        EXPECT_TRUE(run.output.ends_with("status " + std::to_string(status) + "\n")) << run.output;
        EXPECT_EQ(Read(target), "what was there before");
    }
    EXPECT_EQ(Shell("ls -A " + folder.path.string() + " | grep part").output, "");
}

TEST_F(Program, ProgressIsForTerminalsOnly) {
    if (Shell("script -qec true /dev/null </dev/null").status != 0)
        GTEST_SKIP() << "no pseudo-terminal can be made here";
    const std::string command =
        TP_PROGRAM " render -t Erase -d 0.2 " + clips() + "-o " + file("o.y4m");
    EXPECT_EQ(Shell(command).output, "A 12 + B 10 - overlap 5 = 17 frames\n");
    const Outcome terminal = Shell("script -qec '" + command + "' /dev/null </dev/null");
    EXPECT_NE(terminal.output.find("\r17/17 frames  "), std::string::npos) << terminal.output;
    Must("script -qec '" + command + " -q' /dev/null </dev/null");
}

} // namespace
