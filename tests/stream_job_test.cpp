// Whole jobs through the exported entries on a real printer description: the printer stream
// from the Universal Exit Language to the job's end, byte for byte, against the golden streams
// in tests/data/stream.
#include "stream_support.h"

#include <functional>

namespace {

using q417::test::LetterRecord;
using q417::test::PageData;
using namespace streamtest;

// What the sender changes before a page: the record it sends in block 1 (the library's own
// fields carried along) and the device mode of block 2.
using PageChange = std::function<void(int page, SPLDEVINFO &, DDIDEVMODE &)>;

struct StreamJob : StreamTest {
    // The graphics half's side of a job "Annual report" of three pages, PCL 5e, 600 dpi, two
    // copies: blocks 1 and 2 before every page (block 8 after the first), one data block a page.
    std::string Run(BYTE pagesPerSheet, const PageChange &change = {}) {
        std::vector<BYTE> devMode = h.DevMode(0, 600, pagesPerSheet);
        reinterpret_cast<DDIDEVMODE *>(devMode.data())->wEmulation = 2;
        reinterpret_cast<DDIDEVMODE *>(devMode.data())->dmCopies = 2;
        h.events.clear();
        EXPECT_NE(h.Start(), nullptr);
        for (int page = 1; page <= 3; ++page) {
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

// A page-size command with its duplex code replaces the form feed; the tray of code -1 sends
// nothing but is remembered.
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
    EXPECT_STREAM(Run(1, change), Golden("colour_job.txt"));
}

TEST_F(StreamJob, TwoUpTurnsTheSheet) {
    EXPECT_STREAM(Run(2), Golden("two_up.txt"));
}

} // namespace
