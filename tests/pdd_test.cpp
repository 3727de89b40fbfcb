// The description parser. Key by key: lines of a description and what they leave in the
// record (tests/data/pdd/keywords.txt). Then the line reader (every kind of line end, the 512-byte
// block boundary, cut lines, 0 bytes, the switch to a second file and back), the sample
// description whole, the results of a parse, and "Include:" lines.
#include "pdd_testutil.h"

namespace {

using namespace pddtest;

// The cases of tests/data/pdd/keywords.txt, then those whose bytes a text file keeps badly.
TEST(PddKeywords, LinesAndTheirEffects) {
    std::ifstream in(std::string(Q417_TEST_DATA) + "/pdd/keywords.txt");
    std::string line, lines;
    int cases = 0;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        if (line.compare(0, 2, "=>") != 0) {
            lines += (lines.empty() ? "" : "\n") + line;
            continue;
        }
        EXPECT_EQ(ParseLines(lines), line.substr(std::min<size_t>(3, line.size()))) << lines;
        lines.clear(), ++cases;
    }
    EXPECT_EQ(cases, 108) << "the whole file was read";
    const std::string P40(40, 'P');
    const struct {
        std::string lines, effect;
    } rows[] = {
        {"*\tProduct: \"X\"", "product=X"}, // blanks and tabs before the key
        {"*  Product:\t\"X\"", "product=X"},
        {"*   ", " !"},                    // no key token
        {"*Product:  \"X\"", "product= "}, // Q: the second blank is the value
        // 128 bytes count, the byte behind them is lost, the rest is a line of its own.
        {"*Product: \"" + std::string(117, 'P') + "\"*FileVersion: \"2\"",
         "product=" + P40 + " version=2 !"},
        {"*Product: \"" + std::string(114, 'P') + "\"\r\n*FileVersion: \"2\"",
         "product=" + P40 + " version=2"},
        {std::string("*Product: \"A\0B\"", 15) + "\n*FileVersion: \"2\"", "product=A version=2"},
        {"*Product: \"\xE9t\xE9\"", "product=\xE9t\xE9"},
    };
    for (const auto &r : rows) EXPECT_EQ(ParseLines(r.lines), r.effect) << Escape(r.lines);
}

// ---- Helpers ------------------------------------------------------------------------------

// tests/data/pdd/values.txt: "<size> <whole number> <text>", the text to the end of the line.
TEST(PddValues, SizesAndWholeNumbers) {
    std::ifstream in(std::string(Q417_TEST_DATA) + "/pdd/values.txt");
    int32_t size, whole, rows = 0;
    for (std::string text; in >> size >> whole && std::getline(in.ignore(1), text); ++rows) {
        EXPECT_EQ(PDDSize(text.c_str()), size) << text;
        EXPECT_EQ(PDDAtoi(text.c_str()), whole) << text;
    }
    EXPECT_EQ(rows, 31) << "the whole file was read";
}

// The parser finds keys and languages by binary search: both tables must stay sorted.
TEST(PddEntries, KeyAndLanguageTablesStaySorted) {
    for (int i = 1; i < PDD_NKEYS; ++i)
        EXPECT_LT(std::strcmp(PDDKeyTable[i - 1].pszKey, PDDKeyTable[i].pszKey), 0) << i;
    for (int i = 1; i < PDD_NLANGS; ++i)
        EXPECT_LT(PDDStrICmp(LangTable[i - 1].pszName, LangTable[i].pszName), 0) << i;
}

// ---- Line reader ------------------------------------------------------------------------------

struct OpenedFile {
    HANDLE h;
    explicit OpenedFile(const std::string &path, DWORD access = GENERIC_READ)
        : h(CreateFileW(Wide(path).c_str(), access, 0, nullptr, OPEN_EXISTING, 0, 0)) {}
    ~OpenedFile() { CloseHandle(h); }
    HFILE fh() const { return static_cast<HFILE>(h); }
};

// One delivery: the result and the bytes stored, up to the first byte left untouched.
std::string Deliver(int cchMax, HFILE fh) {
    std::string buf(200, '\xAA');
    int n = _lgets(buf.data(), cchMax, fh);
    return std::to_string(n) + ":" + Escape(buf.substr(0, buf.find('\xAA')));
}

