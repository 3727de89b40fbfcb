// Test pages as the sample printers get them: both samples, both orientations, 300 and 600
// dpi, 1 to 16 up. The renderer's cells are the ones whose origins the library uses;
// every position is absolute and inside the cell, rules stay at least a dot wide, the "TOP"
// marker clears the ruler, and the descriptions' areas start where the printers' logical page
// does, so the frame lands inside the printable area.
#include "job/job.h"
#include "printer.h"
#include "render.h"
#include "settings.h"
#include "tests/support/printer_harness.h"

#include <regex>

namespace {

namespace fs = std::filesystem;
using namespace q417::pages;

struct Box {
    long long x0, y0, x1, y1;
    bool Meets(const Box &o) const { return x0 < o.x1 && o.x0 < x1 && y0 < o.y1 && o.y0 < y1; }
};

struct Drawn {
    std::vector<Box> rects;
    std::vector<std::pair<Box, std::string>> texts; // em box above the baseline
    bool relative = false;
};

// The rectangles and texts of a test page, from its own commands.
Drawn Parse(const std::string &pcl, int dpi) {
    Drawn d;
    static const std::regex kItem("\x1b\\(s1p([0-9.]+)v0s3b4148T|"   // font height in points
                                  "\x1b\\*p([-+]?\\d+)x([-+]?\\d+)Y" // position
                                  "(?:\x1b\\*c(\\d+)a(\\d+)b0P|([^\x1b]+))?"); // rectangle or text
    double pt = 0;
    for (auto it = std::sregex_iterator(pcl.begin(), pcl.end(), kItem);
         it != std::sregex_iterator(); ++it) {
        const std::smatch &m = *it;
        if (m[1].matched) {
            pt = std::stod(m[1]);
            continue;
        }
        d.relative |= (m.str(2) + m.str(3)).find_first_of("+-") != std::string::npos;
        long long x = std::stoll(m[2]), y = std::stoll(m[3]);
        if (m[4].matched) {
            d.rects.push_back({x, y, x + std::stoll(m[4]), y + std::stoll(m[5])});
        } else if (m[6].matched) {
            long long em = static_cast<long long>(pt * dpi / 72);
            long long w = static_cast<long long>(m.str(6).size() * pt * 0.6 * dpi / 72);
            d.texts.push_back({{x, y - em, x + w, y}, m[6]});
        }
    }
    return d;
}

// Where each printer's logical page begins on the sheet, decipoints: a quarter inch from the
// side on Letter, 17 pt on A4, 0.2 inch in landscape; the top margin is one line at 4 lines
// an inch.
struct Paper {
    const char *name;
    int left[2]; // portrait, landscape
};

// One layout of a sample: the renderer's cells against the library's, and test pages drawn in
// the first and the last cell.
void CheckLayout(Printer &printer, const Paper &paper, bool landscape, int n, const char *res,
                 const std::string &what) {
    SCOPED_TRACE(what);
    std::vector<uint8_t> dm = printer.NewDevMode();
    JobSettings s;
    s.paper = paper.name;
    s.orientation = landscape ? "landscape" : "portrait";
    s.nup = n;
    s.resolution = res;
    ApplySettings(DM(dm), s);
    PageGeometry g = Geometry(DM(dm));
    EXPECT_EQ(g.cxMargin, paper.left[landscape]);
    EXPECT_EQ(g.cyMargin, 180);
    const int dpi = DM(dm)->dmYResolution;
    NupLayout l = MakeNupLayout(n, DM(dm)->dmOrientation, g, dpi);
    SPLDEVINFO lib{};
    lib.cxPaper = g.cxPaper, lib.cyPaper = g.cyPaper;
    lib.cxPrintable = g.cxPrintable, lib.cyPrintable = g.cyPrintable;
    lib.cxMargin = g.cxMargin, lib.cyMargin = g.cyMargin;
    lib.pDevMode = Ptr32From(DM(dm));
    InitSubPages(&lib);
    EXPECT_EQ(lib.nPagesPerSheet, DWORD(n));
    ASSERT_EQ(l.origins.size(), size_t(n));
    if (n > 1) { // one page a sheet has no cells in the library
        EXPECT_EQ(l.scale, lib.nScaleX);
        EXPECT_EQ(l.cxSubPage, lib.cxSubPage);
        EXPECT_EQ(l.cySubPage, lib.cySubPage);
        for (int i = 0; i < n; ++i)
            EXPECT_EQ(l.origins[i], std::make_pair(lib.SubPageOrg[i][0], lib.SubPageOrg[i][1]))
                << ", cell " << i;
    }
    for (int cell : {0, n - 1}) {
        PageInfo info;
        info.page = 10 + cell, info.paper = paper.name;
        info.orientation = s.orientation;
        Drawn d = Parse(RenderTestPage(info, g, l, cell), dpi);
        EXPECT_FALSE(d.relative);
        // The cell: the printable frame, scaled and placed; a little slack for the layout's
        // rounding of the scale.
        const long long W = 1LL * g.cxPrintable * dpi / 720, H = 1LL * g.cyPrintable * dpi / 720;
        Box frame{0, 0, W, H};
        if (n > 1) {
            auto [ox, oy] = l.origins[cell];
            long long slack = l.cxSubPage / 100 + 2;
            frame = {ox, oy, ox + W * l.scale / dpi + slack, oy + H * l.scale / dpi + slack};
        }
        ASSERT_GT(d.rects.size(), 20u);
        for (const Box &r : d.rects) {
            EXPECT_TRUE(r.x1 > r.x0 && r.y1 > r.y0) << ": a rule vanished";
            EXPECT_TRUE(r.x0 >= frame.x0 && r.y0 >= frame.y0 && r.x1 <= frame.x1 &&
                        r.y1 <= frame.y1)
                << ": rectangle " << r.x0 << "," << r.y0 << " outside";
        }
        const Box *top = nullptr;
        for (const auto &[box, text] : d.texts) {
            EXPECT_TRUE(box.x0 >= frame.x0 && box.x1 <= frame.x1 && box.y1 <= frame.y1)
                << ": \"" << text << "\" at " << box.x0 << " outside";
            if (text == "TOP") top = &box;
        }
        // The frame's rules: the first four rectangles, distinct edges.
        EXPECT_LT(d.rects[2].x1, d.rects[3].x0);
        EXPECT_LT(d.rects[0].y1, d.rects[1].y0);
        ASSERT_NE(top, nullptr);
        for (size_t i = 4; i < d.rects.size(); ++i)
            EXPECT_FALSE(top->Meets(d.rects[i])) << ": TOP on the ruler";
        for (const auto &[box, text] : d.texts)
            EXPECT_TRUE(&box == top || !top->Meets(box)) << ": " << text;
    }
}

// The samples are copied to a scratch directory, where their compiled files are written.
using PagesRender = q417test::CliTest;

TEST_F(PagesRender, TestPagesOnTheSamples) {
    for (const char *sample : {"qcl4100.pdd", "qml2400.pdd"}) {
        fs::copy_file(fs::path(Q417_SOURCE_DIR) / "share" / sample, dir_ / sample);
        Printer printer((dir_ / sample).string(), "LPT1:");
        for (const Paper &paper : {Paper{"Letter", {180, 144}}, Paper{"A4", {170, 144}}})
            for (bool landscape : {false, true})
                for (int n : {1, 2, 4, 6, 9, 16})
                    for (const char *res : {"300dpi", "600dpi"}) {
                        CheckLayout(printer, paper, landscape, n, res,
                                    std::string(sample) + " " + paper.name +
                                        (landscape ? " landscape " : " portrait ") +
                                        std::to_string(n) + "-up " + res);
                    }
    }
}

} // namespace
