// Test pages and images as PCL, placed in N-up cells.
#include "render.h"
#include "format.h"
#include "raster.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>

namespace q417::pages {

namespace {

int Trunc(double v) {
    return static_cast<int>(v);
}

// Where a logical pixel lands on the sheet, and how long a logical length is there. Products
// of page sizes and resolutions are worked in 64 bits: a large custom paper at 1200 dpi
// overflows 32.
struct Placement {
    const NupLayout &nup;
    int cell;
    int64_t X(int64_t x) const {
        return nup.n == 1 ? x : int64_t{nup.scale} * x / nup.dpi + nup.origins[cell].first;
    }
    int64_t Y(int64_t y) const {
        return nup.n == 1 ? y : int64_t{nup.scale} * y / nup.dpi + nup.origins[cell].second;
    }
    int64_t L(int64_t len) const {
        if (nup.n == 1) return len;
        return std::max<int64_t>(int64_t{nup.scale} * len / nup.dpi, 1);
    }
    // The logical length that is at least `dots` sheet dots long once placed.
    int64_t Dots(int64_t dots) const {
        if (nup.n == 1 || nup.scale >= nup.dpi) return dots;
        return (dots * nup.dpi + nup.scale - 1) / nup.scale;
    }
    double Points(double pt) const { return nup.n == 1 ? pt : pt * nup.scale / nup.dpi; }
};

// Every page's data begins by entering PCL: after a watermark on a cell that opened no page
// header, the library leaves the printer in whatever language it found it, and that may be
// HP-GL/2.
constexpr char kEnterPcl[] = "\x1b%0A";

// A rough width of Univers bold, enough to centre a line.
int64_t TextWidth(const std::string &s, double pt, int dpi) {
    return static_cast<int64_t>(s.size() * pt * 0.6 * dpi / 72.0);
}

// Draws on a logical page of W x H pixels. Everything is clamped to the page, so that what is
// sent is an absolute position inside the cell: a negative number would be a relative move.
class Canvas {
  public:
    Canvas(const Placement &p, int64_t w, int64_t h) : out(kEnterPcl), p_(p), w_(w), h_(h) {}
    void Rect(int64_t x, int64_t y, int64_t w, int64_t h) {
        x = std::clamp<int64_t>(x, 0, w_ - 1), y = std::clamp<int64_t>(y, 0, h_ - 1);
        w = std::clamp<int64_t>(w, 1, w_ - x), h = std::clamp<int64_t>(h, 1, h_ - y);
        out += Format("\x1b*p%lldx%lldY\x1b*c%llda%lldb0P", LL(p_.X(x)), LL(p_.Y(y)), LL(p_.L(w)),
                      LL(p_.L(h)));
    }
    // Text with its baseline at (x, y), kept on the page; Univers bold at `pt` points of the
    // logical page.
    void Text(int64_t x, int64_t y, double pt, const std::string &s) {
        int64_t width = TextWidth(s, pt, p_.nup.dpi);
        int64_t height = static_cast<int64_t>(pt * p_.nup.dpi / 72.0 * 0.75);
        x = std::clamp<int64_t>(x, 0, std::max<int64_t>(w_ - width, 0));
        y = std::clamp<int64_t>(y, std::min(height, h_ - 1), h_ - 1);
        out += Format("\x1b(0N\x1b(s1p%.2fv0s3b4148T", p_.Points(pt));
        out += Format("\x1b*p%lldx%lldY", LL(p_.X(x)), LL(p_.Y(y)));
        out += s;
    }
    // Text centred on x.
    void Centred(int64_t x, int64_t y, double pt, const std::string &s) {
        Text(x - TextWidth(s, pt, p_.nup.dpi) / 2, y, pt, s);
    }
    std::string out;

