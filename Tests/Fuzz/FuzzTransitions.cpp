// Drives any exported transition function with any geometry, pitch and position; planes lie against
// inaccessible pages.

#include "Support.h"

#include <cstdlib>
#include <cstring>

namespace {

/// Reads the fuzzer's bytes one value at a time; zeros when they have run out.
class Reader {
public:
    Reader(const std::uint8_t *bytes, std::size_t count) : next(bytes), left(count) {}

    template<class T>
    T Take() {
        T value{};
        const std::size_t size = left < sizeof value ? left : sizeof value;
        std::memcpy(&value, next, size);
        next += size;
        left -= size;
        return value;
    }

private:
    const std::uint8_t *next;
    std::size_t left;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t count) {
    Reader reader(bytes, count);
    const auto &transitions = TestedPlugin().Transitions();
    const auto &transition = transitions[reader.Take<std::uint8_t>() % transitions.size()];
    const auto flags = reader.Take<std::uint8_t>();
    Geometry geometry{};
    geometry.width = 1 + reader.Take<std::uint8_t>();
    geometry.height = 1 + reader.Take<std::uint8_t>();
    geometry.pitch = geometry.width + reader.Take<std::uint8_t>() % 40;
    geometry.pitchUV = (geometry.pitch + 1) / 2 + reader.Take<std::uint8_t>() % 20;
    geometry.fullChroma = transition.info.chroma == hostkit::Chroma::Full;
    const auto total = reader.Take<double>();
    // Half of the positions lie within the transition, where the pictures are.
    const double current =
        flags & 2 ? total * (reader.Take<std::uint16_t>() / 65535.0) : reader.Take<double>();
    TransFunc function = transition.yuv;
    if (flags & 1 && transition.rgb)
        function = transition.rgb;
    std::srand(flags);
    FrameCall(function, geometry, 1, (flags & 4) != 0).Draw(MakeParam(total, current));
    return 0;
}
