// The watermark font's life in a job: find the TrueType file of the definition's face, weight
// and slant, send it as soft font 32766 with the glyphs of the text, delete it at the end.
#include "watermark/watermark.h"

#include "ddi/ddi.h"
#include "job/job.h"
#include "platform/fonts.h"
#include "stream/stream.h"

namespace {

const WCHAR kFontsKey[] = u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Fonts";
const WCHAR kTrueType[] = u" (TrueType)";
constexpr DWORD kPathChars = 80; // the font file's full name, terminator included
constexpr DWORD kNameChars = 80; // registry value names
constexpr DWORD kDataBytes = 80; // registry value data: a file name of 39 characters

size_t WLen(const WCHAR *s) {
    size_t n = 0;
    while (s[n]) ++n;
    return n;
}

// dst = a + b, within cap characters; false when it doesn't fit.
bool Join(WCHAR *dst, size_t cap, const WCHAR *a, const WCHAR *b, const WCHAR *c = u"") {
    const size_t la = WLen(a), lb = WLen(b), lc = WLen(c);
    if (la + lb + lc + 1 > cap) return false;
    std::copy(a, a + la, dst);
    std::copy(b, b + lb, dst + la);
    std::copy(c, c + lc, dst + la + lb);
    dst[la + lb + lc] = 0;
    return true;
}

// Walks the key's values for a name equal to pSearch, ignoring case; its data is the file.
bool FindValue(HKEY hKey, const WCHAR *pSearch, WCHAR *pFile) {
    WCHAR name[kNameChars];
    WCHAR data[kDataBytes / sizeof(WCHAR)];
    for (DWORD i = 0;; ++i) {
        DWORD cchName = kNameChars, cbData = kDataBytes, type = 0;
        LONG rc = RegEnumValueW(hKey, i, name, &cchName, nullptr, &type,
                                reinterpret_cast<BYTE *>(data), &cbData);
        if (rc != ERROR_SUCCESS && rc != ERROR_MORE_DATA) return false;
        if (rc == ERROR_MORE_DATA) continue; // too long to be the one
        if (_wcsicmp(name, pSearch) != 0) continue;
        // Data need not carry its terminator: end it where its size says.
        const DWORD cch = cbData / sizeof(WCHAR);
        data[cch < kDataBytes / sizeof(WCHAR) ? cch : kDataBytes / sizeof(WCHAR) - 1] = 0;
        std::copy(data, data + WLen(data) + 1, pFile);
        return true;
    }
}

int EnumAdapter(const LOGFONTW *pLogFont, const TEXTMETRICW *pTextMetric, DWORD nFontType,
                LPARAM lParam) {
    return lpfnWMFontFaceEnumerator(reinterpret_cast<const ENUMLOGFONTW *>(pLogFont), pTextMetric,
                                    nFontType, lParam);
}

} // namespace

int lpfnWMFontFaceEnumerator(const ENUMLOGFONTW *pLogFont, const TEXTMETRICW *, DWORD,
                             intptr_t lParam) {
    auto *pSearch = reinterpret_cast<WMFONTSEARCH *>(lParam);
    if (pLogFont->elfLogFont.lfWeight != pSearch->nWeight ||
        pLogFont->elfLogFont.lfItalic != pSearch->bItalic)
        return 1;
    pSearch->bFound = 1;
    size_t n = 0;
    for (; n < LF_FULLFACESIZE && pLogFont->elfFullName[n]; ++n)
        pSearch->szFullName[n] = pLogFont->elfFullName[n];
    pSearch->szFullName[n] = 0;
    return 0;
}

