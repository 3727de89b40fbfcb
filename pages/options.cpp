// The printer's offer under PPD and IPP names, and job options back to JobSettings.
//
// IPP names follow the rules CUPS applies to a PPD (ppd-cache), so that what cupsd derives from
// our PPD and what this file derives from the description agree: a cupsd queue and the printer
// application show the same names.
#include "options.h"
#include "common.h"
#include "print.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>

namespace q417::pages {

namespace {

// ---- names ---------------------------------------------------------------------------------

bool Same(const std::string &a, const std::string &b) {
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}
bool StartsWith(const std::string &s, const char *prefix) {
    return strncasecmp(s.c_str(), prefix, std::strlen(prefix)) == 0;
}

bool IsUpper(char c) {
    return c >= 'A' && c <= 'Z';
}
bool IsLower(char c) {
    return c >= 'a' && c <= 'z';
}
bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}
bool IsAlnum(char c) {
    return IsUpper(c) || IsLower(c) || IsDigit(c);
}

// A PPD keyword as an IPP keyword, the way CUPS converts them: lower case, a dash where a word
// or a number begins, `dashes` and '-' runs to one dash ("FaceDown" -> "face-down", "Tray1" ->
// "tray-1").
std::string Unppdize(const std::string &ppd, const char *dashes) {
    if (!ppd.empty() && IsLower(ppd[0])) {
        bool asIs = true;
        for (size_t i = 1; i < ppd.size() && asIs; ++i)
            asIs = !(IsUpper(ppd[i]) || std::strchr(dashes, ppd[i]) ||
                     (ppd[i] == '-' && (ppd[i - 1] == '-' || i + 1 == ppd.size())));
        if (asIs) return ppd;
    }
    std::string out;
    bool noDash = true;
    for (size_t i = 0; i < ppd.size(); ++i) {
        char c = ppd[i], next = i + 1 < ppd.size() ? ppd[i + 1] : '\0';
        if (IsAlnum(c)) {
            out += static_cast<char>(IsUpper(c) ? c - 'A' + 'a' : c);
            noDash = false;
        } else if (c == '-' || std::strchr(dashes, c)) {
            if (!noDash) out += '-', noDash = true;
        } else {
            out += c;
            noDash = false;
        }
        if (!noDash) {
            if (!IsUpper(c) && IsAlnum(c) && IsUpper(next))
                out += '-', noDash = true;
            else if (!IsDigit(c) && IsDigit(next))
                out += '-', noDash = true;
        }
    }
    while (!out.empty() && out.back() == '-') out.pop_back();
    return out;
}

// A PPD option keyword: printable ASCII without blanks, '/' and ':', at most 40 characters.
std::string PpdKeyword(const std::string &key) {
    std::string out;
    for (unsigned char c : key) {
        if (out.size() == 40) break;
        out += (c > 32 && c < 127 && c != '/' && c != ':') ? static_cast<char>(c) : '_';
    }
    return out;
}

// An IPP keyword: lower-case letters, digits, '-', '_' and '.'.
std::string IppKeyword(const std::string &key) {
    std::string out;
    for (char c : Unppdize(key, "_ ")) {
        bool ok = IsLower(c) || IsDigit(c) || c == '-' || c == '_' || c == '.';
        if (ok) out += c;
    }
    return out;
}

// Makes `name` unique among `taken` (case ignored) by a number behind it; records it.
std::string Unique(std::string name, const std::string &fallback, std::vector<std::string> &taken,
                   char sep) {
    if (name.empty()) name = fallback;
    std::string base = name;
    for (int n = 2;; ++n) {
        bool clash = false;
        for (const auto &t : taken) clash = clash || Same(t, name);
        if (!clash) break;
        name = base + sep + std::to_string(n);
    }
    taken.push_back(name);
    return name;
}

// ---- sizes ---------------------------------------------------------------------------------

struct StandardSize {
    const char *pwg, *ppd;
    int width, length; // hundredths of a millimetre
};

// Well-known sizes by their PWG and PPD names. PPD's "B5" and "B4" are the JIS sizes; the ISO
// ones are ISOB5 and ISOB4, as in Adobe's and CUPS's tables.
const StandardSize kSizes[] = {
    {"na_letter_8.5x11in", "Letter", 21590, 27940},
    {"na_legal_8.5x14in", "Legal", 21590, 35560},
    {"na_executive_7.25x10.5in", "Executive", 18415, 26670},
    {"na_ledger_11x17in", "Tabloid", 27940, 43180},
    {"na_invoice_5.5x8.5in", "Statement", 13970, 21590},
    {"na_index-4x6_4x6in", "4x6", 10160, 15240},
    {"na_5x7_5x7in", "5x7", 12700, 17780},
    {"na_number-10_4.125x9.5in", "Env10", 10477, 24130},
    {"na_number-9_3.875x8.875in", "Env9", 9842, 22542},
    {"na_monarch_3.875x7.5in", "EnvMonarch", 9842, 19050},
    {"iso_a3_297x420mm", "A3", 29700, 42000},
    {"iso_a4_210x297mm", "A4", 21000, 29700},
    {"iso_a5_148x210mm", "A5", 14800, 21000},
    {"iso_a6_105x148mm", "A6", 10500, 14800},
    {"iso_b4_250x353mm", "ISOB4", 25000, 35300},
    {"iso_b5_176x250mm", "ISOB5", 17600, 25000},
    {"iso_c4_229x324mm", "EnvC4", 22900, 32400},
    {"iso_c5_162x229mm", "EnvC5", 16200, 22900},
    {"iso_c6_114x162mm", "EnvC6", 11400, 16200},
    {"iso_dl_110x220mm", "EnvDL", 11000, 22000},
    {"jis_b4_257x364mm", "B4", 25700, 36400},
    {"jis_b5_182x257mm", "B5", 18200, 25700},
    {"jpn_hagaki_100x148mm", "Postcard", 10000, 14800},
};

// Half a millimetre: what a description's rounding of a size to points can take away.
constexpr int kSizeSlack = 50;

const StandardSize *StandardFor(int width, int length) {
    for (const auto &s : kSizes)
        if (std::abs(s.width - width) <= kSizeSlack && std::abs(s.length - length) <= kSizeSlack)
            return &s;
    return nullptr;
}

int PwgFromPoints(double pt) {
    return static_cast<int>(std::lround(pt * 2540.0 / 72.0));
}
double PointsFromPwg(int v) {
    return v * 72.0 / 2540.0;
}

std::string FormatInches(int v) {
    int whole = v / 2540, frac = ((v % 2540) * 1000 + 1270) / 2540;
    if (frac >= 1000) ++whole, frac -= 1000;
    char b[32];
    if (frac == 0)
        std::snprintf(b, sizeof b, "%d", whole);
    else if (frac % 10)
        std::snprintf(b, sizeof b, "%d.%03d", whole, frac);
    else if (frac % 100)
        std::snprintf(b, sizeof b, "%d.%02d", whole, frac / 10);
    else
        std::snprintf(b, sizeof b, "%d.%d", whole, frac / 100);
    return b;
}

std::string FormatMillimetres(int v) {
    int whole = v / 100, frac = v % 100;
    char b[32];
    if (frac == 0)
        std::snprintf(b, sizeof b, "%d", whole);
    else if (frac % 10)
        std::snprintf(b, sizeof b, "%d.%02d", whole, frac);
    else
        std::snprintf(b, sizeof b, "%d.%d", whole, frac / 10);
    return b;
}

// "<prefix>_<name>_<w>x<h><unit>": inches when both sides are whole quarter inches.
std::string FormatSizeName(const char *prefix, const std::string &name, int width, int length) {
    bool inches = width % 635 == 0 && length % 635 == 0;
    std::string p = prefix ? prefix : inches ? "oe" : "om";
    if (inches)
        return p + "_" + name + "_" + FormatInches(width) + "x" + FormatInches(length) + "in";
    return p + "_" + name + "_" + FormatMillimetres(width) + "x" + FormatMillimetres(length) + "mm";
}

// A size given as "WxH" with an optional unit (pt, in, mm, cm; points without), in points.
bool ParseDimensions(const std::string &text, double &w, double &h) {
    char unit[8] = {};
    int got = std::sscanf(text.c_str(), "%lfx%lf%7s", &w, &h, unit);
    if (got < 2 || !(w > 0) || !(h > 0)) return false;
    double f = 1;
    if (got == 3) {
        std::string u = unit;
        if (u == "pt")
            f = 1;
        else if (u == "in")
            f = 72;
        else if (u == "mm")
            f = 72 / 25.4;
        else if (u == "cm")
            f = 720 / 25.4;
        else
            return false;
    }
    w *= f, h *= f;
    return true;
}

// ---- the description -----------------------------------------------------------------------

DWORD Get(DDIDEVMODE *pdm, DWORD id) {
    DWORD v = DDIGetDWord(pdm, id);
    return v == 0xFFFFFFFFu ? 0 : v;
}

double Pt(DWORD decipoints) {
    return static_cast<int32_t>(decipoints) / 10.0;
}

int PositionOf(const std::vector<int> &rows, INT row) {
    for (size_t i = 0; i < rows.size(); ++i)
        if (rows[i] == row) return static_cast<int>(i);
    return rows.empty() ? -1 : 0;
}

// CUPS's names for the input slots it knows.
std::string SourceIpp(const Choice &c) {
    if (StartsWith(c.ppd, "Auto") || StartsWith(c.text, "Auto") || Same(c.ppd, "Default") ||
        Same(c.text, "Default"))
        return "auto";
    static const struct {
        const char *ppd;
        bool prefix;
        const char *ipp;
    } kKnown[] = {
        {"Cassette", false, "main"},
        {"PhotoTray", false, "photo"},
        {"CDTray", false, "disc"},
        {"Multipurpose", true, "by-pass-tray"},
        {"MP", false, "by-pass-tray"},
        {"MPTray", false, "by-pass-tray"},
        {"LargeCapacity", false, "large-capacity"},
        {"Lower", true, "bottom"},
        {"Middle", true, "middle"},
        {"Upper", true, "top"},
        {"Side", true, "side"},
        {"Roll", false, "main-roll"},
    };
    for (const auto &k : kKnown)
        if (k.prefix ? StartsWith(c.ppd, k.ppd) : Same(c.ppd, k.ppd)) return k.ipp;
    if (c.ppd.size() == 1 && IsDigit(c.ppd[0])) return "tray-" + std::to_string(c.ppd[0] - '0' + 1);
    return IppKeyword(c.ppd);
}

// CUPS's names for the media types it knows; a name two types would share goes to neither.
void NameMediaTypes(std::vector<Choice> &types) {
    static const struct {
        const char *ppd;
        int prefix; // characters that must match; 0: the whole name
        const char *ipp;
    } kKnown[] = {
        {"Auto", 4, "auto"},
        {"Any", 0, "auto"},
        {"Default", 0, "auto"},
        {"Card", 4, "cardstock"},
        {"Env", 3, "envelope"},
        {"Gloss", 5, "photographic-glossy"},
        {"HighGloss", 0, "photographic-high-gloss"},
        {"Matte", 0, "photographic-matte"},
        {"Plain", 5, "stationery"},
        {"Coated", 6, "stationery-coated"},
        {"Inkjet", 0, "stationery-inkjet"},
        {"Letterhead", 0, "stationery-letterhead"},
        {"Preprint", 8, "stationery-preprinted"},
        {"Recycled", 0, "stationery-recycled"},
        {"Transparen", 10, "transparency"},
    };
    for (auto &t : types) {
        t.ipp.clear();
        for (const auto &k : kKnown)
            if (k.prefix ? strncasecmp(t.ppd.c_str(), k.ppd, k.prefix) == 0 : Same(t.ppd, k.ppd))
                t.ipp = k.ipp;
    }
    for (auto &t : types) {
        bool standard = !t.ipp.empty();
        int sharing = 0;
        for (const auto &u : types) sharing += !t.ipp.empty() && u.ipp == t.ipp;
        if (!standard || sharing > 1) t.ipp = IppKeyword(t.ppd);
    }
}

std::vector<Choice> Family(DDIDEVMODE *pdm, DWORD id, const char *fallback) {
    std::vector<Choice> out;
    std::vector<std::string> taken;
    auto options = KeywordOptions(pdm, id);
    for (size_t i = 0; i < options.size(); ++i) {
        Choice c;
        c.index = static_cast<int>(i);
        c.key = options[i].key;
        c.text = options[i].translation.empty() ? c.key : options[i].translation;
        c.ppd = Unique(PpdKeyword(c.key), fallback + std::to_string(i + 1), taken, '_');
        out.push_back(c);
    }
    return out;
}

void UniqueIpp(std::vector<Choice *> choices, const char *fallback) {
    std::vector<std::string> taken;
    for (size_t i = 0; i < choices.size(); ++i)
        choices[i]->ipp = Unique(choices[i]->ipp, fallback + std::to_string(i + 1), taken, '-');
}

template <typename T>
std::vector<Choice *> Pointers(std::vector<T> &v) {
    std::vector<Choice *> out;
    for (auto &c : v) out.push_back(&c);
    return out;
}

} // namespace

