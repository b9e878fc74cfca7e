// Luma maps: which transitions have one, and that MLT's own wipe, given the map, plays the
// transition.

#include "Draw.h"
#include "Shell.h"
#include "Support.h"

namespace {

using hostkit::Frame;
using hostkit::Path;
using hostkit::Transition;

constexpr int kWidth = 640, kHeight = 360, kFrames = 24;

/// What melt's luma makes of the map between black and white: B's weights in levels of 255.
std::vector<double> PlayedByMelt(const std::string &map, int softness) {
    Write("profile", MeltProfile(kWidth, kHeight));
    Output("timeout 100 melt -silent -profile $PWD/profile color:black out=", kFrames - 1,
           " color:white out=", kFrames - 1, " -mix ", kFrames, " -mixer luma resource=", map,
           " softness=", softness / 100.0,
           " -consumer avformat:out.raw f=rawvideo vcodec=rawvideo an=1 pix_fmt=yuv422p "
           "mlt_image_format=yuv422 real_time=-1");
    const std::string pictures = Read("out.raw");
    constexpr std::size_t kLuma = std::size_t(kWidth) * kHeight;
    EXPECT_EQ(pictures.size(), 2 * kLuma * kFrames);
    std::vector<double> weights;
    for (int frame = 0; frame < kFrames; ++frame)
        for (std::size_t i = 0; i < kLuma; ++i)
            weights.push_back((std::uint8_t(pictures[2 * kLuma * frame + i]) - 16) * 255.0 / 219);
    return weights;
}

/// Of the frames that melt plays from those that the plug-in draws at the same instants, of which
/// melt's first is 0 and the one after its last 1.
double Distance(const Transition &transition, Path path, const std::vector<double> &played) {
    Frame black(path, kWidth, kHeight), white(path, kWidth, kHeight), out(path, kWidth, kHeight);
    std::memset(black.Bytes().data(), 0, black.Bytes().size());
    std::memset(white.Bytes().data(), 255, white.Bytes().size());
    double sum = 0;
    const double *next = played.data();
    for (int frame = 0; frame < kFrames; ++frame) {
        Draw(transition, {}, {double(frame) / kFrames, frame}, out, black, white);
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x)
                sum += std::abs(out.Row(0, y)[path == Path::Rgb ? 4 * x : x] - *next++);
    }
    return sum / double(played.size());
}

TEST(Map, IsThereForWhatOnlyChoosesInPlace) {
    // The distance holds melt's own rounding to video levels, 0.6 on average.
    struct Case {
        const char *name;
        Path path;       ///< that gives the map
        bool isSoft;     ///< has an edge that blends
        double farthest; ///< mean distance in levels of 255
    };
    constexpr Case kCases[] = {
        {"Erase", Path::Yuv, true, 1.6},        {"Erase_slide", Path::Rgb, false, 0.8},
        {"Bar", Path::Yuv, false, 0.8},         {"Linear Wipe", Path::Yuv, true, 2.4},
        {"Tr4Triangle", Path::Yuv, false, 0.8}, {"TrNTriangle", Path::Yuv, false, 0.8},
        {"TrTriangle2", Path::Yuv, false, 0.8}, {"TrCirque", Path::Yuv, false, 0.8},
        {"TrEraseShift", Path::Yuv, true, 1.1}, {"TrBarShift", Path::Yuv, false, 0.8},
    };
    const WorkingFolder folder;
    const std::string made = Output(TP_PROGRAM " map -o maps --size 640x360");
    std::size_t files = 0;
    for (const auto &entry : std::filesystem::directory_iterator("maps"))
        files += entry.is_regular_file();
    EXPECT_EQ(files, std::size(kCases)) << made;
    for (const Case &c : kCases) {
        SCOPED_TRACE(c.name);
        const std::string file = "tp_erase-" + hostkit::Stem(c.name) + ".pgm";
        const std::size_t line = made.find(file + ": softness ");
        ASSERT_NE(line, std::string::npos) << made;
        const int softness = std::atoi(&made[line + file.size() + 11]);
        EXPECT_EQ(softness > 0, c.isSoft) << softness;
        const std::string map = "maps/" + file;
        EXPECT_EQ(Read(map).substr(0, 17), "P5\n640 360\n65535\n");
        EXPECT_LE(Distance(*TestedPlugin().Find(c.name), c.path, PlayedByMelt(map, softness)),
                  c.farthest);
    }
}

