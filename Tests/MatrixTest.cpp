// Awkward clips through the program's render. Each is made by ffmpeg from pictures that carry their
// number as a bar code and colours in their corners, and from a beep that begins with picture 10;
// so what the result must be follows from how the clip was made.

#include "Shell.h"

#include <sys/resource.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr int kWidth = 96, kHeight = 64;
constexpr int kFrames = 20;    ///< of every clip
constexpr int kOverlap = 5;    ///< frames
constexpr int kSecond = 500;   ///< number of the second clip's first picture
constexpr int kBeepFrame = 10; ///< of every clip

using Colour = std::array<int, 4>; ///< red, green, blue, alpha
using Alphas = std::array<int, 4>; ///< of the corners

/// Top left, top right, bottom left, bottom right.
const std::array<Colour, 4> kCorners = {
    {{200, 30, 30, 255}, {30, 180, 40, 255}, {30, 40, 200, 255}, {220, 210, 20, 255}}};
constexpr Alphas kOpaque = {255, 255, 255, 255}, kClear = {0, 90, 180, 255};

/// Rows 24 to 39 hold twelve cells: white, ten bits from the highest on, black.
constexpr int kCells = 12;

/// A picture's bytes, red, green, blue and alpha.
std::string Picture(int number, const Alphas &alphas) {
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
            bytes.append(colour.begin(), colour.end());
        }
    return bytes;
}

/// The mean of 5 by 5 pixels around a point given in parts of the picture.
Colour At(const Film &film, std::size_t frame, double x, double y) {
    Colour sum = {12, 12, 12, 12};
    for (int i = 0; i < 25; ++i) {
        const Colour pixel =
            film.Pixel(frame, int(x * film.width) + i % 5 - 2, int(y * film.height) + i / 5 - 2);
        for (int c = 0; c < 4; ++c)
            sum[c] += pixel[c];
    }
    return {sum[0] / 25, sum[1] / 25, sum[2] / 25, sum[3] / 25};
}

/// The bar code's number, -1 where there is none.
int Number(const Film &film, std::size_t frame) {
    int number = 0;
    for (int cell = 0; cell < kCells; ++cell) {
        const int level = At(film, frame, (cell + 0.5) / kCells, 0.5)[1];
        if (level > 70 && level < 185)
            return -1;
        number = 2 * number + (level > 128);
    }
    return number >> 11 == 1 && number % 2 == 0 ? (number >> 1) & 1023 : -1;
}

/// What has no opacity has no colour that would show.
void ExpectNear(const Colour &colour, const Colour &expected, int tolerance,
                const std::string &what) {
    for (int i = expected[3] ? 0 : 3; i < 4; ++i)
        EXPECT_NEAR(colour[i], expected[i], tolerance) << what << ", "
                                                       << "RGBA"[i];
}

void ExpectCorners(const Film &film, std::size_t frame, int tolerance,
                   const Alphas &alphas = kOpaque) {
    for (int corner = 0; corner < 4; ++corner) {
        Colour expected = kCorners[corner];
        expected[3] = alphas[corner];
        ExpectNear(At(film, frame, corner % 2 ? 5.0 / 6 : 1.0 / 6, corner / 2 ? 0.84 : 0.16),
                   expected, tolerance, Text("frame ", frame, ", corner ", corner));
    }
}

/// How a clip comes about.
struct Making {
    double rate = 25;
    std::string video;      ///< ffmpeg's options for the picture
    std::string audio = {}; ///< for the sound; empty: none
    double late = 0;        ///< seconds by which the sound track begins after the picture
    int first = 0;          ///< number of the first picture
};

/// A clip and what a render of it must have.
struct Case {
    const char *name;
    Making making;
    int channels = 1;
    int skipped = 0;    ///< pictures that the file says not to show
    int tolerance = 20; ///< levels by which colours may be off
};

/// What a film of a clip, the second clip and the clip must show: in front of the first overlap, at
/// its ends, and after the last one the frames are the clips' own.
void ExpectJoined(const Film &film, double rate, int first = 0) {
    const int frames = kFrames - first, second = int(std::lround(kFrames / 25.0 * rate));
    const int all = 2 * frames + second - 2 * kOverlap;
    ASSERT_EQ(int(film.frames.size()), all);
    for (int i = 0; i <= frames - kOverlap; ++i)
        EXPECT_EQ(Number(film, i), first + i) << "frame " << i;
    for (int i = all - frames + kOverlap - 1; i < all; ++i)
        EXPECT_EQ(Number(film, i), first + i - all + frames) << "frame " << i;
    for (int i = kOverlap - 1; i <= second - kOverlap; ++i)
        EXPECT_NEAR(Number(film, frames - kOverlap + i), kSecond + i * 25 / rate, 1) << "second";
}

