// Page and job sequencing: what each page start writes, the one door of DevWrite, the entries'
// results on records that cannot be used, and whole jobs through the exported entries.
#include "job_harness.h"

#include "config/config.h"

#include <functional>
#include <set>

namespace {

using q417::test::C;
using q417::test::Event;
using q417::test::JobHarness;
using q417::test::LetterRecord;
using q417::test::W;

// ---- WriteHeaders on a record --------------------------------------------------------------

struct Record {
    SPLDEVINFO info = LetterRecord();
    DDIDEVMODE dm{};
    explicit Record(BYTE pagesPerSheet) {
        dm.bLayout = pagesPerSheet;
        dm.dmOrientation = 1;
        dm.dmPaperSize = 1;
        dm.dmPrintQuality = 600;
        dm.dmYResolution = 600;
        info.pDevMode = Ptr32From(&dm);
        info.pCmdBuf = 0xC0DE;
    }
};

TEST(WriteHeaders, APageStartWritesHeadersOnlyWhereASheetBegins) {
    struct Case {
        const char *what;
        BYTE bLayout;
        DWORD pagesPerSheet, subPage;
        BYTE flagsBefore;
        SHORT orientation;
        int result;
        BYTE flagsAfter;
        DWORD subPageAfter;
    } cases[] = {
        {"first page, one up", 1, 0, 0, 0, 1, 1, JOB_PAGE_OPEN | JOB_HEADER_SENT | JOB_PAGE_STARTED,
         0},
        {"next page, one up", 1, 1, 0, JOB_HEADER_SENT, 1, 1,
         JOB_PAGE_OPEN | JOB_HEADER_SENT | JOB_PAGE_STARTED, 0},
        {"page still open", 1, 1, 0, JOB_HEADER_SENT | JOB_PAGE_OPEN, 1, 0,
         JOB_HEADER_SENT | JOB_PAGE_OPEN, 0},
        {"first page, four up: the layout is made", 4, 0, 3, 0, 1, 1,
         JOB_PAGE_OPEN | JOB_HEADER_SENT | JOB_PAGE_STARTED, 0},
        {"further cell: nothing written", 4, 4, 2, JOB_HEADER_SENT, 1, 0,
         JOB_PAGE_OPEN | JOB_HEADER_SENT | JOB_PAGE_STARTED, 2},
        {"fifth page: a new sheet", 4, 4, 4, JOB_HEADER_SENT, 1, 1,
         JOB_PAGE_OPEN | JOB_HEADER_SENT | JOB_PAGE_STARTED, 4},
        {"orientation changes mid-sheet: a new sheet", 4, 4, 3, JOB_HEADER_SENT, 2, 1,
         JOB_PAGE_OPEN | JOB_HEADER_SENT | JOB_PAGE_STARTED, 0},
        {"new layout while a page is open", 4, 4, 3, JOB_HEADER_SENT | JOB_PAGE_OPEN, 2, 0,
         JOB_PAGE_OPEN | JOB_HEADER_SENT, 0},
    };
    for (const Case &c : cases) {
        Record r(c.bLayout);
        // The layout on record was made for portrait paper 1.
        if (c.pagesPerSheet == 4) InitSubPages(&r.info);
        r.info.nPagesPerSheet = c.pagesPerSheet;
        r.info.nSubPage = c.subPage;
        r.info.bJobFlags = c.flagsBefore;
        r.info.bOutputMode = 0;
        r.dm.dmOrientation = c.orientation;
        EXPECT_EQ(WriteHeaders(&r.info), c.result) << c.what;
        EXPECT_EQ(r.info.bJobFlags, c.flagsAfter) << c.what;
        EXPECT_EQ(r.info.nSubPage, c.subPageAfter) << c.what;
        // Unknown on entry; a page header leaves the stream in PCL.
        EXPECT_EQ(r.info.bOutputMode, c.result ? OUTPUT_PCL : OUTPUT_UNKNOWN) << c.what;
        EXPECT_EQ(r.info.pCmdBuf, 0xC0DEu) << c.what << ": pCmdBuf is put back";
        if (c.bLayout == 4) {
            const DWORD cell = r.info.nSubPage % 4;
            EXPECT_EQ(r.info.xSubPage, r.info.SubPageOrg[cell][0]) << c.what;
            EXPECT_EQ(r.info.ySubPage, r.info.SubPageOrg[cell][1]) << c.what;
            EXPECT_EQ(r.info.nLayoutOrient, c.orientation) << c.what;
        }
    }
}

TEST(WriteHeaders, APaperChangeStartsANewSheet) {
    Record r(4);
    InitSubPages(&r.info);
    r.info.nSubPage = 1;
    r.info.bJobFlags = JOB_HEADER_SENT;
    r.dm.dmPaperSize = 9;
    EXPECT_EQ(WriteHeaders(&r.info), 1);
    EXPECT_EQ(r.info.nLayoutPaper, 9);
    EXPECT_EQ(r.info.nSubPage, 0u);
}

// ---- DevWrite --------------------------------------------------------------------------------

TEST(DevWrite, AFailedWriteSilencesEveryLaterCommandUntilTheSenderClearsIt) {
    JobHarness h("devwrite");
    SPLDEVINFO info{};
    info.hPrinter = h.printer();
    EXPECT_EQ(DevWrite(&info,
                       "\x1b"
                       "E",
                       2),
              1);
    h.FailWriteAtByte(3);
    EXPECT_EQ(DevWrite(&info, "\x1b&l0O", 6), 0);
    EXPECT_EQ(info.dwDevFlags, DWORD{DEV_OUTPUT_FAILED});
    h.FailWriteAtByte(0);
    EXPECT_EQ(DevWrite(&info, "\x1b*c0F", 6), 0) << "refused, not attempted";
    EXPECT_EQ(DevWrite(&info, "", 0), 1) << "nothing to write is always written";
    EXPECT_EQ(h.bytesOffered, 8u) << "the refused command never reached the printer";
    EXPECT_EQ(h.Writes(), (std::vector<Event>{W("\x1b"
                                                "E")}));
    info.dwDevFlags = DEV_FORGET_HISTORY; // a block 1 replaces the whole word
    EXPECT_EQ(DevWrite(&info,
                       "\x1b"
                       "E",
                       2),
              1);
    EXPECT_EQ(h.Writes().size(), 2u);
}

// ---- Entries on records they cannot use -------------------------------------------------

struct Entries : ::testing::Test {
    JobHarness h{"entries"};
    long live0 = 0;
    void SetUp() override {
        DefaultXfers();
        live0 = q417::mem::LiveBlocks();
        h.InstallPlugin(Q417_PLUGIN_REC);
        ASSERT_NE(h.Start(), nullptr);
    }
    void TearDown() override {
        q417::mem::FailLock(0);
        h.Close();
        FreeFunctionTable();
        EXPECT_EQ(q417::mem::LiveBlocks(), live0);
    }
    // Every entry once; what each returned.
    std::vector<BOOL> AllEntries() {
        std::vector<BOOL> r;
        r.push_back(DrvSplStartPage(h.job()));
        r.push_back(DrvSplEndPage(h.job()));
        DrvSplEndDoc(h.job());
        DrvSplAbort(h.job());
        return r;
    }
};

TEST_F(Entries, WithoutADeviceModeCopyEveryEntryDoesNothing) {
    ASSERT_EQ(h.SendRecord(LetterRecord()), 1);
    const SPLDEVINFO before = h.Record();
    EXPECT_EQ(AllEntries(), (std::vector<BOOL>{0, 0}));
    EXPECT_EQ(hCustUIDLL, 0u) << "not even the plug-in is loaded";
    EXPECT_EQ(q417::job::JobOf(h.job())->dwState, 1u);
    const SPLDEVINFO after = h.Record();
    EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
    EXPECT_TRUE(h.events.empty());
}

TEST_F(Entries, WhenTheRecordCannotBeLockedEveryEntryDoesNothing) {
    h.SendSetup(h.DevMode());
    const SPLDEVINFO before = h.Record();
    const long live = q417::mem::LiveBlocks();
    using Entry = std::function<BOOL()>;
    const std::pair<const char *, Entry> entries[] = {
        {"StartPage", [&] { return DrvSplStartPage(h.job()); }},
        {"EndPage", [&] { return DrvSplEndPage(h.job()); }},
        {"EndDoc", [&] { return DrvSplEndDoc(h.job()), BOOL{0}; }},
        {"Abort", [&] { return DrvSplAbort(h.job()), BOOL{0}; }},
    };
    for (const auto &[name, entry] : entries) {
        q417::mem::FailLock(1);
        EXPECT_EQ(entry(), 0) << name;
        q417::mem::FailLock(0);
        const SPLDEVINFO after = h.Record();
        EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0) << name;
        EXPECT_EQ(q417::job::JobOf(h.job())->dwState, 1u) << name;
        EXPECT_EQ(q417::mem::LiveBlocks(), live) << name;
    }
    EXPECT_TRUE(h.events.empty());
    EXPECT_TRUE(h.PluginCalls().empty());
}

