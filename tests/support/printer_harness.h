// What the end-to-end tests share: child programs run to their end, temporary folders, files
// read and written whole, a free port and a printer port on 127.0.0.1 that keeps what it is
// sent, and the tool's listing of a stream.
#pragma once

#include "pcl_decoder.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

extern char **environ;

namespace q417test {

// Runs a program (found on PATH, with the test's environment) to its end; its standard output
// and error in `out`. Its exit status, 128 + the signal that ended it, or -1 if it didn't start.
inline int RunProgram(const std::vector<std::string> &args, std::string *out = nullptr) {
    int p[2];
    if (pipe2(p, O_CLOEXEC) != 0) return -1;
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, p[1], 1);
    posix_spawn_file_actions_adddup2(&fa, p[1], 2);
    std::vector<char *> argv;
    for (auto &a : args) argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    pid_t pid;
    int rc = posix_spawnp(&pid, argv[0], &fa, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&fa);
    close(p[1]);
    std::string text;
    char buf[4096];
    for (ssize_t got; rc == 0 && (got = read(p[0], buf, sizeof buf)) != 0;) {
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) break;
        text.append(buf, static_cast<size_t>(got));
    }
    close(p[0]);
    if (out) *out = text;
    if (rc != 0) return -1;
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Ends a child of the test by its id: SIGTERM, then SIGKILL after `grace`.
inline void StopChild(pid_t pid, std::chrono::milliseconds grace) {
    if (pid <= 0) return;
    kill(pid, SIGTERM);
    int status = 0;
    auto until = std::chrono::steady_clock::now() + grace;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > until) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

// A new folder under /tmp named after `prefix`; empty if none could be made.
inline std::string MakeTempDir(const std::string &prefix) {
    std::string tmpl = "/tmp/" + prefix + "-XXXXXX";
    return mkdtemp(tmpl.data()) ? tmpl : std::string();
}

inline void RemoveTree(const std::string &dir) {
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
}

inline std::string ReadFile(const std::string &path) {
    std::ifstream f(path, std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

inline void WriteFile(const std::string &path, const std::string &data, mode_t mode = 0644) {
    std::ofstream(path, std::ios::binary) << data;
    chmod(path.c_str(), mode);
}

inline size_t Count(const std::string &text, const std::string &what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

// The tool's listing of a printer stream.
inline std::string Decode(const std::string &stream) {
    std::string listing;
    q417tool::DecodeStream(reinterpret_cast<const uint8_t *>(stream.data()), stream.size(),
                           listing);
    return listing;
}

// A port of 127.0.0.1 nothing listens on (at the time of asking); -1 if none was given.
inline int FreePort() {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    int port = -1;
    if (bind(fd, reinterpret_cast<sockaddr *>(&a), sizeof a) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr *>(&a), &len) == 0)
        port = ntohs(a.sin_port);
    close(fd);
    return port;
}

// A printer port on 127.0.0.1: every connection's bytes are one stream, kept in the order the
// connections closed. Connections are served at once, so two printers can be sent to together.
class Listener {
  public:
    Listener() {
        fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        int one = 1;
        setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof a;
        if (bind(fd_, reinterpret_cast<sockaddr *>(&a), sizeof a) != 0 || listen(fd_, 8) != 0 ||
            getsockname(fd_, reinterpret_cast<sockaddr *>(&a), &len) != 0) {
            close(fd_);
            throw std::runtime_error("listener");
        }
        port_ = ntohs(a.sin_port);
        thread_ = std::thread([this] { Run(); });
    }
    ~Listener() {
        stop_ = true;
        thread_.join();
        close(fd_);
    }
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    int port() const { return port_; }

    // How many streams have arrived.
    size_t count() {
        std::lock_guard lock(mutex_);
        return streams_.size();
    }
    // Stream `n` (from 0), waiting up to `timeout` for it; empty if it didn't come.
    std::string Stream(size_t n, std::chrono::milliseconds timeout) {
        std::unique_lock lock(mutex_);
        cv_.wait_for(lock, timeout, [&] { return streams_.size() > n; });
        return streams_.size() > n ? streams_[n] : std::string();
    }
    // The first stream not yet taken, waiting up to `timeout`; empty if none.
    std::string Next(std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
        std::unique_lock lock(mutex_);
        if (!cv_.wait_for(lock, timeout, [&] { return streams_.size() > taken_; })) return {};
        return std::move(streams_[taken_++]);
    }
    // Every stream so far counts as taken.
    void Clear() {
        std::lock_guard lock(mutex_);
        for (; taken_ < streams_.size(); ++taken_) streams_[taken_].clear();
    }

    // The most connections open at once, over every listener, since the last Reset.
    static inline std::atomic<int> openNow{0}, openMost{0};
    static void Reset() { openMost = openNow.load(); }

  private:
    void Run() {
        std::vector<std::pair<int, std::string>> open;
        while (!stop_) {
            std::vector<pollfd> fds{{fd_, POLLIN, 0}};
            for (auto &c : open) fds.push_back({c.first, POLLIN, 0});
            if (poll(fds.data(), fds.size(), 100) <= 0) continue;
            if (fds[0].revents & POLLIN) {
                int c = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
                if (c >= 0) {
                    open.emplace_back(c, std::string());
                    int n = ++openNow;
                    for (int m = openMost; n > m && !openMost.compare_exchange_weak(m, n);) {
                    }
                }
            }
            for (size_t i = 1; i < fds.size(); ++i) {
                if (!fds[i].revents) continue;
                auto &[c, data] = open[i - 1];
                char buf[65536];
                ssize_t got = read(c, buf, sizeof buf);
                if (got > 0) {
                    data.append(buf, static_cast<size_t>(got));
                    continue;
                }
                if (got < 0 && errno == EINTR) continue;
                close(c);
                --openNow;
                {
                    std::lock_guard lock(mutex_);
                    streams_.push_back(std::move(data));
                }
                cv_.notify_all();
                c = -1;
            }
            std::erase_if(open, [](const auto &c) { return c.first < 0; });
        }
        for (auto &c : open) close(c.first);
    }

    int fd_ = -1, port_ = 0;
    std::atomic<bool> stop_{false};
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable cv_;
    std::vector<std::string> streams_;
    size_t taken_ = 0;
};

} // namespace q417test
