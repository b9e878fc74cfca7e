#include "Painter.h"

namespace host {

Canvas DrawingCanvas(const Canvas &result, hostkit::Path path) {
    Canvas canvas = result;
    canvas.pixels = path == hostkit::Path::Yuv ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_BGRA;
    canvas.fit = Fit::Stretch;
    if (IsRgb(result.pixels) != IsRgb(canvas.pixels)) {
        const Colours &colours = result.colours;
        canvas.colours = Assumed({.primaries = colours.primaries, .transfer = colours.transfer},
                                 canvas.pixels, canvas.height);
    }
    if (path == hostkit::Path::Yuv)
        canvas.colours.range = AVCOL_RANGE_MPEG;
    return canvas;
}

hostkit::Frame View(const AVFrame &picture, hostkit::Path path) {
    return {path, picture.width, picture.height, picture.data, picture.linesize};
}

Frame Painter::Paint(const Joint &joint, std::int64_t number, const AVFrame &a, const AVFrame &b) {
    Converters &to = converters[joint.path == hostkit::Path::Yuv ? 0 : 1];
    const Frame inA = to.a.Convert(a), inB = to.b.Convert(b);
    const Frame drawn = NewPicture(to.canvas.pixels, to.canvas.width, to.canvas.height);
    Label(*drawn, to.canvas.colours);
    drawn->sample_aspect_ratio = to.canvas.aspect;
    hostkit::Frame out = View(*drawn, joint.path);
    Draw(*joint.transition, joint.motion, hostkit::MomentOf(number, joint.overlap), out,
         View(*inA, joint.path), View(*inB, joint.path));
    return to.out.Convert(*drawn);
}

} // namespace host
