// From a parsed description to a configuration record, and the Windows ids of its papers and
// paper sources.
#include "pdd_testutil.h"

namespace {

using namespace pddtest;

TEST(WinIds, PaperSizeLookupTolerance) {
    struct {
        int w, h, id;
        const char *why;
    } cases[] = {
        {5950, 8420, 9, "A4 exactly"},
        {5952, 8418, 9, "595.2 x 841.8 points: within the tolerance"},
        {5959, 8429, 9, "9 off on both edges still matches"},
        {5960, 8420, 256, "10 off in width doesn't"},
        {5950, 8410, 256, "10 off in height doesn't"},
        {5941, 8411, 9, "9 below on both edges"},
        {6120, 7920, 1, "Letter"},
        {12240, 7920, 4, "a long-edge-first shape that the table holds"},
        {7920, 6120, 256, "Letter turned: no row"},
        {2610, 4680, 38, "first row"},
        {2600, 4000, 256, "below the first row"},
        {20000, 20000, 256, "beyond the last row"},
        {6236, 6236, 47, "square"},
        {5953, 9354, 14, "5950 x 9350 comes first and is within reach"},
    };
    for (auto &c : cases) EXPECT_EQ(PDD_GetWinPaper(c.w, c.h), c.id) << c.why;
}

TEST(WinIds, TrayNameLookupIgnoresCaseOnly) {
    struct {
        std::u16string name;
        int id;
    } cases[] = {
        {u"upper", 1},           {u"UPPER", 1},      {u"Manual Feed", 4}, {u"casette", 14},
        {u"cassette", 256},      {u"upper ", 256},   {u"uppe", 256},      {u"", 9},
        {u"Large Capacity", 11}, {u"autoselect", 7}, {u"tray 1", 256},
    };
    for (auto &c : cases)
        EXPECT_EQ(PDD_GetWinTray(c.name.c_str()), c.id)
            << std::string(c.name.begin(), c.name.end());
}

using Builder = LiveBlocks;

// Every paper and source of the two sample printers gets its Windows id (DMPAPER_LETTER 1,
// LEGAL 5, EXECUTIVE 7, A4 9, A5 11, ENV_10 20, USER 256 for the custom paper; DMBIN_UPPER 1,
// LOWER 2, MANUAL 4, ENVELOPE 5, AUTO 7), and the configuration reads back from its file.
// DL, 311.8 by 623.6 points, meets the 311.8 by 652 row first and so ends the sorted search:
// it takes the first user id.
TEST_F(Builder, TheSamplePrintersWindowsIds) {
    struct Case {
        const char *file;
        std::vector<uint16_t> papers, trays;
    } cases[] = {
        {"qcl4100.pdd", {9, 1, 5, 11, 7, 20, 257, 256}, {1, 2, 4, 5, 7}},
        {"qml2400.pdd", {1, 9, 5, 20, 256}, {1, 4}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.file);
        Parsed parsed(std::string(Q417_SOURCE_DIR) + "/share/" + c.file);
        CfgBlock built, read;
        ASSERT_EQ(built.Build(parsed.h), 1);
        EXPECT_EQ(Bytes<uint16_t>(built.c->hPaperIDs), c.papers);
        EXPECT_EQ(Bytes<uint16_t>(built.c->hTrayIDs), c.trays);
        TempDir t;
        const std::string bin = t / "s.bdd";
        ASSERT_EQ(WriteCfgBinary(built.c, bin.c_str()), 1);
        ASSERT_EQ(ReadCfgBinary(read.c, bin.c_str()), 1);
        ExpectSameRecord(*built.c, *read.c);
    }
}

TEST_F(Builder, WindowsIdsOfPapersAndSources) {
    Built b("*Resolution 600dpi:\n"
            "*PageSize Odd: 1\n*PaperDimension Odd: \"100 100\"\n"         // no Windows size: 257
            "*PageSize A4: 26\n*PaperDimension A4: \"595.2 841.8\"\n"      // 9
            "*CustomPageSize C: \"600 900 600 900\"\n"                     // 256, no user id
            "*PageSize A4again: 3\n*PaperDimension A4again: \"595 842\"\n" // same size: 258
            "*PageSize Letter: 2\n*PaperDimension Letter: \"612 792\"\n"   // 1
            "*PageSize Odd2: 4\n*PaperDimension Odd2: \"100.1 100.1\"\n"   // 259
            "*InputSlot T1/Upper: 1\n*InputSlot T2/Shelf: 2\n"             // 1, 256
            "*InputSlot T3/UPPER: 3\n*InputSlot T4/Shelf 2: 4\n"           // same name: 1; 257
            "*InputSlot T5/manual feed: 5\n*InputSlot /: 6");              // 4; no name: 9
    ASSERT_EQ(b.ok, 1);
    EXPECT_EQ(Bytes<uint16_t>(b.c->hPaperIDs), (std::vector<uint16_t>{257, 9, 256, 258, 1, 259}));
    EXPECT_EQ(Bytes<uint16_t>(b.c->hTrayIDs), (std::vector<uint16_t>{1, 256, 1, 257, 4, 9}));
}

TEST_F(Builder, MissingRequiredFamilyFailsWithNoTables) {
    const char *families[] = {"*Resolution r:\n", "*PageSize p: 1\n", "*InputSlot t: 1\n"};
    for (int missing = 0; missing < 3; ++missing) {
        std::string lines = "*Product: \"M\"\n";
        for (int f = 0; f < 3; ++f)
            if (f != missing) lines += families[f];
        Described d(lines);
        CfgBlock cfg;
        cfg.c->hPDD = d.parsed.h;
        EXPECT_EQ(PDD_GetConfig(cfg.h), 0) << missing;
        EXPECT_TRUE(NoBlocks(*cfg.c));
    }
}

// Every allocation and lock of the builder can fail; each failure leaves the record without
// a block of its own, and nothing leaks.
TEST_F(Builder, EachFailureUndoesEverything) {
    Parsed pdd(std::string(Q417_TEST_DATA) + "/config/full.pdd");
    for (bool lock : {false, true}) {
        for (long k = 1;; ++k) {
            SCOPED_TRACE(testing::Message() << (lock ? "lock " : "allocation ") << k);
            CfgBlock cfg;
            cfg.c->hPDD = pdd.h;
            long live = q417::mem::LiveBlocks();
            lock ? q417::mem::FailLock(k) : q417::mem::FailAllocation(k);
            int ok = PDD_GetConfig(cfg.h);
            q417::mem::FailLock(0);
            q417::mem::FailAllocation(0);
            if (ok) break; // past the last step, or only an orientation block failed
            EXPECT_TRUE(NoBlocks(*cfg.c));
            EXPECT_EQ(q417::mem::LiveBlocks(), live);
        }
    }
}

} // namespace
