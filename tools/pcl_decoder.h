// Printer stream decoder behind `q417 dump`: PJL lines, PCL escape sequences with their
// parameters, HP-GL/2 instructions, binary payloads summarised.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace q417tool {

struct DecodeResult {
    size_t nCommands = 0; // listing lines that name a command
    size_t nUnknown = 0;  // commands the decoder doesn't know (listed, then skipped)
    bool bTruncated = false;
    size_t nTruncatedAt = 0; // offset of the command that the stream cut
    size_t nBadRows = 0;     // raster rows whose data don't decode in their compression method
};

// A raster graphics block as a printer draws it: where it starts and its rows decompressed.
struct RasterBlock {
    long x = 0, y = 0;    // cursor at the start, PCL units (ESC*p moves only)
    int resolution = 0;   // raster resolution in force (ESC*t#R); 0 not given
    int width = 0;        // pixels (ESC*r#S); 0 not given
    int bitsPerPixel = 1; // 24 after a direct-by-pixel 8/8/8 colour set-up
    // Each row's bytes, zero-filled to the width; an empty row was moved over (ESC*b#Y).
    std::vector<std::vector<uint8_t>> rows;
};

// Decodes the whole stream into `out`, one line a command: byte offset in hex, the command as
// it stands (ESC written as "ESC"), its meaning. The decoder starts in PCL, like a printer
// that has just been reset, and follows the language switches in the stream.
DecodeResult DecodeStream(const uint8_t *data, size_t size, std::string &out);

// The same listing in pieces of whole lines, handed to `emit` as it grows, so memory stays the
// same however long the stream is. `done` (optional) is told, now and then, the offset below
// which the decoder reads no byte any more.
DecodeResult DecodeStream(const uint8_t *data, size_t size,
                          const std::function<void(std::string_view)> &emit,
                          const std::function<void(size_t)> &done = {});

// Follows the stream as DecodeStream does and hands back its raster graphics, rows
// decompressed (methods 0, 2 and 3). Memory grows with the raster: for tests and small jobs.
std::vector<RasterBlock> DecodeRaster(const uint8_t *data, size_t size,
                                      DecodeResult *result = nullptr);

} // namespace q417tool
