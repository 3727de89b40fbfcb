// Files under 32-bit handles: CreateFileW and friends, the 16-bit style OpenFile calls (whose
// HFILE is the same handle, as on Windows), _stat, and Windows-style names made host paths.
#include "platform/hostenv.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <mutex>
#include <vector>

namespace q417::path {

bool FromWide(LPCWSTR name, char *out, size_t cap) {
    if (!out || cap == 0) return false;
    out[0] = 0;
    if (!name) return false;
    std::string p = q417::text::Utf16ToUtf8(name);
    if (p.size() >= cap) return false;
    for (char &c : p)
        if (c == '\\') c = '/';
    std::memcpy(out, p.c_str(), p.size() + 1);
    return true;
}

bool FromAnsi(LPCSTR name, char *out, size_t cap) {
    if (!out || cap == 0) return false;
    out[0] = 0;
    if (!name) return false;
    int n = MultiByteToWideChar(CP_ACP, 0, name, -1, nullptr, 0);
    if (n <= 0) return false;
    std::u16string w(size_t(n), u'\0');
    if (MultiByteToWideChar(CP_ACP, 0, name, -1, w.data(), n) != n) return false;
    return FromWide(w.c_str(), out, cap);
}

} // namespace q417::path

namespace {

constexpr size_t kPathMax = 4096;

// Handle value: 0x40000000, a 14-bit generation at bit 16, slot + 1 in the low 16 bits. Bit 31
// stays clear, so the value is also a valid (positive) HFILE; a stale handle is refused.
constexpr uint32_t kTag = 0x40000000u;
constexpr uint32_t kMaxSlots = 0xFFFE;

struct Slot {
    int fd = -1;
    uint32_t gen = 1;
    bool used = false;
};

struct FileTable {
    std::mutex lock;
    std::vector<Slot> slots;
    std::vector<uint32_t> freeSlots;
};

FileTable &table() {
    static FileTable *t = new FileTable;
    return *t;
}

HANDLE handleOf(uint32_t slot, uint32_t gen) {
    return kTag | ((gen & 0x3FFF) << 16) | (slot + 1);
}

// The slot of a live handle, or -1.
long slotOf(FileTable &t, HANDLE h) {
    if ((h & 0xC0000000u) != kTag) return -1;
    uint32_t slot = (h & 0xFFFF);
    if (slot == 0 || slot > t.slots.size()) return -1;
    const Slot &s = t.slots[slot - 1];
    if (!s.used || handleOf(slot - 1, s.gen) != h) return -1;
    return long(slot - 1);
}

HANDLE addFd(int fd) {
    auto &t = table();
    std::lock_guard<std::mutex> g(t.lock);
    uint32_t slot;
    if (!t.freeSlots.empty()) {
        slot = t.freeSlots.back();
        t.freeSlots.pop_back();
    } else if (t.slots.size() < kMaxSlots) {
        slot = uint32_t(t.slots.size());
        t.slots.emplace_back();
    } else {
        return INVALID_HANDLE_VALUE;
    }
    t.slots[slot].fd = fd;
    t.slots[slot].used = true;
    return handleOf(slot, t.slots[slot].gen);
}

// The descriptor of a handle, or -1 with ERROR_INVALID_HANDLE.
int fdOf(HANDLE h) {
    auto &t = table();
    std::lock_guard<std::mutex> g(t.lock);
    long slot = slotOf(t, h);
    if (slot < 0) {
        SetLastError(ERROR_INVALID_HANDLE);
        return -1;
    }
    return t.slots[size_t(slot)].fd;
}

DWORD errorOf(int e) {
    switch (e) {
    case ENOENT:
        return ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
        return ERROR_PATH_NOT_FOUND;
    case EEXIST:
        return ERROR_FILE_EXISTS;
    case ENAMETOOLONG:
        return ERROR_FILENAME_EXCED_RANGE;
    case EBADF:
        return ERROR_INVALID_HANDLE;
    case ENOMEM:
        return ERROR_NOT_ENOUGH_MEMORY;
    case EINVAL:
        return ERROR_INVALID_PARAMETER;
    default:
        return ERROR_ACCESS_DENIED; // EACCES, EPERM, EISDIR, EROFS and the rest
    }
}

// Opens a host path; directories are refused as Windows refuses them without backup semantics.
HANDLE openPath(const char *path, int flags) {
    int fd;
    do fd = open(path, flags | O_CLOEXEC, 0666);
    while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        SetLastError(errorOf(errno));
        return INVALID_HANDLE_VALUE;
    }
    struct stat st;
    if (fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
        close(fd);
        SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    }
    HANDLE h = addFd(fd);
    if (h == INVALID_HANDLE_VALUE) {
        close(fd);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    }
    return h;
}

