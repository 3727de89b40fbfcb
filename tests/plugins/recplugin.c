/* Test plug-ins, one source for four modules:
 *   REC_ALL        every entry, each call recorded with its arguments; StartDoc agrees
 *   REC_NOSESSION  as REC_ALL, but OEM_BeginSession returns 0
 *   REC_REFUSE     as REC_ALL, but OEM_StartDoc refuses the job
 *   REC_NONE       no entry at all */
#define Q417_PLUGIN_IMPLEMENTATION
#include "recplugin.h"

#include <string.h>

static RecCall calls[REC_MAX_CALLS];
static int nCalls;
static REC_OBSERVER observer;
static void *observerCtx;

Q417_PLUGIN_EXPORT const RecCall *Rec_Calls(int *count) {
    *count = nCalls;
    return calls;
}
Q417_PLUGIN_EXPORT void Rec_SetObserver(REC_OBSERVER fn, void *ctx) {
    observer = fn;
    observerCtx = ctx;
}

#ifndef REC_NONE

static RecCall *Record(const char *entry, DDIDEVMODE *pdm) {
    static RecCall overflow;
    RecCall *c = nCalls < REC_MAX_CALLS ? &calls[nCalls++] : &overflow;
    memset(c, 0, sizeof *c);
    strncpy(c->entry, entry, sizeof c->entry - 1);
    c->pdm = pdm;
    if (pdm) {
        c->pJobInfo = pdm->pJobInfo;
        c->pCustData = pdm->pCustData;
        c->dmPrintQuality = pdm->dmPrintQuality;
        c->dmYResolution = pdm->dmYResolution;
        c->hPrinter = pdm->hPrinter;
    }
    if (observer) observer(observerCtx, entry);
    return c;
}

/* A session value with high bits set, and a StartDoc answer whose low 16 bits alone say yes. */
#define SESSION_VALUE 0x5E550001u
#define STARTDOC_YES 0xABCD0001u
#define STARTDOC_NO 0x00010002u

DWORD OEM_BeginSession(DDIDEVMODE *pdm, HMODULE hLibrary, DDIDEVMODE *pdm2, DWORD reserved,
                       DWORD mode) {
    RecCall *c = Record("OEM_BeginSession", pdm);
    c->arg[0] = hLibrary;
    c->arg[1] = (unsigned long long)(size_t)pdm2;
    c->arg[2] = reserved;
    c->arg[3] = mode;
#ifdef REC_NOSESSION
    return 0;
#else
    return SESSION_VALUE;
#endif
}

DWORD OEM_StartDoc(DDIDEVMODE *pdm, const WCHAR *pJobName) {
    RecCall *c = Record("OEM_StartDoc", pdm);
    if (pJobName) {
        int i = 0;
        c->hasJobName = 1;
        for (; i < REC_NAME_CHARS - 1 && pJobName[i]; ++i) c->jobName[i] = pJobName[i];
        c->jobName[i] = 0;
    }
#ifdef REC_REFUSE
    return STARTDOC_NO;
#else
    return STARTDOC_YES;
#endif
}

/* The header hooks: the plug-in's word and its data; the end entries: the device mode alone. */
#define CUST_HOOK(name)                                                                            \
    DWORD name(DDIDEVMODE *pdm, DWORD word, void *pCustData) {                                     \
        RecCall *c = Record(#name, pdm);                                                           \
        c->arg[0] = word;                                                                          \
        c->arg[1] = (unsigned long long)(size_t)pCustData;                                         \
        return 1;                                                                                  \
    }
CUST_HOOK(OEM_PJLCustJobHeader)
CUST_HOOK(OEM_PDLCustJobHeader)
CUST_HOOK(OEM_PDLCustPageHeader)
CUST_HOOK(OEM_PJLCustJobFooter)

#define DEVMODE_ONLY(name)                                                                         \
    DWORD name(DDIDEVMODE *pdm) {                                                                  \
        Record(#name, pdm);                                                                        \
        return 1;                                                                                  \
    }
DEVMODE_ONLY(OEM_EndDoc)
DEVMODE_ONLY(OEM_EndSession)
DEVMODE_ONLY(OEM_AbortDoc)

#define GET_CONFIG(name)                                                                           \
    DWORD name(DDIDEVMODE *pdm, void *pCfgInfo) {                                                  \
        Record(#name, pdm)->arg[0] = (unsigned long long)(size_t)pCfgInfo;                         \
        return 1;                                                                                  \
    }
GET_CONFIG(OEM_GetConfig)
GET_CONFIG(OEM_BidiGetPrinterData)

#endif /* REC_NONE */
