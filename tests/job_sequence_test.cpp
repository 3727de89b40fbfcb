// Page and job sequencing: what each page start writes, the locks each entry takes and gives
// back, and whole jobs through the exported entries: their ends, a failed write at
// every byte, and a thousand jobs without a leak.
#include "job_harness.h"

#include "config/config.h"

#include <algorithm>
#include <functional>

namespace {

using q417::test::LetterRecord;
using q417::test::PageData;

// ---- WriteHeaders on a record --------------------------------------------------------------

TEST(WriteHeaders, APageStartWritesHeadersOnlyWhereASheetBegins) {
    constexpr BYTE HS = JOB_HEADER_SENT, PO = JOB_PAGE_OPEN, ALL = HS | PO | JOB_PAGE_STARTED;
    constexpr BYTE MARK = JOB_SUBPAGE_MARK; // cleared as the cell is selected
    struct Case {
        const char *what;
        int bLayout;
        DWORD pagesPerSheet, subPage;
        int flagsBefore, orientation, paper, result, flagsAfter;
        DWORD subPageAfter;
    } cases[] = {
        {"first page, one up", 1, 0, 0, 0, 1, 1, 1, ALL, 0},
        {"next page, one up", 1, 1, 0, HS, 1, 1, 1, ALL, 0},
        {"page still open", 1, 1, 0, HS | PO, 1, 1, 0, HS | PO, 0},
        {"first page, four up: the layout is made", 4, 0, 3, 0, 1, 1, 1, ALL, 0},
        {"further cell: nothing written", 4, 4, 2, HS | MARK, 1, 1, 0, ALL, 2},
        {"fifth page: a new sheet", 4, 4, 4, HS, 1, 1, 1, ALL, 4},
        {"orientation changes mid-sheet: a new sheet", 4, 4, 3, HS, 2, 1, 1, ALL, 0},
        {"paper changes mid-sheet: a new sheet", 4, 4, 1, HS, 1, 9, 1, ALL, 0},
        {"new layout while a page is open", 4, 4, 3, HS | PO, 2, 1, 0, HS | PO, 0},
    };
    for (const Case &c : cases) {
        q417::test::Sheet s(c.bLayout, 1);
        SPLDEVINFO &info = s.info;
        info.pCmdBuf = 0xC0DE;
        if (c.pagesPerSheet == 4) InitSubPages(&info); // made for portrait paper 1
        info.nPagesPerSheet = c.pagesPerSheet;
        info.nSubPage = c.subPage;
        info.bJobFlags = c.flagsBefore;
        s.dm.dmOrientation = c.orientation;
        s.dm.dmPaperSize = c.paper;
        EXPECT_EQ(WriteHeaders(&info), c.result) << c.what;
        EXPECT_EQ(info.bJobFlags, c.flagsAfter) << c.what;
        EXPECT_EQ(info.nSubPage, c.subPageAfter) << c.what;
        // Unknown on entry; a page header leaves the stream in PCL.
        EXPECT_EQ(info.bOutputMode, c.result ? OUTPUT_PCL : OUTPUT_UNKNOWN) << c.what;
        EXPECT_EQ(info.pCmdBuf, 0xC0DEu) << c.what << ": pCmdBuf is put back";
        if (c.bLayout == 4) {
            const DWORD cell = info.nSubPage % 4;
            EXPECT_EQ(info.xSubPage, info.SubPageOrg[cell][0]) << c.what;
            EXPECT_EQ(info.ySubPage, info.SubPageOrg[cell][1]) << c.what;
            EXPECT_EQ(info.nLayoutOrient, c.orientation) << c.what;
            EXPECT_EQ(info.nLayoutPaper, c.paper) << c.what;
        }
    }
}

// ---- Locks ------------------------------------------------------------------------------------

using Entries = q417::test::JobTest;
// Locks: the job block and the device mode copy stay locked once for their life; the record,
// the name and the configuration are unlocked again by every entry, whichever lock failed in it.
// Run with every lock failing in turn, this also has each entry meet a record it cannot lock
// and a record without a device mode copy (after a refused block 2), where it must do nothing.
TEST_F(Entries, EveryEntryReleasesTheLocksItTook) {
    h.InstallPlugin(Q417_PLUGIN_REC);
    ASSERT_NE(h.Start(), nullptr);
    const HGLOBAL hDevInfo = q417::job::JobOf(h.job())->hDevInfo;
    auto locks = [](HGLOBAL hMem) { return GlobalFlags(hMem) & 0xFF; };
    auto check = [&](const std::string &what) {
        EXPECT_EQ(locks(GlobalHandle(h.job())), 1u) << what;
        EXPECT_EQ(locks(hDevInfo), 0u) << what;
        EXPECT_EQ(hJobName ? locks(hJobName) : 0, 0u) << what;
        EXPECT_EQ(hCfg ? locks(hCfg) : 0, 0u) << what;
        q417::job::Locked<SPLDEVINFO> info(hDevInfo);
        const DDIDEVMODE *copy = DevModeOf(info.get());
        EXPECT_EQ(copy ? locks(GlobalHandle(copy)) : 1, 1u) << what;
    };
    const std::pair<const char *, std::function<void()>> steps[] = {
        {"block 1", [&] { h.SendRecord(LetterRecord()); }},
        {"block 2", [&] { h.SendDevMode(h.DevMode(8)); }},
        {"block 8", [&] { h.SendName(u"Locks"); }},
        {"print data", [&] { h.SendData("data"); }},
        {"StartPage", [&] { DrvSplStartPage(h.job()); }},
        {"EndPage", [&] { DrvSplEndPage(h.job()); }},
        {"EndDoc", [&] { DrvSplEndDoc(h.job()); }},
        {"Abort", [&] { DrvSplAbort(h.job()); }},
    };
    for (long failLock = 0; failLock <= 6; ++failLock) {
        h.SendSetup(h.DevMode(8), u"Locks"); // a failed block may have left no copy
        for (const auto &[name, step] : steps) {
            q417::mem::FailLock(failLock);
            step();
            q417::mem::FailLock(0);
            check(std::string(name) + ", lock " + std::to_string(failLock) + " fails");
        }
    }
    // A failed lock of a new configuration block leaves it cached, empty; it is the process's.
    DiscardDeviceInfo(nullptr);
}

// ---- Whole jobs ------------------------------------------------------------------------------

using WholeJob = q417::test::JobTest;

// The end of a job that opened no page: no footer. The watermark font goes by what the last
// first page decided, which may be an earlier job's. An abort writes nothing: no footer, and a
// downloaded font stays in the printer.
TEST_F(WholeJob, AJobWithoutPagesOrAnAbortWritesNoFooter) {
    struct Case {
        bool page, abort;
        int doWaterMarks;
        DWORD state;
        std::string expect; // after the page
    } cases[] = {
        {false, false, 0, 1 | 2, ""},
        {false, false, 1, 1 | 2,
         "\x1b*c32766D" /* the watermark font id */ "\x1b*c2F" /* delete */},
        {true, true, 1, 1 | 4, ""},
    };
    for (const Case &c : cases) {
        h.Open(h.DevMode());
        if (c.page) {
            ASSERT_EQ(DrvSplStartPage(h.job()), 1);
            ASSERT_EQ(DrvSplEndPage(h.job()), 1);
        }
        h.events.clear();
        bDoWaterMarks = c.doWaterMarks; // as if the first page had sent the font
        c.abort ? DrvSplAbort(h.job()) : DrvSplEndDoc(h.job());
        EXPECT_EQ(q417::job::JobOf(h.job())->dwState, c.state) << c.abort;
        h.Close();
        bDoWaterMarks = 0;
        EXPECT_EQ(h.Stream(), c.expect) << c.doWaterMarks << c.abort;
    }
}

TEST_F(WholeJob, AFailedWriteAtAnyByteSilencesTheCommandsButNotThePrintData) {
    h.RunJob(h.DevMode(), u"Annual report");
    const std::vector<std::string> clean = h.events,
                                   pages = {PageData(1), PageData(2), PageData(3)};
    const size_t total = h.bytesOffered;
    for (size_t failAt = 1; failAt <= total; ++failAt) {
        h.bytesOffered = 0;
        h.FailWriteAtByte(failAt);
        const std::vector<BOOL> sent = h.RunJob(h.DevMode(), u"Annual report");
        // After a failed command nothing but print data reaches the printer; print data
        // reports its own write.
        std::vector<std::string> expect;
        std::vector<BOOL> expectSent(3, 1);
        bool silenced = false;
        size_t offset = 0;
        for (const std::string &e : clean) {
            const auto page = std::find(pages.begin(), pages.end(), e);
            const bool data = page != pages.end(),
                       hit = failAt > offset && failAt <= offset + e.size();
            offset += e.size();
            if (hit && data) expectSent[page - pages.begin()] = 0;
            silenced |= hit && !data;
            if (!hit && (!silenced || data)) expect.push_back(e);
        }
        EXPECT_EQ(h.events, expect) << "failing at byte " << failAt;
        EXPECT_EQ(sent, expectSent) << "failing at byte " << failAt;
    }
    h.FailWriteAtByte(0);
}

// A thousand jobs, every other one four up, with the plug-in and its data, leave nothing
// behind but what lives for the process.
TEST_F(WholeJob, AThousandJobsLeaveOnlyTheProcessWideBlocks) {
    h.InstallPlugin(Q417_PLUGIN_REC);
    long live = 0;
    // Job 0 sets up what lives for the process (the configuration cache, the plug-in).
    for (int job = 0; job <= 1000; ++job) {
        if (job == 1) live = q417::mem::LiveBlocks();
        h.RunJob(h.DevMode(16, 600, job % 2 ? 4 : 1),
                 u"Job " + std::u16string(1, static_cast<char16_t>(u'A' + job % 26)));
    }
    EXPECT_EQ(q417::mem::LiveBlocks(), live);
    EXPECT_NE(hCustUIDLL, 0u);
}

} // namespace
