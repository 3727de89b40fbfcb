// The raster encoder on a 600 dpi Letter page, as a monochrome job sends it: dither, pick a
// compression per row, skip blank rows. Figures are rows and input megabytes a second.
#include "raster.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <string>

namespace {

using q417::pages::Bitmap;
using q417::pages::RasterEncoder;

// A page of text lines (short dark strokes), a gray ramp band and a smooth "photo" with fine
// detail, on white margins: what a rendered document page holds.
Bitmap Page(int w, int h, int channels) {
    Bitmap b;
    b.width = w, b.height = h, b.channels = channels;
    b.pixels.assign(static_cast<size_t>(w) * h * channels, 255);
    for (int y = 0; y < h; ++y) {
        uint8_t *row = b.pixels.data() + static_cast<size_t>(y) * w * channels;
        for (int x = 0; x < w; ++x) {
            int v = 255;
            bool inside = x > w / 12 && x < w - w / 12 && y > h / 15 && y < h - h / 15;
            if (!inside) continue;
            if (y < h / 2) { // text: 10 pt lines of strokes
                int line = y % (h / 66), col = x % 37;
                if (line < h / 110 && col < 22 && ((x / 37 + y / (h / 66)) % 7)) v = 20;
            } else if (y < h / 2 + h / 20) { // gray ramp
                v = 255 * (x - w / 12) / (w - w / 6);
            } else { // photo
                double fx = x * 0.004, fy = y * 0.003;
                v = static_cast<int>(128 + 90 * std::sin(fx * 3 + std::cos(fy * 2)) +
                                     30 * std::sin(x * 0.09) * std::cos(y * 0.07));
                v = v < 0 ? 0 : v > 255 ? 255 : v;
            }
            for (int c = 0; c < channels; ++c)
                row[static_cast<size_t>(x) * channels + c] =
                    static_cast<uint8_t>(channels == 3 && c == 1 ? 255 - (255 - v) / 2 : v);
        }
    }
    return b;
}

void Encode(benchmark::State &state, int dpi, bool colour) {
    Bitmap page = Page(dpi * 17 / 2, dpi * 11, colour ? 3 : 1);
    std::string out;
    size_t bytes = 0;
    for (auto _ : state) {
        out.clear();
        RasterEncoder enc(page.width, page.height, colour, 0, 0, dpi, dpi, out);
        for (int y = 0; y < page.height; ++y) {
            enc.Row(page.Row(y), page.channels);
            if (out.size() > (1 << 20)) bytes += out.size(), out.clear(); // as a sink drains it
        }
        enc.Finish();
        bytes += out.size();
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * page.height);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * page.pixels.size()));
    state.counters["stream_bytes_per_page"] =
        static_cast<double>(bytes) / static_cast<double>(state.iterations());
}

void BM_RasterMono600(benchmark::State &state) {
    Encode(state, 600, false);
}
void BM_RasterColour300(benchmark::State &state) {
    Encode(state, 300, true);
}
BENCHMARK(BM_RasterMono600)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RasterColour300)->Unit(benchmark::kMillisecond);

} // namespace
