// GetPrivateProfileStringW over INI files in UTF-16 (with byte order mark), UTF-8 (with mark)
// or the ANSI code page, with Windows' trimming and its signals for a buffer that is too small.
//
// A reader asks for a file's keys one call at a time, so the parsed file is kept: the last file
// read, under its path, identity, size, times and the code page it was decoded with. A file
// whose times lie within two seconds of its reading may have changed since without a change of
// times, so its bytes are compared before the parse is used again; inside a ReadBatch the first
// such check holds for the rest of the batch, as the file is held open against writers then.
#include "platform/profile.h"

#include "platform/hostenv.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

constexpr size_t kMaxProfileBytes = 16u << 20; // far above any INI file; bounds the read
constexpr int64_t kRacyNs = 2'000'000'000;     // file times closer than this to the read

struct Entry {
    std::u16string key;
    std::u16string value;
    bool hasValue = false; // a line without '=' is listed as a key but has no value
};

struct Section {
    std::u16string name;
    std::vector<Entry> entries;
    std::unordered_map<std::u16string, size_t> firstValue; // folded key -> first with a value
    size_t cchKeys = 0; // the key list's length with every terminator
};

struct Parsed {
    std::vector<Section> sections;
    std::unordered_map<std::u16string, size_t> firstSection; // folded name -> first section
    size_t cchNames = 0;
};

bool isBlank(char16_t c) {
    return c == u' ' || c == u'\t';
}

std::u16string_view trim(std::u16string_view s) {
    size_t b = 0, e = s.size();
    while (b < e && isBlank(s[b])) ++b;
    while (e > b && isBlank(s[e - 1])) --e;
    return s.substr(b, e - b);
}

// A text ends at a zero unit, as the Windows call copies it out.
std::u16string upToZero(std::u16string_view s) {
    return std::u16string(s.substr(0, s.find(u'\0')));
}

// The form under which names compare: equal folded forms are what _wcsicmp finds equal.
std::u16string folded(std::u16string_view s) {
    std::u16string f(s);
    for (char16_t &c : f) c = q417::text::FoldCase(c);
    return f;
}

int64_t ns(const timespec &t) {
    return int64_t(t.tv_sec) * 1'000'000'000 + t.tv_nsec;
}

struct FileKey {
    std::string path;
    std::string codePage;
    dev_t dev = 0;
    ino_t ino = 0;
    off_t size = 0;
    int64_t mtime = 0, ctime = 0;
    bool operator==(const FileKey &) const = default;
};

struct Cached {
    FileKey key;
    std::string raw;    // the bytes parsed
    int64_t readAt = 0; // wall clock when they were read
    unsigned long batch = 0;
    Parsed parsed;
};

std::unique_ptr<Cached> g_cache;
unsigned long g_batch = 0; // the open batch, 0 for none
unsigned long g_batches = 0;
int g_batchDepth = 0;

int64_t now() {
    timespec t;
    clock_gettime(CLOCK_REALTIME, &t);
    return ns(t);
}

bool racy(const Cached &c) {
    return c.readAt - std::max(c.key.mtime, c.key.ctime) < kRacyNs;
}

struct Fd {
    int fd;
    ~Fd() {
        if (fd >= 0) close(fd);
    }
};

// The rest of an open file, or false when it can't be read or grows too big.
bool readAll(int fd, std::string &out) {
    out.clear();
    char chunk[65536];
    for (;;) {
        ssize_t r = read(fd, chunk, sizeof chunk);
        if (r < 0 && errno == EINTR) continue;
        if (r <= 0) return r == 0;
        if (out.size() + size_t(r) > kMaxProfileBytes) return false;
        out.append(chunk, size_t(r));
    }
}

// Whether the ANSI code page reads every byte below 0x80 as that character, alone and in a run
// (not so for, say, SHIFT_JIS or ISO-2022-JP): then a file of such bytes needs no converter.
bool asciiIsItself() {
    static std::string known;
    static bool itself = false;
    std::string cp = q417::text::AnsiCodePage();
    if (cp == known) return itself;
    char all[128];
    WCHAR w[256];
    for (int i = 0; i < 128; ++i) all[i] = char(i);
    itself = MultiByteToWideChar(CP_ACP, 0, all, 128, w, 256) == 128;
    for (int i = 0; itself && i < 128; ++i) {
        WCHAR one[4];
        itself = w[i] == WCHAR(i) && MultiByteToWideChar(CP_ACP, 0, all + i, 1, one, 4) == 1 &&
                 one[0] == WCHAR(i);
    }
    known = cp;
    return itself;
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
    if (asciiIsItself() && std::all_of(raw.begin(), raw.end(), [](char c) { return c >= 0; }))
        return std::u16string(raw.begin(), raw.end());
    int n = MultiByteToWideChar(CP_ACP, 0, raw.data(), int(raw.size()), nullptr, 0);
    if (n <= 0) return {};
    std::u16string w(size_t(n), u'\0');
    MultiByteToWideChar(CP_ACP, 0, raw.data(), int(raw.size()), w.data(), n);
    return w;
}

