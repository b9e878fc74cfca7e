// Shader-style transitions: geometry per pixel in floating point. Large packed frames are spread
// over OpenCV's worker threads.

#include "OldFrames.h"
#include "Pixels.h"
#include "Progress.h"
#include "Rows.h"
#include "ShaderRows.h"
#include "tp_Erase.h"

#include <opencv2/core.hpp>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <memory>

using namespace tp;

namespace {

/// A range of columns; empty when end is not above begin.
struct Span {
    int begin = 0;
    int end = 0;

    int Size() const { return end - begin; }
    bool Empty() const { return end <= begin; }
    /// What of it lies within another.
    Span Within(Span other) const {
        return {std::max(begin, other.begin), std::min(end, other.end)};
    }
    /// Takes in a column at its right end.
    void Add(int column) {
        if (Empty())
            begin = column;
        end = column + 1;
    }
};

template<class T>
std::unique_ptr<T[]> Scratch(std::ptrdiff_t count) {
    return std::make_unique_for_overwrite<T[]>(static_cast<std::size_t>(count));
}

/// Lets OpenCV check the buffers of a call, as the frames go to its threads: a missing one is its
/// own assertion error, which leaves the output cleared.
void CheckBuffers(const PackedFrames &frames) {
    const Triple &pixels = frames.pixels;
    for (const std::uint8_t *buffer :
         {pixels.in1, pixels.in2, static_cast<const std::uint8_t *>(pixels.out)}) {
        if (!buffer && pixels.out)
            FillBytes(pixels.out, 0, frames.Bytes());
        [[maybe_unused]] const cv::Mat header(frames.height, frames.width, CV_8UC4,
                                              const_cast<std::uint8_t *>(buffer),
                                              static_cast<std::size_t>(frames.Pitch()));
    }
}

/// Something that OpenCV's worker threads draw, each some ranges of row-major pixel indices.
class ParallelPixels : public cv::ParallelLoopBody {
public:
    explicit ParallelPixels(int rowPixels) : width(rowPixels) {}

    /// Draws the first count pixels.
    void Draw(int count) const {
        drawn.store(0, std::memory_order_release);
        cv::parallel_for_(cv::Range(0, count), *this, -1.0);
        drawn.load(std::memory_order_acquire);
    }
    void operator()(const cv::Range &range) const final {
        drawn.load(std::memory_order_acquire);
        Paint(range);
        drawn.fetch_add(range.size(), std::memory_order_release);
    }

protected:
    virtual void Paint(const cv::Range &range) const = 0;

    /// Walks the rows of a range: paint(y, columns).
    template<class PaintColumns>
    void ForEachRow(const cv::Range &range, PaintColumns paint) const {
        for (int i = range.start; i < range.end;) {
            const int x = i % width;
            const int end = std::min(width, x + (range.end - i));
            paint(i / width, Span{x, end});
            i += end - x;
        }
    }

    const int width;

private:
    /// Orders the caller's work and the workers' visibly: OpenCV does so too, but inside libraries
    /// that a build under the thread sanitizer cannot look into.
    mutable std::atomic<int> drawn = 0;
};

} // namespace

// ---------------------------------------------------------------------------------------------
// DoorWay: the outgoing frame opens like a pair of doors, the incoming one approaches behind
// ---------------------------------------------------------------------------------------------

namespace {

/// In which precision the doors' columns move.
enum class DoorStep {
    PlanarDouble, ///< double, the column truncated from the double
    Double,       ///< double, rounded to float, the column truncated from the float
    Float,        ///< float throughout
};

/// One frame of the doors. Everything of a door but the source row depends on the column alone, and
/// what lies behind the doors is a rectangle above its mirror image.
struct DoorWay {
    int width;
    int height;
    float size;                             ///< depth of the approaching frame: 3 far, 1 full size
    Span doors[2];                          ///< columns that the left and the right door cover
    Span across;                            ///< columns that the approaching frame covers
    bool wholeDoors;                        ///< the doors cover their columns in every row
    std::unique_ptr<float[]> squeeze;       ///< per column: how much a door's rows shrink
    std::unique_ptr<std::int32_t[]> shown;  ///< per column: the first input's column on a door
    std::unique_ptr<std::int32_t[]> behind; ///< per column: the second input's column

