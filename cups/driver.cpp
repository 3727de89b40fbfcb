// q417plg, the driver program in CUPS's driver folder: "list" names a model for every printer
// description in the data folder (what lpinfo -m shows), "cat URI" writes the PPD of one (what
// lpadmin -m installs).
#include "data_dir.h"
#include "ppd_writer.h"

#include "common.h"
#include "printer.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <strings.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace q417;

const char kScheme[] = "q417plg";

std::string PpdFor(const std::string &file) {
    std::string dir = cups::DataDir();
    pages::Printer printer(dir + "/" + file, "socket://localhost");
    pages::Capabilities caps = pages::Describe(printer, dir);
    return cups::MakePpd(caps, {file, ""});
}

// The library keeps one printer's configuration a process, so each description is read in a
// child of its own, which hands back its model name.
std::string ModelOf(const std::string &file) {
    int fds[2];
    if (pipe(fds) != 0) return std::string();
    fflush(nullptr);
    pid_t pid = fork();
    if (pid < 0) {
        close(fds[0]);
        close(fds[1]);
        return std::string();
    }
    if (pid == 0) {
        close(fds[0]);
        int status = 1;
        try {
            std::string dir = cups::DataDir();
            pages::Printer printer(dir + "/" + file, "socket://localhost");
            std::string model = pages::Describe(printer, dir).model;
            status = write(fds[1], model.data(), model.size()) == ssize_t(model.size()) ? 0 : 1;
        } catch (const std::exception &e) {
            std::fprintf(stderr, "ERROR: %s\n", e.what());
        }
        _exit(status);
    }
    close(fds[1]);
    std::string model;
    char buf[256];
    for (;;) {
        ssize_t n = read(fds[0], buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        model.append(buf, static_cast<size_t>(n));
    }
    close(fds[0]);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? model : std::string();
}

std::vector<std::string> Descriptions() {
    std::vector<std::string> files;
    DIR *d = opendir(cups::DataDir().c_str());
    if (!d) return files;
    while (dirent *e = readdir(d)) {
        std::string name = e->d_name;
        if (name.size() > 4 && strcasecmp(name.c_str() + name.size() - 4, ".pdd") == 0 &&
            name.find('"') == std::string::npos && name.find(' ') == std::string::npos)
            files.push_back(name);
    }
    closedir(d);
    std::sort(files.begin(), files.end());
    return files;
}

// In the quoted fields of a listing a quote would end the field early.
std::string Field(std::string s) {
    std::replace(s.begin(), s.end(), '"', '\'');
    return s;
}

int List() {
    for (const std::string &file : Descriptions()) {
        std::string model = ModelOf(file);
        if (model.empty()) continue; // a description the library can't use offers no model
        size_t space = model.find(' ');
        std::string make = model.substr(0, space);
        std::string rest = space == std::string::npos ? model : model.substr(space + 1);
        std::printf("\"%s:///%s\" en \"%s\" \"%s, q417plg\" \"MFG:%s;MDL:%s;\"\n", kScheme,
                    file.c_str(), Field(make).c_str(), Field(model).c_str(), Field(make).c_str(),
                    Field(rest).c_str());
    }
    return 0;
}

int Cat(const std::string &uri) {
    std::string prefix = std::string(kScheme) + ":///";
    if (uri.compare(0, prefix.size(), prefix) != 0)
        pages::Fail("%s: not a model of this driver (%s...)", uri.c_str(), prefix.c_str());
    std::string file = uri.substr(prefix.size());
    if (file.empty() || file.find('/') != std::string::npos || file[0] == '.')
        pages::Fail("%s: no such model", uri.c_str());
    std::string ppd = PpdFor(file);
    if (std::fwrite(ppd.data(), 1, ppd.size(), stdout) != ppd.size() || std::fflush(stdout) != 0)
        pages::Fail("standard output: %s", std::strerror(errno));
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    try {
        if (argc == 2 && std::strcmp(argv[1], "list") == 0) return List();
        if (argc == 3 && std::strcmp(argv[1], "cat") == 0) return Cat(argv[2]);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "ERROR: %s\n", e.what());
        return 1;
    }
    std::fprintf(stderr, "Usage: %s list\n       %s cat %s:///NAME.pdd\n", argv[0], argv[0],
                 kScheme);
    return 1;
}
