// The PPD of the colour sample: the lines that CUPS and a print dialog act on, as they must
// read, and texts that a PPD can't carry as they are.
#include "config/config.h"
#include "ppd_writer.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sys/stat.h>
#include <string>

namespace {

using namespace q417;

TEST(CupsPpd, ColourSampleOffersItsOptionsAndRunsOurFilter) {
    DiscardDeviceInfo(nullptr); // the library keeps one printer's configuration a process
    const std::string share = Q417_SOURCE_DIR "/share";
    // a copy: the library writes its compiled configuration beside the description
    std::string dir = ::testing::TempDir() + "/q417-cups-ppd";
    mkdir(dir.c_str(), 0755);
    std::string pdd = dir + "/qcl4100.pdd";
    {
        std::ifstream in(share + "/qcl4100.pdd", std::ios::binary);
        std::ofstream(pdd, std::ios::binary) << in.rdbuf();
    }
    pages::Printer printer(pdd, "socket://127.0.0.1:9100");
    pages::Capabilities caps = pages::Describe(printer, share);
    std::string ppd = cups::MakePpd(caps, {"qcl4100.pdd", ""});
    const char *lines[] = {
        "*PPD-Adobe: \"4.3\"\n",
        "*PCFileName: \"qcl4100.ppd\"\n",
        "*ModelName: \"Quillmark CL 4100\"\n",
        "*cupsManualCopies: False\n",
        "*cupsFilter2: \"application/pdf application/vnd.q417-pcl 0 q417pcl\"\n",
        "*cupsFilter2: \"application/vnd.cups-raster application/vnd.q417-pcl 100 q417pcl\"\n",
        "*q417PDD: \"qcl4100.pdd\"\n",
        "*DefaultPageSize: A4\n",
        "*PageSize Letter/US Letter: \"<</PageSize[612 792]/ImageableArea null>>setpagedevice\"\n",
        "*ImageableArea Letter/US Letter: \"18 18 594 774\"\n",
        "*PaperDimension EnvDL/Envelope DL: \"311.8 623.6\"\n",
        "*ParamCustomPageSize Width: 1 points 216 612\n",
        "*ParamCustomPageSize Height: 2 points 360 1008\n",
        "*DefaultInputSlot: Tray1\n",
        "*InputSlot Manual/manual feed: \"<</MediaPosition 2>>setpagedevice\"\n",
        "*OutputBin FaceUp/Rear Bin, face up: \"<</OutputType(FaceUp)>>setpagedevice\"\n",
        "*DefaultResolution: 600dpi\n",
        "*Duplex DuplexNoTumble/Long Edge (Standard): \"<</Duplex true/Tumble "
        "false>>setpagedevice\"\n",
        "*DefaultColorModel: RGB\n",
        "*Watermark None/None: \"\"\n",
        "*Watermark Confidential/Confidential: \"\"\n",
        "*OpenUI *FirstPageWatermark/Watermark on First Page Only: Boolean\n",
    };
    for (const char *line : lines) EXPECT_NE(ppd.find(line), std::string::npos) << line;
    // The PageSize and PageRegion tables offer the same seven papers; Custom is no paper.
    EXPECT_EQ(ppd.find("*PageSize Custom"), std::string::npos);
    size_t n = 0;
    for (size_t at = ppd.find("\n*PageRegion "); at != std::string::npos;
         at = ppd.find("\n*PageRegion ", at + 1))
        ++n;
    EXPECT_EQ(n, caps.papers.size());

    // Texts: a colon would end a translation, a quote a value; beyond Latin-1 is '?'.
    caps.papers[0].text = "A4: 210 × 297 mm – ISO";
    caps.watermarks[0].text = "Entwurf für \"Büro\"";
    ppd = cups::MakePpd(caps, {"qcl4100.pdd", ""});
    EXPECT_NE(ppd.find("*PageSize A4/A4<3A> 210 \xD7 297 mm ? ISO: "), std::string::npos);
    EXPECT_NE(ppd.find("*Watermark Draft/Entwurf f\xFCr <22>B\xFCro<22>: \"\""), std::string::npos);
    EXPECT_THROW(cups::MakePpd(caps, {"my \"printer\".pdd", ""}), pages::Error);
    EXPECT_EQ(cups::PpdFileName("/x/My-Printer 2000.pdd"), "myprinte.ppd");
}

} // namespace
