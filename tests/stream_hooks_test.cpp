// The plug-in's header hooks as the job side meets them: what they are given, where they stand in
// the stream, and what their changes do to it; and a write that fails inside the job header.
#include "stream_support.h"

using namespace streamtest;

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
