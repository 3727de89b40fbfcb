// PCL raster graphics: dither, row compression and the choice between methods.
#include "raster.h"

#include "format.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace q417::pages {

namespace {

// 8x8 Bayer matrix: dispersed dots, so a flat gray becomes a pattern that repeats every byte
// along a row and every eight rows down, which PackBits and delta rows both shrink to little.
constexpr uint8_t kBayer[8][8] = {{0, 32, 8, 40, 2, 34, 10, 42},  {48, 16, 56, 24, 50, 18, 58, 26},
                                  {12, 44, 4, 36, 14, 46, 6, 38}, {60, 28, 52, 20, 62, 30, 54, 22},
                                  {3, 35, 11, 43, 1, 33, 9, 41},  {51, 19, 59, 27, 49, 17, 57, 25},
                                  {15, 47, 7, 39, 13, 45, 5, 37}, {63, 31, 55, 23, 61, 29, 53, 21}};

// Thresholds on the 0..255 scale: a gray below its threshold is inked. Level k of 64 has k of
// the 64 cells black, from white (255, none) to black (0, all).
struct Thresholds {
    uint8_t t[8][8];
    constexpr Thresholds() : t{} {
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x)
                t[y][x] = static_cast<uint8_t>((kBayer[y][x] * 255 + 255) / 64);
    }
};
constexpr Thresholds kThresholds;

// Luminance of RGB, in integers.
inline uint8_t Gray(const uint8_t *p) {
    return static_cast<uint8_t>((p[0] * 77 + p[1] * 150 + p[2] * 29) >> 8);
}

// Bits of one row: a pixel darker than its threshold is inked, the first pixel in the high
// bit. Sixteen pixels at a time where the processor compares sixteen bytes at once.
void Dither(const uint8_t *gray, int width, const uint8_t *t, int phase, uint8_t *bits) {
    uint8_t rot[16];
    for (int k = 0; k < 16; ++k) rot[k] = t[(phase + k) & 7];
    int x = 0;
#if defined(__SSE2__)
    static const auto kReverse = [] {
        std::array<uint8_t, 256> r{};
        for (int v = 0; v < 256; ++v)
            for (int b = 0; b < 8; ++b)
                if (v >> b & 1) r[v] |= static_cast<uint8_t>(0x80 >> b);
        return r;
    }();
    const __m128i thr = _mm_loadu_si128(reinterpret_cast<const __m128i *>(rot));
    for (; width - x >= 16; x += 16) {
        __m128i p = _mm_loadu_si128(reinterpret_cast<const __m128i *>(gray + x));
        // p >= t where max(p, t) == p; the ink is the rest.
        __m128i light = _mm_cmpeq_epi8(_mm_max_epu8(p, thr), p);
        unsigned ink = ~static_cast<unsigned>(_mm_movemask_epi8(light)) & 0xffff;
        bits[x / 8] = kReverse[ink & 0xff];
        bits[x / 8 + 1] = kReverse[ink >> 8];
    }
#endif
    for (; x < width; x += 8) {
        unsigned v = 0;
        for (int k = 0; k < 8 && x + k < width; ++k) v |= unsigned(gray[x + k] < rot[k]) << (7 - k);
        bits[x / 8] = static_cast<uint8_t>(v);
    }
}

// Colour bytes within `tol` of the seed row's take the seed's value, so that the delta row
// leaves them out: a photograph's neighbouring rows differ by a level or two nearly
// everywhere, and that much is below what the printer's own halftone shows.
void Snap(uint8_t *row, const uint8_t *seed, size_t n, int tol) {
    size_t i = 0;
#if defined(__SSE2__)
    const __m128i t = _mm_set1_epi8(static_cast<char>(tol));
    for (; n - i >= 16; i += 16) {
        __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(row + i));
        __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(seed + i));
        __m128i d = _mm_or_si128(_mm_subs_epu8(a, b), _mm_subs_epu8(b, a)); // |a - b|
        __m128i near = _mm_cmpeq_epi8(_mm_subs_epu8(d, t), _mm_setzero_si128());
        a = _mm_or_si128(_mm_and_si128(near, b), _mm_andnot_si128(near, a));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(row + i), a);
    }
#endif
    for (; i < n; ++i)
        if (std::abs(row[i] - seed[i]) <= tol) row[i] = seed[i];
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

} // namespace

int RasterResolution(int jobDpi) {
    static const int kResolutions[] = {600, 300, 200, 150, 100, 75};
    for (int r : kResolutions)
        if (r <= jobDpi) return r;
    return 75;
}

