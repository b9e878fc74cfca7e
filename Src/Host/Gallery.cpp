/// `transitions gallery`: a page on which all transitions move between two pictures.

#include "Encoder.h"
#include "Failure.h"
#include "GalleryPage.h"
#include "Messages.h"
#include "OutputFile.h"
#include "Plan.h"
#include "Progress.h"
#include "Samples.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <future>
#include <iterator>
#include <mutex>
#include <optional>
#include <thread>

extern "C" {
#include <libavutil/base64.h>
#include <libavutil/opt.h>
}

namespace host {

namespace {

namespace fs = std::filesystem;
using hostkit::Transition;
using json = nlohmann::ordered_json;

struct GalleryOptions {
    SampleOptions samples;
    std::vector<std::string> names;
    std::string output = "gallery.html";
    std::string path = "both";
    int width = 320;
    int steps = 25;
    std::optional<int> quality; ///< without one, the best of kQualities that keeps to the limit
    bool isLossless = false;
    double limit = 15; ///< of the page, in megabytes
    std::uint64_t seed = 0;
};

/// Tried from the first on until the page keeps to its limit.
constexpr int kQualities[] = {60, 45, 30, 15, 0};

// ---------------------------------------------------------------------------------------------
// Pictures
// ---------------------------------------------------------------------------------------------

/// A frame's pixels, opaque, without padding: what a page's frame is known by.
using Pixels = std::string;

Pixels PixelsOf(const AVFrame &frame) {
    const std::size_t pitch = std::size_t(frame.width) * 4;
    Pixels pixels(pitch * frame.height, '\0');
    for (int y = 0; y < frame.height; ++y)
        std::memcpy(&pixels[y * pitch], frame.data[0] + std::ptrdiff_t(y) * frame.linesize[0],
                    pitch);
    for (std::size_t i = 3; i < pixels.size(); i += 4)
        pixels[i] = '\xff';
    return pixels;
}

/// Makes the pixels transparent that the picture below shows as well.
void LeaveOut(Pixels &frame, const Pixels &below) {
    for (std::size_t i = 0; i < frame.size(); i += 4)
        if (std::equal(&frame[i], &frame[i] + 4, &below[i]))
            std::fill_n(&frame[i], 4, '\0');
}

/// How many pixels two frames share.
std::size_t CountShared(const Pixels &a, const Pixels &b) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < a.size(); i += 4)
        count += std::equal(&a[i], &a[i] + 4, &b[i]);
    return count;
}

/// Frames of this width, one below the other in a WebP picture; no bytes without frames.
std::string Encode(const std::vector<Pixels> &frames, const GalleryOptions &options, int quality) {
    if (frames.empty())
        return {};
    const int rows = int(frames[0].size() / 4 / options.width);
    const Frame picture = NewPicture(AV_PIX_FMT_BGRA, options.width, rows * int(frames.size()));
    for (int y = 0; y < picture->height; ++y)
        std::memcpy(picture->data[0] + std::ptrdiff_t(y) * picture->linesize[0],
                    &frames[y / rows][std::size_t(y % rows) * options.width * 4],
                    std::size_t(options.width) * 4);
    Encoder encoder(*avcodec_find_encoder_by_name("libwebp"), options.output);
    AVCodecContext &context = encoder.Context();
    context.width = picture->width;
    context.height = picture->height;
    context.pix_fmt = AV_PIX_FMT_BGRA;
    context.time_base = {1, 25};
    av_opt_set_int(context.priv_data, "lossless", options.isLossless, 0);
    av_opt_set_double(context.priv_data, "quality", quality, 0);
    encoder.Open();
    picture->pts = 0;
    std::string bytes;
    const auto take = [&](const AVPacket &packet) {
        bytes.append(reinterpret_cast<const char *>(packet.data), packet.size);
    };
    encoder.Encode(picture.get(), take);
    encoder.Encode(nullptr, take);
    return bytes;
}

std::string Base64(const std::string &bytes) {
    if (bytes.empty())
        return {};
    std::string text(AV_BASE64_SIZE(bytes.size()), '\0');
    if (!av_base64_encode(text.data(), int(text.size()),
                          reinterpret_cast<const std::uint8_t *>(bytes.data()), int(bytes.size())))
        throw Failure("the gallery's pictures are too large; give a smaller --cell");
    text.resize(std::strlen(text.c_str()));
    return text;
}

/// One transition by one path in one direction.
struct Take {
    const Transition *transition;
    std::size_t entry; ///< the transition's place in the page
    Path path;
    bool isReversed;
};

