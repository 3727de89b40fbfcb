// The font enumeration and the Fonts registry key, from fontconfig's list of installed fonts.
#include "platform/fonts.h"

#include <fontconfig/fontconfig.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <optional>
#include <string>

namespace {

using q417::fonts::Face;
using q417::fonts::Value;

constexpr HDC kDisplayDC = 0x0D0C0001u;
constexpr HKEY kFontsKey = 0x0F0E0001u;
constexpr size_t kMaxDataChars = 39; // what a reader with 80 bytes of data can take
const char16_t kFontsSubKey[] = u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Fonts";

struct FontTable {
    std::vector<Face> faces; // one entry per family name a font answers to
    std::vector<Value> values;
    std::map<std::u16string, std::string> files; // folded base name -> host path
};

std::optional<FontTable> g_override;
std::optional<FontTable> g_fontconfig;
q417::fonts::Calls g_calls;

char16_t Fold(char16_t c) {
    return (c >= u'A' && c <= u'Z') ? char16_t(c + 32) : c;
}

std::u16string Folded(std::u16string_view s) {
    std::u16string out(s);
    for (auto &c : out) c = Fold(c);
    return out;
}

bool EqualNoCase(std::u16string_view a, std::u16string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (Fold(a[i]) != Fold(b[i])) return false;
    return true;
}

std::u16string FromUtf8(const char *s) {
    std::u16string out;
    const auto *p = reinterpret_cast<const unsigned char *>(s);
    while (*p) {
        uint32_t cp = *p++;
        int extra = cp >= 0xF0 ? 3 : cp >= 0xE0 ? 2 : cp >= 0xC0 ? 1 : 0;
        if (extra) cp &= 0x3F >> extra;
        for (; extra && (*p & 0xC0) == 0x80; --extra) cp = cp << 6 | (*p++ & 0x3F);
        if (extra) cp = 0xFFFD;
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out += char16_t(0xD800 + (cp >> 10));
            out += char16_t(0xDC00 + (cp & 0x3FF));
        } else {
            out += char16_t(cp);
        }
    }
    return out;
}

std::u16string BaseName(const std::string &path) {
    size_t slash = path.find_last_of('/');
    return FromUtf8(path.c_str() + (slash == std::string::npos ? 0 : slash + 1));
}

// The lfWeight scale: the nearest hundred of the OpenType weight, 100 to 900.
int LogFontWeight(int fcWeight) {
    double ot = FcWeightToOpenTypeDouble(fcWeight);
    int w = static_cast<int>(std::lround(ot / 100.0)) * 100;
    return std::clamp(w, 100, 900);
}

// How far a style is from its family's regular one: width first, then weight, then slant.
int Regularity(const Face &f) {
    return std::abs(f.width - 100) * 10000 + std::abs(f.weight - 400) * 10 + (f.italic ? 1 : 0);
}

void IndexFiles(FontTable &t) {
    for (const Face &f : t.faces) t.files.emplace(Folded(BaseName(f.file)), f.file);
}

