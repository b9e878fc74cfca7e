// The element tp_transition in real pipelines: every frame must be what a direct call of the
// plug-in draws from the inputs' frames.

#include "Draw.h"
#include "Shell.h"
#include "Support.h"

#include <gst/app/app.h>
#include <gst/controller/controller.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <memory>
#include <thread>

namespace {

using hostkit::Frame;
using hostkit::Path;
using hostkit::Transition;

constexpr char kRate[] = "30000/1001"; // so that times are rounded

/// When a frame begins.
GstClockTime TimeOf(int frame) {
    return gst_util_uint64_scale(frame, GST_SECOND * 1001, 30000);
}

struct Unref {
    void operator()(void *object) const { gst_object_unref(object); }
};
using Pipeline = std::unique_ptr<GstElement, Unref>;

/// GStreamer with the element and the few modules of its own that the tests need: all of them would
/// take seconds.
void Start() {
    static const Folder folder;
    static const bool isStarted = [] {
        for (const char *name :
             {"app", "coreelements", "coretracers", "videotestsrc", "videoconvertscale"})
            std::filesystem::create_symlink(Text(TP_GSTREAMER_SYSTEM "/libgst", name, ".so"),
                                            folder / Text("libgst", name, ".so"));
        setenv("GST_PLUGIN_SYSTEM_PATH", folder.path.c_str(), 1);
        setenv("GST_PLUGIN_PATH", TP_GSTREAMER_PLUGINS, 1);
        setenv("GST_REGISTRY", (folder / "registry").c_str(), 1);
        setenv("GST_REGISTRY_FORK", "no", 1);
        setenv("GST_TRACERS", "leaks", 1);
        gst_init(nullptr, nullptr);
        return true;
    }();
    ASSERT_TRUE(isStarted);
}

/// Whatever a test made of GStreamer's is gone when it ends: the tracer warns of the rest.
class Leaks : public testing::Environment {
    void TearDown() override {
        g_log_set_default_handler([](const gchar *, GLogLevelFlags, const gchar *text,
                                     gpointer) { ADD_FAILURE() << text; },
                                  nullptr);
        if (gst_is_initialized())
            gst_deinit();
    }
};
const auto *const leaks = testing::AddGlobalTestEnvironment(new Leaks);

/// A format of pictures.
struct Form {
    const char *format;
    int width, height;

    Path Layout() const { return std::strcmp(format, "I420") == 0 ? Path::Yuv : Path::Rgb; }
    std::string Caps() const {
        return Text("video/x-raw,format=", format, ",width=", width, ",height=", height,
                    ",framerate=", kRate);
    }
    GstVideoInfo Info() const {
        GstVideoInfo info;
        GstCaps *caps = gst_caps_from_string(Caps().c_str());
        gst_video_info_from_caps(&info, caps);
        gst_caps_unref(caps);
        return info;
    }
};

/// Frame number `number` of a stream.
Frame Noise(const Form &form, char source, int number) {
    Frame frame(form.Layout(), form.width, form.height);
    FillRandom(frame.Bytes(), 10 * number + source);
    return frame;
}

/// The bytes of a frame's rows from GStreamer's memory to it or back.
void CopyRows(GstVideoFrame &memory, Frame &frame, bool toFrame) {
    for (int plane = 0; plane < frame.Planes(); ++plane)
        for (int y = 0; y < frame.Rows(plane); ++y) {
            auto *row = static_cast<std::uint8_t *>(GST_VIDEO_FRAME_PLANE_DATA(&memory, plane)) +
                        std::ptrdiff_t(y) * GST_VIDEO_FRAME_PLANE_STRIDE(&memory, plane);
            std::memcpy(toFrame ? frame.Row(plane, y) : row, toFrame ? row : frame.Row(plane, y),
                        frame.RowBytes(plane));
        }
}

GstBuffer *BufferOf(const Form &form, char source, int number) {
    GstVideoInfo info = form.Info();
    GstBuffer *buffer = gst_buffer_new_allocate(nullptr, info.size, nullptr);
    GstVideoFrame memory;
    gst_video_frame_map(&memory, &info, buffer, GST_MAP_WRITE);
    Frame noise = Noise(form, source, number);
    CopyRows(memory, noise, false);
    gst_video_frame_unmap(&memory);
    GST_BUFFER_PTS(buffer) = TimeOf(number);
    GST_BUFFER_DURATION(buffer) = TimeOf(number + 1) - TimeOf(number);
    return buffer;
}

/// Whether a sample is this picture, at this place in the stream.
void ExpectSample(GstSample *sample, const Frame &expected, int number) {
    ASSERT_NE(sample, nullptr) << "frame " << number;
    GstVideoInfo info;
    gst_video_info_from_caps(&info, gst_sample_get_caps(sample));
    GstBuffer *buffer = gst_sample_get_buffer(sample);
    EXPECT_EQ(GST_BUFFER_PTS(buffer), TimeOf(number));
    ASSERT_EQ(info.width, expected.Width());
    ASSERT_EQ(info.height, expected.Height());
    ASSERT_EQ(GST_VIDEO_INFO_N_PLANES(&info), guint(expected.Planes()));
    Frame shown(expected.Layout(), info.width, info.height);
    GstVideoFrame memory;
    gst_video_frame_map(&memory, &info, buffer, GST_MAP_READ);
    CopyRows(memory, shown, true);
    gst_video_frame_unmap(&memory);
    EXPECT_TRUE(std::ranges::equal(shown.Bytes(), expected.Bytes())) << "frame " << number;
    gst_sample_unref(sample);
}

constexpr char kTestSources[] = "videotestsrc ! mix.sink_0 videotestsrc pattern=ball ! mix.sink_1";

/// Two streams through the element: the tests' own frames, or those of other sources.
struct Mix {
    explicit Mix(const std::string &properties,
                 const std::string &sources = "appsrc name=b format=time ! mix.sink_1 "
                                              "appsrc name=a format=time ! mix.sink_0") {
        Start();
        pipeline.reset(gst_parse_launch(
            Text("tp_transition name=mix ", properties, " ! appsink name=out sync=false ", sources)
                .c_str(),
            nullptr));
    }
    ~Mix() { gst_element_set_state(pipeline.get(), GST_STATE_NULL); }