/// The frames of a take. They leave out the pixels that one of the ends shows as well, and are laid
/// over that one: most of most frames is either A or B.
struct Taken {
    std::string picture;    ///< the frames, one below the other
    std::vector<int> under; ///< the end below each frame: 0 is A, 1 is B
    std::vector<int> steps; ///< the frame of each step; -1 is A alone, -2 is B
};

const char *NameOf(Path path) {
    return path == Path::Yuv ? "yuv" : "rgb";
}

/// Draws takes, on as many threads as there are: the plug-in's calls take turns, the rest does not.
class Studio {
public:
    Studio(const GalleryOptions &chosen, const SampleInputs &pictures, const std::vector<Take> &all,
           int encodersQuality)
        : options(chosen), inputs(pictures), takes(all), quality(encodersQuality),
          height(SampleHeight(pictures.canvas, chosen.width)), results(all.size()),
          progress(std::int64_t(all.size()) * chosen.steps) {}

    /// Nothing as soon as the pictures take more than so many bytes.
    std::optional<std::vector<Taken>> DrawAll(std::int64_t mostBytes) {
        room = mostBytes / 4 * 3; // of what they are in Base64
        std::vector<std::future<void>> workers;
        const unsigned threads = std::max(1u, std::thread::hardware_concurrency());
        for (unsigned i = 0; i < threads; ++i)
            workers.push_back(std::async(std::launch::async, [this] { Work(); }));
        for (std::future<void> &worker : workers)
            worker.get();
        progress.Finish();
        if (room < 0)
            return {};
        return std::move(results);
    }

    /// Both inputs as the path's frames show them, in one picture.
    std::string EncodeEnds(Path path) const { return Encode(Ends(path), options, quality); }

private:
    void Work() {
        try {
            for (std::size_t i; (i = next++) < takes.size() && room >= 0;) {
                results[i] = Draw(takes[i]);
                room -= std::int64_t(results[i].picture.size());
            }
        } catch (...) {
            next = takes.size(); // the others need not go on
            throw;
        }
    }

    std::vector<Pixels> Ends(Path path) const {
        SamplePainter painter(inputs, path, options.width, height);
        return {PixelsOf(*painter.Show(0)), PixelsOf(*painter.Show(1))};
    }

    Taken Draw(const Take &take) {
        SamplePainter painter(inputs, take.path, options.width, height);
        const std::vector<Pixels> ends = Ends(take.path);
        const hostkit::Motion motion{nullptr, take.isReversed, options.seed};
        std::vector<Pixels> frames;
        Taken taken;
        for (int i = 0; i < options.steps; ++i) {
            const Pixels drawn = PixelsOf(
                *painter.Draw(*take.transition, motion, hostkit::MomentOf(i, options.steps)));
            const auto end = std::find(ends.begin(), ends.end(), drawn);
            const auto frame = std::find(frames.begin(), frames.end(), drawn);
            if (end != ends.end()) {
                taken.steps.push_back(-1 - int(end - ends.begin()));
            } else {
                taken.steps.push_back(int(frame - frames.begin()));
                if (frame == frames.end())
                    frames.push_back(drawn);
            }
            const std::lock_guard lock(counting);
            progress.Count();
        }
        const std::string whole = Encode(frames, options, quality);
        for (Pixels &frame : frames) {
            const int under = CountShared(frame, ends[1]) > CountShared(frame, ends[0]);
            LeaveOut(frame, ends[under]);
            taken.under.push_back(under);
        }
        taken.picture = Encode(frames, options, quality);
        if (whole.size() < taken.picture.size()) // holes everywhere cost more than they save
            taken.picture = whole;
        return taken;
    }

    const GalleryOptions &options;
    const SampleInputs &inputs;
    const std::vector<Take> &takes;
    const int quality;
    const int height;
    std::vector<Taken> results;
    std::atomic<std::size_t> next = 0;
    std::atomic<std::int64_t> room = 0;
    std::mutex counting;
    Progress progress;
};

// ---------------------------------------------------------------------------------------------
// The page
// ---------------------------------------------------------------------------------------------

/// A word of a command for the shell, in quotes where it needs them.
std::string Quoted(const std::string &word) {
    const bool isPlain = !word.empty() && std::all_of(word.begin(), word.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || std::strchr("/._-+,:@%#=", c);
    });
    if (isPlain && word[0] != '#')
        return word;
    std::string result = "'";
    for (const char c : word)
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

/// The built-in pictures by the names that the page says they can be written to.
std::vector<std::string> ClipNames(const GalleryOptions &options) {
    return options.samples.clips.empty() ? std::vector<std::string>{"day.png", "dusk.png"}
                                         : options.samples.clips;
}