// ---- sizes by name -------------------------------------------------------------------------

bool ParsePwgSize(const std::string &name, int &width, int &length) {
    size_t last = name.rfind('_');
    if (last == std::string::npos || last == 0 || name.find('_') == last) return false;
    std::string dims = name.substr(last + 1);
    double w = 0, h = 0;
    char unit[4] = {};
    int n = 0;
    if (std::sscanf(dims.c_str(), "%lfx%lf%3[a-z]%n", &w, &h, unit, &n) != 3 ||
        static_cast<size_t>(n) != dims.size() || !(w > 0) || !(h > 0) || w > 1e5 || h > 1e5)
        return false;
    double f = std::strcmp(unit, "in") == 0 ? 2540 : std::strcmp(unit, "mm") == 0 ? 100 : 0;
    if (f == 0) return false;
    width = static_cast<int>(std::lround(w * f));
    length = static_cast<int>(std::lround(h * f));
    return true;
}

std::string PwgSizeName(const std::string &key, int width, int length, std::string *ppd) {
    if (const StandardSize *s = StandardFor(width, length)) {
        if (ppd) *ppd = s->ppd;
        return s->pwg;
    }
    if (ppd) ppd->clear();
    std::string name = IppKeyword(Unppdize(key, "_."));
    return FormatSizeName(nullptr, name.empty() ? "custom" : name, width, length);
}

