// The long-lived copy: fixed row widths, cut texts, the blocks that pass to it, and the cache
// lookups that read it.
#include "config_helpers.h"

using namespace cfgtest;

namespace {

// Frees what the working record still owns after its copy: its 21 tables, as at shutdown.
// The three passed blocks now belong to the copy.
void FreeSourceTables(CFGINFO *s) {
    s->hFileVersion = s->hPortraitCmd = s->hLandscapeCmd = 0;
    FreeCfgTables(s);
}

const std::u16string k24 = u"ABCDEFGHIJKLMNOPQRSTUVWX"; // exactly one row of a copy
const std::u16string k29 = k24 + u"yzyzy";
const std::u16string k40 = k24 + u"0123456789abcdef";

// A working record as the builder leaves it: widths of its own, tables of every family but
// bins and media.
struct Source {
    HGLOBAL h = GlobalAlloc(GHND, CFGINFO_SIZE);
    CFGINFO *s = static_cast<CFGINFO *>(GlobalLock(h));
    DDIDEVMODE dm{};

    Source() {
        dm.hConfig = h;
        s->wVersion = 11;
        s->dwColors = 3;
        s->nResolutions = 2;
        s->nDefaultRes = 1;
        s->cchResName = 30;
        s->hResNames = WideTable({k29, u"600 dpi"}, 30);
        s->cchResKey = 8;
        s->hResKeys = WideTable({u"300dpi", u"600dpi"}, 8);
        uint32_t values[] = {300, 300, 600, 600};
        s->hResValues = Block(values, sizeof values);
        s->nPapers = 2;
        s->cchPaperName = 41;
        s->hPaperNames = WideTable({k40, u"A4"}, 41);
        s->cchPaperKey = 7;
        s->hPaperKeys = WideTable({u"Long", u"A4"}, 7);
        s->cchPaperCmd = 3;
        s->hPaperCmds = WideTable({u"2", u"26"}, 3);
        uint32_t dims[24];
        for (int i = 0; i < 24; ++i) dims[i] = 1000 + i;
        s->hPaperDims = Block(dims, sizeof dims);
        uint16_t pids[] = {1, 9};
        s->hPaperIDs = Block(pids, sizeof pids);
        s->nTrays = 2;
        s->cchTrayName = 25;
        s->hTrayNames = WideTable({k24, u"lower"}, 25);
        s->cchTrayKey = 6;
        s->hTrayKeys = WideTable({u"Tray1", u"Tray2"}, 6);
        s->cchTrayCmd = 3;
        s->hTrayCmds = WideTable({u"1", u"-1"}, 3);
        uint16_t tids[] = {256, 2};
        s->hTrayIDs = Block(tids, sizeof tids);
        s->hModelName = Text8("Model name of thirty-five bytes!!!!");
        const char16_t plug[] = u"plug.so";
        s->hPlugIn = Block(plug, sizeof plug);
        s->hFileVersion = Text8("1.00");
        s->cbPortraitCmd = 6;
        s->hPortraitCmd = Block("@PJL P", 6);
        s->cbLandscapeCmd = 6;
        s->hLandscapeCmd = Block("@PJL L", 6);
        s->nCustomPaper = -1;
    }
    ~Source() {
        FreeCfgTables(s);
        GlobalUnlock(h);
        GlobalFree(h);
    }
};

struct Copy : LiveBlocks {};

TEST_F(Copy, WidthsBecomeFixedAndTextsAreCutWithoutTerminator) {
    Source src;
    CFGINFO before;
    std::memcpy(&before, src.s, CFGINFO_SIZE);
    CFGINFO d{};
    ASSERT_EQ(CFGCopyInfo(&src.dm, &d), 1);
    EXPECT_EQ(std::memcmp(&before, src.s, CFGINFO_SIZE), 0) << "the source never changes";

    struct {
        const char *what;
        HGLOBAL h;
        DWORD cch, rows, row;
        std::u16string text;
        bool terminated;
    } rows[] = {
        {"29 chars in a row of 24: cut", d.hResNames, d.cchResName, 2, 0, k24, false},
        {"short text: zero-filled row", d.hResNames, d.cchResName, 2, 1, u"600 dpi", true},
        {"40-char paper name fits 64", d.hPaperNames, d.cchPaperName, 2, 0, k40, true},
        {"paper key", d.hPaperKeys, d.cchPaperKey, 2, 1, u"A4", true},
        {"paper code", d.hPaperCmds, d.cchPaperCmd, 2, 1, u"26", true},
        {"exactly 24 chars: no terminator", d.hTrayNames, d.cchTrayName, 2, 0, k24, false},
        {"tray code", d.hTrayCmds, d.cchTrayCmd, 2, 1, u"-1", true},
        {"resolution key", d.hResKeys, d.cchResKey, 2, 1, u"600dpi", true},
    };
    for (auto &r : rows) {
        SCOPED_TRACE(r.what);
        EXPECT_EQ(GlobalSize(r.h), SIZE_T(r.rows) * r.cch * 2);
        EXPECT_EQ(Row(r.h, r.cch, r.row), r.text);
        EXPECT_EQ(RowTerminated(r.h, r.cch, r.row), r.terminated);
    }
    EXPECT_EQ(d.cchResName, 24u);
    EXPECT_EQ(d.cchResKey, 24u);
    EXPECT_EQ(d.cchPaperName, 64u);
    EXPECT_EQ(d.cchPaperKey, 64u);
    EXPECT_EQ(d.cchPaperCmd, 24u);
    EXPECT_EQ(d.cchTrayName, 24u);
    EXPECT_EQ(d.cchTrayKey, 24u);
    EXPECT_EQ(d.cchTrayCmd, 24u);
    EXPECT_EQ(d.cchResCmd, 0u) << "no resolution commands: width and table stay absent";
    EXPECT_EQ(d.hResCmds, 0u);
    EXPECT_EQ(d.cchDestName, 0u);
    EXPECT_EQ(d.cchDestKey, 0u);
    EXPECT_EQ(d.cchMediaName, 0u);
    EXPECT_EQ(d.hDestNames | d.hDestKeys | d.hMediaNames | d.hMediaKeys, 0u);

    auto model = Bytes(d.hModelName);
    ASSERT_EQ(model.size(), 32u);
    EXPECT_EQ(std::string(model.begin(), model.end()), "Model name of thirty-five bytes!");
    auto plug = Bytes(d.hPlugIn);
    ASSERT_EQ(plug.size(), 64u);
    EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t *>(plug.data())), u"plug.so");
    EXPECT_TRUE(std::all_of(plug.begin() + 16, plug.end(), [](uint8_t b) { return b == 0; }));

    EXPECT_EQ(U32s(d.hPaperDims), U32s(src.s->hPaperDims)) << "both halves";
    EXPECT_EQ(U16s(d.hPaperIDs), U16s(src.s->hPaperIDs));
    EXPECT_EQ(U16s(d.hTrayIDs), U16s(src.s->hTrayIDs));
    EXPECT_EQ(U32s(d.hResValues), U32s(src.s->hResValues));

    // Three blocks pass to the copy; every other table is its own.
    EXPECT_EQ(d.hFileVersion, src.s->hFileVersion);
    EXPECT_EQ(+d.hPortraitCmd, +src.s->hPortraitCmd);
    EXPECT_EQ(+d.hLandscapeCmd, +src.s->hLandscapeCmd);
    EXPECT_NE(d.hPaperDims, src.s->hPaperDims);
    EXPECT_NE(d.hModelName, src.s->hModelName);

    FreeSourceTables(src.s);
    FreeCfgTables(&d);
}

