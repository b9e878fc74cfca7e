#include "Joints.h"

#include "Ozmu_ImageProc.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <numeric>
#include <string>
#include <unordered_map>

namespace hostkit {

namespace {

constexpr std::uint32_t kWhole = 65536, kHalf = kWhole / 2;

/// B's share of the picture at a position, in 65536ths.
std::uint32_t Weight(const TransParam *param) {
    return std::uint32_t(std::lround(param->dCurrent / param->dTotal * kWhole));
}

/// Samples between those of two rows, or between one row and a level.
void BlendRow(std::uint8_t *out, const std::uint8_t *a, const std::uint8_t *b, int count,
              std::uint32_t weight) {
    for (int i = 0; i < count; ++i)
        out[i] = std::uint8_t((a[i] * (kWhole - weight) + b[i] * weight + kHalf) / kWhole);
}

void FadeRow(std::uint8_t *out, const std::uint8_t *in, int count, std::uint8_t level,
             std::uint32_t weight) {
    const std::uint32_t rest = level * (kWhole - weight) + kHalf;
    for (int i = 0; i < count; ++i)
        out[i] = std::uint8_t((in[i] * weight + rest) / kWhole);
}

/// Calls row(out, a, b, samples, plane) for each row of the three planes.
template<class Row>
void EachRow(YUVImage *out, const YUVImage *a, const YUVImage *b, Row row) {
    const auto plane = [&](auto YUVImage::*start, int pitchOut, int pitchA, int pitchB, int width,
                           int height, int number) {
        for (int y = 0; y < height; ++y)
            row(out->*start + std::ptrdiff_t(y) * pitchOut, a->*start + std::ptrdiff_t(y) * pitchA,
                b->*start + std::ptrdiff_t(y) * pitchB, width, number);
    };
    const int width = (out->nWidth + 1) / 2, height = (out->nHeight + 1) / 2;
    plane(&YUVImage::pY, out->nPitchY, a->nPitchY, b->nPitchY, out->nWidth, out->nHeight, 0);
    plane(&YUVImage::pU, out->nPitchUV, a->nPitchUV, b->nPitchUV, width, height, 1);
    plane(&YUVImage::pV, out->nPitchV, a->nPitchV, b->nPitchV, width, height, 2);
}

void DissolveYUV(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const std::uint32_t weight = Weight(param);
    EachRow(out, in1, in2, [=](auto *to, const auto *a, const auto *b, int count, int) {
        BlendRow(to, a, b, count, weight);
    });
}

/// What a fade shows at a position: one of the inputs and how much of it is left.
struct Faded {
    bool second;
    std::uint32_t weight;
    explicit Faded(const TransParam *param) {
        const std::uint32_t at = Weight(param);
        second = at > kHalf;
        weight = second ? 2 * (at - kHalf) : 2 * (kHalf - at);
    }
};

void FadeYUV(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const Faded faded(param);
    EachRow(out, in1, in2, [=](auto *to, const auto *a, const auto *b, int count, int plane) {
        FadeRow(to, faded.second ? b : a, count, plane ? 128 : 16, faded.weight);
    });
}

void CutYUV(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const bool second = Weight(param) >= kHalf;
    EachRow(out, in1, in2, [=](auto *to, const auto *a, const auto *b, int count, int) {
        std::copy_n(second ? b : a, count, to);
    });
}

std::size_t PackedSize(void *image) {
    return std::size_t(DIGetPitch(image)) * DIGetHeight(image);
}

void DissolvePixel(std::uint8_t *out, const std::uint8_t *a, const std::uint8_t *b,
                   std::uint32_t weight) {
    const std::uint64_t shareA = a[3] * (kWhole - weight), shareB = b[3] * weight;
    const std::uint64_t both = shareA + shareB;
    if (a[3] == b[3] || both == 0) {
        BlendRow(out, a, b, 4, weight);
        return;
    }
    for (int i = 0; i < 3; ++i)
        out[i] = std::uint8_t((a[i] * shareA + b[i] * shareB + both / 2) / both);
    out[3] = std::uint8_t((both + kHalf) / kWhole);
}

void DissolveRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const std::uint32_t weight = Weight(param);
    const std::uint8_t *a = DIGetBits(in1), *b = DIGetBits(in2);
    std::uint8_t *to = DIGetBits(out);
    for (std::size_t i = 0; i < PackedSize(out); i += 4)
        DissolvePixel(to + i, a + i, b + i, weight);
}

void FadeRGB(void *out, void *in1, void *in2, const TransParam *param) {
    constexpr std::uint8_t kBlack[] = {0, 0, 0, 255};
    const Faded faded(param);
    const std::uint8_t *in = DIGetBits(faded.second ? in2 : in1);
    std::uint8_t *to = DIGetBits(out);
    for (std::size_t i = 0; i < PackedSize(out); i += 4)
        DissolvePixel(to + i, kBlack, in + i, faded.weight);
}

void CutRGB(void *out, void *in1, void *in2, const TransParam *param) {
    void *shown = Weight(param) >= kHalf ? in2 : in1;
    std::copy_n(DIGetBits(shown), PackedSize(out), DIGetBits(out));
}

PlainJoint Joint(const char *name, const char *title, const char *motion, bool overlaps,
                 TransFuncYUV yuv, TransFuncRGB rgb) {
    PlainJoint joint = {{-1, name, "", yuv, rgb, {}}, overlaps};
    Info &info = joint.transition.info;
    info.name = name;
    info.title = title;
    info.kind = Kind::Light;
    info.motion = motion;
    info.yuv = info.rgb = Curve::Linear;
    info.ends = "A whole, B whole";
    return joint;
}

/// Lower-case letters and digits of a name.
std::string Bare(std::string_view name) {
    std::string bare;
    for (const char c : name)
        if (std::isalnum(static_cast<unsigned char>(c)))
            bare += char(std::tolower(static_cast<unsigned char>(c)));
    return bare;
}

/// SplitMix64, so that a seed means the same order with every standard library.
std::uint64_t NextRandom(std::uint64_t &state) {
    std::uint64_t z = state += 0x9e3779b97f4a7c15u;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
}

/// Names of elsewhere, bare, by what is nearest here.
const struct {
    const char *ours;
    bool reverse;
    std::vector<const char *> theirs;
} kLikenesses[] = {
    {"dissolve",
     false,
     {"crossfade", "crossdissolve", "xfade", "mix", "luma", "additivedissolve", "filmdissolve",
      "crossblur", "morph", "fadefast", "fadeslow", "fadegrays", "distance", "smoothcut", "blend"}},
    {"fade",
     false,
     {"fadeblack", "fadetoblack", "fadefromblack", "fadethroughblack", "fadein", "fadeout",
      "diptoblack", "dip", "fadecolor", "diptocolor", "fadetocolor"}},
    {"cut", false, {"none", "hardcut", "straightcut"}},
    {"Flash",
     false,
     {"fadewhite", "fadetowhite", "diptowhite", "flashwhite", "whiteflash", "burn", "lightleak"}},
    {"Erase",
     false,
     {"wipe", "wiperight", "smoothright", "swipe", "edgewipe", "gradientwipe", "softwipe", "linear",
      "barwipe"}},
    {"Erase", true, {"wipeleft", "smoothleft"}},
    {"Linear Wipe",
     false,
     {"wipedown", "wipebr", "wipebl", "smoothdown", "diagbr", "diagbl", "diagonal", "diagonalwipe",
      "radial", "clock", "clockwipe", "radialwipe", "angular", "wipetr", "diagtr"}},
    {"Linear Wipe", true, {"wipeup", "wipetl", "smoothup", "diagtl"}},
    {"Push",
     false,
     {"slide", "slideright", "slideup", "slidedown", "pushright", "whip", "whippan", "pan",
      "carousel"}},
    {"Push", true, {"slideleft", "pushleft"}},
    {"Erase_slide",
     false,
     {"cover", "coverright", "coverleft", "coverup", "coverdown", "slidein", "over"}},
    {"Erase_slide",
     true,
     {"reveal", "revealleft", "revealright", "revealup", "revealdown", "slideout", "uncover"}},
    {"Bar", false, {"bars", "bandwipe", "bands", "barslide"}},
    {"Blind",
     false,
     {"blinds", "venetianblinds", "hlslice", "hrslice", "vuslice", "vdslice", "slice", "slices",
      "shutters", "stripes"}},
    {"Drop", false, {"fall", "falling", "curtain", "vdslide"}},
    {"Turn",
     false,
     {"flip", "flipover", "card", "cardflip", "cube", "cubespin", "rotate", "spin", "squeezeh",
      "squeezev", "squeeze", "fold", "swap"}},
    {"Roll", false, {"rollup", "unroll", "scroll", "rollaway"}},
    {"Roll_right_top",
     false,
     {"pagecurl", "pagepeel", "pageturn", "peel", "curl", "corner", "cornerpeel", "page"}},
    {"Wind", false, {"hlwind", "hrwind", "vuwind", "vdwind", "blow", "ripple", "dissolvenoise"}},
    {"MoveRect_1",
     false,
     {"explode", "shatter", "tiles", "blocks", "randomblocks", "checker", "checkerboard",
      "checkerwipe", "inset", "random", "squares"}},
    {"MoveRect_2",
     false,
     {"pixelize", "pixelate", "mosaic", "pixels", "disintegrate", "particles", "randomsquares",
      "hexagonalize"}},
    {"DoorWay",
     false,
     {"door", "doors", "barndoor", "barndoors", "horzopen", "vertopen", "split", "gate", "open"}},
    {"DoorWay", true, {"horzclose", "vertclose", "close"}},
    {"CrossZoom",
     false,
     {"zoom", "zoomin", "zoomblur", "hblur", "blur", "crosszoom", "zoomout", "directionalblur"}},
    {"TrCirque",
     false,
     {"circle", "circleopen", "circlecrop", "iris", "irisround", "circlewipe", "round", "rings",
      "ellipse", "heart", "star"}},
    {"TrCirque", true, {"circleclose", "irisclose"}},
    {"TrTriangle3",
     false,
     {"rectcrop", "irisbox", "box", "irisdiamond", "diamond", "irissquare", "triangle"}},
    {"TrNTriangle", false, {"zigzag", "zigzagblocks", "sawtooth", "bandsaw", "teeth"}},
};

} // namespace

