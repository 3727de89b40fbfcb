// Job settings to the device mode, and the page geometry that follows from it.
#include "settings.h"
#include "common.h"
#include "printer.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <initializer_list>
#include <strings.h>
#include <utility>

namespace q417::pages {

namespace {

void Select(DDIDEVMODE *pdm, const std::string &family, const std::string &value) {
    if (value.empty()) return;
    const Keyword *k = FindKeyword(family);
    int index = ResolveOption(pdm, *k, value);
    if (!DDISetDWord(pdm, k->id, static_cast<DWORD>(index)))
        FailSetting("%s \"%s\": refused by the library", family.c_str(), value.c_str());
}

struct Word {
    const char *word;
    DWORD value;
};

// The value of a word (case ignored); FailSetting()s listing `accepts` when there is none.
template <size_t N>
DWORD Lookup(const std::string &value, const char *what, const Word (&words)[N],
             const char *accepts) {
    for (const Word &w : words)
        if (strcasecmp(w.word, value.c_str()) == 0) return w.value;
    FailSetting("%s \"%s\": expected %s", what, value.c_str(), accepts);
}

const Word kOrientations[] = {{"portrait", 0},
                              {"landscape", 1},
                              {"reverse-portrait", 2},
                              {"reverse-landscape", 3},
                              {"0", 0},
                              {"1", 1},
                              {"2", 2},
                              {"3", 3}};

// The device mode's duplex 2 reaches the printer as PCL's short-edge binding (ESC&l2S) and 3
// as long-edge binding (ESC&l1S): a binding edge is asked for by the edge it names. The IPP
// and PPD words are here too, so every front end passes its own words straight through.
const Word kDuplexModes[] = {{"none", 1},
                             {"simplex", 1},
                             {"one-sided", 1},
                             {"long", 3},
                             {"two-sided-long-edge", 3},
                             {"DuplexNoTumble", 3},
                             {"short", 2},
                             {"two-sided-short-edge", 2},
                             {"DuplexTumble", 2}};

const Word kEmulations[] = {{"PCL5", 1}, {"PCL5e", 2}, {"PCL5C", 3}, {"PCL5eC", 4}, {"1", 1},
                            {"2", 2},    {"3", 3},     {"4", 4},     {"5", 5},      {"6", 6}};

const int kNups[] = {1, 2, 4, 6, 9, 16};

// "WxH" in points, or with "mm" (or "pt") behind it; decipoints back.
std::pair<DWORD, DWORD> CustomSize(const std::string &s) {
    double w = 0, h = 0;
    char unit[8] = {};
    int got = std::sscanf(s.c_str(), "%lfx%lf%7s", &w, &h, unit);
    bool mm = got == 3 && strcasecmp(unit, "mm") == 0;
    bool pt = got == 3 && strcasecmp(unit, "pt") == 0;
    // Up to 10 m a side: anything larger is a typing mistake, and stays far from overflow.
    constexpr double kMaxPoints = 28346.0;
    double f = mm ? 7200.0 / 254.0 : 10.0;
    if (got < 2 || (got == 3 && !mm && !pt) || !(w > 0) || !(h > 0) || w * f > kMaxPoints * 10 ||
        h * f > kMaxPoints * 10)
        FailSetting("--custom \"%s\": expected WIDTHxHEIGHT in points (or with mm behind), "
                    "each above 0 and up to 10 m",
                    s.c_str());
    return {static_cast<DWORD>(w * f), static_cast<DWORD>(h * f)};
}

} // namespace

void CheckSettings(const JobSettings &o) {
    if (!o.orientation.empty())
        Lookup(o.orientation, "--orientation", kOrientations,
               "portrait, landscape, reverse-portrait or reverse-landscape");
    if (!o.duplex.empty())
        Lookup(o.duplex, "--duplex", kDuplexModes,
               "none, long (long-edge binding) or short (short-edge binding)");
    if (!o.emulation.empty())
        Lookup(o.emulation, "--emulation", kEmulations, "PCL5, PCL5e, PCL5C, PCL5eC or 1 to 6");
    if (o.copies != -1 && (o.copies < 1 || o.copies > 32767))
        FailSetting("--copies %d: expected 1 to 32767", o.copies);
    if (o.nup != -1 && std::find(std::begin(kNups), std::end(kNups), o.nup) == std::end(kNups))
        FailSetting("--nup %d: expected 1, 2, 4, 6, 9 or 16", o.nup);
    if (o.watermark != -1 && (o.watermark < 0 || o.watermark > 65535))
        FailSetting("--watermark %d: expected 0 (none) to 65535", o.watermark);
    if (!o.custom.empty()) CustomSize(o.custom);
}

void ApplySettings(DDIDEVMODE *pdm, const JobSettings &o) {
    CheckSettings(o);
    Select(pdm, "paper", o.paper);
    Select(pdm, "source", o.source);
    Select(pdm, "bin", o.bin);
    Select(pdm, "media", o.media);
    Select(pdm, "resolution", o.resolution);
    if (!o.orientation.empty()) {
        DWORD code = Lookup(o.orientation, "--orientation", kOrientations, "");
        if (!DDISetDWord(pdm, DDI_PAGEORIENT, code))
            FailSetting("--orientation %s: refused by the library", o.orientation.c_str());
    }
    if (o.copies != -1) DDISetDWord(pdm, DDI_COPIES, static_cast<DWORD>(o.copies));
    if (!o.duplex.empty()) {
        DWORD d = Lookup(o.duplex, "--duplex", kDuplexModes, "");
        if (DDISetDWord(pdm, DDI_DUPLEX, d) == 0xFFFFFFFFu)
            FailSetting("--duplex %s: refused by the library", o.duplex.c_str());
    }
    if (o.collate) DDISetDWord(pdm, DDI_COLLATE, 1);
    if (!o.emulation.empty()) {
        DWORD e = Lookup(o.emulation, "--emulation", kEmulations, "");
        if (!DDISetDWord(pdm, DDI_EMULATION, e))
            FailSetting("--emulation %s: refused by the library", o.emulation.c_str());
    }
    if (o.nup != -1 && !DDISetDWord(pdm, DDI_PAGESPERSHEET, static_cast<DWORD>(o.nup)))
        FailSetting("--nup %d: refused by the library", o.nup);
    if (o.watermark != -1) DDISetDWord(pdm, DDI_WATERMARK, static_cast<DWORD>(o.watermark));
    if (o.watermarkFirstPage) DDISetDWord(pdm, DDI_WMFIRSTPAGE, 1);
    if (!o.custom.empty()) {
        CFGINFO cfg{};
        Q417_ReadBlock(pdm->hConfig, &cfg, sizeof cfg);
        if (cfg.nCustomPaper < 0) FailSetting("--custom: the printer has no custom paper size");
        auto [w, h] = CustomSize(o.custom);
        DWORD minW = DDIGetDWord(pdm, DDI_CUSTMINWIDTH), maxW = DDIGetDWord(pdm, DDI_CUSTMAXWIDTH);
        DWORD minH = DDIGetDWord(pdm, DDI_CUSTMINHEIGHT),
              maxH = DDIGetDWord(pdm, DDI_CUSTMAXHEIGHT);
        if ((minW && w < minW) || (maxW && w > maxW) || (minH && h < minH) || (maxH && h > maxH))
            FailSetting("--custom %s: expected %.1f x %.1f to %.1f x %.1f points", o.custom.c_str(),
                        minW / 10.0, minH / 10.0, maxW / 10.0, maxH / 10.0);
        DDISetDWord(pdm, DDI_PAPERSIZE, static_cast<DWORD>(cfg.nCustomPaper));
        DDISetDWord(pdm, DDI_CUSTWIDTH, w);
        DDISetDWord(pdm, DDI_CUSTHEIGHT, h);
    }
}

// Page geometry from the selected paper's dimensions, in the job's orientation.
PageGeometry Geometry(DDIDEVMODE *pdm) {
    bool custom = DDIGetDWord(pdm, DDI_CUSTOMPAPER) == 1;
    auto get = [&](DWORD id) {
        DWORD v = DDIGetDWord(pdm, id);
        if (v == 0xFFFFFFFFu) Fail("the library can't tell the paper's dimensions");
        return static_cast<int32_t>(v);
    };
    bool landscape = pdm->dmOrientation == 2;
    PageGeometry g;
    int32_t w = get(DDI_PAPERWIDTH), h = get(DDI_PAPERHEIGHT);
    int32_t iw = get(DDI_IMAGEWIDTH), ih = get(DDI_IMAGEHEIGHT);
    int32_t il = get(DDI_IMAGELEFT), it = get(DDI_IMAGETOP);
    if (custom) { // the custom row's landscape half keeps the description's size
        w = static_cast<int32_t>(pdm->wCustWidth), h = static_cast<int32_t>(pdm->wCustHeight);
        il = get(DDI_CUSTMARGINLEFT), it = get(DDI_CUSTMARGINTOP);
        iw = w - il - get(DDI_CUSTMARGINRIGHT), ih = h - it - get(DDI_CUSTMARGINBOTTOM);
        if (landscape) std::swap(iw, ih), std::swap(il, it);
    }
    g.cxPaper = landscape ? h : w;
    g.cyPaper = landscape ? w : h;
    // A paper described with a portrait area only has the same area in landscape: turn it.
    if ((iw < ih) != (g.cxPaper < g.cyPaper) && iw != ih) std::swap(iw, ih), std::swap(il, it);
    g.cxPrintable = iw, g.cyPrintable = ih, g.cxMargin = il, g.cyMargin = it;
    if (g.cxPaper <= 0 || g.cyPaper <= 0 || iw <= 0 || ih <= 0)
        Fail("the paper's dimensions are incomplete in the printer description");
    return g;
}

} // namespace q417::pages
