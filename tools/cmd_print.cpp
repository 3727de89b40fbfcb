// q417 print: one job end to end. The tool is the spooler (it opens the job, feeds pages and
// closes it) and the renderer (it sends the tagged blocks and the page data), with the library
// in between, as on a print server.
#include "print.h"
#include "printer.h"
#include "settings.h"
#include "sink.h"
#include "tool.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <pthread.h>
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
    std::string pageRanges, password;
    bool quiet = false;
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
    PrintRequest req;
    req.pdd = PrinterPdd(o.printer);
    req.port = o.output;
    std::string windir = UseWindowsDirectory(o.windir);
    req.devmode = o.devmode;
    req.settings = o;
    req.pageRanges = o.pageRanges;
    req.password = o.password;
    req.jobName = o.jobName.empty() ? "q417 sample job" : o.jobName;
    for (const auto &path : o.images) req.documents.push_back({path, ""});
    req.testPages = o.pages;
    // Progress on a terminal only, rewritten in place; a log or a pipe gets none of it.
    bool progress = !o.quiet && isatty(STDERR_FILENO);
    if (progress)
        req.progress = [](int page, int total) {
            if (total > 0)
                fprintf(stderr, "\rpage %d of %d", page, total);
            else
                fprintf(stderr, "\rpage %d", page);
            fflush(stderr);
        };
    // The progress line is wiped when the job ends, or fails.
    struct ClearLine {
        bool on;
        void Done() {
            if (on) fputs("\r\x1b[K", stderr);
            on = false;
        }
        ~ClearLine() { Done(); }
    } clear{progress};
    // The output's temporary file and its removal on a signal come as one: a signal that
    // arrives between them waits until the file is in the list.
    std::optional<Sink> output;
    {
        sigset_t ends, old;
        sigemptyset(&ends);
        for (int sig : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&ends, sig);
        pthread_sigmask(SIG_BLOCK, &ends, &old);
        try {
            output.emplace(o.output, o.timeouts);
        } catch (...) {
            pthread_sigmask(SIG_SETMASK, &old, nullptr);
            throw;
        }
        pthread_sigmask(SIG_SETMASK, &old, nullptr);
    }
    Sink &sink = *output;
    std::optional<WatermarkWatch> watermark;
    req.deviceMode = [&](DDIDEVMODE *pdm) {
        watermark.emplace(sink, DDIGetDWord(pdm, DDI_WATERMARK), windir);
    };
    Print(req, sink);
    clear.Done(); // before a warning is written
    if (watermark) watermark->Report();
    return 0;
}

} // namespace

Command AddPrintCommand(CLI::App &app) {
    auto o = std::make_shared<PrintOptions>();
    CLI::App *sub = app.add_subcommand(
        "print", "Run one job end to end through the library: the documents given (PDF, PNG, "
                 "JPEG, PBM/PGM/PPM, CUPS/PWG raster), or test pages, to a file, standard output "
                 "or a raw TCP printer port");
    sub->footer("Each page of a document is fitted to the printable area (to its cell when "
                "several pages share a sheet), keeping its shape, centred, and turned a quarter "
                "when its orientation and the job's differ. With no document, each page is a test "
                "page: its number, the frame of the "
                "printable area, a scale in inches, and its sheet and cell. Settings not given "
                "keep the printer description's defaults (or the --devmode file's values).");
    sub->add_option("documents", o->images,
                    "PDF files and images to print, in order; - reads standard input");
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
    sub->add_option("--page-ranges", o->pageRanges,
                    "Pages of the job to print, like 1-3,7,10- (counted over all documents)");
    sub->add_option("--password", o->password, "Password of encrypted PDF files");
    sub->add_flag("-q,--quiet", o->quiet, "No progress on standard error");
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
