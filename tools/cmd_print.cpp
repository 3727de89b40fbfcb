// q417 print: one job end to end. The tool is the spooler (it opens the job, feeds pages and
// closes it) and the renderer (it sends the tagged blocks and the page data), with the library
// in between, as on a print server.
#include "print.h"
#include "printer.h"
#include "settings.h"
#include "sink.h"
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

// What q417 print takes beyond the job's settings.
struct PrintOptions : JobSettings {
    std::string printer = "colour";
    std::string output = "q417-job.prn";
    std::string jobName, windir, devmode;
    int pages = 1;
    std::vector<std::string> images;
    std::string pageRanges, password;
    bool quiet = false;
};

int RunPrint(const PrintOptions &o) {
    PrintRequest req;
    req.pdd = PrinterPdd(o.printer);
    req.port = o.output;
    req.windowsDir = o.windir;
    if (o.windir.empty() && !getenv("Q417_WINDIR"))
        Q417_SetWindowsDirectory(EmbeddedDefaults().dir.c_str()); // the sample QMWMARK.INI
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
    struct ClearLine {
        bool on;
        ~ClearLine() {
            if (on) fputs("\r\x1b[K", stderr);
        }
    } clear{progress};
    Sink sink(o.output);
    Print(req, sink);
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
                "when its orientation and the job's differ. With no document, each page is a test page: its number, the frame of the "
                "printable area, a scale in inches, and its sheet and cell. Settings not given "
                "keep the printer description's defaults (or the --devmode file's values).");
    sub->add_option("documents", o->images,
                    "PDF files and images to print, in order; - reads standard input");
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
    sub->add_option("--page-ranges", o->pageRanges,
                    "Pages of the job to print, like 1-3,7,10- (counted over all documents)");
    sub->add_option("--password", o->password, "Password of encrypted PDF files");
    sub->add_flag("-q,--quiet", o->quiet, "No progress on standard error");
    sub->add_option("--devmode", o->devmode, "Start from this device mode file (q417 devmode)");
    sub->add_option("--windir", o->windir,
                    "Windows directory, where QMWMARK.INI is looked for (default: the "
                    "built-in samples)");
    return {sub, [o] { return RunPrint(*o); }};
}

} // namespace q417tool
