// q417 driven as a user drives it: the built binary run with arguments, its output, its exit
// status and the files it leaves.
#include "tests/support/printer_harness.h"

#include <map>
#include <memory>
#include <regex>

namespace {

using namespace q417test;

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

// A page of noise: megabytes of raster, far more than a connection holds or a write takes at
// once.
std::string Noise() {
    std::string noise = "P5 400 400 255\n";
    for (int i = 0; i < 400 * 400; ++i) noise += static_cast<char>((i * 7919) % 251);
    return noise;
}

// Jobs of every kind decode whole, with no command the decoder doesn't know, and carry their
// settings: colour and monochrome, every N-up grid, both pattern formats of a watermark's gray,
// custom sizes, pictures, every paper, source and resolution of the samples. Each row: the
// print arguments, listing markers that must come in order, and markers counted.
TEST_F(CliTest, JobsDecodeWholeAndCarryTheirSettings) {
    std::ofstream(dir_ / "gray.pgm") << "P2 3 2 255\n0 128 255\n64 32 200\n";
    std::ofstream(dir_ / "rgb.ppm")
        << "P3 3 2 255\n255 0 0 0 255 0 0 0 255\n0 0 0 9 9 9 128 128 128\n";
    const auto duplex = [](const char *code, const char *binding) {
        return std::vector<std::string>{"ESC&l26A", "ESC&l0O", "ESC&l4D", "ESC&l1E",
                                        std::string("ESC&l") + code + "S" +
                                            "                     simplex/duplex: " + binding};
    };
    struct Job {
        std::vector<std::string> args, inOrder;
        std::vector<std::pair<std::string, size_t>> counts;
    };
    std::vector<Job> jobs = {
        // clang-format off
        // Job header, the first sheet's page header; cells 2 to 4 share the first sheet, the
        // second sheet comes with a form feed.
        {{"--nup", "4", "--pages", "6"},
         {"ESC%-12345X", "PJL comment", "@PJL SET RESOLUTION=600", "@PJL ENTER LANGUAGE=PCL", "ESC%0A",
          "ESC*v6W", "ESC&u600D", "ESC*t600R", "ESC*t7J", "ESC*c0F", "ESC&p1I", "ESC&p6C", "WU0",
          "PP1", "ESC&l1X", "ESC&l26A", "ESC&l0O", "ESC*pX", "picture frame width",
          "picture frame anchor point", "ESC&l1H", "ESC*r0F", "IP", "SC", "\"Page 1\"", "\"Page 4\"",
          "form feed", "\"Page 5\"", "\"Page 6\""},
         {{"page size: A4", 1}, {"form feed", 1}}},
        // No printer: the built-in colour model.
        {{}, {"@PJL COMMENT Quillmark PCL5eC Driver", "ESC*v6W"}, {}},
        {{"-p", "mono", "--paper", "Legal", "--source", "manual feed", "--orientation", "landscape",
          "--copies", "3", "--resolution", "300dpi"},
         {"PCL5e Driver", "@PJL SET ORIENTATION=LANDSCAPE", "RESOLUTION=300", "ESC&u300D", "ESC&l3X",
          "page size: Legal", "orientation: landscape", "paper source: manual feed"},
         {{"ESC*v6W", 0}}}, // no colour set-up
        // PCL's 1 binds on the long edge, 2 on the short one, in the words of each front end.
        {{"--duplex", "long"}, duplex("1", "duplex, long edge"), {}},
        {{"--duplex", "two-sided-long-edge"}, duplex("1", "duplex, long edge"), {}},
        {{"--duplex", "short"}, duplex("2", "duplex, short edge"), {}},
        {{"--duplex", "DuplexTumble"}, duplex("2", "duplex, short edge"), {}},
        {{"--duplex", "none"}, duplex("0", "simplex"), {}},
        // A label on every cell: the pages' data must still decode as PCL text.
        {{"--nup", "4", "--pages", "6", "--watermark", "1"}, {}, {{"text, 6 bytes", 6}}},
        {{"--watermark", "2", "--duplex", "short", "--copies", "2", "--collate"}, {}, {}},
        {{"-p", "mono", "--watermark", "1"}, {}, {}},                         // gray, format 20
        {{"-p", "mono", "--emulation", "PCL5", "--watermark", "1"}, {}, {}},  // gray, format 0
        {{"--emulation", "PCL5C", "--watermark", "3", "--nup", "2"}, {}, {}}, // italic face
        {{"--nup", "6", "--orientation", "landscape", "--pages", "7"}, {}, {}},
        {{"--nup", "9", "--orientation", "reverse-landscape", "--pages", "10", "--watermark", "1"}, {}, {}},
        {{"--nup", "16", "--pages", "17", "--resolution", "1200dpi", "--source", "Manual"}, {}, {}},
        {{"--custom", "150x200mm", "--orientation", "landscape", "--watermark", "2",
          "--watermark-first-page", "--pages", "2"}, {}, {}},
        {{"-p", "mono", "--paper", "Env10", "--orientation", "reverse-portrait"}, {}, {}},
        {{"gray.pgm", "-p", "mono", "--nup", "4"}, {}, {}},
        // Pictures on a colour printer: 24-bit rows at 600 dpi, one raster each, all decodable.
        {{"rgb.ppm", "gray.pgm", "--nup", "2"},
         {"direct by pixel), 0 bits an index, primaries 8/8/8 bits", "ESC*t600R", "ESC*r1A", "ESC*rC",
          "ESC*r1A", "ESC*rC"},
         {{"ESC*r1A", 2}, {"not decodable", 0}}},
        // clang-format on
    };
    // Every paper, source and resolution of both samples, with the code its description gives
    // it (read from the file, not restated here): "*PageSize A4/...: 26" -> ESC&l26A, and so on.
    const std::regex option(R"re(\n\*(PageSize|InputSlot|Resolution) (\w+)/.*: "?(\d+)"?(?=\n))re");
    for (const char *sample : {"qcl4100.pdd", "qml2400.pdd"}) {
        fs::copy_file(fs::path(Q417_SOURCE_DIR) / "share" / sample, dir_ / sample);
        const std::string pdd = ReadFile(dir_ / sample);
        std::map<std::string, std::vector<std::pair<std::string, std::string>>> found;
        for (std::sregex_iterator m(pdd.begin(), pdd.end(), option), end; m != end; ++m)
            found[(*m)[1]].push_back({(*m)[2], (*m)[3]}); // kind: the name, its code
        const auto &papers = found["PageSize"], &sources = found["InputSlot"],
                   &res = found["Resolution"];
        ASSERT_TRUE(papers.size() >= 5 && sources.size() >= 2 && res.size() >= 2) << sample;
        for (size_t i = 0; i < papers.size() || i < sources.size(); ++i) {
            const auto &p = papers[i % papers.size()], &s = sources[i % sources.size()],
                       &r = res[i % res.size()];
            jobs.push_back(
                {{"-p", sample, "--paper", p.first, "--source", s.first, "--resolution", r.first},
                 {"ESC&u" + r.second + "D ", "ESC&l" + p.second + "A ", "ESC&l" + s.second + "H "},
                 {}});
        }
    }
    for (const auto &job : jobs) {
        std::vector<std::string> args = {"print", "-o", "job.prn"};
        args.insert(args.end(), job.args.begin(), job.args.end());
        std::string shown;
        for (const auto &a : job.args) shown += a + " ";
        SCOPED_TRACE(shown);
        Result r = Run(args);
        ASSERT_EQ(r.status, 0) << r.err;
        r = Run({"dump", "job.prn"});
        EXPECT_EQ(r.status, 0);
        const std::string &l = r.out;
        EXPECT_NE(l.substr(l.rfind("-- ")).find(" 0 unknown\n"), std::string::npos);
        EXPECT_EQ(Count(l, "universal exit language"), 2u);
        EXPECT_EQ(Count(l, "** stream ends"), 0u);
        EXPECT_EQ(FindInOrder(l, job.inOrder), -1) << l;
        for (const auto &[marker, n] : job.counts) EXPECT_EQ(Count(l, marker), n) << marker;
    }
}

// A printer that stops reading, or never answers, ends the job with a message that names the
// host and what timed out; nothing waits for ever.
TEST_F(CliTest, StalledPrinterTimesOut) {
    std::ofstream(dir_ / "noise.pgm", std::ios::binary) << Noise();
    int n = 0, small = 4096, lsock = BindLoopback(n);
    setsockopt(lsock, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    ASSERT_EQ(listen(lsock, 0), 0);
    const std::string port = "socket://127.0.0.1:" + std::to_string(n);
    // Accepted by the kernel, never read.
    auto t0 = std::chrono::steady_clock::now();
    Result r =
        Run({"print", "noise.pgm", "--resolution", "300dpi", "--timeout", "5,1", "-o", port});
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(10)); // not 300 s
    ExpectOneErrorLine(r, port + ": the printer took no data for 1 s (write timeout)");
    EXPECT_EQ(r.status, 1);

    // The backlog is full now (the last connection was never accepted): a new one waits.
    sockaddr_in addr{AF_INET, htons(n), {htonl(INADDR_LOOPBACK)}, {}};
    int filler = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    connect(filler, reinterpret_cast<sockaddr *>(&addr), sizeof addr);
    r = Run({"print", "--timeout", "1", "-o", port});
    ExpectOneErrorLine(r, "127.0.0.1 did not accept the connection within 1 s (connect timeout)");
    close(filler);
    close(lsock);
}

// Output lands where the user pointed: a device or FIFO is written in place and stays what it
// is, a link is followed and stays a link, a replaced file keeps its mode, and a raw TCP port
// (a listener on 127.0.0.1) gets the same bytes a file gets; a port nobody listens on is an
// error. (A failed write is among the mistakes in pages_print_test.)
TEST_F(CliTest, OutputGoesWhereItPoints) {
    ASSERT_EQ(Run({"print", "-o", "plain.prn"}).status, 0);
    const std::string job = ReadFile(dir_ / "plain.prn");
    fs::remove(dir_ / "plain.prn");

    ASSERT_EQ(Run({"print", "-o", "/dev/null"}).status, 0);
    EXPECT_TRUE(fs::is_character_file("/dev/null"));

    ASSERT_EQ(mkfifo((dir_ / "fifo").c_str(), 0600), 0);
    std::string fromFifo;
    std::thread reader([&] {
        std::ifstream f(dir_ / "fifo", std::ios::binary);
        fromFifo.assign(std::istreambuf_iterator<char>(f), {});
    });
    Result r = Run({"print", "-o", "fifo"});
    reader.join();
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(fromFifo, job);
    EXPECT_TRUE(fs::is_fifo(dir_ / "fifo"));

    fs::create_directory(dir_ / "sub");
    std::ofstream(dir_ / "sub" / "old.prn") << "old";
    fs::permissions(dir_ / "sub" / "old.prn", fs::perms::owner_read | fs::perms::owner_write);
    const uid_t owner = geteuid() == 0 ? 4321 : geteuid(); // the owner stays too
    ASSERT_EQ(chown((dir_ / "sub" / "old.prn").c_str(), owner, -1), 0);
    fs::create_symlink("sub/old.prn", dir_ / "link.prn");
    ASSERT_EQ(Run({"print", "-o", "link.prn"}).status, 0);
    EXPECT_TRUE(fs::is_symlink(dir_ / "link.prn"));
    EXPECT_EQ(ReadFile(dir_ / "sub" / "old.prn"), job);
    EXPECT_EQ(fs::status(dir_ / "sub" / "old.prn").permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_ / "sub"), {}), 1);
    struct stat st {};
    ASSERT_EQ(stat((dir_ / "sub" / "old.prn").c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, owner);

    auto printer = std::make_unique<Listener>();
    const std::string port = printer->uri();
    r = Run({"print", "-o", port});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(printer->Next(), job);
    printer.reset();
    ExpectOneErrorLine(Run({"print", "-o", port}), port); // the port is free again
}

