// Colour transfer tables: the defaults, the file over them, and the file's name.
#include "halftone/halftone.h"
#include "tests/watermark/harness.h"

#include <numeric>

namespace {

std::u16string Wide(const std::string &s) {
    return std::u16string(s.begin(), s.end());
}

struct Xfer : ::testing::Test {
    wmtest::TempDir dir;
    void TearDown() override {
        q417::mem::FailAllocation(0);
        q417::mem::FailLock(0);
    }
    // The three tables as one run of 768 bytes.
    static std::vector<BYTE> Tables() {
        std::vector<BYTE> all;
        for (const BYTE *t : {RedXfer, GrnXfer, BluXfer})
            all.insert(all.end(), t, t + kXferEntries);
        return all;
    }
};

// The luminance weights, rounded: a gray level comes back within one.
TEST_F(Xfer, DefaultsMapGrayToItselfWithinOne) {
    ASSERT_EQ(DefaultXfers(), 1);
    EXPECT_EQ(std::accumulate(RedXfer, RedXfer + 256, 0), 9805);
    EXPECT_EQ(std::accumulate(GrnXfer, GrnXfer + 256, 0), 19259);
    EXPECT_EQ(std::accumulate(BluXfer, BluXfer + 256, 0), 3593);
    for (int i = 0; i < 256; ++i) EXPECT_LE(std::abs(RedXfer[i] + GrnXfer[i] + BluXfer[i] - i), 1);
}

TEST_F(Xfer, TheFileReplacesWhatItHolds) {
    struct Case {
        const char *what;
        size_t size;
        int result;
        int replaced; // bytes of the three tables taken from the file
    } cases[] = {
        {"whole file", 768, 1, 768},
        {"red and 44 of green", 300, 1, 300},
        {"empty file", 0, 1, 0},
        {"longer than the tables", 1000, 1, 768},
    };
    ASSERT_EQ(DefaultXfers(), 1);
    const std::vector<BYTE> defaults = Tables();
    for (const Case &c : cases) {
        std::vector<BYTE> bytes(c.size);
        for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<BYTE>(255 - i % 251);
        const std::u16string name = Wide(dir.Write("t.xfr", bytes));
        EXPECT_EQ(ReadXferFile(name.c_str()), c.result) << c.what;
        std::vector<BYTE> expect(bytes.begin(), bytes.begin() + c.replaced);
        expect.insert(expect.end(), defaults.begin() + c.replaced, defaults.end());
        EXPECT_EQ(Tables(), expect) << c.what;
    }
    const std::u16string missing = Wide((dir.path / "none.xfr").string());
    EXPECT_EQ(ReadXferFile(missing.c_str()), 0) << "no file: defaults, result 0";
    EXPECT_EQ(Tables(), defaults);
}

TEST_F(Xfer, TheNameTakesXfrForTheLastThreeCharacters) {
    struct Case {
        std::u16string in, out;
    } cases[] = {
        {u"C:\\drivers\\color417.PDD", u"C:\\drivers\\color417.xfr"},
        {u"noext", u"noxfr"},
        {u"abc", u"xfr"},
        {u"ab", u""}, // no three characters to replace: no file is named
    };
    for (const Case &c : cases) {
        std::vector<WCHAR> buf(c.in.begin(), c.in.end());
        buf.push_back(0);
        EXPECT_EQ(MakeXferTableName(buf.data()), 1);
        EXPECT_EQ(std::u16string(buf.data()), c.out);
    }
    EXPECT_EQ(MakeXferTableName(nullptr), 0);
}

TEST_F(Xfer, ReadXferTableFindsTheFileBesideThePrinterDescription) {
    std::vector<BYTE> bytes(768, 9);
    dir.Write("color417.xfr", bytes);
    const std::string pdd = (dir.path / "color417.pdd").string();
    Q417_PRINTER p{};
    p.name = "Xfer printer";
    p.pdd_path = pdd.c_str();
    const HANDLE32 h = Q417_AddPrinter(&p);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(ReadXferTable(h), 1);
    EXPECT_EQ(Tables(), bytes);
    Q417_DeletePrinter(h);
    // A printer nobody knows has no description: the defaults stand all the same.
    EXPECT_EQ(ReadXferTable(0xFFFF1234u), 0);
    ASSERT_NE(RedXfer, nullptr);
    const std::vector<BYTE> got = Tables();
    ASSERT_EQ(DefaultXfers(), 1);
    EXPECT_EQ(got, Tables());
}

// A failed allocation or lock of any table leaves none: the old ones are freed, no new ones kept.
TEST_F(Xfer, AllThreeOrNone) {
    ASSERT_EQ(DefaultXfers(), 1);
    const long withTables = q417::mem::LiveBlocks();
    const std::u16string any = Wide((dir.path / "any.xfr").string());
    for (long nth : {1L, 2L, 3L}) {
        q417::mem::FailAllocation(nth);
        EXPECT_EQ(AllocXfers(), 0) << nth;
        q417::mem::FailLock(nth);
        EXPECT_EQ(ReadXferFile(any.c_str()), 0) << nth;
        EXPECT_TRUE(!RedXfer && !GrnXfer && !BluXfer) << nth;
        EXPECT_EQ(q417::mem::LiveBlocks(), withTables - 3) << nth;
    }
    FreeXfers(); // twice is harmless
    EXPECT_EQ(q417::mem::LiveBlocks(), withTables - 3);
}

} // namespace
