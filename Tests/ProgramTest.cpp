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

constexpr int kWidth = 97, kHeight = 65; // odd, so that chroma is rounded up
const std::string kHeader = "W97 H65 F25:1 Ip A1:1 C420jpeg";

/// Noise, so that no two frames or pixels are mistaken for each other.
Pictures Noise(int frames, std::uint64_t seed, std::size_t size = PlanarSize(kWidth, kHeight)) {
    Pictures pictures;
    for (int i = 0; i < frames; ++i)
        pictures.push_back(RandomBytes(size, seed++ << 32));
    return pictures;
}

template<class... Part>
Outcome Render(const Part &...arguments) {
    return Shell(Text(TP_PROGRAM " render ", arguments...));
}

template<class... Part>
void RunRender(const Part &...arguments) {
    Must(TP_PROGRAM " render ", arguments...);
}

/// Numbers of the frames that differ, or the two lengths: what a failed comparison shows.
std::string Difference(const Pictures &a, const Pictures &b) {
    std::string text;
    if (a.size() != b.size())
        text = Text(a.size(), " and ", b.size(), " frames;");
    for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i)
        if (a[i] != b[i])
            text += Text(' ', i);
    return text;
}

/// Two clips of noise, A of 12 and B of 10 frames, in a folder of the test's own.
class Program : public testing::Test {
protected:
    void SetUp() override {
        Write("a.y4m", Y4m(a, kHeader));
        Write("b.y4m", Y4m(b, kHeader));
    }

