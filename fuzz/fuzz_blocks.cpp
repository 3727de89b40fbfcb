// The tagged-block channel and the page entries under any sequence of blocks, calls and failed
// allocations. A job must end with every block it took released. Blocks that belong to the
// process are not the job's: the transfer tables, and a configuration block whose first lock
// failed, which stays cached, empty.
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

namespace {

int Drop(void *, const void *, uint32_t) {
    return 1;
}

HANDLE32 Printer() {
    static HANDLE32 h = [] {
        Q417_PRINTER p{};
        p.name = "Fuzz 417";
        p.pdd_path = "/nonexistent/fuzz.pdd";
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
    DiscardDeviceInfo(nullptr); // each input starts without a cached configuration
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
