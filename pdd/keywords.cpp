// Key handlers: each takes the rest of its line with its fixed sequence of reads and stores
// what it found. A handler gives 0 for a line it accepted, 1 for one it refused; what it stored
// before a refusal stays, so the order of the stores below is part of the behaviour.
#include "pdd/pddint.h"

#include <charconv>
#include <cstring>
#include <string>
#include <vector>

const LANGVERS LangTable[PDD_NLANGS] = {
    {"Czech", 1, 5},      {"Danish", 1, 6},      {"Dutch", 1, 19},   {"English", 0, 9},
    {"Finnish", 1, 11},   {"French", 1, 12},     {"German", 1, 7},   {"Italian", 1, 16},
    {"Norwegian", 1, 20}, {"Portuguese", 1, 22}, {"Russian", 1, 25}, {"Spanish", 1, 10},
    {"Swedish", 1, 29},
};

namespace {

constexpr char kSpaces[] = " \t\n\v\f\r"; // what atof and atoi skip in front of a number

inline bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}
inline int32_t Sub32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

bool IsTrue(const char *pszWord) {
    return PDDStrICmp(pszWord, "True") == 0;
}
bool IsUnknown(const char *pszWord) {
    return PDDStrICmp(pszWord, "unknown") == 0;
}

int LangCompare(const void *pName, const void *pRow) {
    return PDDStrICmp(static_cast<const char *>(pName),
                      static_cast<const LANGVERS *>(pRow)->pszName);
}

// "600dpi" is 600 by 600, "600x300dpi" 600 by 300; a name without either letter is square.
void FillResolution(PDDRESOLUTION *pRes, const char *pszName) {
    const char *p = std::strpbrk(pszName, "dx");
    pRes->nXRes = PDDAtoi(pszName);
    pRes->nYRes = (p && *p == 'x') ? PDDAtoi(p + 1) : pRes->nXRes;
}

// The option lines of paper sources, output bins and media types.
int ItemOption(PDDITEM **ppHead, DWORD *pnCount, bool bCodeOptional) {
    char *pszOption = PDDReadC();
    if (!pszOption) return PDDRefuse("no option");
    PDDITEM *pItem = GetListEntry(pszOption, ppHead, pnCount);
    if (!pItem) return 1; // the entry functions have told why
    char *pszCode = PDDReadW();
    if (!pszCode) return bCodeOptional ? 0 : PDDRefuse("no code behind the option");
    txtcpy(&pItem->Cmd, pszCode);
    return 0;
}

int ItemDefault(PDDITEM **ppDefault, PDDITEM **ppHead, DWORD *pnCount) {
    char *pszWord = PDDReadW();
    if (!pszWord) return PDDRefuse("no option named");
    if (IsUnknown(pszWord)) return 0;
    PDDITEM *pItem = GetListEntry(pszWord, ppHead, pnCount);
    if (!pItem) return 1; // the entry functions have told why
    *ppDefault = pItem;
    return 0;
}

int FlagWord(DWORD *pdw, DWORD dwTrue, DWORD dwFalse) {
    char *pszWord = PDDReadW();
    if (!pszWord) return PDDRefuse("no value");
    *pdw = IsTrue(pszWord) ? dwTrue : dwFalse;
    return 0;
}

int TextValue(PDDTEXT *pText, char *pszValue) {
    if (!pszValue) return PDDRefuse("no value");
    txtcpy(pText, pszValue);
    return 0;
}

// ---- "Include:" ----------------------------------------------------------------------------

constexpr size_t kMaxPath = 1024;

inline bool IsSep(WCHAR c) {
    return c == u'\\' || c == u'/';
}

