// The numeric settings interface: one id table for DDIGetDWord and DDISetDWord, the text ids
// of DDIGetString, and the small calls beside them.
#include "ddi/ddi.h"

#include "q417/q417plg.h"

namespace {

using GetFn = DWORD (*)(const DDIDEVMODE *);
using SetFn = DWORD (*)(DDIDEVMODE *, DWORD);

// One of the six measurements of the current paper, in the record's orientation.
enum DimPos { kWidth, kHeight, kImageWidth, kImageHeight, kLeft, kTop };
DWORD PaperDim(const DDIDEVMODE *pdm, DimPos pos) {
    DWORD v[6];
    if (!DDIGetPaperDimensions(pdm, pdm->wPaperIndex, &v[kWidth], &v[kHeight], &v[kImageWidth],
                               &v[kImageHeight], &v[kLeft], &v[kTop]))
        return 0xFFFFFFFFu;
    return v[pos];
}

// One of the ten custom page limits, in the order of DDIGetCustomPageLimits.
DWORD CustLimit(const DDIDEVMODE *pdm, int which) {
    DWORD v[10];
    if (!DDIGetCustomPageLimits(pdm, &v[0], &v[1], &v[2], &v[3], &v[4], &v[5], &v[6], &v[7], &v[8],
                                &v[9]))
        return 0xFFFFFFFFu;
    return v[which];
}

DWORD CustSize(const DDIDEVMODE *pdm, bool height) {
    DWORD w, h;
    if (!DDIGetCustomPageSize(pdm, &w, &h)) return 0xFFFFFFFFu;
    return height ? h : w;
}

// No font substitution table is kept; these hooks exist so that callers can use them.
DWORD GetTTCount(const DDIDEVMODE *) {
    return 0;
}
BOOL ReadFontSubTable(const DDIDEVMODE *, WCHAR *, DWORD *) {
    return TRUE;
}
BOOL WriteFontSubTable(DDIDEVMODE *, const WCHAR *, DWORD) {
    return TRUE;
}
BOOL SetPrinterEnviron(DDIDEVMODE *) {
    return TRUE;
}

#define GET(expr) [](const DDIDEVMODE *pdm) -> DWORD { return static_cast<DWORD>(expr); }
#define SET(expr) [](DDIDEVMODE *pdm, DWORD v) -> DWORD { return static_cast<DWORD>(expr); }

struct IdEntry {
    DWORD id;
    GetFn get; // null: DDIGetDWord gives 0xFFFFFFFF
    SetFn set; // null: DDISetDWord does nothing and gives 0
};

constexpr DWORD kFirstId = DDI_SESSION, kLastId = DDI_TTCOUNT;

// Every id from 9 to 75, in order.
constexpr IdEntry kIds[] = {
    {DDI_SESSION, GET(pdm->dwSession), nullptr},
    {DDI_PAPERSIZE, GET(DDICurrentPaperSize(pdm)), SET(DDISetPaperSize(pdm, INT(v)))},
    {DDI_PAPERWIDTH, GET(PaperDim(pdm, kWidth)), nullptr},
    {DDI_PAPERHEIGHT, GET(PaperDim(pdm, kHeight)), nullptr},
    {DDI_IMAGEWIDTH, GET(PaperDim(pdm, kImageWidth)), nullptr},
    {DDI_IMAGEHEIGHT, GET(PaperDim(pdm, kImageHeight)), nullptr},
    {DDI_IMAGELEFT, GET(PaperDim(pdm, kLeft)), nullptr},
    {DDI_IMAGETOP, GET(PaperDim(pdm, kTop)), nullptr},
    {DDI_MEDIATYPE, GET(DDICurrentMediaType(pdm)), SET(DDISetMediaType(pdm, INT(v)))},
    {DDI_PAPERSOURCE, GET(DDICurrentPaperSource(pdm)), SET(DDISetPaperSource(pdm, INT(v)))},
    {DDI_PAPERDEST, GET(DDICurrentPaperDest(pdm)), SET(DDISetPaperDest(pdm, INT(v)))},
    {DDI_RESOLUTION, GET(DDICurrentResolution(pdm)), SET(DDISetResIndex(pdm, INT(v)))},
    {DDI_COPIES, GET(DDIGetCopies(pdm)), SET(DDISetCopies(pdm, v))},
    {DDI_PAGEORIENT, GET(DDIGetPageOrient(pdm)), SET(DDISetPageOrient(pdm, v))},
    {DDI_HALFTONE, GET(DDIGetHalftonePattern(pdm)), SET(DDISetHalftonePattern(pdm, v))},
    {DDI_CCTYPE0, GET(DDIGetCCType(pdm, 0)), SET(DDISetCCType(pdm, 0, v))},
    {DDI_CCTYPE1, GET(DDIGetCCType(pdm, 1)), SET(DDISetCCType(pdm, 1, v))},
    {DDI_CCTYPE2, GET(DDIGetCCType(pdm, 2)), SET(DDISetCCType(pdm, 2, v))},
    {27, nullptr, nullptr},
    {DDI_CCRENDALG0, GET(DDIGetCCRendAlg(pdm, 0)), SET(DDISetCCRendAlg(pdm, 0, v))},
    {DDI_CCRENDALG1, GET(DDIGetCCRendAlg(pdm, 1)), SET(DDISetCCRendAlg(pdm, 1, v))},
    {DDI_CCRENDALG2, GET(DDIGetCCRendAlg(pdm, 2)), SET(DDISetCCRendAlg(pdm, 2, v))},
    {DDI_CCLIGHTNESS0, GET(DDIGetCCLightness(pdm, 0)), SET(DDISetCCLightness(pdm, 0, v))},
    {DDI_CCLIGHTNESS1, GET(DDIGetCCLightness(pdm, 1)), SET(DDISetCCLightness(pdm, 1, v))},
    {DDI_CCLIGHTNESS2, GET(DDIGetCCLightness(pdm, 2)), SET(DDISetCCLightness(pdm, 2, v))},
    {DDI_CCSATURATION0, GET(DDIGetCCSaturation(pdm, 0)), SET(DDISetCCSaturation(pdm, 0, v))},
    {DDI_CCSATURATION1, GET(DDIGetCCSaturation(pdm, 1)), SET(DDISetCCSaturation(pdm, 1, v))},
    {DDI_CCSATURATION2, GET(DDIGetCCSaturation(pdm, 2)), SET(DDISetCCSaturation(pdm, 2, v))},
    {37, nullptr, nullptr},
    {38, nullptr, nullptr},
    {39, nullptr, nullptr},
    {DDI_PRESET, GET(DDIGetPreset(pdm)), SET(DDISetPreset(pdm, v))},
    {DDI_CCGAMMA, GET(DDIGetCCGamma(pdm)), SET(DDISetCCGamma(pdm, v))},
    {DDI_FONTMAPPING, GET(DDIGetFontMapping(pdm)), SET(DDISetFontMapping(pdm, v))},
    {DDI_PAGESPERSHEET, GET(DDIGetPagesPerSheet(pdm)), SET(DDISetPagesPerSheet(pdm, v))},
    {DDI_PAGEBORDER, GET(DDIGetPageBorder(pdm)), SET(DDISetPageBorder(pdm, v))},
    {DDI_BOOKLETMODE, GET(DDIGetBookletMode(pdm)), SET(DDISetBookletMode(pdm, v))},
    {DDI_BOOKLETPAPERID, GET(DDIGetBookletPaperID(pdm)), SET(DDISetBookletPaperID(pdm, v))},
    {DDI_TTDOWNLOAD, GET(DDIGetTTDownloadMethod(pdm)), SET(DDISetTTDownloadMethod(pdm, v))},
    {DDI_EMULATION, GET(DDIGetEmulation(pdm)), SET(DDISetEmulation(pdm, v))},
    {DDI_DUPLEX, GET(DDIGetDuplexMode(pdm)), SET(DDISetDuplexMode(pdm, v))},
    {DDI_COLLATE, GET(DDIGetCollateMode(pdm)), SET(DDISetCollateMode(pdm, v))},
    {DDI_JOBSTATUS, GET(DDIGetJobStatus(pdm)), nullptr},
    {DDI_OUTPUTCAPS, GET(DDIGetOutputCaps(pdm)), SET(DDISetOutputCaps(pdm, v))},
    {DDI_ICMMODE, GET(DDIGetICMMode(pdm)), SET(DDISetICMMode(pdm, v))},
    {DDI_ICMINTENT, GET(DDIGetICMIntent(pdm)), SET(DDISetICMIntent(pdm, v))},
    {DDI_CURRENTPAGE, GET(DDIGetCurrentPage(pdm)), nullptr},
    {DDI_CUSTOMPAPER, GET(pdm->dmPaperSize == 256 ? 1 : 0), nullptr},
    {DDI_CUSTMINWIDTH, GET(CustLimit(pdm, 0)), nullptr},
    {DDI_CUSTMINHEIGHT, GET(CustLimit(pdm, 1)), nullptr},
    {DDI_CUSTMAXWIDTH, GET(CustLimit(pdm, 2)), nullptr},
    {DDI_CUSTMAXHEIGHT, GET(CustLimit(pdm, 3)), nullptr},
    {DDI_CUSTDEFWIDTH, GET(CustLimit(pdm, 4)), nullptr},
    {DDI_CUSTDEFHEIGHT, GET(CustLimit(pdm, 5)), nullptr},
    {DDI_CUSTMARGINLEFT, GET(CustLimit(pdm, 6)), nullptr},
    {DDI_CUSTMARGINTOP, GET(CustLimit(pdm, 7)), nullptr},
    {DDI_CUSTMARGINRIGHT, GET(CustLimit(pdm, 8)), nullptr},
    {DDI_CUSTMARGINBOTTOM, GET(CustLimit(pdm, 9)), nullptr},
    // Width and height come in separate calls; 0 leaves the other side alone.
    {DDI_CUSTWIDTH, GET(CustSize(pdm, false)), SET(DDISetCustomPageSize(pdm, INT(v), 0))},
    {DDI_CUSTHEIGHT, GET(CustSize(pdm, true)), SET(DDISetCustomPageSize(pdm, 0, INT(v)))},
    {DDI_LANGVERSION, GET(DDIGetLangVersion(pdm)), nullptr},
    {DDI_MEASUNITS, GET(DDIGetMeasUnits(pdm)), nullptr},
    {DDI_TEXTCLIPPING, GET(DDIGetTextClipping(pdm)), SET(DDISetTextClipping(pdm, v))},
    {DDI_PRINTERHANDLE, GET(DDIGetPrinterHandle(pdm)), nullptr},
    {DDI_WMFIRSTPAGE, GET(pdm->bWMFirstPage), SET(pdm->bWMFirstPage = BYTE(v))},
    {DDI_WATERMARK, GET(pdm->wWaterMark), SET(pdm->wWaterMark = WORD(v))},
    {DDI_TTCOUNT, GET(GetTTCount(pdm)), nullptr},
};

#undef GET
#undef SET

constexpr bool IdsInOrder() {
    if (sizeof kIds / sizeof kIds[0] != kLastId - kFirstId + 1) return false;
    for (DWORD i = 0; i < sizeof kIds / sizeof kIds[0]; ++i)
        if (kIds[i].id != kFirstId + i) return false;
    return true;
}
static_assert(IdsInOrder(), "one entry per id, indexed by id - 9");

const IdEntry *Lookup(DWORD id) {
    return id >= kFirstId && id <= kLastId ? &kIds[id - kFirstId] : nullptr;
}

constexpr char16_t kVersion[] = u"1.0.0009";

} // namespace

