// Helpers shared by the subcommands: files, text conversion, the embedded sample files.
#include "tool.h"
#include "format.h"

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

// $Q417_HOME, else $XDG_CACHE_HOME/q417, else ~/.cache/q417, else a directory under /tmp.
std::string DefaultsDir() {
    if (const char *h = getenv("Q417_HOME"); h && *h) return h;
    std::string base;
    if (const char *x = getenv("XDG_CACHE_HOME"); x && *x)
        base = x;
    else if (const char *home = getenv("HOME"); home && *home)
        base = std::string(home) + "/.cache";
    else
        base = "/tmp/q417-" + std::to_string(getuid());
    return base + "/q417";
}

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

const Defaults &EmbeddedDefaults() {
    static Defaults d;
    if (!d.dir.empty()) return d;
    std::string dir = DefaultsDir();
    MakeDirs(dir);
    for (size_t i = 0; i < kEmbeddedFileCount; ++i)
        WriteIfChanged(dir + "/" + kEmbeddedFiles[i].name, kEmbeddedFiles[i].data,
                       kEmbeddedFiles[i].size);
    d.dir = dir;
    d.colourPdd = dir + "/qcl4100.pdd";
    d.monoPdd = dir + "/qml2400.pdd";
    return d;
}

} // namespace q417tool
