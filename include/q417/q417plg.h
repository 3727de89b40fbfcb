/* The library's exported entry points: spooler entries, the numeric settings interface, the
 * keyword enumeration and GetConfig. Everything here has C linkage and is visible from
 * libq417plg.so; nothing else is, apart from the host API in q417/host.h. */
#ifndef Q417_Q417PLG_H
#define Q417_Q417PLG_H

#include "q417/records.h"

#ifdef __cplusplus
extern "C" {
#endif

#if defined(Q417_BUILDING_LIBRARY)
#define Q417_API __attribute__((visibility("default")))
#else
#define Q417_API
#endif

/* Spooler entries. The job handle is the locked SPLJOB block, a host pointer. */
Q417_API void *DrvSplStartDoc(HANDLE32 hPrinter, DWORD JobId);
Q417_API BOOL DrvSplWritePrinter(void *hJob, const void *pBuf, DWORD cbBuf, DWORD *pcWritten);
Q417_API BOOL DrvSplStartPage(void *hJob);
Q417_API BOOL DrvSplEndPage(void *hJob);
Q417_API void DrvSplEndDoc(void *hJob);
Q417_API void DrvSplAbort(void *hJob);
Q417_API void DrvSplClose(void *hJob);

/* Settings over a device mode. */
Q417_API DWORD DDIGetDWord(DDIDEVMODE *pdm, DWORD id);
Q417_API DWORD DDISetDWord(DDIDEVMODE *pdm, DWORD id, DWORD value);
Q417_API BOOL DDIGetString(DDIDEVMODE *pdm, DWORD id, WCHAR *pBuf, DWORD *pcch);
Q417_API BOOL DDISetString(DDIDEVMODE *pdm, DWORD id, const WCHAR *pBuf, DWORD cch);
Q417_API void DDIGetCustDataPtr(DDIDEVMODE *pdm, void **ppCustData);
Q417_API BOOL DDISetDialogResult(DDIDEVMODE *pdm, DWORD code);

/* Keyword enumeration over the five option families. */
Q417_API INT DDIGetKeywordNumOptions(DDIDEVMODE *pdm, DWORD id);
Q417_API INT DDIGetKeywordDefaultOption(DDIDEVMODE *pdm, DWORD id);
Q417_API BOOL DDIGetKeywordOptionString(DDIDEVMODE *pdm, DWORD id, INT index, WCHAR *pBuf,
                                        DWORD *pcch);
Q417_API BOOL DDIGetKeywordOptionTranslation(DDIDEVMODE *pdm, DWORD id, INT index, WCHAR *pBuf,
                                             DWORD *pcch);

/* Fills a 343-byte CFGINFO for the printer of the device mode. On Windows this is the stdcall
 * name "_GetConfig@8"; ELF keeps '@' for symbol versions, so the plain name stands here. */
Q417_API BOOL GetConfig(DDIDEVMODE *pdm, void *pCfgInfo);

#ifdef __cplusplus
}
#endif

#endif
