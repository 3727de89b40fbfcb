// From a parsed description to a configuration record: numbers and flags, and for each option
// family flat tables of wide rows, each table at the exact width of its longest text.
#include "config/cfg_internal.h"
#include "config/config.h"
#include "pdd/pdd.h"

#include <algorithm>

using namespace q417::cfg;

namespace {

constexpr size_t kNone = SIZE_MAX;

// The length a text claims; widths and blocks are sized by it.
size_t NLen(const PDDTEXT &t) {
    return size_t(std::clamp<int>(t.nLen, 0, int(sizeof t.achText)));
}

// The bytes of the text as a C string: it also ends at its first zero byte.
size_t TextLen(const PDDTEXT &t) {
    return strnlen(t.achText, NLen(t));
}

// Widens a text into a zero-filled row of at least TextLen + 1 characters.
void Widen(WCHAR *row, const PDDTEXT &t) {
    int n = int(TextLen(t));
    if (n) MultiByteToWideChar(CP_ACP, 0, t.achText, n, row, n);
}

const PDDTEXT &DisplayText(const PDDTEXT &key, const PDDTEXT &translation) {
    return translation.nLen ? translation : key;
}

// Where a family's fields stand in the record.
struct Family {
    size_t count, def, hKeys, cchKey, hNames, cchName, hCmds, cchCmd;
    size_t hNumbers; // kNone: the family has no number table
};

#define OFF Q417_CFG_OFF
constexpr Family kResFamily = {OFF(nResolutions), OFF(nDefaultRes), OFF(hResKeys),
                               OFF(cchResKey),    OFF(hResNames),   OFF(cchResName),
                               OFF(hResCmds),     OFF(cchResCmd),   OFF(hResValues)};
constexpr Family kPaperFamily = {OFF(nPapers),     OFF(nDefaultPaper), OFF(hPaperKeys),
                                 OFF(cchPaperKey), OFF(hPaperNames),   OFF(cchPaperName),
                                 OFF(hPaperCmds),  OFF(cchPaperCmd),   OFF(hPaperDims)};
constexpr Family kTrayFamily = {OFF(nTrays),     OFF(nDefaultTray), OFF(hTrayKeys),
                                OFF(cchTrayKey), OFF(hTrayNames),   OFF(cchTrayName),
                                OFF(hTrayCmds),  OFF(cchTrayCmd),   kNone};
constexpr Family kDestFamily = {OFF(nDests),     OFF(nDefaultDest), OFF(hDestKeys),
                                OFF(cchDestKey), OFF(hDestNames),   OFF(cchDestName),
                                OFF(hDestCmds),  OFF(cchDestCmd),   kNone};
constexpr Family kMediaFamily = {OFF(nMedia),      OFF(nDefaultMedia), OFF(hMediaKeys),
                                 OFF(cchMediaKey), OFF(hMediaNames),   OFF(cchMediaName),
                                 OFF(hMediaCmds),  OFF(cchMediaCmd),   kNone};

// Number tables of the families that have one.
struct NoNumbers {
    uint64_t Bytes(const CFGINFO *, DWORD) const { return 0; }
    template <class E>
    void Fill(void *, DWORD, DWORD, const E &) const {}
};

struct ResValues {
    uint64_t Bytes(const CFGINFO *, DWORD count) const { return uint64_t(count) * 8; }
    void Fill(void *block, DWORD, DWORD r, const PDDRESOLUTION &e) const {
        const int32_t row[2] = {e.nXRes, e.nYRes};
        std::memcpy(static_cast<uint8_t *>(block) + uint64_t(r) * 8, row, 8);
    }
};

struct PaperDims {
    bool landscapeHalf;
    uint64_t Bytes(const CFGINFO *, DWORD count) const {
        return uint64_t(count) * 24 * (landscapeHalf ? 2 : 1);
    }
    // Both halves start with the paper's own width and height, unswapped.
    void Fill(void *block, DWORD count, DWORD r, const PDDPAPER &e) const {
        auto put = [&](uint64_t row, const PDDAREA &a) {
            const int32_t v[6] = {e.nWidth, e.nHeight, a.nLeft, a.nTop, a.nRight, a.nBottom};
            std::memcpy(static_cast<uint8_t *>(block) + row * 24, v, 24);
        };
        put(r, e.PortraitArea);
        if (landscapeHalf) put(uint64_t(count) + r, e.LandscapeArea);
    }
};

void FreeFamily(CFGINFO *c, const Family &f) {
    for (size_t off : {f.hKeys, f.hNames, f.hCmds, f.hNumbers}) {
        if (off == kNone) continue;
        if (HGLOBAL h = GetU32(c, off)) GlobalFree(h);
        SetU32(c, off, 0);
    }
}

// Two passes: the widths first, then each table allocated once at its exact size and filled.
// The rows stop at the family's count even if the list runs on.
template <class E, class N>
int BuildFamily(CFGINFO *c, const Family &f, E *head, const E *def, const N &numbers,
                const E *custom = nullptr) {
    DWORD count = GetU32(c, f.count);
    if (!head || !count) return 0;

    uint32_t cchName = 0, cchKey = 0, cchCmd = 0;
    for (const E *e = head; e; e = e->pNext) {
        cchName = std::max<uint32_t>(cchName, NLen(DisplayText(e->Key, e->Translation)));
        cchKey = std::max<uint32_t>(cchKey, NLen(e->Key));
        cchCmd = std::max<uint32_t>(cchCmd, NLen(e->Cmd));
    }
    cchName += 1;
    cchKey += 1;
    if (cchCmd) cchCmd += 1;
    SetU32(c, f.cchName, cchName);
    SetU32(c, f.cchKey, cchKey);
    SetU32(c, f.cchCmd, cchCmd);

    const uint64_t cbNames = uint64_t(count) * cchName * 2;
    const uint64_t cbKeys = uint64_t(count) * cchKey * 2;
    const uint64_t cbCmds = uint64_t(count) * cchCmd * 2;
    const uint64_t cbNumbers = numbers.Bytes(c, count);
    for (uint64_t cb : {cbNames, cbKeys, cbCmds, cbNumbers})
        if (cb > 0x7FFFFFFF) return 0;

    SetU32(c, f.hNames, GlobalAlloc(GHND, SIZE_T(cbNames)));
    SetU32(c, f.hKeys, GlobalAlloc(GHND, SIZE_T(cbKeys)));
    if (cchCmd) SetU32(c, f.hCmds, GlobalAlloc(GHND, SIZE_T(cbCmds)));
    if (f.hNumbers != kNone) SetU32(c, f.hNumbers, GlobalAlloc(GHND, SIZE_T(cbNumbers)));
    Locked names(GetU32(c, f.hNames));
    Locked keys(GetU32(c, f.hKeys));
    Locked cmds(cchCmd ? GetU32(c, f.hCmds) : 0);
    Locked nums(f.hNumbers != kNone ? GetU32(c, f.hNumbers) : 0);
    if (!names || !keys || (cchCmd && !cmds) || (f.hNumbers != kNone && !nums)) {
        names.Release(), keys.Release(), cmds.Release(), nums.Release();
        FreeFamily(c, f);
        return 0;
    }

    SetU32(c, f.def, 0);
    DWORD r = 0;
    for (const E *e = head; e && r < count; e = e->pNext, ++r) {
        if (e == def) SetU32(c, f.def, r);
        if (custom && e == custom) c->nCustomPaper = INT(r);
        Widen(names.As<WCHAR>() + uint64_t(r) * cchName, DisplayText(e->Key, e->Translation));
        Widen(keys.As<WCHAR>() + uint64_t(r) * cchKey, e->Key);
        if (cchCmd) Widen(cmds.As<WCHAR>() + uint64_t(r) * cchCmd, e->Cmd);
        numbers.Fill(nums.As(), count, r, *e);
    }
    return 1;
}

// An 8-bit text into a block of its length and a terminator; nothing for an empty text.
int CopyText8(const PDDTEXT &t, HGLOBAL &hOut) {
    size_t n = NLen(t);
    if (!n) return 1;
    Owned block(n + 1);
    Locked p(block.Get());
    if (!p) return 0;
    std::memcpy(p.As(), t.achText, TextLen(t));
    p.Release();
    hOut = block.Keep();
    return 1;
}

// An orientation command: exactly nLen bytes, zero-filled behind a text that ends earlier.
void CopyOrientCmd(const PDDTEXT &t, HGLOBAL &hOut, DWORD &cbOut) {
    size_t nLen = NLen(t);
    if (!nLen) return;
    cbOut = DWORD(nLen);
    Owned block(nLen);
    Locked p(block.Get());
    if (!p) return;
    std::memcpy(p.As(), t.achText, TextLen(t));
    p.Release();
    hOut = block.Keep();
}

} // namespace

