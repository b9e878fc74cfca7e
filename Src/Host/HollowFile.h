/// \file HollowFile.h
/// Reading of a file whose index tells what its packets' bytes need not.
#pragma once

#include "Media.h"

#include <string>
#include <unordered_map>

namespace host {

/// A file as a demuxer reads it, of which packets can be left out: they come with their times and
/// sizes, but as zeros, and their bytes are not read. An hour is scanned so in a moment. Outlives
/// its demuxer. Throws a Failure that names the file when it cannot be opened.
class HollowFile {
public:
    explicit HollowFile(const std::string &name);
    ~HollowFile();
    HollowFile(const HollowFile &) = delete;
    HollowFile &operator=(const HollowFile &) = delete;

    /// What the demuxer reads from.
    AVIOContext &Bytes() { return *bytes; }
    /// From here on the packets of a stream are left out, as far as the file's index knows them;
    /// where asked, all but the key pictures.
    void LeaveOut(AVStream &stream, bool keepsKeys);
    /// Whether a packet's bytes are zeros that stand for others.
    bool IsLeftOut(const AVPacket &packet) const { return sizes.contains(packet.pos); }

private:
    static int Read(void *file, std::uint8_t *to, int size);
    static std::int64_t Seek(void *file, std::int64_t offset, int whence);

    AVIOContext *inner = nullptr, *bytes = nullptr;
    std::int64_t size, at = 0;
    std::unordered_map<std::int64_t, int> sizes; ///< of what is left out, by place in the file
};

/// Whether a clip is a file, and of a kind whose index knows every packet.
bool HasIndex(const std::string &name, const AVFormatContext &demuxer);

} // namespace host
