// The job handle and the tagged-block channel: which blocks reach the printer, what the state
// blocks do to the record, and what bad blocks and failed allocations leave behind.
#include "job_harness.h"

namespace {

using q417::test::JobHarness;
using q417::test::LetterRecord;
using q417::test::W;

struct Channel : ::testing::Test {
    JobHarness h{"channel"};
    long live0 = 0;
    void SetUp() override {
        DefaultXfers(); // the tables outlive jobs; count them in from the start
        live0 = q417::mem::LiveBlocks();
        ASSERT_NE(h.Start(), nullptr);
    }
    void TearDown() override {
        q417::mem::FailAllocation(0);
        q417::mem::FailLock(0);
        if (h.job()) h.Close();
        EXPECT_EQ(q417::mem::LiveBlocks(), live0) << "a block outlived its job";
    }
    HGLOBAL NameHandle() const { return hJobName; }
};

TEST_F(Channel, StartDocMakesTheHandleAndAFreshRecord) {
    const SPLJOB *job = q417::job::JobOf(h.job());
    EXPECT_EQ(std::memcmp(job->dwMagic, "TNQM", 4), 0);
    EXPECT_EQ(job->hPrinter, h.printer());
    EXPECT_EQ(job->JobId, 7u);
    EXPECT_EQ(job->dwState, 1u);
    EXPECT_EQ(GlobalHandle(job), GlobalHandle(h.job())) << "the handle is the locked block";
    const SPLDEVINFO r = h.Record();
    EXPECT_EQ(r.nLastPaper, -1);
    EXPECT_EQ(r.nLastTray, -1);
    EXPECT_EQ(r.pDevMode, 0u);
    EXPECT_EQ(r.nPagesPerSheet, 0u);
    EXPECT_EQ(bDoWtrMrkFontHeader, 1);
    EXPECT_NE(RedXfer, nullptr) << "the transfer tables are read for every job";
}

TEST_F(Channel, EveryTagButTheFourStateTagsIsPrintDataWithTheTagStripped) {
    const BYTE dataTags[] = {0, 3, 4, 5, 6, 7, 9, 10, 99, 101, 200, 255};
    for (BYTE tag : dataTags) {
        DWORD written = 0xDEAD;
        const std::string payload = "page " + std::to_string(tag);
        EXPECT_EQ(h.Send(tag, payload.data(), payload.size(), &written), 1) << int(tag);
        EXPECT_EQ(written, payload.size()) << "counts the payload, not the tag";
        ASSERT_FALSE(h.events.empty());
        EXPECT_EQ(h.events.back(), W(payload)) << "tag " << int(tag);
    }
    const size_t before = h.events.size();
    DWORD written = 0xDEAD;
    EXPECT_EQ(h.Send(100, "dropped", 7, &written), 1);
    EXPECT_EQ(written, 0xDEADu) << "pcWritten belongs to the print data path alone";
    h.SendSetup(h.DevMode());
    EXPECT_EQ(h.events.size(), before) << "tags 1, 2, 8 and 100 never reach the printer";
}

TEST_F(Channel, BlocksWithoutPayloadAndNullHandlesGiveZero) {
    const BYTE bare[1] = {0x30};
    EXPECT_EQ(DrvSplWritePrinter(h.job(), bare, 1, nullptr), 0);
    EXPECT_EQ(DrvSplWritePrinter(h.job(), bare, 0, nullptr), 0);
    EXPECT_EQ(DrvSplWritePrinter(h.job(), nullptr, 10, nullptr), 0);
    EXPECT_EQ(DrvSplWritePrinter(nullptr, "\x30xy", 3, nullptr), 0);
    EXPECT_TRUE(h.events.empty());
    // Null handles everywhere else do nothing.
    EXPECT_EQ(DrvSplStartPage(nullptr), 0);
    EXPECT_EQ(DrvSplEndPage(nullptr), 0);
    DrvSplEndDoc(nullptr);
    DrvSplAbort(nullptr);
    DrvSplClose(nullptr);
}

TEST_F(Channel, Block1KeepsTheHistoryWordsUnlessTheSenderSaysForget) {
    h.SendSetup(h.DevMode());
    {
        // The library has told the printer paper 3, tray 5; a block 1 brings other values.
        q417::job::Locked<SPLDEVINFO> info(q417::job::JobOf(h.job())->hDevInfo);
        info->nLastPaper = 3;
        info->nLastTray = 5;
    }
    struct Case {
        DWORD flags;
        SHORT expectPaper, expectTray;
    } cases[] = {{0, 3, 5}, {DEV_FORGET_HISTORY, -1, -1}, {DEV_FORGET_HISTORY | 0x02, -1, -1}};
    for (const Case &c : cases) {
        SPLDEVINFO r = LetterRecord();
        r.nLastPaper = 42;
        r.nLastTray = 43;
        r.nLastOrient = 2;
        r.dwDevFlags = c.flags;
        r.pDevMode = 0x12345678; // a pointer of the sender's address space
        ASSERT_EQ(h.SendRecord(r), 1);
        const SPLDEVINFO got = h.Record();
        EXPECT_EQ(got.nLastPaper, c.expectPaper) << c.flags;
        EXPECT_EQ(got.nLastTray, c.expectTray) << c.flags;
        EXPECT_EQ(got.nLastOrient, 2) << "not a history word";
        EXPECT_EQ(got.pDevMode, 0u) << "the block's pointer is discarded";
        EXPECT_EQ(got.dwDevFlags, c.flags);
        if (c.flags & DEV_FORGET_HISTORY) { // back to a known state for the next case
            q417::job::Locked<SPLDEVINFO> info(q417::job::JobOf(h.job())->hDevInfo);
            info->nLastPaper = 3;
            info->nLastTray = 5;
        }
    }
}

TEST_F(Channel, ShortBlock1LeavesTheTailAndTheDevModeCopyIsReleased) {
    h.SendSetup(h.DevMode());
    {
        q417::job::Locked<SPLDEVINFO> info(q417::job::JobOf(h.job())->hDevInfo);
        info->bOutputMode = 1;
        info->nPagesPerSheet = 4;
        info->SubPageOrg[15][1] = 777;
    }
    const long live = q417::mem::LiveBlocks();
    SPLDEVINFO r = LetterRecord();
    r.cxPaper = 1000;
    ASSERT_EQ(h.SendRecord(r, 200), 1); // up to nSubPage, short of the language state
    const SPLDEVINFO got = h.Record();
    EXPECT_EQ(got.cxPaper, 1000);
    EXPECT_EQ(got.bOutputMode, 1);
    EXPECT_EQ(got.nPagesPerSheet, 4u);
    EXPECT_EQ(got.SubPageOrg[15][1], 777);
    EXPECT_EQ(got.pDevMode, 0u);
    EXPECT_EQ(q417::mem::LiveBlocks(), live - 1) << "block 1 releases the device mode copy";
}

TEST_F(Channel, OversizedBlock1AndUndersizedBlock2AreRefusedWithTheJobUnchanged) {
    h.SendSetup(h.DevMode());
    const SPLDEVINFO before = h.Record();
    const long live = q417::mem::LiveBlocks();

    std::vector<BYTE> big(sizeof(SPLDEVINFO) + 1, 0xAB);
    EXPECT_EQ(h.Send(1, big.data(), big.size()), 0);
    std::vector<BYTE> shortDm = h.DevMode();
    shortDm.resize(sizeof(DDIDEVMODE) - 1);
    EXPECT_EQ(h.SendDevMode(shortDm), 0);

    const SPLDEVINFO after = h.Record();
    EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
    EXPECT_EQ(q417::mem::LiveBlocks(), live);
    // Exactly the record's size, and exactly the device mode's, are taken.
    std::vector<BYTE> exact(sizeof(SPLDEVINFO));
    std::memcpy(exact.data(), &before, sizeof before);
    EXPECT_EQ(h.Send(1, exact.data(), exact.size()), 1);
    EXPECT_EQ(h.SendDevMode(h.DevMode()), 1);
}

TEST_F(Channel, Block2TakesTheCurrentJobNameHandleAndReplacesTheOldCopy) {
    ASSERT_EQ(h.SendRecord(LetterRecord()), 1);
    std::vector<BYTE> dm = h.DevMode(16);
    reinterpret_cast<DDIDEVMODE *>(dm.data())->hJobName = 0xBADBAD;
    dm[sizeof(DDIDEVMODE) + 3] = 0x5A;
    ASSERT_EQ(h.SendDevMode(dm), 1);
    EXPECT_EQ(h.DevModeCopy().hJobName, 0u) << "no name stored yet";
    ASSERT_EQ(h.SendName(u"Quarterly"), 1);
    const HGLOBAL name = NameHandle();
    ASSERT_NE(name, 0u);
    EXPECT_EQ(h.DevModeCopy().hJobName, name);

    const long live = q417::mem::LiveBlocks();
    ASSERT_EQ(h.SendDevMode(dm), 1);
    EXPECT_EQ(h.DevModeCopy().hJobName, name) << "the stale handle of the block is replaced";
    EXPECT_EQ(q417::mem::LiveBlocks(), live) << "the earlier copy is released";
    q417::job::Locked<SPLDEVINFO> info(q417::job::JobOf(h.job())->hDevInfo);
    const auto *copy = reinterpret_cast<const BYTE *>(DevModeOf(info.get()));
    EXPECT_EQ(GlobalSize(GlobalHandle(copy)), dm.size()) << "plug-in data travel with it";
    EXPECT_EQ(copy[sizeof(DDIDEVMODE) + 3], 0x5A);
}

std::u16string StoredName() {
    if (!hJobName) return u"<none>";
    q417::job::Locked<const char16_t> p(hJobName);
    return p ? std::u16string(p.get()) : u"<unlocked>";
}

TEST_F(Channel, Block8StoresTheNameByItsRules) {
    struct Case {
        const char *what;
        std::vector<BYTE> payload;
        std::u16string expect;
    } cases[] = {
        {"plain", {'J', 0, 'o', 0, 'b', 0}, u"Job"},
        {"odd size drops the last byte", {'A', 0, 'B', 0, 'C'}, u"AB"},
        {"a 0 character ends the name", {'X', 0, 0, 0, 'Y', 0}, u"X"},
        {"a leading 0 keeps the old name", {0, 0, 'Z', 0}, u"X"},
        {"one byte is no character", {'Q'}, u"X"},
        {"a second name replaces the first", {'N', 0, 'e', 0, 'w', 0}, u"New"},
    };
    h.SendSetup(h.DevMode(), u"");
    for (const Case &c : cases) {
        ASSERT_EQ(h.Send(8, c.payload.data(), c.payload.size()), 1) << c.what;
        EXPECT_EQ(StoredName(), c.expect) << c.what;
        EXPECT_EQ(h.DevModeCopy().hJobName, hJobName) << c.what;
    }
    // One name block, however many were stored.
    EXPECT_EQ(q417::mem::LiveBlocks(), live0 + 4) << "job, record, copy, name";
}

TEST_F(Channel, Block8BeforeBlock2IsNotStored) {
    ASSERT_EQ(h.SendRecord(LetterRecord()), 1);
    EXPECT_EQ(h.SendName(u"Early"), 1) << "the sender is told nothing";
    EXPECT_EQ(hJobName, 0u);
}

TEST_F(Channel, TheNameSurvivesANewCycleOfBlocks) {
    h.SendSetup(h.DevMode(), u"Kept");
    const HGLOBAL name = hJobName;
    ASSERT_EQ(h.SendRecord(LetterRecord()), 1);
    ASSERT_EQ(h.SendDevMode(h.DevMode()), 1);
    EXPECT_EQ(hJobName, name);
    EXPECT_EQ(h.DevModeCopy().hJobName, name);
    EXPECT_EQ(StoredName(), u"Kept");
}

TEST_F(Channel, CloseFreesEverythingTheJobOwned) {
    h.SendSetup(h.DevMode(32), u"Gone");
    h.Close();
    EXPECT_EQ(hJobName, 0u);
    // TearDown checks the count.
}

// ---- Failure injection: every "no memory" and "lock fails" row --------------------------

struct ChannelFailures : ::testing::Test {
    JobHarness h{"channel_failures"};
    long live0 = 0;
    void SetUp() override {
        DefaultXfers();
        live0 = q417::mem::LiveBlocks();
    }
    void TearDown() override {
        q417::mem::FailAllocation(0);
        q417::mem::FailLock(0);
        if (h.job()) h.Close();
        EXPECT_EQ(q417::mem::LiveBlocks(), live0);
    }
};

TEST_F(ChannelFailures, StartDocWithoutMemoryGivesNullButStillReadsTheTables) {
    // Allocations in order: the job block, the record.
    for (long nth : {1L, 2L}) {
        FreeXfers();
        bDoWtrMrkFontHeader = 0;
        q417::mem::FailAllocation(nth);
        EXPECT_EQ(h.Start(), nullptr) << nth;
        EXPECT_EQ(bDoWtrMrkFontHeader, 1) << nth;
        EXPECT_NE(RedXfer, nullptr) << nth;
        EXPECT_EQ(q417::mem::LiveBlocks(), live0) << nth;
    }
    q417::mem::FailLock(1); // the job block itself cannot be locked
    EXPECT_EQ(h.Start(), nullptr);
    EXPECT_EQ(q417::mem::LiveBlocks(), live0);
}

TEST_F(ChannelFailures, StartDocWhoseRecordCannotBeLockedReturnsTheJobAnyway) {
    q417::mem::FailLock(2); // the job block's lock, then the record's
    ASSERT_NE(h.Start(), nullptr);
    const SPLDEVINFO r = h.Record();
    EXPECT_EQ(r.nLastPaper, 0) << "zero-filled, not -1";
    EXPECT_EQ(r.nLastTray, 0);
}

TEST_F(ChannelFailures, WritePrinterWithoutMemoryReturnsZeroAndChangesNothing) {
    ASSERT_NE(h.Start(), nullptr);
    h.SendSetup(h.DevMode(), u"Name");
    const SPLDEVINFO before = h.Record();
    const long live = q417::mem::LiveBlocks();
    struct Case {
        const char *what;
        BYTE tag;
        long failAlloc, failLock;
    } cases[] = {
        {"temporary block, print data", 0x30, 1, 0}, {"temporary block, lock", 0x30, 0, 1},
        {"temporary block, block 1", 1, 1, 0},       {"device mode copy", 2, 2, 0},
        {"device mode copy, lock", 2, 0, 2},         {"record lock on block 2", 2, 0, 3},
        {"record lock on block 1", 1, 0, 2},         {"record lock on block 8", 8, 0, 2},
    };
    for (const Case &c : cases) {
        std::vector<BYTE> payload;
        if (c.tag == 1) {
            payload.resize(sizeof(SPLDEVINFO));
            std::memcpy(payload.data(), &before, sizeof before);
        } else if (c.tag == 2) {
            payload = h.DevMode();
        } else {
            payload = {'A', 0, 'B', 0};
        }
        q417::mem::FailAllocation(c.failAlloc);
        q417::mem::FailLock(c.failLock);
        EXPECT_EQ(h.Send(c.tag, payload.data(), payload.size()), 0) << c.what;
        q417::mem::FailAllocation(0);
        q417::mem::FailLock(0);
        const SPLDEVINFO after = h.Record();
        EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0) << c.what;
        EXPECT_EQ(q417::mem::LiveBlocks(), live) << c.what;
        EXPECT_TRUE(h.events.empty()) << c.what;
    }
}