// All deliveries up to the first 0.
std::vector<std::string> DeliverAll(HFILE fh, int cchMax = PDD_MAXLINE) {
    std::vector<std::string> out;
    for (int i = 0; i < 1000 && (out.empty() || out.back().compare(0, 2, "0:") != 0); ++i)
        out.push_back(Deliver(cchMax, fh));
    _end_lgets();
    return out;
}

std::vector<std::string> ReadLines(const std::string &bytes, int cchMax = PDD_MAXLINE) {
    TempDir tmp;
    return DeliverAll(OpenedFile(tmp.Write("r.txt", bytes)).fh(), cchMax);
}

TEST(PddLineReader, LineEndsCutLinesAndZeroBytes) {
    const std::string ab = "3:A\\r\\n\\0", b = "3:B\\r\\n\\0", empty = "2:\\r\\n\\0";
    const std::string AB = "4:AB\\r\\n\\0", XY = "4:XY\\r\\n\\0";
    const struct {
        const char *what;
        std::string bytes;
        int cchMax;
        std::vector<std::string> expected; // "result:stored bytes"; the last is the end
    } cases[] = {
        {"LF LF", "A\n\nB\n", 128, {ab, empty, b, "0:"}},
        {"CR CR", "A\r\rB\r", 128, {ab, empty, b, "0:"}},
        {"CR LF CR LF", "A\r\n\r\nB\r\n", 128, {ab, empty, b, "0:"}},
        {"LF LF LF", "A\n\n\nB\n", 128, {ab, empty, empty, b, "0:"}},
        {"a leading LF is dropped", "\nA\n", 128, {ab, "0:"}},
        {"a leading CR LF is an empty line", "\r\nA\r\n", 128, {empty, ab, "0:"}},
        {"last line without line end", "AB\nCDE", 128, {AB, "2:CDE", "0:"}},
        {"last line of one byte reads as the end", "AB\nC", 128, {AB, "0:C"}},
        {"0 byte inside a line", std::string("AB\0CD\n", 6), 128, {"1:AB", "4:CD\\r\\n\\0", "0:"}},
        {"0 byte heading a line: the end", std::string("AB\n\0CD\n", 7), 128, {AB, "0:"}},
        {"empty file", "", 128, {"0:"}},
        {"cut: the byte behind is lost", "ABCDEFG\n", 4, {"4:ABCD", "4:FG\\r\\n\\0", "0:"}},
        // cchMax with CR LF: the CR is lost, the LF dropped; one more: an empty line too.
        {"exactly cchMax", "XY\r\nABCD\r\nEF\r\n", 4, {XY, "4:ABCD", "4:EF\\r\\n\\0", "0:"}},
        {"cchMax + 1", "XY\r\nABCDE\r\nFG\r\n", 4, {XY, "4:ABCD", empty, "4:FG\\r\\n\\0", "0:"}},
        {"cut twice", "ABCDEFGHIJ\n", 3, {"3:ABC", "3:EFG", "4:IJ\\r\\n\\0", "0:"}},
    };
    for (const auto &c : cases) EXPECT_EQ(ReadLines(c.bytes, c.cchMax), c.expected) << c.what;
}

// A line, and each kind of line end behind it, at every position across the end of the first
// block.
TEST(PddLineReader, LinesAcrossTheBlockBoundaryArriveWhole) {
    for (std::string eol : {"\r\n", "\n", "\r", "\n\r"}) {
        for (size_t prefix = 500; prefix <= 513; ++prefix) {
            std::string bytes;
            std::vector<std::string> expected;
            auto line = [&](const std::string &text) {
                bytes += text + eol;
                expected.push_back(std::to_string(text.size() + 2) + ":" + text + "\\r\\n\\0");
            };
            // Filler lines of 100 bytes, then one shorter line to reach the prefix.
            while (bytes.size() + 102 + eol.size() < prefix) line(std::string(100, 'x'));
            line(std::string(prefix - bytes.size() - eol.size(), 'y'));
            line("HELLO");
            line("WORLD");
            expected.push_back("0:");
            EXPECT_EQ(ReadLines(bytes), expected) << Escape(eol) << ", HELLO at byte " << prefix;
        }
    }
}