// ---- watermarks ----------------------------------------------------------------------------

namespace {

// The library reads INI files as UTF-16 with a byte order mark, UTF-8 with a mark, or else in
// the ANSI code page, Windows-1252 unless a host changes it.
std::u16string DecodeIni(const std::vector<uint8_t> &raw) {
    std::u16string w;
    if (raw.size() >= 2 &&
        ((raw[0] == 0xFF && raw[1] == 0xFE) || (raw[0] == 0xFE && raw[1] == 0xFF))) {
        bool little = raw[0] == 0xFF;
        for (size_t i = 2; raw.size() - i >= 2; i += 2)
            w.push_back(little ? char16_t(raw[i] | raw[i + 1] << 8)
                               : char16_t(raw[i] << 8 | raw[i + 1]));
        return w;
    }
    if (raw.size() >= 3 && raw[0] == 0xEF && raw[1] == 0xBB && raw[2] == 0xBF)
        return Widen(std::string(raw.begin() + 3, raw.end()));
    static const char16_t k1252[32] = {
        0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
        0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
    for (uint8_t b : raw) w.push_back(b >= 0x80 && b < 0xA0 ? k1252[b - 0x80] : char16_t(b));
    return w;
}

std::u16string Trim(const std::u16string &s) {
    size_t b = 0, e = s.size();
    while (b < e && (s[b] == u' ' || s[b] == u'\t')) ++b;
    while (e > b && (s[e - 1] == u' ' || s[e - 1] == u'\t')) --e;
    return s.substr(b, e - b);
}

bool SameKey(const std::u16string &a, const std::u16string &b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        char16_t x = a[i], y = b[i];
        if (x >= u'A' && x <= u'Z') x += 32;
        if (y >= u'A' && y <= u'Z') y += 32;
        if (x != y) return false;
    }
    return true;
}

struct IniEntry {
    std::u16string key, value;
    bool hasValue = false;
};

} // namespace

