// PDF pages through Ghostscript's library: its PDF interpreter draws each page into the
// display device, which hands the page over in bands of rows that we ask for, so a page is
// never held whole and the next band is drawn while the last one is encoded.
#include "common.h"
#include "document.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <utility>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <ghostscript/gdevdsp.h>
#include <ghostscript/iapi.h>
#include <ghostscript/ierrors.h>

namespace q417::pages {

namespace {

// Ghostscript keeps one interpreter at a time in a process.
std::mutex gsMutex;

// A PostScript string of any bytes.
std::string PsHex(const std::string &s) {
    static const char kHex[] = "0123456789abcdef";
    std::string out = "<";
    for (unsigned char c : s) {
        out += kHex[c >> 4];
        out += kHex[c & 15];
    }
    return out + ">";
}

// What the file itself says before Ghostscript sees it: PDF at all, cut short, encrypted.
struct PdfFacts {
    bool pdf = false, complete = false, encrypted = false;
};

PdfFacts ReadFacts(const std::string &path) {
    PdfFacts f;
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return f;
    struct stat st {};
    fstat(fd, &st);
    char head[1024];
    ssize_t n = pread(fd, head, sizeof head, 0);
    f.pdf = n > 0 && memmem(head, static_cast<size_t>(n), "%PDF-", 5) != nullptr;
    // A complete file ends with an end-of-file marker; writers may put a little behind it.
    char tail[4096];
    off_t at = st.st_size > static_cast<off_t>(sizeof tail) ? st.st_size - sizeof tail : 0;
    n = pread(fd, tail, sizeof tail, at);
    f.complete = n > 0 && memmem(tail, static_cast<size_t>(n), "%%EOF", 5) != nullptr;
    // The trailer names the encryption dictionary; it is near the end, or (linearised) near
    // the start.
    f.encrypted = n > 0 && memmem(tail, static_cast<size_t>(n), "/Encrypt", 8) != nullptr;
    if (!f.encrypted) {
        std::vector<char> first(64 * 1024);
        n = pread(fd, first.data(), first.size(), 0);
        f.encrypted = n > 0 && memmem(first.data(), static_cast<size_t>(n), "/Encrypt", 8);
    }
    close(fd);
    return f;
}

// The interpreter instance, ended on every path.
struct GsInstance {
    void *gs = nullptr;
    bool inited = false, open = false;
    GsInstance() = default;
    GsInstance(const GsInstance &) = delete;
    GsInstance &operator=(const GsInstance &) = delete;
    ~GsInstance() {
        if (!gs) return;
        if (open) {
            int code = 0;
            gsapi_run_string(gs, "runpdfend\n", 0, &code);
        }
        if (inited) gsapi_exit(gs);
        gsapi_delete_instance(gs);
    }
};

class GsSource : public PageSource {
  public:
    GsSource(const std::string &path, const std::string &name, const std::string &password,
             const RenderBox &box)
        : lock_(gsMutex), name_(name), box_(box) {
        PdfFacts facts = ReadFacts(path);
        if (!facts.pdf) Fail("%s: not a PDF file", name.c_str());
        if (!facts.complete) Fail("%s: damaged PDF file: cut short", name.c_str());
        if (gsapi_new_instance(&inst_.gs, this) < 0) {
            inst_.gs = nullptr;
            Fail("%s: Ghostscript could not start", name.c_str());
        }
        void *gs_ = inst_.gs;
        gsapi_set_stdio_with_handle(gs_, StdIn, StdOut, StdOut, this);
        gsapi_register_callout(gs_, Callout, this);
        gsapi_set_arg_encoding(gs_, GS_ARG_ENCODING_UTF8);
        gsapi_add_control_path(gs_, GS_PERMIT_FILE_READING, path.c_str());
        oneBit_ = box.oneBit && box.channels == 1;
        // One bit a pixel in the device's own format has 1 for ink, as the encoder takes it.
        unsigned format = unsigned{box.channels == 3 ? DISPLAY_COLORS_RGB
                                   : oneBit_         ? DISPLAY_COLORS_NATIVE
                                                     : DISPLAY_COLORS_GRAY} |
                          unsigned{oneBit_ ? DISPLAY_DEPTH_1 : DISPLAY_DEPTH_8} |
                          unsigned{DISPLAY_ALPHA_NONE} | unsigned{DISPLAY_BIGENDIAN} |
                          unsigned{DISPLAY_TOPFIRST};
        std::vector<std::string> args = {
            "q417",
            "-q",
            "-dQUIET",
            "-dNOPAUSE",
            "-dSAFER",
            "-sDEVICE=display",
            "-dDisplayFormat=" + std::to_string(format),
            "-r" + std::to_string(box.dpi),
            "-g" + std::to_string(box.width) + "x" + std::to_string(box.height),
            "-dFIXEDMEDIA",
            // Smoothing pictures as they are enlarged costs Ghostscript as much again as
            // drawing the page, and a dithered print shows none of it.
            "-dNOINTERPOLATE",
        };
        if (!password.empty()) args.push_back("-sPDFPassword=" + password);
        std::vector<char *> argv;
        for (auto &a : args) argv.push_back(a.data());
        int code = gsapi_init_with_args(gs_, static_cast<int>(argv.size()), argv.data());
        inst_.inited = true; // an instance that failed its start is exited all the same
        if (code < 0 && code != gs_error_Quit)
            Fail("%s: Ghostscript could not start (%s)", name.c_str(), FirstLine().c_str());
        output_.clear();
        Run(PsHex(path) + " (r) file runpdfbegin (\nQ417COUNT ) print pdfpagecount = flush\n");
        inst_.open = true;
        count_ = Number("Q417COUNT");
        if (count_ <= 0) {
            if (facts.encrypted)
                Fail(password.empty() ? "%s: encrypted PDF file: give its password (--password)"
                                      : "%s: encrypted PDF file: the password is wrong",
                     name.c_str());
            Fail("%s: damaged PDF file: %s", name.c_str(),
                 output_.find("****") != std::string::npos ? FirstLine().c_str() : "no pages");
        }
    }

