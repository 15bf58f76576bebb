// An indication provider that reports every call it gets as an indication
// ("Call" names it), delivered from within the call; enableIndications also
// starts a thread that delivers one "thread" indication and ends.
#include "TestSupport.h"

#include <mutex>
#include <thread>

namespace testprovider {
namespace {

std::mutex threadMutex;
std::thread deliverer;

CMPIStatus report(const CMPIContext *ctx, const char *call, const CMPISelectExp *filter, const char *className,
                  const char *owner, int flag) {
    CMPIStatus rc{CMPI_RC_OK, nullptr};
    CMPIObjectPath *op = CMNewObjectPath(mb(), "test/cimv2", "Test_Beacon", &rc);
    CMPIInstance *ind = op != nullptr ? CMNewInstance(mb(), op, &rc) : nullptr;
    if (ind == nullptr) return rc;
    CMSetProperty(ind, "Call", call, CMPI_chars);
    if (filter != nullptr) {
        CMPIString *q = CMGetSelExpString(filter, &rc);
        if (q != nullptr) CMSetProperty(ind, "Query", CMGetCharsPtr(q, nullptr), CMPI_chars);
    }
    if (className != nullptr) CMSetProperty(ind, "ClassName", className, CMPI_chars);
    if (owner != nullptr) CMSetProperty(ind, "Owner", owner, CMPI_chars);
    if (flag >= 0) {
        CMPIBoolean b = flag != 0 ? 1 : 0;
        CMSetProperty(ind, "Flag", &b, CMPI_boolean);
    }
    return CBDeliverIndication(mb(), ctx, "test/cimv2", ind);
}

void joinDeliverer() {
    std::lock_guard lock(threadMutex);
    if (deliverer.joinable()) deliverer.join();
}

CMPIStatus cleanup(CMPIIndicationMI *, const CMPIContext *, CMPIBoolean) {
    joinDeliverer();
    return status(CMPI_RC_OK);
}

CMPIStatus authorizeFilter(CMPIIndicationMI *, const CMPIContext *ctx, const CMPISelectExp *filter,
                           const char *className, const CMPIObjectPath *, const char *owner) {
    // A query that names "Refused" is not authorized.
    CMPIString *q = CMGetSelExpString(filter, nullptr);
    const char *text = q != nullptr ? CMGetCharsPtr(q, nullptr) : nullptr;
    if (text != nullptr && std::strstr(text, "Refused") != nullptr) return status(CMPI_RC_ERR_ACCESS_DENIED);
    return report(ctx, "authorizeFilter", filter, className, owner, -1);
}

CMPIStatus mustPoll(CMPIIndicationMI *, const CMPIContext *, const CMPISelectExp *, const char *,
                    const CMPIObjectPath *) {
    return status(CMPI_RC_ERR_NOT_SUPPORTED);
}

CMPIStatus activateFilter(CMPIIndicationMI *, const CMPIContext *ctx, const CMPISelectExp *filter,
                          const char *className, const CMPIObjectPath *, CMPIBoolean first) {
    return report(ctx, "activateFilter", filter, className, nullptr, first);
}

CMPIStatus deActivateFilter(CMPIIndicationMI *, const CMPIContext *ctx, const CMPISelectExp *filter,
                            const char *className, const CMPIObjectPath *, CMPIBoolean last) {
    return report(ctx, "deActivateFilter", filter, className, nullptr, last);
}

CMPIStatus enableIndications(CMPIIndicationMI *, const CMPIContext *ctx) {
    joinDeliverer();
    CMPIContext *threadCtx = CBPrepareAttachThread(mb(), ctx);
    {
        std::lock_guard lock(threadMutex);
        deliverer = std::thread([threadCtx] {
            CBAttachThread(mb(), threadCtx);
            report(threadCtx, "thread", nullptr, nullptr, nullptr, -1);
            CBDetachThread(mb(), threadCtx);
        });
    }
    return report(ctx, "enableIndications", nullptr, nullptr, nullptr, -1);
}

CMPIStatus disableIndications(CMPIIndicationMI *, const CMPIContext *ctx) {
    joinDeliverer();
    return report(ctx, "disableIndications", nullptr, nullptr, nullptr, -1);
}

CMPIIndicationMIFT indicationFT = {CMPICurrentVersion, CMPICurrentVersion, "TestBeaconProvider", cleanup,
                                   authorizeFilter,    mustPoll,           activateFilter,       deActivateFilter,
                                   enableIndications,  disableIndications};
CMPIIndicationMI indicationMI = {nullptr, &indicationFT};

}  // namespace
}  // namespace testprovider

using namespace testprovider;

CMPI_EXTERN_C CMPIIndicationMI *TestBeaconProvider_Create_IndicationMI(const CMPIBroker *mb, const CMPIContext *,
                                                                       CMPIStatus *) {
    broker = mb;
    return &indicationMI;
}
