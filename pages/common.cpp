// Errors, whole files, files that appear only when complete, and UTF-16 text: what every front
// end of the page pipeline needs.
#include "common.h"
#include "format.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <mutex>
#include <pthread.h>
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

void FailSetting(const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    std::string what = VFormat(fmt, ap);
    va_end(ap);
    throw SettingError(what);
}

CopyResult CopyAll(int in, int out) {
    CopyResult r;
    char buf[65536];
    for (;;) {
        ssize_t got = read(in, buf, sizeof buf);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            r.err = errno, r.readFailed = true;
            return r;
        }
        if (got == 0) return r;
        for (ssize_t off = 0; off < got;) {
            ssize_t put = write(out, buf + off, static_cast<size_t>(got - off));
            if (put < 0 && errno == EINTR) continue;
            if (put < 0) {
                r.err = errno;
                return r;
            }
            off += put;
        }
        r.bytes += static_cast<size_t>(got);
    }
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

namespace {

// Temporary files to remove when a signal ends the process. The handler only reads this
// table: a slot is claimed (1), filled, then armed (2); it is disarmed before it is reused.
constexpr int kTempSlots = 16;
char g_tempPath[kTempSlots][PATH_MAX];
std::atomic<int> g_tempState[kTempSlots];
static_assert(std::atomic<int>::is_always_lock_free, "the signal handler reads these");

constexpr int kCleanupSignals[] = {SIGINT, SIGTERM, SIGHUP};

void OnCleanupSignal(int sig) {
    int saved = errno;
    RemoveTemporaryFiles();
    // Die of the signal as if nothing had caught it, so the parent sees why.
    signal(sig, SIG_DFL);
    raise(sig);
    errno = saved;
}

// Takes over the signals that would end the process, unless the process already handles or
// ignores them (nohup, a front end's own handler).
void InstallCleanupHandlers() {
    static std::once_flag once;
    std::call_once(once, [] {
        struct sigaction sa {};
        sa.sa_handler = OnCleanupSignal;
        sigemptyset(&sa.sa_mask);
        for (int sig : kCleanupSignals) sigaddset(&sa.sa_mask, sig);
        for (int sig : kCleanupSignals) {
            struct sigaction old {};
            if (sigaction(sig, nullptr, &old) == 0 && old.sa_handler == SIG_DFL &&
                !(old.sa_flags & SA_SIGINFO))
                sigaction(sig, &sa, nullptr);
        }
    });
}

int ArmTemporary(const std::string &path) {
    if (path.size() >= PATH_MAX) return -1;
    for (int i = 0; i < kTempSlots; ++i) {
        int free = 0;
        if (!g_tempState[i].compare_exchange_strong(free, 1)) continue;
        std::memcpy(g_tempPath[i], path.c_str(), path.size() + 1);
        g_tempState[i].store(2);
        return i;
    }
    return -1; // more open files than slots: these go only when their owner ends
}

void DisarmTemporary(int slot) {
    if (slot >= 0) g_tempState[slot].store(0);
}

mode_t CurrentUmask() {
    mode_t m = umask(077);
    umask(m);
    return m;
}

} // namespace

void RemoveTemporaryFiles() noexcept {
    for (int i = 0; i < kTempSlots; ++i)
        if (g_tempState[i].load() == 2) unlink(g_tempPath[i]);
}

std::string FollowLinks(const std::string &path) {
    std::string p = path;
    for (int hops = 0; hops < 40; ++hops) {
        char buf[PATH_MAX];
        ssize_t n = readlink(p.c_str(), buf, sizeof buf - 1);
        if (n < 0) return p; // not a link (or not there yet): this is the name
        std::string link(buf, static_cast<size_t>(n));
        size_t slash = p.rfind('/');
        if (link[0] != '/' && slash != std::string::npos) link = p.substr(0, slash + 1) + link;
        p = link;
    }
    Fail("%s: %s", path.c_str(), std::strerror(ELOOP));
}

