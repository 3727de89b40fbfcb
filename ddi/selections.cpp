// The five selection families (paper size, media type, paper source, output bin, resolution):
// one algorithm each for count, names, default, current and set, with a table of where each
// family keeps its fields. And the paper's dimensions for the current orientation.
#include "ddi/ddi.h"

#include "ddi/cfglock.h"

#include <cstddef>

using namespace q417::ddi;

namespace {

enum Family { kPaper, kMedia, kSource, kDest, kRes };

// Where a family lives: offsets into CFGINFO, and the record's current row.
struct FamilyFields {
    size_t count;   // u32
    size_t def;     // i32
    size_t names;   // handle of the display names
    size_t cchName; // u32
    size_t keys;    // handle of the keys
    size_t cchKey;  // u32
    size_t current; // u16 in DDIDEVMODE
};

#define CFG(f) offsetof(CFGINFO, f)
#define DM(f) offsetof(DDIDEVMODE, f)
constexpr FamilyFields kFamilies[] = {
    /* kPaper */ {CFG(nPapers), CFG(nDefaultPaper), CFG(hPaperNames), CFG(cchPaperName),
                  CFG(hPaperKeys), CFG(cchPaperKey), DM(wPaperIndex)},
    /* kMedia */
    {CFG(nMedia), CFG(nDefaultMedia), CFG(hMediaNames), CFG(cchMediaName), CFG(hMediaKeys),
     CFG(cchMediaKey), DM(wMediaIndex)},
    /* kSource */
    {CFG(nTrays), CFG(nDefaultTray), CFG(hTrayNames), CFG(cchTrayName), CFG(hTrayKeys),
     CFG(cchTrayKey), DM(wSourceIndex)},
    /* kDest */
    {CFG(nDests), CFG(nDefaultDest), CFG(hDestNames), CFG(cchDestName), CFG(hDestKeys),
     CFG(cchDestKey), DM(wDestIndex)},
    /* kRes */
    {CFG(nResolutions), CFG(nDefaultRes), CFG(hResNames), CFG(cchResName), CFG(hResKeys),
     CFG(cchResKey), DM(wResIndex)},
};
#undef CFG
#undef DM

INT Count(const DDIDEVMODE *pdm, Family f) {
    CfgLock cfg(pdm);
    if (!cfg) return 0;
    return static_cast<INT>(ReadAt<DWORD>(cfg.get(), kFamilies[f].count));
}

INT Default(const DDIDEVMODE *pdm, Family f) {
    CfgLock cfg(pdm);
    if (!cfg) return -1;
    return ReadAt<INT>(cfg.get(), kFamilies[f].def);
}

DWORD Current(const DDIDEVMODE *pdm, Family f) {
    if (!pdm) return 0xFFFFFFFFu;
    return ReadAt<WORD>(pdm, kFamilies[f].current);
}

// The row of a name or key table through GetString. A row is read to its width and no
// further, whether or not it holds a terminator.
INT Name(const DDIDEVMODE *pdm, Family f, bool keys, WCHAR *pBuf, INT capacity, INT index) {
    CfgLock cfg(pdm);
    if (!cfg) return 0;
    const FamilyFields &ff = kFamilies[f];
    HGLOBAL h = ReadAt<HGLOBAL>(cfg.get(), keys ? ff.keys : ff.names);
    DWORD cch = ReadAt<DWORD>(cfg.get(), keys ? ff.cchKey : ff.cchName);
    DWORD count = ReadAt<DWORD>(cfg.get(), ff.count);
    if (h == 0 || index < 0 || static_cast<DWORD>(index) >= count) return 0;
    RowTable table(h, size_t(cch) * sizeof(WCHAR), count);
    const BYTE *row = table.row(index);
    if (!row) return 0;
    return GetStringN(reinterpret_cast<const WCHAR *>(row), cch, pBuf, capacity);
}

// Media type and output bin have no public field and no value table: the row is taken as
// given, unchecked, so that a caller can store what its own lists hold.
INT SetUnchecked(DDIDEVMODE *pdm, Family f, INT index) {
    CfgLock cfg(pdm);
    if (!cfg) return 0;
    WriteAt<WORD>(pdm, kFamilies[f].current, static_cast<WORD>(index));
    return 1;
}

} // namespace

// ---- Paper size ----

INT DDIGetPaperSizeCount(const DDIDEVMODE *pdm) {
    return Count(pdm, kPaper);
}
INT DDIGetPaperSizeName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity, INT index) {
    return Name(pdm, kPaper, false, pBuf, capacity, index);
}
INT DDIGetInternalPaperSizeName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity, INT index) {
    return Name(pdm, kPaper, true, pBuf, capacity, index);
}
INT DDIDefaultPaperSize(const DDIDEVMODE *pdm) {
    return Default(pdm, kPaper);
}
DWORD DDICurrentPaperSize(const DDIDEVMODE *pdm) {
    return Current(pdm, kPaper);
}

INT DDISetPaperSize(DDIDEVMODE *pdm, INT index) {
    CfgLock cfg(pdm);
    if (!cfg) return 0;
    RowTable ids(cfg->hPaperIDs, sizeof(WORD), cfg->nPapers);
    const BYTE *row = ids.row(index);
    if (!row) return 0;
    cfg->lpPaperIDs = Ptr32From(ids.base());
    WORD id = ReadAt<WORD>(row, 0);
    pdm->dmPaperSize = static_cast<SHORT>(id);
    pdm->wPaperIndex = static_cast<WORD>(index);
    if (id == 256) SetCustomSizeFields(pdm, cfg.get());
    return 1;
}

// ---- Media type ----

