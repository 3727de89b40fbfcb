// Printer language stream: PJL job framing, PCL page set-up, colour set-up, HP-GL/2 context.
#pragma once

#include "platform/win32.h"
#include "q417/records.h"

#include <cstddef>

// Every buffer that pCmdBuf is pointed at holds at least this many bytes (CustCmdBuf and the
// watermark's buffer both do); formatted commands are cut to it.
constexpr int CMD_BUF_SIZE = 1024;

// ---- Job framing ----
void WritePCLJobHeader(SPLDEVINFO *pInfo);
void WritePCLJobFooter(SPLDEVINFO *pInfo);
void WritePJLDriverID(SPLDEVINFO *pInfo);
int PJL_WriteEmulation(SPLDEVINFO *pInfo);
int PJL_WriteDriverName(SPLDEVINFO *pInfo);
int PJL_WriteBuildDate(SPLDEVINFO *pInfo);
int PJL_WriteJobName(SPLDEVINFO *pInfo);
int PJL_WritePDDVersion(SPLDEVINFO *pInfo);
void WritePJLOrient(SPLDEVINFO *pInfo);

// Narrowed copy of a wide string in tbuf, which the next call overwrites. A text that does not
// fit is cut to the buffer and terminated.
constexpr int TBUF_SIZE = 400;
extern char tbuf[TBUF_SIZE];
char *TStr2Str(const WCHAR *src);

// Identification of this driver build, as the PJL comments give it.
extern const char DRIVER_VERSION[];  // "1.0.0009"
extern const char DRIVER_PLATFORM[]; // "NT 4"
extern const char DRIVER_RELEASE[];  // "070199"

// wEmulation 3 and 4 are colour jobs; the label only names the language in a comment.
bool IsColorJob(const DDIDEVMODE *pdm);
const char *EmulationLabel(const DDIDEVMODE *pdm);

// ---- Page set-up ----
void WritePCLPageHeader(SPLDEVINFO *pInfo);
int PCLPageSelect(SPLDEVINFO *pInfo);
void PCLTraySelect(SPLDEVINFO *pInfo);

// ---- Colour set-up ----
constexpr int PCL_PALETTE_SLOTS = 11;
struct PCLCIDREC {
    const char *pRecord; // literal PCL bytes, NULs included
    int cbRecord;
};
extern const BYTE PCLPalIDs[PCL_PALETTE_SLOTS];
extern DWORD PCLPalInitialized[PCL_PALETTE_SLOTS];
extern const PCLCIDREC PCLCID[PCL_PALETTE_SLOTS];
extern const DWORD ColorDithers[6];
extern const DWORD MonoDithers[6];
extern const BYTE PCLColorMaps[8];

void PCLResetPaletteArray();
BOOL PCLReservePalette(SPLDEVINFO *pInfo, int slot);
void PCLInitColorCorrect(SPLDEVINFO *pInfo);
int AllObjectsGrayscale(const SPLDEVINFO *pInfo);

// ---- HP-GL/2 context ----
void fSetOutputMode(SPLDEVINFO *pInfo, BYTE mode);
void WriteHPGLDefaults(SPLDEVINFO *pInfo);
void WriteHPGLPageHeader(SPLDEVINFO *pInfo);
int InitHPGLScale(SPLDEVINFO *pInfo);
void ClearHPGLClipping(SPLDEVINFO *pInfo);
void EndPolyLineMode(SPLDEVINFO *pInfo);

// ---- Writing commands ----
// A fixed command, written with its exact length: literals may hold NUL bytes.
template <size_t N>
inline BOOL WriteLiteral(SPLDEVINFO *pInfo, const char (&text)[N]);
// A command with printf fields, formatted into pCmdBuf and written; 0 without a buffer.
BOOL WriteCommand(SPLDEVINFO *pInfo, const char *fmt, ...) __attribute__((format(printf, 2, 3)));
// Formats into the given buffer of cbBuf bytes and writes; the text is cut to the buffer.
BOOL WriteCommandIn(SPLDEVINFO *pInfo, char *buf, size_t cbBuf, const char *fmt, ...)
    __attribute__((format(printf, 4, 5)));

#include "job/job.h"

// The plug-in's header and footer hooks: pJobInfo and pCustData are set for it, then the entry,
// if the plug-in has it, runs with the device mode. Its result is not used.
void CallHeaderHook(SPLDEVINFO *pInfo, PFN_OEM_CustHeader CUSTDLL::*entry);

template <size_t N>
inline BOOL WriteLiteral(SPLDEVINFO *pInfo, const char (&text)[N]) {
    return DevWrite(pInfo, text, static_cast<DWORD>(N - 1));
}
