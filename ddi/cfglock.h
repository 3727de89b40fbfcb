// Locks over the configuration block and its tables, for the accessors of the settings
// interface. Every read goes through a lock that knows the block's size, so a table that is
// shorter than its counts claim, or a hConfig that names something else, reads as absent.
#pragma once

#include "platform/win32.h"
#include "q417/records.h"

#include <cstdint>
#include <cstring>

namespace q417::ddi {

// A global block locked for the life of the guard.
class GlobalLockGuard {
  public:
    explicit GlobalLockGuard(HGLOBAL h)
        : h_(h), p_(h ? static_cast<BYTE *>(GlobalLock(h)) : nullptr) {
        if (p_) size_ = GlobalSize(h);
    }
    ~GlobalLockGuard() {
        if (p_) GlobalUnlock(h_);
    }
    GlobalLockGuard(const GlobalLockGuard &) = delete;
    GlobalLockGuard &operator=(const GlobalLockGuard &) = delete;

    BYTE *get() const { return p_; }
    size_t size() const { return size_; }
    explicit operator bool() const { return p_ != nullptr; }

  private:
    HGLOBAL h_;
    BYTE *p_;
    size_t size_ = 0;
};

// The CFGINFO behind a device mode's hConfig. Empty for a null record, a zero hConfig, a
// lock that fails, or a block too small to be a CFGINFO.
class CfgLock {
  public:
    explicit CfgLock(const DDIDEVMODE *pdm) : lock_(pdm ? pdm->hConfig : 0) {}
    CFGINFO *get() const {
        return lock_ && lock_.size() >= CFGINFO_SIZE ? reinterpret_cast<CFGINFO *>(lock_.get())
                                                     : nullptr;
    }
    CFGINFO *operator->() const { return get(); }
    explicit operator bool() const { return get() != nullptr; }

  private:
    GlobalLockGuard lock_;
};

// A table of fixed-size rows. row(r) is the row's first byte, or null when r is negative,
// not below the row count given, or when the row would end past the block.
class RowTable {
  public:
    RowTable(HGLOBAL h, size_t rowBytes, int64_t rows)
        : lock_(h), rowBytes_(rowBytes), rows_(rows) {}
    BYTE *row(int64_t r) const {
        if (!lock_ || rowBytes_ == 0 || r < 0 || r >= rows_) return nullptr;
        uint64_t end = (static_cast<uint64_t>(r) + 1) * rowBytes_;
        if (end > lock_.size()) return nullptr;
        return lock_.get() + (end - rowBytes_);
    }
    explicit operator bool() const { return static_cast<bool>(lock_); }
    BYTE *base() const { return lock_.get(); }

  private:
    GlobalLockGuard lock_;
    size_t rowBytes_;
    int64_t rows_;
};

// Unaligned little-endian fields of the packed records, by offset.
template <class T>
inline T ReadAt(const void *base, size_t off) {
    T v;
    std::memcpy(&v, static_cast<const BYTE *>(base) + off, sizeof v);
    return v;
}
template <class T>
inline void WriteAt(void *base, size_t off, T v) {
    std::memcpy(static_cast<BYTE *>(base) + off, &v, sizeof v);
}

} // namespace q417::ddi
