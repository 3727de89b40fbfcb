// Device data interface: the device mode record's helpers shared by the whole library, and the
// accessors behind the exported DDI calls.
#pragma once

#include "platform/win32.h"
#include "q417/records.h"

// Texts leave the library through GetString: capacity in wide characters, terminator counted.
int GetString(const WCHAR *src, WCHAR *dst, int capacity);
// The same for a source that may fill cchMax characters without a terminator (a table row).
int GetStringN(const WCHAR *src, size_t cchMax, WCHAR *dst, int capacity);
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

// Frees the 21 table handles that a CFGINFO owns (not hFileVersion nor the two orientation
// commands) and zeroes their fields.
void FreeConfigTables(CFGINFO *cfg);

// ---- Selections: five families of one shape ----------------------------------------------
// Count and Default need the configuration (0 and -1 without it); Current reads the record
// only (0xFFFFFFFF for a null record); names go through GetString.

INT DDIGetPaperSizeCount(const DDIDEVMODE *pdm);
INT DDIGetPaperSizeName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity, INT index);
INT DDIGetInternalPaperSizeName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity, INT index);
INT DDIDefaultPaperSize(const DDIDEVMODE *pdm);
DWORD DDICurrentPaperSize(const DDIDEVMODE *pdm);
INT DDISetPaperSize(DDIDEVMODE *pdm, INT index);

INT DDIGetMediaTypeCount(const DDIDEVMODE *pdm);
INT DDIGetMediaTypeName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity, INT index);
INT DDIGetInternalMediaTypeName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity, INT index);
INT DDIDefaultMediaType(const DDIDEVMODE *pdm);
DWORD DDICurrentMediaType(const DDIDEVMODE *pdm);
INT DDISetMediaType(DDIDEVMODE *pdm, INT index);

INT DDIGetPaperSourceCount(const DDIDEVMODE *pdm);
INT DDIGetPaperSourceName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity, INT index);
INT DDIGetInternalPaperSourceName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity, INT index);
INT DDIDefaultPaperSource(const DDIDEVMODE *pdm);
DWORD DDICurrentPaperSource(const DDIDEVMODE *pdm);
INT DDISetPaperSource(DDIDEVMODE *pdm, INT index);

INT DDIGetPaperDestCount(const DDIDEVMODE *pdm);
INT DDIGetPaperDestName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity, INT index);
INT DDIGetInternalPaperDestName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity, INT index);
INT DDIDefaultPaperDest(const DDIDEVMODE *pdm);
DWORD DDICurrentPaperDest(const DDIDEVMODE *pdm);
INT DDISetPaperDest(DDIDEVMODE *pdm, INT index);

INT DDIGetResolutionCount(const DDIDEVMODE *pdm);
INT DDIGetResolutionName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity, INT index);
INT DDIGetInternalResolutionName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity, INT index);
INT DDIDefaultResolution(const DDIDEVMODE *pdm);
DWORD DDICurrentResolution(const DDIDEVMODE *pdm);
INT DDISetResIndex(DDIDEVMODE *pdm, INT index);

// The paper's six measurements in decipoints for the record's orientation; any pointer may be
// null. 1 done, 0 not (nothing stored).
INT DDIGetPaperDimensions(const DDIDEVMODE *pdm, INT index, DWORD *pWidth, DWORD *pHeight,
                          DWORD *pImageWidth, DWORD *pImageHeight, DWORD *pLeft, DWORD *pTop);

// ---- Custom page size ----------------------------------------------------------------------

INT DDIGetCustomPageLimits(const DDIDEVMODE *pdm, DWORD *pMinWidth, DWORD *pMinHeight,
                           DWORD *pMaxWidth, DWORD *pMaxHeight, DWORD *pDefWidth, DWORD *pDefHeight,
                           DWORD *pMarginLeft, DWORD *pMarginTop, DWORD *pMarginRight,
                           DWORD *pMarginBottom);
INT DDIGetCustomPageSize(const DDIDEVMODE *pdm, DWORD *pWidth, DWORD *pHeight);
INT DDISetCustomPageSize(DDIDEVMODE *pdm, INT width, INT height);
// Copies the custom row's size into the record; pCfg is the caller's locked CFGINFO or null.
void SetCustomSizeFields(DDIDEVMODE *pdm, const CFGINFO *pCfg);
// Decipoints to tenths of a millimetre, remainder dropped, cut to 16 bits.
SHORT DecipointsToTenthMM(INT decipoints);

