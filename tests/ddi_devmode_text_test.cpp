// The text conversions and the life of a configuration handle. (The text rule every getter
// follows is checked through the getters, with CheckText in ddi_fixture.h.)
#include "ddi/ddi.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

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
