// An alert as a Tovra_AlertIndication instance, delivered through the broker.
#pragma once

#include "Alert.h"

#include <cmpidt.h>

#include <string>

namespace tovra::alerts {

inline constexpr const char kIndicationClass[] = "Tovra_AlertIndication";
inline constexpr const char kProviderName[] = "TovraAlertIndicationProvider";

// Builds the instance in namespace ns and delivers it; every object it makes
// is released before it returns.
CMPIStatus deliverAlert(const CMPIBroker *broker, const CMPIContext *ctx, const std::string &ns,
                        const std::string &systemName, const Alert &alert);

}  // namespace tovra::alerts
