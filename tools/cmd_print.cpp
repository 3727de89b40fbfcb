// q417 print: one job end to end. The tool is the spooler (it opens the job, feeds pages and
// closes it) and the renderer (it sends the tagged blocks and the page data), with the library
// in between, as on a print server.
#include "printer.h"
#include "render.h"
#include "tool.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

namespace q417tool {

std::string PrinterPdd(const std::string &choice) {
    if (choice.empty() || strcasecmp(choice.c_str(), "colour") == 0 ||
        strcasecmp(choice.c_str(), "color") == 0)
        return EmbeddedDefaults().colourPdd;
    if (strcasecmp(choice.c_str(), "mono") == 0) return EmbeddedDefaults().monoPdd;
    return choice;
}

namespace {

struct PrintOptions {
    std::string printer = "colour";
    std::string output = "q417-job.prn";
    std::string paper, source, bin, media, resolution;
    std::string orientation, duplex, emulation, custom, jobName, windir, devmode;
    // -1: not given, the device mode's value stands
    int copies = -1;
    bool collate = false;
    int nup = -1;
    int pages = 1;
    int watermark = -1;
    bool watermarkFirstPage = false;
    std::vector<std::string> images;
};

// Tags of the blocks that carry job state; any other tag is print data.
enum : uint8_t { TAG_DEVINFO = 1, TAG_DEVMODE = 2, TAG_JOBNAME = 8, TAG_DATA = 0x10 };

// Where the stream goes: all bytes pass through here, so a failed write is noticed.
class Sink {
  public:
    explicit Sink(const std::string &port) : port_(port) {
        if (port == "-") {
            fd_ = 1;
        } else if (port.rfind("socket://", 0) == 0) {
            fd_ = Connect(port.substr(9));
            ownFd_ = true;
        } else {
            file_ = std::make_unique<AtomicFile>(port);
            fd_ = file_->fd();
        }
    }
    ~Sink() {
        if (ownFd_) close(fd_);
    }
    static int Write(void *ctx, const void *data, uint32_t size) {
        auto *s = static_cast<Sink *>(ctx);
        const char *p = static_cast<const char *>(data);
        while (size && !s->error_) {
            ssize_t put = send(s->fd_, p, size, MSG_NOSIGNAL);
            if (put < 0 && errno == ENOTSOCK) put = write(s->fd_, p, size);
            if (put < 0) {
                if (errno == EINTR) continue;
                s->error_ = errno;
                break;
            }
            p += put;
            size -= static_cast<uint32_t>(put);
        }
        return s->error_ ? 0 : 1;
    }
    void Finish() {
        if (error_) Fail("%s: write failed: %s", port_.c_str(), std::strerror(error_));
        if (file_) file_->Commit();
        if (ownFd_ && shutdown(fd_, SHUT_WR) != 0)
            Fail("%s: %s", port_.c_str(), std::strerror(errno));
    }
    void Check() const {
        if (error_) Fail("%s: write failed: %s", port_.c_str(), std::strerror(error_));
    }

  private:
    static int Connect(const std::string &hostPort) {
        size_t colon = hostPort.rfind(':');
        if (colon == std::string::npos || colon == 0 || colon + 1 == hostPort.size())
            Fail("socket://%s: expected socket://HOST:PORT", hostPort.c_str());
        std::string host = hostPort.substr(0, colon), port = hostPort.substr(colon + 1);
        if (host.size() > 2 && host.front() == '[' && host.back() == ']')
            host = host.substr(1, host.size() - 2);
        addrinfo hints{};
        hints.ai_socktype = SOCK_STREAM;
        addrinfo *res = nullptr;
        int rc = getaddrinfo(host.c_str(), port.c_str(), &hints, &res);
        if (rc != 0) Fail("socket://%s: %s", hostPort.c_str(), gai_strerror(rc));
        int err = 0;
        for (addrinfo *a = res; a; a = a->ai_next) {
            int fd = socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC, a->ai_protocol);
            if (fd < 0) {
                err = errno;
                continue;
            }
            if (connect(fd, a->ai_addr, a->ai_addrlen) == 0) {
                freeaddrinfo(res);
                return fd;
            }
            err = errno;
            close(fd);
        }
        freeaddrinfo(res);
        Fail("socket://%s: %s", hostPort.c_str(), std::strerror(err));
    }

