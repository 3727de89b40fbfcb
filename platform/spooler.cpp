// Spooler calls, answered from the host's printer table.
//
// The info calls follow the Win32 two-call protocol: without a buffer, or with one too small,
// they fail with ERROR_INSUFFICIENT_BUFFER and give the size needed; the strings follow the
// structure in the caller's buffer.
#include "platform/hostenv.h"

#include <dlfcn.h>

#include <cstring>
#include <initializer_list>

namespace {

constexpr DWORD kDriverVersion = 2; // an NT 4 user-mode driver

// Lays out a structure followed by its strings. First pass (no buffer) only sizes.
class Packer {
  public:
    Packer(LPBYTE buf, size_t fixed) : buf_(buf), used_(fixed) {}
    // Places s and returns where it went in the buffer (null in the sizing pass).
    LPWSTR add(const std::u16string &s) {
        size_t at = used_;
        used_ += (s.size() + 1) * sizeof(WCHAR);
        if (!buf_) return nullptr;
        std::memcpy(buf_ + at, s.c_str(), (s.size() + 1) * sizeof(WCHAR));
        return reinterpret_cast<LPWSTR>(buf_ + at);
    }
    // The structure itself, at the start of the buffer.
    void head(const void *rec, size_t n) {
        if (buf_) std::memcpy(buf_, rec, n);
    }
    size_t used() const { return used_; }

  private:
    LPBYTE buf_;
    size_t used_;
};

// Runs fill twice: once to size, once into the buffer when it is big enough.
template <class Fill>
BOOL twoCall(LPBYTE buf, DWORD cbBuf, DWORD *pcbNeeded, size_t fixed, Fill fill) {
    Packer sizing(nullptr, fixed);
    fill(sizing);
    size_t need = sizing.used();
    if (pcbNeeded) *pcbNeeded = static_cast<DWORD>(need);
    if (!buf || cbBuf < need) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    Packer real(buf, fixed);
    fill(real);
    return TRUE;
}

// Where this library was loaded from: the driver file of the driver info.
std::u16string libraryPath() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void *>(&libraryPath), &info) && info.dli_fname)
        return q417::text::Utf8ToUtf16(info.dli_fname);
    return {};
}

const q417::host::Printer *printerOrFail(HANDLE hPrinter) {
    const q417::host::Printer *p = q417::host::FindPrinter(hPrinter);
    if (!p) SetLastError(ERROR_INVALID_HANDLE);
    return p;
}

} // namespace

BOOL WritePrinter(HANDLE hPrinter, const void *pBuf, DWORD cbBuf, DWORD *pcWritten) {
    return q417::host::WriteToSink(hPrinter, pBuf, cbBuf, pcWritten) ? TRUE : FALSE;
}

BOOL GetPrinterDriverW(HANDLE hPrinter, LPWSTR, DWORD Level, LPBYTE pDriverInfo, DWORD cbBuf,
                       DWORD *pcbNeeded) {
    const q417::host::Printer *pr = printerOrFail(hPrinter);
    if (!pr) return FALSE;
    if (Level == 1) {
        return twoCall(pDriverInfo, cbBuf, pcbNeeded, sizeof(DRIVER_INFO_1W), [&](Packer &pk) {
            DRIVER_INFO_1W di{};
            di.pName = pk.add(pr->name);
            pk.head(&di, sizeof di);
        });
    }
    if (Level != 2) {
        SetLastError(ERROR_INVALID_LEVEL);
        return FALSE;
    }
    const std::u16string driver = libraryPath();
    return twoCall(pDriverInfo, cbBuf, pcbNeeded, sizeof(DRIVER_INFO_2W), [&](Packer &pk) {
        DRIVER_INFO_2W di{};
        di.cVersion = kDriverVersion;
        di.pName = pk.add(pr->name);
        di.pEnvironment = pk.add(u"Windows NT x86");
        di.pDriverPath = pk.add(driver);
        di.pDataFile = pk.add(pr->pddPath);
        di.pConfigFile = pk.add(driver);
        pk.head(&di, sizeof di);
    });
}

BOOL GetPrinterDriverDirectoryW(LPWSTR, LPWSTR, DWORD Level, LPBYTE pDriverDirectory, DWORD cbBuf,
                                DWORD *pcbNeeded) {
    if (Level != 1) {
        SetLastError(ERROR_INVALID_LEVEL);
        return FALSE;
    }
    const q417::host::Printer *pr = q417::host::LastPrinter();
    if (!pr) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return FALSE;
    }
    // Level 1 is the bare path, no structure in front.
    return twoCall(pDriverDirectory, cbBuf, pcbNeeded, 0,
                   [&](Packer &pk) { pk.add(pr->driverDir); });
}

BOOL GetPrinterW(HANDLE hPrinter, DWORD Level, LPBYTE pPrinter, DWORD cbBuf, DWORD *pcbNeeded) {
    const q417::host::Printer *pr = printerOrFail(hPrinter);
    if (!pr) return FALSE;
    if (Level != 5) {
        SetLastError(ERROR_INVALID_LEVEL);
        return FALSE;
    }
    return twoCall(pPrinter, cbBuf, pcbNeeded, sizeof(PRINTER_INFO_5W), [&](Packer &pk) {
        PRINTER_INFO_5W pi{};
        pi.pPrinterName = pk.add(pr->name);
        pi.pPortName = pk.add(pr->port);
        pi.Attributes = 0x40;                // PRINTER_ATTRIBUTE_LOCAL
        pi.DeviceNotSelectedTimeout = 15000; // the spooler's defaults, in milliseconds
        pi.TransmissionRetryTimeout = 45000;
        pk.head(&pi, sizeof pi);
    });
}
