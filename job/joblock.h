// Scoped locks of global blocks, and the job handle's way to its record.
#pragma once

#include "platform/win32.h"
#include "q417/records.h"

namespace q417::job {

// Holds one lock on a global block for the length of a scope. A failed lock is a null
// pointer; nothing is unlocked then.
template <class T>
class Locked {
  public:
    explicit Locked(HGLOBAL h) : h_(h), p_(h ? static_cast<T *>(GlobalLock(h)) : nullptr) {}
    ~Locked() {
        if (p_) GlobalUnlock(h_);
    }
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;

    T *get() const { return p_; }
    T *operator->() const { return p_; }
    explicit operator bool() const { return p_ != nullptr; }

  private:
    HGLOBAL h_;
    T *p_;
};

// A block that is allocated and locked for the length of a scope, then unlocked and freed.
class ScratchBlock {
  public:
    explicit ScratchBlock(SIZE_T cb) : h_(GlobalAlloc(GMEM_MOVEABLE, cb)) {
        if (h_) p_ = static_cast<BYTE *>(GlobalLock(h_));
    }
    ~ScratchBlock() {
        if (p_) GlobalUnlock(h_);
        if (h_) GlobalFree(h_);
    }
    ScratchBlock(const ScratchBlock &) = delete;
    ScratchBlock &operator=(const ScratchBlock &) = delete;

    BYTE *get() const { return p_; }

  private:
    HGLOBAL h_;
    BYTE *p_ = nullptr;
};

// Unlocks and frees a block that stays locked for its life and is known by its pointer.
inline void FreeLockedBlock(const void *p) {
    if (!p) return;
    HGLOBAL h = GlobalHandle(p);
    if (!h) return;
    GlobalUnlock(h);
    GlobalFree(h);
}

// The job handle is the locked SPLJOB itself.
inline SPLJOB *JobOf(void *hJob) {
    return static_cast<SPLJOB *>(hJob);
}

// Points pCmdBuf at a static buffer for a scope and puts the old value back.
class CmdBufScope {
  public:
    CmdBufScope(SPLDEVINFO *pInfo, void *buffer) : pInfo_(pInfo), saved_(pInfo->pCmdBuf) {
        pInfo->pCmdBuf = Ptr32From(buffer);
    }
    ~CmdBufScope() { pInfo_->pCmdBuf = saved_; }
    CmdBufScope(const CmdBufScope &) = delete;
    CmdBufScope &operator=(const CmdBufScope &) = delete;

  private:
    SPLDEVINFO *pInfo_;
    PTR32 saved_;
};

} // namespace q417::job
