#include "format.h"

#include <cstdio>

namespace q417::pages {

std::string VFormat(const char *fmt, va_list ap) {
    char buf[1024];
    vsnprintf(buf, sizeof buf, fmt, ap);
    return buf;
}

std::string Format(const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    std::string s = VFormat(fmt, ap);
    va_end(ap);
    return s;
}

} // namespace q417::pages
