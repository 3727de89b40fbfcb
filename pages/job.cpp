// The spooler's side of a job: blocks, pages, its end.
#include "job.h"

#include "format.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <vector>

namespace q417::pages {

Job::Job(HANDLE32 printer, const Sink *sink) : job_(DrvSplStartDoc(printer, 1)), sink_(sink) {
    if (!job_) Refused("the library could not start the job");
}

void Job::Refused(const char *fmt, ...) const {
    if (sink_) sink_->Check();
    va_list ap;
    va_start(ap, fmt);
    std::string what = VFormat(fmt, ap);
    va_end(ap);
    throw Error(what);
}

Job::~Job() {
    if (!job_) return;
    if (!ended_) DrvSplAbort(job_);
    DrvSplClose(job_);
}

void Job::Send(uint8_t tag, const void *data, size_t size, const char *what) {
    std::vector<uint8_t> block(size + 1);
    block[0] = tag;
    if (size) std::memcpy(block.data() + 1, data, size);
    DWORD written = 0;
    if (!DrvSplWritePrinter(job_, block.data(), static_cast<DWORD>(block.size()), &written))
        Refused("the library refused the %s block", what);
}

void Job::Data(const std::string &bytes, Sink &sink) {
    constexpr size_t kChunk = 256 * 1024;
    for (size_t off = 0; off < bytes.size(); off += kChunk) {
        size_t n = std::min(kChunk, bytes.size() - off);
        Send(TAG_DATA, bytes.data() + off, n, "print data");
        sink.Check();
    }
}

void Job::StartPage(int page) {
    if (!DrvSplStartPage(job_)) Refused("page %d: the library refused to start the page", page);
}

void Job::EndPage(int page) {
    if (!DrvSplEndPage(job_)) Refused("page %d: the library refused to end the page", page);
}

void Job::End() {
    DrvSplEndDoc(job_);
    ended_ = true;
}

} // namespace q417::pages
