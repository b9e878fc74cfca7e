// Awkward clips through the program's render. Each is made by ffmpeg from pictures that carry their
// number as a bar code and colours in their corners, and from a beep that begins with picture 10;
// so what the result must be follows from how the clip was made.

#include "Shell.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <fstream>
#include <optional>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr int kWidth = 96, kHeight = 64;
constexpr int kFrames = 20;    ///< of every clip
constexpr int kOverlap = 5;    ///< frames
constexpr int kSecond = 500;   ///< number of the second clip's first picture
constexpr int kBeepFrame = 10; ///< of every clip

using Colour = std::array<int, 4>; ///< red, green, blue, alpha

/// Top left, top right, bottom left, bottom right.
const std::array<Colour, 4> kCorners = {
    {{200, 30, 30, 255}, {30, 180, 40, 255}, {30, 40, 200, 255}, {220, 210, 20, 255}}};

// ---------------------------------------------------------------------------------------------
// Pictures
// ---------------------------------------------------------------------------------------------

/// Rows 24 to 39 hold twelve cells: white, ten bits from the highest on, black.
constexpr int kCells = 12;

/// A picture's bytes, red, green, blue and alpha; the corners take their alpha from the argument.
std::string Picture(int number, const std::array<int, 4> &alphas = {255, 255, 255, 255}) {
    std::string bytes;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            Colour colour = {64, 64, 64, 255};
            const int cell = x * kCells / kWidth;
            const int corner = 2 * (y >= 44) + (x >= 64);
            if (y >= 24 && y < 40) {
                const bool white = cell == 0 || (cell < 11 && (number >> (10 - cell) & 1));
                colour = white ? Colour{255, 255, 255, 255} : Colour{0, 0, 0, 255};
            } else if ((x < 32 || x >= 64) && (y < 20 || y >= 44)) {
                colour = kCorners[corner];
                colour[3] = alphas[corner];
            }
            for (const int value : colour)
                bytes += char(value);
        }
    return bytes;
}

/// A film of such pictures.
struct NumberedFilm : Film {
    /// The mean of 5 by 5 pixels around a point given in parts of the picture.
    Colour At(std::size_t frame, double x, double y) const {
        Colour sum = {};
        for (int i = 0; i < 25; ++i) {
            const Colour pixel =
                Pixel(frame, int(x * width) + i % 5 - 2, int(y * height) + i / 5 - 2);
            for (int c = 0; c < 4; ++c)
                sum[c] += pixel[c];
        }
        for (int &value : sum)
            value = (value + 12) / 25;
        return sum;
    }
    Colour Corner(std::size_t frame, int corner) const {
        return At(frame, corner % 2 ? 5.0 / 6 : 1.0 / 6, corner / 2 ? 0.84 : 0.16);
    }
    /// The bar code's number, -1 where there is none.
    int Number(std::size_t frame) const {
        int number = 0;
        for (int cell = 0; cell < kCells; ++cell) {
            const int level = At(frame, (cell + 0.5) / kCells, 0.5)[1];
            if (level > 70 && level < 185)
                return -1;
            number = 2 * number + (level > 128);
        }
        return number >> 11 == 1 && number % 2 == 0 ? (number >> 1) & 1023 : -1;
    }
    std::vector<int> Numbers() const {
        std::vector<int> numbers;
        for (std::size_t i = 0; i < frames.size(); ++i)
            numbers.push_back(Number(i));
        return numbers;
    }
};

NumberedFilm Load(const std::string &file) {
    return {Decode(file)};
}

void ExpectNear(const Colour &colour, const Colour &expected, int tolerance,
                const std::string &what) {
    for (int i = 0; i < 4; ++i)
        EXPECT_NEAR(colour[i], expected[i], tolerance) << what << ", "
                                                       << "RGBA"[i];
}

// ---------------------------------------------------------------------------------------------
// Clips
// ---------------------------------------------------------------------------------------------

/// How a clip comes about.
struct Making {
    double rate = 25;
    std::string video;      ///< ffmpeg's options for the picture
    std::string audio = {}; ///< for the sound; empty: none
    double late = 0;        ///< seconds by which the sound track begins after the picture
    int first = 0;          ///< number of the first picture
};

class Matrix : public testing::Test {
protected:
    static void SetUpTestSuite() {
        folder = new WorkingFolder;
        Make("b.mkv",
             {.video = "-c:v ffv1", .audio = "-ac 1 -ar 44100 -c:a pcm_s16le", .first = kSecond});
    }
    static void TearDownTestSuite() { delete folder; }