/// Raw pictures with numbers from `first` on.
std::string Master(int first, const Alphas &alphas, int count = kFrames) {
    std::string pictures;
    for (int i = 0; i < count; ++i)
        pictures += Picture(first + i, alphas);
    Write("master", pictures);
    return Text("-f rawvideo -pix_fmt rgba -s ", kWidth, "x", kHeight, " -i master ");
}

void Make(const std::string &target, const Making &making) {
    const double beep = kBeepFrame / making.rate - making.late;
    std::string command =
        Text("ffmpeg -v error -y -r ", making.rate, " ", Master(making.first, kOpaque));
    if (!making.audio.empty())
        command +=
            Text("-itsoffset ", making.late, " -f lavfi -i \"aevalsrc='0.8*between(t,", beep, ",",
                 beep + 0.04, ")*sin(2*PI*1000*t)':s=48000:d=", kFrames / making.rate - making.late,
                 "\" -map 0:v -map 1:a ");
    Must(command, making.video, " ", making.audio, " ", target);
}

/// What a render shows in a file.
template<class... Part>
Film Render(const std::string &file, const char *transition, const Part &...arguments) {
    Must(TP_PROGRAM " render -q -t ", transition, " -d ", kOverlap, "f ", arguments..., " -o ",
         file);
    return Decode(file);
}

/// Makes a clip and checks a film of it, the second clip and it again.
void Check(const Case &clip, const std::string &path) {
    SCOPED_TRACE(Text(clip.name, ", path ", path));
    const auto &[name, making, channels, skipped, tolerance] = clip;
    Make(name, making);
    const Film film = Render("o.mkv", "Push", name, " b.mkv ", name, " --codec ffv1 --path ", path);
    ExpectJoined(film, making.rate, skipped);
    const double rate = making.rate, all = double(film.frames.size());
    ASSERT_GT(all, 25);
    ExpectCorners(film, 0, tolerance);
    ExpectCorners(film, film.frames.size() / 2, tolerance); // the second clip too
    const Beeps beeps = Listen("o.mkv");
    std::vector<double> starts = {(kFrames - skipped - kOverlap) / rate + kBeepFrame / 25.0};
    if (!making.audio.empty())
        starts = {(kBeepFrame - skipped) / rate, starts[0], (all - kFrames + kBeepFrame) / rate};
    ExpectTimes(beeps.starts, starts);
    EXPECT_NEAR(beeps.length, all / rate, 0.05);
    EXPECT_EQ(Probe("o.mkv", "channels", "a:0"), Text(channels, ","));
}

class Matrix : public testing::Test {
    void SetUp() override {
        Make("b.mkv",
             {.video = "-c:v ffv1", .audio = "-ac 1 -ar 44100 -c:a pcm_s16le", .first = kSecond});
    }
    const WorkingFolder folder;
};

