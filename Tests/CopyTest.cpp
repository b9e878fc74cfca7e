// What render copies and what it encodes: where clips are cut, what decodes bit for bit as the
// clips do, what is refused and why, and parts that join to the whole. Expectations come from what
// FFmpeg's tools say of the clips.

#include "CopyPlan.h"
#include "Failure.h"
#include "NalUnits.h"
#include "Shell.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <map>
#include <vector>

namespace {

using host::CopySource;
using host::Cuts;
using host::Entry;
using host::Piece;

// -------------------------------------------------------------------------------------------------
// Cuts and pieces
// -------------------------------------------------------------------------------------------------

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
    return host::FindCuts(frames, entries);
}

std::string Words(const std::vector<host::Cut> &cuts) {
    std::string text;
    for (const host::Cut &cut : cuts)
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

/// "A0-90 -100": copied from clip A up to frame 90, encoded up to 100.
std::string Words(const std::vector<Piece> &pieces) {
    std::string text;
    for (const Piece &piece : pieces)
        text += Text(text.empty() ? "" : " ", piece.clip < 0 ? "" : Text(char('A' + piece.clip)),
                     piece.frames.begin, '-', piece.frames.end);
    return text;
}

TEST(CopyPlan, EveryFrameIsInOnePiece) {
    const Cuts even = Regular(100, 20), rare = Regular(1000, 1000), often = Regular(1000, 100);
    const struct {
        std::vector<CopySource> sources;
        std::int64_t length;
        const char *pieces;
    } kCases[] = {
        {{{&even, {0, 90}, 0}, {&even, {10, 100}, 90}}, 190, "A0-90 90-110 B110-190"},
        {{{&even, {5, 90}, -5}, {&even, {10, 100}, 85}}, 185, "0-15 A15-85 85-105 B105-185"},
        {{{&even, {0, 100}, 0}, {&even, {0, 100}, 100}}, 200, "A0-100 B100-200"}, // a cut
        {{{&even, {0, 90}, 0}, {}}, 190, "A0-90 90-190"},
        {{{&rare, {0, 990}, 0}, {&rare, {10, 1000}, 990}},
         1990,
         "A0-990 990-1240 1240-1490 1490-1740 1740-1990"},
        {{{&often, {0, 990}, 0}}, 1000, "A0-300 A300-600 A600-900 A900-990 990-1000"},
        {{{&even, {81, 90}, -81}}, 19, "0-19"}, // no key frame in it
    };
    for (const auto &[sources, length, pieces] : kCases)
        EXPECT_EQ(Words(host::MakePieces(sources, length)), pieces);
}

TEST(CopyPlan, PartsAreAllOfThePiecesInOrder) {
    const Cuts often = Regular(1000, 100);
    std::vector<Piece> uneven(3); // with an end that takes no time
    uneven[0].frames = {0, 100};
    uneven[1].frames = {100, 200}, uneven[1].clip = 0;
    uneven[2].frames = {200, 201}, uneven[2].clip = 0;
    for (const auto &pieces :
         {host::MakePieces({{&often, {0, 900}, 0}, {&often, {100, 1000}, 800}}, 1800), uneven}) {
        for (int n = 1; n <= int(pieces.size()); ++n) {
            std::size_t next = 0;
            for (int k = 1; k <= n; ++k) {
                const auto [first, end] = host::PiecesOfPart(pieces, k, n);
                EXPECT_EQ(first, next);
                EXPECT_LT(first, end);
                next = end;
            }
            EXPECT_EQ(next, pieces.size()) << n;
        }
        EXPECT_THROW(host::PiecesOfPart(pieces, 1, int(pieces.size()) + 1), host::Failure);
    }
}

// -------------------------------------------------------------------------------------------------
// Renders
// -------------------------------------------------------------------------------------------------

constexpr int kFrames = 100, kOverlap = 10, kRate = 25;

class Copy : public testing::Test {
protected:
    static void SetUpTestSuite() { folder = new WorkingFolder; }
    static void TearDownTestSuite() { delete folder; }

    /// Two clips of a kind, "NAME-0.EXTENSION" and "NAME-1.EXTENSION", with a white frame and a
    /// beep at 0.2 s and every second from there.
    static std::string Make(const std::string &name, const std::string &video, int which = 0,
                            const std::string &filter = "null") {
        const std::size_t point = name.find('.');
        std::string target = Text(name.substr(0, point), '-', which, name.substr(point));
        if (!std::filesystem::exists(target))
            Must("ffmpeg -v fatal -f lavfi -i testsrc2=s=160x96:r=25 -f lavfi -i "
                 "\"aevalsrc='0.8*lt(mod(t+0.8,1),0.04)*sin(2*PI*1000*t)':s=48000\" -t 4 -vf "
                 "\"hue=h=",
                 90 * which, ",drawbox=c=white:t=fill:enable='lt(mod(t+0.81,1),0.04)',", filter,
                 "\" -pix_fmt yuv420p ", video, " -c:a aac -ac 2 ", target);
        return target;
    }
    static Outcome Render(const std::string &clips, const std::string &rest) {
        return Shell(
            Text(TP_PROGRAM " render -t dissolve -d ", kOverlap, "f ", clips, " -o ", rest));
    }
    static std::vector<std::string> Lines(const std::string &text) {
        std::vector<std::string> lines;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);)
            if (!line.empty() && line[0] != '#')
                lines.push_back(line);
        return lines;
    }
    /// The hash of every picture that ffmpeg decodes, without a complaint.
    static std::vector<std::string> Hashes(const std::string &name) {
        const Outcome run =
            Shell("ffmpeg -v warning -i " + name + " -map 0:v -fps_mode passthrough -f framemd5 -");
        std::vector<std::string> hashes = Lines(run.output);
        for (std::string &line : hashes) {
            EXPECT_EQ(line.find("0,"), 0u) << line;
            line = line.substr(line.rfind(',') + 1);
        }
        return hashes;
    }
    static const std::vector<std::string> &ClipHashes(const std::string &name) {
        static std::map<std::string, std::vector<std::string>> known;
        const auto found = known.find(name);
        return found == known.end() ? known[name] = Hashes(name) : found->second;
    }
    /// Times of a stream's packets, and which of them are key pictures.
    static std::vector<std::pair<double, bool>> Packets(const std::string &name) {
        std::vector<std::pair<double, bool>> packets;
        for (const std::string &line :
             Lines(Shell("ffprobe -v error -select_streams v -of csv=p=0 -show_entries "
                         "packet=pts_time,flags " +
                         name)
                       .output))
            packets.emplace_back(std::stod(line), line.find('K') != std::string::npos);
        std::sort(packets.begin(), packets.end());
        return packets;
    }
    static void ExpectSteady(const std::string &name) {
        const auto packets = Packets(name);
        for (std::size_t i = 0; i < packets.size(); ++i)
            EXPECT_NEAR(packets[i].first - packets[0].first, double(i) / kRate, 0.001) << i;
    }
    /// Frames that are brighter than both their neighbours, in seconds.
    static std::vector<double> Flashes(const std::string &name) {
        constexpr double kBrighter = 30; // of 255
        std::vector<double> means, times;
        for (const std::string &frame : Decode(name).frames) {
            double sum = 0;
            for (const char byte : frame)
                sum += std::uint8_t(byte);
            means.push_back(sum / double(frame.size()));
        }
        for (std::size_t i = 1; i + 1 < means.size(); ++i)
            if (means[i] > kBrighter + std::max(means[i - 1], means[i + 1]))
                times.push_back(double(i) / kRate);
        return times;
    }
    static void ExpectSync(const std::string &name, const std::vector<double> &times) {
        ExpectTimes(Flashes(name), times);
        ExpectTimes(Listen(name).starts, times);
    }
    /// The least likeness of two files' frames from one on, in decibels.
    static double Likeness(const std::string &a, const std::string &b) {
        Shell(Text("ffmpeg -v fatal -i ", a, " -i ", b,
                   " -lavfi \"[0:v]settb=1/25,setpts=N[a];[1:v]settb=1/25,setpts=N[b];[a][b]psnr="
                   "stats_file=psnr\" -f null -"));
        double least = 100;
        const std::string log = Read("psnr");
        for (const std::string &line : Lines(log))
            least = std::min(least, std::atof(&line[line.find("psnr_avg:") + 9]));
        return log.empty() ? 0 : least;
    }

    static inline WorkingFolder *folder;
};

