// The program's list, info and sheet, and the installation.

#include "Shell.h"
#include "Support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

namespace fs = std::filesystem;
using hostkit::Transition;

TEST(Tool, AnswersWithTheRightWordsAndStatus) {
    const Answer kAnswers[] = {
        {"list", "\nPush            yuv rgb  B comes in from the left and pushes A out to", 0},
        {"list", "\nTrBarShift      yuv      Bar with a slower start and end.\n", 0},
        {"list", "\ndissolve        yuv rgb  A changes into B evenly all over.\n", 0},
        {"info fade", "its name in this program", 0},
        {"info wind", "Wind\n  Title        Wind\n", 0},
        {"info wind", "yes: the same --seed gives the same pictures", 0},
        {"info Roll_right_top", "\n  Kind         page turn\n", 0},
        {"info Push", "\n  Planar path  eased (starts and ends very slowly)\n", 0},
        {"info Push", "\n  Packed path  linear (at an even speed)\n", 0},
        {"info TrRect6", "the name of its exported function", 0},
        {"info --markdown Push", "| `Push` | B comes in from the left", 0},
        {"", "transitions: give a command: render, join, preview, gallery, ", 2},
        {"rendr a b", "transitions: there is no command rendr; there are render, join, ", 2},
        {"info WINT", "transitions: there is no transition \"WINT\"; the nearest are \"Wind\","},
        {"info wipeleft", "\"wipeleft\"; the nearest is \"Erase\" with --reverse\n"},
        {"info --json --markdown", "excludes", 2},
        {"sheet a.png", "give two clips or pictures, or none for the built-in ones\n"},
        {"sheet --cell", "transitions: --cell: its value is missing (see --help)\n", 2},
        {"sheet --at never a.png b.png", "--at never: give seconds as in 1.5, 500ms"},
        {"sheet no.mp4 no.mp4", "no.mp4: there is no such file"},
        {"sheet -t TrDropShift --path rgb", "\"TrDropShift\" has no rgb path"},
        {"sheet --columns 0", "--columns: give a number from 1 to 100, not 0 (see --help)\n", 2},
        {"sheet --columns few", "--columns: give a number from 1 to 100, not few", 2},
        {"sheet --positions 20,120", "--positions: give a number from 0 to 100, not 120", 2},
        {"sheet --seed x", "transitions: --seed = x: give a number", 2},
        {"sheet --ease wobbly", "--ease wobbly: there are linear, smooth, "},
        {"sheet --path sideways", "--path sideways: there are yuv, rgb, both\n"},
        {"sheet -t Push a.png b.png c.png", "give two clips or pictures"},
        {"sheet -o sheet.mp4", "sheet.mp4: pictures are written as .png, .jpg, .webp, .tif or"},
        {"pictures day.png dusk", "dusk: pictures are written as .png"},
        {"sheet -t Push -o /nowhere/a.png", "/nowhere/a.png: there is no folder /nowhere\n"},
        {"--plugin /dev/null list", "transitions: cannot load the plug-in /dev/null"},
    };
    ExpectAnswers(TP_PROGRAM, kAnswers);
}

/// Whoever touched what is missing would be ended by the system.
TEST(Tool, RefusesAPluginThatIsCutShort) {
    const WorkingFolder folder;
    const std::string whole = Read(TestedPlugin().File());
    constexpr int kParts = 64;
    Outcome run = {};
    int part = 0;
    do {
        const std::size_t size = whole.size() * ++part / kParts;
        Write("cut.so", whole.substr(0, size));
        run =
            Shell("LD_LIBRARY_PATH=$(dirname " TP_PROGRAM ") " TP_PROGRAM " --plugin cut.so list");
        EXPECT_TRUE(run.status == 0 ||
                    run.output == Text("transitions: the plug-in cut.so is cut short after ", size,
                                       " bytes: copy or build it again\n"))
            << run.output;
    } while (run.status == 1 && part < kParts);
    EXPECT_TRUE(run.status == 0 && part > 1) << part; // what names are for debuggers may lack
}