TEST_F(Matrix, FramesAndSoundKeepTheirTimes) {
    const std::string x264 = "-c:v libx264 -preset ultrafast -crf 12 -pix_fmt yuv420p ";
    const std::string mpeg2 = "-c:v mpeg2video -q:v 2 ", pcm = "-c:a pcm_s16le ";
    const auto timed = [](const char *milliseconds) {
        return Text("-vf \"settb=1/1000,setpts='round(", milliseconds,
                    ")'\" -vsync vfr -r 1000 -c:v libvpx -pix_fmt yuv420p -b:v 2M ");
    };
    const std::string jitter = timed("N*1000/30+mod(N*7,19)/2");
    const Case kCases[] = {
        // Containers
        {"a.mp4", {.video = x264, .audio = "-c:a aac"}},
        {"a.mkv", {.video = x264 + "-bf 2", .audio = "-c:a libvorbis"}},
        {"a.webm", {.video = "-c:v libvpx-vp9 -pix_fmt yuv420p -b:v 2M", .audio = "-c:a libopus"}},
        {"a.ts", {.video = x264 + "-bf 2", .audio = "-c:a aac"}},
        {"a.mpg", {.video = mpeg2 + "-bf 2", .audio = "-c:a mp2"}},
        {"a.mxf", {.video = mpeg2, .audio = pcm}},
        {"a.avi", {.video = "-c:v mjpeg -q:v 2", .audio = pcm}},
        {"a.flv", {.video = x264, .audio = "-ar 44100 -c:a aac"}},
        {"A.MP4", {.video = x264, .audio = "-c:a aac"}},
        {"h265.mp4", {.video = "-c:v libx265 -preset ultrafast -x265-params log-level=0:crf=10"}},
        // Rates and timestamps
        {"film.mp4", {.rate = 24, .video = x264, .audio = "-c:a aac"}},
        {"half.mkv", {.rate = 12.5, .video = x264, .audio = pcm}},
        {"faster.mkv", {.rate = 120, .video = x264}},
        {"norate.webm", {.rate = 30, .video = jitter, .audio = "-c:a libopus"}},
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
        {"gap.mkv", {.video = x264, .audio = pcm + "-af \"aselect='not(between(t,0.1,0.3))'\""}},
        {"11025.mkv", {.video = x264, .audio = pcm + "-ar 11025", .late = 0.2}},
        {"96000.mkv", {.video = x264, .audio = "-c:a flac -ar 96000", .late = 0.1}},
        {"5.1.mp4", {.video = x264, .audio = "-c:a aac -ac 6"}, 6},
        {"7.1.mkv", {.video = x264, .audio = "-c:a flac -ac 8"}, 8},
        {"16.mkv", {.video = x264, .audio = pcm + "-ac 16"}, 2}, // more than encoders take
        {"odd.mkv", {.video = "-vf scale=97:65 -c:v ffv1 -pix_fmt yuv420p", .audio = pcm}},
    };
    for (const Case &clip : kCases)
        Check(clip, "yuv");
}

TEST_F(Matrix, ColoursAreThoseOfTheClip) {
    const auto tagged = [](const std::string &tag, const std::string &range,
                           const std::string &pixels, const std::string &codec = "ffv1") {
        const std::string matrix = tag == "bt2020nc" ? "bt2020" : tag == "bt470bg" ? "bt470" : tag;
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
        {"601.mkv", tagged("smpte170m", "tv", "yuv420p")},
        {"709.mkv", tagged("bt709", "tv", "yuv420p")},
        {"709full.mkv", tagged("bt709", "pc", "yuv420p")},
        {"470.mkv", tagged("bt470bg", "tv", "yuv420p")},
        {"2020.mkv", tagged("bt2020nc", "tv", "yuv420p")},
        {"240.mkv", tagged("smpte240m", "tv", "yuv420p")},
        {"422ten.mkv", tagged("bt709", "tv", "yuv422p10le")},
        {"tenfull.mp4", tagged("bt709", "pc", "yuv420p10le", "libx264 -crf 8")},
        {"full.mp4", tagged("bt709", "pc", "yuvj420p", "libx264 -crf 8")},
        {"prores.mov", tagged("bt709", "tv", "yuv422p10le", "prores_ks -profile:v 3"), 6},
        {"mjpeg.avi", "-c:v mjpeg -q:v 1 -pix_fmt yuvj422p", 8},
        {"untagged.mkv", "-c:v ffv1 -pix_fmt yuv420p"},
        {"rgb.mkv", "-c:v ffv1 -pix_fmt bgr0"},
        {"rgb.mp4", "-c:v libx264rgb -crf 4 -pix_fmt rgb24"},
    };
    for (const auto &[name, video, tolerance] : kCases)
        for (const char *path : {"yuv", "rgb"})
            Check({name, {.video = video}, 1, 0, tolerance}, path);
}

/// As a broadcast may have it.
TEST_F(Matrix, SoundThatBecomesMonoKeepsItsTime) {
    const std::string video = "-c:v mpeg2video -q:v 2 ";
    Make("one.ts", {.video = video, .audio = "-c:a mp2 -ac 2"});
    Make("two.ts", {.video = video + "-output_ts_offset 0.8", .audio = "-c:a mp2 -ac 1"});
    Must("cat one.ts two.ts > both.ts");
    Render("o.mkv", "Push", "both.ts b.mkv --codec ffv1");
    const Beeps beeps = Listen("o.mkv");
    ASSERT_EQ(beeps.starts.size(), 3u);
    EXPECT_NEAR(beeps.starts[1] - beeps.starts[0], 0.8, 0.03);
}

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

