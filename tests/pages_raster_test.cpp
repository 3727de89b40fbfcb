// The raster encoder against the tool's own decoder: rows of every kind through each
// compression method and through the encoder's choice come back as the same bytes.
#include "pcl_decoder.h"
#include "raster.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

using q417::pages::Bitmap;
using q417::pages::EncodeDeltaRow;
using q417::pages::EncodePackBits;
using q417::pages::EncodeRaster;
using q417::pages::RasterEncoder;
using q417::pages::RasterResolution;
using q417tool::DecodeRaster;
using q417tool::DecodeResult;
using q417tool::RasterBlock;
using Row = std::vector<uint8_t>;

constexpr size_t kBytes = 702; // long enough for offsets past 31 + 255 and runs past 128

Row Random(unsigned seed) {
    std::mt19937 gen(seed);
    Row r(kBytes);
    for (auto &b : r) b = static_cast<uint8_t>(gen());
    return r;
}
Row With(Row r, size_t at, uint8_t v) {
    r[at] = v;
    return r;
}
// Runs of every length around PackBits' limits, between literals that hold 0x80.
Row Runs() {
    Row r;
    for (size_t len = 1; r.size() < kBytes; ++len) {
        r.insert(r.end(), len % 131, static_cast<uint8_t>(len));
        r.push_back(0x80);
    }
    r.resize(kBytes);
    return r;
}

struct Case {
    const char *name;
    Row seed, row;
};

std::vector<Case> Cases() {
    Row rnd = Random(1);
    return {
        {"blank", Row(kBytes, 0), Row(kBytes, 0)},
        {"solid", Row(kBytes, 0), Row(kBytes, 0xff)},
        {"alternating", Row(kBytes, 0xff), Row(kBytes, 0xaa)},
        {"random", Random(2), rnd},
        {"equal to its seed", rnd, rnd},
        {"one byte different, first", rnd, With(rnd, 0, rnd[0] ^ 1)},
        {"one byte different, far in", rnd, With(rnd, 31 + 255 + 9, 0)},
        {"one byte different, last", rnd, With(rnd, kBytes - 1, rnd[kBytes - 1] ^ 0x80)},
        {"ink at the right edge only", Row(kBytes, 0), With(Row(kBytes, 0), kBytes - 1, 1)},
        {"runs of every length", Row(kBytes, 0), Runs()},
    };
}

std::string Str(const Row &r) {
    return std::string(r.begin(), r.end());
}

const uint8_t *U(const std::string &s) {
    return reinterpret_cast<const uint8_t *>(s.data());
}

// Seed then row, the row in `method`, decoded back.
Row RoundTrip(const Case &c, int method) {
    std::string s = "\x1b*r" + std::to_string(kBytes * 8) + "S\x1b*r1A\x1b*b0M\x1b*b" +
                    std::to_string(kBytes) + "W" + Str(c.seed);
    Row data;
    if (method == 0) data = c.row;
    if (method == 2) EncodePackBits(c.row.data(), c.row.size(), data);
    if (method == 3) EncodeDeltaRow(c.row.data(), c.seed.data(), c.row.size(), data);
    s += "\x1b*b" + std::to_string(method) + "M\x1b*b" + std::to_string(data.size()) + "W" +
         Str(data) + "\x1b*rC";
    DecodeResult r;
    std::vector<RasterBlock> blocks = DecodeRaster(U(s), s.size(), &r);
    EXPECT_EQ(r.nBadRows, 0u);
    if (blocks.size() != 1 || blocks[0].rows.size() != 2) return {};
    return blocks[0].rows[1];
}

// Every row through each method, and through the encoder's choice: colour rows pass through
// untouched, so the choice is seen on exact bytes, and so are rows dithered already, as a
// renderer that halftones itself hands them over. The choice never exceeds an unencoded row;
// blank (white) rows are moved over, not sent.
TEST(PagesRaster, EveryRowRoundTrips) {
    for (const Case &c : Cases()) {
        for (int m : {0, 2, 3}) EXPECT_EQ(RoundTrip(c, m), c.row) << c.name << ", method " << m;
        for (bool colour : {true, false}) {
            std::string out;
            RasterEncoder enc(colour ? kBytes / 3 : kBytes * 8, 2, colour, 0, 0, 600, 600, out);
            enc.SetTolerance(0);
            uint64_t first = 0;
            std::vector<Row> want;
            for (const Row *r : {&c.seed, &c.row}) {
                Row pixels = *r; // 0 is white in a colour row, no ink in one of bits
                for (auto &byte : pixels) byte = colour ? static_cast<uint8_t>(~byte) : byte;
                first = enc.Stats().dataBytes;
                colour ? enc.Row(pixels.data(), 3) : enc.Bits(pixels.data());
                bool blank = std::all_of(r->begin(), r->end(), [](uint8_t v) { return !v; });
                want.push_back(blank ? Row() : pixels);
            }
            enc.Finish();
            EXPECT_LE(enc.Stats().dataBytes - first, kBytes) << c.name;
            if (colour) out.insert(0, "\x1b*v6W\x00\x03\x00\x08\x08\x08", 11); // 24-bit RGB
            while (!want.empty() && want.back().empty()) want.pop_back();      // nothing sent below
            std::vector<RasterBlock> blocks = DecodeRaster(U(out), out.size());
            if (want.empty()) {
                EXPECT_EQ(enc.Stats().rowsSkipped, 2u) << c.name << ": no ink, no raster";
                continue;
            }
            ASSERT_EQ(blocks.size(), 1u) << c.name;
            EXPECT_EQ(blocks[0].rows, want) << c.name << (colour ? ", colour" : ", bits");
        }
    }
}

