// The one door of the library's own commands to the printer. Print data takes the short way
// through DrvSplWritePrinter and never comes here.
#include "job/job.h"

BOOL DevWrite(SPLDEVINFO *pInfo, const void *pData, DWORD cbData) {
    if (cbData == 0) return TRUE;
    if (!pInfo || (pInfo->dwDevFlags & DEV_OUTPUT_FAILED)) return FALSE;
    DWORD cbWritten = 0;
    // The count written is not compared: a short write is the sink's affair.
    const BOOL ok = WritePrinter(pInfo->hPrinter, pData, cbData, &cbWritten);
    if (!ok) pInfo->dwDevFlags |= DEV_OUTPUT_FAILED; // everything after this is dropped
    return ok;
}