    /// Raw pictures with numbers from `first` on.
    static std::string Master(int first, const std::array<int, 4> &alphas = {255, 255, 255, 255},
                              int count = kFrames) {
        const std::string name = Text("master", first, '-', alphas[0], '-', count);
        if (!fs::exists(name)) {
            std::ofstream out(name, std::ios::binary);
            for (int i = 0; i < count; ++i)
                out << Picture(first + i, alphas);
        }
        return Text("-f rawvideo -pix_fmt rgba -s ", kWidth, "x", kHeight, " -i ", name, " ");
    }

    static void Make(const std::string &target, const Making &making) {
        const double beep = kBeepFrame / making.rate - making.late;
        std::string command =
            Text("ffmpeg -v error -y -r ", making.rate, " ", Master(making.first));
        if (!making.audio.empty())
            command += Text("-itsoffset ", making.late, " -f lavfi -i \"aevalsrc='0.8*between(t,",
                            beep, ",", beep + 0.04,
                            ")*sin(2*PI*1000*t)':s=48000:d=", kFrames / making.rate - making.late,
                            "\" -map 0:v -map 1:a ");
        Must(command, making.video, " ", making.audio, " ", target);
    }

    template<class... Part>
    static void Render(const Part &...arguments) {
        Must(TP_PROGRAM " render -q -t Push -d ", kOverlap, "f ", arguments...);
    }
    /// The clip, the second clip and the clip again, without loss.
    static NumberedFilm RenderAround(const std::string &clip, const std::string &output) {
        Render(clip, " b.mkv ", clip, " -o ", output);
        return Load(output.substr(0, output.find(' ')));
    }

    static inline WorkingFolder *folder;
};

/// What a film of the clip, the second clip and the clip must show: in front of the first overlap,
/// at its ends, and after the last one the frames are the clips' own.
void ExpectJoined(const NumberedFilm &film, double rate, int first = 0, int frames = kFrames) {
    const int second = int(std::lround(kFrames / 25.0 * rate));
    const std::vector<int> numbers = film.Numbers();
    ASSERT_EQ(int(numbers.size()), 2 * frames + second - 2 * kOverlap);
    const auto expect = [&](int at, int number) {
        EXPECT_EQ(numbers[at], number) << "frame " << at;
    };
    for (int i = 0; i <= frames - kOverlap; ++i)
        expect(i, first + i);
    for (int i = kOverlap - 1; i < frames; ++i)
        expect(int(numbers.size()) - frames + i, first + i);
    for (int i = kOverlap - 1; i <= second - kOverlap; ++i)
        EXPECT_NEAR(numbers[frames - kOverlap + i], kSecond + i * 25 / rate, 1) << "second clip";
}

