// PPD text from a printer's capabilities. The options are named from pages/options, the same
// table the filter reads job options by, so that what a dialog offers is what the filter takes.
#include "ppd_writer.h"

#include "common.h"
#include "format.h"
#include "printer.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <climits>
#include <cstdlib>
#include <cstring>

#ifndef Q417_VERSION
#define Q417_VERSION "1.0.9"
#endif

namespace q417::cups {

using pages::Fail;
using pages::Format;

const char kFilterName[] = "q417pcl";
const char kStreamType[] = "application/vnd.q417-pcl";
const char kPddAttr[] = "q417PDD";
const char kWindowsDirAttr[] = "q417WindowsDir";

namespace {

// A translation string in ISOLatin1: characters beyond it become '?', and the characters that
// would end or break the string go as hex (<3A>); at most 80 bytes, as CUPS keeps them.
std::string Translation(const std::string &utf8) {
    std::string out;
    for (size_t i = 0; i < utf8.size() && out.size() < 76;) {
        unsigned char c = static_cast<unsigned char>(utf8[i]);
        unsigned cp = c;
        size_t len = 1;
        if (c >= 0xC0 && c < 0xE0 && i + 1 < utf8.size())
            cp = (c & 0x1Fu) << 6 | (utf8[i + 1] & 0x3Fu), len = 2;
        else if (c >= 0xE0 && c < 0xF0)
            cp = 0x100, len = 3;
        else if (c >= 0xF0)
            cp = 0x100, len = 4;
        else if (c >= 0x80)
            cp = 0x100; // a stray continuation byte
        i += len;
        if (cp == ':' || cp == '<' || cp == '>' || cp == '"' || cp < 32 || cp == 127)
            out += Format("<%02X>", cp & 0xFF);
        else if (cp > 0xFF)
            out += '?';
        else
            out += static_cast<char>(cp);
    }
    return out;
}

// A quoted value: no quote can stand in it.
std::string Quoted(const std::string &s, const char *what) {
    if (s.find('"') != std::string::npos)
        Fail("%s \"%s\": a PPD value can't hold a quote", what, s.c_str());
    return "\"" + s + "\"";
}

// Points as PPD writes them: no more decimals than needed.
std::string Pt(double v) {
    std::string s = Format("%.2f", v);
    while (s.back() == '0') s.pop_back();
    if (s.back() == '.') s.pop_back();
    return s;
}

struct Writer {
    std::string out;

    void Line(const std::string &s) { out += s + "\n"; }

    void OpenUI(const char *keyword, const char *title, const char *type, int order,
                const std::string &def) {
        Line(Format("*OpenUI *%s/%s: %s", keyword, title, type));
        Line(Format("*OrderDependency: %d AnySetup *%s", order, keyword));
        Line(Format("*Default%s: %s", keyword, def.c_str()));
    }
    void Choice(const char *keyword, const std::string &choice, const std::string &text,
                const std::string &code) {
        Line(Format("*%s %s/%s: \"%s\"", keyword, choice.c_str(), Translation(text).c_str(),
                    code.c_str()));
    }
    void CloseUI(const char *keyword) { Line(Format("*CloseUI: *%s", keyword)); }

