#include "CacheReset.h"

#include "CacheEpochs.h"
#include "Platform.h"

namespace tovra {

// The stale modules are told through the shared reset counters, not through
// the broker: an up-call made while this method may itself be serving one
// would wait forever in a CIMOM that serialises a process's up-calls.
void TovraInvokeMethodResetBaseTime(const CMPIBroker *, const CMPIContext *,
                                    std::initializer_list<const char *> classNames) {
    announceCacheReset(classNames);
    logAlert("%s: Ending\n", "TovraInvokeMethodResetBaseTime");
}

}  // namespace tovra
