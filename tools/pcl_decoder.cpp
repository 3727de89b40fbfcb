// Printer stream decoder: follows the stream through PJL, PCL 5 and HP-GL/2 as a printer
// would, and lists every command at its byte offset. Data that travels inside a command
// (fonts, characters, patterns, raster rows) is summarised from its own fields, never dumped.
#include "pcl_decoder.h"
#include "format.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace q417tool {

using q417::pages::Format;
namespace {

constexpr uint8_t ESC = 0x1b;

// Bytes as a reader can see them: ESC by name, other control and 8-bit bytes escaped.
std::string Visible(const uint8_t *p, size_t n) {
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        uint8_t c = p[i];
        if (c == ESC)
            s += "ESC";
        else if (c == '\\')
            s += "\\\\";
        else if (c == '\n')
            s += "\\n";
        else if (c == '\r')
            s += "\\r";
        else if (c < 32 || c > 126)
            s += Format("\\x%02x", c);
        else
            s += static_cast<char>(c);
    }
    return s;
}

// Visible() of at most `max` bytes, "..." behind when there were more: one command's line
// stays short however long the command runs.
std::string Clip(const uint8_t *p, size_t n, size_t max = 200) {
    return n > max ? Visible(p, max) + "..." : Visible(p, n);
}

uint16_t Be16(const uint8_t *p) {
    return static_cast<uint16_t>(p[0] << 8 | p[1]);
}
int16_t SBe16(const uint8_t *p) {
    return static_cast<int16_t>(Be16(p));
}

// ---- What the parameterised PCL commands mean -----------------------------------------

struct Named {
    int value;
    const char *name;
};

const char *Lookup(const Named *table, int value) {
    for (; table->name; ++table)
        if (table->value == value) return table->name;
    return nullptr;
}

const Named kPageSizes[] = {
    {1, "Executive"}, {2, "Letter"},   {3, "Legal"},   {6, "Ledger"},  {25, "A5"},
    {26, "A4"},       {27, "A3"},      {45, "JIS B5"}, {46, "JIS B4"}, {71, "Hagaki"},
    {72, "Oufuku"},   {80, "Monarch"}, {81, "Com-10"}, {90, "DL"},     {91, "C5"},
    {100, "B5 env"},  {101, "custom"}, {-1, nullptr},
};
const Named kOrient[] = {{0, "portrait"},
                         {1, "landscape"},
                         {2, "reverse portrait"},
                         {3, "reverse landscape"},
                         {-1, nullptr}};
const Named kSources[] = {{0, "eject page"},      {1, "main tray"},   {2, "manual feed"},
                          {3, "manual envelope"}, {4, "lower tray"},  {5, "optional"},
                          {6, "envelope feeder"}, {7, "auto select"}, {-1, nullptr}};
const Named kDuplex[] = {
    {0, "simplex"}, {1, "duplex, long edge"}, {2, "duplex, short edge"}, {-1, nullptr}};
const Named kFontControl[] = {{0, "delete all soft fonts"},
                              {1, "delete temporary soft fonts"},
                              {2, "delete soft font of the current id"},
                              {3, "delete character of the current code"},
                              {4, "make font temporary"},
                              {5, "make font permanent"},
                              {6, "assign current font to the id"},
                              {-1, nullptr}};
const Named kPalette[] = {{0, "delete all palettes"},
                          {1, "delete palettes on the stack"},
                          {2, "delete palette of the control id"},
                          {6, "copy active palette to the control id"},
                          {-1, nullptr}};
const Named kRender[] = {{0, "continuous tone"},
                         {3, "device best dither"},
                         {4, "error diffusion"},
                         {5, "monochrome device best dither"},
                         {6, "monochrome error diffusion"},
                         {7, "cluster ordered dither"},
                         {8, "monochrome cluster ordered dither"},
                         {9, "user-defined ordered dither"},
                         {10, "monochrome user-defined ordered dither"},
                         {11, "noise ordered dither"},
                         {12, "monochrome noise ordered dither"},
                         {-1, nullptr}};
const Named kCompression[] = {{0, "unencoded"}, {1, "run-length"}, {2, "TIFF PackBits"},
                              {3, "delta row"}, {5, "adaptive"},   {-1, nullptr}};
const Named kSimpleColor[] = {
    {-3, "CMY palette"}, {1, "black and white"}, {3, "RGB palette"}, {-1, nullptr}};
const Named kRasterStart[] = {
    {0, "at the left graphics margin"}, {1, "at the current cursor position"}, {-1, nullptr}};
const Named kPatternType[] = {{0, "solid black"}, {1, "solid white"},  {2, "shading"},
                              {3, "cross-hatch"}, {4, "user-defined"}, {5, "current pattern"},
                              {-1, nullptr}};

struct PclCommand {
    const char *key; // introducer, group (or blank), upper-case terminator
    const char *name;
    const Named *values;
    const char *unit; // appended to the value when there is no table
};

