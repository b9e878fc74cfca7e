/// \file NalUnits.h
/// H.264 and H.265 as their units: parameter sets, and how streams with sets of the same number
/// live together.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace host {

using Bytes = std::vector<std::uint8_t>;
using Unit = std::span<const std::uint8_t>; ///< from its header on, without length or start code

enum class Syntax { H264, H265 };

/// The units of a packet or header; each behind its length in so many bytes, or, when that is 0,
/// behind a start code. Nothing when the lengths do not add up.
std::optional<std::vector<Unit>> SplitUnits(std::span<const std::uint8_t> bytes, int lengthSize);
void AppendUnit(Bytes &stream, Unit unit);     ///< behind a start code
void AppendMeasured(Bytes &stream, Unit unit); ///< behind its length in four bytes

/// What of a unit matters for copying.
enum class UnitKind {
    Restart,  ///< a key picture before which nothing is referred to
    OpenKey,  ///< a key picture, but pictures may follow that show before it and refer back
    Picture,  ///< part of any other picture
    VideoSet, ///< parameter sets
    SequenceSet,
    PictureSet,
    Message,   ///< supplemental enhancement information
    Delimiter, ///< of access units
    Other,
};
UnitKind KindOf(Unit unit, Syntax syntax);
bool IsSet(UnitKind kind);

/// Parameter sets and how long the units' lengths are, from a stream's header in either form.
struct Header {
    std::vector<Bytes> sets;
    int lengthSize = 0; ///< of the stream's packets
};
Header ReadHeader(std::span<const std::uint8_t> extradata, Syntax syntax);

/// What a sequence or picture set tells.
struct SetFacts {
    unsigned id = 0;
    unsigned parent = 0;     ///< the id of the set it refers to
    bool hasFields = false;  ///< H.264: pictures may be coded as fields
    unsigned references = 0; ///< H.264: frames that are kept for reference
    bool isCavlc = false;    ///< H.264: of a picture set
    unsigned chroma = 1;     ///< of a sequence set: 1 is 4:2:0
    unsigned lumaBits = 8, chromaBits = 8;
};
SetFacts ReadSet(Unit set, Syntax syntax);

/// New numbers for the sets of a stream, by kind and old number.
using Numbers = std::map<std::pair<UnitKind, unsigned>, unsigned>;
/// A unit under new numbers; pictures' own data stays bit for bit.
Bytes Renumber(Unit unit, Syntax syntax, const Numbers &numbers);
/// The sets of several streams in one header: the first stream's as they are, the others' under
/// numbers of their own unless they are equal.
class SetHouse {
public:
    explicit SetHouse(Syntax kind) : syntax(kind) {}
    /// The numbers that a stream with these sets has to take; nothing when no room is left.
    std::optional<Numbers> Add(const std::vector<Bytes> &stream);
    /// All sets behind start codes, those that are referred to first.
    Bytes Extradata() const;
    /// All sets as files hold them whose packets have units behind lengths of four bytes: what MP4
    /// names avcC and hvcC.
    Bytes MeasuredExtradata() const;

private:
    void AppendSets(Bytes &header, UnitKind kind, int countBytes, unsigned marks) const;

    Syntax syntax;
    std::map<std::pair<UnitKind, unsigned>, Bytes> sets;
    std::vector<std::pair<std::vector<Bytes>, Numbers>> streams; ///< that were added
};

} // namespace host
