// Pictures as pages (PNG, JPEG, PNM, CUPS/PWG/Apple raster), the type of a document, and how
// a page fits its box.
#include "document.h"

#include "common.h"
#include "image.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <strings.h>
#include <unistd.h>
#include <vector>

#include <cups/raster.h>

namespace q417::pages {

Fit FitPage(double pageW, double pageH, int rotate, int boxW, int boxH) {
    Fit f;
    rotate &= 3;
    double w = rotate & 1 ? pageH : pageW, h = rotate & 1 ? pageW : pageH;
    // A landscape page on a portrait box (or the other way round) turns a quarter
    // anticlockwise, its top to the left, as a printer prints landscape.
    bool turn = w != h && boxW != boxH && (w > h) != (boxW > boxH);
    f.quarters = (rotate + (turn ? 3 : 0)) & 3;
    if (turn) std::swap(w, h);
    f.scale = std::min(boxW / w, boxH / h);
    f.x = (boxW - w * f.scale) / 2;
    f.y = (boxH - h * f.scale) / 2;
    return f;
}

DocType DetectType(const std::string &name, const std::string &mime, const uint8_t *d, size_t n) {
    struct Known {
        const char *mime;
        DocType type;
    };
    static const Known kMime[] = {
        {"application/pdf", DocType::Pdf},
        {"image/png", DocType::Png},
        {"image/jpeg", DocType::Jpeg},
        {"image/x-portable-anymap", DocType::Pnm},
        {"image/x-portable-bitmap", DocType::Pnm},
        {"image/x-portable-graymap", DocType::Pnm},
        {"image/x-portable-pixmap", DocType::Pnm},
        {"image/pwg-raster", DocType::Raster},
        {"image/urf", DocType::Raster},
        {"application/vnd.cups-raster", DocType::Raster},
    };
    if (!mime.empty()) {
        for (const auto &k : kMime)
            if (strcasecmp(mime.c_str(), k.mime) == 0) return k.type;
        Fail("%s: can't print documents of type %s", name.c_str(), mime.c_str());
    }
    auto starts = [&](const char *s) {
        size_t len = strlen(s);
        return n >= len && memcmp(d, s, len) == 0;
    };
    if (n >= 5 && memmem(d, n, "%PDF-", 5)) return DocType::Pdf;
    if (starts("\x89PNG\r\n\x1a\n")) return DocType::Png;
    if (starts("\xff\xd8\xff")) return DocType::Jpeg;
    if (n >= 2 && d[0] == 'P' && d[1] >= '1' && d[1] <= '6') return DocType::Pnm;
    for (const char *sync : {"RaS2", "2SaR", "RaS3", "3SaR", "RaSt", "tSaR", "UNIRAST"})
        if (starts(sync)) return DocType::Raster;
    Fail("%s: not a PDF, PNG, JPEG, PNM or raster file", name.c_str());
}

namespace {

// Samples a picture into the box, band by band, nearest pixel: the picture has the page's
// resolution or more, so nothing is lost that the printer would show.
void RenderPicture(const Image &img, const RenderBox &box, const BandFn &band) {
    Fit fit = FitPage(img.width, img.height, 0, box.width, box.height);
    constexpr int kBand = 128;
    size_t stride = static_cast<size_t>(box.width) * box.channels;
    std::vector<uint8_t> rows;
    // The fitted picture's extent in the box, and the picture's size as turned.
    bool odd = fit.quarters & 1;
    double tw = (odd ? img.height : img.width) * fit.scale;
    double th = (odd ? img.width : img.height) * fit.scale;
    for (int y0 = 0; y0 < box.height; y0 += kBand) {
        int count = std::min(kBand, box.height - y0);
        rows.assign(stride * kBand, 255);
        for (int r = 0; r < count; ++r) {
            double v = (y0 + r + 0.5 - fit.y) / fit.scale;
            if (v < 0 || y0 + r + 0.5 - fit.y >= th) continue;
            uint8_t *out = rows.data() + r * stride;
            for (int x = 0; x < box.width; ++x) {
                double u = (x + 0.5 - fit.x) / fit.scale;
                if (u < 0 || x + 0.5 - fit.x >= tw) continue;
                // From the turned picture back to the picture's own pixels.
                long sx, sy;
                switch (fit.quarters) {
                case 1:
                    sx = static_cast<long>(v), sy = img.height - 1 - static_cast<long>(u);
                    break;
                case 2:
                    sx = img.width - 1 - static_cast<long>(u),
                    sy = img.height - 1 - static_cast<long>(v);
                    break;
                case 3:
                    sx = img.width - 1 - static_cast<long>(v), sy = static_cast<long>(u);
                    break;
                default:
                    sx = static_cast<long>(u), sy = static_cast<long>(v);
                    break;
                }
                sx = std::clamp(sx, 0L, static_cast<long>(img.width) - 1);
                sy = std::clamp(sy, 0L, static_cast<long>(img.height) - 1);
                const uint8_t *px =
                    &img.pixels[(static_cast<size_t>(sy) * img.width + sx) * img.channels];
                if (box.channels == img.channels) {
                    memcpy(out + x * box.channels, px, box.channels);
                } else if (box.channels == 3) {
                    out[x * 3] = out[x * 3 + 1] = out[x * 3 + 2] = px[0];
                } else {
                    out[x] = static_cast<uint8_t>((px[0] * 30 + px[1] * 59 + px[2] * 11) / 100);
                }
            }
        }
        band(rows, y0, count, stride);
    }
}

// One picture, one page; decoded when its page comes.
class ImageSource : public PageSource {
  public:
    ImageSource(std::string path, std::string name, DocType type, const RenderBox &box)
        : path_(std::move(path)), name_(std::move(name)), type_(type), box_(box) {
        // The header is read now, so a file that can't be a picture fails before the job.
        ReadImageHeader(path_, name_, type_ == DocType::Jpeg);
    }
    int Count() override { return 1; }
    bool Render(int index, const BandFn &band) override {
        if (index != 0) return false;
        Image img = type_ == DocType::Jpeg ? LoadJpeg(path_, name_) : LoadImage(path_, name_);
        RenderPicture(img, box_, band);
        return true;
    }