// A relative name is taken relative to the directory of the file that names it.
bool MakeIncludePath(LPCWSTR pszFrom, const char *pszName, WCHAR *pszOut) {
    size_t cchDir = 0;
    bool bAbsolute = pszName[0] == '\\' || pszName[0] == '/' || (pszName[0] && pszName[1] == ':');
    if (!bAbsolute && pszFrom) {
        for (size_t i = 0; pszFrom[i]; ++i)
            if (IsSep(pszFrom[i])) cchDir = i + 1;
    }
    if (cchDir >= kMaxPath) return false;
    int cch = MultiByteToWideChar(CP_ACP, 0, pszName, -1, pszOut + cchDir,
                                  static_cast<int>(kMaxPath - cchDir));
    if (cch <= 0) return false;
    if (cchDir) std::memcpy(pszOut, pszFrom, cchDir * sizeof(WCHAR));
    return true;
}

// The name as a list of its parts, without empty and "." parts and with ".." applied, so
// that two spellings of one file compare equal.
std::vector<std::u16string> NormalPath(LPCWSTR psz) {
    std::vector<std::u16string> parts;
    if (!psz) return parts;
    if (IsSep(psz[0])) parts.emplace_back(); // an absolute name starts with an empty part
    std::u16string part;
    for (const WCHAR *p = psz;; ++p) {
        if (*p && !IsSep(*p)) {
            part.push_back(*p);
            continue;
        }
        if (part == u"..") {
            if (!parts.empty() && !parts.back().empty() && parts.back() != u"..")
                parts.pop_back();
            else
                parts.push_back(part);
        } else if (!part.empty() && part != u".") {
            parts.push_back(part);
        }
        part.clear();
        if (!*p) break;
    }
    return parts;
}

} // namespace

// ---- Values ---------------------------------------------------------------------------------

int PDDStrICmp(const char *a, const char *b) {
    for (;; ++a, ++b) {
        unsigned char ca = static_cast<unsigned char>(*a);
        unsigned char cb = static_cast<unsigned char>(*b);
        if (ca >= 'A' && ca <= 'Z') ca = static_cast<unsigned char>(ca + 32);
        if (cb >= 'A' && cb <= 'Z') cb = static_cast<unsigned char>(cb + 32);
        if (ca != cb) return ca < cb ? -1 : 1;
        if (ca == 0) return 0;
    }
}

int32_t PDDAtoi(const char *psz) {
    const char *p = psz + std::strspn(psz, kSpaces);
    bool bNeg = *p == '-';
    if (*p == '-' || *p == '+') ++p;
    int64_t v = 0;
    for (; IsDigit(*p); ++p) {
        v = v * 10 + (*p - '0');
        if (v > INT64_C(2147483648)) v = INT64_C(2147483648); // saturates: no overflow
    }
    if (bNeg) v = -v;
    if (v > INT32_MAX) v = INT32_MAX;
    return static_cast<int32_t>(v);
}

// Points as atof reads them, to tenths of a point truncated toward zero. Out of range values
// stop at the ends of the 32-bit range.
int32_t PDDSize(const char *psz) {
    const char *p = psz + std::strspn(psz, kSpaces);
    bool bNeg = *p == '-';
    if (*p == '-' || *p == '+') ++p;
    if (!(IsDigit(*p) || (*p == '.' && IsDigit(p[1])))) return 0;
    double v = 0;
    const char *pEnd = p + std::strlen(p);
    auto r = std::from_chars(p, pEnd, v, std::chars_format::general);
    if (r.ec == std::errc::result_out_of_range) {
        const char *e = std::strpbrk(p, "eE");
        bool bTiny = e && e < r.ptr && e[1] == '-';
        v = bTiny ? 0.0 : 1e300;
    } else if (r.ec != std::errc()) {
        return 0;
    }
    v *= 10.0;
    if (bNeg) v = -v;
    if (v >= 2147483648.0) return INT32_MAX;
    if (v <= -2147483649.0) return INT32_MIN;
    return static_cast<int32_t>(v);
}

const LANGVERS *FindLangVers(const char *pszName) {
    return static_cast<const LANGVERS *>(
        std::bsearch(pszName, LangTable, PDD_NLANGS, sizeof(LANGVERS), LangCompare));
}

