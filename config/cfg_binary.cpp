// The binary configuration file beside a printer description: a dump of a CFGINFO and its
// tables that spares later calls the parse. It is a cache that anything may have damaged, so
// the reader checks every count and width of the header before it allocates anything.
#include "config/cfg_internal.h"
#include "config/config.h"
#include "pdd/pdd.h"
#include "pdd/win_ids.h"

#include <sys/stat.h>

#include <algorithm>
#include <iterator>

using namespace q417::cfg;

namespace {

#define OFF Q417_CFG_OFF
constexpr size_t kNone = SIZE_MAX;

// A description's text holds at most 40 bytes, so no row built from one is wider than this.
constexpr uint32_t kMaxRowChars = 41;
constexpr uint32_t kMaxOrientBytes = 40;
constexpr uint64_t kMaxSection = 0xFFFFFFFF;

enum class Size {
    Wide,   // width field x rows x 2
    Rows,   // rows x unit bytes
    Dims,   // rows x 24, twice that from version 9 on
    Fixed,  // unit bytes
    Counted // the byte count field
};

enum class Text { None, Model, Version, PlugIn };

//  No. Section                       Size                          Present
//   1  header                        343                           always
//   2  paper display names           cchPaperName x nPapers x 2    always
//   3  paper keys                    cchPaperKey x nPapers x 2     always
//   4  paper dimensions              nPapers x 24 (x 2 from v9)    always
//   5  paper third strings           cchPaperCmd x nPapers x 2     always
//   6  paper Windows ids             nPapers x 2                   always
//   7  tray display names            cchTrayName x nTrays x 2      always
//   8  tray keys                     cchTrayKey x nTrays x 2       always
//   9  tray third strings            cchTrayCmd x nTrays x 2       always
//  10  tray Windows ids              nTrays x 2                    always
//  11  resolution display names      cchResName x nRes x 2         always
//  12  resolution keys               cchResKey x nRes x 2          always
//  13  resolution third strings      cchResCmd x nRes x 2          cchResCmd
//  14  resolution values             nRes x 8                      always
//  15  model name                    32                            always
//  16  file version ("N/A" if none)  32                            always
//  17  plug-in file name             64                            hPlugIn
//  18  output bin display names      cchDestName x nDests x 2      writer nDests, reader width
//  19  output bin keys               cchDestKey x nDests x 2       writer nDests, reader width
//  20  output bin third strings      cchDestCmd x nDests x 2       cchDestCmd
//  21  media display names           cchMediaName x nMedia x 2     writer nMedia, reader width
//  22  media keys                    cchMediaKey x nMedia x 2      writer nMedia, reader width
//  23  media third strings           cchMediaCmd x nMedia x 2      cchMediaCmd
//  24  portrait command              cbPortraitCmd                 cbPortraitCmd
//  25  landscape command             cbLandscapeCmd                cbLandscapeCmd
struct Section {
    size_t hOff;
    Size size;
    size_t rowsOff;  // rows (Wide, Rows, Dims)
    size_t widthOff; // width (Wide) or byte count (Counted)
    uint32_t unit;   // bytes a row (Rows) or in all (Fixed)
    size_t readIf;   // field that must be non-zero for the reader; kNone: always
    size_t writeIf;  // the same for the writer
    Text text;
};

constexpr Section kSections[] = {
    {OFF(hPaperNames), Size::Wide, OFF(nPapers), OFF(cchPaperName), 0, kNone, kNone, Text::None},
    {OFF(hPaperKeys), Size::Wide, OFF(nPapers), OFF(cchPaperKey), 0, kNone, kNone, Text::None},
    {OFF(hPaperDims), Size::Dims, OFF(nPapers), kNone, 0, kNone, kNone, Text::None},
    {OFF(hPaperCmds), Size::Wide, OFF(nPapers), OFF(cchPaperCmd), 0, kNone, kNone, Text::None},
    {OFF(hPaperIDs), Size::Rows, OFF(nPapers), kNone, 2, kNone, kNone, Text::None},
    {OFF(hTrayNames), Size::Wide, OFF(nTrays), OFF(cchTrayName), 0, kNone, kNone, Text::None},
    {OFF(hTrayKeys), Size::Wide, OFF(nTrays), OFF(cchTrayKey), 0, kNone, kNone, Text::None},
    {OFF(hTrayCmds), Size::Wide, OFF(nTrays), OFF(cchTrayCmd), 0, kNone, kNone, Text::None},
    {OFF(hTrayIDs), Size::Rows, OFF(nTrays), kNone, 2, kNone, kNone, Text::None},
    {OFF(hResNames), Size::Wide, OFF(nResolutions), OFF(cchResName), 0, kNone, kNone, Text::None},
    {OFF(hResKeys), Size::Wide, OFF(nResolutions), OFF(cchResKey), 0, kNone, kNone, Text::None},
    {OFF(hResCmds), Size::Wide, OFF(nResolutions), OFF(cchResCmd), 0, OFF(cchResCmd),
     OFF(cchResCmd), Text::None},
    {OFF(hResValues), Size::Rows, OFF(nResolutions), kNone, 8, kNone, kNone, Text::None},
    {OFF(hModelName), Size::Fixed, kNone, kNone, 32, kNone, kNone, Text::Model},
    {OFF(hFileVersion), Size::Fixed, kNone, kNone, 32, kNone, kNone, Text::Version},
    {OFF(hPlugIn), Size::Fixed, kNone, kNone, 64, OFF(hPlugIn), OFF(hPlugIn), Text::PlugIn},
    {OFF(hDestNames), Size::Wide, OFF(nDests), OFF(cchDestName), 0, OFF(cchDestName), OFF(nDests),
     Text::None},
    {OFF(hDestKeys), Size::Wide, OFF(nDests), OFF(cchDestKey), 0, OFF(cchDestKey), OFF(nDests),
     Text::None},
    {OFF(hDestCmds), Size::Wide, OFF(nDests), OFF(cchDestCmd), 0, OFF(cchDestCmd), OFF(cchDestCmd),
     Text::None},
    {OFF(hMediaNames), Size::Wide, OFF(nMedia), OFF(cchMediaName), 0, OFF(cchMediaName),
     OFF(nMedia), Text::None},
    {OFF(hMediaKeys), Size::Wide, OFF(nMedia), OFF(cchMediaKey), 0, OFF(cchMediaKey), OFF(nMedia),
     Text::None},
    {OFF(hMediaCmds), Size::Wide, OFF(nMedia), OFF(cchMediaCmd), 0, OFF(cchMediaCmd),
     OFF(cchMediaCmd), Text::None},
    {OFF(hPortraitCmd), Size::Counted, kNone, OFF(cbPortraitCmd), 0, OFF(cbPortraitCmd),
     OFF(cbPortraitCmd), Text::None},
    {OFF(hLandscapeCmd), Size::Counted, kNone, OFF(cbLandscapeCmd), 0, OFF(cbLandscapeCmd),
     OFF(cbLandscapeCmd), Text::None},
};
constexpr size_t kNumSections = std::size(kSections);

uint64_t SectionSize(const Section &s, const CFGINFO *p) {
    switch (s.size) {
    case Size::Wide:
        return uint64_t(GetU32(p, s.widthOff)) * GetU32(p, s.rowsOff) * 2;
    case Size::Rows:
        return uint64_t(GetU32(p, s.rowsOff)) * s.unit;
    case Size::Dims:
        return PaperDimsBytes(p);
    case Size::Fixed:
        return s.unit;
    case Size::Counted:
        return GetU32(p, s.widthOff);
    }
    return 0;
}

bool Present(size_t testOff, const CFGINFO *p) {
    return testOff == kNone || GetU32(p, testOff);
}

class File {
  public:
    File(const char *path, UINT style) : h_(OpenFile(path, &of_, style)) {}
    ~File() {
        if (h_ != HFILE_ERROR) _lclose(h_);
    }
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    explicit operator bool() const { return h_ != HFILE_ERROR; }
    HFILE Get() const { return h_; }

