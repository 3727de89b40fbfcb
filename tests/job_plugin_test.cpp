// The plug-in bridge: where the plug-in is found, its entries by name, and what the spool side
// tells it, checked through plug-ins built for the purpose and loaded by the real rule.
#include "stream_support.h"

#include "config/config.h"
#include "q417/host_tools.h"

#include <filesystem>
#include <fstream>

namespace {

constexpr DWORD kSessionValue = 0x5E550001u; // what the recording plug-in's session returns

using Bridge = q417::test::JobTest;
using q417::test::JobHarness;

TEST_F(Bridge, TheLoadingRuleTriesBesideTheDescriptionThenTheDriverDirectory) {
    const std::string junk = (h.dir() / "junk").string();
    std::ofstream(junk) << "MZ this is no ELF file";
    // A module or junk linked at "printer.DLL" beside the description, and a module at
    // "driver/2/QMARKDLG.DLL" in the driver directory.
    struct Case {
        const char *what, *beside, *driverDir;
        bool loads, hasEntries;
    } cases[] = {
        {"beside the description", Q417_PLUGIN_REC, nullptr, true, true},
        {"driver directory", nullptr, Q417_PLUGIN_REC, true, true},
        {"beside wins over the directory", Q417_PLUGIN_REC, Q417_PLUGIN_NONE, true, true},
        {"not a shared object: the directory's", junk.c_str(), Q417_PLUGIN_REC, true, true},
        {"not a shared object, nothing else", junk.c_str(), nullptr, false, false},
        {"a plug-in without entries", Q417_PLUGIN_NONE, nullptr, true, false},
        {"nothing at all", nullptr, nullptr, false, false},
    };
    for (const Case &c : cases) {
        q417::test::JobHarness p("rule");
        if (c.beside) p.InstallPlugin(c.beside);
        if (c.driverDir) p.Link(c.driverDir, p.dir() / "driver" / "2" / "QMARKDLG.DLL");
        const int loaded = FillFunctionTable(p.printer());
        EXPECT_EQ(loaded != 0, c.loads) << c.what;
        EXPECT_EQ(hCustUIDLL != 0, c.loads) << c.what;
        EXPECT_EQ(CustDLL.OEM_BeginSession != nullptr, c.hasEntries) << c.what;
        if (c.loads) {
            EXPECT_EQ(static_cast<HMODULE>(loaded), hCustUIDLL) << c.what;
            EXPECT_EQ(FillFunctionTable(p.printer()), 0) << c.what << ": loaded once";
        }
        FreeFunctionTable();
        EXPECT_EQ(hCustUIDLL, 0u);
        EXPECT_EQ(CustDLL.OEM_BeginSession, nullptr) << "the entries went with the module";
    }
    // A failed load is tried again at the next call; each slot holds the entry of its name, or
    // nothing where the plug-in has none (the recording plug-in has only those the spool side
    // calls).
    EXPECT_EQ(FillFunctionTable(h.printer()), 0);
    h.InstallPlugin(Q417_PLUGIN_REC);
    ASSERT_NE(FillFunctionTable(h.printer()), 0);
    const auto *slots = reinterpret_cast<const FARPROC *>(&CustDLL);
    for (int i = 0; i < kCustDllEntries; ++i)
        EXPECT_EQ(slots[i], GetProcAddress(hCustUIDLL, CustDllEntryNames[i])) << "slot " << i;
}

// The plug-ins that stop a job's first page: a session of 0 fails the page, a refused
// StartDoc aborts the job. Neither writes anything, nor sends the watermark font. A plug-in
// without entries is no plug-in: they are skipped wherever they would be called.
TEST_F(Bridge, ASessionOfZeroOrARefusedStartDocStopsThePageBeforeAnyHeader) {
    struct Case {
        const char *module;
        std::vector<std::string> calls;
        DWORD state, session;
        BOOL page;
    } cases[] = {
        {Q417_PLUGIN_NOSESSION, {"OEM_BeginSession"}, 1, 0, 0},
        {Q417_PLUGIN_REFUSE,
         {"OEM_BeginSession", "OEM_StartDoc", "OEM_AbortDoc", "OEM_EndSession"},
         1 | 4,
         kSessionValue,
         0},
        {Q417_PLUGIN_NONE, {}, 1, 0, 1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.module);
        q417::test::JobHarness p("stop");
        p.InstallPlugin(c.module);
        p.Open(p.DevMode());
        EXPECT_EQ(DrvSplStartPage(p.job()), c.page);
        std::vector<std::string> calls;
        for (const RecCall &call : p.PluginCalls()) calls.push_back(call.entry);
        EXPECT_EQ(calls, c.calls);
        EXPECT_EQ(q417::job::JobOf(p.job())->dwState, c.state);
        EXPECT_EQ(p.DevModeCopy().dwSession, c.session);
        EXPECT_EQ(p.Record().bJobFlags & JOB_HEADER_SENT, c.page ? JOB_HEADER_SENT : 0);
        EXPECT_EQ(p.events.empty(), !c.page);
        if (!c.page) {
            EXPECT_EQ(bDoWtrMrkFontHeader, 1) << "the font is still to do";
        }
        EXPECT_EQ(DrvSplEndPage(p.job()), 1);
        DrvSplEndDoc(p.job());
        DrvSplAbort(p.job());
        p.Close();
        FreeFunctionTable();
    }
}

// Two jobs on a printer with a description. The first page start of the first loads the
// recording plug-in, which then serves the next: one module, one record of calls. Each entry
// is called at its point of the job, in its order, with its arguments. StartDoc gets the job's
// name, or null for a job without one.
TEST_F(Bridge, AWholeJobCallsEachEntryAtItsPointWithItsArguments) {
    std::filesystem::copy_file(std::string(Q417_TEST_DATA) + "/config/minimal.pdd", h.pddPath());
    DiscardDeviceInfo(nullptr);
    live0 = q417::mem::LiveBlocks();
    h.InstallPlugin(Q417_PLUGIN_REC);
    h.Open(h.DevMode(24), u"");
    ASSERT_EQ(DrvSplStartPage(h.job()), 1);
    const HMODULE module = hCustUIDLL;
    h.Close();
    DiscardDeviceInfo(nullptr); // the configuration is read again at the next job's first page
    h.events.clear();
    auto observe = reinterpret_cast<PFN_Rec_SetObserver>(GetProcAddress(module, "Rec_SetObserver"));
    ASSERT_NE(observe, nullptr);
    observe([](void *ctx, const char *entry) { static_cast<JobHarness *>(ctx)->Mark(entry); }, &h);
    const size_t firstCall = h.PluginCalls().size();

    std::vector<BYTE> dm = h.DevMode(24);
    auto *pdm = reinterpret_cast<DDIDEVMODE *>(dm.data());
    pdm->dwCustDataWord = 0x600DCAFE;
    pdm->hPrinter = 0x5555; // the sender's, stale: every entry sets its own
    pdm->pCustData = 0x7777;
    h.Open(dm, u"Ledger");
    const std::string pages[2] = {"<first page>", "<second page>"};
    for (int page = 0; page < 2; ++page) {
        if (page) {
            SPLDEVINFO r = h.Record();
            r.nPage = 2;
            h.SendSetup(dm, u"", r);
        }
        h.Mark("StartPage");
        ASSERT_EQ(DrvSplStartPage(h.job()), 1);
        ASSERT_EQ(h.SendData(pages[page]), 1);
        h.Mark("EndPage");
        ASSERT_EQ(DrvSplEndPage(h.job()), 1);
    }
    h.Mark("EndDoc");
    DrvSplEndDoc(h.job());

    EXPECT_STREAM(h.Stream(), streamtest::Golden("plugin_job.txt"));

    // Arguments, against the job's own blocks.
    // The blocks stay locked for the job (the record: within the fixture's lifetime of it).
    const SPLDEVINFO *record =
        q417::job::Locked<SPLDEVINFO>(q417::job::JobOf(h.job())->hDevInfo).get();
    const DDIDEVMODE *copy = DevModeOf(record);
    const void *cfgBlock = q417::job::Locked<BYTE>(hCfg).get();
    ASSERT_NE(cfgBlock, nullptr) << "the configuration was read";
    const std::vector<RecCall> calls = h.PluginCalls();
    std::vector<std::u16string> names;
    for (const RecCall &c : calls) {
        const std::string entry = c.entry;
        if (entry == "OEM_StartDoc")
            names.push_back(c.hasJobName ? std::u16string(c.jobName) : u"<null>");
        if (&c < &calls[firstCall]) continue;
        SCOPED_TRACE(entry);
        EXPECT_EQ(c.hPrinter, h.printer());
        EXPECT_NE(c.pCustData, 0u) << "24 bytes of plug-in data behind the record";
        EXPECT_NE(c.pCustData, 0x7777u) << "the sender's pointer is set anew";
        if (entry == "OEM_GetConfig" || entry == "OEM_BidiGetPrinterData") {
            EXPECT_EQ(c.arg[0], reinterpret_cast<uintptr_t>(cfgBlock)) << "the CFGINFO block";
        } else if (entry == "OEM_BeginSession") {
            EXPECT_EQ(c.arg[0], ghModule) << "the library's module";
            EXPECT_EQ(c.dmPrintQuality, c.dmYResolution) << "set before the session";
            EXPECT_EQ(c.arg[1], reinterpret_cast<uintptr_t>(c.pdm));
            EXPECT_EQ(c.arg[2], 0u);
            EXPECT_EQ(c.arg[3], 2u);
        } else if (entry.find("Cust") != std::string::npos) {
            EXPECT_EQ(c.arg[0], 0x600DCAFEu) << "dwCustDataWord";
            EXPECT_EQ(c.arg[1], reinterpret_cast<uintptr_t>(c.pdm) + sizeof(DDIDEVMODE))
                << "the plug-in's data behind the record";
            EXPECT_EQ(Ptr32To(c.pJobInfo), record) << "pJobInfo is the job's record";
        }
    }
    EXPECT_EQ(names, (std::vector<std::u16string>{u"<null>", u"Ledger"}));
    EXPECT_EQ(hCustUIDLL, module);
    EXPECT_EQ(calls.back().pdm, copy) << "the copy the last block 2 made ends the job";
    EXPECT_EQ(copy->dwSession, kSessionValue);
    h.Close();
    // Detaching the library releases the plug-in and the configuration.
    EXPECT_EQ(DllEntryPoint(ghModule, 0, nullptr), TRUE);
    EXPECT_EQ(hCustUIDLL, 0u);
    EXPECT_EQ(hCfg, 0u);
}

// GetConfig loads the plug-in for itself when no page start has (a whole job has it loaded),
// asks it about the caller's block, and unloads it when it ends. The test holds a load of its
// own, so that the module and its record of calls survive the library's unload.
TEST_F(Bridge, APluginLoadedByGetConfigIsUnloadedWhenItEnds) {
    std::filesystem::copy_file(std::string(Q417_TEST_DATA) + "/config/minimal.pdd", h.pddPath());
    h.InstallPlugin(Q417_PLUGIN_REC);
    const HMODULE own = LoadLibraryW((h.dir() / "printer.DLL").u16string().c_str());
    auto recCalls = reinterpret_cast<PFN_Rec_Calls>(GetProcAddress(own, "Rec_Calls"));
    ASSERT_NE(recCalls, nullptr);
    std::vector<BYTE> dm = h.DevMode();
    auto *pdm = reinterpret_cast<DDIDEVMODE *>(dm.data());
    int first = 0, count = 0;
    recCalls(&first);
    BYTE cfg[CFGINFO_SIZE] = {};
    ASSERT_EQ(GetConfig(pdm, cfg), 1);
    EXPECT_EQ(hCustUIDLL, 0u);
    EXPECT_EQ(CustDLL.OEM_GetConfig, nullptr) << "the table goes with it";
    const RecCall *calls = recCalls(&count);
    ASSERT_EQ(count - first, 2);
    for (int i = first; i < count; ++i) {
        EXPECT_STREQ(calls[i].entry, i == first ? "OEM_GetConfig" : "OEM_BidiGetPrinterData");
        EXPECT_EQ(calls[i].pdm, pdm);
        EXPECT_EQ(calls[i].arg[0], reinterpret_cast<uintptr_t>(cfg)) << "the caller's block";
    }
    Q417_FreeConfig(cfg);
    FreeLibrary(own);
}

} // namespace
