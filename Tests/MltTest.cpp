// The module in the real engine: melt renders mixes of two clips, and every frame must be what a
// direct call of the plug-in draws from the clips' frames.

#include "Draw.h"
#include "Services.h"
#include "Shell.h"
#include "Support.h"

#include <framework/mlt.h>
#include <libxml/parser.h>

#include <memory>
#include <regex>

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

/// What melt says. Now and then, with its own transitions too, melt 7.12 waits for ever or ends
/// without a picture: its consumer's thread looks whether it is to run, which is said only once the
/// thread was made. Then melt is run again. `written` is the consumer's file.
std::string Melt(const std::string &arguments, const std::string &written = "") {
    constexpr int kTimedOut = 124;
    Outcome outcome;
    for (int attempt = 0; attempt < 3; ++attempt) {
        outcome = Shell("MLT_REPOSITORY=" + Repository() +
                        " timeout 100 env " TP_MELT_ENVIRONMENT " melt -silent " + arguments);
        const bool isUnstarted = outcome.status == 0 && !written.empty() && Read(written).empty();
        if (outcome.status != kTimedOut && !isUnstarted)
            break;
    }
    EXPECT_EQ(outcome.status, 0) << arguments;
    return outcome.output;
}

/// A layout of pictures.
struct Form {
    std::string format; ///< of the clips and of what melt writes: yuv420p, yuv422 or rgba
    int width, height;
    std::string path = {}; ///< the services' parameter; empty when they decide
    bool isInterlaced = false;
    bool isOddFirst = false; ///< of its fields

    bool IsRgba() const { return format == "rgba"; }
    bool IsYuv422() const { return format == "yuv422"; }
    std::size_t FrameSize() const {
        return std::size_t(width) * height * (IsRgba() ? 8 : IsYuv422() ? 4 : 3) / 2;
    }
    /// FFmpeg's name of the format.
    std::string Raw() const { return IsYuv422() ? "yuyv422" : format; }
};

void PrintTo(const Form &form, std::ostream *out) {
    *out << form.format << form.path << (form.isInterlaced ? "Interlaced" : "")
         << (form.isOddFirst ? "OddFirst" : "");
}

/// The pictures of a timeline of melt's, without loss. They come with these words.
std::string Play(const Form &form, const std::string &timeline, const std::string &says = "",
                 int threads = 1) {
    Write("profile", MeltProfile(form.width, form.height, form.isInterlaced));
    std::filesystem::remove("out.raw");
    EXPECT_EQ(Melt(Text("-profile $PWD/profile ", timeline, " -consumer avformat:out.raw",
                        " f=rawvideo vcodec=rawvideo an=1 top_field_first=", int(!form.isOddFirst),
                        " mlt_image_format=", form.format, " pix_fmt=", form.Raw(), " real_time=-",
                        threads),
                   "out.raw"),
              says);
    return Read("out.raw");
}

class Mlt : public testing::Test {
    const WorkingFolder folder;
};

/// A mix, and a part of its pictures that one call draws: of the even rows or of the odd ones, and
/// where colours are moved one by one, of one of them.
struct Part {
    const Form &form;
    const Transition &transition;
    const Motion &motion;
    int half, channel;

    bool IsOfChannels() const {
        return form.IsRgba() && form.path != "rgb" &&
               (!transition.rgb || transition.info.countsBytes);
    }
    bool IsOfHalves() const { return form.isInterlaced || form.IsYuv422(); }
    Path Layout() const { return form.IsRgba() && !IsOfChannels() ? Path::Rgb : Path::Yuv; }
    hostkit::Chroma Chroma() const {
        return form.IsYuv422() ? transition.info.chroma : hostkit::Chroma::Half;
    }
    bool IsFull() const { return Chroma() == hostkit::Chroma::Full; }
    Frame NewFrame() const { return {Layout(), form.width, form.height, Chroma()}; }

