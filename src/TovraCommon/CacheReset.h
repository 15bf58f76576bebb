// Tells other modules that their caches are stale after a configuration
// change, by invoking their "TimeCalibration" method through the broker.
#pragma once

#include <cmpimacs.h>

#include <initializer_list>

namespace tovra {

void TovraInvokeMethodResetBaseTime(const CMPIBroker *broker, const CMPIContext *ctx,
                                    std::initializer_list<const char *> classNames);

}  // namespace tovra
