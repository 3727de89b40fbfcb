// The process-wide configuration cache and the lookups of the job side: paper and tray codes,
// the description's version text and the PJL orientation text.
#include "config/cfg_internal.h"
#include "config/config.h"
#include "ddi/ddi.h"
#include "job/job.h"
#include "q417/q417plg.h"

#include <algorithm>
#include <iterator>

using namespace q417::cfg;

HGLOBAL hCfg = 0;
WCHAR DataBuf[400];

namespace {

// Every lookup starts alike: refresh hCfgCache, then read the locked cache.
template <class F>
int WithCache(DDIDEVMODE *pdm, F &&lookup) {
    if (!pdm) return 0;
    pdm->hCfgCache = hCfg;
    if (!hCfg) return 0;
    Locked cfg(hCfg);
    if (!cfg) return 0;
    return lookup(*cfg.As<CFGINFO>());
}

// The number in row `row` of a wide table. A row that fills its width has no terminator, so
// the text is taken only up to the row's end.
int RowNumber(HGLOBAL hTable, DWORD cchRow, int row) {
    if (!cchRow) return 0;
    Locked t(hTable);
    if (!t) return 0;
    uint64_t at = uint64_t(row) * cchRow * 2;
    if (at + uint64_t(cchRow) * 2 > GlobalSize(hTable)) return 0;
    WCHAR text[64] = {};
    std::memcpy(text, t.As() + at, std::min<size_t>(cchRow, std::size(text) - 1) * 2);
    return _wtoi(text);
}

// After a copy that failed: the blocks that were to pass to it and didn't are freed with the
// working record, as nothing else would free them. The lock is asked for twice: the record is
// the only way to them.
void ReleaseUnpassedBlocks(DDIDEVMODE *pdm, const void *pCopy) {
    Locked first(pdm->hConfig);
    Locked again(first ? 0 : pdm->hConfig);
    const Locked &src = first ? first : again;
    if (!src) return;
    auto *s = src.As<CFGINFO>();
    for (size_t off : kPassedBlocks) {
        HGLOBAL h = GetU32(s, off);
        if (!h || GetU32(static_cast<const CFGINFO *>(pCopy), off) == h) continue;
        GlobalFree(h);
        SetU32(s, off, 0);
    }
}

} // namespace

extern "C" Q417_API BOOL GetConfig(DDIDEVMODE *pdm, void *pCfgInfo) {
    if (!pdm || !pCfgInfo) return 0;
    int loaded = FillFunctionTable(DDIGetPrinterHandle(pdm));
    DDIStartup(pdm);
    DataBuf[0] = 0;
    bool havePath = GetPrinterDriverDataFile(DDIGetPrinterHandle(pdm), DataBuf) && DataBuf[0];
    if (havePath && !DDIReadCfgFile(pdm, DataBuf)) {
        // The working block goes too, so that a retry at each page leaks nothing.
        DDIShutdown(pdm);
        if (loaded) FreeFunctionTable();
        return 0;
    }
    if (CustDLL.OEM_GetConfig) CustDLL.OEM_GetConfig(pdm, pCfgInfo);
    if (!CFGCopyInfo(pdm, pCfgInfo)) ReleaseUnpassedBlocks(pdm, pCfgInfo);
    if (havePath && CustDLL.OEM_BidiGetPrinterData) CustDLL.OEM_BidiGetPrinterData(pdm, pCfgInfo);
    DDIShutdown(pdm);
    if (loaded) FreeFunctionTable();
    return 1;
}

int RetrieveDeviceInfo(DDIDEVMODE *pdm) {
    if (!pdm) return 0;
    if (hCfg) {
        pdm->hCfgCache = hCfg;
        return 1;
    }
    hCfg = GlobalAlloc(GHND, CFGINFO_SIZE);
    pdm->hCfgCache = hCfg;
    if (!hCfg) return 0;
    void *p = GlobalLock(hCfg);
    if (!p) {
        // An empty cache would stand for the printer in every later job.
        GlobalFree(hCfg);
        hCfg = 0;
        pdm->hCfgCache = 0;
        return 0;
    }
    int ok = GetConfig(pdm, p);
    GlobalUnlock(hCfg);
    if (!ok) DiscardDeviceInfo(pdm);
    return ok;
}

void DiscardDeviceInfo(DDIDEVMODE *pdm) {
    if (!hCfg) return;
    // The tables are found only through the block, so a lock that fails once is asked for
    // again before they are given up; the block itself goes in any case.
    auto *p = static_cast<CFGINFO *>(GlobalLock(hCfg));
    if (!p) p = static_cast<CFGINFO *>(GlobalLock(hCfg));
    if (p) {
        // The copy owns its 21 tables and the three blocks that passed to it.
        FreeCfgTables(p);
        GlobalUnlock(hCfg);
    }
    GlobalFree(hCfg);
    hCfg = 0;
    if (pdm) pdm->hCfgCache = 0;
}

int GetPaperSelect(DDIDEVMODE *pdm, int row) {
    return WithCache(pdm, [row](const CFGINFO &c) {
        if (row < 0 || DWORD(row) >= c.nPapers) return 0;
        return RowNumber(c.hPaperCmds, c.cchPaperCmd, row);
    });
}

int GetTraySelect(DDIDEVMODE *pdm, int row) {
    return WithCache(pdm, [row](const CFGINFO &c) {
        if (row < 0 || DWORD(row) >= c.nTrays) return 0;
        return RowNumber(c.hTrayCmds, c.cchTrayCmd, row);
    });
}

int GetPDDVersionString(DDIDEVMODE *pdm, char *dst) {
    if (!dst) return 0;
    return WithCache(pdm, [dst](const CFGINFO &c) {
        if (!c.hFileVersion) return 0;
        Locked v(c.hFileVersion);
        if (!v) return 0;
        // strncpy of 40 bytes, bounded by the block: one read from the binary file has 32.
        size_t n = std::min<SIZE_T>(40, GlobalSize(c.hFileVersion));
        const char *src = v.As<char>();
        std::memset(dst, 0, 41);
        for (size_t i = 0; i < n && src[i]; ++i) dst[i] = src[i];
        return 40;
    });
}

int GetPJLOrientString(DDIDEVMODE *pdm, char *dst) {
    if (!dst) return 0;
    return WithCache(pdm, [pdm, dst](const CFGINFO &c) {
        HGLOBAL h = 0;
        DWORD cb = 0;
        if (pdm->dmOrientation == 1) h = c.hPortraitCmd, cb = c.cbPortraitCmd;
        if (pdm->dmOrientation == 2) h = c.hLandscapeCmd, cb = c.cbLandscapeCmd;
        if (!h) return 0;
        Locked t(h);
        if (!t) return 0;
        size_t n = std::min<size_t>({cb, GlobalSize(h), size_t(kOrientTextCap - 1)});
        std::memcpy(dst, t.As(), n);
        dst[n] = 0;
        return int(n);
    });
}
