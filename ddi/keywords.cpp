// Keyword enumeration: a caller names one of the five selection lists by id and walks it by
// index, without knowing the tables behind it.
#include "ddi/ddi.h"

#include "q417/q417plg.h"

namespace {

using NameFn = INT (*)(const DDIDEVMODE *, WCHAR *, INT, INT);

struct Keyword {
    DWORD id;
    INT (*count)(const DDIDEVMODE *);
    INT (*def)(const DDIDEVMODE *);
    NameFn key;         // the option string: the key as the PDD writes it
    NameFn translation; // the text for a user
};

constexpr Keyword kKeywords[] = {
    {DDI_PAPERSIZE, DDIGetPaperSizeCount, DDIDefaultPaperSize, DDIGetInternalPaperSizeName,
     DDIGetPaperSizeName},
    {DDI_MEDIATYPE, DDIGetMediaTypeCount, DDIDefaultMediaType, DDIGetInternalMediaTypeName,
     DDIGetMediaTypeName},
    {DDI_PAPERSOURCE, DDIGetPaperSourceCount, DDIDefaultPaperSource, DDIGetInternalPaperSourceName,
     DDIGetPaperSourceName},
    {DDI_PAPERDEST, DDIGetPaperDestCount, DDIDefaultPaperDest, DDIGetInternalPaperDestName,
     DDIGetPaperDestName},
    {DDI_RESOLUTION, DDIGetResolutionCount, DDIDefaultResolution, DDIGetInternalResolutionName,
     DDIGetResolutionName},
};

const Keyword *Find(DWORD id) {
    for (const Keyword &k : kKeywords)
        if (k.id == id) return &k;
    return nullptr;
}

// The length holds the capacity on entry and the accessor's result on return. Returns
// whether the id named a list; the lookup's own failure shows only as a length of 0.
bool OptionText(DDIDEVMODE *pdm, DWORD id, INT index, WCHAR *pBuf, DWORD *pcch, bool translation) {
    const Keyword *k = Find(id);
    if (!pdm || !pBuf || !pcch || pdm->hConfig == 0 || !k) return false;
    NameFn fn = translation ? k->translation : k->key;
    *pcch = static_cast<DWORD>(fn(pdm, pBuf, static_cast<INT>(*pcch), index));
    return true;
}

} // namespace

extern "C" {

Q417_API INT DDIGetKeywordNumOptions(DDIDEVMODE *pdm, DWORD id) {
    const Keyword *k = Find(id);
    return k ? k->count(pdm) : -1;
}

Q417_API INT DDIGetKeywordDefaultOption(DDIDEVMODE *pdm, DWORD id) {
    const Keyword *k = Find(id);
    return k ? k->def(pdm) : -1;
}

Q417_API BOOL DDIGetKeywordOptionString(DDIDEVMODE *pdm, DWORD id, INT index, WCHAR *pBuf,
                                        DWORD *pcch) {
    return OptionText(pdm, id, index, pBuf, pcch, false) ? TRUE : FALSE;
}

// Callers of the translation look only at the length: the result is 0 in every case.
Q417_API BOOL DDIGetKeywordOptionTranslation(DDIDEVMODE *pdm, DWORD id, INT index, WCHAR *pBuf,
                                             DWORD *pcch) {
    OptionText(pdm, id, index, pBuf, pcch, true);
    return FALSE;
}

} // extern "C"
