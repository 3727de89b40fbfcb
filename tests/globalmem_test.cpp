// Global memory: the contracts every other piece of the library leans on.
#include "platform/win32.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct GlobalMem : ::testing::Test {
    long live0 = q417::mem::LiveBlocks();
    void TearDown() override {
        q417::mem::FailAllocation(0);
        q417::mem::FailLock(0);
        EXPECT_EQ(q417::mem::LiveBlocks(), live0);
    }
};

// Zero-filled when made and where a reallocation grows them; the content stays.
TEST_F(GlobalMem, BlocksAreZeroFilledAndReAllocKeepsContent) {
    for (SIZE_T size : {SIZE_T(1), SIZE_T(3748), SIZE_T(1) << 20}) {
        HGLOBAL h = GlobalAlloc(GHND, size);
        ASSERT_NE(h, 0u);
        auto *p = static_cast<uint8_t *>(GlobalLock(h));
        EXPECT_EQ(std::vector<uint8_t>(p, p + size), std::vector<uint8_t>(size, 0));
        EXPECT_EQ(GlobalSize(h), size);
        p[0] = 'a';
        GlobalUnlock(h);
        ASSERT_EQ(GlobalReAlloc(h, size + 4000, GMEM_MOVEABLE | GMEM_ZEROINIT), h);
        p = static_cast<uint8_t *>(GlobalLock(h));
        std::vector<uint8_t> want(size + 4000, 0);
        want[0] = 'a';
        EXPECT_EQ(std::vector<uint8_t>(p, p + size + 4000), want);
        EXPECT_EQ(GlobalHandle(p), h);
        GlobalUnlock(h);
        EXPECT_EQ(GlobalFree(h), 0u);
    }
    EXPECT_EQ(GlobalAlloc(GHND, 0), 0u) << "a zero-size block yields no memory";
}

TEST_F(GlobalMem, LockCountsNestAndGlobalHandleFindsTheBlock) {
    HGLOBAL h = GlobalAlloc(GHND, 16);
    void *p1 = GlobalLock(h);
    EXPECT_EQ(GlobalLock(h), p1);
    EXPECT_EQ(GlobalFlags(h) & 0xFF, 2u);
    EXPECT_EQ(GlobalHandle(p1), h);
    EXPECT_TRUE(GlobalUnlock(h)) << "still locked once";
    EXPECT_FALSE(GlobalUnlock(h));
    EXPECT_FALSE(GlobalUnlock(h)) << "unlocking an unlocked block stays at 0";
    EXPECT_EQ(GlobalFlags(h) & 0xFF, 0u);
    EXPECT_EQ(GlobalHandle(static_cast<char *>(p1) + 1), 0u) << "only the block start";
    for (int i = 0; i < 300; ++i) GlobalLock(h);
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

// The sweeps of other tests rest on this: exactly the nth call fails.
TEST_F(GlobalMem, FailureInjectionHitsTheNthCall) {
    q417::mem::FailAllocation(2);
    HGLOBAL a = GlobalAlloc(GHND, 8), b = GlobalAlloc(GHND, 8), c = GlobalAlloc(GHND, 8);
    EXPECT_TRUE(a && !b && c);
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
