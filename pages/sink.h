// Where a printer stream goes: a file, standard output, a device or FIFO, a descriptor a front
// end already holds, or a raw TCP printer port. All bytes pass through Write, which keeps the
// first system error, so a failed job names its real cause (a full disk, a reset connection).
#pragma once

#include "common.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace q417::pages {

// Limits of a socket:// port, in seconds; 0 waits for ever.
struct SinkTimeouts {
    int connect = 30; // for the connection to be accepted
    int write = 300;  // without a byte taken while writing, or while the rest drains at the end
};

// Parses "SECONDS" (both limits) or "CONNECT,WRITE" (either may be empty to keep its default);
// Fail()s saying what it accepts.
SinkTimeouts ParseTimeouts(const std::string &text);

class Sink {
  public:
    // port: a path, "-" for standard output, or socket://HOST:PORT. A path that names an
    // existing device, FIFO or socket is written in place; a symbolic link is followed; a
    // regular file is written to a temporary name beside it and renamed into place by
    // Finish() (keeping the old file's mode, and its owner when run as root).
    explicit Sink(const std::string &port, SinkTimeouts timeouts = {});
    // A descriptor the caller holds (a filter's standard output, a worker's pipe); `name` is
    // what messages call it. The descriptor is neither closed nor given a timeout. A process
    // that writes to a pipe ignores SIGPIPE (as q417 does), so a reader that went away is a
    // write error ("Broken pipe") rather than the end of the process.
    Sink(int fd, std::string name);
    ~Sink();
    Sink(const Sink &) = delete;
    Sink &operator=(const Sink &) = delete;

    // The library's output callback: ctx is the Sink. Returns 0 once a write failed.
    static int Write(void *ctx, const void *data, uint32_t size) noexcept;
    // Writes for a front end of its own (a listing, a report); Fail()s on a write error.
    void Append(const void *data, size_t size);
    // Sees every byte that is written, as written (a front end's check of the stream).
    void SetTap(std::function<void(const uint8_t *, size_t)> tap) { tap_ = std::move(tap); }

    const std::string &name() const { return name_; }
    // The first system error of a write, 0 while all went well.
    int error() const { return error_; }
    uint64_t bytesWritten() const { return written_; }
    // Fail()s with the first write error, if any ("job.prn: No space left on device").
    void Check() const;
    // Checks, then makes the output final: renames the file into place, or sends the end of
    // the data on a connection and waits until the printer has taken all of it.
    void Finish();

  private:
    enum class Stall { None, Write };
    void Put(const uint8_t *p, size_t n);
    void Connect(const std::string &hostPort, SinkTimeouts timeouts);
    bool WaitWritable();
    void Drain();

    std::string name_;
    std::unique_ptr<AtomicFile> file_;
    int fd_ = -1;
    bool ownFd_ = false;
    bool socket_ = false;
    int writeTimeout_ = 0;
    int error_ = 0;
    Stall stall_ = Stall::None;
    uint64_t written_ = 0;
    std::function<void(const uint8_t *, size_t)> tap_;
};

} // namespace q417::pages