    /// Fields are at even steps, but both are whole in the first frame and in the last.
    Moment When(int frame) const {
        const int field = half != form.isOddFirst;
        return form.isInterlaced
                   ? Moment{std::clamp((2 * frame - 1 + field) / (2.0 * kFrames - 3), 0.0, 1.0),
                            frame}
                   : hostkit::MomentOf(frame, kFrames);
    }
    /// Where a frame's byte is in the picture. Rows of a field count twice; of 4:2:2, even rows'
    /// chroma and odd rows' make a frame each.
    std::size_t Place(int plane, int x, int y) const {
        const std::size_t line = form.isInterlaced ? y / 2 * 2 + half : y, width = form.width;
        if (form.IsRgba())
            return Layout() == Path::Rgb ? line * width * 4 + x : (line * width + x) * 4 + channel;
        if (!form.IsYuv422())
            return plane ? width * form.height * (3 + plane) / 4 + y * (width / 2) + x
                         : line * width + x;
        return (plane && !IsFull() ? 2 * y + half : line) * width * 2 +
               (!plane ? 2 * x : (IsFull() ? x / 2 : x) * 4 + 2 * plane - 1);
    }
    template<class Visit>
    void Each(Frame &frame, Visit visit) const {
        for (int plane = 0; plane < (IsOfChannels() ? 1 : frame.Planes()); ++plane)
            for (int y = 0; y < frame.Rows(plane); ++y)
                for (int x = 0; x < frame.RowBytes(plane); ++x)
                    visit(frame.Row(plane, y)[x], plane, x, y);
    }
    void Draw(const std::array<const char *, 2> &in, int number, char *out) const {
        Frame from[] = {NewFrame(), NewFrame()}, drawn = NewFrame();
        for (int i = 0; i < 2; ++i)
            Each(from[i], [&](std::uint8_t &byte, int plane, int x, int y) {
                byte = std::uint8_t(in[i][Place(plane, x, y)]);
            });
        hostkit::Draw(transition, motion, When(number), drawn, from[0], from[1]);
        Each(drawn, [&](std::uint8_t byte, int plane, int x, int y) {
            // Chroma of full resolution is drawn for each pixel of a pair, and their mean is kept.
            char &kept = out[Place(plane, x, y)];
            const bool isSecond = plane && IsFull() && x % 2;
            if (!IsOfHalves() || (plane && !IsFull()) || y % 2 == half)
                kept = char(isSecond ? (std::uint8_t(kept) + byte + 1) / 2 : byte);
        });
    }
};

/// What melt writes of a picture: it takes the chroma planes from where the engine's library says
/// they are, which is not where they are in all versions.
std::string Written(const Form &form, std::string picture) {
    if (form.format != "yuv420p")
        return picture;
    picture += picture;
    std::string written;
    std::uint8_t *planes[4];
    int strides[4];
    mlt_image_format_planes(mlt_image_yuv420p, form.width, form.height, picture.data(), planes,
                            strides);
    for (int plane = 0; plane < 3; ++plane)
        written.append(reinterpret_cast<char *>(planes[plane]),
                       std::size_t(form.width) * form.height / (plane ? 4 : 1));
    return written;
}

struct Mix {
    const Transition &transition;
    std::string properties;
    Motion motion = {};
};

class MltLayout : public Mlt, public testing::WithParamInterface<Form> {};

