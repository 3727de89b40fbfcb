// A printer made known to the library for the length of a command, and the device mode
// helpers that print and devmode share.
#pragma once

#include "q417/host_tools.h"
#include "common.h"

#include <string>
#include <vector>

namespace q417::pages {

class Printer {
  public:
    // pdd: the printer description; port: what the settings interface reports as the port.
    Printer(const std::string &pdd, const std::string &port);
    ~Printer();
    Printer(const Printer &) = delete;
    Printer &operator=(const Printer &) = delete;

    HANDLE32 handle() const { return h_; }
    const std::string &pdd() const { return pdd_; }
    // The description's path as the library has it: a short name when the real one is long or
    // holds characters beyond ASCII.
    const std::string &libraryPath() const { return library_; }

    // A fresh device mode with the printer's configuration attached and every selection at
    // the description's default. A compiled configuration that is damaged is built again from
    // the description. Fail()s when the library can't build a configuration.
    std::vector<uint8_t> NewDevMode();
    // A device mode read back from a file: handle and configuration made good for this run.
    void Adopt(std::vector<uint8_t> &dm);

  private:
    void RepairCompiled();

    HANDLE32 h_ = 0;
    std::string pdd_, library_;
};

// Whether the library can keep a compiled configuration beside a description at this path
// (its 8-bit name fits the library's room and its code page).
bool LibraryCanCompile(const std::string &libraryPath);

inline DDIDEVMODE *DM(std::vector<uint8_t> &dm) {
    return reinterpret_cast<DDIDEVMODE *>(dm.data());
}

// The five keyword families of the settings interface.
struct Keyword {
    DWORD id;
    const char *name; // as the command line names it
    const char *title;
};
extern const Keyword kKeywords[5];
const Keyword *FindKeyword(const std::string &name);

struct KeywordOption {
    std::string key;         // the description's option name
    std::string translation; // what a user sees
};
std::vector<KeywordOption> KeywordOptions(DDIDEVMODE *pdm, DWORD id);

// A family's option by name (key or translation, case ignored) or by index; Fail()s naming
// the family and the choices when there is no such option.
int ResolveOption(DDIDEVMODE *pdm, const Keyword &k, const std::string &value);

// Numbers given on the command line, with a message naming `what` when they aren't.
long ParseNumber(const std::string &text, const std::string &what);

// The DWORD and string ids of the settings interface by name.
struct IdName {
    DWORD id;
    const char *name;
};
extern const IdName kDWordIds[];
extern const size_t kDWordIdCount;
extern const IdName kStringIds[];
extern const size_t kStringIdCount;
// Accepts "PAPERSIZE", "papersize", "DDI_PAPERSIZE" or "10"; returns false when unknown.
bool FindDWordId(const std::string &name, DWORD &id);
bool FindStringId(const std::string &name, DWORD &id);
const char *DWordIdName(DWORD id);
const char *StringIdName(DWORD id);

std::string GetDDIString(DDIDEVMODE *pdm, DWORD id);

} // namespace q417::pages