int BuildResolutionInfo(PDDINFO *pPDD, CFGINFO *pCfg) {
    return BuildFamily(pCfg, kResFamily, pPDD->pResList, pPDD->pDefaultRes, ResValues{});
}

int BuildPaperInfo(PDDINFO *pPDD, CFGINFO *pCfg) {
    if (!pPDD->pPaperList) return 0;
    pCfg->nCustomPaper = -1;
    return BuildFamily(pCfg, kPaperFamily, pPDD->pPaperList, pPDD->pDefaultPaper,
                       PaperDims{pCfg->wVersion > 8}, pPDD->pCustomPaper);
}

int BuildTrayInfo(PDDINFO *pPDD, CFGINFO *pCfg) {
    return BuildFamily(pCfg, kTrayFamily, pPDD->pTrayList, pPDD->pDefaultTray, NoNumbers{});
}

int BuildDstBinInfo(PDDINFO *pPDD, CFGINFO *pCfg) {
    return BuildFamily(pCfg, kDestFamily, pPDD->pDestList, pPDD->pDefaultDest, NoNumbers{});
}

int BuildMediaTypeInfo(PDDINFO *pPDD, CFGINFO *pCfg) {
    return BuildFamily(pCfg, kMediaFamily, pPDD->pMediaList, pPDD->pDefaultMedia, NoNumbers{});
}

