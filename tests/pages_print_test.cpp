// Documents printed end to end through Print(): a PDF drawn here with cairo (a black
// rectangle at a known place, a gray ramp, a landscape page), printed 1 and 4 up on the
// monochrome sample and read back from the stream's raster graphics; raster streams of each
// kind libcups writes; files that can't be printed; page ranges.
#include "pcl_decoder.h"
#include "print.h"
#include "printer.h"
#include "render.h"
#include "settings.h"
#include "sink.h"

#include <gtest/gtest.h>

#include <cairo-pdf.h>
#include <cairo.h>
#include <cups/raster.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

#ifndef Q417_TOOL
#define Q417_TOOL "q417"
#endif

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

// Where a block's dots land, in the job's pixels (600 dpi here, as its raster).
Ink InkOf(const RasterBlock &b, long fromRow = 0, long toRow = 1L << 30) {
    Ink k;
    for (long r = fromRow; r < static_cast<long>(b.rows.size()) && r < toRow; ++r)
        for (size_t i = 0; i < b.rows[r].size(); ++i)
            for (int bit = 0; bit < 8; ++bit)
                if (b.rows[r][i] & (0x80 >> bit)) {
                    long x = b.x + static_cast<long>(i * 8 + bit), y = b.y + r;
                    k.x0 = std::min(k.x0, x), k.x1 = std::max(k.x1, x + 1);
                    k.y0 = std::min(k.y0, y), k.y1 = std::max(k.y1, y + 1);
                    ++k.dots;
                }
    return k;
}

class PagesPrint : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() / ("q417-print-" + std::to_string(getpid()));
        fs::create_directories(dir_);
        pdd_ = (dir_ / "qml2400.pdd").string();
        fs::copy_file(fs::path(Q417_SOURCE_DIR) / "share" / "qml2400.pdd", pdd_,
                      fs::copy_options::overwrite_existing);
        settings_.paper = "Letter";
        settings_.resolution = "600dpi";
        Printer printer(pdd_, "LPT1:");
        std::vector<uint8_t> dm = printer.NewDevMode();
        ApplySettings(DM(dm), settings_);
        g_ = Geometry(DM(dm));
        ASSERT_EQ(DM(dm)->dmYResolution, 600);
    }
    void TearDown() override { fs::remove_all(dir_); }

    // Page 1 has the printable area's size, so it prints at its own scale; page 3 is
    // landscape, its rectangle 3 by 1 inch at its top left corner.
    std::string MakePdf() {
        std::string path = (dir_ / "doc.pdf").string();
        double w = g_.cxPrintable / 10.0, h = g_.cyPrintable / 10.0;
        cairo_surface_t *s = cairo_pdf_surface_create(path.c_str(), w, h);
        cairo_t *cr = cairo_create(s);
        cairo_rectangle(cr, 72, 72, 144, 72); // 2 by 1 inch, an inch from the corner
        cairo_fill(cr);
        cairo_show_page(cr);
        for (int k = 0; k < 8; ++k) { // eight stripes, black to white
            cairo_set_source_rgb(cr, k / 7.0, k / 7.0, k / 7.0);
            cairo_rectangle(cr, 0, 72 + k * 72, w, 54);
            cairo_fill(cr);
        }
        cairo_show_page(cr);
        cairo_pdf_surface_set_size(s, 792, 612);
        cairo_set_source_rgb(cr, 0, 0, 0);
        cairo_rectangle(cr, 36, 36, 216, 72);
        cairo_fill(cr);
        cairo_show_page(cr);
        cairo_destroy(cr);
        cairo_surface_destroy(s);
        return path;
    }

    std::vector<RasterBlock> PrintToBlocks(PrintRequest req) {
        req.pdd = pdd_;
        req.settings = settings_;
        std::string stream;
        {
            Sink sink("/dev/null");
            sink.SetTap([&](const uint8_t *d, size_t n) {
                stream.append(reinterpret_cast<const char *>(d), n);
            });
            Print(req, sink);
        }
        return DecodeRaster(reinterpret_cast<const uint8_t *>(stream.data()), stream.size());
    }

    fs::path dir_;
    std::string pdd_;
    JobSettings settings_;
    PageGeometry g_;
};

