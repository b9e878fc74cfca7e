#include "EditList.h"

#include "Failure.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace host {

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr const char *kOurKey = "tp_erase"; ///< of what is ours in every "metadata"

/// Text of a file in a message: one line, whatever it holds.
std::string Quoted(std::string text) {
    for (char &c : text)
        if (std::iscntrl(static_cast<unsigned char>(c)))
            c = '?';
    return '"' + text + '"';
}

// ---------------------------------------------------------------------------------------------
// Values of a file that may hold anything
// ---------------------------------------------------------------------------------------------

/// A value and the way to it.
struct Node {
    const json *value;
    std::string where;
    const std::string *file;

    [[noreturn]] void Fail(const std::string &what) const {
        throw Failure(*file + ": " + where + (where.empty() ? "" : ": ") + what);
    }
};

/// The value of a key, nothing where it is absent or null.
std::optional<Node> Find(const Node &node, const char *key) {
    if (!node.value->is_object())
        node.Fail("an object is wanted, not " + std::string(node.value->type_name()));
    const auto found = node.value->find(key);
    if (found == node.value->end() || found->is_null())
        return {};
    return Node{&*found, node.where + (node.where.empty() ? "" : ".") + key, node.file};
}

Node Require(const Node &node, const char *key) {
    if (std::optional<Node> found = Find(node, key))
        return *std::move(found);
    node.Fail(std::string("has no \"") + key + '"');
}

double Number(const Node &node) {
    constexpr double kMost = 9007199254740992; // whole numbers are exact up to here
    if (!node.value->is_number())
        node.Fail("a number is wanted, not " + std::string(node.value->type_name()));
    const auto number = node.value->get<double>();
    if (!(std::abs(number) <= kMost))
        node.Fail("the number is too large");
    return number;
}

std::string Text(const Node &node) {
    if (!node.value->is_string())
        node.Fail("a text is wanted, not " + std::string(node.value->type_name()));
    return node.value->get<std::string>();
}

std::string TextOf(const Node &node, const char *key) {
    const std::optional<Node> found = Find(node, key);
    return found ? Text(*found) : "";
}

bool FlagOf(const Node &node, const char *key, bool otherwise) {
    const std::optional<Node> found = Find(node, key);
    if (found && !found->value->is_boolean())
        found->Fail("true or false is wanted");
    return found ? found->value->get<bool>() : otherwise;
}

std::vector<Node> ElementsOf(const Node &node, const char *key) {
    std::vector<Node> elements;
    const std::optional<Node> list = Find(node, key);
    if (list && !list->value->is_array())
        list->Fail("a list is wanted, not " + std::string(list->value->type_name()));
    for (std::size_t i = 0; list && i < list->value->size(); ++i)
        elements.push_back(
            {&(*list->value)[i], list->where + '[' + std::to_string(i) + ']', node.file});
    return elements;
}

/// The name of an object's schema without its version.
std::string Schema(const Node &node) {
    const std::string schema = Text(Require(node, "OTIO_SCHEMA"));
    return schema.substr(0, schema.find('.'));
}

std::optional<Node> Ours(const Node &node) {
    const std::optional<Node> metadata = Find(node, "metadata");
    return metadata ? Find(*metadata, kOurKey) : std::nullopt;
}

// ---------------------------------------------------------------------------------------------
// Times and files
// ---------------------------------------------------------------------------------------------

/// Writers round the rates of 1000/1001 to two or three decimals.
AVRational Rate(double rate) {
    const double whole = std::round(rate), ntsc = std::round(rate * 1.001);
    if (std::abs(rate - whole) < 1e-6)
        return {int(whole), 1};
    if (std::abs(rate - ntsc * 1000 / 1001) < 0.0045 && ntsc > 0 && ntsc < 1000)
        return {int(ntsc) * 1000, 1001};
    return av_d2q(rate, 10'000'000);
}

Time ReadTime(const Node &node) {
    const Node rateNode = Require(node, "rate");
    const double rate = Number(rateNode);
    if (!(rate >= 0.001 && rate <= 1e9))
        rateNode.Fail("a rate from 0.001 to 1000000000 is wanted");
    double value = Number(Require(node, "value"));
    constexpr double kLongest = 1e9; // seconds, so that sums in the finest unit stay whole
    if (std::abs(value) > kLongest * rate)
        node.Fail("the time is too long");
    Time time = {0, Rate(rate)};
    constexpr int kFinest = 1 << 20;
    while (value != std::floor(value) && time.rate.num < kFinest) {
        value *= 2;
        time.rate.num *= 2;
    }
    time.value = std::llround(value);
    return time;
}

