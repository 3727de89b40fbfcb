// Whole jobs with a watermark, through the exported spooler entries: the font goes out once
// behind the first page's headers, a label ends each page that asks for one, the font is
// deleted at the end.
#include "tests/watermark/harness.h"

#include "config/config.h"
#include "halftone/halftone.h"
#include "q417/q417plg.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>

namespace {

size_t Count(const std::string &s, const std::string &what) {
    size_t n = 0;
    for (size_t at = s.find(what); at != std::string::npos; at = s.find(what, at + 1)) ++n;
    return n;
}

class WaterMarkJob : public ::testing::Test {
  protected:
    wmtest::TempDir dir;
    // Only its printer: the spooler makes the records.
    std::optional<wmtest::Job> printer{std::in_place, dir.path.c_str()};

    long blocksBefore = 0;

    // Every job here ends with its blocks freed, the successful ones too; the configuration
    // and the transfer tables that outlive a job are let go first.
    void SetUp() override {
        WinRoot[0] = 0;
        DiscardDeviceInfo(nullptr), FreeXfers();
        blocksBefore = q417::mem::LiveBlocks();
    }
    void TearDown() override {
        DiscardDeviceInfo(nullptr), FreeXfers();
        EXPECT_EQ(q417::mem::LiveBlocks(), blocksBefore) << "a block leaked";
    }

    struct Options {
        std::string definition = "1,2,3,0,50,0,450,700,0,100,DejaVu Sans,CONFIDENTIAL";
        BYTE flags = JOB_WATERMARK;
        WORD emulation = 3;
        BYTE firstPageOnly = 0;
        BYTE layout = 1;
        int pages = 2;
    };

    void Send(void *job, BYTE tag, const void *data, size_t size) {
        std::string block(1, char(tag));
        block.append(static_cast<const char *>(data), size);
        DWORD written = 0;
        DrvSplWritePrinter(job, block.data(), DWORD(block.size()), &written);
    }

