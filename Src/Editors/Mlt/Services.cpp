#include "Services.h"

#include "Motion.h"

#include <cstring>

namespace mlt {

namespace {

/// The facts speak of the plug-in's paths, which are YUV and RGB to whoever edits; the one that is
/// drawn in both needs no word.
std::string InEditorsWords(std::string text, const hostkit::Info &info) {
    const char *const words[][2] = {{"planar path: ", info.countsBytes ? "" : "in YUV: "},
                                    {"Planar path: ", "In YUV: "},
                                    {"Packed path: ", "In RGB: "},
                                    {"packed path: ", "in RGB: "},
                                    {"the planar path", "YUV"},
                                    {"the packed path", "RGB"}};
    for (const auto &[ours, theirs] : words)
        for (std::size_t at = 0; (at = text.find(ours, at)) != std::string::npos;)
            text.replace(at, std::strlen(ours), theirs);
    return text;
}

} // namespace

std::string ServiceName(const hostkit::Transition &transition) {
    return "tp_erase." + hostkit::Stem(transition.name);
}

std::string Title(const hostkit::Transition &transition) {
    return "TP " + transition.info.title;
}

std::string Description(const hostkit::Transition &transition) {
    const hostkit::Info &info = transition.info;
    if (info.motion.empty())
        return info.title;
    return InEditorsWords(info.motion + " A is the outgoing clip, B the incoming one. " +
                              "At the ends: " + info.ends + ".",
                          info);
}

std::string Notes(const hostkit::Transition &transition) {
    // All that there is to say of those is how the packed function squeezes them.
    if (transition.info.countsBytes)
        return "";
    return InEditorsWords(transition.info.remarks, transition.info);
}

std::vector<Parameter> Parameters(const hostkit::Transition &transition) {
    std::vector<Parameter> parameters = {{kReverse, Kind::Boolean, "Reverse",
                                          "Plays the motion backwards, still from A to B. Kdenlive "
                                          "uses the name for itself in mixes "
                                          "of neighbouring clips.",
                                          "0"},
                                         {kBackwards, Kind::Boolean, "Backwards",
                                          "Plays the motion backwards, still from A to B.", "0"}};
    Parameter ease = {kEase, Kind::Choice, "Easing", "How the speed of the motion changes.",
                      hostkit::Easings().front().name};
    for (const hostkit::Easing &easing : hostkit::Easings()) {
        ease.values.emplace_back(easing.name);
        ease.labels.push_back(std::string(easing.name) + ": " + easing.description);
    }
    parameters.push_back(ease);
    if (transition.yuv && transition.rgb && !transition.info.countsBytes)
        parameters.push_back(
            {kPath,
             Kind::Choice,
             "Look",
             "The transition looks a little different in YUV and in RGB. Automatic: in RGB where "
             "the project works in RGB or a clip is transparent, otherwise in YUV.",
             kAuto,
             {kAuto, kYuv, kRgb},
             {"automatic", "as in YUV", "as in RGB"}});
    if (transition.info.random)
        parameters.push_back({kSeed, Kind::Integer, "Seed",
                              "Another number draws another picture, the same number the same one "
                              "again.",
                              "0"});
    return parameters;
}

} // namespace mlt
