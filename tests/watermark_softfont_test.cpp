// The soft font header and the glyph download, on small TrueType files built for each case.
#include "tests/watermark/harness.h"
#include "watermark/truetype.h"

#include <gtest/gtest.h>

namespace {

using ttftest::Bytes;
using ttftest::FontSpec;
using ttftest::Get16;
using ttftest::Get32;
using wmtest::Escaped;

// .notdef, space (empty), A, B, C; glyph 5 has no code.
FontSpec BasicSpec() {
    FontSpec s;
    s.glyphs = {ttftest::SimpleGlyph(0xD0),     {},
                ttftest::SimpleGlyph(0xA1, 20), ttftest::SimpleGlyph(0xB2, 17),
                ttftest::SimpleGlyph(0xC3, 30), ttftest::SimpleGlyph(0xE5, 12)};
    s.map = {{32, 1}, {65, 2}, {66, 3}, {67, 4}, {160, 1}};
    return s;
}

class SoftFontTest : public ::testing::Test {
  protected:
    wmtest::TempDir dir;
    wmtest::Job job;
    long blocksBefore = q417::mem::LiveBlocks();

    void SetUp() override {
        WM = WMINFO{};
        WM.nWeight = 400;
    }
    void TearDown() override {
        q417::mem::FailAllocation(0);
        EXPECT_EQ(q417::mem::LiveBlocks(), blocksBefore) << "a block leaked";
    }

