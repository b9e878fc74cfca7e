#include "Element.h"

#include "Draw.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <gst/video/gstvideoaggregator.h>
#include <string>
#include <vector>

namespace gstreamer {

using hostkit::Frame;
using hostkit::Path;
using hostkit::Transition;

namespace {

// -------------------------------------------------------------------------------------------------
// What can be chosen
// -------------------------------------------------------------------------------------------------

/// Set before the element's class is made.
const std::vector<Transition> *transitions;

// GStreamer keeps the values and their texts for the life of the process.

GType TransitionType() {
    static auto &values = *new std::vector<GEnumValue>;
    static const GType type = [] {
        for (const Transition &transition : *transitions) {
            const hostkit::Info &info = transition.info;
            if (transition.yuv || transition.rgb)
                values.push_back({int(&transition - transitions->data()),
                                  g_strdup((info.title + ": " + info.motion).c_str()),
                                  g_strdup(hostkit::Stem(transition.name).c_str())});
        }
        values.push_back({});
        return g_enum_register_static("TpTransitionName", values.data());
    }();
    return type;
}

GType EasingType() {
    static auto &values = *new std::vector<GEnumValue>;
    static const GType type = [] {
        for (const hostkit::Easing &easing : hostkit::Easings())
            values.push_back({int(values.size()), easing.description, easing.name});
        values.push_back({});
        return g_enum_register_static("TpTransitionEasing", values.data());
    }();
    return type;
}

// -------------------------------------------------------------------------------------------------
// The inputs, which become what the output is
// -------------------------------------------------------------------------------------------------

struct TpTransitionInput {
    GstVideoAggregatorConvertPad parent;
};
struct TpTransitionInputClass {
    GstVideoAggregatorConvertPadClass parent;
};
G_DEFINE_TYPE(TpTransitionInput, input, GST_TYPE_VIDEO_AGGREGATOR_CONVERT_PAD)

/// The same as far as pixels go.
bool IsAlike(const GstVideoInfo &a, const GstVideoInfo &b) {
    return GST_VIDEO_INFO_FORMAT(&a) == GST_VIDEO_INFO_FORMAT(&b) && a.width == b.width &&
           a.height == b.height && a.chroma_site == b.chroma_site &&
           gst_video_colorimetry_is_equal(&a.colorimetry, &b.colorimetry);
}

void DescribeConversion(GstVideoAggregatorConvertPad *pad, GstVideoAggregator *element,
                        GstVideoInfo *conversion) {
    const GstVideoInfo &input = GST_VIDEO_AGGREGATOR_PAD(pad)->info;
    *conversion = IsAlike(input, element->info) ? input : element->info;
    // Of these the converter changes nothing.
    conversion->fps_n = input.fps_n;
    conversion->fps_d = input.fps_d;
    conversion->interlace_mode = input.interlace_mode;
}

void input_init(TpTransitionInput *) {}

void input_class_init(TpTransitionInputClass *type) {
    type->parent.create_conversion_info = DescribeConversion;
}

// -------------------------------------------------------------------------------------------------
// The element
// -------------------------------------------------------------------------------------------------

struct TpTransition {
    GstVideoAggregator parent;
    // Under the object's lock.
    int transition;
    int easing;
    double position;
    gboolean reverse;
    guint64 seed;
};
struct TpTransitionClass {
    GstVideoAggregatorClass parent;
};
G_DEFINE_TYPE(TpTransition, element, GST_TYPE_VIDEO_AGGREGATOR)

// Numbers of the properties.
constexpr guint kTransition = 1, kPosition = 2, kEasing = 3, kReverse = 4, kSeed = 5;

/// Whether packed frames are drawn: not where nobody wants that path unasked.
bool DrawsPacked(const Transition &transition) {
    return transition.rgb && !transition.info.countsBytes;
}

Frame View(GstVideoFrame *frame) {
    const Path layout = GST_VIDEO_FRAME_N_PLANES(frame) == 1 ? Path::Rgb : Path::Yuv;
    std::uint8_t *rows[3] = {};
    int pitches[3] = {};
    for (guint plane = 0; plane < GST_VIDEO_FRAME_N_PLANES(frame); ++plane) {
        rows[plane] = static_cast<std::uint8_t *>(GST_VIDEO_FRAME_PLANE_DATA(frame, plane));
        pitches[plane] = GST_VIDEO_FRAME_PLANE_STRIDE(frame, plane);
    }
    return {layout, GST_VIDEO_FRAME_WIDTH(frame), GST_VIDEO_FRAME_HEIGHT(frame), rows, pitches};
}

/// What the properties say at an instant of the stream, and when that is.
struct Order {
    const Transition *transition;
    hostkit::Motion motion;
    hostkit::Moment moment;
};

Order OrderAt(TpTransition *self, GstClockTime pts) {
    const GstSegment &segment = GST_AGGREGATOR_PAD(GST_AGGREGATOR(self)->srcpad)->segment;
    const GstClockTime time = gst_segment_to_stream_time(&segment, GST_FORMAT_TIME, pts);
    if (GST_CLOCK_TIME_IS_VALID(time))
        gst_object_sync_values(GST_OBJECT(self), time);
    const GstVideoInfo &info = self->parent.info;
    const guint64 frame =
        GST_CLOCK_TIME_IS_VALID(time) && info.fps_n > 0
            ? gst_util_uint64_scale_round(time, info.fps_n, GST_SECOND * info.fps_d)
            : 0;
    GST_OBJECT_LOCK(self);
    const Order order = {&(*transitions)[self->transition],
                         {&hostkit::Easings()[self->easing], self->reverse != FALSE, self->seed},
                         {self->position, gint64(frame)}};
    GST_OBJECT_UNLOCK(self);
    return order;
}

/// The pads' frames, A's and B's; null where nothing has come yet or nothing comes any more.
struct Inputs {
    GstVideoFrame *a = nullptr;
    GstVideoFrame *b = nullptr;
};

/// A's pad is the one of the lower number.
Inputs TakeInputs(TpTransition *self) {
    std::vector<std::pair<guint64, GstVideoAggregatorPad *>> pads;
    GST_OBJECT_LOCK(self);
    for (GList *pad = GST_ELEMENT(self)->sinkpads; pad; pad = pad->next)
        pads.emplace_back(
            g_ascii_strtoull(GST_OBJECT_NAME(pad->data) + std::strlen("sink_"), nullptr, 10),
            GST_VIDEO_AGGREGATOR_PAD(pad->data));
    GST_OBJECT_UNLOCK(self);
    std::sort(pads.begin(), pads.end());
    // A frame that could not be converted counts as none.
    const auto take = [&](std::size_t i) -> GstVideoFrame * {
        GstVideoFrame *frame =
            i < pads.size() ? gst_video_aggregator_pad_get_prepared_frame(pads[i].second) : nullptr;
        const GstVideoInfo &info = self->parent.info;
        const bool fits = frame && GST_VIDEO_FRAME_FORMAT(frame) == GST_VIDEO_INFO_FORMAT(&info) &&
                          GST_VIDEO_FRAME_WIDTH(frame) == info.width &&
                          GST_VIDEO_FRAME_HEIGHT(frame) == info.height;
        return fits ? frame : nullptr;
    };
    return {take(0), take(1)};
}

void Blacken(Frame &frame) {
    constexpr std::uint8_t kPlanar[] = {16, 128, 128}, kPacked[] = {0, 0, 0, 255};
    for (int plane = 0; plane < frame.Planes(); ++plane)
        for (int y = 0; y < frame.Rows(plane); ++y)
            for (int x = 0; x < frame.RowBytes(plane); ++x)
                frame.Row(plane, y)[x] =
                    frame.Layout() == Path::Yuv ? kPlanar[plane] : kPacked[x % 4];
}

/// The ends are whole: outside its time a transition leaves no trace. Where one input has nothing
/// the other is seen, and where none has, black.
void DrawFrame(const Order &order, const Inputs &inputs, Frame &out) {
    if (!inputs.a && !inputs.b)
        return Blacken(out);
    const bool isA = inputs.a && (!inputs.b || !(order.moment.position > 0));
    if (isA || !inputs.a || order.moment.position >= 1)
        CopyPicture(View(isA ? inputs.a : inputs.b), out);
    else if (!HasPath(*order.transition, out.Layout())) // chosen since the caps were agreed on
        CopyPicture(View(inputs.a), out);
    else
        Draw(*order.transition, order.motion, order.moment, out, View(inputs.a), View(inputs.b));
}

GstFlowReturn Aggregate(GstVideoAggregator *aggregator, GstBuffer *buffer) {
    auto *self = reinterpret_cast<TpTransition *>(aggregator);
    const Order order = OrderAt(self, GST_BUFFER_PTS(buffer));
    GstVideoFrame mapped;
    if (!gst_video_frame_map(&mapped, &aggregator->info, buffer, GST_MAP_READWRITE))
        return GST_FLOW_ERROR;
    GstFlowReturn answer = GST_FLOW_OK;
    try {
        const Inputs inputs = TakeInputs(self);
        Frame out = View(&mapped);
        DrawFrame(order, inputs, out);
    } catch (const std::exception &error) { // memory is short
        GST_ELEMENT_ERROR(self, RESOURCE, FAILED, (nullptr), ("%s", error.what()));
        answer = GST_FLOW_ERROR;
    }
    gst_video_frame_unmap(&mapped);
    return answer;
}

/// The format that comes nearest to the inputs', but not packed where the transition does not draw
/// so.
GstCaps *UpdateCaps(GstVideoAggregator *aggregator, GstCaps *caps) {
    auto *self = reinterpret_cast<TpTransition *>(aggregator);
    GST_OBJECT_LOCK(self);
    const bool drawsPacked = DrawsPacked((*transitions)[self->transition]);
    GST_OBJECT_UNLOCK(self);
    GstCaps *drawn = gst_caps_copy(caps);
    if (!drawsPacked) {
        GstCaps *planar =
            gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "I420", nullptr);
        gst_caps_unref(drawn);
        drawn = gst_caps_intersect_full(caps, planar, GST_CAPS_INTERSECT_FIRST);
        gst_caps_unref(planar);
    }
    GstCaps *best =
        GST_VIDEO_AGGREGATOR_CLASS(element_parent_class)->update_caps(aggregator, drawn);
    gst_caps_unref(drawn);
    return best;
}

/// Two and no more.
GstPad *RequestPad(GstElement *self, GstPadTemplate *sinks, const gchar *name,
                   const GstCaps *caps) {
    GST_OBJECT_LOCK(self);
    const bool isFull = self->numsinkpads >= 2;
    GST_OBJECT_UNLOCK(self);
    const bool isOther = name && !g_str_equal(name, "sink_0") && !g_str_equal(name, "sink_1");
    if (isFull || isOther) {
        GST_WARNING_OBJECT(self, "there are sink_0, the outgoing stream, and sink_1 only");
        return nullptr;
    }
    return GST_ELEMENT_CLASS(element_parent_class)->request_new_pad(self, sinks, name, caps);
}

void SetProperty(GObject *object, guint id, const GValue *value, GParamSpec *) {
    auto *self = reinterpret_cast<TpTransition *>(object);
    GST_OBJECT_LOCK(self);
    switch (id) {
    case kTransition:
        self->transition = g_value_get_enum(value);
        break;
    case kPosition:
        self->position = g_value_get_double(value);
        break;
    case kEasing:
        self->easing = g_value_get_enum(value);
        break;
    case kReverse:
        self->reverse = g_value_get_boolean(value);
        break;
    default:
        self->seed = g_value_get_uint64(value);
    }
    GST_OBJECT_UNLOCK(self);
    // Another transition may draw other formats.
    if (id == kTransition)
        gst_pad_mark_reconfigure(GST_AGGREGATOR(self)->srcpad);
}

void GetProperty(GObject *object, guint id, GValue *value, GParamSpec *) {
    auto *self = reinterpret_cast<TpTransition *>(object);
    GST_OBJECT_LOCK(self);
    switch (id) {
    case kTransition:
        g_value_set_enum(value, self->transition);
        break;
    case kPosition:
        g_value_set_double(value, self->position);
        break;
    case kEasing:
        g_value_set_enum(value, self->easing);
        break;
    case kReverse:
        g_value_set_boolean(value, self->reverse);
        break;
    default:
        g_value_set_uint64(value, self->seed);
    }
    GST_OBJECT_UNLOCK(self);
}

void element_init(TpTransition *) {}

void AddProperties(GObjectClass *type) {
    constexpr auto kUsual =
        GParamFlags(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING);
    constexpr auto kControlled = GParamFlags(kUsual | GST_PARAM_CONTROLLABLE);
    type->set_property = SetProperty;
    type->get_property = GetProperty;
    g_object_class_install_property(
        type, kTransition,
        g_param_spec_enum("transition", "Transition",
                          "Which one; A is the outgoing stream (sink_0), B the incoming one",
                          TransitionType(), 0, kUsual));
    g_object_class_install_property(
        type, kPosition,
        g_param_spec_double("position", "Position",
                            "How far the transition has come: 0 shows A whole, 1 shows B whole", 0,
                            1, 0, kControlled));
    g_object_class_install_property(type, kEasing,
                                    g_param_spec_enum("easing", "Easing",
                                                      "How the speed of the motion changes",
                                                      EasingType(), 0, kUsual));
    g_object_class_install_property(
        type, kReverse,
        g_param_spec_boolean("reverse", "Reverse", "Plays the motion backwards, still from A to B",
                             FALSE, kUsual));
    g_object_class_install_property(
        type, kSeed,
        g_param_spec_uint64("seed", "Seed",
                            "For the transitions that draw random numbers: another number draws "
                            "other pictures, the same number the same ones again",
                            0, G_MAXUINT64, 0, kUsual));
}

GstStaticPadTemplate sinks =
    GST_STATIC_PAD_TEMPLATE("sink_%u", GST_PAD_SINK, GST_PAD_REQUEST,
                            GST_STATIC_CAPS(GST_VIDEO_CAPS_MAKE(GST_VIDEO_FORMATS_ALL)));
GstStaticPadTemplate source = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS,
    GST_STATIC_CAPS(GST_VIDEO_CAPS_MAKE("{ I420, BGRA, RGBA, BGRx, RGBx }")));

void element_class_init(TpTransitionClass *type) {
    auto *element = reinterpret_cast<GstElementClass *>(type);
    AddProperties(reinterpret_cast<GObjectClass *>(type));
    gst_element_class_add_static_pad_template_with_gtype(element, &sinks, input_get_type());
    gst_element_class_add_static_pad_template_with_gtype(element, &source, GST_TYPE_AGGREGATOR_PAD);
    gst_element_class_set_static_metadata(element, "Video transition", "Filter/Editor/Video",
                                          "Draws a transition between two streams",
                                          "tp_Erase maintainers <tp-erase@example.org>");
    element->request_new_pad = RequestPad;
    type->parent.aggregate_frames = Aggregate;
    type->parent.update_caps = UpdateCaps;
}

} // namespace

bool RegisterElement(GstPlugin *module, const std::vector<Transition> &all) {
    transitions = &all;
    return gst_element_register(module, "tp_transition", GST_RANK_NONE, element_get_type());
}

} // namespace gstreamer
