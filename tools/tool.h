// Pieces shared by the subcommands of q417.
#pragma once

#include "q417/host.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace q417tool {

// A failure a user has to hear about: main prints "q417: <what>" on one line and exits 1.
struct ToolError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

[[noreturn]] void Fail(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// Every subcommand registers itself and hands back what runs it once parsing is done.
struct Command {
    CLI::App *sub;
    std::function<int()> run;
};
Command AddDumpCommand(CLI::App &app);
Command AddPrintCommand(CLI::App &app);
Command AddPddCommand(CLI::App &app);
Command AddDevmodeCommand(CLI::App &app);

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

// The samples under share/, compiled into the tool: written out to a directory of their own
// on first use so that a run needs nothing installed.
struct Defaults {
    std::string dir;       // where the files were written
    std::string colourPdd; // the colour model's PDD
    std::string monoPdd;   // the monochrome model's PDD
};
const Defaults &EmbeddedDefaults();

} // namespace q417tool
