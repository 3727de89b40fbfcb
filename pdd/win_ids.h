// Windows numbers of papers and paper sources: the standard id where Windows has one for the
// size or the name, otherwise one from the user range.
#pragma once

#include "platform/win32.h"
#include "q417/records.h"

// No standard id: also the id of the custom paper.
constexpr int kWinNoMatch = 256;

int PDD_GetWinPaper(int nWidth, int nHeight);
int PDD_GetWinTray(const WCHAR *pszName);
int PDD_GetWinIDs(CFGINFO *pCfg);
