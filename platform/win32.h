// Host services under their Win32 names and contracts, realised on POSIX.
//
// The library's code is written against these calls exactly as it would be on Windows; this
// header is the one place that knows it runs on Linux. Handles are 32-bit values issued here.
// Pointer fields of the exchange records are 32-bit too: Ptr32From / Ptr32To translate.
#pragma once

#include "q417/wintypes.h"

#include <cstdarg>
#include <cstdint>

// ---- Errors ------------------------------------------------------------------------------

enum : DWORD {
    ERROR_SUCCESS = 0,
    ERROR_FILE_NOT_FOUND = 2,
    ERROR_PATH_NOT_FOUND = 3,
    ERROR_ACCESS_DENIED = 5,
    ERROR_INVALID_HANDLE = 6,
    ERROR_NOT_ENOUGH_MEMORY = 8,
    ERROR_WRITE_FAULT = 29,
    ERROR_FILE_EXISTS = 80,
    ERROR_INVALID_PARAMETER = 87,
    ERROR_INSUFFICIENT_BUFFER = 122,
    ERROR_INVALID_LEVEL = 124,
    ERROR_MOD_NOT_FOUND = 126,
    ERROR_PROC_NOT_FOUND = 127,
    ERROR_NEGATIVE_SEEK = 131,
    ERROR_ALREADY_EXISTS = 183,
    ERROR_FILENAME_EXCED_RANGE = 206,
    ERROR_MORE_DATA = 234,
    ERROR_NO_MORE_ITEMS = 259,
};
DWORD GetLastError();
void SetLastError(DWORD code);

// ---- Global memory -----------------------------------------------------------------------

enum : UINT {
    GMEM_FIXED = 0x0000,
    GMEM_MOVEABLE = 0x0002,
    GMEM_ZEROINIT = 0x0040,
    GHND = GMEM_MOVEABLE | GMEM_ZEROINIT,
};

// GMEM_ZEROINIT clears a new block; without it the content is unspecified. Growth by
// GlobalReAlloc is always cleared.
HGLOBAL GlobalAlloc(UINT uFlags, SIZE_T dwBytes);
HGLOBAL GlobalReAlloc(HGLOBAL hMem, SIZE_T dwBytes, UINT uFlags);
void *GlobalLock(HGLOBAL hMem);
BOOL GlobalUnlock(HGLOBAL hMem);  // TRUE while the block stays locked, as on Windows
HGLOBAL GlobalFree(HGLOBAL hMem); // 0 on success, the handle on failure
HGLOBAL GlobalHandle(const void *pMem);
SIZE_T GlobalSize(HGLOBAL hMem);
UINT GlobalFlags(HGLOBAL hMem); // low byte: lock count

// 32-bit values for host pointers kept in record fields. 0 stands for null. A value stays
// valid until the block that holds the pointed-to byte is freed, or, for a static region,
// for the life of the process.
PTR32 Ptr32From(const void *p);
void *Ptr32To(PTR32 v);
template <class T>
inline T *Ptr32As(PTR32 v) {
    return static_cast<T *>(Ptr32To(v));
}

// Failure injection and accounting, for tests and the host API.
namespace q417::mem {
void FailAllocation(long nth);      // the nth allocation from now fails (1 = next); 0 disarms
void FailLock(long nth);            // likewise for GlobalLock
void FailAllocationsFrom(long nth); // every allocation from the nth on fails
long LiveBlocks();
void Reset(); // frees everything; for tests that start from a clean table
} // namespace q417::mem

// ---- Files -------------------------------------------------------------------------------

enum : DWORD {
    GENERIC_READ = 0x80000000u,
    GENERIC_WRITE = 0x40000000u,
    FILE_SHARE_READ = 1,
    FILE_SHARE_WRITE = 2,
    CREATE_NEW = 1,
    CREATE_ALWAYS = 2,
    OPEN_EXISTING = 3,
    OPEN_ALWAYS = 4,
    TRUNCATE_EXISTING = 5,
    FILE_ATTRIBUTE_NORMAL = 0x80,
    FILE_BEGIN = 0,
    FILE_CURRENT = 1,
    FILE_END = 2,
    INVALID_SET_FILE_POINTER = 0xFFFFFFFFu,
    INVALID_FILE_SIZE = 0xFFFFFFFFu,
};
constexpr HANDLE INVALID_HANDLE_VALUE = 0xFFFFFFFFu;

HANDLE CreateFileW(LPCWSTR lpFileName, DWORD dwDesiredAccess, DWORD dwShareMode,
                   void *lpSecurityAttributes, DWORD dwCreationDisposition,
                   DWORD dwFlagsAndAttributes, HANDLE hTemplateFile);
BOOL ReadFile(HANDLE hFile, void *lpBuffer, DWORD nNumberOfBytesToRead, DWORD *lpNumberOfBytesRead,
              void *lpOverlapped);
BOOL WriteFile(HANDLE hFile, const void *lpBuffer, DWORD nNumberOfBytesToWrite,
               DWORD *lpNumberOfBytesWritten, void *lpOverlapped);
DWORD SetFilePointer(HANDLE hFile, LONG lDistanceToMove, LONG *lpDistanceToMoveHigh,
                     DWORD dwMoveMethod);
DWORD GetFileSize(HANDLE hFile, DWORD *lpFileSizeHigh);
BOOL CloseHandle(HANDLE hObject);

