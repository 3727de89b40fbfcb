// What every front end of the page pipeline shares: the error a user has to hear about, whole
// files, output files that appear only when complete, and the library's UTF-16 text.
#pragma once

#include "q417/host.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace q417::pages {

// A failure a user has to hear about, in one line that names what failed. Front ends print it
// their own way (q417: ..., ERROR: ..., a job's state message).
struct Error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A setting or option the user gave that can't be used: a mistake in the request, not a
// failure of the system (the command line exits 2 on it, a filter rejects the job).
struct SettingError : Error {
    using Error::Error;
};

[[noreturn]] void Fail(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
[[noreturn]] void FailSetting(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// Copies every byte of `in` to `out`, up to the end of `in`, across short reads and writes
// and interruptions. `err` is 0, or the errno of the first failure, and `readFailed` says
// which side it was, so that callers name it in their own words.
struct CopyResult {
    size_t bytes = 0;
    int err = 0;
    bool readFailed = false;
};
CopyResult CopyAll(int in, int out);

// Whole-file reading; Fail()s with the file's name on any error.
std::vector<uint8_t> ReadWholeFile(const std::string &path);

// An output file that appears only when it is complete: bytes go to a temporary name beside
// it, Commit() renames it into place, and the destructor removes whatever wasn't committed.
// A symbolic link is followed, so the file it points at is replaced and the link stays; a
// file that exists keeps its mode (and its owner when run as root). SIGINT, SIGTERM and SIGHUP
// remove the temporary file before the process ends (unless the process handles or ignores
// them itself: its handler may call RemoveTemporaryFiles()).
class AtomicFile {
  public:
    explicit AtomicFile(const std::string &path);
    ~AtomicFile();
    AtomicFile(const AtomicFile &) = delete;
    AtomicFile &operator=(const AtomicFile &) = delete;
    int fd() const { return fd_; }
    const std::string &tempPath() const { return temp_; }
    void Write(const void *data, size_t size);
    void Commit();

  private:
    std::string path_, target_, temp_;
    int fd_ = -1;
    int slot_ = -1; // in the signal handler's list
};

// Removes every temporary file of an uncommitted AtomicFile; async-signal-safe.
void RemoveTemporaryFiles() noexcept;

// The name that writing `path` reaches: symbolic links followed to their final name, which
// need not exist yet. Fail()s on a loop of links.
std::string FollowLinks(const std::string &path);

// The user's own directory for short-lived files, /tmp/q417-UID: made with mode 0700 and, when
// it is there already, checked to be a directory of this user that nobody else can enter.
// Fail()s saying what is wrong with it otherwise.
std::string PrivateDir();

// A short name for `path` (a directory or file, made absolute): a symbolic link in PrivateDir()
// named after a hash of the path, for the library's fixed-size path buffers and 8-bit code page.
// The same path always gets the same name.
std::string ShortAlias(const std::string &path);

// `path` made absolute against the current directory.
std::string AbsolutePath(const std::string &path);

// UTF-16 <-> UTF-8 for the library's wide texts (names, keys, ports).
std::u16string Widen(const std::string &s);
std::string Narrow(const char16_t *s, size_t n = std::u16string::npos);

} // namespace q417::pages
