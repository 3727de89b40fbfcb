// The long-lived copy of a configuration record: fixed row widths, its own tables, and the
// three blocks that pass to it from the working record.
#include "config/cfg_internal.h"
#include "config/config.h"

#include <algorithm>
#include <iterator>

using namespace q417::cfg;

namespace {

constexpr uint64_t kMaxBlock = 0x7FFFFFFF;

enum class How { Resize, Copy, Strn, Dims };

struct CopyStep {
    size_t hOff; // handle field
    How how;
    size_t countOff; // rows of the family
    size_t widthOff; // source width in wide characters (Resize)
    uint32_t cb;     // new row bytes (Resize), bytes a row (Copy with rows), fixed size (else)
};

#define OFF Q417_CFG_OFF
constexpr size_t kNone = SIZE_MAX;

// The order of the copy; every handle named here gets a block of its own in the copy.
constexpr CopyStep kSteps[] = {
    {OFF(hResNames), How::Resize, OFF(nResolutions), OFF(cchResName), kCopyRow * 2},
    {OFF(hResKeys), How::Resize, OFF(nResolutions), OFF(cchResKey), kCopyRow * 2},
    {OFF(hResValues), How::Copy, OFF(nResolutions), kNone, 8},
    {OFF(hPaperNames), How::Resize, OFF(nPapers), OFF(cchPaperName), kCopyPaperRow * 2},
    {OFF(hPaperKeys), How::Resize, OFF(nPapers), OFF(cchPaperKey), kCopyPaperRow * 2},
    {OFF(hPaperCmds), How::Resize, OFF(nPapers), OFF(cchPaperCmd), kCopyRow * 2},
    {OFF(hPaperDims), How::Dims, kNone, kNone, 0},
    {OFF(hPaperIDs), How::Copy, OFF(nPapers), kNone, 2},
    {OFF(hTrayNames), How::Resize, OFF(nTrays), OFF(cchTrayName), kCopyRow * 2},
    {OFF(hTrayKeys), How::Resize, OFF(nTrays), OFF(cchTrayKey), kCopyRow * 2},
    {OFF(hTrayCmds), How::Resize, OFF(nTrays), OFF(cchTrayCmd), kCopyRow * 2},
    {OFF(hTrayIDs), How::Copy, OFF(nTrays), kNone, 2},
    {OFF(hModelName), How::Strn, kNone, kNone, 32},
    {OFF(hPlugIn), How::Copy, kNone, kNone, 64},
    {OFF(hDestNames), How::Resize, OFF(nDests), OFF(cchDestName), kCopyRow * 2},
    {OFF(hDestKeys), How::Resize, OFF(nDests), OFF(cchDestKey), kCopyRow * 2},
    {OFF(hMediaNames), How::Resize, OFF(nMedia), OFF(cchMediaName), kCopyRow * 2},
    {OFF(hMediaKeys), How::Resize, OFF(nMedia), OFF(cchMediaKey), kCopyRow * 2},
    {OFF(hResCmds), How::Resize, OFF(nResolutions), OFF(cchResCmd), kCopyRow * 2},
    {OFF(hDestCmds), How::Resize, OFF(nDests), OFF(cchDestCmd), kCopyRow * 2},
    {OFF(hMediaCmds), How::Resize, OFF(nMedia), OFF(cchMediaCmd), kCopyRow * 2},
};
static_assert(std::size(kSteps) == std::size(kDeepTables));

HGLOBAL RunStep(const CopyStep &s, CFGINFO *pDst, const CFGINFO *pSrc) {
    HGLOBAL hSrc = GetU32(pSrc, s.hOff);
    switch (s.how) {
    case How::Resize: {
        uint64_t cbSrcRow = uint64_t(GetU32(pSrc, s.widthOff)) * 2;
        if (cbSrcRow > kMaxBlock) return 0;
        return ResizeCopyHandle(hSrc, DWORD(cbSrcRow), s.cb, GetU32(pSrc, s.countOff));
    }
    case How::Copy: {
        uint64_t cb = s.countOff == kNone ? s.cb : uint64_t(GetU32(pSrc, s.countOff)) * s.cb;
        return cb > kMaxBlock ? 0 : CopyHandleToHandle(hSrc, DWORD(cb));
    }
    case How::Strn:
        return StrnCopyHandleToHandle(hSrc, s.cb);
    case How::Dims:
        return CopyPaperDimensions(pDst, pSrc) ? pDst->hPaperDims : 0;
    }
    return 0;
}

} // namespace

