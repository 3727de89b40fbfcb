// Weak stand-ins for calls into subsystems built alongside this one. Each does the least that
// lets a job run; the subsystem's own definition replaces it at link time.
#include "job/job.h"

#include "config/config.h"
#include "ddi/ddi.h"
#include "stream/stream.h"
#include "watermark/watermark.h"

#include <iterator>

#define Q417_WEAK __attribute__((weak))

// ---- Printer language stream: nothing is written ----
Q417_WEAK void WritePCLJobHeader(SPLDEVINFO *) {}
Q417_WEAK void WritePCLJobFooter(SPLDEVINFO *) {}
Q417_WEAK void WritePCLPageHeader(SPLDEVINFO *) {}

// ---- Configuration cache: no configuration ----
Q417_WEAK HGLOBAL hCfg = 0;
Q417_WEAK WCHAR DataBuf[400] = {};
Q417_WEAK int RetrieveDeviceInfo(DDIDEVMODE *) {
    return 0;
}
Q417_WEAK void DiscardDeviceInfo(DDIDEVMODE *) {}

// ---- Watermarks: no font, nothing drawn ----
Q417_WEAK int DownloadWaterMarkFont(SPLDEVINFO *) {
    return 0;
}
Q417_WEAK int DeleteWaterMarkFont(SPLDEVINFO *) {
    return 0;
}
Q417_WEAK int DrawWaterMark(SPLDEVINFO *) {
    return 0;
}

// ---- Device mode helpers ----

// The PDD path from the spooler, at most 400 characters with the terminator (the smallest
// buffer any caller gives).
Q417_WEAK int GetPrinterDriverDataFile(HANDLE32 hPrinter, WCHAR *dst) {
    DWORD cbNeeded = 0;
    GetPrinterDriverW(hPrinter, nullptr, 2, nullptr, 0, &cbNeeded);
    HGLOBAL h = cbNeeded ? GlobalAlloc(GHND, cbNeeded) : 0;
    if (!h) return 0;
    int result = 0;
    if (auto *info = static_cast<BYTE *>(GlobalLock(h))) {
        result = GetPrinterDriverW(hPrinter, nullptr, 2, info, cbNeeded, &cbNeeded);
        const WCHAR *path = reinterpret_cast<DRIVER_INFO_2W *>(info)->pDataFile;
        if (result && path) {
            lstrcpynW(dst, path, static_cast<int>(std::size(DataBuf)));
        } else if (result) {
            dst[0] = 0;
        }
        GlobalUnlock(h);
    }
    GlobalFree(h);
    return result;
}

Q417_WEAK void SetCustDataPtr(DDIDEVMODE *pdm) {
    const unsigned total = unsigned{pdm->dmSize} + unsigned{pdm->dmDriverExtra};
    pdm->pCustData = total > sizeof(DDIDEVMODE)
                         ? Ptr32From(reinterpret_cast<BYTE *>(pdm) + sizeof(DDIDEVMODE))
                         : 0;
}
