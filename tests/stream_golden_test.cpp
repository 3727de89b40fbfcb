// Golden printer streams of whole sheets: the job header, page headers and the job footer as
// the job side calls them, compared byte for byte with streams written out from the printer
// language. One command a line; the comment says what the printer is told.
#include "stream_support.h"

using namespace streamtest;

// Two pages on Letter: the first opens with a page-size command, the second with a form feed.
TEST_F(StreamTest, TwoMonochromePagesOnOnePaper) {
    SetJobName(u"Quarterly report");
    dm->wPaperIndex = kLetter;
    dm->wSourceIndex = kTray1;

    OpenSheet(true);
    EXPECT_STREAM(
        Take(),
        MonoJobHeader() +
            Stream({
                R"(\x1b&l2a0o6d1E)",             // Letter, portrait, 6 lpi, top margin 1 line
                R"(\x1b*pxY\x1b*c5760x7560y0T)", // cursor home, frame 5760 x 7560 at the cursor
                R"(\x1b&l1H)",                   // tray 1
                R"(\x1b*r0F)",                   // raster presentation 0
                R"(\x1b%0B)",
                kLetterScale,
                R"(\x1b%0A)",
            }));

    OpenSheet(false);
    EXPECT_STREAM(Take(), Stream({
                              R"(\x1b%0A)", // PCL: the mode is unknown at each page start
                              R"(\x0c)",    // same paper: form feed ejects page 1
                              R"(\x1b*pxY\x1b*c5760x7560y0T)", // frame again, on every sheet
                              R"(\x1b*r0F)",                   // no tray: it has not changed
                              R"(\x1b%0B)",
                              kLetterScale,
                              R"(\x1b%0A)",
                          }));
    EXPECT_EQ(info->bNewPaper, 0);

    WritePCLJobFooter(info);
    EXPECT_STREAM(Take(), Stream({R"(\x1b%-12345X)"}));
}

// Letter, then A4 in long-edge duplex, then A4 again with another duplex value: the page-size
// command replaces the form feed, and duplex goes out only with a page-size command.
TEST_F(StreamTest, PaperChangesBetweenPages) {
    dm->wPaperIndex = kLetter;
    dm->wSourceIndex = kTray1;
    OpenSheet(true);
    Take();

    dm->wPaperIndex = kA4;
    dm->dmDuplex = 2;
    info->cxPrintable = 5594; // A4 less quarter-inch margins
    info->cyPrintable = 8059;
    OpenSheet(false);
    EXPECT_STREAM(Take(),
                  Stream({
                      R"(\x1b%0A)",         // PCL
                      R"(\x1b&l26a0o6d1E)", // A4, portrait, 6 lpi, top margin 1: ejects Letter
                      R"(\x1b&l2S)",        // dmDuplex 2: duplex code 2
                      R"(\x1b*pxY\x1b*c5594x8059y0T)",       // A4 frame
                      R"(\x1b*r0F)",                         // raster presentation
                      R"(\x1b%0B)",                          // HP-GL/2
                      R"(IP0,11372,7893,0SC0,4661,0,6715;)", // 8059*1016/720, 5594*1016/720,
                                                             // 600*5594/720, 600*8059/720
                      R"(\x1b%0A)",                          // PCL
                  }));
    EXPECT_EQ(info->nLastPaper, 26);
    EXPECT_EQ(info->bNewPaper, 1);

    dm->dmDuplex = 3;
    OpenSheet(false);
    EXPECT_STREAM(Take(), Stream({
                              R"(\x1b%0A)", // PCL
                              R"(\x0c)",    // same paper: form feed, and no duplex command
                              R"(\x1b*pxY\x1b*c5594x8059y0T)", // frame
                              R"(\x1b*r0F)",                   // raster presentation
                              R"(\x1b%0B)",
                              R"(IP0,11372,7893,0SC0,4661,0,6715;)",
                              R"(\x1b%0A)",
                          }));
}

