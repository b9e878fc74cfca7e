// The module in the real engine: melt renders mixes of two clips, and every frame must be what a
// direct call of the plug-in draws from the clips' frames.

#include "Draw.h"
#include "Services.h"
#include "Shell.h"
#include "Support.h"

#include <framework/mlt.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <functional>
#include <memory>
#include <regex>
#include <sstream>
#include <vector>

namespace {

using hostkit::Frame;
using hostkit::Moment;
using hostkit::Motion;
using hostkit::Path;
using hostkit::Transition;

constexpr int kFrames = 5;

/// A folder of the module and of those of the engine's that the tests need: the engine's others
/// take their time and talk.
const std::string &Repository() {
    static const Folder folder;
    static const std::string path = [] {
        std::string modules = folder / "mlt-7";
        std::filesystem::create_directory(modules);
        for (const char *name :
             {"libmltcore.so", "libmltavformat.so", "libmltxml.so", "libmlttp_erase.so"})
            std::filesystem::create_symlink(Text(TP_MLT_REPOSITORY "/", name),
                                            Text(modules, '/', name));
        // The module looks for its libraries beside its folder.
        std::filesystem::create_symlink(TP_MLT_REPOSITORY "/../bin", folder / "bin");
        return modules;
    }();
    return path;
}

/// Now and then, with its own transitions too, melt 7.12 waits for ever or ends without a picture:
/// its consumer's thread looks whether it is to run, which is said only once the thread was made.
/// Then melt is run again. `written` is the consumer's file.
Outcome Melt(const std::string &arguments, const std::string &written = "",
             const std::string &environment = "") {
    constexpr int kTimedOut = 124;
    Outcome outcome;
    for (int attempt = 0; attempt < 3; ++attempt) {
        outcome = Shell(environment + " MLT_REPOSITORY=" + Repository() +
                        " timeout 100 env " TP_MELT_ENVIRONMENT " melt -silent " + arguments);
        const bool isUnstarted = outcome.status == 0 && !written.empty() && Read(written).empty();
        if (outcome.status != kTimedOut && !isUnstarted)
            break;
    }
    return outcome;
}

/// A layout of pictures, and the parameter `path` of the services that draw them.
struct Form {
    std::string format; ///< of the clips and of what melt writes: yuv420p, yuv422 or rgba
    std::string path;   ///< empty when the service decides
    int width, height;
    bool isInterlaced = false;
    bool isOddFirst = false; ///< of its fields

    bool IsRgba() const { return format == "rgba"; }
    std::size_t FrameSize() const {
        return std::size_t(width) * height * (IsRgba() ? 8 : format == "yuv422" ? 4 : 3) / 2;
    }
    /// FFmpeg's name of the format.
    std::string Raw() const { return format == "yuv422" ? "yuyv422" : format; }
    std::string Coded() const {
        return IsRgba() ? "bgr0" : format == "yuv422" ? "yuv422p" : format;
    }
};

std::ostream &operator<<(std::ostream &out, const Form &form) {
    return out << form.format << ' ' << form.path << ' ' << form.width << " x " << form.height;
}

/// Two clips, and melt's profile of their size.
class Clips {
public:
    /// Of noise; or each of a still picture that FFmpeg makes by a filter graph.
    explicit Clips(const Form &f, const std::array<std::string, 2> &stills = {}) : form(f) {
        Write(folder / "profile", MeltProfile(form.width, form.height, form.isInterlaced));
        for (int clip = 0; clip < 2; ++clip) {
            frames[clip] = Noise(clip);
            Write(folder / "raw", frames[clip]);
            if (stills[clip].empty())
                Must("ffmpeg -v error -f rawvideo -pix_fmt ", form.Raw(), " -s ", form.width, "x",
                     form.height, " -r 25 -i ", folder / "raw", " -c:v ffv1 -pix_fmt ",
                     form.Coded(), " ", File(clip));
            else
                Must("ffmpeg -v error -f lavfi -i \"", stills[clip],
                     ",trim=end_frame=1,loop=4:1:0,setpts=N\" -r 25 -c:v ffv1 ", File(clip));
        }
    }

