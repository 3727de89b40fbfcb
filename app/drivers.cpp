// Drivers: one per printer description found, with the capabilities the description offers
// through the library's settings interface, under their PWG names.
#include "app.h"
#include "jobs.h"

#include "common.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <map>
#include <sys/stat.h>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace q417::app {

namespace {

bool IsFile(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// A driver name PAPPL can keep in its state file and a URL: lower case letters, digits, '-'.
std::string DriverName(std::string stem) {
    for (char &c : stem) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_') c = '-';
    }
    return stem;
}

// Points to hundredths of a millimetre.
int Hmm(double points) {
    return static_cast<int>(points * 2540.0 / 72.0 + 0.5);
}

void Copy(char *dst, size_t size, const std::string &src) {
    snprintf(dst, size, "%s", src.c_str());
}

void Identify(pappl_printer_t *printer, pappl_identify_actions_t, const char *message) {
    // The printers have no panel the application could reach: the request goes to the log.
    papplLogPrinter(printer, PAPPL_LOGLEVEL_INFO, "Identify-Printer: %s",
                    message ? message : "(no message)");
}

} // namespace

// The library keeps the first configuration it builds for the life of the process, so each
// description is read in a process of its own, which hands the capabilities back as lines of
// tab-separated fields (tabs, newlines and backslashes escaped).
namespace {

std::string Escape(const std::string &s) {
    std::string out;
    for (char c : s) {
        if (c == '\\')
            out += "\\\\";
        else if (c == '\t')
            out += "\\t";
        else if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
    return out;
}

std::string Unescape(const std::string &s) {
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] != '\\' || i + 1 == s.size()) {
            out += s[i];
            continue;
        }
        char c = s[++i];
        out += c == 't' ? '\t' : c == 'n' ? '\n' : c;
    }
    return out;
}

class Record {
  public:
    explicit Record(const char *tag) : line_(tag) {}
    Record &operator<<(const std::string &v) { return line_ += '\t' + Escape(v), *this; }
    Record &operator<<(int v) { return *this << std::to_string(v); }
    Record &operator<<(double v) {
        char buf[40];
        snprintf(buf, sizeof buf, "%.17g", v);
        return *this << std::string(buf);
    }
    Record &operator<<(const pages::Choice &c) {
        return *this << c.index << c.key << c.text << c.ppd << c.ipp;
    }
    std::string str() const { return line_ + '\n'; }

  private:
    std::string line_;
};

class Fields {
  public:
    explicit Fields(const std::string &line) {
        size_t start = 0;
        for (;;) {
            size_t tab = line.find('\t', start);
            f_.push_back(
                Unescape(line.substr(start, tab == std::string::npos ? tab : tab - start)));
            if (tab == std::string::npos) break;
            start = tab + 1;
        }
    }
    const std::string &tag() const { return f_[0]; }
    Fields &operator>>(std::string &v) { return v = Next(), *this; }
    Fields &operator>>(int &v) { return v = atoi(Next().c_str()), *this; }
    Fields &operator>>(bool &v) { return v = Next() == "1", *this; }
    Fields &operator>>(double &v) { return v = strtod(Next().c_str(), nullptr), *this; }
    Fields &operator>>(pages::Choice &c) {
        return *this >> c.index >> c.key >> c.text >> c.ppd >> c.ipp;
    }

  private:
    std::string Next() { return i_ < f_.size() ? f_[i_++] : std::string(); }
    std::vector<std::string> f_;
    size_t i_ = 1;
};

