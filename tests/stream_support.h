// Golden printer streams as escaped text, one command a line, the way the printer language
// manuals write them; and the printer the stream tests run their jobs on.
#pragma once

#include "job_harness.h"

#include "config/config.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
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

inline std::string DataFile(const std::string &name) {
    return q417::test::DataFile("stream/" + name);
}

// A golden stream from tests/data/stream: escaped commands, a line each; "#" starts a comment
// at the start of a line or after two blanks.
inline std::string Golden(const std::string &name) {
    std::istringstream in(DataFile(name));
    std::string out;
    for (std::string line; std::getline(in, line);) {
        line = line.substr(0, line[0] == '#' ? 0 : line.find("  #"));
        out += Unescape(line.substr(0, line.find_last_not_of(' ') + 1));
    }
    return out;
}

inline const char kVersion[] = "*FileVersion: \"2.10\"\n";
constexpr unsigned short kLetter = 0, kA4 = 1, kPaperNone = 2;
constexpr unsigned short kTray1 = 0, kTray4 = 1, kTrayAuto = 2;

// A printer on quill.pdd, with no plug-in, no configuration read yet and no watermark
// definitions: nothing but page set-up commands in the stream.
struct StreamTest : q417::test::JobTest {
    void SetUp() override {
        DiscardDeviceInfo(nullptr);
        ASSERT_TRUE(Q417_SetWindowsDirectory(h.dir().c_str()));
        JobTest::SetUp();
        WriteDescription(kVersion);
    }
    void TearDown() override {
        DiscardDeviceInfo(nullptr);
        Q417_SetWindowsDirectory(nullptr);
        JobTest::TearDown();
    }
    // quill.pdd and further lines; a binary configuration made from an earlier one goes.
    void WriteDescription(const std::string &more) {
        std::filesystem::remove(std::filesystem::path(h.pddPath()).replace_extension("bdd"));
        std::ofstream(h.pddPath(), std::ios::binary) << DataFile("quill.pdd") << more;
    }
};

} // namespace streamtest