TEST(Tool, WritesJson) {
    using nlohmann::json;
    const json list = json::parse(Output(TP_PROGRAM " list --json")),
               infos = json::parse(Output(TP_PROGRAM " info --json")),
               one = json::parse(Output(TP_PROGRAM " info DoorWay --json"));
    EXPECT_EQ(list["type"], "erase type");
    const std::vector<Transition> &transitions = TestedPlugin().Transitions();
    ASSERT_EQ(infos.size(), transitions.size());
    for (std::size_t row = 0; row < transitions.size(); ++row) {
        const Transition &transition = transitions[row];
        const json &listed = list["transitions"][row], &info = infos[row];
        EXPECT_EQ(listed["name"], transition.name);
        EXPECT_EQ(listed["index"], transition.IsRegistered() ? json(row) : json());
        EXPECT_EQ(listed["rgb"], transition.rgb != nullptr);
        EXPECT_EQ(info["name"], transition.name);
        EXPECT_EQ(info["random"], transition.info.random);
        EXPECT_EQ(info["curveYuv"], CurveName(transition.info.yuv));
    }
    EXPECT_EQ(one["kind"], "depth");
    EXPECT_EQ(one["guid"], "976B2502-3B22-4dd4-AEB4-0AAA2C1E5AC8");
}

TEST(Tool, MarkdownHasARowForEachTransitionAndIsTheReadmesTable) {
    const std::string table = Program("info --markdown").output;
    EXPECT_NE(Shell("cat " TP_SOURCE "/README.md").output.find(table), std::string::npos)
        << "run Scripts/update-docs";
    for (const Transition &transition : TestedPlugin().Transitions())
        EXPECT_NE(table.find("| `" + transition.name + "` "), std::string::npos) << transition.name;
}

struct Sheet : testing::Test {
    /// Red above green, and blue.
    Sheet() {
        Must("ffmpeg -v error -f lavfi -i "
             "color=red:s=64x36,format=rgb24,drawbox=y=18:c=lime:t=fill -frames:v 1 a.png && "
             "ffmpeg -v error -f lavfi -i color=blue:s=64x36,format=rgb24 -frames:v 1 b.png");
    }
    static Film Draw(const std::string &arguments, const std::string &file = "s.png") {
        Output(TP_PROGRAM " sheet -o ", file, " --cell 64 ", arguments);
        return Decode(file);
    }
    const WorkingFolder folder;
    static constexpr int kMargin = 20, kTop = kMargin + 22; ///< under a heading
};

// Push shows where its edge is and what stands on which side.
TEST_F(Sheet, ShowsPositionsPathsAndMotionUpright) {
    const struct {
        const char *options;
        int edge[2]; ///< at 50 %, planar and packed
        const char *beside = "brg";
    } kCases[] = {{"", {32, 32}}, {"--ease in", {1, 16}}, {"--reverse", {32, 32}, "rbb"}};
    for (const auto &[options, edge, beside] : kCases) {
        const Film sheet =
            Draw(Text("a.png b.png -t Push --path both --columns 3 --across 2 ", options));
        for (const int path : {0, 1}) {
            const int left = sheet.width - kMargin - 204 - (path ? 0 : 204 + 24),
                      top = sheet.height - kMargin - 36;
            const auto colour = [&](int column, int x, int y) {
                const auto c = sheet.Pixel(0, left + column * 70 + x, top + y);
                return "rgb"[std::max_element(c.begin(), c.begin() + 3) - c.begin()];
            };
            for (const int x : {0, 31, 63})
                EXPECT_EQ(Text(colour(0, x, 3), colour(0, x, 33), colour(2, x, 3)), "rgb") << x;
            // Planar colours are as wide as two pixels, so look beside the edge.
            const int right = edge[path] + 2;
            EXPECT_EQ(Text(colour(1, std::max(0, edge[path] - 2), 3), colour(1, right, 3),
                           colour(1, right, 33)),
                      beside)
                << options << path;
        }
    }
    EXPECT_EQ(Shell("ls -A").output, "a.png\nb.png\ns.png\n");
}

