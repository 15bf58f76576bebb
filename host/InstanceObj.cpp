// CMPIInstance: properties in the order they were set, an optional property
// filter, and a path built from the class's key properties.
#include "Objects.h"

#include <algorithm>
#include <shared_mutex>
#include <unordered_map>

namespace cimhost::rt {

namespace {

struct KeyCatalog {
    std::shared_mutex mutex;
    std::unordered_map<std::string, std::vector<std::string>> keys;  // by lower-case class name
};

KeyCatalog &catalog() {
    static KeyCatalog *c = new KeyCatalog;
    return *c;
}

CMPIStatus instanceRelease(CMPIInstance *inst) { return Runtime::release(inst, Kind::Instance); }

CMPIInstance *instanceClone(const CMPIInstance *inst, CMPIStatus *rc) {
    return guarded<CMPIInstance *>(rc, nullptr, [&]() -> CMPIInstance * {
        auto *obj = Runtime::resolve<InstanceObj>(inst, rc);
        if (obj == nullptr) return nullptr;
        setRc(rc, CMPI_RC_OK);
        return Runtime::make<InstanceObj>(Lifetime::Clone, obj->flavor(), obj->sharedSnapshot(), obj->filter())
            ->as<CMPIInstance>();
    });
}

CMPIData instanceGet(const CMPIInstance *inst, const char *name, CMPIStatus *rc) {
    return guarded<CMPIData>(rc, missingData(), [&]() -> CMPIData {
        auto *obj = Runtime::resolve<InstanceObj>(inst, rc);
        if (obj == nullptr) return missingData();
        if (name == nullptr) {
            setRc(rc, CMPI_RC_ERR_INVALID_PARAMETER);
            return missingData();
        }
        const Value *v = obj->data().property(name);
        if (v == nullptr) {
            setRc(rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
            return missingData();
        }
        setRc(rc, CMPI_RC_OK);
        return toData(*v, obj->flavor());
    });
}

CMPIData instanceGetAt(const CMPIInstance *inst, CMPICount index, CMPIString **name, CMPIStatus *rc) {
    return guarded<CMPIData>(rc, missingData(), [&]() -> CMPIData {
        auto *obj = Runtime::resolve<InstanceObj>(inst, rc);
        if (obj == nullptr) return missingData();
        const NamedValues &props = obj->data().properties;
        if (index >= props.size()) {
            setRc(rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
            return missingData();
        }
        setRc(rc, CMPI_RC_OK);
        if (name != nullptr) *name = borrowedString(obj->flavor(), props[index].first);
        return toData(props[index].second, obj->flavor());
    });
}

CMPICount instanceCount(const CMPIInstance *inst, CMPIStatus *rc) {
    return guarded<CMPICount>(rc, 0, [&]() -> CMPICount {
        auto *obj = Runtime::resolve<InstanceObj>(inst, rc);
        if (obj == nullptr) return 0;
        setRc(rc, CMPI_RC_OK);
        return static_cast<CMPICount>(obj->data().properties.size());
    });
}

CMPIStatus instanceSet(const CMPIInstance *inst, const char *name, const CMPIValue *value, CMPIType type) {
    return guardedStatus([&]() -> CMPIStatus {
        CMPIStatus rc = status(CMPI_RC_OK);
        auto *obj = Runtime::resolve<InstanceObj>(inst, &rc);
        if (obj == nullptr) return rc;
        if (name == nullptr) return status(CMPI_RC_ERR_INVALID_PARAMETER);
        Value v;
        CMPIrc read = readValue(value, type, v);
        if (read != CMPI_RC_OK) return status(read);
        // A property the filter leaves out is dropped without complaint.
        if (obj->admits(name)) setNamed(obj->mutableData().properties, name, std::move(v));
        return rc;
    });
}

CMPIStatus instanceSetWithOrigin(const CMPIInstance *inst, const char *name, const CMPIValue *value, CMPIType type,
                                 const char *) {
    return instanceSet(inst, name, value, type);
}

CMPIObjectPath *instancePath(const CMPIInstance *inst, CMPIStatus *rc) {
    return guarded<CMPIObjectPath *>(rc, nullptr, [&]() -> CMPIObjectPath * {
        auto *obj = Runtime::resolve<InstanceObj>(inst, rc);
        if (obj == nullptr) return nullptr;
        setRc(rc, CMPI_RC_OK);
        return Runtime::make<ObjectPathObj>(Lifetime::Tracked, obj->flavor(), obj->sharedSnapshot()->path)
            ->as<CMPIObjectPath>();
    });
}

CMPIStatus instanceFilter(CMPIInstance *inst, const char **propertyList, const char **keys) {
    return guardedStatus([&]() -> CMPIStatus {
        CMPIStatus rc = status(CMPI_RC_OK);
        auto *obj = Runtime::resolve<InstanceObj>(inst, &rc);
        if (obj == nullptr) return rc;
        if (propertyList == nullptr) {
            obj->filter().reset();
            return rc;
        }
        std::vector<std::string> names;
        for (const char **p = propertyList; *p != nullptr; ++p) names.push_back(lower(*p));
        for (const char **k = keys; k != nullptr && *k != nullptr; ++k) names.push_back(lower(*k));
        obj->filter() = std::move(names);
        NamedValues &props = obj->mutableData().properties;
        std::erase_if(props, [&](const auto &p) { return !obj->admits(p.first); });
        return rc;
    });
}

CMPIStatus instanceSetPath(CMPIInstance *inst, const CMPIObjectPath *op) {
    return guardedStatus([&]() -> CMPIStatus {
        CMPIStatus rc = status(CMPI_RC_OK);
        auto *obj = Runtime::resolve<InstanceObj>(inst, &rc);
        if (obj == nullptr) return rc;
        auto *path = Runtime::resolve<ObjectPathObj>(op, &rc);
        if (path == nullptr) return rc;
        obj->mutableData().path = path->data();
        return rc;
    });
}

CMPIInstanceFT instanceFT = {CMPICurrentVersion, instanceRelease, instanceClone,  instanceGet,
                             instanceGetAt,      instanceCount,   instanceSet,    instancePath,
                             instanceFilter,     instanceSetPath, instanceSetWithOrigin};
// The 1.0 level: setPropertyWithOrigin is missing.
CMPIInstanceFT legacyInstanceFT = {CMPIVersion100, instanceRelease, instanceClone,  instanceGet,
                                   instanceGetAt,  instanceCount,   instanceSet,    instancePath,
                                   instanceFilter, instanceSetPath, nullptr};

}  // namespace

void registerClassKeys(const std::string &className, std::vector<std::string> keyNames) {
    KeyCatalog &c = catalog();
    std::unique_lock lock(c.mutex);
    c.keys[lower(className)] = std::move(keyNames);
}

std::optional<std::vector<std::string>> classKeys(const std::string &className) {
    KeyCatalog &c = catalog();
    std::shared_lock lock(c.mutex);
    auto it = c.keys.find(lower(className));
    if (it == c.keys.end()) return std::nullopt;
    return it->second;
}

InstanceObj::InstanceObj(const Flavor &flavor, InstanceV data, std::optional<std::vector<std::string>> filter)
    : Object(Kind::Instance, flavor, flavor.legacy ? &legacyInstanceFT : &instanceFT),
      data_(std::make_shared<InstanceV>(std::move(data))), owned_(true), filter_(std::move(filter)) {}

InstanceObj::InstanceObj(const Flavor &flavor, std::shared_ptr<const InstanceV> snapshot,
                         std::optional<std::vector<std::string>> filter)
    : Object(Kind::Instance, flavor, flavor.legacy ? &legacyInstanceFT : &instanceFT), data_(std::move(snapshot)),
      owned_(false), snapshot_(data_), filter_(std::move(filter)) {}

InstanceV &InstanceObj::mutableData() {
    std::lock_guard lock(snapshotMutex_);
    snapshot_.reset();
    if (!owned_ || data_.use_count() > 1) {
        data_ = std::make_shared<InstanceV>(*data_);
        owned_ = true;
    }
    // Made here as a non-const InstanceV, and referenced from nowhere else.
    return const_cast<InstanceV &>(*data_);
}

namespace {

bool samePathExactly(const ObjectPathV &a, const ObjectPathV &b) {
    if (a.ns != b.ns || a.className != b.className || a.host != b.host || a.keys.size() != b.keys.size()) return false;
    for (size_t i = 0; i < a.keys.size(); ++i) {
        const auto &[an, av] = a.keys[i];
        const auto &[bn, bv] = b.keys[i];
        if (an != bn || av.type() != bv.type() || !(av == bv)) return false;
    }
    return true;
}

}  // namespace

std::shared_ptr<const InstanceV> InstanceObj::sharedSnapshot() const {
    std::lock_guard lock(snapshotMutex_);
    if (!snapshot_) {
        ObjectPathV path = currentPath();
        if (samePathExactly(path, data_->path)) {
            snapshot_ = data_;
            // Handed out now: a later change must copy.
            owned_ = false;
        } else {
            snapshot_ = std::make_shared<const InstanceV>(InstanceV{std::move(path), data_->properties});
        }
    }
    return snapshot_;
}

bool InstanceObj::admits(std::string_view name) const {
    return !filter_ || std::find(filter_->begin(), filter_->end(), lower(name)) != filter_->end();
}

ObjectPathV InstanceObj::currentPath() const {
    const InstanceV &data = *data_;
    ObjectPathV path = data.path;
    auto keyValue = [&](const std::string &name) -> const Value * {
        const Value *p = data.property(name);
        return (p != nullptr && !p->isNull()) ? p : data.path.key(name);
    };
    if (auto names = classKeys(path.className)) {
        path.keys.clear();
        for (const std::string &name : *names)
            if (const Value *v = keyValue(name)) path.keys.emplace_back(name, *v);
    } else {
        for (auto &[name, value] : path.keys)
            if (const Value *v = keyValue(name)) value = *v;
    }
    return path;
}


}  // namespace cimhost::rt