    DoorWay(int width, int height, double progress, DoorStep step);
    float RowCentre() const { return static_cast<float>(height >> 1); }
    bool SourceRows(std::int32_t *rows, Span columns, int y) const {
        return Shaders().squeezedRows(rows + columns.begin, squeeze.get() + columns.begin,
                                      RowCentre(), static_cast<float>(y),
                                      static_cast<float>(height - 1), columns.Size());
    }
};

/// Where a door's pixel comes from: x decides whether that is inside the frame.
struct DoorColumn {
    float x;
    std::int32_t column;
};

DoorColumn ShownColumn(double progress, int halfWidth, int x, DoorStep step) {
    const int way = x > halfWidth ? -halfWidth : halfWidth;
    if (step == DoorStep::Float) {
        const float at = float(way) * static_cast<float>(progress) + float(x);
        return {at, Convert(at)};
    }
    const double at = way * progress + x;
    const auto rounded = static_cast<float>(at);
    return {rounded, Convert(step == DoorStep::PlanarDouble ? at : rounded)};
}

DoorWay::DoorWay(int w, int h, double progress, DoorStep step)
    : width(w), height(h), size(mix(1, 3, static_cast<float>(1.0 - progress))),
      squeeze(Scratch<float>(w)), shown(Scratch<std::int32_t>(w)),
      behind(Scratch<std::int32_t>(w)) {
    constexpr double perspective = 0.4F;
    const int halfWidth = w >> 1;
    const float middle = 0.5F * float(w);
    const auto slit = static_cast<float>(progress * w);
    const auto widened = static_cast<float>(w * (perspective * progress)) + float(w);
    const auto slope = static_cast<float>(perspective * progress);
    // Along either half of the row each condition changes at most once, so that both together hold
    // in one span; and so does the one for the approaching frame along the whole row.
    for (int x = 0; x < w; ++x) {
        const float fromSlit = 2.0F * std::fabs(float(x) - middle) - slit;
        const DoorColumn door = ShownColumn(progress, halfWidth, x, step);
        squeeze[x] = float(w) / (widened - fromSlit * slope);
        shown[x] = door.column;
        Point2f at = {door.x, 0};
        if (fromSlit > 0 && inBounds(at, h, w))
            doors[x > halfWidth].Add(x);
        at.x = float(x - halfWidth) * size + float(halfWidth);
        behind[x] = Convert(at.x);
        if (inBounds(at, h, w))
            across.Add(x);
    }
    // A column's source rows run in one direction, so its first and its last row tell.
    const auto rows = Scratch<std::int32_t>(w);
    wholeDoors = true;
    for (const Span &door : doors)
        for (const int y : {0, h - 1})
            wholeDoors &= SourceRows(rows.get(), door, y);
}

/// What lies behind the doors in one row, across the approaching frame's columns.
struct Backdrop {
    enum { Floor, Picture, Reflection } kind;
    int row;     ///< the second input's
    float share; ///< of the second input in its reflection
};

Backdrop BackdropAt(const DoorWay &way, int y) {
    Point2f at = {0, float(y - (way.height >> 1)) * way.size + way.RowCentre()};
    if (inBounds(at, way.height, way.width))
        return {Backdrop::Picture, static_cast<int>(at.y), 0};
    at = project(at, way.height);
    if (inBounds(at, way.height, way.width))
        return {Backdrop::Reflection, static_cast<int>(at.y),
                mix(1, 0, at.y / static_cast<float>(way.height)) * 0.4F};
    return {Backdrop::Floor, 0, 0};
}

/// Walks the columns of row y from left to right: painter.Door(columns) where a door shows, whose
/// source rows are then in `rows`, painter.Behind(columns) everywhere else.
template<class Painter>
void WalkRow(const DoorWay &way, int y, Span columns, std::int32_t *rows, Painter &painter) {
    int done = columns.begin;
    for (const Span &leaf : way.doors) {
        const Span door = leaf.Within(columns);
        if (door.Empty())
            continue;
        way.SourceRows(rows, door, y);
        for (int x = door.begin; x < door.end;) {
            int end = way.wholeDoors ? door.end : x;
            while (end < door.end && rows[end] >= 0)
                ++end;
            if (end > x) {
                painter.Behind({done, x});
                painter.Door({x, end});
                done = end;
            }
            x = end + 1;
        }
    }
    painter.Behind({done, columns.end});
}

/// Paints a planar frame that has been filled with black, row by row from the first to the last.
/// Every pixel writes the chroma sample of its block, so that it is either replaced or, in the
/// reflection, raised up to four times.
class PlanarDoorWay {
public:
    PlanarDoorWay(const PlanarFrames &planar, const DoorWay &doorWay)
        : frames(planar), way(doorWay), behindHalf(Scratch<std::int32_t>(way.width)),
          rows(Scratch<std::int32_t>(way.width)), offsets(Scratch<std::int32_t>(way.width)),
          samples(Scratch<std::uint8_t>(way.width)) {
        for (int x = 0; x < way.width; ++x)
            behindHalf[x] = way.behind[x] >> 1;
    }