    const WorkingFolder folder;
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
        const Outcome run =
            Render("-t ", c.name, " a.y4m b.y4m -o o.y4m -d ", c.overlap / 25.0, " --ease ",
                   c.easing, " --seed ", c.seed, c.reverse ? " --reverse" : "");
        ASSERT_EQ(run.output,
                  Text("A 12 + B 10 - overlap ", c.overlap, " = ", 22 - c.overlap, " frames\n"));
        const Pictures drawn = FramesOf(Read("o.y4m"));
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
        const std::string name = clip ? "b" : "a";
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
    for (const auto &[output, options] :
         {std::pair("o-%04d.png", ""), {"o.mov", "--codec qtrle"}}) {
        RunRender("-q -t Roll --path rgb --only -d 0.16 a-%d.png b-%d.png -o ", output, ' ',
                  options);
        Must("ffmpeg -v error -y -i ", output, " -f rawvideo -pix_fmt bgra o.raw");
        const std::string drawn = Read("o.raw");
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
    const std::string command = "-t Erase -t cut -t Turn -d 5f -d 80ms -d 0:00.12 a.y4m "
                                "b.y4m#t=1f,0.36 a.y4m b.y4m#t=160ms -o o.y4m";
    const Outcome run = Render(command);
    EXPECT_EQ(run.output,
              "      12  a.y4m\n      -5  Erase\n       8  b.y4m\n       0  cut\n      12  a.y4m\n"
              "      -3  Turn\n       6  b.y4m\n      30  frames, 1.2 s\n");
    Pictures expected =
        Expected(a, Pictures(b.begin() + 1, b.begin() + 9), 5, "Erase", hostkit::Motion());
    const Pictures second =
        Expected(a, Pictures(b.begin() + 4, b.end()), 3, "Turn", hostkit::Motion());
    expected.insert(expected.end(), second.begin(), second.end());
    EXPECT_EQ(Difference(FramesOf(Read("o.y4m")), expected), "");
    RunRender("-q --only ", command);
    Pictures joints(expected.begin() + 7, expected.begin() + 12);
    joints.insert(joints.end(), expected.begin() + 24, expected.begin() + 27);
    EXPECT_EQ(Difference(FramesOf(Read("o.y4m")), joints), "");
}

/// Pictures are sought where the file allows it: between key frames, with frames that are decoded
/// in another order than shown, and with fields that look at the pictures around them.
TEST_F(Program, PartsOfARenderEqualTheWhole) {
    const std::string source = "ffmpeg -v error -f lavfi -i testsrc2=s=96x64:d=4:r=";
    Must(source + "25 -c:v libx264 -bf 3 -g 40 c.mp4 && " + source +
         "50 -vf interlace -flags +ildct+ilme -c:v mpeg2video -q:v 3 -bf 2 i.ts");
    for (const auto &[inputs, seconds, cuts] :
         {std::tuple("a.y4m b.y4m ", "0.2", std::vector{0, 9, 10, 12, 17}),
          {"c.mp4 i.ts ", "0.4", std::vector{0, 33, 60, 91, 95, 96, 117, 190}},
          {"i.ts i.ts --rate 50 ", "0.4", std::vector{0, 33, 101, 380}}}) {
        const std::string command = Text("-q -t Wind --seed 3 -d ", seconds, " ", inputs, "-o ");
        RunRender(command + "whole.y4m");
        const Pictures whole = FramesOf(Read("whole.y4m"));
        ASSERT_EQ(int(whole.size()), cuts.back());
        Pictures joined;
        for (std::size_t i = 1; i < cuts.size(); ++i) {
            RunRender(command, "part.y4m --frames ", cuts[i - 1], ":", cuts[i]);
            const Pictures part = FramesOf(Read("part.y4m"));
            joined.insert(joined.end(), part.begin(), part.end());
        }
        EXPECT_EQ(Difference(joined, whole), "") << inputs;
    }
    RunRender("-q -t Wind -d 0.2 --seed 3 a.y4m b.y4m -o whole.y4m");
    RunRender("-q -t Wind -d 0.2 --seed 3 a.y4m b.y4m -o only.y4m --only --frames 1:4");
    const Pictures whole = FramesOf(Read("whole.y4m"));
    EXPECT_EQ(
        Difference(FramesOf(Read("only.y4m")), Pictures(whole.begin() + 8, whole.begin() + 11)),
        "");
}

TEST_F(Program, EditListsMakeTheSameFilm) {
    const std::string command =
        "a.y4m b.y4m#t=,9f a.y4m#t=2f,11f -t any --seed 5 -d 3f --ease out --fit cover ";
    RunRender("-q " + command + "--save-edit e.otio -o o.y4m");
    const std::string film = Read("o.y4m");
    RunRender("-q e.otio -o again.y4m");
    EXPECT_TRUE(Read("again.y4m") == film);
    const std::string list = Read("e.otio");
    RunRender("-q " + command + "--save-edit e.otio");
    EXPECT_TRUE(Read("e.otio") == list);
}

/// Each kind of file holds what it should, the same bytes from the same seed and others from
/// another.
TEST_F(Program, ContainersAndCodecsWithSeeds) {
    const std::pair<const char *, const char *> kCases[] = {
        // codec, width, pixels, frames
        {"o.y4m", "rawvideo,97,yuv420p,17,"},
        {"o.mp4", "h264,96,yuv420p,17,"},
        {"o.mkv", "h264,96,yuv420p,17,"},
        {"o.mkv --codec ffv1", "ffv1,96,yuv420p,17,"},
        {"o.webm", "vp9,96,yuv420p,17,"},
        {"o.mov --codec qtrle", "qtrle,97,rgb24,17,"},
        {"o.mov --codec prores", "prores,96,yuv422p10le,17,"},
        {"o.gif", "gif,97,bgra,17,"},
    };
    for (const auto &[output, expected] : kCases)
        for (const char *path : {"rgb", "yuv"}) {
            SCOPED_TRACE(Text(output, ' ', path));
            const std::string target = output, name = target.substr(0, target.find(' '));
            std::string results[3];
            for (int i = 0; i < 3; ++i) {
                RunRender("-q -t Wind -d 0.2 --path ", path, " --seed ", i / 2, " a.y4m b.y4m -o ",
                          target);
                results[i] = Read(name);
            }
            EXPECT_TRUE(results[0] == results[1]);
            EXPECT_FALSE(results[0] == results[2]);
            if (path[0] == 'y') {
                EXPECT_EQ(Probe(name, "codec_name,width,pix_fmt,nb_read_frames"), expected);
            }
        }
}

/// What says nothing of its colours is BT.709 from 720 rows on: the red of a grey with much of it.
TEST_F(Program, ColoursWithoutATagAreThoseOfTheSize) {
    for (const auto &[height, red] : {std::pair(718, 1.402), {720, 1.5748}}) {
        Must("ffmpeg -v error -y -f lavfi -i 'color=s=64x", height,
             ":r=25:d=0.2,format=yuv420p,geq=lum=90:cb=128:cr=160' -c:v ffv1 flat.mkv");
        RunRender("-q -t Erase --path rgb --only -d 0.12 flat.mkv flat.mkv -o o.mov --codec qtrle");
        EXPECT_NEAR(Decode("o.mov").Pixel(0, 32, 32)[0],
                    (90 - 16) * 255 / 219.0 + (160 - 128) * 255 / 224.0 * red, 2)
            << height;
    }
}

// ---------------------------------------------------------------------------------------------
// Files and pipes
// ---------------------------------------------------------------------------------------------

TEST_F(Program, PipesInBothDirections) {
    RunRender("-q -t Erase -d 0.2 a.y4m b.y4m -o file.y4m");
    const std::string render = " | " TP_PROGRAM " render -q -t Erase -d 0.2 ";
    for (const std::string &command :
         {"ffmpeg -v error -i a.y4m -f yuv4mpegpipe -" + render + "- b.y4m -o -",
          "ffmpeg -v error -i b.y4m -f yuv4mpegpipe -" + render + "a.y4m - -o -",
          "cat a.y4m" + render + "- b.y4m -o -"}) {
        Must(command, " | ffmpeg -v error -y -i - -c:v ffv1 o.mkv && "
                      "ffmpeg -v error -y -i o.mkv -f rawvideo o.raw");
        std::string all;
        for (const std::string &frame : FramesOf(Read("file.y4m")))
            all += frame;
        EXPECT_TRUE(Read("o.raw") == all) << command;
    }
    // A pipe between two clips: where it ends is seen when it has ended.
    Must("ffmpeg -v error -i a.y4m -c:v ffv1 -f matroska -", render, "b.y4m - b.y4m -o middle.y4m");
    Pictures middle = Expected(b, a, 5, "Erase", hostkit::Motion());
    middle = Expected(middle, b, 5, "Erase", hostkit::Motion());
    EXPECT_EQ(Difference(FramesOf(Read("middle.y4m")), middle), "");
    // What a link leads to is written, not the link, be it there or not.
    fs::create_symlink("led-to.y4m", "second.y4m");
    fs::create_symlink("second.y4m", "link.y4m");
    RunRender("-q -t Erase -d 0.2 a.y4m b.y4m -o link.y4m");
    EXPECT_TRUE(fs::is_symlink("link.y4m") && Read("led-to.y4m") == Read("file.y4m"));
    // A reader that goes away is an error like any other.
    const Outcome closed = Shell("(" TP_PROGRAM " render -q -t Erase -d 0.2 a.y4m b.y4m -o - ; "
                                 "echo status $? >&2) | head -c 99 >/dev/null");
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
        Write("tags.y4m", Y4m(a, Text("W97 H65 ", c.in)));
        RunRender("-q -t Erase -d 0.1 tags.y4m tags.y4m -o o.y4m ", c.options);
        EXPECT_TRUE(
            Read("o.y4m").starts_with(Text("YUV4MPEG2 W97 H65 ", c.out, " XCOLORRANGE=LIMITED\n")))
            << c.in << c.options;
    }
}