TEST_F(ChannelFailures, JobNameWithoutMemoryLeavesNoName) {
    ASSERT_NE(h.Start(), nullptr);
    h.SendSetup(h.DevMode(), u"Old");
    // Allocations of a block 8: the temporary block, then the name.
    q417::mem::FailAllocation(2);
    EXPECT_EQ(h.SendName(u"New"), 1) << "the result of StoreJobName is not passed on";
    EXPECT_EQ(hJobName, 0u) << "the old name went first";
    EXPECT_EQ(h.DevModeCopy().hJobName, 0u);
    // Locks of a block 8: the temporary block, the record, then the name.
    h.SendName(u"Again");
    q417::mem::FailLock(3);
    EXPECT_EQ(h.SendName(u"New"), 1);
    EXPECT_EQ(hJobName, 0u);
    EXPECT_EQ(h.DevModeCopy().hJobName, 0u);
}

TEST_F(ChannelFailures, CloseWhoseRecordCannotBeLockedStopsAndCanBeRepeated) {
    ASSERT_NE(h.Start(), nullptr);
    h.SendSetup(h.DevMode(), u"Name");
    q417::mem::FailLock(1);
    DrvSplClose(h.job());
    EXPECT_EQ(hJobName, 0u) << "the name goes before the record is locked";
    EXPECT_GT(q417::mem::LiveBlocks(), live0);
    h.Close(); // TearDown: nothing left
}

} // namespace
