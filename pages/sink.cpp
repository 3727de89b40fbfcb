// Output sinks for printer streams.
#include "sink.h"

#include <cerrno>
#include <cstring>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

namespace q417::pages {

Sink::Sink(const std::string &port) : port_(port) {
    if (port == "-") {
        fd_ = 1;
    } else if (port.rfind("socket://", 0) == 0) {
        fd_ = Connect(port.substr(9));
        ownFd_ = true;
    } else {
        file_ = std::make_unique<AtomicFile>(port);
        fd_ = file_->fd();
    }
}
Sink::~Sink() {
    if (ownFd_) close(fd_);
}
int Sink::Write(void *ctx, const void *data, uint32_t size) {
    auto *s = static_cast<Sink *>(ctx);
    const char *p = static_cast<const char *>(data);
    while (size && !s->error_) {
        ssize_t put = send(s->fd_, p, size, MSG_NOSIGNAL);
        if (put < 0 && errno == ENOTSOCK) put = write(s->fd_, p, size);
        if (put < 0) {
            if (errno == EINTR) continue;
            s->error_ = errno;
            break;
        }
        p += put;
        size -= static_cast<uint32_t>(put);
    }
    return s->error_ ? 0 : 1;
}
void Sink::Finish() {
    if (error_) Fail("%s: write failed: %s", port_.c_str(), std::strerror(error_));
    if (file_) file_->Commit();
    if (ownFd_ && shutdown(fd_, SHUT_WR) != 0)
        Fail("%s: %s", port_.c_str(), std::strerror(errno));
}
void Sink::Check() const {
    if (error_) Fail("%s: write failed: %s", port_.c_str(), std::strerror(error_));
}

int Sink::Connect(const std::string &hostPort) {
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
    if (rc != 0) Fail("socket://%s: %s", hostPort.c_str(), gai_strerror(rc));
    int err = 0;
    for (addrinfo *a = res; a; a = a->ai_next) {
        int fd = socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC, a->ai_protocol);
        if (fd < 0) {
            err = errno;
            continue;
        }
        if (connect(fd, a->ai_addr, a->ai_addrlen) == 0) {
            freeaddrinfo(res);
            return fd;
        }
        err = errno;
        close(fd);
    }
    freeaddrinfo(res);
    Fail("socket://%s: %s", hostPort.c_str(), std::strerror(err));
}

} // namespace q417::pages
