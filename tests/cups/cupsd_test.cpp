// The CUPS driver against a real cupsd: a private scheduler, started as a child of this test
// with its configuration, state, spool and logs in a temporary folder, listening on 127.0.0.1
// and a socket of its own, with our filter and driver program beside the system's filters and
// backends. A queue made with lpadmin -m from our driver prints to a listener of this test, and
// what arrives is checked with the tool's decoder. The system's CUPS is never touched.
#include "printer_harness.h"

#include <cups/cups.h>
#include <gtest/gtest.h>
#include <png.h>

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace q417test;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// A PDF of `pages` pages, each with a black bar of its own length.
std::string MakePdf(int pages) {
    std::vector<std::string> objs;
    std::string kids;
    for (int i = 0; i < pages; ++i) kids += std::to_string(3 + 2 * i) + " 0 R ";
    objs.push_back("<< /Type /Catalog /Pages 2 0 R >>");
    objs.push_back("<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(pages) + " >>");
    for (int i = 0; i < pages; ++i) {
        objs.push_back("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] /Contents " +
                       std::to_string(4 + 2 * i) + " 0 R >>");
        std::string s = "0 0 0 rg 100 100 200 " + std::to_string(100 + 150 * i) + " re f";
        objs.push_back("<< /Length " + std::to_string(s.size()) + " >>\nstream\n" + s +
                       "\nendstream");
    }
    std::string out = "%PDF-1.4\n";
    std::vector<size_t> offsets;
    for (size_t i = 0; i < objs.size(); ++i) {
        offsets.push_back(out.size());
        out += std::to_string(i + 1) + " 0 obj\n" + objs[i] + "\nendobj\n";
    }
    size_t xref = out.size();
    out += "xref\n0 " + std::to_string(objs.size() + 1) + "\n0000000000 65535 f \n";
    for (size_t o : offsets) {
        char line[32];
        std::snprintf(line, sizeof line, "%010zu 00000 n \n", o);
        out += line;
    }
    out += "trailer\n<< /Size " + std::to_string(objs.size() + 1) + " /Root 1 0 R >>\nstartxref\n" +
           std::to_string(xref) + "\n%%EOF\n";
    return out;
}

bool WritePng(const std::string &path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = 120;
    image.height = 80;
    image.format = PNG_FORMAT_GRAY;
    std::vector<uint8_t> pixels(120 * 80);
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<uint8_t>((i % 120) * 2);
    return png_image_write_to_file(&image, path.c_str(), 0, pixels.data(), 0, nullptr) != 0;
}

class Cupsd : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        dir_ = MakeTempDir("q417-cupsd");
        ASSERT_FALSE(dir_.empty());
        // cupsd runs its children as lp: they walk into this folder and read its files.
        chmod(dir_.c_str(), 0755);
        for (const char *d :
             {"conf", "conf/ppd", "state", "cache", "spool", "spool/tmp", "log", "run", "bin",
              "bin/filter", "bin/driver", "data", "data/q417plg", "files"})
            mkdir((dir_ + "/" + d).c_str(), 0755);

        // The system's filters, backends and helpers by link, ours as copies owned like them.
        LinkEntries("/usr/lib/cups", dir_ + "/bin", {"filter", "driver"});
        LinkEntries("/usr/lib/cups/filter", dir_ + "/bin/filter", {});
        LinkEntries("/usr/lib/cups/driver", dir_ + "/bin/driver", {});
        WriteFile(dir_ + "/bin/filter/q417pcl", ReadFile(Q417_FILTER), 0755);
        WriteFile(dir_ + "/bin/driver/q417plg", ReadFile(Q417_DRIVER), 0755);
        LinkEntries("/usr/share/cups", dir_ + "/data", {});
        for (const char *f : {"qcl4100.pdd", "qml2400.pdd", "QMWMARK.INI"})
            WriteFile(dir_ + "/data/q417plg/" + f, ReadFile(std::string(Q417_SHARE) + "/" + f));

        int port = FreePort();
        socket_ = dir_ + "/run/cups.sock";
        WriteFile(dir_ + "/conf/cupsd.conf",
                  "Listen 127.0.0.1:" + std::to_string(port) + "\nListen " + socket_ +
                      "\nLogLevel debug\nBrowsing No\nWebInterface No\nDefaultAuthType None\n"
                      // a sanitizer build of the filter runs under the test's sanitizer options
                      "PassEnv ASAN_OPTIONS LSAN_OPTIONS UBSAN_OPTIONS\n"
                      "<Location />\n  Order allow,deny\n  Allow all\n</Location>\n"
                      "<Policy default>\n  <Limit All>\n    Order deny,allow\n  </Limit>\n"
                      "</Policy>\n");
        WriteFile(dir_ + "/conf/cups-files.conf",
                  "ServerRoot " + dir_ + "/conf\nStateDir " + dir_ + "/state\nCacheDir " + dir_ +
                      "/cache\nRequestRoot " + dir_ + "/spool\nTempDir " + dir_ +
                      "/spool/tmp\nServerBin " + dir_ + "/bin\nDataDir " + dir_ +
                      "/data\nAccessLog " + dir_ + "/log/access_log\nErrorLog " + dir_ +
                      "/log/error_log\nPageLog " + dir_ + "/log/page_log\n" +
                      // As root cupsd refuses to run its children as root: they run as lp.
                      (geteuid() == 0 ? "User lp\nGroup lp\nSystemGroup root\n" : ""));

        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGTERM); // gone with this test, however it ends
            int log = open((dir_ + "/log/cupsd.out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            dup2(log, 1);
            dup2(log, 2);
            execlp("cupsd", "cupsd", "-f", "-c", (dir_ + "/conf/cupsd.conf").c_str(), "-s",
                   (dir_ + "/conf/cups-files.conf").c_str(), nullptr);
            _exit(127);
        }
        ASSERT_GT(pid_, 0);
        setenv("CUPS_SERVER", socket_.c_str(), 1);
        ASSERT_TRUE(WaitForScheduler()) << ReadFile(dir_ + "/log/cupsd.out");
        listener_ = new Listener;
        ASSERT_GT(listener_->port(), 0);
    }

    static void TearDownTestSuite() {
        StopChild(pid_, 10s);
        pid_ = -1;
        delete listener_;
        listener_ = nullptr;
        if (!dir_.empty() && !getenv("Q417_KEEP_CUPSD")) RemoveTree(dir_);
    }

    void TearDown() override {
        if (HasFailure()) {
            std::string log = ReadFile(dir_ + "/log/error_log");
            std::fprintf(stderr, "---- cupsd error_log (last 6000 bytes)\n%s\n",
                         log.substr(log.size() > 6000 ? log.size() - 6000 : 0).c_str());
        }
    }

    static void LinkEntries(const std::string &from, const std::string &to,
                            std::vector<std::string> except) {
        DIR *d = opendir(from.c_str());
        if (!d) return;
        while (dirent *e = readdir(d)) {
            std::string n = e->d_name;
            if (n == "." || n == ".." || std::find(except.begin(), except.end(), n) != except.end())
                continue;
            symlink((from + "/" + n).c_str(), (to + "/" + n).c_str());
        }
        closedir(d);
    }

    static bool WaitForScheduler() {
        auto until = Clock::now() + std::chrono::seconds(15);
        while (Clock::now() < until) {
            int s = socket(AF_UNIX, SOCK_STREAM, 0);
            sockaddr_un a{};
            a.sun_family = AF_UNIX;
            std::snprintf(a.sun_path, sizeof a.sun_path, "%s", socket_.c_str());
            bool up = connect(s, reinterpret_cast<sockaddr *>(&a), sizeof a) == 0;
            close(s);
            if (up) return true;
            int status = 0;
            if (waitpid(pid_, &status, WNOHANG) == pid_) {
                pid_ = -1;
                return false;
            }
            usleep(50000);
        }
        return false;
    }

    // Adds a queue for the colour model (once), printing to the listener.
    static void AddQueue() {
        if (queued_) return;
        std::string out;
        std::string uri =
            "socket://127.0.0.1:" + std::to_string(listener_->port()) + "/?snmp=false";
        int rc = RunProgram(
            {"lpadmin", "-p", "office", "-E", "-v", uri, "-m", "q417plg:///qcl4100.pdd"}, &out);
        ASSERT_EQ(rc, 0) << out;
        queued_ = true;
    }

    // Prints `file` with `options` (name=value each); the job's id.
    static int Submit(const std::string &file, const std::vector<std::string> &options) {
        std::vector<std::string> argv = {"lp", "-d", "office"};
        for (const auto &o : options) argv.insert(argv.end(), {"-o", o});
        argv.push_back(file);
        std::string out;
        int rc = RunProgram(argv, &out);
        EXPECT_EQ(rc, 0) << out;
        size_t dash = out.find("office-");
        return dash == std::string::npos ? -1 : std::atoi(out.c_str() + dash + 7);
    }

    // Waits for the job to end; its final state (IPP_JSTATE_...), 0 on a timeout.
    static int WaitForJob(int id, int seconds = 40) {
        auto until = Clock::now() + std::chrono::seconds(seconds);
        while (Clock::now() < until) {
            cups_job_t *jobs = nullptr;
            int n = cupsGetJobs2(CUPS_HTTP_DEFAULT, &jobs, "office", 0, CUPS_WHICHJOBS_ALL);
            int state = 0;
            for (int i = 0; i < n; ++i)
                if (jobs[i].id == id) state = jobs[i].state;
            cupsFreeJobs(n, jobs);
            if (state >= IPP_JSTATE_STOPPED) return state;
            usleep(100000);
        }
        return 0;
    }

    static std::string Decode(const std::string &stream) {
        std::string listing = q417test::Decode(stream);
        // Q417_CUPSD_LISTING=FILE keeps every listing, one after the other, for a reader.
        if (const char *keep = getenv("Q417_CUPSD_LISTING"))
            std::ofstream(keep, std::ios::app) << listing << "\n";
        return listing;
    }

    static std::string dir_, socket_;
    static pid_t pid_;
    static Listener *listener_;
    static bool queued_;
};