Span ReadSpan(const Node &node) {
    const Node length = Require(node, "duration");
    const Span span = {ReadTime(Require(node, "start_time")), ReadTime(length)};
    if (span.length.value < 0)
        length.Fail("is below 0");
    return span;
}

std::optional<Span> SpanOf(const Node &node, const char *key) {
    const std::optional<Node> found = Find(node, key);
    return found ? std::optional(ReadSpan(*found)) : std::nullopt;
}

std::string PercentDecoded(const std::string &text) {
    const auto digit = [](char c) {
        return std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : (c | 32) - 'a' + 10;
    };
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isCode = text[i] == '%' && i + 2 < text.size() &&
                            std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
                            std::isxdigit(static_cast<unsigned char>(text[i + 2]));
        result += isCode ? char(digit(text[i + 1]) * 16 + digit(text[i + 2])) : text[i];
        i += isCode ? 2 : 0;
    }
    return result;
}

std::string PercentEncoded(const std::string &path) {
    constexpr const char *kDigits = "0123456789ABCDEF";
    std::string result;
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 128 && (std::isalnum(byte) || std::strchr("/-_.~", c)))
            result += c;
        else
            (result += '%', result += kDigits[byte >> 4]) += kDigits[byte & 15];
    }
    return result;
}

/// The file of a URL. Some writers put plain paths there: a text without a scheme is one where only
/// the file of that very name is to be found.
std::string ReadFile(const Node &url) {
    const std::string text = Text(url);
    const fs::path folder = fs::path(*url.file).parent_path();
    std::string path = PercentDecoded(text);
    if (const std::size_t scheme = text.find("://"); scheme != std::string::npos) {
        const std::size_t root = text.find('/', scheme + 3);
        const std::string host = text.substr(scheme + 3, root - scheme - 3);
        if (text.substr(0, scheme) != "file" || root == std::string::npos ||
            (!host.empty() && host != "localhost"))
            url.Fail(Quoted(text) + " is no file of this machine");
        path = PercentDecoded(text.substr(root));
    } else {
        std::error_code ignored;
        if (!fs::exists(folder / path, ignored) && fs::exists(folder / text, ignored))
            path = text;
    }
    if (path.empty() || path.find('\0') != std::string::npos)
        url.Fail(Quoted(text) + " is no file's name");
    return (folder / path).string();
}

std::string Url(const std::string &file, const std::string &list) {
    const fs::path folder = fs::absolute(list).lexically_normal().parent_path();
    const fs::path path = fs::absolute(file).lexically_normal();
    const fs::path relative = path.lexically_relative(folder);
    return !relative.empty() && *relative.begin() != ".." ? PercentEncoded(relative.string())
                                                          : "file://" + PercentEncoded(path);
}

// ---------------------------------------------------------------------------------------------
// Reading
// ---------------------------------------------------------------------------------------------

const Time kNothing = {0, {1, 1}};

/// A joint and what its clips must hold beyond the cut between them.
struct Transition {
    EditJoint joint;
    Time before; ///< of the next clip, before its source range
    Time after;  ///< of the clip before, after its source range
};

struct ListReader {
    const FindJoint &findJoint;
    std::vector<std::string> &warnings;
    Edit edit;

    void Warn(const Node &node, const std::string &what) { warnings.push_back(node.where + what); }
};

/// What a user finds the item by: its place and its name.
std::string Title(const Node &node) {
    const std::string name = TextOf(node, "name");
    return Schema(node) + (name.empty() ? "" : ' ' + Quoted(name));
}

void LeaveOut(ListReader &reader, const Node &node, const std::string &why = "") {
    reader.Warn(node, ": " + Title(node) + (why.empty() ? "" : ", " + why + ',') + " is left out");
}

void WarnOfEffects(ListReader &reader, const Node &node) {
    for (const Node &effect : ElementsOf(node, "effects")) {
        const std::string name = TextOf(effect, "effect_name");
        reader.Warn(effect, ": the effect " + Schema(effect) +
                                (name.empty() ? "" : ' ' + Quoted(name)) + " on " + Title(node) +
                                " is not applied");
    }
}

/// The reference that a clip plays, of either version of its schema.
std::optional<Node> Reference(const Node &clip) {
    const std::optional<Node> all = Find(clip, "media_references");
    if (!all)
        return Find(clip, "media_reference");
    const std::string key = TextOf(clip, "active_media_reference_key");
    return Find(*all, key.empty() ? "DEFAULT_MEDIA" : key.c_str());
}