    int Count() override { return count_; }
    bool OneBit() const override { return oneBit_; }

    bool Render(int index, const BandFn &band) override {
        if (index >= count_) return false;
        output_.clear();
        int page = index + 1;
        Run(std::to_string(page) +
            " pdfgetpage dup /MediaBox known {dup /MediaBox get} {[0 0 612 792]} ifelse"
            " 1 index /CropBox known {1 index /CropBox get} {dup} ifelse"
            " 2 index /Rotate known {2 index /Rotate get} {0} ifelse"
            " (\nQ417PAGE ) print 3 -1 roll {=only ( ) print} forall"
            " exch {=only ( ) print} forall =only (\n) print flush pop\n");
        double v[9];
        if (!Numbers("Q417PAGE", v, 9))
            Fail("%s: page %d: damaged PDF file: %s", name_.c_str(), page, FirstLine().c_str());
        // The crop box within the media box is what shows.
        double x0 = std::max(std::min(v[4], v[6]), std::min(v[0], v[2]));
        double y0 = std::max(std::min(v[5], v[7]), std::min(v[1], v[3]));
        double x1 = std::min(std::max(v[4], v[6]), std::max(v[0], v[2]));
        double y1 = std::min(std::max(v[5], v[7]), std::max(v[1], v[3]));
        if (x1 - x0 < 1 || y1 - y0 < 1) x0 = 0, y0 = 0, x1 = 612, y1 = 792;
        int rotate = ((static_cast<int>(v[8]) / 90) % 4 + 4) % 4;
        Fit fit = FitPage(x1 - x0, y1 - y0, rotate, box_.width, box_.height);
        double s = fit.scale * 72.0 / box_.dpi; // points a page unit
        char ps[1024];
        snprintf(ps, sizeof ps,
                 "%d pdfgetpage dup /UsesTransparency get << /PageUsesTransparency 3 -1 roll >>"
                 " setpagedevice %s pdfshowpage_init"
                 " %.6f %.6f translate %.9f dup scale %d rotate %.6f %.6f translate"
                 " %.6f %.6f %.6f %.6f rectclip pdfshowpage_finish\n",
                 page, oneBit_ ? kBayerHalftone : "", box_.width * 36.0 / box_.dpi,
                 box_.height * 36.0 / box_.dpi, s, -90 * fit.quarters, -(x0 + x1) / 2,
                 -(y0 + y1) / 2, x0, y0, x1 - x0, y1 - y0);
        band_ = &band;
        bandY_ = -1;
        pageDone_ = false;
        rowsDelivered_ = 0;
        output_.clear();
        Run(ps);
        band_ = nullptr;
        if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
        if (output_.find("Could not draw this page") != std::string::npos)
            Fail("%s: page %d: damaged PDF page: %s", name_.c_str(), page, FirstLine().c_str());
        // A page Ghostscript gave up on before its bands still fills its cell, blank.
        if (rowsDelivered_ < box_.height) {
            size_t stride = RowBytes();
            for (int y = rowsDelivered_; y < box_.height; ++y) {
                std::vector<uint8_t> white(stride, oneBit_ ? 0 : 255);
                band(white, y, 1, stride);
            }
        }
        return true;
    }

