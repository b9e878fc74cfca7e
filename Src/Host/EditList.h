/// \file EditList.h
/// An edit as plain records, and as a file of OpenTimelineIO's JSON that editors read and write.
#pragma once

#include "Duration.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// A stretch of time.
struct Span {
    Time start;
    Time length;
};

/// One clip of an edit.
struct EditClip {
    std::string file;
    std::string name; ///< for people; empty: the file's name without its extension
    /// The part that is shown, its overlaps with both neighbours included, from the beginning of
    /// the file; nothing: the whole of it.
    std::optional<Span> source;
    /// What the file holds, in its own time code, as far as it is known. A still picture holds
    /// nothing that could end and has none.
    std::optional<Span> available;
};

/// How two clips are joined.
struct EditJoint {
    std::string name = "cut"; ///< a transition, or a plain joint
    Time length;              ///< of the overlap; 0 for a cut
    std::string easing;       ///< empty: the usual one
    std::string path;         ///< "yuv" or "rgb", empty: the usual one
    bool reverse = false;
    std::optional<std::uint64_t> seed;
};

/// Whole clips that overlap: the result is as long as their lengths less the overlaps.
struct Edit {
    std::vector<EditClip> clips;
    std::vector<EditJoint> joints; ///< one fewer than clips
    std::string music;             ///< a file, or empty
    /// What else was set for the whole, by the long names of the command's options, such as
    /// "audio-curve" to "linear"; a reader takes those it knows and checks their values.
    std::map<std::string, std::string> settings;
};

/// What a name in an edit list means here: a transition's or plain joint's name and whether it runs
/// reversed. An empty name: nothing is known of it.
struct KnownJoint {
    std::string name;
    bool reverse = false;
};
using FindJoint = std::function<KnownJoint(const std::string &)>;

/// Whether a clip of this name is an edit list, by the extension .otio in any case.
bool IsEditList(const std::string &file);

/// Reads the clips of the first video track that has any. Names of files are made relative to the
/// folder that the list is in. An overlap comes out of a transition's offsets, so both of its clips
/// must hold the frames beyond their cut. What cannot be done is left out and named in the
/// warnings, one line each without the list's name: gaps, generators, nested and further tracks,
/// effects, what is disabled; a transition that is not known becomes a dissolve. Throws a Failure
/// that begins with the list's name for what is no edit list, malformed, without clips, or whose
/// media is missing or too short.
Edit ReadEdit(const std::string &file, const FindJoint &findJoint,
              std::vector<std::string> &warnings);

/// The text of a file that ReadEdit reads as the same edit. rate: frames per second of the result,
/// which what is given in frames counts by. Files below the list's folder are named relative to it.
/// Throws a Failure when a clip beside an overlap has neither source nor available.
std::string FormatEdit(const Edit &edit, const std::string &file, AVRational rate);

} // namespace host
