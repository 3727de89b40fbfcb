// The soft font header: a TrueType file made into a PCL format 15 font header (segmented,
// 16-bit segment sizes) that holds every table the printer's scaler needs but the outlines.
#include "watermark/watermark.h"

#include "job/job.h"
#include "watermark/truetype.h"

#include <cstring>

using namespace q417::tt;

namespace {

// Fixed parts of the block: descriptor; PA id, size and PANOSE; GT id, size and offset table;
// the gdir entry; null segment, reserved byte and checksum.
constexpr DWORD kDescriptorSize = 72;
constexpr DWORD kFixedSize = 72 + 14 + 16 + 16 + 6;
constexpr DWORD kMaxBlock = 65535;

int StrokeWeight(int nWeight) {
    switch (nWeight) {
    case 100:
        return -5;
    case 200:
        return -4;
    case 300:
        return -3;
    case 500:
        return 1;
    case 600:
        return 2;
    case 700:
        return 3;
    case 800:
        return 4;
    case 900:
        return 5;
    default:
        return 0;
    }
}

int WidthType(unsigned usWidthClass) {
    switch (usWidthClass) {
    case 1:
        return -5;
    case 2:
        return -4;
    case 3:
    case 4:
        return -2;
    case 6:
    case 7:
        return 2;
    case 8:
    case 9:
        return 3;
    default:
        return 0;
    }
}

// A word as it stands in the file, unswapped.
WORD RawWord(const BYTE *p) {
    WORD w;
    std::memcpy(&w, p, 2);
    return w;
}

// A table of the GT segment: where it is in the file and how long it is there.
struct GtTable {
    const char *tag;
    bool required;
    Table t;
    bool present = false;
};

// The sum of n bytes modulo 256. Four running sums, so the additions don't wait on each other:
// the block is tens of kilobytes and this is most of the time spent on it.
BYTE ByteSum(const BYTE *p, DWORD n) {
    DWORD s0 = 0, s1 = 0, s2 = 0, s3 = 0, i = 0;
    for (; n - i >= 4; i += 4) s0 += p[i], s1 += p[i + 1], s2 += p[i + 2], s3 += p[i + 3];
    for (; i < n; ++i) s0 += p[i];
    return static_cast<BYTE>(s0 + s1 + s2 + s3);
}

} // namespace