bool readAll(int fd, void *buf, DWORD n, DWORD *got) {
    DWORD done = 0;
    while (done < n) {
        ssize_t r = read(fd, static_cast<uint8_t *>(buf) + done, n - done);
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) {
            *got = done;
            SetLastError(errorOf(errno));
            return false;
        }
        if (r == 0) break;
        done += DWORD(r);
    }
    *got = done;
    return true;
}

bool writeAll(int fd, const void *buf, DWORD n, DWORD *put) {
    DWORD done = 0;
    while (done < n) {
        ssize_t r = write(fd, static_cast<const uint8_t *>(buf) + done, n - done);
        if (r < 0 && errno == EINTR) continue;
        if (r <= 0) {
            *put = done;
            SetLastError(r < 0 ? errorOf(errno) : ERROR_ACCESS_DENIED);
            return false;
        }
        done += DWORD(r);
    }
    *put = done;
    return true;
}

} // namespace

HANDLE CreateFileW(LPCWSTR lpFileName, DWORD dwDesiredAccess, DWORD, void *,
                   DWORD dwCreationDisposition, DWORD, HANDLE) {
    char path[kPathMax];
    if (!lpFileName || !*lpFileName) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    if (!q417::path::FromWide(lpFileName, path, sizeof path)) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return INVALID_HANDLE_VALUE;
    }
    bool rd = dwDesiredAccess & GENERIC_READ, wr = dwDesiredAccess & GENERIC_WRITE;
    int flags = rd && wr ? O_RDWR : wr ? O_WRONLY : O_RDONLY;
    switch (dwCreationDisposition) {
    case CREATE_NEW:
        flags |= O_CREAT | O_EXCL;
        break;
    case CREATE_ALWAYS:
        flags |= O_CREAT | O_TRUNC;
        break;
    case OPEN_EXISTING:
        break;
    case OPEN_ALWAYS:
        flags |= O_CREAT;
        break;
    case TRUNCATE_EXISTING:
        flags |= O_TRUNC;
        break;
    default:
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    bool existed = false;
    if (dwCreationDisposition == CREATE_ALWAYS || dwCreationDisposition == OPEN_ALWAYS) {
        struct stat st;
        existed = stat(path, &st) == 0;
    }
    HANDLE h = openPath(path, flags);
    // Like Windows, these two say whether the file was there before.
    if (h != INVALID_HANDLE_VALUE) SetLastError(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return h;
}

BOOL ReadFile(HANDLE hFile, void *lpBuffer, DWORD nNumberOfBytesToRead, DWORD *lpNumberOfBytesRead,
              void *) {
    DWORD got = 0;
    if (lpNumberOfBytesRead) *lpNumberOfBytesRead = 0;
    int fd = fdOf(hFile);
    if (fd < 0) return FALSE;
    if (!lpBuffer && nNumberOfBytesToRead) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    bool ok = readAll(fd, lpBuffer, nNumberOfBytesToRead, &got);
    if (lpNumberOfBytesRead) *lpNumberOfBytesRead = got;
    return ok ? TRUE : FALSE;
}

BOOL WriteFile(HANDLE hFile, const void *lpBuffer, DWORD nNumberOfBytesToWrite,
               DWORD *lpNumberOfBytesWritten, void *) {
    DWORD put = 0;
    if (lpNumberOfBytesWritten) *lpNumberOfBytesWritten = 0;
    int fd = fdOf(hFile);
    if (fd < 0) return FALSE;
    if (!lpBuffer && nNumberOfBytesToWrite) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    bool ok = writeAll(fd, lpBuffer, nNumberOfBytesToWrite, &put);
    if (lpNumberOfBytesWritten) *lpNumberOfBytesWritten = put;
    return ok ? TRUE : FALSE;
}

DWORD SetFilePointer(HANDLE hFile, LONG lDistanceToMove, LONG *lpDistanceToMoveHigh,
                     DWORD dwMoveMethod) {
    int fd = fdOf(hFile);
    if (fd < 0) return INVALID_SET_FILE_POINTER;
    // With a high part the distance is 64 bits; without, the low part alone, signed.
    int64_t dist =
        lpDistanceToMoveHigh
            ? int64_t((uint64_t(uint32_t(*lpDistanceToMoveHigh)) << 32) | uint32_t(lDistanceToMove))
            : int64_t(lDistanceToMove);
    int whence = dwMoveMethod == FILE_BEGIN     ? SEEK_SET
                 : dwMoveMethod == FILE_CURRENT ? SEEK_CUR
                 : dwMoveMethod == FILE_END     ? SEEK_END
                                                : -1;
    if (whence < 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_SET_FILE_POINTER;
    }
    off_t pos = lseek(fd, off_t(dist), whence);
    if (pos < 0) {
        SetLastError(errno == EINVAL ? ERROR_NEGATIVE_SEEK : errorOf(errno));
        return INVALID_SET_FILE_POINTER;
    }
    if (!lpDistanceToMoveHigh && pos > off_t(0xFFFFFFFE)) {
        // The position can't be told in 32 bits: Windows refuses such a move.
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_SET_FILE_POINTER;
    }
    if (lpDistanceToMoveHigh) *lpDistanceToMoveHigh = LONG(uint64_t(pos) >> 32);
    SetLastError(ERROR_SUCCESS); // 0xFFFFFFFF can be a true low part with a high part
    return DWORD(uint64_t(pos) & 0xFFFFFFFFu);
}

DWORD GetFileSize(HANDLE hFile, DWORD *lpFileSizeHigh) {
    int fd = fdOf(hFile);
    if (fd < 0) return INVALID_FILE_SIZE;
    struct stat st;
    if (fstat(fd, &st) != 0) {
        SetLastError(errorOf(errno));
        return INVALID_FILE_SIZE;
    }
    uint64_t size = uint64_t(st.st_size);
    if (lpFileSizeHigh) *lpFileSizeHigh = DWORD(size >> 32);
    SetLastError(ERROR_SUCCESS);
    return DWORD(size & 0xFFFFFFFFu);
}

BOOL CloseHandle(HANDLE hObject) {
    int fd;
    {
        auto &t = table();
        std::lock_guard<std::mutex> g(t.lock);
        long slot = slotOf(t, hObject);
        if (slot < 0) {
            SetLastError(ERROR_INVALID_HANDLE);
            return FALSE;
        }
        Slot &s = t.slots[size_t(slot)];
        fd = s.fd;
        s.fd = -1;
        s.used = false;
        s.gen = (s.gen % 0x3FFF) + 1;
        t.freeSlots.push_back(uint32_t(slot));
    }
    close(fd); // the descriptor is gone even when close reports an error
    return TRUE;
}

// ---- OpenFile and the _l calls -----------------------------------------------------------

HFILE OpenFile(LPCSTR lpFileName, OFSTRUCT *lpReOpenBuff, UINT uStyle) {
    if (lpReOpenBuff) {
        std::memset(lpReOpenBuff, 0, sizeof *lpReOpenBuff);
        lpReOpenBuff->cBytes = sizeof *lpReOpenBuff;
        lpReOpenBuff->fFixedDisk = 1;
        if (lpFileName) {
            size_t n = std::strlen(lpFileName);
            if (n >= sizeof lpReOpenBuff->szPathName) n = sizeof lpReOpenBuff->szPathName - 1;
            std::memcpy(lpReOpenBuff->szPathName, lpFileName, n);
        }
    }
    auto fail = [lpReOpenBuff](DWORD err) {
        SetLastError(err);
        if (lpReOpenBuff) lpReOpenBuff->nErrCode = WORD(err);
        return HFILE_ERROR;
    };
    char path[kPathMax];
    if (!lpFileName || !*lpFileName) return fail(ERROR_PATH_NOT_FOUND);
    if (!q417::path::FromAnsi(lpFileName, path, sizeof path))
        return fail(ERROR_FILENAME_EXCED_RANGE);
    int flags;
    if (uStyle & OF_CREATE) {
        flags = O_RDWR | O_CREAT | O_TRUNC; // a created file is open for both, as _lcreat's
    } else {
        switch (uStyle & 3) {
        case OF_WRITE:
            flags = O_WRONLY;
            break;
        case OF_READWRITE:
            flags = O_RDWR;
            break;
        default:
            flags = O_RDONLY;
            break;
        }
    }
    HANDLE h = openPath(path, flags);
    if (h == INVALID_HANDLE_VALUE) return fail(GetLastError());
    if (uStyle & OF_EXIST) {
        CloseHandle(h);
        return 1;
    }
    return HFILE(h);
}

UINT _lread(HFILE hFile, void *lpBuffer, UINT uBytes) {
    DWORD got = 0;
    return ReadFile(HANDLE(hFile), lpBuffer, uBytes, &got, nullptr) ? got : UINT(HFILE_ERROR);
}

UINT _lwrite(HFILE hFile, LPCSTR lpBuffer, UINT uBytes) {
    if (uBytes == 0) {
        // As on Windows, a write of nothing sets the end of the file at the current position.
        int fd = fdOf(HANDLE(hFile));
        if (fd < 0) return UINT(HFILE_ERROR);
        off_t pos = lseek(fd, 0, SEEK_CUR);
        if (pos < 0 || ftruncate(fd, pos) != 0) {
            SetLastError(errorOf(errno));
            return UINT(HFILE_ERROR);
        }
        return 0;
    }
    DWORD put = 0;
    return WriteFile(HANDLE(hFile), lpBuffer, uBytes, &put, nullptr) ? put : UINT(HFILE_ERROR);
}

LONG _llseek(HFILE hFile, LONG lOffset, int iOrigin) {
    int fd = fdOf(HANDLE(hFile));
    if (fd < 0) return HFILE_ERROR;
    int whence = iOrigin == 0 ? SEEK_SET : iOrigin == 1 ? SEEK_CUR : iOrigin == 2 ? SEEK_END : -1;
    if (whence < 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return HFILE_ERROR;
    }
    off_t cur = lseek(fd, 0, SEEK_CUR);
    off_t pos = lseek(fd, lOffset, whence);
    if (pos < 0 || pos > off_t(LONG_MAX)) {
        if (pos > 0 && cur >= 0) lseek(fd, cur, SEEK_SET); // not expressible: stay put
        SetLastError(pos < 0 ? ERROR_NEGATIVE_SEEK : ERROR_INVALID_PARAMETER);
        return HFILE_ERROR;
    }
    return LONG(pos);
}

HFILE _lclose(HFILE hFile) {
    return CloseHandle(HANDLE(hFile)) ? 0 : HFILE_ERROR;
}

int _stat(LPCSTR path, Q417Stat *st) {
    char host[kPathMax];
    if (!st || !q417::path::FromAnsi(path, host, sizeof host)) return -1;
    struct stat s;
    if (stat(host, &s) != 0) return -1;
    st->st_size = uint64_t(s.st_size);
    st->st_mtime_ns = int64_t(s.st_mtim.tv_sec) * 1000000000 + s.st_mtim.tv_nsec;
    st->st_mode = uint32_t(s.st_mode);
    return 0;
}