    std::string File(int clip) const { return folder / (clip ? "b.mkv" : "a.mkv"); }
    /// The engine is kept from fitting the clip's size and colours, which costs precision.
    std::string Name(int clip) const { return "abnormal:avformat:" + File(clip); }
    std::uint8_t *Frame(int clip, int frame) {
        return reinterpret_cast<std::uint8_t *>(&frames[clip][frame * form.FrameSize()]);
    }

    /// The pictures of a melt command, without loss.
    std::string Render(const std::string &timeline, const std::string &threads) const {
        const std::string file = folder / "out.raw";
        const Outcome outcome =
            Melt(Text("-profile ", folder / "profile", " ", timeline, " -consumer avformat:", file,
                      " f=rawvideo vcodec=rawvideo an=1 top_field_first=", int(!form.isOddFirst),
                      " mlt_image_format=", form.format, " pix_fmt=", form.Raw(), " ", threads),
                 file);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.output, "");
        return Read(file);
    }

    const Form form;
    const Folder folder;

private:
    std::string Noise(int clip) const {
        std::string noise = RandomBytes(form.FrameSize() * kFrames, clip);
        for (std::size_t i = 3; form.IsRgba() && i < noise.size(); i += 4)
            noise[i] = '\xff';
        return noise;
    }

    std::string frames[2];
};

/// What melt writes of a picture: it takes the chroma planes from where the engine's library says
/// they are, which is not where they are in all versions.
std::string Written(const Form &form, const std::string &picture) {
    if (form.format != "yuv420p")
        return picture;
    std::string padded = picture + picture, written;
    std::uint8_t *planes[4];
    int strides[4];
    mlt_image_format_planes(mlt_image_yuv420p, form.width, form.height, padded.data(), planes,
                            strides);
    for (int plane = 0; plane < 3; ++plane)
        written.append(reinterpret_cast<char *>(planes[plane]),
                       std::size_t(form.width) * form.height / (plane ? 4 : 1));
    return written;
}

/// Two pictures and the one between them, byte by byte.
struct Pictures {
    const Form &form;
    std::array<const std::uint8_t *, 2> in;
    std::string out;
    const Transition &transition;
    const Motion &motion;
    int frame;

    using Place = std::function<std::size_t(int plane, int x, int y)>;

    /// Draws frames of the bytes at these places and sets the places that are asked for.
    void Draw(Path path, hostkit::Chroma chroma, const Moment &moment, const Place &place,
              const std::function<bool(int plane, int y)> &isKept) {
        Frame drawn(path, form.width, form.height, chroma);
        Frame from[] = {Frame(path, form.width, form.height, chroma),
                        Frame(path, form.width, form.height, chroma)};
        const auto each = [&](auto visit) {
            for (int plane = 0; plane < drawn.Planes(); ++plane)
                for (int y = 0; y < drawn.Rows(plane); ++y)
                    for (int x = 0; x < drawn.RowBytes(plane); ++x)
                        visit(plane, x, y, place(plane, x, y));
        };
        each([&](int plane, int x, int y, std::size_t at) {
            for (int i = 0; i < 2; ++i)
                from[i].Row(plane, y)[x] = in[i][at];
        });
        hostkit::Draw(transition, motion, moment, drawn, from[0], from[1]);
        each([&](int plane, int x, int y, std::size_t at) {
            // Chroma of full resolution is drawn for each pixel of a pair, and their mean is kept.
            const int sample = drawn.Row(plane, y)[x];
            const bool isSecond = plane && chroma == hostkit::Chroma::Full && x % 2;
            if (isKept(plane, y))
                out[at] = char(isSecond ? (std::uint8_t(out[at]) + sample + 1) / 2 : sample);
        });
    }
    Moment When() const { return hostkit::MomentOf(frame, kFrames); }
    /// Fields are at even steps, but both are whole in the first frame and in the last.
    Moment When(int field) const {
        return {std::clamp((2 * frame - 1 + field) / (2.0 * kFrames - 3), 0.0, 1.0), frame};
    }

