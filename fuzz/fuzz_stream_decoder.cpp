// Fuzz target of the printer stream decoder behind `q417 dump`: any bytes at all must decode
// without reading past the stream, and a cut is reported inside the stream.
#include "../pages/format.cpp"
#include "../tools/pcl_decoder.cpp"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string out;
    q417tool::DecodeResult r = q417tool::DecodeStream(data, size, out);
    if (r.bTruncated && r.nTruncatedAt >= size) abort();
    return 0;
}