    void PaintRow(int row) {
        y = row;
        backdrop = BackdropAt(way, y);
        // What an even row copies into chroma is lost where the row below copies as well.
        const bool covered = !(y & 1) && y + 1 < way.height;
        doorChroma = !covered || !way.wholeDoors;
        pictureChroma = !covered || BackdropAt(way, y + 1).kind != Backdrop::Picture;
        WalkRow(way, y, {0, way.width}, rows.get(), *this);
    }

    void Door(Span s) {
        FindDoor(s, frames.pitchY, 0);
        Shaders().gatherBytes(Luma() + s.begin, frames.y.in1, offsets.get() + s.begin, 1, s.Size());
        if (!doorChroma)
            return;
        FindDoor(s, frames.pitchUV, 1);
        for (const Triple &plane : {frames.u, frames.v})
            CopyChroma(Chroma(plane), plane.in1, offsets.get(), s);
    }

    void Behind(Span gap) {
        const Span s = gap.Within(way.across);
        if (s.Empty() || backdrop.kind == Backdrop::Floor)
            return;
        const bool picture = backdrop.kind == Backdrop::Picture;
        std::uint8_t *luma = Luma() + s.begin;
        Shaders().gatherBytes(picture ? luma : samples.get(),
                              frames.y.in2 + backdrop.row * frames.pitchY,
                              way.behind.get() + s.begin, 1, s.Size());
        if (!picture)
            Shaders().addShare(luma, samples.get(), backdrop.share, s.Size());
        for (const Triple &plane : {frames.u, frames.v}) {
            const std::uint8_t *source = plane.in2 + (backdrop.row >> 1) * frames.pitchUV;
            if (!picture)
                AddChroma(Chroma(plane), source, s);
            else if (pictureChroma)
                CopyChroma(Chroma(plane), source, behindHalf.get(), s);
        }
    }

private:
    std::uint8_t *Luma() const { return frames.y.out + y * frames.pitchY; }
    std::uint8_t *Chroma(const Triple &plane) const {
        return plane.out + (y >> 1) * frames.pitchUV;
    }
    /// Finds a door's samples in a plane of this pitch, with both coordinates shifted.
    void FindDoor(Span s, std::ptrdiff_t pitch, int shift) {
        Shaders().offsets(offsets.get() + s.begin, rows.get() + s.begin, way.shown.get() + s.begin,
                          static_cast<std::int32_t>(pitch), shift, s.Size());
    }
    /// Copies chroma pixel by pixel, of which each block keeps the last one's sample.
    void CopyChroma(std::uint8_t *out, const std::uint8_t *in, const std::int32_t *from,
                    Span s) const {
        const int first = s.begin >> 1;
        const int last = s.end >> 1;
        Shaders().gatherBytes(out + first, in, from + first * 2 + 1, 2, last - first);
        if (s.end & 1)
            out[last] = in[from[s.end - 1]];
    }
    /// Adds the reflection's chroma pixel by pixel: the even columns', then the odd ones'.
    void AddChroma(std::uint8_t *out, const std::uint8_t *in, Span s) {
        for (const int odd : {0, 1}) {
            const int first = (s.begin + 1 - odd) >> 1;
            const int count = ((s.end + 1 - odd) >> 1) - first;
            Shaders().gatherBytes(samples.get(), in, behindHalf.get() + first * 2 + odd, 2, count);
            Shaders().addShare(out + first, samples.get(), backdrop.share, count);
        }
    }

