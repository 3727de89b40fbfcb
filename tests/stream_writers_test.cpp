// The stream writers one by one: language switches, the HP-GL/2 scale, the page command's
// numbers, tray and paper memory, the identification comments and their limits.
#include "stream_support.h"

#include <cstring>

using namespace streamtest;

// ---- HP-GL/2 context ----

TEST_F(StreamTest, OutputModeSwitches) {
    struct Case {
        BYTE from, to;
        WORD flagsBefore, flagsAfter;
        const char *stream;
    };
    const Case cases[] = {
        {OUTPUT_UNKNOWN, OUTPUT_PCL, 0xFFFF, 0x0D90, R"(\x1b%0A)"},  // leaving keeps 0x0D90
        {OUTPUT_UNKNOWN, OUTPUT_HPGL, 0xFFFF, 0xFFFF, R"(\x1b%0B)"}, // entering keeps all
        {OUTPUT_PCL, OUTPUT_PCL, 0x0010, 0x0010, R"(\x1b%0A)"},      // no test of the old mode
        {OUTPUT_HPGL, OUTPUT_HPGL, 0x0000, 0x0000, R"(\x1b%0B)"},
        {OUTPUT_PCL, OUTPUT_UNKNOWN, 0x0010, 0x0010, ""}, // writes nothing
        {OUTPUT_PCL, 7, 0x0010, 0x0010, ""},
    };
    for (const Case &c : cases) {
        info->bOutputMode = c.from;
        info->wHPGLFlags = c.flagsBefore;
        fSetOutputMode(info, c.to);
        EXPECT_STREAM(Take(), Unescape(c.stream)) << int(c.from) << "->" << int(c.to);
        EXPECT_EQ(info->bOutputMode, c.to);
        EXPECT_EQ(info->wHPGLFlags, c.flagsAfter);
    }
}

TEST_F(StreamTest, ClippingWindowIsClearedInHPGL) {
    info->bOutputMode = OUTPUT_PCL;
    info->wHPGLFlags = HPGL_CLIP_WINDOW | 0x0100;
    ClearHPGLClipping(info);
    EXPECT_STREAM(Take(), Stream({R"(\x1b%0B)", "IW;"}));
    EXPECT_EQ(info->wHPGLFlags, 0x0100);
    EXPECT_EQ(info->bOutputMode, OUTPUT_HPGL);

    ClearHPGLClipping(info); // bit clear: nothing
    EXPECT_EQ(Take(), "");

    // In a page header the window goes inside the one HP-GL/2 excursion.
    info->wHPGLFlags = HPGL_CLIP_WINDOW;
    info->bOutputMode = OUTPUT_PCL;
    WriteHPGLPageHeader(info);
    EXPECT_STREAM(Take(),
                  Stream({R"(\x1b%0B)", "IW;", "IP0,10668,8128,0SC0,4800,0,6300;", R"(\x1b%0A)"}));
    EXPECT_EQ(info->bOutputMode, OUTPUT_PCL);
}

TEST_F(StreamTest, HPGLScaleOfTheFrame) {
    struct Case {
        DWORD pagesPerSheet;
        INT cx, cy, layoutW, layoutH;
        SHORT xres, yres;
        const char *stream;
    };
    const Case cases[] = {
        // 7200 x 10000 decipoints at 600 dpi: 10000*1016/720, 7200*1016/720, 6000, 8333.
        {1, 7200, 10000, 0, 0, 600, 600, "IP0,14111,10160,0SC0,6000,0,8333;"},
        // N-up scales the sheet's frame; 4, 9 and 16 keep P1/P2 of the page.
        {4, 7200, 10000, 3000, 4000, 600, 600, "IP0,14111,10160,0SC0,2500,0,3333;"},
        {9, 7200, 10000, 3000, 4000, 600, 600, "IP0,14111,10160,0SC0,2500,0,3333;"},
        {16, 7200, 10000, 3000, 4000, 600, 600, "IP0,14111,10160,0SC0,2500,0,3333;"},
        // 2 and 6 turn the sheet: the first two numbers swap.
        {2, 7200, 10000, 3000, 4000, 600, 600, "IP0,10160,14111,0SC0,2500,0,3333;"},
        {6, 7200, 10000, 3000, 4000, 600, 600, "IP0,10160,14111,0SC0,2500,0,3333;"},
        // Horizontal and vertical resolutions each scale their own side.
        {1, 7200, 10000, 0, 0, 300, 1200, "IP0,14111,10160,0SC0,3000,0,16666;"},
    };
    for (const Case &c : cases) {
        info->nPagesPerSheet = c.pagesPerSheet;
        info->cxPrintable = c.cx;
        info->cyPrintable = c.cy;
        info->Layout[2] = c.layoutW;
        info->Layout[3] = c.layoutH;
        dm->dmPrintQuality = c.xres;
        dm->dmYResolution = c.yres;
        EXPECT_EQ(InitHPGLScale(info), 0);
        EXPECT_EQ(Take(), c.stream) << c.pagesPerSheet << " up";
    }
}

