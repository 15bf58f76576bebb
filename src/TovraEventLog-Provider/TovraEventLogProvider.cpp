// "Tovra_EventLog": the controller's event log as one record log (its event
// count and the events, newest first), and the method that clears it.
#include "ModuleStamp.h"
#include "EventRequests.h"
#include "MethodCommand.h"

#include <cstring>

namespace {

struct EventLog {
    static constexpr const char *kPrefix = "TovraEventLogProvider";
    static constexpr const char *kClass = "Tovra_EventLog";
    static constexpr const char *kSuperClass = "CIM_RecordLog";
    static constexpr const char *kGetKey = "InstanceID";
    static inline const char *kKeys[] = {"InstanceID", nullptr};
    static constexpr CMPICount kCapacity = 1;
    static constexpr bool kReadsController = true;
    // The refusal text lacks the "P" of "Provider"; kept as it stands.
    static constexpr const char *kDeniedBy = "TovraEventLogrovider";
    static constexpr const char *kCalibrationMessage = "OK";
    using Ops = tovra::CachedInstanceOps<EventLog>;

    template <class Emit> static tovra::WalkResult walk(tovra::WalkContext &w, Emit &&emit) {
        unsigned count = 0;
        std::vector<EventInfo> events;
        if (!EnumTovraEventInfo(w.status, w.fd, &count, &events)) return tovra::WalkResult::Abort;
        std::vector<std::string> texts;
        for (const EventInfo &e : events) texts.push_back(eventText(e));
        const std::string id = std::string(GetControllerSerialNumber(w.controller)) + ":EventLog";
        emit([&](tovra::KeyWriter &k) { k.str("InstanceID", id); },
             [&](tovra::PropertyWriter &p) {
                 p.u64("CurrentNumberOfRecords", count);
                 p.str("ElementName", "Controller Event Log");
                 p.u32("Events", count);
                 p.strArray("EventRecords", texts);
                 p.str("InstanceID", id);
                 p.u64("MaxNumberOfRecords", 256);
                 p.str("Name", id);
             });
        return tovra::WalkResult::Complete;
    }

    static CMPIStatus invokeMethod(const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *,
                                   const char *method, const CMPIArgs *in, CMPIArgs *);
};

// "ClearLog" takes no argument; refused arguments and any other name answer
// without ending the result.
CMPIStatus EventLog::invokeMethod(const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *,
                                  const char *method, const CMPIArgs *in, CMPIArgs *) {
    if (method == nullptr || std::strcmp(method, "ClearLog") != 0) return tovra::okStatus();
    const CMPIBroker *broker = tovra::ModuleState<EventLog>::_TovraBroker;
    if (tovra::ArgReader(in).count() != 0)
        return CMPIStatus{static_cast<CMPIrc>(49),
                          CMNewString(broker, "ClearLog: incorrect args number were received.", nullptr)};
    CMPIStatus st = tovra::makeStatus(CMPI_RC_ERROR_SYSTEM);
    {
        tovra::DeviceFd device;
        if (device.valid()) st = ClearEvent(broker, device.get());
    }
    CMReturnData(rslt, tovra::statusText(st), CMPI_chars);
    CMReturnDone(rslt);
    return st;
}

}  // namespace

TOVRA_INSTANCE_PROVIDER(EventLog, EventLog)
TOVRA_METHOD_PROVIDER(EventLog, EventLog)