TEST_F(Matrix, FramesAndSoundKeepTheirTimes) {
    const std::string x264 = "-c:v libx264 -preset ultrafast -crf 12 -pix_fmt yuv420p ";
    const std::string mpeg2 = "-c:v mpeg2video -q:v 2 ", pcm = "-c:a pcm_s16le ";
    const auto timed = [](const char *milliseconds) {
        return Text("-vf \"settb=1/1000,setpts='round(", milliseconds,
                    ")'\" -vsync vfr -r 1000 -c:v libvpx -pix_fmt yuv420p -b:v 2M ");
    };
    const std::string jitter = timed("N*1000/30+mod(N*7,19)/2");
    const struct {
        const char *name;
        Making making;
        int channels = 1;
        int skipped = 0; ///< pictures that the file says not to show
    } kCases[] = {
        // Containers
        {"a.mp4", {.video = x264, .audio = "-c:a aac"}},
        {"a.mov", {.video = x264, .audio = "-c:a pcm_s16be"}},
        {"a.mkv", {.video = x264 + "-bf 2", .audio = "-c:a libvorbis"}},
        {"a.webm", {.video = "-c:v libvpx-vp9 -pix_fmt yuv420p -b:v 2M", .audio = "-c:a libopus"}},
        {"a.ts", {.video = x264 + "-bf 2", .audio = "-c:a aac"}},
        {"a.mts", {.video = x264, .audio = "-c:a ac3"}},
        {"a.m2ts", {.video = x264, .audio = "-c:a ac3"}},
        {"a.mpg", {.video = mpeg2 + "-bf 2", .audio = "-c:a mp2"}},
        {"a.vob", {.video = mpeg2, .audio = "-c:a ac3"}},
        {"a.mxf", {.video = mpeg2, .audio = pcm}},
        {"a.avi", {.video = "-c:v mjpeg -q:v 2", .audio = pcm}},
        {"a.flv", {.video = x264, .audio = "-ar 44100 -c:a aac"}},
        {"A.MP4", {.video = x264, .audio = "-c:a aac"}},
        {"h265.mp4", {.video = "-c:v libx265 -preset ultrafast -x265-params log-level=0:crf=10"}},
        {"av1.mkv", {.video = "-c:v libaom-av1 -cpu-used 8 -crf 10"}},
        // Rates and timestamps
        {"film.mp4", {.rate = 24, .video = x264, .audio = "-c:a aac"}},
        {"half.mkv", {.rate = 12.5, .video = x264, .audio = pcm}},
        {"fast.mp4", {.rate = 60, .video = x264, .audio = "-c:a aac"}},
        {"faster.mkv", {.rate = 120, .video = x264}},
        {"norate.webm", {.rate = 30, .video = jitter, .audio = "-c:a libopus"}},
        {"norate.mkv", {.rate = 30, .video = jitter, .audio = "-c:a libvorbis"}},
        {"unusual.mkv", {.rate = 40, .video = timed("N*25+6*eq(mod(N*N,7),2)-5*eq(mod(N,4),3)")}},
        {"later.ts", {.video = x264 + "-output_ts_offset 1000", .audio = "-c:a aac"}},
        {"later.mkv", {.video = x264 + "-output_ts_offset 7", .audio = pcm}},
        {"edit.mp4",
         {.video = x264 + "-bf 0 -avoid_negative_ts disabled -output_ts_offset -0.2",
          .audio = "-c:a aac"},
         1,
         5},
        // Sound
        {"late.mkv", {.video = x264, .audio = pcm, .late = 0.25}},
        {"late.mp4", {.video = x264, .audio = "-c:a aac", .late = 0.25}},
        {"late.ts", {.video = x264, .audio = "-c:a aac", .late = 0.25}},
        {"gap.mkv", {.video = x264, .audio = pcm + "-af \"aselect='not(between(t,0.1,0.3))'\""}},
        {"8000.mkv", {.video = x264, .audio = pcm + "-ar 8000"}},
        {"11025.mkv", {.video = x264, .audio = pcm + "-ar 11025", .late = 0.2}},
        {"22050.mp4", {.video = x264, .audio = "-c:a aac -ar 22050"}},
        {"96000.mkv", {.video = x264, .audio = "-c:a flac -ar 96000", .late = 0.1}},
        {"stereo.mp4", {.video = x264, .audio = "-c:a aac -ac 2"}, 2},
        {"5.1.mp4", {.video = x264, .audio = "-c:a aac -ac 6"}, 6},
        {"7.1.mkv", {.video = x264, .audio = "-c:a flac -ac 8"}, 8},
        {"16.mkv", {.video = x264, .audio = pcm + "-ac 16"}, 2}, // more than encoders take
        {"mute.mp4", {.video = x264}},
        {"odd.mkv", {.video = "-vf scale=97:65 -c:v ffv1 -pix_fmt yuv420p", .audio = pcm}},
    };
    for (const auto &[name, making, channels, skipped] : kCases) {
        SCOPED_TRACE(name);
        Make(name, making);
        const NumberedFilm film = RenderAround(name, "o.mkv --codec ffv1");
        ExpectJoined(film, making.rate, skipped, kFrames - skipped);
        const double all = double(film.frames.size()), rate = making.rate;
        const Beeps beeps = Listen("o.mkv");
        std::vector<double> starts = {(kFrames - skipped - kOverlap) / rate + kBeepFrame / 25.0};
        if (!making.audio.empty())
            starts = {(kBeepFrame - skipped) / rate, starts[0],
                      (all - kFrames + kBeepFrame) / rate};
        ExpectTimes(beeps.starts, starts);
        EXPECT_NEAR(beeps.length, all / rate, 0.05);
        EXPECT_EQ(Probe("o.mkv", "channels", "a:0"), Text(channels, ","));
    }
}

/// As a broadcast may have it.
TEST_F(Matrix, SoundThatBecomesMonoKeepsItsTime) {
    const std::string video = "-c:v mpeg2video -q:v 2 ";
    Make("one.ts", {.video = video, .audio = "-c:a mp2 -ac 2"});
    Make("two.ts", {.video = video + "-output_ts_offset 0.8", .audio = "-c:a mp2 -ac 1"});
    Must("cat one.ts two.ts > both.ts");
    Render("both.ts b.mkv -o o.mkv --codec ffv1");
    const Beeps beeps = Listen("o.mkv");
    ASSERT_EQ(beeps.starts.size(), 3u);
    EXPECT_NEAR(beeps.starts[1] - beeps.starts[0], 0.8, 0.03);
}

// ---------------------------------------------------------------------------------------------
// Pictures
// ---------------------------------------------------------------------------------------------