int convertlf(PDDTEXT *pText) {
    for (int i = 0; i + 1 < pText->nLen; ++i) {
        if (pText->achText[i] == '\\' && pText->achText[i + 1] == 'n') {
            pText->achText[i] = '\n';
            pText->achText[i + 1] = 0;
            pText->nLen = static_cast<int16_t>(pText->nLen - 1);
            return 1;
        }
    }
    return 0;
}

void CalcCustomImageableArea(PDDINFO *pPDD, PDDPAPER *pPaper) {
    PDDAREA area;
    area.nLeft = pPDD->dwCustMarginLeft;
    area.nTop = pPDD->dwCustMarginTop;
    area.nRight = Sub32(pPDD->dwCustDefWidth, pPDD->dwCustMarginRight);
    area.nBottom = Sub32(pPDD->dwCustDefHeight, pPDD->dwCustMarginBottom);
    pPaper->PortraitArea = area;
    pPaper->LandscapeArea = area;
}

// ---- Papers ---------------------------------------------------------------------------------

int PageSize(PDDINFO *pPDD, char *) {
    char *pszOption = PDDReadC();
    if (!pszOption) return PDDRefuse("no option");
    PDDPAPER *pPaper = GetPaperEntry(pPDD, pszOption, nullptr);
    if (!pPaper) return 1; // the entry functions have told why
    char *pszCode = PDDReadW();
    if (!pszCode) return PDDRefuse("no page size code");
    txtcpy(&pPaper->Cmd, pszCode);
    return 0;
}

int DefaultPageSize(PDDINFO *pPDD, char *) {
    char *pszWord = PDDReadW();
    if (!pszWord) return PDDRefuse("no paper named");
    if (IsUnknown(pszWord)) return 0;
    PDDPAPER *pPaper = GetPaperEntry(pPDD, pszWord, nullptr);
    if (!pPaper) return 1; // the entry functions have told why
    pPDD->pDefaultPaper = pPaper;
    return 0;
}

int PaperDimension(PDDINFO *pPDD, char *) {
    char *pszOption = PDDReadC();
    if (!pszOption) return PDDRefuse("no option");
    PDDPAPER *pPaper = GetPaperEntry(pPDD, pszOption, nullptr);
    if (!pPaper) return 1; // the entry functions have told why
    if (!PDDReadq()) return PDDRefuse("no quoted size");
    char *pszWidth = PDDReadW();
    if (!pszWidth) return PDDRefuse("no width");
    pPaper->nWidth = PDDSize(pszWidth);
    char *pszHeight = PDDReadQ();
    if (!pszHeight) return PDDRefuse("no height");
    pPaper->nHeight = PDDSize(pszHeight);
    return 0;
}

int ImageableArea(PDDINFO *pPDD, char *) {
    char *pszOption = PDDReadC();
    if (!pszOption) return PDDRefuse("no option");
    int nOrient;
    PDDPAPER *pPaper = GetPaperEntry(pPDD, pszOption, &nOrient);
    if (!pPaper) return 1; // the entry functions have told why
    if (!PDDReadq()) return PDDRefuse("no quoted area");
    char *psz[4] = {PDDReadW(), nullptr, nullptr, nullptr};
    if (psz[0]) psz[1] = PDDReadW();
    if (psz[1]) psz[2] = PDDReadW();
    if (psz[2]) psz[3] = PDDReadQ();
    if (!psz[3]) return PDDRefuse("fewer than four numbers: nothing stored");
    int32_t a = PDDSize(psz[0]), b = PDDSize(psz[1]), c = PDDSize(psz[2]), d = PDDSize(psz[3]);
    if (nOrient != 2) pPaper->PortraitArea = {a, b, c, d};
    if (nOrient == 0) pPaper->LandscapeArea = {a, b, c, d};
    if (nOrient == 2) pPaper->LandscapeArea = {b, a, d, c};
    return 0;
}

