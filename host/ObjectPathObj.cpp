// CMPIObjectPath: namespace, host, class name and keys.
#include "Objects.h"

namespace cimhost::rt {

namespace {

template <class F> CMPIStatus withPath(CMPIObjectPath *op, F &&body) {
    return guardedStatus([&]() -> CMPIStatus {
        CMPIStatus rc = status(CMPI_RC_OK);
        auto *obj = Runtime::resolve<ObjectPathObj>(op, &rc);
        if (obj == nullptr) return rc;
        return body(*obj);
    });
}

template <class F> CMPIString *pathString(const CMPIObjectPath *op, CMPIStatus *rc, F &&field) {
    return guarded<CMPIString *>(rc, nullptr, [&]() -> CMPIString * {
        auto *obj = Runtime::resolve<ObjectPathObj>(op, rc);
        if (obj == nullptr) return nullptr;
        setRc(rc, CMPI_RC_OK);
        return borrowedString(obj->flavor(), field(obj->data()));
    });
}

CMPIStatus pathRelease(CMPIObjectPath *op) { return Runtime::release(op, Kind::ObjectPath); }

CMPIObjectPath *pathClone(const CMPIObjectPath *op, CMPIStatus *rc) {
    return guarded<CMPIObjectPath *>(rc, nullptr, [&]() -> CMPIObjectPath * {
        auto *obj = Runtime::resolve<ObjectPathObj>(op, rc);
        if (obj == nullptr) return nullptr;
        setRc(rc, CMPI_RC_OK);
        return Runtime::make<ObjectPathObj>(Lifetime::Clone, obj->flavor(), obj->data())->as<CMPIObjectPath>();
    });
}

CMPIStatus setNameSpace(CMPIObjectPath *op, const char *ns) {
    return withPath(op, [&](ObjectPathObj &p) {
        if (ns == nullptr) return status(CMPI_RC_ERR_INVALID_PARAMETER);
        p.data().ns = ns;
        return status(CMPI_RC_OK);
    });
}

CMPIString *getNameSpace(const CMPIObjectPath *op, CMPIStatus *rc) {
    return pathString(op, rc, [](const ObjectPathV &p) { return p.ns; });
}

CMPIStatus setHostname(CMPIObjectPath *op, const char *hn) {
    return withPath(op, [&](ObjectPathObj &p) {
        if (hn == nullptr) return status(CMPI_RC_ERR_INVALID_PARAMETER);
        p.data().host = hn;
        return status(CMPI_RC_OK);
    });
}

CMPIString *getHostname(const CMPIObjectPath *op, CMPIStatus *rc) {
    return pathString(op, rc, [](const ObjectPathV &p) { return p.host; });
}

CMPIStatus setClassName(CMPIObjectPath *op, const char *cn) {
    return withPath(op, [&](ObjectPathObj &p) {
        if (cn == nullptr) return status(CMPI_RC_ERR_INVALID_PARAMETER);
        p.data().className = cn;
        return status(CMPI_RC_OK);
    });
}

CMPIString *getClassName(const CMPIObjectPath *op, CMPIStatus *rc) {
    return pathString(op, rc, [](const ObjectPathV &p) { return p.className; });
}

CMPIStatus addKey(CMPIObjectPath *op, const char *name, const CMPIValue *value, CMPIType type) {
    return withPath(op, [&](ObjectPathObj &p) {
        if (name == nullptr) return status(CMPI_RC_ERR_INVALID_PARAMETER);
        // Keys are scalars; an embedded instance is no key either.
        if ((type & CMPI_ARRAY) || type == CMPI_instance) return status(CMPI_RC_ERR_INVALID_DATA_TYPE);
        Value v;
        CMPIrc read = readValue(value, type, v);
        if (read != CMPI_RC_OK) return status(read);
        setNamed(p.data().keys, name, std::move(v));
        return status(CMPI_RC_OK);
    });
}

CMPIData getKey(const CMPIObjectPath *op, const char *name, CMPIStatus *rc) {
    return guarded<CMPIData>(rc, missingData(), [&]() -> CMPIData {
        auto *obj = Runtime::resolve<ObjectPathObj>(op, rc);
        if (obj == nullptr) return missingData();
        if (name == nullptr) {
            setRc(rc, CMPI_RC_ERR_INVALID_PARAMETER);
            return missingData();
        }
        const Value *v = obj->data().key(name);
        if (v == nullptr) {
            setRc(rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
            return missingData();
        }
        setRc(rc, CMPI_RC_OK);
        return toData(*v, obj->flavor(), true);
    });
}

CMPIData getKeyAt(const CMPIObjectPath *op, CMPICount index, CMPIString **name, CMPIStatus *rc) {
    return guarded<CMPIData>(rc, missingData(), [&]() -> CMPIData {
        auto *obj = Runtime::resolve<ObjectPathObj>(op, rc);
        if (obj == nullptr) return missingData();
        const NamedValues &keys = obj->data().keys;
        if (index >= keys.size()) {
            setRc(rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
            return missingData();
        }
        setRc(rc, CMPI_RC_OK);
        if (name != nullptr) *name = borrowedString(obj->flavor(), keys[index].first);
        return toData(keys[index].second, obj->flavor(), true);
    });
}

CMPICount getKeyCount(const CMPIObjectPath *op, CMPIStatus *rc) {
    return guarded<CMPICount>(rc, 0, [&]() -> CMPICount {
        auto *obj = Runtime::resolve<ObjectPathObj>(op, rc);
        if (obj == nullptr) return 0;
        setRc(rc, CMPI_RC_OK);
        return static_cast<CMPICount>(obj->data().keys.size());
    });
}

CMPIStatus copyFrom(CMPIObjectPath *op, const CMPIObjectPath *src, bool withHost) {
    return withPath(op, [&](ObjectPathObj &p) {
        CMPIStatus rc = status(CMPI_RC_OK);
        auto *from = Runtime::resolve<ObjectPathObj>(src, &rc);
        if (from == nullptr) return rc;
        p.data().ns = from->data().ns;
        if (withHost) p.data().host = from->data().host;
        return rc;
    });
}

CMPIStatus setNameSpaceFrom(CMPIObjectPath *op, const CMPIObjectPath *src) { return copyFrom(op, src, false); }
CMPIStatus setHostAndNameSpaceFrom(CMPIObjectPath *op, const CMPIObjectPath *src) { return copyFrom(op, src, true); }

// The host keeps no qualifiers.
CMPIData qualifierUnsupported(const CMPIObjectPath *op, CMPIStatus *rc) {
    CMPIStatus check = status(CMPI_RC_OK);
    if (Runtime::resolve<ObjectPathObj>(op, &check) == nullptr) {
        setRc(rc, check.rc);
    } else {
        setRc(rc, CMPI_RC_ERR_NOT_SUPPORTED);
    }
    return missingData();
}
CMPIData classQualifier(const CMPIObjectPath *op, const char *, CMPIStatus *rc) { return qualifierUnsupported(op, rc); }
CMPIData propertyQualifier(const CMPIObjectPath *op, const char *, const char *, CMPIStatus *rc) {
    return qualifierUnsupported(op, rc);
}
CMPIData methodQualifier(const CMPIObjectPath *op, const char *, const char *, CMPIStatus *rc) {
    return qualifierUnsupported(op, rc);
}
CMPIData parameterQualifier(const CMPIObjectPath *op, const char *, const char *, const char *, CMPIStatus *rc) {
    return qualifierUnsupported(op, rc);
}

CMPIString *pathToString(const CMPIObjectPath *op, CMPIStatus *rc) {
    return guarded<CMPIString *>(rc, nullptr, [&]() -> CMPIString * {
        auto *obj = Runtime::resolve<ObjectPathObj>(op, rc);
        if (obj == nullptr) return nullptr;
        setRc(rc, CMPI_RC_OK);
        return trackedString(obj->flavor(), obj->data().toString());
    });
}

CMPIObjectPathFT pathFT = {CMPICurrentVersion,
                           pathRelease,
                           pathClone,
                           setNameSpace,
                           getNameSpace,
                           setHostname,
                           getHostname,
                           setClassName,
                           getClassName,
                           addKey,
                           getKey,
                           getKeyAt,
                           getKeyCount,
                           setNameSpaceFrom,
                           setHostAndNameSpaceFrom,
                           classQualifier,
                           propertyQualifier,
                           methodQualifier,
                           parameterQualifier,
                           pathToString};

}  // namespace

ObjectPathObj::ObjectPathObj(const Flavor &flavor, ObjectPathV data)
    : Object(Kind::ObjectPath, flavor, &pathFT), data_(std::move(data)) {}

}  // namespace cimhost::rt
