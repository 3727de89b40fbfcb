// The host API and the spooler calls that answer from it, the Windows directory, global
// memory, and the shared object's exports.
#include "platform/hostenv.h"
#include "platform/win32.h"
#include "q417/host.h"
#include "tests/pdd_testutil.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace {

constexpr uint8_t kPoison = 0xCD;

struct Spooler : ::testing::Test {
    std::vector<HANDLE32> added;
    HANDLE32 add(const char *name, const char *pdd, const char *dir = nullptr,
                 const char *port = "LPT1:") {
        Q417_PRINTER p{name, pdd, dir, port, nullptr};
        HANDLE32 h = Q417_AddPrinter(&p);
        if (h) added.push_back(h);
        return h;
    }
    void TearDown() override {
        for (HANDLE32 h : added) Q417_DeletePrinter(h);
    }
};

// One info call, as a caller makes it: the size alone, one byte short (refused, nothing
// written), then the exact size. Gives the filled buffer.
std::vector<uint8_t> TwoCalls(const std::function<BOOL(LPBYTE, DWORD, DWORD *)> &call) {
    DWORD need = 0, need2 = 0;
    SetLastError(0);
    EXPECT_FALSE(call(nullptr, 0, &need));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    std::vector<uint8_t> buf(need + 16, kPoison);
    EXPECT_FALSE(call(buf.data(), need - 1, &need2));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(need2, need);
    EXPECT_EQ(buf, std::vector<uint8_t>(need + 16, kPoison)) << "a failed call writes nothing";
    EXPECT_TRUE(call(buf.data(), need, &need2));
    EXPECT_EQ(std::vector<uint8_t>(buf.begin() + need, buf.end()),
              std::vector<uint8_t>(16, kPoison));
    buf.resize(need);
    return buf;
}

// A string of an info structure, which must lie inside the caller's buffer.
std::u16string Inside(const WCHAR *s, const std::vector<uint8_t> &buf) {
    auto *p = reinterpret_cast<const uint8_t *>(s);
    EXPECT_TRUE(p >= buf.data() && p < buf.data() + buf.size());
    return s;
}

TEST_F(Spooler, InfoCallsFollowTheTwoCallProtocol) {
    HANDLE32 h = add("Quillmark 417", "/drivers/Qu\xC3\xA9 7/model.pdd", nullptr, "USB001");
    ASSERT_NE(h, 0u);
    auto b = TwoCalls(
        [&](LPBYTE p, DWORD cb, DWORD *n) { return GetPrinterDriverW(h, nullptr, 2, p, cb, n); });
    DRIVER_INFO_2W di;
    std::memcpy(&di, b.data(), sizeof di);
    EXPECT_EQ(Inside(di.pDataFile, b), u"/drivers/Qué 7/model.pdd");
    EXPECT_EQ(Inside(di.pName, b), u"Quillmark 417");
    EXPECT_EQ(di.cVersion, 2u);
    // The other info calls pack their strings the same way.
    b = TwoCalls([&](LPBYTE p, DWORD cb, DWORD *n) { return GetPrinterW(h, 5, p, cb, n); });
    PRINTER_INFO_5W pi;
    std::memcpy(&pi, b.data(), sizeof pi);
    EXPECT_EQ(Inside(pi.pPortName, b), u"USB001");

    DWORD n = 0;
    std::vector<uint8_t> buf(512, kPoison);
    for (HANDLE32 bad : {HANDLE32(0), HANDLE32(0xDEADBEEF), h + 1000}) {
        SetLastError(0);
        EXPECT_FALSE(GetPrinterDriverW(bad, nullptr, 2, buf.data(), 512, &n));
        EXPECT_FALSE(GetPrinterW(bad, 5, buf.data(), 512, &n));
        EXPECT_FALSE(WritePrinter(bad, "x", 1, &n));
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    }
    EXPECT_EQ(buf[0], kPoison);
}

// A printer needs a name and a description; the driver directory is the last printer's: its
// own, or its description's folder.
TEST_F(Spooler, PrintersAndTheDriverDirectory) {
    Q417_PRINTER noName{nullptr, "/p.pdd", nullptr, nullptr, nullptr};
    Q417_PRINTER noPdd{"P", nullptr, nullptr, nullptr, nullptr};
    EXPECT_EQ(Q417_AddPrinter(&noName), 0u);
    EXPECT_EQ(Q417_AddPrinter(&noPdd), 0u);
    EXPECT_EQ(Q417_AddPrinter(nullptr), 0u);
    add("One", "/a/one.pdd", "/drv/one/");
    HANDLE32 two = add("Two", "/drv/Qu\xC3\xA9 7/two.pdd");
    auto dir = [] {
        WCHAR w[64] = {};
        DWORD n = 0;
        GetPrinterDriverDirectoryW(nullptr, nullptr, 1, reinterpret_cast<LPBYTE>(w), sizeof w, &n);
        return std::u16string(w);
    };
    EXPECT_EQ(dir(), u"/drv/Qué 7");
    EXPECT_TRUE(Q417_DeletePrinter(two));
    EXPECT_FALSE(Q417_DeletePrinter(two)) << "deleted twice";
    EXPECT_EQ(dir(), u"/drv/one") << "trailing separator dropped";
}