    /// The even rows' chroma and the odd rows' are drawn by themselves, and so are fields, whose
    /// rows count twice.
    void DrawYuv422() {
        const bool isFull = transition.info.chroma == hostkit::Chroma::Full;
        const auto row = [&](int y, int half) { return form.isInterlaced ? y / 2 * 2 + half : y; };
        for (int half = 0; half < 2; ++half)
            Draw(
                Path::Yuv, transition.info.chroma,
                form.isInterlaced ? When(half != form.isOddFirst) : When(),
                [&](int plane, int x, int y) {
                    const int line = plane && !isFull ? 2 * y + half : row(y, half);
                    const int byte = !plane ? 2 * x : (isFull ? x / 2 : x) * 4 + 2 * plane - 1;
                    return std::size_t(line) * form.width * 2 + byte;
                },
                [&](int plane, int y) { return (plane && !isFull) || y % 2 == half; });
    }
    /// Red, green, blue and alpha one after the other, as luma.
    void DrawChannels() {
        for (int channel = 0; channel < 4; ++channel)
            Draw(
                Path::Yuv, hostkit::Chroma::Half, When(),
                [&](int plane, int x, int y) {
                    return plane ? 0 : (std::size_t(y) * form.width + x) * 4 + channel;
                },
                [](int plane, int) { return plane == 0; });
    }
    void DrawWhole(Path path) {
        const std::size_t luma = std::size_t(form.width) * form.height;
        Draw(
            path, hostkit::Chroma::Half, When(),
            [&](int plane, int x, int y) {
                return path == Path::Rgb ? std::size_t(y) * form.width * 4 + x
                       : plane           ? luma * (3 + plane) / 4 + y * (form.width / 2) + x
                                         : std::size_t(y) * form.width + x;
            },
            [](int, int) { return true; });
    }
};

/// One frame of a mix by direct calls.
std::string Drawn(const Form &form, const Transition &transition, const Motion &motion, int frame,
                  const std::uint8_t *a, const std::uint8_t *b) {
    Pictures pictures = {form,       {a, b}, std::string(form.FrameSize(), '\0'),
                         transition, motion, frame};
    const bool isSqueezed = !transition.rgb || transition.info.countsBytes;
    if (form.format == "yuv422")
        pictures.DrawYuv422();
    else if (form.IsRgba() && isSqueezed && form.path.empty())
        pictures.DrawChannels();
    else
        pictures.DrawWhole(form.IsRgba() ? Path::Rgb : Path::Yuv);
    return pictures.out;
}

struct Mix {
    const Transition *transition;
    std::string properties;
    Motion motion = {};
};

/// Renders the mixes one after the other and compares them frame by frame, with one thread and
/// with four.
void ExpectDirectCalls(const Form &form, const std::vector<Mix> &mixes) {
    Clips clips(form);
    std::string timeline, expected;
    for (const Mix &mix : mixes) {
        timeline += clips.Name(0) + " " + clips.Name(1) + " -mix " + std::to_string(kFrames) +
                    " -mixer " + mlt::ServiceName(*mix.transition) + " " + mix.properties + " ";
        for (int i = 0; i < kFrames; ++i)
            expected += Written(form, Drawn(form, *mix.transition, mix.motion, i, clips.Frame(0, i),
                                            clips.Frame(1, i)));
    }
    const std::string mixed = clips.Render(timeline, "real_time=-1");
    ASSERT_EQ(mixed.size(), expected.size());
    const std::size_t size = form.FrameSize();
    for (std::size_t i = 0; i < mixes.size() * kFrames; ++i)
        EXPECT_TRUE(mixed.compare(i * size, size, expected, i * size, size) == 0)
            << mixes[i / kFrames].transition->name << ' ' << mixes[i / kFrames].properties
            << " frame " << i % kFrames;
    for (std::size_t i = 3; form.IsRgba() && i < mixed.size(); i += 4)
        ASSERT_EQ(mixed[i], '\xff') << "transparent at byte " << i;
    EXPECT_TRUE(clips.Render(timeline, "real_time=-4") == mixed) << "with four threads";
}

class EveryService : public testing::TestWithParam<Form> {};

TEST_P(EveryService, DrawsWhatDirectCallsDraw) {
    const Form &form = GetParam();
    std::vector<Mix> mixes;
    for (const Transition &transition : TestedPlugin().Transitions())
        if (form.path != "rgb" || transition.rgb)
            mixes.push_back({&transition, form.path.empty() ? "" : "path=" + form.path});
    ASSERT_FALSE(mixes.empty());
    ExpectDirectCalls(form, mixes);
}

