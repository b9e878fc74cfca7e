// What the program has to choose by: the gallery, in a browser where there is one, moving sheets
// and previews.

#include "Browser.h"
#include "Draw.h"
#include "Shell.h"
#include "Support.h"

#include <algorithm>
#include <cmath>

namespace {

namespace fs = std::filesystem;
using hostkit::Frame;
using hostkit::Path;
using nlohmann::json;

constexpr int kWidth = 96, kHeight = 64;

// Keys as the driver's protocol names them.
const std::string kBackspace = "\uE003", kControl = "\uE009", kEscape = "\uE00C", kEnd = "\uE010",
                  kRight = "\uE014";

TEST(Gallery, AnswersWithTheRightWordsAndStatus) {
    const std::vector<Answer> answers = {
        {"-o page.pdf", "page.pdf: a gallery is written as .html\n"},
        {"a.png", "give two clips or pictures, or none for the built-in ones\n"},
        {"no.mp4 no.mp4", "no.mp4: there is no such file"},
        {"--steps 100", "--steps 100 of 180 rows are too many; at most 91 are"},
        {"--steps 1", "--steps: give a number from 2 to 200, not 1", 2},
        {"-t TrDropShift --path rgb", "\"TrDropShift\" has no rgb path"},
        {"--lossless --quality 80", "excludes", 2},
        {"--lossless --limit 80", "excludes", 2},
        {"-t Push -o /nowhere/a.html", "/nowhere/a.html: there is no folder /nowhere"},
    };
    ExpectAnswers(TP_PROGRAM " gallery", answers);
}

TEST(Gallery, IsOneFileOfAllTransitions) {
    const WorkingFolder folder;
    // The program's own, by another way, which commands for the user must keep.
    const std::string plugin =
        Text(TestedPlugin().File().parent_path().string(), "/./libtp_Erase.so");
    const std::string command = Text(TP_PROGRAM " --plugin ", plugin,
                                     " gallery --cell 64 --size 64x36 --steps 5 --seed 7 -o ");
    Output(command, "g.html");
    const std::string page = Read("g.html");
    EXPECT_EQ(page.find("://"), std::string::npos);
    const std::string start = R"(<script type="application/json" id="data">)";
    const std::size_t begin = page.find(start) + start.size();
    const json data = json::parse(page.substr(begin, page.find("</script>", begin) - begin));
    ASSERT_EQ(data["transitions"].size(), TestedPlugin().Transitions().size());
    for (std::size_t i = 0; i < data["transitions"].size(); ++i) {
        const hostkit::Transition &transition = TestedPlugin().Transitions()[i];
        const json &entry = data["transitions"][i];
        EXPECT_EQ(entry["name"], transition.name);
        std::string name = transition.name, film = hostkit::Stem(name) + ".mp4";
        if (name.find(' ') != std::string::npos) {
            name = "'" + name + "'";
            std::ranges::replace(film, '_', '-');
        }
        EXPECT_EQ(entry["command"],
                  Text("transitions --plugin ", plugin, " render -t ", name,
                       " day.png dusk.png -o ", film, transition.info.random ? " --seed 7" : ""));
        EXPECT_EQ(entry["takes"].contains("yuv"), transition.yuv != nullptr);
        EXPECT_EQ(entry["takes"].contains("rgb"), transition.rgb != nullptr);
    }
    Output(command, "2.html");
    EXPECT_TRUE(page == Read("2.html")) << "differs when it is made again";
    EXPECT_EQ(std::distance(fs::directory_iterator("."), {}), 2) << "left-over files";
}

TEST(Gallery, GivesUpQualityForItsLimit) {
    const WorkingFolder folder;
    for (const int i : {0, 1})
        Write(Text(i, ".ppm"), "P6 96 64 255\n" + RandomBytes(kWidth * kHeight * 3, i));
    const auto make = [](const auto &...options) {
        return Output(TP_PROGRAM " gallery -t Push -t Wind -t Bar -t Flash -t Roll --steps 8 "
                                 "0.ppm 1.ppm -o g.html ",
                      options...);
    };
    std::vector<std::string> pages; // by falling quality
    for (const int quality : {60, 45, 30, 15, 0}) {
        make("--cell 96 --quality ", quality);
        pages.push_back(Read("g.html"));
    }
    for (std::size_t i = 0; i + 1 < pages.size(); ++i) {
        ASSERT_GT(pages[i].size(), pages[i + 1].size() + 2000);
        // Just enough for the one and too little for the one before.
        const std::string said = make("--cell 96 --limit ", double(pages[i].size()) / 1e6);
        EXPECT_TRUE(Read("g.html") == pages[i]) << i << "\n" << said;
        EXPECT_TRUE(said.ends_with(" MB\n")) << said;
    }
    const std::string said = make("--cell 400 --limit 0.1");
    EXPECT_TRUE(said.ends_with(", more than 0.1 MB: fewer --steps or a smaller --cell take less\n"))
        << said;
}

const std::string kClips[2] = {"a's <!--<script>.ppm", "b & \\.ppm"};
constexpr int kSteps = 6;

class GalleryPage : public testing::Test {
protected:
    void SetUp() override {
        if (!Browser::IsThere())
            GTEST_SKIP() << "chromium, chromedriver or curl is not installed";
        for (int i = 0; i < 2; ++i)
            Write(kClips[i], "P6 96 64 255\n" + RandomBytes(kWidth * kHeight * 3, i));
    }

