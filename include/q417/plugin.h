/* Entry points of a printer plug-in: a shared object that the library loads by file name and
 * calls at set points of a job. Every entry is optional; a missing one is skipped. Export them
 * with C linkage under these names.
 *
 * Where the library looks for it, in this order:
 *   1. the printer's description (PDD) path with its last three characters replaced by "DLL",
 *      e.g. "/opt/printers/color417.pdd" -> "/opt/printers/color417.DLL";
 *   2. the driver directory followed by "/2/QMARKDLG.DLL".
 * A plug-in loaded by a job's first page stays loaded until the library unloads.
 *
 * A plug-in may define Q417_PLUGIN_IMPLEMENTATION before including this header: the entries
 * are then declared with their signatures, so that the compiler checks its definitions. */
#ifndef Q417_PLUGIN_H
#define Q417_PLUGIN_H

#ifndef __cplusplus
#include <uchar.h> /* char16_t, the wide character of the records */
#endif

#include "q417/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Each page start: (device mode, the library's module handle, device mode, 0, 2). A non-zero
 * result is kept in dwSession; 0 fails the page. */
typedef DWORD (*PFN_OEM_BeginSession)(DDIDEVMODE *pdm, HMODULE hLibrary, DDIDEVMODE *pdm2,
                                      DWORD reserved, DWORD mode);
/* Page start before the job header: the job name or NULL. Low 16 bits 1 lets the job go on;
 * anything else aborts the job (OEM_AbortDoc and OEM_EndSession follow). */
typedef DWORD (*PFN_OEM_StartDoc)(DDIDEVMODE *pdm, const WCHAR *pJobName);
/* Job header, page header and job footer hooks; the record's pJobInfo is set for them.
 * pCustData is the plug-in's data behind the 404-byte record, or NULL. */
typedef DWORD (*PFN_OEM_CustHeader)(DDIDEVMODE *pdm, DWORD dwCustDataWord, void *pCustData);
/* End of job, abort, end of session. */
typedef DWORD (*PFN_OEM_DevModeOnly)(DDIDEVMODE *pdm);
/* GetConfig before the copy is made, and bidirectional data after it: the CFGINFO block. */
typedef DWORD (*PFN_OEM_GetConfig)(DDIDEVMODE *pdm, void *pCfgInfo);
/* Entries loaded for completeness and never called by the library. */
typedef DWORD (*PFN_OEM_Unused)(void);

#ifdef Q417_PLUGIN_IMPLEMENTATION
#if defined(__GNUC__)
#define Q417_PLUGIN_EXPORT __attribute__((visibility("default")))
#else
#define Q417_PLUGIN_EXPORT
#endif
/* Called by the spool side, in the order of a job:
 *   each page start       OEM_BeginSession, then before the job header OEM_StartDoc
 *   job header            OEM_PJLCustJobHeader (PJL part), OEM_PDLCustJobHeader (PCL part)
 *   each page header      OEM_PDLCustPageHeader
 *   job footer            OEM_PJLCustJobFooter
 *   end of the job        OEM_EndDoc, OEM_EndSession
 *   abort                 OEM_AbortDoc, OEM_EndSession
 *   configuration read    OEM_GetConfig, then OEM_BidiGetPrinterData */
Q417_PLUGIN_EXPORT DWORD OEM_BeginSession(DDIDEVMODE *pdm, HMODULE hLibrary, DDIDEVMODE *pdm2,
                                          DWORD reserved, DWORD mode);
Q417_PLUGIN_EXPORT DWORD OEM_StartDoc(DDIDEVMODE *pdm, const WCHAR *pJobName);
Q417_PLUGIN_EXPORT DWORD OEM_PJLCustJobHeader(DDIDEVMODE *pdm, DWORD dwCustDataWord,
                                              void *pCustData);
Q417_PLUGIN_EXPORT DWORD OEM_PDLCustJobHeader(DDIDEVMODE *pdm, DWORD dwCustDataWord,
                                              void *pCustData);
Q417_PLUGIN_EXPORT DWORD OEM_PDLCustPageHeader(DDIDEVMODE *pdm, DWORD dwCustDataWord,
                                               void *pCustData);
Q417_PLUGIN_EXPORT DWORD OEM_PJLCustJobFooter(DDIDEVMODE *pdm, DWORD dwCustDataWord,
                                              void *pCustData);
Q417_PLUGIN_EXPORT DWORD OEM_EndDoc(DDIDEVMODE *pdm);
Q417_PLUGIN_EXPORT DWORD OEM_EndSession(DDIDEVMODE *pdm);
Q417_PLUGIN_EXPORT DWORD OEM_AbortDoc(DDIDEVMODE *pdm);
Q417_PLUGIN_EXPORT DWORD OEM_GetConfig(DDIDEVMODE *pdm, void *pCfgInfo);
Q417_PLUGIN_EXPORT DWORD OEM_BidiGetPrinterData(DDIDEVMODE *pdm, void *pCfgInfo);
/* Looked up and kept, never called by the spool side. */
Q417_PLUGIN_EXPORT DWORD OEM_DeletePrinter(void);
Q417_PLUGIN_EXPORT DWORD OEM_DevCaps(void);
Q417_PLUGIN_EXPORT DWORD OEM_DevInstall(void);
Q417_PLUGIN_EXPORT DWORD OEM_DriverDialog(void);
Q417_PLUGIN_EXPORT DWORD OEM_GetCustDataSize(void);
Q417_PLUGIN_EXPORT DWORD OEM_GetPropertyPages(void);
Q417_PLUGIN_EXPORT DWORD OEM_InitCustData(void);
Q417_PLUGIN_EXPORT DWORD OEM_InitializePrinter(void);
Q417_PLUGIN_EXPORT DWORD OEM_InitUIData(void);
Q417_PLUGIN_EXPORT DWORD OEM_ReadCustData(void);
Q417_PLUGIN_EXPORT DWORD OEM_UpdateCustData(void);
Q417_PLUGIN_EXPORT DWORD OEM_WriteCustData(void);
#endif /* Q417_PLUGIN_IMPLEMENTATION */

#ifdef __cplusplus
}
#endif

#endif
