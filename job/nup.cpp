// N-up placement: the grid of cells on a sheet, the image of a logical page in its cell, and
// the scale that takes positions of the logical page onto the sheet.
//
// Cell and image sizes are decipoints held in single precision. Each expression is worked in
// double and rounded to float only where its result is kept, so that every origin comes out
// to the pixel the printer has always been given.
#include "job/job.h"

#include <bit>
#include <climits>
#include <cmath>
#include <cstdint>

namespace {

constexpr float kImageScale = 0.95f;
constexpr float kImageScaleSixUpTurned = 0.92f;
constexpr float kLeftGapSixUpTurned = 0.05f;
static_assert(std::bit_cast<uint32_t>(kImageScale) == 0x3F733333u);
static_assert(std::bit_cast<uint32_t>(kImageScaleSixUpTurned) == 0x3F6B851Fu);
static_assert(std::bit_cast<uint32_t>(kLeftGapSixUpTurned) == 0x3D4CCCCDu);

constexpr double kRound = 0.5;
constexpr int kDecipointsPerInch = 720;
constexpr SHORT kPortrait = 1;
constexpr SHORT kLandscape = 2;
constexpr int kMaxCells = 16;

struct Grid {
    int columns;
    int rows;
    DWORD bKeepOrient; // 0: the sheet is turned against the page
    float scale;
};

bool LookupGrid(int n, SHORT orientation, Grid &grid) {
    switch (n) {
    case 2:
        grid = orientation == kPortrait ? Grid{2, 1, 0, kImageScale} : Grid{1, 2, 0, kImageScale};
        return true;
    case 4:
        grid = {2, 2, 1, kImageScale};
        return true;
    case 6:
        grid = orientation == kPortrait ? Grid{3, 2, 0, kImageScale}
                                        : Grid{2, 3, 0, kImageScaleSixUpTurned};
        return true;
    case 9:
        grid = {3, 3, 1, kImageScale};
        return true;
    case 16:
        grid = {4, 4, 1, kImageScale};
        return true;
    default:
        return false;
    }
}

// Truncation toward zero; values the sender's zeros or extremes make unrepresentable end at
// the nearest representable integer instead of being undefined.
int Trunc(double v) {
    if (std::isnan(v)) return 0;
    if (v >= static_cast<double>(INT_MAX)) return INT_MAX;
    if (v <= static_cast<double>(INT_MIN)) return INT_MIN;
    return static_cast<int>(v);
}

// A quotient whose divisor the sender left at 0 has no meaning; it counts as 0.
double Quot(double a, double b) {
    return b != 0 ? a / b : 0.0;
}

// Signed 32-bit arithmetic as the printer side has always done it: products wrap, quotients
// truncate, and a zero divisor leaves the dividend.
int32_t Wrap(int64_t v) {
    return static_cast<int32_t>(static_cast<uint32_t>(v));
}
int32_t Mul32(int32_t a, int32_t b) {
    return Wrap(static_cast<int64_t>(a) * b);
}
int32_t Div32(int32_t a, int32_t b) {
    if (b == 0) return a;
    return Wrap(static_cast<int64_t>(a) / b);
}

// Decipoints to pixels at a resolution, truncated.
int32_t ToPixels(int decipoints, SHORT resolution) {
    return Wrap(static_cast<int64_t>(resolution) * decipoints / kDecipointsPerInch);
}

} // namespace

void SetLayoutOrientation(SPLDEVINFO *pInfo) {
    const INT source[6] = {pInfo->cxPaper,     pInfo->cyPaper,  pInfo->cxPrintable,
                           pInfo->cyPrintable, pInfo->cxMargin, pInfo->cyMargin};
    for (int i = 0; i < 6; ++i) {
        // A turned sheet swaps the two values of each pair.
        pInfo->Layout[i] = pInfo->bKeepOrient ? source[i] : source[i ^ 1];
    }
}

