// Watermarks: definitions, drawing and the soft font of the label.
#pragma once

#include "platform/win32.h"
#include "q417/records.h"

int DownloadWaterMarkFont(SPLDEVINFO *pInfo);
int DeleteWaterMarkFont(SPLDEVINFO *pInfo);
int DrawWaterMark(SPLDEVINFO *pInfo);

// ---- Definitions (QMWMARK.INI) ----

// One watermark definition, a line of the INI file.
struct WMINFO {
    INT nField1; // tokens 1 to 3: kept, read by nothing here
    INT nField2;
    INT nField3;
    INT nHue;        // degrees, any whole number
    INT nSaturation; // -50 stands for 0.0, 50 for 1.0
    INT nLightness;  // same scale
    INT nRed;        // computed from hue, saturation and lightness
    INT nGreen;
    INT nBlue;
    INT nAngle;  // tenths of a degree
    INT nWeight; // lfWeight scale
    BYTE bItalic;
    INT nHeight; // points; scaled in place for N-up once per job
    WCHAR szFace[33];
    WCHAR szText[51];
};

// All definitions that parsed, in file order.
struct WMLIST {
    DWORD nCount;
    HGLOBAL hRecords; // WMINFO[nCount]
};

extern WMINFO WM;
extern WCHAR WinRoot[400];
extern WCHAR WinPath[400];

int GetWaterMarkInfo(const DDIDEVMODE *pDevMode, WMINFO *pWMInfo);
HGLOBAL ReadWaterMarks();
void ReadKeyEntries(const WCHAR *pKeys, const WCHAR *pFileName, HGLOBAL hList);
WMINFO *ParseWaterMarks(WCHAR *pValue);
WCHAR *MakeWinFileName(const WCHAR *pName);

// ---- Drawing and colour ----

constexpr int WM_FONT_ID = 32766;

extern char WmCmdBuf[1024];

void SetWaterMarkColor(SPLDEVINFO *pInfo, DWORD dwColor);
void ResetWaterMarkColor(SPLDEVINFO *pInfo);
void hsl_to_rgb(double h, double s, double l, INT *pRed, INT *pGreen, INT *pBlue);
double rgbvalue(double m1, double m2, double hue);

// Formats one command into pCmdBuf and writes it.
void WmWriteCmd(SPLDEVINFO *pInfo, const char *fmt, ...) __attribute__((format(printf, 2, 3)));

// ---- Font life cycle ----

struct ENUMLOGFONTW;
struct TEXTMETRICW;

// What the font enumeration looks for, and what it found.
struct WMFONTSEARCH {
    INT nWeight;
    BYTE bItalic;
    BYTE bFound;
    WCHAR szFullName[65];
};

int PCLGetWmarkNameFromRegistry(const WCHAR *pFace, WCHAR *pPath, SPLDEVINFO *pInfo, int nWeight,
                                BYTE bItalic);
int lpfnWMFontFaceEnumerator(const ENUMLOGFONTW *pLogFont, const TEXTMETRICW *pTextMetric,
                             DWORD nFontType, intptr_t lParam);

// ---- TrueType to PCL soft font ----

// Character codes of the soft font: 0..255, the same in the descriptor.
extern WORD GlyphIDArray[256];
extern WORD GlyphDown[256];

int SelectWaterMarkFont(SPLDEVINFO *pInfo, WMINFO *pWMInfo, HANDLE hFile, const char *pFaceA);
const BYTE *FindTag(const BYTE *pDirectory, const char *pTag, int nTables, WORD *pIndex);
SHORT ShortSub(WORD a, WORD b);
BYTE *PadWithZero(BYTE *pDest, DWORD nFrom, DWORD nTo);

void DownloadWaterMarkChars(SPLDEVINFO *pInfo, WMINFO *pWMInfo, HANDLE hFile, const char *pTextA);
// pHead holds at least 52 bytes; cbLoca bounds pLoca. *pcbGlyph, when given, receives the
// length of the glyph returned.
BYTE *GetWaterMarkGlyph(SPLDEVINFO *pInfo, HANDLE hFile, DWORD nGlyfOffset, UINT nCode,
                        const BYTE *pHead, const BYTE *pLoca, DWORD cbLoca, int bIsGlyphId,
                        DWORD *pcbGlyph = nullptr);
