// One job through the library's spooler entries, as a print server and the graphics half of a
// driver run it: tagged blocks in, the printer stream out through the printer's output.
#pragma once

#include "common.h"
#include "sink.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace q417::pages {

// Tags of the blocks that carry job state; any other tag is print data.
enum : uint8_t { TAG_DEVINFO = 1, TAG_DEVMODE = 2, TAG_JOBNAME = 8, TAG_DATA = 0x10 };

// An open job; aborted and closed unless it was ended. With the job's sink given, a call the
// library refuses after the sink failed reports the sink's error, the cause, not the refusal.
class Job {
  public:
    explicit Job(HANDLE32 printer, const Sink *sink = nullptr);
    ~Job();
    Job(const Job &) = delete;
    Job &operator=(const Job &) = delete;

    // One block with its tag byte in front; Fail()s naming `what` when the library refuses it.
    void Send(uint8_t tag, const void *data, size_t size, const char *what);
    // Print data in blocks of a size the library handles well; checks the sink after each.
    void Data(const std::string &bytes, Sink &sink);
    void StartPage(int page);
    void EndPage(int page);
    void End();

  private:
    [[noreturn]] void Refused(const char *fmt, ...) const __attribute__((format(printf, 2, 3)));

    void *job_;
    const Sink *sink_;
    bool ended_ = false;
};

} // namespace q417::pages
