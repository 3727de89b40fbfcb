// The five selection families through the keyword calls and the numeric ids, on
// configurations laid out as a PDD build makes them and as the long-lived copy has them.
#include "ddi_fixture.h"

#include "q417/q417plg.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>

using namespace ddi_test;

namespace {

struct FamilyCase {
    DWORD id;
    const std::vector<Option> Spec::*options;
    INT Spec::*def;
    DWORD copyWidth;
};
const FamilyCase kFamilies[] = {
    {DDI_PAPERSIZE, &Spec::papers, &Spec::defPaper, 64},
    {DDI_MEDIATYPE, &Spec::media, &Spec::defMedia, 24},
    {DDI_PAPERSOURCE, &Spec::trays, &Spec::defTray, 24},
    {DDI_PAPERDEST, &Spec::dests, &Spec::defDest, 24},
    {DDI_RESOLUTION, &Spec::res, &Spec::defRes, 24},
};

class Selections : public testing::TestWithParam<Widths> {};

TEST_P(Selections, EveryListEnumeratesWithSizeQueriesCutTextsAndBadIndices) {
    Spec spec = SamplePrinter();
    ScopedConfig cfg(spec, GetParam());
    DevMode d = MakeDevMode(cfg.h);
    for (const FamilyCase &f : kFamilies) {
        const std::vector<Option> &opts = spec.*f.options;
        SCOPED_TRACE(testing::Message() << "keyword " << f.id);
        EXPECT_EQ(DDIGetKeywordNumOptions(&d.dm, f.id), INT(opts.size()));
        EXPECT_EQ(DDIGetKeywordDefaultOption(&d.dm, f.id), spec.*f.def);
        for (INT i = 0; i < INT(opts.size()); ++i) {
            // A copy cuts each row to its width and keeps no terminator in a full row.
            DWORD cut = GetParam() == Widths::Copy ? f.copyWidth : 1000;
            CheckText(&d.dm, DDIGetKeywordOptionString, TRUE, f.id, i, opts[i].key.substr(0, cut));
            CheckText(&d.dm, DDIGetKeywordOptionTranslation, FALSE, f.id, i,
                      opts[i].display().substr(0, cut));
        }
        for (INT bad : {INT(opts.size()), -1, INT_MIN, INT_MAX}) {
            WCHAR buf[8] = {kPoison};
            DWORD len = 8;
            EXPECT_EQ(DDIGetKeywordOptionString(&d.dm, f.id, bad, buf, &len), TRUE) << bad;
            EXPECT_EQ(len, 0u);
            len = 8;
            EXPECT_EQ(DDIGetKeywordOptionTranslation(&d.dm, f.id, bad, buf, &len), FALSE);
            EXPECT_EQ(len, 0u);
            EXPECT_EQ(buf[0], kPoison);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Layouts, Selections, testing::Values(Widths::Pdd, Widths::Copy),
                         [](const auto &info) {
                             return info.param == Widths::Pdd ? std::string("PddWidths")
                                                              : std::string("CopyWidths");
                         });

TEST(DdiKeywords, IdsOutsideTheListsAndMissingPiecesAnswerAsTheirCallSays) {
    ScopedConfig cfg(SamplePrinter());
    DevMode d = MakeDevMode(cfg.h);
    for (DWORD id : {9u, 11u, 16u, 21u, 0u, 0xFFFFFFFFu}) {
        WCHAR buf[4];
        DWORD len = 4;
        EXPECT_EQ(DDIGetKeywordNumOptions(&d.dm, id), -1) << id;
        EXPECT_EQ(DDIGetKeywordDefaultOption(&d.dm, id), -1);
        EXPECT_EQ(DDIGetKeywordOptionString(&d.dm, id, 0, buf, &len), FALSE);
        EXPECT_EQ(DDIGetKeywordOptionTranslation(&d.dm, id, 0, buf, &len), FALSE);
        EXPECT_EQ(len, 4u) << "length untouched";
    }
    // No record or no configuration: 0 options, no default, no text.
    DevMode bare = MakeDevMode(0);
    for (DDIDEVMODE *pdm : {static_cast<DDIDEVMODE *>(nullptr), &bare.dm}) {
        WCHAR buf[4];
        DWORD len = 4;
        EXPECT_EQ(DDIGetKeywordNumOptions(pdm, DDI_PAPERSIZE), 0);
        EXPECT_EQ(DDIGetKeywordDefaultOption(pdm, DDI_PAPERSIZE), -1);
        EXPECT_EQ(DDIGetKeywordOptionString(pdm, DDI_PAPERSIZE, 0, buf, &len), FALSE);
        EXPECT_EQ(len, 4u);
    }
    DWORD len = 0;
    WCHAR buf[4];
    EXPECT_EQ(DDIGetKeywordOptionString(&d.dm, DDI_PAPERSIZE, 0, nullptr, &len), FALSE)
        << "a size query still needs a buffer";
    EXPECT_EQ(DDIGetKeywordOptionString(&d.dm, DDI_PAPERSIZE, 0, buf, nullptr), FALSE);
    len = 0x80000000u; // a capacity that reads as negative
    EXPECT_EQ(DDIGetKeywordOptionString(&d.dm, DDI_PAPERSIZE, 0, buf, &len), TRUE);
    EXPECT_EQ(len, 0u);
}

TEST(DdiKeywords, PrinterWithoutOutputBins) {
    Spec spec = SamplePrinter();
    spec.dests.clear();
    spec.defDest = 0;
    ScopedConfig cfg(spec);
    DevMode d = MakeDevMode(cfg.h);
    WCHAR buf[8];
    DWORD len = 8;
    EXPECT_EQ(DDIGetKeywordNumOptions(&d.dm, DDI_PAPERDEST), 0);
    EXPECT_EQ(DDIGetKeywordDefaultOption(&d.dm, DDI_PAPERDEST), 0) << "which is no row";
    EXPECT_EQ(DDIGetKeywordOptionString(&d.dm, DDI_PAPERDEST, 0, buf, &len), TRUE);
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(DDISetDWord(&d.dm, DDI_PAPERDEST, 3), 1u) << "the bin index is stored unchecked";
    EXPECT_EQ(DDIGetDWord(&d.dm, DDI_PAPERDEST), 3u);
}

TEST(DdiSelections, SettingARowKeepsWindowsIdAndRowInStep) {
    Spec spec = SamplePrinter();
    ScopedConfig cfg(spec, Widths::Copy);
    DevMode d = MakeDevMode(cfg.h);
    for (DWORD r = 0; r < spec.papers.size(); ++r) {
        ASSERT_EQ(DDISetDWord(&d.dm, DDI_PAPERSIZE, r), 1u);
        EXPECT_EQ(DDIGetDWord(&d.dm, DDI_PAPERSIZE), r);
        EXPECT_EQ(WORD(d.dm.dmPaperSize), spec.paperIds[r]);
        EXPECT_EQ(DDIGetDWord(&d.dm, DDI_CUSTOMPAPER), spec.paperIds[r] == 256 ? 1u : 0u);
    }
    // The custom row (id 256) brings its size along: 6120 x 7920 decipoints.
    EXPECT_EQ(d.dm.wCustWidth, 6120);
    EXPECT_EQ(d.dm.wCustHeight, 7920);
    EXPECT_EQ(d.dm.dmPaperWidth, 2159);
    EXPECT_EQ(d.dm.dmPaperLength, 2794);
    for (DWORD r = 0; r < spec.trays.size(); ++r) {
        ASSERT_EQ(DDISetDWord(&d.dm, DDI_PAPERSOURCE, r), 1u);
        EXPECT_EQ(DDIGetDWord(&d.dm, DDI_PAPERSOURCE), r);
        EXPECT_EQ(WORD(d.dm.dmDefaultSource), spec.trayIds[r]);
    }
    for (DWORD r = 0; r < spec.res.size(); ++r) {
        ASSERT_EQ(DDISetDWord(&d.dm, DDI_RESOLUTION, r), 1u);
        EXPECT_EQ(DDIGetDWord(&d.dm, DDI_RESOLUTION), r);
        EXPECT_EQ(DWORD(d.dm.dmPrintQuality), spec.resValues[r].first);
        EXPECT_EQ(DWORD(d.dm.dmYResolution), spec.resValues[r].second);
    }
    // Rows out of range are refused and leave the record as it was.
    DevMode before = d;
    for (DWORD id : {DWORD(DDI_PAPERSIZE), DWORD(DDI_PAPERSOURCE), DWORD(DDI_RESOLUTION)})
        for (DWORD bad : {5u, 4u, 3u, 0xFFFFFFFFu, 0x80000000u, 0x10000u}) {
            if (id == DDI_PAPERSOURCE && bad == 3u) continue; // the last tray
            if (id == DDI_PAPERSIZE && bad <= 4u) continue;
            EXPECT_EQ(DDISetDWord(&d.dm, id, bad), 0u) << id << " " << bad;
        }
    EXPECT_EQ(std::memcmp(&d, &before, sizeof d), 0);
    // Media and bin take any index, cut to 16 bits.
    EXPECT_EQ(DDISetDWord(&d.dm, DDI_MEDIATYPE, 70000), 1u);
    EXPECT_EQ(DDIGetDWord(&d.dm, DDI_MEDIATYPE), 70000u & 0xFFFF);
    EXPECT_EQ(DDISetDWord(&d.dm, DDI_PAPERDEST, 0xFFFFFFFFu), 1u);
    EXPECT_EQ(DDIGetDWord(&d.dm, DDI_PAPERDEST), 0xFFFFu);
}

TEST(DdiSelections, PaperDimensionsFollowTheOrientation) {
    Spec spec = SamplePrinter();
    ScopedConfig cfg(spec);
    DevMode d = MakeDevMode(cfg.h);
    const DWORD ids[] = {DDI_PAPERWIDTH, DDI_PAPERHEIGHT, DDI_IMAGELEFT,
                         DDI_IMAGETOP,   DDI_IMAGEWIDTH,  DDI_IMAGEHEIGHT}; // row order
    for (DWORD r = 0; r < spec.papers.size(); ++r) {
        d.dm.wPaperIndex = WORD(r);
        for (short orient : {1, 2}) {
            d.dm.dmOrientation = orient;
            // 180-degree turns don't change the row that is read.
            for (BYTE rotated : {0, 1}) {
                d.dm.bRotated = rotated;
                const PaperDims &p = orient == 2 ? spec.landscape[r] : spec.portrait[r];
                const DWORD want[] = {p.width, p.height,     p.left,
                                      p.top,   p.imageWidth, p.imageHeight};
                for (int k = 0; k < 6; ++k)
                    EXPECT_EQ(DDIGetDWord(&d.dm, ids[k]), want[k])
                        << "paper " << r << " orientation " << orient << " id " << ids[k];
            }
        }
        EXPECT_EQ(spec.landscape[r].width, spec.portrait[r].width) << "width stays the width";
    }
    d.dm.dmOrientation = 1;
    EXPECT_EQ(DDIGetPaperDimensions(&d.dm, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
              1);
    DWORD w = 77;
    EXPECT_EQ(DDIGetPaperDimensions(&d.dm, 5, &w, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(DDIGetPaperDimensions(&d.dm, -1, &w, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(w, 77u) << "nothing stored on failure";
    d.dm.wPaperIndex = 5;
    for (DWORD id : ids) EXPECT_EQ(DDIGetDWord(&d.dm, id), 0xFFFFFFFFu);
}

TEST(DdiSelections, VersionEightRecordHasOnlyThePortraitHalf) {
    Spec spec = SamplePrinter();
    spec.version = 8;
    ScopedConfig cfg(spec);
    DevMode d = MakeDevMode(cfg.h);
    d.dm.dmOrientation = 2;
    d.dm.wPaperIndex = 4; // the last row: a landscape offset would read past the block
    EXPECT_EQ(DDIGetDWord(&d.dm, DDI_IMAGELEFT), spec.portrait[4].left);
    EXPECT_EQ(DDIGetDWord(&d.dm, DDI_IMAGEHEIGHT), spec.portrait[4].imageHeight);
}

TEST(DdiSelections, TablesShorterThanTheirCountsAndForeignBlocksReadAsAbsent) {
    Spec spec = SamplePrinter();
    ScopedConfig cfg(spec);
    EditConfig(cfg.h, [](CFGINFO &c) {
        c.nPapers = 1000; // the tables hold 5 rows
        c.nTrays = 0x7FFFFFFF;
        c.cchResName = 0x40000000; // one row would be 2 GiB
    });
    DevMode d = MakeDevMode(cfg.h);
    WCHAR buf[8];
    DWORD len = 8;
    EXPECT_EQ(DDIGetKeywordOptionString(&d.dm, DDI_PAPERSIZE, 4, buf, &len), TRUE);
    EXPECT_EQ(len, 7u) << "rows inside the block still read";
    for (INT i : {5, 999}) {
        len = 8;
        EXPECT_EQ(DDIGetKeywordOptionString(&d.dm, DDI_PAPERSIZE, i, buf, &len), TRUE);
        EXPECT_EQ(len, 0u);
        EXPECT_EQ(DDISetPaperSize(&d.dm, i), 0);
        EXPECT_EQ(DDISetPaperSource(&d.dm, i), 0);
    }
    // The dimension block holds ten rows (two halves of five); row 999 lies beyond it.
    EXPECT_EQ(
        DDIGetPaperDimensions(&d.dm, 999, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
    len = 8;
    EXPECT_EQ(DDIGetKeywordOptionTranslation(&d.dm, DDI_RESOLUTION, 0, buf, &len), FALSE);
    EXPECT_EQ(len, 0u);

    // A hConfig that names a block too small for a CFGINFO, or no block at all.
    HGLOBAL small = GlobalAlloc(GHND, 16);
    for (HGLOBAL h : {small, HGLOBAL(0xDEADBEEF)}) {
        DevMode f = MakeDevMode(h);
        EXPECT_EQ(DDIGetKeywordNumOptions(&f.dm, DDI_PAPERSIZE), 0);
        EXPECT_EQ(DDIGetKeywordDefaultOption(&f.dm, DDI_PAPERSIZE), -1);
        EXPECT_EQ(DDISetDWord(&f.dm, DDI_MEDIATYPE, 1), 0u);
        EXPECT_EQ(DDIGetDWord(&f.dm, DDI_PAPERWIDTH), 0xFFFFFFFFu);
        EXPECT_EQ(DDIGetDWord(&f.dm, DDI_LANGVERSION), 9u);
    }
    GlobalFree(small);
}

TEST(DdiSelections, ConfigurationThatWasNeverFilled) {
    HGLOBAL h = GlobalAlloc(GHND, CFGINFO_SIZE);
    DevMode d = MakeDevMode(h);
    WCHAR buf[8];
    DWORD len = 8;
    for (const FamilyCase &f : kFamilies) {
        EXPECT_EQ(DDIGetKeywordNumOptions(&d.dm, f.id), 0);
        EXPECT_EQ(DDIGetKeywordDefaultOption(&d.dm, f.id), 0);
        len = 8;
        EXPECT_EQ(DDIGetKeywordOptionString(&d.dm, f.id, 0, buf, &len), TRUE);
        EXPECT_EQ(len, 0u);
    }
    EXPECT_EQ(DDISetDWord(&d.dm, DDI_PAPERSIZE, 0), 0u);
    EXPECT_EQ(DDISetDWord(&d.dm, DDI_PAPERSOURCE, 0), 0u);
    EXPECT_EQ(DDISetDWord(&d.dm, DDI_RESOLUTION, 0), 0u);
    EXPECT_EQ(DDISetDWord(&d.dm, DDI_MEDIATYPE, 2), 1u);
    EXPECT_EQ(DDIGetDWord(&d.dm, DDI_PAPERHEIGHT), 0xFFFFFFFFu);
    EXPECT_EQ(DDISetDWord(&d.dm, DDI_CUSTWIDTH, 5000), 0u) << "no dimension table to write";
    EXPECT_EQ(DDIGetDWord(&d.dm, DDI_CUSTMAXWIDTH), 0u);
    GlobalFree(h);
}

TEST(DdiSelections, FailedLocksLeaveTheRecordAlone) {
    Spec spec = SamplePrinter();
    ScopedConfig cfg(spec);
    DevMode d = MakeDevMode(cfg.h);
    DevMode before = d;
    for (long nth : {1L, 2L}) { // hConfig, then the value table
        q417::mem::FailLock(nth);
        EXPECT_EQ(DDISetPaperSize(&d.dm, 1), 0) << nth;
        q417::mem::FailLock(nth);
        EXPECT_EQ(DDISetPaperSource(&d.dm, 1), 0) << nth;
        q417::mem::FailLock(nth);
        EXPECT_EQ(DDISetResIndex(&d.dm, 2), 0) << nth;
    }
    EXPECT_EQ(std::memcmp(&d, &before, sizeof d), 0);
    q417::mem::FailLock(1);
    EXPECT_EQ(DDIGetPaperSizeCount(&d.dm), 0);
    q417::mem::FailLock(1);
    EXPECT_EQ(DDIDefaultPaperSize(&d.dm), -1);
    q417::mem::FailLock(0);
    EXPECT_EQ(DDICurrentPaperSize(nullptr), 0xFFFFFFFFu);
    d.dm.hConfig = 0;
    d.dm.wPaperIndex = 3;
    EXPECT_EQ(DDICurrentPaperSize(&d.dm), 3u) << "current needs no configuration";
}

} // namespace
