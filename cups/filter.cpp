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

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

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

// The library opens QMWMARK.INI for reading and writing, as the driver always did, and CUPS
// runs filters as an unprivileged user who can't write the installed file: a job reads the
// definitions from a copy in a folder of its own, gone when the job is.
class JobWindowsDir {
  public:
    explicit JobWindowsDir(const std::string &from) {
        const char *tmp = std::getenv("TMPDIR");
        std::string name = std::string(tmp && *tmp ? tmp : "/tmp") + "/q417pcl-XXXXXX";
        if (!mkdtemp(name.data())) pages::Fail("%s: %s", name.c_str(), std::strerror(errno));
        dir_ = name;
        std::vector<uint8_t> ini;
        try {
            ini = pages::ReadWholeFile(from + "/QMWMARK.INI");
        } catch (const pages::Error &) {
            return; // no definitions: no watermarks, as the library has it
        }
        pages::AtomicFile copy(dir_ + "/QMWMARK.INI");
        copy.Write(ini.data(), ini.size());
        copy.Commit();
    }
    ~JobWindowsDir() {
        unlink((dir_ + "/QMWMARK.INI").c_str());
        rmdir(dir_.c_str());
    }
    JobWindowsDir(const JobWindowsDir &) = delete;
    JobWindowsDir &operator=(const JobWindowsDir &) = delete;
    const std::string &path() const { return dir_; }

  private:
    std::string dir_;
};

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

    JobWindowsDir jobDir(windowsDir);
    pages::Capabilities caps;
    {
        pages::Printer printer(pdd, "socket://localhost");
        caps = pages::Describe(printer, jobDir.path());
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
    request.windowsDir = jobDir.path();
    request.settings = mapped.settings;
    request.pageRanges = mapped.pageRanges;
    request.jobName = argv[3];
    // CONTENT_TYPE names the job's document, not what the filter before us made of it: the
    // pipeline tells PDF from raster by the first bytes.
    request.documents.push_back({argc == 7 ? argv[6] : "-", ""});
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
