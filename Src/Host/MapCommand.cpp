/// `transitions map`: transitions as luma maps, for hosts that take a picture that tells when each
/// pixel changes.

#include "Map.h"
#include "PictureFile.h"
#include "Plan.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

namespace host {

namespace fs = std::filesystem;
using hostkit::Transition;

namespace {

struct MapOptions {
    std::vector<std::string> names;
    std::string output;
    std::string size = "1920x1080";
    std::string path = "auto";
    std::string kind = "pgm";
};

/// Both write 16 bits of grey.
bool IsMapName(const std::string &name) {
    const std::string ending = LowerExtension(name);
    return ending == ".png" || ending == ".pgm";
}

void WriteMap(const LumaMap &map, const std::string &name) {
    const Frame picture = NewPicture(AV_PIX_FMT_GRAY16BE, map.width, map.height);
    picture->color_range = AVCOL_RANGE_JPEG;
    for (int y = 0; y < map.height; ++y)
        for (int x = 0; x < map.width; ++x) {
            const unsigned level = map.levels[std::size_t(y) * map.width + x];
            std::uint8_t *sample = picture->data[0] + y * picture->linesize[0] + 2 * x;
            sample[0] = std::uint8_t(level >> 8);
            sample[1] = std::uint8_t(level);
        }
    EncodePicture(*picture, LowerExtension(name) == ".png" ? "png" : "pgm", name);
}

void Describe(const LumaMap &map, const Transition &transition, const std::string &name) {
    const hostkit::Info &info = transition.info;
    std::printf("%s: softness %d %%, the pace of \"%s\" (%s), %.1f of 255 levels from it\n",
                name.c_str(), map.softness, transition.name.c_str(),
                CurveDescription(map.path == Path::Yuv ? info.yuv : info.rgb), map.distance);
    std::fflush(stdout);
}

LumaMap Take(const Transition &transition, const MapOptions &options, Size size) {
    const std::optional<Path> path = Choose<std::optional<Path>>(
        "--path", options.path, {{"auto", std::nullopt}, {"yuv", Path::Yuv}, {"rgb", Path::Rgb}});
    return path ? MapOf(transition, *path, size) : MapOf(transition, size);
}

/// Every map that can be had into a folder. What was asked for by name must be to be had.
void WriteAll(const std::vector<const Transition *> &transitions, const MapOptions &options) {
    const std::string kind =
        Choose<std::string>("--as", options.kind, {{"pgm", "pgm"}, {"png", "png"}});
    const Size size = ParseSize(options.size);
    std::error_code error;
    fs::create_directories(options.output, error);
    if (error)
        throw Failure(options.output + ": " + error.message());
    for (const Transition *transition : transitions) {
        const fs::path name =
            fs::path(options.output) / ("tp_erase-" + hostkit::Stem(transition->name) + "." + kind);
        try {
            const LumaMap map = Take(*transition, options, size);
            WriteMap(map, name);
            Describe(map, *transition, name.filename());
        } catch (const NoMap &reason) {
            if (!options.names.empty())
                throw;
            std::printf("%s\n", reason.what());
        }
    }
}

void Run(const Program &program, const MapOptions &options) {
    const hostkit::Plugin plugin(program.pluginFile);
    const auto transitions = ChooseTransitions(plugin, options.names);
    if (!IsMapName(options.output))
        return WriteAll(transitions, options);
    if (transitions.size() != 1 || options.names.empty())
        throw Failure(options.output + ": give one transition for one file, or a folder for all");
    const LumaMap map = Take(*transitions.front(), options, ParseSize(options.size));
    WriteMap(map, options.output);
    Describe(map, *transitions.front(), options.output);
}

} // namespace

void AddMap(CLI::App &app, Program &program) {
    const auto options = std::make_shared<MapOptions>();
    CLI::App *command = app.add_subcommand(
        "map", "Write luma maps: pictures that tell when each pixel changes, for other editors");
    command
        ->add_option("-t,--transition", options->names,
                     "The transition; all that have a map when left out")
        ->type_name("NAME");
    command->add_option("-o,--output", options->output, "FILE.png, FILE.pgm, or a folder")
        ->type_name("PATH")
        ->required();
    command->add_option("--size", options->size, "Size of the map")
        ->type_name("WxH")
        ->capture_default_str();
    command->add_option("--path", options->path, "Which path to take it of")
        ->type_name("auto|yuv|rgb")
        ->capture_default_str();
    command->add_option("--as", options->kind, "What to write into a folder")
        ->type_name("pgm|png")
        ->capture_default_str();
    command->callback([&program, options] { Run(program, *options); });
}

} // namespace host
