#include "tool.h"
namespace q417tool {
Command AddPrintCommand(CLI::App &app) {
    auto *s = app.add_subcommand("print", "x");
    return {s, [] { return 0; }};
}
Command AddDevmodeCommand(CLI::App &app) {
    auto *s = app.add_subcommand("devmode", "x");
    return {s, [] { return 0; }};
}
} // namespace q417tool