TEST_F(Entries, EachEntryRefreshesThePrinterAndThePluginDataPointer) {
    struct Case {
        DWORD cbCust;
        WORD dmSize, dmDriverExtra;
        bool expectCustData;
    } cases[] = {
        {0, 220, 184, false}, // exactly the record
        {1, 220, 185, true},       {64, 220, 248, true},
        {64, 220, 0, false},       // the sizes say there is nothing behind the record
        {0, 0xFFFF, 0xFFFF, true}, // summed unsigned, not in 16 bits
    };
    for (const Case &c : cases) {
        std::vector<BYTE> dm = h.DevMode(c.cbCust);
        auto *pdm = reinterpret_cast<DDIDEVMODE *>(dm.data());
        pdm->dmSize = c.dmSize;
        pdm->dmDriverExtra = c.dmDriverExtra;
        pdm->hPrinter = 0x5555; // stale: from the sender's side
        pdm->pCustData = 0x7777;
        ASSERT_EQ(h.SendRecord(h.Record()), 1);
        ASSERT_EQ(h.SendDevMode(dm), 1);
        ASSERT_EQ(DrvSplEndPage(h.job()), 1);

        q417::job::Locked<SPLDEVINFO> info(q417::job::JobOf(h.job())->hDevInfo);
        const DDIDEVMODE *copy = DevModeOf(info.get());
        EXPECT_EQ(copy->hPrinter, h.printer()) << c.cbCust;
        EXPECT_EQ(info->hPrinter, h.printer()) << c.cbCust;
        const void *expect =
            c.expectCustData ? reinterpret_cast<const BYTE *>(copy) + sizeof(DDIDEVMODE) : nullptr;
        EXPECT_EQ(Ptr32To(copy->pCustData), expect) << c.cbCust << " " << c.dmDriverExtra;
    }
}