// Every transition, and what the parameters do. There is no YUV of odd sizes.
TEST_P(MltLayout, DrawsWhatDirectCallsDraw) {
    const Form &form = GetParam();
    const Transition &wipe = *TestedPlugin().Find("Linear Wipe");
    std::vector<Mix> all = {{wipe, "reverse=1", {nullptr, true, 0}},
                            {wipe, "backwards=1", {nullptr, true, 0}},
                            {wipe, "ease=in", {hostkit::FindEasing("in"), false, 0}},
                            {*TestedPlugin().Find("Wind"), "seed=7", {nullptr, false, 7}}};
    for (const Transition &transition : TestedPlugin().Transitions())
        all.push_back({transition, ""});
    const std::size_t size = form.FrameSize();
    std::string noise[2], timeline, expected;
    std::vector<std::string> names;
    for (int clip = 0; clip < 2; ++clip) {
        noise[clip] = RandomBytes(size * kFrames, clip);
        for (std::size_t i = 3; form.IsRgba() && i < noise[clip].size(); i += 4)
            noise[clip][i] = '\xff';
        Write("raw", noise[clip]);
        Must("ffmpeg -v error -y -f rawvideo -pix_fmt ", form.Raw(), " -s ", form.width, "x",
             form.height, " -r 25 -i raw -c copy ", clip, ".mkv");
    }
    for (const auto &[transition, properties, motion] : all) {
        if (form.path == "rgb" && !transition.rgb)
            continue;
        names.push_back(transition.name + ' ' + properties);
        // The engine is kept from fitting size and colours, which costs precision.
        timeline += Text("abnormal:avformat:0.mkv abnormal:avformat:1.mkv -mix ", kFrames,
                         " -mixer ", mlt::ServiceName(transition), ' ', properties,
                         form.path.empty() ? " " : " path=" + form.path + " ");
        const Part whole = {form, transition, motion, 0, 0};
        for (std::size_t i = 0; i < kFrames; ++i) {
            std::string picture(size, '\0');
            for (int half = 0; half < (whole.IsOfHalves() ? 2 : 1); ++half)
                for (int channel = 0; channel < (whole.IsOfChannels() ? 4 : 1); ++channel)
                    Part{form, transition, motion, half, channel}.Draw(
                        {&noise[0][i * size], &noise[1][i * size]}, int(i), picture.data());
            expected += Written(form, picture);
        }
    }
    const std::string mixed = Play(form, timeline);
    ASSERT_EQ(mixed.size(), expected.size());
    for (std::size_t i = 0; i < mixed.size() / size; ++i)
        EXPECT_TRUE(mixed.compare(i * size, size, expected, i * size, size) == 0)
            << names[i / kFrames] << " frame " << i % kFrames;
    EXPECT_TRUE(form.isOddFirst || Play(form, timeline, "", 4) == mixed) << "with four threads";
}

INSTANTIATE_TEST_SUITE_P(Every, MltLayout,
                         testing::Values(Form{"yuv420p", 320, 180}, Form{"yuv422", 320, 180},
                                         Form{"yuv422", 318, 180, "", true},
                                         Form{"yuv422", 318, 180, "", true, true},
                                         Form{"rgba", 211, 123, "yuv"},
                                         Form{"rgba", 211, 123, "rgb"},
                                         Form{"rgba", 212, 124, "", true}),
                         testing::PrintToStringParamName());

const Form kSmall = {"rgba", 64, 48};

std::string Property(const std::string &name, const std::string &value) {
    return Text("<property name='", name, "'>", value, "</property>");
}

/// The pictures of a project with clips of one colour, red and blue, at the size of kSmall.
std::string PlayProject(const std::string &tracks) {
    std::string clips;
    for (const char *colour : {"red", "blue"})
        clips += Text("<producer id='", colour, "' out='99'>", Property("mlt_service", "color"),
                      Property("resource", colour), "</producer>");
    Write("project.mlt", "<mlt>" + clips + tracks + "</mlt>");
    return Play(kSmall, "project.mlt");
}

std::string TransitionFrom(int first, int last, const std::string &properties) {
    return Text("<transition in='", first, "' out='", last, "'>", Property("a_track", "0"),
                Property("b_track", "1"), properties, "</transition>");
}

