// Code page conversions, the wide string helpers, and GetPrivateProfileStringW as the
// watermark reader drives it.
#include "platform/hostenv.h"
#include "q417/host.h"
#include "tests/pdd_testutil.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace std::string_literals;

constexpr WCHAR kPoisonW = 0xCDCD;
constexpr char kPoisonA = '\xCD';

struct AnsiCodePage : ::testing::Test {
    void TearDown() override { ASSERT_TRUE(Q417_SetAnsiCodePage("WINDOWS-1252")); }
};

TEST_F(AnsiCodePage, All256BytesOf1252RoundTripAndOtherCodePages) {
    char bytes[256];
    for (int i = 0; i < 256; ++i) bytes[i] = static_cast<char>(i);
    WCHAR wide[256];
    ASSERT_EQ(MultiByteToWideChar(CP_ACP, 0, bytes, 256, wide, 256), 256);
    // Samples: the euro, the five bytes 1252 leaves undefined, and the Latin-1 half.
    const std::pair<int, WCHAR> samples[] = {
        {0x00, 0x0000}, {0x41, u'A'},   {0x80, 0x20AC}, {0x81, 0x0081}, {0x8A, 0x0160},
        {0x8D, 0x008D}, {0x8F, 0x008F}, {0x90, 0x0090}, {0x9D, 0x009D}, {0x9F, 0x0178},
        {0xA0, 0x00A0}, {0xE9, 0x00E9}, {0xFF, 0x00FF},
    };
    for (auto [b, w] : samples) EXPECT_EQ(wide[b], w) << "byte " << b;
    char back[256];
    BOOL used = TRUE;
    ASSERT_EQ(WideCharToMultiByte(CP_ACP, 0, wide, 256, back, 256, nullptr, &used), 256);
    EXPECT_FALSE(used);
    EXPECT_EQ(std::memcmp(bytes, back, 256), 0);
    ASSERT_TRUE(Q417_SetAnsiCodePage("CP1250"));
    ASSERT_EQ(MultiByteToWideChar(CP_ACP, 0, "\xA5", 1, wide, 1), 1);
    EXPECT_EQ(wide[0], 0x0104); // A with ogonek in 1250, the yen sign in 1252
    EXPECT_FALSE(Q417_SetAnsiCodePage("NO-SUCH-CODEPAGE"));
    EXPECT_EQ(q417::text::AnsiCodePage(), "CP1250") << "a refused name keeps the old one";
}

TEST_F(AnsiCodePage, UnmappableWideCharsBecomeTheDefault) {
    struct Case {
        std::u16string in;
        std::string out;
        bool used;
    } cases[] = {
        {u"\u0100x", "?x", true},             // A with macron: not in 1252
        {u"\u4E2D", "?", true},               // a CJK ideograph
        {u"a\U0001D11Eb", "a?b", true},       // a surrogate pair is one character
        {u"\xDC00z", "?z", true},             // a lone low surrogate
        {u"\u20AC\u0081", "\x80\x81", false}, // the euro, and an undefined byte's way back
    };
    for (auto &c : cases) {
        char out[16];
        BOOL used = -1;
        int n = WideCharToMultiByte(CP_ACP, 0, c.in.data(), int(c.in.size()), out, sizeof out,
                                    nullptr, &used);
        ASSERT_EQ(n, int(c.out.size())) << c.out;
        EXPECT_EQ(std::string(out, n), c.out);
        EXPECT_EQ(used, c.used ? TRUE : FALSE) << c.out;
    }
    char out[4];
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, u"\u0100", 1, out, 4, "*", nullptr), 1);
    EXPECT_EQ(out[0], '*') << "the caller's default character";
}

