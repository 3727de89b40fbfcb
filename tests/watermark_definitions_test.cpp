// Watermark definitions from QMWMARK.INI, and finding the font file of a face.
#include "platform/fonts.h"
#include "tests/watermark/harness.h"

#include <gtest/gtest.h>

namespace {

class DefinitionsTest : public ::testing::Test {
  protected:
    wmtest::TempDir dir;
    DDIDEVMODE dm{};
    long blocksBefore = 0;

    void SetUp() override {
        Q417_SetWindowsDirectory(dir.path.c_str());
        WinRoot[0] = 0; // fetched once a process: the tests change the directory
        blocksBefore = q417::mem::LiveBlocks();
    }
    void TearDown() override { EXPECT_EQ(q417::mem::LiveBlocks(), blocksBefore); }

    void Ini(const std::vector<std::string> &values) {
        std::string text = "[Other]\nW1=9,9,9,9,9,9,9,9,9,9,Other,Other\n[Watermarks]\n";
        for (size_t i = 0; i < values.size(); ++i)
            text += "WM" + std::to_string(i + 1) + "=" + values[i] + "\n";
        dir.Write("QMWMARK.INI", text);
    }
    // The text of definition n, or "-" when there is none.
    std::string Select(int n) {
        dm.wWaterMark = WORD(n);
        WMINFO info{};
        if (!GetWaterMarkInfo(&dm, &info)) return "-";
        return std::string(info.szText, info.szText + lstrlenW(info.szText));
    }
};

// A name joins the Windows directory with one separator, whether or not it brings its own.
TEST_F(DefinitionsTest, WindowsFileNamesHaveOneSeparator) {
    WCHAR root[400];
    const std::u16string dirName(root, GetWindowsDirectoryW(root, 400));
    for (auto [name, joined] : {std::pair{u"QMWMARK.INI", u"\\QMWMARK.INI"},
                                {u"\\fonts\\a.ttf", u"\\fonts\\a.ttf"},
                                {u"/b.ttf", u"/b.ttf"}})
        EXPECT_EQ(std::u16string(MakeWinFileName(name)), dirName + joined);
}

// Numbers count lines of twelve tokens and more, a run of commas being one separator; a face
// of up to 32 characters, a text of up to 50.
TEST_F(DefinitionsTest, NumbersCountValidLinesOnly) {
    const std::string n = "1,2,3,0,50,0,450,700,1,100,", face32(32, 'F'), text50(50, 'T');
    Ini({n + "Arial,First", n + "Second", n + "Arial,Third",
         "1,2,,0,50,0,450,700,1,100,Arial,Fourth", // eleven tokens
         "1,2,,0,50,0,450,700,1,100,Arial,Fifth,Sixth", ",," + n + "Arial,Seventh,and more",
         n + face32 + ",ok32", n + face32 + "F,too long face", n + "Arial," + text50,
         n + "Arial," + text50 + "T"});
    const std::string want[] = {"-", "First", "Third", "Sixth", "Seventh", "ok32", text50, "-"};
    for (int i = 0; i < int(std::size(want)); ++i) EXPECT_EQ(Select(i), want[i]) << i;
}

TEST_F(DefinitionsTest, FieldsAndColour) {
    Ini({"11,-12,13,120,50,0,-450,600,257,72,DejaVu Sans,CONFIDENTIAL"});
    dm.wWaterMark = 1;
    WMINFO w{};
    ASSERT_EQ(GetWaterMarkInfo(&dm, &w), 1);
    // bItalic is cut to 8 bits; hue 120 at full saturation is pure green.
    EXPECT_EQ((std::vector<int>{w.nField1, w.nField2, w.nField3, w.nHue, w.nAngle, w.nWeight,
                                w.bItalic, w.nHeight, w.nRed, w.nGreen, w.nBlue}),
              (std::vector<int>{11, -12, 13, 120, -450, 600, 1, 72, 0, 255, 0}));
    EXPECT_EQ(std::u16string(w.szFace), u"DejaVu Sans");
}

// The file is read afresh for each job: none, an empty section, edits that keep the file's size
// and come within the same tick of the clock, more keys than the first buffer takes (400 of up
// to 5 characters), and each of its 13 allocations failing, which leaves no definition and no
// memory held.
TEST_F(DefinitionsTest, ReadAfreshEachJob) {
    EXPECT_EQ(Select(1), "-");
    dir.Write("QMWMARK.INI", std::string("[Watermarks]\n"));
    EXPECT_EQ(Select(1), "-");
    for (const char *text : {"AAAA", "BBBB", "CCCC", "AAAA"}) {
        Ini({std::string("1,2,3,0,50,0,0,400,0,100,Arial,") + text});
        EXPECT_EQ(Select(1), text);
    }
    std::vector<std::string> values(400, "1,2,3,0,50,0,0,400,0,100,Arial,Line");
    values.back() += "400";
    Ini(values);
    EXPECT_EQ(Select(400), "Line400");
    EXPECT_EQ(Select(401), "-");
    for (long n = 1; n < 16; ++n) {
        q417::mem::FailAllocation(n);
        std::string got = Select(400);
        q417::mem::FailAllocation(0);
        EXPECT_TRUE(got == "Line400" || got == "-") << n;
        EXPECT_EQ(q417::mem::LiveBlocks(), blocksBefore) << n;
    }
}

// ---- The font file of a face ----

class FontLookupTest : public ::testing::Test {
  protected:
    wmtest::TempDir dir;
    std::u16string fonts; // "<Windows directory>\fonts\"

