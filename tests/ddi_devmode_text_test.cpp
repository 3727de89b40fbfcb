// The shared text rule and helpers, and the life of a device mode's configuration handle.
#include "ddi/ddi.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr WCHAR kPoison = 0xBEEF;

TEST(DdiGetString, CapacityDecidesBetweenSizeQueryCopyAndCut) {
    struct Case {
        const char16_t *src;
        int capacity;
        bool nullDst;
        int result;
        std::u16string stored; // what lands in the buffer, terminator included
    };
    const Case cases[] = {
        {u"Letter", 0, false, 7, u""},       // size query writes nothing
        {u"Letter", 0, true, 7, u""},        // ... even without a buffer
        {u"Letter", 7, false, 7, u"Letter"}, // exact fit
        {u"Letter", 6, false, 6, u"Lette"},  // one short: cut and terminated
        {u"Letter", 1, false, 1, u""},       // only the terminator
        {u"Letter", 100, false, 7, u"Letter"}, {u"", 5, false, 1, u""},
        {u"Letter", 3, true, 0, u""},   // no buffer to copy into
        {u"Letter", -1, false, 0, u""}, // negative capacity
        {nullptr, 5, false, 0, u""},           {nullptr, 0, false, 0, u""},
    };
    for (const Case &c : cases) {
        std::vector<WCHAR> buf(16, kPoison);
        int r = GetString(c.src, c.nullDst ? nullptr : buf.data(), c.capacity);
        EXPECT_EQ(r, c.result) << "capacity " << c.capacity;
        size_t written = (c.result > 0 && c.capacity > 0) ? c.stored.size() + 1 : 0;
        EXPECT_EQ(std::u16string(buf.data(), written), written ? c.stored + u'\0' : u"");
        for (size_t i = written; i < buf.size(); ++i)
            ASSERT_EQ(buf[i], kPoison) << "write past the result at " << i;
    }
}

TEST(DdiText, NarrowAndWideConversionsCutWhereTheirCountsSay) {
    WCHAR w[16];
    char src[] = "Tray1";
    std::fill(std::begin(w), std::end(w), kPoison);
    EXPECT_EQ(strncpy2WChar(w, src, 5), w);
    EXPECT_EQ(std::u16string(w), u"Tray") << "n equal to the length gives n-1 characters";
    EXPECT_EQ(w[5], kPoison);
    EXPECT_STREQ(src, "Tray1") << "the source is restored";
    strncpy2WChar(w, src, 6);
    EXPECT_EQ(std::u16string(w), u"Tray1");
    strncpy2WChar(w, src, 0);
    EXPECT_EQ(std::u16string(w), u"Tray1");
    strcpy2WChar(w, "\xE9t\xE9"); // Latin-1 bytes in the default ANSI code page
    EXPECT_EQ(std::u16string(w), u"\u00E9t\u00E9");

    char a[8];
    std::memset(a, 'x', sizeof a);
    CopyUnicode2Str(a, u"Model 4", 4);
    EXPECT_STREQ(a, "Mod") << "n characters converted, the last byte forced to 0";
    EXPECT_EQ(a[4], 'x');
    CopyUnicode2Str(a, u"Model 4", 0);
    EXPECT_STREQ(a, "Model 4");
}

TEST(DdiText, CopyStringAFillsWithZeroUpToTheCount) {
    const std::pair<int, std::string> cases[] = {
        {4, std::string("abc\0x", 5)},
        {6, std::string("ab\0\0\0\0x", 7)}, // short sources are padded
        {1, std::string("\0x", 2)},         // a single 0
        {0, std::string("x", 1)},           // nothing
    };
    for (const auto &[n, want] : cases) {
        char d[8];
        std::memset(d, 'x', sizeof d);
        CopyStringA(d, n == 4 ? "abcdef" : "ab", n);
        EXPECT_EQ(std::string(d, want.size()), want) << n;
    }
}

TEST(DdiDevMode, StartupAndShutdownOwnOnlyTheWorkingBlock) {
    long live0 = q417::mem::LiveBlocks();
    DDIDEVMODE dm{};
    HGLOBAL cache = GlobalAlloc(GHND, CFGINFO_SIZE);
    dm.hCfgCache = cache;
    dm.hConfig = cache;
    EXPECT_EQ(DDIShutdown(&dm), cache) << "the cache is never freed";

    HGLOBAL work = DDIStartup(&dm);
    ASSERT_NE(work, 0u);
    EXPECT_EQ(GlobalSize(work), SIZE_T(CFGINFO_SIZE));
    {
        auto *cfg = static_cast<CFGINFO *>(GlobalLock(work));
        cfg->hPaperNames = GlobalAlloc(GHND, 64);
        cfg->hPlugIn = GlobalAlloc(GHND, 64);
        GlobalUnlock(work);
    }
    EXPECT_EQ(DDIShutdown(&dm), cache);
    EXPECT_EQ(DDIShutdown(&dm), cache) << "a second shutdown does nothing";
    EXPECT_EQ(q417::mem::LiveBlocks(), live0 + 1) << "the working block and its tables freed";
    GlobalFree(cache);

    // A failed allocation still lands in hConfig.
    dm.hConfig = 0xDEAD;
    q417::mem::FailAllocation(1);
    EXPECT_EQ(DDIStartup(&dm), 0u);
    EXPECT_EQ(dm.hConfig, 0u);
}

} // namespace
