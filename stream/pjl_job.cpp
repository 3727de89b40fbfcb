// PJL job framing: the job header from the Universal Exit Language to the copy count, the
// identification comments, and the job footer.
#include "config/config.h"
#include "ddi/ddi.h"
#include "stream/stream.h"

#include <cstring>

const char DRIVER_VERSION[] = "1.0.0009";
const char DRIVER_PLATFORM[] = "NT 4";
const char DRIVER_RELEASE[] = "070199";

char tbuf[TBUF_SIZE];

namespace {

// Holds a global block locked for the length of a scope.
class GlobalLockGuard {
  public:
    explicit GlobalLockGuard(HGLOBAL h) : h_(h), p_(h ? GlobalLock(h) : nullptr) {}
    ~GlobalLockGuard() {
        if (p_) GlobalUnlock(h_);
    }
    GlobalLockGuard(const GlobalLockGuard &) = delete;
    GlobalLockGuard &operator=(const GlobalLockGuard &) = delete;
    template <class T>
    T *get() const {
        return static_cast<T *>(p_);
    }

  private:
    HGLOBAL h_;
    void *p_;
};

constexpr size_t kPDDVersionBuf = 100;

} // namespace

bool IsColorJob(const DDIDEVMODE *pdm) {
    return pdm && (pdm->wEmulation == 3 || pdm->wEmulation == 4);
}

const char *EmulationLabel(const DDIDEVMODE *pdm) {
    switch (pdm ? pdm->wEmulation : 0) {
    case 2:
        return "PCL5e";
    case 3:
        return "PCL5C";
    case 4:
        return "PCL5eC";
    default:
        return "PCL5";
    }
}

char *TStr2Str(const WCHAR *src) {
    tbuf[0] = 0;
    if (!src) return tbuf;
    int needed = WideCharToMultiByte(CP_ACP, 0, src, -1, nullptr, 0, nullptr, nullptr);
    if (needed > 0 && needed <= TBUF_SIZE) {
        CopyUnicode2Str(tbuf, src, 0);
        return tbuf;
    }
    // Too long for the buffer: keep the longest head that narrows into it with a terminator.
    int cch = lstrlenW(src);
    if (cch > TBUF_SIZE - 1) cch = TBUF_SIZE - 1;
    while (cch > 0 &&
           WideCharToMultiByte(CP_ACP, 0, src, cch, nullptr, 0, nullptr, nullptr) > TBUF_SIZE - 1)
        --cch;
    int n = cch > 0
                ? WideCharToMultiByte(CP_ACP, 0, src, cch, tbuf, TBUF_SIZE - 1, nullptr, nullptr)
                : 0;
    tbuf[n > 0 ? n : 0] = 0;
    return tbuf;
}

void CallHeaderHook(SPLDEVINFO *pInfo, PFN_OEM_CustHeader CUSTDLL::*entry) {
    DDIDEVMODE *pdm = DevModeOf(pInfo);
    if (!pdm) return;
    pdm->pJobInfo = Ptr32From(pInfo);
    SetCustDataPtr(pdm);
    if (PFN_OEM_CustHeader fn = CustDLL.*entry)
        fn(pdm, pdm->dwCustDataWord, Ptr32To(pdm->pCustData));
}

// ---- Identification comments ----

int PJL_WriteEmulation(SPLDEVINFO *pInfo) {
    WriteLiteral(pInfo, "@PJL COMMENT Quillmark ");
    const char *label = EmulationLabel(DevModeOf(pInfo));
    DevWrite(pInfo, label, static_cast<DWORD>(strlen(label)));
    WriteCommand(pInfo, " Driver Version %s on %s\n", DRIVER_VERSION, DRIVER_PLATFORM);
    return 1;
}

int PJL_WriteDriverName(SPLDEVINFO *pInfo) {
    const DDIDEVMODE *pdm = DevModeOf(pInfo);
    if (!pdm) return 0;
    // The field need not hold a terminator when the name fills it.
    WCHAR name[32 + 1] = {};
    memcpy(name, pdm->dmDeviceName, sizeof pdm->dmDeviceName);
    WriteCommand(pInfo, "@PJL COMMENT for %s at %d by %d DPI\n", TStr2Str(name),
                 pdm->dmPrintQuality, pdm->dmYResolution);
    return 1;
}

