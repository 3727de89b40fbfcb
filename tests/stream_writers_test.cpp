// The stream writers one by one, on the record of a job with its first page open: language
// switches, the HP-GL/2 scale, the page command's numbers, tray and paper memory, the header
// hooks, the identification comments and their limits. Then whole jobs against the golden
// streams.
#include "stream_support.h"

#include "config/config.h"
#include "stream/stream.h"

#include <cstring>
#include <fstream>

using namespace streamtest;

namespace {

const char kVersion[] = "*FileVersion: \"2.10\"\n";
constexpr unsigned short kLetter = 0, kA4 = 1, kPaperNone = 2;
constexpr unsigned short kTray1 = 0, kTray4 = 1, kTrayAuto = 2;

// A printer on quill.pdd, with no plug-in, no configuration read yet and no watermark
// definitions: nothing but page set-up commands in the stream.
struct StreamWriters : q417::test::JobTest {
    void SetUp() override {
        DiscardDeviceInfo(nullptr);
        ASSERT_TRUE(Q417_SetWindowsDirectory(h.dir().c_str()));
        JobTest::SetUp();
        Open(kVersion);
    }
    void TearDown() override {
        Close();
        Q417_SetWindowsDirectory(nullptr);
        JobTest::TearDown(); // the writers keep no block
    }

    // Starts a job on quill.pdd and more lines (a binary configuration made from an earlier one
    // goes) and opens its first page; the test then owns the record.
    void Open(const std::string &more, const std::u16string &name = u"Report") {
        Close();
        std::filesystem::remove(std::filesystem::path(h.pddPath()).replace_extension("bdd"));
        std::ofstream(h.pddPath(), std::ios::binary)
            << q417::test::DataFile("stream/quill.pdd") << more;
        h.Open(h.DevMode(16), name);
        ASSERT_EQ(DrvSplStartPage(h.job()), 1);
        info = static_cast<SPLDEVINFO *>(GlobalLock(q417::job::JobOf(h.job())->hDevInfo));
        dm = DevModeOf(info);
        info->pCmdBuf = Ptr32From(CustCmdBuf);
        h.events.clear();
    }
    void Close() {
        if (info) {
            CustDLL = CUSTDLL{};
            GlobalUnlock(q417::job::JobOf(h.job())->hDevInfo);
            info = nullptr;
            DrvSplEndDoc(h.job());
            h.Close();
        }
        DiscardDeviceInfo(nullptr);
    }

    // What the printer got since the last call.
    std::string Take() {
        const std::string out = h.Stream();
        h.events.clear();
        return out;
    }

