// CMPIEnumeration (what an up-call returns) and CMPIResult (what a provider
// call answers through).
#include "Objects.h"

namespace cimhost::rt {

namespace {

// 2.1's "no more elements", which 2.0 brokers already return past the end.
constexpr CMPIrc kNoMoreElements = static_cast<CMPIrc>(18);

CMPIStatus enumRelease(CMPIEnumeration *en) { return Runtime::release(en, Kind::Enumeration); }

CMPIEnumeration *enumClone(const CMPIEnumeration *en, CMPIStatus *rc) {
    return guarded<CMPIEnumeration *>(rc, nullptr, [&]() -> CMPIEnumeration * {
        auto *obj = Runtime::resolve<EnumerationObj>(en, rc);
        if (obj == nullptr) return nullptr;
        setRc(rc, CMPI_RC_OK);
        auto *copy = Runtime::make<EnumerationObj>(Lifetime::Clone, obj->flavor(), obj->elementType(), obj->items());
        copy->cursor() = obj->cursor();
        return copy->as<CMPIEnumeration>();
    });
}

CMPIData enumNext(const CMPIEnumeration *en, CMPIStatus *rc) {
    return guarded<CMPIData>(rc, missingData(), [&]() -> CMPIData {
        auto *obj = Runtime::resolve<EnumerationObj>(en, rc);
        if (obj == nullptr) return missingData();
        if (obj->cursor() >= obj->items().size()) {
            setRc(rc, kNoMoreElements);
            return missingData();
        }
        setRc(rc, CMPI_RC_OK);
        return toData(obj->items()[obj->cursor()++], obj->flavor());
    });
}

CMPIBoolean enumHasNext(const CMPIEnumeration *en, CMPIStatus *rc) {
    return guarded<CMPIBoolean>(rc, 0, [&]() -> CMPIBoolean {
        auto *obj = Runtime::resolve<EnumerationObj>(en, rc);
        if (obj == nullptr) return 0;
        setRc(rc, CMPI_RC_OK);
        return obj->cursor() < obj->items().size() ? 1 : 0;
    });
}

CMPIArray *enumToArray(const CMPIEnumeration *en, CMPIStatus *rc) {
    return guarded<CMPIArray *>(rc, nullptr, [&]() -> CMPIArray * {
        auto *obj = Runtime::resolve<EnumerationObj>(en, rc);
        if (obj == nullptr) return nullptr;
        setRc(rc, CMPI_RC_OK);
        return Runtime::make<ArrayObj>(Lifetime::Tracked, obj->flavor(), obj->elementType(), obj->items())
            ->as<CMPIArray>();
    });
}

CMPIEnumerationFT enumFT = {CMPICurrentVersion, enumRelease, enumClone, enumNext, enumHasNext, enumToArray};

// ---- result ----------------------------------------------------------------

template <class F> CMPIStatus withResult(const CMPIResult *rslt, ResultSink::Accepts kind, F &&body) {
    return guardedStatus([&]() -> CMPIStatus {
        CMPIStatus rc = status(CMPI_RC_OK);
        auto *obj = Runtime::resolve<ResultObj>(rslt, &rc);
        if (obj == nullptr) return rc;
        // A return that does not fit the operation is refused.
        if (obj->sink().accepts != kind) return status(CMPI_RC_ERR_NOT_SUPPORTED);
        return body(obj->sink());
    });
}

CMPIStatus resultRelease(CMPIResult *rslt) { return Runtime::release(rslt, Kind::Result); }

CMPIResult *resultClone(const CMPIResult *rslt, CMPIStatus *rc) {
    CMPIStatus check = status(CMPI_RC_OK);
    setRc(rc, Runtime::resolve<ResultObj>(rslt, &check) == nullptr ? check.rc : CMPI_RC_ERR_NOT_SUPPORTED);
    return nullptr;
}

CMPIStatus returnData(const CMPIResult *rslt, const CMPIValue *value, CMPIType type) {
    return withResult(rslt, ResultSink::Accepts::Data, [&](ResultSink &sink) {
        Value v;
        CMPIrc read = readValue(value, type, v);
        if (read != CMPI_RC_OK) return status(read);
        sink.data = std::move(v);
        return status(CMPI_RC_OK);
    });
}

CMPIStatus returnInstance(const CMPIResult *rslt, const CMPIInstance *inst) {
    return withResult(rslt, ResultSink::Accepts::Instances, [&](ResultSink &sink) {
        CMPIStatus rc = status(CMPI_RC_OK);
        auto *obj = Runtime::resolve<InstanceObj>(inst, &rc);
        if (obj == nullptr) return rc;
        sink.instances.push_back(obj->sharedSnapshot());
        return rc;
    });
}

CMPIStatus returnObjectPath(const CMPIResult *rslt, const CMPIObjectPath *ref) {
    return withResult(rslt, ResultSink::Accepts::Paths, [&](ResultSink &sink) {
        CMPIStatus rc = status(CMPI_RC_OK);
        auto *obj = Runtime::resolve<ObjectPathObj>(ref, &rc);
        if (obj == nullptr) return rc;
        sink.paths.push_back(obj->data());
        return rc;
    });
}

CMPIStatus returnDone(const CMPIResult *rslt) {
    return guardedStatus([&]() -> CMPIStatus {
        CMPIStatus rc = status(CMPI_RC_OK);
        Runtime::resolve<ResultObj>(rslt, &rc);  // only the handle is checked
        return rc;
    });
}

// The host makes no CMPIError objects, so none can be returned.
CMPIStatus returnError(const CMPIResult *rslt, const CMPIError *) {
    CMPIStatus rc = status(CMPI_RC_OK);
    if (Runtime::resolve<ResultObj>(rslt, &rc) == nullptr) return rc;
    return status(CMPI_RC_ERR_NOT_SUPPORTED);
}

CMPIResultFT resultFT = {CMPICurrentVersion, resultRelease,    resultClone, returnData,
                         returnInstance,     returnObjectPath, returnDone,  returnError};
// The 1.0 level: returnError is missing.
CMPIResultFT legacyResultFT = {CMPIVersion100, resultRelease,    resultClone, returnData,
                               returnInstance, returnObjectPath, returnDone,  nullptr};

}  // namespace

EnumerationObj::EnumerationObj(const Flavor &flavor, CMPIType elementType, std::vector<Value> items)
    : Object(Kind::Enumeration, flavor, &enumFT), elementType_(elementType), items_(std::move(items)) {}

ResultObj::ResultObj(const Flavor &flavor, ResultSink *sink)
    : Object(Kind::Result, flavor, flavor.legacy ? &legacyResultFT : &resultFT), sink_(sink) {}

}  // namespace cimhost::rt
