// Job callbacks and the worker process that prints each document.
#pragma once

#include "app.h"

#include <string>
#include <utility>
#include <vector>

namespace q417::app {

// The drivers' own input format: PDF goes straight to the print callback, other spooled
// documents through a filter to it, raster through the raster callbacks.
inline constexpr const char *kDriverFormat = "application/pdf";

// The worker's exit status when the document can't be read, and when the job's settings are
// refused (any other failure exits 1).
inline constexpr int kExitDocument = 2;
inline constexpr int kExitSettings = 3;

// Fills in the job callbacks and the format of a driver.
void SetJobCallbacks(pappl_pr_driver_data_t *data);

// The job's attributes with the printer's defaults, as IPP names and values, for the worker.
std::vector<std::pair<std::string, std::string>>
JobAttributes(pappl_job_t *job, const pappl_pr_options_t *o, const pages::Capabilities &caps);

// Prints `file` (of MIME type `type`) in a worker and copies its stream to `device`. On
// failure the job has its message and reasons set and false is returned.
bool RunWorker(pappl_job_t *job, pappl_pr_options_t *options, pappl_device_t *device,
               const char *file, const char *type);

} // namespace q417::app
