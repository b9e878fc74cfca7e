/// \file Painter.h
/// The frames in which two clips are seen.
#pragma once

#include "Clip.h"
#include "Draw.h"

namespace host {

/// How two clips are joined.
struct Joint {
    const hostkit::Transition *transition = nullptr;
    hostkit::Path path = hostkit::Path::Yuv;
    hostkit::Motion motion;
    std::int64_t overlap = 0; ///< frames; 0 is a cut
};

/// The canvas that a path draws on for this result. The planar functions write video levels, so
/// theirs is in limited range.
Canvas DrawingCanvas(const Canvas &result, hostkit::Path path);
/// A picture of such a canvas as the plug-in's hosts see it; the picture outlives the view.
hostkit::Frame View(const AVFrame &picture, hostkit::Path path);

/// Draws pictures of the canvas from two of them.
class Painter {
public:
    explicit Painter(const Canvas &result)
        : converters{{result, hostkit::Path::Yuv}, {result, hostkit::Path::Rgb}} {}

    /// Frame `number` of the joint's overlap: its first frame is wholly A's and its last wholly
    /// B's.
    Frame Paint(const Joint &joint, std::int64_t number, const AVFrame &a, const AVFrame &b);

private:
    /// To a path's canvas and back.
    struct Converters {
        Converters(const Canvas &result, hostkit::Path path)
            : canvas(DrawingCanvas(result, path)), a(canvas), b(canvas), out(result) {}
        Canvas canvas;
        Converter a, b, out;
    } converters[2];
};

} // namespace host
