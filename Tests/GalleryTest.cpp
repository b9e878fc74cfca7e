// The program's gallery: its page, in a browser where there is one.

#include "Browser.h"
#include "Draw.h"
#include "Shell.h"
#include "Support.h"

#include <cmath>

namespace {

namespace fs = std::filesystem;
using hostkit::Frame;
using hostkit::Path;
using nlohmann::json;

constexpr int kWidth = 96, kHeight = 64;

Outcome Program(const std::string &arguments) {
    return Shell(TP_PROGRAM " " + arguments);
}

std::string Noise(std::size_t size, std::uint64_t seed) {
    std::string bytes(size, '\0');
    FillRandom({reinterpret_cast<std::uint8_t *>(bytes.data()), size}, seed);
    return bytes;
}

/// What a page carries.
json DataOf(const std::string &page) {
    const std::string start = R"(<script type="application/json" id="data">)";
    const std::size_t begin = page.find(start) + start.size();
    return json::parse(page.substr(begin, page.find("</script>", begin) - begin));
}

TEST(Gallery, AnswersWithTheRightWordsAndStatus) {
    const struct {
        const char *arguments;
        int status;
        const char *expected;
    } kCases[] = {
        {"gallery -o page.pdf", 1, "page.pdf: a gallery is written as .html\n"},
        {"gallery a.png", 1, "give two clips or pictures, or none for the built-in ones\n"},
        {"gallery no.mp4 no.mp4", 1, "no.mp4: there is no such file"},
        {"gallery --steps 100", 1, "--steps 100 of 180 rows are too many; at most 91 are"},
        {"gallery --steps 1", 2, "--steps: give a number from 2 to 200, not 1"},
        {"gallery -t TrDropShift --path rgb", 1, "\"TrDropShift\" has no rgb path"},
        {"gallery --lossless --quality 80", 2, "excludes"},
        {"gallery -t Push -o /nowhere/a.html", 1, "/nowhere/a.html: there is no folder /nowhere"},
    };
    for (const auto &[arguments, status, expected] : kCases) {
        const Outcome outcome = Program(arguments);
        EXPECT_EQ(outcome.status, status) << arguments;
        EXPECT_NE(outcome.output.find(expected), std::string::npos) << arguments << "\n"
                                                                    << outcome.output;
    }
}

TEST(Gallery, IsOneFileOfAllTransitions) {
    const Folder folder;
    const std::string command = "gallery --cell 64 --size 64x36 --steps 5 -o ";
    const Outcome outcome = Program(command + (folder / "g.html"));
    ASSERT_EQ(outcome.status, 0) << outcome.output;
    const std::string page = Read(folder / "g.html");
    EXPECT_EQ(page.find("://"), std::string::npos);
    const json data = DataOf(page);
    ASSERT_EQ(data["transitions"].size(), TestedPlugin().Transitions().size());
    for (std::size_t i = 0; i < data["transitions"].size(); ++i) {
        const hostkit::Transition &transition = TestedPlugin().Transitions()[i];
        const json &entry = data["transitions"][i];
        EXPECT_EQ(entry["name"], transition.name);
        EXPECT_EQ(entry["takes"].contains("yuv"), transition.yuv != nullptr);
        EXPECT_EQ(entry["takes"].contains("rgb"), transition.rgb != nullptr);
    }
    Program(command + (folder / "2.html"));
    EXPECT_TRUE(page == Read(folder / "2.html")) << "differs when it is made again";
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path), {}), 2) << "left-over files";
}

// ---------------------------------------------------------------------------------------------
// In the browser
// ---------------------------------------------------------------------------------------------

class GalleryPage : public testing::Test {
protected:
    void SetUp() override {
        if (!Browser::IsThere())
            GTEST_SKIP() << "chromium, chromedriver or curl is not installed";
        for (int i = 0; i < 2; ++i)
            Write(folder / kClips[i], "P6 96 64 255\n" + pixels[i]);
    }

    /// A page of noise in every pixel, which nothing can be mistaken for.
    std::string MakePage(const std::string &options) {
        const Outcome outcome =
            Shell(Text("cd ", folder.path, " && " TP_PROGRAM " gallery \"", kClips[0], "\" \"",
                       kClips[1], "\" --cell 96 -o g.html ", options));
        EXPECT_EQ(outcome.status, 0) << outcome.output;
        return folder / "g.html";
    }