TEST_F(PagesPrint, PdfOneUp) {
    PrintRequest req;
    req.documents = {{MakePdf(), "application/pdf"}};
    std::vector<RasterBlock> blocks = PrintToBlocks(req);
    ASSERT_EQ(blocks.size(), 3u);
    for (const auto &b : blocks) EXPECT_EQ(b.resolution, 600);

    Ink rect = InkOf(blocks[0]);
    EXPECT_NEAR(rect.x0, 600, 1);
    EXPECT_NEAR(rect.y0, 600, 1);
    EXPECT_NEAR(rect.W(), 1200, 1);
    EXPECT_NEAR(rect.H(), 600, 1);
    EXPECT_EQ(rect.dots, rect.W() * rect.H()); // solid

    // The ramp: each stripe 0.75 inch high, its ink falling from all to none.
    double last = 1.01;
    for (int k = 0; k < 8; ++k) {
        long top = 600 + k * 600 + 60, rows = 330;
        Ink s = InkOf(blocks[1], top - blocks[1].y, top - blocks[1].y + rows);
        double cover = static_cast<double>(s.dots) / (rows * (g_.cxPrintable * 600 / 720));
        EXPECT_NEAR(cover, 1 - k / 7.0, 0.06) << "stripe " << k;
        EXPECT_LT(cover, last) << "stripe " << k;
        last = cover;
    }

    // Landscape on a portrait job: turned with its top to the left, so the rectangle at its
    // top left stands 3 by 1 at the bottom left.
    Ink turned = InkOf(blocks[2]);
    long frameH = g_.cyPrintable * 600 / 720;
    EXPECT_NEAR(turned.H(), 3 * turned.W(), 3);
    EXPECT_GT(turned.H(), 1000);
    EXPECT_LT(turned.x0 - blocks[2].x, turned.W());
    EXPECT_GT(turned.y1, frameH * 3 / 4);
}

TEST_F(PagesPrint, PdfFourUp) {
    PrintRequest req;
    req.documents = {{MakePdf(), ""}};
    settings_.nup = 4;
    std::vector<RasterBlock> blocks = PrintToBlocks(req);
    ASSERT_EQ(blocks.size(), 3u);
    NupLayout nup = MakeNupLayout(4, 1, g_, 600);
    double f = nup.scale / 600.0; // the library's reduction of a page into its cell
    // Each page is rendered at the cell's size, not shrunk from a full page: the raster is as
    // wide as the cell.
    EXPECT_NEAR(blocks[0].width, g_.cxPrintable * 600 / 720 * f, 1);

    Ink rect = InkOf(blocks[0]);
    EXPECT_NEAR(rect.x0, nup.origins[0].first + 600 * f, 1);
    EXPECT_NEAR(rect.y0, nup.origins[0].second + 600 * f, 1);
    EXPECT_NEAR(rect.W(), 1200 * f, 1);
    EXPECT_NEAR(rect.H(), 600 * f, 1);

    // The ramp in the top right cell, the landscape page in the bottom left one, turned.
    long midX = nup.origins[1].first, midY = nup.origins[2].second;
    Ink ramp = InkOf(blocks[1]);
    EXPECT_GE(ramp.x0, midX);
    EXPECT_LT(ramp.y1, midY);
    Ink turned = InkOf(blocks[2]);
    EXPECT_LT(turned.x1, midX);
    EXPECT_GE(turned.y0, midY);
    EXPECT_NEAR(turned.H(), 3 * turned.W(), 3);
}

