// Drawing the label: colour conversion, direction strings, and the command sequence on
// colour and monochrome printers.
#include "halftone/halftone.h"
#include "tests/watermark/harness.h"

#include <gtest/gtest.h>

#include <array>

namespace {

using namespace std::string_literals;

// The definition's tokens: saturation and lightness from -50 to 50 stand for 0.0 to 1.0.
TEST(WaterMarkColour, HslTokensToRgb) {
    struct Case {
        int hue, sat, light;
        std::array<int, 3> rgb;
    } cases[] = {
        {0, 50, 0, {255, 0, 0}},       // m2 = 1, m1 = 0
        {360, 50, 0, {255, 0, 0}},     // 360 stays and counts as red
        {0, -50, 50, {221, 221, 221}}, // gray, lightness capped at 0.87
        {480, 50, 0, {0, 255, 0}},     // wraps to 120
        {-120, 50, 0, {0, 0, 255}},    // wraps to 240
        {30, 50, -25, {127, 63, 0}},   // l = 0.25: m2 0.5, m1 0
        {200, 0, 30, {178, 212, 229}}, // l = 0.8: m2 0.9, m1 0.7
        // Nothing keeps a component within a byte: s = 500.5, m2 = 250.75, m1 = -249.75.
        {0, 50000, 0, {63941, -63686, -63686}},
    };
    for (const Case &c : cases) {
        std::array<int, 3> rgb{};
        hsl_to_rgb(c.hue, (c.sat + 50.0) / 100.0, (c.light + 50.0) / 100.0, &rgb[0], &rgb[1],
                   &rgb[2]);
        EXPECT_EQ(rgb, c.rgb) << c.hue << "," << c.sat << "," << c.light;
    }
}

class DrawTest : public ::testing::Test {
  protected:
    wmtest::Job job;
    long blocksBefore = 0;