// Locks: the job block and the device mode copy stay locked once for their life; the record,
// the name and the configuration are unlocked again by every entry, whichever lock failed in it.
TEST_F(Entries, EveryEntryReleasesTheLocksItTook) {
    const HGLOBAL hDevInfo = q417::job::JobOf(h.job())->hDevInfo;
    auto locks = [](HGLOBAL hMem) { return GlobalFlags(hMem) & 0xFF; };
    auto check = [&](const std::string &what) {
        EXPECT_EQ(locks(GlobalHandle(h.job())), 1u) << what;
        EXPECT_EQ(locks(hDevInfo), 0u) << what;
        if (hJobName) {
            EXPECT_EQ(locks(hJobName), 0u) << what;
        }
        if (hCfg) {
            EXPECT_EQ(locks(hCfg), 0u) << what;
        }
        q417::job::Locked<SPLDEVINFO> info(hDevInfo);
        if (const DDIDEVMODE *copy = DevModeOf(info.get())) {
            EXPECT_EQ(locks(GlobalHandle(copy)), 1u) << what;
        }
    };
    using Step = std::function<void()>;
    const std::pair<const char *, Step> steps[] = {
        {"block 1", [&] { h.SendRecord(LetterRecord()); }},
        {"block 2", [&] { h.SendDevMode(h.DevMode(8)); }},
        {"block 8", [&] { h.SendName(u"Locks"); }},
        {"print data", [&] { h.SendData("data"); }},
        {"StartPage", [&] { DrvSplStartPage(h.job()); }},
        {"EndPage", [&] { DrvSplEndPage(h.job()); }},
        {"EndDoc", [&] { DrvSplEndDoc(h.job()); }},
        {"Abort", [&] { DrvSplAbort(h.job()); }},
    };
    h.SendSetup(h.DevMode(8), u"Locks");
    for (long failLock = 0; failLock <= 6; ++failLock) {
        for (const auto &[name, step] : steps) {
            q417::mem::FailLock(failLock);
            step();
            q417::mem::FailLock(0);
            check(std::string(name) + ", lock " + std::to_string(failLock) + " fails");
        }
        h.SendSetup(h.DevMode(8), u"Locks"); // a failed block may have left no copy
    }
    // A failed lock of a new configuration block leaves it cached, empty; it is the process's.
    DiscardDeviceInfo(nullptr);
}

