// The moving rectangles that are exported by name only, and the helpers of their coordinates.

#include "Cells.h"

using namespace tp;

// ---------------------------------------------------------------------------------------------
// Helpers
// ---------------------------------------------------------------------------------------------

double MappedX(double x, double half) {
    return x - half;
}

double MappedY(double y, double half) {
    return -(y - half);
}

double unMappedX(double x, double half) {
    return x + half;
}

double unMappedY(double y, double half) {
    return half - y;
}

bool PointInRect(double x, double y, const RectInfo *cells, int count, double w, double h, int) {
    for (int i = 0; i < count; ++i)
        if (cells[i].dPosY >= y && y >= cells[i].dPosY - h && x >= cells[i].dPosX &&
            cells[i].dPosX + w >= x)
            return true;
    return false;
}

// ---------------------------------------------------------------------------------------------
// TrRect2: cells shrink a little, then fall, the outer ones faster
// ---------------------------------------------------------------------------------------------

namespace {

/// The 0.001 keeps the fall finite at the end.
CellPlace Fall(const CellFrame &frame, CellPlace home, double) {
    const double drop = home.x / ((1.0 - frame.p + 0.001) * 20.0) * frame.p * frame.cellH * 0.5;
    return {home.x, drop * Sign(!(home.x >= 0.0)) + home.y};
}

constexpr CellTransition kRect2 = {{9, 7, 10, 8}, Fall};

void DrawRect2(const Frames &frames, Progress progress) {
    CellFrame frame(kRect2.grid, frames, progress);
    // From a tenth of the way on the cells keep nine tenths of their size.
    const double scale = frame.p <= 0.1 ? frame.q : 0.9;
    frame.sizeW = scale * frame.cellW;
    frame.sizeH = scale * frame.cellH;
    DrawScaledCells(kRect2, frame, frames);
}

} // namespace

void TrRect2(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    DrawRect2({out, in1, in2}, ProgressOf(*param));
}

void TrRect2RGB(void *out, void *in1, void *in2, const TransParam *param) {
    DrawRect2({out, in1, in2}, ProgressOf(*param));
}

// ---------------------------------------------------------------------------------------------
// TrRect4: cells swing outward and close on the centre line
// ---------------------------------------------------------------------------------------------

namespace {

CellPlace SwingOut(const CellFrame &frame, CellPlace home, double previousY) {
    const double reach = home.x >= 0.0 ? frame.width : -frame.width;
    const double x = reach * frame.p * frame.q + frame.q * home.x;
    return {x, home.x != 0.0 ? SlopeDrift(frame, home, x) + frame.q * home.y : previousY};
}

constexpr CellTransition kRect4 = {{10, 8, 10, 10}, SwingOut, true};

} // namespace

void TrRect4(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    DrawScaledCells(kRect4, {out, in1, in2}, ProgressOf(*param));
}

void TrRect4RGB(void *out, void *in1, void *in2, const TransParam *param) {
    DrawScaledCells(kRect4, {out, in1, in2}, ProgressOf(*param));
}

// ---------------------------------------------------------------------------------------------
// TrRect5: tall cells collapse on the centre line
// ---------------------------------------------------------------------------------------------

namespace {

CellPlace Collapse(const CellFrame &frame, CellPlace home, double previousY) {
    const double x = Sign(home.x >= 0.0) * frame.move * frame.p * frame.q / 10.0 + frame.q * home.x;
    return {x, home.x != 0.0 ? SlopeDrift(frame, home, x) + frame.q * home.y : previousY};
}

constexpr CellTransition kRect5 = {{20, 5, 21, 6}, Collapse, true};

} // namespace

void TrRect5(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    DrawScaledCells(kRect5, {out, in1, in2}, ProgressOf(*param));
}

void TrRect5RGB(void *out, void *in1, void *in2, const TransParam *param) {
    DrawScaledCells(kRect5, {out, in1, in2}, ProgressOf(*param));
}

// ---------------------------------------------------------------------------------------------
// TrRect6: tiles with the whole outgoing frame scatter
// ---------------------------------------------------------------------------------------------

namespace {

/// The nearer to the vertical centre line, the farther a tile flies.
CellPlace Scatter(const CellFrame &frame, CellPlace home, double previousY) {
    if (home.x == 0.0)
        return {home.x, previousY};
    const int kick = frame.width / 50;
    const double side = Sign(home.x >= 0.0);
    const double x = home.x + kick / home.x * (frame.move * side) * side;
    return {x, home.y - Sign(x > 0.0) * (home.y / home.x * frame.p * frame.move)};
}

constexpr CellTransition kRect6 = {{10, 8, 10, 10}, Scatter, true, true};

/// At its very start the transition shows the outgoing frame, not a hundred small ones.
void DrawRect6(const Frames &frames, Progress progress) {
    if (progress.Fraction() <= 1e-9)
        CopyPicture(frames, Input::One);
    else
        DrawScaledCells(kRect6, frames, progress);
}

} // namespace

void TrRect6(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    DrawRect6({out, in1, in2}, ProgressOf(*param));
}

void TrRect6RGB(void *out, void *in1, void *in2, const TransParam *param) {
    DrawRect6({out, in1, in2}, ProgressOf(*param));
}
