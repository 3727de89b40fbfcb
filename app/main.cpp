// The main loop and the system: PAPPL's subcommands (server, add, drivers, submit, jobs,
// status, shutdown...), and a system whose state, spool, log and control socket all live in
// the spool directory when one is named, so that a private instance never meets another.
#include "app.h"

#include <cerrno>
#include <dlfcn.h>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#ifndef Q417_VERSION
#define Q417_VERSION "0"
#endif
#ifndef Q417_APP_DATADIR
#define Q417_APP_DATADIR "/usr/share/q417plg"
#endif

namespace q417::app {

App &TheApp() {
    static App app;
    return app;
}

namespace {

constexpr const char *kName = "q417-printer-app";

bool MakeDir(const std::string &dir) {
    for (size_t i = 1; i <= dir.size(); ++i) {
        if (i != dir.size() && dir[i] != '/') continue;
        std::string part = dir.substr(0, i);
        if (mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) return false;
    }
    return true;
}

pappl_loglevel_t LogLevel(const char *name) {
    static const struct {
        const char *name;
        pappl_loglevel_t level;
    } kLevels[] = {{"debug", PAPPL_LOGLEVEL_DEBUG},
                   {"info", PAPPL_LOGLEVEL_INFO},
                   {"warn", PAPPL_LOGLEVEL_WARN},
                   {"error", PAPPL_LOGLEVEL_ERROR},
                   {"fatal", PAPPL_LOGLEVEL_FATAL}};
    for (const auto &l : kLevels)
        if (name && strcmp(name, l.name) == 0) return l.level;
    return PAPPL_LOGLEVEL_INFO;
}

std::string StateFile(const App &app) {
    if (!app.spoolDir.empty()) return app.spoolDir + "/" + kName + ".state";
    if (getuid() == 0) return std::string("/var/lib/") + kName + ".state";
    const char *home = getenv("HOME");
    std::string dir = getenv("XDG_CONFIG_HOME") ? getenv("XDG_CONFIG_HOME")
                      : home                    ? std::string(home) + "/.config"
                                                : std::string("/tmp");
    MakeDir(dir);
    return dir + "/" + kName + ".state";
}

bool SaveState(pappl_system_t *system, void *data) {
    return papplSystemSaveState(system, static_cast<const std::string *>(data)->c_str());
}

pappl_system_t *SystemCallback(int num_options, cups_option_t *options, void *) {
    App &app = TheApp();
    const char *spool = cupsGetOption("spool-directory", num_options, options);
    if (spool && *spool) {
        app.spoolDir = spool;
        if (!MakeDir(app.spoolDir)) {
            fprintf(stderr, "%s: %s: %s\n", kName, spool, strerror(errno));
            return nullptr;
        }
    }
    std::string log;
    if (const char *l = cupsGetOption("log-file", num_options, options))
        log = l;
    else if (!app.server) // a subcommand that only asks (drivers) has nothing to log
        log = "/dev/null";
    else if (!app.spoolDir.empty())
        log = app.spoolDir + "/" + kName + ".log";
    else
        log = "-";
    pappl_loglevel_t level = LogLevel(cupsGetOption("log-level", num_options, options));
    const char *port = cupsGetOption("server-port", num_options, options);
    const char *listen = cupsGetOption("listen-hostname", num_options, options);
    if (!listen) listen = "localhost";
    bool loopback = strcmp(listen, "localhost") == 0 || strncmp(listen, "127.", 4) == 0 ||
                    strcmp(listen, "::1") == 0 || strcmp(listen, "[::1]") == 0;

    pappl_soptions_t soptions = PAPPL_SOPTIONS_MULTI_QUEUE | PAPPL_SOPTIONS_WEB_INTERFACE |
                                PAPPL_SOPTIONS_WEB_LOG | PAPPL_SOPTIONS_WEB_SECURITY;
    // A service on the loopback interface has no one to encrypt for.
    if (loopback) soptions |= PAPPL_SOPTIONS_NO_TLS;
    // A subcommand that only asks (drivers) spools nothing: it gets the temporary folder
    // rather than a spool folder of its own left behind.
    std::string spoolDir = app.spoolDir;
    if (spoolDir.empty() && !app.server) spoolDir = getenv("TMPDIR") ? getenv("TMPDIR") : "/tmp";
    pappl_system_t *system = papplSystemCreate(
        soptions, "q417 Printer Application", port ? atoi(port) : 0, "_print,_universal",
        spoolDir.empty() ? nullptr : spoolDir.c_str(), log.c_str(), level,
        cupsGetOption("auth-service", num_options, options), false);
    if (!system) return nullptr;

    if (app.server && !papplSystemAddListeners(system, strcmp(listen, "*") ? listen : nullptr)) {
        fprintf(stderr, "%s: can't listen on %s:%s\n", kName, listen, port ? port : "(default)");
        papplSystemDelete(system);
        return nullptr;
    }
    if (const char *host = cupsGetOption("server-hostname", num_options, options))
        papplSystemSetHostName(system, host);

    papplSystemSetPrinterDrivers(system, static_cast<int>(app.drivers.size()), app.drivers.data(),
                                 nullptr, PrinterCreated, DriverCallback, &app);
    SetUpJobs(system);
    papplSystemSetFooterHTML(system, "q417plg " Q417_VERSION);
    pappl_version_t version{};
    snprintf(version.name, sizeof version.name, "%s", kName);
    snprintf(version.sversion, sizeof version.sversion, "%s", Q417_VERSION);
    sscanf(Q417_VERSION, "%hu.%hu.%hu", &version.version[0], &version.version[1],
           &version.version[2]);
    papplSystemSetVersions(system, 1, &version);

    if (app.server) { // the printers and their defaults, kept across runs
        static std::string state;
        state = StateFile(app);
        papplSystemLoadState(system, state.c_str());
        papplSystemSetSaveCallback(system, SaveState, &state);
    }
    return system;
}

// "-o NAME=VALUE" or "-oNAME=VALUE" at argv[i]: the value when NAME matches.
const char *OptionValue(int argc, char **argv, int &i, std::string_view name) {
    std::string_view a = argv[i];
    std::string_view rest;
    if (a == "-o" && i + 1 < argc)
        rest = argv[i + 1];
    else if (a.size() > 2 && a.substr(0, 2) == "-o")
        rest = a.substr(2);
    else
        return nullptr;
    if (rest.size() <= name.size() || rest.substr(0, name.size()) != name ||
        rest[name.size()] != '=')
        return nullptr;
    return rest.data() + name.size() + 1;
}

} // namespace
} // namespace q417::app

