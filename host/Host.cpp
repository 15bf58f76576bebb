#include "Host.h"

#include "HostCore.h"
#include "Objects.h"

namespace cimhost {

namespace {

// Keys take the types their class declares, as a CIMOM types a client's keys.
CMPIrc typeKeys(const Schema &schema, ObjectPathV &path, std::string &message) {
    for (auto &[name, value] : path.keys) {
        CMPIType declared = schema.propertyType(path.className, name);
        if (declared == CMPI_null || value.isNull()) continue;
        auto typed = value.convertTo(declared);
        if (!typed) {
            message = "key " + name + " wants " + typeName(declared) + ", not " + value.toText();
            return CMPI_RC_ERR_INVALID_PARAMETER;
        }
        value = std::move(*typed);
    }
    return CMPI_RC_OK;
}

void normalize(NamedValues &values) {
    for (auto &[name, value] : values) rt::toClientForm(value);
}

// What clients get: chars arrays read as string arrays.
void normalize(Reply &r) {
    for (ObjectPathV &p : r.paths) normalize(p.keys);
    for (InstanceV &i : r.instances) {
        normalize(i.path.keys);
        normalize(i.properties);
    }
    normalize(r.outArgs);
    if (r.returnValue) rt::toClientForm(*r.returnValue);
}

thread_local const Host::ThreadPrincipal *threadPrincipal = nullptr;

}  // namespace

Host::ThreadPrincipal::ThreadPrincipal(std::string user, HostOptions::PrincipalEntry entry)
    : user_(std::move(user)), entry_(entry), outer_(threadPrincipal) {
    threadPrincipal = this;
}

Host::ThreadPrincipal::~ThreadPrincipal() { threadPrincipal = outer_; }

Host::Host(HostOptions options) : principal_(options.principal), principalEntry_(options.principalEntry) {
    core_ = std::make_unique<HostCore>(std::move(options));
}

Host::~Host() = default;

CallContext Host::baseContext() const {
    CallContext cc;
    std::unique_lock lock(principalMutex_, std::defer_lock);
    if (threadPrincipal == nullptr) lock.lock();
    const std::string &principal = threadPrincipal != nullptr ? threadPrincipal->user_ : principal_;
    switch (threadPrincipal != nullptr ? threadPrincipal->entry_ : principalEntry_) {
        case HostOptions::PrincipalEntry::Named: setNamed(cc.entries, CMPIPrincipal, Value::string(principal)); break;
        case HostOptions::PrincipalEntry::NullText:
            setNamed(cc.entries, CMPIPrincipal, Value::null(CMPI_string));
            cc.nullText.push_back(CMPIPrincipal);
            break;
        case HostOptions::PrincipalEntry::Absent: break;
    }
    return cc;
}

// One client operation: its own request on this thread, released on return.
template <class Op> Reply Host::request(const ObjectPathV *path, Op &&op) {
    try {
        rt::Scope scope;
        rt::ScopeBinding binding(&scope);
        ClientRequest client;
        CallContext cc = baseContext();
        ObjectPathV typed;
        if (path != nullptr) {
            typed = *path;
            std::string message;
            if (CMPIrc rc = typeKeys(core_->schema(), typed, message); rc != CMPI_RC_OK)
                return Reply::error(rc, message);
        }
        Reply r = op(cc, typed);
        // An up-call that would have hung a stock CIMOM fails the whole request.
        if (std::string deadlock = client.deadlock(); !deadlock.empty()) return Reply::error(CMPI_RC_ERR_FAILED, deadlock);
        normalize(r);
        return r;
    } catch (const std::exception &e) {
        return Reply::error(CMPI_RC_ERR_FAILED, e.what());
    }
}

Reply Host::enumerateInstanceNames(const std::string &ns, const std::string &cls) {
    ObjectPathV op{ns, cls, {}, {}};
    return request(&op, [&](const CallContext &cc, const ObjectPathV &p) { return core_->enumerateInstanceNames(cc, p); });
}

Reply Host::enumerateInstances(const std::string &ns, const std::string &cls, const PropertyList *props) {
    ObjectPathV op{ns, cls, {}, {}};
    return request(&op, [&](const CallContext &cc, const ObjectPathV &p) {
        return core_->enumerateInstances(cc, p, props);
    });
}

Reply Host::getInstance(const ObjectPathV &path, const PropertyList *props) {
    return request(&path, [&](const CallContext &cc, const ObjectPathV &p) { return core_->getInstance(cc, p, props); });
}

Reply Host::associators(const ObjectPathV &path, const AssocFilter &filter, const PropertyList *props) {
    return request(&path, [&](const CallContext &cc, const ObjectPathV &p) {
        return core_->associators(cc, p, filter, props);
    });
}

Reply Host::associatorNames(const ObjectPathV &path, const AssocFilter &filter) {
    return request(&path, [&](const CallContext &cc, const ObjectPathV &p) {
        return core_->associatorNames(cc, p, filter);
    });
}

Reply Host::references(const ObjectPathV &path, const std::string &resultClass, const std::string &role,
                       const PropertyList *props) {
    return request(&path, [&](const CallContext &cc, const ObjectPathV &p) {
        return core_->references(cc, p, resultClass, role, props);
    });
}

Reply Host::referenceNames(const ObjectPathV &path, const std::string &resultClass, const std::string &role) {
    return request(&path, [&](const CallContext &cc, const ObjectPathV &p) {
        return core_->referenceNames(cc, p, resultClass, role);
    });
}

Reply Host::invokeMethod(const ObjectPathV &path, const std::string &method, const NamedValues &args) {
    return request(&path, [&](const CallContext &cc, const ObjectPathV &p) {
        return core_->invokeMethod(cc, p, method, args);
    });
}

Reply Host::activateFilter(const std::string &ns, const std::string &cls, const std::string &query) {
    return request(nullptr, [&](const CallContext &cc, const ObjectPathV &) {
        return core_->activateFilter(cc, ns, cls, query);
    });
}

Reply Host::deactivateFilter(const std::string &ns, const std::string &cls, const std::string &query) {
    return request(nullptr, [&](const CallContext &cc, const ObjectPathV &) {
        return core_->deactivateFilter(cc, ns, cls, query);
    });
}

ObjectPathV Host::path(const std::string &ns, const std::string &cls, const NamedValues &keys) const {
    ObjectPathV p{ns, cls, {}, {}};
    for (const auto &[name, value] : keys) {
        CMPIType declared = core_->schema().propertyType(cls, name);
        auto typed = declared == CMPI_null ? std::nullopt : value.convertTo(declared);
        p.keys.emplace_back(name, typed ? *typed : value);
    }
    return p;
}

std::vector<RegisteredClass> Host::registeredClasses() const { return core_->registeredClasses(); }
void Host::setPermission(const std::string &user, unsigned level) { core_->setPermission(user, level); }

void Host::setPrincipal(const std::string &user, HostOptions::PrincipalEntry entry) {
    std::lock_guard lock(principalMutex_);
    principal_ = user;
    principalEntry_ = entry;
}

void Host::withRequest(const std::function<void(const CMPIBroker *, const CMPIContext *)> &body) {
    rt::Scope scope;
    rt::ScopeBinding binding(&scope);
    CallContext cc = baseContext();
    setNamed(cc.entries, CMPIInvocationFlags, Value::u32(0));
    auto *ctx = rt::Runtime::make<rt::ContextObj>(rt::Lifetime::PassedIn, core_->flavor(), std::move(cc.entries),
                                                  cc.nullText);
    struct Dispose {
        rt::Object *obj;
        ~Dispose() { rt::Runtime::dispose(obj); }
    } dispose{ctx};
    body(core_->broker(), ctx->as<CMPIContext>());
}

const CMPIBroker *Host::broker() const { return core_->broker(); }
std::vector<std::string> Host::brokerLog() const { return core_->logLines(); }

}  // namespace cimhost
