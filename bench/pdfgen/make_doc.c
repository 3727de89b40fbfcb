/* A benchmark document, the same bytes on every build: US Letter pages mixing running text,
 * vector drawings (charts, curves, gradients) and photo-like pictures made from smooth noise.
 * Usage: make_doc OUT.pdf [PAGES]   (24 pages when not given) */
#include <cairo-pdf.h>
#include <cairo.h>

#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { kWidth = 612, kHeight = 792 };

/* A small deterministic generator, so that no two builds differ. */
static uint32_t rng_state = 12345u;
static uint32_t Next(void) {
    rng_state ^= rng_state << 13;
    rng_state ^= rng_state >> 17;
    rng_state ^= rng_state << 5;
    return rng_state;
}
static double Uniform(void) {
    return (Next() >> 8) / 16777216.0;
}

static const char *const kWords[] = {
    "printer",    "stream",   "raster",      "page",  "colour", "toner", "sheet",  "margin",
    "frame",      "the",      "of",          "and",   "a",      "to",    "in",     "is",
    "that",       "for",      "on",          "with",  "as",     "each",  "job",    "driver",
    "resolution", "dither",   "compression", "row",   "seed",   "delta", "run",    "length",
    "graphics",   "language", "font",        "glyph", "cell",   "tray",  "duplex", "bin"};

/* Value noise on a lattice, smoothed: a few octaves give a landscape-like picture. */
static double Lattice(int x, int y, uint32_t seed) {
    uint32_t h = (uint32_t)x * 374761393u + (uint32_t)y * 668265263u + seed * 2246822519u;
    h = (h ^ (h >> 13)) * 1274126177u;
    return ((h ^ (h >> 16)) & 0xffff) / 65535.0;
}
static double Smooth(double x, double y, uint32_t seed) {
    int ix = (int)floor(x), iy = (int)floor(y);
    double fx = x - ix, fy = y - iy;
    fx = fx * fx * (3 - 2 * fx), fy = fy * fy * (3 - 2 * fy);
    double a = Lattice(ix, iy, seed), b = Lattice(ix + 1, iy, seed);
    double c = Lattice(ix, iy + 1, seed), d = Lattice(ix + 1, iy + 1, seed);
    return (a + (b - a) * fx) + ((c + (d - c) * fx) - (a + (b - a) * fx)) * fy;
}
static double Fractal(double x, double y, uint32_t seed) {
    double v = 0, amp = 0.5;
    for (int o = 0; o < 5; ++o, x *= 2, y *= 2, amp /= 2) v += amp * Smooth(x, y, seed + o);
    return v;
}

/* A "photograph": sky, hills, a sun, texture; w x h pixels. */
static cairo_surface_t *Photo(int w, int h, uint32_t seed) {
    cairo_surface_t *s = cairo_image_surface_create(CAIRO_FORMAT_RGB24, w, h);
    unsigned char *data = cairo_image_surface_get_data(s);
    int stride = cairo_image_surface_get_stride(s);
    double sunx = 0.2 + 0.6 * Lattice(1, 2, seed), suny = 0.15 + 0.1 * Lattice(3, 4, seed);
    for (int y = 0; y < h; ++y) {
        uint32_t *row = (uint32_t *)(data + (size_t)y * stride);
        for (int x = 0; x < w; ++x) {
            double u = (double)x / w, v = (double)y / h;
            double ridge = 0.45 + 0.2 * Fractal(u * 3, seed * 0.37, seed);
            double r, g, b;
            if (v < ridge) { /* sky with clouds */
                double cloud = Fractal(u * 6, v * 10, seed + 7);
                r = 0.45 + 0.4 * v + 0.3 * cloud, g = 0.6 + 0.3 * v + 0.25 * cloud, b = 0.95;
                double d = hypot(u - sunx, (v - suny) * h / w);
                if (d < 0.05) r = g = 1.0, b = 0.85;
            } else { /* hills with grass texture */
                double t = Fractal(u * 40, v * 40, seed + 13);
                double shade = (v - ridge) / (1 - ridge);
                r = 0.15 + 0.25 * t + 0.2 * shade, g = 0.35 + 0.35 * t - 0.1 * shade;
                b = 0.1 + 0.15 * t;
            }
            int R = (int)(fmin(fmax(r, 0), 1) * 255), G = (int)(fmin(fmax(g, 0), 1) * 255);
            int B = (int)(fmin(fmax(b, 0), 1) * 255);
            row[x] = (uint32_t)(R << 16 | G << 8 | B);
        }
    }
    cairo_surface_mark_dirty(s);
    return s;
}