/// Where the values of EXIF's orientation, from 1 on, say that x and y, counted from the middle to
/// the right and down, are shown: (x * a + y * c, x * b + y * d).
constexpr int kOrientations[8][4] = {{1, 0, 0, 1}, {-1, 0, 0, 1}, {-1, 0, 0, -1}, {1, 0, 0, -1},
                                     {0, 1, 1, 0}, {0, 1, -1, 0}, {0, -1, -1, 0}, {0, -1, 1, 0}};

/// The bytes of a JPEG file with an orientation behind its start.
std::string Oriented(const std::string &jpeg, int value) {
    const std::string exif("\xff\xe1\0\x22"
                           "Exif\0\0MM\0*\0\0\0\x08\0\1\x01\x12\0\3\0\0\0\1\0",
                           29);
    return jpeg.substr(0, 2) + exif + char(value) + std::string(6, '\0') + jpeg.substr(2);
}

/// The bytes of an MP4 file whose track is shown by this orientation's matrix.
std::string Displayed(std::string mp4, int value) {
    const std::size_t track = mp4.find("tkhd") + 4;
    const auto put = [&](int place, std::int32_t number) {
        for (int i = 0; i < 4; ++i) // after version, times, layer and volume
            mp4[track + 40 + place * 4 + i] = char(number >> (24 - 8 * i));
    };
    const auto &[a, b, c, d] = kOrientations[value - 1];
    put(0, a * 65536);
    put(1, b * 65536);
    put(3, c * 65536);
    put(4, d * 65536);
    put(6, a + c < 0 ? (a ? kWidth : kHeight) * 65536 : 0);
    put(7, b + d < 0 ? (d ? kHeight : kWidth) * 65536 : 0);
    return mp4;
}

TEST_F(Matrix, OrientationsAreUpright) {
    Make("flat.mp4", {.video = "-c:v libx264 -crf 10 -pix_fmt yuv420p"});
    Must("ffmpeg -v error -i flat.mp4 -frames:v 1 -q:v 1 flat.jpg");
    for (const char *name : {"turned.mp4", "turned.jpg"})
        for (int value = 1; value <= 8; ++value) {
            SCOPED_TRACE(Text(name, ", orientation ", value));
            const bool isStill = name[7] == 'j';
            const std::string flat = Read(isStill ? "flat.jpg" : "flat.mp4");
            Write(name, isStill ? Oriented(flat, value) : Displayed(flat, value));
            Render(name, " ", name, " -o o.mkv --codec ffv1 --still 12f");
            const NumberedFilm film = Load("o.mkv");
            const auto &[a, b, c, d] = kOrientations[value - 1];
            EXPECT_EQ(film.width, a ? kWidth : kHeight);
            EXPECT_EQ(film.height, a ? kHeight : kWidth);
            for (int corner = 0; corner < 4; ++corner) {
                const int x = corner % 2 ? 1 : -1, y = corner / 2 ? 1 : -1;
                const int shownX = x * a + y * c, shownY = x * b + y * d;
                ExpectNear(film.At(0, shownX > 0 ? 0.84 : 0.16, shownY > 0 ? 0.84 : 0.16),
                           kCorners[corner], 10, Text("corner ", corner));
            }
        }
}

