// Text calls: code page conversions through iconv and the wide string helpers.
//
// The ANSI code page is the host's choice (Q417_SetAnsiCodePage, $Q417_ANSI_CP), WINDOWS-1252
// unless told otherwise. Bytes that the code page leaves undefined come back as U+0000+byte,
// which is what Windows does for 0x81, 0x8D, 0x8F, 0x90 and 0x9D of 1252, so every byte
// survives a trip to UTF-16 and back.
#include "platform/hostenv.h"

#include <iconv.h>

#include <bit>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

namespace {

constexpr const char *kWideName =
    std::endian::native == std::endian::little ? "UTF-16LE" : "UTF-16BE";
constexpr const char *kDefaultAnsi = "WINDOWS-1252";

struct Codec {
    iconv_t toWide = reinterpret_cast<iconv_t>(-1);
    iconv_t fromWide = reinterpret_cast<iconv_t>(-1);
    bool byteUndefined[256] = {};
};

struct TextState {
    std::mutex lock;
    std::map<std::string, Codec> codecs; // opened once, kept for the process
    std::string ansi;                    // empty until first use
};

TextState &state() {
    static TextState *s = new TextState; // never destroyed: conversions may run at exit
    return *s;
}

void resetState(iconv_t cd) {
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
}

// Opens (or finds) the codec of an iconv name; null when iconv does not know it.
// Called with the lock held.
Codec *codecOf(const std::string &name) {
    auto &st = state();
    auto it = st.codecs.find(name);
    if (it != st.codecs.end()) return &it->second;
    Codec c;
    c.toWide = iconv_open(kWideName, name.c_str());
    if (c.toWide == reinterpret_cast<iconv_t>(-1)) return nullptr;
    c.fromWide = iconv_open(name.c_str(), kWideName);
    if (c.fromWide == reinterpret_cast<iconv_t>(-1)) {
        iconv_close(c.toWide);
        return nullptr;
    }
    // Which single bytes the code page does not define (a lead byte of a double-byte code page
    // is incomplete, not undefined, and stays false).
    for (int b = 0; b < 256; ++b) {
        char in = static_cast<char>(b);
        char16_t out[4];
        char *ip = &in;
        size_t il = 1;
        char *op = reinterpret_cast<char *>(out);
        size_t ol = sizeof out;
        resetState(c.toWide);
        if (iconv(c.toWide, &ip, &il, &op, &ol) == static_cast<size_t>(-1) && errno == EILSEQ)
            c.byteUndefined[b] = true;
    }
    resetState(c.toWide);
    return &st.codecs.emplace(name, c).first->second;
}

std::string initialAnsi() {
    const char *env = std::getenv("Q417_ANSI_CP");
    if (env && *env && codecOf(env)) return env;
    return kDefaultAnsi;
}

// The codec of a Win32 code page number; null for one iconv does not know.
Codec *codecFor(UINT cp) {
    auto &st = state();
    if (st.ansi.empty()) st.ansi = initialAnsi();
    switch (cp) {
    case CP_ACP:
    case 1: // CP_OEMCP
    case 2: // CP_MACCP
    case 3: // CP_THREAD_ACP
        return codecOf(st.ansi);
    default:
        return codecOf("CP" + std::to_string(cp));
    }
}

std::u16string decode(Codec &c, const char *src, size_t n) {
    std::u16string out;
    out.reserve(n);
    resetState(c.toWide);
    char *ip = const_cast<char *>(src);
    size_t il = n;
    char16_t chunk[256];
    while (il > 0) {
        char *op = reinterpret_cast<char *>(chunk);
        size_t ol = sizeof chunk;
        size_t r = iconv(c.toWide, &ip, &il, &op, &ol);
        out.append(chunk, (sizeof chunk - ol) / sizeof(char16_t));
        if (r != static_cast<size_t>(-1) || errno == E2BIG) continue;
        // Undefined or cut-off byte: take it as the code point of the same number.
        out.push_back(static_cast<unsigned char>(*ip));
        ++ip;
        --il;
        resetState(c.toWide);
    }
    return out;
}

std::string encode(Codec &c, const char16_t *src, size_t n, const char *defaultChar,
                   bool *usedDefault) {
    std::string out;
    out.reserve(n);
    resetState(c.fromWide);
    char *ip = reinterpret_cast<char *>(const_cast<char16_t *>(src));
    size_t il = n * sizeof(char16_t);
    char chunk[512];
    while (il > 0) {
        char *op = chunk;
        size_t ol = sizeof chunk;
        size_t r = iconv(c.fromWide, &ip, &il, &op, &ol);
        out.append(chunk, sizeof chunk - ol);
        if (r != static_cast<size_t>(-1) || errno == E2BIG) continue;
        if (il < sizeof(char16_t)) break; // half a code unit cannot come from a count of units
        char16_t u;
        std::memcpy(&u, ip, sizeof u);
        size_t skip = sizeof(char16_t);
        if (u < 0x100 && c.byteUndefined[u]) {
            out.push_back(static_cast<char>(u)); // the way back of decode's fallback
        } else {
            if (u >= 0xD800 && u < 0xDC00 && il >= 2 * sizeof(char16_t)) {
                char16_t lo;
                std::memcpy(&lo, ip + sizeof u, sizeof lo);
                if (lo >= 0xDC00 && lo < 0xE000) skip *= 2; // one default for the pair
            }
            out.append(defaultChar);
            *usedDefault = true;
        }
        ip += skip;
        il -= skip;
        resetState(c.fromWide);
    }
    return out;
}

} // namespace