  private:
    void Run(const std::string &ps) {
        int code = 0;
        gsapi_run_string(inst_.gs, ps.c_str(), 0, &code);
        if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
        if (code < 0 && code != gs_error_Quit)
            Fail("%s: damaged PDF file: %s", name_.c_str(), FirstLine().c_str());
    }

    // The first message Ghostscript printed, without its decoration.
    std::string FirstLine() const {
        size_t at = 0;
        for (;;) {
            size_t end = output_.find('\n', at);
            std::string line = output_.substr(at, end == std::string::npos ? end : end - at);
            size_t b = line.find_first_not_of(" *");
            if (b != std::string::npos && line.compare(b, 4, "Q417") != 0) {
                line = line.substr(b);
                if (line.rfind("Error: ", 0) == 0) line = line.substr(7);
                while (!line.empty() && (line.back() == '.' || line.back() == ' ')) line.pop_back();
                return line;
            }
            if (end == std::string::npos) return "unreadable";
            at = end + 1;
        }
    }

    bool Numbers(const char *tag, double *out, int n) const {
        size_t at = output_.find(tag);
        if (at == std::string::npos) return false;
        const char *p = output_.c_str() + at + strlen(tag);
        for (int i = 0; i < n; ++i) {
            char *end = nullptr;
            out[i] = strtod(p, &end);
            if (end == p) return false;
            p = end;
        }
        return true;
    }
    int Number(const char *tag) const {
        double v = 0;
        return Numbers(tag, &v, 1) ? static_cast<int>(v) : -1;
    }

    // Ghostscript's messages are kept (the start of them) for the one line a user reads.
    static int StdOut(void *h, const char *s, int len) {
        auto *self = static_cast<GsSource *>(h);
        if (self->output_.size() < 16384) self->output_.append(s, static_cast<size_t>(len));
        return len;
    }
    static int StdIn(void *, char *, int) { return 0; }

    static int Callout(void *, void *handle, const char *device, int id, int, void *data) {
        if (!device || strcmp(device, "display") != 0 || id != DISPLAY_CALLOUT_GET_CALLBACK)
            return -1;
        auto *get = static_cast<gs_display_get_callback_t *>(data);
        get->callback = &kCallbacks;
        get->caller_handle = handle;
        return 0;
    }

    static int Ok(void *, void *) { return 0; }
    static int Presize(void *, void *, int, int, int, unsigned) { return 0; }
    static int Size(void *, void *, int, int, int, unsigned, unsigned char *) { return 0; }
    static int Page(void *, void *, int, int) { return 0; }
    // No page memory: Ghostscript then asks for the page band by band.
    static void *MemAlloc(void *, void *, size_t) { return nullptr; }
    static int MemFree(void *, void *, void *) { return 0; }
    static int BandHeight(void *h, void *, int height) {
        static_cast<GsSource *>(h)->gsBandHeight_ = height;
        return 0;
    }
    // Each request says the band asked for last is drawn: it goes to the encoder, and the
    // next one is asked for, until the page is done.
    static int Rectangle(void *h, void *, void **memory, int *ox, int *oy, int *raster,
                         int *planeRaster, int *x, int *y, int *w, int *hgt) {
        auto *self = static_cast<GsSource *>(h);
        return self->NextBand(memory, ox, oy, raster, planeRaster, x, y, w, hgt);
    }