/// The bytes of an MP4 file whose track is turned by this orientation's matrix.
std::string Displayed(std::string mp4, int value) {
    const std::size_t matrix = mp4.find("tkhd") + 44; // after version, times, layer and volume
    for (int i = 0; i < 4; ++i)
        for (int byte = 0; byte < 4; ++byte)
            mp4[matrix + (i / 2 * 3 + i % 2) * 4 + byte] =
                char(kOrientations[value - 1][i] * 65536 >> (24 - 8 * byte));
    return mp4;
}

TEST_F(Matrix, OrientationsAreUpright) {
    Make("flat.mp4", {.video = "-c:v libx264 -crf 10 -pix_fmt yuv420p"});
    Must("ffmpeg -v error -i flat.mp4 -frames:v 1 -q:v 1 flat.jpg");
    for (int value = 1; value <= 8; ++value) {
        Write("turned.mp4", Displayed(Read("flat.mp4"), value));
        Write("turned.jpg", Oriented(Read("flat.jpg"), value));
        for (const char *name : {"turned.mp4", "turned.jpg"}) {
            SCOPED_TRACE(Text(name, ", orientation ", value));
            const Film film = Render("o.mkv", "Push", name, " ", name, " --codec ffv1 --still 12f");
            const auto &[a, b, c, d] = kOrientations[value - 1];
            EXPECT_EQ(film.width, a ? kWidth : kHeight);
            EXPECT_EQ(film.height, a ? kHeight : kWidth);
            for (int corner = 0; corner < 4; ++corner) {
                const int x = corner % 2 ? 1 : -1, y = corner / 2 ? 1 : -1;
                ExpectNear(At(film, 0, 0.5 + 0.34 * (x * a + y * c), 0.5 + 0.34 * (x * b + y * d)),
                           kCorners[corner], 10, Text("corner ", corner));
            }
        }
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
        const Film film =
            Render("o.mkv", "Turn", "--path ", path, " full.mkv b.mkv --codec ", codec);
        ASSERT_EQ(film.frames.size(), 35u);
        ExpectNear(At(film, 17, 0.5, 0.05), {0, 0, 0, 255}, 2, "half-way");
        ExpectNear(At(film, 30, 0.04, 0.5), {0, 0, 0, 255}, 2, "bar");
        ExpectNear(At(film, 30, 0.16, 0.5), {255, 255, 255, 255}, 4, "white");
    }
}

