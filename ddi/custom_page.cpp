// The custom paper: its limits from the configuration, and its size kept in step in three
// places: decipoints in the record's private part, tenths of a millimetre in its public part,
// and the custom row of the dimension table.
#include "ddi/ddi.h"

#include "ddi/cfglock.h"

using namespace q417::ddi;

namespace {

constexpr size_t kDimRow = 6 * sizeof(DWORD);

// Limits one side: a minimum that is set and above the value wins, else a maximum that is set
// and below it. The limits compare as signed numbers.
INT Clamp(INT v, DWORD minLimit, DWORD maxLimit) {
    INT lo = static_cast<INT>(minLimit), hi = static_cast<INT>(maxLimit);
    if (lo != 0 && lo > v) return lo;
    if (hi != 0 && hi < v) return hi;
    return v;
}

} // namespace

SHORT DecipointsToTenthMM(INT decipoints) {
    return static_cast<SHORT>(int64_t(decipoints) * 254 / 720);
}

INT DDIGetCustomPageLimits(const DDIDEVMODE *pdm, DWORD *pMinWidth, DWORD *pMinHeight,
                           DWORD *pMaxWidth, DWORD *pMaxHeight, DWORD *pDefWidth, DWORD *pDefHeight,
                           DWORD *pMarginLeft, DWORD *pMarginTop, DWORD *pMarginRight,
                           DWORD *pMarginBottom) {
    CfgLock cfg(pdm);
    if (!cfg) return 0;
    if (pMinWidth) *pMinWidth = cfg->dwCustMinWidth;
    if (pMinHeight) *pMinHeight = cfg->dwCustMinHeight;
    if (pMaxWidth) *pMaxWidth = cfg->dwCustMaxWidth;
    if (pMaxHeight) *pMaxHeight = cfg->dwCustMaxHeight;
    if (pDefWidth) *pDefWidth = cfg->dwCustDefWidth;
    if (pDefHeight) *pDefHeight = cfg->dwCustDefHeight;
    if (pMarginLeft) *pMarginLeft = cfg->dwCustMarginLeft;
    if (pMarginTop) *pMarginTop = cfg->dwCustMarginTop;
    if (pMarginRight) *pMarginRight = cfg->dwCustMarginRight;
    if (pMarginBottom) *pMarginBottom = cfg->dwCustMarginBottom;
    return 1;
}

INT DDIGetCustomPageSize(const DDIDEVMODE *pdm, DWORD *pWidth, DWORD *pHeight) {
    if (!pdm) return 0;
    if (pWidth) *pWidth = pdm->wCustWidth;
    if (pHeight) *pHeight = pdm->wCustHeight;
    return 1;
}

// A zero width or height leaves that side as it is. The row's margins and imageable area are
// recomputed from the sizes that then stand in the row.
INT DDISetCustomPageSize(DDIDEVMODE *pdm, INT width, INT height) {
    CfgLock cfg(pdm);
    if (!cfg) return 0;
    INT custom = cfg->nCustomPaper;
    BYTE *row = nullptr;
    // Without a custom paper there is no row to write: only the record takes the size.
    RowTable dims(custom >= 0 ? cfg->hPaperDims : 0, kDimRow, cfg->nPapers);
    if (custom >= 0) {
        row = dims.row(custom);
        if (!row) return 0;
    }
    if (width != 0) {
        width = Clamp(width, cfg->dwCustMinWidth, cfg->dwCustMaxWidth);
        pdm->wCustWidth = static_cast<WORD>(width);
        pdm->dmPaperWidth = DecipointsToTenthMM(width);
    }
    if (height != 0) {
        height = Clamp(height, cfg->dwCustMinHeight, cfg->dwCustMaxHeight);
        pdm->wCustHeight = static_cast<WORD>(height);
        pdm->dmPaperLength = DecipointsToTenthMM(height);
    }
    if (!row) return 1;
    if (width != 0) WriteAt<DWORD>(row, 0, static_cast<DWORD>(width));
    if (height != 0) WriteAt<DWORD>(row, 4, static_cast<DWORD>(height));
    DWORD rowWidth = ReadAt<DWORD>(row, 0), rowHeight = ReadAt<DWORD>(row, 4);
    WriteAt<DWORD>(row, 8, cfg->dwCustMarginLeft);
    WriteAt<DWORD>(row, 12, cfg->dwCustMarginTop);
    WriteAt<DWORD>(row, 16, rowWidth - cfg->dwCustMarginRight - cfg->dwCustMarginLeft);
    WriteAt<DWORD>(row, 20, rowHeight - cfg->dwCustMarginBottom - cfg->dwCustMarginTop);
    return 1;
}

void SetCustomSizeFields(DDIDEVMODE *pdm, const CFGINFO *pCfg) {
    if (!pdm) return;
    CfgLock own(pCfg ? nullptr : pdm);
    const CFGINFO *cfg = pCfg ? pCfg : own.get();
    if (!cfg || cfg->nCustomPaper < 0) return;
    RowTable dims(cfg->hPaperDims, kDimRow, cfg->nPapers);
    const BYTE *row = dims.row(cfg->nCustomPaper);
    if (!row) return;
    pdm->wCustWidth = static_cast<WORD>(ReadAt<DWORD>(row, 0));
    pdm->wCustHeight = static_cast<WORD>(ReadAt<DWORD>(row, 4));
    pdm->dmPaperWidth = DecipointsToTenthMM(pdm->wCustWidth);
    pdm->dmPaperLength = DecipointsToTenthMM(pdm->wCustHeight);
}
