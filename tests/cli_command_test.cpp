// q417 driven as a user drives it: the built binary run with arguments, its output, its exit
// status and the files it leaves. Tests that need the whole library skip while a stand-in
// answers for it.
#include "pcl_decoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <netinet/in.h>
#include <png.h>
#include <poll.h>
#include <sstream>
#include <string>
#include <sys/socket.h>
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

    Result Run(const std::vector<std::string> &args) {
        Result r;
        fs::path out = dir_ / ".stdout", err = dir_ / ".stderr";
        pid_t pid = fork();
        if (pid == 0) {
            if (chdir(dir_.c_str()) != 0) _exit(127);
            int o = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            int e = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            dup2(o, 1);
            dup2(e, 2);
            setenv("Q417_HOME", (dir_ / "home").c_str(), 1);
            unsetenv("Q417_WINDIR");
            std::vector<char *> argv;
            argv.push_back(const_cast<char *>(Q417_TOOL));
            for (const auto &a : args) argv.push_back(const_cast<char *>(a.c_str()));
            argv.push_back(nullptr);
            execv(Q417_TOOL, argv.data());
            _exit(127);
        }
        int st = 0;
        waitpid(pid, &st, 0);
        r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
        r.out = Slurp(out);
        r.err = Slurp(err);
        fs::remove(out);
        fs::remove(err);
        return r;
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
        EXPECT_EQ(b.rows[0].size(), static_cast<size_t>(b.width) * 3);
    }
    EXPECT_LT(fs::file_size(dir_ / "img.prn"), 200000u); // enlarged rows repeat: no bytes

    std::ofstream(dir_ / "bad.png") << "\x89PNG\r\n\x1a\nnot really";
    ExpectOneErrorLine(Run({"print", "bad.png", "-o", "bad.prn"}), "bad.png");
    EXPECT_FALSE(fs::exists(dir_ / "bad.prn"));
}

TEST_F(CliTest, SettingErrorsLeaveNoOutput) {
    if (!LibraryReady()) GTEST_SKIP() << "the library's subsystems are still stand-ins";
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"print", "--paper", "Tabloid"}, "unknown paper \"Tabloid\""},
        {{"print", "--source", "Drawer9"}, "unknown source"},
        {{"print", "--paper", "42"}, "out of range"},
        {{"print", "--nup", "3"}, "--nup 3"},
        {{"print", "--copies", "0"}, "--copies 0"},
        {{"print", "--custom", "10x10"}, "--custom"},
    };
    for (const auto &[args, mention] : cases) {
        ExpectOneErrorLine(Run(args), mention);
        EXPECT_TRUE(Leftovers().empty()) << mention;
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
                    "DDI_COPIES=3", "--set", "22=landscape"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(fs::file_size(dir_ / "dm.bin"), 404u);
    r = Run({"devmode", "get", "dm.bin", "PAPERSIZE", "COPIES", "PAGEORIENT", "PORT"});
    EXPECT_EQ(r.out, "PAPERSIZE=1\nCOPIES=3\nPAGEORIENT=1\nSTR_PORT=FILE:\n") << r.err;
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
