/* Entry points of a printer plug-in: a shared object that the library loads by file name and
 * calls at set points of a job. Every entry is optional; a missing one is skipped. Export them
 * with C linkage under these names. */
#ifndef Q417_PLUGIN_H
#define Q417_PLUGIN_H

#include "q417/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Each page start: (device mode, the library's module handle, device mode, 0, 2). A non-zero
 * result is kept in dwSession; 0 fails the page. */
typedef DWORD (*PFN_OEM_BeginSession)(DDIDEVMODE *pdm, HMODULE hLibrary, DDIDEVMODE *pdm2,
                                      DWORD reserved, DWORD mode);
/* Page start before the job header: the job name or NULL. Low 16 bits 1 lets the job go on. */
typedef DWORD (*PFN_OEM_StartDoc)(DDIDEVMODE *pdm, const WCHAR *pJobName);
/* Job header, page header and job footer hooks; the record's pJobInfo is set for them. */
typedef DWORD (*PFN_OEM_CustHeader)(DDIDEVMODE *pdm, DWORD dwCustDataWord, void *pCustData);
/* End of job, abort, end of session. */
typedef DWORD (*PFN_OEM_DevModeOnly)(DDIDEVMODE *pdm);
/* GetConfig before the copy is made, and bidirectional data after it: the CFGINFO block. */
typedef DWORD (*PFN_OEM_GetConfig)(DDIDEVMODE *pdm, void *pCfgInfo);
/* Entries loaded for completeness and never called by the library. */
typedef DWORD (*PFN_OEM_Unused)(void);

#ifdef __cplusplus
}
#endif

#endif
