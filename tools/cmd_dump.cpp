// q417 dump: a printer stream as a listing with byte offsets.
#include "pcl_decoder.h"
#include "sink.h"
#include "tool.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace q417tool {

namespace {

struct DumpOptions {
    std::string stream;
    std::string output;
};

// The stream mapped read-only, so it is never held in memory as a whole: pages the decoder is
// done with are dropped as it goes (they would be read back from the file if touched again).
class MappedStream {
  public:
    explicit MappedStream(const std::string &path) : name_(path == "-" ? "standard input" : path) {
        if (path == "-") {
            fd_ = dup(0);
            if (fd_ < 0) Fail("standard input: %s", std::strerror(errno));
        } else {
            fd_ = open(path.c_str(), O_RDONLY | O_CLOEXEC);
            if (fd_ < 0) Fail("%s: %s", path.c_str(), std::strerror(errno));
        }
        struct stat st {};
        if (fstat(fd_, &st) != 0) Fail("%s: %s", name_.c_str(), std::strerror(errno));
        if (S_ISDIR(st.st_mode)) Fail("%s: is a directory", name_.c_str());
        if (!S_ISREG(st.st_mode))
            Spool();
        else
            size_ = static_cast<size_t>(st.st_size);
        if (size_ == 0) return;
        void *p = mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, fd_, 0);
        if (p == MAP_FAILED) Fail("%s: %s", name_.c_str(), std::strerror(errno));
        data_ = static_cast<const uint8_t *>(p);
        madvise(p, size_, MADV_SEQUENTIAL);
    }
    ~MappedStream() {
        if (data_) munmap(const_cast<uint8_t *>(data_), size_);
        if (fd_ >= 0) close(fd_);
    }
    MappedStream(const MappedStream &) = delete;
    MappedStream &operator=(const MappedStream &) = delete;

    const uint8_t *data() const { return data_; }
    size_t size() const { return size_; }

    // The decoder reads nothing below `offset` any more.
    void Done(size_t offset) {
        constexpr size_t kStep = 16u << 20;
        size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        size_t upTo = offset / page * page;
        if (upTo < dropped_ + kStep) return;
        madvise(const_cast<uint8_t *>(data_) + dropped_, upTo - dropped_, MADV_DONTNEED);
        dropped_ = upTo;
    }

  private:
    // A pipe can't be mapped: its bytes go to an unnamed temporary file first.
    void Spool() {
        const char *tmp = getenv("TMPDIR");
        std::string dir = tmp && *tmp ? tmp : "/tmp";
        int file = open(dir.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
        if (file < 0)
            Fail("%s: a temporary file in %s: %s", name_.c_str(), dir.c_str(),
                 std::strerror(errno));
        CopyResult r = CopyAll(fd_, file);
        if (r.err) {
            close(file);
            if (r.readFailed) Fail("%s: %s", name_.c_str(), std::strerror(r.err));
            Fail("%s: a temporary file in %s: %s", name_.c_str(), dir.c_str(),
                 std::strerror(r.err));
        }
        size_ = r.bytes;
        close(fd_);
        fd_ = file;
    }

    std::string name_;
    int fd_ = -1;
    const uint8_t *data_ = nullptr;
    size_t size_ = 0;
    size_t dropped_ = 0;
};

int RunDump(const DumpOptions &o) {
    MappedStream in(o.stream);
    Sink out(o.output.empty() ? "-" : o.output);
    DecodeResult r = DecodeStream(
        in.data(), in.size(),
        [&out](std::string_view piece) { out.Append(piece.data(), piece.size()); },
        [&in](size_t offset) { in.Done(offset); });
    std::string summary = "-- " + std::to_string(in.size()) + " bytes, " +
                          std::to_string(r.nCommands) + " commands, " + std::to_string(r.nUnknown) +
                          " unknown";
    if (r.bTruncated) {
        char at[32];
        std::snprintf(at, sizeof at, "%08zx", r.nTruncatedAt);
        summary += std::string(", cut at offset ") + at;
    }
    summary += "\n";
    out.Append(summary.data(), summary.size());
    out.Finish();
    return r.bTruncated ? 2 : 0;
}

} // namespace

Command AddDumpCommand(CLI::App &app) {
    auto o = std::make_shared<DumpOptions>();
    CLI::App *sub = app.add_subcommand(
        "dump", "Decode a printer stream (PJL, PCL 5, HP-GL/2) into a listing with byte "
                "offsets, written as it is decoded. Exit status 2 when the stream ends inside a "
                "command.");
    sub->add_option("stream", o->stream, "The stream file, or - for standard input")->required();
    sub->add_option("-o,--output", o->output,
                    "Write the listing to this file, whole or not at all (default: standard "
                    "output)");
    return {sub, [o] { return RunDump(*o); }};
}

} // namespace q417tool
