#include "Samples.h"

#include "Duration.h"
#include "Failure.h"
#include "Painter.h"
#include "Pictures.h"

#include <algorithm>
#include <cmath>

namespace host {

namespace {

Canvas WithPixels(const Canvas &like, AVPixelFormat pixels) {
    Canvas canvas = like;
    canvas.pixels = pixels;
    canvas.colours = Assumed({.matrix = AVCOL_SPC_BT709}, pixels, canvas.height);
    return canvas;
}

Canvas ShownCanvas(const Canvas &drawn, int width, int height) {
    Canvas canvas = WithPixels(drawn, AV_PIX_FMT_BGR0);
    canvas.width = width;
    canvas.height = height;
    canvas.fit = Fit::Stretch;
    return canvas;
}

} // namespace

void AddSampleOptions(CLI::App &command, SampleOptions &options) {
    command
        .add_option("A B", options.clips,
                    "Two clips or still pictures; two built-in pictures when left out")
        ->type_name("FILE");
    command
        .add_option("--size", options.size,
                    "Size at which the transitions draw (default: the size of A, 640x360 for "
                    "the built-in pictures)")
        ->type_name("WxH");
    command
        .add_option("--at", options.at, "Which picture of the clips, by the time from their start")
        ->type_name("TIME")
        ->capture_default_str();
}

SampleInputs LoadInputs(const SampleOptions &options) {
    if (!options.clips.empty() && options.clips.size() != 2)
        throw Failure("give two clips or pictures, or none for the built-in ones");
    SampleInputs inputs;
    Canvas &canvas = inputs.canvas;
    canvas.width = 640;
    canvas.height = 360;
    const double at = SecondsIn(ParseTime(options.at, "--at"), canvas.rate);
    std::vector<Clip> clips;
    for (const std::string &name : options.clips)
        clips.push_back(ProbeClip(name));
    if (!clips.empty()) {
        canvas.width = clips[0].width;
        canvas.height = clips[0].height;
        canvas.aspect = clips[0].aspect;
        canvas.rate = clips[0].rate;
    }
    if (!options.size.empty()) {
        const Size size = ParseSize(options.size);
        canvas.width = size.width;
        canvas.height = size.height;
        canvas.aspect = {1, 1};
    }
    // Pictures in between keep what both paths show of them.
    canvas = WithPixels(canvas, AV_PIX_FMT_BGRA);
    for (int i = 0; i < 2; ++i) {
        const Frame picture =
            clips.empty() ? ToFrame((i ? DuskPicture : DayPicture)(canvas.width, canvas.height))
                          : PictureAt(clips[i], canvas, at);
        inputs.planar[i] = Converter(DrawingCanvas(canvas, Path::Yuv)).Convert(*picture);
        inputs.packed[i] = Converter(DrawingCanvas(canvas, Path::Rgb)).Convert(*picture);
    }
    return inputs;
}

int SampleHeight(const Canvas &drawn, int width) {
    const double pixel = drawn.aspect.num > 0 ? av_q2d(drawn.aspect) : 1;
    return std::max(1, int(std::lround(width * drawn.height / (pixel * drawn.width))));
}

SamplePainter::SamplePainter(const SampleInputs &drawn, Path drawingPath, int width, int height)
    : inputs(drawn), path(drawingPath), canvas(DrawingCanvas(drawn.canvas, path)),
      converter(ShownCanvas(drawn.canvas, width, height)) {}

Frame SamplePainter::Draw(const hostkit::Transition &transition, const hostkit::Motion &motion,
                          const hostkit::Moment &moment) {
    const Frame drawn = NewPicture(canvas.pixels, canvas.width, canvas.height);
    Label(*drawn, canvas.colours);
    hostkit::Frame out = View(*drawn, path);
    hostkit::Draw(transition, motion, moment, out, View(*Input(0), path), View(*Input(1), path));
    return converter.Convert(*drawn);
}

Frame SamplePainter::Show(int input) {
    return converter.Convert(*Input(input));
}

} // namespace host
