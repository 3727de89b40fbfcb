// Printer stream decoder behind `q417 dump`: PJL lines, PCL escape sequences with their
// parameters, HP-GL/2 instructions, binary payloads summarised.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace q417tool {

struct DecodeResult {
    size_t nCommands = 0; // listing lines that name a command
    size_t nUnknown = 0;  // commands the decoder doesn't know (listed, then skipped)
    bool bTruncated = false;
    size_t nTruncatedAt = 0; // offset of the command that the stream cut
};

// Decodes the whole stream into `out`, one line a command: byte offset in hex, the command as
// it stands (ESC written as "ESC"), its meaning. The decoder starts in PCL, like a printer
// that has just been reset, and follows the language switches in the stream.
DecodeResult DecodeStream(const uint8_t *data, size_t size, std::string &out);

} // namespace q417tool
