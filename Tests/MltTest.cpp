// The module in the real engine: melt renders mixes of two clips, and every frame must be what a
// direct call of the plug-in draws from the clips' frames.

#include "Draw.h"
#include "Images.h"
#include "Services.h"
#include "Shell.h"
#include "Support.h"

#include <framework/mlt.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <array>
#include <fstream>
#include <memory>
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
        for (const char *name :
             {"libmltcore.so", "libmltavformat.so", "libmltxml.so", "libmlttp_erase.so"})
            std::filesystem::create_symlink(std::string(TP_MLT_REPOSITORY "/") + name,
                                            folder / name);
        return folder.path.string();
    }();
    return path;
}

/// Now and then, with its own transitions too, melt waits for ever for a consumer that has not
/// started, or ends before it starts; then melt is run again. `written` is the consumer's file.
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
    std::string format; ///< of the clips and of what melt writes: yuv420p or rgba
    std::string path;   ///< empty when the service decides
    int width, height;

    bool IsRgba() const { return format == "rgba"; }
    bool IsPacked() const { return IsRgba() && path != "yuv"; }
    std::size_t FrameSize() const { return std::size_t(width) * height * (IsRgba() ? 8 : 3) / 2; }
};

std::ostream &operator<<(std::ostream &out, const Form &form) {
    return out << form.format << ' ' << form.path << ' ' << form.width << " x " << form.height;
}

/// Two clips, and melt's profile of their size.
class Clips {
public:
    /// Of noise; or each of a still picture in red, green, blue and alpha.
    explicit Clips(const Form &f, const std::array<std::string, 2> &stills = {}) : form(f) {
        std::ofstream(folder / "profile")
            << "description=test\nframe_rate_num=25\nframe_rate_den=1\nprogressive=1\n"
            << "sample_aspect_num=1\nsample_aspect_den=1\ncolorspace=601\nwidth=" << form.width
            << "\nheight=" << form.height << "\ndisplay_aspect_num=" << form.width
            << "\ndisplay_aspect_den=" << form.height << '\n';
        for (int clip = 0; clip < 2; ++clip) {
            const bool isStill = !stills[clip].empty();
            const std::string format = isStill ? "rgba" : form.format;
            std::string &pictures = frames[clip];
            for (int i = 0; isStill && i < kFrames; ++i)
                pictures += stills[clip];
            if (!isStill)
                pictures = Noise(clip);
            std::ofstream(folder / "raw", std::ios::binary) << pictures;
            const std::string size = std::to_string(form.width) + "x" + std::to_string(form.height);
            const Outcome made =
                Shell("ffmpeg -v error -f rawvideo -pix_fmt " + format + " -s " + size +
                      " -r 25 -i " + (folder / "raw") + " -c:v ffv1 -pix_fmt " +
                      (isStill         ? "bgra"
                       : form.IsRgba() ? "bgr0"
                                       : "yuv420p") +
                      " " + File(clip));
            EXPECT_EQ(made.output, "");
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
        const Outcome outcome = Melt(
            "-profile " + (folder / "profile") + " " + timeline + " -consumer avformat:" + file +
                " f=rawvideo vcodec=rawvideo an=1 mlt_image_format=" + form.format +
                " pix_fmt=" + form.format + " " + threads,
            file);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.output, "");
        return Read(file);
    }

    const Form form;
    const Folder folder;

private:
    std::string Noise(int clip) const {
        std::string noise(form.FrameSize() * kFrames, '\xff');
        FillRandom({reinterpret_cast<std::uint8_t *>(noise.data()), noise.size()}, clip);
        for (std::size_t i = 3; form.IsRgba() && i < noise.size(); i += 4)
            noise[i] = '\xff';
        return noise;
    }

    std::string frames[2];
};

