// The one mapping from a job's settings, as a user names them, to the device mode: every
// front end (the command line, the CUPS filter, the printer application) sets a job through
// here, and only through the library's settings interface.
#pragma once

#include "q417/host_tools.h"

#include <cstdint>
#include <string>

namespace q417::pages {

// Settings as a user gives them. Empty texts and -1 numbers are "not given": the device
// mode's value stands.
struct JobSettings {
    std::string paper, source, bin, media, resolution; // option name, translation or index
    std::string orientation, duplex, emulation, custom;
    int copies = -1;
    bool collate = false;
    int nup = -1;
    int watermark = -1;
    bool watermarkFirstPage = false;
};

// Checks what can be checked without a printer (words, ranges, the custom size's form);
// FailSetting()s naming the setting and what it accepts. ApplySettings() checks it too.
// duplex takes none, long, short, and the IPP and PPD words (one-sided,
// two-sided-long-edge, two-sided-short-edge, DuplexNoTumble, DuplexTumble).
void CheckSettings(const JobSettings &s);

// Sets `s` into the device mode through DDISetDWord; FailSetting()s naming the
// setting and what it accepts.
void ApplySettings(DDIDEVMODE *pdm, const JobSettings &s);

// Page geometry in decipoints (720 to the inch), in the job's orientation, as block 1 carries
// it: cxPaper, cyPaper, cxPrintable, cyPrintable, cxMargin, cyMargin.
struct PageGeometry {
    int32_t cxPaper = 0, cyPaper = 0, cxPrintable = 0, cyPrintable = 0, cxMargin = 0, cyMargin = 0;
};

// The selected paper's geometry, in the job's orientation; Fail()s when the description
// leaves it incomplete.
PageGeometry Geometry(DDIDEVMODE *pdm);

} // namespace q417::pages
