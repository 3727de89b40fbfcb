// PDD file: the sample description field by field, the grammar of key lines, the results of a
// parse, "Include:" lines, and that every path frees what it took.
#include "pdd_testutil.h"

#include <algorithm>

namespace {

using namespace pddtest;

std::string ReadFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

const std::string kSample = std::string(Q417_TEST_DATA) + "/pdd/sample.pdd";

struct PddParse : ::testing::Test {
    long live0 = q417::mem::LiveBlocks();
    void TearDown() override {
        q417::mem::FailAllocation(0);
        q417::mem::FailLock(0);
        EXPECT_EQ(q417::mem::LiveBlocks(), live0) << "blocks leaked";
    }
};

void ExpectText(const PDDTEXT &t, const std::string &want, const char *what) {
    EXPECT_EQ(Text(t), want) << what;
    EXPECT_EQ(t.nLen, static_cast<int16_t>(want.size())) << what;
    for (size_t i = want.size(); i < sizeof t.achText; ++i)
        ASSERT_EQ(t.achText[i], 0) << what << ": byte " << i << " behind the text";
}

void ExpectArea(const PDDAREA &a, int32_t l, int32_t t, int32_t w, int32_t h, const char *what) {
    EXPECT_EQ(a.nLeft, l) << what;
    EXPECT_EQ(a.nTop, t) << what;
    EXPECT_EQ(a.nRight, w) << what;
    EXPECT_EQ(a.nBottom, h) << what;
}

TEST_F(PddParse, SampleDescriptionFieldByField) {
    Parsed r(kSample);
    ASSERT_EQ(r.result, PDD_OK);
    const PDDINFO &p = *r.p;
    EXPECT_EQ(p.hSelf, r.h);
    EXPECT_EQ(p.dwLineNumber, 38u);
    EXPECT_EQ(p.pszFileName, r.name.c_str()) << "the caller's name, not a copy";
    EXPECT_EQ(p.dwLanguage, 1u);
    EXPECT_EQ(p.dwLanguageLevel, 4u);
    EXPECT_EQ(p.dwColors, 3u);
    EXPECT_EQ(p.dwDuplex, 1u);
    EXPECT_EQ(p.dwCollate, 1u);
    EXPECT_EQ(p.bTextClipping, 1);
    EXPECT_EQ(p.bLandscapeMinus90, 1);
    EXPECT_EQ(p.bFontPitch, 10);
    EXPECT_EQ(p.bLangID, 9);
    EXPECT_EQ(p.bMeasUnits, 0);
    ExpectText(p.Product, "Sample 1200", "Product");
    ExpectText(p.FileVersion, "1.00", "FileVersion");
    ExpectText(p.PlugIn, "sample.dll", "PlugIn");
    // convertlf: the escape becomes LF and the text is one byte shorter.
    ExpectText(p.PortraitCmd, "@PJL SET ORIENTATION=PORTRAIT\n", "PortraitCmd");
    ExpectText(p.LandscapeCmd, "@PJL SET ORIENTATION=LANDSCAPE\n", "LandscapeCmd");

    EXPECT_EQ(p.dwCustMinWidth, 2160);
    EXPECT_EQ(p.dwCustMinHeight, 3600);
    EXPECT_EQ(p.dwCustMaxWidth, 6120);
    EXPECT_EQ(p.dwCustMaxHeight, 10080);
    EXPECT_EQ(p.dwCustDefWidth, 6120);
    EXPECT_EQ(p.dwCustDefHeight, 7920);
    EXPECT_EQ(p.dwCustMarginLeft, 120);
    EXPECT_EQ(p.dwCustMarginTop, 120);
    EXPECT_EQ(p.dwCustMarginRight, 120);
    EXPECT_EQ(p.dwCustMarginBottom, 120);

    // Papers, with their areas turned into origin and size.
    ASSERT_EQ(p.nPapers, 3u);
    const PDDPAPER *letter = p.pPaperList;
    const PDDPAPER *a4 = letter->pNext;
    const PDDPAPER *custom = a4->pNext;
    ASSERT_NE(custom, nullptr);
    EXPECT_EQ(custom->pNext, nullptr);
    EXPECT_EQ(p.pDefaultPaper, letter);
    EXPECT_EQ(p.pCustomPaper, custom);
    ExpectText(letter->Key, "Letter", "Letter Key");
    ExpectText(letter->Translation, "US Letter", "Letter Translation");
    ExpectText(letter->Cmd, "2", "Letter Cmd");
    EXPECT_EQ(letter->nWidth, 6120);
    EXPECT_EQ(letter->nHeight, 7920);
    ExpectArea(letter->PortraitArea, 120, 120, 5880, 7680, "Letter portrait");
    ExpectArea(letter->LandscapeArea, 120, 120, 5880, 7680, "Letter landscape");
    ExpectText(a4->Key, "A4", "A4 Key");
    ExpectText(a4->Translation, "A4", "A4 Translation");
    ExpectText(a4->Cmd, "26", "A4 Cmd");
    EXPECT_EQ(a4->nWidth, 5952);
    EXPECT_EQ(a4->nHeight, 8418);
    ExpectArea(a4->PortraitArea, 120, 120, 5710, 8180, "A4 portrait");
    // "14 12 581 830" with the land suffix: left 120, top 140, edges 8300 and 5810.
    ExpectArea(a4->LandscapeArea, 120, 140, 8180, 5670, "A4 landscape");
    ExpectText(custom->Key, "Custom", "Custom Key");
    ExpectText(custom->Translation, "Custom Size", "Custom Translation");
    ExpectText(custom->Cmd, "101", "Custom Cmd");
    EXPECT_EQ(custom->nWidth, 6120);
    EXPECT_EQ(custom->nHeight, 7920);
    ExpectArea(custom->PortraitArea, 120, 120, 5880, 7680, "Custom portrait");
    ExpectArea(custom->LandscapeArea, 120, 120, 5880, 7680, "Custom landscape");

    ASSERT_EQ(p.nTrays, 2u);
    const PDDITEM *tray1 = p.pTrayList;
    const PDDITEM *manual = tray1->pNext;
    ASSERT_NE(manual, nullptr);
    EXPECT_EQ(manual->pNext, nullptr);
    EXPECT_EQ(p.pDefaultTray, tray1);
    ExpectText(tray1->Key, "Tray1", "Tray1 Key");
    ExpectText(tray1->Translation, "upper", "Tray1 Translation");
    ExpectText(tray1->Cmd, "1", "Tray1 Cmd");
    ExpectText(manual->Key, "Manual", "Manual Key");
    ExpectText(manual->Translation, "manual feed", "Manual Translation");
    ExpectText(manual->Cmd, "2", "Manual Cmd");

    ASSERT_EQ(p.nDests, 1u);
    ASSERT_NE(p.pDestList, nullptr);
    EXPECT_EQ(p.pDestList->pNext, nullptr);
    EXPECT_EQ(p.pDefaultDest, p.pDestList);
    ExpectText(p.pDestList->Key, "Top", "Top Key");
    ExpectText(p.pDestList->Translation, "Top Bin", "Top Translation");
    ExpectText(p.pDestList->Cmd, "1", "Top Cmd");

    ASSERT_EQ(p.nMedia, 1u);
    ASSERT_NE(p.pMediaList, nullptr);
    EXPECT_EQ(p.pMediaList->pNext, nullptr);
    EXPECT_EQ(p.pDefaultMedia, p.pMediaList);
    ExpectText(p.pMediaList->Key, "Plain", "Plain Key");
    ExpectText(p.pMediaList->Translation, "Plain Paper", "Plain Translation");
    ExpectText(p.pMediaList->Cmd, "0", "Plain Cmd");

    ASSERT_EQ(p.nResolutions, 2u);
    const PDDRESOLUTION *r600 = p.pResList;
    const PDDRESOLUTION *r600x300 = r600->pNext;
    ASSERT_NE(r600x300, nullptr);
    EXPECT_EQ(r600x300->pNext, nullptr);
    EXPECT_EQ(p.pDefaultRes, r600);
    ExpectText(r600->Key, "600dpi", "600dpi Key");
    ExpectText(r600->Translation, "600 dpi", "600dpi Translation");
    ExpectText(r600->Cmd, "600", "600dpi Cmd");
    EXPECT_EQ(r600->nXRes, 600);
    EXPECT_EQ(r600->nYRes, 600);
    ExpectText(r600x300->Key, "600x300dpi", "600x300dpi Key");
    ExpectText(r600x300->Translation, "600 by 300", "600x300dpi Translation");
    ExpectText(r600x300->Cmd, "600x300", "600x300dpi Cmd");
    EXPECT_EQ(r600x300->nXRes, 600);
    EXPECT_EQ(r600x300->nYRes, 300);
}

TEST_F(PddParse, EveryLineEndGivesTheSameRecord) {
    std::string crlf = ReadFile(kSample);
    std::string lf = crlf;
    lf.erase(std::remove(lf.begin(), lf.end(), '\r'), lf.end());
    std::string cr = lf, lfcr;
    std::replace(cr.begin(), cr.end(), '\n', '\r');
    for (char c : lf) lfcr += c == '\n' ? std::string("\n\r") : std::string(1, c);
    std::string want;
    {
        Parsed r(kSample);
        want = Summary(*r.p);
    }
    TempDir tmp;
    for (const std::string &bytes : {lf, cr, lfcr, lf.substr(0, lf.size() - 1)}) {
        Parsed r(tmp.Write("s.pdd", bytes));
        EXPECT_EQ(r.result, PDD_OK);
        EXPECT_EQ(Summary(*r.p), want) << Escape(bytes.substr(0, 40));
    }
}

TEST_F(PddParse, ResultsOfAParse) {
    TempDir tmp;
    struct Case {
        const char *what;
        std::string bytes;
        int result;
    } cases[] = {
        {"empty file", "", PDD_NOT_PDD},
        {"tag in another case", "*pdd-lindgate: 1\r\n*Product: \"X\"\r\n", PDD_NOT_PDD},
        {"tag alone", "*PDD-Lindgate:", PDD_OK},
        {"one line end before the tag is dropped", "\n*PDD-Lindgate: 1\n", PDD_OK},
        {"two make an empty first line", "\r\n*PDD-Lindgate: 1\r\n", PDD_NOT_PDD},
        {"0 byte first", std::string("\0*PDD-Lindgate:\n", 16), PDD_NOT_PDD},
        {"every key line refused",
         "*PDD-Lindgate:\n*LanguageLevel: 5c\n*PrinterLanguage: pcl9\n*OutputBin\n", PDD_OK},
    };
    for (const Case &c : cases) {
        Parsed r(tmp.Write("r.pdd", c.bytes));
        EXPECT_EQ(r.result, c.result) << c.what;
        EXPECT_EQ(r.p->bLangID, 9) << c.what << ": the record is reset";
        EXPECT_EQ(r.p->pPaperList, nullptr) << c.what;
    }

    HGLOBAL h = PDD_Startup();
    std::u16string missing = Wide((tmp.dir / "missing.pdd").string());
    EXPECT_EQ(PDD_ParseFile(h, missing.c_str()), PDD_NO_FILE);
    EXPECT_EQ(PDD_ParseFile(h, nullptr), PDD_NO_FILE);
    q417::mem::FailLock(1);
    std::u16string sample = Wide(kSample);
    EXPECT_EQ(PDD_ParseFile(h, sample.c_str()), PDD_NO_LOCK);
    EXPECT_EQ(PDD_ParseFile(0, sample.c_str()), PDD_NO_LOCK);
    // A second parse into the same record starts it afresh and drops the first one's entries.
    EXPECT_EQ(PDD_ParseFile(h, sample.c_str()), PDD_OK);
    EXPECT_EQ(PDD_ParseFile(h, sample.c_str()), PDD_OK);
    q417::mem::FailLock(1);
    EXPECT_EQ(PDD_FreeLists(h), PDD_NO_LOCK) << "nothing freed";
    EXPECT_EQ(PDD_Shutdown(h), 1);
}

TEST_F(PddParse, NoMemoryForAnEntryRefusesTheLine) {
    TempDir tmp;
    std::string path =
        tmp.Write("m.pdd", "*PDD-Lindgate:\n*PageSize A: 1\n*PageSize B: 2\n*PageSize C: 3\n");
    HGLOBAL h = PDD_Startup();
    std::u16string name = Wide(path);
    q417::mem::FailAllocation(2); // the entry of B
    EXPECT_EQ(PDD_ParseFile(h, name.c_str()), PDD_OK);
    auto *p = static_cast<PDDINFO *>(GlobalLock(h));
    EXPECT_EQ(Summary(*p), "paper[A||1|0x0] paper[C||3|0x0]");
    GlobalUnlock(h);
    PDD_Shutdown(h);
    q417::mem::FailAllocation(1);
    EXPECT_EQ(PDD_Startup(), 0u);
}

// Which lines are key lines and which key tokens match: the effect of each line alone.
TEST_F(PddParse, GrammarOfKeyLines) {
    struct Case {
        const char *line;
        const char *effect;
    } cases[] = {
        {"*Product: \"X\"", "product=X"},
        {"*\tProduct: \"X\"", "product=X"}, // blanks and tabs before the key
        {"*  Product:\t\"X\"", "product=X"},
        {" *Product: \"X\"", " !"}, // blank before the asterisk
        {"*%Product: \"X\"", ""},   // comment
        {"*", ""},                  // lone asterisk
        {"*   ", " !"},             // no key token
        {"Product: \"X\"", ""},
        {"*product: \"X\"", " !product:"},     // known key, wrong case
        {"*Product : \"X\"", " !Product"},     // blank before the colon
        {"*PageSize: Letter", " !PageSize:"},  // colon behind an option key
        {"*Product:  \"X\"", "product= "},     // Q: the second blank is the value
        {"*Product:\"X\"", " !Product:\"X\""}, // nothing ends the key token
        {"*Product: X", "product=X"},          // no quotes: the text to the end
        {"*Product: \"Abc", "product=Abc"},    // no closing quote
        {"*PaperDimension A:  \"612 792\"", "paper[A|||6120x7920] !calc(A)"},
        {"*DefaultCustomPageSize: \"612 792\"", " !DefaultCustomPageSize:"},
        {"*PageSize Letter/US Letter: 2 trailing words", "paper[Letter|US Letter|2|0x0] "
                                                         "!calc(Letter)"},
    };
    for (const Case &c : cases) EXPECT_EQ(ParseLines(c.line), c.effect) << c.line;
}

TEST_F(PddParse, OverlongLinesAndOddBytes) {
    std::string longName(130, 'N');
    struct Case {
        std::string line;
        const char *effect;
    } cases[] = {
        // 128 bytes count, the byte behind them (the quote) is lost, and the rest is a line of
        // its own: here a key line.
        {"*Product: \"" + std::string(117, 'P') + "\"" + "*FileVersion: \"2\"",
         "product=PPPPPPPPPPPPPPPPPPPPPPPPPPPPPPPPPPPPPPPP version=2 !"},
        {"*Product: \"" + std::string(114, 'P') + "\"\r\n*FileVersion: \"2\"",
         "product=PPPPPPPPPPPPPPPPPPPPPPPPPPPPPPPPPPPPPPPP version=2"},
        {std::string("*Product: \"A\0B\"", 15) + "\n*FileVersion: \"2\"", "product=A version=2"},
        {"*Product: \"\xE9t\xE9\"", "product=\xE9t\xE9"},
        {"*DefaultFontPitch: 99999999999999999999", "pitch=255"},
        {"*PaperDimension A: \"1e400 -1e400\"", "paper[A|||2147483647x-2147483648] !calc(A)"},
    };
    for (const Case &c : cases) EXPECT_EQ(ParseLines(c.line), c.effect) << Escape(c.line);
}

// ---- "Include:" ------------------------------------------------------------------------------

struct Includes : PddParse {
    TempDir tmp;
    DiagLog log;
    std::string Parse(const std::string &path) {
        Parsed r(path);
        return std::to_string(r.result) + " " + Summary(*r.p);
    }
};

TEST_F(Includes, NestedFilesAddToTheRecordAndTheOuterFileGoesOn) {
    tmp.Write("sub/b.pdd", "*PDD-Lindgate:\r\n*InputSlot B1: 1\r\n*Include: \"c.pdd\"\r\n"
                           "*InputSlot B2: 2\r\n*Bogus: b\r\n");
    tmp.Write("sub/c.pdd", "*PDD-Lindgate:\n*InputSlot C1: 3\n*PageSize A4/A4: 26\n"
                           "*PaperDimension A4: \"595.2 841.8\"\n"
                           "*ImageableArea A4: \"12 12 583 830\"\n");
    // The outer file spans several blocks, so the return has to find its place again.
    std::string outer = "*PDD-Lindgate:\r\n*InputSlot A1: 0\r\n";
    for (int i = 0; i < 30; ++i) outer += "*% padding line " + std::to_string(i) + "\r\n";
    outer += "*Include: \"sub/b.pdd\"\r\n*InputSlot A2: 4\r\n*Bogus: a\r\n";
    std::string a = tmp.Write("a.pdd", outer);
    EXPECT_EQ(Parse(a), "0 paper[A4|A4|26|5952x8418|120,120,5710,8180|120,120,5710,8180] "
                        "tray[A1||0] tray[B1||1] tray[C1||3] tray[B2||2] tray[A2||4]");
    // Line numbers count per file.
    EXPECT_EQ(log.lines, (std::vector<std::string>{"b.pdd:5 Bogus:: unknown key",
                                                   "a.pdd:35 Bogus:: unknown key"}));
}

TEST_F(Includes, DepthIsLimitedToEightAndSelfIncludesAreSkipped) {
    for (int i = 0; i <= 10; ++i)
        tmp.Write("f" + std::to_string(i) + ".pdd",
                  "*PDD-Lindgate:\n*InputSlot F" + std::to_string(i) + ": " + std::to_string(i) +
                      "\n*Include: \"f" + std::to_string(i + 1) + ".pdd\"\n");
    std::string s = Parse((tmp.dir / "f0.pdd").string());
    EXPECT_EQ(s, "0 tray[F0||0] tray[F1||1] tray[F2||2] tray[F3||3] tray[F4||4] tray[F5||5] "
                 "tray[F6||6] tray[F7||7] tray[F8||8]");
    ASSERT_FALSE(log.lines.empty());
    EXPECT_EQ(log.lines.back(), "f8.pdd:3 Include:: includes nested deeper than 8: skipped");

    log.lines.clear();
    std::string self = tmp.Write(
        "self.pdd", "*PDD-Lindgate:\n*Include: \"self.pdd\"\n*Include: \"./x/../self.pdd\"\n"
                    "*Include: \"loop.pdd\"\n*InputSlot S: 1\n");
    tmp.Write("loop.pdd", "*PDD-Lindgate:\n*Include: \"self.pdd\"\n*InputSlot L: 2\n");
    EXPECT_EQ(Parse(self), "0 tray[L||2] tray[S||1]");
    EXPECT_EQ(log.lines, (std::vector<std::string>{
                             "self.pdd:2 Include:: file includes itself: skipped",
                             "self.pdd:3 Include:: file includes itself: skipped",
                             "loop.pdd:2 Include:: file includes itself: skipped",
                         }));
}

TEST_F(Includes, MissingOrInvalidFilesAndAbsoluteNames) {
    std::string abs = tmp.Write("abs/x.pdd", "*PDD-Lindgate:\n*InputSlot X: 9\n");
    tmp.Write("notpdd.pdd", "*Product: \"no tag\"\n");
    std::string a = tmp.Write("a.pdd", "*PDD-Lindgate:\n*Include: \"missing.pdd\"\n"
                                       "*Include: \"notpdd.pdd\"\n*Include: \"" +
                                           abs +
                                           "\"\n*Include:\n*Include: \"  \"\n"
                                           "*InputSlot A: 1\n");
    EXPECT_EQ(Parse(a), "0 tray[X||9] tray[A||1]");
    EXPECT_EQ(log.lines, (std::vector<std::string>{
                             "a.pdd:2 Include:: included file can't be opened",
                             "notpdd.pdd:0 : empty, or the first line lacks the tag "
                             "\"*PDD-Lindgate:\"",
                             "a.pdd:3 Include:: included file is empty or not a PDD",
                             "a.pdd:5 Include:: no file name",
                             "a.pdd:6 Include:: no file name",
                         }));
}

} // namespace
