// What the tests that run programs share: programs and servers as children of the test, waits
// with a limit, temporary folders, files read and written whole, documents to print, a printer
// port on 127.0.0.1 that keeps what it is sent, the tool's listing of a stream, and q417 run as
// a user runs it.
#pragma once

#include "pcl_decoder.h"

#include <arpa/inet.h>
#include <cairo-pdf.h>
#include <cups/cups.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace q417test {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

inline std::string ReadFile(const fs::path &path) {
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

// Changes to the test's environment for a child: an empty value unsets, a later change wins.
using Env = std::vector<std::pair<std::string, std::string>>;

// Starts a program (found on PATH) as a child of the test, in `dir` if one is given, its output
// in `out` and its errors in `err` (with the output if none); it ends with the test, however
// the test ends. Its id.
inline pid_t Spawn(const std::vector<std::string> &args, const std::string &out,
                   const Env &env = {}, const std::string &err = "", const std::string &dir = "") {
    std::vector<std::string> vars;
    for (char **e = environ; *e; ++e) vars.push_back(*e);
    for (const auto &[name, value] : env) {
        std::erase_if(vars, [&](const std::string &v) { return v.rfind(name + "=", 0) == 0; });
        if (!value.empty()) vars.push_back(name + "=" + value);
    }
    std::vector<char *> argv, envp;
    for (auto &a : args) argv.push_back(const_cast<char *>(a.c_str()));
    for (auto &v : vars) envp.push_back(v.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        int o = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        int e = err.empty() ? o : open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (!dir.empty() && chdir(dir.c_str()) != 0) _exit(127);
        dup2(o, 1);
        dup2(e, 2);
        execvpe(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    return pid;
}

struct Result {
    int status = -1; // -1 when a signal ended the run
    int signal = 0;
    long peakKb = 0; // the process's maximum resident set
    std::string out, err;
};

// Where a program run to its end leaves its output and errors while it runs.
inline std::string RunLog(const char *which) {
    return "/tmp/q417-run-" + std::to_string(getpid()) + which;
}

// Starts a program to be run to its end: its output to `out`, if given, instead of the one
// Finish() reads.
inline pid_t Start(const std::vector<std::string> &args, const Env &env = {},
                   const std::string &dir = "", const std::string &out = "") {
    return Spawn(args, out.empty() ? RunLog(".out") : out, env, RunLog(".err"), dir);
}

inline Result Finish(pid_t pid) {
    Result r;
    int st = 0;
    rusage ru{};
    wait4(pid, &st, 0, &ru);
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    r.signal = WIFSIGNALED(st) ? WTERMSIG(st) : 0;
    r.peakKb = ru.ru_maxrss;
    for (auto [which, text] : {std::pair{".out", &r.out}, {".err", &r.err}}) {
        *text = ReadFile(RunLog(which));
        unlink(RunLog(which).c_str());
    }
    return r;
}

inline Result RunProgram(const std::vector<std::string> &args, const Env &env = {}) {
    return Finish(Start(args, env));
}

// Asks `done` every 100 ms until it answers true (then true) or `limit` has passed (false).
template <typename F>
bool WaitFor(F done, std::chrono::milliseconds limit) {
    auto until = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() > until) return false;
        std::this_thread::sleep_for(100ms);
    }
    return true;
}

// Waits up to 15 s for an HTTP server at `host` (a name, or a socket's path) and `port`.
inline bool Answers(const std::string &host, int port) {
    return WaitFor(
        [&] {
            http_t *h = httpConnect2(host.c_str(), port, nullptr, AF_UNSPEC, HTTP_ENCRYPTION_NEVER,
                                     1, 1000, nullptr);
            httpClose(h);
            return h != nullptr;
        },
        15s);
}

// Ends a child of the test by its id: SIGTERM, then SIGKILL after `grace`.
inline void StopChild(pid_t pid, std::chrono::milliseconds grace) {
    if (pid <= 0) return;
    kill(pid, SIGTERM);
    if (!WaitFor([&] { return waitpid(pid, nullptr, WNOHANG) != 0; }, grace)) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
}

// A new folder under /tmp named after `prefix`; empty if none could be made.
inline std::string MakeTempDir(const std::string &prefix) {
    std::string tmpl = "/tmp/" + prefix + "-XXXXXX";
    return mkdtemp(tmpl.data()) ? tmpl : std::string();
}

// Removes a test's folder, or keeps it for a look when a test failed.
inline void RemoveUnlessFailed(const std::string &dir) {
    std::error_code ec;
    if (::testing::UnitTest::GetInstance()->failed_test_count() > 0)
        fprintf(stderr, "kept for a look: %s\n", dir.c_str());
    else
        fs::remove_all(dir, ec);
}

// After a failed test, the last 6000 bytes of a server's log.
inline void ShowLogIfFailed(const std::string &title, const std::string &path) {
    if (!::testing::Test::HasFailure()) return;
    const std::string log = ReadFile(path);
    fprintf(stderr, "--- %s ---\n%s\n", title.c_str(),
            log.substr(log.size() > 6000 ? log.size() - 6000 : 0).c_str());
}

// `text` with each mark replaced by its value.
inline std::string Filled(std::string text,
                          const std::vector<std::pair<std::string, std::string>> &marks) {
    for (const auto &[mark, value] : marks)
        for (size_t at; (at = text.find(mark)) != std::string::npos;)
            text.replace(at, mark.size(), value);
    return text;
}

// Writes a new file, never through a link that `path` may be.
inline void WriteFile(const std::string &path, const std::string &data, mode_t mode = 0644) {
    unlink(path.c_str());
    std::ofstream(path, std::ios::binary) << data;
    chmod(path.c_str(), mode);
}

inline size_t Count(const std::string &text, const std::string &what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

// A PDF of `pages` A4 pages, each with a blue bar and its number in large type.
inline void MakePdf(const std::string &path, int pages) {
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

// A PNG of a red disc on white.
inline void MakePng(const std::string &path) {
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

// The tool's listing of a printer stream.
inline std::string Decode(const std::string &stream) {
    std::string listing;
    q417tool::DecodeStream(reinterpret_cast<const uint8_t *>(stream.data()), stream.size(),
                           listing);
    return listing;
}

// The job of the issue as the printer gets it: three pages four up on one A4 sheet, bound on
// the long edge, in PJL; the watermark's font sent once, its label on each page; each page in
// a cell of its own, its label at the cell's centre.
inline void ExpectFourUpSheet(const std::string &stream, const std::string &label) {
    ASSERT_GT(stream.size(), 9u);
    EXPECT_EQ(stream.rfind("\x1b%-12345X@PJL", 0), 0u);
    EXPECT_EQ(stream.substr(stream.size() - 9), "\x1b%-12345X");
    std::string listing = Decode(stream);
    EXPECT_NE(listing.find("@PJL ENTER LANGUAGE=PCL"), std::string::npos);
    for (const char *once : {"ESC&l26A ", "ESC&l1S ", "picture frame anchor point", "font header",
                             "name \"DejaVu Sans\""})
        EXPECT_EQ(Count(listing, once), 1u) << once;
    EXPECT_EQ(Count(listing, "label \"" + label + "\""), 3u);
    std::set<std::string> centres, origins; // of the labels and of the pages' rasters
    for (size_t p = listing.find("  IW "); p != std::string::npos;
         p = listing.find("  IW ", p + 1)) {
        size_t pa = listing.find("PA", p);
        centres.insert(listing.substr(pa, listing.find(' ', pa) - pa));
    }
    EXPECT_EQ(centres.size(), 3u);
    std::istringstream lines(listing);
    std::string line, x, y;
    while (std::getline(lines, line)) {
        if (line.find("horizontal cursor position") != std::string::npos) x = line.substr(10, 12);
        if (line.find("vertical cursor position") != std::string::npos) y = line.substr(10, 12);
        if (line.find("start raster graphics") != std::string::npos) origins.insert(x + y);
    }
    EXPECT_EQ(Count(listing, "start raster graphics"), 3u);
    EXPECT_EQ(origins.size(), 3u) << listing.substr(0, 4000);
}

// A socket bound to a port of 127.0.0.1 that the system chose, and the port; -1 on failure.
inline int BindLoopback(int &port) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    if (bind(fd, reinterpret_cast<sockaddr *>(&a), sizeof a) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr *>(&a), &len) != 0) {
        close(fd);
        return -1;
    }
    port = ntohs(a.sin_port);
    return fd;
}

// A port of 127.0.0.1 nothing listens on (at the time of asking).
inline int FreePort() {
    int port = -1;
    close(BindLoopback(port));
    return port;
}

// A printer port on 127.0.0.1: every connection's bytes are one stream (one that sent nothing
// is none), kept in the order the connections closed. Each connection is read by a thread of
// its own, so a connection held open (a hung job) does not hold back the next one.
class Listener {
  public:
    Listener() : fd_(BindLoopback(port_)) {
        if (fd_ < 0 || listen(fd_, 8) != 0) throw std::runtime_error("listener");
        thread_ = std::thread([this] {
            std::vector<std::thread> readers;
            for (int c; (c = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;)
                readers.emplace_back([this, c] { Read(c); });
            for (auto &r : readers) r.join();
        });
    }
    ~Listener() {
        shutdown(fd_, SHUT_RDWR); // ends the accept; the senders have ended before
        thread_.join();
        close(fd_);
    }

    int port() const { return port_; }
    std::string uri() const { return "socket://127.0.0.1:" + std::to_string(port_); }

    // The first stream not yet taken, waiting up to `timeout`; empty if none came.
    std::string Next(std::chrono::milliseconds timeout = 20s) {
        std::unique_lock lock(mutex_);
        if (!cv_.wait_for(lock, timeout, [&] { return streams_.size() > taken_; })) return {};
        return std::move(streams_[taken_++]);
    }

    // The most connections open at once, over every listener.
    static inline std::atomic<int> openNow{0}, openMost{0};

  private:
    void Read(int c) {
        int n = ++openNow;
        for (int m = openMost; n > m && !openMost.compare_exchange_weak(m, n);) {
        }
        std::string data;
        char buf[65536];
        for (ssize_t got; (got = read(c, buf, sizeof buf)) != 0;) {
            if (got > 0) data.append(buf, static_cast<size_t>(got));
            if (got < 0 && errno != EINTR) break;
        }
        close(c);
        --openNow;
        std::lock_guard lock(mutex_);
        if (!data.empty()) streams_.push_back(std::move(data));
        cv_.notify_all();
    }

    int port_ = 0, fd_ = -1;
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable cv_;
    std::vector<std::string> streams_;
    size_t taken_ = 0;
};

#ifdef Q417_TOOL
// A failure of q417 reads as one line: "q417: " and what names the cause.
inline void ExpectOneErrorLine(const Result &r, const std::string &mention) {
    EXPECT_NE(r.status, 0);
    ASSERT_FALSE(r.err.empty());
    EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
    EXPECT_EQ(r.err.rfind("q417: ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find(mention), std::string::npos) << r.err;
}

// Each test runs the built q417 in a private folder under /tmp, removed afterwards, with its
// home in the folder's "home".
class CliTest : public ::testing::Test {
  protected:
    ~CliTest() override { fs::remove_all(dir_); }

    pid_t Start(const std::vector<std::string> &args, Env env = {}, const std::string &out = "") {
        std::vector<std::string> argv{Q417_TOOL};
        argv.insert(argv.end(), args.begin(), args.end());
        env.insert(env.begin(), {{"Q417_HOME", (dir_ / "home").string()}, {"Q417_WINDIR", ""}});
        return q417test::Start(argv, env, dir_, out);
    }
    Result Run(const std::vector<std::string> &args, const Env &env = {},
               const std::string &out = "") {
        return Finish(Start(args, env, out));
    }

    // Files the tool left in the folder, apart from its home.
    std::vector<std::string> Leftovers() {
        std::vector<std::string> names;
        for (const auto &e : fs::directory_iterator(dir_))
            if (e.path().filename() != "home") names.push_back(e.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    fs::path dir_ = MakeTempDir("q417cli");
};
#endif

} // namespace q417test