std::vector<Watermark> ReadWatermarks(const std::string &iniPath) {
    std::vector<Watermark> out;
    std::vector<uint8_t> raw;
    try {
        raw = ReadWholeFile(iniPath);
    } catch (const Error &) {
        return out; // no file, no watermarks: as for a job
    }
    std::u16string text = DecodeIni(raw);

    // The entries of the first section "Watermarks", as the profile reader keeps them.
    std::vector<IniEntry> entries;
    int section = 0; // 0 before it, 1 inside it, 2 after it
    for (size_t pos = 0; pos < text.size() && section < 2;) {
        size_t end = text.find(u'\n', pos);
        if (end == std::u16string::npos) end = text.size();
        std::u16string line;
        for (size_t i = pos; i < end; ++i)
            if (text[i] != u'\r' && text[i] != 0) line.push_back(text[i]);
        pos = end + 1;
        line = Trim(line);
        if (line.empty() || line[0] == u';') continue;
        if (line[0] == u'[') {
            size_t close = line.find(u']');
            std::u16string name = Trim(line.substr(1, close == line.npos ? line.npos : close - 1));
            if (section == 1)
                section = 2;
            else if (SameKey(name, u"Watermarks"))
                section = 1;
            continue;
        }
        if (section != 1) continue;
        IniEntry e;
        size_t eq = line.find(u'=');
        if (eq == std::u16string::npos) {
            e.key = line;
        } else {
            e.key = Trim(line.substr(0, eq));
            e.value = Trim(line.substr(eq + 1));
            e.hasValue = true;
            if (e.value.size() >= 2 && (e.value[0] == u'"' || e.value[0] == u'\'') &&
                e.value.back() == e.value[0])
                e.value = e.value.substr(1, e.value.size() - 2);
        }
        if (!e.key.empty()) entries.push_back(std::move(e));
    }

    std::vector<std::string> ppdTaken{"None"}, ippTaken{"none"};
    for (const IniEntry &k : entries) {
        // A key's value is the first one given under its name, read to 399 characters.
        std::u16string value;
        for (const IniEntry &e : entries)
            if (e.hasValue && SameKey(e.key, k.key)) {
                value = e.value.substr(0, 399);
                break;
            }
        // Fields split at commas; a run of commas is one separator, so none is empty.
        std::vector<std::u16string> fields;
        for (size_t i = 0; i < value.size();) {
            while (i < value.size() && value[i] == u',') ++i;
            size_t j = i;
            while (j < value.size() && value[j] != u',') ++j;
            if (j > i) fields.push_back(value.substr(i, j - i));
            i = j;
        }
        if (fields.size() < 12 || fields[10].size() > 32 || fields[11].size() > 50) continue;
        Watermark w;
        w.index = static_cast<int>(out.size()) + 1;
        w.key = Narrow(k.key.c_str(), k.key.size());
        w.text = w.key;
        w.face = Narrow(fields[10].c_str(), fields[10].size());
        w.label = Narrow(fields[11].c_str(), fields[11].size());
        std::string fallback = "Watermark" + std::to_string(w.index);
        w.ppd = Unique(PpdKeyword(w.key), fallback, ppdTaken, '_');
        w.ipp = Unique(IppKeyword(w.key), "watermark-" + std::to_string(w.index), ippTaken, '-');
        out.push_back(std::move(w));
    }
    return out;
}

// ---- the printer's offer -------------------------------------------------------------------

