#include "AlertDelivery.h"

#include "Controller.h"

#include <cmpimacs.h>

namespace tovra::alerts {

namespace {

// Releases what the broker made for one delivery.
template <class T> struct Made {
    T *object = nullptr;
    ~Made() {
        if (object != nullptr) CMRelease(object);
    }
};

class Writer {
public:
    Writer(const CMPIBroker *broker, CMPIInstance *inst) : broker_(broker), inst_(inst) {}
    void str(const char *name, const std::string &value) { CMSetProperty(inst_, name, value.c_str(), CMPI_chars); }
    void u16(const char *name, CMPIUint16 value) { CMSetProperty(inst_, name, &value, CMPI_uint16); }
    void time(const char *name, uint32_t seconds) {
        Made<CMPIDateTime> dt{CMNewDateTimeFromBinary(broker_, CMPIUint64{seconds} * 1000000u, 0, nullptr)};
        if (dt.object != nullptr) CMSetProperty(inst_, name, &dt.object, CMPI_dateTime);
    }

private:
    const CMPIBroker *broker_;
    CMPIInstance *inst_;
};

}  // namespace

CMPIStatus deliverAlert(const CMPIBroker *broker, const CMPIContext *ctx, const std::string &ns,
                        const std::string &systemName, const Alert &a) {
    CMPIStatus rc{CMPI_RC_OK, nullptr};
    Made<CMPIObjectPath> op{CMNewObjectPath(broker, ns.c_str(), kIndicationClass, &rc)};
    if (op.object == nullptr) return rc;
    Made<CMPIInstance> inst{CMNewInstance(broker, op.object, &rc)};
    if (inst.object == nullptr) return rc;
    Writer w(broker, inst.object);
    w.str("IndicationIdentifier", a.identifier);
    w.time("IndicationTime", a.time);
    w.u16("PerceivedSeverity", a.perceivedSeverity);
    w.u16("AlertType", a.alertType);
    w.u16("ProbableCause", a.probableCause);
    w.str("ProbableCauseDescription", a.probableCauseDescription);
    w.str("Description", a.message);
    w.str("Message", a.message);
    w.str("AlertingManagedElement", a.element.path(ns));
    w.u16("AlertingElementFormat", 2);  // CIMObjectPath
    w.str("EventID", a.eventId);
    w.time("EventTime", a.time);
    w.str("SystemCreationClassName", SystemCreationClassName);
    w.str("SystemName", systemName);
    w.str("ProviderName", kProviderName);
    w.str("OwningEntity", "Tovra");
    return CBDeliverIndication(broker, ctx, ns.c_str(), inst.object);
}

}  // namespace tovra::alerts
