// The controller settings methods of "Tovra_RAIDControllerSystem": password,
// management address, beeper and mode, the 0x1F settings, firmware update and
// the cache lifetime.
#pragma once

#include <cmpimacs.h>

namespace tovra {

struct SettingsCall {
    const CMPIBroker *broker;
    const CMPIContext *ctx;
    const CMPIResult *rslt;
    const char *method;
    const CMPIArgs *in;
    CMPIArgs *out;
    // Makes the controller system's own caches stale.
    void (*staleOwnCaches)();
};

// Runs one settings method; an unknown name answers success with no value.
CMPIStatus invokeControllerSettingsMethod(const SettingsCall &call);

// The cache lifetimes SetWaTP accepts, in seconds.
inline constexpr unsigned kMinCacheLifetime = 1;
inline constexpr unsigned kMaxCacheLifetime = 86400;

}  // namespace tovra
