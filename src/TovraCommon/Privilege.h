// The caller's rights: only a caller with the host's read-write permission
// may invoke methods. The host's user authorization service decides.
#pragma once

#include <cmpimacs.h>

namespace tovra {

CMPIStatus ValidatePrivilege(const CMPIContext *ctx, const CMPIBroker *broker);

}  // namespace tovra