TEST_F(Program, PhotographsBecomeFilms) {
    Must("ffmpeg -v error -f lavfi -i testsrc=s=3000x2000:d=0.04 photo.jpg");
    const Outcome run = Render("-t cut --still 1f photo.jpg photo.jpg -o o.mkv");
    EXPECT_NE(run.output.find("1620x1080; --size gives another size"), std::string::npos)
        << run.output;
    EXPECT_EQ(Probe("o.mkv", "width,height"), "1620,1080,");
}

/// The encoder writes its settings into the stream.
TEST_F(Program, QualityAndPresetReachTheStream) {
    for (const auto &[options, crf, search] :
         {std::tuple("", "crf=18.0", "me=hex"), std::tuple("--quality 41", "crf=41.0", "me=hex"),
          std::tuple("--quality 30 --preset ultrafast", "crf=30.0", "me=dia")}) {
        RunRender("-q -t Erase -d 0.2 a.y4m b.y4m -o o.mkv ", options);
        const std::string bytes = Read("o.mkv");
        EXPECT_NE(bytes.find(crf), std::string::npos) << options;
        EXPECT_NE(bytes.find(search), std::string::npos) << options;
    }
    Must("ffmpeg -v error -f lavfi -i color=s=64x48:r=25:d=2 -f lavfi -i anoisesrc=d=2:r=48000 "
         "-c:a pcm_s16le -ac 2 n.mkv");
    for (const auto &[options, rate] : {std::pair("", 192000), {"--audio-bitrate 48", 48000}}) {
        RunRender("-q -t cut n.mkv n.mkv -o n.mp4 ", options);
        EXPECT_NEAR(std::atoi(Probe("n.mp4", "bit_rate", "a:0").c_str()), rate, 3000) << options;
    }
}

