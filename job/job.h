// Spool-side job handling: the job channel, page sequencing, N-up placement, the plug-in
// bridge. Process-wide state lives here; the library serves one job at a time per process.
#pragma once

#include "platform/win32.h"
#include "q417/records.h"

// ---- Process-wide state of the job channel ----
extern HMODULE ghModule;
extern HGLOBAL hJobName;
extern int bDoWtrMrkFontHeader;
extern int bDoWaterMarks;
extern char CustCmdBuf[1024];

// ---- Channel and sequencing ----
BOOL DevWrite(SPLDEVINFO *pInfo, const void *pData, DWORD cbData);
int WriteHeaders(SPLDEVINFO *pInfo);
void CopyDeviceInfo(SPLDEVINFO *pInfo, const void *pBlock, DWORD cbBlock);
void CopyHistoricalDeviceInfo(SPLDEVINFO *pDst, const SPLDEVINFO *pSrc);
int StoreJobName(SPLDEVINFO *pInfo, const WCHAR *pszName, int cchName);
void FreeJobName(SPLDEVINFO *pInfo);
BOOL DllEntryPoint(HMODULE hModule, DWORD reason, void *reserved);

// The device mode copy of a record, or null before block 2 has arrived.
inline DDIDEVMODE *DevModeOf(const SPLDEVINFO *pInfo) {
    return pInfo ? Ptr32As<DDIDEVMODE>(pInfo->pDevMode) : nullptr;
}

// ---- N-up placement ----
void InitSubPages(SPLDEVINFO *pInfo);
void SetLayoutOrientation(SPLDEVINFO *pInfo);
void NewSubPage(SPLDEVINFO *pInfo);
int ScaleNupHt(SPLDEVINFO *pInfo, int value);
int ScaleNupPosX(SPLDEVINFO *pInfo, int value);
int ScaleNupPosY(SPLDEVINFO *pInfo, int value);

// ---- Plug-in bridge (entry signatures: q417/plugin.h) ----
extern HMODULE hCustUIDLL;
int FillFunctionTable(HANDLE32 hPrinter);
void FreeFunctionTable();

#include "q417/plugin.h"

// The plug-in's entries, in this order; a null slot is a missing entry.
struct CUSTDLL {
    PFN_OEM_DevModeOnly OEM_AbortDoc;
    PFN_OEM_BeginSession OEM_BeginSession;
    PFN_OEM_GetConfig OEM_BidiGetPrinterData;
    PFN_OEM_Unused OEM_DeletePrinter;
    PFN_OEM_Unused OEM_DevCaps;
    PFN_OEM_Unused OEM_DevInstall;
    PFN_OEM_Unused OEM_DriverDialog;
    PFN_OEM_DevModeOnly OEM_EndDoc;
    PFN_OEM_DevModeOnly OEM_EndSession;
    PFN_OEM_GetConfig OEM_GetConfig;
    PFN_OEM_Unused OEM_GetCustDataSize;
    PFN_OEM_Unused OEM_GetPropertyPages;
    PFN_OEM_Unused OEM_InitCustData;
    PFN_OEM_Unused OEM_InitializePrinter;
    PFN_OEM_Unused OEM_InitUIData;
    PFN_OEM_CustHeader OEM_PDLCustJobHeader;
    PFN_OEM_CustHeader OEM_PDLCustPageHeader;
    PFN_OEM_CustHeader OEM_PJLCustJobFooter;
    PFN_OEM_CustHeader OEM_PJLCustJobHeader;
    PFN_OEM_Unused OEM_ReadCustData;
    PFN_OEM_Unused OEM_UpdateCustData;
    PFN_OEM_StartDoc OEM_StartDoc;
    PFN_OEM_Unused OEM_WriteCustData;
};
extern CUSTDLL CustDLL;

// The entries by name, in the order of CUSTDLL; X(name) for each.
#define Q417_CUSTDLL_ENTRIES(X)                                                                    \
    X(OEM_AbortDoc)                                                                                \
    X(OEM_BeginSession)                                                                            \
    X(OEM_BidiGetPrinterData)                                                                      \
    X(OEM_DeletePrinter)                                                                           \
    X(OEM_DevCaps)                                                                                 \
    X(OEM_DevInstall)                                                                              \
    X(OEM_DriverDialog)                                                                            \
    X(OEM_EndDoc)                                                                                  \
    X(OEM_EndSession)                                                                              \
    X(OEM_GetConfig)                                                                               \
    X(OEM_GetCustDataSize)                                                                         \
    X(OEM_GetPropertyPages)                                                                        \
    X(OEM_InitCustData)                                                                            \
    X(OEM_InitializePrinter)                                                                       \
    X(OEM_InitUIData)                                                                              \
    X(OEM_PDLCustJobHeader)                                                                        \
    X(OEM_PDLCustPageHeader)                                                                       \
    X(OEM_PJLCustJobFooter)                                                                        \
    X(OEM_PJLCustJobHeader)                                                                        \
    X(OEM_ReadCustData)                                                                            \
    X(OEM_UpdateCustData)                                                                          \
    X(OEM_StartDoc)                                                                                \
    X(OEM_WriteCustData)

constexpr int kCustDllEntries = 23;
static_assert(sizeof(CUSTDLL) == kCustDllEntries * sizeof(void (*)()));
// Names of the entries, slot by slot.
extern const char *const CustDllEntryNames[kCustDllEntries];
