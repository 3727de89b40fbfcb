// Global memory: the contracts every other piece of the library leans on.
#include "platform/win32.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

struct GlobalMem : ::testing::Test {
    long live0 = q417::mem::LiveBlocks();
    void TearDown() override {
        q417::mem::FailAllocation(0);
        q417::mem::FailLock(0);
        EXPECT_EQ(q417::mem::LiveBlocks(), live0);
    }
};

TEST_F(GlobalMem, BlocksAreZeroFilledAndHandlesAre32BitNonZero) {
    for (SIZE_T size : {SIZE_T(1), SIZE_T(24), SIZE_T(3748), SIZE_T(1) << 20}) {
        HGLOBAL h = GlobalAlloc(GHND, size);
        ASSERT_NE(h, 0u);
        auto *p = static_cast<uint8_t *>(GlobalLock(h));
        ASSERT_NE(p, nullptr);
        for (SIZE_T i = 0; i < size; ++i) ASSERT_EQ(p[i], 0) << "byte " << i;
        EXPECT_EQ(GlobalSize(h), size);
        GlobalUnlock(h);
        EXPECT_EQ(GlobalFree(h), 0u);
    }
    EXPECT_EQ(GlobalAlloc(GHND, 0), 0u) << "a zero-size block yields no memory";
}

TEST_F(GlobalMem, LockCountsNestAndGlobalHandleFindsTheBlock) {
    HGLOBAL h = GlobalAlloc(GHND, 16);
    void *p1 = GlobalLock(h);
    void *p2 = GlobalLock(h);
    EXPECT_EQ(p1, p2);
    EXPECT_EQ(GlobalFlags(h) & 0xFF, 2u);
    EXPECT_EQ(GlobalHandle(p1), h);
    EXPECT_TRUE(GlobalUnlock(h)) << "still locked once";
    EXPECT_FALSE(GlobalUnlock(h));
    EXPECT_FALSE(GlobalUnlock(h)) << "unlocking an unlocked block stays at 0";
    EXPECT_EQ(GlobalFlags(h) & 0xFF, 0u);
    EXPECT_EQ(GlobalHandle(static_cast<char *>(p1) + 1), 0u) << "only the block start";
    for (int i = 0; i < 300; ++i) GlobalLock(h);
    EXPECT_EQ(GlobalFlags(h) & 0xFF, 255u);
    EXPECT_TRUE(GlobalUnlock(h));
    EXPECT_EQ(GlobalFlags(h) & 0xFF, 255u) << "a saturated count no longer counts down";
    GlobalFree(h);
}

TEST_F(GlobalMem, StaleAndForeignHandlesAreRefused) {
    HGLOBAL h = GlobalAlloc(GHND, 8);
    GlobalFree(h);
    EXPECT_EQ(GlobalLock(h), nullptr);
    EXPECT_EQ(GlobalFree(h), h) << "a second free fails";
    HGLOBAL again = GlobalAlloc(GHND, 8); // likely the same slot, new generation
    EXPECT_NE(again, h);
    EXPECT_EQ(GlobalLock(h), nullptr);
    GlobalFree(again);
    EXPECT_EQ(GlobalLock(0), nullptr);
    EXPECT_EQ(GlobalLock(0xDEADBEEF), nullptr);
    EXPECT_EQ(GlobalHandle(nullptr), 0u);
}

TEST_F(GlobalMem, ReAllocKeepsContentAndZeroFillsGrowth) {
    HGLOBAL h = GlobalAlloc(GHND, 4);
    std::memcpy(GlobalLock(h), "abcd", 4);
    GlobalUnlock(h);
    ASSERT_EQ(GlobalReAlloc(h, 4000, GMEM_MOVEABLE | GMEM_ZEROINIT), h);
    auto *p = static_cast<uint8_t *>(GlobalLock(h));
    EXPECT_EQ(std::memcmp(p, "abcd", 4), 0);
    for (int i = 4; i < 4000; ++i) ASSERT_EQ(p[i], 0);
    EXPECT_EQ(GlobalHandle(p), h);
    GlobalUnlock(h);
    GlobalFree(h);
}

TEST_F(GlobalMem, FailureInjectionHitsTheNthCall) {
    q417::mem::FailAllocation(2);
    HGLOBAL a = GlobalAlloc(GHND, 8);
    HGLOBAL b = GlobalAlloc(GHND, 8);
    HGLOBAL c = GlobalAlloc(GHND, 8);
    EXPECT_NE(a, 0u);
    EXPECT_EQ(b, 0u);
    EXPECT_NE(c, 0u);
    q417::mem::FailLock(1);
    EXPECT_EQ(GlobalLock(a), nullptr);
    EXPECT_NE(GlobalLock(a), nullptr);
    GlobalUnlock(a);
    GlobalFree(a);
    GlobalFree(c);
}

TEST_F(GlobalMem, Ptr32ValuesRoundTripAndDieWithTheirBlock) {
    static char staticBuf[64];
    PTR32 s = Ptr32From(staticBuf);
    EXPECT_NE(s, 0u);
    EXPECT_EQ(Ptr32From(staticBuf), s) << "one value per pointer";
    EXPECT_EQ(Ptr32To(s), staticBuf);
    EXPECT_EQ(Ptr32From(nullptr), 0u);
    EXPECT_EQ(Ptr32To(0), nullptr);

    HGLOBAL h = GlobalAlloc(GHND, 500);
    auto *p = static_cast<uint8_t *>(GlobalLock(h));
    PTR32 base = Ptr32From(p), inner = Ptr32From(p + 404);
    EXPECT_NE(base, inner);
    EXPECT_EQ(Ptr32As<uint8_t>(inner), p + 404);
    GlobalUnlock(h);
    GlobalFree(h);
    EXPECT_EQ(Ptr32To(base), nullptr) << "a value into a freed block resolves to nothing";
    EXPECT_EQ(Ptr32To(inner), nullptr);
    EXPECT_EQ(Ptr32To(s), staticBuf);
}

} // namespace
