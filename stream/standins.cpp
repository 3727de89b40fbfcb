// Weak stand-ins for calls of the job side, the configuration cache, the device mode helpers
// and the platform's spooler, text and host calls, so that the stream links and runs before
// those land. Each real definition
// replaces its stand-in at link time. The configuration lookups read hCfg as the real ones
// do, so that tests can give a page its paper and tray codes through a CFGINFO.
#include "config/config.h"
#include "ddi/ddi.h"
#include "job/job.h"
#include "q417/host.h"

#include <cstring>
#include <map>
#include <string>

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

// ---- Platform: text ----

Q417_WEAK int lstrlenW(LPCWSTR s) {
    int n = 0;
    while (s && s[n]) ++n;
    return n;
}

// Latin-1 narrowing; enough for the stream's names until the code page tables land.
Q417_WEAK int WideCharToMultiByte(UINT, DWORD, LPCWSTR src, int cch, LPSTR dst, int cb, LPCSTR,
                                  BOOL *) {
    if (!src) return 0;
    int len = cch < 0 ? lstrlenW(src) + 1 : cch;
    if (cb == 0) return len;
    if (!dst || len > cb) return 0;
    for (int i = 0; i < len; ++i) dst[i] = src[i] < 0x100 ? static_cast<char>(src[i]) : '?';
    return len;
}

Q417_WEAK int _wtoi(LPCWSTR s) {
    if (!s) return 0;
    while (*s == u' ' || *s == u'\t') ++s;
    int sign = 1;
    if (*s == u'-' || *s == u'+') sign = (*s++ == u'-') ? -1 : 1;
    long v = 0;
    while (*s >= u'0' && *s <= u'9' && v < 0x7FFFFFFF) v = v * 10 + (*s++ - u'0');
    return static_cast<int>(sign * v);
}

// ---- Platform: spooler and host API, output to a callback only ----

namespace {
struct StandInPrinter {
    std::string name;
    Q417_SINK_FN fn = nullptr;
    void *ctx = nullptr;
};
std::map<HANDLE32, StandInPrinter> &StandInPrinters() {
    static auto *printers = new std::map<HANDLE32, StandInPrinter>;
    return *printers;
}
} // namespace

Q417_WEAK HANDLE32 Q417_AddPrinter(const Q417_PRINTER *printer) {
    static HANDLE32 next = 0x5000;
    if (!printer || !printer->name) return 0;
    StandInPrinters()[++next].name = printer->name;
    return next;
}

Q417_WEAK BOOL Q417_DeletePrinter(HANDLE32 hPrinter) {
    return StandInPrinters().erase(hPrinter) != 0;
}

Q417_WEAK BOOL Q417_SetOutputCallback(HANDLE32 hPrinter, Q417_SINK_FN fn, void *ctx) {
    auto it = StandInPrinters().find(hPrinter);
    if (it == StandInPrinters().end()) return FALSE;
    it->second.fn = fn;
    it->second.ctx = ctx;
    return TRUE;
}

Q417_WEAK BOOL WritePrinter(HANDLE hPrinter, const void *pBuf, DWORD cbBuf, DWORD *pcWritten) {
    if (pcWritten) *pcWritten = 0;
    auto it = StandInPrinters().find(hPrinter);
    if (it == StandInPrinters().end() || !it->second.fn) return FALSE;
    if (!it->second.fn(it->second.ctx, pBuf, cbBuf)) return FALSE;
    if (pcWritten) *pcWritten = cbBuf;
    return TRUE;
}

Q417_WEAK DWORD Q417_InitDevMode(void *buf, DWORD cbBuf, HANDLE32 hPrinter, DWORD cbCustData) {
    auto it = StandInPrinters().find(hPrinter);
    if (!buf || it == StandInPrinters().end() || cbBuf < DDIDEVMODE_SIZE + cbCustData) return 0;
    memset(buf, 0, DDIDEVMODE_SIZE + cbCustData);
    auto *dm = static_cast<DDIDEVMODE *>(buf);
    for (size_t i = 0; i < it->second.name.size() && i < 31; ++i)
        dm->dmDeviceName[i] = static_cast<unsigned char>(it->second.name[i]);
    dm->dmSize = DEVMODEW_SIZE;
    dm->dmDriverExtra = static_cast<WORD>(DDIDEVMODE_EXTRA + cbCustData);
    dm->dmOrientation = 1;
    dm->dmCopies = 1;
    dm->wRecordSize = DDIDEVMODE_SIZE;
    dm->hPrinter = hPrinter;
    dm->bLayout = 1;
    for (DDICOLORCORRECT &cc : dm->ColorCorrect) cc.bLightness = cc.bSaturation = 100;
    return DDIDEVMODE_SIZE + cbCustData;
}
