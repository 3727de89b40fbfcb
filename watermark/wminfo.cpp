// Watermark definitions: QMWMARK.INI in the Windows directory, one definition a key of its
// section "Watermarks", twelve comma-separated tokens a value.
#include "watermark/watermark.h"

#include "platform/profile.h"

#include <cstring>

WMINFO WM;
WCHAR WinRoot[400];
WCHAR WinPath[400];

namespace {

const WCHAR kSection[] = u"Watermarks";
constexpr DWORD kKeyStep = 2000; // characters added to the key list at each retry
constexpr DWORD kValueSize = 400;

// Appends src to dst, which holds cap characters, cutting what doesn't fit.
void Append(WCHAR *dst, size_t cap, const WCHAR *src) {
    size_t n = 0;
    while (n < cap && dst[n]) ++n;
    while (*src && n + 1 < cap) dst[n++] = *src++;
    if (n < cap) dst[n] = 0;
}

size_t WLen(const WCHAR *s) {
    size_t n = 0;
    while (s[n]) ++n;
    return n;
}

} // namespace

WCHAR *MakeWinFileName(const WCHAR *pName) {
    if (!pName) return nullptr;
    if (!WinRoot[0]) {
        UINT n = GetWindowsDirectoryW(WinRoot, 400);
        if (n >= 400) WinRoot[0] = 0; // too long to keep: nothing sensible to join
    }
    WinPath[0] = 0;
    Append(WinPath, 400, WinRoot);
    if (pName[0] != u'\\' && pName[0] != u'/') Append(WinPath, 400, u"\\");
    Append(WinPath, 400, pName);
    return WinPath;
}

WMINFO *ParseWaterMarks(WCHAR *pValue) {
    static const WCHAR kComma[] = u",";
    INT *const numbers[] = {&WM.nField1,     &WM.nField2,    &WM.nField3, &WM.nHue,
                            &WM.nSaturation, &WM.nLightness, &WM.nAngle,  &WM.nWeight};
    WCHAR *tok = wcstok(pValue, kComma);
    for (INT *field : numbers) {
        if (!tok) return nullptr;
        *field = _wtoi(tok);
        tok = wcstok(nullptr, kComma);
    }
    if (!tok) return nullptr;
    WM.bItalic = static_cast<BYTE>(_wtoi(tok));
    tok = wcstok(nullptr, kComma);
    if (!tok) return nullptr;
    WM.nHeight = _wtoi(tok);

    // A face or text too long makes the whole definition invalid; nothing is cut.
    WCHAR *face = wcstok(nullptr, kComma);
    if (!face || WLen(face) > 32) return nullptr;
    WCHAR *text = wcstok(nullptr, kComma);
    if (!text || WLen(text) > 50) return nullptr;
    std::memset(WM.szFace, 0, sizeof WM.szFace);
    std::memset(WM.szText, 0, sizeof WM.szText);
    std::memcpy(WM.szFace, face, WLen(face) * sizeof(WCHAR));
    std::memcpy(WM.szText, text, WLen(text) * sizeof(WCHAR));
    return &WM;
}

void ReadKeyEntries(const WCHAR *pKeys, const WCHAR *pFileName, HGLOBAL hList) {
    auto *pList = static_cast<WMLIST *>(GlobalLock(hList));
    if (!pList) return;
    pList->hRecords = GlobalAlloc(GHND, sizeof(WMINFO));
    if (!pList->hRecords) {
        GlobalUnlock(hList);
        return;
    }

    // A line that doesn't parse takes no number: the lines behind it move up. The array
    // doubles when it is full, so a long file is not copied once a line.
    DWORD n = 1;
    SIZE_T nRoom = 1;
    WCHAR value[kValueSize];
    for (const WCHAR *key = pKeys; *key; key += WLen(key) + 1) {
        GetPrivateProfileStringW(kSection, key, u"", value, kValueSize, pFileName);
        WMINFO *pParsed = ParseWaterMarks(value);
        if (!pParsed) continue;
        auto *pRecords = static_cast<WMINFO *>(GlobalLock(pList->hRecords));
        if (!pRecords) break;
        pRecords[n - 1] = *pParsed;
        GlobalUnlock(pList->hRecords);
        ++n;
        if (n <= nRoom) continue;
        HGLOBAL hGrown = GlobalReAlloc(pList->hRecords, 2 * nRoom * sizeof(WMINFO), GHND);
        if (!hGrown) break; // keep what was read: the last record stands in the old block
        pList->hRecords = hGrown;
        nRoom *= 2;
    }
    pList->nCount = n - 1;
    GlobalUnlock(hList);
}

