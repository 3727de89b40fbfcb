// q417 driven as a user drives it: the built binary run with arguments, its output, its exit
// status and the files it leaves. Tests that need the whole library skip while a stand-in
// answers for it.
#include "pcl_decoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <netinet/in.h>
#include <png.h>
#include <poll.h>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#ifndef Q417_TOOL
#define Q417_TOOL "q417"
#endif

namespace fs = std::filesystem;

namespace {

struct Result {
    int status = -1;
    std::string out, err;
};

std::string Slurp(const fs::path &p) {
    std::ifstream f(p, std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

// A scratch directory a test runs in; the tool's defaults go there too.
class CliTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char tmpl[] = "/tmp/q417cliXXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
    }
    void TearDown() override { fs::remove_all(dir_); }

    // How a run differs from a plain one: environment changes (an empty value unsets) and a
    // file for standard output instead of the captured one.
    struct Setup {
        std::vector<std::pair<std::string, std::string>> env;
        std::string stdoutTo;
    };

    // Starts the tool in the scratch directory; its output goes to .stdout and .stderr there.
    pid_t Start(const std::vector<std::string> &args, const Setup &setup = {}) {
        fs::path out = dir_ / ".stdout", err = dir_ / ".stderr";
        pid_t pid = fork();
        if (pid == 0) {
            if (chdir(dir_.c_str()) != 0) _exit(127);
            const char *to = setup.stdoutTo.empty() ? out.c_str() : setup.stdoutTo.c_str();
            int o = open(to, O_WRONLY | O_CREAT | O_TRUNC, 0644);
            int e = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            dup2(o, 1);
            dup2(e, 2);
            setenv("Q417_HOME", (dir_ / "home").c_str(), 1);
            unsetenv("Q417_WINDIR");
            for (const auto &[name, value] : setup.env)
                value.empty() ? unsetenv(name.c_str()) : setenv(name.c_str(), value.c_str(), 1);
            std::vector<char *> argv;
            argv.push_back(const_cast<char *>(Q417_TOOL));
            for (const auto &a : args) argv.push_back(const_cast<char *>(a.c_str()));
            argv.push_back(nullptr);
            execv(Q417_TOOL, argv.data());
            _exit(127);
        }
        return pid;
    }

    // Waits for a started run; status -1 when a signal ended it.
    Result Finish(pid_t pid, int *signal = nullptr) {
        Result r;
        int st = 0;
        waitpid(pid, &st, 0);
        r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
        if (signal) *signal = WIFSIGNALED(st) ? WTERMSIG(st) : 0;
        fs::path out = dir_ / ".stdout", err = dir_ / ".stderr";
        r.out = Slurp(out);
        r.err = Slurp(err);
        fs::remove(out);
        fs::remove(err);
        return r;
    }

    Result Run(const std::vector<std::string> &args, const Setup &setup = {}) {
        return Finish(Start(args, setup));
    }

    // The whole library answers (not the stand-ins of subsystems still being built).
    bool LibraryReady() {
        static int ready = -1;
        if (ready < 0) ready = Run({"devmode", "options", "paper"}).status == 0;
        return ready == 1;
    }

    // Files the tool left in the scratch directory, apart from its defaults.
    std::vector<std::string> Leftovers() {
        std::vector<std::string> names;
        for (const auto &e : fs::directory_iterator(dir_))
            if (e.path().filename() != "home") names.push_back(e.path().filename());
        return names;
    }

    static void ExpectOneErrorLine(const Result &r, const std::string &mention) {
        EXPECT_NE(r.status, 0);
        ASSERT_FALSE(r.err.empty());
        EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
        EXPECT_EQ(r.err.rfind("q417: ", 0), 0u) << r.err;
        EXPECT_NE(r.err.find(mention), std::string::npos) << r.err;
    }

    fs::path dir_;
};

TEST_F(CliTest, EverySubcommandHasHelp) {
    const std::vector<std::vector<std::string>> commands = {
        {"--help"},
        {"print", "--help"},
        {"dump", "--help"},
        {"pdd", "--help"},
        {"pdd", "compile", "--help"},
        {"pdd", "show", "--help"},
        {"pdd", "check", "--help"},
        {"devmode", "--help"},
        {"devmode", "new", "--help"},
        {"devmode", "set", "--help"},
        {"devmode", "get", "--help"},
        {"devmode", "show", "--help"},
        {"devmode", "options", "--help"},
    };
    for (const auto &c : commands) {
        Result r = Run(c);
        EXPECT_EQ(r.status, 0) << c[0];
        EXPECT_NE(r.out.find("Usage: q417"), std::string::npos) << c[0] << r.out;
    }
}

TEST_F(CliTest, DumpListsAStreamAndReportsACut) {
    std::string stream = "\x1b%-12345X@PJL ENTER LANGUAGE=PCL\n\x1b&l26A\x0c\x1b%-12345X";
    std::ofstream(dir_ / "job.prn", std::ios::binary) << stream;
    Result r = Run({"dump", "job.prn"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("00000000  ESC%-12345X"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("00000021  ESC&l26A                    page size: A4"), std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("00000027  \\x0c                        form feed"), std::string::npos);

    std::ofstream(dir_ / "cut.prn", std::ios::binary) << stream.substr(0, 37);
    r = Run({"dump", "cut.prn", "-o", "cut.txt"});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(Slurp(dir_ / "cut.txt").find("00000021  ** stream ends inside an escape sequence"),
              std::string::npos);
}

// A missing input: one line naming it, a failure status, and no file left behind.
TEST_F(CliTest, MissingFilesAreOneLineErrors) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"dump", "absent.prn", "-o", "listing.txt"}, "absent.prn"},
        {{"print", "-p", "absent.pdd"}, "absent.pdd"},
        {{"pdd", "show", "absent.pdd"}, "absent.pdd"},
        {{"pdd", "check", "absent.pdd"}, "absent.pdd"},
        {{"print", "absent.png", "-o", "out.prn"}, "absent.png"},
    };
    for (const auto &[args, mention] : cases) {
        Result r = Run(args);
        ExpectOneErrorLine(r, mention);
        EXPECT_TRUE(Leftovers().empty()) << args[0] << " left " << Leftovers()[0];
    }
}