std::string Cupsd::dir_, Cupsd::socket_;
pid_t Cupsd::pid_ = -1;
Listener *Cupsd::listener_ = nullptr;
bool Cupsd::queued_ = false;

TEST_F(Cupsd, ListsTheModelsOfTheInstalledDescriptions) {
    std::string out;
    ASSERT_EQ(RunProgram({"lpinfo", "-m"}, &out), 0) << out;
    EXPECT_NE(out.find("q417plg:///qcl4100.pdd Quillmark CL 4100"), std::string::npos) << out;
    EXPECT_NE(out.find("q417plg:///qml2400.pdd Quillmark ML 2400"), std::string::npos) << out;
}

// The queue's PPD, as lpadmin installed it from our driver, passes CUPS's own checks. Its
// filter lines name our filter, which the scheduler finds in its server folder (the print tests
// run it); cupstestppd's own look for filters under a root (-R) now and then names a program
// that isn't in the file, so that part is checked here instead.
TEST_F(Cupsd, InstalledPpdPassesCupstestppd) {
    AddQueue();
    std::string ppd = ReadFile(dir_ + "/conf/ppd/office.ppd"), out;
    EXPECT_EQ(RunProgram({"cupstestppd", "-W", "translations", "-I", "filters",
                          dir_ + "/conf/ppd/office.ppd"},
                         &out),
              0)
        << out;
    EXPECT_NE(out.find("PASS"), std::string::npos) << out;
    EXPECT_EQ(Count(ppd, "*cupsFilter2: "), Count(ppd, " q417pcl\"\n")) << ppd;
    EXPECT_EQ(access((dir_ + "/bin/filter/q417pcl").c_str(), X_OK), 0);
}

