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

// A TrueType file from the header's GT tables and the downloaded glyphs, with a loca, glyf
// and cmap of our own.
Bytes Rebuild(const wmtest::SoftFont &sf) {
    auto gt = wmtest::GtTables(sf.header);
    gt["head"][50] = 0, gt["head"][51] = 1; // long loca
    const unsigned nGlyphs =
        ttftest::Get16(reinterpret_cast<const uint8_t *>(gt["maxp"].data()) + 4);
    std::map<unsigned, std::string> glyphs;
    std::map<unsigned, unsigned> cmap;
    for (const auto &c : sf.chars) {
        glyphs[c.glyph] = c.glyphBytes;
        if (c.code < 256) cmap[Cp1252(c.code)] = c.glyph;
    }
    Bytes loca;
    std::string &glyf = gt["glyf"];
    for (unsigned g = 0; g <= nGlyphs; ++g) {
        glyf.resize((glyf.size() + 3) & ~size_t(3));
        ttftest::Put32(loca, uint32_t(glyf.size()));
        if (glyphs.count(g)) glyf += glyphs[g];
    }
    gt["loca"].assign(loca.begin(), loca.end());
    const Bytes map = ttftest::Cmap(1, ttftest::CmapFormat4(cmap));
    gt["cmap"].assign(map.begin(), map.end());
    std::vector<std::pair<std::string, Bytes>> tables; // by tag, as the map holds them
    for (const auto &[tag, data] : gt) tables.push_back({tag, Bytes(data.begin(), data.end())});
    return ttftest::Sfnt(tables);
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
    const long blocksBefore = q417::mem::LiveBlocks();
    {
        wmtest::OpenFile f(path);
        ASSERT_NE(f.h, INVALID_HANDLE_VALUE);
        ASSERT_EQ(SelectWaterMarkFont(&job.info, &WM, f.h, "DejaVu Sans"), 1);
        DownloadWaterMarkChars(&job.info, &WM, f.h, text.c_str());
    }
    EXPECT_EQ(q417::mem::LiveBlocks(), blocksBefore) << "a block leaked";
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

    for (unsigned char c : text) {
        const unsigned u = Cp1252(c);
        const FT_UInt go = FT_Get_Char_Index(orig, u);
        if (!sent.count(c)) {
            // Nothing sent: an empty glyph, which prints as nothing.
            EXPECT_EQ(Render(orig, go).width, 0) << int(c);
            continue;
        }
        EXPECT_EQ(sent[c], go) << int(c);
        // Only one level of components goes to the printer, and DejaVu Sans Bold builds
        // s caron from a caron that is composite itself.
        if (c == 154 && std::string(GetParam()) == "DejaVuSans-Bold.ttf") continue;
        const FT_UInt gc = FT_Get_Char_Index(copy, u);
        EXPECT_EQ(Render(copy, gc), Render(orig, go)) << "code " << int(c);
    }
    FT_Done_Face(copy);
    FT_Done_Face(orig);
    FT_Done_FreeType(lib);
}

INSTANTIATE_TEST_SUITE_P(DejaVu, FreeTypeProof,
                         ::testing::Values("DejaVuSans.ttf", "DejaVuSans-Bold.ttf"));

} // namespace