// Mistakes on the command line read like every other error: one line, and status 2.
TEST_F(CliTest, UsageMistakesAreOneLineErrors) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"print", "--copies", "abc"}, "--copies"},
        {{"print", "--bogus"}, "--bogus"},
        {{"frob"}, "frob"},
        {{"pdd"}, "subcommand"},
        {{"dump"}, "stream"},
        {{"devmode", "get", "dm.bin"}, "names"},
        // Values out of range, each with what the option accepts.
        {{"print", "--copies", "-1"}, "--copies: -1 is out of range: expected 1 to 32767"},
        {{"print", "--copies", "32768"}, "expected 1 to 32767"},
        {{"print", "--nup", "-1"}, "expected 1, 2, 4, 6, 9 or 16"},
        {{"print", "--nup", "3"}, "expected 1, 2, 4, 6, 9 or 16"},
        {{"print", "--watermark", "-1"}, "expected 0 (none) to 65535"},
        {{"print", "--pages", "0"}, "expected 1 to 10000"},
        {{"print", "--orientation", "up"}, "portrait, landscape, reverse-portrait or reverse-l"},
        {{"print", "--duplex", "2"}, "none, long (long-edge binding) or short"},
        {{"print", "--emulation", "PCL6"}, "PCL5, PCL5e, PCL5C, PCL5eC or 1 to 6"},
        {{"print", "--custom", "0x500"}, "WIDTHxHEIGHT in points"},
        {{"print", "--custom", "1e9x500mm"}, "up to 10 m"},
        {{"print", "--timeout", "1,2,3"}, "SECONDS for both limits, or CONNECT,WRITE"},
        {{"print", "--timeout", "-5"}, "SECONDS for both limits"},
    };
    for (const auto &[args, mention] : cases) {
        Result r = Run(args);
        ExpectOneErrorLine(r, mention);
        EXPECT_EQ(r.status, 2) << mention;
        EXPECT_TRUE(r.out.empty()) << mention;
    }
}

// ---- with the whole library -------------------------------------------------------------

// Positions of the markers in the listing, in order; -1 for the first one missing.
int FindInOrder(const std::string &listing, const std::vector<std::string> &markers) {
    size_t pos = 0;
    for (size_t i = 0; i < markers.size(); ++i) {
        size_t at = listing.find(markers[i], pos);
        if (at == std::string::npos) return static_cast<int>(i);
        pos = at + markers[i].size();
    }
    return -1;
}

size_t Count(const std::string &s, const std::string &what) {
    size_t n = 0;
    for (size_t p = s.find(what); p != std::string::npos; p = s.find(what, p + 1)) ++n;
    return n;
}

TEST_F(CliTest, SixPagesFourUpDecodeToTheExpectedSequence) {
    if (!LibraryReady()) GTEST_SKIP() << "the library's subsystems are still stand-ins";
    Result r = Run({"print", "--nup", "4", "--pages", "6", "-o", "job.prn"});
    ASSERT_EQ(r.status, 0) << r.err;
    r = Run({"dump", "job.prn"});
    ASSERT_EQ(r.status, 0) << r.out;
    const std::string &l = r.out;
    // Job header, the first sheet's page header, then the second sheet's.
    EXPECT_EQ(FindInOrder(l, {"ESC%-12345X",
                              "PJL comment",
                              "@PJL SET RESOLUTION=600",
                              "@PJL ENTER LANGUAGE=PCL",
                              "ESC%0A",
                              "ESC*v6W",
                              "ESC&u600D",
                              "ESC*t600R",
                              "ESC*t7J",
                              "ESC*c0F",
                              "ESC&p1I",
                              "ESC&p6C",
                              "WU0",
                              "PP1",
                              "ESC&l1X",
                              "ESC&l26A",
                              "ESC&l0O",
                              "ESC*pX",
                              "picture frame width",
                              "picture frame anchor point",
                              "ESC&l1H",
                              "ESC*r0F",
                              "IP",
                              "SC",
                              "\"Page 1\"",
                              "\"Page 4\"",
                              "form feed",
                              "\"Page 5\"",
                              "\"Page 6\"",
                              "universal exit language"}),
              -1)
        << l;
    EXPECT_EQ(Count(l, "page size: A4"), 1u); // the second sheet is a form feed
    EXPECT_EQ(Count(l, "form feed"), 1u);     // cells 2 to 4 share the first sheet
    EXPECT_EQ(Count(l, "universal exit language"), 2u);
    EXPECT_EQ(Count(l, "** stream ends"), 0u);
    EXPECT_NE(l.find(", 0 unknown"), std::string::npos);
}

