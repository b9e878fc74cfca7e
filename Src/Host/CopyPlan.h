/// \file CopyPlan.h
/// Which frames of the result are the clips' own packets and which are encoded, and how the result
/// divides into parts.
#pragma once

#include "Clip.h"
#include "Timeline.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// Where the packets of a clip can be cut, by frames and by their places in the order of decoding.
struct Cut {
    std::int64_t frame;
    std::size_t packet;
};
struct Cuts {
    std::vector<Cut> begins; ///< copying may begin with this packet, which shows as this frame
    std::vector<Cut> ends;   ///< the packets before this one show as all frames before this one
};
/// From the frames that the packets show as, in the order of decoding, and their entries. Packets
/// behind an open key that show before it count as frames of what is before.
Cuts FindCuts(const std::vector<std::int64_t> &frames, const std::vector<Entry> &entries);

/// A run of frames of the result that is written in one go: a clip's packets, or a stretch that an
/// encoder of its own encodes.
struct Piece {
    Range frames;           ///< of the result
    int clip = -1;          ///< whose packets; -1 is encoded
    std::size_t packet = 0; ///< the first
    std::size_t packetEnd = 0;
    bool isSplice = false; ///< what is before in the result is not what is before in the clip
};

/// A clip in the result, as far as cutting goes: its frames from `free` on up to `freeEnd` show by
/// themselves; `shift` is added to its frames to make the result's. Without cuts all is encoded.
struct CopySource {
    const Cuts *cuts = nullptr;
    Range free;
    std::int64_t shift = 0;
};
/// All frames of the result as pieces. What is encoded, and what is copied, is divided at places
/// that depend on nothing else, at least kPieceFrames apart.
std::vector<Piece> MakePieces(const std::vector<CopySource> &sources, std::int64_t length);
inline constexpr std::int64_t kPieceFrames = 250;

/// The pieces of part k of n, k from 1: consecutive, none empty, together all of them, balanced by
/// the work they are. Throws a Failure when there are fewer pieces.
std::pair<std::size_t, std::size_t> PiecesOfPart(const std::vector<Piece> &pieces, int k, int n);

enum class CopyWish { Auto, Never, Always };

/// How a result is put together.
struct CopyPlan {
    std::vector<Piece> pieces;
    std::pair<std::size_t, std::size_t> part; ///< the pieces that are written
    bool copies = false;                      ///< at least one piece
    int depth = 0;                ///< by how many frames packets of the clips are decoded early
    std::vector<Numbers> numbers; ///< the new numbers of each clip's parameter sets
    SetHouse house = SetHouse(Syntax::H264); ///< of the copied clips
    const PacketIndex *like = nullptr;       ///< what the encoder is to resemble
    std::string summary;                     ///< a line for the user

    Range Frames() const {
        return {pieces[part.first].frames.begin, pieces[part.second - 1].frames.end};
    }
};

/// Plans a result whose length is known. Throws a Failure where copying always is wished for and
/// nothing can be copied. part is {k, n}.
CopyPlan PlanCopy(const std::vector<Clip> &clips, const Timeline &timeline, const Canvas &canvas,
                  AVCodecID codec, CopyWish wish, std::pair<int, int> part);

} // namespace host
