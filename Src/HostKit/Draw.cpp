#include "Draw.h"

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace hostkit {

/// Held by who draws with what the process has once: the plug-in's last position and rand(). Two
/// modules of one process have it in common where the loader knows symbols that are unique in a
/// process, which GCC makes of this one; built by clang each has its own.
__attribute__((visibility("default"))) inline std::mutex drawing;

namespace {

[[maybe_unused]] bool IsAlike(const Frame &a, const Frame &b) {
    return a.Layout() == b.Layout() && a.Width() == b.Width() && a.Height() == b.Height();
}

/// An empty frame as the transition's function takes it.
Frame PluginsFrame(const Frame &like, Chroma chroma) {
    return {like.Layout(), like.Width(), like.Height(), chroma};
}

/// The frame itself, or a copy of its picture as the plug-in takes it.
const Frame &AsPluginTakes(const Frame &frame, Chroma chroma, Frame &room) {
    if (frame.IsPlugins(chroma))
        return frame;
    room = PluginsFrame(frame, chroma);
    CopyPicture(frame, room);
    return room;
}

bool IsOpaque(const Frame &frame) {
    for (int y = 0; y < frame.Height(); ++y) {
        const std::uint8_t *row = frame.Row(0, y);
        std::uint8_t all = 255;
        for (int x = 0; x < frame.Width(); ++x)
            all &= row[4 * x + 3];
        if (all != 255)
            return false;
    }
    return true;
}

void RestoreOpacity(Frame &out, const Frame &in1, const Frame &in2) {
    const bool everywhere = IsOpaque(in1) && IsOpaque(in2);
    for (int y = 0; y < out.Height(); ++y) {
        std::uint8_t *drawn = out.Row(0, y);
        const std::uint8_t *a = in1.Row(0, y), *b = in2.Row(0, y);
        for (int i = 3; i < out.RowBytes(0); i += 4)
            if (everywhere || ((a[i] & b[i]) == 255 && drawn[i] >= kNearlyOpaque))
                drawn[i] = 255;
    }
}

/// Draws of the plug-in's own: it takes them from the process's rand(), which goes on behind where
/// others left it.
class OwnDraws {
public:
    explicit OwnDraws(unsigned seed) : others(initstate(seed, own, sizeof own)) {}
    ~OwnDraws() { setstate(others); }
    OwnDraws(const OwnDraws &) = delete;
    OwnDraws &operator=(const OwnDraws &) = delete;

private:
    char own[128] = {}; // as large as the C library's, so that the numbers are srand()'s
    char *others;
};

/// Paths that ease keep their last position, one for the whole process. Of an unknown transition
/// no curve is known.
bool SharesNothing(const Info &info, Path path) {
    return (path == Path::Yuv ? info.yuv : info.rgb) == Curve::Linear && !info.random;
}

} // namespace

bool HasPath(const Transition &transition, Path path) {
    return path == Path::Yuv ? transition.yuv != nullptr : transition.rgb != nullptr;
}

void CallPlugin(const Transition &transition, Frame &out, const Frame &in1, const Frame &in2,
                const TransParam &param) {
    if (out.Layout() == Path::Yuv)
        transition.yuv(out.Image(), in1.Image(), in2.Image(), &param);
    else
        transition.rgb(out.Handle(), in1.Handle(), in2.Handle(), &param);
}

void DrawBare(const Transition &transition, const Motion &motion, const Moment &moment, Frame &out,
              const Frame &in1, const Frame &in2) {
    assert(IsAlike(out, in1) && IsAlike(out, in2));
    const Info &info = transition.info;
    const Chroma chroma = info.chroma;
    const bool isTopDown =
        info.anyRowOrder && out.IsTopDown() && in1.IsTopDown() && in2.IsTopDown();
    Frame roomForOut, roomForFrom, roomForTo;
    const auto asTaken = [&](const Frame &frame, Frame &room) -> const Frame & {
        return isTopDown ? frame : AsPluginTakes(frame, chroma, room);
    };
    const Frame &from = asTaken(motion.reverse ? in2 : in1, roomForFrom);
    const Frame &to = asTaken(motion.reverse ? in1 : in2, roomForTo);
    const bool isDirect = isTopDown || out.IsPlugins(chroma);
    if (!isDirect)
        roomForOut = PluginsFrame(out, chroma);
    Frame &drawn = isDirect ? out : roomForOut;
    if (out.Layout() == Path::Yuv ? info.leavesYuv : info.leavesRgb)
        CopyPicture(to, drawn);
    TransParam param = {};
    param.dTotal = kLength;
    param.dCurrent = PluginPosition(motion, moment) * kLength;
    if (SharesNothing(info, out.Layout())) {
        CallPlugin(transition, drawn, from, to, param);
    } else {
        const std::lock_guard guard(drawing);
        const OwnDraws draws(RandomSeed(motion, moment));
        CallPlugin(transition, drawn, from, to, param);
    }
    if (!isDirect)
        CopyPicture(drawn, out);
}

void Draw(const Transition &transition, const Motion &motion, const Moment &moment, Frame &out,
          const Frame &in1, const Frame &in2) {
    DrawBare(transition, motion, moment, out, in1, in2);
    if (out.Layout() == Path::Rgb)
        RestoreOpacity(out, in1, in2);
}

} // namespace hostkit