constexpr HFILE HFILE_ERROR = -1;
enum : UINT {
    OF_READ = 0x0000,
    OF_WRITE = 0x0001,
    OF_READWRITE = 0x0002,
    OF_SHARE_DENY_WRITE = 0x0020,
    OF_SHARE_DENY_NONE = 0x0040,
    OF_CREATE = 0x1000,
    OF_EXIST = 0x4000,
};
struct OFSTRUCT {
    BYTE cBytes;
    BYTE fFixedDisk;
    WORD nErrCode;
    WORD Reserved1;
    WORD Reserved2;
    CHAR szPathName[128];
};
// 8-bit paths are in the ANSI code page; a backslash is a directory separator.
HFILE OpenFile(LPCSTR lpFileName, OFSTRUCT *lpReOpenBuff, UINT uStyle);
UINT _lread(HFILE hFile, void *lpBuffer, UINT uBytes);
UINT _lwrite(HFILE hFile, LPCSTR lpBuffer, UINT uBytes); // returns (UINT)HFILE_ERROR on failure
LONG _llseek(HFILE hFile, LONG lOffset, int iOrigin);
HFILE _lclose(HFILE hFile);

// Modification times carry nanoseconds: currency tests compare at the finest resolution.
struct Q417Stat {
    uint64_t st_size;
    int64_t st_mtime_ns;
    uint32_t st_mode; // S_IFREG / S_IFDIR bits as the host gives them
};
int _stat(LPCSTR path, Q417Stat *st); // 0 on success, -1 on failure

// Host path of an 8-bit ANSI or wide Windows-style name: separators turned, text in UTF-8.
namespace q417::path {
bool FromAnsi(LPCSTR name, char *out, size_t cap);
bool FromWide(LPCWSTR name, char *out, size_t cap);
} // namespace q417::path

// ---- Text --------------------------------------------------------------------------------

enum : UINT { CP_ACP = 0, CP_UTF8 = 65001 };

int MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCSTR lpMultiByteStr, int cbMultiByte,
                        LPWSTR lpWideCharStr, int cchWideChar);
int WideCharToMultiByte(UINT CodePage, DWORD dwFlags, LPCWSTR lpWideCharStr, int cchWideChar,
                        LPSTR lpMultiByteStr, int cbMultiByte, LPCSTR lpDefaultChar,
                        BOOL *lpUsedDefaultChar);

int lstrlenW(LPCWSTR s);
LPWSTR lstrcpyW(LPWSTR dst, LPCWSTR src);
LPWSTR lstrcpynW(LPWSTR dst, LPCWSTR src, int cchMax);
LPWSTR lstrcatW(LPWSTR dst, LPCWSTR src);
int lstrcmpiW(LPCWSTR a, LPCWSTR b);
int lstrcmpW(LPCWSTR a, LPCWSTR b);
// Format features: %s (wide), %S (8-bit), %d %i %u %x %X %c %ld %lu %lx, flags '-' '0',
// width, precision for strings, %%. Output is cut at 1024 characters as on Windows.
int wsprintfW(LPWSTR dst, LPCWSTR fmt, ...);
int wvsprintfW(LPWSTR dst, LPCWSTR fmt, va_list ap);
int _wtoi(LPCWSTR s);
int _wcsicmp(LPCWSTR a, LPCWSTR b);
int _wcsnicmp(LPCWSTR a, LPCWSTR b, size_t n);
// strtok over UTF-16, with the same process-wide position as the C library's strtok.
WCHAR *wcstok(WCHAR *str, const WCHAR *delims);

// ---- Profile files -----------------------------------------------------------------------

DWORD GetPrivateProfileStringW(LPCWSTR lpAppName, LPCWSTR lpKeyName, LPCWSTR lpDefault,
                               LPWSTR lpReturnedString, DWORD nSize, LPCWSTR lpFileName);

// ---- Modules -----------------------------------------------------------------------------

typedef void (*FARPROC)();
HMODULE LoadLibraryW(LPCWSTR lpLibFileName);
FARPROC GetProcAddress(HMODULE hModule, LPCSTR lpProcName);
BOOL FreeLibrary(HMODULE hLibModule);
BOOL DisableThreadLibraryCalls(HMODULE hLibModule);
struct CRITICAL_SECTION {
    void *reserved;
};
void InitializeCriticalSection(CRITICAL_SECTION *cs);
UINT GetWindowsDirectoryW(LPWSTR lpBuffer, UINT uSize);

// ---- Spooler -----------------------------------------------------------------------------

struct DRIVER_INFO_1W {
    LPWSTR pName;
};
struct DRIVER_INFO_2W {
    DWORD cVersion;
    LPWSTR pName;
    LPWSTR pEnvironment;
    LPWSTR pDriverPath;
    LPWSTR pDataFile;
    LPWSTR pConfigFile;
};
struct PRINTER_INFO_5W {
    LPWSTR pPrinterName;
    LPWSTR pPortName;
    DWORD Attributes;
    DWORD DeviceNotSelectedTimeout;
    DWORD TransmissionRetryTimeout;
};

BOOL WritePrinter(HANDLE hPrinter, const void *pBuf, DWORD cbBuf, DWORD *pcWritten);
// The two-call protocol: a call with a buffer too small (or none) fails with
// ERROR_INSUFFICIENT_BUFFER and stores the size needed in *pcbNeeded.
BOOL GetPrinterDriverW(HANDLE hPrinter, LPWSTR pEnvironment, DWORD Level, LPBYTE pDriverInfo,
                       DWORD cbBuf, DWORD *pcbNeeded);
BOOL GetPrinterDriverDirectoryW(LPWSTR pName, LPWSTR pEnvironment, DWORD Level,
                                LPBYTE pDriverDirectory, DWORD cbBuf, DWORD *pcbNeeded);
BOOL GetPrinterW(HANDLE hPrinter, DWORD Level, LPBYTE pPrinter, DWORD cbBuf, DWORD *pcbNeeded);
