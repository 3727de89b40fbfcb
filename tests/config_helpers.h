// Shared pieces of the configuration tests: tables made and read back as global blocks, and
// a hand-made description record for the builder.
#pragma once

#include "config/config.h"
#include "pdd/pdd.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <cstring>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace cfgtest {

inline HGLOBAL Block(const void *data, size_t cb) {
    HGLOBAL h = GlobalAlloc(GHND, cb);
    if (data) {
        std::memcpy(GlobalLock(h), data, cb);
        GlobalUnlock(h);
    }
    return h;
}

inline HGLOBAL Text8(std::string_view s) {
    return Block(std::string(s).c_str(), s.size() + 1);
}

// A wide table of rows of `cch` characters; a text as long as the row gets no terminator.
inline HGLOBAL WideTable(std::initializer_list<std::u16string_view> rows, DWORD cch) {
    std::vector<WCHAR> t(rows.size() * cch);
    size_t r = 0;
    for (auto s : rows) std::copy_n(s.begin(), std::min<size_t>(s.size(), cch), &t[r++ * cch]);
    return Block(t.data(), t.size() * 2);
}

inline std::vector<uint8_t> Bytes(HGLOBAL h) {
    if (!h) return {};
    auto *p = static_cast<uint8_t *>(GlobalLock(h));
    std::vector<uint8_t> v(p, p + GlobalSize(h));
    GlobalUnlock(h);
    return v;
}

// Row r of a wide table, up to its terminator or the row's end.
inline std::u16string Row(HGLOBAL h, DWORD cch, DWORD r) {
    auto b = Bytes(h);
    if (b.size() < (r + 1) * cch * 2) return u"<short>";
    std::u16string s(cch, 0);
    std::memcpy(s.data(), b.data() + r * cch * 2, cch * 2);
    return s.substr(0, s.find(u'\0'));
}

inline bool RowTerminated(HGLOBAL h, DWORD cch, DWORD r) {
    auto b = Bytes(h);
    for (DWORD i = 0; i < cch; ++i)
        if (b[(r * cch + i) * 2] == 0 && b[(r * cch + i) * 2 + 1] == 0) return true;
    return false;
}

inline std::vector<uint32_t> U32s(HGLOBAL h) {
    auto b = Bytes(h);
    std::vector<uint32_t> v(b.size() / 4);
    std::memcpy(v.data(), b.data(), v.size() * 4);
    return v;
}

inline std::vector<uint16_t> U16s(HGLOBAL h) {
    auto b = Bytes(h);
    std::vector<uint16_t> v(b.size() / 2);
    std::memcpy(v.data(), b.data(), v.size() * 2);
    return v;
}

inline PDDTEXT T(std::string_view s) {
    PDDTEXT t{};
    size_t n = std::min<size_t>(s.size(), sizeof t.achText);
    std::memcpy(t.achText, s.data(), n);
    t.nLen = int16_t(n);
    return t;
}

// A description record in a global block, with entries in test-owned storage.
struct HandPDD {
    HGLOBAL h = GlobalAlloc(GHND, sizeof(PDDINFO));
    PDDINFO *p = static_cast<PDDINFO *>(GlobalLock(h));
    std::deque<PDDRESOLUTION> res;
    std::deque<PDDPAPER> papers;
    std::deque<PDDITEM> items;

    HandPDD() { p->bLangID = 9; }
    ~HandPDD() {
        GlobalUnlock(h);
        GlobalFree(h);
    }

    template <class E>
    static void Append(E *&head, E *e) {
        E **at = &head;
        while (*at) at = &(*at)->pNext;
        *at = e;
    }
    PDDRESOLUTION *Res(std::string_view key, std::string_view tr, std::string_view cmd, int x,
                       int y) {
        res.push_back({T(key), T(tr), T(cmd), x, y, nullptr});
        Append(p->pResList, &res.back());
        ++p->nResolutions;
        return &res.back();
    }
    PDDPAPER *Paper(std::string_view key, std::string_view tr, std::string_view cmd, int w, int h,
                    PDDAREA port = {12, 12, 588, 768}, PDDAREA land = {12, 12, 588, 768}) {
        papers.push_back({T(key), T(tr), T(cmd), w, h, port, land, nullptr});
        Append(p->pPaperList, &papers.back());
        ++p->nPapers;
        return &papers.back();
    }
    PDDITEM *Item(PDDITEM *&head, DWORD &count, std::string_view key, std::string_view tr,
                  std::string_view cmd) {
        items.push_back({T(key), T(tr), T(cmd), nullptr});
        Append(head, &items.back());
        ++count;
        return &items.back();
    }
    PDDITEM *Tray(std::string_view k, std::string_view t, std::string_view c) {
        return Item(p->pTrayList, p->nTrays, k, t, c);
    }
    PDDITEM *Dest(std::string_view k, std::string_view t, std::string_view c) {
        return Item(p->pDestList, p->nDests, k, t, c);
    }
    PDDITEM *Media(std::string_view k, std::string_view t, std::string_view c) {
        return Item(p->pMediaList, p->nMedia, k, t, c);
    }
};

