// The CUPS driver against a real cupsd: a private scheduler, started as a child of this test
// with its configuration, state, spool and logs in a temporary folder, listening on 127.0.0.1
// and a socket of its own, with our filter and driver program beside the system's filters and
// backends. A queue made with lpadmin -m from our driver prints to a listener of this test, and
// what arrives is checked with the tool's decoder. The system's CUPS is never touched.
#include "printer_harness.h"

#include <regex>

namespace {

using namespace q417test;

class Cupsd : public ::testing::Test {
  protected:
    static inline std::string dir, files;
    static inline pid_t pid = -1;
    static inline Listener *printer = nullptr;

    static void SetUpTestSuite() {
        dir = MakeTempDir("q417-cupsd");
        ASSERT_FALSE(dir.empty());
        // cupsd runs its children as lp: they walk into this folder and read its files.
        chmod(dir.c_str(), 0755);
        files = dir + "/files/";
        for (const char *d :
             {"conf", "conf/ppd", "state", "cache", "spool", "spool/tmp", "log", "run", "bin",
              "bin/filter", "bin/driver", "data", "data/q417plg", "files"})
            mkdir((dir + "/" + d).c_str(), 0755);

        // The system's filters, backends, helpers and data by link, ours as copies owned like them.
        ASSERT_EQ(RunProgram({"cp", "-rs", "/usr/lib/cups/.", dir + "/bin"}).status, 0);
        ASSERT_EQ(RunProgram({"cp", "-rs", "/usr/share/cups/.", dir + "/data"}).status, 0);
        WriteFile(dir + "/bin/filter/q417pcl", ReadFile(Q417_FILTER), 0755);
        WriteFile(dir + "/bin/driver/q417plg", ReadFile(Q417_DRIVER), 0755);
        for (const char *f : {"qcl4100.pdd", "qml2400.pdd", "QMWMARK.INI"})
            WriteFile(dir + "/data/q417plg/" + f, ReadFile(std::string(Q417_SHARE) + "/" + f));

        // The configuration in the test's data. As root cupsd refuses to run its children as
        // root: they run as lp.
        const std::string asRoot = geteuid() == 0 ? "User lp\nGroup lp\nSystemGroup root\n" : "";
        for (std::string name : {"cupsd.conf", "cups-files.conf"})
            WriteFile(
                dir + "/conf/" + name,
                Filled(ReadFile(Q417_CUPS_DATA "/" + name) + (name == "cupsd.conf" ? "" : asRoot),
                       {{"@DIR@", dir}, {"@PORT@", std::to_string(FreePort())}}));
        std::string socket = dir + "/run/cups.sock";

        pid = Spawn(
            {"cupsd", "-f", "-c", dir + "/conf/cupsd.conf", "-s", dir + "/conf/cups-files.conf"},
            dir + "/log/cupsd.out");
        setenv("CUPS_SERVER", socket.c_str(), 1);
        ASSERT_TRUE(Answers(socket, 0)) << ReadFile(dir + "/log/cupsd.out");
        printer = new Listener;
        Result r = RunProgram({"lpadmin", "-p", "office", "-E", "-v",
                               printer->uri() + "/?snmp=false", "-m", "q417plg:///qcl4100.pdd"});
        ASSERT_EQ(r.status, 0) << r.out << r.err;
    }

    static void TearDownTestSuite() {
        StopChild(pid, 10s);
        delete printer;
        RemoveUnlessFailed(dir);
    }

    void TearDown() override { ShowLogIfFailed("cupsd error_log", dir + "/log/ErrorLog"); }

    static std::string ErrorLog() { return ReadFile(dir + "/log/ErrorLog"); }

    // Prints `file` with `options` ("name=value ..."); the job's id, 0 if it wasn't taken.
    static int Submit(const std::string &file, const char *options) {
        cups_option_t *o = nullptr;
        int n = cupsParseOptions(options, 0, &o);
        int id = cupsPrintFile("office", file.c_str(), "test", n, o);
        cupsFreeOptions(n, o);
        EXPECT_GT(id, 0) << cupsLastErrorString();
        return id;
    }

