// The settings interface over device modes and configurations made of arbitrary bytes: every
// id, every keyword list, every text id, with indices and capacities at and past the edges.
// Tables are blocks of arbitrary size behind arbitrary counts and widths; nothing may be read
// past a block (ASan) nor written past a caller's capacity (the sentinel check below).
//
// Input: 404 bytes of device mode, 343 bytes of CFGINFO, then per table handle a u16 block
// size and that many bytes of content (short input: zeros), then u32 values for the setters.
// The device mode's reserved bytes 400-403 arm a failing lock and a failing allocation.
#include "ddi/ddi.h"
#include "q417/q417plg.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

namespace {

struct Input {
    const uint8_t *p, *end;
    void take(void *dst, size_t n) {
        size_t have = static_cast<size_t>(end - p) < n ? static_cast<size_t>(end - p) : n;
        if (have) std::memcpy(dst, p, have);
        std::memset(static_cast<uint8_t *>(dst) + have, 0, n - have);
        p += have;
    }
    uint32_t u32() {
        uint32_t v;
        take(&v, 4);
        return v;
    }
    uint16_t u16() {
        uint16_t v;
        take(&v, 2);
        return v;
    }
};

HGLOBAL BlockFrom(Input &in) {
    uint16_t size = in.u16();
    HGLOBAL h = GlobalAlloc(GHND, size);
    if (h) {
        in.take(GlobalLock(h), size);
        GlobalUnlock(h);
    }
    return h;
}

constexpr size_t kTables[] = {
    offsetof(CFGINFO, hResKeys),   offsetof(CFGINFO, hResNames),  offsetof(CFGINFO, hResCmds),
    offsetof(CFGINFO, hResValues), offsetof(CFGINFO, hPaperKeys), offsetof(CFGINFO, hPaperNames),
    offsetof(CFGINFO, hPaperCmds), offsetof(CFGINFO, hPaperDims), offsetof(CFGINFO, hPaperIDs),
    offsetof(CFGINFO, hTrayKeys),  offsetof(CFGINFO, hTrayNames), offsetof(CFGINFO, hTrayCmds),
    offsetof(CFGINFO, hTrayIDs),   offsetof(CFGINFO, hDestKeys),  offsetof(CFGINFO, hDestNames),
    offsetof(CFGINFO, hDestCmds),  offsetof(CFGINFO, hMediaKeys), offsetof(CFGINFO, hMediaNames),
    offsetof(CFGINFO, hMediaCmds), offsetof(CFGINFO, hPlugIn),    offsetof(CFGINFO, hModelName),
};
constexpr size_t kOtherHandles[] = {offsetof(CFGINFO, hPDD), offsetof(CFGINFO, hFileVersion),
                                    offsetof(CFGINFO, hPortraitCmd),
                                    offsetof(CFGINFO, hLandscapeCmd)};

constexpr int kBuf = 80;
constexpr WCHAR kSentinel = 0xBEEF;

// Calls fn with a sentinel-filled buffer and each capacity; aborts when a call writes past it.
template <class F>
void WithCapacities(F fn) {
    for (int cap : {0, 1, 2, 5, 24, 25, 64, kBuf}) {
        WCHAR buf[kBuf];
        for (WCHAR &c : buf) c = kSentinel;
        fn(buf, cap);
        for (int i = cap; i < kBuf; ++i)
            if (buf[i] != kSentinel) std::abort();
    }
}

uint16_t ReservedWord(const DDIDEVMODE &dm, size_t off) {
    uint16_t v;
    std::memcpy(&v, reinterpret_cast<const BYTE *>(&dm) + off, sizeof v);
    return v;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input in{data, data + size};
    long live0 = q417::mem::LiveBlocks();

    struct {
        DDIDEVMODE dm;
        BYTE cust[32];
    } rec;
    in.take(&rec, sizeof rec.dm);
    std::memset(rec.cust, 0, sizeof rec.cust);
    CFGINFO cfg;
    in.take(&cfg, sizeof cfg);
    for (size_t off : kOtherHandles) std::memset(reinterpret_cast<BYTE *>(&cfg) + off, 0, 4);
    for (size_t off : kTables) {
        HGLOBAL h = BlockFrom(in);
        std::memcpy(reinterpret_cast<BYTE *>(&cfg) + off, &h, 4);
    }
    HGLOBAL hCfg = GlobalAlloc(GHND, sizeof cfg);
    std::memcpy(GlobalLock(hCfg), &cfg, sizeof cfg);
    GlobalUnlock(hCfg);

    SPLDEVINFO info{};
    info.nPage = 3;
    DDIDEVMODE &dm = rec.dm;
    bool bare = (dm.bCfgFlags & 0x80) != 0; // now and then no configuration at all
    dm.hConfig = bare ? 0 : hCfg;
    dm.hJobName = BlockFrom(in);
    dm.hCfgCache = 0;
    dm.pJobInfo = (dm.bJobStatus & 1) ? Ptr32From(&info) : 0;
    SetCustDataPtr(&dm);

    // Two reserved words of the record, which nothing reads, pick the lock and the allocation
    // that fail, so that the paths of a failed lock are walked too.
    q417::mem::FailLock(ReservedWord(dm, 400));
    q417::mem::FailAllocation(ReservedWord(dm, 402));

    for (DWORD id = 0; id <= 80; ++id) DDIGetDWord(&dm, id);
    for (DWORD id = 0; id <= 80; ++id) {
        DDISetDWord(&dm, id, in.u32());
        DDIGetDWord(&dm, id);
    }

    const INT indices[] = {-1, 0, 1, 2, 3, 7, 255, 0x7FFFFFFF, INT(0x80000000)};
    for (DWORD id : {9u, 10u, 11u, 17u, 18u, 19u, 20u, 21u}) {
        INT n = DDIGetKeywordNumOptions(&dm, id);
        DDIGetKeywordDefaultOption(&dm, id);
        for (INT index : indices) {
            for (INT i : {index, INT(uint32_t(n) - 1), n})
                WithCapacities([&](WCHAR *buf, int cap) {
                    DWORD len = DWORD(cap);
                    DDIGetKeywordOptionString(&dm, id, i, buf, &len);
                    len = DWORD(cap);
                    DDIGetKeywordOptionTranslation(&dm, id, i, buf, &len);
                });
        }
    }
    for (DWORD id : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 75u})
        WithCapacities([&](WCHAR *buf, int cap) {
            DWORD len = DWORD(cap);
            DDIGetString(&dm, id, buf, &len);
        });
    for (INT index : indices) {
        DWORD v[6];
        DDIGetPaperDimensions(&dm, index, &v[0], &v[1], &v[2], &v[3], &v[4], &v[5]);
        DDISetPaperSize(&dm, index);
    }
    DDISetCustomPageSize(&dm, INT(in.u32()), INT(in.u32()));
    SetCustomSizeFields(&dm, nullptr);
    void *cust;
    DDIGetCustDataPtr(&dm, &cust);
    DDISetDialogResult(&dm, in.u32() & 3);

    q417::mem::FailLock(0);
    q417::mem::FailAllocation(0);
    GlobalFree(dm.hJobName);
    dm.hConfig = hCfg;
    dm.hCfgCache = 0;
    DDIShutdown(&dm);
    if (q417::mem::LiveBlocks() != live0) std::abort();
    return 0;
}