// A clip on each of two tracks, and a transition from frame 10 to 14. At its first frame the
// outgoing clip shows, at its last the incoming one, forwards.
TEST_F(Mlt, GoesFromTheClipThatEnds) {
    const struct {
        const char *name;
        int lowerStart, lowerEnd, upperStart, upperEnd; ///< frames that show, the end after
        bool lowerGoes;
        bool isMix = false;    ///< Kdenlive's between neighbours of one track, which sets "reverse"
        bool isNested = false; ///< the upper track is made of two
    } kOrders[] = {
        {"lower ends", 0, 15, 10, 25, true},
        {"lower ends in a mix", 0, 15, 10, 25, true, true},
        {"upper ends in a mix", 10, 25, 0, 15, false, true},
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
    for (const auto &order : kOrders) {
        const std::string pictures = PlayProject(Text(
            "<playlist id='empty'/>", playlist("lower", "red", order.lowerStart, order.lowerEnd),
            playlist("upper", "blue", order.upperStart, order.upperEnd),
            "<tractor id='nested'><track producer='empty'/><track producer='upper'/></tractor>"
            "<tractor><track producer='lower'/><track producer='",
            order.isNested ? "nested" : "upper", "'/>",
            TransitionFrom(10, 14,
                           Property("mlt_service", "tp_erase.erase_slide") +
                               (order.isMix
                                    ? Property("reverse", "1") + Property("kdenlive:mixcut", "1")
                                    : "")),
            "</tractor>"));
        ASSERT_GE(pictures.size(), 15 * kSmall.FrameSize());
        // Half-way the incoming clip has come in from the left.
        std::string redAt;
        for (const auto &[frame, x] : {std::pair(10, 0), {14, 0}, {12, 8}, {12, 56}})
            redAt += std::uint8_t(pictures[frame * kSmall.FrameSize() + x * 4]) > 127 ? "1" : "0";
        EXPECT_EQ(redAt, order.lowerGoes ? "1001" : "0110") << order.name;
    }
}

TEST_F(Mlt, TellsOfValuesWithoutMeaning) {
    const std::string mix = "color:red out=4 color:blue out=4 -mix 5 -mixer tp_erase.push ";
    std::string set, says;
    for (const auto &[property, right] :
         {std::pair("ease=wobbly",
                    "linear, smooth, in, out, in-out, in-cubic, out-cubic, in-out-cubic, back, "
                    "elastic, bounce"),
          {"backwards=2", "0 or 1"},
          {"reverse=yes", "0 or 1"},
          {"seed=7x", "a whole number"},
          {"path=foo", "auto, yuv, rgb"}}) {
        set += Text(property, ' ');
        says +=
            Text("[transition tp_erase.push] ", property, " is ignored: it takes ", right, '\n');
    }
    EXPECT_EQ(Play(kSmall, mix + set, says), Play(kSmall, mix));
}

/// What editors build their panels from.
TEST_F(Mlt, AnswersQueries) {
    // From the folder for use without installing; without effects of other people, which melt would
    // load at its start and some of which hang under the address sanitizer.
    const std::string list =
        Shell("LADSPA_PATH=/nowhere FREI0R_PATH=/nowhere MLT_REPOSITORY=" TP_MLT_REPOSITORY
              " " TP_MELT_ENVIRONMENT " melt -query transitions")
            .output;
    for (const Transition &transition : TestedPlugin().Transitions())
        EXPECT_NE(list.find("- " + mlt::ServiceName(transition) + "\n"), std::string::npos)
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
            Melt("-query transition=tp_erase." + service +
                 " | grep -E "
                 "'^(title|creator|copyright|notes)|^ +(- |title|widget|default|minimum)'"
                 " | tr -s ' \\n' ' '"),
            Text("title: ", title,
                 " creator: The tp_Erase maintainers copyright: The tp_Erase maintainers - Video ",
                 notes,
                 "- identifier: reverse title: Reverse widget: checkbox default: 0 "
                 "- identifier: backwards title: Backwards widget: checkbox default: 0 "
                 "- identifier: ease title: Easing widget: dropdown default: linear - linear - "
                 "smooth - in - out - in-out - in-cubic - out-cubic - in-out-cubic - back - "
                 "elastic - bounce ",
                 others));
    // Projects keep what counts where the user has set nothing.
    EXPECT_EQ(Melt("color:red out=5 color:blue out=5 -mix 3 -mixer tp_erase.wind -consumer xml | "
                   "grep -oE '\"(reverse|backwards|ease|path|seed)\">[^<]*' | tr '\\n' ' '"),
              "\"reverse\">0 \"backwards\">0 \"ease\">linear \"path\">auto \"seed\">0 ");
}

/// Writes a.mkv and b.mkv, each of a still picture that FFmpeg makes by a filter graph.
void MakeStills(const std::array<std::string, 2> &graphs) {
    for (int clip = 0; clip < 2; ++clip)
        Must("ffmpeg -v error -y -f lavfi -i \"", graphs[clip],
             ",trim=end_frame=1,loop=4:1:0,setpts=N\" -r 25 -c:v ffv1 ", clip ? "b.mkv" : "a.mkv");
}