const std::vector<PlainJoint> &PlainJoints() {
    static const std::vector<PlainJoint> joints = {
        Joint("cut", "Cut", "B follows A at once.", false, CutYUV, CutRGB),
        Joint("dissolve", "Dissolve", "A changes into B evenly all over.", true, DissolveYUV,
              DissolveRGB),
        Joint("fade", "Fade", "A fades to black, and B comes out of it.", true, FadeYUV, FadeRGB),
    };
    return joints;
}

const PlainJoint *FindPlainJoint(std::string_view name) {
    const auto same = [&](const PlainJoint &joint) {
        return std::equal(
            name.begin(), name.end(), joint.transition.name.begin(), joint.transition.name.end(),
            [](char a, char b) { return std::tolower(static_cast<unsigned char>(a)) == b; });
    };
    const auto found = std::find_if(PlainJoints().begin(), PlainJoints().end(), same);
    return found == PlainJoints().end() ? nullptr : &*found;
}

bool Overlaps(const Transition &transition) {
    const auto isIt = [&](const PlainJoint &joint) { return &joint.transition == &transition; };
    const auto found = std::find_if(PlainJoints().begin(), PlainJoints().end(), isIt);
    return found == PlainJoints().end() || found->overlaps;
}

void ChooseAny(std::vector<const Transition *> &row, std::span<const Transition *const> candidates,
               std::uint64_t seed) {
    if (candidates.empty())
        return;
    std::vector<const Transition *> bag;
    const auto fill = [&] {
        bag.insert(bag.begin(), candidates.begin(), candidates.end());
        for (std::size_t i = candidates.size(); i > 1; --i)
            std::swap(bag[i - 1], bag[NextRandom(seed) % i]);
    };
    for (std::size_t i = 0; i < row.size(); ++i) {
        if (row[i])
            continue;
        const Transition *before = i ? row[i - 1] : nullptr;
        const Transition *after = i + 1 < row.size() ? row[i + 1] : nullptr;
        const auto fits = [&](const Transition *t) { return t != before && t != after; };
        auto taken = std::find_if(bag.rbegin(), bag.rend(), fits);
        if (taken == bag.rend()) {
            fill();
            taken = std::find_if(bag.rbegin(), bag.rend(), fits);
        }
        if (taken == bag.rend()) // too few candidates
            taken = bag.rbegin();
        row[i] = *taken;
        bag.erase(std::next(taken).base());
    }
}

Likeness FindLikeness(std::string_view foreignName) {
    static const auto known = [] {
        std::unordered_map<std::string, Likeness> map;
        for (const auto &[ours, reverse, names] : kLikenesses) {
            map.emplace(Bare(ours), Likeness{ours, reverse});
            for (const char *name : names)
                map.emplace(name, Likeness{ours, reverse});
        }
        return map;
    }();
    std::string name = Bare(foreignName);
    for (const std::string_view word : {"smpte", "transition"}) {
        const std::size_t at = name.find(word);
        if (at != std::string::npos && name.size() > word.size())
            name.erase(at, word.size());
    }
    const auto found = known.find(name);
    return found == known.end() ? Likeness{} : found->second;
}

} // namespace hostkit