TEST_F(Spooler, InitDevModeFields) {
    HANDLE32 h = add("A printer name of more than thirty-one characters", "/p.pdd");
    constexpr DWORD kCust = 12, kSize = DDIDEVMODE_SIZE + kCust;
    std::vector<uint8_t> buf(kSize + 8, kPoison);
    EXPECT_EQ(Q417_InitDevMode(buf.data(), kSize - 1, h, kCust), 0u);
    EXPECT_EQ(buf[0], kPoison) << "too small: nothing written";
    EXPECT_EQ(Q417_InitDevMode(buf.data(), kSize, h + 77, 0), 0u) << "unknown printer";
    ASSERT_EQ(Q417_InitDevMode(buf.data(), kSize, h, kCust), kSize);
    EXPECT_EQ(std::vector<uint8_t>(buf.begin() + kSize, buf.end()),
              std::vector<uint8_t>(8, kPoison));
    DDIDEVMODE dm;
    std::memcpy(&dm, buf.data(), sizeof dm);
    EXPECT_EQ(std::u16string(dm.dmDeviceName), u"A printer name of more than thi");
    EXPECT_EQ((std::vector<int>{dm.dmSpecVersion, dm.dmSize, dm.dmDriverExtra, dm.dmOrientation,
                                dm.dmCopies, int(dm.wRecordSize), int(dm.hPrinter), dm.bLayout}),
              (std::vector<int>{0x401, 220, 184 + kCust, 1, 1, 404, int(h), 1}));
    // 30 characters and an emoji: the pair is not split at the cut.
    h = add("123456789012345678901234567890\xF0\x9F\x96\xA8 printer", "/p.pdd");
    ASSERT_EQ(Q417_InitDevMode(&dm, sizeof dm, h, 0), DDIDEVMODE_SIZE);
    EXPECT_EQ(lstrlenW(dm.dmDeviceName), 30);
}

TEST(Modules, WindowsDirectorySizeProtocol) {
    ASSERT_TRUE(Q417_SetWindowsDirectory("/opt/W\xC3\xADndows/")); // "Wíndows", trailing slash
    const std::u16string want = u"/opt/W\u00EDndows";
    const UINT len = UINT(want.size());
    for (UINT cap : {len + 1, len, 1u, 0u}) {
        SCOPED_TRACE(cap);
        std::vector<WCHAR> buf(cap + 4, 0xCDCD);
        UINT r = GetWindowsDirectoryW(buf.data(), cap);
        EXPECT_EQ(r, cap > len ? len : len + 1) << "too small: the size needed, terminator counted";
        EXPECT_TRUE(cap <= len || std::u16string(buf.data()) == want);
        for (size_t i = cap; i < buf.size(); ++i) EXPECT_EQ(buf[i], 0xCDCD);
    }
    EXPECT_FALSE(Q417_SetWindowsDirectory(""));
    ASSERT_TRUE(Q417_SetWindowsDirectory(nullptr));
    setenv("Q417_WINDIR", "/env/windir//", 1); // trailing separators go
    WCHAR buf[64];
    EXPECT_EQ(GetWindowsDirectoryW(buf, 64), 11u);
    EXPECT_EQ(std::u16string(buf), u"/env/windir");
    unsetenv("Q417_WINDIR");
}

using GlobalMem = pddtest::LiveBlocks;

// Zero-filled when made and where a reallocation grows them; the content stays.
TEST_F(GlobalMem, BlocksAreZeroFilledAndReAllocKeepsContent) {
    for (SIZE_T size : {SIZE_T(1), SIZE_T(3748), SIZE_T(1) << 20}) {
        HGLOBAL h = GlobalAlloc(GHND, size);
        ASSERT_NE(h, 0u);
        *static_cast<uint8_t *>(GlobalLock(h)) = 'a';
        GlobalUnlock(h);
        ASSERT_EQ(GlobalReAlloc(h, size + 4000, GMEM_MOVEABLE | GMEM_ZEROINIT), h);
        std::vector<uint8_t> want(size + 4000, 0);
        want[0] = 'a';
        EXPECT_EQ(pddtest::Bytes(h), want);
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

TEST_F(GlobalMem, Ptr32ValuesRoundTripAndDieWithTheirBlock) {
    static char staticBuf[64];
    PTR32 s = Ptr32From(staticBuf);
    EXPECT_EQ(Ptr32From(staticBuf), s) << "one value per pointer";
    EXPECT_EQ(Ptr32From(nullptr), 0u);
    HGLOBAL h = GlobalAlloc(GHND, 500);
    auto *p = static_cast<uint8_t *>(GlobalLock(h));
    PTR32 inner = Ptr32From(p + 404);
    EXPECT_EQ(Ptr32As<uint8_t>(inner), p + 404);
    GlobalUnlock(h);
    GlobalFree(h);
    EXPECT_EQ(Ptr32To(inner), nullptr) << "a value into a freed block resolves to nothing";
    EXPECT_EQ(Ptr32To(s), staticBuf);
}

} // namespace

// Exports beside the host API (Q417_*): the driver's entries and nothing else.
TEST(SharedObject, ExportsExactlyTheEntriesAndTheHostApi) {
    const std::string cmd = std::string("nm -D --defined-only ") + Q417_LIBRARY_FILE +
                            " | awk '$2 != \"A\" && $3 !~ /^Q417_/ {sub(/@.*/, \"\", $3); print "
                            "$3}' | LC_ALL=C sort | tr '\\n' ' '";
    FILE *p = popen(cmd.c_str(), "r");
    ASSERT_NE(p, nullptr);
    std::string names;
    for (int c; (c = std::fgetc(p)) != EOF;) names += char(c);
    pclose(p);
    EXPECT_EQ(names, "DDIGetCustDataPtr DDIGetDWord DDIGetKeywordDefaultOption "
                     "DDIGetKeywordNumOptions DDIGetKeywordOptionString "
                     "DDIGetKeywordOptionTranslation DDIGetString DDISetDWord DDISetDialogResult "
                     "DDISetString DrvSplAbort DrvSplClose DrvSplEndDoc DrvSplEndPage "
                     "DrvSplStartDoc DrvSplStartPage DrvSplWritePrinter GetConfig ");
}
