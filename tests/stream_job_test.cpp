// Whole jobs through the exported entries on a real printer description: the printer stream
// from the Universal Exit Language to the job's end, byte for byte. One command a line; the
// comment says what the printer is told.
#include "job_harness.h"
#include "stream_support.h"

#include "config/config.h"

#include <fstream>
#include <functional>

namespace {

using q417::test::JobHarness;
using q417::test::LetterRecord;
using q417::test::PageData;
using namespace streamtest;

// The job header of a PCL 5e job "Annual report" on the harness's printer at 600 dpi, portrait,
// two copies.
std::string MonoJobHeader() {
    return Stream({
        R"(\x1b%-12345X)",                                                   // exit language
        R"(@PJL COMMENT Quillmark PCL5e Driver Version 1.0.0009 on NT 4\n)", // emulation
        R"(@PJL COMMENT for Test 417 at 600 by 600 DPI\n)",                  // device name
        R"(@PJL COMMENT PDD Version: 2.10\n)",                               // FileVersion
        R"(@PJL COMMENT Driver Release: 070199\n)",                          // build
        R"(@PJL COMMENT Job Name: Annual report\n)",                         // block 8
        R"(@PJL SET ORIENTATION=PORTRAIT\n)",                                // the description's
        R"(@PJL SET RESOLUTION=600\n)",                                      // PJL resolution
        R"(@PJL ENTER LANGUAGE=PCL\n)",                                      // into PCL
        R"(\x1b%0A)",                                                        // PCL mode
        R"(\x1b&u600D)",                                                     // unit of measure
        R"(\x1b*t600R)",                                                     // raster resolution
        R"(\x1b*c0F)",                                                       // delete soft fonts
        R"(\x1b%0B)",                                                        // HP-GL/2
        R"(WU0LT0,10,1;LTPW0)",                                              // pen width, lines
        R"(TR0CF2LA1,1,2,2)",                                                // fill, line attrs
        R"(LO21)",                                                           // label origin
        R"(PP1)",                                                            // pixel placement
        R"(\x1b%0A)",                                                        // PCL
        R"(\x1b&l2X)",                                                       // two copies
    });
}

// What the sender changes before a page: the record it sends in block 1 (the library's own
// fields carried along) and the device mode of block 2.
using PageChange = std::function<void(int page, SPLDEVINFO &, DDIDEVMODE &)>;

struct StreamJob : ::testing::Test {
    JobHarness h{"stream"};
    long live0 = 0;

    void SetUp() override {
        // The configuration and the plug-in are process-wide: start without either.
        FreeFunctionTable();
        DiscardDeviceInfo(nullptr);
        DefaultXfers();
        std::ofstream(h.pddPath(), std::ios::binary) << kDescription << kVersion;
        // No watermark definitions: nothing but page set-up commands in the stream.
        ASSERT_TRUE(Q417_SetWindowsDirectory(h.dir().c_str()));
        live0 = q417::mem::LiveBlocks();
    }
    void TearDown() override {
        FreeFunctionTable();
        DiscardDeviceInfo(nullptr);
        Q417_SetWindowsDirectory(nullptr);
        EXPECT_EQ(q417::mem::LiveBlocks(), live0);
    }

    // A device mode as the user interface leaves it: PCL 5e, 600 dpi, two copies.
    std::vector<BYTE> DevMode(BYTE pagesPerSheet = 1) {
        std::vector<BYTE> bytes = h.DevMode(0, 600, pagesPerSheet);
        auto *dm = reinterpret_cast<DDIDEVMODE *>(bytes.data());
        dm->wEmulation = 2;
        dm->dmCopies = 2;
        return bytes;
    }

