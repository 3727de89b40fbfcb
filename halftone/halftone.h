// Halftone and transfer: colour transfer tables and gray patterns.
#pragma once

#include "platform/win32.h"
#include "q417/records.h"

int ReadXferTable(HANDLE32 hPrinter);
int ReadXferFile(const WCHAR *pFileName);
int MakeXferTableName(WCHAR *pName);
int AllocXfers();
void FreeXfers();
int DefaultXfers();
