#include "NalUnits.h"

#include "Failure.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace host {

namespace {

/// The payload without the bytes that keep start codes from appearing in it.
Bytes Unescape(Unit unit) {
    Bytes plain;
    plain.reserve(unit.size());
    int zeros = 0;
    for (const std::uint8_t byte : unit) {
        if (zeros >= 2 && byte == 3) {
            zeros = 0;
            continue;
        }
        zeros = byte ? 0 : zeros + 1;
        plain.push_back(byte);
    }
    return plain;
}

Bytes Escape(const Bytes &plain) {
    Bytes unit;
    unit.reserve(plain.size() + plain.size() / 64 + 1);
    int zeros = 0;
    for (const std::uint8_t byte : plain) {
        if (zeros >= 2 && byte <= 3) {
            unit.push_back(3);
            zeros = 0;
        }
        zeros = byte ? 0 : zeros + 1;
        unit.push_back(byte);
    }
    return unit;
}

/// Numbers as the standards write them, from the highest bit on.
class BitReader {
public:
    explicit BitReader(const Bytes &from, std::size_t bit = 0) : bytes(from), at(bit) {}
    std::size_t At() const { return at; }
    unsigned Bits(int count) {
        unsigned value = 0;
        for (; count > 0; --count, ++at)
            value = 2 * value + (at / 8 < bytes.size() ? bytes[at / 8] >> (7 - at % 8) & 1 : 0);
        return value;
    }
    unsigned Golomb() {
        int zeros = 0;
        while (zeros < 32 && at / 8 < bytes.size() && !Bits(1))
            ++zeros;
        return zeros ? (1u << zeros % 32) - 1 + Bits(zeros) : 0;
    }

private:
    const Bytes &bytes;
    std::size_t at;
};

int GolombLength(unsigned value) {
    return 2 * std::bit_width(value + 1) - 1;
}

/// Replaces one number by another; what follows moves, its end mark with it.
void ReplaceGolomb(Bytes &bytes, std::size_t at, unsigned value) {
    BitReader old(bytes, at);
    old.Golomb();
    const std::size_t end = bytes.size() * 8 - std::size_t(std::countr_zero(bytes.back())) % 8;
    Bytes changed(bytes.begin(), bytes.begin() + std::ptrdiff_t(at / 8 + 1));
    changed.back() &= std::uint8_t(0xff00 >> at % 8);
    std::size_t to = at;
    const auto put = [&](unsigned bit) {
        if (to / 8 == changed.size())
            changed.push_back(0);
        changed[to / 8] |= std::uint8_t(bit << (7 - to % 8));
        ++to;
    };
    for (int i = GolombLength(value) - 1; i >= 0; --i)
        put((value + 1) >> i & 1);
    if ((old.At() - to) % 8 == 0) { // whole bytes, as in pictures
        while (to % 8)
            put(old.Bits(1));
        changed.insert(changed.end(), bytes.begin() + std::ptrdiff_t(old.At() / 8), bytes.end());
    } else {
        while (old.At() < end)
            put(old.Bits(1));
    }
    bytes = std::move(changed);
}

void AppendNumber(Bytes &stream, std::size_t value, int bytes) {
    while (bytes-- > 0)
        stream.push_back(std::uint8_t(value >> 8 * bytes));
}

void SkipScalingList(BitReader &bits, int size) {
    int next = 8;
    for (int i = 0, last = 8; i < size && next; ++i) {
        const unsigned code = bits.Golomb();
        const int change = code % 2 ? int(code / 2) + 1 : -int(code / 2);
        next = (last + change + 256) % 256;
        last = next ? next : last;
    }
}

bool HasChromaFormat(unsigned profile) {
    constexpr unsigned kProfiles[] = {100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135};
    return std::find(std::begin(kProfiles), std::end(kProfiles), profile) != std::end(kProfiles);
}

SetFacts ReadH264Sequence(const Bytes &set) {
    BitReader bits(set, 8);
    SetFacts facts;
    const unsigned profile = bits.Bits(8);
    bits.Bits(16);
    facts.id = bits.Golomb();
    if (HasChromaFormat(profile)) {
        facts.chroma = bits.Golomb();
        bits.Bits(facts.chroma == 3);
        facts.lumaBits = bits.Golomb() + 8;
        facts.chromaBits = bits.Golomb() + 8;
        bits.Bits(1);
        if (bits.Bits(1))
            for (int i = 0; i < (facts.chroma == 3 ? 12 : 8); ++i)
                if (bits.Bits(1))
                    SkipScalingList(bits, i < 6 ? 16 : 64);
    }
    bits.Golomb();
    const unsigned order = bits.Golomb();
    if (order == 0) {
        bits.Golomb();
    } else if (order == 1) {
        bits.Bits(1);
        bits.Golomb();
        bits.Golomb();
        for (unsigned i = bits.Golomb() & 255; i > 0; --i)
            bits.Golomb();
    }
    facts.references = bits.Golomb();
    bits.Bits(1);
    bits.Golomb();
    bits.Golomb();
    facts.hasFields = !bits.Bits(1);
    return facts;
}

/// Where the number of an H.265 sequence set stands: behind profiles and levels of its layers.
std::size_t H265SequenceNumberAt(const Bytes &set) {
    BitReader bits(set, 16 + 4);
    const int layers = int(bits.Bits(3));
    std::size_t at = bits.At() + 1 + 96;
    if (layers == 0)
        return at;
    BitReader flags(set, at);
    at += 16;
    for (int i = 0; i < layers; ++i) {
        at += flags.Bits(1) ? 88 : 0;
        at += flags.Bits(1) ? 8 : 0;
    }
    return at;
}

SetFacts ReadH265Sequence(const Bytes &set) {
    BitReader bits(set, H265SequenceNumberAt(set));
    SetFacts facts;
    facts.parent = BitReader(set, 16).Bits(4);
    facts.id = bits.Golomb();
    facts.chroma = bits.Golomb();
    bits.Bits(facts.chroma == 3);
    bits.Golomb();
    bits.Golomb();
    if (bits.Bits(1))
        for (int edge = 0; edge < 4; ++edge)
            bits.Golomb();
    facts.lumaBits = bits.Golomb() + 8;
    facts.chromaBits = bits.Golomb() + 8;
    return facts;
}

/// Where the number of a picture's set stands.
std::size_t PictureNumberAt(const Bytes &picture, Syntax syntax) {
    if (syntax == Syntax::H264) {
        BitReader bits(picture, 8);
        bits.Golomb();
        bits.Golomb();
        return bits.At();
    }
    const int type = picture[0] >> 1 & 63;
    return 16 + 1 + (type >= 16 && type <= 23);
}

/// What follows a start code begins here.
const std::uint8_t *AfterStartCode(const std::uint8_t *from, const std::uint8_t *end) {
    while (end - from >= 4) {
        const auto *one = static_cast<const std::uint8_t *>(
            std::memchr(from + 2, 1, std::size_t(end - from - 2)));
        if (!one)
            return end;
        if (one[-1] == 0 && one[-2] == 0)
            return one + 1;
        from = one - 1;
    }
    return end;
}

} // namespace

