/// \file Convert.h
/// Decoded pictures into the pixels, the size and the colours that drawing and writing need.
#pragma once

#include "Draw.h"
#include "Media.h"

#include <memory>

struct SwsContext;

namespace host {

/// How a picture of another shape fills the result.
enum class Fit {
    Contain, ///< whole picture, black bars beside it
    Cover,   ///< no bars, what sticks out is cut off
    Stretch, ///< no bars, nothing cut off, distorted
};

/// Where converted pictures go: size and shape of the result.
struct Target {
    int width;
    int height;
    AVRational aspect; ///< of a pixel; 0 is unknown and counts as square
    Colours colours;   ///< of the Y'CbCr pictures
    Fit fit = Fit::Contain;
};

/// The colours as they are computed with: what a clip leaves unsaid is guessed as players do it,
/// limited range and the matrix that its height suggests.
Colours Assumed(Colours colours, int height);

/// Converts pictures of one clip (or of the result of a transition); each keeps its own set-up
/// between calls, so use one converter per stream and thread.
class Converter {
public:
    explicit Converter(const Target &target) : target(target) {}

    /// The picture in these pixels, sharing the source's where nothing needs to change, and the
    /// last result when the same picture comes again. Where the pixels hold no transparency, the
    /// picture lies on black.
    Frame ToFrame(const AVFrame &picture, AVPixelFormat pixels);
    /// The picture in a frame of the target's size, in its layout.
    void ToDrawn(const AVFrame &picture, hostkit::Frame &frame);

private:
    struct Planes {
        std::uint8_t *data[4];
        int pitch[4];
        AVPixelFormat pixels;
        Planes At(int x, int y) const;
    };
    struct Box {
        int x, y, width, height;
    };
    struct Setup;

    bool IsSame(const AVFrame &picture, AVPixelFormat pixels) const;
    void Run(const AVFrame &picture, Planes planes);
    void Prepare(const AVFrame &picture, AVPixelFormat pixels);
    Box Inner(const AVFrame &picture, bool cut) const;

    /// The picture without transparency, as it looks on black.
    Frame OverBlack(const AVFrame &picture);

    Target target;
    std::shared_ptr<Setup> setup;
    std::shared_ptr<Converter> flat; ///< to pixels with plain transparency
    Frame lastSource, lastResult;
};

/// The frame's samples as a picture of the media libraries, which then owns them.
Frame Wrap(hostkit::Frame frame, const Target &target);

} // namespace host
