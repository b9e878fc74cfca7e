// The element tp_transition in real pipelines: every frame must be what a direct call of the
// plug-in draws from the inputs' frames.

#include "Draw.h"
#include "Shell.h"
#include "Support.h"

#include <gst/app/app.h>
#include <gst/check/gstharness.h>
#include <gst/controller/controller.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace {

using hostkit::Frame;
using hostkit::Path;
using hostkit::Transition;

constexpr int kFrames = 5;
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

std::ostream &operator<<(std::ostream &out, const Form &form) {
    return out << form.format << ' ' << form.width << " x " << form.height;
}

Frame Noise(const Form &form, int seed) {
    Frame frame(form.Layout(), form.width, form.height);
    FillRandom(frame.Bytes(), seed);
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

GstBuffer *BufferOf(const Form &form, Frame frame, int number) {
    GstVideoInfo info = form.Info();
    GstBuffer *buffer = gst_buffer_new_allocate(nullptr, info.size, nullptr);
    GstVideoFrame memory;
    gst_video_frame_map(&memory, &info, buffer, GST_MAP_WRITE);
    CopyRows(memory, frame, false);
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

/// Two streams of the tests' own frames through the element.
class Mix {
public:
    explicit Mix(const std::string &properties) {
        Start();
        pipeline.reset(gst_parse_launch(
            Text("tp_transition name=mix ", properties, " ! appsink name=out sync=false ",
                 "appsrc name=b format=time ! mix.sink_1 appsrc name=a format=time ! mix.sink_0")
                .c_str(),
            nullptr));
    }
    ~Mix() { gst_element_set_state(pipeline.get(), GST_STATE_NULL); }

    Pipeline Get(const char *name) const {
        return Pipeline(gst_bin_get_by_name(GST_BIN(pipeline.get()), name));
    }
    /// Frame i of the stream shows positions[i].
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
    void SetForm(const char *source, const Form &form) const {
        GstCaps *caps = gst_caps_from_string(form.Caps().c_str());
        gst_app_src_set_caps(GST_APP_SRC(Get(source).get()), caps);
        gst_caps_unref(caps);
    }
    void Push(const char *source, const Form &form, const Frame &frame, int number) const {
        Frame copy(form.Layout(), form.width, form.height);
        CopyPicture(frame, copy);
        gst_app_src_push_buffer(GST_APP_SRC(Get(source).get()),
                                BufferOf(form, std::move(copy), number));
    }
    void End(const char *source) const {
        gst_app_src_end_of_stream(GST_APP_SRC(Get(source).get()));
    }
    /// Null at the end of the stream, or after a time in which any machine has drawn it.
    GstSample *Pull() const {
        return gst_app_sink_try_pull_sample(GST_APP_SINK(Get("out").get()), 20 * GST_SECOND);
    }
    /// Up to the end of the stream.
    std::vector<GstSample *> PullAll() const {
        std::vector<GstSample *> samples;
        while (GstSample *sample = Pull())
            samples.push_back(sample);
        EXPECT_TRUE(gst_app_sink_is_eos(GST_APP_SINK(Get("out").get())));
        return samples;
    }

    Pipeline pipeline;
};

/// What the element shows at a position, by a direct call: made once the element draws no more, for
/// the plug-in draws one frame at a time.
Frame Drawn(const Transition &transition, const hostkit::Motion &motion, double position, int i,
            const Frame &a, const Frame &b) {
    Frame out(a.Layout(), a.Width(), a.Height());
    if (position <= 0 || position >= 1)
        CopyPicture(position <= 0 ? a : b, out);
    else
        Draw(transition, motion, {position, i}, out, a, b);
    return out;
}

/// Two streams of noise in these forms, of which one may end before the other.
struct Streams {
    std::vector<Form> forms; ///< of each frame
    int a = int(forms.size()), b = int(forms.size());
};

/// Plays the streams through the element and expects them drawn at these positions.
void ExpectDrawn(const Mix &mix, const Streams &streams, const Transition &transition,
                 const std::vector<double> &positions, const hostkit::Motion &motion = {}) {
    const auto noise = [&](char source, int i) { return Noise(streams.forms[i], 10 * i + source); };
    mix.Play();
    for (const char *source : {"a", "b"}) {
        for (int i = 0; i < (*source == 'a' ? streams.a : streams.b); ++i) {
            mix.SetForm(source, streams.forms[i]);
            mix.Push(source, streams.forms[i], noise(*source, i), i);
        }
        mix.End(source);
    }
    const std::vector<GstSample *> samples = mix.PullAll();
    ASSERT_EQ(samples.size(), positions.size());
    for (int i = 0; i < int(samples.size()); ++i)
        ExpectSample(samples[i],
                     Drawn(transition, motion, positions[i], i, noise('a', i), noise('b', i)), i);
}

void ExpectDirectCalls(const Form &form, const Transition &transition,
                       const std::string &properties = "", const hostkit::Motion &motion = {}) {
    SCOPED_TRACE(Text(transition.name, ' ', form, ' ', properties));
    const std::vector<double> positions = {0, 0.25, 0.5, 0.8, 1};
    const Mix mix("transition=" + hostkit::Stem(transition.name) + " " + properties);
    mix.SetPositions(positions);
    ExpectDrawn(mix, {std::vector(positions.size(), form)}, transition, positions, motion);
}

TEST(GStreamer, ShowsWhatADirectCallDraws) {
    for (const Form &form : {Form{"I420", 320, 180}, Form{"I420", 211, 123}, Form{"BGRA", 211, 123},
                             Form{"RGBA", 64, 48}})
        for (const Transition &transition : TestedPlugin().Transitions())
            if (form.Layout() == Path::Yuv || (transition.rgb && !transition.info.countsBytes))
                ExpectDirectCalls(form, transition);
}

TEST(GStreamer, ObeysTheProperties) {
    const Form form = {"I420", 320, 180};
    const Transition &wipe = *TestedPlugin().Find("Linear Wipe");
    ExpectDirectCalls(form, wipe, "reverse=true", {nullptr, true, 0});
    ExpectDirectCalls(form, wipe, "easing=in-cubic", {hostkit::FindEasing("in-cubic"), false, 0});
    ExpectDirectCalls(form, *TestedPlugin().Find("Wind"), "seed=7", {nullptr, false, 7});
}

TEST(GStreamer, ShowsTheOtherStreamWhereOneHasEnded) {
    const std::vector<Form> forms(kFrames, {"I420", 64, 48});
    const Transition &push = *TestedPlugin().Find("Push");
    ExpectDrawn(Mix("transition=push position=0.5"), {forms, 2}, push, {0.5, 0.5, 1, 1, 1});
    ExpectDrawn(Mix("transition=push position=0.5"), {forms, kFrames, 2}, push,
                {0.5, 0.5, 0, 0, 0});
}

TEST(GStreamer, IsBlackBeforeAFrameHasCome) {
    for (const auto &[form, black] : {std::pair(Form{"I420", 64, 48}, std::array{16, 128, 128, 0}),
                                      {Form{"RGBA", 64, 48}, std::array{0, 0, 0, 255}}}) {
        Mix mix("transition=push position=0");
        mix.Play();
        for (const char *source : {"a", "b"}) {
            mix.SetForm(source, form);
            mix.Push(source, form, Noise(form, 1), 2);
            mix.End(source);
        }
        Frame expected(form.Layout(), form.width, form.height);
        for (int plane = 0; plane < expected.Planes(); ++plane)
            for (int y = 0; y < expected.Rows(plane); ++y)
                for (int x = 0; x < expected.RowBytes(plane); ++x)
                    expected.Row(plane, y)[x] =
                        std::uint8_t(black[form.Layout() == Path::Yuv ? plane : x % 4]);
        const std::vector<GstSample *> samples = mix.PullAll();
        ASSERT_EQ(samples.size(), 3u);
        const Frame noise = Noise(form, 1);
        for (int i = 0; i < 3; ++i)
            ExpectSample(samples[i], i < 2 ? expected : noise, i);
    }
}

TEST(GStreamer, FollowsNewSizesAndFormats) {
    const Form first = {"I420", 64, 48}, second = {"BGRA", 96, 54}, third = {"I420", 31, 17};
    ExpectDrawn(Mix("transition=push position=0.5"), {{first, first, second, second, third, third}},
                *TestedPlugin().Find("Push"), std::vector(6, 0.5));
}

TEST(GStreamer, GoesOverToTheFormatOfAnotherTransition) {
    const Form form = {"BGRA", 64, 48};
    Mix mix("position=0.5 transition=push");
    mix.Play();
    const char *expected = "BGRA";
    for (int i = 0; i < 3; ++i) {
        for (const char *source : {"a", "b"}) {
            mix.SetForm(source, form);
            mix.Push(source, form, Noise(form, *source), i);
        }
        GstSample *const sample = mix.Pull();
        ASSERT_NE(sample, nullptr);
        GstVideoInfo info;
        gst_video_info_from_caps(&info, gst_sample_get_caps(sample));
        EXPECT_STREQ(GST_VIDEO_INFO_NAME(&info), expected);
        gst_sample_unref(sample);
        gst_util_set_object_arg(G_OBJECT(mix.Get("mix").get()), "transition", "trcirque");
        expected = "I420";
    }
}

TEST(GStreamer, BringsDifferentInputsTogether) {
    const Form small = {"BGRA", 32, 24}, large = {"I420", 64, 48};
    Mix mix("transition=push ! video/x-raw,format=I420");
    mix.SetPositions({1, 0.5});
    mix.Play();
    mix.SetForm("a", small);
    mix.SetForm("b", large);
    for (int i = 0; i < 2; ++i) {
        mix.Push("a", small, Noise(small, i), i);
        mix.Push("b", large, Noise(large, i), i);
    }
    ExpectSample(mix.Pull(), Noise(large, 0), 0);
    GstSample *const mixed = mix.Pull();
    EXPECT_NE(mixed, nullptr);
    if (mixed)
        gst_sample_unref(mixed);
}

TEST(GStreamer, DrawsTheSameAfterASeek) {
    Start();
    const Pipeline pipeline(gst_parse_launch(
        "tp_transition name=mix transition=wind position=0.5 ! video/x-raw,format=I420,width=64,"
        "height=48,framerate=30000/1001 ! appsink name=out sync=false "
        "videotestsrc ! mix.sink_0 videotestsrc pattern=ball ! mix.sink_1",
        nullptr));
    const Pipeline out(gst_bin_get_by_name(GST_BIN(pipeline.get()), "out"));
    const auto pull = [&] {
        GstSample *sample = gst_app_sink_try_pull_sample(GST_APP_SINK(out.get()), 20 * GST_SECOND);
        GstBuffer *buffer = gst_buffer_ref(gst_sample_get_buffer(sample));
        gst_sample_unref(sample);
        return buffer;
    };
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    std::vector<GstBuffer *> played(12);
    std::ranges::generate(played, pull);
    for (const int i : {7, 2, 11, 0}) {
        gst_element_seek_simple(pipeline.get(), GST_FORMAT_TIME,
                                GstSeekFlags(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE),
                                TimeOf(i));
        GstBuffer *const buffer = pull();
        EXPECT_EQ(GST_BUFFER_PTS(buffer), TimeOf(i));
        GstMapInfo bytes;
        gst_buffer_map(buffer, &bytes, GST_MAP_READ);
        EXPECT_EQ(gst_buffer_memcmp(played[i], 0, bytes.data, bytes.size), 0) << i;
        gst_buffer_unmap(buffer, &bytes);
        gst_buffer_unref(buffer);
    }
    for (GstBuffer *buffer : played)
        gst_buffer_unref(buffer);
    gst_element_set_state(pipeline.get(), GST_STATE_NULL);
}

/// The element alone, between two pads that the test feeds and one that it takes from.
class Harness {
public:
    Harness() {
        Start();
        a = gst_harness_new_with_padnames("tp_transition", "sink_0", "src");
        b = gst_harness_new_with_element(a->element, "sink_1", nullptr);
        gst_util_set_object_arg(G_OBJECT(a->element), "transition", "push");
        g_object_set(a->element, "position", 0.5, nullptr);
        for (GstHarness *input : {a, b}) {
            gst_harness_set_live(input, FALSE);
            gst_harness_set_src_caps_str(input, kForm.Caps().c_str());
        }
    }
    ~Harness() {
        gst_harness_teardown(b);
        gst_harness_teardown(a);
    }
    Harness(const Harness &) = delete;
    Harness &operator=(const Harness &) = delete;

    /// A new stream's frames go in and come out drawn.
    void ExpectFrames() const {
        for (int i = 0; i < kFrames; ++i) {
            gst_harness_push(a, BufferOf(kForm, Noise(kForm, i), i));
            gst_harness_push(b, BufferOf(kForm, Noise(kForm, i + 10), i));
            if (i == 0)
                continue; // a frame comes when the next one tells how long it was
            GstBuffer *const buffer = gst_harness_pull(a);
            GstCaps *const caps = gst_pad_get_current_caps(a->sinkpad);
            ExpectSample(gst_sample_new(buffer, caps, nullptr, nullptr),
                         Drawn(*TestedPlugin().Find("Push"), {}, 0.5, i - 1, Noise(kForm, i - 1),
                               Noise(kForm, i + 9)),
                         i - 1);
            gst_caps_unref(caps);
            gst_buffer_unref(buffer);
        }
    }

    static constexpr Form kForm = {"I420", 64, 48};
    GstHarness *a, *b;
};

TEST(GStreamer, BeginsAnewAfterEachFlush) {
    const Harness harness;
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    for (int round = 0; round < 20; ++round) {
        harness.ExpectFrames();
        GstEvent *const seek =
            gst_event_new_seek(1, GST_FORMAT_TIME, GST_SEEK_FLAG_FLUSH, GST_SEEK_TYPE_SET, 0,
                               GST_SEEK_TYPE_NONE, GST_CLOCK_TIME_NONE);
        const guint32 number = gst_event_get_seqnum(seek);
        ASSERT_TRUE(gst_harness_push_upstream_event(harness.a, seek));
        const auto send = [&](GstHarness *input, GstEvent *event) {
            gst_event_set_seqnum(event, number);
            gst_harness_push_event(input, event);
        };
        for (GstHarness *input : {harness.a, harness.b})
            send(input, gst_event_new_flush_start());
        for (GstHarness *input : {harness.a, harness.b}) {
            send(input, gst_event_new_flush_stop(TRUE));
            send(input, gst_event_new_segment(&segment));
        }
        while (GstBuffer *const drawnBefore = gst_harness_try_pull(harness.a))
            gst_buffer_unref(drawnBefore);
    }
}

/// Frames that come behind a change of state have no segment, which the aggregator does not bear:
/// states change by themselves.
TEST(GStreamer, BearsChangesFromEveryThread) {
    const Harness harness;
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    GstCaps *const caps = gst_caps_from_string(Harness::kForm.Caps().c_str());
    GstBuffer *const buffer = BufferOf(Harness::kForm, Noise(Harness::kForm, 1), 0);
    GValue reverse = G_VALUE_INIT;
    g_value_init(&reverse, G_TYPE_BOOLEAN);
    const auto run = [&](std::initializer_list<GstHarnessThread *> threads) {
        g_usleep(G_USEC_PER_SEC / 2);
        gst_element_set_state(harness.a->element, GST_STATE_NULL); // nobody waits for frames
        for (GstHarnessThread *thread : threads)
            EXPECT_GT(gst_harness_stress_thread_stop(thread), 0u);
    };
    run({gst_harness_stress_push_buffer_start(harness.a, caps, &segment, buffer),
         gst_harness_stress_push_buffer_start(harness.b, caps, &segment, buffer),
         gst_harness_stress_property_start(harness.a, "reverse", &reverse)});
    run({gst_harness_stress_property_start(harness.a, "reverse", &reverse),
         gst_harness_stress_statechange_start(harness.a)});
    gst_buffer_unref(buffer);
    gst_caps_unref(caps);
}

TEST(GStreamer, HasTheInputsThatItNames) {
    Start();
    const Pipeline mix(
        GST_ELEMENT(gst_object_ref_sink(gst_element_factory_make("tp_transition", nullptr))));
    for (const auto &[name, isThere] :
         {std::pair("sink_2", false), {"sink_1", true}, {"sink_0", true}}) {
        GstPad *const pad = gst_element_request_pad_simple(mix.get(), name);
        EXPECT_EQ(pad != nullptr, isThere) << name;
        if (pad)
            gst_object_unref(pad);
    }
}

TEST(GStreamer, LeaksNothingAndTakesTwoInputs) {
    Start();
    const std::string run =
        "GST_TRACERS=leaks timeout 60 env " TP_FOREIGN_ENVIRONMENT
        " gst-launch-1.0 -q tp_transition "
        "name=mix "
        "position=0.5 ! fakesink videotestsrc num-buffers=5 ! mix. videotestsrc num-buffers=9 "
        "! video/x-raw,format=RGBA ! mix. ";
    const Outcome two = Shell(run);
    EXPECT_EQ(two.status, 0) << two.output;
    EXPECT_EQ(two.output.find("Leaks detected"), std::string::npos) << two.output;
    EXPECT_EQ(Shell(run + "videotestsrc num-buffers=5 ! mix.").status, 1);
}

TEST(GStreamer, SaysWhatItCannotLoad) {
    Start();
    const Folder folder;
    const Outcome outcome =
        Shell("GST_REGISTRY=" + (folder / "r") +
              " TP_ERASE_PLUGIN=/nowhere/libtp_Erase.so env " TP_FOREIGN_ENVIRONMENT
              " gst-inspect-1.0 tp_transition");
    EXPECT_NE(outcome.status, 0);
    EXPECT_NE(outcome.output.find("cannot load the plug-in /nowhere/libtp_Erase.so"),
              std::string::npos)
        << outcome.output;
}

TEST(GStreamer, InspectShowsEachTransitionInWords) {
    Start();
    const std::string text =
        Shell("env " TP_FOREIGN_ENVIRONMENT " gst-inspect-1.0 tp_transition").output;
    for (const Transition &transition : TestedPlugin().Transitions())
        EXPECT_NE(text.find(transition.info.title + ": " + transition.info.motion),
                  std::string::npos)
            << transition.name;
}

} // namespace