namespace q417::text {

std::u16string Utf8ToUtf16(std::string_view s) {
    std::u16string out;
    out.reserve(s.size());
    size_t i = 0;
    const size_t n = s.size();
    while (i < n) {
        auto b0 = static_cast<unsigned char>(s[i]);
        if (b0 < 0x80) {
            out.push_back(b0);
            ++i;
            continue;
        }
        int len = b0 >= 0xF0 ? 4 : b0 >= 0xE0 ? 3 : b0 >= 0xC0 ? 2 : 0;
        char32_t cp = len == 4 ? (b0 & 0x07) : len == 3 ? (b0 & 0x0F) : (b0 & 0x1F);
        bool ok = len != 0 && b0 < 0xF5 && b0 != 0xC0 && b0 != 0xC1;
        int k = 1;
        for (; ok && k < len; ++k) {
            if (i + k >= n) {
                ok = false;
                break;
            }
            auto b = static_cast<unsigned char>(s[i + k]);
            if ((b & 0xC0) != 0x80) {
                ok = false;
                break;
            }
            cp = (cp << 6) | (b & 0x3F);
        }
        if (ok) {
            // Overlong forms, surrogates and values above U+10FFFF are not characters.
            static constexpr char32_t kMin[5] = {0, 0, 0x80, 0x800, 0x10000};
            ok = cp >= kMin[len] && cp <= 0x10FFFF && !(cp >= 0xD800 && cp < 0xE000);
        }
        if (!ok) {
            out.push_back(0xFFFD);
            i += k > 1 ? k : 1; // drop the bytes read so far, at least one
            continue;
        }
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
        } else {
            out.push_back(static_cast<char16_t>(cp));
        }
        i += len;
    }
    return out;
}

std::string Utf16ToUtf8(std::u16string_view s) {
    std::string out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size(); ++i) {
        char32_t cp = s[i];
        if (cp >= 0xD800 && cp < 0xDC00 && i + 1 < s.size() && s[i + 1] >= 0xDC00 &&
            s[i + 1] < 0xE000) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (s[i + 1] - 0xDC00);
            ++i;
        } else if (cp >= 0xD800 && cp < 0xE000) {
            cp = 0xFFFD;
        }
        if (cp < 0x80) {
            out.push_back(static_cast<char>(cp));
        } else if (cp < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else if (cp < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        }
    }
    return out;
}