// PCL 5C with every object class gray: grayscale render mode, Configure Image Data, cluster
// dither, palettes 1 to 9 and 11, and the colour pen set-up in HP-GL/2.
TEST_F(StreamTest, ColourJobAllGray) {
    dm->wEmulation = 3;
    for (DDICOLORCORRECT &cc : dm->ColorCorrect) cc.bType = 4;
    dm->wPaperIndex = kLetter;
    dm->wSourceIndex = kTray4;

    OpenSheet(true);
    EXPECT_STREAM(
        Take(),
        Stream({
            R"(\x1b%-12345X)", // universal exit language
            R"(@PJL COMMENT Quillmark PCL5C Driver Version 1.0.0009 on NT 4\n)", // colour label
            R"(@PJL COMMENT for Quill 4100 at 600 by 600 DPI\n)",                // device
            R"(@PJL COMMENT PDD Version: 2.10\n)",                               // version
            R"(@PJL COMMENT Driver Release: 070199\n)", // build; no job name
            R"(@PJL SET ORIENTATION=PORTRAIT\n)",       // description's PJL
            R"(@PJL SET RENDERMODE = GRAYSCALE\n)",     // all three classes gray
            R"(@PJL SET RESOLUTION=600\n)",             // PJL resolution
            R"(@PJL ENTER LANGUAGE=PCL\n)",             // into PCL
            R"(\x1b%0A)",                               // PCL mode
            R"(\x1b*v6W\x00\x03\x00\x08\x08\x08)",      // CID: RGB, direct by pixel, 8/8/8
            R"(\x1b&u600D)",                            // unit of measure
            R"(\x1b*t600R)",                            // raster resolution
            R"(\x1b*t7J)",                              // render algorithm 7
            R"(\x1b*c0F)",                              // delete soft fonts
            R"(\x1b&p1I\x1b&p6C)",                      // reserve palette 1
            R"(\x1b&p2I\x1b&p6C)",                      // 2
            R"(\x1b&p3I\x1b&p6C)",                      // 3
            R"(\x1b&p4I\x1b&p6C)",                      // 4
            R"(\x1b&p5I\x1b&p6C)",                      // 5
            R"(\x1b&p6I\x1b&p6C)",                      // 6
            R"(\x1b&p7I\x1b&p6C)",                      // 7
            R"(\x1b&p8I\x1b&p6C)",                      // 8
            R"(\x1b&p9I\x1b&p6C)",                      // 9
            R"(\x1b&p11I\x1b&p6C)",                     // 11; never 10
            R"(\x1b%0B)",                               // HP-GL/2
            R"(WU0LT0,10,1;LTPW0)",                     // pen width, line type
            R"(PC0,0,0,0SP0)",                          // pen 0 black, select pen 0
            R"(TR0CF2LA1,1,2,2)",                       // transparency, fill, line attrs
            R"(LO21)",                                  // label origin
            R"(PP1)",                                   // pixel placement
            R"(\x1b%0A)",                               // PCL
            R"(\x1b&l1X)",                              // one copy
            R"(\x1b&l2a0o6d1E)",                        // Letter, portrait
            R"(\x1b*pxY\x1b*c5760x7560y0T)",            // frame
            R"(\x1b&l4H)",                              // tray 4
            R"(\x1b*r0F)",                              // raster presentation
            R"(\x1b%0B)",
            kLetterScale,
            R"(\x1b%0A)", // HP-GL/2 scale
        }));
}

// Two up on a portrait job: the sheet turns (landscape code 1), the frame and the HP-GL/2
// scale are those of the turned sheet, and P1/P2 swap against the four-up case.
TEST_F(StreamTest, TwoUpSheetSetUp) {
    dm->wPaperIndex = kLetter;
    dm->wSourceIndex = kTray1;
    info->nPagesPerSheet = 2;
    info->bKeepOrient = 0;
    const INT turned[6] = {7920, 6120, 7560, 5760, 100, 100};
    memcpy(info->Layout, turned, sizeof turned);
    info->bOutputMode = OUTPUT_PCL;

    WritePCLPageHeader(info);
    EXPECT_STREAM(
        Take(),
        Stream({
            R"(\x1b&l2a1o6d1E)",                   // Letter, landscape sheet, 6 lpi, top margin 1
            R"(\x1b*pxY\x1b*c7560x5760y0T)",       // the sheet's frame
            R"(\x1b&l1H)",                         // tray 1
            R"(\x1b*r0F)",                         // raster presentation
            R"(\x1b%0B)",                          // HP-GL/2
            R"(IP0,8128,10668,0SC0,6300,0,4800;)", // P1/P2 from the page turned; scale of the sheet
            R"(\x1b%0A)",                          // PCL
        }));
}