    // Waits up to 40 s for the job to end; its final state (IPP_JSTATE_...), 0 if it didn't.
    static int JobState(int id) {
        int state = 0;
        WaitFor(
            [&] {
                cups_job_t *jobs = nullptr;
                int n = cupsGetJobs2(CUPS_HTTP_DEFAULT, &jobs, "office", 0, CUPS_WHICHJOBS_ALL);
                for (int i = 0; i < n; ++i)
                    if (jobs[i].id == id) state = jobs[i].state;
                cupsFreeJobs(n, jobs);
                return state >= IPP_JSTATE_STOPPED;
            },
            40s);
        return state;
    }
};

// Both models are offered, and the PPD that lpadmin installed from our driver passes CUPS's own
// checks. Its filter lines name our filter, which the scheduler finds in its server folder (the
// print tests run it); cupstestppd's own look for filters under a root (-R) now and then names a
// program that isn't in the file, so that part is checked here instead.
TEST_F(Cupsd, OffersBothModelsAndInstallsAPpdThatPassesCupstestppd) {
    Result r = RunProgram({"lpinfo", "-m"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("q417plg:///qcl4100.pdd Quillmark CL 4100"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("q417plg:///qml2400.pdd Quillmark ML 2400"), std::string::npos) << r.out;
    std::string ppd = dir + "/conf/ppd/office.ppd";
    r = RunProgram({"cupstestppd", "-W", "translations", "-I", "filters", ppd});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("PASS"), std::string::npos) << r.out;
    EXPECT_EQ(Count(ReadFile(ppd), "*cupsFilter2: "), Count(ReadFile(ppd), " q417pcl\"\n"));
}

// A PDF the filter can't read ends with the filter's ERROR: line; the queue goes on with the
// job of the issue: three pages, A4, long-edge duplex, four up, a watermark, a tray.
TEST_F(Cupsd, DamagedPdfFailsThenFourUpDuplexWatermarkedPdfArrivesAsOneSheet) {
    MakePdf(files + "three.pdf", 3);
    WriteFile(files + "damaged.pdf", ReadFile(files + "three.pdf").substr(0, 600));
    int bad = Submit(files + "damaged.pdf", "");
    int state = JobState(bad);
    EXPECT_TRUE(state == IPP_JSTATE_STOPPED || state == IPP_JSTATE_ABORTED) << state;
    char error[256]; // cupsd's line for the filter's ERROR:, naming the spooled file
    std::snprintf(error, sizeof error, "] [Job %d] %s/spool/d%05d-001: damaged PDF file", bad,
                  dir.c_str(), bad);
    EXPECT_NE(ErrorLog().find(error), std::string::npos) << error;

    int id =
        Submit(files + "three.pdf",
               "media=A4 sides=two-sided-long-edge number-up=4 Watermark=Draft InputSlot=Tray2");
    EXPECT_EQ(JobState(id), IPP_JSTATE_COMPLETED);
    std::string stream = printer->Next();
    ExpectFourUpSheet(stream, "DRAFT");
    EXPECT_EQ(Count(Decode(stream), "ESC&l4H "), 1u); // the lower tray
    // CUPS counted one sheet for the job, from the filter's PAGE: line
    const std::string pages = ReadFile(dir + "/log/PageLog"), mine = std::to_string(id);
    EXPECT_TRUE(std::regex_search(pages, std::regex("office \\S+ " + mine + " .* total 1 ")))
        << pages;
}

// An image reaches the filter through CUPS's own conversion, with options by their PPD names as
// a print dialog sends them: short-edge binding, Letter, grey, 300 dpi; two copies made by the
// printer from the page sent once.
TEST_F(Cupsd, ImageWithPpdOptionsAndCopiesReachesThePrinter) {
    MakePng(files + "disc.png");
    int id = Submit(files + "disc.png", "Duplex=DuplexTumble PageSize=Letter ColorModel=Gray "
                                        "Resolution=300dpi copies=2 Collate=True");
    EXPECT_EQ(JobState(id), IPP_JSTATE_COMPLETED);
    std::string listing = Decode(printer->Next());
    // Short-edge binding, Letter, two copies by the printer, grey, 300 dpi, the page sent once.
    for (const char *once : {"@PJL ENTER LANGUAGE=PCL", "ESC&l2S ", "ESC&l2A ", "ESC&l2X ",
                             "Quillmark PCL5e Driver", "ESC*t300R ", "start raster graphics"})
        EXPECT_EQ(Count(listing, once), 1u) << once;
}

} // namespace
