/* Records exchanged with the graphics half, user interfaces, plug-ins and the binary
 * configuration file. Each is a little-endian byte layout; the static_asserts below pin every
 * field that the library reads or writes, so a change of compiler or flags cannot move one. */
#ifndef Q417_RECORDS_H
#define Q417_RECORDS_H

#include "q417/wintypes.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma pack(push, 1)

/* ---- Job handle ---------------------------------------------------------------------- */

typedef struct SPLJOB {
    BYTE dwMagic[4]; /* "TNQM" */
    HANDLE32 hPrinter;
    HGLOBAL hDevInfo;
    DWORD JobId;
    DWORD dwState; /* 1 open, |2 ended, |4 aborted */
    DWORD dwReserved;
} SPLJOB;

/* ---- Per-job device record ----------------------------------------------------------- */

enum {
    JOB_PAGE_OPEN = 0x01,
    JOB_HEADER_SENT = 0x02,
    JOB_WATERMARK = 0x04,
    JOB_SUBPAGE_MARK = 0x08,
    JOB_PAGE_STARTED = 0x10,
};

enum {
    DEV_OUTPUT_FAILED = 0x02,
    DEV_FORGET_HISTORY = 0x10,
};

enum { HPGL_CLIP_WINDOW = 0x10 };

/* bOutputMode */
enum { OUTPUT_PCL = 0, OUTPUT_HPGL = 1, OUTPUT_UNKNOWN = 2 };

#define SPLDEVINFO_SIZE 3748

typedef struct SPLDEVINFO {
    BYTE reserved0[4];
    PTR32 pDevMode; /* locked DDIDEVMODE copy */
    BYTE reserved8[4];
    HANDLE32 hPrinter;
    BYTE reserved16[12];
    INT cxPaper; /* decipoints */
    INT cyPaper;
    INT cxPrintable;
    INT cyPrintable;
    INT cxMargin;
    INT cyMargin;
    BYTE reserved52[136];
    DWORD dwDevFlags;
    BYTE reserved192[4];
    DWORD nPage;
    DWORD nSubPage;
    BYTE reserved204[40];
    SHORT nLastTray;
    SHORT nLastPaper;
    SHORT nLastOrient;
    BYTE bNewPaper;
    BYTE bJobFlags;
    PTR32 pCmdBuf;
    BYTE bOutputMode;
    BYTE reserved257;
    WORD wHPGLFlags;
    BYTE reserved260[76];
    WORD wCurPattern;
    BYTE reserved338[6];
    DWORD nPagesPerSheet;
    INT nScaleX;
    INT nScaleY;
    DWORD bKeepOrient;
    INT Layout[6]; /* cxPaper .. cyMargin in the sheet's orientation */
    INT cxSubPage;
    INT cySubPage;
    INT xSubPage;
    INT ySubPage;
    INT SubPageOrg[16][2];
    INT nLayoutOrient;
    INT nLayoutPaper;
    BYTE reserved536[SPLDEVINFO_SIZE - 536];
} SPLDEVINFO;

/* ---- Device mode --------------------------------------------------------------------- */

typedef struct DDICOLORCORRECT {
    BYTE bType;       /* 0..7 */
    BYTE bRendAlg;    /* 0..4 */
    BYTE bLightness;  /* value + 100 */
    BYTE bSaturation; /* value + 100 */
    BYTE reserved[6];
} DDICOLORCORRECT;

#define DDIDEVMODE_SIZE 404
#define DEVMODEW_SIZE 220
#define DDIDEVMODE_EXTRA (DDIDEVMODE_SIZE - DEVMODEW_SIZE)

/* bCfgFlags */
enum { CFGF_BINARY = 0x02 };