void parse(std::u16string_view text, Parsed &out) {
    std::vector<Section> &sections = out.sections;
    std::u16string kept; // a line without its CRs, when it has any
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = text.find(u'\n', pos);
        if (end == std::u16string_view::npos) end = text.size();
        std::u16string_view line = text.substr(pos, end - pos);
        pos = end + 1;
        if (line.find(u'\r') != std::u16string_view::npos) {
            kept.clear();
            for (char16_t c : line)
                if (c != u'\r') kept.push_back(c);
            line = kept;
        }
        std::u16string_view t = trim(line);
        if (t.empty() || t[0] == u';') continue;
        if (t[0] == u'[') {
            size_t close = t.find(u']');
            sections.push_back(
                {upToZero(trim(t.substr(1, close == t.npos ? t.npos : close - 1))), {}, {}, 0});
            continue;
        }
        if (sections.empty()) continue; // lines before the first section belong to none
        Entry e;
        size_t eq = t.find(u'=');
        if (eq == std::u16string_view::npos) {
            e.key = upToZero(t);
        } else {
            e.key = upToZero(trim(t.substr(0, eq)));
            std::u16string_view v = trim(t.substr(eq + 1));
            // One pair of surrounding quotes goes, as Windows takes them off.
            if (v.size() >= 2 && (v[0] == u'"' || v[0] == u'\'') && v.back() == v[0])
                v = v.substr(1, v.size() - 2);
            e.value = upToZero(v);
            e.hasValue = true;
        }
        if (!e.key.empty()) sections.back().entries.push_back(std::move(e));
    }
    for (size_t i = 0; i < sections.size(); ++i) {
        Section &s = sections[i];
        out.firstSection.try_emplace(folded(s.name), i);
        out.cchNames += s.name.size() + 1;
        for (size_t k = 0; k < s.entries.size(); ++k) {
            s.cchKeys += s.entries[k].key.size() + 1;
            if (s.entries[k].hasValue) s.firstValue.try_emplace(folded(s.entries[k].key), k);
        }
    }
}

// The parsed file, from the cache when it still stands for the file; null when the file can't
// be read (missing, a directory, too big).
const Parsed *load(const char *path) {
    std::string codePage = q417::text::AnsiCodePage();
    if (g_cache && g_batch && g_cache->batch == g_batch && g_cache->key.path == path &&
        g_cache->key.codePage == codePage)
        return &g_cache->parsed;

    Fd f{-1};
    do f.fd = open(path, O_RDONLY | O_CLOEXEC);
    while (f.fd < 0 && errno == EINTR);
    if (f.fd < 0) return nullptr;
    struct stat st;
    if (fstat(f.fd, &st) != 0 || !S_ISREG(st.st_mode) || uint64_t(st.st_size) > kMaxProfileBytes)
        return nullptr;
    FileKey key{path, codePage, st.st_dev, st.st_ino, st.st_size, ns(st.st_mtim), ns(st.st_ctim)};
    std::string raw;
    int64_t readAt = now();
    if (g_cache && g_cache->key == key) {
        if (!racy(*g_cache)) {
            g_cache->batch = g_batch;
            return &g_cache->parsed;
        }
        if (!readAll(f.fd, raw)) return nullptr;
        if (raw == g_cache->raw) {
            g_cache->readAt = readAt;
            g_cache->batch = g_batch;
            return &g_cache->parsed;
        }
    } else {
        g_cache.reset();
        if (!readAll(f.fd, raw)) return nullptr;
        g_cache = std::make_unique<Cached>();
    }
    g_cache->readAt = readAt;
    g_cache->key = std::move(key);
    g_cache->raw = std::move(raw);
    g_cache->batch = g_batch;
    g_cache->parsed = Parsed{};
    parse(decodeFile(g_cache->raw), g_cache->parsed);
    return &g_cache->parsed;
}

