// Host calls for tools (q417/host_tools.h): reading configuration tables, the parser's
// diagnostics, a check of a description without a printer.
#include "q417/host_tools.h"

#include "config/config.h"
#include "platform/win32.h"

#if __has_include("pdd/pdd.h")
#include "pdd/pdd.h"
#define Q417_HAVE_PDD 1
#endif

#include <cstring>
#include <string>

// The configuration builder, as the config subsystem defines it.
int PDD_GetConfig(HGLOBAL hCfgBlock);

namespace {

// A block locked for the length of a scope.
class Locked {
  public:
    explicit Locked(HGLOBAL h) : h_(h), p_(h ? GlobalLock(h) : nullptr) {}
    ~Locked() {
        if (p_) GlobalUnlock(h_);
    }
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;
    template <class T>
    T *as() const {
        return static_cast<T *>(p_);
    }
    explicit operator bool() const { return p_ != nullptr; }

  private:
    HGLOBAL h_;
    void *p_;
};

void FreeHandle(HGLOBAL &h) {
    if (h) GlobalFree(h);
    h = 0;
}

// The 21 tables and the three texts that a CFGINFO owns.
void FreeConfigBlocks(CFGINFO *c) {
    HGLOBAL *handles[] = {&c->hResNames,   &c->hResKeys,     &c->hResValues,   &c->hPaperNames,
                          &c->hPaperKeys,  &c->hPaperCmds,   &c->hPaperDims,   &c->hPaperIDs,
                          &c->hTrayNames,  &c->hTrayKeys,    &c->hTrayCmds,    &c->hTrayIDs,
                          &c->hModelName,  &c->hPlugIn,      &c->hDestNames,   &c->hDestKeys,
                          &c->hMediaNames, &c->hMediaKeys,   &c->hResCmds,     &c->hDestCmds,
                          &c->hMediaCmds,  &c->hFileVersion, &c->hPortraitCmd, &c->hLandscapeCmd};
    for (HGLOBAL *h : handles) {
        HGLOBAL v;
        std::memcpy(&v, h, sizeof v); // packed record: the fields may lie at odd offsets
        FreeHandle(v);
        std::memcpy(h, &v, sizeof v);
    }
}

#ifdef Q417_HAVE_PDD
std::u16string WidenUtf8(const char *s) {
    std::u16string w;
    for (const unsigned char *p = reinterpret_cast<const unsigned char *>(s); *p;) {
        char32_t cp = *p++;
        int extra = cp >= 0xF0 ? 3 : cp >= 0xE0 ? 2 : cp >= 0xC0 ? 1 : 0;
        if (extra) cp &= 0x3Fu >> extra;
        for (; extra && *p; --extra) cp = cp << 6 | (*p++ & 0x3Fu);
        if (cp >= 0x10000) {
            cp -= 0x10000;
            w += static_cast<char16_t>(0xD800 + (cp >> 10));
            w += static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
        } else {
            w += static_cast<char16_t>(cp);
        }
    }
    return w;
}
#endif

} // namespace

extern "C" {

Q417_API DWORD Q417_ReadBlock(HGLOBAL hBlock, void *buf, DWORD cbBuf) {
    if (!hBlock) return 0;
    SIZE_T size = GlobalSize(hBlock);
    if (size == 0) return 0;
    if (buf && cbBuf) {
        Locked block(hBlock);
        if (!block) return 0;
        std::memcpy(buf, block.as<void>(), cbBuf < size ? cbBuf : size);
    }
    return static_cast<DWORD>(size > 0xFFFFFFFFu ? 0xFFFFFFFFu : size);
}

Q417_API void Q417_FreeConfig(void *pCfgInfo) {
    if (pCfgInfo) FreeConfigBlocks(static_cast<CFGINFO *>(pCfgInfo));
}

Q417_API BOOL Q417_AttachConfig(void *pDevMode) {
    if (!pDevMode) return FALSE;
    auto *pdm = static_cast<DDIDEVMODE *>(pDevMode);
    if (!RetrieveDeviceInfo(pdm) || !hCfg) return FALSE;
    pdm->hConfig = hCfg;
    pdm->hCfgCache = hCfg;
    return TRUE;
}

Q417_API void Q417_SetPDDDiagnosticHook(Q417_PDD_DIAGNOSTIC_FN fn, void *ctx) {
#ifdef Q417_HAVE_PDD
    PDD_SetDiagnosticHook(fn, ctx);
#else
    (void)fn;
    (void)ctx;
#endif
}

Q417_API BOOL Q417_CheckPDD(const char *pddPath, Q417_PDD_CHECK *pResult) {
    if (!pddPath || !pResult) return FALSE;
    std::memset(pResult, 0, sizeof *pResult);
    pResult->nParseResult = -1;
#ifdef Q417_HAVE_PDD
    std::u16string path = WidenUtf8(pddPath);
    HGLOBAL hPDD = PDD_Startup();
    if (!hPDD) return FALSE;
    pResult->nParseResult = PDD_ParseFile(hPDD, path.c_str());
    {
        Locked pdd(hPDD);
        if (pdd) {
            const PDDINFO *p = pdd.as<PDDINFO>();
            pResult->nResolutions = p->nResolutions;
            pResult->nPapers = p->nPapers;
            pResult->nTrays = p->nTrays;
            pResult->nDests = p->nDests;
            pResult->nMedia = p->nMedia;
        }
    }
    if (pResult->nParseResult == PDD_OK) {
        HGLOBAL hCfg = GlobalAlloc(GHND, CFGINFO_SIZE);
        if (hCfg) {
            {
                Locked cfg(hCfg);
                if (cfg) cfg.as<CFGINFO>()->hPDD = hPDD;
            }
            pResult->bConfigBuilt = PDD_GetConfig(hCfg) ? TRUE : FALSE;
            {
                Locked cfg(hCfg);
                if (cfg) FreeConfigBlocks(cfg.as<CFGINFO>());
            }
            GlobalFree(hCfg);
        }
    }
    PDD_Shutdown(hPDD);
    return TRUE;
#else
    return FALSE;
#endif
}

} // extern "C"