// The job of the issue: three pages, A4, long-edge duplex, four up, a watermark, a tray.
TEST_F(Cupsd, FourUpDuplexWatermarkedPdfArrivesAsOneSheet) {
    AddQueue();
    std::string pdf = dir_ + "/files/three.pdf";
    WriteFile(pdf, MakePdf(3));
    size_t before = listener_->count();
    int id = Submit(pdf, {"media=A4", "sides=two-sided-long-edge", "number-up=4", "Watermark=Draft",
                          "InputSlot=Tray2"});
    ASSERT_GT(id, 0);
    EXPECT_EQ(WaitForJob(id), IPP_JSTATE_COMPLETED);
    std::string stream = listener_->Stream(before, 10s);
    ASSERT_FALSE(stream.empty());
    WriteFile(dir_ + "/files/four-up.prn", stream);
    std::string listing = Decode(stream);

    // PJL around it all
    EXPECT_EQ(stream.rfind("\x1b%-12345X@PJL", 0), 0u);
    EXPECT_EQ(stream.substr(stream.size() - 9), "\x1b%-12345X");
    EXPECT_NE(listing.find("@PJL ENTER LANGUAGE=PCL"), std::string::npos);
    // one sheet: A4 and its set-up once, long-edge binding, the lower tray
    EXPECT_EQ(Count(listing, "ESC&l26A "), 1u);
    EXPECT_EQ(Count(listing, "ESC&l1S "), 1u);
    EXPECT_EQ(Count(listing, "ESC&l4H "), 1u);
    // the watermark's soft font once, its label on each of the three pages
    EXPECT_EQ(Count(listing, "font header"), 1u);
    EXPECT_EQ(Count(listing, "label \"DRAFT\""), 3u);
    // three pages, each in a cell of its own: three raster images at three origins
    std::vector<std::string> origins;
    std::istringstream lines(listing);
    std::string line, x, y;
    while (std::getline(lines, line)) {
        if (line.find("horizontal cursor position") != std::string::npos) x = line.substr(10, 12);
        if (line.find("vertical cursor position") != std::string::npos) y = line.substr(10, 12);
        if (line.find("start raster graphics") != std::string::npos) origins.push_back(x + y);
    }
    ASSERT_EQ(origins.size(), 3u) << listing.substr(0, 4000);
    EXPECT_NE(origins[0], origins[1]);
    EXPECT_NE(origins[1], origins[2]);
    EXPECT_NE(origins[0], origins[2]);
    // CUPS counted one sheet for the job, from the filter's PAGE: line
    std::string pages = ReadFile(dir_ + "/log/page_log");
    std::string job = "office " + std::string(cupsUser()) + " " + std::to_string(id) + " ";
    size_t at = pages.find(job);
    ASSERT_NE(at, std::string::npos) << pages;
    EXPECT_NE(pages.substr(at, pages.find('\n', at) - at).find(" total 1 "), std::string::npos)
        << pages;
}