    Pipeline Get(const std::string &name) const {
        return Pipeline(gst_bin_get_by_name(GST_BIN(pipeline.get()), name.c_str()));
    }
    /// Frame i of the stream is at positions[i].
    void SetPositions(const std::vector<double> &positions) const {
        GstControlSource *points = gst_interpolation_control_source_new();
        g_object_set(points, "mode", GST_INTERPOLATION_MODE_NONE, nullptr);
        for (std::size_t i = 0; i < positions.size(); ++i)
            gst_timed_value_control_source_set(GST_TIMED_VALUE_CONTROL_SOURCE(points), TimeOf(i),
                                               positions[i]);
        const Pipeline mix = Get("mix");
        gst_object_add_control_binding(
            GST_OBJECT(mix.get()),
            gst_direct_control_binding_new_absolute(GST_OBJECT(mix.get()), "position", points));
        gst_object_unref(points);
    }
    void Play() const { gst_element_set_state(pipeline.get(), GST_STATE_PLAYING); }
    void Push(char source, const Form &form, int number) const {
        const Pipeline element = Get({source});
        GstCaps *caps = gst_caps_from_string(form.Caps().c_str());
        gst_app_src_set_caps(GST_APP_SRC(element.get()), caps);
        gst_caps_unref(caps);
        gst_app_src_push_buffer(GST_APP_SRC(element.get()), BufferOf(form, source, number));
    }
    /// Null at the end of the stream, or after a time in which any machine has drawn it.
    GstSample *Pull() const {
        return gst_app_sink_try_pull_sample(GST_APP_SINK(Get("out").get()), 20 * GST_SECOND);
    }