const PclCommand kPcl[] = {
    {"&lA", "page size", kPageSizes, nullptr},
    {"&lO", "orientation", kOrient, nullptr},
    {"&lD", "line spacing", nullptr, "lines per inch"},
    {"&lE", "top margin", nullptr, "lines"},
    {"&lF", "text length", nullptr, "lines"},
    {"&lL", "perforation skip", nullptr, nullptr},
    {"&lC", "vertical motion index", nullptr, "1/48 inch"},
    {"&lS", "simplex/duplex", kDuplex, nullptr},
    {"&lH", "paper source", kSources, nullptr},
    {"&lX", "number of copies", nullptr, nullptr},
    {"&lG", "output bin", nullptr, nullptr},
    {"&lM", "media type", nullptr, nullptr},
    {"&lU", "left offset registration", nullptr, "decipoints"},
    {"&lZ", "top offset registration", nullptr, "decipoints"},
    {"&lT", "job separation", nullptr, nullptr},
    {"&aH", "horizontal cursor position", nullptr, "decipoints"},
    {"&aV", "vertical cursor position", nullptr, "decipoints"},
    {"&aR", "cursor to row", nullptr, nullptr},
    {"&aC", "cursor to column", nullptr, nullptr},
    {"&aL", "left margin", nullptr, "columns"},
    {"&aM", "right margin", nullptr, "columns"},
    {"&aP", "print direction", nullptr, "degrees"},
    {"&aG", "duplex page side", nullptr, nullptr},
    {"&uD", "unit of measure", nullptr, "units per inch"},
    {"&kH", "horizontal motion index", nullptr, "1/120 inch"},
    {"&kG", "line termination", nullptr, nullptr},
    {"&kS", "pitch mode", nullptr, nullptr},
    {"&fS", "push/pop cursor position", nullptr, nullptr},
    {"&fY", "macro id", nullptr, nullptr},
    {"&fX", "macro control", nullptr, nullptr},
    {"&sC", "end-of-line wrap", nullptr, nullptr},
    {"&dD", "underline on", nullptr, nullptr},
    {"&d@", "underline off", nullptr, nullptr},
    {"&pI", "palette control id", nullptr, nullptr},
    {"&pC", "palette control", kPalette, nullptr},
    {"&pS", "select palette", nullptr, nullptr},
    {"&pX", "transparent print data", nullptr, "bytes"},
    {"&rF", "flush pages", nullptr, nullptr},
    {"&nW", "alphanumeric id", nullptr, "bytes"},
    {"*pX", "horizontal cursor position", nullptr, "units"},
    {"*pY", "vertical cursor position", nullptr, "units"},
    {"*pR", "set pattern reference point", nullptr, nullptr},
    {"*cA", "rectangle width", nullptr, "units"},
    {"*cB", "rectangle height", nullptr, "units"},
    {"*cH", "rectangle width", nullptr, "decipoints"},
    {"*cV", "rectangle height", nullptr, "decipoints"},
    {"*cP", "fill rectangle", kPatternType, nullptr},
    {"*cG", "pattern id / area fill id", nullptr, nullptr},
    {"*cQ", "pattern control", nullptr, nullptr},
    {"*cW", "user-defined pattern", nullptr, "bytes"},
    {"*cD", "font id", nullptr, nullptr},
    {"*cE", "character code", nullptr, nullptr},
    {"*cF", "font control", kFontControl, nullptr},
    {"*cX", "picture frame width", nullptr, "decipoints"},
    {"*cY", "picture frame height", nullptr, "decipoints"},
    {"*cT", "picture frame anchor point", nullptr, nullptr},
    {"*cK", "HP-GL/2 plot width", nullptr, "inches"},
    {"*cL", "HP-GL/2 plot height", nullptr, "inches"},
    {"*tR", "raster graphics resolution", nullptr, "dpi"},
    {"*tJ", "render algorithm", kRender, nullptr},
    {"*tH", "raster destination width", nullptr, "decipoints"},
    {"*tV", "raster destination height", nullptr, "decipoints"},
    {"*tI", "gamma correction", nullptr, nullptr},
    {"*rF", "raster presentation mode", nullptr, nullptr},
    {"*rA", "start raster graphics", kRasterStart, nullptr},
    {"*rB", "end raster graphics", nullptr, nullptr},
    {"*rC", "end raster graphics", nullptr, nullptr},
    {"*rS", "raster width", nullptr, "pixels"},
    {"*rT", "raster height", nullptr, "rows"},
    {"*rU", "simple colour", kSimpleColor, nullptr},
    {"*bM", "raster compression", kCompression, nullptr},
    {"*bY", "raster y offset", nullptr, "rows"},
    {"*bW", "raster row", nullptr, "bytes"},
    {"*bV", "raster plane", nullptr, "bytes"},
    {"*vW", "configure image data", nullptr, "bytes"},
    {"*vA", "colour component 1", nullptr, nullptr},
    {"*vB", "colour component 2", nullptr, nullptr},
    {"*vC", "colour component 3", nullptr, nullptr},
    {"*vI", "assign colour index", nullptr, nullptr},
    {"*vS", "foreground colour", nullptr, nullptr},
    {"*vN", "source transparency", nullptr, nullptr},
    {"*vO", "pattern transparency", nullptr, nullptr},
    {"*vT", "select current pattern", kPatternType, nullptr},
    {"*lO", "logical operation", nullptr, nullptr},
    {"*lR", "pixel placement", nullptr, nullptr},
    {"*mW", "download dither matrix", nullptr, "bytes"},
    {"*oW", "driver configuration", nullptr, "bytes"},
    {"*gW", "configure raster data", nullptr, "bytes"},
    {"*iW", "viewing illuminant", nullptr, "bytes"},
    {"(sW", "character download", nullptr, "bytes"},
    {")sW", "font header", nullptr, "bytes"},
    {"(fW", "symbol set definition", nullptr, "bytes"},
    {"(sP", "primary spacing", nullptr, nullptr},
    {"(sH", "primary pitch", nullptr, "characters per inch"},
    {"(sV", "primary height", nullptr, "points"},
    {"(sS", "primary style", nullptr, nullptr},
    {"(sB", "primary stroke weight", nullptr, nullptr},
    {"(sT", "primary typeface", nullptr, nullptr},
    {")sP", "secondary spacing", nullptr, nullptr},
    {")sH", "secondary pitch", nullptr, "characters per inch"},
    {")sV", "secondary height", nullptr, "points"},
    {")sS", "secondary style", nullptr, nullptr},
    {")sB", "secondary stroke weight", nullptr, nullptr},
    {")sT", "secondary typeface", nullptr, nullptr},
    {"( X", "select primary font by id", nullptr, nullptr},
    {") X", "select secondary font by id", nullptr, nullptr},
    {"( @", "primary font default", nullptr, nullptr},
    {") @", "secondary font default", nullptr, nullptr},
};

