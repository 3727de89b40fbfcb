// The stream decoder of q417 dump. Golden streams lie in tests/data/cli/dump, each beside the
// listing the tool must make of it: job frames, combined page commands, HP-GL/2 labels, image
// configuration, soft font headers (one claiming more than it holds), character and pattern
// downloads, raster rows (counted, each run naming its method, a row that can't be decoded
// told), unknown and malformed commands, values of any length, relative moves. A stream cut
// inside a command (cut-*) is reported at that command's offset, with status 2.
#include "pcl_decoder.h"
#include "tests/support/printer_harness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
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
    EXPECT_EQ(streams, 22);
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

} // namespace
