// A stand-in for the graphics half and the spooler around one job: a printer known to the host
// API, a capture of its stream, the tagged blocks, and an event log that interleaves what the
// printer received with what the recording plug-in was told.
#pragma once

#include "halftone/halftone.h"
#include "job/job.h"
#include "job/joblock.h"
#include "q417/host.h"
#include "q417/q417plg.h"
#include "plugins/recplugin.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace q417::test {

// Sets the allocation and lock faults for the length of f (0: none), then clears them.
template <class F>
auto WithFaults(long failAlloc, long failLock, F f) {
    q417::mem::FailAllocation(failAlloc);
    q417::mem::FailLock(failLock);
    auto result = f();
    q417::mem::FailAllocation(0);
    q417::mem::FailLock(0);
    return result;
}

// The record as a graphics half would first send it: a letter page at 600 dpi.
inline SPLDEVINFO LetterRecord() {
    SPLDEVINFO r{};
    r.cxPaper = 6120;
    r.cyPaper = 7920;
    r.cxPrintable = 5760;
    r.cyPrintable = 7560;
    r.cxMargin = r.cyMargin = 180;
    r.nPage = 1;
    return r;
}

// A record with its device mode copy, as a job holds them after block 2: letter at 600 dpi.
struct Sheet {
    SPLDEVINFO info = LetterRecord();
    DDIDEVMODE dm{};
    Sheet(BYTE pagesPerSheet, SHORT orientation, SHORT res = 600) {
        dm.bLayout = pagesPerSheet;
        dm.dmOrientation = orientation;
        dm.dmPaperSize = 1;
        dm.dmPrintQuality = dm.dmYResolution = res;
        info.pDevMode = Ptr32From(&dm);
    }
};