// Commands whose value counts data bytes that follow the command.
bool CarriesData(std::string_view key) {
    static const char *const kData[] = {"*cW", "*bW", "*bV", "*vW", "*mW", "*oW", "*gW",
                                        "*iW", "(sW", ")sW", "(fW", "&pX", "&nW"};
    for (const char *k : kData)
        if (key == k) return true;
    return false;
}

const PclCommand *FindPcl(std::string_view key) {
    for (const auto &c : kPcl)
        if (key == c.key) return &c;
    return nullptr;
}

// ---- HP-GL/2 instructions -------------------------------------------------------------

struct HpglCommand {
    const char *mnemonic;
    const char *name;
};

const HpglCommand kHpgl[] = {
    {"AA", "arc absolute"},
    {"AC", "anchor corner"},
    {"AD", "alternate font definition"},
    {"AR", "arc relative"},
    {"AT", "absolute arc three point"},
    {"BP", "begin plot"},
    {"BR", "bezier relative"},
    {"BZ", "bezier absolute"},
    {"CF", "character fill mode"},
    {"CI", "circle"},
    {"CO", "comment"},
    {"CP", "character plot"},
    {"CR", "colour range"},
    {"DF", "default values"},
    {"DI", "absolute direction"},
    {"DR", "relative direction"},
    {"DT", "define label terminator"},
    {"DV", "define variable text path"},
    {"EA", "edge rectangle absolute"},
    {"EP", "edge polygon"},
    {"ER", "edge rectangle relative"},
    {"ES", "extra space"},
    {"EW", "edge wedge"},
    {"FI", "primary font selection by id"},
    {"FN", "secondary font selection by id"},
    {"FP", "fill polygon"},
    {"FR", "frame advance"},
    {"FT", "fill type"},
    {"IN", "initialize"},
    {"IP", "input P1 and P2"},
    {"IR", "input P1 and P2 relative"},
    {"IW", "input window"},
    {"LA", "line attributes"},
    {"LB", "label"},
    {"LM", "label mode"},
    {"LO", "label origin"},
    {"LT", "line type"},
    {"MC", "merge control"},
    {"MG", "message"},
    {"NP", "number of pens"},
    {"NR", "not ready"},
    {"PA", "plot absolute"},
    {"PC", "pen colour assignment"},
    {"PD", "pen down"},
    {"PE", "polyline encoded"},
    {"PM", "polygon mode"},
    {"PP", "pixel placement"},
    {"PR", "plot relative"},
    {"PS", "plot size"},
    {"PU", "pen up"},
    {"PW", "pen width"},
    {"RA", "fill rectangle absolute"},
    {"RF", "raster fill definition"},
    {"RO", "rotate coordinate system"},
    {"RP", "replot"},
    {"RR", "fill rectangle relative"},
    {"RT", "relative arc three point"},
    {"SA", "select alternate font"},
    {"SB", "scalable or bitmap fonts"},
    {"SC", "scale"},
    {"SD", "standard font definition"},
    {"SI", "absolute character size"},
    {"SL", "character slant"},
    {"SM", "symbol mode"},
    {"SP", "select pen"},
    {"SR", "relative character size"},
    {"SS", "select standard font"},
    {"ST", "sort"},
    {"SV", "screened vectors"},
    {"TD", "transparent data"},
    {"TR", "transparency mode"},
    {"UL", "user-defined line type"},
    {"WG", "fill wedge"},
    {"WU", "pen width unit selection"},
};

const char *FindHpgl(std::string_view m) {
    for (const auto &c : kHpgl)
        if (m == c.mnemonic) return c.name;
    return nullptr;
}

// ---- Raster rows, decompressed ---------------------------------------------------------

// The raster state a printer keeps: compression method, seed row, the block being drawn.
// Rows are always decoded, so that the listing can count those that don't; blocks are kept
// only when asked for.
class RasterState {
  public:
    static constexpr size_t kRowWithoutWidth = 1 << 16;
    explicit RasterState(std::vector<RasterBlock> *keep) : keep_(keep) {}