    int NextBand(void **memory, int *ox, int *oy, int *raster, int *planeRaster, int *x, int *y,
                 int *w, int *h) {
        size_t stride = (RowBytes() + 7) & ~size_t{7};
        if (pageDone_) {
            *w = *h = 0;
            return 0;
        }
        if (bandY_ >= 0 && band_ && !failure_) {
            int rows = std::min(bandRows_, box_.height - bandY_);
            try {
                (*band_)(bandBuf_, bandY_, rows, stride);
                rowsDelivered_ = bandY_ + rows;
            } catch (...) {
                failure_ = std::current_exception();
            }
        }
        bandY_ = bandY_ < 0 ? 0 : bandY_ + bandRows_;
        if (failure_ || !band_ || bandY_ >= box_.height) {
            *w = *h = 0;
            pageDone_ = true;
            return failure_ ? gs_error_VMerror : 0;
        }
        bandRows_ = std::clamp(gsBandHeight_, 16, 1024);
        bandBuf_.resize(stride * static_cast<size_t>(bandRows_));
        *memory = bandBuf_.data();
        *ox = 0, *oy = bandY_;
        *raster = static_cast<int>(stride);
        *planeRaster = 0;
        *x = 0, *y = bandY_, *w = box_.width, *h = std::min(bandRows_, box_.height - bandY_);
        return 0;
    }

    size_t RowBytes() const {
        return oneBit_ ? (static_cast<size_t>(box_.width) + 7) / 8
                       : static_cast<size_t>(box_.width) * box_.channels;
    }

    static display_callback kCallbacks;
    static const char kBayerHalftone[];
    bool oneBit_ = false;

    std::unique_lock<std::mutex> lock_;
    std::string name_;
    RenderBox box_;
    GsInstance inst_;
    bool pageDone_ = false;
    int count_ = 0;
    std::string output_;
    const BandFn *band_ = nullptr;
    int bandY_ = -1, bandRows_ = 256, gsBandHeight_ = 256, rowsDelivered_ = 0;
    std::vector<uint8_t> bandBuf_;
    std::exception_ptr failure_;
};

// The encoder's ordered dither as Ghostscript's halftone: an 8 by 8 Bayer matrix of
// thresholds on the 0..255 scale, a gray below its threshold inked. Ghostscript's default
// transfer for a one-bit device lightens grays (about as g^0.8); an identity one makes a gray
// ink as much of the paper as the encoder's dither does.
const char GsSource::kBayerHalftone[] =
    "{} settransfer << /HalftoneType 3 /Width 8 /Height 8 /Thresholds <"
    "038323a30b8b2babc343e363cb4beb6b33b313933bbb1b9bf373d353fb7bdb5b"
    "0f8f2faf078727a7cf4fef6fc747e7673fbf1f9f37b71797ff7fdf5ff777d757"
    "> >> sethalftone";

display_callback GsSource::kCallbacks = {
    sizeof(display_callback),
    DISPLAY_VERSION_MAJOR,
    DISPLAY_VERSION_MINOR,
    GsSource::Ok,
    GsSource::Ok,
    GsSource::Ok,
    GsSource::Presize,
    GsSource::Size,
    GsSource::Ok,
    GsSource::Page,
    nullptr,
    GsSource::MemAlloc,
    GsSource::MemFree,
    nullptr,
    GsSource::BandHeight,
    GsSource::Rectangle,
};

} // namespace

std::unique_ptr<PageSource> OpenPdf(const std::string &path, const std::string &name,
                                    const std::string &password, const RenderBox &box) {
    return std::make_unique<GsSource>(path, name, password, box);
}

} // namespace q417::pages
