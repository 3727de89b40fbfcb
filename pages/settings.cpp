// Job settings to the device mode, and the page geometry that follows from it.
#include "settings.h"
#include "common.h"
#include "printer.h"

#include <cstdio>
#include <initializer_list>
#include <strings.h>
#include <utility>

namespace q417::pages {

static void Select(DDIDEVMODE *pdm, const std::string &family, const std::string &value) {
    if (value.empty()) return;
    const Keyword *k = FindKeyword(family);
    int index = ResolveOption(pdm, *k, value);
    if (!DDISetDWord(pdm, k->id, static_cast<DWORD>(index)))
        Fail("%s \"%s\": refused by the library", family.c_str(), value.c_str());
}

static DWORD Word(const std::string &value, const char *what,
           std::initializer_list<std::pair<const char *, DWORD>> words) {
    for (const auto &[w, v] : words)
        if (strcasecmp(w, value.c_str()) == 0) return v;
    return static_cast<DWORD>(ParseNumber(value, what));
}

// "WxH" in points, or with "mm" behind it in millimetres; decipoints back.
static std::pair<DWORD, DWORD> CustomSize(const std::string &s) {
    double w = 0, h = 0;
    char unit[8] = {};
    int got = std::sscanf(s.c_str(), "%lfx%lf%7s", &w, &h, unit);
    bool mm = got == 3 && strcasecmp(unit, "mm") == 0;
    if (got < 2 || (got == 3 && !mm && strcasecmp(unit, "pt") != 0) || w <= 0 || h <= 0)
        Fail("--custom \"%s\": expected WIDTHxHEIGHT in points, or with mm behind", s.c_str());
    double f = mm ? 7200.0 / 254.0 : 10.0;
    return {static_cast<DWORD>(w * f), static_cast<DWORD>(h * f)};
}

void ApplySettings(DDIDEVMODE *pdm, const JobSettings &o) {
    Select(pdm, "paper", o.paper);
    Select(pdm, "source", o.source);
    Select(pdm, "bin", o.bin);
    Select(pdm, "media", o.media);
    Select(pdm, "resolution", o.resolution);
    if (!o.orientation.empty()) {
        DWORD code = Word(
            o.orientation, "--orientation",
            {{"portrait", 0}, {"landscape", 1}, {"reverse-portrait", 2}, {"reverse-landscape", 3}});
        if (!DDISetDWord(pdm, DDI_PAGEORIENT, code))
            Fail("--orientation %s: out of range (portrait, landscape, reverse-portrait, "
                 "reverse-landscape or 0 to 3)",
                 o.orientation.c_str());
    }
    if (o.copies != -1) {
        if (o.copies < 1 || o.copies > 32767)
            Fail("--copies %d: out of range (1 to 32767)", o.copies);
        DDISetDWord(pdm, DDI_COPIES, static_cast<DWORD>(o.copies));
    }
    if (!o.duplex.empty()) {
        DWORD d =
            Word(o.duplex, "--duplex", {{"none", 1}, {"simplex", 1}, {"long", 2}, {"short", 3}});
        if (DDISetDWord(pdm, DDI_DUPLEX, d) == 0xFFFFFFFFu)
            Fail("--duplex %s: out of range (none, long, short or 0 to 3)", o.duplex.c_str());
    }
    if (o.collate) DDISetDWord(pdm, DDI_COLLATE, 1);
    if (!o.emulation.empty()) {
        DWORD e = Word(o.emulation, "--emulation",
                       {{"PCL5", 1}, {"PCL5e", 2}, {"PCL5C", 3}, {"PCL5eC", 4}});
        if (!DDISetDWord(pdm, DDI_EMULATION, e))
            Fail("--emulation %s: out of range (PCL5, PCL5e, PCL5C, PCL5eC or 1 to 6)",
                 o.emulation.c_str());
    }
    if (o.nup != -1 && !DDISetDWord(pdm, DDI_PAGESPERSHEET, static_cast<DWORD>(o.nup)))
        Fail("--nup %d: out of range (1, 2, 4, 6, 9 or 16)", o.nup);
    if (o.watermark != -1) {
        if (o.watermark < 0 || o.watermark > 65535)
            Fail("--watermark %d: out of range (0 to 65535)", o.watermark);
        DDISetDWord(pdm, DDI_WATERMARK, static_cast<DWORD>(o.watermark));
    }
    if (o.watermarkFirstPage) DDISetDWord(pdm, DDI_WMFIRSTPAGE, 1);
    if (!o.custom.empty()) {
        CFGINFO cfg{};
        Q417_ReadBlock(pdm->hConfig, &cfg, sizeof cfg);
        if (cfg.nCustomPaper < 0) Fail("--custom: the printer has no custom paper size");
        auto [w, h] = CustomSize(o.custom);
        DWORD minW = DDIGetDWord(pdm, DDI_CUSTMINWIDTH), maxW = DDIGetDWord(pdm, DDI_CUSTMAXWIDTH);
        DWORD minH = DDIGetDWord(pdm, DDI_CUSTMINHEIGHT),
              maxH = DDIGetDWord(pdm, DDI_CUSTMAXHEIGHT);
        if ((minW && w < minW) || (maxW && w > maxW) || (minH && h < minH) || (maxH && h > maxH))
            Fail("--custom %s: out of range (%.1f x %.1f to %.1f x %.1f points)", o.custom.c_str(),
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
