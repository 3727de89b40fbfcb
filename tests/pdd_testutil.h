// Helpers of the description and configuration tests: temporary files, a parsed record in one
// line, a hand-made description record, tables read back from global blocks, leak accounting.
#pragma once

#include "config/config.h"
#include "pdd/pddint.h"
#include "pdd/win_ids.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace pddtest {

namespace fs = std::filesystem;

inline std::u16string Wide(const std::string &s) {
    return std::u16string(s.begin(), s.end());
}

struct TempDir {
    fs::path dir;
    TempDir() {
        // Memory-backed when the host has it: some tests rewrite a file hundreds of times.
        std::string tmpl = fs::is_directory("/dev/shm") ? "/dev/shm/q417XXXXXX" : "/tmp/q417XXXXXX";
        dir = mkdtemp(tmpl.data());
    }
    ~TempDir() { fs::remove_all(dir); }
    std::string operator/(const std::string &name) const { return (dir / name).string(); }
    std::string Write(const std::string &name, std::string_view bytes) const {
        fs::path path = dir / name;
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary | std::ios::trunc)
            .write(bytes.data(), std::streamsize(bytes.size()));
        return path.string();
    }
};

inline std::vector<uint8_t> ReadAll(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline void WriteAll(const std::string &path, const std::vector<uint8_t> &bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size()));
}

inline void SetMTime(const std::string &path, time_t sec, long nsec) {
    timespec t[2] = {{sec, nsec}, {sec, nsec}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), t, 0), 0);
}

// Checks that every block taken during a test is given back.
struct LiveBlocks : ::testing::Test {
    long live0 = q417::mem::LiveBlocks();
    void TearDown() override {
        q417::mem::FailAllocation(0);
        q417::mem::FailLock(0);
        EXPECT_EQ(q417::mem::LiveBlocks(), live0) << "blocks leaked or freed twice";
    }
};

// ---- Parsed descriptions ----

// Diagnostics as "file:line key: reason", in order.
struct DiagLog {
    std::vector<std::string> lines;
    static void Hook(void *ctx, const char *file, int line, const char *key, const char *reason) {
        std::string f = file;
        static_cast<DiagLog *>(ctx)->lines.push_back(f.substr(f.find_last_of("/\\") + 1) + ":" +
                                                     std::to_string(line) + " " + key + ": " +
                                                     reason);
    }
    DiagLog() { PDD_SetDiagnosticHook(Hook, this); }
    ~DiagLog() { PDD_SetDiagnosticHook(nullptr, nullptr); }
};

// A record parsed from a file, locked for reading while the object lives.
struct Parsed {
    HGLOBAL h = PDD_Startup();
    std::u16string name;
    int result;
    PDDINFO *p;
    explicit Parsed(const std::string &path)
        : name(Wide(path)), result(PDD_ParseFile(h, name.c_str())),
          p(static_cast<PDDINFO *>(GlobalLock(h))) {}
    ~Parsed() {
        GlobalUnlock(h);
        PDD_Shutdown(h);
    }
};

inline std::string Escape(std::string_view s) {
    std::string out;
    for (char c : s)
        out += c == '\n' ? "\\n" : c == '\r' ? "\\r" : c == 0 ? "\\0" : std::string(1, c);
    return out;
}

inline std::string Text(const PDDTEXT &t) {
    return Escape(std::string_view(t.achText, size_t(std::clamp<int>(t.nLen, 0, 40))));
}

inline std::string Area(const PDDAREA &a) {
    return std::to_string(a.nLeft) + "," + std::to_string(a.nTop) + "," + std::to_string(a.nRight) +
           "," + std::to_string(a.nBottom);
}

