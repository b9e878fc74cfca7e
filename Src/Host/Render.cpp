/// `transitions render`: clip A, a transition over the overlap, clip B.

#include "Audio.h"
#include "Channel.h"
#include "Convert.h"
#include "OutputFile.h"
#include "Program.h"
#include "Progress.h"
#include "Sink.h"
#include "Source.h"
#include "Timeline.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <thread>

extern "C" {
#include <libavutil/parseutils.h>
#include <libavutil/pixdesc.h>
}

namespace host {

namespace {

namespace fs = std::filesystem;

struct RenderOptions {
    std::string transition;
    std::string a, b;
    OutputOptions output;
    double seconds = 1;
    double stillSeconds = 3;
    Path path = Path::Yuv;
    std::string size;
    std::string rate;
    Fit fit = Fit::Contain;
    std::string easing = "linear";
    bool reverse = false;
    std::uint64_t seed = 0;
    bool only = false;
    std::string frames;
    bool noAudio = false;
    bool quiet = false;
};

/// A frame of the result on its way to the file.
struct Drawn {
    Step step; ///< without its pictures
    Frame picture;
};

/// Draws the frames of the result, or passes them on in the file's pixels.
class Painter {
public:
    Painter(const hostkit::Transition &drawnTransition, const RenderOptions &renderOptions,
            const Target &result, AVPixelFormat filePixels, std::int64_t overlapFrames)
        : transition(drawnTransition), options(renderOptions), target(result), pixels(filePixels),
          overlap(overlapFrames), motion{hostkit::FindEasing(options.easing), options.reverse,
                                         options.seed},
          passA(target), passB(target), passDrawn(target), inputA(options.path, target),
          inputB(options.path, target) {}

    Frame Paint(const Step &step) {
        if (!step.b)
            return passA.ToFrame(*step.a, pixels);
        if (!step.a)
            return passB.ToFrame(*step.b, pixels);
        hostkit::Frame out(options.path, target.width, target.height);
        Draw(transition, motion, hostkit::MomentOf(step.inOverlap, overlap), out,
             inputA.Load(*step.a), inputB.Load(*step.b));
        return passDrawn.ToFrame(*Wrap(std::move(out), target), pixels);
    }

private:
    /// A clip's frame as the plug-in is given it, kept while the clip stands still.
    struct Input {
        Input(Path path, const Target &target)
            : converter(target), frame(path, target.width, target.height) {}
        const hostkit::Frame &Load(const AVFrame &picture) {
            if (!loaded || loaded->data[0] != picture.data[0])
                converter.ToDrawn(picture, frame);
            loaded = Share(picture);
            return frame;
        }
        Converter converter;
        Frame loaded;
        hostkit::Frame frame;
    };

