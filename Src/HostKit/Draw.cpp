#include "Draw.h"

#include "Ozmu_ImageProc.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstdlib>
#include <new>
#include <numbers>

namespace hostkit {

namespace {

/// Samples of a plane of half resolution along one side.
int Half(int size) {
    return (size + 1) / 2;
}

/// Some transitions leave bytes of the output alone (Blind a row or a whole frame, the packed
/// triangles most of it). Starting from the incoming picture keeps old frames from showing there.
void CopyPicture(const PlanarFrame &from, PlanarFrame &to) {
    std::copy_n(from.Plane(0), from.Size(), to.Plane(0));
}

/// Each chroma sample to the up to four pixels it belongs to.
void EnlargeChroma(const PlanarFrame &from, PlanarFrame &to) {
    std::copy_n(from.Plane(0), std::size_t(from.Pitch(0)) * from.Height(), to.Plane(0));
    for (int plane = 1; plane <= 2; ++plane)
        for (int y = 0; y < to.Height(); ++y) {
            const std::uint8_t *source = from.Plane(plane) + std::size_t(y / 2) * from.Pitch(plane);
            std::uint8_t *target = to.Plane(plane) + std::size_t(y) * to.Pitch(plane);
            for (int x = 0; x < to.Width(); ++x)
                target[x] = source[x / 2];
        }
}

/// The rounded mean of the pixels that share a chroma sample, so that a picture enlarged and
/// reduced again is unchanged.
void ReduceChroma(const PlanarFrame &from, PlanarFrame &to) {
    std::copy_n(from.Plane(0), std::size_t(from.Pitch(0)) * from.Height(), to.Plane(0));
    for (int plane = 1; plane <= 2; ++plane)
        for (int y = 0; y < to.ChromaHeight(); ++y) {
            const int below = std::min(2 * y + 1, from.Height() - 1);
            const std::uint8_t *a = from.Plane(plane) + std::size_t(2 * y) * from.Pitch(plane);
            const std::uint8_t *b = from.Plane(plane) + std::size_t(below) * from.Pitch(plane);
            std::uint8_t *target = to.Plane(plane) + std::size_t(y) * to.Pitch(plane);
            for (int x = 0; x < to.ChromaWidth(); ++x) {
                const int left = 2 * x, right = std::min(2 * x + 1, from.Width() - 1);
                target[x] = std::uint8_t((a[left] + a[right] + b[left] + b[right] + 2) / 4);
            }
        }
}

TransParam Parameters(const Motion &motion, const Moment &moment) {
    TransParam param = {};
    param.dTotal = moment.total;
    param.dCurrent = PluginPosition(motion, moment);
    return param;
}

/// Seeds rand() from the user's seed and the frame's number, well mixed (SplitMix64's finisher):
/// neighbouring frames must not draw similar sequences.
void SeedRandom(const Motion &motion, const Moment &moment) {
    std::uint64_t z = motion.seed + (std::uint64_t(moment.frame) + 1) * 0x9e3779b97f4a7c15u;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    std::srand(unsigned((z ^ (z >> 31)) >> 32));
}

bool IsOpaque(const PackedFrame &frame) {
    std::uint8_t all = 255;
    for (std::size_t i = 3; i < frame.Size(); i += 4)
        all &= frame.Bits()[i];
    return all == 255;
}

double Back(double u) {
    return 1 + 2.70158 * std::pow(u - 1, 3) + 1.70158 * (u - 1) * (u - 1);
}

double Elastic(double u) {
    if (u <= 0 || u >= 1)
        return u;
    return 1 + std::exp2(-10 * u) * std::sin((10 * u - 0.75) * 2 * std::numbers::pi / 3);
}

double Bounce(double u) {
    constexpr double kHeight = 7.5625, kStep = 2.75;
    if (u < 1 / kStep)
        return kHeight * u * u;
    if (u < 2 / kStep)
        return kHeight * (u - 1.5 / kStep) * (u - 1.5 / kStep) + 0.75;
    if (u < 2.5 / kStep)
        return kHeight * (u - 2.25 / kStep) * (u - 2.25 / kStep) + 0.9375;
    return kHeight * (u - 2.625 / kStep) * (u - 2.625 / kStep) + 0.984375;
}

} // namespace

PlanarFrame::PlanarFrame(int width, int height, Chroma resolution) : chroma(resolution) {
    assert(width > 0 && height > 0);
    image.nWidth = width;
    image.nHeight = height;
    image.nPitchY = width;
    image.nPitchUV = image.nPitchV = chroma == Chroma::Full ? width : Half(width);
    samples = std::make_unique_for_overwrite<std::uint8_t[]>(Size());
    image.pY = Start(0);
    image.pU = Start(1);
    image.pV = Start(2);
}

int PlanarFrame::ChromaHeight() const {
    return chroma == Chroma::Full ? image.nHeight : Half(image.nHeight);
}

std::size_t PlanarFrame::Size() const {
    return std::size_t(image.nPitchY) * image.nHeight +
           2 * std::size_t(image.nPitchUV) * ChromaHeight();
}

std::uint8_t *PlanarFrame::Start(int plane) const {
    const std::size_t luma = std::size_t(image.nPitchY) * image.nHeight;
    const std::size_t one = std::size_t(image.nPitchUV) * ChromaHeight();
    return samples.get() + (plane ? luma + (plane - 1) * one : 0);
}

PackedFrame::PackedFrame(int w, int h)
    : width(w), height(h), bits(std::make_unique_for_overwrite<std::uint8_t[]>(Size())),
      handle(DIWrap(bits.get(), w, h)) {
    assert(width > 0 && height > 0);
    if (!handle)
        throw std::bad_alloc();
}

void PackedFrame::Destroy::operator()(void *image) const {
    DIDestroy(image);
}

const std::vector<Easing> &Easings() {
    static const std::vector<Easing> easings = {
        {"linear", "even speed", [](double u) { return u; }},
        {"smooth", "starts and ends gently", [](double u) { return u * u * (3 - 2 * u); }},
        {"in", "starts slowly", [](double u) { return u * u; }},
        {"out", "ends slowly", [](double u) { return u * (2 - u); }},
        {"in-out", "starts and ends slowly",
         [](double u) { return u < 0.5 ? 2 * u * u : 1 - 2 * (1 - u) * (1 - u); }},
        {"in-cubic", "starts very slowly", [](double u) { return u * u * u; }},
        {"out-cubic", "ends very slowly", [](double u) { return 1 - std::pow(1 - u, 3); }},
        {"in-out-cubic", "starts and ends very slowly",
         [](double u) { return u < 0.5 ? 4 * u * u * u : 1 - 4 * std::pow(1 - u, 3); }},
        {"back", "arrives early and waits", Back},
        {"elastic", "arrives early and swings", Elastic},
        {"bounce", "bounces back before it ends", Bounce},
    };
    return easings;
}

const Easing *FindEasing(std::string_view name) {
    const auto found = std::find_if(Easings().begin(), Easings().end(),
                                    [&](const Easing &easing) { return easing.name == name; });
    return found == Easings().end() ? nullptr : &*found;
}

double PluginPosition(const Motion &motion, const Moment &moment) {
    // Written so that the ends are exact and that NaN counts as the start.
    const double at = moment.current > 0 ? std::min(moment.current, moment.total) : 0;
    double position = at;
    if (motion.easing && at > 0 && at < moment.total)
        position = std::clamp(motion.easing->curve(at / moment.total), 0.0, 1.0) * moment.total;
    return motion.reverse ? moment.total - position : position;
}

// The planar path of "Roll_right_top" addresses chroma with the luma pitch and all rows: planes of
// half resolution would be overrun, and in planes that were merely made larger the colours would
// peel off at half the size of the picture.
Chroma PlanarChroma(const Transition &transition) {
    return transition.name == "Roll_right_top" ? Chroma::Full : Chroma::Half;
}

void DrawYUV(const Transition &transition, const Motion &motion, const Moment &moment,
             PlanarFrame &out, const PlanarFrame &in1, const PlanarFrame &in2) {
    assert(out.Width() == in1.Width() && out.Height() == in1.Height());
    assert(out.Width() == in2.Width() && out.Height() == in2.Height());
    const TransParam param = Parameters(motion, moment);
    const PlanarFrame &from = motion.reverse ? in2 : in1;
    const PlanarFrame &to = motion.reverse ? in1 : in2;
    SeedRandom(motion, moment);
    CopyPicture(to, out);
    if (PlanarChroma(transition) == Chroma::Half) {
        transition.yuv(out.Image(), from.Image(), to.Image(), &param);
        return;
    }
    PlanarFrame full[3];
    for (PlanarFrame &frame : full)
        frame = PlanarFrame(out.Width(), out.Height(), Chroma::Full);
    EnlargeChroma(from, full[1]);
    EnlargeChroma(to, full[2]);
    CopyPicture(full[2], full[0]);
    transition.yuv(full[0].Image(), full[1].Image(), full[2].Image(), &param);
    ReduceChroma(full[0], out);
}

void DrawRGB(const Transition &transition, const Motion &motion, const Moment &moment,
             PackedFrame &out, const PackedFrame &in1, const PackedFrame &in2) {
    assert(out.Width() == in1.Width() && out.Height() == in1.Height());
    assert(out.Width() == in2.Width() && out.Height() == in2.Height());
    const TransParam param = Parameters(motion, moment);
    const PackedFrame &from = motion.reverse ? in2 : in1;
    const PackedFrame &to = motion.reverse ? in1 : in2;
    SeedRandom(motion, moment);
    std::copy_n(to.Bits(), to.Size(), out.Bits());
    transition.rgb(out.Handle(), from.Handle(), to.Handle(), &param);
}

void RestoreOpacity(PackedFrame &out, const PackedFrame &in1, const PackedFrame &in2) {
    constexpr std::uint8_t kNearlyOpaque = 253;
    const bool everywhere = IsOpaque(in1) && IsOpaque(in2);
    for (std::size_t i = 3; i < out.Size(); i += 4) {
        const bool here = (in1.Bits()[i] & in2.Bits()[i]) == 255 && out.Bits()[i] >= kNearlyOpaque;
        if (everywhere || here)
            out.Bits()[i] = 255;
    }
}

} // namespace hostkit
