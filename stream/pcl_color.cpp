// PCL colour set-up: the palettes a colour job reserves, the all-gray test, and the colour
// vocabulary (palette ids, Configure Image Data records, dither numbers) kept for renderers.
#include "stream/stream.h"

// PCL palette identifiers of slots 0 to 10.
const BYTE PCLPalIDs[PCL_PALETTE_SLOTS] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};

// One flag a slot; cleared at each colour job, set by nothing here.
DWORD PCLPalInitialized[PCL_PALETTE_SLOTS];

namespace {
// Configure Image Data: colour space, pixel encoding, bits per index, bits of primaries 1-3.
constexpr char kCidRgb8[] = "\x1b*v6W\x00\x03\x00\x08\x08\x08"; // RGB direct by pixel, 8/8/8
constexpr char kCidIdx1[] = "\x1b*v6W\x00\x01\x01\x00\x00\x00"; // RGB indexed, 1 bit
constexpr char kCidIdx4[] = "\x1b*v6W\x00\x01\x04\x08\x08\x08"; // RGB indexed, 4 bits
constexpr char kCidIdx8[] = "\x1b*v6W\x00\x01\x08\x08\x08\x08"; // RGB indexed, 8 bits
constexpr char kSimpleCmy[] = "\x1b*r-3U";                      // Simple Color, 3-plane CMY
constexpr char kSimpleRgb[] = "\x1b*r3U";                       // Simple Color, 3-plane RGB
constexpr char kCidRgb8Idx2[] = "\x1b*v6W\x00\x03\x02\x08\x08\x08";
} // namespace

#define Q417_REC(s)                                                                                \
    { s, static_cast<int>(sizeof(s) - 1) }
const PCLCIDREC PCLCID[PCL_PALETTE_SLOTS] = {
    Q417_REC(kCidRgb8),   Q417_REC(kCidRgb8), Q417_REC(kCidRgb8),     Q417_REC(kCidIdx1),
    Q417_REC(kCidIdx4),   Q417_REC(kCidIdx8), Q417_REC(kSimpleCmy),   Q417_REC(kCidRgb8),
    Q417_REC(kSimpleRgb), Q417_REC(kCidRgb8), Q417_REC(kCidRgb8Idx2),
};
#undef Q417_REC

// Render algorithm numbers for "\x1b*t%dJ".
const DWORD ColorDithers[6] = {4, 11, 7, 0, 11, 0};
const DWORD MonoDithers[6] = {6, 12, 8, 5, 12, 0};

const BYTE PCLColorMaps[8] = {0, 2, 1, 0, 0, 6, 3, 6};

void PCLResetPaletteArray() {
    for (DWORD &flag : PCLPalInitialized) flag = 0;
}

// Palette control id, then copy the active palette to it.
BOOL PCLReservePalette(SPLDEVINFO *pInfo, int slot) {
    if (slot < 0 || slot >= PCL_PALETTE_SLOTS) return FALSE;
    return WriteCommand(pInfo, "\x1b&p%dI\x1b&p6C", PCLPalIDs[slot]);
}

void PCLInitColorCorrect(SPLDEVINFO *pInfo) {
    PCLResetPaletteArray();
    for (int slot = 0; slot <= 8; ++slot) PCLReservePalette(pInfo, slot);
    // Slot 9 stays free: ids 1 to 9 and 11 are reserved, 10 is not.
    PCLReservePalette(pInfo, 10);
}

int AllObjectsGrayscale(const SPLDEVINFO *pInfo) {
    const DDIDEVMODE *pdm = DevModeOf(pInfo);
    if (!pdm) return 0;
    constexpr BYTE kGray = 4;
    for (const DDICOLORCORRECT &cc : pdm->ColorCorrect)
        if (cc.bType != kGray) return 0;
    return 1;
}
