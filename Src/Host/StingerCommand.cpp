/// `transitions stinger`: films of a transition's matte, which OBS plays between two scenes.

#include "Clip.h"
#include "Duration.h"
#include "Map.h"
#include "Messages.h"
#include "Sink.h"

#include <algorithm>
#include <memory>

namespace host {

namespace {

struct StingerOptions {
    std::string name;
    std::string output;
    std::string size = "1920x1080";
    std::string duration = "1";
    int rate = 60;
    std::string matte = "beside";
    std::string ease = "linear";
    bool isReverse = false;
};

/// Where the matte lies in the film: right of or below what is laid over the scenes, which is empty
/// here, or alone.
enum class Matte { Beside, Below, Only };

Canvas FilmCanvas(Size size, Matte matte, int rate, AVPixelFormat pixels) {
    Canvas canvas;
    canvas.width = size.width * (matte == Matte::Beside ? 2 : 1);
    canvas.height = size.height * (matte == Matte::Below ? 2 : 1);
    canvas.rate = {rate, 1};
    canvas.pixels = pixels;
    canvas.colours = Assumed({}, pixels, canvas.height);
    return canvas;
}

/// White where B shows, in the last rows and columns of the film; the rest is transparent.
Frame PictureOf(const Plane &weights, Size size, const Canvas &canvas) {
    Frame picture = NewPicture(AV_PIX_FMT_BGRA, canvas.width, canvas.height);
    Label(*picture, Assumed({}, AV_PIX_FMT_BGRA, canvas.height));
    for (int y = 0; y < canvas.height; ++y) {
        std::uint8_t *row = picture->data[0] + std::ptrdiff_t(y) * picture->linesize[0];
        std::fill_n(row, 4 * canvas.width, std::uint8_t(0));
        const int matteRow = y - (canvas.height - size.height);
        std::uint8_t *pixel = row + std::ptrdiff_t(4) * (canvas.width - size.width);
        for (int x = 0; matteRow >= 0 && x < size.width; ++x, pixel += 4) {
            std::fill_n(pixel, 3, weights(x, matteRow));
            pixel[3] = 255;
        }
    }
    return picture;
}

void Run(const Program &program, const StingerOptions &options) {
    SilenceLibraries();
    const hostkit::Plugin plugin(program.pluginFile);
    const hostkit::Transition &transition = RequireTransition(plugin, options.name);
    const Size size = ParseSize(options.size);
    const Matte matte =
        Choose<Matte>("--matte", options.matte,
                      {{"beside", Matte::Beside}, {"below", Matte::Below}, {"only", Matte::Only}});
    const hostkit::Motion motion = {&RequireEasing(options.ease), options.isReverse};
    const std::int64_t frames =
        FramesIn(ParseTime(options.duration, "--duration"), {options.rate, 1});
    if (frames < 2)
        throw Failure("--duration " + options.duration + ": give two frames or more");
    OutputOptions output;
    output.file = options.output;
    const OutputPlan plan = PlanOutput(output, matte != Matte::Only);
    if (matte != Matte::Only && !HasAlpha(plan.pixels))
        throw Failure(options.output + ": what lies beside the matte is transparent, which .webm " +
                      "and .mov hold; any file will do with --matte only");
    if (plan.needsEvenSize && (size.width % 2 || size.height % 2))
        throw Failure("--size " + options.size + ": give even numbers for such a file");

    const Path path = MapOf(transition, size).path;
    const Canvas canvas = FilmCanvas(size, matte, options.rate, plan.pixels);
    const auto sink = OpenSink(output, plan, canvas, {}, {});
    Converter converter(canvas);
    Weights weights(transition, path, size);
    for (std::int64_t i = 0; i < frames; ++i) {
        const Frame picture =
            PictureOf(weights.Draw(motion, hostkit::MomentOf(i, frames)), size, canvas);
        sink->Write(*converter.Convert(*picture), i);
    }
    sink->Finish();
    constexpr const char *kLayouts[] = {"Same file, side-by-side", "Same file, stacked",
                                        "Mask only"};
    Tell(options.output + ": " + Counted(frames, "frame") + "; in OBS: Stinger, Use a Track " +
         "Matte, Matte Layout \"" + kLayouts[int(matte)] + "\"");
}

} // namespace

void AddStinger(CLI::App &app, Program &program) {
    const auto options = std::make_shared<StingerOptions>();
    CLI::App *command = app.add_subcommand(
        "stinger", "Write the film of a track matte, with which OBS goes from scene to scene");
    command->add_option("-t,--transition", options->name, "The transition; it must have a luma map")
        ->type_name("NAME")
        ->required();
    command->add_option("-o,--output", options->output, "The film, .webm or .mov")
        ->type_name("FILE")
        ->required();
    command->add_option("-d,--duration", options->duration, "Its length")
        ->type_name("TIME")
        ->capture_default_str();
    command->add_option("--size", options->size, "Size of OBS's canvas")
        ->type_name("WxH")
        ->capture_default_str();
    command->add_option("--rate", options->rate, "Frames per second, as OBS has them")
        ->check(Between(1, 240))
        ->capture_default_str();
    command->add_option("--matte", options->matte, "Where the matte lies in the film")
        ->type_name("beside|below|only")
        ->capture_default_str();
    command->add_option("--ease", options->ease, "How the speed of the motion changes")
        ->type_name("NAME")
        ->capture_default_str();
    command->add_flag("--reverse", options->isReverse, "Play the motion backwards");
    command->callback([&program, options] { Run(program, *options); });
}

} // namespace host
