// Printer sessions and device mode helpers over the host API and the DDI exports.
#include "printer.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

namespace q417::pages {

namespace {

std::string DirName(const std::string &path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash ? slash : 1);
}

// Room the library has for the 8-bit path of a description's compiled file.
constexpr size_t kLibraryPathRoom = 259;

bool Plain(const std::string &s) {
    for (unsigned char c : s)
        if (c >= 0x80) return false;
    return true;
}

} // namespace

bool LibraryCanCompile(const std::string &libraryPath) {
    return libraryPath.size() <= kLibraryPathRoom && Plain(libraryPath);
}

Printer::Printer(const std::string &pdd, const std::string &port) : pdd_(AbsolutePath(pdd)) {
    if (access(pdd_.c_str(), R_OK) != 0) Fail("%s: %s", pdd.c_str(), std::strerror(errno));
    // The library spells paths in an 8-bit code page with a fixed room: a folder it can't
    // spell, or a long one, is given to it by a short name (a link to the same folder), so the
    // compiled configuration and a plug-in are still found beside the description.
    std::string dir = DirName(pdd_);
    library_ = pdd_;
    if (!LibraryCanCompile(pdd_)) {
        dir = ShortAlias(dir);
        library_ = dir + pdd_.substr(pdd_.rfind('/'));
    }
    Q417_PRINTER p{};
    p.name = "q417";
    p.pdd_path = library_.c_str();
    p.driver_dir = dir.c_str();
    p.port = port.c_str();
    h_ = Q417_AddPrinter(&p);
    if (!h_) Fail("%s: the library refused the printer", pdd.c_str());
}

Printer::~Printer() {
    if (h_) Q417_DeletePrinter(h_);
}

namespace {

std::vector<uint8_t> Block(HGLOBAL h) {
    std::vector<uint8_t> t(h ? Q417_ReadBlock(h, nullptr, 0) : 0);
    if (!t.empty()) Q417_ReadBlock(h, t.data(), static_cast<DWORD>(t.size()));
    return t;
}

int32_t I32(const std::vector<uint8_t> &t, size_t index) {
    int32_t v = 0;
    if (t.size() / 4 > index) std::memcpy(&v, t.data() + index * 4, 4);
    return v;
}

// Whether a configuration can print: resolutions with their dots, and papers (but the
// custom row) with a size and a printable area in both orientations.
bool Sound(const CFGINFO &c) {
    if (c.nResolutions == 0 || c.nPapers == 0) return false;
    auto dims = Block(c.hPaperDims), dpi = Block(c.hResValues);
    size_t rows = c.wVersion > 8 ? 2 * size_t{c.nPapers} : c.nPapers;
    if (dims.size() / 24 < rows || dpi.size() / 8 < c.nResolutions) return false;
    for (size_t r = 0; r < rows; ++r) {
        if (static_cast<INT>(r % c.nPapers) == c.nCustomPaper) continue;
        for (size_t f : {0, 1, 4, 5})
            if (I32(dims, r * 6 + f) <= 0) return false;
    }
    for (size_t r = 0; r < 2 * size_t{c.nResolutions}; ++r) // the device mode's are 16 bits
        if (I32(dpi, r) <= 0 || I32(dpi, r) > 32767) return false;
    return true;
}

// A device mode of this printer, with nothing attached yet.
std::vector<uint8_t> Blank(HANDLE32 h, const std::string &pdd) {
    std::vector<uint8_t> dm(DDIDEVMODE_SIZE);
    if (Q417_InitDevMode(dm.data(), static_cast<DWORD>(dm.size()), h, 0) == 0)
        Fail("%s: the library can't make a device mode", pdd.c_str());
    return dm;
}

} // namespace

// The library keeps the first configuration it reads for the process, so a damaged compiled
// file (one that reads well and makes no sense) is found before that: it is built again from
// the description, which writes the compiled file anew.
void Printer::RepairCompiled() {
    if (!LibraryCanCompile(library_) || library_.size() < 3) return;
    std::string bdd = library_.substr(0, library_.size() - 3) + "bdd";
    struct stat b {
    }, p{};
    if (stat(bdd.c_str(), &b) != 0 || !S_ISREG(b.st_mode) || b.st_size == 0 ||
        stat(library_.c_str(), &p) != 0)
        return;
    if (b.st_mtim.tv_sec < p.st_mtim.tv_sec ||
        (b.st_mtim.tv_sec == p.st_mtim.tv_sec && b.st_mtim.tv_nsec <= p.st_mtim.tv_nsec))
        return; // stale: the library parses the description anyway
    for (bool compiled : {true, false}) {
        std::vector<uint8_t> dm = Blank(h_, pdd_);
        if (compiled) DM(dm)->bCfgFlags |= CFGF_BINARY;
        CFGINFO c{};
        if (!GetConfig(DM(dm), &c)) return;
        bool sound = Sound(c);
        Q417_FreeConfig(&c);
        if (sound) return;
    }
}