/* Justified-looking running text from `y` down to `bottom`, in a column. */
static double Text(cairo_t *cr, double x, double y, double width, double bottom, double size) {
    cairo_select_font_face(cr, "serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, size);
    cairo_set_source_rgb(cr, 0, 0, 0);
    char line[512];
    while (y < bottom) {
        line[0] = 0;
        for (;;) {
            const char *w = kWords[Next() % (sizeof kWords / sizeof *kWords)];
            char trial[512];
            snprintf(trial, sizeof trial, "%s%s%s", line, line[0] ? " " : "", w);
            cairo_text_extents_t e;
            cairo_text_extents(cr, trial, &e);
            if (e.x_advance > width) break;
            memcpy(line, trial, strlen(trial) + 1);
        }
        cairo_move_to(cr, x, y);
        cairo_show_text(cr, line);
        y += size * 1.3;
    }
    return y;
}

static void Heading(cairo_t *cr, const char *text, double y) {
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
    cairo_set_font_size(cr, 20);
    cairo_set_source_rgb(cr, 0.1, 0.1, 0.3);
    cairo_move_to(cr, 54, y);
    cairo_show_text(cr, text);
}

/* A bar chart with axes, gridlines and a smooth curve over it. */
static void Chart(cairo_t *cr, double x, double y, double w, double h) {
    cairo_set_line_width(cr, 0.5);
    cairo_set_source_rgb(cr, 0.7, 0.7, 0.7);
    for (int i = 0; i <= 5; ++i) {
        cairo_move_to(cr, x, y + h * i / 5);
        cairo_line_to(cr, x + w, y + h * i / 5);
    }
    cairo_stroke(cr);
    int bars = 12;
    for (int i = 0; i < bars; ++i) {
        double v = 0.2 + 0.8 * Uniform();
        cairo_rectangle(cr, x + w * (i + 0.15) / bars, y + h * (1 - v), w * 0.7 / bars, h * v);
        cairo_set_source_rgb(cr, 0.2 + 0.6 * i / bars, 0.3, 0.8 - 0.5 * i / bars);
        cairo_fill(cr);
    }
    cairo_set_source_rgb(cr, 0.8, 0.1, 0.1);
    cairo_set_line_width(cr, 2);
    cairo_move_to(cr, x, y + h * 0.8);
    for (int i = 1; i <= 4; ++i)
        cairo_curve_to(cr, x + w * (i - 0.7) / 4, y + h * Uniform(), x + w * (i - 0.3) / 4,
                       y + h * Uniform(), x + w * i / 4, y + h * (0.2 + 0.6 * Uniform()));
    cairo_stroke(cr);
    cairo_set_source_rgb(cr, 0, 0, 0);
    cairo_set_line_width(cr, 1);
    cairo_move_to(cr, x, y);
    cairo_line_to(cr, x, y + h);
    cairo_line_to(cr, x + w, y + h);
    cairo_stroke(cr);
}

/* Shapes with gradients, a pie and a line drawing. */
static void Diagram(cairo_t *cr, double x, double y, double w, double h) {
    cairo_pattern_t *g = cairo_pattern_create_linear(x, y, x + w, y + h);
    cairo_pattern_add_color_stop_rgb(g, 0, 0.95, 0.9, 0.6);
    cairo_pattern_add_color_stop_rgb(g, 1, 0.4, 0.6, 0.9);
    cairo_rectangle(cr, x, y, w, h);
    cairo_set_source(cr, g);
    cairo_fill(cr);
    cairo_pattern_destroy(g);
    double cx = x + w * 0.3, cy = y + h * 0.5, r = fmin(w, h) * 0.35, a = 0;
    for (int i = 0; i < 6; ++i) {
        double span = 2 * M_PI * (0.1 + 0.1 * Uniform());
        if (i == 5) span = 2 * M_PI - a;
        cairo_move_to(cr, cx, cy);
        cairo_arc(cr, cx, cy, r, a, a + span);
        cairo_close_path(cr);
        cairo_set_source_rgb(cr, Uniform(), Uniform(), Uniform());
        cairo_fill_preserve(cr);
        cairo_set_source_rgb(cr, 1, 1, 1);
        cairo_set_line_width(cr, 1.5);
        cairo_stroke(cr);
        a += span;
    }
    cairo_set_source_rgb(cr, 0.1, 0.2, 0.1);
    cairo_set_line_width(cr, 0.75);
    for (int i = 0; i < 40; ++i) {
        double t = i / 40.0;
        cairo_move_to(cr, x + w * 0.6, y + h * t);
        cairo_curve_to(cr, x + w * 0.8, y + h * (1 - t), x + w * 0.9, y + h * t, x + w,
                       y + h * (1 - t));
    }
    cairo_stroke(cr);
}

int main(int argc, char **argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s OUT.pdf [PAGES]\n", argv[0]);
        return 2;
    }
    int pages = argc > 2 ? atoi(argv[2]) : 24;
    cairo_surface_t *pdf = cairo_pdf_surface_create(argv[1], kWidth, kHeight);
    /* No creation date: the same document on every build. */
    cairo_pdf_surface_set_metadata(pdf, CAIRO_PDF_METADATA_CREATE_DATE, "");
    cairo_pdf_surface_set_metadata(pdf, CAIRO_PDF_METADATA_TITLE, "q417 benchmark document");
    cairo_t *cr = cairo_create(pdf);
    cairo_surface_t *photos[3];
    for (int i = 0; i < 3; ++i) photos[i] = Photo(1200, 800, 101 + i);
    for (int p = 0; p < pages; ++p) {
        char title[64];
        snprintf(title, sizeof title, "Section %d", p + 1);
        Heading(cr, title, 72);
        switch (p % 4) {
        case 0: /* text only, two columns */
            Text(cr, 54, 100, 240, 740, 10);
            Text(cr, 318, 100, 240, 740, 10);
            break;
        case 1: /* text and a chart */
            Text(cr, 54, 100, 504, 380, 10);
            Chart(cr, 72, 400, 468, 300);
            break;
        case 2: /* a photo with text below */
            cairo_save(cr);
            cairo_translate(cr, 54, 96);
            cairo_scale(cr, 504.0 / 1200, 336.0 / 800);
            cairo_set_source_surface(cr, photos[(p / 4) % 3], 0, 0);
            cairo_paint(cr);
            cairo_restore(cr);
            Text(cr, 54, 456, 504, 740, 10);
            break;
        default: /* diagram and text */
            Diagram(cr, 54, 96, 504, 300);
            Text(cr, 54, 420, 504, 740, 10);
            break;
        }
        cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
        cairo_set_font_size(cr, 9);
        cairo_set_source_rgb(cr, 0.3, 0.3, 0.3);
        snprintf(title, sizeof title, "%d", p + 1);
        cairo_move_to(cr, 300, 770);
        cairo_show_text(cr, title);
        cairo_show_page(cr);
    }
    for (int i = 0; i < 3; ++i) cairo_surface_destroy(photos[i]);
    cairo_destroy(cr);
    cairo_surface_finish(pdf);
    int status = cairo_surface_status(pdf);
    cairo_surface_destroy(pdf);
    if (status != CAIRO_STATUS_SUCCESS) {
        fprintf(stderr, "%s: %s\n", argv[1], cairo_status_to_string(status));
        return 1;
    }
    return 0;
}