TEST_F(Copy, OlderRecordHasOnlyThePortraitHalf) {
    Source src;
    src.s->wVersion = 8;
    CFGINFO d{};
    ASSERT_EQ(CFGCopyInfo(&src.dm, &d), 1);
    EXPECT_EQ(GlobalSize(d.hPaperDims), 2u * 24);
    FreeSourceTables(src.s);
    FreeCfgTables(&d);
}

TEST_F(Copy, BinsAndMediaGetWidth24WhenPresent) {
    Source src;
    src.s->nDests = 1;
    src.s->cchDestName = 3;
    src.s->hDestNames = WideTable({u"Up"}, 3);
    src.s->cchDestKey = 3;
    src.s->hDestKeys = WideTable({u"Up"}, 3);
    src.s->nMedia = 1;
    src.s->cchMediaName = 6;
    src.s->hMediaNames = WideTable({u"Plain"}, 6);
    src.s->cchMediaKey = 6;
    src.s->hMediaKeys = WideTable({u"Plain"}, 6);
    src.s->cchMediaCmd = 2;
    src.s->hMediaCmds = WideTable({u"0"}, 2);
    CFGINFO d{};
    ASSERT_EQ(CFGCopyInfo(&src.dm, &d), 1);
    EXPECT_EQ(d.cchDestName, 24u);
    EXPECT_EQ(d.cchDestKey, 24u);
    EXPECT_EQ(d.cchDestCmd, 0u);
    EXPECT_EQ(d.cchMediaCmd, 24u);
    EXPECT_EQ(Row(d.hMediaCmds, 24, 0), u"0");
    EXPECT_EQ(Row(d.hDestNames, 24, 0), u"Up");
    FreeSourceTables(src.s);
    FreeCfgTables(&d);
}

