// CMPISelectExp: a filter's query. evaluate answers for queries without a
// WHERE condition (the instance's class is the FROM class or below it);
// conditions are left to the caller (CMPI_RC_ERR_NOT_SUPPORTED). The
// condition trees (getDOC, getCOD) are not offered.
#include "Objects.h"

#include <algorithm>

namespace cimhost::rt {

namespace {

CMPIStatus selectRelease(CMPISelectExp *se) { return Runtime::release(se, Kind::SelectExp); }

CMPISelectExp *selectClone(const CMPISelectExp *se, CMPIStatus *rc) {
    return guarded<CMPISelectExp *>(rc, nullptr, [&]() -> CMPISelectExp * {
        auto *obj = Runtime::resolve<SelectExpObj>(se, rc);
        if (obj == nullptr) return nullptr;
        setRc(rc, CMPI_RC_OK);
        return Runtime::make<SelectExpObj>(Lifetime::Clone, obj->flavor(), obj->query(), obj->fromClasses())
            ->as<CMPISelectExp>();
    });
}

CMPIBoolean selectEvaluate(const CMPISelectExp *se, const CMPIInstance *inst, CMPIStatus *rc) {
    return guarded<CMPIBoolean>(rc, 0, [&]() -> CMPIBoolean {
        auto *obj = Runtime::resolve<SelectExpObj>(se, rc);
        if (obj == nullptr) return 0;
        auto *instance = Runtime::resolve<InstanceObj>(inst, rc);
        if (instance == nullptr) return 0;
        if (!obj->query().where.empty()) {
            setRc(rc, CMPI_RC_ERR_NOT_SUPPORTED);
            return 0;
        }
        setRc(rc, CMPI_RC_OK);
        const std::string cls = lower(instance->data().path.className);
        const auto &from = obj->fromClasses();
        return std::find(from.begin(), from.end(), cls) != from.end() ? 1 : 0;
    });
}

CMPIString *selectString(const CMPISelectExp *se, CMPIStatus *rc) {
    return guarded<CMPIString *>(rc, nullptr, [&]() -> CMPIString * {
        auto *obj = Runtime::resolve<SelectExpObj>(se, rc);
        if (obj == nullptr) return nullptr;
        setRc(rc, CMPI_RC_OK);
        return borrowedString(obj->flavor(), obj->query().text);
    });
}

CMPISelectCond *selectCond(const CMPISelectExp *se, CMPIStatus *rc) {
    if (Runtime::resolve<SelectExpObj>(se, rc) != nullptr) setRc(rc, CMPI_RC_ERR_NOT_SUPPORTED);
    return nullptr;
}

CMPIBoolean selectEvaluateUsingAccessor(const CMPISelectExp *se, CMPIAccessor *, void *, CMPIStatus *rc) {
    if (Runtime::resolve<SelectExpObj>(se, rc) != nullptr) setRc(rc, CMPI_RC_ERR_NOT_SUPPORTED);
    return 0;
}

CMPISelectExpFT selectExpFT = {CMPICurrentVersion, selectRelease, selectClone,  selectEvaluate,
                               selectString,       selectCond,    selectCond,   selectEvaluateUsingAccessor};

}  // namespace

SelectExpObj::SelectExpObj(const Flavor &flavor, IndicationQuery query, std::vector<std::string> fromClasses)
    : Object(Kind::SelectExp, flavor, &selectExpFT), query_(std::move(query)), fromClasses_(std::move(fromClasses)) {}

}  // namespace cimhost::rt
