// The printer's offer under PPD and IPP names, and job options back to settings: the names
// a CUPS queue shows for the sample printers, the job options a filter receives mapped to the
// device mode, and the options that must be refused with a line that names them.
#include "config/config.h"
#include "options.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sys/stat.h>
#include <string>
#include <vector>

namespace {

using namespace q417::pages;

const std::string kShare = Q417_SOURCE_DIR "/share";

// A sample description copied out of the source tree: the library writes its compiled
// configuration beside the description.
std::string Sample(const std::string &name) {
    std::string dir = ::testing::TempDir() + "/q417-cups-samples";
    mkdir(dir.c_str(), 0755);
    std::ifstream in(kShare + "/" + name, std::ios::binary);
    std::ofstream(dir + "/" + name, std::ios::binary) << in.rdbuf();
    return dir + "/" + name;
}

std::string Names(const std::vector<Choice> &v, bool ipp) {
    std::string s;
    for (const auto &c : v) s += (s.empty() ? "" : " ") + (ipp ? c.ipp : c.ppd);
    return s;
}
template <typename T>
std::vector<Choice> Plain(const std::vector<T> &v) {
    return std::vector<Choice>(v.begin(), v.end());
}

// The library keeps the first printer's configuration for the life of a process; a test that
// describes another printer starts from none.
struct FreshConfig {
    FreshConfig() { DiscardDeviceInfo(nullptr); }
};

struct Colour : ::testing::Test {
    FreshConfig fresh;
    Printer printer{Sample("qcl4100.pdd"), "socket://127.0.0.1:9100"};
    Capabilities caps = Describe(printer, kShare);
};

TEST_F(Colour, OffersItsPapersTraysMediaBinsAndResolutionsUnderStandardNames) {
    EXPECT_EQ(caps.model, "Quillmark CL 4100");
    EXPECT_TRUE(caps.duplex);
    EXPECT_TRUE(caps.colour);
    EXPECT_EQ(Names(Plain(caps.papers), false), "A4 Letter Legal A5 Executive Env10 EnvDL");
    EXPECT_EQ(Names(Plain(caps.papers), true),
              "iso_a4_210x297mm na_letter_8.5x11in na_legal_8.5x14in iso_a5_148x210mm "
              "na_executive_7.25x10.5in na_number-10_4.125x9.5in iso_dl_110x220mm");
    EXPECT_EQ(caps.papers[caps.defaultPaper].ppd, "A4");
    EXPECT_EQ(caps.papers[0].text, "A4 210 x 297 mm");
    // Letter's portrait printable area "18 18 594 774", from the lower left as PPD counts it.
    const Paper &letter = caps.papers[1];
    EXPECT_DOUBLE_EQ(letter.width, 612);
    EXPECT_DOUBLE_EQ(letter.length, 792);
    EXPECT_DOUBLE_EQ(letter.left, 18);
    EXPECT_DOUBLE_EQ(letter.bottom, 18);
    EXPECT_DOUBLE_EQ(letter.right, 594);
    EXPECT_DOUBLE_EQ(letter.top, 774);
    EXPECT_EQ(Names(caps.sources, true), "tray-1 tray-2 manual envelope auto");
    EXPECT_EQ(caps.sources[caps.defaultSource].ppd, "Tray1");
    EXPECT_EQ(Names(caps.mediaTypes, true), "stationery bond transparency photographic-glossy");
    EXPECT_EQ(Names(caps.bins, true), "face-down face-up");
    EXPECT_EQ(Names(Plain(caps.resolutions), false), "300dpi 600dpi 1200dpi");
    EXPECT_EQ(caps.resolutions[caps.defaultResolution].x, 600);
    ASSERT_TRUE(caps.custom.allowed);
    EXPECT_DOUBLE_EQ(caps.custom.minWidth, 216);
    EXPECT_DOUBLE_EQ(caps.custom.maxLength, 1008);
    EXPECT_EQ(caps.custom.ippMax, "custom_max_8.5x14in");
    EXPECT_EQ(Names(Plain(caps.watermarks), false), "Draft Confidential Copy");
    EXPECT_EQ(caps.watermarks[1].label, "CONFIDENTIAL");
    EXPECT_EQ(caps.watermarks[1].index, 2);
}

// Options as cupsd passes them (IPP names, the PPD names it derives, or both) and what the
// device mode is given.
TEST_F(Colour, MapsJobOptionsToSettings) {
    // What a case leaves out is what the settings hold when no option asks.
    struct Case {
        OptionList options;
        const char *paper = "", *source = "", *media = "", *bin = "", *resolution = "",
                   *duplex = "", *emulation = "", *custom = "";
        int copies = -1, nup = -1, watermark = -1;
        bool first = false;
        const char *orientation = "", *ranges = "";
    } cases[] = {
        {.options = {{"media", "iso_a4_210x297mm"},
                     {"PageSize", "A4"},
                     {"sides", "two-sided-long-edge"},
                     {"number-up", "4"},
                     {"Watermark", "Confidential"},
                     {"InputSlot", "Tray2"}},
         .paper = "A4",
         .source = "Tray2",
         .duplex = "long",
         .nup = 4,
         .watermark = 2},
        {.options = {{"Duplex", "DuplexTumble"},
                     {"ColorModel", "Gray"},
                     {"copies", "3"},
                     {"FirstPageWatermark", "True"},
                     {"watermark", "draft"}},
         .duplex = "short",
         .emulation = "PCL5e",
         .copies = 3,
         .watermark = 1,
         .first = true},
        // media naming size, source and type at once; a PPD option beats its IPP twin
        {.options = {{"media", "Letter,manual,Transparency"},
                     {"output-bin", "face-up"},
                     {"OutputBin", "FaceDown"},
                     {"printer-resolution", "300dpi"}},
         .paper = "Letter",
         .source = "Manual",
         .media = "Transparency",
         .bin = "FaceDown",
         .resolution = "300dpi"},
        // a size by its dimensions, in media-col and as a PWG name of a size the PPD calls
        // otherwise
        {.options = {{"media-col", "{media-size={x-dimension=21590 y-dimension=35560} "
                                   "media-source=auto media-type=photographic-glossy}"}},
         .paper = "Legal",
         .source = "Auto",
         .media = "Glossy"},
        {.options = {{"media", "na_number-10_4.125x9.5in"},
                     {"print-color-mode", "color"},
                     {"orientation-requested", "4"},
                     {"page-ranges", "1-3,7,10-"}},
         .paper = "Env10",
         .emulation = "PCL5eC",
         .orientation = "landscape",
         .ranges = "1-3,7,10-"},
        // sizes the description has no paper for: its custom size
        {.options = {{"PageSize", "Custom.5x7in"}, {"sides", "one-sided"}},
         .duplex = "none",
         .custom = "360.00x504.00"},
        {.options = {{"media", "oe_photo_5x7in"}, {"Watermark", "None"}},
         .custom = "360.00x504.00",
         .watermark = 0},
        {.options = {{"Resolution", "1200x1200dpi"}, {"landscape", "true"}, {"Collate", "True"}},
         .resolution = "1200dpi",
         .orientation = "landscape"},
    };
    int n = 0;
    for (const Case &c : cases) {
        SCOPED_TRACE(n++);
        JobOptions j = MapOptions(caps, c.options);
        const JobSettings &s = j.settings;
        EXPECT_EQ(s.paper, c.paper);
        EXPECT_EQ(s.source, c.source);
        EXPECT_EQ(s.media, c.media);
        EXPECT_EQ(s.bin, c.bin);
        EXPECT_EQ(s.resolution, c.resolution);
        EXPECT_EQ(s.duplex, c.duplex);
        EXPECT_EQ(s.emulation, c.emulation);
        EXPECT_EQ(s.custom, c.custom);
        EXPECT_EQ(s.copies, c.copies);
        EXPECT_EQ(s.nup, c.nup);
        EXPECT_EQ(s.watermark, c.watermark);
        EXPECT_EQ(s.watermarkFirstPage, c.first);
        EXPECT_EQ(s.orientation, c.orientation);
        EXPECT_EQ(j.pageRanges, c.ranges);
    }
    EXPECT_TRUE(MapOptions(caps, {{"Collate", "True"}}).settings.collate);
    EXPECT_FALSE(
        MapOptions(caps, {{"multiple-document-handling", "separate-documents-uncollated-copies"}})
            .settings.collate);
}

// What the mapping selects is what the settings interface then holds: the rows, the custom size.
TEST_F(Colour, SelectionsReachTheDeviceMode) {
    struct Case {
        OptionList options;
        DWORD id, want;
    } cases[] = {
        {{{"media", "na_letter_8.5x11in"}}, DDI_PAPERSIZE, 1},
        {{{"InputSlot", "Envelope"}}, DDI_PAPERSOURCE, 3},
        {{{"output-bin", "face-up"}}, DDI_PAPERDEST, 1},
        {{{"media-type", "photographic-glossy"}}, DDI_MEDIATYPE, 3},
        {{{"Resolution", "1200dpi"}}, DDI_RESOLUTION, 2},
        {{{"number-up", "6"}}, DDI_PAGESPERSHEET, 6},
        {{{"watermark", "copy"}}, DDI_WATERMARK, 3},
        {{{"PageSize", "Custom.300x500"}}, DDI_CUSTOMPAPER, 1},
        {{{"PageSize", "Custom.300x500"}}, DDI_CUSTWIDTH, 3000},
        {{{"media", "custom_any_150x200mm"}}, DDI_CUSTHEIGHT, 5669},
    };
    for (const Case &c : cases) {
        std::vector<uint8_t> dm = printer.NewDevMode();
        ApplySettings(DM(dm), MapOptions(caps, c.options).settings);
        EXPECT_EQ(DDIGetDWord(DM(dm), c.id), c.want) << c.options[0].second;
    }
}

TEST_F(Colour, RefusesWhatThePrinterCantDoNamingTheOption) {
    struct Case {
        OptionList options;
        const char *message; // a part of the line
    } cases[] = {
        {{{"PageSize", "A3"}}, "PageSize \"A3\": no such paper"},
        {{{"media", "iso_a3_297x420mm"}}, "outside the custom size range"},
        {{{"InputSlot", "Tray9"}}, "InputSlot \"Tray9\": no such source (the printer has: Tray1"},
        {{{"media-source", "top"}}, "media-source \"top\""},
        {{{"OutputBin", "Stacker"}}, "no such output bin"},
        {{{"Resolution", "450dpi"}}, "450dpi"},
        {{{"sides", "both"}}, "sides \"both\""},
        {{{"number-up", "3"}}, "number-up \"3\""},
        {{{"copies", "0"}}, "copies \"0\""},
        {{{"page-ranges", "3-1"}}, "page-ranges \"3-1\""},
        {{{"page-ranges", "1,"}}, "page-ranges"},
        {{{"Watermark", "Secret"}}, "no such watermark (QMWMARK.INI has: None, Draft"},
        {{{"orientation-requested", "9"}}, "orientation-requested \"9\""},
        {{{"media-col", "{media-size={x-dimension=0}}"}}, "media-size"},
    };
    for (const Case &c : cases) {
        try {
            MapOptions(caps, c.options);
            ADD_FAILURE() << c.message;
        } catch (const Error &e) {
            EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos) << e.what();
        }
    }
    // Options of other programs are left alone.
    EXPECT_NO_THROW(MapOptions(caps, {{"job-uuid", "urn:uuid:1"}, {"fit-to-page", "true"}}));
}

