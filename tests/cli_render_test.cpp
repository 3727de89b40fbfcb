// The PBM/PGM/PPM reader of q417 print. (N-up cells against the library's are checked in
// pages_render_test.)
#include "image.h"
#include "tool.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using namespace q417tool;

std::vector<uint8_t> Bytes(const std::string &s) {
    return {s.begin(), s.end()};
}

TEST(CliRender, PnmImages) {
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
