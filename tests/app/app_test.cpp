// The printer application against real IPP clients: the application runs as a child of this
// test on 127.0.0.1 with its state in a temporary folder, its printers' devices are listeners
// of the test, and what they receive is read back with the tool's decoder.
#include "printer_harness.h"

namespace {

using namespace q417test;

class AppTest : public ::testing::Test {
  protected:
    static inline std::string dir, spool, uri, pdf3;
    static inline pid_t app = -1;
    static inline int port = 0;
    static inline http_t *http = nullptr;
    static inline Listener *office = nullptr, *second = nullptr;

    static void SetUpTestSuite() {
        dir = MakeTempDir("q417-app");
        ASSERT_FALSE(dir.empty());
        spool = dir + "/spool";
        pdf3 = dir + "/three.pdf";
        MakePdf(pdf3, 3);
        office = new Listener;
        second = new Listener;
        port = FreePort();
        uri = "ipp://127.0.0.1:" + std::to_string(port) + "/ipp/print/";

        // The descriptions in a folder of the test's: the library compiles them beside them.
        std::string share = dir + "/share";
        mkdir(share.c_str(), 0755);
        for (const char *f : {"qcl4100.pdd", "qml2400.pdd", "QMWMARK.INI"})
            WriteFile(share + "/" + f, ReadFile(std::string(Q417_SHARE_DIR) + "/" + f));

        app = Spawn({Q417_APP, "server", "-o", "listen-hostname=127.0.0.1", "-o",
                     "server-port=" + std::to_string(port), "-o", "spool-directory=" + spool, "-o",
                     "pdd-directory=" + share, "-o", "log-level=debug"},
                    dir + "/app.out",
                    {{"HOME", dir},
                     {"TMPDIR", dir},
                     {"Q417_APP_WORKER_PREFIX", Q417_APP_LAUNCHER}, // kills and hangs on demand
                     {"Q417_APP_WORKER_TIMEOUT", "10"},
                     {"PATH", "/usr/bin:/bin"}});
        ASSERT_TRUE(Answers("127.0.0.1", port)) << ReadFile(dir + "/app.out");
        http = httpConnect2("127.0.0.1", port, nullptr, AF_INET, HTTP_ENCRYPTION_NEVER, 1, 5000,
                            nullptr);

        // Printers are added as an administrator does, through the instance's own socket.
        AddPrinter("office", "qcl4100", office->port());
        AddPrinter("second", "qml2400", second->port());
        std::this_thread::sleep_for(1s); // conformance wants a printer-up-time above 0
    }

    static void TearDownTestSuite() {
        httpClose(http);
        StopChild(app, 5s);
        delete office;
        delete second;
        RemoveUnlessFailed(dir);
    }

    void TearDown() override {
        ShowLogIfFailed("application log", spool + "/q417-printer-app.log");
    }

    static void AddPrinter(const std::string &name, const char *driver, int port) {
        Result r = RunProgram({Q417_APP, "add", "-o", "spool-directory=" + spool, "-d", name, "-m",
                               driver, "-v", "socket://127.0.0.1:" + std::to_string(port)});
        ASSERT_EQ(r.status, 0) << r.out << r.err;
    }

    // A request for `printer` from user "test".
    static ipp_t *Request(ipp_op_t op, const std::string &printer) {
        ipp_t *req = ippNewRequest(op);
        ippAddString(req, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr,
                     (uri + printer).c_str());
        ippAddString(req, IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr, "test");
        return req;
    }

    // Sends `op` for `printer` and `job` (0: none); the answer's attribute `name` as text.
    static std::string Ask(ipp_op_t op, const std::string &printer, int job, const char *name) {
        ipp_t *req = Request(op, printer);
        if (job) ippAddInteger(req, IPP_TAG_OPERATION, IPP_TAG_INTEGER, "job-id", job);
        ipp_t *resp = cupsDoRequest(http, req, ("/ipp/print/" + printer).c_str());
        char text[1024] = "";
        ippAttributeString(ippFindAttribute(resp, name, IPP_TAG_ZERO), text, sizeof text);
        ippDelete(resp);
        return text;
    }

    // Print-Job with `options` ("name=value ..."); the job's id.
    static int Submit(const std::string &printer, const std::string &file, const char *format,
                      const char *name, const char *options = "") {
        ipp_t *req = Request(IPP_OP_PRINT_JOB, printer);
        ippAddString(req, IPP_TAG_OPERATION, IPP_TAG_NAME, "job-name", nullptr, name);
        ippAddString(req, IPP_TAG_OPERATION, IPP_TAG_MIMETYPE, "document-format", nullptr, format);
        cups_option_t *o = nullptr;
        int n = cupsParseOptions(options, 0, &o);
        cupsEncodeOptions2(req, n, o, IPP_TAG_JOB);
        cupsFreeOptions(n, o);
        ipp_t *resp = cupsDoFileRequest(http, req, ("/ipp/print/" + printer).c_str(), file.c_str());
        int id = ippGetInteger(ippFindAttribute(resp, "job-id", IPP_TAG_INTEGER), 0);
        ippDelete(resp);
        EXPECT_GT(id, 0) << cupsLastErrorString();
        return id;
    }

