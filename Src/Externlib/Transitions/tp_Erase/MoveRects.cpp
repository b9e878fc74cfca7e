// The registered moving rectangles: scaled down in the planar layout, cropped in the packed one.

#include "Cells.h"
#include "Pixels.h"

using namespace tp;

// ---------------------------------------------------------------------------------------------
// MoveRect_1: cells shrink and fly outward
// ---------------------------------------------------------------------------------------------

namespace {

/// The way along y is twice that along x, so a cell does not travel along the ray from the centre.
CellPlace FlyOutward(const CellFrame &frame, CellPlace home, double previousY) {
    const double x = Sign(home.x >= 0.0) * frame.move * 0.5 + home.x;
    const double y =
        home.x != 0.0 ? home.y / home.x * frame.move * Sign(x > 0.0) + home.y : previousY;
    return {x, y};
}

constexpr CellTransition kRect = {{9, 7, 10, 10}, FlyOutward};
constexpr CellTransition kRectPacked = {{9, 7, 9, 7}, FlyOutward};

} // namespace

void TrRect(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    DrawScaledCells(kRect, {out, in1, in2}, ProgressOf(*param));
}

void TrRectRGB(void *out, void *in1, void *in2, const TransParam *param) {
    const Frames frames(out, in1, in2);
    CellFrame frame(kRectPacked.grid, frames, ProgressOf(*param));
    frame.sizeW = Convert(frame.sizeW);
    frame.sizeH = Convert(frame.sizeH);
    DrawCroppedCells(kRectPacked, frame, frames);
}

// ---------------------------------------------------------------------------------------------
// MoveRect_2: a finer grid, accelerating; the vertical drift comes and goes
// ---------------------------------------------------------------------------------------------

namespace {

CellPlace Accelerate(const CellFrame &frame, CellPlace home, double previousY) {
    const double x = Sign(home.x >= 0.0) * frame.move * frame.p / 3.0 + home.x;
    return {x, home.x != 0.0 ? SlopeDrift(frame, home, x) + home.y : previousY};
}

constexpr CellTransition kRect3 = {{10, 8, 10, 10}, Accelerate};
constexpr CellTransition kRect3Packed = {{10, 8, 10, 8}, Accelerate};

} // namespace

void TrRect3(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    DrawScaledCells(kRect3, {out, in1, in2}, ProgressOf(*param));
}

void TrRect3RGB(void *out, void *in1, void *in2, const TransParam *param) {
    const Frames frames(out, in1, in2);
    DrawCroppedCells(kRect3Packed, {kRect3Packed.grid, frames, ProgressOf(*param)}, frames);
}