  private:
    OFSTRUCT of_{};
    HFILE h_;
};

bool RowInRange(INT row, DWORD rows) {
    return row >= 0 && DWORD(row) < rows;
}

// An optional family is either absent, with count and widths 0, or has rows of real width.
bool OptionalFamilyOk(DWORD count, DWORD cchName, DWORD cchKey, DWORD cchCmd, INT def) {
    if (count == 0) return !cchName && !cchKey && !cchCmd && def == 0;
    return cchName && cchKey && RowInRange(def, count);
}

// The header's numbers must describe a record that the builder could have made: defaults
// inside their families, widths no wider than a description's text, orientation texts no
// longer than one. Sizes are checked separately against the file.
bool HeaderSane(const CFGINFO *p) {
    const DWORD widths[] = {p->cchResKey,    p->cchResName,   p->cchResCmd,   p->cchPaperKey,
                            p->cchPaperName, p->cchPaperCmd,  p->cchTrayKey,  p->cchTrayName,
                            p->cchTrayCmd,   p->cchDestKey,   p->cchDestName, p->cchDestCmd,
                            p->cchMediaKey,  p->cchMediaName, p->cchMediaCmd};
    for (DWORD w : widths)
        if (w > kMaxRowChars) return false;
    if (!RowInRange(p->nDefaultRes, p->nResolutions) || !RowInRange(p->nDefaultPaper, p->nPapers) ||
        !RowInRange(p->nDefaultTray, p->nTrays))
        return false;
    if (p->nCustomPaper != -1 && !RowInRange(p->nCustomPaper, p->nPapers)) return false;
    if (!OptionalFamilyOk(p->nDests, p->cchDestName, p->cchDestKey, p->cchDestCmd,
                          p->nDefaultDest) ||
        !OptionalFamilyOk(p->nMedia, p->cchMediaName, p->cchMediaKey, p->cchMediaCmd,
                          p->nDefaultMedia))
        return false;
    return p->cbPortraitCmd <= kMaxOrientBytes && p->cbLandscapeCmd <= kMaxOrientBytes;
}

// Works out the size of every section the reader will take, or fails when one of them would
// overflow, could not be allocated, or lies beyond the file's end.
bool PlanSections(const CFGINFO *p, uint64_t cbBody, uint64_t (&sizes)[kNumSections]) {
    uint64_t total = 0;
    for (size_t i = 0; i < kNumSections; ++i) {
        const Section &s = kSections[i];
        sizes[i] = 0;
        if (!Present(s.readIf, p)) continue;
        uint64_t cb = SectionSize(s, p);
        if (cb == 0 || cb > kMaxSection) return false;
        total += cb;
        if (total > cbBody) return false;
        sizes[i] = cb;
    }
    return true;
}

void FailRead(CFGINFO *pCfg) {
    FreeCfgTables(pCfg);
    std::memset(pCfg, 0, CFGINFO_SIZE);
}

// The fixed text fields: model name and file version are 8-bit, cut at 32 bytes; the
// plug-in name is the first 64 bytes of its wide text. None gets a terminator forced in.
void FillTextField(Text kind, HGLOBAL h, const uint8_t *src, uint8_t *field, size_t cbField) {
    std::memset(field, 0, cbField);
    size_t n = std::min<SIZE_T>(cbField, GlobalSize(h));
    if (kind == Text::PlugIn) {
        std::memcpy(field, src, n);
        return;
    }
    for (size_t i = 0; i < n && src[i]; ++i) field[i] = src[i];
}

} // namespace