std::optional<std::vector<Unit>> SplitUnits(std::span<const std::uint8_t> bytes, int lengthSize) {
    std::vector<Unit> units;
    const std::uint8_t *at = bytes.data(), *const end = at + bytes.size();
    while (lengthSize && at < end) {
        std::size_t size = 0;
        if (end - at < lengthSize)
            return {};
        for (int i = 0; i < lengthSize; ++i)
            size = size << 8 | *at++;
        if (size > std::size_t(end - at))
            return {};
        if (size)
            units.emplace_back(at, size);
        at += size;
    }
    if (!lengthSize)
        at = AfterStartCode(at, end);
    while (at < end) {
        const std::uint8_t *const next = AfterStartCode(at, end);
        const std::uint8_t *last = next == end ? end : next - 3;
        while (last > at && last[-1] == 0)
            --last;
        if (last > at)
            units.emplace_back(at, std::size_t(last - at));
        at = next;
    }
    return units;
}

void AppendUnit(Bytes &stream, Unit unit) {
    for (const std::uint8_t byte : {0, 0, 0, 1})
        stream.push_back(byte);
    stream.insert(stream.end(), unit.begin(), unit.end());
}

void AppendMeasured(Bytes &stream, Unit unit) {
    AppendNumber(stream, unit.size(), 4);
    stream.insert(stream.end(), unit.begin(), unit.end());
}

UnitKind KindOf(Unit unit, Syntax syntax) {
    if (syntax == Syntax::H264) {
        constexpr UnitKind kKinds[] = {
            UnitKind::Other,      UnitKind::Picture,  UnitKind::Picture, UnitKind::Other,
            UnitKind::Other,      UnitKind::Restart,  UnitKind::Message, UnitKind::SequenceSet,
            UnitKind::PictureSet, UnitKind::Delimiter};
        const int type = unit[0] & 31;
        return type < int(std::size(kKinds)) ? kKinds[type] : UnitKind::Other;
    }
    const int type = unit[0] >> 1 & 63;
    return type == 19 || type == 20   ? UnitKind::Restart
           : type >= 16 && type <= 21 ? UnitKind::OpenKey
           : type < 32                ? UnitKind::Picture
           : type == 32               ? UnitKind::VideoSet
           : type == 33               ? UnitKind::SequenceSet
           : type == 34               ? UnitKind::PictureSet
           : type == 35               ? UnitKind::Delimiter
           : type == 39 || type == 40 ? UnitKind::Message
                                      : UnitKind::Other;
}

