// Stand-ins for the calls of other subsystems that the host tool calls reach, so the library
// links while they are being built. Each is weak: the real definition replaces it.
#include "platform/win32.h"
#include "q417/records.h"

__attribute__((weak)) int PDD_GetConfig(HGLOBAL) {
    return 0;
}

__attribute__((weak)) HGLOBAL hCfg = 0;
__attribute__((weak)) int RetrieveDeviceInfo(DDIDEVMODE *) {
    return 0;
}

// The exports and the host API, for as long as their subsystems are being built: each does
// nothing and fails.
#include "q417/host.h"

extern "C" {
#define Q417_STANDIN __attribute__((weak)) Q417_API
Q417_STANDIN void *DrvSplStartDoc(HANDLE32, DWORD) {
    return nullptr;
}
Q417_STANDIN BOOL DrvSplWritePrinter(void *, const void *, DWORD, DWORD *) {
    return 0;
}
Q417_STANDIN BOOL DrvSplStartPage(void *) {
    return 0;
}
Q417_STANDIN BOOL DrvSplEndPage(void *) {
    return 0;
}
Q417_STANDIN void DrvSplEndDoc(void *) {}
Q417_STANDIN void DrvSplAbort(void *) {}
Q417_STANDIN void DrvSplClose(void *) {}
Q417_STANDIN DWORD DDIGetDWord(DDIDEVMODE *, DWORD) {
    return 0xFFFFFFFFu;
}
Q417_STANDIN DWORD DDISetDWord(DDIDEVMODE *, DWORD, DWORD) {
    return 0;
}
Q417_STANDIN BOOL DDIGetString(DDIDEVMODE *, DWORD, WCHAR *, DWORD *) {
    return 0;
}
Q417_STANDIN BOOL DDISetString(DDIDEVMODE *, DWORD, const WCHAR *, DWORD) {
    return 0;
}
Q417_STANDIN INT DDIGetKeywordNumOptions(DDIDEVMODE *, DWORD) {
    return -1;
}
Q417_STANDIN INT DDIGetKeywordDefaultOption(DDIDEVMODE *, DWORD) {
    return -1;
}
Q417_STANDIN BOOL DDIGetKeywordOptionString(DDIDEVMODE *, DWORD, INT, WCHAR *, DWORD *) {
    return 0;
}
Q417_STANDIN BOOL DDIGetKeywordOptionTranslation(DDIDEVMODE *, DWORD, INT, WCHAR *, DWORD *) {
    return 0;
}
Q417_STANDIN BOOL GetConfig(DDIDEVMODE *, void *) {
    return 0;
}
Q417_STANDIN HANDLE32 Q417_AddPrinter(const Q417_PRINTER *) {
    return 0;
}
Q417_STANDIN BOOL Q417_DeletePrinter(HANDLE32) {
    return 0;
}
Q417_STANDIN BOOL Q417_SetOutputFd(HANDLE32, int) {
    return 0;
}
Q417_STANDIN BOOL Q417_SetOutputCallback(HANDLE32, Q417_SINK_FN, void *) {
    return 0;
}
Q417_STANDIN BOOL Q417_SetWindowsDirectory(const char *) {
    return 0;
}
Q417_STANDIN DWORD Q417_InitDevMode(void *, DWORD, HANDLE32, DWORD) {
    return 0;
}
}
