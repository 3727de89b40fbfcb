// Compiled configuration: the process-wide cache and its lookups for the job side.
#pragma once

#include "platform/win32.h"
#include "q417/records.h"

extern HGLOBAL hCfg; // CFGINFO copy that outlives jobs; 0 when nothing is cached
extern WCHAR DataBuf[400]; // 800 bytes: path of the printer's data file, shared with the plug-in bridge

int RetrieveDeviceInfo(DDIDEVMODE *pdm);
void DiscardDeviceInfo(DDIDEVMODE *pdm);
int GetPaperSelect(DDIDEVMODE *pdm, int row);
int GetTraySelect(DDIDEVMODE *pdm, int row);
int GetPDDVersionString(DDIDEVMODE *pdm, char *dst);
int GetPJLOrientString(DDIDEVMODE *pdm, char *dst);
