#include "Plan.h"

#include "Order.h"
#include "Services.h"

#include <charconv>
#include <mutex>
#include <set>
#include <string>

namespace mlt {

using hostkit::Moment;

namespace {

/// One property of a service at a time.
class Reader {
public:
    explicit Reader(mlt_transition service) : service(service) {}

    /// A copy, for the engine's text lives until the property is set again.
    std::string Text(const char *name) const {
        const char *text = mlt_properties_get(MLT_TRANSITION_PROPERTIES(service), name);
        return text ? text : "";
    }
    std::int64_t Number(const char *name) const {
        const std::string text = Text(name);
        std::int64_t number = 0;
        const char *const end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, number);
        if (!text.empty() && (error != std::errc() || stop != end)) {
            Reject(name, text, "a whole number");
            return 0;
        }
        return number;
    }
    bool Flag(const char *name) const {
        const std::string text = Text(name);
        if (text.empty() || text == "0" || text == "1")
            return text == "1";
        Reject(name, text, "0 or 1");
        return false;
    }
    /// Tells once: engines make a project's services more than once, and ask them for each frame.
    void Reject(const char *name, const std::string &value, const std::string &right) const {
        const std::string line = std::string(name) + '=' + value + " is ignored: it takes " + right;
        static std::mutex mutex;
        static std::set<std::string> told;
        const std::lock_guard guard(mutex);
        if (told.insert(ServiceName(*static_cast<const hostkit::Transition *>(service->child)) +
                        line)
                .second)
            mlt_log_warning(MLT_TRANSITION_SERVICE(service), "%s\n", line.c_str());
    }

private:
    mlt_transition service;
};

std::string EasingNames() {
    std::string names;
    for (const hostkit::Easing &easing : hostkit::Easings())
        names += (names.empty() ? "" : ", ") + std::string(easing.name);
    return names;
}

hostkit::Motion ReadMotion(const Reader &reader, bool isMix) {
    hostkit::Motion motion;
    const std::string ease = reader.Text(kEase);
    motion.easing = hostkit::FindEasing(ease);
    if (!motion.easing && !ease.empty())
        reader.Reject(kEase, ease, EasingNames());
    // What Kdenlive says by the name in mixes of a track's neighbours is known already.
    const bool backwards = reader.Flag(kBackwards), reverse = !isMix && reader.Flag(kReverse);
    motion.reverse = backwards || reverse;
    motion.seed = std::uint64_t(reader.Number(kSeed));
    return motion;
}

Look ReadLook(const Reader &reader) {
    const std::string path = reader.Text(kPath);
    if (path == kYuv)
        return Look::Yuv;
    if (path == kRgb)
        return Look::Rgb;
    if (!path.empty() && path != kAuto)
        reader.Reject(kPath, path, std::string(kAuto) + ", " + kYuv + ", " + kRgb);
    return Look::Auto;
}

} // namespace

Plan::Plan(mlt_transition service, mlt_frame shown)
    : transition(static_cast<const hostkit::Transition *>(service->child)) {
    const Reader reader(service);
    motion = ReadMotion(
        reader, mlt_properties_exists(MLT_TRANSITION_PROPERTIES(service), "kdenlive:mixcut"));
    look = ReadLook(reader);
    swapped = GoesFromSecondTrack(service);
    const mlt_position in = mlt_transition_get_in(service), out = mlt_transition_get_out(service);
    const std::int64_t frame = mlt_frame_get_position(shown) - in, count = out - in + 1;
    if (out <= 0) {
        // A service without limits follows the engine's own progress.
        const double progress = mlt_transition_get_progress(service, shown);
        const double step = mlt_transition_get_progress_delta(service, shown);
        moment = fields[0] = {progress, frame};
        fields[1] = {progress + step / 2, frame};
        return;
    }
    moment = hostkit::MomentOf(frame, count);
    // Even steps from field to field, and both fields of the first and the last frame are whole.
    for (int i = 0; i < 2; ++i)
        fields[i] = {count > 1 ? double(2 * frame - 1 + i) / double(2 * count - 3) : 0.5, frame};
}

} // namespace mlt
