// The job worker: one document of one job through the page pipeline, its stream on standard
// output. The application reads "PAGE: n total" and "SHEET: n" lines on standard error as
// progress, and "ERROR: reason" as the job's last word.
#include "app.h"
#include "jobs.h"

#include "common.h"
#include "print.h"
#include "sink.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <sys/prctl.h>

namespace q417::app {

int WorkerMain(int argc, char **argv) {
    signal(SIGPIPE, SIG_IGN);         // a closed pipe shows as a failed write
    prctl(PR_SET_PDEATHSIG, SIGKILL); // and a service that is gone leaves no job running
    pages::PrintRequest request;
    pages::Document doc;
    pages::OptionList options;
    for (int i = 2; i + 1 < argc; i += 2) {
        std::string flag = argv[i], value = argv[i + 1];
        if (flag == "--pdd")
            request.pdd = value;
        else if (flag == "--windows-dir")
            request.windowsDir = value;
        else if (flag == "--type")
            doc.type = value;
        else if (flag == "--file")
            doc.path = value;
        else if (flag == "--job-name")
            request.jobName = value;
        else if (flag == "-o") {
            size_t eq = value.find('=');
            if (eq != std::string::npos)
                options.emplace_back(value.substr(0, eq), value.substr(eq + 1));
        } else {
            fprintf(stderr, "ERROR: job worker: unknown argument %s\n", flag.c_str());
            return 1;
        }
    }
    if (request.pdd.empty() || doc.path.empty()) {
        fprintf(stderr, "ERROR: job worker: --pdd and --file are needed\n");
        return 1;
    }
    request.documents.push_back(doc);
    bool started = false;
    request.progress = [&](int page, int total) {
        started = true;
        fprintf(stderr, "PAGE: %d %d\n", page, total);
    };
    request.sheetDone = [](int sheet) { fprintf(stderr, "SHEET: %d\n", sheet); };
    try {
        pages::Printer printer(request.pdd, "");
        pages::JobOptions job =
            pages::MapOptions(pages::Describe(printer, request.windowsDir), options);
        request.settings = job.settings;
        request.pageRanges = job.pageRanges;
    } catch (const std::exception &e) {
        fprintf(stderr, "ERROR: %s\n", e.what());
        return kExitSettings;
    }
    try {
        pages::Sink sink("-");
        pages::Print(request, sink);
        return 0;
    } catch (const std::exception &e) {
        fprintf(stderr, "ERROR: %s\n", e.what());
        return started ? 1 : kExitDocument;
    }
}

} // namespace q417::app
