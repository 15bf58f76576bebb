// The enclosure sensors' part of the health verdict: each reading judged by
// the descriptor of its sensor type (fan, voltage, temperature, power), with
// its performance data.
#pragma once

#include "Health.h"

#include <optional>
#include <vector>

namespace cimhost::cli {

struct SensorVerdict {
    Component component;
    std::optional<PerfDatum> perf;
};

// Every sensor of every enclosure ("Tovra_Chassis"), in the order served.
std::vector<SensorVerdict> judgeSensors(const Snapshot &adapter, const HealthLimits &limits);

// Shortest text of a reading (readings are real32 on the wire): "12.08", "48".
std::string readingText(double v);

}  // namespace cimhost::cli