std::vector<uint8_t> Printer::NewDevMode() {
    RepairCompiled();
    std::vector<uint8_t> dm = Blank(h_, pdd_);
    DDIDEVMODE *pdm = DM(dm);
    pdm->bCfgFlags |= CFGF_BINARY; // take the binary file beside the PDD when it is current
    if (!Q417_AttachConfig(pdm))
        Fail("%s: the library can't build a configuration from it (see q417 pdd check)",
             pdd_.c_str());
    // Start from the description's defaults, as a user interface would.
    for (const Keyword &k : kKeywords) {
        INT def = DDIGetKeywordDefaultOption(pdm, k.id);
        if (def >= 0 && DDIGetKeywordNumOptions(pdm, k.id) > 0)
            DDISetDWord(pdm, k.id, static_cast<DWORD>(def));
    }
    CFGINFO cfg{};
    Q417_ReadBlock(pdm->hConfig, &cfg, sizeof cfg);
    // A colour model prints as PCL 5eC, a monochrome one as PCL 5e.
    DDISetDWord(pdm, DDI_EMULATION, cfg.dwColors == 3 ? 4 : 2);
    return dm;
}

void Printer::Adopt(std::vector<uint8_t> &dm) {
    if (dm.size() < DDIDEVMODE_SIZE || DM(dm)->wRecordSize != DDIDEVMODE_SIZE)
        Fail("not a device mode: %zu bytes, record size %u", dm.size(),
             dm.size() >= DDIDEVMODE_SIZE ? DM(dm)->wRecordSize : 0u);
    RepairCompiled();
    DDIDEVMODE *pdm = DM(dm);
    // Handles and pointers of another process mean nothing here.
    pdm->hPrinter = h_;
    pdm->hConfig = 0;
    pdm->hCfgCache = 0;
    pdm->hJobName = 0;
    pdm->pJobInfo = 0;
    pdm->pCustData = 0;
    if (!Q417_AttachConfig(pdm))
        Fail("%s: the library can't build a configuration from it (see q417 pdd check)",
             pdd_.c_str());
}

const Keyword kKeywords[5] = {
    {DDI_PAPERSIZE, "paper", "Papers"},
    {DDI_PAPERSOURCE, "source", "Paper sources"},
    {DDI_PAPERDEST, "bin", "Output bins"},
    {DDI_MEDIATYPE, "media", "Media types"},
    {DDI_RESOLUTION, "resolution", "Resolutions"},
};

const Keyword *FindKeyword(const std::string &name) {
    for (const Keyword &k : kKeywords)
        if (strcasecmp(k.name, name.c_str()) == 0) return &k;
    DWORD id;
    if (FindDWordId(name, id))
        for (const Keyword &k : kKeywords)
            if (k.id == id) return &k;
    return nullptr;
}

std::vector<KeywordOption> KeywordOptions(DDIDEVMODE *pdm, DWORD id) {
    std::vector<KeywordOption> out;
    INT n = DDIGetKeywordNumOptions(pdm, id);
    for (INT i = 0; i < n; ++i) {
        KeywordOption o;
        WCHAR buf[256];
        DWORD cch = 256;
        DDIGetKeywordOptionString(pdm, id, i, buf, &cch);
        o.key = cch ? Narrow(buf, cch) : std::string();
        cch = 256;
        DDIGetKeywordOptionTranslation(pdm, id, i, buf, &cch);
        o.translation = cch ? Narrow(buf, cch) : std::string();
        out.push_back(o);
    }
    return out;
}

long ParseNumber(const std::string &text, const std::string &what) {
    errno = 0;
    char *end = nullptr;
    long v = std::strtol(text.c_str(), &end, 0);
    if (text.empty() || *end || errno)
        FailSetting("%s: not a number: \"%s\"", what.c_str(), text.c_str());
    return v;
}

int ResolveOption(DDIDEVMODE *pdm, const Keyword &k, const std::string &value) {
    auto options = KeywordOptions(pdm, k.id);
    for (size_t i = 0; i < options.size(); ++i)
        if (strcasecmp(options[i].key.c_str(), value.c_str()) == 0) return static_cast<int>(i);
    for (size_t i = 0; i < options.size(); ++i)
        if (strcasecmp(options[i].translation.c_str(), value.c_str()) == 0)
            return static_cast<int>(i);
    bool numeric = !value.empty() && value.find_first_not_of("0123456789") == std::string::npos;
    if (numeric) {
        long i = std::strtol(value.c_str(), nullptr, 10);
        if (i >= 0 && static_cast<size_t>(i) < options.size()) return static_cast<int>(i);
        FailSetting("%s index %s out of range: the printer has %zu (0 to %zu)", k.name,
                    value.c_str(), options.size(), options.size() ? options.size() - 1 : 0);
    }
    std::string choices;
    for (const auto &o : options) choices += (choices.empty() ? "" : ", ") + o.key;
    FailSetting("unknown %s \"%s\" (the printer has: %s)", k.name, value.c_str(),
                choices.empty() ? "none" : choices.c_str());
}

