// Golden printer streams as escaped text, one command a line, the way the printer language
// manuals write them.
#pragma once

#include "job_harness.h"

#include <cstdio>
#include <initializer_list>
#include <sstream>
#include <string>

namespace streamtest {

// "\x1b" (exactly two hex digits), "\n", "\r", "\\" to bytes; everything else as it stands.
inline std::string Unescape(const std::string &text) {
    std::string out;
    auto hex = [](char c) { return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10; };
    for (const char *p = text.c_str(); *p; ++p) {
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

// A golden stream from tests/data/stream: escaped commands, a line each; "#" starts a comment
// at the start of a line or after two blanks.
inline std::string Golden(const std::string &name) {
    std::istringstream in(q417::test::DataFile("stream/" + name));
    std::string out;
    for (std::string line; std::getline(in, line);) {
        line = line.substr(0, line[0] == '#' ? 0 : line.find("  #"));
        out += Unescape(line.substr(0, line.find_last_not_of(' ') + 1));
    }
    return out;
}

} // namespace streamtest
