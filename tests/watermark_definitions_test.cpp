// Watermark definitions from QMWMARK.INI, and finding the font file of a face.
#include "platform/fonts.h"
#include "tests/watermark/harness.h"

#include <gtest/gtest.h>

#include <algorithm>

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

TEST_F(DefinitionsTest, NumbersCountValidLinesOnly) {
    Ini({"1,2,3,0,50,0,450,700,1,100,Arial,First",
         "1,2,3,0,50,0,450,700,1,100,Second", // eleven tokens
         "1,2,3,0,50,0,450,700,1,100,Arial,Third",
         "1,2,,0,50,0,450,700,1,100,Arial,Fourth", // a run of commas is one separator
         "1,2,,0,50,0,450,700,1,100,Arial,Fifth,Sixth",
         ",,1,2,3,0,50,0,450,700,1,100,Arial,Seventh,and more"});
    EXPECT_EQ(Select(0), "-");
    EXPECT_EQ(Select(1), "First");
    EXPECT_EQ(Select(2), "Third");
    EXPECT_EQ(Select(3), "Sixth"); // the tokens moved forward: "Fifth" became the face
    EXPECT_EQ(Select(4), "Seventh");
    EXPECT_EQ(Select(5), "-");
}

TEST_F(DefinitionsTest, FieldsAndColour) {
    Ini({"11,-12,13,120,50,0,-450,600,257,72,DejaVu Sans,CONFIDENTIAL"});
    dm.wWaterMark = 1;
    WMINFO w{};
    ASSERT_EQ(GetWaterMarkInfo(&dm, &w), 1);
    EXPECT_EQ(w.nField1, 11);
    EXPECT_EQ(w.nField2, -12);
    EXPECT_EQ(w.nField3, 13);
    EXPECT_EQ(w.nHue, 120);
    EXPECT_EQ(w.nAngle, -450);
    EXPECT_EQ(w.nWeight, 600);
    EXPECT_EQ(w.bItalic, 1); // cut to 8 bits
    EXPECT_EQ(w.nHeight, 72);
    EXPECT_EQ(std::u16string(w.szFace), u"DejaVu Sans");
    EXPECT_EQ((std::array{w.nRed, w.nGreen, w.nBlue}), (std::array{0, 255, 0}));
}

TEST_F(DefinitionsTest, FaceAndTextLimits) {
    const std::string face32(32, 'F'), text50(50, 'T');
    Ini({"1,2,3,0,50,0,0,400,0,100," + face32 + ",ok32",
         "1,2,3,0,50,0,0,400,0,100," + face32 + "F,too long face",
         "1,2,3,0,50,0,0,400,0,100,Arial," + text50,
         "1,2,3,0,50,0,0,400,0,100,Arial," + text50 + "T"});
    EXPECT_EQ(Select(1), "ok32");
    EXPECT_EQ(Select(2), text50);
    EXPECT_EQ(Select(3), "-");
}

TEST_F(DefinitionsTest, ManyKeysAreReadWhole) {
    // 400 keys of 10 characters: four times what the first buffer takes.
    std::string text = "[Watermarks]\n";
    for (int i = 1; i <= 400; ++i) {
        char key[16];
        std::snprintf(key, sizeof key, "Key%07d", i);
        text +=
            std::string(key) + "=1,2,3,0,50,0,0,400,0,100,Arial,Line" + std::to_string(i) + "\n";
    }
    dir.Write("QMWMARK.INI", text);
    EXPECT_EQ(Select(400), "Line400");
    EXPECT_EQ(Select(401), "-");
}

TEST_F(DefinitionsTest, NoFileEmptySectionNoMemory) {
    EXPECT_EQ(Select(1), "-"); // no file
    dir.Write("QMWMARK.INI", std::string("[Watermarks]\n"));
    EXPECT_EQ(Select(1), "-");
    Ini({"1,2,3,0,50,0,0,400,0,100,Arial,A", "1,2,3,0,50,0,0,400,0,100,Arial,B"});
    for (long n = 1; n < 8; ++n) {
        q417::mem::FailAllocation(n);
        std::string got = Select(2);
        q417::mem::FailAllocation(0);
        EXPECT_TRUE(got == "B" || got == "-") << n;
        EXPECT_EQ(q417::mem::LiveBlocks(), blocksBefore) << n;
    }
}

