// PCL raster graphics: dither, row compression and the choice between methods.
#include "raster.h"

#include "common.h"
#include "format.h"

#include <algorithm>
#include <cstring>

namespace q417::pages {

namespace {

// 8x8 Bayer matrix: dispersed dots, so a flat gray becomes a pattern that repeats every byte
// along a row and every eight rows down, which PackBits and delta rows both shrink to little.
constexpr uint8_t kBayer[8][8] = {
    {0, 32, 8, 40, 2, 34, 10, 42},  {48, 16, 56, 24, 50, 18, 58, 26},
    {12, 44, 4, 36, 14, 46, 6, 38}, {60, 28, 52, 20, 62, 30, 54, 22},
    {3, 35, 11, 43, 1, 33, 9, 41},  {51, 19, 59, 27, 49, 17, 57, 25},
    {15, 47, 7, 39, 13, 45, 5, 37}, {63, 31, 55, 23, 61, 29, 53, 21}};

// Thresholds on the 0..255 scale: a gray below its threshold is inked. Level k of 64 has k of
// the 64 cells black, from white (255, none) to black (0, all).
struct Thresholds {
    uint8_t t[8][8];
    constexpr Thresholds() : t{} {
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x) t[y][x] = static_cast<uint8_t>((kBayer[y][x] * 255 + 255) / 64);
    }
};
constexpr Thresholds kThresholds;

// Luminance of RGB, in integers.
inline uint8_t Gray(const uint8_t *p) {
    return static_cast<uint8_t>((p[0] * 77 + p[1] * 150 + p[2] * 29) >> 8);
}

// True when every byte of the row is `v`.
bool AllBytes(const uint8_t *p, size_t n, uint8_t v) {
    uint64_t pattern = 0x0101010101010101ull * v;
    size_t i = 0;
    for (; n - i >= 8; i += 8) {
        uint64_t w;
        std::memcpy(&w, p + i, 8);
        if (w != pattern) return false;
    }
    for (; i < n; ++i)
        if (p[i] != v) return false;
    return true;
}

// Length of the row without its trailing zero bytes: the printer fills a short row with zeros.
size_t Trimmed(const uint8_t *p, size_t n) {
    while (n >= 8) {
        uint64_t w;
        std::memcpy(&w, p + n - 8, 8);
        if (w) break;
        n -= 8;
    }
    while (n && !p[n - 1]) --n;
    return n;
}

// Digits of a command's number plus its letter: what "3m" adds to a combined command.
size_t CommandCost(int v) {
    return v < 10 ? 2 : v < 100 ? 3 : v < 1000 ? 4 : v < 10000 ? 5 : 6;
}

void Append(std::string &out, const std::vector<uint8_t> &v) {
    out.append(reinterpret_cast<const char *>(v.data()), v.size());
}

} // namespace

int RasterResolution(int jobDpi) {
    static const int kResolutions[] = {600, 300, 200, 150, 100, 75};
    for (int r : kResolutions)
        if (r <= jobDpi) return r;
    return 75;
}

void EncodePackBits(const uint8_t *row, size_t n, std::vector<uint8_t> &out) {
    size_t i = 0;
    while (i < n) {
        // A repeat of three or more pays (2 bytes for up to 128); shorter ones go in literals.
        size_t run = 1;
        while (i + run < n && run < 128 && row[i + run] == row[i]) ++run;
        if (run >= 3 || (run == 2 && i + run == n)) {
            out.push_back(static_cast<uint8_t>(257 - run));
            out.push_back(row[i]);
            i += run;
            continue;
        }
        // Literal bytes up to the next repeat of three.
        size_t j = i;
        while (j < n && j - i < 128) {
            if (n - j >= 3 && row[j] == row[j + 1] && row[j] == row[j + 2]) break;
            ++j;
        }
        if (j == i) continue; // a repeat starts here after all
        out.push_back(static_cast<uint8_t>(j - i - 1));
        out.insert(out.end(), row + i, row + j);
        i = j;
    }
}

void EncodeDeltaRow(const uint8_t *row, const uint8_t *seed, size_t n, std::vector<uint8_t> &out) {
    size_t pos = 0; // behind the last replacement
    size_t i = 0;
    while (i < n) {
        // Skip equal bytes a word at a time: most of a row usually matches its seed.
        while (n - i >= 8) {
            uint64_t a, b;
            std::memcpy(&a, row + i, 8);
            std::memcpy(&b, seed + i, 8);
            if (a != b) break;
            i += 8;
        }
        while (i < n && row[i] == seed[i]) ++i;
        if (i == n) break;
        size_t j = i + 1;
        while (j < n && j - i < 8 && row[j] != seed[j]) ++j;
        // Command byte: count - 1 in bits 5-7, offset in bits 0-4; an offset of 31 or more
        // goes on in further bytes, 255 meaning that yet another follows.
        size_t offset = i - pos;
        uint8_t cmd = static_cast<uint8_t>((j - i - 1) << 5);
        if (offset < 31) {
            out.push_back(static_cast<uint8_t>(cmd | offset));
        } else {
            out.push_back(static_cast<uint8_t>(cmd | 31));
            for (offset -= 31; offset >= 255; offset -= 255) out.push_back(255);
            out.push_back(static_cast<uint8_t>(offset));
        }
        out.insert(out.end(), row + i, row + j);
        pos = i = j;
    }
}

