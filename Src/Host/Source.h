/// \file Source.h
/// Readers of clips and still pictures.
#pragma once

#include "Media.h"

#include <optional>
#include <string>

namespace host {

/// A clip or still picture, read from its start to its end once.
class Source {
public:
    virtual ~Source() = default;

    const std::string &Name() const { return name; }
    const VideoFormat &Format() const { return format; }
    /// The next picture in the order of showing, with pts and duration in Format().timeBase; null
    /// after the last. Throws a Failure when the clip is damaged or ends within a picture.
    virtual Frame Read() = 0;
    /// The length in Format().timeBase as far as can be told without decoding; nothing for pipes.
    virtual std::optional<std::int64_t> ScanLength() const = 0;

protected:
    std::string name;
    VideoFormat format;
};

/// Opens a file, any URL that FFmpeg knows, or "-" (YUV4MPEG2 on standard input); throws a Failure
/// when there is no video to be had from it.
std::unique_ptr<Source> OpenSource(const std::string &name);

/// A source's pictures at an even rate: picture n is the one that shows at n / rate seconds after
/// the first, so pictures are repeated or left out where the clip's own rate differs.
class SteadySource {
public:
    /// A still picture is shown for stillFrames frames.
    SteadySource(std::unique_ptr<Source> source, AVRational rate, std::int64_t stillFrames);

    const VideoFormat &Format() const { return source->Format(); }
    /// The next picture or null; the pictures may be shared and are not to be written to.
    Frame Read();
    /// How many pictures there will be, where that can be told without decoding.
    std::optional<std::int64_t> ScanFrames() const;

private:
    std::int64_t Index(std::int64_t pts) const;
    void Advance();

    std::unique_ptr<Source> source;
    AVRational rate;
    std::int64_t stillFrames;
    std::int64_t start = 0;    ///< pts of the first picture
    std::int64_t position = 0; ///< index of the next picture to hand out
    std::int64_t until = 0;    ///< index from which the picture after the shown one holds
    Frame shown;
    Frame next;
};

} // namespace host
