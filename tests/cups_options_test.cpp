// The printer's offer under PPD and IPP names, the PPD made of it, and job options back to
// settings: the names a CUPS queue shows for the sample printers, the PPD that CUPS and a print
// dialog act on, the job options a filter receives mapped to the device mode, and
// the options that must be refused with a line that names them.
#include "config/config.h"
#include "options.h"
#include "ppd_writer.h"
#include "tests/support/printer_harness.h"

#include <tuple>

namespace {

using namespace q417;
using namespace q417::pages;

const std::string kShare = Q417_SOURCE_DIR "/share";

// A sample description copied out of the source tree (the library writes its compiled
// configuration beside the description). The library keeps the first printer's configuration
// for the life of a process: a test that describes another printer starts from none.
std::string Sample(const std::string &name) {
    DiscardDeviceInfo(nullptr);
    std::string dir = ::testing::TempDir() + "/q417-cups-samples";
    mkdir(dir.c_str(), 0755);
    q417test::WriteFile(dir + "/" + name, q417test::ReadFile(kShare + "/" + name));
    return dir + "/" + name;
}

// The IPP names of the choices, in order.
template <typename T>
std::string Names(const std::vector<T> &v) {
    std::string s;
    for (const Choice &c : v) s += (s.empty() ? "" : " ") + c.ipp;
    return s;
}

struct Colour : ::testing::Test {
    std::string pdd = Sample("qcl4100.pdd");
    Printer printer{pdd, "socket://127.0.0.1:9100"};
    Capabilities caps = Describe(printer, kShare);
};

// The offer under IPP names, and its PPD that CUPS and a print dialog act on.
TEST_F(Colour, OffersItsOptionsUnderIppNamesAndInItsPpdThatRunsOurFilter) {
    EXPECT_EQ(Names(caps.papers),
              "iso_a4_210x297mm na_letter_8.5x11in na_legal_8.5x14in iso_a5_148x210mm "
              "na_executive_7.25x10.5in na_number-10_4.125x9.5in iso_dl_110x220mm");
    EXPECT_EQ(Names(caps.sources), "tray-1 tray-2 manual envelope auto");
    EXPECT_EQ(Names(caps.mediaTypes), "stationery bond transparency photographic-glossy");
    EXPECT_EQ(Names(caps.bins), "face-down face-up");
    EXPECT_EQ(caps.custom.ippMax, "custom_max_8.5x14in");

    // The PPD, as a golden file that names the writer's version and the description's path
    // by marks.
    std::string ppd = cups::MakePpd(caps, {"qcl4100.pdd", ""});
    EXPECT_EQ(ppd, q417test::Filled(q417test::ReadFile(Q417_TEST_DATA "/cups/qcl4100.ppd"),
                                    {{"@VERSION@", Q417_VERSION}, {"@PDD@", pdd}}));

    // Texts: a colon would end a translation, a quote a value; beyond Latin-1 is '?'.
    caps.papers[0].text = "A4: 210 × 297 mm – ISO";
    caps.watermarks[0].text = "Entwurf für \"Büro\"";
    ppd = cups::MakePpd(caps, {"qcl4100.pdd", ""});
    EXPECT_NE(ppd.find("*PageSize A4/A4<3A> 210 \xD7 297 mm ? ISO: "), std::string::npos);
    EXPECT_NE(ppd.find("*Watermark Draft/Entwurf f\xFCr <22>B\xFCro<22>: \"\""), std::string::npos);
    EXPECT_THROW(cups::MakePpd(caps, {"my \"printer\".pdd", ""}), Error);
    EXPECT_EQ(cups::PpdFileName("/x/My-Printer 2000.pdd"), "myprinte.ppd");
}

// Options as cupsd writes them for a filter, read as the filter reads them.
OptionList Parse(const char *text) {
    cups_option_t *o = nullptr;
    int n = cupsParseOptions(text, 0, &o);
    OptionList list;
    for (int i = 0; i < n; ++i) list.emplace_back(o[i].name, o[i].value);
    cupsFreeOptions(n, o);
    return list;
}

// The settings a mapping set, "name=value" each; what no option asked for is left out.
std::string Changed(const JobOptions &j) {
    const JobSettings &s = j.settings;
    const std::pair<const char *, std::string> texts[] = {
        {"paper", s.paper},      {"source", s.source},         {"media", s.media},
        {"bin", s.bin},          {"resolution", s.resolution}, {"orientation", s.orientation},
        {"duplex", s.duplex},    {"emulation", s.emulation},   {"custom", s.custom},
        {"ranges", j.pageRanges}};
    const std::tuple<const char *, int, int> numbers[] = {{"copies", s.copies, -1},
                                                          {"collate", s.collate, 0},
                                                          {"nup", s.nup, -1},
                                                          {"watermark", s.watermark, -1},
                                                          {"first", s.watermarkFirstPage, 0}};
    std::string out;
    for (const auto &[name, value] : texts)
        if (!value.empty()) out += std::string(" ") + name + "=" + value;
    for (const auto &[name, value, none] : numbers)
        if (value != none) out += std::string(" ") + name + "=" + std::to_string(value);
    return out.empty() ? out : out.substr(1);
}

// Options as cupsd passes them (IPP names, the PPD names it derives, or both): the settings
// they set, or "!" and a part of the line that refuses them; and where a row names one, the
// device mode's value that the settings then select.
TEST_F(Colour, MapsJobOptionsToSettings) {
    struct Case {
        const char *options, *want;
        DWORD id = 0, value = 0;
    } cases[] = {
        {"media=iso_a4_210x297mm PageSize=A4 sides=two-sided-long-edge number-up=4 "
         "Watermark=Confidential InputSlot=Tray2",
         "paper=A4 source=Tray2 duplex=long nup=4 watermark=2"},
        {"Duplex=DuplexTumble ColorModel=Gray copies=3 FirstPageWatermark=True watermark=draft",
         "duplex=short emulation=PCL5e copies=3 watermark=1 first=1"},
        // media naming size, source and type at once; a PPD option beats its IPP twin
        {"media=Letter,manual,Transparency output-bin=face-up OutputBin=FaceDown "
         "printer-resolution=300dpi",
         "paper=Letter source=Manual media=Transparency bin=FaceDown resolution=300dpi"},
        // a size by its dimensions, in media-col and as a PWG name of a size the PPD calls
        // otherwise
        {"media-col={media-size={x-dimension=21590 y-dimension=35560} media-source=auto "
         "media-type=photographic-glossy}",
         "paper=Legal source=Auto media=Glossy"},
        {"media=na_number-10_4.125x9.5in print-color-mode=color orientation-requested=4 "
         "page-ranges=1-3,7,10-",
         "paper=Env10 orientation=landscape emulation=PCL5eC ranges=1-3,7,10-"},
        // sizes the description has no paper for: its custom size
        {"PageSize=Custom.5x7in sides=one-sided", "duplex=none custom=360.00x504.00"},
        {"media=oe_photo_5x7in Watermark=None", "custom=360.00x504.00 watermark=0"},
        {"Resolution=1200x1200dpi landscape=true Collate=True",
         "resolution=1200dpi orientation=landscape collate=1"},
        {"multiple-document-handling=separate-documents-uncollated-copies", ""},
        // options of other programs are left alone
        {"job-uuid=urn:uuid:1 fit-to-page=true", ""},
        // what the settings interface then holds: the rows, the custom size
        {"media=na_letter_8.5x11in", "paper=Letter", DDI_PAPERSIZE, 1},
        {"InputSlot=Envelope", "source=Envelope", DDI_PAPERSOURCE, 3},
        {"output-bin=face-up", "bin=FaceUp", DDI_PAPERDEST, 1},
        {"media-type=photographic-glossy", "media=Glossy", DDI_MEDIATYPE, 3},
        {"Resolution=1200dpi", "resolution=1200dpi", DDI_RESOLUTION, 2},
        {"number-up=6", "nup=6", DDI_PAGESPERSHEET, 6},
        {"watermark=copy", "watermark=3", DDI_WATERMARK, 3},
        {"PageSize=Custom.300x500", "custom=300.00x500.00", DDI_CUSTOMPAPER, 1},
        {"PageSize=Custom.300x500", "custom=300.00x500.00", DDI_CUSTWIDTH, 3000},
        {"media=custom_any_150x200mm", "custom=425.20x566.93", DDI_CUSTHEIGHT, 5669},
        // what the printer can't do
        {"PageSize=A3", "!PageSize \"A3\": no such paper"},
        {"media=iso_a3_297x420mm", "!outside the custom size range"},
        {"InputSlot=Tray9", "!InputSlot \"Tray9\": no such source (the printer has: Tray1"},
        {"media-source=top", "!media-source \"top\""},
        {"OutputBin=Stacker", "!no such output bin"},
        {"Resolution=450dpi", "!450dpi"},
        {"sides=both", "!sides \"both\""},
        {"number-up=3", "!number-up \"3\""},
        {"copies=0", "!copies \"0\""},
        {"page-ranges=3-1", "!page-ranges \"3-1\""},
        {"page-ranges=1,", "!page-ranges"},
        {"Watermark=Secret", "!no such watermark (QMWMARK.INI has: None, Draft"},
        {"orientation-requested=9", "!orientation-requested \"9\""},
        {"media-col={media-size={x-dimension=0}}", "!media-size"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.options);
        std::string got, want = c.want;
        try {
            JobOptions j = MapOptions(caps, Parse(c.options));
            got = Changed(j);
            std::vector<uint8_t> dm = printer.NewDevMode();
            ApplySettings(DM(dm), j.settings);
            EXPECT_EQ(c.id ? DDIGetDWord(DM(dm), c.id) : 0u, c.value);
        } catch (const Error &e) {
            got = std::string("!") + e.what();
        }
        // a refusal's line need only hold the part the row gives
        bool refused = want[0] == '!' && got[0] == '!';
        EXPECT_TRUE(refused ? got.find(want.substr(1)) != std::string::npos : got == want)
            << got << "\nwanted: " << want;
    }
}

TEST(CupsOptions, MonochromeModelPrintsOneSidedAndKeepsItsLanguage) {
    Printer printer(Sample("qml2400.pdd"), "socket://127.0.0.1:9100");
    Capabilities caps = Describe(printer, kShare);
    EXPECT_FALSE(caps.duplex);
    EXPECT_FALSE(caps.colour);
    EXPECT_EQ(caps.papers[caps.defaultPaper].ppd, "Letter");
    EXPECT_EQ(Names(caps.bins), "top");
    EXPECT_EQ(Changed(MapOptions(caps, {{"sides", "two-sided-long-edge"}, {"ColorModel", "RGB"}})),
              "duplex=none");
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
    EXPECT_TRUE(ParsePwgSize("na_letter_8.5x11in", w, h) && w == 21590 && h == 27940) << w << h;
    EXPECT_TRUE(ParsePwgSize("custom_max_215.9x355.6mm", w, h) && h == 35560) << h;
    for (const char *bad : {"A4", "iso_a4", "iso_a4_210x297", "x_1x2cm", "_1x2mm", "a_b_0x2mm"})
        EXPECT_FALSE(ParsePwgSize(bad, w, h)) << bad;
}

// QMWMARK.INI read as the library reads it: numbered among the lines that parse. The file has
// lines before the section and in another section, one of eleven fields, a run of commas that
// counts once, a comment, a key with no value, a label too long, a quoted value, a key that an
// earlier one answers for, the longest face and label, and a second section of the same name.
TEST(CupsOptions, WatermarkDefinitionsAreNumberedAsTheLibraryNumbersThem) {
    const std::string path = Q417_TEST_DATA "/cups/watermarks.ini";
    std::string got;
    for (const Watermark &w : ReadWatermarks(path))
        got += std::to_string(w.index) + " " + w.key + " " + w.label + " " + w.ppd + " " + w.ipp +
               "\n";
    EXPECT_EQ(got, "1 One FIRST One one\n"
                   "2 Commas DOUBLED Commas commas\n"
                   "3 Quoted Q Quoted quoted\n"
                   "4 one FIRST one_2 one-2\n"
                   "5 Max " +
                       std::string(50, 't') + " Max max\n");
    EXPECT_TRUE(ReadWatermarks(path + ".missing").empty());
}

} // namespace
