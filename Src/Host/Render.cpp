#include "Render.h"

#include "Channel.h"
#include "Clip.h"
#include "EditList.h"
#include "Failure.h"
#include "Joints.h"
#include "Messages.h"
#include "OutputFile.h"
#include "Painter.h"
#include "Progress.h"
#include "Shelf.h"
#include "Sink.h"
#include "Sound.h"
#include "SoundPackets.h"
#include "Timeline.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <map>
#include <set>
#include <thread>

extern "C" {
#include <libavutil/parseutils.h>
}

namespace host {

namespace {

namespace fs = std::filesystem;

/// A frame of the result on its way: first the clips' pictures, then what is written.
struct Picture {
    Step step;
    Frame a, b;
};

/// The work of a render, decided before it begins.
struct Work {
    std::vector<Clip> clips;
    std::vector<Joint> joints;
    Canvas canvas;
    Timeline timeline;
    Range range; ///< of the frames that are written
    bool only;
    std::optional<CopyPlan> copy; ///< of a result in pieces
};

// -------------------------------------------------------------------------------------------------
// What the result is
// -------------------------------------------------------------------------------------------------

/// Videos are in video range whatever the clips are; players expect it, and the planar paths draw
/// so. High dynamic range needs more than 8 bits.
Colours ResultColours(const Clip &lead, AVPixelFormat pixels, int depth, int height) {
    Colours colours;
    if (!lead.isStill && !IsRgb(lead.pixels) && !IsGrey(lead.pixels))
        colours = lead.colours;
    if ((IsHdr(colours) || IsWide(colours)) && depth == 8)
        colours = {AVCOL_RANGE_MPEG, AVCOL_SPC_BT709, AVCOL_PRI_BT709, AVCOL_TRC_BT709,
                   AVCHROMA_LOC_LEFT};
    colours.range = AVCOL_RANGE_MPEG;
    return Assumed(colours, pixels, height);
}

/// Codecs that keep chroma at half resolution take even sizes only.
void MakeSizeEven(const RenderOptions &options, Canvas &canvas) {
    const int width = std::max(2, canvas.width / 2 * 2),
              height = std::max(2, canvas.height / 2 * 2);
    if (width == canvas.width && height == canvas.height)
        return;
    const std::string even = std::to_string(width) + "x" + std::to_string(height);
    if (!options.size.empty())
        throw Failure(options.output.file +
                      ": its codec needs an even width and height; give --size " + even);
    Tell("The codec needs an even width and height: " + std::to_string(canvas.width) + "x" +
         std::to_string(canvas.height) + " becomes " + even + ".");
    canvas.width = width;
    canvas.height = height;
}

/// Photographs are larger than films.
void LimitSize(Canvas &canvas) {
    constexpr double kWidth = 1920, kHeight = 1080;
    const double factor = std::min(kWidth / canvas.width, kHeight / canvas.height);
    if (factor >= 1)
        return;
    canvas.width = 2 * int(canvas.width * factor / 2 + 0.5);
    canvas.height = 2 * int(canvas.height * factor / 2 + 0.5);
    Tell("The pictures become " + std::to_string(canvas.width) + "x" +
         std::to_string(canvas.height) + "; --size gives another size.");
}

Canvas MakeCanvas(const RenderOptions &options, const OutputPlan &plan, const Clip &lead) {
    Canvas canvas;
    canvas.width = lead.width;
    canvas.height = lead.height;
    canvas.aspect = lead.aspect;
    canvas.rate = lead.rate;
    canvas.fit = options.fit;
    canvas.pixels = plan.pixels;
    if (!options.rate.empty() && av_parse_video_rate(&canvas.rate, options.rate.c_str()) < 0)
        throw Failure("--rate " + options.rate + ": give frames per second, as 25 or 30000/1001");
    if (!options.size.empty()) {
        const Size size = ParseSize(options.size);
        canvas.width = size.width;
        canvas.height = size.height;
        canvas.aspect = {1, 1};
    } else if (lead.isStill && plan.kind == OutputPlan::Kind::Container && !plan.IsY4m()) {
        LimitSize(canvas);
    }
    if (plan.needsEvenSize)
        MakeSizeEven(options, canvas);
    canvas.colours = ResultColours(lead, plan.pixels, options.output.depth, canvas.height);
    canvas.keepsInterlacing = options.keepInterlacing;
    if (options.keepInterlacing)
        canvas.fields = lead.fields;
    return canvas;
}

/// What becomes of the clips that is not plain to see.
void TellChanges(const RenderOptions &options, const Work &work, const OutputPlan &plan) {
    const Canvas &canvas = work.canvas;
    bool hasSound = false;
    std::set<std::string> told;
    for (const Clip &clip : work.clips) {
        if (!told.insert(clip.name).second)
            continue;
        hasSound = hasSound || clip.sound.rate;
        if (IsHdr(clip.colours) && !IsHdr(canvas.colours))
            Tell(clip.name +
                 ": its high dynamic range is tone-mapped to the result's standard one");
        else if (!clip.isStill && BitsOf(clip.pixels) > 8 && BitsOf(canvas.pixels) == 8)
            Tell(clip.name + ": its " + std::to_string(BitsOf(clip.pixels)) +
                 " bits become 8; --depth 10 keeps 10 outside the transitions");
        if (!clip.leftOut.empty())
            Tell(clip.name + ": left out: " + clip.leftOut);
        if (clip.isPipe && clip.sound.rate && !options.sound.noClips)
            Tell(clip.name + ": its sound is left out, for a pipe can be read only once");
    }
    if (options.output.depth == 10)
        Tell("The transitions are drawn in 8 bits, the clips stay in 10.");
    if (!plan.sound && (hasSound || !options.sound.music.empty()) && !options.sound.noClips)
        Tell((options.output.file == "-" ? "standard output" : options.output.file) +
             ": files of this kind hold no sound, so it is left out");
}

// -------------------------------------------------------------------------------------------------
// What it is made of
// -------------------------------------------------------------------------------------------------

std::vector<Clip> ProbeClips(const RenderOptions &options, Indexing indexing) {
    std::vector<Clip> clips;
    if (std::count_if(options.clips.begin(), options.clips.end(),
                      [](const Wish &wish) { return wish.file == kStandardInput; }) > 1)
        throw Failure("only one of the clips can come from standard input");
    std::vector<std::packaged_task<Clip()>> probes; // of each file once
    std::map<std::string, std::shared_future<Clip>> found;
    for (const Wish &wish : options.clips)
        if (!found.contains(wish.file))
            found[wish.file] =
                probes.emplace_back([indexing, &wish] { return ProbeClip(wish.file, indexing); })
                    .get_future()
                    .share();
    {
        std::atomic<std::size_t> next = 0;
        std::vector<std::jthread> threads;
        while (
            threads.size() <
            std::min<std::size_t>(probes.size(), std::max(1u, std::thread::hardware_concurrency())))
            threads.emplace_back([&] {
                for (std::size_t i = next++; i < probes.size(); i = next++)
                    probes[i]();
            });
    }
    for (const Wish &wish : options.clips)
        clips.push_back(found[wish.file].get());
    return clips;
}

Path PathOf(const JointWish &wish, const hostkit::Transition &transition) {
    RequirePath(transition, wish.path);
    return wish.path;
}

std::vector<const hostkit::Transition *> ChooseRow(const RenderOptions &options,
                                                   const hostkit::Plugin &plugin) {
    std::vector<const hostkit::Transition *> row, candidates;
    for (const JointWish &wish : options.joints)
        row.push_back(wish.name == hostkit::kAnyJoint ? nullptr
                                                      : &RequireTransition(plugin, wish.name));
    for (const hostkit::Transition &transition : plugin.Transitions())
        if (transition.yuv && transition.rgb && !transition.info.countsBytes) // whole by any path
            candidates.push_back(&transition);
    hostkit::ChooseAny(row, candidates, options.seed);
    return row;
}

std::vector<Joint> ChooseJoints(const RenderOptions &options, const hostkit::Plugin &plugin,
                                AVRational rate) {
    const std::vector<const hostkit::Transition *> row = ChooseRow(options, plugin);
    std::vector<Joint> joints;
    for (std::size_t i = 0; i < row.size(); ++i) {
        const JointWish &wish = options.joints[i];
        const std::int64_t overlap = std::max<std::int64_t>(1, FramesIn(wish.length, rate));
        joints.push_back({row[i],
                          PathOf(wish, *row[i]),
                          {hostkit::FindEasing(wish.easing), wish.reverse, wish.seed},
                          hostkit::Overlaps(*row[i]) ? overlap : 0});
    }
    return joints;
}

/// The frames of a clip between its in and out points; a still picture's are as many as its
/// transitions need.
std::optional<std::int64_t> CountFrames(const RenderOptions &options, std::size_t index,
                                        const std::vector<Joint> &joints, AVRational rate,
                                        Clip &clip) {
    const Wish &wish = options.clips[index];
    const std::int64_t in = wish.in ? FramesIn(*wish.in, rate) : 0;
    const std::int64_t out = wish.out ? FramesIn(*wish.out, rate) : INT64_MAX;
    if (wish.out && out <= in)
        throw Failure(clip.name + ": its out point is not behind its in point");
    if (clip.isStill) {
        const std::int64_t needed = (index ? joints[index - 1].overlap : 0) +
                                    (index < joints.size() ? joints[index].overlap : 0);
        return wish.out ? out - in
                        : std::max({FramesIn(options.still, rate), needed, std::int64_t(1)});
    }
    clip.in = in;
    const std::optional<std::int64_t> all = FramesOf(clip, rate);
    if (!all)
        return wish.out ? std::optional(out - in) : std::nullopt;
    if (in >= *all)
        throw Failure(clip.name + ": ends before its in point, after " + Counted(*all, "frame"));
    if (wish.out && out > *all)
        throw Failure(clip.name + ": ends before its out point, after " + Counted(*all, "frame"));
    return std::min(out, *all) - in;
}

Work Prepare(const RenderOptions &options, const hostkit::Plugin &plugin, const OutputPlan &plan,
             std::vector<Clip> clips) {
    const Canvas canvas = MakeCanvas(options, plan, Lead(clips));
    std::vector<Joint> joints = ChooseJoints(options, plugin, canvas.rate);
    std::vector<Part> parts;
    for (std::size_t i = 0; i < clips.size(); ++i) {
        Part part;
        part.name = clips[i].name;
        part.frames = CountFrames(options, i, joints, canvas.rate, clips[i]);
        if (i < joints.size()) {
            part.overlap = joints[i].overlap;
            part.joint = joints[i].transition->name;
        }
        parts.push_back(part);
    }
    const Range range = options.frames.empty() ? Range() : ParseRange(options.frames);
    return {std::move(clips),
            std::move(joints),
            canvas,
            Timeline(std::move(parts), canvas.rate),
            range,
            options.only,
            {}};
}

/// Why a result cannot be put together from pieces; empty when it can.
std::string NoPieces(const RenderOptions &options, const Work &work, const OutputPlan &plan) {
    if (plan.kind != OutputPlan::Kind::Container ||
        (plan.video->id != AV_CODEC_ID_H264 && plan.video->id != AV_CODEC_ID_HEVC))
        return "works for H.264 and H.265 only";
    if (!work.timeline.Length())
        return "does not work with a pipe";
    return options.only || !options.frames.empty() ? "does not go with --only or --frames" : "";
}

/// Divides the result into pieces where that is possible, and says what is copied.
void PlanPieces(const RenderOptions &options, const OutputPlan &plan, Work &work) {
    const std::string reason = NoPieces(options, work, plan);
    if (!reason.empty() && (options.copy == CopyWish::Always || options.part.second > 1))
        throw Failure((options.copy == CopyWish::Always ? "--copy always: " : "--part: ") + reason);
    if (!reason.empty())
        return;
    const std::string kind = plan.container->name;
    const bool holdsCopies =
        kind == "mp4" || kind == "mov" || kind == "matroska" || kind == "mpegts";
    if (!holdsCopies && options.copy == CopyWish::Always)
        throw Failure("--copy always: works for .mp4, .mov, .mkv and .ts only");
    work.copy = PlanCopy(work.clips, work.timeline, work.canvas, plan.video->id,
                         holdsCopies ? options.copy : CopyWish::Never, options.part);
}

// -------------------------------------------------------------------------------------------------
// The making
// -------------------------------------------------------------------------------------------------

void RequireRange(const Work &work, std::int64_t frames) {
    if (frames <= work.range.begin)
        throw Failure("--frames: the result ends before frame " + std::to_string(work.range.begin) +
                      ", it has " + std::to_string(frames));
}

/// How many frames will be written, as far as that is known.
std::optional<std::int64_t> CountWanted(const Work &work) {
    if (!work.timeline.Length())
        return {};
    std::int64_t frames = 0;
    for (const Range &range : work.timeline.Ranges(work.only))
        frames += range.end - range.begin;
    RequireRange(work, frames);
    return std::min(frames, work.range.end) - work.range.begin;
}

/// Where a pipe ends, and with it what is seen, is known only when it has ended: as many of its
/// frames as its overlap is long are held back.
bool LooksAhead(Work &work, Shelf &shelf, std::int64_t time) {
    Step step = work.timeline.At(time);
    const Part &part = work.timeline.Parts()[step.a.clip];
    if (part.frames)
        return time < work.timeline.Length().value_or(INT64_MAX);
    if (const auto frames = shelf.EndBefore(step.a.clip, step.a.frame + part.overlap))
        work.timeline.SetFrames(step.a.clip, *frames);
    return time < work.timeline.Length().value_or(INT64_MAX);
}

/// Reads the pipes whose ends decide where the overlaps are.
void FindOverlaps(Work &work, Shelf &shelf) {
    const std::vector<Part> &parts = work.timeline.Parts();
    for (int clip = 0; clip + 1 < int(parts.size()); ++clip)
        for (std::int64_t frame = 0; !parts[clip].frames; ++frame) {
            const auto frames = shelf.EndBefore(clip, frame + parts[clip].overlap);
            if (frames)
                work.timeline.SetFrames(clip, *frames);
            else
                shelf.Get(clip, frame);
        }
}

/// The frames of the result that are drawn and encoded.
std::vector<Range> Drawn(const Work &work) {
    if (!work.copy)
        return work.timeline.Ranges(work.only);
    std::vector<Range> ranges;
    for (std::size_t i = work.copy->part.first; i < work.copy->part.second; ++i)
        if (work.copy->pieces[i].clip < 0)
            ranges.push_back(work.copy->pieces[i].frames);
    return ranges;
}

/// Sends the clips' pictures for every wanted frame of the result, in order.
void ReadPictures(Work &work, Channel<Picture> &pictures) {
    Shelf shelf(work.clips, work.canvas);
    std::int64_t number = 0;
    if (work.only)
        FindOverlaps(work, shelf);
    for (const Range &range : Drawn(work))
        for (std::int64_t time = range.begin; time < range.end && LooksAhead(work, shelf, time);
             ++time, ++number) {
            if (number >= work.range.end)
                return;
            if (number < work.range.begin)
                continue;
            Picture picture = {work.timeline.At(time), {}, {}};
            picture.step.number = work.copy ? time : number;
            shelf.Leave(picture.step.a.clip);
            picture.a = shelf.Get(picture.step.a.clip, picture.step.a.frame);
            if (picture.step.b)
                picture.b = shelf.Get(picture.step.b->clip, picture.step.b->frame);
            if (!pictures.Send(std::move(picture)))
                return;
        }
    if (!work.copy)
        RequireRange(work, number);
}

/// Reads, draws and writes at the same time, each a few frames ahead of the next.
void Produce(Work &work, Sink &sink, SoundTrack *sound, Progress &progress) {
    constexpr std::size_t kAhead = 4;
    Channel<Picture> read(kAhead), drawn(kAhead);
    const std::optional<std::int64_t> length = work.timeline.Length();
    const std::jthread reader = Stage(read, [&] { ReadPictures(work, read); });
    const std::jthread drawer = Stage(drawn, [&] {
        Painter painter(work.canvas);
        while (std::optional<Picture> picture = read.Receive()) {
            if (picture->b) {
                const Joint &joint = work.joints[picture->step.a.clip];
                picture->a =
                    painter.Paint(joint, picture->step.inOverlap, *picture->a, *picture->b);
                picture->b.reset();
            }
            if (!drawn.Send(std::move(*picture)))
                return;
        }
    });
    struct Release { // before the threads are waited for, however this function ends
        Channel<Picture> &read, &drawn;
        ~Release() {
            read.Abandon();
            drawn.Abandon();
        }
    } const release{read, drawn};
    while (const std::optional<Picture> picture = drawn.Receive()) {
        sink.Write(*picture->a, picture->step.number);
        if (work.copy)
            continue; // its sink sees to the rest
        if (sound)
            sink.WriteSound(*sound->Read(picture->step, length));
        progress.Count();
    }
    sink.Finish();
}

/// Writes the command as an edit list, with the joints that were chosen.
void SaveEdit(const RenderOptions &options, const Work &work) {
    Edit edit;
    for (std::size_t i = 0; i < work.clips.size(); ++i) {
        const Clip &clip = work.clips[i];
        const AVRational rate = work.canvas.rate;
        if (clip.isPipe)
            throw Failure("--save-edit: an edit list cannot name standard input");
        EditClip part = {options.clips[i].file, "", {}, {}};
        if (clip.length)
            part.available =
                Span{{0, av_inv_q(clip.timeBase)}, {*clip.length, av_inv_q(clip.timeBase)}};
        if (clip.isStill || options.clips[i].in || options.clips[i].out)
            part.source = Span{{clip.in, rate}, {*work.timeline.Parts()[i].frames, rate}};
        edit.clips.push_back(part);
    }
    for (std::size_t i = 0; i < work.joints.size(); ++i) {
        const JointWish &wish = options.joints[i];
        const Joint &joint = work.joints[i];
        edit.joints.push_back({joint.transition->name,
                               {joint.overlap, work.canvas.rate},
                               wish.easing,
                               wish.path == Path::Rgb ? "rgb" : "yuv",
                               wish.reverse,
                               wish.seed});
    }
    edit.music = options.sound.music;
    edit.settings = options.settings;
    OutputFile file(options.saveEdit);
    std::ofstream stream(file.Part());
    stream << FormatEdit(edit, options.saveEdit, work.canvas.rate);
    stream.close();
    if (!stream)
        throw Failure(options.saveEdit + ": " + std::strerror(errno));
    file.Keep();
}

/// Writes the result from its pieces.
void Assemble(Work &work, const RenderOptions &options, const OutputPlan &plan,
              const SoundFormat &format, SoundTrack *track, const Tags &tags, Progress &progress) {
    SoundPlan soundPlan;
    std::optional<SoundPackets> packets;
    Assembly assembly = {*work.copy, work.clips, *work.timeline.Length(), nullptr, {}, {}};
    assembly.count = [&] { progress.Count(); };
    if (track && work.copy->copies && plan.sound->id == AV_CODEC_ID_AAC &&
        options.output.soundCodec.empty() && !options.output.soundBitrate &&
        !options.sound.noClips) {
        const std::string reason = PlanSoundCopy(work.clips, work.timeline, work.canvas.rate,
                                                 format, options.sound, soundPlan);
        if (reason.empty()) {
            track->Shift(soundPlan.shifts);
            packets.emplace(work.clips, work.timeline, work.canvas.rate, *track, soundPlan,
                            options.output, *plan.sound, format);
            assembly.sound = &*packets;
        } else {
            Tell("Encodes all of the sound: " + reason + ".");
        }
    }
    if (track && !assembly.sound)
        assembly.readSound = [&](std::int64_t frame) {
            return track->Read(work.timeline.At(frame), work.timeline.Length());
        };
    const auto sink = OpenSink(options.output, plan, work.canvas, format, tags, &assembly);
    Produce(work, *sink, nullptr, progress);
}

void Make(const RenderOptions &options, const hostkit::Plugin &plugin, Indexing indexing) {
    std::vector<Clip> clips = ProbeClips(options, indexing);
    const bool keepsAlpha =
        std::any_of(options.joints.begin(), options.joints.end(),
                    [](const JointWish &wish) { return wish.path == Path::Rgb; }) &&
        std::any_of(clips.begin(), clips.end(), [](const Clip &c) { return HasAlpha(c.pixels); });
    const bool isWritten = !options.output.file.empty();
    const OutputPlan plan = isWritten ? PlanOutput(options.output, keepsAlpha) : OutputPlan();
    Work work = Prepare(options, plugin, plan, std::move(clips));
    const std::optional<std::int64_t> wanted = CountWanted(work);
    if (!options.saveEdit.empty())
        SaveEdit(options, work);
    if (!isWritten)
        return;
    TellChanges(options, work, plan);
    PlanPieces(options, plan, work);
    if (wanted)
        Tell(work.timeline.Arithmetic());
    if (work.copy && !work.copy->summary.empty())
        Tell(work.copy->summary);
    SoundFormat format;
    if (plan.sound && (!work.copy || work.copy->part.first == 0)) // goes with the first part
        format = RichestSound(work.clips, options.sound);
    if (format.rate)
        format = PlanSound(plan, format);
    std::optional<SoundTrack> sound;
    if (format.rate)
        sound.emplace(work.clips, options.sound, format, work.canvas.rate);
    const Clip &first = work.clips.front();
    const auto [part, parts] = options.part;
    const std::string partTag =
        parts > 1 ? "part " + std::to_string(part) + " of " + std::to_string(parts) : "";
    const Tags tags = {first.title, first.date, partTag};
    const Range frames = work.copy ? work.copy->Frames() : Range{0, wanted.value_or(0)};
    Progress progress(frames.end - frames.begin);
    if (work.copy)
        Assemble(work, options, plan, format, sound ? &*sound : nullptr, tags, progress);
    else
        Produce(work, *OpenSink(options.output, plan, work.canvas, format, tags),
                sound ? &*sound : nullptr, progress);
    progress.Finish();
    if (!wanted && work.timeline.Length())
        Tell(work.timeline.Arithmetic());
}

} // namespace

void RefuseOverwriting(const RenderOptions &options) {
    std::error_code missing;
    for (const Wish &wish : options.clips)
        if (fs::is_regular_file(options.output.file, missing) &&
            fs::equivalent(wish.file, options.output.file, missing))
            throw Failure(options.output.file + ": is one of the clips");
}

void ChooseAny(RenderOptions &options, const hostkit::Plugin &plugin) {
    const std::vector<const hostkit::Transition *> row = ChooseRow(options, plugin);
    for (std::size_t i = 0; i < row.size(); ++i)
        options.joints[i].name = row[i]->name;
}

const Clip &Lead(const std::vector<Clip> &clips) {
    const auto moving =
        std::find_if(clips.begin(), clips.end(), [](const Clip &clip) { return !clip.isStill; });
    return moving == clips.end() ? clips.front() : *moving;
}

void Render(const RenderOptions &options, const hostkit::Plugin &plugin) {
    RefuseOverwriting(options);
    SilenceLibraries();
    HandleSignals();
    for (const JointWish &wish : options.joints)
        if (wish.name != hostkit::kAnyJoint)
            PathOf(wish, RequireTransition(plugin, wish.name));
    if (options.copy == CopyWish::Never)
        return Make(options, plugin, Indexing::None);
    if (options.part.second > 1) // divided alike, whichever part comes upon a fault
        return Make(options, plugin, Indexing::Thorough);
    try {
        Make(options, plugin, Indexing::Quick);
    } catch (const CopyFailure &failure) {
        Tell(std::string(failure.what()) + ". Begins again, with a look into every packet first.");
        Make(options, plugin, Indexing::Thorough);
    }
}

} // namespace host