// Each raster kind libcups writes prints as a page: a 2 by 1 inch black bar an inch from
// the corner of a printable-area-sized 300 dpi page lands where the PDF's rectangle does.
TEST_F(PagesPrint, RasterStreams) {
    const struct {
        cups_mode_t mode;
        const char *type, *colours;
    } kinds[] = {{CUPS_RASTER_WRITE, "application/vnd.cups-raster", "black_1"},
                 {CUPS_RASTER_WRITE_PWG, "image/pwg-raster", "sgray_8"},
                 {CUPS_RASTER_WRITE_APPLE, "image/urf", "srgb_8"}};
    for (const auto &k : kinds) {
        std::string path = (dir_ / "page.ras").string();
        int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        cups_raster_t *r = cupsRasterOpen(fd, k.mode);
        cups_page_header2_t h;
        pwg_media_t media{};
        media.pwg = "custom_frame_1x1in";
        media.ppd = "Frame";
        media.width = g_.cxPrintable * 2540 / 720;
        media.length = g_.cyPrintable * 2540 / 720;
        ASSERT_TRUE(cupsRasterInitPWGHeader(&h, &media, k.colours, 300, 300, "one-sided", nullptr));
        ASSERT_TRUE(cupsRasterWriteHeader2(r, &h));
        std::vector<uint8_t> white(h.cupsBytesPerLine), bar(h.cupsBytesPerLine);
        int bpp = static_cast<int>(h.cupsBitsPerPixel);
        for (unsigned x = 0; x < h.cupsWidth; ++x) {
            bool ink = x >= 300 && x < 900;
            if (bpp == 1) {
                if (ink) bar[x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8)); // black_1: 1 is ink
            } else {
                for (int c = 0; c < bpp / 8; ++c) {
                    white[x * bpp / 8 + c] = 255;
                    bar[x * bpp / 8 + c] = ink ? 0 : 255;
                }
            }
        }
        for (unsigned y = 0; y < h.cupsHeight; ++y)
            cupsRasterWritePixels(r, (y >= 300 && y < 600 ? bar : white).data(),
                                  h.cupsBytesPerLine);
        cupsRasterClose(r);
        close(fd);

        PrintRequest req;
        req.documents = {{path, k.type}};
        std::vector<RasterBlock> blocks = PrintToBlocks(req);
        ASSERT_EQ(blocks.size(), 1u) << k.type;
        Ink rect = InkOf(blocks[0]);
        EXPECT_NEAR(rect.x0, 600, 2) << k.type;
        EXPECT_NEAR(rect.y0, 600, 2) << k.type;
        EXPECT_NEAR(rect.W(), 1200, 2) << k.type;
        EXPECT_NEAR(rect.H(), 600, 2) << k.type;
    }
}

struct ToolRun {
    int status = -1;
    std::string err;
};

ToolRun RunTool(const fs::path &dir, const std::vector<std::string> &args) {
    fs::path err = dir / ".stderr";
    pid_t pid = fork();
    if (pid == 0) {
        if (chdir(dir.c_str()) != 0) _exit(127);
        int e = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(e, 2);
        setenv("Q417_HOME", (dir / "home").c_str(), 1);
        std::vector<char *> argv{const_cast<char *>(Q417_TOOL)};
        for (const auto &a : args) argv.push_back(const_cast<char *>(a.c_str()));
        argv.push_back(nullptr);
        execv(Q417_TOOL, argv.data());
        _exit(127);
    }
    int st = 0;
    waitpid(pid, &st, 0);
    std::ifstream f(err);
    std::stringstream s;
    s << f.rdbuf();
    return {WIFEXITED(st) ? WEXITSTATUS(st) : -1, s.str()};
}