    const PlanarFrames &frames;
    const DoorWay &way;
    std::unique_ptr<std::int32_t[]> behindHalf; ///< way.behind in chroma columns
    std::unique_ptr<std::int32_t[]> rows;
    std::unique_ptr<std::int32_t[]> offsets;
    std::unique_ptr<std::uint8_t[]> samples;
    // The row being painted.
    int y = 0;
    Backdrop backdrop{};
    bool doorChroma = true;    ///< whether this row's doors write chroma that lasts
    bool pictureChroma = true; ///< whether this row's approaching frame does
};

/// Paints rows of a packed frame, whatever was there before.
class PackedDoorWay {
public:
    PackedDoorWay(const PackedFrames &packed, const DoorWay &doorWay)
        : pixels(packed.pixels), pitch(packed.Pitch()), way(doorWay),
          rows(Scratch<std::int32_t>(way.width)), offsets(Scratch<std::int32_t>(way.width)),
          samples(Scratch<std::uint8_t>(pitch)) {}

    void PaintColumns(int row, Span columns) {
        y = row;
        backdrop = BackdropAt(way, y);
        WalkRow(way, y, columns, rows.get(), *this);
    }

    void Door(Span s) {
        Shaders().offsets(offsets.get(), rows.get() + s.begin, way.shown.get() + s.begin, way.width,
                          0, s.Size());
        Shaders().gatherPixels(Pixel(s.begin), pixels.in1, offsets.get(), s.Size());
    }

    void Behind(Span gap) {
        Span s = gap.Within(way.across);
        if (s.Empty() || backdrop.kind == Backdrop::Floor)
            s = {gap.end, gap.end};
        const bool picture = backdrop.kind == Backdrop::Picture;
        FillBytes(Pixel(gap.begin), 0, Bytes({gap.begin, picture ? s.begin : s.end}));
        FillBytes(Pixel(s.end), 0, Bytes({s.end, gap.end}));
        Shaders().gatherPixels(picture ? Pixel(s.begin) : samples.get(),
                               pixels.in2 + backdrop.row * pitch, way.behind.get() + s.begin,
                               s.Size());
        if (!picture)
            Shaders().addShare(Pixel(s.begin), samples.get(), backdrop.share, Bytes(s));
    }

private:
    std::uint8_t *Pixel(int x) const { return pixels.out + y * pitch + std::ptrdiff_t(x) * 4; }
    static std::ptrdiff_t Bytes(Span s) { return std::ptrdiff_t(s.Size()) * 4; }

    const Triple &pixels;
    const std::ptrdiff_t pitch;
    const DoorWay &way;
    std::unique_ptr<std::int32_t[]> rows;
    std::unique_ptr<std::int32_t[]> offsets;
    std::unique_ptr<std::uint8_t[]> samples;
    // The row being painted.
    int y = 0;
    Backdrop backdrop{};
};

class ParallelDoorWay : public ParallelPixels {
public:
    ParallelDoorWay(const PackedFrames &packed, const DoorWay &doorWay)
        : ParallelPixels(doorWay.width), frames(packed), way(doorWay) {}

private:
    void Paint(const cv::Range &range) const override {
        PackedDoorWay painter(frames, way);
        ForEachRow(range, [&](int y, Span columns) { painter.PaintColumns(y, columns); });
    }

    const PackedFrames &frames;
    const DoorWay &way;
};

} // namespace

void TrDoorWay(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    StoreSmooth(*param);
    const PlanarFrames frames(out, in1, in2);
    frames.FillBlack();
    if (frames.width < 1 || frames.height < 1)
        return;
    const DoorWay way(frames.width, frames.height, StoredFraction(), DoorStep::PlanarDouble);
    PlanarDoorWay painter(frames, way);
    for (int y = 0; y < frames.height; ++y)
        painter.PaintRow(y);
}

void TrDoorWayRGB(void *out, void *in1, void *in2, const TransParam *param) {
    constexpr int serialPixels = 10000;
    StoreSmooth(*param);
    const PackedFrames frames(out, in1, in2);
    const int width = frames.width;
    const int height = frames.height;
    if (width < 1 || height < 1)
        return;
    CheckBuffers(frames);
    if (width * height <= serialPixels) {
        const DoorWay way(width, height, StoredFraction(), DoorStep::Double);
        PackedDoorWay painter(frames, way);
        for (int y = 0; y < height; ++y)
            painter.PaintColumns(y, {0, width});
        return;
    }
    const DoorWay way(width, height, StoredFraction(), DoorStep::Float);
    ParallelDoorWay(frames, way).Draw(width * height);
}