typedef struct DDIDEVMODE {
    /* DEVMODEW, bytes 0..219 */
    WCHAR dmDeviceName[32];
    WORD dmSpecVersion;
    WORD dmDriverVersion;
    WORD dmSize;
    WORD dmDriverExtra;
    DWORD dmFields;
    SHORT dmOrientation;
    SHORT dmPaperSize;
    SHORT dmPaperLength; /* tenths of a millimetre */
    SHORT dmPaperWidth;
    SHORT dmScale;
    SHORT dmCopies;
    SHORT dmDefaultSource;
    SHORT dmPrintQuality;
    SHORT dmColor;
    SHORT dmDuplex;
    SHORT dmYResolution;
    SHORT dmTTOption;
    SHORT dmCollate;
    WCHAR dmFormName[32];
    WORD dmLogPixels;
    DWORD dmBitsPerPel;
    DWORD dmPelsWidth;
    DWORD dmPelsHeight;
    DWORD dmDisplayFlags;
    DWORD dmDisplayFrequency;
    DWORD dmICMMethod;
    DWORD dmICMIntent;
    DWORD dmMediaType;
    DWORD dmDitherType;
    DWORD dmReserved1;
    DWORD dmReserved2;
    DWORD dmPanningWidth;
    DWORD dmPanningHeight;
    /* private part, bytes 220..403 */
    WORD wRecordSize; /* 404 */
    BYTE reserved222[2];
    HANDLE32 hPrinter;
    DWORD dwHalftonePattern;
    PTR32 pJobInfo; /* the job's SPLDEVINFO */
    CHAR szModelName[32];
    BYTE reserved268[20];
    WORD wSourceIndex;
    WORD wPaperIndex;
    WORD wResIndex;
    WORD wDestIndex;
    WORD wMediaIndex;
    WORD wBookletPaperID;
    BYTE reserved300[4];
    DWORD dwCustDataWord;
    WORD wEmulation;
    BYTE reserved310[2];
    DWORD dwPreset;
    SHORT sGamma;
    DDICOLORCORRECT ColorCorrect[3];
    PTR32 pCustData; /* byte 404 of this copy, or null */
    HGLOBAL hConfig; /* CFGINFO read by the accessors */
    BYTE bFontMapping;
    BYTE bTTDownload;
    BYTE reserved358[2];
    DWORD dwDialogResult;
    BYTE bRotated;
    BYTE bCfgFlags;
    BYTE reserved366[2];
    HGLOBAL hJobName;
    BYTE reserved372;
    BYTE bLayout; /* bits 0-5 pages per sheet, 6 booklet, 7 border */
    BYTE reserved374[2];
    HGLOBAL hCfgCache;
    BYTE bJobStatus;
    BYTE bOutputFlags; /* bits 0-1 output caps, 2 text clipping, 3 reverse landscape */
    WORD wCustWidth;   /* decipoints */
    WORD wCustHeight;
    BYTE reserved386[4];
    WORD wWaterMark;
    BYTE bWMFirstPage;
    BYTE reserved393[3];
    DWORD dwSession;
    BYTE reserved400[4];
} DDIDEVMODE;

/* ---- Compiled configuration ---------------------------------------------------------- */

#define CFGINFO_SIZE 343
#define CFGINFO_VERSION 11

