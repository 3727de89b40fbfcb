// q417: the command line of the driver engineer, a host of libq417plg.so like any other.
#include "q417/host.h"

#include <CLI/CLI.hpp>

#include <cstdio>

#ifndef Q417_VERSION
#define Q417_VERSION "1.0.9"
#endif

int main(int argc, char **argv) {
    CLI::App app{"q417: run print jobs, compile printer descriptions, inspect settings and "
                 "printer streams through libq417plg"};
    app.set_version_flag("--version", std::string("q417 ") + Q417_VERSION);
    app.require_subcommand(0, 1);
    CLI11_PARSE(app, argc, argv);
    if (app.get_subcommands().empty()) {
        std::fputs(app.help().c_str(), stdout);
        return 0;
    }
    return 0;
}
