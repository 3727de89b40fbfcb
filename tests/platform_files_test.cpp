// Files: Windows-style names on the host, the two families of file calls, _stat.
#include "pdd_testutil.h"
#include "platform/hostenv.h"
#include "q417/host.h"

#include <gtest/gtest.h>

namespace {

TEST(HostPath, SeparatorsAndCodePages) {
    ASSERT_TRUE(Q417_SetAnsiCodePage("WINDOWS-1252"));
    struct Case {
        const char *ansi;
        size_t cap;
        bool ok;
        const char *out;
    } cases[] = {
        {"\\\\server\\share", 64, true, "//server/share"}, // the rest through the file calls
        {"a\\b", 4, true, "a/b"},                          // exact fit
        {"a\\b", 3, false, ""},                            // one short
        {"\xE9", 3, true, "\xC3\xA9"},                     // two UTF-8 bytes, exact
        {"\xE9", 2, false, ""},
    };
    char out[64];
    for (auto &c : cases) {
        std::memset(out, 'Z', sizeof out);
        EXPECT_EQ(q417::path::FromAnsi(c.ansi, out, c.cap), c.ok) << c.ansi;
        EXPECT_TRUE(!c.ok || std::string(out) == c.out) << c.ansi;
        EXPECT_TRUE(c.cap == sizeof out || out[c.cap] == 'Z') << "wrote past " << c.cap;
    }
    EXPECT_FALSE(q417::path::FromWide(nullptr, out, sizeof out));
    EXPECT_FALSE(q417::path::FromAnsi("x", out, 0));
}

// "Qué ü/model.pdd" under its ANSI name and its wide name.
TEST(Files, NonAsciiPathThroughBothFamiliesAndStat) {
    ASSERT_TRUE(Q417_SetAnsiCodePage("WINDOWS-1252"));
    pddtest::TempDir tmp;
    pddtest::SetMTime(tmp.Write("Qu\xC3\xA9 \xC3\xBC/model.pdd", "*PDD-Lindgate:1\n"), 1234567890,
                      123456789);
    std::string dir = tmp.dir.string();
    std::replace(dir.begin(), dir.end(), '/', '\\');
    const std::string ansi = dir + "\\Qu\xE9 \xFC\\model.pdd";
    OFSTRUCT of;
    HFILE hf = OpenFile(ansi.c_str(), &of, OF_READ);
    ASSERT_NE(hf, HFILE_ERROR) << ansi;
    char buf[32] = {};
    EXPECT_EQ(_lread(hf, buf, sizeof buf), 16u);
    EXPECT_STREQ(buf, "*PDD-Lindgate:1\n");
    EXPECT_EQ(_lclose(hf), 0);
    EXPECT_EQ(_lclose(hf), HFILE_ERROR) << "closed twice";
    Q417Stat st;
    ASSERT_EQ(_stat(ansi.c_str(), &st), 0);
    EXPECT_EQ(st.st_size, 16u);
    EXPECT_EQ(st.st_mtime_ns, 1234567890123456789LL);
    std::u16string wide = q417::text::Utf8ToUtf16(dir) + u"\\Qu\u00E9 \u00FC\\model.pdd";
    HANDLE h = CreateFileW(wide.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                           FILE_ATTRIBUTE_NORMAL, 0);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    DWORD got = 0;
    EXPECT_TRUE(ReadFile(h, buf, 4, &got, nullptr));
    EXPECT_EQ(std::string(buf, got), "*PDD");
    EXPECT_TRUE(CloseHandle(h));
    // A directory is no file to either family.
    EXPECT_EQ(
        CreateFileW(pddtest::Wide(dir).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, 0),
        INVALID_HANDLE_VALUE);
}

TEST(Files, ReadSeekSizeAndStaleHandles) {
    pddtest::TempDir tmp;
    const std::u16string w = pddtest::Wide(tmp.Write("r.bin", "0123456789"));
    HANDLE h = CreateFileW(w.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, 0);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    EXPECT_EQ(h & 0x80000000u, 0u) << "a handle is also a positive HFILE";
    DWORD high = 99;
    EXPECT_EQ(GetFileSize(h, &high), 10u);
    EXPECT_EQ(high, 0u);
    struct Seek {
        LONG dist;
        DWORD method;
        DWORD pos;
        const char *next2; // the two bytes read there
    } seeks[] = {
        {4, FILE_BEGIN, 4, "45"}, {-3, FILE_CURRENT, 3, "34"}, {-2, FILE_END, 8, "89"},
        {0, FILE_BEGIN, 0, "01"}, {20, FILE_BEGIN, 20, ""},
    };
    char buf[2];
    DWORD got = 7;
    for (auto &s : seeks) {
        EXPECT_EQ(SetFilePointer(h, s.dist, nullptr, s.method), s.pos);
        EXPECT_TRUE(ReadFile(h, buf, 2, &got, nullptr));
        EXPECT_EQ(std::string(buf, got), s.next2);
    }
    SetLastError(0);
    EXPECT_EQ(SetFilePointer(h, -1, nullptr, FILE_BEGIN), INVALID_SET_FILE_POINTER);
    EXPECT_EQ(GetLastError(), ERROR_NEGATIVE_SEEK);
    EXPECT_TRUE(CloseHandle(h));
    HANDLE reuse = CreateFileW(w.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, 0);
    EXPECT_NE(reuse, h) << "the slot comes back under a new generation";
    SetLastError(0);
    EXPECT_FALSE(ReadFile(h, buf, 1, &got, nullptr)) << "a stale handle";
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(CloseHandle(h));
    EXPECT_TRUE(CloseHandle(reuse));
    for (HANDLE bad : {HANDLE(0), HANDLE(0x12345), INVALID_HANDLE_VALUE})
        EXPECT_FALSE(ReadFile(bad, buf, 1, &got, nullptr));
}

} // namespace
