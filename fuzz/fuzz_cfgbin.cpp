// The binary configuration file reader on arbitrary bytes: it must refuse or accept without
// reading out of bounds, leave a refused record all zero, and free everything it made. Each
// input runs twice, the second time with one allocation or lock failing on the way.
#include "config/config.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

std::string path;

// Blocks that live across runs: a header's handle numbers may name them, and they must stay.
HGLOBAL canaries[8];

bool WriteInput(const uint8_t *data, size_t size) {
    FILE *f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    bool ok = std::fwrite(data, 1, size, f) == size;
    return std::fclose(f) == 0 && ok;
}

void ReadOnce() {
    long live = q417::mem::LiveBlocks();
    CFGINFO rec{};
    if (ReadCfgBinary(&rec, path.c_str())) {
        FreeCfgTables(&rec);
    } else {
        static const CFGINFO zero{};
        if (std::memcmp(&rec, &zero, CFGINFO_SIZE) != 0) std::abort();
    }
    if (q417::mem::LiveBlocks() != live) std::abort();
    for (HGLOBAL h : canaries)
        if (GlobalSize(h) != 16) std::abort();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    const char *dir = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    path = std::string(dir) + "/q417_fuzz_cfgbin_" + std::to_string(getpid()) + ".bdd";
    std::atexit([] { unlink(path.c_str()); });
    for (HGLOBAL &h : canaries) h = GlobalAlloc(GHND, 16);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (!WriteInput(data, size)) return 0;
    ReadOnce();
    // 24 sections at most behind the header: aim one failure somewhere along the way.
    long nth = long(size % 26) + 1;
    (size & 1) ? q417::mem::FailLock(nth) : q417::mem::FailAllocation(nth);
    ReadOnce();
    q417::mem::FailLock(0);
    q417::mem::FailAllocation(0);
    return 0;
}
