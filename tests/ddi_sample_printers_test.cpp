// The settings interface over configurations compiled from the printer descriptions that ship
// in share/: the working record that a parse leaves behind hConfig, and the long-lived copy
// with its fixed row widths. These hold the hand-made configurations of the other tests to the
// layouts that the parser and the copy really make. What each printer offers is written out
// here from its PDD text.
#include "ddi_fixture.h"

#include "config/config.h"
#include "q417/host.h"
#include "q417/q417plg.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <filesystem>
#include <ostream>
#include <string>

using namespace ddi_test;
namespace fs = std::filesystem;

namespace {

const DWORD kLists[] = {DDI_PAPERSIZE, DDI_PAPERSOURCE, DDI_PAPERDEST, DDI_MEDIATYPE,
                        DDI_RESOLUTION};

struct Printer {
    const char *file;
    // Per list, in the order of kLists: keys and names joined by '|', and the default.
    const char16_t *keys[5], *names[5];
    INT defaults[5];
    INT customRow;
    DWORD customSize[2]; // the custom row's width and height
    // Paper row 0 in decipoints: width and height, then left, top, imageable width and
    // height in portrait, then the same four in landscape.
    DWORD row0[10];
};

const Printer kColour = {
    "qcl4100.pdd",
    {u"A4|Letter|Legal|A5|Executive|Env10|EnvDL|Custom", u"Tray1|Tray2|Manual|Envelope|Auto",
     u"FaceDown|FaceUp", u"Plain|Bond|Transparency|Glossy", u"300dpi|600dpi|1200dpi"},
    {u"A4 210 x 297 mm|US Letter|US Legal|A5 148 x 210 mm|Executive|Envelope #10|Envelope "
     u"DL|Custom Size",
     u"upper|lower|manual feed|envelope|autoselect", u"Top Bin, face down|Rear Bin, face up",
     u"Plain Paper|Bond|Transparency|Glossy Paper", u"300 dpi|600 dpi|1200 dpi"},
    {0, 0, 0, 0, 1},
    7,
    {5760, 7200},
    {5952, 8418, 120, 120, 5710, 8170, 120, 140, 8170, 5670},
};

const Printer kMono = {
    "qml2400.pdd",
    {u"Letter|A4|Legal|Env10|Custom", u"Tray1|Manual", u"Top", u"Plain|Labels", u"300dpi|600dpi"},
    {u"US Letter|A4|US Legal|Envelope #10|Custom Size", u"upper|manual feed", u"Top Bin",
     u"Plain Paper|Labels", u"300 dpi|600 dpi"},
    {0, 0, 0, 0, 1},
    4,
    {6120, 7920},
    {6120, 7920, 180, 180, 5760, 7560, 120, 180, 7680, 5760},
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

// A list's texts joined by '|', through the keyword call given.
std::u16string Joined(DDIDEVMODE *dm, DWORD id, TextCall call) {
    std::u16string all;
    for (INT i = 0; i < DDIGetKeywordNumOptions(dm, id); ++i) {
        WCHAR buf[80] = {};
        DWORD len = 80;
        call(dm, id, i, buf, &len);
        all += (i ? u"|" : u"") + std::u16string(buf);
    }
    return all;
}

TEST_P(SamplePrinters, ListsPortDimensionsAndCustomPaper) {
    const Printer &p = *GetParam().printer;
    DDIDEVMODE *dm = &dm_.dm;
    for (int l = 0; l < 5; ++l) {
        EXPECT_EQ(Joined(dm, kLists[l], DDIGetKeywordOptionString), p.keys[l]);
        EXPECT_EQ(Joined(dm, kLists[l], DDIGetKeywordOptionTranslation), p.names[l]);
        EXPECT_EQ(DDIGetKeywordDefaultOption(dm, kLists[l]), p.defaults[l]) << kLists[l];
    }
    // The port comes from the spooler, with the size query and cut of every text getter.
    CheckText(
        dm,
        [](DDIDEVMODE *m, DWORD id, INT, WCHAR *b, DWORD *n) { return DDIGetString(m, id, b, n); },
        TRUE, DDI_STR_PORT, 0, u"LPT2:");

    ASSERT_EQ(DDISetDWord(dm, DDI_PAPERSIZE, 0), 1u);
    for (DWORD orient : {0u, 1u}) {
        ASSERT_EQ(DDISetDWord(dm, DDI_PAGEORIENT, orient), 1u);
        const DWORD *area = p.row0 + (orient ? 6 : 2);
        const DWORD want[] = {p.row0[0], p.row0[1], area[2], area[3], area[0], area[1]};
        for (DWORD k = 0; k < 6; ++k)
            EXPECT_EQ(DDIGetDWord(dm, DDI_PAPERWIDTH + k), want[k]) << orient << " " << k;
    }
    // Picking the custom row brings the size its row holds.
    ASSERT_EQ(DDISetDWord(dm, DDI_PAPERSIZE, DWORD(p.customRow)), 1u);
    EXPECT_EQ(dm->dmPaperSize, 256);
    EXPECT_EQ(dm->wCustWidth, p.customSize[0]);
    EXPECT_EQ(dm->wCustHeight, p.customSize[1]);
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
