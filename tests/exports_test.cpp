// The shared object shows the driver's exports and the host API, and nothing else.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>

#ifndef Q417_LIBRARY_FILE
#error "Q417_LIBRARY_FILE must name the built libq417plg.so"
#endif

TEST(SharedObject, ExportsExactlyTheEntriesAndTheHostApi) {
    std::string cmd = std::string("nm -D --defined-only ") + Q417_LIBRARY_FILE + " 2>/dev/null";
    FILE *p = popen(cmd.c_str(), "r");
    ASSERT_NE(p, nullptr);
    std::set<std::string> seen;
    char line[512];
    while (std::fgets(line, sizeof line, p)) {
        char type = 0, name[400] = {};
        if (std::sscanf(line, "%*s %c %399s", &type, name) != 2) continue;
        std::string n(name);
        if (auto at = n.find('@'); at != std::string::npos) n.resize(at);
        if (type == 'A') continue; // the version node itself
        seen.insert(n);
    }
    pclose(p);
    // clang-format off
    const std::set<std::string> entries = {
        "DrvSplStartDoc", "DrvSplWritePrinter", "DrvSplStartPage", "DrvSplEndPage", "DrvSplEndDoc",
        "DrvSplAbort", "DrvSplClose", "DDIGetDWord", "DDISetDWord", "DDIGetString", "DDISetString",
        "DDIGetCustDataPtr", "DDISetDialogResult", "DDIGetKeywordNumOptions",
        "DDIGetKeywordDefaultOption", "DDIGetKeywordOptionString",
        "DDIGetKeywordOptionTranslation", "GetConfig"};
    // clang-format on
    for (const auto &e : entries) EXPECT_TRUE(seen.count(e)) << "missing export " << e;
    for (const auto &s : seen)
        EXPECT_TRUE(entries.count(s) || s.rfind("Q417_", 0) == 0) << "unexpected export " << s;
}
