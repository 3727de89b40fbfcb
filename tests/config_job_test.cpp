// A whole job through the exported entries on a real description: the codes of the rows the
// device mode chose, the description's version and its PJL orientation text reach the stream,
// the first job leaves the binary file behind and the next one is served from the cache.
#include "job_harness.h"
#include "stream_support.h"

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

// The first job parses full.pdd: tests/data/stream/config_job.txt is its stream.
TEST_F(ConfigJob, JobsCarryTheDescriptionsCodesAndTexts) {
    EXPECT_STREAM(Job(1, 2, 2), streamtest::Golden("config_job.txt"));
    EXPECT_GT(
        std::filesystem::file_size(std::filesystem::path(h.pddPath()).replace_extension(".bdd")),
        CFGINFO_SIZE)
        << "the parse leaves the binary file beside the description";

    // Later jobs are served from the cache the first one filled: only the rows differ.
    const HGLOBAL cached = hCfg;
    std::filesystem::remove(h.pddPath()); // a parse now would fail
    std::string s = Job(2, 1, 1);
    EXPECT_TRUE(Has(s, "@PJL COMMENT PDD Version: 2.10\n"));
    EXPECT_TRUE(Has(s, "@PJL SET ORIENTATION=PORTRAIT\n"));
    EXPECT_TRUE(Has(s, "\x1b&l1X\x1b&l101a0o4d1E")) << "custom paper, code 101";
    EXPECT_TRUE(Has(s, "\x1b*c5760x7560y0T\x1b&l2H")) << "manual feed, code 2";
    EXPECT_EQ(hCfg, cached);
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
