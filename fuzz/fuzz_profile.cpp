// Private profile files: any bytes, read through every form of GetPrivateProfileStringW the
// library uses (section list, key list with short buffers, each value).
#include "platform/win32.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // An anonymous in-memory file, opened again by name through /proc.
    int fd = memfd_create("q417_profile", MFD_CLOEXEC);
    if (fd < 0) return 0;
    if (size && write(fd, data, size) != ssize_t(size)) {
        close(fd);
        return 0;
    }
    char name[64];
    std::snprintf(name, sizeof name, "/proc/self/fd/%d", fd);
    std::u16string file(name, name + std::char_traits<char>::length(name));

    std::vector<WCHAR> buf(4000);
    GetPrivateProfileStringW(nullptr, nullptr, u"", buf.data(), 64, file.c_str());
    for (DWORD n : {1u, 2u, 3u, 17u})
        GetPrivateProfileStringW(u"Watermarks", nullptr, u"", buf.data(), n, file.c_str());
    DWORD got = GetPrivateProfileStringW(u"Watermarks", nullptr, u"", buf.data(), DWORD(buf.size()),
                                         file.c_str());
    std::vector<WCHAR> value(400);
    for (size_t at = 0; at < got && buf[at];) {
        const WCHAR *key = &buf[at];
        GetPrivateProfileStringW(u"Watermarks", key, u"", value.data(), 400, file.c_str());
        GetPrivateProfileStringW(u"Watermarks", key, u"", value.data(), 2, file.c_str());
        at += size_t(lstrlenW(key)) + 1;
    }
    close(fd);
    return 0;
}
