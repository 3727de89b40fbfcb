// The numeric interface: every id of DDIGetDWord and DDISetDWord in one table, the text ids
// of DDIGetString, and the small exported calls beside them.
#include "ddi_fixture.h"

#include "q417/q417plg.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace ddi_test;

namespace {

constexpr DWORD kNone = 0xFFFFFFFFu;

// A record with a distinct value in every field that an id reaches.
DevMode KnownRecord(HGLOBAL hConfig) {
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
    m.dmOrientation = 2; // landscape, so ids 11-16 read the landscape half
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
    return d;
}

// For each id: what DDIGetDWord reads on the known record, and what DDISetDWord with a value
// answers and leaves to be read. kNone in the get column: no getter. A set result of 0 with
// the same read-back: no setter (or refused).
struct IdCase {
    DWORD id;
    DWORD get;
    DWORD value, setResult, getAfter;
};
const IdCase kIdTable[] = {
    {DDI_SESSION, 0x5E55, 1, 0, 0x5E55}, // readable, below the set range
    {DDI_PAPERSIZE, 1, 4, 1, 4},
    {DDI_PAPERWIDTH, 5953, 1, 0, 5953}, // A4 in landscape
    {DDI_PAPERHEIGHT, 8419, 1, 0, 8419},
    {DDI_IMAGEWIDTH, 5593, 1, 0, 5593},
    {DDI_IMAGEHEIGHT, 8299, 1, 0, 8299},
    {DDI_IMAGELEFT, 180, 1, 0, 180},
    {DDI_IMAGETOP, 60, 1, 0, 60},
    {DDI_MEDIATYPE, 2, 1, 1, 1},
    {DDI_PAPERSOURCE, 3, 0, 1, 0},
    {DDI_PAPERDEST, 1, 0, 1, 0},
    {DDI_RESOLUTION, 2, 0, 1, 0},
    {DDI_COPIES, 3, 5, 1, 5},
    {DDI_PAGEORIENT, 1, 3, 1, 3},
    {DDI_HALFTONE, 5, 15, 1, 15},
    {DDI_CCTYPE0, 1, 7, 1, 7},
    {DDI_CCTYPE1, 2, 4, 1, 4},
    {DDI_CCTYPE2, 3, 0, 1, 0},
    {27, kNone, 1, 0, kNone},
    {DDI_CCRENDALG0, 0, 4, 1, 4},
    {DDI_CCRENDALG1, 1, 0, 1, 0},
    {DDI_CCRENDALG2, 2, 3, 1, 3},
    {DDI_CCLIGHTNESS0, 10, DWORD(-50), 1, DWORD(-50)},
    {DDI_CCLIGHTNESS1, DWORD(-10), 0, 1, 0},
    {DDI_CCLIGHTNESS2, 0, 100, 1, 100},
    {DDI_CCSATURATION0, 20, 1, 1, 1},
    {DDI_CCSATURATION1, DWORD(-20), DWORD(-100), 1, DWORD(-100)},
    {DDI_CCSATURATION2, 100, 0, 1, 0},
    {37, kNone, 1, 0, kNone},
    {38, kNone, 1, 0, kNone},
    {39, kNone, 1, 0, kNone},
    {DDI_PRESET, 0x77, 0xABCDEF, 1, 0xABCDEF},
    {DDI_CCGAMMA, 2200, 1000, 1, 1000},
    {DDI_FONTMAPPING, 3, 0, 1, 0},
    {DDI_PAGESPERSHEET, 4, 9, 1, 9},
    {DDI_PAGEBORDER, 1, 0, 1, 0},
    {DDI_BOOKLETMODE, 0, 1, 1, 1},
    {DDI_BOOKLETPAPERID, 9, 0x10001, 1, 1},
    {DDI_TTDOWNLOAD, 1, 0, 1, 0},
    {DDI_EMULATION, 3, 2, 1, 2},
    {DDI_DUPLEX, 2, 1, 1, 1},
    {DDI_COLLATE, 1, 0, 0, 0}, // the value given: 0
    {DDI_JOBSTATUS, 6, 1, 0, 6},
    {DDI_OUTPUTCAPS, 1, 2, 1, 2},
    {DDI_ICMMODE, 0, 7, 1, 0},
    {DDI_ICMINTENT, 0, 7, 1, 0},
    {DDI_CURRENTPAGE, 1, 5, 0, 1},
    {DDI_CUSTOMPAPER, 0, 1, 0, 0},
    {DDI_CUSTMINWIDTH, 2160, 1, 0, 2160},
    {DDI_CUSTMINHEIGHT, 3600, 1, 0, 3600},
    {DDI_CUSTMAXWIDTH, 8640, 1, 0, 8640},
    {DDI_CUSTMAXHEIGHT, 12960, 1, 0, 12960},
    {DDI_CUSTDEFWIDTH, 6120, 1, 0, 6120},
    {DDI_CUSTDEFHEIGHT, 7920, 1, 0, 7920},
    {DDI_CUSTMARGINLEFT, 100, 1, 0, 100},
    {DDI_CUSTMARGINTOP, 200, 1, 0, 200},
    {DDI_CUSTMARGINRIGHT, 300, 1, 0, 300},
    {DDI_CUSTMARGINBOTTOM, 400, 1, 0, 400},
    {DDI_CUSTWIDTH, 5000, 7000, 1, 7000},
    {DDI_CUSTHEIGHT, 6000, 100, 1, 3600}, // limited to the minimum
    {DDI_LANGVERSION, 7, 1, 0, 7},
    {DDI_MEASUNITS, 1, 0, 0, 1},
    {DDI_TEXTCLIPPING, 1, 0, 1, 0},
    {DDI_PRINTERHANDLE, 0x1234, 1, 0, 0x1234},
    {DDI_WMFIRSTPAGE, 1, 0, 0, 0}, // the stored value: 0
    {DDI_WATERMARK, 2, 5, 5, 5},
    {DDI_TTCOUNT, 0, 1, 0, 0},
};
static_assert(sizeof kIdTable / sizeof kIdTable[0] == 75 - 9 + 1, "every id from 9 to 75");

bool NeedsConfig(DWORD id) {
    return (id >= DDI_PAPERWIDTH && id <= DDI_IMAGETOP) ||
           (id >= DDI_CUSTMINWIDTH && id <= DDI_CUSTMARGINBOTTOM);
}
bool SetNeedsConfig(DWORD id) {
    return (id >= DDI_PAPERSIZE && id <= DDI_RESOLUTION) || id == DDI_CUSTWIDTH ||
           id == DDI_CUSTHEIGHT;
}

TEST(DdiDispatch, EveryIdReadsAndWritesWhatItsEntrySays) {
    ScopedConfig cfg(SamplePrinter(), Widths::Copy);
    for (const IdCase &c : kIdTable) {
        SCOPED_TRACE(testing::Message() << "id " << c.id);
        DevMode d = KnownRecord(cfg.h);
        EXPECT_EQ(DDIGetDWord(&d.dm, c.id), c.get);
        EXPECT_EQ(DDISetDWord(&d.dm, c.id, c.value), c.setResult);
        EXPECT_EQ(DDIGetDWord(&d.dm, c.id), c.getAfter);
    }
}

TEST(DdiDispatch, WithoutAConfigurationOnlyItsIdsFail) {
    for (const IdCase &c : kIdTable) {
        SCOPED_TRACE(testing::Message() << "id " << c.id);
        DevMode d = KnownRecord(0);
        DWORD get = NeedsConfig(c.id) ? kNone : c.get;
        if (c.id == DDI_LANGVERSION) get = 9;
        if (c.id == DDI_MEASUNITS) get = 0;
        EXPECT_EQ(DDIGetDWord(&d.dm, c.id), get);
        DevMode before = d;
        DWORD set = DDISetDWord(&d.dm, c.id, c.value);
        if (SetNeedsConfig(c.id)) {
            EXPECT_EQ(set, 0u);
            EXPECT_EQ(std::memcmp(&d, &before, sizeof d), 0);
        } else {
            EXPECT_EQ(set, c.setResult);
        }
    }
}

TEST(DdiDispatch, IdsOutsideTheTableNullRecordsAndForeignSizes) {
    ScopedConfig cfg(SamplePrinter());
    DevMode d = KnownRecord(cfg.h);
    DevMode before = d;
    for (DWORD id : {0u, 8u, 76u, 1000u, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(DDIGetDWord(&d.dm, id), kNone) << id;
        EXPECT_EQ(DDISetDWord(&d.dm, id, 1), 0u) << id;
    }
    EXPECT_EQ(std::memcmp(&d, &before, sizeof d), 0);
    for (DWORD id = 0; id <= 80; ++id) {
        EXPECT_EQ(DDIGetDWord(nullptr, id), kNone);
        EXPECT_EQ(DDISetDWord(nullptr, id, 1), 0u);
    }
    // Only the getter checks the record's size; the setters write into any block.
    for (WORD size : {WORD(0), WORD(220), WORD(403), WORD(405), WORD(0xFFFF)}) {
        d.dm.wRecordSize = size;
        for (const IdCase &c : kIdTable) EXPECT_EQ(DDIGetDWord(&d.dm, c.id), kNone) << c.id;
    }
    EXPECT_EQ(DDISetDWord(&d.dm, DDI_COPIES, 9), 1u);
    EXPECT_EQ(d.dm.dmCopies, 9);
    EXPECT_EQ(DDISetDWord(&d.dm, DDI_PAPERSIZE, 2), 1u);
    EXPECT_EQ(d.dm.dmPaperSize, 5);
}

TEST(DdiGetString, TextIdsFillBufferAndLength) {
    Spec spec = SamplePrinter();
    ScopedConfig cfg(spec);
    DevMode d = KnownRecord(cfg.h);
    std::memcpy(d.dm.szModelName, "ABCDEFGHIJKLMNOPQRSTUVWXYZ012345", 32); // no terminator
    const std::u16string job = u"Quarterly report.pdf";
    d.dm.hJobName = Block(job.c_str(), (job.size() + 1) * 2);

    struct Case {
        DWORD id;
        std::u16string text;
    };
    const Case texts[] = {
        {DDI_STR_DEVICENAME, u"Lindgate 417"},
        {DDI_STR_PLUGIN, u"QMPLUG.DLL"},
        {DDI_STR_CFGMODEL, u"Lindgate ColorLaser 417"},
        {DDI_STR_MODEL, u"ABCDEFGHIJKLMNOPQRSTUVWXYZ01234"}, // at most 31 characters
        {DDI_STR_JOBNAME, job},
    };
    for (const Case &c : texts) {
        SCOPED_TRACE(testing::Message() << "id " << c.id);
        WCHAR buf[64];
        std::fill(std::begin(buf), std::end(buf), WCHAR(0xBEEF));
        DWORD len = 0;
        EXPECT_EQ(DDIGetString(&d.dm, c.id, buf, &len), TRUE);
        EXPECT_EQ(len, c.text.size() + 1) << "capacity 0 asks for the size";
        EXPECT_EQ(buf[0], 0xBEEF);
        len = 64;
        EXPECT_EQ(DDIGetString(&d.dm, c.id, buf, &len), TRUE);
        EXPECT_EQ(len, c.text.size() + 1);
        EXPECT_EQ(std::u16string(buf), c.text);
        len = 4;
        EXPECT_EQ(DDIGetString(&d.dm, c.id, buf, &len), TRUE);
        EXPECT_EQ(len, 4u);
        EXPECT_EQ(std::u16string(buf), c.text.substr(0, 3));
        // Without a record the text is missing, and the call still answers 1.
        len = 64;
        EXPECT_EQ(DDIGetString(nullptr, c.id, buf, &len), TRUE);
        EXPECT_EQ(len, 0u);
    }

    WCHAR buf[16];
    std::fill(std::begin(buf), std::end(buf), WCHAR(0xBEEF));
    DWORD len = 16;
    EXPECT_EQ(DDIGetString(&d.dm, DDI_STR_VERSION, buf, &len), TRUE);
    EXPECT_EQ(std::u16string(buf), u"1.0.0009");
    EXPECT_EQ(len, 8u) << "without the terminator";
    EXPECT_EQ(buf[9], 0xBEEF);
    std::fill(std::begin(buf), std::end(buf), WCHAR(0xBEEF));
    len = 4;
    EXPECT_EQ(DDIGetString(&d.dm, DDI_STR_VERSION, buf, &len), TRUE);
    EXPECT_EQ(len, 8u);
    EXPECT_EQ(buf[4], 0xBEEF) << "the text stays inside the capacity";

    // Ids that do nothing, and ids that aren't there; neither touches buffer or length.
    for (DWORD id : {0u, 7u, 75u, 9u, 74u, 76u, 0xFFFFFFFFu}) {
        std::fill(std::begin(buf), std::end(buf), WCHAR(0xBEEF));
        len = 16;
        BOOL want = (id == 0 || id == 7 || id == 75) ? TRUE : FALSE;
        EXPECT_EQ(DDIGetString(&d.dm, id, buf, &len), want) << id;
        EXPECT_EQ(len, 16u);
        EXPECT_EQ(buf[0], 0xBEEF);
    }
    len = 16;
    EXPECT_EQ(DDIGetString(&d.dm, DDI_STR_DEVICENAME, nullptr, &len), FALSE);
    EXPECT_EQ(DDIGetString(&d.dm, DDI_STR_DEVICENAME, buf, nullptr), FALSE);
    EXPECT_EQ(DDIGetString(&d.dm, DDI_STR_VERSION, nullptr, &len), FALSE);
    GlobalFree(d.dm.hJobName);
}

TEST(DdiGetString, PortWithoutASpoolerAnswerIsEmpty) {
    DevMode d = KnownRecord(0);
    d.dm.hPrinter = 0;
    WCHAR buf[8];
    DWORD len = 8;
    EXPECT_EQ(DDIGetString(&d.dm, DDI_STR_PORT, buf, &len), TRUE);
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(DDIGetDevicePort(&d.dm, nullptr, 5), 0);
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
    struct Step {
        DWORD code;
        BOOL result;
        DWORD stored;
    };
    const Step steps[] = {{0, TRUE, 0}, {2, TRUE, 3},  {0, TRUE, 2}, {1, TRUE, 1},
                          {0, TRUE, 0}, {3, FALSE, 0}, {2, TRUE, 3}, {0xFFFFFFFFu, FALSE, 3}};
    for (const Step &s : steps) {
        EXPECT_EQ(DDISetDialogResult(&d.dm, s.code), s.result) << s.code;
        EXPECT_EQ(d.dm.dwDialogResult, s.stored) << s.code;
    }
    EXPECT_EQ(DDISetDialogResult(nullptr, 1), FALSE);

    void *p = &d;
    DDIGetCustDataPtr(&d.dm, &p);
    EXPECT_EQ(p, nullptr);
    d.dm.dmDriverExtra = DDIDEVMODE_EXTRA + sizeof d.cust;
    SetCustDataPtr(&d.dm);
    DDIGetCustDataPtr(&d.dm, &p);
    EXPECT_EQ(p, static_cast<void *>(d.cust));
    DDIGetCustDataPtr(nullptr, &p);
    EXPECT_EQ(p, nullptr);
    DDIGetCustDataPtr(&d.dm, nullptr);
}

} // namespace
