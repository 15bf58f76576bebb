// The adapter's metric families, read as any client reads the adapter: the
// host's enumerations of the Tovra classes, so a scrape is answered from the
// providers' instance caches and adds no firmware traffic while they are
// fresh. Disks, RAID sets, volumes and the battery are described by one
// table each (labels, gauges, state sets, info); the adapter's info metric
// and the enclosure sensors are written from their own shapes.
#pragma once

#include "Exposition.h"

namespace cimhost {
class Host;
}

namespace cimserver {

class AdapterMetrics {
public:
    explicit AdapterMetrics(cimhost::Host &host) : host_(host) {}

    // Enumerates the classes (on the calling thread, with its principal) and
    // writes their families; returns how many enumerations failed.
    unsigned write(Exposition &out) const;

private:
    cimhost::Host &host_;
};

}  // namespace cimserver