INSTANTIATE_TEST_SUITE_P(Mlt, EveryService,
                         testing::Values(Form{"yuv420p", "", 320, 180},
                                         Form{"yuv422", "", 320, 180},
                                         Form{"yuv422", "", 318, 180, true},
                                         Form{"rgba", "", 211, 123}, Form{"rgba", "rgb", 211, 123}),
                         [](const auto &info) {
                             return info.param.format + info.param.path + "At" +
                                    std::to_string(info.param.width);
                         });

TEST(Mlt, ObeysTheParameters) {
    const Transition &wipe = *TestedPlugin().Find("Linear Wipe");
    const Transition &wind = *TestedPlugin().Find("Wind");
    ExpectDirectCalls({"yuv420p", "", 320, 180},
                      {{&wipe, "reverse=1", {nullptr, true, 0}},
                       {&wipe, "backwards=1", {nullptr, true, 0}},
                       {&wipe, "ease=in", {hostkit::FindEasing("in"), false, 0}},
                       {&wind, "seed=7", {nullptr, false, 7}}});
    ExpectDirectCalls({"yuv422", "", 318, 180, true, true}, {{&wipe, ""}});
}

constexpr char kSmallProfile[] =
    "<profile width='64' height='48' frame_rate_num='25' frame_rate_den='1' progressive='1' "
    "sample_aspect_num='1' sample_aspect_den='1' display_aspect_num='4' display_aspect_den='3' "
    "colorspace='601'/>";

/// The pictures of a project at the size of kSmallProfile, in red, green, blue and alpha.
std::string PlayProject(const std::string &project, const std::string &says = "") {
    const Folder folder;
    std::ofstream(folder / "project.mlt") << "<mlt>" << kSmallProfile << project << "</mlt>";
    const std::string raw = folder / "out.raw";
    const Outcome outcome = Melt((folder / "project.mlt") + " -consumer avformat:" + raw +
                                     " f=rawvideo vcodec=rawvideo pix_fmt=rgba "
                                     "mlt_image_format=rgba an=1 real_time=-1",
                                 raw);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, says);
    return Read(raw);
}

std::string Property(const std::string &name, const std::string &value) {
    return Text("<property name='", name, "'>", value, "</property>");
}

/// A producer of one colour.
std::string Coloured(const std::string &colour, int frames) {
    return Text("<producer id='", colour, "' out='", frames - 1, "'>",
                Property("mlt_service", "color"), Property("resource", colour), "</producer>");
}

std::string TransitionFrom(int first, int last, const std::string &properties) {
    return Text("<transition in='", first, "' out='", last, "'>", Property("a_track", "0"),
                Property("b_track", "1"), properties, "</transition>");
}

