// Page and job sequencing: when the job header, the page header, the watermark font, the
// watermark and the job footer go out, and when the plug-in hears of it.
#include "job/job.h"

#include "config/config.h"
#include "ddi/ddi.h"
#include "job/joblock.h"
#include "q417/q417plg.h"
#include "stream/stream.h"
#include "watermark/watermark.h"

using q417::job::CmdBufScope;
using q417::job::JobOf;
using q417::job::Locked;

char CustCmdBuf[1024];

namespace {

constexpr DWORD kJobEnded = 2;
constexpr DWORD kJobAborted = 4;

// OEM_BeginSession's last two arguments: reserved, and the spool side as the caller.
constexpr DWORD kSessionReserved = 0;
constexpr DWORD kSessionSpooler = 2;

// Common start of the page and job entries: a block 2 may have replaced the device mode
// copy since the last entry, so the printer handle and the plug-in data pointer are set anew.
void RefreshJob(const SPLJOB *pJob, SPLDEVINFO *pInfo, DDIDEVMODE *pdm) {
    pdm->hPrinter = pJob->hPrinter;
    pInfo->hPrinter = pdm->hPrinter;
    SetCustDataPtr(pdm);
}

// Asks the plug-in whether the job may start; only before the job header.
bool PluginStartsDoc(SPLDEVINFO *pInfo, DDIDEVMODE *pdm) {
    if (!CustDLL.OEM_StartDoc || (pInfo->bJobFlags & JOB_HEADER_SENT)) return true;
    const HGLOBAL hName = pdm->hJobName;
    Locked<const WCHAR> name(hName);
    const DWORD result = CustDLL.OEM_StartDoc(pdm, name.get());
    return (result & 0xFFFF) == 1;
}

} // namespace

int WriteHeaders(SPLDEVINFO *pInfo) {
    DDIDEVMODE *pdm = DevModeOf(pInfo);
    if (!pdm) return 0;
    pInfo->bOutputMode = OUTPUT_UNKNOWN; // the writers switch language explicitly

    if (pInfo->nPagesPerSheet != 1) {
        // Zero pages per sheet: no layout has been made yet.
        if (pInfo->nPagesPerSheet == 0 || pdm->dmOrientation != pInfo->nLayoutOrient ||
            pdm->dmPaperSize != pInfo->nLayoutPaper) {
            InitSubPages(pInfo);
            pInfo->nSubPage = 0;
        } else if (pInfo->nSubPage % pInfo->nPagesPerSheet != 0) {
            // A further cell of the sheet: only the origin moves.
            NewSubPage(pInfo);
            pInfo->bJobFlags |= JOB_PAGE_OPEN | JOB_PAGE_STARTED;
            return 0;
        }
    }
    if (pInfo->bJobFlags & JOB_PAGE_OPEN) return 0;

    CmdBufScope cmdBuf(pInfo, CustCmdBuf);
    pInfo->bJobFlags |= JOB_PAGE_OPEN;
    if (!(pInfo->bJobFlags & JOB_HEADER_SENT)) {
        pInfo->bJobFlags |= JOB_HEADER_SENT;
        WritePCLJobHeader(pInfo);
    }
    WritePCLPageHeader(pInfo);
    NewSubPage(pInfo);
    pInfo->bJobFlags |= JOB_PAGE_STARTED;
    return 1;
}

extern "C" Q417_API BOOL DrvSplStartPage(void *hJob) {
    SPLJOB *pJob = JobOf(hJob);
    if (!pJob) return FALSE;
    Locked<SPLDEVINFO> info(pJob->hDevInfo);
    DDIDEVMODE *pdm = DevModeOf(info.get());
    if (!pdm) return FALSE;
    SPLDEVINFO *pInfo = info.get();

    FillFunctionTable(pJob->hPrinter); // the plug-in is there before anything else happens
    RefreshJob(pJob, pInfo, pdm);
    RetrieveDeviceInfo(pdm); // without a configuration the lookups give 0 and the job goes on
    pdm->dmPrintQuality = pdm->dmYResolution;

    if (CustDLL.OEM_BeginSession) {
        pdm->dwSession =
            CustDLL.OEM_BeginSession(pdm, ghModule, pdm, kSessionReserved, kSessionSpooler);
        if (pdm->dwSession == 0) return FALSE;
    }
    if (!PluginStartsDoc(pInfo, pdm)) {
        DrvSplAbort(hJob);
        return FALSE;
    }

    WriteHeaders(pInfo);
    if (bDoWtrMrkFontHeader == 1) {
        // Once a job: behind the first page's headers, ahead of its data.
        bDoWaterMarks = DownloadWaterMarkFont(pInfo);
        bDoWtrMrkFontHeader = 0;
    }
    if (pInfo->nPagesPerSheet != 1) NewSubPage(pInfo);
    return TRUE;
}

extern "C" Q417_API BOOL DrvSplEndPage(void *hJob) {
    SPLJOB *pJob = JobOf(hJob);
    if (!pJob) return FALSE;
    Locked<SPLDEVINFO> info(pJob->hDevInfo);
    DDIDEVMODE *pdm = DevModeOf(info.get());
    if (!pdm) return FALSE;

    RefreshJob(pJob, info.get(), pdm);
    RetrieveDeviceInfo(pdm);
    if (bDoWaterMarks) DrawWaterMark(info.get());
    // No form feed: what starts the next page, or the job's end, ejects this one.
    info->bJobFlags &= ~JOB_PAGE_OPEN;
    return TRUE;
}

extern "C" Q417_API void DrvSplEndDoc(void *hJob) {
    SPLJOB *pJob = JobOf(hJob);
    if (!pJob) return;
    Locked<SPLDEVINFO> info(pJob->hDevInfo);
    DDIDEVMODE *pdm = DevModeOf(info.get());
    if (!pdm) return;

    RefreshJob(pJob, info.get(), pdm);
    if (bDoWaterMarks) DeleteWaterMarkFont(info.get());
    if (info->bJobFlags & JOB_HEADER_SENT) WritePCLJobFooter(info.get());
    if (CustDLL.OEM_EndDoc) CustDLL.OEM_EndDoc(pdm);
    if (CustDLL.OEM_EndSession) CustDLL.OEM_EndSession(pdm);
    pJob->dwState |= kJobEnded;
}

extern "C" Q417_API void DrvSplAbort(void *hJob) {
    SPLJOB *pJob = JobOf(hJob);
    if (!pJob) return;
    {
        Locked<SPLDEVINFO> info(pJob->hDevInfo);
        DDIDEVMODE *pdm = DevModeOf(info.get());
        if (!pdm) return;
        // Nothing goes to the printer: no footer, no font deletion.
        if (CustDLL.OEM_AbortDoc) CustDLL.OEM_AbortDoc(pdm);
        if (CustDLL.OEM_EndSession) CustDLL.OEM_EndSession(pdm);
    }
    pJob->dwState |= kJobAborted;
}