RasterEncoder::RasterEncoder(int width, int height, bool colour, int x, int y, int jobDpi,
                             int rasterDpi, std::string &out)
    : width_(std::max(width, 0)), height_(std::max(height, 0)), colour_(colour), x_(x), y_(y),
      jobDpi_(jobDpi), rasterDpi_(rasterDpi), out_(out),
      rowBytes_(colour ? static_cast<size_t>(width_) * 3 : (static_cast<size_t>(width_) + 7) / 8),
      row_(rowBytes_), seed_(rowBytes_) {
    m2_.reserve(rowBytes_ + rowBytes_ / 128 + 2);
    m3_.reserve(rowBytes_ + rowBytes_ / 8 + 8);
}

void RasterEncoder::Row(const uint8_t *px, int channels) {
    if (rowIndex_ >= height_ || finished_ || !width_) return;
    uint8_t *r = row_.data();
    if (colour_) {
        if (channels >= 3) {
            std::memcpy(r, px, rowBytes_);
        } else {
            for (int x = 0; x < width_; ++x) r[3 * x] = r[3 * x + 1] = r[3 * x + 2] = px[x];
        }
    } else {
        // The dither is anchored to the sheet's raster grid, so pictures side by side line up.
        const uint8_t *t = kThresholds.t[(y_ * rasterDpi_ / jobDpi_ + rowIndex_) & 7];
        int phase = (x_ * rasterDpi_ / jobDpi_) & 7;
        uint8_t rot[8];
        for (int k = 0; k < 8; ++k) rot[k] = t[(phase + k) & 7];
        int full = width_ / 8;
        if (channels == 1) {
            for (int b = 0; b < full; ++b) {
                const uint8_t *p = px + 8 * b;
                unsigned v = 0;
                for (int k = 0; k < 8; ++k) v |= unsigned(p[k] < rot[k]) << (7 - k);
                r[b] = static_cast<uint8_t>(v);
            }
        } else {
            for (int b = 0; b < full; ++b) {
                const uint8_t *p = px + 24 * b;
                unsigned v = 0;
                for (int k = 0; k < 8; ++k) v |= unsigned(Gray(p + 3 * k) < rot[k]) << (7 - k);
                r[b] = static_cast<uint8_t>(v);
            }
        }
        if (width_ % 8) {
            unsigned v = 0;
            for (int x = full * 8; x < width_; ++x) {
                uint8_t g = channels == 1 ? px[x] : Gray(px + 3 * x);
                v |= unsigned(g < rot[x & 7]) << (7 - (x & 7));
            }
            r[full] = static_cast<uint8_t>(v);
        }
    }
    ++rowIndex_;
    ++stats_.rows;
    if (AllBytes(r, rowBytes_, colour_ ? 0xff : 0)) { // nothing to print on this row
        ++pendingSkip_;
        ++stats_.rowsSkipped;
        return;
    }
    if (!begun_) Begin();
    Send(r);
}

void RasterEncoder::Begin() {
    begun_ = true;
    out_ += Format("\x1b*p%dx%dY", x_, y_);
    if (rasterDpi_ != jobDpi_) out_ += Format("\x1b*t%dR", rasterDpi_);
    out_ += Format("\x1b*r%dS\x1b*r1A", width_);
}

void RasterEncoder::Send(const uint8_t *r) {
    // Candidates: unencoded (a monochrome row without its trailing white), PackBits of the
    // same, and the delta against the seed. After a skip the printer's seed is a row of
    // zeros; a row there goes in method 0 or 2 so nothing leans on that.
    size_t n = colour_ ? rowBytes_ : Trimmed(r, rowBytes_);
    auto cost = [&](int m, size_t bytes) { return bytes + (m == method_ ? 0 : CommandCost(m)); };
    int best = 0;
    size_t bestCost = cost(0, n);
    m3_.clear();
    if (!pendingSkip_) {
        if (std::memcmp(r, seed_.data(), rowBytes_) == 0) {
            best = 3, bestCost = cost(3, 0);
        } else {
            EncodeDeltaRow(r, seed_.data(), rowBytes_, m3_);
            if (cost(3, m3_.size()) < bestCost) best = 3, bestCost = cost(3, m3_.size());
        }
    }
    m2_.clear();
    if (bestCost > 2 + CommandCost(2)) { // PackBits can't beat a few bytes
        EncodePackBits(r, n, m2_);
        if (cost(2, m2_.size()) < bestCost) best = 2, bestCost = cost(2, m2_.size());
    }
    out_ += "\x1b*b";
    if (pendingSkip_) {
        out_ += Format("%dy", pendingSkip_);
        pendingSkip_ = 0;
    }
    if (best != method_) {
        out_ += Format("%dm", best);
        method_ = best;
    }
    size_t bytes = best == 0 ? n : best == 2 ? m2_.size() : m3_.size();
    out_ += Format("%zuW", bytes);
    if (best == 0)
        out_.append(reinterpret_cast<const char *>(r), n);
    else
        Append(out_, best == 2 ? m2_ : m3_);
    ++stats_.method[best];
    stats_.dataBytes += bytes;
    std::memcpy(seed_.data(), r, rowBytes_);
}

void RasterEncoder::Finish() {
    if (finished_) return;
    finished_ = true;
    if (!begun_) return; // no ink: nothing was started
    // Blank rows at the bottom need no move: nothing follows them.
    out_ += "\x1b*rC";
    if (rasterDpi_ != jobDpi_) out_ += Format("\x1b*t%dR", jobDpi_);
}

RasterStats EncodeRaster(const Bitmap &b, bool colour, int x, int y, int jobDpi, int rasterDpi,
                         std::string &out) {
    RasterEncoder enc(b.width, b.height, colour, x, y, jobDpi, rasterDpi, out);
    for (int row = 0; row < b.height; ++row) enc.Row(b.Row(row), b.channels);
    enc.Finish();
    return enc.Stats();
}

} // namespace q417::pages
