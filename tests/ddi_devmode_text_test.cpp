// The shared text rule, the text conversions, and the life of a configuration handle.
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

// The conversions the texts of descriptions and labels take: 8-bit in the ANSI code page.
TEST(DdiText, NarrowAndWideConversions) {
    WCHAR w[16];
    strcpy2WChar(w, "\xE9t\xE9"); // Latin-1 bytes in the default ANSI code page
    EXPECT_EQ(std::u16string(w), u"\u00E9t\u00E9");
    char a[8];
    std::memset(a, 'x', sizeof a);
    CopyUnicode2Str(a, u"Model 4", 4);
    EXPECT_EQ(std::string(a, 5), std::string("Mod\0x", 5)) << "n characters, the last one 0";
    CopyUnicode2Str(a, u"Model 4", 0);
    EXPECT_STREQ(a, "Model 4");
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