FontTable LoadFontconfig() {
    FontTable t;
    FcPattern *pat = FcPatternCreate();
    FcObjectSet *os = FcObjectSetBuild(FC_FAMILY, FC_FULLNAME, FC_STYLE, FC_WEIGHT, FC_SLANT,
                                       FC_WIDTH, FC_FILE, FC_FONTFORMAT, FC_INDEX, nullptr);
    // A configuration of our own, gone once the list is copied: fontconfig's default one
    // would live, unreleased, for the rest of the process.
    FcConfig *config = FcInitLoadConfigAndFonts();
    FcFontSet *set = (config && pat && os) ? FcFontList(config, pat, os) : nullptr;
    struct Font {
        std::vector<std::u16string> families;
        Face face;
    };
    std::vector<Font> fonts;
    for (int i = 0; set && i < set->nfont; ++i) {
        FcPattern *p = set->fonts[i];
        FcChar8 *format = nullptr, *file = nullptr, *s = nullptr;
        if (FcPatternGetString(p, FC_FONTFORMAT, 0, &format) != FcResultMatch ||
            std::strcmp(reinterpret_cast<char *>(format), "TrueType") != 0)
            continue;
        if (FcPatternGetString(p, FC_FILE, 0, &file) != FcResultMatch) continue;
        int index = 0;
        if (FcPatternGetInteger(p, FC_INDEX, 0, &index) == FcResultMatch && index != 0)
            continue; // a collection's further faces: the file is named once
        Font f;
        f.face.file = reinterpret_cast<char *>(file);
        for (int k = 0; FcPatternGetString(p, FC_FAMILY, k, &s) == FcResultMatch; ++k)
            f.families.push_back(FromUtf8(reinterpret_cast<char *>(s)));
        if (f.families.empty()) continue;
        if (FcPatternGetString(p, FC_STYLE, 0, &s) == FcResultMatch)
            f.face.style = FromUtf8(reinterpret_cast<char *>(s));
        if (FcPatternGetString(p, FC_FULLNAME, 0, &s) == FcResultMatch)
            f.face.fullName = FromUtf8(reinterpret_cast<char *>(s));
        else
            f.face.fullName = f.families[0] + u" " + f.face.style;
        int weight = FC_WEIGHT_REGULAR, slant = FC_SLANT_ROMAN, width = FC_WIDTH_NORMAL;
        FcPatternGetInteger(p, FC_WEIGHT, 0, &weight);
        FcPatternGetInteger(p, FC_SLANT, 0, &slant);
        FcPatternGetInteger(p, FC_WIDTH, 0, &width);
        f.face.weight = LogFontWeight(weight);
        f.face.italic = slant != FC_SLANT_ROMAN;
        f.face.width = width;
        fonts.push_back(std::move(f));
    }
    if (set) FcFontSetDestroy(set);
    if (os) FcObjectSetDestroy(os);
    if (pat) FcPatternDestroy(pat);
    if (config) FcConfigDestroy(config);

    // A fixed order whatever fontconfig's cache holds.
    std::sort(fonts.begin(), fonts.end(),
              [](const Font &a, const Font &b) { return a.face.file < b.face.file; });
    // Registry data holds 39 characters: a longer file name is given a short alias.
    auto dataName = [&t](const std::string &file) {
        std::u16string name = BaseName(file);
        if (name.size() <= kMaxDataChars) return name;
        std::string alias = "q417font" + std::to_string(t.files.size()) + ".ttf";
        t.files.emplace(Folded(FromUtf8(alias.c_str())), file);
        return FromUtf8(alias.c_str());
    };
    std::vector<std::u16string> seen;
    auto addValue = [&](const std::u16string &name, const std::string &file) {
        if (std::any_of(seen.begin(), seen.end(),
                        [&](const std::u16string &n) { return EqualNoCase(n, name); }))
            return;
        seen.push_back(name);
        t.values.push_back({name, dataName(file)});
    };
    for (const Font &f : fonts) {
        for (const auto &family : f.families) {
            Face face = f.face;
            face.family = family;
            t.faces.push_back(face);
        }
        addValue(f.face.fullName + u" (TrueType)", f.face.file);
    }
    // As on Windows, a family's name stands for its regular style: the entry a style that
    // the registry doesn't name falls back on.
    std::vector<const Face *> regular;
    for (const Face &f : t.faces) {
        auto it = std::find_if(regular.begin(), regular.end(),
                               [&](const Face *r) { return EqualNoCase(r->family, f.family); });
        if (it == regular.end())
            regular.push_back(&f);
        else if (Regularity(f) < Regularity(**it))
            *it = &f;
    }
    for (const Face *f : regular) addValue(f->family + u" (TrueType)", f->file);
    IndexFiles(t);
    return t;
}

const FontTable &Table() {
    if (g_override) return *g_override;
    if (!g_fontconfig) g_fontconfig = LoadFontconfig();
    return *g_fontconfig;
}

std::u16string_view View(LPCWSTR s) {
    return s ? std::u16string_view(s) : std::u16string_view();
}

} // namespace

namespace q417::fonts {

void SetFontTable(std::vector<Face> faces, std::vector<Value> values) {
    FontTable t;
    t.faces = std::move(faces);
    t.values = std::move(values);
    IndexFiles(t);
    g_override = std::move(t);
}

void UseFontconfig() {
    g_override.reset();
}

Calls CallCounts() {
    return g_calls;
}
void ResetCallCounts() {
    g_calls = {};
}

bool HostFontFile(LPCWSTR pWinPath, WCHAR *pOut, size_t cchOut) {
    if (!pWinPath || !pOut || cchOut == 0) return false;
    WCHAR root[400];
    UINT n = GetWindowsDirectoryW(root, 400);
    if (n == 0 || n >= 400) return false;
    std::u16string prefix = std::u16string(root, n) + u"\\fonts\\";
    std::u16string_view path = View(pWinPath);
    if (path.size() <= prefix.size()) return false;
    for (size_t i = 0; i < prefix.size(); ++i) {
        char16_t a = path[i], b = prefix[i];
        if (a == u'/') a = u'\\';
        if (b == u'/') b = u'\\';
        if (Fold(a) != Fold(b)) return false;
    }
    std::u16string_view name = path.substr(prefix.size());
    if (name.find_first_of(u"\\/") != std::u16string_view::npos) return false;
    const auto &files = Table().files;
    auto it = files.find(Folded(name));
    if (it == files.end()) return false;
    std::u16string host = FromUtf8(it->second.c_str());
    if (host.size() + 1 > cchOut) return false;
    std::copy(host.begin(), host.end(), pOut);
    pOut[host.size()] = 0;
    return true;
}

} // namespace q417::fonts