/// A clip, or nothing for what is left out.
std::optional<EditClip> ReadClip(ListReader &reader, const Node &node) {
    if (!FlagOf(node, "enabled", true)) {
        LeaveOut(reader, node, "which is disabled");
        return {};
    }
    const std::optional<Node> reference = Reference(node);
    const std::string kind = reference ? Schema(*reference) : "MissingReference";
    if (kind == "GeneratorReference") {
        LeaveOut(reader, node, "which a generator makes");
        return {};
    }
    if (kind != "ExternalReference")
        node.Fail(Title(node) + (kind == "MissingReference"
                                     ? " has no media; link it to its file"
                                     : " is of " + Quoted(kind) + "; a file is wanted"));
    EditClip clip;
    clip.file = ReadFile(Require(*reference, "target_url"));
    clip.name = TextOf(node, "name");
    clip.available = SpanOf(*reference, "available_range");
    clip.source = SpanOf(node, "source_range");
    if (clip.source && clip.available)
        clip.source->start = clip.source->start - clip.available->start;
    WarnOfEffects(reader, node);
    return clip;
}

EditJoint ReadJoint(ListReader &reader, const Node &node) {
    const std::string type = TextOf(node, "transition_type");
    std::string name = type == "SMPTE_Dissolve" ? "dissolve" : TextOf(node, "name");
    EditJoint joint;
    const std::optional<Node> ours = Ours(node);
    if (ours) {
        name = Text(Require(*ours, "name"));
        joint.easing = TextOf(*ours, "ease");
        joint.path = TextOf(*ours, "path");
        joint.reverse = FlagOf(*ours, "reverse", false);
        if (const std::optional<Node> seed = Find(*ours, "seed")) {
            if (!seed->value->is_number_unsigned())
                seed->Fail("a whole number from 0 is wanted");
            joint.seed = seed->value->get<std::uint64_t>();
        }
    }
    if (name.empty())
        name = type;
    const KnownJoint known = reader.findJoint(name);
    joint.name = known.name.empty() ? "dissolve" : known.name;
    joint.reverse = joint.reverse != known.reverse;
    if (known.name.empty())
        reader.Warn(node, ": no transition " + Quoted(name) + " is known; a dissolve is drawn");
    else if (known.name != name)
        reader.Warn(node, ": " + Quoted(name) + " is drawn as " + Quoted(known.name) +
                              (known.reverse ? ", reversed" : ""));
    return joint;
}

Transition ReadTransition(ListReader &reader, const Node &node) {
    const auto offset = [&](const char *key) {
        const Node found = Require(node, key);
        const Time time = ReadTime(found);
        if (time.value < 0)
            found.Fail("is below 0");
        return time;
    };
    Transition transition = {{}, offset("in_offset"), offset("out_offset")};
    const Time length = transition.before + transition.after;
    if (length.value)
        transition.joint = ReadJoint(reader, node);
    transition.joint.length = length;
    return transition;
}

/// Makes a clip longer by what its joints need of it and checks that it is there. What is a
/// rounding of another rate away is.
void Extend(const Node &node, EditClip &clip, const Time &before, const Time &after) {
    const Time rounding = {10, {1000, 1}};
    const bool isLonger = before.value > 0 || after.value > 0;
    if (!clip.source && clip.available)
        clip.source = Span{kNothing, clip.available->length};
    if (!clip.source && !isLonger)
        return;
    const auto fail = [&](const std::string &what) {
        node.Fail(Title(node) + ": " + what + " that its media holds" +
                  (isLonger ? "; shorten its transitions, or the clip" : ""));
    };
    if (!clip.source)
        fail("a transition needs more than what is all");
    Span &source = *clip.source;
    source = {source.start - before, source.length + before + after};
    if (clip.available && Compare(kNothing, source.start + rounding) > 0)
        fail(std::string(isLonger ? "with its transitions it" : "it") +
             " begins before what is all");
    const Time end = source.start + source.length;
    if (clip.available && Compare(end, clip.available->length + rounding) > 0)
        fail(std::string(isLonger ? "with its transitions it" : "it") + " ends after what is all");
    if (source.start.value < 0 && clip.available)
        source.start = kNothing;
    if (source.start.value == 0 && clip.available &&
        Compare(source.length, clip.available->length) == 0)
        clip.source.reset();
}

/// What stands between transitions: a clip, or nothing for what is left out.
std::optional<EditClip> ReadItem(ListReader &reader, const Node &node) {
    const std::string schema = Schema(node);
    if (schema == "Clip")
        return ReadClip(reader, node);
    const std::optional<Span> span = SpanOf(node, "source_range");
    if (schema != "Gap" || (span && span->length.value))
        LeaveOut(reader, node);
    return {};
}

