// The renderer's half of q417 print: what the graphics half of a driver does for the library.
// It places each logical page in its N-up cell and draws test pages or images as PCL.
#pragma once

#include "image.h"
#include "settings.h"

#include <cstdint>
#include <string>
#include <vector>

namespace q417::pages {

// The N-up grid worked out the way the library works it out, so that content lands in the
// cells whose origins the library uses for the sheet and the watermark.
struct NupLayout {
    int n = 1; // pages per sheet actually used
    int columns = 1, rows = 1;
    bool keepOrient = true;
    int scale = 0; // a logical pixel is scale / dpi sheet pixels
    int dpi = 0;
    int cxSubPage = 0, cySubPage = 0;
    std::vector<std::pair<int, int>> origins; // per cell, sheet pixels
};
NupLayout MakeNupLayout(int pagesPerSheet, int orientation, const PageGeometry &g, int dpi);

struct PageInfo {
    int page = 1;  // logical page number, from 1
    int sheet = 1; // physical sheet, from 1
    int cell = 0;  // cell on the sheet, from 0
    std::string paper, orientation;
    bool colour = false; // colour job: raster rows are 24-bit RGB
};

// PCL for one logical page, in the printer's units (its resolution): a test page that shows
// the page number, the frame of the printable area and a scale, or the image scaled to fit.
std::string RenderTestPage(const PageInfo &info, const PageGeometry &g, const NupLayout &nup,
                           int cell);
std::string RenderImagePage(const Image &img, const PageInfo &info, const PageGeometry &g,
                            const NupLayout &nup, int cell);

} // namespace q417::pages