// ---- Page set-up ----

TEST_F(StreamTest, TopMarginBoundaries) {
    struct Case {
        INT cyMargin;
        const char *command;
    };
    const Case cases[] = {
        {0, R"(\x1b&l2a0o6d1E)"},     {149, R"(\x1b&l2a0o6d1E)"}, // 6 lines an inch
        {150, R"(\x1b&l2a0o4d1E)"},   {180, R"(\x1b&l2a0o4d1E)"}, // 4 lines an inch
        {181, R"(\x1b&l2a0o48d13E)"},                             // (362 + 29) / 30
        {195, R"(\x1b&l2a0o48d13E)"},                             // 13 lines of 15 cover 195
        {196, R"(\x1b&l2a0o48d14E)"},
    };
    for (const Case &c : cases) {
        info->cyMargin = c.cyMargin;
        info->nLastPaper = -1;
        PCLPageSelect(info);
        std::string out = Take();
        EXPECT_STREAM(out.substr(0, out.find("\x1b*p")), Unescape(c.command)) << c.cyMargin;
    }
}

TEST_F(StreamTest, OrientationCode) {
    struct Case {
        SHORT orientation;
        DWORD pagesPerSheet, keepOrient;
        BYTE rotated, outputFlags;
        int code;
    };
    const Case cases[] = {
        {1, 1, 0, 0, 0, 0},    {2, 1, 0, 0, 0, 1},    {3, 1, 0, 0, 0, 1},
        {1, 4, 1, 0, 0, 0},    {1, 2, 0, 0, 0, 1}, // N-up follows the sheet
        {2, 4, 1, 0, 0, 1},    {2, 2, 0, 0, 0, 0},    {1, 1, 0, 1, 0, 2},
        {2, 1, 0, 1, 0, 3},                           // rotated adds 2
        {2, 1, 0, 0, 0x08, 3}, {2, 1, 0, 1, 0x08, 1}, // reverse landscape: 1 -> 3, else 1
        {2, 2, 0, 0, 0x08, 1}, {1, 1, 0, 0, 0x08, 0}, // reverse only counts in landscape
        {2, 1, 0, 0, 0x07, 1},
    };
    for (const Case &c : cases) {
        dm->dmOrientation = c.orientation;
        dm->bRotated = c.rotated;
        dm->bOutputFlags = c.outputFlags;
        info->nPagesPerSheet = c.pagesPerSheet;
        info->bKeepOrient = c.keepOrient;
        info->nLastPaper = -1;
        PCLPageSelect(info);
        std::string expected = "\x1b&l2a" + std::to_string(c.code) + "o6d1E";
        EXPECT_EQ(Take().substr(0, expected.size()), expected)
            << "orientation " << c.orientation << ", " << c.pagesPerSheet << " up, rotated "
            << int(c.rotated) << ", flags " << int(c.outputFlags);
    }
}

TEST_F(StreamTest, DuplexGoesOutWithThePageSizeCommand) {
    struct Case {
        SHORT duplex;
        const char *command; // after the page-size command
    };
    const Case cases[] = {
        {0, ""}, {1, R"(\x1b&l0S)"}, {2, R"(\x1b&l2S)"}, {3, R"(\x1b&l1S)"},
        {4, ""}, {-1, ""}, // no duplex value: nothing is sent
    };
    for (const Case &c : cases) {
        dm->dmDuplex = c.duplex;
        info->nLastPaper = -1;
        PCLPageSelect(info);
        EXPECT_STREAM(Take(),
                      Stream({R"(\x1b&l2a0o6d1E)", c.command, R"(\x1b*pxY\x1b*c5760x7560y0T)"}))
            << c.duplex;
    }
}

