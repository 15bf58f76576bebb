// CMPIBrokerFT: providers' up-calls. They take the routes of client
// operations; what they return (enumerations, instances, strings) belongs to
// the request running on the calling thread.
#include "HostCore.h"

#include "Objects.h"

#include <optional>

namespace cimhost {

namespace {

using rt::Lifetime;
using rt::Runtime;

// The provider's context, carried into the nested provider call.
bool callContextOf(const CMPIContext *ctx, CallContext &cc, CMPIStatus *rc) {
    auto *c = Runtime::resolve<rt::ContextObj>(ctx, rc);
    if (c == nullptr) return false;
    cc.entries = c->entries();
    cc.nullText = c->nullTextEntries();
    return true;
}

bool pathOf(const CMPIObjectPath *op, ObjectPathV &out, CMPIStatus *rc) {
    auto *p = Runtime::resolve<rt::ObjectPathObj>(op, rc);
    if (p == nullptr) return false;
    out = p->data();
    return true;
}

std::optional<PropertyList> propertyList(const char **properties) {
    if (properties == nullptr) return std::nullopt;
    PropertyList list;
    for (const char **p = properties; *p != nullptr; ++p) list.emplace_back(*p);
    return list;
}

template <class R> void failWith(HostCore &core, const R &r, CMPIStatus *rc) {
    if (rc == nullptr) return;
    rc->rc = r.rc;
    rc->msg = r.message.empty() ? nullptr : rt::trackedString(core.flavor(), r.message);
}

// The results become the enumeration's items as they are: shared, not copied.
CMPIEnumeration *enumerationOf(HostCore &core, SharedReply &&r, bool names, CMPIStatus *rc) {
    if (!r.ok()) {
        failWith(core, r, rc);
        return nullptr;
    }
    std::vector<Value> items;
    items.reserve(names ? r.paths.size() : r.instances.size());
    if (names) {
        for (ObjectPathV &p : r.paths) items.push_back(Value::ref(std::move(p)));
    } else {
        for (auto &i : r.instances) items.push_back(Value::instance(std::move(i)));
    }
    rt::setRc(rc, CMPI_RC_OK);
    return Runtime::make<rt::EnumerationObj>(Lifetime::Tracked, core.flavor(), names ? CMPI_ref : CMPI_instance,
                                             std::move(items))
        ->as<CMPIEnumeration>();
}

// Routes an up-call as a stock CIMOM does: under the calling provider
// process's up-call lock, served on another thread. One that could only wait
// forever is refused with the reason, which is also logged.
template <class R, class F>
R throughGate(HostCore &core, const std::string &call, F &&route) {
    return core.upcalls().run<R>(call, std::forward<F>(route), [&](const std::string &why) {
        core.log(why);
        return R::error(CMPI_RC_ERR_FAILED, why);
    });
}

// Runs an up-call that answers with an enumeration.
template <class F>
CMPIEnumeration *enumUpcall(const char *what, const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                            bool names, CMPIStatus *rc, F &&route) {
    return rt::guarded<CMPIEnumeration *>(rc, nullptr, [&]() -> CMPIEnumeration * {
        HostCore *core = HostCore::of(mb, rc);
        CallContext cc;
        ObjectPathV path;
        if (core == nullptr || !callContextOf(ctx, cc, rc) || !pathOf(op, path, rc)) return nullptr;
        SharedReply r =
            throughGate<SharedReply>(*core, std::string(what) + " " + path.className, [&] { return route(*core, cc, path); });
        return enumerationOf(*core, std::move(r), names, rc);
    });
}

std::string text(const char *s) { return s != nullptr ? s : ""; }

// ---- threads -----------------------------------------------------------------

thread_local std::unique_ptr<rt::Scope> attachedScope;
thread_local std::optional<rt::ScopeBinding> attachedBinding;

CMPIContext *prepareAttachThread(const CMPIBroker *mb, const CMPIContext *ctx) {
    return rt::guarded<CMPIContext *>(nullptr, nullptr, [&]() -> CMPIContext * {
        HostCore *core = HostCore::of(mb, nullptr);
        CallContext cc;
        if (core == nullptr || !callContextOf(ctx, cc, nullptr)) return nullptr;
        // Lives until detachThread frees it. A thread attached with it runs
        // in the provider process of the code that prepared it.
        auto *made = Runtime::make<rt::ContextObj>(Lifetime::Clone, core->flavor(), std::move(cc.entries), cc.nullText);
        made->originWorker = threadRole().worker;
        made->originProvider = threadRole().operation.provider;
        return made->as<CMPIContext>();
    });
}

CMPIStatus attachThread(const CMPIBroker *mb, const CMPIContext *ctx) {
    return rt::guardedStatus([&]() -> CMPIStatus {
        CMPIStatus rc = rt::status(CMPI_RC_OK);
        auto *context = HostCore::of(mb, &rc) != nullptr ? Runtime::resolve<rt::ContextObj>(ctx, &rc) : nullptr;
        if (context == nullptr) return rc;
        if (attachedScope) return rt::status(CMPI_RC_ERR_FAILED);
        attachedScope = std::make_unique<rt::Scope>();
        attachedBinding.emplace(attachedScope.get());
        threadRole() = ThreadRole{context->originWorker, {context->originProvider, "attached thread", {}}, nullptr, 0};
        return rc;
    });
}

CMPIStatus detachThread(const CMPIBroker *mb, const CMPIContext *ctx) {
    return rt::guardedStatus([&]() -> CMPIStatus {
        CMPIStatus rc = rt::status(CMPI_RC_OK);
        if (HostCore::of(mb, &rc) == nullptr || Runtime::resolve<rt::ContextObj>(ctx, &rc) == nullptr) return rc;
        if (!attachedScope) return rt::status(CMPI_RC_ERR_FAILED);
        attachedBinding.reset();
        attachedScope.reset();
        threadRole() = ThreadRole{};
        return Runtime::release(const_cast<CMPIContext *>(ctx), rt::Kind::Context);
    });
}

// An up-call like the others: from provider code it waits for its process's
// up-call lock, so one that could only wait forever is refused here too.
CMPIStatus deliverIndication(const CMPIBroker *mb, const CMPIContext *ctx, const char *ns, const CMPIInstance *ind) {
    return rt::guardedStatus([&]() -> CMPIStatus {
        CMPIStatus rc = rt::status(CMPI_RC_OK);
        HostCore *core = HostCore::of(mb, &rc);
        if (core == nullptr || Runtime::resolve<rt::ContextObj>(ctx, &rc) == nullptr) return rc;
        auto *instance = Runtime::resolve<rt::InstanceObj>(ind, &rc);
        if (instance == nullptr) return rc;
        if (ns == nullptr) return rt::status(CMPI_RC_ERR_INVALID_PARAMETER);
        std::shared_ptr<const InstanceV> indication = instance->sharedSnapshot();
        const std::string nameSpace = ns;
        SharedReply r = throughGate<SharedReply>(*core, "DeliverIndication " + indication->path.className, [&] {
            core->deliverIndication(nameSpace, *indication);
            return SharedReply{};
        });
        if (r.ok()) return rc;
        return CMPIStatus{r.rc, rt::trackedString(core->flavor(), r.message)};
    });
}

// ---- instances ---------------------------------------------------------------

CMPIEnumeration *enumerateInstanceNames(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                        CMPIStatus *rc) {
    return enumUpcall("EnumerateInstanceNames", mb, ctx, op, true, rc, [](HostCore &core, const CallContext &cc, const ObjectPathV &path) {
        return core.enumerateShared(cc, path, nullptr, true);
    });
}

CMPIEnumeration *enumerateInstances(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                    const char **properties, CMPIStatus *rc) {
    auto props = propertyList(properties);
    return enumUpcall("EnumerateInstances", mb, ctx, op, false, rc, [&](HostCore &core, const CallContext &cc, const ObjectPathV &path) {
        return core.enumerateShared(cc, path, props ? &*props : nullptr, false);
    });
}

CMPIInstance *getInstance(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                          const char **properties, CMPIStatus *rc) {
    return rt::guarded<CMPIInstance *>(rc, nullptr, [&]() -> CMPIInstance * {
        HostCore *core = HostCore::of(mb, rc);
        CallContext cc;
        ObjectPathV path;
        if (core == nullptr || !callContextOf(ctx, cc, rc) || !pathOf(op, path, rc)) return nullptr;
        auto props = propertyList(properties);
        SharedReply r = throughGate<SharedReply>(*core, "GetInstance " + path.className, [&] {
            return core->getInstanceShared(cc, path, props ? &*props : nullptr);
        });
        if (!r.ok()) {
            failWith(*core, r, rc);
            return nullptr;
        }
        // A provider that answered OK without an instance gets NULL and OK back.
        rt::setRc(rc, CMPI_RC_OK);
        if (r.instances.empty()) return nullptr;
        return Runtime::make<rt::InstanceObj>(Lifetime::Tracked, core->flavor(), std::move(r.instances.front()))
            ->as<CMPIInstance>();
    });
}

CMPIObjectPath *createInstance(const CMPIBroker *, const CMPIContext *, const CMPIObjectPath *, const CMPIInstance *,
                               CMPIStatus *rc) {
    rt::setRc(rc, CMPI_RC_ERR_NOT_SUPPORTED);
    return nullptr;
}

CMPIStatus modifyInstance(const CMPIBroker *, const CMPIContext *, const CMPIObjectPath *, const CMPIInstance *,
                          const char **) {
    return rt::status(CMPI_RC_ERR_NOT_SUPPORTED);
}

CMPIStatus deleteInstance(const CMPIBroker *, const CMPIContext *, const CMPIObjectPath *) {
    return rt::status(CMPI_RC_ERR_NOT_SUPPORTED);
}

CMPIEnumeration *execQuery(const CMPIBroker *, const CMPIContext *, const CMPIObjectPath *, const char *, const char *,
                           CMPIStatus *rc) {
    rt::setRc(rc, CMPI_RC_ERR_NOT_SUPPORTED);
    return nullptr;
}

// ---- associations --------------------------------------------------------------

CMPIEnumeration *associators(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                             const char *assocClass, const char *resultClass, const char *role,
                             const char *resultRole, const char **properties, CMPIStatus *rc) {
    auto props = propertyList(properties);
    AssocFilter f{text(assocClass), text(resultClass), text(role), text(resultRole)};
    return enumUpcall("Associators", mb, ctx, op, false, rc, [&](HostCore &core, const CallContext &cc, const ObjectPathV &path) {
        return core.associatorsShared(cc, path, f, props ? &*props : nullptr, false);
    });
}

CMPIEnumeration *associatorNames(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                 const char *assocClass, const char *resultClass, const char *role,
                                 const char *resultRole, CMPIStatus *rc) {
    AssocFilter f{text(assocClass), text(resultClass), text(role), text(resultRole)};
    return enumUpcall("AssociatorNames", mb, ctx, op, true, rc, [&](HostCore &core, const CallContext &cc, const ObjectPathV &path) {
        return core.associatorsShared(cc, path, f, nullptr, true);
    });
}

CMPIEnumeration *references(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                            const char *resultClass, const char *role, const char **properties, CMPIStatus *rc) {
    auto props = propertyList(properties);
    return enumUpcall("References", mb, ctx, op, false, rc, [&](HostCore &core, const CallContext &cc, const ObjectPathV &path) {
        return core.referencesShared(cc, path, text(resultClass), text(role), props ? &*props : nullptr, false);
    });
}

CMPIEnumeration *referenceNames(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                const char *resultClass, const char *role, CMPIStatus *rc) {
    return enumUpcall("ReferenceNames", mb, ctx, op, true, rc, [&](HostCore &core, const CallContext &cc, const ObjectPathV &path) {
        return core.referencesShared(cc, path, text(resultClass), text(role), nullptr, true);
    });
}

// ---- methods and properties ----------------------------------------------------

CMPIData invokeMethod(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op, const char *method,
                      const CMPIArgs *in, CMPIArgs *out, CMPIStatus *rc) {
    CMPIData none{};
    none.type = CMPI_null;
    none.state = CMPI_nullValue;
    return rt::guarded<CMPIData>(rc, none, [&]() -> CMPIData {
        HostCore *core = HostCore::of(mb, rc);
        CallContext cc;
        ObjectPathV path;
        if (core == nullptr || !callContextOf(ctx, cc, rc) || !pathOf(op, path, rc)) return none;
        if (method == nullptr) {
            rt::setRc(rc, CMPI_RC_ERR_INVALID_PARAMETER);
            return none;
        }
        NamedValues args;
        if (in != nullptr) {
            auto *a = Runtime::resolve<rt::ArgsObj>(in, rc);
            if (a == nullptr) return none;
            args = a->args();
        }
        rt::ArgsObj *outArgs = nullptr;
        if (out != nullptr && (outArgs = Runtime::resolve<rt::ArgsObj>(out, rc)) == nullptr) return none;
        Reply r = throughGate<Reply>(*core, "InvokeMethod " + path.className + "." + method, [&] {
            return core->invokeMethod(cc, path, method, args);
        });
        if (!r.ok()) {
            failWith(*core, r, rc);
            return none;
        }
        if (outArgs != nullptr)
            for (auto &[name, value] : r.outArgs) setNamed(outArgs->args(), name, value);
        rt::setRc(rc, CMPI_RC_OK);
        return r.returnValue ? rt::toData(*r.returnValue, core->flavor()) : none;
    });
}

CMPIStatus setProperty(const CMPIBroker *, const CMPIContext *, const CMPIObjectPath *, const char *,
                       const CMPIValue *, CMPIType) {
    return rt::status(CMPI_RC_ERR_NOT_SUPPORTED);
}

CMPIData getProperty(const CMPIBroker *, const CMPIContext *, const CMPIObjectPath *, const char *, CMPIStatus *rc) {
    rt::setRc(rc, CMPI_RC_ERR_NOT_SUPPORTED);
    return rt::missingData();
}

}  // namespace

CMPIBrokerFT brokerTable(bool legacy) {
    return CMPIBrokerFT{CMPI_MB_Class_2,
                        legacy ? 0u : static_cast<unsigned>(CMPIVersion200),
                        "cimhost",
                        prepareAttachThread,
                        attachThread,
                        detachThread,
                        deliverIndication,
                        enumerateInstanceNames,
                        getInstance,
                        createInstance,
                        modifyInstance,
                        deleteInstance,
                        execQuery,
                        enumerateInstances,
                        associators,
                        associatorNames,
                        references,
                        referenceNames,
                        invokeMethod,
                        setProperty,
                        getProperty};
}

}  // namespace cimhost