  private:
    std::string path_, name_;
    DocType type_;
    RenderBox box_;
};

// CUPS raster (v1, v2, v3), PWG raster and Apple raster through libcups, one page at a time.
class RasterSource : public PageSource {
  public:
    RasterSource(const std::string &path, std::string name, const RenderBox &box)
        : name_(std::move(name)), box_(box) {
        fd_ = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd_ < 0) Fail("%s: %s", name_.c_str(), strerror(errno));
        raster_ = cupsRasterOpen(fd_, CUPS_RASTER_READ);
        if (!raster_) Fail("%s: not a raster stream libcups reads", name_.c_str());
        if (!ReadHeader()) Fail("%s: raster stream without a page", name_.c_str());
    }
    ~RasterSource() override {
        if (raster_) cupsRasterClose(raster_);
        if (fd_ >= 0) close(fd_);
    }
    int Count() override { return -1; }
    bool Render(int index, const BandFn &band) override {
        for (;;) {
            if (!haveHeader_ && !ReadHeader()) return false;
            haveHeader_ = false;
            Image img = ReadPage();
            if (next_++ == index) {
                RenderPicture(img, box_, band);
                return true;
            }
        }
    }

  private:
    bool ReadHeader() {
        haveHeader_ = cupsRasterReadHeader2(raster_, &h_) != 0;
        return haveHeader_;
    }

    Image ReadPage() {
        const unsigned bpc = h_.cupsBitsPerColor, bpp = h_.cupsBitsPerPixel;
        cups_cspace_t cs = h_.cupsColorSpace;
        bool gray = cs == CUPS_CSPACE_W || cs == CUPS_CSPACE_SW || cs == CUPS_CSPACE_K;
        bool rgb = cs == CUPS_CSPACE_RGB || cs == CUPS_CSPACE_SRGB || cs == CUPS_CSPACE_ADOBERGB;
        bool cmyk = cs == CUPS_CSPACE_CMYK;
        int comps = gray ? 1 : rgb ? 3 : cmyk ? 4 : 0;
        if (comps == 0 || h_.cupsColorOrder != CUPS_ORDER_CHUNKED ||
            !(bpc == 8 || bpc == 16 || (bpc == 1 && gray)) || bpp != bpc * comps)
            Fail("%s: page %d: raster colour space %u, %u bits a pixel, not printable",
                 name_.c_str(), next_ + 1, static_cast<unsigned>(cs), bpp);
        uint64_t w = h_.cupsWidth, hgt = h_.cupsHeight, line = h_.cupsBytesPerLine;
        if (w == 0 || hgt == 0 || w > 100000 || hgt > 100000 || w * hgt > 200'000'000 ||
            line < (w * bpp + 7) / 8 || line > w * 8)
            Fail("%s: page %d: raster size %llux%llu out of range", name_.c_str(), next_ + 1,
                 static_cast<unsigned long long>(w), static_cast<unsigned long long>(hgt));
        Image img;
        img.width = static_cast<int>(w);
        img.channels = comps == 1 ? 1 : 3;
        std::vector<uint8_t> row(line);
        // Rows are kept as they arrive, so what a page claims costs memory only once its
        // data is there.
        for (uint64_t y = 0; y < hgt; ++y) {
            if (cupsRasterReadPixels(raster_, row.data(), static_cast<unsigned>(line)) == 0)
                Fail("%s: page %d: raster data cut short", name_.c_str(), next_ + 1);
            size_t at = img.pixels.size();
            img.pixels.resize(at + w * img.channels);
            uint8_t *out = img.pixels.data() + at;
            for (uint64_t x = 0; x < w; ++x) {
                uint8_t c[4];
                for (int k = 0; k < comps; ++k) {
                    if (bpc == 1)
                        c[k] = (row[x / 8] >> (7 - x % 8) & 1) ? 255 : 0;
                    else
                        c[k] = bpc == 16 ? row[(x * comps + k) * 2] : row[x * comps + k];
                }
                if (cs == CUPS_CSPACE_K) c[0] = static_cast<uint8_t>(255 - c[0]);
                if (cmyk) {
                    for (int k = 0; k < 3; ++k)
                        out[x * 3 + k] = static_cast<uint8_t>((255 - c[k]) * (255 - c[3]) / 255);
                } else {
                    memcpy(out + x * img.channels, c, img.channels);
                }
            }
        }
        img.height = static_cast<int>(hgt);
        return img;
    }

    std::string name_;
    RenderBox box_;
    int fd_ = -1;
    cups_raster_t *raster_ = nullptr;
    cups_page_header2_t h_{};
    bool haveHeader_ = false;
    int next_ = 0;
};

} // namespace

std::unique_ptr<PageSource> OpenDocument(const std::string &path, const std::string &name,
                                         DocType type, const std::string &password,
                                         const RenderBox &box) {
    switch (type) {
    case DocType::Pdf:
        return OpenPdf(path, name, password, box);
    case DocType::Raster:
        return std::make_unique<RasterSource>(path, name, box);
    default:
        return std::make_unique<ImageSource>(path, name, type, box);
    }
}

} // namespace q417::pages