// ---- Whole jobs ------------------------------------------------------------------------------

// What happened between two marks of the test: plug-in calls, print data, and the library's own
// commands (the stream writers, with the plug-in hooks they call).
struct Segment {
    std::string mark;
    std::vector<std::string> calls;
    std::vector<std::string> data;
    int commands = 0;
    std::string text; // the commands' bytes
};

bool IsStreamHook(const std::string &entry) {
    return entry == "OEM_PJLCustJobHeader" || entry == "OEM_PDLCustJobHeader" ||
           entry == "OEM_PDLCustPageHeader" || entry == "OEM_PJLCustJobFooter";
}

std::vector<Segment> Segments(const std::vector<Event> &events, const std::set<std::string> &data) {
    std::vector<Segment> out;
    for (const Event &e : events) {
        if (e.kind == Event::Mark) {
            out.push_back({e.text, {}, {}, 0, {}});
            continue;
        }
        if (out.empty()) out.push_back({"(before)", {}, {}, 0, {}});
        Segment &s = out.back();
        if (e.kind == Event::Call && !IsStreamHook(e.text)) {
            s.calls.push_back(e.text);
        } else if (e.kind == Event::Write && data.count(e.text)) {
            s.data.push_back(e.text);
        } else {
            ++s.commands;
            if (e.kind == Event::Write) s.text += e.text;
        }
    }
    return out;
}

std::string PageData(int page) {
    return "<raster of page " + std::to_string(page) + ">";
}

struct WholeJob : ::testing::Test {
    JobHarness h{"wholejob"};
    long live0 = 0;
    std::set<std::string> data;
    void SetUp() override {
        DefaultXfers();
        live0 = q417::mem::LiveBlocks();
    }
    void TearDown() override {
        FreeFunctionTable();
        EXPECT_EQ(q417::mem::LiveBlocks(), live0);
    }

