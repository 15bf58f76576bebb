// How `tovra-cim health` answers: the monitoring plugin's first line
// "TOVRA <STATE> - <summary> | <performance data>", then with --verbose one
// line per component; or the same verdict as one JSON document. The check
// runs on its own thread under a time limit.
#pragma once

#include "Format.h"
#include "Health.h"

#include <functional>
#include <ostream>
#include <string>

namespace cimhost::cli {

// "TOVRA CRITICAL - Enc1 Slot7 Z1Z0A1C9 failed; Raid Set # 001 degraded | disks_failed=1;;0;0 ..."
std::string firstLine(const Verdict &verdict);
// The summary alone: the worst problems first, at most five named.
std::string summary(const Verdict &verdict);
// "label=value[UOM];warn;crit;min;max ..." with empty trailing fields left out.
std::string perfText(const std::vector<PerfDatum> &perfdata);
Json toJson(const Verdict &verdict);

void printVerdict(const Verdict &verdict, std::ostream &out, bool verbose, bool json);

// Runs check() on its own thread and prints its verdict; returns the exit
// code (the state). When it has not answered within `timeoutSeconds`, prints
// an UNKNOWN verdict and ends the process at once with exit code 3, without
// waiting for the thread.
int runHealth(std::function<Verdict()> check, double timeoutSeconds, bool verbose, bool json);

}  // namespace cimhost::cli
