// The program's render, end to end: what it writes, what it refuses, how it stops.

#include "Draw.h"
#include "Shell.h"
#include "Support.h"

#include <gtest/gtest.h>

#include <numeric>

namespace {

namespace fs = std::filesystem;
using namespace hostkit;

constexpr int kWidth = 97, kHeight = 65; // odd, so that chroma is rounded up
constexpr char kHeader[] = "W97 H65 F25:1 Ip A1:1 C420jpeg";
constexpr char kRender[] = TP_PROGRAM " render -q ";

/// Noise, so that no two frames or pixels are mistaken for each other.
Pictures Noise(int frames, std::uint64_t seed, std::size_t size = PlanarSize(kWidth, kHeight)) {
    Pictures pictures;
    for (int i = 0; i < frames; ++i)
        pictures.push_back(RandomBytes(size, seed++ << 32));
    return pictures;
}

/// Two clips of noise, A of 12 and B of 10 frames, in a folder of the test's own.
struct Render : testing::Test {
    Render() {
        Write("a.y4m", Y4m(a, kHeader));
        Write("b.y4m", Y4m(b, kHeader));
    }
    const WorkingFolder folder;
    const Pictures a = Noise(12, 100), b = Noise(10, 200);
};

Pictures Rendered() {
    return FramesOf(Read("o.y4m"));
}

std::string Joined(const Pictures &pictures) {
    return std::accumulate(pictures.begin(), pictures.end(), std::string());
}

/// A view of a picture, its rows from the top down.
Frame View(Path path, std::string &picture) {
    constexpr int kHalf = (kWidth + 1) / 2, kLuma = kWidth * kHeight;
    auto *const first = reinterpret_cast<std::uint8_t *>(picture.data());
    std::uint8_t *const rows[] = {first, first + kLuma,
                                  first + kLuma + kHalf * ((kHeight + 1) / 2)};
    const int pitches[] = {path == Path::Yuv ? kWidth : kWidth * 4, kHalf, kHalf};
    return {path, kWidth, kHeight, rows, pitches};
}

/// What A, the transition over the last and first `overlap` frames, and B look like, by direct
/// calls of the plug-in.
Pictures Expected(Pictures a, Pictures b, int overlap, const std::string &name,
                  const Motion &motion = {}, Path path = Path::Yuv) {
    for (int i = 0; i < overlap; ++i) {
        const std::size_t at = a.size() - overlap + i;
        std::string picture(a[at].size(), 0);
        Frame out = View(path, picture);
        Draw(*TestedPlugin().Find(name), motion, {overlap > 1 ? i / (overlap - 1.0) : 0.5, i}, out,
             View(path, a[at]), View(path, b[i]));
        a[at] = picture;
    }
    a.insert(a.end(), b.begin() + overlap, b.end());
    return a;
}

TEST_F(Render, PlanarPicturesEqualDirectCalls) {
    const struct {
        const char *name;
        int overlap = 5;
        const char *easing = "linear";
        bool reverse = false;
        std::uint64_t seed = 0;
    } kCases[] = {
        {"Erase"},
        {"Erase", 1},
        {"Erase", 10, "bounce"},
        {"Turn", 5, "in", true},
        {"Wind", 5, "linear", false, 7},
        {"Roll_right_top"},
        {"TrEraseShift", 5, "back", true},
    };
    for (const auto &[name, overlap, easing, reverse, seed] : kCases) {
        const Outcome run =
            Program("render -t ", name, " a.y4m b.y4m -o o.y4m -d ", overlap / 25.0, " --ease ",
                    easing, " --seed ", seed, reverse ? " --reverse" : "");
        EXPECT_EQ(run.output,
                  Text("A 12 + B 10 - overlap ", overlap, " = ", 22 - overlap, " frames\n"));
        const Motion motion = {FindEasing(easing), reverse, seed};
        EXPECT_TRUE(Rendered() == Expected(a, b, overlap, name, motion)) << name << overlap;
    }
}

/// Noise in pictures with transparency, as raw bytes from the top row down.
TEST_F(Render, PackedPicturesEqualDirectCallsAndKeepTransparency) {
    Pictures inputs[2];
    for (const int clip : {0, 1}) {
        inputs[clip] = Noise(4, 300 + 10 * clip, kWidth * kHeight * 4);
        Write("raw", Joined(inputs[clip]));
        Must("ffmpeg -v error -f rawvideo -pix_fmt bgra -s 97x65 -i raw ", clip, "-%d.png");
    }
    const Pictures expected = Expected(inputs[0], inputs[1], 4, "Roll", {}, Path::Rgb);
    for (const auto &[output, codec] : {std::pair("o-%04d.png", ""), {"o.mov", " --codec qtrle"}}) {
        Must(kRender, "-t Roll --path rgb --only -d 0.16 0-%d.png 1-%d.png -o ", output, codec);
        Must("ffmpeg -v error -y -i ", output, " -f rawvideo -pix_fmt bgra raw");
        EXPECT_TRUE(Read("raw") == Joined(expected)) << output;
    }
}

/// Each clip, each transition, each length its own; in and out points in frames and in seconds.
TEST_F(Render, ChainsEqualDirectCalls) {
    const std::string command = "-t Erase -t cut -t Turn -d 5f -d 80ms -d 0:00.12 a.y4m "
                                "b.y4m#t=1f,0.36 a.y4m b.y4m#t=160ms -o o.y4m";
    EXPECT_EQ(Program("render ", command).output,
              "      12  a.y4m\n      -5  Erase\n       8  b.y4m\n       0  cut\n      12  a.y4m\n"
              "      -3  Turn\n       6  b.y4m\n      30  frames, 1.2 s\n");
    Pictures expected = Expected(a, Pictures(b.begin() + 1, b.begin() + 9), 5, "Erase");
    std::ranges::copy(Expected(a, Pictures(b.begin() + 4, b.end()), 3, "Turn"),
                      std::back_inserter(expected));
    EXPECT_TRUE(Rendered() == expected);
    Must(kRender, "--only --frames 1:7 ", command); // of 5 and 3
    Pictures joints(expected.begin() + 8, expected.begin() + 12);
    joints.insert(joints.end(), expected.begin() + 24, expected.begin() + 26);
    EXPECT_TRUE(Rendered() == joints);
}

/// Pictures are sought where the file allows it: between key frames, with frames that are decoded
/// in another order than shown, and with fields that look at the pictures around them.
TEST_F(Render, PartsEqualTheWhole) {
    const std::string source = "ffmpeg -v error -f lavfi -i testsrc2=s=96x64:d=4:r=";
    Must(source, "25 -c:v libx264 -bf 3 -g 40 c.mp4 && ", source,
         "50 -vf interlace -flags +ildct+ilme -c:v mpeg2video -q:v 3 -bf 2 i.ts");
    for (const auto &[inputs, cuts] :
         {std::pair("a.y4m b.y4m -d 0.2", std::vector{0, 9, 10, 12, 17}),
          {"c.mp4 i.ts -d 0.4", {0, 33, 60, 91, 95, 96, 117, 190}},
          {"i.ts i.ts --rate 50 -d 0.4", {0, 33, 101, 380}}}) {
        const std::string command = Text(kRender, "-t Wind --seed 3 -o o.y4m ", inputs);
        Must(command);
        const Pictures whole = Rendered();
        EXPECT_EQ(int(whole.size()), cuts.back());
        Pictures joined;
        for (std::size_t i = 1; i < cuts.size(); ++i) {
            Must(command, " --frames ", cuts[i - 1], ":", cuts[i]);
            std::ranges::copy(Rendered(), std::back_inserter(joined));
        }
        EXPECT_TRUE(joined == whole) << inputs;
    }
}

TEST_F(Render, EditListsMakeTheSameFilm) {
    const std::string command =
        "a.y4m b.y4m#t=,9f a.y4m#t=2f,11f -t any --seed 5 -d 3f --ease out --fit cover ";
    Must(kRender, command, "--save-edit e.otio -o o.y4m");
    const std::string list = Read("e.otio");
    Must(kRender, "e.otio -o again.y4m");
    EXPECT_TRUE(Read("again.y4m") == Read("o.y4m"));
    Must(kRender, command, "--save-edit e.otio");
    EXPECT_TRUE(Read("e.otio") == list);
}

/// Each kind of file holds what it should, the same bytes from the same seed and others from
/// another.
TEST_F(Render, ContainersAndCodecsWithSeeds) {
    for (const auto &[output, expected] : {
             std::pair("o.y4m", "rawvideo,97,yuv420p,17,"), // codec, width, pixels, frames
             {"o.mp4", "h264,96,yuv420p,17,"},
             {"o.mkv", "h264,96,yuv420p,17,"},
             {"o.mkv --codec ffv1", "ffv1,96,yuv420p,17,"},
             {"o.webm", "vp9,96,yuv420p,17,"},
             {"o.mov --codec qtrle", "qtrle,97,rgb24,17,"},
             {"o.mov --codec prores", "prores,96,yuv422p10le,17,"},
             {"o.gif", "gif,97,bgra,17,"},
         }) {
        const std::string name(output, std::strcspn(output, " "));
        for (const char *path : {"rgb", "yuv"}) {
            std::vector<std::string> films;
            for (const int seed : {0, 0, 1}) {
                Must(kRender, "-t Wind -d 0.2 a.y4m b.y4m --path ", path, " --seed ", seed, " -o ",
                     output);
                films.push_back(Read(name));
            }
            EXPECT_TRUE(films[0] == films[1] && films[1] != films[2]) << output << path;
        }
        EXPECT_EQ(Probe(name, "codec_name,width,pix_fmt,nb_read_frames"), expected) << output;
    }
}

/// What says nothing of its colours is BT.709 from 720 rows on: the red of a grey with much of it.
TEST_F(Render, ColoursWithoutATagAreThoseOfTheSize) {
    for (const auto &[height, red] : {std::pair(718, 1.402), {720, 1.5748}}) {
        Must("ffmpeg -v error -y -f lavfi -i 'color=s=64x", height,
             ":r=25:d=0.2,format=yuv420p,geq=lum=90:cb=128:cr=160' -c:v ffv1 flat.mkv");
        Must(kRender, "-t cut --path rgb flat.mkv flat.mkv -o o.mov --codec qtrle");
        EXPECT_NEAR(Decode("o.mov").Pixel(0, 32, 32)[0],
                    (90 - 16) * 255 / 219.0 + (160 - 128) * 255 / 224.0 * red, 2)
            << height;
    }
}

TEST_F(Render, PipesInBothDirections) {
    const Pictures film = Expected(a, b, 5, "Erase");
    const std::string render = Text(kRender, "-t Erase -d 0.2 "), y4m = " -f yuv4mpegpipe - | ";
    for (const std::string &command : {"ffmpeg -v error -i a.y4m" + y4m + render + "- b.y4m",
                                       "ffmpeg -v error -i b.y4m" + y4m + render + "a.y4m -",
                                       "cat a.y4m | " + render + "- b.y4m"}) {
        Must(command, " -o - | ffmpeg -v error -y -i - o.y4m");
        EXPECT_TRUE(Rendered() == film) << command;
    }
    // A pipe between two clips: where it ends is seen when it has ended.
    Must("ffmpeg -v error -i a.y4m -c:v ffv1 -f matroska - | ", render, "b.y4m - b.y4m -o o.y4m");
    EXPECT_TRUE(Rendered() == Expected(Expected(b, a, 5, "Erase"), b, 5, "Erase"));
    // What a link leads to is written, not the link, be it there or not.
    fs::create_symlink("led-to.y4m", "second.y4m");
    fs::create_symlink("second.y4m", "link.y4m");
    Must(render, "a.y4m b.y4m -o link.y4m");
    EXPECT_TRUE(fs::is_symlink("link.y4m") && FramesOf(Read("led-to.y4m")) == film);
    // A reader that goes away is an error like any other.
    EXPECT_EQ(Shell("(" + render + "a.y4m b.y4m -o - ; echo status $? >&2) | head -c 99 >/dev/null")
                  .output,
              "transitions: standard output: Broken pipe\nstatus 1\n");
}

TEST_F(Render, Y4mTagsAreKept) {
    const std::string film = "F30000:1001 It A40:33 C420mpeg2";
    for (const auto &[in, options, out] :
         {std::tuple(film, "", "F30000:1001 Ip A40:33 C420mpeg2 XYSCSS=420MPEG2"),
          {film, "--interlaced keep", "F30000:1001 It A40:33 C420mpeg2 XYSCSS=420MPEG2"},
          {"F50:1 C420paldv", "", "F50:1 Ip A0:0 C420paldv XYSCSS=420PALDV"}}) {
        Write("tags.y4m", Y4m(a, "W97 H65 " + in));
        Must(kRender, "-t Erase -d 0.1 tags.y4m tags.y4m -o o.y4m ", options);
        const std::string bytes = Read("o.y4m");
        EXPECT_EQ(bytes.substr(0, bytes.find('\n')),
                  Text("YUV4MPEG2 W97 H65 ", out, " XCOLORRANGE=LIMITED"));
    }
}

TEST_F(Render, PhotographsBecomeFilms) {
    Must("ffmpeg -v error -f lavfi -i testsrc=s=3000x2000:d=0.04 photo.jpg");
    const Outcome run = Program("render -t cut --still 1f photo.jpg photo.jpg -o o.mkv");
    EXPECT_NE(run.output.find("1620x1080; --size gives another size"), std::string::npos)
        << run.output;
    EXPECT_EQ(Probe("o.mkv", "width,height"), "1620,1080,");
}

/// The encoder writes its settings into the stream.
TEST_F(Render, QualityAndPresetReachTheStream) {
    for (const auto &[options, crf, search] :
         {std::tuple("", "crf=18.0", "me=hex"),
          {"--quality 41", "crf=41.0", "me=hex"},
          {"--quality 30 --preset ultrafast", "crf=30.0", "me=dia"}}) {
        Must(kRender, "-t Erase -d 0.2 a.y4m b.y4m -o o.mkv ", options);
        const std::string bytes = Read("o.mkv");
        EXPECT_TRUE(bytes.find(crf) < bytes.size() && bytes.find(search) < bytes.size()) << options;
    }
    Must("ffmpeg -v error -f lavfi -i color=s=64x48:r=25:d=2 -f lavfi -i anoisesrc=d=2:r=48000 "
         "-c:a pcm_s16le -ac 2 n.mkv");
    for (const auto &[options, rate] : {std::pair("", 192000), {"--audio-bitrate 48", 48000}}) {
        Must(kRender, "-t cut n.mkv n.mkv -o n.mp4 ", options);
        EXPECT_NEAR(std::stoi(Probe("n.mp4", "bit_rate", "a:0")), rate, 3000) << options;
    }
}

/// 256 colours for each picture leave a smooth one of many colours within a few levels.
TEST_F(Render, GifIsNearItsSource) {
    Must("ffmpeg -v error -f lavfi -i "
         "gradients=s=160x120:r=25:d=0.4:n=4:c0=red:c1=yellow:c2=blue:c3=green:seed=3 "
         "-c:v ffv1 -pix_fmt bgr0 g.mkv");
    Must(kRender, "-t Push -d 0.2 --path rgb g.mkv g.mkv -o o.gif");
    const std::string source = Decode("g.mkv").frames.at(0), drawn = Decode("o.gif").frames.at(0);
    ASSERT_EQ(drawn.size(), source.size());
    double sum = 0;
    for (std::size_t i = 0; i < source.size(); ++i)
        sum += std::abs(std::uint8_t(source[i]) - std::uint8_t(drawn[i]));
    EXPECT_LT(sum / double(source.size()), 4.5); // alpha among it
}

/// White without high dynamic range is 203 nits in a result that has it: 58.07 % of PQ, 75 % of
/// HLG. Files of grey say nothing of their range, which is the full one.
TEST_F(Render, StandardRangeIsConvertedIntoHighOne) {
    Must("ffmpeg -v error -f lavfi -i color=white:s=64x48:r=25:d=0.4 w.mp4");
    Write("w.pgm", "P5 64 48 255\n" + std::string(64 * 48, '\xff'));
    for (const auto &[transfer, white] :
         {std::pair("smpte2084", 64 + 876 * 0.5807), std::pair("arib-std-b67", 64 + 876 * 0.75)}) {
        Must("ffmpeg -v error -y -f lavfi -i color=gray:s=64x48:r=25:d=0.4 -c:v ffv1 "
             "-pix_fmt yuv420p10le -color_range tv -color_primaries bt2020 "
             "-colorspace bt2020nc -color_trc ",
             transfer, " h.mkv");
        Must(kRender, "-t cut --depth 10 --codec ffv1 h.mkv w.mp4 w.pgm --still 1f -o o.mkv");
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
TEST_F(Render, TransparentClipsLieOnBlack) {
    Must("ffmpeg -v error -f lavfi -i color=white@0.502:s=64x48,format=rgba -frames:v 1 half.png");
    for (const char *path : {"yuv", "rgb"}) {
        Must(kRender, "-t Push -d 2f --still 3f --path ", path, " half.png half.png -o o.y4m");
        for (const std::string &picture : FramesOf(Read("o.y4m")))
            EXPECT_NEAR(std::uint8_t(picture[64 * 24 + 32]), 126, 1) << path;
    }
}

TEST_F(Render, ClipsAreFittedToTheFirstOne) {
    // Grey of another shape whose frame i has the level 100 + 4 i: at twice the rate, as fast as
    // the result, and a still picture.
    Pictures grey;
    for (int i = 0; i < 20; ++i)
        grey.push_back(std::string(80 * 20, char(100 + 4 * i)) + std::string(40 * 10 * 2, '\x80'));
    Write("fast.y4m", Y4m(grey, "W80 H20 F50:1 A1:1"));
    Write("grey.y4m", Y4m(grey, "W80 H20 F25:1 A1:1"));
    Must("ffmpeg -v error -i grey.y4m -frames:v 1 grey.png");
    for (const std::string fit : {"contain", "cover", "stretch", "blur"}) {
        Must(kRender, "-t Erase -t cut -t cut -d 0.2 a.y4m fast.y4m grey.y4m grey.png --still 2f ",
             "-o o.y4m --fit ", fit);
        const Pictures frames = Rendered();
        ASSERT_EQ(frames.size(), 12u - 5 + 10 + 20 + 2);
        for (int i = 12; i < 39; ++i) {
            const int middle = std::uint8_t(frames[i][kHeight / 2 * kWidth + kWidth / 2]);
            EXPECT_NEAR(middle, 100 + (i < 17 ? 8 * (i - 7) : i < 37 ? 4 * (i - 17) : 0), 2) << i;
            EXPECT_NEAR(std::uint8_t(frames[i][0]), fit == "contain" ? 16 : middle, 1) << fit << i;
        }
    }
}

TEST_F(Render, SoundIsFadedOverTheOverlap) {
    for (const auto &[clip, hertz] : {std::pair("a.mkv", 400), {"b.mkv", 1000}})
        Must("ffmpeg -v error -f lavfi -i color=s=64x48:r=25:d=2 -f lavfi -i "
             "'aevalsrc=0.5*sin(2*PI*t*",
             hertz, "):s=44100:d=2' -c:a pcm_s16le ", clip);
    const struct {
        const char *options;
        double length, from, to, a, b; ///< the last two: strengths of either clip's tone
    } kCases[] = {
        {"", 3, 0.1, 0.9, 0.5, 0},
        {"", 3, 1.2, 1.3, 0.375, 0.125},
        {"", 3, 1.7, 1.8, 0.125, 0.375},
        {"", 3, 2.1, 2.9, 0, 0.5},
        {"--audio-curve equal-power", 3, 1.2, 1.3, 0.5 * std::cos(M_PI / 8),
         0.5 * std::sin(M_PI / 8)},
        {"--frames 50:", 1, 0.1, 0.9, 0, 0.5},
    };
    const std::string command = Text(kRender, "-t Erase -d 1 a.mkv b.mkv -o o.mkv ");
    for (const auto &[options, length, from, to, a, b] : kCases) {
        Must(command, "--audio-codec flac ", options);
        const std::vector<float> sound = Sound("o.mkv");
        EXPECT_NEAR(double(sound.size()) / 8000, length, 0.05) << options;
        EXPECT_NEAR(Strength(sound, 400, from, to), a, 0.008) << options << from;
        EXPECT_NEAR(Strength(sound, 1000, from, to), b, 0.008) << options << from;
    }
    Must(command, "--no-audio");
    EXPECT_EQ(Probe("o.mkv", "codec_type", "a"), "");
}

/// Music of 1500 Hz under two clips of 400 Hz, and alone: again and again, and away at the end.
TEST_F(Render, MusicPlaysUnderTheClips) {
    Must("ffmpeg -v error -f lavfi -i color=s=64x48:r=25:d=5 -f lavfi -i "
         "'aevalsrc=0.4*sin(2*PI*t*400):s=48000:d=5' -c:a aac c.mp4 && ffmpeg -v error -f lavfi -i "
         "'aevalsrc=0.5*sin(2*PI*t*1500):s=44100:d=2' m.wav");
    for (const auto &[options, clip, music] :
         {std::tuple("", 0.4, 0.15), {"--music-volume 50", 0.4, 0.25}, {"--no-audio", 0.0, 0.5}}) {
        Must(kRender, "-t Push -d 1 c.mp4 c.mp4 --music m.wav -o o.mkv ", options);
        const std::vector<float> sound = Sound("o.mkv");
        EXPECT_NEAR(Strength(sound, 400, 1, 1.5), clip, 0.03) << options;
        for (const double from : {0.2, 1.0, 2.3, 5.3}) // 2.3 is in its second turn
            EXPECT_NEAR(Strength(sound, 1500, from, from + 0.5), music, 0.03) << options << from;
        EXPECT_NEAR(Strength(sound, 1500, 7.4, 7.6), music / 2, 0.03) << options; // of 6 to 9
    }
    EXPECT_EQ(Program("render -t Push -d 1 c.mp4 c.mp4 -o o.y4m").output,
              "o.y4m: files of this kind hold no sound, so it is left out\n"
              "A 125 + B 125 - overlap 25 = 225 frames\n");
}

TEST_F(Render, ColourTagsAndRateAreCarriedThrough) {
    Must("ffmpeg -v error -f lavfi -i color=red:s=64x48:r=30000/1001:d=1 -c:v libx264 "
         "-pix_fmt yuv420p -colorspace bt709 -color_primaries bt709 -color_trc bt709 "
         "-color_range tv -aspect 2:1 -metadata title=Sea -metadata date=2024 tagged.mp4 && "
         "ffmpeg -v error -i tagged.mp4 -c copy -metadata date= -metadata "
         "creation_time=2024-05-06T07:08:09Z made.mp4");
    const char *const entries = "width,height,color_range,color_space,color_transfer,"
                                "color_primaries,r_frame_rate,sample_aspect_ratio";
    for (const auto &[path, file, date] : {std::tuple("yuv", "tagged.mp4", "2024"),
                                           {"rgb", "made.mp4", "2024-05-06T07:08:09.000000Z"}}) {
        const std::string command = Text(kRender, "-t Erase -d 0.2 -o o.mp4 --path ", path, ' ');
        Must(command, file, " b.y4m");
        EXPECT_EQ(Probe("o.mp4", entries), Probe("tagged.mp4", entries));
        EXPECT_EQ(Output("ffprobe -v error -show_entries format_tags=title,date -of csv=p=0 o.mp4"),
                  Text("Sea,", date, '\n'));
        Must(command, "tagged.mp4 tagged.mp4 --only");
        EXPECT_GT(Decode("o.mp4").Pixel(2, 2, 24)[0], 200) << "bars beside its wide pixels";
    }
}

TEST_F(Render, RefusesInOneLine) {
    const std::string whole = Read("a.y4m");
    for (const auto &[name, bytes] :
         {std::pair("empty.mp4", std::string()),
          {"text.mp4", "This is not a video.\n"},
          {"none.y4m", Y4m({}, kHeader)},
          {"cut.y4m", whole.substr(0, 30000)},
          {"bad.y4m", "YUV4MPEG2 W97 Hx F25:1\n"},
          {"c444.y4m", Y4m(a, "W97 H65 F25:1 C444")},
          {"p10.y4m", Y4m(a, "W97 H65 F25:1 C420p10")},
          {"slipped.y4m", whole.substr(0, 5000) + 'x' + whole.substr(5000)}})
        Write(name, bytes);
    Must("ffmpeg -v error -f lavfi -i sine=d=0.1 sound.wav && ffmpeg -v error -f lavfi -i "
         "testsrc=s=97x65:d=2 -c:v ffv1 c.mkv && ffmpeg -v error -i c.mkv -pix_fmt yuv444p c.mp4 "
         "&& ffmpeg -v error -f lavfi -i testsrc2=s=640x480:d=3 -c:v mpeg4 -q:v 1 big.mp4 && head "
         "-c 20000 c.mkv >cut.mkv && head -c 5000 c.mp4 >cut.mp4");
    const std::string files = Output("ls -A");
    const std::string render = kRender, to = "-o o.y4m ", erase = render + "-t Erase -d 0.2 ",
                      both = erase + "a.y4m b.y4m ";
    const Answer clipsAnswers[] = {
        {"missing.mp4 b.y4m", ": missing.mp4: there is no such file"},
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
         "b.y4m: has 10 frames, fewer than its two transitions' 6 + 5; the longest durations that "
         "fit are 0.2 and 0.2"},
        {"-t Erase -t Turn -t Roll a.y4m b.y4m a.y4m",
         "-t: give one for all joints or one for each of the 2, not 3"},
        {"-t Erasr a.y4m b.y4m", "no transition \"Erasr\"; the nearest are \"Erase\", "},
        {"-t TrEraseShift --path rgb a.y4m b.y4m", "has no rgb path; use --path yuv"},
        {"-t Erase -d abc a.y4m b.y4m", "--duration abc: give seconds"},
        {"-t Erase -d 0 a.y4m b.y4m", "--duration 0: give a time above 0"},
        {"-t Erase -d 1:00:01 a.y4m b.y4m", "give a time above 0, at most an hour"},
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
        {"-o /proc/o.y4m", "/proc/o.y4m: "},
    };
    ExpectAnswers(both, outputAnswers);
    EXPECT_EQ(Output("ls -A"), files);
    EXPECT_TRUE(Read("b.y4m") == Y4m(b, kHeader));
}

/// Devices and limits stand in for a disk without room.
TEST_F(Render, FullDiskLeavesNothing) {
    Write("big.y4m", Y4m(Noise(12, 1, PlanarSize(320, 240)), "W320 H240 F25:1"));
    fs::create_symlink("/dev/full", "full.y4m");
    fs::create_symlink("/dev/full", "full.mkv");
    const Answer answers[] = {
        {"-o full.y4m", "No space left on device"},
        {"-o full.mkv", "No space left on device"},
        {"-o o.y4m", "File too large"},
        {"-o o.mkv", "File too large"},
        {"-o o.mp4", "File too large"},
        {"-o o-%d.png", "File too large"},
    };
    ExpectAnswers(Text("ulimit -f 100; ", kRender, "-t Erase -d 0.2 big.y4m big.y4m"), answers);
    EXPECT_EQ(Shell("ls -A").output, "a.y4m\nb.y4m\nbig.y4m\nfull.mkv\nfull.y4m\n");
    EXPECT_TRUE(fs::is_symlink("full.y4m") && fs::is_symlink("full.mkv"));
}

TEST_F(Render, SignalLeavesNothing) {
    Write("old.mkv", "what was there before");
    for (const auto &[signal, status] : {std::pair("INT", 130), {"TERM", 143}}) {
        // Standard input stays open, so the render would wait for ever.
        const Outcome run = Shell(Text(
            "mkfifo ", signal, "; exec 7<>", signal, "; cat a.y4m >&7 & { ", kRender,
            "-t Erase -d 0.2 - b.y4m -o old.mkv <", signal,
            " & }; for i in $(seq 100); do ls -A | grep -q '^.old.mkv.*part$' && break; sleep 0.1; "
            "done; kill -",
            signal, " $!; wait $!; echo status $?"));
        EXPECT_TRUE(run.output.starts_with("transitions: stopped by a signal; nothing was written "
                                           "under the output's name\n") &&
                    run.output.ends_with(Text("status ", status, "\n")))
            << run.output;
    }
    EXPECT_EQ(Read("old.mkv"), "what was there before");
    EXPECT_EQ(Shell("ls -A").output, "INT\nTERM\na.y4m\nb.y4m\nold.mkv\n");
}

TEST_F(Render, ProgressIsForTerminalsOnly) {
    if (Shell("script -qec true /dev/null </dev/null").status != 0)
        GTEST_SKIP() << "no pseudo-terminal can be made here";
    const std::string command = TP_PROGRAM " render -t Erase -d 0.2 a.y4m b.y4m -o o.y4m";
    const std::string shown = Output("script -qec '" + command + "' /dev/null </dev/null");
    EXPECT_NE(shown.find("\r17/17 frames  "), std::string::npos) << shown;
    Must("script -qec '" + command + " -q' /dev/null </dev/null");
}

} // namespace
