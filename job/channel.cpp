// The job handle and the tagged-block channel: what the graphics half sends through
// DrvSplWritePrinter, and the life of the job's record and device mode copy.
#include "job/job.h"

#include "halftone/halftone.h"
#include "job/joblock.h"
#include "q417/q417plg.h"

#include <cstring>

using q417::job::FreeLockedBlock;
using q417::job::JobOf;
using q417::job::Locked;
using q417::job::ScratchBlock;

HGLOBAL hJobName = 0;
int bDoWtrMrkFontHeader = 0;
int bDoWaterMarks = 0;

namespace {

enum : BYTE {
    TAG_DEVINFO = 1,
    TAG_DEVMODE = 2,
    TAG_JOBNAME = 8,
    TAG_DROP = 100,
};

constexpr BYTE kJobMagic[4] = {'T', 'N', 'Q', 'M'};
constexpr DWORD kJobOpen = 1;

// Block 1: an image of the record, at most as long as the record.
BOOL AcceptDeviceInfo(SPLJOB *pJob, const BYTE *payload, DWORD cb) {
    if (cb > sizeof(SPLDEVINFO)) return FALSE; // would run past the record
    Locked<SPLDEVINFO> info(pJob->hDevInfo);
    if (!info) return FALSE;
    CopyDeviceInfo(info.get(), payload, cb);
    return TRUE;
}

// Block 2: a device mode, plug-in data behind it, kept in a block of its own that stays locked.
BOOL AcceptDevMode(SPLJOB *pJob, const BYTE *payload, DWORD cb) {
    if (cb < sizeof(DDIDEVMODE)) return FALSE; // the record's fields would lie outside it
    HGLOBAL hCopy = GlobalAlloc(GHND, cb);
    if (!hCopy) return FALSE;
    auto *pCopy = static_cast<DDIDEVMODE *>(GlobalLock(hCopy));
    Locked<SPLDEVINFO> info(pJob->hDevInfo);
    if (!pCopy || !info) {
        if (pCopy) GlobalUnlock(hCopy);
        GlobalFree(hCopy);
        return FALSE;
    }
    std::memcpy(pCopy, payload, cb);
    pCopy->hJobName = hJobName; // the name has one owner; every copy shares its handle
    FreeLockedBlock(DevModeOf(info.get()));
    info->pDevMode = Ptr32From(pCopy);
    return TRUE;
}

// Block 8: the job name in wide characters; an odd last byte is dropped.
BOOL AcceptJobName(SPLJOB *pJob, const BYTE *payload, DWORD cb) {
    Locked<SPLDEVINFO> info(pJob->hDevInfo);
    if (!info) return FALSE;
    StoreJobName(info.get(), reinterpret_cast<const WCHAR *>(payload), static_cast<int>(cb / 2));
    return TRUE;
}

} // namespace

void CopyHistoricalDeviceInfo(SPLDEVINFO *pDst, const SPLDEVINFO *pSrc) {
    if (pDst->dwDevFlags & DEV_FORGET_HISTORY) {
        pDst->nLastPaper = -1;
        pDst->nLastTray = -1;
    } else {
        pDst->nLastPaper = pSrc->nLastPaper;
        pDst->nLastTray = pSrc->nLastTray;
    }
}

void CopyDeviceInfo(SPLDEVINFO *pInfo, const void *pBlock, DWORD cbBlock) {
    FreeLockedBlock(DevModeOf(pInfo));

    SPLDEVINFO history{};
    CopyHistoricalDeviceInfo(&history, pInfo);
    if (cbBlock > sizeof(SPLDEVINFO)) cbBlock = sizeof(SPLDEVINFO);
    std::memcpy(pInfo, pBlock, cbBlock);
    CopyHistoricalDeviceInfo(pInfo, &history);
    pInfo->pDevMode = 0; // the sender's pointer means nothing in this address space
}

extern "C" Q417_API void *DrvSplStartDoc(HANDLE32 hPrinter, DWORD JobId) {
    SPLJOB *pJob = nullptr;
    if (HGLOBAL hJob = GlobalAlloc(GHND, sizeof(SPLJOB))) {
        pJob = static_cast<SPLJOB *>(GlobalLock(hJob));
        if (!pJob) GlobalFree(hJob);
    }
    if (pJob) {
        std::memcpy(pJob->dwMagic, kJobMagic, sizeof kJobMagic);
        pJob->hPrinter = hPrinter;
        pJob->JobId = JobId;
        pJob->dwState = kJobOpen;
        pJob->hDevInfo = GlobalAlloc(GHND, sizeof(SPLDEVINFO));
        if (!pJob->hDevInfo) {
            FreeLockedBlock(pJob);
            pJob = nullptr;
        } else if (Locked<SPLDEVINFO> info(pJob->hDevInfo); info) {
            std::memset(info.get(), 0, sizeof(SPLDEVINFO));
            info->nLastPaper = -1;
            info->nLastTray = -1;
        }
    }
    ReadXferTable(hPrinter);
    bDoWtrMrkFontHeader = 1;
    return pJob;
}

extern "C" Q417_API BOOL DrvSplWritePrinter(void *hJob, const void *pBuf, DWORD cbBuf,
                                            DWORD *pcWritten) {
    SPLJOB *pJob = JobOf(hJob);
    // A bare tag or nothing at all has no payload to hold.
    if (!pJob || !pBuf || cbBuf < 2) return FALSE;
    const auto *block = static_cast<const BYTE *>(pBuf);
    const BYTE tag = block[0];
    const DWORD cbPayload = cbBuf - 1;

    ScratchBlock payload(cbPayload);
    if (!payload.get()) return FALSE;
    std::memcpy(payload.get(), block + 1, cbPayload);

    switch (tag) {
    case TAG_DEVINFO:
        return AcceptDeviceInfo(pJob, payload.get(), cbPayload);
    case TAG_DEVMODE:
        return AcceptDevMode(pJob, payload.get(), cbPayload);
    case TAG_JOBNAME:
        return AcceptJobName(pJob, payload.get(), cbPayload);
    case TAG_DROP:
        return TRUE;
    default:
        // Print data: straight to the printer, past DevWrite and its failure flag.
        return WritePrinter(pJob->hPrinter, payload.get(), cbPayload, pcWritten);
    }
}

extern "C" Q417_API void DrvSplClose(void *hJob) {
    SPLJOB *pJob = JobOf(hJob);
    if (!pJob) return;
    if (hJobName) {
        GlobalFree(hJobName);
        hJobName = 0;
    }
    // The device mode copy is found only through the record, so a lock that fails once is
    // asked for again before it is given up; the record and the job go in any case.
    auto *pInfo = static_cast<SPLDEVINFO *>(GlobalLock(pJob->hDevInfo));
    if (!pInfo) pInfo = static_cast<SPLDEVINFO *>(GlobalLock(pJob->hDevInfo));
    if (pInfo) {
        FreeLockedBlock(DevModeOf(pInfo));
        GlobalUnlock(pJob->hDevInfo);
    }
    GlobalFree(pJob->hDevInfo);
    FreeLockedBlock(pJob);
}
