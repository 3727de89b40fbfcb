// The renderer's pieces of q417 print: N-up placement as the library places cells, and the
// PBM/PGM/PPM reader. (Where test pages land in their cells is in pages_render_test.)
#include "image.h"
#include "job/job.h"
#include "render.h"
#include "tool.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using namespace q417tool;

// The renderer must land each page in the cell whose origin the library uses: its grid against
// the library's own, for every pages-per-sheet value, orientation and resolution, on Letter
// (frame 8 x 10.5 inches) and A4.
TEST(CliRender, NupLayoutIsTheLibrarysForEveryGrid) {
    const PageGeometry papers[] = {{6120, 7920, 5760, 7560, 180, 180},
                                   {5953, 8419, 5713, 8179, 120, 120}};
    for (const PageGeometry &g : papers)
        for (int n : {1, 2, 3, 4, 6, 9, 16})
            for (SHORT orientation : {1, 2})
                for (SHORT dpi : {300, 600, 1200}) {
                    SPLDEVINFO info{};
                    DDIDEVMODE dm{};
                    info.cxPaper = g.cxPaper, info.cyPaper = g.cyPaper;
                    info.cxPrintable = g.cxPrintable, info.cyPrintable = g.cyPrintable;
                    info.cxMargin = g.cxMargin, info.cyMargin = g.cyMargin;
                    dm.bLayout = BYTE(n), dm.dmOrientation = orientation, dm.dmPaperSize = 1;
                    dm.dmPrintQuality = dm.dmYResolution = dpi;
                    info.pDevMode = Ptr32From(&dm);
                    InitSubPages(&info);
                    const NupLayout l = MakeNupLayout(n, orientation, g, dpi);
                    SCOPED_TRACE(testing::Message() << g.cxPaper << " " << n << "-up, orientation "
                                                    << orientation << ", " << dpi << " dpi");
                    EXPECT_EQ(l.scale, info.nPagesPerSheet > 1 ? info.nScaleX : dpi);
                    EXPECT_EQ(info.nPagesPerSheet, n == 3 ? 1u : DWORD(n));
                    EXPECT_EQ(l.origins.size(), size_t(info.nPagesPerSheet));
                    if (info.nPagesPerSheet < 2) continue;
                    EXPECT_EQ(l.cxSubPage, info.cxSubPage);
                    EXPECT_EQ(l.cySubPage, info.cySubPage);
                    for (size_t i = 0; i < l.origins.size() && i < 16; ++i)
                        EXPECT_EQ(l.origins[i],
                                  std::make_pair(info.SubPageOrg[i][0], info.SubPageOrg[i][1]))
                            << "cell " << i;
                }
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