int MakeCfgBinaryName(const char *pszSrc, char *pszDst, int cchCap, int kind) {
    if (!pszSrc || !pszDst || cchCap <= 0) return 0;
    int n = 0;
    while (n < cchCap && pszSrc[n]) {
        pszDst[n] = pszSrc[n];
        ++n;
    }
    if (n == cchCap) {
        pszDst[cchCap - 1] = 0;
        return 0; // no room left for the terminator
    }
    pszDst[n] = 0;
    const char *ext = kind == CFGNAME_BINARY ? "bdd" : kind == CFGNAME_PRINTER ? "ptr" : nullptr;
    if (!ext || n < 3) return 0;
    std::memcpy(pszDst + n - 3, ext, 3);
    return 1;
}

int CfgBinaryCurrent(const char *pszPDD, const char *pszBinary) {
    Q417Stat bin{}, pdd{};
    if (_stat(pszBinary, &bin) != 0 || bin.st_size == 0) return 0;
    if ((bin.st_mode & S_IFMT) != S_IFREG) return 0;
    if (_stat(pszPDD, &pdd) != 0) return 0;
    // Equal times are stale: the description may have changed within the same tick.
    return pdd.st_mtime_ns < bin.st_mtime_ns;
}

int ReadCfgBinary(CFGINFO *pCfg, const char *pszPath) {
    if (!pCfg || !pszPath || !*pszPath) return 0;
    File f(pszPath, OF_READ);
    if (!f) return 0;
    // Until the header's handles are cleared they are the writer's numbers, which may well
    // name live blocks of this process: nothing is freed on the way there.
    LONG cbFile = _llseek(f.Get(), 0, FILE_END);
    if (cbFile < LONG(CFGINFO_SIZE) || _llseek(f.Get(), 0, FILE_BEGIN) != 0 ||
        _lread(f.Get(), pCfg, CFGINFO_SIZE) != CFGINFO_SIZE || pCfg->wVersion != CFGINFO_VERSION) {
        std::memset(pCfg, 0, CFGINFO_SIZE);
        return 0;
    }

    // The header's handles are the writer's; only whether hPlugIn was set means anything.
    bool hasPlugIn = pCfg->hPlugIn != 0;
    pCfg->hPDD = 0;
    for (size_t off : kDeepTables) SetU32(pCfg, off, 0);
    for (size_t off : kPassedBlocks) SetU32(pCfg, off, 0);
    for (size_t off : kScratch) SetU32(pCfg, off, 0);
    SetU32(pCfg, OFF(hPlugIn), hasPlugIn);

    uint64_t sizes[kNumSections];
    if (!HeaderSane(pCfg) || !PlanSections(pCfg, uint64_t(cbFile) - CFGINFO_SIZE, sizes)) {
        std::memset(pCfg, 0, CFGINFO_SIZE);
        return 0;
    }
    pCfg->hPlugIn = 0;

    for (size_t i = 0; i < kNumSections; ++i) {
        if (!sizes[i]) continue;
        Owned block{SIZE_T(sizes[i])};
        Locked p(block.Get());
        if (!p || _lread(f.Get(), p.As(), UINT(sizes[i])) != UINT(sizes[i])) {
            p.Release();
            FailRead(pCfg);
            return 0;
        }
        p.Release();
        SetU32(pCfg, kSections[i].hOff, block.Keep());
    }
    return 1;
}

