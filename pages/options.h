// What a printer description offers, under the names that PPD files and IPP use, and the way
// back: job options named the PPD way or the IPP way to JobSettings. The PPD writer, the CUPS
// filter and the printer application all take their names from here, so a paper that the PPD
// calls "A4" and IPP "iso_a4_210x297mm" is the same row of the description everywhere.
#pragma once

#include "printer.h"
#include "settings.h"

#include <string>
#include <utility>
#include <vector>

namespace q417::pages {

// One option of a family (paper, source, media type, output bin, resolution, watermark).
struct Choice {
    int index = -1;   // the description's row: what the settings interface selects
    std::string key;  // the description's own name
    std::string text; // what a user sees: the translation, else the key
    std::string ppd;  // PPD choice keyword, unique within its option
    std::string ipp;  // IPP keyword (a PWG name), unique within its attribute
};

struct Paper : Choice {
    double width = 0, length = 0; // points, portrait
    // Printable area as PPD's ImageableArea gives it: points from the lower left corner.
    double left = 0, bottom = 0, right = 0, top = 0;
    int pwgWidth = 0, pwgLength = 0; // hundredths of a millimetre, as IPP's media-size
};

struct Resolution : Choice {
    int x = 0, y = 0; // dots per inch
};

// The description's custom paper, when it has one.
struct CustomRange {
    bool allowed = false;
    int index = -1;                                  // the custom paper's row
    std::string key;                                 // and its name
    double minWidth = 0, minLength = 0;              // points
    double maxWidth = 0, maxLength = 0;              // points
    double defWidth = 0, defLength = 0;              // points
    double left = 0, bottom = 0, right = 0, top = 0; // margins, points
    std::string ippMin, ippMax;                      // "custom_min_..." and "custom_max_..." names
};

// A watermark definition of QMWMARK.INI. `index` is the device mode's watermark number (1 for
// the first definition that parses); `key` and `text` its key in the file, which names it.
struct Watermark : Choice {
    std::string label; // what it prints
    std::string face;  // the TrueType face it prints in
};

struct Capabilities {
    std::string pdd;           // the description's path
    std::string model;         // the product name it gives
    std::vector<Paper> papers; // every paper but the custom one, in the description's order
    CustomRange custom;
    std::vector<Choice> sources, mediaTypes, bins;
    std::vector<Resolution> resolutions;
    // Defaults as positions in the vectors above; -1 where a family is empty.
    int defaultPaper = -1, defaultSource = -1, defaultMediaType = -1, defaultBin = -1,
        defaultResolution = -1;
    bool duplex = false; // the model prints on both sides
    bool colour = false; // a colour model (PCL 5eC); else monochrome
    bool collate = false;
    std::vector<Watermark> watermarks; // in the device mode's numbering
};

// Reads the printer's offer through the settings interface (on a device mode of its own) and
// the watermark definitions of QMWMARK.INI in `windowsDir` (none when it has no such file).
// Fail()s when the library can't build a configuration from the description. The library
// keeps the first printer's configuration for the life of the process, so a program that
// describes several printers describes each in a process of its own.
Capabilities Describe(Printer &printer, const std::string &windowsDir);

// The definitions of an INI file as the library numbers them: the keys of the first section
// "Watermarks" in file order, each value twelve comma-separated fields; a definition that
// doesn't parse takes no number. A file that can't be read gives none.
std::vector<Watermark> ReadWatermarks(const std::string &iniPath);

// The options both directions know, by their PPD and IPP names. One table: the PPD writer
// names its options from it and MapOptions reads job options by it.
enum class Option {
    PageSize,
    InputSlot,
    MediaType,
    OutputBin,
    Resolution,
    Duplex,
    ColorModel,
    Collate,
    Copies,
    NumberUp,
    Orientation,
    PageRanges,
    Watermark,
    WatermarkFirstPage
};
struct OptionName {
    Option option;
    const char *ppd; // PPD main keyword; null when PPD has none
    const char *ipp; // IPP attribute; null when IPP has none
};
extern const OptionName kOptionNames[];
extern const size_t kOptionNameCount;
const OptionName &NameOf(Option o);

// IPP and PPD words of the sides/Duplex option.
struct SidesName {
    const char *duplex; // JobSettings.duplex
    const char *ppd;    // Duplex choice
    const char *ipp;    // sides keyword
};
extern const SidesName kSides[3];

// Job options as CUPS hands them to a filter (name=value, in order; `media-col` as IPP's
// collection text) to JobSettings. A PPD-named option wins over its IPP twin when both are
// given. Options that this printer can't honour (a name it doesn't have, number-up 3) Fail()
// with a line naming the option, the value and what the printer offers; options of other
// programs are left alone. `pageRanges` is IPP's page-ranges, checked.
struct JobOptions {
    JobSettings settings;
    std::string pageRanges;
};
using OptionList = std::vector<std::pair<std::string, std::string>>;
JobOptions MapOptions(const Capabilities &caps, const OptionList &options);

// PWG self-describing size names ("iso_a4_210x297mm", "custom_foo_4x6in"): the dimensions in
// hundredths of a millimetre, false when `name` is none.
bool ParsePwgSize(const std::string &name, int &width, int &length);
// A PWG name for a size: the standard name where the size is a known one (and its PPD name
// in `ppd`), else "om_<name>_<w>x<h>mm" / "oe_<name>_<w>x<h>in" as CUPS makes them.
std::string PwgSizeName(const std::string &key, int width, int length, std::string *ppd);

} // namespace q417::pages
