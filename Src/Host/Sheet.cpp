#include "OutputFile.h"
#include "PictureFile.h"
#include "Pictures.h"
#include "Program.h"
#include "Progress.h"
#include "Samples.h"
#include "Sink.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

namespace host {

namespace {

using hostkit::Transition;

struct SheetOptions {
    SampleOptions samples;
    std::vector<std::string> names;
    std::string output = "sheet.png";
    std::string path = "yuv";
    int columns = 0;               ///< 0: as many as the sheet's kind usually has
    std::vector<double> positions; ///< in percent, instead of columns even ones
    int cellWidth = 160;
    int across = 0;
    bool isPlain = false;
    std::string ease = "linear";
    bool reverse = false;
    std::uint64_t seed = 0;
};

constexpr int kMargin = 20, kLabelWidth = 150, kGap = 6, kBlockGap = 24, kHeading = 22;

struct Layout {
    std::vector<const Transition *> rows;
    std::vector<Path> blocks;
    std::vector<double> positions; ///< one column each, 0 to 1
    int firstFrame = 0;            ///< number of the first column's frame
    int cellWidth, cellHeight;
    int across;    ///< strips that the rows are laid out in, one beside the other
    bool isMoving; ///< one column whose position changes, with the labels above it
    bool isPlain;  ///< without labels, headings and margin

    int Columns() const { return int(positions.size()); }

