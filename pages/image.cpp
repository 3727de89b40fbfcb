// Image readers and the delta row coder of raster rows.
#include "image.h"

#include "common.h"

#include <cctype>
#include <cstring>
#include <png.h>

namespace q417::pages {

namespace {

// No image the tool prints needs more: a sheet at 1200 dpi is under 200 megapixels.
constexpr uint64_t kMaxPixels = 200'000'000;

bool SizeOk(uint64_t w, uint64_t h) {
    return w && h && w <= 100000 && h <= 100000 && w * h <= kMaxPixels;
}

void CheckSize(uint64_t w, uint64_t h, const std::string &name) {
    if (!SizeOk(w, h))
        Fail("%s: image size %llux%llu out of range", name.c_str(),
             static_cast<unsigned long long>(w), static_cast<unsigned long long>(h));
}

Image LoadPng(const std::string &path) {
    png_image img;
    std::memset(&img, 0, sizeof img);
    img.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&img, path.c_str()))
        Fail("%s: not a readable PNG (%s)", path.c_str(), img.message);
    bool colour = img.format & PNG_FORMAT_FLAG_COLOR;
    img.format = colour ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    if (!SizeOk(img.width, img.height)) png_image_free(&img); // the reader's memory goes first
    CheckSize(img.width, img.height, path);
    Image out;
    out.width = static_cast<int>(img.width);
    out.height = static_cast<int>(img.height);
    out.channels = colour ? 3 : 1;
    out.pixels.resize(PNG_IMAGE_SIZE(img));
    png_color white{255, 255, 255}; // transparent parts print as paper
    if (!png_image_finish_read(&img, &white, out.pixels.data(), 0, nullptr)) {
        std::string msg = img.message;
        png_image_free(&img);
        Fail("%s: %s", path.c_str(), msg.c_str());
    }
    return out;
}

// A PNM header reader over the bytes: whitespace and comments between numbers.
struct PnmReader {
    const std::vector<uint8_t> &d;
    size_t p = 0;
    const std::string &name;
    long Number() {
        for (;;) {
            while (p < d.size() && std::isspace(d[p])) ++p;
            if (p < d.size() && d[p] == '#') {
                while (p < d.size() && d[p] != '\n') ++p;
                continue;
            }
            break;
        }
        if (p >= d.size() || !std::isdigit(d[p])) Fail("%s: damaged PNM header", name.c_str());
        long v = 0;
        while (p < d.size() && std::isdigit(d[p])) {
            v = v * 10 + (d[p++] - '0');
            if (v > 1000000) Fail("%s: number out of range in PNM header", name.c_str());
        }
        return v;
    }
};

} // namespace

Image DecodePnm(const std::vector<uint8_t> &d, const std::string &name) {
    if (d.size() < 2 || d[0] != 'P' || d[1] < '1' || d[1] > '6')
        Fail("%s: not a PNG, PBM, PGM or PPM image", name.c_str());
    int kind = d[1] - '0';
    PnmReader r{d, 2, name};
    long w = r.Number(), h = r.Number();
    CheckSize(static_cast<uint64_t>(w), static_cast<uint64_t>(h), name);
    long maxval = (kind == 1 || kind == 4) ? 1 : r.Number();
    if (maxval < 1 || maxval > 65535)
        Fail("%s: maximum value %ld out of range", name.c_str(), maxval);
    Image img;
    img.width = static_cast<int>(w);
    img.height = static_cast<int>(h);
    img.channels = (kind == 3 || kind == 6) ? 3 : 1;
    size_t samples = static_cast<size_t>(w) * static_cast<size_t>(h) * img.channels;
    img.pixels.resize(samples);
    auto scale = [&](long v) { return static_cast<uint8_t>(v * 255 / maxval); };
    if (kind <= 3) { // ASCII samples
        for (size_t i = 0; i < samples; ++i) {
            if (kind == 1) {
                while (r.p < d.size() && (std::isspace(d[r.p]) || d[r.p] == '#')) {
                    if (d[r.p] == '#')
                        while (r.p < d.size() && d[r.p] != '\n') ++r.p;
                    else
                        ++r.p;
                }
                if (r.p >= d.size()) Fail("%s: image data cut short", name.c_str());
                img.pixels[i] = d[r.p++] == '1' ? 0 : 255; // PBM: 1 is black
            } else {
                long v = r.Number();
                if (v > maxval) Fail("%s: sample above the maximum value", name.c_str());
                img.pixels[i] = scale(v);
            }
        }
        return img;
    }
    ++r.p; // the single whitespace byte before binary data
    if (kind == 4) {
        size_t rowBytes = (static_cast<size_t>(w) + 7) / 8;
        if (d.size() < r.p || d.size() - r.p < rowBytes * static_cast<size_t>(h))
            Fail("%s: image data cut short", name.c_str());
        for (long y = 0; y < h; ++y)
            for (long x = 0; x < w; ++x) {
                uint8_t byte = d[r.p + y * rowBytes + x / 8];
                img.pixels[y * w + x] = (byte >> (7 - x % 8) & 1) ? 0 : 255;
            }
        return img;
    }
    size_t bytesPerSample = maxval > 255 ? 2 : 1;
    if (d.size() < r.p || (d.size() - r.p) / bytesPerSample < samples)
        Fail("%s: image data cut short", name.c_str());
    for (size_t i = 0; i < samples; ++i) {
        long v = bytesPerSample == 2 ? (d[r.p + 2 * i] << 8 | d[r.p + 2 * i + 1]) : d[r.p + i];
        if (v > maxval) v = maxval;
        img.pixels[i] = scale(v);
    }
    return img;
}

Image LoadImage(const std::string &path) {
    std::vector<uint8_t> data = ReadWholeFile(path);
    static const uint8_t kPngSig[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    if (data.size() >= 8 && std::memcmp(data.data(), kPngSig, 8) == 0) return LoadPng(path);
    return DecodePnm(data, path);
}

std::vector<uint8_t> DeltaRow(const uint8_t *row, const uint8_t *seed, size_t n) {
    std::vector<uint8_t> out;
    size_t pos = 0; // behind the last replacement
    for (size_t i = 0; i < n;) {
        if (row[i] == seed[i]) {
            ++i;
            continue;
        }
        size_t j = i;
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
    return out;
}

} // namespace q417::pages
