// Errors, whole files, files that appear only when complete, and UTF-16 text: what every front
// end of the page pipeline needs.
#include "common.h"
#include "format.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace q417::pages {

void Fail(const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    std::string what = VFormat(fmt, ap);
    va_end(ap);
    throw Error(what);
}

std::vector<uint8_t> ReadWholeFile(const std::string &path) {
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) Fail("%s: %s", path.c_str(), std::strerror(errno));
    struct stat st {};
    if (fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        close(fd);
        Fail("%s: is a directory", path.c_str());
    }
    std::vector<uint8_t> data;
    uint8_t buf[65536];
    for (;;) {
        ssize_t got = read(fd, buf, sizeof buf);
        if (got < 0) {
            int err = errno;
            close(fd);
            Fail("%s: %s", path.c_str(), std::strerror(err));
        }
        if (got == 0) break;
        data.insert(data.end(), buf, buf + got);
    }
    close(fd);
    return data;
}

AtomicFile::AtomicFile(const std::string &path) : path_(path) {
    temp_ = path + ".partXXXXXX";
    std::vector<char> name(temp_.begin(), temp_.end());
    name.push_back('\0');
    fd_ = mkstemp(name.data());
    if (fd_ < 0) Fail("%s: %s", path.c_str(), std::strerror(errno));
    temp_ = name.data();
    fchmod(fd_, 0644);
}

AtomicFile::~AtomicFile() {
    if (fd_ >= 0) close(fd_);
    if (!temp_.empty()) unlink(temp_.c_str());
}

void AtomicFile::Write(const void *data, size_t size) {
    const char *p = static_cast<const char *>(data);
    while (size) {
        ssize_t put = write(fd_, p, size);
        if (put < 0) {
            if (errno == EINTR) continue;
            Fail("%s: %s", path_.c_str(), std::strerror(errno));
        }
        p += put;
        size -= static_cast<size_t>(put);
    }
}

void AtomicFile::Commit() {
    if (fsync(fd_) != 0 && errno != EINVAL) Fail("%s: %s", path_.c_str(), std::strerror(errno));
    close(fd_);
    fd_ = -1;
    if (rename(temp_.c_str(), path_.c_str()) != 0)
        Fail("%s: %s", path_.c_str(), std::strerror(errno));
    temp_.clear();
}

std::u16string Widen(const std::string &s) {
    std::u16string w;
    for (size_t i = 0; i < s.size();) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        char32_t cp = c;
        size_t len = 1;
        if (c >= 0xF0 && i + 3 < s.size())
            cp = (c & 0x07u) << 18 | (s[i + 1] & 0x3Fu) << 12 | (s[i + 2] & 0x3Fu) << 6 |
                 (s[i + 3] & 0x3Fu),
            len = 4;
        else if (c >= 0xE0 && i + 2 < s.size())
            cp = (c & 0x0Fu) << 12 | (s[i + 1] & 0x3Fu) << 6 | (s[i + 2] & 0x3Fu), len = 3;
        else if (c >= 0xC0 && i + 1 < s.size())
            cp = (c & 0x1Fu) << 6 | (s[i + 1] & 0x3Fu), len = 2;
        i += len;
        if (cp >= 0x10000) {
            cp -= 0x10000;
            w += static_cast<char16_t>(0xD800 + (cp >> 10));
            w += static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
        } else {
            w += static_cast<char16_t>(cp);
        }
    }
    return w;
}

std::string Narrow(const char16_t *s, size_t n) {
    std::string out;
    for (size_t i = 0; i < n && s[i]; ++i) {
        char32_t cp = s[i];
        if (cp >= 0xD800 && cp < 0xDC00 && i + 1 < n && s[i + 1] >= 0xDC00 && s[i + 1] < 0xE000)
            cp = 0x10000 + ((cp - 0xD800) << 10) + (s[++i] - 0xDC00);
        if (cp < 0x80) {
            out += static_cast<char>(cp);
        } else if (cp < 0x800) {
            out += static_cast<char>(0xC0 | cp >> 6);
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else if (cp < 0x10000) {
            out += static_cast<char>(0xE0 | cp >> 12);
            out += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | cp >> 18);
            out += static_cast<char>(0x80 | (cp >> 12 & 0x3F));
            out += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        }
    }
    return out;
}

} // namespace q417::pages