namespace {
struct HookLog {
    int pjlJobHeader = 0, pdlJobHeader = 0, pdlPageHeader = 0, pjlJobFooter = 0;
    // Bytes the printer had received when each hook ran: where the hook stands in the stream.
    const Sink *sink = nullptr;
    size_t atPJLJobHeader = 0, atPDLJobHeader = 0, atPDLPageHeader = 0, atPJLJobFooter = 0;
    PTR32 jobInfo = 0;
    void *custData = nullptr;
    DWORD custWord = 0;
} hooks;

DWORD PJLJobHeader(DDIDEVMODE *pdm, DWORD word, void *cust) {
    ++hooks.pjlJobHeader;
    hooks.atPJLJobHeader = hooks.sink ? hooks.sink->bytes.size() : 0;
    hooks.jobInfo = pdm->pJobInfo;
    hooks.custData = cust;
    hooks.custWord = word;
    pdm->dmPrintQuality = 300; // the PJL resolution follows; the PCL units do not
    return 1;
}
DWORD PDLJobHeader(DDIDEVMODE *, DWORD, void *) {
    hooks.atPDLJobHeader = hooks.sink ? hooks.sink->bytes.size() : 0;
    return ++hooks.pdlJobHeader, 1;
}
DWORD PDLPageHeader(DDIDEVMODE *pdm, DWORD, void *) {
    ++hooks.pdlPageHeader;
    hooks.atPDLPageHeader = hooks.sink ? hooks.sink->bytes.size() : 0;
    pdm->wSourceIndex = kTray4; // honoured by the second tray selection
    return 1;
}
DWORD PJLJobFooter(DDIDEVMODE *, DWORD, void *) {
    hooks.atPJLJobFooter = hooks.sink ? hooks.sink->bytes.size() : 0;
    return ++hooks.pjlJobFooter, 1;
}
} // namespace