namespace {

// The coders write through a pointer into room made beforehand: at most 3n + 16 bytes for a
// row of n (a delta command byte and an offset byte for every byte, in the worst case).
size_t RoomFor(size_t n) {
    return 3 * n + 16;
}

// PackBits into `out`; stops early, returning more than `limit`, once the output passes it.
size_t PackBitsTo(const uint8_t *row, size_t n, uint8_t *out, size_t limit) {
    uint8_t *o = out;
    size_t i = 0;
    while (i < n) {
        if (static_cast<size_t>(o - out) > limit) break;
        // A repeat of three or more pays (2 bytes for up to 128); shorter ones go in literals.
        size_t run = 1;
        while (i + run < n && run < 128 && row[i + run] == row[i]) ++run;
        if (run >= 3 || (run == 2 && i + run == n)) {
            *o++ = static_cast<uint8_t>(257 - run);
            *o++ = row[i];
            i += run;
            continue;
        }
        // Literal bytes up to the next repeat of three.
        size_t j = i;
        while (j < n && j - i < 128) {
            if (n - j >= 3 && row[j] == row[j + 1] && row[j] == row[j + 2]) break;
            ++j;
        }
        *o++ = static_cast<uint8_t>(j - i - 1);
        std::memcpy(o, row + i, j - i);
        o += j - i;
        i = j;
    }
    return static_cast<size_t>(o - out);
}

size_t DeltaRowTo(const uint8_t *row, const uint8_t *seed, size_t n, uint8_t *out) {
    uint8_t *o = out;
    size_t pos = 0; // behind the last replacement
    size_t i = 0;
    while (i < n) {
        // Skip equal bytes a word at a time: most of a row usually matches its seed.
        while (n - i >= 8) {
            uint64_t a, b;
            std::memcpy(&a, row + i, 8);
            std::memcpy(&b, seed + i, 8);
            if (a != b) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
                i += static_cast<size_t>(__builtin_ctzll(a ^ b) / 8); // the first byte that differs
#endif
                break;
            }
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
            *o++ = static_cast<uint8_t>(cmd | offset);
        } else {
            *o++ = static_cast<uint8_t>(cmd | 31);
            for (offset -= 31; offset >= 255; offset -= 255) *o++ = 255;
            *o++ = static_cast<uint8_t>(offset);
        }
        std::memcpy(o, row + i, j - i);
        o += j - i;
        pos = i = j;
    }
    return static_cast<size_t>(o - out);
}

} // namespace

void EncodePackBits(const uint8_t *row, size_t n, std::vector<uint8_t> &out) {
    size_t at = out.size();
    out.resize(at + RoomFor(n));
    out.resize(at + PackBitsTo(row, n, out.data() + at, SIZE_MAX));
}

void EncodeDeltaRow(const uint8_t *row, const uint8_t *seed, size_t n, std::vector<uint8_t> &out) {
    size_t at = out.size();
    out.resize(at + RoomFor(n));
    out.resize(at + DeltaRowTo(row, seed, n, out.data() + at));
}

RasterEncoder::RasterEncoder(int width, int height, bool colour, int x, int y, int jobDpi,
                             int rasterDpi, std::string &out)
    : width_(std::max(width, 0)), height_(std::max(height, 0)), colour_(colour), x_(x), y_(y),
      jobDpi_(jobDpi), rasterDpi_(rasterDpi), out_(out),
      rowBytes_(colour ? static_cast<size_t>(width_) * 3 : (static_cast<size_t>(width_) + 7) / 8),
      row_(rowBytes_), seed_(rowBytes_) {
    m2_.resize(RoomFor(rowBytes_));
    m3_.resize(RoomFor(rowBytes_));
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
        const uint8_t *gray = px;
        if (channels >= 3) {
            gray_.resize(static_cast<size_t>(width_));
            for (int x = 0; x < width_; ++x) gray_[x] = Gray(px + 3 * x);
            gray = gray_.data();
        }
        // The dither is anchored to the sheet's raster grid, so pictures side by side line up.
        const uint8_t *t = kThresholds.t[(int64_t{y_} * rasterDpi_ / jobDpi_ + rowIndex_) & 7];
        int phase = static_cast<int>((int64_t{x_} * rasterDpi_ / jobDpi_) & 7);
        Dither(gray, width_, t, phase, r);
    }
    if (colour_ && tolerance_ && begun_ && !pendingSkip_)
        Snap(r, seed_.data(), rowBytes_, tolerance_);
    Next();
}

void RasterEncoder::Bits(const uint8_t *bits) {
    if (colour_ || rowIndex_ >= height_ || finished_ || !width_) return;
    std::memcpy(row_.data(), bits, rowBytes_);
    if (width_ % 8) row_[rowBytes_ - 1] &= static_cast<uint8_t>(0xff00 >> (width_ % 8));
    Next();
}

void RasterEncoder::Next() {
    uint8_t *r = row_.data();
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
    size_t n3 = 0, n2 = 0;
    if (!pendingSkip_) {
        if (std::memcmp(r, seed_.data(), rowBytes_) == 0) {
            best = 3, bestCost = cost(3, 0);
        } else {
            n3 = DeltaRowTo(r, seed_.data(), rowBytes_, m3_.data());
            if (cost(3, n3) < bestCost) best = 3, bestCost = cost(3, n3);
        }
    }
    if (bestCost > 2 + CommandCost(2)) { // PackBits can't beat a few bytes
        n2 = PackBitsTo(r, n, m2_.data(), bestCost);
        if (cost(2, n2) < bestCost) best = 2, bestCost = cost(2, n2);
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
    size_t bytes = best == 0 ? n : best == 2 ? n2 : n3;
    out_ += Format("%zuW", bytes);
    const uint8_t *data = best == 0 ? r : best == 2 ? m2_.data() : m3_.data();
    out_.append(reinterpret_cast<const char *>(data), bytes);
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