    // A job of `pages` pages as the graphics half drives it. With N-up the sender counts
    // nSubPage and nPage and carries the library's fields along in a block 1 before each page.
    void Run(int pages, BYTE pagesPerSheet, std::vector<SPLDEVINFO> *records = nullptr) {
        ASSERT_NE(h.Start(), nullptr);
        const std::vector<BYTE> dm = h.DevMode(0, 600, pagesPerSheet);
        h.SendSetup(dm, u"Annual report");
        for (int page = 1; page <= pages; ++page) {
            if (page > 1) {
                SPLDEVINFO r = h.Record();
                r.nPage = page;
                r.nSubPage = page - 1;
                ASSERT_EQ(h.SendRecord(r), 1);
                ASSERT_EQ(h.SendDevMode(dm), 1);
            }
            h.Mark("StartPage " + std::to_string(page));
            ASSERT_EQ(DrvSplStartPage(h.job()), 1) << page;
            if (page == 1 && hCustUIDLL) h.ObservePlugin();
            if (records) records->push_back(h.Record());
            data.insert(PageData(page));
            ASSERT_EQ(h.SendData(PageData(page), static_cast<BYTE>(page * 40)), 1);
            h.Mark("EndPage " + std::to_string(page));
            ASSERT_EQ(DrvSplEndPage(h.job()), 1) << page;
        }
        h.Mark("EndDoc");
        DrvSplEndDoc(h.job());
        h.Mark("Close");
        h.Close();
    }
};

TEST_F(WholeJob, ThreePagesOneUpWithoutAPlugin) {
    std::vector<SPLDEVINFO> records;
    Run(3, 1, &records);
    std::string expect;
    for (int page = 1; page <= 3; ++page) expect += PageData(page);
    std::string got;
    for (const Event &e : h.Writes())
        if (data.count(e.text)) got += e.text;
    EXPECT_EQ(got, expect) << "the print data, tags stripped, in order";
    const std::string uel = "\x1b%-12345X";
    const std::vector<Segment> segments = Segments(h.events, data);
    ASSERT_EQ(segments.size(), 8u);
    for (const Segment &s : segments) EXPECT_TRUE(s.calls.empty()) << s.mark;
    // The first page start opens the job (its header leaves PJL) and then the page.
    EXPECT_EQ(segments[0].text.rfind(uel, 0), 0u) << "the job header comes first";
    EXPECT_NE(segments[0].text.find("@PJL ENTER LANGUAGE"), std::string::npos);
    // Later page starts write a page header alone, the same for equal pages.
    for (int i : {2, 4}) {
        EXPECT_GT(segments[i].commands, 0) << segments[i].mark;
        EXPECT_EQ(segments[i].text.find(uel), std::string::npos) << segments[i].mark;
        EXPECT_EQ(segments[i].text.find("@PJL"), std::string::npos) << segments[i].mark;
        EXPECT_EQ(segments[i].data.size(), 1u) << "data after the header";
    }
    EXPECT_EQ(segments[2].text, segments[4].text);
    // Without a watermark a page end writes nothing; the job's end returns to PJL.
    for (int i : {1, 3, 5}) EXPECT_EQ(segments[i].commands, 0) << segments[i].mark;
    EXPECT_EQ(segments[6].mark, "EndDoc");
    ASSERT_GE(segments[6].text.size(), uel.size());
    EXPECT_EQ(segments[6].text.substr(segments[6].text.size() - uel.size()), uel);
    EXPECT_EQ(segments[7].commands, 0) << "DrvSplClose writes nothing";
    for (const SPLDEVINFO &r : records) {
        EXPECT_EQ(r.bJobFlags & (JOB_HEADER_SENT | JOB_PAGE_OPEN | JOB_PAGE_STARTED),
                  JOB_HEADER_SENT | JOB_PAGE_OPEN | JOB_PAGE_STARTED);
        EXPECT_EQ(r.nPagesPerSheet, 1u);
    }
}

