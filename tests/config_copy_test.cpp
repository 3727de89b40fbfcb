// The long-lived copy: fixed row widths, cut texts, the blocks that pass to it, and the cache
// lookups that read it.
#include "pdd_testutil.h"

namespace {

using namespace pddtest;

// Frees what the working record still owns after its copy: its tables, as at shutdown.
// The three passed blocks now belong to the copy.
void FreeSourceTables(CFGINFO *s) {
    s->hFileVersion = s->hPortraitCmd = s->hLandscapeCmd = 0;
    FreeCfgTables(s);
}

const std::u16string k24 = u"ABCDEFGHIJKLMNOPQRSTUVWX"; // exactly one row of a copy
const std::u16string k40 = k24 + u"0123456789abcdef";

// A working record as the builder leaves it: rows narrower and wider than a copy's, a tray
// name exactly one row long, no resolution or bin codes.
struct Source : Built {
    CFGINFO *s = c;
    DDIDEVMODE dm{};
    Source()
        : Built("*Product: \"Model name of thirty-five bytes!!!!\"\n*FileVersion: \"1.00\"\n"
                "*PlugIn: plug.so\n*Orientation Portrait: \"@PJL P\"\n"
                "*Orientation Landscape: \"@PJL L\"\n"
                "*Resolution 300dpi/ABCDEFGHIJKLMNOPQRSTUVWXyzyzy:\n*Resolution 600dpi/600 dpi:\n"
                "*PageSize Long/" +
                std::string(k40.begin(), k40.end()) +
                ": 2\n*PaperDimension Long: \"612 792\"\n*PageSize A4: 26\n"
                "*InputSlot Tray1/ABCDEFGHIJKLMNOPQRSTUVWX: 1\n*InputSlot Tray2/lower: -1\n"
                "*OutputBin Up:\n*MediaType Plain: 0") {
        dm.hConfig = h;
    }
};

using Copy = LiveBlocks;

TEST_F(Copy, WidthsBecomeFixedAndTextsAreCutWithoutTerminator) {
    Source src;
    CFGINFO before;
    std::memcpy(&before, src.s, CFGINFO_SIZE);
    CFGINFO d{};
    ASSERT_EQ(CFGCopyInfo(&src.dm, &d), 1);
    EXPECT_EQ(std::memcmp(&before, src.s, CFGINFO_SIZE), 0) << "the source never changes";

    // Tables of rows: the width in the copy, one row's text, and whether it ends in 0. (The
    // settings interface tests read every family's keys and names from a copy.)
    const struct {
        const char *what;
        HGLOBAL h;
        DWORD cch, wantCch, rows, row;
        std::u16string text;
        bool terminated;
    } rows[] = {
        {"29 chars in a row of 24: cut", d.hResNames, d.cchResName, 24, 2, 0, k24, false},
        {"short text: zero-filled row", d.hResNames, d.cchResName, 24, 2, 1, u"600 dpi", true},
        {"40-char paper name fits 64", d.hPaperNames, d.cchPaperName, 64, 2, 0, k40, true},
        {"paper key", d.hPaperKeys, d.cchPaperKey, 64, 2, 1, u"A4", true},
        {"exactly 24 chars: no terminator", d.hTrayNames, d.cchTrayName, 24, 2, 0, k24, false},
        {"tray code", d.hTrayCmds, d.cchTrayCmd, 24, 2, 1, u"-1", true},
        {"media code", d.hMediaCmds, d.cchMediaCmd, 24, 1, 0, u"0", true},
    };
    for (auto &r : rows) {
        SCOPED_TRACE(r.what);
        EXPECT_EQ(r.cch, r.wantCch);
        EXPECT_EQ(GlobalSize(r.h), SIZE_T(r.rows) * r.wantCch * 2);
        EXPECT_EQ(Row(r.h, r.wantCch, r.row), r.text);
        auto w = Bytes<char16_t>(r.h);
        auto end = w.begin() + (r.row + 1) * r.wantCch;
        bool terminated = std::find(end - r.wantCch, end, 0) != end;
        EXPECT_EQ(terminated, r.terminated);
    }
    EXPECT_EQ(d.cchResCmd | d.hResCmds | d.cchDestCmd | d.hDestCmds, 0u)
        << "no codes: width and table stay absent";
    EXPECT_EQ(Escape(Text(d.hModelName)) + " " + std::to_string(GlobalSize(d.hModelName)),
              "Model name of thirty-five bytes! 32");
    auto plug = Bytes<char16_t>(d.hPlugIn);
    EXPECT_EQ(std::u16string(plug.begin(), plug.end()), u"plug.so" + std::u16string(25, 0));

    EXPECT_EQ(Bytes(d.hPaperDims), Bytes(src.s->hPaperDims)) << "both halves";
    EXPECT_EQ(Bytes(d.hPaperIDs), Bytes(src.s->hPaperIDs));
    EXPECT_EQ(Bytes(d.hTrayIDs), Bytes(src.s->hTrayIDs));
    EXPECT_EQ(Bytes(d.hResValues), Bytes(src.s->hResValues));

    // Three blocks pass to the copy; every other table is its own.
    EXPECT_EQ(d.hFileVersion, src.s->hFileVersion);
    EXPECT_EQ(+d.hPortraitCmd, +src.s->hPortraitCmd);
    EXPECT_EQ(+d.hLandscapeCmd, +src.s->hLandscapeCmd);
    EXPECT_NE(d.hPaperDims, src.s->hPaperDims);
    FreeSourceTables(src.s);
    FreeCfgTables(&d);

    // Records before version 9 hold only the portrait half of the paper dimensions.
    Source old;
    for (WORD version : {8, 9}) {
        old.s->wVersion = version;
        ASSERT_EQ(CFGCopyInfo(&old.dm, &d), 1);
        EXPECT_EQ(GlobalSize(d.hPaperDims), 2u * 24 * (version >= 9 ? 2 : 1)) << version;
        if (version == 8) d.hFileVersion = d.hPortraitCmd = d.hLandscapeCmd = 0; // passed again
        FreeCfgTables(&d);
    }
    FreeSourceTables(old.s);

    EXPECT_EQ(CFGCopyInfo(nullptr, &d), 0);
    EXPECT_EQ(CFGCopyInfo(&old.dm, nullptr), 0);
    DDIDEVMODE none{};
    EXPECT_EQ(CFGCopyInfo(&none, &d), 0);
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
                // 19 tables to copy: one block and two locks each, and the source's lock.
                EXPECT_EQ(k, lock ? 40 : 20);
                break;
            }
            EXPECT_EQ(q417::mem::LiveBlocks(), live);
            EXPECT_TRUE(NoBlocks(d, 21)) << "the passed blocks are still the source's";
        }
    }
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

