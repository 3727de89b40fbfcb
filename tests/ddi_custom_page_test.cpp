// The custom paper size: limits, the decipoint to tenth-of-millimetre conversion, and the
// custom row of the dimension table kept in step with the record.
#include "ddi_fixture.h"

#include "q417/q417plg.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

using namespace ddi_test;

namespace {

using Row = std::array<DWORD, 6>;    // width, height, left, top, imageable width, height
using Limits = std::array<DWORD, 4>; // minimum width, height, maximum width, height

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
        PrinterDesc desc = SamplePrinter();
        std::copy(c.limits.begin(), c.limits.end(), desc.custLimits.begin());
        ScopedConfig cfg(desc);
        DevMode d = MakeDevMode(cfg.h), before = d;
        Row landscape = CustomRow(cfg.h, true);
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

TEST(DdiCustomPage, WithoutAUsableCustomRowNoRowIsWritten) {
    ScopedConfig cfg(SamplePrinter());
    DevMode d = MakeDevMode(cfg.h), before = d;
    const Row row = CustomRow(cfg.h);
    // A custom row past the table, or a table that won't lock: refused, nothing changes.
    EditConfig(cfg.h, [](CFGINFO &c) { c.nCustomPaper = 5; });
    EXPECT_EQ(DDISetCustomPageSize(&d.dm, 5000, 5000), 0);
    SetCustomSizeFields(&d.dm, nullptr);
    EditConfig(cfg.h, [](CFGINFO &c) { c.nCustomPaper = 4; });
    q417::mem::FailLock(2); // the dimension table
    EXPECT_EQ(DDISetCustomPageSize(&d.dm, 5000, 5000), 0);
    q417::mem::FailLock(0);
    EXPECT_EQ(std::memcmp(&d, &before, sizeof d), 0);
    // No custom paper: only the record takes the size, and a paper with id 256 brings none.
    EditConfig(cfg.h, [](CFGINFO &c) { c.nCustomPaper = -1; });
    EXPECT_EQ(DDISetCustomPageSize(&d.dm, 5000, 99999), 1);
    EXPECT_EQ(d.dm.wCustWidth, 5000);
    EXPECT_EQ(d.dm.dmPaperWidth, 1763);
    EXPECT_EQ(d.dm.wCustHeight, 12960);
    EXPECT_EQ(DDISetPaperSize(&d.dm, 4), 1);
    EXPECT_EQ(d.dm.wCustWidth, 5000);
    EditConfig(cfg.h, [](CFGINFO &c) { c.nCustomPaper = 4; });
    EXPECT_EQ(CustomRow(cfg.h), row);
}

} // namespace