AtomicFile::AtomicFile(const std::string &path) : path_(path), target_(FollowLinks(path)) {
    struct stat old {};
    bool exists = stat(target_.c_str(), &old) == 0 && S_ISREG(old.st_mode);
    temp_ = target_ + ".partXXXXXX";
    std::vector<char> name(temp_.begin(), temp_.end());
    name.push_back('\0');
    // The file is made and armed for the signal handler with the signals held back, so a
    // signal can't come between the two and leave the file behind.
    InstallCleanupHandlers();
    sigset_t hold, was;
    sigemptyset(&hold);
    for (int sig : kCleanupSignals) sigaddset(&hold, sig);
    pthread_sigmask(SIG_BLOCK, &hold, &was);
    fd_ = mkostemp(name.data(), O_CLOEXEC);
    int err = errno;
    if (fd_ >= 0) slot_ = ArmTemporary(name.data());
    pthread_sigmask(SIG_SETMASK, &was, nullptr);
    if (fd_ < 0) {
        temp_.clear();
        Fail("%s: %s", path.c_str(), std::strerror(err));
    }
    temp_ = name.data();
    // The file that is replaced keeps its mode and, for root, its owner; a new one gets what
    // the umask leaves of rw-rw-rw-, as any other file the user creates.
    mode_t mode = exists ? old.st_mode & 07777 : 0666 & ~CurrentUmask();
    if (exists && geteuid() == 0) (void)!fchown(fd_, old.st_uid, old.st_gid);
    fchmod(fd_, mode);
}

AtomicFile::~AtomicFile() {
    if (fd_ >= 0) close(fd_);
    if (!temp_.empty()) unlink(temp_.c_str());
    DisarmTemporary(slot_);
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
    int rc = close(fd_);
    fd_ = -1;
    if (rc != 0 && errno != EINTR) Fail("%s: %s", path_.c_str(), std::strerror(errno));
    if (rename(temp_.c_str(), target_.c_str()) != 0)
        Fail("%s: %s", path_.c_str(), std::strerror(errno));
    temp_.clear();
    DisarmTemporary(slot_);
    slot_ = -1;
}

std::string AbsolutePath(const std::string &path) {
    if (!path.empty() && path[0] == '/') return path;
    std::vector<char> cwd(PATH_MAX);
    if (!getcwd(cwd.data(), cwd.size())) Fail("current directory: %s", std::strerror(errno));
    return std::string(cwd.data()) + "/" + path;
}

std::string PrivateDir() {
    std::string dir = "/tmp/q417-" + std::to_string(getuid());
    if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST)
        Fail("%s: %s", dir.c_str(), std::strerror(errno));
    struct stat st {};
    if (lstat(dir.c_str(), &st) != 0) Fail("%s: %s", dir.c_str(), std::strerror(errno));
    if (!S_ISDIR(st.st_mode) || st.st_uid != getuid() || (st.st_mode & 077))
        Fail("%s: expected a directory of user %u with mode 0700, found %s of user %u with mode "
             "%04o: remove it",
             dir.c_str(), static_cast<unsigned>(getuid()),
             S_ISDIR(st.st_mode) ? "a directory" : "something else",
             static_cast<unsigned>(st.st_uid), static_cast<unsigned>(st.st_mode & 07777));
    return dir;
}

std::string ShortAlias(const std::string &path) {
    std::string target = AbsolutePath(path);
    uint32_t h = 2166136261u; // FNV-1a
    for (unsigned char c : target) h = (h ^ c) * 16777619u;
    char name[16];
    std::snprintf(name, sizeof name, "/%08x", h);
    std::string link = PrivateDir() + name;
    std::vector<char> old(PATH_MAX + 1);
    ssize_t n = readlink(link.c_str(), old.data(), PATH_MAX);
    if (n >= 0 && target == std::string(old.data(), static_cast<size_t>(n))) return link;
    // Links whose folder is gone (a test's, a removed queue's) go as a new one comes.
    if (DIR *d = opendir(PrivateDir().c_str())) {
        while (dirent *e = readdir(d)) {
            std::string entry = PrivateDir() + "/" + e->d_name;
            struct stat st {};
            if (std::strlen(e->d_name) == 8 && lstat(entry.c_str(), &st) == 0 &&
                S_ISLNK(st.st_mode) && stat(entry.c_str(), &st) != 0 && errno == ENOENT)
                unlink(entry.c_str());
        }
        closedir(d);
    }
    // Made beside and renamed over, so a run beside this one never sees it missing.
    std::string fresh = link + ".new" + std::to_string(getpid());
    unlink(fresh.c_str());
    if (symlink(target.c_str(), fresh.c_str()) != 0 || rename(fresh.c_str(), link.c_str()) != 0) {
        int err = errno;
        unlink(fresh.c_str());
        Fail("%s: a short name for %s: %s", link.c_str(), target.c_str(), std::strerror(err));
    }
    return link;
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
