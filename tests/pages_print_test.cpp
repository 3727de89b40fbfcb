// Documents printed end to end through Print(): a PDF drawn here with cairo (a black
// rectangle at a known place, a gray band, a landscape page) and pictures and raster streams
// of each kind, read back from the stream's raster graphics; files and command lines that
// can't be printed; page ranges.
#include "print.h"
#include "printer.h"
#include "render.h"
#include "settings.h"
#include "sink.h"
#include "tests/support/printer_harness.h"

#include <zlib.h>

namespace {

namespace fs = std::filesystem;
using namespace q417::pages;
using q417tool::DecodeRaster;
using q417tool::RasterBlock;

struct Ink {
    long x0 = 1L << 30, y0 = 1L << 30, x1 = -1, y1 = -1; // sheet pixels, x1/y1 past the end
    long dots = 0;
    long W() const { return x1 - x0; }
    long H() const { return y1 - y0; }
};

// Where a block's dots land, in the job's pixels (600 dpi here, as its raster): set bits, or
// dark RGB pixels.
Ink InkOf(const RasterBlock &b, long fromRow = 0, long toRow = 1L << 30) {
    Ink k;
    for (long r = fromRow; r < static_cast<long>(b.rows.size()) && r < toRow; ++r) {
        const std::vector<uint8_t> &row = b.rows[r];
        for (size_t x = 0; x < row.size() * 8 / b.bitsPerPixel; ++x) {
            if (b.bitsPerPixel == 24 ? row[3 * x] + row[3 * x + 1] + row[3 * x + 2] >= 3 * 128
                                     : !(row[x / 8] & (0x80 >> x % 8)))
                continue;
            k.x0 = std::min(k.x0, b.x + long(x)), k.x1 = std::max(k.x1, b.x + long(x) + 1);
            k.y0 = std::min(k.y0, b.y + r), k.y1 = std::max(k.y1, b.y + r + 1);
            ++k.dots;
        }
    }
    return k;
}

// Documents and the printer's description live in the scratch directory q417 runs in.
class PagesPrint : public q417test::CliTest {
  protected:
    void SetUp() override { UsePrinter("qml2400.pdd"); }
    // A sample printer, Letter at 600 dpi; its printable area in g_.
    void UsePrinter(const char *sample) {
        pdd_ = (dir_ / sample).string();
        fs::copy_file(fs::path(Q417_SOURCE_DIR) / "share" / sample, pdd_,
                      fs::copy_options::overwrite_existing);
        settings_.paper = "Letter";
        settings_.resolution = "600dpi";
        Printer printer(pdd_, "LPT1:");
        std::vector<uint8_t> dm = printer.NewDevMode();
        ApplySettings(DM(dm), settings_);
        g_ = Geometry(DM(dm));
        ASSERT_EQ(DM(dm)->dmYResolution, 600);
    }
    // Three pages of the printable area's size, so they print at their own scale: a 2 by 1
    // inch rectangle an inch from the corner, a band of half gray, and the rectangle on the page
    // turned to landscape.
    std::string MakePdf() {
        std::string path = (dir_ / "doc.pdf").string();
        double w = g_.cxPrintable / 10.0, h = g_.cyPrintable / 10.0;
        cairo_surface_t *s = cairo_pdf_surface_create(path.c_str(), w, h);
        cairo_t *cr = cairo_create(s);
        cairo_rectangle(cr, 72, 72, 144, 72);
        cairo_fill(cr);
        cairo_show_page(cr);
        cairo_set_source_rgb(cr, 0.5, 0.5, 0.5);
        cairo_rectangle(cr, 0, 72, w, 144);
        cairo_fill(cr);
        cairo_show_page(cr);
        cairo_pdf_surface_set_size(s, h, w);
        cairo_set_source_rgb(cr, 0, 0, 0);
        cairo_rectangle(cr, 72, 72, 144, 72);
        cairo_fill(cr);
        cairo_show_page(cr);
        cairo_destroy(cr);
        cairo_surface_destroy(s);
        return path;
    }

    std::vector<RasterBlock> PrintToBlocks(PrintRequest req) {
        req.pdd = pdd_;
        req.settings = settings_;
        Sink sink((dir_ / "job.prn").string());
        Print(req, sink);
        const std::string stream = q417test::ReadFile(dir_ / "job.prn");
        return DecodeRaster(reinterpret_cast<const uint8_t *>(stream.data()), stream.size());
    }

