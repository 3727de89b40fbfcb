// The settings interface over configurations compiled from the printer descriptions that ship
// in share/: the working record that a parse leaves behind hConfig, and the long-lived copy
// with its fixed row widths. What each printer offers is written out here from its PDD text.
#include "ddi_fixture.h"

#include "config/config.h"
#include "q417/host.h"
#include "q417/q417plg.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <climits>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

using namespace ddi_test;
namespace fs = std::filesystem;

namespace {

constexpr DWORD kNone = 0xFFFFFFFFu;

struct Item {
    std::u16string key, name;
};
struct Paper {
    std::u16string key, name;
    WORD winId;
    // Decipoints: width, height, then left, top, imageable width and height per orientation.
    DWORD width, height;
    DWORD port[4], land[4];
};
struct Tray {
    std::u16string key, name;
    WORD winId;
};
struct Res {
    std::u16string key, name;
    SHORT x, y;
};

struct Printer {
    const char *file;
    std::vector<Paper> papers;
    std::vector<Tray> trays;
    std::vector<Item> dests, media;
    std::vector<Res> res;
    INT defPaper, defTray, defDest, defMedia, defRes;
    INT customRow;
    DWORD custLimits[10]; // min w, min h, max w, max h, default w, h, margins l t r b
    std::u16string model;
};

// Papers without a Windows number take user ids from 257 on; Envelope DL (311.8 x 623.6 pt)
// is one of them: the table's search stops at the row 3118 x 6520, which has its width and a
// greater height. Sources are told by display name.
const Printer kColour = {
    "qcl4100.pdd",
    {
        {u"A4", u"A4 210 x 297 mm", 9, 5952, 8418, {120, 120, 5710, 8170}, {120, 140, 8170, 5670}},
        {u"Letter", u"US Letter", 1, 6120, 7920, {120, 120, 5880, 7680}, {140, 120, 7640, 5880}},
        {u"Legal", u"US Legal", 5, 6120, 10080, {120, 120, 5880, 9840}, {120, 120, 5880, 9840}},
        {u"A5", u"A5 148 x 210 mm", 11, 4200, 5950, {120, 120, 3960, 5710}, {120, 120, 3960, 5710}},
        {u"Executive", u"Executive", 7, 5220, 7560, {120, 120, 4980, 7320}, {120, 120, 4980, 7320}},
        {u"Env10", u"Envelope #10", 20, 2970, 6840, {120, 120, 2730, 6600}, {120, 120, 2730, 6600}},
        {u"EnvDL", u"Envelope DL", 257, 3118, 6236, {120, 120, 2870, 5990}, {120, 120, 2870, 5990}},
        // The default custom size 576 x 720 pt less margins of 12 pt on every side.
        {u"Custom",
         u"Custom Size",
         256,
         5760,
         7200,
         {120, 120, 5520, 6960},
         {120, 120, 5520, 6960}},
    },
    {{u"Tray1", u"upper", 1},
     {u"Tray2", u"lower", 2},
     {u"Manual", u"manual feed", 4},
     {u"Envelope", u"envelope", 5},
     {u"Auto", u"autoselect", 7}},
    {{u"FaceDown", u"Top Bin, face down"}, {u"FaceUp", u"Rear Bin, face up"}},
    {{u"Plain", u"Plain Paper"},
     {u"Bond", u"Bond"},
     {u"Transparency", u"Transparency"},
     {u"Glossy", u"Glossy Paper"}},
    {{u"300dpi", u"300 dpi", 300, 300},
     {u"600dpi", u"600 dpi", 600, 600},
     {u"1200dpi", u"1200 dpi", 1200, 1200}},
    0,
    0,
    0,
    0,
    1,
    7,
    {2160, 3600, 6120, 10080, 5760, 7200, 120, 120, 120, 120},
    u"Quillmark CL 4100",
};

const Printer kMono = {
    "qml2400.pdd",
    {
        {u"Letter", u"US Letter", 1, 6120, 7920, {180, 180, 5760, 7560}, {120, 180, 7680, 5760}},
        {u"A4", u"A4", 9, 5952, 8418, {180, 180, 5590, 8050}, {120, 180, 8170, 5590}},
        {u"Legal", u"US Legal", 5, 6120, 10080, {180, 180, 5760, 9720}, {180, 180, 5760, 9720}},
        {u"Env10", u"Envelope #10", 20, 2970, 6840, {180, 180, 2610, 6480}, {180, 180, 2610, 6480}},
        {u"Custom",
         u"Custom Size",
         256,
         6120,
         7920,
         {180, 180, 5760, 7560},
         {180, 180, 5760, 7560}},
    },
    {{u"Tray1", u"upper", 1}, {u"Manual", u"manual feed", 4}},
    {{u"Top", u"Top Bin"}},
    {{u"Plain", u"Plain Paper"}, {u"Labels", u"Labels"}},
    {{u"300dpi", u"300 dpi", 300, 300}, {u"600dpi", u"600 dpi", 600, 600}},
    0,
    0,
    0,
    0,
    1,
    4,
    {2160, 3600, 6120, 10080, 6120, 7920, 180, 180, 180, 180},
    u"Quillmark ML 2400",
};

enum class Layout { Parsed, Copy };

struct Case {
    const Printer *printer;
    Layout layout;
};
void PrintTo(const Case &c, std::ostream *os) {
    *os << c.printer->file << (c.layout == Layout::Copy ? " as copied" : " as parsed");
}

// A printer made known to the host with a copy of the description. The parsed layout is the
// working record that DDIStartup and a parse leave behind hConfig; the copy layout is what the
// exported GetConfig leaves there when the record names a cache block, as the job side does.
class SamplePrinters : public testing::TestWithParam<Case> {
  protected:
    void SetUp() override {
        live0_ = q417::mem::LiveBlocks();
        char tmpl[] = "/tmp/q417ddiXXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        const Printer &p = *GetParam().printer;
        fs::copy_file(fs::path(Q417_SOURCE_DIR) / "share" / p.file, dir_ / p.file);
        const std::string path = (dir_ / p.file).string();
        const Q417_PRINTER printer = {"Quillmark", path.c_str(), nullptr, "LPT2:", nullptr};
        hPrinter_ = Q417_AddPrinter(&printer);
        ASSERT_NE(hPrinter_, 0u);
        ASSERT_EQ(Q417_InitDevMode(&dm_, sizeof dm_.dm, hPrinter_, 0), DWORD(DDIDEVMODE_SIZE));

        if (GetParam().layout == Layout::Copy) {
            copy_ = GlobalAlloc(GHND, CFGINFO_SIZE);
            dm_.dm.hCfgCache = copy_;
            ASSERT_EQ(GetConfig(&dm_.dm, GlobalLock(copy_)), TRUE);
            GlobalUnlock(copy_);
            ASSERT_EQ(dm_.dm.hConfig, copy_);
        } else {
            const std::u16string wpath(path.begin(), path.end());
            ASSERT_NE(DDIStartup(&dm_.dm), HGLOBAL(0));
            ASSERT_EQ(DDIReadCfgFile(&dm_.dm, wpath.c_str()), 1);
        }
    }
    void TearDown() override {
        // The copy owns all its blocks; so does a parsed record that no copy was made from.
        if (HGLOBAL h = dm_.dm.hConfig) {
            FreeCfgTables(static_cast<CFGINFO *>(GlobalLock(h)));
            GlobalUnlock(h);
            GlobalFree(h);
        }
        if (hPrinter_) Q417_DeletePrinter(hPrinter_);
        fs::remove_all(dir_);
        EXPECT_EQ(q417::mem::LiveBlocks(), live0_) << "blocks leaked or freed twice";
    }

