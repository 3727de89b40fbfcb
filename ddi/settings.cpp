// Single settings of the device mode: colour correction, fonts and layout, job settings, and
// two values of the configuration. Each pair stores within its range and answers as its
// callers expect, which for some of them is far from symmetrical.
#include "ddi/ddi.h"

#include "ddi/cfglock.h"

using namespace q417::ddi;

namespace {

// bLayout
constexpr BYTE kPagesMask = 0x3F;
constexpr BYTE kBooklet = 0x40;
constexpr BYTE kBorder = 0x80;
// bOutputFlags
constexpr BYTE kCapsMask = 0x03;
constexpr BYTE kTextClipping = 0x04;

// Lightness and saturation are signed percentages kept as a byte with 100 added.
constexpr INT kBias = 100;

const DDICOLORCORRECT *ClassOf(const DDIDEVMODE *pdm, INT cls) {
    return cls >= 0 && cls <= 2 ? &pdm->ColorCorrect[cls] : nullptr;
}
DDICOLORCORRECT *ClassOf(DDIDEVMODE *pdm, INT cls) {
    return cls >= 0 && cls <= 2 ? &pdm->ColorCorrect[cls] : nullptr;
}

void SetBit(BYTE &b, BYTE bit, DWORD on) {
    b = on ? BYTE(b | bit) : BYTE(b & ~bit);
}

} // namespace

// ---- Colour ----

INT DDIGetCCType(const DDIDEVMODE *pdm, INT cls) {
    if (!pdm) return -1;
    const DDICOLORCORRECT *cc = ClassOf(pdm, cls);
    return cc ? cc->bType : -1;
}

INT DDISetCCType(DDIDEVMODE *pdm, INT cls, DWORD value) {
    if (!pdm) return 0;
    DDICOLORCORRECT *cc = ClassOf(pdm, cls);
    if (!cc || value > 7) return 0;
    cc->bType = static_cast<BYTE>(value);
    return 1;
}

INT DDIGetCCRendAlg(const DDIDEVMODE *pdm, INT cls) {
    if (!pdm) return -1;
    const DDICOLORCORRECT *cc = ClassOf(pdm, cls);
    return cc ? cc->bRendAlg : -1;
}

INT DDISetCCRendAlg(DDIDEVMODE *pdm, INT cls, DWORD value) {
    if (!pdm) return 0;
    DDICOLORCORRECT *cc = ClassOf(pdm, cls);
    if (!cc || value > 4) return 0;
    cc->bRendAlg = static_cast<BYTE>(value);
    return 1;
}

INT DDIGetCCLightness(const DDIDEVMODE *pdm, INT cls) {
    if (!pdm) return 0;
    const DDICOLORCORRECT *cc = ClassOf(pdm, cls);
    return cc ? cc->bLightness - kBias : 0;
}

INT DDISetCCLightness(DDIDEVMODE *pdm, INT cls, DWORD value) {
    if (!pdm) return 0;
    DDICOLORCORRECT *cc = ClassOf(pdm, cls);
    INT v = static_cast<INT>(value);
    if (!cc || v < -kBias || v > kBias) return 0;
    cc->bLightness = static_cast<BYTE>(v + kBias);
    return 1;
}

INT DDIGetCCSaturation(const DDIDEVMODE *pdm, INT cls) {
    if (!pdm) return 0;
    const DDICOLORCORRECT *cc = ClassOf(pdm, cls);
    return cc ? cc->bSaturation - kBias : 0;
}

INT DDISetCCSaturation(DDIDEVMODE *pdm, INT cls, DWORD value) {
    if (!pdm) return 0;
    DDICOLORCORRECT *cc = ClassOf(pdm, cls);
    INT v = static_cast<INT>(value);
    if (!cc || v < -kBias || v > kBias) return 0;
    cc->bSaturation = static_cast<BYTE>(v + kBias);
    return 1;
}

INT DDIGetCCGamma(const DDIDEVMODE *pdm) {
    return pdm ? pdm->sGamma : -1;
}

INT DDISetCCGamma(DDIDEVMODE *pdm, DWORD value) {
    if (!pdm || value > 4000) return 0;
    pdm->sGamma = static_cast<SHORT>(value);
    return 1;
}