  private:
    static long long LL(int64_t v) { return static_cast<long long>(v); }
    const Placement &p_;
    int64_t w_, h_;
};

// Decipoints in the printer's pixels at `dpi`.
int64_t Pixels(int64_t decipoints, int dpi) {
    return decipoints * dpi / 720;
}
// The same, for the layout's 32-bit fields.
int Pixels32(int64_t decipoints, int dpi) {
    return static_cast<int>(std::clamp<int64_t>(Pixels(decipoints, dpi), INT32_MIN, INT32_MAX));
}

} // namespace

NupLayout MakeNupLayout(int n, int orientation, const PageGeometry &g, int dpi) {
    NupLayout l;
    l.dpi = dpi;
    l.scale = dpi;
    l.origins.assign(1, {0, 0});
    l.cxSubPage = Pixels32(g.cxPrintable, dpi);
    l.cySubPage = Pixels32(g.cyPrintable, dpi);
    float imageScale = 0.95f;
    switch (n) {
    case 2:
        l.columns = orientation == 1 ? 2 : 1, l.rows = orientation == 1 ? 1 : 2;
        l.keepOrient = false;
        break;
    case 4:
        l.columns = l.rows = 2;
        break;
    case 6:
        l.columns = orientation == 1 ? 3 : 2, l.rows = orientation == 1 ? 2 : 3;
        l.keepOrient = false;
        if (orientation != 1) imageScale = 0.92f;
        break;
    case 9:
        l.columns = l.rows = 3;
        break;
    case 16:
        l.columns = l.rows = 4;
        break;
    default:
        return l; // one page a sheet
    }
    l.n = n;
    int32_t layout[6] = {g.cxPaper,     g.cyPaper,  g.cxPrintable,
                         g.cyPrintable, g.cxMargin, g.cyMargin};
    if (!l.keepOrient)
        for (int i = 0; i < 6; i += 2) std::swap(layout[i], layout[i + 1]);
    float cellW = static_cast<float>(layout[2]) / l.columns;
    float cellH = static_cast<float>(layout[3]) / l.rows;
    float imgW = cellW * imageScale, imgH = cellH * imageScale;
    float offX = (n == 6 && orientation == 2) ? cellW * 0.05f / 2 : (cellW - imgW) / 2;
    float offY = (cellH - imgH) / 2;
    float dx = 0, dy = 0;
    if (l.keepOrient) {
        l.scale = Trunc(static_cast<double>(imgW) / g.cxPrintable * dpi + 0.5);
    } else {
        float cellAspect = imgH / imgW;
        double pageAspect = static_cast<double>(g.cyPaper) / g.cxPaper;
        if (pageAspect > cellAspect) {
            l.scale = Trunc(static_cast<double>(imgH) / g.cyPaper * dpi + 0.5);
            float oldW = imgW;
            imgW = static_cast<float>(imgH / static_cast<float>(pageAspect));
            dx = (oldW - imgW) / 2;
        } else {
            l.scale = Trunc(static_cast<double>(imgW) / g.cxPaper * dpi + 0.5);
            float oldH = imgH;
            imgH = static_cast<float>(imgW * static_cast<float>(pageAspect));
            dy = (oldH - imgH) / 2;
        }
    }
    l.cxSubPage = Pixels32(Trunc(imgW + 0.5), dpi);
    l.cySubPage = Pixels32(Trunc(imgH + 0.5), dpi);
    l.origins.clear();
    for (int r = 0; r < l.rows; ++r)
        for (int c = 0; c < l.columns; ++c)
            l.origins.emplace_back(Pixels32(Trunc(c * cellW + offX + dx + 0.5), dpi),
                                   Pixels32(Trunc(r * cellH + offY + dy + 0.5), dpi));
    return l;
}

std::string RenderTestPage(const PageInfo &info, const PageGeometry &g, const NupLayout &nup,
                           int cell) {
    Placement place{nup, cell};
    int dpi = nup.dpi;
    int64_t W = Pixels(g.cxPrintable, dpi), H = Pixels(g.cyPrintable, dpi);
    Canvas c(place, W, H);
    // Rules at least one sheet dot wide however small the cell.
    int64_t t = std::max<int64_t>(std::max(dpi / 75, 2), place.Dots(1));
    int64_t tick = std::max<int64_t>(t / 2 + 1, place.Dots(1));
    // The frame of the printable area.
    c.Rect(0, 0, W, t);
    c.Rect(0, H - t, W, t);
    c.Rect(0, 0, t, H);
    c.Rect(W - t, 0, t, H);
    // A scale along the top and the left edge: quarter inches, inches longer and numbered.
    int64_t inchTick = dpi / 5, numberBase = t + dpi / 5 + dpi / 8;
    for (int64_t i = 1; i * dpi / 4 < W - t; ++i) {
        int64_t x = i * dpi / 4, len = i % 4 == 0 ? inchTick : i % 2 == 0 ? dpi / 9 : dpi / 16;
        c.Rect(x, t, tick, len);
        if (i % 4 == 0) c.Text(x + t, numberBase, 9, std::to_string(i / 4));
    }
    for (int64_t i = 1; i * dpi / 4 < H - t; ++i) {
        int64_t y = i * dpi / 4, len = i % 4 == 0 ? inchTick : i % 2 == 0 ? dpi / 9 : dpi / 16;
        c.Rect(t, y, len, tick);
        if (i % 4 == 0) c.Text(t + dpi / 5 + dpi / 20, y + dpi / 16, 9, std::to_string(i / 4));
    }
    // Below the ruler's numbers: "TOP", and a solid block in the top right corner, so that a
    // page turned or mirrored shows it.
    int64_t below = numberBase + dpi / 10;
    int64_t mark = dpi / 2;
    c.Rect(W - t - mark - dpi / 10, below, mark, mark);
    c.Centred(W / 2, below + dpi / 4, 18, "TOP");
    // The page number, large, in the middle, as wide as the frame between the rulers allows.
    int64_t inner = W - 2 * (t + dpi / 2);
    std::string label = "Page " + std::to_string(info.page);
    double big = std::min(W, H) * 72.0 / dpi / 4;
    big = std::max(std::min(big, inner * 72.0 / dpi / (0.6 * label.size())), 1.0);
    c.Centred(W / 2, H / 2, big, label);
    std::string where = "sheet " + std::to_string(info.sheet) + ", cell " +
                        std::to_string(cell + 1) + " of " + std::to_string(nup.n);
    c.Centred(W / 2, H / 2 + dpi / 2, 14, where);
    std::string what = info.paper + ", " + info.orientation + ", " + std::to_string(dpi) + " dpi";
    c.Centred(W / 2, H / 2 + dpi / 2 + dpi / 4, 12, what);
    return c.out;
}

std::string RenderImagePage(const Image &img, const PageInfo &info, const PageGeometry &g,
                            const NupLayout &nup, int cell) {
    Placement place{nup, cell};
    int dpi = nup.dpi;
    int64_t W = Pixels(g.cxPrintable, dpi), H = Pixels(g.cyPrintable, dpi);
    // Fit the image into the frame, keeping its shape, centred; then into the cell.
    double fit = std::min(static_cast<double>(W) / img.width, static_cast<double>(H) / img.height);
    int64_t w = std::max<int64_t>(1, static_cast<int64_t>(img.width * fit));
    int64_t h = std::max<int64_t>(1, static_cast<int64_t>(img.height * fit));
    int64_t x0 = (W - w) / 2, y0 = (H - h) / 2;
    // The raster goes at the printer's raster resolution, which the printer scales up.
    int rdpi = RasterResolution(dpi);
    int sw = static_cast<int>(std::max<int64_t>(1, place.L(w) * rdpi / dpi));
    int sh = static_cast<int>(std::max<int64_t>(1, place.L(h) * rdpi / dpi));
    std::string out = kEnterPcl;
    RasterEncoder enc(sw, sh, info.colour, static_cast<int>(place.X(x0)),
                      static_cast<int>(place.Y(y0)), dpi, rdpi, out);
    std::vector<uint8_t> row(static_cast<size_t>(sw) * img.channels);
    for (int y = 0; y < sh; ++y) {
        size_t sy = static_cast<size_t>(int64_t{y} * img.height / sh);
        const uint8_t *src = &img.pixels[sy * img.width * img.channels];
        for (int x = 0; x < sw; ++x) {
            size_t sx = static_cast<size_t>(int64_t{x} * img.width / sw);
            for (int k = 0; k < img.channels; ++k)
                row[static_cast<size_t>(x) * img.channels + k] = src[sx * img.channels + k];
        }
        enc.Row(row.data(), img.channels);
    }
    enc.Finish();
    return out;
}

} // namespace q417::pages