// Erase_slide half-way, from grey to a picture that is bright on the left and dark on the right:
// the packed form uncovers it where it stands, the planar form slides it in, its right half first.
TEST_F(Mlt, TransparentClipsAreDrawnPackedAndKeepTheirAlpha) {
    // Of a pixel; luma of limited range is 16 + 219 v / 255; -1 is anything.
    using Bytes = std::vector<int>;
    const Bytes grey = {100, 100, 100, 255}, greyYuv = {102, 128}, packed = {205, 128},
                opaque = {-1, -1, -1, 255};
    const struct {
        const char *format, *alphaOfA, *alphaOfB;
        Bytes left, right;
        const char *service = "erase_slide";
    } kCases[] = {
        {"rgba", "255", "128", {220, 220, 220, 128}, grey},
        // It moves with its pixels, to where both pictures are opaque too.
        {"rgba", "255", "'if(lt(X,32),255,128)'", {20, 20, 20, 128}, grey, "push"},
        // Blends lose a level, which what is opaque in both gets back.
        {"rgba", "255", "'if(lt(X,32),255,128)'", opaque, {-1, -1, -1, -1}, "linear_wipe"},
        {"rgba", "255", "255", opaque, opaque, "linear_wipe"},
        {"rgba", "0", "128", {20, 20, 20, 255}, grey, "erase_slide path=yuv"},
        {"yuv422", "255", "255", {33, 128}, greyYuv},
        {"yuv422", "255", "254", packed, greyYuv},
        {"yuv422", "0", "255", packed, greyYuv},
        // Not the bars around a picture of another shape, which are two.
        {"yuv422", "255", "'if(lt(Y,12),0,255)'", packed, greyYuv},
        {"yuv422", "255", "'if(gt(X,51),0,255)'", packed, greyYuv},
    };
    const auto picture = [](int left, int right, const char *alpha) {
        const std::string level = Text("'if(lt(X,32),", left, ",", right, ")'");
        return Text("nullsrc=s=64x48,format=bgra,geq=r=", level, ":g=", level, ":b=", level,
                    ":a=", alpha);
    };
    for (const auto &[format, alphaOfA, alphaOfB, left, right, service] : kCases) {
        SCOPED_TRACE(Text(format, ' ', alphaOfA, ' ', alphaOfB, ' ', service));
        MakeStills({picture(100, 100, alphaOfA), picture(220, 20, alphaOfB)});
        const Form form = {format, 64, 48};
        const std::string all =
            Play(form, Text("abnormal:avformat:a.mkv abnormal:avformat:b.mkv -mix 5 -mixer ",
                            "tp_erase.", service));
        ASSERT_EQ(all.size(), 5 * form.FrameSize());
        const bool isExact = form.IsRgba() && !std::strchr(service, '=');
        for (const auto &[x, bytes] : {std::pair(8, left), {56, right}})
            for (std::size_t i = 0; i < bytes.size(); ++i) {
                const std::size_t at = 2 * form.FrameSize() + (24 * 64 + x) * bytes.size() + i;
                const int expected = bytes[i] < 0 ? std::uint8_t(all[at]) : bytes[i];
                EXPECT_NEAR(std::uint8_t(all[at]), expected, isExact ? 0 : 2) << x << ' ' << i;
            }
    }
}

