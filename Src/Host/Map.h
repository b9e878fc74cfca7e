/// \file Map.h
/// A transition as a luma map: one picture that tells when each pixel changes.
#pragma once

#include "Program.h"

#include <cstdint>
#include <vector>

namespace host {

/// One byte of each pixel: a planar frame's luma, a packed frame's second colour.
class Plane {
public:
    explicit Plane(const hostkit::Frame &f) : frame(f) {}
    std::uint8_t operator()(int x, int y) const { return Row(y)[x * Step()]; }
    /// The bytes of a row side by side.
    const std::uint8_t *Line(int y, std::vector<std::uint8_t> &room) const {
        if (Step() == 1)
            return Row(y);
        room.resize(frame.Width());
        for (int x = 0; x < frame.Width(); ++x)
            room[x] = (*this)(x, y);
        return room.data();
    }

private:
    int Step() const { return frame.Layout() == Path::Rgb ? 4 : 1; }
    const std::uint8_t *Row(int y) const { return frame.Row(0, y) + (Step() == 4); }
    const hostkit::Frame &frame;
};

/// How much of B each pixel of a transition shows: drawn between black and white.
class Weights {
public:
    Weights(const hostkit::Transition &transition, Path path, Size size);
    /// In 255ths, until the next call.
    Plane Draw(const hostkit::Motion &motion, const hostkit::Moment &moment);

private:
    const hostkit::Transition &transition;
    hostkit::Frame black, white, drawn;
};

/// When each pixel turns from A to B, for hosts that show A where MapWeight is 0, B where it is 1,
/// and blend between.
struct LumaMap {
    Path path; ///< that it was taken of
    int width;
    int height;
    std::vector<std::uint16_t> levels; ///< row by row from the top: 0 turns first, 65535 last
    int softness;                      ///< percent: what comes nearest to the transition
    double distance; ///< of the map's run from the transition's between black and white: the mean
                     ///< over pixels and time, in levels of 255
};

/// B's weight by the rule of the hosts that take maps: an edge that runs over the levels as
/// progress goes from 0 to 1, as soft as softness says, 0 to 1.
double MapWeight(double level, double softness, double progress);

/// Why a transition has no map.
struct NoMap : Failure {
    using Failure::Failure;
};

/// Draws the transition by a path that it has and takes its map. Throws a NoMap that says why when
/// no map can tell it: a pixel shows what both pictures have not in its place, goes back to A,
/// never becomes B or blends otherwise than at a soft edge.
LumaMap MapOf(const hostkit::Transition &transition, Path path, Size size);

/// The map by the first path that gives one: the planar one, then the packed one unless nobody
/// wants it unasked. Throws the planar path's NoMap when none does.
LumaMap MapOf(const hostkit::Transition &transition, Size size);

} // namespace host
