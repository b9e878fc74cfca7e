// Edit lists: what editors write, what the program writes, and what is neither.

#include "EditList.h"
#include "Failure.h"
#include "Shell.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>

namespace {

using namespace host;
using nlohmann::json;

KnownJoint Known(const std::string &name) {
    if (name == "Dip to Black")
        return {"fade", false};
    return name == "Slide"                                          ? KnownJoint{"Push", true}
           : name == "Turn" || name == "dissolve" || name == "fade" ? KnownJoint{name, false}
                                                                    : KnownJoint{};
}

struct EditFile : testing::Test {
    Folder folder;
    const std::string list = folder / "an edit.otio";

    Edit Read(const std::string &text, std::vector<std::string> *warnings = nullptr) {
        std::ofstream(list, std::ios::binary) << text;
        std::vector<std::string> ignored;
        return ReadEdit(list, Known, warnings ? *warnings : ignored);
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

json At(double value, double rate) {
    return {{"OTIO_SCHEMA", "RationalTime.1"}, {"rate", rate}, {"value", value}};
}

json Range(double start, double length, double rate) {
    return {{"OTIO_SCHEMA", "TimeRange.1"},
            {"start_time", At(start, rate)},
            {"duration", At(length, rate)}};
}

json Clip(const std::string &url, const json &source, const json &available) {
    return {{"OTIO_SCHEMA", "Clip.2"},
            {"name", "clip of " + url},
            {"source_range", source},
            {"active_media_reference_key", "HIGH"},
            {"media_references",
             {{"DEFAULT_MEDIA", {{"OTIO_SCHEMA", "MissingReference.1"}}},
              {"HIGH",
               {{"OTIO_SCHEMA", "ExternalReference.1"},
                {"target_url", url},
                {"available_range", available}}}}}};
}

json OldClip(const std::string &url, const json &source) {
    return {{"OTIO_SCHEMA", "Clip.1"},
            {"source_range", source},
            {"media_reference", {{"OTIO_SCHEMA", "ExternalReference.1"}, {"target_url", url}}}};
}

json Joint(const std::string &type, const std::string &name, const json &in, const json &out) {
    return {{"OTIO_SCHEMA", "Transition.1"},
            {"transition_type", type},
            {"name", name},
            {"in_offset", in},
            {"out_offset", out}};
}

using List = std::vector<json>;

json Track(const List &children, const std::string &kind = "Video") {
    return {{"OTIO_SCHEMA", "Track.1"}, {"kind", kind}, {"name", kind}, {"children", children}};
}

json Timeline(const List &tracks) {
    return {{"OTIO_SCHEMA", "Timeline.1"},
            {"global_start_time", At(86400, 24)},
            {"tracks", {{"OTIO_SCHEMA", "Stack.1"}, {"children", tracks}}}};
}

json OfClips(const List &children) {
    return Timeline({Track(children)});
}

void ExpectTime(const Time &time, std::int64_t value, AVRational rate, const char *what) {
    EXPECT_EQ(Compare(time, {value, rate}), 0)
        << what << ": " << time.value << " / " << time.rate.num << ':' << time.rate.den;
}

// Clip A: 100 frames from frame 10 of its media, clip B: from frame 30 on; both at an hour of time
// code. 12 frames before the cut and 6 after belong to the transition.
TEST_F(EditFile, OffsetsBecomeOverlapsOfWholeClips) {
    const AVRational film = {24, 1}, ntsc = {30000, 1001};
    std::vector<std::string> warnings;
    const Edit edit = Read(
        OfClips(
            {Clip("file:///media/a%20b%c3%a9.mov", Range(86410, 100, 24), Range(86400, 200, 24)),
             Joint("SMPTE_Dissolve", "x", At(12, 24), At(6, 24)),
             Clip("sub/100%25.mov", Range(107922, 60, 29.97), Range(107892, 105, 29.97)),
             Joint("Custom_Transition", "Slide", At(0.5, 1), At(12, 24)),
             OldClip("file://localhost/c.mov", Range(12, 50, 25)), OldClip("d%zz.png", nullptr)})
            .dump(),
        &warnings);
    ASSERT_EQ(edit.clips.size(), 4u);
    EXPECT_EQ(edit.clips[0].file, "/media/a b\xc3\xa9.mov");
    EXPECT_EQ(edit.clips[1].file, folder / "sub/100%.mov");
    EXPECT_EQ(edit.clips[2].file, "/c.mov");
    EXPECT_EQ(edit.clips[3].file, folder / "d%zz.png");
    ExpectTime(edit.clips[0].source->start, 10, film, "A's start");
    ExpectTime(edit.clips[0].source->length, 106, film, "A's length");
    // 30 frames at 30000/1001 a second less 12 at 24, in 720,000ths: 30 * 24024 - 12 * 30000.
    ExpectTime(edit.clips[1].source->start, 360720, {720000, 1}, "B's start");
    ExpectTime(edit.clips[1].source->length, 60 * 24024 + 24 * 30000, {720000, 1}, "B's length");
    ExpectTime(edit.clips[1].available->start, 107892, ntsc, "B's time code");
    ExpectTime(edit.clips[2].source->start, -1, {50, 1}, "C's start"); // not known to be too early
    EXPECT_FALSE(edit.clips[3].source);
    ASSERT_EQ(edit.joints.size(), 3u);
    EXPECT_EQ(edit.joints[0].name, "dissolve");
    ExpectTime(edit.joints[0].length, 18, film, "A to B");
    EXPECT_EQ(edit.joints[1].name, "Push");
    EXPECT_TRUE(edit.joints[1].reverse);
    ExpectTime(edit.joints[1].length, 1, {1, 1}, "B to C");
    EXPECT_EQ(edit.joints[2].name, "cut");
    EXPECT_EQ(warnings,
              std::vector<std::string>{
                  "tracks.children[0].children[3]: \"Slide\" is drawn as \"Push\", reversed"});
}

// Writers round them to as few as two decimals.
TEST_F(EditFile, RatesAreThoseThatWereMeant) {
    for (const auto &[written, rate] : {std::pair(29.97, AVRational{30000, 1001}),
                                        {23.98, {24000, 1001}},
                                        {23.976, {24000, 1001}},
                                        {59.94, {60000, 1001}},
                                        {12.5, {25, 2}},
                                        {48, {48, 1}}}) {
        const Edit edit = Read(OfClips({OldClip("a.mov", Range(0, 7, written))}).dump());
        ExpectTime(edit.clips[0].source->length, 7, rate, "length");
    }
}

TEST_F(EditFile, WrittenAndReadIsTheSame) {
    const AVRational pal = {25, 1}, ntsc = {30000, 1001};
    Edit edit;
    edit.clips = {{folder / "a%20 \xc3\xa4 #?.mov", "", {}, Span{{0, {1, 1}}, {8, {2, 1}}}},
                  {"/elsewhere/b:c.mov", "two", Span{{5, ntsc}, {200, ntsc}},
                   Span{{3600, {1, 1}}, {300, ntsc}}},
                  {folder / "photos/c.jpg", "", Span{{0, {1, 1}}, {75, {0, 1}}}, {}},
                  {folder / "d.mp4", "", {}, {}}};
    edit.joints = {{"dissolve", {25, {0, 1}}, "", "", false, {}},
                   {"Turn", {1, {1, 1}}, "bounce", "rgb", true, 18446744073709551615u},
                   {}};
    edit.music = folder / "song.mp3";
    edit.settings = {{"audio-curve", "linear"}, {"size", "640x360"}};
    const std::string text = FormatEdit(edit, list, pal);
    std::vector<std::string> warnings;
    const Edit again = Read(text, &warnings);
    EXPECT_TRUE(warnings.empty()) << warnings[0];
    EXPECT_EQ(FormatEdit(again, list, pal), text);
    ASSERT_EQ(again.clips.size(), 4u);
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_EQ(again.clips[i].file, edit.clips[i].file);
    EXPECT_FALSE(again.clips[0].source) << "the whole clip";
    ExpectTime(again.clips[1].source->start, 5, ntsc, "start");
    ExpectTime(again.clips[1].source->length, 200, ntsc, "length");
    ExpectTime(again.clips[2].source->length, 3, {1, 1}, "still");
    ExpectTime(again.joints[0].length, 25, pal, "overlap");
    EXPECT_EQ(again.joints[2].name, "cut");
    EXPECT_EQ(again.joints[1].name, "Turn");
    EXPECT_EQ(again.joints[1].easing, "bounce");
    EXPECT_EQ(again.joints[1].path, "rgb");
    EXPECT_TRUE(again.joints[1].reverse);
    EXPECT_EQ(again.joints[1].seed, 18446744073709551615u);
    EXPECT_EQ(again.music, edit.music);
    EXPECT_EQ(again.settings, edit.settings);
    // The cut is in the middle of the overlap, where an editor without handles would be refused.
    const json track = json::parse(text)["tracks"]["children"][0]["children"];
    EXPECT_EQ(track[0]["source_range"]["duration"], At(87, 25));
    EXPECT_EQ(track[0]["media_reference"]["available_range"]["duration"], At(100, 25));
    EXPECT_EQ(track[1]["in_offset"], At(12, 25));
    EXPECT_EQ(track[1]["out_offset"], At(13, 25));
    EXPECT_EQ(track[0]["media_reference"]["target_url"], "a%2520%20%C3%A4%20%23%3F.mov");
    EXPECT_EQ(track[2]["media_reference"]["target_url"], "file:///elsewhere/b%3Ac.mov");
}

TEST_F(EditFile, NamesWhatItLeavesOut) {
    const json a = OldClip("a.mov", Range(0, 50, 25)),
               dissolve = Joint("SMPTE_Dissolve", "", At(5, 25), At(5, 25));
    json slow = a, disabled = a, generated = a, ranged = Track({a});
    slow["effects"] = {{{"OTIO_SCHEMA", "LinearTimeWarp.1"}, {"time_scalar", 0.5}}};
    disabled["enabled"] = false;
    generated["media_reference"] = {{"OTIO_SCHEMA", "GeneratorReference.1"}};
    ranged["source_range"] = Range(0, 10, 25);
    const json gap = {{"OTIO_SCHEMA", "Gap.1"}, {"source_range", Range(0, 12, 25)}};
    const json noGap = {{"OTIO_SCHEMA", "Gap.1"}, {"source_range", Range(0, 0, 25)}};
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
         {"[0].children[0].effects[0]: the effect LinearTimeWarp on Clip is not applied",
          "[0].children[1]: Clip, which is disabled, is left out",
          "[0].children[2]: Clip, which a generator makes, is left out",
          "[0].children[4]: Track \"Video\" is left out"}},
        {{Track({}), Track({a}), Track({a}), Track({a}, "Audio"), Track({a}, "Subtitle")},
         {"[2]: Track \"Video\", above the first track of pictures, is left out",
          "[4]: Track \"Subtitle\" is left out",
          ": tracks of sound are left out; the sound is that of the clips"}},
        {{ranged}, {"[0]: the range of Track \"Video\" is not applied"}},
        {{Track({a, Joint("Custom_Transition", "Star\n Wipe", At(0, 25), At(5, 25)), a})},
         {"[0].children[1]: no transition \"Star? Wipe\" is known; a dissolve is drawn"}},
    };
    for (const auto &[tracks, expected] : kCases) {
        std::vector<std::string> warnings, full;
        Read(Timeline(tracks).dump(), &warnings);
        for (const std::string &text : expected)
            full.push_back((text[0] == ':' ? "tracks" : "tracks.children") + text);
        EXPECT_EQ(warnings, full) << json(tracks).dump();
    }
}

TEST_F(EditFile, RefusesInWordsThatSayWhereAndWhat) {
    const json all = Range(100, 50, 25);
    const auto joined = [&](const json &in, const json &out, const json &sourceA,
                            const json &sourceB) {
        return OfClips({Clip("a.mov", sourceA, all), Joint("SMPTE_Dissolve", "", in, out),
                        Clip("b.mov", sourceB, all)})
            .dump();
    };
    const auto clip = [&](const std::string &path, const json &value) {
        json text = OfClips({Clip("a.mov", all, all)});
        text[json::json_pointer("/tracks/children/0/children/0" + path)] = value;
        return text.dump();
    };
    const std::string url = "/media_references/HIGH/target_url";
    const struct {
        std::string text, message;
    } kCases[] = {
        {"", "is no JSON: parse error at line 1, column 1"},
        {"{\"OTIO_SCHEMA\": \"Timeline.1\",\n \"tracks\": x}", "is no JSON: parse error at line 2"},
        {"[]", "is no timeline of OpenTimelineIO"},
        {"{}", "has no \"OTIO_SCHEMA\""},
        {"{\"OTIO_SCHEMA\": \"Clip.1\"}", "is no timeline"},
        {"{\"OTIO_SCHEMA\": \"Timeline.1\"}", "has no \"tracks\""},
        {OfClips({}).dump(), "tracks: there is no track of pictures with a clip"},
        {clip("/source_range/duration/rate", 0), "source_range.duration.rate: a rate from"},
        {clip("/source_range/duration", At(1e13, 25)), "duration: the time is too long"},
        {clip("/source_range/duration", At(1, 0.004)), "ends after what is all"}, // 250 s
        {clip("/source_range/duration/value", "x"), "value: a number is wanted, not string"},
        {clip("/source_range/duration/value", -1), "source_range.duration: is below 0"},
        {clip("/source_range/start_time/value", 1e300),
         "start_time.value: the number is too large"},
        {clip("/source_range/start_time/value", 90),
         "begins before what is all that its media holds"},
        {clip("/source_range/duration/value", 51), "ends after what is all that its media holds"},
        {clip("/source_range/start_time", At(3.985, 1)), "begins before what is all"},
        {clip("/source_range/duration", At(2.015, 1)), "ends after what is all"},
        {clip(url, "http://a/b.mov"), "\"http://a/b.mov\" is no file of this machine"},
        {clip(url, "file://host/b.mov"), "is no file of this machine"},
        {clip(url, "a%00b"), "is no file's name"},
        {clip("/media_references/HIGH", nullptr), "has no media; link it to its file"},
        {clip("/media_references/HIGH/OTIO_SCHEMA", "ImageSequenceReference.1"),
         "is of \"ImageSequenceReference\"; a file is wanted"},
        {joined(At(5, 25), At(5, 25), Range(100, 45, 25), nullptr),
         "tracks.children[0].children[2]: Clip \"clip of b.mov\": with its transitions it begins "
         "before what is all that its media holds; shorten its transitions, or the clip"},
        {joined(At(5, 25), At(5, 25), Range(100, 46, 25), Range(105, 45, 25)),
         "Clip \"clip of a.mov\": with its transitions it ends after"},
        {joined(At(-1, 25), At(5, 25), all, all), "in_offset: is below 0"},
        {OfClips({OldClip("a", nullptr), Joint("SMPTE_Dissolve", "", At(1, 25), At(1, 25)),
                  OldClip("b", nullptr)})
             .dump(),
         "a transition needs more than what is all that its media holds"},
    };
    for (const auto &[text, message] : kCases) {
        const std::string refusal = Refusal(text);
        EXPECT_NE(refusal.find(message), std::string::npos) << text << '\n' << refusal;
    }
    EXPECT_EQ(Refusal(joined(At(5, 25), At(5, 25), Range(100, 45, 25), Range(105, 45, 25))), "");
    // What a rounding of another rate may be: 10 ms.
    EXPECT_EQ(Refusal(clip("/source_range/start_time", At(3.995, 1))), "");
    EXPECT_EQ(Refusal(clip("/source_range/duration", At(2.005, 1))), "");
    std::vector<std::string> warnings;
    EXPECT_THROW(ReadEdit(folder.path.string(), Known, warnings), Failure);
    EXPECT_THROW(ReadEdit(folder / "missing.otio", Known, warnings), Failure);
}

/// Calls the visitor for the value and all values in it.
void EachValue(json &value, const std::function<void(json &)> &visit) {
    visit(value);
    if (value.is_structured())
        for (json &child : value)
            EachValue(child, visit);
}

// Whatever stands anywhere: an edit or a refusal, under the sanitizers too.
TEST_F(EditFile, SurvivesAnything) {
    Edit edit;
    edit.clips = {
        {"a.mov", "", Span{{0, {1, 1}}, {100, {25, 1}}}, Span{{1, {1, 1}}, {100, {25, 1}}}},
        {"b.mov", "", {}, Span{{0, {1, 1}}, {100, {25, 1}}}}};
    edit.joints = {{"Turn", {1, {1, 1}}, "in", "rgb", true, 1}};
    edit.music = "c";
    const std::string text = FormatEdit(edit, list, {25, 1});
    json whole = json::parse(text);
    int accepted = 0, refused = 0;
    EachValue(whole, [&](json &value) {
        const json kept = value;
        for (const json &other :
             {json(), json(true), json(-1), json(0.3), json(9e15), json(""), json("x"),
              json::array(), json::array({1}), json::object(), json{{"OTIO_SCHEMA", "Clip.2"}}}) {
            value = other;
            ++(Refusal(whole.dump()).empty() ? accepted : refused);
        }
        value = kept;
    });
    EXPECT_GT(accepted, 50);
    EXPECT_GT(refused, 500);
    for (std::size_t size = 0; size < text.size() - 2; size += 7)
        EXPECT_NE(Refusal(text.substr(0, size)), "");
    EXPECT_NE(Refusal(std::string(100000, '[')), "");
}

} // namespace
