// Reading watermark definitions: a job's read of QMWMARK.INI with 200 and 4,000 definitions,
// their time ratio in one run, and a file whose one definition line is 1 MB long.
//
// Each read sees a file whose modification time has just changed, so nothing parsed for an
// earlier job can serve it: these are the costs of the first job after an edit.
#include "q417/host.h"
#include "watermark/watermark.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

namespace fs = std::filesystem;

namespace {

struct Folder {
    fs::path dir;
    explicit Folder(const std::string &tag) {
        dir = fs::temp_directory_path() / ("q417bench_wm_" + std::to_string(getpid()) + "_" + tag);
        fs::create_directories(dir);
    }
    ~Folder() {
        std::error_code ec;
        fs::remove_all(dir, ec);
    }
    std::string ini() const { return (dir / "QMWMARK.INI").string(); }
};

void WriteDefinitions(const Folder &f, int n) {
    std::ofstream out(f.ini(), std::ios::binary);
    out << "; watermarks\r\n[Watermarks]\r\n";
    for (int i = 0; i < n; ++i)
        out << "Watermark" << i << "=0,0,0," << (i * 7) % 360 << ",10,-10,450,700,0,48,"
            << "DejaVu Sans,Draft number " << i << "\r\n";
}

// Behind an ordinary definition, a line of 1 MB: a definition with a 1 MB key, or a key whose
// value is 1 MB of blanks and commas (which gives no definition).
void WriteLongLine(const Folder &f, bool longKey) {
    std::ofstream out(f.ini(), std::ios::binary);
    out << "[Watermarks]\r\nFirst=0,0,0,0,0,0,0,400,0,36,Arial,FIRST\r\n";
    if (longKey)
        out << std::string(1 << 20, 'K') << "=0,0,0,0,0,0,0,400,0,36,Arial,LONG\r\n";
    else
        out << "Long=" << std::string(1 << 20, ' ') << "0,0" << std::string(1 << 10, ',') << "\r\n";
}

// Moves the file's modification time on by one nanosecond: a changed file to the reader.
void Touch(const std::string &path) {
    static long ns = 0;
    ns = (ns + 1) % 1000000000;
    timespec t[2] = {{0, UTIME_OMIT}, {1600000000, ns}};
    utimensat(AT_FDCWD, path.c_str(), t, 0);
}

// The job's read: the whole list, then record `which`. Seconds taken.
double ReadOnce(const Folder &f, WORD which, benchmark::State &state) {
    Touch(f.ini());
    DDIDEVMODE dm{};
    dm.wWaterMark = which;
    auto t0 = std::chrono::steady_clock::now();
    int got = GetWaterMarkInfo(&dm, &WM);
    auto t1 = std::chrono::steady_clock::now();
    if (!got) state.SkipWithError("no watermark read");
    return std::chrono::duration<double>(t1 - t0).count();
}

void UseFolder(const Folder &f) {
    Q417_SetWindowsDirectory(f.dir.string().c_str());
    WinRoot[0] = 0; // fetched again from the folder just set
}

// A job's read of n definitions, taking the last one.
void BM_WaterMarkDefinitions(benchmark::State &state) {
    Folder f("defs");
    int n = static_cast<int>(state.range(0));
    WriteDefinitions(f, n);
    UseFolder(f);
    for (auto _ : state) {
        state.PauseTiming();
        Touch(f.ini());
        state.ResumeTiming();
        DDIDEVMODE dm{};
        dm.wWaterMark = static_cast<WORD>(n);
        if (!GetWaterMarkInfo(&dm, &WM)) state.SkipWithError("no watermark read");
    }
    state.counters["definitions/s"] =
        benchmark::Counter(n, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_WaterMarkDefinitions)->Arg(200)->Arg(4000)->Unit(benchmark::kMillisecond);

// 4,000 against 200 definitions, timed in turn in each iteration. Goal: a ratio of 20 or less.
void BM_WaterMarkDefinitionsRatio(benchmark::State &state) {
    Folder small("small"), large("large");
    WriteDefinitions(small, 200);
    WriteDefinitions(large, 4000);
    double tSmall = 0, tLarge = 0;
    for (auto _ : state) {
        UseFolder(small);
        tSmall += ReadOnce(small, 200, state);
        UseFolder(large);
        tLarge += ReadOnce(large, 4000, state);
    }
    state.counters["ms_200"] = 1e3 * tSmall / double(state.iterations());
    state.counters["ms_4000"] = 1e3 * tLarge / double(state.iterations());
    state.counters["ratio"] = tLarge / tSmall;
}
BENCHMARK(BM_WaterMarkDefinitionsRatio)->Unit(benchmark::kMillisecond)->MinTime(1.0);

// A definition line of 1 MB. Goal: under 50 ms.
void BM_WaterMarkLongLine(benchmark::State &state) {
    Folder f("long");
    bool longKey = state.range(0) != 0;
    WriteLongLine(f, longKey);
    UseFolder(f);
    for (auto _ : state) ReadOnce(f, longKey ? 2 : 1, state);
}
BENCHMARK(BM_WaterMarkLongLine)->ArgName("key")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

} // namespace