TEST_F(StreamTest, PaperThatSendsNothingSkipsThePage) {
    dm->wPaperIndex = kNoPaper;
    info->nLastPaper = 2;
    info->bNewPaper = 7;
    EXPECT_EQ(PCLPageSelect(info), 0);
    EXPECT_EQ(Take(), ""); // no page command, no frame, no form feed
    EXPECT_EQ(info->nLastPaper, 2);
    EXPECT_EQ(info->bNewPaper, 7);

    // Without a configuration the code is 0, and that is sent.
    RemoveConfig();
    dm->wPaperIndex = kLetter;
    PCLPageSelect(info);
    EXPECT_STREAM(Take(), Stream({R"(\x1b&l0a0o6d1E)", R"(\x1b*pxY\x1b*c5760x7560y0T)"}));
}

// The page-size command does not update nLastOrient: the form-feed path compares with the
// value it stored itself.
TEST_F(StreamTest, OrientationOnTheSamePaper) {
    dm->dmOrientation = 2;
    info->nLastOrient = 0;
    PCLPageSelect(info);
    EXPECT_STREAM(Take(), Stream({R"(\x1b&l2a1o6d1E)", R"(\x1b*pxY\x1b*c5760x7560y0T)"}));
    EXPECT_EQ(info->nLastOrient, 0);

    PCLPageSelect(info);
    EXPECT_STREAM(Take(), Stream({
                              R"(\x0c)",                       // form feed
                              R"(\x1b&l1o6d1E)",               // landscape, told again on this path
                              R"(\x1b*pxY\x1b*c5760x7560y0T)", // frame
                          }));
    EXPECT_EQ(info->nLastOrient, 1);

    PCLPageSelect(info);
    EXPECT_STREAM(Take(), Stream({R"(\x0c)", R"(\x1b*pxY\x1b*c5760x7560y0T)"}));
}

TEST_F(StreamTest, TrayMemory) {
    struct Step {
        WORD sourceIndex;
        const char *stream;
        SHORT lastTray;
    };
    const Step steps[] = {
        {kNoTray, "", -1},          // -1 equals the start value: nothing
        {kTray1, R"(\x1b&l1H)", 1}, // sent
        {kTray1, "", 1},            // unchanged
        {kNoTray, "", -1},          // -1 is remembered, not sent
        {kNoTray, "", -1},          // and the next -1 does nothing
        {kTray4, R"(\x1b&l4H)", 4}, // a real code goes out again
        {kTray1, R"(\x1b&l1H)", 1},
    };
    for (const Step &s : steps) {
        dm->wSourceIndex = s.sourceIndex;
        PCLTraySelect(info);
        EXPECT_STREAM(Take(), Unescape(s.stream)) << s.sourceIndex;
        EXPECT_EQ(info->nLastTray, s.lastTray);
    }
    // The tray is formatted in CustCmdBuf even when pCmdBuf points elsewhere.
    char other[CMD_BUF_SIZE] = {};
    info->pCmdBuf = Ptr32From(other);
    dm->wSourceIndex = kTray4;
    PCLTraySelect(info);
    EXPECT_EQ(Take(), "\x1b&l4H");
    EXPECT_EQ(other[0], 0);
    EXPECT_EQ(std::string(CustCmdBuf, 5), "\x1b&l4H");
    info->pCmdBuf = Ptr32From(CustCmdBuf);
}

// ---- Job framing ----

TEST_F(StreamTest, EmulationLabelAndColour) {
    struct Case {
        WORD emulation;
        const char *label;
        bool colour;
    };
    const Case cases[] = {
        {0, "PCL5", false},  {1, "PCL5", false}, {2, "PCL5e", false}, {3, "PCL5C", true},
        {4, "PCL5eC", true}, {5, "PCL5", false}, {6, "PCL5", false},
    };
    for (const Case &c : cases) {
        dm->wEmulation = c.emulation;
        info->bOutputMode = OUTPUT_UNKNOWN;
        WritePCLJobHeader(info);
        std::string out = Take();
        std::string line =
            std::string("@PJL COMMENT Quillmark ") + c.label + " Driver Version 1.0.0009 on NT 4\n";
        EXPECT_EQ(out.substr(9, line.size()), line) << c.emulation;
        EXPECT_EQ(out.find("\x1b*t7J") != std::string::npos, c.colour) << c.emulation;
        EXPECT_EQ(out.find(std::string("\x1b*v6W\x00\x03", 7)) != std::string::npos, c.colour);
        EXPECT_EQ(out.find("PC0,0,0,0SP0") != std::string::npos, c.colour);
        EXPECT_EQ(out.find("\x1b&p11I\x1b&p6C") != std::string::npos, c.colour);
        EXPECT_EQ(out.find("\x1b&p10I"), std::string::npos);
        EXPECT_EQ(out.find("RENDERMODE"), std::string::npos); // no class is gray here
    }
}