/// The command that renders the transition, up to what the page lets the user choose.
std::string RenderLine(const GalleryOptions &options, const Program &program,
                       const Transition &transition) {
    std::string command = "transitions", output;
    if (program.pluginFile != DefaultPlugin())
        command += " --plugin " + Quoted(program.pluginFile.string());
    for (const char c : transition.name)
        output += c == ' ' ? '-' : char(std::tolower(static_cast<unsigned char>(c)));
    command += " render -t " + Quoted(transition.name);
    for (const std::string &clip : ClipNames(options))
        command += " " + Quoted(clip);
    command += " -o " + Quoted(output + ".mp4");
    if (options.seed && transition.info.random)
        command += " --seed " + std::to_string(options.seed);
    return command;
}

json Describe(const GalleryOptions &options, const Program &program, const Transition &transition) {
    const hostkit::Info &info = transition.info;
    std::string remarks = info.remarks;
    if (info.random)
        remarks += std::string(remarks.empty() ? "" : " ") +
                   "Draws random numbers: repeatable with --seed.";
    return {{"name", transition.name},
            {"title", info.title},
            {"kind", hostkit::KindName(info.kind)},
            {"motion", info.motion},
            {"ends", info.ends},
            {"remarks", remarks},
            {"registered", transition.IsRegistered()},
            {"command", RenderLine(options, program, transition)},
            {"takes", json::object()}};
}

/// An easing as the steps that it shows at each of the slider's stops.
json DescribeEasing(const hostkit::Easing &easing, int steps) {
    std::vector<int> shown;
    shown.reserve(steps);
    for (int i = 0; i < steps; ++i)
        shown.push_back(int(std::lround(
            hostkit::PluginPosition({&easing}, hostkit::MomentOf(i, steps)) * (steps - 1))));
    return {{"name", easing.name}, {"description", easing.description}, {"steps", shown}};
}

std::vector<Take> ChooseTakes(const std::vector<const Transition *> &transitions,
                              const std::vector<Path> &paths) {
    std::vector<Take> takes;
    for (std::size_t i = 0; i < transitions.size(); ++i)
        for (const Path path : paths)
            for (const bool isReversed : {false, true})
                if (HasPath(*transitions[i], path))
                    takes.push_back({transitions[i], i, path, isReversed});
    return takes;
}

/// The page with its data in place.
std::string Page(const json &data) {
    std::string text = data.dump(-1, ' ', true, json::error_handler_t::replace);
    for (std::size_t at = 0; (at = text.find('<', at)) != std::string::npos;)
        text.replace(at, 1, "\\u003c"); // nothing that ends the script it stands in
    std::string page(kGalleryPage);
    constexpr std::string_view kPlace = "{\"data\": null}";
    return page.replace(page.find(kPlace), kPlace.size(), text);
}

void Write(const std::string &name, const std::string &text) {
    OutputFile file(name);
    std::ofstream stream(file.Part(), std::ios::binary);
    stream << text;
    stream.close();
    if (!stream)
        throw Failure(name + ": " + std::strerror(errno));
    file.Keep();
}

/// The page with its takes in this quality; empty when it would take more than so many bytes.
std::string DrawPage(const GalleryOptions &options, const SampleInputs &inputs,
                     const std::vector<Path> &paths, const std::vector<Take> &takes, json data,
                     int quality, std::int64_t mostBytes) {
    Studio studio(options, inputs, takes, quality);
    const std::optional<std::vector<Taken>> drawn = studio.DrawAll(mostBytes);
    if (!drawn)
        return {};
    for (const Path path : paths)
        data["ends"][NameOf(path)] = Base64(studio.EncodeEnds(path));
    for (std::size_t i = 0; i < takes.size(); ++i)
        data["transitions"][takes[i].entry]["takes"][NameOf(takes[i].path)].push_back(
            {{"picture", Base64((*drawn)[i].picture)},
             {"under", (*drawn)[i].under},
             {"steps", (*drawn)[i].steps}});
    std::string page = Page(data);
    return std::int64_t(page.size()) <= mostBytes ? page : std::string();
}

std::string Megabytes(std::int64_t bytes) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3g MB", double(bytes) / 1e6);
    return text;
}

