// A whole job through the exported entries on a real description: the codes of the rows the
// device mode chose, the description's version and its PJL orientation text reach the stream,
// the first job leaves the binary file behind and the next one is served from the cache.
#include "job_harness.h"

#include "config/config.h"
#include "halftone/halftone.h"

#include <filesystem>

namespace {

using q417::test::JobHarness;

struct ConfigJob : ::testing::Test {
    JobHarness h{"cfgjob"};
    long live0 = 0;
    void SetUp() override {
        DefaultXfers();
        live0 = q417::mem::LiveBlocks();
        std::filesystem::copy_file(std::string(Q417_TEST_DATA) + "/config/full.pdd", h.pddPath());
    }
    void TearDown() override {
        DiscardDeviceInfo(nullptr);
        FreeFunctionTable();
        EXPECT_EQ(q417::mem::LiveBlocks(), live0) << "the cache frees what it owns";
    }

    // One page with the given rows and orientation; the bytes the printer got.
    std::string Job(WORD paperRow, WORD trayRow, SHORT orientation) {
        h.events.clear();
        EXPECT_NE(h.Start(), nullptr);
        std::vector<BYTE> dm = h.DevMode();
        auto *pdm = reinterpret_cast<DDIDEVMODE *>(dm.data());
        pdm->wPaperIndex = paperRow;
        pdm->wSourceIndex = trayRow;
        pdm->dmOrientation = orientation;
        h.SendSetup(dm);
        EXPECT_EQ(DrvSplStartPage(h.job()), 1);
        EXPECT_EQ(h.SendData("<page>"), 1);
        EXPECT_EQ(DrvSplEndPage(h.job()), 1);
        DrvSplEndDoc(h.job());
        h.Close();
        return h.Stream();
    }
};

bool Has(const std::string &stream, const std::string &piece) {
    return stream.find(piece) != std::string::npos;
}

TEST_F(ConfigJob, CodesVersionAndOrientationOfTheDescriptionReachTheStream) {
    const std::filesystem::path binary =
        std::filesystem::path(h.pddPath()).replace_extension(".bdd");
    ASSERT_FALSE(std::filesystem::exists(binary));

    struct Case {
        WORD paperRow, trayRow;
        SHORT orientation;
        const char *pageSize; // "*PageSize A4/A4: 26" is row 1
        const char *tray;     // "*InputSlot Drawer/Big Drawer: 5" is row 2
        const char *pjl;
    } cases[] = {
        {1, 2, 2, "\x1b&l26a", "\x1b&l5H", "@PJL SET ORIENTATION=LANDSCAPE\n"},
        // The second job is served from the cache of the first.
        {0, 0, 1, "\x1b&l2a", "\x1b&l1H", "@PJL SET ORIENTATION=PORTRAIT\n"},
        {2, 1, 1, "\x1b&l101a", "\x1b&l2H", "@PJL SET ORIENTATION=PORTRAIT\n"},
    };
    for (const Case &c : cases) {
        std::string s = Job(c.paperRow, c.trayRow, c.orientation);
        EXPECT_TRUE(Has(s, "@PJL COMMENT PDD Version: 2.10\n")) << c.pageSize;
        EXPECT_TRUE(Has(s, c.pjl)) << c.pageSize;
        EXPECT_TRUE(Has(s, c.pageSize)) << c.pageSize;
        EXPECT_TRUE(Has(s, c.tray)) << c.pageSize;
        EXPECT_TRUE(Has(s, "<page>"));
        ASSERT_NE(hCfg, 0u) << "the configuration stays for the process";
    }
    EXPECT_GT(std::filesystem::file_size(binary), CFGINFO_SIZE) << "written by the first job";
}

TEST_F(ConfigJob, WithoutTheDescriptionNothingIsCachedAndNoCodeIsSent) {
    std::filesystem::remove(h.pddPath());
    std::string s = Job(1, 2, 2);
    EXPECT_EQ(hCfg, 0u);
    EXPECT_FALSE(Has(s, "PDD Version"));
    EXPECT_FALSE(Has(s, "ORIENTATION="));
    EXPECT_TRUE(Has(s, "\x1b&l0a")) << "code 0 for a paper without a configuration";
    EXPECT_TRUE(Has(s, "<page>"));
}

} // namespace
