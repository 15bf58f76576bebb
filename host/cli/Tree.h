// The adapter as a graph: from the controller system, every association is
// followed through the host as a client would follow it, down to the disks'
// extents and firmware.
#pragma once

#include "Host.h"

#include <ostream>

namespace cimhost::cli {

// Prints the tree as indented text (or nested JSON); returns a process exit
// code: 0 when every step answered, 1 when one failed.
int printTree(Host &host, std::ostream &out, bool json);

}  // namespace cimhost::cli
