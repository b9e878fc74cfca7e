// The module in the real engine: melt renders mixes of two clips, and every frame must be what a
// direct call of the plug-in draws from the clips' frames.

#include "Draw.h"
#include "Images.h"
#include "Services.h"
#include "Shell.h"
#include "Support.h"

#include <framework/mlt.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <vector>

namespace {

using hostkit::Frame;
using hostkit::Moment;
using hostkit::Motion;
using hostkit::Path;
using hostkit::Transition;

constexpr int kFrames = 5;

std::string Read(const std::string &file) {
    std::ostringstream bytes;
    bytes << std::ifstream(file, std::ios::binary).rdbuf();
    return bytes.str();
}

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

/// Two clips of noise, and melt's profile of their size.
class Clips {
public:
    explicit Clips(const Form &f) : form(f) {
        std::ofstream(folder / "profile")
            << "description=test\nframe_rate_num=25\nframe_rate_den=1\nprogressive=1\n"
            << "sample_aspect_num=1\nsample_aspect_den=1\ncolorspace=601\nwidth=" << form.width
            << "\nheight=" << form.height << "\ndisplay_aspect_num=" << form.width
            << "\ndisplay_aspect_den=" << form.height << '\n';
        for (int clip = 0; clip < 2; ++clip) {
            std::string &noise = frames[clip];
            noise.resize(form.FrameSize() * kFrames);
            FillRandom({reinterpret_cast<std::uint8_t *>(noise.data()), noise.size()}, clip);
            for (std::size_t i = 3; form.IsRgba() && i < noise.size(); i += 4)
                noise[i] = '\xff';
            std::ofstream(folder / "noise", std::ios::binary) << noise;
            const std::string size = std::to_string(form.width) + "x" + std::to_string(form.height);
            const Outcome made =
                Shell("ffmpeg -v error -f rawvideo -pix_fmt " + form.format + " -s " + size +
                      " -r 25 -i " + (folder / "noise") + " -c:v ffv1 -pix_fmt " +
                      (form.IsRgba() ? "bgr0" : "yuv420p") + " " + File(clip));
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

/// Kdenlive's neighbours of one track: the first lies on the upper of two playlists, and "reverse"
/// may or may not say so. The picture goes from the clip that ends to the one that begins,
/// forwards.
TEST(Mlt, GoesFromTheClipThatEnds) {
    const Form form = {"yuv420p", "", 320, 180};
    const Transition &wipe = *TestedPlugin().Find("Linear Wipe");
    for (const char *reverse : {"0", "1"}) {
        Clips clips(form);
        std::ofstream xml(clips.folder / "mix.mlt");
        xml << "<mlt>";
        for (int clip = 0; clip < 2; ++clip)
            xml << "<producer id='clip" << clip << "'><property name='mlt_service'>avformat"
                << "</property><property name='resource'>" << clips.File(clip)
                << "</property></producer>";
        xml << "<playlist id='lower'><blank length='2'/><entry producer='clip0' in='0' out='4'/>"
            << "</playlist><playlist id='upper'><entry producer='clip1' in='0' out='4'/></playlist>"
            << "<tractor><track producer='lower'/><track producer='upper'/>"
            << "<transition in='2' out='4'><property name='a_track'>0</property>"
            << "<property name='b_track'>1</property><property name='mlt_service'>"
            << mlt::ServiceName(wipe) << "</property><property name='kdenlive:mixcut'>1</property>"
            << "<property name='reverse'>" << reverse << "</property></transition></tractor></mlt>";
        xml.close();
        const std::string mixed =
            clips.Render("abnormal:xml:" + (clips.folder / "mix.mlt"), "real_time=-1");
        // Clips in a file are fitted by the engine, which touches chroma.
        const std::size_t luma = std::size_t(form.width) * form.height;
        for (int i = 0; i < 3; ++i)
            EXPECT_TRUE(mixed.compare((i + 2) * form.FrameSize(), luma,
                                      Drawn(form, wipe, {}, hostkit::MomentOf(i, 3),
                                            clips.Frame(1, i + 2), clips.Frame(0, i)),
                                      0, luma) == 0)
                << "reverse " << reverse << " frame " << i;
    }
}

TEST(Mlt, AnswersQueries) {
    // From the folder for use without installing.
    const Outcome list = Shell("MLT_REPOSITORY=" TP_MLT_REPOSITORY " " TP_MELT_ENVIRONMENT
                               " melt -query transitions");
    for (const Transition &transition : TestedPlugin().Transitions()) {
        const std::string name = mlt::ServiceName(transition);
        EXPECT_NE(list.output.find("- " + name + "\n"), std::string::npos) << name;
        const Outcome query = Melt("-query transition=" + name);
        EXPECT_EQ(query.status, 0);
        std::vector<std::string> lines = {"identifier: " + name,
                                          "title: " + mlt::Title(transition)};
        for (const char *parameter : {"reverse", "ease", "path", "seed"})
            lines.push_back(std::string("  - identifier: ") + parameter);
        for (const std::string &line : lines)
            EXPECT_NE(query.output.find("\n" + line + "\n"), std::string::npos) << line;
        const std::string kdenlive = Read(TP_KDENLIVE_FOLDER "/" + name + ".xml");
        EXPECT_NE(kdenlive.find("<transition tag=\"" + name + "\" id=\"" + name + "\""),
                  std::string::npos)
            << name;
    }
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