// A clip on each of two tracks, and a transition from frame 10 to 14. At its first frame the
// outgoing clip shows, at its last the incoming one, forwards.
TEST(Mlt, GoesFromTheClipThatEnds) {
    const struct {
        const char *name;
        int lowerStart, lowerEnd, upperStart, upperEnd; ///< frames that show, the end after
        bool lowerGoes;
        bool isMix = false;    ///< Kdenlive's between neighbours of one track, which sets "reverse"
        bool isNested = false; ///< the upper track is made of two
    } kOrders[] = {
        {"lower ends", 0, 15, 10, 25, true, true},
        {"upper ends", 10, 25, 0, 15, false, true},
        {"upper lies over", 0, 25, 10, 20, true},
        {"upper ends over lower", 0, 25, 5, 15, false},
        {"lower begins under upper", 10, 25, 0, 25, false},
        {"upper is the overlap", 0, 25, 10, 15, true},
        {"both go on", 0, 25, 0, 25, true},
        {"both end", 0, 15, 0, 15, true},
        {"nested ends", 10, 25, 0, 15, false, false, true},
        {"nested begins", 0, 15, 10, 25, true, false, true},
    };
    const auto playlist = [](const char *id, const char *clip, int start, int end) {
        return Text("<playlist id='", id, "'>", start ? Text("<blank length='", start, "'/>") : "",
                    "<entry producer='", clip, "' in='0' out='", end - start - 1, "'/></playlist>");
    };
    for (const auto &order : kOrders)
        for (const char *reverse : {"0", "1"}) {
            if (!order.isMix && *reverse == '1')
                continue;
            SCOPED_TRACE(Text(order.name, ' ', reverse));
            const std::string pictures = PlayProject(
                Text(Coloured("red", 30), Coloured("blue", 30), "<playlist id='empty'/>",
                     playlist("lower", "red", order.lowerStart, order.lowerEnd),
                     playlist("upper", "blue", order.upperStart, order.upperEnd),
                     "<tractor id='nested'><track producer='empty'/><track producer='upper'/>"
                     "</tractor><tractor><track producer='lower'/><track producer='",
                     order.isNested ? "nested" : "upper", "'/>",
                     TransitionFrom(10, 14,
                                    Property("mlt_service", "tp_erase.erase_slide") +
                                        Property("reverse", reverse) +
                                        (order.isMix ? Property("kdenlive:mixcut", "1") : "")),
                     "</tractor>"));
            constexpr std::size_t kSize = 64 * 48 * 4;
            ASSERT_GE(pictures.size(), 15 * kSize);
            const auto isRed = [&](std::size_t frame, std::size_t x) {
                return std::uint8_t(pictures[frame * kSize + x * 4]) > 127;
            };
            EXPECT_EQ(isRed(10, 0), order.lowerGoes);
            EXPECT_EQ(isRed(14, 0), !order.lowerGoes);
            // Half-way the incoming clip has come in from the left.
            EXPECT_EQ(isRed(12, 8), !order.lowerGoes);
            EXPECT_EQ(isRed(12, 56), order.lowerGoes);
        }
}

TEST(Mlt, TellsOfValuesWithoutMeaning) {
    const struct {
        const char *name, *value, *right;
    } kCases[] = {{"ease", "wobbly",
                   "linear, smooth, in, out, in-out, in-cubic, out-cubic, in-out-cubic, back, "
                   "elastic, bounce"},
                  {"backwards", "2", "0 or 1"},
                  {"reverse", "yes", "0 or 1"},
                  {"seed", "abc", "a whole number"},
                  {"path", "foo", "auto, yuv, rgb"}};
    std::string set, says;
    for (const auto &[name, value, right] : kCases) {
        set += Property(name, value);
        says += Text("[transition tp_erase.push] ", name, "=", value, " is ignored: it takes ",
                     right, "\n");
    }
    const auto play = [](const std::string &properties, const std::string &expected) {
        return PlayProject(
            Coloured("red", 5) + Coloured("blue", 5) +
                "<tractor><track producer='red'/><track producer='blue'/>" +
                TransitionFrom(0, 4, Property("mlt_service", "tp_erase.push") + properties) +
                "</tractor>",
            expected);
    };
    EXPECT_EQ(play(set, says), play("", ""));
}

