// GetPrivateProfileStringW over INI files in UTF-16 (with byte order mark), UTF-8 (with mark)
// or the ANSI code page, with Windows' trimming and its signals for a buffer that is too small.
#include "platform/hostenv.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr size_t kMaxProfileBytes = 16u << 20; // far above any INI file; bounds the read

struct Entry {
    std::u16string key;
    std::u16string value;
    bool hasValue = false; // a line without '=' is listed as a key but has no value
};

struct Section {
    std::u16string name;
    std::vector<Entry> entries;
};

bool isBlank(char16_t c) {
    return c == u' ' || c == u'\t';
}

std::u16string trim(std::u16string_view s) {
    size_t b = 0, e = s.size();
    while (b < e && isBlank(s[b])) ++b;
    while (e > b && isBlank(s[e - 1])) --e;
    return std::u16string(s.substr(b, e - b));
}

bool sameName(const std::u16string &a, LPCWSTR b) {
    return _wcsicmp(a.c_str(), b) == 0;
}

// The whole file, or false when it can't be read (missing, a directory, too big).
bool readFile(const char *path, std::string &out) {
    int fd;
    do fd = open(path, O_RDONLY | O_CLOEXEC);
    while (fd < 0 && errno == EINTR);
    if (fd < 0) return false;
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || uint64_t(st.st_size) > kMaxProfileBytes) {
        close(fd);
        return false;
    }
    out.clear();
    char chunk[8192];
    for (;;) {
        ssize_t r = read(fd, chunk, sizeof chunk);
        if (r < 0 && errno == EINTR) continue;
        if (r <= 0 || out.size() + size_t(r) > kMaxProfileBytes) {
            close(fd);
            return r == 0;
        }
        out.append(chunk, size_t(r));
    }
}

std::u16string decodeFile(const std::string &raw) {
    auto byte = [&raw](size_t i) { return static_cast<unsigned char>(raw[i]); };
    if (raw.size() >= 2 &&
        ((byte(0) == 0xFF && byte(1) == 0xFE) || (byte(0) == 0xFE && byte(1) == 0xFF))) {
        bool little = byte(0) == 0xFF;
        std::u16string w;
        w.reserve(raw.size() / 2);
        for (size_t i = 2; raw.size() - i >= 2; i += 2)
            w.push_back(little ? char16_t(byte(i) | byte(i + 1) << 8)
                               : char16_t(byte(i) << 8 | byte(i + 1)));
        return w;
    }
    if (raw.size() >= 3 && byte(0) == 0xEF && byte(1) == 0xBB && byte(2) == 0xBF)
        return q417::text::Utf8ToUtf16(std::string_view(raw).substr(3));
    if (raw.empty() || raw.size() > size_t(INT32_MAX)) return {};
    int n = MultiByteToWideChar(CP_ACP, 0, raw.data(), int(raw.size()), nullptr, 0);
    if (n <= 0) return {};
    std::u16string w(size_t(n), u'\0');
    MultiByteToWideChar(CP_ACP, 0, raw.data(), int(raw.size()), w.data(), n);
    return w;
}

std::vector<Section> parse(const std::u16string &text) {
    std::vector<Section> sections;
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = text.find(u'\n', pos);
        if (end == std::u16string::npos) end = text.size();
        std::u16string line;
        for (size_t i = pos; i < end; ++i)
            if (text[i] != u'\r' && text[i] != 0) line.push_back(text[i]);
        pos = end + 1;
        std::u16string t = trim(line);
        if (t.empty() || t[0] == u';') continue;
        if (t[0] == u'[') {
            size_t close = t.find(u']');
            sections.push_back(
                {trim(std::u16string_view(t).substr(1, close == t.npos ? t.npos : close - 1)), {}});
            continue;
        }
        if (sections.empty()) continue; // lines before the first section belong to none
        Entry e;
        size_t eq = t.find(u'=');
        if (eq == std::u16string::npos) {
            e.key = t;
        } else {
            e.key = trim(std::u16string_view(t).substr(0, eq));
            e.value = trim(std::u16string_view(t).substr(eq + 1));
            e.hasValue = true;
            // One pair of surrounding quotes goes, as Windows takes them off.
            if (e.value.size() >= 2 && (e.value[0] == u'"' || e.value[0] == u'\'') &&
                e.value.back() == e.value[0])
                e.value = e.value.substr(1, e.value.size() - 2);
        }
        if (!e.key.empty()) sections.back().entries.push_back(std::move(e));
    }
    return sections;
}

