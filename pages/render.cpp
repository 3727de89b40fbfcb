// Test pages and images as PCL, placed in N-up cells.
#include "render.h"
#include "format.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace q417::pages {

namespace {

int Trunc(double v) {
    return static_cast<int>(v);
}

// Where a logical pixel lands on the sheet, and how long a logical length is there.
struct Placement {
    const NupLayout &nup;
    int cell;
    int X(int x) const {
        return nup.n == 1 ? x : nup.scale * x * 10 / nup.dpi / 10 + nup.origins[cell].first;
    }
    int Y(int y) const {
        return nup.n == 1 ? y : nup.scale * y * 10 / nup.dpi / 10 + nup.origins[cell].second;
    }
    int L(int len) const {
        if (nup.n == 1) return len;
        int s = static_cast<int>(static_cast<int64_t>(nup.scale) * len / nup.dpi);
        return s > 0 ? s : 1;
    }
    double Points(double pt) const { return nup.n == 1 ? pt : pt * nup.scale / nup.dpi; }
};

// Every page's data begins by entering PCL: after a watermark on a cell that opened no page
// header, the library leaves the printer in whatever language it found it, and that may be
// HP-GL/2.
constexpr char kEnterPcl[] = "\x1b%0A";

class Canvas {
  public:
    explicit Canvas(const Placement &p) : out(kEnterPcl), p_(p) {}
    void Rect(int x, int y, int w, int h) {
        out += Format("\x1b*p%dx%dY\x1b*c%da%db0P", p_.X(x), p_.Y(y), p_.L(w), p_.L(h));
    }
    // Text with its baseline at (x, y); Univers bold at `pt` points of the logical page.
    void Text(int x, int y, double pt, const std::string &s) {
        out += Format("\x1b(0N\x1b(s1p%.2fv0s3b4148T", p_.Points(pt));
        out += Format("\x1b*p%dx%dY", p_.X(x), p_.Y(y));
        out += s;
    }
    std::string out;

  private:
    const Placement &p_;
};

// A rough width of Univers bold, enough to centre a line.
int TextWidth(const std::string &s, double pt, int dpi) {
    return Trunc(s.size() * pt * 0.6 * dpi / 72.0);
}

} // namespace

NupLayout MakeNupLayout(int n, int orientation, const PageGeometry &g, int dpi) {
    NupLayout l;
    l.dpi = dpi;
    l.scale = dpi;
    l.origins.assign(1, {0, 0});
    l.cxSubPage = g.cxPrintable * dpi / 720;
    l.cySubPage = g.cyPrintable * dpi / 720;
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
    l.cxSubPage = dpi * Trunc(imgW + 0.5) / 720;
    l.cySubPage = dpi * Trunc(imgH + 0.5) / 720;
    l.origins.clear();
    for (int r = 0; r < l.rows; ++r)
        for (int c = 0; c < l.columns; ++c)
            l.origins.emplace_back(Trunc(c * cellW + offX + dx + 0.5) * dpi / 720,
                                   Trunc(r * cellH + offY + dy + 0.5) * dpi / 720);
    return l;
}