    // A PCL command with its value; `sign` tells a relative move.
    void Command(const std::string &key, long v, bool sign) {
        if (key == "*pX")
            x_ = sign ? x_ + v : v;
        else if (key == "*pY")
            y_ = sign ? y_ + v : v;
        else if (key == "*tR")
            resolution_ = static_cast<int>(v);
        else if (key == "*rS")
            width_ = v > 0 && v <= 1000000 ? static_cast<int>(v) : 0;
        else if (key == "*bM")
            method_ = static_cast<int>(v);
        else if (key == "*rA")
            Start();
        else if (key == "*rB" || key == "*rC")
            inBlock_ = false;
        else if (key == "*bY" && v > 0)
            Skip(static_cast<size_t>(std::min(v, 1000000L)));
    }
    void Reset() { *this = RasterState(keep_); }
    // ESC*v#W: pixel encoding mode in byte 1, bits per index in byte 2, per primary in 3-5.
    void ColourSetup(const uint8_t *b, size_t n) {
        if (n < 6) return;
        bpp_ = b[1] == 3 ? b[3] + b[4] + b[5] : b[1] == 1 ? b[2] : 1;
        bpp_ = std::clamp(bpp_, 1, 32); // beyond that no printer of the family goes
    }
    // One row of data in the current method; false when it doesn't decode.
    bool Row(const uint8_t *b, size_t n) {
        if (!inBlock_) Start(); // rows outside a block start one, as a printer does
        // Bytes past the row's width are dropped as a printer drops them, so a hostile row
        // can't make the decoder hold more than a row; without a width, a generous one.
        size_t len = RowBytes();
        size_t room = len ? len : std::max<size_t>(seed_.size(), kRowWithoutWidth);
        std::vector<uint8_t> row;
        auto put = [&](const uint8_t *p, size_t k, size_t at) {
            if (at >= room || !k) return;
            k = std::min(k, room - at);
            if (row.size() < at + k) row.resize(at + k);
            std::memcpy(row.data() + at, p, k);
        };
        bool ok = true;
        switch (method_) {
        case 0:
            put(b, n, 0);
            break;
        case 2:
            for (size_t i = 0; i < n && ok;) {
                uint8_t c = b[i++];
                if (c < 128) {
                    size_t k = c + 1u;
                    ok = n - i >= k;
                    k = std::min(k, n - i);
                    put(b + i, k, row.size());
                    i += k;
                } else if (c > 128) {
                    ok = i < n;
                    if (!ok) break;
                    uint8_t rep[128];
                    std::memset(rep, b[i++], sizeof rep);
                    put(rep, 257u - c, row.size());
                }
            }
            break;
        case 3: {
            row = seed_;
            size_t pos = 0;
            for (size_t i = 0; i < n && ok;) {
                uint8_t c = b[i++];
                size_t count = (c >> 5) + 1u, offset = c & 31u;
                if (offset == 31)
                    for (;;) {
                        if (i >= n) {
                            ok = false;
                            break;
                        }
                        uint8_t more = b[i++];
                        offset += more;
                        if (more != 255) break;
                    }
                if (!ok) break;
                pos = std::min(pos + offset, room);
                ok = n - i >= count;
                count = std::min(count, n - i);
                put(b + i, count, pos);
                i += count;
                pos += count;
            }
            break;
        }
        default:
            ok = false; // a method these printers are not sent
        }
        if (len) {
            row.resize(len, 0); // a short row is filled with zeros
        } else if (row.size() < seed_.size()) {
            row.resize(seed_.size(), 0);
        }
        seed_ = row;
        if (keep_) keep_->back().rows.push_back(std::move(row));
        return ok;
    }

  private:
    size_t RowBytes() const {
        return width_ ? (static_cast<size_t>(width_) * static_cast<size_t>(bpp_) + 7) / 8 : 0;
    }
    void Start() {
        inBlock_ = true;
        seed_.assign(RowBytes(), 0);
        if (!keep_) return;
        RasterBlock b;
        b.x = x_, b.y = y_, b.resolution = resolution_, b.width = width_, b.bitsPerPixel = bpp_;
        keep_->push_back(std::move(b));
    }
    // A vertical move over rows: nothing printed there, and the seed row goes back to zeros.
    void Skip(size_t rows) {
        if (!inBlock_) Start();
        std::fill(seed_.begin(), seed_.end(), 0);
        if (keep_) keep_->back().rows.resize(keep_->back().rows.size() + rows);
    }

    std::vector<RasterBlock> *keep_;
    long x_ = 0, y_ = 0;
    int resolution_ = 0, width_ = 0, bpp_ = 1, method_ = 0;
    bool inBlock_ = false;
    std::vector<uint8_t> seed_;
};

// ---- The decoder ----------------------------------------------------------------------

enum class Lang { PJL, PCL, HPGL };

class Decoder {
  public:
    Decoder(const uint8_t *data, size_t size, const std::function<void(std::string_view)> &emit,
            const std::function<void(size_t)> &done, std::vector<RasterBlock> *raster = nullptr)
        : d_(data), n_(size), emit_(emit), done_(done), raster_(raster) {}

    DecodeResult Run() {
        constexpr size_t kPiece = 64 * 1024;
        while (pos_ < n_ && !result_.bTruncated) {
            if (out_.size() >= kPiece) { // between commands: nothing before pos_ is read again
                emit_(out_);
                out_.clear();
                if (done_) done_(pos_);
            }
            if (d_[pos_] == ESC)
                Escape();
            else if (lang_ == Lang::PJL)
                Pjl();
            else if (lang_ == Lang::HPGL)
                Hpgl();
            else
                PclText();
        }
        FlushRaster();
        if (!out_.empty()) emit_(out_);
        out_.clear();
        return result_;
    }

  private:
    void Line(size_t off, const std::string &cmd, const std::string &meaning, bool known = true) {
        FlushRaster();
        std::string s = Format("%08zx  ", off);
        s += cmd;
        if (!meaning.empty()) {
            s.append(cmd.size() < 28 ? 28 - cmd.size() : 1, ' ');
            s += meaning;
        }
        out_ += s;
        out_ += '\n';
        if (known)
            ++result_.nCommands;
        else
            ++result_.nUnknown;
    }
    void Detail(const std::string &text) {
        out_ += "          ";
        out_ += text;
        out_ += '\n';
    }
    void Truncated(size_t off, const std::string &what) {
        FlushRaster();
        out_ += Format("%08zx  ** stream ends inside %s (%zu bytes left)\n", off, what.c_str(),
                       n_ - off);
        result_.bTruncated = true;
        result_.nTruncatedAt = off;
        pos_ = n_;
    }