TEST_F(Matrix, ColoursAreThoseOfTheClip) {
    const auto tagged = [](const std::string &matrix, const std::string &range,
                           const std::string &pixels, const std::string &codec = "ffv1") {
        const std::string tag = matrix == "bt601"    ? "smpte170m"
                                : matrix == "bt2020" ? "bt2020nc"
                                : matrix == "bt470"  ? "bt470bg"
                                                     : matrix;
        return Text("-vf scale=out_color_matrix=", matrix, ":out_range=", range,
                    ":flags=accurate_rnd+full_chroma_int,format=", pixels,
                    ",setparams=colorspace=", tag, " -colorspace ", tag, " -color_range ", range,
                    " -c:v ", codec);
    };
    const struct {
        const char *name;
        std::string video;
        int tolerance = 5;
    } kCases[] = {
        {"601.mkv", tagged("bt601", "tv", "yuv420p")},
        {"709.mkv", tagged("bt709", "tv", "yuv420p")},
        {"709full.mkv", tagged("bt709", "pc", "yuv420p")},
        {"601full.mkv", tagged("bt601", "pc", "yuv420p")},
        {"470.mkv", tagged("bt470", "tv", "yuv420p")},
        {"2020.mkv", tagged("bt2020", "tv", "yuv420p")},
        {"240.mkv", tagged("smpte240m", "tv", "yuv420p")},
        {"444full.mkv", tagged("bt709", "pc", "yuv444p")},
        {"422ten.mkv", tagged("bt709", "tv", "yuv422p10le")},
        {"420twelve.mkv", tagged("bt709", "tv", "yuv420p12le")},
        {"tenfull.mp4", tagged("bt709", "pc", "yuv420p10le", "libx264 -crf 8")},
        {"full.mp4", tagged("bt709", "pc", "yuvj420p", "libx264 -crf 8")},
        {"prores.mov", tagged("bt709", "tv", "yuv422p10le", "prores_ks -profile:v 3"), 6},
        {"mjpeg.avi", "-c:v mjpeg -q:v 1 -pix_fmt yuvj422p", 8},
        {"untagged.mkv", "-c:v ffv1 -pix_fmt yuv420p"},
        {"411.mkv", "-c:v ffv1 -pix_fmt yuv411p"},
        {"rgb.mkv", "-c:v ffv1 -pix_fmt bgr0"},
        {"rgb16.mkv", "-c:v ffv1 -pix_fmt gbrp16le"},
        {"rgb.mp4", "-c:v libx264rgb -crf 4 -pix_fmt rgb24"},
        {"qtrle.mov", "-c:v qtrle -pix_fmt rgb24"},
        {"palette.gif", "", 16},
        {"lossless.avi", "-c:v utvideo -pix_fmt gbrp"},
    };
    for (const auto &[name, video, tolerance] : kCases)
        for (const char *path : {"yuv", "rgb"}) {
            SCOPED_TRACE(Text(name, ", path ", path));
            Make(name, {.video = video});
            const NumberedFilm film = RenderAround(name, Text("o.mkv --codec ffv1 --path ", path));
            ExpectJoined(film, 25);
            for (const std::size_t frame : {std::size_t(0), std::size_t(25)}) // the second clip too
                for (int corner = 0; corner < 4 && frame < film.frames.size(); ++corner)
                    ExpectNear(film.Corner(frame, corner), kCorners[corner], tolerance,
                               Text("frame ", frame, ", corner ", corner));
        }
}

/// What a transition and a bar fill is black, also where the clip's black is 0.
TEST_F(Matrix, BlackIsBlackOfTheResult) {
    for (const auto &[range, path, codec] : {std::tuple("tv", "yuv", "ffv1"),
                                             {"tv", "rgb", "ffv1"},
                                             {"pc", "yuv", "ffv1"},
                                             {"pc", "rgb", "ffv1"},
                                             {"tv", "yuv", "mjpeg"}}) { // whose own range is full
        SCOPED_TRACE(Text(range, ' ', path, ' ', codec));
        Make("full.mkv", {.video = Text("-vf scale=128:64:out_color_matrix=bt709:out_range=", range,
                                        ",format=yuv420p -colorspace bt709 -color_range ", range,
                                        " -c:v ffv1")});
        Must(TP_PROGRAM " render -q -t Turn -d 5f --path ", path,
             " full.mkv b.mkv -o o.mkv --codec ", codec);
        const NumberedFilm film = Load("o.mkv");
        ASSERT_EQ(film.frames.size(), 35u);
        ExpectNear(film.At(17, 0.5, 0.05), {0, 0, 0, 255}, 2, "half-way");
        ExpectNear(film.At(30, 0.04, 0.5), {0, 0, 0, 255}, 2, "bar");
        ExpectNear(film.At(30, 0.16, 0.5), {255, 255, 255, 255}, 4, "white");
    }
}

TEST_F(Matrix, AlphaOfEveryCodecIsKept) {
    const std::array<int, 4> alphas = {0, 90, 180, 255};
    const struct {
        const char *name, *video;
        std::array<int, 4> expected = {0, 90, 180, 255};
    } kCases[] = {
        {"prores.mov", "-c:v prores_ks -profile:v 4 -pix_fmt yuva444p10le"},
        {"qtrle.mov", "-c:v qtrle -pix_fmt argb"},
        {"png.mov", "-c:v png -pix_fmt rgba"},
        {"png16.mkv", "-c:v png -pix_fmt rgba64be"},
        {"vp8.webm", "-c:v libvpx -pix_fmt yuva420p -auto-alt-ref 0 -b:v 4M -qmin 0 -crf 4"},
        {"vp9.webm", "-c:v libvpx-vp9 -pix_fmt yuva420p -auto-alt-ref 0 -b:v 0 -crf 4"},
        {"ffv1.mkv", "-c:v ffv1 -pix_fmt bgra"},
        {"yuva.mkv", "-c:v ffv1 -pix_fmt yuva420p"},
        {"yuva10.mkv", "-c:v ffv1 -pix_fmt yuva444p10le"},
        {"ut.avi", "-c:v utvideo -pix_fmt gbrap"},
        {"tiff-%02d.tiff", "-c:v tiff -pix_fmt rgba"},
        {"webp-%02d.webp", "-c:v libwebp -lossless 1 -pix_fmt bgra"},
        {"gif.gif", "-vf 'split[a][b];[a]palettegen[p];[b][p]paletteuse'", {0, 0, 255, 255}},
    };
    for (const auto &[name, video, expected] : kCases) {
        SCOPED_TRACE(name);
        Must("ffmpeg -v error -y -r 25 ", Master(0, alphas), video, " ", name);
        Render("--path rgb ", name, " ", name, " -o o.mov --codec qtrle");
        const NumberedFilm film = Load("o.mov");
        ASSERT_EQ(film.frames.size(), std::size_t(2 * kFrames - kOverlap));
        EXPECT_EQ(film.Number(34), 19);
        for (const std::size_t frame : {std::size_t(0), film.frames.size() - 1})
            for (int corner = 0; corner < 4; ++corner) {
                Colour colour = kCorners[corner];
                colour[3] = expected[corner];
                const Colour shown = film.Corner(frame, corner);
                if (colour[3] == 0) // has no colour that would show
                    std::copy_n(shown.begin(), 3, colour.begin());
                ExpectNear(shown, colour, 12, Text("corner ", corner));
            }
    }
}