    // The graphics half's side of a job: blocks 1 and 2 before every page (block 8 after the
    // first), one data block a page.
    std::string Run(int pages, const std::vector<BYTE> &devMode, const PageChange &change = {}) {
        h.events.clear();
        EXPECT_NE(h.Start(), nullptr);
        for (int page = 1; page <= pages; ++page) {
            SPLDEVINFO r = page == 1 ? LetterRecord() : h.Record();
            r.nPage = page;
            r.nSubPage = page - 1;
            std::vector<BYTE> dm = devMode;
            if (change) change(page, r, *reinterpret_cast<DDIDEVMODE *>(dm.data()));
            EXPECT_EQ(h.SendRecord(r), 1);
            EXPECT_EQ(h.SendDevMode(dm), 1);
            if (page == 1) {
                EXPECT_EQ(h.SendName(u"Annual report"), 1);
            }
            EXPECT_EQ(DrvSplStartPage(h.job()), 1) << page;
            EXPECT_EQ(h.SendData(PageData(page)), 1);
            EXPECT_EQ(DrvSplEndPage(h.job()), 1) << page;
        }
        DrvSplEndDoc(h.job());
        h.Close();
        return h.Stream();
    }
};

// A PCL 5C job with every object class gray: Letter, then A4 in long-edge duplex from the tray
// of code -1, then A4 from the drawer. A page-size command with its duplex code replaces the
// form feed; the tray of code -1 sends nothing but is remembered.
TEST_F(StreamJob, ColourJobChangingPaperAndTray) {
    auto change = [](int page, SPLDEVINFO &r, DDIDEVMODE &dm) {
        dm.wEmulation = 3;
        dm.dmCopies = 1;
        dm.dmDuplex = 2;
        for (DDICOLORCORRECT &cc : dm.ColorCorrect) cc.bType = 4;
        if (page == 1) return;
        dm.wPaperIndex = kA4;
        dm.wSourceIndex = page == 2 ? kTrayAuto : kTray4;
        r.cxPrintable = 5592; // A4 less the margins
        r.cyPrintable = 8060;
    };
    EXPECT_STREAM(Run(3, DevMode(), change),
                  Stream({
                      R"(\x1b%-12345X)", // exit language
                      R"(@PJL COMMENT Quillmark PCL5C Driver Version 1.0.0009 on NT 4\n)",
                      R"(@PJL COMMENT for Test 417 at 600 by 600 DPI\n)",
                      R"(@PJL COMMENT PDD Version: 2.10\n)",
                      R"(@PJL COMMENT Driver Release: 070199\n)",
                      R"(@PJL COMMENT Job Name: Annual report\n)",
                      R"(@PJL SET ORIENTATION=PORTRAIT\n)",
                      R"(@PJL SET RENDERMODE = GRAYSCALE\n)", // every class gray
                      R"(@PJL SET RESOLUTION=600\n)",
                      R"(@PJL ENTER LANGUAGE=PCL\n)",
                      R"(\x1b%0A)",                          // PCL
                      R"(\x1b*v6W\x00\x03\x00\x08\x08\x08)", // CID: RGB, direct by pixel, 8/8/8
                      R"(\x1b&u600D)",                       // unit of measure
                      R"(\x1b*t600R)",                       // raster resolution
                      R"(\x1b*t7J)",                         // cluster ordered dither
                      R"(\x1b*c0F)",                         // delete soft fonts
                      R"(\x1b&p1I\x1b&p6C)",                 // reserve palettes 1 to 9
                      R"(\x1b&p2I\x1b&p6C)",
                      R"(\x1b&p3I\x1b&p6C)",
                      R"(\x1b&p4I\x1b&p6C)",
                      R"(\x1b&p5I\x1b&p6C)",
                      R"(\x1b&p6I\x1b&p6C)",
                      R"(\x1b&p7I\x1b&p6C)",
                      R"(\x1b&p8I\x1b&p6C)",
                      R"(\x1b&p9I\x1b&p6C)",
                      R"(\x1b&p11I\x1b&p6C)", // and 11, never 10
                      R"(\x1b%0B)",           // HP-GL/2
                      R"(WU0LT0,10,1;LTPW0)",
                      R"(PC0,0,0,0SP0)", // pen 0 black, select it
                      R"(TR0CF2LA1,1,2,2)",
                      R"(LO21)",
                      R"(PP1)",
                      R"(\x1b%0A)",                          // PCL
                      R"(\x1b&l1X)",                         // one copy
                      R"(\x1b&l2a0o4d1E)",                   // Letter, portrait, 4 lpi, 1 line
                      R"(\x1b&l2S)",                         // dmDuplex 2: code 2
                      R"(\x1b*pxY\x1b*c5760x7560y0T)",       // cursor home, frame, anchor
                      R"(\x1b&l1H)",                         // tray 1
                      R"(\x1b*r0F)",                         // raster presentation 0
                      R"(\x1b%0B)",                          // HP-GL/2
                      R"(IP0,10668,8128,0SC0,4800,0,6300;)", // a user unit a pixel
                      R"(\x1b%0A)",                          // PCL
                  }) + PageData(1) +
                      Stream({
                          R"(\x1b%0A)",                          // PCL: unknown at a page start
                          R"(\x1b&l26a0o4d1E)",                  // A4: ejects page 1, no form feed
                          R"(\x1b&l2S)",                         // duplex again with the page size
                          R"(\x1b*pxY\x1b*c5592x8060y0T)",       // A4 frame
                          R"(\x1b*r0F)",                         // tray code -1: nothing
                          R"(\x1b%0B)",                          // HP-GL/2
                          R"(IP0,11373,7890,0SC0,4660,0,6716;)", // 8060*1016/720, 5592*1016/720,
                                                                 // 600*5592/720, 600*8060/720
                          R"(\x1b%0A)",                          // PCL
                      }) +
                      PageData(2) +
                      Stream({
                          R"(\x1b%0A)",                          // PCL
                          R"(\x0c)",                             // same A4: form feed, no duplex
                          R"(\x1b*pxY\x1b*c5592x8060y0T)",       // frame
                          R"(\x1b&l4H)",                         // tray 4 after -1
                          R"(\x1b*r0F)",                         // raster presentation
                          R"(\x1b%0B)",                          // HP-GL/2
                          R"(IP0,11373,7890,0SC0,4660,0,6716;)", // scale
                          R"(\x1b%0A)",                          // PCL
                      }) +
                      PageData(3) + Stream({R"(\x1b%-12345X)"}));
}

// Three portrait pages two up: the sheet turns. Its frame and its scale are those of the
// landscape sheet, and P1/P2 swap. The page-size command does not update the orientation
// memory, so the second sheet on the same paper tells the orientation again.
TEST_F(StreamJob, TwoUpTurnsTheSheet) {
    EXPECT_STREAM(Run(3, DevMode(2)),
                  MonoJobHeader() +
                      Stream({
                          R"(\x1b&l2a1o4d1E)",                   // Letter, landscape sheet
                          R"(\x1b*pxY\x1b*c7560x5760y0T)",       // the turned frame
                          R"(\x1b&l1H)",                         // tray 1
                          R"(\x1b*r0F)",                         // raster presentation
                          R"(\x1b%0B)",                          // HP-GL/2
                          R"(IP0,8128,10668,0SC0,6300,0,4800;)", // swapped P2; sheet's scale
                          R"(\x1b%0A)",                          // PCL
                      }) +
                      PageData(1) + PageData(2) +
                      Stream({
                          R"(\x1b%0A)",                          // PCL
                          R"(\x0c)",                             // second sheet: form feed
                          R"(\x1b&l1o4d1E)",                     // landscape against memory 0
                          R"(\x1b*pxY\x1b*c7560x5760y0T)",       // frame
                          R"(\x1b*r0F)",                         // raster presentation
                          R"(\x1b%0B)",                          // HP-GL/2
                          R"(IP0,8128,10668,0SC0,6300,0,4800;)", // scale
                          R"(\x1b%0A)",                          // PCL
                      }) +
                      PageData(3) + Stream({R"(\x1b%-12345X)"}));
}

} // namespace
