// A constant-instance provider for the benchmarks. "Baseline_<X>" answers
// with copies of the instances of "Tovra_<X>", made through the broker on the
// first request and kept: every later request returns cached objects without
// a lock held across the host, a device or the firmware. It is what the
// least an instance provider can cost in the host looks like.
#include <cmpimacs.h>

#include <map>
#include <mutex>
#include <string>

namespace {

const CMPIBroker *broker = nullptr;

struct Cached {
    CMPIArray *instances = nullptr;
    CMPIArray *paths = nullptr;
    CMPICount count = 0;
};

std::mutex cacheMutex;
std::map<std::string, Cached> cache;  // by class name

CMPIStatus status(CMPIrc rc) { return CMPIStatus{rc, nullptr}; }

const char *text(CMPIString *s) { return s != nullptr ? CMGetCharsPtr(s, nullptr) : nullptr; }

// The copies of the source class's instances, made once per class.
const Cached *copies(const CMPIContext *ctx, const CMPIObjectPath *ref) {
    const char *cls = text(CMGetClassName(ref, nullptr));
    const char *ns = text(CMGetNameSpace(ref, nullptr));
    if (cls == nullptr || ns == nullptr) return nullptr;
    std::lock_guard lock(cacheMutex);
    Cached &c = cache[cls];
    if (c.instances != nullptr) return &c;
    const std::string source = "Tovra_" + std::string(cls).substr(std::string("Baseline_").size());
    CMPIStatus rc = status(CMPI_RC_OK);
    CMPIEnumeration *en = CBEnumInstances(broker, ctx, CMNewObjectPath(broker, ns, source.c_str(), nullptr), nullptr, &rc);
    if (rc.rc != CMPI_RC_OK || en == nullptr) return nullptr;
    CMPIArray *all = CMToArray(en, nullptr);
    const CMPICount n = CMGetArrayCount(all, nullptr);
    CMPIArray *instances = CMNewArray(broker, n, CMPI_instance, nullptr);
    CMPIArray *paths = CMNewArray(broker, n, CMPI_ref, nullptr);
    for (CMPICount i = 0; i < n; ++i) {
        CMPIInstance *from = CMGetArrayElementAt(all, i, nullptr).value.inst;
        CMPIObjectPath *op = CMNewObjectPath(broker, ns, cls, nullptr);
        CMPIInstance *to = CMNewInstance(broker, op, nullptr);
        const CMPICount props = CMGetPropertyCount(from, nullptr);
        for (CMPICount p = 0; p < props; ++p) {
            CMPIString *name = nullptr;
            CMPIData d = CMGetPropertyAt(from, p, &name, nullptr);
            if (CMIsNullValue(d))
                CMSetProperty(to, text(name), nullptr, d.type);
            else
                CMSetProperty(to, text(name), &d.value, d.type);
        }
        CMPIObjectPath *path = CMGetObjectPath(to, nullptr);
        CMSetArrayElementAt(instances, i, &to, CMPI_instance);
        CMSetArrayElementAt(paths, i, &path, CMPI_ref);
    }
    c.instances = CMClone(instances, nullptr);
    c.paths = CMClone(paths, nullptr);
    c.count = n;
    return &c;
}

CMPIStatus cleanup(CMPIInstanceMI *, const CMPIContext *, CMPIBoolean) { return status(CMPI_RC_OK); }

CMPIStatus enumNames(CMPIInstanceMI *, const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *ref) {
    const Cached *c = copies(ctx, ref);
    if (c == nullptr) return status(CMPI_RC_ERR_FAILED);
    for (CMPICount i = 0; i < c->count; ++i) CMReturnObjectPath(rslt, CMGetArrayElementAt(c->paths, i, nullptr).value.ref);
    CMReturnDone(rslt);
    return status(CMPI_RC_OK);
}

CMPIStatus enumInstances(CMPIInstanceMI *, const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *ref,
                         const char **) {
    const Cached *c = copies(ctx, ref);
    if (c == nullptr) return status(CMPI_RC_ERR_FAILED);
    for (CMPICount i = 0; i < c->count; ++i) CMReturnInstance(rslt, CMGetArrayElementAt(c->instances, i, nullptr).value.inst);
    CMReturnDone(rslt);
    return status(CMPI_RC_OK);
}

CMPIStatus getInstance(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                       const char **) {
    return status(CMPI_RC_ERR_NOT_SUPPORTED);
}
CMPIStatus create(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                  const CMPIInstance *) {
    return status(CMPI_RC_ERR_NOT_SUPPORTED);
}
CMPIStatus modify(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                  const CMPIInstance *, const char **) {
    return status(CMPI_RC_ERR_NOT_SUPPORTED);
}
CMPIStatus remove(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *) {
    return status(CMPI_RC_ERR_NOT_SUPPORTED);
}
CMPIStatus query(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *, const char *,
                 const char *) {
    return status(CMPI_RC_ERR_NOT_SUPPORTED);
}

CMPIInstanceMIFT table = {CMPICurrentVersion, CMPICurrentVersion, "instanceBaselineProvider", cleanup, enumNames,
                          enumInstances,      getInstance,        create,                     modify,  remove,
                          query};
CMPIInstanceMI mi = {nullptr, &table};

}  // namespace

CMPI_EXTERN_C CMPIInstanceMI *BaselineProvider_Create_InstanceMI(const CMPIBroker *b, const CMPIContext *,
                                                                 CMPIStatus *) {
    broker = b;
    return &mi;
}
