/// \file ClipCopier.h
/// Packets of clips, as they stand in the result.
#pragma once

#include "CopyPlan.h"
#include "Reader.h"

#include <functional>

namespace host {

/// Reads the pictures' packets of the pieces that are copied.
class PictureCopier {
public:
    /// All outlive the copier. Units stand behind lengths of four bytes, or, where a file has no
    /// other place for parameter sets, behind start codes, and key pictures behind those sets.
    PictureCopier(const std::vector<Clip> &clips, const CopyPlan &plan, bool setsInBand);

    /// Hands over the packets of a piece in the order of decoding, under the result's numbers,
    /// their pts counted in frames of the result. Throws a Failure when the file is no longer what
    /// it was.
    /// Stops when the function answers false.
    void Copy(const Piece &piece, AVRational rate, const std::function<bool(Packet)> &use);

private:
    void Open(const Piece &piece);
    void Next(const PicturePacket &wanted);
    Packet Translate(const Piece &piece, bool isFirst);

    const std::vector<Clip> &clips;
    const CopyPlan &plan;
    bool setsInBand;
    int clip = -1;            ///< that is open
    std::size_t position = 0; ///< its next packet
    Demuxer demuxer;
    Packets packets;
    Packet packet{av_packet_alloc()};
};

/// Puts a stream's units under new numbers: without sets behind their lengths, else behind start
/// codes, each key picture behind the sets; and an open key picture as one that may follow
/// anything.
Packet TranslatePicture(const AVPacket &packet, int lengthSize, Syntax syntax,
                        const Numbers &numbers, const Bytes *sets, bool opensKeys);

} // namespace host