/// What editors build their panels from.
TEST(Mlt, AnswersQueries) {
    // From the folder for use without installing; without effects of other people, which melt would
    // load at its start and some of which hang under the address sanitizer.
    const Outcome list = Shell("LADSPA_PATH=/nowhere FREI0R_PATH=/nowhere "
                               "MLT_REPOSITORY=" TP_MLT_REPOSITORY " " TP_MELT_ENVIRONMENT
                               " melt -query transitions");
    for (const Transition &transition : TestedPlugin().Transitions())
        EXPECT_NE(list.output.find("- " + mlt::ServiceName(transition) + "\n"), std::string::npos)
            << transition.name;
    const std::string look =
        "- identifier: path title: Look widget: dropdown default: auto - auto - yuv - rgb ";
    const std::string seed =
        "- identifier: seed title: Seed widget: spinner default: 0 minimum: 0 ";
    for (const auto &[service, title, notes, others] :
         {std::array<std::string, 4>{"linear_wipe", "TP Linear wipe",
                                     "notes: The edge is 400 pixels deep at every frame size. ",
                                     look},
          {"wind", "TP Wind", "notes: \"The ragged edge flickers: every frame draws anew.\" ",
           look + seed},
          {"trcirque", "TP Rings", "", ""}})
        EXPECT_EQ(
            Melt(
                "-query transition=tp_erase." + service +
                " | grep -E '^(title|creator|copyright|notes)|^ +(- |title|widget|default|minimum)'"
                " | tr -s ' \\n' ' '")
                .output,
            Text("title: ", title,
                 " creator: The tp_Erase maintainers copyright: The tp_Erase maintainers "
                 "- Video ",
                 notes,
                 "- identifier: reverse title: Reverse widget: checkbox default: 0 "
                 "- identifier: backwards title: Backwards widget: checkbox default: 0 "
                 "- identifier: ease title: Easing widget: dropdown default: linear - linear - "
                 "smooth - in "
                 "- out - in-out - in-cubic - out-cubic - in-out-cubic - back - elastic "
                 "- bounce ",
                 others));
    // Projects keep what counts where the user has set nothing.
    std::string project =
        Melt("color:red out=5 color:blue out=5 -mix 3 -mixer tp_erase.wind -consumer xml").output;
    std::ranges::replace(project, '"', '\'');
    for (const auto &[name, value] :
         {std::pair("ease", "linear"), {"path", "auto"}, {"reverse", "0"}, {"seed", "0"}})
        EXPECT_NE(project.find(Property(name, value)), std::string::npos) << project;
}

// ---------------------------------------------------------------------------------------------
// Transparency
// ---------------------------------------------------------------------------------------------

/// Erase_slide half-way, from grey to a picture that is bright on the left and dark on the right:
/// the packed form uncovers it where it stands, the planar form slides it in, its right half first.
struct Still {
    static inline const Form kRgba = {"rgba", "", 64, 48}, kYuv = {"yuv422", "", 64, 48};

    static std::string Picture(int left, int right, const std::string &alpha) {
        const std::string grey = Text("'if(lt(X,32),", left, ",", right, ")'");
        return Text("nullsrc=s=64x48,format=bgra,geq=r=", grey, ":g=", grey, ":b=", grey,
                    ":a=", alpha);
    }
    /// The bytes of the middle frame.
    static std::string Half(const Form &form, const std::string &alphaOfA,
                            const std::string &alphaOfB,
                            const std::string &service = "erase_slide") {
        const Clips clips(form, {Picture(100, 100, alphaOfA), Picture(220, 20, alphaOfB)});
        const std::string all =
            clips.Render(clips.Name(0) + " " + clips.Name(1) + " -mix 5 -mixer tp_erase." + service,
                         "real_time=-1");
        return all.size() == 5 * form.FrameSize() ? all.substr(2 * form.FrameSize()) : "";
    }
    static std::array<int, 4> Pixel(const std::string &rgba, int x) {
        std::array<int, 4> pixel;
        for (int i = 0; i < 4; ++i)
            pixel[i] = static_cast<unsigned char>(rgba.at((24 * 64 + x) * 4 + i));
        return pixel;
    }
};

TEST(Mlt, KeepsTransparency) {
    const std::string half = Still::Half(Still::kRgba, "255", "128");
    EXPECT_EQ(Still::Pixel(half, 8), (std::array{220, 220, 220, 128}));
    EXPECT_EQ(Still::Pixel(half, 56), (std::array{100, 100, 100, 255}));
    // It moves with its pixels, to where both pictures are opaque too.
    const std::string pushed = Still::Half(Still::kRgba, "255", "'if(lt(X,32),255,128)'", "push");
    EXPECT_EQ(Still::Pixel(pushed, 8), (std::array{20, 20, 20, 128}));
}

TEST(Mlt, PlanarPicturesAreOpaque) {
    const std::string half = Still::Half(Still::kRgba, "0", "128", "erase_slide path=yuv");
    for (const int x : {8, 56})
        EXPECT_EQ(Still::Pixel(half, x)[3], 255) << x;
}