// A file of tests/data, whole.
inline std::string DataFile(const std::string &name) {
    std::ifstream in(std::string(Q417_TEST_DATA) + "/" + name, std::ios::binary);
    EXPECT_TRUE(in) << name;
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// A page's print data, told apart from the library's commands.
inline std::string PageData(int page) {
    return "<raster of page " + std::to_string(page) + ">";
}

class JobHarness {
  public:
    // A printer whose description sits in a fresh directory; plug-ins go beside it.
    explicit JobHarness(const std::string &name) {
        dir_ = std::filesystem::temp_directory_path() /
               ("q417_job_" + name + "_" + std::to_string(::getpid()));
        std::filesystem::remove_all(dir_);
        std::filesystem::create_directories(dir_ / "driver");
        pdd_ = (dir_ / "printer.PDD").string();
        const std::string driverDir = (dir_ / "driver").string();
        const Q417_PRINTER p{.name = "Test 417",
                             .pdd_path = pdd_.c_str(),
                             .driver_dir = driverDir.c_str(),
                             .port = "LPT1:",
                             .windows_dir = nullptr};
        hPrinter_ = Q417_AddPrinter(&p);
        Q417_SetOutputCallback(hPrinter_, &JobHarness::Sink, this);
    }
    ~JobHarness() {
        FreeFunctionTable();
        Q417_DeletePrinter(hPrinter_);
        std::error_code ec;
        std::filesystem::remove_all(dir_, ec);
    }
    JobHarness(const JobHarness &) = delete;
    JobHarness &operator=(const JobHarness &) = delete;

    HANDLE32 printer() const { return hPrinter_; }
    const std::filesystem::path &dir() const { return dir_; }
    const std::string &pddPath() const { return pdd_; }

    // Puts a module where the loading rule finds it first: beside the PDD, named "printer.DLL".
    void InstallPlugin(const char *module) { Link(module, dir_ / "printer.DLL"); }
    static void Link(const char *module, const std::filesystem::path &to) {
        std::filesystem::create_directories(to.parent_path());
        std::filesystem::remove(to);
        std::filesystem::create_symlink(module, to);
    }

    // The recording plug-in's view, once the library has loaded it.
    std::vector<RecCall> PluginCalls() const {
        auto get = reinterpret_cast<PFN_Rec_Calls>(GetProcAddress(hCustUIDLL, "Rec_Calls"));
        int count = 0;
        const RecCall *calls = hCustUIDLL && get ? get(&count) : nullptr;
        return {calls, calls + count};
    }

    // ---- The job ----
    void *Start(DWORD jobId = 7) {
        job_ = DrvSplStartDoc(hPrinter_, jobId);
        return job_;
    }
    void *job() const { return job_; }
    // A job with its blocks 1, 2 and 8 sent.
    void Open(const std::vector<BYTE> &dm, const std::u16string &name = u"Report") {
        ASSERT_NE(Start(), nullptr);
        SendSetup(dm, name);
    }
    void Close() {
        DrvSplClose(job_);
        job_ = nullptr;
    }

    BOOL Send(BYTE tag, const void *payload, size_t cb, DWORD *pcWritten = nullptr) {
        std::vector<BYTE> block(cb + 1);
        block[0] = tag;
        if (cb) std::memcpy(block.data() + 1, payload, cb);
        return DrvSplWritePrinter(job_, block.data(), static_cast<DWORD>(block.size()), pcWritten);
    }
    BOOL SendRecord(const SPLDEVINFO &r, size_t cb = sizeof(SPLDEVINFO)) { return Send(1, &r, cb); }
    BOOL SendDevMode(const std::vector<BYTE> &dm) { return Send(2, dm.data(), dm.size()); }
    BOOL SendName(const std::u16string &n) { return Send(8, n.data(), n.size() * 2); }
    BOOL SendData(const std::string &bytes, BYTE tag = 0x30) {
        return Send(tag, bytes.data(), bytes.size());
    }

    // A device mode as the user interface leaves it, with cbCust bytes of plug-in data.
    std::vector<BYTE> DevMode(DWORD cbCust = 0, SHORT yRes = 600, BYTE pagesPerSheet = 1) const {
        std::vector<BYTE> dm(sizeof(DDIDEVMODE) + cbCust);
        Q417_InitDevMode(dm.data(), static_cast<DWORD>(dm.size()), hPrinter_, cbCust);
        auto *pdm = reinterpret_cast<DDIDEVMODE *>(dm.data());
        pdm->dmPrintQuality = 300; // the job makes it equal to the vertical resolution
        pdm->dmYResolution = yRes;
        pdm->bLayout = pagesPerSheet;
        return dm;
    }

    // Blocks 1, 2 and 8, in the order the graphics half sends them.
    void SendSetup(const std::vector<BYTE> &dm, const std::u16string &name = u"Report",
                   const SPLDEVINFO &record = LetterRecord()) {
        ASSERT_TRUE(SendRecord(record));
        ASSERT_TRUE(SendDevMode(dm));
        if (!name.empty()) {
            ASSERT_TRUE(SendName(name));
        }
    }

    // The record as it stands in the library, for the sender to carry its fields along.
    SPLDEVINFO Record() const {
        q417::job::Locked<SPLDEVINFO> info(q417::job::JobOf(job_)->hDevInfo);
        SPLDEVINFO copy{};
        if (info) std::memcpy(&copy, info.get(), sizeof copy);
        return copy;
    }
    // The device mode copy, which stays locked for the job; there must be one.
    DDIDEVMODE DevModeCopy() const { return *Ptr32As<DDIDEVMODE>(Record().pDevMode); }

    // A job of three pages as the graphics half drives it: blocks 1, 2 (and 8 after the first
    // block 2) before each page, which change() may edit, then the page's print data. Returns
    // what each page's print data returned.
    using PageChange = std::function<void(int page, SPLDEVINFO &, DDIDEVMODE &)>;
    std::vector<BOOL> RunJob(const std::vector<BYTE> &devMode, const std::u16string &name,
                             const PageChange &change = {}) {
        events.clear();
        std::vector<BOOL> sent;
        EXPECT_NE(Start(), nullptr);
        for (int page = 1; page <= 3; ++page) {
            SPLDEVINFO r = page == 1 ? LetterRecord() : Record();
            r.nPage = page;
            r.nSubPage = page - 1;
            std::vector<BYTE> dm = devMode;
            if (change) change(page, r, *reinterpret_cast<DDIDEVMODE *>(dm.data()));
            SendSetup(dm, page == 1 ? name : u"", r);
            EXPECT_EQ(DrvSplStartPage(job_), 1) << page;
            sent.push_back(SendData(PageData(page)));
            EXPECT_EQ(DrvSplEndPage(job_), 1) << page;
        }
        DrvSplEndDoc(job_);
        Close();
        return sent;
    }

    // ---- The stream ----
    // Each write the printer received, and the test's marks (the plug-in's calls, where the test
    // routes them here) as "<name>".
    std::vector<std::string> events;
    void Mark(const std::string &what) { events.push_back("<" + what + ">"); }
    std::string Stream() const {
        std::string s;
        for (const auto &e : events) s += e;
        return s;
    }
    // Fails the write that holds byte number failAt of the stream (0 for none); every other
    // write goes through.
    void FailWriteAtByte(size_t failAt) { failAt_ = failAt; }
    size_t bytesOffered = 0;

  private:
    static int Sink(void *ctx, const void *data, uint32_t size) {
        auto *self = static_cast<JobHarness *>(ctx);
        const size_t first = self->bytesOffered + 1;
        self->bytesOffered += size;
        if (self->failAt_ && self->failAt_ >= first && self->failAt_ <= self->bytesOffered)
            return 0;
        self->events.emplace_back(static_cast<const char *>(data), size);
        return 1;
    }

    std::filesystem::path dir_;
    std::string pdd_;
    HANDLE32 hPrinter_ = 0;
    void *job_ = nullptr;
    size_t failAt_ = 0;
};

// A printer and its job, with the transfer tables made and no plug-in: every block the test
// makes is gone at its end, and no job name is left.
struct JobTest : ::testing::Test {
    JobHarness h{"job"};
    long live0 = 0;
    void SetUp() override {
        FreeFunctionTable();
        DefaultXfers(); // the tables outlive jobs; count them in from the start
        live0 = q417::mem::LiveBlocks();
    }
    void TearDown() override {
        q417::mem::FailAllocation(0);
        q417::mem::FailLock(0);
        if (h.job()) h.Close();
        FreeFunctionTable();
        EXPECT_EQ(hJobName, 0u);
        EXPECT_EQ(q417::mem::LiveBlocks(), live0) << "a block outlived its job";
    }
};

} // namespace q417::test
