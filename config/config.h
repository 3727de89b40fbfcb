// Compiled configuration: the process-wide cache and its lookups for the job side, the copy of
// a CFGINFO, the binary configuration file and the builder from a parsed description.
#pragma once

#include "platform/win32.h"
#include "q417/records.h"

extern HGLOBAL hCfg; // CFGINFO copy that outlives jobs; 0 when nothing is cached
extern WCHAR
    DataBuf[400]; // 800 bytes: path of the printer's data file, shared with the plug-in bridge

// ---- Cache and the job side's lookups ----
int RetrieveDeviceInfo(DDIDEVMODE *pdm);
void DiscardDeviceInfo(DDIDEVMODE *pdm);
int GetPaperSelect(DDIDEVMODE *pdm, int row);
int GetTraySelect(DDIDEVMODE *pdm, int row);
// Copies at most 40 bytes of the description's version text; dst must hold 41 bytes, the
// last of which is always a terminator. Returns 40 when a text exists, else 0.
int GetPDDVersionString(DDIDEVMODE *pdm, char *dst);
// Copies the PJL text of the current orientation and terminates it. dst holds
// kOrientTextCap bytes; a longer text is cut there. Returns the bytes copied, else 0.
constexpr int kOrientTextCap = 1024;
int GetPJLOrientString(DDIDEVMODE *pdm, char *dst);

// ---- The long-lived copy ----
// Row widths of a copy, in wide characters.
constexpr DWORD kCopyRow = 24;
constexpr DWORD kCopyPaperRow = 64;
int CFGCopyInfo(DDIDEVMODE *pdm, void *pDst);
HGLOBAL ResizeCopyHandle(HGLOBAL hSrc, DWORD cbSrcRow, DWORD cbDstRow, DWORD nRows);
HGLOBAL CopyHandleToHandle(HGLOBAL hSrc, DWORD cb);
HGLOBAL StrnCopyHandleToHandle(HGLOBAL hSrc, DWORD cb);
int CopyPaperDimensions(CFGINFO *pDst, const CFGINFO *pSrc);
// Frees every block a record owns (the 21 tables, the file version and both orientation
// commands) and zeroes their handles. Counts and widths stay.
void FreeCfgTables(CFGINFO *pCfg);

// ---- Binary configuration file ----
constexpr int kCfgPathCap = 260;
enum { CFGNAME_BINARY = 1, CFGNAME_PRINTER = 2 };
int DDIReadCfgFile(DDIDEVMODE *pdm, const WCHAR *pszPDD);
int DDIReadPDDFile(HGLOBAL hCfgBlock, CFGINFO *pCfg, const WCHAR *pszPDD);
int ReadCfgBinary(CFGINFO *pCfg, const char *pszPath);
int WriteCfgBinary(CFGINFO *pCfg, const char *pszPath);
int CfgBinaryCurrent(const char *pszPDD, const char *pszBinary);
int MakeCfgBinaryName(const char *pszSrc, char *pszDst, int cchCap, int kind);

// ---- Builder from a parsed description ----
struct PDDINFO;
int PDD_GetConfig(HGLOBAL hCfgBlock);
int BuildResolutionInfo(PDDINFO *pPDD, CFGINFO *pCfg);
int BuildPaperInfo(PDDINFO *pPDD, CFGINFO *pCfg);
int BuildTrayInfo(PDDINFO *pPDD, CFGINFO *pCfg);
int BuildDstBinInfo(PDDINFO *pPDD, CFGINFO *pCfg);
int BuildMediaTypeInfo(PDDINFO *pPDD, CFGINFO *pCfg);
int GetModelName(PDDINFO *pPDD, CFGINFO *pCfg);
int GetFileVersion(PDDINFO *pPDD, CFGINFO *pCfg);
int GetPlugInName(PDDINFO *pPDD, CFGINFO *pCfg);
void CopyCustPaperInfo(CFGINFO *pCfg, const PDDINFO *pPDD);
void CopyOrientCmdInfo(CFGINFO *pCfg, PDDINFO *pPDD);
