// Printer description parser: the pieces shared between its files, reachable by the tests.
#pragma once

#include "pdd/pdd.h"

// ---- Line reader (one reader per process) -------------------------------------------------

constexpr int PDD_BLOCK = 512;   // bytes read from the file at a time
constexpr int PDD_MAXLINE = 128; // text bytes of a line; the buffer needs 3 more

int _lgets(char *pszLine, int cchMax, HFILE hFile);
void _end_lgets();
LONG RestoreFilePos(HFILE hFile);
// True when the last _lgets dropped one byte of an unlike CR LF or LF CR pair and delivered
// the other as an empty line.
bool _lgets_pairsplit();

// ---- Key table and tokenizer ---------------------------------------------------------------

typedef int (*PDDHANDLER)(PDDINFO *pPDD, char *pszKey);

struct PDDKEY {
    const char *pszKey;
    PDDHANDLER pfnHandler;
};

constexpr int PDD_NKEYS = 30;
extern const PDDKEY PDDKeyTable[PDD_NKEYS];
extern const char Lindgate_Tag[];

int ValidPDD(const char *pszLine);
const PDDKEY *InterestingKey(const char *pszKey);
int KeyCompare(const void *pKey, const void *pRow);
void FreeItemList(PDDITEM *pHead);

// The running tokenizer: one position for the whole line, as strtok keeps it.
void PDDTokStart(char *psz);
char *PDDTok(const char *pszDelims);
char *PDDReadC(); // an option, up to the colon
char *PDDReadW(); // a word
char *PDDReadQ(); // the text up to the next double quote
bool PDDReadq();  // moves into a quoted text; the token is dropped

// Diagnostics: a no-op unless a hook is set. Names the file, line and key of the line at hand.
void PDDDiag(const char *pszReason);
// A handler's refusal: reports it and gives the handler's result for a refused line.
int PDDRefuse(const char *pszReason);
// A paper that PDD_CalcPapers can't complete, named by its key.
void PDDDiagPaper(const PDDINFO *pPDD, const PDDPAPER *pPaper, const char *pszReason);

// Files being parsed: how many, and the name of the i-th, outermost first.
int PDDFileDepth();
LPCWSTR PDDOpenFile(int i);
// Called by "Include:" when the reader has been to another file and comes back to this one.
void PDDReturnedFromInclude();

// ---- Handlers ------------------------------------------------------------------------------

int CollateDevice(PDDINFO *pPDD, char *pszKey);
int Colors(PDDINFO *pPDD, char *pszKey);
int CustomPageMargins(PDDINFO *pPDD, char *pszKey);
int CustomPageSize(PDDINFO *pPDD, char *pszKey);
int DefaultCustomPageSize(PDDINFO *pPDD, char *pszKey);
int DefaultFontPitch(PDDINFO *pPDD, char *pszKey);
int DefaultInputSlot(PDDINFO *pPDD, char *pszKey);
int DefaultMediaType(PDDINFO *pPDD, char *pszKey);
int DefaultOutputBin(PDDINFO *pPDD, char *pszKey);
int DefaultPageSize(PDDINFO *pPDD, char *pszKey);
int DefaultResolution(PDDINFO *pPDD, char *pszKey);
int DuplexDevice(PDDINFO *pPDD, char *pszKey);
int EnableTextClipping(PDDINFO *pPDD, char *pszKey);
int FileVersion(PDDINFO *pPDD, char *pszKey);
int ImageableArea(PDDINFO *pPDD, char *pszKey);
int Include(PDDINFO *pPDD, char *pszKey);
int InputSlot(PDDINFO *pPDD, char *pszKey);
int LandscapeOrientation(PDDINFO *pPDD, char *pszKey);
int LanguageLevel(PDDINFO *pPDD, char *pszKey);
int LanguageVersion(PDDINFO *pPDD, char *pszKey);
int MediaType(PDDINFO *pPDD, char *pszKey);
int Orientation(PDDINFO *pPDD, char *pszKey);
int OutputBin(PDDINFO *pPDD, char *pszKey);
int PageSize(PDDINFO *pPDD, char *pszKey);
int PaperDimension(PDDINFO *pPDD, char *pszKey);
int PlugIn(PDDINFO *pPDD, char *pszKey);
int PrinterLanguage(PDDINFO *pPDD, char *pszKey);
int Product(PDDINFO *pPDD, char *pszKey);
int Resolution(PDDINFO *pPDD, char *pszKey);
int SetResolution(PDDINFO *pPDD, char *pszKey);

struct LANGVERS {
    const char *pszName;
    BYTE bMeasUnits;
    BYTE bLangID;
};
constexpr int PDD_NLANGS = 13;
extern const LANGVERS LangTable[PDD_NLANGS];
const LANGVERS *FindLangVers(const char *pszName);

int convertlf(PDDTEXT *pText);
void CalcCustomImageableArea(PDDINFO *pPDD, PDDPAPER *pPaper);

// Deepest chain of "Include:" lines followed; a deeper one is skipped.
constexpr int PDD_MAXINCLUDE = 8;

// Values as the file writes them: sizes in points to tenths of a point, whole numbers.
int32_t PDDSize(const char *psz);
int32_t PDDAtoi(const char *psz);
int PDDStrICmp(const char *a, const char *b);

// ---- Entry parsing -------------------------------------------------------------------------

char *TransString(char *pszOption);
char *OrientString(char *pszOption);
PDDPAPER *GetPaperEntry(PDDINFO *pPDD, char *pszOption, int *pOrient);
PDDITEM *GetListEntry(char *pszOption, PDDITEM **ppHead, DWORD *pnCount);
PDDRESOLUTION *GetResolutionEntry(PDDINFO *pPDD, char *pszOption);
// Forgets the name indexes of the lists; called whenever lists are freed and when a parse ends.
void PDDDropIndexes();
int txtcpy(PDDTEXT *pText, const char *pszSrc);
int txtcmp(const PDDTEXT *pText, const char *pszName);
int trimcrlf(char *psz);
