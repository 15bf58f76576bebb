// "Tovra_AlertIndication": the indication provider. While a filter is active
// and indications are enabled, one thread per process watches the adapter
// (AlertMonitor) and delivers an alert per new event of its log and per
// health change of its disks, RAID sets, volumes, battery and sensors.
#include "AlertMonitor.h"
#include "ModuleStamp.h"

namespace {

struct AlertIndication {
    static constexpr const char *kPrefix = "TovraAlertIndicationProvider";
    using Monitor = tovra::alerts::AlertMonitor;
};

}  // namespace

TOVRA_INDICATION_PROVIDER(AlertIndication, AlertIndication)
