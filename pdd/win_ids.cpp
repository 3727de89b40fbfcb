// Windows paper and bin ids for the rows of a configuration record.
#include "pdd/win_ids.h"

#include <cstring>
#include <iterator>
#include <vector>

namespace {

struct WinPaper {
    WORD id;
    int width; // decipoints
    int height;
};

// Sorted by width, then height: the search stops at the first row past the size asked for.
constexpr WinPaper WinPapers[] = {
    {38, 2610, 4680},  {37, 2790, 5400},  {19, 2790, 6246},  {20, 2970, 6840},   {36, 3118, 6520},
    {27, 3120, 6240},  {31, 3231, 4592},  {32, 3231, 6491},  {21, 3240, 7470},   {22, 3420, 7920},
    {23, 3600, 8280},  {6, 3960, 6120},   {11, 4200, 5950},  {28, 4590, 6490},   {64, 4932, 6661},
    {35, 4989, 3543},  {34, 4989, 7087},  {13, 5160, 7290},  {7, 5220, 7560},    {65, 5698, 7824},
    {9, 5950, 8420},   {14, 5950, 9350},  {60, 5953, 9354},  {15, 6100, 7800},   {1, 6120, 7920},
    {40, 6120, 8640},  {59, 6120, 9137},  {41, 6120, 9360},  {5, 6120, 10080},   {47, 6236, 6236},
    {57, 6435, 10091}, {44, 6480, 7920},  {30, 6491, 9184},  {53, 6674, 9137},   {50, 6840, 8640},
    {51, 6840, 10800}, {33, 7087, 10006}, {45, 7200, 7920},  {16, 7200, 10080},  {12, 7285, 10320},
    {3, 7920, 12240},  {52, 8417, 12960}, {8, 8420, 11910},  {58, 8646, 13805},  {63, 9128, 12614},
    {29, 9184, 12983}, {39, 10710, 7920}, {46, 10800, 7920}, {66, 11906, 16838}, {4, 12240, 7920},
};
static_assert(std::size(WinPapers) == 50);

struct WinTray {
    WORD id;
    const WCHAR *name;
};

// Compared with the display names of the paper sources; 9 and 10 have empty names.
constexpr WinTray WinTrays[] = {
    {1, u"upper"},       {2, u"lower"},           {3, u"middle"},
    {4, u"manual feed"}, {5, u"envelope"},        {6, u"manual envelope feed"},
    {7, u"autoselect"},  {8, u"tractor"},         {9, u""},
    {10, u""},           {11, u"large capacity"}, {14, u"casette"},
};
static_assert(std::size(WinTrays) == 12);

constexpr int kTolerance = 10; // under one point either way

int Distance(int a, int b) {
    return a > b ? a - b : b - a;
}

} // namespace

int PDD_GetWinPaper(int nWidth, int nHeight) {
    for (const WinPaper &row : WinPapers) {
        if (Distance(row.width, nWidth) < kTolerance && Distance(row.height, nHeight) < kTolerance)
            return row.id;
        if (row.width > nWidth || (row.width == nWidth && row.height > nHeight)) return kWinNoMatch;
    }
    return kWinNoMatch;
}

int PDD_GetWinTray(const WCHAR *pszName) {
    if (!pszName) return kWinNoMatch;
    int len = lstrlenW(pszName);
    for (const WinTray &row : WinTrays)
        if (lstrlenW(row.name) == len && lstrcmpiW(row.name, pszName) == 0) return row.id;
    return kWinNoMatch;
}

int PDD_GetWinIDs(CFGINFO *pCfg) {
    if (!pCfg) return 0;
    DWORD nPapers = pCfg->nPapers, nTrays = pCfg->nTrays;
    DWORD cchTray = pCfg->cchTrayName;
    HGLOBAL hPaperIDs = GlobalAlloc(GHND, SIZE_T(nPapers) * 2);
    HGLOBAL hTrayIDs = GlobalAlloc(GHND, SIZE_T(nTrays) * 2);
    auto *paperIDs = static_cast<WORD *>(hPaperIDs ? GlobalLock(hPaperIDs) : nullptr);
    auto *trayIDs = static_cast<WORD *>(hTrayIDs ? GlobalLock(hTrayIDs) : nullptr);
    auto *trayNames =
        static_cast<const WCHAR *>(pCfg->hTrayNames ? GlobalLock(pCfg->hTrayNames) : nullptr);
    auto *dims =
        static_cast<const DWORD *>(pCfg->hPaperDims ? GlobalLock(pCfg->hPaperDims) : nullptr);
    bool ok = paperIDs && trayIDs && trayNames && dims && cchTray &&
              GlobalSize(pCfg->hTrayNames) >= SIZE_T(nTrays) * cchTray * 2 &&
              GlobalSize(pCfg->hPaperDims) >= SIZE_T(nPapers) * 24;
    if (ok) {
        // Papers: user ids from 257, as 256 is the custom paper's.
        bool held[kWinNoMatch] = {};
        int nextUser = kWinNoMatch + 1;
        for (DWORD i = 0; i < nPapers; ++i) {
            int id;
            if (pCfg->nCustomPaper != -1 && DWORD(pCfg->nCustomPaper) == i) {
                id = kWinNoMatch;
            } else {
                id = PDD_GetWinPaper(int(dims[i * 6]), int(dims[i * 6 + 1]));
                // Only the first of several papers of one size keeps the Windows id.
                if (id == kWinNoMatch || held[id])
                    id = nextUser++;
                else
                    held[id] = true;
            }
            paperIDs[i] = WORD(id);
        }
        // Sources: user ids from 256. A row that fills its width has no terminator.
        std::vector<WCHAR> name(cchTray + 1);
        int nextTray = kWinNoMatch;
        for (DWORD i = 0; i < nTrays; ++i) {
            std::memcpy(name.data(), trayNames + SIZE_T(i) * cchTray, SIZE_T(cchTray) * 2);
            name[cchTray] = 0;
            int id = PDD_GetWinTray(name.data());
            trayIDs[i] = WORD(id == kWinNoMatch ? nextTray++ : id);
        }
    }
    if (dims) GlobalUnlock(pCfg->hPaperDims);
    if (trayNames) GlobalUnlock(pCfg->hTrayNames);
    if (trayIDs) GlobalUnlock(hTrayIDs);
    if (paperIDs) GlobalUnlock(hPaperIDs);
    if (!ok) {
        if (hPaperIDs) GlobalFree(hPaperIDs);
        if (hTrayIDs) GlobalFree(hTrayIDs);
        pCfg->hPaperIDs = pCfg->hTrayIDs = 0;
        return 0;
    }
    pCfg->hPaperIDs = hPaperIDs;
    pCfg->hTrayIDs = hTrayIDs;
    return 1;
}
