// Gray brushes and the pattern download: pattern bytes per level and both header formats.
#include "halftone/halftone.h"
#include "tests/watermark/harness.h"

#include <gtest/gtest.h>

#include <bit>

namespace {

using wmtest::Escaped;

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
// times: each level's dots lie inside the darker level's, four go at each threshold.
TEST(GrayBrush, EveryLevelOfTheCell) {
    wmtest::Job job;
    job.dm.wEmulation = 1;
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
        job.dm.wEmulation = 1;                                       // format 0
        const std::string expect = "\x1b*c2g40W"                     // 8 + 32 bytes follow
                                   + std::string("\x00\x00\x01\x00"  // format 0, 1 bit a pixel
                                                 "\x00\x10\x00\x10", // 16 high, 16 wide
                                                 8) +
                                   c.rows + c.rows; // the eight rows twice
        EXPECT_EQ(Escaped(Download(job, c.level)), Escaped(expect)) << "level " << c.level;
        EXPECT_EQ(job.info.wCurPattern, std::clamp(c.level, 0, 255));
    }
}

// Format 20 carries the x resolution twice; a pattern found in HP-GL/2 goes out in PCL.
TEST(GrayBrush, Format20FromHpgl) {
    wmtest::Job job;
    job.info.bOutputMode = OUTPUT_HPGL;
    job.dm.wEmulation = 2;
    job.dm.dmPrintQuality = 600;
    job.dm.dmYResolution = 1200; // not used by the pattern
    const std::string expect = "\x1b%0A\x1b*c2g44W" +
                               std::string("\x14\x00\x01\x00"  // format 20
                                           "\x00\x10\x00\x10"  // 16 by 16
                                           "\x02\x58\x02\x58", // 600 and 600 dpi
                                           12) +
                               std::string(32, '\0');
    EXPECT_EQ(Escaped(Download(job, 250)), Escaped(expect));
    EXPECT_EQ(job.info.bOutputMode, OUTPUT_PCL);
}

TEST(GrayBrush, SameLevelStandingIsNotSentAgainButLevelZeroIs) {
    wmtest::Job job;
    EXPECT_FALSE(Download(job, 100).empty());
    EXPECT_TRUE(Download(job, 100).empty());
    EXPECT_FALSE(Download(job, 101).empty());
    EXPECT_FALSE(Download(job, 0).empty());
    EXPECT_FALSE(Download(job, 0).empty());
}

TEST(GrayBrush, NoMemoryLeavesNothingBehind) {
    wmtest::Job job;
    const long before = q417::mem::LiveBlocks();
    for (long n : {1, 2}) {
        q417::mem::FailAllocation(n);
        EXPECT_EQ(CreateGrayBrush(&job.info, 10), nullptr) << n;
        EXPECT_EQ(q417::mem::LiveBlocks(), before);
    }
    q417::mem::FailAllocation(0);
}

} // namespace
