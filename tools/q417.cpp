// q417: the command line of the driver engineer, a host of libq417plg.so like any other.
#include "tool.h"

#include <csignal>
#include <cstdio>

#ifndef Q417_VERSION
#define Q417_VERSION "1.0.9"
#endif

int main(int argc, char **argv) {
    using namespace q417tool;
    CLI::App app{"q417: run print jobs, compile printer descriptions, inspect settings and "
                 "printer streams through libq417plg",
                 "q417"}; // usage lines name the tool, not the path it was started by
    app.set_version_flag("--version", std::string("q417 ") + Q417_VERSION);
    app.require_subcommand(0, 1);
    app.fallthrough(false);
    const Command commands[] = {AddPrintCommand(app), AddPddCommand(app), AddDevmodeCommand(app),
                                AddDumpCommand(app)};
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        if (e.get_exit_code() == 0) return app.exit(e); // --help, --version
        // A mistake on the command line is one line, like every other error of the tool.
        std::fprintf(stderr, "q417: %s (see --help)\n", e.what());
        return 2;
    } catch (const SettingError &e) { // an option's value, checked as it was parsed
        std::fprintf(stderr, "q417: %s (see --help)\n", e.what());
        return 2;
    }
    // A reader that goes away (q417 print -o - | head) is a failed write, not a signal.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        for (const auto &c : commands)
            if (c.sub->parsed()) return c.run();
    } catch (const SettingError &e) { // a value given that can't be used: the command line's
        std::fprintf(stderr, "q417: %s\n", e.what());
        return 2;
    } catch (const ToolError &e) {
        std::fprintf(stderr, "q417: %s\n", e.what());
        return 1;
    } catch (const std::exception &e) {
        std::fprintf(stderr, "q417: %s\n", e.what());
        return 1;
    }
    std::fputs(app.help().c_str(), stdout);
    return 0;
}
