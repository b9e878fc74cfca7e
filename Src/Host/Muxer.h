/// \file Muxer.h
/// A file of packets being written.
#pragma once

#include "Media.h"
#include "OutputFile.h"

#include <optional>
#include <string>

namespace host {

/// What is written into the file beside pictures and sound.
struct Tags {
    std::string title, date;
    std::string part; ///< which of how many, as kPartTag; empty when it is the whole
};
inline constexpr const char *kPartTag = "part %d of %d";

/// More bytes than the index of an MP4 file can need for so many packets.
std::int64_t IndexRoom(std::int64_t pictures, std::int64_t sounds);

/// A container's file; - is standard output. Its final name appears with Finish; without it nothing
/// stays.
class Muxer {
public:
    Muxer(const std::string &fileName, const AVOutputFormat *container, const Tags &tags);

    /// The file's name as messages show it.
    const std::string &Name() const { return name; }
    bool WantsGlobalHeader() const { return muxer->oformat->flags & AVFMT_GLOBALHEADER; }
    /// A new stream, to be filled in before Start.
    AVStream &AddStream();
    /// Writes the header. Files that play while they load have their index in front: it is moved
    /// there at the end, which writes the file twice, or put into a room of so many bytes.
    void Start(std::int64_t indexBytes = 0);
    /// The next packet of a stream, whose times count in this unit.
    void Write(AVPacket &packet, AVRational timeBase, const AVStream &stream);
    void Finish();

private:
    struct Close {
        void operator()(AVFormatContext *context) const {
            avio_closep(&context->pb);
            avformat_free_context(context);
        }
    };
    /// What went wrong with the file itself says more than what the muxer makes of it.
    void CheckWritten(int answer) { Check(muxer->pb->error ? muxer->pb->error : answer, name); }

    std::string name;
    std::optional<OutputFile> output;
    std::unique_ptr<AVFormatContext, Close> muxer;
};

} // namespace host
