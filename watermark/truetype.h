// Reading TrueType files for the watermark's soft font: checked byte access, the table
// directory, and the character map walk. Every number in the file is big-endian.
#pragma once

#include "platform/win32.h"

#include <cstdint>

namespace q417::tt {

// A checked cursor over bytes in memory: each read tests what is left before it reads.
struct Reader {
    const BYTE *p;
    const BYTE *end;

    bool has(size_t n) const { return end - p >= 0 && static_cast<size_t>(end - p) >= n; }
    bool skip(size_t n) {
        if (!has(n)) return false;
        p += n;
        return true;
    }
    bool u16(WORD &v) {
        if (!has(2)) return false;
        v = static_cast<WORD>(p[0] << 8 | p[1]);
        p += 2;
        return true;
    }
    bool u32(DWORD &v) {
        if (!has(4)) return false;
        v = DWORD(p[0]) << 24 | DWORD(p[1]) << 16 | DWORD(p[2]) << 8 | p[3];
        p += 4;
        return true;
    }
};

inline WORD Be16(const BYTE *p) {
    return static_cast<WORD>(p[0] << 8 | p[1]);
}
inline DWORD Be32(const BYTE *p) {
    return DWORD(p[0]) << 24 | DWORD(p[1]) << 16 | DWORD(p[2]) << 8 | p[3];
}
inline void PutBe16(BYTE *p, unsigned v) {
    p[0] = static_cast<BYTE>(v >> 8);
    p[1] = static_cast<BYTE>(v);
}

inline uint64_t Padded(uint64_t n) {
    return (n + 3) & ~uint64_t(3);
}

// A locked global block that is freed with its owner.
class Block {
  public:
    Block() = default;
    explicit Block(SIZE_T n);
    ~Block();
    Block(const Block &) = delete;
    Block &operator=(const Block &) = delete;
    Block(Block &&o) noexcept : h_(o.h_), p_(o.p_) { o.h_ = 0, o.p_ = nullptr; }
    Block &operator=(Block &&o) noexcept;
    BYTE *get() const { return p_; }
    explicit operator bool() const { return p_ != nullptr; }
    BYTE *release(); // hands the locked block to the caller (free with FreeLocked)

  private:
    HGLOBAL h_ = 0;
    BYTE *p_ = nullptr;
};

// Frees a block handed out locked by Block::release.
void FreeLocked(void *p);

// The file's size, or 0 when it can't be told.
DWORD FileSize(HANDLE hFile);
// Reads exactly n bytes at a file offset.
bool ReadAt(HANDLE hFile, DWORD offset, void *buf, DWORD n);

// The offset table (first 12 bytes) and the table directory of an open font file.
struct Directory {
    BYTE offsetTable[12];
    WORD nTables = 0;
    Block entries; // nTables records of 16 bytes: tag, checksum, offset, length
    DWORD fileSize = 0;
};
bool ReadDirectory(HANDLE hFile, Directory &dir);

// A table's place in the file, checked to lie inside the file.
struct Table {
    const BYTE *entry = nullptr; // its directory record
    DWORD offset = 0;
    DWORD length = 0;
};
// False when the tag is missing or its extent passes the end of the file.
bool FindTable(const Directory &dir, const char *tag, Table &t);
// Reads a whole table into a new block; false on any failure.
bool LoadTable(HANDLE hFile, const Table &t, Block &out);

// Builds GlyphIDArray from a cmap table in memory and clears GlyphDown. False when the
// font has no usable Microsoft map of format 4, or a scratch block can't be had.
bool BuildGlyphIDArray(const BYTE *cmap, DWORD cbCmap);

// The Unicode value behind a Windows Latin 1 code.
WORD WinCodeToUnicode(unsigned code);

} // namespace q417::tt