TEST_F(Copy, WhatIsNotEncodedDecodesAsTheClipsDo) {
    const std::string x264 = "-c:v libx264 -g 30 ", x265 = "-c:v libx265 -preset superfast "
                                                           "-x265-params log-level=none:keyint=30";
    const std::string deep = "-pix_fmt yuv420p10le ";
    const struct {
        const char *a, *b;
        std::string videoA, videoB;
        const char *output;
        int key = 30; ///< the second clip's first that can be copied from
    } kCases[] = {
        {"bf.mp4", "bf.mp4", x264 + "-bf 3", x264 + "-bf 3", "o.mp4"},
        {"wrap.ts", "bf.ts", x264 + "-bf 3 -output_ts_offset 95441.5", x264 + "-bf 3", "o.mov"},
        {"bf.ts", "live.mkv", x264 + "-bf 3", x264 + "-bf 3 -live 1", "o.mkv"}, // without an index
        {"frag.mp4", "wrap.ts", x264 + "-bf 3 -movflags +frag_keyframe+empty_moov",
         x264 + "-bf 3 -output_ts_offset 95441.5", "o.ts"},
        {"vlc.mp4", "bf.mp4", x264 + "-profile:v main -coder cavlc", x264 + "-bf 3", "o.mp4"},
        {"base.ts", "vlc.mp4", x264 + "-profile:v baseline -tune zerolatency -colorspace bt470bg",
         x264 + "-profile:v main -coder cavlc", "o.ts"},
        {"deep.mp4", "deep.mp4", x264 + deep, x264 + deep, "o.mp4 --depth 10"},
        {"open.mp4", "bf.mp4", x264 + "-x264-params open-gop=1", x264 + "-bf 3", "o.mp4"},
        {"hevc.mp4", "hevc.ts", x265, x265, "o.mp4 --codec hevc"}, // open groups of pictures
        {"shut.mkv", "hevc.mp4", x265 + ":open-gop=0", x265, "o.ts --codec hevc"},
    };
    for (const auto &[a, b, videoA, videoB, output, key] : kCases) {
        SCOPED_TRACE(Text(a, ' ', b, ' ', output));
        const std::string clips = Text(Make(a, videoA), ' ', Make(b, videoB, 1));
        const std::string name(output, std::strcspn(output, " "));
        const Outcome run = Render(clips, Text(output, " --copy always"));
        ASSERT_EQ(run.status, 0) << run.output;
        const auto result = Hashes(name), first = ClipHashes(Make(a, videoA)),
                   second = ClipHashes(Make(b, videoB, 1));
        ASSERT_EQ(result.size(), 2 * kFrames - kOverlap);
        constexpr int kForward = 4; // frames at the end that refer forward are encoded
        for (int i = 0; i < kFrames - kOverlap - kForward; ++i)
            ASSERT_EQ(result[i], first[i]) << i;
        for (int i = key; i < kFrames; ++i)
            ASSERT_EQ(result[kFrames - kOverlap + i], second[i]) << i;
        ExpectSteady(name);
        ExpectSync(name, {0.2, 1.2, 2.2, 3.2, 3.8, 4.8, 5.8, 6.8});
        const char *options = output + std::strcspn(output, " ");
        const std::string full = Text("full", std::string(options).size(), ".mkv");
        if (!std::filesystem::exists(full)) { // all clips show the same
            ASSERT_EQ(
                Render(clips, Text(full, " --copy never -q --preset ultrafast", options)).status,
                0);
        }
        EXPECT_GT(Likeness(name, full), 30);
    }
}