// No printer and no port given: the built-in colour model, to a file in the current directory.
TEST_F(CliTest, DefaultsPrintOnTheColourModelToTheCurrentDirectory) {
    if (!LibraryReady()) GTEST_SKIP() << "the library's subsystems are still stand-ins";
    Result r = Run({"print"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(Leftovers(), std::vector<std::string>{"q417-job.prn"});
    r = Run({"dump", "q417-job.prn"});
    EXPECT_NE(r.out.find("@PJL COMMENT Quillmark PCL5eC Driver"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("ESC*v6W"), std::string::npos); // colour set-up
}

// Whatever the settings, every command that the library and the renderer write is one the
// decoder knows, and the stream is whole: colour and monochrome, every N-up grid, both
// pattern formats of a watermark's gray, custom sizes, images.
TEST_F(CliTest, EveryJobDecodesWithoutUnknowns) {
    if (!LibraryReady()) GTEST_SKIP() << "the library's subsystems are still stand-ins";
    std::ofstream(dir_ / "gray.pgm") << "P2 3 2 255\n0 128 255\n64 32 200\n";
    const std::vector<std::vector<std::string>> jobs = {
        {"--watermark", "2", "--duplex", "short", "--copies", "2", "--collate"},
        {"-p", "mono", "--watermark", "1"},                         // gray pattern, format 20
        {"-p", "mono", "--emulation", "PCL5", "--watermark", "1"},  // gray pattern, format 0
        {"--emulation", "PCL5C", "--watermark", "3", "--nup", "2"}, // italic face
        {"--nup", "6", "--orientation", "landscape", "--pages", "7"},
        {"--nup", "9", "--orientation", "reverse-landscape", "--pages", "10", "--watermark", "1"},
        {"--nup", "16", "--pages", "17", "--resolution", "1200dpi", "--source", "Manual"},
        {"--custom", "150x200mm", "--orientation", "landscape", "--watermark", "2",
         "--watermark-first-page", "--pages", "2"},
        {"-p", "mono", "--paper", "Env10", "--orientation", "reverse-portrait"},
        {"gray.pgm", "-p", "mono", "--nup", "4"},
    };
    for (const auto &job : jobs) {
        std::vector<std::string> args = {"print", "-o", "job.prn"};
        args.insert(args.end(), job.begin(), job.end());
        std::string shown;
        for (const auto &a : job) shown += a + " ";
        Result r = Run(args);
        ASSERT_EQ(r.status, 0) << shown << r.err;
        r = Run({"dump", "job.prn"});
        EXPECT_EQ(r.status, 0) << shown;
        std::string summary = r.out.substr(r.out.rfind("-- "));
        EXPECT_NE(summary.find(" 0 unknown\n"), std::string::npos) << shown << summary;
        EXPECT_EQ(Count(r.out, "universal exit language"), 2u) << shown;
    }
}

// With a watermark on every cell, the printer's language after each label is the library's
// business; the pages' data must still decode as PCL, every one of them.
TEST_F(CliTest, WatermarkedCellsStayDecodable) {
    if (!LibraryReady()) GTEST_SKIP() << "the library's subsystems are still stand-ins";
    ASSERT_EQ(
        Run({"print", "--nup", "4", "--pages", "6", "--watermark", "1", "-o", "wm.prn"}).status, 0);
    Result r = Run({"dump", "wm.prn"});
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find(", 0 unknown"), std::string::npos) << r.out.substr(r.out.rfind("--"));
    EXPECT_EQ(Count(r.out, "text, 6 bytes"), 6u); // "Page N" on every cell, as PCL text
}

TEST_F(CliTest, SettingsReachTheStream) {
    if (!LibraryReady()) GTEST_SKIP() << "the library's subsystems are still stand-ins";
    Result r =
        Run({"print", "-p", "mono", "--paper", "Legal", "--source", "manual feed", "--orientation",
             "landscape", "--copies", "3", "--resolution", "300dpi", "-o", "job.prn"});
    ASSERT_EQ(r.status, 0) << r.err;
    r = Run({"dump", "job.prn"});
    const std::string &l = r.out;
    EXPECT_NE(l.find("PCL5e Driver"), std::string::npos) << l; // monochrome emulation
    EXPECT_EQ(l.find("ESC*v6W"), std::string::npos);           // no colour set-up
    EXPECT_EQ(
        FindInOrder(l, {"@PJL SET ORIENTATION=LANDSCAPE", "RESOLUTION=300", "ESC&u300D", "ESC&l3X",
                        "page size: Legal", "orientation: landscape", "paper source: manual feed"}),
        -1)
        << l;
}

// Images become raster graphics at the job's resolution, one page each; a colour PNG and a
// gray PGM on a colour printer, and standard output as the port.
TEST_F(CliTest, ImagesBecomeRasterRows) {
    if (!LibraryReady()) GTEST_SKIP() << "the library's subsystems are still stand-ins";
    const uint8_t rgb[] = {255, 0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255, 255, 255, 128, 128, 128};
    png_image img{};
    img.version = PNG_IMAGE_VERSION;
    img.width = 3, img.height = 2, img.format = PNG_FORMAT_RGB;
    ASSERT_TRUE(png_image_write_to_file(&img, (dir_ / "rgb.png").c_str(), 0, rgb, 0, nullptr));
    std::ofstream(dir_ / "gray.pgm") << "P2 2 2 255\n0 128\n255 64\n";
    Result r = Run({"print", "rgb.png", "gray.pgm", "--nup", "2", "-o", "-"});
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_EQ(r.out.rfind("\x1b%-12345X", 0), 0u);
    std::ofstream(dir_ / "img.prn", std::ios::binary) << r.out;
    // Two pictures of 24-bit rows at 600 dpi, every row decodable.
    q417tool::DecodeResult dr;
    auto blocks = q417tool::DecodeRaster(reinterpret_cast<const uint8_t *>(r.out.data()),
                                         r.out.size(), &dr);
    EXPECT_EQ(dr.nBadRows, 0u);
    ASSERT_EQ(blocks.size(), 2u);
    for (const auto &b : blocks) {
        EXPECT_EQ(b.resolution, 600);
        EXPECT_EQ(b.bitsPerPixel, 24);
        EXPECT_GT(b.rows.size(), 100u);
        auto row = std::find_if(b.rows.begin(), b.rows.end(), [](auto &r) { return !r.empty(); });
        ASSERT_NE(row, b.rows.end());
        EXPECT_EQ(row->size(), static_cast<size_t>(b.width) * 3);
    }
    EXPECT_LT(fs::file_size(dir_ / "img.prn"), 200000u); // enlarged rows repeat: no bytes

    std::ofstream(dir_ / "bad.png") << "\x89PNG\r\n\x1a\nnot really";
    ExpectOneErrorLine(Run({"print", "bad.png", "-o", "bad.prn"}), "bad.png");
    EXPECT_FALSE(fs::exists(dir_ / "bad.prn"));
}

// Settings the printer can't take are mistakes on the command line too: status 2, nothing
// written.
TEST_F(CliTest, SettingErrorsLeaveNoOutput) {
    if (!LibraryReady()) GTEST_SKIP() << "the library's subsystems are still stand-ins";
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"print", "--paper", "Tabloid"}, "unknown paper \"Tabloid\" (the printer has: A4,"},
        {{"print", "--source", "Drawer9"}, "unknown source"},
        {{"print", "--paper", "42"}, "the printer has 8 (0 to 7)"},
        {{"print", "--custom", "10x10"}, "--custom 10x10: expected 216.0 x 360.0 to"},
        {{"devmode", "new", "dm.bin", "-s", "PAGESPERSHEET=3"}, "PAGESPERSHEET"},
    };
    for (const auto &[args, mention] : cases) {
        Result r = Run(args);
        ExpectOneErrorLine(r, mention);
        EXPECT_EQ(r.status, 2) << mention;
        EXPECT_TRUE(Leftovers().empty()) << mention;
    }
}