TEST(CupsOptions, MonochromeModelPrintsOneSidedAndKeepsItsLanguage) {
    FreshConfig fresh;
    Printer printer(Sample("qml2400.pdd"), "socket://127.0.0.1:9100");
    Capabilities caps = Describe(printer, kShare);
    EXPECT_FALSE(caps.duplex);
    EXPECT_FALSE(caps.colour);
    EXPECT_EQ(caps.papers[caps.defaultPaper].ppd, "Letter");
    EXPECT_EQ(Names(caps.bins, true), "top");
    JobOptions j = MapOptions(caps, {{"sides", "two-sided-long-edge"}, {"ColorModel", "RGB"}});
    EXPECT_EQ(j.settings.duplex, "none");
    EXPECT_EQ(j.settings.emulation, "");
}

// Names that CUPS would give a PPD's choices, and the ways sizes are written.
TEST(CupsOptions, SizeNames) {
    std::string ppd;
    struct Case {
        const char *key;
        int w, h;
        const char *pwg, *ppd;
    } cases[] = {
        {"A4", 20997, 29697, "iso_a4_210x297mm", "A4"},
        {"JB5", 18200, 25700, "jis_b5_182x257mm", "B5"},
        {"B5", 17600, 25000, "iso_b5_176x250mm", "ISOB5"},
        {"Photo4x6", 10160, 15240, "na_index-4x6_4x6in", "4x6"},
        {"PhotoBig", 12065, 17780, "oe_photo-big_4.75x7in", ""},
        {"Odd_Size.1", 10001, 20002, "om_odd-size-1_100.01x200.02mm", ""},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(PwgSizeName(c.key, c.w, c.h, &ppd), c.pwg);
        EXPECT_EQ(ppd, c.ppd);
    }
    int w = 0, h = 0;
    EXPECT_TRUE(ParsePwgSize("na_letter_8.5x11in", w, h));
    EXPECT_EQ(w, 21590);
    EXPECT_EQ(h, 27940);
    EXPECT_TRUE(ParsePwgSize("custom_max_215.9x355.6mm", w, h));
    EXPECT_EQ(h, 35560);
    for (const char *bad : {"A4", "iso_a4", "iso_a4_210x297", "x_1x2cm", "_1x2mm", "a_b_0x2mm"})
        EXPECT_FALSE(ParsePwgSize(bad, w, h)) << bad;
}