// A read that fails (a handle open for writing only) ends the file; its error is no count of
// bytes, so the block of the file read before is not delivered again.
TEST(PddLineReader, AFailedReadEndsTheFile) {
    TempDir tmp;
    ReadLines("*Product: \"X\"\n"); // leaves the line in the reader's block
    OpenedFile w(tmp.Write("w.txt", "*Product: \"X\"\n"), GENERIC_WRITE);
    ASSERT_NE(w.h, INVALID_HANDLE_VALUE);
    EXPECT_EQ(DeliverAll(w.fh()), std::vector<std::string>{"0:"});
}

// The parser reads a second file in the middle of the first and comes back to it: the first
// file's pointer moves back over what its block still held.
TEST(PddLineReader, SwitchToAnotherFileAndBack) {
    struct Case {
        const char *eol;
        std::vector<std::string> after; // the first deliveries of the outer file after the switch
    } cases[] = {
        {"\r\n", {"2:\\r\\n\\0", "4:A2\\r\\n\\0", "4:A3\\r\\n\\0"}},
        {"\n", {"4:A2\\r\\n\\0", "4:A3\\r\\n\\0"}},
        {"\r", {"4:A2\\r\\n\\0", "4:A3\\r\\n\\0"}},
    };
    for (const Case &c : cases) {
        TempDir tmp;
        // The outer file is larger than a block, so the switch has to move its pointer back.
        std::string outer = std::string("A1") + c.eol + "A2" + c.eol + "A3" + c.eol;
        std::vector<std::string> rest = c.after;
        for (int i = 10; i < 100; ++i) {
            outer += "filler" + std::to_string(i) + c.eol;
            rest.push_back("10:filler" + std::to_string(i) + "\\r\\n\\0");
        }
        rest.push_back("0:");
        OpenedFile a(tmp.Write("a.txt", outer));
        EXPECT_EQ(Deliver(128, a.fh()), "4:A1\\r\\n\\0");
        EXPECT_EQ(DeliverAll(OpenedFile(tmp.Write("b.txt", "B1\r\nB2")).fh(), 128),
                  (std::vector<std::string>{"4:B1\\r\\n\\0", "1:B2", "0:"}));
        EXPECT_EQ(DeliverAll(a.fh(), 128), rest) << Escape(c.eol);
    }
}

// ---- Whole files ------------------------------------------------------------------------------

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
    auto crlf = ReadAll(kSample);
    std::string lf, cr, lfcr;
    for (char c : crlf) {
        if (c == '\r') continue;
        lf += c, cr += c == '\n' ? '\r' : c,
            lfcr += c == '\n' ? std::string("\n\r") : std::string(1, c);
    }
    TempDir tmp;
    for (const std::string &bytes :
         {std::string(crlf.begin(), crlf.end()), lf, cr, lfcr, lf.substr(0, lf.size() - 1)}) {
        Parsed r(tmp.Write("s.pdd", bytes));
        ASSERT_EQ(r.result, PDD_OK);
        EXPECT_EQ(Summary(*r.p), want) << Escape(bytes.substr(0, 40));
        EXPECT_EQ(r.p->hSelf, r.h);
        EXPECT_EQ(r.p->dwLineNumber, 38u);
        EXPECT_EQ(r.p->pszFileName, r.name.c_str()) << "the caller's name, not a copy";
        for (const PDDTEXT *t : {&r.p->Product, &r.p->PlugIn, &r.p->PortraitCmd})
            for (size_t i = size_t(t->nLen); i < sizeof t->achText; ++i)
                ASSERT_EQ(t->achText[i], 0) << Text(*t) << ": byte " << i << " behind the text";
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
    q417::mem::FailAllocation(3); // the record, A, then B
    Parsed m(
        tmp.Write("m.pdd", "*PDD-Lindgate:\n*PageSize A: 1\n*PageSize B: 2\n*PageSize C: 3\n"));
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
