// Output sinks for printer streams.
#include "sink.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <linux/sockios.h>

namespace q417::pages {

namespace {

constexpr int kMaxTimeout = 24 * 3600;

[[noreturn]] void BadTimeouts(const std::string &text) {
    FailSetting(
        "--timeout \"%s\": expected SECONDS for both limits, or CONNECT,WRITE (either may be "
        "left out), whole seconds from 0 to %d; 0 waits for ever",
        text.c_str(), kMaxTimeout);
}

int ParseSeconds(const std::string &text, int fallback, const std::string &whole) {
    if (text.empty()) return fallback;
    if (text.find_first_not_of("0123456789") != std::string::npos || text.size() > 6)
        BadTimeouts(whole);
    int v = std::stoi(text);
    if (v > kMaxTimeout) BadTimeouts(whole);
    return v;
}

// Milliseconds for poll(): -1 waits for ever.
int PollMs(int seconds) {
    return seconds > 0 ? seconds * 1000 : -1;
}

} // namespace

SinkTimeouts ParseTimeouts(const std::string &text) {
    SinkTimeouts t;
    size_t comma = text.find(',');
    if (text.empty() || text == "," ||
        (comma != std::string::npos && text.find(',', comma + 1) != std::string::npos))
        BadTimeouts(text);
    if (comma == std::string::npos) {
        t.connect = t.write = ParseSeconds(text, 0, text);
    } else {
        t.connect = ParseSeconds(text.substr(0, comma), t.connect, text);
        t.write = ParseSeconds(text.substr(comma + 1), t.write, text);
    }
    return t;
}

Sink::Sink(const std::string &port, SinkTimeouts timeouts) : name_(port) {
    if (port == "-") {
        fd_ = 1;
        name_ = "standard output";
        return;
    }
    if (port.rfind("socket://", 0) == 0) {
        Connect(port.substr(9), timeouts);
        return;
    }
    if (port.empty()) Fail("no output given");
    // A device, FIFO or socket that exists is the destination itself: write into it and
    // leave it where it is. Anything else becomes a regular file, whole or not at all.
    struct stat st {};
    if (stat(port.c_str(), &st) == 0 && !S_ISREG(st.st_mode)) {
        if (S_ISDIR(st.st_mode)) Fail("%s: %s", port.c_str(), std::strerror(EISDIR));
        fd_ = open(port.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC);
        if (fd_ < 0) Fail("%s: %s", port.c_str(), std::strerror(errno));
        ownFd_ = true;
        return;
    }
    file_ = std::make_unique<AtomicFile>(port);
    fd_ = file_->fd();
}

Sink::Sink(int fd, std::string name) : name_(std::move(name)), fd_(fd) {}

Sink::~Sink() {
    if (ownFd_) close(fd_);
}

int Sink::Write(void *ctx, const void *data, uint32_t size) noexcept {
    auto *s = static_cast<Sink *>(ctx);
    if (!s->error_) s->Put(static_cast<const uint8_t *>(data), size);
    return s->error_ ? 0 : 1;
}

void Sink::Append(const void *data, size_t size) {
    if (!error_) Put(static_cast<const uint8_t *>(data), size);
    Check();
}

void Sink::Put(const uint8_t *p, size_t n) {
    if (tap_) tap_(p, n);
    while (n && !error_) {
        ssize_t put = socket_ ? send(fd_, p, n, MSG_NOSIGNAL) : write(fd_, p, n);
        if (put < 0) {
            if (errno == EINTR) continue;
            if ((errno == EAGAIN || errno == EWOULDBLOCK) && WaitWritable()) continue;
            if (!error_) error_ = errno;
            break;
        }
        p += put;
        n -= static_cast<size_t>(put);
        written_ += static_cast<uint64_t>(put);
    }
}

// A connection's descriptor is non-blocking: wait for room, as long as the limit allows.
bool Sink::WaitWritable() {
    if (!socket_) { // someone else's non-blocking descriptor: wait for ever, as a write would
        pollfd p{fd_, POLLOUT, 0};
        return poll(&p, 1, -1) >= 0 || errno == EINTR;
    }
    for (;;) {
        pollfd p{fd_, POLLOUT, 0};
        int rc = poll(&p, 1, PollMs(writeTimeout_));
        if (rc > 0) return true; // writable, or an error the next send() reports
        if (rc < 0 && errno == EINTR) continue;
        if (rc == 0) {
            stall_ = Stall::Write;
            error_ = ETIMEDOUT;
        } else {
            error_ = errno;
        }
        return false;
    }
}

void Sink::Check() const {
    if (!error_) return;
    if (stall_ == Stall::Write)
        Fail("%s: the printer took no data for %d s (write timeout)", name_.c_str(), writeTimeout_);
    Fail("%s: %s", name_.c_str(), std::strerror(error_));
}

void Sink::Finish() {
    Check();
    if (file_) {
        file_->Commit();
        fd_ = -1;
        return;
    }
    if (socket_) {
        if (shutdown(fd_, SHUT_WR) != 0) error_ = errno;
        Drain();
        Check();
        return;
    }
    // A device or pipe: what the kernel still holds for a disk file must reach it.
    if (fd_ >= 0 && fsync(fd_) != 0 && errno != EINVAL && errno != EROFS && errno != ENOTSUP)
        error_ = errno;
    Check();
}

// The end of a job is only done when the printer has taken it: wait while the bytes still
// queued on the connection go down, and give up when they stop going down.
void Sink::Drain() {
    int queued = 0, last = -1, waited = 0;
    while (!error_ && ioctl(fd_, SIOCOUTQ, &queued) == 0 && queued > 0) {
        if (queued != last) last = queued, waited = 0;
        if (writeTimeout_ > 0 && waited >= writeTimeout_ * 1000) {
            stall_ = Stall::Write;
            error_ = ETIMEDOUT;
            return;
        }
        // Up to 50 ms a look, so the limit counts from the last byte taken.
        pollfd p{fd_, 0, 0};
        if (poll(&p, 1, 50) > 0 && (p.revents & (POLLERR | POLLHUP))) {
            // Both ends are shut: whatever is still queued can't arrive any more.
            if (ioctl(fd_, SIOCOUTQ, &queued) == 0 && queued == 0) return;
            int err = 0;
            socklen_t len = sizeof err;
            getsockopt(fd_, SOL_SOCKET, SO_ERROR, &err, &len);
            error_ = err ? err : EPIPE;
            return;
        }
        waited += 50;
    }
}

void Sink::Connect(const std::string &hostPort, SinkTimeouts timeouts) {
    socket_ = true;
    writeTimeout_ = timeouts.write;
    size_t colon = hostPort.rfind(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == hostPort.size())
        Fail("socket://%s: expected socket://HOST:PORT", hostPort.c_str());
    std::string host = hostPort.substr(0, colon), port = hostPort.substr(colon + 1);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *res = nullptr;
    int rc = getaddrinfo(host.c_str(), port.c_str(), &hints, &res);
    if (rc != 0) Fail("%s: %s", name_.c_str(), gai_strerror(rc));
    int err = 0;
    bool timedOut = false;
    for (addrinfo *a = res; a && fd_ < 0; a = a->ai_next) {
        int fd =
            socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, a->ai_protocol);
        if (fd < 0) {
            err = errno;
            continue;
        }
        if (connect(fd, a->ai_addr, a->ai_addrlen) == 0) {
            fd_ = fd;
            break;
        }
        err = errno;
        if (err == EINPROGRESS) {
            pollfd p{fd, POLLOUT, 0};
            int ready;
            do ready = poll(&p, 1, PollMs(timeouts.connect));
            while (ready < 0 && errno == EINTR);
            socklen_t len = sizeof err;
            if (ready == 0) {
                err = ETIMEDOUT, timedOut = true;
            } else if (ready < 0) {
                err = errno;
            } else if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &len) == 0 && err == 0) {
                fd_ = fd;
                break;
            }
        }
        close(fd);
    }
    freeaddrinfo(res);
    if (fd_ < 0) {
        if (timedOut)
            Fail("%s: %s did not accept the connection within %d s (connect timeout)",
                 name_.c_str(), host.c_str(), timeouts.connect);
        Fail("%s: %s", name_.c_str(), std::strerror(err));
    }
    ownFd_ = true;
}

} // namespace q417::pages
