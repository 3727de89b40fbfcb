// q417 devmode: make, change, read and list device modes through the DDI exports.
#include "printer.h"
#include "tool.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <strings.h>

namespace q417tool {

std::string PrinterPdd(const std::string &choice); // cmd_print.cpp

namespace {

struct DevmodeOptions {
    std::string printer = "colour";
    std::string file;
    std::vector<std::string> assignments; // NAME=VALUE
    std::vector<std::string> names;
    std::string keyword;
};

// Ids that have no setter: DDISetDWord answers 0 whatever it is given.
bool ReadOnly(DWORD id) {
    static const DWORD kIds[] = {9,  11, 12, 13, 14, 15, 16, 51, 55, 56, 57, 58,
                                 59, 60, 61, 62, 63, 64, 65, 66, 69, 70, 72, 75};
    for (DWORD i : kIds)
        if (i == id) return true;
    return false;
}

// Words a user may write for a few numeric settings.
bool NamedValue(DWORD id, const std::string &v, DWORD &out) {
    struct W {
        DWORD id;
        const char *word;
        DWORD value;
    };
    static const W kWords[] = {
        {DDI_PAGEORIENT, "portrait", 0},
        {DDI_PAGEORIENT, "landscape", 1},
        {DDI_PAGEORIENT, "reverse-portrait", 2},
        {DDI_PAGEORIENT, "reverse-landscape", 3},
        {DDI_DUPLEX, "simplex", 1},
        {DDI_DUPLEX, "none", 1},
        {DDI_DUPLEX, "long", 3}, // reaches the printer as long-edge binding, ESC&l1S
        {DDI_DUPLEX, "short", 2},
        {DDI_COLLATE, "off", 0},
        {DDI_COLLATE, "on", 1},
        {DDI_EMULATION, "PCL5", 1},
        {DDI_EMULATION, "PCL5e", 2},
        {DDI_EMULATION, "PCL5C", 3},
        {DDI_EMULATION, "PCL5eC", 4},
    };
    for (const W &w : kWords)
        if (w.id == id && strcasecmp(w.word, v.c_str()) == 0) {
            out = w.value;
            return true;
        }
    return false;
}

// Applies one NAME=VALUE through DDISetDWord or DDISetString; FailSetting()s when refused.
void Assign(DDIDEVMODE *pdm, const std::string &assignment) {
    size_t eq = assignment.find('=');
    if (eq == std::string::npos) FailSetting("\"%s\": expected NAME=VALUE", assignment.c_str());
    std::string name = assignment.substr(0, eq), value = assignment.substr(eq + 1);
    DWORD id;
    if (FindDWordId(name, id)) {
        if (ReadOnly(id)) FailSetting("%s can be read, not set", DWordIdName(id));
        DWORD v;
        const Keyword *k = nullptr;
        for (const Keyword &kw : kKeywords)
            if (kw.id == id) k = &kw;
        if (k)
            v = static_cast<DWORD>(ResolveOption(pdm, *k, value));
        else if (!NamedValue(id, value, v))
            v = static_cast<DWORD>(ParseNumber(value, DWordIdName(id)));
        DWORD r = DDISetDWord(pdm, id, v);
        bool refused = id == DDI_DUPLEX || id == DDI_COLLATE          ? r == 0xFFFFFFFFu
                       : id == DDI_WMFIRSTPAGE || id == DDI_WATERMARK ? false
                                                                      : r == 0;
        if (refused)
            FailSetting("%s: value %s out of range (refused by the library)", DWordIdName(id),
                        value.c_str());
        return;
    }
    if (FindStringId(name, id)) {
        std::u16string w = Widen(value);
        if (!DDISetString(pdm, id, w.c_str(), static_cast<DWORD>(w.size() + 1)))
            FailSetting("string id %u can't be set through the settings interface", id);
        return;
    }
    FailSetting("unknown setting \"%s\" (see q417 devmode show)", name.c_str());
}

std::vector<uint8_t> Load(Printer &printer, const std::string &file) {
    std::vector<uint8_t> dm = ReadWholeFile(file);
    printer.Adopt(dm);
    return dm;
}

void Save(std::vector<uint8_t> &dm, const std::string &file) {
    AtomicFile f(file);
    f.Write(dm.data(), dm.size());
    f.Commit();
}

std::string OptionName(DDIDEVMODE *pdm, DWORD id, DWORD index) {
    auto options = KeywordOptions(pdm, id);
    return index < options.size() ? options[index].key : std::string("?");
}

int RunNew(const DevmodeOptions &o) {
    Printer printer(PrinterPdd(o.printer), "FILE:");
    std::vector<uint8_t> dm = printer.NewDevMode();
    for (const auto &a : o.assignments) Assign(DM(dm), a);
    Save(dm, o.file);
    return 0;
}

int RunSet(const DevmodeOptions &o) {
    Printer printer(PrinterPdd(o.printer), "FILE:");
    std::vector<uint8_t> dm = Load(printer, o.file);
    for (const auto &a : o.assignments) Assign(DM(dm), a);
    Save(dm, o.file);
    return 0;
}

int RunGet(const DevmodeOptions &o) {
    Printer printer(PrinterPdd(o.printer), "FILE:");
    std::vector<uint8_t> dm = Load(printer, o.file);
    for (const auto &name : o.names) {
        DWORD id;
        if (FindDWordId(name, id))
            std::printf("%s=%d\n", DWordIdName(id), static_cast<int>(DDIGetDWord(DM(dm), id)));
        else if (FindStringId(name, id))
            std::printf("%s=%s\n", StringIdName(id), GetDDIString(DM(dm), id).c_str());
        else
            FailSetting("unknown setting \"%s\" (see q417 devmode show)", name.c_str());
    }
    return 0;
}

int RunShow(const DevmodeOptions &o) {
    Printer printer(PrinterPdd(o.printer), "FILE:");
    std::vector<uint8_t> dm = Load(printer, o.file);
    DDIDEVMODE *pdm = DM(dm);
    std::printf("Device mode %s (printer %s)\n", o.file.c_str(), printer.pdd().c_str());
    std::printf("  %4s  %-18s %s\n", "id", "setting", "value");
    for (size_t i = 0; i < kDWordIdCount; ++i) {
        DWORD id = kDWordIds[i].id;
        DWORD v = DDIGetDWord(pdm, id);
        std::string extra;
        for (const Keyword &k : kKeywords)
            if (k.id == id) extra = "  " + OptionName(pdm, id, v);
        if (id == DDI_PAGEORIENT && v < 4) {
            static const char *const kO[] = {"portrait", "landscape", "reverse portrait",
                                             "reverse landscape"};
            extra = std::string("  ") + kO[v];
        }
        if (id >= DDI_PAPERWIDTH && id <= DDI_IMAGETOP && v != 0xFFFFFFFFu) {
            char b[48];
            std::snprintf(b, sizeof b, "  %.1f pt, %.1f mm", v / 10.0, v * 25.4 / 720.0);
            extra = b;
        }
        std::printf("  %4u  %-18s %d%s\n", id, kDWordIds[i].name, static_cast<int>(v),
                    extra.c_str());
    }
    for (size_t i = 0; i < kStringIdCount; ++i) {
        DWORD id = kStringIds[i].id;
        if (id == 0 || id == 7 || id == 75) continue; // no text behind them
        std::printf("  %4u  %-18s \"%s\"\n", id, kStringIds[i].name, GetDDIString(pdm, id).c_str());
    }
    return 0;
}

int RunOptions(const DevmodeOptions &o) {
    Printer printer(PrinterPdd(o.printer), "FILE:");
    std::vector<uint8_t> dm = printer.NewDevMode();
    DDIDEVMODE *pdm = DM(dm);
    const Keyword *only = nullptr;
    if (!o.keyword.empty() && !(only = FindKeyword(o.keyword)))
        FailSetting("unknown keyword \"%s\" (paper, source, bin, media, resolution)",
                    o.keyword.c_str());
    for (const Keyword &k : kKeywords) {
        if (only && only != &k) continue;
        auto options = KeywordOptions(pdm, k.id);
        INT def = DDIGetKeywordDefaultOption(pdm, k.id);
        std::printf("%s (%s, id %u): %zu, default %d\n", k.title, k.name, k.id, options.size(),
                    def);
        for (size_t i = 0; i < options.size(); ++i)
            std::printf("  %2zu%c %-18s %s\n", i, static_cast<INT>(i) == def ? '*' : ' ',
                        options[i].key.c_str(), options[i].translation.c_str());
    }
    return 0;
}

} // namespace

Command AddDevmodeCommand(CLI::App &app) {
    auto o = std::make_shared<DevmodeOptions>();
    CLI::App *sub = app.add_subcommand(
        "devmode", "Device modes: make one, set and get settings by id name or number, list a "
                   "printer's keyword options, show a device mode as a table");
    sub->require_subcommand(1);
    sub->add_option("-p,--printer", o->printer,
                    "Printer description: a PDD file, or colour / mono for the built-in models")
        ->capture_default_str();
    auto *nw = sub->add_subcommand("new", "Make a device mode file with the printer's defaults");
    nw->add_option("file", o->file, "Device mode file to write")->required();
    nw->add_option("-s,--set", o->assignments, "NAME=VALUE to apply, e.g. PAPERSIZE=Letter");
    auto *set = sub->add_subcommand(
        "set", "Change settings: NAME=VALUE, NAME a DDIGetDWord or string id by name "
               "(PAPERSIZE, DDI_COPIES, STR_JOBNAME) or number; for the keyword ids the value "
               "may be an option's name");
    set->add_option("file", o->file, "Device mode file")->required();
    set->add_option("assignments", o->assignments, "NAME=VALUE ...")->required();
    auto *get = sub->add_subcommand("get", "Print settings by id name or number");
    get->add_option("file", o->file, "Device mode file")->required();
    get->add_option("names", o->names, "Ids to read")->required();
    auto *show = sub->add_subcommand("show", "Show every setting of a device mode as a table");
    show->add_option("file", o->file, "Device mode file")->required();
    auto *options = sub->add_subcommand(
        "options", "List the printer's keyword options with their translations");
    options->add_option("keyword", o->keyword, "paper, source, bin, media or resolution");
    return {sub, [o, nw, set, get, show, options]() -> int {
                if (nw->parsed()) return RunNew(*o);
                if (set->parsed()) return RunSet(*o);
                if (get->parsed()) return RunGet(*o);
                if (show->parsed()) return RunShow(*o);
                if (options->parsed()) return RunOptions(*o);
                return 0;
            }};
}

} // namespace q417tool
