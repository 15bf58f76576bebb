// CMPIArgs and CMPIContext: named values, strict about unknown names.
#include "Objects.h"

#include <algorithm>
#include <type_traits>

namespace cimhost::rt {

namespace {

template <class T> CMPIData namedGet(const void *handle, const char *name, CMPIStatus *rc) {
    return guarded<CMPIData>(rc, missingData(), [&]() -> CMPIData {
        auto *obj = Runtime::resolve<T>(handle, rc);
        if (obj == nullptr) return missingData();
        if (name == nullptr) {
            setRc(rc, CMPI_RC_ERR_INVALID_PARAMETER);
            return missingData();
        }
        const NamedValues &values = [&]() -> const NamedValues & {
            if constexpr (std::is_same_v<T, ArgsObj>) return obj->args();
            else return obj->entries();
        }();
        const Value *v = findNamed(values, name);
        if (v == nullptr) {
            setRc(rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
            return missingData();
        }
        setRc(rc, CMPI_RC_OK);
        if constexpr (std::is_same_v<T, ContextObj>) {
            const auto &nulls = obj->nullTextEntries();
            if (std::any_of(nulls.begin(), nulls.end(), [&](const std::string &n) { return iequals(n, name); })) {
                CMPIData d{};
                d.type = CMPI_string;
                const Flavor flavor = obj->flavor();
                d.value.string = Runtime::make<StringObj>(Lifetime::Borrowed, flavor, nullptr)->as<CMPIString>();
                return d;
            }
        }
        return toData(*v, obj->flavor());
    });
}

template <class T>
CMPIData namedGetAt(const void *handle, const NamedValues &(*list)(T &), CMPICount index, CMPIString **name,
                    CMPIStatus *rc) {
    return guarded<CMPIData>(rc, missingData(), [&]() -> CMPIData {
        auto *obj = Runtime::resolve<T>(handle, rc);
        if (obj == nullptr) return missingData();
        const NamedValues &values = list(*obj);
        if (index >= values.size()) {
            setRc(rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
            return missingData();
        }
        setRc(rc, CMPI_RC_OK);
        if (name != nullptr) *name = borrowedString(obj->flavor(), values[index].first);
        return toData(values[index].second, obj->flavor());
    });
}

template <class T>
CMPICount namedCount(const void *handle, const NamedValues &(*list)(T &), CMPIStatus *rc) {
    return guarded<CMPICount>(rc, 0, [&]() -> CMPICount {
        auto *obj = Runtime::resolve<T>(handle, rc);
        if (obj == nullptr) return 0;
        setRc(rc, CMPI_RC_OK);
        return static_cast<CMPICount>(list(*obj).size());
    });
}

template <class T>
CMPIStatus namedAdd(const void *handle, NamedValues &(*list)(T &), const char *name, const CMPIValue *value,
                    CMPIType type, bool refuseNullValue) {
    return guardedStatus([&]() -> CMPIStatus {
        CMPIStatus rc = status(CMPI_RC_OK);
        auto *obj = Runtime::resolve<T>(handle, &rc);
        if (obj == nullptr) return rc;
        if (name == nullptr || (refuseNullValue && value == nullptr)) return status(CMPI_RC_ERR_INVALID_PARAMETER);
        Value v;
        CMPIrc read = readValue(value, type, v);
        if (read != CMPI_RC_OK) return status(read);
        setNamed(list(*obj), name, std::move(v));
        return rc;
    });
}

NamedValues &argsList(ArgsObj &a) { return a.args(); }
const NamedValues &argsView(ArgsObj &a) { return a.args(); }
NamedValues &entryList(ContextObj &c) { return c.entries(); }
const NamedValues &entryView(ContextObj &c) { return c.entries(); }

// ---- args ------------------------------------------------------------------

CMPIStatus argsRelease(CMPIArgs *as) { return Runtime::release(as, Kind::Args); }

CMPIArgs *argsClone(const CMPIArgs *as, CMPIStatus *rc) {
    return guarded<CMPIArgs *>(rc, nullptr, [&]() -> CMPIArgs * {
        auto *obj = Runtime::resolve<ArgsObj>(as, rc);
        if (obj == nullptr) return nullptr;
        setRc(rc, CMPI_RC_OK);
        return Runtime::make<ArgsObj>(Lifetime::Clone, obj->flavor(), obj->args())->as<CMPIArgs>();
    });
}

CMPIStatus argsAdd(const CMPIArgs *as, const char *name, const CMPIValue *value, CMPIType type) {
    return namedAdd<ArgsObj>(as, argsList, name, value, type, false);
}
CMPIData argsGet(const CMPIArgs *as, const char *name, CMPIStatus *rc) { return namedGet<ArgsObj>(as, name, rc); }
CMPIData argsGetAt(const CMPIArgs *as, CMPICount index, CMPIString **name, CMPIStatus *rc) {
    return namedGetAt<ArgsObj>(as, argsView, index, name, rc);
}
CMPICount argsCount(const CMPIArgs *as, CMPIStatus *rc) { return namedCount<ArgsObj>(as, argsView, rc); }

CMPIArgsFT argsFT = {CMPICurrentVersion, argsRelease, argsClone, argsAdd, argsGet, argsGetAt, argsCount};

// ---- context ---------------------------------------------------------------

CMPIStatus contextRelease(CMPIContext *ctx) { return Runtime::release(ctx, Kind::Context); }

// As in a stock CIMOM, a context cannot be cloned.
CMPIContext *contextClone(const CMPIContext *ctx, CMPIStatus *rc) {
    CMPIStatus check = status(CMPI_RC_OK);
    setRc(rc, Runtime::resolve<ContextObj>(ctx, &check) == nullptr ? check.rc : CMPI_RC_ERR_NOT_SUPPORTED);
    return nullptr;
}

CMPIData contextGet(const CMPIContext *ctx, const char *name, CMPIStatus *rc) {
    return namedGet<ContextObj>(ctx, name, rc);
}
CMPIData contextGetAt(const CMPIContext *ctx, CMPICount index, CMPIString **name, CMPIStatus *rc) {
    return namedGetAt<ContextObj>(ctx, entryView, index, name, rc);
}
CMPICount contextCount(const CMPIContext *ctx, CMPIStatus *rc) { return namedCount<ContextObj>(ctx, entryView, rc); }
CMPIStatus contextAdd(const CMPIContext *ctx, const char *name, const CMPIValue *value, CMPIType type) {
    CMPIStatus st = namedAdd<ContextObj>(ctx, entryList, name, value, type, true);
    if (st.rc == CMPI_RC_OK) {
        // A replaced entry reads back as what was added.
        if (auto *obj = Runtime::resolve<ContextObj>(ctx, nullptr))
            std::erase_if(obj->nullTextEntries(), [&](const std::string &n) { return iequals(n, name); });
    }
    return st;
}

CMPIContextFT contextFT = {CMPICurrentVersion, contextRelease, contextClone, contextGet,
                           contextGetAt,       contextCount,   contextAdd};

}  // namespace

ArgsObj::ArgsObj(const Flavor &flavor, NamedValues args) : Object(Kind::Args, flavor, &argsFT), args_(std::move(args)) {}

ContextObj::ContextObj(const Flavor &flavor, NamedValues entries, std::vector<std::string> nullTextEntries)
    : Object(Kind::Context, flavor, &contextFT), entries_(std::move(entries)), nullText_(std::move(nullTextEntries)) {}

}  // namespace cimhost::rt
