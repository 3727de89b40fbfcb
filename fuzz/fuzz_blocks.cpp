// The tagged-block channel and the page entries under any sequence of blocks, calls and failed
// allocations. A job must end with every block it took released; the transfer tables and the
// cached configuration are the process's.
//
// The printer has a description, so that the warm-up job of each input caches a configuration
// while no failure is armed; the job's entries then find it cached.
//
// Input: a run of operations, each an opcode byte and its operands:
//   0  block: u16le length, then that many bytes (tag first), to DrvSplWritePrinter
//   1  DrvSplStartPage     2  DrvSplEndPage     3  DrvSplEndDoc     4  DrvSplAbort
//   5  the nth next allocation fails (n: one byte, 0..7)
//   6  the nth next lock fails (n: one byte, 0..7)
#include "config/config.h"
#include "halftone/halftone.h"
#include "platform/win32.h"
#include "q417/host.h"
#include "q417/q417plg.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <unistd.h>

namespace {

int Drop(void *, const void *, uint32_t) {
    return 1;
}

// A description with one paper, one tray and one resolution, in a folder of its own.
struct Description {
    std::filesystem::path dir =
        std::filesystem::temp_directory_path() / ("q417_fuzz_blocks_" + std::to_string(::getpid()));
    std::string path = (dir / "fuzz.pdd").string();
    Description() {
        std::filesystem::create_directories(dir);
        std::ofstream(path) << "*PDD-Lindgate: 1\n"
                               "*Product: \"Fuzz\"\n"
                               "*PageSize A4/A4: 26\n"
                               "*PaperDimension A4: \"595.2 841.8\"\n"
                               "*ImageableArea A4: \"12 12 583 830\"\n"
                               "*InputSlot Tray1/upper: 1\n"
                               "*Resolution 300dpi:\n";
    }
    ~Description() {
        std::error_code ec;
        std::filesystem::remove_all(dir, ec);
    }
};

HANDLE32 Printer() {
    static Description pdd;
    static HANDLE32 h = [] {
        Q417_PRINTER p{};
        p.name = "Fuzz 417";
        p.pdd_path = pdd.path.c_str();
        HANDLE32 printer = Q417_AddPrinter(&p);
        Q417_SetOutputCallback(printer, Drop, nullptr);
        return printer;
    }();
    return h;
}

long ProcessWideBlocks() {
    return (RedXfer ? 3 : 0) + (hCfg ? 1 : 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const HANDLE32 hPrinter = Printer();
    DiscardDeviceInfo(nullptr); // each input reads the configuration afresh
    // A whole job first: what outlives jobs (transfer tables, configuration cache) is then there.
    void *warm = DrvSplStartDoc(hPrinter, 0);
    static uint8_t record[1 + sizeof(SPLDEVINFO)] = {1};
    static uint8_t devmode[1 + sizeof(DDIDEVMODE)] = {2};
    DrvSplWritePrinter(warm, record, sizeof record, nullptr);
    DrvSplWritePrinter(warm, devmode, sizeof devmode, nullptr);
    DrvSplStartPage(warm);
    DrvSplEndPage(warm);
    DrvSplEndDoc(warm);
    DrvSplClose(warm);
    if (!hCfg) std::abort(); // the description must have been read
    const long live = q417::mem::LiveBlocks() - ProcessWideBlocks();

    void *job = DrvSplStartDoc(hPrinter, 1);
    if (!job) std::abort();
    const uint8_t *p = data;
    const uint8_t *end = data + size;
    while (end - p >= 1) {
        const uint8_t op = *p++;
        switch (op % 7) {
        case 0: {
            if (end - p < 2) break;
            size_t n = p[0] | (p[1] << 8);
            p += 2;
            if (static_cast<size_t>(end - p) < n) n = static_cast<size_t>(end - p);
            DWORD written = 0;
            DrvSplWritePrinter(job, p, static_cast<DWORD>(n), &written);
            p += n;
            break;
        }
        case 1:
            DrvSplStartPage(job);
            break;
        case 2:
            DrvSplEndPage(job);
            break;
        case 3:
            DrvSplEndDoc(job);
            break;
        case 4:
            DrvSplAbort(job);
            break;
        case 5:
            if (end - p >= 1) q417::mem::FailAllocation(*p++ % 8);
            break;
        case 6:
            if (end - p >= 1) q417::mem::FailLock(*p++ % 8);
            break;
        }
    }
    q417::mem::FailAllocation(0);
    q417::mem::FailLock(0);
    DrvSplClose(job);
    if (q417::mem::LiveBlocks() - ProcessWideBlocks() != live) std::abort(); // outlived its job
    return 0;
}