    template <typename T>
    void PickOne(const char *keyword, const char *title, int order, const std::vector<T> &choices,
                 int def, std::string (*code)(const T &)) {
        if (choices.empty()) return;
        OpenUI(keyword, title, "PickOne", order, choices[def < 0 ? 0 : def].ppd);
        for (const T &c : choices) Choice(keyword, c.ppd, c.text, code(c));
        CloseUI(keyword);
        Line("");
    }
};

std::string Manufacturer(const std::string &model) {
    size_t space = model.find(' ');
    std::string m = model.substr(0, space);
    return m.empty() ? "Generic" : m;
}

} // namespace

std::string PpdFileName(const std::string &pdd) {
    size_t slash = pdd.rfind('/');
    std::string base = pdd.substr(slash == std::string::npos ? 0 : slash + 1);
    size_t dot = base.rfind('.');
    if (dot != std::string::npos && dot > 0) base = base.substr(0, dot);
    std::string name;
    for (char c : base)
        if (std::isalnum(static_cast<unsigned char>(c)) && name.size() < 8)
            name += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return (name.empty() ? "q417" : name) + ".ppd";
}

std::string MakePpd(const pages::Capabilities &caps, const PpdSource &source) {
    using pages::Option;
    if (caps.papers.empty()) Fail("%s: no paper a PPD could offer", caps.pdd.c_str());
    Writer w;
    std::string model = caps.model.empty() ? "Printer" : caps.model;
    std::string make = Manufacturer(model);
    std::string shortName = model.substr(0, 31);
    w.Line("*PPD-Adobe: \"4.3\"");
    w.Line("*% Made by q417plg " Q417_VERSION " from " + Translation(caps.pdd));
    w.Line("*FormatVersion: \"4.3\"");
    w.Line("*FileVersion: \"" Q417_VERSION "\"");
    w.Line("*LanguageVersion: English");
    w.Line("*LanguageEncoding: ISOLatin1");
    w.Line("*PCFileName: " + Quoted(PpdFileName(caps.pdd), "file name"));
    w.Line("*Product: " + Quoted("(" + Translation(model) + ")", "model"));
    w.Line("*Manufacturer: " + Quoted(Translation(make), "model"));
    w.Line("*ModelName: " + Quoted(Translation(model), "model"));
    w.Line("*ShortNickName: " + Quoted(Translation(shortName), "model"));
    w.Line("*NickName: " + Quoted(Translation(model) + ", q417plg " Q417_VERSION, "model"));
    w.Line("*PSVersion: \"(3010.000) 0\"");
    w.Line("*LanguageLevel: \"3\"");
    w.Line(std::string("*ColorDevice: ") + (caps.colour ? "True" : "False"));
    w.Line(std::string("*DefaultColorSpace: ") + (caps.colour ? "RGB" : "Gray"));
    w.Line("*FileSystem: False");
    w.Line("*TTRasterizer: Type42");
    w.Line("*cupsVersion: 2.4");
    // The printer makes the copies, and our filter takes PDF itself: CUPS's pdftopdf, which
    // would place pages N-up and repeat them for copies, stays out of the chain. Text, images
    // and PostScript come to PDF through CUPS's own filters; raster is taken as it is.
    w.Line("*cupsManualCopies: False");
    w.Line(Format("*cupsFilter2: \"application/pdf %s 0 %s\"", kStreamType, kFilterName));
    w.Line(Format("*cupsFilter2: \"application/vnd.cups-pdf %s 0 %s\"", kStreamType, kFilterName));
    w.Line(Format("*cupsFilter2: \"application/vnd.cups-raster %s 100 %s\"", kStreamType,
                  kFilterName));
    w.Line(Format("*%s: %s", kPddAttr, Quoted(source.pdd, "PDD path").c_str()));
    if (!source.windowsDir.empty())
        w.Line(Format("*%s: %s", kWindowsDirAttr, Quoted(source.windowsDir, "folder").c_str()));
    w.Line("");

    // Papers: PageSize and PageRegion offer the same choices, the two tables beside them give
    // each paper's printable area and size.
    const auto &papers = caps.papers;
    const std::string &def = papers[caps.defaultPaper < 0 ? 0 : caps.defaultPaper].ppd;
    auto sizeCode = [](const pages::Paper &p) {
        return Format("<</PageSize[%s %s]/ImageableArea null>>setpagedevice", Pt(p.width).c_str(),
                      Pt(p.length).c_str());
    };
    const char *size = pages::NameOf(Option::PageSize).ppd;
    w.OpenUI(size, "Media Size", "PickOne", 10, def);
    for (const auto &p : papers) w.Choice(size, p.ppd, p.text, sizeCode(p));
    w.CloseUI(size);
    w.OpenUI("PageRegion", "Media Size", "PickOne", 10, def);
    for (const auto &p : papers) w.Choice("PageRegion", p.ppd, p.text, sizeCode(p));
    w.CloseUI("PageRegion");
    w.Line("*DefaultImageableArea: " + def);
    for (const auto &p : papers)
        w.Line(Format("*ImageableArea %s/%s: \"%s %s %s %s\"", p.ppd.c_str(),
                      Translation(p.text).c_str(), Pt(p.left).c_str(), Pt(p.bottom).c_str(),
                      Pt(p.right).c_str(), Pt(p.top).c_str()));
    w.Line("*DefaultPaperDimension: " + def);
    for (const auto &p : papers)
        w.Line(Format("*PaperDimension %s/%s: \"%s %s\"", p.ppd.c_str(),
                      Translation(p.text).c_str(), Pt(p.width).c_str(), Pt(p.length).c_str()));
    if (caps.custom.allowed) {
        const pages::CustomRange &c = caps.custom;
        w.Line("*VariablePaperSize: True");
        w.Line("*MaxMediaWidth: \"" + Pt(c.maxWidth) + "\"");
        w.Line("*MaxMediaHeight: \"" + Pt(c.maxLength) + "\"");
        w.Line("*HWMargins: " + Pt(c.left) + " " + Pt(c.bottom) + " " + Pt(c.right) + " " +
               Pt(c.top));
        w.Line("*CustomPageSize True: \"pop pop pop <</PageSize[5 -2 roll]/ImageableArea "
               "null>>setpagedevice\"");
        w.Line("*ParamCustomPageSize Width: 1 points " + Pt(c.minWidth) + " " + Pt(c.maxWidth));
        w.Line("*ParamCustomPageSize Height: 2 points " + Pt(c.minLength) + " " + Pt(c.maxLength));
        w.Line("*ParamCustomPageSize WidthOffset: 3 points 0 0");
        w.Line("*ParamCustomPageSize HeightOffset: 4 points 0 0");
        w.Line("*ParamCustomPageSize Orientation: 5 int 0 0");
    }
    w.Line("");

    w.PickOne<pages::Choice>(pages::NameOf(Option::InputSlot).ppd, "Media Source", 10, caps.sources,
                             caps.defaultSource, [](const pages::Choice &c) {
                                 return Format("<</MediaPosition %d>>setpagedevice", c.index);
                             });
    w.PickOne<pages::Choice>(pages::NameOf(Option::MediaType).ppd, "Media Type", 10,
                             caps.mediaTypes, caps.defaultMediaType, [](const pages::Choice &c) {
                                 return "<</MediaType(" + c.ppd + ")>>setpagedevice";
                             });
    w.PickOne<pages::Choice>(
        pages::NameOf(Option::OutputBin).ppd, "Output Bin", 10, caps.bins, caps.defaultBin,
        [](const pages::Choice &c) { return "<</OutputType(" + c.ppd + ")>>setpagedevice"; });
    w.PickOne<pages::Resolution>(
        pages::NameOf(Option::Resolution).ppd, "Resolution", 10, caps.resolutions,
        caps.defaultResolution, [](const pages::Resolution &r) {
            return Format("<</HWResolution[%d %d]>>setpagedevice", r.x, r.y);
        });

    if (caps.duplex) {
        const char *duplex = pages::NameOf(Option::Duplex).ppd;
        static const char *const kText[] = {"Off", "Long Edge (Standard)", "Short Edge (Flip)"};
        static const char *const kCode[] = {"<</Duplex false>>setpagedevice",
                                            "<</Duplex true/Tumble false>>setpagedevice",
                                            "<</Duplex true/Tumble true>>setpagedevice"};
        w.OpenUI(duplex, "2-Sided Printing", "PickOne", 10, pages::kSides[0].ppd);
        for (int i = 0; i < 3; ++i) w.Choice(duplex, pages::kSides[i].ppd, kText[i], kCode[i]);
        w.CloseUI(duplex);
        w.Line("");
    }
    if (caps.colour) {
        const char *colour = pages::NameOf(Option::ColorModel).ppd;
        w.OpenUI(colour, "Color Mode", "PickOne", 10, "RGB");
        w.Choice(colour, "RGB", "Color",
                 "<</cupsColorSpace 1/cupsColorOrder 0/cupsBitsPerColor 8>>setpagedevice");
        w.Choice(colour, "Gray", "Grayscale",
                 "<</cupsColorSpace 18/cupsColorOrder 0/cupsBitsPerColor 8>>setpagedevice");
        w.CloseUI(colour);
        w.Line("");
    }
    if (caps.collate) {
        const char *collate = pages::NameOf(Option::Collate).ppd;
        w.OpenUI(collate, "Collate", "Boolean", 10, "False");
        w.Choice(collate, "True", "On", "<</Collate true>>setpagedevice");
        w.Choice(collate, "False", "Off", "<</Collate false>>setpagedevice");
        w.CloseUI(collate);
        w.Line("");
    }

    // The watermark and where it goes: our own options, read by our filter only.
    const char *mark = pages::NameOf(Option::Watermark).ppd;
    w.OpenUI(mark, "Watermark", "PickOne", 20, "None");
    w.Choice(mark, "None", "None", "");
    for (const auto &m : caps.watermarks) w.Choice(mark, m.ppd, m.text, "");
    w.CloseUI(mark);
    const char *first = pages::NameOf(Option::WatermarkFirstPage).ppd;
    w.OpenUI(first, "Watermark on First Page Only", "Boolean", 20, "False");
    w.Choice(first, "True", "Yes", "");
    w.Choice(first, "False", "No", "");
    w.CloseUI(first);
    w.Line("");
    w.Line("*% End of " + PpdFileName(caps.pdd));
    return w.out;
}

void WritePpd(const std::string &pdd, const std::string &windowsDir, const std::string &output) {
    pages::Printer printer(pdd, "socket://localhost");
    char full[PATH_MAX];
    std::string dir = windowsDir.empty() ? "." : windowsDir;
    if (!realpath(dir.c_str(), full)) Fail("%s: %s", dir.c_str(), std::strerror(errno));
    pages::Capabilities caps = pages::Describe(printer, full);
    std::string text = MakePpd(caps, {printer.pdd(), full});
    if (output == "-") {
        if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout))
            Fail("standard output: %s", std::strerror(errno));
        return;
    }
    pages::AtomicFile file(output);
    file.Write(text.data(), text.size());
    file.Commit();
}

} // namespace q417::cups
