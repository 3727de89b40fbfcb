// TrueType reading: the directory, table extents, and the cmap walk that settles which glyph
// stands behind each of the 256 codes of the soft font.
#include "watermark/truetype.h"

#include "watermark/watermark.h"

#include <cstring>
#include <utility>

WORD GlyphIDArray[256];
WORD GlyphDown[256];

namespace q417::tt {

Block::Block(SIZE_T n) {
    if (n == 0) return;
    h_ = GlobalAlloc(GHND, n);
    if (!h_) return;
    p_ = static_cast<BYTE *>(GlobalLock(h_));
    if (!p_) {
        GlobalFree(h_);
        h_ = 0;
    }
}

Block::~Block() {
    if (!h_) return;
    GlobalUnlock(h_);
    GlobalFree(h_);
}

Block &Block::operator=(Block &&o) noexcept {
    if (this != &o) {
        if (h_) {
            GlobalUnlock(h_);
            GlobalFree(h_);
        }
        h_ = o.h_, p_ = o.p_;
        o.h_ = 0, o.p_ = nullptr;
    }
    return *this;
}

BYTE *Block::release() {
    BYTE *p = p_;
    h_ = 0;
    p_ = nullptr;
    return p;
}

void FreeLocked(void *p) {
    if (!p) return;
    HGLOBAL h = GlobalHandle(p);
    GlobalUnlock(h);
    GlobalFree(h);
}

DWORD FileSize(HANDLE hFile) {
    DWORD size = GetFileSize(hFile, nullptr);
    return size == INVALID_FILE_SIZE ? 0 : size;
}

bool ReadAt(HANDLE hFile, DWORD offset, void *buf, DWORD n) {
    LONG high = 0;
    if (SetFilePointer(hFile, static_cast<LONG>(offset), &high, FILE_BEGIN) ==
            INVALID_SET_FILE_POINTER &&
        GetLastError() != ERROR_SUCCESS)
        return false;
    DWORD got = 0;
    return ReadFile(hFile, buf, n, &got, nullptr) && got == n;
}

bool ReadDirectory(HANDLE hFile, Directory &dir) {
    dir.fileSize = FileSize(hFile);
    if (!ReadAt(hFile, 0, dir.offsetTable, sizeof dir.offsetTable)) return false;
    dir.nTables = Be16(dir.offsetTable + 4);
    // 16 bytes a record; numTables is a word, so the product can't overflow.
    const DWORD cb = DWORD(dir.nTables) * 16;
    if (cb > dir.fileSize - 12) return false; // a directory past the file's end
    Block entries(cb);
    if (!entries) return false;
    DWORD got = 0;
    if (!ReadFile(hFile, entries.get(), cb, &got, nullptr) || got != cb) return false;
    dir.entries = std::move(entries);
    return true;
}

bool FindTable(const Directory &dir, const char *tag, Table &t) {
    WORD index;
    const BYTE *e = FindTag(dir.entries.get(), tag, dir.nTables, &index);
    if (!e) return false;
    t.entry = e;
    t.offset = Be32(e + 8);
    t.length = Be32(e + 12);
    return t.offset <= dir.fileSize && t.length <= dir.fileSize - t.offset;
}

bool LoadTable(HANDLE hFile, const Table &t, Block &out) {
    Block b(t.length);
    if (!b) return false;
    if (!ReadAt(hFile, t.offset, b.get(), t.length)) return false;
    out = std::move(b);
    return true;
}

WORD WinCodeToUnicode(unsigned code) {
    // Windows Latin 1 codes 130..159 that aren't Latin-1 code points, and the bullet operator
    // that stands for the middle dot.
    static const WORD k130[30] = {
        0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160, 0x2039,
        0x0152, 141,    142,    143,    144,    0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 157,    158,    0x0178,
    };
    if (code >= 130 && code <= 159) return k130[code - 130];
    if (code == 183) return 0x2219;
    return static_cast<WORD>(code);
}

bool BuildGlyphIDArray(const BYTE *cmap, DWORD cbCmap) {
    std::memset(GlyphIDArray, 0, sizeof GlyphIDArray);
    std::memset(GlyphDown, 0, sizeof GlyphDown);

    // cmap: version u16, numTables u16, then records of platformID u16, encodingID u16,
    // offset u32 to the subtable from the table's start.
    Reader r{cmap, cmap + cbCmap};
    WORD version, nRecords;
    if (!r.u16(version) || !r.u16(nRecords)) return false;
    WORD encodingId = 0;
    DWORD subOffset = 0;
    bool found = false;
    for (WORD i = 0; i < nRecords && !found; ++i) {
        WORD platformId, encId;
        DWORD off;
        if (!r.u16(platformId) || !r.u16(encId) || !r.u32(off)) return false;
        if (platformId == 3 && (encId == 0 || encId == 1)) {
            encodingId = encId;
            subOffset = off;
            found = true;
        }
    }
    if (!found || subOffset > cbCmap) return false;

    // Format 4: format, length, language, segCountX2, searchRange, entrySelector,
    // rangeShift (14 bytes), then endCount[n], reserved pad, startCount[n], idDelta[n],
    // idRangeOffset[n] and the glyph id array up to the end of the table.
    Reader s{cmap + subOffset, cmap + cbCmap};
    WORD format, segCountX2;
    if (!s.u16(format) || format != 4) return false;
    if (!s.skip(4) || !s.u16(segCountX2) || !s.skip(6)) return false;
    const DWORD segCount = segCountX2 / 2u;
    const DWORD cbArray = segCount * 2;
    if (!s.has(4 * size_t(cbArray) + 2)) return false;
    const BYTE *pEnd = s.p;
    const BYTE *pStart = pEnd + cbArray + 2;
    const BYTE *pDelta = pStart + cbArray;
    const BYTE *pRange = pDelta + cbArray;

    // The walk works on host-order copies of the four arrays.
    Block endB(cbArray), startB(cbArray), deltaB(cbArray), rangeB(cbArray);
    if (!endB || !startB || !deltaB || !rangeB) return false;
    auto *endCount = reinterpret_cast<WORD *>(endB.get());
    auto *startCount = reinterpret_cast<WORD *>(startB.get());
    auto *idDelta = reinterpret_cast<WORD *>(deltaB.get());
    auto *idRangeOffset = reinterpret_cast<WORD *>(rangeB.get());
    for (DWORD i = 0; i < segCount; ++i) {
        endCount[i] = Be16(pEnd + 2 * i);
        startCount[i] = Be16(pStart + 2 * i);
        idDelta[i] = Be16(pDelta + 2 * i);
        idRangeOffset[i] = Be16(pRange + 2 * i);
    }
    const BYTE *pGlyphIds = pRange + cbArray;

    const bool bSymbol = encodingId == 0;
    const bool bPrivateUse = bSymbol && (startCount[0] & 0xF000) == 0xF000;

    for (unsigned c = 0; c < 256; ++c) {
        unsigned u = bPrivateUse ? c + 0xF000 : bSymbol ? c : WinCodeToUnicode(c);
        WORD glyph = 0;
        for (DWORD i = 0; i < segCount; ++i) {
            if (startCount[i] > u || u > endCount[i]) continue;
            if (idRangeOffset[i] == 0) {
                glyph = static_cast<WORD>(u + idDelta[i]);
            } else {
                // Word number idRangeOffset/2 - segCount + i + (u - start) of the glyph id
                // array; it may reach back into the arrays, but not out of the table.
                const int64_t index = int64_t(idRangeOffset[i] / 2) - int64_t(segCount) +
                                      int64_t(i) + int64_t(u - startCount[i]);
                const int64_t pos = (pGlyphIds - cmap) + 2 * index;
                if (pos >= 0 && pos <= int64_t(cbCmap) - 2) {
                    glyph = Be16(cmap + pos);
                    if (glyph != 0) glyph = static_cast<WORD>(glyph + idDelta[i]);
                }
            }
            break;
        }
        GlyphIDArray[c] = glyph;
    }
    return true;
}

} // namespace q417::tt

const BYTE *FindTag(const BYTE *pDirectory, const char *pTag, int nTables, WORD *pIndex) {
    for (int i = 0; i < nTables; ++i) {
        const BYTE *e = pDirectory + 16 * i;
        if (std::memcmp(e, pTag, 4) == 0) {
            *pIndex = static_cast<WORD>(i);
            return e;
        }
    }
    *pIndex = 0xFFFF;
    return nullptr;
}

SHORT ShortSub(WORD a, WORD b) {
    const auto sa = static_cast<SHORT>(q417::tt::Be16(reinterpret_cast<const BYTE *>(&a)));
    const auto sb = static_cast<SHORT>(q417::tt::Be16(reinterpret_cast<const BYTE *>(&b)));
    return static_cast<SHORT>(sa - sb);
}

BYTE *PadWithZero(BYTE *pDest, DWORD nFrom, DWORD nTo) {
    if (nTo > nFrom) {
        std::memset(pDest, 0, nTo - nFrom);
        return pDest + (nTo - nFrom);
    }
    return pDest;
}