INT DDIGetPreset(const DDIDEVMODE *pdm) {
    return pdm ? static_cast<INT>(pdm->dwPreset) : -1;
}

INT DDISetPreset(DDIDEVMODE *pdm, DWORD value) {
    if (!pdm) return 0;
    pdm->dwPreset = value;
    return 1;
}

INT DDIGetHalftonePattern(const DDIDEVMODE *pdm) {
    return pdm ? static_cast<INT>(pdm->dwHalftonePattern) : 0;
}

INT DDISetHalftonePattern(DDIDEVMODE *pdm, DWORD value) {
    if (!pdm || value > 15) return 0;
    pdm->dwHalftonePattern = value;
    return 1;
}

// ICM is accepted so that callers can use it; there is nothing to keep.
INT DDIGetICMMode(const DDIDEVMODE *) {
    return 0;
}
INT DDISetICMMode(DDIDEVMODE *, DWORD) {
    return 1;
}
INT DDIGetICMIntent(const DDIDEVMODE *) {
    return 0;
}
INT DDISetICMIntent(DDIDEVMODE *, DWORD) {
    return 1;
}

// ---- Fonts and layout ----

// A foreign record may hold any byte; above the known range it reads as 0.
INT DDIGetFontMapping(const DDIDEVMODE *pdm) {
    if (!pdm) return -1;
    return pdm->bFontMapping > 4 ? 0 : pdm->bFontMapping;
}

INT DDISetFontMapping(DDIDEVMODE *pdm, DWORD value) {
    if (!pdm || value > 4) return 0;
    pdm->bFontMapping = static_cast<BYTE>(value);
    return 1;
}

INT DDIGetTTDownloadMethod(const DDIDEVMODE *pdm) {
    return pdm ? pdm->bTTDownload : -1;
}

INT DDISetTTDownloadMethod(DDIDEVMODE *pdm, DWORD value) {
    if (!pdm) return -1;
    if (value > 1) return 0;
    pdm->bTTDownload = static_cast<BYTE>(value);
    return 1;
}

INT DDIGetPagesPerSheet(const DDIDEVMODE *pdm) {
    return pdm ? pdm->bLayout & kPagesMask : 1;
}

INT DDISetPagesPerSheet(DDIDEVMODE *pdm, DWORD value) {
    if (!pdm) return 0;
    switch (value) {
    case 1:
    case 2:
    case 4:
    case 6:
    case 9:
    case 16:
        pdm->bLayout = static_cast<BYTE>((pdm->bLayout & ~kPagesMask) | value);
        return 1;
    default:
        return 0;
    }
}

INT DDIGetPageBorder(const DDIDEVMODE *pdm) {
    return pdm && (pdm->bLayout & kBorder) ? 1 : 0;
}

INT DDISetPageBorder(DDIDEVMODE *pdm, DWORD value) {
    if (!pdm) return 0;
    SetBit(pdm->bLayout, kBorder, value);
    return 1;
}

INT DDIGetBookletMode(const DDIDEVMODE *pdm) {
    return pdm && (pdm->bLayout & kBooklet) ? 1 : 0;
}

INT DDISetBookletMode(DDIDEVMODE *pdm, DWORD value) {
    if (!pdm) return 0;
    SetBit(pdm->bLayout, kBooklet, value);
    return 1;
}

INT DDIGetBookletPaperID(const DDIDEVMODE *pdm) {
    return pdm ? pdm->wBookletPaperID : 0;
}

INT DDISetBookletPaperID(DDIDEVMODE *pdm, DWORD value) {
    if (!pdm) return 0;
    pdm->wBookletPaperID = static_cast<WORD>(value);
    return 1;
}

INT DDIGetTextClipping(const DDIDEVMODE *pdm) {
    return pdm && (pdm->bOutputFlags & kTextClipping) ? 1 : 0;
}

INT DDISetTextClipping(DDIDEVMODE *pdm, DWORD value) {
    if (!pdm) return 0;
    SetBit(pdm->bOutputFlags, kTextClipping, value);
    return 1;
}

// ---- Job settings ----