/// 256 colours for each picture leave a smooth one of many colours within a few levels.
TEST_F(Program, GifIsNearItsSource) {
    Must("ffmpeg -v error -f lavfi -i "
         "gradients=s=160x120:r=25:d=0.4:n=4:c0=red:c1=yellow:c2=blue:c3=green:seed=3 "
         "-c:v ffv1 -pix_fmt bgr0 g.mkv");
    RunRender("-q -t Push -d 0.2 --path rgb g.mkv g.mkv -o o.gif");
    const std::string source = Decode("g.mkv").frames.at(0);
    const std::string drawn = Decode("o.gif").frames.at(0);
    ASSERT_EQ(drawn.size(), source.size());
    double sum = 0;
    for (std::size_t i = 0; i < source.size(); ++i)
        sum += std::abs(std::uint8_t(source[i]) - std::uint8_t(drawn[i]));
    EXPECT_LT(sum / double(source.size()), 4.5); // alpha among it
}

/// White without high dynamic range is 203 nits in a result that has it: 58.07 % of PQ, 75 % of
/// HLG. Files of grey say nothing of their range, which is the full one.
TEST_F(Program, StandardRangeIsConvertedIntoHighOne) {
    Must("ffmpeg -v error -f lavfi -i color=white:s=64x48:r=25:d=0.4 w.mp4");
    Write("w.pgm", "P5 64 48 255\n" + std::string(64 * 48, '\xff'));
    for (const auto &[transfer, white] :
         {std::pair("smpte2084", 64 + 876 * 0.5807), std::pair("arib-std-b67", 64 + 876 * 0.75)}) {
        Must("ffmpeg -v error -y -f lavfi -i color=gray:s=64x48:r=25:d=0.4 -c:v ffv1 "
             "-pix_fmt yuv420p10le -color_range tv -color_primaries bt2020 "
             "-colorspace bt2020nc -color_trc ",
             transfer, " h.mkv");
        RunRender("-q -t cut --depth 10 --codec ffv1 h.mkv w.mp4 w.pgm --still 1f -o o.mkv");
        EXPECT_EQ(Probe("o.mkv", "pix_fmt,color_space,color_transfer,color_primaries"),
                  Text("yuv420p10le,bt2020nc,", transfer, ",bt2020,"));
        Must("ffmpeg -v error -y -ss 0.6 -i o.mkv -f rawvideo raw");
        const std::string raw = Read("raw");
        ASSERT_EQ(raw.size(), 6u * 64 * 48 * 3); // five of the film, one of the file
        for (std::size_t at = 0; at < raw.size(); at += 64 * 48 * 3)
            EXPECT_NEAR(std::uint8_t(raw[at]) + 256 * std::uint8_t(raw[at + 1]), white, 1)
                << transfer;
    }
}

/// White of alpha 128 on black is grey of level 128: 16 + 219 * 128 / 255.
TEST_F(Program, TransparentClipsLieOnBlack) {
    Must("ffmpeg -v error -f lavfi -i color=white@0.502:s=64x48,format=rgba -frames:v 1 half.png");
    for (const char *path : {"yuv", "rgb"}) {
        RunRender("-q -t Push -d 2f --still 3f --path ", path, " half.png half.png -o o.y4m");
        for (const std::string &picture : FramesOf(Read("o.y4m")))
            EXPECT_NEAR(std::uint8_t(picture[64 * 24 + 32]), 126, 1) << path;
    }
}

