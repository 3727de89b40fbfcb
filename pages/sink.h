// Where a printer stream goes: a file (written whole or not at all), standard output, or a
// raw TCP printer port. All bytes pass through Write, so a failed write is noticed.
#pragma once

#include "common.h"

#include <cstdint>
#include <memory>
#include <string>

namespace q417::pages {

class Sink {
  public:
    // port: a file path, "-" for standard output, or socket://HOST:PORT.
    explicit Sink(const std::string &port);
    ~Sink();
    Sink(const Sink &) = delete;
    Sink &operator=(const Sink &) = delete;

    // The library's output callback: ctx is the Sink.
    static int Write(void *ctx, const void *data, uint32_t size);
    // Fail()s with the first write error, if any.
    void Check() const;
    // Checks, then makes the output final (renames the file, ends the connection).
    void Finish();

  private:
    static int Connect(const std::string &hostPort);

    std::string port_;
    std::unique_ptr<AtomicFile> file_;
    int fd_ = -1;
    bool ownFd_ = false;
    int error_ = 0;
};

} // namespace q417::pages
