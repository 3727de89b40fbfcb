// Pictures as PCL raster graphics: dithered to one bit for monochrome printers, 24-bit RGB for
// colour ones, each row in the smallest of compression methods 0, 2 and 3, blank rows skipped.
// Every front end sends its rendered pages through here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace q417::pages {

// A rendered picture: 8 bits a sample, 255 white.
struct Bitmap {
    int width = 0, height = 0;
    int channels = 1;  // 1 gray, 3 RGB
    size_t stride = 0; // bytes from a row to the next; 0: width * channels
    std::vector<uint8_t> pixels;

    size_t Stride() const { return stride ? stride : static_cast<size_t>(width) * channels; }
    const uint8_t *Row(int y) const { return pixels.data() + static_cast<size_t>(y) * Stride(); }
};

// The raster resolution for a job's: the largest of 75, 100, 150, 200, 300 and 600 dpi not
// above it (75 for anything below), since PCL 5 raster graphics go no higher.
int RasterResolution(int jobDpi);

// How each row went out, for tests and benchmarks.
struct RasterStats {
    uint64_t rows = 0;        // rows given
    uint64_t rowsSkipped = 0; // blank rows moved over instead of sent
    uint64_t method[4] = {};  // rows sent in each compression method (1 unused)
    uint64_t dataBytes = 0;   // row data bytes, commands left out
};

// Sends a picture of width x height raster pixels, row by row, as PCL raster graphics with its
// top-left corner at (x, y) in the job's pixels (PCL units at jobDpi), at rasterDpi; the
// printer scales it to the job's resolution. Bytes are appended to `out`; the caller may take
// them (and clear `out`) between rows, so a page need not be held twice.
//
// Monochrome: ordered dither to one bit a pixel, anchored to the sheet so that neighbouring
// pictures meet without a seam. Colour: 24-bit RGB rows, as the job's colour set-up expects,
// each byte within SetTolerance() levels of the picture's.
// A picture with no ink sends nothing at all.
class RasterEncoder {
  public:
    RasterEncoder(int width, int height, bool colour, int x, int y, int jobDpi, int rasterDpi,
                  std::string &out);
    ~RasterEncoder() = default;
    RasterEncoder(const RasterEncoder &) = delete;
    RasterEncoder &operator=(const RasterEncoder &) = delete;

    // The next row, top down: `width` pixels of `channels` samples (1 gray, 3 RGB), 255 white.
    // Rows past `height` are ignored.
    void Row(const uint8_t *pixels, int channels);
    // The next row of a monochrome picture dithered already (by a renderer that halftones
    // itself): one bit a pixel, 1 ink, the first pixel in the high bit of the first byte.
    void Bits(const uint8_t *bits);
    // Ends the raster graphics; rows not given stay blank. Call it once, after the last row.
    void Finish();

    // Colour rows: how many levels (of 255) a byte may move towards the row above it so that
    // the delta row can leave it out; 0 sends the picture exactly.
    static constexpr int kColourTolerance = 3;
    void SetTolerance(int levels) { tolerance_ = levels; }

    const RasterStats &Stats() const { return stats_; }

  private:
    void Next();
    void Begin();
    void Send(const uint8_t *row);

    int width_, height_;
    bool colour_;
    int x_, y_, jobDpi_, rasterDpi_;
    std::string &out_;
    int rowIndex_ = 0;
    int pendingSkip_ = 0; // blank rows not yet moved over
    bool begun_ = false, finished_ = false;
    int method_ = -1; // compression method the printer is in; -1 not yet said
    int tolerance_ = kColourTolerance;
    size_t rowBytes_;
    std::vector<uint8_t> row_, seed_, m2_, m3_, gray_;
    RasterStats stats_;
};

// The whole bitmap through a RasterEncoder.
RasterStats EncodeRaster(const Bitmap &b, bool colour, int x, int y, int jobDpi, int rasterDpi,
                         std::string &out);

// Row coders, each appending one row's data to `out`; `n` bytes a row.
// Method 2, TIFF PackBits: literal runs and repeats of up to 128 bytes.
void EncodePackBits(const uint8_t *row, size_t n, std::vector<uint8_t> &out);
// Method 3, delta row: only the bytes that differ from the seed row (the row sent before).
void EncodeDeltaRow(const uint8_t *row, const uint8_t *seed, size_t n, std::vector<uint8_t> &out);

} // namespace q417::pages
