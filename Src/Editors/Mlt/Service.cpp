#include "Service.h"

#include "Draw.h"
#include "Images.h"
#include "Plan.h"
#include "Services.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <string>

namespace mlt {

using hostkit::Chroma;
using hostkit::Path;
using hostkit::Transition;

namespace {

/// One picture of the overlap: a is the frame of the lower track, which also carries the result.
struct Overlap {
    const Plan &plan;
    mlt_frame a;
    mlt_frame b;
    int width;
    int height;

    mlt_frame Outgoing() const { return plan.swapped ? b : a; }
    mlt_frame Incoming() const { return plan.swapped ? a : b; }
};

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

bool IsAll(const std::uint8_t *bytes, std::size_t count, std::uint8_t value) {
    return count == 0 || (bytes[0] == value && !std::memcmp(bytes, bytes + 1, count - 1));
}

/// Whether a frame that was fetched without alpha has pixels that one sees through, but for the
/// bars that the engine puts around a picture of another shape: equal ones above and below, or left
/// and right, which are black.
bool IsTransparent(mlt_frame frame, int width, int height) {
    int size = 0;
    const std::uint8_t *alpha = mlt_frame_get_alpha_size(frame, &size);
    if (!alpha || size < width * height)
        return false;
    const auto row = [&](int y) { return alpha + std::size_t(y) * width; };
    int top = 0, left = 0;
    while (top < height / 2 && IsAll(row(top), width, 0) && IsAll(row(height - 1 - top), width, 0))
        ++top;
    while (top == 0 && left < width / 2 && !alpha[left] && !alpha[width - 1 - left])
        ++left;
    if (2 * top >= height - 1 || 2 * left >= width - 1)
        return true;
    for (int y = top; y < height - top; ++y)
        if (!IsAll(row(y), left, 0) || !IsAll(row(y) + width - left, left, 0) ||
            !IsAll(row(y) + left, width - 2 * left, 255))
            return true;
    return false;
}

/// The engine tells only the lower track's frame how the consumer wants its pictures.
void PassWishes(mlt_frame a, mlt_frame b) {
    const mlt_properties from = MLT_FRAME_PROPERTIES(a), to = MLT_FRAME_PROPERTIES(b);
    mlt_properties_copy(to, from, "consumer.");
    if (const char *distort = mlt_properties_get(from, "distort"))
        mlt_properties_set(to, "distort", distort);
}

/// Whether the engine gives this frame as yuv420p in this size: it neither scales such pictures nor
/// puts bars around them.
bool IsNative(mlt_frame frame, int width, int height) {
    const mlt_properties properties = MLT_FRAME_PROPERTIES(frame);
    return mlt_properties_get_int(properties, "meta.media.width") == width &&
           mlt_properties_get_int(properties, "meta.media.height") == height;
}

bool IsInterlaced(mlt_frame frame) {
    const mlt_properties properties = MLT_FRAME_PROPERTIES(frame);
    return mlt_properties_exists(properties, "consumer.progressive") &&
           !mlt_properties_get_int(properties, "consumer.progressive");
}

bool IsOddFieldFirst(mlt_frame frame) {
    const mlt_properties properties = MLT_FRAME_PROPERTIES(frame);
    // A negative wish is none.
    if (mlt_properties_exists(properties, "consumer.top_field_first") &&
        mlt_properties_get_int(properties, "consumer.top_field_first") >= 0)
        return !mlt_properties_get_int(properties, "consumer.top_field_first");
    return !mlt_properties_get_int(properties, "top_field_first");
}

/// How the transition is drawn for an engine that works in RGB or in YUV: as the user wishes, else
/// as the engine does. RGB of those whose packed function is squeezed into a corner is drawn by the
/// planar one.
void Choose(Shape &shape, const Plan &plan, bool isRgb) {
    const Transition &transition = *plan.transition;
    const bool isWhole = transition.rgb && !transition.info.countsBytes;
    if (transition.rgb && (plan.look == Look::Rgb || !transition.yuv)) {
        shape.format = mlt_image_rgba;
        shape.path = Path::Rgb;
    } else if (isRgb && (plan.look == Look::Auto || !isWhole)) {
        shape.format = mlt_image_rgba;
        shape.path = isWhole ? Path::Rgb : Path::Yuv;
    } else {
        shape.format = mlt_image_yuv422;
        shape.path = Path::Yuv;
    }
}

Shape ShapeOf(const Overlap &overlap, mlt_image_format wanted) {
    const int width = overlap.width, height = overlap.height;
    const bool hasYuv = HasYuv(width, height);
    Plan plan = overlap.plan;
    if (!hasYuv && plan.look == Look::Yuv)
        plan.look = Look::Auto;
    const hostkit::Info &info = plan.transition->info;
    Shape shape = {mlt_image_none,
                   Path::Yuv,
                   info.chroma,
                   info.anyRowOrder,
                   width,
                   height,
                   IsInterlaced(overlap.a) && height % 2 == 0};
    Choose(shape, plan, wanted == mlt_image_rgb || wanted == mlt_image_rgba || !hasYuv);
    if (shape.format == mlt_image_rgba)
        return shape;
    if (wanted == mlt_image_yuv420p && !shape.isInterlaced && IsNative(overlap.a, width, height) &&
        IsNative(overlap.b, width, height))
        shape.format = mlt_image_yuv420p;
    // Alpha is known once the pictures are there.
    for (const mlt_frame frame : {overlap.a, overlap.b})
        if (Fetch(frame, shape.format, width, height) && IsTransparent(frame, width, height)) {
            Choose(shape, plan, true);
            break;
        }
    return shape;
}

struct Release {
    void operator()(std::uint8_t *memory) const { mlt_pool_release(memory); }
};

/// The picture, which frame a owns from then on; null when the inputs cannot be had.
std::uint8_t *Paint(const Overlap &overlap, const Shape &shape) {
    std::uint8_t *from = Fetch(overlap.Outgoing(), shape.format, shape.width, shape.height);
    std::uint8_t *to = Fetch(overlap.Incoming(), shape.format, shape.width, shape.height);
    if (!from || !to)
        return nullptr;
    const int size = mlt_image_format_size(shape.format, shape.width, shape.height, nullptr);
    std::unique_ptr<std::uint8_t, Release> picture(
        static_cast<std::uint8_t *>(mlt_pool_alloc(size)));
    Sheets in1(shape, from), in2(shape, to), out(shape, picture.get(), true);
    in1.Split(from);
    in2.Split(to);
    const bool oddFirst = IsOddFieldFirst(overlap.a);
    const Plan &plan = overlap.plan;
    for (std::size_t i = 0; i < out.Count(); ++i) {
        if (out.IsAlpha(i) && in1.IsOpaque() && in2.IsOpaque()) // as Join() sees to
            continue;
        const bool isLater = out.IsOddField(i) != oddFirst;
        DrawBare(*plan.transition, plan.motion,
                 shape.isInterlaced ? plan.fields[isLater] : plan.moment, out[i], in1[i], in2[i]);
    }
    out.Join(picture.get(), in1, in2);
    mlt_frame_set_image(overlap.a, picture.get(), size, mlt_pool_release);
    mlt_frame_set_alpha(overlap.a, nullptr, 0, nullptr);
    return picture.release();
}

int GetImage(mlt_frame a, std::uint8_t **image, mlt_image_format *format, int *width, int *height,
             int writable) {
    const mlt_frame b = mlt_frame_pop_frame(a);
    const auto *plan = static_cast<const Plan *>(mlt_frame_pop_service(a));
    std::string reason = "the clips give no pictures of that size";
    if (*width > 0 && *height > 0)
        try {
            PassWishes(a, b);
            const Overlap overlap = {*plan, a, b, *width, *height};
            const Shape shape = ShapeOf(overlap, *format);
            if (std::uint8_t *picture = Paint(overlap, shape)) {
                *image = picture;
                *format = shape.format;
                return 0;
            }
        } catch (const std::exception &error) { // the engine is written in C
            reason = error.what();
        }
    mlt_log_error(nullptr, "%s: nothing is drawn at %d x %d pixels: %s\n",
                  ServiceName(*plan->transition).c_str(), *width, *height, reason.c_str());
    return mlt_frame_get_image(a, image, format, width, height, writable);
}

mlt_frame Process(mlt_transition service, mlt_frame a, mlt_frame b) {
    try {
        auto plan = std::make_unique<Plan>(service, a);
        // The frame owns the plan, whether its picture is asked for or not.
        const std::string name = "_tp_erase." + std::to_string(std::uintptr_t(plan.get()));
        mlt_properties_set_data(
            MLT_FRAME_PROPERTIES(a), name.c_str(), plan.get(), 0,
            [](void *owned) { delete static_cast<Plan *>(owned); }, nullptr);
        mlt_frame_push_service(a, plan.release());
        mlt_frame_push_frame(a, b);
        mlt_frame_push_get_image(a, GetImage);
    } catch (const std::exception &error) {
        mlt_log_error(MLT_TRANSITION_SERVICE(service), "%s\n", error.what());
    }
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
    for (const Parameter &parameter : Parameters(transition))
        mlt_properties_set(properties, parameter.name, parameter.preset);
    // Pictures, not sound.
    mlt_properties_set_int(properties, "_transition_type", 1);
    return service;
}

} // namespace mlt
