// Jobs: every document goes to a worker process of its own (the library keeps process-wide
// state, one job per process), whose stream the application copies to the printer's device.
// A worker that fails, dies or stops making progress ends its job, aborted with the reason;
// the service and the other printers go on.
#include "jobs.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

extern char **environ;

namespace q417::app {

namespace {

// A file descriptor closed when it goes out of scope.
struct Fd {
    int fd = -1;
    Fd() = default;
    explicit Fd(int f) : fd(f) {}
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    ~Fd() { Close(); }
    void Close() {
        if (fd >= 0) close(fd);
        fd = -1;
    }
};

double Now() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

// Seconds a worker may go without output or progress before its job is given up.
int WorkerTimeout() {
    const char *t = getenv("Q417_APP_WORKER_TIMEOUT");
    int s = t ? atoi(t) : 0;
    return s > 0 ? s : 300;
}

// The words of $Q417_APP_WORKER_PREFIX, a launcher the worker is run under (prlimit,
// systemd-run, a test's wrapper), split at blanks.
std::vector<std::string> WorkerPrefix() {
    std::vector<std::string> words;
    const char *p = getenv("Q417_APP_WORKER_PREFIX");
    if (!p) return words;
    std::string w;
    for (const char *c = p;; ++c) {
        if (*c == ' ' || *c == '\t' || *c == '\0') {
            if (!w.empty()) words.push_back(w), w.clear();
            if (!*c) break;
        } else {
            w += *c;
        }
    }
    return words;
}

const char *SidesName(pappl_sides_t s) {
    return s == PAPPL_SIDES_TWO_SIDED_LONG_EDGE    ? "two-sided-long-edge"
           : s == PAPPL_SIDES_TWO_SIDED_SHORT_EDGE ? "two-sided-short-edge"
                                                   : "one-sided";
}

const char *ColorModeName(pappl_color_mode_t m) {
    switch (m) {
    case PAPPL_COLOR_MODE_COLOR:
        return "color";
    case PAPPL_COLOR_MODE_BI_LEVEL:
        return "bi-level";
    case PAPPL_COLOR_MODE_MONOCHROME:
    case PAPPL_COLOR_MODE_AUTO_MONOCHROME:
    case PAPPL_COLOR_MODE_PROCESS_MONOCHROME:
        return "monochrome";
    default:
        return "auto";
    }
}

} // namespace

// The job's attributes, as IPP names them, with the printer's defaults where the job gives
// none: PAPPL has merged the two into `options` already, except for page-ranges, which it
// keeps as one range only.
std::vector<std::pair<std::string, std::string>>
JobAttributes(pappl_job_t *job, const pappl_pr_options_t *o, const pages::Capabilities &caps) {
    std::vector<std::pair<std::string, std::string>> a;
    auto add = [&](const char *name, const std::string &value) {
        if (!value.empty()) a.emplace_back(name, value);
    };
    // PAPPL offers the source "auto" and needs a media type: where the description has no
    // such choice, the printer's own default stands.
    auto offered = [](const std::vector<pages::Choice> &choices, const char *ipp) {
        for (const auto &c : choices)
            if (c.ipp == ipp) return true;
        return false;
    };
    add("media", o->media.size_name);
    if (offered(caps.sources, o->media.source)) add("media-source", o->media.source);
    if (offered(caps.mediaTypes, o->media.type)) add("media-type", o->media.type);
    add("output-bin", o->output_bin);
    if (o->printer_resolution[0] > 0)
        add("printer-resolution", std::to_string(o->printer_resolution[0]) + "x" +
                                      std::to_string(o->printer_resolution[1]) + "dpi");
    add("sides", SidesName(o->sides));
    add("print-color-mode", ColorModeName(o->print_color_mode));
    add("copies", std::to_string(o->copies > 0 ? o->copies : 1));
    if (o->orientation_requested >= IPP_ORIENT_PORTRAIT &&
        o->orientation_requested <= IPP_ORIENT_REVERSE_PORTRAIT)
        add("orientation-requested", std::to_string(static_cast<int>(o->orientation_requested)));
    if (ipp_attribute_t *r = papplJobGetAttribute(job, "page-ranges")) {
        std::string ranges;
        for (int i = 0; i < ippGetCount(r); ++i) {
            int upper = 0, lower = ippGetRange(r, i, &upper);
            if (!ranges.empty()) ranges += ',';
            ranges += std::to_string(lower) + "-" + std::to_string(upper);
        }
        add("page-ranges", ranges);
    }
    for (int i = 0; i < o->num_vendor; ++i) add(o->vendor[i].name, o->vendor[i].value);
    return a;
}

namespace {

bool Work(pappl_job_t *job, pappl_pr_options_t *options, pappl_device_t *device,
          const std::string &file, const std::string &type) {
    pappl_printer_t *printer = papplJobGetPrinter(job);
    const App &app = TheApp();
    const Description *desc = nullptr;
    for (const auto &d : app.descriptions)
        if (d.driver == papplPrinterGetDriverName(printer)) desc = &d;
    if (!desc) {
        papplJobSetMessage(job, "the printer's description \"%s\" is gone",
                           papplPrinterGetDriverName(printer));
        papplJobSetReasons(job, PAPPL_JREASON_ABORTED_BY_SYSTEM, PAPPL_JREASON_NONE);
        return false;
    }

    std::vector<std::string> args = WorkerPrefix();
    args.insert(args.end(), {app.self, "--job-worker", "--pdd", desc->pdd, "--windows-dir",
                             desc->windowsDir, "--type", type, "--file", file, "--job-name",
                             papplJobGetName(job) ? papplJobGetName(job) : ""});
    for (const auto &[name, value] : JobAttributes(job, options, desc->caps)) {
        args.push_back("-o");
        args.push_back(name + "=" + value);
    }
    std::vector<char *> argv;
    for (auto &s : args) argv.push_back(s.data());
    argv.push_back(nullptr);

    int out[2], err[2];
    if (pipe2(out, O_CLOEXEC) != 0) {
        papplJobSetMessage(job, "can't start a worker: %s", strerror(errno));
        return false;
    }
    Fd outRead(out[0]), outWrite(out[1]);
    if (pipe2(err, O_CLOEXEC) != 0) {
        papplJobSetMessage(job, "can't start a worker: %s", strerror(errno));
        return false;
    }
    Fd errRead(err[0]), errWrite(err[1]);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, outWrite.fd, 1);
    posix_spawn_file_actions_adddup2(&actions, errWrite.fd, 2);
    // Nothing of the service (listeners, clients, other jobs' pipes) reaches the worker.
    posix_spawn_file_actions_addclosefrom_np(&actions, 3);
    // The worker leads a process group of its own, so that stopping it stops whatever it
    // started too (a launcher's children).
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attr, 0);
    pid_t pid = -1;
    int rc = posix_spawnp(&pid, argv[0], &actions, &attr, argv.data(), environ);
    posix_spawnattr_destroy(&attr);
    posix_spawn_file_actions_destroy(&actions);
    outWrite.Close();
    errWrite.Close();
    if (rc != 0) {
        papplJobSetMessage(job, "can't start a worker (%s): %s", argv[0], strerror(rc));
        papplJobSetReasons(job, PAPPL_JREASON_ABORTED_BY_SYSTEM, PAPPL_JREASON_NONE);
        return false;
    }
    papplLogJob(job, PAPPL_LOGLEVEL_DEBUG, "Worker %d prints %s (%s).", static_cast<int>(pid),
                file.c_str(), type.c_str());