// Every allocation and lock of the copy can fail: the result is 0, the copy holds no table,
// nothing leaks and the source is whole.
TEST_F(Copy, EachFailureLeavesNoTableAndNoLeak) {
    for (bool lock : {false, true}) {
        for (long k = 1;; ++k) {
            SCOPED_TRACE(testing::Message() << (lock ? "lock " : "allocation ") << k);
            Source src;
            CFGINFO before;
            std::memcpy(&before, src.s, CFGINFO_SIZE);
            long live = q417::mem::LiveBlocks();
            CFGINFO d{};
            // The source's own lock comes first when locks fail.
            lock ? q417::mem::FailLock(k) : q417::mem::FailAllocation(k);
            int ok = CFGCopyInfo(&src.dm, &d);
            q417::mem::FailLock(0);
            q417::mem::FailAllocation(0);
            EXPECT_EQ(std::memcmp(&before, src.s, CFGINFO_SIZE), 0);
            if (ok) {
                FreeSourceTables(src.s);
                FreeCfgTables(&d);
                // 14 tables to copy: one block and two locks each, and the source's lock.
                EXPECT_EQ(k, lock ? 30 : 15);
                break;
            }
            EXPECT_EQ(q417::mem::LiveBlocks(), live);
            for (HGLOBAL h : {d.hResNames, d.hResKeys, d.hResValues, d.hPaperNames, d.hPaperKeys,
                              d.hPaperCmds, d.hPaperDims, d.hPaperIDs, d.hTrayNames, d.hTrayKeys,
                              d.hTrayCmds, d.hTrayIDs, d.hModelName, d.hPlugIn})
                EXPECT_EQ(h, 0u);
        }
    }
}

TEST_F(Copy, NullArgumentsAndUnlockableSource) {
    Source src;
    CFGINFO d{};
    EXPECT_EQ(CFGCopyInfo(nullptr, &d), 0);
    EXPECT_EQ(CFGCopyInfo(&src.dm, nullptr), 0);
    DDIDEVMODE none{};
    EXPECT_EQ(CFGCopyInfo(&none, &d), 0);
}

TEST_F(Copy, HelpersKeepToTheSourceBlock) {
    // A plug-in name shorter than 64 bytes: only its bytes, the rest zero.
    HGLOBAL small = Block("abc", 4);
    HGLOBAL c = CopyHandleToHandle(small, 64);
    auto b = Bytes(c);
    ASSERT_EQ(b.size(), 64u);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(b.data())), "abc");
    GlobalFree(c);
    // 8-bit copy of a block without terminator stops at the block's end.
    HGLOBAL raw = Block("0123456789", 10);
    c = StrnCopyHandleToHandle(raw, 32);
    b = Bytes(c);
    EXPECT_EQ(std::string(b.begin(), b.begin() + 11), std::string("0123456789\0", 11));
    GlobalFree(c);
    // Rows wider than the source's: zero tails; narrower: cut.
    HGLOBAL t = WideTable({u"ab", u"cd"}, 2);
    c = ResizeCopyHandle(t, 4, 6, 2);
    EXPECT_EQ(Row(c, 3, 0), u"ab");
    EXPECT_EQ(Row(c, 3, 1), u"cd");
    GlobalFree(c);
    c = ResizeCopyHandle(t, 4, 2, 2);
    EXPECT_EQ(U16s(c), (std::vector<uint16_t>{u'a', u'c'}));
    GlobalFree(c);
    EXPECT_EQ(ResizeCopyHandle(0, 4, 4, 2), 0u);
    EXPECT_EQ(CopyHandleToHandle(0, 4), 0u);
    for (HGLOBAL h : {small, raw, t}) GlobalFree(h);
}

// ---- The cache and its lookups ----

