// Tells other modules, in this process and in every other, that their
// instance caches are stale after a configuration change.
#pragma once

#include <cmpimacs.h>

#include <initializer_list>

namespace tovra {

void TovraInvokeMethodResetBaseTime(const CMPIBroker *broker, const CMPIContext *ctx,
                                    std::initializer_list<const char *> classNames);

}  // namespace tovra