int WriteCfgBinary(CFGINFO *pCfg, const char *pszPath) {
    if (!pCfg || !pszPath || !*pszPath) return 0;
    File f(pszPath, OF_CREATE | OF_WRITE);
    if (!f) return 0;

    CFGINFO header;
    std::memcpy(&header, pCfg, CFGINFO_SIZE);
    header.hPDD = 0;
    header.wVersion = CFGINFO_VERSION;
    std::memset(header.reserved6, 0, 4);
    for (size_t off : kScratch) SetU32(&header, off, 0);

    // Lock every table before the first byte goes out: a table that can't be had leaves the
    // file empty, and an empty file is never taken as current. The file version alone may be
    // missing: "N/A" stands in for it.
    struct Held {
        HGLOBAL h = 0;
        const uint8_t *p = nullptr;
        ~Held() {
            if (p) GlobalUnlock(h);
        }
    } held[kNumSections];
    uint64_t sizes[kNumSections] = {};
    for (size_t i = 0; i < kNumSections; ++i) {
        const Section &s = kSections[i];
        if (!Present(s.writeIf, pCfg)) continue;
        sizes[i] = SectionSize(s, pCfg);
        if (s.text == Text::Version) continue;
        HGLOBAL h = GetU32(pCfg, s.hOff);
        const void *p = h ? GlobalLock(h) : nullptr;
        if (!p) return 0;
        held[i].h = h;
        held[i].p = static_cast<const uint8_t *>(p);
        if (s.text == Text::None && GlobalSize(h) < sizes[i]) return 0;
    }

    _lwrite(f.Get(), reinterpret_cast<const char *>(&header), CFGINFO_SIZE);
    for (size_t i = 0; i < kNumSections; ++i) {
        const Section &s = kSections[i];
        if (!Present(s.writeIf, pCfg)) continue;
        uint8_t field[64];
        if (s.text == Text::Version) {
            HGLOBAL h = pCfg->hFileVersion;
            Locked v(h);
            if (v) {
                FillTextField(s.text, h, v.As(), field, s.unit);
            } else {
                std::memset(field, 0, sizeof field);
                std::memcpy(field, "N/A", 3);
            }
            _lwrite(f.Get(), reinterpret_cast<const char *>(field), s.unit);
        } else if (s.text != Text::None) {
            FillTextField(s.text, held[i].h, held[i].p, field, s.unit);
            _lwrite(f.Get(), reinterpret_cast<const char *>(field), s.unit);
        } else {
            _lwrite(f.Get(), reinterpret_cast<const char *>(held[i].p), UINT(sizes[i]));
        }
    }
    return 1;
}