    void SetUp() override {
        Q417_SetWindowsDirectory(dir.path.c_str());
        WCHAR root[400];
        UINT n = GetWindowsDirectoryW(root, 400);
        fonts = std::u16string(root, n) + u"\\fonts\\";
        q417::fonts::ResetCallCounts();
    }
    void TearDown() override { q417::fonts::UseFontconfig(); }

    std::u16string Lookup(const std::u16string &face, int weight, int italic) {
        WCHAR path[80];
        std::fill(std::begin(path), std::end(path), u'#');
        if (!PCLGetWmarkNameFromRegistry(face.c_str(), path, nullptr, weight, BYTE(italic)))
            return path[0] == 0 ? u"-" : u"uncleared";
        return path;
    }
};

TEST_F(FontLookupTest, StyleNameThenFamilyName) {
    q417::fonts::SetFontTable(
        {
            {u"Fam", u"Fam", u"Regular", 400, false, 100, ""},
            {u"Fam", u"Fam Bold", u"Bold", 700, false, 100, ""},
            {u"Fam", u"Fam Light", u"Light", 300, false, 100, ""},
            {u"Fam", u"Fam Bold Italic", u"Bold Italic", 700, true, 100, ""},
            {u"Fam", u"Fam Semibold", u"Semibold", 600, false, 100, ""}, // not registered
        },
        {
            {u"Other (TrueType)", u"other.ttf"},
            {u"fam bold (truetype)", u"fambd.ttf"},                        // case doesn't matter
            {u"Fam Light (TrueType)", std::u16string(36, u'x') + u".ttf"}, // 40: too long
            {u"Fam Light (TrueType)", u"faml.ttf"},                        // the walk goes on
            {u"Fam Bold Italic (TrueType)", u"/opt/f/fambi.ttf"},          // a full path
            {std::u16string(80, u'N'), u"longname.ttf"},                   // name too long: skipped
            {u"Fam (TrueType)", u"fam.ttf"},
            {u"Long (TrueType)", std::u16string(39, u'p')}, // 39: fits
        });
    // Marlett needs no lookup at all.
    for (auto face : {u"Marlett", u"mARLETT"})
        EXPECT_EQ(Lookup(face, 900, 1), fonts + u"Marlett.ttf");
    EXPECT_EQ(q417::fonts::CallCounts().enumFamilies + q417::fonts::CallCounts().regOpen, 0);
    EXPECT_EQ(Lookup(u"Fam", 700, 0), fonts + u"fambd.ttf");
    EXPECT_EQ(Lookup(u"FAM", 700, 0), fonts + u"fambd.ttf");
    EXPECT_EQ(Lookup(u"Fam", 300, 0), fonts + u"faml.ttf");
    EXPECT_EQ(Lookup(u"Fam", 700, 1), u"/opt/f/fambi.ttf");
    EXPECT_EQ(Lookup(u"Fam", 500, 0), fonts + u"fam.ttf"); // no such style: the family
    EXPECT_EQ(Lookup(u"Fam", 600, 0), fonts + u"fam.ttf");
    EXPECT_EQ(Lookup(u"Fam", 400, 1), fonts + u"fam.ttf");
    EXPECT_EQ(Lookup(u"Nope", 400, 0), u"-");
    // Under the fonts folder only if the directory leaves room in 79 characters.
    EXPECT_EQ(Lookup(u"Long", 400, 0),
              fonts.size() + 39 <= 79 ? fonts + std::u16string(39, u'p') : u"-");
    q417::fonts::SetFontTable({}, {{u"Fam Bold (TrueType)", u"fambd.ttf"}});
    EXPECT_EQ(Lookup(u"Fam", 700, 0), u"-"); // a style without its family
}

// The Debian fonts the tests install: a style by weight and slant, the normal width ahead of
// the condensed one.
TEST_F(FontLookupTest, InstalledStylesByWeightAndSlant) {
    q417::fonts::UseFontconfig();
    EXPECT_EQ(Lookup(u"DejaVu Sans", 400, 0), fonts + u"DejaVuSans.ttf");
    EXPECT_EQ(Lookup(u"DejaVu Sans", 700, 1), fonts + u"DejaVuSans-BoldOblique.ttf");
    EXPECT_EQ(Lookup(u"DejaVu Sans Condensed", 700, 0), fonts + u"DejaVuSansCondensed-Bold.ttf");
    EXPECT_EQ(Lookup(u"Liberation Serif", 400, 1), fonts + u"LiberationSerif-Italic.ttf");
}

} // namespace
