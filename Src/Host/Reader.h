/// \file Reader.h
/// One stream of a file, decoded.
#pragma once

#include "Media.h"

#include <string>

namespace host {

/// The name of standard input among the clips.
inline constexpr const char *kStandardInput = "-";
/// A name as messages show it.
std::string ShownName(const std::string &name);

/// Opens a file, a numbered series of pictures (pic%03d.png), a URL (with ://) or standard input,
/// and finds its streams. A file that is there is meant literally, whatever its name looks like.
/// Throws a Failure that names it. Who takes little of a file reads less of it in small blocks; who
/// has its bytes in another way gives them, and keeps them longer than the demuxer.
Demuxer OpenDemuxer(const std::string &name, int blockBytes = 0, AVIOContext *bytes = nullptr);
/// Whether a file can be read more than once and from the middle.
bool IsSeekable(const std::string &name);
/// Whether the demuxer reads single pictures, whose "rate" means nothing when there is but one.
bool ReadsPictures(const AVFormatContext &demuxer);
/// The index of the main stream of a kind, or -1. Cover pictures of music are no video.
int MainStream(AVFormatContext &demuxer, AVMediaType kind);

/// The packets of one stream, or of two in the file's order.
class Packets {
public:
    Packets() = default;
    /// The file outlives this; the name is for messages.
    Packets(AVFormatContext &file, int stream, std::string name, int second = -1);
    /// The next one, or false after the last. Throws a Failure when the file was cut short.
    bool Next(AVPacket &packet);

private:
    AVFormatContext *demuxer = nullptr;
    int stream = -1, second = -1;
    std::string name;
    std::int64_t count = 0;
    std::int64_t end = INT64_MAX; ///< of the last packet, in bytes
    bool isCut = false;           ///< the last packet is not whole
};

/// The main stream of a kind, read from its start or from where Seek says, to its end once.
class Reader {
public:
    /// Throws a Failure when the file has no such stream or it cannot be decoded.
    Reader(std::string name, AVMediaType kind);

    const AVStream &Stream() const { return *stream; }
    AVFormatContext &File() { return *demuxer; }
    /// The next picture or sound with a pts in Stream().time_base that is above the one before;
    /// null after the last. Throws a Failure when the file was cut short; smaller damage is told,
    /// once.
    Frame Read();
    /// What is read next is the first frame or one that begins no later than this time.
    void Seek(std::int64_t pts);

private:
    void Open();
    Frame Decode();
    void Feed();
    void Complain(const std::string &trouble);
    std::string Place() const;

    std::string name;
    AVMediaType kind;
    Demuxer demuxer;
    AVStream *stream = nullptr;
    Packets packets;
    Codec codec;
    Frame pending;
    std::int64_t decoded = 0;
    std::int64_t last = 0;
    std::int64_t lastDuration = 0;
    bool isDamaged = false; ///< told already
};

} // namespace host
