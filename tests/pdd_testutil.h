// Helpers of the printer description tests: temporary files, a parsed record that frees
// itself, and a one-line rendering of a record so that table rows can state whole effects.
#pragma once

#include "pdd/pddint.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <unistd.h>

namespace pddtest {

inline std::u16string Wide(const std::string &s) {
    return std::u16string(s.begin(), s.end());
}

struct TempDir {
    std::filesystem::path dir;
    TempDir() {
        static int n = 0;
        dir = std::filesystem::temp_directory_path() /
              ("q417pdd_" + std::to_string(getpid()) + "_" + std::to_string(++n));
        std::filesystem::create_directories(dir);
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(dir, ec);
    }
    std::string Write(const std::string &name, const std::string &bytes) const {
        auto path = dir / name;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << bytes;
        return path.string();
    }
};

// Diagnostics as "key@line: reason", in order.
struct DiagLog {
    std::vector<std::string> lines;
    static void Hook(void *ctx, const char *file, int line, const char *key, const char *reason) {
        auto *self = static_cast<DiagLog *>(ctx);
        std::string f = file;
        f = f.substr(f.find_last_of("/\\") + 1);
        self->lines.push_back(f + ":" + std::to_string(line) + " " + key + ": " + reason);
    }
    DiagLog() { PDD_SetDiagnosticHook(Hook, this); }
    ~DiagLog() { PDD_SetDiagnosticHook(nullptr, nullptr); }
};

// A record parsed from a file, locked for reading while the object lives.
struct Parsed {
    HGLOBAL h = 0;
    PDDINFO *p = nullptr;
    int result = -1;
    std::u16string name;
    explicit Parsed(const std::string &path) : name(Wide(path)) {
        h = PDD_Startup();
        result = PDD_ParseFile(h, name.c_str());
        p = static_cast<PDDINFO *>(GlobalLock(h));
    }
    ~Parsed() {
        if (p) GlobalUnlock(h);
        PDD_Shutdown(h);
    }
    Parsed(const Parsed &) = delete;
    Parsed &operator=(const Parsed &) = delete;
};

inline std::string Text(const PDDTEXT &t) {
    return std::string(t.achText, static_cast<size_t>(t.nLen < 0 ? 0 : t.nLen > 40 ? 40 : t.nLen));
}

inline std::string Escape(const std::string &s) {
    std::string out;
    for (unsigned char c : s) {
        if (c == '\n')
            out += "\\n";
        else if (c == '\r')
            out += "\\r";
        else if (c == 0)
            out += "\\0";
        else
            out += static_cast<char>(c);
    }
    return out;
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
        if (v) add(std::string(name) + "=" + std::to_string(v));
    };
    auto text = [&](const char *name, const PDDTEXT &t) {
        if (t.nLen) add(std::string(name) + "=" + Escape(Text(t)));
    };
    num("lang", r.dwLanguage);
    num("level", r.dwLanguageLevel);
    num("colors", r.dwColors);
    num("duplex", r.dwDuplex);
    num("collate", r.dwCollate);
    num("clip", r.bTextClipping);
    num("minus90", r.bLandscapeMinus90);
    num("pitch", r.bFontPitch);
    if (r.bLangID != 9) add("langid=" + std::to_string(r.bLangID));
    num("units", r.bMeasUnits);
    text("product", r.Product);
    text("version", r.FileVersion);
    text("plugin", r.PlugIn);
    text("portrait", r.PortraitCmd);
    text("landscape", r.LandscapeCmd);
    if (r.dwCustMinWidth || r.dwCustMinHeight)
        add("custmin=" + std::to_string(r.dwCustMinWidth) + "x" +
            std::to_string(r.dwCustMinHeight));
    if (r.dwCustMaxWidth || r.dwCustMaxHeight)
        add("custmax=" + std::to_string(r.dwCustMaxWidth) + "x" +
            std::to_string(r.dwCustMaxHeight));
    if (r.dwCustDefWidth || r.dwCustDefHeight)
        add("custdef=" + std::to_string(r.dwCustDefWidth) + "x" +
            std::to_string(r.dwCustDefHeight));
    if (r.dwCustMarginLeft || r.dwCustMarginTop || r.dwCustMarginRight || r.dwCustMarginBottom)
        add("margins=" + std::to_string(r.dwCustMarginLeft) + "," +
            std::to_string(r.dwCustMarginTop) + "," + std::to_string(r.dwCustMarginRight) + "," +
            std::to_string(r.dwCustMarginBottom));
    auto head = [](const char *kind, const PDDTEXT &k, const PDDTEXT &t, const PDDTEXT &c,
                   bool def) {
        return std::string(kind) + (def ? "*" : "") + "[" + Escape(Text(k)) + "|" +
               Escape(Text(t)) + "|" + Escape(Text(c));
    };
    DWORD n = 0;
    for (const PDDPAPER *p = r.pPaperList; p; p = p->pNext, ++n) {
        std::string e = head("paper", p->Key, p->Translation, p->Cmd, p == r.pDefaultPaper);
        if (p == r.pCustomPaper) e = "C" + e;
        e += "|" + std::to_string(p->nWidth) + "x" + std::to_string(p->nHeight);
        const PDDAREA z{};
        if (std::memcmp(&p->PortraitArea, &z, sizeof z) ||
            std::memcmp(&p->LandscapeArea, &z, sizeof z))
            e += "|" + Area(p->PortraitArea) + "|" + Area(p->LandscapeArea);
        add(e + "]");
    }
    if (n != r.nPapers) add("nPapers=" + std::to_string(r.nPapers));
    auto items = [&](const char *kind, const PDDITEM *list, const PDDITEM *def, DWORD count) {
        DWORD k = 0;
        for (const PDDITEM *p = list; p; p = p->pNext, ++k)
            add(head(kind, p->Key, p->Translation, p->Cmd, p == def) + "]");
        if (k != count) add(std::string(kind) + "s=" + std::to_string(count));
    };
    items("tray", r.pTrayList, r.pDefaultTray, r.nTrays);
    items("bin", r.pDestList, r.pDefaultDest, r.nDests);
    items("media", r.pMediaList, r.pDefaultMedia, r.nMedia);
    n = 0;
    for (const PDDRESOLUTION *p = r.pResList; p; p = p->pNext, ++n)
        add(head("res", p->Key, p->Translation, p->Cmd, p == r.pDefaultRes) + "|" +
            std::to_string(p->nXRes) + "x" + std::to_string(p->nYRes) + "]");
    if (n != r.nResolutions) add("nResolutions=" + std::to_string(r.nResolutions));
    return s;
}

// Parses the tag line and the given lines, each ended by CR LF, and gives the summary with
// the keys of the lines that were skipped or refused appended as "!key".
inline std::string ParseLines(const std::string &lines) {
    TempDir tmp;
    std::string bytes = "*PDD-Lindgate: 1\r\n";
    size_t start = 0;
    while (start <= lines.size()) {
        size_t end = lines.find('\n', start);
        if (end == std::string::npos) end = lines.size();
        bytes += lines.substr(start, end - start) + "\r\n";
        start = end + 1;
    }
    std::string path = tmp.Write("t.pdd", bytes);
    DiagLog log;
    Parsed parsed(path);
    if (parsed.result != 0) return "result=" + std::to_string(parsed.result);
    std::string s = Summary(*parsed.p);
    for (const std::string &d : log.lines) {
        size_t sp = d.find(' ');
        std::string key = d.substr(sp + 1, d.find(": ", sp) - sp - 1);
        bool calc = d.compare(sp - 2, 2, ":0") == 0; // papers PDD_CalcPapers can't complete
        s += calc ? " !calc(" + key + ")" : " !" + key;
    }
    return s;
}

} // namespace pddtest
