// Weak stand-ins for calls of subsystems built at the same time; the real definitions
// override them at link time.
#include "ddi/ddi.h"
#include "halftone/halftone.h"
#include "job/job.h"
#include "stream/stream.h"

#define WEAK __attribute__((weak))

// ---- job ----
WEAK BOOL DevWrite(SPLDEVINFO *pInfo, const void *pData, DWORD cbData) {
    if (cbData == 0) return 1;
    if (pInfo->dwDevFlags & DEV_OUTPUT_FAILED) return 0;
    DWORD written = 0;
    BOOL ok = WritePrinter(pInfo->hPrinter, pData, cbData, &written);
    if (!ok) pInfo->dwDevFlags |= DEV_OUTPUT_FAILED;
    return ok;
}
WEAK int ScaleNupHt(SPLDEVINFO *, int value) {
    return value;
}
WEAK int ScaleNupPosX(SPLDEVINFO *, int value) {
    return value;
}
WEAK int ScaleNupPosY(SPLDEVINFO *, int value) {
    return value;
}

// ---- stream ----
WEAK void fSetOutputMode(SPLDEVINFO *pInfo, BYTE mode) {
    pInfo->bOutputMode = mode;
}

// ---- ddi ----
WEAK char *CopyUnicode2Str(char *dst, const WCHAR *src, int) {
    int i = 0;
    for (; src[i]; ++i) dst[i] = src[i] < 256 ? static_cast<char>(src[i]) : '?';
    dst[i] = 0;
    return dst;
}

// ---- halftone transfer tables ----
WEAK BYTE *RedXfer = nullptr;
WEAK BYTE *GrnXfer = nullptr;
WEAK BYTE *BluXfer = nullptr;

// ---- platform ----
WEAK BOOL WritePrinter(HANDLE, const void *, DWORD, DWORD *) {
    return 0;
}
WEAK HANDLE CreateFileW(LPCWSTR, DWORD, DWORD, void *, DWORD, DWORD, HANDLE) {
    return INVALID_HANDLE_VALUE;
}
WEAK BOOL ReadFile(HANDLE, void *, DWORD, DWORD *pRead, void *) {
    if (pRead) *pRead = 0;
    return 0;
}
WEAK DWORD SetFilePointer(HANDLE, LONG, LONG *, DWORD) {
    return INVALID_SET_FILE_POINTER;
}
WEAK DWORD GetFileSize(HANDLE, DWORD *) {
    return INVALID_FILE_SIZE;
}
WEAK BOOL CloseHandle(HANDLE) {
    return 0;
}
WEAK DWORD GetPrivateProfileStringW(LPCWSTR, LPCWSTR, LPCWSTR, LPWSTR out, DWORD n, LPCWSTR) {
    if (out && n) out[0] = 0;
    return 0;
}
WEAK UINT GetWindowsDirectoryW(LPWSTR, UINT) {
    return 0;
}
WEAK WCHAR *wcstok(WCHAR *, const WCHAR *) {
    return nullptr;
}
WEAK int _wtoi(LPCWSTR) {
    return 0;
}
WEAK int _wcsicmp(LPCWSTR a, LPCWSTR b) {
    auto fold = [](WCHAR c) { return (c >= u'A' && c <= u'Z') ? WCHAR(c + 32) : c; };
    while (*a && fold(*a) == fold(*b)) ++a, ++b;
    return fold(*a) - fold(*b);
}
