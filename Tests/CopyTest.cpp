// What render copies and what it encodes: where clips are cut, what decodes bit for bit as the
// clips do, what is refused and why, and parts that join to the whole. Expectations come from what
// FFmpeg's tools say of the clips.

#include "CopyPlan.h"
#include "Failure.h"
#include "NalUnits.h"
#include "Shell.h"

#include <gtest/gtest.h>

namespace {

using namespace host;

/// Packets in the order of decoding: the frame each shows as behind I (restart), K (open key) or P.
Cuts CutsOf(const std::string &packets) {
    std::vector<std::int64_t> frames;
    std::vector<Entry> entries;
    std::istringstream words(packets);
    for (std::string word; words >> word;) {
        frames.push_back(std::stoi(word.substr(1)));
        entries.push_back(word[0] == 'I'   ? Entry::Restart
                          : word[0] == 'K' ? Entry::OpenKey
                                           : Entry::None);
    }
    return FindCuts(frames, entries);
}

std::string Words(const std::vector<Cut> &cuts) {
    std::string text;
    for (const Cut &cut : cuts)
        text += Text(text.empty() ? "" : " ", cut.frame, '@', cut.packet);
    return text;
}

TEST(CopyPlan, ClipsAreCutWhereNothingRefersAcross) {
    const struct {
        const char *packets, *begins, *ends;
    } kCases[] = {
        {"I0 P1 P2 I3 P4", "0@0 3@3", "1@1 2@2 3@3 4@4 5@5"},
        {"I0 P3 P1 P2 I4 P5", "0@0 4@4", "1@1 4@4 5@5 6@6"}, // pictures that refer forward
        {"I0 P1 I4 P2 P3 P5", "0@0", "1@1 2@2 5@5 6@6"},     // a restart with leading pictures
        {"I0 P1 K4 P2 P3 P5", "0@0 4@2", "1@1 2@2 5@5 6@6"}, // which an open key may drop
        {"P0 P1 P2", "", "1@1 2@2 3@3"},                     // nothing to begin with
        {"I0 P2 I1 P3", "0@0", "1@1 3@3 4@4"},               // shown before what it follows
        {"P-2 P-1 I0 P1", "0@2", "-1@1 0@2 1@3 2@4"},        // hidden in front
    };
    for (const auto &[packets, begins, ends] : kCases) {
        const Cuts cuts = CutsOf(packets);
        EXPECT_EQ(Words(cuts.begins), begins) << packets;
        EXPECT_EQ(Words(cuts.ends), ends) << packets;
    }
}

/// A clip of so many frames with a restart at every so many.
Cuts Regular(int frames, int interval) {
    std::string packets;
    for (int i = 0; i < frames; ++i)
        packets += Text(i % interval ? 'P' : 'I', i, ' ');
    return CutsOf(packets);
}

/// "A!0-90 90-100": spliced in from clip A up to frame 90, encoded up to 100.
std::string Words(const std::vector<Piece> &pieces) {
    std::string text;
    for (const Piece &piece : pieces)
        text += Text(text.empty() ? "" : " ", piece.clip < 0 ? "" : Text(char('A' + piece.clip)),
                     piece.isSplice ? "!" : "", piece.frames.begin, '-', piece.frames.end);
    return text;
}

TEST(CopyPlan, EveryFrameIsInOnePiece) {
    const Cuts even = Regular(100, 20), rare = Regular(1000, 1000), often = Regular(1000, 100);
    const struct {
        std::vector<CopySource> sources;
        std::int64_t length;
        const char *pieces;
    } kCases[] = {
        {{{&even, {0, 90}, 0}, {&even, {10, 100}, 90}}, 190, "A!0-90 90-110 B!110-190"},
        {{{&even, {5, 90}, -5}, {&even, {10, 100}, 85}}, 185, "0-15 A!15-85 85-105 B!105-185"},
        {{{&even, {0, 100}, 0}, {&even, {0, 100}, 100}}, 200, "A!0-100 B!100-200"}, // a cut
        {{{&even, {0, 90}, 0}, {}}, 190, "A!0-90 90-190"},
        {{{&rare, {0, 990}, 0}}, 1865, "A!0-990 990-1240 1240-1490 1490-1740 1740-1865"},
        {{{&often, {0, 990}, 0}}, 1000, "A!0-300 A300-600 A600-900 A900-990 990-1000"},
        {{{&even, {81, 90}, -81}}, 19, "0-19"}, // no key frame in it
    };
    for (const auto &[sources, length, pieces] : kCases)
        EXPECT_EQ(Words(MakePieces(sources, length)), pieces);
}

TEST(CopyPlan, PartsAreAllOfThePiecesInOrder) {
    const Cuts often = Regular(1000, 100);
    const std::vector<Piece> uneven = {{{0, 100}}, {{100, 200}, 0}, {{200, 201}, 0}},
                             many = MakePieces({{&often, {0, 900}, 0}, {&often, {100, 1000}, 800}},
                                               1800);
    for (const auto &pieces : {many, uneven}) { // the latter with an end that takes no time
        for (int n = 1; n <= int(pieces.size()); ++n) {
            std::size_t next = 0;
            for (int k = 1; k <= n; ++k) {
                const auto [first, end] = PiecesOfPart(pieces, k, n);
                EXPECT_TRUE(first == next && first < end) << k << '/' << n;
                next = end;
            }
            EXPECT_EQ(next, pieces.size()) << n;
        }
        EXPECT_THROW(PiecesOfPart(pieces, 1, int(pieces.size()) + 1), Failure);
    }
}

constexpr int kFrames = 100, kOverlap = 10, kRate = 25;
const std::string kX264 = "-c:v libx264 -g 30 ";

struct Copy : testing::Test {
    const WorkingFolder folder;
};

/// One of two clips of a kind, "NAME-0.EXTENSION" or "NAME-1.EXTENSION", with a white frame and a
/// beep at 0.2 s and every second from there.
std::string Make(const std::string &name, const std::string &video, int which = 0,
                 const std::string &filter = "null") {
    const std::size_t point = name.find('.');
    std::string clip = Text(name.substr(0, point), '-', which, name.substr(point));
    if (!std::filesystem::exists(clip))
        Must("ffmpeg -v fatal -f lavfi -i testsrc2=s=160x96:r=25 -f lavfi -i "
             "\"aevalsrc='0.8*lt(mod(t+0.8,1),0.04)*sin(2*PI*1000*t)':s=48000\" -t 4 -vf \"hue=h=",
             90 * which, ",drawbox=c=white:t=fill:enable='lt(mod(t+0.81,1),0.04)',", filter,
             "\" -pix_fmt yuv420p ", video, " -c:a aac -ac 2 ", clip);
    return clip;
}

Outcome Render(const std::string &clips, const std::string &rest) {
    return Program("render -t dissolve -d ", kOverlap, "f ", clips, " -o ", rest);
}

std::vector<std::string> Lines(const std::string &command) {
    std::vector<std::string> lines;
    std::istringstream stream(Output(command));
    for (std::string line; std::getline(stream, line);)
        if (!line.empty() && line[0] != '#')
            lines.push_back(line);
    return lines;
}

/// The hashes of a film's pictures: so many, evenly, and decoded without a complaint.
std::vector<std::string> Hashes(const std::string &name, std::size_t frames, int rate = kRate) {
    std::vector<double> times;
    std::vector<std::string> hashes;
    for (const std::string &line :
         Lines("ffprobe -v error -select_streams v -of csv=p=0 -show_entries packet=pts_time " +
               name))
        times.push_back(std::stod(line));
    for (const std::string &line :
         Lines("ffmpeg -v warning -i " + name + " -map 0:v -fps_mode passthrough -f framemd5 -")) {
        EXPECT_TRUE(line.starts_with("0,")) << line;
        hashes.push_back(line.substr(line.rfind(',') + 1));
    }
    std::ranges::sort(times);
    for (std::size_t i = 0; i < times.size(); ++i)
        EXPECT_NEAR(times[i] - times[0], double(i) / rate, 0.001) << name << ' ' << i;
    EXPECT_EQ(times.size(), frames) << name;
    EXPECT_EQ(hashes.size(), frames) << name;
    hashes.resize(frames);
    return hashes;
}

/// Expects a beep, and a frame that is brighter than both its neighbours, at each of these seconds.
void ExpectSync(const std::string &name, const std::vector<double> &times) {
    constexpr int kBrighter = 40; // of 255
    const std::string means = Output("ffmpeg -v fatal -i ", name,
                                     " -vf scale=1:1:flags=area,format=gray -fps_mode passthrough "
                                     "-f rawvideo -");
    const auto mean = [&](std::size_t frame) { return int(std::uint8_t(means[frame])); };
    std::vector<double> flashes;
    for (std::size_t i = 1; i + 1 < means.size(); ++i)
        if (mean(i) > kBrighter + std::max(mean(i - 1), mean(i + 1)))
            flashes.push_back(double(i) / kRate);
    ExpectTimes(flashes, times);
    ExpectTimes(Listen(name).starts, times);
}

/// The least likeness of two files' frames from one on, in decibels.
double Likeness(const std::string &a, const std::string &b) {
    const std::string log =
        Shell(Text("ffmpeg -i ", a, " -i ", b,
                   " -lavfi \"[0:v]settb=1/25,setpts=N[a];[1:v]settb=1/25,setpts=N[b];[a][b]psnr\" "
                   "-f null -"))
            .output;
    const std::size_t least = log.rfind(" min:");
    return least == std::string::npos ? 0 : std::atof(&log[least + 5]);
}

TEST_F(Copy, WhatIsNotEncodedDecodesAsTheClipsDo) {
    const std::string plain = kX264 + "-bf 3", wrapped = plain + " -output_ts_offset 95441.5",
                      cavlc = kX264 + "-profile:v main -coder cavlc",
                      deep = kX264 + "-pix_fmt yuv420p10le",
                      x265 = "-c:v libx265 -preset superfast -x265-params log-level=none:keyint=30";
    const struct {
        const char *a, *b;
        std::string videoA, videoB, kind;
        std::string options = {};
    } kCases[] = {
        {"bf.mp4", "bf.mp4", plain, plain, "mp4"},
        {"wrap.ts", "bf.ts", wrapped, plain, "mov"},
        {"bf.ts", "live.mkv", plain, plain + " -live 1", "mkv"}, // without an index
        {"frag.mp4", "wrap.ts", plain + " -movflags +frag_keyframe+empty_moov", wrapped, "ts"},
        {"vlc.mp4", "bf.mp4", cavlc, plain, "mp4"},
        {"base.ts", "vlc.mp4", kX264 + "-profile:v baseline -tune zerolatency -colorspace bt470bg",
         cavlc, "ts"},
        {"deep.mp4", "deep.mp4", deep, deep, "mp4", " --depth 10"},
        {"open.mp4", "bf.mp4", kX264 + "-x264-params open-gop=1", plain, "mp4"},
        {"hevc.mp4", "hevc.ts", x265, x265, "mp4", " --codec hevc"}, // open groups of pictures
        {"shut.mkv", "hevc.mp4", x265 + ":open-gop=0", x265, "ts", " --codec hevc"},
    };
    for (const auto &[a, b, videoA, videoB, kind, options] : kCases) {
        SCOPED_TRACE(Text(a, ' ', b, ' ', kind));
        const std::string first = Make(a, videoA), second = Make(b, videoB, 1), name = "o." + kind;
        const Outcome run = Render(first + ' ' + second, name + options + " --copy always");
        ASSERT_EQ(run.status, 0) << run.output;
        const auto result = Hashes(name, 2 * kFrames - kOverlap), before = Hashes(first, kFrames),
                   after = Hashes(second, kFrames);
        constexpr int kForward = 4; // frames at the end that refer forward are encoded
        for (int i = 0; i < kFrames - kOverlap - kForward; ++i)
            ASSERT_EQ(result[i], before[i]) << i;
        for (int i = 30; i < kFrames; ++i) // from the next key frame on
            ASSERT_EQ(result[kFrames - kOverlap + i], after[i]) << i;
        ExpectSync(name, {0.2, 1.2, 2.2, 3.2, 3.8, 4.8, 5.8, 6.8});
        const std::string full = Text("full", options.size(), ".mkv");
        if (!std::filesystem::exists(full)) // all clips show the same
            Render(first + ' ' + second, full + options + " --copy never --preset ultrafast");
        EXPECT_GT(Likeness(name, full), 30);
    }
}

TEST_F(Copy, FiveClipsStayInSyncAndPartsJoinToTheWhole) {
    const std::string a = Make("bf2.mp4", kX264 + "-bf 2"), b = Make("bf2.mp4", kX264 + "-bf 2", 1),
                      clips = Text(a, " file://$PWD/", b, ' ', a, "#t=0.4 ", b, ' ', a);
    constexpr std::size_t kLength = 5 * kFrames - 4 * kOverlap - 10;
    const std::vector<double> times = {0.2, 1.2,  2.2,  3.2,  3.8,  4.8,  5.8,  6.8,  8,   9,
                                       10,  10.6, 11.6, 12.6, 13.6, 14.2, 15.2, 16.2, 17.2};
    const struct {
        std::string kind, options;
        std::vector<int> divisions;
    } kCases[] = {
        {"mov", "", {}},
        {"mkv", "", {3}},
        {"ts", "", {7}},
        {"mp4", " --copy never --preset ultrafast", {2}}, // two stretches of at most 250 frames
        {"mp4", "", {2, 7, 3}},
    };
    for (const auto &[kind, options, divisions] : kCases) {
        SCOPED_TRACE(kind + options);
        const std::string whole = "whole." + kind, joined = "joined." + kind;
        const Outcome run = Render(clips, whole + options);
        ASSERT_EQ(run.status, 0);
        EXPECT_EQ(run.output.find("Copies ") != std::string::npos, options.empty()) << run.output;
        const auto hashes = Hashes(whole, kLength);
        ExpectSync(whole, times);
        for (const int parts : divisions) {
            std::string names;
            for (int k = 1; k <= parts; ++k) {
                const std::string name = Text('p', k, '.', kind);
                EXPECT_EQ(Render(clips, Text(name, options, " --part ", k, '/', parts)).status, 0);
                names += name + " ";
            }
            Must(TP_PROGRAM " join -q ", names, " -o ", joined);
            EXPECT_EQ(Hashes(joined, kLength), hashes) << parts;
            ExpectSync(joined, times);
            EXPECT_EQ(Probe(joined, "nb_read_packets", "a:0 -count_packets"),
                      Probe(whole, "nb_read_packets", "a:0 -count_packets"));
        }
    }
    const Answer answers[] = {
        // of the three parts that were the last
        {"join -o no.mp4 p1.mp4 p2.mp4", "is one of 3 parts, not of 2"},
        {"join -o no.mp4 p1.mp4 p3.mp4 p2.mp4", "is part 3"},
        {"join -o no.mp4 p1.mp4 " + a + " p3.mp4", "is no part of the same render"},
        {"render -t Turn -o no.mp4 -d 5f --part 1/99 " + clips, "can be divided into"},
        {"render -t dissolve -o no.mp4 --copy always --size 96x64 " + clips,
         "is 160x96, the result 96x64"},
    };
    ExpectAnswers(TP_PROGRAM, answers);
    EXPECT_FALSE(std::filesystem::exists("no.mp4"));
}

// Of A's tone and B's, over all of the overlap of 0.4 s and no further.
TEST_F(Copy, SoundIsFadedBesideWhatIsCopied) {
    for (const int hertz : {400, 1000})
        Must("ffmpeg -v fatal -f lavfi -i testsrc2=s=160x96:r=25 -f lavfi -i "
             "\"aevalsrc='0.5*sin(2*PI*t*",
             hertz, ")':s=48000\" -t 4 -pix_fmt yuv420p ", kX264, "-c:a aac ", hertz, ".mp4");
    ASSERT_EQ(Render("400.mp4 1000.mp4", "tones.mp4 --copy always").status, 0);
    const std::vector<float> sound = Sound("tones.mp4");
    // Between 3.64 and 3.78 s FFmpeg's encoder by itself is further off.
    for (const double from : {3.5, 3.61, 3.8, 3.9, 3.94, 4.05}) {
        const double share = std::clamp((from + 0.0125 - 3.6) / 0.4, 0.0, 1.0);
        EXPECT_NEAR(Strength(sound, 400, from, from + 0.025), 0.5 * (1 - share), 0.03) << from;
        EXPECT_NEAR(Strength(sound, 1000, from, from + 0.025), 0.5 * share, 0.03) << from;
    }
}

TEST_F(Copy, WhatCannotBeCopiedIsEncodedAndWhy) {
    const std::string fit = Make("bf.mp4", kX264 + "-bf 3");
    Must("ffmpeg -v fatal -i ", fit, " -c copy -metadata:s:v:0 rotate=180 turned-1.mp4");
    for (const std::string kind : {".mp4", ".mkv", ".ts"}) { // with a hole in the middle
        const std::string whole = Make("bf" + kind, kX264 + "-bf 3", 1);
        const auto places = Lines(
            "ffprobe -v error -select_streams v -of csv=p=0 -show_entries packet=pos " + whole);
        std::string bytes = Read(whole);
        bytes.replace(std::stoul(places.at(kFrames / 2)), 188, 188, '\xff');
        Write("hole-1" + kind, bytes);
    }
    const struct {
        const char *name, *reason;
        std::string video = kX264, filter = "null", options = {};
    } kCases[] = {
        {"small.mp4", "is 96x64, the result 160x96", kX264, "scale=96:64"},
        {"wide.mp4", "has pixels of another shape", kX264, "setsar=2"},
        {"mpeg.mkv", "is mpeg4, the result h264", "-c:v mpeg4"},
        {"onekey.mp4", "has no key frame", "-c:v libx264 -g 999 -sc_threshold 0"},
        {"opened.mp4", "has no key frame", kX264 + "-x264-params open-gop=1"},
        {"uneven.mkv", "do not stand evenly", kX264 + "-fps_mode vfr -enc_time_base 1:1000",
         "settb=1/1000,setpts='N*40+15*lt(mod(N,7),3)'"},
        {"fields.mp4", "interlaced", kX264 + "-flags +ildct+ilme -x264-params tff=1"},
        {"turned.mp4", "is turned"},
        {"hole.mp4", "; hole-1.mp4 "},
        {"hole.mkv", "; hole-1.mkv "},
        {"hole.ts", "; hole-1.ts "},
        {"deeper.mp4", "has 10 bits, the result 8", kX264 + "-pix_fmt yuv420p10le"},
        {"fit.mp4", "do not stand evenly", kX264, "null", " --rate 50"},
        {"fit.mp4", "is h264, the result hevc", kX264, "null", " --codec hevc"},
    };
    for (const auto &[name, reason, video, filter, options] : kCases) {
        SCOPED_TRACE(name + options);
        const Outcome run = Render(fit + ' ' + Make(name, video, 1, filter), "r.mp4" + options);
        EXPECT_EQ(run.status, 0);
        EXPECT_NE(run.output.find(reason), std::string::npos) << run.output;
        EXPECT_EQ(run.output.find("Copies ") != std::string::npos, options.empty()) << run.output;
        const int twice = options == " --rate 50" ? 2 : 1;
        Hashes("r.mp4", twice * 2 * kFrames - kOverlap, twice * kRate);
    }
}

} // namespace
