// The texts of the settings interface: device, plug-in, model and job names and the port. All
// of them leave through GetString, so capacity 0 asks for the size.
#include "ddi/ddi.h"

#include "ddi/cfglock.h"

#include <string>

using namespace q417::ddi;

namespace {

// Text of a global block of wide characters, read no further than the block.
INT WideBlockText(HGLOBAL h, WCHAR *pBuf, INT capacity) {
    GlobalLockGuard lock(h);
    if (!lock) return 0;
    return GetStringN(reinterpret_cast<const WCHAR *>(lock.get()), lock.size() / sizeof(WCHAR),
                      pBuf, capacity);
}

// An 8-bit text of at most cbMax bytes, possibly unterminated, in the ANSI code page.
INT NarrowText(const char *src, size_t cbMax, WCHAR *pBuf, INT capacity) {
    size_t len = 0;
    while (len < cbMax && src[len] != 0) ++len;
    std::string narrow(src, len);
    std::u16string wide(len + 1, u'\0');
    strcpy2WChar(wide.data(), narrow.c_str());
    return GetString(wide.c_str(), pBuf, capacity);
}

} // namespace

INT DDIGetDeviceName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity) {
    if (!pdm) return 0;
    return GetStringN(pdm->dmDeviceName, 32, pBuf, capacity);
}

INT DDIGetPlugInName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity) {
    CfgLock cfg(pdm);
    if (!cfg) return 0;
    return WideBlockText(cfg->hPlugIn, pBuf, capacity);
}

INT DDIGetCfgModelName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity) {
    CfgLock cfg(pdm);
    if (!cfg) return 0;
    GlobalLockGuard model(cfg->hModelName);
    if (!model) return 0;
    return NarrowText(reinterpret_cast<const char *>(model.get()), model.size(), pBuf, capacity);
}

INT DDIGetModelName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity) {
    if (!pdm) return 0;
    return NarrowText(pdm->szModelName, sizeof pdm->szModelName - 1, pBuf, capacity);
}

INT DDIGetJobName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity) {
    if (!pdm) return 0;
    return WideBlockText(pdm->hJobName, pBuf, capacity);
}

INT DDIGetDevicePort(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity) {
    if (capacity < 0 || (capacity != 0 && !pBuf)) return 0;
    HANDLE32 hPrinter = DDIGetPrinterHandle(pdm);
    DWORD cbNeeded = 0;
    GetPrinterW(hPrinter, 5, nullptr, 0, &cbNeeded);
    HGLOBAL h = GlobalAlloc(GHND, cbNeeded);
    if (!h) return 0;
    INT result = 0;
    {
        GlobalLockGuard lock(h);
        DWORD cb = 0;
        if (lock && GetPrinterW(hPrinter, 5, lock.get(), static_cast<DWORD>(lock.size()), &cb)) {
            auto *info = reinterpret_cast<const PRINTER_INFO_5W *>(lock.get());
            result = GetString(info->pPortName, pBuf, capacity);
        }
    }
    GlobalFree(h);
    return result;
}