    std::string port_;
    std::unique_ptr<AtomicFile> file_;
    int fd_ = -1;
    bool ownFd_ = false;
    int error_ = 0;
};

// An open job; aborted and closed unless it was ended.
class Job {
  public:
    Job(HANDLE32 printer) : job_(DrvSplStartDoc(printer, 1)) {
        if (!job_) Fail("the library could not start the job");
    }
    ~Job() {
        if (!job_) return;
        if (!ended_) DrvSplAbort(job_);
        DrvSplClose(job_);
    }
    void Send(uint8_t tag, const void *data, size_t size, const char *what) {
        std::vector<uint8_t> block(size + 1);
        block[0] = tag;
        if (size) std::memcpy(block.data() + 1, data, size);
        DWORD written = 0;
        if (!DrvSplWritePrinter(job_, block.data(), static_cast<DWORD>(block.size()), &written))
            Fail("the library refused the %s block", what);
    }
    void Data(const std::string &bytes, Sink &sink) {
        constexpr size_t kChunk = 256 * 1024;
        for (size_t off = 0; off < bytes.size(); off += kChunk) {
            size_t n = std::min(kChunk, bytes.size() - off);
            Send(TAG_DATA, bytes.data() + off, n, "print data");
            sink.Check();
        }
    }
    void StartPage(int page) {
        if (!DrvSplStartPage(job_)) Fail("page %d: the library refused to start the page", page);
    }
    void EndPage(int page) {
        if (!DrvSplEndPage(job_)) Fail("page %d: the library refused to end the page", page);
    }
    void End() {
        DrvSplEndDoc(job_);
        ended_ = true;
    }