/// What melt writes of a picture: it takes the chroma planes from where the engine's library says
/// they are, which is not where they are in all versions.
std::string Written(const Form &form, const std::string &picture) {
    if (form.IsRgba())
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

/// One frame of a mix by a direct call.
std::string Drawn(const Form &form, const Transition &transition, const Motion &motion,
                  const Moment &moment, std::uint8_t *a, std::uint8_t *b) {
    const int width = form.width, height = form.height;
    std::string picture(form.FrameSize(), '\0');
    auto *bytes = reinterpret_cast<std::uint8_t *>(picture.data());
    if (form.IsRgba() && !form.IsPacked()) {
        Frame out(Path::Yuv, width, height);
        Draw(transition, motion, moment, out, mlt::ConvertRgba(width, height, a),
             mlt::ConvertRgba(width, height, b));
        mlt::ConvertToRgba(out, bytes);
        return picture;
    }
    const auto view = [&](std::uint8_t *image) {
        return mlt::View(form.IsPacked() ? Path::Rgb : Path::Yuv, width, height, image);
    };
    Frame out = view(bytes);
    Draw(transition, motion, moment, out, view(a), view(b));
    return picture;
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
            expected += Written(form, Drawn(form, *mix.transition, mix.motion,
                                            hostkit::MomentOf(i, kFrames), clips.Frame(0, i),
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

// BT.601 of limited range, by its own weights.
TEST(Images, ConvertByTheStandardsWeights) {
    for (const auto &[r, g, b] : {std::array{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {30, 200, 90}}) {
        const double luma = 0.299 * r + 0.587 * g + 0.114 * b;
        const double expected[] = {16 + 219 * luma / 255, 128 + 224 * (b - luma) / 1.772 / 255,
                                   128 + 224 * (r - luma) / 1.402 / 255};
        const std::uint8_t rgba[] = {std::uint8_t(r), std::uint8_t(g), std::uint8_t(b), 9};
        const Frame frame = mlt::ConvertRgba(1, 1, rgba);
        for (int plane = 0; plane < 3; ++plane)
            EXPECT_NEAR(*frame.Row(plane, 0), expected[plane], 1.5) << plane;
        std::uint8_t back[4];
        mlt::ConvertToRgba(frame, back);
        for (int i = 0; i < 3; ++i)
            EXPECT_NEAR(back[i], rgba[i], 4) << i;
        EXPECT_EQ(back[3], 255);
    }
}

class EveryService : public testing::TestWithParam<Form> {};

TEST_P(EveryService, DrawsWhatADirectCallDraws) {
    const Form &form = GetParam();
    std::vector<Mix> mixes;
    for (const Transition &transition : TestedPlugin().Transitions())
        if (form.IsPacked() ? transition.rgb != nullptr : transition.yuv != nullptr) {
            // Those whose packed form is squeezed draw planar unless asked.
            const bool mustAsk = form.IsPacked() && transition.info.countsBytes;
            const std::string path = mustAsk ? "rgb" : form.path;
            mixes.push_back({&transition, path.empty() ? "" : "path=" + path});
        }
    ASSERT_FALSE(mixes.empty());
    ExpectDirectCalls(form, mixes);
}

INSTANTIATE_TEST_SUITE_P(Mlt, EveryService,
                         testing::Values(Form{"yuv420p", "", 320, 180}, Form{"rgba", "", 320, 180},
                                         Form{"rgba", "", 211, 123}, Form{"rgba", "yuv", 211, 123}),
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
}

/// A clip on each of two tracks, and a transition from frame 10 to 14. At its first frame the
/// outgoing clip shows, at its last the incoming one, forwards.
struct Order {
    const char *name;
    int lowerStart, lowerEnd, upperStart, upperEnd; ///< frames that the clips show, the end after
    bool lowerGoes;
    bool isMix;    ///< Kdenlive's between neighbours of one track, which sets "reverse" at will
    bool isNested; ///< the upper track is made of two
};

std::ostream &operator<<(std::ostream &out, const Order &order) {
    return out << order.name;
}

class Orders : public testing::TestWithParam<Order> {};

constexpr char kSmallProfile[] =
    "<profile width='64' height='48' frame_rate_num='25' frame_rate_den='1' progressive='1' "
    "sample_aspect_num='1' sample_aspect_den='1' display_aspect_num='4' display_aspect_den='3' "
    "colorspace='601'/>";

/// The pictures of a project at the size of kSmallProfile, in red, green, blue and alpha.
std::string PlayProject(const std::string &project, const char *says = "") {
    const Folder folder;
    std::ofstream(folder / "project.mlt") << "<mlt>" << kSmallProfile << project << "</mlt>";
    const std::string raw = folder / "out.raw";
    const Outcome outcome = Melt((folder / "project.mlt") + " -consumer avformat:" + raw +
                                     " f=rawvideo vcodec=rawvideo pix_fmt=rgba "
                                     "mlt_image_format=rgba an=1 real_time=-1",
                                 raw);
    EXPECT_EQ(outcome.status, 0);
    // The engine may ask for the first picture twice.
    EXPECT_EQ(outcome.output.substr(0, outcome.output.find('\n')), says);
    return Read(raw);
}

std::string Property(const std::string &name, const std::string &value) {
    return "<property name='" + name + "'>" + value + "</property>";
}

/// A producer of one colour.
std::string Coloured(const std::string &colour, int frames) {
    return "<producer id='" + colour + "' out='" + std::to_string(frames - 1) + "'>" +
           Property("mlt_service", "color") + Property("resource", colour) + "</producer>";
}

std::string TransitionFrom(int first, int last, const std::string &properties) {
    return "<transition in='" + std::to_string(first) + "' out='" + std::to_string(last) + "'>" +
           Property("a_track", "0") + Property("b_track", "1") + properties + "</transition>";
}

TEST_P(Orders, GoFromTheClipThatEnds) {
    const Order &order = GetParam();
    const auto playlist = [](const char *id, const char *clip, int start, int end) {
        const std::string blank =
            start ? "<blank length='" + std::to_string(start) + "'/>" : std::string();
        return "<playlist id='" + std::string(id) + "'>" + blank + "<entry producer='" + clip +
               "' in='0' out='" + std::to_string(end - start - 1) + "'/></playlist>";
    };
    const std::string upper =
        order.isNested ? "<tractor id='nested'><track producer='empty'/><track producer='upper'/>"
                         "</tractor>"
                       : "";
    for (const char *reverse : {"0", "1"}) {
        if (!order.isMix && *reverse == '1')
            continue;
        const std::string pictures =
            PlayProject(Coloured("red", 30) + Coloured("blue", 30) + "<playlist id='empty'/>" +
                        playlist("lower", "red", order.lowerStart, order.lowerEnd) +
                        playlist("upper", "blue", order.upperStart, order.upperEnd) + upper +
                        "<tractor><track producer='lower'/><track producer='" +
                        (order.isNested ? "nested" : "upper") + "'/>" +
                        TransitionFrom(10, 14,
                                       Property("mlt_service", "tp_erase.erase_slide") +
                                           Property("reverse", reverse) +
                                           (order.isMix ? Property("kdenlive:mixcut", "1") : "")) +
                        "</tractor>");
        constexpr std::size_t kSize = 64 * 48 * 4;
        ASSERT_GE(pictures.size(), 15 * kSize);
        const auto isRed = [&](std::size_t frame, std::size_t x = 0) {
            return static_cast<unsigned char>(pictures[frame * kSize + x * 4]) > 127;
        };
        EXPECT_EQ(isRed(10), order.lowerGoes) << reverse;
        EXPECT_EQ(isRed(14), !order.lowerGoes) << reverse;
        // Half-way the incoming clip has come in from the left.
        EXPECT_EQ(isRed(12, 8), !order.lowerGoes) << reverse;
        EXPECT_EQ(isRed(12, 56), order.lowerGoes) << reverse;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Mlt, Orders,
    testing::Values(Order{"LowerEnds", 0, 15, 10, 25, true, true, false},
                    Order{"UpperEnds", 10, 25, 0, 15, false, true, false},
                    Order{"UpperLiesOver", 0, 25, 10, 20, true, false, false},
                    Order{"UpperEndsOverLower", 0, 25, 5, 15, false, false, false},
                    Order{"LowerBeginsUnderUpper", 10, 25, 0, 25, false, false, false},
                    Order{"UpperIsTheOverlap", 0, 25, 10, 15, true, false, false},
                    Order{"BothGoOn", 0, 25, 0, 25, true, false, false},
                    Order{"BothEnd", 0, 15, 0, 15, true, false, false},
                    Order{"NestedEnds", 10, 25, 0, 15, false, false, true},
                    Order{"NestedBegins", 0, 15, 10, 25, true, false, true}),
    [](const auto &info) { return info.param.name; });

TEST(Mlt, SaysThatAnEasingIsUnknown) {
    EXPECT_FALSE(PlayProject(Coloured("red", 5) + Coloured("blue", 5) +
                                 "<tractor><track producer='red'/><track producer='blue'/>" +
                                 TransitionFrom(0, 4,
                                                Property("mlt_service", "tp_erase.push") +
                                                    Property("ease", "wobbly")) +
                                 "</tractor>",
                             "[transition tp_erase.push] no easing is named \"wobbly\"")
                     .empty());
}

/// What editors build their panels from, but for the sentences.
TEST(Mlt, AnswersQueries) {
    // From the folder for use without installing.
    const Outcome list = Shell("MLT_REPOSITORY=" TP_MLT_REPOSITORY " " TP_MELT_ENVIRONMENT
                               " melt -query transitions");
    for (const Transition &transition : TestedPlugin().Transitions())
        EXPECT_NE(list.output.find("- " + mlt::ServiceName(transition) + "\n"), std::string::npos)
            << transition.name;
    const Outcome query = Melt("-query transition=tp_erase.linear_wipe");
    EXPECT_EQ(query.status, 0);
    std::istringstream lines(query.output);
    std::string answer, sentences;
    for (std::string line; std::getline(lines, line);)
        (line.find("description: ") < 6 || line.starts_with("notes: ") ? sentences : answer) +=
            line + '\n';
    std::string easings;
    for (const hostkit::Easing &easing : hostkit::Easings())
        easings += std::string("      - ") + easing.name + '\n';
    const std::string boolean = "    type: boolean\n    mutable: yes\n    widget: checkbox\n"
                                "    default: 0\n";
    const std::string choice = "    type: string\n    mutable: yes\n    widget: dropdown\n";
    EXPECT_EQ(answer, "---\nschema_version: 7.0\ntype: transition\n"
                      "identifier: tp_erase.linear_wipe\ntitle: Linear wipe\n"
                      "version: " TP_VERSION "\nlanguage: en\ntags:\n  - Video\nparameters:\n"
                      "  - identifier: reverse\n    title: Reverse\n" +
                          boolean + "  - identifier: backwards\n    title: Backwards\n" + boolean +
                          "  - identifier: ease\n    title: Easing\n" + choice +
                          "    default: linear\n    values:\n" + easings +
                          "  - identifier: path\n    title: Form\n" + choice +
                          "    default: auto\n    values:\n      - auto\n      - yuv\n      - rgb\n"
                          "  - identifier: seed\n    title: Seed\n    type: integer\n"
                          "    mutable: yes\n    widget: spinner\n    default: 0\n"
                          "    minimum: 0\n...\n");
    const hostkit::Info &info = TestedPlugin().Find("Linear Wipe")->info;
    for (const std::string &part : {info.motion, info.ends, "notes: " + info.remarks})
        EXPECT_NE(sentences.find(part), std::string::npos) << sentences;
}

// ---------------------------------------------------------------------------------------------
// Transparency
// ---------------------------------------------------------------------------------------------

/// Erase_slide half-way, from grey to a picture that is bright on the left and dark on the right:
/// the packed form uncovers it where it stands, the planar form slides it in, its right half first.
struct Still {
    static inline const Form kRgba = {"rgba", "", 64, 48}, kYuv = {"yuv420p", "", 64, 48};

    static std::string Picture(int left, int right, int alpha) {
        std::string picture;
        for (int i = 0; i < 64 * 48; ++i)
            for (const int channel : {0, 0, 0, 1}) {
                const int colour = i % 64 < 32 ? left : right;
                picture += static_cast<char>(channel ? alpha : colour);
            }
        return picture;
    }
    /// The bytes of the middle frame.
    static std::string Half(const Form &form, int alphaOfA, int alphaOfB,
                            const std::string &properties = "") {
        const Clips clips(form, {Picture(100, 100, alphaOfA), Picture(220, 20, alphaOfB)});
        const std::string all =
            clips.Render(clips.Name(0) + " " + clips.Name(1) +
                             " -mix 5 -mixer tp_erase.erase_slide " + properties,
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
    const std::string half = Still::Half(Still::kRgba, 255, 128);
    EXPECT_EQ(Still::Pixel(half, 8), (std::array{220, 220, 220, 128}));
    EXPECT_EQ(Still::Pixel(half, 56), (std::array{100, 100, 100, 255}));
}

TEST(Mlt, PlanarPicturesAreOpaque) {
    const std::string half = Still::Half(Still::kRgba, 0, 128, "path=yuv");
    for (const int x : {8, 56})
        EXPECT_EQ(Still::Pixel(half, x)[3], 255) << x;
}

// Luma of limited range: 16 + 219 v / 255.
TEST(Mlt, DrawsTransparentClipsPackedWhateverTheEngineWants) {
    const struct {
        int alphaOfA, alphaOfB;
        int luma; ///< at the left
    } kCases[] = {{255, 255, 33}, {255, 254, 205}, {0, 255, 205}};
    for (const auto &[alphaOfA, alphaOfB, luma] : kCases) {
        const std::string half = Still::Half(Still::kYuv, alphaOfA, alphaOfB);
        ASSERT_FALSE(half.empty());
        EXPECT_NEAR(static_cast<unsigned char>(half[24 * 64 + 8]), luma, 2)
            << alphaOfA << ' ' << alphaOfB;
    }
}

// ---------------------------------------------------------------------------------------------
// Kdenlive
// ---------------------------------------------------------------------------------------------

/// An element of an XML file that stays in memory.
struct Element {
    xmlNode *node;
    std::string Attribute(const char *name) const {
        xmlChar *value = xmlGetProp(node, reinterpret_cast<const xmlChar *>(name));
        std::string text = value ? reinterpret_cast<const char *>(value) : "(none)";
        xmlFree(value);
        return text;
    }
    std::string Text() const {
        xmlChar *content = xmlNodeGetContent(node);
        std::string text = reinterpret_cast<const char *>(content);
        xmlFree(content);
        return text;
    }
    std::vector<Element> Children(const std::string &name) const {
        std::vector<Element> children;
        for (xmlNode *child = node->children; child; child = child->next)
            if (child->type == XML_ELEMENT_NODE &&
                name == reinterpret_cast<const char *>(child->name))
                children.push_back({child});
        return children;
    }
};

std::vector<std::string> Split(const std::string &text, char separator) {
    std::vector<std::string> words(1);
    for (const char c : text)
        c == separator ? void(words.emplace_back()) : void(words.back() += c);
    return words;
}

std::vector<std::string> EasingNames() {
    std::vector<std::string> names;
    for (const hostkit::Easing &easing : hostkit::Easings())
        names.emplace_back(easing.name);
    return names;
}

/// Checks one parameter and returns the last value that it offers.
std::string CheckParameter(const Element &parameter) {
    const std::string name = parameter.Attribute("name"), type = parameter.Attribute("type");
    EXPECT_EQ(parameter.Children("name").size(), 1u);
    EXPECT_EQ(parameter.Children("comment").size(), 1u);
    if (type != "list") {
        EXPECT_EQ(type, name == "seed" ? "constant" : "bool");
        EXPECT_EQ(parameter.Attribute("default"), "0");
        EXPECT_EQ(parameter.Attribute("min"), "0");
        EXPECT_EQ(parameter.Attribute("max"), name == "seed" ? "99999" : "1");
        return parameter.Attribute("max");
    }
    const auto values = Split(parameter.Attribute("paramlist"), ';');
    EXPECT_EQ(values, name == "ease" ? EasingNames() : Split("auto;yuv;rgb", ';'));
    EXPECT_EQ(parameter.Attribute("default"), values.front());
    EXPECT_EQ(parameter.Children("paramlistdisplay").size(), 1u);
    EXPECT_EQ(Split(parameter.Children("paramlistdisplay").at(0).Text(), ',').size(),
              values.size());
    return values.back();
}

/// Checks one file and returns the properties of a service whose every parameter is set.
std::string CheckKdenliveFile(const Transition &transition, const Element &root) {
    const std::string service = mlt::ServiceName(transition);
    EXPECT_STREQ(reinterpret_cast<const char *>(root.node->name), "transition");
    EXPECT_EQ(root.Attribute("tag"), service);
    EXPECT_EQ(root.Attribute("id"), service);
    EXPECT_EQ(root.Attribute("type"), "short");
    EXPECT_EQ(root.Children("name").at(0).Text(), transition.info.title);
    const std::string description = root.Children("description").at(0).Text();
    for (const std::string &part : {transition.info.motion, transition.info.ends})
        EXPECT_NE(description.find(part), std::string::npos) << description;
    std::vector<std::string> offered, expected = {"backwards", "ease"};
    if (transition.yuv && transition.rgb)
        expected.emplace_back("path");
    if (transition.info.random)
        expected.emplace_back("seed");
    std::string properties;
    for (const Element &parameter : root.Children("parameter")) {
        offered.push_back(parameter.Attribute("name"));
        properties +=
            "<property name='" + offered.back() + "'>" + CheckParameter(parameter) + "</property>";
    }
    EXPECT_EQ(offered, expected);
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
        const std::string file = TP_KDENLIVE_FOLDER "/" + service + ".xml";
        const std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> document(
            xmlReadFile(file.c_str(), nullptr, XML_PARSE_NONET), xmlFreeDoc);
        ASSERT_TRUE(document) << file;
        services += TransitionFrom(
            start, start + 1,
            Property("mlt_service", service) +
                CheckKdenliveFile(transition, {xmlDocGetRootElement(document.get())}));
        start += 2;
    }
    const std::string pictures = PlayProject(
        Coloured("red", start) + Coloured("blue", start) +
        "<tractor><track producer='red'/><track producer='blue'/>" + services + "</tractor>");
    EXPECT_EQ(pictures.size(), std::size_t(start) * 64 * 48 * 4);
}

TEST(Mlt, GoesOnWithoutThePlugIn) {
    const Clips clips({"rgba", "", 211, 123});
    const std::string file = clips.folder / "out.raw";
    const Outcome outcome = Melt("-profile " + (clips.folder / "profile") + " " + clips.Name(0) +
                                     " -consumer avformat:" + file + " f=rawvideo vcodec=rawvideo",
                                 file, "TP_ERASE_PLUGIN=/nonexistent/lib.so");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output,
              "tp_erase: cannot load the plug-in /nonexistent/lib.so: /nonexistent/lib.so: cannot "
              "open shared object file: No such file or directory; there are no tp_erase "
              "transitions\n");
    EXPECT_FALSE(Read(file).empty());
}

} // namespace
