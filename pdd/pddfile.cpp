// PDD file: the record's life, the key table and the loop that sends each key line to its
// handler. A description is text written by hand, so nothing in a line can stop the parse: a
// line that isn't understood is skipped, and only the diagnostics hook hears of it.
#include "pdd/pddint.h"

#include <cstdlib>
#include <cstring>
#include <string>

const char Lindgate_Tag[] = "*PDD-Lindgate:";

// Sorted by the keys' bytes: InterestingKey searches it by halves.
const PDDKEY PDDKeyTable[PDD_NKEYS] = {
    {"Collate:", CollateDevice},
    {"ColorDevice:", Colors},
    {"CustomPageMargins:", CustomPageMargins},
    {"CustomPageSize", CustomPageSize},
    {"DefaultCustomPageSize:", DefaultCustomPageSize},
    {"DefaultFontPitch:", DefaultFontPitch},
    {"DefaultInputSlot:", DefaultInputSlot},
    {"DefaultMediaType:", DefaultMediaType},
    {"DefaultOutputBin:", DefaultOutputBin},
    {"DefaultPageSize:", DefaultPageSize},
    {"DefaultResolution:", DefaultResolution},
    {"DuplexDevice:", DuplexDevice},
    {"EnableTextClipping:", EnableTextClipping},
    {"FileVersion:", FileVersion},
    {"ImageableArea", ImageableArea},
    {"Include:", Include},
    {"InputSlot", InputSlot},
    {"LandscapeOrientation:", LandscapeOrientation},
    {"LanguageLevel:", LanguageLevel},
    {"LanguageVersion:", LanguageVersion},
    {"MediaType", MediaType},
    {"Orientation", Orientation},
    {"OutputBin", OutputBin},
    {"PageSize", PageSize},
    {"PaperDimension", PaperDimension},
    {"PlugIn:", PlugIn},
    {"PrinterLanguage:", PrinterLanguage},
    {"Product:", Product},
    {"Resolution", Resolution},
    {"SetResolution", SetResolution},
};