// A record block with hPDD set, as DDIReadPDDFile gives it to the builder.
struct CfgBlock {
    HGLOBAL h = GlobalAlloc(GHND, CFGINFO_SIZE);
    CFGINFO *c = static_cast<CFGINFO *>(GlobalLock(h));
    ~CfgBlock() {
        FreeCfgTables(c);
        GlobalUnlock(h);
        GlobalFree(h);
    }
};

namespace fs = std::filesystem;

struct TempDir {
    fs::path dir;
    TempDir() {
        // Memory-backed when the host has it: some tests rewrite the file a thousand times.
        std::string tmpl =
            fs::is_directory("/dev/shm") ? "/dev/shm/q417cfgXXXXXX" : "/tmp/q417cfgXXXXXX";
        dir = mkdtemp(tmpl.data());
    }
    ~TempDir() { fs::remove_all(dir); }
    std::string operator/(const char *name) const { return (dir / name).string(); }
};

inline std::vector<uint8_t> ReadAll(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline void WriteAll(const std::string &path, const std::vector<uint8_t> &bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size()));
}

inline void SetMTime(const std::string &path, time_t sec, long nsec) {
    timespec t[2] = {{sec, nsec}, {sec, nsec}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), t, 0), 0);
}

// Everything but the handles must come back; the handles are new, the version field "N/A"
// where the description had none.
inline void ExpectSameRecord(const CFGINFO &a, const CFGINFO &b) {
    CFGINFO x, y;
    std::memcpy(&x, &a, CFGINFO_SIZE);
    std::memcpy(&y, &b, CFGINFO_SIZE);
    auto clear = [](CFGINFO &r) {
#define H(f) offsetof(CFGINFO, f)
        for (size_t off :
             {H(hPDD),       H(hResKeys),    H(hResNames),    H(hResCmds),     H(hResValues),
              H(hPaperKeys), H(hPaperNames), H(hPaperCmds),   H(hPaperDims),   H(hPaperIDs),
              H(hTrayKeys),  H(hTrayNames),  H(hTrayCmds),    H(hTrayIDs),     H(hDestKeys),
              H(hDestNames), H(hDestCmds),   H(hMediaKeys),   H(hMediaNames),  H(hMediaCmds),
              H(hPlugIn),    H(hModelName),  H(hFileVersion), H(hPortraitCmd), H(hLandscapeCmd)})
            std::memset(reinterpret_cast<uint8_t *>(&r) + off, 0, 4);
#undef H
    };
    clear(x), clear(y);
    EXPECT_EQ(std::memcmp(&x, &y, CFGINFO_SIZE), 0) << "counts, widths, defaults and flags";
    for (auto [ha, hb] : {std::pair{+a.hResKeys, +b.hResKeys}, {+a.hResNames, +b.hResNames},
                          {+a.hResCmds, +b.hResCmds},          {+a.hResValues, +b.hResValues},
                          {+a.hPaperKeys, +b.hPaperKeys},      {+a.hPaperNames, +b.hPaperNames},
                          {+a.hPaperCmds, +b.hPaperCmds},      {+a.hPaperDims, +b.hPaperDims},
                          {+a.hPaperIDs, +b.hPaperIDs},        {+a.hTrayKeys, +b.hTrayKeys},
                          {+a.hTrayNames, +b.hTrayNames},      {+a.hTrayCmds, +b.hTrayCmds},
                          {+a.hTrayIDs, +b.hTrayIDs},          {+a.hDestKeys, +b.hDestKeys},
                          {+a.hDestNames, +b.hDestNames},      {+a.hDestCmds, +b.hDestCmds},
                          {+a.hMediaKeys, +b.hMediaKeys},      {+a.hMediaNames, +b.hMediaNames},
                          {+a.hMediaCmds, +b.hMediaCmds},      {+a.hPortraitCmd, +b.hPortraitCmd},
                          {+a.hLandscapeCmd, +b.hLandscapeCmd}}) {
        EXPECT_EQ(ha == 0, hb == 0);
        EXPECT_EQ(Bytes(ha), Bytes(hb));
    }
}

inline std::string Text(HGLOBAL h) {
    auto b = Bytes(h);
    return std::string(b.begin(), std::find(b.begin(), b.end(), 0));
}

// Leak accounting around one test.
struct LiveBlocks : ::testing::Test {
    long live0 = q417::mem::LiveBlocks();
    void TearDown() override {
        q417::mem::FailAllocation(0);
        q417::mem::FailLock(0);
        EXPECT_EQ(q417::mem::LiveBlocks(), live0) << "blocks leaked or freed twice";
    }
};

} // namespace cfgtest