    const int timeout = WorkerTimeout();
    std::string failure, errText, line;
    pappl_jreason_t reason = PAPPL_JREASON_NONE;
    bool killed = false;
    auto stop = [&] {
        kill(-pid, SIGKILL);
        killed = true;
    };
    double last = Now();
    char buf[65536];
    while ((outRead.fd >= 0 || errRead.fd >= 0) && !killed) {
        pollfd fds[2] = {{outRead.fd, POLLIN, 0}, {errRead.fd, POLLIN, 0}};
        int ready = poll(fds, 2, 500);
        if (ready < 0 && errno != EINTR) break;
        if (papplJobIsCanceled(job)) {
            stop();
        } else if (Now() - last > timeout) {
            stop();
            failure = "the job's worker made no progress for " + std::to_string(timeout) +
                      " seconds and was stopped";
            reason = PAPPL_JREASON_ABORTED_BY_SYSTEM;
        }
        if (ready <= 0) continue;
        if (fds[0].revents) {
            ssize_t got = read(outRead.fd, buf, sizeof buf);
            if (got > 0) {
                last = Now();
                if (papplDeviceWrite(device, buf, static_cast<size_t>(got)) < 0) {
                    stop();
                    failure = "the printer's device refused the stream";
                    reason = PAPPL_JREASON_ABORTED_BY_SYSTEM;
                    papplPrinterSetReasons(papplJobGetPrinter(job), PAPPL_PREASON_OFFLINE,
                                           PAPPL_PREASON_NONE);
                }
            } else if (got == 0 || errno != EINTR) {
                outRead.Close();
            }
        }
        if (fds[1].revents) {
            ssize_t got = read(errRead.fd, buf, sizeof buf);
            if (got > 0) {
                errText.append(buf, static_cast<size_t>(got));
                size_t nl;
                while ((nl = errText.find('\n')) != std::string::npos) {
                    line = errText.substr(0, nl);
                    errText.erase(0, nl + 1);
                    int sheet = 0, page = 0, total = 0;
                    if (sscanf(line.c_str(), "SHEET: %d", &sheet) == 1) {
                        last = Now();
                        papplJobSetImpressionsCompleted(job, 1);
                    } else if (sscanf(line.c_str(), "PAGE: %d %d", &page, &total) == 2) {
                        last = Now();
                        if (page == 1) papplJobSetImpressions(job, total);
                        papplJobSetMessage(job, "Printing page %d of %d.", page, total);
                    } else if (line.rfind("ERROR: ", 0) == 0) {
                        failure = line.substr(7);
                    } else if (!line.empty()) {
                        papplLogJob(job, PAPPL_LOGLEVEL_INFO, "Worker: %s", line.c_str());
                    }
                }
                if (errText.size() > sizeof buf) errText.clear(); // a line without end
            } else if (got == 0 || errno != EINTR) {
                errRead.Close();
            }
        }
    }
    if (!killed && (outRead.fd >= 0 || errRead.fd >= 0)) stop();
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }

    if (papplJobIsCanceled(job)) return true; // PAPPL marks it canceled
    if (failure.empty() && WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        papplPrinterSetReasons(papplJobGetPrinter(job), PAPPL_PREASON_NONE, PAPPL_PREASON_OFFLINE);
        return true;
    }
    if (WIFSIGNALED(status) && failure.empty()) {
        failure = std::string("the job's worker died (") + strsignal(WTERMSIG(status)) + ")";
        reason = PAPPL_JREASON_ABORTED_BY_SYSTEM;
    } else if (WIFEXITED(status) && WEXITSTATUS(status) == kExitDocument) {
        reason = PAPPL_JREASON_DOCUMENT_FORMAT_ERROR;
    } else if (WIFEXITED(status) && WEXITSTATUS(status) == kExitSettings) {
        reason = PAPPL_JREASON_ERRORS_DETECTED; // the job asked what the printer refuses
    } else if (reason == PAPPL_JREASON_NONE) {
        reason = PAPPL_JREASON_DOCUMENT_UNPRINTABLE_ERROR;
    }
    if (failure.empty()) failure = "the job's worker failed";
    papplLogJob(job, PAPPL_LOGLEVEL_ERROR, "%s", failure.c_str());
    papplJobSetMessage(job, "%s", failure.c_str());
    papplJobSetReasons(job, reason | PAPPL_JREASON_ERRORS_DETECTED, PAPPL_JREASON_NONE);
    return false;
}

} // namespace

