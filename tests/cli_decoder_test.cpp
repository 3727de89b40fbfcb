// The stream decoder of q417 dump. Golden streams lie in tests/data/cli/dump, each beside the
// listing the tool must make of it: job frames, combined page commands, HP-GL/2 labels, image
// configuration, soft font headers (one claiming more than it holds), character and pattern
// downloads, raster rows (counted, each run naming its method, a row that can't be decoded
// told, rows reaching past the width cut there and decoded), unknown and malformed commands, values
// of any length, relative moves. A stream cut inside a command (cut-*) is reported at that
// command's offset, with status 2. And the PBM/PGM/PPM reader of q417 print.
#include "image.h"
#include "pcl_decoder.h"
#include "tests/support/printer_harness.h"
#include "tool.h"

#include <string_view>

namespace {

namespace fs = std::filesystem;
using CliDecoder = q417test::CliTest;

TEST_F(CliDecoder, GoldenStreams) {
    int streams = 0;
    for (const auto &e : fs::directory_iterator(fs::path(Q417_TEST_DATA) / "cli" / "dump")) {
        fs::path stream = e.path(), listing = e.path();
        if (stream.extension() != ".prn") continue;
        ++streams;
        q417test::Result r = Run({"dump", stream.string(), "-o", "listing.txt"});
        EXPECT_EQ(r.status, stream.stem().string().rfind("cut-", 0) == 0 ? 2 : 0) << stream;
        EXPECT_EQ(q417test::ReadFile(dir_ / "listing.txt"),
                  q417test::ReadFile(listing.replace_extension(".txt")))
            << stream;
    }
    EXPECT_EQ(streams, 23);
}

// A long stream's listing comes out in pieces of whole lines as it is decoded, never held
// whole, and the pieces make the same listing.
TEST_F(CliDecoder, ListingStreamsInBoundedPieces) {
    std::string stream;
    for (int i = 0; i < 30000; ++i) stream += "\x1b&l1X\x1b*p+5X";
    const auto *data = reinterpret_cast<const uint8_t *>(stream.data());
    std::string whole, joined;
    q417tool::DecodeStream(data, stream.size(), whole);
    size_t pieces = 0, largest = 0, lastDone = 0;
    q417tool::DecodeStream(
        data, stream.size(),
        [&](std::string_view piece) {
            ++pieces;
            largest = std::max(largest, piece.size());
            EXPECT_EQ(piece.back(), '\n');
            joined += piece;
        },
        [&](size_t done) {
            EXPECT_GE(done, lastDone);
            lastDone = done;
        });
    EXPECT_EQ(joined, whole);
    EXPECT_GT(pieces, 20u);
    EXPECT_LT(largest, 70000u);
    EXPECT_GT(lastDone, stream.size() / 2);
}

std::vector<uint8_t> Bytes(const std::string &s) {
    return {s.begin(), s.end()};
}

TEST(CliRender, PnmImages) {
    using namespace q417tool;
    struct {
        const char *name;
        std::string data;
        int w, h, channels;
        std::vector<uint8_t> pixels;
    } cases[] = {
        {"P1 with a comment", "P1\n# c\n3 2\n1 0 1\n0 1 0\n", 3, 2, 1, {0, 255, 0, 255, 0, 255}},
        {"P4", std::string("P4 3 2\n\xa0\x40", 9), 3, 2, 1, {0, 255, 0, 255, 0, 255}},
        {"P2", "P2 2 1 4\n0 4\n", 2, 1, 1, {0, 255}},
        {"P5 16-bit", std::string("P5 1 1 65535\n\x80\x00", 15), 1, 1, 1, {127}},
        {"P6", std::string("P6 1 1 255\n\x01\x02\x03", 14), 1, 1, 3, {1, 2, 3}},
    };
    for (auto &c : cases) {
        Image img = DecodePnm(Bytes(c.data), c.name);
        EXPECT_EQ(img.width, c.w) << c.name;
        EXPECT_EQ(img.height, c.h) << c.name;
        EXPECT_EQ(img.channels, c.channels) << c.name;
        EXPECT_EQ(img.pixels, c.pixels) << c.name;
    }
    const char *bad[] = {"P5 2 2 255\n\x01",     // data cut short
                         "P7 1 1 255\n",         // no such kind
                         "P5 0 1 255\n",         // empty
                         "P2 1 1 4\n9\n",        // sample above the maximum
                         "P5 99999999 1 255\n"}; // absurd size
    for (const char *b : bad) EXPECT_THROW(DecodePnm(Bytes(b), "bad"), ToolError) << b;
}

} // namespace