TEST_F(Program, ClipIsFittedToTheFirstOne) {
    // A grey clip of another shape and twice the rate whose frame i has the level 100 + i.
    Pictures grey;
    for (int i = 0; i < 20; ++i)
        grey.push_back(std::string(80 * 20, char(100 + i)) + std::string(40 * 10 * 2, char(128)));
    Write("grey.y4m", Y4m(grey, "W80 H20 F50:1 A1:1"));
    for (const char *fit : {"contain", "cover", "stretch", "blur"}) {
        const Outcome run = Render("-t Erase -d 0.2 a.y4m grey.y4m -o o.y4m --fit ", fit);
        EXPECT_EQ(run.output, "A 12 + B 10 - overlap 5 = 17 frames\n");
        const Pictures frames = FramesOf(Read("o.y4m"));
        ASSERT_EQ(frames.size(), 17u);
        for (int i = 12; i < 17; ++i) { // every second frame of the clip, from its 5 x 2nd on
            const int middle = std::uint8_t(frames[i][(kHeight / 2) * kWidth + kWidth / 2]);
            EXPECT_NEAR(middle, 100 + 2 * (i - 7), 1) << fit;
            const bool bars = std::strcmp(fit, "contain") == 0;
            EXPECT_NEAR(std::uint8_t(frames[i][0]), bars ? 16 : middle, 1) << fit;
        }
    }
    // As fast as the result: its last picture is the last, and a still picture is there at all.
    Write("grey.y4m", Y4m(grey, "W80 H20 F25:1 A1:1"));
    Must("ffmpeg -v error -i grey.y4m -frames:v 1 grey.png");
    for (const char *fit : {"contain", "blur"}) {
        RunRender("-q -t cut a.y4m grey.y4m grey.png --still 2f -o o.y4m --fit ", fit);
        const Pictures frames = FramesOf(Read("o.y4m"));
        ASSERT_EQ(frames.size(), 34u);
        const auto level = [&](int frame) {
            return int(std::uint8_t(frames[frame][(kHeight / 2) * kWidth + kWidth / 2]));
        };
        EXPECT_EQ(level(12), 100) << fit;
        EXPECT_EQ(level(31), 119) << fit;
        EXPECT_NEAR(level(33), 100, 2) << fit; // through RGB
    }
}

TEST_F(Program, SoundIsFadedOverTheOverlap) {
    for (const auto &[clip, hertz] : {std::pair("a.mkv", 400), std::pair("b.mkv", 1000)})
        Must("ffmpeg -v error -f lavfi -i color=s=64x48:r=25:d=2 -f lavfi -i "
             "'aevalsrc=0.5*sin(2*PI*t*",
             hertz, "):s=44100:d=2' -c:a pcm_s16le ", clip);
    const std::string command = "-q -t Erase -d 1 a.mkv b.mkv -o o.mkv --audio-codec flac";
    RunRender(command);
    const std::vector<float> sound = Sound("o.mkv");
    EXPECT_NEAR(double(sound.size()) / 8000, 3, 0.05);
    struct Case {
        double from, to, low, high; ///< expected strengths of A's tone and B's
    };
    for (const Case &c : {Case{0.1, 0.9, 0.5, 0}, Case{1.2, 1.3, 0.375, 0.125},
                          Case{1.7, 1.8, 0.125, 0.375}, Case{2.1, 2.9, 0, 0.5}}) {
        EXPECT_NEAR(Strength(sound, 400, c.from, c.to), c.low, 0.008) << c.from;
        EXPECT_NEAR(Strength(sound, 1000, c.from, c.to), c.high, 0.008) << c.from;
    }
    RunRender(command + " --audio-curve equal-power");
    const std::vector<float> even = Sound("o.mkv"); // at 1/4: of 90 degrees
    EXPECT_NEAR(Strength(even, 400, 1.2, 1.3), 0.5 * std::cos(M_PI / 8), 0.008);
    EXPECT_NEAR(Strength(even, 1000, 1.2, 1.3), 0.5 * std::sin(M_PI / 8), 0.008);
    RunRender(command + " --frames 50:"); // clip B alone
    EXPECT_NEAR(Strength(Sound("o.mkv"), 1000, 0.1, 0.9), 0.5, 0.008);
    RunRender(command + " --no-audio");
    EXPECT_EQ(Probe("o.mkv", "codec_type", "a"), "");
}