TEST(Map, OneTransitionGoesToOneFile) {
    const WorkingFolder folder;
    std::string grey[2];
    for (const bool isPng : {false, true}) {
        const std::string file = isPng ? "map.png" : "map.pgm";
        Output(TP_PROGRAM " map -t 'Linear Wipe' --size 801x603 -o ", file);
        grey[isPng] = Output("ffmpeg -v error -i ", file, " -f rawvideo -pix_fmt gray16be -");
    }
    EXPECT_TRUE(grey[0] == grey[1]);
    EXPECT_EQ(grey[0].size(), 2u * 801 * 603);
}

TEST(Map, IsRefusedWithTheReason) {
    const WorkingFolder folder;
    const Answer kMaps[] = {
        {"-t Push -o x.png", "shows pixels that neither picture has at that place"},
        {"-t Erase_slide --path yuv -o x.png", "neither picture has at that place"},
        {"-t Blind -o x.pgm", "go back from B to A"},
        {"-t dissolve -o x.pgm", "blends both pictures otherwise than at a soft edge"},
        {"-t TrTriangle3 -o folder", "go back from B to A"},
        {"-t Erase -t Bar -o x.png", "give one transition"},
        {"-o x.png", "give one transition"},
        {"-t Erase -o x --as jpg", "--as jpg: there are pgm, png"},
        {"-t TrBarShift -o x.png --path rgb", "no rgb path"},
        {"-t TrCirque -o x.png --path rgb", "a part of the picture never becomes B"},
    };
    const Answer kStingers[] = {
        {"-t Push -o x.webm", "\"Push\" has no luma map: it shows pixels"},
        {"-t Bar -o x.mp4", "which .webm and .mov hold"},
        {"-t Bar -o x.webm -d 0", "give two frames or more"},
        {"-t Bar -o x.webm --matte left", "there are beside, below, only"},
        {"-t Bar -o x.webm --ease odd", "--ease odd: there are linear"},
    };
    ExpectAnswers(TP_PROGRAM " map --size 99x57", kMaps);
    ExpectAnswers(TP_PROGRAM " stinger --size 320x180", kStingers);
    for (const auto &entry : std::filesystem::recursive_directory_iterator("."))
        EXPECT_FALSE(entry.is_regular_file()) << entry.path();
}

TEST(Stinger, IsEmptyBesideAMatteThatTurnsWhite) {
    const WorkingFolder folder;
    struct Case {
        const char *matte, *file;
        int width, height, left, top; ///< of the film, and where its matte begins
    };
    for (const auto &[matte, file, width, height, left, top] :
         {Case{"beside", "film.webm", 640, 180, 320, 0},
          {"below", "film.mov", 320, 360, 0, 180},
          {"only", "film.webm", 320, 180, 0, 0},
          {"only --reverse", "film.webm", 320, 180, 0, 0}}) {
        SCOPED_TRACE(matte);
        Output(TP_PROGRAM " stinger -t Erase_slide --size 320x180 -d 11f -o ", file, " --matte ",
               matte);
        const bool isWebm = std::string(file).ends_with("webm");
        const Film film =
            Decode(file, isWebm ? "-c:v libvpx-vp9" : ""); // which decodes transparency
        ASSERT_EQ(film.frames.size(), 11u);
        ASSERT_TRUE(film.width == width && film.height == height);
        // Half of the picture is B in the middle, uncovered from the left.
        for (const int frame : {0, 5, 10})
            for (int tenth = 0; tenth < 10; ++tenth)
                for (const int y : {3, 90, 176}) {
                    const int x = 32 * tenth + 16;
                    const bool isB = std::strchr(matte, '-') ? tenth >= 10 - frame : tenth < frame;
                    const auto [red, green, blue, alpha] = film.Pixel(frame, left + x, top + y);
                    EXPECT_NEAR(red, isB ? 255 : 0, 8) << frame << ' ' << x << ' ' << y;
                    EXPECT_EQ(alpha, 255);
                    EXPECT_TRUE(left + top == 0 || film.Pixel(frame, x, y)[3] == 0);
                }
    }
}

} // namespace
