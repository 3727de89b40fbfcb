// Image readers and the delta row coder of raster rows.
#include "image.h"

#include "common.h"

#include <cctype>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <png.h>
#include <sys/stat.h>
#include <unistd.h>

#include <jpeglib.h>

namespace q417::pages {

namespace {

bool SizeOk(uint64_t w, uint64_t h) {
    return w && h && w <= 100000 && h <= 100000 && w * h <= kMaxImagePixels;
}

void CheckSize(uint64_t w, uint64_t h, const std::string &name) {
    if (!SizeOk(w, h))
        Fail("%s: image size %llux%llu out of range", name.c_str(),
             static_cast<unsigned long long>(w), static_cast<unsigned long long>(h));
}

uint64_t FileSize(const std::string &path, const std::string &name) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) Fail("%s: %s", name.c_str(), std::strerror(errno));
    return static_cast<uint64_t>(st.st_size);
}

// Deflate expands a byte into at most 1032, and a PNG pixel takes one bit at least: a header
// that claims more pixels than that is a lie that would cost memory.
void CheckPngData(uint64_t w, uint64_t h, uint64_t fileSize, const std::string &name) {
    if (w * h / 8 / 1032 > fileSize)
        Fail("%s: image size %llux%llu is more than its %llu bytes can hold", name.c_str(),
             static_cast<unsigned long long>(w), static_cast<unsigned long long>(h),
             static_cast<unsigned long long>(fileSize));
}

Image LoadPng(const std::string &path, const std::string &name) {
    png_image img;
    std::memset(&img, 0, sizeof img);
    img.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&img, path.c_str()))
        Fail("%s: not a readable PNG (%s)", name.c_str(), img.message);
    bool colour = img.format & PNG_FORMAT_FLAG_COLOR;
    img.format = colour ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    uint64_t w = img.width, h = img.height;
    if (!SizeOk(w, h) || w * h / 8 / 1032 > FileSize(path, name))
        png_image_free(&img); // the reader's memory goes first
    CheckSize(w, h, name);
    CheckPngData(w, h, FileSize(path, name), name);
    Image out;
    out.width = static_cast<int>(img.width);
    out.height = static_cast<int>(img.height);
    out.channels = colour ? 3 : 1;
    out.pixels.resize(PNG_IMAGE_SIZE(img));
    png_color white{255, 255, 255}; // transparent parts print as paper
    if (!png_image_finish_read(&img, &white, out.pixels.data(), 0, nullptr)) {
        std::string msg = img.message;
        png_image_free(&img);
        Fail("%s: %s", name.c_str(), msg.c_str());
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

struct PnmHeader {
    int kind = 0;
    long w = 0, h = 0, maxval = 1;
    size_t data = 0; // where the samples start
};

// The header, checked against the bytes the file holds behind it (`total`: the file's size,
// of which `d` may be the start only).
PnmHeader ReadPnmHeader(const std::vector<uint8_t> &d, uint64_t total, const std::string &name) {
    if (d.size() < 2 || d[0] != 'P' || d[1] < '1' || d[1] > '6')
        Fail("%s: not a PNG, PBM, PGM or PPM image", name.c_str());
    PnmHeader hd;
    hd.kind = d[1] - '0';
    PnmReader r{d, 2, name};
    hd.w = r.Number(), hd.h = r.Number();
    CheckSize(static_cast<uint64_t>(hd.w), static_cast<uint64_t>(hd.h), name);
    hd.maxval = (hd.kind == 1 || hd.kind == 4) ? 1 : r.Number();
    if (hd.maxval < 1 || hd.maxval > 65535)
        Fail("%s: maximum value %ld out of range", name.c_str(), hd.maxval);
    hd.data = hd.kind <= 3 ? r.p : r.p + 1; // one whitespace byte before binary data
    uint64_t samples = static_cast<uint64_t>(hd.w) * static_cast<uint64_t>(hd.h) *
                       ((hd.kind == 3 || hd.kind == 6) ? 3 : 1);
    // ASCII samples take a byte each at least; binary ones their exact size.
    uint64_t need = hd.kind == 4   ? (static_cast<uint64_t>(hd.w) + 7) / 8 * hd.h
                    : hd.kind >= 5 ? samples * (hd.maxval > 255 ? 2 : 1)
                                   : samples;
    if (total < hd.data || total - hd.data < need) Fail("%s: image data cut short", name.c_str());
    return hd;
}

} // namespace

Image DecodePnm(const std::vector<uint8_t> &d, const std::string &name) {
    PnmHeader hd = ReadPnmHeader(d, d.size(), name);
    int kind = hd.kind;
    long w = hd.w, h = hd.h, maxval = hd.maxval;
    PnmReader r{d, hd.data, name};
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
    if (kind == 4) {
        size_t rowBytes = (static_cast<size_t>(w) + 7) / 8;
        for (long y = 0; y < h; ++y)
            for (long x = 0; x < w; ++x) {
                uint8_t byte = d[r.p + y * rowBytes + x / 8];
                img.pixels[y * w + x] = (byte >> (7 - x % 8) & 1) ? 0 : 255;
            }
        return img;
    }
    size_t bytesPerSample = maxval > 255 ? 2 : 1;
    for (size_t i = 0; i < samples; ++i) {
        long v = bytesPerSample == 2 ? (d[r.p + 2 * i] << 8 | d[r.p + 2 * i + 1]) : d[r.p + i];
        if (v > maxval) v = maxval;
        img.pixels[i] = scale(v);
    }
    return img;
}