std::string RenderTestPage(const PageInfo &info, const PageGeometry &g, const NupLayout &nup,
                           int cell) {
    Placement place{nup, cell};
    Canvas c(place);
    int dpi = nup.dpi;
    int W = g.cxPrintable * dpi / 720, H = g.cyPrintable * dpi / 720;
    int t = dpi / 75 > 2 ? dpi / 75 : 2;
    // The frame of the printable area.
    c.Rect(0, 0, W, t);
    c.Rect(0, H - t, W, t);
    c.Rect(0, 0, t, H);
    c.Rect(W - t, 0, t, H);
    // A scale along the top and the left edge: quarter inches, inches longer and numbered.
    for (int i = 1; i * dpi / 4 < W; ++i) {
        int x = i * dpi / 4, len = i % 4 == 0 ? dpi / 5 : i % 2 == 0 ? dpi / 9 : dpi / 16;
        c.Rect(x, t, t / 2 + 1, len);
        if (i % 4 == 0) c.Text(x + t, t + dpi / 5 + dpi / 8, 9, std::to_string(i / 4));
    }
    for (int i = 1; i * dpi / 4 < H; ++i) {
        int y = i * dpi / 4, len = i % 4 == 0 ? dpi / 5 : i % 2 == 0 ? dpi / 9 : dpi / 16;
        c.Rect(t, y, len, t / 2 + 1);
        if (i % 4 == 0) c.Text(t + dpi / 5 + dpi / 20, y + dpi / 16, 9, std::to_string(i / 4));
    }
    // A solid block in the top right corner: a page turned or mirrored shows it elsewhere.
    int mark = dpi / 2;
    c.Rect(W - t - mark - dpi / 10, t + dpi / 10, mark, mark);
    std::string top = "TOP";
    c.Text(W / 2 - TextWidth(top, 18, dpi) / 2, t + dpi / 2, 18, top);
    // The page number, large, in the middle.
    double big = std::min(W, H) * 72.0 / dpi / 4;
    std::string label = "Page " + std::to_string(info.page);
    c.Text(W / 2 - TextWidth(label, big, dpi) / 2, H / 2, big, label);
    std::string where = "sheet " + std::to_string(info.sheet) + ", cell " +
                        std::to_string(cell + 1) + " of " + std::to_string(nup.n);
    c.Text(W / 2 - TextWidth(where, 14, dpi) / 2, H / 2 + dpi / 2, 14, where);
    std::string what = info.paper + ", " + info.orientation + ", " + std::to_string(dpi) + " dpi";
    c.Text(W / 2 - TextWidth(what, 12, dpi) / 2, H / 2 + dpi / 2 + dpi / 4, 12, what);
    return c.out;
}

std::string RenderImagePage(const Image &img, const PageInfo &info, const PageGeometry &g,
                            const NupLayout &nup, int cell) {
    Placement place{nup, cell};
    int dpi = nup.dpi;
    int W = g.cxPrintable * dpi / 720, H = g.cyPrintable * dpi / 720;
    // Fit the image into the frame, keeping its shape, centred; then into the cell.
    double fit = std::min(static_cast<double>(W) / img.width, static_cast<double>(H) / img.height);
    int w = std::max(1, Trunc(img.width * fit)), h = std::max(1, Trunc(img.height * fit));
    int x0 = (W - w) / 2, y0 = (H - h) / 2;
    int sw = place.L(w), sh = place.L(h);
    std::string out =
        Format("\x1b*p%dx%dY\x1b*r%dS\x1b*r%dT\x1b*b3M\x1b*r1A", place.X(x0), place.Y(y0), sw, sh);
    std::vector<uint8_t> row(info.colour ? static_cast<size_t>(sw) * 3 : (sw + 7) / 8);
    std::vector<uint8_t> seed(row.size()); // raster graphics start with a zero seed row
    static const uint8_t kBayer[8][8] = {
        {0, 32, 8, 40, 2, 34, 10, 42},  {48, 16, 56, 24, 50, 18, 58, 26},
        {12, 44, 4, 36, 14, 46, 6, 38}, {60, 28, 52, 20, 62, 30, 54, 22},
        {3, 35, 11, 43, 1, 33, 9, 41},  {51, 19, 59, 27, 49, 17, 57, 25},
        {15, 47, 7, 39, 13, 45, 5, 37}, {63, 31, 55, 23, 61, 29, 53, 21}};
    for (int y = 0; y < sh; ++y) {
        int sy = static_cast<int>(static_cast<int64_t>(y) * img.height / sh);
        std::fill(row.begin(), row.end(), 0);
        for (int x = 0; x < sw; ++x) {
            int sx = static_cast<int>(static_cast<int64_t>(x) * img.width / sw);
            const uint8_t *px =
                &img.pixels[(static_cast<size_t>(sy) * img.width + sx) * img.channels];
            uint8_t r = px[0], gr = img.channels == 3 ? px[1] : px[0],
                    b = img.channels == 3 ? px[2] : px[0];
            if (info.colour) {
                row[x * 3] = r, row[x * 3 + 1] = gr, row[x * 3 + 2] = b;
            } else {
                int gray = (r * 30 + gr * 59 + b * 11) / 100;
                if (gray * 64 / 255 <= kBayer[y % 8][x % 8]) // darker than the threshold: ink
                    row[x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
            }
        }
        std::vector<uint8_t> delta = DeltaRow(row.data(), seed.data(), row.size());
        out += Format("\x1b*b%zuW", delta.size());
        out.append(reinterpret_cast<const char *>(delta.data()), delta.size());
        seed.swap(row);
    }
    out += "\x1b*rC";
    return out;
}

} // namespace q417::pages
