// The program's list, info and sheet, and the installation.

#include "Shell.h"
#include "Support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace {

namespace fs = std::filesystem;
using hostkit::Transition;

// ---------------------------------------------------------------------------------------------
// Sub-commands
// ---------------------------------------------------------------------------------------------

TEST(Tool, AnswersWithTheRightWordsAndStatus) {
    const Answer kAnswers[] = {
        {"list", "\nPush            yuv rgb  B comes in from the left and pushes A out to", 0},
        {"list", "\nTrBarShift      yuv      Bar with a slower start and end.\n", 0},
        {"list", "\ndissolve        yuv rgb  A changes into B evenly all over.\n", 0},
        {"info fade", "its name in this program", 0},
        {"info wind", "Wind\n  Title        Wind\n", 0},
        {"info wind", "yes: the same --seed gives the same pictures", 0},
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
    const std::string command =
        "LD_LIBRARY_PATH=$(dirname " TP_PROGRAM ") " TP_PROGRAM " --plugin cut.so list";
    constexpr int kParts = 64;
    int part = 1;
    for (; part <= kParts; ++part) {
        Write("cut.so", whole.substr(0, whole.size() * part / kParts));
        const Outcome run = Shell(command);
        if (run.status == 0) // lacks no more than names for debuggers
            break;
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.output,
                  Text("transitions: the plug-in cut.so is cut short after ",
                       whole.size() * part / kParts, " bytes: copy or build it again\n"));
    }
    EXPECT_TRUE(part > 1 && part <= kParts) << part;
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

struct Cell {
    int x, y;
};

/// The top left corners of the pictures on a sheet, row by row: blocks of this size without white
/// inside white.
std::vector<Cell> Cells(const Film &sheet, int width, int height) {
    const auto isWhite = [&](int x, int y) {
        return sheet.Pixel(0, x, y) == std::array{255, 255, 255, 255};
    };
    const auto hasWhite = [&](int left, int top, int w, int h) {
        for (int y = top; y < top + h; ++y)
            for (int x = left; x < left + w; ++x)
                if (isWhite(x, y))
                    return true;
        return false;
    };
    std::vector<Cell> cells;
    for (int y = 1; y + height <= sheet.height; ++y)
        for (int x = 1; x + width <= sheet.width; ++x)
            if (isWhite(x - 1, y) && isWhite(x, y - 1) && !hasWhite(x, y, width, height))
                cells.push_back({x, y});
    return cells;
}

void WritePpm(const std::string &file, std::array<int, 3> upper, std::array<int, 3> lower) {
    std::ofstream out(file, std::ios::binary);
    out << "P6 64 36 255\n";
    for (int i = 0; i < 64 * 36; ++i)
        for (const int channel : i < 64 * 18 ? upper : lower)
            out.put(static_cast<char>(channel));
}

enum class Colour { Red, Green, Blue };

Colour Strongest(const std::array<int, 4> &c) {
    return static_cast<Colour>(std::max_element(c.begin(), c.begin() + 3) - c.begin());
}

// A is red above green, B is blue; Push shows where its edge is and what stands on which side.
TEST(Sheet, ShowsPositionsPathsAndMotionUpright) {
    const WorkingFolder folder;
    WritePpm("a.ppm", {230, 20, 20}, {20, 230, 20});
    WritePpm("b.ppm", {20, 20, 230}, {20, 20, 230});
    const struct {
        const char *options;
        int edge[2]; ///< at 50 %, planar and packed
        bool bIsLeft;
    } kCases[] = {
        {"", {32, 32}, true},
        {"--ease in", {1, 16}, true},
        {"--reverse", {32, 32}, false},
    };
    for (const auto &[options, edge, bIsLeft] : kCases) {
        SCOPED_TRACE(options);
        Output(TP_PROGRAM " sheet a.ppm b.ppm -t Push --path both --columns 3 --cell 64 -o s.png ",
               options);
        const Film sheet = Decode("s.png");
        const std::vector<Cell> cells = Cells(sheet, 64, 36);
        ASSERT_EQ(cells.size(), 6u);
        for (int path = 0; path < 2; ++path) {
            const auto colour = [&](int column, int x, int y) {
                const Cell &cell = cells[path * 3 + column];
                return Strongest(sheet.Pixel(0, cell.x + x, cell.y + y));
            };
            for (const int x : {0, 31, 63}) {
                EXPECT_EQ(colour(0, x, 3), Colour::Red);
                EXPECT_EQ(colour(0, x, 33), Colour::Green);
                EXPECT_EQ(colour(2, x, 3), Colour::Blue);
            }
            // Planar colours are as wide as two pixels, so look beside the edge.
            const int left = std::max(0, edge[path] - 2), right = edge[path] + 2;
            EXPECT_EQ(colour(1, left, 3), bIsLeft ? Colour::Blue : Colour::Red);
            EXPECT_EQ(colour(1, right, 3), bIsLeft ? Colour::Red : Colour::Blue);
            EXPECT_EQ(colour(1, right, 33), bIsLeft ? Colour::Green : Colour::Blue);
        }
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path), {}), 3) << "left-over files";
}

