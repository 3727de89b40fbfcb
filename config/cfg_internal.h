// Private helpers of the compiled configuration: lock and ownership guards for global memory
// blocks, and field access by offset for the table-driven code over CFGINFO.
#pragma once

#include "platform/win32.h"
#include "q417/records.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace q417::cfg {

// Holds a lock on a block for the guard's scope. A zero handle or a failed lock gives a guard
// that tests false and unlocks nothing.
class Locked {
  public:
    explicit Locked(HGLOBAL h) : h_(h), p_(h ? GlobalLock(h) : nullptr) {}
    ~Locked() { Release(); }
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;
    explicit operator bool() const { return p_ != nullptr; }
    template <class T = uint8_t>
    T *As() const {
        return static_cast<T *>(p_);
    }
    void Release() {
        if (p_) GlobalUnlock(h_);
        p_ = nullptr;
    }

  private:
    HGLOBAL h_;
    void *p_;
};

// A new block that is freed unless ownership is handed over with Keep().
class Owned {
  public:
    explicit Owned(SIZE_T cb) : h_(GlobalAlloc(GHND, cb)) {}
    ~Owned() {
        if (h_) GlobalFree(h_);
    }
    Owned(const Owned &) = delete;
    Owned &operator=(const Owned &) = delete;
    HGLOBAL Get() const { return h_; }
    HGLOBAL Keep() {
        HGLOBAL h = h_;
        h_ = 0;
        return h;
    }

  private:
    HGLOBAL h_;
};

// Unaligned access to the packed record by byte offset.
inline uint32_t GetU32(const CFGINFO *p, size_t off) {
    uint32_t v;
    std::memcpy(&v, reinterpret_cast<const uint8_t *>(p) + off, 4);
    return v;
}
inline void SetU32(CFGINFO *p, size_t off, uint32_t v) {
    std::memcpy(reinterpret_cast<uint8_t *>(p) + off, &v, 4);
}

#define Q417_CFG_OFF(field) offsetof(CFGINFO, field)

// The 21 tables that a record owns and that a copy gets its own block of.
inline constexpr size_t kDeepTables[] = {
    Q417_CFG_OFF(hResNames),   Q417_CFG_OFF(hResKeys),    Q417_CFG_OFF(hResValues),
    Q417_CFG_OFF(hPaperNames), Q417_CFG_OFF(hPaperKeys),  Q417_CFG_OFF(hPaperCmds),
    Q417_CFG_OFF(hPaperDims),  Q417_CFG_OFF(hPaperIDs),   Q417_CFG_OFF(hTrayNames),
    Q417_CFG_OFF(hTrayKeys),   Q417_CFG_OFF(hTrayCmds),   Q417_CFG_OFF(hTrayIDs),
    Q417_CFG_OFF(hModelName),  Q417_CFG_OFF(hPlugIn),     Q417_CFG_OFF(hDestNames),
    Q417_CFG_OFF(hDestKeys),   Q417_CFG_OFF(hMediaNames), Q417_CFG_OFF(hMediaKeys),
    Q417_CFG_OFF(hResCmds),    Q417_CFG_OFF(hDestCmds),   Q417_CFG_OFF(hMediaCmds),
};

// Blocks that pass from a working record to its copy unchanged.
inline constexpr size_t kPassedBlocks[] = {
    Q417_CFG_OFF(hFileVersion),
    Q417_CFG_OFF(hPortraitCmd),
    Q417_CFG_OFF(hLandscapeCmd),
};

// Scratch pointers: meaningful only while a table is locked, zero in the file.
inline constexpr size_t kScratch[] = {
    Q417_CFG_OFF(lpResNames),   Q417_CFG_OFF(lpResCmds),   Q417_CFG_OFF(lpResValues),
    Q417_CFG_OFF(lpPaperNames), Q417_CFG_OFF(lpPaperCmds), Q417_CFG_OFF(lpPaperDims),
    Q417_CFG_OFF(lpPaperIDs),   Q417_CFG_OFF(lpTrayNames), Q417_CFG_OFF(lpTrayCmds),
    Q417_CFG_OFF(lpTrayIDs),
};

// Bytes of hPaperDims: six u32 a row, a landscape half from version 9 on.
inline uint64_t PaperDimsBytes(const CFGINFO *p) {
    return uint64_t(p->nPapers) * 24 * (p->wVersion > 8 ? 2 : 1);
}

} // namespace q417::cfg