// The record in one line: only what differs from a fresh parse, lists in order, "*" on the
// default entry, "C" on the custom paper.
inline std::string Summary(const PDDINFO &r) {
    std::string s;
    auto add = [&](const std::string &x) { s += (s.empty() ? "" : " ") + x; };
    auto num = [&](const char *name, long v) {
        if (v) add(name + ("=" + std::to_string(v)));
    };
    auto pair = [&](const char *name, long a, long b) {
        if (a || b) add(name + ("=" + std::to_string(a) + "x" + std::to_string(b)));
    };
    auto text = [&](const char *name, const PDDTEXT &t) {
        if (t.nLen) add(name + ("=" + Text(t)));
    };
    num("lang", r.dwLanguage), num("level", r.dwLanguageLevel), num("colors", r.dwColors);
    num("duplex", r.dwDuplex), num("collate", r.dwCollate), num("clip", r.bTextClipping);
    num("minus90", r.bLandscapeMinus90), num("pitch", r.bFontPitch);
    if (r.bLangID != 9) add("langid=" + std::to_string(r.bLangID));
    num("units", r.bMeasUnits);
    text("product", r.Product), text("version", r.FileVersion), text("plugin", r.PlugIn);
    text("portrait", r.PortraitCmd), text("landscape", r.LandscapeCmd);
    pair("custmin", r.dwCustMinWidth, r.dwCustMinHeight);
    pair("custmax", r.dwCustMaxWidth, r.dwCustMaxHeight);
    pair("custdef", r.dwCustDefWidth, r.dwCustDefHeight);
    if (r.dwCustMarginLeft || r.dwCustMarginTop || r.dwCustMarginRight || r.dwCustMarginBottom)
        add("margins=" + Area({r.dwCustMarginLeft, r.dwCustMarginTop, r.dwCustMarginRight,
                               r.dwCustMarginBottom}));
    auto entries = [&](const char *kind, const auto *list, const void *def, DWORD count,
                       auto tail) {
        DWORD k = 0;
        for (auto *p = list; p; p = p->pNext, ++k)
            add(std::string(static_cast<const void *>(p) == r.pCustomPaper ? "C" : "") + kind +
                (p == def ? "*" : "") + "[" + Text(p->Key) + "|" + Text(p->Translation) + "|" +
                Text(p->Cmd) + tail(*p) + "]");
        if (k != count) add(kind + ("s=" + std::to_string(count)));
    };
    auto none = [](const PDDITEM &) { return std::string(); };
    entries("paper", r.pPaperList, r.pDefaultPaper, r.nPapers, [](const PDDPAPER &p) {
        const std::string area = "|" + Area(p.PortraitArea) + "|" + Area(p.LandscapeArea);
        return "|" + std::to_string(p.nWidth) + "x" + std::to_string(p.nHeight) +
               (area == "|0,0,0,0|0,0,0,0" ? "" : area);
    });
    entries("tray", r.pTrayList, r.pDefaultTray, r.nTrays, none);
    entries("bin", r.pDestList, r.pDefaultDest, r.nDests, none);
    entries("media", r.pMediaList, r.pDefaultMedia, r.nMedia, none);
    entries("res", r.pResList, r.pDefaultRes, r.nResolutions, [](const PDDRESOLUTION &p) {
        return "|" + std::to_string(p.nXRes) + "x" + std::to_string(p.nYRes);
    });
    return s;
}

// A description of the tag line and the given lines, written to a file and parsed.
struct Described {
    TempDir tmp;
    Parsed parsed;
    explicit Described(const std::string &lines)
        : parsed(tmp.Write("d.pdd", "*PDD-Lindgate: 1\n" + lines + "\n")) {}
};

// Parses the tag line and the given lines, each ended by CR LF, and gives the summary with
// the keys of the lines that were skipped or refused appended as "!key", and "!calc(name)"
// for a paper whose area can't be completed.
inline std::string ParseLines(const std::string &lines) {
    TempDir tmp;
    std::string bytes = "*PDD-Lindgate: 1\r\n";
    for (char c : lines + "\n") bytes += c == '\n' ? std::string("\r\n") : std::string(1, c);
    DiagLog log;
    Parsed parsed(tmp.Write("t.pdd", bytes));
    if (parsed.result != 0) return "result=" + std::to_string(parsed.result);
    std::string s = Summary(*parsed.p);
    for (const std::string &d : log.lines) {
        size_t sp = d.find(' ');
        std::string key = d.substr(sp + 1, d.find(": ", sp) - sp - 1);
        bool calc = d.compare(sp - 2, 2, ":0") == 0; // reported by PDD_CalcPapers
        s += calc ? " !calc(" + key + ")" : " !" + key;
    }
    return s;
}

// ---- Configuration tables in global blocks ----

inline HGLOBAL Block(const void *data, size_t cb) {
    HGLOBAL h = GlobalAlloc(GHND, cb);
    std::memcpy(GlobalLock(h), data, cb);
    GlobalUnlock(h);
    return h;
}