    int Margin() const { return isPlain ? 0 : kMargin; }
    int Beside() const { return isPlain || isMoving ? 0 : kLabelWidth; }
    int Above() const { return isMoving && !isPlain ? kHeading : 0; }
    int HeaderHeight() const { return isPlain ? 0 : kHeading * (!isMoving + (blocks.size() > 1)); }
    int BlockWidth() const { return Columns() * (cellWidth + kGap) - kGap; }
    int StripRows() const { return (int(rows.size()) + across - 1) / across; }
    int StripWidth() const { return Beside() + int(blocks.size()) * (BlockWidth() + kBlockGap); }
    int StripX(int strip) const { return Margin() + strip * StripWidth(); }
    int BlockX(int strip, int block) const {
        return StripX(strip) + Beside() + block * (BlockWidth() + kBlockGap);
    }
    int CellX(int strip, int block, int column) const {
        return BlockX(strip, block) + column * (cellWidth + kGap);
    }
    int Strip(int row) const { return row / StripRows(); }
    int RowHeight() const { return Above() + cellHeight + kGap; }
    int RowY(int row) const {
        return Margin() + HeaderHeight() + row % StripRows() * RowHeight() + Above();
    }
    int Width() const { return StripX(across) - kBlockGap + Margin(); }
    int Height() const {
        return Margin() + HeaderHeight() + StripRows() * RowHeight() - kGap + Margin();
    }
};

constexpr double kInk[] = {0.12, 0.14, 0.18}, kFaint[] = {0.42, 0.45, 0.5};

enum class Align { Left, Centre };

void Text(cairo_t *cr, const std::string &text, double x, double y, double size,
          const double (&ink)[3], bool bold = false, Align align = Align::Left) {
    cairo_select_font_face(cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                           bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, size);
    cairo_set_source_rgb(cr, ink[0], ink[1], ink[2]);
    cairo_text_extents_t extents;
    cairo_text_extents(cr, text.c_str(), &extents);
    cairo_move_to(cr, align == Align::Centre ? x - extents.x_advance / 2 : x, y);
    cairo_show_text(cr, text.c_str());
}

std::vector<double> Positions(const SheetOptions &options, int columns) {
    std::vector<double> positions;
    for (const double percent : options.positions)
        positions.push_back(percent / 100);
    if (positions.empty())
        for (int i = 0; i < columns; ++i)
            positions.push_back(hostkit::MomentOf(i, columns).position);
    return positions;
}

void DrawHeader(cairo_t *cr, const Layout &layout, int strip) {
    for (int block = 0; block < int(layout.blocks.size()); ++block) {
        int y = layout.Margin() + kHeading - 9;
        if (layout.blocks.size() > 1) {
            Text(cr, layout.blocks[block] == Path::Yuv ? "Planar path (YUV)" : "Packed path (RGB)",
                 layout.BlockX(strip, block) + layout.BlockWidth() / 2.0, y, 14, kInk, true,
                 Align::Centre);
            y += kHeading;
        }
        for (int column = 0; !layout.isMoving && column < layout.Columns(); ++column)
            Text(cr, std::to_string(std::lround(100 * layout.positions[column])) + " %",
                 layout.CellX(strip, block, column) + layout.cellWidth / 2.0, y, 11, kFaint, false,
                 Align::Centre);
    }
}

void DrawLabel(cairo_t *cr, const Layout &layout, int row) {
    const Transition &transition = *layout.rows[row];
    const double middle = layout.RowY(row) + layout.cellHeight / 2.0;
    const int x = layout.StripX(layout.Strip(row));
    if (layout.isMoving)
        return Text(cr, transition.name, x, layout.RowY(row) - 6, 13, kInk, true);
    Text(cr, transition.name, x, middle - 2, 15, kInk, true);
    std::string speed;
    for (const Path path : layout.blocks) {
        const hostkit::Curve curve = path == Path::Yuv ? transition.info.yuv : transition.info.rgb;
        if (curve != hostkit::Curve::Absent && speed != CurveName(curve))
            speed += (speed.empty() ? "" : ", ") + std::string(CurveName(curve));
    }
    const std::string known = transition.IsRegistered() ? ""
                              : speed.empty()           ? "by name"
                                                        : " · by name";
    Text(cr, speed + known, x, middle + 15, 11, kFaint);
}

void DrawCell(cairo_t *cr, double x, double y, const AVFrame &picture) {
    const Surface surface(cairo_image_surface_create_for_data(picture.data[0], CAIRO_FORMAT_RGB24,
                                                              picture.width, picture.height,
                                                              picture.linesize[0]),
                          cairo_surface_destroy);
    cairo_set_source_surface(cr, surface.get(), x, y);
    cairo_paint(cr);
}

void DrawRow(cairo_t *cr, const Layout &layout, int row, const hostkit::Motion &motion,
             std::vector<SamplePainter> &cells, Progress &progress) {
    const Transition &transition = *layout.rows[row];
    const int strip = layout.Strip(row);
    if (!layout.isPlain)
        DrawLabel(cr, layout, row);
    for (int block = 0; block < int(layout.blocks.size()); ++block) {
        const Path path = layout.blocks[block];
        if (!HasPath(transition, path)) {
            Text(cr, path == Path::Yuv ? "no planar path" : "no packed path",
                 layout.BlockX(strip, block) + layout.BlockWidth() / 2.0,
                 layout.RowY(row) + layout.cellHeight / 2.0 + 4, 12, kFaint, false, Align::Centre);
            continue;
        }
        for (int column = 0; column < layout.Columns(); ++column) {
            const hostkit::Moment moment{layout.positions[column], layout.firstFrame + column};
            DrawCell(cr, layout.CellX(strip, block, column), layout.RowY(row),
                     *cells[block].Draw(transition, motion, moment));
            progress.Count();
        }
    }
}

Surface DrawSheet(const Layout &layout, const hostkit::Motion &motion,
                  std::vector<SamplePainter> &cells, Progress &progress) {
    Surface sheet = NewSurface(layout.Width(), layout.Height());
    const std::unique_ptr<cairo_t, decltype(&cairo_destroy)> cr(cairo_create(sheet.get()),
                                                                cairo_destroy);
    cairo_set_source_rgb(cr.get(), 1, 1, 1);
    cairo_paint(cr.get());
    for (int strip = 0; !layout.isPlain && strip < layout.across; ++strip)
        DrawHeader(cr.get(), layout, strip);
    for (int row = 0; row < int(layout.rows.size()); ++row)
        DrawRow(cr.get(), layout, row, motion, cells, progress);
    return sheet;
}

/// Writes the sheet at one position after the other, with a rest at either end.
void WriteMoving(const std::string &file, Layout layout, const hostkit::Motion &motion,
                 std::vector<SamplePainter> &cells, Progress &progress) {
    constexpr int kRest = 12;
    OutputOptions output;
    output.file = file;
    const OutputPlan plan = PlanOutput(output, false);
    const std::vector<double> positions = std::exchange(layout.positions, {0});
    Canvas canvas;
    canvas.width = std::max(2, layout.Width() / 2 * 2);
    canvas.height = std::max(2, layout.Height() / 2 * 2);
    canvas.pixels = plan.pixels;
    canvas.colours = Assumed({}, plan.pixels, canvas.height);
    canvas.fit = Fit::Stretch;
    Converter converter(canvas);
    const std::unique_ptr<Sink> sink = OpenSink(output, plan, canvas, {}, {});
    std::int64_t written = 0;
    for (std::size_t i = 0; i < positions.size(); ++i) {
        layout.positions = {positions[i]};
        layout.firstFrame = int(i);
        const Frame sheet = converter.Convert(*ToFrame(DrawSheet(layout, motion, cells, progress)));
        const bool isEnd = i == 0 || i + 1 == positions.size();
        for (int times = isEnd ? kRest : 1; times > 0; --times)
            sink->Write(*sheet, written++);
    }
    sink->Finish();
}

bool IsMoving(const std::string &file) {
    const std::string ending = LowerExtension(file);
    return ending == ".gif" || ending == ".webp" || ending == ".apng";
}

void Run(const Program &program, const SheetOptions &options) {
    Layout layout = {};
    layout.isMoving = IsMoving(options.output);
    layout.isPlain = options.isPlain;
    if (!layout.isMoving)
        CheckPictureName(options.output);
    SilenceLibraries();
    HandleSignals();
    layout.blocks = ChoosePaths(options.path);
    const hostkit::Motion motion{&RequireEasing(options.ease), options.reverse, options.seed};
    const hostkit::Plugin plugin(program.pluginFile);
    layout.rows = ChooseTransitions(plugin, options.names);
    if (layout.blocks.size() == 1 && !options.names.empty())
        for (const Transition *transition : layout.rows)
            RequirePath(*transition, layout.blocks.front());
    const SampleInputs inputs = LoadInputs(options.samples);
    constexpr int kStillColumns = 7, kMovingColumns = 25, kMovingAcross = 7;
    layout.positions =
        Positions(options, options.columns ? options.columns
                                           : (layout.isMoving ? kMovingColumns : kStillColumns));
    layout.cellWidth = options.cellWidth;
    layout.cellHeight = SampleHeight(inputs.canvas, options.cellWidth);
    layout.across = options.across ? options.across : (layout.isMoving ? kMovingAcross : 1);
    layout.across = layout.Strip(int(layout.rows.size()) - 1) + 1; // no strip without rows
    std::vector<SamplePainter> cells;
    cells.reserve(layout.blocks.size());
    for (const Path path : layout.blocks)
        cells.emplace_back(inputs, path, layout.cellWidth, layout.cellHeight);
    std::int64_t drawn = 0;
    for (const Transition *transition : layout.rows)
        for (const Path path : layout.blocks)
            drawn += HasPath(*transition, path) ? layout.Columns() : 0;
    Progress progress(drawn);
    if (layout.isMoving)
        WriteMoving(options.output, layout, motion, cells, progress);
    else
        WritePicture(*ToFrame(DrawSheet(layout, motion, cells, progress)), options.output);
    progress.Finish();
}

} // namespace

void AddSheet(CLI::App &app, Program &program) {
    const auto options = std::make_shared<SheetOptions>();
    CLI::App *command = app.add_subcommand(
        "sheet", "Draw a contact sheet: a row for each transition, a column for each position");
    AddSampleOptions(*command, options->samples);
    command->add_option("-t,--transition", options->names, "The transitions; all when left out")
        ->type_name("NAME")
        ->allow_extra_args(false);
    command
        ->add_option(
            "-o,--output", options->output,
            "The sheet, as its ending says: a picture (.png, .jpg, .tif, .bmp) or a moving "
            "one (.webp, .gif, .apng)")
        ->type_name("FILE")
        ->capture_default_str();
    command->add_option("--path", options->path, "Which functions draw; both side by side")
        ->type_name("yuv|rgb|both")
        ->capture_default_str();
    CLI::Option *columns =
        command
            ->add_option("--columns", options->columns,
                         "Even positions from 0 to 100 %: columns, or the frames of a moving sheet")
            ->check(Between(1, 100))
            ->default_str("7, moving 25");
    command
        ->add_option("--positions", options->positions,
                     "These positions instead: most planar paths move between 30 and 70 %")
        ->type_name("PERCENT,...")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(Between(0, 100))
        ->excludes(columns);
    command->add_option("--cell", options->cellWidth, "Width of a picture on the sheet in pixels")
        ->check(Between(16, 4096))
        ->capture_default_str();
    command->add_option("--across", options->across, "Transitions side by side")
        ->check(Between(1, 10))
        ->default_str("1, moving 7");
    command->add_flag("--plain", options->isPlain, "Pictures alone, without names");
    command->add_option("--ease", options->ease, "How the position runs (see render)")
        ->type_name("NAME")
        ->capture_default_str();
    command->add_flag("--reverse", options->reverse, "Swap A and B and run backwards");
    command->add_option("--seed", options->seed, "Seed of the random transitions")
        ->capture_default_str();
    command->callback([&program, options] { Run(program, *options); });
}

} // namespace host