HDC GetDC(HWND) {
    return kDisplayDC;
}

int ReleaseDC(HWND, HDC hDC) {
    return hDC == kDisplayDC ? 1 : 0;
}

int EnumFontFamiliesW(HDC hdc, LPCWSTR lpszFamily, FONTENUMPROCW proc, LPARAM lParam) {
    ++g_calls.enumFamilies;
    if (hdc != kDisplayDC || !proc || !lpszFamily) return 0;
    std::vector<const Face *> styles;
    for (const Face &f : Table().faces)
        if (EqualNoCase(f.family, View(lpszFamily))) styles.push_back(&f);
    std::stable_sort(styles.begin(), styles.end(), [](const Face *a, const Face *b) {
        int wa = std::abs(a->width - 100), wb = std::abs(b->width - 100);
        if (wa != wb) return wa < wb;
        if (a->weight != b->weight) return a->weight < b->weight;
        return a->italic < b->italic;
    });
    int result = 1;
    for (const Face *f : styles) {
        ENUMLOGFONTW elf{};
        TEXTMETRICW tm{};
        elf.elfLogFont.lfWeight = f->weight;
        elf.elfLogFont.lfItalic = f->italic ? 1 : 0;
        elf.elfLogFont.lfOutPrecision = 3; // OUT_STROKE_PRECIS, as for outline fonts
        std::u16string_view family = f->family, full = f->fullName, style = f->style;
        std::copy_n(family.begin(), std::min<size_t>(family.size(), LF_FACESIZE - 1),
                    elf.elfLogFont.lfFaceName);
        std::copy_n(full.begin(), std::min<size_t>(full.size(), LF_FULLFACESIZE - 1),
                    elf.elfFullName);
        std::copy_n(style.begin(), std::min<size_t>(style.size(), LF_FACESIZE - 1), elf.elfStyle);
        tm.tmWeight = f->weight;
        tm.tmItalic = elf.elfLogFont.lfItalic;
        result = proc(&elf.elfLogFont, &tm, TRUETYPE_FONTTYPE, lParam);
        if (result == 0) break;
    }
    return result;
}

LONG RegOpenKeyW(HKEY hKey, LPCWSTR lpSubKey, HKEY *phkResult) {
    ++g_calls.regOpen;
    if (!phkResult) return ERROR_INVALID_PARAMETER;
    if (hKey != HKEY_LOCAL_MACHINE || !EqualNoCase(View(lpSubKey), kFontsSubKey))
        return ERROR_FILE_NOT_FOUND;
    *phkResult = kFontsKey;
    return ERROR_SUCCESS;
}

LONG RegEnumValueW(HKEY hKey, DWORD dwIndex, LPWSTR lpValueName, DWORD *lpcchValueName, DWORD *,
                   DWORD *lpType, BYTE *lpData, DWORD *lpcbData) {
    if (hKey != kFontsKey) return ERROR_INVALID_HANDLE;
    if (!lpValueName || !lpcchValueName) return ERROR_INVALID_PARAMETER;
    const auto &values = Table().values;
    if (dwIndex >= values.size()) return ERROR_NO_MORE_ITEMS;
    const Value &v = values[dwIndex];
    const DWORD cbNeeded = static_cast<DWORD>((v.data.size() + 1) * sizeof(WCHAR));
    if (v.name.size() + 1 > *lpcchValueName) return ERROR_MORE_DATA;
    std::copy(v.name.begin(), v.name.end(), lpValueName);
    lpValueName[v.name.size()] = 0;
    *lpcchValueName = static_cast<DWORD>(v.name.size());
    if (lpType) *lpType = REG_SZ;
    if (!lpcbData) return ERROR_SUCCESS;
    if (lpData && cbNeeded > *lpcbData) {
        *lpcbData = cbNeeded;
        return ERROR_MORE_DATA;
    }
    if (lpData) std::memcpy(lpData, v.data.c_str(), cbNeeded);
    *lpcbData = cbNeeded;
    return ERROR_SUCCESS;
}

LONG RegCloseKey(HKEY hKey) {
    return hKey == kFontsKey ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}