// A job killed by a signal leaves no temporary file, and the tool dies of that signal.
TEST_F(CliTest, SignalsLeaveNoPartialFile) {
    std::ofstream(dir_ / "noise.pgm", std::ios::binary) << Noise();
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
        EXPECT_EQ(Finish(pid).signal, sig);
        EXPECT_EQ(Leftovers(), std::vector<std::string>{"noise.pgm"}) << sig;
    }
}

// Homes and folders a spooler's user or a careful administrator has: no usable home, a long
// or non-ASCII folder, a damaged compiled file. Each works or says exactly what is wrong.
TEST_F(CliTest, AwkwardHomesAndFoldersWork) {
    const Env noHome{{"Q417_HOME", ""}, {"XDG_CACHE_HOME", ""}, {"HOME", "/dev/null"}};
    Result r = Run({"print", "-o", "job.prn"}, noHome);
    EXPECT_EQ(r.status, 0) << r.err;

    // A home far longer than the library's room for a font path keeps its watermark.
    const std::string deep = (dir_ / std::string(60, 'h')).string();
    r = Run({"print", "--watermark", "1", "-o", "-"}, {{"Q417_HOME", deep}});
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
    fs::copy_file(pdd, dir_ / "\xe5\x8d\xb0.pdd"); // can't be compiled: read from its text
    EXPECT_EQ(Run({"print", "-p", "\xe5\x8d\xb0.pdd", "-o", "job.prn"}).status, 0);

    // A compiled file damaged after it was written (600 dpi turned into 65368) is rebuilt.
    fs::copy_file(pdd, dir_ / "d.pdd");
    ASSERT_EQ(Run({"pdd", "compile", "d.pdd"}).status, 0);
    std::string bdd = ReadFile(dir_ / "d.bdd");
    size_t dpi = bdd.find(std::string("\x58\x02\x00\x00\x58\x02\x00\x00", 8));
    ASSERT_NE(dpi, std::string::npos);
    bdd[dpi + 5] = '\xff';
    std::ofstream(dir_ / "d.bdd", std::ios::binary) << bdd;
    r = Run({"print", "-p", "d.pdd", "-o", "-"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("\x1b*t600R"), std::string::npos);
    EXPECT_EQ(ReadFile(dir_ / "d.bdd").find(bdd), std::string::npos);
}

// pdd check names each mistake by its line and key, and says whether the printer is usable:
// status 0 when it is (a resolution, papers, a source), 1 when not.
TEST_F(CliTest, PddCheckReportsKnownMistakesByLine) {
    // Not usable: no paper source (nosource), and not a printer description at all (notapdd).
    // They are kept as .txt: every .pdd under tests/data must make a printer.
    const fs::path data = fs::path(Q417_TEST_DATA) / "cli";
    for (auto [name, status] : {std::pair{"mistakes", 0}, {"nosource", 1}, {"notapdd", 1}}) {
        const std::string pdd = std::string(name) + ".pdd";
        fs::copy_file(data / (status ? std::string(name) + ".txt" : pdd), dir_ / pdd);
        Result r = Run({"pdd", "check", pdd});
        EXPECT_EQ(r.out, ReadFile(data / (std::string(name) + ".check"))) << name;
        EXPECT_EQ(r.status, status) << name;
    }
}

// pdd show of the colour sample. A4 there is 595.2 x 841.8 pt, its portrait area 17 18 578
// 823.8, its landscape one 18 14.4 577.2 827.4 turned.
TEST_F(CliTest, PddShowMatchesTheSampleFile) {
    const std::string sample = ReadFile(fs::path(Q417_SOURCE_DIR) / "share" / "qcl4100.pdd");
    std::ofstream(dir_ / "qcl4100.pdd", std::ios::binary) << sample;
    Result r = Run({"pdd", "show", "qcl4100.pdd"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, ReadFile(fs::path(Q417_TEST_DATA) / "cli" / "qcl4100.show"));

    // Text of the description is in its code page, shown as UTF-8; control bytes escaped.
    std::ofstream(dir_ / "cafe.pdd", std::ios::binary)
        << "*PDD-Lindgate: 1\n*Product: \"Caf\xe9 \x1b[31m\x81\"\n"
        << sample.substr(sample.find("*FileVersion"));
    r = Run({"pdd", "show", "cafe.pdd"});
    EXPECT_NE(r.out.find("model              Caf\xc3\xa9 \\x1b[31m\\x81\n"), std::string::npos)
        << r.out.substr(0, 200);
}

TEST_F(CliTest, DevmodeRoundTrip) {
    Result r = Run({"devmode", "new", "dm.bin", "--set", "PAPERSIZE=Letter", "--set",
                    "DDI_COPIES=3", "--set", "22=landscape", "--set", "DUPLEX=long"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(fs::file_size(dir_ / "dm.bin"), 404u);
    r = Run({"devmode", "get", "dm.bin", "PAPERSIZE", "COPIES", "PAGEORIENT", "DUPLEX", "PORT"});
    // Long-edge binding is the device mode's duplex 3.
    EXPECT_EQ(r.out, "PAPERSIZE=1\nCOPIES=3\nPAGEORIENT=1\nDUPLEX=3\nSTR_PORT=FILE:\n") << r.err;
    ExpectOneErrorLine(Run({"devmode", "set", "dm.bin", "PAPERWIDTH=5"}), "read");
    ExpectOneErrorLine(Run({"devmode", "set", "dm.bin", "NOSUCH=5"}), "NOSUCH");
    r = Run({"devmode", "show", "dm.bin"});
    EXPECT_NE(r.out.find("PAPERSIZE          1  Letter"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("PAPERWIDTH         6120  612.0 pt, 215.9 mm"), std::string::npos);
    r = Run({"devmode", "options", "source"});
    EXPECT_NE(r.out.find("Manual             manual feed"), std::string::npos) << r.out;
    r = Run({"devmode", "options", "--help"}); // each subcommand has its help
    EXPECT_NE(r.out.find("Usage: q417 devmode options"), std::string::npos) << r.out;
    // The device mode prints: a job from it is on Letter, landscape, three copies.
    ASSERT_EQ(Run({"print", "--devmode", "dm.bin", "-o", "job.prn"}).status, 0);
    r = Run({"dump", "job.prn"});
    EXPECT_EQ(FindInOrder(r.out, {"ESC&l3X", "page size: Letter", "orientation: landscape"}), -1)
        << r.out;
}

} // namespace
