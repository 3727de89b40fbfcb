// Peak memory of whole `q417 print` runs against the number of pages: a PDF's first page or
// its first 20, and one picture or 20 of them. Pages are rendered, encoded and sent one at a
// time, so the peak must not grow with the count. Figures: peak_MB (maximum resident set of
// the q417 process), and pages a second.
#include <benchmark/benchmark.h>

#include <png.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#if defined(Q417_TOOL) && defined(Q417_BENCH_DOC)

namespace {

// Runs q417 with `args`, output to /dev/null; its peak resident set in kilobytes.
long RunPeakKb(const std::vector<std::string> &args) {
    pid_t pid = fork();
    if (pid == 0) {
        std::vector<char *> argv{const_cast<char *>(Q417_TOOL), const_cast<char *>("print")};
        for (const auto &a : args) argv.push_back(const_cast<char *>(a.c_str()));
        for (const char *a :
             {"-p", "mono", "--paper", "Letter", "--resolution", "600dpi", "-q", "-o", "/dev/null"})
            argv.push_back(const_cast<char *>(a));
        argv.push_back(nullptr);
        setenv("Q417_HOME", "/tmp/q417-bench-home", 1);
        execv(Q417_TOOL, argv.data());
        _exit(127);
    }
    int status = 0;
    rusage ru{};
    wait4(pid, &status, 0, &ru);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? ru.ru_maxrss : -1;
}

void Report(benchmark::State &state, long peakKb, int pages) {
    if (peakKb < 0) state.SkipWithError("q417 print failed");
    state.counters["peak_MB"] = peakKb / 1024.0;
    state.counters["pages"] = pages;
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * pages);
}

void BM_PrintPdfPeak(benchmark::State &state) {
    int pages = static_cast<int>(state.range(0));
    long peak = 0;
    for (auto _ : state)
        peak = std::max(peak, RunPeakKb({Q417_BENCH_DOC, "--page-ranges",
                                         pages == 1 ? "1" : "1-" + std::to_string(pages)}));
    Report(state, peak, pages);
}
BENCHMARK(BM_PrintPdfPeak)
    ->Arg(1)
    ->Arg(20)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2)
    ->UseRealTime();

// A 3000 by 2000 RGB photo-like picture (18 MB decoded), written once.
std::string Picture() {
    static std::string path;
    if (!path.empty()) return path;
    path = "/tmp/q417-bench-picture.png";
    const int w = 3000, h = 2000;
    std::vector<uint8_t> px(static_cast<size_t>(w) * h * 3);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint8_t *p = &px[(static_cast<size_t>(y) * w + x) * 3];
            p[0] = static_cast<uint8_t>(x * 255 / w), p[1] = static_cast<uint8_t>(y * 255 / h);
            p[2] = static_cast<uint8_t>((x ^ y) & 255);
        }
    png_image img{};
    img.version = PNG_IMAGE_VERSION;
    img.width = w, img.height = h, img.format = PNG_FORMAT_RGB;
    png_image_write_to_file(&img, path.c_str(), 0, px.data(), 0, nullptr);
    return path;
}

void BM_PrintPicturesPeak(benchmark::State &state) {
    int pages = static_cast<int>(state.range(0));
    std::vector<std::string> args(static_cast<size_t>(pages), Picture());
    long peak = 0;
    for (auto _ : state) peak = std::max(peak, RunPeakKb(args));
    Report(state, peak, pages);
}
BENCHMARK(BM_PrintPicturesPeak)
    ->Arg(1)
    ->Arg(20)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2)
    ->UseRealTime();

} // namespace

#endif