    // Waits up to 40 s for the job to end: "state reasons: message".
    static std::string JobEnd(const std::string &printer, int id) {
        auto ask = [&](const char *name) {
            return Ask(IPP_OP_GET_JOB_ATTRIBUTES, printer, id, name);
        };
        std::string state;
        WaitFor(
            [&] {
                state = ask("job-state");
                return state == "completed" || state == "aborted" || state == "canceled";
            },
            40s);
        return state + " " + ask("job-state-reasons") + ": " + ask("job-state-message");
    }

    static void ExpectCompleted(const std::string &printer, int id) {
        std::string end = JobEnd(printer, id);
        EXPECT_EQ(end.rfind("completed ", 0), 0u) << end;
    }
};

TEST_F(AppTest, PassesIppEverywhereConformance) {
    Result r = RunProgram(
        {"ipptool", "-t", "-T", "30", "-f", pdf3, uri + "office", "ipp-everywhere.test"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_EQ(Count(r.out, "[FAIL]"), 0u) << r.out;
    // Its jobs print: let them all reach the printer before the next case.
    EXPECT_TRUE(WaitFor(
        [] {
            return Ask(IPP_OP_GET_PRINTER_ATTRIBUTES, "office", 0, "printer-state") == "idle" &&
                   Ask(IPP_OP_GET_PRINTER_ATTRIBUTES, "office", 0, "queued-job-count") == "0";
        },
        30s));
    while (!office->Next(1s).empty()) continue;
}

// A job that fails (a damaged PDF, a worker that dies, one that hangs) aborts with a reason, and
// only that job: the next one prints, the job of the issue: three pages, A4, long-edge duplex,
// four up, a watermark.
TEST_F(AppTest, FailedJobsAbortAloneAndFourUpDuplexWatermarkedPdfArrivesAsOneSheet) {
    std::string damaged = dir + "/damaged.pdf"; // cut short in its first page's content
    WriteFile(damaged, ReadFile(pdf3).substr(0, ReadFile(pdf3).size() / 3));
    struct Case {
        std::string file;
        const char *name, *reason, *message;
    };
    for (const Case &c : {Case{damaged, "damaged", "document-format-error", "damaged.pdf"},
                          Case{pdf3, "die-now", "aborted-by-system", "died"},
                          Case{pdf3, "hang-now", "aborted-by-system", "no progress"}}) {
        std::string end = JobEnd("office", Submit("office", c.file, "application/pdf", c.name));
        EXPECT_EQ(end.rfind("aborted ", 0), 0u) << end;
        EXPECT_NE(end.find(c.reason), std::string::npos) << end;
        EXPECT_NE(end.find(c.message, end.find(':')), std::string::npos) << end;
        office->Next(1s); // whatever reached the port before the end
    }

    ExpectCompleted("office", Submit("office", pdf3, "application/pdf", "four-up",
                                     "media=iso_a4_210x297mm sides=two-sided-long-edge "
                                     "number-up=4 " Q417_WATERMARK_ATTR "=" Q417_WATERMARK_VALUE));
    ExpectFourUpSheet(office->Next(), Q417_WATERMARK_LABEL);
}

TEST_F(AppTest, ImagesAndRasterArriveAsPages) {
    // PWG and Apple raster as Ghostscript makes them from a page
    MakePdf(dir + "/one.pdf", 1);
    for (std::string device : {"pwgraster", "urf"})
        ASSERT_EQ(RunProgram({"gs", "-q", "-r300", "-sDEVICE=" + device, "-o",
                              dir + "/one." + device, dir + "/one.pdf"})
                      .status,
                  0);
    MakePng(dir + "/disc.png");
    const char *cases[][2] = {{"/disc.png", "image/png"},
                              {"/one.pwgraster", "image/pwg-raster"},
                              {"/one.urf", "image/urf"}};
    for (auto [file, format] : cases) {
        SCOPED_TRACE(format);
        ExpectCompleted("office", Submit("office", dir + file, format, "image"));
        std::string listing = Decode(office->Next());
        EXPECT_EQ(Count(listing, "picture frame anchor point"), 1u);
        EXPECT_NE(listing.find("raster"), std::string::npos);
    }
}

TEST_F(AppTest, AnUnreachablePrinterShowsOffline) {
    AddPrinter("unplugged", "qml2400", FreePort());
    Submit("unplugged", pdf3, "application/pdf", "nowhere");
    EXPECT_TRUE(WaitFor(
        [] {
            return Ask(IPP_OP_GET_PRINTER_ATTRIBUTES, "unplugged", 0, "printer-state-reasons")
                       .find("offline") != std::string::npos;
        },
        8s));
}

// Long jobs on two printers are sent at the same time, not one after the other.
TEST_F(AppTest, TwoPrintersPrintAtTheSameTime) {
    MakePdf(dir + "/twenty.pdf", 20);
    Listener::openMost = 0;
    int a = Submit("office", dir + "/twenty.pdf", "application/pdf", "office-20");
    ExpectCompleted("second",
                    Submit("second", dir + "/twenty.pdf", "application/pdf", "second-20"));
    ExpectCompleted("office", a);
    EXPECT_EQ(Listener::openMost, 2);
}

} // namespace
