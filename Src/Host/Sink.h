/// \file Sink.h
/// Writers of the result.
#pragma once

#include "PictureFilters.h"
#include "Plan.h"

#include <memory>
#include <string>

namespace host {

/// What is written into the file beside pictures and sound.
struct Tags {
    std::string title, date;
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
                               const Canvas &canvas, const SoundFormat &sound, const Tags &tags);

// The kinds of them.
std::unique_ptr<Sink> OpenContainer(const OutputOptions &options, const OutputPlan &plan,
                                    const Canvas &canvas, const SoundFormat &sound,
                                    const Tags &tags);
std::unique_ptr<Sink> OpenPictures(const OutputOptions &options, const OutputPlan &plan,
                                   const Canvas &canvas);

} // namespace host