// ---- Custom paper -------------------------------------------------------------------------

int CustomPageSize(PDDINFO *pPDD, char *) {
    char *pszOption = PDDReadC();
    if (!pszOption) return PDDRefuse("no option");
    PDDPAPER *pPaper = GetPaperEntry(pPDD, pszOption, nullptr);
    pPDD->pCustomPaper = pPaper;
    if (!pPaper) return 1; // the entry functions have told why
    if (!PDDReadq()) return PDDRefuse("no quoted limits");
    char *psz = PDDReadW();
    if (!psz) return PDDRefuse("no lowest width");
    pPaper->nWidth = pPDD->dwCustMinWidth = PDDSize(psz);
    if (!(psz = PDDReadW())) return PDDRefuse("no lowest height");
    pPaper->nHeight = pPDD->dwCustMinHeight = PDDSize(psz);
    if (!(psz = PDDReadW())) return PDDRefuse("no highest width");
    pPDD->dwCustMaxWidth = PDDSize(psz);
    if (!(psz = PDDReadQ())) return PDDRefuse("no highest height");
    pPDD->dwCustMaxHeight = PDDSize(psz);
    if (pPDD->dwCustDefWidth != 0) pPaper->nWidth = pPDD->dwCustDefWidth;
    if (pPDD->dwCustDefHeight != 0) pPaper->nHeight = pPDD->dwCustDefHeight;
    CalcCustomImageableArea(pPDD, pPaper);
    return 0;
}

int DefaultCustomPageSize(PDDINFO *pPDD, char *) {
    PDDPAPER *pPaper = pPDD->pCustomPaper;
    if (!pPaper) return PDDRefuse("needs \"CustomPageSize\" above it");
    if (!PDDReadq()) return PDDRefuse("no quoted size");
    char *psz = PDDReadW();
    if (!psz) return PDDRefuse("no width");
    pPaper->nWidth = pPDD->dwCustDefWidth = PDDSize(psz);
    if (!(psz = PDDReadQ())) return PDDRefuse("no height");
    pPaper->nHeight = pPDD->dwCustDefHeight = PDDSize(psz);
    CalcCustomImageableArea(pPDD, pPaper);
    return 0;
}

int CustomPageMargins(PDDINFO *pPDD, char *) {
    PDDPAPER *pPaper = pPDD->pCustomPaper;
    if (!pPaper) return PDDRefuse("needs \"CustomPageSize\" above it");
    if (!PDDReadq()) return PDDRefuse("no quoted margins");
    char *psz = PDDReadW();
    if (!psz) return PDDRefuse("no left margin");
    pPDD->dwCustMarginLeft = PDDSize(psz);
    if (!(psz = PDDReadW())) return PDDRefuse("no top margin");
    pPDD->dwCustMarginTop = PDDSize(psz);
    if (!(psz = PDDReadW())) return PDDRefuse("no right margin");
    pPDD->dwCustMarginRight = PDDSize(psz);
    if (!(psz = PDDReadQ())) return PDDRefuse("no bottom margin");
    pPDD->dwCustMarginBottom = PDDSize(psz);
    CalcCustomImageableArea(pPDD, pPaper);
    return 0;
}

// ---- Paper sources, output bins, media types ---------------------------------------------

int InputSlot(PDDINFO *pPDD, char *) {
    return ItemOption(&pPDD->pTrayList, &pPDD->nTrays, true);
}
int OutputBin(PDDINFO *pPDD, char *) {
    return ItemOption(&pPDD->pDestList, &pPDD->nDests, false);
}
int MediaType(PDDINFO *pPDD, char *) {
    return ItemOption(&pPDD->pMediaList, &pPDD->nMedia, false);
}

