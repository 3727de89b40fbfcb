// Stand-ins for file and text calls of the platform layer, until it provides them. Weak, so
// the real definitions win at link time.
#include "platform/win32.h"

#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

constexpr HANDLE kBias = 0x100; // keeps 0 free: a file handle is never 0

std::string HostName(LPCWSTR name) {
    std::string out;
    for (; *name; ++name) {
        char32_t c = *name;
        if (c == u'\\') c = u'/';
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

} // namespace

__attribute__((weak)) HANDLE CreateFileW(LPCWSTR lpFileName, DWORD, DWORD, void *,
                                         DWORD dwCreationDisposition, DWORD, HANDLE) {
    if (!lpFileName || dwCreationDisposition != OPEN_EXISTING) return INVALID_HANDLE_VALUE;
    int fd = open(HostName(lpFileName).c_str(), O_RDONLY | O_CLOEXEC);
    return fd < 0 ? INVALID_HANDLE_VALUE : static_cast<HANDLE>(fd) + kBias;
}

__attribute__((weak)) BOOL CloseHandle(HANDLE hObject) {
    return hObject >= kBias && close(static_cast<int>(hObject - kBias)) == 0;
}

__attribute__((weak)) UINT _lread(HFILE hFile, void *lpBuffer, UINT uBytes) {
    if (static_cast<HANDLE>(hFile) < kBias) return static_cast<UINT>(HFILE_ERROR);
    ssize_t n = read(static_cast<int>(hFile - kBias), lpBuffer, uBytes);
    return n < 0 ? static_cast<UINT>(HFILE_ERROR) : static_cast<UINT>(n);
}

__attribute__((weak)) LONG _llseek(HFILE hFile, LONG lOffset, int iOrigin) {
    if (static_cast<HANDLE>(hFile) < kBias) return HFILE_ERROR;
    off_t r = lseek(static_cast<int>(hFile - kBias), lOffset, iOrigin);
    return r < 0 ? HFILE_ERROR : static_cast<LONG>(r);
}

__attribute__((weak)) int MultiByteToWideChar(UINT, DWORD, LPCSTR s, int cb, LPWSTR out, int cch) {
    // Latin-1 widening; enough for the parser's file names.
    if (cb < 0) cb = static_cast<int>(std::char_traits<char>::length(s)) + 1;
    if (cch == 0) return cb;
    if (cch < cb) return 0;
    for (int i = 0; i < cb; ++i) out[i] = static_cast<unsigned char>(s[i]);
    return cb;
}
