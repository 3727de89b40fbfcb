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

TEST_F(Builder, WindowsIdsOfPapersAndSources) {
    HandPDD pdd;
    pdd.Res("600dpi", "", "", 600, 600);
    pdd.Paper("Odd", "", "1", 1000, 1000);                         // no Windows size: 257
    pdd.Paper("A4", "", "26", 5952, 8418);                         // 9
    pdd.p->pCustomPaper = pdd.Paper("Custom", "", "", 6000, 9000); // 256, uses no user id
    pdd.Paper("A4again", "", "", 5950, 8420);                      // same size: a user id, 258
    pdd.Paper("Letter", "", "2", 6120, 7920);                      // 1
    pdd.Paper("Odd2", "", "", 1001, 1001);                         // 259
    pdd.Tray("T1", "Upper", "1");                                  // 1
    pdd.Tray("T2", "Shelf", "2");                                  // 256
    pdd.Tray("T3", "UPPER", "3");                                  // 1 again: same name, same id
    pdd.Tray("T4", "Shelf 2", "4");                                // 257
    pdd.Tray("T5", "manual feed", "5");                            // 4
    pdd.Tray("", "", "6");                                         // no name: 9
    CfgBlock cfg;
    ASSERT_EQ(cfg.Build(pdd), 1);
    EXPECT_EQ(Bytes<uint16_t>(cfg.c->hPaperIDs), (std::vector<uint16_t>{257, 9, 256, 258, 1, 259}));
    EXPECT_EQ(Bytes<uint16_t>(cfg.c->hTrayIDs), (std::vector<uint16_t>{1, 256, 1, 257, 4, 9}));
}

TEST_F(Builder, TablesAtExactWidthsInListOrder) {
    HandPDD pdd;
    pdd.Res("600dpi", "600 dpi", "", 600, 600);
    pdd.p->pDefaultRes = pdd.Res("1200x600dpi", "", "", 1200, 600);
    pdd.Paper("Letter", "US", "2", 6120, 7920, {12, 12, 600, 780}, {14, 10, 590, 770});
    pdd.p->pDefaultPaper = pdd.Paper("A4", "A", "26", 5950, 8420, {1, 2, 3, 4}, {5, 6, 7, 8});
    pdd.Tray("Tray1", "upper", "");
    pdd.p->pDefaultTray = pdd.Tray("Manual", "", "");
    pdd.Dest("Top", "Top Bin", "");
    pdd.p->pDefaultDest = pdd.Dest("Side", "", "3");
    pdd.p->pDefaultMedia = pdd.Media("Plain", "Plain Paper", "0");
    pdd.p->Product = T("Sample 1200");
    pdd.p->FileVersion = T("1.00");
    pdd.p->PlugIn = T("sample.so");
    pdd.p->dwDuplex = 1, pdd.p->dwColors = 3, pdd.p->dwLanguage = 1, pdd.p->dwLanguageLevel = 5;
    pdd.p->bLangID = 7, pdd.p->bMeasUnits = 1, pdd.p->bFontPitch = 10;
    CfgBlock cfg;
    ASSERT_EQ(cfg.Build(pdd), 1);
    const CFGINFO &c = *cfg.c;
    EXPECT_EQ(std::vector<long>({c.wVersion, long(c.dwDuplex), long(c.dwColors),
                                 long(c.dwLanguageLevel), c.bLangID, c.bMeasUnits, c.bFontPitch,
                                 c.nCustomPaper, long(c.dwCustMaxWidth)}),
              std::vector<long>({11, 1, 3, 5, 7, 1, 10, -1, 0}));
    // Each table: count, default row, width (longest text + 1) and rows in list order.
    const struct {
        const char *what;
        DWORD count, def, width;
        HGLOBAL h;
        std::vector<std::u16string> rows;
    } tables[] = {
        {"res names: translation, else key",
         c.nResolutions,
         DWORD(c.nDefaultRes),
         c.cchResName,
         c.hResNames,
         {u"600 dpi", u"1200x600dpi"}},
        {"res keys", 2, 1, c.cchResKey, c.hResKeys, {u"600dpi", u"1200x600dpi"}},
        {"paper names narrower than keys",
         c.nPapers,
         DWORD(c.nDefaultPaper),
         c.cchPaperName,
         c.hPaperNames,
         {u"US", u"A"}},
        {"paper keys", 2, 1, c.cchPaperKey, c.hPaperKeys, {u"Letter", u"A4"}},
        {"paper codes", 2, 1, c.cchPaperCmd, c.hPaperCmds, {u"2", u"26"}},
        {"tray names",
         c.nTrays,
         DWORD(c.nDefaultTray),
         c.cchTrayName,
         c.hTrayNames,
         {u"upper", u"Manual"}},
        {"bin names",
         c.nDests,
         DWORD(c.nDefaultDest),
         c.cchDestName,
         c.hDestNames,
         {u"Top Bin", u"Side"}},
        {"bin codes: one empty row", 2, 1, c.cchDestCmd, c.hDestCmds, {u"", u"3"}},
        {"media",
         c.nMedia,
         DWORD(c.nDefaultMedia),
         c.cchMediaName,
         c.hMediaNames,
         {u"Plain Paper"}},
    };
    for (auto &t : tables) {
        SCOPED_TRACE(t.what);
        DWORD longest = 0;
        for (auto &r : t.rows) longest = std::max<DWORD>(longest, DWORD(r.size()));
        EXPECT_EQ(t.count, t.rows.size());
        EXPECT_EQ(t.def, t.rows.size() - 1);
        EXPECT_EQ(t.width, longest + 1);
        EXPECT_EQ(GlobalSize(t.h), t.rows.size() * t.width * 2);
        for (DWORD r = 0; r < t.rows.size(); ++r) EXPECT_EQ(Row(t.h, t.width, r), t.rows[r]);
    }
    EXPECT_EQ(c.cchTrayCmd | c.hTrayCmds | c.hResCmds, 0u) << "no code at all: no table";
    EXPECT_EQ(Bytes<uint32_t>(c.hResValues), (std::vector<uint32_t>{600, 600, 1200, 600}));
    EXPECT_EQ(Bytes<uint32_t>(c.hPaperDims),
              (std::vector<uint32_t>{6120, 7920, 12, 12, 600, 780, 5950, 8420, 1, 2, 3, 4, //
                                     6120, 7920, 14, 10, 590, 770, 5950, 8420, 5, 6, 7, 8}));
    EXPECT_EQ(Escape(Text(c.hModelName)) + " " + std::to_string(GlobalSize(c.hModelName)),
              "Sample 1200 12");
    EXPECT_EQ(Bytes<char16_t>(c.hPlugIn), std::vector<char16_t>(u"sample.so", u"sample.so" + 10));
    EXPECT_EQ(+c.hPortraitCmd | +c.hLandscapeCmd, 0u);
}