// Codes by row, the version and the orientation texts; a code as wide as its row and a version
// of 40 bytes have no terminator and are read only to their end.
TEST_F(Cache, CodesByRowAndTexts) {
    const struct {
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
    char buf[kOrientTextCap];
    std::memset(buf, 'x', sizeof buf);
    EXPECT_EQ(GetPDDVersionString(&dm, buf), 40);
    EXPECT_STREQ(buf, "1.00");
    const struct {
        SHORT orient;
        int result;
        const char *text;
    } texts[] = {{1, 6, "@PJL P"}, {2, 6, "@PJL L"}, {0, 0, ""}, {3, 0, ""}};
    for (auto &t : texts) {
        dm.dmOrientation = t.orient;
        buf[0] = 0;
        EXPECT_EQ(GetPJLOrientString(&dm, buf), t.result) << t.orient;
        EXPECT_STREQ(buf, t.text);
    }
    auto *cfg = static_cast<CFGINFO *>(GlobalLock(hCfg));
    GlobalFree(cfg->hTrayCmds);
    std::u16string codes = u"000000000000000000000007"
                           u"8";
    codes.resize(48);
    cfg->hTrayCmds = Block(codes.data(), 96);
    GlobalFree(cfg->hLandscapeCmd);
    cfg->hLandscapeCmd = 0;
    GlobalFree(cfg->hFileVersion);
    cfg->hFileVersion = Block("0123456789012345678901234567890123456789", 40);
    GlobalUnlock(hCfg);
    EXPECT_EQ(GetTraySelect(&dm, 0), 7);
    dm.dmOrientation = 2;
    EXPECT_EQ(GetPJLOrientString(&dm, buf), 0) << "no text for landscape";
    EXPECT_EQ(GetPDDVersionString(&dm, buf), 40);
    EXPECT_EQ(std::string(buf), "0123456789012345678901234567890123456789");
}

TEST_F(Cache, RetrieveServesTheCacheAndDiscardEmptiesIt) {
    HGLOBAL h = hCfg;
    EXPECT_EQ(RetrieveDeviceInfo(&dm), 1);
    EXPECT_EQ(RetrieveDeviceInfo(&dm), 1);
    EXPECT_EQ(dm.hCfgCache, h);
    EXPECT_EQ(hCfg, h);
    DiscardDeviceInfo(&dm); // the tear-down's block count shows the copy's blocks are gone
    EXPECT_EQ(hCfg | dm.hCfgCache, 0u);
    // Without a cache every lookup gives nothing.
    char buf[64] = "keep";
    dm.hCfgCache = 77;
    EXPECT_EQ(GetPaperSelect(&dm, 0), 0);
    EXPECT_EQ(dm.hCfgCache, 0u);
    EXPECT_EQ(GetPDDVersionString(&dm, buf), 0);
    dm.dmOrientation = 1;
    EXPECT_EQ(GetPJLOrientString(&dm, buf), 0);
    EXPECT_STREQ(buf, "keep");
}

} // namespace