/// The clips of a track and what is between them.
void ReadTrack(ListReader &reader, const Node &track) {
    struct Placed {
        Node node;
        Time before, after;
    };
    std::vector<Placed> placed;
    std::optional<std::pair<Node, Transition>> pending;
    bool followsClip = false;
    const auto drop = [&] {
        if (pending)
            LeaveOut(reader, pending->first, "without a clip on either side");
        pending.reset();
    };
    for (const Node &node : ElementsOf(track, "children")) {
        if (Schema(node) == "Transition") {
            if (pending)
                node.Fail("two transitions stand one beside the other");
            pending.emplace(node, ReadTransition(reader, node));
            if (!followsClip)
                drop();
            continue;
        }
        std::optional<EditClip> clip = ReadItem(reader, node);
        followsClip = clip.has_value();
        if (!clip) {
            drop();
            continue;
        }
        const Transition joint = pending ? pending->second : Transition{{}, kNothing, kNothing};
        pending.reset();
        if (!placed.empty()) {
            reader.edit.joints.push_back(joint.joint);
            placed.back().after = joint.after;
        }
        reader.edit.clips.push_back(*std::move(clip));
        placed.push_back({node, joint.before, kNothing});
    }
    drop();
    for (std::size_t i = 0; i < placed.size(); ++i)
        Extend(placed[i].node, reader.edit.clips[i], placed[i].before, placed[i].after);
}

bool HasClips(const Node &track) {
    const std::vector<Node> children = ElementsOf(track, "children");
    return FlagOf(track, "enabled", true) &&
           std::any_of(children.begin(), children.end(),
                       [](const Node &child) { return Schema(child) == "Clip"; });
}

void ReadStack(ListReader &reader, const Node &stack) {
    bool found = false, hasSound = false;
    const auto warn = [&](const Node &node) {
        WarnOfEffects(reader, node);
        if (Find(node, "source_range"))
            reader.Warn(node, ": the range of " + Title(node) + " is not applied");
    };
    warn(stack);
    for (const Node &track : ElementsOf(stack, "children")) {
        const bool isTrack = Schema(track) == "Track";
        const std::string kind = TextOf(track, "kind");
        if (isTrack && kind == "Audio") {
            hasSound = hasSound || HasClips(track);
        } else if (isTrack && (kind == "Video" || kind.empty())) {
            if (!HasClips(track))
                continue;
            if (found) {
                LeaveOut(reader, track, "above the first track of pictures");
                continue;
            }
            found = true;
            warn(track);
            ReadTrack(reader, track);
        } else {
            LeaveOut(reader, track);
        }
    }
    if (hasSound)
        reader.Warn(stack, ": tracks of sound are left out; the sound is that of the clips");
    if (reader.edit.clips.empty())
        stack.Fail("there is no track of pictures with a clip");
}

json Parse(const std::string &file) {
    std::error_code ignored;
    if (fs::is_directory(file, ignored))
        throw Failure(file + ": is a folder");
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
        throw Failure(file + ": " + std::generic_category().message(errno));
    const std::string text(std::istreambuf_iterator<char>(stream), {});
    try {
        return json::parse(text);
    } catch (const json::exception &error) {
        const std::string message = error.what(), end = "] ";
        throw Failure(file + ": is no JSON: " + message.substr(message.find(end) + end.size()));
    }
}

// ---------------------------------------------------------------------------------------------
// Writing
// ---------------------------------------------------------------------------------------------

json Written(const Time &time) {
    return {{"OTIO_SCHEMA", "RationalTime.1"},
            {"rate", av_q2d(time.rate)},
            {"value", double(time.value)}};
}

json Written(const std::optional<Span> &span) {
    if (!span)
        return nullptr;
    return {{"OTIO_SCHEMA", "TimeRange.1"},
            {"start_time", Written(span->start)},
            {"duration", Written(span->length)}};
}

/// The same time in frames of this rate, as editors count, where it is a whole number of them.
Time Timed(const Time &time, AVRational rate) {
    const Time frames = {FramesIn(time, rate), rate};
    return time.IsInFrames() || Compare(frames, time) == 0 ? frames : time;
}

Span Timed(const Span &span, AVRational rate) {
    return {Timed(span.start, rate), Timed(span.length, rate)};
}

json Written(const EditClip &clip, const std::optional<Span> &source, const std::string &file) {
    return {{"OTIO_SCHEMA", "Clip.1"},
            {"name", clip.name.empty() ? fs::path(clip.file).stem().string() : clip.name},
            {"metadata", json::object()},
            {"effects", json::array()},
            {"markers", json::array()},
            {"source_range", Written(source)},
            {"media_reference",
             {{"OTIO_SCHEMA", "ExternalReference.1"},
              {"name", ""},
              {"metadata", json::object()},
              {"target_url", Url(clip.file, file)},
              {"available_range", Written(clip.available)}}}};
}