bool IsSet(UnitKind kind) {
    return kind == UnitKind::VideoSet || kind == UnitKind::SequenceSet ||
           kind == UnitKind::PictureSet;
}

Header ReadHeader(std::span<const std::uint8_t> extradata, Syntax syntax) {
    Header header;
    const auto keep = [&](Unit unit) {
        if (!unit.empty() && IsSet(KindOf(unit, syntax)))
            header.sets.emplace_back(unit.begin(), unit.end());
    };
    const std::size_t fixed = syntax == Syntax::H264 ? 5 : 22;
    if (extradata.size() < fixed + 2 || extradata[0] != 1) {
        const auto units = SplitUnits(extradata, 0);
        std::for_each(units->begin(), units->end(), keep);
        return header;
    }
    header.lengthSize = (extradata[syntax == Syntax::H264 ? 4 : 21] & 3) + 1;
    std::size_t at = fixed;
    const auto number = [&](int bytes) {
        std::size_t value = 0;
        for (; bytes > 0; --bytes, ++at)
            value = value << 8 | (at < extradata.size() ? extradata[at] : 0);
        return value;
    };
    std::size_t groups = syntax == Syntax::H264 ? 2 : number(1);
    for (; groups > 0; --groups) {
        std::size_t units = 0;
        if (syntax == Syntax::H265) {
            number(1);
            units = number(2);
        } else {
            units = number(1) & (groups == 2 ? 31 : 255);
        }
        for (; units > 0 && at < extradata.size(); --units) {
            const std::size_t size = number(2);
            if (at + size > extradata.size())
                return header;
            keep(extradata.subspan(at, size));
            at += size;
        }
    }
    return header;
}

SetFacts ReadSet(Unit unit, Syntax syntax) {
    const Bytes set = Unescape(unit.first(std::min<std::size_t>(unit.size(), 512)));
    const UnitKind kind = KindOf(unit, syntax);
    if (kind == UnitKind::SequenceSet)
        return syntax == Syntax::H264 ? ReadH264Sequence(set) : ReadH265Sequence(set);
    SetFacts facts;
    if (kind == UnitKind::PictureSet) {
        BitReader bits(set, syntax == Syntax::H264 ? 8 : 16);
        facts.id = bits.Golomb();
        facts.parent = bits.Golomb();
        facts.isCavlc = syntax == Syntax::H264 && !bits.Bits(1);
    } else {
        BitReader bits(set, 16);
        facts.id = facts.parent = bits.Bits(4);
    }
    return facts;
}

Bytes Renumber(Unit unit, Syntax syntax, const Numbers &numbers) {
    const UnitKind kind = KindOf(unit, syntax);
    const bool isPicture =
        kind == UnitKind::Restart || kind == UnitKind::OpenKey || kind == UnitKind::Picture;
    if (!isPicture && !IsSet(kind))
        return {unit.begin(), unit.end()};
    Bytes plain = Unescape(unit);
    const auto replace = [&](UnitKind named, std::size_t at) {
        const auto found = numbers.find({named, BitReader(plain, at).Golomb()});
        if (found != numbers.end())
            ReplaceGolomb(plain, at, found->second);
    };
    const bool isH264 = syntax == Syntax::H264;
    if (!isH264 && (kind == UnitKind::VideoSet || kind == UnitKind::SequenceSet)) {
        const auto found = numbers.find({UnitKind::VideoSet, plain[2] >> 4});
        if (found != numbers.end())
            plain[2] = std::uint8_t((plain[2] & 15) | found->second << 4);
    }
    if (isPicture)
        replace(UnitKind::PictureSet, PictureNumberAt(plain, syntax));
    else if (kind == UnitKind::SequenceSet)
        replace(kind, isH264 ? 32 : H265SequenceNumberAt(plain));
    else if (kind == UnitKind::PictureSet) {
        BitReader bits(plain, isH264 ? 8 : 16);
        bits.Golomb();
        replace(UnitKind::SequenceSet, bits.At());
        replace(kind, isH264 ? 8 : 16);
    }
    return Escape(plain);
}

