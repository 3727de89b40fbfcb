// Proof that the soft font is real TrueType: a font rebuilt from the captured stream alone
// renders every character of the text as the installed font does.
#include "tests/watermark/harness.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include <gtest/gtest.h>

namespace {

using ttftest::Bytes;

// Windows Latin 1 to Unicode as the soft font's map has it: the code page's values for 130 to
// 159 but 142 and 158, and the bullet operator for the middle dot; every other code stays.
unsigned Cp1252(unsigned c) {
    if (c == 183) return 0x2219;
    static const unsigned k[32] = {0x80,   0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                   0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x8D,   0x8E,   0x8F,
                                   0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                   0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x9E,   0x0178};
    return c >= 128 && c < 160 ? k[c - 128] : c;
}

Bytes ToBytes(const std::string &s) {
    return Bytes(s.begin(), s.end());
}

// A TrueType file from the header's GT tables and the downloaded glyphs, with a loca, glyf
// and cmap of our own.
Bytes Rebuild(const wmtest::SoftFont &sf) {
    auto gt = wmtest::GtTables(sf.header);
    std::string head = gt["head"];
    head[50] = 0, head[51] = 1; // long loca
    const unsigned nGlyphs =
        ttftest::Get16(reinterpret_cast<const uint8_t *>(gt["maxp"].data()) + 4);
    std::map<unsigned, std::string> glyphs;
    std::map<unsigned, unsigned> cmap;
    for (const auto &c : sf.chars) {
        glyphs[c.glyph] = c.glyphBytes;
        if (c.code < 256) cmap[Cp1252(c.code)] = c.glyph;
    }
    Bytes glyf, loca;
    for (unsigned g = 0; g <= nGlyphs; ++g) {
        ttftest::Put32(loca, uint32_t(glyf.size()));
        if (g == nGlyphs) break;
        auto it = glyphs.find(g);
        if (it != glyphs.end()) glyf.insert(glyf.end(), it->second.begin(), it->second.end());
        while (glyf.size() % 4) glyf.push_back(0);
    }
    std::vector<std::pair<std::string, Bytes>> tables = {
        {"cmap", ttftest::Cmap(1, ttftest::CmapFormat4(cmap))}};
    for (const char *tag : {"cvt ", "fpgm"})
        if (gt.count(tag)) tables.push_back({tag, ToBytes(gt[tag])});
    tables.push_back({"glyf", glyf});
    tables.push_back({"head", ToBytes(head)});
    tables.push_back({"hhea", ToBytes(gt["hhea"])});
    tables.push_back({"hmtx", ToBytes(gt["hmtx"])});
    tables.push_back({"loca", loca});
    tables.push_back({"maxp", ToBytes(gt["maxp"])});
    if (gt.count("prep")) tables.push_back({"prep", ToBytes(gt["prep"])});
    return ttftest::Sfnt(tables);
}

// The component glyph ids of a composite, or none for a simple glyph.
std::vector<unsigned> Components(const std::string &glyph) {
    std::vector<unsigned> out;
    auto *p = reinterpret_cast<const uint8_t *>(glyph.data());
    const size_t n = glyph.size();
    if (n < 10 || ttftest::Get16(p) < 0x8000) return out;
    for (size_t at = 10; at + 4 <= n;) {
        const unsigned flags = ttftest::Get16(p + at);
        out.push_back(ttftest::Get16(p + at + 2));
        at += 4 + ((flags & 1) ? 4 : 2) +
              ((flags & 8)      ? 2
               : (flags & 0x40) ? 4
               : (flags & 0x80) ? 8
                                : 0);
        if (!(flags & 0x20)) break;
    }
    return out;
}

// A composite one of whose components is a composite too.
bool NestedComposite(const std::map<unsigned, std::string> &byGlyph, unsigned glyph) {
    auto it = byGlyph.find(glyph);
    if (it == byGlyph.end()) return false;
    for (unsigned k : Components(it->second)) {
        auto kt = byGlyph.find(k);
        if (kt != byGlyph.end() && !Components(kt->second).empty()) return true;
    }
    return false;
}

struct Rendered {
    int width, rows, left, top;
    long advance;
    std::string pixels;
    bool operator==(const Rendered &) const = default;
};

Rendered Render(FT_Face face, FT_UInt glyph) {
    EXPECT_EQ(FT_Load_Glyph(face, glyph, FT_LOAD_RENDER), 0);
    const FT_Bitmap &bm = face->glyph->bitmap;
    Rendered r{int(bm.width),           int(bm.rows),           face->glyph->bitmap_left,
               face->glyph->bitmap_top, face->glyph->advance.x, {}};
    for (unsigned y = 0; y < bm.rows; ++y)
        r.pixels.append(reinterpret_cast<const char *>(bm.buffer + long(y) * bm.pitch), bm.width);
    return r;
}

class FreeTypeProof : public ::testing::TestWithParam<const char *> {};

TEST_P(FreeTypeProof, RebuiltFontRendersLikeTheOriginal) {
    const std::string path = std::string("/usr/share/fonts/truetype/dejavu/") + GetParam();
    ASSERT_TRUE(std::filesystem::exists(path)) << path;

    // A repeated letter, spaces, accented letters, and the Windows codes 130 to 159.
    std::string text = "NO\xCB"
                       "L \xC9T\xC9 \xE0 \xE7"
                       "a \xF1 ";
    for (int c = 130; c <= 159; ++c) text += char(c);

    wmtest::Job job;
    WM = WMINFO{};
    WM.nWeight = 400;
    {
        wmtest::OpenFile f(path);
        ASSERT_NE(f.h, INVALID_HANDLE_VALUE);
        ASSERT_EQ(SelectWaterMarkFont(&job.info, &WM, f.h, "DejaVu Sans"), 1);
        DownloadWaterMarkChars(&job.info, &WM, f.h, text.c_str());
    }
    const wmtest::SoftFont sf = wmtest::ParseSoftFont(job.Take());
    ASSERT_TRUE(sf.ok);

    int composites = 0;
    std::map<unsigned, unsigned> sent; // code -> glyph
    for (const auto &c : sf.chars) {
        composites += c.glyphBytes.size() >= 2 && uint8_t(c.glyphBytes[0]) == 0xFF;
        if (c.code < 256) {
            EXPECT_TRUE(sent.emplace(c.code, c.glyph).second) << "twice: " << c.code;
        }
    }
    EXPECT_GT(composites, 0) << "the text should hold accented letters made of components";
    EXPECT_EQ(sent.count(' '), 0u);

    const Bytes rebuilt = Rebuild(sf);
    FT_Library lib;
    ASSERT_EQ(FT_Init_FreeType(&lib), 0);
    FT_Face orig, copy;
    ASSERT_EQ(FT_New_Face(lib, path.c_str(), 0, &orig), 0);
    ASSERT_EQ(FT_New_Memory_Face(lib, rebuilt.data(), FT_Long(rebuilt.size()), 0, &copy), 0);
    for (FT_Face f : {orig, copy}) ASSERT_EQ(FT_Set_Pixel_Sizes(f, 0, 61), 0);

    std::map<unsigned, std::string> byGlyph;
    for (const auto &c : sf.chars) byGlyph[c.glyph] = c.glyphBytes;
    int nested = 0;
    for (unsigned char c : text) {
        const unsigned u = Cp1252(c);
        const FT_UInt go = FT_Get_Char_Index(orig, u);
        if (!sent.count(c)) {
            // Nothing sent: an empty glyph, which prints as nothing.
            EXPECT_EQ(Render(orig, go).width, 0) << int(c);
            continue;
        }
        EXPECT_EQ(sent[c], go) << int(c);
        if (NestedComposite(byGlyph, sent[c])) {
            // Only one level of components goes to the printer: a component that is itself
            // composite arrives without its parts, so this character can't match.
            ++nested;
            continue;
        }
        const FT_UInt gc = FT_Get_Char_Index(copy, u);
        EXPECT_EQ(Render(copy, gc), Render(orig, go)) << "code " << int(c);
    }
    // DejaVu Sans Bold builds s caron from a caron that is composite itself.
    EXPECT_LE(nested, 2);
    FT_Done_Face(copy);
    FT_Done_Face(orig);
    FT_Done_FreeType(lib);
}

INSTANTIATE_TEST_SUITE_P(DejaVu, FreeTypeProof,
                         ::testing::Values("DejaVuSans.ttf", "DejaVuSans-Bold.ttf"));

} // namespace