// Options by their PPD names, as a print dialog sends them: short-edge binding, Letter,
// grey, 300 dpi; two copies made by the printer from pages sent once.
TEST_F(Cupsd, PpdOptionsAndCopiesReachThePrinter) {
    AddQueue();
    std::string pdf = dir_ + "/files/two.pdf";
    WriteFile(pdf, MakePdf(2));
    size_t before = listener_->count();
    int id = Submit(pdf, {"Duplex=DuplexTumble", "PageSize=Letter", "ColorModel=Gray",
                          "Resolution=300dpi", "copies=2", "Collate=True"});
    ASSERT_GT(id, 0);
    EXPECT_EQ(WaitForJob(id), IPP_JSTATE_COMPLETED);
    std::string listing = Decode(listener_->Stream(before, 10s));
    EXPECT_EQ(Count(listing, "ESC&l2S "), 1u);
    EXPECT_EQ(Count(listing, "ESC&l2A "), 1u);  // Letter
    EXPECT_EQ(Count(listing, "form feed"), 1u); // one page a sheet
    EXPECT_EQ(Count(listing, "ESC&l2X "), 1u);  // the printer makes two copies
    EXPECT_NE(listing.find("Quillmark PCL5e Driver"), std::string::npos);
    EXPECT_NE(listing.find("ESC*t300R "), std::string::npos);
    EXPECT_EQ(Count(listing, "start raster graphics"), 2u); // each page once
}

