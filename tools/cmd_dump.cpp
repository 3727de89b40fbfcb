// q417 dump: a printer stream as a listing with byte offsets.
#include "pcl_decoder.h"
#include "tool.h"

#include <cstdio>
#include <cerrno>
#include <cstring>
#include <memory>
#include <unistd.h>

namespace q417tool {

namespace {

struct DumpOptions {
    std::string stream;
    std::string output;
};

std::vector<uint8_t> ReadStdin() {
    std::vector<uint8_t> data;
    uint8_t buf[65536];
    for (;;) {
        ssize_t got = read(0, buf, sizeof buf);
        if (got < 0) Fail("standard input: %s", std::strerror(errno));
        if (got == 0) break;
        data.insert(data.end(), buf, buf + got);
    }
    return data;
}

int RunDump(const DumpOptions &o) {
    std::vector<uint8_t> data = o.stream == "-" ? ReadStdin() : ReadWholeFile(o.stream);
    std::string listing;
    DecodeResult r = DecodeStream(data.data(), data.size(), listing);
    listing += "-- " + std::to_string(data.size()) + " bytes, " + std::to_string(r.nCommands) +
               " commands, " + std::to_string(r.nUnknown) + " unknown";
    if (r.bTruncated) {
        char at[32];
        std::snprintf(at, sizeof at, "%08zx", r.nTruncatedAt);
        listing += std::string(", cut at offset ") + at;
    }
    listing += "\n";
    if (o.output.empty() || o.output == "-") {
        std::fwrite(listing.data(), 1, listing.size(), stdout);
    } else {
        AtomicFile f(o.output);
        f.Write(listing.data(), listing.size());
        f.Commit();
    }
    return r.bTruncated ? 2 : 0;
}

} // namespace

Command AddDumpCommand(CLI::App &app) {
    auto o = std::make_shared<DumpOptions>();
    CLI::App *sub = app.add_subcommand(
        "dump", "Decode a printer stream (PJL, PCL 5, HP-GL/2) into a listing with byte "
                "offsets. Exit status 2 when the stream ends inside a command.");
    sub->add_option("stream", o->stream, "The stream file, or - for standard input")->required();
    sub->add_option("-o,--output", o->output,
                    "Write the listing to this file (default: "
                    "standard output)");
    return {sub, [o] { return RunDump(*o); }};
}

} // namespace q417tool
