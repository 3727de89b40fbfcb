// N-up placement: grids, images, scales and cell origins, to the pixel.
#include "job_harness.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <vector>

namespace {

using Origins = std::vector<std::array<INT, 2>>;
using q417::test::Sheet;

// Every grid, and frames that do not divide evenly. The values were worked out independently
// of this code, in single precision with double intermediates: on the uneven frames keeping a
// cell or image size in double, or a constant as a double, moves the scale or the image by one.
// The sheet's layout is the record's, its pairs swapped where the sheet turns.
TEST(NUp, EveryLayoutToThePixel) {
    struct Case {
        const char *what;
        BYTE n;
        SHORT orient, res;
        INT paper[2], frame[2], margin[2];
        DWORD keep;
        int scale, cx, cy;
        Origins cells;
    } cases[] = {
        // clang-format off
        {"letter, two up: the sheet turns, the page fits its image", 2, 1, 600, {6120, 7920},
         {5760, 7560}, {180, 200}, 0, 352, 2992, 3872, {{79, 463}, {3229, 463}}},
        {"letter, four up", 4, 1, 600, {6120, 7920}, {5760, 7560}, {180, 180}, 1, 285, 2280, 2992,
         {{60, 79}, {2460, 79}, {60, 3229}, {2460, 3229}}},
        {"letter, two up turned", 2, 2, 600, {6120, 7920}, {5760, 7560}, {180, 180}, 0, 207, 1761,
         2280, {{2269, 60}, {2269, 2460}}},
        {"letter, six up", 6, 1, 600, {6120, 7920}, {5760, 7560}, {180, 180}, 0, 207, 1761, 2280,
         {{169, 60}, {2269, 60}, {4369, 60}, {169, 2460}, {2269, 2460}, {4369, 2460}}},
        // Turned: 0.92 for the image, and the cell's 0.05 halved as the left gap.
        {"letter, six up turned", 6, 2, 600, {6120, 7920}, {5760, 7560}, {180, 180}, 0, 134, 1137,
         1471, {{959, 64}, {4109, 64}, {959, 1664}, {4109, 1664}, {959, 3264}, {4109, 3264}}},
        // Any other orientation takes the turned grid and scale, but the centred gap.
        {"letter, six up, orientation 3", 6, 3, 600, {6120, 7920}, {5760, 7560}, {180, 180}, 0,
         134, 1137, 1471,
         {{1006, 64}, {4156, 64}, {1006, 1664}, {4156, 1664}, {1006, 3264}, {4156, 3264}}},
        {"letter, nine up", 9, 1, 600, {6120, 7920}, {5760, 7560}, {180, 180}, 1, 190, 1520, 1995,
         {{40, 52}, {1640, 52}, {3240, 52}, {40, 2152}, {1640, 2152}, {3240, 2152},
          {40, 4252}, {1640, 4252}, {3240, 4252}}},
        {"letter, sixteen up", 16, 1, 600, {6120, 7920}, {5760, 7560}, {180, 180}, 1, 143, 1140,
         1496, {{30, 39}, {1230, 39}, {2430, 39}, {3630, 39}, {30, 1614}, {1230, 1614},
          {2430, 1614}, {3630, 1614}, {30, 3189}, {1230, 3189}, {2430, 3189}, {3630, 3189},
          {30, 4764}, {1230, 4764}, {2430, 4764}, {3630, 4764}}},
        {"5216 by 7370, four up, 300 dpi: 143 with double constants",
         4, 1, 300, {5216, 7370}, {4976, 7130}, {120, 120}, 1, 142, 985, 1411,
         {{25, 37}, {1062, 37}, {25, 1522}, {1062, 1522}}},
        {"A4, four up, 300 dpi: 142 without the stores",
         4, 1, 300, {5953, 8419}, {5713, 8179}, {120, 120}, 1, 143, 1130, 1618,
         {{29, 42}, {1220, 42}, {29, 1746}, {1220, 1746}}},
        {"legal, two up: 332 and 2825 without the stores",
         2, 1, 600, {6120, 10080}, {5880, 9840}, {120, 120}, 0, 333, 2826, 4655,
         {{636, 122}, {4736, 122}}},
        {"A4, six up turned: the page is narrowed in its cell",
         6, 2, 600, {5953, 8419}, {5713, 8179}, {120, 120}, 0, 125, 1032, 1460,
         {{1136, 63}, {4545, 63}, {1136, 1650}, {4545, 1650}, {1136, 3237}, {4545, 3237}}},
        {"A4, nine up, 1200 dpi",
         9, 1, 1200, {5953, 8419}, {5713, 8179}, {120, 120}, 1, 380, 3015, 4316,
         {{80, 113}, {3253, 113}, {6426, 113}, {80, 4656}, {3253, 4656}, {6426, 4656},
          {80, 9201}, {3253, 9201}, {6426, 9201}}},
        // clang-format on
    };
    for (const Case &c : cases) {
        Sheet s(c.n, c.orient, c.res);
        SPLDEVINFO &r = s.info;
        r.cxPaper = c.paper[0];
        r.cyPaper = c.paper[1];
        r.cxPrintable = c.frame[0];
        r.cyPrintable = c.frame[1];
        r.cxMargin = c.margin[0];
        r.cyMargin = c.margin[1];
        InitSubPages(&r);
        SCOPED_TRACE(c.what);
        EXPECT_EQ(r.nPagesPerSheet, c.n);
        EXPECT_EQ(r.bKeepOrient, c.keep);
        EXPECT_EQ(r.nScaleX, c.scale);
        EXPECT_EQ(r.nScaleY, c.scale);
        EXPECT_EQ(r.cxSubPage, c.cx);
        EXPECT_EQ(r.cySubPage, c.cy);
        const auto *cells = reinterpret_cast<const std::array<INT, 2> *>(r.SubPageOrg);
        EXPECT_EQ(Origins(cells, cells + r.nPagesPerSheet), c.cells);
        EXPECT_EQ(r.xSubPage, c.cells[0][0]) << "the first cell is current";
        EXPECT_EQ(r.ySubPage, c.cells[0][1]);
        EXPECT_EQ(r.nLayoutOrient, c.orient);
        EXPECT_EQ(r.nLayoutPaper, 1);
        const auto [cx, cy] = c.keep ? std::pair{0, 1} : std::pair{1, 0};
        EXPECT_EQ(std::vector<INT>(r.Layout, r.Layout + 6),
                  (std::vector<INT>{c.paper[cx], c.paper[cy], c.frame[cx], c.frame[cy],
                                    c.margin[cx], c.margin[cy]}));
    }
}

TEST(NUp, PagesPerSheetOutsideTheTable) {
    struct Case {
        BYTE bLayout;
        DWORD pages;
        INT orient; // nLayoutOrient afterwards; starts at 99
    } cases[] = {
        {1, 1, 99},    // one page: nothing is laid out
        {3, 1, 1},     // no grid for 3: the fields are set, one page per sheet
        {0, 1, 1},     // likewise 0
        {0xC4, 4, 1},  // booklet and border bits are not this side's
        {0x41, 1, 99}, // booklet bit and one page
    };
    for (const Case &c : cases) {
        Sheet s(c.bLayout, 1);
        s.info.nLayoutOrient = 99;
        InitSubPages(&s.info);
        EXPECT_EQ(s.info.nPagesPerSheet, c.pages) << int(c.bLayout);
        EXPECT_EQ(s.info.nLayoutOrient, c.orient) << int(c.bLayout);
    }
}

// The cell of each page: WriteHeaders. One page per sheet, or a count beyond the sixteen cells:
// nothing moves.
TEST(NUp, NewSubPageOutsideTheCells) {
    Sheet s(4, 1);
    InitSubPages(&s.info);
    s.info.xSubPage = 5;
    for (DWORD pages : {1u, 1000u}) {
        s.info.nPagesPerSheet = pages;
        s.info.nSubPage = 999;
        s.info.bJobFlags = JOB_SUBPAGE_MARK;
        NewSubPage(&s.info);
        EXPECT_EQ(s.info.xSubPage, 5) << pages;
        EXPECT_EQ(s.info.bJobFlags, pages == 1 ? JOB_SUBPAGE_MARK : 0) << pages;
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

TEST(NUp, ZerosAndExtremesFromTheSenderDoNotTrap) {
    // No defined result, but no trap either: the sanitizers watch this one.
    for (INT value : {0, INT_MAX}) {
        for (INT SPLDEVINFO::*field : {&SPLDEVINFO::cxPaper, &SPLDEVINFO::cyPaper,
                                       &SPLDEVINFO::cxPrintable, &SPLDEVINFO::cyPrintable}) {
            for (BYTE n : {2, 4, 6}) {
                Sheet s(n, 1);
                s.info.*field = value;
                InitSubPages(&s.info);
            }
        }
    }
    Sheet s(4, 1, 0);
    InitSubPages(&s.info);
    s.info.nScaleY = INT_MAX;
    ScaleNupHt(&s.info, INT_MAX);
    ScaleNupPosX(&s.info, INT_MIN);
    ScaleNupPosY(&s.info, INT_MIN);
    s.dm.dmYResolution = -1;
    s.info.nScaleY = 1;
    ScaleNupHt(&s.info, INT_MIN);
}

} // namespace