  private:
    void *job_;
    bool ended_ = false;
};

void Select(DDIDEVMODE *pdm, const std::string &family, const std::string &value) {
    if (value.empty()) return;
    const Keyword *k = FindKeyword(family);
    int index = ResolveOption(pdm, *k, value);
    if (!DDISetDWord(pdm, k->id, static_cast<DWORD>(index)))
        Fail("%s \"%s\": refused by the library", family.c_str(), value.c_str());
}

DWORD Word(const std::string &value, const char *what,
           std::initializer_list<std::pair<const char *, DWORD>> words) {
    for (const auto &[w, v] : words)
        if (strcasecmp(w, value.c_str()) == 0) return v;
    return static_cast<DWORD>(ParseNumber(value, what));
}

// "WxH" in points, or with "mm" behind it in millimetres; decipoints back.
std::pair<DWORD, DWORD> CustomSize(const std::string &s) {
    double w = 0, h = 0;
    char unit[8] = {};
    int got = std::sscanf(s.c_str(), "%lfx%lf%7s", &w, &h, unit);
    bool mm = got == 3 && strcasecmp(unit, "mm") == 0;
    if (got < 2 || (got == 3 && !mm && strcasecmp(unit, "pt") != 0) || w <= 0 || h <= 0)
        Fail("--custom \"%s\": expected WIDTHxHEIGHT in points, or with mm behind", s.c_str());
    double f = mm ? 7200.0 / 254.0 : 10.0;
    return {static_cast<DWORD>(w * f), static_cast<DWORD>(h * f)};
}

void ApplySettings(DDIDEVMODE *pdm, const PrintOptions &o) {
    Select(pdm, "paper", o.paper);
    Select(pdm, "source", o.source);
    Select(pdm, "bin", o.bin);
    Select(pdm, "media", o.media);
    Select(pdm, "resolution", o.resolution);
    if (!o.orientation.empty()) {
        DWORD code = Word(
            o.orientation, "--orientation",
            {{"portrait", 0}, {"landscape", 1}, {"reverse-portrait", 2}, {"reverse-landscape", 3}});
        if (!DDISetDWord(pdm, DDI_PAGEORIENT, code))
            Fail("--orientation %s: out of range (portrait, landscape, reverse-portrait, "
                 "reverse-landscape or 0 to 3)",
                 o.orientation.c_str());
    }
    if (o.copies != -1) {
        if (o.copies < 1 || o.copies > 32767)
            Fail("--copies %d: out of range (1 to 32767)", o.copies);
        DDISetDWord(pdm, DDI_COPIES, static_cast<DWORD>(o.copies));
    }
    if (!o.duplex.empty()) {
        DWORD d =
            Word(o.duplex, "--duplex", {{"none", 1}, {"simplex", 1}, {"long", 2}, {"short", 3}});
        if (DDISetDWord(pdm, DDI_DUPLEX, d) == 0xFFFFFFFFu)
            Fail("--duplex %s: out of range (none, long, short or 0 to 3)", o.duplex.c_str());
    }
    if (o.collate) DDISetDWord(pdm, DDI_COLLATE, 1);
    if (!o.emulation.empty()) {
        DWORD e = Word(o.emulation, "--emulation",
                       {{"PCL5", 1}, {"PCL5e", 2}, {"PCL5C", 3}, {"PCL5eC", 4}});
        if (!DDISetDWord(pdm, DDI_EMULATION, e))
            Fail("--emulation %s: out of range (PCL5, PCL5e, PCL5C, PCL5eC or 1 to 6)",
                 o.emulation.c_str());
    }
    if (o.nup != -1 && !DDISetDWord(pdm, DDI_PAGESPERSHEET, static_cast<DWORD>(o.nup)))
        Fail("--nup %d: out of range (1, 2, 4, 6, 9 or 16)", o.nup);
    if (o.watermark != -1) {
        if (o.watermark < 0 || o.watermark > 65535)
            Fail("--watermark %d: out of range (0 to 65535)", o.watermark);
        DDISetDWord(pdm, DDI_WATERMARK, static_cast<DWORD>(o.watermark));
    }
    if (o.watermarkFirstPage) DDISetDWord(pdm, DDI_WMFIRSTPAGE, 1);
    if (!o.custom.empty()) {
        CFGINFO cfg{};
        Q417_ReadBlock(pdm->hConfig, &cfg, sizeof cfg);
        if (cfg.nCustomPaper < 0) Fail("--custom: the printer has no custom paper size");
        auto [w, h] = CustomSize(o.custom);
        DWORD minW = DDIGetDWord(pdm, DDI_CUSTMINWIDTH), maxW = DDIGetDWord(pdm, DDI_CUSTMAXWIDTH);
        DWORD minH = DDIGetDWord(pdm, DDI_CUSTMINHEIGHT),
              maxH = DDIGetDWord(pdm, DDI_CUSTMAXHEIGHT);
        if ((minW && w < minW) || (maxW && w > maxW) || (minH && h < minH) || (maxH && h > maxH))
            Fail("--custom %s: out of range (%.1f x %.1f to %.1f x %.1f points)", o.custom.c_str(),
                 minW / 10.0, minH / 10.0, maxW / 10.0, maxH / 10.0);
        DDISetDWord(pdm, DDI_PAPERSIZE, static_cast<DWORD>(cfg.nCustomPaper));
        DDISetDWord(pdm, DDI_CUSTWIDTH, w);
        DDISetDWord(pdm, DDI_CUSTHEIGHT, h);
    }
}

// Page geometry from the selected paper's dimensions, in the job's orientation.
PageGeometry Geometry(DDIDEVMODE *pdm, bool custom) {
    auto get = [&](DWORD id) {
        DWORD v = DDIGetDWord(pdm, id);
        if (v == 0xFFFFFFFFu) Fail("the library can't tell the paper's dimensions");
        return static_cast<int32_t>(v);
    };
    bool landscape = pdm->dmOrientation == 2;
    PageGeometry g;
    int32_t w = get(DDI_PAPERWIDTH), h = get(DDI_PAPERHEIGHT);
    int32_t iw = get(DDI_IMAGEWIDTH), ih = get(DDI_IMAGEHEIGHT);
    int32_t il = get(DDI_IMAGELEFT), it = get(DDI_IMAGETOP);
    if (custom) { // the custom row's landscape half keeps the description's size
        w = static_cast<int32_t>(pdm->wCustWidth), h = static_cast<int32_t>(pdm->wCustHeight);
        il = get(DDI_CUSTMARGINLEFT), it = get(DDI_CUSTMARGINTOP);
        iw = w - il - get(DDI_CUSTMARGINRIGHT), ih = h - it - get(DDI_CUSTMARGINBOTTOM);
        if (landscape) std::swap(iw, ih), std::swap(il, it);
    }
    g.cxPaper = landscape ? h : w;
    g.cyPaper = landscape ? w : h;
    // A paper described with a portrait area only has the same area in landscape: turn it.
    if ((iw < ih) != (g.cxPaper < g.cyPaper) && iw != ih) std::swap(iw, ih), std::swap(il, it);
    g.cxPrintable = iw, g.cyPrintable = ih, g.cxMargin = il, g.cyMargin = it;
    if (g.cxPaper <= 0 || g.cyPaper <= 0 || iw <= 0 || ih <= 0)
        Fail("the paper's dimensions are incomplete in the printer description");
    return g;
}

int RunPrint(const PrintOptions &o) {
    if (o.pages < 1 || o.pages > 10000) Fail("--pages %d: out of range (1 to 10000)", o.pages);
    std::vector<Image> images;
    for (const auto &path : o.images)
        images.push_back(LoadImage(path)); // read them all before any output
    std::string pdd = PrinterPdd(o.printer);
    if (!o.windir.empty()) {
        if (!Q417_SetWindowsDirectory(o.windir.c_str()))
            Fail("--windir %s: refused by the library", o.windir.c_str());
    } else if (!getenv("Q417_WINDIR")) {
        Q417_SetWindowsDirectory(EmbeddedDefaults().dir.c_str()); // the sample QMWMARK.INI
    }
    Printer printer(pdd, o.output);
    std::vector<uint8_t> dm;
    if (o.devmode.empty()) {
        dm = printer.NewDevMode();
    } else {
        dm = ReadWholeFile(o.devmode);
        printer.Adopt(dm);
    }
    DDIDEVMODE *pdm = DM(dm);
    ApplySettings(pdm, o);
    bool custom = DDIGetDWord(pdm, DDI_CUSTOMPAPER) == 1;
    PageGeometry g = Geometry(pdm, custom);
    int dpi = pdm->dmYResolution; // the library prints at the vertical resolution
    if (dpi <= 0) Fail("the printer description gives no resolution");
    int nup = static_cast<int>(DDIGetDWord(pdm, DDI_PAGESPERSHEET));
    NupLayout layout = MakeNupLayout(nup, pdm->dmOrientation, g, dpi);
    WORD emulation = static_cast<WORD>(DDIGetDWord(pdm, DDI_EMULATION));

    PageInfo info;
    info.colour = emulation == 3 || emulation == 4;
    auto options = KeywordOptions(pdm, DDI_PAPERSIZE);
    DWORD paperIndex = DDIGetDWord(pdm, DDI_PAPERSIZE);
    info.paper = paperIndex < options.size() ? options[paperIndex].key : "?";
    static const char *const kOrient[] = {"portrait", "landscape", "reverse portrait",
                                          "reverse landscape"};
    DWORD orient = DDIGetDWord(pdm, DDI_PAGEORIENT);
    info.orientation = orient < 4 ? kOrient[orient] : "?";

    Sink sink(o.output);
    if (!Q417_SetOutputCallback(printer.handle(), Sink::Write, &sink))
        Fail("%s: the library refused the output", o.output.c_str());

    // The record image of block 1: the page geometry and counters are ours to give.
    std::vector<uint8_t> info1(SPLDEVINFO_SIZE);
    auto *rec = reinterpret_cast<SPLDEVINFO *>(info1.data());
    rec->cxPaper = g.cxPaper, rec->cyPaper = g.cyPaper;
    rec->cxPrintable = g.cxPrintable, rec->cyPrintable = g.cyPrintable;
    rec->cxMargin = g.cxMargin, rec->cyMargin = g.cyMargin;
    rec->nPage = 1;
    rec->nSubPage = 0;
    if (DDIGetDWord(pdm, DDI_WATERMARK) != 0) rec->bJobFlags = JOB_WATERMARK;
    std::string name = o.jobName.empty() ? "q417 sample job" : o.jobName;
    std::u16string wname = Widen(name);

    int pages = images.empty() ? o.pages : static_cast<int>(images.size());
    {
        Job job(printer.handle());
        job.Send(TAG_DEVINFO, info1.data(), info1.size(), "device record");
        job.Send(TAG_DEVMODE, dm.data(), dm.size(), "device mode");
        job.Send(TAG_JOBNAME, wname.data(), wname.size() * 2, "job name");
        for (int p = 0; p < pages; ++p) {
            if (p > 0) {
                // Only the counters change: a block that stops behind nSubPage leaves the
                // library's own fields (flags, layout, language state) as they are. It drops
                // the device mode copy, so that follows again.
                rec->nPage = static_cast<DWORD>(p + 1);
                rec->nSubPage = static_cast<DWORD>(p);
                job.Send(TAG_DEVINFO, info1.data(), offsetof(SPLDEVINFO, nSubPage) + 4,
                         "device record");
                job.Send(TAG_DEVMODE, dm.data(), dm.size(), "device mode");
            }
            job.StartPage(p + 1);
            int cell = layout.n > 1 ? p % layout.n : 0;
            info.page = p + 1;
            info.sheet = p / layout.n + 1;
            info.cell = cell;
            std::string data = images.empty() ? RenderTestPage(info, g, layout, cell)
                                              : RenderImagePage(images[p], info, g, layout, cell);
            job.Data(data, sink);
            job.EndPage(p + 1);
        }
        job.End();
    }
    sink.Finish();
    return 0;
}

} // namespace

