// Entry parsing: one option is named on several lines, so each mention finds the list entry
// its name stands for, making it at the first one. Also the small text helpers of the parser.
// All of them cut the option text in place, in the parse's line buffer.
#include "pdd/pddint.h"

#include <cstring>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace {

constexpr size_t kText = sizeof(PDDTEXT::achText);

// The lists are searched by name for every line that names an option, so each list has an
// index beside it: its entries' keys mapped to the first entry that holds each key, in list
// order. A key stands in the index as stored (cut at a line end), so a name finds exactly the
// entry the walk from the head would find. An index belongs to one list head and is trusted
// while that head and the list's count are what it last saw; otherwise it is built again from
// the list. The parser drops all of them when lists are freed and when a parse ends.
struct ListIndex {
    void *const *ppHead = nullptr; // the list's head pointer, where it lives
    const void *pHead = nullptr;   // its value when the index was last brought up to date
    DWORD nCount = 0;              // the list's count then
    void *pTail = nullptr;         // the last entry, where a new one is linked
    std::unordered_map<std::string_view, void *> first;
};

std::vector<std::unique_ptr<ListIndex>> g_indexes;

template <class T>
void AddToIndex(ListIndex &ix, T *p) {
    ix.pTail = p;
    // A full key stands for a longer name that no lookup can give: never found.
    if (p->Key.nLen >= 0 && static_cast<size_t>(p->Key.nLen) < kText)
        ix.first.try_emplace(std::string_view(p->Key.achText, static_cast<size_t>(p->Key.nLen)), p);
}

// The index of the list at ppHead, up to date; null when there is no memory for it.
template <class T>
ListIndex *IndexOf(T **ppHead, const DWORD *pnCount) {
    ListIndex *ix = nullptr;
    for (auto &p : g_indexes)
        if (p->ppHead == reinterpret_cast<void *const *>(ppHead)) ix = p.get();
    if (!ix) {
        g_indexes.push_back(std::make_unique<ListIndex>());
        ix = g_indexes.back().get();
        ix->ppHead = reinterpret_cast<void *const *>(ppHead);
    } else if (ix->pHead == *ppHead && ix->nCount == *pnCount) {
        return ix;
    }
    ix->first.clear();
    ix->pTail = nullptr;
    for (T *p = *ppHead; p; p = p->pNext) AddToIndex(*ix, p);
    ix->pHead = *ppHead;
    ix->nCount = *pnCount;
    return ix;
}

// The walk from the head that the index stands in for: the first entry whose key is the name.
// Equal to txtcmp(&p->Key, pszName) == 0, with the length compared first: a name of 40 bytes
// or more is never found, a stored key is never longer than its name. Sets *pppLink to the
// tail's link.
template <class T>
T *Walk(T **ppHead, const char *pszName, size_t cchName, T ***pppLink) {
    T **ppLink = ppHead;
    for (T *p = *ppHead; p; p = p->pNext) {
        if (cchName < kText && static_cast<size_t>(p->Key.nLen) == cchName &&
            std::memcmp(p->Key.achText, pszName, cchName) == 0)
            return p;
        ppLink = &p->pNext;
    }
    *pppLink = ppLink;
    return nullptr;
}

// Makes or finds the entry named by pszName in a list that grows at its tail. Entries are
// locked for their whole life, so the pointers kept in lists and the record stay good.
template <class T>
T *FindOrAdd(T **ppHead, DWORD *pnCount, const char *pszName, const char *pszTrans) {
    size_t cchName = std::strlen(pszName);
    ListIndex *ix = nullptr;
    T *pFound = nullptr;
    T **ppLink = ppHead;
    try {
        ix = IndexOf(ppHead, pnCount);
        if (cchName < kText) {
            auto it = ix->first.find(std::string_view(pszName, cchName));
            if (it != ix->first.end()) pFound = static_cast<T *>(it->second);
        }
        if (!pFound && ix->pTail) ppLink = &static_cast<T *>(ix->pTail)->pNext;
    } catch (...) {
        // No memory for the index: walk the list as it stands.
        if (ix) ix->nCount = ~*pnCount;
        ix = nullptr;
        pFound = Walk(ppHead, pszName, cchName, &ppLink);
    }
    if (pFound) {
        // The first non-empty translation stays, wherever it came up.
        if (pszTrans && pFound->Translation.nLen == 0) txtcpy(&pFound->Translation, pszTrans);
        return pFound;
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
    if (ix) {
        try {
            AddToIndex(*ix, p);
            ix->pHead = *ppHead;
            ix->nCount = *pnCount;
        } catch (...) {
            ix->nCount = ~*pnCount; // built again at the next lookup
        }
    }
    return p;
}

} // namespace

void PDDDropIndexes() {
    g_indexes.clear();
    g_indexes.shrink_to_fit();
}

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
