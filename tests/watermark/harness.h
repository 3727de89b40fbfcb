// Small TrueType files with the details a test wants to vary (map kind, loca format,
// composites, metrics count); a job record wired to a printer whose stream the test reads back;
// the pieces of a soft font download.
#pragma once

#include "job/job.h"
#include "q417/host.h"
#include "watermark/watermark.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace wmtest {

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

// An sfnt file from tables by tag (bytes or chars), in the map's order.
template <class Data>
Bytes Sfnt(const std::map<std::string, Data> &tables) {
    Bytes out;
    const unsigned n = unsigned(tables.size());
    unsigned sr = 1, es = 0;
    while (sr * 2 <= n) sr *= 2, ++es;
    for (unsigned v : {0x0001u, 0x0000u, n, sr * 16, es, n * 16 - sr * 16}) Put16(out, v);
    uint32_t offset = 12 + 16 * n;
    for (const auto &[tag, data] : tables) {
        out.insert(out.end(), tag.begin(), tag.end());
        uint32_t sum = 0;
        for (size_t i = 0; i < data.size(); ++i)
            sum += uint32_t(uint8_t(data[i])) << (24 - 8 * (i % 4));
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

// The directory record of a table, or null.
inline uint8_t *Entry(Bytes &font, const char *tag) {
    for (unsigned i = 0; font.size() >= 12 && i < Get16(font.data() + 4); ++i)
        if (std::memcmp(font.data() + 12 + 16 * i, tag, 4) == 0) return font.data() + 12 + 16 * i;
    return nullptr;
}

// A format 4 subtable for the map code -> glyph, one segment per code (idDelta form), or with
// useRangeOffset, each segment through the glyph id array.
inline Bytes CmapFormat4(const std::map<unsigned, unsigned> &map, bool useRangeOffset = false) {
    std::vector<std::pair<unsigned, unsigned>> segs(map.begin(), map.end());
    segs.push_back({0xFFFF, 0});
    const unsigned n = unsigned(segs.size());
    Bytes b;
    for (unsigned v : {4u, 0u, 0u, n * 2, 0u, 0u, 0u}) Put16(b, v); // length set below
    for (auto &s : segs) Put16(b, s.first);
    Put16(b, 0);
    for (auto &s : segs) Put16(b, s.first);
    for (unsigned i = 0; i < n; ++i)
        Put16(b, i + 1 == n ? 1 : useRangeOffset ? 0 : segs[i].second - segs[i].first);
    // idRangeOffset[i] points at glyph id word i of the array that follows.
    for (unsigned i = 0; i < n; ++i) Put16(b, useRangeOffset && i + 1 < n ? n * 2 : 0);
    if (useRangeOffset)
        for (unsigned i = 0; i + 1 < n; ++i) Put16(b, segs[i].second);
    b[2] = uint8_t(b.size() >> 8);
    b[3] = uint8_t(b.size());
    return b;
}

// A cmap table with a Macintosh record, which the walk must pass over, then a Microsoft one;
// the subtable sits 20 bytes in.
inline Bytes Cmap(unsigned encodingId, const Bytes &subtable) {
    Bytes b;
    for (unsigned v : {0u, 2u, 1u, 0u, 0u, 20u, 3u, encodingId, 0u, 20u}) Put16(b, v);
    b.insert(b.end(), subtable.begin(), subtable.end());
    return b;
}

struct Component {
    uint16_t flags;
    uint16_t glyph;
};

// A composite glyph; the argument and transform bytes follow each record as its flags say.
inline Bytes CompositeGlyph(const std::vector<Component> &parts) {
    Bytes b(10, 0);
    b[0] = b[1] = 0xFF; // numberOfContours -1
    for (size_t i = 0; i < parts.size(); ++i) {
        const uint16_t flags =
            uint16_t((parts[i].flags & ~0x20) | (i + 1 < parts.size() ? 0x20 : 0));
        Put16(b, flags);
        Put16(b, parts[i].glyph);
        const size_t extra = (flags & 1 ? 4 : 2) + (flags & 8 ? 2 : 0) + (flags & 0x40 ? 4 : 0) +
                             (flags & 0x80 ? 8 : 0);
        for (size_t k = 0; k < extra; ++k) b.push_back(uint8_t(0x10 + k));
    }
    return b;
}

// A simple glyph of one contour; the bytes after the header are a filler that marks it.
inline Bytes SimpleGlyph(uint8_t mark, size_t size = 14) {
    Bytes b(10, 0);
    b[1] = 1;
    b.resize(size, mark);
    return b;
}

struct FontPlan {
    std::map<unsigned, unsigned> map; // character (as the cmap holds it) -> glyph
    unsigned encodingId = 1;          // 1 Unicode, 0 symbol
    bool rangeOffsets = false;
    std::vector<Bytes> glyphs; // glyph id -> bytes (empty: an empty glyph)
    bool longLoca = false;
    unsigned numberOfHMetrics = 0; // 0: one per glyph
    unsigned widthClass = 5;
    int xMin = -100, yMin = -200, xMax = 1900, yMax = 1800;
    size_t cvtSize = 0; // 0: absent
};

inline Bytes Build(const FontPlan &s) {
    const unsigned nGlyphs = unsigned(s.glyphs.size());
    const unsigned nMetrics = s.numberOfHMetrics ? s.numberOfHMetrics : nGlyphs;

    Bytes head; // version, revision, checkSumAdjustment, magic, then flags and unitsPerEm
    for (uint32_t v : {0x00010000u, 0x00010000u, 0u, 0x5F0F3CF5u, 0x000B0800u}) Put32(head, v);
    head.resize(36, 0); // created, modified
    for (int v : {s.xMin, s.yMin, s.xMax, s.yMax, 0, 8, 2, s.longLoca ? 1 : 0, 0})
        Put16(head, unsigned(v)); // bounds, macStyle, lowestRecPPEM, direction, loca, format

    Bytes hhea;
    Put32(hhea, 0x00010000);
    hhea.resize(34, 0);
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
    for (unsigned v : {1u, 1139u, 400u, s.widthClass}) Put16(os2, v); // avg width, weight
    os2.resize(26, 0);
    for (unsigned v : {102u, 530u, 0u}) Put16(os2, v);          // strikeout size, position
    for (int i = 0; i < 10; ++i) os2.push_back(uint8_t(2 + i)); // panose
    os2.resize(86, 0);

    Bytes glyf, loca;
    for (unsigned g = 0; g <= nGlyphs; ++g) {
        s.longLoca ? Put32(loca, uint32_t(glyf.size())) : Put16(loca, unsigned(glyf.size() / 2));
        if (g == nGlyphs) break;
        glyf.insert(glyf.end(), s.glyphs[g].begin(), s.glyphs[g].end());
        if (glyf.size() % 2) glyf.push_back(0);
    }

    std::map<std::string, Bytes> t = {{"OS/2", os2},  {"glyf", glyf}, {"head", head},
                                      {"hhea", hhea}, {"hmtx", hmtx}, {"loca", loca},
                                      {"maxp", maxp}};
    t["cmap"] = Cmap(s.encodingId, CmapFormat4(s.map, s.rangeOffsets));
    if (s.cvtSize) t["cvt "] = Bytes(s.cvtSize, 0xC1);
    return Sfnt(t);
}

// A private directory under the system's temporary one, removed with the object.
struct TempDir {
    std::filesystem::path path;
    TempDir() {
        char tmpl[] = "/tmp/q417wm.XXXXXX";
        path = mkdtemp(tmpl);
    }
    ~TempDir() { std::filesystem::remove_all(path); }
    template <class Data>
    std::string Write(const std::string &name, const Data &bytes) const {
        auto p = path / name;
        std::ofstream(p, std::ios::binary)
            .write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size()));
        return p.string();
    }
};

