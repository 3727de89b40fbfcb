// Line reader: every kind of line end, the 512-byte block boundary, cut lines, 0 bytes, and the
// switch to a second file and back.
#include "pdd_testutil.h"

namespace {

using pddtest::Escape;
using pddtest::TempDir;
using pddtest::Wide;

struct OpenedFile {
    HANDLE h;
    explicit OpenedFile(const std::string &path) {
        std::u16string w = Wide(path);
        h = CreateFileW(w.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                        FILE_ATTRIBUTE_NORMAL, 0);
    }
    ~OpenedFile() { CloseHandle(h); }
    HFILE fh() const { return static_cast<HFILE>(h); }
};

// One delivery: the result and the bytes stored, up to the first byte left untouched.
std::string Deliver(int cchMax, HFILE fh) {
    char buf[200];
    std::memset(buf, 0xAA, sizeof buf);
    int n = _lgets(buf, cchMax, fh);
    size_t stored = 0;
    while (stored < sizeof buf && static_cast<unsigned char>(buf[stored]) != 0xAA) ++stored;
    return std::to_string(n) + ":" + Escape(std::string(buf, stored));
}

// All deliveries up to the first 0.
std::vector<std::string> ReadLines(const std::string &bytes, int cchMax = PDD_MAXLINE) {
    TempDir tmp;
    OpenedFile f(tmp.Write("r.txt", bytes));
    std::vector<std::string> out;
    for (int i = 0; i < 1000; ++i) {
        std::string d = Deliver(cchMax, f.fh());
        out.push_back(d);
        if (d[0] == '0' && d[1] == ':') break;
    }
    _end_lgets();
    return out;
}

TEST(PddLineReader, LineEndsCutLinesAndZeroBytes) {
    const std::string ab = "3:A\\r\\n\\0", b = "3:B\\r\\n\\0", empty = "2:\\r\\n\\0";
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
        {"last line without line end", "AB\nCDE", 128, {"4:AB\\r\\n\\0", "2:CDE", "0:"}},
        {"last line of one byte reads as the end", "AB\nC", 128, {"4:AB\\r\\n\\0", "0:C"}},
        {"0 byte inside a line", std::string("AB\0CD\n", 6), 128, {"1:AB", "4:CD\\r\\n\\0", "0:"}},
        {"0 byte at the head of a line ends the reading",
         std::string("AB\n\0CD\n", 7),
         128,
         {"4:AB\\r\\n\\0", "0:"}},
        {"empty file", "", 128, {"0:"}},
        {"overlong: the byte behind the cut is lost",
         "ABCDEFG\n",
         4,
         {"4:ABCD", "4:FG\\r\\n\\0", "0:"}},
        {"exactly cchMax with CR LF: the CR is lost, the LF dropped",
         "XY\r\nABCD\r\nEF\r\n",
         4,
         {"4:XY\\r\\n\\0", "4:ABCD", "4:EF\\r\\n\\0", "0:"}},
        {"cchMax + 1 with CR LF: text, an empty line, the next line",
         "XY\r\nABCDE\r\nFG\r\n",
         4,
         {"4:XY\\r\\n\\0", "4:ABCD", empty, "4:FG\\r\\n\\0", "0:"}},
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
    const std::string path = tmp.Write("w.txt", "*Product: \"X\"\n");
    ReadLines("*Product: \"X\"\n"); // leaves the line in the reader's block
    const std::u16string w = Wide(path);
    HANDLE h = CreateFileW(w.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, 0);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    EXPECT_EQ(Deliver(PDD_MAXLINE, static_cast<HFILE>(h)), "0:");
    _end_lgets();
    CloseHandle(h);
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
        for (int i = 0; i < 100; ++i) outer += "filler" + std::to_string(i) + c.eol;
        OpenedFile a(tmp.Write("a.txt", outer));
        EXPECT_EQ(Deliver(128, a.fh()), "4:A1\\r\\n\\0");
        {
            OpenedFile b(tmp.Write("b.txt", "B1\r\nB2"));
            EXPECT_EQ(Deliver(128, b.fh()), "4:B1\\r\\n\\0");
            EXPECT_EQ(Deliver(128, b.fh()), "1:B2");
            EXPECT_EQ(Deliver(128, b.fh()), "0:");
            _end_lgets();
        }
        std::vector<std::string> got;
        int nLines = 0;
        for (;;) {
            std::string d = Deliver(128, a.fh());
            if (d == "0:") break;
            if (got.size() < c.after.size()) got.push_back(d);
            ++nLines;
        }
        EXPECT_EQ(got, c.after) << Escape(c.eol);
        EXPECT_EQ(nLines, static_cast<int>(c.after.size()) + 100) << Escape(c.eol);
        _end_lgets();
    }
}

} // namespace
