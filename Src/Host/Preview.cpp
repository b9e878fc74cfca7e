#include "Preview.h"

#include "Clip.h"
#include "Joints.h"
#include "OutputFile.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

extern "C" {
#include <libavutil/parseutils.h>
}

namespace host {

namespace {

namespace fs = std::filesystem;

// ---------------------------------------------------------------------------------------------
// What is rendered
// ---------------------------------------------------------------------------------------------

/// Frames of a clip, the first and the one after the last.
Range UsedFrames(const RenderOptions &options, const Wish &wish, const Clip &clip,
                 AVRational rate) {
    Range used = {wish.in ? FramesIn(*wish.in, rate) : 0, INT64_MAX};
    if (wish.out)
        used.end = FramesIn(*wish.out, rate);
    else if (clip.isStill)
        used.end = used.begin + FramesIn(options.still, rate);
    else if (const std::optional<std::int64_t> all = FramesOf(clip, rate))
        used.end = *all;
    else
        throw Failure("standard input: a preview needs clips whose end is known");
    return used;
}

/// The clips' parts around the joints; a clip whose middle is left out becomes two, with a cut.
void KeepJoints(RenderOptions &options, const std::vector<Clip> &clips, AVRational rate,
                const Time &around, const hostkit::Plugin &plugin) {
    const std::vector<Wish> wishes = std::exchange(options.clips, {});
    const std::vector<JointWish> joints = std::exchange(options.joints, {});
    const auto reach = [&](std::size_t joint) {
        const bool overlaps = hostkit::Overlaps(RequireTransition(plugin, joints[joint].name));
        return FramesIn(around, rate) +
               (overlaps ? std::max<std::int64_t>(1, FramesIn(joints[joint].length, rate)) : 0);
    };
    for (std::size_t i = 0; i < wishes.size(); ++i) {
        const Range used = UsedFrames(options, wishes[i], clips[i], rate);
        const std::int64_t head = i > 0 ? reach(i - 1) : 0;
        const std::int64_t tail = i < joints.size() ? reach(i) : 0;
        const auto add = [&](std::int64_t begin, std::int64_t end) {
            options.clips.push_back({wishes[i].file, Time{begin, rate}, Time{end, rate}});
        };
        if (head + tail >= used.end - used.begin) {
            options.clips.push_back(wishes[i]);
        } else {
            if (head)
                add(used.begin, used.begin + head);
            if (head && tail)
                options.joints.emplace_back();
            if (tail)
                add(used.end - tail, used.end);
        }
        if (i < joints.size())
            options.joints.push_back(joints[i]);
    }
}

/// Small pictures of the lead's shape, of square pixels.
std::string SmallSize(const Clip &lead) {
    constexpr double kWidest = 640;
    const double width = lead.width * (IsKnown(lead.aspect) ? av_q2d(lead.aspect) : 1);
    const double factor = std::min(1.0, kWidest / width);
    const auto even = [](double size) { return std::max(2L, 2 * std::lround(size / 2)); };
    return std::to_string(even(width * factor)) + "x" + std::to_string(even(lead.height * factor));
}

void MakeFast(OutputOptions &output) {
    const OutputPlan plan = PlanOutput(output, false);
    if (!plan.video || std::strcmp(plan.video->name, "libx264") != 0)
        return;
    output.preset = "ultrafast";
    output.quality = 23;
}

// ---------------------------------------------------------------------------------------------
// The player
// ---------------------------------------------------------------------------------------------

/// Those that are asked for, the first that is there is taken.
constexpr const char *kPlayers[] = {"mpv --really-quiet --audio-fallback-to-null=yes",
                                    "ffplay -autoexit -loglevel error"};

bool IsInPath(const std::string &program) {
    const char *path = std::getenv("PATH");
    std::istringstream folders(path ? path : "");
    for (std::string folder; std::getline(folders, folder, ':');)
        if (access((fs::path(folder) / program).c_str(), X_OK) == 0)
            return true;
    return false;
}

std::vector<std::string> FindPlayer() {
    for (const char *command : kPlayers) {
        std::istringstream words(command);
        std::vector<std::string> player;
        for (std::string word; words >> word;)
            player.push_back(word);
        if (IsInPath(player.front()))
            return player;
    }
    throw Failure("there is no player to show the preview, neither mpv nor ffplay; install one, or "
                  "give -o FILE");
}

/// A file that goes with its owner.
struct TemporaryFile {
    TemporaryFile() : name((fs::temp_directory_path() / "transitions-XXXXXX.mkv").string()) {
        const int file = mkstemps(name.data(), 4);
        if (file < 0)
            throw Failure(name + ": " + std::strerror(errno));
        close(file);
    }
    ~TemporaryFile() { unlink(name.c_str()); }
    TemporaryFile(const TemporaryFile &) = delete;
    TemporaryFile &operator=(const TemporaryFile &) = delete;

    std::string name;
};

/// Shows a file and waits until the user has seen it.
void Play(std::vector<std::string> player, const std::string &file) {
    player.push_back(file);
    std::vector<char *> arguments(player.size() + 1); // the last one is null
    std::ranges::transform(player, arguments.begin(),
                           [](std::string &word) { return word.data(); });
    const auto before = std::signal(SIGINT, SIG_IGN); // it is the player's to stop
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t usual;
    sigemptyset(&usual);
    sigaddset(&usual, SIGINT);
    posix_spawnattr_setsigdefault(&attributes, &usual);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    pid_t process = 0;
    int status = 0;
    const int error =
        posix_spawnp(&process, arguments[0], nullptr, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    if (error == 0)
        waitpid(process, &status, 0);
    std::signal(SIGINT, before);
    if (error != 0)
        throw Failure(player[0] + ": " + std::strerror(error));
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw Failure(player[0] + " could not show the preview; -o FILE writes it instead");
}

} // namespace

void Preview(RenderOptions options, const Time &around, const hostkit::Plugin &plugin) {
    std::vector<std::string> player;
    if (options.output.file.empty())
        player = FindPlayer();
    else
        RefuseOverwriting(options);
    SilenceLibraries();
    HandleSignals();
    options.copy = CopyWish::Never; // of pieces so short
    ChooseAny(options, plugin);
    std::vector<Clip> clips;
    for (const Wish &wish : options.clips)
        clips.push_back(ProbeClip(wish.file));
    const Clip &lead = Lead(clips);
    AVRational rate = lead.rate;
    if (!options.rate.empty() && av_parse_video_rate(&rate, options.rate.c_str()) < 0)
        rate = lead.rate; // which the render refuses
    if (options.size.empty())
        options.size = SmallSize(lead);
    KeepJoints(options, clips, rate, around, plugin);
    if (player.empty()) {
        MakeFast(options.output);
        return Render(options, plugin);
    }
    const TemporaryFile file;
    options.output.file = file.name;
    MakeFast(options.output);
    Render(options, plugin);
    Play(player, file.name);
}

} // namespace host