    const hostkit::Transition &transition;
    const RenderOptions &options;
    Target target;
    AVPixelFormat pixels;
    std::int64_t overlap;
    hostkit::Motion motion;
    Converter passA, passB, passDrawn;
    Input inputA, inputB;
};

/// The result takes after the first clip, and what a still picture cannot tell after the second.
VideoFormat ResultFormat(const RenderOptions &options, const VideoFormat &a, const VideoFormat &b) {
    VideoFormat result = a;
    result.isStill = false;
    const VideoFormat &moving = a.isStill ? b : a;
    result.rate = moving.rate;
    if (!options.rate.empty() && av_parse_video_rate(&result.rate, options.rate.c_str()) < 0)
        throw Failure("--rate " + options.rate + ": give frames per second, as 25 or 30000/1001");
    if (!options.size.empty()) {
        const Size size = ParseSize(options.size);
        result.width = size.width;
        result.height = size.height;
        result.aspect = {1, 1};
    }
    if (!moving.isStill && moving.isYuv)
        result.colours = moving.colours;
    else // pictures have colours of their own kind, which players of video do not expect
        result.colours = Assumed({}, result.height);
    return result;
}

/// Codecs that keep chroma at half resolution take even sizes only.
void MakeSizeEven(const RenderOptions &options, VideoFormat &result) {
    const int width = std::max(2, result.width / 2 * 2);
    const int height = std::max(2, result.height / 2 * 2);
    if (width == result.width && height == result.height)
        return;
    const std::string even = std::to_string(width) + "x" + std::to_string(height);
    if (!options.size.empty())
        throw Failure(options.output.file +
                      ": its codec needs an even width and height; give --size " + even);
    if (!options.quiet)
        std::fprintf(stderr, "The codec needs an even width and height: %dx%d becomes %s.\n",
                     result.width, result.height, even.c_str());
    result.width = width;
    result.height = height;
}

std::int64_t FramesIn(double seconds, AVRational rate) {
    return std::max<std::int64_t>(1, std::llround(seconds * av_q2d(rate)));
}

void CheckOptions(const RenderOptions &options) {
    constexpr double kLongest = 3600;
    for (const auto &[name, seconds] :
         {std::pair("--duration", options.seconds), std::pair("--still", options.stillSeconds)})
        if (!(seconds > 0 && seconds <= kLongest))
            throw Failure(std::string(name) + ": give seconds above 0, at most 3600");
    if (!hostkit::FindEasing(options.easing)) {
        std::string names;
        for (const hostkit::Easing &easing : hostkit::Easings())
            names += (names.empty() ? "" : ", ") + std::string(easing.name);
        throw Failure("--ease " + options.easing + ": there are " + names);
    }
    if (options.a == "-" && options.b == "-")
        throw Failure("only one of the clips can come from standard input");
    std::error_code missing;
    for (const std::string &clip : {options.a, options.b})
        if (fs::is_regular_file(options.output.file, missing) &&
            fs::equivalent(clip, options.output.file, missing))
            throw Failure(options.output.file + ": is one of the clips");
}

/// Tells how the length of the result comes about.
std::string Arithmetic(const Cut &cut, const Lengths &lengths) {
    char text[256];
    const std::int64_t joined = lengths.a + lengths.b - cut.overlap;
    std::snprintf(text, sizeof text,
                  cut.onlyOverlap
                      ? "A %" PRId64 ", B %" PRId64 ": only the overlap, %" PRId64 " frames"
                      : "A %" PRId64 " + B %" PRId64 " - overlap %" PRId64 " = %" PRId64 " frames",
                  lengths.a, lengths.b, cut.overlap, joined);
    return text;
}

/// How many frames will be written.
std::int64_t Wanted(const Cut &cut, const Lengths &lengths) {
    const std::int64_t all = cut.onlyOverlap ? cut.overlap : lengths.a + lengths.b - cut.overlap;
    return std::min(all, cut.range.end) - cut.range.begin;
}

std::optional<AudioFormat> AudioOf(const RenderOptions &options, const OutputPlan &plan) {
    if (options.noAudio || !plan.audio)
        return {};
    std::optional<AudioFormat> format = ProbeAudio(options.a);
    if (!format)
        format = ProbeAudio(options.b);
    return format ? std::optional(ResultAudio(*format, *plan.audio)) : std::nullopt;
}

/// Runs the work in a thread of its own; what it throws arrives at the receiver of its channel.
template<class Item, class Work>
std::jthread Stage(Channel<Item> &output, Work work) {
    return std::jthread([&output, work] {
        try {
            work();
            output.Finish();
        } catch (...) {
            output.Fail(std::current_exception());
        }
    });
}

/// Reads, draws and writes at the same time, each a few frames ahead of the next.
Lengths Produce(SteadySource &a, SteadySource &b, const Cut &cut, Painter &painter, Sink &sink,
                AudioMix *audio, Progress &progress) {
    constexpr std::size_t kAhead = 4;
    Channel<Step> steps(kAhead);
    Channel<Drawn> drawn(kAhead);
    Lengths lengths;
    const std::jthread reader = Stage(steps, [&] { lengths = Join(a, b, cut, steps); });
    const std::jthread drawer = Stage(drawn, [&] {
        while (std::optional<Step> step = steps.Receive()) {
            Frame picture = painter.Paint(*step);
            step->a.reset();
            step->b.reset();
            if (!drawn.Send({std::move(*step), std::move(picture)}))
                return;
        }
    });
    struct Release { // before the threads are waited for, however this function ends
        Channel<Step> &steps;
        Channel<Drawn> &drawn;
        ~Release() {
            steps.Abandon();
            drawn.Abandon();
        }
    } const release{steps, drawn};
    while (const std::optional<Drawn> frame = drawn.Receive()) {
        sink.Write(*frame->picture, frame->step.number);
        if (audio)
            sink.WriteAudio(*audio->Read(frame->step.time, frame->step.overlapStart, cut.overlap));
        progress.Count();
    }
    sink.Finish();
    return lengths; // written before the channels were finished
}

void Render(const RenderOptions &options, const Program &program) {
    CheckOptions(options);
    const hostkit::Plugin plugin(program.pluginFile);
    const hostkit::Transition &transition = RequireTransition(plugin, options.transition);
    RequirePath(transition, options.path);
    const Range range = options.frames.empty() ? Range() : ParseRange(options.frames);

    SilenceLibraries();
    HandleSignals();
    std::unique_ptr<Source> sourceA = OpenSource(options.a), sourceB = OpenSource(options.b);
    const bool hasAlpha =
        options.path == Path::Rgb && (sourceA->Format().hasAlpha || sourceB->Format().hasAlpha);
    const OutputPlan plan = PlanOutput(options.output, hasAlpha);
    VideoFormat result = ResultFormat(options, sourceA->Format(), sourceB->Format());
    if (plan.needsEvenSize)
        MakeSizeEven(options, result);
    const Target target = {result.width, result.height, result.aspect, result.colours, options.fit};
    const std::int64_t overlap = FramesIn(options.seconds, result.rate);
    const std::int64_t still = std::max(FramesIn(options.stillSeconds, result.rate), overlap);
    const Cut cut = {sourceA->Name(), sourceB->Name(), overlap, options.only, range};
    SteadySource a(std::move(sourceA), result.rate, still);
    SteadySource b(std::move(sourceB), result.rate, still);

    Lengths expected;
    const std::optional<std::int64_t> scannedA = a.ScanFrames(), scannedB = b.ScanFrames();
    if (scannedA && scannedB) {
        expected = {*scannedA, *scannedB, true};
        RequireLengths(cut, expected);
        if (!options.quiet)
            std::fprintf(stderr, "%s\n", Arithmetic(cut, expected).c_str());
    }
    const std::optional<AudioFormat> audioFormat = AudioOf(options, plan);
    std::optional<AudioMix> audio;
    if (audioFormat)
        audio.emplace(options.a, options.b, *audioFormat, result.rate);
    const std::unique_ptr<Sink> sink =
        OpenSink(options.output, plan, result, audioFormat ? &*audioFormat : nullptr);
    Painter painter(transition, options, target, plan.pixels, overlap);
    Progress progress(expected.areWhole ? Wanted(cut, expected) : 0, options.quiet);
    const Lengths lengths = Produce(a, b, cut, painter, *sink, audio ? &*audio : nullptr, progress);
    progress.Finish();
    if (!options.quiet && lengths.areWhole && (lengths.a != expected.a || lengths.b != expected.b))
        std::fprintf(stderr, "%s\n", Arithmetic(cut, lengths).c_str());
}

std::string Footer() {
    std::string text =
        "A and B are clips or still pictures in anything FFmpeg decodes; - is YUV4MPEG2 on "
        "standard\ninput. B is fitted to the size and frame rate of A unless told otherwise.\n"
        "The overlap's first frame is wholly A's and its last wholly B's: frame i of n is drawn "
        "at\nposition i / (n - 1). Frames are counted from 0, in file names of pictures too.\n"
        "The result gets its name when it is whole: what was there before stays until then.\n\n"
        "Easings:";
    for (const hostkit::Easing &easing : hostkit::Easings())
        text += std::string("\n  ") + easing.name + ": " + easing.description;
    return text;
}

/// Names that stand for values, shown by the option's own words.
template<class Value>
CLI::Validator Choice(std::map<std::string, Value> names) {
    return CLI::CheckedTransformer(std::move(names)).description("");
}

/// One option that takes a value.
template<class Value>
CLI::Option *Add(CLI::App &app, const char *name, Value &value, const char *type,
                 const char *description) {
    return app.add_option(name, value, description)->type_name(type);
}

void AddTiming(CLI::App &app, RenderOptions &options) {
    Add(app, "A", options.a, "FILE", "The outgoing clip")->required();
    Add(app, "B", options.b, "FILE", "The incoming clip")->required();
    Add(app, "-t,--transition", options.transition, "NAME", "Its name, see: transitions list")
        ->required();
    Add(app, "-d,--duration", options.seconds, "SECONDS", "Length of the transition")
        ->capture_default_str();
    Add(app, "--still", options.stillSeconds, "SECONDS", "How long a still picture shows")
        ->capture_default_str();
    app.add_flag("--only", options.only, "Only the overlap");
    Add(app, "--frames", options.frames, "FIRST:END",
        "Only these frames of the result, equal to those of the whole: the first, and the one "
        "after the last");
}

void AddDrawing(CLI::App &app, RenderOptions &options) {
    Add(app, "--path", options.path, "yuv|rgb",
        "How frames are drawn: planar, or packed, which keeps transparency where the output can "
        "hold it")
        ->transform(Choice<Path>({{"yuv", Path::Yuv}, {"rgb", Path::Rgb}}))
        ->type_name("yuv|rgb")
        ->default_str("yuv");
    Add(app, "--ease", options.easing, "NAME", "How the position moves, see below")
        ->capture_default_str();
    app.add_flag("--reverse", options.reverse, "Draw the transition backwards: what opens closes");
    Add(app, "--seed", options.seed, "N", "For transitions that draw random numbers")
        ->capture_default_str();
    Add(app, "--size", options.size, "WxH", "Size of the result, else that of A");
    Add(app, "--rate", options.rate, "RATE", "Frames per second of the result, else those of A");
    Add(app, "--fit", options.fit, "contain|cover|stretch",
        "How a clip of another shape fills the result: with bars, cut off or distorted")
        ->transform(Choice<Fit>(
            {{"contain", Fit::Contain}, {"cover", Fit::Cover}, {"stretch", Fit::Stretch}}))
        ->type_name("contain|cover|stretch")
        ->default_str("contain");
}

void AddOutput(CLI::App &app, RenderOptions &options) {
    Add(app, "-o,--output", options.output.file, "FILE",
        ".mp4 .mkv .mov (H.264), .webm, .y4m, .gif, out-%04d.png, or - for YUV4MPEG2 on standard "
        "output")
        ->required();
    Add(app, "--codec", options.output.codec, "NAME",
        "h264, h265, vp9, prores, qtrle, ffv1 or the name of an encoder of FFmpeg");
    Add(app, "--quality", options.output.quality, "N",
        "In the codec's own terms: constant rate factor, else quantiser scale");
    Add(app, "--preset", options.output.preset, "NAME", "Of the codec, such as medium or veryfast");
    app.add_flag("--no-audio", options.noAudio, "Leave out the clips' sound");
    app.add_flag("-q,--quiet", options.quiet, "Say nothing but errors");
}

} // namespace

void AddRender(CLI::App &app, Program &program) {
    auto options = std::make_shared<RenderOptions>();
    CLI::App *render = app.add_subcommand(
        "render", "Play clip A, a transition into clip B over the overlap of the two, then clip B");
    AddTiming(*render, *options);
    AddDrawing(*render, *options);
    AddOutput(*render, *options);
    render->footer(Footer());
    render->callback([options, &program] { Render(*options, program); });
}

} // namespace host
