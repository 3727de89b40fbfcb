// PCL page set-up: paper, orientation, top margin, duplex, tray and picture frame of a sheet.
// Paper and tray go out only when they differ from what the printer was last told.
#include "config/config.h"
#include "ddi/ddi.h"
#include "stream/stream.h"

namespace {

constexpr int kSendNothing = -1; // a paper or tray code that the description leaves unsent
constexpr BYTE kReverseLandscape = 0x08;

struct LineSpacing {
    int linesPerInch;
    int topMarginLines;
};

// Top margin in whole lines: 6 and 4 lines an inch cover margins up to 180 decipoints with one
// line; beyond that 48 lines an inch (15 decipoints a line), rounded up.
LineSpacing LineSpacingFor(int cyMargin) {
    if (cyMargin < 150) return {6, 1};
    if (cyMargin <= 180) return {4, 1};
    // The margin comes from the job's own record: wrap like the 32-bit arithmetic of the
    // printer's driver rather than overflow.
    const auto lines = static_cast<int32_t>(2u * static_cast<uint32_t>(cyMargin) + 29u);
    return {48, lines / 30};
}

// PCL orientation: 0 portrait, 1 landscape, 2 and 3 the reverse ones.
int OrientationCode(const SPLDEVINFO *pInfo, const DDIDEVMODE *pdm) {
    const bool portrait = pdm->dmOrientation == 1;
    int code;
    if (pInfo->nPagesPerSheet == 1)
        code = portrait ? 0 : 1;
    else // N-up: the sheet is portrait exactly when it keeps a portrait job's orientation
        code = (portrait == (pInfo->bKeepOrient != 0)) ? 0 : 1;
    if (pdm->bRotated) code += 2;
    if (pdm->dmOrientation == 2 && (pdm->bOutputFlags & kReverseLandscape))
        code = (code == 1) ? 3 : 1;
    return code;
}

// "\x1b&l%dS" value of dmDuplex 1 to 3; other values have none.
int DuplexCode(int dmDuplex) {
    switch (dmDuplex) {
    case 1:
        return 0; // simplex
    case 2:
        return 2;
    case 3:
        return 1;
    default:
        return -1;
    }
}

} // namespace

int PCLPageSelect(SPLDEVINFO *pInfo) {
    DDIDEVMODE *pdm = DevModeOf(pInfo);
    if (!pdm) return 0;
    const LineSpacing ls = LineSpacingFor(pInfo->cyMargin);
    const int code = OrientationCode(pInfo, pdm);
    int frameW = pInfo->cxPrintable, frameH = pInfo->cyPrintable;
    if (pInfo->nPagesPerSheet != 1) {
        frameW = pInfo->Layout[2];
        frameH = pInfo->Layout[3];
    }

    const int paper = GetPaperSelect(pdm, pdm->wPaperIndex);
    if (paper == kSendNothing) return 0;

    if (paper != pInfo->nLastPaper) {
        // A page-size command ejects the last sheet and sets up the new one in one go.
        WriteCommand(pInfo, "\x1b&l%da%do%dd%dE", paper, code, ls.linesPerInch, ls.topMarginLines);
        pInfo->nLastPaper = static_cast<SHORT>(paper);
        pInfo->bNewPaper = 1;
        if (pdm->dmDuplex != 0) {
            int duplex = DuplexCode(pdm->dmDuplex);
            if (duplex >= 0) WriteCommand(pInfo, "\x1b&l%dS", duplex);
        }
    } else {
        pInfo->bNewPaper = 0;
        WriteLiteral(pInfo, "\x0c"); // same paper: a form feed ejects the last sheet
        if (code != pInfo->nLastOrient) {
            WriteCommand(pInfo, "\x1b&l%do%dd%dE", code, ls.linesPerInch, ls.topMarginLines);
            pInfo->nLastOrient = static_cast<SHORT>(code);
        }
    }
    // Cursor to 0,0; picture frame size in decipoints, anchored at the cursor.
    WriteCommand(pInfo, "\x1b*pxY\x1b*c%dx%dy0T", frameW, frameH);
    return 1;
}

void PCLTraySelect(SPLDEVINFO *pInfo) {
    DDIDEVMODE *pdm = DevModeOf(pInfo);
    if (!pdm) return;
    const int tray = GetTraySelect(pdm, pdm->wSourceIndex);
    if (tray == pInfo->nLastTray) return;
    if (tray != kSendNothing)
        WriteCommandIn(pInfo, CustCmdBuf, sizeof CustCmdBuf, "\x1b&l%dH", tray);
    pInfo->nLastTray = static_cast<SHORT>(tray); // -1 too: the next -1 then sends nothing
}

void WritePCLPageHeader(SPLDEVINFO *pInfo) {
    if (!DevModeOf(pInfo)) return;
    if (pInfo->bOutputMode != OUTPUT_PCL) fSetOutputMode(pInfo, OUTPUT_PCL);
    PCLPageSelect(pInfo);
    PCLTraySelect(pInfo);
    WriteCommand(pInfo, "\x1b*r%dF", 0); // raster presentation mode 0
    CallHeaderHook(pInfo, &CUSTDLL::OEM_PDLCustPageHeader);
    // Again: a hook that changed wSourceIndex gets its tray here.
    PCLTraySelect(pInfo);
    WriteHPGLPageHeader(pInfo);
}