    DevMode dm_{};
    HGLOBAL copy_ = 0;
    HANDLE32 hPrinter_ = 0;
    fs::path dir_;
    long live0_ = 0;
};

template <class T>
void CheckList(DDIDEVMODE *dm, DWORD id, const std::vector<T> &rows, INT def) {
    EXPECT_EQ(DDIGetKeywordNumOptions(dm, id), INT(rows.size())) << id;
    EXPECT_EQ(DDIGetKeywordDefaultOption(dm, id), def) << id;
    for (INT i = 0; i < INT(rows.size()); ++i) {
        CheckText(dm, DDIGetKeywordOptionString, TRUE, id, i, rows[i].key);
        CheckText(dm, DDIGetKeywordOptionTranslation, FALSE, id, i, rows[i].name);
    }
    for (INT bad : {INT(rows.size()), -1, INT_MIN, INT_MAX}) {
        WCHAR buf[8];
        std::fill(std::begin(buf), std::end(buf), kPoison);
        DWORD len = 8;
        EXPECT_EQ(DDIGetKeywordOptionString(dm, id, bad, buf, &len), TRUE) << id << " " << bad;
        EXPECT_EQ(len, 0u);
        len = 8;
        EXPECT_EQ(DDIGetKeywordOptionTranslation(dm, id, bad, buf, &len), FALSE);
        EXPECT_EQ(len, 0u);
        EXPECT_EQ(buf[0], kPoison);
    }
}

TEST_P(SamplePrinters, EveryListEnumeratesAsThePrinterDescribesIt) {
    const Printer &p = *GetParam().printer;
    DDIDEVMODE *dm = &dm_.dm;
    CheckList(dm, DDI_PAPERSIZE, p.papers, p.defPaper);
    CheckList(dm, DDI_PAPERSOURCE, p.trays, p.defTray);
    CheckList(dm, DDI_PAPERDEST, p.dests, p.defDest);
    CheckList(dm, DDI_MEDIATYPE, p.media, p.defMedia);
    CheckList(dm, DDI_RESOLUTION, p.res, p.defRes);

    WCHAR buf[40];
    DWORD len = 40;
    EXPECT_EQ(DDIGetString(dm, DDI_STR_CFGMODEL, buf, &len), TRUE);
    EXPECT_EQ(std::u16string(buf, len ? len - 1 : 0), p.model);
    len = 40;
    EXPECT_EQ(DDIGetString(dm, DDI_STR_PLUGIN, buf, &len), TRUE);
    EXPECT_EQ(len, 0u) << "neither description names a plug-in";
    // The port comes from the spooler, with the size query and cut of every text getter.
    struct PortCase {
        DWORD capacity, length;
        std::u16string text;
    };
    for (const PortCase &c : {PortCase{0, 6, u""}, PortCase{6, 6, u"LPT2:"},
                              PortCase{40, 6, u"LPT2:"}, PortCase{3, 3, u"LP"}}) {
        std::fill(std::begin(buf), std::end(buf), kPoison);
        len = c.capacity;
        EXPECT_EQ(DDIGetString(dm, DDI_STR_PORT, buf, &len), TRUE);
        EXPECT_EQ(len, c.length) << "capacity " << c.capacity;
        EXPECT_EQ(std::u16string(buf, c.text.size()), c.text);
        EXPECT_EQ(buf[c.capacity ? c.text.size() + 1 : 0], kPoison);
    }
    len = 40;
    EXPECT_EQ(DDIGetString(dm, DDI_STR_DEVICENAME, buf, &len), TRUE);
    EXPECT_EQ(std::u16string(buf), u"Quillmark");
    EXPECT_EQ(DDIGetDWord(dm, DDI_PRINTERHANDLE), hPrinter_);
    EXPECT_EQ(DDIGetDWord(dm, DDI_LANGVERSION), 9u) << "English";
    EXPECT_EQ(DDIGetDWord(dm, DDI_MEASUNITS), 0u) << "inches";
}

TEST_P(SamplePrinters, SelectionsKeepWindowsIdAndRowInStep) {
    const Printer &p = *GetParam().printer;
    DDIDEVMODE *dm = &dm_.dm;
    for (DWORD r = 0; r < p.papers.size(); ++r) {
        SCOPED_TRACE(testing::Message() << "paper " << r);
        ASSERT_EQ(DDISetDWord(dm, DDI_PAPERSIZE, r), 1u);
        EXPECT_EQ(DDIGetDWord(dm, DDI_PAPERSIZE), r);
        EXPECT_EQ(WORD(dm->dmPaperSize), p.papers[r].winId);
        EXPECT_EQ(DDIGetDWord(dm, DDI_CUSTOMPAPER), r == DWORD(p.customRow) ? 1u : 0u);
    }
    EXPECT_EQ(DDISetDWord(dm, DDI_PAPERSIZE, DWORD(p.papers.size())), 0u);
    EXPECT_EQ(DDIGetDWord(dm, DDI_PAPERSIZE), p.papers.size() - 1) << "refusal keeps the row";

    // Picking the custom row brings its size along, in both units.
    ASSERT_EQ(DDISetDWord(dm, DDI_PAPERSIZE, DWORD(p.customRow)), 1u);
    const Paper &c = p.papers[p.customRow];
    EXPECT_EQ(dm->dmPaperSize, 256);
    EXPECT_EQ(DDIGetDWord(dm, DDI_CUSTWIDTH), c.width);
    EXPECT_EQ(DDIGetDWord(dm, DDI_CUSTHEIGHT), c.height);
    EXPECT_EQ(dm->dmPaperWidth, SHORT(c.width * 254 / 720));
    EXPECT_EQ(dm->dmPaperLength, SHORT(c.height * 254 / 720));

    for (DWORD r = 0; r < p.trays.size(); ++r) {
        ASSERT_EQ(DDISetDWord(dm, DDI_PAPERSOURCE, r), 1u) << r;
        EXPECT_EQ(DDIGetDWord(dm, DDI_PAPERSOURCE), r);
        EXPECT_EQ(WORD(dm->dmDefaultSource), p.trays[r].winId) << r;
    }
    EXPECT_EQ(DDISetDWord(dm, DDI_PAPERSOURCE, DWORD(p.trays.size())), 0u);
    for (DWORD r = 0; r < p.res.size(); ++r) {
        ASSERT_EQ(DDISetDWord(dm, DDI_RESOLUTION, r), 1u) << r;
        EXPECT_EQ(DDIGetDWord(dm, DDI_RESOLUTION), r);
        EXPECT_EQ(dm->dmPrintQuality, p.res[r].x);
        EXPECT_EQ(dm->dmYResolution, p.res[r].y);
    }
    EXPECT_EQ(DDISetDWord(dm, DDI_RESOLUTION, DWORD(-1)), 0u);
    EXPECT_EQ(DDIGetDWord(dm, DDI_RESOLUTION), p.res.size() - 1);
}

TEST_P(SamplePrinters, PaperDimensionsInBothOrientations) {
    const Printer &p = *GetParam().printer;
    DDIDEVMODE *dm = &dm_.dm;
    for (DWORD r = 0; r < p.papers.size(); ++r) {
        ASSERT_EQ(DDISetDWord(dm, DDI_PAPERSIZE, r), 1u);
        for (DWORD orient : {0u, 1u, 2u, 3u}) { // turned pages read their unturned row
            SCOPED_TRACE(testing::Message() << "paper " << r << " orientation code " << orient);
            ASSERT_EQ(DDISetDWord(dm, DDI_PAGEORIENT, orient), 1u);
            const DWORD *area = (orient & 1) ? p.papers[r].land : p.papers[r].port;
            EXPECT_EQ(DDIGetDWord(dm, DDI_PAPERWIDTH), p.papers[r].width) << "in landscape too";
            EXPECT_EQ(DDIGetDWord(dm, DDI_PAPERHEIGHT), p.papers[r].height);
            EXPECT_EQ(DDIGetDWord(dm, DDI_IMAGELEFT), area[0]);
            EXPECT_EQ(DDIGetDWord(dm, DDI_IMAGETOP), area[1]);
            EXPECT_EQ(DDIGetDWord(dm, DDI_IMAGEWIDTH), area[2]);
            EXPECT_EQ(DDIGetDWord(dm, DDI_IMAGEHEIGHT), area[3]);
        }
    }
}

TEST_P(SamplePrinters, CustomSizeIsLimitedAndWrittenToThePortraitRow) {
    const Printer &p = *GetParam().printer;
    DDIDEVMODE *dm = &dm_.dm;
    for (int k = 0; k < 10; ++k)
        EXPECT_EQ(DDIGetDWord(dm, DDI_CUSTMINWIDTH + k), p.custLimits[k]) << "limit " << k;
    const DWORD minW = p.custLimits[0], minH = p.custLimits[1];
    const DWORD maxW = p.custLimits[2], maxH = p.custLimits[3];
    const DWORD left = p.custLimits[6], top = p.custLimits[7];
    const DWORD right = p.custLimits[8], bottom = p.custLimits[9];

    struct Step {
        DWORD id, value, stored;
    };
    const Step steps[] = {
        {DDI_CUSTWIDTH, 100000, maxW},       {DDI_CUSTHEIGHT, 1, minH},
        {DDI_CUSTWIDTH, DWORD(-1), minW},    {DDI_CUSTHEIGHT, maxH + 1, maxH},
        {DDI_CUSTWIDTH, minW + 1, minW + 1}, {DDI_CUSTHEIGHT, 5040, 5040},
    };
    for (const Step &s : steps) {
        SCOPED_TRACE(testing::Message() << "id " << s.id << " value " << INT(s.value));
        EXPECT_EQ(DDISetDWord(dm, s.id, s.value), 1u);
        EXPECT_EQ(DDIGetDWord(dm, s.id), s.stored);
        SHORT tenthMM = s.id == DDI_CUSTWIDTH ? dm->dmPaperWidth : dm->dmPaperLength;
        EXPECT_EQ(tenthMM, SHORT(s.stored * 254 / 720));
    }
    EXPECT_EQ(dm->dmPaperSize, 0) << "setting a size selects no paper";

    // The portrait row now holds the size; the landscape row keeps the description's.
    ASSERT_EQ(DDISetDWord(dm, DDI_PAPERSIZE, DWORD(p.customRow)), 1u);
    EXPECT_EQ(dm->wCustWidth, minW + 1);
    EXPECT_EQ(dm->wCustHeight, 5040);
    const DWORD port[] = {minW + 1, 5040, left, top, minW + 1 - right - left, 5040 - bottom - top};
    const Paper &c = p.papers[p.customRow];
    const DWORD land[] = {c.width, c.height, c.land[0], c.land[1], c.land[2], c.land[3]};
    for (SHORT orient : {SHORT(1), SHORT(2)}) {
        dm->dmOrientation = orient;
        DWORD v[6];
        ASSERT_EQ(DDIGetPaperDimensions(dm, p.customRow, &v[0], &v[1], &v[4], &v[5], &v[2], &v[3]),
                  1);
        const DWORD *want = orient == 1 ? port : land;
        for (int k = 0; k < 6; ++k)
            EXPECT_EQ(v[k], want[k]) << "orientation " << orient << " " << k;
    }
}

INSTANTIATE_TEST_SUITE_P(Share, SamplePrinters,
                         testing::Values(Case{&kColour, Layout::Parsed},
                                         Case{&kColour, Layout::Copy}, Case{&kMono, Layout::Parsed},
                                         Case{&kMono, Layout::Copy}),
                         [](const testing::TestParamInfo<Case> &info) {
                             std::string name = info.param.printer == &kColour ? "Colour" : "Mono";
                             return name + (info.param.layout == Layout::Copy ? "Copy" : "Parsed");
                         });

} // namespace
