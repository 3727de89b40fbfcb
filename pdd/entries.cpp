// Entry parsing: one option is named on several lines, so each mention finds the list entry
// its name stands for, making it at the first one. Also the small text helpers of the parser.
// All of them cut the option text in place, in the parse's line buffer.
#include "pdd/pddint.h"

#include <cstring>

namespace {

constexpr size_t kText = sizeof(PDDTEXT::achText);

// Makes or finds the entry named by pszName in a list that grows at its tail. Entries are
// locked for their whole life, so the pointers kept in lists and the record stay good.
template <class T>
T *FindOrAdd(T **ppHead, DWORD *pnCount, const char *pszName, const char *pszTrans) {
    T **ppLink = ppHead;
    for (T *p = *ppHead; p; p = p->pNext) {
        if (txtcmp(&p->Key, pszName) == 0) {
            // The first non-empty translation stays, wherever it came up.
            if (pszTrans && p->Translation.nLen == 0) txtcpy(&p->Translation, pszTrans);
            return p;
        }
        ppLink = &p->pNext;
    }
    HGLOBAL h = GlobalAlloc(GHND, sizeof(T));
    if (!h) {
        PDDDiag("no memory for a list entry");
        return nullptr;
    }
    T *p = static_cast<T *>(GlobalLock(h));
    if (!p) {
        GlobalFree(h);
        PDDDiag("no memory for a list entry");
        return nullptr;
    }
    txtcpy(&p->Key, pszName);
    if (pszTrans) txtcpy(&p->Translation, pszTrans);
    if (txtcmp(&p->Key, pszName) != 0) {
        PDDDiag(std::strpbrk(pszName, "\r\n")
                    ? "no colon behind the option: its name can never be found again"
                    : "name of 40 bytes or more: it can never be found again");
    }
    *ppLink = p;
    ++*pnCount;
    return p;
}

} // namespace

int trimcrlf(char *psz) {
    char *p = std::strpbrk(psz, "\r\n");
    if (!p) return 0;
    *p = 0;
    return 1;
}

char *TransString(char *pszOption) {
    char *p = std::strchr(pszOption, '/');
    if (!p) return nullptr;
    *p = 0;
    return p + 1;
}

char *OrientString(char *pszOption) {
    char *p = std::strchr(pszOption, '.');
    if (!p) return nullptr;
    *p = 0;
    return p + 1;
}

int txtcpy(PDDTEXT *pText, const char *pszSrc) {
    size_t n = strnlen(pszSrc, kText);
    std::memcpy(pText->achText, pszSrc, n);
    // Cut at the first line end; everything behind the text stays zero.
    for (size_t i = 0; i < n; ++i) {
        if (pText->achText[i] == '\r' || pText->achText[i] == '\n') {
            n = i;
            break;
        }
    }
    std::memset(pText->achText + n, 0, kText - n);
    pText->nLen = static_cast<int16_t>(n);
    return pText->nLen;
}

int txtcmp(const PDDTEXT *pText, const char *pszName) {
    for (size_t i = 0; i < kText; ++i) {
        auto a = static_cast<unsigned char>(pText->achText[i]);
        auto b = static_cast<unsigned char>(pszName[i]);
        if (a != b) return a < b ? -1 : 1;
        if (a == 0) return 0;
    }
    // A full text has no terminator: it stands for a longer name, so no name equals it.
    return 1;
}

PDDPAPER *GetPaperEntry(PDDINFO *pPDD, char *pszOption, int *pOrient) {
    if (!pPDD || !pszOption) return nullptr;
    char *pszTrans = TransString(pszOption);
    if (pOrient) {
        *pOrient = 0;
        if (char *pszSuffix = OrientString(pszOption)) {
            if (std::strlen(pszSuffix) > 4) pszSuffix[4] = 0;
            if (PDDStrICmp(pszSuffix, "land") == 0) {
                *pOrient = 2;
            } else if (PDDStrICmp(pszSuffix, "port") == 0) {
                *pOrient = 1;
            } else {
                PDDDiag("suffix other than .port or .land");
                return nullptr;
            }
        }
    }
    return FindOrAdd(&pPDD->pPaperList, &pPDD->nPapers, pszOption, pszTrans);
}

PDDITEM *GetListEntry(char *pszOption, PDDITEM **ppHead, DWORD *pnCount) {
    if (!pszOption || !ppHead || !pnCount) return nullptr;
    char *pszTrans = TransString(pszOption);
    return FindOrAdd(ppHead, pnCount, pszOption, pszTrans);
}

PDDRESOLUTION *GetResolutionEntry(PDDINFO *pPDD, char *pszOption) {
    if (!pPDD || !pszOption) return nullptr;
    char *pszTrans = TransString(pszOption);
    return FindOrAdd(&pPDD->pResList, &pPDD->nResolutions, pszOption, pszTrans);
}
