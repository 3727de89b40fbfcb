// Drawing the label: colour conversion, direction strings, and the command sequence on
// colour and monochrome printers.
#include "halftone/halftone.h"
#include "tests/watermark/harness.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

using wmtest::Escaped;

struct Rgb {
    int r, g, b;
    bool operator==(const Rgb &) const = default;
};

Rgb FromTokens(int hue, int sat, int light) {
    Rgb c{};
    hsl_to_rgb(hue, (sat + 50.0) / 100.0, (light + 50.0) / 100.0, &c.r, &c.g, &c.b);
    return c;
}

TEST(WaterMarkColour, HslTokensToRgb) {
    struct Case {
        int hue, sat, light;
        Rgb rgb;
    } cases[] = {
        {0, 50, 0, {255, 0, 0}},       // m2 = 1, m1 = 0
        {0, -50, 50, {221, 221, 221}}, // gray, lightness capped at 0.87
        {120, 50, 0, {0, 255, 0}},
        {240, 50, 0, {0, 0, 255}},
        {480, 50, 0, {0, 255, 0}},     // wraps to 120
        {-120, 50, 0, {0, 0, 255}},    // wraps to 240
        {30, 50, -25, {127, 63, 0}},   // l = 0.25: m2 0.5, m1 0
        {200, 0, 30, {178, 212, 229}}, // l = 0.8: m2 0.9, m1 0.7
        // Nothing keeps a component within a byte: s = 500.5, m2 = 250.75, m1 = -249.75.
        {0, 50000, 0, {63941, -63686, -63686}},
        // Past 32 bits each component is the lowest integer, whatever its sign.
        {0, INT_MAX, 0, {INT_MIN, INT_MIN, INT_MIN}},
        {0, -50, INT_MIN, {INT_MIN, INT_MIN, INT_MIN}},
    };
    for (const Case &c : cases)
        EXPECT_EQ(FromTokens(c.hue, c.sat, c.light), c.rgb)
            << c.hue << "," << c.sat << "," << c.light;
    EXPECT_EQ(FromTokens(360, 50, 0), FromTokens(0, 50, 0));
    EXPECT_EQ(FromTokens(360, 20, 10), FromTokens(0, 20, 10));
}

TEST(WaterMarkColour, RgbValueWrapsHue) {
    EXPECT_DOUBLE_EQ(rgbvalue(0.2, 0.8, 360.0), 0.2); // 360 stays and counts as "otherwise"
    EXPECT_DOUBLE_EQ(rgbvalue(0.2, 0.8, 0.0), 0.2);
    EXPECT_DOUBLE_EQ(rgbvalue(0.2, 0.8, 30.0), 0.5);
    EXPECT_DOUBLE_EQ(rgbvalue(0.2, 0.8, 750.0), 0.5);
    EXPECT_DOUBLE_EQ(rgbvalue(0.2, 0.8, 210.0), 0.5);
    EXPECT_DOUBLE_EQ(rgbvalue(0.2, 0.8, -300.0), 0.8);
}

class DrawTest : public ::testing::Test {
  protected:
    wmtest::Job job;
    BYTE red[256], grn[256], blu[256];
    BYTE *saved[3] = {RedXfer, GrnXfer, BluXfer};

    void SetUp() override {
        for (int i = 0; i < 256; ++i) {
            red[i] = BYTE(i * 0.3001 + 0.5);
            grn[i] = BYTE(i * 0.59001 + 0.5);
            blu[i] = BYTE(i * 0.11 + 0.5);
        }
        RedXfer = red, GrnXfer = grn, BluXfer = blu;
        WM = WMINFO{};
        WM.nRed = 255;
        WM.nAngle = 450;
        WM.nHeight = 100;
        std::u16string text = u"DRAFT";
        std::copy(text.begin(), text.end(), WM.szText);
        job.info.bJobFlags = JOB_WATERMARK;
        job.info.bOutputMode = OUTPUT_PCL;
    }
    void TearDown() override { RedXfer = saved[0], GrnXfer = saved[1], BluXfer = saved[2]; }

    std::string Direction(int angle) {
        WM.nAngle = angle;
        job.dm.wEmulation = 3;
        EXPECT_EQ(DrawWaterMark(&job.info), 1);
        std::string s = job.Take();
        size_t di = s.find("DI");
        return s.substr(di, s.find("SB") - di);
    }
};

TEST_F(DrawTest, DirectionStrings) {
    struct Case {
        int angle;
        const char *di;
    } cases[] = {
        {0, "DI+1.000,+0.000"},     {450, "DI+0.707,+0.707"}, {-450, "DI+0.707,-0.707"},
        {900, "DI+0.000,+0.999"},  // the constant is a shade above two pi
        {3650, "DI+0.996,+0.087"}, // wraps to 5 degrees
        {1805, "DI-0.999,+0.000"}, // tenths are dropped
        {-2700, "DI+0.000,+0.999"},
    };
    for (const Case &c : cases) EXPECT_EQ(Direction(c.angle), c.di) << c.angle;
}

