// What the end-to-end tests share: programs and servers as children of the test, waits with a
// limit, temporary folders, files read and written whole, documents to print, a printer port on
// 127.0.0.1 that keeps what it is sent, and the tool's listing of a stream.
#pragma once

#include "pcl_decoder.h"

#include <arpa/inet.h>
#include <cairo-pdf.h>
#include <cups/cups.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

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
#include <vector>

namespace q417test {

using namespace std::chrono_literals;

inline std::string ReadFile(const std::string &path) {
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

// Starts a program (found on PATH) as a child of the test, its output in `log`, with `env` (the
// test's own if none is given); it ends with the test, however the test ends. Its id.
inline pid_t Spawn(const std::vector<std::string> &args, const std::string &log,
                   const std::vector<std::string> &env = {}) {
    std::vector<char *> argv, envp;
    for (auto &a : args) argv.push_back(const_cast<char *>(a.c_str()));
    for (auto &e : env) envp.push_back(const_cast<char *>(e.c_str()));
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        dup2(fd, 1);
        dup2(fd, 2);
        execvpe(argv[0], argv.data(), env.empty() ? environ : envp.data());
        _exit(127);
    }
    return pid;
}

// Runs a program to its end; its standard output and error in `out`. Its exit status (127 if it
// didn't start), or 128 + the signal that ended it.
inline int RunProgram(const std::vector<std::string> &args, std::string *out = nullptr) {
    std::string log = "/tmp/q417-run-" + std::to_string(getpid()) + ".out";
    int status = 0;
    waitpid(Spawn(args, log), &status, 0);
    if (out) *out = ReadFile(log);
    unlink(log.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
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
        std::filesystem::remove_all(dir, ec);
}

// The last 6000 bytes of a log.
inline std::string Tail(const std::string &log) {
    return log.substr(log.size() > 6000 ? log.size() - 6000 : 0);
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

// A printer port on 127.0.0.1: every connection's bytes are one stream, kept in the order the
// connections closed. Each connection is read by a thread of its own, so two printers can be
// sent to together.
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

    // The first stream not yet taken, waiting up to `timeout`; empty if none came.
    std::string Next(std::chrono::milliseconds timeout = 20s) {
        std::unique_lock lock(mutex_);
        if (!cv_.wait_for(lock, timeout, [&] { return streams_.size() > taken_; })) return {};
        return std::move(streams_[taken_++]);
    }
    // Every stream so far counts as taken.
    void Clear() {
        std::lock_guard lock(mutex_);
        taken_ = streams_.size();
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
        streams_.push_back(std::move(data));
        cv_.notify_all();
    }

    int port_ = 0, fd_ = -1;
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable cv_;
    std::vector<std::string> streams_;
    size_t taken_ = 0;
};

} // namespace q417test
