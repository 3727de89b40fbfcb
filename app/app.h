// q417-printer-app: the printer family as a driverless IPP printer, on PAPPL. PAPPL does IPP,
// spooling, the web pages and the device layer; this program supplies one driver per printer
// description and turns each job into the printer's stream in a worker process of its own.
#pragma once

#include <pappl/pappl.h>

#include "options.h"

#include <string>
#include <vector>

namespace q417::app {

// A printer description the application offers as a driver.
struct Description {
    std::string driver;     // PAPPL's driver name: the file name without ".pdd", lower case
    std::string pdd;        // the description
    std::string windowsDir; // the folder with QMWMARK.INI (and fonts) for its watermarks
    std::string model;      // make and model, as the description names it
    std::string deviceId;   // IEEE 1284 device id, for matching a printer to its driver
    pages::Capabilities caps;
};

// What the callbacks share; made once in main, before PAPPL starts any thread.
struct App {
    std::string self; // this program, to run job workers from
    std::vector<std::string> descriptionDirs;
    std::vector<Description> descriptions; // in driver order
    std::vector<pappl_pr_driver_t> drivers;
    std::string spoolDir; // -o spool-directory, empty: PAPPL's choice
    bool server = false;  // the "server" subcommand runs
};
App &TheApp();

// Descriptions found in `dirs` (later folders override earlier ones of the same name).
std::vector<Description> FindDescriptions(const std::vector<std::string> &dirs);

// PAPPL's driver callback: the description's capabilities as driver data and attributes.
bool DriverCallback(pappl_system_t *system, const char *driver_name, const char *device_uri,
                    const char *device_id, pappl_pr_driver_data_t *data, ipp_t **attrs,
                    void *cbdata);

// PAPPL's printer creation callback: what the driver data can't say (the supplies).
void PrinterCreated(pappl_printer_t *printer, void *data);

// The document filters that hand a spooled document to a job worker, and the watch on the
// printers' devices.
void SetUpJobs(pappl_system_t *system);

// The job worker: the hidden subcommand that prints one document through the page pipeline
// to standard output. Returns the process's exit status.
int WorkerMain(int argc, char **argv);

} // namespace q417::app