// ---------------------------------------------------------------------------------------------
// CrossZoom: a cross-fade smeared towards a centre that crosses the frame
// ---------------------------------------------------------------------------------------------

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

    ZoomRow Row(int y, int width, int height) const {
        // Exact in double, and in float for all heights that fit a float.
        const auto down = static_cast<float>(double(height) * 0.5 - double(y));
        return {float(width) * centreRatio, float(y), down, strength, width - 1, height - 1};
    }
};

/// One draw per column of a row from the process's generator.
void DrawRow(std::int32_t *draws, int count) {
    for (int x = 0; x < count; ++x)
        draws[x] = std::rand();
    Shaders().reduceDraws(draws, count);
}

/// The rows of the frame that a row's samples lie in.
Span SampledRows(const ZoomRow &row, int samples) {
    const auto sampled = [&](float reach) {
        return ZoomSample(row.y, row.down, reach, row.strength, row.lastY);
    };
    const int near = sampled(ZoomReach(0, 0));
    const int far = sampled(ZoomReach(samples - 1, kDraws - 1));
    return {std::min(near, far), std::max(near, far) + 1};
}

/// The cross-fade of one plane, its rows without padding. Every sample of a blur needs it, so each
/// row is computed once, by the first thread that asks for it.
class FadedPlane {
public:
    FadedPlane(const Triple &plane, std::ptrdiff_t planePitch, int rowSamples, int rows,
               CrossFade crossFade)
        : inputs(plane), pitch(planePitch), width(rowSamples), fade(crossFade),
          samples(Scratch<float>(std::ptrdiff_t(rowSamples) * rows)),
          states(std::make_unique<std::atomic<State>[]>(std::size_t(rows))) {}

    /// Computes those of these rows that are still missing.
    void Compute(Span rows) {
        for (int y = rows.begin; y < rows.end; ++y)
            if (states[y].load(std::memory_order_acquire) != State::Done)
                ComputeRow(y);
    }
    const float *Samples() const { return samples.get(); }

private:
    enum class State : std::uint8_t { Missing, Taken, Done };

    void ComputeRow(std::ptrdiff_t y) {
        std::atomic<State> &state = states[y];
        State found = State::Missing;
        if (!state.compare_exchange_strong(found, State::Taken)) {
            state.wait(State::Taken);
            return;
        }
        const Triple row = inputs.At(y * pitch);
        Shaders().crossFade(samples.get() + y * width, row.in1, row.in2, fade, width);
        state.store(State::Done);
        state.notify_all();
    }

    const Triple inputs;
    const std::ptrdiff_t pitch;
    const std::ptrdiff_t width;
    const CrossFade fade;
    std::unique_ptr<float[]> samples;
    std::unique_ptr<std::atomic<State>[]> states;
};

/// Paints a planar frame row by row, with one draw of the process's generator for each pixel.
class PlanarCrossZoom {
public:
    PlanarCrossZoom(const PlanarFrames &planar, const CrossZoom &crossZoom)
        : frames(planar), zoom(crossZoom), chromaWidth(HalfUp(frames.width)),
          luma(frames.y, frames.pitchY, frames.width, frames.height, zoom.fade),
          cb(frames.u, frames.pitchUV, chromaWidth, HalfUp(frames.height), zoom.fade),
          cr(frames.v, frames.pitchUV, chromaWidth, HalfUp(frames.height), zoom.fade),
          draws(Scratch<std::int32_t>(frames.width)) {}

    void PaintRow(int y) {
        const ZoomRow row = zoom.Row(y, frames.width, frames.height);
        const Span rows = SampledRows(row, 6);
        luma.Compute(rows);
        DrawRow(draws.get(), frames.width);
        const BlurPlane plane = {frames.y.out + y * frames.pitchY, luma.Samples()};
        Shaders().blurPlanes(&plane, 1, frames.width, 0, row, 0, 1, draws.get(), frames.width);
        // Every pixel writes the chroma sample of its block; the last one stays, at the odd row and
        // column where the frame has them.
        if ((y & 1) || y + 1 == frames.height)
            PaintChroma(y >> 1, row, {rows.begin >> 1, HalfUp(rows.end)});
    }

private:
    /// Paints a chroma row with the draws of the luma row that decides it.
    void PaintChroma(int y, const ZoomRow &row, Span rows) {
        cb.Compute(rows);
        cr.Compute(rows);
        for (int x = 0; x < frames.width; ++x)
            draws[x >> 1] = draws[x];
        const BlurPlane planes[] = {{frames.u.out + y * frames.pitchUV, cb.Samples()},
                                    {frames.v.out + y * frames.pitchUV, cr.Samples()}};
        Shaders().blurPlanes(planes, 2, chromaWidth, 1, row, 1, 2, draws.get(), chromaWidth);
    }