// The kind of file is that of its name. Clips may stand behind a list of names; wide pixels are
// shown as wide, pictures at the time that is asked for, or the last.
TEST_F(Sheet, ShowsWhatIsAskedForInEachKindOfFile) {
    Must("ffmpeg -v error -f lavfi -i color=red:s=64x36:d=1 -vf setsar=2 -c:v ffv1 wide.mkv && "
         "ffmpeg -v error -f lavfi -i \"color=red:s=64x36:d=1,drawbox=c=blue:t=fill:enable="
         "'gte(t,0.5)'\" -c:v ffv1 clip.mkv");
    constexpr std::array kRed = {255, 0, 0}, kGreen = {0, 255, 0}, kBlue = {0, 0, 255};
    const struct {
        const char *arguments, *file, *codec;
        int height;
        std::array<int, 3> upper, lower;
    } kCases[] = {
        {"a.png a.png", "s.png", "png,", 36, kRed, kGreen},
        {"a.png a.png", "s.JPG", "mjpeg,", 36, kRed, kGreen},
        {"a.png a.png", "s.tiff", "tiff,", 36, kRed, kGreen},
        {"a.png a.png", "s.bmp", "bmp,", 36, kRed, kGreen},
        {"wide.mkv wide.mkv", "s.png", "png,", 18, kRed, kRed},
        {"wide.mkv wide.mkv --size 64x36", "s.png", "png,", 36, kRed, kRed},
        {"clip.mkv clip.mkv --at 0", "s.png", "png,", 36, kRed, kRed},
        {"clip.mkv clip.mkv --at 600ms", "s.png", "png,", 36, kBlue, kBlue},
        {"clip.mkv clip.mkv --at 99", "s.png", "png,", 36, kBlue, kBlue},
    };
    for (const auto &[arguments, file, codec, height, upper, lower] : kCases) {
        SCOPED_TRACE(Text(arguments, ' ', file));
        const Film sheet = Draw(Text("--positions 0,100 -t Push -t cut ", arguments), file);
        EXPECT_EQ(Probe(file, "codec_name"), codec);
        EXPECT_EQ(sheet.height, kTop + 2 * height + 6 + kMargin);
        for (int i = 0; i < 3; ++i) {
            const int x = sheet.width - kMargin - 32, middle = kTop + height / 2;
            EXPECT_NEAR(sheet.Pixel(0, x, middle - 5)[i], upper[i], 6);
            EXPECT_NEAR(sheet.Pixel(0, x, middle + 4)[i], lower[i], 6);
        }
    }
    fs::create_symlink("/dev/full", "full.png");
    EXPECT_EQ(Program("sheet -t Push -o full.png").output,
              "transitions: full.png: No space left on device\n");
}

TEST_F(Sheet, HasARowForEachTransitionFromTheBuiltInPictures) {
    const int count = int(TestedPlugin().Transitions().size());
    for (const int across : {1, 3}) {
        const Film sheet = Draw(Text("--positions 100 --size 64x36 --across ", across));
        const int rows = (count + across - 1) / across, strip = 150 + 64 + 24;
        EXPECT_EQ(sheet.height, kTop + rows * (36 + 6) - 6 + kMargin);
        EXPECT_EQ(sheet.width, kMargin + across * strip - 24 + kMargin);
        for (int i = 0; i < across * rows; ++i) // dusk has no white
            EXPECT_EQ(sheet.Pixel(0, kMargin + i / rows * strip + 150 + 32,
                                  kTop + i % rows * (36 + 6) + 18) ==
                          (std::array{255, 255, 255, 255}),
                      i >= count)
                << i;
    }
}

// Moved after it was installed, so that no path of the build can help.
TEST(Install, WorksWhereverItIsMoved) {
    const WorkingFolder folder;
    const std::string root = folder / "moved";
    Output(TP_CMAKE " --install " TP_BUILD " --prefix first");
    fs::rename("first", root);
    EXPECT_EQ(Output(root, "/bin/transitions list"), Output(TP_PROGRAM " list"));
    EXPECT_TRUE(fs::exists(root + "/share/man/man1/transitions.1"));

    Output(TP_CMAKE " -S " TP_SOURCE
                    "/Examples -B example -G Ninja -DCMAKE_CXX_COMPILER=" TP_COMPILER
                    " -DCMAKE_CXX_FLAGS=" TP_FLAGS " -DCMAKE_PREFIX_PATH=",
           root);
    Output(TP_CMAKE " --build example");
    // The sanitizers' own dlopen does not search where the program that calls it says.
    const bool isSanitized = std::string(TP_FLAGS).starts_with("-fsanitize");
    const std::string plugin = isSanitized ? " $(find " + root + " -name libtp_Erase.so)" : "";
    EXPECT_EQ(Output("example/Host", plugin), "Erase: 235 at the left, 16 at the right\n");

    // What links the plug-in by pkg-config's answer finds it and the libraries behind it.
    Write("link.cpp", "#include <tp_Erase.h>\nint main() { return !GetTransInfo(0); }\n");
    Output("export PKG_CONFIG_PATH=$(dirname $(find ", root,
           " -name tp_Erase.pc)) && " TP_COMPILER " " TP_FLAGS
           " -std=c++20 link.cpp -o link $(pkg-config --cflags --libs tp_Erase) && "
           "LD_LIBRARY_PATH=$(pkg-config --variable=libdir tp_Erase) ./link");
}

} // namespace