TEST_F(WholeJob, ThreePagesWithTheRecordingPluginInTheirOrder) {
    h.InstallPlugin(Q417_PLUGIN_REC);
    Run(3, 1);
    std::vector<Segment> got = Segments(h.events, data);
    // The first page start loads the plug-in before the log is attached to it.
    ASSERT_EQ(got.size(), 8u);
    const std::vector<std::pair<std::string, std::vector<std::string>>> expect = {
        {"StartPage 1", {}},
        {"EndPage 1", {}},
        {"StartPage 2", {"OEM_BeginSession"}},
        {"EndPage 2", {}},
        {"StartPage 3", {"OEM_BeginSession"}},
        {"EndPage 3", {}},
        {"EndDoc", {"OEM_EndDoc", "OEM_EndSession"}},
        {"Close", {}},
    };
    for (size_t i = 0; i < expect.size(); ++i) {
        EXPECT_EQ(got[i].mark, expect[i].first);
        EXPECT_EQ(got[i].calls, expect[i].second) << got[i].mark;
    }
    EXPECT_EQ(got[0].data, std::vector<std::string>{PageData(1)});
    EXPECT_EQ(got[4].data, std::vector<std::string>{PageData(3)});
    EXPECT_EQ(got[7].commands, 0);
    // The plug-in's own record holds the first page too.
    std::vector<std::string> names;
    for (const RecCall &c : h.PluginCalls())
        if (!IsStreamHook(c.entry)) names.push_back(c.entry);
    EXPECT_EQ(names,
              (std::vector<std::string>{"OEM_BeginSession", "OEM_StartDoc", "OEM_BeginSession",
                                        "OEM_BeginSession", "OEM_EndDoc", "OEM_EndSession"}));
}

TEST_F(WholeJob, FivePagesFourUpMoveTheCellAndWriteHeadersOnlyForNewSheets) {
    h.InstallPlugin(Q417_PLUGIN_REC);
    std::vector<SPLDEVINFO> records;
    Run(5, 4, &records);
    const int origins[4][2] = {{60, 79}, {2460, 79}, {60, 3229}, {2460, 3229}};
    ASSERT_EQ(records.size(), 5u);
    for (int page = 0; page < 5; ++page) {
        EXPECT_EQ(records[page].nPagesPerSheet, 4u);
        EXPECT_EQ(records[page].xSubPage, origins[page % 4][0]) << page + 1;
        EXPECT_EQ(records[page].ySubPage, origins[page % 4][1]) << page + 1;
        EXPECT_EQ(records[page].nScaleX, 285);
    }
    for (const Segment &s : Segments(h.events, data)) {
        if (s.mark == "StartPage 2" || s.mark == "StartPage 3" || s.mark == "StartPage 4") {
            EXPECT_EQ(s.commands, 0) << s.mark << ": a further cell gets no header";
            EXPECT_EQ(s.calls, std::vector<std::string>{"OEM_BeginSession"}) << s.mark;
        }
        if (s.mark == "StartPage 5") {
            EXPECT_GT(s.commands, 0) << "the fifth page opens the second sheet";
            EXPECT_EQ(s.text.find("\x1b%-12345X"), std::string::npos) << "but not the job";
        }
        if (s.mark.rfind("StartPage", 0) == 0) {
            EXPECT_EQ(s.data.size(), 1u) << s.mark;
        }
    }
    std::string got;
    for (const Event &e : h.Writes())
        if (data.count(e.text)) got += e.text;
    EXPECT_EQ(got, PageData(1) + PageData(2) + PageData(3) + PageData(4) + PageData(5));
}

// The end of a job that opened no page: no footer. The watermark font goes by what the last
// first page decided, which may be an earlier job's.
TEST_F(WholeJob, AJobWithoutPagesEndsWithoutAFooter) {
    struct Case {
        int doWaterMarks;
        std::string expect;
    } cases[] = {
        {0, ""},
        {1, "\x1b*c32766D" // select the watermark font id
            "\x1b*c2F"},   // delete it
    };
    for (const Case &c : cases) {
        h.events.clear();
        bDoWaterMarks = c.doWaterMarks;
        ASSERT_NE(h.Start(), nullptr);
        h.SendSetup(h.DevMode());
        DrvSplEndDoc(h.job());
        EXPECT_EQ(q417::job::JobOf(h.job())->dwState, 1u | 2u);
        h.Close();
        EXPECT_EQ(h.Stream(), c.expect) << c.doWaterMarks;
    }
    bDoWaterMarks = 0;
}

