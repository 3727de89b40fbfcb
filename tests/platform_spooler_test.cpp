// The host API and the spooler calls that answer from it.
#include "platform/hostenv.h"
#include "q417/host.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr uint8_t kPoison = 0xCD;

std::string readAll(const std::string &path) {
    std::ifstream f(path, std::ios::binary);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

struct Spooler : ::testing::Test {
    std::vector<HANDLE32> added;
    std::string tmp = ::testing::TempDir();
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

TEST_F(Spooler, AddPrinterRefusesMissingNamesAndHandsOutDistinctHandles) {
    Q417_PRINTER noName{nullptr, "/p.pdd", nullptr, nullptr, nullptr};
    Q417_PRINTER noPdd{"P", nullptr, nullptr, nullptr, nullptr};
    EXPECT_EQ(Q417_AddPrinter(&noName), 0u);
    EXPECT_EQ(Q417_AddPrinter(&noPdd), 0u);
    EXPECT_EQ(Q417_AddPrinter(nullptr), 0u);
    HANDLE32 a = add("A", "/x/a.pdd"), b = add("B", "/x/b.pdd");
    EXPECT_NE(a, 0u);
    EXPECT_NE(b, 0u);
    EXPECT_NE(a, b);
    EXPECT_TRUE(Q417_DeletePrinter(a));
    EXPECT_FALSE(Q417_DeletePrinter(a)) << "deleted twice";
    EXPECT_EQ(q417::host::FindPrinter(a), nullptr);
}

// One info call, each size: none, one short, exact. A failed call writes nothing.
struct InfoCall {
    const char *what;
    std::function<BOOL(LPBYTE, DWORD, DWORD *)> call;
    std::function<void(const uint8_t *)> check;
};

void runTwoCall(const InfoCall &c) {
    SCOPED_TRACE(c.what);
    DWORD need = 0xDEAD;
    SetLastError(0);
    EXPECT_FALSE(c.call(nullptr, 0, &need));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    ASSERT_GT(need, 0u);
    ASSERT_LT(need, 4096u);
    for (DWORD cap : {need - 1, need}) {
        std::vector<uint8_t> buf(need + 16, kPoison);
        DWORD need2 = 0;
        SetLastError(0);
        BOOL ok = c.call(buf.data(), cap, &need2);
        EXPECT_EQ(need2, need);
        for (size_t i = cap; i < buf.size(); ++i) ASSERT_EQ(buf[i], kPoison) << "byte " << i;
        if (cap < need) {
            EXPECT_FALSE(ok);
            EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
            for (size_t i = 0; i < cap; ++i) ASSERT_EQ(buf[i], kPoison) << "byte " << i;
        } else {
            ASSERT_TRUE(ok);
            c.check(buf.data());
        }
    }
}

// A string of an info structure must lie inside the caller's buffer.
void expectInside(const void *s, const uint8_t *buf, DWORD size) {
    auto *p = static_cast<const uint8_t *>(s);
    EXPECT_TRUE(p >= buf && p < buf + size);
}

TEST_F(Spooler, InfoCallsFollowTheTwoCallProtocol) {
    const std::string pdd = "/drivers/Qu\xC3\xA9 7/model.pdd"; // "Qué 7", UTF-8
    HANDLE32 h = add("Quillmark 417", pdd.c_str(), nullptr, "USB001");
    ASSERT_NE(h, 0u);
    DWORD need = 0;
    GetPrinterDriverW(h, nullptr, 2, nullptr, 0, &need);
    const DWORD driverNeed = need;

    const InfoCall calls[] = {
        {"GetPrinterDriverW level 2",
         [&](LPBYTE b, DWORD cb, DWORD *n) { return GetPrinterDriverW(h, nullptr, 2, b, cb, n); },
         [&](const uint8_t *b) {
             DRIVER_INFO_2W di;
             std::memcpy(&di, b, sizeof di);
             EXPECT_EQ(std::u16string(di.pDataFile), u"/drivers/Qué 7/model.pdd");
             EXPECT_EQ(std::u16string(di.pName), u"Quillmark 417");
             EXPECT_EQ(di.cVersion, 2u);
             expectInside(di.pDataFile, b, driverNeed);
             expectInside(di.pName, b, driverNeed);
         }},
        {"GetPrinterW level 5",
         [&](LPBYTE b, DWORD cb, DWORD *n) { return GetPrinterW(h, 5, b, cb, n); },
         [&](const uint8_t *b) {
             PRINTER_INFO_5W pi;
             std::memcpy(&pi, b, sizeof pi);
             EXPECT_EQ(std::u16string(pi.pPrinterName), u"Quillmark 417");
             EXPECT_EQ(std::u16string(pi.pPortName), u"USB001");
         }},
        {"GetPrinterDriverDirectoryW level 1",
         [&](LPBYTE b, DWORD cb, DWORD *n) {
             return GetPrinterDriverDirectoryW(nullptr, nullptr, 1, b, cb, n);
         },
         [&](const uint8_t *b) {
             EXPECT_EQ(std::u16string(reinterpret_cast<const WCHAR *>(b)), u"/drivers/Qué 7");
         }},
    };
    for (auto &c : calls) runTwoCall(c);

    DWORD n = 0;
    std::vector<uint8_t> buf(512, kPoison);
    for (HANDLE32 bad : {HANDLE32(0), HANDLE32(0xDEADBEEF), h + 1000}) {
        SetLastError(0);
        EXPECT_FALSE(GetPrinterDriverW(bad, nullptr, 2, buf.data(), 512, &n));
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
        SetLastError(0);
        EXPECT_FALSE(GetPrinterW(bad, 5, buf.data(), 512, &n));
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
        SetLastError(0);
        EXPECT_FALSE(WritePrinter(bad, "x", 1, &n));
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    }
    EXPECT_EQ(buf[0], kPoison);
}

TEST_F(Spooler, DriverDirectoryIsTheLastPrinters) {
    add("One", "/a/one.pdd", "/drv/one/");
    HANDLE32 two = add("Two", "/b/two.pdd", "/drv/two");
    auto dir = [] {
        WCHAR w[64] = {};
        DWORD n = 0;
        if (!GetPrinterDriverDirectoryW(nullptr, nullptr, 1, reinterpret_cast<LPBYTE>(w), sizeof w,
                                        &n))
            return std::u16string(u"<failed>");
        EXPECT_EQ(n, (lstrlenW(w) + 1) * sizeof(WCHAR));
        return std::u16string(w);
    };
    EXPECT_EQ(dir(), u"/drv/two");
    Q417_DeletePrinter(two);
    EXPECT_EQ(dir(), u"/drv/one") << "trailing separator dropped";
}

// Collects output until a byte limit, then refuses.
struct Collector {
    std::string got;
    size_t limit = SIZE_MAX;
    static int take(void *ctx, const void *data, uint32_t size) {
        auto *c = static_cast<Collector *>(ctx);
        if (c->got.size() + size > c->limit) return 0;
        c->got.append(static_cast<const char *>(data), size);
        return 1;
    }
};

TEST_F(Spooler, CallbackSinkFailingAtAChosenByte) {
    HANDLE32 h = add("P", "/p.pdd");
    for (size_t limit : {size_t(0), size_t(9), size_t(10), size_t(25), size_t(40)}) {
        SCOPED_TRACE(limit);
        Collector c;
        c.limit = limit;
        ASSERT_TRUE(Q417_SetOutputCallback(h, &Collector::take, &c));
        size_t sent = 0;
        for (int i = 0; i < 4; ++i) {
            DWORD written = 0xFFFF;
            BOOL ok = WritePrinter(h, "0123456789", 10, &written);
            bool fits = sent + 10 <= limit;
            EXPECT_EQ(ok, fits ? TRUE : FALSE) << "block " << i;
            EXPECT_EQ(written, fits ? 10u : 0u);
            if (!fits) {
                EXPECT_EQ(GetLastError(), ERROR_WRITE_FAULT);
            }
            if (fits) sent += 10;
        }
        EXPECT_EQ(c.got.size(), sent);
    }
    Collector c;
    Q417_SetOutputCallback(h, &Collector::take, &c);
    DWORD written = 7;
    EXPECT_TRUE(WritePrinter(h, nullptr, 0, &written)) << "an empty write succeeds";
    EXPECT_EQ(written, 0u);
}

TEST_F(Spooler, FileAndDescriptorSinks) {
    HANDLE32 h = add("P", "/p.pdd");
    DWORD written = 0;
    EXPECT_TRUE(WritePrinter(h, "lost", 4, &written)) << "no sink yet: bytes go nowhere";
    EXPECT_EQ(written, 4u);

    const std::string path = tmp + "q417_sink_test.prn";
    {
        std::ofstream old(path);
        old << "old contents to be emptied";
    }
    ASSERT_TRUE(Q417_SetOutputFile(h, path.c_str()));
    EXPECT_EQ(readAll(path), "") << "the file is emptied when named";
    EXPECT_TRUE(WritePrinter(h, "\x1b%-12345X", 9, &written));
    EXPECT_TRUE(WritePrinter(h, "@PJL\n", 5, &written));
    EXPECT_EQ(written, 5u);
    EXPECT_EQ(readAll(path), "\x1b%-12345X@PJL\n");
    EXPECT_FALSE(Q417_SetOutputFile(h, (tmp + "no/such/dir/x.prn").c_str()));
    EXPECT_TRUE(WritePrinter(h, "!", 1, &written)) << "a refused file keeps the last sink";
    EXPECT_EQ(readAll(path), "\x1b%-12345X@PJL\n!");

    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    ASSERT_TRUE(Q417_SetOutputFd(h, fds[1]));
    EXPECT_TRUE(WritePrinter(h, "pipe", 4, &written));
    Q417_DeletePrinter(h);
    EXPECT_NE(fcntl(fds[1], F_GETFD), -1) << "a host's descriptor stays open";
    char got[8] = {};
    EXPECT_EQ(read(fds[0], got, sizeof got), 4);
    EXPECT_STREQ(got, "pipe");
    close(fds[0]);
    HANDLE32 h2 = add("P2", "/p.pdd");
    ASSERT_TRUE(Q417_SetOutputFd(h2, fds[1]));
    EXPECT_FALSE(WritePrinter(h2, "x", 1, &written)) << "a pipe without reader fails the write";
    EXPECT_EQ(written, 0u);
    EXPECT_FALSE(WritePrinter(h, "x", 1, &written)) << "printer gone";
    close(fds[1]);
    std::remove(path.c_str());
}

TEST_F(Spooler, InitDevModeFields) {
    const char *longName = "A printer name of more than thirty-one characters";
    HANDLE32 h = add(longName, "/p.pdd");
    constexpr DWORD kCust = 12;
    std::vector<uint8_t> buf(DDIDEVMODE_SIZE + kCust + 8, kPoison);
    EXPECT_EQ(Q417_InitDevMode(buf.data(), DDIDEVMODE_SIZE + kCust - 1, h, kCust), 0u);
    EXPECT_EQ(buf[0], kPoison) << "too small: nothing written";
    EXPECT_EQ(Q417_InitDevMode(buf.data(), buf.size(), h + 77, 0), 0u) << "unknown printer";
    ASSERT_EQ(Q417_InitDevMode(buf.data(), DDIDEVMODE_SIZE + kCust, h, kCust),
              DDIDEVMODE_SIZE + kCust);
    for (size_t i = DDIDEVMODE_SIZE + kCust; i < buf.size(); ++i) ASSERT_EQ(buf[i], kPoison);

    DDIDEVMODE dm;
    std::memcpy(&dm, buf.data(), sizeof dm);
    EXPECT_EQ(std::u16string(dm.dmDeviceName), u"A printer name of more than thi");
    // 30 characters and an emoji: the pair is not split at the cut.
    HANDLE32 h2 = add("123456789012345678901234567890\xF0\x9F\x96\xA8 printer", "/p.pdd");
    DDIDEVMODE dm2;
    ASSERT_EQ(Q417_InitDevMode(&dm2, sizeof dm2, h2, 0), DDIDEVMODE_SIZE);
    EXPECT_EQ(lstrlenW(dm2.dmDeviceName), 30);
    EXPECT_EQ(dm.dmSpecVersion, 0x401);
    EXPECT_EQ(dm.dmSize, 220);
    EXPECT_EQ(dm.dmDriverExtra, 184 + kCust);
    EXPECT_EQ(dm.dmOrientation, 1);
    EXPECT_EQ(dm.dmCopies, 1);
    EXPECT_EQ(dm.wRecordSize, 404);
    EXPECT_EQ(dm.hPrinter, h);
    EXPECT_EQ(dm.bLayout, 1);
    // Everything else is zero: clear what was checked and scan the rest.
    std::vector<uint8_t> rest(buf.begin(), buf.begin() + DDIDEVMODE_SIZE + kCust);
    auto clear = [&](size_t off, size_t n) { std::memset(rest.data() + off, 0, n); };
    clear(0, 64);                                           // dmDeviceName
    clear(64, 2), clear(68, 4), clear(76, 2), clear(86, 2); // version, sizes, orient, copies
    clear(220, 2), clear(224, 4), clear(373, 1);
    for (size_t cc : {320u, 330u, 340u}) {
        EXPECT_EQ(rest[cc], 100) << "lightness at " << cc;
        EXPECT_EQ(rest[cc + 1], 100) << "saturation at " << cc + 1;
        clear(cc, 2);
    }
    for (size_t i = 0; i < rest.size(); ++i) EXPECT_EQ(rest[i], 0) << "byte " << i;
}

} // namespace