TEST_F(Matrix, StillsAndAlphaOfEveryCodecAreKept) {
    const struct {
        const char *name, *options;
        int tolerance;
        Alphas alphas = kOpaque;
        int count = 1; ///< pictures
    } kCases[] = {
        {"s16.png", "-pix_fmt rgb48be", 5},
        {"alpha.png", "-pix_fmt rgba", 5, kClear},
        {"s.jpg", "-q:v 1", 8},
        {"lossy.webp", "-quality 95", 12},
        {"s.gif", "", 16},
        {"s.avif", "-c:v libaom-av1 -still-picture 1 -crf 8 -pix_fmt yuv444p", 10},
        {"S.PNG", "-pix_fmt rgb24", 5},
        {"pic%03d.png", "-pix_fmt rgb24 -update 1", 5}, // the very name, no pattern
        {"cut.jpg", "-q:v 1", 8},                       // its end mark is missing
        {"more.png", "-pix_fmt rgb24", 5},              // bytes behind its end
        {"prores.mov", "-c:v prores_ks -profile:v 4 -pix_fmt yuva444p10le", 12, kClear, kFrames},
        {"qtrle.mov", "-c:v qtrle -pix_fmt argb", 5, kClear, kFrames},
        {"vp8.webm", "-c:v libvpx -pix_fmt yuva420p -auto-alt-ref 0 -b:v 4M -qmin 0 -crf 4", 12,
         kClear, kFrames},
        {"vp9.webm", "-c:v libvpx-vp9 -pix_fmt yuva420p -auto-alt-ref 0 -b:v 0 -crf 4", 12, kClear,
         kFrames},
        {"yuva.mkv", "-c:v ffv1 -pix_fmt yuva420p", 12, kClear, kFrames},
        {"ut.avi", "-c:v utvideo -pix_fmt gbrap", 5, kClear, kFrames},
        {"tiff-%02d.tiff", "-c:v tiff -pix_fmt rgba", 5, kClear, kFrames},
        {"webp-%02d.webp", "-c:v libwebp -lossless 1 -pix_fmt bgra", 5, kClear, kFrames},
        {"gif.gif",
         "-vf 'split[a][b];[a]palettegen[p];[b][p]paletteuse'",
         12,
         {0, 0, 255, 255},
         kFrames},
    };
    for (const auto &[name, options, tolerance, alphas, count] : kCases) {
        SCOPED_TRACE(name);
        Must("ffmpeg -v error -y -r 25 ", Master(7, count == 1 ? alphas : kClear, count),
             "-frames:v ", count, ' ', options, ' ', name);
        if (std::string(name) == "cut.jpg")
            fs::resize_file(name, fs::file_size(name) - 2);
        if (std::string(name) == "more.png")
            std::ofstream(name, std::ios::app) << "and more";
        const Film film =
            Render("o.mov", "Push", "--path rgb --still 12f ", name, ' ', name, " --codec qtrle");
        ASSERT_EQ(int(film.frames.size()), 2 * (count == 1 ? 12 : count) - kOverlap);
        for (const std::size_t frame : {std::size_t(0), film.frames.size() - 1}) {
            EXPECT_EQ(Number(film, frame), frame ? 7 + count - 1 : 7);
            ExpectCorners(film, frame, tolerance, alphas);
        }
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
    for (const auto &[field, filter, order] :
         {std::tuple("top", "tff", "tt"), {"bottom", "bff", "bb"}}) {
        Must("ffmpeg -v error -y -f lavfi -i \"color=black:s=96x64:r=50:d=0.8,format=yuv420p,"
             "geq=lum='if(between(mod(X-N*8,96),0,24),235,16)':cb=128:cr=128,"
             "tinterlace=interleave_",
             field, ",setfield=", filter, "\" -c:v ffv1 -flags +ildct -field_order ", order,
             " fields.mkv");
        for (const bool kept : {false, true}) {
            SCOPED_TRACE(Text(field, kept ? " kept" : " removed"));
            const Film film = Render("o.mkv", "Push", kept ? "--interlaced keep " : "",
                                     "fields.mkv fields.mkv --codec ffv1");
            ASSERT_EQ(film.frames.size(), 35u);
            for (const std::size_t frame : {3, 31})
                EXPECT_EQ(Combing(film, frame) > 15, kept) << Combing(film, frame);
            EXPECT_EQ(Probe("o.mkv", "field_order"), Text(kept ? order : "progressive", ','));
        }
    }
}

/// The signal of PQ or HLG for a white of so many nits on a display of 1000.
double Signal(bool isPq, double nits) {
    if (isPq) {
        const double power = std::pow(nits / 10000, 0.1593017578125);
        return std::pow((0.8359375 + 18.8515625 * power) / (1 + 18.6875 * power), 78.84375);
    }
    const double scene = std::pow(nits / 1000, 1 / 1.2);
    return scene <= 1.0 / 12 ? std::sqrt(3 * scene)
                             : 0.17883277 * std::log(12 * scene - 0.28466892) + 0.55991073;
}

// Bars of white light: none is lost in another, not even the brightest.
TEST_F(Matrix, HdrIsNeverMislabelled) {
    constexpr double nits[] = {0, 1, 10, 50, 200, 500, 1000, 1000};
    constexpr int kPage = 4;
    for (const bool isPq : {true, false}) {
        std::string bars = "0";
        for (int i = 0; i < 8; ++i)
            bars +=
                Text("+eq(floor(X/12),", i, ")*", std::lround(64 + 876 * Signal(isPq, nits[i])));
        Must("ffmpeg -v error -y -f lavfi -i \"color=black:s=96x64:r=25:d=0.8,format=yuv420p10le,"
             "geq=lum='",
             bars,
             "':cb=512:cr=512\" -c:v ffv1 -color_range tv -colorspace bt2020nc "
             "-color_primaries bt2020 -color_trc ",
             isPq ? "smpte2084" : "arib-std-b67", " hdr.mkv");
        for (const char *clips : {"hdr.mkv b.mkv", "b.mkv hdr.mkv"}) {
            SCOPED_TRACE(Text(isPq ? "PQ: " : "HLG: ", clips));
            EXPECT_NE(Output(TP_PROGRAM " render -t Push -d 5f ", clips, " -o o.mkv --codec ffv1")
                          .find("tone"),
                      std::string::npos);
            const std::string tags = Probe("o.mkv", "color_transfer,color_primaries");
            for (const char *hdr : {"bt2020", "2084", "b67"})
                EXPECT_EQ(tags.find(hdr), std::string::npos) << tags;
            const Film film = Decode("o.mkv");
            ASSERT_EQ(film.frames.size(), 35u);
            const bool isFirst = *clips == 'h';
            EXPECT_EQ(Number(film, isFirst ? 34 : 0), kSecond + (isFirst ? 19 : 0));
            std::vector<int> levels;
            for (int i = 0; i < 7; ++i) {
                const Colour shown = At(film, isFirst ? 0 : 34, (i + 0.5) / 8, 0.5);
                ExpectNear(shown, {shown[1], shown[1], shown[1], 255}, 3, Text(nits[i], " nits"));
                EXPECT_TRUE(i == 0 || shown[1] > levels.back()) << nits[i];
                levels.push_back(shown[1]);
            }
            EXPECT_LE(levels[0], 3) << "black";
            EXPECT_GE(levels[kPage], 140) << "the white of a page";
        }
    }
}

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
        {"r.m2ts", "", "h264,"},
        {"r.mpg", "", "mpeg"},
        {"r.vob", "", "mpeg2video,"},
        {"r.mxf", "", ""},
        {"R.MP4", "", "h264,aac,"},
        {"q.mp4", "--codec hevc", "hevc,aac,"},
        {"v.mkv", "--codec av1 --preset 12", "av1,"},
        {"p.mov", "--codec prores", "prores,"},
        {"f.mkv", "--audio-codec flac", "h264,flac,"},
    };
    for (const auto &[name, options, codecs] : kCases) {
        SCOPED_TRACE(Text(name, ' ', options));
        ExpectJoined(Render(name, "Push", "c.mkv b.mkv c.mkv ", options), 25);
        ExpectTimes(Listen(name).starts, {0.4, 1.0, 1.6});
        EXPECT_EQ((Probe(name, "codec_name") + Probe(name, "codec_name", "a:0")).find(codecs), 0u);
        EXPECT_EQ(Probe(name, "channels", "a:0").find("2,"), 0u);
    }
    EXPECT_EQ(Probe("q.mp4", "codec_tag_string"), "hvc1,");
    // What is left out in front is left out of the sound too.
    Render("in.mkv", "Push", "c.mkv#t=4f b.mkv#t=200ms");
    ExpectTimes(Listen("in.mkv").starts,
                {(kBeepFrame - 4) / 25.0, (16 - kOverlap + kBeepFrame - 5) / 25.0});
}