TEST_F(StreamTest, GrayscaleNeedsAllThreeClassesAndAColourJob) {
    struct Case {
        WORD emulation;
        BYTE t0, t1, t2;
        int allGray;
        bool line;
    };
    const Case cases[] = {
        {4, 4, 4, 4, 1, true},  {3, 4, 4, 4, 1, true},  {4, 4, 4, 1, 0, false},
        {4, 0, 4, 4, 0, false}, {4, 4, 5, 4, 0, false}, {2, 4, 4, 4, 1, false}, // mono: no line
    };
    for (const Case &c : cases) {
        dm->wEmulation = c.emulation;
        dm->ColorCorrect[0].bType = c.t0;
        dm->ColorCorrect[1].bType = c.t1;
        dm->ColorCorrect[2].bType = c.t2;
        EXPECT_EQ(AllObjectsGrayscale(info), c.allGray);
        WritePCLJobHeader(info);
        EXPECT_EQ(Take().find("@PJL SET RENDERMODE = GRAYSCALE\n") != std::string::npos, c.line)
            << c.emulation << ": " << int(c.t0) << int(c.t1) << int(c.t2);
    }
}

// Each missing text drops its own line and nothing else.
TEST_F(StreamTest, MissingTextsDropOnlyTheirLines) {
    RemoveConfig();
    InstallConfig(nullptr); // no version text
    dm->dmOrientation = 3;  // no PJL orientation text for it
    info->bOutputMode = OUTPUT_UNKNOWN;
    WritePCLJobHeader(info);
    std::string out = Take();
    EXPECT_STREAM(out.substr(0, out.find("@PJL SET RESOLUTION")),
                  Stream({
                      R"(\x1b%-12345X)",
                      R"(@PJL COMMENT Quillmark PCL5e Driver Version 1.0.0009 on NT 4\n)",
                      R"(@PJL COMMENT for Quill 4100 at 600 by 600 DPI\n)",
                      R"(@PJL COMMENT Driver Release: 070199\n)",
                  }));
}

TEST_F(StreamTest, LandscapeTakesTheLandscapeText) {
    SetJobName(u"Q");
    dm->dmOrientation = 2;
    WritePCLJobHeader(info);
    std::string out = Take();
    EXPECT_NE(out.find("@PJL COMMENT Job Name: Q\n@PJL SET ORIENTATION=LANDSCAPE\n@PJL SET RES"),
              std::string::npos);
}

TEST_F(StreamTest, NamesThatDoNotFitAreCut) {
    // A job name of 500 characters keeps 399 in the 400-byte buffer.
    std::u16string longName(500, u'n');
    SetJobName(longName.c_str());
    EXPECT_EQ(PJL_WriteJobName(info), 1);
    EXPECT_EQ(Take(), "@PJL COMMENT Job Name: " + std::string(399, 'n') + "\n");
    EXPECT_EQ(strlen(tbuf), 399u);
    EXPECT_EQ(GlobalFlags(dm->hJobName) & 0xFF, 0u); // the name is unlocked again

    // 399 characters fit as they are.
    EXPECT_EQ(strlen(TStr2Str(longName.substr(0, 399).c_str())), 399u);
    EXPECT_STREQ(TStr2Str(u""), "");

    // A device name that fills its 32 characters has no terminator in the record.
    for (int i = 0; i < 32; ++i) dm->dmDeviceName[i] = u'A' + (i % 26);
    dm->dmSpecVersion = 0x4141; // would read as more text past the field
    PJL_WriteDriverName(info);
    EXPECT_EQ(Take(), "@PJL COMMENT for ABCDEFGHIJKLMNOPQRSTUVWXYZABCDEF at 600 by 600 DPI\n");
}

// In a code page of several bytes a character, the cut falls on a whole character that still
// leaves room for the terminator.
TEST_F(StreamTest, LongNamesAreCutOnWholeCharactersOfTheCodePage) {
    struct Case {
        const char *codePage;
        const char *encoded; // U+3042 in that code page
        size_t charsKept;    // of 300
    };
    const Case cases[] = {
        {"CP932", "\x82\xa0", 199},     // 2 bytes: 398 of 399
        {"UTF-8", "\xe3\x81\x82", 133}, // 3 bytes: 399 exactly
        {"WINDOWS-1252", "?", 300},     // not in it: one default byte each, all fit
    };
    const std::u16string name(300, u'\u3042');
    for (const Case &c : cases) {
        ASSERT_TRUE(Q417_SetAnsiCodePage(c.codePage));
        std::string expected;
        for (size_t i = 0; i < c.charsKept; ++i) expected += c.encoded;
        EXPECT_EQ(std::string(TStr2Str(name.c_str())), expected) << c.codePage;
    }
    ASSERT_TRUE(Q417_SetAnsiCodePage("WINDOWS-1252"));
}