Capabilities Describe(Printer &printer, const std::string &windowsDir) {
    Capabilities caps;
    caps.pdd = printer.pdd();
    std::vector<uint8_t> dm = printer.NewDevMode();
    DDIDEVMODE *pdm = DM(dm);
    caps.model = GetDDIString(pdm, DDI_STR_CFGMODEL);
    CFGINFO cfg{};
    Q417_ReadBlock(pdm->hConfig, &cfg, sizeof cfg);
    caps.duplex = cfg.dwDuplex != 0;
    caps.colour = cfg.dwColors == 3;
    caps.collate = cfg.dwCollate != 0;

    // Papers, measured in portrait through the settings interface.
    INT defPaper = DDIGetKeywordDefaultOption(pdm, DDI_PAPERSIZE);
    DDISetDWord(pdm, DDI_PAGEORIENT, 0);
    std::vector<std::string> ppdTaken{"Custom"}, standardTaken;
    std::vector<int> paperRows;
    auto rows = KeywordOptions(pdm, DDI_PAPERSIZE);
    for (size_t i = 0; i < rows.size(); ++i) {
        if (!DDISetDWord(pdm, DDI_PAPERSIZE, static_cast<DWORD>(i))) continue;
        if (Get(pdm, DDI_CUSTOMPAPER) == 1) {
            CustomRange &c = caps.custom;
            c.allowed = true;
            c.index = static_cast<int>(i);
            c.key = rows[i].key;
            // A limit of 0 is none: the device mode holds up to 6553.5 points a side.
            auto limit = [&](DWORD id, double none) {
                DWORD v = Get(pdm, id);
                return v ? Pt(v) : none;
            };
            c.minWidth = limit(DDI_CUSTMINWIDTH, 1), c.minLength = limit(DDI_CUSTMINHEIGHT, 1);
            c.maxWidth = limit(DDI_CUSTMAXWIDTH, 6553.5);
            c.maxLength = limit(DDI_CUSTMAXHEIGHT, 6553.5);
            c.defWidth = Pt(Get(pdm, DDI_CUSTDEFWIDTH)),
            c.defLength = Pt(Get(pdm, DDI_CUSTDEFHEIGHT));
            c.left = Pt(Get(pdm, DDI_CUSTMARGINLEFT)), c.top = Pt(Get(pdm, DDI_CUSTMARGINTOP));
            c.right = Pt(Get(pdm, DDI_CUSTMARGINRIGHT));
            c.bottom = Pt(Get(pdm, DDI_CUSTMARGINBOTTOM));
            c.ippMin = FormatSizeName("custom", "min", PwgFromPoints(c.minWidth),
                                      PwgFromPoints(c.minLength));
            c.ippMax = FormatSizeName("custom", "max", PwgFromPoints(c.maxWidth),
                                      PwgFromPoints(c.maxLength));
            continue;
        }
        Paper p;
        p.index = static_cast<int>(i);
        p.key = rows[i].key;
        p.text = rows[i].translation.empty() ? p.key : rows[i].translation;
        p.width = Pt(Get(pdm, DDI_PAPERWIDTH));
        p.length = Pt(Get(pdm, DDI_PAPERHEIGHT));
        double iw = Pt(Get(pdm, DDI_IMAGEWIDTH)), ih = Pt(Get(pdm, DDI_IMAGEHEIGHT));
        double il = Pt(Get(pdm, DDI_IMAGELEFT)), it = Pt(Get(pdm, DDI_IMAGETOP));
        if (p.width <= 0 || p.length <= 0) continue; // incomplete in the description: unusable
        if (iw <= 0 || ih <= 0) iw = p.width, ih = p.length, il = it = 0;
        p.left = il;
        p.top = p.length - it;
        p.right = il + iw;
        p.bottom = p.length - it - ih;
        p.pwgWidth = PwgFromPoints(p.width);
        p.pwgLength = PwgFromPoints(p.length);
        // The first paper of a well-known size takes its names; later ones of that size keep
        // their own.
        std::string standardPpd;
        std::string pwg = PwgSizeName(p.key, p.pwgWidth, p.pwgLength, &standardPpd);
        bool standard = !standardPpd.empty() &&
                        std::find(standardTaken.begin(), standardTaken.end(), standardPpd) ==
                            standardTaken.end();
        if (standard) {
            standardTaken.push_back(standardPpd);
            const StandardSize *s = StandardFor(p.pwgWidth, p.pwgLength);
            p.pwgWidth = s->width, p.pwgLength = s->length;
            p.ipp = pwg;
        } else {
            std::string name = IppKeyword(Unppdize(p.key, "_."));
            p.ipp = FormatSizeName(nullptr, name.empty() ? "paper" : name, p.pwgWidth, p.pwgLength);
        }
        p.ppd = Unique(standard ? standardPpd : PpdKeyword(p.key), "Paper" + std::to_string(i + 1),
                       ppdTaken, '_');
        caps.papers.push_back(p);
        paperRows.push_back(p.index);
    }
    UniqueIpp(Pointers(caps.papers), "paper-");
    caps.defaultPaper = PositionOf(paperRows, defPaper);

    caps.sources = Family(pdm, DDI_PAPERSOURCE, "Source");
    for (auto &s : caps.sources) s.ipp = SourceIpp(s);
    UniqueIpp(Pointers(caps.sources), "tray-");
    caps.mediaTypes = Family(pdm, DDI_MEDIATYPE, "Media");
    NameMediaTypes(caps.mediaTypes);
    UniqueIpp(Pointers(caps.mediaTypes), "media-");
    caps.bins = Family(pdm, DDI_PAPERDEST, "Bin");
    for (auto &b : caps.bins) b.ipp = IppKeyword(b.ppd);
    UniqueIpp(Pointers(caps.bins), "bin-");

    // Resolutions go by their dots per inch: PPD and IPP both name them so.
    std::vector<std::string> resTaken;
    auto resRows = KeywordOptions(pdm, DDI_RESOLUTION);
    std::vector<int> resIndex;
    for (size_t i = 0; i < resRows.size(); ++i) {
        if (!DDISetDWord(pdm, DDI_RESOLUTION, static_cast<DWORD>(i))) continue;
        Resolution r;
        r.index = static_cast<int>(i);
        r.key = resRows[i].key;
        r.text = resRows[i].translation.empty() ? r.key : resRows[i].translation;
        r.x = pdm->dmPrintQuality, r.y = pdm->dmYResolution;
        if (r.x <= 0 || r.y <= 0) continue;
        r.ppd = r.x == r.y ? std::to_string(r.x) + "dpi"
                           : std::to_string(r.x) + "x" + std::to_string(r.y) + "dpi";
        if (std::find(resTaken.begin(), resTaken.end(), r.ppd) != resTaken.end())
            continue; // two rows of one resolution: the first stands for both
        resTaken.push_back(r.ppd);
        r.ipp = r.ppd;
        caps.resolutions.push_back(r);
        resIndex.push_back(r.index);
    }

    auto rowsOf = [](const auto &v) {
        std::vector<int> out;
        for (const auto &c : v) out.push_back(c.index);
        return out;
    };
    caps.defaultSource =
        PositionOf(rowsOf(caps.sources), DDIGetKeywordDefaultOption(pdm, DDI_PAPERSOURCE));
    caps.defaultMediaType =
        PositionOf(rowsOf(caps.mediaTypes), DDIGetKeywordDefaultOption(pdm, DDI_MEDIATYPE));
    caps.defaultBin = PositionOf(rowsOf(caps.bins), DDIGetKeywordDefaultOption(pdm, DDI_PAPERDEST));
    caps.defaultResolution = PositionOf(resIndex, DDIGetKeywordDefaultOption(pdm, DDI_RESOLUTION));

    std::string dir = windowsDir.empty() ? "." : windowsDir;
    caps.watermarks = ReadWatermarks(dir + "/QMWMARK.INI");
    return caps;
}

// ---- option names --------------------------------------------------------------------------

const OptionName kOptionNames[] = {
    {Option::PageSize, "PageSize", "media"},
    {Option::InputSlot, "InputSlot", "media-source"},
    {Option::MediaType, "MediaType", "media-type"},
    {Option::OutputBin, "OutputBin", "output-bin"},
    {Option::Resolution, "Resolution", "printer-resolution"},
    {Option::Duplex, "Duplex", "sides"},
    {Option::ColorModel, "ColorModel", "print-color-mode"},
    {Option::Collate, "Collate", "collate"},
    {Option::Copies, nullptr, "copies"},
    {Option::NumberUp, nullptr, "number-up"},
    {Option::Orientation, nullptr, "orientation-requested"},
    {Option::PageRanges, nullptr, "page-ranges"},
    {Option::Watermark, "Watermark", "watermark"},
    {Option::WatermarkFirstPage, "FirstPageWatermark", "watermark-first-page-only"},
};
const size_t kOptionNameCount = sizeof kOptionNames / sizeof kOptionNames[0];