// QMWMARK.INI read as the library reads it: numbered among the lines that parse.
TEST(CupsOptions, WatermarkDefinitionsAreNumberedAsTheLibraryNumbersThem) {
    std::string path = ::testing::TempDir() + "/QMWMARK.INI";
    {
        std::ofstream f(path, std::ios::binary);
        f << "Stray=0,0,0,0,0,0,0,400,0,10,Face,Before the section\r\n"
             "[Other]\nA=0,0,0,0,0,0,0,400,0,10,Face,Elsewhere\n"
             "[watermarks]\n"
             "  One = 0,0,0,0,0,0,450,700,0,72,DejaVu Sans,FIRST  \n"
             "Short=0,0,0,0,0,0,450,700,0,72,DejaVu Sans\n"           // eleven fields
             "Commas=0,,0,0,0,0,0,450,700,0,72,DejaVu Sans,DOUBLED\n" // a run counts once
             "; a comment\n"
             "NoValue\n"
             "Long=0,0,0,0,0,0,0,400,0,10,Face,"
          << std::string(51, 'x')
          << "\n"
             "Quoted=\"0,0,0,0,0,0,0,400,0,10,Face,Q,\"\n"
             "one=0,0,0,0,0,0,0,400,0,10,Face,Shadowed\n" // the first "One" answers for it
             "Max=0,0,0,0,0,0,0,400,0,10,"
          << std::string(32, 'f') << "," << std::string(50, 't')
          << "\n[Watermarks]\nLater=0,0,0,0,0,0,0,400,0,10,Face,Second section\n";
    }
    auto w = ReadWatermarks(path);
    ASSERT_EQ(w.size(), 5u);
    struct Want {
        const char *key, *label, *ppd, *ipp;
    } want[] = {
        {"One", "FIRST", "One", "one"},
        {"Commas", "DOUBLED", "Commas", "commas"},
        {"Quoted", "Q", "Quoted", "quoted"},
        {"one", "FIRST", "one_2", "one-2"},
        {"Max", "tttttttttttttttttttttttttttttttttttttttttttttttttt", "Max", "max"},
    };
    for (size_t i = 0; i < w.size(); ++i) {
        EXPECT_EQ(w[i].index, static_cast<int>(i) + 1);
        EXPECT_EQ(w[i].key, want[i].key);
        EXPECT_EQ(w[i].label, want[i].label);
        EXPECT_EQ(w[i].ppd, want[i].ppd);
        EXPECT_EQ(w[i].ipp, want[i].ipp);
    }
    EXPECT_TRUE(ReadWatermarks(path + ".missing").empty());
    std::remove(path.c_str());
}

} // namespace