TEST_F(Matrix, StillsAreRead) {
    const struct {
        const char *name, *options;
        int tolerance = 5;
    } kCases[] = {
        {"s.tiff", "-pix_fmt rgb24"},
        {"s16.tif", "-pix_fmt rgb48le"},
        {"s.png", "-pix_fmt rgb24"},
        {"s16.png", "-pix_fmt rgb48be"},
        {"alpha.png", "-pix_fmt rgba"},
        {"alpha16.png", "-pix_fmt rgba64be"},
        {"s.jpg", "-q:v 1", 8},
        {"s.webp", "-lossless 1"},
        {"lossy.webp", "-quality 95", 12},
        {"s.gif", "", 16},
        {"s.bmp", "-pix_fmt bgr24"},
        {"s.avif", "-c:v libaom-av1 -still-picture 1 -crf 8 -pix_fmt yuv444p", 10},
        {"S.PNG", "-pix_fmt rgb24"},
        {"pic%03d.png", "-pix_fmt rgb24 -update 1"}, // the very name, no pattern
        {"odd.png", "-vf scale=97:65:flags=neighbor"},
        {"cut.jpg", "-q:v 1", 8},       // its end mark is missing
        {"more.png", "-pix_fmt rgb24"}, // bytes behind its end
    };
    for (const auto &[name, options, tolerance] : kCases) {
        SCOPED_TRACE(name);
        Must("ffmpeg -v error -y ", Master(7, {255, 255, 255, 255}, 1), " -frames:v 1 ", options,
             " ", name);
        if (std::string(name) == "cut.jpg")
            fs::resize_file(name, fs::file_size(name) - 2);
        if (std::string(name) == "more.png")
            std::ofstream(name, std::ios::app) << "and more";
        Render("--still 12f ", name, " ", name, " -o o.mkv --codec ffv1");
        const NumberedFilm film = Load("o.mkv");
        ASSERT_EQ(film.frames.size(), 19u);
        EXPECT_EQ(film.Number(0), 7);
        EXPECT_EQ(film.Number(18), 7);
        for (int corner = 0; corner < 4; ++corner)
            ExpectNear(film.Corner(0, corner), kCorners[corner], tolerance,
                       Text("corner ", corner));
        fs::remove("o.mkv");
    }
}

/// How far rows differ from the mean of their neighbours.
double Combing(const Film &film, std::size_t frame) {
    double sum = 0;
    for (int y = 1; y + 1 < film.height; ++y)
        for (int x = 0; x < film.width; ++x) {
            const auto level = [&](int row) { return film.Pixel(frame, x, row)[1]; };
            sum += std::abs(level(y) - (level(y - 1) + level(y + 1)) / 2);
        }
    return sum / film.width / film.height;
}

// A bar of 24 pixels that moves by 8 from field to field.
TEST_F(Matrix, InterlacedClipsBecomeProgressive) {
    for (const char *field : {"top", "bottom"}) {
        const std::string name = "fields.mkv";
        Must("ffmpeg -v error -y -f lavfi -i \"color=black:s=96x64:r=50:d=0.8,format=yuv420p,"
             "geq=lum='if(between(mod(X-N*8,96),0,24),235,16)':cb=128:cr=128,"
             "tinterlace=interleave_",
             field, ",setfield=", field[0] == 't' ? "tff" : "bff",
             "\" -c:v ffv1 -flags +ildct -field_order ", field[0] == 't' ? "tt" : "bb", " ", name);
        for (const bool kept : {false, true}) {
            SCOPED_TRACE(Text(field, kept ? " kept" : " removed"));
            Render(kept ? "--interlaced keep " : "", name, " ", name, " -o o.mkv --codec ffv1");
            const NumberedFilm film = Load("o.mkv");
            ASSERT_EQ(film.frames.size(), 35u);
            for (const std::size_t frame : {3, 31})
                EXPECT_EQ(Combing(film, frame) > 15, kept) << Combing(film, frame);
            EXPECT_EQ(Probe("o.mkv", "field_order"), !kept             ? "progressive,"
                                                     : field[0] == 't' ? "tt,"
                                                                       : "bb,");
        }
    }
}