    // With quiet set, a failing entry is no test failure: the fault sweep makes them fail.
    std::string Run(const Options &o, bool quiet = false) {
        dir.Write("QMWMARK.INI", "[Watermarks]\nW1=" + o.definition + "\n");
        void *job = DrvSplStartDoc(printer->hPrinter, 7);
        EXPECT_TRUE(quiet || job != nullptr);
        SPLDEVINFO rec{};
        rec.cxPaper = 6120, rec.cyPaper = 7920;
        rec.cxPrintable = 5760, rec.cyPrintable = 7560;
        rec.cxMargin = 180, rec.cyMargin = 180;
        rec.bJobFlags = o.flags;
        std::vector<BYTE> dm(DDIDEVMODE_SIZE);
        Q417_InitDevMode(dm.data(), DWORD(dm.size()), printer->hPrinter, 0);
        auto *pdm = reinterpret_cast<DDIDEVMODE *>(dm.data());
        pdm->dmPrintQuality = pdm->dmYResolution = 600;
        pdm->dmPaperSize = pdm->dmOrientation = pdm->wWaterMark = 1;
        pdm->wEmulation = o.emulation;
        pdm->bWMFirstPage = o.firstPageOnly;
        pdm->bLayout = o.layout;
        Send(job, 1, &rec, sizeof rec);
        Send(job, 2, dm.data(), dm.size());
        for (int page = 1; page <= o.pages; ++page) {
            // The sender counts pages: the head of the record up to nSubPage.
            rec.nPage = DWORD(page);
            rec.nSubPage = DWORD(page - 1);
            Send(job, 1, &rec, offsetof(SPLDEVINFO, nSubPage) + 4);
            Send(job, 2, dm.data(), dm.size());
            EXPECT_TRUE(DrvSplStartPage(job) == 1 || quiet);
            const std::string data = "<page " + std::to_string(page) + ">";
            Send(job, 0, data.data(), data.size());
            EXPECT_TRUE(DrvSplEndPage(job) == 1 || quiet);
        }
        DrvSplEndDoc(job);
        DrvSplClose(job);
        return printer->Take();
    }
};

// Each piece of the stream as often as a row says, and the pieces of its order one after another.
TEST_F(WaterMarkJob, FontOnceLabelsAsAskedFontDeletedAtTheEnd) {
    const std::string font = "\x1b*c32766D\x1b)s", del = "\x1b*c32766D\x1b*c2F";
    struct Case {
        Options options;
        std::map<std::string, size_t> counts;
        std::vector<std::string> order;
    } cases[] = {
        // The font behind the headers, ahead of the page, and its characters C, O, N, F, I, D,
        // E, T, A, L once each; a label in pen colour ends each page.
        {{},
         {{"\x1b)s", 1}, {"\x1b(s", 10}, {"PC1,255,0,0SP1FT", 2}, {"\x1b*c2g", 0}, {del, 1}},
         {font, "<page 1>", "LO5LBCONFIDENTIAL\x03;LO21DI", "<page 2>", "LO5LB", del}},
        // Monochrome: a gray pattern, on the first page only.
        {{.definition = "1,2,3,240,50,-10,0,400,0,60,DejaVu Sans,DRAFT",
          .emulation = 1,
          .firstPageOnly = 1,
          .pages = 3},
         {{"\x1b*c2g40W", 1}, {"FT22,2SP1", 1}, {"LO5LBDRAFT", 1}, {del, 1}},
         {"LO5LBDRAFT", "<page 2>", "<page 3>", del}},
        // 4-up: 100 points at scale 285 and 600 dpi are 47, on every cell; each cell's centre is
        // the page centre (2400, 3150) scaled by 285/600, plus the cell's origin.
        {{.definition = "1,2,3,0,50,0,0,400,0,100,DejaVu Sans,COPY", .layout = 4, .pages = 4},
         {{"SBSD4,47FI32766", 4}},
         {"PA1200,1575", "PA3600,1575", "PA1200,4725", "PA3600,4725"}},
        // Pages without the flag get no label; a face that can't be found leaves no trace.
        {{.flags = 0}, {{"LB", 0}}, {"<page 1>", "<page 2>"}},
        {{.definition = "1,2,3,0,50,0,0,400,0,100,No Such Face Anywhere,SECRET"},
         {{"32766", 0}, {"\x1b)s", 0}, {"LB", 0}},
         {"<page 1>", "<page 2>"}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.options.definition);
        const std::string s = Run(c.options);
        for (const auto &[piece, n] : c.counts)
            EXPECT_EQ(Count(s, piece), n) << ::testing::PrintToString(piece);
        size_t at = 0;
        for (const std::string &piece : c.order) {
            at = s.find(piece, at);
            ASSERT_NE(at, std::string::npos) << ::testing::PrintToString(piece);
            at += piece.size();
        }
    }
}

// How far an armed failure still was when a run ended: probes allocations (or locks) until one
// fails, and gives the number of that probe, 0 when none did within `limit`.
long ArmedFailureDistance(bool lock, long limit) {
    for (long i = 1; i <= limit; ++i) {
        HGLOBAL h = GlobalAlloc(GHND, 1); // only one of the two is armed
        const bool failed = !h || (lock && !GlobalLock(h));
        GlobalFree(h);
        if (failed) return i;
    }
    return 0;
}

// A watermarked 4-up job with each of its allocations and locks failing in turn: whatever the
// job makes of it, every block it took is free when it ends. Once on the built-in defaults, once
// on a description (parsed, then read back from its binary file).
TEST_F(WaterMarkJob, EveryFailedAllocationOrLockLeavesNoBlockBehind) {
    const Options four{.layout = 4, .pages = 5};
    const std::string pdd = dir.path.string() + "/sample.pdd";
    std::filesystem::copy_file(std::string(Q417_TEST_DATA) + "/pdd/sample.pdd", pdd);
    for (const char *description : {"/nonexistent/wmtest.pdd", pdd.c_str()}) {
        printer.emplace(dir.path.c_str(), description);
        const std::string clean = Run(four);
        ASSERT_NE(clean.find("LBCONFIDENTIAL"), std::string::npos);
        // The configuration and the transfer tables outlive jobs; each run here makes them
        // afresh, so that failures while they are made are swept too.
        DiscardDeviceInfo(nullptr), FreeXfers();
        ASSERT_EQ(q417::mem::LiveBlocks(), 0);
        for (bool lock : {false, true}) {
            // Count what one job reaches: arm a failure far off and see how much is left.
            constexpr long kFar = 1000000;
            lock ? q417::mem::FailLock(kFar + 1) : q417::mem::FailAllocation(kFar + 1);
            Run(four);
            const long points = kFar + 1 - ArmedFailureDistance(lock, kFar + 1);
            q417::mem::FailLock(0), q417::mem::FailAllocation(0);
            DiscardDeviceInfo(nullptr), FreeXfers();
            ASSERT_GT(points, lock ? 50 : 20);
            ASSERT_LT(points, kFar);
            for (long n = 1; n <= points; ++n) {
                lock ? q417::mem::FailLock(n) : q417::mem::FailAllocation(n);
                Run(four, true);
                q417::mem::FailLock(0), q417::mem::FailAllocation(0);
                DiscardDeviceInfo(nullptr), FreeXfers();
                ASSERT_EQ(q417::mem::LiveBlocks(), 0)
                    << description << (lock ? " lock " : " allocation ") << n;
            }
            EXPECT_EQ(Run(four), clean) << "a job after the failures";
            DiscardDeviceInfo(nullptr), FreeXfers();
        }
    }
}

} // namespace
