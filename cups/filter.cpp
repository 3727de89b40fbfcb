// q417pcl, the CUPS filter: job-id user title copies options [file]. Reads a PDF (or CUPS
// raster), maps the job's options through pages/options to the device mode, and prints through
// the page pipeline: the printer's stream on standard output, messages on standard error as
// CUPS reads them (ERROR:, INFO:, PAGE:).
#include "data_dir.h"
#include "ppd_writer.h"

#include "common.h"
#include "options.h"
#include "print.h"
#include "sink.h"

#include <cups/cups.h>
#include <cups/ppd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

using namespace q417;

struct PpdFile {
    ppd_file_t *ppd = nullptr;
    explicit PpdFile(const char *path) : ppd(path ? ppdOpenFile(path) : nullptr) {}
    ~PpdFile() {
        if (ppd) ppdClose(ppd);
    }
    std::string Attr(const char *name) const {
        ppd_attr_t *a = ppdFindAttr(ppd, name, nullptr);
        return a && a->value ? a->value : "";
    }
    std::string Default(const char *option) const {
        ppd_option_t *o = ppdFindOption(ppd, option);
        return o ? o->defchoice : "";
    }
};

struct Options {
    int count = 0;
    cups_option_t *list = nullptr;
    ~Options() { cupsFreeOptions(count, list); }
};

std::string Resolve(const std::string &path, const std::string &dir) {
    return path.empty() || path[0] == '/' ? path : dir + "/" + path;
}

// The document type as the pipeline names it; CUPS tells it in CONTENT_TYPE.
std::string DocumentType() {
    const char *t = std::getenv("CONTENT_TYPE");
    if (!t) return std::string(); // the pipeline tells it from the first bytes
    if (std::strcmp(t, "application/vnd.cups-pdf") == 0) return "application/pdf";
    return t;
}

int Run(int argc, char **argv) {
    const char *ppdPath = std::getenv("PPD");
    PpdFile ppd(ppdPath);
    if (!ppd.ppd)
        pages::Fail("the queue's PPD %s can't be read (%s)", ppdPath ? ppdPath : "(none)",
                    ppdPath ? ppdErrorString(ppdLastError(nullptr)) : "PPD is not set");
    std::string data = cups::DataDir();
    std::string pdd = Resolve(ppd.Attr(cups::kPddAttr), data);
    if (pdd.empty())
        pages::Fail("the queue's PPD names no printer description (*%s); add the queue again "
                    "with lpadmin -m",
                    cups::kPddAttr);
    std::string windowsDir = Resolve(ppd.Attr(cups::kWindowsDirAttr), data);
    if (windowsDir.empty()) windowsDir = data;

    pages::Capabilities caps;
    {
        pages::Printer printer(pdd, "socket://localhost");
        caps = pages::Describe(printer, windowsDir);
    }

    // The job's options over the PPD's defaults (which lpadmin -o NAME=VALUE sets): a default
    // counts only where the job names the option by neither of its names.
    Options job;
    job.count = cupsParseOptions(argv[5], 0, &job.list);
    pages::OptionList options;
    auto given = [&](const char *name) {
        return name && cupsGetOption(name, job.count, job.list) != nullptr;
    };
    for (size_t i = 0; i < pages::kOptionNameCount; ++i) {
        const pages::OptionName &n = pages::kOptionNames[i];
        if (!n.ppd || given(n.ppd) || given(n.ipp)) continue;
        if (n.option == pages::Option::PageSize && (given("media-col") || given("PageRegion")))
            continue;
        std::string def = ppd.Default(n.ppd);
        if (!def.empty()) options.emplace_back(n.ppd, def);
    }
    for (int i = 0; i < job.count; ++i) options.emplace_back(job.list[i].name, job.list[i].value);
    options.emplace_back("copies", argv[4]);
    pages::JobOptions mapped = pages::MapOptions(caps, options);

    pages::PrintRequest request;
    request.pdd = pdd;
    request.port = std::getenv("DEVICE_URI") ? std::getenv("DEVICE_URI") : "";
    request.windowsDir = windowsDir;
    request.settings = mapped.settings;
    request.pageRanges = mapped.pageRanges;
    request.jobName = argv[3];
    request.documents.push_back({argc == 7 ? argv[6] : "-", DocumentType()});
    int copies = mapped.settings.copies > 0 ? mapped.settings.copies : 1;
    request.progress = [](int page, int total) {
        std::fprintf(stderr, "INFO: Printing page %d of %d\n", page, total);
    };
    request.sheetDone = [copies](int sheet) {
        std::fprintf(stderr, "PAGE: %d %d\n", sheet, copies);
    };
    std::fprintf(stderr, "INFO: Printing on %s\n", caps.model.c_str());
    pages::Sink sink("-");
    pages::Print(request, sink);
    std::fprintf(stderr, "INFO: Ready to print\n");
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    setbuf(stderr, nullptr);
    if (argc < 6 || argc > 7) {
        std::fprintf(stderr, "Usage: %s job-id user title copies options [file]\n", argv[0]);
        return 1;
    }
    // A printer that goes away is a failed write, reported as such, not a signal.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return Run(argc, argv);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "ERROR: %s\n", e.what());
        return 1;
    }
}