// PAPPL names its control socket after the program and the user, the same for every instance.
// A private instance (one with a spool directory) keeps its socket in that directory instead,
// for the server and for the subcommands that talk to it alike.
extern "C" char *_papplMainloopGetServerPath(const char *base_name, uid_t uid, char *buffer,
                                             size_t bufsize) {
    const std::string &dir = q417::app::TheApp().spoolDir;
    const char *snap = getenv("SNAP_COMMON");
    const char *tmp = getenv("TMPDIR");
    if (!dir.empty())
        snprintf(buffer, bufsize, "%s/%s.sock", dir.c_str(), base_name);
    else if (snap)
        snprintf(buffer, bufsize, "%s/%s.sock", snap, base_name);
    else if (uid == 0)
        snprintf(buffer, bufsize, "/run/%s.sock", base_name);
    else
        snprintf(buffer, bufsize, "%s/%s%d.sock", tmp ? tmp : "/tmp", base_name,
                 static_cast<int>(uid));
    return buffer;
}

// PAPPL's subcommands start a server of their own when none answers. For a private instance
// that would be a server of the system's kind, outside its folder: they connect to the
// folder's socket or say that no server runs there.
extern "C" http_t *_papplMainloopConnect(const char *base_name, bool auto_start) {
    const std::string &dir = q417::app::TheApp().spoolDir;
    if (dir.empty()) {
        using Connect = http_t *(*)(const char *, bool);
        static auto real = reinterpret_cast<Connect>(dlsym(RTLD_NEXT, "_papplMainloopConnect"));
        return real ? real(base_name, auto_start) : nullptr;
    }
    char path[1024];
    _papplMainloopGetServerPath(base_name, getuid(), path, sizeof path);
    http_t *http =
        httpConnect2(path, 0, nullptr, AF_UNSPEC, HTTP_ENCRYPTION_IF_REQUESTED, 1, 30000, nullptr);
    if (!http)
        fprintf(stderr, "%s: no server runs in %s (%s server -o spool-directory=%s starts one)\n",
                base_name, dir.c_str(), base_name, dir.c_str());
    return http;
}

int main(int argc, char **argv) {
    using namespace q417::app;
    if (argc > 1 && strcmp(argv[1], "--job-worker") == 0) return WorkerMain(argc, argv);

    App &app = TheApp();
    char self[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    app.self = n > 0 ? std::string(self, static_cast<size_t>(n)) : argv[0];
    app.descriptionDirs.push_back(Q417_APP_DATADIR);
    if (const char *env = getenv("Q417_PDD_DIR"); env && *env) app.descriptionDirs.push_back(env);

    // Options of our own are read here and kept from the subcommands that would send them to
    // the server as printer or job attributes.
    std::string subcommand;
    std::vector<char *> args{argv[0]};
    for (int i = 1; i < argc; ++i) {
        if (subcommand.empty() && argv[i][0] != '-') subcommand = argv[i];
        const char *value;
        bool pair = strcmp(argv[i], "-o") == 0;
        if ((value = OptionValue(argc, argv, i, "spool-directory"))) {
            app.spoolDir = value;
            if (subcommand != "server") {
                i += pair;
                continue;
            }
        } else if ((value = OptionValue(argc, argv, i, "pdd-directory"))) {
            app.descriptionDirs.push_back(value);
            i += pair;
            continue;
        }
        args.push_back(argv[i]);
    }
    args.push_back(nullptr);
    app.server = subcommand == "server";

    app.descriptions = FindDescriptions(app.descriptionDirs);
    for (auto &d : app.descriptions)
        app.drivers.push_back({d.driver.c_str(), d.model.c_str(), d.deviceId.c_str(), &d});

    return papplMainloop(static_cast<int>(args.size() - 1), args.data(), Q417_VERSION, nullptr,
                         static_cast<int>(app.drivers.size()), app.drivers.data(), nullptr,
                         DriverCallback, nullptr, nullptr, q417::app::SystemCallback, nullptr,
                         &app);
}
