// HP-GL/2 context: which language the printer is in, the job's HP-GL/2 defaults, and the
// page scale that makes an HP-GL/2 user unit one pixel of the frame.
#include "stream/stream.h"

#include <cstdint>

namespace {

// Bits of wHPGLFlags that survive a switch back to PCL; HPGL_CLIP_WINDOW is among them.
constexpr WORD HPGL_FLAGS_KEPT_IN_PCL = 0x0D90;

void EnterHPGL(SPLDEVINFO *pInfo) {
    if (pInfo->bOutputMode != OUTPUT_HPGL) fSetOutputMode(pInfo, OUTPUT_HPGL);
}

void EnterPCL(SPLDEVINFO *pInfo) {
    if (pInfo->bOutputMode != OUTPUT_PCL) fSetOutputMode(pInfo, OUTPUT_PCL);
}

} // namespace

// Always acts: whether a switch is needed is the caller's test.
void fSetOutputMode(SPLDEVINFO *pInfo, BYTE mode) {
    if (!pInfo) return;
    if (mode == OUTPUT_PCL) {
        EndPolyLineMode(pInfo);
        pInfo->wHPGLFlags &= HPGL_FLAGS_KEPT_IN_PCL;
        WriteLiteral(pInfo, "\x1b%0A"); // enter PCL at the previous PCL cursor
    } else if (mode == OUTPUT_HPGL) {
        WriteLiteral(pInfo, "\x1b%0B"); // enter HP-GL/2 at the previous pen position
    }
    pInfo->bOutputMode = mode;
}

// Nothing of this library leaves a polyline open.
void EndPolyLineMode(SPLDEVINFO *) {}

void WriteHPGLDefaults(SPLDEVINFO *pInfo) {
    if (!pInfo) return;
    EnterHPGL(pInfo);
    WriteLiteral(pInfo, "WU0LT0,10,1;LTPW0");
    if (IsColorJob(DevModeOf(pInfo))) WriteLiteral(pInfo, "PC0,0,0,0SP0");
    WriteCommand(pInfo, "TR0CF2LA1,%d,2,%d", 1, 2);
    WriteLiteral(pInfo, "LO21");
    WriteLiteral(pInfo, "PP1");
    EnterPCL(pInfo);
}

void WriteHPGLPageHeader(SPLDEVINFO *pInfo) {
    if (!pInfo) return;
    EnterHPGL(pInfo);
    ClearHPGLClipping(pInfo);
    InitHPGLScale(pInfo);
    EnterPCL(pInfo);
}

void ClearHPGLClipping(SPLDEVINFO *pInfo) {
    if (!pInfo || !(pInfo->wHPGLFlags & HPGL_CLIP_WINDOW)) return;
    EnterHPGL(pInfo);
    WriteLiteral(pInfo, "IW;");
    pInfo->wHPGLFlags &= static_cast<WORD>(~HPGL_CLIP_WINDOW);
}

int InitHPGLScale(SPLDEVINFO *pInfo) {
    const DDIDEVMODE *pdm = DevModeOf(pInfo);
    if (!pdm) return 0;
    // P1 and P2 span the frame in plotter units (1016 an inch); the sheet turns for 2 and 6 up.
    int64_t fh = pInfo->cyPrintable, fw = pInfo->cxPrintable;
    if (pInfo->nPagesPerSheet == 2 || pInfo->nPagesPerSheet == 6) {
        fh = pInfo->cxPrintable;
        fw = pInfo->cyPrintable;
    }
    // The scale counts pixels of the sheet's frame.
    int64_t sw = pInfo->cxPrintable, sh = pInfo->cyPrintable;
    if (pInfo->nPagesPerSheet != 1) {
        sw = pInfo->Layout[2];
        sh = pInfo->Layout[3];
    }
    WriteCommand(pInfo, "IP0,%lld,%lld,0SC0,%lld,0,%lld;", static_cast<long long>(fh * 1016 / 720),
                 static_cast<long long>(fw * 1016 / 720),
                 static_cast<long long>(pdm->dmPrintQuality * sw / 720),
                 static_cast<long long>(pdm->dmYResolution * sh / 720));
    return 0;
}