// A plug-in that changes the resolution in its PJL hook and the tray in its page hook.
TEST_F(StreamTest, PlugInHooksChangeResolutionAndTray) {
    hooks = HookLog{};
    CustDLL.OEM_PJLCustJobHeader = PJLJobHeader;
    CustDLL.OEM_PDLCustJobHeader = PDLJobHeader;
    CustDLL.OEM_PDLCustPageHeader = PDLPageHeader;
    CustDLL.OEM_PJLCustJobFooter = PJLJobFooter;
    dm->dwCustDataWord = 0x5151;
    dm->pCustData = 0; // stale in a received copy; recomputed before each hook
    dm->wPaperIndex = kLetter;
    dm->wSourceIndex = kTray1;

    hooks.sink = &sink;
    OpenSheet(true);
    const std::string header = Take();
    EXPECT_STREAM(header,
                  Stream({
                      R"(\x1b%-12345X)", // universal exit language
                      R"(@PJL COMMENT Quillmark PCL5e Driver Version 1.0.0009 on NT 4\n)", // label
                      R"(@PJL COMMENT for Quill 4100 at 600 by 600 DPI\n)", // before the hook
                      R"(@PJL COMMENT PDD Version: 2.10\n)",                // version
                      R"(@PJL COMMENT Driver Release: 070199\n)",           // build
                      R"(@PJL SET ORIENTATION=PORTRAIT\n)",                 // then the PJL hook
                      R"(@PJL SET RESOLUTION=300\n)",                       // read after the hook
                      R"(@PJL ENTER LANGUAGE=PCL\n)",                       // into PCL
                      R"(\x1b%0A)",                                         // PCL mode
                      R"(\x1b&u600D)", // units: resolution on entry
                      R"(\x1b*t600R)", // raster: same
                      R"(\x1b*c0F)",   // delete soft fonts
                      R"(\x1b%0B)",
                      R"(WU0LT0,10,1;LTPW0)",
                      R"(TR0CF2LA1,1,2,2)",
                      R"(LO21)",
                      R"(PP1)",
                      R"(\x1b%0A)",                          // PCL
                      R"(\x1b&l1X)",                         // copies; PDL hook follows
                      R"(\x1b&l2a0o6d1E)",                   // Letter, portrait
                      R"(\x1b*pxY\x1b*c5760x7560y0T)",       // frame
                      R"(\x1b&l1H)",                         // tray 1 before the hook
                      R"(\x1b*r0F)",                         // then the page hook
                      R"(\x1b&l4H)",                         // the hook's tray 4
                      R"(\x1b%0B)",                          // HP-GL/2 at 300 dpi
                      R"(IP0,10668,8128,0SC0,2400,0,6300;)", // 300*5760/720, 600*7560/720
                      R"(\x1b%0A)",                          // PCL
                  }));
    // Each hook runs right behind its step: the PJL hook after the description's PJL, the PDL
    // hook after the copy count, the page hook after the raster presentation mode.
    auto ranAfter = [&](size_t at, const char *command) {
        const std::string bytes = Unescape(command);
        return at >= bytes.size() && header.compare(at - bytes.size(), bytes.size(), bytes) == 0;
    };
    EXPECT_TRUE(ranAfter(hooks.atPJLJobHeader, R"(@PJL SET ORIENTATION=PORTRAIT\n)"));
    EXPECT_TRUE(ranAfter(hooks.atPDLJobHeader, R"(\x1b&l1X)"));
    EXPECT_TRUE(ranAfter(hooks.atPDLPageHeader, R"(\x1b*r0F)"));
    WritePCLJobFooter(info);
    EXPECT_STREAM(Take(), Stream({R"(\x1b%-12345X)"}));
    EXPECT_EQ(hooks.atPJLJobFooter, 9u); // the footer hook follows the exit language

    EXPECT_EQ(hooks.pjlJobHeader, 1);
    EXPECT_EQ(hooks.pdlJobHeader, 1);
    EXPECT_EQ(hooks.pdlPageHeader, 1);
    EXPECT_EQ(hooks.pjlJobFooter, 1);
    EXPECT_EQ(Ptr32As<SPLDEVINFO>(hooks.jobInfo), info);
    EXPECT_EQ(hooks.custData, reinterpret_cast<BYTE *>(dm) + DDIDEVMODE_SIZE);
    EXPECT_EQ(hooks.custWord, 0x5151u);
}

// A write that fails in the middle of the header silences the rest of it; the hooks still run.
TEST_F(StreamTest, WriteFailureInJobHeaderDropsTheRest) {
    hooks = HookLog{};
    CustDLL.OEM_PDLCustJobHeader = PDLJobHeader;
    CustDLL.OEM_PDLCustPageHeader = PDLPageHeader;
    // Writes: UEL, 3 for the label line, driver, version, release, orientation, resolution...
    sink.failFromCall = 9;
    OpenSheet(true);
    EXPECT_STREAM(Take(), Stream({
                              R"(\x1b%-12345X)",
                              R"(@PJL COMMENT Quillmark PCL5e Driver Version 1.0.0009 on NT 4\n)",
                              R"(@PJL COMMENT for Quill 4100 at 600 by 600 DPI\n)",
                              R"(@PJL COMMENT PDD Version: 2.10\n)",
                              R"(@PJL COMMENT Driver Release: 070199\n)",
                              R"(@PJL SET ORIENTATION=PORTRAIT\n)",
                          }));
    EXPECT_TRUE(info->dwDevFlags & DEV_OUTPUT_FAILED);
    EXPECT_EQ(sink.calls, 9); // the failed write; nothing is tried after it
    EXPECT_EQ(hooks.pdlJobHeader, 1);
    EXPECT_EQ(hooks.pdlPageHeader, 1);
    EXPECT_EQ(info->nLastPaper, 2); // the page still goes through its steps
}
