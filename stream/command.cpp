// Formatting of commands with fields: into pCmdBuf (or a buffer named by the caller), then
// out through DevWrite like every other command of the library.
#include "stream/stream.h"

#include <cstdarg>
#include <cstdio>

namespace {

BOOL FormatAndWrite(SPLDEVINFO *pInfo, char *buf, size_t cbBuf, const char *fmt, va_list ap) {
    if (!pInfo || !buf || cbBuf == 0) return FALSE;
    int n = vsnprintf(buf, cbBuf, fmt, ap);
    if (n < 0) return FALSE;
    // A text longer than the buffer goes out cut, never read past the end.
    size_t len = static_cast<size_t>(n) < cbBuf ? static_cast<size_t>(n) : cbBuf - 1;
    return DevWrite(pInfo, buf, static_cast<DWORD>(len));
}

} // namespace

BOOL WriteCommand(SPLDEVINFO *pInfo, const char *fmt, ...) {
    if (!pInfo) return FALSE;
    va_list ap;
    va_start(ap, fmt);
    BOOL ok = FormatAndWrite(pInfo, Ptr32As<char>(pInfo->pCmdBuf), CMD_BUF_SIZE, fmt, ap);
    va_end(ap);
    return ok;
}

BOOL WriteCommandIn(SPLDEVINFO *pInfo, char *buf, size_t cbBuf, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    BOOL ok = FormatAndWrite(pInfo, buf, cbBuf, fmt, ap);
    va_end(ap);
    return ok;
}