// The Win32 size protocol of both directions: a size query, an exact fit, one short.
TEST_F(AnsiCodePage, SizeProtocolOfBothDirections) {
    const char *narrow = "Caf\xE9 cr\xE8me";        // 10 bytes, 1252
    const char16_t *wide = u"Caf\u00E9 cr\u00E8me"; // 10 characters
    for (int cb : {-1, 10, 4}) {
        const int need = cb == -1 ? 11 : cb; // -1 counts the terminator
        SCOPED_TRACE(cb);
        EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, narrow, cb, nullptr, 0), need);
        EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, wide, cb, nullptr, 0, nullptr, nullptr), need);
        for (int cap : {need, need - 1}) {
            std::u16string w(cap + 1, kPoisonW);
            std::string a(cap + 1, kPoisonA);
            SetLastError(0);
            const int n = MultiByteToWideChar(CP_ACP, 0, narrow, cb, w.data(), cap);
            const int m = WideCharToMultiByte(CP_ACP, 0, wide, cb, a.data(), cap, nullptr, nullptr);
            EXPECT_EQ(n, cap == need ? need : 0);
            EXPECT_EQ(m, cap == need ? need : 0);
            EXPECT_TRUE(cap == need || GetLastError() == ERROR_INSUFFICIENT_BUFFER);
            // Nothing past the buffer is written.
            EXPECT_EQ(w.substr(0, n) + w[cap], std::u16string(wide, n) + char16_t(kPoisonW));
            EXPECT_EQ(a.substr(0, m) + a[cap], std::string(narrow, m) + kPoisonA);
        }
    }
}

// Bad sequences each become one replacement character.
TEST(Utf8, RoundTripAndBadSequences) {
    struct Case {
        const char *in;
        std::u16string out;
    } cases[] = {
        {"Gr\xC3\xBC\xC3\x9F"
         "e \xE2\x82\xAC \xF0\x9D\x84\x9E",
         u"Grüße € \U0001D11E"},
        {"a\x80z", u"a\uFFFDz"},         // a lone continuation byte
        {"\xC0\xAF", u"\uFFFD\uFFFD"},   // overlong slash
        {"\xED\xA0\x80!", u"\uFFFD!"},   // an encoded surrogate
        {"\xE2\x82", u"\uFFFD"},         // cut at the end
        {"\xF4\x90\x80\x80", u"\uFFFD"}, // above U+10FFFF
    };
    for (auto &c : cases) EXPECT_EQ(q417::text::Utf8ToUtf16(c.in), c.out) << c.in;
    EXPECT_EQ(q417::text::Utf16ToUtf8(cases[0].out), cases[0].in);
    EXPECT_EQ(q417::text::Utf16ToUtf8(u"\xD800x"), "\xEF\xBF\xBDx");
}

TEST(Wtoi, LeadingBlanksSignDigitsAndSaturation) {
    const std::pair<const char16_t *, int> cases[] = {
        {u"42", 42},
        {u"  \t-17", -17},
        {u"+5", 5},
        {u"12abc", 12},
        {u"abc", 0},
        {u"", 0},
        {u"- 3", 0},
        {u"2147483647", INT_MAX},
        {u"-2147483648", INT_MIN},
        {u"99999999999999999999", INT_MAX},
        {u"-99999999999999999999", INT_MIN},
        {u"0045", 45},
    };
    for (auto [s, v] : cases) EXPECT_EQ(_wtoi(s), v) << std::string(s, s + lstrlenW(s));
    EXPECT_EQ(_wtoi(nullptr), 0);
}

TEST(WideStrings, CompareWithoutCaseCopyAndConcatenate) {
    struct Cmp {
        const char16_t *a, *b;
        int nocase;
    } cmps[] = {
        {u"abc", u"ABC", 0},
        {u"\u00C4rger \u0152", u"\u00E4RGER \u0153", 0}, // Latin-1 and Latin Extended-A
        {u"\u0416", u"\u0436", 0},                       // Cyrillic
        {u"ab", u"abc", -1},
        {u"b", u"A", 1},
    };
    for (auto &c : cmps) {
        EXPECT_EQ(lstrcmpiW(c.a, c.b), c.nocase);
        int r = _wcsicmp(c.a, c.b);
        EXPECT_EQ((r > 0) - (r < 0), c.nocase);
    }
    EXPECT_LT(lstrcmpiW(nullptr, u""), 0);

    WCHAR buf[8];
    std::fill(std::begin(buf), std::end(buf), kPoisonW);
    lstrcpynW(buf, u"abcdefgh", 5);
    EXPECT_EQ(std::u16string(buf), u"abcd");
    EXPECT_EQ(buf[5], kPoisonW);
    lstrcpyW(buf, u"ab");
    lstrcatW(buf, u"cde");
    EXPECT_EQ(std::u16string(buf), u"abcde");
    EXPECT_EQ(lstrlenW(buf), 5);
    EXPECT_EQ(buf[6], kPoisonW);
}

