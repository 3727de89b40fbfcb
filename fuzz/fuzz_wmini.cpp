// Arbitrary bytes as QMWMARK.INI through the definition reader. The first byte selects the
// definition, the second an allocation to fail (0: none); the rest is the file. Every run must
// give back all the blocks it took.
#include "q417/host.h"
#include "watermark/watermark.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace {
std::string g_dir;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    const char *tmp = std::getenv("TMPDIR");
    g_dir =
        std::string(tmp && *tmp ? tmp : "/tmp") + "/q417_fuzz_wmini." + std::to_string(getpid());
    std::filesystem::create_directories(g_dir);
    Q417_SetWindowsDirectory(g_dir.c_str());
    WinRoot[0] = 0;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) return 0;
    const std::string path = g_dir + "/QMWMARK.INI";
    FILE *f = std::fopen(path.c_str(), "wb");
    if (!f) return 0;
    std::fwrite(data + 2, 1, size - 2, f);
    std::fclose(f);

    const long before = q417::mem::LiveBlocks();
    q417::mem::FailAllocation(data[1] < 16 ? data[1] : 0);
    static DDIDEVMODE dm;
    dm.wWaterMark = data[0];
    WMINFO info{};
    if (GetWaterMarkInfo(&dm, &info)) {
        // A definition that came through holds terminated texts within their limits.
        if (info.szFace[32] != 0 || info.szText[50] != 0) __builtin_trap();
    }
    q417::mem::FailAllocation(0);
    if (q417::mem::LiveBlocks() != before) __builtin_trap(); // a leak
    return 0;
}
