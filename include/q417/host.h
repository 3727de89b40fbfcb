/* Host API: how a process that drives jobs (a spooler stand-in, a renderer, a test) tells the
 * library about its printers and where their output goes. On Windows the spooler answers these
 * questions; here the host does, before it calls DrvSplStartDoc or the DDI entries.
 *
 * Strings are UTF-8 host paths or names. All calls are exported from libq417plg.so. */
#ifndef Q417_HOST_H
#define Q417_HOST_H

#include "q417/q417plg.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Receives the printer stream. Return non-zero when all bytes were taken, 0 to fail the write
 * (WritePrinter then fails and the library silences its later commands). */
typedef int (*Q417_SINK_FN)(void *ctx, const void *data, uint32_t size);

typedef struct Q417_PRINTER {
    const char *name;        /* printer name; also the device name */
    const char *pdd_path;    /* printer description (the driver's data file) */
    const char *driver_dir;  /* driver directory; NULL: the directory of pdd_path */
    const char *port;        /* port name reported to the settings interface */
    const char *windows_dir; /* NULL: keep the current Windows directory */
} Q417_PRINTER;

/* Makes a printer known and returns its non-zero 32-bit handle, or 0. Output goes nowhere
 * until one of the Q417_SetOutput... calls names a sink. */
Q417_API HANDLE32 Q417_AddPrinter(const Q417_PRINTER *printer);
Q417_API BOOL Q417_DeletePrinter(HANDLE32 hPrinter);

/* Output sinks; each replaces the last one set. A file is created (emptied) by this call. */
Q417_API BOOL Q417_SetOutputFile(HANDLE32 hPrinter, const char *path);
Q417_API BOOL Q417_SetOutputFd(HANDLE32 hPrinter, int fd); /* not closed by the library */
Q417_API BOOL Q417_SetOutputCallback(HANDLE32 hPrinter, Q417_SINK_FN fn, void *ctx);

/* The Windows directory: where QMWMARK.INI and the fonts folder are looked for. Defaults to
 * $Q417_WINDIR, else the current directory; NULL goes back to that default. */
Q417_API BOOL Q417_SetWindowsDirectory(const char *path);

/* The ANSI code page used for 8-bit text (an iconv name such as "WINDOWS-1252", the default,
 * or "CP1250"). Returns 0 when iconv does not know the name; the old one stays. */
Q417_API BOOL Q417_SetAnsiCodePage(const char *iconv_name);

/* Fills a new device mode: wRecordSize 404, dmSize 220, dmDriverExtra 184 + cbCustData,
 * portrait, one copy, one page per sheet, neutral colour correction (lightness and saturation
 * bytes 100), the printer's name and handle, everything else zero. buf must hold
 * 404 + cbCustData bytes; the custom data are zeroed. Returns the bytes written, or 0. */
Q417_API DWORD Q417_InitDevMode(void *buf, DWORD cbBuf, HANDLE32 hPrinter, DWORD cbCustData);

/* Accounting and failure injection of the library's memory blocks. n counts from the next
 * call: 1 makes the very next allocation (or lock) fail, 0 disarms. */
Q417_API long Q417_LiveBlocks(void);
Q417_API void Q417_FailAllocation(long n);
Q417_API void Q417_FailLock(long n);

#ifdef __cplusplus
}
#endif

#endif
