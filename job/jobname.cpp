// The job name: one process-wide block, shared by handle with every device mode copy.
#include "job/job.h"

int StoreJobName(SPLDEVINFO *pInfo, const WCHAR *pszName, int cchName) {
    DDIDEVMODE *pdm = DevModeOf(pInfo);
    // A name of no characters is empty: its first character is not there to be read.
    if (!pdm || !pszName || cchName <= 0 || pszName[0] == 0) return 0;
    if (hJobName) FreeJobName(pInfo);

    const SIZE_T cb = static_cast<SIZE_T>(cchName) * sizeof(WCHAR) + sizeof(WCHAR);
    hJobName = GlobalAlloc(GHND, cb);
    pdm->hJobName = hJobName;
    if (!hJobName) return 0;

    auto *pName = static_cast<WCHAR *>(GlobalLock(hJobName));
    if (!pName) {
        GlobalFree(hJobName);
        hJobName = 0;
        pdm->hJobName = 0;
        return 0;
    }
    // wcsncpy: stop at a 0 character; the block is zero-filled behind it.
    for (int i = 0; i < cchName && pszName[i] != 0; ++i) pName[i] = pszName[i];
    pName[cchName] = 0;
    GlobalUnlock(hJobName);
    return 1;
}

void FreeJobName(SPLDEVINFO *pInfo) {
    DDIDEVMODE *pdm = DevModeOf(pInfo);
    if (!pdm) return;
    if (hJobName) GlobalFree(hJobName);
    pdm->hJobName = 0;
    hJobName = 0;
}