/// In the quality that was chosen, else in the best one that keeps to the limit or in the lowest.
void WritePage(const GalleryOptions &options, const SampleInputs &inputs,
               const std::vector<Path> &paths, const std::vector<Take> &takes, const json &data) {
    const std::int64_t limit = std::llround(options.limit * 1e6);
    const bool isFree = options.quality || options.isLossless;
    const auto *quality = options.quality ? &*options.quality : std::begin(kQualities);
    std::string page;
    while (page.empty()) {
        const bool isLast = isFree || quality + 1 == std::end(kQualities);
        page = DrawPage(options, inputs, paths, takes, data, *quality, isLast ? INT64_MAX : limit);
        if (page.empty()) {
            Tell("More than " + Megabytes(limit) + " at quality " + std::to_string(*quality) +
                 ": once more at " + std::to_string(*(quality + 1)));
            ++quality;
        }
    }
    Write(options.output, page);
    Tell(options.output + ": " + Counted(std::int64_t(data["transitions"].size()), "transition") +
         ", " + std::to_string(options.steps) + " steps, " +
         (options.isLossless ? "lossless" : "quality " + std::to_string(*quality)) + ", " +
         Megabytes(std::int64_t(page.size())) +
         (std::int64_t(page.size()) > limit
              ? ", more than " + Megabytes(limit) + ": fewer --steps or a smaller --cell take less"
              : ""));
}

void CheckName(const std::string &name) {
    const std::string extension = LowerExtension(name);
    if (extension != ".html" && extension != ".htm")
        throw Failure(name + ": a gallery is written as .html");
}

void Run(const Program &program, const GalleryOptions &options) {
    CheckName(options.output);
    SilenceLibraries();
    HandleSignals();
    const std::vector<Path> paths = ChoosePaths(options.path);
    const hostkit::Plugin plugin(program.pluginFile);
    const std::vector<const Transition *> transitions = ChooseTransitions(plugin, options.names);
    if (paths.size() == 1 && !options.names.empty())
        for (const Transition *transition : transitions)
            RequirePath(*transition, paths.front());
    const SampleInputs inputs = LoadInputs(options.samples);
    const int height = SampleHeight(inputs.canvas, options.width);
    constexpr int kHighest = 16383; // of a WebP picture
    if (height * options.steps > kHighest)
        throw Failure("--steps " + std::to_string(options.steps) + " of " + std::to_string(height) +
                      " rows are too many; at most " + std::to_string(kHighest / height) +
                      " are possible, or a smaller --cell");
    json data = {{"clips", ClipNames(options)}, {"areBuiltIn", options.samples.clips.empty()},
                 {"width", options.width},      {"height", height},
                 {"steps", options.steps},      {"ends", json::object()},
                 {"easings", json::array()},    {"transitions", json::array()}};
    for (const hostkit::Easing &easing : hostkit::Easings())
        data["easings"].push_back(DescribeEasing(easing, options.steps));
    for (const Transition *transition : transitions)
        data["transitions"].push_back(Describe(options, program, *transition));
    WritePage(options, inputs, paths, ChooseTakes(transitions, paths), data);
}

} // namespace

void AddGallery(CLI::App &app, Program &program) {
    const auto options = std::make_shared<GalleryOptions>();
    CLI::App *command =
        app.add_subcommand("gallery", "Write a page for a browser on which all transitions move");
    AddSampleOptions(*command, options->samples);
    command->add_option("-t,--transition", options->names, "The transitions; all when left out")
        ->type_name("NAME")
        ->allow_extra_args(false);
    command->add_option("-o,--output", options->output, "The page, one file that needs no other")
        ->type_name("FILE.html")
        ->capture_default_str();
    command->add_option("--path", options->path, "Which functions draw")
        ->type_name("yuv|rgb|both")
        ->capture_default_str();
    command->add_option("--steps", options->steps, "Even positions from 0 to 100 %")
        ->check(Between(2, 200))
        ->capture_default_str();
    command->add_option("--cell", options->width, "Width of a picture in pixels")
        ->check(Between(16, 4096))
        ->capture_default_str();
    CLI::Option *quality =
        command
            ->add_option(
                "--quality", options->quality,
                "Of the pictures, by WebP's scale: 60 is about 5 levels of 255 off (28 dB)")
            ->check(Between(0, 100))
            ->default_str("60, less where the page would be larger than --limit");
    CLI::Option *lossless =
        command
            ->add_flag("--lossless", options->isLossless,
                       "Keep every pixel as it is drawn, in a page several times as large")
            ->excludes(quality);
    command->add_option("--limit", options->limit, "Size of the page that the quality gives way to")
        ->type_name("MB")
        ->check(Between(0.1, 1000))
        ->excludes(quality)
        ->excludes(lossless)
        ->capture_default_str();
    command->add_option("--seed", options->seed, "Seed of the random transitions")
        ->capture_default_str();
    command->callback([&program, options] { Run(program, *options); });
}

} // namespace host
