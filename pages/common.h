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

[[noreturn]] void Fail(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// Whole-file reading; Fail()s with the file's name on any error.
std::vector<uint8_t> ReadWholeFile(const std::string &path);

// An output file that appears only when it is complete: bytes go to a temporary name beside
// it, Commit() renames it into place, and the destructor removes whatever wasn't committed.
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
    std::string path_, temp_;
    int fd_ = -1;
};

// UTF-16 <-> UTF-8 for the library's wide texts (names, keys, ports).
std::u16string Widen(const std::string &s);
std::string Narrow(const char16_t *s, size_t n = std::u16string::npos);

} // namespace q417::pages
