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

const std::string kFull = std::string(Q417_TEST_DATA) + "/config/full.pdd";

struct Binary : LiveBlocks {
    TempDir t;
    std::string path = t / "m.bdd";
    // Parses a description, builds its record into cfg and writes the file.
    int Write(const std::string &pdd, CfgBlock &cfg) {
        Parsed parsed(pdd);
        return cfg.Build(parsed.h) && WriteCfgBinary(cfg.c, path.c_str());
    }
};

// The files of two descriptions byte for byte: the header (the record with hPDD 0 and the
// writer's handles, which the golden files hold as 0), then every table and text in its fixed
// order. tables.pdd says what its lines exercise.
TEST_F(Binary, FilesOfKnownDescriptions) {
    for (std::string name : {"full", "tables"}) {
        SCOPED_TRACE(name);
        CfgBlock cfg;
        ASSERT_EQ(Write(std::string(Q417_TEST_DATA) + "/config/" + name + ".pdd", cfg), 1);
        auto file = ReadAll(path);
        ASSERT_GT(file.size(), CFGINFO_SIZE);
        const CFGINFO &header = *reinterpret_cast<const CFGINFO *>(file.data());
        EXPECT_EQ(HandleAt(header, offsetof(CFGINFO, hPaperNames)), cfg.c->hPaperNames);
        for (size_t off : kHandleAt) std::memset(&file[off], 0, sizeof(HGLOBAL));
        EXPECT_EQ(file, ReadAll(std::string(Q417_TEST_DATA) + "/config/" + name + ".bdd"));
    }
}

// The widest a description allows: 40-byte texts, so rows of 41 and orientation texts of 40.
// The file reads back whole; the fixed text fields are filled without a terminator.
TEST_F(Binary, TheWidestConfigurationReadsBack) {
    const std::string k40(40, 'k'), n40(40, 'n'), o40(40, 'o');
    CfgBlock built, read;
    ASSERT_EQ(
        Write(t.Write("long.pdd",
                      "*PDD-Lindgate:\n*Product: \"" + std::string(40, 'M') +
                          "\"\n*FileVersion: \"" + std::string(33, 'V') + "\"\n*PlugIn: " +
                          std::string(35, 'p') + "\n*Orientation Portrait: \"" + o40 +
                          "\"\n*Orientation Landscape: \"" + o40 + "\"\n*PageSize " + k40 + "/" +
                          n40 + ": 26\n*PaperDimension " + k40 + ": \"612 792\"\n*ImageableArea " +
                          k40 + ": \"18 18 594 774\"\n*InputSlot " + k40 + "/" + n40 +
                          ": 1\n*Resolution " + k40 + "/" + n40 + ": \"" + k40 + "\"\n"),
              built),
        1);
    // Copies (unary +): the record is packed, and a reference to its fields would be misaligned.
    EXPECT_EQ(+built.c->cchPaperName, 41u);
    EXPECT_EQ(+built.c->cchTrayName, 41u);
    EXPECT_EQ(+built.c->cbPortraitCmd, 40u);
    ASSERT_EQ(ReadCfgBinary(read.c, path.c_str()), 1);
    ExpectSameRecord(*built.c, *read.c);
    EXPECT_EQ(Bytes(read.c->hModelName), std::vector<uint8_t>(32, 'M'));
    EXPECT_EQ(Bytes(read.c->hFileVersion), std::vector<uint8_t>(32, 'V'));
    EXPECT_EQ(Bytes<char16_t>(read.c->hPlugIn), std::vector<char16_t>(32, u'p'));
    EXPECT_EQ(Text(read.c->hLandscapeCmd), o40);
}

// A table that can't be locked ends the write with an empty file, which is never current.
TEST_F(Binary, FailedWriteLeavesAnEmptyFile) {
    CfgBlock cfg;
    ASSERT_EQ(Write(kFull, cfg), 1);
    std::string pddPath = t.Write("m.pdd", "*");
    SetMTime(pddPath, 1600000000, 0);
    for (long k = 1; k <= 23; ++k) {
        SCOPED_TRACE(k);
        q417::mem::FailLock(k);
        EXPECT_EQ(WriteCfgBinary(cfg.c, path.c_str()), 0);
        q417::mem::FailLock(0);
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
    CfgBlock bare;
    EXPECT_EQ(Write(t.Write("bare.pdd", "*PDD-Lindgate:\n*PageSize A4: 26\n*InputSlot T: 1\n"
                                        "*Resolution 3dpi:\n"),
                    bare),
              0);
    EXPECT_EQ(fs::file_size(path), 0u);
}

// The handles in a header are another process's numbers: the good file names a live block
// here, which no refusal may free.
struct BadFile : Binary {
    std::vector<uint8_t> good;
    HGLOBAL mine = GlobalAlloc(GHND, 16);
    void SetUp() override {
        CfgBlock cfg;
        ASSERT_EQ(Write(kFull, cfg), 1);
        good = ReadAll(path);
        std::memcpy(&good[offsetof(CFGINFO, hPaperNames)], &mine, sizeof mine);
    }
    void TearDown() override {
        GlobalFree(mine);
        Binary::TearDown();
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
        EXPECT_EQ(GlobalSize(mine), 16u) << "a header's handle was freed";
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

TEST_F(BadFile, RefusedBeforeAnyAllocation) {
    WriteAll(path, WithU32(offsetof(CFGINFO, nPapers), 0x00800000u));
    CFGINFO rec{};
    q417::mem::FailAllocation(1);
    EXPECT_EQ(ReadCfgBinary(&rec, path.c_str()), 0);
    HGLOBAL probe = GlobalAlloc(GHND, 1);
    EXPECT_EQ(probe, 0u) << "the armed failure is still waiting: the reader allocated nothing";
    q417::mem::FailAllocation(0);
}

} // namespace
