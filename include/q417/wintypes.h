/* Fixed-width Windows types as the library's records and calls use them.
 *
 * Handles and the records' pointer fields are 32-bit values on the wire; the platform
 * layer issues them and maps them back to host objects, so a 64-bit host never has to
 * squeeze a pointer into 32 bits. Wide text is UTF-16 (char16_t). */
#ifndef Q417_WINTYPES_H
#define Q417_WINTYPES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t BOOL;
typedef uint8_t BYTE;
typedef uint16_t WORD;
typedef uint32_t DWORD;
typedef int32_t LONG;
typedef uint32_t UINT;
typedef int32_t INT;
typedef int16_t SHORT;
typedef uint16_t USHORT;
typedef char CHAR;
typedef char16_t WCHAR;
typedef char *LPSTR;
typedef const char *LPCSTR;
typedef WCHAR *LPWSTR;
typedef const WCHAR *LPCWSTR;
typedef void *LPVOID;
typedef const void *LPCVOID;
typedef DWORD *LPDWORD;
typedef BYTE *LPBYTE;
typedef size_t SIZE_T;

/* A 32-bit handle: global memory blocks, files, modules, printers, registry keys. */
typedef uint32_t HANDLE32;
typedef HANDLE32 HANDLE;
typedef HANDLE32 HGLOBAL;
typedef HANDLE32 HMODULE;
typedef HANDLE32 HINSTANCE;
typedef HANDLE32 HKEY;
typedef HANDLE32 HDC;
typedef int32_t HFILE;

/* A pointer as stored in a 32-bit record field (pDevMode, pCmdBuf, pJobInfo, pCustData). */
typedef uint32_t PTR32;

#define WINAPI
#define TRUE 1
#define FALSE 0

#ifdef __cplusplus
}
#endif

#endif
