#include "Service.h"

#include "Draw.h"
#include "Images.h"
#include "Order.h"
#include "Services.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <string_view>
#include <type_traits>

namespace mlt {

using hostkit::Moment;
using hostkit::Motion;
using hostkit::PackedFrame;
using hostkit::PlanarFrame;
using hostkit::Transition;

namespace {

std::string_view Text(mlt_properties properties, const char *name) {
    const char *text = mlt_properties_get(properties, name);
    return text ? text : "";
}

/// One picture of the overlap: a is the frame of the lower track, which also carries the result.
struct Overlap {
    mlt_transition service;
    mlt_frame a;
    mlt_frame b;
    bool swapped; ///< b is the outgoing clip
    int width;
    int height;

    mlt_properties Properties() const { return MLT_TRANSITION_PROPERTIES(service); }
    const Transition &Painter() const { return *static_cast<const Transition *>(service->child); }
    mlt_frame Outgoing() const { return swapped ? b : a; }
    mlt_frame Incoming() const { return swapped ? a : b; }
};

/// The first frame of the overlap shows position 0, the last one the full length. An overlap of
/// one frame shows the middle, and a service without limits follows the engine's own progress.
Moment MomentOf(const Overlap &overlap) {
    const mlt_position in = mlt_transition_get_in(overlap.service);
    const mlt_position out = mlt_transition_get_out(overlap.service);
    const mlt_position frame = mlt_frame_get_position(overlap.a) - in;
    if (out <= 0)
        return {1, mlt_transition_get_progress(overlap.service, overlap.a), frame};
    if (out <= in)
        return {1, 0.5, 0};
    return {double(out - in), double(frame), frame};
}

Motion MotionOf(const Overlap &overlap, const Moment &moment) {
    const mlt_properties properties = overlap.Properties();
    Motion motion;
    const std::string_view ease = Text(properties, kEase);
    motion.easing = hostkit::FindEasing(ease);
    if (!motion.easing && !ease.empty() && moment.frame == 0)
        mlt_log_warning(MLT_TRANSITION_SERVICE(overlap.service), "no easing is named \"%s\"\n",
                        std::string(ease).c_str());
    // What Kdenlive says by the name in mixes of a track's neighbours is known already.
    const bool isMix = mlt_properties_exists(properties, "kdenlive:mixcut");
    motion.reverse = mlt_properties_get_int(properties, kBackwards) ||
                     (mlt_properties_get_int(properties, kReverse) && !isMix);
    motion.seed = std::uint64_t(mlt_properties_get_int64(properties, kSeed));
    return motion;
}

/// The frame's picture in this format and size, which stays the frame's; null when the engine
/// cannot make it.
std::uint8_t *Fetch(mlt_frame frame, mlt_image_format format, int width, int height) {
    std::uint8_t *image = nullptr;
    mlt_image_format found = format;
    int w = width, h = height;
    if (mlt_frame_get_image(frame, &image, &found, &w, &h, 0) || !image)
        return nullptr;
    if ((w != width || h != height) && frame->convert_image) {
        mlt_properties_set_int(MLT_FRAME_PROPERTIES(frame), "convert_image_width", width);
        mlt_properties_set_int(MLT_FRAME_PROPERTIES(frame), "convert_image_height", height);
        if (frame->convert_image(frame, &image, &found, format))
            return nullptr;
        w = mlt_properties_get_int(MLT_FRAME_PROPERTIES(frame), "width");
        h = mlt_properties_get_int(MLT_FRAME_PROPERTIES(frame), "height");
    }
    return found == format && w == width && h == height ? image : nullptr;
}

/// Whether a frame that was fetched without alpha has pixels that one sees through.
bool IsTransparent(mlt_frame frame) {
    int size = 0;
    const std::uint8_t *alpha = mlt_frame_get_alpha_size(frame, &size);
    return alpha && std::any_of(alpha, alpha + size, [](std::uint8_t a) { return a != 255; });
}

/// One way of drawing a picture: what it fetches and returns, and how.
template<class Frame>
struct Form {
    mlt_image_format format;
    void (*read)(const std::uint8_t *, Frame &);
    void (*draw)(const Transition &, const Motion &, const Moment &, Frame &, const Frame &,
                 const Frame &);
    void (*write)(const Frame &, std::uint8_t *);
};
constexpr Form<PackedFrame> kPacked = {mlt_image_rgba, ReadRgba, hostkit::DrawRGB, WriteRgba};
constexpr Form<PlanarFrame> kPlanar = {mlt_image_yuv420p, ReadYuv420, hostkit::DrawYUV,
                                       WriteYuv420};
constexpr Form<PlanarFrame> kPlanarFromRgba = {mlt_image_rgba, ConvertRgba, hostkit::DrawYUV,
                                               ConvertToRgba};

/// The plug-in draws one picture at a time, and its random numbers are the process's.
std::mutex &DrawingLock() {
    static std::mutex lock;
    return lock;
}

/// The picture, which frame a owns from then on; null when the inputs cannot be had.
template<class Frame>
std::uint8_t *Draw(const Overlap &overlap, const Form<Frame> &form) {
    const int width = overlap.width, height = overlap.height;
    const std::uint8_t *from = Fetch(overlap.Outgoing(), form.format, width, height);
    const std::uint8_t *to = Fetch(overlap.Incoming(), form.format, width, height);
    if (!from || !to)
        return nullptr;
    Frame out(width, height), in1(width, height), in2(width, height);
    form.read(from, in1);
    form.read(to, in2);
    const Moment moment = MomentOf(overlap);
    const Motion motion = MotionOf(overlap, moment);
    {
        const std::lock_guard guard(DrawingLock());
        form.draw(overlap.Painter(), motion, moment, out, in1, in2);
    }
    if constexpr (std::is_same_v<Frame, PackedFrame>)
        hostkit::RestoreOpacity(out, in1, in2);
    const int size = mlt_image_format_size(form.format, width, height, nullptr);
    auto *picture = static_cast<std::uint8_t *>(mlt_pool_alloc(size));
    form.write(out, picture);
    mlt_frame_set_image(overlap.a, picture, size, mlt_pool_release);
    mlt_frame_set_alpha(overlap.a, nullptr, 0, nullptr);
    return picture;
}

/// Whether the packed form draws: as the user wishes, else for an engine that works in RGB and for
/// pictures that the planar form would lose something of. The packed forms of the transitions
/// exported by name only count columns as bytes; nobody gets those without asking.
bool IsPacked(const Overlap &overlap, mlt_image_format wanted) {
    const Transition &painter = overlap.Painter();
    const std::string_view path = Text(overlap.Properties(), kPath);
    if (!painter.yuv || !painter.rgb || path == kYuv || path == kRgb)
        return painter.rgb && (path == kRgb || !painter.yuv);
    if (!painter.IsRegistered())
        return false;
    if (wanted == mlt_image_rgb || wanted == mlt_image_rgba ||
        !HasPlanarSize(overlap.width, overlap.height))
        return true;
    // Alpha is known once the pictures are there.
    Fetch(overlap.a, mlt_image_yuv420p, overlap.width, overlap.height);
    Fetch(overlap.b, mlt_image_yuv420p, overlap.width, overlap.height);
    return IsTransparent(overlap.a) || IsTransparent(overlap.b);
}

int GetImage(mlt_frame a, std::uint8_t **image, mlt_image_format *format, int *width, int *height,
             int writable) {
    const mlt_frame b = mlt_frame_pop_frame(a);
    const bool swapped = mlt_frame_pop_service_int(a);
    const auto service = static_cast<mlt_transition>(mlt_frame_pop_service(a));
    const Overlap overlap = {service, a, b, swapped, *width, *height};
    if (*width > 0 && *height > 0) {
        const bool isPacked = IsPacked(overlap, *format);
        const auto &planar = HasPlanarSize(*width, *height) ? kPlanar : kPlanarFromRgba;
        if (std::uint8_t *picture = isPacked ? Draw(overlap, kPacked) : Draw(overlap, planar)) {
            *image = picture;
            *format = isPacked ? kPacked.format : planar.format;
            return 0;
        }
        mlt_log_error(MLT_TRANSITION_SERVICE(service),
                      "the clips give no pictures of %d x %d pixels to draw between\n", *width,
                      *height);
    }
    return mlt_frame_get_image(a, image, format, width, height, writable);
}

mlt_frame Process(mlt_transition service, mlt_frame a, mlt_frame b) {
    mlt_frame_push_service(a, service);
    mlt_frame_push_service_int(a, GoesFromSecondTrack(service));
    mlt_frame_push_frame(a, b);
    mlt_frame_push_get_image(a, GetImage);
    return a;
}

} // namespace

mlt_transition NewService(const Transition &transition) {
    const mlt_transition service = mlt_transition_new();
    if (!service)
        return nullptr;
    service->process = Process;
    service->child = const_cast<Transition *>(&transition);
    const mlt_properties properties = MLT_TRANSITION_PROPERTIES(service);
    for (const Parameter &parameter : Parameters())
        mlt_properties_set(properties, parameter.name, parameter.preset);
    // Pictures, not sound.
    mlt_properties_set_int(properties, "_transition_type", 1);
    return service;
}

} // namespace mlt
