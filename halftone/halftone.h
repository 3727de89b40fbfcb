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

// ---- Gray brushes and the user-defined pattern ----
struct BITMAP {
    LONG bmType;
    LONG bmWidth;
    LONG bmHeight;
    LONG bmWidthBytes;
    WORD bmPlanes;
    WORD bmBitsPixel;
    void *bmBits;
};

enum : DWORD { GRAYBRUSH_TYPE = 3 };

// A gray brush lives in a movable block that stays locked from creation to destruction.
struct GRAYBRUSH {
    DWORD nType; // GRAYBRUSH_TYPE
    DWORD nReserved;
    HGLOBAL hBitmap; // block with the brush's BITMAP
    WORD wGray;      // level 0..255, also the pattern's identity in wCurPattern
};

extern const BITMAP DefBitmap;
extern BYTE DitherBits[32];
extern const BYTE ClusterThresh[16][16];

GRAYBRUSH *CreateGrayBrush(SPLDEVINFO *pInfo, int nGray);
int DestroyGrayBrush(GRAYBRUSH *pBrush);
int PCLWritePattern(SPLDEVINFO *pInfo, GRAYBRUSH *pBrush);
int PCLWritePatternBits(SPLDEVINFO *pInfo, const BITMAP *pBitmap, int nEncoding);
