// Global memory blocks: 32-bit handles over host allocations, lock counts, GlobalHandle,
// zero fill, and the failure injection that lets tests reach every "no memory" path.
#include "platform/win32.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <unordered_map>
#include <vector>

namespace {

struct Block {
    uint8_t *data = nullptr;
    size_t size = 0;
    uint32_t lockCount = 0;
    uint32_t gen = 1;
    bool used = false;
};

// Handle value: generation in the top 12 bits, slot + 1 in the low 20. A stale handle, one
// whose slot was freed and reused, carries the old generation and is refused.
constexpr uint32_t kSlotBits = 20;
constexpr uint32_t kSlotMask = (1u << kSlotBits) - 1;
constexpr uint32_t kMaxSlots = kSlotMask - 1;
constexpr uint32_t kMaxLock = 255; // saturates, as the lock count byte of GlobalFlags

struct Heap {
    std::vector<Block> blocks;
    std::vector<uint32_t> freeSlots;
    std::unordered_map<const void *, HGLOBAL> byPointer;
    long live = 0;
    long failAllocIn = 0; // countdown; fires when it reaches 1
    long failAllocFrom = 0;
    long allocCount = 0;
    long failLockIn = 0;
};

Heap &heap() {
    static Heap *h = new Heap; // never destroyed: blocks may be freed from atexit handlers
    return *h;
}

Block *lookup(HGLOBAL h) {
    if (h == 0) return nullptr;
    uint32_t slot = (h & kSlotMask);
    if (slot == 0) return nullptr;
    slot -= 1;
    auto &hp = heap();
    if (slot >= hp.blocks.size()) return nullptr;
    Block &b = hp.blocks[slot];
    if (!b.used || (b.gen & 0xFFF) != (h >> kSlotBits)) return nullptr;
    return &b;
}

bool allocationFails() {
    auto &hp = heap();
    ++hp.allocCount;
    if (hp.failAllocFrom > 0 && hp.allocCount >= hp.failAllocFrom) return true;
    if (hp.failAllocIn > 0 && --hp.failAllocIn == 0) return true;
    return false;
}

// ---- 32-bit pointer values ----
struct PtrMap {
    std::map<uintptr_t, PTR32> forward;
    std::unordered_map<PTR32, uintptr_t> reverse;
    std::vector<PTR32> recycled;
    PTR32 next = 0x00010000;
};

PtrMap &ptrs() {
    static PtrMap *m = new PtrMap;
    return *m;
}

void forgetRange(const uint8_t *base, size_t size) {
    auto &m = ptrs();
    if (!base || m.forward.empty()) return;
    auto lo = m.forward.lower_bound(reinterpret_cast<uintptr_t>(base));
    auto hi = m.forward.lower_bound(reinterpret_cast<uintptr_t>(base) + size + 1);
    for (auto it = lo; it != hi; ++it) {
        m.reverse.erase(it->second);
        m.recycled.push_back(it->second);
    }
    m.forward.erase(lo, hi);
}

} // namespace

