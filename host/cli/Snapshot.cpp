#include "Snapshot.h"

namespace cimhost::cli {

const std::pair<const std::string, Reply> *Snapshot::firstFailure() const {
    for (const auto &entry : replies)
        if (!entry.second.ok()) return &entry;
    return nullptr;
}

Snapshot gather(Host &host, std::initializer_list<ClassRef> classes) {
    Snapshot s;
    for (const ClassRef &c : classes) {
        Reply r = host.enumerateInstances(c.nameSpace, c.className);
        s.failed = s.failed || !r.ok();
        s.replies.emplace(c.className, std::move(r));
    }
    return s;
}

std::string text(const InstanceV &i, const char *name) {
    const Value *v = i.property(name);
    return v != nullptr && !v->isNull() ? v->toText() : std::string();
}

uint64_t number(const InstanceV &i, const char *name) {
    const Value *v = i.property(name);
    if (v == nullptr || v->isNull() || v->isArray()) return 0;
    try {
        return v->asUnsigned();
    } catch (const std::exception &) {
        return 0;
    }
}

const std::vector<Value> &list(const InstanceV &i, const char *name) {
    static const std::vector<Value> none;
    const Value *v = i.property(name);
    return v != nullptr && !v->isNull() && v->isArray() ? v->asArray() : none;
}

}  // namespace cimhost::cli
