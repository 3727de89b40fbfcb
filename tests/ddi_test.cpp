// The settings interface: the selection families through the keyword calls and the numeric
// ids, every id of DDIGetDWord and DDISetDWord, the text ids of DDIGetString, the custom paper
// size, and the small calls beside them. The printer is tests/data/ddi/sample.pdd, its
// configuration laid out either as a PDD build makes it (each table as wide as its longest text
// plus 1) or as the long-lived copy has it (rows of 24, 64 for paper keys and names, cut without
// a terminator); tests/data/ddi/sample.txt lists what the selection calls tell of it.
#include "ddi/ddi.h"
#include "pdd_testutil.h"
#include "q417/host.h"
#include "q417/q417plg.h"

#include <array>
#include <climits>
#include <sstream>

namespace {

constexpr DWORD kNone = 0xFFFFFFFFu;

enum class Widths { Pdd, Copy };

// A device mode as a user interface would make one, with room for custom data behind it.
struct DevMode {
    DDIDEVMODE dm;
    BYTE cust[16];
};

DevMode MakeDevMode(HGLOBAL hConfig = 0) {
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
// copied as the cache has it.
struct ScopedConfig : pddtest::CfgBlock {
    explicit ScopedConfig(Widths w = Widths::Pdd) {
        pddtest::Parsed pdd(std::string(Q417_TEST_DATA) + "/ddi/sample.pdd");
        EXPECT_EQ(Build(pdd.h), 1);
        c->hPDD = 0; // the parsed record goes with pdd
        if (w == Widths::Pdd) return;
        DDIDEVMODE dm{};
        dm.hConfig = h;
        CFGINFO copy{};
        EXPECT_EQ(CFGCopyInfo(&dm, &copy), 1);
        c->hFileVersion = c->hPortraitCmd = c->hLandscapeCmd = 0; // passed to the copy
        FreeCfgTables(c);
        *c = copy;
    }
};

constexpr WCHAR kPoison = 0xBEEF;

using TextCall = BOOL (*)(DDIDEVMODE *, DWORD, INT, WCHAR *, DWORD *);

// A text as a call gives it, held to the size protocol on the way: capacity 0 asks for the size
// and writes nothing; the size asked for fits; one short cuts the last character. Nothing lands
// past what the length reports.
std::u16string ReadText(TextCall call, DDIDEVMODE *dm, BOOL result, DWORD id, INT index) {
    DWORD n = 0;
    std::u16string text;
    for (DWORD k = 0; k < 3; ++k) {
        const DWORD capacity = k ? n + 1 - k : 0;
        SCOPED_TRACE(testing::Message()
                     << "id " << id << " index " << index << " capacity " << capacity);
        WCHAR buf[80];
        std::fill(std::begin(buf), std::end(buf), kPoison);
        DWORD len = capacity;
        EXPECT_EQ(call(dm, id, index, buf, &len), result);
        if (k == 0) n = len;
        if (n == 0 || n >= 80) {
            ADD_FAILURE() << "size " << n;
            return u"";
        }
        if (k == 1) text = buf;
        EXPECT_EQ(len, capacity ? capacity : n);
        if (capacity) {
            EXPECT_EQ(std::u16string(buf), text.substr(0, capacity - 1));
        }
        EXPECT_EQ(buf[capacity], kPoison);
    }
    EXPECT_EQ(text.size() + 1, n);
    return text;
}

const std::pair<DWORD, const char *> kFamilies[] = {{DDI_PAPERSIZE, "paper"},
                                                    {DDI_MEDIATYPE, "media"},
                                                    {DDI_PAPERSOURCE, "tray"},
                                                    {DDI_PAPERDEST, "bin"},
                                                    {DDI_RESOLUTION, "resolution"}};

std::string Narrow(const std::u16string &s) {
    return std::string(s.begin(), s.end());
}

// The paper's dimensions for an orientation code, in id order: width, height, printable width
// and height, left, top.
std::string Dims(DDIDEVMODE *dm, DWORD code) {
    EXPECT_EQ(DDISetDWord(dm, DDI_PAGEORIENT, code), 1u);
    std::string s;
    for (DWORD k = 0; k < 6; ++k) s += " " + std::to_string(DDIGetDWord(dm, DDI_PAPERWIDTH + k));
    return s;
}

// Every row of every list: its key and name, "copy:" and the two where a copy's fixed widths
// tell them otherwise, then what choosing the row puts in the record (the Windows ids, the
// dimensions in portrait and landscape, the custom size, the resolution).
TEST(DdiSelections, EveryRowOfEveryListAsTheSampleDescribesIt) {
    ScopedConfig built, copied(Widths::Copy), old;
    old.c->wVersion = 8; // only the portrait half of the dimensions
    DevMode d = MakeDevMode(built.h), c = MakeDevMode(copied.h), o = MakeDevMode(old.h);
    std::ostringstream out;
    for (const auto &[id, family] : kFamilies) {
        const INT rows = DDIGetKeywordNumOptions(&d.dm, id);
        out << family << ": " << rows << " rows, default " << DDIGetKeywordDefaultOption(&d.dm, id)
            << "\n";
        EXPECT_EQ(DDIGetKeywordNumOptions(&c.dm, id), rows);
        EXPECT_EQ(DDIGetKeywordDefaultOption(&c.dm, id), DDIGetKeywordDefaultOption(&d.dm, id));
        for (INT i = 0; i < rows; ++i) {
            std::string texts[2];
            for (DevMode *m : {&d, &c})
                texts[m == &c] =
                    Narrow(ReadText(DDIGetKeywordOptionString, &m->dm, TRUE, id, i)) + " | " +
                    Narrow(ReadText(DDIGetKeywordOptionTranslation, &m->dm, FALSE, id, i));
            out << i << " " << texts[0] << (texts[1] == texts[0] ? "" : " | copy: " + texts[1]);
            if (id == DDI_PAPERSIZE || id == DDI_PAPERSOURCE || id == DDI_RESOLUTION) {
                ASSERT_EQ(DDISetDWord(&d.dm, id, i), 1u);
                EXPECT_EQ(DDIGetDWord(&d.dm, id), DWORD(i));
            }
            if (id == DDI_PAPERSIZE) {
                const std::string portrait = Dims(&d.dm, 0), landscape = Dims(&d.dm, 1);
                EXPECT_EQ(Dims(&d.dm, 2), portrait) << "turned by 180 degrees: the same";
                EXPECT_EQ(Dims(&d.dm, 3), landscape);
                o.dm.wPaperIndex = WORD(i);
                for (DWORD code : {0u, 1u, 2u, 3u}) EXPECT_EQ(Dims(&o.dm, code), portrait);
                out << " | id " << d.dm.dmPaperSize << " |" << portrait << " |" << landscape
                    << " | custom " << DDIGetDWord(&d.dm, DDI_CUSTOMPAPER) << ": "
                    << d.dm.wCustWidth << " x " << d.dm.wCustHeight << ", " << d.dm.dmPaperWidth
                    << " x " << d.dm.dmPaperLength;
            }
            if (id == DDI_PAPERSOURCE) out << " | id " << d.dm.dmDefaultSource;
            if (id == DDI_RESOLUTION)
                out << " | " << d.dm.dmPrintQuality << " x " << d.dm.dmYResolution;
            out << "\n";
        }
        WCHAR buf[8];
        DWORD len = 8;
        EXPECT_EQ(DDIGetKeywordOptionString(&c.dm, id, rows, buf, &len), TRUE);
        EXPECT_EQ(len, 0u) << "one past the last row";
    }
    std::ifstream in(std::string(Q417_TEST_DATA) + "/ddi/sample.txt");
    std::string want;
    for (std::string line; std::getline(in, line);)
        if (line.rfind('#', 0) != 0) want += line + "\n"; // "#" lines are comments
    EXPECT_EQ(out.str(), want);
}

// Keyword ids of no list, rows past a table, tables shorter than their counts, blocks that
// aren't a CFGINFO and one never filled: what isn't there reads as absent or is refused.
TEST(DdiSelections, MissingOrShortTablesReadAsAbsent) {
    ScopedConfig cfg;
    DevMode d = MakeDevMode(cfg.h), before = d;
    WCHAR buf[8];
    DWORD len = 8;
    // Rows past each table are refused and leave the record as it was.
    const std::pair<DWORD, DWORD> refused[] = {
        {DDI_PAPERSIZE, 5},     {DDI_PAPERSOURCE, 4},           {DDI_RESOLUTION, 3},
        {DDI_PAPERSIZE, kNone}, {DDI_PAPERSOURCE, 0x80000000u}, {DDI_RESOLUTION, 0x10000u}};
    for (const auto &[id, row] : refused)
        EXPECT_EQ(DDISetDWord(&d.dm, id, row), 0u) << id << " " << row;
    EXPECT_EQ(std::memcmp(&d, &before, sizeof d), 0);
    // Media and bin take any index, cut to 16 bits.
    EXPECT_EQ(DDISetDWord(&d.dm, DDI_MEDIATYPE, 70000), 1u);
    EXPECT_EQ(DDIGetDWord(&d.dm, DDI_MEDIATYPE), 70000u & 0xFFFF);
    EXPECT_EQ(DDISetDWord(&d.dm, DDI_PAPERDEST, kNone), 1u);
    EXPECT_EQ(DDIGetDWord(&d.dm, DDI_PAPERDEST), 0xFFFFu);
    // Ids that name no list; the length is left alone.
    for (DWORD id : {9u, 11u, 16u, 21u, 0xFFFFFFFFu}) {
        EXPECT_EQ(DDIGetKeywordNumOptions(&d.dm, id), -1) << id;
        EXPECT_EQ(DDIGetKeywordDefaultOption(&d.dm, id), -1);
        EXPECT_EQ(DDIGetKeywordOptionString(&d.dm, id, 0, buf, &len), FALSE);
        EXPECT_EQ(DDIGetKeywordOptionTranslation(&d.dm, id, 0, buf, &len), FALSE);
        EXPECT_EQ(len, 8u);
    }
    EXPECT_EQ(DDIGetKeywordNumOptions(nullptr, DDI_PAPERSIZE), 0);
    EXPECT_EQ(DDIGetKeywordDefaultOption(nullptr, DDI_PAPERSIZE), -1);
    EXPECT_EQ(DDIGetKeywordOptionString(nullptr, DDI_PAPERSIZE, 0, buf, &len), FALSE);

    cfg.c->nPapers = 1000; // the tables hold 5 rows
    cfg.c->nTrays = 0x7FFFFFFF;
    cfg.c->cchResName = 0x40000000; // one row would be 2 GiB
    len = 8;
    EXPECT_EQ(DDIGetKeywordOptionString(&d.dm, DDI_PAPERSIZE, 4, buf, &len), TRUE);
    EXPECT_EQ(len, 7u) << "rows inside the block still read";
    for (INT i : {-1, 5, 999, INT_MIN}) {
        len = 8;
        EXPECT_EQ(DDIGetKeywordOptionString(&d.dm, DDI_PAPERSIZE, i, buf, &len), TRUE);
        EXPECT_EQ(len, 0u);
        EXPECT_EQ(DDISetPaperSource(&d.dm, i), 0);
    }
    len = 8;
    EXPECT_EQ(DDIGetKeywordOptionTranslation(&d.dm, DDI_RESOLUTION, 0, buf, &len), FALSE);
    EXPECT_EQ(len, 0u);

    // No configuration, a block too small for one, a handle of nothing, one never filled.
    HGLOBAL small = GlobalAlloc(GHND, 16), empty = GlobalAlloc(GHND, CFGINFO_SIZE);
    for (HGLOBAL h : {HGLOBAL(0), small, HGLOBAL(0xDEADBEEF), empty}) {
        DevMode f = MakeDevMode(h);
        WCHAR text[4];
        len = 4;
        EXPECT_EQ(DDIGetKeywordOptionString(&f.dm, DDI_PAPERSIZE, 0, text, &len), h != 0);
        EXPECT_EQ(len, h ? 0u : 4u) << "any handle is a list with no text";
        for (const auto &family : kFamilies) {
            EXPECT_EQ(DDIGetKeywordNumOptions(&f.dm, family.first), 0);
            EXPECT_EQ(DDIGetKeywordDefaultOption(&f.dm, family.first), h == empty ? 0 : -1);
        }
        for (DWORD id : {DDI_PAPERSIZE, DDI_PAPERSOURCE, DDI_RESOLUTION, DDI_CUSTWIDTH})
            EXPECT_EQ(DDISetDWord(&f.dm, id, 1), 0u) << id;
        EXPECT_EQ(DDISetDWord(&f.dm, DDI_MEDIATYPE, 2), h == empty ? 1u : 0u);
        EXPECT_EQ(DDIGetDWord(&f.dm, DDI_PAPERWIDTH), kNone);
        EXPECT_EQ(DDIGetDWord(&f.dm, DDI_LANGVERSION), h == empty ? 0u : 9u);
    }
    GlobalFree(small);
    GlobalFree(empty);
}

// Ids without a setter read their field, with the sample printer's configuration and without
// one, and refuse to write; ids outside the table and in its gaps (27, 37 to 39) do nothing.
// The ids with a setter are in the settings, selection and custom page tests.
TEST(DdiDispatch, ReadOnlyAndUnknownIds) {
    static SPLDEVINFO job{};
    job.nPage = 7;
    ScopedConfig cfg(Widths::Copy);
    DevMode d = MakeDevMode(cfg.h);
    d.dm.dwSession = 0x5E55;
    d.dm.bJobStatus = 6;
    d.dm.hPrinter = 0x1234;
    d.dm.pJobInfo = Ptr32From(&job);
    const DevMode before = d;
    // The id, what it reads, and what it reads without a configuration.
    std::vector<std::array<DWORD, 3>> ids = {{DDI_SESSION, 0x5E55, 0x5E55},
                                             {DDI_JOBSTATUS, 6, 6},
                                             {DDI_CURRENTPAGE, 7, 7},
                                             {DDI_CUSTOMPAPER, 0, 0},
                                             {DDI_LANGVERSION, 7, 9},
                                             {DDI_MEASUNITS, 1, 0},
                                             {DDI_PRINTERHANDLE, 0x1234, 0x1234},
                                             {DDI_TTCOUNT, 0, 0}};
    // The custom paper's limits in their order: minimum, maximum, default, then the margins.
    const DWORD limits[] = {2160, 3600, 8640, 12960, 6120, 7920, 100, 200, 300, 400};
    for (DWORD k = 0; k < 10; ++k) ids.push_back({DDI_CUSTMINWIDTH + k, limits[k], kNone});
    for (DWORD id : {0u, 8u, 27u, 37u, 38u, 39u, 76u, 0x80000000u, 0xFFFFFFFFu})
        ids.push_back({id, kNone, kNone});
    for (const auto &[id, get, getNoConfig] : ids) {
        SCOPED_TRACE(testing::Message() << "id " << id);
        EXPECT_EQ(DDIGetDWord(&d.dm, id), get);
        EXPECT_EQ(DDISetDWord(&d.dm, id, 1), 0u);
        EXPECT_EQ(DDIGetDWord(nullptr, id), kNone);
        EXPECT_EQ(DDISetDWord(nullptr, id, 1), 0u);
        d.dm.hConfig = 0;
        EXPECT_EQ(DDIGetDWord(&d.dm, id), getNoConfig);
        // The ids with a setter that needs a configuration refuse without one.
        for (DWORD set : {DDI_PAPERSIZE, DDI_MEDIATYPE, DDI_PAPERSOURCE, DDI_PAPERDEST,
                          DDI_RESOLUTION, DDI_CUSTWIDTH, DDI_CUSTHEIGHT})
            EXPECT_EQ(DDISetDWord(&d.dm, set, 1), 0u) << set;
        d.dm.hConfig = cfg.h;
        EXPECT_EQ(std::memcmp(&d, &before, sizeof d), 0);
    }
    // Only the getter checks the record's size; the setters write into any block.
    for (WORD size : {WORD(0), WORD(220), WORD(403), WORD(405)}) {
        d.dm.wRecordSize = size;
        EXPECT_EQ(DDIGetDWord(&d.dm, DDI_SESSION), kNone) << size;
        EXPECT_EQ(DDIGetDWord(&d.dm, DDI_COPIES), kNone) << size;
    }
    EXPECT_EQ(DDISetDWord(&d.dm, DDI_COPIES, 9), 1u);
    EXPECT_EQ(d.dm.dmCopies, 9);
}

BOOL GetStringAt(DDIDEVMODE *dm, DWORD id, INT, WCHAR *buf, DWORD *len) {
    return DDIGetString(dm, id, buf, len);
}

TEST(DdiGetString, TextIdsAnswerAsGetStringDoes) {
    ScopedConfig cfg;
    DevMode d = MakeDevMode(cfg.h);
    std::memcpy(d.dm.szModelName, "ABCDEFGHIJKLMNOPQRSTUVWXYZ012345", 32); // no terminator
    const std::u16string job = u"Quarterly report.pdf";
    d.dm.hJobName = pddtest::Block(job.c_str(), (job.size() + 1) * 2);
    const std::pair<DWORD, std::u16string> texts[] = {
        {DDI_STR_DEVICENAME, u"Lindgate 417"},
        {DDI_STR_PLUGIN, u"QMPLUG.DLL"},
        {DDI_STR_CFGMODEL, u"Lindgate ColorLaser 417"},
        {DDI_STR_MODEL, u"ABCDEFGHIJKLMNOPQRSTUVWXYZ01234"}, // at most 31 characters
        {DDI_STR_JOBNAME, job},
        {DDI_STR_PORT, u"LPT2:"}, // the spooler's answer
    };
    const Q417_PRINTER printer = {"Quillmark", "/nowhere/q.pdd", nullptr, "LPT2:", nullptr};
    d.dm.hPrinter = Q417_AddPrinter(&printer);
    WCHAR buf[16];
    DWORD len;
    for (const auto &[id, text] : texts) {
        EXPECT_EQ(ReadText(GetStringAt, &d.dm, TRUE, id, 0), text);
        // Without a record the text is missing, and the call still answers 1.
        len = 16;
        EXPECT_EQ(DDIGetString(nullptr, id, buf, &len), TRUE);
        EXPECT_EQ(len, 0u);
    }
    GlobalFree(d.dm.hJobName);
    Q417_DeletePrinter(d.dm.hPrinter);

    // The version's length leaves the terminator out and stays 8 whatever the capacity.
    for (DWORD capacity : {16u, 4u}) {
        std::fill(std::begin(buf), std::end(buf), kPoison);
        len = capacity;
        EXPECT_EQ(DDIGetString(&d.dm, DDI_STR_VERSION, buf, &len), TRUE);
        EXPECT_EQ(len, 8u);
        EXPECT_EQ(std::u16string(buf), std::u16string(u"1.0.0009").substr(0, capacity - 1));
        EXPECT_EQ(buf[std::min(capacity, 9u)], kPoison);
    }
    // Ids that do nothing, and ids that aren't there; neither touches buffer or length.
    for (DWORD id : {0u, 7u, 75u, 9u, 74u, 76u, 0xFFFFFFFFu}) {
        std::fill(std::begin(buf), std::end(buf), kPoison);
        len = 16;
        EXPECT_EQ(DDIGetString(&d.dm, id, buf, &len), (id == 0 || id == 7 || id == 75)) << id;
        EXPECT_EQ(len, 16u);
        EXPECT_EQ(buf[0], kPoison);
    }
    EXPECT_EQ(DDIGetString(&d.dm, DDI_STR_DEVICENAME, nullptr, &len), FALSE);
    EXPECT_EQ(DDIGetString(&d.dm, DDI_STR_VERSION, buf, nullptr), FALSE);
    // No printer, no port: an empty text.
    d.dm.hPrinter = 0;
    EXPECT_EQ(DDIGetString(&d.dm, DDI_STR_PORT, buf, &len), TRUE);
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(DDIGetDevicePort(&d.dm, buf, -1), 0);
}

TEST(DdiSmallCalls, DialogResultAndCustomData) {
    DevMode d = MakeDevMode();
    // Code 2 leaves bit 1 set, which a later code 0 keeps.
    const DWORD steps[][3] = {{0, TRUE, 0}, {2, TRUE, 3},  {0, TRUE, 2}, {1, TRUE, 1},
                              {0, TRUE, 0}, {3, FALSE, 0}, {2, TRUE, 3}, {kNone, FALSE, 3}};
    for (const auto &[code, result, stored] : steps) {
        EXPECT_EQ(DDISetDialogResult(&d.dm, code), BOOL(result)) << code;
        EXPECT_EQ(d.dm.dwDialogResult, stored) << code;
    }
    EXPECT_EQ(DDISetDialogResult(nullptr, 1), FALSE);

    // Custom data lies behind the 404 bytes only when the declared sizes say it does.
    void *p = &d;
    d.dm.pCustData = 0x1234;
    SetCustDataPtr(&d.dm);
    DDIGetCustDataPtr(&d.dm, &p);
    EXPECT_EQ(p, nullptr);
    d.dm.dmDriverExtra = DDIDEVMODE_EXTRA + 1;
    SetCustDataPtr(&d.dm);
    DDIGetCustDataPtr(&d.dm, &p);
    EXPECT_EQ(p, static_cast<void *>(d.cust));
    DDIGetCustDataPtr(nullptr, &p);
    EXPECT_EQ(p, nullptr);
}

// A field of the record: its offset and its width in bytes.
#define AT(field)                                                                                  \
    offsetof(DDIDEVMODE, field), int(sizeof(static_cast<DDIDEVMODE *>(nullptr)->field))

// Every id whose setter writes the record, through DDISetDWord and DDIGetDWord; the ids that
// need a configuration are in the selection and custom page tests.
TEST(DdiSettings, SettersStoreTheirEncodingAndAnswerAsGiven) {
    // One field of the record before and after a DDISetDWord, the call's result, and what
    // DDIGetDWord reads back.
    struct Case {
        DWORD id;
        size_t off;
        int width;
        DWORD before, value, result, after, readBack;
    };
    constexpr DWORD kNo = 0xFFFFFFFFu;
    const Case cases[] = {
        {DDI_CCTYPE0, AT(ColorCorrect[0].bType), 0, 7, 1, 7, 7},
        {DDI_CCTYPE1, AT(ColorCorrect[1].bType), 0, 4, 1, 4, 4},
        {DDI_CCTYPE2, AT(ColorCorrect[2].bType), 4, 8, 0, 4, 4},
        {DDI_CCRENDALG0, AT(ColorCorrect[0].bRendAlg), 1, 3, 1, 3, 3},
        {DDI_CCRENDALG1, AT(ColorCorrect[1].bRendAlg), 0, 2, 1, 2, 2},
        {DDI_CCRENDALG2, AT(ColorCorrect[2].bRendAlg), 0, 4, 1, 4, 4},
        {DDI_CCRENDALG2, AT(ColorCorrect[2].bRendAlg), 0, 5, 0, 0, 0},
        // Lightness and saturation: signed percentages, the byte holds the value plus 100.
        {DDI_CCLIGHTNESS0, AT(ColorCorrect[0].bLightness), 100, 100, 1, 200, 100},
        {DDI_CCLIGHTNESS0, AT(ColorCorrect[0].bLightness), 100, DWORD(-100), 1, 0, DWORD(-100)},
        {DDI_CCLIGHTNESS0, AT(ColorCorrect[0].bLightness), 100, 101, 0, 100, 0},
        {DDI_CCLIGHTNESS0, AT(ColorCorrect[0].bLightness), 100, DWORD(-101), 0, 100, 0},
        {DDI_CCLIGHTNESS1, AT(ColorCorrect[1].bLightness), 100, DWORD(-50), 1, 50, DWORD(-50)},
        {DDI_CCLIGHTNESS2, AT(ColorCorrect[2].bLightness), 100, 30, 1, 130, 30},
        {DDI_CCSATURATION0, AT(ColorCorrect[0].bSaturation), 100, DWORD(-1), 1, 99, DWORD(-1)},
        {DDI_CCSATURATION1, AT(ColorCorrect[1].bSaturation), 100, 20, 1, 120, 20},
        {DDI_CCSATURATION2, AT(ColorCorrect[2].bSaturation), 0, 50, 1, 150, 50},
        {DDI_CCSATURATION2, AT(ColorCorrect[2].bSaturation), 0, 0x80000000u, 0, 0, DWORD(-100)},
        // Pages per sheet: bits 0-5 of bLayout, booklet and border bits stay.
        {DDI_PAGESPERSHEET, AT(bLayout), 0xC0, 16, 1, 0xD0, 16},
        {DDI_PAGESPERSHEET, AT(bLayout), 0xC4, 3, 0, 0xC4, 4},
        {DDI_PAGESPERSHEET, AT(bLayout), 0x41, 0, 0, 0x41, 1},
        {DDI_PAGEBORDER, AT(bLayout), 0x04, 2, 1, 0x84, 1},
        {DDI_PAGEBORDER, AT(bLayout), 0xC4, 0, 1, 0x44, 0},
        {DDI_BOOKLETMODE, AT(bLayout), 0x81, 0x100, 1, 0xC1, 1},
        // Duplex: 0 and 1 both store 1; the result is the value given, -1 when refused.
        {DDI_DUPLEX, AT(dmDuplex), 0, 0, 0, 1, 1},
        {DDI_DUPLEX, AT(dmDuplex), 0, 3, 3, 3, 3},
        {DDI_DUPLEX, AT(dmDuplex), 2, 4, kNo, 2, 2},
        {DDI_DUPLEX, AT(dmDuplex), 7, 4, kNo, 7, 0}, // a foreign value reads 0
        // Collate: the value given, so 0 looks like a failure; -1 when refused.
        {DDI_COLLATE, AT(dmCollate), 1, 0, 0, 0, 0},
        {DDI_COLLATE, AT(dmCollate), 0, 1, 1, 1, 1},
        {DDI_COLLATE, AT(dmCollate), 1, 2, kNo, 1, 1},
        // Output capability: codes 1-3 replace the whole byte, 0 clears only bits 0 and 1.
        {DDI_OUTPUTCAPS, AT(bOutputFlags), 0x04, 1, 1, 0x02, 1},
        {DDI_OUTPUTCAPS, AT(bOutputFlags), 0x0C, 2, 1, 0x03, 2},
        {DDI_OUTPUTCAPS, AT(bOutputFlags), 0x04, 3, 1, 0x01, 3},
        {DDI_OUTPUTCAPS, AT(bOutputFlags), 0x07, 0, 1, 0x04, 0},
        {DDI_OUTPUTCAPS, AT(bOutputFlags), 0x0D, 4, 1, 0x0D, 3},
        {DDI_TEXTCLIPPING, AT(bOutputFlags), 0x0B, 5, 1, 0x0F, 1},
        {DDI_TEXTCLIPPING, AT(bOutputFlags), 0x0F, 0, 1, 0x0B, 0},
        // Font mapping 0-4; a foreign byte above 4 reads as 0.
        {DDI_FONTMAPPING, AT(bFontMapping), 9, 5, 0, 9, 0},
        {DDI_FONTMAPPING, AT(bFontMapping), 9, 4, 1, 4, 4},
        {DDI_TTDOWNLOAD, AT(bTTDownload), 0, 2, 0, 0, 0},
        {DDI_TTDOWNLOAD, AT(bTTDownload), 0, 1, 1, 1, 1},
        // Copies: 0 and above, cut to 16 bits, read back sign-extended.
        {DDI_COPIES, AT(dmCopies), 1, 0, 1, 0, 0},
        {DDI_COPIES, AT(dmCopies), 1, 70000, 1, 4464, 4464},
        {DDI_COPIES, AT(dmCopies), 1, 0xFFFF, 1, 0xFFFF, kNo},
        {DDI_COPIES, AT(dmCopies), 1, 0x80000000u, 0, 1, 1},
        {DDI_EMULATION, AT(wEmulation), 4, 7, 0, 4, 4},
        {DDI_EMULATION, AT(wEmulation), 4, 0, 0, 4, 4},
        {DDI_EMULATION, AT(wEmulation), 4, 6, 1, 6, 6},
        {DDI_CCGAMMA, AT(sGamma), 0, 4001, 0, 0, 0},
        {DDI_CCGAMMA, AT(sGamma), 0, 4000, 1, 4000, 4000},
        {DDI_HALFTONE, AT(dwHalftonePattern), 0, 16, 0, 0, 0},
        {DDI_HALFTONE, AT(dwHalftonePattern), 0, 15, 1, 15, 15},
        {DDI_PRESET, AT(dwPreset), 0, 0xFFFFFFF0u, 1, 0xFFFFFFF0u, 0xFFFFFFF0u},
        {DDI_BOOKLETPAPERID, AT(wBookletPaperID), 0, 0x12345, 1, 0x2345, 0x2345},
        // Watermark fields answer with what they stored, so storing 0 answers 0.
        {DDI_WMFIRSTPAGE, AT(bWMFirstPage), 0, 0x1FF, 0xFF, 0xFF, 0xFF},
        {DDI_WMFIRSTPAGE, AT(bWMFirstPage), 1, 0x100, 0, 0, 0},
        {DDI_WATERMARK, AT(wWaterMark), 0, 0x10003, 3, 3, 3},
        // ICM is accepted and kept nowhere.
        {DDI_ICMMODE, AT(dmICMMethod), 0, 2, 1, 0, 0},
        {DDI_ICMINTENT, AT(dmICMIntent), 0, 2, 1, 0, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << "id " << c.id << " value " << c.value);
        DevMode d = MakeDevMode();
        auto *rec = reinterpret_cast<BYTE *>(&d.dm);
        std::memcpy(rec + c.off, &c.before, c.width);
        DevMode before = d;
        EXPECT_EQ(DDISetDWord(&d.dm, c.id, c.value), c.result);
        DWORD after = 0;
        std::memcpy(&after, rec + c.off, c.width);
        EXPECT_EQ(after, c.after);
        EXPECT_EQ(DDIGetDWord(&d.dm, c.id), c.readBack);
        std::memcpy(rec + c.off, &c.before, c.width);
        EXPECT_EQ(std::memcmp(&d, &before, sizeof d), 0) << "another field changed";
    }
}

TEST(DdiSettings, PageOrientationResetsToPortraitBeforeRefusing) {
    // Code, result, then dmOrientation, bRotated and the code read back.
    const DWORD cases[][5] = {{0, 1, 1, 0, 0}, {1, 1, 2, 0, 1}, {2, 1, 1, 1, 2},
                              {3, 1, 2, 1, 3}, {7, 0, 1, 0, 0}, {0xFFFFFFFFu, 0, 1, 0, 0}};
    for (const auto &[code, result, orientation, rotated, readBack] : cases) {
        DevMode d = MakeDevMode();
        d.dm.dmOrientation = 2;
        d.dm.bRotated = 1;
        EXPECT_EQ(DDISetDWord(&d.dm, DDI_PAGEORIENT, code), result) << code;
        EXPECT_EQ(DWORD(d.dm.dmOrientation), orientation);
        EXPECT_EQ(d.dm.bRotated, rotated);
        EXPECT_EQ(DDIGetDWord(&d.dm, DDI_PAGEORIENT), readBack);
    }
}

TEST(DdiSettings, ColourClassesOutsideZeroToTwoAreRefused) {
    DevMode d = MakeDevMode(), before = d;
    EXPECT_EQ(DDIGetCCType(&d.dm, 3), -1);
    EXPECT_EQ(DDIGetCCLightness(&d.dm, -1), 0);
    EXPECT_EQ(DDISetCCSaturation(&d.dm, 3, 0), 0);
    EXPECT_EQ(DDISetCCType(&d.dm, -1, 1), 0);
    EXPECT_EQ(std::memcmp(&d, &before, sizeof d), 0);
}

using Row = std::array<DWORD, 6>;    // width, height, left, top, imageable width, height
using Limits = std::array<DWORD, 4>; // minimum width, height, maximum width, height

Row CustomRow(const ScopedConfig &cfg, bool landscape = false) {
    const auto dims = pddtest::Bytes<DWORD>(cfg.c->hPaperDims);
    Row r;
    std::copy_n(dims.begin() + 6 * (cfg.c->nCustomPaper + (landscape ? cfg.c->nPapers : 0)), 6,
                r.begin());
    return r;
}

TEST(DdiCustomPage, SizesAreLimitedConvertedAndWrittenToTheCustomRow) {
    // The sample printer's margins: left 100, top 200, right 300, bottom 400. The row starts
    // as 6120 x 7920. Width and height in the record: 0 when untouched.
    constexpr Limits kSample = {2160, 3600, 8640, 12960}, kNoLimits = {};
    constexpr Limits kCrossed = {5000, 5000, 3000, 3000}, kOnlyMax = {0, 3600, 8640, 12960};
    struct Case {
        Limits limits;
        INT width, height;
        WORD custWidth, custHeight;
        SHORT paperWidth, paperLength;
        Row row;
    };
    const Case cases[] = {
        // clang-format off
        {kSample, 2160, 0, 2160, 0, 762, 0, {2160, 7920, 100, 200, 1760, 7320}},  // the minimum
        {kSample, 8640, 0, 8640, 0, 3048, 0, {8640, 7920, 100, 200, 8240, 7320}}, // the maximum
        {kSample, 1000, 0, 2160, 0, 762, 0, {2160, 7920, 100, 200, 1760, 7320}},  // below: min
        {kSample, 9000, 0, 8640, 0, 3048, 0, {8640, 7920, 100, 200, 8240, 7320}}, // above: max
        {kSample, -5, 0, 2160, 0, 762, 0, {2160, 7920, 100, 200, 1760, 7320}},    // negative
        {kSample, 0, 20000, 0, 12960, 0, 4572, {6120, 12960, 100, 200, 5720, 12360}},
        {kSample, 0, 3600, 0, 3600, 0, 1270, {6120, 3600, 100, 200, 5720, 3000}},
        {kSample, 5000, 6000, 5000, 6000, 1763, 2116, {5000, 6000, 100, 200, 4600, 5400}},
        // (0, 0) changes no record field and still rewrites margins and imageable area.
        {kSample, 0, 0, 0, 0, 0, 0, {6120, 7920, 100, 200, 5720, 7320}},
        // Without limits 612 decipoints (8.5 mm and a bit) is 215 tenths, remainder dropped.
        {kNoLimits, 612, 0, 612, 0, 215, 0, {612, 7920, 100, 200, 212, 7320}},
        {kNoLimits, 100000, 0, WORD(100000), 0, SHORT(35277), 0, {100000, 7920, 100, 200, 99600, 7320}},
        // Limits compare signed: a negative width passes a maximum and keeps its low 16 bits.
        {kOnlyMax, -720, 0, 0xFD30, 0, -254, 0, {DWORD(-720), 7920, 100, 200, DWORD(-1120), 7320}},
        // A minimum above the maximum: the minimum is tested first, and a size below it is not
        // tested against the maximum after that; one equal to it is.
        {kCrossed, 4000, 4000, 5000, 5000, 1763, 1763, {5000, 5000, 100, 200, 4600, 4400}},
        {kCrossed, 6000, 5000, 3000, 3000, 1058, 1058, {3000, 3000, 100, 200, 2600, 2400}},
        // clang-format on
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.width << " x " << c.height);
        ScopedConfig cfg;
        std::memcpy(&cfg.c->dwCustMinWidth, c.limits.data(), 16);
        DevMode d = MakeDevMode(cfg.h), before = d;
        Row landscape = CustomRow(cfg, true);
        // One side alone goes through its id, which reads the record back.
        if (c.width == 0 || c.height == 0)
            EXPECT_EQ(DDISetDWord(&d.dm, c.width ? DDI_CUSTWIDTH : DDI_CUSTHEIGHT,
                                  DWORD(c.width ? c.width : c.height)),
                      1u);
        else
            EXPECT_EQ(DDISetCustomPageSize(&d.dm, c.width, c.height), 1);
        EXPECT_EQ(DDIGetDWord(&d.dm, DDI_CUSTWIDTH), c.custWidth);
        EXPECT_EQ(DDIGetDWord(&d.dm, DDI_CUSTHEIGHT), c.custHeight);
        EXPECT_EQ(d.dm.dmPaperWidth, c.paperWidth);
        EXPECT_EQ(d.dm.dmPaperLength, c.paperLength);
        EXPECT_EQ(CustomRow(cfg), c.row);
        EXPECT_EQ(CustomRow(cfg, true), landscape) << "the landscape half stays as built";
        // Nothing else of the record moves; the custom paper is not selected by this.
        d.dm.wCustWidth = before.dm.wCustWidth;
        d.dm.wCustHeight = before.dm.wCustHeight;
        d.dm.dmPaperWidth = before.dm.dmPaperWidth;
        d.dm.dmPaperLength = before.dm.dmPaperLength;
        EXPECT_EQ(std::memcmp(&d, &before, sizeof d), 0);
    }
}

TEST(DdiCustomPage, WithoutAUsableCustomRowNoRowIsWritten) {
    ScopedConfig cfg;
    DevMode d = MakeDevMode(cfg.h), before = d;
    const Row row = CustomRow(cfg);
    // A custom row past the table, or a table that won't lock: refused, nothing changes.
    cfg.c->nCustomPaper = 5;
    EXPECT_EQ(DDISetCustomPageSize(&d.dm, 5000, 5000), 0);
    SetCustomSizeFields(&d.dm, nullptr);
    cfg.c->nCustomPaper = 4;
    q417::mem::FailLock(2); // the dimension table
    EXPECT_EQ(DDISetCustomPageSize(&d.dm, 5000, 5000), 0);
    q417::mem::FailLock(0);
    EXPECT_EQ(std::memcmp(&d, &before, sizeof d), 0);
    // No custom paper: only the record takes the size, and a paper with id 256 brings none.
    cfg.c->nCustomPaper = -1;
    EXPECT_EQ(DDISetCustomPageSize(&d.dm, 5000, 99999), 1);
    EXPECT_EQ(d.dm.wCustWidth, 5000);
    EXPECT_EQ(d.dm.dmPaperWidth, 1763);
    EXPECT_EQ(d.dm.wCustHeight, 12960);
    EXPECT_EQ(DDISetPaperSize(&d.dm, 4), 1);
    EXPECT_EQ(d.dm.wCustWidth, 5000);
    cfg.c->nCustomPaper = 4;
    EXPECT_EQ(CustomRow(cfg), row);
}

TEST(DdiDevMode, StartupAndShutdownOwnOnlyTheWorkingBlock) {
    long live0 = q417::mem::LiveBlocks();
    DDIDEVMODE dm{};
    HGLOBAL cache = GlobalAlloc(GHND, CFGINFO_SIZE);
    dm.hCfgCache = cache;
    dm.hConfig = cache;
    EXPECT_EQ(DDIShutdown(&dm), cache) << "the cache is never freed";

    HGLOBAL work = DDIStartup(&dm);
    ASSERT_NE(work, 0u);
    EXPECT_EQ(GlobalSize(work), SIZE_T(CFGINFO_SIZE));
    {
        auto *cfg = static_cast<CFGINFO *>(GlobalLock(work));
        cfg->hPaperNames = GlobalAlloc(GHND, 64);
        cfg->hPlugIn = GlobalAlloc(GHND, 64);
        GlobalUnlock(work);
    }
    EXPECT_EQ(DDIShutdown(&dm), cache);
    EXPECT_EQ(DDIShutdown(&dm), cache) << "a second shutdown does nothing";
    EXPECT_EQ(q417::mem::LiveBlocks(), live0 + 1) << "the working block and its tables freed";
    GlobalFree(cache);

    // A failed allocation still lands in hConfig.
    dm.hConfig = 0xDEAD;
    q417::mem::FailAllocation(1);
    EXPECT_EQ(DDIStartup(&dm), 0u);
    EXPECT_EQ(dm.hConfig, 0u);
}

} // namespace