    // Sends the header and, with a text, the glyphs; returns the header's result.
    int Send(const Bytes &font, const char *text = nullptr, const char *face = "Test Face") {
        std::string path = dir.Write("font.ttf", font);
        wmtest::OpenFile f(path);
        EXPECT_NE(f.h, INVALID_HANDLE_VALUE);
        int ok = SelectWaterMarkFont(&job.info, &WM, f.h, face);
        if (ok && text) DownloadWaterMarkChars(&job.info, &WM, f.h, text);
        return ok;
    }
};

TEST_F(SoftFontTest, HeaderWithTheFiveTablesOnly) {
    FontSpec spec = BasicSpec();
    WM.nWeight = 700;
    ASSERT_EQ(Send(ttftest::Build(spec)), 1);
    const std::string out = job.Take();
    wmtest::SoftFont sf = wmtest::ParseSoftFont(out);
    ASSERT_TRUE(sf.ok) << Escaped(out);
    const std::string &h = sf.header;
    const auto *b = reinterpret_cast<const uint8_t *>(h.data());

    // head 54 -> 56, hhea 36, hmtx 6 glyphs x 4 = 24, maxp 6 -> 8
    const size_t S = 72 + 14 + 16 + 16 + 6 + 4 * 16 + 56 + 36 + 24 + 8;
    ASSERT_EQ(h.size(), S);
    const std::string head = "\x1b*c32766D\x1b)s312W"; // font id, header of 312 bytes
    EXPECT_EQ(Escaped(out.substr(0, head.size())), Escaped(head));
    EXPECT_EQ(Escaped(out.substr(head.size() + S)), Escaped("\x1b(32766X\x1b*c6F\x1b*c5F"));

    // Descriptor.
    EXPECT_EQ(Escaped(h.substr(0, 72)),
              Escaped(std::string("\x00\x48"                // descriptor size 72
                                  "\x0F\x02"                // format 15, font type 2
                                  "\x00\x00"                // style MSB, reserved
                                  "\x00\x00"                // baseline
                                  "\x07\xD0"                // cell width 1900 - -100
                                  "\x07\xD0"                // cell height 1800 - -200
                                  "\x00\x01"                // orientation, proportional
                                  "\x02\x75"                // symbol set 629 (19U)
                                  "\x03\xF2"                // pitch: the space's advance, 1010
                                  "\x00\x00\x00\x00"        // height, xHeight
                                  "\x00\x00"                // width type 0, style LSB
                                  "\x03\xFE\x00"            // stroke weight 3, typeface 254, 0
                                  "\x00\x00\x00\x00\x00"    // serif .. underline thickness
                                  "\x00\x00"                // text height
                                  "\x04\x73"                // text width: xAvgCharWidth 1139
                                  "\x00\x00\x00\xFF"        // first code 0, last 255
                                  "\x00\x00\x00\x00"        // pitch/height extended, cap height
                                  "\x00\x00\x00\x00"        // font number
                                  "Test Face\0\0\0\0\0\0\0" // name, 16 bytes
                                  "\x08\x00"                // scale factor: unitsPerEm 2048
                                  "\x02\x12"                // yStrikeoutPosition 530
                                  "\x00\x66"                // yStrikeoutSize 102
                                  "\x01\x00",               // TrueType scaling, variety
                                  72)));
    // PANOSE and GT segment heads.
    EXPECT_EQ(Escaped(h.substr(72, 16)),
              Escaped(std::string("PA\x00\x0A\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0BGT", 16)));
    EXPECT_EQ(Get16(b + 88), S - 96);
    // Offset table: the file's, with numTables 5.
    EXPECT_EQ(Get32(b + 90), 0x00010000u);
    EXPECT_EQ(Get16(b + 94), 5u);
    // Directory: gdir empty, the others with offsets from the offset table.
    const char *order[] = {"gdir", "head", "hhea", "hmtx", "maxp"};
    const uint32_t offsets[] = {0, 92, 148, 184, 208};
    const uint32_t lengths[] = {0, 54, 36, 24, 6};
    for (int i = 0; i < 5; ++i) {
        const uint8_t *e = b + 102 + 16 * i;
        EXPECT_EQ(std::string(reinterpret_cast<const char *>(e), 4), order[i]);
        EXPECT_EQ(Get32(e + 8), offsets[i]) << order[i];
        EXPECT_EQ(Get32(e + 12), lengths[i]) << order[i];
    }
    // head's two padding bytes, maxp's two, then the null segment.
    EXPECT_EQ(h.substr(90 + 92 + 54, 2), std::string(2, '\0'));
    EXPECT_EQ(h.substr(90 + 208 + 6, 2), std::string(2, '\0'));
    EXPECT_EQ(Escaped(h.substr(S - 6, 5)), Escaped(std::string("\xFF\xFF\x00\x00\x00", 5)));
    unsigned sum = 0;
    for (size_t i = 64; i < S; ++i) sum += b[i];
    EXPECT_EQ(sum % 256, 0u);
    // The tables are the file's bytes.
    auto tables = wmtest::GtTables(h);
    EXPECT_EQ(tables["maxp"], std::string("\x00\x00\x50\x00\x00\x06", 6));
    EXPECT_EQ(tables.count("cmap") + tables.count("loca") + tables.count("glyf"), 0u);
}

TEST_F(SoftFontTest, OptionalTablesInOrderAndPadded) {
    FontSpec spec = BasicSpec();
    spec.cvtSize = 5; // 3 bytes of padding
    spec.fpgmSize = 8;
    spec.prepSize = 1;
    ASSERT_EQ(Send(ttftest::Build(spec)), 1);
    wmtest::SoftFont sf = wmtest::ParseSoftFont(job.Take());
    ASSERT_TRUE(sf.ok);
    const auto *b = reinterpret_cast<const uint8_t *>(sf.header.data());
    EXPECT_EQ(Get16(b + 94), 8u);
    const char *order[] = {"cvt ", "fpgm", "gdir", "head", "hhea", "hmtx", "maxp", "prep"};
    uint32_t expectOffset = 12 + 16 * 8;
    for (int i = 0; i < 8; ++i) {
        const uint8_t *e = b + 102 + 16 * i;
        EXPECT_EQ(std::string(reinterpret_cast<const char *>(e), 4), order[i]);
        if (i == 2) continue;
        EXPECT_EQ(Get32(e + 8), expectOffset) << order[i];
        expectOffset += (Get32(e + 12) + 3) & ~3u;
    }
    auto tables = wmtest::GtTables(sf.header);
    EXPECT_EQ(tables["cvt "], std::string(5, '\xC1'));
    EXPECT_EQ(sf.header.substr(90 + 12 + 16 * 8 + 5, 3), std::string(3, '\0'));
    EXPECT_EQ(tables["prep"], std::string(1, '\xB1'));
    EXPECT_EQ(sf.header.size(), 72 + 14 + 16 + 16 + 6 + 7 * 16 + 8 + 8 + 56 + 36 + 24 + 8 + 4u);
}

TEST_F(SoftFontTest, DescriptorFieldsFromTheFont) {
    struct {
        unsigned widthClass;
        int widthType;
    } widths[] = {{0, 0}, {1, -5}, {2, -4}, {3, -2}, {4, -2}, {5, 0},
                  {6, 2}, {7, 2},  {8, 3},  {9, 3},  {10, 0}};
    for (auto w : widths) {
        FontSpec spec = BasicSpec();
        spec.widthClass = w.widthClass;
        ASSERT_EQ(Send(ttftest::Build(spec)), 1);
        EXPECT_EQ(int8_t(wmtest::ParseSoftFont(job.Take()).header[22]), w.widthType)
            << w.widthClass;
    }
    struct {
        int weight, stroke;
    } weights[] = {{100, -5}, {200, -4}, {300, -3}, {400, 0}, {450, 0}, {0, 0},
                   {500, 1},  {600, 2},  {700, 3},  {800, 4}, {900, 5}};
    for (auto w : weights) {
        WM.nWeight = w.weight;
        ASSERT_EQ(Send(ttftest::Build(BasicSpec())), 1);
        EXPECT_EQ(int8_t(wmtest::ParseSoftFont(job.Take()).header[24]), w.stroke) << w.weight;
    }
    using Names = std::pair<std::string, std::string>;
    for (auto [face, field] : {Names{"Sixteen Chars Ok", "Sixteen Chars Ok"},
                               {"A Much Longer Face Name", "A Much Longer Fa"},
                               {"Short", std::string("Short\0\0\0\0\0\0\0\0\0\0\0", 16)}}) {
        ASSERT_EQ(Send(ttftest::Build(BasicSpec()), nullptr, face.c_str()), 1);
        EXPECT_EQ(wmtest::ParseSoftFont(job.Take()).header.substr(48, 16), field);
    }
}

TEST_F(SoftFontTest, SpaceBeyondTheMetricsTakesGlyphZerosAdvance) {
    FontSpec spec = BasicSpec();
    spec.numberOfHMetrics = 1; // the space is glyph 1: no record of its own
    ASSERT_EQ(Send(ttftest::Build(spec)), 1);
    EXPECT_EQ(
        Get16(reinterpret_cast<const uint8_t *>(wmtest::ParseSoftFont(job.Take()).header.data()) +
              16),
        1000u);
}

// Changes a table's tag in the directory, so the font seems to lack it.
Bytes Without(Bytes font, const char *tag) {
    const unsigned n = Get16(font.data() + 4);
    for (unsigned i = 0; i < n; ++i)
        if (std::memcmp(font.data() + 12 + 16 * i, tag, 4) == 0)
            std::memcpy(font.data() + 12 + 16 * i, "zzzz", 4);
    return font;
}

// Sets a field of a table's directory record (8: offset, 12: length).
Bytes WithEntry(Bytes font, const char *tag, int field, uint32_t value) {
    const unsigned n = Get16(font.data() + 4);
    for (unsigned i = 0; i < n; ++i) {
        uint8_t *e = font.data() + 12 + 16 * i;
        if (std::memcmp(e, tag, 4) != 0) continue;
        for (int k = 0; k < 4; ++k) e[field + k] = uint8_t(value >> (24 - 8 * k));
    }
    return font;
}

TEST_F(SoftFontTest, RefusedFontsSendNothing) {
    const Bytes good = ttftest::Build(BasicSpec());
    FontSpec symbolOther = BasicSpec();
    symbolOther.encodingId = 10;
    FontSpec huge = BasicSpec();
    huge.cvtSize = 70000; // the block would pass 65535 bytes
    FontSpec shortHead = BasicSpec();
    shortHead.headSize = 52;
    Bytes manyTables = good;
    manyTables[4] = manyTables[5] = 0xFF; // numTables 65535
    Bytes format6 = good;
    {
        // the Microsoft subtable's format word
        unsigned n = Get16(good.data() + 4);
        for (unsigned i = 0; i < n; ++i)
            if (std::memcmp(good.data() + 12 + 16 * i, "cmap", 4) == 0)
                format6[Get32(good.data() + 12 + 16 * i + 8) + 21] = 6;
    }
    struct Case {
        const char *what;
        Bytes font;
    } cases[] = {
        {"no cmap", Without(good, "cmap")},
        {"no head", Without(good, "head")},
        {"no hhea", Without(good, "hhea")},
        {"no hmtx", Without(good, "hmtx")},
        {"no maxp", Without(good, "maxp")},
        {"no OS/2", Without(good, "OS/2")},
        {"no Microsoft map", ttftest::Build(symbolOther)},
        {"format 6 map", format6},
        {"block above 65535", ttftest::Build(huge)},
        {"head of 52 bytes", ttftest::Build(shortHead)},
        {"numTables 65535", manyTables},
        {"hhea of 1 byte", WithEntry(good, "hhea", 12, 1)},
        {"OS/2 of 40 bytes", WithEntry(good, "OS/2", 12, 40)},
        {"hmtx too short for the space", WithEntry(good, "hmtx", 12, 5)},
        {"maxp past the end", WithEntry(good, "maxp", 8, 0xFFFFFFF0)},
        {"cmap longer than the file", WithEntry(good, "cmap", 12, 0x7FFFFFFF)},
        {"empty file", {}},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(Send(c.font), 0) << c.what;
        EXPECT_TRUE(job.Take().empty()) << c.what;
    }
    for (size_t cut = 0; cut + 2 < good.size(); cut += 7) { // maxp ends 2 bytes early
        EXPECT_EQ(Send(Bytes(good.begin(), good.begin() + long(cut))), 0) << cut;
        EXPECT_TRUE(job.Take().empty()) << cut;
    }
}

TEST_F(SoftFontTest, NoMemoryAnywhereRefusesOrSendsAndNeverLeaks) {
    const Bytes font = ttftest::Build(BasicSpec());
    for (long n = 1; n < 40; ++n) {
        q417::mem::FailAllocation(n);
        Send(font, "ABC");
        q417::mem::FailAllocation(0);
        job.Take();
        EXPECT_EQ(q417::mem::LiveBlocks(), blocksBefore) << n;
    }
}

// ---- Glyphs ----

struct Rec {
    unsigned code, glyph;
};
std::vector<Rec> Records(const std::string &out) {
    std::vector<Rec> r;
    for (auto &c : wmtest::ParseSoftFont(out).chars) r.push_back({c.code, c.glyph});
    return r;
}
bool operator==(const Rec &a, const Rec &b) {
    return a.code == b.code && a.glyph == b.glyph;
}
void PrintTo(const Rec &r, std::ostream *os) {
    *os << r.code << "->" << r.glyph;
}

TEST_F(SoftFontTest, CharacterRecordLayout) {
    ASSERT_EQ(Send(ttftest::Build(BasicSpec()), "B"), 1);
    const std::string out = job.Take();
    const size_t at = out.find("\x1b*c66E");
    ASSERT_NE(at, std::string::npos);
    // 17 glyph bytes and loca's padding byte: the record is 8 + 18 + 2 = 28 bytes.
    Bytes glyph = ttftest::SimpleGlyph(0xB2, 17);
    glyph.push_back(0);
    std::string expect = "\x1b*c66E\x1b(s28W" +
                         std::string("\x0F\x00\x02\x0F" // format 15, class 15
                                     "\x00\x16"         // character data size 18 + 4
                                     "\x00\x03",        // glyph 3
                                     8) +
                         std::string(glyph.begin(), glyph.end()) + std::string(1, '\0');
    unsigned sum = 0x16 + 0x03;
    for (uint8_t g : glyph) sum += g;
    expect += char((256 - sum % 256) % 256);
    EXPECT_EQ(Escaped(out.substr(at)), Escaped(expect));
}

TEST_F(SoftFontTest, EachLetterOnceAndNothingForTheSpace) {
    ASSERT_EQ(Send(ttftest::Build(BasicSpec()), "AAA A"), 1);
    EXPECT_EQ(Records(job.Take()), (std::vector<Rec>{{65, 2}}));
    EXPECT_EQ(GlyphIDArray[32], 0);
    EXPECT_EQ(GlyphIDArray[160], 0); // the same empty glyph under another code
    EXPECT_EQ(GlyphDown[32], 1);
    EXPECT_EQ(GlyphDown[65], 1);
    EXPECT_EQ(GlyphDown[66], 0);
}

TEST_F(SoftFontTest, CodesToCharactersByMapKind) {
    struct Case {
        const char *what;
        unsigned encodingId;
        std::map<unsigned, unsigned> map;
        bool rangeOffsets;
        std::vector<Rec> expect;
    } cases[] = {
        {"Windows codes",
         1,
         {{0x2019, 2}, {0x2219, 3}, {128, 4}, {0xB7, 5}},
         false,
         {{146, 2}, {183, 3}, {128, 4}, {66, 0}}},
        {"through the glyph id array",
         1,
         {{0x2019, 2}, {0x2219, 3}, {128, 4}},
         true,
         {{146, 2}, {183, 3}, {128, 4}, {66, 0}}},
        {"symbol, private use", 0, {{0xF041, 3}, {0xF142, 4}}, false, {{65, 3}, {66, 0}}},
        {"symbol, plain", 0, {{0x41, 3}, {0xF042, 4}}, false, {{65, 3}, {66, 0}}},
    };
    for (const Case &c : cases) {
        FontSpec spec = BasicSpec();
        spec.encodingId = c.encodingId;
        spec.map = c.map;
        spec.rangeOffsets = c.rangeOffsets;
        ASSERT_EQ(Send(ttftest::Build(spec), "\x92\xB7\x80"
                                             "AB"),
                  1)
            << c.what;
        std::vector<Rec> got = Records(job.Take());
        // glyph 0 stands for every code the map lacks: keep the mapped ones and 66
        std::vector<Rec> mapped;
        for (Rec r : got)
            if (r.glyph != 0 || r.code == 66) mapped.push_back(r);
        EXPECT_EQ(mapped, c.expect) << c.what;
    }
}

TEST_F(SoftFontTest, ShortAndLongLoca) {
    for (bool longLoca : {false, true}) {
        FontSpec spec = BasicSpec();
        spec.longLoca = longLoca;
        ASSERT_EQ(Send(ttftest::Build(spec), "CBA"), 1);
        wmtest::SoftFont sf = wmtest::ParseSoftFont(job.Take());
        ASSERT_EQ(sf.chars.size(), 3u);
        const Bytes c = ttftest::SimpleGlyph(0xC3, 30);
        EXPECT_EQ(sf.chars[0].glyphBytes, std::string(c.begin(), c.end())) << longLoca;
        EXPECT_EQ(sf.chars[1].glyphBytes.size(), 18u) << longLoca; // 17 padded to even
        EXPECT_EQ(sf.chars[2].glyphBytes.size(), 20u) << longLoca;
    }
}

// Composite glyphs: 6 = A (2) + 5 + 7 + 8 with each transform, 9 = 7 + C (4); 7 and 8 have
// no code.
FontSpec CompositeSpec() {
    FontSpec s = BasicSpec();
    s.glyphs.push_back(ttftest::CompositeGlyph({{0x0000, 2},          // byte arguments
                                                {0x0001 | 0x0008, 5}, // words, one scale
                                                {0x0040, 7},          // x and y scales
                                                {0x0080, 8}}));       // two by two
    s.glyphs.push_back(ttftest::SimpleGlyph(0x77));
    s.glyphs.push_back(ttftest::SimpleGlyph(0x88));
    s.glyphs.push_back(ttftest::CompositeGlyph({{0x0001, 7}, {0x0000, 4}}));
    s.map[0xC9] = 6; // É
    s.map[0xC8] = 9; // È
    return s;
}

TEST_F(SoftFontTest, CompositesAndTheirComponents) {
    ASSERT_EQ(Send(ttftest::Build(CompositeSpec()), "\xC9"
                                                    "A\xC8\xC9"
                                                    "C"),
              1);
    EXPECT_EQ(Records(job.Take()), (std::vector<Rec>{
                                       {0xC9, 6},  // the composite first
                                       {65, 2},    // its base letter under its own code
                                       {65535, 5}, // components without a code
                                       {65535, 7},
                                       {65535, 8},
                                       // A is done already
                                       {0xC8, 9},
                                       {65535, 7}, // again: nothing records it
                                       {67, 4},    // C as a component, so not again
                                   }));
    EXPECT_EQ(GlyphDown[67], 1);
}

TEST_F(SoftFontTest, BrokenGlyphsAreSkipped) {
    // A composite whose last record is cut: what is whole goes out.
    FontSpec cut = CompositeSpec();
    cut.glyphs[6].resize(cut.glyphs[6].size() - 12); // into the last record's head
    ASSERT_EQ(Send(ttftest::Build(cut), "\xC9"
                                        "B"),
              1);
    EXPECT_EQ(Records(job.Take()),
              (std::vector<Rec>{{0xC9, 6}, {65, 2}, {65535, 5}, {65535, 7}, {66, 3}}));

    // A composite with an empty component ends the download.
    FontSpec empty = CompositeSpec();
    empty.glyphs[7].clear();
    ASSERT_EQ(Send(ttftest::Build(empty), "\xC9"
                                          "B"),
              1);
    EXPECT_EQ(Records(job.Take()), (std::vector<Rec>{{0xC9, 6}, {65, 2}, {65535, 5}}));

    // loca with an end before its start loses that character only.
    FontSpec backwards = BasicSpec();
    Bytes font = ttftest::Build(backwards);
    const unsigned n = Get16(font.data() + 4);
    for (unsigned i = 0; i < n; ++i) {
        const uint8_t *e = font.data() + 12 + 16 * i;
        if (std::memcmp(e, "loca", 4) == 0) {
            uint8_t *loca = font.data() + Get32(e + 8);
            loca[2 * 3] = 0xFF; // glyph 3 (B) now starts far behind its end
        }
    }
    ASSERT_EQ(Send(font, "BC"), 1);
    EXPECT_EQ(Records(job.Take()), (std::vector<Rec>{{67, 4}}));
    EXPECT_EQ(GlyphDown[66], 1);

    // loca too short for a glyph: no character at all for it.
    ASSERT_EQ(Send(WithEntry(ttftest::Build(BasicSpec()), "loca", 12, 8), "CA"), 1);
    EXPECT_EQ(Records(job.Take()), (std::vector<Rec>{{65, 2}}));

    // glyf or loca missing: the header is there, the characters aren't.
    for (const char *tag : {"glyf", "loca"}) {
        ASSERT_EQ(Send(Without(ttftest::Build(BasicSpec()), tag), "ABC"), 1);
        EXPECT_TRUE(Records(job.Take()).empty()) << tag;
    }
}

// The Microsoft subtable of a built font (the builder puts it 20 bytes into cmap).
uint8_t *Subtable(Bytes &font) {
    const unsigned n = Get16(font.data() + 4);
    for (unsigned i = 0; i < n; ++i)
        if (std::memcmp(font.data() + 12 + 16 * i, "cmap", 4) == 0)
            return font.data() + Get32(font.data() + 12 + 16 * i + 8) + 20;
    return nullptr;
}

TEST_F(SoftFontTest, MapsThatLeadOutsideTheTable) {
    FontSpec spec = BasicSpec();
    spec.map = {{65, 2}, {66, 3}};
    spec.rangeOffsets = true;
    Bytes font = ttftest::Build(spec);
    ASSERT_EQ(Send(font, "AB"), 1);
    EXPECT_EQ(Records(job.Take()), (std::vector<Rec>{{65, 2}, {66, 3}}));

    // idRangeOffset of A's segment far past the end of the table: A has no glyph.
    Bytes far = font;
    uint8_t *sub = Subtable(far);
    const unsigned segs = Get16(sub + 6) / 2;
    sub[16 + 6 * segs] = 0xFF, sub[16 + 6 * segs + 1] = 0xFE;
    ASSERT_EQ(Send(far, "AB"), 1);
    EXPECT_EQ(Records(job.Take()), (std::vector<Rec>{{65, 0}, {66, 3}}));

    // segCountX2 whose arrays can't fit: no usable map, the font is refused.
    Bytes many = font;
    sub = Subtable(many);
    sub[6] = 0xFF, sub[7] = 0xFE;
    EXPECT_EQ(Send(many, "AB"), 0);
    EXPECT_TRUE(job.Take().empty());
}

TEST_F(SoftFontTest, AMissingCharacterSendsGlyphZero) {
    ASSERT_EQ(Send(ttftest::Build(BasicSpec()), "Z"), 1);
    EXPECT_EQ(Records(job.Take()), (std::vector<Rec>{{90, 0}}));
}

TEST(TrueTypeHelpers, FindTagShortSubPadWithZero) {
    const uint8_t dir[48] = {'c', 'm', 'a', 'p', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                             'h', 'e', 'a', 'd', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                             'h', 'e', 'a', 'd', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    WORD index = 7;
    EXPECT_EQ(FindTag(dir, "head", 3, &index), dir + 16);
    EXPECT_EQ(index, 1);
    EXPECT_EQ(FindTag(dir, "head", 1, &index), nullptr);
    EXPECT_EQ(index, 0xFFFF);
    // Big-endian words as they stand in memory: 0x0100 is 1, 0xFFFF is -1.
    auto raw = [](unsigned v) {
        const uint8_t b[2] = {uint8_t(v >> 8), uint8_t(v)};
        WORD w;
        std::memcpy(&w, b, 2);
        return w;
    };
    EXPECT_EQ(ShortSub(raw(1900), raw(0xFF9C)), 2000);
    EXPECT_EQ(ShortSub(raw(0x8000), raw(1)), 0x7FFF); // wraps as 16 bits
    uint8_t buf[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_EQ(PadWithZero(buf + 1, 5, 8), buf + 4);
    EXPECT_EQ(buf[0] + buf[1] + buf[2] + buf[3], 9);
    EXPECT_EQ(buf[4], 9);
}

} // namespace
