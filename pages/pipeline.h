// Pages rendered on a thread of their own while the caller encodes and sends the ones before:
// bands of rows pass through a short queue, in page order, so at most a few bands are held
// whatever the number of pages.
#pragma once

#include "document.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace q417::pages {

struct Band {
    int page = 0;        // the job's page, from 0
    bool oneBit = false; // rows of one bit a pixel, 1 ink; else 8-bit samples
    int y = 0, count = 0;
    size_t stride = 0;
    std::vector<uint8_t> rows;
};

// A job's pages as the renderer walks them: it calls `render(band)` for each page in turn,
// handing each band of rows to the band function, and returns when the job's pages are done.
using PageBandFn = std::function<void(int page, bool oneBit, std::vector<uint8_t> &rows, int y,
                                      int count, size_t stride)>;
using RenderJob = std::function<void(const PageBandFn &)>;

class Pipeline {
  public:
    // Starts rendering at once; `maxBands` bands wait at most.
    Pipeline(RenderJob job, size_t maxBands);
    // Stops the renderer if it is still going, and waits for it.
    ~Pipeline();
    Pipeline(const Pipeline &) = delete;
    Pipeline &operator=(const Pipeline &) = delete;

    // The next band in order; false when the job's pages are all done. Rethrows the
    // renderer's failure.
    bool Next(Band &band);

  private:
    // Takes the band's buffer, leaving a spare one in its place.
    void Push(int page, bool oneBit, std::vector<uint8_t> &rows, int y, int count, size_t stride);

    std::mutex m_;
    std::condition_variable cv_;
    std::deque<Band> queue_;
    std::vector<std::vector<uint8_t>> spare_; // buffers handed back, so bands reuse memory
    size_t max_;
    bool done_ = false, stop_ = false;
    std::exception_ptr failure_;
    std::thread thread_;
};

} // namespace q417::pages