HGLOBAL ResizeCopyHandle(HGLOBAL hSrc, DWORD cbSrcRow, DWORD cbDstRow, DWORD nRows) {
    uint64_t cb = uint64_t(cbDstRow) * nRows;
    if (cb == 0 || cb > kMaxBlock) return 0;
    Owned dst{SIZE_T(cb)};
    if (!dst.Get()) return 0;
    Locked s(hSrc);
    Locked d(dst.Get());
    if (!s || !d) return 0;
    // A source block shorter than its rows claim gives empty rows, never a read past its end.
    uint64_t cbHave = GlobalSize(hSrc);
    DWORD cbRow = std::min(cbSrcRow, cbDstRow);
    for (uint64_t r = 0; r < nRows; ++r) {
        uint64_t at = r * cbSrcRow;
        if (at >= cbHave) break;
        std::memcpy(d.As() + r * cbDstRow, s.As() + at,
                    size_t(std::min<uint64_t>(cbRow, cbHave - at)));
    }
    d.Release();
    return dst.Keep();
}

HGLOBAL CopyHandleToHandle(HGLOBAL hSrc, DWORD cb) {
    Owned dst(cb);
    if (!dst.Get()) return 0;
    Locked s(hSrc);
    Locked d(dst.Get());
    if (!s || !d) return 0;
    // The plug-in name's block holds only its text; the rest of the field stays zero.
    std::memcpy(d.As(), s.As(), std::min<SIZE_T>(cb, GlobalSize(hSrc)));
    d.Release();
    return dst.Keep();
}

HGLOBAL StrnCopyHandleToHandle(HGLOBAL hSrc, DWORD cb) {
    Locked s(hSrc);
    if (!s) return 0;
    Owned dst(cb);
    if (!dst.Get()) return 0;
    Locked d(dst.Get());
    if (!d) return 0;
    // strncpy without running past the source block: no terminator is forced at the end.
    size_t n = std::min<SIZE_T>(cb, GlobalSize(hSrc));
    const char *src = s.As<char>();
    char *out = d.As<char>();
    for (size_t i = 0; i < n && src[i]; ++i) out[i] = src[i];
    d.Release();
    return dst.Keep();
}

int CopyPaperDimensions(CFGINFO *pDst, const CFGINFO *pSrc) {
    if (!pSrc->hPaperDims) return 1;
    uint64_t cb = uint64_t(pSrc->nPapers) * 24 * (pSrc->wVersion >= 9 ? 2 : 1);
    pDst->hPaperDims = cb > kMaxBlock ? 0 : CopyHandleToHandle(pSrc->hPaperDims, DWORD(cb));
    return pDst->hPaperDims != 0;
}

int CFGCopyInfo(DDIDEVMODE *pdm, void *pDst) {
    if (!pdm || !pDst) return 0;
    Locked src(pdm->hConfig);
    if (!src) return 0;
    const CFGINFO *s = src.As<CFGINFO>();
    auto *d = static_cast<CFGINFO *>(pDst);
    if (static_cast<const void *>(s) == pDst) return 0;
    std::memcpy(d, s, CFGINFO_SIZE);

    size_t done = 0;
    for (; done < std::size(kSteps); ++done) {
        const CopyStep &st = kSteps[done];
        if (!GetU32(s, st.hOff)) continue;
        HGLOBAL h = RunStep(st, d, s);
        SetU32(d, st.hOff, h);
        if (!h) break;
    }
    if (done < std::size(kSteps)) {
        // Free what this copy made; the fields not reached yet still hold the source's
        // handles, which belong to the source: those are only cleared.
        for (size_t i = 0; i < done; ++i) {
            HGLOBAL h = GetU32(d, kSteps[i].hOff);
            if (h && h != GetU32(s, kSteps[i].hOff)) GlobalFree(h);
        }
        for (const CopyStep &st : kSteps) SetU32(d, st.hOff, 0);
        return 0;
    }

    d->cchResKey = d->cchResName = kCopyRow;
    d->cchTrayKey = d->cchTrayName = d->cchTrayCmd = kCopyRow;
    d->cchPaperCmd = kCopyRow;
    d->cchPaperKey = d->cchPaperName = kCopyPaperRow;
    if (s->cchResCmd) d->cchResCmd = kCopyRow;
    if (s->cchDestName) d->cchDestKey = d->cchDestName = kCopyRow;
    if (s->cchDestCmd) d->cchDestCmd = kCopyRow;
    if (s->cchMediaName) d->cchMediaKey = d->cchMediaName = kCopyRow;
    if (s->cchMediaCmd) d->cchMediaCmd = kCopyRow;
    return 1;
}

void FreeCfgTables(CFGINFO *pCfg) {
    if (!pCfg) return;
    for (size_t off : kDeepTables) {
        if (HGLOBAL h = GetU32(pCfg, off)) GlobalFree(h);
        SetU32(pCfg, off, 0);
    }
    for (size_t off : kPassedBlocks) {
        if (HGLOBAL h = GetU32(pCfg, off)) GlobalFree(h);
        SetU32(pCfg, off, 0);
    }
}