    /// A page of noise in every pixel, which nothing can be mistaken for.
    std::string MakePage(const std::string &options) {
        Output(TP_PROGRAM " gallery \"", kClips[0], "\" \"", kClips[1], "\" --cell 96 -o g.html ",
               options);
        return folder / "g.html";
    }

    const WorkingFolder folder;
};

/// The pixels of a transition's picture in the grid, at a step that the slider is moved to, in
/// red, green, blue and alpha.
std::string Shown(Browser &browser, const std::string &name, const std::string &choice, int step) {
    browser.Run("const s = document.getElementById('slider'); s.value = arguments[0];"
                "s.dispatchEvent(new Event('input'));",
                {step});
    const std::string canvas = Text("document.querySelector('[data-name=\"", name, "\"] canvas')");
    EXPECT_TRUE(browser.Becomes(Text(canvas, ".dataset.shown === '", choice, " ", step, "'")))
        << name << " " << choice << " " << step;
    const json values = browser.Run(
        Text("const c = ", canvas,
             "; return Array.from(c.getContext('2d').getImageData(0, 0, c.width, c.height).data)"
             ".map(v => v.toString(16).padStart(2, '0')).join('')"));
    const std::string hex = values.get<std::string>();
    std::string bytes;
    for (std::size_t i = 0; i < hex.size(); i += 2)
        bytes += char(std::stoi(hex.substr(i, 2), nullptr, 16));
    return bytes;
}

/// Between RGBA of full range and planes of limited range, in the matrix of small pictures, by
/// FFmpeg.
std::string Converted(const std::string &bytes, bool toPlanes) {
    Write("in.raw", bytes);
    Must("ffmpeg -v error -y -f rawvideo -s 96x64 -pix_fmt ", toPlanes ? "rgba" : "yuv420p",
         " -i in.raw -vf scale=flags=bicubic+accurate_rnd+full_chroma_int+full_chroma_inp:",
         toPlanes ? "in_range=full:out_range=limited:out_color_matrix=smpte170m,format=yuv420p"
                  : "in_range=limited:out_range=full:in_color_matrix=smpte170m,format=rgba",
         " -f rawvideo out.raw");
    return Read("out.raw");
}

/// RGBA as BGRA, or back.
std::string Swapped(std::string pixels) {
    for (std::size_t i = 0; i < pixels.size(); i += 4)
        std::swap(pixels[i], pixels[i + 2]);
    return pixels;
}

/// A frame of a picture's bytes, plane by plane and the top row first.
Frame FrameOf(Path path, const std::string &bytes) {
    Frame frame(path, kWidth, kHeight);
    auto next = bytes.begin();
    for (int plane = 0; plane < frame.Planes(); ++plane)
        for (int y = 0; y < frame.Rows(plane); ++y, next += frame.RowBytes(plane))
            std::copy_n(next, frame.RowBytes(plane), frame.Row(plane, y));
    return frame;
}

std::string BytesOf(const Frame &frame) {
    std::string bytes;
    for (int plane = 0; plane < frame.Planes(); ++plane)
        for (int y = 0; y < frame.Rows(plane); ++y)
            bytes.append(frame.Row(plane, y), frame.Row(plane, y) + frame.RowBytes(plane));
    return bytes;
}

/// How far the page's pictures are from the plug-in's, as PSNR in decibels, for each transition.
/// Everything that the page can show of them is looked at.
std::vector<double> Distances(Browser &browser, const std::vector<std::string> &names,
                              const std::vector<Path> &paths) {
    std::vector<double> squares(names.size()), result;
    double count = 0;
    for (const Path path : paths) {
        const std::string word = path == Path::Yuv ? "yuv" : "rgb";
        browser.Click("input[value=" + word + "]");
        std::vector<Frame> in;
        for (const std::string &clip : kClips) {
            const std::string picture = Decode("\"" + clip + "\"").frames.at(0);
            in.push_back(
                FrameOf(path, path == Path::Rgb ? Swapped(picture) : Converted(picture, true)));
        }
        for (const bool reverse : {false, true}) {
            browser.Run("document.getElementById('reversed').checked !== arguments[0] && "
                        "document.getElementById('reversed').click()",
                        {reverse});
            for (std::size_t i = 0; i < names.size(); ++i)
                for (int step = 0; step < kSteps; ++step) {
                    Frame out(path, kWidth, kHeight);
                    Draw(*TestedPlugin().Find(names[i]), {nullptr, reverse, 7},
                         hostkit::MomentOf(step, kSteps), out, in[0], in[1]);
                    const std::string expected =
                        path == Path::Rgb ? Swapped(BytesOf(out)) : Converted(BytesOf(out), false);
                    const std::string shown =
                        Shown(browser, names[i], word + (reverse ? " reversed" : " forward"), step);
                    for (std::size_t at = 0; at < expected.size(); ++at)
                        squares[i] +=
                            std::pow(std::uint8_t(shown.at(at)) - std::uint8_t(expected[at]), 2);
                    count += double(expected.size()) / 4 * 3;
                }
        }
    }
    for (const double sum : squares)
        result.push_back(10 * std::log10(255.0 * 255 * count / double(names.size()) / sum));
    return result;
}

TEST_F(GalleryPage, ShowsThePluginsOwnFrames) {
    const std::vector<std::string> names = {"Bar",   "Roll_right_top", "Wind",
                                            "Flash", "TrCirque",       "DoorWay"};
    std::string options = "--steps 6 --seed 7";
    for (const std::string &name : names)
        options += " -t " + name;
    Browser browser(1280, 1400);
    browser.Open(MakePage(options + " --lossless"));
    for (const double decibels : Distances(browser, names, {Path::Yuv, Path::Rgb}))
        EXPECT_EQ(decibels, INFINITY);
    Must(TP_PROGRAM " pictures day.png dusk.png");
    for (int i = 0; i < 2; ++i)
        Must("ffmpeg -v error -y -i ", i ? "dusk.png" : "day.png",
             " -vf scale=96:64 -pix_fmt rgb24 \"", kClips[i], "\"");
    browser.Open(MakePage(options + " --path rgb"));
    // Pictures so small are nothing but edges: larger ones come to 28 dB.
    for (const double decibels : Distances(browser, names, {Path::Rgb}))
        EXPECT_GT(decibels, 25);
}

TEST_F(GalleryPage, AnswersToPointerKeysAndWords) {
    const std::string page = MakePage("--steps 5");
    Browser browser(1280, 1000);
    browser.Open(page);
    const auto shows = [&](const std::string &name, const std::string &what) {
        return browser.Becomes(Text("document.querySelector('[data-name=", name,
                                    "] canvas').dataset.shown === '", what, "'"));
    };
    const auto listed = [&] {
        return browser
            .Run("return [...document.querySelectorAll('.card:not([hidden])')]"
                 ".map(card => card.dataset.name)")
            .get<std::vector<std::string>>();
    };
    std::vector<std::string> pageTurns, packed;
    for (const hostkit::Transition &transition : TestedPlugin().Transitions()) {
        if (transition.info.kind == hostkit::Kind::PageTurn)
            pageTurns.push_back(transition.name);
        if (transition.rgb)
            packed.push_back(transition.name);
    }
    const auto textOf = [&](const std::string &id) {
        return browser.Run(Text("return document.getElementById('", id, "').textContent"))
            .get<std::string>();
    };

    // The one under the pointer plays, the others wait where the slider is.
    EXPECT_TRUE(shows("Erase", "yuv forward 2"));
    browser.Hover("[data-name=Erase] .open");
    EXPECT_TRUE(shows("Erase", "yuv forward 4"));
    EXPECT_TRUE(shows("Bar", "yuv forward 2"));
    browser.Hover("#count");
    EXPECT_TRUE(shows("Erase", "yuv forward 2"));
    browser.Click("#play");
    EXPECT_TRUE(shows("Bar", "yuv forward 4"));
    EXPECT_TRUE(browser.Becomes("document.getElementById('slider').value === '0'"));
    browser.Click("#play");
    EXPECT_TRUE(browser.Becomes("document.getElementById('play').textContent === 'Play all'"));
    browser.Run("document.getElementById('slider').focus()");
    browser.Press({kEnd});
    EXPECT_TRUE(shows("Erase", "yuv forward 4"));
    EXPECT_EQ(textOf("position"), "100 %");

    browser.Click("#word");
    browser.Press({"s", "h", "a", "d", "o", "w"});
    EXPECT_EQ(listed(), std::vector<std::string>{"Roll_right_top"});
    browser.Press({kControl, "a"});
    browser.Press({kBackspace});
    browser.Click("input[value='page turn']");
    EXPECT_EQ(listed(), pageTurns);
    browser.Click("input[name=kinds][value='']");
    browser.Click("input[value=rgb]");
    EXPECT_EQ(listed(), packed);
    EXPECT_EQ(textOf("count"), "25 of 28 transitions; 3 without the rgb path");

    browser.Click("[data-name=Erase] .open");
    EXPECT_TRUE(textOf("large-title").starts_with("Erase "));
    browser.Press({kRight});
    EXPECT_TRUE(textOf("large-title").starts_with("Erase slide "));
    browser.Press({kEscape});
    EXPECT_TRUE(browser.Becomes("!document.getElementById('large').open && document.activeElement "
                                "=== document.querySelector('[data-name=Erase_slide] .open')"));

    // The middle of the time is a quarter of the way.
    browser.Run("const e = document.getElementById('easing'); e.value = 'in';"
                "e.dispatchEvent(new Event('change'));"
                "const s = document.getElementById('slider'); s.value = 2;"
                "s.dispatchEvent(new Event('input'));");
    browser.Hover("#count");
    EXPECT_TRUE(shows("Bar", "rgb forward 1"));
    browser.Click("[data-name=Push] .copy");
    browser.Click("#word");
    browser.Press({kControl, "v"});
    const std::string command =
        browser.Run("return document.getElementById('word').value").get<std::string>();
    EXPECT_TRUE(command.ends_with(" -o push.mp4 --path rgb --ease in")) << command;
    Output("PATH=$(dirname " TP_PROGRAM "):$PATH; ", command);
    EXPECT_EQ(Probe("push.mp4", "nb_read_frames"), "125,");
}

TEST_F(GalleryPage, KeepsStillForThoseWhoAskForIt) {
    const std::string page = MakePage("--steps 5 -t Erase -t Bar");
    Browser browser(1280, 1000, {"--force-prefers-reduced-motion"});
    browser.Open(page);
    EXPECT_TRUE(browser.Becomes("views[0].canvas.dataset.shown"));
    browser.Hover("[data-name=Erase] .open");
    EXPECT_EQ(browser.Run("return views.every(view => view.since === null)"), true);
    browser.Click("[data-name=Erase] .open");
    EXPECT_EQ(browser.Run("return large.since"), nullptr);
    browser.Press({" "}); // on the button that plays
    EXPECT_EQ(browser.Run("return large.since !== null"), true);
}

TEST(MovingSheet, RunsFromAToBAndRestsAtTheEnds) {
    const WorkingFolder folder;
    for (const char *colour : {"red", "blue"})
        Must("ffmpeg -v error -f lavfi -i color=", colour, ":s=96x64 -frames:v 1 ", colour, ".png");
    const std::string sheet = TP_PROGRAM " sheet -t Push --path rgb --columns 5 --cell 96 --plain "
                                         "red.png blue.png -o ";
    for (const char *file : {"s.gif", "s.apng"}) {
        Output(sheet, file);
        const Film film = Decode(file);
        ASSERT_EQ(film.frames.size(), 27u);
        ASSERT_TRUE(film.width == 96 && film.height == 64);
        for (int frame = 0; frame < 27; ++frame) // an even push: a quarter more with each frame
            for (const int x : {12, 36, 60, 84}) {
                const int step = std::clamp(frame - 11, 0, 4);
                EXPECT_NEAR(film.Pixel(frame, x, 32)[2], x < 24 * step ? 255 : 0, 8)
                    << file << frame << " " << x;
            }
    }
    Output(sheet, "s.webp");
    const std::string webp = Read("s.webp"), loops = webp.substr(webp.find("ANIM") + 12, 2);
    int frames = 0;
    for (std::size_t at = 0; (at = webp.find("ANMF", at)) != std::string::npos; ++at)
        ++frames;
    EXPECT_EQ(frames, 5) << "equal frames are one";
    EXPECT_EQ(loops, std::string(2, '\0')) << "for ever";
}

class Preview : public testing::Test {
protected:
    void SetUp() override {
        for (int clip = 0; clip < 3; ++clip) {
            Pictures pictures;
            for (int i = 0; i < 50; ++i)
                pictures.push_back(
                    RandomBytes(PlanarSize(kWidth, kHeight), std::uint64_t(clip * 50 + i) << 32));
            Write(Text(clip, ".y4m"), Y4m(pictures, "W96 H64 F25:1 Ip A1:1 C420jpeg"));
        }
    }
    const WorkingFolder folder;
};

TEST_F(Preview, ShowsWhatRenderMakesAroundEachJoint) {
    const std::string joints = " 0.y4m 1.y4m 2.y4m -q -t any --seed 3 -d 10f --size 96x64 -o ";
    Must(TP_PROGRAM " render", joints, "all.y4m");
    Must(TP_PROGRAM " preview --around 5f", joints, "near.y4m");
    const Pictures all = FramesOf(Read("all.y4m"));
    ASSERT_EQ(all.size(), 130u);
    Pictures expected;
    for (const int overlap : {40, 80}) // where they begin: 50 - 10, and as much later
        expected.insert(expected.end(), all.begin() + overlap - 5, all.begin() + overlap + 15);
    EXPECT_TRUE(FramesOf(Read("near.y4m")) == expected);
    Must(TP_PROGRAM " preview --around 30f", joints, "wide.y4m");
    EXPECT_EQ(FramesOf(Read("wide.y4m")).size(), 40u + 50 + 40 - 20) << "no more than there is";
    Must(TP_PROGRAM " preview -q -t cut -t Push --around 5f -d 10f 0.y4m 1.y4m 2.y4m -o cut.y4m");
    EXPECT_EQ(FramesOf(Read("cut.y4m")).size(), 5u + 5 + 5 + 10 + 5);
    Must("ffmpeg -v error -i 2.y4m -frames:v 1 still.png && " TP_PROGRAM
         " preview -q -t Push -d 10f "
         "--around 5f --still 40f 0.y4m still.png 1.y4m -o still.y4m");
    EXPECT_EQ(FramesOf(Read("still.y4m")).size(), 15u + 15 - 10 + 15 + 15 - 10);
    EXPECT_EQ(Program("preview - 0.y4m -t Push -o p.mkv < 1.y4m").output,
              "transitions: standard input: a preview needs clips whose end is known\n");
    // Wide pixels are made square, and large pictures small.
    for (const auto &[filter, shape] :
         {std::pair("setsar=2", "192,64,1:1,"), {"scale=1280:64,setsar=2", "640,16,1:1,"}}) {
        Must("ffmpeg -v fatal -y -i 0.y4m -vf ", filter, " flat.y4m");
        Must(TP_PROGRAM " preview -q -t Push --around 4f flat.y4m 1.y4m -o square.mkv");
        EXPECT_EQ(Probe("square.mkv", "width,height,sample_aspect_ratio"), shape);
    }
}

TEST_F(Preview, GoesToThePlayerThatIsThere) {
    fs::create_directories("bin");
    fs::create_directories("tmp");
    const std::string command =
        "PATH=bin TMPDIR=tmp " TP_PROGRAM " preview -q -t Push --around 4f 0.y4m 1.y4m 2.y4m";
    EXPECT_EQ(Shell(command).output, "transitions: there is no player to show the preview, neither "
                                     "mpv nor ffplay; install one, or give -o FILE\n");
    for (const char *player : {"ffplay", "mpv"}) {
        const std::string file = Text("bin/", player), shown = Text(player, ".mkv");
        Write(file, "#!/bin/sh\nfor last; do :; done\n/bin/cp $last " + shown + "\n");
        fs::permissions(file, fs::perms::owner_all);
        Must(command);
        EXPECT_EQ(Probe(shown, "codec_name,width,height,nb_read_frames"),
                  "h264,96,64,58,"); // 29 + 50 + 29 - 25 - 25
    }
    Write("bin/mpv", "#!/bin/sh\nexit 3\n");
    EXPECT_EQ(Shell(command).output,
              "transitions: mpv could not show the preview; -o FILE writes it instead\n");
    EXPECT_TRUE(fs::is_empty("tmp"));
}

} // namespace
