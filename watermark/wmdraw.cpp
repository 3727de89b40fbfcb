// Watermark drawing: one HP-GL/2 label over the finished page, in the soft font 32766,
// centred on the page or the N-up cell, turned and coloured as the definition says.
#include "watermark/watermark.h"

#include "ddi/ddi.h"
#include "halftone/halftone.h"
#include "job/job.h"
#include "stream/stream.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdarg>
#include <cstdio>
#include <cstring>

char WmCmdBuf[1024];

namespace {

constexpr int kMergeOpcode = 160;
constexpr int kLabelOriginDraw = 5;
constexpr int kLabelOriginRestore = 21;

// The default luminance shares, for a job whose transfer tables were never loaded.
int XferOr(const BYTE *table, unsigned i, double weight) {
    return table ? table[i] : static_cast<int>(i * weight + 0.5);
}

// A double cut towards zero to a 32-bit integer. A value outside the range comes out as the
// processor's "integer indefinite", the lowest integer, as the conversion instruction gives it;
// definitions may hold any saturation and lightness, so this happens.
INT CutToInt(double v) {
    if (v > -2147483649.0 && v < 2147483648.0) return static_cast<INT>(v);
    return INT_MIN;
}

// Resolution times decipoints / 720 / 2, all in 32 bits: a product past the range wraps.
int CentreDots(int resolution, int decipoints) {
    const auto product =
        static_cast<int32_t>(static_cast<uint32_t>(resolution) * static_cast<uint32_t>(decipoints));
    return product / 720 / 2;
}

} // namespace

void WmWriteCmd(SPLDEVINFO *pInfo, const char *fmt, ...) {
    char local[1024];
    char *buf = Ptr32As<char>(pInfo->pCmdBuf);
    if (!buf) buf = local;
    va_list ap;
    va_start(ap, fmt);
    int n = std::vsnprintf(buf, 1024, fmt, ap);
    va_end(ap);
    if (n > 1023) n = 1023;
    if (n > 0) DevWrite(pInfo, buf, static_cast<DWORD>(n));
}

double rgbvalue(double m1, double m2, double hue) {
    while (hue > 360.0) hue -= 360.0;
    while (hue < 0.0) hue += 360.0;
    if (hue < 60.0) return m1 + (m2 - m1) * hue / 60.0;
    if (hue < 180.0) return m2;
    if (hue < 240.0) return m1 + (m2 - m1) * (240.0 - hue) / 60.0;
    return m1;
}

void hsl_to_rgb(double h, double s, double l, INT *pRed, INT *pGreen, INT *pBlue) {
    if (l > 0.87) l = 0.87; // no lighter colour than this is produced
    const double m2 = l <= 0.5 ? (s + 1.0) * l : s + l - s * l;
    const double m1 = 2.0 * l - m2;
    if (s == 0.0) {
        *pRed = *pGreen = *pBlue = CutToInt(l * 255.0);
        return;
    }
    *pRed = CutToInt(rgbvalue(m1, m2, h + 120.0) * 255.0);
    *pGreen = CutToInt(rgbvalue(m1, m2, h) * 255.0);
    *pBlue = CutToInt(rgbvalue(m1, m2, h - 120.0) * 255.0);
}

void SetWaterMarkColor(SPLDEVINFO *pInfo, DWORD dwColor) {
    const unsigned red = dwColor & 0xFF, green = (dwColor >> 8) & 0xFF,
                   blue = (dwColor >> 16) & 0xFF;
    if (red == 255 && green == 255 && blue == 255) {
        WmWriteCmd(pInfo, "FTSP0");
        return;
    }
    if (red == 0 && green == 0 && blue == 0) {
        WmWriteCmd(pInfo, "FTSP1");
        return;
    }

    // Zeroed first, so the pattern goes out whatever the printer was last given.
    pInfo->wCurPattern = 0;
    const int gray = XferOr(BluXfer, blue, 0.11) + XferOr(GrnXfer, green, 0.59001) +
                     XferOr(RedXfer, red, 0.3001);
    GRAYBRUSH *pBrush = CreateGrayBrush(pInfo, gray);
    if (!pBrush) return; // the label prints with the fill in force
    PCLWritePattern(pInfo, pBrush);
    DestroyGrayBrush(pBrush);
    if (pInfo->bOutputMode != OUTPUT_HPGL) fSetOutputMode(pInfo, OUTPUT_HPGL);
    WmWriteCmd(pInfo, "FT22,2SP1"); // fill type 22: user pattern 2, pen 1
}