// Keys of the section in file order, each terminated, and the closing empty string.
const std::u16string kKeys =
    u"First\0Second\0third\0NoEquals\0Empty\0Zero\0Caf\u00E9\0Half\0first\0\0"s;

// tests/data/platform/profile.ini, stored in each of the encodings the reader takes.
struct Profile : ::testing::TestWithParam<const char *> {
    pddtest::TempDir dir;
    std::u16string file = q417::text::Utf8ToUtf16(dir.dir.string()) + u"\\QMWMARK.INI";
    void SetUp() override {
        ASSERT_TRUE(Q417_SetAnsiCodePage("WINDOWS-1252"));
        const std::string enc = GetParam();
        const auto raw = pddtest::ReadAll(std::string(Q417_TEST_DATA) + "/platform/profile.ini");
        const std::string utf8(raw.begin(), raw.end());
        std::string bytes = enc == "utf8"    ? "\xEF\xBB\xBF" + utf8
                            : enc == "utf16" ? "\xFF\xFE"
                                             : "";
        for (char16_t c : enc == "utf8" ? u"" : q417::text::Utf8ToUtf16(utf8)) // ANSI: Latin-1
            bytes += enc == "ansi" ? std::string(1, char(c)) : std::string{char(c), char(c >> 8)};
        dir.Write("QMWMARK.INI", bytes);
    }
    DWORD get(LPCWSTR app, LPCWSTR key, LPCWSTR def, std::vector<WCHAR> &buf, DWORD n) {
        buf.assign(n + 8, kPoisonW);
        DWORD r = GetPrivateProfileStringW(app, key, def, buf.data(), n, file.c_str());
        for (size_t i = n; i < buf.size(); ++i) EXPECT_EQ(buf[i], kPoisonW) << "char " << i;
        return r;
    }
};

TEST_P(Profile, ValuesAreTrimmedUnquotedAndCut) {
    struct Case {
        const char16_t *key;
        std::u16string value;
    } cases[] = {
        {u"first", u"1,2,3,0,0,0,450,700,0,72,Arial,DRAFT"}, // key case ignored, blanks gone
        {u"Second", u"  quoted value  "},                    // quotes off, blanks inside kept
        {u"third", u"single"},
        {u"Empty", u""}, // present but empty: not the default
        {u"Zero", u"TOP"},
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
    // A short buffer cuts the value, or the default, at its size less one.
    const std::u16string &v = cases[0].value;
    for (DWORD n : {37u, 36u, 2u, 1u}) {
        const DWORD want = std::min(n - 1, DWORD(v.size()));
        EXPECT_EQ(get(u"Watermarks", u"First", u"", buf, n), want);
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
    buf[1] = kPoisonW;
    EXPECT_EQ(GetPrivateProfileStringW(u"Watermarks", nullptr, u"", buf, 16, u"/no/such.ini"), 0u);
    EXPECT_EQ(buf[0], 0);
    pddtest::TempDir dir;
    dir.Write("BARE.INI", std::string("[s]\nk=v\n"));
    ASSERT_TRUE(Q417_SetWindowsDirectory(dir.dir.c_str()));
    EXPECT_EQ(GetPrivateProfileStringW(u"s", u"k", u"", buf, 16, u"BARE.INI"), 1u);
    EXPECT_EQ(std::u16string(buf), u"v");
    EXPECT_EQ(GetPrivateProfileStringW(u"s", u"k", u"", buf, 0, u"BARE.INI"), 0u);
    Q417_SetWindowsDirectory(nullptr);
    const std::u16string d = q417::text::Utf8ToUtf16(dir.dir.string());
    EXPECT_EQ(GetPrivateProfileStringW(u"s", u"k", u"x", buf, 16, d.c_str()), 1u)
        << "a directory reads as no file";
}

} // namespace