    void SetUp() override {
        FreeXfers();
        blocksBefore = q417::mem::LiveBlocks();
        ASSERT_EQ(DefaultXfers(), 1);
        WM = WMINFO{};
        WM.nAngle = 450;
        WM.nHeight = 100;
        std::copy_n(u"DRAFT", 5, WM.szText);
        job.info.bJobFlags = JOB_WATERMARK;
        job.info.bOutputMode = OUTPUT_PCL;
    }
    void TearDown() override {
        FreeXfers();
        EXPECT_EQ(q417::mem::LiveBlocks(), blocksBefore);
    }
};

// The whole label, placed and turned: 32-bit centre arithmetic, and the direction's cosine
// and sine of an angle carried in double, each cut towards zero to three places. Pen colour
// and solid fill on a colour printer, no pattern; back in PCL at the end.
TEST_F(DrawTest, LabelPlacedAndTurned) {
    struct Case {
        int cx, cy;
        SHORT xres, yres;
        int angle; // tenths of a degree
        const char *placed;
    } cases[] = {
        {5760, 7560, 600, 600, 0, "PA2400,3150DI+1.000,+0.000"},
        {5760, 7560, 600, 600, 300, "PA2400,3150DI+0.866,+0.500"},
        {5760, 7560, 600, 600, 450, "PA2400,3150DI+0.707,+0.707"},
        {5760, 7560, 600, 600, -450, "PA2400,3150DI+0.707,-0.707"},
        {5760, 7560, 600, 600, 900, "PA2400,3150DI+0.000,+0.999"}, // a shade above two pi
        {5760, 7560, 600, 600, 1350, "PA2400,3150DI-0.707,+0.707"},
        {5760, 7560, 600, 600, 1500, "PA2400,3150DI-0.866,+0.499"},
        {5760, 7560, 600, 600, -1500, "PA2400,3150DI-0.866,-0.499"},
        {5760, 7560, 600, 600, 1800, "PA2400,3150DI-0.999,+0.000"},
        {5760, 7560, 600, 600, 1805, "PA2400,3150DI-0.999,+0.000"}, // tenths are dropped
        {5760, 7560, 600, 600, 2100, "PA2400,3150DI-0.866,-0.500"},
        {5760, 7560, 600, 600, -2100, "PA2400,3150DI-0.866,+0.500"},
        {5760, 7560, 600, 600, 2700, "PA2400,3150DI+0.000,-0.999"},
        {5760, 7560, 600, 600, -2700, "PA2400,3150DI+0.000,+0.999"},
        {5760, 7560, 600, 600, 3000, "PA2400,3150DI+0.500,-0.866"},
        {5760, 7560, 600, 600, 3590, "PA2400,3150DI+0.999,-0.017"},
        {5760, 7560, 600, 600, 3650, "PA2400,3150DI+0.996,+0.087"}, // wraps to 5 degrees
        {5761, 7561, 300, 1200, 450, "PA1200,6300DI+0.707,+0.707"}, // 12601.67, then 6300.5
        {4000000, 3000000, 600, 1200, 450, "PA-1315949,-482616DI+0.707,+0.707"}, // wraps
    };
    job.dm.wEmulation = 4;
    WM.nRed = 12, WM.nGreen = 34, WM.nBlue = 56;
    for (const Case &c : cases) {
        job.info.cxPrintable = c.cx, job.info.cyPrintable = c.cy;
        job.dm.dmPrintQuality = c.xres, job.dm.dmYResolution = c.yres;
        WM.nAngle = c.angle;
        EXPECT_EQ(DrawWaterMark(&job.info), 1);
        // Merge, pen 1's colour, soft font 32766 at 100 points, the label centred, then the
        // origin and direction restored.
        EXPECT_EQ(job.Take(), "\x1b%0BMC1,160PC1,12,34,56SP1FTIWPU"s + c.placed +
                                  "SBSD4,100FI32766LO5LBDRAFT\x03;LO21DI\x1b%0A")
            << c.cx << " " << c.angle;
        EXPECT_EQ(job.info.bOutputMode, OUTPUT_PCL);
        EXPECT_EQ(job.info.pCmdBuf, Ptr32From(job.cmdBuf));
    }
}

// Found in HP-GL/2, left in HP-GL/2; a gray goes out as a pattern even when the same level
// stands (wCurPattern is zeroed first), white and black need none.
TEST_F(DrawTest, MonochromeFills) {
    const std::string rows = "\xFB\xFB\xF1\xF1\xF1\xF1\xF1\xF1\xBF\xBF\x1F\x1F\x1F\x1F\x1F\x1F";
    // Back to PCL for the pattern of level 77, then pattern 2 in HP-GL/2.
    const std::string gray =
        "\x1b%0A\x1b*c2g40W\x00\x00\x01\x00\x00\x10\x00\x10"s + rows + rows + "\x1b%0BFT22,2SP1";
    struct Case {
        int r, g, b;
        std::string fill;
    } cases[] = {
        {255, 0, 0, gray},
        {255, 255, 255, "FTSP0"},
        {0, 0, 0, "FTSP1"},
        {0x100, 0x200, 0x300, "FTSP1"}, // only the low bytes count
    };
    job.dm.wEmulation = 1;
    for (const Case &c : cases) {
        job.info.bOutputMode = OUTPUT_HPGL;
        job.info.wCurPattern = 77;
        WM.nRed = c.r, WM.nGreen = c.g, WM.nBlue = c.b;
        EXPECT_EQ(DrawWaterMark(&job.info), 1);
        EXPECT_EQ(job.Take(),
                  "MC1,160" + c.fill +
                      "IWPUPA2400,3150DI+0.707,+0.707SBSD4,100FI32766LO5LBDRAFT\x03;LO21DI"
                      "FT") // solid again
            << c.r;
        EXPECT_EQ(job.info.bOutputMode, OUTPUT_HPGL);
    }
}

} // namespace