// A picture as the printer gets it: placed, at the raster resolution, blank rows moved over,
// the seed row not leaned on after a move, a method said only when it changes.
TEST(PagesRaster, GoldenStream) {
    Bitmap b;
    b.width = 32, b.height = 7;
    auto row = [&](uint32_t bits) {
        for (int bit = 31; bit >= 0; --bit) b.pixels.push_back((bits >> bit & 1) ? 0 : 255);
    };
    row(0);          // blank: moved over
    row(0xf00ff00f); // first row: unencoded
    row(0xf00ff00f); // equal to its seed: an empty delta row
    row(0xf00ff00e); // one byte changed: delta row
    row(0);          // blank: moved over
    row(0xf00ff00e); // after a move the seed is not leaned on
    row(0);          // blank at the bottom: nothing sent
    std::string out;
    EncodeRaster(b, false, 120, 240, 1200, 600, out);
    EXPECT_EQ(out, std::string("\x1b*p120x240Y"               // top-left corner, job pixels
                               "\x1b*t600R"                   // raster resolution
                               "\x1b*r32S\x1b*r1A"            // width, start at the cursor
                               "\x1b*b1y0m4W\xf0\x0f\xf0\x0f" // skip a row; unencoded
                               "\x1b*b3m0W"                   // delta: same as the seed
                               "\x1b*b2W\x03\x0e"             // delta: byte 3 changed
                               "\x1b*b1y0m4W\xf0\x0f\xf0\x0e" // skip; unencoded again
                               "\x1b*rC"                      // end
                               "\x1b*t1200R"));               // the job's resolution again
}

// A photograph's rows, a smooth gradient with a level or two of noise: colour bytes may move
// towards the row above by the tolerance and no further, and that shrinks the stream.
TEST(PagesRaster, ColourToleranceKeepsItsBound) {
    Bitmap b;
    b.width = 300, b.height = 200, b.channels = 3;
    std::mt19937 gen(7);
    for (int i = 0; i < 300 * 200 * 3; ++i) // x is i % 900, y is i / 900
        b.pixels.push_back(static_cast<uint8_t>(40 + i % 900 / 6 + i / 900 / 4 + gen() % 3));
    size_t exact = 0;
    for (int tol : {0, RasterEncoder::kColourTolerance}) {
        std::string out = "\x1b*v6W" + std::string("\x00\x03\x00\x08\x08\x08", 6);
        RasterEncoder enc(b.width, b.height, true, 0, 0, 300, 300, out);
        enc.SetTolerance(tol);
        for (int y = 0; y < b.height; ++y) enc.Row(b.Row(y), 3);
        enc.Finish();
        std::vector<RasterBlock> blocks = DecodeRaster(U(out), out.size());
        ASSERT_TRUE(blocks.size() == 1 && blocks[0].rows.size() == 200u);
        int worst = 0;
        for (size_t i = 0; i < b.pixels.size(); ++i)
            worst = std::max(worst, std::abs(blocks[0].rows[i / 900][i % 900] - b.pixels[i]));
        EXPECT_EQ(worst, tol);
        if (!tol)
            exact = out.size();
        else
            EXPECT_LT(out.size() * 2, exact);
    }
}

TEST(PagesRaster, ResolutionAndDither) {
    const std::pair<int, int> kRes[] = {{1200, 600}, {600, 600}, {400, 300}, {300, 300}, {240, 200},
                                        {150, 150},  {120, 100}, {75, 75},   {50, 75}};
    for (auto [job, raster] : kRes) EXPECT_EQ(RasterResolution(job), raster) << job;
    // A flat gray inks its share of every 8x8 cell, within one dot; white none, black all.
    for (int gray : {0, 1, 64, 128, 191, 254, 255}) {
        Bitmap b;
        b.width = b.height = 8;
        b.pixels.assign(64, static_cast<uint8_t>(gray));
        std::string out;
        EncodeRaster(b, false, 0, 0, 600, 600, out);
        std::vector<RasterBlock> blocks = DecodeRaster(U(out), out.size());
        int ink = 0;
        for (const RasterBlock &blk : blocks)
            for (const Row &r : blk.rows)
                for (uint8_t v : r) ink += __builtin_popcount(v);
        double want = 64.0 * (255 - gray) / 255;
        EXPECT_NEAR(ink, want, 1.0) << gray;
    }
}

} // namespace