    // Raster rows come in the thousands: one line for a run of them.
    void FlushRaster() {
        if (!rasterRows_) return;
        size_t rows = rasterRows_;
        rasterRows_ = 0;
        std::string s = Format("%08zx  ESC*b#W x %zu", rasterStart_, rows);
        s.append(s.size() < 38 ? 38 - s.size() : 1, ' ');
        // The method of the run's rows: a change of method lists a line, which ends the run.
        const char *method = Lookup(kCompression, rasterMethod_);
        s += Format("raster data: %zu row%s, %zu bytes (%s)", rows, rows == 1 ? "" : "s",
                    rasterBytes_, method ? method : "unknown compression");
        if (rasterBad_) s += Format(", %zu not decodable", rasterBad_);
        rasterBad_ = 0;
        out_ += s;
        out_ += '\n';
        ++result_.nCommands;
        rasterBytes_ = 0;
    }

    // PJL: one command a line, up to its line feed; anything else hands over to PCL, as a
    // printer's language sensing would.
    void Pjl() {
        static const char kTag[] = "@PJL";
        size_t avail = n_ - pos_;
        bool tag = std::memcmp(d_ + pos_, kTag, avail < 4 ? avail : 4) == 0;
        if (tag && avail < 4) {
            Truncated(pos_, "a PJL line");
            return;
        }
        if (!tag) {
            if (d_[pos_] == '\n' || d_[pos_] == '\r') {
                ++pos_;
                return;
            }
            lang_ = Lang::PCL;
            return;
        }
        size_t end = pos_;
        while (end < n_ && d_[end] != '\n') ++end;
        if (end == n_) {
            Truncated(pos_, "a PJL line");
            return;
        }
        // The meaning comes from the line's start; a line longer than any command is shown cut.
        std::string text(reinterpret_cast<const char *>(d_ + pos_),
                         std::min<size_t>(end - pos_, 200));
        if (!text.empty() && text.back() == '\r') text.pop_back();
        std::string upper;
        for (char c : text) upper += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        std::string meaning = "PJL";
        auto has = [&](const char *w) { return upper.find(w) != std::string::npos; };
        if (has("@PJL COMMENT"))
            meaning = "PJL comment";
        else if (has("ENTER LANGUAGE")) {
            meaning = "PJL enter language";
            if (has("HPGL2"))
                lang_ = Lang::HPGL;
            else
                lang_ = Lang::PCL;
        } else if (has("@PJL SET"))
            meaning = "PJL set variable";
        else if (has("@PJL JOB"))
            meaning = "PJL job start";
        else if (has("@PJL EOJ"))
            meaning = "PJL job end";
        else if (upper == "@PJL")
            meaning = "PJL prefix";
        Line(pos_,
             end - pos_ > 200 ? Clip(d_ + pos_, end - pos_) : Visible(d_ + pos_, end - pos_ + 1),
             meaning);
        pos_ = end + 1;
    }

    void PclText() {
        uint8_t c = d_[pos_];
        static const Named kControls[] = {{0, "NUL, ignored"},
                                          {8, "backspace"},
                                          {9, "horizontal tab"},
                                          {10, "line feed"},
                                          {12, "form feed"},
                                          {13, "carriage return"},
                                          {14, "shift out: secondary font"},
                                          {15, "shift in: primary font"},
                                          {-1, nullptr}};
        if (c < 32) {
            const char *name = Lookup(kControls, c);
            Line(pos_, Visible(&c, 1), name ? name : "control byte", name != nullptr);
            ++pos_;
            return;
        }
        size_t end = pos_;
        while (end < n_ && d_[end] >= 32 && d_[end] != ESC) ++end;
        std::string shown = "\"" + Visible(d_ + pos_, end - pos_ > 60 ? 60 : end - pos_) +
                            (end - pos_ > 60 ? "...\"" : "\"");
        Line(pos_, shown, Format("text, %zu bytes", end - pos_));
        pos_ = end;
    }

    // ---- PCL escape sequences ---------------------------------------------------------

    void Escape() {
        size_t start = pos_;
        if (n_ - pos_ < 2) {
            Truncated(start, "an escape sequence");
            return;
        }
        uint8_t c = d_[pos_ + 1];
        if (c >= 48 && c <= 126) {
            TwoCharacter(start, c);
            return;
        }
        if (c < 33 || c > 47) {
            Line(start, Visible(d_ + start, 2), "unknown escape sequence", false);
            pos_ += 2;
            return;
        }
        size_t p = pos_ + 2;
        char group = ' ';
        if (c != '%') {
            if (p >= n_) {
                Truncated(start, "an escape sequence");
                return;
            }
            if (d_[p] >= 96 && d_[p] <= 126) group = static_cast<char>(d_[p++]);
        }
        bool first = true;
        for (;;) {
            size_t paramStart = p;
            // value field: sign, digits, decimal point, digits
            if (p < n_ && (d_[p] == '+' || d_[p] == '-')) ++p;
            while (p < n_ && (std::isdigit(d_[p]) || d_[p] == '.')) ++p;
            if (p >= n_) {
                Truncated(start, "an escape sequence");
                return;
            }
            uint8_t term = d_[p];
            bool last = term >= 64 && term <= 94;
            bool more = term >= 96 && term <= 126;
            if (!last && !more) {
                Line(start, Visible(d_ + start, p + 1 - start), "malformed escape sequence", false);
                pos_ = p; // resume at the byte that broke it
                return;
            }
            std::string value = ValueField(paramStart, p);
            char upper = static_cast<char>(std::toupper(term));
            std::string shown = "ESC";
            shown += static_cast<char>(c);
            if (group != ' ') shown += group;
            shown += value;
            shown += upper;
            ++p;
            size_t off = first ? start : paramStart;
            first = false;
            if (c == '%') {
                Percent(off, shown, value, upper);
            } else {
                std::string key{static_cast<char>(c), group, upper};
                if (!Parameter(off, shown, key, value, p)) return; // truncated
            }
            if (last) break;
        }
        pos_ = p;
    }