/// Music of 1500 Hz under two clips of 400 Hz, and alone: again and again, and away at the end.
TEST_F(Program, MusicPlaysUnderTheClips) {
    Must("ffmpeg -v error -f lavfi -i color=s=64x48:r=25:d=5 -f lavfi -i "
         "'aevalsrc=0.4*sin(2*PI*t*400):s=48000:d=5' -c:a aac c.mp4 && ffmpeg -v error -f lavfi -i "
         "'aevalsrc=0.5*sin(2*PI*t*1500):s=44100:d=2' m.wav");
    const std::string command = "-q -t Push -d 1 c.mp4 c.mp4 --music m.wav -o o.mkv";
    for (const auto &[options, clip, music] :
         {std::tuple("", 0.4, 0.15), std::tuple(" --music-volume 50", 0.4, 0.25),
          std::tuple(" --no-audio", 0.0, 0.5)}) {
        RunRender(command + options);
        const std::vector<float> sound = Sound("o.mkv");
        EXPECT_NEAR(Strength(sound, 400, 1, 1.5), clip, 0.03) << options;
        for (const double from : {0.2, 1.0, 2.3, 5.3}) // 2.3 is in its second turn
            EXPECT_NEAR(Strength(sound, 1500, from, from + 0.5), music, 0.03) << options << from;
        EXPECT_NEAR(Strength(sound, 1500, 7.4, 7.6), music / 2, 0.03) << options; // of 6 to 9
    }
    const Outcome mute = Render("-t Push -d 1 c.mp4 c.mp4 -o o.y4m");
    EXPECT_EQ(mute.output, "o.y4m: files of this kind hold no sound, so it is left out\n"
                           "A 125 + B 125 - overlap 25 = 225 frames\n");
}

TEST_F(Program, ColourTagsAndRateAreCarriedThrough) {
    Must("ffmpeg -v error -f lavfi -i color=red:s=64x48:r=30000/1001:d=1 -c:v libx264 "
         "-pix_fmt yuv420p -colorspace bt709 -color_primaries bt709 -color_trc bt709 "
         "-color_range tv -aspect 2:1 -metadata title=Sea -metadata date=2024 tagged.mp4 && "
         "ffmpeg -v error -i tagged.mp4 -c copy -metadata date= -metadata "
         "creation_time=2024-05-06T07:08:09Z made.mp4");
    for (const auto &[path, file, date] : {std::tuple("yuv", "tagged.mp4", "2024"),
                                           {"rgb", "made.mp4", "2024-05-06T07:08:09.000000Z"}}) {
        RunRender("-q -t Erase ", file, " b.y4m -d 0.2 -o o.mp4 --path ", path);
        const std::string entries =
            "width,height,color_range,color_space,color_transfer,color_primaries,r_frame_rate,"
            "sample_aspect_ratio";
        EXPECT_EQ(Probe("o.mp4", entries), Probe("tagged.mp4", entries));
        EXPECT_EQ(
            Shell("ffprobe -v error -show_entries format_tags=title,date -of csv=p=0 o.mp4").output,
            Text("Sea,", date, '\n'));
        RunRender("-q -t Erase tagged.mp4 tagged.mp4 -d 0.2 --only -o o.mp4 --path ", path);
        EXPECT_GT(Decode("o.mp4").Pixel(2, 2, 24)[0], 200) << "bars beside its wide pixels";
    }
}

// ---------------------------------------------------------------------------------------------
// Refusals and stops
// ---------------------------------------------------------------------------------------------

