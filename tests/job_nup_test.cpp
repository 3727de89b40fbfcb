// N-up placement: grids, images, scales and cell origins, to the pixel.
#include "job_harness.h"

#include <algorithm>
#include <array>
#include <climits>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Origins = std::vector<std::array<INT, 2>>;
using q417::test::Sheet;

// Every grid, and frames that do not divide evenly, from tests/data/nup_layouts.txt. The sheet's
// layout is the record's, its pairs swapped where the sheet turns.
TEST(NUp, EveryLayoutToThePixel) {
    std::istringstream file(q417::test::DataFile("nup_layouts.txt"));
    int layouts = 0;
    std::string what;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] == '#') {
            what = line;
            continue;
        }
        std::replace_if(
            line.begin(), line.end(), [](char c) { return c == '|' || c == ','; }, ' ');
        std::istringstream in(line);
        int n, orient, res, scale, cx, cy;
        DWORD keep;
        in >> n >> orient >> res;
        Sheet s(static_cast<BYTE>(n), static_cast<SHORT>(orient), static_cast<SHORT>(res));
        SPLDEVINFO &r = s.info;
        in >> r.cxPaper >> r.cyPaper >> r.cxPrintable >> r.cyPrintable >> r.cxMargin >> r.cyMargin;
        in >> keep >> scale >> cx >> cy;
        Origins cells;
        for (INT x, y; in >> x >> y;) cells.push_back({x, y});
        ++layouts;
        SCOPED_TRACE(what);
        InitSubPages(&r);
        EXPECT_EQ(r.nPagesPerSheet, static_cast<DWORD>(n));
        EXPECT_EQ(r.bKeepOrient, keep);
        EXPECT_EQ(r.nScaleX, scale);
        EXPECT_EQ(r.nScaleY, scale);
        EXPECT_EQ(r.cxSubPage, cx);
        EXPECT_EQ(r.cySubPage, cy);
        const auto *made = reinterpret_cast<const std::array<INT, 2> *>(r.SubPageOrg);
        EXPECT_EQ(Origins(made, made + r.nPagesPerSheet), cells);
        EXPECT_EQ(r.xSubPage, cells.at(0)[0]) << "the first cell is current";
        EXPECT_EQ(r.ySubPage, cells.at(0)[1]);
        EXPECT_EQ(r.nLayoutOrient, orient);
        EXPECT_EQ(r.nLayoutPaper, 1);
        const INT pairs[3][2] = {
            {r.cxPaper, r.cyPaper}, {r.cxPrintable, r.cyPrintable}, {r.cxMargin, r.cyMargin}};
        for (int i = 0; i < 6; ++i) EXPECT_EQ(r.Layout[i], pairs[i / 2][(i % 2) ^ !keep]) << i;
    }
    EXPECT_EQ(layouts, 13);
}

// Pages per sheet outside the table, a cell count beyond the sixteen cells, and zeros and
// extremes from the sender: nothing is laid out or moved that should not be, and nothing traps
// (no defined result otherwise: the sanitizers watch this one).
TEST(NUp, OutsideTheTableAndFromTheSender) {
    // bLayout, then nPagesPerSheet and nLayoutOrient (from 99): no grid for 3; one page is not
    // laid out; the booklet and border bits are not this side's.
    for (auto [layout, pages, orient] : {std::tuple{3, 1u, 1}, {0x41, 1u, 99}, {0xC4, 4u, 1}}) {
        Sheet s(static_cast<BYTE>(layout), 1);
        s.info.nLayoutOrient = 99;
        InitSubPages(&s.info);
        EXPECT_EQ(s.info.nPagesPerSheet, pages) << layout;
        EXPECT_EQ(s.info.nLayoutOrient, orient) << layout;
    }
    Sheet s(4, 1, 0);
    InitSubPages(&s.info);
    s.info.xSubPage = 5;
    s.info.nPagesPerSheet = 1000;
    s.info.nSubPage = 999; // no cell of sixteen
    NewSubPage(&s.info);
    EXPECT_EQ(s.info.xSubPage, 5);
    s.info.nScaleY = INT_MAX;
    ScaleNupHt(&s.info, INT_MAX);
    ScaleNupPosX(&s.info, INT_MIN);
    s.dm.dmYResolution = -1;
    s.info.nScaleY = 1;
    ScaleNupHt(&s.info, INT_MIN);
    for (INT value : {0, INT_MAX}) {
        for (INT SPLDEVINFO::*field : {&SPLDEVINFO::cxPaper, &SPLDEVINFO::cyPaper,
                                       &SPLDEVINFO::cxPrintable, &SPLDEVINFO::cyPrintable}) {
            Sheet t(6, 1);
            t.info.*field = value;
            InitSubPages(&t.info);
        }
    }
}

TEST(NUp, ScalingTruncatesTwiceAndAddsTheOrigin) {
    Sheet s(4, 1); // scale 285, origin (60, 79)
    InitSubPages(&s.info);
    struct Case {
        int value, ht, x, y;
    } cases[] = {
        {720, 342, 342 + 60, 342 + 79},
        {1, 0, 60, 79}, // 285 x 10 / 600 = 4, / 10 = 0
        {3, 1, 61, 80}, // 8550 / 600 = 14, / 10 = 1
        {-720, -342, -282, -263},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(ScaleNupHt(&s.info, c.value), c.ht) << c.value;
        EXPECT_EQ(ScaleNupPosX(&s.info, c.value), c.x) << c.value;
        EXPECT_EQ(ScaleNupPosY(&s.info, c.value), c.y) << c.value;
    }
    s.dm.dmPrintQuality = 300; // 300 by 600 dpi: each axis by its own resolution
    EXPECT_EQ(ScaleNupPosX(&s.info, 720), 684 + 60);
    EXPECT_EQ(ScaleNupPosY(&s.info, 720), 342 + 79);
    s.info.nPagesPerSheet = 1;
    EXPECT_EQ(ScaleNupHt(&s.info, 720), 720);
    EXPECT_EQ(ScaleNupPosX(&s.info, 720), 720);
    EXPECT_EQ(ScaleNupPosY(&s.info, 720), 720);
}

} // namespace
