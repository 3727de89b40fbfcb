// The job handle and the tagged-block channel: which blocks reach the printer, what the state
// blocks do to the record, and what bad blocks and failed allocations leave behind.
#include "job_harness.h"

namespace {

using q417::test::LetterRecord;
using q417::test::WithFaults;
using Channel = q417::test::JobTest;

// A failed start still reads the tables and arms the watermark font: the graphics half prints
// gray watermarks through them whatever became of the job. The close asks for the record's
// lock again when it fails once; every block goes either way.
TEST_F(Channel, StartDocMakesAFreshRecordOrNothingAndCloseFreesEveryBlock) {
    struct Case {
        long failAlloc, failLock; // job block, then record
        bool job;
        long lastPaper, closeFailLock;
    } cases[] = {{0, 0, true, -1, 0}, {1, 0, false, 0, 0}, {2, 0, false, 0, 0},
                 {0, 1, false, 0, 0}, {0, 2, true, 0, 0}, // an unlocked record stays zero-filled
                 {0, 0, true, -1, 1}, {0, 0, true, -1, 2}};
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.failAlloc << c.failLock << c.closeFailLock);
        FreeXfers();
        bDoWtrMrkFontHeader = 0;
        EXPECT_EQ(WithFaults(c.failAlloc, c.failLock, [&] { return h.Start(); }) != nullptr, c.job);
        EXPECT_EQ(bDoWtrMrkFontHeader, 1);
        EXPECT_NE(RedXfer, nullptr);
        if (!h.job()) continue;
        const SPLJOB *job = q417::job::JobOf(h.job());
        EXPECT_EQ(job->hPrinter, h.printer());
        EXPECT_EQ(job->dwState, 1u);
        const SPLDEVINFO r = h.Record();
        EXPECT_EQ(r.nLastPaper, c.lastPaper);
        EXPECT_EQ(r.nLastTray, c.lastPaper);
        EXPECT_EQ(r.pDevMode, 0u);
        h.SendSetup(h.DevMode());
        WithFaults(0, c.closeFailLock, [&] { return h.Close(), 0; });
        EXPECT_EQ(q417::mem::LiveBlocks(), live0);
    }
}

TEST_F(Channel, EveryTagButTheFourStateTagsIsPrintDataWithTheTagStripped) {
    h.Open(h.DevMode());
    for (BYTE tag : {0, 3, 7, 9, 99, 101, 255}) {
        DWORD written = 0xDEAD;
        const std::string payload = "page " + std::to_string(tag);
        EXPECT_EQ(h.Send(tag, payload.data(), payload.size(), &written), 1) << int(tag);
        EXPECT_EQ(written, payload.size()) << "counts the payload, not the tag";
        EXPECT_EQ(h.events.back(), payload) << int(tag);
    }
    const size_t before = h.events.size();
    DWORD written = 0xDEAD;
    EXPECT_EQ(h.Send(100, "dropped", 7, &written), 1);
    EXPECT_EQ(written, 0xDEADu) << "pcWritten belongs to the print data path alone";
    h.SendSetup(h.DevMode());
    EXPECT_EQ(h.events.size(), before) << "tags 1, 2, 8 and 100 never reach the printer";
    // A bare tag, nothing, or no job is refused; null handles do nothing anywhere.
    const BYTE bare[1] = {0x30};
    EXPECT_EQ(DrvSplWritePrinter(h.job(), bare, 1, nullptr), 0);
    EXPECT_EQ(DrvSplWritePrinter(h.job(), nullptr, 10, nullptr), 0);
    EXPECT_EQ(DrvSplWritePrinter(nullptr, "\x30xy", 3, nullptr), 0);
    EXPECT_EQ(h.events.size(), before);
    EXPECT_EQ(DrvSplStartPage(nullptr), 0);
    EXPECT_EQ(DrvSplEndPage(nullptr), 0);
    DrvSplEndDoc(nullptr);
    DrvSplAbort(nullptr);
    DrvSplClose(nullptr);
}

// A block 1 replaces the record as far as it reaches (a short one keeps what lies past it), but
// for the history words, kept unless the sender says forget; the device mode copy and the
// sender's pointer go.
TEST_F(Channel, Block1ReplacesTheRecordButItsHistory) {
    h.Open(h.DevMode());
    for (bool forget : {false, true}) {
        {
            q417::job::Locked<SPLDEVINFO> info(q417::job::JobOf(h.job())->hDevInfo);
            info->nLastPaper = info->nLastTray = 3; // what the library has told the printer
            info->bOutputMode = OUTPUT_HPGL;        // past 200 bytes
        }
        SPLDEVINFO r = LetterRecord();
        r.nLastPaper = r.nLastTray = 42;
        r.dwDevFlags = forget ? DEV_FORGET_HISTORY | 0x02 : 0;
        r.pDevMode = 0x12345678; // a pointer of the sender's address space
        ASSERT_EQ(h.SendRecord(r, forget ? 200 : sizeof r), 1);
        const SPLDEVINFO got = h.Record();
        EXPECT_EQ(got.nLastPaper, forget ? -1 : 3) << forget;
        EXPECT_EQ(got.nLastTray, forget ? -1 : 3) << forget;
        EXPECT_EQ(got.bOutputMode, forget ? OUTPUT_HPGL : OUTPUT_PCL) << forget;
        EXPECT_EQ(got.pDevMode, 0u) << forget;
    }
}

