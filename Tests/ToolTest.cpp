// The program's list, info and sheet, and the installation.

#include "Shell.h"
#include "Support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>

namespace {

namespace fs = std::filesystem;
using hostkit::Transition;

Outcome Program(const std::string &arguments) {
    return Shell(TP_PROGRAM " " + arguments);
}

/// A value of a JSON text by CMake's own reader, which refuses anything that is not JSON.
std::string JsonValue(const std::string &text, const std::string &path) {
    const Folder folder;
    std::ofstream(folder / "text.json") << text;
    std::ofstream(folder / "read.cmake") << "file(READ " << (folder / "text.json") << " text)\n"
                                         << "string(JSON value GET \"${text}\" " << path << ")\n"
                                         << "message(NOTICE \"${value}\")\n";
    const Outcome read = Shell(TP_CMAKE " -P " + (folder / "read.cmake"));
    return read.output.substr(0, read.output.find('\n'));
}

// ---------------------------------------------------------------------------------------------
// Sub-commands
// ---------------------------------------------------------------------------------------------

TEST(Tool, AnswersWithTheRightWordsAndStatus) {
    const struct {
        const char *arguments;
        int status;
        const char *expected;
    } kCases[] = {
        {"list", 0, "\nPush            yuv rgb  B comes in from the left and pushes A out to"},
        {"list", 0, "\nTrBarShift      yuv      Bar with a slower start and end.\n"},
        {"list", 0, "\ndissolve        yuv rgb  A changes into B evenly all over.\n"},
        {"info fade", 0, "its name in this program"},
        {"info wind", 0, "Wind\n  Title        Wind\n"},
        {"info wind", 0, "yes: the same --seed gives the same pictures"},
        {"info Push", 0, "\n  Packed path  linear (at an even speed)\n"},
        {"info TrRect6", 0, "the name of its exported function"},
        {"info --markdown Push", 0, "| `Push` | B comes in from the left"},
        {"", 2, "transitions: give a command: render, join, preview, gallery, "},
        {"rendr a b", 2, "transitions: there is no command rendr; there are render, join, "},
        {"info Wint", 1, "transitions: there is no transition \"Wint\"; the nearest are \"Wind\","},
        {"info wipeleft", 1, "\"wipeleft\"; the nearest is \"Erase\" with --reverse\n"},
        {"info --json --markdown", 2, "excludes"},
        {"sheet a.png", 1, "give two clips or pictures, or none for the built-in ones\n"},
        {"sheet --cell", 2, "transitions: --cell: its value is missing (see --help)\n"},
        {"sheet --at never a.png b.png", 1, "--at never: give seconds as in 1.5, 500ms"},
        {"sheet no.mp4 no.mp4", 1, "no.mp4: there is no such file"},
        {"sheet -t TrDropShift --path rgb", 1, "\"TrDropShift\" has no rgb path"},
        {"sheet --columns 0", 2, "--columns: give a number from 1 to 100, not 0 (see --help)\n"},
        {"sheet --columns few", 2, "--columns: give a number from 1 to 100, not few"},
        {"sheet --positions 20,120", 2, "--positions: give a number from 0 to 100, not 120"},
        {"sheet --seed x", 2, "transitions: --seed = x: give a number"},
        {"sheet --ease wobbly", 1, "--ease wobbly: there are linear, smooth, "},
        {"sheet --path sideways", 1, "--path sideways: there are yuv, rgb, both\n"},
        {"sheet -t Push a.png b.png c.png", 1, "give two clips or pictures"},
        {"sheet -o sheet.mp4", 1, "sheet.mp4: pictures are written as .png, .jpg, .webp, .tif or"},
        {"pictures day.png dusk", 1, "dusk: pictures are written as .png"},
        {"sheet -t Push -o /nowhere/a.png", 1, "/nowhere/a.png: there is no folder /nowhere\n"},
        {"--plugin /dev/null list", 1, "transitions: cannot load the plug-in /dev/null"},
    };
    for (const auto &[arguments, status, expected] : kCases) {
        const Outcome outcome = Program(arguments);
        EXPECT_EQ(outcome.status, status) << arguments;
        EXPECT_NE(outcome.output.find(expected), std::string::npos) << arguments << "\n"
                                                                    << outcome.output;
        const auto lines = std::count(outcome.output.begin(), outcome.output.end(), '\n');
        EXPECT_TRUE(status == 0 || lines == 1) << arguments << "\n" << outcome.output;
    }
}

TEST(Tool, WritesJson) {
    const std::string list = Program("list --json").output, infos = Program("info --json").output;
    const std::string one = Program("info DoorWay --json").output;
    EXPECT_EQ(JsonValue(list, "type"), "erase type");
    for (const char *name : {"Wind", "CrossZoom", "TrDropShift"}) {
        const Transition &transition = *TestedPlugin().Find(name);
        const std::string row = std::to_string(&transition - TestedPlugin().Transitions().data());
        const std::string known = transition.IsRegistered() ? row : "";
        EXPECT_EQ(JsonValue(list, "transitions " + row + " name"), name);
        EXPECT_EQ(JsonValue(list, "transitions " + row + " index"), known);
        EXPECT_EQ(JsonValue(list, "transitions " + row + " rgb"), transition.rgb ? "ON" : "OFF");
        EXPECT_EQ(JsonValue(infos, row + " name"), name);
        EXPECT_EQ(JsonValue(infos, row + " random"), transition.info.random ? "ON" : "OFF");
        EXPECT_EQ(JsonValue(infos, row + " curveYuv"), CurveName(transition.info.yuv));
    }
    EXPECT_EQ(JsonValue(one, "kind"), "depth");
    EXPECT_EQ(JsonValue(one, "guid"), "976B2502-3B22-4dd4-AEB4-0AAA2C1E5AC8");
}

/// All long options that a text mentions.
std::set<std::string> LongOptions(const std::string &text) {
    std::set<std::string> options;
    for (std::size_t at = 0; (at = text.find("--", at)) != std::string::npos;) {
        const std::size_t end = text.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-", at);
        options.insert(text.substr(at, end - at));
        at = end;
    }
    options.erase("--");
    return options;
}

TEST(Tool, ManualHasTheOptionsThatHelpHas) {
    std::string manual = Program("manual " TP_SOURCE "/Docs/transitions.1.in").output;
    std::string help = Program("--help").output;
    for (std::size_t at; (at = manual.find("\\f")) != std::string::npos;)
        manual.erase(at, 3);  // a change of font
    std::erase(manual, '\\'); // a hyphen is written \- there
    std::istringstream lines(help.substr(help.find("Subcommands:")));
    std::string line;
    for (std::getline(lines, line); std::getline(lines, line) && line.starts_with("  ");) {
        const std::string command = line.substr(2, line.find(' ', 2) - 2);
        EXPECT_NE(manual.find(".SS " + command), std::string::npos) << command;
        help += Program(command + " --help").output;
    }
    EXPECT_EQ(LongOptions(manual), LongOptions(help));
}

TEST(Tool, MarkdownHasARowForEachTransitionAndIsTheReadmesTable) {
    const std::string table = Program("info --markdown").output;
    EXPECT_NE(Shell("cat " TP_SOURCE "/README.md").output.find(table), std::string::npos)
        << "run Scripts/update-docs";
    for (const Transition &transition : TestedPlugin().Transitions())
        EXPECT_NE(table.find("| `" + transition.name + "` "), std::string::npos) << transition.name;
}

struct Picture {
    int width = 0, height = 0;
    std::string rgb;
    std::array<int, 3> At(int x, int y) const {
        const auto *p = reinterpret_cast<const unsigned char *>(&rgb[(y * width + x) * 3]);
        return {p[0], p[1], p[2]};
    }
    bool IsWhite(int x, int y) const { return At(x, y) == std::array{255, 255, 255}; }
};

Picture ReadPng(const std::string &file) {
    const std::string ppm =
        Shell("ffmpeg -v error -i " + file + " -f image2pipe -c:v ppm -").output;
    Picture picture;
    int start = 0;
    if (std::sscanf(ppm.c_str(), "P6 %d %d 255%n", &picture.width, &picture.height, &start) == 2)
        picture.rgb = ppm.substr(start + 1);
    return picture;
}

struct Cell {
    int x, y;
};

/// The top left corners of the pictures on a sheet, row by row: blocks of this size without white
/// inside white.
std::vector<Cell> Cells(const Picture &sheet, int width, int height) {
    const auto hasWhite = [&](int left, int top, int w, int h) {
        for (int y = top; y < top + h; ++y)
            for (int x = left; x < left + w; ++x)
                if (sheet.IsWhite(x, y))
                    return true;
        return false;
    };
    std::vector<Cell> cells;
    for (int y = 1; y + height <= sheet.height; ++y)
        for (int x = 1; x + width <= sheet.width; ++x)
            if (sheet.IsWhite(x - 1, y) && sheet.IsWhite(x, y - 1) &&
                !hasWhite(x, y, width, height))
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

Colour Strongest(const std::array<int, 3> &c) {
    return static_cast<Colour>(std::max_element(c.begin(), c.end()) - c.begin());
}

// A is red above green, B is blue; Push shows where its edge is and what stands on which side.
TEST(Sheet, ShowsPositionsPathsAndMotionUpright) {
    const Folder folder;
    WritePpm(folder / "a.ppm", {230, 20, 20}, {20, 230, 20});
    WritePpm(folder / "b.ppm", {20, 20, 230}, {20, 20, 230});
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
        const Outcome outcome = Program("sheet " + (folder / "a.ppm") + " " + (folder / "b.ppm") +
                                        " -t Push --path both --columns 3 --cell 64 " + options +
                                        " -o " + (folder / "s.png"));
        ASSERT_EQ(outcome.status, 0) << outcome.output;
        const Picture sheet = ReadPng(folder / "s.png");
        const std::vector<Cell> cells = Cells(sheet, 64, 36);
        ASSERT_EQ(cells.size(), 6u);
        for (int path = 0; path < 2; ++path) {
            const auto colour = [&](int column, int x, int y) {
                const Cell &cell = cells[path * 3 + column];
                return Strongest(sheet.At(cell.x + x, cell.y + y));
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
    const Folder folder;
    WritePpm(folder / "a.ppm", {230, 20, 20}, {20, 230, 20});
    for (const auto &[name, codec] : {std::pair("s.png", "png"), std::pair("s.JPG", "mjpeg"),
                                      std::pair("s.tiff", "tiff"), std::pair("s.bmp", "bmp")}) {
        const Outcome outcome =
            Program("sheet -t dissolve -t cut " + (folder / "a.ppm") + " " + (folder / "a.ppm") +
                    " --positions 0,100 --cell 64 -o " + (folder / name));
        ASSERT_EQ(outcome.status, 0) << outcome.output;
        EXPECT_EQ(
            Shell("ffprobe -v error -show_entries stream=codec_name -of csv=p=0 " + (folder / name))
                .output,
            codec + std::string("\n"));
        const Picture sheet = ReadPng(folder / name);
        const int x = sheet.width - 20 - 32, y = 20 + 22;
        for (const auto &[row, expected] :
             {std::pair(9, std::array{230, 20, 20}), std::pair(27, std::array{20, 230, 20})})
            for (int i = 0; i < 3; ++i)
                EXPECT_NEAR(sheet.At(x, y + row)[i], expected[i], 6) << name << row;
    }
    fs::create_symlink("/dev/full", folder / "full.png");
    EXPECT_EQ(Program("sheet -t Push -o " + (folder / "full.png")).output,
              "transitions: " + (folder / "full.png") + ": No space left on device\n");
}

TEST(Sheet, HasARowForEachTransitionFromTheBuiltInPictures) {
    const Folder folder;
    const int count = int(TestedPlugin().Transitions().size());
    for (const int across : {1, 3}) {
        const Outcome outcome = Program("sheet --positions 100 --cell 32 --size 64x48 --across " +
                                        std::to_string(across) + " -o " + (folder / "s.png"));
        ASSERT_EQ(outcome.status, 0) << outcome.output;
        const Picture sheet = ReadPng(folder / "s.png");
        const int rows = (count + across - 1) / across;
        EXPECT_EQ(sheet.height, 20 + 22 + rows * (24 + 6) - 6 + 20) << "rows under a heading";
        EXPECT_EQ(Cells(sheet, 32, 24).size(), std::size_t(count)); // dusk has no white
    }
}

// ---------------------------------------------------------------------------------------------
// Installation
// ---------------------------------------------------------------------------------------------

bool Succeeds(const std::string &command) {
    const Outcome outcome = Shell(command);
    EXPECT_EQ(outcome.status, 0) << command << "\n" << outcome.output;
    return outcome.status == 0;
}

// Moved after it was installed, so that no path of the build can help.
TEST(Install, WorksWhereverItIsMoved) {
    const Folder folder;
    const std::string root = folder / "moved";
    ASSERT_TRUE(Succeeds(TP_CMAKE " --install " TP_BUILD " --prefix " + (folder / "first")));
    fs::rename(folder / "first", root);
    const std::string list = Shell(root + "/bin/transitions list").output;
    EXPECT_EQ(list, Program("list").output);
    EXPECT_TRUE(fs::exists(root + "/share/man/man1/transitions.1"));

    ASSERT_TRUE(Succeeds(TP_CMAKE " -S " TP_SOURCE "/Examples -B " + (folder / "example") +
                         " -G Ninja -DCMAKE_CXX_COMPILER=" TP_COMPILER
                         " -DCMAKE_CXX_FLAGS=" TP_FLAGS " -DCMAKE_PREFIX_PATH=" +
                         root));
    ASSERT_TRUE(Succeeds(TP_CMAKE " --build " + (folder / "example")));
    // The sanitizers' own dlopen does not search where the program that calls it says.
    const bool isSanitized = std::string(TP_FLAGS).starts_with("-fsanitize");
    const std::string plugin = isSanitized ? " $(find " + root + " -name libtp_Erase.so)" : "";
    EXPECT_EQ(Shell((folder / "example/Host") + plugin).output,
              "Erase: 235 at the left, 16 at the right\n");

    // What links the plug-in by pkg-config's answer finds it and the libraries behind it.
    std::ofstream(folder / "link.cpp") << "#include <tp_Erase.h>\n"
                                          "int main() { return !GetTransInfo(0); }\n";
    EXPECT_TRUE(Succeeds("cd " + folder.path.string() +
                         " && export PKG_CONFIG_PATH=$(dirname $(find " + root +
                         " -name tp_Erase.pc)) && " TP_COMPILER " " TP_FLAGS
                         " -std=c++20 link.cpp -o link $(pkg-config --cflags --libs tp_Erase) && "
                         "LD_LIBRARY_PATH=$(pkg-config --variable=libdir tp_Erase) ./link"));
}

} // namespace
