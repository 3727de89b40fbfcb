// Weak stand-ins for calls of the job side, the configuration cache and the device mode
// helpers, so that the stream links and runs before those land. Each real definition
// replaces its stand-in at link time. The configuration lookups read hCfg as the real ones
// do, so that tests can give a page its paper and tray codes through a CFGINFO.
#include "config/config.h"
#include "ddi/ddi.h"
#include "job/job.h"

#include <cstring>

#define Q417_WEAK __attribute__((weak))

// ---- Job side ----

Q417_WEAK char CustCmdBuf[1024];
Q417_WEAK CUSTDLL CustDLL;

Q417_WEAK BOOL DevWrite(SPLDEVINFO *pInfo, const void *pData, DWORD cbData) {
    if (cbData == 0) return TRUE;
    if (!pInfo || (pInfo->dwDevFlags & DEV_OUTPUT_FAILED)) return FALSE;
    DWORD written = 0;
    BOOL ok = WritePrinter(pInfo->hPrinter, pData, cbData, &written);
    if (!ok) pInfo->dwDevFlags |= DEV_OUTPUT_FAILED;
    return ok;
}

// ---- Configuration cache ----

Q417_WEAK HGLOBAL hCfg;

namespace {

// Locks hCfg for a lookup, after putting it into the device mode's hCfgCache.
struct CfgLock {
    explicit CfgLock(DDIDEVMODE *pdm) {
        if (!pdm) return;
        pdm->hCfgCache = hCfg;
        if (hCfg) cfg = static_cast<CFGINFO *>(GlobalLock(hCfg));
    }
    ~CfgLock() {
        if (cfg) GlobalUnlock(hCfg);
    }
    CFGINFO *cfg = nullptr;
};

int CodeAt(HGLOBAL hRows, DWORD cchRow, DWORD nRows, int row) {
    if (row < 0 || static_cast<DWORD>(row) >= nRows || !hRows) return 0;
    const WCHAR *rows = static_cast<const WCHAR *>(GlobalLock(hRows));
    if (!rows) return 0;
    int code = _wtoi(rows + static_cast<size_t>(row) * cchRow);
    GlobalUnlock(hRows);
    return code;
}

int CopyText(HGLOBAL hText, DWORD cb, char *dst) {
    const char *text = static_cast<const char *>(GlobalLock(hText));
    if (!text) return 0;
    if (cb > 1023) cb = 1023;
    memcpy(dst, text, cb);
    dst[cb] = 0;
    GlobalUnlock(hText);
    return static_cast<int>(cb);
}

} // namespace

Q417_WEAK int GetPaperSelect(DDIDEVMODE *pdm, int row) {
    CfgLock lock(pdm);
    if (!lock.cfg) return 0;
    return CodeAt(lock.cfg->hPaperCmds, lock.cfg->cchPaperCmd, lock.cfg->nPapers, row);
}

Q417_WEAK int GetTraySelect(DDIDEVMODE *pdm, int row) {
    CfgLock lock(pdm);
    if (!lock.cfg) return 0;
    return CodeAt(lock.cfg->hTrayCmds, lock.cfg->cchTrayCmd, lock.cfg->nTrays, row);
}

Q417_WEAK int GetPDDVersionString(DDIDEVMODE *pdm, char *dst) {
    CfgLock lock(pdm);
    if (!lock.cfg || !lock.cfg->hFileVersion) return 0;
    const char *text = static_cast<const char *>(GlobalLock(lock.cfg->hFileVersion));
    if (!text) return 0;
    strncpy(dst, text, 40);
    GlobalUnlock(lock.cfg->hFileVersion);
    return 40;
}

Q417_WEAK int GetPJLOrientString(DDIDEVMODE *pdm, char *dst) {
    CfgLock lock(pdm);
    if (!lock.cfg) return 0;
    if (pdm->dmOrientation == 1 && lock.cfg->hPortraitCmd)
        return CopyText(lock.cfg->hPortraitCmd, lock.cfg->cbPortraitCmd, dst);
    if (pdm->dmOrientation == 2 && lock.cfg->hLandscapeCmd)
        return CopyText(lock.cfg->hLandscapeCmd, lock.cfg->cbLandscapeCmd, dst);
    return 0;
}

// ---- Device mode helpers ----

Q417_WEAK void SetCustDataPtr(DDIDEVMODE *pdm) {
    if (!pdm) return;
    if (static_cast<DWORD>(pdm->dmSize) + pdm->dmDriverExtra > DDIDEVMODE_SIZE)
        pdm->pCustData = Ptr32From(reinterpret_cast<BYTE *>(pdm) + DDIDEVMODE_SIZE);
    else
        pdm->pCustData = 0;
}

Q417_WEAK char *CopyUnicode2Str(char *dst, const WCHAR *src, int n) {
    if (n < 1) {
        WideCharToMultiByte(CP_ACP, 0, src, -1, dst, 0x7FFFFFFF, nullptr, nullptr);
        return dst;
    }
    WideCharToMultiByte(CP_ACP, 0, src, n, dst, n, nullptr, nullptr);
    dst[n - 1] = 0;
    return dst;
}
