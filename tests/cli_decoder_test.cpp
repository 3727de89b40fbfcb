// The stream decoder of q417 dump on golden streams: each case is a stream written one
// command a line, and the listing the decoder must make of it.
#include "pcl_decoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>

namespace {

using q417tool::DecodeResult;
using q417tool::DecodeStream;

struct Case {
    const char *name;
    std::string stream;
    std::string listing;
};

std::string S(const char *p, size_t n) {
    return std::string(p, n);
}

// A format 15 font header: 72-byte descriptor, PANOSE segment, a GT segment with one table,
// the null segment, the reserved byte and the checksum over bytes 64 on.
std::string FontHeader() {
    std::string h(72, '\0');
    h[1] = 72;    // descriptor size
    h[2] = 15;    // format
    h[3] = 2;     // font type
    h[13] = 1;    // proportional
    h[14] = 0x02; // symbol set 629 = 19U
    h[15] = 0x75;
    h.replace(48, 4, "Test");
    h[64] = 0x08; // scale factor 2048
    h[70] = 1;    // TrueType
    h += std::string("PA\x00\x0a", 4) + std::string(10, '\x01');
    std::string gt = std::string("\x00\x01\x00\x00\x00\x01\x00\x10\x00\x00\x00\x00", 12) +
                     std::string("head\x00\x00\x00\x00\x00\x00\x00\x1c\x00\x00\x00\x04", 16) +
                     std::string("\x00\x01\x00\x00", 4);
    h += std::string("GT\x00", 3) + static_cast<char>(gt.size()) + gt;
    h += std::string("\xff\xff\x00\x00\x00", 5);
    unsigned sum = 0;
    for (size_t i = 64; i < h.size(); ++i) sum += static_cast<unsigned char>(h[i]);
    h += static_cast<char>((256 - sum % 256) % 256);
    return h;
}

std::string Sized(const char *prefix, const std::string &data) {
    return std::string(prefix) + std::to_string(data.size()) + "W" + data;
}

const Case kCases[] = {
    {"job frame",
     "\x1b%-12345X"               // universal exit language
     "@PJL COMMENT Job Name: t\n" // PJL comment
     "@PJL SET RESOLUTION=600\n"  // PJL variable
     "@PJL ENTER LANGUAGE=PCL\n"  // to PCL
     "\x1b"
     "E"             // reset
     "\x1b%-12345X", // back to PJL
     "00000000  ESC%-12345X                 universal exit language: PJL\n"
     "00000009  @PJL COMMENT Job Name: t\\n  PJL comment\n"
     "00000022  @PJL SET RESOLUTION=600\\n   PJL set variable\n"
     "0000003a  @PJL ENTER LANGUAGE=PCL\\n   PJL enter language\n"
     "00000052  ESCE                        printer reset\n"
     "00000054  ESC%-12345X                 universal exit language: PJL\n"},
    {"combined page command and tray",
     "\x1b&l26a1o48d13E" // page size, orientation, spacing, margin
     "\x1b&l2S"          // duplex
     "\x1b&l4H"          // tray
     "\x0c",             // form feed
     "00000000  ESC&l26A                    page size: A4\n"
     "00000006  ESC&l1O                     orientation: landscape\n"
     "00000008  ESC&l48D                    line spacing: 48 lines per inch\n"
     "0000000b  ESC&l13E                    top margin: 13 lines\n"
     "0000000e  ESC&l2S                     simplex/duplex: duplex, short edge\n"
     "00000013  ESC&l4H                     paper source: lower tray\n"
     "00000018  \\x0c                        form feed\n"},
    {"cursor without values and picture frame",
     "\x1b*pxY"            // cursor to 0,0
     "\x1b*c5760x7560y0T", // frame and anchor
     "00000000  ESC*pX                      horizontal cursor position: 0 units\n"
     "00000004  ESC*pY                      vertical cursor position: 0 units\n"
     "00000005  ESC*c5760X                  picture frame width: 5760 decipoints\n"
     "0000000d  ESC*c7560Y                  picture frame height: 7560 decipoints\n"
     "00000012  ESC*c0T                     picture frame anchor point\n"},
    {"HP-GL/2 scale and label",
     "\x1b%0B"                           // to HP-GL/2
     "IP0,14111,10160,0SC0,6000,0,8333;" // scaling
     "LO5LBDRAFT\x03;"                   // label
     "\x1b%0A",                          // back to PCL
     "00000000  ESC%0B                      enter HP-GL/2, pen at the previous HP-GL/2 position\n"
     "00000004  IP0,14111,10160,0           input P1 and P2: 0,14111,10160,0\n"
     "00000015  SC0,6000,0,8333             scale: 0,6000,0,8333\n"
     "00000025  LO5                         label origin: 5\n"
     "00000028  LBDRAFT\\x03                 label \"DRAFT\", 5 bytes\n"
     "00000031  ESC%0A                      enter PCL, cursor at the previous PCL position\n"},
    {"configure image data and palettes",
     S("\x1b*v6W\x00\x03\x00\x08\x08\x08", 11) // 24-bit RGB
         + "\x1b&p1I\x1b&p6C",                 // palette 1 reserved
     "00000000  ESC*v6W                     configure image data, 6 bytes\n"
     "          colour space 0 (device RGB), encoding 3 (direct by pixel), 0 bits an index, "
     "primaries 8/8/8 bits\n"
     "0000000b  ESC&p1I                     palette control id: 1\n"
     "00000010  ESC&p6C                     palette control: copy active palette to the "
     "control id\n"},
    {"soft font header", "\x1b*c32766D" + Sized("\x1b)s", FontHeader()) + "\x1b(32766X",
     "00000000  ESC*c32766D                 font id: 32766\n"
     "00000009  ESC)s128W                   font header, 128 bytes\n"
     "          descriptor: 72 bytes, format 15 (TrueType, 16-bit segments), font type 2, "
     "spacing 1 (proportional)\n"
     "          symbol set 629 (19U), pitch 0, height 0, style 0, stroke weight 0, typeface 0\n"
     "          name \"Test\", cell 0x0, text width 0, scale factor 2048, underline 0/0, "
     "technology 1\n"
     "          segment PA, 10 bytes (PANOSE)\n"
     "          segment GT, 32 bytes: 1 tables head 4\n"
     "          segment null, 0 bytes\n"
     "          checksum ok\n"
     "00000090  ESC(32766X                  select primary font by id: 32766\n"},
    {"font header whose descriptor claims more than it holds",
     "\x1b)s64W" + S("\xff\xff\x0f\x02", 4) + std::string(60, '\0'),
     "00000000  ESC)s64W                    font header, 64 bytes\n"
     "          descriptor: 65535 bytes, format 15 (TrueType, 16-bit segments), font type 2, "
     "spacing 0 (fixed)\n"
     "          symbol set 0 (0@), pitch 0, height 0, style 0, stroke weight 0, typeface 0\n"
     "          name \"\"\n"
     "          checksum ok\n"},
    {"character download",
     "\x1b*c65E" + // code 'A'
         Sized("\x1b(s", S("\x0f\x00\x02\x0f\x00\x06\x00\x24\x01\x02\x00\xd3", 12)),
     "00000000  ESC*c65E                    character code: 65\n"
     "00000006  ESC(s12W                    character download, 12 bytes\n"
     "          character 65 'A': format 15, class 15, glyph id 36, glyph 2 bytes, data size "
     "6, checksum ok\n"},
    {"pattern download",
     "\x1b*c2g44W" + S("\x14\x00\x01\x00\x00\x10\x00\x10\x02\x58\x02\x58", 12) +
         std::string(32, '\xff'),
     "00000000  ESC*c2G                     pattern id / area fill id: 2\n"
     "00000005  ESC*c44W                    user-defined pattern, 44 bytes\n"
     "          format 20, encoding 1 (1 bit a pixel), 16x16 pixels, resolution 600x600 dpi, "
     "32 bytes of rows\n"},
    {"raster rows are counted, not listed; a row its method can't decode is told",
     "\x1b*r1A\x1b*b2M" +                                        // start raster, PackBits
         S("\x1b*b2W\xfe\x00\x1b*b2W\xfe\x00\x1b*b1W\x00", 20) + // the last row cut short
         "\x1b*rC",                                              // end raster
     "00000000  ESC*r1A                     start raster graphics: at the current cursor "
     "position\n"
     "00000005  ESC*b2M                     raster compression: TIFF PackBits\n"
     "0000000a  ESC*b#W x 3                 raster data: 3 rows, 5 bytes (TIFF PackBits), 1 not "
     "decodable\n"
     "0000001e  ESC*rC                      end raster graphics\n"},
    {"each run of rows names its own method",
     "\x1b*b3M\x1b*b0W" // delta row: the seed again
     "\x1b*b2M" +
         S("\x1b*b2W\x00\x41", 7), // PackBits: one literal byte
     "00000000  ESC*b3M                     raster compression: delta row\n"
     "00000005  ESC*b#W x 1                 raster data: 1 row, 0 bytes (delta row)\n"
     "0000000a  ESC*b2M                     raster compression: TIFF PackBits\n"
     "0000000f  ESC*b#W x 1                 raster data: 1 row, 2 bytes (TIFF PackBits)\n"},
    {"unknown commands are listed and skipped",
     "\x1b&z5Q" // no such command
     "\x1b"
     "k"         // no such two-character command
     "\x1b&l1X", // decoding goes on
     "00000000  ESC&z5Q                     unknown command\n"
     "00000005  ESCk                        unknown two-character command\n"
     "00000007  ESC&l1X                     number of copies: 1\n"},
    {"values of any length",
     "\x1b&l123456789012345678901234567890X" // more digits than a long holds
     "\x1b&l-99999999999999999999H",         // and below
     "00000000  ESC&l123456789012345678901234567890X number of copies: "
     "123456789012345678901234567890\n"
     "00000022  ESC&l-99999999999999999999H paper source: -99999999999999999999 (unknown "
     "value)\n"},
    {"signed cursor moves are relative",
     "\x1b*p-118X" // left of the cursor
     "\x1b&a+720H" // right of it
     "\x1b&a-2r"   // rows up, then an absolute column
     "+1C"
     "\x1b*p100Y", // absolute
     "00000000  ESC*p-118X                  horizontal cursor position: -118 units (relative)\n"
     "00000008  ESC&a+720H                  horizontal cursor position: +720 decipoints "
     "(relative)\n"
     "00000010  ESC&a-2R                    cursor to row: -2 (relative)\n"
     "00000016  ESC&a+1C                    cursor to column: +1 (relative)\n"
     "00000019  ESC*p100Y                   vertical cursor position: 100 units\n"},
    {"malformed parameter",
     "\x1b*p12\x01" // a control byte where a letter belongs
     "\x1b&l1X",
     "00000000  ESC*p12\\x01                 malformed escape sequence\n"
     "00000005  \\x01                        control byte\n"
     "00000006  ESC&l1X                     number of copies: 1\n"},
};

TEST(CliDecoder, GoldenStreams) {
    for (const Case &c : kCases) {
        std::string out;
        DecodeResult r =
            DecodeStream(reinterpret_cast<const uint8_t *>(c.stream.data()), c.stream.size(), out);
        EXPECT_EQ(out, c.listing) << c.name;
        EXPECT_FALSE(r.bTruncated) << c.name;
    }
}

// A long stream's listing comes out in pieces of whole lines as it is decoded, never held
// whole, and the pieces make the same listing.
TEST(CliDecoder, ListingStreamsInBoundedPieces) {
    std::string stream;
    for (int i = 0; i < 30000; ++i) stream += "\x1b&l1X\x1b*p+5X";
    const auto *data = reinterpret_cast<const uint8_t *>(stream.data());
    std::string whole, joined;
    DecodeStream(data, stream.size(), whole);
    size_t pieces = 0, largest = 0, lastDone = 0;
    DecodeStream(
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

// A stream cut inside a command is reported at the command's offset, and nothing after it.
TEST(CliDecoder, CutStreamsReportTheOffset) {
    struct Cut {
        std::string stream;
        size_t at;
        const char *what;
    } cuts[] = {
        {"\x1b&l1X\x1b&l2", 5, "an escape sequence"},
        {"\x1b&l1X\x1b", 5, "an escape sequence"},
        {"\x1b*b10W\x01\x02\x03", 0, "the 10 data bytes of ESC*b10W"},
        {"\x1b%0BLBNO END", 4, "an HP-GL/2 label"},
        {"\x1b%-12345X@PJL SET X=1", 9, "a PJL line"},
        // A length of more digits than any integer holds: the data can't be there.
        {"\x1b*b123456789012345678901234567890W\x01", 0, "the 2147483647 data bytes"},
    };
    for (const Cut &c : cuts) {
        std::string out;
        DecodeResult r =
            DecodeStream(reinterpret_cast<const uint8_t *>(c.stream.data()), c.stream.size(), out);
        EXPECT_TRUE(r.bTruncated) << c.what;
        EXPECT_EQ(r.nTruncatedAt, c.at) << c.what;
        char prefix[16];
        snprintf(prefix, sizeof prefix, "%08zx  ** ", c.at);
        std::string last = out.substr(out.rfind('\n', out.size() - 2) + 1);
        if (out.find('\n') == out.size() - 1) last = out;
        EXPECT_EQ(last.rfind(prefix, 0), 0u) << out;
        EXPECT_NE(last.find(c.what), std::string::npos) << out;
    }
}

} // namespace