int DDIReadPDDFile(HGLOBAL hCfgBlock, CFGINFO *pCfg, const WCHAR *pszPDD) {
    if (!pCfg) return 0;
    pCfg->hPDD = PDD_Startup();
    if (pCfg->hPDD && PDD_ParseFile(pCfg->hPDD, pszPDD) == 0 && PDD_GetConfig(hCfgBlock) &&
        PDD_GetWinIDs(pCfg)) {
        PDD_Shutdown(pCfg->hPDD);
        return 1;
    }
    if (pCfg->hPDD) PDD_Shutdown(pCfg->hPDD);
    // A record half built must not be mistaken for one: nothing of it survives.
    FreeCfgTables(pCfg);
    std::memset(pCfg, 0, CFGINFO_SIZE);
    return 0;
}

namespace {
char TempBuf[kCfgPathCap];
char NameBuf[kCfgPathCap];

// The 8-bit path of the description and of its binary file. A path that does not fit, or
// that the code page can't spell, gets no binary file: the description is parsed each time.
bool NameBinary(const WCHAR *pszPDD) {
    BOOL lossy = FALSE;
    int n = WideCharToMultiByte(CP_ACP, 0, pszPDD, -1, TempBuf, kCfgPathCap, nullptr, &lossy);
    if (n <= 0 || lossy) return false;
    return MakeCfgBinaryName(TempBuf, NameBuf, kCfgPathCap, CFGNAME_BINARY) != 0;
}
} // namespace

int DDIReadCfgFile(DDIDEVMODE *pdm, const WCHAR *pszPDD) {
    if (!pdm || !pdm->hConfig || !pszPDD || !*pszPDD) return 0;
    bool named = NameBinary(pszPDD);
    Locked cfg(pdm->hConfig);
    if (!cfg) return 0;
    CFGINFO *p = cfg.As<CFGINFO>();
    int done = 0;
    if (named && (pdm->bCfgFlags & CFGF_BINARY) && CfgBinaryCurrent(TempBuf, NameBuf))
        done = ReadCfgBinary(p, NameBuf);
    if (!done) {
        done = DDIReadPDDFile(pdm->hConfig, p, pszPDD);
        if (done) {
            if (named) WriteCfgBinary(p, NameBuf);
            pdm->bCfgFlags |= CFGF_BINARY;
        }
    }
    return done;
}
