// Key by key: lines of a description and what they leave in the record. Each row is parsed
// behind the tag line; the effect is the record's summary (pdd_testutil.h), with "!key" for each
// line skipped or refused and "!calc(name)" for a paper whose area can't be completed.
#include "pdd_testutil.h"

namespace {

using namespace pddtest;

TEST(PddKeywords, LinesAndTheirEffects) {
    const std::string dim = "*PaperDimension A: \"100 200\"\n";
    const std::string size = "*CustomPageSize C/Custom: \"216 360 612 1008\"\n";
    const std::string def = "*DefaultCustomPageSize:  \"612 792\"\n";
    const std::string margins = "*CustomPageMargins:  \"12 14 16 18\"\n";
    const std::string custom = "custmin=2160x3600 custmax=6120x10080 custdef=6120x7920 "
                               "margins=120,140,160,180 "
                               "Cpaper[C|Custom||6120x7920|120,140,5840,7600|120,140,5840,7600]";
    const std::string n39(39, 'n'), n40(40, 'n'), P40(40, 'P');
    const struct {
        std::string lines, effect;
    } rows[] = {
        // Which lines are key lines and which key tokens match.
        {"*\tProduct: \"X\"", "product=X"}, // blanks and tabs before the key
        {"*  Product:\t\"X\"", "product=X"},
        {" *Product: \"X\"", " !"},                  // blank before the asterisk
        {"*%Product: \"X\"\n*\nProduct: \"X\"", ""}, // comment, lone asterisk, no asterisk
        {"*   ", " !"},                              // no key token
        {"*product: \"X\"", " !product:"},           // known key, wrong case
        {"*Product : \"X\"", " !Product"},           // blank before the colon
        {"*PageSize: Letter", " !PageSize:"},        // colon behind an option key
        {"*Product:  \"X\"", "product= "},           // Q: the second blank is the value
        {"*Product:\"X\"", " !Product:\"X\""},       // nothing ends the key token
        {"*Product: X", "product=X"},                // no quotes: the text to the end
        {"*Product: \"Abc", "product=Abc"},          // no closing quote
        {"*PageSize Letter/US Letter: 2 trailing words",
         "paper[Letter|US Letter|2|0x0] !calc(Letter)"},
        // 128 bytes count, the byte behind them is lost, the rest is a line of its own.
        {"*Product: \"" + std::string(117, 'P') + "\"*FileVersion: \"2\"",
         "product=" + P40 + " version=2 !"},
        {"*Product: \"" + std::string(114, 'P') + "\"\r\n*FileVersion: \"2\"",
         "product=" + P40 + " version=2"},
        {std::string("*Product: \"A\0B\"", 15) + "\n*FileVersion: \"2\"", "product=A version=2"},
        {"*Product: \"\xE9t\xE9\"", "product=\xE9t\xE9"},
        // Papers.
        // No colon: the name takes the line end, is stored without it and is never found again.
        {"*PageSize Letter\n*PageSize Letter", "paper[Letter|||0x0] paper[Letter|||0x0] !PageSize "
                                               "!PageSize !PageSize !PageSize !calc(Letter)"},
        // Two entries stored as "Letter": a later line names the first; each list has its own.
        {"*PageSize Letter\n*PageSize Letter\n*PaperDimension Letter: \"1 2\"\n"
         "*InputSlot Letter: 3\n*OutputBin Letter: 4\n*InputSlot Letter: 5",
         "paper[Letter|||10x20] paper[Letter|||0x0] tray[Letter||5] bin[Letter||4] !PageSize "
         "!PageSize !PageSize !PageSize !calc(Letter)"},
        {"*PageSize Letter:", "paper[Letter|||0x0] !PageSize !calc(Letter)"},
        {"*PageSize Letter: \"2\"", "paper[Letter||\"2\"|0x0] !calc(Letter)"},
        {"*PageSize A4.port: 26", "paper[A4.port||26|0x0] !calc(A4.port)"},
        {"*DefaultPageSize: unknown", ""},
        {"*DefaultPageSize: Legal", "paper*[Legal|||0x0] !calc(Legal)"},
        {"*DefaultPageSize:", " !DefaultPageSize:"},
        {"*PaperDimension A:  \"612 792\"", "paper[A|||6120x7920] !calc(A)"},
        // One number: the closing quote goes with the width and the height reads as 0.
        {"*PaperDimension A: \"612\"", "paper[A|||6120x0] !calc(A)"},
        {"*PaperDimension A: 612 792", "paper[A|||0x0] !PaperDimension !calc(A)"},
        {"*PaperDimension A: \"abc 1.5e2\"", "paper[A|||0x1500] !calc(A)"},
        {"*PaperDimension A: \"1e400 -1e400\"", "paper[A|||2147483647x-2147483648] !calc(A)"},
        // Imageable areas and their orientation suffixes.
        {dim + "*ImageableArea A.port: \"1 2 3 4\"\n*ImageableArea A.land: \"5 6 7 8\"",
         "paper[A|||1000x2000|10,20,20,20|60,50,20,20]"},
        {dim + "*ImageableArea A.port: \"1 2 3 4\"\n*ImageableArea A.land: \"5 6 7 8\"\n"
               "*ImageableArea A: \"1 2 3 4\"",
         "paper[A|||1000x2000|10,20,20,20|10,20,20,20]"},
        // Landscape alone: the same four numbers for portrait, not swapped back.
        {dim + "*ImageableArea A.land: \"1 2 3 4\"",
         "paper[A|||1000x2000|20,10,20,20|20,10,20,20]"},
        {dim + "*ImageableArea A.LANDSCAPE/Quer: \"1 2 3 4\"",
         "paper[A|Quer||1000x2000|20,10,20,20|20,10,20,20]"},
        {"*ImageableArea A.lan: \"1 2 3 4\"\n*ImageableArea A.foo: \"1 2 3 4\"",
         " !ImageableArea !ImageableArea"},
        {"*PageSize A.foo: 1\n*ImageableArea A.foo: \"1 2 3 4\"",
         "paper[A.foo||1|0x0] !ImageableArea !calc(A.foo)"},
        {dim + "*ImageableArea A: \"1 2\"", "paper[A|||1000x2000] !ImageableArea !calc(A)"},
        {dim + "*ImageableArea A: 1 2 3 4", "paper[A|||1000x2000] !ImageableArea !calc(A)"},
        // An area with a left edge of 0 is incomplete: the conversion stops there.
        {"*PaperDimension A: \"612 792\"\n*ImageableArea A: \"0 0 612 792\"\n"
         "*PaperDimension B: \"100 100\"\n*ImageableArea B: \"1 1 99 99\"",
         "paper[A|||6120x7920|0,0,6120,7920|0,0,6120,7920] "
         "paper[B|||1000x1000|10,10,990,990|10,10,990,990] !calc(A)"},
        // An edge the file never gave (0) leaves the area incomplete; edges that wrap.
        {dim + "*ImageableArea A: \"1 2 3 0\"",
         "paper[A|||1000x2000|10,20,30,0|10,20,30,0] !calc(A)"},
        {dim + "*ImageableArea A: \".1 -1e400 1e400 1e400\"",
         "paper[A|||1000x2000|1,-2147483648,2147483646,-1|1,-2147483648,2147483646,-1]"},
        // Sources, bins, media and translations.
        {"*InputSlot Tray1/upper:", "tray[Tray1|upper|]"},
        {"*OutputBin Top:\n*MediaType Plain:", "bin[Top||] media[Plain||] !OutputBin !MediaType"},
        {"*DefaultInputSlot: Lower\n*InputSlot Lower/lower: 4", "tray*[Lower|lower|4]"},
        {"*DefaultOutputBin: unknown\n*DefaultMediaType:", " !DefaultMediaType:"},
        {"*DefaultMediaType: Glossy/shiny", "media*[Glossy|shiny|]"},
        {"*InputSlot T: 1\n*InputSlot T/late: 2", "tray[T|late|2]"},
        {"*InputSlot T/first: 1\n*InputSlot T/second: 2", "tray[T|first|2]"},
        {"*InputSlot T/: 1\n*InputSlot T/x/y.z w: 2", "tray[T|x/y.z w|2]"},
        {"*InputSlot t: 1\n*InputSlot T: 2", "tray[t||1] tray[T||2]"},
        {"*InputSlot /empty: 1\n*InputSlot /: 2", "tray[|empty|2]"},
        {"*InputSlot  T: 1\n*InputSlot T : 2", "tray[ T||1] tray[T ||2]"},
        {"*InputSlot " + n39 + ": 1\n*InputSlot " + n39 + ": 2", "tray[" + n39 + "||2]"},
        {"*InputSlot " + n40 + ": 1\n*InputSlot " + n40 + ": 2",
         "tray[" + n40 + "||1] tray[" + n40 + "||2] !InputSlot !InputSlot"},
        {"*InputSlot T: 1 2", "tray[T||1]"},
        // Resolutions.
        {"*Resolution 600x300dpi: \"a\"", "res[600x300dpi||a|600x300]"},
        {"*Resolution 600x300: \"a\"", "res[600x300||a|600x300]"},
        {"*Resolution 300: \"a\"", "res[300||a|300x300]"},
        {"*Resolution 600X300: \"a\"", "res[600X300||a|600x600]"},
        {"*Resolution dpi600: \"a\"", "res[dpi600||a|0x0]"},
        {"*Resolution 1200dpi:", "res[1200dpi|||1200x1200]"},
        {"*Resolution 1200dpi: 1200", "res[1200dpi|||1200x1200]"},
        {"*DefaultResolution: 1200x600", "res*[1200x600|||1200x600]"},
        {"*DefaultResolution: unknown\n*SetResolution anything at all", ""},
        {"*DefaultResolution: 600dpi\n*Resolution 600dpi/Fine: \"@PJL\"",
         "res*[600dpi|Fine|@PJL|600x600]"},
        {"*Resolution 99999999999x5dpi: \"a\"", "res[99999999999x5dpi||a|2147483647x5]"},
        // Language and level.
        {"*PrinterLanguage: PCL5", "lang=1"},
        {"*PrinterLanguage: pcl7", " !PrinterLanguage:"},
        {"*PrinterLanguage: pcl5\n*LanguageLevel: 5c", "lang=1 level=3"},
        {"*PrinterLanguage: pcl5\n*LanguageLevel: 5EC", "lang=1 level=4"},
        {"*PrinterLanguage: pcl5\n*LanguageLevel: 6c", "lang=1 level=2"},
        {"*PrinterLanguage: pcl6\n*LanguageLevel: 6c", "lang=5 level=6"},
        {"*PrinterLanguage: pcl6\n*LanguageLevel: 5c", "lang=5 level=5"},
        {"*PrinterLanguage: gdi\n*LanguageLevel: 1x24", "lang=10 level=11"},
        {"*PrinterLanguage: gdi\n*LanguageLevel: 2x2", "lang=10"},
        {"*PrinterLanguage: gdi\n*LanguageLevel:", "lang=10 !LanguageLevel:"},
        {"*LanguageLevel: 5c\n*PrinterLanguage: pcl5", "lang=1 !LanguageLevel:"},
        {"*PrinterLanguage: pcl5\n*PrinterLanguage: gdi", "lang=10"},
        {"*LanguageVersion: \"german\"", "langid=7 units=1"},
        {"*LanguageVersion: German", " !LanguageVersion:"},
        {"*LanguageVersion: \"Klingon\"", " !LanguageVersion:"},
        {"*LanguageVersion: \"Swedish\"\n*LanguageVersion: \"ENGLISH\"", ""},
        // Flags and single values.
        {"*ColorDevice: TRUE", "colors=3"},
        {"*ColorDevice: yes", "colors=1"},
        {"*ColorDevice:", " !ColorDevice:"},
        {"*DuplexDevice: true\n*Collate: True\n*EnableTextClipping: tRUE",
         "duplex=1 collate=1 clip=1"},
        {"*DuplexDevice: True\n*DuplexDevice: False", ""},
        {"*LandscapeOrientation: minus90", "minus90=1"},
        {"*LandscapeOrientation: Minus90\n*LandscapeOrientation: Any", ""},
        {"*LandscapeOrientation: Minus90\n*LandscapeOrientation: Plus90", ""},
        {"*LandscapeOrientation: Minus90\n*LandscapeOrientation: Minus270",
         "minus90=1 !LandscapeOrientation:"},
        {"*DefaultFontPitch: 266", "pitch=10"},
        {"*DefaultFontPitch: -1", "pitch=255"},
        {"*DefaultFontPitch: 99999999999999999999", "pitch=255"},
        {"*DefaultFontPitch: 12cpi", "pitch=12"},
        {"*PlugIn: \"x.dll\"", "plugin=\"x.dll\""},
        {"*PlugIn: a b", "plugin=a"},
        {"*Product: \"" + std::string(50, 'M') + "\"", "product=" + std::string(40, 'M')},
        {"*FileVersion: \"2.0 beta\"", "version=2.0 beta"},
        // The Q read finds the line end: an empty text, accepted.
        {"*FileVersion: \"1\"\n*FileVersion:", ""},
        // Orientation: the escape becomes LF, the text ends there and the length counts the
        // bytes behind.
        {"*Orientation Portrait: \"a\\nb\"", "portrait=a\\n\\0"},
        {"*Orientation Landscape: \"\\n\"", "landscape=\\n"},
        {"*Orientation portrait: \"P\"", "portrait=P"},
        {"*Orientation Portrait/Hochformat: \"L\"", "landscape=L"},
        {"*Orientation Other: \"a\\n\\n\"", "landscape=a\\n\\0\\"},
        // No blank behind the colon: the q read takes the text and Q only the line end.
        {"*Orientation Portrait:\"P\"", ""},
        {"*Orientation Portrait:", " !Orientation"},
        // The custom paper, in any order of its three lines.
        {size, "custmin=2160x3600 custmax=6120x10080 Cpaper[C|Custom||2160x3600] !calc(C)"},
        {size + def + margins, custom},
        {size + margins + def, custom},
        {"*CustomPageSize C: \"216 360\"",
         "custmin=2160x3600 Cpaper[C|||2160x3600] !CustomPageSize !calc(C)"},
        {def + margins + size, "custmin=2160x3600 custmax=6120x10080 Cpaper[C|Custom||2160x3600] "
                               "!DefaultCustomPageSize: !CustomPageMargins: !calc(C)"},
        // A single blank: the q read swallows the numbers.
        {size + "*DefaultCustomPageSize: \"612 792\"",
         "custmin=2160x3600 custmax=6120x10080 Cpaper[C|Custom||2160x3600] "
         "!DefaultCustomPageSize: !calc(C)"},
        // A later CustomPageSize keeps the default size in the entry.
        {size + def + "*CustomPageSize C: \"100 200 300 400\"",
         "custmin=1000x2000 custmax=3000x4000 custdef=6120x7920 "
         "Cpaper[C|Custom||6120x7920|0,0,6120,7920|0,0,6120,7920] !calc(C)"},
        {"*CustomPageSize C1: \"1 2 3 4\"\n*CustomPageSize C2: \"5 6 7 8\"",
         "custmin=50x60 custmax=70x80 paper[C1|||10x20] Cpaper[C2|||50x60] !calc(C1)"},
        {size + def + "*CustomPageMargins:  \"12 12\"",
         "custmin=2160x3600 custmax=6120x10080 custdef=6120x7920 margins=120,120,0,0 "
         "Cpaper[C|Custom||6120x7920|0,0,6120,7920|0,0,6120,7920] !CustomPageMargins: !calc(C)"},
    };
    for (const auto &r : rows) EXPECT_EQ(ParseLines(r.lines), r.effect) << Escape(r.lines);
}

// ---- Helpers ------------------------------------------------------------------------------

TEST(PddValues, SizesAndWholeNumbers) {
    const int32_t kMax = 2147483647, kMin = -kMax - 1;
    const struct {
        const char *text;
        int32_t size, whole;
    } rows[] = {
        {"612", 6120, 612},
        {"595.28", 5952, 595},
        {"841.89", 8418, 841},
        {"841.8", 8418, 841},
        {"0.7", 7, 0},
        {"-1.5", -15, -1},
        {"+3", 30, 3},
        {" \t7", 70, 7},
        {".5", 5, 0},
        {"5.", 50, 5},
        {"1e2", 1000, 1},
        {"1e", 10, 1},
        {"2E-1", 2, 2},
        {"12\"", 120, 12},
        {"abc", 0, 0},
        {"", 0, 0},
        {"-", 0, 0},
        {".", 0, 0},
        {"0x10", 0, 0},
        {"inf", 0, 0},
        {"nan", 0, 0},
        {"1e400", kMax, 1},
        {"-1e400", kMin, -1},
        {"1e-400", 0, 1},
        {"214748364.7", kMax, 214748364},
        {"214748364.8", kMax, 214748364},
        {"-214748364.8", kMin, -214748364},
        {"2147483648", kMax, kMax},
        {"-2147483648", kMin, kMin},
        {"99999999999999999999999", kMax, kMax},
        {"-99999999999999999999999", kMin, kMin},
    };
    for (const auto &r : rows) {
        EXPECT_EQ(PDDSize(r.text), r.size) << r.text;
        EXPECT_EQ(PDDAtoi(r.text), r.whole) << r.text;
    }
}

} // namespace