struct Cache : LiveBlocks {
    DDIDEVMODE dm{};
    void SetUp() override {
        Source src;
        hCfg = GlobalAlloc(GHND, CFGINFO_SIZE);
        ASSERT_EQ(CFGCopyInfo(&src.dm, GlobalLock(hCfg)), 1);
        GlobalUnlock(hCfg);
        FreeSourceTables(src.s);
    }
    void TearDown() override {
        DiscardDeviceInfo(&dm);
        LiveBlocks::TearDown();
    }
};

TEST_F(Cache, PaperAndTrayCodesByRow) {
    struct {
        int (*fn)(DDIDEVMODE *, int);
        int row, code;
    } cases[] = {
        {GetPaperSelect, 0, 2},  {GetPaperSelect, 1, 26}, {GetPaperSelect, 2, 0},
        {GetPaperSelect, -1, 0}, {GetTraySelect, 0, 1},   {GetTraySelect, 1, -1},
        {GetTraySelect, 2, 0},
    };
    for (auto &c : cases) {
        dm.hCfgCache = 0;
        EXPECT_EQ(c.fn(&dm, c.row), c.code) << "row " << c.row;
        EXPECT_EQ(dm.hCfgCache, hCfg);
    }
    EXPECT_EQ(GetPaperSelect(nullptr, 0), 0);
}

TEST_F(Cache, CodeRowOfFullWidthIsReadOnlyToItsEnd) {
    auto *c = static_cast<CFGINFO *>(GlobalLock(hCfg));
    GlobalFree(c->hTrayCmds);
    c->hTrayCmds = WideTable({u"000000000000000000000007", u"8"}, 24);
    GlobalUnlock(hCfg);
    EXPECT_EQ(GetTraySelect(&dm, 0), 7);
}

TEST_F(Cache, VersionAndOrientationTexts) {
    char buf[kOrientTextCap];
    std::memset(buf, 'x', sizeof buf);
    EXPECT_EQ(GetPDDVersionString(&dm, buf), 40);
    EXPECT_STREQ(buf, "1.00");

    struct {
        SHORT orient;
        int result;
        const char *text;
    } cases[] = {{1, 6, "@PJL P"}, {2, 6, "@PJL L"}, {0, 0, ""}, {3, 0, ""}};
    for (auto &c : cases) {
        dm.dmOrientation = c.orient;
        buf[0] = 0;
        EXPECT_EQ(GetPJLOrientString(&dm, buf), c.result) << c.orient;
        EXPECT_STREQ(buf, c.text);
    }
    auto *cfg = static_cast<CFGINFO *>(GlobalLock(hCfg));
    GlobalFree(cfg->hLandscapeCmd);
    cfg->hLandscapeCmd = 0;
    // 40 bytes of version text: copied whole and terminated behind.
    GlobalFree(cfg->hFileVersion);
    cfg->hFileVersion = Block("0123456789012345678901234567890123456789", 40);
    GlobalUnlock(hCfg);
    dm.dmOrientation = 2;
    EXPECT_EQ(GetPJLOrientString(&dm, buf), 0) << "no text for landscape";
    EXPECT_EQ(GetPDDVersionString(&dm, buf), 40);
    EXPECT_EQ(std::string(buf), "0123456789012345678901234567890123456789");
}

TEST_F(Cache, NoCacheGivesNothing) {
    DiscardDeviceInfo(nullptr);
    EXPECT_EQ(hCfg, 0u);
    char buf[64] = "keep";
    dm.hCfgCache = 77;
    EXPECT_EQ(GetPaperSelect(&dm, 0), 0);
    EXPECT_EQ(dm.hCfgCache, 0u);
    EXPECT_EQ(GetPDDVersionString(&dm, buf), 0);
    dm.dmOrientation = 1;
    EXPECT_EQ(GetPJLOrientString(&dm, buf), 0);
    EXPECT_STREQ(buf, "keep");
}

TEST_F(Cache, RetrieveServesWhatIsCachedAndDiscardFreesTheCopy) {
    HGLOBAL h = hCfg;
    EXPECT_EQ(RetrieveDeviceInfo(&dm), 1);
    EXPECT_EQ(RetrieveDeviceInfo(&dm), 1);
    EXPECT_EQ(dm.hCfgCache, h);
    EXPECT_EQ(hCfg, h);
    DiscardDeviceInfo(&dm);
    EXPECT_EQ(hCfg, 0u);
    EXPECT_EQ(dm.hCfgCache, 0u);
    // The tear-down's block count shows that the copy's tables and passed blocks are gone.
}

} // namespace
