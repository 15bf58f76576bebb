// `--simulate`: tovra-cim runs itself again with the adapter simulator
// preloaded, so no driver is needed; and, without it, a missing driver device
// is named with the way to try the simulator.
#pragma once

#include "Installation.h"
#include "Reply.h"

#include <string>

namespace cimhost::cli {

// Replaces the process with `argv` run again under the simulator (the
// library `found` names, `scenario` or else TOVRA_SIM_SCENARIO or "default").
// Returns "" when the process already runs so (the caller goes on), or why it
// cannot (a scenario the simulator would not find among them); on success it
// does not return.
std::string runUnderSimulator(const Installation *found, const std::string &scenario, char **argv);

// Whether a provider answered that it could not open the adapter device:
// enumerations fail with CMPI_RC_ERROR_SYSTEM, methods with "<method>: File
// Open Failed.".
bool deviceOpenFailed(const Reply &reply);

// "" when the adapter device opens; otherwise what is wrong with it, for
// example "no adapter device at <path>; use --simulate to try the simulator".
std::string deviceProblem();

}  // namespace cimhost::cli
