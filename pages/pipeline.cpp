// The renderer's thread and the queue of bands between it and the encoder.
#include "pipeline.h"

#include <stdexcept>

namespace q417::pages {

namespace {
// Thrown inside the renderer when the job stopped; never seen outside.
struct Stopped {};
} // namespace

Pipeline::Pipeline(RenderJob job, size_t maxBands) : max_(maxBands ? maxBands : 1) {
    thread_ = std::thread([this, job = std::move(job)] {
        try {
            job([this](int page, bool oneBit, std::vector<uint8_t> &rows, int y, int count,
                       size_t stride) { Push(page, oneBit, rows, y, count, stride); });
        } catch (const Stopped &) {
        } catch (...) {
            std::lock_guard<std::mutex> l(m_);
            failure_ = std::current_exception();
        }
        std::lock_guard<std::mutex> l(m_);
        done_ = true;
        cv_.notify_all();
    });
}

Pipeline::~Pipeline() {
    {
        std::lock_guard<std::mutex> l(m_);
        stop_ = true;
        cv_.notify_all();
    }
    thread_.join();
}

void Pipeline::Push(int page, bool oneBit, std::vector<uint8_t> &rows, int y, int count,
                    size_t stride) {
    if (rows.size() < stride * static_cast<size_t>(count)) throw std::logic_error("short band");
    std::unique_lock<std::mutex> l(m_);
    cv_.wait(l, [this] { return stop_ || queue_.size() < max_; });
    if (stop_) throw Stopped{};
    Band b;
    b.page = page, b.oneBit = oneBit, b.y = y, b.count = count, b.stride = stride;
    b.rows.swap(rows);
    if (!spare_.empty()) { // the renderer draws the next band into one the encoder is done with
        rows.swap(spare_.back());
        spare_.pop_back();
    }
    queue_.push_back(std::move(b));
    cv_.notify_all();
}

bool Pipeline::Next(Band &band) {
    std::unique_lock<std::mutex> l(m_);
    if (!band.rows.empty() && spare_.size() < max_) spare_.push_back(std::move(band.rows));
    cv_.wait(l, [this] { return !queue_.empty() || done_; });
    if (queue_.empty()) {
        if (failure_) std::rethrow_exception(failure_);
        return false;
    }
    band = std::move(queue_.front());
    queue_.pop_front();
    cv_.notify_all();
    return true;
}

} // namespace q417::pages