    // A value field as text. Past 64 characters only its size matters: leading zeros go, and
    // what stays is cut to 64 characters, which still reads beyond any 32-bit value.
    std::string ValueField(size_t from, size_t to) const {
        const char *v = reinterpret_cast<const char *>(d_ + from);
        size_t n = to - from;
        if (n <= 64) return std::string(v, n);
        std::string text;
        size_t i = 0;
        if (v[0] == '+' || v[0] == '-') text += v[i++];
        while (i + 1 < n && v[i] == '0') ++i;
        text.append(v + i, std::min<size_t>(n - i, 64));
        return text;
    }

    void TwoCharacter(size_t start, uint8_t c) {
        static const Named kTwo[] = {{'E', "printer reset"},
                                     {'9', "clear horizontal margins"},
                                     {'=', "half line feed"},
                                     {'Y', "display functions on"},
                                     {'Z', "display functions off"},
                                     {'z', "self test"},
                                     {-1, nullptr}};
        const char *name = Lookup(kTwo, c);
        Line(start, Visible(d_ + start, 2), name ? name : "unknown two-character command",
             name != nullptr);
        if (c == 'E') {
            lang_ = Lang::PCL;
            raster_.Reset();
        }
        pos_ = start + 2;
    }

    void Percent(size_t off, const std::string &shown, const std::string &value, char term) {
        long v = std::strtol(value.c_str(), nullptr, 10);
        if (term == 'X' && v == -12345) {
            Line(off, shown, "universal exit language: PJL");
            lang_ = Lang::PJL;
        } else if (term == 'A') {
            Line(off, shown,
                 v == 0 ? "enter PCL, cursor at the previous PCL position"
                        : "enter PCL, cursor at the current HP-GL/2 pen position");
            lang_ = Lang::PCL;
        } else if (term == 'B') {
            Line(off, shown,
                 v == 0 ? "enter HP-GL/2, pen at the previous HP-GL/2 position"
                        : "enter HP-GL/2, pen at the current PCL cursor position");
            lang_ = Lang::HPGL;
        } else {
            Line(off, shown, "unknown language switch", false);
        }
    }

    // One parameter of a PCL command; p is behind its terminator, and moves over its data.
    bool Parameter(size_t off, const std::string &shown, const std::string &key,
                   const std::string &valueText, size_t &p) {
        if ((key[0] == '(' || key[0] == ')') && key[1] == ' ' && key[2] != 'X' && key[2] != '@') {
            Line(off, shown,
                 Format("%s symbol set %s%c", key[0] == '(' ? "primary" : "secondary",
                        valueText.c_str(), key[2]));
            return true;
        }
        const PclCommand *cmd = FindPcl(key);
        // A value field may hold any number of digits; beyond 32 bits it means the same as
        // the largest, and a conversion out of range would be undefined.
        double value = std::strtod(valueText.c_str(), nullptr);
        long iv = value >= 2147483647.0    ? 2147483647L
                  : value <= -2147483648.0 ? -2147483648L
                                           : static_cast<long>(value);
        if (key == "*cE") charCode_ = iv;
        if (key == "*bM") compression_ = static_cast<int>(iv);
        raster_.Command(key, iv,
                        !valueText.empty() && (valueText[0] == '+' || valueText[0] == '-'));
        if (CarriesData(key)) {
            if (iv < 0) {
                Line(off, shown, "negative data length", false);
                return true;
            }
            size_t count = static_cast<size_t>(iv);
            if (n_ - p < count) {
                Truncated(off, Format("the %zu data bytes of %s", count, shown.c_str()));
                return false;
            }
            Data(off, shown, key, d_ + p, count);
            p += count;
            return true;
        }
        if (!cmd) {
            Line(off, shown, "unknown command", false);
            return true;
        }
        std::string meaning = cmd->name;
        if (cmd->values) {
            const char *name = Lookup(cmd->values, static_cast<int>(iv));
            meaning += ": ";
            meaning += name ? name : Format("%s (unknown value)", valueText.c_str());
        } else if (key == "*pX" || key == "*pY" || key == "(sV" || key == "*rB" || key == "*rC" ||
                   key == "*cT") {
            if (valueText.empty() && (key == "*pX" || key == "*pY"))
                meaning += ": 0 units";
            else if (key == "*pX" || key == "*pY" || key == "(sV")
                meaning += Format(": %s %s", valueText.c_str(), cmd->unit);
        } else if (cmd->unit) {
            meaning += Format(": %s %s", valueText.empty() ? "0" : valueText.c_str(), cmd->unit);
        } else {
            meaning += Format(": %s", valueText.empty() ? "0" : valueText.c_str());
        }
        // A sign makes a cursor move relative to where the cursor stands.
        static const char *const kMoves[] = {"&aH", "&aV", "&aR", "&aC", "*pX", "*pY"};
        if (!valueText.empty() && (valueText[0] == '+' || valueText[0] == '-') &&
            std::find(std::begin(kMoves), std::end(kMoves), key) != std::end(kMoves))
            meaning += " (relative)";
        Line(off, shown, meaning);
        return true;
    }

    void Data(size_t off, const std::string &shown, const std::string &key, const uint8_t *b,
              size_t n) {
        if (key == "*bW" || key == "*bV") {
            if (!rasterRows_) rasterStart_ = off, rasterMethod_ = compression_;
            ++rasterRows_;
            rasterBytes_ += n;
            if (!raster_.Row(b, n)) ++rasterBad_, ++result_.nBadRows;
            return;
        }
        if (key == "*vW") raster_.ColourSetup(b, n);
        const PclCommand *cmd = FindPcl(key);
        Line(off, shown, Format("%s, %zu bytes", cmd->name, n));
        if (key == ")sW")
            FontHeader(b, n);
        else if (key == "(sW")
            Character(b, n);
        else if (key == "*cW")
            Pattern(b, n);
        else if (key == "*vW")
            ImageData(b, n);
        else if (key == "&pX")
            Detail("\"" + Visible(b, n > 60 ? 60 : n) + (n > 60 ? "...\"" : "\""));
    }