int DefaultInputSlot(PDDINFO *pPDD, char *) {
    return ItemDefault(&pPDD->pDefaultTray, &pPDD->pTrayList, &pPDD->nTrays);
}
int DefaultOutputBin(PDDINFO *pPDD, char *) {
    return ItemDefault(&pPDD->pDefaultDest, &pPDD->pDestList, &pPDD->nDests);
}
int DefaultMediaType(PDDINFO *pPDD, char *) {
    return ItemDefault(&pPDD->pDefaultMedia, &pPDD->pMediaList, &pPDD->nMedia);
}

// ---- Resolutions --------------------------------------------------------------------------

int Resolution(PDDINFO *pPDD, char *) {
    char *pszOption = PDDReadC();
    if (!pszOption) return PDDRefuse("no option");
    PDDRESOLUTION *pRes = GetResolutionEntry(pPDD, pszOption);
    if (!pRes) return 1; // the entry functions have told why
    FillResolution(pRes, pszOption);
    if (!PDDReadq()) return 0; // a resolution may have no command
    char *pszCmd = PDDReadQ();
    if (!pszCmd) return 0;
    txtcpy(&pRes->Cmd, pszCmd);
    return 0;
}

int DefaultResolution(PDDINFO *pPDD, char *) {
    char *pszWord = PDDReadW();
    if (!pszWord) return PDDRefuse("no resolution named");
    if (IsUnknown(pszWord)) return 0;
    PDDRESOLUTION *pRes = GetResolutionEntry(pPDD, pszWord);
    if (!pRes) return 1; // the entry functions have told why
    FillResolution(pRes, pszWord);
    pPDD->pDefaultRes = pRes;
    return 0;
}

int SetResolution(PDDINFO *, char *) {
    return 0;
}

// ---- Printer language ---------------------------------------------------------------------

int PrinterLanguage(PDDINFO *pPDD, char *) {
    char *pszWord = PDDReadW();
    if (!pszWord) return PDDRefuse("no language");
    if (PDDStrICmp(pszWord, "pcl5") == 0) {
        pPDD->dwLanguage = 1;
    } else if (PDDStrICmp(pszWord, "pcl6") == 0) {
        pPDD->dwLanguage = 5;
    } else if (PDDStrICmp(pszWord, "gdi") == 0) {
        pPDD->dwLanguage = 10;
    } else {
        return PDDRefuse("language other than pcl5, pcl6, gdi");
    }
    return 0;
}

int LanguageLevel(PDDINFO *pPDD, char *) {
    char *pszWord = PDDReadW();
    if (!pszWord) return PDDRefuse("no level");
    switch (pPDD->dwLanguage) {
    case 1:
        pPDD->dwLanguageLevel = PDDStrICmp(pszWord, "5c") == 0    ? 3
                                : PDDStrICmp(pszWord, "5ec") == 0 ? 4
                                                                  : 2;
        return 0;
    case 5:
        pPDD->dwLanguageLevel = PDDStrICmp(pszWord, "6c") == 0 ? 6 : 5;
        return 0;
    case 10:
        for (const char *psz : {"1x1", "3x1", "1x8", "3x8", "1x24"})
            if (PDDStrICmp(pszWord, psz) == 0) pPDD->dwLanguageLevel = 11;
        return 0;
    default:
        return PDDRefuse("needs \"PrinterLanguage:\" above it");
    }
}

int LanguageVersion(PDDINFO *pPDD, char *) {
    char *pszName = PDDReadQ();
    if (!pszName) return PDDRefuse("no language name");
    const LANGVERS *pRow = FindLangVers(pszName);
    if (!pRow) return PDDRefuse("unknown language, or its name not in quotes");
    pPDD->bLangID = pRow->bLangID;
    pPDD->bMeasUnits = pRow->bMeasUnits;
    return 0;
}

// ---- Flags and single values --------------------------------------------------------------

