// The renderer's pieces of q417 print: N-up placement as the library places cells, the
// delta row coder, the PBM/PGM/PPM reader.
#include "image.h"
#include "render.h"
#include "tool.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using namespace q417tool;

// The renderer must land each page in the cell whose origin the library uses, so the grid is
// checked against the library's own worked examples: Letter, frame 8 x 10.5 inches, 600 dpi.
TEST(CliRender, NupLayoutMatchesTheLibrarysCells) {
    PageGeometry g;
    g.cxPaper = 6120, g.cyPaper = 7920, g.cxPrintable = 5760, g.cyPrintable = 7560;
    struct Want {
        int n, orientation, scale, cxSub, cySub;
        std::vector<std::pair<int, int>> origins;
    } cases[] = {
        {4, 1, 285, 2280, 2992, {{60, 79}, {2460, 79}, {60, 3229}, {2460, 3229}}},
        {2, 1, 352, 2992, 3872, {{79, 463}, {3229, 463}}},
        {1, 1, 600, 4800, 6300, {{0, 0}}},
        {3, 1, 600, 4800, 6300, {{0, 0}}}, // not a layout: one page a sheet
    };
    for (const Want &w : cases) {
        NupLayout l = MakeNupLayout(w.n, w.orientation, g, 600);
        EXPECT_EQ(l.scale, w.scale) << w.n;
        EXPECT_EQ(l.cxSubPage, w.cxSub) << w.n;
        EXPECT_EQ(l.cySubPage, w.cySub) << w.n;
        EXPECT_EQ(l.origins, w.origins) << w.n;
    }
    // Six up, landscape: three rows of two, the 0.92 image and the left-leaning offset.
    NupLayout six = MakeNupLayout(6, 2, g, 600);
    EXPECT_EQ(six.columns, 2);
    EXPECT_EQ(six.rows, 3);
    EXPECT_EQ(six.origins.size(), 6u);
    EXPECT_LT(six.origins[0].first, six.origins[1].first);
}

// Test pages go through the cell: every position of a page in cell 1 of a 4-up sheet lies in
// the right half of the sheet.
TEST(CliRender, TestPageLandsInItsCell) {
    PageGeometry g;
    g.cxPaper = 6120, g.cyPaper = 7920, g.cxPrintable = 5760, g.cyPrintable = 7560;
    NupLayout l = MakeNupLayout(4, 1, g, 600);
    PageInfo info;
    info.page = 2, info.paper = "Letter", info.orientation = "portrait";
    std::string pcl = RenderTestPage(info, g, l, 1);
    size_t pos = 0;
    int seen = 0;
    while ((pos = pcl.find("\x1b*p", pos)) != std::string::npos) {
        pos += 3;
        int x = std::stoi(pcl.substr(pos));
        EXPECT_GE(x, 2460);
        EXPECT_LT(x, 2460 + 2280 + 1);
        ++seen;
    }
    EXPECT_GT(seen, 20);
    EXPECT_NE(pcl.find("Page 2"), std::string::npos);
}

TEST(CliRender, DeltaRow) {
    struct {
        const char *name;
        std::vector<uint8_t> row, seed, out;
    } cases[] = {
        {"equal rows cost nothing", {1, 2, 3}, {1, 2, 3}, {}},
        {"one byte at the start", {9, 2, 3}, {1, 2, 3}, {0x00, 9}},
        {"runs of at most 8",
         std::vector<uint8_t>(10, 7),
         std::vector<uint8_t>(10, 0),
         {0xE0, 7, 7, 7, 7, 7, 7, 7, 7, 0x20, 7, 7}},
        {"offset counts from the last replacement", {5, 0, 0, 6}, {0, 0, 0, 0}, {0x00, 5, 0x02, 6}},
    };
    for (auto &c : cases)
        EXPECT_EQ(DeltaRow(c.row.data(), c.seed.data(), c.row.size()), c.out) << c.name;
    // Offsets of 31 and more go on in further bytes: 31 + 255 + 14 = 300.
    std::vector<uint8_t> seed(301), row(301);
    row[300] = 1;
    EXPECT_EQ(DeltaRow(row.data(), seed.data(), row.size()),
              (std::vector<uint8_t>{0x1F, 255, 14, 1}));
    row.assign(31, 0), seed.assign(32, 0);
    row.push_back(1); // offset exactly 31: one more byte, 0
    EXPECT_EQ(DeltaRow(row.data(), seed.data(), row.size()), (std::vector<uint8_t>{0x1F, 0, 1}));
}

std::vector<uint8_t> Bytes(const std::string &s) {
    return {s.begin(), s.end()};
}

TEST(CliRender, PnmImages) {
    struct {
        const char *name;
        std::string data;
        int w, h, channels;
        std::vector<uint8_t> pixels;
    } cases[] = {
        {"P1 with a comment", "P1\n# c\n3 2\n1 0 1\n0 1 0\n", 3, 2, 1, {0, 255, 0, 255, 0, 255}},
        {"P4", std::string("P4 3 2\n\xa0\x40", 9), 3, 2, 1, {0, 255, 0, 255, 0, 255}},
        {"P2", "P2 2 1 4\n0 4\n", 2, 1, 1, {0, 255}},
        {"P5 16-bit", std::string("P5 1 1 65535\n\x80\x00", 15), 1, 1, 1, {127}},
        {"P6", std::string("P6 1 1 255\n\x01\x02\x03", 14), 1, 1, 3, {1, 2, 3}},
    };
    for (auto &c : cases) {
        Image img = DecodePnm(Bytes(c.data), c.name);
        EXPECT_EQ(img.width, c.w) << c.name;
        EXPECT_EQ(img.height, c.h) << c.name;
        EXPECT_EQ(img.channels, c.channels) << c.name;
        EXPECT_EQ(img.pixels, c.pixels) << c.name;
    }
    const char *bad[] = {"P5 2 2 255\n\x01",     // data cut short
                         "P7 1 1 255\n",         // no such kind
                         "P5 0 1 255\n",         // empty
                         "P2 1 1 4\n9\n",        // sample above the maximum
                         "P5 99999999 1 255\n"}; // absurd size
    for (const char *b : bad) EXPECT_THROW(DecodePnm(Bytes(b), "bad"), ToolError) << b;
}

} // namespace