bool RunWorker(pappl_job_t *job, pappl_pr_options_t *options, pappl_device_t *device,
               const char *file, const char *type) {
    // A job can reach here without a document (a Create-Job whose documents never came).
    if (!file || !*file) {
        papplJobSetMessage(job, "the job has no document");
        papplJobSetReasons(job, PAPPL_JREASON_JOB_DATA_INSUFFICIENT, PAPPL_JREASON_NONE);
        return false;
    }
    // Nothing thrown here may end the service with its other printers' jobs.
    try {
        return Work(job, options, device, file, type ? type : "");
    } catch (const std::exception &e) {
        papplJobSetMessage(job, "the job failed: %s", e.what());
    }
    papplJobSetReasons(job, PAPPL_JREASON_ABORTED_BY_SYSTEM, PAPPL_JREASON_NONE);
    return false;
}

namespace {

// A document in the printer's own input format (PDF): PAPPL's "raw" print callback.
bool PrintFile(pappl_job_t *job, pappl_pr_options_t *options, pappl_device_t *device) {
    const char *format = papplJobGetFormat(job);
    if (!RunWorker(job, options, device, papplJobGetFilename(job), format)) return false;
    papplJobSetImpressionsCompleted(job, -1); // PAPPL counts one more; the worker counted all
    return true;
}

// Other spooled documents (JPEG, PNG) reach the worker through a filter to that format.
bool FilterDocument(pappl_job_t *job, pappl_device_t *device, void *) {
    const char *format = papplJobGetFormat(job);
    pappl_pr_options_t *options = papplJobCreatePrintOptions(job, 0, true);
    if (!options) return false;
    bool ok = RunWorker(job, options, device, papplJobGetFilename(job), format);
    papplJobDeletePrintOptions(options);
    return ok;
}

// PAPPL streams PWG and Apple raster to the raster callbacks line by line as it reads them
// from the client; they are written down as one PWG raster file, which the worker prints when
// the job ends.
struct RasterSpool {
    std::string path;
    int fd = -1;
    cups_raster_t *raster = nullptr;
    bool failed = false;
};

bool RasterStartJob(pappl_job_t *job, pappl_pr_options_t *, pappl_device_t *) {
    auto *spool = new RasterSpool;
    char name[1024];
    spool->fd = papplJobOpenFile(job, name, sizeof name, nullptr, "pwg", "w");
    if (spool->fd < 0) {
        papplJobSetMessage(job, "can't spool the raster: %s", strerror(errno));
        delete spool;
        return false;
    }
    spool->path = name;
    spool->raster = cupsRasterOpen(spool->fd, CUPS_RASTER_WRITE_PWG);
    if (!spool->raster) {
        close(spool->fd);
        unlink(name);
        delete spool;
        return false;
    }
    papplJobSetData(job, spool);
    return true;
}

bool RasterStartPage(pappl_job_t *job, pappl_pr_options_t *options, pappl_device_t *, unsigned) {
    auto *spool = static_cast<RasterSpool *>(papplJobGetData(job));
    if (!spool || !spool->raster) return false;
    if (!cupsRasterWriteHeader2(spool->raster, &options->header)) spool->failed = true;
    return !spool->failed;
}

bool RasterWriteLine(pappl_job_t *job, pappl_pr_options_t *options, pappl_device_t *, unsigned,
                     const unsigned char *line) {
    auto *spool = static_cast<RasterSpool *>(papplJobGetData(job));
    if (!spool || !spool->raster || spool->failed) return false;
    unsigned n = options->header.cupsBytesPerLine;
    if (cupsRasterWritePixels(spool->raster, const_cast<unsigned char *>(line), n) != n)
        spool->failed = true;
    return !spool->failed;
}

bool RasterEndPage(pappl_job_t *job, pappl_pr_options_t *, pappl_device_t *, unsigned) {
    auto *spool = static_cast<RasterSpool *>(papplJobGetData(job));
    return spool && !spool->failed;
}

bool RasterEndJob(pappl_job_t *job, pappl_pr_options_t *options, pappl_device_t *device) {
    auto *spool = static_cast<RasterSpool *>(papplJobGetData(job));
    if (!spool) return false;
    papplJobSetData(job, nullptr);
    if (spool->raster) cupsRasterClose(spool->raster);
    if (spool->fd >= 0) close(spool->fd);
    bool ok = !spool->failed;
    if (!ok) papplJobSetMessage(job, "can't spool the raster: %s", strerror(errno));
    if (ok && options && !papplJobIsCanceled(job))
        ok = RunWorker(job, options, device, spool->path.c_str(), "image/pwg-raster");
    unlink(spool->path.c_str());
    delete spool;
    return ok;
}

} // namespace