int PJL_WritePDDVersion(SPLDEVINFO *pInfo) {
    DDIDEVMODE *pdm = DevModeOf(pInfo);
    if (!pdm) return 0;
    // At most 40 bytes arrive, unterminated when all 40 are text: the zeroed tail ends them.
    char version[kPDDVersionBuf] = {};
    if (GetPDDVersionString(pdm, version) == 0) return 0;
    version[kPDDVersionBuf - 1] = 0;
    return WriteCommand(pInfo, "@PJL COMMENT PDD Version: %s\n", version);
}

int PJL_WriteBuildDate(SPLDEVINFO *pInfo) {
    WriteCommand(pInfo, "@PJL COMMENT Driver Release: %s\n", DRIVER_RELEASE);
    return 1;
}

int PJL_WriteJobName(SPLDEVINFO *pInfo) {
    const DDIDEVMODE *pdm = DevModeOf(pInfo);
    if (!pdm || !pdm->hJobName) return 0;
    GlobalLockGuard name(pdm->hJobName);
    if (!name.get<WCHAR>()) return 0;
    WriteCommand(pInfo, "@PJL COMMENT Job Name: %s\n", TStr2Str(name.get<WCHAR>()));
    return 1;
}

void WritePJLDriverID(SPLDEVINFO *pInfo) {
    PJL_WriteEmulation(pInfo);
    PJL_WriteDriverName(pInfo);
    PJL_WritePDDVersion(pInfo);
    PJL_WriteBuildDate(pInfo);
    PJL_WriteJobName(pInfo);
}

// The description's own PJL lines for the orientation, as they stand.
void WritePJLOrient(SPLDEVINFO *pInfo) {
    DDIDEVMODE *pdm = DevModeOf(pInfo);
    if (!pdm) return;
    int len = GetPJLOrientString(pdm, CustCmdBuf);
    if (len <= 0) return;
    // A text longer than the buffer has been cut to it; never send bytes from beyond.
    if (len > static_cast<int>(sizeof CustCmdBuf) - 1) len = sizeof CustCmdBuf - 1;
    DevWrite(pInfo, CustCmdBuf, static_cast<DWORD>(len));
}

// ---- Job header and footer ----

void WritePCLJobHeader(SPLDEVINFO *pInfo) {
    DDIDEVMODE *pdm = DevModeOf(pInfo);
    if (!pdm) return;
    // The resolution as the job began; a plug-in may change dmPrintQuality in its PJL hook,
    // which moves the PJL resolution but not the PCL units.
    const int res = pdm->dmPrintQuality;

    WriteLiteral(pInfo, "\x1b%-12345X"); // Universal Exit Language
    WritePJLDriverID(pInfo);
    WritePJLOrient(pInfo);
    CallHeaderHook(pInfo, &CUSTDLL::OEM_PJLCustJobHeader);
    if (IsColorJob(pdm) && AllObjectsGrayscale(pInfo))
        WriteLiteral(pInfo, "@PJL SET RENDERMODE = GRAYSCALE\n");
    WriteCommand(pInfo, "@PJL SET RESOLUTION=%d\n", pdm->dmPrintQuality);
    WriteLiteral(pInfo, "@PJL ENTER LANGUAGE=PCL\n");
    if (pInfo->bOutputMode != OUTPUT_PCL) fSetOutputMode(pInfo, OUTPUT_PCL);
    // Configure Image Data: device RGB, direct by pixel, 8 bits for each primary.
    if (IsColorJob(pdm)) WriteLiteral(pInfo, "\x1b*v6W\x00\x03\x00\x08\x08\x08");
    WriteCommand(pInfo, "\x1b&u%dD", res); // unit of measure: PCL units are pixels
    WriteCommand(pInfo, "\x1b*t%dR", res); // raster graphics resolution
    if (IsColorJob(pdm)) WriteCommand(pInfo, "\x1b*t%dJ", 7); // cluster ordered dither
    WriteLiteral(pInfo, "\x1b*c0F");                          // delete all soft fonts
    if (IsColorJob(pdm)) PCLInitColorCorrect(pInfo);
    WriteHPGLDefaults(pInfo);
    WriteCommand(pInfo, "\x1b&l%dX", pdm->dmCopies); // copies: once a job, never a page
    CallHeaderHook(pInfo, &CUSTDLL::OEM_PDLCustJobHeader);
}

void WritePCLJobFooter(SPLDEVINFO *pInfo) {
    if (!pInfo) return;
    WriteLiteral(pInfo, "\x1b%-12345X");
    // Behind the exit, so that what the plug-in adds stands outside the PCL job.
    CallHeaderHook(pInfo, &CUSTDLL::OEM_PJLCustJobFooter);
}
