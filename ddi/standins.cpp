// Stand-ins for platform calls that land with the platform layer; the real ones override them.
#include "platform/win32.h"

__attribute__((weak)) int MultiByteToWideChar(UINT, DWORD, LPCSTR src, int cb, LPWSTR dst,
                                              int cch) {
    if (!src) return 0;
    int n = 0;
    for (; cb < 0 ? true : n < cb; ++n) {
        if (cch > 0) {
            if (n >= cch) return 0;
            dst[n] = static_cast<unsigned char>(src[n]);
        }
        if (cb < 0 && src[n] == 0) return n + 1;
    }
    return n;
}

__attribute__((weak)) int WideCharToMultiByte(UINT, DWORD, LPCWSTR src, int cch, LPSTR dst, int cb,
                                              LPCSTR, BOOL *) {
    if (!src) return 0;
    int n = 0;
    for (; cch < 0 ? true : n < cch; ++n) {
        if (cb > 0) {
            if (n >= cb) return 0;
            dst[n] = static_cast<char>(src[n] < 256 ? src[n] : '?');
        }
        if (cch < 0 && src[n] == 0) return n + 1;
    }
    return n;
}

__attribute__((weak)) BOOL GetPrinterDriverW(HANDLE, LPWSTR, DWORD, LPBYTE, DWORD,
                                             DWORD *pcbNeeded) {
    if (pcbNeeded) *pcbNeeded = 0;
    return FALSE;
}

__attribute__((weak)) BOOL GetPrinterW(HANDLE, DWORD, LPBYTE, DWORD, DWORD *pcbNeeded) {
    if (pcbNeeded) *pcbNeeded = 0;
    return FALSE;
}
