// The numeric interface: every id of DDIGetDWord and DDISetDWord in two tables, the text ids
// of DDIGetString, and the small exported calls beside them.
#include "ddi_fixture.h"

#include "q417/q417plg.h"

#include <gtest/gtest.h>

#include <cstring>
#include <iterator>

using namespace ddi_test;

namespace {

constexpr DWORD kNone = 0xFFFFFFFFu;

// A record with a distinct value in every field that an id reaches.
DevMode KnownRecord(HGLOBAL hConfig) {
    static SPLDEVINFO job{};
    job.nPage = 7;
    DevMode d = MakeDevMode(hConfig);
    DDIDEVMODE &m = d.dm;
    m.dwSession = 0x5E55;
    m.wPaperIndex = 1; // A4
    m.dmPaperSize = 9;
    m.wMediaIndex = 2;
    m.wSourceIndex = 3;
    m.wDestIndex = 1;
    m.wResIndex = 2;
    m.dmCopies = 3;
    m.dmOrientation = 2; // landscape: the dimension ids read the landscape half
    m.dwHalftonePattern = 5;
    const BYTE types[] = {1, 2, 3}, light[] = {110, 90, 100}, sat[] = {120, 80, 200};
    for (int c = 0; c < 3; ++c) {
        m.ColorCorrect[c].bType = types[c];
        m.ColorCorrect[c].bRendAlg = BYTE(c);
        m.ColorCorrect[c].bLightness = light[c];
        m.ColorCorrect[c].bSaturation = sat[c];
    }
    m.dwPreset = 0x77;
    m.sGamma = 2200;
    m.bFontMapping = 3;
    m.bLayout = 0x84; // 4 up, border
    m.wBookletPaperID = 9;
    m.bTTDownload = 1;
    m.wEmulation = 3;
    m.dmDuplex = 2;
    m.dmCollate = 1;
    m.bJobStatus = 6;
    m.bOutputFlags = 0x06; // capability code 1, text clipping
    m.wCustWidth = 5000;
    m.wCustHeight = 6000;
    m.hPrinter = 0x1234;
    m.bWMFirstPage = 1;
    m.wWaterMark = 2;
    m.pJobInfo = Ptr32From(&job);
    return d;
}

// Ids without a setter: what DDIGetDWord reads on the known record with the sample printer's
// configuration, and without one.
struct ReadOnly {
    DWORD id, get, getNoConfig;
};
const ReadOnly kReadOnly[] = {
    {DDI_SESSION, 0x5E55, 0x5E55},
    {DDI_PAPERWIDTH, 5953, kNone}, // A4 in landscape
    {DDI_PAPERHEIGHT, 8419, kNone},
    {DDI_IMAGEWIDTH, 5593, kNone},
    {DDI_IMAGEHEIGHT, 8299, kNone},
    {DDI_IMAGELEFT, 180, kNone},
    {DDI_IMAGETOP, 60, kNone},
    {27, kNone, kNone},
    {37, kNone, kNone},
    {38, kNone, kNone},
    {39, kNone, kNone},
    {DDI_JOBSTATUS, 6, 6},
    {DDI_CURRENTPAGE, 7, 7}, // from the job record
    {DDI_CUSTOMPAPER, 0, 0},
    {DDI_CUSTMINWIDTH, 2160, kNone},
    {DDI_CUSTMINHEIGHT, 3600, kNone},
    {DDI_CUSTMAXWIDTH, 8640, kNone},
    {DDI_CUSTMAXHEIGHT, 12960, kNone},
    {DDI_CUSTDEFWIDTH, 6120, kNone},
    {DDI_CUSTDEFHEIGHT, 7920, kNone},
    {DDI_CUSTMARGINLEFT, 100, kNone},
    {DDI_CUSTMARGINTOP, 200, kNone},
    {DDI_CUSTMARGINRIGHT, 300, kNone},
    {DDI_CUSTMARGINBOTTOM, 400, kNone},
    {DDI_LANGVERSION, 7, 9},
    {DDI_MEASUNITS, 1, 0},
    {DDI_PRINTERHANDLE, 0x1234, 0x1234},
    {DDI_TTCOUNT, 0, 0},
};

// Ids with a setter: the value read on the known record, then what DDISetDWord with a value
// answers and leaves to be read. needsConfig: refused without a configuration. Collate
// answers the value given, so 0; the watermark fields answer what they stored; the custom
// height is held to its minimum.
struct ReadWrite {
    DWORD id, get, value, setResult, getAfter;
    bool needsConfig;
};
const ReadWrite kReadWrite[] = {
    {DDI_PAPERSIZE, 1, 4, 1, 4, true},
    {DDI_MEDIATYPE, 2, 1, 1, 1, true},
    {DDI_PAPERSOURCE, 3, 0, 1, 0, true},
    {DDI_PAPERDEST, 1, 0, 1, 0, true},
    {DDI_RESOLUTION, 2, 0, 1, 0, true},
    {DDI_COPIES, 3, 5, 1, 5, false},
    {DDI_PAGEORIENT, 1, 3, 1, 3, false},
    {DDI_HALFTONE, 5, 15, 1, 15, false},
    {DDI_CCTYPE0, 1, 7, 1, 7, false},
    {DDI_CCTYPE1, 2, 4, 1, 4, false},
    {DDI_CCTYPE2, 3, 0, 1, 0, false},
    {DDI_CCRENDALG0, 0, 4, 1, 4, false},
    {DDI_CCRENDALG1, 1, 0, 1, 0, false},
    {DDI_CCRENDALG2, 2, 3, 1, 3, false},
    {DDI_CCLIGHTNESS0, 10, DWORD(-50), 1, DWORD(-50), false},
    {DDI_CCLIGHTNESS1, DWORD(-10), 0, 1, 0, false},
    {DDI_CCLIGHTNESS2, 0, 100, 1, 100, false},
    {DDI_CCSATURATION0, 20, 1, 1, 1, false},
    {DDI_CCSATURATION1, DWORD(-20), DWORD(-100), 1, DWORD(-100), false},
    {DDI_CCSATURATION2, 100, 0, 1, 0, false},
    {DDI_PRESET, 0x77, 0xABCDEF, 1, 0xABCDEF, false},
    {DDI_CCGAMMA, 2200, 1000, 1, 1000, false},
    {DDI_FONTMAPPING, 3, 0, 1, 0, false},
    {DDI_PAGESPERSHEET, 4, 9, 1, 9, false},
    {DDI_PAGEBORDER, 1, 0, 1, 0, false},
    {DDI_BOOKLETMODE, 0, 1, 1, 1, false},
    {DDI_BOOKLETPAPERID, 9, 0x10001, 1, 1, false},
    {DDI_TTDOWNLOAD, 1, 0, 1, 0, false},
    {DDI_EMULATION, 3, 2, 1, 2, false},
    {DDI_DUPLEX, 2, 1, 1, 1, false},
    {DDI_COLLATE, 1, 0, 0, 0, false},
    {DDI_OUTPUTCAPS, 1, 2, 1, 2, false},
    {DDI_ICMMODE, 0, 7, 1, 0, false},
    {DDI_ICMINTENT, 0, 7, 1, 0, false},
    {DDI_CUSTWIDTH, 5000, 7000, 1, 7000, true},
    {DDI_CUSTHEIGHT, 6000, 100, 1, 3600, true},
    {DDI_TEXTCLIPPING, 1, 0, 1, 0, false},
    {DDI_WMFIRSTPAGE, 1, 0, 0, 0, false},
    {DDI_WATERMARK, 2, 5, 5, 5, false},
};
static_assert(std::size(kReadOnly) + std::size(kReadWrite) == 75 - 9 + 1, "every id, 9 to 75");

TEST(DdiDispatch, EveryIdReadsAndWritesItsField) {
    ScopedConfig cfg(SamplePrinter(), Widths::Copy);
    for (const ReadOnly &c : kReadOnly) {
        SCOPED_TRACE(testing::Message() << "id " << c.id);
        DevMode d = KnownRecord(cfg.h), before = d;
        EXPECT_EQ(DDIGetDWord(&d.dm, c.id), c.get);
        EXPECT_EQ(DDISetDWord(&d.dm, c.id, 1), 0u);
        EXPECT_EQ(std::memcmp(&d, &before, sizeof d), 0);
        d.dm.hConfig = 0;
        EXPECT_EQ(DDIGetDWord(&d.dm, c.id), c.getNoConfig);
    }
    for (const ReadWrite &c : kReadWrite) {
        SCOPED_TRACE(testing::Message() << "id " << c.id);
        DevMode d = KnownRecord(cfg.h);
        EXPECT_EQ(DDIGetDWord(&d.dm, c.id), c.get);
        EXPECT_EQ(DDISetDWord(&d.dm, c.id, c.value), c.setResult);
        EXPECT_EQ(DDIGetDWord(&d.dm, c.id), c.getAfter);
        // Without a configuration the getters still read the record; some setters refuse.
        d = KnownRecord(0);
        DevMode before = d;
        EXPECT_EQ(DDIGetDWord(&d.dm, c.id), c.get);
        EXPECT_EQ(DDISetDWord(&d.dm, c.id, c.value), c.needsConfig ? 0u : c.setResult);
        if (c.needsConfig) {
            EXPECT_EQ(std::memcmp(&d, &before, sizeof d), 0);
        }
    }
}

TEST(DdiDispatch, IdsOutsideTheTableNullRecordsAndForeignSizes) {
    ScopedConfig cfg(SamplePrinter());
    DevMode d = KnownRecord(cfg.h), before = d;
    for (DWORD id : {0u, 8u, 76u, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(DDIGetDWord(&d.dm, id), kNone) << id;
        EXPECT_EQ(DDISetDWord(&d.dm, id, 1), 0u) << id;
        EXPECT_EQ(DDIGetDWord(nullptr, id + 9), kNone);
        EXPECT_EQ(DDISetDWord(nullptr, id + 9, 1), 0u);
    }
    EXPECT_EQ(std::memcmp(&d, &before, sizeof d), 0);
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
    ScopedConfig cfg(SamplePrinter());
    DevMode d = KnownRecord(cfg.h);
    std::memcpy(d.dm.szModelName, "ABCDEFGHIJKLMNOPQRSTUVWXYZ012345", 32); // no terminator
    const std::u16string job = u"Quarterly report.pdf";
    d.dm.hJobName = Block(job.c_str(), (job.size() + 1) * 2);
    const std::pair<DWORD, std::u16string> texts[] = {
        {DDI_STR_DEVICENAME, u"Lindgate 417"},
        {DDI_STR_PLUGIN, u"QMPLUG.DLL"},
        {DDI_STR_CFGMODEL, u"Lindgate ColorLaser 417"},
        {DDI_STR_MODEL, u"ABCDEFGHIJKLMNOPQRSTUVWXYZ01234"}, // at most 31 characters
        {DDI_STR_JOBNAME, job},
    };
    WCHAR buf[16];
    DWORD len;
    for (const auto &[id, text] : texts) {
        CheckText(&d.dm, GetStringAt, TRUE, id, 0, text);
        // Without a record the text is missing, and the call still answers 1.
        len = 16;
        EXPECT_EQ(DDIGetString(nullptr, id, buf, &len), TRUE);
        EXPECT_EQ(len, 0u);
    }
    GlobalFree(d.dm.hJobName);

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
    // No spooler answer for a port: an empty text.
    d.dm.hPrinter = 0;
    EXPECT_EQ(DDIGetString(&d.dm, DDI_STR_PORT, buf, &len), TRUE);
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(DDIGetDevicePort(&d.dm, buf, -1), 0);
}

TEST(DdiSmallCalls, SetStringDialogResultAndCustomData) {
    DevMode d = MakeDevMode();
    const WCHAR text[] = u"Arial=Helvetica";
    EXPECT_EQ(DDISetString(&d.dm, DDI_STR_FONTSUBST, text, 15), TRUE);
    EXPECT_EQ(DDISetString(&d.dm, DDI_STR_FONTSUBST, text, 0), FALSE);
    EXPECT_EQ(DDISetString(&d.dm, DDI_STR_FONTSUBST, nullptr, 15), FALSE);
    EXPECT_EQ(DDISetString(nullptr, DDI_STR_FONTSUBST, text, 15), FALSE);
    EXPECT_EQ(DDISetString(&d.dm, DDI_STR_DEVICENAME, text, 15), FALSE);

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

} // namespace