// Still clips, as the engine fits them to a project of 128 x 96 pixels: the mix's ends and the
// frames beside them, which the engine makes alone.
TEST_F(Mlt, EndsWithTheClipsOwnFrames) {
    const Form yuv = {"yuv422", 128, 96};
    const std::string bars = "smptehdbars=s=128x96,format=yuv420p";
    const struct {
        const char *name;
        Form form;
        std::array<std::string, 2> clips; ///< FFmpeg's filter graphs
    } kLayouts[] = {
        {"letterboxed", yuv, {"testsrc2=s=128x60,format=yuv420p", bars}},
        {"tall", yuv, {"testsrc2=s=56x96,format=yuv420p", "smptehdbars=s=128x40,format=yuv420p"}},
        {"tall and transparent",
         {"rgba", 128, 96},
         {"color=red@0.5:s=56x96,format=bgra", "color=yellow@0.7:s=128x96,format=bgra"}},
        {"interlaced",
         {"yuv422", 128, 96, "", true},
         {"testsrc2=s=128x96,tinterlace=interleave_top,format=yuv422p",
          "mandelbrot=s=128x96,tinterlace=interleave_top,format=yuv422p"}},
        {"4:2:2", yuv, {"testsrc2=s=128x96,format=yuv422p", "smptehdbars=s=128x96,format=yuv422p"}},
        {"large",
         yuv,
         {"testsrc2=s=256x192,format=yuv420p", "smptehdbars=s=256x192,format=yuv420p"}},
    };
    const char *const services[] = {"erase_slide", "push", "trrect2", "trcirque"};
    for (const auto &[name, form, graphs] : kLayouts) {
        SCOPED_TRACE(name);
        MakeStills(graphs);
        std::string timeline;
        for (const char *service : services)
            timeline +=
                Text("a.mkv in=0 out=3 b.mkv in=0 out=3 -mix 2 -mixer tp_erase.", service, " ");
        const std::string all = Play(form, timeline);
        const std::size_t size = form.FrameSize(), frames = 6 * std::size(services);
        ASSERT_EQ(all.size(), frames * size);
        for (std::size_t i = 1; i < frames; i += i % 6 == 1 ? 2 : 4) {
            int difference = 0;
            for (std::size_t at = i * size; at < (i + 1) * size; ++at)
                difference = std::max(
                    difference, std::abs(std::uint8_t(all[at]) - std::uint8_t(all[at + size])));
            EXPECT_LE(difference, 2) << services[i / 6] << (i % 6 == 1 ? " begin" : " end");
        }
    }
}

// The engine neither scales yuv420p nor puts bars around it.
TEST_F(Mlt, DrawsClipsThatNeedBarsWhateverTheEngineWants) {
    const std::string still = "testsrc2=s=128x60,format=yuv420p";
    const Form form = {"yuv420p", 128, 96};
    MakeStills({still, still});
    const std::string all =
        Play(form, "a.mkv in=0 out=3 b.mkv in=0 out=3 -mix 2 -mixer tp_erase.push");
    ASSERT_EQ(all.size(), 6 * form.FrameSize());
    for (const int row : {5, 17, 78, 90})
        EXPECT_EQ(all[2 * form.FrameSize() + row * 128 + 64], 16) << row;
}

/// Checks one file and returns the properties of a service whose every parameter is set.
std::string CheckKdenliveFile(const Transition &transition, const std::string &service) {
    const std::string file = TP_KDENLIVE_FOLDER "/" + service + ".xml", text = Read(file);
    const std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> document(
        xmlReadFile(file.c_str(), nullptr, XML_PARSE_NONET), xmlFreeDoc);
    EXPECT_TRUE(document) << file;
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
TEST_F(Mlt, KdenliveFilesAreXmlAndLoad) {
    std::string services;
    int start = 0;
    for (const Transition &transition : TestedPlugin().Transitions()) {
        SCOPED_TRACE(transition.name);
        const std::string service = mlt::ServiceName(transition);
        services += TransitionFrom(start, start + 1,
                                   Property("mlt_service", service) +
                                       CheckKdenliveFile(transition, service));
        start += 2;
    }
    EXPECT_GE(PlayProject("<tractor><track producer='red'/><track producer='blue'/>" + services +
                          "</tractor>")
                  .size(),
              start * kSmall.FrameSize());
}

TEST_F(Mlt, GoesOnWithoutThePlugIn) {
    Write("cut.so", Read(TestedPlugin().File()).substr(0, 100000));
    for (const auto &[plugin, reason] :
         {std::pair("/nonexistent/lib.so",
                    "cannot load the plug-in /nonexistent/lib.so: /nonexistent/lib.so: cannot open "
                    "shared object file: No such file or directory"),
          {"", "TP_ERASE_PLUGIN is empty: it takes the plug-in's file"},
          {"./cut.so", "the plug-in ./cut.so is cut short after 100000 bytes: copy or build it "
                       "again"}}) {
        setenv("TP_ERASE_PLUGIN", plugin, 1);
        EXPECT_NE(Play(kSmall, "color:red out=4",
                       Text("tp_erase: ", reason, "; there are no tp_erase transitions\n")),
                  "");
    }
    unsetenv("TP_ERASE_PLUGIN");
}

} // namespace