// A single value: cut to nSize - 1 characters and terminated when it does not fit.
DWORD copyValue(const std::u16string &v, LPWSTR out, DWORD nSize) {
    size_t n = v.size() < size_t(nSize) - 1 ? v.size() : size_t(nSize) - 1;
    std::memcpy(out, v.data(), n * sizeof(WCHAR));
    out[n] = 0;
    return DWORD(n);
}

// Terminated names closed by an empty one. When the list doesn't fit, it is cut at nSize - 2
// characters, still double-terminated, and the result is nSize - 2: the caller's sign to grow.
DWORD copyList(const std::vector<const std::u16string *> &names, LPWSTR out, DWORD nSize) {
    std::u16string all;
    for (auto *n : names) {
        all += *n;
        all.push_back(0);
    }
    all.push_back(0);
    if (all.size() <= nSize) {
        std::memcpy(out, all.data(), all.size() * sizeof(WCHAR));
        if (names.empty() && nSize >= 2) out[1] = 0;
        return DWORD(all.size() - 1);
    }
    if (nSize < 2) {
        out[0] = 0;
        return 0;
    }
    std::memcpy(out, all.data(), (size_t(nSize) - 2) * sizeof(WCHAR));
    out[nSize - 2] = 0;
    out[nSize - 1] = 0;
    return nSize - 2;
}

} // namespace

DWORD GetPrivateProfileStringW(LPCWSTR lpAppName, LPCWSTR lpKeyName, LPCWSTR lpDefault,
                               LPWSTR lpReturnedString, DWORD nSize, LPCWSTR lpFileName) {
    if (!lpReturnedString || nSize == 0) return 0;
    // The default loses its trailing blanks, as on Windows.
    std::u16string def = lpDefault ? std::u16string(lpDefault) : std::u16string();
    while (!def.empty() && isBlank(def.back())) def.pop_back();

    std::vector<Section> sections;
    char path[4096];
    std::string raw;
    bool bare = lpFileName && !std::u16string_view(lpFileName).empty() &&
                std::u16string_view(lpFileName).find_first_of(u"\\/") == std::u16string_view::npos;
    std::u16string full =
        bare ? q417::text::Utf8ToUtf16(q417::host::WindowsDirectory()) + u"/" + lpFileName
             : std::u16string(lpFileName ? lpFileName : u"");
    if (lpFileName && q417::path::FromWide(full.c_str(), path, sizeof path) &&
        readFile(path, raw)) {
        sections = parse(decodeFile(raw));
    } else {
        SetLastError(ERROR_FILE_NOT_FOUND);
    }

    std::vector<const std::u16string *> names;
    if (!lpAppName) {
        for (auto &s : sections) names.push_back(&s.name);
        return copyList(names, lpReturnedString, nSize);
    }
    const Section *sec = nullptr;
    for (auto &s : sections)
        if (sameName(s.name, lpAppName)) {
            sec = &s;
            break;
        }
    if (!lpKeyName) {
        if (sec)
            for (auto &e : sec->entries) names.push_back(&e.key);
        return copyList(names, lpReturnedString, nSize);
    }
    if (sec)
        for (auto &e : sec->entries)
            if (e.hasValue && sameName(e.key, lpKeyName))
                return copyValue(e.value, lpReturnedString, nSize);
    return copyValue(def, lpReturnedString, nSize);
}