    void FontHeader(const uint8_t *b, size_t n) {
        if (n < 64) {
            Detail(Format("descriptor too short: %zu bytes", n));
            return;
        }
        size_t descSize = Be16(b);
        unsigned format = b[2];
        static const Named kFormats[] = {{0, "PCL bitmap"},
                                         {10, "Intellifont bound"},
                                         {11, "Intellifont unbound"},
                                         {15, "TrueType, 16-bit segments"},
                                         {16, "universal, 32-bit segments"},
                                         {20, "resolution-specified bitmap"},
                                         {-1, nullptr}};
        const char *fname = Lookup(kFormats, static_cast<int>(format));
        Detail(Format("descriptor: %zu bytes, format %u (%s), font type %u, spacing %u (%s)",
                      descSize, format, fname ? fname : "unknown", b[3], b[13],
                      b[13] ? "proportional" : "fixed"));
        unsigned symset = Be16(b + 14);
        Detail(Format("symbol set %u (%u%c), pitch %u, height %u, style %u, stroke weight %d, "
                      "typeface %u",
                      symset, symset / 32, static_cast<char>(symset % 32 + 64), Be16(b + 16),
                      Be16(b + 18), b[4] << 8 | b[23], static_cast<int8_t>(b[24]),
                      b[26] << 8 | b[25]));
        std::string name;
        for (int i = 48; i < 64; ++i)
            if (b[i] >= 32 && b[i] < 127) name += static_cast<char>(b[i]);
        if (descSize >= 72 && n >= 72)
            Detail(Format("name \"%s\", cell %dx%d, text width %d, scale factor %u, "
                          "underline %d/%d, technology %u",
                          name.c_str(), Be16(b + 8), Be16(b + 10), SBe16(b + 34), Be16(b + 64),
                          SBe16(b + 66), SBe16(b + 68), b[70]));
        else
            Detail(Format("name \"%s\"", name.c_str()));
        if (format != 15 && format != 16) return;
        // Segments follow the descriptor: id, size (16 bits in format 15, 32 in 16), data.
        size_t p = descSize;
        size_t sizeWidth = format == 15 ? 2 : 4;
        while (p <= n && n - p >= 2 + sizeWidth) {
            uint16_t id = Be16(b + p);
            size_t size = sizeWidth == 2
                              ? Be16(b + p + 2)
                              : static_cast<size_t>(Be16(b + p + 2)) << 16 | Be16(b + p + 4);
            p += 2 + sizeWidth;
            if (id == 0xFFFF) {
                Detail(Format("segment null, %zu bytes", size));
                break;
            }
            std::string tag{static_cast<char>(id >> 8), static_cast<char>(id & 0xFF)};
            if (n - p < size) {
                Detail(Format("segment %s, %zu bytes: runs past the header", tag.c_str(), size));
                return;
            }
            std::string what;
            if (tag == "PA") what = " (PANOSE)";
            if (tag == "GT") what = GlobalTrueType(b + p, size);
            Detail(Format("segment %s, %zu bytes%s", tag.c_str(), size, what.c_str()));
            p += size;
        }
        // The reserved byte and the checksum close the header; bytes 64 on add up to 0.
        unsigned sum = 0;
        for (size_t i = 64; i < n; ++i) sum += b[i];
        Detail(Format("checksum %s", (sum & 0xFF) == 0 ? "ok" : "WRONG"));
    }

    static std::string GlobalTrueType(const uint8_t *g, size_t n) {
        if (n < 12) return ": offset table cut";
        unsigned numTables = Be16(g + 4);
        std::string s = Format(": %u tables", numTables);
        for (unsigned i = 0; i < numTables; ++i) {
            size_t e = 12 + 16 * static_cast<size_t>(i);
            if (e > n || n - e < 16) return s + ", directory cut";
            std::string tag(reinterpret_cast<const char *>(g + e), 4);
            unsigned long len =
                static_cast<unsigned long>(Be16(g + e + 12)) << 16 | Be16(g + e + 14);
            s += Format("%s %s %lu", i ? "," : "", Visible(g + e, 4).c_str(), len);
        }
        return s;
    }

    void Character(const uint8_t *b, size_t n) {
        std::string code = charCode_ < 0 ? std::string("unknown") : Format("%ld", charCode_);
        if (charCode_ >= 33 && charCode_ < 127)
            code += Format(" '%c'", static_cast<char>(charCode_));
        if (n < 4) {
            Detail(Format("character %s: descriptor cut", code.c_str()));
            return;
        }
        unsigned format = b[0], cont = b[1], descSize = b[2], cls = b[3];
        if (cont) {
            Detail(Format("character %s: continuation, %zu bytes", code.c_str(), n));
            return;
        }
        if (format == 15 && n >= 10) {
            unsigned dataSize = Be16(b + 4);
            unsigned glyph = Be16(b + 6);
            unsigned sum = 0;
            for (size_t i = 4; i < n; ++i) sum += b[i];
            Detail(Format("character %s: format 15, class %u, glyph id %u, glyph %zu bytes, "
                          "data size %u, checksum %s",
                          code.c_str(), cls, glyph, n - 10, dataSize,
                          (sum & 0xFF) == 0 ? "ok" : "WRONG"));
        } else if (format == 4 && n >= 16) {
            Detail(Format("character %s: format 4 bitmap, class %u, %ux%u dots", code.c_str(), cls,
                          Be16(b + 10), Be16(b + 12)));
        } else {
            Detail(Format("character %s: format %u, descriptor %u bytes, class %u", code.c_str(),
                          format, descSize, cls));
        }
    }