const OptionName &NameOf(Option o) {
    for (const auto &n : kOptionNames)
        if (n.option == o) return n;
    return kOptionNames[0]; // every Option has its row
}

const SidesName kSides[3] = {
    {"none", "None", "one-sided"},
    {"long", "DuplexNoTumble", "two-sided-long-edge"},
    {"short", "DuplexTumble", "two-sided-short-edge"},
};

// ---- job options ---------------------------------------------------------------------------

namespace {

struct Options {
    const OptionList &list;
    // The last value given under `name`, case ignored.
    const std::string *Find(const char *name) const {
        if (!name) return nullptr;
        const std::string *v = nullptr;
        for (const auto &[n, value] : list)
            if (strcasecmp(n.c_str(), name) == 0) v = &value;
        return v;
    }
    // The PPD-named value, else the IPP-named one; `from` says which name gave it.
    const std::string *Of(Option o, const char **from = nullptr) const {
        const OptionName &n = NameOf(o);
        if (const std::string *v = Find(n.ppd)) {
            if (from) *from = n.ppd;
            return v;
        }
        if (from) *from = n.ipp;
        return Find(n.ipp);
    }
};

template <typename T>
const T *Match(const std::vector<T> &choices, const std::string &value) {
    for (const auto &c : choices)
        if (Same(c.ppd, value) || Same(c.ipp, value)) return &c;
    for (const auto &c : choices)
        if (Same(c.key, value) || Same(c.text, value)) return &c;
    return nullptr;
}

template <typename T>
std::string Offer(const std::vector<T> &choices) {
    std::string s;
    for (const auto &c : choices) s += (s.empty() ? "" : ", ") + c.ppd;
    return s.empty() ? "none" : s;
}

// What ApplySettings is given to select `row` of a family whose rows are `keys`: the key when it
// names that row first, else the row's number, which a key can't shadow then.
std::string Selector(const std::vector<std::string> &keys, int row) {
    const std::string &key = keys[static_cast<size_t>(row)];
    for (size_t i = 0; i < keys.size(); ++i)
        if (Same(keys[i], key)) {
            if (static_cast<int>(i) == row && !key.empty()) return key;
            break;
        }
    return std::to_string(row);
}

std::vector<std::string> PaperKeys(const Capabilities &caps) {
    int n = caps.custom.allowed ? caps.custom.index + 1 : 0;
    for (const auto &p : caps.papers) n = std::max(n, p.index + 1);
    std::vector<std::string> keys(static_cast<size_t>(n));
    for (const auto &p : caps.papers) keys[static_cast<size_t>(p.index)] = p.key;
    if (caps.custom.allowed) keys[static_cast<size_t>(caps.custom.index)] = caps.custom.key;
    return keys;
}

template <typename T>
std::vector<std::string> Keys(const std::vector<T> &choices) {
    int n = 0;
    for (const auto &c : choices) n = std::max(n, c.index + 1);
    std::vector<std::string> keys(static_cast<size_t>(n));
    for (const auto &c : choices) keys[static_cast<size_t>(c.index)] = c.key;
    return keys;
}

bool Truth(const std::string &v, bool &out) {
    static const char *const kTrue[] = {"true", "yes", "on", "1", ""};
    static const char *const kFalse[] = {"false", "no", "off", "0"};
    for (const char *t : kTrue)
        if (Same(v, t)) return out = true, true;
    for (const char *f : kFalse)
        if (Same(v, f)) return out = false, true;
    return false;
}

// IPP's collection text, as CUPS passes it: {name=value name={...} name="text"}; the members of
// the top level in order.
OptionList ParseCollection(const std::string &text) {
    OptionList out;
    size_t i = 0, n = text.size();
    auto skipBlanks = [&] {
        while (i < n && (text[i] == ' ' || text[i] == '\t')) ++i;
    };
    skipBlanks();
    if (i < n && text[i] == '{') ++i;
    for (;;) {
        skipBlanks();
        if (i >= n || text[i] == '}') break;
        size_t nameStart = i;
        while (i < n && text[i] != '=' && text[i] != ' ' && text[i] != '}') ++i;
        std::string name = text.substr(nameStart, i - nameStart);
        std::string value;
        if (i < n && text[i] == '=') {
            ++i;
            if (i < n && text[i] == '{') {
                size_t start = i;
                int depth = 0;
                for (; i < n; ++i) {
                    if (text[i] == '{') ++depth;
                    if (text[i] == '}' && --depth == 0) {
                        ++i;
                        break;
                    }
                }
                value = text.substr(start, i - start);
            } else if (i < n && (text[i] == '"' || text[i] == '\'')) {
                char q = text[i++];
                while (i < n && text[i] != q) {
                    if (text[i] == '\\' && i + 1 < n) ++i;
                    value += text[i++];
                }
                if (i < n) ++i;
            } else {
                size_t start = i;
                while (i < n && text[i] != ' ' && text[i] != '}') ++i;
                value = text.substr(start, i - start);
            }
        }
        if (name.empty()) {
            if (i < n) ++i; // a stray character: step over it
            continue;
        }
        out.emplace_back(name, value);
    }
    return out;
}

struct Mapper {
    const Capabilities &caps;
    JobSettings &s;

