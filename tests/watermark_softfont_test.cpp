// The soft font header and the glyph download, on small TrueType files built for each case,
// and the proof that it is real TrueType: a font rebuilt from the captured stream alone renders
// every character of a text as the installed font does.
#include "tests/watermark/harness.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include <gtest/gtest.h>

namespace {

using namespace wmtest;

// .notdef, space (empty), A, B, C; glyph 5 has no code.
FontPlan BasicFont() {
    FontPlan s;
    s.glyphs = {SimpleGlyph(0xD0),     {},
                SimpleGlyph(0xA1, 20), SimpleGlyph(0xB2, 17),
                SimpleGlyph(0xC3, 30), SimpleGlyph(0xE5, 12)};
    s.map = {{32, 1}, {65, 2}, {66, 3}, {67, 4}, {160, 1}};
    return s;
}

// Composite glyphs: 6 = A (2) + 5 + 7 + 8 with each transform, 9 = 7 + C (4); 7 and 8 have
// no code.
FontPlan CompositeFont() {
    FontPlan s = BasicFont();
    s.glyphs.push_back(CompositeGlyph({{0x0000, 2},          // byte arguments
                                       {0x0001 | 0x0008, 5}, // words, one scale
                                       {0x0040, 7},          // x and y scales
                                       {0x0080, 8}}));       // two by two
    s.glyphs.push_back(SimpleGlyph(0x77));
    s.glyphs.push_back(SimpleGlyph(0x88));
    s.glyphs.push_back(CompositeGlyph({{0x0001, 7}, {0x0000, 4}}));
    s.map[0xC9] = 6; // É
    s.map[0xC8] = 9; // È
    return s;
}

template <class F>
FontPlan With(FontPlan s, F tweak) {
    tweak(s);
    return s;
}
template <class F>
Bytes Font(F tweak) {
    return Build(With(BasicFont(), tweak));
}
// BasicFont's glyphs under another map.
Bytes Mapped(std::map<unsigned, unsigned> map, unsigned encodingId = 1, bool ranged = false) {
    return Font(
        [&](FontPlan &s) { s.map = map, s.encodingId = encodingId, s.rangeOffsets = ranged; });
}

// Sets a field of a table's directory record: 0 its tag, 8 its offset, 12 its length.
constexpr uint32_t kGone = 0x7A7A7A7A; // "zzzz": the font seems to lack the table
Bytes Patch(Bytes font, const char *tag, int field, uint32_t value) {
    uint8_t *e = Entry(font, tag);
    for (int k = 0; k < 4; ++k) e[field + k] = uint8_t(value >> (24 - 8 * k));
    return font;
}

// Writes bytes into a table, `at` bytes in.
Bytes Poke(Bytes font, const char *tag, size_t at, std::initializer_list<uint8_t> bytes) {
    std::copy(bytes.begin(), bytes.end(), font.begin() + long(Get32(Entry(font, tag) + 8) + at));
    return font;
}

// A golden stream kept as text: hex bytes or "text", and comments from '#' to the end of a line.
std::string HexGolden(const std::string &name) {
    std::ifstream in(std::string(Q417_TEST_DATA) + "/watermark/" + name);
    std::string out;
    for (std::string line, word; std::getline(in, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        while (words >> std::ws && !words.eof()) {
            const bool text = words.peek() == '"';
            words >> std::quoted(word);
            out += text ? word : std::string(1, char(std::stoi(word, nullptr, 16)));
        }
    }
    return out;
}

class SoftFontTest : public ::testing::Test {
  protected:
    TempDir dir;
    Job job;
    long blocksBefore = q417::mem::LiveBlocks();

    void SetUp() override { WM = WMINFO{}; } // weight 0: stroke weight 0, as for 400
    void TearDown() override { EXPECT_EQ(q417::mem::LiveBlocks(), blocksBefore); }

    // Sends the header and, with a text, the glyphs; returns the header's result.
    int Send(const Bytes &font, const char *text = nullptr, const char *face = "Test Face") {
        const std::string path = dir.Write("font.ttf", font);
        const std::u16string name(path.begin(), path.end());
        HANDLE f = CreateFileW(name.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                               FILE_ATTRIBUTE_NORMAL, 0);
        EXPECT_NE(f, INVALID_HANDLE_VALUE);
        int ok = SelectWaterMarkFont(&job.info, &WM, f, face);
        if (ok && text) DownloadWaterMarkChars(&job.info, &WM, f, text);
        CloseHandle(f);
        return ok;
    }
};

// Every field of the descriptor, the GT segment and a character record, annotated in the data
// file.
TEST_F(SoftFontTest, HeaderGolden) {
    WM.nWeight = 700;
    ASSERT_EQ(Send(Build(BasicFont()), "B"), 1);
    EXPECT_EQ(job.Take(), HexGolden("softfont_header.hex"));
}

// The descriptor's stroke weight (byte 24) for every weight a definition may give, and its
// width type (byte 22) for every width class of the font; one download a row.
TEST_F(SoftFontTest, StrokeWeightAndWidthTypeEveryRow) {
    const int rows[][4] = {// weight, stroke weight, width class, width type
                           {0, 0, 0, 0},    {100, -5, 1, -5}, {200, -4, 2, -4}, {300, -3, 3, -2},
                           {400, 0, 4, -2}, {450, 0, 5, 0},   {500, 1, 6, 2},   {600, 2, 7, 2},
                           {700, 3, 8, 3},  {800, 4, 9, 3},   {900, 5, 10, 0},  {1000, 0, 11, 0}};
    for (auto [weight, stroke, widthClass, widthType] : rows) {
        WM.nWeight = weight;
        ASSERT_EQ(Send(Font([&](FontPlan &s) { s.widthClass = unsigned(widthClass); })), 1);
        const std::string h = ParseSoftFont(job.Take()).header;
        EXPECT_EQ(int(int8_t(h.at(24))), stroke) << "weight " << weight;
        EXPECT_EQ(int(int8_t(h.at(22))), widthType) << "width class " << widthClass;
    }
}

TEST_F(SoftFontTest, DescriptorFieldsFromTheFont) {
    struct Case {
        const char *what;
        FontPlan plan;
        const char *face;
        size_t at;
        std::string bytes;
    } cases[] = {
        {"face cut to 16", BasicFont(), "A Much Longer Face Name", 48, "A Much Longer Fa"},
        {"space beyond the metrics: glyph 0's advance",
         With(BasicFont(), [](FontPlan &s) { s.numberOfHMetrics = 1; }), "F", 16, "\x03\xE8"},
        {"cell width wraps as 16 bits",
         With(BasicFont(), [](FontPlan &s) { s.xMin = -1, s.xMax = 0x7FFF; }), "F", 8, "\x80\x00"},
    };
    for (const Case &c : cases) {
        ASSERT_EQ(Send(Build(c.plan), nullptr, c.face), 1) << c.what;
        EXPECT_EQ(ParseSoftFont(job.Take()).header.substr(c.at, c.bytes.size()), c.bytes) << c.what;
    }
}

TEST_F(SoftFontTest, RefusedFontsSendNothing) {
    const Bytes good = Build(BasicFont());
    Bytes manyTables = good;
    manyTables[4] = manyTables[5] = 0xFF;
    const Bytes ranged = Mapped(BasicFont().map, 1, true);
    std::vector<std::pair<std::string, Bytes>> cases = {
        {"no Microsoft map", Mapped(BasicFont().map, 10)},
        {"format 6 map", Poke(good, "cmap", 21, {6})},
        {"segCountX2 past the table", Poke(ranged, "cmap", 26, {0xFF, 0xFE})},
        {"block above 65535", Font([](FontPlan &s) { s.cvtSize = 70000; })},
        {"head of 52 bytes", Patch(good, "head", 12, 52)},
        {"numTables 65535", manyTables},
        {"hhea of 1 byte", Patch(good, "hhea", 12, 1)},
        {"OS/2 of 40 bytes", Patch(good, "OS/2", 12, 40)},
        {"hmtx too short for the space", Patch(good, "hmtx", 12, 5)},
        {"maxp past the end", Patch(good, "maxp", 8, 0xFFFFFFF0)},
        {"cmap longer than the file", Patch(good, "cmap", 12, 0x7FFFFFFF)},
    };
    for (const char *tag : {"cmap", "head", "hhea", "hmtx", "maxp", "OS/2"})
        cases.push_back({std::string("no ") + tag, Patch(good, tag, 0, kGone)});
    for (size_t cut = 0; cut + 2 < good.size(); cut += 7) // maxp ends 2 bytes early
        cases.push_back(
            {"cut at " + std::to_string(cut), Bytes(good.begin(), good.begin() + long(cut))});
    for (const auto &[what, font] : cases) {
        EXPECT_EQ(Send(font), 0) << what;
        EXPECT_TRUE(job.Take().empty()) << what;
    }
}

TEST_F(SoftFontTest, CharactersSent) {
    const Bytes basic = Build(BasicFont());
    FontPlan cut = CompositeFont();
    // Glyph 6 cut into its last record's head.
    cut.glyphs[6] = Bytes(cut.glyphs[6].begin(), cut.glyphs[6].end() - 12);
    const Bytes ranged = Mapped({{65, 2}, {66, 3}}, 1, true);
    auto bigB = [](size_t size) { // long loca: B's glyph needs it
        return Font([=](FontPlan &s) { s.longLoca = true, s.glyphs[3] = SimpleGlyph(0xB2, size); });
    };
    const std::map<unsigned, unsigned> windows = {{0x2019, 2}, {0x2219, 3}, {128, 4}, {0xB7, 5}};
    const char *windowsText = "\222\267\200AB";
    struct Case {
        const char *what;
        Bytes font;
        const char *text;
        const char *sent;
    } cases[] = {
        {"a letter once, the space never, its glyph elsewhere as 0", basic, "AAA A\240",
         "65:2 160:0"},
        {"a missing character sends glyph 0", basic, "Z", "90:0"},
        {"Windows codes", Mapped(windows), windowsText, "146:2 183:3 128:4 65:0 66:0"},
        {"through the glyph id array", Mapped(windows, 1, true), windowsText,
         "146:2 183:3 128:4 65:0 66:0"},
        {"symbol, private use", Mapped({{0xF041, 3}, {0xF142, 4}}, 0), "AB", "65:3 66:0"},
        {"symbol, plain", Mapped({{0x41, 3}, {0xF042, 4}}, 0), "AB", "65:3 66:0"},
        // The composite, its base letter under its own code, components without a code; A
        // is done already, 7 goes again as nothing records it, C as a component isn't resent.
        {"composites", Build(CompositeFont()), "\311A\310\311C",
         "201:6 65:2 65535:5 65535:7 65535:8 200:9 65535:7 67:4"},
        {"a cut composite sends what is whole", Build(cut), "\311B",
         "201:6 65:2 65535:5 65535:7 66:3"},
        {"an empty component ends the download",
         Build(With(CompositeFont(), [](FontPlan &s) { s.glyphs[7].clear(); })), "\311B",
         "201:6 65:2 65535:5"},
        {"loca ending before its start", Poke(basic, "loca", 6, {0xFF}), "BC", "67:4"},
        {"loca too short", Patch(basic, "loca", 12, 8), "CA", "65:2"},
        {"no glyf", Patch(basic, "glyf", 0, kGone), "ABC", ""},
        {"no loca", Patch(basic, "loca", 0, kGone), "ABC", ""},
        // The record's size counts 4 bytes beside the glyph's, in 16 bits: 65531 is the most
        // (glyphs here are padded to even lengths).
        {"a glyph of 65530 bytes", bigB(0xFFFF - 5), "BC", "66:3 67:4"},
        {"a glyph of 65532 bytes is skipped", bigB(0xFFFF - 3), "BC", "67:4"},
        {"idRangeOffset past the table", Poke(ranged, "cmap", 20 + 16 + 6 * 3, {0xFF, 0xFE}), "AB",
         "65:0 66:3"},
    };
    for (const Case &c : cases) {
        ASSERT_EQ(Send(c.font, c.text), 1) << c.what;
        std::string sent; // "code:glyph" each
        for (auto &r : ParseSoftFont(job.Take()).chars)
            sent +=
                (sent.empty() ? "" : " ") + std::to_string(r.code) + ":" + std::to_string(r.glyph);
        EXPECT_EQ(sent, c.sent) << c.what;
    }
}

// Windows Latin 1 to Unicode as the soft font's map has it: the code page's values for 130 to
// 159 but 142 and 158, and the bullet operator for the middle dot; every other code stays.
unsigned Cp1252(unsigned c) {
    WCHAR w = WCHAR(c);
    const char b = char(c);
    if (c >= 130 && c < 160 && c != 142 && c != 158) MultiByteToWideChar(CP_ACP, 0, &b, 1, &w, 1);
    return c == 183 ? 0x2219 : w;
}

// A TrueType file from the header's GT tables and the downloaded glyphs, with a loca and glyf
// of our own. Like the printer, it has no map: the records say which glyph a code is.
Bytes Rebuild(const SoftFont &sf) {
    auto gt = GtTables(sf.header);
    gt["head"][50] = 0, gt["head"][51] = 1; // long loca
    const unsigned nGlyphs = Get16(reinterpret_cast<const uint8_t *>(gt["maxp"].data()) + 4);
    std::map<unsigned, std::string> glyphs;
    for (const auto &c : sf.chars) glyphs[c.glyph] = c.glyphBytes;
    Bytes loca;
    std::string &glyf = gt["glyf"];
    for (unsigned g = 0; g <= nGlyphs; ++g) {
        glyf.resize((glyf.size() + 3) & ~size_t(3));
        Put32(loca, uint32_t(glyf.size()));
        if (glyphs.count(g)) glyf += glyphs[g];
    }
    gt["loca"].assign(loca.begin(), loca.end());
    return Sfnt(gt);
}

// Width, rows, left, top, advance and pixels.
auto Render(FT_Face face, FT_UInt glyph) {
    EXPECT_EQ(FT_Load_Glyph(face, glyph, FT_LOAD_RENDER), 0);
    const FT_GlyphSlot g = face->glyph;
    std::string pixels;
    for (unsigned y = 0; y < g->bitmap.rows; ++y)
        pixels.append(reinterpret_cast<const char *>(g->bitmap.buffer + long(y) * g->bitmap.pitch),
                      g->bitmap.width);
    return std::tuple(g->bitmap.width, g->bitmap.rows, g->bitmap_left, g->bitmap_top, g->advance.x,
                      pixels);
}

class FreeTypeProof : public SoftFontTest, public ::testing::WithParamInterface<const char *> {};

TEST_P(FreeTypeProof, RebuiltFontRendersLikeTheOriginal) {
    const std::string path = std::string("/usr/share/fonts/truetype/dejavu/") + GetParam();
    // A repeated letter, spaces, accented letters, and the Windows codes 130 to 159.
    std::string text = "NO\313L \311T\311 \340 \347a \361 ";
    for (int c = 130; c <= 159; ++c) text += char(c);

    std::ifstream in(path, std::ios::binary);
    ASSERT_EQ(Send(Bytes(std::istreambuf_iterator<char>(in), {}), text.c_str(), "DejaVu Sans"), 1);
    const SoftFont sf = ParseSoftFont(job.Take());
    ASSERT_TRUE(sf.ok);
    // The hinting tables go too, the GT directory in tag order.
    std::string tags;
    for (size_t e = 102; e < 102 + 8 * 16; e += 16) tags += sf.header.substr(e, 4);
    EXPECT_EQ(tags, "cvt fpgmgdirheadhheahmtxmaxpprep");

    int composites = 0;
    std::map<unsigned, unsigned> sent; // code -> glyph
    for (const auto &c : sf.chars) {
        composites += c.glyphBytes.size() >= 2 && uint8_t(c.glyphBytes[0]) == 0xFF;
        EXPECT_TRUE(c.code > 255 || sent.emplace(c.code, c.glyph).second) << "twice: " << c.code;
    }
    EXPECT_GT(composites, 0) << "the text should hold accented letters made of components";

    const Bytes rebuilt = Rebuild(sf);
    FT_Library lib;
    ASSERT_EQ(FT_Init_FreeType(&lib), 0);
    FT_Face orig, copy;
    ASSERT_EQ(FT_New_Face(lib, path.c_str(), 0, &orig), 0);
    ASSERT_EQ(FT_New_Memory_Face(lib, rebuilt.data(), FT_Long(rebuilt.size()), 0, &copy), 0);
    for (FT_Face f : {orig, copy}) ASSERT_EQ(FT_Set_Pixel_Sizes(f, 0, 61), 0);

    for (unsigned char c : text) {
        const FT_UInt go = FT_Get_Char_Index(orig, Cp1252(c));
        if (!sent.count(c)) {
            // Nothing sent: an empty glyph, which prints as nothing.
            EXPECT_EQ(std::get<0>(Render(orig, go)), 0u) << int(c);
            continue;
        }
        EXPECT_EQ(sent[c], go) << int(c);
        // Only one level of components goes to the printer, and DejaVu Sans Bold builds
        // s caron from a caron that is composite itself.
        if (c == 154 && std::string(GetParam()) == "DejaVuSans-Bold.ttf") continue;
        EXPECT_EQ(Render(copy, sent[c]), Render(orig, go)) << "code " << int(c);
    }
    FT_Done_FreeType(lib); // and its faces
}

INSTANTIATE_TEST_SUITE_P(DejaVu, FreeTypeProof,
                         ::testing::Values("DejaVuSans.ttf", "DejaVuSans-Bold.ttf"));

} // namespace
