// q417 pdd: compile a printer description, show its compiled configuration, check it.
#include "ppd_writer.h"
#include "printer.h"
#include "tool.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iconv.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace q417tool {

namespace {

struct PddOptions {
    std::string file;
    std::string output = "-", windir; // ppd
};

// The library's rule for the binary file: the PDD's path with its last three characters
// replaced by "bdd".
std::string BinaryName(const std::string &pdd) {
    return pdd.size() >= 3 ? pdd.substr(0, pdd.size() - 3) + "bdd" : "bdd";
}

void RequireReadable(const std::string &file) {
    FILE *f = std::fopen(file.c_str(), "rb");
    if (!f) Fail("%s: %s", file.c_str(), std::strerror(errno));
    std::fclose(f);
}

// A CFGINFO as GetConfig hands it to a host, with its tables freed on the way out.
struct Config {
    CFGINFO c{};
    ~Config() { Q417_FreeConfig(&c); }
};

// Fills cfg for the printer; binary: whether the binary file may serve.
void LoadConfig(Printer &printer, Config &cfg, bool binary) {
    std::vector<uint8_t> dm(DDIDEVMODE_SIZE);
    if (!Q417_InitDevMode(dm.data(), DDIDEVMODE_SIZE, printer.handle(), 0))
        Fail("%s: the library can't make a device mode", printer.pdd().c_str());
    if (binary) DM(dm)->bCfgFlags |= CFGF_BINARY;
    if (!GetConfig(DM(dm), &cfg.c))
        Fail("%s: the library can't build a configuration from it (see q417 pdd check)",
             printer.pdd().c_str());
}

int RunCompile(const PddOptions &o) {
    RequireReadable(o.file);
    std::string bdd = BinaryName(o.file);
    struct stat before {};
    bool existed = stat(bdd.c_str(), &before) == 0;
    Printer printer(o.file, "FILE:");
    Config cfg;
    LoadConfig(printer, cfg, false); // a parse, whatever stands beside the file
    struct stat after {};
    if (stat(bdd.c_str(), &after) != 0 ||
        (existed && after.st_mtim.tv_sec == before.st_mtim.tv_sec &&
         after.st_mtim.tv_nsec == before.st_mtim.tv_nsec)) {
        // Say why, when it can be told: the description still prints, parsed each time.
        std::string dir = bdd.find('/') == std::string::npos ? "." : bdd.substr(0, bdd.rfind('/'));
        if (!LibraryCanCompile(printer.libraryPath()))
            Fail("%s: not written: the library spells the file's name in its 8-bit code page "
                 "(Windows-1252 unless set otherwise), which has no letters for it; the "
                 "description is read from its text each time instead (rename it to compile it)",
                 bdd.c_str());
        if (access(dir.c_str(), W_OK) != 0)
            Fail("%s: not written: %s: %s", bdd.c_str(), dir.c_str(), std::strerror(errno));
        Fail("%s: the library could not write the binary configuration", bdd.c_str());
    }
    std::printf("%s: %u papers, %u paper sources, %u output bins, %u media types, "
                "%u resolutions\n",
                bdd.c_str(), cfg.c.nPapers, cfg.c.nTrays, cfg.c.nDests, cfg.c.nMedia,
                cfg.c.nResolutions);
    return 0;
}

// ---- show ---------------------------------------------------------------------------------

std::vector<uint8_t> Table(HGLOBAL h) {
    std::vector<uint8_t> t(h ? Q417_ReadBlock(h, nullptr, 0) : 0);
    if (!t.empty()) Q417_ReadBlock(h, t.data(), static_cast<DWORD>(t.size()));
    return t;
}

std::string Printable(const std::string &utf8);

// Row r of a wide table of `cch` characters a row; a full row has no terminator.
std::string Row(const std::vector<uint8_t> &t, DWORD cch, DWORD r) {
    size_t start = static_cast<size_t>(r) * cch * 2;
    if (!cch || t.size() < start + cch * 2) return std::string();
    std::u16string w(cch, u'\0');
    std::memcpy(w.data(), t.data() + start, cch * 2);
    return Printable(Narrow(w.data(), cch));
}

uint32_t U32(const std::vector<uint8_t> &t, size_t index) {
    uint32_t v = 0;
    if (t.size() >= (index + 1) * 4) std::memcpy(&v, t.data() + index * 4, 4);
    return v;
}
uint16_t U16(const std::vector<uint8_t> &t, size_t index) {
    uint16_t v = 0;
    if (t.size() >= (index + 1) * 2) std::memcpy(&v, t.data() + index * 2, 2);
    return v;
}

std::string Text8(HGLOBAL h) {
    auto t = Table(h);
    return std::string(reinterpret_cast<const char *>(t.data()),
                       strnlen(reinterpret_cast<const char *>(t.data()), t.size()));
}

// UTF-8 text made safe for a terminal: control characters (C0, DEL, C1) as \xNN escapes.
std::string Printable(const std::string &utf8) {
    std::string out;
    for (size_t i = 0; i < utf8.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(utf8[i]);
        unsigned next = i + 1 < utf8.size() ? static_cast<unsigned char>(utf8[i + 1]) : 0;
        char b[12];
        if (c < 32 || c == 127) {
            std::snprintf(b, sizeof b, "\\x%02x", c);
            out += b;
        } else if (c == 0xC2 && next >= 0x80 && next < 0xA0) { // U+0080 to U+009F
            std::snprintf(b, sizeof b, "\\u%04x", next);
            out += b;
            ++i;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

// A text of the description, in its 8-bit code page ($Q417_ANSI_CP, Windows-1252 unless set),
// as UTF-8 for a terminal; a byte the code page has no character for shows as \xNN.
std::string Text(HGLOBAL h) {
    std::string in = Text8(h);
    const char *cp = getenv("Q417_ANSI_CP");
    iconv_t cd = iconv_open("UTF-8", cp && *cp ? cp : "WINDOWS-1252");
    if (cd == reinterpret_cast<iconv_t>(-1)) cd = iconv_open("UTF-8", "WINDOWS-1252");
    std::string out;
    for (size_t i = 0; i < in.size(); ++i) {
        char *src = &in[i];
        size_t left = 1;
        char buf[8];
        char *dst = buf;
        size_t room = sizeof buf;
        if (iconv(cd, &src, &left, &dst, &room) == static_cast<size_t>(-1)) {
            char b[8];
            std::snprintf(b, sizeof b, "\\x%02x", static_cast<unsigned char>(in[i]));
            out += b;
        } else {
            out += Printable(std::string(buf, static_cast<size_t>(dst - buf)));
        }
    }
    iconv_close(cd);
    return out;
}

std::string Pt(uint32_t decipoints) {
    char b[32];
    std::snprintf(b, sizeof b, "%.1f", static_cast<int32_t>(decipoints) / 10.0);
    return b;
}
std::string Mm(uint32_t decipoints) {
    char b[32];
    std::snprintf(b, sizeof b, "%.1f", static_cast<int32_t>(decipoints) * 25.4 / 720.0);
    return b;
}

std::string Escaped(const std::string &s) {
    std::string out;
    for (unsigned char c : s) {
        if (c == '\n')
            out += "\\n";
        else if (c == '\r')
            out += "\\r";
        else if (c < 32 || c >= 127) { // commands are bytes, not text
            char b[8];
            std::snprintf(b, sizeof b, "\\x%02x", c);
            out += b;
        } else
            out += static_cast<char>(c);
    }
    return out;
}

void ShowFamily(const char *title, DWORD n, INT def, HGLOBAL hKeys, DWORD cchKey, HGLOBAL hNames,
                DWORD cchName, HGLOBAL hCmds, DWORD cchCmd, HGLOBAL hIds, const char *idTitle,
                const char *cmdTitle) {
    std::printf("\n%s: %u\n", title, n);
    if (!n) return;
    auto keys = Table(hKeys), names = Table(hNames), cmds = Table(hCmds), ids = Table(hIds);
    // The last column is padded only when another follows it.
    if (hIds)
        std::printf("  %3s  %-16s %-26s %-8s %s\n", "#", "key", "name", cmdTitle, idTitle);
    else
        std::printf("  %3s  %-16s %-26s %s\n", "#", "key", "name", cmdTitle);
    for (DWORD r = 0; r < n; ++r) {
        std::string cmd = cchCmd ? Row(cmds, cchCmd, r) : std::string("-");
        std::printf("  %2u%c  %-16s %-26s ", r, static_cast<INT>(r) == def ? '*' : ' ',
                    Row(keys, cchKey, r).c_str(), Row(names, cchName, r).c_str());
        if (hIds)
            std::printf("%-8s %u\n", cmd.empty() ? "-" : cmd.c_str(), U16(ids, r));
        else
            std::printf("%s\n", cmd.empty() ? "-" : cmd.c_str());
    }
}

int RunShow(const PddOptions &o) {
    RequireReadable(o.file);
    Printer printer(o.file, "FILE:");
    Config cfg;
    LoadConfig(printer, cfg, true);
    const CFGINFO &c = cfg.c;
    static const char *const kLang[] = {"not given", "PCL 5", "?", "?", "?", "PCL 6"};
    std::string lang = c.dwLanguage < 6 ? kLang[c.dwLanguage] : c.dwLanguage == 10 ? "GDI" : "?";
    std::string plugIn;
    if (c.hPlugIn) {
        auto t = Table(c.hPlugIn);
        plugIn = Narrow(reinterpret_cast<const char16_t *>(t.data()), t.size() / 2);
    }
    std::printf("Printer description %s\n", o.file.c_str());
    std::printf("  model              %s\n", Text(c.hModelName).c_str());
    std::printf("  file version       %s\n",
                c.hFileVersion ? Text(c.hFileVersion).c_str() : "(none)");
    std::printf("  configuration      version %u\n", c.wVersion);
    std::printf("  language           %s (%u), level %u\n", lang.c_str(), c.dwLanguage,
                c.dwLanguageLevel);
    std::printf("  colours            %u (%s)\n", c.dwColors,
                c.dwColors == 3   ? "colour"
                : c.dwColors == 1 ? "monochrome"
                                  : "not given");
    std::printf("  duplex             %s\n", c.dwDuplex ? "yes" : "no");
    std::printf("  collate            %s\n", c.dwCollate ? "yes" : "no");
    std::printf("  text clipping      %s\n", c.bTextClipping ? "yes" : "no");
    std::printf("  landscape          %s\n",
                c.bLandscapeMinus90 ? "minus 90 degrees" : "plus 90 degrees");
    std::printf("  language id        %u, %s units\n", c.bLangID,
                c.bMeasUnits ? "metric" : "English");
    std::printf("  font pitch         %u\n", c.bFontPitch);
    std::printf("  plug-in            %s\n", plugIn.empty() ? "(none)" : plugIn.c_str());
    std::printf(
        "  portrait command   %s\n",
        c.cbPortraitCmd
            ? ("\"" + Escaped(Text8(c.hPortraitCmd).substr(0, c.cbPortraitCmd)) + "\"").c_str()
            : "(none)");
    std::printf(
        "  landscape command  %s\n",
        c.cbLandscapeCmd
            ? ("\"" + Escaped(Text8(c.hLandscapeCmd).substr(0, c.cbLandscapeCmd)) + "\"").c_str()
            : "(none)");

    // Papers: sizes and both printable areas, from the two halves of the dimension table.
    std::printf("\nPapers: %u (* default, C custom)\n", c.nPapers);
    auto keys = Table(c.hPaperKeys), names = Table(c.hPaperNames), cmds = Table(c.hPaperCmds),
         dims = Table(c.hPaperDims), ids = Table(c.hPaperIDs);
    std::printf("  %3s  %-12s %-22s %5s %5s  %-15s %-15s %-27s %s\n", "#", "key", "name", "win",
                "pcl", "size pt", "size mm", "portrait area pt l,t w x h",
                "landscape area pt l,t w x h");
    bool twoHalves = c.wVersion > 8;
    for (DWORD r = 0; r < c.nPapers; ++r) {
        size_t p = r * 6, l = (twoHalves ? c.nPapers + r : r) * 6;
        char mark = static_cast<INT>(r) == c.nCustomPaper    ? 'C'
                    : static_cast<INT>(r) == c.nDefaultPaper ? '*'
                                                             : ' ';
        std::string cmd = c.cchPaperCmd ? Row(cmds, c.cchPaperCmd, r) : "";
        std::string size = Pt(U32(dims, p)) + " x " + Pt(U32(dims, p + 1));
        std::string mm = Mm(U32(dims, p)) + " x " + Mm(U32(dims, p + 1));
        std::string pa = Pt(U32(dims, p + 2)) + "," + Pt(U32(dims, p + 3)) + " " +
                         Pt(U32(dims, p + 4)) + " x " + Pt(U32(dims, p + 5));
        std::string la = Pt(U32(dims, l + 2)) + "," + Pt(U32(dims, l + 3)) + " " +
                         Pt(U32(dims, l + 4)) + " x " + Pt(U32(dims, l + 5));
        std::printf("  %2u%c  %-12s %-22s %5u %5s  %-15s %-15s %-27s %s\n", r, mark,
                    Row(keys, c.cchPaperKey, r).c_str(), Row(names, c.cchPaperName, r).c_str(),
                    U16(ids, r), cmd.empty() ? "-" : cmd.c_str(), size.c_str(), mm.c_str(),
                    pa.c_str(), la.c_str());
    }
    if (c.nCustomPaper >= 0) {
        std::printf("  custom size: %s x %s pt to %s x %s pt, default %s x %s pt, margins "
                    "%s %s %s %s pt\n",
                    Pt(c.dwCustMinWidth).c_str(), Pt(c.dwCustMinHeight).c_str(),
                    Pt(c.dwCustMaxWidth).c_str(), Pt(c.dwCustMaxHeight).c_str(),
                    Pt(c.dwCustDefWidth).c_str(), Pt(c.dwCustDefHeight).c_str(),
                    Pt(c.dwCustMarginLeft).c_str(), Pt(c.dwCustMarginTop).c_str(),
                    Pt(c.dwCustMarginRight).c_str(), Pt(c.dwCustMarginBottom).c_str());
    }
    ShowFamily("Paper sources", c.nTrays, c.nDefaultTray, c.hTrayKeys, c.cchTrayKey, c.hTrayNames,
               c.cchTrayName, c.hTrayCmds, c.cchTrayCmd, c.hTrayIDs, "win", "pcl");
    ShowFamily("Output bins", c.nDests, c.nDefaultDest, c.hDestKeys, c.cchDestKey, c.hDestNames,
               c.cchDestName, c.hDestCmds, c.cchDestCmd, 0, "", "code");
    ShowFamily("Media types", c.nMedia, c.nDefaultMedia, c.hMediaKeys, c.cchMediaKey, c.hMediaNames,
               c.cchMediaName, c.hMediaCmds, c.cchMediaCmd, 0, "", "code");
    std::printf("\nResolutions: %u\n", c.nResolutions);
    auto rk = Table(c.hResKeys), rn = Table(c.hResNames), rc = Table(c.hResCmds),
         rv = Table(c.hResValues);
    std::printf("  %3s  %-16s %-26s %-8s %s\n", "#", "key", "name", "command", "dpi");
    for (DWORD r = 0; r < c.nResolutions; ++r) {
        std::string cmd = c.cchResCmd ? Row(rc, c.cchResCmd, r) : "";
        std::printf("  %2u%c  %-16s %-26s %-8s %u x %u\n", r,
                    static_cast<INT>(r) == c.nDefaultRes ? '*' : ' ',
                    Row(rk, c.cchResKey, r).c_str(), Row(rn, c.cchResName, r).c_str(),
                    cmd.empty() ? "-" : cmd.c_str(), U32(rv, r * 2), U32(rv, r * 2 + 1));
    }
    return 0;
}

// ---- check --------------------------------------------------------------------------------

struct Diagnostic {
    std::string file, key, reason;
    int line;
};

void Collect(void *ctx, const char *file, int line, const char *key, const char *reason) {
    static_cast<std::vector<Diagnostic> *>(ctx)->push_back(
        {file ? file : "", key ? key : "", reason ? reason : "", line});
}

int RunCheck(const PddOptions &o) {
    RequireReadable(o.file);
    std::vector<Diagnostic> diags;
    Q417_SetPDDDiagnosticHook(Collect, &diags);
    Q417_PDD_CHECK r{};
    BOOL ran = Q417_CheckPDD(o.file.c_str(), &r);
    Q417_SetPDDDiagnosticHook(nullptr, nullptr);
    if (!ran) Fail("%s: the library could not check it", o.file.c_str());
    for (const auto &d : diags) {
        const std::string &file = d.file.empty() ? o.file : d.file;
        std::string key = d.key.empty() ? "" : "\"" + d.key + "\": ";
        if (d.line > 0)
            std::printf("%s:%d: %s%s\n", file.c_str(), d.line, key.c_str(), d.reason.c_str());
        else
            std::printf("%s: %s%s\n", file.c_str(), key.c_str(), d.reason.c_str());
    }
    bool usable = true;
    if (r.nParseResult == 2) {
        std::printf("%s: not a printer description: the first line must begin with "
                    "\"*PDD-Lindgate:\"\n",
                    o.file.c_str());
        usable = false;
    } else if (r.nParseResult != 0) {
        std::printf("%s: the library could not read it (result %d)\n", o.file.c_str(),
                    r.nParseResult);
        usable = false;
    } else {
        if (!r.nResolutions) std::printf("%s: no resolution\n", o.file.c_str());
        if (!r.nPapers) std::printf("%s: no paper\n", o.file.c_str());
        if (!r.nTrays) std::printf("%s: no paper source\n", o.file.c_str());
        if (!r.bConfigBuilt) {
            std::printf("%s: PDD_GetConfig fails: no configuration can be built\n", o.file.c_str());
            usable = false;
        }
    }
    std::printf("%s: %zu finding%s; %u papers, %u paper sources, %u output bins, %u media "
                "types, %u resolutions; %s\n",
                o.file.c_str(), diags.size(), diags.size() == 1 ? "" : "s", r.nPapers, r.nTrays,
                r.nDests, r.nMedia, r.nResolutions, usable ? "usable" : "NOT usable");
    return usable ? 0 : 1;
}

} // namespace

Command AddPddCommand(CLI::App &app) {
    auto o = std::make_shared<PddOptions>();
    CLI::App *sub = app.add_subcommand("pdd", "Printer descriptions (PDD files): compile, show, "
                                              "check");
    sub->require_subcommand(1);
    CLI::App *compile = sub->add_subcommand(
        "compile", "Write the binary configuration beside the PDD (its name with the last three "
                   "characters replaced by bdd)");
    compile->add_option("file", o->file, "The PDD file")->required();
    CLI::App *show = sub->add_subcommand(
        "show", "Print the compiled configuration: papers with sizes and printable areas, "
                "sources, bins, media, resolutions, defaults, flags and texts");
    show->add_option("file", o->file, "The PDD file")->required();
    CLI::App *check = sub->add_subcommand(
        "check", "List every line the library skips or refuses, the papers it can't complete, "
                 "and whether a configuration can be built. Exit status 1 when the "
                 "description can't be used");
    check->add_option("file", o->file, "The PDD file")->required();
    CLI::App *ppd = sub->add_subcommand(
        "ppd", "Write a PPD file for CUPS: the printer's papers, sources, media, bins, "
               "resolutions, duplex, colour and the watermarks of QMWMARK.INI");
    ppd->add_option("file", o->file, "The PDD file")->required();
    ppd->add_option("-o,--output", o->output, "The PPD file to write; - for standard output")
        ->capture_default_str();
    ppd->add_option("--windir", o->windir,
                    "The folder of QMWMARK.INI (default: $Q417_WINDIR, else the samples')");
    return {sub, [o, compile, show, check, ppd]() -> int {
                if (compile->parsed()) return RunCompile(*o);
                if (show->parsed()) return RunShow(*o);
                if (check->parsed()) return RunCheck(*o);
                if (ppd->parsed()) {
                    const char *env = getenv("Q417_WINDIR");
                    std::string dir = !o->windir.empty() ? o->windir
                                      : env && *env      ? env
                                                         : EmbeddedDefaults().dir;
                    q417::cups::WritePpd(o->file, dir, o->output);
                    return 0;
                }
                return 0;
            }};
}

} // namespace q417tool
