/// `transitions render`: its options, in words and as an edit list.

#include "EditList.h"
#include "Failure.h"
#include "Joints.h"
#include "Messages.h"
#include "Preview.h"
#include "Render.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>

namespace host {

namespace {

/// What the user wrote.
struct Words {
    std::vector<std::string> clips, transitions, durations = {"1"};
    std::string still = "3", path = "yuv", easing = "linear", size, rate, fit = "contain",
                interlaced = "remove", curve = "linear", music, frames, copy = "auto", part,
                saveEdit, around = "2";
    double musicVolume = -1;
    bool reverse = false, only = false, noAudio = false, quiet = false;
    std::uint64_t seed = 0;
    OutputOptions output;
};

Path ParsePath(const std::string &word) {
    return Choose<Path>("--path", word, {{"yuv", Path::Yuv}, {"rgb", Path::Rgb}});
}

Time ParseLength(const std::string &text, const std::string &option) {
    const Time time = ParseTime(text, option);
    constexpr double kLongest = 3600;
    if (time.value <= 0 || (!time.IsInFrames() && SecondsIn(time, {25, 1}) > kLongest))
        throw Failure(option + " " + text + ": give a time above 0, at most an hour");
    return time;
}

/// "clip.mp4#t=2.5,7" as media fragments are written; a file of that very name comes first.
Wish ParseClip(const std::string &text) {
    const std::size_t mark = text.rfind("#t=");
    std::error_code missing;
    if (mark == std::string::npos || std::filesystem::exists(text, missing))
        return {text, {}, {}};
    Wish wish = {text.substr(0, mark), {}, {}};
    const std::string times = text.substr(mark + 3);
    const std::size_t comma = std::min(times.find(','), times.size());
    if (comma > 0)
        wish.in = ParseTime(times.substr(0, comma), wish.file + ": its in point");
    if (comma + 1 < times.size())
        wish.out = ParseTime(times.substr(comma + 1), wish.file + ": its out point");
    return wish;
}

/// "2/7" to its two numbers.
std::pair<int, int> ParsePart(const std::string &text) {
    int part = 0, parts = 0, end = 0;
    if (std::sscanf(text.c_str(), "%6d/%6d%n", &part, &parts, &end) != 2 ||
        std::size_t(end) != text.size() || part < 1 || part > parts)
        throw Failure("--part " + text + ": give K/N, the number of the part from 1 and how many");
    return {part, parts};
}

/// One for all joints, or one for each.
const std::string &ForJoint(const std::vector<std::string> &values, std::size_t joint,
                            std::size_t joints, const char *option) {
    if (values.size() != 1 && values.size() != joints)
        throw Failure(std::string(option) + ": give one for all joints or one for each of the " +
                      std::to_string(joints) + ", not " + std::to_string(values.size()));
    return values[values.size() == 1 ? 0 : joint];
}

void ReadCommand(const Words &words, RenderOptions &options) {
    if (words.clips.size() < 2)
        throw Failure("give two clips or more, or an edit list (.otio)");
    if (words.transitions.empty())
        throw Failure("-t: give a transition (see: transitions list), cut, dissolve, fade or any");
    for (const std::string &clip : words.clips)
        options.clips.push_back(ParseClip(clip));
    const std::size_t joints = options.clips.size() - 1;
    for (std::size_t i = 0; i < joints; ++i)
        options.joints.push_back(
            {ForJoint(words.transitions, i, joints, "-t"),
             ParseLength(ForJoint(words.durations, i, joints, "--duration"), "--duration"),
             words.easing, ParsePath(words.path), words.reverse, words.seed});
}

/// What an edit list keeps beside clips and joints, by the options that give it.
struct Setting {
    const char *name;
    std::string Words::*word;
};
constexpr Setting kSettings[] = {{"size", &Words::size},
                                 {"rate", &Words::rate},
                                 {"fit", &Words::fit},
                                 {"interlaced", &Words::interlaced},
                                 {"audio-curve", &Words::curve}};

void ReadList(Words &words, const CLI::App &app, const hostkit::Plugin &plugin,
              RenderOptions &options) {
    for (const char *option : {"--transition", "--duration", "--path", "--ease", "--reverse"})
        if (app.count(option))
            throw Failure(std::string(option) + ": the edit list tells that for each joint");
    const std::string &file = words.clips.front();
    std::vector<std::string> warnings;
    const Edit edit = ReadEdit(file, JointFinder(plugin), warnings);
    for (const std::string &warning : warnings)
        Tell(file + ": " + warning);
    for (const EditClip &clip : edit.clips) {
        Wish wish = {clip.file, {}, {}};
        if (clip.source) {
            wish.in = clip.source->start;
            wish.out = clip.source->start + clip.source->length;
        }
        options.clips.push_back(wish);
    }
    for (const EditJoint &joint : edit.joints) {
        const std::string easing = joint.easing.empty() ? "linear" : joint.easing;
        RequireEasing(easing);
        options.joints.push_back({joint.name, joint.length, easing,
                                  ParsePath(joint.path.empty() ? "yuv" : joint.path), joint.reverse,
                                  joint.seed.value_or(0)});
    }
    if (words.music.empty())
        words.music = edit.music;
    for (const auto &[name, value] : edit.settings) {
        const Setting *known =
            std::find_if(std::begin(kSettings), std::end(kSettings),
                         [&, &key = name](const Setting &setting) { return key == setting.name; });
        if (known == std::end(kSettings))
            Tell(file + ": the setting " + name + " is not known");
        else if (!app.count("--" + name))
            words.*known->word = value;
    }
}

RenderOptions Understand(Words words, const CLI::App &app, const hostkit::Plugin &plugin) {
    RenderOptions options;
    RequireEasing(words.easing);
    if (words.clips.size() == 1 && IsEditList(words.clips.front()))
        ReadList(words, app, plugin, options);
    else
        ReadCommand(words, options);
    options.output = words.output;
    if (options.output.depth != 8 && options.output.depth != 10)
        throw Failure("--depth " + std::to_string(options.output.depth) + ": there are 8 and 10");
    options.still = ParseLength(words.still, "--still");
    options.size = words.size;
    options.rate = words.rate;
    options.fit = Choose<Fit>("--fit", words.fit,
                              {{"contain", Fit::Contain},
                               {"cover", Fit::Cover},
                               {"stretch", Fit::Stretch},
                               {"blur", Fit::Blur}});
    options.keepInterlacing =
        Choose<bool>("--interlaced", words.interlaced, {{"remove", false}, {"keep", true}});
    options.only = words.only;
    options.frames = words.frames;
    options.copy = Choose<CopyWish>(
        "--copy", words.copy,
        {{"auto", CopyWish::Auto}, {"never", CopyWish::Never}, {"always", CopyWish::Always}});
    if (!words.part.empty())
        options.part = ParsePart(words.part);
    options.sound.noClips = words.noAudio;
    options.sound.curve =
        Choose<FadeCurve>("--audio-curve", words.curve,
                          {{"linear", FadeCurve::Linear}, {"equal-power", FadeCurve::EqualPower}});
    options.sound.music = words.music;
    if (words.musicVolume >= 0)
        options.sound.musicVolume = words.musicVolume / 100;
    options.saveEdit = words.saveEdit;
    options.seed = words.seed;
    for (const Setting &setting : kSettings)
        if (const std::string &value = words.*setting.word;
            !value.empty() && value != Words().*setting.word)
            options.settings[setting.name] = value;
    return options;
}

void Run(const Words &words, const CLI::App &app, const Program &program) {
    if (words.quiet)
        BeQuiet();
    if (words.output.file.empty() && words.saveEdit.empty())
        throw Failure("-o: give the output's name, or --save-edit alone");
    const hostkit::Plugin plugin(program.pluginFile);
    Render(Understand(words, app, plugin), plugin);
}

void RunPreview(const Words &words, const CLI::App &app, const Program &program) {
    if (words.quiet)
        BeQuiet();
    const Time around = ParseTime(words.around, "--around");
    const hostkit::Plugin plugin(program.pluginFile);
    Preview(Understand(words, app, plugin), around, plugin);
}

std::string Footer() {
    std::string text =
        "A clip is a video or still picture in anything FFmpeg decodes, - is one on standard "
        "input.\nclip.mp4#t=2.5,7 is its part from 2.5 to 7 s; either time may be missing. Times "
        "are "
        "seconds\n(1.5), milliseconds (500ms), frames of the result (12f) or 0:01.5.\n"
        "Clips are fitted to the size and rate of the first that moves unless told otherwise.\n"
        "An overlap's first frame is wholly the outgoing clip's and its last wholly the incoming "
        "one's:\nframe i of n is drawn at position i / (n - 1). Frames are counted from 0, in file "
        "names of\npictures too.\n"
        "The result gets its name when it is whole: what was there before stays until then.\n\n"
        "Easings:";
    for (const hostkit::Easing &easing : hostkit::Easings())
        text += std::string("\n  ") + easing.name + ": " + easing.description;
    return text;
}

/// One option that takes a value.
template<class Value>
CLI::Option *Add(CLI::App &app, const char *name, Value &value, const char *type,
                 const char *description) {
    return app.add_option(name, value, description)->type_name(type);
}

void AddClips(CLI::App &app, Words &words) {
    Add(app, "CLIP", words.clips, "FILE...", "The clips in their order, or an edit list (.otio)")
        ->required();
    Add(app, "-t,--transition", words.transitions, "NAME|any",
        "What joins the clips: a name of transitions list, cut, dissolve, fade (through black) or "
        "any; once for all joints or once for each")
        ->allow_extra_args(false);
    Add(app, "-d,--duration", words.durations, "TIME",
        "Length of the transition, once for all joints or once for each. Eased transitions move "
        "mostly in the middle of it: give them more than a linear one")
        ->allow_extra_args(false)
        ->default_str("1");
    Add(app, "--still", words.still, "TIME", "How long a still picture shows")
        ->capture_default_str();
}

void AddParts(CLI::App &app, Words &words) {
    app.add_flag("--only", words.only, "Only the overlaps");
    Add(app, "--frames", words.frames, "FIRST:END",
        "Only these frames of the result, equal to those of the whole: the first, and the one "
        "after the last");
    Add(app, "--save-edit", words.saveEdit, "FILE.otio",
        "Write the command as an edit list, which render reads and editors do; -o may then be left "
        "out");
}

void AddDrawing(CLI::App &app, Words &words) {
    Add(app, "--path", words.path, "yuv|rgb",
        "How frames are drawn: planar, or packed, which keeps transparency where the output can "
        "hold it")
        ->capture_default_str();
    Add(app, "--ease", words.easing, "NAME", "How the position moves, see below")
        ->capture_default_str();
    app.add_flag("--reverse", words.reverse, "Draw the transition backwards: what opens closes");
    Add(app, "--seed", words.seed, "N", "For transitions that draw random numbers, and for any")
        ->capture_default_str();
    Add(app, "--size", words.size, "WxH", "Size of the result, else that of the first moving clip");
    Add(app, "--rate", words.rate, "RATE",
        "Frames per second, else those of the first moving clip");
    Add(app, "--fit", words.fit, "contain|cover|stretch|blur",
        "How a clip of another shape fills the result: with bars, cut off, distorted, or with "
        "itself blurred beside it")
        ->capture_default_str();
    Add(app, "--interlaced", words.interlaced, "remove|keep", "What becomes of interlacing")
        ->capture_default_str();
}

void AddOutput(CLI::App &app, Words &words) {
    Add(app, "-o,--output", words.output.file, "FILE",
        ".mp4 .mkv .mov (H.264), .webm, .y4m, .gif, out-%04d.png and others, or - for YUV4MPEG2 on "
        "standard output");
    Add(app, "--codec", words.output.codec, "NAME",
        "h264, hevc, av1, vp9, prores, qtrle, ffv1 or the name of an encoder of FFmpeg");
    Add(app, "--quality", words.output.quality, "N",
        "In the codec's own terms: constant rate factor, else quantiser scale");
    Add(app, "--preset", words.output.preset, "NAME", "Of the codec, such as medium or veryfast");
    Add(app, "--depth", words.output.depth, "8|10",
        "Bits of the result; the transitions themselves are drawn in 8")
        ->capture_default_str();
    Add(app, "--copy", words.copy, "auto|never|always",
        "Whether clips that are already what the result is are copied and only what changes is "
        "encoded: where that is possible, never, or else fail and say why")
        ->capture_default_str();
    Add(app, "--part", words.part, "K/N",
        "Only the K-th of N parts, which transitions join makes into the whole")
        ->type_name("K/N");
}

void AddQuiet(CLI::App &app, Words &words) {
    app.add_flag("-q,--quiet", words.quiet, "Say nothing but errors");
}

void AddSound(CLI::App &app, Words &words) {
    app.add_flag("--no-audio", words.noAudio, "Leave out the clips' sound");
    Add(app, "--audio-curve", words.curve, "linear|equal-power", "How the clips' sounds cross")
        ->capture_default_str();
    Add(app, "--audio-codec", words.output.soundCodec, "NAME",
        "aac, opus, mp3, flac, pcm or the name of an encoder of FFmpeg");
    Add(app, "--audio-bitrate", words.output.soundBitrate, "KBITS", "In kbit/s, for all channels")
        ->check(Between(1, 10000));
    Add(app, "--music", words.music, "FILE",
        "Play under the clips' sound, or with --no-audio instead of it, over and over to the end, "
        "where it fades out");
    Add(app, "--music-volume", words.musicVolume, "PERCENT",
        "Of the music; else 30 under other sound and 100 alone")
        ->check(Between(0, 1000));
}

} // namespace

void AddRender(CLI::App &app, Program &program) {
    const auto words = std::make_shared<Words>();
    CLI::App *render = app.add_subcommand(
        "render", "Join clips and still pictures by transitions over their overlaps");
    AddClips(*render, *words);
    AddParts(*render, *words);
    AddDrawing(*render, *words);
    AddOutput(*render, *words);
    AddQuiet(*render, *words);
    AddSound(*render, *words);
    render->footer(Footer());
    render->callback([words, render, &program] { Run(*words, *render, program); });
}

void AddPreview(CLI::App &app, Program &program) {
    const auto words = std::make_shared<Words>();
    CLI::App *preview = app.add_subcommand(
        "preview", "Show what render would make around each joint, small and fast");
    AddClips(*preview, *words);
    Add(*preview, "--around", words->around, "TIME", "How much of the clips on either side")
        ->capture_default_str();
    Add(*preview, "-o,--output", words->output.file, "FILE",
        "A file instead of a player (mpv or ffplay)");
    AddDrawing(*preview, *words);
    AddSound(*preview, *words);
    AddQuiet(*preview, *words);
    preview->callback([words, preview, &program] { RunPreview(*words, *preview, program); });
}

} // namespace host
