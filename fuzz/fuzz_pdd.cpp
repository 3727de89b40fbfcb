// Parses arbitrary bytes as a printer description. The bytes are written to two files, f.pdd
// and g.pdd, so an "Include:" line of the input can name itself or its twin. Every record must
// be consistent and every block freed; odd-sized inputs are parsed a second time with one
// allocation failing, so the out-of-memory paths are walked too.
#include "pdd/pdd.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <unistd.h>

namespace {

std::filesystem::path g_dir;

void RemoveDir() {
    std::error_code ec;
    std::filesystem::remove_all(g_dir, ec);
}

template <class T>
void CheckList(const T *p, DWORD n) {
    DWORD k = 0;
    for (; p; p = p->pNext, ++k) {
        for (const PDDTEXT *t : {&p->Key, &p->Translation, &p->Cmd})
            if (t->nLen < 0 || t->nLen > 40) abort();
        if (k > n) abort();
    }
    if (k != n) abort();
}

void ParseOnce(const std::u16string &name) {
    long live0 = q417::mem::LiveBlocks();
    HGLOBAL h = PDD_Startup();
    if (!h) return;
    PDD_ParseFile(h, name.c_str());
    if (auto *p = static_cast<PDDINFO *>(GlobalLock(h))) {
        CheckList(p->pPaperList, p->nPapers);
        CheckList(p->pTrayList, p->nTrays);
        CheckList(p->pResList, p->nResolutions);
        CheckList(p->pDestList, p->nDests);
        CheckList(p->pMediaList, p->nMedia);
        GlobalUnlock(h);
    }
    PDD_Shutdown(h);
    q417::mem::FailAllocation(0);
    if (q417::mem::LiveBlocks() != live0) abort();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    // Two files are written for each input: keep them in memory where the host allows.
    std::error_code ec;
    std::filesystem::path base = std::filesystem::is_directory("/dev/shm", ec)
                                     ? std::filesystem::path("/dev/shm")
                                     : std::filesystem::temp_directory_path();
    g_dir = base / ("q417fuzz_pdd_" + std::to_string(getpid()));
    std::filesystem::create_directories(g_dir);
    std::atexit(RemoveDir);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (g_dir.empty()) LLVMFuzzerInitialize(nullptr, nullptr);
    for (const char *n : {"f.pdd", "g.pdd"})
        std::ofstream(g_dir / n, std::ios::binary | std::ios::trunc)
            .write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size));
    std::string path = (g_dir / "f.pdd").string();
    std::u16string name(path.begin(), path.end());
    ParseOnce(name);
    if (size % 2 == 1) {
        q417::mem::FailAllocation(1 + data[0] % 16);
        ParseOnce(name);
    }
    return 0;
}
