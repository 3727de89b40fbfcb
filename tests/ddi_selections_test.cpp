// The five selection families through the keyword calls and the numeric ids, on
// configurations laid out as a PDD build makes them and as the long-lived copy has them.
#include "ddi_fixture.h"

#include "q417/q417plg.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>

using namespace ddi_test;

namespace {

constexpr DWORD kNone = 0xFFFFFFFFu;

struct FamilyCase {
    DWORD id;
    const std::vector<Option> PrinterDesc::*options;
    INT PrinterDesc::*def;
    DWORD copyWidth;
};
const FamilyCase kFamilies[] = {
    {DDI_PAPERSIZE, &PrinterDesc::papers, &PrinterDesc::defPaper, 64},
    {DDI_MEDIATYPE, &PrinterDesc::media, &PrinterDesc::defMedia, 24},
    {DDI_PAPERSOURCE, &PrinterDesc::trays, &PrinterDesc::defTray, 24},
    {DDI_PAPERDEST, &PrinterDesc::dests, &PrinterDesc::defDest, 24},
    {DDI_RESOLUTION, &PrinterDesc::res, &PrinterDesc::defRes, 24},
};

class Selections : public testing::TestWithParam<Widths> {};

TEST_P(Selections, EveryListEnumeratesWithSizeQueriesCutTextsAndBadIndices) {
    const PrinterDesc desc = SamplePrinter();
    ScopedConfig cfg(desc, GetParam());
    DevMode d = MakeDevMode(cfg.h);
    for (const FamilyCase &f : kFamilies) {
        const std::vector<Option> &opts = desc.*f.options;
        SCOPED_TRACE(testing::Message() << "keyword " << f.id);
        EXPECT_EQ(DDIGetKeywordNumOptions(&d.dm, f.id), INT(opts.size()));
        EXPECT_EQ(DDIGetKeywordDefaultOption(&d.dm, f.id), desc.*f.def);
        for (INT i = 0; i < INT(opts.size()); ++i) {
            // A copy cuts each row to its width and keeps no terminator in a full row.
            DWORD cut = GetParam() == Widths::Copy ? f.copyWidth : 1000;
            CheckText(&d.dm, DDIGetKeywordOptionString, TRUE, f.id, i, opts[i].key.substr(0, cut));
            CheckText(&d.dm, DDIGetKeywordOptionTranslation, FALSE, f.id, i,
                      opts[i].display().substr(0, cut));
        }
        WCHAR buf[8];
        DWORD len = 8;
        EXPECT_EQ(DDIGetKeywordOptionString(&d.dm, f.id, INT(opts.size()), buf, &len), TRUE);
        EXPECT_EQ(len, 0u) << "one past the last row";
    }
}

INSTANTIATE_TEST_SUITE_P(Layouts, Selections, testing::Values(Widths::Pdd, Widths::Copy),
                         [](const auto &info) {
                             return info.param == Widths::Pdd ? std::string("PddWidths")
                                                              : std::string("CopyWidths");
                         });

TEST(DdiSelections, SettingARowKeepsWindowsIdAndRowInStep) {
    const PrinterDesc desc = SamplePrinter();
    ScopedConfig cfg(desc, Widths::Copy);
    DevMode d = MakeDevMode(cfg.h);
    for (DWORD r = 0; r < desc.papers.size(); ++r) {
        ASSERT_EQ(DDISetDWord(&d.dm, DDI_PAPERSIZE, r), 1u);
        EXPECT_EQ(DDIGetDWord(&d.dm, DDI_PAPERSIZE), r);
        EXPECT_EQ(WORD(d.dm.dmPaperSize), desc.paperIds[r]);
    }
    // The custom row (id 256) brings its size along: 6120 x 7920 decipoints.
    EXPECT_EQ(DDIGetDWord(&d.dm, DDI_CUSTOMPAPER), 1u);
    EXPECT_EQ(d.dm.wCustWidth, 6120);
    EXPECT_EQ(d.dm.wCustHeight, 7920);
    EXPECT_EQ(d.dm.dmPaperWidth, 2159);
    EXPECT_EQ(d.dm.dmPaperLength, 2794);
    for (DWORD r = 0; r < desc.trays.size(); ++r) {
        ASSERT_EQ(DDISetDWord(&d.dm, DDI_PAPERSOURCE, r), 1u);
        EXPECT_EQ(DDIGetDWord(&d.dm, DDI_PAPERSOURCE), r);
        EXPECT_EQ(WORD(d.dm.dmDefaultSource), desc.trayIds[r]);
    }
    for (DWORD r = 0; r < desc.res.size(); ++r) {
        ASSERT_EQ(DDISetDWord(&d.dm, DDI_RESOLUTION, r), 1u);
        EXPECT_EQ(DDIGetDWord(&d.dm, DDI_RESOLUTION), r);
        EXPECT_EQ(DWORD(d.dm.dmPrintQuality), desc.resValues[r].first);
        EXPECT_EQ(DWORD(d.dm.dmYResolution), desc.resValues[r].second);
    }
    // Rows past each table are refused and leave the record as it was.
    DevMode before = d;
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
}

TEST(DdiSelections, PaperDimensionsFollowTheOrientationNotTheTurn) {
    for (WORD version : {WORD(CFGINFO_VERSION), WORD(8)}) { // 8: only the portrait half
        PrinterDesc desc = SamplePrinter();
        desc.version = version;
        ScopedConfig cfg(desc);
        DevMode d = MakeDevMode(cfg.h);
        for (DWORD r = 0; r < desc.papers.size(); ++r) {
            d.dm.wPaperIndex = WORD(r);
            for (DWORD code : {0u, 1u, 2u, 3u}) { // 2 and 3: turned by 180 degrees
                ASSERT_EQ(DDISetDWord(&d.dm, DDI_PAGEORIENT, code), 1u);
                const PaperDims &p =
                    (code & 1) && version > 8 ? desc.landscape[r] : desc.portrait[r];
                const DWORD want[] = {p.width,       p.height, p.imageWidth,
                                      p.imageHeight, p.left,   p.top}; // in id order
                for (DWORD k = 0; k < 6; ++k)
                    EXPECT_EQ(DDIGetDWord(&d.dm, DDI_PAPERWIDTH + k), want[k])
                        << "version " << version << " paper " << r << " code " << code;
            }
        }
    }
}

// Keyword ids of no list, tables shorter than their counts, blocks that aren't a CFGINFO and
// one never filled: what isn't there reads as absent.
TEST(DdiSelections, MissingOrShortTablesReadAsAbsent) {
    ScopedConfig cfg(SamplePrinter());
    DevMode d = MakeDevMode(cfg.h);
    WCHAR buf[8];
    DWORD len = 8;
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
    len = 0;
    EXPECT_EQ(DDIGetKeywordOptionString(&d.dm, DDI_PAPERSIZE, 0, nullptr, &len), FALSE)
        << "a size query still needs a buffer";
    len = 0x80000000u; // a capacity that reads as negative
    EXPECT_EQ(DDIGetKeywordOptionString(&d.dm, DDI_PAPERSIZE, 0, buf, &len), TRUE);
    EXPECT_EQ(len, 0u);

    EditConfig(cfg.h, [](CFGINFO &c) {
        c.nPapers = 1000; // the tables hold 5 rows
        c.nTrays = 0x7FFFFFFF;
        c.cchResName = 0x40000000; // one row would be 2 GiB
    });
    len = 8;
    EXPECT_EQ(DDIGetKeywordOptionString(&d.dm, DDI_PAPERSIZE, 4, buf, &len), TRUE);
    EXPECT_EQ(len, 7u) << "rows inside the block still read";
    for (INT i : {-1, 5, 999, INT_MIN}) {
        len = 8;
        EXPECT_EQ(DDIGetKeywordOptionString(&d.dm, DDI_PAPERSIZE, i, buf, &len), TRUE);
        EXPECT_EQ(len, 0u);
        EXPECT_EQ(DDISetPaperSize(&d.dm, i), 0);
        EXPECT_EQ(DDISetPaperSource(&d.dm, i), 0);
        EXPECT_EQ(
            DDIGetPaperDimensions(&d.dm, i, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
            i == 5 ? 1 : 0)
            << "the dimension block holds ten rows";
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
        for (const FamilyCase &fam : kFamilies) {
            EXPECT_EQ(DDIGetKeywordNumOptions(&f.dm, fam.id), 0);
            EXPECT_EQ(DDIGetKeywordDefaultOption(&f.dm, fam.id), h == empty ? 0 : -1);
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

} // namespace