typedef struct CFGINFO {
    HGLOBAL hPDD;
    WORD wVersion;
    BYTE reserved6[8];
    DWORD dwDuplex;
    DWORD dwCollate;
    DWORD dwLanguage;
    DWORD dwLanguageLevel;
    DWORD reserved30;
    DWORD dwColors;
    BYTE bLangID;
    BYTE bMeasUnits;
    INT nDefaultRes;
    HGLOBAL hResKeys;
    DWORD cchResKey;
    HGLOBAL hResNames;
    PTR32 lpResNames;
    DWORD cchResName;
    HGLOBAL hResCmds;
    PTR32 lpResCmds;
    DWORD cchResCmd;
    HGLOBAL hResValues;
    PTR32 lpResValues;
    DWORD nResolutions;
    INT nDefaultPaper;
    HGLOBAL hPaperKeys;
    DWORD cchPaperKey;
    HGLOBAL hPaperNames;
    PTR32 lpPaperNames;
    DWORD cchPaperName;
    HGLOBAL hPaperCmds;
    PTR32 lpPaperCmds;
    DWORD cchPaperCmd;
    HGLOBAL hPaperDims;
    PTR32 lpPaperDims;
    DWORD nPapers;
    HGLOBAL hPaperIDs;
    PTR32 lpPaperIDs;
    INT nDefaultTray;
    HGLOBAL hTrayKeys;
    DWORD cchTrayKey;
    HGLOBAL hTrayNames;
    PTR32 lpTrayNames;
    DWORD cchTrayName;
    HGLOBAL hTrayCmds;
    PTR32 lpTrayCmds;
    DWORD cchTrayCmd;
    DWORD nTrays;
    HGLOBAL hTrayIDs;
    PTR32 lpTrayIDs;
    INT nDefaultDest;
    HGLOBAL hDestKeys;
    DWORD cchDestKey;
    HGLOBAL hDestNames;
    DWORD cchDestName;
    HGLOBAL hDestCmds;
    DWORD cchDestCmd;
    DWORD nDests;
    INT nDefaultMedia;
    HGLOBAL hMediaKeys;
    DWORD cchMediaKey;
    HGLOBAL hMediaNames;
    DWORD cchMediaName;
    HGLOBAL hMediaCmds;
    DWORD cchMediaCmd;
    DWORD nMedia;
    HGLOBAL hPlugIn;
    HGLOBAL hModelName;
    HGLOBAL hFileVersion;
    BYTE reserved268[12];
    DWORD dwCustMinWidth; /* decipoints; 0 = no limit */
    DWORD dwCustMinHeight;
    DWORD dwCustMaxWidth;
    DWORD dwCustMaxHeight;
    DWORD dwCustDefWidth;
    DWORD dwCustDefHeight;
    DWORD dwCustMarginLeft;
    DWORD dwCustMarginTop;
    DWORD dwCustMarginRight;
    DWORD dwCustMarginBottom;
    INT nCustomPaper; /* -1: none */
    BYTE bTextClipping;
    BYTE bLandscapeMinus90;
    HGLOBAL hPortraitCmd;
    DWORD cbPortraitCmd;
    HGLOBAL hLandscapeCmd;
    DWORD cbLandscapeCmd;
    BYTE bFontPitch;
} CFGINFO;

#pragma pack(pop)

/* ---- Ids of DDIGetDWord / DDISetDWord and of the keyword calls ----------------------- */

enum {
    DDI_SESSION = 9,
    DDI_PAPERSIZE = 10,
    DDI_PAPERWIDTH = 11,
    DDI_PAPERHEIGHT = 12,
    DDI_IMAGEWIDTH = 13,
    DDI_IMAGEHEIGHT = 14,
    DDI_IMAGELEFT = 15,
    DDI_IMAGETOP = 16,
    DDI_MEDIATYPE = 17,
    DDI_PAPERSOURCE = 18,
    DDI_PAPERDEST = 19,
    DDI_RESOLUTION = 20,
    DDI_COPIES = 21,
    DDI_PAGEORIENT = 22,
    DDI_HALFTONE = 23,
    DDI_CCTYPE0 = 24,
    DDI_CCTYPE1 = 25,
    DDI_CCTYPE2 = 26,
    DDI_CCRENDALG0 = 28,
    DDI_CCRENDALG1 = 29,
    DDI_CCRENDALG2 = 30,
    DDI_CCLIGHTNESS0 = 31,
    DDI_CCLIGHTNESS1 = 32,
    DDI_CCLIGHTNESS2 = 33,
    DDI_CCSATURATION0 = 34,
    DDI_CCSATURATION1 = 35,
    DDI_CCSATURATION2 = 36,
    DDI_PRESET = 40,
    DDI_CCGAMMA = 41,
    DDI_FONTMAPPING = 42,
    DDI_PAGESPERSHEET = 43,
    DDI_PAGEBORDER = 44,
    DDI_BOOKLETMODE = 45,
    DDI_BOOKLETPAPERID = 46,
    DDI_TTDOWNLOAD = 47,
    DDI_EMULATION = 48,
    DDI_DUPLEX = 49,
    DDI_COLLATE = 50,
    DDI_JOBSTATUS = 51,
    DDI_OUTPUTCAPS = 52,
    DDI_ICMMODE = 53,
    DDI_ICMINTENT = 54,
    DDI_CURRENTPAGE = 55,
    DDI_CUSTOMPAPER = 56,
    DDI_CUSTMINWIDTH = 57,
    DDI_CUSTMINHEIGHT = 58,
    DDI_CUSTMAXWIDTH = 59,
    DDI_CUSTMAXHEIGHT = 60,
    DDI_CUSTDEFWIDTH = 61,
    DDI_CUSTDEFHEIGHT = 62,
    DDI_CUSTMARGINLEFT = 63,
    DDI_CUSTMARGINTOP = 64,
    DDI_CUSTMARGINRIGHT = 65,
    DDI_CUSTMARGINBOTTOM = 66,
    DDI_CUSTWIDTH = 67,
    DDI_CUSTHEIGHT = 68,
    DDI_LANGVERSION = 69,
    DDI_MEASUNITS = 70,
    DDI_TEXTCLIPPING = 71,
    DDI_PRINTERHANDLE = 72,
    DDI_WMFIRSTPAGE = 73,
    DDI_WATERMARK = 74,
    DDI_TTCOUNT = 75,
};