std::u16string StoredName() {
    if (!hJobName) return u"<none>";
    q417::job::Locked<const char16_t> p(hJobName);
    return p ? std::u16string(p.get()) : u"<unlocked>";
}

// One name block for the job, shared by handle with whichever device mode copy is current.
// A block 8 allocates the temporary block, then the name; it locks the temporary block, the
// record, then the name. Without memory for the name the old one goes all the same, and the
// sender is told nothing. Too long a block 1, too short a block 2, or a block without memory
// is refused, and leaves the job as it was.
TEST_F(Channel, TheJobNameAndRefusedBlocksThroughASequenceOfBlocks) {
    ASSERT_NE(h.Start(), nullptr);
    std::vector<BYTE> dm = h.DevMode(16);
    reinterpret_cast<DDIDEVMODE *>(dm.data())->hJobName = 0xBADBAD; // the sender's, stale
    dm[sizeof(DDIDEVMODE) + 3] = 0x5A;
    std::vector<BYTE> record(sizeof(SPLDEVINFO) + 1);
    const SPLDEVINFO letter = LetterRecord();
    std::memcpy(record.data(), &letter, sizeof letter);
    const std::vector<BYTE> tooLong = record, tooShort(dm.begin(), dm.end() - 17);
    record.pop_back();
    struct Step {
        const char *what;
        BYTE tag;
        std::vector<BYTE> payload;
        std::u16string expect;
        long failAlloc = 0, failLock = 0;
        BOOL result = 1;
    } steps[] = {
        {"block 1", 1, record, u"<none>"},
        {"a name before block 2 is not stored", 8, {'E', 0, 'a', 0}, u"<none>"},
        {"block 2 takes no name", 2, dm, u"<none>"},
        {"plain", 8, {'J', 0, 'o', 0, 'b', 0}, u"Job"},
        {"odd size drops the last byte", 8, {'A', 0, 'B', 0, 'C'}, u"AB"},
        {"a 0 character ends the name", 8, {'X', 0, 0, 0, 'Y', 0}, u"X"},
        {"a leading 0 keeps the old name", 8, {0, 0, 'Z', 0}, u"X"},
        {"one byte is no character", 8, {'Q'}, u"X"},
        {"block 1 too long", 1, tooLong, u"X", 0, 0, 0},
        {"block 2 too short", 2, tooShort, u"X", 0, 0, 0},
        {"temporary block, print data", 0x30, {'A', 0}, u"X", 1, 0, 0},
        {"temporary block's lock", 0x30, {'A', 0}, u"X", 0, 1, 0},
        {"record lock on block 1", 1, record, u"X", 0, 2, 0},
        {"device mode copy", 2, dm, u"X", 2, 0, 0},
        {"device mode copy's lock", 2, dm, u"X", 0, 2, 0},
        {"record lock on block 8", 8, {'R', 0}, u"X", 0, 2, 0},
        {"a new cycle keeps the name: block 1", 1, record, u"X"},
        {"block 2", 2, dm, u"X"},
        {"a second name replaces the first", 8, {'N', 0, 'e', 0, 'w', 0}, u"New"},
        {"no memory for the name", 8, {'M', 0}, u"<none>", 2, 0},
        {"again", 8, {'O', 0}, u"O"},
        {"the name's lock fails", 8, {'M', 0}, u"<none>", 0, 3},
        {"and again", 8, {'P', 0}, u"P"},
    };
    for (const Step &s : steps) {
        const SPLDEVINFO before = h.Record();
        const long live = q417::mem::LiveBlocks();
        ASSERT_EQ(WithFaults(s.failAlloc, s.failLock,
                             [&] { return h.Send(s.tag, s.payload.data(), s.payload.size()); }),
                  s.result)
            << s.what;
        EXPECT_EQ(StoredName(), s.expect) << s.what;
        EXPECT_EQ(h.Record().pDevMode ? h.DevModeCopy().hJobName : hJobName, hJobName) << s.what;
        if (!s.result) {
            const SPLDEVINFO after = h.Record();
            EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0) << s.what;
            EXPECT_EQ(q417::mem::LiveBlocks(), live) << s.what;
        }
    }
    EXPECT_TRUE(h.events.empty()) << "refused print data never reaches the printer";
    q417::job::Locked<SPLDEVINFO> info(q417::job::JobOf(h.job())->hDevInfo);
    const auto *copy = reinterpret_cast<const BYTE *>(DevModeOf(info.get()));
    EXPECT_EQ(GlobalSize(GlobalHandle(copy)), dm.size()) << "plug-in data travel with it";
    EXPECT_EQ(copy[sizeof(DDIDEVMODE) + 3], 0x5A);
    EXPECT_EQ(q417::mem::LiveBlocks(), live0 + 4) << "job, record, copy, one name";
}

} // namespace
