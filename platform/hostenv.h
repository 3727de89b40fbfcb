// What the host told the library (printers, their output, the Windows directory, the ANSI code
// page), as the platform calls read it. Internal to platform/.
#pragma once

#include "platform/win32.h"

#include <string>
#include <string_view>

namespace q417::host {

struct Printer {
    std::u16string name;
    std::u16string pddPath;
    std::u16string driverDir;
    std::u16string port;
};

// The printer of a handle, or null. The pointer stays valid until the printer is deleted.
const Printer *FindPrinter(HANDLE32 hPrinter);
// The printer added last that is still known, or null.
const Printer *LastPrinter();

// Hands bytes to the printer's sink. False for an unknown handle (ERROR_INVALID_HANDLE) or a
// failing sink; *written gets what the sink took.
bool WriteToSink(HANDLE32 hPrinter, const void *data, DWORD size, DWORD *written);

// The Windows directory as a host path in UTF-8, without a trailing separator.
std::string WindowsDirectory();

} // namespace q417::host

namespace q417::text {

// Strict Unicode transforms: bad sequences and lone surrogates become U+FFFD.
std::u16string Utf8ToUtf16(std::string_view s);
std::string Utf16ToUtf8(std::u16string_view s);

// The iconv name of the ANSI code page; Set returns false (and keeps the old one) when iconv
// does not know the name.
bool SetAnsiCodePage(const char *iconvName);
std::string AnsiCodePage();

// Simple case folding (ASCII, Latin-1, Latin Extended-A, Greek, Cyrillic) for the
// case-insensitive compares.
WCHAR FoldCase(WCHAR c);

} // namespace q417::text