    // A size in points: a paper of the description with that size, else the custom paper.
    void SelectSize(double w, double h, const std::string &what) {
        int pw = PwgFromPoints(w), ph = PwgFromPoints(h);
        for (const auto &p : caps.papers)
            if (std::abs(p.pwgWidth - pw) <= kSizeSlack &&
                std::abs(p.pwgLength - ph) <= kSizeSlack) {
                s.paper = Selector(PaperKeys(caps), p.index);
                s.custom.clear();
                return;
            }
        if (!caps.custom.allowed)
            Fail("%s: the printer has no paper of %.1f x %.1f points and no custom size (it has: "
                 "%s)",
                 what.c_str(), w, h, Offer(caps.papers).c_str());
        const CustomRange &c = caps.custom;
        if (w < c.minWidth - 0.05 || w > c.maxWidth + 0.05 || h < c.minLength - 0.05 ||
            h > c.maxLength + 0.05)
            Fail("%s: %.1f x %.1f points is outside the custom size range (%.1f x %.1f to %.1f x "
                 "%.1f points)",
                 what.c_str(), w, h, c.minWidth, c.minLength, c.maxWidth, c.maxLength);
        char b[64];
        std::snprintf(b, sizeof b, "%.2fx%.2f", w, h);
        s.custom = b;
        s.paper.clear();
    }

    // A paper by any of its names, a PWG size name or "Custom.WxH"; false when `v` is none.
    bool Paper(const std::string &v, const std::string &what) {
        if (const auto *p = Match(caps.papers, v)) {
            s.paper = Selector(PaperKeys(caps), p->index);
            s.custom.clear();
            return true;
        }
        double w = 0, h = 0;
        if (StartsWith(v, "Custom.") && ParseDimensions(v.substr(7), w, h)) {
            SelectSize(w, h, what);
            return true;
        }
        int pw = 0, ph = 0;
        if (ParsePwgSize(v, pw, ph)) {
            SelectSize(PointsFromPwg(pw), PointsFromPwg(ph), what);
            return true;
        }
        return false;
    }

    bool Source(const std::string &v) {
        const Choice *c = Match(caps.sources, v);
        if (c) s.source = Selector(Keys(caps.sources), c->index);
        return c != nullptr;
    }
    bool MediaType(const std::string &v) {
        const Choice *c = Match(caps.mediaTypes, v);
        if (c) s.media = Selector(Keys(caps.mediaTypes), c->index);
        return c != nullptr;
    }

    // IPP's media-col: a size by its dimensions, a source, a type.
    void MediaCol(const std::string &text) {
        for (const auto &[name, value] : ParseCollection(text)) {
            if (name == "media-size") {
                int w = 0, h = 0;
                for (const auto &[n, v] : ParseCollection(value)) {
                    if (n == "x-dimension") w = std::atoi(v.c_str());
                    if (n == "y-dimension") h = std::atoi(v.c_str());
                }
                if (w <= 0 || h <= 0)
                    Fail("media-col: media-size \"%s\" has no size", value.c_str());
                SelectSize(PointsFromPwg(w), PointsFromPwg(h), "media-col");
            } else if (name == "media-size-name") {
                if (!Paper(value, "media-col"))
                    Fail("media-col: unknown media-size-name \"%s\" (the printer has: %s)",
                         value.c_str(), Offer(caps.papers).c_str());
            } else if (name == "media-source") {
                if (!Source(value))
                    Fail("media-col: unknown media-source \"%s\" (the printer has: %s)",
                         value.c_str(), Offer(caps.sources).c_str());
            } else if (name == "media-type") {
                if (!MediaType(value))
                    Fail("media-col: unknown media-type \"%s\" (the printer has: %s)",
                         value.c_str(), Offer(caps.mediaTypes).c_str());
            }
        }
    }
};

} // namespace

