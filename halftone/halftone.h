// Halftone and transfer: colour transfer tables and gray patterns.
#pragma once

#include "platform/win32.h"
#include "q417/records.h"

// Transfer tables: each component's share of a gray level, 256 entries each; all three are
// null or all three are locked blocks that live until the next job replaces them.
extern BYTE *RedXfer;
extern BYTE *GrnXfer;
extern BYTE *BluXfer;
constexpr int kXferEntries = 256;

int ReadXferTable(HANDLE32 hPrinter);
int ReadXferFile(const WCHAR *pFileName);
int MakeXferTableName(WCHAR *pName);
int AllocXfers();
void FreeXfers();
int DefaultXfers();