json Written(const EditJoint &joint, const Time &in, const Time &out) {
    json ours = {{"name", joint.name}};
    if (!joint.easing.empty())
        ours["ease"] = joint.easing;
    if (!joint.path.empty())
        ours["path"] = joint.path;
    if (joint.reverse)
        ours["reverse"] = true;
    if (joint.seed)
        ours["seed"] = *joint.seed;
    return {{"OTIO_SCHEMA", "Transition.1"},
            {"name", joint.name},
            {"transition_type", joint.name == "dissolve" ? "SMPTE_Dissolve" : "Custom_Transition"},
            {"in_offset", Written(in)},
            {"out_offset", Written(out)},
            {"metadata", {{kOurKey, ours}}}};
}

/// A clip's range up to the cuts of its joints: `before` of it belong to the clip before, `after`
/// to the next.
std::optional<Span> Trimmed(const EditClip &clip, const Time &before, const Time &after) {
    if (!clip.source && before.value == 0 && after.value == 0)
        return {};
    if (!clip.source && !clip.available)
        throw Failure(clip.file + ": its length must be known for an edit list");
    Span source = clip.source ? *clip.source : Span{kNothing, clip.available->length};
    source = {source.start + before, source.length - before - after};
    if (clip.available)
        source.start = source.start + clip.available->start;
    if (source.length.value < 0)
        throw Failure(clip.file + ": is shorter than its two overlaps");
    return source;
}

} // namespace

bool IsEditList(const std::string &file) {
    std::string extension = fs::path(file).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return extension == ".otio";
}

Edit ReadEdit(const std::string &file, const FindJoint &findJoint,
              std::vector<std::string> &warnings) {
    const json text = Parse(file);
    const Node root = {&text, "", &file};
    if (!text.is_object() || Schema(root) != "Timeline")
        root.Fail("is no timeline of OpenTimelineIO");
    ListReader reader = {findJoint, warnings, {}};
    const Node tracks = Require(root, "tracks");
    ReadStack(reader, tracks);
    if (const std::optional<Node> ours = Ours(root)) {
        if (const std::optional<Node> music = Find(*ours, "music"))
            reader.edit.music = ReadFile(*music);
        if (const std::optional<Node> settings = Find(*ours, "settings")) {
            if (!settings->value->is_object())
                settings->Fail("an object is wanted");
            for (const auto &[key, value] : settings->value->items())
                reader.edit.settings[key] = TextOf(*settings, key.c_str());
        }
    }
    return reader.edit;
}

std::string FormatEdit(const Edit &edit, const std::string &file, AVRational rate) {
    json children = json::array();
    Time before = kNothing;
    for (std::size_t i = 0; i < edit.clips.size(); ++i) {
        EditClip clip = edit.clips[i];
        for (std::optional<Span> *span : {&clip.source, &clip.available})
            if (*span)
                *span = Timed(**span, rate);
        const EditJoint joint = i < edit.joints.size() ? edit.joints[i] : EditJoint{};
        const std::int64_t overlap = FramesIn(joint.length, rate);
        const Time in = {overlap / 2, rate}, out = {overlap - overlap / 2, rate};
        std::optional<Span> source = Trimmed(clip, before, out);
        if (source)
            source = Timed(*source, rate);
        children.push_back(Written(clip, source, file));
        if (overlap)
            children.push_back(Written(joint, in, out));
        before = in;
    }
    json ours = {{"settings", edit.settings}};
    if (!edit.music.empty())
        ours["music"] = Url(edit.music, file);
    const json track = {{"OTIO_SCHEMA", "Track.1"}, {"name", "Video"},
                        {"kind", "Video"},          {"metadata", json::object()},
                        {"effects", json::array()}, {"markers", json::array()},
                        {"source_range", nullptr},  {"children", children}};
    const json timeline = {{"OTIO_SCHEMA", "Timeline.1"},
                           {"name", fs::path(file).stem().string()},
                           {"global_start_time", nullptr},
                           {"metadata", {{kOurKey, ours}}},
                           {"tracks",
                            {{"OTIO_SCHEMA", "Stack.1"},
                             {"name", "tracks"},
                             {"metadata", json::object()},
                             {"effects", json::array()},
                             {"markers", json::array()},
                             {"source_range", nullptr},
                             {"children", json::array({track})}}}};
    return timeline.dump(4, ' ', false, json::error_handler_t::replace) + '\n';
}

} // namespace host