// A binding edge asked for is the one the printer gets: PCL's 1 binds on the long edge, 2 on
// the short one. The IPP and PPD words of the other front ends map the same way.
TEST_F(CliTest, DuplexNamesTheBindingEdge) {
    if (!LibraryReady()) GTEST_SKIP() << "the library's subsystems are still stand-ins";
    const struct {
        const char *word, *golden, *listed;
    } cases[] = {
        {"long", "\x1b&l26a0o4d1E\x1b&l1S",
         "ESC&l1S                     simplex/duplex: duplex, long edge"},
        {"two-sided-long-edge", "\x1b&l26a0o4d1E\x1b&l1S", "duplex, long edge"},
        {"short", "\x1b&l26a0o4d1E\x1b&l2S",
         "ESC&l2S                     simplex/duplex: duplex, short edge"},
        {"DuplexTumble", "\x1b&l26a0o4d1E\x1b&l2S", "duplex, short edge"},
        {"none", "\x1b&l26a0o4d1E\x1b&l0S", "simplex/duplex: simplex"},
    };
    for (const auto &c : cases) {
        Result r = Run({"print", "--duplex", c.word, "-o", "-"});
        ASSERT_EQ(r.status, 0) << c.word << r.err;
        EXPECT_NE(r.out.find(c.golden), std::string::npos) << c.word;
        std::ofstream(dir_ / "d.prn", std::ios::binary) << r.out;
        EXPECT_NE(Run({"dump", "d.prn"}).out.find(c.listed), std::string::npos) << c.word;
    }
}