    Pipeline pipeline;
};

/// Two streams of noise, and what plays them.
struct Streams {
    const Transition &transition;
    std::vector<Form> forms; ///< of each frame
    std::string properties = {};
    hostkit::Motion motion = {};
    int endOfA = 99, endOfB = 99; ///< one may end before the other
    int first = 0;                ///< number of the first frames
};

constexpr double kPositions[] = {0, 0.25, 0.5, 0.8, 1, 0.6};

/// What the element shows, by a direct call: made once the element draws no more, for the plug-in
/// draws one frame at a time. There is black before a frame has come, and the other stream where
/// one has ended.
Frame Expected(const Streams &streams, int i) {
    const Form &form = streams.forms[i];
    const Frame a = Noise(form, 'a', i), b = Noise(form, 'b', i);
    const double position = i >= streams.endOfA ? 1 : i >= streams.endOfB ? 0 : kPositions[i];
    Frame out(form.Layout(), form.width, form.height);
    if (i < streams.first)
        for (int plane = 0; plane < out.Planes(); ++plane)
            for (int y = 0; y < out.Rows(plane); ++y)
                for (int x = 0; x < out.RowBytes(plane); ++x)
                    out.Row(plane, y)[x] = form.Layout() == Path::Rgb ? (x % 4 == 3 ? 255 : 0)
                                           : plane                    ? 128
                                                                      : 16;
    else if (position <= 0 || position >= 1)
        CopyPicture(position <= 0 ? a : b, out);
    else
        Draw(streams.transition, streams.motion, {position, i}, out, a, b);
    return out;
}

void ExpectDrawn(const Streams &streams) {
    const int frames = int(streams.forms.size());
    SCOPED_TRACE(Text(streams.transition.name, ' ', streams.forms[0].Caps(), ' ',
                      streams.properties, streams.endOfA, streams.endOfB, streams.first));
    const Mix mix("transition=" + hostkit::Stem(streams.transition.name) + " " +
                  streams.properties);
    mix.SetPositions({kPositions, kPositions + frames});
    mix.Play();
    for (const char source : {'a', 'b'}) {
        const int end = std::min(frames, source == 'a' ? streams.endOfA : streams.endOfB);
        for (int i = streams.first; i < end; ++i)
            mix.Push(source, streams.forms[i], i);
        gst_app_src_end_of_stream(GST_APP_SRC(mix.Get({source}).get()));
    }
    std::vector<GstSample *> samples;
    while (GstSample *sample = mix.Pull())
        samples.push_back(sample);
    EXPECT_TRUE(gst_app_sink_is_eos(GST_APP_SINK(mix.Get("out").get())));
    ASSERT_EQ(int(samples.size()), frames);
    for (int i = 0; i < frames; ++i)
        ExpectSample(samples[i], Expected(streams, i), i);
}

TEST(GStreamer, ShowsWhatADirectCallDraws) {
    const auto five = [](const Form &form) { return std::vector(5, form); };
    for (const Form &form : {Form{"I420", 320, 180}, Form{"I420", 211, 123}, Form{"BGRA", 211, 123},
                             Form{"RGBA", 64, 48}})
        for (const Transition &transition : TestedPlugin().Transitions())
            if (form.Layout() == Path::Yuv || (transition.rgb && !transition.info.countsBytes))
                ExpectDrawn({transition, five(form)});
    const auto &[wipe, wind, push] =
        std::tie(*TestedPlugin().Find("Linear Wipe"), *TestedPlugin().Find("Wind"),
                 *TestedPlugin().Find("Push"));
    const Form large = {"I420", 320, 180}, first = {"I420", 64, 48}, second = {"BGRA", 96, 54},
               third = {"I420", 31, 17};
    ExpectDrawn({wipe, five(large), "reverse=true", {nullptr, true, 0}});
    ExpectDrawn({wipe, five(large), "easing=in-cubic", {hostkit::FindEasing("in-cubic")}});
    ExpectDrawn({wind, five(large), "seed=7", {nullptr, false, 7}});
    ExpectDrawn({push, five(first), "", {}, 2});
    ExpectDrawn({push, five(first), "", {}, 99, 2});
    ExpectDrawn({push, five(first), "", {}, 99, 99, 2});
    ExpectDrawn({push, five(second), "", {}, 99, 99, 2});
    ExpectDrawn({push, {first, first, second, second, third, third}});
}

TEST(GStreamer, GoesOverToTheFormatOfAnotherTransition) {
    const Form form = {"BGRA", 64, 48};
    const Mix mix("position=0.5 transition=push");
    mix.Play();
    for (const int number : {0, 1, 2}) {
        for (const char source : {'a', 'b'})
            mix.Push(source, form, number);
        GstSample *const sample = mix.Pull();
        ASSERT_NE(sample, nullptr);
        GstVideoInfo info;
        gst_video_info_from_caps(&info, gst_sample_get_caps(sample));
        EXPECT_STREQ(GST_VIDEO_INFO_NAME(&info), number == 0 ? "BGRA" : "I420");
        gst_sample_unref(sample);
        gst_util_set_object_arg(G_OBJECT(mix.Get("mix").get()), "transition", "trcirque");
    }
}

TEST(GStreamer, BringsDifferentInputsTogether) {
    const Form small = {"BGRA", 32, 24}, large = {"I420", 64, 48};
    const Mix mix("transition=push ! video/x-raw,format=I420");
    mix.SetPositions({1, 0.5});
    mix.Play();
    for (int i = 0; i < 2; ++i) {
        mix.Push('a', small, i);
        mix.Push('b', large, i);
    }
    ExpectSample(mix.Pull(), Noise(large, 'b', 0), 0);
    GstSample *const mixed = mix.Pull();
    ASSERT_NE(mixed, nullptr);
    gst_sample_unref(mixed);
}

TEST(GStreamer, DrawsTheSameAfterASeek) {
    const Mix mix("transition=wind position=0.5 ! video/x-raw,format=I420,width=64,height=48,"
                  "framerate=30000/1001",
                  kTestSources);
    mix.Play();
    const auto pull = [&] {
        GstSample *const sample = mix.Pull();
        GstBuffer *const buffer = gst_sample_get_buffer(sample);
        std::string bytes(gst_buffer_get_size(buffer), '\0');
        gst_buffer_extract(buffer, 0, bytes.data(), bytes.size());
        std::pair result(GST_BUFFER_PTS(buffer), bytes);
        gst_sample_unref(sample);
        return result;
    };
    std::vector<std::pair<GstClockTime, std::string>> played(12);
    std::ranges::generate(played, pull);
    for (const int i : {7, 2, 11, 0}) {
        EXPECT_EQ(played[i].first, TimeOf(i));
        gst_element_seek_simple(mix.pipeline.get(), GST_FORMAT_TIME,
                                GstSeekFlags(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE),
                                TimeOf(i));
        EXPECT_TRUE(pull() == played[i]) << i;
    }
}

TEST(GStreamer, BearsChangesWhileItPlays) {
    const Mix mix("transition=push position=0.5", kTestSources);
    mix.Play();
    const std::jthread changes([element = mix.Get("mix")] {
        for (int i = 0; i < 500; ++i) {
            g_object_set(element.get(), "reverse", i % 2, "position", i / 500.0, "easing", i % 3,
                         "seed", guint64(i), nullptr);
            gst_util_set_object_arg(G_OBJECT(element.get()), "transition", i % 2 ? "wind" : "turn");
        }
    });
    for (int i = 0; i < 100; ++i) {
        GstSample *const sample = mix.Pull();
        ASSERT_NE(sample, nullptr);
        gst_sample_unref(sample);
    }
}

TEST(GStreamer, HasTheInputsThatItNames) {
    Start();
    const Pipeline mix(
        GST_ELEMENT(gst_object_ref_sink(gst_element_factory_make("tp_transition", nullptr))));
    for (const auto &[name, isThere] :
         {std::pair("sink_2", false), {"sink_1", true}, {"sink_0", true}, {"sink_%u", false}}) {
        GstPad *const pad = gst_element_request_pad_simple(mix.get(), name);
        EXPECT_EQ(pad != nullptr, isThere) << name;
        if (pad)
            gst_object_unref(pad);
    }
}

TEST(GStreamer, LeaksNothing) {
    Start();
    const std::string said =
        Output("GST_TRACERS=leaks timeout 60 env " TP_FOREIGN_ENVIRONMENT
               " gst-launch-1.0 -q tp_transition name=mix position=0.5 ! fakesink videotestsrc "
               "num-buffers=5 ! mix. videotestsrc num-buffers=9 ! video/x-raw,format=RGBA ! mix.");
    EXPECT_EQ(said.find("Leaks detected"), std::string::npos) << said;
}

TEST(GStreamer, TellsOfItselfAndOfWhatItCannotLoad) {
    Start();
    const std::string inspect = "env " TP_FOREIGN_ENVIRONMENT " gst-inspect-1.0 tp_transition";
    const std::string text = Output(inspect);
    for (const Transition &transition : TestedPlugin().Transitions())
        EXPECT_NE(text.find(transition.info.title + ": " + transition.info.motion),
                  std::string::npos)
            << transition.name;
    const Folder folder;
    const Outcome outcome = Shell("GST_REGISTRY=" + (folder / "r") +
                                  " TP_ERASE_PLUGIN=/nowhere/libtp_Erase.so " + inspect);
    EXPECT_NE(outcome.status, 0);
    EXPECT_NE(outcome.output.find("cannot load the plug-in /nowhere/libtp_Erase.so"),
              std::string::npos)
        << outcome.output;
}

} // namespace
