// The stream tests' plug-in. Its PJL job header hook sets the resolution to 300 dpi, its page
// header hook selects tray row 1; every header hook is logged.
#define Q417_PLUGIN_IMPLEMENTATION
#include "streamplugin.h"

#include <cstring>

namespace {

StreamHookCall calls[kStreamHookLogSize];
int nCalls;

void Log(const char *entry, DDIDEVMODE *pdm, DWORD word, void *pCustData) {
    if (nCalls == kStreamHookLogSize) return;
    StreamHookCall &c = calls[nCalls++];
    std::memset(&c, 0, sizeof c);
    std::strncpy(c.entry, entry, sizeof c.entry - 1);
    c.pdm = pdm;
    c.custDataWord = word;
    c.pCustData = pCustData;
    if (pdm) {
        c.pJobInfo = pdm->pJobInfo;
        c.dmPrintQuality = pdm->dmPrintQuality;
        c.wSourceIndex = pdm->wSourceIndex;
    }
}

} // namespace

extern "C" __attribute__((visibility("default"))) const StreamHookCall *StreamHookLog(int *count) {
    if (count) *count = nCalls;
    return calls;
}

DWORD OEM_PJLCustJobHeader(DDIDEVMODE *pdm, DWORD word, void *pCustData) {
    Log("OEM_PJLCustJobHeader", pdm, word, pCustData);
    pdm->dmPrintQuality = 300;
    return 1;
}

DWORD OEM_PDLCustJobHeader(DDIDEVMODE *pdm, DWORD word, void *pCustData) {
    Log("OEM_PDLCustJobHeader", pdm, word, pCustData);
    return 1;
}

DWORD OEM_PDLCustPageHeader(DDIDEVMODE *pdm, DWORD word, void *pCustData) {
    Log("OEM_PDLCustPageHeader", pdm, word, pCustData);
    pdm->wSourceIndex = 1;
    return 1;
}

DWORD OEM_PJLCustJobFooter(DDIDEVMODE *pdm, DWORD word, void *pCustData) {
    Log("OEM_PJLCustJobFooter", pdm, word, pCustData);
    return 1;
}
