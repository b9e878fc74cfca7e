/// \file Cells.h
/// Moving rectangles: the outgoing frame is cut into a grid of cells that shrink and move over the
/// incoming one. What a transition adds is a CellTransition: its grid, its motion, its bounds.
///
/// A cell's columns and rows are numbered by the counters i and j from its top left corner; it
/// shows every stepX-th column and every stepY-th row of its source. Cells are drawn in order, a
/// later one over an earlier one.
#pragma once

#include "Frames.h"
#include "Progress.h"

namespace tp {

/// A place in centred coordinates: origin in the middle of the frame, x to the right, y upward.
struct CellPlace {
    double x;
    double y;
};

/// How a frame is cut. The grid may reach beyond the frame: what a cell would take from below the
/// frame it does not draw, and what it takes from behind a row's end comes from the row below.
struct CellGrid {
    int across;  ///< a cell is as wide as this part of the frame, rounded down
    int down;    ///< a cell is as high as this part of the frame, rounded down
    int columns; ///< cells drawn in a row of the grid
    int rows;    ///< rows of the grid that are drawn
};

/// What all cells of one frame share.
struct CellFrame {
    int width;
    int height;
    int cellW;
    int cellH;
    int halfW; ///< the centre, rounded down
    int halfH;
    double p;     ///< linear progress
    double q;     ///< what remains of it
    double sizeW; ///< size that the cells have shrunk to, not rounded
    double sizeH;
    double move; ///< half the width times the progress

    CellFrame(const CellGrid &grid, const Frames &frames, Progress progress);
};

/// Where the top left corner of a cell is now. Home is its place in the grid. A cell right on the
/// vertical centre line has no slope and takes previousY, the y of the cell before (0 for the first
/// one).
using CellMotion = CellPlace (*)(const CellFrame &frame, CellPlace home, double previousY);

/// One transition of moving cells.
struct CellTransition {
    CellGrid grid;
    CellMotion motion;
    /// Cells draw one column past the frame's last, too: it is padding, or else the first column of
    /// the row below.
    bool drawsPastEnd = false;
    /// Each cell shows the whole outgoing frame instead of its part.
    bool showsWholeFrame = false;
};

/// Draws the second input and over it the cells, scaled down by whole steps. In packed frames
/// columns count bytes, not pixels, and every sample carries the three bytes behind it along, so
/// the cells come out four times narrower, in the first quarter of the frame's bytes.
void DrawScaledCells(const CellTransition &transition, const CellFrame &frame,
                     const Frames &frames);

/// The same for cells that keep the frame's shrinking size.
void DrawScaledCells(const CellTransition &transition, const Frames &frames, Progress progress);

/// Draws the second input of packed frames and over it the cells in whole pixels, cropped to their
/// size instead of scaled. A cell that the frame's left or top edge cuts still starts with its home
/// corner.
void DrawCroppedCells(const CellTransition &transition, const CellFrame &frame,
                      const Frames &frames);

/// +1 or -1.
inline double Sign(bool positive) {
    return positive ? 1.0 : -1.0;
}

/// The vertical drift, away from the centre, of a cell that has moved to x: it follows the slope of
/// the cell's home, grows with the progress and dies away as the cells shrink.
inline double SlopeDrift(const CellFrame &frame, CellPlace home, double x) {
    return home.y / home.x * frame.move * Sign(x > 0.0) * frame.sizeW / 5.0 * frame.q;
}

} // namespace tp