namespace {

const uint8_t kPngSig[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};

// libjpeg reports errors through a callback that must not return: it jumps back here.
struct JpegError {
    jpeg_error_mgr mgr;
    jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

void JpegExit(j_common_ptr c) {
    auto *e = reinterpret_cast<JpegError *>(c->err);
    (*c->err->format_message)(c, e->message);
    longjmp(e->jump, 1);
}

struct FileCloser {
    void operator()(FILE *f) const { fclose(f); }
};

// Reads a JPEG's header, and with `out` its pixels. The decoder lives inside this one
// function because of the jump.
void ReadJpeg(const std::string &path, const std::string &name, Image *out) {
    std::unique_ptr<FILE, FileCloser> f(fopen(path.c_str(), "rb"));
    if (!f) Fail("%s: %s", name.c_str(), std::strerror(errno));
    jpeg_decompress_struct cinfo;
    JpegError err;
    cinfo.err = jpeg_std_error(&err.mgr);
    err.mgr.error_exit = JpegExit;
    err.mgr.output_message = [](j_common_ptr) {}; // warnings stay quiet
    std::string failure;
    std::vector<uint8_t> row; // declared before the jump target, so a jump frees it
    if (setjmp(err.jump)) {
        failure = err.message;
        jpeg_destroy_decompress(&cinfo);
        Fail("%s: not a readable JPEG (%s)", name.c_str(), failure.c_str());
    }
    jpeg_create_decompress(&cinfo);
    jpeg_stdio_src(&cinfo, f.get());
    jpeg_read_header(&cinfo, TRUE);
    uint64_t w = cinfo.image_width, h = cinfo.image_height;
    if (!SizeOk(w, h)) {
        jpeg_destroy_decompress(&cinfo);
        CheckSize(w, h, name);
    }
    if (!out) {
        jpeg_destroy_decompress(&cinfo);
        return;
    }
    bool cmyk = cinfo.jpeg_color_space == JCS_CMYK || cinfo.jpeg_color_space == JCS_YCCK;
    cinfo.out_color_space = cmyk ? JCS_CMYK : cinfo.num_components == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_start_decompress(&cinfo);
    out->width = static_cast<int>(cinfo.output_width);
    out->height = static_cast<int>(cinfo.output_height);
    out->channels = cinfo.out_color_space == JCS_GRAYSCALE ? 1 : 3;
    row.resize(static_cast<size_t>(cinfo.output_width) * cinfo.output_components);
    // Rows are kept as they are decoded: what the header claims costs memory only as far as
    // the data bears it out.
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW rows[1] = {row.data()};
        jpeg_read_scanlines(&cinfo, rows, 1);
        if (!cmyk) {
            out->pixels.insert(out->pixels.end(), row.begin(), row.end());
            continue;
        }
        for (size_t x = 0; x < cinfo.output_width; ++x) {
            // Adobe writes CMYK JPEGs inverted: 255 is no ink.
            const uint8_t *p = &row[x * 4];
            for (int k = 0; k < 3; ++k)
                out->pixels.push_back(static_cast<uint8_t>(p[k] * p[3] / 255));
        }
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
}

} // namespace

Image LoadJpeg(const std::string &path, const std::string &name) {
    Image img;
    ReadJpeg(path, name, &img);
    return img;
}

void ReadImageHeader(const std::string &path, const std::string &name, bool jpeg) {
    if (jpeg) return ReadJpeg(path, name, nullptr);
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) Fail("%s: %s", name.c_str(), std::strerror(errno));
    std::vector<uint8_t> head(4096);
    ssize_t n = read(fd, head.data(), head.size());
    close(fd);
    head.resize(n > 0 ? static_cast<size_t>(n) : 0);
    if (head.size() >= 8 && std::memcmp(head.data(), kPngSig, 8) == 0) {
        png_image img;
        std::memset(&img, 0, sizeof img);
        img.version = PNG_IMAGE_VERSION;
        if (!png_image_begin_read_from_file(&img, path.c_str()))
            Fail("%s: not a readable PNG (%s)", name.c_str(), img.message);
        uint64_t w = img.width, h = img.height;
        png_image_free(&img);
        CheckSize(w, h, name);
        CheckPngData(w, h, FileSize(path, name), name);
        return;
    }
    ReadPnmHeader(head, FileSize(path, name), name);
}

Image LoadImage(const std::string &path, const std::string &nameGiven) {
    const std::string &name = nameGiven.empty() ? path : nameGiven;
    std::vector<uint8_t> head(8);
    {
        int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) Fail("%s: %s", name.c_str(), std::strerror(errno));
        ssize_t n = read(fd, head.data(), head.size());
        close(fd);
        head.resize(n > 0 ? static_cast<size_t>(n) : 0);
    }
    if (head.size() >= 8 && std::memcmp(head.data(), kPngSig, 8) == 0) return LoadPng(path, name);
    // The header is checked against the file's size before the file is read.
    std::vector<uint8_t> start(4096);
    {
        int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        ssize_t n = fd >= 0 ? read(fd, start.data(), start.size()) : -1;
        if (fd >= 0) close(fd);
        start.resize(n > 0 ? static_cast<size_t>(n) : 0);
    }
    ReadPnmHeader(start, FileSize(path, name), name);
    return DecodePnm(ReadWholeFile(path), name);
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