// ---- Single settings -----------------------------------------------------------------------
// Getters answer a null record as each one states; setters answer 0 unless stated.

INT DDIGetCCType(const DDIDEVMODE *pdm, INT cls);
INT DDISetCCType(DDIDEVMODE *pdm, INT cls, DWORD value);
INT DDIGetCCRendAlg(const DDIDEVMODE *pdm, INT cls);
INT DDISetCCRendAlg(DDIDEVMODE *pdm, INT cls, DWORD value);
INT DDIGetCCLightness(const DDIDEVMODE *pdm, INT cls);
INT DDISetCCLightness(DDIDEVMODE *pdm, INT cls, DWORD value);
INT DDIGetCCSaturation(const DDIDEVMODE *pdm, INT cls);
INT DDISetCCSaturation(DDIDEVMODE *pdm, INT cls, DWORD value);
INT DDIGetCCGamma(const DDIDEVMODE *pdm);
INT DDISetCCGamma(DDIDEVMODE *pdm, DWORD value);
INT DDIGetPreset(const DDIDEVMODE *pdm);
INT DDISetPreset(DDIDEVMODE *pdm, DWORD value);
INT DDIGetHalftonePattern(const DDIDEVMODE *pdm);
INT DDISetHalftonePattern(DDIDEVMODE *pdm, DWORD value);
INT DDIGetICMMode(const DDIDEVMODE *pdm);
INT DDISetICMMode(DDIDEVMODE *pdm, DWORD value);
INT DDIGetICMIntent(const DDIDEVMODE *pdm);
INT DDISetICMIntent(DDIDEVMODE *pdm, DWORD value);

INT DDIGetFontMapping(const DDIDEVMODE *pdm);
INT DDISetFontMapping(DDIDEVMODE *pdm, DWORD value);
INT DDIGetTTDownloadMethod(const DDIDEVMODE *pdm);
INT DDISetTTDownloadMethod(DDIDEVMODE *pdm, DWORD value);
INT DDIGetPagesPerSheet(const DDIDEVMODE *pdm);
INT DDISetPagesPerSheet(DDIDEVMODE *pdm, DWORD value);
INT DDIGetPageBorder(const DDIDEVMODE *pdm);
INT DDISetPageBorder(DDIDEVMODE *pdm, DWORD value);
INT DDIGetBookletMode(const DDIDEVMODE *pdm);
INT DDISetBookletMode(DDIDEVMODE *pdm, DWORD value);
INT DDIGetBookletPaperID(const DDIDEVMODE *pdm);
INT DDISetBookletPaperID(DDIDEVMODE *pdm, DWORD value);
INT DDIGetTextClipping(const DDIDEVMODE *pdm);
INT DDISetTextClipping(DDIDEVMODE *pdm, DWORD value);

INT DDIGetCopies(const DDIDEVMODE *pdm);
INT DDISetCopies(DDIDEVMODE *pdm, DWORD value);
INT DDIGetPageOrient(const DDIDEVMODE *pdm);
INT DDISetPageOrient(DDIDEVMODE *pdm, DWORD value);
INT DDIGetEmulation(const DDIDEVMODE *pdm);
INT DDISetEmulation(DDIDEVMODE *pdm, DWORD value);
INT DDIGetDuplexMode(const DDIDEVMODE *pdm);
INT DDISetDuplexMode(DDIDEVMODE *pdm, DWORD value);
INT DDIGetCollateMode(const DDIDEVMODE *pdm);
INT DDISetCollateMode(DDIDEVMODE *pdm, DWORD value);
INT DDIGetOutputCaps(const DDIDEVMODE *pdm);
INT DDISetOutputCaps(DDIDEVMODE *pdm, DWORD value);
INT DDIGetJobStatus(const DDIDEVMODE *pdm);
INT DDIGetCurrentPage(const DDIDEVMODE *pdm);
INT DDIGetLangVersion(const DDIDEVMODE *pdm);
INT DDIGetMeasUnits(const DDIDEVMODE *pdm);

// ---- Texts of DDIGetString -----------------------------------------------------------------
// Each returns what GetString returns (capacity 0: the size needed), 0 when it can't.

INT DDIGetDeviceName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity);
INT DDIGetPlugInName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity);
INT DDIGetCfgModelName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity);
INT DDIGetModelName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity);
INT DDIGetJobName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity);
INT DDIGetDevicePort(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity);