// SPLDEVINFO and DDIDEVMODE of a 600 dpi job on a printer that writes into `out`; without a
// description the printer has the built-in defaults.
struct Job {
    SPLDEVINFO info{};
    DDIDEVMODE dm{};
    char cmdBuf[1024] = {};
    std::string out;
    HANDLE32 hPrinter = 0;

    static int Sink(void *ctx, const void *data, uint32_t size) {
        static_cast<std::string *>(ctx)->append(static_cast<const char *>(data), size);
        return 1;
    }

    explicit Job(const char *windowsDir = nullptr, const char *pdd = "/nonexistent/wmtest.pdd") {
        Q417_PRINTER pr{"wmtest", pdd, nullptr, "FILE:", windowsDir};
        hPrinter = Q417_AddPrinter(&pr);
        Q417_SetOutputCallback(hPrinter, Sink, &out);
        info.hPrinter = hPrinter;
        info.pDevMode = Ptr32From(&dm);
        info.pCmdBuf = Ptr32From(cmdBuf);
        info.nPagesPerSheet = 1;
        info.nPage = 1;
        info.cxPrintable = 5760;
        info.cyPrintable = 7560;
        dm.dmPrintQuality = 600;
        dm.dmYResolution = 600;
        dm.wEmulation = 1;
    }
    ~Job() { Q417_DeletePrinter(hPrinter); }