extern "C" {

// Only this call checks the record's size; 0xFFFFFFFF is also a value, callers can't tell.
Q417_API DWORD DDIGetDWord(DDIDEVMODE *pdm, DWORD id) {
    if (!pdm || pdm->wRecordSize != DDIDEVMODE_SIZE) return 0xFFFFFFFFu;
    const IdEntry *e = Lookup(id);
    return e && e->get ? e->get(pdm) : 0xFFFFFFFFu;
}

Q417_API DWORD DDISetDWord(DDIDEVMODE *pdm, DWORD id, DWORD value) {
    if (!pdm) return 0;
    const IdEntry *e = Lookup(id);
    return e && e->set ? e->set(pdm, value) : 0;
}

// The length holds the capacity on entry. For the named texts it receives the accessor's
// count and the call answers 1 whatever that count is.
Q417_API BOOL DDIGetString(DDIDEVMODE *pdm, DWORD id, WCHAR *pBuf, DWORD *pcch) {
    if (!pBuf || !pcch) return FALSE;
    INT (*text)(const DDIDEVMODE *, WCHAR *, INT) = nullptr;
    switch (id) {
    case DDI_STR_NONE0:
    case DDI_STR_NONE7:
        return TRUE;
    case DDI_STR_DEVICENAME:
        text = DDIGetDeviceName;
        break;
    case DDI_STR_PLUGIN:
        text = DDIGetPlugInName;
        break;
    case DDI_STR_CFGMODEL:
        text = DDIGetCfgModelName;
        break;
    case DDI_STR_MODEL:
        text = DDIGetModelName;
        break;
    case DDI_STR_JOBNAME:
        text = DDIGetJobName;
        break;
    case DDI_STR_PORT:
        text = DDIGetDevicePort;
        break;
    case DDI_STR_VERSION:
        // The length is always the version's 8 characters; the text goes only as far as the
        // capacity allows.
        GetString(kVersion, pBuf, static_cast<INT>(*pcch));
        *pcch = sizeof kVersion / sizeof kVersion[0] - 1;
        return TRUE;
    case DDI_STR_FONTSUBST:
        return ReadFontSubTable(pdm, pBuf, pcch);
    default:
        return FALSE;
    }
    *pcch = static_cast<DWORD>(text(pdm, pBuf, static_cast<INT>(*pcch)));
    return TRUE;
}

Q417_API BOOL DDISetString(DDIDEVMODE *pdm, DWORD id, const WCHAR *pBuf, DWORD cch) {
    if (!pdm || !pBuf || cch == 0 || id != DDI_STR_FONTSUBST) return FALSE;
    return WriteFontSubTable(pdm, pBuf, cch);
}

Q417_API void DDIGetCustDataPtr(DDIDEVMODE *pdm, void **ppCustData) {
    if (!ppCustData) return;
    *ppCustData = pdm ? Ptr32To(pdm->pCustData) : nullptr;
}

// Bit 1 remembers that the printer environment was set; a later code 0 keeps it.
Q417_API BOOL DDISetDialogResult(DDIDEVMODE *pdm, DWORD code) {
    if (!pdm) return FALSE;
    switch (code) {
    case 0:
        pdm->dwDialogResult = (pdm->dwDialogResult & 2) ? 2 : 0;
        return TRUE;
    case 1:
        pdm->dwDialogResult = 1;
        return TRUE;
    case 2:
        SetPrinterEnviron(pdm);
        pdm->dwDialogResult = 3;
        return TRUE;
    default:
        return FALSE;
    }
}

} // extern "C"
