// Glyph download: the outlines of the watermark's characters, each once, as PCL format 15
// character records, with the components of composite glyphs one level deep.
#include "watermark/watermark.h"

#include "job/job.h"
#include "watermark/truetype.h"

#include <cstring>

using namespace q417::tt;

namespace {

constexpr UINT kNoCode = 65535; // a component that no code maps to

// Composite glyph component flags.
enum : WORD {
    ARG_1_AND_2_ARE_WORDS = 0x0001,
    WE_HAVE_A_SCALE = 0x0008,
    MORE_COMPONENTS = 0x0020,
    WE_HAVE_AN_X_AND_Y_SCALE = 0x0040,
    WE_HAVE_A_TWO_BY_TWO = 0x0080,
};

// The glyph's extent in glyf from loca; false when loca doesn't hold both ends.
bool GlyphExtent(const BYTE *pHead, const BYTE *pLoca, DWORD cbLoca, unsigned glyph, DWORD &start,
                 DWORD &end) {
    if (Be16(pHead + 50) == 0) {
        if ((uint64_t(glyph) + 2) * 2 > cbLoca) return false;
        start = DWORD(Be16(pLoca + 2 * glyph)) * 2;
        end = DWORD(Be16(pLoca + 2 * glyph + 2)) * 2;
    } else {
        if ((uint64_t(glyph) + 2) * 4 > cbLoca) return false;
        start = Be32(pLoca + 4 * uint64_t(glyph));
        end = Be32(pLoca + 4 * uint64_t(glyph) + 4);
    }
    return true;
}

// The first code whose glyph is this one, or -1.
int CodeOfGlyph(WORD glyph) {
    for (int c = 0; c < 256; ++c)
        if (GlyphIDArray[c] == glyph) return c;
    return -1;
}

} // namespace

BYTE *GetWaterMarkGlyph(SPLDEVINFO *pInfo, HANDLE hFile, DWORD nGlyfOffset, UINT nCode,
                        const BYTE *pHead, const BYTE *pLoca, DWORD cbLoca, int bIsGlyphId,
                        DWORD *pcbGlyph) {
    if (!bIsGlyphId && nCode > 255) return nullptr;
    const WORD glyph = bIsGlyphId ? static_cast<WORD>(nCode) : GlyphIDArray[nCode];
    const UINT code = bIsGlyphId ? kNoCode : nCode;

    DWORD start, end;
    if (!GlyphExtent(pHead, pLoca, cbLoca, glyph, start, end)) return nullptr;
    // An end before the start, or a glyph too long for the record's 16-bit size, is skipped.
    if (end < start || end - start > 0xFFFF - 4) return nullptr;
    const DWORD length = end - start;

    if (length == 0) {
        // An empty glyph, such as the space's: nothing to send, and no code keeps it.
        for (WORD &g : GlyphIDArray)
            if (g == glyph) g = 0;
        return nullptr;
    }

    if (uint64_t(nGlyfOffset) + start > 0xFFFFFFFFu) return nullptr;
    Block buf(length);
    if (!buf || !ReadAt(hFile, nGlyfOffset + start, buf.get(), length)) return nullptr;

    // Character descriptor: format 15, continuation 0, descriptor size 2, class 15, then the
    // character data size and the glyph id; after the glyph a reserved byte and the checksum.
    BYTE record[8] = {15, 0, 2, 15};
    PutBe16(record + 4, length + 4);
    PutBe16(record + 6, glyph);
    BYTE sum = static_cast<BYTE>(record[4] + record[5] + record[6] + record[7]);
    for (DWORD i = 0; i < length; ++i) sum = static_cast<BYTE>(sum + buf.get()[i]);
    const BYTE tail[2] = {0, static_cast<BYTE>(256 - sum)};

    WmWriteCmd(pInfo, "\x1b*c%uE\x1b(s%dW", code, static_cast<int>(length + 10));
    DevWrite(pInfo, record, sizeof record);
    DevWrite(pInfo, buf.get(), length);
    DevWrite(pInfo, tail, sizeof tail);
    if (pcbGlyph) *pcbGlyph = length;
    return buf.release();
}

void DownloadWaterMarkChars(SPLDEVINFO *pInfo, WMINFO *, HANDLE hFile, const char *pTextA) {
    Directory dir;
    if (!ReadDirectory(hFile, dir)) return;

    // head must reach indexToLocFormat at 50.
    Table head, loca, glyf;
    Block headData, locaData;
    if (!FindTable(dir, "head", head) || head.length < 52 || !LoadTable(hFile, head, headData))
        return;
    if (!FindTable(dir, "loca", loca) || !LoadTable(hFile, loca, locaData)) return;
    if (!FindTable(dir, "glyf", glyf)) return;
    const BYTE *pHead = headData.get();
    const BYTE *pLoca = locaData.get();

    for (const char *pc = pTextA; *pc; ++pc) {
        const auto c = static_cast<unsigned char>(*pc);
        if (GlyphDown[c] & 1) continue; // a letter used twice goes out once
        GlyphDown[c] |= 1;

        DWORD cbGlyph = 0;
        BYTE *pGlyph =
            GetWaterMarkGlyph(pInfo, hFile, glyf.offset, c, pHead, pLoca, loca.length, 0, &cbGlyph);
        if (!pGlyph) continue;
        struct Free {
            BYTE *p;
            ~Free() { FreeLocked(p); }
        } freeGlyph{pGlyph};

        // numberOfContours below zero: a composite. Components start at byte 10, each with
        // flags and glyphIndex, then its arguments and transform.
        if (cbGlyph < 2 || static_cast<SHORT>(Be16(pGlyph)) >= 0) continue;
        Reader r{pGlyph, pGlyph + cbGlyph};
        if (!r.skip(10)) continue;
        for (;;) {
            WORD flags, component;
            if (!r.u16(flags) || !r.u16(component)) break;
            const int code = CodeOfGlyph(component);
            if (code >= 0) {
                if (!(GlyphDown[code] & 1)) {
                    BYTE *p = GetWaterMarkGlyph(pInfo, hFile, glyf.offset, code, pHead, pLoca,
                                                loca.length, 0);
                    if (!p) return; // the rest of the text stays undefined
                    GlyphDown[code] |= 1;
                    FreeLocked(p);
                }
            } else {
                BYTE *p = GetWaterMarkGlyph(pInfo, hFile, glyf.offset, component, pHead, pLoca,
                                            loca.length, 1);
                if (!p) return;
                FreeLocked(p);
            }
            size_t skip = (flags & ARG_1_AND_2_ARE_WORDS) ? 4 : 2;
            if (flags & WE_HAVE_A_SCALE)
                skip += 2;
            else if (flags & WE_HAVE_AN_X_AND_Y_SCALE)
                skip += 4;
            else if (flags & WE_HAVE_A_TWO_BY_TWO)
                skip += 8;
            if (!r.skip(skip) || !(flags & MORE_COMPONENTS)) break;
        }
    }
}