    std::string Take() { return std::exchange(out, {}); }
};

// The pieces of a soft font download: the header block and the character records.
struct SoftFont {
    std::string header; // the S bytes after "\e)s<S>W"
    struct Char {
        unsigned code;
        unsigned glyph;
        std::string glyphBytes;
    };
    std::vector<Char> chars;
    bool ok = false;
};

// Splits a captured download: "\e*c32766D", "\e)s<S>W" and the block, the selection, then
// "\e*c<code>E\e(s<n>W" and a record for each character.
inline SoftFont ParseSoftFont(const std::string &s) {
    SoftFont f;
    unsigned size = 0, code = 0;
    int used = 0;
    size_t pos = s.find("\x1b)s");
    if (pos == std::string::npos || std::sscanf(s.c_str() + pos, "\x1b)s%uW%n", &size, &used) != 1)
        return f;
    f.header = s.substr(pos + used, size);
    pos += used + size;
    const std::string select = "\x1b(32766X\x1b*c6F\x1b*c5F";
    if (s.compare(pos, select.size(), select) != 0) return f;
    for (pos += select.size(); pos < s.size(); pos += used + size) {
        if (std::sscanf(s.c_str() + pos, "\x1b*c%uE\x1b(s%uW%n", &code, &size, &used) != 2 ||
            size < 10 || pos + used + size > s.size())
            return f;
        const std::string rec = s.substr(pos + used, size);
        auto *r = reinterpret_cast<const uint8_t *>(rec.data());
        f.chars.push_back({code, Get16(r + 6), rec.substr(8, size - 10)});
    }
    f.ok = true;
    return f;
}

// The tables of the GT segment by tag, as the header block holds them.
inline std::map<std::string, std::string> GtTables(const std::string &header) {
    std::map<std::string, std::string> t;
    auto *h = reinterpret_cast<const uint8_t *>(header.data());
    const size_t gt = 72 + 14 + 4; // the offset table
    unsigned n = Get16(h + gt + 4);
    for (unsigned i = 0; i < n; ++i) {
        const uint8_t *e = h + gt + 12 + 16 * i;
        std::string tag(reinterpret_cast<const char *>(e), 4);
        uint32_t off = Get32(e + 8), len = Get32(e + 12);
        if (tag == "gdir") continue;
        t[tag] = header.substr(gt + off, len);
    }
    return t;
}

} // namespace wmtest