const IdName kDWordIds[] = {
    {9, "SESSION"},         {10, "PAPERSIZE"},       {11, "PAPERWIDTH"},
    {12, "PAPERHEIGHT"},    {13, "IMAGEWIDTH"},      {14, "IMAGEHEIGHT"},
    {15, "IMAGELEFT"},      {16, "IMAGETOP"},        {17, "MEDIATYPE"},
    {18, "PAPERSOURCE"},    {19, "PAPERDEST"},       {20, "RESOLUTION"},
    {21, "COPIES"},         {22, "PAGEORIENT"},      {23, "HALFTONE"},
    {24, "CCTYPE0"},        {25, "CCTYPE1"},         {26, "CCTYPE2"},
    {28, "CCRENDALG0"},     {29, "CCRENDALG1"},      {30, "CCRENDALG2"},
    {31, "CCLIGHTNESS0"},   {32, "CCLIGHTNESS1"},    {33, "CCLIGHTNESS2"},
    {34, "CCSATURATION0"},  {35, "CCSATURATION1"},   {36, "CCSATURATION2"},
    {40, "PRESET"},         {41, "CCGAMMA"},         {42, "FONTMAPPING"},
    {43, "PAGESPERSHEET"},  {44, "PAGEBORDER"},      {45, "BOOKLETMODE"},
    {46, "BOOKLETPAPERID"}, {47, "TTDOWNLOAD"},      {48, "EMULATION"},
    {49, "DUPLEX"},         {50, "COLLATE"},         {51, "JOBSTATUS"},
    {52, "OUTPUTCAPS"},     {53, "ICMMODE"},         {54, "ICMINTENT"},
    {55, "CURRENTPAGE"},    {56, "CUSTOMPAPER"},     {57, "CUSTMINWIDTH"},
    {58, "CUSTMINHEIGHT"},  {59, "CUSTMAXWIDTH"},    {60, "CUSTMAXHEIGHT"},
    {61, "CUSTDEFWIDTH"},   {62, "CUSTDEFHEIGHT"},   {63, "CUSTMARGINLEFT"},
    {64, "CUSTMARGINTOP"},  {65, "CUSTMARGINRIGHT"}, {66, "CUSTMARGINBOTTOM"},
    {67, "CUSTWIDTH"},      {68, "CUSTHEIGHT"},      {69, "LANGVERSION"},
    {70, "MEASUNITS"},      {71, "TEXTCLIPPING"},    {72, "PRINTERHANDLE"},
    {73, "WMFIRSTPAGE"},    {74, "WATERMARK"},       {75, "TTCOUNT"},
};
const size_t kDWordIdCount = sizeof kDWordIds / sizeof kDWordIds[0];

const IdName kStringIds[] = {
    {0, "STR_NONE0"},   {1, "STR_DEVICENAME"}, {2, "STR_PLUGIN"}, {3, "STR_CFGMODEL"},
    {4, "STR_MODEL"},   {5, "STR_JOBNAME"},    {6, "STR_PORT"},   {7, "STR_NONE7"},
    {8, "STR_VERSION"}, {75, "STR_FONTSUBST"},
};
const size_t kStringIdCount = sizeof kStringIds / sizeof kStringIds[0];

namespace {

bool FindIn(const IdName *table, size_t n, std::string name, DWORD &id, bool strings) {
    if (!name.empty() && name.find_first_not_of("0123456789") == std::string::npos) {
        long v = std::strtol(name.c_str(), nullptr, 10);
        for (size_t i = 0; i < n; ++i)
            if (table[i].id == static_cast<DWORD>(v)) {
                id = table[i].id;
                return true;
            }
        return false;
    }
    if (strncasecmp(name.c_str(), "DDI_", 4) == 0) name = name.substr(4);
    for (size_t i = 0; i < n; ++i) {
        const char *t = table[i].name;
        if (strcasecmp(t, name.c_str()) == 0 ||
            (strings && strcasecmp(t + 4, name.c_str()) == 0)) { // "PORT" for "STR_PORT"
            id = table[i].id;
            return true;
        }
    }
    return false;
}

} // namespace

bool FindDWordId(const std::string &name, DWORD &id) {
    return FindIn(kDWordIds, kDWordIdCount, name, id, false);
}
bool FindStringId(const std::string &name, DWORD &id) {
    return FindIn(kStringIds, kStringIdCount, name, id, true);
}
const char *DWordIdName(DWORD id) {
    for (size_t i = 0; i < kDWordIdCount; ++i)
        if (kDWordIds[i].id == id) return kDWordIds[i].name;
    return "?";
}

const char *StringIdName(DWORD id) {
    for (size_t i = 0; i < kStringIdCount; ++i)
        if (kStringIds[i].id == id) return kStringIds[i].name;
    return "?";
}

std::string GetDDIString(DDIDEVMODE *pdm, DWORD id) {
    WCHAR buf[512] = {};
    DWORD cch = 511;
    if (!DDIGetString(pdm, id, buf, &cch)) return std::string();
    if (cch > 511) cch = 511;
    return Narrow(buf, cch);
}

} // namespace q417::pages
