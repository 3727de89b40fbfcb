// Device data interface: the device mode record's helpers shared by the whole library.
#pragma once

#include "platform/win32.h"
#include "q417/records.h"

// Texts leave the library through GetString: capacity in wide characters, terminator counted.
int GetString(const WCHAR *src, WCHAR *dst, int capacity);
WCHAR *strcpy2WChar(WCHAR *dst, const char *src);
WCHAR *strncpy2WChar(WCHAR *dst, char *src, int n);
char *CopyUnicode2Str(char *dst, const WCHAR *src, int n);
void CopyStringA(char *dst, const char *src, int n);
int GetPrinterDriverDataFile(HANDLE32 hPrinter, WCHAR *dst);

HANDLE32 DDIGetPrinterHandle(const DDIDEVMODE *pdm);
HGLOBAL DDIStartup(DDIDEVMODE *pdm);
HGLOBAL DDIShutdown(DDIDEVMODE *pdm);

// Recomputes pCustData for a received copy: byte 404 when dmSize + dmDriverExtra > 404.
void SetCustDataPtr(DDIDEVMODE *pdm);
