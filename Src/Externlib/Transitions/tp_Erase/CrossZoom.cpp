// CrossZoom: a cross-fade smeared towards a centre that crosses the frame. The geometry is per
// pixel, in floating point, with random numbers

#include "Frames.h"
#include "ParallelRows.h"
#include "Progress.h"
#include "ShaderRows.h"
#include "tp_Erase.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

using namespace tp;

namespace {

/// One frame of the zoom blur.
struct CrossZoom {
    float centreRatio; ///< the centre's column as a fraction of the width
    float strength;    ///< 0 none .. 0.5
    CrossFade fade;

    explicit CrossZoom(float progress)
        : centreRatio(Linear_ease(0.25F, 0.5F, 1, progress)),
          strength(Sinusoidal_easeInOut(0, 0.5F, 0.5F, progress)) {
        const float dissolve = Exponential_easeInOut(0, 1, 1, progress);
        fade = {dissolve, 1.0 - double(dissolve)};
    }

    ZoomRow Row(const Frames &frames, int y) const {
        // Exact in double, and in float for all heights that fit a float.
        const auto down = static_cast<float>(double(frames.height) * 0.5 - double(y));
        return {float(frames.width) * centreRatio,
                float(y),
                down,
                strength,
                frames.width - 1,
                frames.height - 1};
    }
};

/// The cross-fade of one plane, its rows without padding: every sample of a blur needs it.
class FadedPlane {
public:
    /// A plane whose rows are still to be faded.
    explicit FadedPlane(const Plane &inputs)
        : plane(inputs), rowSamples(inputs.VisibleBytes()),
          samples(std::make_unique_for_overwrite<float[]>(std::size_t(rowSamples * inputs.rows))) {}

    void Fade(const cv::Range &rows, CrossFade fade) {
        for (int y = rows.start; y < rows.end; ++y) {
            const Place row = plane.start.At(y * plane.pitch);
            Shaders().crossFade(samples.get() + y * rowSamples, row.in1, row.in2, fade, rowSamples);
        }
    }
    BlurPlane Row(int y) const { return {plane.RowOf(y).out, samples.get()}; }

private:
    const Plane plane;
    const std::ptrdiff_t rowSamples;
    const std::unique_ptr<float[]> samples;
};

/// How many rows of a frame the blur of its rows down to this one reads. A sample lies between its
/// pixel's row and the centre's, and the lower a row the lower its samples.
int RowsRead(const ZoomRow &last, int samples) {
    const float reach = ZoomReach(samples - 1, kDraws - 1);
    const int farthest = ZoomSample(last.y, last.down, reach, last.strength, last.lastY);
    return std::max(static_cast<int>(last.y), farthest) + 1;
}

/// One draw per pixel of a row from the process's generator.
void FillDraws(std::vector<std::int32_t> &draws) {
    for (std::int32_t &draw : draws)
        draw = std::rand() % kDraws;
}

/// Blurs a packed frame on one thread, with one draw of the process's generator for each pixel.
void BlurInOrder(const Frames &frames, const CrossZoom &zoom) {
    FadedPlane faded(frames[Plane::Packed]);
    faded.Fade({0, frames.height}, zoom.fade);
    std::vector<std::int32_t> draws(static_cast<std::size_t>(frames.width));
    for (int y = 0; y < frames.height; ++y) {
        FillDraws(draws);
        Shaders().blurPixels6(faded.Row(y), frames.width, zoom.Row(frames, y), 0, draws.data(),
                              frames.width);
    }
}

/// Blurs the first `count` pixels of a packed frame on several threads. A pixel's draw is a
/// function of one draw of the process's generator and of the pixel's index.
void BlurInParallel(const Frames &frames, const CrossZoom &zoom, int count) {
    constexpr int samples = 5;
    const int width = frames.width;
    const int rowCount = (count - 1) / width + 1;
    FadedPlane faded(frames[Plane::Packed]);
    DrawInParallel(RowsRead(zoom.Row(frames, rowCount - 1), samples),
                   [&](const cv::Range &rows) { faded.Fade(rows, zoom.fade); });
    const auto seed = static_cast<std::uint32_t>(std::rand());
    DrawInParallel(rowCount, [&](const cv::Range &rows) {
        std::vector<std::int32_t> draws(static_cast<std::size_t>(width));
        for (int y = rows.start; y < rows.end; ++y) {
            const int pixels = std::min(width, count - y * width);
            Shaders().hashDraws(draws.data(), static_cast<std::uint32_t>(y * width), seed, pixels);
            Shaders().blurPixels5(faded.Row(y), width, zoom.Row(frames, y), 0, draws.data(),
                                  pixels);
        }
    });
}

} // namespace

void TrCrossZoom(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    const CrossZoom zoom(static_cast<float>(Smooth(ProgressOf(*param)).Fraction()));
    const Frames frames(out, in1, in2);
    frames.FillBlack();
    if (frames.width < 1 || frames.height < 1)
        return;
    FadedPlane luma(frames[Plane::Luma]), cb(frames[Plane::Cb]), cr(frames[Plane::Cr]);
    const int chromaWidth = HalfUp(frames.width);
    luma.Fade({0, frames.height}, zoom.fade);
    for (FadedPlane *plane : {&cb, &cr})
        plane->Fade({0, HalfUp(frames.height)}, zoom.fade);
    std::vector<std::int32_t> draws(static_cast<std::size_t>(frames.width));
    for (int y = 0; y < frames.height; ++y) {
        const ZoomRow row = zoom.Row(frames, y);
        FillDraws(draws);
        const BlurPlane lumaRow = luma.Row(y);
        Shaders().blurPlanes(&lumaRow, 1, frames.width, 0, row, 0, 1, draws.data(), frames.width);
        // Every pixel writes the chroma sample of its block; the last one stays, at the odd row and
        // column where the frame has them.
        if (!(y & 1) && y + 1 < frames.height)
            continue;
        for (std::size_t x = 0; x < draws.size(); ++x)
            draws[x >> 1] = draws[x];
        const BlurPlane chroma[] = {cb.Row(y), cr.Row(y)};
        Shaders().blurPlanes(chroma, 2, chromaWidth, 1, row, 1, 2, draws.data(), chromaWidth);
    }
}

void TrCrossZoomRGB(void *out, void *in1, void *in2, const TransParam *param) {
    constexpr int serialPixels = 1000;
    const CrossZoom zoom(static_cast<float>(Smooth(ProgressOf(*param)).Fraction()));
    const Frames frames(out, in1, in2);
    const int inputPixels = DIGetWidth(in1) * DIGetHeight(in1);
    if (frames.width < 1 || frames.height < 1)
        return;
    CheckBuffers(frames);
    if (inputPixels <= serialPixels) {
        BlurInOrder(frames, zoom);
        return;
    }
    // Pixels beyond those of the first input stay black, and nothing is read for them: the inputs
    // may end there.
    const Plane &plane = frames[Plane::Packed];
    const int count = std::min(inputPixels, frames.width * frames.height);
    FillBytes(plane.start.out + std::ptrdiff_t(count) * 4, 0,
              plane.size - std::ptrdiff_t(count) * 4);
    BlurInParallel(frames, zoom, count);
}
