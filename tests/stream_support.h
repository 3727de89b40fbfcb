// Test bench for the stream writers: a printer whose output is captured, a job record and a
// device mode in global memory as the job side keeps them, and a compiled configuration with
// a few papers and trays in hCfg. Golden streams are written as escaped text, one command a
// line, the way the printer language manuals write them.
#pragma once

#include "config/config.h"
#include "job/job.h"
#include "q417/host.h"
#include "stream/stream.h"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

namespace streamtest {

// "\x1b" (exactly two hex digits), "\n", "\r", "\\" to bytes; everything else as it stands.
inline std::string Unescape(const char *text) {
    std::string out;
    for (const char *p = text; *p; ++p) {
        if (*p != '\\' || !p[1]) {
            out += *p;
            continue;
        }
        ++p;
        auto hex = [](char c) { return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10; };
        switch (*p) {
        case 'x':
            out += static_cast<char>(hex(p[1]) * 16 + hex(p[2]));
            p += 2;
            break;
        case 'n':
            out += '\n';
            break;
        case 'r':
            out += '\r';
            break;
        default:
            out += *p;
            break;
        }
    }
    return out;
}

// Bytes to the same notation, a line for each command (a break before every escape and after
// every newline), so that a failed comparison shows the commands that differ.
inline std::string Escape(const std::string &bytes) {
    std::string out;
    char hex[8];
    for (unsigned char c : bytes) {
        if (c == 0x1b && !out.empty() && out.back() != '\n') out += '\n';
        if (c == '\n') {
            out += "\\n\n";
        } else if (c == '\\') {
            out += "\\\\";
        } else if (c < 0x20 || c >= 0x7f) {
            snprintf(hex, sizeof hex, "\\x%02x", c);
            out += hex;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

// The expected stream, one escaped command a line.
inline std::string Stream(std::initializer_list<const char *> lines) {
    std::string out;
    for (const char *line : lines) out += Unescape(line);
    return out;
}

#define EXPECT_STREAM(actual, expected)                                                            \
    EXPECT_EQ(::streamtest::Escape(actual), ::streamtest::Escape(expected))

struct Sink {
    std::string bytes;
    int calls = 0;
    int failFromCall = 0; // 1-based; 0 never fails
    static int Take(void *ctx, const void *data, uint32_t size) {
        auto *s = static_cast<Sink *>(ctx);
        ++s->calls;
        if (s->failFromCall && s->calls >= s->failFromCall) return 0;
        s->bytes.append(static_cast<const char *>(data), size);
        return 1;
    }
};

// A global block holding rows of wide strings of cch characters.
inline HGLOBAL WideRows(std::initializer_list<const char *> rows, DWORD cch) {
    HGLOBAL h = GlobalAlloc(GHND, rows.size() * cch * sizeof(WCHAR));
    auto *p = static_cast<WCHAR *>(GlobalLock(h));
    size_t r = 0;
    for (const char *row : rows) {
        for (size_t i = 0; row[i] && i + 1 < cch; ++i) p[r * cch + i] = static_cast<WCHAR>(row[i]);
        ++r;
    }
    GlobalUnlock(h);
    return h;
}

inline HGLOBAL Bytes(const std::string &text, size_t extra = 1) {
    HGLOBAL h = GlobalAlloc(GHND, text.size() + extra);
    memcpy(GlobalLock(h), text.data(), text.size());
    GlobalUnlock(h);
    return h;
}

// Paper rows: 0 Letter "2", 1 A4 "26", 2 a paper sent as nothing "-1".
// Tray rows: 0 "1", 1 "4", 2 a tray sent as nothing "-1".
constexpr int kLetter = 0, kA4 = 1, kNoPaper = 2;
constexpr int kTray1 = 0, kTray4 = 1, kNoTray = 2;

inline const char kPortraitPJL[] = "@PJL SET ORIENTATION=PORTRAIT\n";
inline const char kLandscapePJL[] = "@PJL SET ORIENTATION=LANDSCAPE\n";

// Puts a CFGINFO with the rows above into hCfg.
inline void InstallConfig(const char *version = "2.10") {
    hCfg = GlobalAlloc(GHND, CFGINFO_SIZE);
    auto *cfg = static_cast<CFGINFO *>(GlobalLock(hCfg));
    cfg->wVersion = CFGINFO_VERSION;
    cfg->hPaperCmds = WideRows({"2", "26", "-1"}, 8);
    cfg->cchPaperCmd = 8;
    cfg->nPapers = 3;
    cfg->hTrayCmds = WideRows({"1", "4", "-1"}, 6);
    cfg->cchTrayCmd = 6;
    cfg->nTrays = 3;
    if (version) cfg->hFileVersion = Bytes(version);
    cfg->hPortraitCmd = Bytes(kPortraitPJL);
    cfg->cbPortraitCmd = sizeof kPortraitPJL - 1;
    cfg->hLandscapeCmd = Bytes(kLandscapePJL);
    cfg->cbLandscapeCmd = sizeof kLandscapePJL - 1;
    GlobalUnlock(hCfg);
}

inline void RemoveConfig() {
    if (!hCfg) return;
    auto *cfg = static_cast<CFGINFO *>(GlobalLock(hCfg));
    for (HGLOBAL h : {cfg->hPaperCmds, cfg->hTrayCmds, cfg->hFileVersion, cfg->hPortraitCmd,
                      cfg->hLandscapeCmd})
        if (h) GlobalFree(h);
    GlobalUnlock(hCfg);
    GlobalFree(hCfg);
    hCfg = 0;
}

// A job record as the job side holds it while a page header is written: device mode copy
// attached, pCmdBuf at CustCmdBuf, nothing told to the printer yet, one page per sheet.
class StreamTest : public ::testing::Test {
  protected:
    static constexpr DWORD kCustData = 16;

    void SetUp() override {
        liveBlocks = q417::mem::LiveBlocks();
        Q417_PRINTER printer{};
        printer.name = "Quill 4100";
        printer.pdd_path = "/nonexistent/q4100.pdd";
        hPrinter = Q417_AddPrinter(&printer);
        ASSERT_NE(hPrinter, 0u);
        ASSERT_TRUE(Q417_SetOutputCallback(hPrinter, &Sink::Take, &sink));

        hInfo = GlobalAlloc(GHND, sizeof(SPLDEVINFO));
        info = static_cast<SPLDEVINFO *>(GlobalLock(hInfo));
        hDevMode = GlobalAlloc(GHND, DDIDEVMODE_SIZE + kCustData);
        dm = static_cast<DDIDEVMODE *>(GlobalLock(hDevMode));
        ASSERT_NE(Q417_InitDevMode(dm, DDIDEVMODE_SIZE + kCustData, hPrinter, kCustData), 0u);
        dm->dmPrintQuality = dm->dmYResolution = 600;
        dm->wEmulation = 2;

        info->pDevMode = Ptr32From(dm);
        info->hPrinter = hPrinter;
        info->pCmdBuf = Ptr32From(CustCmdBuf);
        info->nLastPaper = info->nLastTray = -1;
        info->bOutputMode = OUTPUT_UNKNOWN;
        info->nPagesPerSheet = 1;
        // Letter with quarter-inch margins, in decipoints.
        info->cxPaper = 6120;
        info->cyPaper = 7920;
        info->cxPrintable = 5760;
        info->cyPrintable = 7560;
        info->cxMargin = info->cyMargin = 100;

        InstallConfig();
        CustDLL = CUSTDLL{};
    }

    void TearDown() override {
        CustDLL = CUSTDLL{};
        RemoveConfig();
        if (dm->hJobName) GlobalFree(dm->hJobName);
        GlobalUnlock(hDevMode);
        GlobalFree(hDevMode);
        GlobalUnlock(hInfo);
        GlobalFree(hInfo);
        Q417_DeletePrinter(hPrinter);
        EXPECT_EQ(q417::mem::LiveBlocks(), liveBlocks); // the writers keep no block
    }

    void SetJobName(const char16_t *name) {
        size_t n = std::char_traits<char16_t>::length(name);
        dm->hJobName = GlobalAlloc(GHND, (n + 1) * sizeof(WCHAR));
        memcpy(GlobalLock(dm->hJobName), name, n * sizeof(WCHAR));
        GlobalUnlock(dm->hJobName);
    }

    // What the job side does around the headers of a page that opens a sheet.
    void OpenSheet(bool firstPage) {
        info->bOutputMode = OUTPUT_UNKNOWN;
        if (firstPage) WritePCLJobHeader(info);
        WritePCLPageHeader(info);
    }

    std::string Take() {
        std::string out;
        out.swap(sink.bytes);
        return out;
    }

    Sink sink;
    long liveBlocks = 0;
    HANDLE32 hPrinter = 0;
    HGLOBAL hInfo = 0, hDevMode = 0;
    SPLDEVINFO *info = nullptr;
    DDIDEVMODE *dm = nullptr;
};

} // namespace streamtest