    const PlanarFrames &frames;
    const CrossZoom &zoom;
    const int chromaWidth;
    FadedPlane luma;
    FadedPlane cb;
    FadedPlane cr;
    std::unique_ptr<std::int32_t[]> draws;
};

/// Paints a packed frame, pieces of it in any order.
class PackedCrossZoom {
public:
    PackedCrossZoom(const PackedFrames &packed, const CrossZoom &crossZoom)
        : frames(packed), zoom(crossZoom),
          faded(frames.pixels, frames.Pitch(), frames.width * 4, frames.height, zoom.fade) {}

    /// Paints some columns of a row, with draws[0] for the first of them.
    void PaintColumns(int y, Span columns, const std::int32_t *draws, int samples) {
        const ZoomRow row = zoom.Row(y, frames.width, frames.height);
        faded.Compute(SampledRows(row, samples));
        std::uint8_t *out = frames.Row(y).bytes.out + std::ptrdiff_t(columns.begin) * 4;
        const auto blur = samples == 5 ? Shaders().blurPixels5 : Shaders().blurPixels6;
        blur({out, faded.Samples()}, frames.width, row, columns.begin, draws, columns.Size());
    }

private:
    const PackedFrames &frames;
    const CrossZoom &zoom;
    FadedPlane faded;
};

class ParallelCrossZoom : public ParallelPixels {
public:
    ParallelCrossZoom(PackedCrossZoom &crossZoom, int rowPixels, std::uint32_t drawSeed)
        : ParallelPixels(rowPixels), painter(crossZoom), seed(drawSeed) {}

private:
    void Paint(const cv::Range &range) const override {
        const auto draws = Scratch<std::int32_t>(width);
        ForEachRow(range, [&](int y, Span columns) {
            const auto index = static_cast<std::uint32_t>(y * width + columns.begin);
            Shaders().hashDraws(draws.get(), index, seed, columns.Size());
            painter.PaintColumns(y, columns, draws.get(), 5);
        });
    }

    PackedCrossZoom &painter;
    const std::uint32_t seed; ///< a pixel's draw is a function of it and of the pixel's index
};

} // namespace

void TrCrossZoom(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    StoreSmooth(*param);
    const CrossZoom zoom(static_cast<float>(StoredFraction()));
    const PlanarFrames frames(out, in1, in2);
    frames.FillBlack();
    if (frames.width < 1 || frames.height < 1)
        return;
    PlanarCrossZoom painter(frames, zoom);
    for (int y = 0; y < frames.height; ++y)
        painter.PaintRow(y);
}

void TrCrossZoomRGB(void *out, void *in1, void *in2, const TransParam *param) {
    constexpr int serialPixels = 1000;
    StoreSmooth(*param);
    const CrossZoom zoom(static_cast<float>(StoredFraction()));
    const PackedFrames frames(out, in1, in2);
    const int inputPixels = DIGetWidth(in1) * DIGetHeight(in1);
    const int width = frames.width;
    const int height = frames.height;
    if (width < 1 || height < 1)
        return;
    CheckBuffers(frames);
    PackedCrossZoom painter(frames, zoom);
    if (inputPixels <= serialPixels) {
        const auto draws = Scratch<std::int32_t>(width);
        for (int y = 0; y < height; ++y) {
            DrawRow(draws.get(), width);
            painter.PaintColumns(y, {0, width}, draws.get(), 6);
        }
        return;
    }
    // Pixels beyond those of the first input stay black.
    const int count = std::min(inputPixels, width * height);
    FillBytes(frames.pixels.out + std::ptrdiff_t(count) * 4, 0,
              (std::ptrdiff_t(width) * height - count) * 4);
    const auto seed = static_cast<std::uint32_t>(std::rand());
    ParallelCrossZoom(painter, width, seed).Draw(count);
}
