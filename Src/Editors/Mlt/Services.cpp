#include "Services.h"

#include "Motion.h"

namespace mlt {

std::string ServiceName(const hostkit::Transition &transition) {
    return "tp_erase." + hostkit::Stem(transition.name);
}

std::string Title(const hostkit::Transition &transition) {
    return transition.info.title;
}

std::string Description(const hostkit::Transition &transition) {
    const hostkit::Info &info = transition.info;
    if (info.motion.empty())
        return info.title;
    return info.motion + " A is the outgoing clip, B the incoming one. At the ends: " + info.ends +
           ".";
}

std::string Notes(const hostkit::Transition &transition) {
    return transition.info.remarks;
}

const std::vector<Parameter> &Parameters() {
    static const std::vector<Parameter> parameters = [] {
        Parameter ease = {kEase, Kind::Choice, "Easing", "How the speed of the motion changes.",
                          hostkit::Easings().front().name};
        for (const hostkit::Easing &easing : hostkit::Easings()) {
            ease.values.emplace_back(easing.name);
            ease.labels.push_back(std::string(easing.name) + ": " + easing.description);
        }
        const Parameter path = {
            kPath,
            Kind::Choice,
            "Form",
            "Which form of the transition draws. \"auto\": the packed one (RGB) where the engine "
            "asks for RGB or a clip is transparent, otherwise the planar one (YUV); always the "
            "planar one for transitions whose packed form is squeezed into a corner.",
            kAuto,
            {kAuto, kYuv, kRgb},
            {"as the engine asks", "YUV", "RGB"}};
        return std::vector<Parameter>{
            {kReverse, Kind::Boolean, "Reverse",
             "Plays the motion backwards, still from A to B. Kdenlive uses the name for itself in "
             "mixes of neighbouring clips.",
             "0"},
            {kBackwards, Kind::Boolean, "Backwards",
             "Plays the motion backwards, still from A to B.", "0"},
            ease,
            path,
            {kSeed, Kind::Integer, "Seed",
             "For the transitions that draw random numbers: another number draws another picture, "
             "the same number the same one again.",
             "0"},
        };
    }();
    return parameters;
}

} // namespace mlt
