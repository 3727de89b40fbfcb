// The stream tests' plug-in: what each header hook saw. A test reads the log through
// GetProcAddress on the module the library loaded.
#pragma once

#include "q417/plugin.h"

struct StreamHookCall {
    char entry[32];       // "OEM_PJLCustJobHeader" ...
    DDIDEVMODE *pdm;      // first argument
    DWORD custDataWord;   // second argument
    void *pCustData;      // third argument
    PTR32 pJobInfo;       // the device mode's field at the call
    SHORT dmPrintQuality; // at the call, before the hook changes it
    WORD wSourceIndex;
};

constexpr int kStreamHookLogSize = 64;
using PFN_StreamHookLog = const StreamHookCall *(*)(int *count);
