// The host API: the printers a host makes known, where their output goes, the Windows
// directory and the code page, device mode set-up and memory accounting.
#include "q417/host.h"

#include "platform/hostenv.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>

namespace {

enum class SinkKind { None, OwnedFd, BorrowedFd, Callback };

struct Entry {
    q417::host::Printer printer;
    SinkKind sink = SinkKind::None;
    int fd = -1;
    Q417_SINK_FN fn = nullptr;
    void *ctx = nullptr;
    uint64_t order = 0; // when it was added; the last one answers for the driver directory
};

struct HostState {
    std::map<HANDLE32, Entry> printers;
    HANDLE32 nextHandle = 0x50000001; // a range of its own, so a handle of another kind is refused
    uint64_t added = 0;
    std::string windowsDir; // empty: $Q417_WINDIR, else the current directory
};

HostState &hostState() {
    static HostState *h = new HostState;
    return *h;
}

Entry *entryOf(HANDLE32 h) {
    auto &hs = hostState();
    auto it = hs.printers.find(h);
    return it == hs.printers.end() ? nullptr : &it->second;
}

void dropSink(Entry &e) {
    if (e.sink == SinkKind::OwnedFd && e.fd >= 0) close(e.fd);
    e.sink = SinkKind::None;
    e.fd = -1;
    e.fn = nullptr;
    e.ctx = nullptr;
}

// write() that turns a closed pipe into EPIPE instead of a SIGPIPE that would end the host:
// the signal is blocked in this thread for the call, and one it raised is taken back.
ssize_t writeNoSigpipe(int fd, const void *p, size_t n) {
    sigset_t pipeSet, old;
    sigemptyset(&pipeSet);
    sigaddset(&pipeSet, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSet, &old);
    sigset_t pending;
    sigpending(&pending);
    bool wasPending = sigismember(&pending, SIGPIPE);
    ssize_t r = write(fd, p, n);
    int err = errno;
    if (r < 0 && err == EPIPE && !wasPending) {
        struct timespec zero = {0, 0};
        while (sigtimedwait(&pipeSet, nullptr, &zero) < 0 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    errno = err;
    return r;
}

std::string withoutTrailingSlashes(std::string p) {
    while (p.size() > 1 && p.back() == '/') p.pop_back();
    return p;
}

std::string directoryOf(const std::string &path) {
    auto slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

} // namespace

namespace q417::host {

const Printer *FindPrinter(HANDLE32 hPrinter) {
    Entry *e = entryOf(hPrinter);
    return e ? &e->printer : nullptr;
}

const Printer *LastPrinter() {
    const Entry *last = nullptr;
    for (auto &[h, e] : hostState().printers)
        if (!last || e.order > last->order) last = &e;
    return last ? &last->printer : nullptr;
}

bool WriteToSink(HANDLE32 hPrinter, const void *data, DWORD size, DWORD *written) {
    if (written) *written = 0;
    Entry *e = entryOf(hPrinter);
    if (!e) {
        SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    if (size > 0 && !data) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    switch (e->sink) {
    case SinkKind::None: // no sink named yet: the bytes go nowhere, and that is no failure
        if (written) *written = size;
        return true;
    case SinkKind::Callback: {
        // Copy first: the callback may replace the sink or delete the printer.
        Q417_SINK_FN fn = e->fn;
        void *ctx = e->ctx;
        if (size > 0 && fn(ctx, data, size) == 0) {
            SetLastError(ERROR_WRITE_FAULT);
            return false;
        }
        if (written) *written = size;
        return true;
    }
    case SinkKind::OwnedFd:
    case SinkKind::BorrowedFd: {
        auto *p = static_cast<const uint8_t *>(data);
        DWORD done = 0;
        while (done < size) {
            ssize_t n = writeNoSigpipe(e->fd, p + done, size - done);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) {
                if (written) *written = done;
                SetLastError(ERROR_WRITE_FAULT);
                return false;
            }
            done += static_cast<DWORD>(n);
        }
        if (written) *written = done;
        return true;
    }
    }
    return false;
}

std::string WindowsDirectory() {
    auto &hs = hostState();
    if (!hs.windowsDir.empty()) return hs.windowsDir;
    const char *env = std::getenv("Q417_WINDIR");
    if (env && *env) return withoutTrailingSlashes(env);
    char cwd[4096];
    if (getcwd(cwd, sizeof cwd)) return cwd;
    return ".";
}

} // namespace q417::host

// ---- Exported calls ----------------------------------------------------------------------

extern "C" {

Q417_API HANDLE32 Q417_AddPrinter(const Q417_PRINTER *printer) {
    if (!printer || !printer->name || !*printer->name || !printer->pdd_path || !*printer->pdd_path)
        return 0;
    auto &hs = hostState();
    Entry e;
    using q417::text::Utf8ToUtf16;
    e.printer.name = Utf8ToUtf16(printer->name);
    e.printer.pddPath = Utf8ToUtf16(printer->pdd_path);
    e.printer.driverDir = Utf8ToUtf16(printer->driver_dir && *printer->driver_dir
                                          ? withoutTrailingSlashes(printer->driver_dir)
                                          : directoryOf(printer->pdd_path));
    e.printer.port = Utf8ToUtf16(printer->port ? printer->port : "");
    e.order = ++hs.added;
    HANDLE32 h = hs.nextHandle;
    while (h == 0 || hs.printers.count(h)) ++h; // wrap-around never reuses a live handle
    hs.nextHandle = h + 1;
    if (printer->windows_dir && *printer->windows_dir &&
        !Q417_SetWindowsDirectory(printer->windows_dir))
        return 0;
    hs.printers.emplace(h, std::move(e));
    return h;
}

Q417_API BOOL Q417_DeletePrinter(HANDLE32 hPrinter) {
    Entry *e = entryOf(hPrinter);
    if (!e) return FALSE;
    dropSink(*e);
    hostState().printers.erase(hPrinter);
    return TRUE;
}

Q417_API BOOL Q417_SetOutputFile(HANDLE32 hPrinter, const char *path) {
    Entry *e = entryOf(hPrinter);
    if (!e || !path || !*path) return FALSE;
    int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return FALSE;
    dropSink(*e);
    e->sink = SinkKind::OwnedFd;
    e->fd = fd;
    return TRUE;
}

Q417_API BOOL Q417_SetOutputFd(HANDLE32 hPrinter, int fd) {
    Entry *e = entryOf(hPrinter);
    if (!e || fd < 0) return FALSE;
    dropSink(*e);
    e->sink = SinkKind::BorrowedFd;
    e->fd = fd;
    return TRUE;
}

Q417_API BOOL Q417_SetOutputCallback(HANDLE32 hPrinter, Q417_SINK_FN fn, void *ctx) {
    Entry *e = entryOf(hPrinter);
    if (!e || !fn) return FALSE;
    dropSink(*e);
    e->sink = SinkKind::Callback;
    e->fn = fn;
    e->ctx = ctx;
    return TRUE;
}

Q417_API BOOL Q417_SetWindowsDirectory(const char *path) {
    if (path && !*path) return FALSE;
    hostState().windowsDir = path ? withoutTrailingSlashes(path) : std::string();
    return TRUE;
}

Q417_API BOOL Q417_SetAnsiCodePage(const char *iconv_name) {
    return q417::text::SetAnsiCodePage(iconv_name) ? TRUE : FALSE;
}

Q417_API DWORD Q417_InitDevMode(void *buf, DWORD cbBuf, HANDLE32 hPrinter, DWORD cbCustData) {
    const q417::host::Printer *pr = q417::host::FindPrinter(hPrinter);
    // dmDriverExtra is 16 bits: the private part and the custom data have to fit in it.
    if (!buf || !pr || cbCustData > 0xFFFFu - DDIDEVMODE_EXTRA) return 0;
    DWORD total = DDIDEVMODE_SIZE + cbCustData;
    if (cbBuf < total) return 0;
    std::memset(buf, 0, total);
    DDIDEVMODE dm{};
    size_t n = pr->name.size() < 31 ? pr->name.size() : 31;
    if (n == 31 && pr->name[30] >= 0xD800 && pr->name[30] < 0xDC00) n = 30; // keep pairs whole
    std::memcpy(dm.dmDeviceName, pr->name.data(), n * sizeof(WCHAR));
    dm.dmSpecVersion = 0x401;
    dm.dmSize = DEVMODEW_SIZE;
    dm.dmDriverExtra = static_cast<WORD>(DDIDEVMODE_EXTRA + cbCustData);
    dm.dmOrientation = 1;
    dm.dmCopies = 1;
    dm.wRecordSize = DDIDEVMODE_SIZE;
    dm.hPrinter = hPrinter;
    for (auto &cc : dm.ColorCorrect) {
        cc.bLightness = 100;
        cc.bSaturation = 100;
    }
    dm.bLayout = 1;
    std::memcpy(buf, &dm, sizeof dm);
    return total;
}

Q417_API long Q417_LiveBlocks(void) {
    return q417::mem::LiveBlocks();
}
Q417_API void Q417_FailAllocation(long n) {
    q417::mem::FailAllocation(n);
}
Q417_API void Q417_FailLock(long n) {
    q417::mem::FailLock(n);
}

} // extern "C"
