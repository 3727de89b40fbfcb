// The printer application against real IPP clients: the application runs as a child of this
// test on 127.0.0.1 with its state in a temporary folder, its printers' devices are listeners
// of the test, and what they receive is read back with the tool's decoder.
#include "printer_harness.h"

#include <cairo-pdf.h>
#include <cairo.h>
#include <cups/cups.h>
#include <cups/raster.h>
#include <gtest/gtest.h>
#include <jpeglib.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <set>
#include <spawn.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace q417test;

// A PDF of `pages` A4 pages, each with its number in large type.
void MakePdf(const std::string &path, int pages) {
    cairo_surface_t *s = cairo_pdf_surface_create(path.c_str(), 595.28, 841.89);
    cairo_t *cr = cairo_create(s);
    for (int i = 1; i <= pages; ++i) {
        cairo_set_source_rgb(cr, 0.1, 0.2, 0.7);
        cairo_rectangle(cr, 72, 72, 451, 120);
        cairo_fill(cr);
        cairo_set_source_rgb(cr, 0, 0, 0);
        cairo_select_font_face(cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
        cairo_set_font_size(cr, 96);
        cairo_move_to(cr, 100, 400);
        cairo_show_text(cr, ("Page " + std::to_string(i)).c_str());
        cairo_show_page(cr);
    }
    cairo_destroy(cr);
    cairo_surface_destroy(s);
}

void MakePng(const std::string &path) {
    cairo_surface_t *s = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 300, 200);
    cairo_t *cr = cairo_create(s);
    cairo_set_source_rgb(cr, 1, 1, 1);
    cairo_paint(cr);
    cairo_set_source_rgb(cr, 0.8, 0.1, 0.1);
    cairo_arc(cr, 150, 100, 80, 0, 6.2832);
    cairo_fill(cr);
    cairo_destroy(cr);
    cairo_surface_write_to_png(s, path.c_str());
    cairo_surface_destroy(s);
}