std::string Serialize(const pages::Capabilities &c) {
    std::string out = (Record("model") << c.model).str();
    for (const auto &p : c.papers)
        out += (Record("paper") << p << p.width << p.length << p.left << p.bottom << p.right
                                << p.top << p.pwgWidth << p.pwgLength)
                   .str();
    const auto &u = c.custom;
    out += (Record("custom") << int(u.allowed) << u.index << u.key << u.minWidth << u.minLength
                             << u.maxWidth << u.maxLength << u.defWidth << u.defLength << u.left
                             << u.bottom << u.right << u.top << u.ippMin << u.ippMax)
               .str();
    for (const auto &x : c.sources) out += (Record("source") << x).str();
    for (const auto &x : c.mediaTypes) out += (Record("type") << x).str();
    for (const auto &x : c.bins) out += (Record("bin") << x).str();
    for (const auto &r : c.resolutions) out += (Record("resolution") << r << r.x << r.y).str();
    for (const auto &w : c.watermarks) out += (Record("watermark") << w << w.label << w.face).str();
    out += (Record("defaults") << c.defaultPaper << c.defaultSource << c.defaultMediaType
                               << c.defaultBin << c.defaultResolution << int(c.duplex)
                               << int(c.colour) << int(c.collate))
               .str();
    return out;
}

pages::Capabilities Deserialize(const std::string &text) {
    pages::Capabilities c;
    size_t start = 0;
    while (start < text.size()) {
        size_t nl = text.find('\n', start);
        if (nl == std::string::npos) nl = text.size();
        Fields f(text.substr(start, nl - start));
        start = nl + 1;
        if (f.tag() == "model") {
            f >> c.model;
        } else if (f.tag() == "paper") {
            pages::Paper p;
            f >> p >> p.width >> p.length >> p.left >> p.bottom >> p.right >> p.top >> p.pwgWidth >>
                p.pwgLength;
            c.papers.push_back(p);
        } else if (f.tag() == "custom") {
            auto &u = c.custom;
            f >> u.allowed >> u.index >> u.key >> u.minWidth >> u.minLength >> u.maxWidth >>
                u.maxLength >> u.defWidth >> u.defLength >> u.left >> u.bottom >> u.right >>
                u.top >> u.ippMin >> u.ippMax;
        } else if (f.tag() == "source" || f.tag() == "type" || f.tag() == "bin") {
            pages::Choice x;
            f >> x;
            (f.tag() == "source" ? c.sources
             : f.tag() == "type" ? c.mediaTypes
                                 : c.bins)
                .push_back(x);
        } else if (f.tag() == "resolution") {
            pages::Resolution r;
            f >> r >> r.x >> r.y;
            c.resolutions.push_back(r);
        } else if (f.tag() == "watermark") {
            pages::Watermark w;
            f >> w >> w.label >> w.face;
            c.watermarks.push_back(w);
        } else if (f.tag() == "defaults") {
            f >> c.defaultPaper >> c.defaultSource >> c.defaultMediaType >> c.defaultBin >>
                c.defaultResolution >> c.duplex >> c.colour >> c.collate;
        }
    }
    return c;
}

// The capabilities of `pdd`, read by a child process; false (with the reason in `error`)
// when the library can't use the description.
bool DescribeApart(const std::string &pdd, const std::string &windowsDir, pages::Capabilities &caps,
                   std::string &error) {
    int p[2];
    if (pipe2(p, O_CLOEXEC) != 0) return error = strerror(errno), false;
    pid_t pid = fork();
    if (pid < 0) {
        close(p[0]), close(p[1]);
        return error = strerror(errno), false;
    }
    if (pid == 0) {
        close(p[0]);
        std::string out;
        int status = 0;
        try {
            pages::Printer printer(pdd, "");
            out = Serialize(pages::Describe(printer, windowsDir));
        } catch (const std::exception &e) {
            out = e.what();
            status = 1;
        }
        for (size_t done = 0; done < out.size();) {
            ssize_t n = write(p[1], out.data() + done, out.size() - done);
            if (n <= 0) break;
            done += static_cast<size_t>(n);
        }
        _exit(status);
    }
    close(p[1]);
    std::string text;
    char buf[8192];
    ssize_t n;
    while ((n = read(p[0], buf, sizeof buf)) > 0 || (n < 0 && errno == EINTR))
        if (n > 0) text.append(buf, static_cast<size_t>(n));
    close(p[0]);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        error = text.empty() ? "the library gave up on it" : text;
        return false;
    }
    caps = Deserialize(text);
    caps.pdd = pdd;
    return true;
}

} // namespace

