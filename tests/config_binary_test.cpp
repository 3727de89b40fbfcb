// The binary configuration file: its name, when it counts as current, its sections, the round
// trip through it, and a reader that trusts nothing it finds there.
#include "pdd_testutil.h"

namespace {

using namespace pddtest;

TEST(CfgBinaryName, LastThreeCharactersBecomeBdd) {
    struct {
        const char *src;
        int cap, kind, result;
        const char *out;
    } cases[] = {
        {"C:\\drv\\model.pdd", 260, 1, 1, "C:\\drv\\model.bdd"},
        {"/x/model.pd", 260, 1, 1, "/x/modelbdd"},
        {"model.pdd", 260, 2, 1, "model.ptr"},
        {"model.pdd", 260, 3, 0, "model.pdd"},
        {"ab", 260, 1, 0, "ab"},
        {"model.pdd", 10, 1, 1, "model.bdd"},
        {"model.pdd", 9, 1, 0, "model.pd"},
    };
    for (auto &c : cases) {
        char out[260];
        std::memset(out, 'z', sizeof out);
        EXPECT_EQ(MakeCfgBinaryName(c.src, out, c.cap, c.kind), c.result) << c.src;
        EXPECT_STREQ(out, c.out) << c.src;
    }
}

// Only a non-empty regular file counts; the times themselves are checked through
// DDIReadCfgFile in config_readcfg_test.cpp.
TEST(CfgBinaryCurrent, OnlyANonEmptyRegularFileCounts) {
    TempDir t;
    std::string pdd = t.Write("m.pdd", "*"), bin = t.Write("m.bdd", "");
    std::string dir = t / "d.bdd";
    fs::create_directory(dir);
    SetMTime(pdd, 1700000000, 0);
    for (const std::string &f : {bin, dir}) {
        SetMTime(f, 1800000000, 0);
        EXPECT_EQ(CfgBinaryCurrent(pdd.c_str(), f.c_str()), 0) << f;
    }
    EXPECT_EQ(CfgBinaryCurrent((t / "none.pdd").c_str(), bin.c_str()), 0) << "no description";
    EXPECT_EQ(CfgBinaryCurrent(pdd.c_str(), (t / "none.bdd").c_str()), 0) << "no binary";
}

// A record with every family, a custom paper, a plug-in and both orientation commands.
void FillFull(HandPDD &pdd) {
    pdd.Res("600dpi", "600 dpi", "", 600, 600);
    pdd.p->pDefaultRes = pdd.Res("1200dpi", "", "@PJL SET RESOLUTION=1200", 1200, 1200);
    pdd.Paper("Letter", "US Letter", "2", 6120, 7920, {12, 12, 588, 768}, {14, 12, 586, 768});
    pdd.p->pDefaultPaper = pdd.Paper("A4", "", "26", 5952, 8418);
    pdd.p->pCustomPaper = pdd.Paper("Custom", "Custom Size", "101", 6120, 7920);
    pdd.Tray("Tray1", "upper", "1");
    pdd.p->pDefaultTray = pdd.Tray("Manual", "manual feed", "2");
    pdd.Dest("Top", "Top Bin", "1");
    pdd.Media("Plain", "Plain Paper", "0");
    pdd.p->pDefaultMedia = pdd.Media("Glossy", "", "");
    pdd.p->Product = T("Sample 1200");
    pdd.p->FileVersion = T("1.00");
    pdd.p->PlugIn = T("sample.so");
    pdd.p->PortraitCmd = T("@PJL SET ORIENTATION=PORTRAIT\r\n");
    pdd.p->LandscapeCmd = T("@PJL SET ORIENTATION=LANDSCAPE\r\n");
    pdd.p->dwCustMinWidth = 216, pdd.p->dwCustMaxHeight = 1008, pdd.p->dwCustMarginTop = 12;
    pdd.p->dwDuplex = 1, pdd.p->dwCollate = 1, pdd.p->dwColors = 3, pdd.p->bTextClipping = 1;
    pdd.p->bLandscapeMinus90 = 1, pdd.p->bFontPitch = 10;
}

void FillMinimal(HandPDD &pdd) {
    pdd.Res("300dpi", "", "", 300, 300);
    pdd.Paper("A4", "", "26", 5950, 8420);
    pdd.Tray("Tray1", "", "7");
    pdd.p->Product = T("Plain");
}

struct Binary : LiveBlocks {
    TempDir t;
    std::string path = t / "m.bdd";
};

// The file of the full record, section by section, sized by hand:
//  header 343; papers 3 rows: names 12 wide, keys 7, dims 6 x u32 x 2 halves, codes 4, ids;
//  trays 2 rows: names 12, keys 7, codes 2, ids; resolutions 2 rows: names 8, keys 8, codes
//  25, values; model 32, version 32, plug-in 64; one bin: names 8, keys 4, codes 2; two media:
//  names 12, keys 7, codes 2; portrait 31 bytes, landscape 32.
TEST_F(Binary, SectionsOfAKnownRecord) {
    HandPDD pdd;
    FillFull(pdd);
    CfgBlock cfg;
    ASSERT_EQ(cfg.Build(pdd), 1);
    ASSERT_EQ(WriteCfgBinary(cfg.c, path.c_str()), 1);
    auto file = ReadAll(path);

    const CFGINFO &c = *cfg.c;
    const struct {
        const char *name;
        size_t size;
        HGLOBAL h; // block whose bytes the section holds, or 0 for text fields
    } secs[] = {
        // clang-format off
        {"paper names", 12 * 3 * 2, c.hPaperNames}, {"paper keys", 7 * 3 * 2, c.hPaperKeys},
        {"paper dims", 3 * 48, c.hPaperDims},       {"paper codes", 4 * 3 * 2, c.hPaperCmds},
        {"paper ids", 3 * 2, c.hPaperIDs},          {"tray names", 12 * 2 * 2, c.hTrayNames},
        {"tray keys", 7 * 2 * 2, c.hTrayKeys},      {"tray codes", 2 * 2 * 2, c.hTrayCmds},
        {"tray ids", 2 * 2, c.hTrayIDs},            {"res names", 8 * 2 * 2, c.hResNames},
        {"res keys", 8 * 2 * 2, c.hResKeys},        {"res codes", 25 * 2 * 2, c.hResCmds},
        {"res values", 2 * 8, c.hResValues},        {"model", 32, 0},
        {"version", 32, 0},                         {"plug-in", 64, 0},
        {"bin names", 8 * 1 * 2, c.hDestNames},     {"bin keys", 4 * 1 * 2, c.hDestKeys},
        {"bin codes", 2 * 1 * 2, c.hDestCmds},      {"media names", 12 * 2 * 2, c.hMediaNames},
        {"media keys", 7 * 2 * 2, c.hMediaKeys},    {"media codes: one empty row", 8, c.hMediaCmds},
        {"portrait", 31, c.hPortraitCmd},           {"landscape", 32, c.hLandscapeCmd},
        // clang-format on
    };
    size_t at = CFGINFO_SIZE;
    std::string texts; // model, version, wide plug-in name: fixed fields, zero-filled
    for (auto &s : secs) {
        SCOPED_TRACE(s.name);
        ASSERT_LE(at + s.size, file.size());
        std::vector<uint8_t> sec(&file[at], &file[at] + s.size);
        EXPECT_TRUE(!s.h || Bytes(s.h) == sec);
        if (!s.h) texts.append(sec.begin(), sec.end());
        at += s.size;
    }
    EXPECT_EQ(at, file.size());

    EXPECT_EQ(Escape(texts),
              Escape(std::string("Sample 1200") + std::string(21, '\0') + "1.00" +
                     std::string(28, '\0') + std::string("s\0a\0m\0p\0l\0e\0.\0s\0o\0", 18) +
                     std::string(46, '\0')));
    // The header: the record with hPDD, the reserved words at 6 and the scratch pointers 0.
    CFGINFO hdr;
    std::memcpy(&hdr, file.data(), CFGINFO_SIZE);
    EXPECT_EQ(hdr.hPDD, 0u);
    EXPECT_EQ(hdr.wVersion, 11);
    EXPECT_EQ(hdr.hPaperNames, c.hPaperNames) << "handles keep the writer's values";
}

TEST_F(Binary, LongTextsFillTheirFieldsWithoutTerminator) {
    HandPDD pdd;
    FillMinimal(pdd);
    pdd.p->Product = T(std::string(40, 'M'));
    pdd.p->FileVersion = T(std::string(33, 'V'));
    pdd.p->PlugIn = T(std::string(35, 'p'));
    CfgBlock built, read;
    ASSERT_EQ(built.Build(pdd), 1);
    ASSERT_EQ(WriteCfgBinary(built.c, path.c_str()), 1);
    ASSERT_EQ(ReadCfgBinary(read.c, path.c_str()), 1);
    EXPECT_EQ(Bytes(read.c->hModelName), std::vector<uint8_t>(32, 'M'));
    EXPECT_EQ(Bytes(read.c->hFileVersion), std::vector<uint8_t>(32, 'V'));
    EXPECT_EQ(Bytes<char16_t>(read.c->hPlugIn), std::vector<char16_t>(32, u'p'));
}

// A table that can't be locked ends the write with an empty file, which is never current.
TEST_F(Binary, FailedWriteLeavesAnEmptyFile) {
    HandPDD pdd;
    FillFull(pdd);
    CfgBlock cfg;
    ASSERT_EQ(cfg.Build(pdd), 1);
    std::string pddPath = t / "m.pdd";
    WriteAll(pddPath, {'*'});
    SetMTime(pddPath, 1600000000, 0);
    for (long k = 1; k <= 23; ++k) {
        SCOPED_TRACE(k);
        q417::mem::FailLock(k);
        int ok = WriteCfgBinary(cfg.c, path.c_str());
        q417::mem::FailLock(0);
        EXPECT_EQ(ok, 0);
        EXPECT_EQ(fs::file_size(path), 0u);
        EXPECT_EQ(CfgBinaryCurrent(pddPath.c_str(), path.c_str()), 0);
    }
    // 23 tables are locked before the first write; the version is locked on its own and
    // stands as "N/A" when it can't be had.
    q417::mem::FailLock(24);
    EXPECT_EQ(WriteCfgBinary(cfg.c, path.c_str()), 1);
    q417::mem::FailLock(0);
    CfgBlock read;
    ASSERT_EQ(ReadCfgBinary(read.c, path.c_str()), 1);
    EXPECT_EQ(Text(read.c->hFileVersion), "N/A");

    // Without a model name the file always stays empty.
    HandPDD bare;
    FillMinimal(bare);
    bare.p->Product = T("");
    CfgBlock cfg2;
    ASSERT_EQ(cfg2.Build(bare), 1);
    EXPECT_EQ(WriteCfgBinary(cfg2.c, path.c_str()), 0);
    EXPECT_EQ(fs::file_size(path), 0u);
}

struct BadFile : Binary {
    std::vector<uint8_t> good;
    void SetUp() override {
        HandPDD pdd;
        FillFull(pdd);
        CfgBlock cfg;
        ASSERT_EQ(cfg.Build(pdd), 1);
        ASSERT_EQ(WriteCfgBinary(cfg.c, path.c_str()), 1);
        good = ReadAll(path);
    }
    // Reads `bytes` and expects a refusal with an all-zero record and nothing left allocated.
    void ExpectRefused(const std::vector<uint8_t> &bytes, const char *why) {
        SCOPED_TRACE(why);
        WriteAll(path, bytes);
        long live = q417::mem::LiveBlocks();
        CFGINFO rec;
        std::memset(&rec, 0, sizeof rec);
        EXPECT_EQ(ReadCfgBinary(&rec, path.c_str()), 0);
        EXPECT_EQ(q417::mem::LiveBlocks(), live);
        CFGINFO zero{};
        EXPECT_EQ(std::memcmp(&rec, &zero, CFGINFO_SIZE), 0) << "record left all zero";
    }
    std::vector<uint8_t> WithU32(size_t off, uint32_t v) {
        auto b = good;
        std::memcpy(&b[off], &v, 4);
        return b;
    }
};

TEST_F(BadFile, TruncationAnywhere) {
    for (size_t n = 0; n < good.size(); ++n) {
        ExpectRefused(std::vector<uint8_t>(good.begin(), good.begin() + n), "truncated");
        if (HasFailure()) {
            ADD_FAILURE() << "at " << n;
            break;
        }
    }
    auto longer = good;
    longer.push_back(0xEE);
    WriteAll(path, longer);
    CFGINFO rec{};
    EXPECT_EQ(ReadCfgBinary(&rec, path.c_str()), 1) << "bytes behind the last section are ignored";
    FreeCfgTables(&rec);
}

TEST_F(BadFile, HeadersThatLie) {
    struct {
        size_t off;
        uint32_t value;
        const char *why;
    } cases[] = {
        {offsetof(CFGINFO, nPapers), 0x80000000u, "count x width overflows 32 bits"},
        {offsetof(CFGINFO, nPapers), 0x01000000u, "more rows than the file holds"},
        {offsetof(CFGINFO, nPapers), 4, "one row more than written"},
        {offsetof(CFGINFO, nPapers), 0, "no papers"},
        {offsetof(CFGINFO, cchPaperName), 0xFFFFFFFFu, "absurd width"},
        {offsetof(CFGINFO, cchTrayCmd), 0, "codes missing"},
        {offsetof(CFGINFO, cbPortraitCmd), 0x7FFFFFFFu, "huge command"},
        {offsetof(CFGINFO, nDefaultPaper), 3, "default past the list"},
        {offsetof(CFGINFO, nCustomPaper), 7, "custom paper past the list"},
        {offsetof(CFGINFO, nDests), 0, "bins gone but widths left"},
        {offsetof(CFGINFO, cchMediaName), 0, "media names gone but count left"},
    };
    for (auto &c : cases) ExpectRefused(WithU32(c.off, c.value), c.why);
    for (uint16_t v : {10, 12, 0, 0xFFFF}) {
        auto b = good;
        std::memcpy(&b[offsetof(CFGINFO, wVersion)], &v, 2);
        ExpectRefused(b, "another version");
    }
    ExpectRefused({}, "empty file");
    CFGINFO rec{};
    fs::create_directory(t / "dir.bdd");
    for (std::string name : {t / "missing.bdd", t / "dir.bdd", std::string()})
        EXPECT_EQ(ReadCfgBinary(&rec, name.c_str()), 0) << name;
    EXPECT_EQ(ReadCfgBinary(nullptr, path.c_str()), 0);
    const CFGINFO zero{};
    EXPECT_EQ(std::memcmp(&rec, &zero, CFGINFO_SIZE), 0) << "record left all zero";
}

// The handles in a header are another process's numbers; one that happens to name a live
// block here must not be freed, whatever else is wrong with the file.
TEST_F(BadFile, HeaderHandlesAreNeverFreed) {
    HGLOBAL mine = GlobalAlloc(GHND, 16);
    for (uint16_t version : {11, 10}) {
        auto b = WithU32(offsetof(CFGINFO, hPaperNames), mine);
        std::memcpy(&b[offsetof(CFGINFO, wVersion)], &version, 2);
        if (version == 11) std::memcpy(&b[offsetof(CFGINFO, nDefaultPaper)], "\x09\0\0\0", 4);
        ExpectRefused(b, version == 11 ? "lying header" : "old version");
        EXPECT_EQ(GlobalSize(mine), 16u) << "still alive";
    }
    GlobalFree(mine);
}

TEST_F(BadFile, RefusedBeforeAnyAllocation) {
    WriteAll(path, WithU32(offsetof(CFGINFO, nPapers), 0x00800000u));
    CFGINFO rec{};
    q417::mem::FailAllocation(1);
    EXPECT_EQ(ReadCfgBinary(&rec, path.c_str()), 0);
    HGLOBAL probe = GlobalAlloc(GHND, 1);
    EXPECT_EQ(probe, 0u) << "the armed failure is still waiting: the reader allocated nothing";
    q417::mem::FailAllocation(0);
}

TEST_F(BadFile, NoMemoryMidwayFreesEverything) {
    for (bool lock : {false, true}) {
        for (long k = 1;; ++k) {
            SCOPED_TRACE(k);
            WriteAll(path, good);
            long live = q417::mem::LiveBlocks();
            CFGINFO rec{};
            lock ? q417::mem::FailLock(k) : q417::mem::FailAllocation(k);
            int ok = ReadCfgBinary(&rec, path.c_str());
            q417::mem::FailLock(0);
            q417::mem::FailAllocation(0);
            if (ok) {
                EXPECT_EQ(k, 25) << "one block for each of the 24 sections behind the header";
                FreeCfgTables(&rec);
                break;
            }
            EXPECT_EQ(q417::mem::LiveBlocks(), live);
            CFGINFO zero{};
            EXPECT_EQ(std::memcmp(&rec, &zero, CFGINFO_SIZE), 0);
        }
    }
}

} // namespace
