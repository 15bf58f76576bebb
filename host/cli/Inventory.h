// The storage administrator's view of the adapter: controller, port controller,
// software versions, battery, ports, enclosures with their sensors, slots and
// disks, disk extents, storage pools, storage volumes and default settings,
// gathered through the host from the providers that serve them.
#pragma once

#include "Host.h"

#include <ostream>

namespace cimhost::cli {

// Prints the inventory as text (or JSON); returns a process exit code:
// 0 when every class answered, 1 when one failed.
int printInventory(Host &host, std::ostream &out, bool json);

}  // namespace cimhost::cli
