// The print data path: DrvSplWritePrinter into a sink that drops the bytes, beside the least a
// path must do with a block (allocate, copy the payload, hand it to the sink, free).
#include "q417/host.h"
#include "q417/q417plg.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

int DropSink(void *ctx, const void *data, uint32_t size) {
    benchmark::DoNotOptimize(data);
    *static_cast<uint64_t *>(ctx) += size;
    return 1;
}

// A tagged print data block of `payload` bytes.
std::vector<unsigned char> Block(size_t payload) {
    std::vector<unsigned char> b(payload + 1, 0x5A);
    b[0] = 0x30;
    return b;
}

void BM_DrvSplWritePrinter(benchmark::State &state) {
    uint64_t sunk = 0;
    Q417_PRINTER p{};
    p.name = "Bench 417";
    p.pdd_path = "/nonexistent/bench.pdd";
    const HANDLE32 hPrinter = Q417_AddPrinter(&p);
    Q417_SetOutputCallback(hPrinter, DropSink, &sunk);
    void *job = DrvSplStartDoc(hPrinter, 1);
    const auto block = Block(static_cast<size_t>(state.range(0)));
    DWORD written = 0;
    for (auto _ : state) {
        if (!DrvSplWritePrinter(job, block.data(), static_cast<DWORD>(block.size()), &written))
            state.SkipWithError("write failed");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
    DrvSplClose(job);
    Q417_DeletePrinter(hPrinter);
}

// The sink is called through a pointer the compiler cannot see through, as the path does.
Q417_SINK_FN volatile gSink = DropSink;

void BM_Baseline(benchmark::State &state) {
    uint64_t sunk = 0;
    const auto block = Block(static_cast<size_t>(state.range(0)));
    const size_t payload = block.size() - 1;
    for (auto _ : state) {
        void *copy = std::malloc(payload);
        std::memcpy(copy, block.data() + 1, payload);
        gSink(&sunk, copy, static_cast<uint32_t>(payload));
        std::free(copy);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

} // namespace

BENCHMARK(BM_DrvSplWritePrinter)->Arg(4 << 10)->Arg(64 << 10)->Arg(1 << 20);
BENCHMARK(BM_Baseline)->Arg(4 << 10)->Arg(64 << 10)->Arg(1 << 20);