TEST_F(DrawTest, CentreInThirtyTwoBitArithmetic) {
    struct Case {
        int cx, cy;
        SHORT xres, yres;
        const char *pa;
    } cases[] = {
        {5760, 7560, 600, 600, "PA2400,3150"},
        {5761, 7561, 300, 1200, "PA1200,6300"}, // each division cuts: 12601.67, then 6300.5
        {4000000, 3000000, 600, 1200, "PA-1315949,-482616"}, // the products wrap
    };
    for (const Case &c : cases) {
        job.info.cxPrintable = c.cx, job.info.cyPrintable = c.cy;
        job.dm.dmPrintQuality = c.xres, job.dm.dmYResolution = c.yres;
        job.dm.wEmulation = 3;
        EXPECT_EQ(DrawWaterMark(&job.info), 1);
        const std::string s = job.Take();
        const size_t at = s.find("PA");
        EXPECT_EQ(s.substr(at, s.find("DI") - at), c.pa) << c.cx;
    }
}

TEST_F(DrawTest, ColourEmulationGetsPenColourAndNoPattern) {
    job.dm.wEmulation = 4;
    WM.nRed = 12, WM.nGreen = 34, WM.nBlue = 56;
    EXPECT_EQ(DrawWaterMark(&job.info), 1);
    EXPECT_EQ(Escaped(job.Take()), Escaped("\x1b%0B"           // HP-GL/2
                                           "MC1,160"           // merge
                                           "PC1,12,34,56SP1FT" // pen 1 colour, solid fill
                                           "IWPUPA2400,3150"   // page centre
                                           "DI+0.707,+0.707"   // 45 degrees
                                           "SBSD4,100FI32766"  // soft font 32766, 100 pt
                                           "LO5LBDRAFT\x03;"   // centred label
                                           "LO21DI"            // restore origin, direction
                                           "\x1b%0A"));        // back to PCL
    EXPECT_EQ(job.info.bOutputMode, OUTPUT_PCL);
    EXPECT_EQ(job.info.pCmdBuf, Ptr32From(job.cmdBuf));
}

TEST_F(DrawTest, MonochromeDownloadsAGrayPattern) {
    job.dm.wEmulation = 1;
    job.info.bOutputMode = OUTPUT_HPGL; // found in HP-GL/2, left in HP-GL/2
    job.info.wCurPattern = 77;          // zeroed first: the pattern goes out anyway
    EXPECT_EQ(DrawWaterMark(&job.info), 1);
    const std::string rows = "\xFB\xFB\xF1\xF1\xF1\xF1\xF1\xF1\xBF\xBF\x1F\x1F\x1F\x1F\x1F\x1F";
    EXPECT_EQ(Escaped(job.Take()),
              Escaped("MC1,160"
                      "\x1b%0A" // to PCL
                      "\x1b*c2g40W" +
                      std::string("\x00\x00\x01\x00\x00\x10\x00\x10", 8) + rows + rows + // level 77
                      "\x1b%0B"                                                          // back
                      "FT22,2SP1" // pattern 2
                      "IWPUPA2400,3150"
                      "DI+0.707,+0.707"
                      "SBSD4,100FI32766"
                      "LO5LBDRAFT\x03;LO21DI"
                      "FT")); // solid again
    EXPECT_EQ(job.info.wCurPattern, 0);
    EXPECT_EQ(job.info.bOutputMode, OUTPUT_HPGL);
}

TEST_F(DrawTest, MonochromeWhiteAndBlackNeedNoPattern) {
    job.dm.wEmulation = 1;
    job.info.bOutputMode = OUTPUT_HPGL;
    for (auto [r, g, b, fill] : {std::tuple{255, 255, 255, "FTSP0"},
                                 {0, 0, 0, "FTSP1"},
                                 {0x100, 0x200, 0x300, "FTSP1"}}) { // only the low bytes count
        WM.nRed = r, WM.nGreen = g, WM.nBlue = b;
        EXPECT_EQ(DrawWaterMark(&job.info), 1);
        EXPECT_EQ(Escaped(job.Take()),
                  Escaped(std::string("MC1,160") + fill +
                          "IWPUPA2400,3150DI+0.707,+0.707SBSD4,100FI32766LO5LBDRAFT\x03;LO21DIFT"));
    }
}

TEST_F(DrawTest, PagesWithoutTheFlagOrAfterTheFirstGetNothing) {
    job.info.bJobFlags = 0;
    EXPECT_EQ(DrawWaterMark(&job.info), 0);
    job.info.bJobFlags = JOB_WATERMARK;
    job.dm.bWMFirstPage = 1;
    job.info.nPage = 2;
    EXPECT_EQ(DrawWaterMark(&job.info), 0);
    EXPECT_TRUE(job.Take().empty());
    EXPECT_EQ(job.info.bOutputMode, OUTPUT_PCL);
    job.info.nPage = 1;
    EXPECT_EQ(DrawWaterMark(&job.info), 1);
    EXPECT_FALSE(job.Take().empty());
}

} // namespace
