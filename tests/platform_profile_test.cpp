// GetPrivateProfileStringW as the watermark reader drives it.
#include "platform/hostenv.h"
#include "tests/watermark/harness.h"

#include <gtest/gtest.h>

namespace {

constexpr WCHAR kPoison = 0xCDCD;

// One INI text, stored in each of the encodings the reader takes.
const std::u16string kIni = u"; a comment before any section\r\n"
                            u"stray=ignored\r\n"
                            u"[Other]\r\n"
                            u"First=not this one\r\n"
                            u"[ Watermarks ]\r\n"
                            u"  First = 1,2,3,0,0,0,450,700,0,72,Arial,DRAFT  \r\n"
                            u"Second=\"  quoted value  \"\r\n"
                            u"third='single'\r\n"
                            u"; skipped\r\n"
                            u"NoEquals\r\n"
                            u"Empty=\r\n"
                            u"Caf\u00E9 = Entw\u00FCrfe\n" // a bare LF ends a line too
                            u"Half=\"open\r\n"
                            u"first=duplicate, the earlier one wins\r\n"
                            u"\r\n"
                            u"[watermarks]\r\n"
                            u"Later=a second section of the same name is not read\r\n";

// Keys of the section in file order, each terminated, and the closing empty string.
const std::u16string kKeys = std::u16string(u"First\0Second\0third\0NoEquals\0Empty\0"
                                            u"Caf\u00E9\0Half\0first\0\0",
                                            51);

struct Profile : ::testing::TestWithParam<const char *> {
    wmtest::TempDir dir;
    std::u16string file = q417::text::Utf8ToUtf16(dir.path.string()) + u"\\QMWMARK.INI";
    void SetUp() override {
        ASSERT_TRUE(Q417_SetAnsiCodePage("WINDOWS-1252"));
        const std::string enc = GetParam();
        std::string bytes = enc == "utf8"    ? "\xEF\xBB\xBF" + q417::text::Utf16ToUtf8(kIni)
                            : enc == "utf16" ? "\xFF\xFE"
                                             : "";
        for (char16_t c : kIni) {
            if (enc == "utf16")
                bytes += {char(c & 0xFF), char(c >> 8)};
            else if (enc == "ansi")
                bytes += char(c); // all of it is Latin-1
        }
        dir.Write("QMWMARK.INI", bytes);
    }
    DWORD get(LPCWSTR app, LPCWSTR key, LPCWSTR def, std::vector<WCHAR> &buf, DWORD n) {
        buf.assign(n + 8, kPoison);
        DWORD r = GetPrivateProfileStringW(app, key, def, buf.data(), n, file.c_str());
        for (size_t i = n; i < buf.size(); ++i) EXPECT_EQ(buf[i], kPoison) << "char " << i;
        return r;
    }
};

TEST_P(Profile, ValuesAreTrimmedAndUnquoted) {
    struct Case {
        const char16_t *key;
        std::u16string value;
    } cases[] = {
        {u"first", u"1,2,3,0,0,0,450,700,0,72,Arial,DRAFT"}, // key case ignored, blanks gone
        {u"Second", u"  quoted value  "},                    // quotes off, blanks inside kept
        {u"third", u"single"},
        {u"Empty", u""}, // present but empty: not the default
        {u"Caf\u00C9", u"Entw\u00FCrfe"},
        {u"Half", u"\"open"},   // one quote alone stays
        {u"NoEquals", u"dflt"}, // a line without '=' has no value
        {u"Missing", u"dflt"},
        {u"Later", u"dflt"},
    };
    std::vector<WCHAR> buf;
    for (auto &c : cases) {
        DWORD r = get(u"WATERMARKS", c.key, u"dflt  ", buf, 400);
        EXPECT_EQ(std::u16string(buf.data()), c.value)
            << std::string(c.key, c.key + lstrlenW(c.key));
        EXPECT_EQ(r, c.value.size());
    }
    EXPECT_EQ(get(u"NoSuchSection", u"First", nullptr, buf, 10), 0u);
    EXPECT_EQ(buf[0], 0);
}

TEST_P(Profile, ShortValueBufferCutsAtSizeMinusOne) {
    const std::u16string v = u"1,2,3,0,0,0,450,700,0,72,Arial,DRAFT";
    const DWORD len = DWORD(v.size());
    std::vector<WCHAR> buf;
    for (DWORD n : {len + 1, len, 2u, 1u}) {
        SCOPED_TRACE(n);
        DWORD r = get(u"Watermarks", u"First", u"", buf, n);
        DWORD want = n > len ? len : n - 1;
        EXPECT_EQ(r, want);
        EXPECT_EQ(std::u16string(buf.data()), v.substr(0, want));
    }
    EXPECT_EQ(get(u"Watermarks", u"Missing", u"default", buf, 4), 3u);
    EXPECT_EQ(std::u16string(buf.data()), u"def");
}

TEST_P(Profile, KeyListAndItsShortBufferSignal) {
    const DWORD total = DWORD(kKeys.size()); // with both terminators of the end
    std::vector<WCHAR> buf;
    for (DWORD n : {total + 1, total, total - 1, total - 2, 9u, 3u, 2u}) {
        SCOPED_TRACE(n);
        const DWORD got = std::min(n, total);
        EXPECT_EQ(get(u"watermarks", nullptr, u"", buf, n), n >= total ? total - 1 : n - 2)
            << "n - 2 signals a cut list";
        EXPECT_EQ(std::u16string(buf.data(), got), kKeys.substr(0, got - 2) + std::u16string(2, 0));
    }

    EXPECT_EQ(get(u"Empty section", nullptr, u"", buf, 10), 0u);
    EXPECT_EQ(buf[0], 0);
    EXPECT_EQ(buf[1], 0);
}

INSTANTIATE_TEST_SUITE_P(Encodings, Profile, ::testing::Values("ansi", "utf16", "utf8"));

TEST(ProfileFile, MissingFileGivesTheDefaultAndBareNamesLiveInTheWindowsDirectory) {
    WCHAR buf[16];
    EXPECT_EQ(GetPrivateProfileStringW(u"Watermarks", u"k", u"none", buf, 16, u"/no/such.ini"), 4u);
    EXPECT_EQ(std::u16string(buf), u"none");
    buf[1] = kPoison;
    EXPECT_EQ(GetPrivateProfileStringW(u"Watermarks", nullptr, u"", buf, 16, u"/no/such.ini"), 0u);
    EXPECT_EQ(buf[0], 0);
    wmtest::TempDir dir;
    dir.Write("BARE.INI", std::string("[s]\nk=v\n"));
    ASSERT_TRUE(Q417_SetWindowsDirectory(dir.path.c_str()));
    EXPECT_EQ(GetPrivateProfileStringW(u"s", u"k", u"", buf, 16, u"BARE.INI"), 1u);
    EXPECT_EQ(std::u16string(buf), u"v");
    EXPECT_EQ(GetPrivateProfileStringW(u"s", u"k", u"", buf, 0, u"BARE.INI"), 0u);
    Q417_SetWindowsDirectory(nullptr);
    const std::u16string d = q417::text::Utf8ToUtf16(dir.path.string());
    EXPECT_EQ(GetPrivateProfileStringW(u"s", u"k", u"x", buf, 16, d.c_str()), 1u)
        << "a directory reads as no file";
}

} // namespace