JobOptions MapOptions(const Capabilities &caps, const OptionList &list) {
    JobOptions out;
    JobSettings &s = out.settings;
    Options o{list};
    Mapper m{caps, s};
    const char *from = nullptr;

    // Size, source and type: media-col first, then media (which may list all three, as CUPS
    // has long allowed: media=A4,Tray2), then the PPD options, the most specific.
    if (const std::string *v = o.Find("media-col")) m.MediaCol(*v);
    if (const std::string *v = o.Find("media")) {
        size_t start = 0;
        while (start <= v->size()) {
            size_t comma = v->find(',', start);
            std::string part = v->substr(start, comma == std::string::npos ? comma : comma - start);
            start = comma == std::string::npos ? v->size() + 1 : comma + 1;
            if (part.empty()) continue;
            if (!m.Paper(part, "media") && !m.Source(part) && !m.MediaType(part))
                Fail("media \"%s\": the printer has no such paper, source or media type (papers: "
                     "%s)",
                     part.c_str(), Offer(caps.papers).c_str());
        }
    }
    for (const char *name : {"PageRegion", "PageSize"})
        if (const std::string *v = o.Find(name))
            if (!m.Paper(*v, name))
                Fail("%s \"%s\": no such paper (the printer has: %s%s)", name, v->c_str(),
                     Offer(caps.papers).c_str(), caps.custom.allowed ? ", Custom.WxH" : "");
    if (const std::string *v = o.Find("media-source"); v && !o.Find("InputSlot") && !m.Source(*v))
        Fail("media-source \"%s\": no such source (the printer has: %s)", v->c_str(),
             Offer(caps.sources).c_str());
    if (const std::string *v = o.Find("InputSlot"); v && !m.Source(*v))
        Fail("InputSlot \"%s\": no such source (the printer has: %s)", v->c_str(),
             Offer(caps.sources).c_str());
    if (const std::string *v = o.Find("media-type"); v && !o.Find("MediaType") && !m.MediaType(*v))
        Fail("media-type \"%s\": no such media type (the printer has: %s)", v->c_str(),
             Offer(caps.mediaTypes).c_str());
    if (const std::string *v = o.Find("MediaType"); v && !m.MediaType(*v))
        Fail("MediaType \"%s\": no such media type (the printer has: %s)", v->c_str(),
             Offer(caps.mediaTypes).c_str());

    if (const std::string *v = o.Of(Option::OutputBin, &from)) {
        const Choice *c = Match(caps.bins, *v);
        if (!c)
            Fail("%s \"%s\": no such output bin (the printer has: %s)", from, v->c_str(),
                 Offer(caps.bins).c_str());
        s.bin = Selector(Keys(caps.bins), c->index);
    }

    if (const std::string *v = o.Of(Option::Resolution, &from)) {
        const Resolution *r = Match(caps.resolutions, *v);
        int x = 0, y = 0;
        char tail[8] = {};
        if (!r && std::sscanf(v->c_str(), "%dx%d%7s", &x, &y, tail) >= 2) {
        } else if (!r && std::sscanf(v->c_str(), "%d%7s", &x, tail) >= 1) {
            y = x;
        }
        if (!r && x > 0 && (!tail[0] || std::strcmp(tail, "dpi") == 0))
            for (const auto &c : caps.resolutions)
                if (c.x == x && c.y == y) r = &c;
        if (!r)
            Fail("%s \"%s\": no such resolution (the printer has: %s)", from, v->c_str(),
                 Offer(caps.resolutions).c_str());
        s.resolution = Selector(Keys(caps.resolutions), r->index);
    }

    // Both sides only where the model has a duplex unit; a simplex model prints one side.
    if (const std::string *v = o.Of(Option::Duplex, &from)) {
        const SidesName *side = nullptr;
        for (const auto &k : kSides)
            if (Same(*v, k.ppd) || Same(*v, k.ipp)) side = &k;
        if (!side)
            Fail("%s \"%s\": expected one-sided, two-sided-long-edge or two-sided-short-edge "
                 "(None, DuplexNoTumble, DuplexTumble)",
                 from, v->c_str());
        s.duplex = caps.duplex ? side->duplex : "none";
    }

    // A colour model prints grey in PCL 5e, the language of its monochrome siblings.
    if (const std::string *v = o.Of(Option::ColorModel, &from)) {
        static const char *const kGrey[] = {
            "Gray",     "Grayscale",       "monochrome", "process-monochrome", "auto-monochrome",
            "bi-level", "process-bi-level"};
        static const char *const kColour[] = {"RGB", "CMYK", "Color", "color", "auto"};
        bool grey = false, known = false;
        for (const char *g : kGrey) grey = grey || Same(*v, g);
        known = grey;
        for (const char *c : kColour) known = known || Same(*v, c);
        if (!known) Fail("%s \"%s\": expected color or monochrome (RGB or Gray)", from, v->c_str());
        if (caps.colour) s.emulation = grey ? "PCL5e" : "PCL5eC";
    }

    bool collate = false;
    if (const std::string *v = o.Of(Option::Collate, &from)) {
        if (!Truth(*v, collate)) Fail("%s \"%s\": expected true or false", from, v->c_str());
    } else if (const std::string *v = o.Find("multiple-document-handling")) {
        collate = v->find("uncollated") == std::string::npos;
    }
    s.collate = collate;

    if (const std::string *v = o.Of(Option::Copies)) {
        char *end = nullptr;
        long n = std::strtol(v->c_str(), &end, 10);
        if (v->empty() || *end || n < 1 || n > 32767)
            Fail("copies \"%s\": expected a number from 1 to 32767", v->c_str());
        s.copies = static_cast<int>(n);
    }

    if (const std::string *v = o.Of(Option::NumberUp)) {
        char *end = nullptr;
        long n = std::strtol(v->c_str(), &end, 10);
        bool ok = !v->empty() && !*end;
        ok = ok && (n == 1 || n == 2 || n == 4 || n == 6 || n == 9 || n == 16);
        if (!ok)
            Fail("number-up \"%s\": the printer places 1, 2, 4, 6, 9 or 16 pages a sheet",
                 v->c_str());
        s.nup = static_cast<int>(n);
    }

    if (const std::string *v = o.Of(Option::Orientation)) {
        static const struct {
            const char *ipp, *word, *orientation;
        } kOrient[] = {
            {"3", "portrait", "portrait"},
            {"4", "landscape", "landscape"},
            {"5", "reverse-landscape", "reverse-landscape"},
            {"6", "reverse-portrait", "reverse-portrait"},
            {"7", "none", ""},
        };
        bool known = false;
        for (const auto &k : kOrient)
            if (Same(*v, k.ipp) || Same(*v, k.word)) s.orientation = k.orientation, known = true;
        if (!known)
            Fail("orientation-requested \"%s\": expected 3 to 6 (portrait, landscape, "
                 "reverse-landscape, reverse-portrait)",
                 v->c_str());
    } else if (const std::string *v = o.Find("landscape")) {
        bool on = false;
        if (Truth(*v, on) && on) s.orientation = "landscape";
    }

    if (const std::string *v = o.Of(Option::PageRanges)) {
        try {
            ParsePageRanges(*v);
        } catch (const Error &e) {
            Fail("page-ranges \"%s\": %s", v->c_str(), e.what());
        }
        out.pageRanges = *v;
    }

    if (const std::string *v = o.Of(Option::Watermark, &from)) {
        if (Same(*v, "None") || *v == "0" || v->empty()) {
            s.watermark = 0;
        } else if (const Watermark *w = Match(caps.watermarks, *v)) {
            s.watermark = w->index;
        } else {
            const Watermark *byLabel = nullptr;
            for (const auto &w : caps.watermarks)
                if (Same(w.label, *v) || std::to_string(w.index) == *v) byLabel = &w;
            if (!byLabel)
                Fail("%s \"%s\": no such watermark (QMWMARK.INI has: None%s%s)", from, v->c_str(),
                     caps.watermarks.empty() ? "" : ", ",
                     caps.watermarks.empty() ? "" : Offer(caps.watermarks).c_str());
            s.watermark = byLabel->index;
        }
    }
    if (const std::string *v = o.Of(Option::WatermarkFirstPage, &from)) {
        bool first = false;
        if (!Truth(*v, first)) Fail("%s \"%s\": expected true or false", from, v->c_str());
        s.watermarkFirstPage = first;
    }
    return out;
}

} // namespace q417::pages