HGLOBAL ReadWaterMarks() {
    HGLOBAL hList = GlobalAlloc(GHND, sizeof(WMLIST));
    if (!hList) return 0;

    const WCHAR *pFileName = MakeWinFileName(u"QMWMARK.INI");
    HANDLE hFile = CreateFileW(pFileName, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                               OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, 0);
    if (hFile == INVALID_HANDLE_VALUE) {
        GlobalFree(hList);
        return 0;
    }

    // The file stays open while it is read, so one parse of it serves all the reads.
    q417::profile::ReadBatch batch;

    // The key names come back as terminated strings closed by an empty one; a list that
    // doesn't fit comes back cut with nSize - 2 characters, so grow and read again.
    DWORD cchKeys = kKeyStep;
    HGLOBAL hKeys = 0;
    WCHAR *pKeys = nullptr;
    for (;;) {
        HGLOBAL hNew = hKeys ? GlobalReAlloc(hKeys, cchKeys * sizeof(WCHAR), GHND)
                             : GlobalAlloc(GHND, cchKeys * sizeof(WCHAR));
        if (!hNew) break;
        hKeys = hNew;
        pKeys = static_cast<WCHAR *>(GlobalLock(hKeys));
        if (!pKeys) break;
        DWORD got = GetPrivateProfileStringW(kSection, nullptr, u"", pKeys, cchKeys, pFileName);
        if (got != cchKeys - 2) break;
        GlobalUnlock(hKeys);
        pKeys = nullptr;
        // At least another 2000 characters, and twice the size once that is more: a list
        // that is long (a key line of a megabyte) takes few reads.
        cchKeys += cchKeys > kKeyStep ? cchKeys : kKeyStep;
    }

    if (pKeys) {
        ReadKeyEntries(pKeys, pFileName, hList);
        GlobalUnlock(hKeys);
    } else {
        // No memory for the key list: no watermark.
        if (hKeys) GlobalFree(hKeys);
        CloseHandle(hFile);
        GlobalFree(hList);
        return 0;
    }
    GlobalFree(hKeys);
    CloseHandle(hFile);
    return hList;
}

int GetWaterMarkInfo(const DDIDEVMODE *pDevMode, WMINFO *pWMInfo) {
    if (!pDevMode || pDevMode->wWaterMark == 0) return 0;
    HGLOBAL hList = ReadWaterMarks();
    if (!hList) return 0;

    int result = 0;
    // The records hang from the list, so a lock that fails once is asked for again before
    // they are given up.
    auto *pList = static_cast<WMLIST *>(GlobalLock(hList));
    if (!pList) pList = static_cast<WMLIST *>(GlobalLock(hList));
    if (pList) {
        if (pDevMode->wWaterMark <= pList->nCount) {
            auto *pRecords = static_cast<WMINFO *>(GlobalLock(pList->hRecords));
            if (pRecords) {
                *pWMInfo = pRecords[pDevMode->wWaterMark - 1];
                GlobalUnlock(pList->hRecords);
                hsl_to_rgb(pWMInfo->nHue, (pWMInfo->nSaturation + 50.0) / 100.0,
                           (pWMInfo->nLightness + 50.0) / 100.0, &pWMInfo->nRed, &pWMInfo->nGreen,
                           &pWMInfo->nBlue);
                result = 1;
            }
        }
        if (pList->hRecords) GlobalFree(pList->hRecords);
        GlobalUnlock(hList);
    }
    GlobalFree(hList);
    return result;
}