INT DDIGetCopies(const DDIDEVMODE *pdm) {
    return pdm ? pdm->dmCopies : 1;
}

INT DDISetCopies(DDIDEVMODE *pdm, DWORD value) {
    if (!pdm || static_cast<INT>(value) < 0) return 0;
    pdm->dmCopies = static_cast<SHORT>(value);
    return 1;
}

// Codes: 0 portrait, 1 landscape, 2 and 3 the same turned by 180 degrees.
INT DDIGetPageOrient(const DDIDEVMODE *pdm) {
    if (!pdm) return 0;
    return (pdm->dmOrientation == 2 ? 1 : 0) + (pdm->bRotated ? 2 : 0);
}

// A code out of range is not ignored: the record falls back to plain portrait.
INT DDISetPageOrient(DDIDEVMODE *pdm, DWORD value) {
    if (!pdm) return 0;
    DWORD code = value <= 3 ? value : 0;
    pdm->dmOrientation = (code & 1) ? 2 : 1;
    pdm->bRotated = (code & 2) ? 1 : 0;
    return value <= 3 ? 1 : 0;
}

INT DDIGetEmulation(const DDIDEVMODE *pdm) {
    return pdm ? pdm->wEmulation : 4;
}

INT DDISetEmulation(DDIDEVMODE *pdm, DWORD value) {
    if (!pdm || value < 1 || value > 6) return 0;
    pdm->wEmulation = static_cast<WORD>(value);
    return 1;
}

// 0 and 1 both mean simplex and store 1, so 0 never reads back once set.
INT DDIGetDuplexMode(const DDIDEVMODE *pdm) {
    if (!pdm) return 0;
    SHORT d = pdm->dmDuplex;
    return d >= 1 && d <= 3 ? d : 0;
}

INT DDISetDuplexMode(DDIDEVMODE *pdm, DWORD value) {
    if (!pdm || value > 3) return -1;
    pdm->dmDuplex = static_cast<SHORT>(value == 0 ? 1 : value);
    return static_cast<INT>(value);
}

INT DDIGetCollateMode(const DDIDEVMODE *pdm) {
    return pdm ? pdm->dmCollate : 0;
}

INT DDISetCollateMode(DDIDEVMODE *pdm, DWORD value) {
    if (!pdm) return 0;
    if (value > 1) return -1;
    pdm->dmCollate = static_cast<SHORT>(value);
    return static_cast<INT>(value);
}

// Output capability codes 0..3 against bits 0 and 1: 0 neither, 1 bit 1, 2 both, 3 bit 0.
// Codes 1 to 3 replace the whole byte, so they clear text clipping and reverse landscape.
INT DDIGetOutputCaps(const DDIDEVMODE *pdm) {
    if (!pdm) return 0;
    static constexpr INT kCodeOfBits[4] = {0, 3, 1, 2};
    return kCodeOfBits[pdm->bOutputFlags & kCapsMask];
}

INT DDISetOutputCaps(DDIDEVMODE *pdm, DWORD value) {
    if (!pdm) return 0;
    static constexpr BYTE kByteOfCode[4] = {0, 2, 3, 1};
    if (value == 0)
        pdm->bOutputFlags &= static_cast<BYTE>(~kCapsMask);
    else if (value <= 3)
        pdm->bOutputFlags = kByteOfCode[value];
    return 1;
}

INT DDIGetJobStatus(const DDIDEVMODE *pdm) {
    return pdm ? pdm->bJobStatus : 0;
}

INT DDIGetCurrentPage(const DDIDEVMODE *pdm) {
    const SPLDEVINFO *info = pdm ? Ptr32As<const SPLDEVINFO>(pdm->pJobInfo) : nullptr;
    return info ? static_cast<INT>(info->nPage) : 1;
}

// ---- Values of the configuration ----

INT DDIGetLangVersion(const DDIDEVMODE *pdm) {
    CfgLock cfg(pdm);
    return cfg ? cfg->bLangID : 9;
}

INT DDIGetMeasUnits(const DDIDEVMODE *pdm) {
    CfgLock cfg(pdm);
    return cfg ? cfg->bMeasUnits : 0;
}
