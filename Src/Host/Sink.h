/// \file Sink.h
/// Writers of the result.
#pragma once

#include "CopyPlan.h"
#include "Muxer.h"
#include "PictureFilters.h"
#include "Plan.h"

#include <functional>
#include <memory>
#include <string>

namespace host {

class SoundPackets;

/// A result that is written in pieces, some of them copied. Only pictures of the others are given
/// to its sink, which fetches the sound.
struct Assembly {
    const CopyPlan &plan;
    const std::vector<Clip> &clips;
    std::int64_t length;                          ///< frames of the whole result
    SoundPackets *sound = nullptr;                ///< else
    std::function<Frame(std::int64_t)> readSound; ///< of a frame of the result
    std::function<void()> count;                  ///< called for every frame that is written
};

/// A file being written. Its final name appears with Finish; without it nothing stays.
class Sink {
public:
    virtual ~Sink() = default;
    /// The next picture, on the canvas; frame is its number in the whole result.
    virtual void Write(const AVFrame &picture, std::int64_t frame) = 0;
    /// Sound that follows what was written before, 32-bit float samples in planes.
    virtual void WriteSound(const AVFrame &) {}
    virtual void Finish() = 0;
};

/// Creates the file; sound without a rate is none.
std::unique_ptr<Sink> OpenSink(const OutputOptions &options, const OutputPlan &plan,
                               const Canvas &canvas, const SoundFormat &sound, const Tags &tags,
                               const Assembly *assembly = nullptr);

// The kinds of them.
std::unique_ptr<Sink> OpenContainer(const OutputOptions &options, const OutputPlan &plan,
                                    const Canvas &canvas, const SoundFormat &sound,
                                    const Tags &tags, const Assembly *assembly);
std::unique_ptr<Sink> OpenPictures(const OutputOptions &options, const OutputPlan &plan,
                                   const Canvas &canvas);

} // namespace host
