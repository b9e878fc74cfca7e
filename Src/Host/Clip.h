/// \file Clip.h
/// The clips that the result is made of: what their files say, and their pictures in its form.
#pragma once

#include "Graph.h"
#include "PacketIndex.h"
#include "PictureFilters.h"
#include "Reader.h"

#include <deque>
#include <memory>
#include <optional>
#include <string>

namespace host {

/// What is known of a clip or still picture before it is used.
struct Clip {
    std::string name;
    bool isStill = false; ///< one picture without a length of its own
    bool isPipe = false;  ///< can be read but once, from its start
    int width = 0;        ///< upright
    int height = 0;
    AVRational aspect = {0, 1};
    AVRational rate = {25, 1};
    AVRational timeBase = {1, 25};      ///< unit of start and length
    std::int64_t start = 0;             ///< pts of the first picture
    std::optional<std::int64_t> length; ///< nothing for pipes and still pictures
    std::int64_t in = 0; ///< the first picture that is used, counted at the result's rate
    AVPixelFormat pixels = AV_PIX_FMT_NONE;
    Colours colours;       ///< with nothing left to assume
    bool isTurned = false; ///< stored otherwise than upright
    bool isInterlaced = false;
    AVFieldOrder fields = AV_FIELD_PROGRESSIVE; ///< AV_FIELD_TT, AV_FIELD_BB or progressive
    SoundFormat sound;
    std::string title, date;
    std::string leftOut; ///< what the program does not take over, for a message
    std::shared_ptr<const PacketIndex> index; ///< where it was asked for
    std::shared_ptr<Reader> opened;           ///< a pipe's
    std::shared_ptr<AVFrame> first;           ///< and its first picture
};

/// The index that copying needs.
enum class Indexing : std::uint8_t {
    None,
    Quick,    ///< where the file has an index, of its times and key pictures
    Thorough, ///< every packet is looked into
};
/// Opens a clip, decodes its first picture and scans its packets for its length. Throws a Failure
/// when there is no picture to be had from it; tells what was guessed.
Clip ProbeClip(const std::string &name, Indexing indexing = Indexing::None);

/// How many pictures of this rate a clip has; nothing for pipes and still pictures.
std::optional<std::int64_t> FramesOf(const Clip &clip, AVRational rate);

/// A clip's pictures on the canvas: picture n is the one that shows n / rate seconds after the
/// clip's in-point. The file is open as long as this lives.
class Footage {
public:
    /// From this picture on. The clip outlives the footage.
    Footage(const Clip &clip, const Canvas &canvas, std::int64_t first);

    /// The next picture, or null after the last (of a still picture there is no last); pictures may
    /// be shared and are not to be written to.
    Frame Read();

private:
    std::int64_t Quarters(std::int64_t pts) const;
    void Start(std::int64_t first);
    void Feed();
    void Take(Frame picture);
    void OpenGraph(const AVFrame &picture);
    std::string Filters(const AVFrame &picture) const;

    const Clip &clip;
    const Canvas &canvas;
    std::shared_ptr<Reader> reader;
    Graph graph;
    std::deque<Frame> waiting; ///< decoded before the first picture that is wanted was found
    std::deque<Frame> ready;
    Frame like; ///< the picture that the graph was made for
    Frame still;
    std::int64_t position; ///< of the next picture
    std::int64_t end = 0;  ///< of the last picture that was decoded, in quarters of a picture
    bool hasEnded = false;
};

/// The picture that a clip shows after so many seconds, its last one at most.
Frame PictureAt(const Clip &clip, const Canvas &canvas, double seconds);

/// Brings pictures into another form, as long as they are alike with one set-up; the last result
/// again when the same picture comes again.
class Converter {
public:
    explicit Converter(const Canvas &target) : canvas(target) {}
    Frame Convert(const AVFrame &picture);

private:
    Canvas canvas;
    Graph graph;
    Frame like, source, result;
};

} // namespace host