bool SetAnsiCodePage(const char *iconvName) {
    if (!iconvName || !*iconvName) return false;
    auto &st = state();
    std::lock_guard<std::mutex> g(st.lock);
    if (!codecOf(iconvName)) return false;
    st.ansi = iconvName;
    return true;
}

std::string AnsiCodePage() {
    auto &st = state();
    std::lock_guard<std::mutex> g(st.lock);
    if (st.ansi.empty()) st.ansi = initialAnsi();
    return st.ansi;
}

WCHAR FoldCase(WCHAR c) {
    if (c < 0x80) return (c >= u'A' && c <= u'Z') ? c + 0x20 : c;
    if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return c + 0x20;
    if (c >= 0x100 && c <= 0x17F) {
        if (c == 0x130) return u'i';
        if (c == 0x178) return 0xFF;
        bool evenUpper = (c < 0x138) || (c >= 0x14A && c < 0x178);
        bool oddUpper = (c >= 0x139 && c < 0x149) || (c >= 0x179 && c < 0x17F);
        if (evenUpper && c % 2 == 0 && c != 0x130) return c + 1;
        if (oddUpper && c % 2 == 1) return c + 1;
        return c;
    }
    if (c >= 0x391 && c <= 0x3A9 && c != 0x3A2) return c + 0x20;
    if (c >= 0x410 && c <= 0x42F) return c + 0x20;
    if (c >= 0x400 && c <= 0x40F) return c + 0x50;
    return c;
}

} // namespace q417::text

// ---- Code page conversions ---------------------------------------------------------------

