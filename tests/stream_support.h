// Golden printer streams as escaped text, one command a line, the way the printer language
// manuals write them; and the printer description the stream tests run their jobs on.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <initializer_list>
#include <string>

namespace streamtest {

// "\x1b" (exactly two hex digits), "\n", "\r", "\\" to bytes; everything else as it stands.
inline std::string Unescape(const char *text) {
    std::string out;
    auto hex = [](char c) { return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10; };
    for (const char *p = text; *p; ++p) {
        if (*p != '\\' || !p[1]) {
            out += *p;
        } else if (*++p == 'x') {
            out += static_cast<char>(hex(p[1]) * 16 + hex(p[2]));
            p += 2;
        } else {
            out += *p == 'n' ? '\n' : *p == 'r' ? '\r' : *p;
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
        if (c == '\n' || c == '\\') {
            out += c == '\n' ? "\\n\n" : "\\\\";
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

// Papers: row 0 Letter "2", row 1 A4 "26", row 2 "-1" (nothing is sent). Trays: row 0 "1", row 1
// "4", row 2 "-1" (the printer picks; nothing is sent).
inline const char kDescription[] = R"(*PDD-Lindgate: 1
*Product: "Quill 4100"
*Orientation Portrait: "@PJL SET ORIENTATION=PORTRAIT\n"
*Orientation Landscape: "@PJL SET ORIENTATION=LANDSCAPE\n"
*PageSize Letter/US Letter: 2
*PaperDimension Letter: "612 792"
*ImageableArea Letter: "18 18 594 774"
*PageSize A4/A4: 26
*PaperDimension A4: "595.2 841.8"
*ImageableArea A4: "18 18 577 824"
*PageSize Fixed/Loaded paper: -1
*PaperDimension Fixed: "612 792"
*ImageableArea Fixed: "18 18 594 774"
*DefaultPageSize: Letter
*InputSlot Tray1/Tray 1: 1
*InputSlot Tray4/Drawer: 4
*InputSlot Auto/Automatic: -1
*DefaultInputSlot: Tray1
*DefaultResolution: 600dpi
*Resolution 600dpi/600 dpi: "600"
)";
inline const char kVersion[] = "*FileVersion: \"2.10\"\n";
constexpr unsigned short kLetter = 0, kA4 = 1, kPaperNone = 2;
constexpr unsigned short kTray1 = 0, kTray4 = 1, kTrayAuto = 2;

} // namespace streamtest
