// Gray brushes: a gray level made into a 16 by 16 clustered-dot cell, and its download as the
// printer's user-defined pattern 2.
#include "halftone/halftone.h"

#include "job/job.h"
#include "stream/stream.h"

#include <cstdio>
#include <initializer_list>

// All brushes share these rows: a brush is only good until the next one is created.
BYTE DitherBits[32];

const BITMAP DefBitmap = {0, 16, 16, 2, 1, 1, DitherBits};

// Two dots half a cell apart, grown by turns as the level falls; an 8 by 8 cell tiled twice
// each way.
#define Q417_CELL_ROW(a, b, c, d, e, f, g, h)                                                      \
    { a, b, c, d, e, f, g, h, a, b, c, d, e, f, g, h }
const BYTE ClusterThresh[16][16] = {
    Q417_CELL_ROW(161, 177, 169, 129, 89, 73, 81, 113),
    Q417_CELL_ROW(193, 249, 233, 145, 57, 9, 17, 105),
    Q417_CELL_ROW(201, 241, 225, 153, 49, 5, 25, 97),
    Q417_CELL_ROW(185, 217, 209, 137, 65, 33, 41, 121),
    Q417_CELL_ROW(85, 69, 77, 109, 157, 173, 165, 125),
    Q417_CELL_ROW(53, 5, 13, 101, 189, 237, 229, 141),
    Q417_CELL_ROW(45, 1, 21, 93, 197, 245, 221, 149),
    Q417_CELL_ROW(61, 29, 37, 117, 181, 213, 205, 133),
    Q417_CELL_ROW(161, 177, 169, 129, 89, 73, 81, 113),
    Q417_CELL_ROW(193, 249, 233, 145, 57, 9, 17, 105),
    Q417_CELL_ROW(201, 241, 225, 153, 49, 5, 25, 97),
    Q417_CELL_ROW(185, 217, 209, 137, 65, 33, 41, 121),
    Q417_CELL_ROW(85, 69, 77, 109, 157, 173, 165, 125),
    Q417_CELL_ROW(53, 5, 13, 101, 189, 237, 229, 141),
    Q417_CELL_ROW(45, 1, 21, 93, 197, 245, 221, 149),
    Q417_CELL_ROW(61, 29, 37, 117, 181, 213, 205, 133),
};
#undef Q417_CELL_ROW

namespace {

bool IsGrayBrush(const GRAYBRUSH *pBrush) {
    return pBrush && pBrush->nType == GRAYBRUSH_TYPE;
}

void WriteCmd(SPLDEVINFO *pInfo, const char *fmt, int value) {
    char local[64];
    char *buf = Ptr32As<char>(pInfo->pCmdBuf);
    size_t cap = 1024;
    if (!buf) buf = local, cap = sizeof local;
    int n = std::snprintf(buf, cap, fmt, value);
    if (n > 0) DevWrite(pInfo, buf, static_cast<DWORD>(n));
}

} // namespace

GRAYBRUSH *CreateGrayBrush(SPLDEVINFO *, int nGray) {
    if (nGray < 0) nGray = 0;
    if (nGray > 255) nGray = 255;

    HGLOBAL hBrush = GlobalAlloc(GHND, sizeof(GRAYBRUSH));
    if (!hBrush) return nullptr;
    auto *pBrush = static_cast<GRAYBRUSH *>(GlobalLock(hBrush));
    if (!pBrush) {
        GlobalFree(hBrush);
        return nullptr;
    }
    HGLOBAL hBitmap = GlobalAlloc(GHND, sizeof(BITMAP));
    auto *pBitmap = hBitmap ? static_cast<BITMAP *>(GlobalLock(hBitmap)) : nullptr;
    if (!pBitmap) {
        if (hBitmap) GlobalFree(hBitmap);
        GlobalUnlock(hBrush);
        GlobalFree(hBrush);
        return nullptr;
    }

    pBrush->nType = GRAYBRUSH_TYPE;
    pBrush->hBitmap = hBitmap;
    pBrush->wGray = static_cast<WORD>(nGray);
    *pBitmap = DefBitmap;
    GlobalUnlock(hBitmap);

    // A set bit prints: the lower the level, the more of the cell is dark.
    for (int r = 0; r < 8; ++r) {
        unsigned word = 0;
        for (int c = 0; c < 16; ++c)
            if (ClusterThresh[r][c] >= nGray) word |= 1u << (15 - c);
        for (int row : {r, r + 8}) {
            DitherBits[2 * row] = static_cast<BYTE>(word >> 8);
            DitherBits[2 * row + 1] = static_cast<BYTE>(word);
        }
    }
    return pBrush;
}

int DestroyGrayBrush(GRAYBRUSH *pBrush) {
    if (!IsGrayBrush(pBrush)) return 0;
    if (pBrush->hBitmap) GlobalFree(pBrush->hBitmap);
    HGLOBAL hBrush = GlobalHandle(pBrush);
    GlobalUnlock(hBrush);
    GlobalFree(hBrush);
    return 1;
}

int PCLWritePattern(SPLDEVINFO *pInfo, GRAYBRUSH *pBrush) {
    if (!IsGrayBrush(pBrush)) return 0;
    if (pInfo->wCurPattern != 0 && pInfo->wCurPattern == pBrush->wGray) return 1;

    auto *pBitmap = static_cast<BITMAP *>(GlobalLock(pBrush->hBitmap));
    if (!pBitmap) return 0;

    const DDIDEVMODE *pdm = DevModeOf(pInfo);
    const bool bFormat0 = pdm && pdm->wEmulation == 1;
    const int res = pdm ? pdm->dmPrintQuality : 0;

    // Pattern header: format, continuation, pixel encoding, reserved, height, width; format 20
    // adds the X and Y resolution, both the X one.
    const BYTE header[12] = {
        static_cast<BYTE>(bFormat0 ? 0 : 20),
        0,
        1,
        0,
        static_cast<BYTE>(pBitmap->bmHeight >> 8),
        static_cast<BYTE>(pBitmap->bmHeight),
        static_cast<BYTE>(pBitmap->bmWidth >> 8),
        static_cast<BYTE>(pBitmap->bmWidth),
        static_cast<BYTE>(res >> 8),
        static_cast<BYTE>(res),
        static_cast<BYTE>(res >> 8),
        static_cast<BYTE>(res),
    };
    const DWORD cbHeader = bFormat0 ? 8 : 12;
    const int cbTotal = static_cast<int>(cbHeader) + pBitmap->bmHeight * pBitmap->bmWidthBytes;

    if (pInfo->bOutputMode != OUTPUT_PCL) fSetOutputMode(pInfo, OUTPUT_PCL);
    WriteCmd(pInfo, "\x1b*c2g%dW", cbTotal);
    DevWrite(pInfo, header, cbHeader);
    PCLWritePatternBits(pInfo, pBitmap, header[2]);

    pInfo->wCurPattern = pBrush->wGray;
    GlobalUnlock(pBrush->hBitmap);
    return 1;
}

int PCLWritePatternBits(SPLDEVINFO *pInfo, const BITMAP *pBitmap, int nEncoding) {
    if (nEncoding != 1) return 0;
    const auto *bits = static_cast<const BYTE *>(pBitmap->bmBits);
    WORD offset = 0;
    for (LONG row = 0; row < pBitmap->bmHeight; ++row) {
        DevWrite(pInfo, bits + offset, static_cast<DWORD>(pBitmap->bmWidthBytes));
        offset = static_cast<WORD>(offset + pBitmap->bmWidthBytes);
    }
    return 1;
}