    void Pattern(const uint8_t *b, size_t n) {
        if (n < 8) {
            Detail("pattern header cut");
            return;
        }
        unsigned format = b[0];
        std::string s = Format("format %u, encoding %u (%s), %ux%u pixels", format, b[2],
                               b[2] == 1 ? "1 bit a pixel" : "other", Be16(b + 6), Be16(b + 4));
        size_t head = 8;
        if (format == 20 && n >= 12) {
            s += Format(", resolution %ux%u dpi", Be16(b + 8), Be16(b + 10));
            head = 12;
        }
        s += Format(", %zu bytes of rows", n - head);
        Detail(s);
    }

    void ImageData(const uint8_t *b, size_t n) {
        if (n < 6) {
            Detail("image data header cut");
            return;
        }
        static const Named kSpace[] = {{0, "device RGB"},
                                       {1, "device CMY"},
                                       {2, "colorimetric RGB"},
                                       {3, "CIE L*a*b*"},
                                       {4, "luminance-chrominance"},
                                       {-1, nullptr}};
        static const Named kEnc[] = {{0, "indexed by plane"},
                                     {1, "indexed by pixel"},
                                     {2, "direct by plane"},
                                     {3, "direct by pixel"},
                                     {-1, nullptr}};
        const char *space = Lookup(kSpace, b[0]);
        const char *enc = Lookup(kEnc, b[1]);
        Detail(Format("colour space %u (%s), encoding %u (%s), %u bits an index, primaries "
                      "%u/%u/%u bits",
                      b[0], space ? space : "unknown", b[1], enc ? enc : "unknown", b[2], b[3],
                      b[4], b[5]));
    }

    // ---- HP-GL/2 ------------------------------------------------------------------------

    void Hpgl() {
        uint8_t c = d_[pos_];
        if (c == ';' || c == ',' || c == ' ' || c == '\n' || c == '\r' || c == '\t') {
            ++pos_;
            return;
        }
        if (!std::isalpha(c)) {
            Line(pos_, Visible(&c, 1), "unexpected byte in HP-GL/2", false);
            ++pos_;
            return;
        }
        size_t start = pos_;
        if (n_ - pos_ < 2) {
            Truncated(start, "an HP-GL/2 mnemonic");
            return;
        }
        if (!std::isalpha(d_[pos_ + 1])) {
            Line(start, Visible(d_ + start, 2), "unknown HP-GL/2 instruction", false);
            pos_ += 1;
            return;
        }
        std::string m{static_cast<char>(std::toupper(c)),
                      static_cast<char>(std::toupper(d_[pos_ + 1]))};
        size_t p = pos_ + 2;
        if (m == "LB") {
            size_t end = p;
            while (end < n_ && d_[end] != labelTerm_) ++end;
            if (end == n_) {
                Truncated(start, "an HP-GL/2 label");
                return;
            }
            Line(start, "LB" + Clip(d_ + p, end - p) + Visible(&labelTerm_, 1),
                 Format("label \"%s\", %zu bytes", Clip(d_ + p, end - p).c_str(), end - p));
            pos_ = end + 1;
            return;
        }
        size_t end = p;
        while (end < n_ && (std::isdigit(d_[end]) || d_[end] == '+' || d_[end] == '-' ||
                            d_[end] == '.' || d_[end] == ',' || d_[end] == ' '))
            ++end;
        std::string params = Clip(d_ + p, end - p);
        if (m == "DT" && end < n_ && d_[end] != ';' && d_[end] != ESC) {
            labelTerm_ = d_[end]; // the terminator is the byte itself, whatever it is
            params = Visible(d_ + end, 1);
            ++end;
            while (end < n_ && (std::isdigit(d_[end]) || d_[end] == ',')) ++end;
        }
        const char *name = FindHpgl(m);
        std::string meaning = name ? name : "unknown HP-GL/2 instruction";
        if (name && !params.empty()) meaning += ": " + params;
        Line(start, m + Clip(d_ + p, end - p), meaning, name != nullptr);
        pos_ = end;
    }

    const uint8_t *d_;
    size_t n_;
    const std::function<void(std::string_view)> &emit_;
    const std::function<void(size_t)> &done_;
    std::string out_;
    size_t pos_ = 0;
    Lang lang_ = Lang::PCL;
    DecodeResult result_;
    size_t rasterStart_ = 0, rasterRows_ = 0, rasterBytes_ = 0, rasterBad_ = 0;
    RasterState raster_;
    int compression_ = 0, rasterMethod_ = 0;
    long charCode_ = -1;
    uint8_t labelTerm_ = 3;
};

} // namespace

DecodeResult DecodeStream(const uint8_t *data, size_t size,
                          const std::function<void(std::string_view)> &emit,
                          const std::function<void(size_t)> &done) {
    return Decoder(data, size, emit, done).Run();
}

DecodeResult DecodeStream(const uint8_t *data, size_t size, std::string &out) {
    return DecodeStream(data, size, [&out](std::string_view piece) { out += piece; });
}

std::vector<RasterBlock> DecodeRaster(const uint8_t *data, size_t size, DecodeResult *result) {
    std::vector<RasterBlock> blocks;
    const std::function<void(std::string_view)> drop = [](std::string_view) {};
    const std::function<void(size_t)> none;
    DecodeResult r = Decoder(data, size, drop, none, &blocks).Run();
    if (result) *result = r;
    return blocks;
}

} // namespace q417tool
