// Pieces shared by the subcommands of q417.
#pragma once

#include "common.h"
#include "q417/host.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace q417tool {

// The pipeline's pieces are the tool's own: Fail(), files, text.
using namespace q417::pages;
using ToolError = q417::pages::Error;

// Every subcommand registers itself and hands back what runs it once parsing is done.
struct Command {
    CLI::App *sub;
    std::function<int()> run;
};
Command AddDumpCommand(CLI::App &app);
Command AddPrintCommand(CLI::App &app);
Command AddPddCommand(CLI::App &app);
Command AddDevmodeCommand(CLI::App &app);

// An option's whole-number check: `ok` on the value, or "expected `accepts`". A value out of
// range is a mistake on the command line like any other (status 2).
CLI::Validator Whole(bool (*ok)(long), const char *accepts);

// The samples under share/, compiled into the tool: written out to a directory of their own
// on first use so that a run needs nothing installed.
struct Defaults {
    std::string dir;       // where the files were written
    std::string colourPdd; // the colour model's PDD
    std::string monoPdd;   // the monochrome model's PDD
};
const Defaults &EmbeddedDefaults();

// The Windows folder to give the library for `dir`: `dir` itself when its name is short and
// plain enough for the library's buffers, else a short link to it (ShortAlias).
std::string LibraryWindowsDirectory(const std::string &dir);

} // namespace q417tool
