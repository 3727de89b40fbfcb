// Single settings: what each setter accepts, how it encodes, and the answers that don't mirror
// the value given.
#include "ddi_fixture.h"

#include "q417/q417plg.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

using namespace ddi_test;

namespace {

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

} // namespace
