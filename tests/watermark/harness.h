// A job record wired to a printer whose stream the test reads back, and font files on disk.
#pragma once

#include "job/job.h"
#include "q417/host.h"
#include "tests/watermark/ttf_builder.h"
#include "watermark/watermark.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

namespace wmtest {

// Printable form of a stream: escape as \e, control bytes and bytes above 126 as \xNN.
inline std::string Escaped(const std::string &s) {
    std::string out;
    char buf[8];
    for (unsigned char c : s) {
        if (c == 0x1b)
            out += "\\e";
        else if (c < 0x20 || c > 0x7e)
            std::snprintf(buf, sizeof buf, "\\x%02X", c), out += buf;
        else
            out += char(c);
    }
    return out;
}

// A private directory under the system's temporary one, removed with the object.
struct TempDir {
    std::filesystem::path path;
    TempDir() {
        char tmpl[] = "/tmp/q417wm.XXXXXX";
        path = mkdtemp(tmpl);
    }
    ~TempDir() { std::filesystem::remove_all(path); }
    template <class Data>
    std::string Write(const std::string &name, const Data &bytes) const {
        auto p = path / name;
        std::ofstream(p, std::ios::binary)
            .write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size()));
        return p.string();
    }
};

// SPLDEVINFO and DDIDEVMODE of a 600 dpi job on a printer that writes into `out`.
struct Job {
    SPLDEVINFO info{};
    DDIDEVMODE dm{};
    char cmdBuf[1024] = {};
    std::string out;
    HANDLE32 hPrinter = 0;

    static int Sink(void *ctx, const void *data, uint32_t size) {
        static_cast<std::string *>(ctx)->append(static_cast<const char *>(data), size);
        return 1;
    }

    explicit Job(const char *windowsDir = nullptr) {
        Q417_PRINTER pr{};
        pr.name = "wmtest";
        pr.pdd_path = "/nonexistent/wmtest.pdd";
        pr.port = "FILE:";
        pr.windows_dir = windowsDir;
        hPrinter = Q417_AddPrinter(&pr);
        Q417_SetOutputCallback(hPrinter, Sink, &out);
        info.hPrinter = hPrinter;
        info.pDevMode = Ptr32From(&dm);
        info.pCmdBuf = Ptr32From(cmdBuf);
        info.nPagesPerSheet = 1;
        info.nPage = 1;
        info.cxPrintable = 5760;
        info.cyPrintable = 7560;
        dm.dmPrintQuality = 600;
        dm.dmYResolution = 600;
        dm.wEmulation = 1;
    }
    ~Job() { Q417_DeletePrinter(hPrinter); }

    std::string Take() {
        std::string s;
        s.swap(out);
        return s;
    }
};

// An open font file, closed with the object.
struct OpenFile {
    HANDLE h = INVALID_HANDLE_VALUE;
    explicit OpenFile(const std::string &path) {
        std::u16string w(path.begin(), path.end());
        h = CreateFileW(w.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                        FILE_ATTRIBUTE_NORMAL, 0);
    }
    ~OpenFile() {
        if (h != INVALID_HANDLE_VALUE) CloseHandle(h);
    }
};

// The pieces of a soft font download: the header block and the character records.
struct SoftFont {
    std::string header; // the S bytes after "\e)s<S>W"
    struct Char {
        unsigned code;
        unsigned glyph;
        std::string glyphBytes;
    };
    std::vector<Char> chars;
    bool ok = false;
};

// Splits a captured download: "\e*c32766D", "\e)s<S>W" and the block, the selection, then
// "\e*c<code>E\e(s<n>W" and a record for each character.
inline SoftFont ParseSoftFont(const std::string &s) {
    SoftFont f;
    size_t pos = s.find("\x1b)s");
    if (pos == std::string::npos) return f;
    size_t w = s.find('W', pos);
    unsigned size = unsigned(std::stoul(s.substr(pos + 3, w - pos - 3)));
    f.header = s.substr(w + 1, size);
    pos = w + 1 + size;
    const std::string select = "\x1b(32766X\x1b*c6F\x1b*c5F";
    if (s.compare(pos, select.size(), select) != 0) return f;
    pos += select.size();
    while (pos < s.size()) {
        if (s.compare(pos, 3, "\x1b*c") != 0) return f;
        size_t e = s.find('E', pos);
        unsigned code = unsigned(std::stoul(s.substr(pos + 3, e - pos - 3)));
        if (s.compare(e + 1, 3, "\x1b(s") != 0) return f;
        size_t wpos = s.find('W', e);
        unsigned n = unsigned(std::stoul(s.substr(e + 4, wpos - e - 4)));
        std::string rec = s.substr(wpos + 1, n);
        if (rec.size() != n || n < 10) return f;
        auto *r = reinterpret_cast<const uint8_t *>(rec.data());
        f.chars.push_back({code, ttftest::Get16(r + 6), rec.substr(8, n - 10)});
        pos = wpos + 1 + n;
    }
    f.ok = true;
    return f;
}

// The tables of the GT segment by tag, as the header block holds them.
inline std::map<std::string, std::string> GtTables(const std::string &header) {
    std::map<std::string, std::string> t;
    auto *h = reinterpret_cast<const uint8_t *>(header.data());
    const size_t gt = 72 + 14 + 4; // the offset table
    unsigned n = ttftest::Get16(h + gt + 4);
    for (unsigned i = 0; i < n; ++i) {
        const uint8_t *e = h + gt + 12 + 16 * i;
        std::string tag(reinterpret_cast<const char *>(e), 4);
        uint32_t off = ttftest::Get32(e + 8), len = ttftest::Get32(e + 12);
        if (tag == "gdir") continue;
        t[tag] = header.substr(gt + off, len);
    }
    return t;
}

} // namespace wmtest
