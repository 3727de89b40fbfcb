// Images for printing: PNG through libpng, PBM/PGM/PPM read here, and the PCL raster rows
// they become.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace q417::pages {

struct Image {
    int width = 0;
    int height = 0;
    int channels = 1; // 1 gray, 3 RGB; 8 bits each, 0 black
    std::vector<uint8_t> pixels;
};

// No picture is larger; and a file must hold data enough for the size its header gives
// before any memory is taken for it.
constexpr uint64_t kMaxImagePixels = 200'000'000;

// Reads a PNG or a PBM/PGM/PPM file (ASCII or binary); Fail()s naming the file (`name`, or
// the path when empty).
Image LoadImage(const std::string &path, const std::string &name = {});
// Reads a JPEG file (gray, RGB or CMYK) through libjpeg.
Image LoadJpeg(const std::string &path, const std::string &name);
// Checks a picture's header without decoding it: size in range and data enough for it.
void ReadImageHeader(const std::string &path, const std::string &name, bool jpeg);
// The PNM reader on bytes, for files and tests; `name` is used in messages.
Image DecodePnm(const std::vector<uint8_t> &data, const std::string &name);

// PCL compression method 3 (delta row) of one row against the seed row, the row sent last
// (zeros at the start of raster graphics). A row equal to its seed costs no byte, so an image
// enlarged to the printer's resolution stays small.
std::vector<uint8_t> DeltaRow(const uint8_t *row, const uint8_t *seed, size_t n);

} // namespace q417::pages