void ResetWaterMarkColor(SPLDEVINFO *pInfo) {
    WmWriteCmd(pInfo, "FT");
    pInfo->wCurPattern = 0;
}

int DrawWaterMark(SPLDEVINFO *pInfo) {
    if (!(pInfo->bJobFlags & JOB_WATERMARK)) return 0;
    const DDIDEVMODE *pdm = DevModeOf(pInfo);
    if (!pdm) return 0;
    if (pInfo->nPage > 1 && pdm->bWMFirstPage) return 0;

    char textA[4 * 51];
    CopyUnicode2Str(textA, WM.szText, 0);
    textA[sizeof textA - 1] = 0;

    // Centre of the frame in printer dots, moved into the current cell under N-up.
    int x = CentreDots(pdm->dmPrintQuality, pInfo->cxPrintable);
    int y = CentreDots(pdm->dmYResolution, pInfo->cyPrintable);
    x = ScaleNupPosX(pInfo, x);
    y = ScaleNupPosY(pInfo, y);

    const BYTE savedMode = pInfo->bOutputMode;
    const PTR32 savedCmdBuf = pInfo->pCmdBuf;
    pInfo->pCmdBuf = Ptr32From(WmCmdBuf);
    if (pInfo->bOutputMode != OUTPUT_HPGL) fSetOutputMode(pInfo, OUTPUT_HPGL);

    WmWriteCmd(pInfo, "MC1,%d", kMergeOpcode);
    const bool bColour = pdm->wEmulation == 3 || pdm->wEmulation == 4;
    if (bColour)
        WmWriteCmd(pInfo, "PC1,%d,%d,%dSP1FT", WM.nRed, WM.nGreen, WM.nBlue);
    else
        SetWaterMarkColor(pInfo, DWORD(WM.nRed & 0xFF) | DWORD(WM.nGreen & 0xFF) << 8 |
                                     DWORD(WM.nBlue & 0xFF) << 16);
    WmWriteCmd(pInfo, "IWPUPA%d,%d", x, y);

    // Direction: whole degrees with the sign kept. The constants are single-precision values
    // (the one for two pi a shade above it, so 90 degrees gives a rise of 0.999), but the angle
    // is carried in double, as the printer driver's floating point unit did: at 150, 210 and
    // 300 degrees a single-precision angle would change the last digit.
    const int degrees = (WM.nAngle % 3600) / 10;
    const double radians = static_cast<double>(degrees) / static_cast<double>(360.0f) *
                           static_cast<double>(6.2831855f);
    const int run = static_cast<int>(std::cos(radians) * 1000.0);
    const int rise = static_cast<int>(std::sin(radians) * 1000.0);
    const int aRun = std::abs(run), aRise = std::abs(rise);
    WmWriteCmd(pInfo, "DI%c%d.%03d,%c%d.%03d", run < 0 ? '-' : '+', aRun / 1000, aRun % 1000,
               rise < 0 ? '-' : '+', aRise / 1000, aRise % 1000);

    WmWriteCmd(pInfo, "SBSD4,%dFI%d", WM.nHeight, WM_FONT_ID);
    WmWriteCmd(pInfo, "LO%dLB", kLabelOriginDraw);
    DevWrite(pInfo, textA, static_cast<DWORD>(std::strlen(textA)));
    WmWriteCmd(pInfo, "\x03;LO%dDI", kLabelOriginRestore);
    if (!bColour) ResetWaterMarkColor(pInfo);

    if (pInfo->bOutputMode != savedMode) fSetOutputMode(pInfo, savedMode);
    pInfo->pCmdBuf = savedCmdBuf;
    return 1;
}
