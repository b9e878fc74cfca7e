// Edit lists: what editors write, what the program writes, and what is neither.

#include "EditList.h"
#include "Failure.h"
#include "Shell.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <numeric>
#include <set>

namespace {

using namespace host;
using nlohmann::json;

KnownJoint Known(const std::string &name) {
    if (name == "Dip to Black")
        return {"fade", false};
    if (name == "Slide")
        return {"Push", true};
    return {name == "Turn" || name == "dissolve" || name == "fade" ? name : "", false};
}

struct EditFile : testing::Test {
    const Folder folder;
    const std::string list = folder / "an edit.otio";
    std::vector<std::string> warnings; ///< of the last edit
    Edit example;

    EditFile() {
        const AVRational second = {1, 1}, frames = {0, 1}, ntsc = {30000, 1001};
        example.clips = {{folder / "a%20 \xc3\xa4 #?.mov", "", {}, Span{{0, second}, {4, second}}},
                         {"/elsewhere/b:c.mov", "two", Span{{5, ntsc}, {200, ntsc}},
                          Span{{3600, second}, {300, ntsc}}},
                         {folder / "photos/c.jpg", "", Span{{0, second}, {75, frames}}, {}},
                         {folder / "d.mp4", "", {}, {}}};
        example.joints = {{"dissolve", {25, frames}, "", "", false, {}},
                          {"Turn", {1, second}, "bounce", "rgb", true, 18446744073709551615u},
                          {}};
        example.music = folder / "song.mp3";
        example.settings = {{"audio-curve", "linear"}, {"size", "640x360"}};
    }
    Edit Read(const std::string &text) {
        Write(list, text);
        warnings.clear();
        return ReadEdit(list, Known, warnings);
    }
    /// The failure's words, without the list's name.
    std::string Refusal(const std::string &text) {
        try {
            Read(text);
            return "";
        } catch (const Failure &failure) {
            const std::string what = failure.what();
            EXPECT_TRUE(what.starts_with(list + ": ")) << what;
            EXPECT_EQ(what.find_first_of("\n\r\x1b"), std::string::npos) << what;
            return what.substr(list.size() + 2);
        }
    }
};

/// In seconds, a fraction in lowest terms.
std::string Words(const Time &time) {
    const std::int64_t numerator = time.value * time.rate.den;
    const std::int64_t divisor = std::gcd(numerator, std::int64_t(time.rate.num));
    return Text(numerator / divisor, '/', time.rate.num / divisor);
}

std::string Words(const std::optional<Span> &span) {
    return span ? Text(' ', Words(span->start), '+', Words(span->length)) : " -";
}

/// A line for each clip, with what is shown of it and what it holds, and for each joint.
std::string Words(const Edit &edit) {
    std::string text;
    for (std::size_t i = 0; i < edit.clips.size(); ++i) {
        const auto &[file, name, source, available] = edit.clips[i];
        text += Text(file, Words(source), Words(available), '\n');
        if (i == edit.joints.size())
            break;
        const auto &[joint, length, easing, path, isReverse, seed] = edit.joints[i];
        text += Text(joint, ' ', Words(length), ' ', easing, path, isReverse ? " reversed" : "",
                     seed ? Text(' ', *seed) : "", '\n');
    }
    return text;
}

json Of(const char *schema, json fields) {
    fields["OTIO_SCHEMA"] = schema;
    return fields;
}

json At(double value, double rate) {
    return Of("RationalTime.1", {{"rate", rate}, {"value", value}});
}

json Range(double start, double length, double rate) {
    return Of("TimeRange.1", {{"start_time", At(start, rate)}, {"duration", At(length, rate)}});
}

json Clip(const std::string &url, const json &source, const json &available = nullptr) {
    const json media =
        Of("ExternalReference.1", {{"target_url", url}, {"available_range", available}});
    return Of("Clip.1", {{"name", url}, {"source_range", source}, {"media_reference", media}});
}

json Joint(const json &in, const json &out, const std::string &name = "",
           const std::string &type = "SMPTE_Dissolve") {
    return Of("Transition.1",
              {{"transition_type", type}, {"name", name}, {"in_offset", in}, {"out_offset", out}});
}

using List = std::vector<json>;

json Track(const List &children, const std::string &kind = "Video") {
    return Of("Track.1", {{"kind", kind}, {"name", kind}, {"children", children}});
}

std::string Timeline(const List &tracks) {
    const json stack = Of("Stack.1", {{"children", tracks}});
    return Of("Timeline.1", {{"global_start_time", At(86400, 24)}, {"tracks", stack}}).dump();
}

std::string OfClips(const List &children) {
    return Timeline({Track(children)});
}

// Of 18 frames of film, 12 are before the cut from A to B, and 6 behind it. B counts in NTSC's
// frames: from 30 on, of 60, and of 105 at an hour of time code, which is no multiple of them.
TEST_F(EditFile, OffsetsBecomeOverlapsOfWholeClips) {
    json first =
        Clip("file:///media/a%20b%c3%a9.mov", Range(86410, 100, 24), Range(86400, 200, 24));
    first["OTIO_SCHEMA"] = "Clip.2";
    first["active_media_reference_key"] = "HIGH";
    first["media_references"] = {{"DEFAULT_MEDIA", {{"OTIO_SCHEMA", "MissingReference.1"}}},
                                 {"HIGH", first["media_reference"]}};
    first.erase("media_reference");
    const Edit edit = Read(
        OfClips({first, Joint(At(12, 24), At(6, 24), "x"),
                 Clip("sub/100%25.mov", Range(107922, 60, 29.97), Range(107892, 105, 29.97)),
                 Joint(At(0.5, 1), At(12, 24), "Slide", "Custom_Transition"),
                 Clip("file://localhost/c.mov", Range(12, 50, 25)), Clip("d%zz.png", nullptr)}));
    EXPECT_EQ(Words(edit),
              Text("/media/a b\xc3\xa9.mov 5/12+53/12 3600/1+25/3\ndissolve 3/4 \n",
                   folder / "sub/100%.mov",
                   // 1.001 - 0.5, 2.002 + 1, 107892 x 1001 / 30000 and 105 x 1001 / 30000
                   " 501/1000+1501/500 8999991/2500+7007/2000\nPush 1/1  reversed\n"
                   "/c.mov -1/50+5/2 -\ncut 0/1 \n", // not known to be too early
                   folder / "d%zz.png", " - -\n"));
    EXPECT_EQ(warnings,
              std::vector<std::string>{
                  "tracks.children[0].children[3]: \"Slide\" is drawn as \"Push\", reversed"});
}

// Writers round them to as few as two decimals.
TEST_F(EditFile, RatesAreThoseThatWereMeant) {
    for (const auto &[written, seconds] : {std::pair(29.97, "1001/30000"),
                                           {23.98, "1001/24000"},
                                           {23.976, "1001/24000"},
                                           {59.94, "1001/60000"},
                                           {12.5, "2/25"},
                                           {48, "1/48"}})
        EXPECT_EQ(Words(Read(OfClips({Clip("a.mov", Range(0, 1, written))}))),
                  Text(folder / "a.mov", " 0/1+", seconds, " -\n"));
}

TEST_F(EditFile, WrittenAndReadIsTheSame) {
    const std::string text = FormatEdit(example, list, {25, 1});
    const Edit again = Read(text);
    EXPECT_TRUE(warnings.empty()) << warnings[0];
    EXPECT_EQ(FormatEdit(again, list, {25, 1}), text);
    EXPECT_EQ(Words(again),
              Text(folder / "a%20 \xc3\xa4 #?.mov",
                   " - 0/1+4/1\ndissolve 1/1 \n"
                   "/elsewhere/b:c.mov 1001/6000+1001/150 3600/1+1001/100\n"
                   "Turn 1/1 bouncergb reversed 18446744073709551615\n",
                   folder / "photos/c.jpg", " 0/1+3/1 -\ncut 0/1 \n", folder / "d.mp4", " - -\n"));
    EXPECT_EQ(again.music, example.music);
    EXPECT_EQ(again.settings, example.settings);
    // The cut is in the middle of the overlap, where an editor without handles would be refused.
    const json whole = json::parse(text), track = whole["tracks"]["children"][0]["children"];
    EXPECT_EQ(track[0]["source_range"]["duration"], At(87, 25));
    EXPECT_EQ(track[0]["media_reference"]["available_range"]["duration"], At(100, 25));
    EXPECT_EQ(track[1]["in_offset"], At(12, 25));
    EXPECT_EQ(track[1]["out_offset"], At(13, 25));
    EXPECT_EQ(track[0]["media_reference"]["target_url"], "a%2520%20%C3%A4%20%23%3F.mov");
    EXPECT_EQ(track[2]["media_reference"]["target_url"], "file:///elsewhere/b%3Ac.mov");
}

TEST_F(EditFile, NamesWhatItLeavesOut) {
    const json a = Clip("a.mov", Range(0, 50, 25)), dissolve = Joint(At(5, 25), At(5, 25)),
               gap = Of("Gap.1", {{"source_range", Range(0, 12, 25)}}),
               noGap = Of("Gap.1", {{"source_range", Range(0, 0, 25)}}),
               starWipe = Joint(At(0, 25), At(5, 25), "Star\n Wipe", "Custom_Transition");
    json slow = a, disabled = a, generated = a, ranged = Track({a});
    slow["effects"] = {{{"OTIO_SCHEMA", "LinearTimeWarp.1"}, {"time_scalar", 0.5}}};
    disabled["enabled"] = false;
    generated["media_reference"] = {{"OTIO_SCHEMA", "GeneratorReference.1"}};
    ranged["source_range"] = Range(0, 10, 25);
    const struct {
        List tracks;
        std::vector<std::string> warnings;
    } kCases[] = {
        {{Track({a, noGap, a})}, {}},
        {{Track({a, gap, a})}, {"[0].children[1]: Gap is left out"}},
        {{Track({dissolve, a, dissolve, gap, dissolve, a, dissolve})},
         {"[0].children[0]: Transition, without a clip on either side, is left out",
          "[0].children[3]: Gap is left out",
          "[0].children[2]: Transition, without a clip on either side, is left out",
          "[0].children[4]: Transition, without a clip on either side, is left out",
          "[0].children[6]: Transition, without a clip on either side, is left out"}},
        {{Track({slow, disabled, generated, a, Track({a})})},
         {"[0].children[0].effects[0]: the effect LinearTimeWarp on Clip \"a.mov\" is not applied",
          "[0].children[1]: Clip \"a.mov\", which is disabled, is left out",
          "[0].children[2]: Clip \"a.mov\", which a generator makes, is left out",
          "[0].children[4]: Track \"Video\" is left out"}},
        {{Track({}), Track({a}), Track({a}), Track({a}, "Audio"), Track({a}, "Subtitle")},
         {"[2]: Track \"Video\", above the first track of pictures, is left out",
          "[4]: Track \"Subtitle\" is left out",
          ": tracks of sound are left out; the sound is that of the clips"}},
        {{ranged}, {"[0]: the range of Track \"Video\" is not applied"}},
        {{Track({a, starWipe, a})},
         {"[0].children[1]: no transition \"Star? Wipe\" is known; a dissolve is drawn"}},
    };
    for (const auto &[tracks, expected] : kCases) {
        Read(Timeline(tracks));
        std::vector<std::string> full = expected;
        for (std::string &text : full)
            text.insert(0, text[0] == ':' ? "tracks" : "tracks.children");
        EXPECT_EQ(warnings, full);
    }
}

TEST_F(EditFile, RefusesInWordsThatSayWhereAndWhat) {
    const json all = Range(100, 50, 25);
    const auto joined = [](const json &a, const json &b, int in = 5) {
        return OfClips({Clip("a.mov", a, Range(100, 50, 25)), Joint(At(in, 25), At(5, 25)),
                        Clip("b.mov", b, Range(100, 50, 25))});
    };
    const auto with = [&](const std::string &path, const json &value) {
        json clip = Clip("a.mov", all, all);
        clip[json::json_pointer("/" + path)] = value;
        return OfClips({clip});
    };
    const std::string range = "source_range/", start = range + "start_time",
                      length = range + "duration", media = "media_reference",
                      url = media + "/target_url";
    const struct {
        std::string text, message; ///< empty: none
    } kCases[] = {
        {"", "is no JSON: parse error at line 1, column 1"},
        {"{\"OTIO_SCHEMA\": \"Timeline.1\",\n \"tracks\": x}", "is no JSON: parse error at line 2"},
        {"[]", "is no timeline of OpenTimelineIO"},
        {"{}", "has no \"OTIO_SCHEMA\""},
        {"{\"OTIO_SCHEMA\": \"Clip.1\"}", "is no timeline"},
        {"{\"OTIO_SCHEMA\": \"Timeline.1\"}", "has no \"tracks\""},
        {OfClips({}), "tracks: there is no track of pictures with a clip"},
        {with(length + "/rate", 0), "source_range.duration.rate: a rate from"},
        {with(length, At(1e13, 25)), "duration: the time is too long"},
        {with(length, At(1, 0.004)), "ends after what is all"}, // 250 s
        {with(length + "/value", "x"), "value: a number is wanted, not string"},
        {with(length + "/value", -1), "source_range.duration: is below 0"},
        {with(start + "/value", 1e300), "start_time.value: the number is too large"},
        {with(start + "/value", 90), "begins before what is all that its media holds"},
        {with(length + "/value", 51), "ends after what is all that its media holds"},
        {with(start, At(3.985, 1)), "begins before what is all"},
        {with(start, At(3.995, 1)), ""}, // what a rounding of another rate may be: 10 ms
        {with(length, At(2.015, 1)), "ends after what is all"},
        {with(length, At(2.005, 1)), ""},
        {with(url, "http://a/b.mov"), "\"http://a/b.mov\" is no file of this machine"},
        {with(url, "file://host/b.mov"), "is no file of this machine"},
        {with(url, "a%00b"), "is no file's name"},
        {with(url, ""), "is no file's name"},
        {with(media, nullptr), "has no media; link it to its file"},
        {with(media + "/OTIO_SCHEMA", "ImageSequenceReference.1"),
         "is of \"ImageSequenceReference\"; a file is wanted"},
        {joined(Range(100, 45, 25), nullptr),
         "tracks.children[0].children[2]: Clip \"b.mov\": with its transitions it begins "
         "before what is all that its media holds; shorten its transitions, or the clip"},
        {joined(Range(100, 46, 25), Range(105, 45, 25)),
         "Clip \"a.mov\": with its transitions it ends after"},
        {joined(Range(100, 45, 25), Range(105, 45, 25)), ""},
        {joined(all, all, -1), "in_offset: is below 0"},
        {OfClips({Clip("a", nullptr), Joint(At(1, 25), At(1, 25)), Clip("b", nullptr)}),
         "a transition needs more than what is all that its media holds"},
    };
    for (const auto &[text, message] : kCases) {
        const std::string refusal = Refusal(text);
        EXPECT_TRUE(message.empty() ? refusal.empty() : refusal.find(message) < refusal.size())
            << text << '\n'
            << refusal;
    }
    EXPECT_THROW(ReadEdit(folder.path.string(), Known, warnings), Failure);
    EXPECT_THROW(ReadEdit(folder / "missing.otio", Known, warnings), Failure);
}

// Whatever stands anywhere: an edit or a refusal, under the sanitizers too.
TEST_F(EditFile, SurvivesAnything) {
    example.clips.resize(2);
    example.joints = {example.joints[1]};
    const std::string text = FormatEdit(example, list, {25, 1});
    const json whole = json::parse(text), leaves = whole.flatten();
    std::set<std::string> places;
    for (const auto &leaf : leaves.items())
        for (json::json_pointer at(leaf.key()); !at.empty(); at.pop_back())
            places.insert(at.to_string());
    int accepted = 0, refused = 0;
    for (const std::string &place : places)
        for (const json &other :
             {json(), json(true), json(-1), json(0.3), json(9e15), json(""), json("x"),
              json::array(), json::array({1}), json::object(), json{{"OTIO_SCHEMA", "Clip.2"}}}) {
            json damaged = whole;
            damaged[json::json_pointer(place)] = other;
            ++(Refusal(damaged.dump()).empty() ? accepted : refused);
        }
    EXPECT_GT(accepted, 50);
    EXPECT_GT(refused, 500);
    for (std::size_t size = 0; size < text.size() - 2; size += 7)
        EXPECT_NE(Refusal(text.substr(0, size)), "");
    EXPECT_NE(Refusal(std::string(100000, '[')), "");
}

} // namespace