int PCLGetWmarkNameFromRegistry(const WCHAR *pFace, WCHAR *pPath, SPLDEVINFO *, int nWeight,
                                BYTE bItalic) {
    pPath[0] = 0;
    WCHAR file[kDataBytes / sizeof(WCHAR)] = {};
    bool found = false;

    if (_wcsicmp(pFace, u"Marlett") == 0) {
        Join(file, sizeof file / sizeof file[0], u"Marlett.ttf", u"");
        found = true;
    } else {
        // The exact style first: its full name is the registry's value name.
        WMFONTSEARCH search{};
        search.nWeight = nWeight;
        search.bItalic = bItalic;
        HDC hdc = GetDC(0);
        EnumFontFamiliesW(hdc, pFace, EnumAdapter, reinterpret_cast<LPARAM>(&search));
        ReleaseDC(0, hdc);

        WCHAR key[kNameChars + 16];
        Join(key, sizeof key / sizeof key[0], search.bFound ? search.szFullName : pFace, kTrueType);

        HKEY hKey = 0;
        if (RegOpenKeyW(HKEY_LOCAL_MACHINE, kFontsKey, &hKey) != ERROR_SUCCESS) return 0;
        found = FindValue(hKey, key, file);
        if (!found) {
            // The family's own entry serves for a style the registry doesn't name.
            Join(key, sizeof key / sizeof key[0], pFace, kTrueType);
            found = FindValue(hKey, key, file);
        }
        RegCloseKey(hKey);
    }
    if (!found) return 0;

    // A name with a separator is a full name; a bare one lies in the fonts folder.
    bool bFull = false;
    for (const WCHAR *p = file; *p; ++p) bFull |= (*p == u'/' || *p == u'\\');
    if (bFull) return Join(pPath, kPathChars, file, u"") ? 1 : (pPath[0] = 0, 0);

    WCHAR root[kPathChars];
    UINT n = GetWindowsDirectoryW(root, kPathChars);
    if (n == 0 || n >= kPathChars) return 0;
    if (!Join(pPath, kPathChars, root, u"\\fonts\\", file)) {
        pPath[0] = 0;
        return 0;
    }
    return 1;
}

int DownloadWaterMarkFont(SPLDEVINFO *pInfo) {
    if (!GetWaterMarkInfo(DevModeOf(pInfo), &WM)) return 0;

    char faceA[4 * 33], textA[4 * 51];
    CopyUnicode2Str(faceA, WM.szFace, 0);
    CopyUnicode2Str(textA, WM.szText, 0);
    faceA[sizeof faceA - 1] = 0;
    textA[sizeof textA - 1] = 0;

    WM.nHeight = ScaleNupHt(pInfo, WM.nHeight); // once a job: WM keeps the scaled height

    const BYTE savedMode = pInfo->bOutputMode;
    const PTR32 savedCmdBuf = pInfo->pCmdBuf;
    pInfo->pCmdBuf = Ptr32From(WmCmdBuf);
    if (pInfo->bOutputMode != OUTPUT_PCL) fSetOutputMode(pInfo, OUTPUT_PCL);

    int result = 0;
    WCHAR path[kPathChars];
    if (PCLGetWmarkNameFromRegistry(WM.szFace, path, pInfo, WM.nWeight, WM.bItalic)) {
        HANDLE hFile = CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                   OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, 0);
        if (hFile == INVALID_HANDLE_VALUE) {
            // Not in a real fonts folder: the installed font of that file name, read only.
            WCHAR host[1024];
            if (q417::fonts::HostFontFile(path, host, 1024))
                hFile = CreateFileW(host, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, 0);
        }
        if (hFile != INVALID_HANDLE_VALUE) {
            if (SelectWaterMarkFont(pInfo, &WM, hFile, faceA)) {
                DownloadWaterMarkChars(pInfo, &WM, hFile, textA);
                result = 1;
            }
            CloseHandle(hFile);
        }
    }

    if (pInfo->bOutputMode != savedMode) fSetOutputMode(pInfo, savedMode);
    pInfo->pCmdBuf = savedCmdBuf;
    return result;
}

int DeleteWaterMarkFont(SPLDEVINFO *pInfo) {
    const PTR32 savedCmdBuf = pInfo->pCmdBuf;
    pInfo->pCmdBuf = Ptr32From(WmCmdBuf);
    WmWriteCmd(pInfo, "\x1b*c%dD\x1b*c2F", WM_FONT_ID);
    pInfo->pCmdBuf = savedCmdBuf;
    return 1;
}