std::vector<Description> FindDescriptions(const std::vector<std::string> &dirs) {
    std::map<std::string, Description> found;
    std::string fallbackWindows; // the first folder with QMWMARK.INI
    for (const auto &dir : dirs)
        if (fallbackWindows.empty() && IsFile(dir + "/QMWMARK.INI")) fallbackWindows = dir;
    for (const auto &dir : dirs) {
        DIR *d = opendir(dir.c_str());
        if (!d) continue;
        std::vector<std::string> names;
        while (dirent *e = readdir(d)) {
            std::string n = e->d_name;
            if (n.size() > 4 && strcasecmp(n.c_str() + n.size() - 4, ".pdd") == 0)
                names.push_back(n);
        }
        closedir(d);
        std::sort(names.begin(), names.end());
        for (const auto &n : names) {
            Description desc;
            desc.pdd = dir + "/" + n;
            if (!IsFile(desc.pdd)) continue;
            desc.driver = DriverName(n.substr(0, n.size() - 4));
            desc.windowsDir = IsFile(dir + "/QMWMARK.INI") ? dir : fallbackWindows;
            std::string error;
            if (!DescribeApart(desc.pdd, desc.windowsDir, desc.caps, error)) {
                fprintf(stderr, "q417-printer-app: %s: skipped: %s\n", desc.pdd.c_str(),
                        error.c_str());
                continue;
            }
            desc.model = desc.caps.model.empty() ? desc.driver : desc.caps.model;
            std::string make = "Quillmark", model = desc.model;
            if (model.rfind(make + " ", 0) == 0) model = model.substr(make.size() + 1);
            desc.deviceId = "MFG:" + make + ";MDL:" + model + ";CMD:PJL,PCL,HPGL2;";
            found[desc.driver] = std::move(desc);
        }
    }
    std::vector<Description> list;
    for (auto &[name, desc] : found) list.push_back(std::move(desc));
    return list;
}