int Colors(PDDINFO *pPDD, char *) {
    return FlagWord(&pPDD->dwColors, 3, 1);
}
int DuplexDevice(PDDINFO *pPDD, char *) {
    return FlagWord(&pPDD->dwDuplex, 1, 0);
}
int CollateDevice(PDDINFO *pPDD, char *) {
    return FlagWord(&pPDD->dwCollate, 1, 0);
}

int EnableTextClipping(PDDINFO *pPDD, char *) {
    char *pszWord = PDDReadW();
    if (!pszWord) return PDDRefuse("no value");
    pPDD->bTextClipping = IsTrue(pszWord) ? 1 : 0;
    return 0;
}

int LandscapeOrientation(PDDINFO *pPDD, char *) {
    char *pszWord = PDDReadW();
    if (!pszWord) return PDDRefuse("no value");
    if (PDDStrICmp(pszWord, "Minus90") == 0) {
        pPDD->bLandscapeMinus90 = 1;
    } else if (PDDStrICmp(pszWord, "Plus90") == 0 || PDDStrICmp(pszWord, "Any") == 0) {
        pPDD->bLandscapeMinus90 = 0;
    } else {
        return PDDRefuse("value other than Minus90, Plus90, Any");
    }
    return 0;
}

int DefaultFontPitch(PDDINFO *pPDD, char *) {
    char *pszWord = PDDReadW();
    if (!pszWord) return PDDRefuse("no value");
    pPDD->bFontPitch = static_cast<BYTE>(static_cast<uint32_t>(PDDAtoi(pszWord)) & 0xFF);
    return 0;
}

int PlugIn(PDDINFO *pPDD, char *) {
    return TextValue(&pPDD->PlugIn, PDDReadW());
}
int Product(PDDINFO *pPDD, char *) {
    return TextValue(&pPDD->Product, PDDReadQ());
}
int FileVersion(PDDINFO *pPDD, char *) {
    return TextValue(&pPDD->FileVersion, PDDReadQ());
}

int Orientation(PDDINFO *pPDD, char *) {
    char *pszOption = PDDReadC();
    if (!pszOption) return PDDRefuse("no option");
    PDDTEXT *pCmd =
        PDDStrICmp(pszOption, "Portrait") == 0 ? &pPDD->PortraitCmd : &pPDD->LandscapeCmd;
    PDDReadq();
    char *pszText = PDDReadQ();
    if (!pszText) return PDDRefuse("no command");
    txtcpy(pCmd, pszText);
    convertlf(pCmd);
    return 0;
}

// ---- Further files ------------------------------------------------------------------------

int Include(PDDINFO *pPDD, char *) {
    DWORD dwLine = pPDD->dwLineNumber;
    LPCWSTR pszFrom = pPDD->pszFileName;
    char *pszToken = PDDReadQ();
    if (!pszToken) return PDDRefuse("no file name");
    PDDTokStart(pszToken);
    char *pszName = PDDTok("\r\n\"\t ");
    if (!pszName) return PDDRefuse("no file name");
    WCHAR szPath[kMaxPath];
    if (!MakeIncludePath(pszFrom, pszName, szPath))
        return PDDRefuse("file name too long or not convertible");
    int nDepth = PDDFileDepth();
    if (nDepth > PDD_MAXINCLUDE) return PDDRefuse("includes nested deeper than 8: skipped");
    std::vector<std::u16string> normal = NormalPath(szPath);
    for (int i = 0; i < nDepth; ++i)
        if (NormalPath(PDDOpenFile(i)) == normal) return PDDRefuse("file includes itself: skipped");

    int nResult = PDD_ParseFile(pPDD->hSelf, szPath);
    pPDD->dwLineNumber = dwLine;
    pPDD->pszFileName = pszFrom;
    if (nResult != PDD_NO_FILE && nResult != PDD_NO_LOCK) PDDReturnedFromInclude();
    if (nResult == PDD_NO_FILE) PDDDiag("included file can't be opened");
    if (nResult == PDD_NOT_PDD) PDDDiag("included file is empty or not a PDD");
    return 0;
}
