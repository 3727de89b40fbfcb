// Where the CUPS side keeps the printer descriptions and QMWMARK.INI: "q417plg" in CUPS's data
// folder, which cupsd tells its children in CUPS_DATADIR.
#pragma once

#include <cstdlib>
#include <string>

#ifndef Q417_CUPS_DATADIR
#define Q417_CUPS_DATADIR "/usr/share/cups"
#endif

namespace q417::cups {

inline std::string DataDir() {
    const char *env = std::getenv("CUPS_DATADIR");
    return std::string(env && *env ? env : Q417_CUPS_DATADIR) + "/q417plg";
}

} // namespace q417::cups
