// The settings interface tests' printer (tests/data/ddi/sample.pdd) as the values a test
// expects, its configuration laid out either as a PDD build makes it (each table as wide as its
// longest text plus 1) or as the long-lived copy has it (rows of 24, 64 for paper keys and
// names, cut without a terminator), device modes, and the check that a text getter answers a
// size query, an exact fit and a cut as GetString does.
#pragma once

#include "ddi/ddi.h"
#include "pdd_testutil.h"
#include "q417/q417plg.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

namespace ddi_test {

enum class Widths { Pdd, Copy };

struct Option {
    std::u16string key;
    std::u16string name; // empty: no translation, the name is the key
    const std::u16string &display() const { return name.empty() ? key : name; }
};

struct PaperDims {
    DWORD width, height, left, top, imageWidth, imageHeight;
};

struct PrinterDesc {
    WORD version = CFGINFO_VERSION;
    std::vector<Option> papers, media, trays, dests, res;
    std::vector<WORD> paperIds, trayIds;
    std::vector<PaperDims> portrait, landscape;
    std::vector<std::pair<DWORD, DWORD>> resValues;
    INT defPaper = 0, defMedia = 0, defTray = 0, defDest = 0, defRes = 0;
    INT customPaper = -1;
    // min w, min h, max w, max h, def w, def h, margins l t r b
    std::array<DWORD, 10> custLimits = {};
};

// What sample.pdd describes. The custom paper's row has the margins 100, 200, 300 and 400 in
// both halves.
inline PrinterDesc SamplePrinter() {
    PrinterDesc s;
    s.papers = {{u"Letter", u"Letter 8.5 x 11 in"},
                {u"A4", u""},
                {u"Legal", u"Legal 8.5 x 14 in"},
                {u"Env10", u"Envelope #10, 4 1/8 x 9 1/2 in, portrait"}, // 40 characters
                {u"Custom", u"Custom size"}};
    s.paperIds = {1, 9, 5, 20, 256};
    s.portrait = {{6120, 7920, 120, 120, 5880, 7680},
                  {5953, 8419, 120, 120, 5713, 8179},
                  {6120, 10080, 120, 120, 5880, 9840},
                  {2970, 6840, 144, 144, 2682, 6552},
                  {6120, 7920, 100, 200, 5720, 7320}};
    s.landscape = {{6120, 7920, 180, 60, 5760, 7800},
                   {5953, 8419, 180, 60, 5593, 8299},
                   {6120, 10080, 180, 60, 5760, 9960},
                   {2970, 6840, 200, 100, 2570, 6640},
                   {6120, 7920, 100, 200, 5720, 7320}};
    s.customPaper = 4;
    s.custLimits = {2160, 3600, 8640, 12960, 6120, 7920, 100, 200, 300, 400};
    s.media = {{u"Plain", u"Plain paper"},
               {u"Transparency", u""},
               {u"HeavyGlossy", u"Heavy glossy paper 163-220 g/m2"}}; // cut to 24 in a copy
    s.trays = {{u"Upper", u"Upper"},
               {u"Lower", u"Lower"},
               {u"LargeCapacityFeederUnit2", u"Large Capacity"}, // 24 characters
               {u"Manual", u""}};
    s.trayIds = {1, 2, 11, 256};
    s.defTray = 1;
    s.dests = {{u"Top", u"Face down"}, {u"Rear", u"Face up"}};
    s.defDest = 1;
    s.res = {{u"300dpi", u"300 x 300 dpi"}, {u"600dpi", u"600 x 600 dpi"}, {u"1200x600", u""}};
    s.resValues = {{300, 300}, {600, 600}, {1200, 600}};
    s.defRes = 1;
    return s;
}

// Runs f on the locked CFGINFO behind h.
template <class F>
void EditConfig(HGLOBAL h, F f) {
    f(*static_cast<CFGINFO *>(GlobalLock(h)));
    GlobalUnlock(h);
}

// A device mode as a user interface would make one, with room for custom data behind it.
struct DevMode {
    DDIDEVMODE dm;
    BYTE cust[16];
};

inline DevMode MakeDevMode(HGLOBAL hConfig = 0) {
    DevMode d;
    std::memset(&d, 0, sizeof d);
    std::memcpy(d.dm.dmDeviceName, u"Lindgate 417", 13 * 2);
    d.dm.dmSize = DEVMODEW_SIZE;
    d.dm.dmDriverExtra = DDIDEVMODE_EXTRA;
    d.dm.wRecordSize = DDIDEVMODE_SIZE;
    d.dm.dmOrientation = 1;
    d.dm.dmCopies = 1;
    d.dm.bLayout = 1;
    for (DDICOLORCORRECT &cc : d.dm.ColorCorrect) cc.bLightness = cc.bSaturation = 100;
    d.dm.hConfig = hConfig;
    return d;
}

// The configuration of sample.pdd for the length of a test, built as GetConfig builds it or
// copied as the cache has it, with the version and the custom paper's sizes of s.
struct ScopedConfig {
    HGLOBAL h = GlobalAlloc(GHND, CFGINFO_SIZE);
    explicit ScopedConfig(const PrinterDesc &s, Widths w = Widths::Pdd) {
        pddtest::Parsed pdd(std::string(Q417_TEST_DATA) + "/ddi/sample.pdd");
        pddtest::CfgBlock built;
        EXPECT_EQ(built.Build(pdd.h), 1);
        EditConfig(h, [&](CFGINFO &c) {
            DDIDEVMODE dm{};
            dm.hConfig = built.h;
            if (w == Widths::Copy) {
                EXPECT_EQ(CFGCopyInfo(&dm, &c), 1);
                built.c->hFileVersion = built.c->hPortraitCmd = built.c->hLandscapeCmd = 0;
            } else {
                std::swap(c, *built.c);
            }
            c.hPDD = 0;
            c.wVersion = s.version;
            std::memcpy(&c.dwCustMinWidth, s.custLimits.data(), sizeof s.custLimits);
        });
    }
    ~ScopedConfig() {
        EditConfig(h, [](CFGINFO &c) { FreeConfigTables(&c); });
        GlobalFree(h);
    }
    ScopedConfig(const ScopedConfig &) = delete;
    ScopedConfig &operator=(const ScopedConfig &) = delete;
};

constexpr WCHAR kPoison = 0xBEEF;

using TextCall = BOOL (*)(DDIDEVMODE *, DWORD, INT, WCHAR *, DWORD *);

// Capacity 0 asks for the size and writes nothing; the exact size fits; one short cuts the
// last character. Nothing lands past what the length reports.
inline void CheckText(DDIDEVMODE *dm, TextCall call, BOOL expectResult, DWORD id, INT index,
                      const std::u16string &want) {
    const DWORD n = DWORD(want.size() + 1);
    for (DWORD capacity : {0u, n, n - 1}) {
        SCOPED_TRACE(testing::Message()
                     << "id " << id << " index " << index << " capacity " << capacity);
        WCHAR buf[80];
        std::fill(std::begin(buf), std::end(buf), kPoison);
        DWORD len = capacity;
        EXPECT_EQ(call(dm, id, index, buf, &len), expectResult);
        EXPECT_EQ(len, capacity ? capacity : n);
        if (capacity) {
            EXPECT_EQ(std::u16string(buf), want.substr(0, capacity - 1));
        }
        EXPECT_EQ(buf[capacity], kPoison);
    }
}

} // namespace ddi_test