// What can't be printed ends the job before any output: status 1, one line naming the file
// and the reason, no file. A good file prints, and with standard error not a terminal
// shows no progress.
TEST_F(PagesPrint, BadDocuments) {
    std::string good = MakePdf();
    std::string bytes;
    {
        std::ifstream f(good, std::ios::binary);
        std::stringstream s;
        s << f.rdbuf();
        bytes = s.str();
    }
    std::ofstream(dir_ / "cut.pdf", std::ios::binary) << bytes.substr(0, bytes.size() / 2);
    std::ofstream(dir_ / "notes.pdf") << "Shopping list: milk, bread.\n";
    bool haveGs = false;
#ifdef Q417_GS
    std::string make = std::string(Q417_GS) +
                       " -q -dNOPAUSE -dBATCH -sDEVICE=pdfwrite -sOwnerPassword=owner "
                       "-sUserPassword=secret -sOutputFile=" +
                       (dir_ / "locked.pdf").string() + " " + good + " >/dev/null 2>&1";
    haveGs = std::system(make.c_str()) == 0;
#endif
    const struct {
        std::vector<std::string> args;
        int status;
        const char *mention; // in the one line; null: nothing on standard error
        bool needsGs;
    } cases[] = {
        {{"doc.pdf"}, 0, nullptr, false},
        {{"cut.pdf"}, 1, "cut.pdf: damaged PDF file", false},
        {{"notes.pdf"}, 1, "notes.pdf: not a PDF", false},
        {{"absent.pdf"}, 1, "absent.pdf: No such file", false},
        {{"locked.pdf"}, 1, "locked.pdf: encrypted PDF file: give its password", true},
        {{"locked.pdf", "--password", "guess"}, 1, "locked.pdf: encrypted PDF file: the password is wrong", true},
        {{"locked.pdf", "--password", "secret"}, 0, nullptr, true},
        {{"doc.pdf", "--page-ranges", "4-"}, 1, "--page-ranges 4-: selects none", false},
    };
    for (const auto &c : cases) {
        if (c.needsGs && !haveGs) continue;
        std::vector<std::string> args = {"print", "-p", pdd_, "-o", "out.prn"};
        args.insert(args.begin() + 1, c.args.begin(), c.args.end());
        ToolRun r = RunTool(dir_, args);
        EXPECT_EQ(r.status, c.status) << c.args[0] << ": " << r.err;
        EXPECT_EQ(fs::exists(dir_ / "out.prn"), c.status == 0) << c.args[0];
        if (!c.mention) {
            EXPECT_EQ(r.err, "") << c.args[0];
        } else {
            EXPECT_EQ(r.err.rfind("q417: ", 0), 0u) << r.err;
            EXPECT_NE(r.err.find(c.mention), std::string::npos) << r.err;
            EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
        }
        fs::remove(dir_ / "out.prn");
        for (const auto &e : fs::directory_iterator(dir_))
            EXPECT_EQ(e.path().filename().string().find(".part"), std::string::npos);
    }
}

TEST(PageRanges, Parse) {
    const struct {
        const char *text;
        std::vector<std::pair<int, int>> ranges; // empty: refused
    } cases[] = {
        {"1-3,7,10-", {{1, 3}, {7, 7}, {10, 0}}},
        {"5", {{5, 5}}},
        {"2-", {{2, 0}}},
        {"1-1,2-2", {{1, 1}, {2, 2}}},
        {"0", {}},
        {"3-1", {}},
        {"1,,2", {}},
        {"1-3,2", {}},  // overlapping
        {"7,3", {}},    // descending
        {"2-,5", {}},   // after an open end
        {"-3", {}},
        {"1-3x", {}},
        {"a", {}},
        {" 1", {}},
        {"99999999999", {}},
    };
    for (const auto &c : cases) {
        if (c.ranges.empty()) {
            EXPECT_THROW(ParsePageRanges(c.text), Error) << c.text;
            continue;
        }
        std::vector<PageRange> got = ParsePageRanges(c.text);
        ASSERT_EQ(got.size(), c.ranges.size()) << c.text;
        for (size_t i = 0; i < got.size(); ++i) {
            EXPECT_EQ(got[i].first, c.ranges[i].first) << c.text;
            EXPECT_EQ(got[i].last, c.ranges[i].second) << c.text;
        }
    }
    std::vector<PageRange> r = ParsePageRanges("1-3,7,10-");
    for (int p : {1, 3, 7, 10, 500}) EXPECT_TRUE(InRanges(r, p)) << p;
    for (int p : {4, 6, 8, 9}) EXPECT_FALSE(InRanges(r, p)) << p;
}

} // namespace