TEST_F(StreamTest, VersionOfFortyBytesHasNoTerminator) {
    RemoveConfig();
    const std::string forty(40, 'v');
    InstallConfig((forty + "tail beyond the copy").c_str());
    EXPECT_NE(PJL_WritePDDVersion(info), 0);
    EXPECT_EQ(Take(), "@PJL COMMENT PDD Version: " + forty + "\n");
}

TEST_F(StreamTest, OrientationTextIsSentAsItStands) {
    RemoveConfig();
    InstallConfig();
    // Lines of the description's own, with their own line ends, and a long text.
    auto *cfg = static_cast<CFGINFO *>(GlobalLock(hCfg));
    GlobalFree(cfg->hPortraitCmd);
    std::string text = "@PJL SET ORIENTATION=PORTRAIT\r\n@PJL SET PAPER=LETTER\r\n";
    while (text.size() < 1500) text += "@PJL COMMENT padding\r\n";
    cfg->hPortraitCmd = Bytes(text);
    cfg->cbPortraitCmd = static_cast<DWORD>(text.size());
    GlobalUnlock(hCfg);

    WritePJLOrient(info);
    std::string out = Take();
    ASSERT_GT(out.size(), 0u);
    EXPECT_LT(out.size(), sizeof CustCmdBuf); // cut to the buffer
    EXPECT_EQ(text.compare(0, out.size(), out), 0);
}

// ---- Colour set-up ----

TEST_F(StreamTest, PaletteReservations) {
    PCLInitColorCorrect(info);
    EXPECT_STREAM(Take(), Stream({
                              R"(\x1b&p1I\x1b&p6C)", R"(\x1b&p2I\x1b&p6C)", R"(\x1b&p3I\x1b&p6C)",
                              R"(\x1b&p4I\x1b&p6C)", R"(\x1b&p5I\x1b&p6C)", R"(\x1b&p6I\x1b&p6C)",
                              R"(\x1b&p7I\x1b&p6C)", R"(\x1b&p8I\x1b&p6C)", R"(\x1b&p9I\x1b&p6C)",
                              R"(\x1b&p11I\x1b&p6C)", // slot 10; slot 9 (id 10) is never reserved
                          }));
    for (DWORD flag : PCLPalInitialized) EXPECT_EQ(flag, 0u);
    EXPECT_EQ(PCLReservePalette(info, 11), FALSE);
    EXPECT_EQ(PCLReservePalette(info, -1), FALSE);
    EXPECT_EQ(Take(), "");
}

TEST(StreamColour, ConfigureImageDataRecords) {
    const char *rows[PCL_PALETTE_SLOTS] = {
        R"(\x1b*v6W\x00\x03\x00\x08\x08\x08)", // device RGB, direct by pixel, 8/8/8
        R"(\x1b*v6W\x00\x03\x00\x08\x08\x08)",
        R"(\x1b*v6W\x00\x03\x00\x08\x08\x08)",
        R"(\x1b*v6W\x00\x01\x01\x00\x00\x00)", // indexed by pixel, 1 bit
        R"(\x1b*v6W\x00\x01\x04\x08\x08\x08)", // indexed by pixel, 4 bits
        R"(\x1b*v6W\x00\x01\x08\x08\x08\x08)", // indexed by pixel, 8 bits
        R"(\x1b*r-3U)",                        // simple colour CMY
        R"(\x1b*v6W\x00\x03\x00\x08\x08\x08)",
        R"(\x1b*r3U)", // simple colour RGB
        R"(\x1b*v6W\x00\x03\x00\x08\x08\x08)",
        R"(\x1b*v6W\x00\x03\x02\x08\x08\x08)", // 2 in the bits-per-index byte
    };
    for (int i = 0; i < PCL_PALETTE_SLOTS; ++i)
        EXPECT_STREAM(std::string(PCLCID[i].pRecord, PCLCID[i].cbRecord), Unescape(rows[i])) << i;
}
