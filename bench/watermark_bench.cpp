// The watermark font download (header and glyphs) of DejaVu Sans for "CONFIDENTIAL", beside
// reading the same table and glyph bytes from the file with the same calls.
#include "job/job.h"
#include "q417/host.h"
#include "watermark/truetype.h"
#include "watermark/watermark.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

const char kFont[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
const char kText[] = "CONFIDENTIAL";

int Discard(void *, const void *, uint32_t) {
    return 1;
}

struct Fixture {
    HANDLE32 printer = 0;
    char cmdBuf[1024] = {};
    DDIDEVMODE dm{};
    SPLDEVINFO info{};
    Fixture() {
        Q417_PRINTER pr{};
        pr.name = "bench";
        pr.pdd_path = "/nonexistent/bench.pdd";
        printer = Q417_AddPrinter(&pr);
        Q417_SetOutputCallback(printer, Discard, nullptr);
        info.hPrinter = printer;
        info.pDevMode = Ptr32From(&dm);
        info.pCmdBuf = Ptr32From(cmdBuf);
    }
    ~Fixture() { Q417_DeletePrinter(printer); }
};

HANDLE Open() {
    std::u16string w(kFont, kFont + sizeof kFont - 1);
    return CreateFileW(w.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                       FILE_ATTRIBUTE_NORMAL, 0);
}

void BM_WaterMarkFontDownload(benchmark::State &state) {
    Fixture fx;
    HANDLE h = Open();
    if (h == INVALID_HANDLE_VALUE) return state.SkipWithError("no DejaVu Sans");
    WM = WMINFO{};
    WM.nWeight = 400;
    for (auto _ : state) {
        if (!SelectWaterMarkFont(&fx.info, &WM, h, "DejaVu Sans"))
            return state.SkipWithError("refused");
        DownloadWaterMarkChars(&fx.info, &WM, h, kText);
    }
    CloseHandle(h);
}
BENCHMARK(BM_WaterMarkFontDownload)->Unit(benchmark::kMicrosecond);

// The byte ranges the download takes from the file: offset table and directory (twice),
// cmap, head, hhea's last word, the space's advance, OS/2, cvt, fpgm, hmtx, maxp, prep; then
// head and loca again and each glyph of the text.
struct Range {
    DWORD offset, length;
};
std::vector<Range> SameBytes(HANDLE h) {
    using namespace q417::tt;
    std::vector<Range> r;
    Directory dir;
    if (!ReadDirectory(h, dir)) return r;
    const Range directory{0, 12 + 16u * dir.nTables};
    r.push_back(directory);
    Table t;
    for (const char *tag : {"cmap", "head", "OS/2", "cvt ", "fpgm", "hhea", "hmtx", "maxp", "prep"})
        if (FindTable(dir, tag, t)) r.push_back({t.offset, t.length});
    r.push_back(directory);
    Table head, loca, glyf;
    FindTable(dir, "head", head);
    FindTable(dir, "loca", loca);
    FindTable(dir, "glyf", glyf);
    r.push_back({head.offset, head.length});
    r.push_back({loca.offset, loca.length});
    // Glyph extents of the text's distinct letters, from the map the header built.
    Block headData, locaData;
    LoadTable(h, head, headData);
    LoadTable(h, loca, locaData);
    bool seen[256] = {};
    for (const char *p = kText; *p; ++p) {
        unsigned c = static_cast<unsigned char>(*p);
        if (seen[c]) continue;
        seen[c] = true;
        const unsigned g = GlyphIDArray[c];
        const bool shortLoca = Be16(headData.get() + 50) == 0;
        DWORD start = shortLoca ? Be16(locaData.get() + 2 * g) * 2u : Be32(locaData.get() + 4 * g);
        DWORD end =
            shortLoca ? Be16(locaData.get() + 2 * g + 2) * 2u : Be32(locaData.get() + 4 * g + 4);
        if (end > start) r.push_back({glyf.offset + start, end - start});
    }
    return r;
}

void BM_ReadSameBytes(benchmark::State &state) {
    Fixture fx;
    HANDLE h = Open();
    if (h == INVALID_HANDLE_VALUE) return state.SkipWithError("no DejaVu Sans");
    WM = WMINFO{};
    SelectWaterMarkFont(&fx.info, &WM, h, "DejaVu Sans"); // builds the map SameBytes uses
    const std::vector<Range> ranges = SameBytes(h);
    size_t total = 0;
    for (const Range &r : ranges) total += r.length;
    std::vector<BYTE> buf(total);
    for (auto _ : state) {
        BYTE *p = buf.data();
        for (const Range &r : ranges) {
            q417::tt::ReadAt(h, r.offset, p, r.length);
            p += r.length;
        }
        benchmark::DoNotOptimize(buf.data());
    }
    state.counters["bytes"] = double(total);
    CloseHandle(h);
}
BENCHMARK(BM_ReadSameBytes)->Unit(benchmark::kMicrosecond);

} // namespace