int MultiByteToWideChar(UINT CodePage, DWORD, LPCSTR lpMultiByteStr, int cbMultiByte,
                        LPWSTR lpWideCharStr, int cchWideChar) {
    if (!lpMultiByteStr || cbMultiByte == 0 || cbMultiByte < -1 || cchWideChar < 0 ||
        (cchWideChar > 0 && !lpWideCharStr)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    size_t n = cbMultiByte == -1 ? std::strlen(lpMultiByteStr) + 1 : size_t(cbMultiByte);
    std::u16string w;
    if (CodePage == CP_UTF8) {
        w = q417::text::Utf8ToUtf16({lpMultiByteStr, n});
    } else {
        auto &st = state();
        std::lock_guard<std::mutex> g(st.lock);
        Codec *c = codecFor(CodePage);
        if (!c) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return 0;
        }
        w = decode(*c, lpMultiByteStr, n);
    }
    if (w.size() > size_t(INT_MAX)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    int need = static_cast<int>(w.size());
    if (cchWideChar == 0) return need;
    if (need > cchWideChar) {
        // Windows fills what fits before it reports the short buffer.
        std::memcpy(lpWideCharStr, w.data(), size_t(cchWideChar) * sizeof(WCHAR));
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    std::memcpy(lpWideCharStr, w.data(), w.size() * sizeof(WCHAR));
    return need;
}

int WideCharToMultiByte(UINT CodePage, DWORD, LPCWSTR lpWideCharStr, int cchWideChar,
                        LPSTR lpMultiByteStr, int cbMultiByte, LPCSTR lpDefaultChar,
                        BOOL *lpUsedDefaultChar) {
    if (!lpWideCharStr || cchWideChar == 0 || cchWideChar < -1 || cbMultiByte < 0 ||
        (cbMultiByte > 0 && !lpMultiByteStr) ||
        (CodePage == CP_UTF8 && (lpDefaultChar || lpUsedDefaultChar))) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    size_t n = cchWideChar == -1 ? size_t(lstrlenW(lpWideCharStr)) + 1 : size_t(cchWideChar);
    std::string m;
    if (CodePage == CP_UTF8) {
        m = q417::text::Utf16ToUtf8({lpWideCharStr, n});
    } else {
        char def[3] = {'?', 0, 0};
        if (lpDefaultChar && lpDefaultChar[0]) {
            def[0] = lpDefaultChar[0];
            def[1] = lpDefaultChar[1] ? lpDefaultChar[1] : 0; // a double-byte default
        }
        bool used = false;
        auto &st = state();
        {
            std::lock_guard<std::mutex> g(st.lock);
            Codec *c = codecFor(CodePage);
            if (!c) {
                SetLastError(ERROR_INVALID_PARAMETER);
                return 0;
            }
            m = encode(*c, lpWideCharStr, n, def, &used);
        }
        if (lpUsedDefaultChar) *lpUsedDefaultChar = used ? TRUE : FALSE;
    }
    if (m.size() > size_t(INT_MAX)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    int need = static_cast<int>(m.size());
    if (cbMultiByte == 0) return need;
    if (need > cbMultiByte) {
        std::memcpy(lpMultiByteStr, m.data(), size_t(cbMultiByte));
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    std::memcpy(lpMultiByteStr, m.data(), m.size());
    return need;
}

// ---- Wide string helpers -----------------------------------------------------------------

int lstrlenW(LPCWSTR s) {
    if (!s) return 0;
    int n = 0;
    while (s[n]) ++n;
    return n;
}

LPWSTR lstrcpyW(LPWSTR dst, LPCWSTR src) {
    if (!dst || !src) return nullptr;
    LPWSTR d = dst;
    while ((*d++ = *src++)) {
    }
    return dst;
}

LPWSTR lstrcpynW(LPWSTR dst, LPCWSTR src, int cchMax) {
    if (!dst || !src) return nullptr;
    LPWSTR d = dst;
    int left = cchMax;
    while (left > 1 && *src) {
        *d++ = *src++;
        --left;
    }
    if (left > 0) *d = 0;
    return dst;
}

LPWSTR lstrcatW(LPWSTR dst, LPCWSTR src) {
    if (!dst || !src) return nullptr;
    lstrcpyW(dst + lstrlenW(dst), src);
    return dst;
}

namespace {

int sign(int v) {
    return (v > 0) - (v < 0);
}

// Compares up to n units; fold selects the case-insensitive order. The difference of the
// first units that differ, after folding.
int compareUnits(LPCWSTR a, LPCWSTR b, size_t n, bool fold) {
    for (size_t i = 0; i < n; ++i) {
        WCHAR ca = fold ? q417::text::FoldCase(a[i]) : a[i];
        WCHAR cb = fold ? q417::text::FoldCase(b[i]) : b[i];
        if (ca != cb) return int(ca) - int(cb);
        if (ca == 0) return 0;
    }
    return 0;
}

int compareNullable(LPCWSTR a, LPCWSTR b, bool fold) {
    if (!a || !b) return (a != nullptr) - (b != nullptr); // null sorts first
    return sign(compareUnits(a, b, SIZE_MAX, fold));
}

} // namespace

int lstrcmpW(LPCWSTR a, LPCWSTR b) {
    return compareNullable(a, b, false);
}
int lstrcmpiW(LPCWSTR a, LPCWSTR b) {
    return compareNullable(a, b, true);
}

int _wcsicmp(LPCWSTR a, LPCWSTR b) {
    if (!a || !b) return (a != nullptr) - (b != nullptr);
    return compareUnits(a, b, SIZE_MAX, true);
}

int _wcsnicmp(LPCWSTR a, LPCWSTR b, size_t n) {
    if (!a || !b) return (a != nullptr) - (b != nullptr);
    return compareUnits(a, b, n, true);
}

int _wtoi(LPCWSTR s) {
    if (!s) return 0;
    while (*s == u' ' || (*s >= u'\t' && *s <= u'\r')) ++s;
    bool neg = false;
    if (*s == u'-' || *s == u'+') neg = *s++ == u'-';
    // Saturate rather than overflow: a number past the range gives the range's end.
    int64_t v = 0;
    for (; *s >= u'0' && *s <= u'9'; ++s) {
        v = v * 10 + (*s - u'0');
        if (v > int64_t(INT_MAX) + 1) v = int64_t(INT_MAX) + 1;
    }
    if (neg) return static_cast<int>(-v);
    return v > INT_MAX ? INT_MAX : static_cast<int>(v);
}

WCHAR *wcstok(WCHAR *str, const WCHAR *delims) {
    static WCHAR *next = nullptr;
    if (!delims) return nullptr;
    WCHAR *p = str ? str : next;
    if (!p) return nullptr;
    auto isDelim = [delims](WCHAR c) {
        for (const WCHAR *d = delims; *d; ++d)
            if (*d == c) return true;
        return false;
    };
    while (*p && isDelim(*p)) ++p;
    if (!*p) {
        next = nullptr;
        return nullptr;
    }
    WCHAR *token = p;
    while (*p && !isDelim(*p)) ++p;
    if (*p) {
        *p = 0;
        next = p + 1;
    } else {
        next = p;
    }
    return token;
}

// ---- wsprintfW ---------------------------------------------------------------------------

namespace {

constexpr int kFormatLimit = 1024; // characters of output, terminator included

struct Out {
    LPWSTR dst;
    int n = 0;
    void put(WCHAR c) {
        if (n < kFormatLimit - 1) dst[n++] = c;
    }
    void pad(WCHAR c, int count) {
        for (int i = 0; i < count; ++i) put(c);
    }
};

// Writes body with the field's width; zero padding goes between prefix and body.
void emitField(Out &o, const WCHAR *prefix, int nPrefix, const WCHAR *body, int nBody, int width,
               bool left, bool zero) {
    int fill = width - nPrefix - nBody;
    if (fill < 0) fill = 0;
    if (!left && !zero) o.pad(u' ', fill);
    for (int i = 0; i < nPrefix; ++i) o.put(prefix[i]);
    if (!left && zero) o.pad(u'0', fill);
    for (int i = 0; i < nBody; ++i) o.put(body[i]);
    if (left) o.pad(u' ', fill);
}

} // namespace

int wvsprintfW(LPWSTR dst, LPCWSTR fmt, va_list ap) {
    if (!dst) return 0;
    Out o{dst};
    if (!fmt) {
        dst[0] = 0;
        return 0;
    }
    for (const WCHAR *f = fmt; *f; ++f) {
        if (*f != u'%') {
            o.put(*f);
            continue;
        }
        ++f;
        bool left = false, zero = false, alt = false;
        for (;; ++f) {
            if (*f == u'-')
                left = true;
            else if (*f == u'0')
                zero = true;
            else if (*f == u'#')
                alt = true;
            else
                break;
        }
        int width = 0;
        for (; *f >= u'0' && *f <= u'9'; ++f)
            width = width < 10000 ? width * 10 + (*f - u'0') : width;
        int prec = -1;
        if (*f == u'.') {
            prec = 0;
            for (++f; *f >= u'0' && *f <= u'9'; ++f)
                prec = prec < 10000 ? prec * 10 + (*f - u'0') : prec;
        }
        // Sizes: l and w are the 32-bit long or the wide form, h the short or 8-bit form,
        // I64 and ll 64-bit numbers.
        char size = 0;
        if (*f == u'l' && f[1] == u'l') {
            size = '6';
            f += 2;
        } else if (*f == u'I' && f[1] == u'6' && f[2] == u'4') {
            size = '6';
            f += 3;
        } else if (*f == u'l' || *f == u'w' || *f == u'h') {
            size = static_cast<char>(*f++);
        }
        if (!*f) break;
        WCHAR type = *f;
        if (left) zero = false;
        switch (type) {
        case u'%':
            o.put(u'%');
            break;
        case u'c':
        case u'C': {
            bool narrow = size == 'h' || (type == u'C' && size != 'l' && size != 'w');
            int v = va_arg(ap, int);
            WCHAR ch = static_cast<WCHAR>(v);
            if (narrow) {
                char b = static_cast<char>(v);
                if (MultiByteToWideChar(CP_ACP, 0, &b, 1, &ch, 1) != 1) ch = u'?';
            }
            emitField(o, nullptr, 0, &ch, 1, width, left, false);
            break;
        }
        case u's':
        case u'S': {
            bool narrow = size == 'h' || (type == u'S' && size != 'l' && size != 'w');
            static constexpr WCHAR kNull[] = u"(null)";
            if (narrow) {
                const char *s = va_arg(ap, const char *);
                std::u16string w;
                if (!s) {
                    w = kNull;
                } else {
                    size_t len = 0;
                    while (s[len] && (prec < 0 || len < size_t(prec))) ++len;
                    if (len) {
                        w.resize(len);
                        int got = MultiByteToWideChar(CP_ACP, 0, s, int(len), w.data(), int(len));
                        w.resize(got > 0 ? size_t(got) : 0);
                    }
                }
                int len = static_cast<int>(w.size());
                if (prec >= 0 && len > prec) len = prec;
                emitField(o, nullptr, 0, w.data(), len, width, left, false);
            } else {
                const WCHAR *s = va_arg(ap, const WCHAR *);
                if (!s) s = kNull;
                int len = 0;
                while (s[len] && (prec < 0 || len < prec) && len < kFormatLimit) ++len;
                emitField(o, nullptr, 0, s, len, width, left, false);
            }
            break;
        }
        case u'd':
        case u'i':
        case u'u':
        case u'x':
        case u'X': {
            bool isSigned = type == u'd' || type == u'i';
            uint64_t mag;
            bool neg = false;
            if (size == '6') {
                if (isSigned) {
                    int64_t v = va_arg(ap, long long);
                    neg = v < 0;
                    mag = neg ? 0 - uint64_t(v) : uint64_t(v);
                } else {
                    mag = va_arg(ap, unsigned long long);
                }
            } else if (isSigned) {
                int v = va_arg(ap, int);
                if (size == 'h') v = static_cast<short>(v);
                neg = v < 0;
                mag = neg ? 0 - uint64_t(int64_t(v)) : uint64_t(v);
            } else {
                unsigned v = va_arg(ap, unsigned);
                if (size == 'h') v = static_cast<unsigned short>(v);
                mag = v;
            }
            unsigned base = (type == u'x' || type == u'X') ? 16 : 10;
            const char *digits = type == u'X' ? "0123456789ABCDEF" : "0123456789abcdef";
            WCHAR buf[24];
            int nb = 0;
            WCHAR rev[24];
            int nr = 0;
            do {
                rev[nr++] = static_cast<WCHAR>(digits[mag % base]);
                mag /= base;
            } while (mag);
            if (prec == 0 && nr == 1 && rev[0] == u'0') nr = 0; // "%.0d" of 0 prints nothing
            while (nr--) buf[nb++] = rev[nr];
            WCHAR prefix[3];
            int np = 0;
            if (neg) prefix[np++] = u'-';
            if (alt && base == 16 && nb > 0) {
                prefix[np++] = u'0';
                prefix[np++] = type;
            }
            if (prec >= 0) {
                // A precision is a minimum count of digits and turns the zero flag off.
                zero = false;
                int lead = prec > nb ? prec - nb : 0;
                int fill = width - np - lead - nb;
                if (!left) o.pad(u' ', fill > 0 ? fill : 0);
                for (int i = 0; i < np; ++i) o.put(prefix[i]);
                o.pad(u'0', lead);
                for (int i = 0; i < nb; ++i) o.put(buf[i]);
                if (left) o.pad(u' ', fill > 0 ? fill : 0);
            } else {
                emitField(o, prefix, np, buf, nb, width, left, zero);
            }
            break;
        }
        default:
            o.put(type); // unknown type letters print themselves, as Windows does
            break;
        }
    }
    dst[o.n] = 0;
    return o.n;
}

int wsprintfW(LPWSTR dst, LPCWSTR fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int n = wvsprintfW(dst, fmt, ap);
    va_end(ap);
    return n;
}