    SPLDEVINFO *info = nullptr;
    DDIDEVMODE *dm = nullptr;
};

// ---- HP-GL/2 context ----

TEST_F(StreamWriters, OutputModeSwitches) {
    struct Case {
        int from, to, flagsBefore, flagsAfter;
        const char *stream;
    } cases[] = {
        {OUTPUT_UNKNOWN, OUTPUT_PCL, 0xFFFF, 0x0D90, R"(\x1b%0A)"},  // leaving keeps 0x0D90
        {OUTPUT_UNKNOWN, OUTPUT_HPGL, 0xFFFF, 0xFFFF, R"(\x1b%0B)"}, // entering keeps all
        {OUTPUT_PCL, OUTPUT_PCL, 0x0010, 0x0010, R"(\x1b%0A)"},      // no test of the old mode
        {OUTPUT_PCL, OUTPUT_UNKNOWN, 0x0010, 0x0010, ""},            // writes nothing
    };
    for (const Case &c : cases) {
        info->bOutputMode = c.from;
        info->wHPGLFlags = c.flagsBefore;
        fSetOutputMode(info, c.to);
        EXPECT_STREAM(Take(), Unescape(c.stream)) << int(c.from) << "->" << int(c.to);
        EXPECT_EQ(info->bOutputMode, c.to);
        EXPECT_EQ(info->wHPGLFlags, c.flagsAfter);
    }
}

// N-up scales the sheet's frame; 2 and 6 up turn the sheet, so P1 and P2 swap.
TEST_F(StreamWriters, HPGLScaleOfAnNUpSheet) {
    const std::pair<DWORD, const char *> cases[] = {
        {4, "IP0,14111,10160,0SC0,2500,0,3333;"}, // 10000*1016/720, 7200*1016/720, 3000, 4000
        {6, "IP0,10160,14111,0SC0,2500,0,3333;"},
    };
    for (const auto &[pagesPerSheet, stream] : cases) {
        info->nPagesPerSheet = pagesPerSheet;
        info->cxPrintable = 7200;
        info->cyPrintable = 10000;
        info->Layout[2] = 3000;
        info->Layout[3] = 4000;
        InitHPGLScale(info);
        EXPECT_EQ(Take(), stream) << pagesPerSheet << " up";
    }
}

// ---- Page set-up ----

// The page-size command of a sheet on new paper: orientation code, line spacing and top margin
// in lines, and the duplex code that goes out with it.
TEST_F(StreamWriters, PageSizeCommand) {
    struct Case {
        int margin, orientation, pagesPerSheet, keepOrient, rotated, outputFlags, duplex;
        const char *command;
    } cases[] = {
        {149, 1, 1, 0, 0, 0, 0, R"(\x1b&l2a0o6d1E)"},
        {150, 1, 1, 0, 0, 0, 0, R"(\x1b&l2a0o4d1E)"}, // 6, then 4 lines an inch
        {180, 1, 1, 0, 0, 0, 0, R"(\x1b&l2a0o4d1E)"},
        {181, 1, 1, 0, 0, 0, 0, R"(\x1b&l2a0o48d13E)"}, // 48: (362 + 29) / 30
        {195, 1, 1, 0, 0, 0, 0, R"(\x1b&l2a0o48d13E)"},
        {196, 1, 1, 0, 0, 0, 0, R"(\x1b&l2a0o48d14E)"},               // 13 lines of 15 cover 195
        {1919903859, 1, 1, 0, 0, 0, 0, R"(\x1b&l2a0o48d-15171984E)"}, // wraps in 32 bits
        {180, 2, 1, 0, 0, 0, 0, R"(\x1b&l2a1o4d1E)"},
        {180, 3, 1, 0, 0, 0, 0, R"(\x1b&l2a1o4d1E)"},
        {180, 1, 4, 1, 0, 0, 0, R"(\x1b&l2a0o4d1E)"}, // N-up follows the sheet (2 up: two_up)
        {180, 2, 4, 1, 0, 0, 0, R"(\x1b&l2a1o4d1E)"},
        {180, 2, 2, 0, 0, 0, 0, R"(\x1b&l2a0o4d1E)"},
        {180, 1, 1, 0, 1, 0, 0, R"(\x1b&l2a2o4d1E)"}, // rotated adds 2
        {180, 2, 1, 0, 1, 0, 0, R"(\x1b&l2a3o4d1E)"},
        {180, 2, 1, 0, 0, 0x08, 0, R"(\x1b&l2a3o4d1E)"}, // reverse landscape: 1 -> 3, else 1
        {180, 2, 1, 0, 1, 0x08, 0, R"(\x1b&l2a1o4d1E)"},
        {180, 2, 2, 0, 0, 0x08, 0, R"(\x1b&l2a1o4d1E)"}, // reverse only counts in landscape
        {180, 1, 1, 0, 0, 0x08, 0, R"(\x1b&l2a0o4d1E)"},
        {180, 2, 1, 0, 0, 0x07, 0, R"(\x1b&l2a1o4d1E)"},
        {180, 1, 1, 0, 0, 0, 1, R"(\x1b&l2a0o4d1E\x1b&l0S)"}, // duplex 1: 0, 3: 1 (2: colour_job)
        {180, 1, 1, 0, 0, 0, 3, R"(\x1b&l2a0o4d1E\x1b&l1S)"},
        {180, 1, 1, 0, 0, 0, 4, R"(\x1b&l2a0o4d1E)"},
        {180, 1, 1, 0, 0, 0, -1, R"(\x1b&l2a0o4d1E)"},
    };
    for (const Case &c : cases) {
        info->cyMargin = c.margin;
        dm->dmOrientation = c.orientation;
        info->nPagesPerSheet = c.pagesPerSheet;
        info->bKeepOrient = c.keepOrient;
        dm->bRotated = c.rotated;
        dm->bOutputFlags = c.outputFlags;
        dm->dmDuplex = c.duplex;
        info->nLastPaper = -1;
        PCLPageSelect(info);
        const std::string expected = Unescape(c.command) + "\x1b*pxY"; // then the frame
        EXPECT_STREAM(Take().substr(0, expected.size()), expected) << "row " << &c - cases;
    }
}

// Sheets in a row: paper, orientation and tray go out when they differ from what the printer
// was last told. The page-size command does not update nLastOrient: the form-feed path
// compares with the value it stored itself. A paper of code -1 skips the page and changes
// nothing; a tray of code -1 is remembered but not sent.
TEST_F(StreamWriters, PaperOrientationAndTrayMemory) {
    struct Step {
        int paper, orientation, tray, result;
        const char *page, *traySelect;
    } steps[] = {
        {kA4, 2, kTray1, 1, R"(\x1b&l26a1o4d1E)", ""},     // new paper: orientation memory stays 0
        {kA4, 2, kTrayAuto, 1, R"(\x0c\x1b&l1o4d1E)", ""}, // landscape told on this path
        {kA4, 2, kTrayAuto, 1, R"(\x0c)", ""},             // known now
        {kPaperNone, 2, kTrayAuto, 0, "", ""},             // row 2 does not exist: code -1
        {kA4, 2, kTray4, 1, R"(\x0c)", R"(\x1b&l4H)"},     // the -1 page left the memory
        {kLetter, 1, kTray1, 1, R"(\x1b&l2a0o4d1E)", R"(\x1b&l1H)"},
    };
    for (const Step &s : steps) {
        dm->wPaperIndex = s.paper;
        dm->dmOrientation = s.orientation;
        dm->wSourceIndex = s.tray;
        EXPECT_EQ(PCLPageSelect(info), s.result);
        PCLTraySelect(info);
        const char *frame = s.result ? "\x1b*pxY\x1b*c5760x7560y0T" : "";
        EXPECT_STREAM(Take(), Unescape(s.page) + frame + Unescape(s.traySelect)) << s.page;
    }
}

// ---- Header hooks ----

// The hooks mark the stream where they run; their arguments are checked on a whole job with
// the recording plug-in.
q417::test::JobHarness *harness;
const char *const kHooks[] = {"PJL job header", "PDL job header", "page header", "job footer"};
template <int N>
DWORD Hook(DDIDEVMODE *pdm, DWORD, void *) {
    if (N == 0) pdm->dmPrintQuality = 300;  // the PJL resolution follows; the PCL units do not
    if (N == 2) pdm->wSourceIndex = kTray4; // honoured by the second tray selection
    harness->Mark(kHooks[N]);
    return 1;
}

TEST_F(StreamWriters, HeaderHooksStandBehindTheirStepsAndTheirChangesCount) {
    harness = &h;
    CustDLL.OEM_PJLCustJobHeader = Hook<0>;
    CustDLL.OEM_PDLCustJobHeader = Hook<1>;
    CustDLL.OEM_PDLCustPageHeader = Hook<2>;
    CustDLL.OEM_PJLCustJobFooter = Hook<3>;
    dm->wEmulation = 2;
    info->bOutputMode = OUTPUT_UNKNOWN;
    info->nLastPaper = info->nLastTray = -1;
    WritePCLJobHeader(info);
    info->wHPGLFlags |= HPGL_CLIP_WINDOW | 0x0100;
    WritePCLPageHeader(info);
    EXPECT_EQ(info->wHPGLFlags & (HPGL_CLIP_WINDOW | 0x0100), 0x0100);
    WritePCLJobFooter(info);
    EXPECT_STREAM(Take(), Golden("hooks.txt"));
}

// ---- Job framing ----

// The emulation names the language in the first comment; 3 and 4 are colour jobs, and a colour
// job whose three object classes are all gray asks for gray rendering.
TEST_F(StreamWriters, EmulationAndGrayRendering) {
    struct Case {
        int emulation, t0, t1, t2;
        const char *label;
        bool gray;
    } cases[] = {
        {4, 4, 4, 4, "PCL5eC", true}, {3, 4, 4, 1, "PCL5C", false}, {3, 0, 4, 4, "PCL5C", false},
        {3, 4, 5, 4, "PCL5C", false}, {2, 4, 4, 4, "PCL5e", false}, {5, 4, 4, 4, "PCL5", false},
        {1, 4, 4, 4, "PCL5", false},
    };
    for (const Case &c : cases) {
        dm->wEmulation = c.emulation;
        dm->ColorCorrect[0].bType = c.t0;
        dm->ColorCorrect[1].bType = c.t1;
        dm->ColorCorrect[2].bType = c.t2;
        WritePCLJobHeader(info);
        const std::string out = Take();
        EXPECT_EQ(out.substr(9, 23 + strlen(c.label)),
                  "@PJL COMMENT Quillmark " + std::string(c.label));
        EXPECT_EQ(out.find("@PJL SET RENDERMODE = GRAYSCALE\n") != std::string::npos, c.gray)
            << c.emulation << ": " << int(c.t0) << int(c.t1) << int(c.t2);
    }
    EXPECT_FALSE(PCLReservePalette(info, PCL_PALETTE_SLOTS)); // no slot beyond the table
    EXPECT_FALSE(PCLReservePalette(info, -1));
}

// A missing text drops its own line and nothing else; a version that fills its 40 bytes has
// no terminator.
TEST_F(StreamWriters, DescriptionTextsInTheComments) {
    const std::string v40(40, 'v');
    const struct Case {
        std::string version;
        SHORT orientation;
        std::string versionLine, orientLine;
    } cases[] = {
        {"", 3, "", ""}, // neither a version nor a text for orientation 3
        {"*FileVersion: \"" + v40 + "tail\"\n", 2, "@PJL COMMENT PDD Version: " + v40 + "\n",
         "@PJL SET ORIENTATION=LANDSCAPE\n"},
    };
    for (const Case &c : cases) {
        Open(c.version);
        dm->wEmulation = 2;
        dm->dmOrientation = c.orientation;
        WritePCLJobHeader(info);
        const std::string out = Take();
        EXPECT_STREAM(out.substr(0, out.find("@PJL SET RESOLUTION")),
                      Stream({R"(\x1b%-12345X)",
                              R"(@PJL COMMENT Quillmark PCL5e Driver Version 1.0.0009 on NT 4\n)",
                              R"(@PJL COMMENT for Test 417 at 600 by 600 DPI\n)"}) +
                          c.versionLine + "@PJL COMMENT Driver Release: 070199\n" +
                          "@PJL COMMENT Job Name: Report\n" + c.orientLine);
    }
}

// A job name of 500 characters keeps 399 in the 400-byte buffer; in a code page of several
// bytes a character, the cut falls on a whole character that still leaves room for the
// terminator.
TEST_F(StreamWriters, NamesThatDoNotFitAreCut) {
    const std::u16string longName(500, u'n');
    Open(kVersion, longName);
    EXPECT_EQ(PJL_WriteJobName(info), 1);
    EXPECT_EQ(Take(), "@PJL COMMENT Job Name: " + std::string(399, 'n') + "\n");
    EXPECT_EQ(GlobalFlags(dm->hJobName) & 0xFF, 0u); // the name is unlocked again
    struct Case {
        const char *codePage, *encoded; // U+3042 in that code page
        size_t charsKept;               // of 300
    } cases[] = {
        {"CP932", "\x82\xa0", 199},     // 2 bytes: 398 of 399
        {"UTF-8", "\xe3\x81\x82", 133}, // 3 bytes: 399 exactly
        {"WINDOWS-1252", "?", 300},     // not in it: one default byte each, all fit
    };
    for (const Case &c : cases) {
        ASSERT_TRUE(Q417_SetAnsiCodePage(c.codePage));
        std::string expected;
        for (size_t i = 0; i < c.charsKept; ++i) expected += c.encoded;
        EXPECT_EQ(std::string(TStr2Str(std::u16string(300, u'\u3042').c_str())), expected)
            << c.codePage;
    }

    // A device name that fills its 32 characters has no terminator in the record.
    for (int i = 0; i < 32; ++i) dm->dmDeviceName[i] = u'A' + (i % 26);
    dm->dmSpecVersion = 0x4141; // would read as more text past the field
    PJL_WriteDriverName(info);
    EXPECT_EQ(Take(), "@PJL COMMENT for ABCDEFGHIJKLMNOPQRSTUVWXYZABCDEF at 600 by 600 DPI\n");
    // A command longer than its buffer goes out cut, without the terminator.
    char small[8];
    EXPECT_EQ(WriteCommandIn(info, small, sizeof small, "%s", "0123456789"), 1);
    EXPECT_EQ(Take(), "0123456");
}

// ---- Whole jobs ----

// Whole jobs through the exported entries, against the golden streams in tests/data/stream:
// the printer stream from the Universal Exit Language to the job's end, byte for byte. A job
// "Annual report" of three pages, PCL 5e, 600 dpi, two copies. The colour job changes paper and
// tray: a page-size command with its duplex code replaces the form feed; the tray of code -1
// sends nothing but is remembered. Two up turns the sheet.
TEST_F(StreamWriters, WholeJobsAgainstTheGoldenStreams) {
    Close();
    auto colour = [](int page, SPLDEVINFO &r, DDIDEVMODE &dm) {
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
    const std::tuple<const char *, BYTE, q417::test::JobHarness::PageChange> jobs[] = {
        {"colour_job.txt", 1, colour}, {"two_up.txt", 2, {}}};
    for (const auto &[golden, pagesPerSheet, change] : jobs) {
        std::vector<BYTE> dm = h.DevMode(0, 600, pagesPerSheet);
        reinterpret_cast<DDIDEVMODE *>(dm.data())->wEmulation = 2;
        reinterpret_cast<DDIDEVMODE *>(dm.data())->dmCopies = 2;
        h.RunJob(dm, u"Annual report", change);
        EXPECT_STREAM(h.Stream(), Golden(golden)) << golden;
    }
}

} // namespace
