// The numeric interface: every id of DDIGetDWord and DDISetDWord in two tables, the text ids
// of DDIGetString, and the small exported calls beside them.
#include "ddi_fixture.h"

#include "q417/host.h"
#include "q417/q417plg.h"

#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <vector>

using namespace ddi_test;

namespace {

constexpr DWORD kNone = 0xFFFFFFFFu;

// A record with a distinct value in every field that a read-only id reaches.
DevMode KnownRecord(HGLOBAL hConfig) {
    static SPLDEVINFO job{};
    job.nPage = 7;
    DevMode d = MakeDevMode(hConfig);
    d.dm.dwSession = 0x5E55;
    d.dm.bJobStatus = 6;
    d.dm.hPrinter = 0x1234;
    d.dm.pJobInfo = Ptr32From(&job);
    return d;
}

// Ids without a setter: what DDIGetDWord reads on the known record with the sample printer's
// configuration, and without one. The paper dimension ids are in the selection tests, the ids
// with a setter in the settings, selection and custom page tables.
struct ReadOnly {
    DWORD id, get, getNoConfig;
};
const ReadOnly kReadOnly[] = {
    {DDI_SESSION, 0x5E55, 0x5E55}, {DDI_JOBSTATUS, 6, 6},
    {DDI_CURRENTPAGE, 7, 7}, // from the job record
    {DDI_CUSTOMPAPER, 0, 0},       {DDI_LANGVERSION, 7, 9},
    {DDI_MEASUNITS, 1, 0},         {DDI_PRINTERHANDLE, 0x1234, 0x1234},
    {DDI_TTCOUNT, 0, 0},
};

TEST(DdiDispatch, ReadOnlyIdsReadTheirFieldAndRefuseToWrite) {
    const PrinterDesc desc = SamplePrinter();
    ScopedConfig cfg(desc, Widths::Copy);
    std::vector<ReadOnly> ids(std::begin(kReadOnly), std::end(kReadOnly));
    for (DWORD k = 0; k < 10; ++k) // the custom paper's limits, in their order
        ids.push_back({DDI_CUSTMINWIDTH + k, desc.custLimits[k], kNone});
    for (const ReadOnly &c : ids) {
        SCOPED_TRACE(testing::Message() << "id " << c.id);
        DevMode d = KnownRecord(cfg.h), before = d;
        EXPECT_EQ(DDIGetDWord(&d.dm, c.id), c.get);
        EXPECT_EQ(DDISetDWord(&d.dm, c.id, 1), 0u);
        EXPECT_EQ(std::memcmp(&d, &before, sizeof d), 0);
        d.dm.hConfig = 0;
        EXPECT_EQ(DDIGetDWord(&d.dm, c.id), c.getNoConfig);
    }
    // The ids with a setter that needs a configuration refuse without one.
    DevMode d = KnownRecord(0), before = d;
    for (DWORD id : {DDI_PAPERSIZE, DDI_MEDIATYPE, DDI_PAPERSOURCE, DDI_PAPERDEST, DDI_RESOLUTION,
                     DDI_CUSTWIDTH, DDI_CUSTHEIGHT})
        EXPECT_EQ(DDISetDWord(&d.dm, id, 1), 0u) << id;
    EXPECT_EQ(std::memcmp(&d, &before, sizeof d), 0);
}

// Ids outside the table and in its gaps (27, 37 to 39).
TEST(DdiDispatch, IdsOutsideTheTableNullRecordsAndForeignSizes) {
    ScopedConfig cfg(SamplePrinter());
    DevMode d = KnownRecord(cfg.h), before = d;
    for (DWORD id : {0u, 8u, 27u, 37u, 38u, 39u, 76u, 0x80000000u, 0xFFFFFFFFu}) {
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
        CheckText(&d.dm, GetStringAt, TRUE, id, 0, text);
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

TEST(DdiSmallCalls, SetStringDialogResultAndCustomData) {
    DevMode d = MakeDevMode();
    const WCHAR text[] = u"Arial=Helvetica";
    EXPECT_EQ(DDISetString(&d.dm, DDI_STR_FONTSUBST, text, 0), FALSE);
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
