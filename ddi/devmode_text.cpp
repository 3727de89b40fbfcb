// The device mode's configuration handle, its custom data pointer, and the text helpers that
// every part of the library shares: GetString and the ANSI code page conversions.
#include "ddi/ddi.h"

#include "ddi/cfglock.h"

#include <climits>
#include <cstddef>
#include <cstring>

using namespace q417::ddi;

namespace {

size_t WideLength(const WCHAR *s, size_t cchMax) {
    size_t n = 0;
    while (n < cchMax && s[n] != 0) ++n;
    return n;
}

// The 21 tables a CFGINFO owns; the file version and the orientation commands pass to the
// long-lived copy and are freed there.
constexpr size_t kOwnedTables[] = {
    offsetof(CFGINFO, hResNames),   offsetof(CFGINFO, hResKeys),    offsetof(CFGINFO, hResValues),
    offsetof(CFGINFO, hPaperNames), offsetof(CFGINFO, hPaperKeys),  offsetof(CFGINFO, hPaperCmds),
    offsetof(CFGINFO, hPaperDims),  offsetof(CFGINFO, hPaperIDs),   offsetof(CFGINFO, hTrayNames),
    offsetof(CFGINFO, hTrayKeys),   offsetof(CFGINFO, hTrayCmds),   offsetof(CFGINFO, hTrayIDs),
    offsetof(CFGINFO, hModelName),  offsetof(CFGINFO, hPlugIn),     offsetof(CFGINFO, hDestNames),
    offsetof(CFGINFO, hDestKeys),   offsetof(CFGINFO, hMediaNames), offsetof(CFGINFO, hMediaKeys),
    offsetof(CFGINFO, hResCmds),    offsetof(CFGINFO, hDestCmds),   offsetof(CFGINFO, hMediaCmds),
};
static_assert(sizeof kOwnedTables / sizeof kOwnedTables[0] == 21);

} // namespace

int GetStringN(const WCHAR *src, size_t cchMax, WCHAR *dst, int capacity) {
    if (!src || capacity < 0) return 0;
    size_t len = WideLength(src, cchMax);
    // A text longer than any capacity can only be asked for its size; say INT_MAX then.
    int n = len >= static_cast<size_t>(INT_MAX) ? INT_MAX : static_cast<int>(len) + 1;
    if (capacity == 0) return n;
    if (!dst) return 0;
    int m = n < capacity ? n : capacity;
    // Copy m characters, the last of them replaced by the terminator: the source holds only
    // len readable characters when it fills its row.
    std::memcpy(dst, src, static_cast<size_t>(m - 1) * sizeof(WCHAR));
    dst[m - 1] = 0;
    return m;
}

int GetString(const WCHAR *src, WCHAR *dst, int capacity) {
    return GetStringN(src, SIZE_MAX, dst, capacity);
}

WCHAR *strcpy2WChar(WCHAR *dst, const char *src) {
    if (!dst || !src) return dst;
    // Every byte gives at most one wide character, so the source's size bounds the output.
    size_t cb = std::strlen(src) + 1;
    if (cb > INT_MAX) return dst;
    MultiByteToWideChar(CP_ACP, 0, src, -1, dst, static_cast<int>(cb));
    return dst;
}

WCHAR *strncpy2WChar(WCHAR *dst, char *src, int n) {
    if (!dst || !src) return dst;
    if (n > 0 && strnlen(src, static_cast<size_t>(n)) == static_cast<size_t>(n)) {
        // Cut the source for the length of the conversion.
        char saved = src[n - 1];
        src[n - 1] = 0;
        MultiByteToWideChar(CP_ACP, 0, src, -1, dst, n);
        src[n - 1] = saved;
        return dst;
    }
    return strcpy2WChar(dst, src);
}

char *CopyUnicode2Str(char *dst, const WCHAR *src, int n) {
    if (!dst || !src) return dst;
    if (n >= 1) {
        WideCharToMultiByte(CP_ACP, 0, src, n, dst, n, nullptr, nullptr);
        dst[n - 1] = 0;
        return dst;
    }
    int cb = WideCharToMultiByte(CP_ACP, 0, src, -1, nullptr, 0, nullptr, nullptr);
    if (cb <= 0) return dst;
    cb = WideCharToMultiByte(CP_ACP, 0, src, -1, dst, cb, nullptr, nullptr);
    if (cb > 0) dst[cb - 1] = 0;
    return dst;
}

void CopyStringA(char *dst, const char *src, int n) {
    if (!dst || n <= 0) return;
    int i = 0;
    if (src)
        for (; i < n - 1 && src[i] != 0; ++i) dst[i] = src[i];
    std::memset(dst + i, 0, static_cast<size_t>(n - i));
}

int GetPrinterDriverDataFile(HANDLE32 hPrinter, WCHAR *dst) {
    DWORD cbNeeded = 0;
    GetPrinterDriverW(hPrinter, nullptr, 2, nullptr, 0, &cbNeeded);
    HGLOBAL h = GlobalAlloc(GHND, cbNeeded);
    if (!h) return 0;
    int result = 0;
    {
        GlobalLockGuard lock(h);
        if (lock) {
            DWORD cb = 0;
            result = GetPrinterDriverW(hPrinter, nullptr, 2, lock.get(),
                                       static_cast<DWORD>(lock.size()), &cb);
            auto *info = reinterpret_cast<const DRIVER_INFO_2W *>(lock.get());
            // The callers' buffers hold 400 wide characters.
            if (result && dst && info->pDataFile) GetStringN(info->pDataFile, SIZE_MAX, dst, 400);
        }
    }
    GlobalFree(h);
    return result;
}

HANDLE32 DDIGetPrinterHandle(const DDIDEVMODE *pdm) {
    return pdm ? pdm->hPrinter : 0;
}

HGLOBAL DDIStartup(DDIDEVMODE *pdm) {
    if (!pdm) return 0;
    // The old value is the sender's or the cache's: it is not this record's to free.
    pdm->hConfig = GlobalAlloc(GHND, CFGINFO_SIZE);
    return pdm->hConfig;
}

void FreeConfigTables(CFGINFO *cfg) {
    if (!cfg) return;
    for (size_t off : kOwnedTables) {
        HGLOBAL h = ReadAt<HGLOBAL>(cfg, off);
        if (h) GlobalFree(h);
        WriteAt<HGLOBAL>(cfg, off, 0);
    }
}

HGLOBAL DDIShutdown(DDIDEVMODE *pdm) {
    if (!pdm) return 0;
    HGLOBAL h = pdm->hConfig;
    if (h == 0 || h == pdm->hCfgCache) return h;
    bool freeBlock = false;
    // The tables are found only through the block, so a lock that fails once is asked for
    // again before they are given up.
    for (int attempt = 0; attempt < 2 && !freeBlock; ++attempt) {
        CfgLock cfg(pdm);
        if (cfg) {
            FreeConfigTables(cfg.get());
            freeBlock = true;
        }
    }
    if (freeBlock) GlobalFree(h);
    pdm->hConfig = pdm->hCfgCache;
    return pdm->hConfig;
}

void SetCustDataPtr(DDIDEVMODE *pdm) {
    if (!pdm) return;
    unsigned total = unsigned(pdm->dmSize) + unsigned(pdm->dmDriverExtra);
    pdm->pCustData =
        total > DDIDEVMODE_SIZE ? Ptr32From(reinterpret_cast<BYTE *>(pdm) + DDIDEVMODE_SIZE) : 0;
}
