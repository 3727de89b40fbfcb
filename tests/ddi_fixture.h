// Hand-made configurations and device modes for the settings interface tests: a CFGINFO with
// its wide tables in global blocks, laid out either as a PDD build makes them (each table as
// wide as its longest text plus 1) or as the long-lived copy has them (rows of 24, 64 for
// paper keys and names, cut without a terminator). And the check that a text getter answers a
// size query, an exact fit and a cut as GetString does.
#pragma once

#include "ddi/ddi.h"
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

// A printer with every family filled, one custom paper and texts of the awkward lengths: a
// 40-character paper name, a 24-character tray key, papers without a translation. The margins
// differ between the halves, so a wrong half shows. BuildConfig adds the plug-in QMPLUG.DLL,
// the model "Lindgate ColorLaser 417", language 7 and measurement units 1.
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
                  {6120, 7920, 100, 200, 5920, 7520}};
    s.landscape = {{6120, 7920, 180, 60, 5760, 7800},
                   {5953, 8419, 180, 60, 5593, 8299},
                   {6120, 10080, 180, 60, 5760, 9960},
                   {2970, 6840, 200, 100, 2570, 6640},
                   {6120, 7920, 50, 150, 6020, 7620}};
    s.customPaper = 4;
    s.custLimits = {2160, 3600, 8640, 12960, 6120, 7920, 100, 200, 300, 400};
    s.media = {{u"Plain", u"Plain paper"},
               {u"Transparency", u""},
               {u"HeavyGlossy", u"Heavy glossy paper 163-220 g/m2"}}; // cut to 24 in a copy
    s.trays = {{u"Upper", u"Upper tray"},
               {u"Lower", u"Lower tray"},
               {u"LargeCapacityFeederUnit2", u"Large capacity feeder"}, // 24 characters
               {u"Manual", u""}};
    s.trayIds = {1, 2, 11, 4};
    s.defTray = 1;
    s.dests = {{u"Top", u"Face down"}, {u"Rear", u"Face up"}};
    s.defDest = 1;
    s.res = {{u"300dpi", u"300 x 300 dpi"}, {u"600dpi", u"600 x 600 dpi"}, {u"1200x600", u""}};
    s.resValues = {{300, 300}, {600, 600}, {1200, 600}};
    s.defRes = 1;
    return s;
}

inline HGLOBAL Block(const void *data, size_t size) {
    if (size == 0) return 0;
    HGLOBAL h = GlobalAlloc(GHND, size);
    if (h) {
        std::memcpy(GlobalLock(h), data, size);
        GlobalUnlock(h);
    }
    return h;
}

// Rows of a fixed width: the longest text plus 1, or the copy's width. A text as long as its
// row or longer keeps no terminator.
inline HGLOBAL WideTable(const std::vector<Option> &rows, bool keys, Widths w, DWORD copyWidth,
                         DWORD &width) {
    auto text = [&](const Option &o) -> const std::u16string & {
        return keys ? o.key : o.display();
    };
    width = copyWidth;
    if (w == Widths::Pdd) {
        size_t longest = 0;
        for (const Option &o : rows) longest = std::max(longest, text(o).size());
        width = DWORD(longest + 1);
    }
    std::vector<WCHAR> cells(rows.size() * width, 0);
    for (size_t r = 0; r < rows.size(); ++r)
        std::memcpy(&cells[r * width], text(rows[r]).data(),
                    std::min<size_t>(text(rows[r]).size(), width) * 2);
    return Block(cells.data(), cells.size() * 2);
}

// Builds the CFGINFO block with its tables; ScopedConfig frees both.
inline HGLOBAL BuildConfig(const PrinterDesc &s, Widths w) {
    CFGINFO c{};
    c.wVersion = s.version;
    c.bLangID = 7;
    c.bMeasUnits = 1;
    auto family = [&](const std::vector<Option> &rows, DWORD copyWidth, HGLOBAL &hKeys,
                      DWORD &cchKey, HGLOBAL &hNames, DWORD &cchName, DWORD &n, INT &def, INT d) {
        n = DWORD(rows.size());
        def = d;
        hKeys = WideTable(rows, true, w, copyWidth, cchKey);
        hNames = WideTable(rows, false, w, copyWidth, cchName);
    };
    family(s.papers, 64, c.hPaperKeys, c.cchPaperKey, c.hPaperNames, c.cchPaperName, c.nPapers,
           c.nDefaultPaper, s.defPaper);
    family(s.media, 24, c.hMediaKeys, c.cchMediaKey, c.hMediaNames, c.cchMediaName, c.nMedia,
           c.nDefaultMedia, s.defMedia);
    family(s.trays, 24, c.hTrayKeys, c.cchTrayKey, c.hTrayNames, c.cchTrayName, c.nTrays,
           c.nDefaultTray, s.defTray);
    family(s.dests, 24, c.hDestKeys, c.cchDestKey, c.hDestNames, c.cchDestName, c.nDests,
           c.nDefaultDest, s.defDest);
    family(s.res, 24, c.hResKeys, c.cchResKey, c.hResNames, c.cchResName, c.nResolutions,
           c.nDefaultRes, s.defRes);
    c.hPaperIDs = Block(s.paperIds.data(), s.paperIds.size() * 2);
    c.hTrayIDs = Block(s.trayIds.data(), s.trayIds.size() * 2);
    std::vector<DWORD> v;
    for (auto [x, y] : s.resValues) v.insert(v.end(), {x, y});
    c.hResValues = Block(v.data(), v.size() * 4);
    std::vector<PaperDims> d = s.portrait;
    if (s.version > 8) d.insert(d.end(), s.landscape.begin(), s.landscape.end());
    c.hPaperDims = Block(d.data(), d.size() * sizeof(PaperDims));
    std::memcpy(&c.dwCustMinWidth, s.custLimits.data(), sizeof s.custLimits);
    c.nCustomPaper = s.customPaper;
    const char16_t plugIn[32] = u"QMPLUG.DLL";
    c.hPlugIn = Block(plugIn, sizeof plugIn);
    c.hModelName = Block("Lindgate ColorLaser 417\0\0\0\0\0\0\0\0", 32);
    return Block(&c, sizeof c);
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

// A configuration for the length of a test.
struct ScopedConfig {
    HGLOBAL h;
    explicit ScopedConfig(const PrinterDesc &s, Widths w = Widths::Pdd) : h(BuildConfig(s, w)) {}
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
