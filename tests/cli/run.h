// q417 run as a user runs it, in a scratch directory: the built binary with arguments and
// environment changes, its output, exit status, the signal that ended it and its peak memory.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

#ifndef Q417_TOOL
#define Q417_TOOL "q417"
#endif

namespace clitest {

namespace fs = std::filesystem;

inline std::string Slurp(const fs::path &p) {
    std::ifstream f(p, std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

struct Result {
    int status = -1; // -1 when a signal ended the run
    int signal = 0;
    long peakKb = 0; // the process's maximum resident set
    std::string out, err;
};

// How a run differs from a plain one: environment changes (an empty value unsets) and a file
// for standard output instead of the captured one.
struct Env {
    std::vector<std::pair<std::string, std::string>> env;
    std::string stdoutTo;
};

// A failure reads as one line: "q417: " and what names the cause.
inline void ExpectOneErrorLine(const Result &r, const std::string &mention) {
    EXPECT_NE(r.status, 0);
    ASSERT_FALSE(r.err.empty());
    EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
    EXPECT_EQ(r.err.rfind("q417: ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find(mention), std::string::npos) << r.err;
}

// Each test runs the tool in a private directory under /tmp, removed afterwards; the tool's
// home is dir_/home, its output goes to .stdout and .stderr there while it runs.
class CliTest : public ::testing::Test {
  protected:
    CliTest() {
        char tmpl[] = "/tmp/q417cliXXXXXX";
        dir_ = mkdtemp(tmpl);
    }
    ~CliTest() override { fs::remove_all(dir_); }

    pid_t Start(const std::vector<std::string> &args, const Env &setup = {}) {
        const fs::path out = dir_ / ".stdout", err = dir_ / ".stderr";
        pid_t pid = fork();
        if (pid == 0) {
            if (chdir(dir_.c_str()) != 0) _exit(127);
            const char *to = setup.stdoutTo.empty() ? out.c_str() : setup.stdoutTo.c_str();
            dup2(open(to, O_WRONLY | O_CREAT | O_TRUNC, 0644), 1);
            dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 2);
            setenv("Q417_HOME", (dir_ / "home").c_str(), 1);
            unsetenv("Q417_WINDIR");
            for (const auto &[name, value] : setup.env)
                value.empty() ? unsetenv(name.c_str()) : setenv(name.c_str(), value.c_str(), 1);
            std::vector<char *> argv{const_cast<char *>(Q417_TOOL)};
            for (const auto &a : args) argv.push_back(const_cast<char *>(a.c_str()));
            argv.push_back(nullptr);
            execv(Q417_TOOL, argv.data());
            _exit(127);
        }
        return pid;
    }

    Result Finish(pid_t pid) {
        Result r;
        int st = 0;
        rusage ru{};
        wait4(pid, &st, 0, &ru);
        r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
        r.signal = WIFSIGNALED(st) ? WTERMSIG(st) : 0;
        r.peakKb = ru.ru_maxrss;
        for (auto [file, text] : {std::pair{".stdout", &r.out}, {".stderr", &r.err}}) {
            *text = Slurp(dir_ / file);
            fs::remove(dir_ / file);
        }
        return r;
    }

    Result Run(const std::vector<std::string> &args, const Env &setup = {}) {
        return Finish(Start(args, setup));
    }

    // Files the tool left in the scratch directory, apart from its home.
    std::vector<std::string> Leftovers() {
        std::vector<std::string> names;
        for (const auto &e : fs::directory_iterator(dir_))
            if (e.path().filename() != "home") names.push_back(e.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    fs::path dir_;
};

} // namespace clitest