/// The signal of PQ or HLG for a level of 0 to 1: of 10,000 nits, or of the scene's light.
double Signal(bool isPq, double level) {
    if (isPq) {
        const double power = std::pow(level, 0.1593017578125);
        return std::pow((0.8359375 + 18.8515625 * power) / (1 + 18.6875 * power), 78.84375);
    }
    return level <= 1.0 / 12 ? std::sqrt(3 * level)
                             : 0.17883277 * std::log(12 * level - 0.28466892) + 0.55991073;
}

// Bars of white light on a display of 1000 nits: none is lost in another, not even the brightest.
TEST_F(Matrix, HdrIsNeverMislabelled) {
    constexpr double nits[] = {0, 1, 10, 50, 200, 500, 1000};
    constexpr int kBars = std::size(nits), kPage = 4;
    for (const bool isPq : {true, false}) {
        const std::string name = isPq ? "pq.mkv" : "hlg.mkv", second = "b.mkv", output = "o.mkv";
        std::string bars;
        for (int i = 0; i < kBars; ++i)
            bars += Text(
                i ? "+" : "", "between(X,", i * 96.0 / kBars, ",", (i + 1) * 96.0 / kBars - 0.01,
                ")*",
                std::lround(64 + 876 * Signal(isPq, isPq ? nits[i] / 10000
                                                         : std::pow(nits[i] / 1000, 1 / 1.2))));
        Must("ffmpeg -v error -y -f lavfi -i \"color=black:s=96x64:r=25:d=0.8,format=yuv420p10le,"
             "geq=lum='",
             bars,
             "':cb=512:cr=512\" -c:v ffv1 -color_range tv -colorspace bt2020nc "
             "-color_primaries bt2020 -color_trc ",
             isPq ? "smpte2084 " : "arib-std-b67 ", name);
        for (const bool isFirst : {false, true}) {
            SCOPED_TRACE(Text(isPq ? "PQ" : "HLG", isFirst ? " first" : " second"));
            const Outcome run =
                Shell(Text(TP_PROGRAM " render -t Push -d 5f ", isFirst ? name : second, ' ',
                           isFirst ? second : name, " -o ", output, " --codec ffv1"));
            ASSERT_EQ(run.status, 0) << run.output;
            EXPECT_NE(run.output.find("tone"), std::string::npos) << run.output;
            const NumberedFilm film = Load(output);
            ASSERT_EQ(film.frames.size(), 35u);
            EXPECT_EQ(Probe(output, "color_transfer,color_primaries").find("bt2020"),
                      std::string::npos);
            EXPECT_EQ(Probe(output, "color_transfer").find(isPq ? "2084" : "b67"),
                      std::string::npos);
            int last = -1;
            for (int i = 0; i < kBars; ++i) {
                const Colour shown = film.At(isFirst ? 0 : 34, (i + 0.5) / kBars, 0.5);
                EXPECT_NEAR(shown[0], shown[1], 3) << nits[i];
                EXPECT_NEAR(shown[2], shown[1], 3) << nits[i];
                EXPECT_GT(shown[1], last) << nits[i];
                EXPECT_TRUE(i != 0 || shown[1] <= 3) << "black";
                EXPECT_TRUE(i != kPage || shown[1] >= 140) << "the white of a page";
                last = shown[1];
            }
            EXPECT_EQ(film.Number(isFirst ? 34 : 0), kSecond + (isFirst ? 19 : 0));
        }
    }
}

// ---------------------------------------------------------------------------------------------
// Results
// ---------------------------------------------------------------------------------------------