// Luma of limited range: 16 + 219 v / 255.
TEST(Mlt, DrawsTransparentClipsPackedWhateverTheEngineWants) {
    const struct {
        const char *alphaOfA, *alphaOfB;
        int luma; ///< at the left
    } kCases[] = {
        {"255", "255", 33},
        {"255", "254", 205},
        {"0", "255", 205},
        // Not the bars around a picture of another shape, which are two.
        {"255", "'if(lt(Y,12),0,255)'", 205},
        {"255", "'if(gt(X,51),0,255)'", 205},
    };
    for (const auto &[alphaOfA, alphaOfB, luma] : kCases) {
        const std::string half = Still::Half(Still::kYuv, alphaOfA, alphaOfB);
        ASSERT_FALSE(half.empty());
        EXPECT_NEAR(static_cast<unsigned char>(half[(24 * 64 + 8) * 2]), luma, 2)
            << alphaOfA << ' ' << alphaOfB;
    }
}

// ---------------------------------------------------------------------------------------------
// Clips of other shapes than the project's
// ---------------------------------------------------------------------------------------------

// Still clips, as the engine fits them to a project of 128 x 96 pixels: the mix's ends and the
// frames beside them, which the engine makes alone.
TEST(Mlt, EndsWithTheClipsOwnFrames) {
    const Form yuv = {"yuv422", "", 128, 96}, fields = {"yuv422", "", 128, 96, true};
    const struct {
        const char *name;
        std::array<std::string, 2> clips; ///< FFmpeg's filter graphs
        Form form;
    } kLayouts[] = {
        {"letterboxed",
         {"testsrc2=s=128x60,format=yuv420p", "smptehdbars=s=128x96,format=yuv420p"},
         yuv},
        {"tall", {"testsrc2=s=56x96,format=yuv420p", "smptehdbars=s=128x40,format=yuv420p"}, yuv},
        {"tall and transparent",
         {"color=red@0.5:s=56x96,format=bgra", "color=yellow@0.7:s=128x96,format=bgra"},
         {"rgba", "", 128, 96}},
        {"interlaced",
         {"testsrc2=s=128x96,tinterlace=interleave_top,format=yuv422p",
          "mandelbrot=s=128x96,tinterlace=interleave_top,format=yuv422p"},
         fields},
        {"4:2:2", {"testsrc2=s=128x96,format=yuv422p", "smptehdbars=s=128x96,format=yuv422p"}, yuv},
        {"large",
         {"testsrc2=s=256x192,format=yuv420p", "smptehdbars=s=256x192,format=yuv420p"},
         yuv},
    };
    const char *const services[] = {"erase_slide", "push", "trrect2", "trcirque"};
    for (const auto &[name, graphs, form] : kLayouts) {
        SCOPED_TRACE(name);
        const Clips clips(form, graphs);
        std::string timeline;
        for (const char *service : services)
            timeline += Text(clips.File(0), " in=0 out=3 ", clips.File(1),
                             " in=0 out=3 -mix 2 -mixer tp_erase.", service, " ");
        const std::string all = clips.Render(timeline, "real_time=-1");
        const std::size_t size = form.FrameSize(), frames = 6 * std::size(services);
        ASSERT_EQ(all.size(), frames * size);
        for (std::size_t i = 0; i < frames; ++i) {
            if (i % 6 != 1 && i % 6 != 3)
                continue;
            int difference = 0;
            for (std::size_t at = i * size; at < (i + 1) * size; ++at)
                difference = std::max(
                    difference, std::abs(std::uint8_t(all[at]) - std::uint8_t(all[at + size])));
            EXPECT_LE(difference, 2) << services[i / 6] << (i % 6 == 1 ? " begin" : " end");
        }
    }
}

// The engine neither scales yuv420p nor puts bars around it.
TEST(Mlt, DrawsClipsThatNeedBarsWhateverTheEngineWants) {
    const std::string still = "testsrc2=s=128x60,format=yuv420p";
    const Clips clips({"yuv420p", "", 128, 96}, {still, still});
    const std::string all = clips.Render(Text(clips.File(0), " in=0 out=3 ", clips.File(1),
                                              " in=0 out=3 -mix 2 -mixer tp_erase.push"),
                                         "real_time=-1");
    ASSERT_EQ(all.size(), 6 * clips.form.FrameSize());
    for (const int row : {5, 17, 78, 90})
        EXPECT_EQ(all[2 * clips.form.FrameSize() + row * 128 + 64], 16) << row;
}

