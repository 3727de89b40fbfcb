// PDD file: the sample description whole, the results of a parse, "Include:" lines, and that
// every path frees what it took.
#include "pdd_testutil.h"

namespace {

using namespace pddtest;

const std::string kSample = std::string(Q417_TEST_DATA) + "/pdd/sample.pdd";

using PddParse = LiveBlocks;

TEST_F(PddParse, SampleDescriptionUnderEveryLineEnd) {
    // Areas become origin and size; "\n" in a command becomes LF and the text one byte shorter.
    const std::string want =
        "lang=1 level=4 colors=3 duplex=1 collate=1 clip=1 minus90=1 pitch=10 "
        "product=Sample 1200 version=1.00 plugin=sample.dll "
        "portrait=@PJL SET ORIENTATION=PORTRAIT\\n landscape=@PJL SET ORIENTATION=LANDSCAPE\\n "
        "custmin=2160x3600 custmax=6120x10080 custdef=6120x7920 margins=120,120,120,120 "
        "paper*[Letter|US Letter|2|6120x7920|120,120,5880,7680|120,120,5880,7680] "
        "paper[A4|A4|26|5952x8418|120,120,5710,8180|120,140,8180,5670] "
        "Cpaper[Custom|Custom Size|101|6120x7920|120,120,5880,7680|120,120,5880,7680] "
        "tray*[Tray1|upper|1] tray[Manual|manual feed|2] bin*[Top|Top Bin|1] "
        "media*[Plain|Plain Paper|0] res*[600dpi|600 dpi|600|600x600] "
        "res[600x300dpi|600 by 300|600x300|600x300]";
    {
        Parsed r(kSample);
        ASSERT_EQ(r.result, PDD_OK);
        EXPECT_EQ(Summary(*r.p), want);
        EXPECT_EQ(r.p->hSelf, r.h);
        EXPECT_EQ(r.p->dwLineNumber, 38u);
        EXPECT_EQ(r.p->pszFileName, r.name.c_str()) << "the caller's name, not a copy";
        for (const PDDTEXT *t : {&r.p->Product, &r.p->PlugIn, &r.p->PortraitCmd})
            for (size_t i = size_t(t->nLen); i < sizeof t->achText; ++i)
                ASSERT_EQ(t->achText[i], 0) << Text(*t) << ": byte " << i << " behind the text";
    }
    auto crlf = ReadAll(kSample);
    std::string lf, cr, lfcr;
    for (char c : crlf) {
        if (c == '\r') continue;
        lf += c, cr += c == '\n' ? '\r' : c,
            lfcr += c == '\n' ? std::string("\n\r") : std::string(1, c);
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
         "*PDD-Lindgate:\n*LanguageLevel: 5c\n*PrinterLanguage: pcl9\n*ColorDevice:\n", PDD_OK},
    };
    for (const Case &c : cases) {
        Parsed r(tmp.Write("r.pdd", c.bytes));
        EXPECT_EQ(r.result, c.result) << c.what;
        EXPECT_EQ(Summary(*r.p), "") << c.what << ": the record is reset";
    }

    HGLOBAL h = PDD_Startup();
    EXPECT_EQ(PDD_ParseFile(h, Wide(tmp / "missing.pdd").c_str()), PDD_NO_FILE);
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

    // No memory for an entry refuses its line only.
    TempDir t2;
    q417::mem::FailAllocation(3); // the record, A, then B
    Parsed m(t2.Write("m.pdd", "*PDD-Lindgate:\n*PageSize A: 1\n*PageSize B: 2\n*PageSize C: 3\n"));
    EXPECT_EQ(m.result, PDD_OK);
    EXPECT_EQ(Summary(*m.p), "paper[A||1|0x0] paper[C||3|0x0]");
    q417::mem::FailAllocation(1);
    EXPECT_EQ(PDD_Startup(), 0u);
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
    EXPECT_EQ(Parse(tmp.Write("a.pdd", outer)),
              "0 paper[A4|A4|26|5952x8418|120,120,5710,8180|120,120,5710,8180] "
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
    EXPECT_EQ(Parse(tmp / "f0.pdd"), "0 tray[F0||0] tray[F1||1] tray[F2||2] tray[F3||3] "
                                     "tray[F4||4] tray[F5||5] tray[F6||6] tray[F7||7] tray[F8||8]");
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
    std::string a =
        tmp.Write("a.pdd", "*PDD-Lindgate:\n*Include: \"missing.pdd\"\n"
                           "*Include: \"notpdd.pdd\"\n*Include: \"" +
                               abs + "\"\n*Include:\n*Include: \"  \"\n*InputSlot A: 1\n");
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