TEST_F(Copy, FiveClipsStayInSync) {
    const std::string video = "-c:v libx264 -g 30 -bf 2";
    const std::string a = Make("bf2.mp4", video), b = Make("bf2.mp4", video, 1);
    for (const char *kind : {"mp4", "mov", "mkv", "ts"}) {
        const std::string name = Text("five.", kind);
        const Outcome run = Render(Text(a, " file://$PWD/", b, ' ', a, "#t=0.4 ", b, ' ', a), name);
        ASSERT_EQ(run.status, 0);
        EXPECT_NE(run.output.find("Copies "), std::string::npos) << run.output;
        EXPECT_EQ(Hashes(name).size(), 5 * kFrames - 4 * kOverlap - 10);
        ExpectSteady(name);
        ExpectSync(name, {0.2, 1.2, 2.2, 3.2, 3.8, 4.8, 5.8, 6.8, 8, 9, 10, 10.6, 11.6, 12.6, 13.6,
                          14.2, 15.2, 16.2, 17.2});
    }
}

// Of A's tone and B's, over all of the overlap of 0.4 s and no further.
TEST_F(Copy, SoundIsFadedBesideWhatIsCopied) {
    for (const int hertz : {400, 1000})
        Must("ffmpeg -v fatal -f lavfi -i testsrc2=s=160x96:r=25 -f lavfi -i "
             "\"aevalsrc='0.5*sin(2*PI*t*",
             hertz, ")':s=48000\" -t 4 -pix_fmt yuv420p -c:v libx264 -g 30 -c:a aac ", hertz,
             ".mp4");
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
    const std::string x264 = "-c:v libx264 -g 30 ";
    const std::string fit = Make("bf.mp4", x264 + "-bf 3");
    Must("ffmpeg -v fatal -i ", fit, " -c copy -metadata:s:v:0 rotate=180 turned-1.mp4");
    const struct {
        const char *name;
        std::string video;
        const char *filter, *options, *reason;
    } kCases[] = {
        {"small.mp4", x264, "scale=96:64", "", "is 96x64, the result 160x96"},
        {"wide.mp4", x264, "setsar=2", "", "has pixels of another shape"},
        {"mpeg.mkv", "-c:v mpeg4", "null", "", "is mpeg4, the result h264"},
        {"onekey.mp4", "-c:v libx264 -g 999 -sc_threshold 0", "null", "", "has no key frame"},
        {"opened.mp4", x264 + "-x264-params open-gop=1", "null", "", "has no key frame"},
        {"uneven.mkv", x264 + "-fps_mode vfr -enc_time_base 1:1000",
         "settb=1/1000,setpts='N*40+15*lt(mod(N,7),3)'", "", "do not stand evenly"},
        {"fields.mp4", x264 + "-flags +ildct+ilme -x264-params tff=1", "null", "", "interlaced"},
        {"turned.mp4", "", "", "", "is turned"},
        {"deeper.mp4", x264 + "-pix_fmt yuv420p10le", "null", "", "has 10 bits, the result 8"},
        {"fit.mp4", x264, "null", " --rate 50", "do not stand evenly"},
        {"fit.mp4", x264, "null", " --codec hevc", "is h264, the result hevc"},
    };
    for (const auto &[name, video, filter, options, reason] : kCases) {
        SCOPED_TRACE(Text(name, options));
        const Outcome run =
            Render(Text(fit, ' ', Make(name, video, 1, filter)), Text("r.mp4", options));
        EXPECT_EQ(run.status, 0);
        EXPECT_NE(run.output.find(reason), std::string::npos) << run.output;
        const bool copiesFirst = !*options;
        EXPECT_EQ(run.output.find("Copies ") != std::string::npos, copiesFirst) << run.output;
        const int rate = std::strstr(options, "50") ? 2 : 1;
        EXPECT_EQ(int(Packets("r.mp4").size()), rate * 2 * kFrames - kOverlap);
    }
    const Answer always[] = {{"--copy always --size 96x64", "is 160x96, the result 96x64"}};
    ExpectAnswers(Text(TP_PROGRAM " render -t dissolve -o no.mp4 ", fit, ' ', fit), always);
    EXPECT_FALSE(std::filesystem::exists("no.mp4"));
}