void SetJobCallbacks(pappl_pr_driver_data_t *data) {
    data->format = kDriverFormat;
    data->printfile_cb = PrintFile;
    data->rstartjob_cb = RasterStartJob;
    data->rstartpage_cb = RasterStartPage;
    data->rwriteline_cb = RasterWriteLine;
    data->rendpage_cb = RasterEndPage;
    data->rendjob_cb = RasterEndJob;
}

namespace {

void FirstActiveJob(pappl_job_t *job, void *data) {
    if (papplJobGetState(job) == IPP_JSTATE_PROCESSING) *static_cast<bool *>(data) = true;
}

// PAPPL stops a printer whose device it can't open and retries on its own; the reason goes
// to printer-state-reasons, where clients look for it, and goes again once the device opens.
void WatchPrinter(pappl_printer_t *printer, void *) {
    bool processing = false;
    papplPrinterIterateActiveJobs(printer, FirstActiveJob, &processing, 1, 1);
    bool unreachable = processing && papplPrinterGetState(printer) == IPP_PSTATE_STOPPED;
    bool flagged = papplPrinterGetReasons(printer) & PAPPL_PREASON_OFFLINE;
    if (unreachable && !flagged)
        papplPrinterSetReasons(printer, PAPPL_PREASON_OFFLINE, PAPPL_PREASON_NONE);
    else if (!unreachable && flagged && papplPrinterGetState(printer) == IPP_PSTATE_PROCESSING)
        papplPrinterSetReasons(printer, PAPPL_PREASON_NONE, PAPPL_PREASON_OFFLINE);
}

bool WatchDevices(pappl_system_t *system, void *) {
    papplSystemIteratePrinters(system, WatchPrinter, nullptr);
    return true;
}

} // namespace

void SetUpJobs(pappl_system_t *system) {
    papplSystemAddTimerCallback(system, 0, 2, WatchDevices, nullptr);
    papplSystemAddMIMEFilter(system, "image/jpeg", kDriverFormat, FilterDocument, nullptr);
    papplSystemAddMIMEFilter(system, "image/png", kDriverFormat, FilterDocument, nullptr);
}

} // namespace q417::app