// A raw TCP port: a listener on 127.0.0.1 takes the job and must get the same bytes a file
// gets; a port nobody listens on is an error.
TEST_F(CliTest, SocketOutputArrivesWhole) {
    if (!LibraryReady()) GTEST_SKIP() << "the library's subsystems are still stand-ins";
    int lsock = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_GE(lsock, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(lsock, reinterpret_cast<sockaddr *>(&addr), sizeof addr), 0);
    ASSERT_EQ(listen(lsock, 1), 0);
    socklen_t len = sizeof addr;
    getsockname(lsock, reinterpret_cast<sockaddr *>(&addr), &len);
    int port = ntohs(addr.sin_port);
    std::string received;
    std::thread listener([&] {
        // Bounded: gives up after 20 s without a byte, whatever the tool does.
        pollfd p{lsock, POLLIN, 0};
        if (poll(&p, 1, 20000) != 1) return;
        int c = accept(lsock, nullptr, nullptr);
        if (c < 0) return;
        char buf[65536];
        for (;;) {
            pollfd q{c, POLLIN, 0};
            if (poll(&q, 1, 20000) != 1) break;
            ssize_t got = read(c, buf, sizeof buf);
            if (got <= 0) break;
            received.append(buf, static_cast<size_t>(got));
        }
        close(c);
    });
    Result r = Run({"print", "--nup", "2", "--pages", "3", "-o",
                    "socket://127.0.0.1:" + std::to_string(port)});
    listener.join();
    close(lsock);
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_EQ(Run({"print", "--nup", "2", "--pages", "3", "-o", "job.prn"}).status, 0);
    std::string file = Slurp(dir_ / "job.prn");
    EXPECT_GT(file.size(), 1000u);
    EXPECT_EQ(received, file);

    // The port is free again: nobody listens there now.
    Result refused = Run({"print", "-o", "socket://127.0.0.1:" + std::to_string(port)});
    ExpectOneErrorLine(refused, "socket://127.0.0.1:" + std::to_string(port));
}

// Output lands where the user pointed: a device or FIFO is written in place and stays what it
// is, a link is followed and stays a link, a replaced file keeps its mode, and a failed write
// is an error that names its cause.
TEST_F(CliTest, OutputGoesWhereItPoints) {
    if (!LibraryReady()) GTEST_SKIP() << "the library's subsystems are still stand-ins";
    ASSERT_EQ(Run({"print", "-o", "plain.prn"}).status, 0);
    const std::string job = Slurp(dir_ / "plain.prn");
    fs::remove(dir_ / "plain.prn");

    Result r = Run({"print", "-o", "/dev/full"});
    ExpectOneErrorLine(r, "q417: /dev/full: No space left on device\n");
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(fs::is_character_file("/dev/full"));
    r = Run({"print", "-o", "-"}, {{}, "/dev/full"});
    ExpectOneErrorLine(r, "q417: standard output: No space left on device\n");
    EXPECT_EQ(r.status, 1);
    ASSERT_EQ(Run({"print", "-o", "/dev/null"}).status, 0);
    EXPECT_TRUE(fs::is_character_file("/dev/null"));

    ASSERT_EQ(mkfifo((dir_ / "fifo").c_str(), 0600), 0);
    std::string fromFifo;
    std::thread reader([&] {
        std::ifstream f(dir_ / "fifo", std::ios::binary);
        fromFifo.assign(std::istreambuf_iterator<char>(f), {});
    });
    r = Run({"print", "-o", "fifo"});
    reader.join();
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(fromFifo, job);
    EXPECT_TRUE(fs::is_fifo(dir_ / "fifo"));

    fs::create_directory(dir_ / "sub");
    std::ofstream(dir_ / "sub" / "old.prn") << "old";
    fs::permissions(dir_ / "sub" / "old.prn", fs::perms::owner_read | fs::perms::owner_write);
    const bool root = geteuid() == 0; // then the owner stays too
    if (root) {
        ASSERT_EQ(chown((dir_ / "sub" / "old.prn").c_str(), 4321, 4321), 0);
    }
    fs::create_symlink("sub/old.prn", dir_ / "link.prn");
    ASSERT_EQ(Run({"print", "-o", "link.prn"}).status, 0);
    EXPECT_TRUE(fs::is_symlink(dir_ / "link.prn"));
    EXPECT_EQ(Slurp(dir_ / "sub" / "old.prn"), job);
    EXPECT_EQ(fs::status(dir_ / "sub" / "old.prn").permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_ / "sub"), {}), 1);
    struct stat st {};
    ASSERT_EQ(stat((dir_ / "sub" / "old.prn").c_str(), &st), 0);
    if (root) {
        EXPECT_EQ(st.st_uid, 4321u);
    }
}

