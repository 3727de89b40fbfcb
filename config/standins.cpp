// Weak stand-ins for calls that other branches build; the real definitions override them.
#include "config/config.h"
#include "ddi/ddi.h"
#include "job/job.h"
#include "pdd/pdd.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <initializer_list>

#define WEAK __attribute__((weak))

WEAK CUSTDLL CustDLL;
WEAK int FillFunctionTable(HANDLE32) {
    return 0;
}
WEAK void FreeFunctionTable() {}

WEAK HANDLE32 DDIGetPrinterHandle(const DDIDEVMODE *pdm) {
    return pdm ? pdm->hPrinter : 0;
}
WEAK int GetPrinterDriverDataFile(HANDLE32, WCHAR *) {
    return 0;
}
WEAK HGLOBAL DDIStartup(DDIDEVMODE *pdm) {
    if (!pdm) return 0;
    pdm->hConfig = GlobalAlloc(GHND, CFGINFO_SIZE);
    return pdm->hConfig;
}
WEAK HGLOBAL DDIShutdown(DDIDEVMODE *pdm) {
    if (!pdm || !pdm->hConfig || pdm->hConfig == pdm->hCfgCache) return 0;
    if (auto *c = static_cast<CFGINFO *>(GlobalLock(pdm->hConfig))) {
        for (HGLOBAL h :
             {c->hResNames,  c->hResKeys,    c->hResValues, c->hPaperNames, c->hPaperKeys,
              c->hPaperCmds, c->hPaperDims,  c->hPaperIDs,  c->hTrayNames,  c->hTrayKeys,
              c->hTrayCmds,  c->hTrayIDs,    c->hModelName, c->hPlugIn,     c->hDestNames,
              c->hDestKeys,  c->hMediaNames, c->hMediaKeys, c->hResCmds,    c->hDestCmds,
              c->hMediaCmds})
            if (h) GlobalFree(h);
        GlobalUnlock(pdm->hConfig);
        GlobalFree(pdm->hConfig);
    }
    pdm->hConfig = pdm->hCfgCache;
    return pdm->hConfig;
}

WEAK HGLOBAL PDD_Startup() {
    return 0;
}
WEAK int PDD_ParseFile(HGLOBAL, LPCWSTR) {
    return PDD_NO_FILE;
}
WEAK int PDD_Shutdown(HGLOBAL) {
    return 1;
}

// File handles are descriptors moved up by 0x100, as the description parser's stand-ins
// (_lread, _llseek) expect them.
constexpr int kBias = 0x100;
WEAK HFILE OpenFile(LPCSTR name, OFSTRUCT *, UINT style) {
    int flags = (style & OF_CREATE) ? O_CREAT | O_TRUNC | O_WRONLY
                : (style & OF_WRITE)  ? O_WRONLY
                                      : O_RDONLY;
    int fd = open(name, flags | O_CLOEXEC, 0644);
    return fd < 0 ? HFILE_ERROR : fd + kBias;
}
WEAK UINT _lwrite(HFILE h, LPCSTR p, UINT n) {
    ssize_t r = write(h - kBias, p, n);
    return r < 0 ? UINT(HFILE_ERROR) : UINT(r);
}
WEAK HFILE _lclose(HFILE h) { return close(h - kBias) == 0 ? 0 : HFILE_ERROR; }
WEAK int _stat(LPCSTR path, Q417Stat *st) {
    struct stat s;
    if (stat(path, &s) != 0) return -1;
    st->st_size = uint64_t(s.st_size);
    st->st_mtime_ns = int64_t(s.st_mtim.tv_sec) * 1000000000 + s.st_mtim.tv_nsec;
    st->st_mode = s.st_mode;
    return 0;
}

WEAK int WideCharToMultiByte(UINT, DWORD, LPCWSTR src, int cch, LPSTR dst, int cb, LPCSTR,
                             BOOL *lossy) {
    if (cch < 0) cch = lstrlenW(src) + 1;
    if (cch > cb) return 0;
    if (lossy) *lossy = FALSE;
    for (int i = 0; i < cch; ++i) {
        if (src[i] > 0xFF && lossy) *lossy = TRUE;
        dst[i] = char(src[i] > 0xFF ? '?' : src[i]);
    }
    return cch;
}
WEAK int lstrlenW(LPCWSTR s) {
    int n = 0;
    while (s && s[n]) ++n;
    return n;
}
WEAK int lstrcmpiW(LPCWSTR a, LPCWSTR b) {
    auto low = [](WCHAR c) { return c >= u'A' && c <= u'Z' ? WCHAR(c + 32) : c; };
    for (;; ++a, ++b) {
        WCHAR x = low(*a), y = low(*b);
        if (x != y || !x) return int(x) - int(y);
    }
}
WEAK int _wtoi(LPCWSTR s) {
    while (*s == u' ' || *s == u'\t') ++s;
    bool neg = *s == u'-';
    if (*s == u'-' || *s == u'+') ++s;
    int v = 0;
    for (; *s >= u'0' && *s <= u'9'; ++s) v = v * 10 + (*s - u'0');
    return neg ? -v : v;
}
