// Documents as sources of pages: PDF (rendered by Ghostscript), PNG, JPEG, PNM, and CUPS, PWG
// and Apple raster streams. A page is rendered into a box of the size its cell has on the
// sheet, fitted keeping its shape, centred, turned a quarter when its orientation and the
// box's differ, and handed over in bands of rows so that no page needs to be held whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace q417::pages {

// The box a page is rendered into: pixels at `dpi`, 8 bits a sample, 255 white.
struct RenderBox {
    int width = 0, height = 0;
    int channels = 1; // 1 gray, 3 RGB
    int dpi = 300;
    // Gray for a monochrome printer: a source that dithers as it draws may hand over rows of
    // one bit a pixel instead, 1 ink, the ordered dither of pages/raster.h.
    bool oneBit = false;
};

// Rows [y, y + count) of the box, `stride` bytes apart, at the start of `rows`. Called in
// order, top down, covering the whole box. The callee may take the buffer, leaving another
// (of any size) in its place, so a band is handed on without a copy.
using BandFn = std::function<void(std::vector<uint8_t> &rows, int y, int count, size_t stride)>;

// How a page of `pageW` x `pageH` (any unit; its /Rotate already applied) lies in a box:
// clockwise quarter turns of the content (0 to 3), scale (box pixels a page unit) and the
// offset of the fitted page in the box.
struct Fit {
    int quarters = 0;
    double scale = 1, x = 0, y = 0;
};
// `rotate`: clockwise quarter turns the page asks for itself (a PDF page's /Rotate).
Fit FitPage(double pageW, double pageH, int rotate, int boxW, int boxH);

class PageSource {
  public:
    virtual ~PageSource() = default;
    // Pages in the document; -1 for a stream whose length shows only at its end.
    virtual int Count() = 0;
    // Whether its rows are one bit a pixel (see RenderBox::oneBit), or 8-bit samples.
    virtual bool OneBit() const { return false; }
    // Renders page `index` (from 0; each call's index above the last's) into the box the
    // source was opened for; false when the document has no such page (a stream that
    // ended). Fail()s naming the file.
    virtual bool Render(int index, const BandFn &band) = 0;
};

// Types by MIME name, as the front ends give them.
enum class DocType { Pdf, Png, Jpeg, Pnm, Raster };
// The MIME type's document kind, or the kind its first bytes show when `mime` is empty;
// Fail()s naming the file when neither tells.
DocType DetectType(const std::string &path, const std::string &mime, const uint8_t *head,
                   size_t size);

// Opens a document. `path` is a file (standard input is spooled to a file by the caller).
// Fail()s naming `name` (what the user gave) and the reason: not such a file, damaged,
// encrypted without the right password.
std::unique_ptr<PageSource> OpenDocument(const std::string &path, const std::string &name,
                                         DocType type, const std::string &password,
                                         const RenderBox &box);

// A PDF through Ghostscript. Ghostscript runs one instance at a time in a process: the source
// holds it from its opening to its end, so open one PDF at a time.
std::unique_ptr<PageSource> OpenPdf(const std::string &path, const std::string &name,
                                    const std::string &password, const RenderBox &box);

} // namespace q417::pages
