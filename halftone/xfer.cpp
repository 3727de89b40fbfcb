// Colour transfer tables: how much each value of red, green and blue adds to a gray level.
// They start from luminance weights; a file beside the printer description may replace them.
#include "halftone/halftone.h"

#include "ddi/ddi.h"

BYTE *RedXfer = nullptr;
BYTE *GrnXfer = nullptr;
BYTE *BluXfer = nullptr;

namespace {

// The transfer file: red, green and blue tables of 256 bytes, one after the other, no header.
// Its name is the PDD's with "xfr" for the last three characters.
constexpr WCHAR kXferSuffix[] = u"xfr";
constexpr int kSuffixLength = 3;
constexpr int kNameChars = 520;

constexpr double kRedWeight = 0.3001;
constexpr double kGreenWeight = 0.59001;
constexpr double kBlueWeight = 0.11;

BYTE *const *const kTables[] = {&RedXfer, &GrnXfer, &BluXfer};

void FreeTable(BYTE *&table) {
    if (!table) return;
    HGLOBAL h = GlobalHandle(table);
    GlobalUnlock(h);
    GlobalFree(h);
    table = nullptr;
}

BYTE *NewTable() {
    HGLOBAL h = GlobalAlloc(GHND, kXferEntries);
    if (!h) return nullptr;
    auto *p = static_cast<BYTE *>(GlobalLock(h));
    if (!p) GlobalFree(h);
    return p;
}

} // namespace

void FreeXfers() {
    FreeTable(RedXfer);
    FreeTable(GrnXfer);
    FreeTable(BluXfer);
}

int AllocXfers() {
    FreeXfers();
    RedXfer = NewTable();
    GrnXfer = NewTable();
    BluXfer = NewTable();
    if (!RedXfer || !GrnXfer || !BluXfer) {
        FreeXfers(); // all three or none
        return 0;
    }
    return 1;
}

int DefaultXfers() {
    if (!AllocXfers()) return 0;
    for (int i = 0; i < kXferEntries; ++i) {
        RedXfer[i] = static_cast<BYTE>(i * kRedWeight + 0.5);
        GrnXfer[i] = static_cast<BYTE>(i * kGreenWeight + 0.5);
        BluXfer[i] = static_cast<BYTE>(i * kBlueWeight + 0.5);
    }
    return 1;
}

int MakeXferTableName(WCHAR *pName) {
    if (!pName) return 0;
    const int len = lstrlenW(pName);
    if (len < kSuffixLength) {
        pName[0] = 0; // no extension to replace: no file can be named, the defaults stand
        return 1;
    }
    lstrcpyW(pName + len - kSuffixLength, kXferSuffix);
    return 1;
}

int ReadXferFile(const WCHAR *pFileName) {
    if (!DefaultXfers()) return 0;
    HANDLE hFile = CreateFileW(pFileName, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                               FILE_ATTRIBUTE_NORMAL, 0);
    if (hFile == INVALID_HANDLE_VALUE) return 0;
    int result = 1;
    // A short file fills what it holds; the rest keeps the defaults.
    for (BYTE *const *table : kTables) {
        DWORD cbRead = 0;
        if (!ReadFile(hFile, *table, kXferEntries, &cbRead, nullptr)) {
            result = 0;
            break;
        }
    }
    CloseHandle(hFile);
    return result;
}

int ReadXferTable(HANDLE32 hPrinter) {
    WCHAR name[kNameChars] = {};
    if (!GetPrinterDriverDataFile(hPrinter, name)) {
        // Gray watermarks index the tables without a test: a job always has them.
        DefaultXfers();
        return 0;
    }
    name[kNameChars - 1] = 0;
    MakeXferTableName(name);
    return ReadXferFile(name);
}