int SelectWaterMarkFont(SPLDEVINFO *pInfo, WMINFO *pWMInfo, HANDLE hFile, const char *pFaceA) {
    const int strokeWeight = StrokeWeight(pWMInfo->nWeight);

    Directory dir;
    if (!ReadDirectory(hFile, dir)) return 0;

    // The map is settled on the host; the table itself is gone before the block is made.
    {
        Table cmap;
        if (!FindTable(dir, "cmap", cmap)) return 0;
        Block cmapData;
        if (!LoadTable(hFile, cmap, cmapData)) return 0;
        if (!BuildGlyphIDArray(cmapData.get(), cmap.length)) return 0;
    }

    // Directory order of the GT segment; gdir has no data and stands between fpgm and head.
    GtTable tables[] = {
        {"cvt ", false, {}}, {"fpgm", false, {}}, {"head", true, {}},  {"hhea", true, {}},
        {"hmtx", true, {}},  {"maxp", true, {}},  {"prep", false, {}},
    };
    enum { kCvt, kFpgm, kHead, kHhea, kHmtx, kMaxp, kPrep };
    for (GtTable &g : tables) {
        g.present = FindTable(dir, g.tag, g.t);
        if (!g.present) {
            WORD index;
            // An optional table that is there but lies outside the file refuses the font
            // as well as a missing required one.
            if (g.required || FindTag(dir.entries.get(), g.tag, dir.nTables, &index)) return 0;
        }
    }

    // head: unitsPerEm at 18, xMin 36, yMin 38, xMax 40, yMax 42, indexToLocFormat 50; only
    // its first 54 bytes go into the block.
    BYTE head[54];
    if (tables[kHead].t.length < sizeof head) return 0;
    if (!ReadAt(hFile, tables[kHead].t.offset, head, sizeof head)) return 0;

    // hhea ends with numberOfHMetrics.
    const Table &hhea = tables[kHhea].t;
    BYTE word[2];
    if (hhea.length < 2 || !ReadAt(hFile, hhea.offset + hhea.length - 2, word, 2)) return 0;
    const unsigned nHMetrics = Be16(word);

    // Pitch: the advance width of the space, from its longHorMetric record; a glyph without
    // a record of its own takes glyph 0's.
    unsigned spaceGlyph = GlyphIDArray[32];
    if (spaceGlyph + 1 > nHMetrics) spaceGlyph = 0;
    const Table &hmtx = tables[kHmtx].t;
    BYTE pitch[2];
    if (uint64_t(spaceGlyph) * 4 + 2 > hmtx.length) return 0;
    if (!ReadAt(hFile, hmtx.offset + spaceGlyph * 4, pitch, 2)) return 0;

    // OS/2: xAvgCharWidth at 2, usWidthClass 6, yStrikeoutSize 26, yStrikeoutPosition 28,
    // panose[10] at 32.
    Table os2;
    if (!FindTable(dir, "OS/2", os2) || os2.length < 42) return 0;
    BYTE os2Data[86] = {};
    if (!ReadAt(hFile, os2.offset, os2Data, os2.length < 86 ? os2.length : 86)) return 0;

    // n tables in the GT directory: gdir and the tables present.
    unsigned n = 1;
    uint64_t cbTables = 0;
    for (const GtTable &g : tables) {
        if (!g.present) continue;
        ++n;
        cbTables += 16 + Padded(g.t.length);
    }
    const uint64_t size64 = kFixedSize + cbTables;
    if (size64 > kMaxBlock) return 0; // the GT segment size is a 16-bit field
    const DWORD S = static_cast<DWORD>(size64);

    Block block(S);
    if (!block) return 0;
    BYTE *b = block.get();

    // Font descriptor.
    PutBe16(b + 0, kDescriptorSize);
    b[2] = 15; // header format: TrueType scalable, segmented
    b[3] = 2;  // font type: 256 codes
    PutBe16(b + 8, static_cast<WORD>(ShortSub(RawWord(head + 40), RawWord(head + 36))));
    PutBe16(b + 10, static_cast<WORD>(ShortSub(RawWord(head + 42), RawWord(head + 38))));
    b[13] = 1;            // proportional
    PutBe16(b + 14, 629); // 19U, Windows Latin 1
    std::memcpy(b + 16, pitch, 2);
    b[22] = static_cast<BYTE>(WidthType(Be16(os2Data + 6)));
    b[24] = static_cast<BYTE>(strokeWeight);
    b[25] = 254;                         // typeface LSB
    std::memcpy(b + 34, os2Data + 2, 2); // text width: xAvgCharWidth
    PutBe16(b + 38, 255);                // last code
    const size_t cbFace = pFaceA ? strnlen(pFaceA, 16) : 0;
    std::memcpy(b + 48, pFaceA, cbFace);  // no terminator when the name fills the field
    std::memcpy(b + 64, head + 18, 2);    // scale factor: unitsPerEm
    std::memcpy(b + 66, os2Data + 28, 2); // master underline position: yStrikeoutPosition
    std::memcpy(b + 68, os2Data + 26, 2); // master underline thickness: yStrikeoutSize
    b[70] = 1;                            // TrueType scaling

    // PANOSE segment.
    BYTE *p = b + 72;
    std::memcpy(p, "PA", 2);
    PutBe16(p + 2, 10);
    std::memcpy(p + 4, os2Data + 32, 10);
    p += 14;

    // Global TrueType data: offset table with the new count, then the directory.
    std::memcpy(p, "GT", 2);
    PutBe16(p + 2, S - 96);
    p += 4;
    std::memcpy(p, dir.offsetTable, 12);
    PutBe16(p + 4, n);
    p += 12;
    DWORD offset = 12 + 16 * n;
    for (int i = 0; i < kPrep + 1; ++i) {
        if (i == kHead) {
            std::memcpy(p, "gdir", 4); // checksum, offset and length stay 0
            p += 16;
        }
        const GtTable &g = tables[i];
        if (!g.present) continue;
        std::memcpy(p, g.t.entry, 8); // tag and checksum
        p[8] = static_cast<BYTE>(offset >> 24);
        p[9] = static_cast<BYTE>(offset >> 16);
        PutBe16(p + 10, offset & 0xFFFF);
        std::memcpy(p + 12, g.t.entry + 12, 4); // length
        offset += static_cast<DWORD>(Padded(g.t.length));
        p += 16;
    }

    // Table data, each padded to a multiple of four; head as the 54 bytes read above.
    for (const GtTable &g : tables) {
        if (!g.present) continue;
        const DWORD padded = static_cast<DWORD>(Padded(g.t.length));
        if (&g == &tables[kHead]) {
            std::memcpy(p, head, sizeof head);
            p += padded; // the block is zeroed: the rest of the slot is the padding
            continue;
        }
        if (g.t.length && !ReadAt(hFile, g.t.offset, p, g.t.length)) return 0;
        p = PadWithZero(p + g.t.length, g.t.length, padded);
    }

    if (p != b + S - 6) return 0; // the sizes above and the layout disagree: can't happen

    // Null segment: id 0xFFFF, size 0; then the reserved byte. The checksum makes bytes 64
    // to the end add up to 0 modulo 256.
    p[0] = 0xFF;
    p[1] = 0xFF;
    b[S - 1] = static_cast<BYTE>(256 - ByteSum(b + 64, S - 1 - 64));

    WmWriteCmd(pInfo, "\x1b*c%dD", WM_FONT_ID);
    WmWriteCmd(pInfo, "\x1b)s%dW", static_cast<int>(S));
    DevWrite(pInfo, b, S);
    WmWriteCmd(pInfo, "\x1b(%dX\x1b*c6F\x1b*c5F", WM_FONT_ID);
    return 1;
}
