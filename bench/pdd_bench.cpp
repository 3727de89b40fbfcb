// Parsing printer descriptions of 50, 500 and 5,000 papers, with paper sources, media types,
// output bins and resolutions in proportion. Reports microseconds per file and lines per second.
#include "pdd/pdd.h"

#include <benchmark/benchmark.h>

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

struct Cleanup {
    ~Cleanup() {
        std::error_code ec;
        std::filesystem::remove_all(std::filesystem::temp_directory_path() /
                                        ("q417bench_pdd_" + std::to_string(getpid())),
                                    ec);
    }
} cleanup;

} // namespace