/// In pictures a new number may only move what follows by whole bytes; headers count up to 31 and
/// 255 sets.
std::optional<Numbers> SetHouse::Add(const std::vector<Bytes> &stream) {
    const auto limit = [&](UnitKind kind) -> unsigned {
        if (kind == UnitKind::PictureSet)
            return syntax == Syntax::H264 ? 254 : 63;
        return syntax == Syntax::H264 ? 30 : 15;
    };
    const auto id = [&](const Bytes &set) { return ReadSet(set, syntax).id; };
    for (const auto &[known, numbers] : streams)
        if (known == stream)
            return numbers;
    const bool isHere = std::all_of(stream.begin(), stream.end(), [&](const Bytes &set) {
        const auto found = sets.find({KindOf(set, syntax), id(set)});
        return found != sets.end() && found->second == set;
    });
    if (isHere)
        return Numbers();
    Numbers numbers;
    auto all = sets;
    for (const Bytes &set : stream) {
        const UnitKind kind = KindOf(set, syntax);
        unsigned to = id(set);
        const int length = GolombLength(to);
        while (to <= limit(kind) &&
               (all.contains({kind, to}) ||
                (kind == UnitKind::PictureSet && (GolombLength(to) - length) % 8 != 0)))
            ++to;
        if (to > limit(kind)) // the numbers below the old one
            return {};
        if (to != id(set))
            numbers[{kind, id(set)}] = to;
        all[{kind, to}] = set;
    }
    for (const Bytes &set : stream) {
        const UnitKind kind = KindOf(set, syntax);
        const auto found = numbers.find({kind, id(set)});
        const unsigned to = found == numbers.end() ? id(set) : found->second;
        sets[{kind, to}] = Renumber(set, syntax, numbers);
    }
    streams.emplace_back(stream, numbers);
    return numbers;
}

Bytes SetHouse::Extradata() const {
    Bytes stream; // in the order of the kinds, which is that of reference
    for (const auto &[key, set] : sets)
        AppendUnit(stream, set);
    return stream;
}

void SetHouse::AppendSets(Bytes &header, UnitKind kind, int countBytes, unsigned marks) const {
    const auto isOfKind = [&](const auto &entry) { return entry.first.first == kind; };
    AppendNumber(header, marks | unsigned(std::count_if(sets.begin(), sets.end(), isOfKind)),
                 countBytes);
    for (const auto &[key, set] : sets)
        if (key.first == kind) {
            AppendNumber(header, set.size(), 2);
            header.insert(header.end(), set.begin(), set.end());
        }
}

Bytes SetHouse::MeasuredExtradata() const {
    const auto first = sets.lower_bound({UnitKind::SequenceSet, 0});
    if (first == sets.end() || first->first.first != UnitKind::SequenceSet)
        return {};
    const Bytes sequence = Unescape(first->second);
    const SetFacts facts = ReadSet(first->second, syntax);
    const Bytes format = {std::uint8_t(0xfc | facts.chroma),
                          std::uint8_t(0xf8 | (facts.lumaBits - 8)),
                          std::uint8_t(0xf8 | (facts.chromaBits - 8))};
    constexpr unsigned kLengthOfFour = 3;
    Bytes header = {1};
    if (syntax == Syntax::H264) {
        header.insert(header.end(), sequence.begin() + 1, sequence.begin() + 4); // profile, level
        header.push_back(0xfc | kLengthOfFour);
        AppendSets(header, UnitKind::SequenceSet, 1, 0xe0);
        AppendSets(header, UnitKind::PictureSet, 1, 0);
        if (HasChromaFormat(sequence[1])) {
            header.insert(header.end(), format.begin(), format.end());
            header.push_back(0); // extensions of sequence sets
        }
        return header;
    }
    header.insert(header.end(), sequence.begin() + 3, sequence.begin() + 15); // profile, level
    AppendNumber(header, 0xf000fc, 3); // nothing known of slices that decode side by side
    header.insert(header.end(), format.begin(), format.end());
    AppendNumber(header, 0, 2); // nor of the frame rate
    const unsigned layers = (sequence[2] >> 1 & 7) + 1, isNested = sequence[2] & 1;
    header.push_back(std::uint8_t(layers << 3 | isNested << 2 | kLengthOfFour));
    header.push_back(3);
    constexpr unsigned kAllAreHere = 0x80;
    for (const auto &[kind, type] : {std::pair{UnitKind::VideoSet, 32u},
                                     {UnitKind::SequenceSet, 33u},
                                     {UnitKind::PictureSet, 34u}}) {
        header.push_back(std::uint8_t(kAllAreHere | type));
        AppendSets(header, kind, 2, 0);
    }
    return header;
}

} // namespace host
