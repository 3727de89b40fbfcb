// The page pipeline's one entry: documents in, a printer stream out, through the library's job
// entries. The command line, the CUPS filter and the printer application's job worker all
// print through here, so a page is rendered, placed, dithered and encoded the same way
// whichever front end sent it.
#pragma once

#include "settings.h"
#include "sink.h"

#include <functional>
#include <string>
#include <vector>

namespace q417::pages {

// One document of a job. `type` is a MIME type ("application/pdf", "image/png", "image/jpeg",
// "image/x-portable-anymap", "image/pwg-raster", "image/urf", "application/vnd.cups-raster"),
// or empty to tell the type from the file's first bytes. `path` "-" reads standard input.
struct Document {
    std::string path;
    std::string type;
};

struct PrintRequest {
    std::string pdd;        // the printer description
    std::string port;       // what the settings interface reports as the port
    std::string windowsDir; // where QMWMARK.INI and fonts are looked for; empty: as set already
    std::string devmode;    // a device mode file to start from; empty: the description's defaults
    JobSettings settings;   // applied over the starting device mode
    std::string pageRanges; // "1-3,7,10-" over the job's logical pages; empty: all
    std::string password;   // for encrypted PDF files
    std::string jobName;
    std::vector<Document> documents; // none: `testPages` test pages
    int testPages = 1;
    // Called as each logical page is sent (page from 1, total logical pages of the job).
    std::function<void(int page, int total)> progress;
    // Called as each sheet is complete (sheet from 1), for accounting (CUPS's PAGE: lines).
    std::function<void(int sheet)> sheetDone;
    // Called once the device mode is set, before the job starts: a front end's look at the
    // job's settings as the library has them.
    std::function<void(DDIDEVMODE *)> deviceMode;
};

// Runs the job end to end into `sink` and finishes the sink. Fail()s (throws Error) with one
// line naming the file or setting and the reason; nothing is left of a failed job's output
// file.
void Print(const PrintRequest &request, Sink &sink);

// "1-3,7,10-" as ranges of page numbers from 1; `last` 0 is open-ended. Fail()s naming the
// part that isn't a page, a range or ascending.
struct PageRange {
    int first = 1, last = 0;
};
std::vector<PageRange> ParsePageRanges(const std::string &text);
bool InRanges(const std::vector<PageRange> &ranges, int page);

} // namespace q417::pages