TEST_F(Program, RefusesInOneLine) {
    Write("empty.mp4", "");
    Write("text.mp4", "This is not a video.\n");
    Write("none.y4m", Y4m({}, kHeader));
    const std::string whole = Read("a.y4m");
    Write("cut.y4m", whole.substr(0, 30000));
    Write("bad.y4m", "YUV4MPEG2 W97 Hx F25:1\n");
    Write("c444.y4m", Y4m(a, "W97 H65 F25:1 C444"));
    Write("p10.y4m", Y4m(a, "W97 H65 F25:1 C420p10"));
    Write("slipped.y4m", Text(whole.substr(0, 5000), 'x', whole.substr(5000)));
    Must("ffmpeg -v error -f lavfi -i sine=d=0.1 sound.wav && ffmpeg -v error -f lavfi -i "
         "testsrc=s=97x65:d=2 -c:v ffv1 c.mkv && ffmpeg -v error -i c.mkv -pix_fmt yuv444p c.mp4 "
         "&& ffmpeg -v error -f lavfi -i testsrc2=s=640x480:d=3 -c:v mpeg4 -q:v 1 big.mp4 && head "
         "-c 20000 c.mkv >cut.mkv && head -c 5000 c.mp4 >cut.mp4");
    const auto files = [&] {
        return std::distance(fs::directory_iterator("."), fs::directory_iterator());
    };
    const auto before = files();
    const std::string render = TP_PROGRAM " render -q ", to = "-o o.y4m ",
                      erase = render + "-t Erase -d 0.2 ", both = erase + "a.y4m b.y4m ";
    const Answer clipsAnswers[] = {
        {"missing.mp4 b.y4m", ": missing.mp4: there is no such file"},
        {"a.y4m missing.mp4", ": missing.mp4: there is no such file"},
        {"empty.mp4 b.y4m", "empty.mp4: is empty"},
        {"text.mp4 b.y4m", "text.mp4: is of no kind that FFmpeg reads"},
        {"sound.wav b.y4m", "sound.wav: no video in it"},
        {". b.y4m", "is a folder"},
        {"none.y4m b.y4m", "none.y4m: no frames in it"},
        {"a.y4m cut.y4m", "cut.y4m: damaged or cut short after 3"},
        {"cut.mkv b.y4m", "cut.mkv: "},
        {"cut.mp4 b.y4m", "cut.mp4: was cut short before its index"},
        {"bad.y4m b.y4m", "bad.y4m: "},
        {"c444.y4m b.y4m", "c444.y4m: damaged or cut short"},
        {"p10.y4m b.y4m", "p10.y4m: damaged or cut short"},
        {"slipped.y4m b.y4m", "slipped.y4m: damaged or cut short after 1"},
        {"- b.y4m < /dev/null", "standard input: is empty or of no kind"},
        {"- b.y4m < cut.y4m", "standard input: damaged or cut short after 3"},
        {"- b.y4m < big.mp4", "cannot be read without seeking"},
        {"- b.y4m --frames 17: < a.y4m", "ends before frame 17, it has 17"},
        {"- -", "only one of the clips"},
        {"a.y4m", "give two clips or more"},
        {"a.y4m#t=1 b.y4m", "a.y4m: ends before its in point, after 12 frames"},
        {"a.y4m#t=5f,3f b.y4m", "a.y4m: its out point is not behind its in point"},
        {"a.y4m#t=x b.y4m", "a.y4m: its in point x: give seconds"},
    };
    ExpectAnswers(erase + to, clipsAnswers);
    const Answer jointAnswers[] = {
        {"-t Erase a.y4m b.y4m", "a.y4m: has 12 frames, fewer than the transition's 25"},
        {"-t Erase -d 0.48 a.y4m b.y4m", "b.y4m: has 10 frames, fewer"},
        {"-t Erase - b.y4m < a.y4m", "has 12 frames, fewer"},
        {"-t Erase -t Turn -d 6f -d 5f a.y4m b.y4m a.y4m",
         "b.y4m: has 10 frames, fewer than its two transitions' 6 + 5; the longest "
         "durations "
         "that fit are 0.2 and 0.2"},
        {"-t Erase -t Turn -t Roll a.y4m b.y4m a.y4m",
         "-t: give one for all joints or one for each of the 2, not 3"},
        {"-t Erasr a.y4m b.y4m", "no transition \"Erasr\"; the nearest are \"Erase\", "},
        {"-t TrEraseShift --path rgb a.y4m b.y4m", "has no rgb path; use --path yuv"},
        {"-t Erase -d abc a.y4m b.y4m", "--duration abc: give seconds"},
        {"-t Erase -d 0 a.y4m b.y4m", "--duration 0: give a time above 0"},
        {"-t Erase -d 1:00:01 a.y4m b.y4m", "give a time above 0, at most an hour"},
        {"-t Erase -d nan a.y4m b.y4m", "--duration nan: give seconds as in 1.5"},
    };
    ExpectAnswers(render + to, jointAnswers);
    const Answer optionAnswers[] = {
        {"--fit wide", "--fit wide: there are contain, cover"},
        {"--ease sideways", "--ease sideways: there are linear, smooth"},
        {"--path hsv", "--path hsv: there are yuv, rgb"},
        {"--seed x", "x", 2},
        {"--size 0x5", "--size 0x5: give the size as WIDTHxHEIGHT"},
        {"--size 64", "--size 64: give the size"},
        {"--rate fast", "--rate fast: give frames per second"},
        {"--frames 5", "--frames 5: give FIRST:END"},
        {"--part 3/2", "--part 3/2: give K/N"},
        {"--frames 5:5", "--frames 5:5: give FIRST:END"},
        {"--frames 17:", "ends before frame 17, it has 17"},
    };
    ExpectAnswers(both + to, optionAnswers);
    const Answer outputAnswers[] = {
        {"", "-o: give the output's name"},
        {"-o o.mp4 --quality 99", "libx264 has 0 to 51"},
        {"-o o.mpg --depth 10", "has 8 bits only"},
        {"-o o.mp4 --audio-codec mp5", "no such encoder of sound"},
        {"-o o", "a name without an extension"},
        {"-o o.docx", "\".docx\" is of no video file"},
        {"-o o.png", "as in o-%04d.png"},
        {"-o o.mp4 --codec mp5", "no such video encoder"},
        {"-o o.gif.y4m --codec h264", "one kind of video only"},
        {"-o o.webm --codec h264", "cannot hold libx264"},
        {"-o o.mkv --preset nosuch", "--preset nosuch"},
        {"-o o.mp4 --size 97x65", "give --size 96x64"},
        {"-o b.y4m", "b.y4m: is one of the clips"},
        {"-o nowhere/o.y4m", "o.y4m: there is no folder"},
        {"-o nowhere/o.mp4", "o.mp4: there is no folder"},
        {"-o /proc/o.y4m", "/proc/o.y4m: "},
    };
    ExpectAnswers(both, outputAnswers);
    EXPECT_EQ(files(), before) << "something was left behind";
    EXPECT_TRUE(Read("b.y4m") == Y4m(b, kHeader));
}

