// A job end to end: the printer made known, the device mode set, blocks 1, 2 and 8, then each
// logical page rendered into its N-up cell, encoded as raster and sent between the library's
// page calls, while the next page is rendered on a thread of its own.
#include "print.h"

#include "common.h"
#include "document.h"
#include "job.h"
#include "pipeline.h"
#include "printer.h"
#include "raster.h"
#include "render.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <unistd.h>

namespace q417::pages {

std::vector<PageRange> ParsePageRanges(const std::string &text) {
    std::vector<PageRange> out;
    if (text.empty()) return out;
    size_t at = 0;
    int lastEnd = 0;
    auto number = [&](size_t &p, const std::string &part) {
        size_t start = p;
        long v = 0;
        while (p < text.size() && text[p] >= '0' && text[p] <= '9') {
            v = v * 10 + (text[p++] - '0');
            if (v > 1000000000) break;
        }
        if (p == start || v < 1 || v > 1000000000)
            Fail("--page-ranges %s: \"%s\" is not a page number or range (like 1-3,7,10-)",
                 text.c_str(), part.c_str());
        return static_cast<int>(v);
    };
    for (;;) {
        size_t comma = text.find(',', at);
        std::string part = text.substr(at, comma == std::string::npos ? comma : comma - at);
        size_t p = at, end = at + part.size();
        PageRange r;
        r.first = number(p, part);
        r.last = r.first;
        if (p < end && text[p] == '-') {
            ++p;
            r.last = p < end ? number(p, part) : 0;
        }
        if (p != end || (r.last && r.last < r.first))
            Fail("--page-ranges %s: \"%s\" is not a page number or range (like 1-3,7,10-)",
                 text.c_str(), part.c_str());
        if (r.first <= lastEnd || lastEnd < 0)
            Fail("--page-ranges %s: ranges must ascend without overlapping", text.c_str());
        lastEnd = r.last ? r.last : -1;
        out.push_back(r);
        if (comma == std::string::npos) break;
        at = comma + 1;
    }
    return out;
}

bool InRanges(const std::vector<PageRange> &ranges, int page) {
    if (ranges.empty()) return true;
    for (const auto &r : ranges)
        if (page >= r.first && (r.last == 0 || page <= r.last)) return true;
    return false;
}

namespace {

// Standard input spooled to a file, which readers can seek in; removed at the end.
class SpoolFile {
  public:
    SpoolFile() {
        const char *tmp = getenv("TMPDIR");
        path_ = std::string(tmp && *tmp ? tmp : "/tmp") + "/q417-stdin-XXXXXX";
        int fd = mkstemp(path_.data());
        if (fd < 0) Fail("standard input: can't spool it (%s)", strerror(errno));
        CopyResult r = CopyAll(0, fd);
        if (r.err) {
            close(fd);
            if (r.readFailed) Fail("standard input: %s", strerror(r.err));
            Fail("standard input: can't spool it (%s)", strerror(r.err));
        }
        close(fd);
    }
    ~SpoolFile() { unlink(path_.c_str()); }
    SpoolFile(const SpoolFile &) = delete;
    SpoolFile &operator=(const SpoolFile &) = delete;
    const std::string &path() const { return path_; }

