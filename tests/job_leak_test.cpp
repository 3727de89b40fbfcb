// A thousand whole jobs in one process leave nothing behind but what lives for the process.
#include "job_harness.h"

namespace {

using q417::test::JobHarness;

TEST(JobLeaks, AThousandJobsLeaveOnlyTheProcessWideBlocks) {
    JobHarness h("leaks");
    h.InstallPlugin(Q417_PLUGIN_REC);
    const std::string raster(3000, '\x55');
    long live0 = 0;
    // Job 0 sets up what lives for the process (transfer tables, configuration cache, plug-in);
    // a thousand more follow it.
    for (int job = 0; job <= 1000; ++job) {
        if (job == 1) live0 = q417::mem::LiveBlocks();
        ASSERT_NE(h.Start(static_cast<DWORD>(job)), nullptr);
        const std::vector<BYTE> dm = h.DevMode(16, 600, job % 2 ? 4 : 1);
        h.SendSetup(dm, u"Job " + std::u16string(1, static_cast<char16_t>(u'A' + job % 26)));
        for (int page = 1; page <= 3; ++page) {
            if (page > 1) {
                SPLDEVINFO r = h.Record();
                r.nSubPage = page - 1;
                ASSERT_EQ(h.SendRecord(r), 1);
                ASSERT_EQ(h.SendDevMode(dm), 1);
            }
            ASSERT_EQ(DrvSplStartPage(h.job()), 1);
            ASSERT_EQ(h.SendData(raster), 1);
            ASSERT_EQ(DrvSplEndPage(h.job()), 1);
        }
        DrvSplEndDoc(h.job());
        h.Close();
        h.events.clear();
    }
    EXPECT_EQ(q417::mem::LiveBlocks(), live0);
    EXPECT_NE(RedXfer, nullptr);
    EXPECT_EQ(hJobName, 0u);
    EXPECT_NE(hCustUIDLL, 0u);
}

} // namespace