bool DriverCallback(pappl_system_t *, const char *driver_name, const char *, const char *,
                    pappl_pr_driver_data_t *data, ipp_t **attrs, void *) {
    const Description *desc = nullptr;
    for (const auto &d : TheApp().descriptions)
        if (d.driver == driver_name) desc = &d;
    if (!desc) return false;
    const pages::Capabilities &caps = desc->caps;

    SetJobCallbacks(data);
    data->identify_cb = Identify;
    data->identify_supported = PAPPL_IDENTIFY_ACTIONS_DISPLAY;
    data->identify_default = PAPPL_IDENTIFY_ACTIONS_DISPLAY;
    Copy(data->make_and_model, sizeof data->make_and_model, desc->model);
    data->ppm = 20;
    data->ppm_color = caps.colour ? 20 : 0;
    data->kind = PAPPL_KIND_DOCUMENT | PAPPL_KIND_ENVELOPE;
    if (caps.colour) {
        data->color_supported =
            PAPPL_COLOR_MODE_AUTO | PAPPL_COLOR_MODE_COLOR | PAPPL_COLOR_MODE_MONOCHROME;
        data->color_default = PAPPL_COLOR_MODE_AUTO;
        data->raster_types = PAPPL_PWG_RASTER_TYPE_SGRAY_8 | PAPPL_PWG_RASTER_TYPE_SRGB_8;
    } else {
        data->color_supported = PAPPL_COLOR_MODE_MONOCHROME;
        data->color_default = PAPPL_COLOR_MODE_MONOCHROME;
        data->raster_types = PAPPL_PWG_RASTER_TYPE_SGRAY_8;
    }
    data->content_default = PAPPL_CONTENT_AUTO;
    data->quality_default = IPP_QUALITY_NORMAL;
    data->scaling_default = PAPPL_SCALING_AUTO;
    data->orient_default = IPP_ORIENT_PORTRAIT;
    data->has_supplies = true;

    data->duplex = caps.duplex ? PAPPL_DUPLEX_NORMAL : PAPPL_DUPLEX_NONE;
    data->sides_supported = PAPPL_SIDES_ONE_SIDED;
    if (caps.duplex)
        data->sides_supported |= PAPPL_SIDES_TWO_SIDED_LONG_EDGE | PAPPL_SIDES_TWO_SIDED_SHORT_EDGE;
    data->sides_default = PAPPL_SIDES_ONE_SIDED;

    for (const auto &r : caps.resolutions) {
        if (data->num_resolution == PAPPL_MAX_RESOLUTION) break;
        data->x_resolution[data->num_resolution] = r.x;
        data->y_resolution[data->num_resolution++] = r.y;
    }
    if (data->num_resolution == 0) { // the description names none: the language's own
        data->x_resolution[0] = data->y_resolution[0] = 300;
        data->num_resolution = 1;
    }
    data->x_default = data->x_resolution[0], data->y_default = data->y_resolution[0];
    if (caps.defaultResolution >= 0 && caps.defaultResolution < data->num_resolution) {
        data->x_default = caps.resolutions[static_cast<size_t>(caps.defaultResolution)].x;
        data->y_default = caps.resolutions[static_cast<size_t>(caps.defaultResolution)].y;
    }

    // Media: every paper by its PWG name, and the custom range where the model takes one.
    for (const auto &p : caps.papers) {
        if (data->num_media == PAPPL_MAX_MEDIA - 2) break;
        data->media[data->num_media++] = p.ipp.c_str();
    }
    if (caps.custom.allowed) {
        data->media[data->num_media++] = caps.custom.ippMin.c_str();
        data->media[data->num_media++] = caps.custom.ippMax.c_str();
    }
    const pages::Paper *paper = caps.papers.empty() ? nullptr : &caps.papers.front();
    if (caps.defaultPaper >= 0 && static_cast<size_t>(caps.defaultPaper) < caps.papers.size())
        paper = &caps.papers[static_cast<size_t>(caps.defaultPaper)];
    if (paper) {
        // One set of margins for all media: the default paper's.
        data->left_right = Hmm(std::max(paper->left, paper->width - paper->right));
        data->bottom_top = Hmm(std::max(paper->bottom, paper->length - paper->top));
        pappl_media_col_t &m = data->media_default;
        Copy(m.size_name, sizeof m.size_name, paper->ipp);
        m.size_width = paper->pwgWidth, m.size_length = paper->pwgLength;
        m.left_margin = m.right_margin = data->left_right;
        m.top_margin = m.bottom_margin = data->bottom_top;
    }

    for (const auto &s : caps.sources) {
        if (data->num_source == PAPPL_MAX_SOURCE) break;
        if (s.ipp == "auto") continue; // PAPPL offers "auto" of its own
        data->source[data->num_source++] = s.ipp.c_str();
    }
    for (const auto &t : caps.mediaTypes) {
        if (data->num_type == PAPPL_MAX_TYPE) break;
        data->type[data->num_type++] = t.ipp.c_str();
    }
    if (data->num_type == 0) data->type[data->num_type++] = "stationery"; // PAPPL needs one
    for (const auto &b : caps.bins) {
        if (data->num_bin == PAPPL_MAX_BIN) break;
        data->bin[data->num_bin++] = b.ipp.c_str();
    }
    if (caps.defaultBin >= 0 && caps.defaultBin < data->num_bin)
        data->bin_default = caps.defaultBin;
    pappl_media_col_t &m = data->media_default;
    if (caps.defaultSource >= 0 && caps.defaultSource < data->num_source)
        Copy(m.source, sizeof m.source, data->source[caps.defaultSource]);
    else if (data->num_source > 0)
        Copy(m.source, sizeof m.source, data->source[0]);
    if (caps.defaultMediaType >= 0 && caps.defaultMediaType < data->num_type)
        Copy(m.type, sizeof m.type, data->type[caps.defaultMediaType]);
    else if (data->num_type > 0)
        Copy(m.type, sizeof m.type, data->type[0]);
    // Each tray is taken to hold the default paper until someone says otherwise.
    for (int i = 0; i < data->num_source; ++i) {
        data->media_ready[i] = m;
        Copy(data->media_ready[i].source, sizeof m.source, data->source[i]);
    }

    // Vendor attributes: the library's page placement and the watermarks.
    const char *wmName = pages::NameOf(pages::Option::Watermark).ipp;
    const char *wmFirst = pages::NameOf(pages::Option::WatermarkFirstPage).ipp;
    data->vendor[data->num_vendor++] = "number-up";
    data->vendor[data->num_vendor++] = wmName;
    data->vendor[data->num_vendor++] = wmFirst;

    *attrs = ippNew();
    static const int kNup[] = {1, 2, 4, 6, 9, 16};
    ippAddIntegers(*attrs, IPP_TAG_PRINTER, IPP_TAG_INTEGER, "number-up-supported", 6, kNup);
    ippAddInteger(*attrs, IPP_TAG_PRINTER, IPP_TAG_INTEGER, "number-up-default", 1);
    std::vector<const char *> marks{"none"};
    for (const auto &w : caps.watermarks) marks.push_back(w.ipp.c_str());
    std::string supported = std::string(wmName) + "-supported";
    std::string def = std::string(wmName) + "-default";
    ippAddStrings(*attrs, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, supported.c_str(),
                  static_cast<int>(marks.size()), nullptr, marks.data());
    ippAddString(*attrs, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, def.c_str(), nullptr, "none");
    supported = std::string(wmFirst) + "-supported";
    def = std::string(wmFirst) + "-default";
    ippAddBoolean(*attrs, IPP_TAG_PRINTER, supported.c_str(), 1);
    ippAddBoolean(*attrs, IPP_TAG_PRINTER, def.c_str(), 0);
    // What IPP Everywhere clients look for and PAPPL leaves to the driver.
    ippAddBoolean(*attrs, IPP_TAG_PRINTER, "preferred-attributes-supported", 0);
    static const char *const kOverrides[] = {"document-number", "pages"};
    ippAddStrings(*attrs, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, "overrides-supported", 2, nullptr,
                  kOverrides);
    ippAddString(*attrs, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, "print-rendering-intent-default",
                 nullptr, "auto");
    ippAddString(*attrs, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, "print-rendering-intent-supported",
                 nullptr, "auto");
    return true;
}

void PrinterCreated(pappl_printer_t *printer, void *) {
    // The toners, at a level the application can't know: the printers answer on no channel
    // it reads.
    static const struct {
        pappl_supply_color_t color;
        const char *name;
    } kToners[] = {{PAPPL_SUPPLY_COLOR_BLACK, "Black Toner"},
                   {PAPPL_SUPPLY_COLOR_CYAN, "Cyan Toner"},
                   {PAPPL_SUPPLY_COLOR_MAGENTA, "Magenta Toner"},
                   {PAPPL_SUPPLY_COLOR_YELLOW, "Yellow Toner"}};
    pappl_pr_driver_data_t data;
    papplPrinterGetDriverData(printer, &data);
    pappl_supply_t supplies[4] = {};
    int n = data.ppm_color > 0 ? 4 : 1;
    for (int i = 0; i < n; ++i) {
        supplies[i].color = kToners[i].color;
        snprintf(supplies[i].description, sizeof supplies[i].description, "%s", kToners[i].name);
        supplies[i].is_consumed = true;
        supplies[i].level = -1;
        supplies[i].type = PAPPL_SUPPLY_TYPE_TONER;
    }
    papplPrinterSetSupplies(printer, n, supplies);
}

} // namespace q417::app
