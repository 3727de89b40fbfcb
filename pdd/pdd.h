// Printer description: the parsed form of a PDD file and the calls that make and drop it.
//
// A PDDINFO lives only while a configuration is built from it: PDD_Startup makes it,
// PDD_ParseFile fills it, the config builder reads it, PDD_Shutdown frees it. It is private to
// the library and never written anywhere, so its pointers are host pointers. List entries are
// global blocks locked for their whole life, so the pointers stay good until PDD_FreeLists.
#pragma once

#include "platform/win32.h"

#include <cstdint>

// The parser's one text type: 8-bit bytes, zero-filled behind the text, no terminator when all
// 40 bytes are used. Read it with nLen, never as a C string.
struct PDDTEXT {
    char achText[40];
    int16_t nLen; // 0 to 40
};

// An area of a paper in tenths of a point. Until PDD_CalcPapers has run, nRight and nBottom are
// edges; after it they are the width and height of the area.
struct PDDAREA {
    int32_t nLeft;
    int32_t nTop;
    int32_t nRight;
    int32_t nBottom;
};

// Paper sources, output bins and media types.
struct PDDITEM {
    PDDTEXT Key;         // option name as the file names it
    PDDTEXT Translation; // text shown to the user
    PDDTEXT Cmd;         // code or command text
    PDDITEM *pNext;
};

struct PDDRESOLUTION {
    PDDTEXT Key;
    PDDTEXT Translation;
    PDDTEXT Cmd;
    int32_t nXRes; // dots per inch
    int32_t nYRes;
    PDDRESOLUTION *pNext;
};

struct PDDPAPER {
    PDDTEXT Key;
    PDDTEXT Translation;
    PDDTEXT Cmd;    // PCL page size code as text
    int32_t nWidth; // tenths of a point
    int32_t nHeight;
    PDDAREA PortraitArea;
    PDDAREA LandscapeArea;
    PDDPAPER *pNext;
};

struct PDDINFO {
    HGLOBAL hSelf;         // the record's own block
    DWORD dwLineNumber;    // lines delivered so far for the current file
    LPCWSTR pszFileName;   // the caller's name of the file being parsed, not a copy
    DWORD dwLanguage;      // 1 PCL 5, 5 PCL 6, 10 GDI, 0 not given
    DWORD dwLanguageLevel; // 2 to 6 or 11, 0 not given
    DWORD dwColors;        // 3 colour, 1 monochrome, 0 not given
    PDDRESOLUTION *pDefaultRes;
    PDDRESOLUTION *pResList;
    DWORD nResolutions;
    PDDPAPER *pDefaultPaper;
    PDDPAPER *pPaperList;
    DWORD nPapers;
    PDDITEM *pDefaultTray;
    PDDITEM *pTrayList;
    DWORD nTrays;
    PDDTEXT PlugIn;  // file name of the plug-in library
    PDDTEXT Product; // model name
    PDDTEXT FileVersion;
    DWORD dwDuplex;  // 1 or 0
    DWORD dwCollate; // 1 or 0
    PDDITEM *pDefaultDest;
    PDDITEM *pDestList;
    DWORD nDests;
    PDDITEM *pDefaultMedia;
    PDDITEM *pMediaList;
    DWORD nMedia;
    int32_t dwCustMinWidth; // custom paper limits, tenths of a point
    int32_t dwCustMinHeight;
    int32_t dwCustMaxWidth;
    int32_t dwCustMaxHeight;
    int32_t dwCustDefWidth;
    int32_t dwCustDefHeight;
    int32_t dwCustMarginLeft;
    int32_t dwCustMarginTop;
    int32_t dwCustMarginRight;
    int32_t dwCustMarginBottom;
    PDDPAPER *pCustomPaper; // the paper list entry of the custom size, or null
    BYTE bLangID;           // Windows primary language id, 9 unless told otherwise
    BYTE bMeasUnits;        // 0 English units, 1 metric
    BYTE bTextClipping;     // 1 or 0
    BYTE bLandscapeMinus90; // 1: landscape is a rotation of minus 90 degrees
    PDDTEXT PortraitCmd;    // orientation commands for the job stream
    PDDTEXT LandscapeCmd;
    BYTE bFontPitch;
};

// PDD_ParseFile results.
enum : int {
    PDD_OK = 0,
    PDD_NOT_PDD = 2, // empty, or the first line lacks the tag
    PDD_NO_LOCK = 3, // the record can't be locked
    PDD_NO_FILE = 4, // the file can't be opened
};

HGLOBAL PDD_Startup();
int PDD_ParseFile(HGLOBAL hPDD, LPCWSTR pszFileName);
int PDD_Shutdown(HGLOBAL hPDD);
int PDD_FreeLists(HGLOBAL hPDD);
int PDD_CalcPapers(PDDINFO *pPDD);

// Diagnostics for a checking tool. Off unless set; the parser's results never depend on it.
// Called for every line that is skipped or refused and for each paper PDD_CalcPapers can't
// complete. file is the name as UTF-8, line counts from 1 in that file (0 when no line is at
// hand), key is the key token or the paper's name (may be empty), reason a short phrase.
// Lines are counted as the parser reads them: the rest of a line cut at 128 bytes or at a 0
// byte counts as a line of its own.
typedef void (*PDD_DIAGNOSTIC_HOOK)(void *ctx, const char *file, int line, const char *key,
                                    const char *reason);
void PDD_SetDiagnosticHook(PDD_DIAGNOSTIC_HOOK fn, void *ctx);
