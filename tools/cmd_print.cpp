// q417 print: one job end to end. The tool is the spooler (it opens the job, feeds pages and
// closes it) and the renderer (it sends the tagged blocks and the page data), with the library
// in between, as on a print server.
#include "job.h"
#include "printer.h"
#include "render.h"
#include "settings.h"
#include "sink.h"
#include "tool.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <netdb.h>
#include <sys/stat.h>
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

// What q417 print takes beyond the job's settings.
struct PrintOptions : JobSettings {
    std::string printer = "colour";
    std::string output = "q417-job.prn";
    std::string jobName, windir, devmode;
    SinkTimeouts timeouts;
    int pages = 1;
    std::vector<std::string> images;
};

// Where QMWMARK.INI is looked for: --windir, else $Q417_WINDIR, else the built-in samples; the
// library is given a name short enough for its font paths. Returns the folder itself.
std::string UseWindowsDirectory(const std::string &given) {
    std::string dir = given;
    if (dir.empty())
        if (const char *env = getenv("Q417_WINDIR"); env && *env) dir = env;
    if (dir.empty()) dir = EmbeddedDefaults().dir; // the sample QMWMARK.INI
    struct stat st {};
    if (stat(dir.c_str(), &st) != 0)
        Fail("Windows folder %s: %s", dir.c_str(), std::strerror(errno));
    if (!S_ISDIR(st.st_mode)) Fail("Windows folder %s: not a directory", dir.c_str());
    if (!Q417_SetWindowsDirectory(LibraryWindowsDirectory(dir).c_str()))
        Fail("Windows folder %s: refused by the library", dir.c_str());
    return dir;
}

// A watermark asked for and not printed is never silent. The library downloads the
// watermark's font (id 32766) when it prints one, and gives up quietly when it can't: the
// stream tells which.
class WatermarkWatch {
  public:
    WatermarkWatch(Sink &sink, DWORD number, std::string windir)
        : number_(number), windir_(std::move(windir)) {
        if (number_) sink.SetTap([this](const uint8_t *p, size_t n) { Look(p, n); });
    }
    void Report() const {
        if (number_ && !seen_)
            std::fprintf(stderr,
                         "q417: warning: watermark %u was not printed: %s/QMWMARK.INI has no "
                         "usable definition %u, or its font is not installed (fc-list)\n",
                         number_, windir_.c_str(), number_);
    }

  private:
    void Look(const uint8_t *p, size_t n) {
        static constexpr std::string_view kFont = "\x1b*c32766D";
        if (seen_) return;
        std::string_view chunk(reinterpret_cast<const char *>(p), n);
        tail_ += chunk.substr(0, std::min(n, kFont.size())); // a marker split across writes
        seen_ = tail_.find(kFont) != std::string::npos || chunk.find(kFont) != chunk.npos;
        tail_ = n >= kFont.size()
                    ? std::string(chunk.substr(n - kFont.size()))
                    : tail_.substr(tail_.size() - std::min(tail_.size(), kFont.size()));
    }
    DWORD number_;
    std::string windir_;
    std::string tail_;
    bool seen_ = false;
};

int RunPrint(const PrintOptions &o) {
    std::vector<Image> images;
    for (const auto &path : o.images)
        images.push_back(LoadImage(path)); // read them all before any output
    std::string pdd = PrinterPdd(o.printer);
    std::string windir = UseWindowsDirectory(o.windir);
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
    PageGeometry g = Geometry(pdm);
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

    Sink sink(o.output, o.timeouts);
    WatermarkWatch watermark(sink, DDIGetDWord(pdm, DDI_WATERMARK), windir);
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
        Job job(printer.handle(), &sink);
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
    watermark.Report();
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
                    "Port: a file (written whole or not at all; a symbolic link is followed, a "
                    "device or FIFO is written in place), - for standard output, or "
                    "socket://HOST:PORT")
        ->capture_default_str();
    sub->add_option_function<std::string>(
           "--timeout", [o](const std::string &t) { o->timeouts = ParseTimeouts(t); },
           "Limits of socket:// in seconds: SECONDS for both, or CONNECT,WRITE (default 30,300: "
           "30 s to connect, 300 s without progress while writing); 0 waits for ever")
        ->type_name("SECONDS|CONNECT,WRITE");
    sub->add_option("--paper", o->paper, "Paper by name or index (q417 devmode options paper)");
    sub->add_option("--source", o->source, "Paper source by name or index");
    sub->add_option("--bin", o->bin, "Output bin by name or index");
    sub->add_option("--media", o->media, "Media type by name or index");
    sub->add_option("--resolution", o->resolution, "Resolution by name or index");
    sub->add_option("--orientation", o->orientation,
                    "portrait, landscape, reverse-portrait, reverse-landscape");
    sub->add_option("--copies", o->copies,
                    "Number of copies, 1 to 32767 (default: 1, or the device mode's)")
        ->check(Whole([](long v) { return v >= 1 && v <= 32767; }, "1 to 32767"));
    sub->add_option("--duplex", o->duplex,
                    "none, long (long-edge binding: sent as ESC&l1S) or short (short-edge "
                    "binding: ESC&l2S); in the device mode, duplex 1, 3 or 2");
    sub->add_flag("--collate", o->collate, "Collate copies");
    sub->add_option("--emulation", o->emulation,
                    "PCL5, PCL5e, PCL5C, PCL5eC or 1 to 6 (default: by the printer's colours)");
    sub->add_option("-n,--nup", o->nup,
                    "Pages per sheet: 1, 2, 4, 6, 9 or 16 (default: 1, or the device mode's)")
        ->check(
            Whole([](long v) { return v == 1 || v == 2 || v == 4 || v == 6 || v == 9 || v == 16; },
                  "1, 2, 4, 6, 9 or 16"));
    sub->add_option("--pages", o->pages, "Number of test pages when no image is given, 1 to 10000")
        ->capture_default_str()
        ->check(Whole([](long v) { return v >= 1 && v <= 10000; }, "1 to 10000"));
    sub->add_option("--watermark", o->watermark,
                    "Watermark number in QMWMARK.INI, 1 to 65535; 0 for none (the default)")
        ->check(Whole([](long v) { return v >= 0 && v <= 65535; }, "0 (none) to 65535"));
    sub->add_flag("--watermark-first-page", o->watermarkFirstPage,
                  "The watermark on the first page only");
    sub->add_option("--custom", o->custom,
                    "Custom paper size WIDTHxHEIGHT in points, or with mm behind");
    sub->add_option("--job-name", o->jobName, "Job name");
    sub->add_option("--devmode", o->devmode, "Start from this device mode file (q417 devmode)");
    sub->add_option("--windir", o->windir,
                    "Windows directory, where QMWMARK.INI is looked for (default: the "
                    "built-in samples)");
    // Settings that need no printer are checked with the command line: a mistake there is
    // status 2 before anything is read or written.
    sub->final_callback([o] { CheckSettings(*o); });
    return {sub, [o] { return RunPrint(*o); }};
}

} // namespace q417tool
