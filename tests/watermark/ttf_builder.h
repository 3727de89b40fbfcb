// Small TrueType files for tests and fuzz seeds: the tables the soft font reads, with the
// details a test wants to vary (map kind, loca format, composites, metrics count).
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace ttftest {

using Bytes = std::vector<uint8_t>;

inline void Put16(Bytes &b, unsigned v) {
    b.push_back(uint8_t(v >> 8));
    b.push_back(uint8_t(v));
}
inline void Put32(Bytes &b, uint32_t v) {
    Put16(b, v >> 16);
    Put16(b, v & 0xFFFF);
}
inline unsigned Get16(const uint8_t *p) {
    return unsigned(p[0]) << 8 | p[1];
}
inline uint32_t Get32(const uint8_t *p) {
    return uint32_t(Get16(p)) << 16 | Get16(p + 2);
}

// An sfnt file from tables in the order given (tags of 4 characters). The directory records
// are written in that order too, so a test can place a table anywhere.
inline Bytes Sfnt(const std::vector<std::pair<std::string, Bytes>> &tables) {
    Bytes out;
    const unsigned n = unsigned(tables.size());
    Put32(out, 0x00010000);
    Put16(out, n);
    unsigned sr = 1, es = 0;
    while (sr * 2 <= n) sr *= 2, ++es;
    Put16(out, sr * 16);
    Put16(out, es);
    Put16(out, n * 16 - sr * 16);
    uint32_t offset = 12 + 16 * n;
    for (const auto &[tag, data] : tables) {
        out.insert(out.end(), tag.begin(), tag.end());
        uint32_t sum = 0;
        for (size_t i = 0; i < data.size(); i += 4) {
            uint32_t w = 0;
            for (size_t k = 0; k < 4; ++k) w = w << 8 | (i + k < data.size() ? data[i + k] : 0);
            sum += w;
        }
        Put32(out, sum);
        Put32(out, offset);
        Put32(out, uint32_t(data.size()));
        offset += (uint32_t(data.size()) + 3) & ~3u;
    }
    for (const auto &[tag, data] : tables) {
        out.insert(out.end(), data.begin(), data.end());
        while (out.size() % 4) out.push_back(0);
    }
    return out;
}

// A format 4 subtable for the map code -> glyph, one segment per code (idDelta form), or with
// useRangeOffset, each segment through the glyph id array.
inline Bytes CmapFormat4(const std::map<unsigned, unsigned> &map, bool useRangeOffset = false) {
    std::vector<std::pair<unsigned, unsigned>> segs(map.begin(), map.end());
    segs.push_back({0xFFFF, 0});
    const unsigned n = unsigned(segs.size());
    Bytes b;
    Put16(b, 4);
    Put16(b, 0); // length, set below
    Put16(b, 0);
    Put16(b, n * 2);
    Put16(b, 0);
    Put16(b, 0);
    Put16(b, 0);
    for (auto &s : segs) Put16(b, s.first);
    Put16(b, 0);
    for (auto &s : segs) Put16(b, s.first);
    for (unsigned i = 0; i < n; ++i) {
        bool last = i + 1 == n;
        Put16(b, (useRangeOffset && !last) ? 0 : (last ? 1 : (segs[i].second - segs[i].first)));
    }
    for (unsigned i = 0; i < n; ++i) {
        bool last = i + 1 == n;
        // idRangeOffset[i] points at glyph id word i of the array that follows.
        Put16(b, (useRangeOffset && !last) ? (n - i) * 2 + i * 2 : 0);
    }
    if (useRangeOffset)
        for (unsigned i = 0; i + 1 < n; ++i) Put16(b, segs[i].second);
    b[2] = uint8_t(b.size() >> 8);
    b[3] = uint8_t(b.size());
    return b;
}

// A cmap table with one Microsoft record (platform 3) of the encoding given.
inline Bytes Cmap(unsigned encodingId, const Bytes &subtable) {
    Bytes b;
    Put16(b, 0);
    Put16(b, 2);
    Put16(b, 1); // a Macintosh record first, which the walk must pass over
    Put16(b, 0);
    Put32(b, 20);
    Put16(b, 3);
    Put16(b, encodingId);
    Put32(b, 20);
    b.insert(b.end(), subtable.begin(), subtable.end());
    return b;
}

struct Component {
    uint16_t flags;
    uint16_t glyph;
};

// A composite glyph; the argument and transform bytes follow each record as its flags say.
inline Bytes CompositeGlyph(const std::vector<Component> &parts) {
    Bytes b;
    Put16(b, 0xFFFF); // numberOfContours -1
    for (int i = 0; i < 4; ++i) Put16(b, 0);
    for (size_t i = 0; i < parts.size(); ++i) {
        uint16_t flags = parts[i].flags;
        if (i + 1 < parts.size())
            flags |= 0x0020;
        else
            flags &= ~0x0020;
        Put16(b, flags);
        Put16(b, parts[i].glyph);
        size_t extra = (flags & 0x0001) ? 4 : 2;
        if (flags & 0x0008)
            extra += 2;
        else if (flags & 0x0040)
            extra += 4;
        else if (flags & 0x0080)
            extra += 8;
        for (size_t k = 0; k < extra; ++k) b.push_back(uint8_t(0x10 + k));
    }
    return b;
}

// A simple glyph of one contour; the bytes after the header are a filler that marks it.
inline Bytes SimpleGlyph(uint8_t mark, size_t size = 14) {
    Bytes b;
    Put16(b, 1);
    for (int i = 0; i < 4; ++i) Put16(b, 0);
    while (b.size() < size) b.push_back(mark);
    return b;
}

struct FontSpec {
    std::map<unsigned, unsigned> map; // character (as the cmap holds it) -> glyph
    unsigned encodingId = 1;          // 1 Unicode, 0 symbol
    bool rangeOffsets = false;
    std::vector<Bytes> glyphs; // glyph id -> bytes (empty: an empty glyph)
    bool longLoca = false;
    unsigned numberOfHMetrics = 0; // 0: one per glyph
    unsigned widthClass = 5;
    unsigned unitsPerEm = 2048;
    int xMin = -100, yMin = -200, xMax = 1900, yMax = 1800;
    size_t cvtSize = 0, fpgmSize = 0, prepSize = 0; // 0: absent
    size_t headSize = 54;
};

inline Bytes Head(const FontSpec &s) {
    Bytes b;
    Put32(b, 0x00010000);
    Put32(b, 0x00010000);
    Put32(b, 0);          // checkSumAdjustment
    Put32(b, 0x5F0F3CF5); // magic
    Put16(b, 0x000B);     // flags
    Put16(b, s.unitsPerEm);
    for (int i = 0; i < 16; ++i) b.push_back(0); // created, modified
    Put16(b, uint16_t(s.xMin));
    Put16(b, uint16_t(s.yMin));
    Put16(b, uint16_t(s.xMax));
    Put16(b, uint16_t(s.yMax));
    Put16(b, 0); // macStyle
    Put16(b, 8); // lowestRecPPEM
    Put16(b, 2); // fontDirectionHint
    Put16(b, s.longLoca ? 1 : 0);
    Put16(b, 0); // glyphDataFormat
    b.resize(s.headSize, 0);
    return b;
}

inline Bytes Build(const FontSpec &s) {
    const unsigned nGlyphs = unsigned(s.glyphs.size());
    const unsigned nMetrics = s.numberOfHMetrics ? s.numberOfHMetrics : nGlyphs;

    Bytes hhea;
    Put32(hhea, 0x00010000);
    for (int i = 0; i < 15; ++i) Put16(hhea, 0);
    Put16(hhea, nMetrics);

    Bytes hmtx;
    for (unsigned g = 0; g < nGlyphs; ++g) {
        if (g < nMetrics) Put16(hmtx, 1000 + 10 * g);
        Put16(hmtx, 0);
    }

    Bytes maxp;
    Put32(maxp, 0x00005000);
    Put16(maxp, nGlyphs);

    Bytes os2;
    Put16(os2, 1);
    Put16(os2, 1139);         // xAvgCharWidth
    Put16(os2, 400);          // usWeightClass
    Put16(os2, s.widthClass); // usWidthClass
    while (os2.size() < 26) Put16(os2, 0);
    Put16(os2, 102); // yStrikeoutSize
    Put16(os2, 530); // yStrikeoutPosition
    Put16(os2, 0);
    for (int i = 0; i < 10; ++i) os2.push_back(uint8_t(2 + i)); // panose
    os2.resize(86, 0);

    Bytes glyf, loca;
    for (unsigned g = 0; g <= nGlyphs; ++g) {
        if (s.longLoca)
            Put32(loca, uint32_t(glyf.size()));
        else
            Put16(loca, unsigned(glyf.size() / 2));
        if (g == nGlyphs) break;
        glyf.insert(glyf.end(), s.glyphs[g].begin(), s.glyphs[g].end());
        while (glyf.size() % 2) glyf.push_back(0);
    }

    std::vector<std::pair<std::string, Bytes>> t;
    t.push_back({"OS/2", os2});
    t.push_back({"cmap", Cmap(s.encodingId, CmapFormat4(s.map, s.rangeOffsets))});
    if (s.cvtSize) t.push_back({"cvt ", Bytes(s.cvtSize, 0xC1)});
    if (s.fpgmSize) t.push_back({"fpgm", Bytes(s.fpgmSize, 0xF1)});
    t.push_back({"glyf", glyf});
    t.push_back({"head", Head(s)});
    t.push_back({"hhea", hhea});
    t.push_back({"hmtx", hmtx});
    t.push_back({"loca", loca});
    t.push_back({"maxp", maxp});
    if (s.prepSize) t.push_back({"prep", Bytes(s.prepSize, 0xB1)});
    return Sfnt(t);
}

} // namespace ttftest