namespace {

// The tokenizer's one position, shared by all reads of a line.
char *g_tokpos = nullptr;

// Diagnostics: the hook and what the line at hand is.
PDD_DIAGNOSTIC_HOOK g_diagFn = nullptr;
void *g_diagCtx = nullptr;
const PDDINFO *g_curPDD = nullptr;
const char *g_curKey = nullptr;
// Lines of the current file that the reader delivered but the file doesn't hold: the empty
// line that the return from an included file gives in a file with CR LF line ends.
DWORD g_phantoms = 0;
bool g_returned = false;

// Names of the files being parsed, outermost first; a name is valid while its parse runs.
LPCWSTR g_files[PDD_MAXINCLUDE + 1];
int g_nFiles = 0;

std::string Utf8(LPCWSTR psz) {
    std::string out;
    for (; psz && *psz; ++psz) {
        char32_t c = *psz;
        if (c >= 0xD800 && c <= 0xDBFF && psz[1] >= 0xDC00 && psz[1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (psz[1] - 0xDC00);
            ++psz;
        }
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (c >> 18));
            out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

struct RecordLock {
    HGLOBAL h;
    PDDINFO *p;
    explicit RecordLock(HGLOBAL hMem) : h(hMem), p(static_cast<PDDINFO *>(GlobalLock(hMem))) {}
    ~RecordLock() {
        if (p) GlobalUnlock(h);
    }
    RecordLock(const RecordLock &) = delete;
    RecordLock &operator=(const RecordLock &) = delete;
};

// One file of a parse: its place on the stack of files and the diagnostics context of the
// file that named it, both given back when the file is done.
struct FileScope {
    const PDDINFO *savedPDD = g_curPDD;
    const char *savedKey = g_curKey;
    DWORD savedPhantoms = g_phantoms;
    FileScope(LPCWSTR pszName, const PDDINFO *pPDD) {
        g_phantoms = 0;
        g_returned = false;
        if (g_nFiles <= PDD_MAXINCLUDE) g_files[g_nFiles] = pszName;
        ++g_nFiles;
        g_curPDD = pPDD;
        g_curKey = nullptr;
    }
    ~FileScope() {
        --g_nFiles;
        g_curPDD = savedPDD;
        g_curKey = savedKey;
        g_phantoms = savedPhantoms;
        g_returned = false;
    }
    FileScope(const FileScope &) = delete;
    FileScope &operator=(const FileScope &) = delete;
};

template <class T>
void FreeEntries(T *p) {
    while (p) {
        T *pNext = p->pNext;
        HGLOBAL h = GlobalHandle(p);
        GlobalUnlock(h);
        GlobalFree(h);
        p = pNext;
    }
}

void FreeAllLists(PDDINFO *pPDD) {
    PDDDropIndexes();
    FreeEntries(pPDD->pPaperList);
    FreeEntries(pPDD->pTrayList);
    FreeEntries(pPDD->pResList);
    FreeItemList(pPDD->pDestList);
    FreeItemList(pPDD->pMediaList);
}

// Reads a line into a buffer of PDD_MAXLINE + 3 bytes. The buffer is cleared first, so a
// piece that the reader leaves without terminator (a cut line, a last line) ends in one.
int ReadLine(char *pszLine, HFILE fh) {
    std::memset(pszLine, 0, PDD_MAXLINE + 3);
    return _lgets(pszLine, PDD_MAXLINE, fh);
}

bool EqualsIgnoringCase(const char *a, const char *b) {
    return PDDStrICmp(a, b) == 0;
}

// Why a key token matches no row, for the diagnostics.
const char *WhyUnknown(const char *pszKey) {
    size_t n = std::strlen(pszKey);
    for (const PDDKEY &row : PDDKeyTable) {
        if (EqualsIgnoringCase(row.pszKey, pszKey)) return "known key in the wrong case";
        size_t m = std::strlen(row.pszKey);
        bool rowColon = m > 0 && row.pszKey[m - 1] == ':';
        bool keyColon = n > 0 && pszKey[n - 1] == ':';
        if (rowColon && !keyColon && m == n + 1 && std::strncmp(row.pszKey, pszKey, n) == 0)
            return "colon missing, or a blank before it";
        if (!rowColon && keyColon && n == m + 1 && std::strncmp(row.pszKey, pszKey, m) == 0)
            return "this key takes an option: no colon behind the key";
    }
    return "unknown key";
}

void ParseLine(PDDINFO *pPDD, char *pszLine, int cb) {
    g_curKey = nullptr;
    if (cb == PDD_MAXLINE && !(pszLine[cb - 2] == '\r' && pszLine[cb - 1] == '\n'))
        PDDDiag("line longer than 128 bytes: the rest is lost or read as a further line");
    if (pszLine[0] != '*') {
        const char *p = pszLine + std::strspn(pszLine, "\t ");
        if (p != pszLine && *p == '*') PDDDiag("blank before the asterisk: read as a comment");
        return;
    }
    if (pszLine[1] == '%' || pszLine[1] == '\r' || pszLine[1] == '\n') return;
    PDDTokStart(pszLine + 1);
    char *pszKey = PDDTok("\t \r\n");
    if (!pszKey) {
        PDDDiag("no key behind the asterisk");
        return;
    }
    g_curKey = pszKey;
    const PDDKEY *pRow = InterestingKey(pszKey);
    if (!pRow) {
        PDDDiag(WhyUnknown(pszKey));
        return;
    }
    pRow->pfnHandler(pPDD, pszKey); // a refused line never stops the parse
}

} // namespace

// ---- Tokenizer ------------------------------------------------------------------------------

void PDDTokStart(char *psz) {
    g_tokpos = psz;
}

char *PDDTok(const char *pszDelims) {
    char *p = g_tokpos;
    if (!p) return nullptr;
    p += std::strspn(p, pszDelims);
    if (*p == 0) {
        g_tokpos = p;
        return nullptr;
    }
    char *pszToken = p;
    p += std::strcspn(p, pszDelims);
    if (*p != 0) *p++ = 0;
    g_tokpos = p;
    return pszToken;
}

char *PDDReadC() {
    return PDDTok(":");
}
char *PDDReadW() {
    return PDDTok("\t \n\r");
}
char *PDDReadQ() {
    return PDDTok("\"");
}
bool PDDReadq() {
    return PDDTok("\"") != nullptr;
}

// ---- Diagnostics ----------------------------------------------------------------------------

void PDD_SetDiagnosticHook(PDD_DIAGNOSTIC_HOOK fn, void *ctx) {
    g_diagFn = fn;
    g_diagCtx = ctx;
}

void PDDDiag(const char *pszReason) {
    if (!g_diagFn) return;
    std::string file = g_curPDD ? Utf8(g_curPDD->pszFileName) : std::string();
    int line = g_curPDD ? static_cast<int>(g_curPDD->dwLineNumber - g_phantoms) : 0;
    g_diagFn(g_diagCtx, file.c_str(), line, g_curKey ? g_curKey : "", pszReason);
}

int PDDRefuse(const char *pszReason) {
    PDDDiag(pszReason);
    return 1;
}

void PDDDiagPaper(const PDDINFO *pPDD, const PDDPAPER *pPaper, const char *pszReason) {
    if (!g_diagFn) return;
    char name[sizeof pPaper->Key.achText + 1] = {};
    std::memcpy(name, pPaper->Key.achText, sizeof pPaper->Key.achText);
    std::string file = Utf8(pPDD->pszFileName);
    g_diagFn(g_diagCtx, file.c_str(), 0, name, pszReason);
}

// ---- Include bookkeeping ------------------------------------------------------------------

int PDDFileDepth() {
    return g_nFiles;
}

void PDDReturnedFromInclude() {
    g_returned = true;
}

LPCWSTR PDDOpenFile(int i) {
    return i >= 0 && i < g_nFiles && i <= PDD_MAXINCLUDE ? g_files[i] : nullptr;
}

// ---- Key lookup -----------------------------------------------------------------------------

int ValidPDD(const char *pszLine) {
    return std::strncmp(pszLine, Lindgate_Tag, sizeof Lindgate_Tag - 1) == 0 ? 1 : 0;
}

int KeyCompare(const void *pKey, const void *pRow) {
    // strcmp compares bytes as unsigned values.
    return std::strcmp(static_cast<const char *>(pKey), static_cast<const PDDKEY *>(pRow)->pszKey);
}

const PDDKEY *InterestingKey(const char *pszKey) {
    return static_cast<const PDDKEY *>(
        std::bsearch(pszKey, PDDKeyTable, PDD_NKEYS, sizeof(PDDKEY), KeyCompare));
}

// ---- The record -----------------------------------------------------------------------------

HGLOBAL PDD_Startup() {
    HGLOBAL h = GlobalAlloc(GHND, sizeof(PDDINFO));
    if (!h) return 0;
    RecordLock lock(h);
    if (!lock.p) {
        GlobalFree(h);
        return 0;
    }
    lock.p->hSelf = h;
    return h;
}

int PDD_ParseFile(HGLOBAL hPDD, LPCWSTR pszFileName) {
    RecordLock lock(hPDD);
    PDDINFO *pPDD = lock.p;
    if (!pPDD) return PDD_NO_LOCK;
    HANDLE hFile = INVALID_HANDLE_VALUE;
    if (pszFileName)
        hFile = CreateFileW(pszFileName, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                            FILE_ATTRIBUTE_NORMAL, 0);
    if (hFile == INVALID_HANDLE_VALUE) return PDD_NO_FILE;

    // A file named by "Include:" adds to what the files above it stored; only the outermost
    // parse starts the record afresh, and only it finishes the papers.
    bool bOutermost = g_nFiles == 0;
    if (bOutermost) {
        FreeAllLists(pPDD); // entries of an earlier parse into the same record
        std::memset(pPDD, 0, sizeof *pPDD);
        pPDD->hSelf = hPDD;
        pPDD->bLangID = 9;
        pPDD->bMeasUnits = 0;
    }
    pPDD->pszFileName = pszFileName;
    pPDD->dwLineNumber = 0;
    FileScope scope(pszFileName, pPDD);
    // The lists' name indexes serve one parse and its included files only.
    struct DropIndexes {
        bool bOutermost;
        ~DropIndexes() {
            if (bOutermost) PDDDropIndexes();
        }
    } dropIndexes{bOutermost};

    HFILE fh = static_cast<HFILE>(hFile);
    char achLine[PDD_MAXLINE + 3];
    if (ReadLine(achLine, fh) == 0 || !ValidPDD(achLine)) {
        PDDDiag("empty, or the first line lacks the tag \"*PDD-Lindgate:\"");
        _end_lgets();
        CloseHandle(hFile);
        return PDD_NOT_PDD;
    }
    pPDD->dwLineNumber++;
    int cb;
    while ((cb = ReadLine(achLine, fh)) != 0) {
        pPDD->dwLineNumber++;
        if (g_returned) {
            g_returned = false;
            if (cb == 2 && _lgets_pairsplit()) ++g_phantoms;
        }
        ParseLine(pPDD, achLine, cb);
    }
    _end_lgets();
    CloseHandle(hFile);
    if (bOutermost) PDD_CalcPapers(pPDD);
    return PDD_OK;
}

void FreeItemList(PDDITEM *pHead) {
    PDDDropIndexes();
    FreeEntries(pHead);
}

int PDD_FreeLists(HGLOBAL hPDD) {
    PDDINFO *pPDD = static_cast<PDDINFO *>(GlobalLock(hPDD));
    if (!pPDD) return PDD_NO_LOCK;
    FreeAllLists(pPDD);
    GlobalUnlock(hPDD);
    GlobalFree(hPDD);
    return 0;
}

int PDD_Shutdown(HGLOBAL hPDD) {
    _end_lgets();
    PDDDropIndexes();
    // Nothing else frees the record and its lists: a lock that fails once is asked for again.
    if (PDD_FreeLists(hPDD) == PDD_NO_LOCK) PDD_FreeLists(hPDD);
    return 1;
}
