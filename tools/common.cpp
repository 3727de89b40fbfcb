// Helpers shared by the subcommands: files, text conversion, the embedded sample files.
#include "tool.h"
#include "format.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace q417tool {

struct EmbeddedFile {
    const char *name;
    const unsigned char *data;
    size_t size;
};
extern const EmbeddedFile kEmbeddedFiles[];
extern const size_t kEmbeddedFileCount;

namespace {

void MakeDirs(const std::string &dir) {
    for (size_t i = 1; i <= dir.size(); ++i) {
        if (i != dir.size() && dir[i] != '/') continue;
        std::string part = dir.substr(0, i);
        if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST)
            Fail("%s: %s", part.c_str(), std::strerror(errno));
    }
}

// Rewrites a file only when its bytes differ, so the compiled configuration beside a PDD
// stays current across runs.
void WriteIfChanged(const std::string &path, const unsigned char *data, size_t size) {
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        std::vector<uint8_t> old;
        uint8_t buf[8192];
        ssize_t got;
        while ((got = read(fd, buf, sizeof buf)) > 0) old.insert(old.end(), buf, buf + got);
        close(fd);
        if (old.size() == size && std::memcmp(old.data(), data, size) == 0) return;
    }
    AtomicFile f(path);
    f.Write(data, size);
    f.Commit();
}

} // namespace

CLI::Validator Whole(bool (*ok)(long), const char *accepts) {
    return CLI::Validator(
        [ok, accepts](std::string &value) -> std::string {
            errno = 0;
            char *end = nullptr;
            long v = std::strtol(value.c_str(), &end, 10);
            if (value.empty() || *end || errno || !ok(v))
                return value + " is out of range: expected " + accepts;
            return {};
        },
        "");
}

namespace {

void WriteDefaults(const std::string &dir) {
    MakeDirs(dir);
    if (access(dir.c_str(), W_OK) != 0) Fail("%s: %s", dir.c_str(), std::strerror(errno));
    for (size_t i = 0; i < kEmbeddedFileCount; ++i)
        WriteIfChanged(dir + "/" + kEmbeddedFiles[i].name, kEmbeddedFiles[i].data,
                       kEmbeddedFiles[i].size);
}

} // namespace

// $Q417_HOME when set (it must work); else $XDG_CACHE_HOME/q417 or ~/.cache/q417; and when
// there is no usable home (a spooler's or daemon's user), the user's private folder in /tmp.
const Defaults &EmbeddedDefaults() {
    static Defaults d;
    if (!d.dir.empty()) return d;
    std::string dir;
    if (const char *h = getenv("Q417_HOME"); h && *h) {
        dir = h;
        try {
            WriteDefaults(dir);
        } catch (const Error &e) {
            Fail("Q417_HOME: %s (set it to a folder this user can write)", e.what());
        }
    } else {
        if (const char *x = getenv("XDG_CACHE_HOME"); x && *x)
            dir = std::string(x) + "/q417";
        else if (const char *home = getenv("HOME"); home && *home)
            dir = std::string(home) + "/.cache/q417";
        try {
            if (dir.empty()) Fail("no home");
            WriteDefaults(dir);
        } catch (const Error &) {
            dir = PrivateDir() + "/home";
            WriteDefaults(dir);
        }
    }
    d.dir = dir;
    d.colourPdd = dir + "/qcl4100.pdd";
    d.monoPdd = dir + "/qml2400.pdd";
    return d;
}

std::string LibraryWindowsDirectory(const std::string &dir) {
    // The library finds a watermark's font as WINDOWS\fonts\NAME in a buffer of 79
    // characters, NAME up to 39 of them: a longer folder loses the watermark.
    constexpr size_t kRoom = 79 - 7 - 39;
    bool plain = std::all_of(dir.begin(), dir.end(),
                             [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    if (dir.size() <= kRoom && plain && !dir.empty() && dir[0] == '/') return dir;
    std::string alias = ShortAlias(dir);
    if (alias.size() > kRoom) // a user id of more than 13 digits: never seen
        Fail("%s: the Windows folder needs a name of at most %zu characters for watermark "
             "fonts to be found",
             alias.c_str(), kRoom);
    return alias;
}

} // namespace q417tool
