// printf-style formatting into a std::string, for the tool's listings and page content.
#pragma once

#include <cstdarg>
#include <string>

namespace q417::pages {

std::string Format(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
std::string VFormat(const char *fmt, va_list ap);

} // namespace q417::pages