HGLOBAL GlobalAlloc(UINT uFlags, SIZE_T dwBytes) {
    // A zero-size request yields no memory: callers treat it like any failed allocation.
    if (dwBytes == 0 || dwBytes > 0x7FFFFFFF || allocationFails()) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    auto &hp = heap();
    uint32_t slot;
    if (!hp.freeSlots.empty()) {
        slot = hp.freeSlots.back();
        hp.freeSlots.pop_back();
    } else {
        if (hp.blocks.size() >= kMaxSlots) {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return 0;
        }
        slot = static_cast<uint32_t>(hp.blocks.size());
        hp.blocks.emplace_back();
    }
    // Without GMEM_ZEROINIT the content is unspecified, as on Windows: the print data path
    // fills its scratch block at once and should not pay for clearing it first.
    auto *data = static_cast<uint8_t *>((uFlags & GMEM_ZEROINIT) ? std::calloc(1, dwBytes)
                                                                 : std::malloc(dwBytes));
    if (!data) {
        hp.freeSlots.push_back(slot);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    Block &b = hp.blocks[slot];
    b.data = data;
    b.size = dwBytes;
    b.lockCount = 0;
    b.used = true;
    hp.byPointer[data] = 0;
    ++hp.live;
    HGLOBAL h = ((b.gen & 0xFFF) << kSlotBits) | (slot + 1);
    hp.byPointer[data] = h;
    return h;
}

HGLOBAL GlobalReAlloc(HGLOBAL hMem, SIZE_T dwBytes, UINT) {
    Block *b = lookup(hMem);
    if (!b) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    if (dwBytes == 0 || dwBytes > 0x7FFFFFFF || allocationFails()) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    auto *data = static_cast<uint8_t *>(std::calloc(1, dwBytes));
    if (!data) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    std::memcpy(data, b->data, b->size < dwBytes ? b->size : dwBytes);
    auto &hp = heap();
    forgetRange(b->data, b->size);
    hp.byPointer.erase(b->data);
    std::free(b->data);
    b->data = data;
    b->size = dwBytes;
    hp.byPointer[data] = hMem;
    return hMem;
}

void *GlobalLock(HGLOBAL hMem) {
    Block *b = lookup(hMem);
    if (!b) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    auto &hp = heap();
    if (hp.failLockIn > 0 && --hp.failLockIn == 0) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if (b->lockCount < kMaxLock) ++b->lockCount;
    return b->data;
}

BOOL GlobalUnlock(HGLOBAL hMem) {
    Block *b = lookup(hMem);
    if (!b) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (b->lockCount > 0 && b->lockCount < kMaxLock) --b->lockCount;
    SetLastError(ERROR_SUCCESS);
    return b->lockCount > 0 ? TRUE : FALSE;
}

HGLOBAL GlobalFree(HGLOBAL hMem) {
    Block *b = lookup(hMem);
    if (!b) {
        SetLastError(ERROR_INVALID_HANDLE);
        return hMem;
    }
    auto &hp = heap();
    forgetRange(b->data, b->size);
    hp.byPointer.erase(b->data);
    std::free(b->data);
    b->data = nullptr;
    b->size = 0;
    b->lockCount = 0;
    b->used = false;
    b->gen = (b->gen % 0xFFF) + 1; // 1..4095; never 0 so no handle of a live block is 0
    hp.freeSlots.push_back((hMem & kSlotMask) - 1);
    --hp.live;
    return 0;
}

HGLOBAL GlobalHandle(const void *pMem) {
    if (!pMem) return 0;
    auto &hp = heap();
    auto it = hp.byPointer.find(pMem);
    if (it == hp.byPointer.end()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    return it->second;
}

SIZE_T GlobalSize(HGLOBAL hMem) {
    Block *b = lookup(hMem);
    return b ? b->size : 0;
}

UINT GlobalFlags(HGLOBAL hMem) {
    Block *b = lookup(hMem);
    return b ? (b->lockCount & 0xFF) : 0x8000; // GMEM_INVALID_HANDLE
}

PTR32 Ptr32From(const void *p) {
    if (!p) return 0;
    auto &m = ptrs();
    auto key = reinterpret_cast<uintptr_t>(p);
    auto it = m.forward.find(key);
    if (it != m.forward.end()) return it->second;
    PTR32 v;
    if (!m.recycled.empty()) {
        v = m.recycled.back();
        m.recycled.pop_back();
    } else {
        v = m.next;
        m.next += 16;
        if (m.next == 0) m.next = 0x00010000; // wrapped: values below are never issued
    }
    m.forward.emplace(key, v);
    m.reverse.emplace(v, key);
    return v;
}

void *Ptr32To(PTR32 v) {
    if (v == 0) return nullptr;
    auto &m = ptrs();
    auto it = m.reverse.find(v);
    return it == m.reverse.end() ? nullptr : reinterpret_cast<void *>(it->second);
}

namespace q417::mem {

void FailAllocation(long nth) {
    heap().failAllocIn = nth > 0 ? nth : 0;
}
void FailLock(long nth) {
    heap().failLockIn = nth > 0 ? nth : 0;
}
void FailAllocationsFrom(long nth) {
    auto &hp = heap();
    hp.allocCount = 0;
    hp.failAllocFrom = nth > 0 ? nth : 0;
}
long LiveBlocks() {
    return heap().live;
}

void Reset() {
    auto &hp = heap();
    for (size_t i = 0; i < hp.blocks.size(); ++i) {
        Block &b = hp.blocks[i];
        if (!b.used) continue;
        HGLOBAL h = ((b.gen & 0xFFF) << kSlotBits) | static_cast<uint32_t>(i + 1);
        GlobalFree(h);
    }
    hp.failAllocIn = hp.failAllocFrom = hp.failLockIn = 0;
}

} // namespace q417::mem