TEST_F(Matrix, EveryContainerGetsPicturesAndSound) {
    Make("c.mkv", {.video = "-c:v ffv1", .audio = "-ac 2 -c:a pcm_s16le"});
    const struct {
        const char *name, *options, *codecs; ///< what ffprobe calls them
    } kCases[] = {
        {"r.mp4", "", "h264,aac,"},
        {"r.mov", "", "h264,aac,"},
        {"r.mkv", "", "h264,"},
        {"r.avi", "", "h264,ac3,"},
        {"r.webm", "", "vp9,opus,"},
        {"r.ts", "", "h264,"},
        {"r.mts", "", "h264,"},
        {"r.m2ts", "", "h264,"},
        {"r.mpg", "", "mpeg"},
        {"r.vob", "", "mpeg2video,"},
        {"r.mxf", "", ""},
        {"R.MP4", "", "h264,aac,"},
        {"q.mp4", "--codec hevc -q", "hevc,aac,"},
        {"v.mkv", "--codec av1 --preset 12 -q", "av1,"},
        {"p.mov", "--codec prores", "prores,"},
        {"f.mkv", "--audio-codec flac", "h264,flac,"},
    };
    for (const auto &[name, options, codecs] : kCases) {
        SCOPED_TRACE(Text(name, ' ', options));
        Render("c.mkv b.mkv c.mkv -o ", name, ' ', options);
        ExpectJoined(Load(name), 25);
        ExpectTimes(Listen(name).starts, {0.4, 1.0, 1.6});
        EXPECT_EQ((Probe(name, "codec_name") + Probe(name, "codec_name", "a:0")).find(codecs), 0u);
        EXPECT_EQ(Probe(name, "channels", "a:0").find("2,"), 0u);
    }
    EXPECT_EQ(Probe("q.mp4", "codec_tag_string"), "hvc1,");
    // What is left out in front is left out of the sound too.
    Render("c.mkv#t=4f b.mkv#t=200ms -o in.mkv");
    ExpectTimes(Listen("in.mkv").starts,
                {(kBeepFrame - 4) / 25.0, (16 - kOverlap + kBeepFrame - 5) / 25.0});
}

// Twelve clips of 16 pictures: every number tells the clip and the picture in it.
TEST_F(Matrix, TwelveClipsInOneCommand) {
    constexpr int kClips = 12, kStep = kFrames - kOverlap;
    std::string clips;
    for (int i = 0; i < kClips; ++i) {
        const std::string name = Text("t", i, i % 2 ? ".mp4" : ".mkv");
        Make(name, {.video = "-c:v libx264 -preset ultrafast -crf 10 -pix_fmt yuv420p",
                    .audio = i % 2 ? "-ar 44100 -c:a aac" : "-ar 32000 -c:a flac",
                    .first = 20 * i});
        clips += name + ' ';
    }
    Must(TP_PROGRAM " render -q ", clips, "-t any --seed 3 -d 5f -o o.mkv --codec ffv1");
    const std::vector<int> numbers = Load("o.mkv").Numbers();
    ASSERT_EQ(int(numbers.size()), kClips * kStep + kOverlap);
    for (int clip = 0; clip < kClips; ++clip)
        for (int i = clip ? kOverlap : 0; i < (clip + 1 < kClips ? kStep : kFrames); ++i)
            EXPECT_EQ(numbers[clip * kStep + i], 20 * clip + i);
    const Beeps beeps = Listen("o.mkv");
    std::vector<double> starts(kClips);
    for (int clip = 0; clip < kClips; ++clip)
        starts[clip] = (clip * kStep + kBeepFrame) / 25.0;
    ExpectTimes(beeps.starts, starts);
    EXPECT_NEAR(beeps.length, double(numbers.size()) / 25, 0.05);
}

/// The most memory that a command took, in MiB.
double PeakMemory(const std::string &command) {
    const pid_t child = fork();
    if (child == 0) {
        execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), nullptr);
        _exit(127);
    }
    int status = 0;
    rusage used = {};
    wait4(child, &status, 0, &used);
    EXPECT_EQ(status, 0) << command;
    return double(used.ru_maxrss) / 1024;
}

TEST_F(Matrix, MemoryDoesNotGrowWithClipsOrOverlaps) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "sanitizers keep what was freed";
#endif
    Must("ffmpeg -v error -f lavfi -i testsrc=s=3000x2000 -frames:v 1 photo.jpg && ffmpeg -v error "
         "-f lavfi -i testsrc=s=640x360:r=25:d=8 -c:v libx264 "
         "-preset ultrafast long.mp4");
    const auto photos = [](int count) {
        std::string names;
        for (int i = 0; i < count; ++i)
            names += "photo.jpg ";
        return PeakMemory(Text(TP_PROGRAM " render -q -t Push -d 2f --still 5f --size 96x64 ",
                               names, "-o o.mkv"));
    };
    EXPECT_LT(photos(40), photos(5) + 40); // a photo is 9 MiB at least
    const auto overlap = [](const char *length) {
        return PeakMemory(Text(TP_PROGRAM " render -q -t Push -d ", length,
                               " long.mp4 long.mp4 --preset ultrafast -o o.mkv"));
    };
    EXPECT_LT(overlap("7.5"), overlap("0.5") + 30); // seven seconds are 58 MiB
}

} // namespace