// A small colour JPEG: a red-to-blue gradient.
void MakeJpeg(const std::string &path) {
    FILE *f = fopen(path.c_str(), "wb");
    jpeg_compress_struct c{};
    jpeg_error_mgr err{};
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    jpeg_stdio_dest(&c, f);
    c.image_width = 240, c.image_height = 160, c.input_components = 3, c.in_color_space = JCS_RGB;
    jpeg_set_defaults(&c);
    jpeg_start_compress(&c, TRUE);
    std::vector<JSAMPLE> row(240 * 3);
    for (unsigned y = 0; y < 160; ++y) {
        for (unsigned x = 0; x < 240; ++x)
            row[x * 3] = static_cast<JSAMPLE>(x), row[x * 3 + 1] = 64,
                    row[x * 3 + 2] = static_cast<JSAMPLE>(255 - x);
        JSAMPROW r = row.data();
        jpeg_write_scanlines(&c, &r, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    fclose(f);
}

// One A4 page of 8-bit grey raster at 300 dpi, PWG or Apple: white with a black band.
void MakeRaster(const std::string &path, cups_mode_t mode) {
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    cups_raster_t *r = cupsRasterOpen(fd, mode);
    cups_page_header2_t h;
    cupsRasterInitPWGHeader(&h, pwgMediaForPWG("iso_a4_210x297mm"), "sgray_8", 300, 300,
                            "one-sided", "normal");
    h.cupsInteger[CUPS_RASTER_PWG_TotalPageCount] = 1;
    cupsRasterWriteHeader2(r, &h);
    std::vector<unsigned char> line(h.cupsBytesPerLine);
    for (unsigned y = 0; y < h.cupsHeight; ++y) {
        std::fill(line.begin(), line.end(), (y > 300 && y < 600) ? 0 : 255);
        cupsRasterWritePixels(r, line.data(), h.cupsBytesPerLine);
    }
    cupsRasterClose(r);
    close(fd);
}

struct JobEnd {
    int state = 0;
    std::string reasons, message;
};

class AppTest : public ::testing::Test {
  protected:
    static inline std::string dir, spool, uri, pdf3, pdf20, png, jpeg, pwg, urf, damaged;
    static inline pid_t app = -1;
    static inline int port = 0;
    static inline Listener *office = nullptr, *second = nullptr;

    static void SetUpTestSuite() {
        dir = MakeTempDir("q417-app");
        ASSERT_FALSE(dir.empty());
        spool = dir + "/spool";
        office = new Listener;
        second = new Listener;
        port = FreePort();
        uri = "ipp://127.0.0.1:" + std::to_string(port) + "/ipp/print/";

        pdf3 = dir + "/three.pdf", pdf20 = dir + "/twenty.pdf", png = dir + "/circle.png";
        pwg = dir + "/band.pwg", urf = dir + "/band.urf", damaged = dir + "/damaged.pdf";
        MakePdf(pdf3, 3);
        MakePdf(pdf20, 20);
        MakePng(png);
        MakeJpeg(jpeg = dir + "/gradient.jpg");
        MakeRaster(pwg, CUPS_RASTER_WRITE_PWG);
        MakeRaster(urf, CUPS_RASTER_WRITE_APPLE);
        // A PDF cut short in the middle of its first page's content.
        std::string whole = ReadFile(pdf3);
        WriteFile(damaged, whole.substr(0, whole.size() / 3));

        // Workers run under a launcher of the test's: a job named "die-now" loses its worker
        // to a crash, one named "hang-now" to the application's timeout.
        std::string wrapper = dir + "/launcher.sh";
        WriteFile(wrapper,
                  "#!/bin/sh\n"
                  "case \"$*\" in *die-now*) kill -SEGV $$ ;; *hang-now*) exec sleep 60 ;; esac\n"
                  "exec \"$@\"\n",
                  0755);

        // The descriptions in a folder of the test's: the library compiles them beside them.
        std::string share = dir + "/share";
        mkdir(share.c_str(), 0755);
        for (const char *f : {"qcl4100.pdd", "qml2400.pdd", "QMWMARK.INI"})
            WriteFile(share + "/" + f, ReadFile(std::string(Q417_SHARE_DIR) + "/" + f));

        std::vector<std::string> args{Q417_APP, "server",
                                      "-o",     "listen-hostname=127.0.0.1",
                                      "-o",     "server-port=" + std::to_string(port),
                                      "-o",     "spool-directory=" + spool,
                                      "-o",     "pdd-directory=" + share,
                                      "-o",     "log-level=debug"};
        std::vector<char *> argv;
        for (auto &a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        std::vector<std::string> env{"HOME=" + dir, "TMPDIR=" + dir,
                                     "Q417_APP_WORKER_PREFIX=" + wrapper,
                                     "Q417_APP_WORKER_TIMEOUT=10", "PATH=/usr/bin:/bin"};
        // A sanitizer build reports through the options the test run was given.
        for (const char *v : {"ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS"})
            if (const char *s = getenv(v)) env.push_back(std::string(v) + "=" + s);
        std::vector<char *> envp;
        for (auto &e : env) envp.push_back(e.data());
        envp.push_back(nullptr);
        ASSERT_EQ(posix_spawn(&app, argv[0], nullptr, nullptr, argv.data(), envp.data()), 0);

        // Up when its port answers.
        bool up = false;
        for (int i = 0; i < 100 && !up; ++i) {
            std::this_thread::sleep_for(100ms);
            http_t *h = httpConnect2("127.0.0.1", port, nullptr, AF_INET, HTTP_ENCRYPTION_NEVER, 1,
                                     1000, nullptr);
            if (h) up = true, httpClose(h);
        }
        ASSERT_TRUE(up) << ReadFile(spool + "/q417-printer-app.log");

        // Printers are added as an administrator does, through the instance's own socket.
        for (auto [name, driver, l] :
             {std::tuple{"office", "qcl4100", office}, std::tuple{"second", "qml2400", second}}) {
            std::string out;
            ASSERT_EQ(
                RunProgram({Q417_APP, "add", "-o", "spool-directory=" + spool, "-d", name, "-m",
                            driver, "-v", "socket://127.0.0.1:" + std::to_string(l->port())},
                           &out),
                0)
                << out;
        }
        std::this_thread::sleep_for(1s); // conformance wants a printer-up-time above 0
    }

    static void TearDownTestSuite() {
        StopChild(app, 5s); // stopped by its id, whatever happened
        delete office;
        delete second;
        if (::testing::UnitTest::GetInstance()->failed_test_count() > 0)
            fprintf(stderr, "kept for a look: %s\n", dir.c_str());
        else
            RemoveTree(dir);
    }

    void TearDown() override {
        if (HasFailure())
            fprintf(stderr, "--- application log (tail) ---\n%s\n", LogTail().c_str());
    }

    static std::string LogTail() {
        std::string log = ReadFile(spool + "/q417-printer-app.log");
        return log.size() > 6000 ? log.substr(log.size() - 6000) : log;
    }

    // Print-Job through libcups; the job's id.
    static int Submit(const std::string &printer, const std::string &file, const char *format,
                      const std::string &name) {
        http_t *http = httpConnect2("127.0.0.1", port, nullptr, AF_INET, HTTP_ENCRYPTION_NEVER, 1,
                                    5000, nullptr);
        if (!http) return 0;
        ipp_t *req = ippNewRequest(IPP_OP_PRINT_JOB);
        ippAddString(req, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr,
                     (uri + printer).c_str());
        ippAddString(req, IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr, "test");
        ippAddString(req, IPP_TAG_OPERATION, IPP_TAG_NAME, "job-name", nullptr, name.c_str());
        ippAddString(req, IPP_TAG_OPERATION, IPP_TAG_MIMETYPE, "document-format", nullptr, format);
        ipp_t *resp = cupsDoFileRequest(http, req, ("/ipp/print/" + printer).c_str(), file.c_str());
        int id = ippGetInteger(ippFindAttribute(resp, "job-id", IPP_TAG_INTEGER), 0);
        ippDelete(resp);
        httpClose(http);
        return id;
    }

    // Waits for the job to end (up to 40 s).
    static JobEnd Wait(const std::string &printer, int id) {
        JobEnd end;
        http_t *http = httpConnect2("127.0.0.1", port, nullptr, AF_INET, HTTP_ENCRYPTION_NEVER, 1,
                                    5000, nullptr);
        for (int i = 0; i < 400 && http; ++i) {
            ipp_t *req = ippNewRequest(IPP_OP_GET_JOB_ATTRIBUTES);
            ippAddString(req, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr,
                         (uri + printer).c_str());
            ippAddInteger(req, IPP_TAG_OPERATION, IPP_TAG_INTEGER, "job-id", id);
            ippAddString(req, IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr,
                         "test");
            ipp_t *resp = cupsDoRequest(http, req, ("/ipp/print/" + printer).c_str());
            end.state = ippGetInteger(ippFindAttribute(resp, "job-state", IPP_TAG_ENUM), 0);
            if (end.state >= IPP_JSTATE_CANCELED) {
                char buf[1024] = "";
                ippAttributeString(ippFindAttribute(resp, "job-state-reasons", IPP_TAG_KEYWORD),
                                   buf, sizeof buf);
                end.reasons = buf;
                const char *m = ippGetString(
                    ippFindAttribute(resp, "job-state-message", IPP_TAG_TEXT), 0, nullptr);
                end.message = m ? m : "";
                ippDelete(resp);
                break;
            }
            ippDelete(resp);
            std::this_thread::sleep_for(100ms);
        }
        if (http) httpClose(http);
        return end;
    }

    // Waits (up to 30 s) for the printer to have no job left.
    static bool WaitIdle(const std::string &printer) {
        http_t *http = httpConnect2("127.0.0.1", port, nullptr, AF_INET, HTTP_ENCRYPTION_NEVER, 1,
                                    5000, nullptr);
        bool idle = false;
        for (int i = 0; i < 300 && http && !idle; ++i) {
            ipp_t *req = ippNewRequest(IPP_OP_GET_PRINTER_ATTRIBUTES);
            ippAddString(req, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr,
                         (uri + printer).c_str());
            ipp_t *resp = cupsDoRequest(http, req, ("/ipp/print/" + printer).c_str());
            idle =
                ippGetInteger(ippFindAttribute(resp, "printer-state", IPP_TAG_ENUM), 0) ==
                    IPP_PSTATE_IDLE &&
                ippGetInteger(ippFindAttribute(resp, "queued-job-count", IPP_TAG_INTEGER), 0) == 0;
            ippDelete(resp);
            if (!idle) std::this_thread::sleep_for(100ms);
        }
        if (http) httpClose(http);
        return idle;
    }
};

TEST_F(AppTest, PassesIppEverywhereConformance) {
    std::string out;
    int rc = RunProgram(
        {"ipptool", "-t", "-T", "30", "-f", pdf3, uri + "office", "ipp-everywhere.test"}, &out);
    EXPECT_EQ(rc, 0) << out;
    EXPECT_EQ(Count(out, "[FAIL]"), 0u) << out;
    // Its jobs print: let them all reach the printer before the next case.
    EXPECT_TRUE(WaitIdle("office"));
    std::this_thread::sleep_for(500ms);
    office->Clear();
}

TEST_F(AppTest, FourUpDuplexWatermarkedPdfArrivesAsOneSheet) {
    std::string test = dir + "/nup.test";
    WriteFile(test, "{\n"
                    " NAME \"Print-Job 4-up duplex watermarked\"\n"
                    " OPERATION Print-Job\n"
                    " GROUP operation-attributes-tag\n"
                    " ATTR charset attributes-charset utf-8\n"
                    " ATTR language attributes-natural-language en\n"
                    " ATTR uri printer-uri $uri\n"
                    " ATTR name requesting-user-name test\n"
                    " ATTR mimeMediaType document-format application/pdf\n"
                    " GROUP job-attributes-tag\n"
                    " ATTR keyword media iso_a4_210x297mm\n"
                    " ATTR keyword sides two-sided-long-edge\n"
                    " ATTR integer number-up 4\n"
                    " ATTR keyword " Q417_WATERMARK_ATTR " " Q417_WATERMARK_VALUE "\n"
                    " FILE $filename\n"
                    " STATUS successful-ok\n"
                    " EXPECT job-id\n"
                    "}\n"
                    "{\n"
                    " NAME \"Wait for the job\"\n"
                    " DELAY \"0,0.2\"\n"
                    " OPERATION Get-Job-Attributes\n"
                    " GROUP operation-attributes-tag\n"
                    " ATTR charset attributes-charset utf-8\n"
                    " ATTR language attributes-natural-language en\n"
                    " ATTR uri printer-uri $uri\n"
                    " ATTR integer job-id $job-id\n"
                    " ATTR name requesting-user-name test\n"
                    " STATUS successful-ok\n"
                    " EXPECT job-state WITH-VALUE >6 REPEAT-NO-MATCH\n"
                    " EXPECT job-state WITH-VALUE 9\n"
                    "}\n");
    std::string out;
    ASSERT_EQ(RunProgram({"ipptool", "-t", "-f", pdf3, uri + "office", test}, &out), 0) << out;
    std::string listing = Decode(office->Next());
    ASSERT_FALSE(listing.empty());
    fprintf(stderr, "--- first lines of the 4-up job ---\n%s\n", listing.substr(0, 1500).c_str());
    EXPECT_EQ(listing.find("ESC%-12345X"), 10u) << "starts with the universal exit";
    EXPECT_NE(listing.find("@PJL"), std::string::npos);
    EXPECT_NE(listing.find("ESC&l26A "), std::string::npos) << "A4";
    EXPECT_NE(listing.find("ESC&l1S "), std::string::npos) << "long-edge binding";
    EXPECT_EQ(Count(listing, "picture frame anchor point"), 1u) << "one sheet";
    EXPECT_NE(listing.find("font header"), std::string::npos);
    EXPECT_NE(listing.find("name \"DejaVu Sans\""), std::string::npos);
    // The watermark is drawn once a page, at the centre of each page's cell.
    EXPECT_EQ(Count(listing, "label \"" Q417_WATERMARK_LABEL "\""), 3u);
    std::set<std::string> centres;
    for (size_t p = listing.find("  IW "); p != std::string::npos;
         p = listing.find("  IW ", p + 1)) {
        size_t pa = listing.find("PA", p);
        centres.insert(listing.substr(pa, listing.find(' ', pa) - pa));
    }
    EXPECT_EQ(centres.size(), 3u) << "three distinct cells";
}

TEST_F(AppTest, ImagesAndRasterArriveAsPages) {
    struct Case {
        std::string file;
        const char *format;
    };
    for (const Case &c : {Case{png, "image/png"}, Case{jpeg, "image/jpeg"},
                          Case{pwg, "image/pwg-raster"}, Case{urf, "image/urf"}}) {
        SCOPED_TRACE(c.format);
        int id = Submit("office", c.file, c.format, "image");
        ASSERT_GT(id, 0) << cupsLastErrorString();
        JobEnd end = Wait("office", id);
        EXPECT_EQ(end.state, IPP_JSTATE_COMPLETED) << end.reasons << ": " << end.message;
        std::string listing = Decode(office->Next());
        EXPECT_EQ(Count(listing, "picture frame anchor point"), 1u);
        EXPECT_NE(listing.find("raster"), std::string::npos);
    }
}

TEST_F(AppTest, FailedJobsAbortWithAReasonAndTheNextJobPrints) {
    struct Case {
        std::string file, name, reason, message;
    };
    for (const Case &c : {Case{damaged, "damaged", "document-format-error", "damaged.pdf"},
                          Case{pdf3, "die-now", "aborted-by-system", "died"},
                          Case{pdf3, "hang-now", "aborted-by-system", "no progress"}}) {
        SCOPED_TRACE(c.name);
        int id = Submit("office", c.file, "application/pdf", c.name);
        ASSERT_GT(id, 0);
        JobEnd end = Wait("office", id);
        EXPECT_EQ(end.state, IPP_JSTATE_ABORTED);
        EXPECT_NE(end.reasons.find(c.reason), std::string::npos) << end.reasons;
        EXPECT_NE(end.message.find(c.message), std::string::npos) << end.message;
        office->Next(5s); // whatever reached the port before the end

        int next = Submit("office", pdf3, "application/pdf", "next");
        EXPECT_EQ(Wait("office", next).state, IPP_JSTATE_COMPLETED);
        EXPECT_NE(Decode(office->Next()).find("ESC&l"), std::string::npos);
    }
}

TEST_F(AppTest, AnUnreachablePrinterShowsOffline) {
    std::string out;
    ASSERT_EQ(
        RunProgram({Q417_APP, "add", "-o", "spool-directory=" + spool, "-d", "unplugged", "-m",
                    "qml2400", "-v", "socket://127.0.0.1:" + std::to_string(FreePort())},
                   &out),
        0)
        << out;
    int id = Submit("unplugged", pdf3, "application/pdf", "nowhere");
    ASSERT_GT(id, 0);
    http_t *http =
        httpConnect2("127.0.0.1", port, nullptr, AF_INET, HTTP_ENCRYPTION_NEVER, 1, 5000, nullptr);
    std::string reasons;
    for (int i = 0; i < 80 && reasons.find("offline") == std::string::npos; ++i) {
        std::this_thread::sleep_for(100ms);
        ipp_t *req = ippNewRequest(IPP_OP_GET_PRINTER_ATTRIBUTES);
        ippAddString(req, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr,
                     (uri + "unplugged").c_str());
        ipp_t *resp = cupsDoRequest(http, req, "/ipp/print/unplugged");
        char buf[256] = "";
        ippAttributeString(ippFindAttribute(resp, "printer-state-reasons", IPP_TAG_KEYWORD), buf,
                           sizeof buf);
        reasons = buf;
        ippDelete(resp);
    }
    EXPECT_NE(reasons.find("offline"), std::string::npos) << reasons;
    ipp_t *req = ippNewRequest(IPP_OP_CANCEL_JOB);
    ippAddString(req, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr,
                 (uri + "unplugged").c_str());
    ippAddInteger(req, IPP_TAG_OPERATION, IPP_TAG_INTEGER, "job-id", id);
    ippAddString(req, IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr, "test");
    ippDelete(cupsDoRequest(http, req, "/ipp/print/unplugged"));
    httpClose(http);
}

TEST_F(AppTest, TwoPrintersPrintAtTheSameTime) {
    Listener::Reset();
    int a = Submit("office", pdf20, "application/pdf", "office-20");
    int b = Submit("second", pdf20, "application/pdf", "second-20");
    ASSERT_GT(a, 0);
    ASSERT_GT(b, 0);
    EXPECT_EQ(Wait("office", a).state, IPP_JSTATE_COMPLETED);
    EXPECT_EQ(Wait("second", b).state, IPP_JSTATE_COMPLETED);
    std::string colour = Decode(office->Next()), mono = Decode(second->Next());
    EXPECT_EQ(Count(colour, "picture frame anchor point"), 20u);
    EXPECT_EQ(Count(mono, "picture frame anchor point"), 20u);
    EXPECT_EQ(Listener::openMost, 2) << "both printers were sent to at once";
}

} // namespace