// A printer that stops reading, or never answers, ends the job with a message that names the
// host and what timed out; nothing waits for ever.
TEST_F(CliTest, StalledPrinterTimesOut) {
    if (!LibraryReady()) GTEST_SKIP() << "the library's subsystems are still stand-ins";
    // A page of noise makes megabytes of raster, far more than the connection holds.
    std::string noise = "P5 400 400 255\n";
    for (int i = 0; i < 400 * 400; ++i) noise += static_cast<char>((i * 7919) % 251);
    std::ofstream(dir_ / "noise.pgm", std::ios::binary) << noise;
    int lsock = socket(AF_INET, SOCK_STREAM, 0);
    int small = 4096;
    setsockopt(lsock, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(lsock, reinterpret_cast<sockaddr *>(&addr), sizeof addr), 0);
    ASSERT_EQ(listen(lsock, 0), 0);
    socklen_t len = sizeof addr;
    getsockname(lsock, reinterpret_cast<sockaddr *>(&addr), &len);
    const std::string port = "socket://127.0.0.1:" + std::to_string(ntohs(addr.sin_port));

    // Accepted by the kernel, never read.
    auto t0 = std::chrono::steady_clock::now();
    Result r =
        Run({"print", "noise.pgm", "--resolution", "300dpi", "--timeout", "5,1", "-o", port});
    auto took = std::chrono::steady_clock::now() - t0;
    ExpectOneErrorLine(r, port + ": the printer took no data for 1 s (write timeout)");
    EXPECT_EQ(r.status, 1);
    EXPECT_LT(took, std::chrono::seconds(10)); // not the default 300 s

    // The backlog is full now (the last connection was never accepted): a new one waits.
    int filler = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    connect(filler, reinterpret_cast<sockaddr *>(&addr), sizeof addr);
    r = Run({"print", "--timeout", "1", "-o", port});
    ExpectOneErrorLine(r, "127.0.0.1 did not accept the connection within 1 s (connect timeout)");
    close(filler);
    close(lsock);
}

// A job killed by a signal leaves no temporary file, and the tool dies of that signal.
TEST_F(CliTest, SignalsLeaveNoPartialFile) {
    if (!LibraryReady()) GTEST_SKIP() << "the library's subsystems are still stand-ins";
    std::string noise = "P5 400 400 255\n";
    for (int i = 0; i < 400 * 400; ++i) noise += static_cast<char>((i * 7919) % 251);
    std::ofstream(dir_ / "noise.pgm", std::ios::binary) << noise;
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
        pid_t pid = Start({"print", "noise.pgm", "noise.pgm", "noise.pgm", "-o", "job.prn"});
        // Kill it while the temporary file is being written.
        bool seen = false;
        for (int i = 0; i < 3000 && !seen; ++i) {
            for (const auto &e : fs::directory_iterator(dir_))
                seen |= e.path().filename().string().rfind("job.prn.part", 0) == 0;
            if (!seen) usleep(1000);
        }
        EXPECT_TRUE(seen) << sig;
        kill(pid, sig);
        int died = 0;
        Finish(pid, &died);
        EXPECT_EQ(died, sig);
        std::vector<std::string> left = Leftovers();
        EXPECT_EQ(left, std::vector<std::string>{"noise.pgm"}) << sig;
    }
}

