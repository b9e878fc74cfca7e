#include "PictureFile.h"
#include "Pictures.h"
#include "Program.h"
#include "Progress.h"
#include "Samples.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

namespace host {

namespace {

using hostkit::Transition;

struct Options {
    SampleOptions samples;
    std::vector<std::string> names;
    std::string output = "sheet.png";
    std::string path = "yuv";
    int columns = 7;
    std::vector<double> positions; ///< in percent, instead of columns even ones
    int cellWidth = 160;
    int across = 1;
    std::string ease = "linear";
    bool reverse = false;
    std::uint64_t seed = 0;
};

constexpr int kMargin = 20, kLabelWidth = 150, kGap = 6, kBlockGap = 24, kHeading = 22;

struct Layout {
    std::vector<const Transition *> rows;
    std::vector<Path> blocks;
    std::vector<double> positions; ///< one column each, 0 to 1
    int cellWidth, cellHeight;
    int across; ///< strips that the rows are laid out in, one beside the other

    int Columns() const { return int(positions.size()); }

    int HeaderHeight() const { return kHeading * (blocks.size() > 1 ? 2 : 1); }
    int BlockWidth() const { return Columns() * (cellWidth + kGap) - kGap; }
    int StripRows() const { return (int(rows.size()) + across - 1) / across; }
    int StripWidth() const { return kLabelWidth + int(blocks.size()) * (BlockWidth() + kBlockGap); }
    int StripX(int strip) const { return kMargin + strip * StripWidth(); }
    int BlockX(int strip, int block) const {
        return StripX(strip) + kLabelWidth + block * (BlockWidth() + kBlockGap);
    }
    int CellX(int strip, int block, int column) const {
        return BlockX(strip, block) + column * (cellWidth + kGap);
    }
    int Strip(int row) const { return row / StripRows(); }
    int RowY(int row) const {
        return kMargin + HeaderHeight() + row % StripRows() * (cellHeight + kGap);
    }
    int Width() const { return StripX(across) - kBlockGap + kMargin; }
    int Height() const {
        return kMargin + HeaderHeight() + StripRows() * (cellHeight + kGap) - kGap + kMargin;
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

std::vector<double> Positions(const Options &options) {
    std::vector<double> positions;
    for (const double percent : options.positions)
        positions.push_back(percent / 100);
    if (positions.empty())
        for (int i = 0; i < options.columns; ++i)
            positions.push_back(hostkit::MomentOf(i, options.columns).position);
    return positions;
}

void DrawHeader(cairo_t *cr, const Layout &layout, int strip) {
    const int y = kMargin + layout.HeaderHeight() - 9;
    for (int block = 0; block < int(layout.blocks.size()); ++block) {
        if (layout.blocks.size() > 1)
            Text(cr, layout.blocks[block] == Path::Yuv ? "Planar path (YUV)" : "Packed path (RGB)",
                 layout.BlockX(strip, block) + layout.BlockWidth() / 2.0, y - kHeading, 14, kInk,
                 true, Align::Centre);
        for (int column = 0; column < layout.Columns(); ++column)
            Text(cr, std::to_string(std::lround(100 * layout.positions[column])) + " %",
                 layout.CellX(strip, block, column) + layout.cellWidth / 2.0, y, 11, kFaint, false,
                 Align::Centre);
    }
}

void DrawLabel(cairo_t *cr, const Layout &layout, int row) {
    const Transition &transition = *layout.rows[row];
    const double middle = layout.RowY(row) + layout.cellHeight / 2.0;
    const int x = layout.StripX(layout.Strip(row));
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
            const hostkit::Moment moment{layout.positions[column], column};
            DrawCell(cr, layout.CellX(strip, block, column), layout.RowY(row),
                     *cells[block].Draw(transition, motion, moment));
            progress.Count();
        }
    }
}

void Run(const Program &program, const Options &options) {
    CheckPictureName(options.output);
    Layout layout = {};
    layout.blocks = ChoosePaths(options.path);
    const hostkit::Motion motion{&RequireEasing(options.ease), options.reverse, options.seed};
    const hostkit::Plugin plugin(program.pluginFile);
    layout.rows = ChooseTransitions(plugin, options.names);
    if (layout.blocks.size() == 1 && !options.names.empty())
        for (const Transition *transition : layout.rows)
            RequirePath(*transition, layout.blocks.front());
    const SampleInputs inputs = LoadInputs(options.samples);
    layout.positions = Positions(options);
    layout.cellWidth = options.cellWidth;
    layout.cellHeight = SampleHeight(inputs.canvas, options.cellWidth);
    layout.across = options.across;
    layout.across = layout.Strip(int(layout.rows.size()) - 1) + 1; // no strip without rows
    const Surface sheet = NewSurface(layout.Width(), layout.Height());
    cairo_t *cr = cairo_create(sheet.get());
    cairo_set_source_rgb(cr, 1, 1, 1);
    cairo_paint(cr);
    for (int strip = 0; strip < layout.across; ++strip)
        DrawHeader(cr, layout, strip);
    std::vector<SamplePainter> cells;
    cells.reserve(layout.blocks.size());
    for (const Path path : layout.blocks)
        cells.emplace_back(inputs, path, layout.cellWidth, layout.cellHeight);
    std::int64_t drawn = 0;
    for (const Transition *transition : layout.rows)
        for (const Path path : layout.blocks)
            drawn += HasPath(*transition, path) ? layout.Columns() : 0;
    Progress progress(drawn);
    for (int row = 0; row < int(layout.rows.size()); ++row)
        DrawRow(cr, layout, row, motion, cells, progress);
    progress.Finish();
    cairo_destroy(cr);
    WritePicture(*ToFrame(sheet), options.output);
}

} // namespace

void AddSheet(CLI::App &app, Program &program) {
    const auto options = std::make_shared<Options>();
    CLI::App *command = app.add_subcommand(
        "sheet", "Draw a contact sheet: a row for each transition, a column for each position");
    AddSampleOptions(*command, options->samples);
    command->add_option("-t,--transition", options->names, "The transitions; all when left out")
        ->type_name("NAME")
        ->allow_extra_args(false);
    command
        ->add_option("-o,--output", options->output,
                     "The sheet, a picture of the kind that its ending says: .png, .jpg, .webp, "
                     ".tif or .bmp")
        ->type_name("FILE")
        ->capture_default_str();
    command->add_option("--path", options->path, "Which functions draw; both side by side")
        ->type_name("yuv|rgb|both")
        ->capture_default_str();
    CLI::Option *columns =
        command->add_option("--columns", options->columns, "Even positions from 0 to 100 %")
            ->check(Between(1, 100))
            ->capture_default_str();
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
        ->capture_default_str();
    command->add_option("--ease", options->ease, "How the position runs (see render)")
        ->type_name("NAME")
        ->capture_default_str();
    command->add_flag("--reverse", options->reverse, "Swap A and B and run backwards");
    command->add_option("--seed", options->seed, "Seed of the random transitions")
        ->capture_default_str();
    command->callback([&program, options] { Run(program, *options); });
}

} // namespace host
