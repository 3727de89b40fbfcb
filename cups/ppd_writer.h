// A PPD file for a printer description, so that CUPS shows the printer's own papers, trays,
// media, bins, resolutions, duplex, colour and watermarks, and runs our filter on its jobs.
#pragma once

#include "options.h"

#include <string>

namespace q417::cups {

// Where the filter finds what the PPD was made from.
struct PpdSource {
    std::string pdd;        // *q417PDD: the description, a path or a name in the data folder
    std::string windowsDir; // *q417WindowsDir: the folder of QMWMARK.INI; empty: the data folder
};

// The PPD (version 4.3) for `caps`. Fail()s for a text a PPD can't carry.
std::string MakePpd(const pages::Capabilities &caps, const PpdSource &source);

// The PPD of the description `pdd` (naming it by its absolute path) to `output`, a file that
// appears only when complete, or standard output for "-"; QMWMARK.INI is read in `windowsDir`.
void WritePpd(const std::string &pdd, const std::string &windowsDir, const std::string &output);

// "qcl4100.ppd" for ".../qcl4100.pdd": the PPD's file name, eight characters and ".ppd" at
// most, as PPD's PCFileName wants it.
std::string PpdFileName(const std::string &pdd);

// The names our PPDs give the filter, the printer's stream type and the PPD attributes.
extern const char kFilterName[];     // "q417pcl"
extern const char kStreamType[];     // the MIME type the filter writes
extern const char kPddAttr[];        // "q417PDD"
extern const char kWindowsDirAttr[]; // "q417WindowsDir"

} // namespace q417::cups
