// The custom paper size: limits, the decipoint to tenth-of-millimetre conversion, and the
// custom row of the dimension table kept in step with the record.
#include "ddi_fixture.h"

#include "q417/q417plg.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

using namespace ddi_test;

namespace {

using Row = std::array<DWORD, 6>; // width, height, left, top, imageable width, height

Row CustomRow(HGLOBAL hCfg, bool landscape = false) {
    Row r{};
    EditConfig(hCfg, [&](CFGINFO &c) {
        auto *dims = static_cast<const DWORD *>(GlobalLock(c.hPaperDims));
        std::memcpy(r.data(), dims + 6 * (c.nCustomPaper + (landscape ? c.nPapers : 0)), 24);
        GlobalUnlock(c.hPaperDims);
    });
    return r;
}

TEST(DdiCustomPage, SizesAreLimitedConvertedAndWrittenToTheCustomRow) {
    // Limits of the sample printer: width 2160..8640, height 3600..12960 decipoints; margins
    // left 100, top 200, right 300, bottom 400. The row starts as 6120 x 7920.
    struct Case {
        bool noLimits;
        INT width, height;
        WORD custWidth, custHeight; // record after the call (0: untouched)
        SHORT paperWidth, paperLength;
        Row row;
    };
    const Case cases[] = {
        {false, 2160, 0, 2160, 0, 762, 0, {2160, 7920, 100, 200, 1760, 7320}},  // the minimum
        {false, 8640, 0, 8640, 0, 3048, 0, {8640, 7920, 100, 200, 8240, 7320}}, // the maximum
        {false, 1000, 0, 2160, 0, 762, 0, {2160, 7920, 100, 200, 1760, 7320}},  // below: min
        {false, 9000, 0, 8640, 0, 3048, 0, {8640, 7920, 100, 200, 8240, 7320}}, // above: max
        {false, -5, 0, 2160, 0, 762, 0, {2160, 7920, 100, 200, 1760, 7320}},    // negative: min
        {false, 0, 20000, 0, 12960, 0, 4572, {6120, 12960, 100, 200, 5720, 12360}},
        {false, 0, 3600, 0, 3600, 0, 1270, {6120, 3600, 100, 200, 5720, 3000}},
        {false, 5000, 6000, 5000, 6000, 1763, 2116, {5000, 6000, 100, 200, 4600, 5400}},
        // (0, 0) changes no record field and still rewrites margins and imageable area.
        {false, 0, 0, 0, 0, 0, 0, {6120, 7920, 100, 200, 5720, 7320}},
        // Without limits 612 decipoints (8.5 mm and a bit) is 215 tenths, remainder dropped.
        {true, 612, 0, 612, 0, 215, 0, {612, 7920, 100, 200, 212, 7320}},
        {true, 100000, 0, WORD(100000), 0, SHORT(35277), 0, {100000, 7920, 100, 200, 99600, 7320}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.width << " x " << c.height);
        Spec spec = SamplePrinter();
        if (c.noLimits) std::fill(spec.custLimits, spec.custLimits + 4, 0);
        ScopedConfig cfg(spec);
        DevMode d = MakeDevMode(cfg.h);
        DevMode before = d;
        Row landscape = CustomRow(cfg.h, true);
        EXPECT_EQ(DDISetCustomPageSize(&d.dm, c.width, c.height), 1);
        EXPECT_EQ(d.dm.wCustWidth, c.custWidth);
        EXPECT_EQ(d.dm.wCustHeight, c.custHeight);
        EXPECT_EQ(d.dm.dmPaperWidth, c.paperWidth);
        EXPECT_EQ(d.dm.dmPaperLength, c.paperLength);
        EXPECT_EQ(CustomRow(cfg.h), c.row);
        EXPECT_EQ(CustomRow(cfg.h, true), landscape) << "the landscape half stays as built";
        // Nothing else of the record moves; the custom paper is not selected by this.
        d.dm.wCustWidth = before.dm.wCustWidth;
        d.dm.wCustHeight = before.dm.wCustHeight;
        d.dm.dmPaperWidth = before.dm.dmPaperWidth;
        d.dm.dmPaperLength = before.dm.dmPaperLength;
        EXPECT_EQ(std::memcmp(&d, &before, sizeof d), 0);
    }
}

// A description may give a minimum above its maximum. The minimum is tested first, and a size
// below it is not tested against the maximum after that; one equal to it is.
TEST(DdiCustomPage, MinimumIsTestedBeforeAMaximumBelowIt) {
    struct Case {
        INT value;
        WORD stored;
    };
    for (const Case &c : {Case{4000, 5000}, Case{6000, 3000}, Case{5000, 3000}}) {
        Spec spec = SamplePrinter();
        spec.custLimits[0] = spec.custLimits[1] = 5000; // minimum width and height
        spec.custLimits[2] = spec.custLimits[3] = 3000; // maximum width and height
        ScopedConfig cfg(spec);
        DevMode d = MakeDevMode(cfg.h);
        EXPECT_EQ(DDISetCustomPageSize(&d.dm, c.value, c.value), 1);
        EXPECT_EQ(d.dm.wCustWidth, c.stored) << c.value;
        EXPECT_EQ(d.dm.wCustHeight, c.stored) << c.value;
    }
}

TEST(DdiCustomPage, NegativeWidthWithOnlyAMaximumStaysAsItsLow16Bits) {
    Spec spec = SamplePrinter();
    spec.custLimits[0] = 0;
    ScopedConfig cfg(spec);
    DevMode d = MakeDevMode(cfg.h);
    EXPECT_EQ(DDISetDWord(&d.dm, DDI_CUSTWIDTH, DWORD(-720)), 1u);
    EXPECT_EQ(d.dm.wCustWidth, 0xFD30);
    EXPECT_EQ(d.dm.dmPaperWidth, -254);
    EXPECT_EQ(DDIGetDWord(&d.dm, DDI_CUSTWIDTH), 0xFD30u) << "read back zero-extended";
    EXPECT_EQ(CustomRow(cfg.h)[0], DWORD(-720));
}

TEST(DdiCustomPage, WidthAndHeightComeThroughTwoIdsAndSelectionReadsTheRowBack) {
    Spec spec = SamplePrinter();
    ScopedConfig cfg(spec);
    DevMode d = MakeDevMode(cfg.h);
    EXPECT_EQ(DDISetDWord(&d.dm, DDI_CUSTWIDTH, 4320), 1u);
    EXPECT_EQ(DDISetDWord(&d.dm, DDI_CUSTHEIGHT, 50000), 1u);
    EXPECT_EQ(DDIGetDWord(&d.dm, DDI_CUSTWIDTH), 4320u);
    EXPECT_EQ(DDIGetDWord(&d.dm, DDI_CUSTHEIGHT), 12960u) << "limited to the maximum";
    EXPECT_EQ(DDIGetDWord(&d.dm, DDI_CUSTOMPAPER), 0u) << "setting a size selects nothing";

    // Another record on the same configuration picks the custom paper and sees the new size.
    DevMode other = MakeDevMode(cfg.h);
    EXPECT_EQ(DDISetDWord(&other.dm, DDI_PAPERSIZE, 4), 1u);
    EXPECT_EQ(other.dm.dmPaperSize, 256);
    EXPECT_EQ(other.dm.wCustWidth, 4320);
    EXPECT_EQ(other.dm.wCustHeight, 12960);
    EXPECT_EQ(other.dm.dmPaperWidth, 1524);
    EXPECT_EQ(other.dm.dmPaperLength, 4572);
    other.dm.dmOrientation = 1;
    EXPECT_EQ(DDIGetDWord(&other.dm, DDI_PAPERWIDTH), 4320u);
    EXPECT_EQ(DDIGetDWord(&other.dm, DDI_IMAGEHEIGHT), 12960u - 600);
    other.dm.dmOrientation = 2;
    EXPECT_EQ(DDIGetDWord(&other.dm, DDI_PAPERWIDTH), 6120u) << "landscape keeps the PDD's row";

    DWORD w = 1, h = 2;
    EXPECT_EQ(DDIGetCustomPageSize(&d.dm, nullptr, nullptr), 1);
    EXPECT_EQ(DDIGetCustomPageSize(nullptr, &w, &h), 0);
    EXPECT_EQ(w + h, 3u);
}

TEST(DdiCustomPage, WithoutACustomPaperOnlyTheRecordTakesTheSize) {
    Spec spec = SamplePrinter();
    spec.customPaper = -1;
    ScopedConfig cfg(spec);
    EditConfig(cfg.h, [](CFGINFO &c) { c.nCustomPaper = -1; });
    DevMode d = MakeDevMode(cfg.h);
    std::vector<BYTE> dims;
    EditConfig(cfg.h, [&](CFGINFO &c) {
        auto *p = static_cast<BYTE *>(GlobalLock(c.hPaperDims));
        dims.assign(p, p + GlobalSize(c.hPaperDims));
        GlobalUnlock(c.hPaperDims);
    });
    EXPECT_EQ(DDISetCustomPageSize(&d.dm, 5000, 99999), 1);
    EXPECT_EQ(d.dm.wCustWidth, 5000);
    EXPECT_EQ(d.dm.dmPaperWidth, 1763);
    EXPECT_EQ(d.dm.wCustHeight, 12960);
    EditConfig(cfg.h, [&](CFGINFO &c) {
        auto *p = static_cast<BYTE *>(GlobalLock(c.hPaperDims));
        EXPECT_EQ(std::memcmp(p, dims.data(), dims.size()), 0) << "no row touched";
        GlobalUnlock(c.hPaperDims);
    });
    // A paper with id 256 then brings no size along.
    EXPECT_EQ(DDISetPaperSize(&d.dm, 4), 1);
    EXPECT_EQ(d.dm.dmPaperSize, 256);
    EXPECT_EQ(d.dm.wCustWidth, 5000);
    SetCustomSizeFields(&d.dm, nullptr);
    EXPECT_EQ(d.dm.wCustWidth, 5000);
}

TEST(DdiCustomPage, RefusalsChangeNothing) {
    Spec spec = SamplePrinter();
    ScopedConfig cfg(spec);
    DevMode d = MakeDevMode(cfg.h);
    DevMode before = d;
    Row row = CustomRow(cfg.h);
    q417::mem::FailLock(2); // the dimension table
    EXPECT_EQ(DDISetCustomPageSize(&d.dm, 5000, 5000), 0);
    q417::mem::FailLock(0);
    EditConfig(cfg.h, [](CFGINFO &c) { c.nCustomPaper = 5; }); // past the table
    EXPECT_EQ(DDISetCustomPageSize(&d.dm, 5000, 5000), 0);
    SetCustomSizeFields(&d.dm, nullptr);
    EXPECT_EQ(DDISetCustomPageSize(nullptr, 5000, 5000), 0);
    DevMode bare = MakeDevMode(0);
    EXPECT_EQ(DDISetCustomPageSize(&bare.dm, 5000, 5000), 0);
    EXPECT_EQ(std::memcmp(&d, &before, sizeof d), 0);
    EditConfig(cfg.h, [](CFGINFO &c) { c.nCustomPaper = 4; });
    EXPECT_EQ(CustomRow(cfg.h), row);
}

} // namespace
