// Parsing printer descriptions of 50, 500 and 5,000 papers, with paper sources, media types,
// output bins and resolutions in proportion. Reports microseconds per file and lines per second,
// the 5,000 to 500 papers time ratio in one run, and the compile of 100,000 papers (parse,
// configuration, binary file).
#include "config/config.h"
#include "pdd/pdd.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include <unistd.h>

namespace {

struct Description {
    std::string path;
    std::u16string name;
    long lines = 0;
};

// Per paper: its size code, dimension and two areas. Per 10 papers: two sources, one media
// type, one bin and one resolution, each with its code and a default at the top.
Description Generate(int nPapers) {
    static std::map<int, Description> made;
    auto it = made.find(nPapers);
    if (it != made.end()) return it->second;

    std::string text = "*PDD-Lindgate: 1\r\n*Product: \"Benchmark\"\r\n*FileVersion: \"1.00\"\r\n"
                       "*PrinterLanguage: pcl5\r\n*LanguageLevel: 5ec\r\n"
                       "*LanguageVersion: \"English\"\r\n*ColorDevice: True\r\n"
                       "*DefaultPageSize: P00000\r\n*DefaultInputSlot: T00000\r\n"
                       "*DefaultMediaType: M00000\r\n*DefaultOutputBin: B00000\r\n"
                       "*DefaultResolution: 600dpi\r\n"
                       "*Orientation Portrait: \"@PJL SET ORIENTATION=PORTRAIT\\n\"\r\n";
    char line[512];
    for (int i = 0; i < nPapers; ++i) {
        int w = 2000 + i % 7000, h = 3000 + i % 9000;
        std::snprintf(line, sizeof line,
                      "*%% paper %d\r\n*PageSize P%05d/Paper number %d: %d\r\n"
                      "*PaperDimension P%05d: \"%d.5 %d.25\"\r\n"
                      "*ImageableArea P%05d.port: \"12 12 %d %d\"\r\n"
                      "*ImageableArea P%05d.land: \"14 12 %d %d\"\r\n",
                      i, i, i, i % 120, i, w, h, i, w - 12, h - 12, i, w - 14, h - 12);
        text += line;
    }
    for (int i = 0; i < nPapers / 5; ++i) {
        std::snprintf(line, sizeof line, "*InputSlot T%05d/Tray %d: %d\r\n", i, i, i);
        text += line;
    }
    for (int i = 0; i < nPapers / 10; ++i) {
        std::snprintf(line, sizeof line,
                      "*MediaType M%05d/Media %d: %d\r\n*OutputBin B%05d/Bin %d: %d\r\n"
                      "*Resolution %ddpi/%d dpi: \"@PJL SET RESOLUTION=%d\"\r\n",
                      i, i, i, i, i, i, 300 + 300 * i, 300 + 300 * i, 300 + 300 * i);
        text += line;
    }
    Description d;
    for (char c : text) d.lines += c == '\n';
    auto dir =
        std::filesystem::temp_directory_path() / ("q417bench_pdd_" + std::to_string(getpid()));
    std::filesystem::create_directories(dir);
    d.path = (dir / ("p" + std::to_string(nPapers) + ".pdd")).string();
    std::ofstream(d.path, std::ios::binary) << text;
    d.name.assign(d.path.begin(), d.path.end());
    made[nPapers] = d;
    return d;
}

void BM_ParsePDD(benchmark::State &state) {
    Description d = Generate(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        HGLOBAL h = PDD_Startup();
        int r = PDD_ParseFile(h, d.name.c_str());
        benchmark::DoNotOptimize(r);
        PDD_Shutdown(h);
        if (r != 0) state.SkipWithError("parse failed");
    }
    state.counters["lines"] = static_cast<double>(d.lines);
    state.counters["lines/s"] = benchmark::Counter(static_cast<double>(d.lines),
                                                   benchmark::Counter::kIsIterationInvariantRate);
}

BENCHMARK(BM_ParsePDD)->Arg(50)->Arg(500)->Arg(5000)->Unit(benchmark::kMicrosecond);

double ParseSeconds(const Description &d, benchmark::State &state) {
    auto t0 = std::chrono::steady_clock::now();
    HGLOBAL h = PDD_Startup();
    if (PDD_ParseFile(h, d.name.c_str()) != 0) state.SkipWithError("parse failed");
    PDD_Shutdown(h);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// 5,000 against 500 papers, parsed in turn in each iteration. Goal: a ratio of 10 or less.
void BM_ParsePDDRatio(benchmark::State &state) {
    Description small = Generate(500), large = Generate(5000);
    double tSmall = 0, tLarge = 0;
    for (auto _ : state) {
        tSmall += ParseSeconds(small, state);
        tLarge += ParseSeconds(large, state);
    }
    state.counters["ms_500"] = 1e3 * tSmall / double(state.iterations());
    state.counters["ms_5000"] = 1e3 * tLarge / double(state.iterations());
    state.counters["ratio"] = tLarge / tSmall;
}
BENCHMARK(BM_ParsePDDRatio)->Unit(benchmark::kMillisecond)->MinTime(1.0);

// The compile of a description of 100,000 papers: parse, configuration tables and the binary
// file beside it. Goal: under 2 s.
void BM_CompilePDD(benchmark::State &state) {
    Description d = Generate(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        DDIDEVMODE dm{};
        dm.hConfig = GlobalAlloc(GHND, CFGINFO_SIZE);
        if (!DDIReadCfgFile(&dm, d.name.c_str())) state.SkipWithError("compile failed");
        FreeCfgTables(static_cast<CFGINFO *>(GlobalLock(dm.hConfig)));
        GlobalUnlock(dm.hConfig);
        GlobalFree(dm.hConfig);
    }
    state.counters["lines"] = static_cast<double>(d.lines);
}
BENCHMARK(BM_CompilePDD)->Arg(100000)->Iterations(1)->Unit(benchmark::kMillisecond);

struct Cleanup {
    ~Cleanup() {
        std::error_code ec;
        std::filesystem::remove_all(std::filesystem::temp_directory_path() /
                                        ("q417bench_pdd_" + std::to_string(getpid())),
                                    ec);
    }
} cleanup;

} // namespace