  private:
    std::string path_;
};

struct OpenedDocument {
    std::string path, name;
    DocType type;
    int count = -1; // -1: a stream, counted as it is read
};

// Every page's data begins by entering PCL: after a watermark on a cell that opened no page
// header, the printer may still be in HP-GL/2.
constexpr char kEnterPcl[] = "\x1b%0A";

} // namespace

void Print(const PrintRequest &req, Sink &sink) {
    if (!req.windowsDir.empty() && !Q417_SetWindowsDirectory(req.windowsDir.c_str()))
        Fail("%s: refused by the library as the Windows directory", req.windowsDir.c_str());
    if (req.documents.empty() && (req.testPages < 1 || req.testPages > 10000))
        Fail("--pages %d: out of range (1 to 10000)", req.testPages);
    std::vector<PageRange> ranges = ParsePageRanges(req.pageRanges);

    Printer printer(req.pdd, req.port.empty() ? "q417" : req.port);
    std::vector<uint8_t> dm;
    if (req.devmode.empty()) {
        dm = printer.NewDevMode();
    } else {
        dm = ReadWholeFile(req.devmode);
        printer.Adopt(dm);
    }
    DDIDEVMODE *pdm = DM(dm);
    ApplySettings(pdm, req.settings);
    if (req.deviceMode) req.deviceMode(pdm);
    PageGeometry g = Geometry(pdm);
    int dpi = pdm->dmYResolution; // the library prints at the vertical resolution
    if (dpi <= 0) Fail("the printer description gives no resolution");
    int nup = static_cast<int>(DDIGetDWord(pdm, DDI_PAGESPERSHEET));
    NupLayout layout = MakeNupLayout(nup, pdm->dmOrientation, g, dpi);
    WORD emulation = static_cast<WORD>(DDIGetDWord(pdm, DDI_EMULATION));

    PageInfo info;
    info.colour = emulation == 3 || emulation == 4;
    auto options = KeywordOptions(pdm, DDI_PAPERSIZE);
    DWORD paperIndex = DDIGetDWord(pdm, DDI_PAPERSIZE);
    info.paper = paperIndex < options.size() ? options[paperIndex].key : "?";
    static const char *const kOrient[] = {"portrait", "landscape", "reverse portrait",
                                          "reverse landscape"};
    DWORD orient = DDIGetDWord(pdm, DDI_PAGEORIENT);
    info.orientation = orient < 4 ? kOrient[orient] : "?";

    // The box a logical page fills: the printable area, as its cell shows it on the sheet, in
    // raster pixels.
    int64_t frameW = int64_t{g.cxPrintable} * dpi / 720,
            frameH = int64_t{g.cyPrintable} * dpi / 720;
    int64_t cellW = layout.n == 1 ? frameW : std::max<int64_t>(1, frameW * layout.scale / dpi);
    int64_t cellH = layout.n == 1 ? frameH : std::max<int64_t>(1, frameH * layout.scale / dpi);
    int rasterDpi = RasterResolution(dpi);
    RenderBox box;
    box.dpi = rasterDpi;
    box.channels = info.colour ? 3 : 1;
    box.oneBit = !info.colour;
    box.width = static_cast<int>(std::max<int64_t>(1, cellW * rasterDpi / dpi));
    box.height = static_cast<int>(std::max<int64_t>(1, cellH * rasterDpi / dpi));
    if (frameW <= 0 || frameH <= 0 || box.width > 40000 || box.height > 40000)
        Fail("the paper's printable area is out of range");

    // Documents are opened once before the job, so a file that can't be printed fails before
    // any output, and the job's length is known for the progress.
    std::vector<std::unique_ptr<SpoolFile>> spools;
    std::vector<OpenedDocument> docs;
    // A job of one document renders from the source its count came from: Ghostscript starts
    // once. With more, each is opened again in turn, as one interpreter is all there is.
    std::unique_ptr<PageSource> only;
    for (const Document &d : req.documents) {
        OpenedDocument od;
        od.name = d.path == "-" ? "standard input" : d.path;
        if (d.path == "-") {
            spools.push_back(std::make_unique<SpoolFile>());
            od.path = spools.back()->path();
        } else {
            od.path = d.path;
        }
        uint8_t head[1024];
        ssize_t n = -1;
        int fd = open(od.path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd >= 0) {
            n = read(fd, head, sizeof head);
            close(fd);
        }
        if (n < 0) Fail("%s: %s", od.name.c_str(), strerror(errno));
        od.type = DetectType(od.name, d.type, head, static_cast<size_t>(n));
        std::unique_ptr<PageSource> src =
            OpenDocument(od.path, od.name, od.type, req.password, box);
        od.count = src->Count();
        if (req.documents.size() == 1) only = std::move(src);
        docs.push_back(std::move(od));
    }
    // Pages printed: those of the job's pages that the ranges select.
    int printedTotal = req.documents.empty() ? req.testPages : 0;
    {
        int logical = 0;
        for (const auto &od : docs) {
            if (od.count < 0) {
                printedTotal = -1;
                break;
            }
            for (int i = 0; i < od.count; ++i) printedTotal += InRanges(ranges, ++logical);
        }
    }
    if (printedTotal == 0)
        Fail("--page-ranges %s: selects none of the pages", req.pageRanges.c_str());

    if (!Q417_SetOutputCallback(printer.handle(), Sink::Write, &sink))
        Fail("the library refused the output");

    // The record image of block 1: the page geometry and counters are ours to give.
    std::vector<uint8_t> info1(SPLDEVINFO_SIZE);
    auto *rec = reinterpret_cast<SPLDEVINFO *>(info1.data());
    rec->cxPaper = g.cxPaper, rec->cyPaper = g.cyPaper;
    rec->cxPrintable = g.cxPrintable, rec->cyPrintable = g.cyPrintable;
    rec->cxMargin = g.cxMargin, rec->cyMargin = g.cyMargin;
    rec->nPage = 1;
    rec->nSubPage = 0;
    if (DDIGetDWord(pdm, DDI_WATERMARK) != 0) rec->bJobFlags = JOB_WATERMARK;
    std::u16string wname = Widen(req.jobName.empty() ? "q417 job" : req.jobName);

    Job job(printer.handle(), &sink);
    job.Send(TAG_DEVINFO, info1.data(), info1.size(), "device record");
    job.Send(TAG_DEVMODE, dm.data(), dm.size(), "device mode");
    job.Send(TAG_JOBNAME, wname.data(), wname.size() * 2, "job name");
    int sheetsDone = 0;
    auto startPage = [&](int p) {
        if (p > 0) {
            // Only the counters change: a block that stops behind nSubPage leaves the
            // library's own fields (flags, layout, language state) as they are. It drops the
            // device mode copy, so that follows again.
            rec->nPage = static_cast<DWORD>(p + 1);
            rec->nSubPage = static_cast<DWORD>(p);
            job.Send(TAG_DEVINFO, info1.data(), offsetof(SPLDEVINFO, nSubPage) + 4,
                     "device record");
            job.Send(TAG_DEVMODE, dm.data(), dm.size(), "device mode");
        }
        job.StartPage(p + 1);
        if (req.progress) req.progress(p + 1, printedTotal);
    };
    auto endPage = [&](int p) {
        job.EndPage(p + 1);
        if ((p + 1) % layout.n == 0) {
            sheetsDone = (p + 1) / layout.n;
            if (req.sheetDone) req.sheetDone(sheetsDone);
        }
    };

    int pages = 0;
    if (docs.empty()) {
        for (int p = 0; p < req.testPages; ++p) {
            startPage(p);
            int cell = layout.n > 1 ? p % layout.n : 0;
            info.page = p + 1;
            info.sheet = p / layout.n + 1;
            info.cell = cell;
            job.Data(RenderTestPage(info, g, layout, cell), sink);
            endPage(p);
        }
        pages = req.testPages;
    } else {
        // The renderer walks the documents in order, one open at a time.
        RenderJob render = [&](const auto &band) {
            int logical = 0, printed = 0;
            for (const auto &od : docs) {
                std::unique_ptr<PageSource> src =
                    only ? std::move(only)
                         : OpenDocument(od.path, od.name, od.type, req.password, box);
                for (int i = 0; od.count < 0 || i < od.count; ++i) {
                    if (!InRanges(ranges, ++logical)) {
                        if (od.count < 0 && !ranges.empty() && ranges.back().last &&
                            logical > ranges.back().last)
                            break;
                        continue;
                    }
                    int p = printed;
                    bool oneBit = src->OneBit();
                    bool rendered = src->Render(
                        i, [&](std::vector<uint8_t> &rows, int y, int count, size_t stride) {
                            band(p, oneBit, rows, y, count, stride);
                        });
                    if (!rendered) break;
                    ++printed;
                }
            }
        };
        Pipeline pipe(std::move(render), 2);
        std::string out;
        std::optional<RasterEncoder> enc;
        int current = -1;
        Band b;
        while (pipe.Next(b)) {
            if (b.page != current) {
                current = b.page;
                startPage(current);
                int cell = layout.n > 1 ? current % layout.n : 0;
                out = kEnterPcl;
                enc.emplace(box.width, box.height, info.colour, layout.origins[cell].first,
                            layout.origins[cell].second, dpi, rasterDpi, out);
            }
            for (int r = 0; r < b.count; ++r) {
                const uint8_t *row = b.rows.data() + r * b.stride;
                if (b.oneBit)
                    enc->Bits(row);
                else
                    enc->Row(row, box.channels);
            }
            if (out.size() >= 256 * 1024) {
                job.Data(out, sink);
                out.clear();
            }
            if (b.y + b.count >= box.height) {
                enc->Finish();
                enc.reset();
                job.Data(out, sink);
                out.clear();
                endPage(current);
                ++pages;
            }
        }
        if (pages == 0) Fail("--page-ranges %s: selects none of the pages", req.pageRanges.c_str());
    }
    if (req.sheetDone && pages > 0 && (pages + layout.n - 1) / layout.n > sheetsDone)
        req.sheetDone((pages + layout.n - 1) / layout.n);
    job.End();
    sink.Finish();
}

} // namespace q417::pages
