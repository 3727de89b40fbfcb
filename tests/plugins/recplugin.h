/* Test plug-ins: what the recording plug-in remembers of each call, and how a test reads it.
 * The test finds these functions with GetProcAddress on the module the library loaded. */
#pragma once

#include "q417/plugin.h"

#define REC_MAX_CALLS 4096
#define REC_NAME_CHARS 64

typedef struct RecCall {
    char entry[32];            /* "OEM_BeginSession" ... */
    DDIDEVMODE *pdm;           /* first argument */
    unsigned long long arg[4]; /* further arguments, as integers */
    int hasJobName;            /* OEM_StartDoc: a name was given */
    WCHAR jobName[REC_NAME_CHARS];
    /* Fields of the device mode when the entry was called. */
    PTR32 pJobInfo;
    PTR32 pCustData;
    SHORT dmPrintQuality;
    SHORT dmYResolution;
    HANDLE32 hPrinter;
} RecCall;

/* The calls so far, and their count. */
typedef const RecCall *(*PFN_Rec_Calls)(int *count);
/* Called at each entry with its name, so a test can interleave calls with the stream. */
typedef void (*REC_OBSERVER)(void *ctx, const char *entry);
typedef void (*PFN_Rec_SetObserver)(REC_OBSERVER fn, void *ctx);