    /// The pixels of a transition's picture in the grid, at a step that the slider is moved to.
    static std::string Shown(Browser &browser, const std::string &name, const std::string &choice,
                             int step) {
        browser.Run("const s = document.getElementById('slider'); s.value = arguments[0];"
                    "s.dispatchEvent(new Event('input'));",
                    {step});
        const std::string canvas =
            Text("document.querySelector('[data-name=\"", name, "\"] canvas')");
        EXPECT_TRUE(browser.Becomes(Text(canvas, ".dataset.shown === '", choice, " ", step, "'")))
            << name << " " << choice << " " << step;
        const json values = browser.Run(Text(
            "const c = ", canvas,
            "; return Array.from(c.getContext('2d').getImageData(0, 0, c.width, c.height).data)"
            ".filter((v, i) => i % 4 < 3).map(v => v.toString(16).padStart(2, '0')).join('')"));
        const std::string hex = values.get<std::string>();
        std::string bytes;
        for (std::size_t i = 0; i < hex.size(); i += 2)
            bytes += char(std::stoi(hex.substr(i, 2), nullptr, 16));
        return bytes;
    }

    const Folder folder;
    const std::string kClips[2] = {"a's <!--<script>.ppm", "b & \\.ppm"};
    const std::string pixels[2] = {Noise(kWidth * kHeight * 3, 1), Noise(kWidth *kHeight * 3, 2)};
};

/// Between RGB of full range and planes of limited range, in the matrix of small pictures, by
/// FFmpeg.
std::string Converted(const Folder &folder, const std::string &bytes, bool toPlanes) {
    Write(folder / "in.raw", bytes);
    Must("ffmpeg -v error -y -f rawvideo -s 96x64 -pix_fmt ", toPlanes ? "rgb24" : "yuv420p",
         " -i ", folder / "in.raw",
         " -vf scale=flags=bicubic+accurate_rnd+full_chroma_int+full_chroma_inp:",
         toPlanes ? "in_range=full:out_range=limited:out_color_matrix=smpte170m,format=yuv420p"
                  : "in_range=limited:out_range=full:in_color_matrix=smpte170m,format=rgb24",
         " -f rawvideo ", folder / "out.raw");
    return Read(folder / "out.raw");
}

Frame Packed(const std::string &rgb) {
    Frame frame(Path::Rgb, kWidth, kHeight);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
            for (int i = 0; i < 4; ++i)
                frame.Row(0, y)[x * 4 + i] =
                    i == 3 ? 255 : std::uint8_t(rgb[(y * kWidth + x) * 3 + 2 - i]);
    return frame;
}

std::string Rgb(const Frame &packed) {
    std::string rgb;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
            for (int i = 2; i >= 0; --i)
                rgb += char(packed.Row(0, y)[x * 4 + i]);
    return rgb;
}

Frame Planar(const std::string &planes) {
    Frame frame(Path::Yuv, kWidth, kHeight);
    std::copy(planes.begin(), planes.end(), frame.Bytes().begin());
    return frame;
}

TEST_F(GalleryPage, ShowsThePluginsOwnFrames) {
    constexpr int kSteps = 6;
    const std::vector<std::string> names = {"Bar", "Roll_right_top", "Wind", "Flash", "TrCirque"};
    std::string options = "--lossless --steps 6 --seed 7";
    for (const std::string &name : names)
        options += " -t " + name;
    const std::string page = MakePage(options);
    Browser browser(1280, 1400);
    browser.Open(page);
    for (const Path path : {Path::Yuv, Path::Rgb}) {
        browser.Click(path == Path::Yuv ? "input[value=yuv]" : "input[value=rgb]");
        std::vector<Frame> in;
        for (const std::string &picture : pixels)
            in.push_back(path == Path::Rgb ? Packed(picture)
                                           : Planar(Converted(folder, picture, true)));
        for (const bool reverse : {false, true}) {
            browser.Run("document.getElementById('reversed').checked !== arguments[0] && "
                        "document.getElementById('reversed').click()",
                        {reverse});
            const std::string choice =
                Text(path == Path::Yuv ? "yuv" : "rgb", reverse ? " reversed" : " forward");
            for (const std::string &name : names)
                for (int step = 0; step < kSteps; ++step) {
                    Frame out(path, kWidth, kHeight);
                    Draw(*TestedPlugin().Find(name), {nullptr, reverse, 7},
                         hostkit::MomentOf(step, kSteps), out, in[0], in[1]);
                    std::string expected;
                    if (path == Path::Rgb)
                        expected = Rgb(out);
                    else
                        expected = Converted(
                            folder, std::string(out.Bytes().begin(), out.Bytes().end()), false);
                    EXPECT_TRUE(Shown(browser, name, choice, step) == expected)
                        << name << " " << choice << " " << step;
                }
        }
    }
}

} // namespace