TEST_F(Copy, WhatIsDamagedIsEncoded) {
    const std::string video = "-c:v libx264 -g 30 -bf 3", fit = Make("bf.mp4", video);
    for (const std::string kind : {".mp4", ".mkv", ".ts"}) {
        SCOPED_TRACE(kind);
        const std::string whole = Make("bf" + kind, video, 1), damaged = "hole" + kind;
        std::string bytes = Read(whole);
        const auto places =
            Lines(Shell("ffprobe -v error -select_streams v -of csv=p=0 -show_entries packet=pos " +
                        whole)
                      .output);
        bytes.replace(std::stoul(places.at(kFrames / 2)), 188, 188, '\xff');
        Write(damaged, bytes);
        const Outcome run = Render(Text(fit, ' ', damaged), "r" + kind);
        EXPECT_EQ(run.status, 0);
        EXPECT_NE(run.output.find("; hole" + kind), std::string::npos) << run.output;
        EXPECT_EQ(Hashes("r" + kind).size(), 2 * kFrames - kOverlap);
        ExpectSteady("r" + kind);
    }
}

TEST_F(Copy, PartsJoinToTheWhole) {
    const std::string video = "-c:v libx264 -g 30 -bf 2", a = Make("bf2.mp4", video);
    const std::string b = Make("bf2.mp4", video, 1);
    const std::string clips = Text(a, ' ', b, ' ', a, ' ', b, ' ', a, ' ', a);
    const std::string never = " --copy never --preset ultrafast"; // two stretches of 250 frames
    const struct {
        std::string kind, options;
        std::vector<int> parts;
    } kCases[] = {
        {".mp4", "", {2, 3, 7}}, {".mkv", "", {3}}, {".ts", "", {7}}, {".mp4", never, {2}}};
    for (const auto &[kind, options, divisions] : kCases) {
        SCOPED_TRACE(kind + options);
        const std::string whole = "whole" + kind, joined = "joined" + kind;
        ASSERT_EQ(Render(clips, whole + options).status, 0);
        const auto hashes = Hashes(whole);
        for (const int parts : divisions) {
            std::string names;
            for (int k = 1; k <= parts; ++k) {
                const std::string name = Text('p', k, kind);
                const Outcome run =
                    Render(clips, Text(name, options, " -q --part ", k, '/', parts));
                ASSERT_EQ(run.status, 0) << run.output;
                names += name + " ";
            }
            Must(TP_PROGRAM " join -q ", names, " -o ", joined);
            EXPECT_EQ(Hashes(joined), hashes) << parts;
            ExpectSteady(joined);
            EXPECT_EQ(Probe(joined, "nb_read_packets", "a:0 -count_packets"),
                      Probe(whole, "nb_read_packets", "a:0 -count_packets"));
        }
    }
}

TEST_F(Copy, JoinRefusesWhatIsNotAllParts) {
    const std::string video = "-c:v libx264 -g 30 -bf 2", a = Make("bf2.mp4", video);
    for (int k = 1; k <= 3; ++k)
        ASSERT_EQ(Render(Text(a, ' ', a), Text('q', k, ".mp4 --part ", k, "/3")).status, 0);
    const std::string other = Make("bf.mp4", "-c:v libx264 -g 30 -bf 3");
    const Answer answers[] = {
        {"join -o no.mp4 q1.mp4 q2.mp4", "is one of 3 parts, not of 2"},
        {"join -o no.mp4 q1.mp4 q3.mp4 q2.mp4", "is part 3"},
        {Text("join -o no.mp4 q1.mp4 ", other, " q3.mp4"), "is no part of the same render"},
        {Text("render -t Turn -o no.mp4 -d 5f --part 1/99 ", a, ' ', a), "can be divided into"},
    };
    ExpectAnswers(TP_PROGRAM, answers);
    EXPECT_FALSE(std::filesystem::exists("no.mp4"));
}

} // namespace