/* Ids of DDIGetString / DDISetString */
enum {
    DDI_STR_NONE0 = 0,
    DDI_STR_DEVICENAME = 1,
    DDI_STR_PLUGIN = 2,
    DDI_STR_CFGMODEL = 3,
    DDI_STR_MODEL = 4,
    DDI_STR_JOBNAME = 5,
    DDI_STR_PORT = 6,
    DDI_STR_NONE7 = 7,
    DDI_STR_VERSION = 8,
    DDI_STR_FONTSUBST = 75,
};

#ifdef __cplusplus
} /* extern "C" */

#include <cstddef>

#define Q417_FIELD_AT(rec, field, off) static_assert(offsetof(rec, field) == (off), #rec "." #field)

static_assert(sizeof(SPLJOB) == 24);
Q417_FIELD_AT(SPLJOB, hPrinter, 4);
Q417_FIELD_AT(SPLJOB, hDevInfo, 8);
Q417_FIELD_AT(SPLJOB, JobId, 12);
Q417_FIELD_AT(SPLJOB, dwState, 16);

static_assert(sizeof(SPLDEVINFO) == 3748);
Q417_FIELD_AT(SPLDEVINFO, pDevMode, 4);
Q417_FIELD_AT(SPLDEVINFO, hPrinter, 12);
Q417_FIELD_AT(SPLDEVINFO, cxPaper, 28);
Q417_FIELD_AT(SPLDEVINFO, cyPaper, 32);
Q417_FIELD_AT(SPLDEVINFO, cxPrintable, 36);
Q417_FIELD_AT(SPLDEVINFO, cyPrintable, 40);
Q417_FIELD_AT(SPLDEVINFO, cxMargin, 44);
Q417_FIELD_AT(SPLDEVINFO, cyMargin, 48);
Q417_FIELD_AT(SPLDEVINFO, dwDevFlags, 188);
Q417_FIELD_AT(SPLDEVINFO, nPage, 196);
Q417_FIELD_AT(SPLDEVINFO, nSubPage, 200);
Q417_FIELD_AT(SPLDEVINFO, nLastTray, 244);
Q417_FIELD_AT(SPLDEVINFO, nLastPaper, 246);
Q417_FIELD_AT(SPLDEVINFO, nLastOrient, 248);
Q417_FIELD_AT(SPLDEVINFO, bNewPaper, 250);
Q417_FIELD_AT(SPLDEVINFO, bJobFlags, 251);
Q417_FIELD_AT(SPLDEVINFO, pCmdBuf, 252);
Q417_FIELD_AT(SPLDEVINFO, bOutputMode, 256);
Q417_FIELD_AT(SPLDEVINFO, wHPGLFlags, 258);
Q417_FIELD_AT(SPLDEVINFO, wCurPattern, 336);
Q417_FIELD_AT(SPLDEVINFO, nPagesPerSheet, 344);
Q417_FIELD_AT(SPLDEVINFO, nScaleX, 348);
Q417_FIELD_AT(SPLDEVINFO, nScaleY, 352);
Q417_FIELD_AT(SPLDEVINFO, bKeepOrient, 356);
Q417_FIELD_AT(SPLDEVINFO, Layout, 360);
Q417_FIELD_AT(SPLDEVINFO, cxSubPage, 384);
Q417_FIELD_AT(SPLDEVINFO, cySubPage, 388);
Q417_FIELD_AT(SPLDEVINFO, xSubPage, 392);
Q417_FIELD_AT(SPLDEVINFO, ySubPage, 396);
Q417_FIELD_AT(SPLDEVINFO, SubPageOrg, 400);
Q417_FIELD_AT(SPLDEVINFO, nLayoutOrient, 528);
Q417_FIELD_AT(SPLDEVINFO, nLayoutPaper, 532);