// The kind of file is that of its name, and the clips may stand behind a list of names.
TEST(Sheet, IsWrittenAsItsEndingSays) {
    const WorkingFolder folder;
    WritePpm("a.ppm", {230, 20, 20}, {20, 230, 20});
    for (const auto &[name, codec] : {std::pair("s.png", "png"), std::pair("s.JPG", "mjpeg"),
                                      std::pair("s.tiff", "tiff"), std::pair("s.bmp", "bmp")}) {
        Output(TP_PROGRAM " sheet -t dissolve -t cut a.ppm a.ppm --positions 0,100 --cell 64 -o ",
               name);
        EXPECT_EQ(Probe(name, "codec_name"), Text(codec, ','));
        const Film sheet = Decode(name);
        const int x = sheet.width - 20 - 32, y = 20 + 22;
        for (const auto &[row, expected] :
             {std::pair(9, std::array{230, 20, 20}), std::pair(27, std::array{20, 230, 20})})
            for (int i = 0; i < 3; ++i)
                EXPECT_NEAR(sheet.Pixel(0, x, y + row)[i], expected[i], 6) << name << row;
    }
    fs::create_symlink("/dev/full", "full.png");
    EXPECT_EQ(Program("sheet -t Push -o full.png").output,
              "transitions: full.png: No space left on device\n");
}

TEST(Sheet, ShowsWidePixelsAsWide) {
    const WorkingFolder folder;
    Must("ffmpeg -v error -f lavfi -i color=red:s=64x36:d=1 -vf setsar=2 -c:v ffv1 wide.mkv");
    for (const auto &[size, height] : {std::pair("", 18), {"--size 64x36", 36}}) { // of square ones
        Output(TP_PROGRAM " sheet -t Push wide.mkv wide.mkv --positions 100 --cell 64 -o s.png ",
               size);
        EXPECT_EQ(Decode("s.png").height, 20 + 22 + height + 20) << size;
    }
}

// A clip that turns from red to blue, and has a last picture whatever is asked for.
TEST(Sheet, ShowsThePictureThatIsAskedFor) {
    const WorkingFolder folder;
    Must("ffmpeg -v error -f lavfi -i \"color=red:s=64x36:d=1,drawbox=c=blue:t=fill:enable="
         "'gte(t,0.5)'\" -c:v ffv1 clip.mkv");
    for (const auto &[at, colour] :
         {std::pair("0", Colour::Red), {"600ms", Colour::Blue}, {"99", Colour::Blue}}) {
        Output(TP_PROGRAM " sheet -t Push clip.mkv clip.mkv --positions 0 --cell 64 -o s.png --at ",
               at);
        const Film sheet = Decode("s.png");
        EXPECT_EQ(Strongest(sheet.Pixel(0, sheet.width - 20 - 32, 20 + 22 + 18)), colour) << at;
    }
}

TEST(Sheet, HasARowForEachTransitionFromTheBuiltInPictures) {
    const WorkingFolder folder;
    const int count = int(TestedPlugin().Transitions().size());
    for (const int across : {1, 3}) {
        Output(TP_PROGRAM " sheet --positions 100 --cell 32 --size 64x48 --across ", across,
               " -o s.png");
        const Film sheet = Decode("s.png");
        const int rows = (count + across - 1) / across;
        EXPECT_EQ(sheet.height, 20 + 22 + rows * (24 + 6) - 6 + 20) << "rows under a heading";
        EXPECT_EQ(Cells(sheet, 32, 24).size(), std::size_t(count)); // dusk has no white
    }
}

// ---------------------------------------------------------------------------------------------
// Installation
// ---------------------------------------------------------------------------------------------

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