// A single value: cut to nSize - 1 characters and terminated when it does not fit.
DWORD copyValue(const std::u16string &v, LPWSTR out, DWORD nSize) {
    size_t n = v.size() < size_t(nSize) - 1 ? v.size() : size_t(nSize) - 1;
    std::memcpy(out, v.data(), n * sizeof(WCHAR));
    out[n] = 0;
    return DWORD(n);
}

// Terminated names closed by an empty one; cchAll counts every terminator. When the list doesn't
// fit, it is cut at nSize - 2 characters, still double-terminated, and the result is nSize - 2:
// the caller's sign to grow. Only what is returned is copied.
template <class T, class Name>
DWORD copyList(const std::vector<T> &items, Name name, size_t cchAll, LPWSTR out, DWORD nSize) {
    bool fits = cchAll <= nSize;
    if (!fits && nSize < 2) {
        out[0] = 0;
        return 0;
    }
    size_t limit = fits ? cchAll - 1 : size_t(nSize) - 2;
    size_t n = 0;
    for (size_t i = 0; i < items.size() && n < limit; ++i) {
        const std::u16string &s = name(items[i]);
        size_t k = std::min(s.size(), limit - n);
        std::memcpy(out + n, s.data(), k * sizeof(WCHAR));
        n += k;
        if (n < limit) out[n++] = 0;
    }
    if (fits) {
        out[n] = 0;
        if (cchAll == 1 && nSize >= 2) out[1] = 0;
        return DWORD(cchAll - 1);
    }
    out[nSize - 2] = 0;
    out[nSize - 1] = 0;
    return nSize - 2;
}

DWORD getString(LPCWSTR lpAppName, LPCWSTR lpKeyName, LPCWSTR lpDefault, LPWSTR lpReturnedString,
                DWORD nSize, LPCWSTR lpFileName) {
    // The default loses its trailing blanks, as on Windows.
    std::u16string def = lpDefault ? std::u16string(lpDefault) : std::u16string();
    while (!def.empty() && isBlank(def.back())) def.pop_back();

    static const Parsed kNone;
    const Parsed *file = nullptr;
    char path[4096];
    bool bare = lpFileName && !std::u16string_view(lpFileName).empty() &&
                std::u16string_view(lpFileName).find_first_of(u"\\/") == std::u16string_view::npos;
    std::u16string full =
        bare ? q417::text::Utf8ToUtf16(q417::host::WindowsDirectory()) + u"/" + lpFileName
             : std::u16string(lpFileName ? lpFileName : u"");
    if (lpFileName && q417::path::FromWide(full.c_str(), path, sizeof path)) file = load(path);
    if (!file) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        file = &kNone;
    }

    if (!lpAppName)
        return copyList(
            file->sections, [](const Section &s) -> auto & { return s.name; }, file->cchNames + 1,
            lpReturnedString, nSize);
    auto sec = file->firstSection.find(folded(lpAppName));
    const Section *pSec = sec == file->firstSection.end() ? nullptr : &file->sections[sec->second];
    if (!lpKeyName) {
        static const Section kEmpty;
        if (!pSec) pSec = &kEmpty;
        return copyList(
            pSec->entries, [](const Entry &e) -> auto & { return e.key; }, pSec->cchKeys + 1,
            lpReturnedString, nSize);
    }
    if (pSec) {
        auto it = pSec->firstValue.find(folded(lpKeyName));
        if (it != pSec->firstValue.end())
            return copyValue(pSec->entries[it->second].value, lpReturnedString, nSize);
    }
    return copyValue(def, lpReturnedString, nSize);
}

} // namespace

namespace q417::profile {

ReadBatch::ReadBatch() {
    if (g_batchDepth++ == 0) g_batch = ++g_batches;
}

ReadBatch::~ReadBatch() {
    if (--g_batchDepth == 0) g_batch = 0;
}

} // namespace q417::profile

DWORD GetPrivateProfileStringW(LPCWSTR lpAppName, LPCWSTR lpKeyName, LPCWSTR lpDefault,
                               LPWSTR lpReturnedString, DWORD nSize, LPCWSTR lpFileName) {
    if (!lpReturnedString || nSize == 0) return 0;
    try {
        return getString(lpAppName, lpKeyName, lpDefault, lpReturnedString, nSize, lpFileName);
    } catch (const std::bad_alloc &) {
        // No memory to read the file: as if there were none.
        g_cache.reset();
        lpReturnedString[0] = 0;
        if (!lpKeyName && nSize >= 2) lpReturnedString[1] = 0;
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
}