// Homes and folders a spooler's user or a careful administrator has: no usable home, a long
// or non-ASCII folder, a damaged compiled file. Each works or says exactly what is wrong.
TEST_F(CliTest, AwkwardHomesAndFoldersWork) {
    if (!LibraryReady()) GTEST_SKIP() << "the library's subsystems are still stand-ins";
    const Setup noHome{{{"Q417_HOME", ""}, {"XDG_CACHE_HOME", ""}, {"HOME", "/dev/null"}}, ""};
    Result r = Run({"print", "-o", "job.prn"}, noHome);
    EXPECT_EQ(r.status, 0) << r.err;
    r = Run({"print", "-o", "job.prn"}, {{{"Q417_HOME", "/dev/null/q417"}}, ""});
    ExpectOneErrorLine(r, "Q417_HOME: /dev/null/q417: Not a directory (set it to a folder");

    // A home far longer than the library's room for a font path keeps its watermark.
    const std::string deep = (dir_ / std::string(60, 'h')).string();
    r = Run({"print", "--watermark", "1", "-o", "-"}, {{{"Q417_HOME", deep}}, ""});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("\x1b*c32766D"), std::string::npos); // the watermark's font
    r = Run({"print", "--watermark", "9", "-o", "job.prn"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.err.find("q417: warning: watermark 9 was not printed"), std::string::npos) << r.err;

    // Folders the library's 8-bit code page can't spell, or longer than its room.
    const fs::path pdd = fs::path(Q417_SOURCE_DIR) / "share" / "qml2400.pdd";
    const std::string l120(120, 'l'),
        folders[] = {"\xe6\x97\xa5\xe6\x9c\xac", l120 + "/" + l120 + "/" + l120};
    for (const std::string &folder : folders) {
        fs::create_directories(dir_ / folder);
        fs::copy_file(pdd, dir_ / folder / "q.pdd");
        r = Run({"pdd", "compile", folder + "/q.pdd"});
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_TRUE(fs::exists(dir_ / folder / "q.bdd"));
        EXPECT_EQ(Run({"print", "-p", folder + "/q.pdd", "-o", "job.prn"}).status, 0);
    }
    fs::copy_file(pdd, dir_ / "\xe5\x8d\xb0.pdd");
    r = Run({"pdd", "compile", "\xe5\x8d\xb0.pdd"});
    ExpectOneErrorLine(r, "not written: the library spells the file's name in its 8-bit code");
    EXPECT_EQ(Run({"print", "-p", "\xe5\x8d\xb0.pdd", "-o", "job.prn"}).status, 0);

    // A compiled file damaged after it was written (600 dpi turned into 65368) is rebuilt.
    fs::copy_file(pdd, dir_ / "d.pdd");
    ASSERT_EQ(Run({"pdd", "compile", "d.pdd"}).status, 0);
    std::string bdd = Slurp(dir_ / "d.bdd");
    size_t dpi = bdd.find(std::string("\x58\x02\x00\x00\x58\x02\x00\x00", 8));
    ASSERT_NE(dpi, std::string::npos);
    bdd[dpi + 5] = '\xff';
    std::ofstream(dir_ / "d.bdd", std::ios::binary) << bdd;
    r = Run({"print", "-p", "d.pdd", "-o", "-"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("\x1b*t600R"), std::string::npos);
    EXPECT_EQ(Slurp(dir_ / "d.bdd").find(bdd), std::string::npos);
}

TEST_F(CliTest, PddCheckReportsKnownMistakesByLine) {
    if (!LibraryReady()) GTEST_SKIP() << "the library's subsystems are still stand-ins";
    fs::copy_file(fs::path(Q417_TEST_DATA) / "cli" / "mistakes.pdd", dir_ / "mistakes.pdd");
    Result r = Run({"pdd", "check", "mistakes.pdd"});
    // Each finding names its line and its key, and says which kind of mistake it is.
    const struct {
        int line;
        const char *key, *kind;
    } findings[] = {
        {5, "pagesize", "wrong case"},
        {6, "PageSize:", "option"},
        {7, "LanguageLevel:", "above"},
        {8, "PrinterLanguage:", "language"},
        {9, "DefaultCustomPageSize:", "above"},
        {10, "PaperDimension", "width"},
        {11, "ColorDevice:", "no value"},
        {12, "Product", "colon"},
        {13, "ImageableArea", ".port"},
        {14, "PageSize", "never be found"},
        {15, "PaperDimension", "never be found"},
        {20, "Frobnicate:", "unknown key"},
    };
    std::vector<std::string> lines;
    std::istringstream listing(r.out);
    for (std::string l; std::getline(listing, l);) lines.push_back(l);
    for (const auto &f : findings) {
        std::string head = "mistakes.pdd:" + std::to_string(f.line) + ": \"" + f.key + "\": ";
        auto at = std::find_if(lines.begin(), lines.end(),
                               [&](const std::string &l) { return l.rfind(head, 0) == 0; });
        ASSERT_NE(at, lines.end()) << head << "\n" << r.out;
        EXPECT_NE(at->find(f.kind), std::string::npos) << *at;
    }
    for (int good : {3, 4, 16, 17, 18, 19})
        EXPECT_EQ(r.out.find("mistakes.pdd:" + std::to_string(good) + ":"), std::string::npos)
            << good << "\n"
            << r.out;
    EXPECT_NE(r.out.find("mistakes.pdd: \"A4\": paper without a size"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("mistakes.pdd: 13 findings;"), std::string::npos) << r.out;
    EXPECT_EQ(r.status, 0) << r.out; // still usable: a resolution, papers, a source

    std::ofstream(dir_ / "nosource.pdd") << "*PDD-Lindgate: 1\n*Resolution 300dpi/300: \"300\"\n"
                                            "*PageSize A4/A4: 26\n*PaperDimension A4: \"595 842\"\n"
                                            "*ImageableArea A4: \"12 12 583 830\"\n";
    r = Run({"pdd", "check", "nosource.pdd"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("no paper source"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("NOT usable"), std::string::npos) << r.out;

    std::ofstream(dir_ / "notapdd.pdd") << "*PDD-lindgate: 1\n";
    r = Run({"pdd", "check", "notapdd.pdd"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("not a printer description"), std::string::npos) << r.out;
}

// pdd show of the colour sample, checked against what its file says.
TEST_F(CliTest, PddShowMatchesTheSampleFile) {
    if (!LibraryReady()) GTEST_SKIP() << "the library's subsystems are still stand-ins";
    fs::copy_file(fs::path(Q417_SOURCE_DIR) / "share" / "qcl4100.pdd", dir_ / "qcl4100.pdd");
    Result r = Run({"pdd", "show", "qcl4100.pdd"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string &s = r.out;
    auto has = [&](const std::string &what) {
        EXPECT_NE(s.find(what), std::string::npos) << what << "\n" << s;
    };
    has("model              Quillmark CL 4100");
    has("file version       2.10");
    has("colours            3 (colour)");
    has("portrait command   \"@PJL SET ORIENTATION=PORTRAIT\\n\"");
    has("Papers: 8");
    // A4: 595.2 x 841.8 pt; portrait area 17 18 578 823.8, landscape 18 14.4 577.2 827.4 turned.
    has("0*  A4           A4 210 x 297 mm            9    26  595.2 x 841.8   210.0 x 297.0   "
        "17.0,18.0 561.0 x 805.8     14.4,18.0 813.0 x 559.2");
    has("1   Letter       US Letter                  1     2  612.0 x 792.0   215.9 x 279.4   "
        "18.0,18.0 576.0 x 756.0     14.4,18.0 763.2 x 576.0");
    has("7C  Custom       Custom Size              256   101");
    has("custom size: 216.0 x 360.0 pt to 612.0 x 1008.0 pt, default 576.0 x 720.0 pt");
    has("Paper sources: 5");
    has("0*  Tray1            upper                      1        1");
    has("2   Manual           manual feed                2        4");
    has("Output bins: 2");
    has("Media types: 4");
    has("Resolutions: 3");
    has("1*  600dpi           600 dpi                    600      600 x 600");

    // Text of the description is in its code page, shown as UTF-8; control bytes escaped.
    std::ofstream(dir_ / "cafe.pdd", std::ios::binary)
        << "*PDD-Lindgate: 1\n*Product: \"Caf\xe9 \x1b[31m\x81\"\n"
        << Slurp(dir_ / "qcl4100.pdd").substr(Slurp(dir_ / "qcl4100.pdd").find("*FileVersion"));
    r = Run({"pdd", "show", "cafe.pdd"});
    EXPECT_NE(r.out.find("model              Caf\xc3\xa9 \\x1b[31m\\x81\n"), std::string::npos)
        << r.out.substr(0, 200);
}

TEST_F(CliTest, PddCompileWritesTheBinaryBeside) {
    if (!LibraryReady()) GTEST_SKIP() << "the library's subsystems are still stand-ins";
    fs::copy_file(fs::path(Q417_SOURCE_DIR) / "share" / "qml2400.pdd", dir_ / "qml2400.pdd");
    Result r = Run({"pdd", "compile", "qml2400.pdd"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(fs::exists(dir_ / "qml2400.bdd"));
    EXPECT_GT(fs::file_size(dir_ / "qml2400.bdd"), 343u);
}

TEST_F(CliTest, DevmodeRoundTrip) {
    if (!LibraryReady()) GTEST_SKIP() << "the library's subsystems are still stand-ins";
    Result r = Run({"devmode", "new", "dm.bin", "--set", "PAPERSIZE=Letter", "--set",
                    "DDI_COPIES=3", "--set", "22=landscape", "--set", "DUPLEX=long"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(fs::file_size(dir_ / "dm.bin"), 404u);
    r = Run({"devmode", "get", "dm.bin", "PAPERSIZE", "COPIES", "PAGEORIENT", "DUPLEX", "PORT"});
    // Long-edge binding is the device mode's duplex 3.
    EXPECT_EQ(r.out, "PAPERSIZE=1\nCOPIES=3\nPAGEORIENT=1\nDUPLEX=3\nSTR_PORT=FILE:\n") << r.err;
    ExpectOneErrorLine(Run({"devmode", "set", "dm.bin", "PAGESPERSHEET=3"}), "PAGESPERSHEET");
    ExpectOneErrorLine(Run({"devmode", "set", "dm.bin", "PAPERWIDTH=5"}), "read");
    ExpectOneErrorLine(Run({"devmode", "set", "dm.bin", "NOSUCH=5"}), "NOSUCH");
    r = Run({"devmode", "show", "dm.bin"});
    EXPECT_NE(r.out.find("PAPERSIZE          1  Letter"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("PAPERWIDTH         6120  612.0 pt, 215.9 mm"), std::string::npos);
    r = Run({"devmode", "options", "source"});
    EXPECT_NE(r.out.find("Manual             manual feed"), std::string::npos) << r.out;
    // The device mode prints: a job from it is on Letter, landscape, three copies.
    ASSERT_EQ(Run({"print", "--devmode", "dm.bin", "-o", "job.prn"}).status, 0);
    r = Run({"dump", "job.prn"});
    EXPECT_EQ(FindInOrder(r.out, {"ESC&l3X", "page size: Letter", "orientation: landscape"}), -1)
        << r.out;
}

} // namespace
