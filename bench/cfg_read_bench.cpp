// Reading a printer's configuration from a current binary file against parsing its description,
// for descriptions of 50, 500 and 5,000 papers.
#include "config/config.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace fs = std::filesystem;

namespace {

struct Description {
    std::string pdd, bin;
    std::u16string wide;
};

// A description with n papers of distinct sizes, a few sources, bins, media and resolutions.
Description Make(int nPapers, const char *tag) {
    std::string dir =
        fs::is_directory("/dev/shm") ? "/dev/shm" : fs::temp_directory_path().string();
    Description d;
    d.pdd = dir + "/q417bench_" + std::to_string(getpid()) + "_" + tag + "_" +
            std::to_string(nPapers) + ".pdd";
    d.bin = d.pdd.substr(0, d.pdd.size() - 3) + "bdd";
    d.wide.assign(d.pdd.begin(), d.pdd.end());
    std::ofstream f(d.pdd, std::ios::binary);
    f << "*PDD-Lindgate: 1\n*Product: \"Bench Printer 5000\"\n*FileVersion: \"3.01\"\n"
         "*PrinterLanguage: pcl5\n*LanguageLevel: 5ec\n*PlugIn: bench.so\n"
         "*Orientation Portrait: \"@PJL SET ORIENTATION=PORTRAIT\\n\"\n"
         "*Orientation Landscape: \"@PJL SET ORIENTATION=LANDSCAPE\\n\"\n";
    for (int i = 0; i < nPapers; ++i) {
        int w = 200 + i % 700, h = 300 + i / 7;
        f << "*PageSize Paper" << i << "/Paper number " << i << ": " << (i % 120) << "\n"
          << "*PaperDimension Paper" << i << ": \"" << w << " " << h << "\"\n"
          << "*ImageableArea Paper" << i << ": \"12 12 " << w - 12 << " " << h - 12 << "\"\n";
    }
    f << "*DefaultPageSize: Paper1\n";
    for (int i = 0; i < 8; ++i) f << "*InputSlot Tray" << i << "/Tray " << i << ": " << i << "\n";
    f << "*OutputBin Top/Top Bin: 1\n*OutputBin Side/Side Bin: 2\n"
         "*MediaType Plain/Plain Paper: 0\n*MediaType Glossy/Glossy Paper: 2\n"
         "*Resolution 600dpi/600 dpi: \"600\"\n*Resolution 1200dpi/1200 dpi: \"1200\"\n";
    return d;
}

void Drop(HGLOBAL h) {
    FreeCfgTables(static_cast<CFGINFO *>(GlobalLock(h)));
    GlobalUnlock(h);
    GlobalFree(h);
}

int ReadOnce(const Description &d, BYTE flags) {
    DDIDEVMODE dm{};
    dm.hConfig = GlobalAlloc(GHND, CFGINFO_SIZE);
    dm.bCfgFlags = flags;
    int ok = DDIReadCfgFile(&dm, d.wide.c_str());
    Drop(dm.hConfig);
    return ok;
}

void Cleanup(const Description &d) {
    std::remove(d.pdd.c_str());
    std::remove(d.bin.c_str());
}

// Every call parses the description and rewrites the binary file, as a device mode without
// CFGF_BINARY does.
void BM_ParseDescription(benchmark::State &state) {
    Description d = Make(int(state.range(0)), "parse");
    for (auto _ : state)
        if (!ReadOnce(d, 0)) state.SkipWithError("parse failed");
    Cleanup(d);
}

// Every call is served from the current binary file.
void BM_ReadBinary(benchmark::State &state) {
    Description d = Make(int(state.range(0)), "binary");
    ReadOnce(d, 0);
    timespec old[2] = {{1500000000, 0}, {1500000000, 0}};
    utimensat(AT_FDCWD, d.pdd.c_str(), old, 0);
    struct stat before;
    stat(d.bin.c_str(), &before);
    for (auto _ : state)
        if (!ReadOnce(d, CFGF_BINARY)) state.SkipWithError("read failed");
    struct stat after;
    stat(d.bin.c_str(), &after);
    if (after.st_mtim.tv_nsec != before.st_mtim.tv_nsec ||
        after.st_mtim.tv_sec != before.st_mtim.tv_sec)
        state.SkipWithError("the binary file was rewritten: the parse ran");
    Cleanup(d);
}

BENCHMARK(BM_ParseDescription)->Arg(50)->Arg(500)->Arg(5000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ReadBinary)->Arg(50)->Arg(500)->Arg(5000)->Unit(benchmark::kMicrosecond);

} // namespace
