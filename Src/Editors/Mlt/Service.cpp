#include "Service.h"

#include "Draw.h"
#include "Images.h"
#include "Order.h"
#include "Services.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace mlt {

using hostkit::Frame;
using hostkit::Moment;
using hostkit::Motion;
using hostkit::Path;
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

/// A service without limits follows the engine's own progress.
Moment MomentOf(const Overlap &overlap) {
    const mlt_position in = mlt_transition_get_in(overlap.service);
    const mlt_position out = mlt_transition_get_out(overlap.service);
    const mlt_position frame = mlt_frame_get_position(overlap.a) - in;
    if (out <= 0)
        return {mlt_transition_get_progress(overlap.service, overlap.a), frame};
    return hostkit::MomentOf(frame, out - in + 1);
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

/// One form of the transition: what it fetches and returns, and how it is drawn.
struct Form {
    mlt_image_format format;
    Path path;
};
constexpr Form kPacked = {mlt_image_rgba, Path::Rgb};
constexpr Form kPlanar = {mlt_image_yuv420p, Path::Yuv};
constexpr Form kPlanarFromRgba = {mlt_image_rgba, Path::Yuv};

bool IsConverted(const Form &form) {
    return form.format == mlt_image_rgba && form.path == Path::Yuv;
}

/// The picture, which frame a owns from then on; null when the inputs cannot be had.
std::uint8_t *Paint(const Overlap &overlap, const Form &form) {
    const int width = overlap.width, height = overlap.height;
    std::uint8_t *from = Fetch(overlap.Outgoing(), form.format, width, height);
    std::uint8_t *to = Fetch(overlap.Incoming(), form.format, width, height);
    if (!from || !to)
        return nullptr;
    const int size = mlt_image_format_size(form.format, width, height, nullptr);
    auto *picture = static_cast<std::uint8_t *>(mlt_pool_alloc(size));
    const Moment moment = MomentOf(overlap);
    const Motion motion = MotionOf(overlap, moment);
    const Transition &transition = overlap.Painter();
    if (IsConverted(form)) {
        Frame out(form.path, width, height);
        Draw(transition, motion, moment, out, ConvertRgba(width, height, from),
             ConvertRgba(width, height, to));
        ConvertToRgba(out, picture);
    } else {
        Frame out = View(form.path, width, height, picture);
        Draw(transition, motion, moment, out, View(form.path, width, height, from),
             View(form.path, width, height, to));
    }
    mlt_frame_set_image(overlap.a, picture, size, mlt_pool_release);
    mlt_frame_set_alpha(overlap.a, nullptr, 0, nullptr);
    return picture;
}

/// Whether the packed form draws: as the user wishes, else for an engine that works in RGB and for
/// pictures that the planar form would lose something of. Nobody gets a packed form that is
/// squeezed into a corner without asking.
bool IsPacked(const Overlap &overlap, mlt_image_format wanted) {
    const Transition &painter = overlap.Painter();
    const std::string_view path = Text(overlap.Properties(), kPath);
    if (!painter.yuv || !painter.rgb || path == kYuv || path == kRgb)
        return painter.rgb && (path == kRgb || !painter.yuv);
    if (painter.info.countsBytes)
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
        const Form &form = isPacked                         ? kPacked
                           : HasPlanarSize(*width, *height) ? kPlanar
                                                            : kPlanarFromRgba;
        if (std::uint8_t *picture = Paint(overlap, form)) {
            *image = picture;
            *format = form.format;
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