TEST_F(DefinitionsTest, WindowsFileNames) {
    MakeWinFileName(u"x");
    const std::u16string root = WinRoot;
    ASSERT_FALSE(root.empty());
    EXPECT_EQ(std::u16string(MakeWinFileName(u"QMWMARK.INI")), root + u"\\QMWMARK.INI");
    EXPECT_EQ(std::u16string(MakeWinFileName(u"\\a.ini")), root + u"\\a.ini");
    EXPECT_EQ(std::u16string(MakeWinFileName(u"/b.ini")), root + u"/b.ini");
    EXPECT_EQ(MakeWinFileName(nullptr), nullptr);
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

TEST_F(FontLookupTest, MarlettNeedsNoLookup) {
    for (auto face : {u"Marlett", u"MARLETT", u"marlett"})
        for (int weight : {100, 400, 900})
            EXPECT_EQ(Lookup(face, weight, weight == 900), fonts + u"Marlett.ttf");
    EXPECT_EQ(q417::fonts::CallCounts().enumFamilies, 0);
    EXPECT_EQ(q417::fonts::CallCounts().regOpen, 0);
}

TEST_F(FontLookupTest, StyleNameThenFamilyName) {
    using q417::fonts::Face;
    const std::u16string long40(36, u'x');
    q417::fonts::SetFontTable(
        {
            {u"Fam", u"Fam", u"Regular", 400, false, 100, ""},
            {u"Fam", u"Fam Bold", u"Bold", 700, false, 100, ""},
            {u"Fam", u"Fam Light", u"Light", 300, false, 100, ""},
            {u"Fam", u"Fam Bold Italic", u"Bold Italic", 700, true, 100, ""},
            {u"Fam", u"Fam Black", u"Black", 900, false, 100, ""},
        },
        {
            {u"Other (TrueType)", u"other.ttf"},
            {u"fam bold (truetype)", u"fambd.ttf"},               // case doesn't matter
            {u"Fam Light (TrueType)", long40 + u".ttf"},          // 40 characters: too long
            {u"Fam Light (TrueType)", u"faml.ttf"},               // the walk goes on
            {u"Fam Bold Italic (TrueType)", u"/opt/f/fambi.ttf"}, // a full path
            {u"Fam Black (TrueType)", std::u16string(35, u'k') + u".ttf"}, // 39: fits
            {std::u16string(80, u'N'), u"longname.ttf"},                   // name too long: skipped
            {u"Fam (TrueType)", u"fam.ttf"},
        });
    EXPECT_EQ(Lookup(u"Fam", 700, 0), fonts + u"fambd.ttf");
    EXPECT_EQ(Lookup(u"FAM", 700, 0), fonts + u"fambd.ttf");
    EXPECT_EQ(Lookup(u"Fam", 300, 0), fonts + u"faml.ttf");
    EXPECT_EQ(Lookup(u"Fam", 700, 1), u"/opt/f/fambi.ttf");
    EXPECT_EQ(Lookup(u"Fam", 500, 0), fonts + u"fam.ttf"); // no such style: the family
    EXPECT_EQ(Lookup(u"Fam", 400, 1), fonts + u"fam.ttf");
    EXPECT_EQ(Lookup(u"Fam", 400, 0), fonts + u"fam.ttf");
    EXPECT_EQ(Lookup(u"Nope", 400, 0), u"-");
    const std::u16string black = Lookup(u"Fam", 900, 0);
    if (fonts.size() + 39 <= 79) // the full name has room for 79 characters
        EXPECT_EQ(black, fonts + std::u16string(35, u'k') + u".ttf");
    else
        EXPECT_EQ(black, u"-");
}

TEST_F(FontLookupTest, FullStyleNameMissingFromTheRegistry) {
    q417::fonts::SetFontTable({{u"Fam", u"Fam Semibold", u"Semibold", 600, false, 100, ""}},
                              {{u"Fam (TrueType)", u"fam.ttf"}});
    EXPECT_EQ(Lookup(u"Fam", 600, 0), fonts + u"fam.ttf");
    q417::fonts::SetFontTable({}, {{u"Fam Bold (TrueType)", u"fambd.ttf"}});
    EXPECT_EQ(Lookup(u"Fam", 700, 0), u"-");
}

TEST_F(FontLookupTest, PathLimit) {
    q417::fonts::SetFontTable({}, {{u"Fam (TrueType)", std::u16string(39, u'p')},
                                   {u"Abs (TrueType)", u"/" + std::u16string(38, u'a')}});
    // 39 characters of data as a full name fit; under the fonts folder only if the
    // directory is short enough.
    EXPECT_EQ(Lookup(u"Abs", 400, 0), u"/" + std::u16string(38, u'a'));
    const std::u16string p = Lookup(u"Fam", 400, 0);
    EXPECT_EQ(p, fonts.size() + 39 <= 79 ? fonts + std::u16string(39, u'p') : u"-");
}

// Every TrueType family that fontconfig lists can be had by its name, and each of its styles
// by weight and slant.
TEST_F(FontLookupTest, EveryInstalledFamilyAndStyle) {
    q417::fonts::UseFontconfig();
    struct Style {
        std::u16string family;
        int weight;
        bool italic;
    };
    std::vector<Style> styles;
    std::vector<std::u16string> fullNames; // of the styles enumerated, "<name> (TrueType)"
    static std::vector<Style> *sink;
    static std::vector<std::u16string> *sinkNames;
    sink = &styles;
    sinkNames = &fullNames;
    std::vector<std::u16string> families, valueNames;
    // Families as the enumeration gives them: ask for each registry family name.
    for (DWORD i = 0;; ++i) {
        WCHAR name[256];
        DWORD cch = 256, cb = 0;
        HKEY h;
        ASSERT_EQ(RegOpenKeyW(HKEY_LOCAL_MACHINE,
                              u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Fonts", &h),
                  ERROR_SUCCESS);
        LONG rc = RegEnumValueW(h, i, name, &cch, nullptr, nullptr, nullptr, &cb);
        RegCloseKey(h);
        if (rc == ERROR_NO_MORE_ITEMS) break;
        ASSERT_EQ(rc, ERROR_SUCCESS);
        valueNames.push_back(std::u16string(name, cch));
        families.push_back(std::u16string(name, cch - 11)); // less " (TrueType)"
    }
    ASSERT_FALSE(families.empty());
    int tried = 0;
    for (const auto &family : families) {
        if (family.size() > 32) continue; // can't stand in a definition
        styles.clear();
        EnumFontFamiliesW(
            GetDC(0), family.c_str(),
            [](const LOGFONTW *lf, const TEXTMETRICW *, DWORD, LPARAM) {
                sink->push_back({lf->lfFaceName, int(lf->lfWeight), lf->lfItalic != 0});
                sinkNames->push_back(
                    std::u16string(reinterpret_cast<const ENUMLOGFONTW *>(lf)->elfFullName) +
                    u" (TrueType)");
                return 1;
            },
            0);
        if (styles.empty()) continue; // a full name, not a family
        ++tried;
        const std::u16string path = Lookup(family, 400, 0);
        ASSERT_NE(path, u"-") << std::string(family.begin(), family.end());
        for (const Style &s : styles) {
            const std::u16string p = Lookup(family, s.weight, s.italic);
            WCHAR host[1024];
            ASSERT_TRUE(q417::fonts::HostFontFile(p.c_str(), host, 1024))
                << std::string(family.begin(), family.end()) << " " << s.weight;
            std::string h(host, host + lstrlenW(host));
            EXPECT_TRUE(std::filesystem::exists(h)) << h;
        }
    }
    EXPECT_GT(tried, 0);
    // A style is had by its weight and slant only if the registry names its full name; else
    // the lookup falls back on the family's regular file without a sign.
    for (const auto &full : fullNames) {
        if (full.size() > 79) continue; // longer than a value name can be read
        EXPECT_TRUE(std::any_of(valueNames.begin(), valueNames.end(), [&](const std::u16string &v) {
            return v == full;
        })) << std::string(full.begin(), full.end());
    }

    const std::u16string bold = Lookup(u"DejaVu Sans", 700, 0);
    EXPECT_EQ(bold, fonts + u"DejaVuSans-Bold.ttf");
    WCHAR host[1024];
    ASSERT_TRUE(q417::fonts::HostFontFile(bold.c_str(), host, 1024));
    EXPECT_EQ(std::u16string(host), u"/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf");
    EXPECT_EQ(Lookup(u"dejavu sans", 400, 1), fonts + u"DejaVuSans-Oblique.ttf");
}

// The Debian fonts the tests install: each style by weight and slant, the normal width ahead
// of the condensed one, and a weight the family lacks from the family's own entry.
TEST_F(FontLookupTest, InstalledStylesByWeightAndSlant) {
    q417::fonts::UseFontconfig();
    struct Case {
        const char16_t *face;
        int weight, italic;
        const char16_t *file;
    } cases[] = {
        {u"DejaVu Sans", 400, 0, u"DejaVuSans.ttf"},
        {u"DejaVu Sans", 700, 1, u"DejaVuSans-BoldOblique.ttf"},
        {u"DejaVu Sans", 200, 0, u"DejaVuSans-ExtraLight.ttf"},
        {u"DejaVu Sans", 500, 0, u"DejaVuSans.ttf"}, // no such weight: the family's entry
        {u"DejaVu Sans Condensed", 700, 0, u"DejaVuSansCondensed-Bold.ttf"},
        {u"DejaVu Serif", 700, 1, u"DejaVuSerif-BoldItalic.ttf"},
        {u"DejaVu Sans Mono", 400, 1, u"DejaVuSansMono-Oblique.ttf"},
        {u"Liberation Sans", 700, 0, u"LiberationSans-Bold.ttf"},
        {u"Liberation Serif", 400, 1, u"LiberationSerif-Italic.ttf"},
        {u"Liberation Mono", 700, 1, u"LiberationMono-BoldItalic.ttf"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(Lookup(c.face, c.weight, c.italic), fonts + c.file)
            << std::string(c.face, c.face + std::char_traits<char16_t>::length(c.face)) << " "
            << c.weight << " " << c.italic;
}

} // namespace