// ---------------------------------------------------------------------------------------------
// Kdenlive
// ---------------------------------------------------------------------------------------------

/// Checks one file and returns the properties of a service whose every parameter is set.
std::string CheckKdenliveFile(const Transition &transition, const std::string &file) {
    const std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> document(
        xmlReadFile(file.c_str(), nullptr, XML_PARSE_NONET), xmlFreeDoc);
    EXPECT_TRUE(document) << file;
    const std::string text = Read(file), service = mlt::ServiceName(transition);
    for (const std::string &part :
         {"<transition tag=\"" + service + "\" id=\"" + service + "\" type=\"short\">",
          "<name>TP " + transition.info.title + "</name>", transition.info.motion,
          "<preview>" + service + ".webp</preview>"})
        EXPECT_NE(text.find(part), std::string::npos) << part;
    for (const char *ours : {"acked path", "lanar path"})
        EXPECT_EQ(text.find(ours), std::string::npos) << text;
    EXPECT_EQ(Read(TP_KDENLIVE_FOLDER "/previews/" + service + ".webp").substr(8, 4), "WEBP");
    // The last value of a list, or the highest number.
    const std::regex parameter("<parameter type=\"[a-z]+\" name=\"([a-z]+)\" default=\"[^\"]+\" "
                               "(min=\"0\" max=|paramlist=\"([^\"]*;)?)\"?([^\";]+)\">");
    std::string offered, properties;
    for (std::sregex_iterator match(text.begin(), text.end(), parameter), end; match != end;
         ++match) {
        offered += (*match)[1].str() + '=' + (*match)[4].str() + ' ';
        properties += Property((*match)[1], (*match)[4]);
    }
    const bool hasLooks = transition.yuv && transition.rgb && !transition.info.countsBytes;
    EXPECT_EQ(offered, Text("backwards=1 ease=bounce ", hasLooks ? "path=rgb " : "",
                            transition.info.random ? "seed=99999 " : ""));
    return properties;
}

// As in Kdenlive, whose project names the service and sets what the file offers: melt knows all of
// it and has nothing to say.
TEST(Mlt, KdenliveFilesAreXmlAndLoad) {
    std::string services;
    int start = 0;
    for (const Transition &transition : TestedPlugin().Transitions()) {
        SCOPED_TRACE(transition.name);
        const std::string service = mlt::ServiceName(transition);
        services += TransitionFrom(
            start, start + 1,
            Property("mlt_service", service) +
                CheckKdenliveFile(transition, TP_KDENLIVE_FOLDER "/" + service + ".xml"));
        start += 2;
    }
    const std::string pictures = PlayProject(
        Coloured("red", start) + Coloured("blue", start) +
        "<tractor><track producer='red'/><track producer='blue'/>" + services + "</tractor>");
    EXPECT_EQ(pictures.size(), std::size_t(start) * 64 * 48 * 4);
}

TEST(Mlt, GoesOnWithoutThePlugIn) {
    const Clips clips({"rgba", "", 211, 123});
    const std::string file = clips.folder / "out.raw", cut = clips.folder / "cut.so";
    Write(cut, Read(TestedPlugin().File()).substr(0, 100000));
    const std::pair<std::string, std::string> kCases[] = {
        {"/nonexistent/lib.so",
         "cannot load the plug-in /nonexistent/lib.so: /nonexistent/lib.so: cannot open shared "
         "object file: No such file or directory"},
        {"", "TP_ERASE_PLUGIN is empty: it takes the plug-in's file"},
        {cut, "the plug-in " + cut + " is cut short after 100000 bytes: copy or build it again"}};
    for (const auto &[plugin, reason] : kCases) {
        const Outcome outcome =
            Melt("-profile " + (clips.folder / "profile") + " " + clips.Name(0) +
                     " -consumer avformat:" + file + " f=rawvideo vcodec=rawvideo",
                 file, "TP_ERASE_PLUGIN=" + plugin);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.output, "tp_erase: " + reason + "; there are no tp_erase transitions\n");
        EXPECT_FALSE(Read(file).empty());
        std::filesystem::remove(file);
    }
}

} // namespace