void InitSubPages(SPLDEVINFO *pInfo) {
    const DDIDEVMODE *pdm = DevModeOf(pInfo);
    if (!pdm) return;
    const int n = pdm->bLayout & 0x3F; // booklet and border bits are the other side's
    if (n == 1) {
        pInfo->nPagesPerSheet = 1;
        return;
    }
    pInfo->nPagesPerSheet = static_cast<DWORD>(n);
    pInfo->nLayoutOrient = pdm->dmOrientation;
    pInfo->nLayoutPaper = pdm->dmPaperSize;

    Grid grid;
    if (!LookupGrid(n, pdm->dmOrientation, grid)) {
        pInfo->nPagesPerSheet = 1; // not an error: one page per sheet, and no further try
        return;
    }
    pInfo->bKeepOrient = grid.bKeepOrient;
    SetLayoutOrientation(pInfo);

    const SHORT xRes = pdm->dmPrintQuality;
    const SHORT yRes = pdm->dmYResolution;
    const float cellW = static_cast<float>(static_cast<double>(pInfo->Layout[2]) / grid.columns);
    const float cellH = static_cast<float>(static_cast<double>(pInfo->Layout[3]) / grid.rows);
    float imgW = static_cast<float>(static_cast<double>(cellW) * grid.scale);
    float imgH = static_cast<float>(static_cast<double>(cellH) * grid.scale);

    // The one turned six-up layout sits closer to the left edge than to the right.
    const float offX =
        (n == 6 && pdm->dmOrientation == kLandscape)
            ? static_cast<float>(static_cast<double>(cellW) * kLeftGapSixUpTurned / 2)
            : static_cast<float>((static_cast<double>(cellW) - imgW) / 2);
    const float offY = static_cast<float>((static_cast<double>(cellH) - imgH) / 2);
    float dx = 0.0f;
    float dy = 0.0f;

    int scale;
    if (grid.bKeepOrient) {
        // The cell has the frame's shape.
        scale = Trunc(Quot(imgW, pInfo->cxPrintable) * xRes + kRound);
    } else {
        // The cell need not have the page's shape: fit the page into the image.
        const float cellAspect = static_cast<float>(Quot(imgH, imgW));
        const double pageAspectExact = Quot(pInfo->cyPaper, pInfo->cxPaper);
        const float pageAspect = static_cast<float>(pageAspectExact);
        if (pageAspectExact > cellAspect) {
            scale = Trunc(Quot(imgH, pInfo->cyPaper) * xRes + kRound);
            const float narrowed = static_cast<float>(Quot(imgH, pageAspect));
            dx = static_cast<float>((static_cast<double>(imgW) - narrowed) / 2);
            imgW = narrowed;
        } else {
            scale = Trunc(Quot(imgW, pInfo->cxPaper) * yRes + kRound);
            const float shortened = static_cast<float>(static_cast<double>(imgW) * pageAspect);
            dy = static_cast<float>((static_cast<double>(imgH) - shortened) / 2);
            imgH = shortened;
        }
    }
    pInfo->nScaleX = scale;
    pInfo->nScaleY = scale;

    pInfo->cxSubPage = ToPixels(Trunc(imgW + kRound), xRes);
    pInfo->cySubPage = ToPixels(Trunc(imgH + kRound), yRes);

    for (int r = 0; r < grid.rows; ++r) {
        for (int c = 0; c < grid.columns; ++c) {
            const int cell = r * grid.columns + c;
            const double x = c * static_cast<double>(cellW) + offX + dx + kRound;
            const double y = r * static_cast<double>(cellH) + offY + dy + kRound;
            pInfo->SubPageOrg[cell][0] = ToPixels(Trunc(x), xRes);
            pInfo->SubPageOrg[cell][1] = ToPixels(Trunc(y), yRes);
        }
    }
    pInfo->xSubPage = pInfo->SubPageOrg[0][0];
    pInfo->ySubPage = pInfo->SubPageOrg[0][1];
}

void NewSubPage(SPLDEVINFO *pInfo) {
    // Zero pages per sheet is a layout not yet made: nothing to select.
    if (pInfo->nPagesPerSheet == 1 || pInfo->nPagesPerSheet == 0) return;
    const DWORD cell = pInfo->nSubPage % pInfo->nPagesPerSheet;
    // A count from the sender beyond the sixteen cells selects no origin.
    if (cell < kMaxCells) {
        pInfo->xSubPage = pInfo->SubPageOrg[cell][0];
        pInfo->ySubPage = pInfo->SubPageOrg[cell][1];
    }
    pInfo->bJobFlags &= ~JOB_SUBPAGE_MARK;
}

int ScaleNupHt(SPLDEVINFO *pInfo, int value) {
    const DDIDEVMODE *pdm = DevModeOf(pInfo);
    if (!pdm || pInfo->nPagesPerSheet == 1) return value;
    // Truncated twice, by the resolution and by the factor 10: the printer was given that.
    return Div32(Div32(Mul32(Mul32(pInfo->nScaleY, value), 10), pdm->dmYResolution), 10);
}

int ScaleNupPosX(SPLDEVINFO *pInfo, int value) {
    const DDIDEVMODE *pdm = DevModeOf(pInfo);
    if (!pdm || pInfo->nPagesPerSheet == 1) return value;
    const int32_t scaled =
        Div32(Div32(Mul32(Mul32(pInfo->nScaleX, value), 10), pdm->dmPrintQuality), 10);
    return Wrap(static_cast<int64_t>(scaled) + pInfo->xSubPage);
}

int ScaleNupPosY(SPLDEVINFO *pInfo, int value) {
    const DDIDEVMODE *pdm = DevModeOf(pInfo);
    if (!pdm || pInfo->nPagesPerSheet == 1) return value;
    const int32_t scaled =
        Div32(Div32(Mul32(Mul32(pInfo->nScaleY, value), 10), pdm->dmYResolution), 10);
    return Wrap(static_cast<int64_t>(scaled) + pInfo->ySubPage);
}
