// Whole jobs through the exported entries on a real printer description: the printer stream
// from the Universal Exit Language to the job's end, byte for byte, against the golden streams
// in tests/data/stream.
#include "stream_support.h"

namespace {

using namespace streamtest;

struct StreamJob : StreamTest {
    // A job "Annual report" of three pages, PCL 5e, 600 dpi, two copies.
    std::string Run(BYTE pagesPerSheet, const q417::test::JobHarness::PageChange &change = {}) {
        std::vector<BYTE> dm = h.DevMode(0, 600, pagesPerSheet);
        reinterpret_cast<DDIDEVMODE *>(dm.data())->wEmulation = 2;
        reinterpret_cast<DDIDEVMODE *>(dm.data())->dmCopies = 2;
        h.RunJob(dm, u"Annual report", change);
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