// The block's contents as elements of T.
template <class T = uint8_t>
std::vector<T> Bytes(HGLOBAL h) {
    if (!h) return {};
    auto *p = static_cast<const T *>(GlobalLock(h));
    std::vector<T> v(p, p + GlobalSize(h) / sizeof(T));
    GlobalUnlock(h);
    return v;
}

// Row r of a wide table, up to its terminator or the row's end.
inline std::u16string Row(HGLOBAL h, DWORD cch, DWORD r) {
    auto w = Bytes<char16_t>(h);
    if (w.size() < (r + 1) * cch) return u"<short>";
    std::u16string s(w.begin() + r * cch, w.begin() + (r + 1) * cch);
    return s.substr(0, s.find(u'\0'));
}

inline std::string Text(HGLOBAL h) {
    auto b = Bytes(h);
    return std::string(b.begin(), std::find(b.begin(), b.end(), 0));
}

// A record block as DDIReadPDDFile gives it to the builder.
struct CfgBlock {
    HGLOBAL h = GlobalAlloc(GHND, CFGINFO_SIZE);
    CFGINFO *c = static_cast<CFGINFO *>(GlobalLock(h));
    ~CfgBlock() {
        FreeCfgTables(c);
        GlobalUnlock(h);
        GlobalFree(h);
    }
    // Builds from a description's record, with the Windows ids.
    int Build(HGLOBAL hPDD) {
        c->hPDD = hPDD;
        return PDD_GetConfig(h) && PDD_GetWinIDs(c);
    }
};

// A description built into a record, with the Windows ids.
struct Built : Described, CfgBlock {
    int ok;
    explicit Built(const std::string &lines) : Described(lines), ok(Build(parsed.h)) {}
};

// Where a record holds handles: its 19 tables, the two texts it always owns, the three
// blocks that pass to a copy, and last hPDD, which names the description's record.
#define H(f) offsetof(CFGINFO, f)
inline constexpr size_t kHandleAt[] = {
    H(hResKeys),    H(hResNames),    H(hResCmds),      H(hResValues),   H(hPaperKeys),
    H(hPaperNames), H(hPaperCmds),   H(hPaperDims),    H(hPaperIDs),    H(hTrayKeys),
    H(hTrayNames),  H(hTrayCmds),    H(hTrayIDs),      H(hDestKeys),    H(hDestNames),
    H(hDestCmds),   H(hMediaKeys),   H(hMediaNames),   H(hMediaCmds),   H(hPlugIn),
    H(hModelName),  H(hPortraitCmd), H(hLandscapeCmd), H(hFileVersion), H(hPDD)};
#undef H

inline HGLOBAL HandleAt(const CFGINFO &r, size_t off) {
    HGLOBAL h;
    std::memcpy(&h, reinterpret_cast<const uint8_t *>(&r) + off, sizeof h);
    return h;
}

// Whether the first n handles of the record are all 0.
inline bool NoBlocks(const CFGINFO &r, size_t n = 24) {
    return std::all_of(kHandleAt, kHandleAt + n, [&](size_t off) { return !HandleAt(r, off); });
}

// Everything but the handles must come back, and the tables and commands byte for byte; the
// model and plug-in fields have sizes of the file's, the version text is "N/A" where the
// description had none.
inline void ExpectSameRecord(const CFGINFO &a, const CFGINFO &b) {
    uint8_t x[CFGINFO_SIZE], y[CFGINFO_SIZE];
    std::memcpy(x, &a, CFGINFO_SIZE);
    std::memcpy(y, &b, CFGINFO_SIZE);
    for (size_t i = 0; i < std::size(kHandleAt); ++i) {
        size_t at = kHandleAt[i];
        bool same = i < 19 || i == 21 || i == 22;
        EXPECT_TRUE(!same || Bytes(HandleAt(a, at)) == Bytes(HandleAt(b, at)))
            << "handle at " << at;
        std::memset(x + at, 0, sizeof(HGLOBAL)), std::memset(y + at, 0, sizeof(HGLOBAL));
    }
    EXPECT_EQ(std::memcmp(x, y, CFGINFO_SIZE), 0) << "counts, widths, defaults and flags";
}

} // namespace pddtest
