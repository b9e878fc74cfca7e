#include "Pictures.h"

#include "Failure.h"
#include "OutputFile.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>

// The scenes are drawn in units of the picture's height: y runs from 0 at the top to 1, x from 0 to
// the aspect ratio. Positions along x are fractions of the width, so that every shape of picture
// shows the whole scene.

namespace host {

namespace {

struct Point {
    double x, y;
};

struct Stop {
    double offset;
    std::uint32_t colour; ///< 0xRRGGBB
    double alpha = 1;
};

/// A generator of its own, so that the pictures are the same everywhere.
struct Dice {
    std::uint32_t state;
    double Next() {
        state = state * 1664525u + 1013904223u;
        return (state >> 8) / 16777216.0;
    }
    double Between(double low, double high) { return low + (high - low) * Next(); }
};

struct Easel {
    cairo_t *cr;
    double width; ///< in heights of the picture
    double X(double fraction) const { return fraction * width; }
};

double Shade(std::uint32_t colour, int shift) {
    return (colour >> shift & 255) / 255.0;
}

void SetColour(const Easel &c, std::uint32_t colour, double alpha = 1) {
    cairo_set_source_rgba(c.cr, Shade(colour, 16), Shade(colour, 8), Shade(colour, 0), alpha);
}

void SetGradient(const Easel &c, cairo_pattern_t *pattern, std::initializer_list<Stop> stops) {
    for (const Stop &s : stops)
        cairo_pattern_add_color_stop_rgba(pattern, s.offset, Shade(s.colour, 16),
                                          Shade(s.colour, 8), Shade(s.colour, 0), s.alpha);
    cairo_set_source(c.cr, pattern);
    cairo_pattern_destroy(pattern);
}

void Fall(const Easel &c, double top, double bottom, std::initializer_list<Stop> stops) {
    SetGradient(c, cairo_pattern_create_linear(0, top, 0, bottom), stops);
}

void Rectangle(const Easel &c, double x, double y, double w, double h) {
    cairo_rectangle(c.cr, x, y, w, h);
    cairo_fill(c.cr);
}

void Disc(const Easel &c, double x, double y, double r) {
    cairo_new_sub_path(c.cr);
    cairo_arc(c.cr, x, y, r, 0, 2 * M_PI);
    cairo_fill(c.cr);
}

void Ellipse(const Easel &c, double x, double y, double rx, double ry) {
    cairo_save(c.cr);
    cairo_translate(c.cr, x, y);
    cairo_scale(c.cr, rx, ry);
    Disc(c, 0, 0, 1);
    cairo_restore(c.cr);
}

void Polygon(const Easel &c, std::initializer_list<Point> points) {
    for (const Point &p : points)
        cairo_line_to(c.cr, p.x, p.y);
    cairo_fill(c.cr);
}

void Glow(const Easel &c, double x, double y, double r, std::uint32_t colour, double alpha) {
    SetGradient(c, cairo_pattern_create_radial(x, y, 0, x, y, r),
                {{0, colour, alpha}, {0.35, colour, alpha * 0.45}, {1, colour, 0}});
    Disc(c, x, y, r);
}

// ---------------------------------------------------------------------------------------------
// Day
// ---------------------------------------------------------------------------------------------

void Cloud(const Easel &c, double x, double y, double size) {
    Fall(c, y - size, y + 0.35 * size, {{0, 0xffffff}, {0.6, 0xffffff}, {1, 0xc9def2}});
    cairo_save(c.cr);
    cairo_rectangle(c.cr, x - 3 * size, y - 2 * size, 6 * size, 2.3 * size);
    cairo_clip(c.cr);
    Disc(c, x - 1.2 * size, y, 0.45 * size);
    Disc(c, x - 0.5 * size, y - 0.25 * size, 0.65 * size);
    Disc(c, x + 0.4 * size, y - 0.4 * size, 0.8 * size);
    Disc(c, x + 1.25 * size, y, 0.5 * size);
    cairo_restore(c.cr);
}

/// A peak lit from the right, with snow down to a ragged line.
void Mountain(const Easel &c, double x, double top, double base, double half, std::uint32_t shade,
              std::uint32_t lit) {
    const double height = base - top;
    SetColour(c, shade);
    Polygon(c, {{x - half, base},
                {x - 0.42 * half, top + 0.36 * height},
                {x, top},
                {x + 0.5 * half, top + 0.44 * height},
                {x + half, base}});
    SetColour(c, lit);
    Polygon(c, {{x, top},
                {x + 0.5 * half, top + 0.44 * height},
                {x + half, base},
                {x + 0.12 * half, base},
                {x + 0.2 * half, top + 0.62 * height},
                {x - 0.06 * half, top + 0.3 * height}});
    SetColour(c, 0xb9cfea);
    Polygon(c, {{x, top},
                {x - 0.31 * half, top + 0.265 * height},
                {x - 0.2 * half, top + 0.25 * height},
                {x - 0.15 * half, top + 0.36 * height},
                {x - 0.06 * half, top + 0.26 * height}});
    SetColour(c, 0xfbfdff);
    Polygon(c, {{x, top},
                {x - 0.06 * half, top + 0.27 * height},
                {x + 0.06 * half, top + 0.4 * height},
                {x + 0.14 * half, top + 0.27 * height},
                {x + 0.27 * half, top + 0.36 * height},
                {x + 0.31 * half, top + 0.27 * height}});
}

void Hill(const Easel &c, double left, double middle, double right, std::uint32_t top,
          std::uint32_t bottom) {
    Fall(c, std::min({left, middle, right}), 1, {{0, top}, {1, bottom}});
    cairo_move_to(c.cr, 0, left);
    cairo_curve_to(c.cr, c.X(0.33), middle, c.X(0.66), middle, c.width, right);
    cairo_line_to(c.cr, c.width, 1);
    cairo_line_to(c.cr, 0, 1);
    cairo_fill(c.cr);
}

void Fir(const Easel &c, double x, double base, double size, std::uint32_t colour) {
    SetColour(c, 0x5b3a24);
    Rectangle(c, x - 0.05 * size, base - 0.2 * size, 0.1 * size, 0.22 * size);
    SetColour(c, colour);
    for (int tier = 0; tier < 3; ++tier) {
        const double foot = base - (0.12 + 0.24 * tier) * size;
        const double half = (0.3 - 0.07 * tier) * size;
        Polygon(c, {{x - half, foot}, {x, foot - 0.42 * size}, {x + half, foot}});
    }
}

void Balloon(const Easel &c, double x, double y, double r) {
    SetColour(c, 0x6b4a2d);
    Rectangle(c, x - 0.18 * r, y + 1.55 * r, 0.36 * r, 0.28 * r);
    cairo_set_line_width(c.cr, 0.04 * r);
    for (const double side : {-1.0, 1.0}) {
        cairo_move_to(c.cr, x + side * 0.5 * r, y + 0.85 * r);
        cairo_line_to(c.cr, x + side * 0.16 * r, y + 1.56 * r);
    }
    cairo_stroke(c.cr);
    cairo_save(c.cr);
    cairo_arc(c.cr, x, y, r, 0.8 * M_PI, 0.2 * M_PI);
    cairo_curve_to(c.cr, x + 0.6 * r, y + 0.9 * r, x + 0.3 * r, y + 1.2 * r, x, y + 1.2 * r);
    cairo_curve_to(c.cr, x - 0.3 * r, y + 1.2 * r, x - 0.6 * r, y + 0.9 * r, x - 0.81 * r,
                   y + 0.59 * r);
    cairo_clip(c.cr);
    const std::uint32_t stripes[] = {0xd63a2f, 0xf6c445, 0xd63a2f, 0xf6c445};
    for (int i = 0; i < 4; ++i) {
        SetColour(c, stripes[i]);
        Ellipse(c, x, y, (1.05 - 0.27 * i) * r, 1.3 * r);
    }
    cairo_restore(c.cr);
}

void House(const Easel &c, double x, double base, double s) {
    SetColour(c, 0x7c3f30);
    Rectangle(c, x + 0.22 * s, base - 1.02 * s, 0.13 * s, 0.4 * s);
    SetColour(c, 0xfdf3dd);
    Rectangle(c, x - 0.5 * s, base - 0.55 * s, s, 0.55 * s);
    SetColour(c, 0xe6d3b3);
    Rectangle(c, x - 0.5 * s, base - 0.55 * s, s, 0.09 * s);
    SetColour(c, 0xc8372d);
    Polygon(c, {{x - 0.62 * s, base - 0.5 * s},
                {x - 0.3 * s, base - 0.98 * s},
                {x + 0.3 * s, base - 0.98 * s},
                {x + 0.62 * s, base - 0.5 * s}});
    SetColour(c, 0x6a3d22);
    Rectangle(c, x - 0.1 * s, base - 0.36 * s, 0.2 * s, 0.36 * s);
    for (const double side : {-1.0, 1.0}) {
        const double wx = x + side * 0.31 * s - 0.09 * s;
        SetColour(c, 0x34658f);
        Rectangle(c, wx, base - 0.38 * s, 0.18 * s, 0.18 * s);
        SetColour(c, 0xffffff);
        Rectangle(c, wx + 0.08 * s, base - 0.38 * s, 0.02 * s, 0.18 * s);
        Rectangle(c, wx, base - 0.3 * s, 0.18 * s, 0.02 * s);
    }
}

void Lake(const Easel &c) {
    Fall(c, 0.6, 0.76, {{0, 0xd8eef6}, {0.35, 0x6fb4e2}, {1, 0x2d78bd}});
    Rectangle(c, 0, 0.6, c.width, 0.2);
    Dice dice{7};
    for (int i = 0; i < 42; ++i) {
        const double y = dice.Between(0.61, 0.75);
        SetColour(c, 0xffffff, dice.Between(0.15, 0.5));
        const double middle = i % 2 ? c.X(0.74) + dice.Between(-0.1, 0.1) : dice.Next() * c.width;
        Rectangle(c, middle - 0.03, y, dice.Between(0.03, 0.1), 0.0035);
    }
}

void Meadow(const Easel &c) {
    Hill(c, 0.7, 0.84, 0.72, 0x8ac44a, 0x4c8f2f);
    Dice dice{21};
    for (int i = 0; i < 26; ++i) {
        const double x = dice.Next();
        if (x > 0.2 && x < 0.72)
            continue;
        const double shore = 0.74 + 0.05 * (1 - std::abs(2 * x - 1));
        Fir(c, c.X(x), shore + 0.05 * i / 26, dice.Between(0.1, 0.2), i % 2 ? 0x1f6b45 : 0x2c8250);
    }
    Hill(c, 0.86, 0.8, 0.93, 0x6fb53c, 0x2f7a2a);
    SetColour(c, 0xe9d8a6);
    cairo_move_to(c.cr, c.X(0.352), 0.842);
    cairo_curve_to(c.cr, c.X(0.37), 0.9, c.X(0.47), 0.9, c.X(0.44), 1);
    cairo_line_to(c.cr, c.X(0.55), 1);
    cairo_curve_to(c.cr, c.X(0.54), 0.88, c.X(0.4), 0.9, c.X(0.372), 0.842);
    cairo_fill(c.cr);
    House(c, c.X(0.36), 0.85, 0.2);
    const std::uint32_t petals[] = {0xffffff, 0xffd23e, 0xf0567a, 0x9a6be0};
    for (int i = 0; i < 130; ++i) {
        const double x = dice.Next(), y = dice.Between(0.89, 1);
        if (x > 0.36 && x < 0.57)
            continue;
        SetColour(c, petals[i % 4]);
        Disc(c, c.X(x), y, 0.003 + 0.05 * (y - 0.88));
    }
}

void Day(const Easel &c) {
    Fall(c, 0, 0.62, {{0, 0x1e6fd0}, {0.55, 0x6db9f0}, {1, 0xe8f4f2}});
    cairo_paint(c.cr);
    Glow(c, c.X(0.76), 0.2, 0.42, 0xffffff, 0.9);
    Glow(c, c.X(0.76), 0.2, 0.16, 0xffe38a, 0.9);
    SetColour(c, 0xfff3c2);
    Disc(c, c.X(0.76), 0.2, 0.075);
    Cloud(c, c.X(0.46), 0.17, 0.055);
    Cloud(c, c.X(0.93), 0.34, 0.045);
    Cloud(c, c.X(0.06), 0.3, 0.05);
    Mountain(c, c.X(0.05), 0.36, 0.62, c.X(0.16), 0x7f9fc9, 0xa5bfdf);
    Mountain(c, c.X(0.92), 0.4, 0.62, c.X(0.16), 0x7f9fc9, 0xa5bfdf);
    Mountain(c, c.X(0.62), 0.34, 0.62, c.X(0.2), 0x6f8fbd, 0x9cb8dc);
    Mountain(c, c.X(0.33), 0.25, 0.62, c.X(0.24), 0x5b7cab, 0x8aa9d3);
    Hill(c, 0.56, 0.62, 0.55, 0x5f9a6a, 0x3f7a52);
    Lake(c);
    Meadow(c);
    Balloon(c, c.X(0.2), 0.2, 0.085);
}

// ---------------------------------------------------------------------------------------------
// Dusk
// ---------------------------------------------------------------------------------------------

constexpr double kShore = 0.76;

void Stars(const Easel &c) {
    Dice dice{5};
    for (int i = 0; i < 150; ++i) {
        const double x = dice.Next() * c.width, y = std::pow(dice.Next(), 1.6) * 0.48;
        SetColour(c, i % 5 ? 0xffffff : 0xffd9a8, dice.Between(0.35, 1) * (1 - y));
        Disc(c, x, y, i % 11 ? 0.0022 : 0.0042);
    }
}

void Moon(const Easel &c, double x, double y, double r) {
    Glow(c, x, y, 4 * r, 0xffe9c4, 0.6);
    SetColour(c, 0xfff3d6);
    Disc(c, x, y, r);
    SetColour(c, 0xe6cfa4);
    Disc(c, x - 0.35 * r, y - 0.25 * r, 0.24 * r);
    Disc(c, x + 0.3 * r, y + 0.3 * r, 0.3 * r);
    Disc(c, x + 0.32 * r, y - 0.45 * r, 0.13 * r);
    Disc(c, x - 0.3 * r, y + 0.5 * r, 0.12 * r);
}

void Windows(const Easel &c, Dice &dice, double x, double top, double w) {
    const std::uint32_t lights[] = {0xffd77a, 0xffc04d, 0xffe9b0, 0x8fe3ff};
    const double pitch = 0.022;
    const int columns = static_cast<int>((w - 0.008) / pitch);
    const double left = x + (w - columns * pitch) / 2 + 0.005;
    for (double y = top + 0.018; y < kShore - 0.03; y += pitch * 1.25)
        for (int i = 0; i < columns; ++i)
            if (dice.Next() < 0.62) {
                SetColour(c, lights[static_cast<int>(dice.Next() * 4)], dice.Between(0.75, 1));
                Rectangle(c, left + i * pitch, y, 0.012, 0.016);
            }
}

/// A row of blocks from one side to the other; the nearest row has lit windows.
void Skyline(const Easel &c, std::uint32_t seed, double low, double high, std::uint32_t colour,
             bool lit) {
    Dice dice{seed};
    for (double x = -0.02; x < c.width;) {
        const double w = dice.Between(0.07, 0.13), top = kShore - dice.Between(low, high);
        Fall(c, top, kShore, {{0, colour}, {1, colour, 0.92}});
        Rectangle(c, x, top, w, kShore - top);
        const double roof = dice.Next();
        if (roof < 0.3)
            Rectangle(c, x + 0.25 * w, top - 0.025, 0.5 * w, 0.026);
        else if (roof < 0.5)
            Polygon(c, {{x, top + 0.002}, {x + w / 2, top - 0.06}, {x + w, top + 0.002}});
        if (lit)
            Windows(c, dice, x, top, w);
        x += w + (lit ? dice.Between(0.004, 0.05) : -0.005);
    }
}

void Tower(const Easel &c, double x) {
    SetColour(c, 0x1d1447);
    Polygon(c, {{x - 0.05, kShore}, {x - 0.022, 0.3}, {x + 0.022, 0.3}, {x + 0.05, kShore}});
    Polygon(c, {{x - 0.045, 0.345}, {x - 0.03, 0.29}, {x + 0.03, 0.29}, {x + 0.045, 0.345}});
    Rectangle(c, x - 0.004, 0.13, 0.008, 0.17);
    SetColour(c, 0xff9d5c);
    for (int i = 0; i < 7; ++i)
        Rectangle(c, x - 0.036 + 0.011 * i, 0.312, 0.006, 0.014);
    SetColour(c, 0x7fe0ff, 0.9);
    for (int i = 0; i < 11; ++i)
        Rectangle(c, x - 0.006, 0.38 + 0.033 * i, 0.012, 0.018);
    Glow(c, x, 0.13, 0.035, 0xff3f50, 1);
}

void Wheel(const Easel &c, double x, double y, double r) {
    SetColour(c, 0x2a1a58);
    cairo_set_line_width(c.cr, 0.012);
    for (const double side : {-1.0, 1.0}) {
        cairo_move_to(c.cr, x, y);
        cairo_line_to(c.cr, x + side * 0.6 * r, kShore);
    }
    cairo_stroke(c.cr);
    SetColour(c, 0xff6fae);
    cairo_set_line_width(c.cr, 0.007);
    cairo_arc(c.cr, x, y, r, 0, 2 * M_PI);
    cairo_stroke(c.cr);
    const std::uint32_t lamps[] = {0xffe066, 0x6ff0e0, 0xff8ad1};
    for (int i = 0; i < 18; ++i) {
        const double dx = r * std::cos(i * M_PI / 9), dy = r * std::sin(i * M_PI / 9);
        SetColour(c, 0xff6fae, 0.5);
        cairo_set_line_width(c.cr, 0.003);
        cairo_move_to(c.cr, x, y);
        cairo_line_to(c.cr, x + dx, y + dy);
        cairo_stroke(c.cr);
        SetColour(c, lamps[i % 3]);
        Disc(c, x + dx, y + dy, 0.011);
    }
}

void City(const Easel &c) {
    Skyline(c, 3, 0.1, 0.3, 0x8a3f86, false);
    Skyline(c, 11, 0.06, 0.22, 0x56296f, false);
    Tower(c, c.X(0.5));
    Skyline(c, 29, 0.09, 0.34, 0x21174f, true);
    Wheel(c, c.X(0.82), 0.53, 0.17);
}

void Water(const Easel &c) {
    cairo_save(c.cr);
    cairo_rectangle(c.cr, 0, kShore, c.width, 1 - kShore);
    cairo_clip(c.cr);
    Fall(c, kShore, 1, {{0, 0xe9825f}, {0.4, 0x8a3f86}, {1, 0x241a5a}});
    cairo_paint(c.cr);
    // The city stands on its head in the water, a little shorter than it is.
    cairo_translate(c.cr, 0, kShore * 1.6);
    cairo_scale(c.cr, 1, -0.6);
    cairo_push_group(c.cr);
    City(c);
    cairo_pop_group_to_source(c.cr);
    cairo_paint_with_alpha(c.cr, 0.6);
    cairo_restore(c.cr);
    Dice dice{13};
    for (int i = 0; i < 110; ++i) {
        const double y = kShore + 0.01 + (0.99 - kShore) * dice.Next();
        const double length = dice.Between(0.02, 0.05) + 0.35 * (y - kShore);
        const bool moonlit = i % 3 == 0;
        const double x = moonlit ? c.X(0.2) + dice.Between(-0.07, 0.07) : dice.Next() * c.width;
        SetColour(c, moonlit ? 0xfff0cf : i % 2 ? 0xff9f6b : 0x2b1b5e, moonlit ? 0.6 : 0.35);
        Rectangle(c, x - length / 2, y, length, 0.005);
    }
}

void Dusk(const Easel &c) {
    Fall(c, 0, kShore, {{0, 0x1a1c57}, {0.4, 0x5a2d86}, {0.75, 0xd4547f}, {1, 0xffae62}});
    cairo_paint(c.cr);
    Stars(c);
    Moon(c, c.X(0.2), 0.2, 0.09);
    SetColour(c, 0x4a2474, 0.45);
    Ellipse(c, c.X(0.72), 0.3, c.X(0.17), 0.014);
    Ellipse(c, c.X(0.64), 0.335, c.X(0.1), 0.01);
    Ellipse(c, c.X(0.3), 0.4, c.X(0.15), 0.012);
    Ellipse(c, c.X(0.95), 0.42, c.X(0.13), 0.012);
    City(c);
    Water(c);
}

Surface Draw(void (*scene)(const Easel &), int width, int height) {
    Surface surface = NewSurface(width, height);
    const Easel canvas{cairo_create(surface.get()), static_cast<double>(width) / height};
    cairo_scale(canvas.cr, height, height);
    scene(canvas);
    cairo_destroy(canvas.cr);
    cairo_surface_flush(surface.get());
    return surface;
}

} // namespace

Surface NewSurface(int width, int height) {
    Surface surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height),
                    cairo_surface_destroy);
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS)
        throw Failure("cannot make a picture of " + std::to_string(width) + "x" +
                      std::to_string(height) +
                      " pixels: " + cairo_status_to_string(cairo_surface_status(surface.get())));
    return surface;
}

Frame ToFrame(const Surface &surface) {
    cairo_surface_flush(surface.get());
    const int width = cairo_image_surface_get_width(surface.get());
    const int height = cairo_image_surface_get_height(surface.get());
    Frame frame = NewPicture(AV_PIX_FMT_BGR0, width, height);
    frame->color_range = AVCOL_RANGE_JPEG;
    for (int y = 0; y < height; ++y)
        std::memcpy(frame->data[0] + y * frame->linesize[0],
                    cairo_image_surface_get_data(surface.get()) +
                        y * cairo_image_surface_get_stride(surface.get()),
                    std::size_t(width) * 4);
    return frame;
}

Surface DayPicture(int width, int height) {
    return Draw(Day, width, height);
}

Surface DuskPicture(int width, int height) {
    return Draw(Dusk, width, height);
}

} // namespace host