/// The most memory that a render takes, in MiB.
double PeakMemory(const std::string &arguments) {
    const std::string command = "exec " TP_PROGRAM " render -q -t Push -o o.mkv -d " + arguments;
    const pid_t child = fork();
    if (child == 0) {
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(127);
    }
    int status = 0;
    rusage used = {};
    wait4(child, &status, 0, &used);
    EXPECT_EQ(status, 0) << arguments;
    return double(used.ru_maxrss) / 1024;
}

TEST_F(Matrix, MemoryDoesNotGrowWithClipsOrOverlaps) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "sanitizers keep what was freed";
#endif
    Must("ffmpeg -v error -f lavfi -i testsrc=s=3000x2000 -frames:v 1 photo.jpg && ffmpeg -v error "
         "-f lavfi -i testsrc=s=640x360:r=25:d=8 -c:v libx264 -preset ultrafast long.mp4");
    std::string photos = "2f --still 5f --size 96x64", many = photos;
    for (int i = 0; i < 40; ++i)
        (i < 5 ? photos : many) += " photo.jpg";
    EXPECT_LT(PeakMemory(many), PeakMemory(photos) + 40); // a photo is 9 MiB at least
    const std::string clips = " --preset ultrafast long.mp4 long.mp4";
    EXPECT_LT(PeakMemory("7.5" + clips), PeakMemory("0.5" + clips) + 30); // 7 seconds are 58 MiB
}

} // namespace