// An abort writes nothing: no footer, and a downloaded font stays in the printer.
TEST_F(WholeJob, AnAbortWritesNothing) {
    ASSERT_NE(h.Start(), nullptr);
    h.SendSetup(h.DevMode());
    ASSERT_EQ(DrvSplStartPage(h.job()), 1);
    ASSERT_EQ(h.SendData(PageData(1)), 1);
    ASSERT_EQ(DrvSplEndPage(h.job()), 1);
    bDoWaterMarks = 1; // as if the first page had sent the font
    const size_t before = h.events.size();
    DrvSplAbort(h.job());
    EXPECT_EQ(q417::job::JobOf(h.job())->dwState, 1u | 4u);
    h.Close();
    bDoWaterMarks = 0;
    EXPECT_EQ(h.events.size(), before);
}

TEST_F(WholeJob, AFailedWriteAtAnyByteSilencesTheCommandsButNotThePrintData) {
    Run(3, 1);
    const std::vector<Event> clean = h.Writes();
    const size_t total = h.bytesOffered;
    ASSERT_GT(total, 0u);
    const std::set<std::string> pageData = data;
    for (size_t failAt = 1; failAt <= total; ++failAt) {
        h.events.clear();
        h.bytesOffered = 0;
        h.FailWriteAtByte(failAt);
        ASSERT_NE(h.Start(), nullptr);
        const std::vector<BYTE> dm = h.DevMode(0, 600, 1);
        h.SendSetup(dm, u"Annual report");
        bool failedCommand = false;
        for (int page = 1; page <= 3; ++page) {
            if (page > 1) { // as Run does
                SPLDEVINFO r = h.Record();
                r.nPage = page;
                r.nSubPage = page - 1;
                ASSERT_EQ(h.SendRecord(r), 1);
                ASSERT_EQ(h.SendDevMode(dm), 1);
            }
            const size_t before = h.bytesOffered;
            ASSERT_EQ(DrvSplStartPage(h.job()), 1) << failAt;
            failedCommand |= failAt > before && failAt <= h.bytesOffered;
            const size_t dataStart = h.bytesOffered;
            const BOOL sent = h.SendData(PageData(page));
            const bool hit = failAt > dataStart && failAt <= h.bytesOffered;
            EXPECT_EQ(sent, hit ? 0 : 1) << "print data reports its own write, byte " << failAt;
            const size_t beforeEnd = h.bytesOffered;
            ASSERT_EQ(DrvSplEndPage(h.job()), 1) << failAt;
            failedCommand |= failAt > beforeEnd && failAt <= h.bytesOffered;
        }
        const size_t beforeEndDoc = h.bytesOffered;
        DrvSplEndDoc(h.job());
        failedCommand |= failAt > beforeEndDoc && failAt <= h.bytesOffered;
        EXPECT_EQ((h.Record().dwDevFlags & DEV_OUTPUT_FAILED) != 0, failedCommand) << failAt;
        h.Close();
        // After a failed command nothing but print data reaches the printer.
        std::vector<Event> expect;
        bool silenced = false;
        size_t offset = 0;
        for (const Event &e : clean) {
            const size_t first = offset + 1;
            offset += e.text.size();
            const bool failedHere = failAt >= first && failAt <= offset;
            if (failedHere) {
                silenced |= !pageData.count(e.text);
                continue;
            }
            if (!silenced || pageData.count(e.text)) expect.push_back(e);
        }
        EXPECT_EQ(h.Writes(), expect) << "failing at byte " << failAt;
    }
}

} // namespace