// Text, images and PostScript reach the filter through CUPS's own conversions.
TEST_F(Cupsd, TextPngAndPostScriptArriveAsPages) {
    AddQueue();
    std::string text = dir_ + "/files/note.txt";
    WriteFile(text, "A plain text file\nprinted through texttopdf\nand the q417 filter.\n");
    std::string png = dir_ + "/files/ramp.png";
    ASSERT_TRUE(WritePng(png));
    std::string ps = dir_ + "/files/page.ps";
    WriteFile(ps, "%!PS-Adobe-3.0\n%%Pages: 1\n%%EndComments\n%%Page: 1 1\n"
                  "72 72 200 300 rectfill showpage\n%%EOF\n");
    for (const std::string &file : {text, png, ps}) {
        SCOPED_TRACE(file);
        size_t before = listener_->count();
        int id = Submit(file, {});
        ASSERT_GT(id, 0);
        EXPECT_EQ(WaitForJob(id), IPP_JSTATE_COMPLETED);
        std::string listing = Decode(listener_->Stream(before, 10s));
        EXPECT_NE(listing.find("@PJL ENTER LANGUAGE=PCL"), std::string::npos);
        EXPECT_EQ(Count(listing, "page size: A4"), 1u) << listing.substr(0, 3000);
        EXPECT_GE(Count(listing, "start raster graphics"), 1u);
    }
}

// A PDF the filter can't read: the job ends with the filter's ERROR: line in the log, and the
// queue prints the next job.
TEST_F(Cupsd, DamagedPdfEndsWithTheFiltersErrorAndTheQueueGoesOn) {
    AddQueue();
    std::string bad = dir_ + "/files/damaged.pdf";
    std::string pdf = MakePdf(2);
    WriteFile(bad, pdf.substr(0, 40) + std::string(200, '\x7f') + "\nthis is not a PDF body\n");
    int id = Submit(bad, {});
    ASSERT_GT(id, 0);
    int state = WaitForJob(id);
    EXPECT_TRUE(state == IPP_JSTATE_STOPPED || state == IPP_JSTATE_ABORTED) << state;
    std::string log = ReadFile(dir_ + "/log/error_log");
    std::string tag = "[Job " + std::to_string(id) + "] ";
    bool filterError = false;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);)
        if (line.rfind("E ", 0) == 0 && line.find(tag) != std::string::npos &&
            line.find("damaged.pdf") == std::string::npos &&
            line.find("Job stopped") == std::string::npos && line.find("PID") == std::string::npos)
            filterError = true;
    EXPECT_TRUE(filterError) << "no ERROR: line of the filter for job " << id;

    std::string good = dir_ + "/files/one.pdf";
    WriteFile(good, MakePdf(1));
    size_t before = listener_->count();
    int next = Submit(good, {});
    ASSERT_GT(next, 0);
    EXPECT_EQ(WaitForJob(next), IPP_JSTATE_COMPLETED);
    EXPECT_NE(listener_->Stream(before, 10s).find("@PJL"), std::string::npos);
}

} // namespace