    std::string pdd_;
    JobSettings settings_;
    PageGeometry g_;
};

// Ghostscript makes what cairo can't: a PDF's page as rasters and pictures, a locked PDF.
void Gs(const std::string &args) {
    const std::string line =
        std::string(Q417_GS) + " -q -dNOPAUSE -dBATCH " + args + " >/dev/null 2>&1";
    ASSERT_EQ(std::system(line.c_str()), 0) << line;
}

// A PDF and pictures and raster streams of each kind in one job, 1 and 4 up on both samples:
// gray rows dithered to one bit on the monochrome one, RGB rows on the colour one. Each page is
// rendered at its cell's size (not shrunk from a full page) and its rectangle lands where the
// page puts it; a landscape page turns with its top to the left, so its rectangle stands at
// the bottom left.
TEST_F(PagesPrint, DocumentsLandInTheirCells) {
    // The PDF's first page (its third, turned, for the PNG) at 300 dpi: black 1-bit, gray and
    // RGB. Both samples' Letter has the same printable area, so one set serves both.
    const struct {
        const char *name, *type, *device;
        int page;
    } kinds[] = {
        {"cups.ras", "application/vnd.cups-raster", "cups -dcupsColorSpace=3 -dcupsBitsPerColor=1",
         1},
        {"pwg.ras", "image/pwg-raster", "pwgraster -dcupsColorSpace=18 -dcupsBitsPerColor=8", 1},
        {"apple.urf", "image/urf", "urf -dcupsColorSpace=19 -dcupsBitsPerColor=8", 1},
        {"photo.jpg", "", "jpeg -dJPEGQ=100", 1}, // no ringing around the bar to dither into dots
        {"wide.png", "image/png", "pnggray", 3},
    };
    const std::string pdf = MakePdf();
    for (const auto &k : kinds)
        Gs("-r300 -sDEVICE=" + std::string(k.device) + " -sPageList=" + std::to_string(k.page) +
           " -o " + (dir_ / k.name).string() + " " + pdf);
    for (const char *sample : {"qml2400.pdd", "qcl4100.pdd"})
        for (int n : {1, 4}) {
            UsePrinter(sample);
            settings_.nup = n;
            PrintRequest req;
            req.documents = {{pdf, n == 1 ? "application/pdf" : ""}};
            std::vector<bool> turned = {false, false, true};
            for (const auto &k : kinds) {
                req.documents.push_back({(dir_ / k.name).string(), k.type});
                turned.push_back(k.page == 3);
            }
            std::vector<RasterBlock> blocks = PrintToBlocks(req);
            ASSERT_EQ(blocks.size(), turned.size()) << sample << " " << n << "-up";
            NupLayout nup = MakeNupLayout(n, 1, g_, 600);
            const double f = nup.scale / 600.0; // the library's reduction of a page into its cell
            const long frameW = g_.cxPrintable * 600 / 720, frameH = g_.cyPrintable * 600 / 720;
            for (size_t page = 0; page < blocks.size(); ++page) {
                SCOPED_TRACE(sample + std::string(" ") + std::to_string(n) + "-up, page " +
                             std::to_string(page + 1));
                const RasterBlock &b = blocks[page];
                const auto [x, y] = nup.origins[page % n];
                EXPECT_EQ(b.bitsPerPixel, sample[2] == 'c' ? 24 : 1);
                EXPECT_EQ(b.resolution, 600);
                EXPECT_NEAR(b.width, frameW * f, 1);
                Ink ink = InkOf(b);
                EXPECT_GE(ink.x0, x);
                EXPECT_GE(ink.y0, y);
                EXPECT_LE(ink.x1, x + frameW * f + 1);
                EXPECT_LE(ink.y1, y + frameH * f + 1);
                if (page == 1) continue;                // the gray band
                EXPECT_EQ(ink.dots, ink.W() * ink.H()); // solid
                EXPECT_NEAR(ink.x0, x + 600 * f, 2);
                EXPECT_NEAR(turned[page] ? ink.y1 : ink.y0,
                            y + (turned[page] ? frameH - 600 : 600) * f, 2);
                EXPECT_NEAR(ink.W(), (turned[page] ? 600 : 1200) * f, 2);
                EXPECT_NEAR(ink.H(), (turned[page] ? 1200 : 600) * f, 2);
            }
            if (n > 1 || blocks[1].bitsPerPixel != 1) continue;
            // Half gray inks half the dots of its band, 2 inches high an inch from the top.
            Ink s = InkOf(blocks[1], 660 - blocks[1].y, 1740 - blocks[1].y);
            EXPECT_NEAR(double(s.dots) / (1080 * frameW), 0.5, 0.03);
        }
}

// A PNG of `w` x `h` gray pixels whose image data is one empty block.
std::string PngHeaderOnly(uint32_t w, uint32_t h) {
    auto be = [](uint32_t v) {
        return std::string{static_cast<char>(v >> 24), static_cast<char>(v >> 16),
                           static_cast<char>(v >> 8), static_cast<char>(v)};
    };
    auto chunk = [&](const std::string &type, const std::string &data) {
        const std::string body = type + data;
        const auto *bytes = reinterpret_cast<const Bytef *>(body.data());
        return be(static_cast<uint32_t>(data.size())) + body + be(crc32(0, bytes, body.size()));
    };
    std::string ihdr = be(w) + be(h) + std::string("\x08\x00\x00\x00\x00", 5);
    return std::string("\x89PNG\r\n\x1a\n", 8) + chunk("IHDR", ihdr) +
           chunk("IDAT", std::string("\x78\x9c\x03\x00\x00\x00\x00\x01", 8)) + chunk("IEND", "");
}

// Every mistake reads the same way: one line that names it, no output, no file left. A missing
// or damaged input is status 1; the command line and settings the printer can't take are
// status 2. What can't be printed ends the job before any output, and nothing is allocated for
// a false claim: no run takes much more memory than printing a good PDF, which, with standard
// error not a terminal, shows no progress.
TEST_F(PagesPrint, MistakesAreOneLineErrorsThatLeaveNothing) {
    const std::string good = MakePdf(), bytes = q417test::ReadFile(good);
    std::ofstream(dir_ / "cut.pdf", std::ios::binary) << bytes.substr(0, bytes.size() / 2);
    std::ofstream(dir_ / "notes.pdf") << "Shopping list: milk, bread.\n";
    std::ofstream(dir_ / "bad.png") << "\x89PNG\r\n\x1a\nnot really";
    // Headers that claim pictures of 196 megapixels with no data to bear it out.
    std::ofstream(dir_ / "header.ppm") << "P6 14000 14000 255\n";
    std::ofstream(dir_ / "bomb.png", std::ios::binary) << PngHeaderOnly(14000, 14000);
    fs::copy_file(pdd_, dir_ / "\xe5\x8d\xb0.pdd"); // a name the library's code page can't spell
    Gs("-sDEVICE=pdfwrite -sOwnerPassword=owner -sUserPassword=secret -o " +
       (dir_ / "locked.pdf").string() + " " + good);
    const struct {
        std::vector<std::string> args;
        int status;
        std::string mention; // in the one line; empty: nothing on standard error
        q417test::Env env = {};
        std::string out = ""; // standard output, when not the one read
    } cases[] = {
        // clang-format off
        {{"print", "doc.pdf"}, 0, ""},
        {{"print", "cut.pdf"}, 1, "cut.pdf: damaged PDF file"},
        {{"print", "notes.pdf"}, 1, "notes.pdf: not a PDF"},
        {{"print", "absent.pdf"}, 1, "absent.pdf: No such file"},
        {{"print", "locked.pdf"}, 1, "locked.pdf: encrypted PDF file: give its password"},
        {{"print", "locked.pdf", "--password", "guess"}, 1, "locked.pdf: encrypted PDF file: the password is wrong"},
        {{"print", "locked.pdf", "--password", "secret"}, 0, ""},
        {{"print", "doc.pdf", "--page-ranges", "4-"}, 1, "--page-ranges 4-: selects none"},
        {{"print", "absent.png"}, 1, "absent.png: No such file"},
        {{"print", "bad.png"}, 1, "bad.png"},
        {{"print", "header.ppm"}, 1, "header.ppm: image data cut short"},
        {{"print", "bomb.png"}, 1, "bomb.png: image size 14000x14000 is more than its"},
        {{"dump", "absent.prn", "-o", "listing.txt"}, 1, "absent.prn"},
        {{"print", "-p", "absent.pdd"}, 1, "absent.pdd"},
        {{"pdd", "show", "absent.pdd"}, 1, "absent.pdd"},
        {{"pdd", "check", "absent.pdd"}, 1, "absent.pdd"},
        {{"pdd", "compile", "\xe5\x8d\xb0.pdd"}, 1, "not written: the library spells the file's name in its 8-bit code"},
        {{"print", "-o", "/dev/full"}, 1, "q417: /dev/full: No space left on device\n"},
        {{"print", "-o", "-"}, 1, "q417: standard output: No space left on device\n", {}, "/dev/full"},
        {{"print"}, 1, "Q417_HOME: /dev/null/q417: Not a directory (set it to a folder", {{"Q417_HOME", "/dev/null/q417"}}},
        {{"print", "--copies", "abc"}, 2, "--copies"},
        {{"print", "--bogus"}, 2, "--bogus"},
        {{"frob"}, 2, "frob"},
        {{"pdd"}, 2, "subcommand"},
        {{"dump"}, 2, "stream"},
        {{"devmode", "get", "dm.bin"}, 2, "names"},
        // Values out of range, each with what the option accepts.
        {{"print", "--copies", "-1"}, 2, "--copies: -1 is out of range: expected 1 to 32767"},
        {{"print", "--copies", "32768"}, 2, "expected 1 to 32767"},
        {{"print", "--nup", "-1"}, 2, "expected 1, 2, 4, 6, 9 or 16"},
        {{"print", "--nup", "3"}, 2, "expected 1, 2, 4, 6, 9 or 16"},
        {{"print", "--watermark", "-1"}, 2, "expected 0 (none) to 65535"},
        {{"print", "--pages", "0"}, 2, "expected 1 to 10000"},
        {{"print", "--orientation", "up"}, 2, "portrait, landscape, reverse-portrait or reverse-l"},
        {{"print", "--duplex", "2"}, 2, "none, long (long-edge binding) or short"},
        {{"print", "--emulation", "PCL6"}, 2, "PCL5, PCL5e, PCL5C, PCL5eC or 1 to 6"},
        {{"print", "--custom", "0x500"}, 2, "WIDTHxHEIGHT in points"},
        {{"print", "--custom", "1e9x500mm"}, 2, "up to 10 m"},
        {{"print", "--timeout", "1,2,3"}, 2, "SECONDS for both limits, or CONNECT,WRITE"},
        {{"print", "--timeout", "-5"}, 2, "SECONDS for both limits"},
        // Settings the printer can't take.
        {{"print", "--paper", "Tabloid"}, 2, "unknown paper \"Tabloid\" (the printer has: A4,"},
        {{"print", "--source", "Drawer9"}, 2, "unknown source"},
        {{"print", "--paper", "42"}, 2, "the printer has 8 (0 to 7)"},
        {{"print", "--custom", "10x10"}, 2, "--custom 10x10: expected 216.0 x 360.0 to"},
        {{"devmode", "new", "dm.bin", "-s", "PAGESPERSHEET=3"}, 2, "PAGESPERSHEET"},
        // clang-format on
    };
    const std::vector<std::string> inputs = Leftovers();
    long goodPeakKb = 0;
    for (const auto &c : cases) {
        std::string what;
        for (const auto &a : c.args) what += a + " ";
        SCOPED_TRACE(what);
        q417test::Result r = Run(c.args, c.env, c.out);
        EXPECT_EQ(r.status, c.status) << r.err;
        if (!c.mention.empty()) q417test::ExpectOneErrorLine(r, c.mention);
        EXPECT_EQ(r.err.empty(), c.mention.empty());
        EXPECT_TRUE(r.out.empty());
        EXPECT_EQ(fs::remove(dir_ / "q417-job.prn"), c.status == 0);
        EXPECT_EQ(Leftovers(), inputs);
        if (what == "print doc.pdf ") goodPeakKb = r.peakKb;
        EXPECT_LT(r.peakKb, goodPeakKb + 64 * 1024);
    }
}

// Ranges as "first-last" each, 0 for an open end; "" when the text is refused.
TEST(PageRanges, Parse) {
    const std::pair<const char *, const char *> good[] = {
        {"1-3,7,10-", "1-3 7-7 10-0 "}, {"5", "5-5 "}, {"2-", "2-0 "}, {"1-1,2-2", "1-1 2-2 "}};
    for (const auto &[text, want] : good) {
        std::string got;
        for (const PageRange &r : ParsePageRanges(text))
            got += std::to_string(r.first) + "-" + std::to_string(r.last) + " ";
        EXPECT_EQ(got, want) << text;
    }
    // Refused: zero, backwards, an empty item, overlapping, descending, after an open end, a
    // sign, junk, a blank, more than an int holds.
    for (const char *bad :
         {"0", "3-1", "1,,2", "1-3,2", "7,3", "2-,5", "-3", "1-3x", "a", " 1", "99999999999"})
        EXPECT_THROW(ParsePageRanges(bad), Error) << bad;
    std::vector<PageRange> r = ParsePageRanges("1-3,7,10-");
    for (int p : {1, 3, 7, 10, 500}) EXPECT_TRUE(InRanges(r, p)) << p;
    for (int p : {4, 6, 8, 9}) EXPECT_FALSE(InRanges(r, p)) << p;
}

} // namespace
