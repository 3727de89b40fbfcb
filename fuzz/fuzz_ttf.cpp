// Arbitrary font bytes through the soft font header and the glyph download. The last byte
// picks an allocation to fail (0: none), so the no-memory paths are walked too. Every run must
// give back all the blocks it took.
#include "job/job.h"
#include "q417/host.h"
#include "watermark/watermark.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

std::string g_path;
HANDLE32 g_printer;

int Discard(void *, const void *, uint32_t) {
    return 1;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    const char *tmp = std::getenv("TMPDIR");
    g_path = std::string(tmp && *tmp ? tmp : "/tmp") + "/q417_fuzz_ttf." +
             std::to_string(getpid()) + ".ttf";
    Q417_PRINTER pr{};
    pr.name = "fuzz";
    pr.pdd_path = "/nonexistent/fuzz.pdd";
    g_printer = Q417_AddPrinter(&pr);
    Q417_SetOutputCallback(g_printer, Discard, nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const uint8_t failAt = data[size - 1] < 24 ? data[size - 1] : 0;
    FILE *f = std::fopen(g_path.c_str(), "wb");
    if (!f) return 0;
    std::fwrite(data, 1, size - 1, f);
    std::fclose(f);

    std::u16string wide(g_path.begin(), g_path.end());
    HANDLE h = CreateFileW(wide.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                           FILE_ATTRIBUTE_NORMAL, 0);
    if (h == INVALID_HANDLE_VALUE) return 0;

    static char cmdBuf[1024];
    static DDIDEVMODE dm;
    SPLDEVINFO info{};
    info.hPrinter = g_printer;
    info.pDevMode = Ptr32From(&dm);
    info.pCmdBuf = Ptr32From(cmdBuf);
    WM = WMINFO{};
    WM.nWeight = 700;

    const long before = q417::mem::LiveBlocks();
    q417::mem::FailAllocation(failAt);
    if (SelectWaterMarkFont(&info, &WM, h, "Fuzz Face"))
        DownloadWaterMarkChars(&info, &WM, h, "CONFIDENTIAL \xC9\xE8\xE7\xF1\x80\x92\xB7\x9F");
    q417::mem::FailAllocation(0);
    CloseHandle(h);
    if (q417::mem::LiveBlocks() != before) __builtin_trap(); // a leak
    return 0;
}