TEST_F(Builder, FullLengthTextsAndRawOrientationBytes) {
    HandPDD pdd;
    std::string key40(40, 'K');
    pdd.Res("r", "", "", 300, 300);
    pdd.Paper(key40, "", "1", 100, 100);
    pdd.Tray("t", "", "1");
    pdd.p->Product = T(std::string(40, 'P'));
    // A command cut short by the parser's line-feed conversion keeps its length.
    pdd.p->PortraitCmd = T("@PJL\n");
    pdd.p->PortraitCmd.nLen = 8;
    pdd.p->pCustomPaper = &pdd.papers.back();
    pdd.p->dwCustMinWidth = 216, pdd.p->dwCustMarginBottom = 12;
    CfgBlock cfg;
    ASSERT_EQ(cfg.Build(pdd), 1);
    const CFGINFO &c = *cfg.c;
    EXPECT_EQ(c.cchPaperKey, 41u);
    EXPECT_EQ(Row(c.hPaperKeys, 41, 0), std::u16string(40, u'K'));
    auto model = Bytes(c.hModelName);
    EXPECT_EQ(std::string(model.begin(), model.end()), std::string(40, 'P') + '\0');
    EXPECT_EQ(
        std::vector<long>({c.nCustomPaper, long(c.dwCustMinWidth), long(c.dwCustMarginBottom)}),
        std::vector<long>({0, 216, 12}));
    EXPECT_EQ(+c.cbPortraitCmd, 8u);
    EXPECT_EQ(Bytes(+c.hPortraitCmd), (std::vector<uint8_t>{'@', 'P', 'J', 'L', '\n', 0, 0, 0}));
    EXPECT_EQ(+c.hLandscapeCmd | +c.cbLandscapeCmd | c.hFileVersion | c.hPlugIn, 0u);
    EXPECT_EQ(c.nDests | c.nMedia | c.cchDestName | c.cchMediaName, 0u);
}

TEST_F(Builder, MissingRequiredFamilyFailsWithNoTables) {
    for (int missing = 0; missing < 3; ++missing) {
        SCOPED_TRACE(missing);
        HandPDD pdd;
        if (missing != 0) pdd.Res("r", "", "", 300, 300);
        if (missing != 1) pdd.Paper("p", "", "1", 100, 100);
        if (missing != 2) pdd.Tray("t", "", "1");
        pdd.p->Product = T("M");
        CfgBlock cfg;
        cfg.c->hPDD = pdd.h;
        EXPECT_EQ(PDD_GetConfig(cfg.h), 0);
        EXPECT_TRUE(NoBlocks(*cfg.c));
    }
}

} // namespace