static_assert(sizeof(DDICOLORCORRECT) == 10);
Q417_FIELD_AT(DDICOLORCORRECT, bRendAlg, 1);
Q417_FIELD_AT(DDICOLORCORRECT, bLightness, 2);
Q417_FIELD_AT(DDICOLORCORRECT, bSaturation, 3);

static_assert(sizeof(DDIDEVMODE) == 404);
Q417_FIELD_AT(DDIDEVMODE, dmDeviceName, 0);
Q417_FIELD_AT(DDIDEVMODE, dmSize, 68);
Q417_FIELD_AT(DDIDEVMODE, dmDriverExtra, 70);
Q417_FIELD_AT(DDIDEVMODE, dmOrientation, 76);
Q417_FIELD_AT(DDIDEVMODE, dmPaperSize, 78);
Q417_FIELD_AT(DDIDEVMODE, dmPaperLength, 80);
Q417_FIELD_AT(DDIDEVMODE, dmPaperWidth, 82);
Q417_FIELD_AT(DDIDEVMODE, dmCopies, 86);
Q417_FIELD_AT(DDIDEVMODE, dmDefaultSource, 88);
Q417_FIELD_AT(DDIDEVMODE, dmPrintQuality, 90);
Q417_FIELD_AT(DDIDEVMODE, dmDuplex, 94);
Q417_FIELD_AT(DDIDEVMODE, dmYResolution, 96);
Q417_FIELD_AT(DDIDEVMODE, dmCollate, 100);
Q417_FIELD_AT(DDIDEVMODE, wRecordSize, 220);
Q417_FIELD_AT(DDIDEVMODE, hPrinter, 224);
Q417_FIELD_AT(DDIDEVMODE, dwHalftonePattern, 228);
Q417_FIELD_AT(DDIDEVMODE, pJobInfo, 232);
Q417_FIELD_AT(DDIDEVMODE, szModelName, 236);
Q417_FIELD_AT(DDIDEVMODE, wSourceIndex, 288);
Q417_FIELD_AT(DDIDEVMODE, wPaperIndex, 290);
Q417_FIELD_AT(DDIDEVMODE, wResIndex, 292);
Q417_FIELD_AT(DDIDEVMODE, wDestIndex, 294);
Q417_FIELD_AT(DDIDEVMODE, wMediaIndex, 296);
Q417_FIELD_AT(DDIDEVMODE, wBookletPaperID, 298);
Q417_FIELD_AT(DDIDEVMODE, dwCustDataWord, 304);
Q417_FIELD_AT(DDIDEVMODE, wEmulation, 308);
Q417_FIELD_AT(DDIDEVMODE, dwPreset, 312);
Q417_FIELD_AT(DDIDEVMODE, sGamma, 316);
Q417_FIELD_AT(DDIDEVMODE, ColorCorrect, 318);
Q417_FIELD_AT(DDIDEVMODE, pCustData, 348);
Q417_FIELD_AT(DDIDEVMODE, hConfig, 352);
Q417_FIELD_AT(DDIDEVMODE, bFontMapping, 356);
Q417_FIELD_AT(DDIDEVMODE, bTTDownload, 357);
Q417_FIELD_AT(DDIDEVMODE, dwDialogResult, 360);
Q417_FIELD_AT(DDIDEVMODE, bRotated, 364);
Q417_FIELD_AT(DDIDEVMODE, bCfgFlags, 365);
Q417_FIELD_AT(DDIDEVMODE, hJobName, 368);
Q417_FIELD_AT(DDIDEVMODE, bLayout, 373);
Q417_FIELD_AT(DDIDEVMODE, hCfgCache, 376);
Q417_FIELD_AT(DDIDEVMODE, bJobStatus, 380);
Q417_FIELD_AT(DDIDEVMODE, bOutputFlags, 381);
Q417_FIELD_AT(DDIDEVMODE, wCustWidth, 382);
Q417_FIELD_AT(DDIDEVMODE, wCustHeight, 384);
Q417_FIELD_AT(DDIDEVMODE, wWaterMark, 390);
Q417_FIELD_AT(DDIDEVMODE, bWMFirstPage, 392);
Q417_FIELD_AT(DDIDEVMODE, dwSession, 396);