INT DDIGetMediaTypeCount(const DDIDEVMODE *pdm) {
    return Count(pdm, kMedia);
}
INT DDIGetMediaTypeName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity, INT index) {
    return Name(pdm, kMedia, false, pBuf, capacity, index);
}
INT DDIGetInternalMediaTypeName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity, INT index) {
    return Name(pdm, kMedia, true, pBuf, capacity, index);
}
INT DDIDefaultMediaType(const DDIDEVMODE *pdm) {
    return Default(pdm, kMedia);
}
DWORD DDICurrentMediaType(const DDIDEVMODE *pdm) {
    return Current(pdm, kMedia);
}
INT DDISetMediaType(DDIDEVMODE *pdm, INT index) {
    return SetUnchecked(pdm, kMedia, index);
}

// ---- Paper source ----

INT DDIGetPaperSourceCount(const DDIDEVMODE *pdm) {
    return Count(pdm, kSource);
}
INT DDIGetPaperSourceName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity, INT index) {
    return Name(pdm, kSource, false, pBuf, capacity, index);
}
INT DDIGetInternalPaperSourceName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity, INT index) {
    return Name(pdm, kSource, true, pBuf, capacity, index);
}
INT DDIDefaultPaperSource(const DDIDEVMODE *pdm) {
    return Default(pdm, kSource);
}
DWORD DDICurrentPaperSource(const DDIDEVMODE *pdm) {
    return Current(pdm, kSource);
}

INT DDISetPaperSource(DDIDEVMODE *pdm, INT index) {
    CfgLock cfg(pdm);
    if (!cfg) return 0;
    RowTable ids(cfg->hTrayIDs, sizeof(WORD), cfg->nTrays);
    const BYTE *row = ids.row(index);
    if (!row) return 0;
    cfg->lpTrayIDs = Ptr32From(ids.base());
    pdm->dmDefaultSource = static_cast<SHORT>(ReadAt<WORD>(row, 0));
    pdm->wSourceIndex = static_cast<WORD>(index);
    return 1;
}

// ---- Output bin ----

INT DDIGetPaperDestCount(const DDIDEVMODE *pdm) {
    return Count(pdm, kDest);
}
INT DDIGetPaperDestName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity, INT index) {
    return Name(pdm, kDest, false, pBuf, capacity, index);
}
INT DDIGetInternalPaperDestName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity, INT index) {
    return Name(pdm, kDest, true, pBuf, capacity, index);
}
INT DDIDefaultPaperDest(const DDIDEVMODE *pdm) {
    return Default(pdm, kDest);
}
DWORD DDICurrentPaperDest(const DDIDEVMODE *pdm) {
    return Current(pdm, kDest);
}
INT DDISetPaperDest(DDIDEVMODE *pdm, INT index) {
    return SetUnchecked(pdm, kDest, index);
}

// ---- Resolution ----

INT DDIGetResolutionCount(const DDIDEVMODE *pdm) {
    return Count(pdm, kRes);
}
INT DDIGetResolutionName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity, INT index) {
    return Name(pdm, kRes, false, pBuf, capacity, index);
}
INT DDIGetInternalResolutionName(const DDIDEVMODE *pdm, WCHAR *pBuf, INT capacity, INT index) {
    return Name(pdm, kRes, true, pBuf, capacity, index);
}
INT DDIDefaultResolution(const DDIDEVMODE *pdm) {
    return Default(pdm, kRes);
}
DWORD DDICurrentResolution(const DDIDEVMODE *pdm) {
    return Current(pdm, kRes);
}

INT DDISetResIndex(DDIDEVMODE *pdm, INT index) {
    CfgLock cfg(pdm);
    if (!cfg) return 0;
    // Per resolution: x, y in dots per inch.
    RowTable values(cfg->hResValues, 2 * sizeof(DWORD), cfg->nResolutions);
    const BYTE *row = values.row(index);
    if (!row) return 0;
    cfg->lpResValues = Ptr32From(values.base());
    pdm->wResIndex = static_cast<WORD>(index);
    pdm->dmPrintQuality = static_cast<SHORT>(ReadAt<DWORD>(row, 0));
    pdm->dmYResolution = static_cast<SHORT>(ReadAt<DWORD>(row, 4));
    return 1;
}

// ---- Paper dimensions ----

INT DDIGetPaperDimensions(const DDIDEVMODE *pdm, INT index, DWORD *pWidth, DWORD *pHeight,
                          DWORD *pImageWidth, DWORD *pImageHeight, DWORD *pLeft, DWORD *pTop) {
    CfgLock cfg(pdm);
    if (!cfg) return 0;
    DWORD nPapers = cfg->nPapers;
    if (cfg->hPaperDims == 0 || index < 0 || static_cast<DWORD>(index) >= nPapers) return 0;
    // Rows of six u32: width, height, left, top, imageable width, imageable height. From
    // version 9 on a landscape half follows the portrait one.
    bool twoHalves = cfg->wVersion > 8;
    RowTable dims(cfg->hPaperDims, 6 * sizeof(DWORD), int64_t(nPapers) * (twoHalves ? 2 : 1));
    int64_t r = index;
    if (twoHalves && pdm->dmOrientation == 2) r += nPapers;
    const BYTE *row = dims.row(r);
    if (!row) return 0;
    if (pWidth) *pWidth = ReadAt<DWORD>(row, 0);
    if (pHeight) *pHeight = ReadAt<DWORD>(row, 4);
    if (pImageWidth) *pImageWidth = ReadAt<DWORD>(row, 16);
    if (pImageHeight) *pImageHeight = ReadAt<DWORD>(row, 20);
    if (pLeft) *pLeft = ReadAt<DWORD>(row, 8);
    if (pTop) *pTop = ReadAt<DWORD>(row, 12);
    return 1;
}