int GetModelName(PDDINFO *pPDD, CFGINFO *pCfg) {
    HGLOBAL h = 0;
    int ok = CopyText8(pPDD->Product, h);
    pCfg->hModelName = h;
    return ok;
}

int GetFileVersion(PDDINFO *pPDD, CFGINFO *pCfg) {
    HGLOBAL h = 0;
    int ok = CopyText8(pPDD->FileVersion, h);
    pCfg->hFileVersion = h;
    return ok;
}

int GetPlugInName(PDDINFO *pPDD, CFGINFO *pCfg) {
    size_t n = NLen(pPDD->PlugIn);
    if (!n) return 1;
    Owned block((n + 1) * 2);
    Locked p(block.Get());
    if (!p) return 0;
    Widen(p.As<WCHAR>(), pPDD->PlugIn);
    p.Release();
    pCfg->hPlugIn = block.Keep();
    return 1;
}

void CopyCustPaperInfo(CFGINFO *pCfg, const PDDINFO *pPDD) {
    if (!pPDD->pCustomPaper) return;
    pCfg->dwCustMinWidth = DWORD(pPDD->dwCustMinWidth);
    pCfg->dwCustMinHeight = DWORD(pPDD->dwCustMinHeight);
    pCfg->dwCustMaxWidth = DWORD(pPDD->dwCustMaxWidth);
    pCfg->dwCustMaxHeight = DWORD(pPDD->dwCustMaxHeight);
    pCfg->dwCustDefWidth = DWORD(pPDD->dwCustDefWidth);
    pCfg->dwCustDefHeight = DWORD(pPDD->dwCustDefHeight);
    pCfg->dwCustMarginLeft = DWORD(pPDD->dwCustMarginLeft);
    pCfg->dwCustMarginTop = DWORD(pPDD->dwCustMarginTop);
    pCfg->dwCustMarginRight = DWORD(pPDD->dwCustMarginRight);
    pCfg->dwCustMarginBottom = DWORD(pPDD->dwCustMarginBottom);
}

void CopyOrientCmdInfo(CFGINFO *pCfg, PDDINFO *pPDD) {
    HGLOBAL h = 0;
    DWORD cb = 0;
    CopyOrientCmd(pPDD->PortraitCmd, h, cb);
    pCfg->hPortraitCmd = h, pCfg->cbPortraitCmd = cb;
    if (cb && !h) return; // no memory: the count stands, the handle is 0
    h = 0, cb = 0;
    CopyOrientCmd(pPDD->LandscapeCmd, h, cb);
    pCfg->hLandscapeCmd = h, pCfg->cbLandscapeCmd = cb;
}

int PDD_GetConfig(HGLOBAL hCfgBlock) {
    Locked cfg(hCfgBlock);
    if (!cfg) return 0;
    CFGINFO *c = cfg.As<CFGINFO>();
    Locked pdd(c->hPDD);
    if (!pdd) return 0;
    PDDINFO *p = pdd.As<PDDINFO>();

    // The version first: the paper builder asks it about the landscape half.
    c->wVersion = CFGINFO_VERSION;
    c->dwDuplex = p->dwDuplex;
    c->dwCollate = p->dwCollate;
    c->dwLanguage = p->dwLanguage;
    c->dwLanguageLevel = p->dwLanguageLevel;
    c->dwColors = p->dwColors;
    c->bLangID = p->bLangID;
    c->bMeasUnits = p->bMeasUnits;
    c->bTextClipping = p->bTextClipping;
    c->bLandscapeMinus90 = p->bLandscapeMinus90;
    c->bFontPitch = p->bFontPitch;
    c->nResolutions = p->nResolutions;
    c->nPapers = p->nPapers;
    c->nTrays = p->nTrays;
    c->nDests = p->nDests;
    c->nMedia = p->nMedia;
    c->nCustomPaper = -1;

    bool ok = BuildResolutionInfo(p, c) && BuildPaperInfo(p, c) && BuildTrayInfo(p, c) &&
              GetModelName(p, c) && GetFileVersion(p, c) && (!c->nDests || BuildDstBinInfo(p, c)) &&
              (!c->nMedia || BuildMediaTypeInfo(p, c)) && GetPlugInName(p, c);
    if (!ok) {
        FreeCfgTables(c);
        return 0;
    }
    CopyCustPaperInfo(c, p);
    CopyOrientCmdInfo(c, p);
    return 1;
}
