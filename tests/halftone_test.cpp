// Halftoning: gray brushes and their pattern download, the colour transfer tables.
#include "halftone/halftone.h"
#include "platform/hostenv.h"
#include "tests/watermark/harness.h"

#include <gtest/gtest.h>

#include <bit>
#include <numeric>

namespace {

using namespace std::string_literals;

// A brush's life: made, downloaded, destroyed, leaving no block.
std::string Download(wmtest::Job &job, int level) {
    const long live = q417::mem::LiveBlocks();
    GRAYBRUSH *b = CreateGrayBrush(&job.info, level);
    EXPECT_NE(b, nullptr);
    EXPECT_EQ(PCLWritePattern(&job.info, b), 1);
    EXPECT_EQ(DestroyGrayBrush(b), 1);
    EXPECT_EQ(q417::mem::LiveBlocks(), live) << "level " << level;
    return job.Take();
}

int DarkDots(const std::string &download) {
    int n = 0;
    for (unsigned char c : download.substr(download.size() - 32)) n += std::popcount(c);
    return n;
}

// The cell holds 64 thresholds, one every four levels from 1 to 249 and 5 twice, tiled four
// times: each level's dots lie inside the darker level's, four go at each threshold. Without
// memory there is no brush, and no block is left.
TEST(GrayBrush, EveryLevelOfTheCell) {
    wmtest::Job job;
    const long before = q417::mem::LiveBlocks();
    for (long n : {1, 2}) {
        q417::mem::FailAllocation(n);
        EXPECT_EQ(CreateGrayBrush(&job.info, 10), nullptr) << n;
        q417::mem::FailAllocation(0);
        EXPECT_EQ(q417::mem::LiveBlocks(), before);
    }
    std::string darker = Download(job, 0);
    EXPECT_EQ(DarkDots(darker), 256);
    for (int level = 1; level <= 255; ++level) {
        const std::string now = Download(job, level);
        ASSERT_EQ(now.size(), darker.size());
        const int lost = level < 2 ? 0 : level == 6 ? 8 : level % 4 == 2 && level <= 250 ? 4 : 0;
        EXPECT_EQ(DarkDots(darker) - DarkDots(now), lost) << "level " << level;
        for (size_t i = now.size() - 32; i < now.size(); ++i)
            EXPECT_EQ(now[i] & ~darker[i], 0) << "level " << level << ", byte " << i;
        darker = now;
    }
    EXPECT_EQ(DarkDots(darker), 0);
}

// A level's pattern goes out once while it stands; level 0 goes out every time.
TEST(GrayBrush, PatternBytesPerLevel) {
    const std::string solid(16, '\xFF'), clear(16, '\0'); // eight rows of two bytes
    struct Case {
        int level;
        std::string rows;
    } cases[] = {
        {0, solid},
        {1, solid},
        // threshold 1 alone clears: row 6, columns 1 and 9
        {2, std::string(12, '\xFF') + "\xBF\xBF\xFF\xFF"},
        // and the pixels of threshold 5: row 2 column 5, row 5 column 1
        {6, "\xFF\xFF\xFF\xFF\xFB\xFB\xFF\xFF\xFF\xFF\xBF\xBF\xBF\xBF\xFF\xFF"},
        {250, clear},
        {-7, solid},  // below 0 acts as 0
        {300, clear}, // above 255 acts as 255
    };
    for (const Case &c : cases) {
        wmtest::Job job;
        // Emulation 1: format 0, 1 bit a pixel, 16 by 16: the eight rows twice.
        EXPECT_EQ(Download(job, c.level),
                  "\x1b*c2g40W\x00\x00\x01\x00\x00\x10\x00\x10"s + c.rows + c.rows)
            << "level " << c.level;
        EXPECT_EQ(job.info.wCurPattern, std::clamp(c.level, 0, 255));
        EXPECT_EQ(Download(job, c.level).empty(), c.level > 0) << "again, level " << c.level;
    }
    // Format 20 carries the x resolution twice; a pattern found in HP-GL/2 goes out in PCL.
    wmtest::Job job;
    job.info.bOutputMode = OUTPUT_HPGL;
    job.dm.wEmulation = 2;
    job.dm.dmYResolution = 1200; // not used by the pattern
    EXPECT_EQ(Download(job, 250),
              "\x1b%0A\x1b*c2g44W\x14\x00\x01\x00\x00\x10\x00\x10\x02\x58\x02\x58"s +
                  std::string(32, '\0'));
    EXPECT_EQ(job.info.bOutputMode, OUTPUT_PCL);
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

// The luminance weights, rounded: a gray level comes back within one. A file replaces what it
// holds.
TEST_F(Xfer, DefaultsMapGrayToItselfWithinOneAndTheFileReplacesWhatItHolds) {
    ASSERT_EQ(DefaultXfers(), 1);
    EXPECT_EQ(std::accumulate(RedXfer, RedXfer + 256, 0), 9805);
    EXPECT_EQ(std::accumulate(GrnXfer, GrnXfer + 256, 0), 19259);
    EXPECT_EQ(std::accumulate(BluXfer, BluXfer + 256, 0), 3593);
    for (int i = 0; i < 256; ++i) EXPECT_LE(std::abs(RedXfer[i] + GrnXfer[i] + BluXfer[i] - i), 1);
    const std::vector<BYTE> defaults = Tables();
    // File size, and the bytes of the three tables taken from it: red and 44 of green from 300.
    for (auto [size, replaced] : {std::pair{768, 768}, {300, 300}, {0, 0}, {1000, 768}}) {
        std::vector<BYTE> bytes(size);
        for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<BYTE>(255 - i % 251);
        const std::u16string name = q417::text::Utf8ToUtf16(dir.Write("t.xfr", bytes));
        EXPECT_EQ(ReadXferFile(name.c_str()), 1) << size;
        std::vector<BYTE> expect(bytes.begin(), bytes.begin() + replaced);
        expect.insert(expect.end(), defaults.begin() + replaced, defaults.end());
        EXPECT_EQ(Tables(), expect) << size;
    }
    const std::u16string missing = q417::text::Utf8ToUtf16((dir.path / "none.xfr").string());
    EXPECT_EQ(ReadXferFile(missing.c_str()), 0) << "no file: defaults, result 0";
    EXPECT_EQ(Tables(), defaults);
}

// The file's name is the description's with "xfr" for the last three characters.
TEST_F(Xfer, ReadXferTableFindsTheFileBesideThePrinterDescription) {
    // Too short for three characters ("ab"): no file is named.
    for (auto [in, out] :
         {std::pair<std::u16string, std::u16string>{u"C:\\d\\c417.PDD", u"C:\\d\\c417.xfr"},
          {u"noext", u"noxfr"},
          {u"abc", u"xfr"},
          {u"ab", u""}}) {
        in.push_back(0);
        EXPECT_EQ(MakeXferTableName(in.data()), 1);
        EXPECT_EQ(std::u16string(in.c_str()), out);
    }
    EXPECT_EQ(MakeXferTableName(nullptr), 0);
    std::vector<BYTE> bytes(768, 9);
    dir.Write("color417.xfr", bytes);
    const std::string pdd = (dir.path / "color417.pdd").string();
    Q417_PRINTER p{"Xfer printer", pdd.c_str(), nullptr, nullptr, nullptr};
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
    const std::u16string any = q417::text::Utf8ToUtf16((dir.path / "any.xfr").string());
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
