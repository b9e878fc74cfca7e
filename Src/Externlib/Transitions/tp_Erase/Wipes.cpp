// Wipes, slides and blends.

#include "Frames.h"
#include "Pixels.h"
#include "Progress.h"
#include "Rows.h"
#include "tp_Erase.h"

#include <array>

using namespace tp;

// ---------------------------------------------------------------------------------------------
// Erase: a soft vertical edge that travels from left to right
// ---------------------------------------------------------------------------------------------

namespace {

/// The soft edge of one frame: columns before begin show the second input, columns from end on the
/// first, and in between the weight of the second falls.
struct SoftEdge {
    int begin;
    int end;
};

/// Weights of the second input over the visible columns of a soft edge, one per sample: samples are
/// stride columns apart, and each weight stands repeat times. The ramp falls to 0 at column zero.
struct EdgeWeights {
    std::array<std::uint8_t, std::size_t(kBandWidth) * 4> weights;

    EdgeWeights(SoftEdge edge, int zero, int stride, int repeat) {
        auto *next = weights.data();
        for (int x = edge.begin; x < edge.end; x += stride)
            for (int i = 0; i < repeat; ++i)
                *next++ = static_cast<std::uint8_t>(RampWeight(zero - x));
    }
};

/// A soft edge cut to the frame. Where begin lies beyond end (a position that wrapped) the columns
/// before begin win.
SoftEdge VisibleEdge(int begin, int end, int width) {
    begin = Limit(begin, 0, width);
    return {begin, Limit(end, begin, width)};
}

void BlendEdge(const Triple &row, SoftEdge edge, const EdgeWeights &weights) {
    const Triple at = row.At(edge.begin);
    Rows().blendYuv(at.out, at.in2, at.in1, weights.weights.data(), edge.end - edge.begin);
}

} // namespace

void TrErase(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const double total = param->dTotal;
    const double eased = StoreEased(*param);
    const PlanarFrames frames(out, in1, in2);
    const int position = Position(eased, frames.width + kBandWidth, total);
    const SoftEdge edge = VisibleEdge(position - kBandWidth, position, frames.width);
    const SoftEdge chromaEdge = {HalfUp(edge.begin), HalfUp(edge.end)};
    const EdgeWeights lumaWeights(edge, position, 1, 1);
    const EdgeWeights chromaWeights({chromaEdge.begin * 2, edge.end}, position, 2, 1);
    frames.DrawRows([&](const PlanarRow &row, int) {
        row.Copy(Input::Two, 0, edge.begin);
        BlendEdge(row.luma, edge, lumaWeights);
        if (row.hasChroma) {
            BlendEdge(row.cb, chromaEdge, chromaWeights);
            BlendEdge(row.cr, chromaEdge, chromaWeights);
        }
        row.Copy(Input::One, edge.end, frames.width);
    });
}

void TrEraseRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const PackedFrames frames(out, in1, in2);
    const int position = Position(param->dCurrent, frames.width + kBandWidth, param->dTotal);
    const int begin = position - kBandWidth;
    // Nothing of the incoming frame shows until the whole band has entered.
    if (begin <= 0) {
        frames.CopyPicture(Input::One);
        return;
    }
    // Past the right border the ramp is measured from the border, so its last column keeps
    // weight 2.
    const SoftEdge edge = VisibleEdge(begin, std::min(position, frames.width), frames.width);
    const EdgeWeights weights(edge, edge.end, 1, 4);
    const auto blendRgb = Rows().blendRgb;
    frames.DrawRows([&](const PackedRow &row, int) {
        row.Copy(Input::Two, 0, edge.begin);
        const Triple band = row.bytes.At(std::ptrdiff_t(edge.begin) * 4);
        blendRgb(band.out, band.in2, band.in1, weights.weights.data(),
                 std::ptrdiff_t(edge.end - edge.begin) * 4);
        row.Copy(Input::One, edge.end, frames.width);
    });
}
