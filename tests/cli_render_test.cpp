// The renderer's pieces of q417 print: N-up placement as the library places cells, and the
// PBM/PGM/PPM reader. (Where test pages land in their cells is in pages_render_test.)
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
