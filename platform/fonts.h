// Fonts of the host under their Win32 names: the font enumeration of a display context and
// the registry key of installed TrueType fonts, realised from fontconfig.
//
// EnumFontFamiliesW lists, for a family, the installed styles with lfWeight on the 100 to 900
// scale, lfItalic and elfFullName. The Fonts key of HKEY_LOCAL_MACHINE holds "<full name>
// (TrueType)" for each TrueType outline font, with the font's file name as data. The fonts folder
// of the Windows directory holds what a real folder there holds, and behind that every file the
// font list names (HostFontFile).
#pragma once

#include "platform/win32.h"

#include <cstdint>
#include <string>
#include <vector>

typedef intptr_t LPARAM;
typedef HANDLE32 HWND;

enum { LF_FACESIZE = 32, LF_FULLFACESIZE = 64 };
enum : DWORD { RASTER_FONTTYPE = 1, DEVICE_FONTTYPE = 2, TRUETYPE_FONTTYPE = 4 };
enum : DWORD { REG_SZ = 1 };
constexpr HKEY HKEY_LOCAL_MACHINE = 0x80000002u;

struct LOGFONTW {
    LONG lfHeight;
    LONG lfWidth;
    LONG lfEscapement;
    LONG lfOrientation;
    LONG lfWeight;
    BYTE lfItalic;
    BYTE lfUnderline;
    BYTE lfStrikeOut;
    BYTE lfCharSet;
    BYTE lfOutPrecision;
    BYTE lfClipPrecision;
    BYTE lfQuality;
    BYTE lfPitchAndFamily;
    WCHAR lfFaceName[LF_FACESIZE];
};

struct ENUMLOGFONTW {
    LOGFONTW elfLogFont;
    WCHAR elfFullName[LF_FULLFACESIZE];
    WCHAR elfStyle[LF_FACESIZE];
};

struct TEXTMETRICW {
    LONG tmHeight;
    LONG tmAscent;
    LONG tmDescent;
    LONG tmInternalLeading;
    LONG tmExternalLeading;
    LONG tmAveCharWidth;
    LONG tmMaxCharWidth;
    LONG tmWeight;
    LONG tmOverhang;
    LONG tmDigitizedAspectX;
    LONG tmDigitizedAspectY;
    WCHAR tmFirstChar;
    WCHAR tmLastChar;
    WCHAR tmDefaultChar;
    WCHAR tmBreakChar;
    BYTE tmItalic;
    BYTE tmUnderlined;
    BYTE tmStruckOut;
    BYTE tmPitchAndFamily;
    BYTE tmCharSet;
};

typedef int (*FONTENUMPROCW)(const LOGFONTW *, const TEXTMETRICW *, DWORD, LPARAM);

HDC GetDC(HWND hWnd);
int ReleaseDC(HWND hWnd, HDC hDC);
// Calls proc for each style of the family (case-insensitive name), in a fixed order: normal
// widths first, then by weight and slant. Returns the last value proc returned, or 1 when
// there was no style.
int EnumFontFamiliesW(HDC hdc, LPCWSTR lpszFamily, FONTENUMPROCW proc, LPARAM lParam);

LONG RegOpenKeyW(HKEY hKey, LPCWSTR lpSubKey, HKEY *phkResult);
// *lpcchValueName: capacity in characters with the terminator, on return the length without
// it. *lpcbData: capacity in bytes, on return the size of the data. A name or data that
// doesn't fit gives ERROR_MORE_DATA; an index past the end ERROR_NO_MORE_ITEMS.
LONG RegEnumValueW(HKEY hKey, DWORD dwIndex, LPWSTR lpValueName, DWORD *lpcchValueName,
                   DWORD *lpReserved, DWORD *lpType, BYTE *lpData, DWORD *lpcbData);
LONG RegCloseKey(HKEY hKey);

namespace q417::fonts {

// One style of a family, as the font list knows it.
struct Face {
    std::u16string family;   // the name EnumFontFamiliesW is asked for
    std::u16string fullName; // elfFullName
    std::u16string style;    // elfStyle
    int weight = 400;        // lfWeight
    bool italic = false;
    int width = 100;  // fontconfig width: 100 normal, below condensed
    std::string file; // host path of the font file
};

// One value of the Fonts key: its name and its data (REG_SZ).
struct Value {
    std::u16string name;
    std::u16string data;
};

// Replaces what fontconfig would give with a font list and a registry of the caller's own,
// until UseFontconfig. Font files named by faces are still found through HostFontFile.
void SetFontTable(std::vector<Face> faces, std::vector<Value> values);
void UseFontconfig();

// How often the enumeration and the registry were used since the last reset: a face that
// needs neither must show none.
struct Calls {
    long enumFamilies = 0;
    long regOpen = 0;
};
Calls CallCounts();
void ResetCallCounts();

// For a name "<Windows directory>\fonts\<file>", the host path of the font file of that name
// (case-insensitive) from the font list, as a wide string; false for any other name.
bool HostFontFile(LPCWSTR pWinPath, WCHAR *pOut, size_t cchOut);

} // namespace q417::fonts