static_assert(sizeof(CFGINFO) == 343);
Q417_FIELD_AT(CFGINFO, wVersion, 4);
Q417_FIELD_AT(CFGINFO, dwDuplex, 14);
Q417_FIELD_AT(CFGINFO, dwCollate, 18);
Q417_FIELD_AT(CFGINFO, dwLanguage, 22);
Q417_FIELD_AT(CFGINFO, dwLanguageLevel, 26);
Q417_FIELD_AT(CFGINFO, dwColors, 34);
Q417_FIELD_AT(CFGINFO, bLangID, 38);
Q417_FIELD_AT(CFGINFO, bMeasUnits, 39);
Q417_FIELD_AT(CFGINFO, nDefaultRes, 40);
Q417_FIELD_AT(CFGINFO, hResKeys, 44);
Q417_FIELD_AT(CFGINFO, cchResKey, 48);
Q417_FIELD_AT(CFGINFO, hResNames, 52);
Q417_FIELD_AT(CFGINFO, lpResNames, 56);
Q417_FIELD_AT(CFGINFO, cchResName, 60);
Q417_FIELD_AT(CFGINFO, hResCmds, 64);
Q417_FIELD_AT(CFGINFO, lpResCmds, 68);
Q417_FIELD_AT(CFGINFO, cchResCmd, 72);
Q417_FIELD_AT(CFGINFO, hResValues, 76);
Q417_FIELD_AT(CFGINFO, lpResValues, 80);
Q417_FIELD_AT(CFGINFO, nResolutions, 84);
Q417_FIELD_AT(CFGINFO, nDefaultPaper, 88);
Q417_FIELD_AT(CFGINFO, hPaperKeys, 92);
Q417_FIELD_AT(CFGINFO, cchPaperKey, 96);
Q417_FIELD_AT(CFGINFO, hPaperNames, 100);
Q417_FIELD_AT(CFGINFO, lpPaperNames, 104);
Q417_FIELD_AT(CFGINFO, cchPaperName, 108);
Q417_FIELD_AT(CFGINFO, hPaperCmds, 112);
Q417_FIELD_AT(CFGINFO, lpPaperCmds, 116);
Q417_FIELD_AT(CFGINFO, cchPaperCmd, 120);
Q417_FIELD_AT(CFGINFO, hPaperDims, 124);
Q417_FIELD_AT(CFGINFO, lpPaperDims, 128);
Q417_FIELD_AT(CFGINFO, nPapers, 132);
Q417_FIELD_AT(CFGINFO, hPaperIDs, 136);
Q417_FIELD_AT(CFGINFO, lpPaperIDs, 140);
Q417_FIELD_AT(CFGINFO, nDefaultTray, 144);
Q417_FIELD_AT(CFGINFO, hTrayKeys, 148);
Q417_FIELD_AT(CFGINFO, cchTrayKey, 152);
Q417_FIELD_AT(CFGINFO, hTrayNames, 156);
Q417_FIELD_AT(CFGINFO, lpTrayNames, 160);
Q417_FIELD_AT(CFGINFO, cchTrayName, 164);
Q417_FIELD_AT(CFGINFO, hTrayCmds, 168);
Q417_FIELD_AT(CFGINFO, lpTrayCmds, 172);
Q417_FIELD_AT(CFGINFO, cchTrayCmd, 176);
Q417_FIELD_AT(CFGINFO, nTrays, 180);
Q417_FIELD_AT(CFGINFO, hTrayIDs, 184);
Q417_FIELD_AT(CFGINFO, lpTrayIDs, 188);
Q417_FIELD_AT(CFGINFO, nDefaultDest, 192);
Q417_FIELD_AT(CFGINFO, hDestKeys, 196);
Q417_FIELD_AT(CFGINFO, cchDestKey, 200);
Q417_FIELD_AT(CFGINFO, hDestNames, 204);
Q417_FIELD_AT(CFGINFO, cchDestName, 208);
Q417_FIELD_AT(CFGINFO, hDestCmds, 212);
Q417_FIELD_AT(CFGINFO, cchDestCmd, 216);
Q417_FIELD_AT(CFGINFO, nDests, 220);
Q417_FIELD_AT(CFGINFO, nDefaultMedia, 224);
Q417_FIELD_AT(CFGINFO, hMediaKeys, 228);
Q417_FIELD_AT(CFGINFO, cchMediaKey, 232);
Q417_FIELD_AT(CFGINFO, hMediaNames, 236);
Q417_FIELD_AT(CFGINFO, cchMediaName, 240);
Q417_FIELD_AT(CFGINFO, hMediaCmds, 244);
Q417_FIELD_AT(CFGINFO, cchMediaCmd, 248);
Q417_FIELD_AT(CFGINFO, nMedia, 252);
Q417_FIELD_AT(CFGINFO, hPlugIn, 256);
Q417_FIELD_AT(CFGINFO, hModelName, 260);
Q417_FIELD_AT(CFGINFO, hFileVersion, 264);
Q417_FIELD_AT(CFGINFO, dwCustMinWidth, 280);
Q417_FIELD_AT(CFGINFO, dwCustMinHeight, 284);
Q417_FIELD_AT(CFGINFO, dwCustMaxWidth, 288);
Q417_FIELD_AT(CFGINFO, dwCustMaxHeight, 292);
Q417_FIELD_AT(CFGINFO, dwCustDefWidth, 296);
Q417_FIELD_AT(CFGINFO, dwCustDefHeight, 300);
Q417_FIELD_AT(CFGINFO, dwCustMarginLeft, 304);
Q417_FIELD_AT(CFGINFO, dwCustMarginTop, 308);
Q417_FIELD_AT(CFGINFO, dwCustMarginRight, 312);
Q417_FIELD_AT(CFGINFO, dwCustMarginBottom, 316);
Q417_FIELD_AT(CFGINFO, nCustomPaper, 320);
Q417_FIELD_AT(CFGINFO, bTextClipping, 324);
Q417_FIELD_AT(CFGINFO, bLandscapeMinus90, 325);
Q417_FIELD_AT(CFGINFO, hPortraitCmd, 326);
Q417_FIELD_AT(CFGINFO, cbPortraitCmd, 330);
Q417_FIELD_AT(CFGINFO, hLandscapeCmd, 334);
Q417_FIELD_AT(CFGINFO, cbLandscapeCmd, 338);
Q417_FIELD_AT(CFGINFO, bFontPitch, 342);

#undef Q417_FIELD_AT
#endif /* __cplusplus */

#endif