/// Devices and limits stand in for a disk without room.
TEST_F(Program, FullDiskLeavesNothing) {
    Write("big.y4m", Y4m(Noise(12, 1, PlanarSize(320, 240)), "W320 H240 F25:1"));
    const std::string command = "-q -t Erase -d 0.2 big.y4m big.y4m -o ";
    for (const char *device : {"full.y4m", "full.mkv"}) {
        fs::create_symlink("/dev/full", device);
        const Outcome run = Render(command, device);
        EXPECT_EQ(run.status, 1);
        EXPECT_NE(run.output.find("No space left on device"), std::string::npos) << run.output;
        EXPECT_TRUE(fs::is_symlink(device));
        fs::remove(device);
    }
    for (const char *name : {"o.y4m", "o.mkv", "o.mp4", "o-%d.png"}) {
        const Outcome run = Shell("ulimit -f 100; " TP_PROGRAM " render " + command + name);
        EXPECT_EQ(run.status, 1) << name;
        EXPECT_NE(run.output.find("File too large"), std::string::npos) << name << run.output;
    }
    for (const fs::directory_entry &entry : fs::directory_iterator("."))
        EXPECT_TRUE(entry.path().extension() == ".y4m" && entry.path().filename() != "o.y4m")
            << entry.path();
}

TEST_F(Program, SignalLeavesNothing) {
    Write("old.mkv", "what was there before");
    for (const auto &[signal, status] : {std::pair("INT", 130), std::pair("TERM", 143)}) {
        // Standard input stays open, so the render would wait for ever.
        const Outcome run = Shell(Text(
            "mkfifo ", signal, "; exec 7<>", signal,
            "; cat a.y4m >&7 & { " TP_PROGRAM " render -q -t Erase -d 0.2 - b.y4m -o old.mkv <",
            signal,
            " & }; for i in $(seq 100); do ls -A | grep -q '^.old.mkv.*part$' && break; sleep 0.1; "
            "done; kill -",
            signal, " $!; wait $!; echo status $?"));
        EXPECT_EQ(run.output.find("transitions: stopped by a signal; nothing was written under "
                                  "the output's name\n"),
                  0u)
            << run.output;
        EXPECT_TRUE(run.output.ends_with(Text("status ", status, "\n"))) << run.output;
        EXPECT_EQ(Read("old.mkv"), "what was there before");
    }
    EXPECT_EQ(Shell("ls -A | grep part").output, "");
}

TEST_F(Program, ProgressIsForTerminalsOnly) {
    if (Shell("script -qec true /dev/null </dev/null").status != 0)
        GTEST_SKIP() << "no pseudo-terminal can be made here";
    const std::string command = TP_PROGRAM " render -t Erase -d 0.2 a.y4m b.y4m -o o.y4m";
    EXPECT_EQ(Shell(command).output, "A 12 + B 10 - overlap 5 = 17 frames\n");
    const Outcome terminal = Shell("script -qec '" + command + "' /dev/null </dev/null");
    EXPECT_NE(terminal.output.find("\r17/17 frames  "), std::string::npos) << terminal.output;
    Must("script -qec '" + command + " -q' /dev/null </dev/null");
}

} // namespace
