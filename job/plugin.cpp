// The plug-in bridge: finding the printer's plug-in, and its table of entries.
#include "job/job.h"

#include "config/config.h"
#include "ddi/ddi.h"

#include <iterator>

HMODULE hCustUIDLL = 0;
CUSTDLL CustDLL = {};

namespace {

// Beside the printer description, the description's name with "DLL" for its last three
// characters; failing that, the plug-in of the driver directory.
constexpr WCHAR kPluginSuffix[] = u"DLL";
constexpr WCHAR kDriverDirPlugin[] = u"/2/QMARKDLG.DLL";
constexpr int kSuffixLength = 3;
constexpr int kDataBufChars = static_cast<int>(std::size(DataBuf));

HMODULE LoadBesideDataFile(HANDLE32 hPrinter) {
    if (!GetPrinterDriverDataFile(hPrinter, DataBuf)) return 0;
    DataBuf[kDataBufChars - 1] = 0;
    const int len = lstrlenW(DataBuf);
    if (len < kSuffixLength) return 0; // no extension to replace: no name to try
    lstrcpyW(DataBuf + len - kSuffixLength, kPluginSuffix);
    return LoadLibraryW(DataBuf);
}

HMODULE LoadFromDriverDirectory() {
    DWORD cbNeeded = 0;
    if (!GetPrinterDriverDirectoryW(nullptr, nullptr, 1, reinterpret_cast<LPBYTE>(DataBuf),
                                    sizeof DataBuf, &cbNeeded)) {
        return 0;
    }
    DataBuf[kDataBufChars - 1] = 0;
    const int len = lstrlenW(DataBuf);
    if (len + static_cast<int>(std::size(kDriverDirPlugin)) > kDataBufChars) return 0;
    lstrcatW(DataBuf, kDriverDirPlugin);
    return LoadLibraryW(DataBuf);
}

} // namespace

int FillFunctionTable(HANDLE32 hPrinter) {
    if (hCustUIDLL) return 0;
    CustDLL = {};
    HMODULE h = LoadBesideDataFile(hPrinter);
    if (!h) h = LoadFromDriverDirectory();
    if (!h) return 0; // the next call tries anew
    hCustUIDLL = h;

    // Each slot by its own name; a missing entry stays null and is skipped where it is called.
#define Q417_LOAD_ENTRY(name)                                                                      \
    CustDLL.name = reinterpret_cast<decltype(CustDLL.name)>(GetProcAddress(h, #name));
    Q417_CUSTDLL_ENTRIES(Q417_LOAD_ENTRY)
#undef Q417_LOAD_ENTRY
    return static_cast<int>(h);
}

void FreeFunctionTable() {
    if (hCustUIDLL) FreeLibrary(hCustUIDLL);
    hCustUIDLL = 0;
    CustDLL = {}; // the entries went with the module
}

#define Q417_ENTRY_NAME(name) #name,
const char *const CustDllEntryNames[kCustDllEntries] = {Q417_CUSTDLL_ENTRIES(Q417_ENTRY_NAME)};
#undef Q417_ENTRY_NAME