Command AddPrintCommand(CLI::App &app) {
    auto o = std::make_shared<PrintOptions>();
    CLI::App *sub = app.add_subcommand(
        "print", "Run one job end to end through the library: test pages, or the images given "
                 "(PNG, PBM, PGM, PPM), to a file, standard output or a raw TCP printer port");
    sub->footer("With no image, each page is a test page: its number, the frame of the "
                "printable area, a scale in inches, and its sheet and cell. Settings not given "
                "keep the printer description's defaults (or the --devmode file's values).");
    sub->add_option("images", o->images, "Images to print, one a page");
    sub->add_option("-p,--printer", o->printer,
                    "Printer description: a PDD file, or colour / mono for the built-in models")
        ->capture_default_str();
    sub->add_option("-o,--output", o->output,
                    "Port: a file (written whole or not at all), - for standard output, or "
                    "socket://HOST:PORT")
        ->capture_default_str();
    sub->add_option("--paper", o->paper, "Paper by name or index (q417 devmode options paper)");
    sub->add_option("--source", o->source, "Paper source by name or index");
    sub->add_option("--bin", o->bin, "Output bin by name or index");
    sub->add_option("--media", o->media, "Media type by name or index");
    sub->add_option("--resolution", o->resolution, "Resolution by name or index");
    sub->add_option("--orientation", o->orientation,
                    "portrait, landscape, reverse-portrait, reverse-landscape");
    sub->add_option("--copies", o->copies, "Number of copies (default: 1, or the device mode's)");
    sub->add_option("--duplex", o->duplex,
                    "none, long or short: the device mode's duplex 1, 2 or 3, which the library "
                    "sends as PCL duplex 0, 2 or 1");
    sub->add_flag("--collate", o->collate, "Collate copies");
    sub->add_option("--emulation", o->emulation,
                    "PCL5, PCL5e, PCL5C, PCL5eC or 1 to 6 (default: by the printer's colours)");
    sub->add_option("-n,--nup", o->nup,
                    "Pages per sheet: 1, 2, 4, 6, 9 or 16 (default: 1, or the device mode's)");
    sub->add_option("--pages", o->pages, "Number of test pages when no image is given")
        ->capture_default_str();
    sub->add_option("--watermark", o->watermark,
                    "Watermark number in QMWMARK.INI, from 1; 0 for none (the default)");
    sub->add_flag("--watermark-first-page", o->watermarkFirstPage,
                  "The watermark on the first page only");
    sub->add_option("--custom", o->custom,
                    "Custom paper size WIDTHxHEIGHT in points, or with mm behind");
    sub->add_option("--job-name", o->jobName, "Job name");
    sub->add_option("--devmode", o->devmode, "Start from this device mode file (q417 devmode)");
    sub->add_option("--windir", o->windir,
                    "Windows directory, where QMWMARK.INI is looked for (default: the "
                    "built-in samples)");
    return {sub, [o] { return RunPrint(*o); }};
}

} // namespace q417tool
